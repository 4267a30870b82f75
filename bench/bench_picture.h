// The 24-bit benchmark pictures shared by the benchmark programs: "photo"
// (smooth shading with a little noise) and "noise" (uniform random samples),
// kSide square, with a pristine copy that restore() puts back before each
// timed call of an in-place operation.
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

class Bitmap24 {
  public:
    explicit Bitmap24(Picture p) {
        if (KrnInitBitmap(&d_, BITMAPDESC_SIZE, kSide, kSide, 24) != KRN_OK || KrnAllocBitmap(&d_) != KRN_OK)
            std::abort();
        uint32_t s = 0x2545F491u;
        for (int32_t y = 0; y < kSide; ++y) {
            uint8_t *row = d_.pData + size_t(y) * d_.nStride;
            for (int32_t x = 0; x < kSide; ++x)
                for (int c = 0; c < 3; ++c) {
                    s = s * 1664525u + 1013904223u;
                    int v = int(s >> 24);
                    if (p == Picture::Photo)
                        v = int(128 + 60 * std::sin(x * 0.01 + c) + 50 * std::cos(y * 0.013 + x * 0.002)) + v / 16;
                    row[x * 3 + c] = uint8_t(std::clamp(v, 0, 255));
                }
        }
        pristine_.assign(d_.pData, d_.pData + bytes());
    }
    ~Bitmap24() { KrnFreeBitmap(&d_); }
    Bitmap24(const Bitmap24 &) = delete;
    Bitmap24 &operator=(const Bitmap24 &) = delete;

    BitmapDesc *desc() { return &d_; }
    size_t bytes() const { return size_t(d_.nStride) * size_t(d_.nStoredHeight); }
    void restore() { std::memcpy(d_.pData, pristine_.data(), bytes()); }
    const uint8_t *pixels() const { return pristine_.data(); }
    // The pristine pixels, blue first, without row padding.
    std::vector<uint8_t> packed() const {
        std::vector<uint8_t> out(size_t(kSide) * kSide * 3);
        for (int32_t y = 0; y < kSide; ++y)
            std::memcpy(&out[size_t(y) * kSide * 3], &pristine_[size_t(y) * d_.nStride], size_t(kSide) * 3);
        return out;
    }

  private:
    BitmapDesc d_{};
    std::vector<uint8_t> pristine_;
};

} // namespace rzbench
