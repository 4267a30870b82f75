// The row context and progress, driven directly; what the working formats
// keep and lose, through the row context and through short tables.
#include "frame/kmem.h"
#include "frame/progress.h"
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

// Reads and writes every row unchanged, as an operation that computes nothing.
int32_t CopyThrough(BitmapDesc *bmp, uint32_t mode, int32_t start = 0, int32_t end = 100) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st != 1) return st;
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    if (!row || !spans) return ST_FAILURE;
    RZ_RETURN_IF_FAILED(BeginProgress(ctx.get(), start, end));
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), row.get(), y, spans.get(), &n));
        RZ_RETURN_IF_FAILED(PutRow(ctx.get(), row.get(), y, spans.get(), n));
    }
    return 1;
}

std::vector<int32_t> Steps(int32_t first, int32_t last, int32_t step) {
    std::vector<int32_t> v{first};
    for (int32_t p = first + step; p <= last; p += step) v.push_back(p);
    return v;
}

TEST(Progress, RowsShareTheRangeAndAStopIsKept) {
    const struct {
        int32_t rows, start, end, stopAt, status;
        std::vector<int32_t> want;
    } cases[] = {
        {300, 0, 100, 0, 1, Steps(0, 100, 1)}, // each percent once
        {50, 0, 100, 0, 1, Steps(0, 100, 2)},
        {7, 51, 100, 0, 1, Steps(51, 100, 7)}, // 49 over 7 rows is exactly 7 a row
        {10, 0, 100, 4, 0, Steps(0, 30, 10)},  // the stop value comes back at once
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.rows);
        Bitmap b(FindLayout("bgr24"), 3, c.rows, 1);
        CallbackRecorder rec;
        if (c.stopAt) rec.stopAt(c.stopAt, 0);
        EXPECT_EQ(CopyThrough(b.get(), 0, c.start, c.end), c.status);
        EXPECT_EQ(rec.percents(), c.want);
    }
}

// Between steps the kernel reports nothing; the callback is back afterwards, also when stopped.
TEST(Progress, StateSilencesTheKernelAndRestoresTheCallback) {
    for (int32_t stop : {0, 2}) {
        CallbackRecorder rec;
        if (stop) rec.stopAt(stop, 7);
        {
            ProgressScope scope;
            ASSERT_EQ(StartProgress(scope.get(), 0, 100, 3), 1);
            void *user = nullptr;
            EXPECT_EQ(KrnGetStatusCallback(&user), nullptr);
            EXPECT_EQ(AdvanceProgress(scope.get(), 50), stop ? 7 : 1);
            if (!stop) {
                EXPECT_EQ(AdvanceProgress(scope.get(), 100), 1);
            }
        }
        EXPECT_TRUE(rec.installed());
        // Three steps: 50 has passed the first, at 33.
        EXPECT_EQ(rec.percents(), stop ? (std::vector<int32_t>{0, 33}) : (std::vector<int32_t>{0, 33, 100}));
    }
}

TEST(RowContext, WorkingFormatFollowsModeBits) {
    const struct {
        const char *layout;
        uint32_t mode;
        int32_t work;
    } cases[] = {
        {"grey8", 0, WORK_16},          {"pal8_grey", 0, WORK_8},        {"pal1_grey", 0, WORK_8},
        {"pal8_colour", 0, WORK_24},    {"grey16", 0, WORK_16},          {"grey12", 0, WORK_16},
        {"bgr24", 0, WORK_24},          {"bgr48", 0, WORK_48},           {"bgr48", RC_DEEP_AS_24, WORK_24},
        {"bgr24", RC_FORCE_48, WORK_48}, {"grey8", RC_GRAY_AS_COLOR, WORK_24}, {"bgr24", RC_WORK8, WORK_8},
        {"bgr24", RC_WORK16, WORK_16},  {"grey8", RC_DEEP_GRAY16, WORK_16}, {"pal8_grey", RC_DEEP_GRAY16, WORK_8},
        {"bgr64", RC_DEEP_GRAY16, WORK_16}, {"grey16", RC_DEEP_AS_24 | RC_GRAY_AS_COLOR, WORK_24},
    };
    for (const auto &c : cases) {
        Bitmap b(FindLayout(c.layout), 5, 3, 1);
        b->nHighBit = -1; // read as the top bit, and written back so
        int32_t st = 0;
        RowContextPtr ctx = MakeRowContext(b.get(), c.mode, st);
        ASSERT_EQ(st, 1) << c.layout;
        EXPECT_EQ(ctx->nWorkBits, c.work) << c.layout << " mode " << c.mode;
        EXPECT_EQ(ContextChannels(ctx.get()), (c.work == WORK_24 || c.work == WORK_48) ? 3 : 1);
        EXPECT_EQ(b->nHighBit, b->nBitsPerPixel - 1);
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
    EXPECT_TRUE(ctx->nAlignedLeft == 8 && ctx->nWorkWidth == 22 && ctx->nRowBytes == 3 && ctx->nRows == 2);
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    uint32_t n = 0;
    ASSERT_EQ(GetRow(ctx.get(), row.get(), 1, spans.get(), &n), 1);
    EXPECT_TRUE(n == 2 && spans[0] == 5 && spans[1] == 22);
    g->nDataKind = 1; // 8-bit grey samples through a grey palette: the byte format
    ASSERT_EQ(DisSetRegionRect(g.get(), &empty, DIS_RGN_SET), 1);
    RowContext *raw = nullptr;
    EXPECT_EQ(CreateRowContext(g.get(), &raw, 0), ST_NOTHING_TO_DO);
    FreeRowContext(raw);
    CallbackRecorder rec;
    EXPECT_EQ(Rz_InvertBitmap(g.get()), 1);
    EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
}

// Inverting only the significant bits keeps the stored bits above and
// below them, and packed 12-bit neighbours outside the region.
TEST(RowContext, SignificantBitsAndPackedNeighboursAreKept) {
    const struct {
        const char *layout;
        int32_t low, high, left, right;
        std::vector<uint64_t> in, out;
    } cases[] = {
        {"grey16_bits0_11", 0, 11, 0, 4, {0xA123, 0x5FFF, 0xF000, 0}, {0xA000 | (0xFFF - 0x123), 0x5000, 0xFFFF, 0x0FFF}},
        {"grey12", 4, 11, 1, 4, {0x005, 0x015, 0x025, 0x035, 0x045}, {0x005, 0xFE5, 0xFD5, 0xFC5, 0x045}},
    };
    for (const auto &c : cases) {
        Bitmap b(FindLayout(c.layout), int32_t(c.in.size()), 1, 0);
        b->nLowBit = c.low, b->nHighBit = c.high;
        for (size_t x = 0; x < c.in.size(); ++x) b.setPixel(int32_t(x), 0, c.in[x]);
        const RzRect r{c.left, 0, c.right, 1};
        ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
        ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
        for (size_t x = 0; x < c.in.size(); ++x) EXPECT_EQ(b.pixel(int32_t(x), 0), c.out[x]) << c.layout << " " << x;
    }
}

// 1..7-bit pixels are written back as the nearest palette entry of the
// colour worked on, even when marked as grey samples: with a palette that
// repeats each colour, an identity table moves every odd sample to the even
// one below it. 8-bit grey samples do not use the palette.
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
        for (int32_t x = 0; x < n; ++x) ASSERT_EQ(b.pixel(x, 0), uint64_t(bits == 8 ? x : x & ~1)) << x;
    }
}

} // namespace
} // namespace rz
