// Region builders against per-pixel references: rectangles, ellipses and
// polygons (including exact answers at int32 extremes), mask bitmaps of every
// depth, and the five combine modes.
#include "region_ref.h"

#include <climits>
#include <cmath>
#include <random>

using namespace rzdis_test;

namespace {

class RegionShapes : public RegionTest {};

std::vector<int32_t> RowSpans(BitmapDesc *b, int32_t y) {
    uint32_t cap = 0;
    EXPECT_EQ(DisGetRegionMaskSize(b, &cap), KRN_OK);
    std::vector<int32_t> s(cap);
    uint32_t n = 0;
    EXPECT_EQ(DisGetRegionRowSpans(b, y, s.data(), &n), KRN_OK);
    s.resize(n);
    return s;
}

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

} // namespace

TEST_F(RegionShapes, RectanglesAreClippedToTheBitmap) {
    Desc bm(20, 10);
    const RzRect cases[] = {{2, 3, 7, 8},    {-5, -5, 4, 3},         {15, 5, 40, 40},
                            {-100, -100, 100, 100}, {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX},
                            {30, 0, 40, 5},  {5, 5, 5, 9}, {8, 2, 3, 6}};
    for (const RzRect &rc : cases) {
        ASSERT_EQ(DisSetRegionRect(bm.get(), &rc, DIS_RGN_SET), KRN_OK);
        EXPECT_NE(DisBitmapHasRegion(bm.get()), 0);
        EXPECT_EQ(ReadView(bm.get()), Raster(RectShape(rc), 20, 10))
            << rc.left << " " << rc.top << " " << rc.right << " " << rc.bottom;
    }
    // The last three are empty but still a region.
    RzRect r{1, 1, 1, 1};
    ASSERT_EQ(DisGetRegionBounds(bm.get(), 0, &r), KRN_OK);
    EXPECT_TRUE(r.right <= r.left || r.bottom <= r.top);
    EXPECT_EQ(DisIsPtInRegion(bm.get(), 0, 0), 0);
}

TEST_F(RegionShapes, EllipseWorkedByHand) {
    // 5 x 3 box: middle row |X| <= 5 takes all five; outer rows need
    // 9 X^2 <= 25 (9 - 4), so |X| <= 3 leaves x = 1..3.
    Desc bm(8, 5);
    const RzRect box{0, 0, 5, 3};
    ASSERT_EQ(DisSetRegionEllipse(bm.get(), &box, DIS_RGN_SET), KRN_OK);
    EXPECT_EQ(RowSpans(bm.get(), 0), (std::vector<int32_t>{1, 4}));
    EXPECT_EQ(RowSpans(bm.get(), 1), (std::vector<int32_t>{0, 5}));
    EXPECT_EQ(RowSpans(bm.get(), 2), (std::vector<int32_t>{1, 4}));
    EXPECT_TRUE(RowSpans(bm.get(), 3).empty());
    // A 4 x 4 circle misses only its corner pixels (centre distance^2 4.5 > 4).
    const RzRect sq{2, 1, 6, 5};
    ASSERT_EQ(DisSetRegionEllipse(bm.get(), &sq, DIS_RGN_SET), KRN_OK);
    EXPECT_EQ(RowSpans(bm.get(), 1), (std::vector<int32_t>{3, 5}));
    EXPECT_EQ(RowSpans(bm.get(), 2), (std::vector<int32_t>{2, 6}));
    EXPECT_EQ(RowSpans(bm.get(), 4), (std::vector<int32_t>{3, 5}));
}

TEST_F(RegionShapes, EllipsesMatchPointTest) {
    std::mt19937 rng(7);
    Desc bm(40, 30);
    for (int i = 0; i < 300; ++i) {
        const RzRect rc = RandomRect(rng, -12, 52);
        ASSERT_EQ(DisSetRegionEllipse(bm.get(), &rc, DIS_RGN_SET), KRN_OK);
        ASSERT_EQ(ReadView(bm.get()), Raster(EllipseShape(rc), 40, 30))
            << rc.left << " " << rc.top << " " << rc.right << " " << rc.bottom;
    }
}

TEST_F(RegionShapes, HugeEllipsesAreExact) {
    // Circles of radius ~1e9 whose rim crosses the bitmap, and the largest box.
    std::mt19937 rng(3);
    Desc bm(40, 40);
    std::vector<RzRect> boxes{{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}, {INT32_MIN, 5, INT32_MAX, 30}};
    for (int i = 0; i < 40; ++i) {
        const int64_t r = 1000000000 + int64_t(rng() % 1000);
        const int64_t k = int64_t(double(r) / std::sqrt(2.0)) - 20 + int64_t(rng() % 7);
        boxes.push_back({int32_t(-k - r), int32_t(-k - r), int32_t(r - k), int32_t(r - k)});
    }
    for (const RzRect &rc : boxes) {
        ASSERT_EQ(DisSetRegionEllipse(bm.get(), &rc, DIS_RGN_SET), KRN_OK);
        const Grid want = Raster(EllipseShape(rc), 40, 40);
        ASSERT_EQ(ReadView(bm.get()), want) << rc.left << " " << rc.top;
    }
}

TEST_F(RegionShapes, PolygonFillRules) {
    // A pentagram: the inner pentagon is crossed twice (even-odd: out) but
    // wound twice (winding: in).
    std::vector<RzPoint> star;
    for (int k = 0; k < 5; ++k) {
        const double a = -M_PI / 2 + k * 4 * M_PI / 5;
        star.push_back({int32_t(std::lround(20 + 18 * std::cos(a))), int32_t(std::lround(20 + 18 * std::sin(a)))});
    }
    Desc bm(40, 40);
    for (int32_t rule : {DIS_FILL_ALTERNATE, DIS_FILL_WINDING}) {
        ASSERT_EQ(DisSetRegionPolygon(bm.get(), star.data(), 5, rule, DIS_RGN_SET), KRN_OK);
        EXPECT_EQ(DisIsPtInRegion(bm.get(), 20, 21), rule == DIS_FILL_WINDING ? 1 : 0);
        EXPECT_EQ(ReadView(bm.get()), Raster(PolygonShape(star, rule == DIS_FILL_WINDING), 40, 40));
    }
}

TEST_F(RegionShapes, PolygonsMatchRayCasting) {
    std::mt19937 rng(11);
    Desc bm(40, 30);
    for (int i = 0; i < 400; ++i) {
        const auto pts = RandomPolygon(rng, 40, 30);
        const bool winding = i & 1;
        ASSERT_EQ(DisSetRegionPolygon(bm.get(), pts.data(), int32_t(pts.size()),
                                      winding ? DIS_FILL_WINDING : DIS_FILL_ALTERNATE, DIS_RGN_SET),
                  KRN_OK);
        ASSERT_EQ(ReadView(bm.get()), Raster(PolygonShape(pts, winding), 40, 30)) << "polygon " << i;
    }
    // Fewer than three points enclose nothing.
    const RzPoint two[2] = {{0, 0}, {10, 10}};
    ASSERT_EQ(DisSetRegionPolygon(bm.get(), two, 2, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_OK);
    EXPECT_EQ(ReadView(bm.get()), Grid(40, 30));
}

TEST_F(RegionShapes, PolygonsWithExtremeCoordinates) {
    std::mt19937 rng(5);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    Desc bm(24, 24);
    std::vector<std::vector<RzPoint>> polys{
        {{INT32_MIN, INT32_MIN}, {INT32_MAX, INT32_MAX - 3}, {INT32_MIN, INT32_MAX}},
        {{INT32_MAX, INT32_MIN}, {-INT32_MAX / 3, INT32_MAX}, {12, 12}},
    };
    for (int i = 0; i < 60; ++i)
        polys.push_back({{any(rng), any(rng)}, {any(rng), any(rng)}, {int32_t(rng() % 24), int32_t(rng() % 24)},
                         {any(rng), any(rng)}});
    for (const auto &p : polys)
        for (bool winding : {false, true}) {
            ASSERT_EQ(DisSetRegionPolygon(bm.get(), p.data(), int32_t(p.size()),
                                          winding ? DIS_FILL_WINDING : DIS_FILL_ALTERNATE, DIS_RGN_SET),
                      KRN_OK);
            ASSERT_EQ(ReadView(bm.get()), Raster(PolygonShape(p, winding), 24, 24));
        }
}

TEST_F(RegionShapes, CombWithManyVertices) {
    // N one-pixel teeth on a base: rows 0-1 hold N runs, rows 2-3 one run.
    constexpr int32_t N = 50000, W = 2 * N + 3;
    std::vector<RzPoint> comb{{0, 4}};
    for (int32_t i = 0; i < N; ++i) {
        comb.push_back({2 * i, 0});
        comb.push_back({2 * i + 1, 0});
        if (i + 1 < N) {
            comb.push_back({2 * i + 1, 2});
            comb.push_back({2 * i + 2, 2});
        }
    }
    comb.push_back({2 * N - 1, 4});
    Desc bm(W, 6);
    ASSERT_EQ(DisSetRegionPolygon(bm.get(), comb.data(), int32_t(comb.size()), DIS_FILL_ALTERNATE, DIS_RGN_SET),
              KRN_OK);
    uint32_t cap = 0;
    ASSERT_EQ(DisGetRegionMaskSize(bm.get(), &cap), KRN_OK);
    EXPECT_GE(cap, uint32_t(2 * N));
    for (int32_t y = 0; y < 2; ++y) {
        const auto s = RowSpans(bm.get(), y);
        ASSERT_EQ(s.size(), size_t(2 * N));
        for (int32_t i = 0; i < N; ++i)
            ASSERT_TRUE(s[2 * i] == 2 * i && s[2 * i + 1] == 2 * i + 1) << i;
    }
    EXPECT_EQ(RowSpans(bm.get(), 3), (std::vector<int32_t>{0, 2 * N - 1}));
    EXPECT_TRUE(RowSpans(bm.get(), 4).empty());
    // Transposed, a tooth column is [0, 4) and a gap column [2, 4).
    SetView(bm.get(), 5);
    EXPECT_EQ(RowSpans(bm.get(), 100), (std::vector<int32_t>{0, 4}));
    EXPECT_EQ(RowSpans(bm.get(), 101), (std::vector<int32_t>{2, 4}));
    EXPECT_TRUE(RowSpans(bm.get(), W - 1).empty());
}

TEST_F(RegionShapes, MasksOfEveryDepth) {
    std::mt19937 rng(19);
    for (int32_t bits : {1, 2, 3, 4, 5, 7, 8, 12, 16, 24, 32, 48, 64}) {
        for (int view : {1, 6}) {
            Desc mask(23, 9, bits, true);
            SetView(mask.get(), view);
            const int32_t mw = mask.get()->nWidth, mh = mask.get()->nHeight;
            const uint64_t full = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
            for (int32_t y = 0; y < mh; ++y)
                for (int32_t x = 0; x < mw; ++x) {
                    uint64_t v = 0;
                    if (rng() & 1) {
                        // colour: one random channel, so every channel must count
                        const int ch = bits >= 24 ? int(rng() % (bits / (bits >= 48 ? 16 : 8))) : 0;
                        const int cb = bits >= 48 ? 16 : 8;
                        v = bits >= 24 ? (uint64_t(1 + rng() % 255) << (ch * cb)) : (1 + rng() % full) & full;
                    }
                    ASSERT_EQ(KrnSetPixel(mask.get(), x, y, v), KRN_OK);
                }
            Desc bm(17, 12);
            ASSERT_EQ(DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_SET), KRN_OK);
            Grid want(17, 12);
            for (int32_t y = 0; y < std::min(mh, 12); ++y)
                for (int32_t x = 0; x < std::min(mw, 17); ++x) {
                    uint64_t v = 0;
                    ASSERT_EQ(KrnGetPixel(mask.get(), x, y, &v), KRN_OK);
                    want.at(x, y) = v != 0;
                }
            EXPECT_EQ(ReadView(bm.get()), want) << bits << " bits, view " << view;
        }
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
            const int kind = int(rng() % 3);
            Shape shape;
            int32_t st;
            if (kind == 0) {
                const RzRect rc = RandomRect(rng, -5, 36);
                shape = RectShape(rc);
                st = DisSetRegionRect(bm.get(), &rc, mode);
            } else if (kind == 1) {
                const RzRect rc = RandomRect(rng, -5, 36);
                shape = EllipseShape(rc);
                st = DisSetRegionEllipse(bm.get(), &rc, mode);
            } else {
                const auto pts = RandomPolygon(rng, w, h);
                shape = PolygonShape(pts, false);
                st = DisSetRegionPolygon(bm.get(), pts.data(), int32_t(pts.size()), DIS_FILL_ALTERNATE, mode);
            }
            ASSERT_EQ(st, KRN_OK);
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
