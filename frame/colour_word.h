// Colour words as operations take them (fill, grout, background): red in bits
// 0-7, green 8-15, blue 16-23; bit 26 makes the low 16 bits a grey level of a
// 12/16-bit grey bitmap. Deep bitmaps take the 8-bit levels times 256; grey
// bitmaps the 2:5:1 grey of the colour.
#pragma once

#include <rzkrn.h>

#include <cstdint>

namespace rz {

struct ColourWord {
    uint32_t b = 0, g = 0, r = 0; // working samples
};

inline ColourWord WorkingColourWord(const BitmapDesc *bmp, uint32_t colour) {
    uint32_t r = colour & 0xFF, g = (colour >> 8) & 0xFF, b = (colour >> 16) & 0xFF;
    const int32_t bits = bmp->nBitsPerPixel;
    const bool grey = bmp->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(bmp);
    if (bits == 12 || bits == 16 || bits == 48 || bits == 64) {
        r *= 256;
        g *= 256;
        b *= 256;
        if ((bits == 12 || bits == 16) && grey && (colour & (1u << 26))) r = g = b = colour & 0xFFFF;
    }
    if (grey) r = g = b = (g + b + 4 * g + 2 * r) / 8;
    return {b, g, r};
}

} // namespace rz
