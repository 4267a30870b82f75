// Bitmap descriptors: layout checks, pixel memory, palettes, single pixels,
// state words and view perspective.
//
// Every size goes through ComputeLayout before anything is allocated: width
// and height are at most INT32_MAX, the stride ((bits * width + 31) / 32) * 4
// at most INT32_MAX, the picture at most kMaxPixels and the pixel block at
// most kMaxImageBytes. The stored
// picture size (nStoredWidth x nStoredHeight) never changes with the view;
// nWidth / nHeight are the view's size, swapped for views 5..8. Validation
// only compares numbers, so a hostile descriptor gets a status, not a fault
// (its pointers are trusted once the numbers agree).
#include "internal.h"

#include <algorithm>
#include <cstring>

static_assert(sizeof(BitmapDesc) == BITMAPDESC_SIZE);
static_assert(offsetof(BitmapDesc, uStructSize) == 0);
static_assert(offsetof(BitmapDesc, nWidth) == 12);
static_assert(offsetof(BitmapDesc, nHeight) == 16);
static_assert(offsetof(BitmapDesc, nBitsPerPixel) == 20);
static_assert(offsetof(BitmapDesc, nStride) == 24);
static_assert(offsetof(BitmapDesc, nStoredWidth) == 28);
static_assert(offsetof(BitmapDesc, nStoredHeight) == 32);
static_assert(offsetof(BitmapDesc, uFlags) == 36);
static_assert(offsetof(BitmapDesc, nColors) == 40);
static_assert(offsetof(BitmapDesc, uKernelState) == 44);
static_assert(offsetof(BitmapDesc, nViewPerspective) == 48);
static_assert(offsetof(BitmapDesc, nColorOrder) == 52);
static_assert(offsetof(BitmapDesc, pPalette) == 56);
static_assert(offsetof(BitmapDesc, nChangeCount) == 64);
static_assert(offsetof(BitmapDesc, nDataKind) == 68);
static_assert(offsetof(BitmapDesc, pRegion) == 72);
static_assert(offsetof(BitmapDesc, pData) == 80);
static_assert(offsetof(BitmapDesc, pMetadata) == 88);
static_assert(offsetof(BitmapDesc, nLowBit) == 104);
static_assert(offsetof(BitmapDesc, nHighBit) == 108);
static_assert(offsetof(BitmapDesc, pLUT) == 112);
static_assert(offsetof(BitmapDesc, nLUTLength) == 112 + sizeof(void *));
static_assert(sizeof(RzRGBQuad) == 4);

namespace krn {

int32_t ComputeLayout(int64_t width, int64_t height, int bits, uint32_t *stride, size_t *total) {
    if (!IsKnownDepth(bits))
        return KRN_BAD_BITS;
    if (width < 0 || height < 0 || width > kMaxDimension || height > kMaxDimension ||
        uint64_t(width) * uint64_t(height) > kMaxPixels)
        return KRN_INVALID_PARAMETER;
    uint64_t rowBytes = (uint64_t(width) * unsigned(bits) + 31) / 32 * 4;
    if (rowBytes > uint64_t(INT32_MAX))
        return KRN_INVALID_PARAMETER;
    size_t bytes = KrnCheckedSize(size_t(rowBytes), size_t(height), 1);
    if ((bytes == 0 && rowBytes != 0 && height != 0) || bytes > kMaxImageBytes)
        return KRN_INVALID_PARAMETER;
    if (stride)
        *stride = uint32_t(rowBytes);
    if (total)
        *total = bytes;
    return KRN_OK;
}

int32_t CheckGeometry(const BitmapDesc *b) {
    int view = b->nViewPerspective;
    if (view < 1 || view > 8 || b->nStoredWidth < 0 || b->nStoredHeight < 0)
        return KRN_NO_BITMAP;
    if (b->nWidth != ViewWidth(b, view) || b->nHeight != ViewHeight(b, view))
        return KRN_NO_BITMAP;
    uint32_t minStride = 0;
    if (ComputeLayout(b->nStoredWidth, b->nStoredHeight, b->nBitsPerPixel, &minStride, nullptr) != KRN_OK)
        return KRN_NO_BITMAP;
    if (b->nStride < PackedBytes(b->nStoredWidth, b->nBitsPerPixel) || b->nStride > uint32_t(INT32_MAX) ||
        uint64_t(b->nStride) * uint64_t(b->nStoredHeight) > kMaxImageBytes)
        return KRN_NO_BITMAP;
    if (b->nColors < 0 || b->nColors > 256)
        return KRN_NO_BITMAP;
    return KRN_OK;
}

void FillGrayRamp(RzRGBQuad *entries, int count) {
    for (int i = 0; i < count; ++i) {
        uint8_t v = count > 1 ? uint8_t((i * 255 + (count - 1) / 2) / (count - 1)) : 0;
        entries[i] = RzRGBQuad{v, v, v, 0};
    }
}

RzRGBQuad *NewGrayPalette(int bits) {
    auto *pal = static_cast<RzRGBQuad *>(KrnMemAllocZeroed(256 * sizeof(RzRGBQuad), 1));
    if (pal)
        FillGrayRamp(pal, 1 << bits);
    return pal;
}

} // namespace krn

using namespace krn;

namespace {

bool DescOk(const BitmapDesc *b) { return b && b->uStructSize == BITMAPDESC_SIZE; }

// The first two checks of every service taking a descriptor.
int32_t DescStatus(const BitmapDesc *b) {
    if (!b)
        return KRN_NULL_POINTER;
    return b->uStructSize == BITMAPDESC_SIZE ? KRN_OK : KRN_BAD_STRUCT_SIZE;
}

bool HasPaletteDepth(int bits) { return bits >= 1 && bits <= 8; }

int32_t CheckPixelAccess(const BitmapDesc *b, int32_t x, int32_t y) {
    int32_t st = KrnValidateBitmap(b);
    if (st != KRN_OK)
        return st;
    if (x < 0 || y < 0 || x >= b->nWidth || y >= b->nHeight)
        return KRN_INVALID_PARAMETER;
    return KRN_OK;
}

// Stored position of view pixel (x, y).
uint8_t *StoredPixelRow(const BitmapDesc *b, int32_t x, int32_t y, int64_t *sx) {
    ViewMap m = MakeViewMap(b->nViewPerspective, b->nStoredWidth, b->nStoredHeight);
    *sx = m.ax + m.bx * x + m.cx * y;
    int64_t sy = m.ay + m.by * x + m.cy * y;
    return b->pData + size_t(sy) * b->nStride;
}

bool SwapsChannels(const BitmapDesc *b) { return b->nBitsPerPixel >= 24 && b->nColorOrder == KRN_ORDER_BGR; }

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnInitBitmap(BitmapDesc *pBitmap, uint32_t uStructSize, int32_t nWidth, int32_t nHeight,
                                      int32_t nBitsPerPixel) {
    if (!pBitmap)
        return KRN_NULL_POINTER;
    if (uStructSize != BITMAPDESC_SIZE)
        return KRN_BAD_STRUCT_SIZE;
    uint32_t stride = 0;
    int32_t st = ComputeLayout(nWidth, nHeight, nBitsPerPixel, &stride, nullptr);
    std::memset(static_cast<void *>(pBitmap), 0, sizeof(BitmapDesc));
    pBitmap->uStructSize = BITMAPDESC_SIZE;
    pBitmap->nViewPerspective = 1;
    pBitmap->nHighBit = -1;
    if (st != KRN_OK)
        return st;
    RzRGBQuad *palette = nullptr;
    if (HasPaletteDepth(nBitsPerPixel) && !(palette = NewGrayPalette(nBitsPerPixel)))
        return KRN_FAILURE;
    pBitmap->nWidth = nWidth;
    pBitmap->nHeight = nHeight;
    pBitmap->nBitsPerPixel = nBitsPerPixel;
    pBitmap->nStride = stride;
    pBitmap->nStoredWidth = nWidth;
    pBitmap->nStoredHeight = nHeight;
    pBitmap->nColors = palette ? 1 << nBitsPerPixel : 0;
    pBitmap->nColorOrder = (nBitsPerPixel == 12 || nBitsPerPixel == 16) ? KRN_ORDER_GRAY : KRN_ORDER_BGR;
    pBitmap->pPalette = palette;
    return KRN_OK;
}

// The stored size follows nWidth / nHeight and the view, so a caller may set
// the view size of an initialised descriptor before allocating.
RZKRN_API int32_t RZAPI KrnAllocBitmap(BitmapDesc *pBitmap) {
    if (const int32_t desc = DescStatus(pBitmap); desc != KRN_OK)
        return desc;
    int view = pBitmap->nViewPerspective;
    if (view < 1 || view > 8)
        return KRN_INVALID_PARAMETER;
    bool transposed = ViewIsTransposed(view);
    int32_t storedW = transposed ? pBitmap->nHeight : pBitmap->nWidth;
    int32_t storedH = transposed ? pBitmap->nWidth : pBitmap->nHeight;
    uint32_t stride = 0;
    size_t total = 0;
    int32_t st = ComputeLayout(storedW, storedH, pBitmap->nBitsPerPixel, &stride, &total);
    if (st != KRN_OK)
        return st;
    void *pixels = AllocPixelBlock(total);
    if (!pixels)
        return KRN_FAILURE;
    if (pBitmap->uFlags & BMF_ALLOCATED)
        KrnMemFree(pBitmap->pData);
    pBitmap->pData = static_cast<uint8_t *>(pixels);
    pBitmap->nStride = stride;
    pBitmap->nStoredWidth = storedW;
    pBitmap->nStoredHeight = storedH;
    pBitmap->uFlags |= BMF_ALLOCATED;
    return KRN_OK;
}

RZKRN_API void RZAPI KrnFreeBitmap(BitmapDesc *pBitmap) {
    if (!DescOk(pBitmap))
        return;
    if (pBitmap->uFlags & BMF_ALLOCATED)
        KrnMemFree(pBitmap->pData);
    pBitmap->pData = nullptr;
    pBitmap->uFlags &= ~(BMF_ALLOCATED | BMF_USE_LUT);
    KrnMemFree(pBitmap->pPalette);
    pBitmap->pPalette = nullptr;
    pBitmap->nColors = 0;
    KrnMemFreeHandle(pBitmap->pLUT);
    pBitmap->pLUT = nullptr;
    pBitmap->nLUTLength = 0;
    FreeMetadata(pBitmap);
    if (void *region = pBitmap->pRegion) {
        pBitmap->pRegion = nullptr;
        auto *header = static_cast<KrnRegionHeader *>(region);
        if (header->pfnDestroy)
            header->pfnDestroy(region);
    }
}

RZKRN_API void RZAPI KrnReleaseBitmapAccess(BitmapDesc *pBitmap) { KrnFreeBitmap(pBitmap); }

namespace {
// pDest becomes a copy of pSrc's descriptor owning `pixels` and copies of
// the palette and display table; no region, fresh state. pDest is untouched
// on failure.
int32_t CopyDescriptorWith(BitmapDesc *pDest, const BitmapDesc *pSrc, Block pixels) {
    Block palette, lut;
    if (pSrc->pPalette) {
        palette = Block(KrnMemAlloc(256 * sizeof(RzRGBQuad)));
        if (!palette)
            return KRN_FAILURE;
        std::memcpy(palette.get(), pSrc->pPalette, 256 * sizeof(RzRGBQuad));
    }
    if (pSrc->pLUT && pSrc->nLUTLength) {
        lut = Block(KrnMemAllocHandle(size_t(pSrc->nLUTLength) * sizeof(RzRGBQuad)));
        if (!lut)
            return KRN_FAILURE;
        std::memcpy(lut.get(), pSrc->pLUT, size_t(pSrc->nLUTLength) * sizeof(RzRGBQuad));
    }
    void *metadata = nullptr;
    if (CloneMetadata(&metadata, pSrc) != KRN_OK)
        return KRN_FAILURE;
    std::memmove(static_cast<void *>(pDest), pSrc, sizeof(BitmapDesc));
    pDest->pMetadata = metadata;
    pDest->pData = pixels.release<uint8_t>();
    pDest->pPalette = palette.release<RzRGBQuad>();
    pDest->pLUT = lut.release<RzRGBQuad>();
    if (!pDest->pLUT) {
        pDest->nLUTLength = 0;
        pDest->uFlags &= ~BMF_USE_LUT;
    }
    if (!pDest->pPalette)
        pDest->nColors = 0;
    pDest->pRegion = nullptr;
    pDest->uKernelState = 0;
    return KRN_OK;
}
} // namespace

// A source without pixels copies as a descriptor with its palette and table.
RZKRN_API int32_t RZAPI KrnCopyBitmap(BitmapDesc *pDest, const BitmapDesc *pSrc, uint32_t uStructSize) {
    if (!pDest || !pSrc)
        return KRN_NULL_POINTER;
    if (uStructSize != BITMAPDESC_SIZE || pSrc->uStructSize != BITMAPDESC_SIZE)
        return KRN_BAD_STRUCT_SIZE;
    if (pDest == pSrc)
        return KRN_INVALID_PARAMETER;
    const bool hasPixels = (pSrc->uFlags & BMF_ALLOCATED) != 0;
    size_t total = 0;
    if (hasPixels) {
        int32_t st = KrnValidateBitmap(pSrc);
        if (st != KRN_OK)
            return st;
        total = size_t(pSrc->nStride) * size_t(pSrc->nStoredHeight);
    }
    Block pixels;
    if (hasPixels) {
        pixels = Block(KrnMemAlloc(total ? total : 4));
        if (!pixels)
            return KRN_FAILURE;
        std::memcpy(pixels.get(), pSrc->pData, total);
    }
    return CopyDescriptorWith(pDest, pSrc, std::move(pixels));
}

RZKRN_API int32_t RZAPI KrnValidateBitmap(const BitmapDesc *pBitmap) {
    if (const int32_t desc = DescStatus(pBitmap); desc != KRN_OK)
        return desc;
    if (!(pBitmap->uFlags & BMF_ALLOCATED) || !pBitmap->pData)
        return KRN_NO_BITMAP;
    if (!IsKnownDepth(pBitmap->nBitsPerPixel))
        return KRN_BAD_PIXEL_FORMAT;
    return CheckGeometry(pBitmap);
}

RZKRN_API int32_t RZAPI KrnIsGrayscale(const BitmapDesc *pBitmap) {
    if (!DescOk(pBitmap))
        return 0;
    if (pBitmap->nColorOrder == KRN_ORDER_GRAY)
        return 1;
    int bits = pBitmap->nBitsPerPixel;
    if (!HasPaletteDepth(bits) || !pBitmap->pPalette || pBitmap->nColors != (1 << bits))
        return 0;
    RzRGBQuad ramp[256];
    FillGrayRamp(ramp, 1 << bits);
    for (int i = 0; i < (1 << bits); ++i) {
        const RzRGBQuad &e = pBitmap->pPalette[i];
        if (e.rgbRed != ramp[i].rgbRed || e.rgbGreen != ramp[i].rgbRed || e.rgbBlue != ramp[i].rgbRed)
            return 0;
    }
    return 1;
}

RZKRN_API uint32_t RZAPI KrnBitmapRowBytes(const BitmapDesc *pBitmap) {
    if (!DescOk(pBitmap) || !IsKnownDepth(pBitmap->nBitsPerPixel) || pBitmap->nWidth < 0)
        return 0;
    uint64_t bytes = PackedBytes(pBitmap->nWidth, pBitmap->nBitsPerPixel);
    return bytes > UINT32_MAX ? 0 : uint32_t(bytes);
}

RZKRN_API int32_t RZAPI KrnSetGrayPalette(BitmapDesc *pBitmap) {
    if (const int32_t desc = DescStatus(pBitmap); desc != KRN_OK)
        return desc;
    int bits = pBitmap->nBitsPerPixel;
    if (!HasPaletteDepth(bits))
        return KRN_BAD_PIXEL_FORMAT;
    if (!pBitmap->pPalette) {
        if (!(pBitmap->pPalette = NewGrayPalette(bits)))
            return KRN_FAILURE;
    } else {
        FillGrayRamp(pBitmap->pPalette, 1 << bits);
    }
    pBitmap->nColors = 1 << bits;
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnGetBitmapPalette(const BitmapDesc *pBitmap, int32_t nFirst, int32_t nCount,
                                            RzRGBQuad *pEntries) {
    if (const int32_t desc = DescStatus(pBitmap); desc != KRN_OK)
        return desc;
    if (!pBitmap->pPalette || pBitmap->nColors <= 0 || pBitmap->nColors > 256)
        return KRN_NO_BITMAP;
    if (!pEntries || nFirst < 0 || nCount < 0)
        return KRN_INVALID_PARAMETER;
    int32_t n = nFirst >= pBitmap->nColors ? 0 : std::min(nCount, pBitmap->nColors - nFirst);
    if (n > 0)
        std::memcpy(pEntries, pBitmap->pPalette + nFirst, size_t(n) * sizeof(RzRGBQuad));
    return n;
}

// Writing past nColors extends it; entries must stay within the depth's
// 2^bits indices.
RZKRN_API int32_t RZAPI KrnSetBitmapPalette(BitmapDesc *pBitmap, int32_t nFirst, int32_t nCount,
                                            const RzRGBQuad *pEntries) {
    if (const int32_t desc = DescStatus(pBitmap); desc != KRN_OK)
        return desc;
    int bits = pBitmap->nBitsPerPixel;
    if (!HasPaletteDepth(bits))
        return KRN_BAD_PIXEL_FORMAT;
    if ((!pEntries && nCount > 0) || nFirst < 0 || nCount < 0 || nFirst > (1 << bits) - nCount)
        return KRN_INVALID_PARAMETER;
    if (!pBitmap->pPalette) {
        if (!(pBitmap->pPalette = static_cast<RzRGBQuad *>(KrnMemAllocZeroed(256 * sizeof(RzRGBQuad), 1))))
            return KRN_FAILURE;
        pBitmap->nColors = 0;
    }
    if (nCount > 0)
        std::memcpy(pBitmap->pPalette + nFirst, pEntries, size_t(nCount) * sizeof(RzRGBQuad));
    pBitmap->nColors = std::clamp(std::max(pBitmap->nColors, nFirst + nCount), 0, 256);
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnSetPaletteForDepth(BitmapDesc *pBitmap, const RzRGBQuad *pEntries, int32_t nCount,
                                              int32_t nBitsPerPixel, int32_t) {
    if (const int32_t desc = DescStatus(pBitmap); desc != KRN_OK)
        return desc;
    // The descriptor may be any depth: the row context's 24-bit temporary
    // carries the palette its rows are matched against.
    if (!HasPaletteDepth(nBitsPerPixel))
        return KRN_BAD_PIXEL_FORMAT;
    if (nCount < 0 || nCount > (1 << nBitsPerPixel) || (!pEntries && nCount > 0))
        return KRN_INVALID_PARAMETER;
    if (!pBitmap->pPalette &&
        !(pBitmap->pPalette = static_cast<RzRGBQuad *>(KrnMemAllocZeroed(256 * sizeof(RzRGBQuad), 1))))
        return KRN_FAILURE;
    std::memset(pBitmap->pPalette, 0, 256 * sizeof(RzRGBQuad));
    if (nCount > 0)
        std::memcpy(pBitmap->pPalette, pEntries, size_t(nCount) * sizeof(RzRGBQuad));
    pBitmap->nColors = nCount;
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnGetPixel(const BitmapDesc *pBitmap, int32_t x, int32_t y, uint64_t *pValue) {
    int32_t st = CheckPixelAccess(pBitmap, x, y);
    if (st != KRN_OK)
        return st;
    if (!pValue)
        return KRN_INVALID_PARAMETER;
    int64_t sx = 0;
    const uint8_t *row = StoredPixelRow(pBitmap, x, y, &sx);
    uint64_t v = GetSample(row, pBitmap->nBitsPerPixel, size_t(sx));
    *pValue = SwapsChannels(pBitmap) ? SwapRedBlue(v, pBitmap->nBitsPerPixel) : v;
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnSetPixel(BitmapDesc *pBitmap, int32_t x, int32_t y, uint64_t uValue) {
    int32_t st = CheckPixelAccess(pBitmap, x, y);
    if (st != KRN_OK)
        return st;
    int64_t sx = 0;
    uint8_t *row = StoredPixelRow(pBitmap, x, y, &sx);
    if (SwapsChannels(pBitmap))
        uValue = SwapRedBlue(uValue, pBitmap->nBitsPerPixel);
    SetSample(row, pBitmap->nBitsPerPixel, size_t(sx), uValue);
    return KRN_OK;
}

RZKRN_API uint32_t RZAPI KrnSaveBitmapState(BitmapDesc *pBitmap) {
    if (!DescOk(pBitmap))
        return 0;
    uint32_t state = pBitmap->uKernelState;
    pBitmap->uKernelState = state | 1u;
    return state;
}

RZKRN_API void RZAPI KrnRestoreBitmapState(BitmapDesc *pBitmap, uint32_t uState) {
    if (DescOk(pBitmap))
        pBitmap->uKernelState = uState;
}

RZKRN_API void RZAPI KrnBitmapChanged(BitmapDesc *pBitmap) {
    if (DescOk(pBitmap))
        pBitmap->nChangeCount = int32_t(uint32_t(pBitmap->nChangeCount) + 1u);
}

// With a destination the pixels are re-stored so that the destination's view
// 1 shows what pBitmap shows in nViewPerspective. pDest may be pBitmap: then
// only the pixel block is replaced (palette and table stay) and the region,
// kept in the old stored coordinates, is released.
RZKRN_API int32_t RZAPI KrnChangeViewPerspective(BitmapDesc *pDest, BitmapDesc *pBitmap, uint32_t uStructSize,
                                                 int32_t nViewPerspective, int32_t) {
    if (!pBitmap)
        return KRN_NULL_POINTER;
    if (uStructSize != BITMAPDESC_SIZE || pBitmap->uStructSize != BITMAPDESC_SIZE)
        return KRN_BAD_STRUCT_SIZE;
    if (nViewPerspective < 1 || nViewPerspective > 8)
        return KRN_INVALID_PARAMETER;
    if (!pDest) {
        int old = pBitmap->nViewPerspective;
        if (old < 1 || old > 8)
            old = 1;
        if (ViewIsTransposed(old) != ViewIsTransposed(nViewPerspective))
            std::swap(pBitmap->nWidth, pBitmap->nHeight);
        pBitmap->nViewPerspective = nViewPerspective;
        return KRN_OK;
    }
    int32_t st = KrnValidateBitmap(pBitmap);
    if (st != KRN_OK)
        return st;
    const int bits = pBitmap->nBitsPerPixel;
    const int64_t w = ViewWidth(pBitmap, nViewPerspective), h = ViewHeight(pBitmap, nViewPerspective);
    uint32_t stride = 0;
    size_t total = 0;
    if ((st = ComputeLayout(w, h, bits, &stride, &total)) != KRN_OK)
        return st;
    Block pixels(AllocPixelBlock(total));
    if (!pixels)
        return KRN_FAILURE;
    for (int64_t y = 0; y < h; ++y)
        ReadViewRow(pBitmap, nViewPerspective, pixels.get() + size_t(y) * stride, y, 0, stride);

    if (pDest == pBitmap) {
        KrnMemFree(pBitmap->pData);
        pBitmap->pData = pixels.release<uint8_t>();
        if (void *region = pBitmap->pRegion) {
            pBitmap->pRegion = nullptr;
            auto *header = static_cast<KrnRegionHeader *>(region);
            if (header->pfnDestroy)
                header->pfnDestroy(region);
        }
    } else {
        const int32_t copied = CopyDescriptorWith(pDest, pBitmap, std::move(pixels));
        if (copied != KRN_OK)
            return copied;
    }
    pDest->nStride = stride;
    pDest->nStoredWidth = int32_t(w);
    pDest->nStoredHeight = int32_t(h);
    pDest->nWidth = int32_t(w);
    pDest->nHeight = int32_t(h);
    pDest->nViewPerspective = 1;
    return KRN_OK;
}

} // extern "C"
