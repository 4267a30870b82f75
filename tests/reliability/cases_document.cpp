// Deskew takes an output pointer, so it joins the sweeps here: the Ext
// export on both paths with a small search, with a quality code and the
// page's own fill, on every layout; the fixed search on a black-and-white
// page only. Whatever their size, pages are measured on a copy
// scaled up to 1024 x 700 for it, which makes each run cost ~100 small ones;
// its paths past the search's size are the Ext export's.
#include "support/reliability.h"

namespace {

RZ_RELIABILITY_CASE(
    Rz_DeskewBitmap,
    [](BitmapDesc *b) {
        int32_t angle = 0;
        return Rz_DeskewBitmap(b, &angle, 0x00FFFFFF, 0);
    },
    ST_NULL_POINTER, {ST_FAILURE}, 0, 0, {"pal1_grey"});

RZ_RELIABILITY_CASE(Rz_DeskewBitmapExt, [](BitmapDesc *b) {
    int32_t angle = 0;
    return Rz_DeskewBitmapExt(b, &angle, 2000, 45, 0x00808080, 0x10000 | 0x1000);
});

RZ_RELIABILITY_CASE(Rz_DeskewBitmapExt, [](BitmapDesc *b) {
    return Rz_DeskewBitmapExt(b, nullptr, 2000, 45, 0, 0x10 | 0x2000);
});

} // namespace
