// Tone operations that take a table.
#include "support/reliability.h"

#include <vector>

namespace {

uint32_t EntriesFor(const BitmapDesc *b) {
    if (b->nBitsPerPixel >= 48) return 65536;
    if (b->nColorOrder == KRN_ORDER_GRAY && b->nBitsPerPixel == 16 && !(b->uFlags & BMF_USE_LUT)) return 65536;
    if (b->nColorOrder == KRN_ORDER_GRAY && b->nBitsPerPixel == 12) return 4096;
    return 256;
}

RZ_RELIABILITY_CASE(
    Rz_RemapBitmapIntensity,
    [](BitmapDesc *b) {
        const uint32_t n = b ? EntriesFor(b) : 256;
        std::vector<uint32_t> table(n);
        for (uint32_t i = 0; i < n; ++i) table[i] = n - 1 - i / 2;
        return Rz_RemapBitmapIntensity(b, table.data(), n, RZ_CHANNEL_GREEN);
    },
    ST_NO_BITMAP);

} // namespace
