// Resize and rotate against direct references that read
// the stored layout themselves and sum in double, on every depth; hand-worked
// averages; four quarter turns; the fill colour
// rules; and failure leaving the bitmap as it was.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

using kref::Bitmap;
using kref::Pixels;

// Channels of a raw stored value: one for 1..16 bits, 8 or 16-bit fields above.
struct Split {
    int count, width;
    explicit Split(int bits) : count(bits <= 16 ? 1 : (bits == 32 || bits == 64 ? 4 : 3)), width(bits <= 16 ? bits : bits >= 48 ? 16 : 8) {}
    uint32_t get(uint64_t raw, int k) const { return count == 1 ? uint32_t(raw) : uint32_t(raw >> (k * width) & ((1u << width) - 1)); }
    uint64_t put(const uint32_t *v) const {
        uint64_t raw = 0;
        for (int k = 0; k < count; ++k) raw |= uint64_t(v[k]) << (k * width);
        return raw;
    }
    uint32_t max() const { return width == 32 ? ~0u : (1u << width) - 1; }
};

uint32_t Rounded(double v, uint32_t max) { return uint32_t(std::clamp(std::floor(v + 0.5), 0.0, double(max))); }

// Weights of source pixels along one axis for output i, by direct overlap.
std::vector<std::pair<int, double>> AxisWeights(int src, int dst, int i, int method) {
    const double scale = double(src) / dst;
    std::vector<std::pair<int, double>> w;
    if (method == KRN_RESIZE_NEAREST) return {{std::min(int((i + 0.5) * scale), src - 1), 1.0}};
    if (method == KRN_RESIZE_AREA && dst < src) {
        for (int k = 0; k < src; ++k) {
            const double overlap = std::min((i + 1) * scale, k + 1.0) - std::max(i * scale, double(k));
            if (overlap > 0) w.push_back({k, overlap / scale});
        }
        return w;
    }
    const double u = (i + 0.5) * scale - 0.5;
    const int x0 = int(std::floor(u));
    const double f = u - x0;
    return {{std::clamp(x0, 0, src - 1), 1 - f}, {std::clamp(x0 + 1, 0, src - 1), f}};
}

TEST(KernelGeometry, ResizeMatchesDirectReferenceOnEveryDepth) {
    std::mt19937_64 rng(11);
    const struct {
        int w, h, dw, dh;
    } sizes[] = {{13, 7, 29, 5}, {17, 11, 4, 3}, {1, 1, 3, 2}, {9, 9, 9, 9}};
    for (int bits : kref::kDepths)
        for (const auto &s : sizes)
            for (int method : {KRN_RESIZE_NEAREST, KRN_RESIZE_BILINEAR, KRN_RESIZE_AREA}) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << s.w << "x" << s.h << " -> " << s.dw << "x"
                                                << s.dh << " method " << method);
                Bitmap b = kref::Random(s.w, s.h, bits, rng);
                const Split sp(bits);
                const std::vector<uint64_t> before = Pixels(*b.get());
                ASSERT_EQ(KrnResizeBitmap(b.get(), s.dw, s.dh, method), KRN_OK);
                ASSERT_EQ(b->nWidth, s.dw);
                ASSERT_EQ(b->nHeight, s.dh);
                for (int y = 0; y < s.dh; ++y)
                    for (int x = 0; x < s.dw; ++x) {
                        uint32_t want[4];
                        for (int k = 0; k < sp.count; ++k) {
                            double sum = 0;
                            for (auto [sy, wy] : AxisWeights(s.h, s.dh, y, method))
                                for (auto [sx, wx] : AxisWeights(s.w, s.dw, x, method))
                                    sum += wy * wx * sp.get(before[size_t(sy) * s.w + sx], k);
                            want[k] = Rounded(sum, sp.max());
                        }
                        const uint64_t got = kref::Shown(*b.get(), x, y);
                        for (int k = 0; k < sp.count; ++k)
                            ASSERT_NEAR(double(sp.get(got, k)), double(want[k]), method == KRN_RESIZE_NEAREST ? 0 : 1)
                                << "at " << x << "," << y << " channel " << k;
                    }
            }
}

TEST(KernelGeometry, AreaAveragesHandWorkedBlocks) {
    Bitmap b = DepthBitmap(4, 2, 8);
    b->nColorOrder = KRN_ORDER_GRAY;
    const uint8_t v[8] = {10, 20, 100, 101, 30, 40, 102, 104};
    for (int i = 0; i < 8; ++i) KrnSetPixel(b.get(), i % 4, i / 4, v[i]);
    ASSERT_EQ(KrnResizeBitmap(b.get(), 2, 1, KRN_RESIZE_AREA), KRN_OK);
    uint64_t a = 0, c = 0;
    KrnGetPixel(b.get(), 0, 0, &a);
    KrnGetPixel(b.get(), 1, 0, &c);
    EXPECT_EQ(a, 25u);  // (10 + 20 + 30 + 40) / 4
    EXPECT_EQ(c, 102u); // 101.75 rounds up
}

// Keys' cubic, a = -0.5, written out.
double KeysWeight(double t) {
    t = std::fabs(t);
    if (t <= 1) return 1.5 * t * t * t - 2.5 * t * t + 1;
    if (t < 2) return -0.5 * t * t * t + 2.5 * t * t - 4 * t + 2;
    return 0;
}

TEST(KernelGeometry, RotateMatchesDirectReferenceOnEveryDepth) {
    std::mt19937_64 rng(5);
    const double pi = 3.1415926535;
    for (int bits : kref::kDepths)
        for (int quality : {KRN_ROTATE_NEAREST, KRN_ROTATE_BILINEAR, KRN_ROTATE_BICUBIC})
            for (int angle : {0, 1750, -4500, 9000}) {
                SCOPED_TRACE(testing::Message() << bits << " bits, quality " << quality << ", angle " << angle);
                Bitmap b = kref::Random(15, 10, bits, rng);
                const Split sp(bits);
                const std::vector<uint64_t> before = Pixels(*b.get());
                const double cx = 6.3, cy = 4.5;
                ASSERT_EQ(KrnRotateBitmap(b.get(), angle, cx, cy, 0, quality), KRN_OK);
                const double a = angle * pi / 18000;
                for (int y = 0; y < 10; ++y)
                    for (int x = 0; x < 15; ++x) {
                        // Turning clockwise by a: the source lies a back, counter-clockwise.
                        const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
                        const double px = cx + dx * std::cos(a) + dy * std::sin(a);
                        const double py = cy - dx * std::sin(a) + dy * std::cos(a);
                        const uint64_t got = kref::Shown(*b.get(), x, y);
                        if (px < 0 || py < 0 || px >= 15 || py >= 10) continue; // fill: own test
                        auto src = [&](int sx, int sy, int k) {
                            return double(sp.get(before[size_t(std::clamp(sy, 0, 9)) * 15 + std::clamp(sx, 0, 14)], k));
                        };
                        for (int k = 0; k < sp.count; ++k) {
                            double want = 0;
                            if (quality == KRN_ROTATE_NEAREST) {
                                want = src(int(px), int(py), k);
                            } else {
                                const int reach = quality == KRN_ROTATE_BILINEAR ? 1 : 2;
                                const double u = px - 0.5, v = py - 0.5;
                                for (int j = int(std::floor(v)) - reach + 1; j <= int(std::floor(v)) + reach; ++j)
                                    for (int i = int(std::floor(u)) - reach + 1; i <= int(std::floor(u)) + reach; ++i) {
                                        const double w = quality == KRN_ROTATE_BILINEAR
                                                             ? (1 - std::fabs(u - i)) * (1 - std::fabs(v - j))
                                                             : KeysWeight(u - i) * KeysWeight(v - j);
                                        want += w * src(i, j, k);
                                    }
                                want = Rounded(want, sp.max());
                            }
                            ASSERT_NEAR(double(sp.get(got, k)), want, quality == KRN_ROTATE_NEAREST ? 0 : 1)
                                << "at " << x << "," << y << " channel " << k;
                        }
                    }
            }
}

// Four quarter turns give the picture back exactly.
TEST(KernelGeometry, FourQuarterTurns) {
    std::mt19937_64 rng(8);
    for (int bits : kref::kDepths) {
        Bitmap b = kref::Random(12, 12, bits, rng);
        const std::vector<uint64_t> before = Pixels(*b.get());
        for (int turn = 0; turn < 4; ++turn) ASSERT_EQ(KrnRotateBitmap(b.get(), 9000, 6, 6, 0, 0), KRN_OK);
        EXPECT_EQ(Pixels(*b.get()), before) << bits;
    }
}

TEST(KernelGeometry, FillColourByLayout) {
    struct Case {
        int bits, order;
        uint32_t fill;
        uint64_t want; // raw sample at a corner after 45 degrees
    };
    const Case cases[] = {
        {24, KRN_ORDER_BGR, 0x00332211, 0x112233},          // blue first in memory
        {24, KRN_ORDER_RGB, 0x00332211, 0x332211},
        {32, KRN_ORDER_BGR, 0x00332211, 0xFF112233},        // fourth channel opaque
        {48, KRN_ORDER_BGR, 0x00332211, 0x110022003300ull}, // times 256
        {8, KRN_ORDER_GRAY, 0x00332211, (2 * 0x11 + 5 * 0x22 + 0x33 + 4) / 8},
        {8, KRN_ORDER_GRAY, (1u << 26) | 77, 77},            // grey level
        {16, KRN_ORDER_GRAY, 0x00FFFFFF, 0xFF00},
        {16, KRN_ORDER_GRAY, (1u << 26) | 1234, 1234},
        {4, KRN_ORDER_BGR, 0x00808080, 8},                   // nearest entry of the 16-level ramp (136)
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.bits << " bits, fill " << std::hex << c.fill);
        Bitmap b = DepthBitmap(9, 9, c.bits);
        b->nColorOrder = c.order;
        ASSERT_EQ(KrnRotateBitmap(b.get(), 4500, 4.5, 4.5, c.fill, KRN_ROTATE_BILINEAR), KRN_OK);
        EXPECT_EQ(kref::Shown(*b.get(), 0, 0), c.want);
    }
}

// A stop at the second report leaves the bitmap as it was.
TEST(KernelGeometry, StoppedCallsLeaveTheBitmapAsItWas) {
    using Op = std::function<int32_t(BitmapDesc *)>;
    const Op ops[] = {
        [](BitmapDesc *b) { return KrnResizeBitmap(b, 31, 3, KRN_RESIZE_AREA); },
        [](BitmapDesc *b) { return KrnRotateBitmap(b, 1000, 5, 5, 0, KRN_ROTATE_BICUBIC); },
    };
    std::mt19937_64 rng(3);
    for (const Op &op : ops)
        for (int bits : {1, 12, 24, 64}) {
            Bitmap b = kref::Random(21, 9, bits, rng);
            const std::vector<uint64_t> before = Pixels(*b.get());
            rz::test::CallbackRecorder rec;
            rec.stopAt(2, 7);
            EXPECT_EQ(op(b.get()), 7);
            EXPECT_EQ(rec.calls(), 2);
            EXPECT_EQ(Pixels(*b.get()), before);
        }
}

TEST(KernelGeometry, RefusedArguments) {
    Bitmap b = DepthBitmap(8, 8, 8);
    EXPECT_EQ(KrnResizeBitmap(nullptr, 2, 2, 0), KRN_NULL_POINTER);
    EXPECT_EQ(KrnResizeBitmap(b.get(), 0, 2, 0), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnResizeBitmap(b.get(), 2, 2, 3), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnResizeBitmap(b.get(), INT32_MAX, INT32_MAX, 0), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnRotateBitmap(b.get(), 100, 4, 4, 0, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnRotateBitmap(b.get(), 100, std::nan(""), 4, 0, 0), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitmapHistogram(b.get(), nullptr), KRN_INVALID_PARAMETER);
    EXPECT_EQ(b->nWidth, 8);
}

TEST(KernelGeometry, ResizeKeepsThePictureTheViewShows) {
    std::mt19937_64 rng(4);
    Bitmap a = kref::Random(7, 5, 24, rng), b(a);
    KrnChangeViewPerspective(nullptr, a.get(), BITMAPDESC_SIZE, 6, 0);
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 6, 0);
    ASSERT_EQ(KrnChangeViewPerspective(b.get(), b.get(), BITMAPDESC_SIZE, 6, 0), KRN_OK); // re-stored in view 1
    ASSERT_EQ(KrnResizeBitmap(a.get(), 11, 3, KRN_RESIZE_BILINEAR), KRN_OK);
    ASSERT_EQ(KrnResizeBitmap(b.get(), 11, 3, KRN_RESIZE_BILINEAR), KRN_OK);
    EXPECT_EQ(a->nViewPerspective, 1);
    EXPECT_EQ(Pixels(*a.get()), Pixels(*b.get()));
}

} // namespace
