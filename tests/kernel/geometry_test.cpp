// Resize and rotate on every depth and view against direct references that
// read the stored layout themselves and sum in double; the fill colour rules.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

using kref::Bitmap;

// Channel k of a raw value: one for 1..16 bits, 8 or 16-bit fields above.
int FieldBits(int bits) { return bits <= 16 ? bits : bits >= 48 ? 16 : 8; }
double Channel(uint64_t raw, int bits, int k) {
    return double(raw >> (bits <= 16 ? 0 : k * FieldBits(bits)) & ((1ull << FieldBits(bits)) - 1));
}

// Every pixel of the view against want(x, y, k): exact, or within the half
// level rounding allows; a negative want skips the pixel.
void Compare(const Bitmap &b, double tolerance, const std::function<double(int, int, int)> &want) {
    const int bits = b->nBitsPerPixel, channels = bits <= 16 ? 1 : bits % 32 ? 3 : 4;
    const double max = double((1ull << FieldBits(bits)) - 1);
    for (int y = 0; y < b->nHeight; ++y)
        for (int x = 0; x < b->nWidth; ++x)
            for (int k = 0; k < channels; ++k) {
                const double w = want(x, y, k), got = Channel(kref::Shown(b, x, y), bits, k);
                if (w < 0) continue;
                ASSERT_NEAR(got, std::clamp(w, 0.0, max), tolerance)
                    << "at " << x << "," << y << " channel " << k;
            }
}

// Weights of source pixels along one axis for output i, by direct overlap.
std::vector<std::pair<int, double>> AxisWeights(int src, int dst, int i, int method) {
    const double scale = double(src) / dst;
    std::vector<std::pair<int, double>> w;
    if (method == KRN_RESIZE_NEAREST) return {{std::min(int((i + 0.5) * scale), src - 1), 1.0}};
    for (int k = 0; method == KRN_RESIZE_AREA && dst < src && k < src; ++k) {
        const double overlap = std::min((i + 1) * scale, k + 1.0) - std::max(i * scale, double(k));
        if (overlap > 0) w.push_back({k, overlap / scale});
    }
    if (!w.empty()) return w;
    const double u = (i + 0.5) * scale - 0.5, f = u - std::floor(u);
    const int x0 = int(std::floor(u));
    return {{std::clamp(x0, 0, src - 1), 1 - f}, {std::clamp(x0 + 1, 0, src - 1), f}};
}

// The result is the picture the view showed, resized, stored in view 1.
TEST(KernelGeometry, ResizeMatchesDirectReferenceOnEveryDepth) {
    std::mt19937_64 rng(11);
    const int sizes[][4] = {{13, 7, 29, 5}, {17, 11, 4, 3}, {1, 1, 3, 2}, {9, 9, 9, 9}};
    int view = 0;
    for (int bits : kref::kDepths)
        for (const auto &s : sizes)
            for (int method : {KRN_RESIZE_NEAREST, KRN_RESIZE_BILINEAR, KRN_RESIZE_AREA}) {
                view = view % 8 + 1;
                SCOPED_TRACE(testing::Message() << bits << " bits, size " << s[0] << " " << s[1]
                                                << " method " << method << " view " << view);
                Bitmap b = kref::Random(s[view >= 5], s[view < 5], bits, rng);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, view, 0), KRN_OK);
                const std::vector<uint64_t> before = kref::Pixels(*b.get());
                ASSERT_EQ(KrnResizeBitmap(b.get(), s[2], s[3], method), KRN_OK);
                ASSERT_TRUE(b->nWidth == s[2] && b->nHeight == s[3] && b->nViewPerspective == 1);
                Compare(b, method == KRN_RESIZE_NEAREST ? 0 : 0.5001, [&](int x, int y, int k) {
                    double sum = 0;
                    for (auto [sy, wy] : AxisWeights(s[1], s[3], y, method))
                        for (auto [sx, wx] : AxisWeights(s[0], s[2], x, method))
                            sum += wy * wx * Channel(before[size_t(sy) * s[0] + sx], bits, k);
                    return sum;
                });
            }
}

// Keys' cubic, a = -0.5, written out.
double Keys(double t) {
    t = std::fabs(t);
    if (t <= 1) return 1.5 * t * t * t - 2.5 * t * t + 1;
    return t < 2 ? -0.5 * t * t * t + 2.5 * t * t - 4 * t + 2 : 0;
}

// Channel k at (px, py) of a 15 x 10 picture; -1 outside it (the fill).
double Sample(const std::vector<uint64_t> &pic, int bits, int k, int quality, double px,
              double py) {
    if (px < 0 || py < 0 || px >= 15 || py >= 10) return -1;
    auto at = [&](int i, int j) {
        return Channel(pic[size_t(std::clamp(j, 0, 9)) * 15 + std::clamp(i, 0, 14)], bits, k);
    };
    if (quality == KRN_ROTATE_NEAREST) return at(int(px), int(py));
    const int reach = quality == KRN_ROTATE_BILINEAR ? 1 : 2;
    const double u = px - 0.5, v = py - 0.5;
    const int i0 = int(std::floor(u)), j0 = int(std::floor(v));
    double sum = 0;
    for (int j = j0 - reach + 1; j <= j0 + reach; ++j)
        for (int i = i0 - reach + 1; i <= i0 + reach; ++i)
            sum += at(i, j) * (reach == 1 ? (1 - std::fabs(u - i)) * (1 - std::fabs(v - j))
                                          : Keys(u - i) * Keys(v - j));
    return sum;
}

TEST(KernelGeometry, RotateMatchesDirectReferenceOnEveryDepth) {
    std::mt19937_64 rng(5);
    for (int bits : kref::kDepths)
        for (int quality : {KRN_ROTATE_NEAREST, KRN_ROTATE_BILINEAR, KRN_ROTATE_BICUBIC})
            for (int angle : {0, 1750, -4500, 9000}) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << quality << " " << angle);
                Bitmap b = kref::Random(15, 10, bits, rng);
                const std::vector<uint64_t> before = kref::Pixels(*b.get());
                const double cx = 6.3, cy = 4.5, a = angle * 3.1415926535 / 18000;
                ASSERT_EQ(KrnRotateBitmap(b.get(), angle, cx, cy, 0, quality), KRN_OK);
                // Turning clockwise by a: the source lies a back, counter-clockwise.
                Compare(b, quality == KRN_ROTATE_NEAREST ? 0 : 0.5001, [&](int x, int y, int k) {
                    const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
                    return Sample(before, bits, k, quality, cx + dx * cos(a) + dy * sin(a),
                                  cy - dx * sin(a) + dy * cos(a));
                });
            }
}

TEST(KernelGeometry, FillColourByLayout) {
    const struct {
        int bits, order;
        uint32_t fill;
        uint64_t want; // raw sample at a corner after 45 degrees
    } cases[] = {
        {24, KRN_ORDER_BGR, 0x00332211, 0x112233}, // blue first in memory
        {24, KRN_ORDER_RGB, 0x00332211, 0x332211},
        {32, KRN_ORDER_BGR, 0x00332211, 0xFF112233},        // fourth channel opaque
        {48, KRN_ORDER_BGR, 0x00332211, 0x110022003300ull}, // times 256
        {8, KRN_ORDER_GRAY, 0x00332211, (2 * 0x11 + 5 * 0x22 + 0x33 + 4) / 8},
        {8, KRN_ORDER_GRAY, (1u << 26) | 77, 77}, // grey level
        {16, KRN_ORDER_GRAY, 0x00FFFFFF, 0xFF00},
        {16, KRN_ORDER_GRAY, (1u << 26) | 1234, 1234},
        {4, KRN_ORDER_BGR, 0x00808080, 8}, // nearest entry of the 16-level ramp (136)
    };
    for (const auto &c : cases) {
        Bitmap b = kref::DepthBitmap(9, 9, c.bits);
        b->nColorOrder = c.order;
        ASSERT_EQ(KrnRotateBitmap(b.get(), 4500, 4.5, 4.5, c.fill, KRN_ROTATE_BILINEAR), KRN_OK);
        EXPECT_EQ(kref::Shown(b, 0, 0), c.want) << c.bits << " " << std::hex << c.fill;
    }
}

} // namespace
