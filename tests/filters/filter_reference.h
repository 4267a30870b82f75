// Naive references for the neighbourhood filters. The view's pixels are read
// one at a time with KrnGetPixel into channel samples, filtered by the
// definitions written as plainly as possible (a double sum over the clamped
// window, a sorted window), and written back with KrnSetPixel, inside the
// region only. Layouts whose samples KrnGetPixel gives as they are: 8 and
// 16-bit grey, 24/32/48/64-bit colour (the fourth channel is kept).
#pragma once

#include "support/bitmaps.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace rz::test {

inline const std::vector<const char *> kSampleLayouts = {"grey8", "grey16", "bgr24", "rgb24", "bgr32", "rgb48", "bgr64"};

struct Picture {
    int32_t w = 0, h = 0, channels = 1, bits = 8;
    std::vector<int64_t> s;
    std::vector<uint64_t> fourth; // kept as read
    int64_t &at(int32_t x, int32_t y, int32_t c) { return s[(size_t(y) * w + x) * channels + c]; }
    int64_t at(int32_t x, int32_t y, int32_t c) const { return s[(size_t(y) * w + x) * channels + c]; }
    int64_t clamped(int64_t x, int64_t y, int32_t c) const { // edge replication
        return at(int32_t(std::clamp<int64_t>(x, 0, w - 1)), int32_t(std::clamp<int64_t>(y, 0, h - 1)), c);
    }
    int64_t maxValue() const { return (int64_t(1) << bits) - 1; }
};

inline Picture ReadPicture(const Bitmap &b) {
    Picture p;
    p.w = b->nWidth;
    p.h = b->nHeight;
    p.channels = b->nBitsPerPixel >= 24 ? 3 : 1;
    p.bits = b->nBitsPerPixel == 16 || b->nBitsPerPixel >= 48 ? 16 : 8;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x) {
            const uint64_t v = b.pixel(x, y);
            for (int32_t c = 0; c < p.channels; ++c) p.s.push_back(int64_t(v >> (c * p.bits)) & p.maxValue());
            p.fourth.push_back(p.channels == 3 ? v >> (3 * p.bits) : 0);
        }
    return p;
}

inline void WritePicture(Bitmap &b, const Picture &p) {
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x) {
            if (!DisIsPtInRegion(b.get(), x, y)) continue;
            uint64_t v = p.channels == 3 ? p.fourth[size_t(y) * p.w + x] << (3 * p.bits) : 0;
            for (int32_t c = 0; c < p.channels; ++c) v |= uint64_t(p.at(x, y, c)) << (c * p.bits);
            b.setPixel(x, y, v);
        }
}

// Reads in view 1 (the stored picture), filters, writes back, restores the view.
inline void ApplyReference(Bitmap &b, const std::function<Picture(const Picture &)> &filter) {
    const int32_t view = b->nViewPerspective;
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 1, 0);
    WritePicture(b, filter(ReadPicture(b)));
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0);
}

// Row-major coefficients and bias of the predefined kernels, from the table
// of the documentation.
struct Predefined {
    int32_t bias;
    int32_t c[9];
};
const Predefined kTable[SPF_COUNT] = {
    {128, {0, 1, 0, 0, 0, 0, 0, -1, 0}},    {128, {0, 0, 1, 0, 0, 0, -1, 0, 0}},   {128, {0, 0, 0, -1, 0, 1, 0, 0, 0}},
    {128, {-1, 0, 0, 0, 0, 0, 0, 0, 1}},    {128, {0, -1, 0, 0, 0, 0, 0, 1, 0}},   {128, {0, 0, -1, 0, 0, 0, 1, 0, 0}},
    {128, {0, 0, 0, 1, 0, -1, 0, 0, 0}},    {128, {1, 0, 0, 0, 0, 0, 0, 0, -1}},   {0, {1, 1, 1, 1, -2, 1, -1, -1, -1}},
    {0, {1, 1, 1, -1, -2, 1, -1, -1, 1}},   {0, {-1, 1, 1, -1, -2, 1, -1, 1, 1}},  {0, {-1, -1, 1, -1, -2, 1, 1, 1, 1}},
    {0, {-1, -1, -1, 1, -2, 1, 1, 1, 1}},   {0, {1, -1, -1, 1, -2, -1, 1, 1, 1}},  {0, {1, 1, -1, 1, -2, -1, 1, 1, -1}},
    {0, {1, 1, 1, 1, -2, -1, 1, -1, -1}},   {0, {0, -1, 0, -1, 4, -1, 0, -1, 0}},  {0, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},
    {0, {1, -2, 1, -2, 4, -2, 1, -2, 1}},   {0, {-1, 0, -1, 0, 4, 0, -1, 0, -1}},  {0, {0, -1, 0, 0, 2, 0, 0, -1, 0}},
    {0, {0, 0, 0, -1, 2, -1, 0, 0, 0}},     {0, {1, 2, 1, 0, 0, 0, -1, -2, -1}},   {0, {1, 0, -1, 2, 0, -2, 1, 0, -1}},
    {0, {-1, -1, -1, 0, 0, 0, 1, 1, 1}},    {0, {1, 0, -1, 1, 0, -1, 1, 0, -1}},   {0, {-1, 0, 0, 0, 1, 0, 0, 0, 0}},
    {0, {0, -1, 0, 0, 1, 0, 0, 0, 0}},      {0, {0, 0, 0, -1, 1, 0, 0, 0, 0}},     {0, {-1, -1, -1, 2, 2, 2, -1, -1, -1}},
    {0, {-1, 2, -1, -1, 2, -1, -1, 2, -1}}, {0, {-1, -1, 2, -1, 2, -1, 2, -1, -1}}, {0, {2, -1, -1, -1, 2, -1, -1, -1, 2}},
};

enum class RefRounding { Truncate, Absolute, Round };

struct RefKernel {
    int32_t width, height, ax, ay;
    std::vector<int32_t> coef;
    int64_t divisor = 1;
    int64_t bias8 = 0;
    RefRounding rounding = RefRounding::Truncate;
};

inline RefKernel Square(std::vector<int32_t> m, int64_t divisor, int64_t bias) {
    const int32_t dim = int32_t(std::lround(std::sqrt(double(m.size()))));
    return RefKernel{dim, dim, (dim - 1) / 2, (dim - 1) / 2, std::move(m), divisor, bias};
}

inline double WindowSum(const Picture &p, const RefKernel &k, int32_t x, int32_t y, int32_t c) {
    double sum = 0;
    for (int32_t i = 0; i < k.height; ++i)
        for (int32_t j = 0; j < k.width; ++j)
            sum += double(k.coef[size_t(i) * k.width + j]) * double(p.clamped(int64_t(x) - k.ax + j, int64_t(y) - k.ay + i, c));
    return sum;
}

inline Picture ReferenceConvolve(const Picture &p, const RefKernel &k) {
    Picture q = p;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                const double sum = WindowSum(p, k, x, y, c), d = double(k.divisor);
                const int64_t v = k.rounding == RefRounding::Absolute ? int64_t(std::fabs(sum) / d)
                                  : k.rounding == RefRounding::Round
                                      ? int64_t(std::copysign(std::floor(std::fabs(sum) / d + 0.5), sum))
                                      : int64_t(sum / d);
                q.at(x, y, c) = std::clamp<int64_t>(v + k.bias8 * (p.bits == 16 ? 257 : 1), 0, p.maxValue());
            }
    return q;
}

enum class RefRank { Max, Min, Median };

// An n x n window reaching (n - 1) / 2 up and left, n / 2 down and right;
// an even median is the lower middle.
inline Picture ReferenceRank(const Picture &p, int64_t n, RefRank op) {
    Picture q = p;
    std::vector<int64_t> window;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                window.clear();
                for (int64_t dy = -(n - 1) / 2; dy <= n / 2; ++dy)
                    for (int64_t dx = -(n - 1) / 2; dx <= n / 2; ++dx) window.push_back(p.clamped(x + dx, y + dy, c));
                std::sort(window.begin(), window.end());
                q.at(x, y, c) = op == RefRank::Max   ? window.back()
                                : op == RefRank::Min ? window.front()
                                                     : window[(window.size() - 1) / 2];
            }
    return q;
}

// The documented Gaussian weights w[0..r], in units of 2^-shift: each tap the
// difference of the rounded tail sums, the centre what is left.
inline std::vector<int64_t> DocumentedGaussWeights(int32_t radius, int32_t shift) {
    const double sigma = (2.0 * (radius * 0.1 + 1.0) + 0.5) / 3.0;
    const int32_t r = int32_t(3.0 * sigma);
    std::vector<double> g(r + 1);
    double total = 0;
    for (int32_t i = -r; i <= r; ++i) total += std::exp(-double(i) * i / (2 * sigma * sigma));
    for (int32_t i = 0; i <= r; ++i) g[i] = std::exp(-double(i) * i / (2 * sigma * sigma)) / total;
    const double unit = double(int64_t(1) << shift);
    std::vector<int64_t> w(r + 1);
    int64_t sides = 0;
    for (int32_t i = 1; i <= r; ++i) {
        double tail = 0, tailNext = 0;
        for (int32_t j = i; j <= r; ++j) tail += g[j];
        for (int32_t j = i + 1; j <= r; ++j) tailNext += g[j];
        w[i] = std::llround(tail * unit) - std::llround(tailNext * unit);
        sides += w[i];
    }
    w[0] = (int64_t(1) << shift) - 2 * sides;
    return w;
}

// Rows, then columns of the rows' result (stored, so rounded, and changed
// inside the region only); the caller writes the region back.
inline void ApplyReferenceGaussian(Bitmap &b, int32_t radius) {
    ApplyReference(b, [&](const Picture &p) {
        const int32_t shift = p.bits == 16 ? 14 : 8;
        const std::vector<int64_t> w = DocumentedGaussWeights(radius, shift);
        const int64_t r = int64_t(w.size()) - 1;
        Picture rows = p, out = p;
        for (int pass = 0; pass < 2; ++pass) {
            const Picture &in = pass ? rows : p;
            Picture &to = pass ? out : rows;
            for (int32_t y = 0; y < p.h; ++y)
                for (int32_t x = 0; x < p.w; ++x) {
                    if (!DisIsPtInRegion(b.get(), x, y)) continue;
                    for (int32_t c = 0; c < p.channels; ++c) {
                        int64_t sum = 0;
                        for (int64_t i = -r; i <= r; ++i)
                            sum += w[size_t(std::abs(i))] * (pass ? in.clamped(x, y + i, c) : in.clamped(x + i, y, c));
                        to.at(x, y, c) = (sum + (int64_t(1) << (shift - 1))) >> shift;
                    }
                }
        }
        return out;
    });
}

// An ellipse region crossing the left and top edges, or a rectangle hugging
// the right and bottom ones, by seed.
inline void SetEdgeRegion(BitmapDesc *b, uint32_t seed) {
    const int32_t w = b->nWidth, h = b->nHeight;
    if (seed % 2) {
        const RzRect r{-w / 3, -h / 4, w * 2 / 3 + 1, h * 3 / 4 + 1};
        DisSetRegionEllipse(b, &r, DIS_RGN_SET);
    } else {
        const RzRect r{w / 2, h / 3, w, h};
        DisSetRegionRect(b, &r, DIS_RGN_SET);
    }
}

} // namespace rz::test
