// Point operations: each fills one table of TableSize entries and hands it
// to the table engine over the progress range 0..100. Signed samples get the
// table re-indexed by two's-complement value.
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "tone/table_engine.h"

#include <algorithm>
#include <cmath>

namespace rz {
namespace {

using Table = KrnPtr<uint32_t[]>;

// Builds the table with `fill(table, n)` and applies it.
template <class Fill> int32_t RunTable(BitmapDesc *bmp, uint32_t n, bool makeSigned, Fill &&fill) {
    Table table = KrnArray<uint32_t>(n);
    if (!table) return ST_FAILURE;
    fill(table.get(), n);
    if (makeSigned && (bmp->uFlags & BMF_SIGNED)) RZ_RETURN_IF_FAILED(MakeTableSigned(table.get(), n));
    return ApplyTable(bmp, table.get(), n, RZ_CHANNEL_ALL, 0, 100);
}

void FillContrast(uint32_t *t, uint32_t n, int32_t change) {
    const int32_t a = change < 0 ? -change : change;
    const int32_t low = MulDiv(a, 128, 4000);
    const int32_t k = static_cast<int32_t>(5.34 * std::pow(1.5, std::log2(0.128 * a)));
    const int32_t high = std::max(256 - k, low);
    const int64_t scale = n / 256;
    const int64_t L = scale * low, H = scale * high;
    const int32_t N = static_cast<int32_t>(n);
    for (int64_t i = 0; i < n; ++i) {
        int64_t v;
        if (change > 0) {
            if (i < L)
                v = 0;
            else if (i < H)
                v = std::clamp<int64_t>(MulDiv(static_cast<int32_t>(i - L), N, static_cast<int32_t>(H - L)), 0, N);
            else
                v = N - 1;
        } else {
            v = std::clamp<int64_t>(MulDiv(static_cast<int32_t>(i), static_cast<int32_t>(H - L), N), 0, H) + L;
        }
        t[i] = static_cast<uint32_t>(v);
    }
}

} // namespace
} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_InvertBitmap(BitmapDesc *bmp) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        const uint32_t n = (bmp->pLUT && (bmp->uFlags & BMF_USE_LUT)) ? 256 : TableSize(bmp);
        return RunTable(bmp, n, false, [](uint32_t *t, uint32_t n) {
            for (uint32_t i = 0; i < n; ++i) t[i] = n - 1 - i;
        });
    });
}

RZIMG_API int32_t RZAPI Rz_ChangeBitmapIntensity(BitmapDesc *bmp, int32_t change) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        if (change < -1000 || change > 1000) return ST_INVALID_PARAMETER;
        return RunTable(bmp, TableSize(bmp), true, [change](uint32_t *t, uint32_t n) {
            const int64_t max = n - 1;
            const int64_t offset = (max * change + 500) / 1000;
            for (int64_t i = 0; i < n; ++i) t[i] = static_cast<uint32_t>(std::clamp<int64_t>(i + offset, 0, max));
        });
    });
}

RZIMG_API int32_t RZAPI Rz_ChangeBitmapContrast(BitmapDesc *bmp, int32_t change) {
    return Guard([&] {
        if (change < -1000 || change > 1000) return ST_INVALID_PARAMETER;
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        if (change == 0) return ReportDone(bmp);
        return RunTable(bmp, TableSize(bmp), true,
                        [change](uint32_t *t, uint32_t n) { FillContrast(t, n, change); });
    });
}

RZIMG_API int32_t RZAPI Rz_PosterizeBitmap(BitmapDesc *bmp, uint32_t levels) {
    return Guard([&] {
        if (levels < 2) return ST_INVALID_PARAMETER;
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        return RunTable(bmp, TableSize(bmp), true, [levels](uint32_t *t, uint32_t n) {
            const uint64_t max = n - 1;
            if (max == 0) {
                t[0] = 0;
                return;
            }
            const uint64_t step = static_cast<uint64_t>(n) * levels / max - 1;
            for (uint64_t i = 0; i < n; ++i) {
                const uint64_t q = (n / 2 + i * step) / max;
                t[i] = static_cast<uint32_t>((q * max + step / 2) / step);
            }
        });
    });
}

RZIMG_API int32_t RZAPI Rz_SolarizeBitmap(BitmapDesc *bmp, uint32_t threshold) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        const uint32_t n = TableSize(bmp);
        if (n != 256 && n != 4096 && n != 65536) return ST_INVALID_PARAMETER;
        const bool grey12 = bmp->nColorOrder == KRN_ORDER_GRAY && bmp->nBitsPerPixel == 12;
        if (grey12 && threshold >= 4096) return ST_INVALID_PARAMETER;
        if (threshold > 65535) return ST_INVALID_PARAMETER;
        return RunTable(bmp, n, true, [threshold](uint32_t *t, uint32_t n) {
            const uint32_t top = n - 1;
            for (uint32_t i = 0; i < n; ++i) t[i] = i >= threshold ? (i ^ top) : i;
        });
    });
}

RZIMG_API int32_t RZAPI Rz_GammaCorrectBitmap(BitmapDesc *bmp, uint32_t gamma) {
    return Guard([&] {
        if (gamma == 0) return ST_INVALID_PARAMETER;
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        return RunTable(bmp, TableSize(bmp), true, [gamma](uint32_t *t, uint32_t n) {
            const double max = n - 1.0;
            const double e = 100.0 / gamma;
            for (uint32_t i = 0; i < n; ++i)
                t[i] = max > 0 ? static_cast<uint32_t>(max * std::pow(i / max, e) + 0.5) : 0;
        });
    });
}

RZIMG_API int32_t RZAPI Rz_RemapBitmapIntensity(BitmapDesc *bmp, const uint32_t *table, uint32_t count,
                                               uint32_t channel) {
    return Guard([&] {
        // No null check here: the engine answers a null bitmap with -2.
        if (bmp && bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
        if (bmp && (bmp->uFlags & BMF_SIGNED)) return ST_SIGNED_NOT_SUPPORTED;
        if (!table || count == 0) return bmp ? ST_INVALID_PARAMETER : ST_NO_BITMAP;
        return ApplyTable(bmp, table, count, channel, 0, 100);
    });
}

} // extern "C"
