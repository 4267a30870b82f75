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

// A k-bit field at bit `low` cut to its top 8 bits and widened back by
// repeating them (x * 257 on 16 bits).
uint64_t Narrow(uint64_t v, int low, int k, uint32_t (*map)(uint32_t) = nullptr) {
    const uint64_t mask = (uint64_t(1) << k) - 1;
    uint32_t top = uint32_t(v >> low & mask) >> (k - 8);
    if (map) top = map(top);
    return (v & ~(mask << low)) | uint64_t((top * 257u) >> (16 - k)) << low;
}

// Every sample of a raw pixel narrowed: 16-bit channels (never the fourth)
// or the significant bits of deep grey. `mapped` picks channels (bit 0 red)
// that also go through the map.
uint64_t NarrowPixel(const BitmapDesc *b, uint64_t v, uint32_t mapped = 0, uint32_t (*map)(uint32_t) = nullptr) {
    if (b->nBitsPerPixel >= 48) {
        for (int ch = 0; ch < 3; ++ch) v = Narrow(v, 16 * ch, 16, (mapped >> ch & 1) ? map : nullptr);
        return v;
    }
    return Narrow(v, b->nLowBit, b->nHighBit - b->nLowBit + 1, mapped ? map : nullptr);
}

bool Deep(const test::Layout &l) { return l.bits >= 48 || (l.order == KRN_ORDER_GRAY && l.bits > 8); }

// Reading and writing back every row leaves every layout unchanged, in
// every view and inside a region; where 16-bit samples are worked in 8 bits
// every pixel of the region's bounding rectangle comes back narrowed.
TEST(RowContext, UnchangedRowsRoundTripEveryLayoutAndView) {
    for (const test::Layout &layout : test::AllLayouts())
        for (int32_t view = 1; view <= 8; ++view)
            for (uint32_t mode : {0u, uint32_t(RC_WHOLE_BITMAP), uint32_t(RC_GRAY_AS_COLOR | RC_DEEP_AS_24),
                                  uint32_t(RC_FORCE_48)}) {
                SCOPED_TRACE(testing::Message() << layout.name << " view " << view << " mode " << mode);
                Bitmap b(layout, 11, 7, 42);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), 1);
                const RzRect r{1, 2, 6, 5};
                ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
                RzRect bounds{};
                ASSERT_EQ(DisGetRegionBounds(b.get(), 0, &bounds), 1);
                const Bitmap before(b);
                const int32_t st = CopyThrough(b.get(), mode);
                ASSERT_TRUE(st == 1 || st == ST_NOTHING_TO_DO) << st;
                const bool narrowed = Deep(layout) && mode == (RC_GRAY_AS_COLOR | RC_DEEP_AS_24);
                if (!narrowed) {
                    EXPECT_EQ(b.storedBytes(), before.storedBytes());
                    continue;
                }
                for (int32_t y = 0; y < b->nHeight; ++y)
                    for (int32_t x = 0; x < b->nWidth; ++x) {
                        const bool inRect = x >= bounds.left && x < bounds.right && y >= bounds.top && y < bounds.bottom;
                        const uint64_t v = before.pixel(x, y);
                        ASSERT_EQ(b.pixel(x, y), inRect ? NarrowPixel(b.get(), v) : v) << x << "," << y;
                    }
            }
}

uint32_t Invert8(uint32_t v) { return 255 - v; }

// A short table on 48/64-bit colour is applied in 8 bits a channel and
// narrows every channel of the region's bounding rectangle; on 12/16-bit
// grey (all channels) it maps the top 8 significant bits of the region's
// pixels and leaves the others alone.
TEST(ShortTables, DeepSamplesAreMappedAndNarrowedInEightBits) {
    uint32_t table[256];
    for (uint32_t i = 0; i < 256; ++i) table[i] = Invert8(i);
    const struct {
        const char *layout;
        uint32_t channel, mapped; // mapped: bit 0 red, 1 green, 2 blue
    } cases[] = {{"bgr48", 0, 7}, {"rgb48", 1, 1}, {"bgr64", 3, 4}, {"bgr64", 2, 2},
                 {"grey16", 0, 1}, {"grey12", 0, 1}, {"grey16_bits0_11", 0, 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.layout << " channel " << c.channel);
        Bitmap b(FindLayout(c.layout), 13, 9, 7);
        const RzRect r{2, 1, 11, 8};
        ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
        const Bitmap before(b);
        ASSERT_EQ(Rz_RemapBitmapIntensity(b.get(), table, 256, c.channel), 1);
        const bool colour = b->nBitsPerPixel >= 48;
        for (int32_t y = 0; y < 9; ++y)
            for (int32_t x = 0; x < 13; ++x) {
                const bool inRect = x >= 2 && x < 11 && y >= 1 && y < 8, inside = DisIsPtInRegion(b.get(), x, y);
                const uint64_t v = before.pixel(x, y);
                const uint64_t want = inside ? NarrowPixel(b.get(), v, c.mapped, Invert8)
                                             : inRect && colour ? NarrowPixel(b.get(), v) : v;
                ASSERT_EQ(b.pixel(x, y), want) << x << "," << y;
            }
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

TEST(RowContext, WritesStayInsideTheRegion) {
    for (const char *name : {"grey12", "bgr24", "grey8", "bgr64"}) {
        SCOPED_TRACE(name);
        Bitmap b(FindLayout(name), 23, 9, 5);
        const RzRect r{3, 1, 17, 8};
        ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
        const Bitmap before(b);
        ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 23; ++x)
                EXPECT_EQ(b.pixel(x, y) != before.pixel(x, y), DisIsPtInRegion(b.get(), x, y) != 0) << x << "," << y;
    }
}

} // namespace
} // namespace rz
