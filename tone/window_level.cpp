// Deep grey: which bits the samples use, window levelling and scaling.
//
// The bits in use are the OR of every raw sample: its lowest set bit is the
// lowest any sample has, its highest the highest. Window levelling only sets
// the bitmap's significant range and display table and lets the kernel
// reduce the samples through them (8-bit grey, or 24-bit colour when the
// table has colour). Scaling is a table for the table engine.
#include "frame/kmem.h"
#include "frame/region_walk.h"
#include "frame/status.h"
#include "tone/table_engine.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rz {
namespace {

struct BitsUsed {
    int32_t low = 0, high = 0;
};

BitsUsed FromOr(uint32_t bits) {
    if (bits == 0) return {};
    return {std::countr_zero(bits), static_cast<int32_t>(std::bit_width(bits)) - 1};
}

int32_t ScanBits(BitmapDesc *bmp, uint32_t &used) {
    const int32_t depth = bmp->nBitsPerPixel;
    if (depth == 16)
        return WalkRegion(bmp, RC_RAW_DEEP_GRAY, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            uint32_t acc = 0;
            for (int32_t x = x0; x < x1; ++x) acc |= row[2 * x] | row[2 * x + 1] << 8;
            used |= acc;
        });
    if (depth == 12)
        return WalkRegion(bmp, RC_RAW_DEEP_GRAY, [&](const uint8_t *row, int32_t x0, int32_t x1) {
            for (int32_t x = x0; x < x1; ++x) {
                const uint8_t *p = row + 3 * (x >> 1);
                used |= (x & 1) ? (p[1] | p[2] << 8) >> 4 : (p[0] | p[1] << 8) & 0xFFF;
            }
        });
    return WalkRegion(bmp, RC_WORK8, [&](const uint8_t *row, int32_t x0, int32_t x1) {
        for (int32_t x = x0; x < x1; ++x) used |= row[x];
    });
}

bool AllGrey(const RzRGBQuad *t, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i)
        if (t[i].rgbBlue != t[i].rgbGreen || t[i].rgbBlue != t[i].rgbRed) return false;
    return true;
}

} // namespace
} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_GetMinMaxBits(BitmapDesc *bmp, int32_t *pLow, int32_t *pHigh) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        if (!(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
        if (bmp->nColorOrder != KRN_ORDER_GRAY) return ST_INVALID_PARAMETER;
        uint32_t used = 0;
        // Written on every path from here on, with what was seen so far.
        struct Outputs {
            int32_t *low, *high;
            const uint32_t &used;
            ~Outputs() {
                const BitsUsed b = FromOr(used);
                if (low) *low = b.low;
                if (high) *high = b.high;
            }
        } outputs{pLow, pHigh, used};
        const int32_t st = ScanBits(bmp, used);
        if (st != ST_NOTHING_TO_DO) return st;
        const int32_t done = ReportDone(bmp);
        return done == 1 ? ST_EMPTY_REGION : done;
    });
}

RZIMG_API int32_t RZAPI Rz_WindowLevelBitmap(BitmapDesc *bmp, int32_t lowBit, int32_t highBit,
                                            const RzRGBQuad *table, uint32_t count, uint32_t mode) {
    return Guard([&] {
        if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
        if (bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
        // A descriptor the kernel cannot address is refused before it is changed.
        RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
        const int32_t top = bmp->nBitsPerPixel - 1;
        if (bmp->nHighBit == -1) bmp->nHighBit = top;
        if (bmp->nColorOrder != KRN_ORDER_GRAY || mode > 1) return ST_INVALID_PARAMETER;
        bmp->nLowBit = lowBit < 0 ? 0 : lowBit;
        bmp->nHighBit = highBit < 0 ? top : highBit;
        if (bmp->nLowBit > bmp->nHighBit || bmp->nHighBit > top) return ST_INVALID_PARAMETER;
        if ((count != 0 && !table) || count > RZ_MAX_RECORDS) return ST_INVALID_PARAMETER;
        if (bmp->pLUT && bmp->pLUT != table) {
            KrnMemFreeHandle(bmp->pLUT);
            bmp->pLUT = nullptr;
            bmp->nLUTLength = 0;
            bmp->uFlags &= ~BMF_USE_LUT;
        }
        if (!table || count == 0) {
            bmp->pLUT = nullptr;
            bmp->nLUTLength = 0;
            bmp->uFlags &= ~BMF_USE_LUT;
            return KrnApplyBitmapLUT(bmp, 8);
        }
        if (bmp->pLUT != table) {
            const size_t bytes = KrnCheckedSize(count, sizeof(RzRGBQuad), 1);
            auto *copy = bytes ? static_cast<RzRGBQuad *>(KrnMemAllocHandle(bytes)) : nullptr;
            if (!copy) return ST_FAILURE;
            std::memcpy(copy, table, bytes);
            bmp->pLUT = copy;
        }
        bmp->nLUTLength = count;
        bmp->uFlags |= BMF_USE_LUT;
        if (!AllGrey(bmp->pLUT, count))
            return KrnConvertBitmap(bmp, bmp, BITMAPDESC_SIZE, 24, mode == 1 ? KRN_ORDER_BGR_ALT : KRN_ORDER_RGB, 0, 0);
        return KrnApplyBitmapLUT(bmp, 8);
    });
}

RZIMG_API int32_t RZAPI Rz_MultiplyBitmap(BitmapDesc *bmp, uint32_t factor) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        const uint32_t n = TableSize(bmp);
        if (n == 0) return ST_INVALID_PARAMETER;
        KrnPtr<uint32_t[]> table = KrnArray<uint32_t>(n);
        if (!table) return ST_FAILURE;
        const uint32_t max = n - 1;
        for (uint32_t i = 0; i < n; ++i) table[i] = std::min((i * factor) / 100, max);
        if (bmp->uFlags & BMF_SIGNED) RZ_RETURN_IF_FAILED(MakeTableSigned(table.get(), n));
        return ApplyTable(bmp, table.get(), n, RZ_CHANNEL_ALL, 0, 100);
    });
}

} // extern "C"
