// Naive references for the neighbourhood filters. A bitmap is read whole
// into its working samples through the frame (the conversions are the
// frame's business), filtered by the definitions written as plainly as
// possible (a double sum over the clamped window, a sorted window), and
// written back through the frame, which keeps the region. Comparing the
// stored bytes with the operation's tests everything the filter decides.
#pragma once

#include "frame/kmem.h"
#include "frame/row_context.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

namespace rz::test {

struct Picture {
    int32_t w = 0, h = 0, channels = 1;
    bool wide = false;
    std::vector<int64_t> s;
    int64_t &at(int32_t x, int32_t y, int32_t c) { return s[(size_t(y) * w + x) * channels + c]; }
    int64_t at(int32_t x, int32_t y, int32_t c) const { return s[(size_t(y) * w + x) * channels + c]; }
    // Edge replication.
    int64_t clamped(int64_t x, int64_t y, int32_t c) const {
        return at(int32_t(std::clamp<int64_t>(x, 0, w - 1)), int32_t(std::clamp<int64_t>(y, 0, h - 1)), c);
    }
    int64_t maxValue() const { return wide ? 65535 : 255; }
};

inline uint32_t ReferenceMode(const BitmapDesc *b) {
    const bool grey = b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b);
    return RC_WHOLE_BITMAP | ((b->nBitsPerPixel <= 8 && grey) ? RC_WORK8 : 0u);
}

// The working samples of the current view.
inline Picture ReadPicture(BitmapDesc *b) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(b, ReferenceMode(b), st);
    EXPECT_EQ(st, 1);
    Picture p;
    if (st != 1) return p;
    p.w = b->nWidth;
    p.h = b->nHeight;
    p.channels = ContextChannels(ctx.get());
    p.wide = ContextSampleBits(ctx.get()) == 16;
    p.s.resize(size_t(p.w) * p.h * p.channels);
    std::vector<uint8_t> row(ContextRowBytes(ctx.get()) + 16);
    for (int32_t y = 0; y < p.h; ++y) {
        EXPECT_EQ(GetRow(ctx.get(), row.data(), y, nullptr, nullptr), 1);
        for (int32_t i = 0; i < p.w * p.channels; ++i)
            p.s[size_t(y) * p.w * p.channels + i] =
                p.wide ? reinterpret_cast<const uint16_t *>(row.data())[i] : row[i];
    }
    return p;
}

// Writes the samples back; only pixels inside the region change.
inline void WritePicture(BitmapDesc *b, const Picture &p) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(b, ReferenceMode(b), st);
    ASSERT_EQ(st, 1);
    std::vector<uint8_t> row(ContextRowBytes(ctx.get()) + 16);
    for (int32_t y = 0; y < p.h; ++y) {
        for (int32_t i = 0; i < p.w * p.channels; ++i) {
            const int64_t v = p.s[size_t(y) * p.w * p.channels + i];
            if (p.wide)
                reinterpret_cast<uint16_t *>(row.data())[i] = uint16_t(v);
            else
                row[i] = uint8_t(v);
        }
        ASSERT_EQ(PutRow(ctx.get(), row.data(), y, nullptr, 0), 1);
    }
}

// Reads in view 1, filters, writes back, restores the view.
inline void ApplyReference(BitmapDesc *b, const std::function<Picture(const Picture &)> &filter) {
    const int32_t view = b->nViewPerspective;
    KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, 1, 0);
    const Picture p = ReadPicture(b);
    WritePicture(b, filter(p));
    KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, view, 0);
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

inline Picture ReferenceConvolve(const Picture &p, const RefKernel &k) {
    Picture q = p;
    const int64_t bias = k.bias8 * (p.wide ? 257 : 1);
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                double sum = 0;
                for (int32_t i = 0; i < k.height; ++i)
                    for (int32_t j = 0; j < k.width; ++j)
                        sum += double(k.coef[size_t(i) * k.width + j]) *
                               double(p.clamped(int64_t(x) - k.ax + j, int64_t(y) - k.ay + i, c));
                const int64_t s = int64_t(sum);
                int64_t v;
                switch (k.rounding) {
                case RefRounding::Absolute: v = int64_t(std::trunc(std::fabs(sum) / double(k.divisor))); break;
                case RefRounding::Round: v = int64_t(std::copysign(std::floor(std::fabs(sum) / double(k.divisor) + 0.5), sum)); break;
                default: v = k.divisor == 1 ? s : int64_t(std::trunc(sum / double(k.divisor)));
                }
                q.at(x, y, c) = std::clamp<int64_t>(v + bias, 0, p.maxValue());
            }
    return q;
}

enum class RefRank { Max, Min, Median };

inline Picture ReferenceRank(const Picture &p, int64_t n, RefRank op) {
    Picture q = p;
    const int64_t h1 = (n - 1) / 2, h2 = n / 2;
    std::vector<int64_t> window;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                window.clear();
                for (int64_t dy = -h1; dy <= h2; ++dy)
                    for (int64_t dx = -h1; dx <= h2; ++dx) window.push_back(p.clamped(x + dx, y + dy, c));
                std::sort(window.begin(), window.end());
                const size_t mid = n % 2 ? window.size() / 2 : window.size() / 2 - 1;
                q.at(x, y, c) = op == RefRank::Max ? window.back() : op == RefRank::Min ? window.front() : window[mid];
            }
    return q;
}

// The documented Gaussian weights w[0..r], in units of 2^-shift.
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

// One Gaussian pass along the rows of the view.
inline Picture ReferenceGaussRows(const Picture &p, int32_t radius) {
    const int32_t shift = p.wide ? 14 : 8;
    const std::vector<int64_t> w = DocumentedGaussWeights(radius, shift);
    Picture q = p;
    const int32_t r = int32_t(w.size()) - 1;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                int64_t sum = 0;
                for (int32_t i = -r; i <= r; ++i) sum += w[std::abs(i)] * p.clamped(int64_t(x) + i, y, c);
                q.at(x, y, c) = (sum + (int64_t(1) << (shift - 1))) >> shift;
            }
    return q;
}

// Both passes: rows in view 1, then rows of the transposed view, each
// written back through the frame as the operation stores its first pass.
inline void ApplyReferenceGaussian(BitmapDesc *b, int32_t radius) {
    const int32_t view = b->nViewPerspective;
    for (int32_t passView : {1, 5}) {
        KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, passView, 0);
        WritePicture(b, ReferenceGaussRows(ReadPicture(b), radius));
    }
    KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, view, 0);
}

// An ellipse region touching the left and top edges, or a rectangle hugging
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
    // The region builds its transposed answers on first use and keeps them;
    // build them now so that memory counts around an operation balance.
    const int32_t view = b->nViewPerspective;
    KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, 5, 0);
    uint32_t n = 0;
    DisGetRegionMaskSize(b, &n);
    std::vector<int32_t> spans(std::max<uint32_t>(n, 2));
    if (b->nHeight > 0) DisGetRegionRowSpans(b, 0, spans.data(), &n);
    KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, view, 0);
}

} // namespace rz::test
