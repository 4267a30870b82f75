// Convolution filters: values worked by hand from the definitions, the three
// inner loops agreeing, the picture orientation whatever the view, the
// documented choices (Gaussian weights, user kernel rounding and offset),
// progress and validation.
#include "filter_reference.h"

#include <gtest/gtest.h>

#include <numeric>
#include <tuple>

namespace rz::test {
namespace {

struct Words {
    std::vector<int32_t> w;
    const SpatialKernel *spatial() const { return reinterpret_cast<const SpatialKernel *>(w.data()); }
    const UserFilterKernel *user() const { return reinterpret_cast<const UserFilterKernel *>(w.data()); }
};

Words Spatial(int32_t divisor, int32_t bias, int32_t dim, std::vector<int32_t> m) {
    Words k{{SPATIALKERNEL_SIZE, divisor, bias, dim}};
    k.w.insert(k.w.end(), m.begin(), m.end());
    return k;
}

Words User(int32_t w, int32_t h, int32_t cx, int32_t cy, int32_t divisor, int32_t offset, int32_t type,
           std::vector<int32_t> m) {
    Words k{{USERFILTERKERNEL_SIZE, w, h, cx, cy, divisor, offset, type}};
    k.w.insert(k.w.end(), m.begin(), m.end());
    return k;
}

Bitmap Flat(const char *layout, int32_t w, int32_t h, uint64_t value) {
    Bitmap b(FindLayout(layout), w, h, 0);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) b.setPixel(x, y, value);
    return b;
}

TEST(Convolution, OnePixelSeesItselfInAllNinePlaces) {
    for (int32_t k = 0; k < SPF_COUNT; ++k) {
        const int32_t sum = std::accumulate(kTable[k].c, kTable[k].c + 9, 0);
        for (int64_t p : {0, 1, 77, 200, 255}) {
            Bitmap b = Flat("grey8", 1, 1, uint64_t(p));
            ASSERT_EQ(Rz_SpatialFilterBitmap(b.get(), RZ_SPF_KERNEL(k)), 1);
            EXPECT_EQ(b.pixel(0, 0), uint64_t(std::clamp<int64_t>(p * sum + kTable[k].bias, 0, 255)))
                << "kernel " << k << " pixel " << p;
        }
        Bitmap w = Flat("grey16", 1, 1, 40000);
        ASSERT_EQ(Rz_SpatialFilterBitmap(w.get(), RZ_SPF_KERNEL(k)), 1);
        EXPECT_EQ(w.pixel(0, 0), uint64_t(std::clamp<int64_t>(40000 * sum + kTable[k].bias * 257, 0, 65535)));
    }
}

TEST(Convolution, EmbossOnAFlatImageIsMidGreyAtEveryDepth) {
    Bitmap g8 = Flat("grey8", 7, 5, 93);
    Bitmap g16 = Flat("grey16", 7, 5, 12345);
    Bitmap c48 = Flat("bgr48", 7, 5, 0x1111222233334444ull);
    for (BitmapDesc *b : {g8.get(), g16.get(), c48.get()}) ASSERT_EQ(Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_EMBOSS_N)), 1);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x) {
            EXPECT_EQ(g8.pixel(x, y), 128u);
            EXPECT_EQ(g16.pixel(x, y), 32896u);
            EXPECT_EQ(c48.pixel(x, y), 0x808080808080ull) << "three channels of 32896";
        }
}

TEST(Convolution, DivisorMinusOneNegatesTheSumBeforeTheBias) {
    Bitmap b(FindLayout("grey8"), 6, 4, 3);
    const Bitmap before(b);
    const Words k = Spatial(-1, 255, 3, {0, 0, 0, 0, 1, 0, 0, 0, 0});
    ASSERT_EQ(Rz_SpatialFilterBitmap(b.get(), k.spatial()), 1);
    for (int32_t y = 0; y < 4; ++y)
        for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(b.pixel(x, y), 255 - before.pixel(x, y));
}

// A 5x5 field of 50 with 100 in the middle, sharpened; values worked by hand.
TEST(Convolution, SharpeningKernelsFromTheStrength) {
    struct Case {
        int32_t sharpness;
        uint64_t centre, left, corner;
    };
    const Case cases[] = {
        {1000, 255, 0, 50},  // -1 around, 9 over 1: 900 - 400; 450 - 450; flat
        {1, 105, 49, 50},    // -1 around, 80 over 72: 7600/72; 3550/72; 3600/72
        {-1, 95, 50, 50},    // 1 around, 72 over 80: 7600/80; 4050/80; 4000/80
        {-1000, 55, 55, 50}, // the 3x3 box: 500/9 both; 450/9
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.sharpness);
        Bitmap b = Flat("grey8", 5, 5, 50);
        b.setPixel(2, 2, 100);
        ASSERT_EQ(Rz_SharpenBitmap(b.get(), c.sharpness), 1);
        EXPECT_EQ(b.pixel(2, 2), c.centre);
        EXPECT_EQ(b.pixel(1, 2), c.left);
        EXPECT_EQ(b.pixel(0, 0), c.corner);
    }
}

TEST(Convolution, SharpeningByZeroTouchesNothing) {
    Bitmap b(FindLayout("bgr24"), 9, 9, 4);
    const auto before = b.storedBytes();
    const int32_t changes = b->nChangeCount;
    CallbackRecorder rec;
    EXPECT_EQ(Rz_SharpenBitmap(b.get(), 0), 1);
    EXPECT_EQ(b.storedBytes(), before);
    EXPECT_EQ(b->nChangeCount, changes);
}

// The predefined path (compiled kernels), the 3x3 path (nine coefficients)
// and the ring path (one coefficient at a time) give the same sums: a 3x3
// kernel inside a 5x5 of zeros, or as a user kernel, changes nothing.
TEST(Convolution, ThreeByThreeAndRingPathsAgree) {
    std::mt19937 rng(17);
    for (const char *layout : {"grey8", "bgr24", "grey16", "rgb48"}) {
        SCOPED_TRACE(layout);
        for (int32_t k = 0; k <= SPF_COUNT; ++k) {
            std::vector<int32_t> c(9);
            int32_t divisor = 1, bias = 0;
            if (k < SPF_COUNT) {
                std::copy(kTable[k].c, kTable[k].c + 9, c.begin());
                bias = kTable[k].bias;
            } else {
                for (int32_t &v : c) v = int32_t(rng() % 41) - 20;
                divisor = 6;
                bias = 31;
            }
            std::vector<int32_t> wide(25, 0);
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) wide[(i + 1) * 5 + j + 1] = c[i * 3 + j];
            const Bitmap original(FindLayout(layout), 17, 12, 100 + k);
            Bitmap three(original), ring(original), user(original);
            const Words w3 = Spatial(divisor, bias, 3, c);
            const Words w5 = Spatial(divisor, bias, 5, wide);
            const Words wu = User(5, 5, 2, 2, divisor, bias, RZ_UF_TRUNCATE, wide);
            ASSERT_EQ(k < SPF_COUNT ? Rz_SpatialFilterBitmap(three.get(), RZ_SPF_KERNEL(k))
                                    : Rz_SpatialFilterBitmap(three.get(), w3.spatial()),
                      1);
            ASSERT_EQ(Rz_SpatialFilterBitmap(ring.get(), w5.spatial()), 1);
            ASSERT_EQ(Rz_UserFilterBitmap(user.get(), wu.user()), 1);
            EXPECT_EQ(three.storedBytes(), ring.storedBytes()) << "kernel " << k;
            EXPECT_EQ(three.storedBytes(), user.storedBytes()) << "kernel " << k;
        }
    }
}

// The stored picture is what a person sees: a kernel applies to it the same
// way whatever view the caller has set, bottom-up (views 3 and 4) and
// transposed ones included, and the caller's view comes back.
TEST(Convolution, TheKernelFollowsThePictureInEveryView) {
    const Words user = User(3, 2, 0, 1, 3, -5, RZ_UF_ROUND, {4, -1, 2, 0, 3, -6});
    const std::function<int32_t(BitmapDesc *)> ops[] = {
        [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_SOBEL_HORIZONTAL)); },
        [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_SHIFT_DIAGONAL)); },
        [&](BitmapDesc *b) { return Rz_UserFilterBitmap(b, user.user()); },
        [](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 15); },
    };
    for (const auto &op : ops) {
        const Bitmap original(FindLayout("bgr24"), 11, 7, 21);
        Bitmap upright(original);
        ASSERT_EQ(op(upright.get()), 1);
        for (int32_t view = 2; view <= 8; ++view) {
            SCOPED_TRACE(view);
            Bitmap turned(original);
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, turned.get(), BITMAPDESC_SIZE, view, 0), 1);
            ASSERT_EQ(op(turned.get()), 1);
            EXPECT_EQ(turned->nViewPerspective, view);
            EXPECT_EQ(turned.storedBytes(), upright.storedBytes());
        }
    }
}

TEST(UserFilter, AbsoluteShowsBothEdgesAndRoundKeepsTheMean) {
    // A ramp down then up: 100 100 0 0 100 100.
    const std::vector<uint8_t> row{100, 100, 0, 0, 100, 100};
    const Words deriv[] = {User(3, 1, 1, 0, 1, 0, RZ_UF_TRUNCATE, {-1, 0, 1}),
                           User(3, 1, 1, 0, 1, 0, RZ_UF_ABSOLUTE, {-1, 0, 1})};
    const std::vector<uint64_t> want[] = {{0, 0, 0, 100, 100, 0}, {0, 100, 100, 100, 100, 0}};
    for (int t = 0; t < 2; ++t) {
        Bitmap b = GreyBitmap(6, 1, row);
        ASSERT_EQ(Rz_UserFilterBitmap(b.get(), deriv[t].user()), 1);
        for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(b.pixel(x, 0), want[t][x]) << "type " << t << " x " << x;
    }
    // Mean of a pixel and its right neighbour: 10 and 11 make 10.5.
    for (int32_t type : {RZ_UF_TRUNCATE, RZ_UF_ROUND}) {
        Bitmap b = GreyBitmap(3, 1, {10, 11, 11});
        const Words mean = User(2, 1, 0, 0, 2, 0, type, {1, 1});
        ASSERT_EQ(Rz_UserFilterBitmap(b.get(), mean.user()), 1);
        EXPECT_EQ(b.pixel(0, 0), type == RZ_UF_ROUND ? 11u : 10u);
        EXPECT_EQ(b.pixel(1, 0), 11u);
    }
    // Negative halves round away from zero: (-3) / 2 -> -2, plus 10.
    Bitmap b = GreyBitmap(2, 1, {3, 0});
    const Words neg = User(1, 1, 0, 0, 2, 10, RZ_UF_ROUND, {-1});
    ASSERT_EQ(Rz_UserFilterBitmap(b.get(), neg.user()), 1);
    EXPECT_EQ(b.pixel(0, 0), 8u);
}

TEST(UserFilter, OffsetIsWidenedOnSixteenBitSamples) {
    Bitmap b = Flat("grey16", 3, 2, 1000);
    const Words k = User(1, 1, 0, 0, 1, 2, RZ_UF_TRUNCATE, {1});
    ASSERT_EQ(Rz_UserFilterBitmap(b.get(), k.user()), 1);
    EXPECT_EQ(b.pixel(2, 1), 1000u + 2 * 257);
}

TEST(Gaussian, WeightsAreTheDocumentedOnes) {
    // One row, an impulse in the middle: the columns pass sees single
    // samples and leaves them, so each output is the rounded weight times
    // the impulse: in 2^-14 for 16-bit samples, 2^-8 for 8-bit ones.
    for (int32_t radius : {1, 20, 100}) {
        for (auto [layout, shift, peak] : {std::tuple{"grey16", 14, 65535}, std::tuple{"grey8", 8, 255}}) {
            SCOPED_TRACE(std::string(layout) + " radius " + std::to_string(radius));
            const std::vector<int64_t> w = DocumentedGaussWeights(radius, shift);
            const int32_t r = int32_t(w.size()) - 1;
            EXPECT_EQ(w[0] + 2 * std::accumulate(w.begin() + 1, w.end(), int64_t(0)), int64_t(1) << shift);
            for (int32_t i = 0; i <= r; ++i) EXPECT_GE(w[i], 0) << "tap " << i;
            Bitmap b = Flat(layout, 2 * r + 5, 1, 0);
            b.setPixel(r + 2, 0, uint64_t(peak));
            ASSERT_EQ(Rz_GaussianFilterBitmap(b.get(), radius), 1);
            for (int32_t i = -r; i <= r; ++i)
                EXPECT_EQ(int64_t(b.pixel(r + 2 + i, 0)), (w[std::abs(i)] * peak + (int64_t(1) << (shift - 1))) >> shift)
                    << "tap " << i;
            EXPECT_EQ(b.pixel(0, 0), 0u);
        }
    }
    // Worked by hand for radius 3 (sigma 1.0333, r 3): the tail shares of
    // 256 are 1.46, 16.65 and 78.56, rounded 1, 17, 79; so 98 62 16 1.
    EXPECT_EQ(DocumentedGaussWeights(3, 8), (std::vector<int64_t>{98, 62, 16, 1}));
}

TEST(Gaussian, ProgressRunsThroughBothHalves) {
    Bitmap b(FindLayout("bgr24"), 40, 30, 8);
    CallbackRecorder rec;
    ASSERT_EQ(Rz_GaussianFilterBitmap(b.get(), 20), 1);
    const std::vector<int32_t> &p = rec.percents();
    ASSERT_FALSE(p.empty());
    EXPECT_EQ(p.front(), 0);
    EXPECT_EQ(p.back(), 100);
    EXPECT_TRUE(std::is_sorted(p.begin(), p.end()));
    const auto half = std::find(p.begin(), p.end(), 50);
    ASSERT_NE(half, p.end());
    EXPECT_EQ(*(half + 1), 51) << "the second pass starts at 51";
}

TEST(Gaussian, TheCallersViewComesBackWhenStopped) {
    Bitmap b(FindLayout("grey8"), 20, 20, 8);
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 4, 0), 1);
    for (int32_t stop : {1, 5, 25, 30}) { // in the first pass, at its end, in the second
        CallbackRecorder rec;
        rec.stopAt(stop, -77);
        EXPECT_EQ(Rz_GaussianFilterBitmap(b.get(), 10), -77);
        EXPECT_EQ(b->nViewPerspective, 4);
        EXPECT_EQ(b->nWidth, 20);
    }
}

TEST(Convolution, Validation) {
    Bitmap b(FindLayout("grey8"), 4, 4, 1);
    const Words good = Spatial(1, 0, 3, {0, 0, 0, 0, 1, 0, 0, 0, 0});
    EXPECT_EQ(Rz_SpatialFilterBitmap(nullptr, good.spatial()), ST_NULL_POINTER);
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), RZ_SPF_KERNEL(SPF_COUNT)), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), RZ_SPF_KERNEL(0xFFFF)), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), nullptr), 1) << "null is number 0, SPF_EMBOSS_N";
    Words bad = good;
    bad.w[0] = 19;
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), bad.spatial()), ST_BAD_STRUCT_SIZE);
    bad = good;
    bad.w[1] = 0;
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), bad.spatial()), ST_INVALID_PARAMETER);
    bad = good;
    bad.w[3] = 0;
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), bad.spatial()), ST_INVALID_PARAMETER);

    EXPECT_EQ(Rz_SharpenBitmap(nullptr, 100), ST_NO_BITMAP);
    EXPECT_EQ(Rz_SharpenBitmap(b.get(), 1001), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_SharpenBitmap(b.get(), -1001), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_GaussianFilterBitmap(b.get(), 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_GaussianFilterBitmap(nullptr, 5), ST_NULL_POINTER);

    const Words user = User(3, 3, 1, 1, 1, 0, RZ_UF_TRUNCATE, std::vector<int32_t>(9, 1));
    EXPECT_EQ(Rz_UserFilterBitmap(nullptr, user.user()), ST_NO_BITMAP);
    EXPECT_EQ(Rz_UserFilterBitmap(b.get(), nullptr), ST_NULL_POINTER);
    const std::pair<int, int32_t> spoil[] = {{0, 32}, {1, 0}, {2, 0}, {3, 3}, {4, 3}, {3, -1}, {5, 0}, {7, 3}};
    for (auto [field, value] : spoil) {
        Words u = user;
        u.w[size_t(field)] = value;
        EXPECT_EQ(Rz_UserFilterBitmap(b.get(), u.user()), field == 0 ? ST_BAD_STRUCT_SIZE : ST_INVALID_PARAMETER)
            << "field " << field << " = " << value;
    }
    Words anyOffset = user;
    anyOffset.w[6] = INT32_MIN;
    EXPECT_EQ(Rz_UserFilterBitmap(b.get(), anyOffset.user()), 1) << "offset is not validated";
}

} // namespace
} // namespace rz::test
