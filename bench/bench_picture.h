// The benchmark pictures shared by the benchmark programs: "photo" (smooth
// shading with a little noise) and "noise" (uniform random samples), kSide
// square, at any whole-byte depth (grey or colour), with a pristine copy
// that restore() puts back before each timed call of an in-place operation.
#pragma once

#include <rzkrn.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace rzbench {

constexpr int32_t kSide = 4096;

enum class Picture { Photo, Noise };
const char *PictureName(Picture p) { return p == Picture::Photo ? "photo" : "noise"; }

// Every byte of a pixel is a sample of its own: channel c of pixel x.
class BenchBitmap {
  public:
    BenchBitmap(int32_t bits, bool grey, Picture p) {
        if (KrnInitBitmap(&d_, BITMAPDESC_SIZE, kSide, kSide, bits) != KRN_OK) std::abort();
        if (grey) {
            d_.nColorOrder = KRN_ORDER_GRAY;
            d_.nDataKind = 1;
        }
        if (KrnAllocBitmap(&d_) != KRN_OK) std::abort();
        const int channels = bits / 8;
        uint32_t s = 0x2545F491u;
        for (int32_t y = 0; y < kSide; ++y) {
            uint8_t *row = d_.pData + size_t(y) * d_.nStride;
            for (int32_t x = 0; x < kSide; ++x)
                for (int c = 0; c < channels; ++c) {
                    s = s * 1664525u + 1013904223u;
                    int v = int(s >> 24);
                    if (p == Picture::Photo)
                        v = int(128 + 60 * std::sin(x * 0.01 + c) + 50 * std::cos(y * 0.013 + x * 0.002)) + v / 16;
                    row[x * channels + c] = uint8_t(std::clamp(v, 0, 255));
                }
        }
        pristine_.assign(d_.pData, d_.pData + bytes());
    }
    ~BenchBitmap() { KrnFreeBitmap(&d_); }
    BenchBitmap(const BenchBitmap &) = delete;
    BenchBitmap &operator=(const BenchBitmap &) = delete;

    BitmapDesc *desc() { return &d_; }
    size_t bytes() const { return size_t(d_.nStride) * size_t(d_.nStoredHeight); }
    void restore() { std::memcpy(d_.pData, pristine_.data(), bytes()); }
    const uint8_t *pixels() const { return pristine_.data(); }
    uint8_t *pristine() { return pristine_.data(); }

  protected:
    BitmapDesc d_{};
    std::vector<uint8_t> pristine_;
};

class Bitmap24 : public BenchBitmap {
  public:
    explicit Bitmap24(Picture p) : BenchBitmap(24, false, p) {}
    // The pristine pixels, blue first, without row padding.
    std::vector<uint8_t> packed() const {
        std::vector<uint8_t> out(size_t(kSide) * kSide * 3);
        for (int32_t y = 0; y < kSide; ++y)
            std::memcpy(&out[size_t(y) * kSide * 3], &pristine_[size_t(y) * d_.nStride], size_t(kSide) * 3);
        return out;
    }
};

} // namespace rzbench
