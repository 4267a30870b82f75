// Mosaic, Pixelate and Oilify against references that read pixels with
// KrnGetPixel, on every layout, shape, region and view; tie rules, edge cases
// and the tiles' grout, bevel and colour word worked by hand.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace rz::test {
namespace {

using Values = std::array<int64_t, 3>; // blue, green, red; grey in [0]

struct Plane {
    int32_t w = 0, h = 0;
    std::vector<Values> px;
    Values &at(int64_t x, int64_t y) { return px[size_t(y) * w + x]; }
    const Values &at(int64_t x, int64_t y) const { return px[size_t(y) * w + x]; }
};

// A layout's stored values as an effect sees them, and back.
struct Codec {
    const BitmapDesc *b;
    bool narrow; // 8 bits a channel whatever the depth, as oilify works
    int bits = b->nBitsPerPixel, channels = bits > 16 ? 3 : 1, low = b->nLowBit;
    int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit;
    int width = bits > 16 ? 8 + 8 * (bits >= 48) : high - low + 1;
    int cut = narrow && width > 8 ? width - 8 : 0;
    uint64_t mask = (uint64_t(1) << width) - 1;
    bool grey = b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b);
    std::vector<RzRGBQuad> pal = std::vector<RzRGBQuad>(
        bits < 8 || (bits == 8 && b->nColorOrder != KRN_ORDER_GRAY) ? b->nColors : 0);
    Codec(const BitmapDesc *d, bool n) : b(d), narrow(n) {
        if (!pal.empty()) KrnGetBitmapPalette(b, 0, b->nColors, pal.data());
    }
    int shift(int c) const { return channels == 3 ? (2 - c) * width : low; } // red in the low bits

    Values decode(uint64_t v) const {
        Values out{};
        if (!pal.empty()) {
            const RzRGBQuad &e = pal[std::min<size_t>(v, pal.size() - 1)];
            return grey ? Values{e.rgbGreen, 0, 0} : Values{e.rgbBlue, e.rgbGreen, e.rgbRed};
        }
        for (int c = 0; c < channels; ++c) out[c] = int64_t(((v >> shift(c)) & mask) >> cut);
        return out;
    }
    // The stored value after writing v over `old`: palettes take the nearest
    // entry; the fourth channel and deep grey's other bits stay.
    uint64_t encode(uint64_t old, const Values &v) const {
        int64_t best = INT64_MAX, index = 0;
        for (size_t i = 0; i < pal.size(); ++i) {
            const Values c = grey ? Values{v[0], v[0], v[0]} : v;
            const int64_t b = c[0] - pal[i].rgbBlue, g = c[1] - pal[i].rgbGreen;
            const int64_t e = b * b + g * g + (c[2] - pal[i].rgbRed) * (c[2] - pal[i].rgbRed);
            if (e < best) best = e, index = int64_t(i);
        }
        if (!pal.empty()) return uint64_t(index);
        for (int c = 0; c < channels; ++c) {
            const uint64_t s = cut ? (uint64_t(v[c]) * 257) >> (16 - width) : uint64_t(v[c]);
            old = (old & ~(mask << shift(c))) | (s << shift(c));
        }
        return old;
    }
    Plane plane() const {
        Plane p{b->nWidth, b->nHeight, {}};
        for (int32_t i = 0; i < p.w * p.h; ++i) {
            uint64_t v = 0;
            KrnGetPixel(b, i % p.w, i / p.w, &v);
            p.px.push_back(decode(v));
        }
        return p;
    }
};

// Cells of cw x ch from (left, top), clipped to right and bottom; rows are
// taken in processing order, which runs upwards when flip is set.
enum Fill { Truncated, Rounded, Centre };
Plane Cells(const Plane &p, const RzRect &clip, int64_t cw, int64_t ch, bool flip, Fill fill) {
    Plane q = p;
    for (int64_t ty = clip.top; ty < clip.bottom; ty += ch)
        for (int64_t tx = clip.left; tx < clip.right; tx += cw) {
            const int64_t ey = std::min<int64_t>(ty + ch, clip.bottom);
            const int64_t ex = std::min<int64_t>(tx + cw, clip.right), area = (ey - ty) * (ex - tx);
            auto at = [&](int64_t i) -> Values & {
                const int64_t y = ty + i / (ex - tx);
                return q.at(tx + i % (ex - tx), flip ? p.h - 1 - y : y);
            };
            Values v = at((ey - ty - 1) / 2 * (ex - tx) + (ex - tx - 1) / 2), sum{};
            for (int64_t i = 0; i < area; ++i)
                for (int c = 0; c < 3; ++c) sum[c] += at(i)[c];
            for (int c = 0; c < 3 && fill != Centre; ++c)
                v[c] = fill == Truncated ? sum[c] / area : (2 * sum[c] + area) / (2 * area);
            for (int64_t i = 0; i < area; ++i) at(i) = v;
        }
    return q;
}

// Oilify as stated: the window's mode per channel, updated column by column;
// a tie goes to the value that reached the count first, and after the mode
// leaves, to the lowest of a fresh search.
Plane LiteralOilify(const Plane &p, int64_t n) {
    Plane q = p;
    const int64_t h1 = (n - 1) / 2, h2 = n / 2;
    auto at = [&](int64_t x, int64_t y, int c) {
        return p.at(std::clamp<int64_t>(x, 0, p.w - 1), std::clamp<int64_t>(y, 0, p.h - 1))[c];
    };
    for (int32_t y = 0; y < p.h; ++y)
        for (int c = 0; c < 3; ++c) {
            std::vector<int64_t> count(256, 0);
            int64_t mode = 0;
            for (int64_t r = y - h1; r <= y + h2; ++r)
                for (int64_t col = -h1; col <= h2; ++col) {
                    const int64_t v = at(col, r, c);
                    if (++count[v] > count[mode] && v != mode) mode = v;
                }
            q.at(0, y)[c] = mode;
            for (int32_t x = 1; x < p.w; ++x) {
                for (int64_t r = y - h1; r <= y + h2; ++r) {
                    const int64_t out = at(x - 1 - h1, r, c), in = at(x + h2, r, c);
                    --count[out], ++count[in];
                    if (out == mode)
                        mode = std::max_element(count.begin(), count.end()) - count.begin();
                    else if (in != mode && count[in] > count[mode])
                        mode = in;
                }
                q.at(x, y)[c] = mode;
            }
        }
    return q;
}

// Every output channel value is as frequent as any value of its window.
void ExpectModes(const Plane &p, const Plane &q, int64_t n) {
    const int64_t h1 = (n - 1) / 2, h2 = n / 2;
    // The window positions that the edge clamp maps to i.
    auto weight = [](int64_t i, int64_t lo, int64_t hi, int64_t size) -> uint64_t {
        const int64_t to = i == size - 1 ? hi : std::min(i, hi);
        return uint64_t(std::max<int64_t>(0, to - (i == 0 ? lo : std::max(i, lo)) + 1));
    };
    for (int32_t k = 0; k < p.w * p.h * 3; ++k) {
        const int32_t x = k / 3 % p.w, y = k / 3 / p.w, c = k % 3;
        std::vector<uint64_t> count(256, 0);
        for (int32_t i = 0; i < p.w * p.h; ++i)
            count[p.px[i][c]] +=
                weight(i / p.w, y - h1, y + h2, p.h) * weight(i % p.w, x - h1, x + h2, p.w);
        ASSERT_EQ(count[q.at(x, y)[c]], *std::max_element(count.begin(), count.end())) << x << y;
    }
}

// The reference's values inside the region (the sweeps check the rest).
void ExpectResult(const Bitmap &before, const Bitmap &after, const Plane &want, bool narrow) {
    const Codec codec(before.get(), narrow);
    for (int32_t i = 0; i < want.w * want.h; ++i) {
        const int32_t x = i % want.w, y = i / want.w;
        if (!DisIsPtInRegion(before.get(), x, y)) continue;
        ASSERT_EQ(after.pixel(x, y), codec.encode(before.pixel(x, y), want.at(x, y))) << x << y;
    }
}

// One effect (kind 0/1: Pixelate's flags, 2: Mosaic, 3: Oilify) on one bitmap
// against its reference; oilify's results must also be modes. Settings: edge
// shapes and a larger one; no region, an ellipse over the left and top edges,
// a rectangle inside; views 1, 3 and 6.
void CheckEffect(const Layout &layout, int setting, uint32_t cw, uint32_t ch, uint32_t kind,
                 uint32_t seed) {
    const std::pair<int32_t, int32_t> shapes[] = {{1, 1}, {1, 7}, {8, 1}, {13, 11}};
    const int views[] = {1, 3, 6}, region = setting % 3, view = views[(setting / 3 + region) % 3];
    Bitmap before(layout, shapes[setting / 3].first, shapes[setting / 3].second, seed);
    KrnChangeViewPerspective(nullptr, before.get(), BITMAPDESC_SIZE, view, 0);
    const int32_t vw = before->nWidth, vh = before->nHeight;
    for (int32_t i = 0; kind == 3 && seed % 2 && i < vw * vh; ++i) // ties are common
        before.setPixel(i % vw, i / vw, before.pixel(i % vw, i / vw) & 0x030303030303u);
    Bitmap after(before); // a copy drops the region: set it on both
    const RzRect ellipse{-vw / 3, -vh / 4, vw * 2 / 3 + 1, vh * 3 / 4 + 1};
    const RzRect rect{vw / 3, vh / 4, vw - vw / 5, vh};
    const auto set = region == 1 ? DisSetRegionEllipse : DisSetRegionRect;
    for (Bitmap *b : {&before, &after})
        if (region) set(b->get(), region == 1 ? &ellipse : &rect, DIS_RGN_SET);
    const Plane p = Codec(before.get(), kind == 3).plane();
    ASSERT_EQ(kind == 3   ? Rz_OilifyBitmap(after.get(), cw)
              : kind == 2 ? Rz_MosaicBitmap(after.get(), cw)
                          : Rz_PixelateBitmap(after.get(), cw, ch, kind), 1);
    RzRect r{};
    DisGetRegionBounds(before.get(), 0, &r);
    r = {std::max(r.left, 0), std::max(r.top, 0), std::min(r.right, vw), std::min(r.bottom, vh)};
    const Plane want = kind == 3   ? LiteralOilify(p, cw)
                       : kind == 2 ? Cells(p, {0, 0, vw, vh}, cw, ch, view == 3, Truncated)
                                   : Cells(p, r, cw, ch, false, kind ? Centre : Rounded);
    if (kind == 3 && vw * vh > 1) ExpectModes(p, want, cw);
    ExpectResult(before, after, want, kind == 3);
}

TEST(Effects, MatchTheDirectReferences) {
    const std::array<uint32_t, 3> cases[] = { // cell width, height, kind
        {2, 2, 2}, {3, 3, 2}, {16, 16, 2}, {1, 1, 2}, {2, 3, 0}, {5, 1, 0}, {100, 100, 0},
        {4, 4, 1}, {3, 2, 1}, {2, 2, 3}, {3, 3, 3}, {5, 5, 3}, {8, 8, 3}, {30, 30, 3}};
    uint32_t seed = 100;
    for (const Layout &layout : AllLayouts())
        for (int setting = 0; setting < 12; ++setting)
            for (const auto &[cw, ch, kind] : cases) {
                SCOPED_TRACE(layout.name + (" setting " + std::to_string(setting)) + " kind " +
                             std::to_string(kind) + " cell " + std::to_string(cw));
                CheckEffect(layout, setting, cw, ch, kind, ++seed);
            }
}

// Grey pictures worked by hand: Mosaic's truncated means and Oilify's ties;
// windows far larger than the picture, with counts beyond 32 bits.
TEST(Effects, HandWorkedCells) {
    const struct {
        int32_t w;
        std::vector<uint8_t> in;
        int kind; // 0: Mosaic, 1: Oilify, 2: Mosaic in view 4
        uint32_t n;
        std::vector<uint64_t> want;
    } cases[] = {
        {3, {1, 2, 3, 4, 5, 6}, 0, 4294967295u, {3, 3, 3, 3, 3, 3}}, // one tile: 21 / 6
        // The last, narrower tile is averaged over its own area: 62 / 4, 142 / 4, 103 / 2.
        {5, {10, 20, 30, 40, 51, 11, 21, 31, 41, 52}, 0, 2,
         {15, 15, 35, 35, 51, 15, 15, 35, 35, 51}},
        // In view 4 tile rows start at the view's last row, stored row 0: 10, 20 | 31.
        {1, {10, 20, 31}, 2, 2, {15, 15, 31}},
        // x = 0 adds 30, 10, 30, 10: 30 came first. At x = 1 the mode's 30 leaves,
        // the search finds 10 and 30 twice each: 10. At x = 2 the 10 leaves: 30.
        {3, {30, 10, 30, 30, 10, 30}, 1, 2, {30, 10, 30, 30, 10, 30}},
        // At (0, 0) the counts of 5 and 7 rise in turns from the top-left: 5 keeps the lead.
        {2, {5, 7, 7, 5}, 1, 3, {5, 7, 7, 5}},
    };
    for (const auto &c : cases) {
        Bitmap b = GreyBitmap(c.w, int32_t(c.in.size()) / c.w, c.in);
        KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, c.kind == 2 ? 4 : 1, 0);
        ASSERT_EQ(c.kind == 1 ? Rz_OilifyBitmap(b.get(), c.n) : Rz_MosaicBitmap(b.get(), c.n), 1);
        KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 1, 0);
        for (size_t i = 0; i < c.in.size(); ++i) EXPECT_EQ(b.pixel(i % c.w, i / c.w), c.want[i]);
    }
    for (const char *layout : {"grey8", "bgr24"}) { // counts beyond 32 bits, against the modes
        Bitmap before(FindLayout(layout), 4, 3, 7);
        for (uint32_t n : {65537u, 4294967295u}) {
            Bitmap after(before);
            ASSERT_EQ(Rz_OilifyBitmap(after.get(), n), 1);
            ExpectModes(Codec(before.get(), true).plane(), Codec(after.get(), true).plane(), n);
        }
    }
}

// 3 x 3 tiles with one grout column and row: 2 x 2 faces. The face values
// 10 20 / 30 41 have the mean 25.25, painted 25; light from the top-left
// (135 degrees) lifts the top-left pixel by 48, lowers the bottom-right one
// and leaves the two corners between a lit and a shaded edge alone. Pure
// blue grout in a grey picture: (2 * 0 + 5 * 0 + 255) / 8.
TEST(Effects, MosaicTilesByHand) {
    const std::vector<uint8_t> face = {10, 20, 99, 10, 20, 99, 30, 41, 99, 30, 41, 99, 99, 99, 99,
                                       99, 99, 99};
    const std::pair<uint32_t, std::vector<uint64_t>> cases[] = { // faces (0,0), (1,0), (0,1), (1,1)
        {RZ_TILES_MEAN, {73, 25, 25, 0}}, {RZ_TILES_MEAN | RZ_TILES_FLAT, {25, 25, 25, 25}},
        {RZ_TILES_PICTURE, {58, 20, 30, 0}}};
    for (const auto &[flags, want] : cases) {
        Bitmap b = GreyBitmap(6, 3, face);
        ASSERT_EQ(Rz_MosaicTilesBitmap(b.get(), 3, 3, 1, 0xFF0000, 13500, flags), 1);
        for (int32_t i = 0; i < 8; ++i) // two tiles' faces
            EXPECT_EQ(b.pixel(i / 4 * 3 + i % 2, i % 4 / 2), want[i % 4]) << i;
        for (int32_t i = 0; i < 6; ++i) // grout columns and row
            EXPECT_TRUE(b.pixel(i / 3 * 3 + 2, i % 3) == 31 && b.pixel(i, 2) == 31) << i;
    }
    // A tile cut by the right edge keeps a face and no grout: column 3 of a
    // 4-wide picture is the left column of a second tile, lit on the left.
    Bitmap cut = GreyBitmap(4, 2, {0, 0, 0, 100, 0, 0, 0, 100});
    ASSERT_EQ(Rz_MosaicTilesBitmap(cut.get(), 3, 2, 1, 0, 18000, RZ_TILES_PICTURE), 1);
    EXPECT_TRUE(cut.pixel(3, 0) == 148 && cut.pixel(3, 1) == 0) << "face, grout row";
    Bitmap deep(FindLayout("grey16"), 4, 4, 3); // with bit 26, the colour word is the level
    ASSERT_EQ(Rz_MosaicTilesBitmap(deep.get(), 2, 2, 1, 0x4001234u, 0, RZ_TILES_FLAT), 1);
    EXPECT_EQ(deep.pixel(1, 0), 0x1234u);
    Bitmap b(FindLayout("bgr24"), 8, 8, 1); // grout as wide as a tile; a flag past its values
    for (const auto &a : {std::array<uint32_t, 4>{4, 4, 4, 0}, {8, 3, 3, 0}, {4, 4, 1, 0x20}})
        EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), a[0], a[1], a[2], 0, 0, a[3]), -13) << a[3];
}

} // namespace
} // namespace rz::test
