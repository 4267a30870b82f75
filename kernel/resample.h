// Kernel-internal pieces shared by resize and rotate: a picture decoded into
// channels of 8 or 16-bit samples that can be mixed, the fill colour in those
// channels, and progress through the thread's status callback.
//
// Samples that can be interpolated: grey levels (1..8-bit grey samples,
// palettes that are the grey ramp, whose indices are linear in grey), the
// significant bits of 12/16-bit grey (signed ones offset to unsigned while
// mixed) and every colour channel (the fourth included). Indices into any
// other palette cannot be mixed: such pictures are resampled by nearest
// neighbour whatever the method asked for.
#ifndef RZKRN_RESAMPLE_H
#define RZKRN_RESAMPLE_H

#include "internal.h"

#include <algorithm>
#include <cmath>

namespace krn {

struct Channels {
    int count = 1;            // samples per pixel: 1, 3 or 4
    bool wide = false;        // 16-bit samples
    bool nearestOnly = false; // indices of a coloured palette
    uint32_t max = 255;       // largest sample value
    unsigned lowBit = 0;      // 12/16-bit grey: significant bits low..
    uint32_t signBit = 0;     // flipped on the way in and out for signed grey
};

inline Channels DescribeChannels(const BitmapDesc *b) {
    Channels c;
    const int bits = b->nBitsPerPixel;
    if (bits <= 8) {
        c.max = (1u << bits) - 1;
        c.nearestOnly = b->nColorOrder != KRN_ORDER_GRAY && !KrnIsGrayscale(b);
    } else if (bits == 12 || bits == 16) {
        const int high = b->nHighBit == -1 ? bits - 1 : b->nHighBit;
        const int count = std::clamp(high - b->nLowBit + 1, 1, bits);
        c.wide = true;
        c.lowBit = unsigned(std::clamp(b->nLowBit, 0, bits - 1));
        c.max = count >= 16 ? 0xFFFFu : (1u << count) - 1;
        if (b->uFlags & BMF_SIGNED) c.signBit = 1u << (count - 1);
    } else {
        c.count = (bits == 32 || bits == 64) ? 4 : 3;
        c.wide = bits >= 48;
        c.max = c.wide ? 0xFFFF : 0xFF;
    }
    return c;
}

// One stored row of `width` pixels into channel samples.
template <class T> void DecodeRow(const Channels &c, int bits, const uint8_t *row, int64_t width, T *out) {
    WithDepth(bits, 0, [&](auto d) {
        constexpr int B = decltype(d)::value;
        if constexpr (B <= 16) {
            for (int64_t x = 0; x < width; ++x) {
                uint32_t v = uint32_t(Samples<B>::Get(row, size_t(x)));
                if constexpr (B > 8) v = ((v >> c.lowBit) & c.max) ^ c.signBit;
                out[x] = T(v);
            }
        } else {
            constexpr int S = B >= 48 ? 2 : 1;
            const int64_t n = width * (B / 8 / S);
            for (int64_t i = 0; i < n; ++i) out[i] = T(S == 2 ? row[2 * i] | row[2 * i + 1] << 8 : row[i]);
        }
        return 0;
    });
}

// Channel samples into one stored row (bits outside a 12/16-bit range are 0).
template <class T> void EncodeRow(const Channels &c, int bits, const T *in, int64_t width, uint8_t *row) {
    WithDepth(bits, 0, [&](auto d) {
        constexpr int B = decltype(d)::value;
        if constexpr (B <= 16) {
            for (int64_t x = 0; x < width; ++x) {
                uint32_t v = in[x];
                if constexpr (B > 8) v = ((v ^ c.signBit) & c.max) << c.lowBit;
                Samples<B>::Set(row, size_t(x), v);
            }
        } else {
            constexpr int S = B >= 48 ? 2 : 1;
            const int64_t n = width * (B / 8 / S);
            for (int64_t i = 0; i < n; ++i) {
                if constexpr (S == 2) {
                    row[2 * i] = uint8_t(in[i]);
                    row[2 * i + 1] = uint8_t(in[i] >> 8);
                } else {
                    row[i] = uint8_t(in[i]);
                }
            }
        }
        return 0;
    });
}

// The fill colour word (red bits 0-7, green 8-15, blue 16-23; bit 26: a grey
// level on the bitmap's own scale in the low 16 bits) as channel samples.
void FillSamples(const BitmapDesc *b, const Channels &c, uint32_t colour, uint32_t out[4]);

// Whole percentages of the thread's status callback over `steps` steps;
// 0 is reported first and 100 last. A result other than 1 is returned.
class KernelProgress {
  public:
    explicit KernelProgress(int64_t steps) : steps_(std::max<int64_t>(steps, 1)) {
        cb_ = KrnGetStatusCallback(&user_);
    }
    int32_t begin() { return report(0); }
    int32_t step() {
        ++done_;
        const int32_t p = int32_t(done_ * 100 / steps_);
        return p != last_ ? report(p) : KRN_OK;
    }

  private:
    int32_t report(int32_t p) {
        last_ = p;
        return cb_ ? cb_(p, user_) : KRN_OK;
    }
    RZSTATUSCALLBACK cb_ = nullptr;
    void *user_ = nullptr;
    int64_t steps_, done_ = 0;
    int32_t last_ = -1;
};

// Checks of a bitmap a geometric service changes: -814, -789, -2, -12.
int32_t CheckResampled(const BitmapDesc *b);

// Replaces the pixels of `b` by `pixels` (stride, size), in view 1; the
// region, in the old coordinates, is released.
void AdoptPixels(BitmapDesc *b, uint8_t *pixels, uint32_t stride, int64_t width, int64_t height);

} // namespace krn

#endif
