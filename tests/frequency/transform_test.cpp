// Transforms against a naive DFT (every plane, power-of-two and other
// sizes, rectangles and signs), round trips, the write-back rules worked by
// hand, progress, views and regions, and bad input.
#include "ft_reference.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace rz::test {
namespace {

std::vector<std::complex<double>> Complex(const std::vector<double> &v) { return {v.begin(), v.end()}; }

TEST(FrequencyTransform, MatchesNaiveDftOnEveryPlaneAndLayout) {
    const struct {
        const char *layout;
        int32_t plane;
    } cases[] = {{"grey8", FT_PLANE_GREY},       {"pal8_grey", FT_PLANE_RED},    {"pal1_grey", FT_PLANE_GREY},
                 {"grey12", FT_PLANE_GREY},      {"grey16_bits0_11", FT_PLANE_BLUE}, {"bgr24", FT_PLANE_BLUE},
                 {"rgb24", FT_PLANE_GREEN},      {"bgr32", FT_PLANE_RED},        {"bgr24", FT_PLANE_GREY},
                 {"bgr48", FT_PLANE_RED},        {"bgr64", FT_PLANE_GREEN},      {"pal8_colour", FT_PLANE_BLUE}};
    const std::pair<int32_t, int32_t> fftSizes[] = {{2, 2}, {8, 4}, {16, 16}, {4, 32}, {64, 2}};
    const std::pair<int32_t, int32_t> dftSizes[] = {{6, 10}, {15, 7}, {1, 5}, {13, 1}, {12, 9}, {49, 25}, {1, 1}};
    uint32_t seed = 1;
    for (const auto &c : cases) {
        auto check = [&](int32_t w, int32_t h, bool fft) {
            SCOPED_TRACE(std::string(c.layout) + " plane " + std::to_string(c.plane) + " " + std::to_string(w) + "x" +
                         std::to_string(h));
            Bitmap b(FindLayout(c.layout), w, h, seed++);
            Array a(b.get());
            const int32_t flags = FT_FORWARD | c.plane;
            ASSERT_EQ(fft ? Rz_FFTBitmap(b.get(), a.a, flags) : Rz_DFTBitmap(b.get(), a.a, nullptr, flags | DFT_WHOLE),
                      1);
            EXPECT_LT(RelativeError(a.all(), NaiveDft(Complex(Plane(b, c.plane)), w, h, -1, -1)), 1e-9);
        };
        for (auto [w, h] : fftSizes) check(w, h, true);
        for (auto [w, h] : dftSizes) check(w, h, false);
    }
}

// The rectangle keeps its spectrum elements (the rest is 0); the step
// fields are the exponent's signs per axis.
TEST(FrequencyTransform, DftRectangleAndSigns) {
    Bitmap b(FindLayout("grey8"), 10, 6, 5);
    const std::vector<double> f = Plane(b, FT_PLANE_GREY);
    const struct {
        int32_t flags, sx, sy;
        int32_t rect[4];
    } cases[] = {
        {DFT_COLUMNS_MINUS | DFT_ROWS_MINUS, -1, -1, {0, 0, 9, 5}},
        {DFT_COLUMNS_PLUS, 1, 1, {2, 1, 7, 3}},
        {DFT_ROWS_MINUS, 1, -1, {9, 5, 9, 5}},
        {DFT_COLUMNS_MINUS | DFT_ROWS_PLUS, -1, 1, {0, 2, 4, 5}},
    };
    for (const auto &c : cases) {
        Array a(b.get());
        a.setAll(Spectrum(60, {7.0, 7.0})); // cleared first
        ASSERT_EQ(Rz_DFTBitmap(b.get(), a.a, c.rect, FT_FORWARD | FT_PLANE_GREY | DFT_RECT | c.flags), 1);
        Spectrum want = NaiveDft(Complex(f), 10, 6, c.sx, c.sy);
        for (int32_t v = 0; v < 6; ++v)
            for (int32_t u = 0; u < 10; ++u)
                if (u < c.rect[0] || u > c.rect[2] || v < c.rect[1] || v > c.rect[3]) want[size_t(v) * 10 + u] = 0;
        EXPECT_LT(RelativeError(a.all(), want), 1e-9) << c.flags;

        // The inverse with the same flags undoes it over its rectangle only.
        Bitmap back(b);
        for (int32_t y = 0; y < 6; ++y)
            for (int32_t x = 0; x < 10; ++x) back.setPixel(x, y, 0);
        a.setAll(NaiveDft(Complex(f), 10, 6, c.sx, c.sy));
        ASSERT_EQ(Rz_DFTBitmap(back.get(), a.a, c.rect,
                               FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP | DFT_RECT | c.flags),
                  1);
        for (int32_t y = 0; y < 6; ++y)
            for (int32_t x = 0; x < 10; ++x) {
                const bool inside = x >= c.rect[0] && x <= c.rect[2] && y >= c.rect[1] && y <= c.rect[3];
                const double want8 = inside ? f[size_t(y) * 10 + x] : 0.0;
                EXPECT_NEAR(double(back.pixel(x, y)), want8, 1.0) << x << "," << y;
            }
    }
}

// Forward and inverse (both components, clipped) give every plane back up
// to truncation; other channels are kept exactly.
TEST(FrequencyTransform, RoundTripKeepsPlaneAndOtherChannels) {
    for (const char *name : {"grey8", "grey12", "grey16", "pal4_colour", "bgr24", "rgb48", "bgr64", "bgr32"})
        for (int32_t plane : {FT_PLANE_BLUE, FT_PLANE_RED}) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(plane));
            Bitmap b(FindLayout(name), 32, 16, 11);
            const Bitmap before(b);
            const std::vector<double> f = Plane(b, plane);
            Array a(b.get());
            ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_FORWARD | plane), 1);
            ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | plane | FT_BOTH | FT_CLIP), 1);
            const std::vector<double> g = Plane(b, plane);
            for (size_t i = 0; i < f.size(); ++i) ASSERT_LE(std::abs(f[i] - g[i]), 1.0) << i;
            if (b->nBitsPerPixel >= 24 && b->nColorOrder != KRN_ORDER_GRAY) {
                const int32_t shift = (b->nBitsPerPixel >= 48 ? 16 : 8);
                // Raw packing: red at 0, green, blue; the untouched green channel.
                for (int32_t y = 0; y < 16; ++y)
                    for (int32_t x = 0; x < 32; ++x)
                        ASSERT_EQ((b.pixel(x, y) >> shift) & ((1u << shift) - 1),
                                  (before.pixel(x, y) >> shift) & ((1u << shift) - 1));
            }
        }
}

// Hand-worked 2x2: f = [[-10, 0], [10, 300]] has X = 300, -300 (u = 1),
// -320 (v = 1), 280; the inverse gives f back exactly.
TEST(FrequencyTransform, WriteBackRulesWorkedByHand) {
    const Spectrum X{300, -300, -320, 280};
    const struct {
        int32_t flags;
        std::vector<uint64_t> want;
    } cases[] = {
        {FT_BOTH | FT_CLIP, {0, 0, 10, 255}},
        {FT_BOTH | FT_STRETCH, {0, 8, 16, 255}}, // (v + 10) * 255 / 310
        {FT_MAGNITUDE | FT_CLIP, {255, 10, 0, 0}},  // |X| / 4 = 75, 75, 80, 70: 300, 10, 0, -10
    };
    for (const auto &c : cases) {
        Bitmap b(FindLayout("grey8"), 2, 2, 0);
        Array a(b.get());
        a.setAll(X);
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | c.flags), 1);
        for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(b.pixel(i % 2, i / 2), c.want[size_t(i)]) << c.flags << " " << i;
    }
    // The caller's array is left scaled: magnitude / P, phase / P, zero stays zero.
    Bitmap b(FindLayout("grey8"), 2, 2, 0);
    Array a(b.get());
    a.setAll({{3, 4}, {0, 0}, {-8, 0}, {0, 2}});
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_PHASE | FT_CLIP), 1);
    const Spectrum phase{{0.15, 0.2}, {0, 0}, {-0.25, 0}, {0, 0.25}};
    EXPECT_LT(RelativeError(a.all(), phase), 1e-15);
    a.setAll({{3, 4}, {0, 0}, {-8, 0}, {0, 2}});
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_MAGNITUDE | FT_CLIP), 1);
    EXPECT_LT(RelativeError(a.all(), {1.25, 0, 2, 0.5}), 1e-15);
    // A constant result stretches with factor 1: all 0.
    a.setAll({400, 0, 0, 0});
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_STRETCH), 1);
    for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(b.pixel(i % 2, i / 2), 0u);
}

// The array ends scaled however far the inverse got: stopped in either
// pass, or finished.
TEST(FrequencyTransform, InverseLeavesTheWholeArrayScaled) {
    Bitmap b(FindLayout("grey8"), 256, 8, 8); // three blocks of columns
    for (int32_t stop : {3, 6, 0}) {
        Array a(b.get());
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_FORWARD | FT_PLANE_GREY), 1);
        Spectrum want = a.all();
        for (auto &z : want) z /= 256.0 * 8.0;
        CallbackRecorder rec;
        if (stop) rec.stopAt(stop, 77);
        EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP), stop ? 77 : 1);
        EXPECT_EQ(a.all(), want) << "stopped at call " << stop;
    }
}

TEST(FrequencyTransform, ZeroAndNanSpectraGiveDocumentedValues) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (int32_t flags : {FT_BOTH | FT_CLIP, FT_PHASE | FT_STRETCH, FT_MAGNITUDE | FT_CLIP})
        for (double fill : {0.0, nan}) {
            Bitmap b(FindLayout("grey8"), 8, 4, 3);
            Array a(b.get());
            a.setAll(Spectrum(32, {fill, fill}));
            ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | flags), 1);
            ASSERT_EQ(Rz_DFTBitmap(b.get(), a.a, nullptr, DFT_WHOLE | FT_INVERSE | FT_PLANE_GREY | flags), 1);
            for (int32_t i = 0; i < 32; ++i) EXPECT_EQ(b.pixel(i % 8, i / 8), 0u) << flags << " " << fill;
        }
}

// The whole picture is transformed in view 1 whatever the view and region;
// both are back afterwards, and progress follows the documented steps.
TEST(FrequencyTransform, ViewRegionAndProgress) {
    Bitmap plain(FindLayout("bgr24"), 16, 16, 21);
    Bitmap b(plain);
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 6, 0);
    const RzRect r{1, 1, 4, 5};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    void *region = b->pRegion;
    Array a6(plain.get());
    {
        CallbackRecorder rec;
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a6.a, FT_FORWARD | FT_PLANE_GREEN), 1);
        const auto &p = rec.percents();
        ASSERT_GE(p.size(), 4u);
        EXPECT_EQ(p[0], 2);
        EXPECT_EQ(p[1], 5);
        EXPECT_TRUE(std::is_sorted(p.begin(), p.end()));
        EXPECT_NE(std::find(p.begin(), p.end(), 50), p.end());
        EXPECT_EQ(p.back(), 100);
        EXPECT_LT(RelativeError(a6.all(), NaiveDft(Complex(Plane(plain, FT_PLANE_GREEN)), 16, 16, -1, -1)), 1e-9);
        rec.clear();
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a6.a, FT_INVERSE | FT_PLANE_GREEN | FT_BOTH | FT_CLIP), 1);
        EXPECT_NE(std::find(rec.percents().begin(), rec.percents().end(), 90), rec.percents().end());
        EXPECT_EQ(rec.percents().back(), 100);
    }
    EXPECT_EQ(b->nViewPerspective, 6);
    EXPECT_EQ(b->pRegion, region);
    // A transposed view of a non-square picture does not fit its array in view 1.
    Bitmap wide(FindLayout("grey8"), 16, 8, 2);
    KrnChangeViewPerspective(nullptr, wide.get(), BITMAPDESC_SIZE, 5, 0);
    Array a5(wide.get());
    EXPECT_EQ(Rz_FFTBitmap(wide.get(), a5.a, FT_FORWARD | FT_PLANE_GREY), ST_INVALID_PARAMETER);
    EXPECT_EQ(wide->nViewPerspective, 5);
    // Written back in view 1 too: the whole plane, region or not.
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 1, 0);
    const std::vector<double> want = Plane(plain, FT_PLANE_GREEN), got = Plane(b, FT_PLANE_GREEN);
    for (size_t i = 0; i < want.size(); ++i) ASSERT_NEAR(got[i], want[i], 1.0);
}

TEST(FrequencyTransform, BadInput) {
    Bitmap b(FindLayout("grey8"), 8, 4, 1);
    Array a(b.get());
    const int32_t fwd = FT_FORWARD | FT_PLANE_GREY;
    for (auto [w, h] : {std::pair{6, 8}, std::pair{1, 8}, std::pair{8, 1}, std::pair{12, 4}}) {
        Bitmap odd(FindLayout("grey8"), w, h, 1);
        Array oa(odd.get());
        EXPECT_EQ(Rz_FFTBitmap(odd.get(), oa.a, fwd), ST_INVALID_PARAMETER) << w << "x" << h;
    }
    const int32_t badFlags[] = {0x40, 0x43, FT_FORWARD, FT_FORWARD | 0x50, FT_INVERSE | FT_PLANE_GREY | FT_CLIP,
                                FT_INVERSE | FT_PLANE_GREY | 0x400 | FT_CLIP, FT_INVERSE | FT_PLANE_GREY | FT_BOTH,
                                FT_INVERSE | FT_PLANE_GREY | FT_BOTH | 0x3000};
    for (int32_t f : badFlags) {
        EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, f), ST_INVALID_PARAMETER) << std::hex << f;
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, nullptr, f | DFT_WHOLE), ST_INVALID_PARAMETER) << std::hex << f;
    }
    // Fields the forward direction does not read are ignored.
    EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, fwd | 0x7700), 1);
    // Rectangles: touching every edge is fine, past one is not; step fields.
    const int32_t whole[4] = {0, 0, 7, 3}, pastRight[4] = {0, 0, 8, 3}, pastBottom[4] = {0, 0, 7, 4},
                  negative[4] = {-1, 0, 3, 3}, reversed[4] = {5, 0, 4, 3};
    EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, whole, fwd | DFT_RECT | DFT_ROWS_PLUS), 1);
    for (const int32_t *r : {pastRight, pastBottom, negative, reversed})
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, r, fwd | DFT_RECT | DFT_ROWS_PLUS), ST_INVALID_PARAMETER);
    for (int32_t f : {fwd | DFT_RECT, fwd | DFT_RECT | 0x300000, fwd | DFT_RECT | 0x3000000, fwd | 0x30000, fwd})
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, whole, f), ST_INVALID_PARAMETER) << std::hex << f;
    EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, nullptr, fwd | DFT_RECT | DFT_COLUMNS_PLUS), ST_INVALID_PARAMETER);

    // Sizes and size fields, in the documented order.
    Bitmap other(FindLayout("grey8"), 8, 8, 1);
    EXPECT_EQ(Rz_FFTBitmap(other.get(), a.a, fwd), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_FFTBitmap(b.get(), nullptr, fwd), ST_NULL_POINTER);
    EXPECT_EQ(Rz_FFTBitmap(nullptr, a.a, fwd), ST_NULL_POINTER);
    a.a->uStructSize = 27;
    EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, 0), ST_BAD_STRUCT_SIZE);
    EXPECT_EQ(Rz_FTDisplayBitmap(b.get(), a.a, 0x11), ST_BAD_STRUCT_SIZE);
    EXPECT_EQ(Rz_FreeFTArray(a.a), ST_BAD_STRUCT_SIZE); // nothing freed
    a.a->uStructSize = FTARRAY_SIZE;
    b->uFlags |= BMF_SIGNED;
    EXPECT_EQ(Rz_FFTBitmap(b.get(), nullptr, fwd), ST_SIGNED_NOT_SUPPORTED);
    b->uFlags &= ~BMF_SIGNED;

    FTARRAY *p = reinterpret_cast<FTARRAY *>(1);
    EXPECT_EQ(Rz_AllocFTArray(b.get(), nullptr, FTARRAY_SIZE), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_AllocFTArray(b.get(), &p, 27), ST_BAD_STRUCT_SIZE);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(Rz_AllocFTArray(nullptr, &p, FTARRAY_SIZE), ST_NULL_POINTER);
    EXPECT_EQ(Rz_FreeFTArray(nullptr), ST_NULL_POINTER);
    const int64_t live = KrnMemOutstanding();
    ASSERT_EQ(Rz_AllocFTArray(b.get(), &p, FTARRAY_SIZE), 1);
    EXPECT_EQ(p->uWidth, 8u);
    EXPECT_EQ(p->uHeight, 4u);
    EXPECT_EQ(KrnMemOutstanding(), live + 1);
    EXPECT_EQ(Rz_FreeFTArray(p), 1);
    EXPECT_EQ(KrnMemOutstanding(), live);
}

} // namespace
} // namespace rz::test
