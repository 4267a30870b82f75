// Naive references for the two-bitmap operations: pixels are read with
// KrnGetPixel and taken apart into working-unit channels (blue, green, red;
// 12-bit grey at the top of 16 bits), each formula applied as documented.
#pragma once

#include "support/bitmaps.h"

#include <array>
#include <cstdint>

namespace rz::test {

struct Channels {
    int count;    // 1 or 3
    int bits;     // 8 or 16
    uint32_t v[3]; // blue, green, red (or the grey value)
    uint32_t fourth;
};

inline Channels ReadChannels(const Bitmap &b, int32_t x, int32_t y) {
    const uint64_t p = b.pixel(x, y);
    const int bpp = b->nBitsPerPixel;
    Channels c{};
    if (bpp <= 16) {
        c.count = 1;
        c.bits = bpp <= 8 ? 8 : 16;
        c.v[0] = bpp == 12 ? uint32_t(p) << 4 : uint32_t(p);
        return c;
    }
    const int w = bpp >= 48 ? 16 : 8;
    const uint64_t mask = (uint64_t(1) << w) - 1;
    c.count = 3;
    c.bits = w;
    c.v[2] = uint32_t(p & mask);
    c.v[1] = uint32_t((p >> w) & mask);
    c.v[0] = uint32_t((p >> (2 * w)) & mask);
    c.fourth = uint32_t((p >> (3 * w)) & mask);
    return c;
}

inline void WriteChannels(Bitmap &b, int32_t x, int32_t y, const Channels &c) {
    const int bpp = b->nBitsPerPixel;
    if (bpp <= 16) {
        b.setPixel(x, y, bpp == 12 ? c.v[0] >> 4 : c.v[0]);
        return;
    }
    const int w = c.bits;
    b.setPixel(x, y, uint64_t(c.v[2]) | uint64_t(c.v[1]) << w | uint64_t(c.v[0]) << (2 * w) |
                         uint64_t(c.fourth) << (3 * w));
}

// The layouts whose pixels the references can take apart directly.
inline const std::array<const char *, 8> kDirectLayouts = {"grey8", "grey12", "grey16", "bgr24",
                                                           "rgb24", "bgr32", "bgr48", "bgr64"};

} // namespace rz::test
