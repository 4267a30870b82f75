/*
 * region.cpp - the region object and the exported region services.
 *
 * A region is a run table over the stored picture (one row of runs per
 * stored row), hung on BitmapDesc::pRegion behind a KrnRegionHeader so the
 * kernel can free it. Builders rasterise their shape in the current view,
 * turn that table into stored orientation (transpose for views 5-8, then
 * row reversal / run mirroring), and merge it with the old region row by
 * row. View rows of views 1-4 are stored rows, possibly mirrored; those of
 * views 5-8 are stored columns, answered from a transposed table that is
 * built on first use and kept with the region. Every answer is a direct
 * index (plus a binary search for a single point).
 */
#include "rzdis.h"

#include "runs.h"
#include "shapes.h"

#include <algorithm>
#include <cstddef>
#include <atomic>
#include <mutex>
#include <new>
#include <type_traits>

using namespace rzdis;

namespace {

struct Region {
    KrnRegionHeader header;
    int32_t width;  /* stored grid the region was built for */
    int32_t height;
    size_t maxRowRuns;
    size_t maxColRuns;
    RzRect bounds; /* stored coordinates; all zero when empty */
    RunTable rows;
    /* Built on first use; operations may ask for rows from several threads. */
    std::atomic<bool> columnsReady;
    std::mutex columnsLock;
    RunTable columns;
};

static_assert(std::is_standard_layout_v<Region>, "the header must sit at offset 0");
static_assert(offsetof(Region, header) == 0, "the header must sit at offset 0");

void RZAPI destroyRegion(void *p) {
    auto *r = static_cast<Region *>(p);
    r->~Region();
    KrnMemFree(r);
}


/* Only regions made here can be read; another module's object is left to
 * its own destroy function. */
Region *regionOf(const BitmapDesc *b) {
    auto *h = static_cast<KrnRegionHeader *>(b->pRegion);
    if (!h || h->pfnDestroy != &destroyRegion)
        return nullptr;
    return reinterpret_cast<Region *>(h);
}

/* Stored pixel of view (x, y) is (fx ? PW-1-x' : x', fy ? PH-1-y' : y')
 * where (x', y') is (x, y), or (y, x) when transposed. */
struct View {
    int32_t w, h;   /* view size */
    int32_t pw, ph; /* stored size */
    bool transposed, flipX, flipY;
};

int32_t viewOf(const BitmapDesc *b, View &v) {
    static constexpr bool kFlipX[8] = {false, true, true, false, false, true, true, false};
    static constexpr bool kFlipY[8] = {false, false, true, true, false, false, true, true};
    if (!b)
        return KRN_NULL_POINTER;
    if (b->uStructSize != BITMAPDESC_SIZE)
        return KRN_BAD_STRUCT_SIZE;
    const int32_t vp = b->nViewPerspective;
    if (vp < 1 || vp > 8 || b->nWidth < 0 || b->nHeight < 0)
        return KRN_INVALID_PARAMETER;
    v.w = b->nWidth;
    v.h = b->nHeight;
    v.transposed = vp >= 5;
    v.flipX = kFlipX[vp - 1];
    v.flipY = kFlipY[vp - 1];
    v.pw = v.transposed ? v.h : v.w;
    v.ph = v.transposed ? v.w : v.h;
    return KRN_OK;
}

template <class F>
int32_t guarded(F &&f) noexcept {
    try {
        return f();
    } catch (...) {
        return KRN_FAILURE;
    }
}

Region *makeRegion(RunTable &&rows) {
    void *mem = KrnMemAlloc(sizeof(Region));
    if (!mem)
        return nullptr;
    auto *r = new (mem) Region{};
    r->header.pfnDestroy = &destroyRegion;
    r->rows = std::move(rows);
    r->width = r->rows.width;
    r->height = r->rows.rows;
    int32_t x0 = r->width, x1 = 0, y0 = r->height, y1 = 0;
    for (int32_t y = 0; y < r->height; ++y) {
        const RowRuns rr = r->rows.row(y);
        if (!rr.count)
            continue;
        r->maxRowRuns = std::max(r->maxRowRuns, rr.count / 2);
        x0 = std::min(x0, rr.values[0]);
        x1 = std::max(x1, rr.values[rr.count - 1]);
        y0 = std::min(y0, y);
        y1 = y + 1;
    }
    if (y0 < y1)
        r->bounds = {x0, y0, x1, y1};
    Buf<size_t> counts;
    if (!columnRunCounts(r->rows, counts)) {
        destroyRegion(r);
        return nullptr;
    }
    for (size_t x = 0; x < counts.size(); ++x)
        r->maxColRuns = std::max(r->maxColRuns, counts[x]);
    return r;
}

/* Writes the runs of src clipped to [0, len), mirrored if asked; returns
 * the number of values. */
uint32_t emitRuns(RowRuns src, int32_t len, bool mirror, int32_t *out) {
    uint32_t n = 0;
    if (mirror) {
        for (size_t k = src.count; k >= 2; k -= 2) {
            const int32_t a = src.values[k - 2], b = std::min(src.values[k - 1], len);
            if (a < b) {
                out[n++] = len - b;
                out[n++] = len - a;
            }
        }
    } else {
        for (size_t k = 0; k + 1 < src.count; k += 2) {
            const int32_t a = src.values[k], b = std::min(src.values[k + 1], len);
            if (a < b) {
                out[n++] = a;
                out[n++] = b;
            }
        }
    }
    return n;
}

/* The view table of a shape, turned into stored orientation. */
int32_t toStored(RunTable &&viewTable, const View &v, RunTable &out) {
    RunTable t;
    if (v.transposed) {
        if (!transposeTable(viewTable, t))
            return KRN_FAILURE;
    } else {
        t = std::move(viewTable);
    }
    if (!v.flipX && !v.flipY) {
        out = std::move(t);
        return KRN_OK;
    }
    return reorientTable(t, v.flipY, v.flipX, out) ? KRN_OK : KRN_FAILURE;
}

/* Common path of the builders: validate, rasterise in the view, merge with
 * the old region, and swap the new one in only when everything worked. */
template <class Rasterise>
int32_t applyShape(BitmapDesc *b, int32_t combine, Rasterise &&rasterise) {
    View v;
    int32_t st = viewOf(b, v);
    if (st != KRN_OK)
        return st;
    if (combine < DIS_RGN_SET || combine > DIS_RGN_DIFF)
        return KRN_INVALID_PARAMETER;
    RunTable viewTable, shape;
    if ((st = rasterise(v, viewTable)) != KRN_OK)
        return st;
    if ((st = toStored(std::move(viewTable), v, shape)) != KRN_OK)
        return st;

    const Region *old = regionOf(b);
    RunTable result;
    /* Without a region the combine starts from an empty one. */
    if (combine == DIS_RGN_SET || (!old && (combine == DIS_RGN_OR || combine == DIS_RGN_XOR))) {
        result = std::move(shape);
    } else {
        static constexpr Op kOps[] = {Op::Or, Op::And, Op::Or, Op::Xor, Op::Diff};
        const Op op = kOps[combine];
        TableBuilder tb;
        if (!tb.begin(v.ph, v.pw))
            return KRN_FAILURE;
        for (int32_t y = 0; y < v.ph; ++y) {
            if (old)
                mergeRuns(old->rows.row(y), shape.row(y), op, [&](int32_t x0, int32_t x1) { tb.add(x0, x1); });
            tb.endRow();
        }
        if (!tb.finish(result))
            return KRN_FAILURE;
    }
    Region *made = makeRegion(std::move(result));
    if (!made)
        return KRN_FAILURE;
    DisFreeRegion(b);
    b->pRegion = made;
    return KRN_OK;
}

} // namespace

extern "C" {

RZDIS_API int32_t RZAPI DisBitmapHasRegion(const BitmapDesc *pBitmap) {
    return pBitmap && pBitmap->uStructSize == BITMAPDESC_SIZE && pBitmap->pRegion ? 1 : 0;
}

RZDIS_API int32_t RZAPI DisGetRegionBounds(const BitmapDesc *pBitmap, int32_t, RzRect *pRect) {
    View v;
    const int32_t st = viewOf(pBitmap, v);
    if (st != KRN_OK)
        return st;
    if (!pRect)
        return KRN_INVALID_PARAMETER;
    const Region *r = regionOf(pBitmap);
    if (!r) {
        *pRect = {0, 0, v.w, v.h};
        return KRN_OK;
    }
    /* The stored box, clipped in case the bitmap changed size beneath it. */
    const int32_t x0 = std::min(r->bounds.left, v.pw), x1 = std::min(r->bounds.right, v.pw);
    const int32_t y0 = std::min(r->bounds.top, v.ph), y1 = std::min(r->bounds.bottom, v.ph);
    if (x0 >= x1 || y0 >= y1) {
        *pRect = {0, 0, 0, 0};
        return KRN_OK;
    }
    const int32_t ax0 = v.flipX ? v.pw - x1 : x0, ax1 = v.flipX ? v.pw - x0 : x1;
    const int32_t ay0 = v.flipY ? v.ph - y1 : y0, ay1 = v.flipY ? v.ph - y0 : y1;
    *pRect = v.transposed ? RzRect{ay0, ax0, ay1, ax1} : RzRect{ax0, ay0, ax1, ay1};
    return KRN_OK;
}

RZDIS_API int32_t RZAPI DisGetRegionMaskSize(const BitmapDesc *pBitmap, uint32_t *pCount) {
    View v;
    const int32_t st = viewOf(pBitmap, v);
    if (st != KRN_OK)
        return st;
    if (!pCount)
        return KRN_INVALID_PARAMETER;
    const Region *r = regionOf(pBitmap);
    size_t runs = r ? std::max(r->maxRowRuns, r->maxColRuns) : 1;
    *pCount = static_cast<uint32_t>(std::clamp<size_t>(2 * runs, 2, UINT32_MAX - 1));
    return KRN_OK;
}

RZDIS_API int32_t RZAPI DisGetRegionRowSpans(const BitmapDesc *pBitmap, int32_t nRow, int32_t *pSpans,
                                             uint32_t *pCount) {
    return guarded([&]() -> int32_t {
        View v;
        const int32_t st = viewOf(pBitmap, v);
        if (st != KRN_OK)
            return st;
        if (!pSpans || !pCount || nRow < 0 || nRow >= v.h)
            return KRN_INVALID_PARAMETER;
        Region *r = regionOf(pBitmap);
        if (!r) {
            *pCount = 0;
            if (v.w > 0) {
                pSpans[0] = 0;
                pSpans[1] = v.w;
                *pCount = 2;
            }
            return KRN_OK;
        }
        if (!v.transposed) {
            const RowRuns src = r->rows.row(v.flipY ? v.ph - 1 - nRow : nRow);
            *pCount = emitRuns(src, v.pw, v.flipX, pSpans);
            return KRN_OK;
        }
        if (!r->columnsReady.load(std::memory_order_acquire)) {
            std::lock_guard<std::mutex> lock(r->columnsLock);
            if (!r->columnsReady.load(std::memory_order_relaxed)) {
                if (!transposeTable(r->rows, r->columns))
                    return KRN_FAILURE;
                r->columnsReady.store(true, std::memory_order_release);
            }
        }
        const RowRuns src = r->columns.row(v.flipX ? v.pw - 1 - nRow : nRow);
        *pCount = emitRuns(src, v.ph, v.flipY, pSpans);
        return KRN_OK;
    });
}

RZDIS_API int32_t RZAPI DisIsPtInRegion(const BitmapDesc *pBitmap, int32_t x, int32_t y) {
    View v;
    if (viewOf(pBitmap, v) != KRN_OK || x < 0 || y < 0 || x >= v.w || y >= v.h)
        return 0;
    const Region *r = regionOf(pBitmap);
    if (!r)
        return 1;
    int32_t sx = v.transposed ? y : x, sy = v.transposed ? x : y;
    if (v.flipX)
        sx = v.pw - 1 - sx;
    if (v.flipY)
        sy = v.ph - 1 - sy;
    const RowRuns rr = r->rows.row(sy);
    const int32_t *end = rr.values + rr.count;
    return (std::upper_bound(rr.values, end, sx) - rr.values) & 1 ? 1 : 0;
}

RZDIS_API int32_t RZAPI DisSetRegionRect(BitmapDesc *pBitmap, const RzRect *pRect, int32_t nCombine) {
    return guarded([&] {
        return applyShape(pBitmap, nCombine, [&](const View &v, RunTable &t) {
            return pRect ? rasteriseRect(*pRect, v.w, v.h, t) : KRN_INVALID_PARAMETER;
        });
    });
}

RZDIS_API int32_t RZAPI DisSetRegionEllipse(BitmapDesc *pBitmap, const RzRect *pRect, int32_t nCombine) {
    return guarded([&] {
        return applyShape(pBitmap, nCombine, [&](const View &v, RunTable &t) {
            return pRect ? rasteriseEllipse(*pRect, v.w, v.h, t) : KRN_INVALID_PARAMETER;
        });
    });
}

RZDIS_API int32_t RZAPI DisSetRegionPolygon(BitmapDesc *pBitmap, const RzPoint *pPoints, int32_t nCount,
                                            int32_t nFillMode, int32_t nCombine) {
    return guarded([&] {
        return applyShape(pBitmap, nCombine, [&](const View &v, RunTable &t) {
            if (nCount < 0 || nCount > DIS_MAX_POLYGON_POINTS || (nCount > 0 && !pPoints) ||
                (nFillMode != DIS_FILL_ALTERNATE && nFillMode != DIS_FILL_WINDING))
                return KRN_INVALID_PARAMETER;
            return rasterisePolygon(pPoints, nCount, nFillMode == DIS_FILL_WINDING, v.w, v.h, t);
        });
    });
}

RZDIS_API int32_t RZAPI DisSetRegionMask(BitmapDesc *pBitmap, const BitmapDesc *pMask, int32_t nCombine) {
    return guarded([&] {
        return applyShape(pBitmap, nCombine, [&](const View &v, RunTable &t) {
            View mv;
            const int32_t st = viewOf(pMask, mv);
            if (st != KRN_OK)
                return st;
            if (!(pMask->uFlags & BMF_ALLOCATED) || !pMask->pData)
                return KRN_NO_BITMAP;
            switch (pMask->nBitsPerPixel) {
            case 1: case 2: case 3: case 4: case 5: case 6: case 7: case 8:
            case 12: case 16: case 24: case 32: case 48: case 64:
                break;
            default:
                return KRN_BAD_BITS;
            }
            return rasteriseMask(*pMask, v.w, v.h, t);
        });
    });
}

RZDIS_API int32_t RZAPI DisFreeRegion(BitmapDesc *pBitmap) {
    if (!pBitmap)
        return KRN_NULL_POINTER;
    if (pBitmap->uStructSize != BITMAPDESC_SIZE)
        return KRN_BAD_STRUCT_SIZE;
    auto *h = static_cast<KrnRegionHeader *>(pBitmap->pRegion);
    pBitmap->pRegion = nullptr;
    if (h && h->pfnDestroy)
        h->pfnDestroy(h);
    return KRN_OK;
}

} // extern "C"
