// The effects' paths that the default arguments do not reach: oilify's
// wider counters and windows far beyond the bitmap, Pixelate's centre
// pixels and the tiles over the picture itself.
#include "support/reliability.h"

namespace {

RZ_RELIABILITY_CASE(Rz_OilifyBitmap, [](BitmapDesc *b) { return Rz_OilifyBitmap(b, 40); });
RZ_RELIABILITY_CASE(Rz_OilifyBitmap, [](BitmapDesc *b) { return Rz_OilifyBitmap(b, 4294967295u); });
RZ_RELIABILITY_CASE(Rz_MosaicBitmap, [](BitmapDesc *b) { return Rz_MosaicBitmap(b, 5); }, ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_PixelateBitmap, [](BitmapDesc *b) { return Rz_PixelateBitmap(b, 3, 5, RZ_PIXELATE_CENTRE); });
RZ_RELIABILITY_CASE(Rz_MosaicTilesBitmap,
                    [](BitmapDesc *b) { return Rz_MosaicTilesBitmap(b, 5, 4, 1, 0x4000800, -4500, RZ_TILES_PICTURE); });

} // namespace
