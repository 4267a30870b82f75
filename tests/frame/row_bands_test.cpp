// Rows of every view through the row context, which moves the transposed
// views' rows in bands: an operation run in view v must leave exactly what
// the same per-pixel computation leaves when run in view 1 (rows there are
// plain stored rows), on every layout, odd sizes and regions; and in the
// layouts whose working rows are the stored bytes, every row read must show
// the stored pixels the view table names, writes of earlier rows included.
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "kernel/kernel_ref.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace rz {
namespace {

using test::Bitmap;

// The byte an operation mixes into the working bytes of stored pixel (sx, sy).
uint8_t Key(int sx, int sy, int pass) { return uint8_t(sx * 7 + sy * 13 + pass * 101 + 1); }

// What a working row must show, when its bytes are the stored ones.
using RowCheck = std::function<void(int32_t y, const uint8_t *row)>;

// Reads rows a few ahead of the row it writes (as filters do), mixes a key
// into every working byte of the row, writes it and reads it back; then a
// second pass runs bottom-up. Keys follow the stored position, so the result
// does not depend on the view.
int32_t MixRows(BitmapDesc *bmp, uint32_t mode, const RowCheck &check) {
    const int view = bmp->nViewPerspective, pw = bmp->nStoredWidth, ph = bmp->nStoredHeight;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st != 1) return st;
    const size_t bytes = ContextRowBytes(ctx.get()) + 16;
    const int32_t top = ctx->rcWork.top, bottom = ctx->rcWork.bottom, ahead = 3;
    std::vector<std::vector<uint8_t>> rows(static_cast<size_t>(bottom), std::vector<uint8_t>(bytes));
    const int32_t pixelBytes = ContextChannels(ctx.get()) * ContextSampleBits(ctx.get()) / 8;
    auto mix = [&](int32_t y, int pass) {
        uint8_t *r = rows[size_t(y)].data();
        for (int32_t x = ctx->nAlignedLeft; x < ctx->rcWork.right; ++x) {
            int sx = 0, sy = 0;
            kref::Stored(view, pw, ph, x, y, &sx, &sy);
            for (int32_t b = 0; b < pixelBytes; ++b) r[size_t(x - ctx->nAlignedLeft) * pixelBytes + b] ^= Key(sx, sy, pass);
        }
    };
    auto read = [&](int32_t y) {
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), rows[size_t(y)].data(), y, nullptr, nullptr));
        if (check) check(y, rows[size_t(y)].data());
        return 1;
    };
    for (int32_t y = top; y < std::min(bottom, top + ahead); ++y) RZ_RETURN_IF_FAILED(read(y));
    for (int32_t y = top; y < bottom; ++y) {
        if (y + ahead < bottom) RZ_RETURN_IF_FAILED(read(y + ahead));
        mix(y, 0);
        RZ_RETURN_IF_FAILED(PutRowQuiet(ctx.get(), rows[size_t(y)].data(), y, nullptr, 0));
        RZ_RETURN_IF_FAILED(read(y));
    }
    for (int32_t y = bottom - 1; y >= top; --y) {
        RZ_RETURN_IF_FAILED(read(y));
        mix(y, 1);
        RZ_RETURN_IF_FAILED(PutRowQuiet(ctx.get(), rows[size_t(y)].data(), y, nullptr, 0));
    }
    return 1;
}

enum class Region { None, Rect, Ellipse };

Bitmap Make(const test::Layout &layout, int w, int h, Region region) {
    Bitmap b(layout, w, h, uint32_t(w * 31 + h));
    const RzRect rc{w / 5, h / 4, w - w / 7, h - 1};
    if (region == Region::Rect) {
        EXPECT_EQ(DisSetRegionRect(b.get(), &rc, 0), 1);
    } else if (region == Region::Ellipse) {
        EXPECT_EQ(DisSetRegionEllipse(b.get(), &rc, 0), 1);
    }
    return b;
}

constexpr std::pair<int, int> kSizes[] = {{37, 83}, {83, 37}, {1, 41}, {41, 2}, {150, 71}};

TEST(RowBands, EveryViewLeavesWhatViewOneLeaves) {
    for (const test::Layout &layout : test::AllLayouts())
        for (auto [w, h] : kSizes)
            for (Region region : {Region::None, Region::Rect, Region::Ellipse})
                for (uint32_t mode : {0u, uint32_t(RC_WHOLE_BITMAP)}) {
                    Bitmap want = Make(layout, w, h, region);
                    ASSERT_EQ(MixRows(want.get(), mode, nullptr), 1);
                    for (int view = 2; view <= 8; ++view) {
                        SCOPED_TRACE(testing::Message() << layout.name << " " << w << "x" << h << " region "
                                                        << int(region) << " mode " << mode << " view " << view);
                        Bitmap got = Make(layout, w, h, region);
                        ASSERT_EQ(KrnChangeViewPerspective(nullptr, got.get(), BITMAPDESC_SIZE, view, 0), 1);
                        ASSERT_EQ(MixRows(got.get(), mode, nullptr), 1);
                        ASSERT_EQ(got.storedBytes(), want.storedBytes());
                    }
                }
}

TEST(RowBands, RowsReadShowTheStoredPixelsOfTheView) {
    for (const char *name : {"grey8", "grey16", "bgr24", "bgr48"})
        for (auto [w, h] : kSizes)
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << name << " " << w << "x" << h << " view " << view);
                const test::Layout &layout = test::FindLayout(name);
                Bitmap b = Make(layout, w, h, Region::Ellipse);
                const int e = layout.bits / 8;
                // The picture as it should be, updated as rows are put.
                std::vector<uint8_t> model = b.storedBytes();
                const size_t storedRow = size_t(w) * size_t(e);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), 1);
                RzRect bounds{};
                ASSERT_EQ(DisGetRegionBounds(b.get(), 0, &bounds), 1);
                int reads = 0;
                auto check = [&](int32_t y, const uint8_t *row) {
                    ++reads;
                    for (int32_t x = bounds.left; x < bounds.right; ++x) {
                        int sx = 0, sy = 0;
                        kref::Stored(view, w, h, x, y, &sx, &sy);
                        const uint8_t *px = model.data() + size_t(sy) * storedRow + size_t(sx) * size_t(e);
                        ASSERT_EQ(std::memcmp(row + size_t(x - bounds.left) * size_t(e), px, size_t(e)), 0)
                            << "x " << x << " y " << y;
                    }
                };
                // Writes restricted to the work rectangle: the model follows
                // by applying the same keys to it.
                int32_t st = 0;
                {
                    RowContextPtr ctx = MakeRowContext(b.get(), e == 1 ? uint32_t(RC_WORK8) : 0u, st);
                    ASSERT_EQ(st, 1);
                    std::vector<uint8_t> row(ContextRowBytes(ctx.get()) + 16);
                    for (int32_t y = bounds.top; y < bounds.bottom; ++y) {
                        ASSERT_EQ(GetRow(ctx.get(), row.data(), y, nullptr, nullptr), 1);
                        check(y, row.data());
                        for (int32_t x = bounds.left; x < bounds.right; ++x) {
                            int sx = 0, sy = 0;
                            kref::Stored(view, w, h, x, y, &sx, &sy);
                            for (int k = 0; k < e; ++k) {
                                row[size_t(x - bounds.left) * size_t(e) + size_t(k)] ^= Key(sx, sy, 0);
                                model[size_t(sy) * storedRow + size_t(sx) * size_t(e) + size_t(k)] ^= Key(sx, sy, 0);
                            }
                        }
                        ASSERT_EQ(PutRowQuiet(ctx.get(), row.data(), y, nullptr, 0), 1);
                    }
                    // Every row again, the written ones included, before and after a flush.
                    for (int32_t y = bounds.top; y < bounds.bottom; ++y) {
                        ASSERT_EQ(GetRow(ctx.get(), row.data(), y, nullptr, nullptr), 1);
                        check(y, row.data());
                    }
                    ASSERT_EQ(FlushRows(ctx.get()), 1);
                }
                EXPECT_EQ(b.storedBytes(), model);
                EXPECT_EQ(reads, 2 * (bounds.bottom - bounds.top));
            }
}

} // namespace
} // namespace rz
