// What resize and rotate share (fill colour, checks, adopting a new pixel
// block) and the 256-level grey histogram.
#include "resample.h"

#include <cstring>

namespace krn {

namespace {

constexpr uint32_t kGreyLevelFlag = 1u << 26;

inline uint32_t Grey251(uint32_t r, uint32_t g, uint32_t b) { return (2 * r + 5 * g + b + 4) >> 3; }
inline uint32_t Grey8(uint32_t r, uint32_t g, uint32_t b) { return (r * 77 + g * 150 + b * 29 + 128) >> 8; }

} // namespace

void FillSamples(const BitmapDesc *b, const Channels &c, uint32_t colour, uint32_t out[4]) {
    const bool level = (colour & kGreyLevelFlag) != 0;
    const uint32_t lv = colour & 0xFFFF;
    uint32_t r = colour & 0xFF, g = (colour >> 8) & 0xFF, bl = (colour >> 16) & 0xFF;
    const int bits = b->nBitsPerPixel;
    out[0] = out[1] = out[2] = 0;
    out[3] = c.max;
    if (bits <= 8 && b->nColorOrder != KRN_ORDER_GRAY) {
        if (level) r = g = bl = std::min<uint32_t>(lv, 255);
        // Nearest palette entry, lowest index on ties.
        uint32_t best = ~0u;
        const int n = b->pPalette ? std::clamp(b->nColors, 0, 1 << bits) : 0;
        for (int i = 0; i < n; ++i) {
            const RzRGBQuad &e = b->pPalette[i];
            const int dr = int(e.rgbRed) - int(r), dg = int(e.rgbGreen) - int(g), db = int(e.rgbBlue) - int(bl);
            const uint32_t d = uint32_t(dr * dr + dg * dg + db * db);
            if (d < best) {
                best = d;
                out[0] = uint32_t(i);
            }
        }
        return;
    }
    if (c.count == 1) {
        if (level) {
            out[0] = std::min(lv, c.max);
        } else if (bits <= 8) {
            out[0] = (Grey251(r, g, bl) * c.max + 127) / 255;
        } else {
            const uint32_t v16 = Grey251(r, g, bl) * 256; // deep samples take colours times 256
            out[0] = c.max == 0xFFFF ? v16 : v16 * c.max / 0xFFFF;
        }
        return;
    }
    const uint32_t scale = c.wide ? 256 : 1;
    const bool rgb = b->nColorOrder == KRN_ORDER_RGB;
    if (level) {
        out[0] = out[1] = out[2] = std::min(lv, c.max);
        return;
    }
    out[0] = (rgb ? r : bl) * scale;
    out[1] = g * scale;
    out[2] = (rgb ? bl : r) * scale;
}

int32_t CheckResampled(const BitmapDesc *b) { return KrnValidateBitmap(b); }

void AdoptPixels(BitmapDesc *b, uint8_t *pixels, uint32_t stride, int64_t width, int64_t height) {
    KrnMemFree(b->pData);
    b->pData = pixels;
    b->nStride = stride;
    b->nStoredWidth = b->nWidth = int32_t(width);
    b->nStoredHeight = b->nHeight = int32_t(height);
    b->nViewPerspective = 1;
    if (void *region = b->pRegion) {
        b->pRegion = nullptr;
        auto *header = static_cast<KrnRegionHeader *>(region);
        if (header->pfnDestroy) header->pfnDestroy(region);
    }
}

} // namespace krn

using namespace krn;

extern "C" {

RZKRN_API int32_t RZAPI KrnGetBitmapHistogram(const BitmapDesc *pBitmap, uint32_t *pHistogram) {
    if (const int32_t st = CheckResampled(pBitmap); st != KRN_OK) return st;
    if (!pHistogram) return KRN_INVALID_PARAMETER;
    const Channels c = DescribeChannels(pBitmap);
    const int bits = pBitmap->nBitsPerPixel;
    const int64_t w = pBitmap->nStoredWidth, h = pBitmap->nStoredHeight;
    // Grey level of every raw value up to 16 bits, by table.
    uint8_t levels[256];
    if (bits <= 8) {
        for (uint32_t v = 0; v <= c.max; ++v) {
            if (pBitmap->nColorOrder == KRN_ORDER_GRAY || !pBitmap->pPalette) {
                levels[v] = uint8_t((v * 255 + c.max / 2) / c.max);
            } else {
                const RzRGBQuad &e = pBitmap->pPalette[v];
                levels[v] = uint8_t(Grey8(e.rgbRed, e.rgbGreen, e.rgbBlue));
            }
        }
    }
    unsigned shift = 0;
    while ((c.max >> shift) > 255) ++shift;
    Block row(KrnMemAlloc(size_t(std::max<int64_t>(w, 1)) * size_t(c.count) * sizeof(uint16_t)));
    if (!row) return KRN_FAILURE;
    uint16_t *s = row.get<uint16_t>();
    std::memset(pHistogram, 0, 256 * sizeof(uint32_t));
    const int rCh = pBitmap->nColorOrder == KRN_ORDER_RGB ? 0 : 2, bCh = 2 - rCh;
    for (int64_t y = 0; y < h; ++y) {
        DecodeRow(c, bits, pBitmap->pData + size_t(y) * pBitmap->nStride, w, s);
        for (int64_t x = 0; x < w; ++x) {
            uint32_t level;
            if (c.count == 1) {
                level = bits <= 8 ? levels[s[x]] : (c.max >= 255 ? s[x] >> shift : s[x] * 255u / c.max);
            } else {
                const uint16_t *p = s + x * c.count;
                const unsigned down = c.wide ? 8 : 0;
                level = Grey8(p[rCh] >> down, p[1] >> down, p[bCh] >> down);
            }
            ++pHistogram[level];
        }
    }
    return KRN_OK;
}

} // extern "C"
