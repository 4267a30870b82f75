// Distortion paths the registry's defaults do not reach: fill and leave
// rules, the options, the transposed cylinder, the inverse polar map, the
// wrapping offset and a centre one pixel outside.
#include "support/reliability.h"

namespace {

RZ_RELIABILITY_CASE(Rz_SpherizeBitmap, [](BitmapDesc *b) { return Rz_SpherizeBitmap(b, -300, -1, 3, 0x4001234, 0x10); },
                    ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_SwirlBitmap, [](BitmapDesc *b) { return Rz_SwirlBitmap(b, -5000, 2, 1); },
                    ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_BendingBitmap, [](BitmapDesc *b) { return Rz_BendingBitmap(b, -500, 2, 2, 0xFF, 0x12); },
                    ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_PunchBitmap, [](BitmapDesc *b) { return Rz_PunchBitmap(b, -400, 1000, 4, 5, 0xFF00, 0x10); },
                    ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_CylindricalBitmap, [](BitmapDesc *b) { return Rz_CylindricalBitmap(b, -100, 1); },
                    ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_PolarBitmap, [](BitmapDesc *b) { return Rz_PolarBitmap(b, 0xFF0000, 0x10); }, ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_TunnelBitmap, [](BitmapDesc *b) { return Rz_TunnelBitmap(b, 3, 4, 20, 5, -9000, 0x808080, 0); });
RZ_RELIABILITY_CASE(Rz_PlaneBendBitmap,
                    [](BitmapDesc *b) { return Rz_PlaneBendBitmap(b, 5, 5, 40, 10, -1000, 2, 0x123456, 0); });
RZ_RELIABILITY_CASE(Rz_OffsetBitmap, [](BitmapDesc *b) { return Rz_OffsetBitmap(b, -7, 30, 0, 3); });
RZ_RELIABILITY_CASE(Rz_OceanBitmap, [](BitmapDesc *b) { return Rz_OceanBitmap(b, 0, 5, 0x10); });

} // namespace
