// Mosaic, Pixelate and Oilify against references that read and write
// pixels one at a time with KrnGetPixel, on every layout, shape, region and
// view; the tie rules, edge cases and the tiles' grout, bevel and colour
// word worked by hand. The reference turns each stored value into the
// channels an effect works on by the layout's documented rules, and back:
// palettes to their entries and back to the nearest entry, deep grey to its
// significant bits (oilify: their high byte), 16-bit channels to themselves
// (oilify: the high byte, back times 257). Inside the region a result must
// hold the stored value the reference predicts, outside it the original.
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
    int32_t w = 0, h = 0, channels = 1;
    std::vector<Values> px;
    Values &at(int64_t x, int64_t y) { return px[size_t(y) * w + x]; }
    const Values &at(int64_t x, int64_t y) const { return px[size_t(y) * w + x]; }
    // Edge replication.
    const Values &clamped(int64_t x, int64_t y) const {
        return at(std::clamp<int64_t>(x, 0, w - 1), std::clamp<int64_t>(y, 0, h - 1));
    }
};

std::vector<RzRGBQuad> Palette(const BitmapDesc *b) {
    std::vector<RzRGBQuad> pal;
    if (b->nBitsPerPixel > 8 || (b->nBitsPerPixel == 8 && b->nColorOrder == KRN_ORDER_GRAY)) return pal;
    pal.resize(size_t(b->nColors));
    KrnGetBitmapPalette(b, 0, b->nColors, pal.data());
    return pal;
}

// A layout's stored values as an effect sees them, and back. narrow: 8 bits
// a channel whatever the depth, as oilify works.
struct Codec {
    const BitmapDesc *b;
    bool narrow;
    int bits = b->nBitsPerPixel, step = bits >= 48 ? 16 : 8;
    bool grey = b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b);
    int low = b->nLowBit, count = (b->nHighBit < 0 ? bits - 1 : b->nHighBit) - low + 1; // 12/16-bit grey
    std::vector<RzRGBQuad> pal = Palette(b);

    Values decode(uint64_t v) const {
        if (!pal.empty()) {
            const RzRGBQuad &e = pal[std::min<size_t>(v, pal.size() - 1)];
            return grey ? Values{e.rgbGreen, 0, 0} : Values{e.rgbBlue, e.rgbGreen, e.rgbRed};
        }
        if (bits <= 8) return {int64_t(v), 0, 0};
        if (bits <= 16) {
            const uint64_t s = (v >> low) & ((uint64_t(1) << count) - 1);
            return {int64_t(narrow ? (s << (16 - count)) >> 8 : s), 0, 0};
        }
        Values out{};
        for (int c = 0; c < 3; ++c) {
            const uint64_t s = (v >> ((2 - c) * step)) & ((uint64_t(1) << step) - 1); // red in the low bits
            out[c] = int64_t(narrow && step == 16 ? s >> 8 : s);
        }
        return out;
    }
    // The stored value after writing v over a pixel that held `old`:
    // palettes take the nearest entry, the fourth channel and the bits
    // outside deep grey's significant ones stay.
    uint64_t encode(uint64_t old, const Values &v) const {
        if (!pal.empty()) {
            const Values c = grey ? Values{v[0], v[0], v[0]} : v;
            int64_t best = INT64_MAX, index = 0;
            for (size_t i = 0; i < pal.size(); ++i) {
                const int64_t db = c[0] - pal[i].rgbBlue, dg = c[1] - pal[i].rgbGreen, dr = c[2] - pal[i].rgbRed;
                if (db * db + dg * dg + dr * dr < best) best = db * db + dg * dg + dr * dr, index = int64_t(i);
            }
            return uint64_t(index);
        }
        if (bits <= 8) return uint64_t(v[0]);
        if (bits <= 16) {
            const uint64_t mask = (uint64_t(1) << count) - 1;
            const uint64_t s = narrow ? (uint64_t(v[0]) * 257) >> (16 - count) : uint64_t(v[0]);
            return (old & ~(mask << low)) | (s << low);
        }
        uint64_t out = old & (((uint64_t(1) << step) - 1) << (3 * step));
        for (int c = 0; c < 3; ++c) out |= (narrow && step == 16 ? uint64_t(v[c]) * 257 : uint64_t(v[c])) << ((2 - c) * step);
        return out;
    }
    Plane plane() const {
        Plane p{b->nWidth, b->nHeight, grey ? 1 : 3, {}};
        for (int32_t y = 0; y < p.h; ++y)
            for (int32_t x = 0; x < p.w; ++x) {
                uint64_t v = 0;
                EXPECT_EQ(KrnGetPixel(b, x, y, &v), 1);
                p.px.push_back(decode(v));
            }
        return p;
    }
};

// Pixels of the current view inside the region (all without one).
std::vector<std::vector<bool>> RegionMask(const BitmapDesc *b) {
    std::vector<std::vector<bool>> in(size_t(b->nHeight), std::vector<bool>(size_t(b->nWidth), true));
    if (!b->pRegion) return in;
    uint32_t cap = 0;
    DisGetRegionMaskSize(b, &cap);
    std::vector<int32_t> spans(std::max<uint32_t>(cap, 2));
    for (int32_t y = 0; y < b->nHeight; ++y) {
        std::fill(in[y].begin(), in[y].end(), false);
        uint32_t n = 0;
        EXPECT_EQ(DisGetRegionRowSpans(b, y, spans.data(), &n), 1);
        for (uint32_t i = 0; i + 1 < n; i += 2)
            for (int32_t x = std::max(spans[i], 0); x < std::min(spans[i + 1], b->nWidth); ++x) in[y][x] = true;
    }
    return in;
}

// `after` must hold the reference's values inside the region and the
// original pixels elsewhere.
void ExpectResult(const Bitmap &before, const Bitmap &after, const Plane &want, bool narrow) {
    const Codec codec{before.get(), narrow};
    const auto inside = RegionMask(before.get());
    int failures = 0;
    for (int32_t y = 0; y < want.h && failures < 5; ++y)
        for (int32_t x = 0; x < want.w && failures < 5; ++x) {
            const uint64_t old = before.pixel(x, y);
            const uint64_t expect = inside[y][x] ? codec.encode(old, want.at(x, y)) : old;
            if (after.pixel(x, y) != expect) {
                ADD_FAILURE() << "pixel " << x << "," << y << ": " << after.pixel(x, y) << ", want " << expect;
                ++failures;
            }
        }
}

// Bitmaps for the reference runs: every layout, edge shapes and a larger
// one, without a region, with an ellipse touching the left and top edges
// and with a rectangle inside, in views 1, 3 and 6.
struct Setting {
    const Layout *layout;
    int32_t w, h, region, view;
};
std::vector<Setting> ReferenceSettings() {
    std::vector<Setting> out;
    const std::pair<int32_t, int32_t> shapes[] = {{1, 1}, {1, 7}, {8, 1}, {13, 11}};
    const int32_t views[] = {1, 3, 6};
    for (const Layout &layout : AllLayouts())
        for (int shape = 0; shape < 4; ++shape)
            for (int region = 0; region < 3; ++region)
                out.push_back({&layout, shapes[shape].first, shapes[shape].second, region, views[(shape + region) % 3]});
    return out;
}

// Twice with the same seed gives the same pixels and region (a copy of a
// bitmap drops its region). The region's answers are asked for once, so
// that what it caches is not counted against an operation.
Bitmap Make(const Setting &s, uint32_t seed) {
    Bitmap b(*s.layout, s.w, s.h, seed);
    if (s.view != 1) KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, s.view, 0);
    const int32_t w = b->nWidth, h = b->nHeight;
    if (s.region == 1) {
        const RzRect r{-w / 3, -h / 4, w * 2 / 3 + 1, h * 3 / 4 + 1};
        DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET);
    } else if (s.region == 2) {
        const RzRect r{w / 3, h / 4, w - w / 5, h};
        DisSetRegionRect(b.get(), &r, DIS_RGN_SET);
    }
    RegionMask(b.get());
    return b;
}

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
TEST(MosaicTiles, GroutBevelAndColourWordsByHand) {
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
    // Deep grey: red 128 is 32768 on 16 bits, grey (2 * 32768) / 8; bit 26
    // gives the level itself.
    for (auto [colour, level] : {std::pair{0x80u, 8192u}, std::pair{0x4001234u, 0x1234u}}) {
        Bitmap b(FindLayout("grey16"), 4, 4, 3);
        ASSERT_EQ(Rz_MosaicTilesBitmap(b.get(), 2, 2, 1, colour, 0, RZ_TILES_FLAT), 1);
        EXPECT_EQ(b.pixel(1, 0), level);
        EXPECT_EQ(b.pixel(2, 3), level);
    }
    // Grout as wide as a tile, and flag nibbles past their values.
    Bitmap b(FindLayout("bgr24"), 8, 8, 1);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 4, 4, 4, 0, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 8, 3, 3, 0, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 4, 4, 1, 0, 0, 0x20), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_MosaicTilesBitmap(b.get(), 4, 4, 1, 0, 0, 0x100), ST_INVALID_PARAMETER);
}

Plane LiteralOilify(const Plane &p, int64_t n) {
    Plane q = p;
    const int64_t h1 = (n - 1) / 2, h2 = n / 2;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t c = 0; c < p.channels; ++c) {
            std::vector<int64_t> count(256, 0);
            int64_t mode = 0;
            for (int64_t r = y - h1; r <= y + h2; ++r)
                for (int64_t col = -h1; col <= h2; ++col) {
                    const int64_t v = p.clamped(col, r)[c];
                    ++count[v];
                    if (v != mode && count[v] > count[mode]) mode = v;
                }
            q.at(0, y)[c] = mode;
            for (int32_t x = 1; x < p.w; ++x) {
                for (int64_t r = y - h1; r <= y + h2; ++r) {
                    const int64_t out = p.clamped(x - 1 - h1, r)[c], in = p.clamped(x + h2, r)[c];
                    --count[out];
                    ++count[in];
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
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                std::vector<uint64_t> count(256, 0);
                // Each real pixel once, weighted by how often the window repeats it.
                for (int32_t r = 0; r < p.h; ++r)
                    for (int32_t col = 0; col < p.w; ++col) {
                        auto weight = [](int64_t i, int64_t lo, int64_t hi, int64_t size) -> int64_t {
                            // The window positions that the clamp maps to i.
                            const int64_t from = i == 0 ? lo : std::max(i, lo);
                            const int64_t to = i == size - 1 ? hi : std::min(i, hi);
                            return std::max<int64_t>(0, to - from + 1);
                        };
                        count[p.at(col, r)[c]] +=
                            uint64_t(weight(r, y - h1, y + h2, p.h)) * uint64_t(weight(col, x - h1, x + h2, p.w));
                    }
                const uint64_t best = *std::max_element(count.begin(), count.end());
                ASSERT_EQ(count[q.at(x, y)[c]], best) << x << "," << y << " channel " << c;
            }
}

TEST(Oilify, TiesGoToTheFirstToReachAndToTheLowestAfterASearch) {
    // n = 2 at x = 0 adds 30, 10, 30, 10: 30 got there first. At x = 1 the
    // mode's own 30 leaves and the search finds 10 and 30 twice each: 10.
    // At x = 2 the mode's 10 leaves again: 30 four times.
    Bitmap b = GreyBitmap(3, 2, {30, 10, 30, 30, 10, 30});
    ASSERT_EQ(Rz_OilifyBitmap(b.get(), 2), 1);
    for (int32_t y = 0; y < 2; ++y) {
        EXPECT_EQ(b.pixel(0, y), 30u);
        EXPECT_EQ(b.pixel(1, y), 10u);
        EXPECT_EQ(b.pixel(2, y), 30u);
    }
    // 3 x 3 over 5 7 / 7 5 with replicated edges: at (0, 0) the counts of
    // 5 and 7 rise in turns from the top-left and 5 keeps the lead.
    Bitmap c = GreyBitmap(2, 2, {5, 7, 7, 5});
    ASSERT_EQ(Rz_OilifyBitmap(c.get(), 3), 1);
    EXPECT_EQ(c.pixel(0, 0), 5u);
}

// Every effect on every layout, shape, region and view against its direct
// reference; oilify's results must also be modes of their windows.
TEST(Effects, MatchTheDirectReferences) {
    struct Case {
        std::string name;
        uint32_t w, h, kind; // kind 0/1: Pixelate's flags, 2: Mosaic, 3: Oilify of size w
    };
    std::vector<Case> cases = {{"mosaic", 2, 2, 2},   {"mosaic", 3, 3, 2},      {"mosaic", 16, 16, 2},
                               {"pixelate", 2, 3, 0}, {"pixelate", 5, 1, 0},    {"pixelate", 100, 100, 0},
                               {"pixelate centre", 4, 4, 1}, {"pixelate centre", 3, 2, 1}};
    for (uint32_t n : {2u, 3u, 5u, 8u, 30u}) cases.push_back({"oilify", n, n, 3});
    uint32_t seed = 100;
    for (const Setting &s : ReferenceSettings())
        for (const Case &c : cases) {
            SCOPED_TRACE(std::string(s.layout->name) + " " + std::to_string(s.w) + "x" + std::to_string(s.h) +
                         " region " + std::to_string(s.region) + " view " + std::to_string(s.view) + " " + c.name +
                         " " + std::to_string(c.w) + "x" + std::to_string(c.h));
            const uint32_t seedHere = seed++;
            Bitmap before = Make(s, seedHere), after = Make(s, seedHere);
            const bool oilify = c.kind == 3;
            // Few distinct values make oilify's ties common.
            if (oilify && seedHere % 2)
                for (int32_t y = 0; y < before->nHeight; ++y)
                    for (int32_t x = 0; x < before->nWidth; ++x) {
                        const uint64_t v = before.pixel(x, y) & 0x030303030303u;
                        before.setPixel(x, y, v);
                        after.setPixel(x, y, v);
                    }
            const Plane p = Codec{before.get(), oilify}.plane();
            const int64_t blocks = KrnMemOutstanding();
            ASSERT_EQ(oilify ? Rz_OilifyBitmap(after.get(), c.w)
                      : c.kind == 2 ? Rz_MosaicBitmap(after.get(), c.w)
                                    : Rz_PixelateBitmap(after.get(), c.w, c.h, c.kind),
                      1);
            EXPECT_EQ(KrnMemOutstanding(), blocks);
            Plane want;
            if (oilify) {
                want = LiteralOilify(p, c.w);
                if (s.w * s.h > 1) ExpectModes(p, want, c.w);
            } else if (c.kind == 2) {
                const int32_t view = before->nViewPerspective;
                want = CellReference(p, {{0, 0, before->nWidth, before->nHeight}, c.w, c.h, view == 3 || view == 4});
            } else {
                RzRect r{};
                EXPECT_EQ(DisGetRegionBounds(before.get(), 0, &r), 1);
                r = {std::max(r.left, 0), std::max(r.top, 0), std::min(r.right, before->nWidth),
                     std::min(r.bottom, before->nHeight)};
                want = CellReference(p, {r, c.w, c.h, false, c.kind ? CellRef::Centre : CellRef::Rounded});
            }
            ExpectResult(before, after, want, oilify);
        }
}

// Windows far larger than the bitmap: edge rows repeated hundreds of times
// against the literal reference, and sizes with counts beyond 32 bits
// against the direct counts.
TEST(Oilify, HugeWindowsRepeatTheEdges) {
    for (const char *layout : {"grey8", "bgr24"}) {
        SCOPED_TRACE(layout);
        Bitmap before(FindLayout(layout), 4, 3, 7), after(before);
        // Few values, so that repeated rows tie and untie.
        for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 4; ++x) {
                before.setPixel(x, y, before.pixel(x, y) & 0x010101);
                after.setPixel(x, y, before.pixel(x, y));
            }
        const Plane p = Codec{before.get(), true}.plane();
        ASSERT_EQ(Rz_OilifyBitmap(after.get(), 701), 1);
        ExpectResult(before, after, LiteralOilify(p, 701), true);
        for (uint32_t n : {65537u, 4294967295u}) {
            Bitmap big(before);
            ASSERT_EQ(Rz_OilifyBitmap(big.get(), n), 1);
            ExpectModes(p, Codec{big.get(), true}.plane(), n);
        }
    }
}

} // namespace
} // namespace rz::test
