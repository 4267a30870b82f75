// Rows of every view (transposed ones move in bands) on every layout, odd
// sizes, regions and modes: each view leaves what view 1 leaves; reads show
// the stored pixels the view table names, earlier writes included; rows put
// back unchanged leave the picture as it was, or narrowed where worked in 8 bits.
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
using Bytes = std::vector<uint8_t>;

// The byte an operation mixes into the working bytes of stored pixel (sx, sy).
uint8_t Key(int sx, int sy, int pass) { return uint8_t(sx * 7 + sy * 13 + pass * 101 + 1); }

// Reads rows a few ahead of the row it writes (as filters do); with `mix`, xors
// a key that follows the stored position into every working byte, top-down,
// then bottom-up. `model`: the stored bytes as they should be, checked on
// reads (emptied where the working bytes are not the stored ones).
int32_t MixRows(BitmapDesc *bmp, uint32_t mode, bool mix, Bytes *model) {
    const int view = bmp->nViewPerspective, pw = bmp->nStoredWidth, ph = bmp->nStoredHeight;
    const size_t e = size_t(bmp->nBitsPerPixel / 8), storedRow = size_t(pw) * e;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st != 1) return st;
    const int32_t top = ctx->rcWork.top, bottom = ctx->rcWork.bottom, left = ctx->nAlignedLeft;
    std::vector<Bytes> rows(size_t(bottom), Bytes(ContextRowBytes(ctx.get()) + 16));
    const size_t pb = size_t(ContextChannels(ctx.get()) * ContextSampleBits(ctx.get()) / 8);
    if (model && pb != e) model->clear(), model = nullptr;
    // Whole-bitmap contexts put only the region's pixels.
    const bool whole = (mode & RC_WHOLE_BITMAP) && bmp->pRegion;
    using Pixel = std::function<void(uint8_t *px, uint8_t *stored, uint8_t key, bool put)>;
    auto each = [&](int32_t y, int pass, const Pixel &f) {
        for (int32_t x = left; x < ctx->rcWork.right; ++x) {
            int sx = 0, sy = 0;
            kref::Stored(view, pw, ph, x, y, &sx, &sy);
            uint8_t *m = model ? model->data() + size_t(sy) * storedRow + size_t(sx) * e : nullptr;
            const bool put = !whole || DisIsPtInRegion(bmp, x, y);
            f(rows[size_t(y)].data() + size_t(x - left) * pb, m, Key(sx, sy, pass), put);
        }
    };
    auto read = [&](int32_t y) {
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), rows[size_t(y)].data(), y, nullptr, nullptr));
        auto same = [&](uint8_t *p, uint8_t *m, uint8_t, bool) { ASSERT_FALSE(memcmp(p, m, e)); };
        if (model) each(y, 0, same);
        return 1;
    };
    auto write = [&](int32_t y, int pass) {
        if (mix) {
            each(y, pass, [&](uint8_t *px, uint8_t *m, uint8_t key, bool put) {
                for (size_t k = 0; k < pb; ++k) px[k] ^= key, m && put && (m[k] ^= key);
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
// repeating them (x * 257 on 16 bits).
uint64_t Narrow(uint64_t v, int low, int k) {
    const uint64_t mask = (uint64_t(1) << k) - 1, top = (v >> low & mask) >> (k - 8);
    return (v & ~(mask << low)) | ((top * 257u) >> (16 - k)) << low;
}

// Every sample of a raw pixel narrowed: 16-bit channels (never the fourth) or
// the significant bits of deep grey.
uint64_t NarrowPixel(const BitmapDesc *b, uint64_t v) {
    if (b->nBitsPerPixel < 48) return Narrow(v, b->nLowBit, b->nHighBit - b->nLowBit + 1);
    return Narrow(Narrow(Narrow(v, 0, 16), 16, 16), 32, 16);
}

constexpr uint32_t kNarrow = RC_GRAY_AS_COLOR | RC_DEEP_AS_24;
constexpr uint32_t kWhole8 = RC_WHOLE_BITMAP | RC_WORK8;

// `make` gives the bitmap with its region (a copy would drop the region).
void CheckEveryView(const std::function<Bitmap()> &make, uint32_t mode, const test::Layout &l) {
    const bool mix = mode == 0 || mode == kWhole8;
    const std::string_view direct8 = "grey8 grey16 bgr24 bgr48"; // working bytes as stored
    const bool direct = direct8.find(l.name) != direct8.npos;
    const bool deep = l.bits >= 48 || (l.order == KRN_ORDER_GRAY && l.bits > 8);
    Bitmap want, b = make();
    for (int view = 1; view <= 8; ++view) {
        SCOPED_TRACE(testing::Message() << "view " << view);
        Bitmap got = make();
        ASSERT_EQ(KrnChangeViewPerspective(nullptr, got.get(), 164, view, 0), 1);
        Bytes model = direct && mix ? got.storedBytes() : Bytes();
        const int32_t st = MixRows(got.get(), mode, mix, model.empty() ? nullptr : &model);
        ASSERT_TRUE(st == 1 || st == ST_NOTHING_TO_DO) << st;
        if (view == 1) want = got;
        ASSERT_EQ(got.storedBytes(), want.storedBytes());
        ASSERT_TRUE(model.empty() || got.storedBytes() == model);
    }
    if (mix) return;
    // Written back unchanged: as it was, or narrowed in the region's bounding rectangle.
    RzRect r{0, 0, b->nWidth, b->nHeight};
    ASSERT_TRUE(!b->pRegion || DisGetRegionBounds(b.get(), 0, &r) == 1);
    for (int32_t y = 0; y < b->nHeight; ++y)
        for (int32_t x = 0; x < b->nWidth; ++x) {
            const bool in = x >= r.left && x < r.right && y >= r.top && y < r.bottom;
            const uint64_t v = b.pixel(x, y);
            const uint64_t narrowed = deep && mode == kNarrow && in ? NarrowPixel(b.get(), v) : v;
            ASSERT_EQ(want.pixel(x, y), narrowed) << x << "," << y;
        }
}

TEST(RowBands, EveryViewRegionAndModeAgainstViewOneAndTheStoredPixels) {
    const std::pair<int, int> sizes[] = {{37, 83}, {83, 37}, {1, 41}, {41, 2}, {150, 71}};
    for (const test::Layout &layout : test::AllLayouts())
        for (auto [w, h] : sizes)
            for (int region = 0; region < 3; ++region) // none, a rectangle, an ellipse
                for (uint32_t mode : {0u, kWhole8, kNarrow, uint32_t(RC_FORCE_48)}) {
                    SCOPED_TRACE(testing::Message() << layout.name << " " << w << "x" << h
                                                    << " region " << region << " mode " << mode);
                    const RzRect rc{w / 5, h / 4, w - w / 7, h - 1};
                    CheckEveryView([&] {
                        Bitmap b(layout, w, h, uint32_t(w * 31 + h));
                        auto set = region == 1 ? DisSetRegionRect : DisSetRegionEllipse;
                        if (region) set(b.get(), &rc, 0);
                        return b;
                    }, mode, layout);
                }
}

} // namespace
} // namespace rz
