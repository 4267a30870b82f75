// Rotation about a point, in place (the bitmap keeps its size). The picture
// as the view shows it is decoded once into channel samples; every output
// pixel centre is mapped back through the inverse rotation and sampled
// (nearest, bilinear, or bicubic with Keys' a = -0.5), the taps beyond the
// edges replaced by the edge pixels. A centre that maps outside the picture
// takes the fill. The result is built in a block of its own and written
// back only when complete, so a failure or a stop leaves the bitmap as it
// was.
#include "resample.h"

#include <cstring>

using namespace krn;

namespace {

constexpr double kPi = 3.1415926535;

inline double Cubic(double t) {
    constexpr double a = -0.5;
    t = std::fabs(t);
    if (t <= 1) return ((a + 2) * t - (a + 3)) * t * t + 1;
    if (t < 2) return ((a * t - 5 * a) * t + 8 * a) * t - 4 * a;
    return 0;
}

struct Geometry {
    int64_t w, h;
    double cx, cy, cs, sn;
};

template <class T, int C, int Quality>
void RotateRow(const T *src, const Geometry &g, const uint32_t fill[4], uint32_t max, int64_t y, T *out) {
    const double dy = double(y) + 0.5 - g.cy;
    for (int64_t x = 0; x < g.w; ++x) {
        const double dx = double(x) + 0.5 - g.cx;
        const double px = g.cx + dx * g.cs + dy * g.sn, py = g.cy - dx * g.sn + dy * g.cs;
        T *o = out + x * C;
        if (!(px >= 0 && py >= 0 && px < double(g.w) && py < double(g.h))) {
            for (int k = 0; k < C; ++k) o[k] = T(fill[k]);
            continue;
        }
        if constexpr (Quality == KRN_ROTATE_NEAREST) {
            const T *s = src + (int64_t(py) * g.w + int64_t(px)) * C;
            for (int k = 0; k < C; ++k) o[k] = s[k];
        } else {
            constexpr int N = Quality == KRN_ROTATE_BILINEAR ? 2 : 4;
            constexpr int Back = Quality == KRN_ROTATE_BILINEAR ? 0 : 1;
            const double u = px - 0.5, v = py - 0.5;
            const double fu = std::floor(u), fv = std::floor(v);
            const int64_t x0 = int64_t(fu) - Back, y0 = int64_t(fv) - Back;
            double wx[N], wy[N];
            int64_t xs[N], ys[N];
            for (int j = 0; j < N; ++j) {
                if constexpr (N == 2) {
                    wx[j] = j ? u - fu : 1 - (u - fu);
                    wy[j] = j ? v - fv : 1 - (v - fv);
                } else {
                    wx[j] = Cubic(u - double(x0 + j));
                    wy[j] = Cubic(v - double(y0 + j));
                }
                xs[j] = std::clamp<int64_t>(x0 + j, 0, g.w - 1) * C;
                ys[j] = std::clamp<int64_t>(y0 + j, 0, g.h - 1) * g.w * C;
            }
            for (int k = 0; k < C; ++k) {
                double sum = 0;
                for (int i = 0; i < N; ++i) {
                    double rowSum = 0;
                    for (int j = 0; j < N; ++j) rowSum += wx[j] * src[ys[i] + xs[j] + k];
                    sum += wy[i] * rowSum;
                }
                const double r = std::floor(sum + 0.5);
                o[k] = T(r <= 0 ? 0 : r >= double(max) ? max : uint32_t(r));
            }
        }
    }
}

template <class T, int C>
void RotateRowAt(int32_t quality, const T *src, const Geometry &g, const uint32_t fill[4], uint32_t max, int64_t y,
                 T *out) {
    switch (quality) {
    case KRN_ROTATE_BILINEAR: RotateRow<T, C, KRN_ROTATE_BILINEAR>(src, g, fill, max, y, out); break;
    case KRN_ROTATE_BICUBIC: RotateRow<T, C, KRN_ROTATE_BICUBIC>(src, g, fill, max, y, out); break;
    default: RotateRow<T, C, KRN_ROTATE_NEAREST>(src, g, fill, max, y, out); break;
    }
}

template <class T>
int32_t Rotate(BitmapDesc *b, const Channels &c, const Geometry &g, uint32_t colour, int32_t quality) {
    const int bits = b->nBitsPerPixel;
    const int C = c.count;
    const uint32_t rowBytes = KrnBitmapRowBytes(b);
    const size_t samples = KrnCheckedSize(size_t(g.w), size_t(g.h), size_t(C));
    const size_t resultBytes = KrnCheckedSize(size_t(rowBytes) + 8, size_t(g.h), 1);
    Block source(KrnMemAlloc(KrnCheckedSize(samples, sizeof(T), 1)));
    Block result(KrnMemAllocZeroed(resultBytes ? resultBytes : 4, 1));
    Block outRow(KrnMemAlloc(KrnCheckedSize(size_t(g.w), size_t(C), sizeof(T))));
    if (!samples || !resultBytes || !source || !result || !outRow) return KRN_FAILURE;

    KernelProgress progress(g.h);
    if (int32_t r = progress.begin(); r != KRN_OK) return r;
    T *src = source.get<T>();
    uint8_t *stored = result.get(); // first the source rows, then the result, row by row
    for (int64_t y = 0; y < g.h; ++y) {
        const int32_t st = KrnGetBitmapRow(b, stored, int32_t(y), 0, rowBytes);
        if (st != KRN_OK) return st;
        DecodeRow(c, bits, stored, g.w, src + size_t(y) * size_t(g.w) * C);
    }
    uint32_t fill[4];
    FillSamples(b, c, colour, fill);
    T *out = outRow.get<T>();
    const size_t pitch = size_t(rowBytes) + 8;
    for (int64_t y = 0; y < g.h; ++y) {
        switch (C) {
        case 1: RotateRowAt<T, 1>(quality, src, g, fill, c.max, y, out); break;
        case 3: RotateRowAt<T, 3>(quality, src, g, fill, c.max, y, out); break;
        default: RotateRowAt<T, 4>(quality, src, g, fill, c.max, y, out); break;
        }
        uint8_t *row = result.get() + size_t(y) * pitch;
        std::memset(row, 0, pitch);
        EncodeRow(c, bits, out, g.w, row);
        if (int32_t r = progress.step(); r != KRN_OK) return r;
    }
    for (int64_t y = 0; y < g.h; ++y) {
        const int32_t st = KrnPutBitmapRowSpans(b, result.get() + size_t(y) * pitch, int32_t(y), 0, rowBytes,
                                                nullptr, 0, KRN_PUT_NORMAL);
        if (st != KRN_OK) return st;
    }
    return KRN_OK;
}

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnRotateBitmap(BitmapDesc *pBitmap, int32_t nAngle, double dCentreX, double dCentreY,
                                        uint32_t crFill, int32_t nQuality) {
    if (const int32_t st = CheckResampled(pBitmap); st != KRN_OK) return st;
    if (nQuality != KRN_ROTATE_NEAREST && nQuality != KRN_ROTATE_BILINEAR && nQuality != KRN_ROTATE_BICUBIC)
        return KRN_INVALID_PARAMETER;
    if (!std::isfinite(dCentreX) || !std::isfinite(dCentreY) || std::fabs(dCentreX) > 1e12 ||
        std::fabs(dCentreY) > 1e12)
        return KRN_INVALID_PARAMETER;
    if (pBitmap->nWidth < 1 || pBitmap->nHeight < 1) return KRN_OK;
    const Channels c = DescribeChannels(pBitmap);
    const double a = double(nAngle) * kPi / 18000.0;
    const Geometry g{pBitmap->nWidth, pBitmap->nHeight, dCentreX, dCentreY, std::cos(a), std::sin(a)};
    const int32_t quality = c.nearestOnly ? KRN_ROTATE_NEAREST : nQuality;
    if (c.wide) return Rotate<uint16_t>(pBitmap, c, g, crFill, quality);
    return Rotate<uint8_t>(pBitmap, c, g, crFill, quality);
}

} // extern "C"
