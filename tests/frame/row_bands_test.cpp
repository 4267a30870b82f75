// Rows of every view through the row context, which moves the transposed
// views' rows in bands, on every layout, odd sizes, regions and modes: an
// operation run in view v leaves what it leaves in view 1 (plain stored rows);
// where the working rows are the stored bytes every row read shows the stored
// pixels the view table names, earlier writes included; rows written back
// unchanged leave the bitmap as it was, or narrowed where worked in 8 bits.
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "kernel/kernel_ref.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string_view>

namespace rz {
namespace {

using test::Bitmap;
using test::FindLayout;

// The byte an operation mixes into the working bytes of stored pixel (sx, sy).
uint8_t Key(int sx, int sy, int pass) { return uint8_t(sx * 7 + sy * 13 + pass * 101 + 1); }

// Reads rows a few ahead of the row it writes (as filters do); with `mix`,
// xors a key into every working byte of the row, from the top, then again from
// the bottom. Keys follow the stored position, so the result does not depend
// on the view. `model`: the stored bytes as they should be, checked on reads.
int32_t MixRows(BitmapDesc *bmp, uint32_t mode, bool mix, std::vector<uint8_t> *model) {
    const int view = bmp->nViewPerspective, pw = bmp->nStoredWidth, ph = bmp->nStoredHeight;
    const size_t e = size_t(bmp->nBitsPerPixel / 8), storedRow = size_t(pw) * e;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st != 1) return st;
    const int32_t top = ctx->rcWork.top, bottom = ctx->rcWork.bottom, left = ctx->nAlignedLeft;
    std::vector<std::vector<uint8_t>> rows(size_t(bottom), std::vector<uint8_t>(ContextRowBytes(ctx.get()) + 16));
    const size_t pb = size_t(ContextChannels(ctx.get()) * ContextSampleBits(ctx.get()) / 8);
    if (model && pb != e) model->clear(), model = nullptr;
    auto each = [&](int32_t y, const std::function<void(uint8_t *, uint8_t *, int, int)> &f) {
        for (int32_t x = left; x < ctx->rcWork.right; ++x) {
            int sx = 0, sy = 0;
            kref::Stored(view, pw, ph, x, y, &sx, &sy);
            f(rows[size_t(y)].data() + size_t(x - left) * pb,
              model ? model->data() + size_t(sy) * storedRow + size_t(sx) * e : nullptr, sx, sy);
        }
    };
    auto read = [&](int32_t y) {
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), rows[size_t(y)].data(), y, nullptr, nullptr));
        if (model) each(y, [&](uint8_t *px, uint8_t *m, int, int) { EXPECT_EQ(std::memcmp(px, m, e), 0) << y; });
        return 1;
    };
    auto write = [&](int32_t y, int pass) {
        if (mix) {
            each(y, [&](uint8_t *px, uint8_t *m, int sx, int sy) {
                for (size_t k = 0; k < pb; ++k) px[k] ^= Key(sx, sy, pass);
                for (size_t k = 0; m && k < e; ++k) m[k] ^= Key(sx, sy, pass);
            });
        }
        return PutRowQuiet(ctx.get(), rows[size_t(y)].data(), y, nullptr, 0);
    };
    const int32_t ahead = 3;
    for (int32_t y = top; y < std::min(bottom, top + ahead); ++y) RZ_RETURN_IF_FAILED(read(y));
    for (int32_t y = top; y < bottom; ++y) {
        if (y + ahead < bottom) RZ_RETURN_IF_FAILED(read(y + ahead));
        RZ_RETURN_IF_FAILED(write(y, 0));
        RZ_RETURN_IF_FAILED(read(y));
    }
    for (int32_t y = bottom - 1; y >= top; --y) {
        RZ_RETURN_IF_FAILED(read(y));
        RZ_RETURN_IF_FAILED(write(y, 1));
    }
    return FlushRows(ctx.get());
}

// A k-bit field at bit `low` cut to its top 8 bits and widened back by
// repeating them (x * 257 on 16 bits); `map` on the 8 bits between.
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
    if (b->nBitsPerPixel < 48) return Narrow(v, b->nLowBit, b->nHighBit - b->nLowBit + 1, mapped ? map : nullptr);
    for (int ch = 0; ch < 3; ++ch) v = Narrow(v, 16 * ch, 16, (mapped >> ch & 1) ? map : nullptr);
    return v;
}

constexpr std::pair<int, int> kSizes[] = {{37, 83}, {83, 37}, {1, 41}, {41, 2}, {150, 71}};
constexpr uint32_t kNarrow = RC_GRAY_AS_COLOR | RC_DEEP_AS_24, kWholeWork8 = RC_WHOLE_BITMAP | RC_WORK8;

TEST(RowBands, EveryViewRegionAndModeAgainstViewOneAndTheStoredPixels) {
    for (const test::Layout &layout : test::AllLayouts())
        for (auto [w, h] : kSizes)
            for (int region = 0; region < 3; ++region) // none, a rectangle, an ellipse
                for (uint32_t mode : {0u, kWholeWork8, kNarrow, uint32_t(RC_FORCE_48)}) {
                    const bool mix = mode == 0 || mode == kWholeWork8;
                    const bool direct = std::string_view("grey8 grey16 bgr24 bgr48").find(layout.name) != std::string_view::npos;
                    const bool deep = layout.bits >= 48 || (layout.order == KRN_ORDER_GRAY && layout.bits > 8);
                    Bitmap b(layout, w, h, uint32_t(w * 31 + h)), want;
                    const RzRect rc{w / 5, h / 4, w - w / 7, h - 1};
                    if (region == 1) ASSERT_EQ(DisSetRegionRect(b.get(), &rc, 0), 1);
                    if (region == 2) ASSERT_EQ(DisSetRegionEllipse(b.get(), &rc, 0), 1);
                    for (int view = 1; view <= 8; ++view) {
                        SCOPED_TRACE(testing::Message() << layout.name << " " << w << "x" << h << " region " << region
                                                        << " mode " << mode << " view " << view);
                        Bitmap got(b);
                        ASSERT_EQ(KrnChangeViewPerspective(nullptr, got.get(), BITMAPDESC_SIZE, view, 0), 1);
                        std::vector<uint8_t> model = direct ? got.storedBytes() : std::vector<uint8_t>();
                        const int32_t st = MixRows(got.get(), mode, mix, direct && mix ? &model : nullptr);
                        ASSERT_TRUE(st == 1 || st == ST_NOTHING_TO_DO) << st;
                        if (mix) {
                            if (view == 1) want = got;
                            ASSERT_EQ(got.storedBytes(), want.storedBytes());
                            if (!model.empty()) ASSERT_EQ(got.storedBytes(), model);
                            continue;
                        }
                        RzRect bounds{0, 0, got->nWidth, got->nHeight};
                        if (region) ASSERT_EQ(DisGetRegionBounds(got.get(), 0, &bounds), 1);
                        Bitmap before(b);
                        ASSERT_EQ(KrnChangeViewPerspective(nullptr, before.get(), BITMAPDESC_SIZE, view, 0), 1);
                        for (int32_t y = 0; y < got->nHeight; ++y)
                            for (int32_t x = 0; x < got->nWidth; ++x) {
                                const bool in = x >= bounds.left && x < bounds.right && y >= bounds.top && y < bounds.bottom;
                                const uint64_t v = before.pixel(x, y);
                                const bool narrowed = deep && mode == kNarrow && in;
                                ASSERT_EQ(got.pixel(x, y), narrowed ? NarrowPixel(got.get(), v) : v) << x << "," << y;
                            }
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
        for (int32_t y = 0; y < 9; ++y)
            for (int32_t x = 0; x < 13; ++x) {
                const bool inRect = x >= 2 && x < 11 && y >= 1 && y < 8, inside = DisIsPtInRegion(b.get(), x, y);
                const uint64_t v = before.pixel(x, y);
                const uint64_t want = inside ? NarrowPixel(b.get(), v, c.mapped, Invert8)
                                             : inRect && b->nBitsPerPixel >= 48 ? NarrowPixel(b.get(), v) : v;
                ASSERT_EQ(b.pixel(x, y), want) << x << "," << y;
            }
    }
}

} // namespace
} // namespace rz
