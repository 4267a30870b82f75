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

// ---- Deep grey: bit range, window levelling ----
namespace {

RZ_RELIABILITY_CASE(Rz_GetMinMaxBits, [](BitmapDesc *b) {
    int32_t low = 0, high = 0;
    return rz::test::WithNarrowBits(b, [&](BitmapDesc *d, bool alt) {
        return Rz_GetMinMaxBits(d, &low, alt ? nullptr : &high);
    });
});

// Levelling changes the depth and with it the blocks the bitmap owns (a
// palette appears, the display table goes), so a sound descriptor is
// levelled as a copy and the sweep's block count sees only the operation's
// own work; a spoiled one goes to the operation as it is.
int32_t LevelCopy(BitmapDesc *b, const std::vector<RzRGBQuad> &table) {
    if (!b || KrnValidateBitmap(b) != 1)
        return Rz_WindowLevelBitmap(b, 2, -1, table.data(), static_cast<uint32_t>(table.size()), 0);
    BitmapDesc copy{};
    int32_t st = KrnCopyBitmap(&copy, b, BITMAPDESC_SIZE);
    if (st != 1) return st;
    st = Rz_WindowLevelBitmap(&copy, 2, b->nBitsPerPixel == 12 ? 9 : -1, table.data(),
                              static_cast<uint32_t>(table.size()), 1);
    KrnFreeBitmap(&copy);
    return st;
}

RZ_RELIABILITY_CASE(
    Rz_WindowLevelBitmap,
    [](BitmapDesc *b) {
        std::vector<RzRGBQuad> grey(1024), colour(300);
        for (uint32_t i = 0; i < grey.size(); ++i) grey[i] = {uint8_t(i / 4), uint8_t(i / 4), uint8_t(i / 4), 0};
        for (uint32_t i = 0; i < colour.size(); ++i) colour[i] = {uint8_t(i), uint8_t(255 - i % 256), 40, 0};
        int32_t st = LevelCopy(b, grey);
        if (st == 1) st = LevelCopy(b, colour);
        if (st == 1) st = LevelCopy(b, {});
        return st;
    },
    ST_NO_BITMAP);

} // namespace
// ---- end of deep grey ----
