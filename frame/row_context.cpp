// Row context: one block per operation call. Rows are read through the
// kernel into a stored-row buffer and converted into the working buffer
// (or read straight into it when the layouts agree, the common 8-bit grey,
// 24-bit BGR and 48-bit BGR cases); writes convert back, merge bits outside
// a 12/16-bit significant range, and go to the kernel restricted to the
// work rectangle or the region's spans.
#include "frame/row_context.h"

#include "frame/kmem.h"
#include "frame/status.h"

#include <algorithm>
#include <cstring>

namespace rz {
namespace {

bool DeepGrayDepth(int32_t bits) { return bits == 12 || bits == 16; }

int32_t WorkingFormat(const BitmapDesc *bmp, bool grey, uint32_t mode) {
    const int32_t bits = bmp->nBitsPerPixel;
    const bool greyOrder = bmp->nColorOrder == KRN_ORDER_GRAY;
    if (mode & RC_DEEP_GRAY16) return (greyOrder || bits >= 48) ? WORK_16 : WORK_8;
    if (mode & RC_WORK8) return WORK_8;
    if (mode & RC_WORK16) return WORK_16;
    if ((bits < 48 || (mode & RC_DEEP_AS_24)) && !(mode & RC_FORCE_48)) {
        if (grey && !(mode & RC_GRAY_AS_COLOR)) return greyOrder ? WORK_16 : WORK_8;
        return WORK_24;
    }
    return WORK_48;
}

// Stored pixels at the left edge of the work must start on a byte.
int32_t AlignLeft(int32_t left, int32_t bits) {
    switch (bits) {
    case 1: case 3: case 5: case 7: return left & ~7;
    case 2: case 6: return left & ~3;
    case 4: case 12: return left & ~1;
    default: return left;
    }
}

// The stored bits outside the significant range, as a repeating byte pattern.
void SetKeepPattern(RowContext *ctx) {
    const uint32_t kept = ~(ctx->uRangeMask << ctx->uRangeShift);
    if (ctx->pBitmap->nBitsPerPixel == 16) {
        ctx->aKeepPattern[0] = static_cast<uint8_t>(kept);
        ctx->aKeepPattern[1] = static_cast<uint8_t>(kept >> 8);
        ctx->nKeepPatternLen = 2;
    } else {
        const uint32_t k12 = kept & 0xFFF;
        const uint32_t pair = k12 | (k12 << 12);
        ctx->aKeepPattern[0] = static_cast<uint8_t>(pair);
        ctx->aKeepPattern[1] = static_cast<uint8_t>(pair >> 8);
        ctx->aKeepPattern[2] = static_cast<uint8_t>(pair >> 16);
        ctx->nKeepPatternLen = 3;
    }
}

int32_t ReadRegionSpans(RowContext *ctx, int32_t row, int32_t *spans, uint32_t *count) {
    uint32_t n = 0;
    const int32_t st = DisGetRegionRowSpans(ctx->pBitmap, row, spans, &n);
    if (st != 1) return st;
    // Keep the runs inside the work rectangle.
    uint32_t out = 0;
    for (uint32_t i = 0; i + 1 < n; i += 2) {
        const int32_t x0 = std::max(spans[i], ctx->rcWork.left);
        const int32_t x1 = std::min(spans[i + 1], ctx->rcWork.right);
        if (x0 < x1) {
            spans[out++] = x0;
            spans[out++] = x1;
        }
    }
    *count = out;
    return 1;
}

// Stored rows a band holds: enough for a run of at least 256 bytes, whole
// cache lines, of each stored column (256 rows at one byte a pixel, 128 at
// two or three, 64 at four or six, 32 at eight): a strided walk over stored
// rows costs about the same for a few lines a row as for one, and
// neighbouring bands never share a line. Fewer (a multiple of 8) when a
// band would pass 8 MiB.
int32_t BandRowsFor(uint32_t rowBytes, int32_t bits) {
    const uint32_t e = static_cast<uint32_t>(bits / 8);
    uint32_t rows = 8;
    while (rows < BandRowSet::kMaxRows && (rows * e < 256 || rows * e % 64 != 0)) rows += 8;
    const uint32_t fit = (8u << 20) / std::max<uint32_t>(rowBytes, 1);
    return static_cast<int32_t>(std::max<uint32_t>(std::min(rows, fit), 8) & ~7u);
}

// In views 5-8 a row is a stored column: rows move in bands, whole-byte
// depths only (the kernel's blocked path).
int32_t SetUpBands(RowContext *ctx) {
    const BitmapDesc *bmp = ctx->pBitmap;
    ctx->nReadBandTop = ctx->nWriteBandTop = -1;
    if (bmp->nViewPerspective < 5 || bmp->nBitsPerPixel % 8 != 0 || ctx->nRows < 2 || ctx->nRowBytes == 0) return 1;
    ctx->nBandRows = std::min(BandRowsFor(ctx->nRowBytes, bmp->nBitsPerPixel), (ctx->nRows + 7) & ~7);
    const size_t rows = static_cast<size_t>(ctx->nBandRows);
    ctx->nBandSpanStride = std::max<uint32_t>(ctx->nSpanCapacity, 2);
    // Rows a multiple of 4 KiB apart would share cache sets: one line more.
    ctx->nBandStride = ((ctx->nRowBytes + 63) & ~63u) + 64;
    // One block for both bands and the spans: operations open a context per
    // call, and one large block is kept by the allocator between calls where
    // several are handed back to the system and faulted in again.
    const size_t band = rows * ctx->nBandStride;
    const size_t spans = rows * ctx->nBandSpanStride * sizeof(int32_t);
    auto *block = static_cast<uint8_t *>(KrnMemAlloc(2 * band + spans + rows * sizeof(uint32_t)));
    if (!block) return ST_FAILURE;
    ctx->pReadBand = block;
    ctx->pWriteBand = block + band;
    ctx->pBandSpans = reinterpret_cast<int32_t *>(block + 2 * band);
    ctx->pBandSpanCounts = reinterpret_cast<uint32_t *>(block + 2 * band + spans);
    return 1;
}

// First row of the band holding `row`, or -1 when the row moves alone.
int32_t BandTop(const RowContext *ctx, int32_t row) {
    if (ctx->nBandRows == 0 || row < ctx->rcWork.top || row >= ctx->rcWork.bottom ||
        ctx->pBitmap->nViewPerspective < 5)
        return -1;
    return ctx->rcWork.top + (row - ctx->rcWork.top) / ctx->nBandRows * ctx->nBandRows;
}

int32_t BandCount(const RowContext *ctx, int32_t top) {
    return std::min(ctx->nBandRows, ctx->rcWork.bottom - top);
}

// The stored bytes of a row of the band, read by the band when needed.
int32_t BandRow(RowContext *ctx, int32_t row, const uint8_t **bytes) {
    *bytes = nullptr;
    const int32_t top = BandTop(ctx, row);
    if (top < 0) return 1;
    if (ctx->nWriteBandTop == top && ctx->writePending.has(row - top)) RZ_RETURN_IF_FAILED(FlushRows(ctx));
    if (ctx->nReadBandTop != top) {
        // Puts kept in the band buffer go out before it is read over.
        if (ctx->nWriteBandTop >= 0 && ctx->pPendingBand == ctx->pReadBand) RZ_RETURN_IF_FAILED(FlushRows(ctx));
        ctx->nReadBandTop = -1;
        const int32_t st = KrnGetBitmapRows(ctx->pBitmap, ctx->pReadBand, ctx->nBandStride, top, BandCount(ctx, top),
                                            ctx->nFirstByte, ctx->nRowBytes);
        if (st != 1) return st;
        ctx->nReadBandTop = top;
        ctx->readStale = ctx->nWriteBandTop == top ? ctx->writePending : BandRowSet{};
    }
    // A row put since the band was read comes from the bitmap itself.
    if (ctx->readStale.has(row - top)) return 1;
    *bytes = ctx->pReadBand + static_cast<size_t>(row - top) * ctx->nBandStride;
    return 1;
}

// Keeps a finished stored row (and its spans) for the band write.
int32_t QueueRow(RowContext *ctx, const uint8_t *out, int32_t row, const int32_t *spans, uint32_t n) {
    const int32_t top = BandTop(ctx, row);
    if (ctx->nWriteBandTop != top && ctx->nWriteBandTop >= 0) RZ_RETURN_IF_FAILED(FlushRows(ctx));
    if (ctx->nWriteBandTop != top) {
        // Rows read and put back (the usual pass) go into the band they were
        // read into: one buffer in the cache instead of two. The rows put
        // are stale there and come from the bitmap when read again.
        ctx->pPendingBand = ctx->nReadBandTop == top ? ctx->pReadBand : ctx->pWriteBand;
        ctx->nWriteBandTop = top;
    }
    const size_t slot = static_cast<size_t>(row - top);
    std::memcpy(ctx->pPendingBand + slot * ctx->nBandStride, out, ctx->nRowBytes);
    std::copy(spans, spans + n, ctx->pBandSpans + slot * ctx->nBandSpanStride);
    ctx->pBandSpanCounts[slot] = n;
    const bool fresh = !ctx->writePending.has(row - top);
    ctx->writePending.add(row - top);
    if (ctx->nReadBandTop == top) ctx->readStale.add(row - top);
    if (fresh) ++ctx->nWritePendingCount;
    return ctx->nWritePendingCount == BandCount(ctx, top) ? FlushRows(ctx) : 1;
}

} // namespace

int32_t FlushRows(RowContext *ctx) {
    const int32_t top = ctx->nWriteBandTop;
    const BandRowSet pending = ctx->writePending;
    if (top < 0 || ctx->nWritePendingCount == 0) return 1;
    ctx->nWriteBandTop = -1;
    ctx->writePending.clear();
    ctx->nWritePendingCount = 0;
    // Runs of consecutive pending rows go out as bands.
    const int32_t count = BandCount(ctx, top);
    for (int32_t i = 0; i < count;) {
        if (!pending.has(i)) {
            ++i;
            continue;
        }
        int32_t j = i;
        while (j < count && pending.has(j)) ++j;
        const int32_t st = KrnPutBitmapRows(ctx->pBitmap, ctx->pPendingBand + static_cast<size_t>(i) * ctx->nBandStride,
                                            ctx->nBandStride, top + i, j - i, ctx->nFirstByte, ctx->nRowBytes,
                                            ctx->pBandSpans + static_cast<size_t>(i) * ctx->nBandSpanStride,
                                            ctx->nBandSpanStride, ctx->pBandSpanCounts + i, ctx->uPutFlags);
        if (st != 1) return st;
        i = j;
    }
    return 1;
}

int32_t CreateRowContext(BitmapDesc *bmp, RowContext **out, uint32_t mode) {
    if (out) *out = nullptr;
    if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    if (bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
    if (!out) return ST_INVALID_PARAMETER;
    // A descriptor the kernel cannot address is refused here, never walked.
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    if (bmp->nHighBit == -1) bmp->nHighBit = bmp->nBitsPerPixel - 1;

    RowContextPtr ctx(static_cast<RowContext *>(KrnMemAllocZeroed(sizeof(RowContext), 1)));
    if (!ctx) return ST_FAILURE;
    ctx->pBitmap = bmp;
    ctx->uSavedState = KrnSaveBitmapState(bmp);
    ctx->nLowBit = bmp->nLowBit;
    ctx->nHighBit = bmp->nHighBit;
    ctx->progress.nLastResult = 1;

    const int32_t bits = bmp->nBitsPerPixel;
    const bool grey = KrnIsGrayscale(bmp) || bmp->nColorOrder == KRN_ORDER_GRAY;
    ctx->nWorkBits = WorkingFormat(bmp, grey, mode);
    ctx->nSourceBits = bits;
    ctx->nConvertOrder = bmp->nColorOrder;
    ctx->nGrayMode = KRN_GRAY_NONE;

    if (bits == 8) {
        ctx->bConvert = 1;
        if (grey) {
            ctx->nSourceBits = 0;
            ctx->nConvertOrder = KRN_ORDER_GRAY;
        } else {
            ctx->bUsePaletteBitmap = 1;
        }
    } else if (DeepGrayDepth(bits)) {
        ctx->nConvertOrder = KRN_ORDER_GRAY;
        if (bmp->nColorOrder == KRN_ORDER_GRAY) {
            ctx->bConvert = (mode & RC_RAW_DEEP_GRAY) ? 0 : 1;
            if (mode & RC_RAW_DEEP_GRAY) ctx->nGrayMode = KRN_GRAY_RAW;
            if (bmp->nHighBit < bmp->nLowBit) return ST_NO_BITMAP;
            uint32_t shift = 0;
            if (KrnGetBitRange(bits, bits, bmp->nLowBit, bmp->nHighBit, &ctx->nRangeCount, &ctx->uRangeMask,
                               &shift) != 1)
                return ST_NO_BITMAP;
            ctx->uRangeShift = shift;
            ctx->bMergeBits = ctx->nRangeCount < static_cast<uint32_t>(bits);
            if (ctx->bMergeBits) SetKeepPattern(ctx.get());
        } else {
            ctx->bConvert = 1;
        }
    } else if (bits == 24 || bits == 32 || bits == 48 || bits == 64) {
        ctx->bConvert = 1;
    } else {
        ctx->bConvert = 1;
        ctx->bUsePaletteBitmap = 1;
    }
    ctx->nComponents = ctx->nWorkBits == WORK_16 ? 2 : 1;
    if (bmp->nColorOrder == 5) ctx->nComponents = 5;
    if (bits == 32 || bits == 64) ctx->uPutFlags = KRN_PUT_KEEP_FOURTH;
    ctx->uPutFlags |= KRN_PUT_NORMAL;

    if (mode & RC_WHOLE_BITMAP) {
        ctx->rcWork = RzRect{0, 0, bmp->nWidth, bmp->nHeight};
    } else {
        const int32_t st = DisGetRegionBounds(bmp, 0, &ctx->rcWork);
        if (st != 1) return st;
        // A region is clipped to the bitmap, but be strict about hostile ones.
        ctx->rcWork.left = std::clamp(ctx->rcWork.left, 0, bmp->nWidth);
        ctx->rcWork.right = std::clamp(ctx->rcWork.right, ctx->rcWork.left, bmp->nWidth);
        ctx->rcWork.top = std::clamp(ctx->rcWork.top, 0, bmp->nHeight);
        ctx->rcWork.bottom = std::clamp(ctx->rcWork.bottom, ctx->rcWork.top, bmp->nHeight);
    }
    ctx->nRows = ctx->rcWork.bottom - ctx->rcWork.top;
    ctx->nAlignedLeft = AlignLeft(ctx->rcWork.left, bits);
    ctx->nWorkWidth = ctx->rcWork.right - ctx->nAlignedLeft;
    ctx->nRowBytes = static_cast<uint32_t>((static_cast<int64_t>(bits) * ctx->nWorkWidth + 7) / 8);
    ctx->nFirstByte = static_cast<uint32_t>(static_cast<int64_t>(bits) * ctx->nAlignedLeft / 8);

    if (mode & RC_WHOLE_BITMAP) {
        uint32_t n = 0;
        if (DisGetRegionMaskSize(bmp, &n) != 1) return ST_FAILURE;
        ctx->nSpanCapacity = std::max<uint32_t>(n, 2);
        ctx->pSpans = static_cast<int32_t *>(KrnMemAlloc(sizeof(int32_t) * ctx->nSpanCapacity));
        if (!ctx->pSpans) return ST_FAILURE;
    }
    if (ctx->bMergeBits) {
        ctx->pStoredRow = static_cast<uint8_t *>(KrnMemAlloc(ctx->nRowBytes + 4));
        if (!ctx->pStoredRow) return ST_FAILURE;
    }

    if (ctx->bUsePaletteBitmap) {
        auto *pal = static_cast<BitmapDesc *>(KrnMemAllocZeroed(sizeof(BitmapDesc), 1));
        if (!pal) return ST_FAILURE;
        ctx->pPaletteBitmap = pal;
        int32_t st = KrnInitBitmap(pal, BITMAPDESC_SIZE, ctx->nWorkWidth, ctx->nRows,
                                   (ctx->nWorkBits == WORK_8 || ctx->nWorkBits == WORK_16) ? 8 : 24);
        if (st == 1 && pal->nBitsPerPixel == 8) st = KrnSetGrayPalette(pal);
        if (st != 1) return st;
        const int32_t colors = bmp->nColors;
        if (colors < 0 || colors > 256) return ST_NO_BITMAP;
        if (colors > 0 && KrnGetBitmapPalette(bmp, 0, colors, ctx->aPalette) != colors) return ST_NO_BITMAP;
        st = KrnSetPaletteForDepth(pal, ctx->aPalette, colors, bits, 0);
        if (st != 1) return st;
        ctx->pIndexRow = static_cast<uint8_t *>(KrnMemAlloc(static_cast<size_t>(ctx->nWorkWidth) + 4));
        if (!ctx->pIndexRow) return ST_FAILURE;
        if (ctx->nWorkBits == WORK_16 || ctx->nWorkBits == WORK_48) {
            ctx->pNarrowRow = static_cast<uint8_t *>(KrnMemAlloc(3 * static_cast<size_t>(ctx->nWorkWidth) + 4));
            if (!ctx->pNarrowRow) return ST_FAILURE;
        }
    }

    ctx->nWorkRowBytes = KrnRowBytesFor(ctx->nWorkWidth, bits, ctx->nWorkWidth, ctx->nWorkBits);
    const bool direct = !ctx->bConvert ||
                        (ctx->nSourceBits == 0 && ctx->nWorkBits == WORK_8) ||
                        (bits == 24 && bmp->nColorOrder == KRN_ORDER_BGR && ctx->nWorkBits == WORK_24) ||
                        (bits == 48 && bmp->nColorOrder == KRN_ORDER_BGR && ctx->nWorkBits == WORK_48) ||
                        (bits == 16 && ctx->nRangeCount == 16 && ctx->nWorkBits == WORK_16);
    if (direct) ctx->bConvert = 0;
    if (ctx->bConvert) {
        ctx->pRowStore = static_cast<uint8_t *>(KrnMemAlloc(static_cast<size_t>(ctx->nRowBytes) + 4));
        if (!ctx->pRowStore) return ST_FAILURE;
    }

    RZ_RETURN_IF_FAILED(SetUpBands(ctx.get()));

    const bool empty = ctx->nWorkWidth <= 0 || ctx->nRows <= 0 || ctx->rcWork.right <= ctx->rcWork.left;
    *out = ctx.release();
    return (empty && (*out)->nWorkBits == WORK_8) ? ST_NOTHING_TO_DO : ST_SUCCESS;
}

RowContextPtr MakeRowContext(BitmapDesc *bmp, uint32_t mode, int32_t &status) {
    RowContext *raw = nullptr;
    status = CreateRowContext(bmp, &raw, mode);
    return RowContextPtr(raw);
}

int32_t FreeRowContext(RowContext *ctx) {
    if (!ctx) return 1;
    if (ctx->pBitmap) FlushRows(ctx);
    KrnMemFree(ctx->pReadBand); // with the write band and the spans
    if (ctx->pPaletteBitmap) {
        KrnReleaseBitmapAccess(ctx->pPaletteBitmap);
        KrnFreeBitmap(ctx->pPaletteBitmap);
        KrnMemFree(ctx->pPaletteBitmap);
    }
    KrnMemFree(ctx->pSpans);
    KrnMemFree(ctx->pStoredRow);
    KrnMemFree(ctx->pRowStore);
    KrnMemFree(ctx->pIndexRow);
    KrnMemFree(ctx->pNarrowRow);
    KrnRestoreBitmapState(ctx->pBitmap, ctx->uSavedState);
    ctx->pBitmap->nLowBit = ctx->nLowBit;
    ctx->pBitmap->nHighBit = ctx->nHighBit;
    KrnMemFree(ctx);
    return 1;
}

int32_t GetRow(RowContext *ctx, void *buf, int32_t row, int32_t *spans, uint32_t *count) {
    if (spans) {
        uint32_t n = 0;
        const int32_t st = ReadRegionSpans(ctx, row, spans, &n);
        if (st != 1) return st;
        for (uint32_t i = 0; i < n; ++i) spans[i] -= ctx->nAlignedLeft;
        if (count) *count = n;
    }
    const BitmapDesc *bmp = ctx->pBitmap;
    const uint8_t *stored = nullptr;
    RZ_RETURN_IF_FAILED(BandRow(ctx, row, &stored));
    if (stored && !ctx->bConvert) {
        std::memcpy(buf, stored, ctx->nRowBytes);
        return 1;
    }
    if (!ctx->bConvert)
        return KrnGetBitmapRow(bmp, buf, row, ctx->nFirstByte, ctx->nRowBytes);
    if (!stored) {
        const int32_t st = KrnGetBitmapRow(bmp, ctx->pRowStore, row, ctx->nFirstByte, ctx->nRowBytes);
        if (st != 1) return st;
        stored = ctx->pRowStore;
    }
    const RzRGBQuad *palette = ctx->bUsePaletteBitmap ? ctx->aPalette : nullptr;
    return KrnConvertRowBuffer(stored, buf, ctx->nWorkWidth, bmp->nBitsPerPixel, ctx->nWorkBits,
                               ctx->nConvertOrder, ctx->nComponents, palette, KRN_TO_WORK, ctx->nGrayMode,
                               bmp->nLowBit, bmp->nHighBit);
}

int32_t PutRowQuiet(RowContext *ctx, void *buf, int32_t row, const int32_t *, uint32_t) {
    BitmapDesc *bmp = ctx->pBitmap;
    const uint8_t *out = static_cast<const uint8_t *>(buf);
    const int32_t top = BandTop(ctx, row);
    // A row put twice: the first put reaches the bitmap before this one reads it.
    if (top >= 0 && ctx->nWriteBandTop == top && ctx->writePending.has(row - top))
        RZ_RETURN_IF_FAILED(FlushRows(ctx));
    int32_t st = 1;
    if (ctx->bUsePaletteBitmap) {
        const void *work = buf;
        if (ctx->pNarrowRow) {
            // The palette temporary holds 8 or 24-bit rows: match on high bytes.
            const auto *wide = static_cast<const uint16_t *>(buf);
            const int32_t count = ctx->nWorkWidth * (ctx->nWorkBits == WORK_48 ? 3 : 1);
            for (int32_t i = 0; i < count; ++i) ctx->pNarrowRow[i] = static_cast<uint8_t>(wide[i] >> 8);
            work = ctx->pNarrowRow;
        }
        st = KrnMatchRowToPalette(ctx->pPaletteBitmap, work, ctx->pIndexRow);
        if (st != 1) return st;
        out = ctx->pIndexRow;
        if (bmp->nBitsPerPixel != 8) {
            st = KrnConvertRowBuffer(ctx->pIndexRow, ctx->pRowStore, ctx->nWorkWidth, bmp->nBitsPerPixel, WORK_8,
                                     bmp->nColorOrder, 1, nullptr, KRN_TO_STORED, KRN_GRAY_RAW, 0, -1);
            if (st != 1) return st;
            out = ctx->pRowStore;
        }
    } else if (ctx->bConvert) {
        st = KrnConvertRowBuffer(buf, ctx->pRowStore, ctx->nWorkWidth, bmp->nBitsPerPixel, ctx->nWorkBits,
                                 ctx->nConvertOrder, ctx->nComponents, nullptr, KRN_TO_STORED, ctx->nGrayMode,
                                 bmp->nLowBit, bmp->nHighBit);
        if (st != 1) return st;
        out = ctx->pRowStore;
    }
    if (ctx->bMergeBits && ctx->bConvert) {
        st = KrnGetBitmapRow(bmp, ctx->pStoredRow, row, ctx->nFirstByte, ctx->nRowBytes);
        if (st != 1) return st;
        uint8_t *fresh = ctx->pRowStore;
        const uint8_t *old = ctx->pStoredRow;
        const uint32_t len = ctx->nKeepPatternLen;
        for (uint32_t i = 0; i < ctx->nRowBytes; ++i) fresh[i] |= old[i] & ctx->aKeepPattern[i % len];
    }
    if (ctx->pSpans) {
        uint32_t n = 0;
        st = ReadRegionSpans(ctx, row, ctx->pSpans, &n);
        if (st != 1) return st;
        if (n == 0) return 1;
        if (top >= 0) return QueueRow(ctx, out, row, ctx->pSpans, n);
        return KrnPutBitmapRowSpans(bmp, out, row, ctx->nFirstByte, ctx->nRowBytes, ctx->pSpans, n,
                                    ctx->uPutFlags);
    }
    // Only the work rectangle: pixels sharing its first and last bytes stay.
    const int32_t rect[2] = {ctx->rcWork.left, ctx->rcWork.right};
    if (top >= 0) return QueueRow(ctx, out, row, rect, 2);
    return KrnPutBitmapRowSpans(bmp, out, row, ctx->nFirstByte, ctx->nRowBytes, rect, 2, ctx->uPutFlags);
}

int32_t PutRow(RowContext *ctx, void *buf, int32_t row, const int32_t *spans, uint32_t count) {
    const int32_t st = PutRowQuiet(ctx, buf, row, spans, count);
    if (st != 1) return st;
    return StepProgress(ctx);
}

void *AllocRowBuffer(const RowContext *ctx) {
    const uint32_t extra = (ctx->nWorkBits == WORK_24 || ctx->nWorkBits == WORK_48) ? 12 : 4;
    return KrnMemAlloc(static_cast<size_t>(ctx->nWorkRowBytes) + extra);
}

int32_t *AllocSpanBuffer(const RowContext *ctx) {
    uint32_t n = 0;
    if (DisGetRegionMaskSize(ctx->pBitmap, &n) != 1) return nullptr;
    return static_cast<int32_t *>(KrnMemAlloc(4 * static_cast<size_t>(std::max<uint32_t>(n, 2))));
}

int32_t ContextChannels(const RowContext *ctx) {
    return (ctx->nWorkBits == WORK_8 || ctx->nWorkBits == WORK_16) ? 1 : 3;
}

int32_t ContextSampleBits(const RowContext *ctx) {
    return (ctx->nWorkBits == WORK_16 || ctx->nWorkBits == WORK_48) ? 16 : 8;
}

uint32_t ContextRowBytes(const RowContext *ctx) { return ctx->nWorkRowBytes; }

int32_t GetContextRect(const RowContext *ctx, RzRect *rect) {
    *rect = ctx->rcWork;
    return 1;
}

int32_t SetContextBitRange(RowContext *ctx, int32_t low, int32_t high) {
    const int32_t bits = ctx->pBitmap->nBitsPerPixel;
    uint32_t shift = 0;
    const int32_t st = KrnGetBitRange(bits, bits, low, high, &ctx->nRangeCount, &ctx->uRangeMask, &shift);
    if (st != 1) return st;
    ctx->uRangeShift = shift;
    ctx->nLowBit = low;
    ctx->nHighBit = high == -1 ? bits - 1 : high;
    return 1;
}

int32_t BeginProgress(RowContext *ctx, int32_t start, int32_t end) {
    return BeginDistribution(&ctx->progress, start, end, static_cast<uint32_t>(std::max(ctx->nRows, 0)));
}
int32_t BeginProgress(RowContext *ctx) { return BeginProgress(ctx, 0, 100); }

int32_t BeginProgressRegion(RowContext *ctx, int32_t start, int32_t end) {
    RzRect r{};
    if (DisGetRegionBounds(ctx->pBitmap, 0, &r) != 1) return ST_FAILURE;
    const int32_t h = r.bottom - r.top;
    if (h <= 0) return 1;
    return BeginDistribution(&ctx->progress, start, end, static_cast<uint32_t>(h));
}
int32_t BeginProgressRegion(RowContext *ctx) { return BeginProgressRegion(ctx, 0, 100); }

int32_t BeginProgressRect(RowContext *ctx, int32_t start, int32_t end, const RzRect *rect) {
    if (!rect) return ST_INVALID_PARAMETER;
    return BeginDistribution(&ctx->progress, start, end, static_cast<uint32_t>(std::max(rect->bottom - rect->top, 0)));
}
int32_t BeginProgressRect(RowContext *ctx, const RzRect *rect) { return BeginProgressRect(ctx, 0, 100, rect); }

int32_t StepProgress(RowContext *ctx) { return StepDistribution(&ctx->progress); }

int32_t ReportDone(const BitmapDesc *) {
    void *user = nullptr;
    const RZSTATUSCALLBACK cb = KrnGetStatusCallback(&user);
    if (!cb) return 1;
    const int32_t r = cb(0, user);
    if (r != 1) return r;
    return cb(100, user);
}

} // namespace rz
