// Deskew takes an output pointer, so it joins the sweeps here: the fixed
// search (measured on a scaled copy of these small bitmaps, then rotated)
// and the Ext export on both paths with a small search, with a quality code
// and the page's own fill.
#include "support/reliability.h"

namespace {

RZ_RELIABILITY_CASE(Rz_DeskewBitmap, [](BitmapDesc *b) {
    int32_t angle = 0;
    return Rz_DeskewBitmap(b, &angle, 0x00FFFFFF, 0);
});

RZ_RELIABILITY_CASE(Rz_DeskewBitmapExt, [](BitmapDesc *b) {
    int32_t angle = 0;
    return Rz_DeskewBitmapExt(b, &angle, 2000, 45, 0x00808080, 0x10000 | 0x1000);
});

RZ_RELIABILITY_CASE(Rz_DeskewBitmapExt, [](BitmapDesc *b) {
    return Rz_DeskewBitmapExt(b, nullptr, 2000, 45, 0, 0x10 | 0x2000);
});

} // namespace
