// The row context and progress, driven directly; small depths written back
// through the palette.
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <numeric>

namespace rz {
namespace {

using test::Bitmap;
using test::CallbackRecorder;
using test::FindLayout;
using Percents = std::vector<int32_t>;

// Reads and writes every row unchanged, as an operation that computes nothing.
int32_t CopyThrough(BitmapDesc *bmp, int32_t start, int32_t end) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, 0, st);
    if (st != 1) return st;
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    RZ_RETURN_IF_FAILED(BeginProgress(ctx.get(), start, end));
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), row.get(), y, spans.get(), &n));
        RZ_RETURN_IF_FAILED(PutRow(ctx.get(), row.get(), y, spans.get(), n));
    }
    return 1;
}

Percents Steps(int32_t first, int32_t last, int32_t step) {
    Percents v(size_t((last - first) / step + 1));
    for (size_t i = 0; i < v.size(); ++i) v[i] = first + int32_t(i) * step;
    return v;
}

// Rows share the range (49 over 7 rows is exactly 7 a row); a stop value
// comes back at once.
TEST(Progress, RowsShareTheRangeAndAStopIsKept) {
    const std::tuple<int32_t, int32_t, int32_t, int32_t, Percents> cases[] = {
        {300, 0, 0, 1, Steps(0, 100, 1)}, // rows, start, stop at, status, percents
        {50, 0, 0, 1, Steps(0, 100, 2)},
        {7, 51, 0, 1, Steps(51, 100, 7)},
        {10, 0, 4, 0, Steps(0, 30, 10)},
    };
    for (const auto &[rows, start, stopAt, status, want] : cases) {
        Bitmap b(FindLayout("bgr24"), 3, rows, 1);
        CallbackRecorder rec;
        rec.stopAt(stopAt, 0);
        EXPECT_EQ(CopyThrough(b.get(), start, 100), status);
        EXPECT_EQ(rec.percents(), want) << rows;
    }
}

// A sub-byte left edge is aligned down to whole bytes and spans come back
// relative to it; an empty rectangle in the byte format is nothing to do.
TEST(RowContext, EdgesAndEmptyRectangles) {
    Bitmap b(FindLayout("pal1_grey"), 40, 4, 1), g(FindLayout("pal8_grey"), 8, 8, 1);
    const RzRect r{13, 1, 30, 3}, empty{3, 3, 3, 6};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(b.get(), 0, st);
    ASSERT_EQ(st, 1);
    EXPECT_TRUE(ctx->nAlignedLeft == 8 && ctx->nWorkWidth == 22 && ctx->nRowBytes == 3);
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    uint32_t n = 0;
    ASSERT_EQ(GetRow(ctx.get(), row.get(), 1, spans.get(), &n), 1);
    EXPECT_TRUE(ctx->nRows == 2 && n == 2 && spans[0] == 5 && spans[1] == 22);
    g->nDataKind = 1; // 8-bit grey samples through a grey palette: the byte format
    ASSERT_EQ(DisSetRegionRect(g.get(), &empty, DIS_RGN_SET), 1);
    RowContext *raw = nullptr;
    EXPECT_EQ(CreateRowContext(g.get(), &raw, 0), ST_NOTHING_TO_DO);
    FreeRowContext(raw);
    CallbackRecorder rec;
    EXPECT_EQ(Rz_InvertBitmap(g.get()), 1);
    EXPECT_EQ(rec.percents(), (Percents{0, 100}));
}

// 1..7-bit grey samples go back as the nearest palette entry: with a palette
// that repeats each colour, an identity table moves every odd sample to the
// even one below it. 8-bit grey samples do not use the palette.
TEST(ShortTables, SmallDepthsGoBackThroughThePalette) {
    uint32_t identity[256];
    std::iota(identity, identity + 256, 0u);
    for (int32_t bits : {1, 2, 4, 7, 8}) {
        SCOPED_TRACE(bits);
        const int32_t n = 1 << bits;
        Bitmap b(test::Layout{"grey samples", bits, KRN_ORDER_GRAY, 1}, n, 1, 0);
        RzRGBQuad pal[256];
        for (int32_t i = 0; i < n; ++i) {
            const uint8_t v = uint8_t((i >> 1) * 255 / std::max(1, n / 2 - 1));
            pal[i] = RzRGBQuad{v, v, v, 0};
        }
        ASSERT_EQ(KrnSetBitmapPalette(b.get(), 0, n, pal), 1);
        for (int32_t x = 0; x < n; ++x) b.setPixel(x, 0, uint64_t(x));
        ASSERT_EQ(Rz_RemapBitmapIntensity(b.get(), identity, 256, 0), 1);
        for (int32_t x = 0; x < n; ++x) ASSERT_EQ(b.pixel(x, 0), uint64_t(bits == 8 ? x : x & ~1));
    }
}

} // namespace
} // namespace rz
