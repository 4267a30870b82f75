// Independent references for the frequency tests: a plane read pixel by
// pixel with KrnGetPixel, a naive double DFT with the library's constant
// for pi, and transform arrays held as std::complex.
#pragma once

#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <vector>

namespace rz::test {

using Spectrum = std::vector<std::complex<double>>;

// An owned transform array.
struct Array {
    FTARRAY *a = nullptr;
    explicit Array(BitmapDesc *b) { EXPECT_EQ(Rz_AllocFTArray(b, &a, FTARRAY_SIZE), 1); }
    ~Array() {
        if (a) Rz_FreeFTArray(a);
    }
    Array(const Array &) = delete;
    Array &operator=(const Array &) = delete;
    int32_t w() const { return int32_t(a->uWidth); }
    int32_t h() const { return int32_t(a->uHeight); }
    std::complex<double> get(int32_t u, int32_t v) const {
        double t[2];
        std::memcpy(t, reinterpret_cast<const uint8_t *>(a) + 12 + (size_t(v) * w() + u) * 16, 16);
        return {t[0], t[1]};
    }
    void set(int32_t u, int32_t v, std::complex<double> z) {
        const double t[2] = {z.real(), z.imag()};
        std::memcpy(reinterpret_cast<uint8_t *>(a) + 12 + (size_t(v) * w() + u) * 16, t, 16);
    }
    Spectrum all() const {
        Spectrum s;
        for (int32_t v = 0; v < h(); ++v)
            for (int32_t u = 0; u < w(); ++u) s.push_back(get(u, v));
        return s;
    }
    void setAll(const Spectrum &s) {
        for (int32_t v = 0; v < h(); ++v)
            for (int32_t u = 0; u < w(); ++u) set(u, v, s[size_t(v) * w() + u]);
    }
};

// The 8-bit plane the transforms read: FT_PLANE_ value, grey bitmaps by
// their grey level.
inline std::vector<double> Plane(const Bitmap &b, int32_t plane) {
    const BitmapDesc *d = b.get();
    const int32_t bits = d->nBitsPerPixel;
    RzRGBQuad pal[256] = {};
    if (bits <= 8 && d->nColorOrder != KRN_ORDER_GRAY) KrnGetBitmapPalette(d, 0, d->nColors, pal);
    const bool greyPalette = bits <= 8 && KrnIsGrayscale(d);
    std::vector<double> out;
    for (int32_t y = 0; y < d->nHeight; ++y)
        for (int32_t x = 0; x < d->nWidth; ++x) {
            const uint64_t v = b.pixel(x, y);
            int32_t r, g, bl;
            if (d->nColorOrder == KRN_ORDER_GRAY) {
                const int32_t hi = d->nHighBit < 0 ? bits - 1 : d->nHighBit;
                const uint64_t s = (v >> d->nLowBit) & ((uint64_t(1) << (hi - d->nLowBit + 1)) - 1);
                r = g = bl = int32_t(bits > 8 ? s >> (hi - d->nLowBit + 1 - 8) : s);
            } else if (bits <= 8) {
                r = pal[v].rgbRed, g = pal[v].rgbGreen, bl = pal[v].rgbBlue;
            } else if (bits <= 32) {
                r = int32_t(v & 0xFF), g = int32_t((v >> 8) & 0xFF), bl = int32_t((v >> 16) & 0xFF);
            } else {
                r = int32_t((v >> 8) & 0xFF), g = int32_t((v >> 24) & 0xFF), bl = int32_t((v >> 40) & 0xFF);
            }
            const bool grey = d->nColorOrder == KRN_ORDER_GRAY || greyPalette;
            int32_t value = plane == FT_PLANE_BLUE ? bl : plane == FT_PLANE_GREEN ? g : r;
            if (grey) value = r;
            else if (plane == FT_PLANE_GREY) value = (77 * r + 150 * g + 29 * bl + 128) >> 8;
            out.push_back(value);
        }
    return out;
}

// sum f(x, y) exp(i (sx 2 pi u x / W + sy 2 pi v y / H)), angles from the
// index (u x mod W), as a table of the library's twiddles would give them.
inline Spectrum NaiveDft(const std::vector<std::complex<double>> &f, int32_t W, int32_t H, int32_t sx, int32_t sy) {
    const double pi = 3.1415926535;
    Spectrum out(size_t(W) * H);
    for (int32_t v = 0; v < H; ++v)
        for (int32_t u = 0; u < W; ++u) {
            std::complex<double> sum = 0;
            for (int32_t y = 0; y < H; ++y)
                for (int32_t x = 0; x < W; ++x) {
                    const double a = sx * 2 * pi * double((int64_t(u) * x) % W) / W +
                                     sy * 2 * pi * double((int64_t(v) * y) % H) / H;
                    sum += f[size_t(y) * W + x] * std::complex<double>(std::cos(a), std::sin(a));
                }
            out[size_t(v) * W + u] = sum;
        }
    return out;
}

// Largest element difference in units of the reference's sum of magnitudes.
inline double RelativeError(const Spectrum &got, const Spectrum &want) {
    double total = 0, worst = 0;
    for (const auto &z : want) total += std::abs(z);
    for (size_t i = 0; i < want.size(); ++i) worst = std::max(worst, std::abs(got[i] - want[i]));
    return total > 0 ? worst / total : worst;
}

} // namespace rz::test
