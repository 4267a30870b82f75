// Paths the export list's defaults do not reach, and operations on records.
#include "support/reliability.h"

#include <array>
#include <vector>

namespace {

using rz::Arg;
using rz::test::kDefault;

// Fill and leave rules, options, a centre outside, the inverse polar map.
RZ_RELIABILITY_ARGS(Rz_SpherizeBitmap, -300, -1, 3, 0x4001234, 0x10);
RZ_RELIABILITY_ARGS(Rz_SwirlBitmap, -5000, 2, 1);
RZ_RELIABILITY_ARGS(Rz_BendingBitmap, -500, 2, 2, 0xFF, 0x12);
RZ_RELIABILITY_ARGS(Rz_PunchBitmap, -400, 1000, 4, 5, 0xFF00, 0x10);
RZ_RELIABILITY_ARGS(Rz_CylindricalBitmap, -100, 1);
RZ_RELIABILITY_ARGS(Rz_PolarBitmap, 0xFF0000, 0x10);
RZ_RELIABILITY_ARGS(Rz_TunnelBitmap, 3, 4, 20, 5, -9000, 0x808080, 0);
RZ_RELIABILITY_ARGS(Rz_PlaneBendBitmap, 5, 5, 40, 10, -1000, 2, 0x123456, 0);
RZ_RELIABILITY_ARGS(Rz_OffsetBitmap, -7, 30, 0, 3);
RZ_RELIABILITY_ARGS(Rz_OceanBitmap, 0, 5, 0x10);
// Wider counters, windows beyond the bitmap, centre pixels, tiles over the picture.
RZ_RELIABILITY_ARGS(Rz_OilifyBitmap, 40);
RZ_RELIABILITY_ARGS(Rz_OilifyBitmap, 4294967295u);
RZ_RELIABILITY_ARGS(Rz_MosaicBitmap, 5);
RZ_RELIABILITY_ARGS(Rz_PixelateBitmap, 3, 5, RZ_PIXELATE_CENTRE);
RZ_RELIABILITY_ARGS(Rz_MosaicTilesBitmap, 5, 4, 1, 0x4000800, -4500, RZ_TILES_PICTURE);
// Rank filters' histogram paths; edge detection in one direction, compass.
RZ_RELIABILITY_ARGS(Rz_MedianFilterBitmap, 9);
RZ_RELIABILITY_ARGS(Rz_MaxFilterBitmap, 40);
RZ_RELIABILITY_ARGS(Rz_EdgeDetectorBitmap, 3, EDG_SOBEL_VERTICAL);
RZ_RELIABILITY_ARGS(Rz_EdgeDetectorBitmap, 1, EDG_GRADIENT_SW);
RZ_RELIABILITY_ARGS(Rz_CombineBitmapExt, kDefault, 3, kDefault, kDefault, 1, kDefault,
                    CBF_DIVIDE_SRC | CBF_SRC_GREY | CBF_DST_INVERT | CBF_RES_INVERT |
                        CBF_SELECT_RED(CBF_CHANNEL_GREEN));
RZ_RELIABILITY_ARGS(Rz_AddBitmaps, kDefault, RZ_ADD_SUM);
// Deskew measures a copy scaled up to 1024 x 700: the fixed search on one layout.
RZ_RELIABILITY_ARGS(Rz_GetMinMaxBits);
RZ_RELIABILITY_ARGS(Rz_GetMinMaxVal);
RZ_RELIABILITY_ARGS(Rz_GetBitmapStatisticsInfo);
RZ_RELIABILITY_ARGS(Rz_GetBitmapStatisticsInfo, 3, 100, 2000);
RZ_RELIABILITY_CASE(Rz_DeskewBitmap, rz::test::ArgAdjust(), {"pal1_grey"});
RZ_RELIABILITY_ARGS(Rz_DeskewBitmapExt, 2000, 45, 0x00808080, 0x10000 | 0x1000);
RZ_RELIABILITY_CASE(Rz_DeskewBitmapExt, [](BitmapDesc *b) {
    return Rz_DeskewBitmapExt(b, nullptr, 2000, 45, 0, 0x10 | 0x2000);
});

// A mask and a tiled texture.
RZ_RELIABILITY_BOUND_CASE(Rz_TextureAlphaBlendBitmap, [](std::vector<Arg> &a, BitmapDesc *b) {
    struct Inputs : rz::test::Copies {
        RzPoint offset{-3, 5};
    };
    auto c = std::make_shared<Inputs>();
    a[1].i = 2;            // nX
    a[7].i = -1;           // nSrcY
    a[8].p = c->copy(b);   // pMask
    a[9].i = 200;          // nOpacity
    a[10].p = c->copy(b);  // pTexture
    a[11].p = &c->offset;  // pTextureOffset
    return std::shared_ptr<void>(c);
});
RZ_RELIABILITY_ARGS(Rz_AddWeightedBitmaps, kDefault, RZ_ADDW_NORMALISE);

// A predefined kernel, a caller's 5x5 (the ring path), an off-centre anchor.
RZ_RELIABILITY_CASE(Rz_SpatialFilterBitmap,
                    [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_SOBEL_VERTICAL)); });
RZ_RELIABILITY_CASE(Rz_SpatialFilterBitmap, [](BitmapDesc *b) {
    std::vector<int32_t> k{SPATIALKERNEL_SIZE, 3, 10, 5};
    for (int i = 0; i < 25; ++i) k.push_back(i % 7 - 3);
    return Rz_SpatialFilterBitmap(b, reinterpret_cast<const SpatialKernel *>(k.data()));
});
RZ_RELIABILITY_CASE(Rz_UserFilterBitmap, [](BitmapDesc *b) {
    std::vector<int32_t> k{USERFILTERKERNEL_SIZE, 3, 2, 0, 1, 2, 5, RZ_UF_ROUND, 1, 2, 1, -1, 0, 1};
    return Rz_UserFilterBitmap(b, reinterpret_cast<const UserFilterKernel *>(k.data()));
});

// Two hue ranges, one across 0 degrees: the table has edges and overlaps.
RZ_RELIABILITY_CASE(Rz_ChangeHueSatIntBitmap, [](BitmapDesc *b) {
    const HueSatIntRange ranges[2] = {
        {HUESATINTRANGE_SIZE, 4500, 300, -200, 350, 10, 355, 5},
        {HUESATINTRANGE_SIZE, -3000, -500, 100, 100, 200, 120, 180},
    };
    return Rz_ChangeHueSatIntBitmap(b, 1000, 200, 50, ranges, 2);
});
RZ_RELIABILITY_ARGS(Rz_RemapBitmapHue, 65536);

// A table of the samples' size (a short one narrows the bounding rectangle).
RZ_RELIABILITY_CASE(
    Rz_RemapBitmapIntensity,
    [](BitmapDesc *b) {
        const bool grey = b && b->nColorOrder == KRN_ORDER_GRAY && !(b->uFlags & BMF_USE_LUT);
        const uint32_t n = !b || b->nBitsPerPixel < 12 ? 256 : b->nBitsPerPixel == 12 ? 4096
                           : grey || b->nBitsPerPixel >= 48 ? 65536 : 256;
        std::vector<uint32_t> table(n);
        for (uint32_t i = 0; i < n; ++i) table[i] = n - 1 - i / 2;
        return Rz_RemapBitmapIntensity(b, table.data(), n, RZ_CHANNEL_GREEN);
    });

// 2^k histogram bins for k significant grey bits; other channels in the
// transposed view.
uint32_t Bins(const BitmapDesc *b) {
    if (!b || b->uStructSize != BITMAPDESC_SIZE) return 256;
    if (b->nBitsPerPixel >= 48) return 65536;
    if (b->nColorOrder != KRN_ORDER_GRAY || (b->nBitsPerPixel != 12 && b->nBitsPerPixel != 16)) return 256;
    const int32_t high = b->nHighBit == -1 ? b->nBitsPerPixel - 1 : b->nHighBit;
    const int32_t low = b->nLowBit < 0 ? 0 : b->nLowBit;
    return high >= low && high - low < 16 ? 1u << (high - low + 1) : 0;
}

RZ_RELIABILITY_CASE(Rz_GetBitmapHistogram, [](BitmapDesc *b) {
    std::vector<uint32_t> bins(65536);
    return Rz_GetBitmapHistogram(b, bins.data(), Bins(b), b && b->nViewPerspective >= 5 ? 2 : 0);
});

// Levelling changes the depth and the blocks the bitmap owns, so a sound
// descriptor is levelled as a copy; a spoiled one goes as it is.
int32_t LevelCopy(BitmapDesc *b, const std::vector<RzRGBQuad> &table) {
    const uint32_t n = uint32_t(table.size());
    if (!b || KrnValidateBitmap(b) != 1) return Rz_WindowLevelBitmap(b, 2, -1, table.data(), n, 0);
    BitmapDesc copy{};
    int32_t st = KrnCopyBitmap(&copy, b, BITMAPDESC_SIZE);
    if (st != 1) return st;
    st = Rz_WindowLevelBitmap(&copy, 2, b->nBitsPerPixel == 12 ? 9 : -1, table.data(), n, 1);
    KrnFreeBitmap(&copy);
    return st;
}

RZ_RELIABILITY_CASE(Rz_WindowLevelBitmap, [](BitmapDesc *b) {
    std::vector<RzRGBQuad> grey(1024), colour(300);
    for (uint32_t i = 0; i < grey.size(); ++i) grey[i] = {uint8_t(i / 4), uint8_t(i / 4), uint8_t(i / 4), 0};
    for (uint32_t i = 0; i < colour.size(); ++i) colour[i] = {uint8_t(i), uint8_t(255 - i % 256), 40, 0};
    int32_t st = LevelCopy(b, grey);
    if (st == 1) st = LevelCopy(b, colour);
    return st == 1 ? LevelCopy(b, {}) : st;
});

// The FFT needs power-of-two sizes (square for the transposed view).
RZ_RELIABILITY_CASE(Rz_AllocFTArray, [](BitmapDesc *b) {
    FTARRAY *a = nullptr;
    const int32_t st = Rz_AllocFTArray(b, &a, FTARRAY_SIZE);
    return st == 1 ? Rz_FreeFTArray(a) : st;
});
RZ_RELIABILITY_CASE(Rz_FFTBitmap, rz::test::ScalarArgs("Rz_FFTBitmap", {FT_FORWARD | FT_PLANE_RED}), {}, 16);
RZ_RELIABILITY_CASE(Rz_FFTBitmap,
                    rz::test::ScalarArgs("Rz_FFTBitmap", {FT_INVERSE | FT_PLANE_GREEN | FT_PHASE | FT_STRETCH}), {},
                    16);
RZ_RELIABILITY_ARGS(Rz_DFTBitmap, FT_FORWARD | FT_PLANE_BLUE | DFT_WHOLE);
RZ_RELIABILITY_ARGS(Rz_FTDisplayBitmap, FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG);
RZ_RELIABILITY_ARGS(Rz_FrqFilterMaskBitmap);
RZ_RELIABILITY_BOUND_CASE(Rz_DFTBitmap, [](std::vector<Arg> &a, BitmapDesc *b) {
    auto rect = std::make_shared<std::array<int32_t, 4>>(std::array{1, 2, b->nWidth - 3, b->nHeight - 1});
    a[2].p = rect->data();
    a[3].i = FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP | DFT_RECT | DFT_COLUMNS_PLUS;
    return rect;
});
RZ_RELIABILITY_BOUND_CASE(Rz_FrqFilterBitmap, [](std::vector<Arg> &a, BitmapDesc *b) {
    auto rect = std::make_shared<std::array<int32_t, 4>>(std::array{1, 1, b->nWidth / 2, b->nHeight - 1});
    a[1].p = rect->data();
    a[2].i = FRQ_CENTRED_COORDS | FRQ_ZERO_INSIDE;
    return rect;
});

} // namespace
