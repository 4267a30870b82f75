// Resizing a bitmap to a given size. The picture as the view shows it is
// decoded once into channel samples; every output sample is a weighted sum
// over source samples, the weights separable into a column and a row part
// (one tap for nearest, two for bilinear, the covered share of each source
// pixel for area averaging). Columns are resampled once per source row and
// kept, rows are then combined, so each source row is filtered once.
#include "resample.h"

#include <cstring>

using namespace krn;

namespace {

// Source taps of each output position along one axis.
struct Taps {
    Block first, count, offset, weight; // int32, int32, int32, double
    int32_t *firstOf() const { return first.get<int32_t>(); }
    int32_t *countOf() const { return count.get<int32_t>(); }
    int32_t *offsetOf() const { return offset.get<int32_t>(); }
    double *weights() const { return weight.get<double>(); }
};

// Centre-aligned mapping: output pixel i covers source [i*s/d, (i+1)*s/d).
int32_t BuildTaps(int64_t src, int64_t dst, int32_t method, Taps &t) {
    const double scale = double(src) / double(dst);
    const bool area = method == KRN_RESIZE_AREA && dst < src;
    const int64_t maxTaps = method == KRN_RESIZE_NEAREST ? 1 : area ? int64_t(std::ceil(scale)) + 1 : 2;
    const size_t n = size_t(dst);
    t.first = Block(KrnMemAlloc(KrnCheckedSize(n, sizeof(int32_t), 1)));
    t.count = Block(KrnMemAlloc(KrnCheckedSize(n, sizeof(int32_t), 1)));
    t.offset = Block(KrnMemAlloc(KrnCheckedSize(n, sizeof(int32_t), 1)));
    t.weight = Block(KrnMemAlloc(KrnCheckedSize(n, size_t(maxTaps), sizeof(double))));
    if (!t.first || !t.count || !t.offset || !t.weight) return KRN_FAILURE;
    double *w = t.weights();
    int32_t at = 0;
    for (int64_t i = 0; i < dst; ++i) {
        int64_t first = 0, count = 0;
        if (method == KRN_RESIZE_NEAREST) {
            first = std::min<int64_t>(int64_t((double(i) + 0.5) * scale), src - 1);
            count = 1;
            w[at] = 1.0;
        } else if (area) {
            const double a = double(i) * scale, b = double(i + 1) * scale;
            first = int64_t(a);
            const int64_t last = std::min<int64_t>(int64_t(std::ceil(b)) - 1, src - 1);
            count = last - first + 1;
            for (int64_t k = 0; k < count; ++k) {
                const double lo = std::max(a, double(first + k)), hi = std::min(b, double(first + k + 1));
                w[at + k] = (hi - lo) / scale;
            }
        } else {
            const double u = (double(i) + 0.5) * scale - 0.5;
            const double f0 = std::floor(u), f = u - f0;
            const int64_t x0 = int64_t(f0);
            first = std::clamp<int64_t>(x0, 0, src - 1);
            const int64_t x1 = std::clamp<int64_t>(x0 + 1, 0, src - 1);
            if (x1 == first) {
                count = 1;
                w[at] = 1.0;
            } else {
                count = 2;
                w[at] = 1.0 - f;
                w[at + 1] = f;
            }
        }
        t.firstOf()[i] = int32_t(first);
        t.countOf()[i] = int32_t(count);
        t.offsetOf()[i] = at;
        at += int32_t(count);
    }
    return KRN_OK;
}

inline uint32_t RoundSample(double v, uint32_t max) {
    if (!(v > 0)) return 0;
    const double r = std::floor(v + 0.5);
    return r >= double(max) ? max : uint32_t(r);
}

template <class T>
int32_t Resize(BitmapDesc *b, const Channels &c, int64_t dw, int64_t dh, int32_t method) {
    const int bits = b->nBitsPerPixel;
    const int64_t sw = b->nWidth, sh = b->nHeight;
    const int C = c.count;
    uint32_t stride = 0;
    size_t total = 0;
    if (int32_t st = ComputeLayout(dw, dh, bits, &stride, &total); st != KRN_OK) return st;
    Taps tx, ty;
    if (int32_t st = BuildTaps(sw, dw, method, tx); st != KRN_OK) return st;
    if (int32_t st = BuildTaps(sh, dh, method, ty); st != KRN_OK) return st;

    // Every source row resampled along x, then rows mixed.
    const size_t rowSamples = KrnCheckedSize(size_t(dw), size_t(C), 1);
    Block columns(KrnMemAlloc(KrnCheckedSize(rowSamples, size_t(sh), sizeof(double))));
    Block stored(KrnMemAlloc(size_t(KrnBitmapRowBytes(b)) + 8));
    Block decoded(KrnMemAlloc(KrnCheckedSize(size_t(sw), size_t(C), sizeof(T))));
    Block outRow(KrnMemAlloc(KrnCheckedSize(rowSamples, sizeof(T), 1)));
    Block pixels(AllocPixelBlock(total));
    if (!rowSamples || !columns || !stored || !decoded || !outRow || !pixels) return KRN_FAILURE;

    KernelProgress progress(sh + dh);
    if (int32_t r = progress.begin(); r != KRN_OK) return r;
    const T *src = decoded.get<T>();
    for (int64_t y = 0; y < sh; ++y) {
        int32_t st = KrnGetBitmapRow(b, stored.get(), int32_t(y), 0, KrnBitmapRowBytes(b));
        if (st != KRN_OK) return st;
        DecodeRow(c, bits, stored.get(), sw, decoded.get<T>());
        double *dst = columns.get<double>() + size_t(y) * rowSamples;
        for (int64_t x = 0; x < dw; ++x) {
            const int32_t f = tx.firstOf()[x], n = tx.countOf()[x];
            const double *w = tx.weights() + tx.offsetOf()[x];
            for (int k = 0; k < C; ++k) {
                double sum = 0;
                for (int32_t j = 0; j < n; ++j) sum += w[j] * src[(int64_t(f) + j) * C + k];
                dst[x * C + k] = sum;
            }
        }
        if ((st = progress.step()) != KRN_OK) return st;
    }
    T *out = outRow.get<T>();
    for (int64_t y = 0; y < dh; ++y) {
        const int32_t f = ty.firstOf()[y], n = ty.countOf()[y];
        const double *w = ty.weights() + ty.offsetOf()[y];
        for (size_t i = 0; i < rowSamples; ++i) {
            double sum = 0;
            for (int32_t j = 0; j < n; ++j) sum += w[j] * columns.get<double>()[size_t(f + j) * rowSamples + i];
            out[i] = T(RoundSample(sum, c.max));
        }
        EncodeRow(c, bits, out, dw, pixels.get() + size_t(y) * stride);
        if (int32_t st = progress.step(); st != KRN_OK) return st;
    }
    AdoptPixels(b, pixels.release<uint8_t>(), stride, dw, dh);
    return KRN_OK;
}

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnResizeBitmap(BitmapDesc *pBitmap, int32_t nNewWidth, int32_t nNewHeight,
                                        int32_t nMethod) {
    if (const int32_t st = CheckResampled(pBitmap); st != KRN_OK) return st;
    if (nNewWidth < 1 || nNewHeight < 1 || nMethod < KRN_RESIZE_NEAREST || nMethod > KRN_RESIZE_AREA)
        return KRN_INVALID_PARAMETER;
    if (pBitmap->nWidth < 1 || pBitmap->nHeight < 1) return KRN_INVALID_PARAMETER;
    const Channels c = DescribeChannels(pBitmap);
    const int32_t method = c.nearestOnly ? KRN_RESIZE_NEAREST : nMethod;
    if (c.wide) return Resize<uint16_t>(pBitmap, c, nNewWidth, nNewHeight, method);
    return Resize<uint8_t>(pBitmap, c, nNewWidth, nNewHeight, method);
}

} // extern "C"
