// The row processing context: reads rows of any stored layout into one of
// four working formats, writes them back inside the region only, and
// spreads a progress range over the rows.
#pragma once

#include <rzimg.h>

#include "frame/progress.h"

#include <memory>

namespace rz {

// Mode bits of CreateRowContext.
enum : uint32_t {
    RC_GRAY_AS_COLOR = 0x001, // below 48 bits, work in 24-bit colour even when grey
    RC_WHOLE_BITMAP = 0x002,  // whole bitmap; writes restricted to the region row by row
    RC_RAW_DEEP_GRAY = 0x008, // 12/16-bit grey rows are not converted
    RC_WORK8 = 0x010,         // working format 0
    RC_DEEP_AS_24 = 0x020,    // 48/64-bit colour worked in 24 bits
    RC_FORCE_48 = 0x040,      // 48-bit working format
    RC_DEEP_GRAY16 = 0x080,   // 16 for grey order or 48/64 bits, else 0
    RC_WORK16 = 0x100,        // working format 16
};

// Working formats.
enum : int32_t { WORK_8 = 0, WORK_16 = 16, WORK_24 = 24, WORK_48 = 48 };

// Rows of a band, one bit each.
struct BandRowSet {
    static constexpr int kMaxRows = 256;
    uint64_t bits[kMaxRows / 64];
    bool has(int32_t i) const { return (bits[i >> 6] >> (i & 63)) & 1; }
    void add(int32_t i) { bits[i >> 6] |= uint64_t(1) << (i & 63); }
    void clear() { *this = BandRowSet{}; }
};

struct RowContext {
    int32_t bUsePaletteBitmap;
    int32_t bConvert;
    int32_t bMergeBits;
    int32_t nWorkBits;
    int32_t nSourceBits;
    BitmapDesc *pBitmap;
    BitmapDesc *pPaletteBitmap;
    RzRGBQuad aPalette[256];
    uint32_t nWorkRowBytes;
    uint32_t uSavedState;
    ProgressState progress; // callback, user data, percent, remainder, quotients, steps, last result
    RzRect rcWork;
    int32_t nAlignedLeft;
    int32_t nWorkWidth;
    uint32_t nRowBytes;
    int32_t nRows;
    int32_t *pSpans;
    uint32_t nRangeCount;
    uint32_t uRangeMask;
    int32_t nLowBit;
    int32_t nHighBit;
    int32_t nGrayMode;
    int32_t nGrayCode;
    int32_t nComponents;
    uint8_t *pStoredRow;
    // Local to this implementation.
    uint8_t *pRowStore;      // stored bytes of one row, when converting
    uint8_t *pIndexRow;      // palette indices, one byte a pixel
    uint8_t *pNarrowRow;     // 16-bit working samples narrowed for palette matching
    uint32_t nSpanCapacity;  // values pSpans can hold
    uint32_t nFirstByte;     // byte of the stored row at nAlignedLeft
    uint32_t uPutFlags;      // KRN_PUT_ flags for writes
    int32_t nConvertOrder;   // colour order handed to the converter
    uint32_t uRangeShift;
    uint8_t aKeepPattern[3]; // stored bits kept by the merge, repeating
    uint8_t nKeepPatternLen;
    // Bands of stored rows in the transposed views (see GetRow).
    uint8_t *pReadBand;       // nBandRows stored rows from nReadBandTop
    uint8_t *pWriteBand;      // rows put and not yet written, from nWriteBandTop
    uint8_t *pPendingBand;    // where they are: pWriteBand, or pReadBand when it holds the same rows
    int32_t *pBandSpans;      // spans of the pending rows, nBandSpanStride values each
    uint32_t *pBandSpanCounts;
    uint32_t nBandSpanStride;
    uint32_t nBandStride;     // bytes from one band row to the next
    int32_t nBandRows;        // 0: rows move one at a time
    int32_t nReadBandTop;     // -1: none held
    int32_t nWriteBandTop;    // -1: nothing pending
    int32_t nWritePendingCount; // rows in writePending
    BandRowSet readStale;     // rows of the read band put since it was read
    BandRowSet writePending;  // rows of the write band waiting
};

int32_t CreateRowContext(BitmapDesc *bmp, RowContext **out, uint32_t mode);
int32_t FreeRowContext(RowContext *ctx);
int32_t GetRow(RowContext *ctx, void *buf, int32_t row, int32_t *spans, uint32_t *count);
int32_t PutRow(RowContext *ctx, void *buf, int32_t row, const int32_t *spans, uint32_t count);
int32_t PutRowQuiet(RowContext *ctx, void *buf, int32_t row, const int32_t *spans, uint32_t count);
// In views 5-8 rows move in bands: a put reaches the bitmap when its band is
// complete, when the row is read back, at the next band, or when the context
// is freed. Call this before reading the bitmap by other means while the
// context is open. The view must not change while a context is open.
int32_t FlushRows(RowContext *ctx);
void *AllocRowBuffer(const RowContext *ctx);
int32_t *AllocSpanBuffer(const RowContext *ctx);
int32_t ContextChannels(const RowContext *ctx);
int32_t ContextSampleBits(const RowContext *ctx);
uint32_t ContextRowBytes(const RowContext *ctx);
int32_t GetContextRect(const RowContext *ctx, RzRect *rect);
int32_t SetContextBitRange(RowContext *ctx, int32_t low, int32_t high);
int32_t BeginProgress(RowContext *ctx, int32_t start, int32_t end);
int32_t BeginProgress(RowContext *ctx);
int32_t BeginProgressRegion(RowContext *ctx, int32_t start, int32_t end);
int32_t BeginProgressRegion(RowContext *ctx);
int32_t BeginProgressRect(RowContext *ctx, int32_t start, int32_t end, const RzRect *rect);
int32_t BeginProgressRect(RowContext *ctx, const RzRect *rect);
int32_t StepProgress(RowContext *ctx);
int32_t ReportDone(const BitmapDesc *bmp);

struct RowContextDeleter {
    void operator()(RowContext *ctx) const noexcept { FreeRowContext(ctx); }
};
using RowContextPtr = std::unique_ptr<RowContext, RowContextDeleter>;

// CreateRowContext into an owner; the status is returned through `status`.
RowContextPtr MakeRowContext(BitmapDesc *bmp, uint32_t mode, int32_t &status);

} // namespace rz
