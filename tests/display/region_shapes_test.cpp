// Region builders against per-pixel references: rectangles clipped to the
// bitmap, ellipses and polygons (exact at int32 extremes), mask bitmaps of
// every depth, and the five combine modes.
#include "region_ref.h"

#include <climits>
#include <cmath>
#include <random>

using namespace rzdis_test;

namespace {

class RegionShapes : public RegionTest {};

RzRect RandomRect(std::mt19937 &rng, int32_t lo, int32_t hi) {
    std::uniform_int_distribution<int32_t> d(lo, hi);
    return {d(rng), d(rng), d(rng), d(rng)};
}

std::vector<RzPoint> RandomPolygon(std::mt19937 &rng, int32_t w, int32_t h) {
    std::uniform_int_distribution<int32_t> n(3, 12), dx(-8, w + 8), dy(-8, h + 8);
    std::vector<RzPoint> p(size_t(n(rng)));
    for (auto &q : p)
        q = {dx(rng), dy(rng)};
    return p;
}

// kind 0 rectangle, 1 ellipse (both from rc), 2 polygon.
struct Figure {
    int kind = 0;
    RzRect rc{};
    std::vector<RzPoint> pts{};
    bool winding = false;
};

// Applies the figure through the library and returns its reference shape.
Shape Apply(BitmapDesc *bm, const Figure &f, int32_t mode) {
    if (f.kind == 0) {
        EXPECT_EQ(DisSetRegionRect(bm, &f.rc, mode), KRN_OK);
        return RectShape(f.rc);
    }
    if (f.kind == 1) {
        EXPECT_EQ(DisSetRegionEllipse(bm, &f.rc, mode), KRN_OK);
        return EllipseShape(f.rc);
    }
    EXPECT_EQ(DisSetRegionPolygon(bm, f.pts.data(), int32_t(f.pts.size()),
                                  f.winding ? DIS_FILL_WINDING : DIS_FILL_ALTERNATE, mode),
              KRN_OK);
    return PolygonShape(f.pts, f.winding);
}

} // namespace

TEST_F(RegionShapes, FiguresMatchPerPixelReference) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    const auto poly = [](std::vector<RzPoint> p, bool winding) { return Figure{2, {}, std::move(p), winding}; };
    // A pentagram: its inner pentagon is crossed twice (even-odd: out) but wound twice (winding: in).
    std::vector<RzPoint> star;
    for (int k = 0; k < 5; ++k) {
        const double a = -M_PI / 2 + k * 4 * M_PI / 5;
        star.push_back({int32_t(std::lround(20 + 14 * std::cos(a))), int32_t(std::lround(15 + 14 * std::sin(a)))});
    }
    std::vector<Figure> figs{
        // rectangles clipped to the bitmap, empty ones still a region
        {0, {2, 3, 7, 8}}, {0, {-5, -5, 4, 3}}, {0, {15, 5, 60, 60}}, {0, {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}},
        {0, {50, 0, 60, 5}}, {0, {5, 5, 5, 9}}, {0, {8, 2, 3, 6}},
        {1, {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}}, {1, {INT32_MIN, 5, INT32_MAX, 30}},
        poly(star, false), poly(star, true),
        poly({{0, 0}, {10, 10}}, false), // fewer than three points enclose nothing
        poly({{INT32_MIN, INT32_MIN}, {INT32_MAX, INT32_MAX - 3}, {INT32_MIN, INT32_MAX}}, true),
        poly({{INT32_MAX, INT32_MIN}, {-INT32_MAX / 3, INT32_MAX}, {12, 12}}, false),
    };
    const std::pair<int, std::function<Figure(int)>> sources[] = {
        {100, [&](int) { return Figure{0, RandomRect(rng, -12, 52)}; }},
        {300, [&](int) { return Figure{1, RandomRect(rng, -12, 52)}; }},
        {40, [&](int) { // circles of radius ~1e9 whose rim crosses the bitmap
             const int64_t r = 1000000000 + int64_t(rng() % 1000);
             const int64_t k = int64_t(double(r) / std::sqrt(2.0)) - 20 + int64_t(rng() % 7);
             return Figure{1, {int32_t(-k - r), int32_t(-k - r), int32_t(r - k), int32_t(r - k)}};
         }},
        {400, [&](int i) { return poly(RandomPolygon(rng, 40, 30), i & 1); }},
        {120, [&](int i) { // edges spanning int32 around one vertex inside
             return poly({{any(rng), any(rng)}, {any(rng), any(rng)}, {int32_t(rng() % 40), int32_t(rng() % 30)},
                          {any(rng), any(rng)}},
                         i & 1);
         }},
    };
    for (const auto &[count, make] : sources)
        for (int i = 0; i < count; ++i)
            figs.push_back(make(i));
    Desc bm(40, 30);
    for (size_t i = 0; i < figs.size(); ++i) {
        const Shape want = Apply(bm.get(), figs[i], DIS_RGN_SET);
        EXPECT_NE(DisBitmapHasRegion(bm.get()), 0);
        ASSERT_EQ(ReadView(bm.get()), Raster(want, 40, 30)) << "figure " << i << " kind " << figs[i].kind;
    }
}

TEST_F(RegionShapes, CombWithManyVertices) {
    // N one-pixel teeth on a base: rows 0-1 hold N runs, rows 2-3 one run.
    constexpr int32_t N = 20000;
    std::vector<RzPoint> comb{{0, 4}};
    for (int32_t i = 0; i < N; ++i)
        comb.insert(comb.end(), {{2 * i, 0}, {2 * i + 1, 0}, {2 * i + 1, 2}, {2 * i + 2, 2}});
    comb.resize(comb.size() - 2);
    comb.push_back({2 * N - 1, 4});
    Desc bm(2 * N + 3, 6);
    ASSERT_EQ(DisSetRegionPolygon(bm.get(), comb.data(), int32_t(comb.size()), DIS_FILL_ALTERNATE, DIS_RGN_SET),
              KRN_OK);
    Grid want(2 * N + 3, 6);
    for (int32_t x = 0; x < 2 * N - 1; ++x)
        want.at(x, 0) = want.at(x, 1) = x % 2 == 0, want.at(x, 2) = want.at(x, 3) = 1;
    EXPECT_EQ(ReadView(bm.get()), want);
    SetView(bm.get(), 5);
    EXPECT_EQ(ReadView(bm.get()), StoredToView(want, 5));
}

TEST_F(RegionShapes, MasksOfEveryDepth) {
    std::mt19937 rng(19);
    for (int32_t bits : {1, 2, 3, 4, 5, 7, 8, 12, 16, 24, 32, 48, 64})
        for (int view : {1, 6}) {
            Desc mask(23, 9, bits, true), bm(12, 17);
            SetView(mask.get(), view);
            const int32_t mw = mask.get()->nWidth, mh = mask.get()->nHeight, cb = bits >= 48 ? 16 : 8;
            const uint64_t full = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
            Grid want(12, 17);
            for (int32_t y = 0; y < mh; ++y)
                for (int32_t x = 0; x < mw; ++x) {
                    // colour: one random channel set, so every channel must count
                    const uint64_t v = !(rng() & 1) ? 0
                                       : bits >= 24 ? uint64_t(1 + rng() % 255) << (rng() % (bits / cb) * cb)
                                                    : (1 + rng() % full) & full;
                    ASSERT_EQ(KrnSetPixel(mask.get(), x, y, v), KRN_OK);
                    if (x < 12 && y < 17)
                        want.at(x, y) = v != 0;
                }
            ASSERT_EQ(DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_SET), KRN_OK);
            EXPECT_EQ(ReadView(bm.get()), want) << bits << " bits, view " << view;
            // Columns hold more runs than rows here: the mask size must cover them.
            SetView(bm.get(), 5);
            EXPECT_EQ(ReadView(bm.get()), StoredToView(want, 5)) << bits << " bits, view " << view;
        }
}

TEST_F(RegionShapes, CombineModesFollowBooleanLogic) {
    std::mt19937 rng(23);
    const int32_t w = 31, h = 23;
    for (int run = 0; run < 40; ++run) {
        Desc bm(w, h);
        Grid ref(w, h);
        bool has = false;
        for (int step = 0; step < 8; ++step) {
            const int32_t mode = int32_t(rng() % 5);
            Figure f{int(rng() % 3), RandomRect(rng, -5, 36)};
            if (f.kind == 2)
                f.pts = RandomPolygon(rng, w, h);
            const Shape shape = Apply(bm.get(), f, mode);
            // Without a region the old set is empty (AND and DIFF give an empty region).
            for (int32_t y = 0; y < h; ++y)
                for (int32_t x = 0; x < w; ++x) {
                    const bool a = has && ref.at(x, y), b = shape(x, y);
                    const bool r[5] = {b, a && b, a || b, a != b, a && !b};
                    ref.at(x, y) = r[mode];
                }
            has = true;
            ASSERT_EQ(ReadView(bm.get()), ref) << "run " << run << " step " << step << " mode " << mode;
        }
    }
}
