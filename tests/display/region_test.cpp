// Regions against per-pixel references written without scanlines: each
// shape's own formula at the pixel centre, the view table, and a reader that
// pulls a region back out as a pixel grid while checking every answer's
// invariants (spans ordered and inside the mask size, point test and bounds
// agreeing with the spans). Every test gives back all the memory it took.
#include "support/bitmaps.h"

#include <rzdis.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <random>
#include <thread>

namespace rz::test {
namespace {

using Wide = __int128;
using Shape = std::function<bool(int64_t x, int64_t y)>;

struct Grid {
    int32_t w = 0, h = 0;
    std::vector<uint8_t> v;
    Grid(int32_t w_ = 0, int32_t h_ = 0, uint8_t fill = 0) : w(w_), h(h_), v(size_t(w_) * h_, fill) {}
    uint8_t &at(int32_t x, int32_t y) { return v[size_t(y) * w + x]; }
    bool operator==(const Grid &o) const = default;
};

// A figure: kind 0 rectangle, 1 ellipse (both from rc), 2 polygon.
struct Figure {
    int kind = 0;
    RzRect rc{};
    std::vector<RzPoint> pts{};
    bool winding = false;
};

// The figure's pixels by its formula at the pixel centre (x + 1/2, y + 1/2),
// doubled to stay integral. Ellipse: dx^2 b^2 + dy^2 a^2 <= a^2 b^2. Polygon:
// a ray from the centre to the right; crossings strictly beyond the centre
// count, +1 for an edge going down and -1 going up.
Shape Reference(const Figure &f) {
    const RzRect r = f.rc;
    if (f.kind == 0)
        return [r](int64_t x, int64_t y) { return x >= r.left && x < r.right && y >= r.top && y < r.bottom; };
    if (f.kind == 1)
        return [r](int64_t x, int64_t y) {
            const Wide a = Wide(r.right) - r.left, b = Wide(r.bottom) - r.top;
            const Wide dx = 2 * Wide(x) + 1 - r.left - Wide(r.right);
            const Wide dy = 2 * Wide(y) + 1 - r.top - Wide(r.bottom);
            if (a <= 0 || b <= 0 || dx * dx > a * a || dy * dy > b * b)
                return false;
            using U = unsigned __int128;
            return U(dx * dx) * U(b * b) <= U(a * a) * U(b * b - dy * dy);
        };
    return [pts = f.pts, winding = f.winding](int64_t x, int64_t y) {
        const size_t n = pts.size();
        int wind = 0, count = 0;
        const Wide xc2 = 2 * Wide(x) + 1, yc2 = 2 * Wide(y) + 1;
        for (size_t i = 0; n >= 3 && i < n; ++i) {
            const RzPoint p = pts[i], q = pts[(i + 1) % n];
            if ((2 * Wide(p.y) < yc2) == (2 * Wide(q.y) < yc2))
                continue;
            const Wide dy = Wide(q.y) - p.y, dx = Wide(q.x) - p.x;
            const Wide num = (2 * Wide(p.x) - xc2) * dy + (yc2 - 2 * Wide(p.y)) * dx;
            if (dy > 0 ? num > 0 : num < 0)
                wind += dy > 0 ? 1 : -1, ++count;
        }
        return winding ? wind != 0 : (count & 1) != 0;
    };
}

// Applies the figure through the library.
void Apply(BitmapDesc *bm, const Figure &f, int32_t mode) {
    const int32_t fill = f.winding ? DIS_FILL_WINDING : DIS_FILL_ALTERNATE;
    EXPECT_EQ(f.kind == 0   ? DisSetRegionRect(bm, &f.rc, mode)
              : f.kind == 1 ? DisSetRegionEllipse(bm, &f.rc, mode)
                            : DisSetRegionPolygon(bm, f.pts.data(), int32_t(f.pts.size()), fill, mode),
              KRN_OK);
}

// The view table: view pixel (x, y) of a stored pw x ph grid is this stored pixel.
std::pair<int32_t, int32_t> ViewToStored(int view, int32_t pw, int32_t ph, int32_t x, int32_t y) {
    switch (view) {
    case 1: return {x, y};
    case 2: return {pw - 1 - x, y};
    case 3: return {pw - 1 - x, ph - 1 - y};
    case 4: return {x, ph - 1 - y};
    case 5: return {y, x};
    case 6: return {pw - 1 - y, x};
    case 7: return {pw - 1 - y, ph - 1 - x};
    default: return {y, ph - 1 - x};
    }
}

// The stored grid seen in a view; or, with `into`, view pixels ORed into it.
Grid InView(Grid stored, int view, Grid *into = nullptr) {
    Grid g(view >= 5 ? stored.h : stored.w, view >= 5 ? stored.w : stored.h);
    if (into)
        g = stored, stored = *into;
    for (int32_t y = 0; y < g.h; ++y)
        for (int32_t x = 0; x < g.w; ++x) {
            auto [sx, sy] = ViewToStored(view, stored.w, stored.h, x, y);
            into ? void(into->at(sx, sy) |= g.at(x, y)) : void(g.at(x, y) = stored.at(sx, sy));
        }
    return g;
}

Grid Raster(const Shape &s, int32_t w, int32_t h) {
    Grid g(w, h);
    for (int32_t i = 0; i < w * h; ++i)
        g.v[i] = s(i % w, i / w);
    return g;
}

Grid ReadView(const BitmapDesc *b) {
    Grid g(b->nWidth, b->nHeight);
    uint32_t cap = 0;
    EXPECT_EQ(DisGetRegionMaskSize(b, &cap), KRN_OK);
    std::vector<int32_t> spans(cap + 2, -7);
    for (int32_t y = 0; y < g.h; ++y) {
        uint32_t n = 0;
        EXPECT_EQ(DisGetRegionRowSpans(b, y, spans.data(), &n), KRN_OK);
        EXPECT_TRUE(n <= cap && n % 2 == 0 && spans[cap] == -7) << "wrote past the mask size";
        for (uint32_t k = 0; k + 1 < n && k + 1 < cap; k += 2) {
            EXPECT_TRUE(spans[k] < spans[k + 1] && spans[k + 1] <= g.w) << spans[k];
            EXPECT_GE(spans[k], k ? spans[k - 1] + 1 : 0) << "runs touch or overlap";
            for (int32_t x = std::max(spans[k], 0); x < std::min(spans[k + 1], g.w); ++x)
                g.at(x, y) = 1;
        }
    }
    int32_t x0 = g.w, y0 = g.h, x1 = 0, y1 = 0;
    for (int32_t y = 0; y < g.h; ++y)
        for (int32_t x = 0; x < g.w; ++x) {
            EXPECT_EQ(DisIsPtInRegion(b, x, y) != 0, g.at(x, y) != 0) << x << "," << y;
            if (g.at(x, y))
                x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x + 1), y1 = y + 1;
        }
    RzRect r{};
    EXPECT_EQ(DisGetRegionBounds(b, 0, &r), KRN_OK);
    EXPECT_TRUE(x0 >= x1 ? r.left >= r.right || r.top >= r.bottom
                         : r.left == x0 && r.top == y0 && r.right == x1 && r.bottom == y1)
        << r.left << "," << r.top << "," << r.right << "," << r.bottom;
    return g;
}

void SetView(BitmapDesc *b, int view) {
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, view, 0), KRN_OK);
}

class Region : public ::testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(KrnMemOutstanding(), start_); }
    int64_t start_ = KrnMemOutstanding();
};

RzRect RandomRect(std::mt19937 &rng, int32_t lo, int32_t hi) {
    std::uniform_int_distribution<int32_t> d(lo, hi);
    return {d(rng), d(rng), d(rng), d(rng)};
}
std::vector<RzPoint> RandomPolygon(std::mt19937 &rng, int32_t w, int32_t h, size_t n) {
    std::uniform_int_distribution<int32_t> dx(-8, w + 8), dy(-8, h + 8);
    std::vector<RzPoint> p(n);
    for (auto &q : p)
        q = {dx(rng), dy(rng)};
    return p;
}

// A composite of three shapes in the current view; returns its view pixels.
Grid BuildComposite(BitmapDesc *bm, std::mt19937 &rng) {
    const int32_t w = bm->nWidth, h = bm->nHeight, m = std::max(w, h) + 3;
    const Figure a{0, RandomRect(rng, -3, m)}, b{1, RandomRect(rng, -3, m)},
        p{2, {}, RandomPolygon(rng, w, h, 4), true};
    Apply(bm, a, DIS_RGN_SET), Apply(bm, b, DIS_RGN_XOR), Apply(bm, p, DIS_RGN_OR);
    const Shape sa = Reference(a), sb = Reference(b), sp = Reference(p);
    return Raster([&](int64_t x, int64_t y) { return (sa(x, y) != sb(x, y)) || sp(x, y); }, w, h);
}

// Every figure, extremes of int32 included, is combined by a random mode
// into a running region and checked against the boolean reference.
TEST_F(Region, FiguresAndCombineModesMatchTheFormulas) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    const auto poly = [](std::vector<RzPoint> p, bool w) { return Figure{2, {}, std::move(p), w}; };
    // A pentagram: its inner pentagon is crossed twice (even-odd: out) but wound twice (in).
    std::vector<RzPoint> star;
    for (int k = 0; k < 5; ++k) {
        const double a = -M_PI / 2 + k * 4 * M_PI / 5;
        star.push_back({int32_t(std::lround(20 + 14 * std::cos(a))), int32_t(std::lround(15 + 14 * std::sin(a)))});
    }
    const int32_t lo = INT32_MIN, hi = INT32_MAX;
    std::vector<Figure> figs{
        {0, {2, 3, 7, 8}}, {0, {-5, -5, 4, 3}}, {0, {15, 5, 60, 60}}, {0, {lo, lo, hi, hi}},
        {0, {50, 0, 60, 5}}, {0, {5, 5, 5, 9}}, {0, {8, 2, 3, 6}}, {1, {lo, lo, hi, hi}},
        {1, {lo, 5, hi, 30}}, poly(star, false), poly(star, true),
        poly({{0, 0}, {10, 10}}, false), // fewer than three points enclose nothing
        poly({{lo, lo}, {hi, hi - 3}, {lo, hi}}, true), poly({{hi, lo}, {-hi / 3, hi}, {12, 12}}, false),
    };
    const size_t fixed = figs.size();
    const std::pair<int, std::function<Figure(int)>> sources[] = {
        {150, [&](int) { return Figure{0, RandomRect(rng, -12, 52)}; }},
        {300, [&](int) { return Figure{1, RandomRect(rng, -12, 52)}; }},
        {40, [&](int) { // circles of radius ~1e9 whose rim crosses the bitmap
             const int64_t r = 1000000000 + int64_t(rng() % 1000);
             const int32_t k = int32_t(double(r) / std::sqrt(2.0)) - 20 + int32_t(rng() % 7);
             return Figure{1, {int32_t(-k - r), int32_t(-k - r), int32_t(r - k), int32_t(r - k)}};
         }},
        {400, [&](int i) { return poly(RandomPolygon(rng, 40, 30, 3 + rng() % 10), i & 1); }},
        {120, [&](int i) { // edges spanning int32 around one vertex inside
             const RzPoint inside{int32_t(rng() % 40), int32_t(rng() % 30)};
             return poly({{any(rng), any(rng)}, {any(rng), any(rng)}, inside, {any(rng), any(rng)}}, i & 1);
         }},
    };
    for (const auto &[count, make] : sources)
        for (int i = 0; i < count; ++i)
            figs.push_back(make(i));
    Bitmap bm = DepthBitmap(40, 30, 8);
    Grid ref(40, 30);
    for (size_t i = 0; i < figs.size(); ++i) {
        // The fixed figures alone first; then a random mode, SET now and then to restart.
        const int32_t mode = i < fixed ? DIS_RGN_SET : int32_t(rng() % 5);
        Apply(bm.get(), figs[i], mode);
        const Shape shape = Reference(figs[i]);
        for (int32_t p = 0; p < 40 * 30; ++p) {
            const bool a = ref.v[p], b = shape(p % 40, p / 40);
            const bool r[5] = {b, a && b, a || b, a != b, a && !b};
            ref.v[p] = r[mode];
        }
        ASSERT_EQ(ReadView(bm.get()), ref) << "figure " << i << " kind " << figs[i].kind << " mode " << mode;
    }
}

// Without a region AND and DIFF give an empty region; no region answers the
// whole view.
TEST_F(Region, NoRegionIsTheWholeViewAndAnEmptySetToCombine) {
    for (int32_t mode : {DIS_RGN_AND, DIS_RGN_DIFF, DIS_RGN_OR}) {
        Bitmap bm = DepthBitmap(9, 6, 8);
        EXPECT_EQ(std::tuple(DisBitmapHasRegion(bm.get()), DisIsPtInRegion(bm.get(), 9, 0)), std::tuple(0, 0));
        EXPECT_EQ(ReadView(bm.get()), Grid(9, 6, 1));
        const RzRect rc{1, 1, 5, 4};
        ASSERT_EQ(DisSetRegionRect(bm.get(), &rc, mode), KRN_OK);
        EXPECT_NE(DisBitmapHasRegion(bm.get()), 0);
        EXPECT_EQ(ReadView(bm.get()), mode == DIS_RGN_OR ? Raster(Reference({0, rc}), 9, 6) : Grid(9, 6));
    }
}

TEST_F(Region, CombWithManyVertices) {
    // N one-pixel teeth on a base: rows 0-1 hold N runs, rows 2-3 one run.
    constexpr int32_t N = 20000;
    std::vector<RzPoint> comb{{0, 4}};
    for (int32_t i = 0; i < N; ++i)
        comb.insert(comb.end(), {{2 * i, 0}, {2 * i + 1, 0}, {2 * i + 1, 2}, {2 * i + 2, 2}});
    comb.resize(comb.size() - 2);
    comb.push_back({2 * N - 1, 4});
    Bitmap bm = DepthBitmap(2 * N + 3, 6, 8);
    Apply(bm.get(), Figure{2, {}, comb}, DIS_RGN_SET);
    Grid want(2 * N + 3, 6);
    for (int32_t x = 0; x < 2 * N - 1; ++x)
        want.at(x, 0) = want.at(x, 1) = x % 2 == 0, want.at(x, 2) = want.at(x, 3) = 1;
    EXPECT_EQ(ReadView(bm.get()), want);
    SetView(bm.get(), 5);
    EXPECT_EQ(ReadView(bm.get()), InView(want, 5));
}

// A mask's nonzero raw samples, written with KrnSetPixel, make the region.
TEST_F(Region, MasksOfEveryDepth) {
    std::mt19937 rng(19);
    for (int32_t bits : {1, 2, 3, 4, 5, 7, 8, 12, 16, 24, 32, 48, 64})
        for (int view : {1, 6}) {
            Bitmap mask = DepthBitmap(23, 9, bits), bm = DepthBitmap(12, 17, 8);
            SetView(mask.get(), view);
            const int32_t cb = bits >= 48 ? 16 : 8;
            const uint64_t full = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
            Grid want(12, 17);
            for (int32_t y = 0; y < mask->nHeight; ++y)
                for (int32_t x = 0; x < mask->nWidth; ++x) {
                    // colour: one random channel set, so every channel must count
                    const uint64_t v = !(rng() & 1) ? 0
                                       : bits >= 24 ? uint64_t(1 + rng() % 255) << (rng() % (bits / cb) * cb)
                                                    : (1 + rng() % full) & full;
                    mask.setPixel(x, y, v);
                    if (x < 12 && y < 17)
                        want.at(x, y) = v != 0;
                }
            ASSERT_EQ(DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_SET), KRN_OK);
            EXPECT_EQ(ReadView(bm.get()), want) << bits << " bits, view " << view;
            // Columns hold more runs than rows here: the mask size must cover them.
            SetView(bm.get(), 5);
            EXPECT_EQ(ReadView(bm.get()), InView(want, 5)) << bits << " bits, view " << view;
        }
}

// Built in any view, read in every view; changed in view 8 after its column
// table was cached, answers follow the new runs, not the stale table.
TEST_F(Region, BuiltInAnyViewReadInEvery) {
    std::mt19937 rng(29);
    const int32_t pw = 13, ph = 7;
    for (int trial = 0; trial < 12; ++trial)
        for (int built = 1; built <= 8; ++built) {
            Bitmap bm = DepthBitmap(pw, ph, 8);
            SetView(bm.get(), built);
            Grid stored(pw, ph);
            InView(BuildComposite(bm.get(), rng), built, &stored);
            for (int pass = 0; pass < 2; ++pass) {
                if (pass) {
                    const Figure f{0, {int32_t(rng() % 9) - 1, int32_t(rng() % 15) - 1,
                                       int32_t(rng() % 9), int32_t(rng() % 15)}};
                    Apply(bm.get(), f, DIS_RGN_OR);
                    InView(Raster(Reference(f), ph, pw), 8, &stored);
                }
                for (int read = 1; read <= 8; ++read) {
                    SetView(bm.get(), read);
                    ASSERT_EQ(ReadView(bm.get()), InView(stored, read))
                        << "built in " << built << ", read in " << read << ", pass " << pass;
                }
            }
        }
}

TEST_F(Region, TransposedRowsFromSeveralThreads) {
    // The column table is built lazily; concurrent first readers must agree.
    std::mt19937 rng(31);
    for (int trial = 0; trial < 20; ++trial) {
        Bitmap bm = DepthBitmap(64, 48, 8);
        const Grid want = InView(BuildComposite(bm.get(), rng), 8);
        SetView(bm.get(), 8);
        std::vector<Grid> got(4);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] { got[t] = ReadView(bm.get()); });
        for (auto &th : threads)
            th.join();
        EXPECT_EQ(got, std::vector<Grid>(4, want));
    }
}

// Each allocation failing in turn leaves the old region (the column table
// of a transposed view, built on first use, included); refused parameters
// change nothing either.
TEST_F(Region, FailuresAndRefusalsLeaveTheOldRegion) {
    std::mt19937 rng(2);
    Bitmap bm = DepthBitmap(30, 20, 8), mask = DepthBitmap(12, 40, 4);
    SetView(bm.get(), 6);
    const Grid before = BuildComposite(bm.get(), rng);
    mask.setPixel(3, 5, 9);
    const Figure figs[] = {{0, {2, 3, 17, 26}}, {1, {2, 3, 17, 26}}, {2, {}, {{-4, 2}, {25, 10}, {3, 33}}}};
    const std::function<int32_t()> calls[] = {
        [&] { return DisSetRegionRect(bm.get(), &figs[0].rc, DIS_RGN_XOR); },
        [&] { return DisSetRegionEllipse(bm.get(), &figs[1].rc, DIS_RGN_DIFF); },
        [&] { return DisSetRegionPolygon(bm.get(), figs[2].pts.data(), 3, 0, DIS_RGN_AND); },
        [&] { return DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_OR); },
        [&] { uint32_t n; int32_t s[64]; return DisGetRegionRowSpans(bm.get(), 0, s, &n); },
    };
    for (size_t c = 0; c < std::size(calls); ++c) {
        int64_t n = 0;
        for (;; ++n) {
            const int64_t mark = KrnMemOutstanding();
            KrnMemFailAfter(n);
            const int32_t st = calls[c]();
            if (KrnMemFailAfter(-1) != -1) { // ran out of allocations to fail
                ASSERT_EQ(st, KRN_OK);
                break;
            }
            ASSERT_EQ(st, KRN_FAILURE) << "call " << c << " failing allocation " << n;
            EXPECT_EQ(KrnMemOutstanding(), mark);
            ASSERT_EQ(ReadView(bm.get()), before) << "call " << c << " failing allocation " << n;
        }
        EXPECT_GT(n, 0) << "call " << c << " took no memory";
        ASSERT_EQ(DisFreeRegion(bm.get()), KRN_OK);
        rng.seed(2);
        ASSERT_EQ(BuildComposite(bm.get(), rng), before);
    }
    const RzPoint *pts = figs[2].pts.data();
    const RzRect *rc = &figs[0].rc;
    uint32_t n = 0;
    int32_t spans[8];
    const std::pair<int32_t, int32_t> refused[] = {
        {KRN_INVALID_PARAMETER, DisSetRegionEllipse(bm.get(), rc, 5)},
        {KRN_INVALID_PARAMETER, DisSetRegionRect(bm.get(), rc, -1)},
        {KRN_INVALID_PARAMETER, DisSetRegionPolygon(bm.get(), pts, 3, 2, DIS_RGN_SET)},
        {KRN_INVALID_PARAMETER, DisSetRegionPolygon(bm.get(), pts, INT32_MAX, 0, DIS_RGN_SET)},
        {KRN_INVALID_PARAMETER, DisGetRegionRowSpans(bm.get(), -1, spans, &n)},
        {KRN_INVALID_PARAMETER, DisGetRegionRowSpans(bm.get(), 30, spans, &n)},
        {KRN_BAD_BITS, (mask->nBitsPerPixel = 9, DisSetRegionMask(bm.get(), mask.get(), 0))},
        // a hand-made view out of range is refused, not guessed
        {KRN_INVALID_PARAMETER, (bm->nViewPerspective = 9, DisSetRegionRect(bm.get(), rc, 2))},
    };
    mask->nBitsPerPixel = 4, bm->nViewPerspective = 6;
    for (size_t i = 0; i < std::size(refused); ++i)
        EXPECT_EQ(refused[i].second, refused[i].first) << "check " << i;
    EXPECT_EQ(ReadView(bm.get()), before);
}

} // namespace
} // namespace rz::test
