// What a measurement sees of a bitmap: the scale its samples are counted on
// (the histogram's shape) and a pass that hands every sample of the region
// to a function. 12/16-bit grey is read raw and reduced to its significant
// value here, so the values are those of the sample, not of the 16-bit
// working scale; everything else comes through the row context's 8-bit or
// 16-bit working rows (palettes already looked up).
#pragma once

#include "frame/region_walk.h"

#include <cstring>

namespace rz {

enum class SampleFormat { Grey8, Deep12, Deep16, Colour24, Colour48 };

struct SampleScale {
    SampleFormat format = SampleFormat::Grey8;
    uint32_t mode = 0;  // row context mode
    uint32_t bins = 256;
    bool deep = false;  // 12/16-bit grey: significant values of k bits
    uint32_t bits = 8;  // k: bits of a value on this scale
    uint32_t low = 0;   // deep: first significant bit
    uint32_t sign = 0;  // signed grey: the sign bit of a value, flipped to count from the most negative
};

// The scale of a bitmap that passed the descriptor checks; -2 for a 12/16-bit
// bit range upside down or past the sample.
int32_t GetSampleScale(const BitmapDesc *bmp, SampleScale *scale);

// Holds nLowBit -1 (read as 0) at 0 while rows are read, and gives it back.
class LowBitGuard {
  public:
    explicit LowBitGuard(BitmapDesc *bmp) : bmp_(bmp), saved_(bmp->nLowBit) {
        if (saved_ == -1) bmp_->nLowBit = 0;
    }
    ~LowBitGuard() { bmp_->nLowBit = saved_; }
    LowBitGuard(const LowBitGuard &) = delete;
    LowBitGuard &operator=(const LowBitGuard &) = delete;

  private:
    BitmapDesc *bmp_;
    int32_t saved_;
};

// Calls f(value) for every sample of the region on the scale: grey once a
// pixel; colour blue, green, red for channel 0, else the chosen channel.
template <class F> int32_t ForEachSample(BitmapDesc *bmp, const SampleScale &s, uint32_t channel, F &&f) {
    LowBitGuard lowBit(bmp);
    const uint32_t low = s.low, mask = (1u << s.bits) - 1, sign = s.sign;
    const int32_t offset = channel == 0 ? 0 : static_cast<int32_t>(3 - channel);
    const int32_t step = channel == 0 ? 1 : 3;
    switch (s.format) {
    case SampleFormat::Grey8:
        return WalkRegion(bmp, s.mode, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            for (int32_t x = x0; x < x1; ++x) f(row[x] ^ sign);
        });
    case SampleFormat::Deep16:
        return WalkRegion(bmp, s.mode, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            for (int32_t x = x0; x < x1; ++x) {
                uint16_t w;
                std::memcpy(&w, row + 2 * x, 2);
                f(((w >> low) & mask) ^ sign);
            }
        });
    case SampleFormat::Deep12:
        return WalkRegion(bmp, s.mode, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            for (int32_t x = x0; x < x1; ++x) {
                const uint8_t *p = row + 3 * (x >> 1);
                const uint32_t w = (x & 1) ? (p[1] | p[2] << 8) >> 4 : (p[0] | p[1] << 8) & 0xFFF;
                f(((w >> low) & mask) ^ sign);
            }
        });
    case SampleFormat::Colour24:
        return WalkRegion(bmp, s.mode, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            const uint8_t *p = row + 3 * x0 + offset;
            const int32_t n = channel == 0 ? 3 * (x1 - x0) : x1 - x0;
            for (int32_t i = 0; i < n; ++i) f(p[step * i]);
        });
    case SampleFormat::Colour48:
        return WalkRegion(bmp, s.mode, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            const uint8_t *p = row + 6 * x0 + 2 * offset;
            const int32_t n = channel == 0 ? 3 * (x1 - x0) : x1 - x0;
            for (int32_t i = 0; i < n; ++i) {
                uint16_t w;
                std::memcpy(&w, p + 2 * step * i, 2);
                f(w);
            }
        });
    }
    return ST_FAILURE;
}

// Fills `bins` (zeroed here) with the counts of the region's samples.
int32_t CountSamples(BitmapDesc *bmp, const SampleScale &s, uint32_t channel, uint32_t *bins);

} // namespace rz
