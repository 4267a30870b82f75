// Colour operations that take records or tables.
#include "support/reliability.h"

#include <vector>

namespace {

// Two ranges, one across 0 degrees, so the table has edges and overlaps.
RZ_RELIABILITY_CASE(Rz_ChangeHueSatIntBitmap, [](BitmapDesc *b) {
    const HueSatIntRange ranges[2] = {
        {HUESATINTRANGE_SIZE, 4500, 300, -200, 350, 10, 355, 5},
        {HUESATINTRANGE_SIZE, -3000, -500, 100, 100, 200, 120, 180},
    };
    return Rz_ChangeHueSatIntBitmap(b, 1000, 200, 50, ranges, 2);
});

RZ_RELIABILITY_CASE(
    Rz_RemapBitmapHue,
    [](BitmapDesc *b) {
        const uint32_t n = b && b->nBitsPerPixel >= 48 ? 65536 : 256;
        std::vector<uint32_t> hue(n), mask(n);
        for (uint32_t i = 0; i < n; ++i) {
            hue[i] = (i + n / 3) % n;
            mask[i] = (i / (n / 8)) % 2;
        }
        // Null saturation and value tables: the identity is built inside.
        return Rz_RemapBitmapHue(b, mask.data(), hue.data(), nullptr, nullptr, n);
    },
    ST_NO_BITMAP);

} // namespace
