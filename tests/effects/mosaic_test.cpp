// Cell effects: Mosaic and Pixelate against direct tile averages and centre
// pixels on every layout, shape, region and view; the documented edge cases
// (oilify's among them) and the tiles' grout, bevel and colour word worked
// by hand.
#include "direct_pixels.h"

#include <gtest/gtest.h>

namespace rz::test {
namespace {

// Cells of cw x ch from (left, top), clipped to right and bottom; rows are
// taken in processing order, which runs upwards when flip is set.
struct CellRef {
    RzRect clip;
    int64_t cw, ch;
    bool flip = false;
    enum { Truncated, Rounded, Centre } fill = Truncated;
};

Plane CellReference(const Plane &p, const CellRef &g) {
    Plane q = p;
    auto row = [&](int64_t k) { return g.flip ? p.h - 1 - k : k; };
    for (int64_t ty = g.clip.top; ty < g.clip.bottom; ty += g.ch)
        for (int64_t tx = g.clip.left; tx < g.clip.right; tx += g.cw) {
            const int64_t ey = std::min<int64_t>(ty + g.ch, g.clip.bottom), ex = std::min<int64_t>(tx + g.cw, g.clip.right);
            const int64_t area = (ey - ty) * (ex - tx);
            Values v{};
            for (int c = 0; c < p.channels; ++c) {
                int64_t sum = 0;
                for (int64_t k = ty; k < ey; ++k)
                    for (int64_t x = tx; x < ex; ++x) sum += p.at(x, row(k))[c];
                v[c] = g.fill == CellRef::Truncated ? sum / area
                       : g.fill == CellRef::Rounded ? (2 * sum + area) / (2 * area)
                                                    : p.at(tx + (ex - tx - 1) / 2, row(ty + (ey - ty - 1) / 2))[c];
            }
            for (int64_t k = ty; k < ey; ++k)
                for (int64_t x = tx; x < ex; ++x) q.at(x, row(k)) = v;
        }
    return q;
}

// One cell effect: the call, and the reference's grid for the bitmap.
struct CellCase {
    const char *name;
    uint32_t w, h, flags; // flags 2: Mosaic
    CellRef grid(const BitmapDesc *b) const {
        if (flags == 2) return {{0, 0, b->nWidth, b->nHeight}, w, h, b->nViewPerspective == 3 || b->nViewPerspective == 4};
        RzRect r{};
        EXPECT_EQ(DisGetRegionBounds(b, 0, &r), 1);
        r = {std::max(r.left, 0), std::max(r.top, 0), std::min(r.right, b->nWidth), std::min(r.bottom, b->nHeight)};
        return {r, w, h, false, flags ? CellRef::Centre : CellRef::Rounded};
    }
    int32_t run(BitmapDesc *b) const { return flags == 2 ? Rz_MosaicBitmap(b, w) : Rz_PixelateBitmap(b, w, h, flags); }
};

TEST(CellEffects, MatchDirectCellMeansAndCentres) {
    const CellCase cases[] = {{"mosaic", 2, 2, 2},       {"mosaic", 3, 3, 2},        {"mosaic", 16, 16, 2},
                              {"pixelate", 2, 3, 0},     {"pixelate", 5, 1, 0},      {"pixelate", 100, 100, 0},
                              {"pixelate centre", 4, 4, 1}, {"pixelate centre", 3, 2, 1}};
    uint32_t seed = 300;
    for (const Setting &s : ReferenceSettings())
        for (const CellCase &c : cases) {
            SCOPED_TRACE(std::string(s.layout->name) + " " + std::to_string(s.w) + "x" + std::to_string(s.h) +
                         " region " + std::to_string(s.region) + " view " + std::to_string(s.view) + " " + c.name +
                         " " + std::to_string(c.w) + "x" + std::to_string(c.h));
            Bitmap before = Make(s, seed), after = Make(s, seed);
            ++seed;
            const Plane p = DirectPixels(before.get(), false).plane();
            const int64_t blocks = KrnMemOutstanding();
            ASSERT_EQ(c.run(after.get()), 1);
            EXPECT_EQ(KrnMemOutstanding(), blocks);
            ExpectResult(before, after, CellReference(p, c.grid(before.get())), false);
        }
}

TEST(CellEffects, DocumentedCases) {
    // Larger than the bitmap: the whole bitmap becomes its mean, 21 / 6.
    Bitmap whole = GreyBitmap(3, 2, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(Rz_MosaicBitmap(whole.get(), 4294967295u), 1);
    for (int32_t i = 0; i < 6; ++i) EXPECT_EQ(whole.pixel(i % 3, i / 3), 3u);
    // The last, narrower tile is averaged over its own area: 62 / 4,
    // 142 / 4, 103 / 2.
    Bitmap cut = GreyBitmap(5, 2, {10, 20, 30, 40, 51, 11, 21, 31, 41, 52});
    ASSERT_EQ(Rz_MosaicBitmap(cut.get(), 2), 1);
    const uint64_t want[] = {15, 15, 35, 35, 51};
    for (int32_t y = 0; y < 2; ++y)
        for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(cut.pixel(x, y), want[x]);
    // In view 4 the tile rows start at the view's last row, stored row 0:
    // stored 10, 20 | 31 give 15, 15, 31 (not 10 | 25, 25).
    Bitmap flipped = GreyBitmap(1, 3, {10, 20, 31});
    KrnChangeViewPerspective(nullptr, flipped.get(), BITMAPDESC_SIZE, 4, 0);
    ASSERT_EQ(Rz_MosaicBitmap(flipped.get(), 2), 1);
    KrnChangeViewPerspective(nullptr, flipped.get(), BITMAPDESC_SIZE, 1, 0);
    EXPECT_EQ(flipped.pixel(0, 0), 15u);
    EXPECT_EQ(flipped.pixel(0, 1), 15u);
    EXPECT_EQ(flipped.pixel(0, 2), 31u);
    // Size 1 changes nothing, on any layout; neither does oilify on a
    // uniform picture.
    for (const Layout &layout : AllLayouts()) {
        Bitmap b(layout, 5, 4, 9), u(layout, 5, 4, 0);
        const auto before = b.storedBytes(), zeros = u.storedBytes();
        ASSERT_EQ(Rz_MosaicBitmap(b.get(), 1), 1);
        ASSERT_EQ(Rz_PixelateBitmap(b.get(), 1, 1, 0), 1);
        ASSERT_EQ(Rz_OilifyBitmap(b.get(), 1), 1);
        ASSERT_EQ(Rz_OilifyBitmap(u.get(), 4), 1);
        EXPECT_EQ(b.storedBytes(), before) << layout.name;
        EXPECT_EQ(u.storedBytes(), zeros) << layout.name;
    }
}

// 3 x 3 tiles with one grout column and row: 2 x 2 faces. The face values
// 10 20 / 30 41 have the mean 25.25, painted 25; light from the top-left
// (135 degrees) lifts the top-left pixel by 48, lowers the bottom-right one
// and leaves the two corners between a lit and a shaded edge alone.
TEST(MosaicTiles, GroutAndBevelByHand) {
    const std::vector<uint8_t> face = {10, 20, 99, 10, 20, 99, 30, 41, 99, 30, 41, 99, 99, 99, 99, 99, 99, 99};
    struct Case {
        uint32_t flags;
        uint64_t want[4]; // face pixels (0,0), (1,0), (0,1), (1,1)
    };
    const Case cases[] = {{RZ_TILES_MEAN, {73, 25, 25, 0}},
                          {RZ_TILES_MEAN | RZ_TILES_FLAT, {25, 25, 25, 25}},
                          {RZ_TILES_PICTURE, {58, 20, 30, 0}}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.flags);
        Bitmap b = GreyBitmap(6, 3, face);
        // Pure blue in a grey picture: (2 * 0 + 5 * 0 + 255) / 8.
        ASSERT_EQ(Rz_MosaicTilesBitmap(b.get(), 3, 3, 1, 0xFF0000, 13500, c.flags), 1);
        for (int32_t tile = 0; tile < 2; ++tile) {
            for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(b.pixel(tile * 3 + i % 2, i / 2), c.want[i]);
            for (int32_t i = 0; i < 3; ++i) {
                EXPECT_EQ(b.pixel(tile * 3 + 2, i), 31u);
                EXPECT_EQ(b.pixel(tile * 3 + i, 2), 31u);
            }
        }
    }
    // A tile cut by the right edge keeps a face and no grout: column 3 of a
    // 4-wide picture is the left column of a second tile, lit on the left.
    Bitmap cut = GreyBitmap(4, 2, {0, 0, 0, 100, 0, 0, 0, 100});
    ASSERT_EQ(Rz_MosaicTilesBitmap(cut.get(), 3, 2, 1, 0, 18000, RZ_TILES_PICTURE), 1);
    EXPECT_EQ(cut.pixel(3, 0), 148u);
    EXPECT_EQ(cut.pixel(3, 1), 0u) << "grout row";
}

TEST(MosaicTiles, ColourWordsOnDeepGrey) {
    // Red 128 is 32768 on 16 bits, grey (2 * 32768) / 8; bit 26 gives the
    // level itself.
    for (auto [colour, level] : {std::pair{0x80u, 8192u}, std::pair{0x4001234u, 0x1234u}}) {
        Bitmap b(FindLayout("grey16"), 4, 4, 3);
        ASSERT_EQ(Rz_MosaicTilesBitmap(b.get(), 2, 2, 1, colour, 0, RZ_TILES_FLAT), 1);
        EXPECT_EQ(b.pixel(1, 0), level);
        EXPECT_EQ(b.pixel(2, 3), level);
    }
}

// Grout as wide as a tile, and flag values inside the documented range's
// span that mean nothing.
TEST(MosaicTiles, RefusesGroutAsWideAsATileAndUnknownFlags) {
    Bitmap b(FindLayout("bgr24"), 8, 8, 1);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 4, 4, 4, 0, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 8, 3, 3, 0, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 4, 4, 1, 0, 0, 0x20), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 4, 4, 1, 0, 0, 0x100), ST_INVALID_PARAMETER);
}

} // namespace
} // namespace rz::test
