// The row context and progress distribution, driven directly.
#include "frame/kmem.h"
#include "frame/progress.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "support/bitmaps.h"
#include "tone/table_engine.h"

#include <gtest/gtest.h>

#include <numeric>

namespace rz {
namespace {

using test::Bitmap;
using test::CallbackRecorder;
using test::FindLayout;

// Reads and writes every row unchanged, as an operation that computes nothing.
int32_t CopyThrough(BitmapDesc *bmp, uint32_t mode) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st != 1) return st;
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    if (!row || !spans) return ST_FAILURE;
    RZ_RETURN_IF_FAILED(BeginProgress(ctx.get()));
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), row.get(), y, spans.get(), &n));
        RZ_RETURN_IF_FAILED(PutRow(ctx.get(), row.get(), y, spans.get(), n));
    }
    return 1;
}

TEST(Progress, ThreeHundredRowsReportEachPercentOnce) {
    Bitmap b(FindLayout("grey8"), 3, 300, 1);
    CallbackRecorder rec;
    ASSERT_EQ(CopyThrough(b.get(), 0), 1);
    std::vector<int32_t> want(101);
    std::iota(want.begin(), want.end(), 0);
    EXPECT_EQ(rec.percents(), want);
}

TEST(Progress, FiftyRowsReportEveryOtherPercent) {
    Bitmap b(FindLayout("bgr24"), 3, 50, 1);
    CallbackRecorder rec;
    ASSERT_EQ(CopyThrough(b.get(), 0), 1);
    std::vector<int32_t> want{0};
    for (int p = 2; p <= 100; p += 2) want.push_back(p);
    EXPECT_EQ(rec.percents(), want);
}

TEST(Progress, SevenRowsOverAPartialRangeEndExactly) {
    Bitmap b(FindLayout("bgr24"), 3, 7, 1);
    CallbackRecorder rec;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(b.get(), 0, st);
    ASSERT_EQ(st, 1);
    ASSERT_EQ(BeginProgress(ctx.get(), 51, 100), 1);
    for (int i = 0; i < 7; ++i) ASSERT_EQ(StepProgress(ctx.get()), 1);
    // 49 over 7 steps is exactly 7 a step.
    EXPECT_EQ(rec.percents(), (std::vector<int32_t>{51, 58, 65, 72, 79, 86, 93, 100}));
}

TEST(Progress, StopValueIsReturnedAndKept) {
    Bitmap b(FindLayout("grey8"), 3, 10, 1);
    CallbackRecorder rec;
    rec.stopAt(4, 0);
    EXPECT_EQ(CopyThrough(b.get(), 0), 0);
    EXPECT_EQ(rec.calls(), 4);
}

TEST(Progress, StateSilencesTheKernelBetweenSteps) {
    CallbackRecorder rec;
    {
        ProgressScope scope;
        ASSERT_EQ(StartProgress(scope.get(), 0, 100, 3), 1);
        void *user = nullptr;
        EXPECT_EQ(KrnGetStatusCallback(&user), nullptr);
        ASSERT_EQ(AdvanceProgress(scope.get(), 50), 1);
        EXPECT_EQ(KrnGetStatusCallback(&user), nullptr);
        ASSERT_EQ(AdvanceProgress(scope.get(), 100), 1);
    }
    EXPECT_TRUE(rec.installed());
    ASSERT_FALSE(rec.percents().empty());
    EXPECT_EQ(rec.percents().front(), 0);
    EXPECT_EQ(rec.percents().back(), 100);
}

TEST(Progress, StateRestoresTheCallbackWhenStopped) {
    CallbackRecorder rec;
    rec.stopAt(2, 7);
    {
        ProgressScope scope;
        ASSERT_EQ(StartProgress(scope.get()), 1);
        EXPECT_EQ(AdvanceProgress(scope.get(), 40), 7);
    }
    EXPECT_TRUE(rec.installed());
}

TEST(RowContext, RefusesWhatItCannotAddress) {
    RowContext *ctx = nullptr;
    EXPECT_EQ(CreateRowContext(nullptr, &ctx, 0), ST_NO_BITMAP);
    Bitmap b(FindLayout("bgr24"), 4, 4, 1);
    b->uStructSize = 165;
    EXPECT_EQ(CreateRowContext(b.get(), &ctx, 0), ST_BAD_STRUCT_SIZE);
    b->uStructSize = BITMAPDESC_SIZE;
    b->uFlags &= ~BMF_ALLOCATED;
    EXPECT_EQ(CreateRowContext(b.get(), &ctx, 0), ST_NO_BITMAP);
    b->uFlags |= BMF_ALLOCATED;
    Bitmap g(FindLayout("grey16"), 4, 4, 1);
    g->nLowBit = 9;
    g->nHighBit = 3;
    EXPECT_EQ(CreateRowContext(g.get(), &ctx, 0), ST_NO_BITMAP);
    EXPECT_EQ(ctx, nullptr);
}

TEST(RowContext, HighBitMinusOneMeansTopBit) {
    Bitmap b(FindLayout("grey12"), 4, 4, 1);
    b->nHighBit = -1;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(b.get(), 0, st);
    ASSERT_EQ(st, 1);
    EXPECT_EQ(b->nHighBit, 11);
    EXPECT_EQ(ctx->nRangeCount, 12u);
}

struct FormatCase {
    const char *layout;
    uint32_t mode;
    int32_t work;
};

TEST(RowContext, WorkingFormatFollowsModeBits) {
    const FormatCase cases[] = {
        {"grey8", 0, WORK_16},          {"pal8_grey", 0, WORK_8},        {"pal1_grey", 0, WORK_8},
        {"pal8_colour", 0, WORK_24},    {"grey16", 0, WORK_16},          {"grey12", 0, WORK_16},
        {"bgr24", 0, WORK_24},          {"bgr48", 0, WORK_48},           {"bgr48", RC_DEEP_AS_24, WORK_24},
        {"bgr24", RC_FORCE_48, WORK_48}, {"grey8", RC_GRAY_AS_COLOR, WORK_24}, {"bgr24", RC_WORK8, WORK_8},
        {"bgr24", RC_WORK16, WORK_16},  {"grey8", RC_DEEP_GRAY16, WORK_16}, {"pal8_grey", RC_DEEP_GRAY16, WORK_8},
        {"bgr64", RC_DEEP_GRAY16, WORK_16}, {"grey16", RC_DEEP_AS_24 | RC_GRAY_AS_COLOR, WORK_24},
    };
    for (const FormatCase &c : cases) {
        Bitmap b(FindLayout(c.layout), 5, 3, 1);
        int32_t st = 0;
        RowContextPtr ctx = MakeRowContext(b.get(), c.mode, st);
        ASSERT_EQ(st, 1) << c.layout;
        EXPECT_EQ(ctx->nWorkBits, c.work) << c.layout << " mode " << c.mode;
        EXPECT_EQ(ContextChannels(ctx.get()), (c.work == WORK_24 || c.work == WORK_48) ? 3 : 1);
    }
}

TEST(RowContext, SubByteLeftEdgeIsAlignedToWholeBytes) {
    Bitmap b(FindLayout("pal1_grey"), 40, 4, 1);
    const RzRect r{13, 1, 30, 3};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(b.get(), 0, st);
    ASSERT_EQ(st, 1);
    EXPECT_EQ(ctx->nAlignedLeft, 8);
    EXPECT_EQ(ctx->nWorkWidth, 22);
    EXPECT_EQ(ctx->nRowBytes, 3u);
    EXPECT_EQ(ctx->nRows, 2);
    // Spans come back relative to the aligned edge.
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    uint32_t n = 0;
    ASSERT_EQ(GetRow(ctx.get(), row.get(), 1, spans.get(), &n), 1);
    ASSERT_EQ(n, 2u);
    EXPECT_EQ(spans[0], 5);
    EXPECT_EQ(spans[1], 22);
}

TEST(RowContext, EmptyRectangleInTheByteFormatIsNothingToDo) {
    // 8-bit grey through a grey palette, holding samples: the byte format.
    Bitmap b(FindLayout("pal8_grey"), 8, 8, 1);
    b->nDataKind = 1;
    const RzRect r{3, 3, 3, 6};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    RowContext *raw = nullptr;
    EXPECT_EQ(CreateRowContext(b.get(), &raw, 0), ST_NOTHING_TO_DO);
    FreeRowContext(raw);
    const Bitmap before(b);
    CallbackRecorder rec;
    EXPECT_EQ(Rz_InvertBitmap(b.get()), 1);
    EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
    EXPECT_EQ(b.storedBytes(), before.storedBytes());
}

TEST(RowContext, SignificantBitsKeepTheStoredBitsAbove) {
    Bitmap b(FindLayout("grey16_bits0_11"), 6, 2, 0);
    b.setPixel(0, 0, 0xA123);
    b.setPixel(1, 0, 0x5FFF);
    b.setPixel(2, 1, 0xF000);
    ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
    EXPECT_EQ(b.pixel(0, 0), 0xA000u | (0xFFF - 0x123));
    EXPECT_EQ(b.pixel(1, 0), 0x5000u);
    EXPECT_EQ(b.pixel(2, 1), 0xFFFFu);
    EXPECT_EQ(b.pixel(5, 1), 0x0FFFu);
}

TEST(RowContext, TwelveBitPackedMergeKeepsNeighbours) {
    Bitmap b(FindLayout("grey12"), 5, 1, 0);
    b->nLowBit = 4;
    b->nHighBit = 11;
    for (int x = 0; x < 5; ++x) b.setPixel(x, 0, 0x10u * x + 0x5);
    const RzRect r{1, 0, 4, 1};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
    EXPECT_EQ(b.pixel(0, 0), 0x005u);
    for (int x = 1; x < 4; ++x) EXPECT_EQ(b.pixel(x, 0), ((0xFFu - x) << 4) | 0x5) << x;
    EXPECT_EQ(b.pixel(4, 0), 0x045u);
}

// Reading and writing back every row leaves every layout unchanged, in every
// view and inside a region.
TEST(RowContext, UnchangedRowsRoundTripEveryLayoutAndView) {
    for (const test::Layout &layout : test::AllLayouts()) {
        for (int32_t view = 1; view <= 8; ++view) {
            for (uint32_t mode : {0u, uint32_t(RC_WHOLE_BITMAP), uint32_t(RC_GRAY_AS_COLOR | RC_DEEP_AS_24), uint32_t(RC_FORCE_48)}) {
                SCOPED_TRACE(std::string(layout.name) + " view " + std::to_string(view) + " mode " +
                             std::to_string(mode));
                Bitmap b(layout, 11, 7, 42);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), 1);
                const RzRect r{1, 2, 6, 5};
                ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
                bool lossless = false;
                {
                    int32_t st = 0;
                    RowContextPtr ctx = MakeRowContext(b.get(), mode, st);
                    ASSERT_TRUE(st == 1 || st == ST_NOTHING_TO_DO) << st;
                    const int32_t sampleBits = (layout.bits == 12 || layout.bits == 16 || layout.bits >= 48) ? 16 : 8;
                    lossless = ContextSampleBits(ctx.get()) >= sampleBits &&
                               !(layout.colourPalette && ContextChannels(ctx.get()) == 1);
                }
                const Bitmap before(b);
                const int32_t st = CopyThrough(b.get(), mode);
                ASSERT_TRUE(st == 1 || st == ST_NOTHING_TO_DO) << st;
                if (lossless) {
                    EXPECT_EQ(b.storedBytes(), before.storedBytes());
                }
            }
        }
    }
}

TEST(RowContext, WritesStayInsideTheRegion) {
    {
        for (const char *name : {"pal1_grey", "grey12", "bgr24", "grey8", "bgr64"}) {
            SCOPED_TRACE(name);
            Bitmap b(FindLayout(name), 23, 9, 5);
            const RzRect r{3, 1, 17, 8};
            ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
            const Bitmap before(b);
            ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
            // Palette bitmaps change their palette, not their pixels.
            if (b->nBitsPerPixel <= 8 && b->nDataKind == 0) continue;
            for (int y = 0; y < 9; ++y)
                for (int x = 0; x < 23; ++x) {
                    const bool inside = DisIsPtInRegion(b.get(), x, y);
                    EXPECT_EQ(b.pixel(x, y) != before.pixel(x, y), inside) << x << "," << y;
                }
        }
    }
}

} // namespace
} // namespace rz
