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
    Grid() = default;
    Grid(int32_t w_, int32_t h_, uint8_t fill = 0) : w(w_), h(h_), v(size_t(w_) * size_t(h_), fill) {}
    uint8_t &at(int32_t x, int32_t y) { return v[size_t(y) * size_t(w) + size_t(x)]; }
    uint8_t at(int32_t x, int32_t y) const { return v[size_t(y) * size_t(w) + size_t(x)]; }
    bool operator==(const Grid &o) const = default;
};

Shape RectShape(RzRect r) {
    return [r](int64_t x, int64_t y) { return x >= r.left && x < r.right && y >= r.top && y < r.bottom; };
}

// Centre (x + 1/2, y + 1/2) against the inscribed ellipse, doubled to stay integral:
// dx^2 b^2 + dy^2 a^2 <= a^2 b^2, divided through to stay inside 128 bits.
Shape EllipseShape(RzRect r) {
    return [r](int64_t x, int64_t y) {
        const Wide a = Wide(r.right) - r.left, b = Wide(r.bottom) - r.top;
        const Wide dx = 2 * Wide(x) + 1 - r.left - Wide(r.right), dy = 2 * Wide(y) + 1 - r.top - Wide(r.bottom);
        if (a <= 0 || b <= 0 || dx * dx > a * a || dy * dy > b * b)
            return false;
        using U = unsigned __int128;
        return U(dx * dx) * U(b * b) <= U(a * a) * U(b * b - dy * dy);
    };
}

// Ray from the centre to the right: crossings strictly beyond the centre
// count, +1 for an edge going down and -1 going up.
Shape PolygonShape(std::vector<RzPoint> pts, bool winding) {
    return [pts = std::move(pts), winding](int64_t x, int64_t y) {
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

// The view table: view pixel (x, y) is this stored pixel.
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

Grid StoredToView(const Grid &stored, int view) {
    Grid g(view >= 5 ? stored.h : stored.w, view >= 5 ? stored.w : stored.h);
    for (int32_t y = 0; y < g.h; ++y)
        for (int32_t x = 0; x < g.w; ++x) {
            auto [sx, sy] = ViewToStored(view, stored.w, stored.h, x, y);
            g.at(x, y) = stored.at(sx, sy);
        }
    return g;
}

// ORs pixels given in a view into the stored grid.
void AddInView(Grid &stored, const Grid &inView, int view) {
    for (int32_t y = 0; y < inView.h; ++y)
        for (int32_t x = 0; x < inView.w; ++x) {
            auto [sx, sy] = ViewToStored(view, stored.w, stored.h, x, y);
            stored.at(sx, sy) |= inView.at(x, y);
        }
}

Grid Raster(const Shape &s, int32_t w, int32_t h) {
    Grid g(w, h);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            g.at(x, y) = s(x, y) ? 1 : 0;
    return g;
}

Grid ReadView(const BitmapDesc *b) {
    Grid g(b->nWidth, b->nHeight);
    uint32_t cap = 0;
    EXPECT_EQ(DisGetRegionMaskSize(b, &cap), KRN_OK);
    EXPECT_GE(cap, 2u);
    std::vector<int32_t> spans(cap + 2, -7);
    for (int32_t y = 0; y < g.h; ++y) {
        uint32_t n = 0;
        EXPECT_EQ(DisGetRegionRowSpans(b, y, spans.data(), &n), KRN_OK);
        EXPECT_TRUE(n <= cap && n % 2 == 0) << n;
        EXPECT_EQ(spans[cap], -7) << "wrote past the mask size";
        for (uint32_t k = 0; k + 1 < n && k + 1 < cap; k += 2) {
            EXPECT_LT(spans[k], spans[k + 1]);
            EXPECT_GE(spans[k], k ? spans[k - 1] + 1 : 0) << "runs touch or overlap";
            EXPECT_LE(spans[k + 1], g.w);
            for (int32_t x = std::max(spans[k], 0); x < std::min(spans[k + 1], g.w); ++x)
                g.at(x, y) = 1;
        }
    }
    int32_t x0 = g.w, y0 = g.h, x1 = 0, y1 = 0;
    for (int32_t y = 0; y < g.h; ++y)
        for (int32_t x = 0; x < g.w; ++x) {
            EXPECT_EQ(DisIsPtInRegion(b, x, y) != 0, g.at(x, y) != 0) << x << "," << y;
            if (g.at(x, y))
                x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x + 1), y1 = std::max(y1, y + 1);
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

// Zero-filled; palettised up to 8 bits, grey samples at 12/16, colour above.
Bitmap Canvas(int32_t w, int32_t h, int32_t bits = 8) {
    const bool grey = bits == 12 || bits == 16;
    return Bitmap(Layout{"canvas", bits, grey ? KRN_ORDER_GRAY : KRN_ORDER_BGR, bits > 8, 0, grey ? bits - 1 : -1},
                  w, h, 0);
}

class Region : public ::testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(KrnMemOutstanding(), start_); }
    int64_t start_ = KrnMemOutstanding();
};

// kind 0 rectangle, 1 ellipse (both from rc), 2 polygon.
struct Figure {
    int kind = 0;
    RzRect rc{};
    std::vector<RzPoint> pts{};
    bool winding = false;
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
    const int32_t fill = f.winding ? DIS_FILL_WINDING : DIS_FILL_ALTERNATE;
    EXPECT_EQ(DisSetRegionPolygon(bm, f.pts.data(), int32_t(f.pts.size()), fill, mode), KRN_OK);
    return PolygonShape(f.pts, f.winding);
}

// A composite of three shapes in the current view; returns its view pixels.
Grid BuildComposite(BitmapDesc *bm, std::mt19937 &rng) {
    const int32_t w = bm->nWidth, h = bm->nHeight;
    const Figure a{0, RandomRect(rng, -3, std::max(w, h) + 3)}, b{1, RandomRect(rng, -3, std::max(w, h) + 3)},
        p{2, {}, RandomPolygon(rng, w, h, 4), true};
    const Shape sa = Apply(bm, a, DIS_RGN_SET), sb = Apply(bm, b, DIS_RGN_XOR), sp = Apply(bm, p, DIS_RGN_OR);
    return Raster([&](int64_t x, int64_t y) { return (sa(x, y) != sb(x, y)) || sp(x, y); }, w, h);
}

// Every figure, extremes of int32 included, is combined by a random mode
// into a running region and checked against the boolean reference.
TEST_F(Region, FiguresAndCombineModesMatchTheFormulas) {
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
        {0, {2, 3, 7, 8}}, {0, {-5, -5, 4, 3}}, {0, {15, 5, 60, 60}}, {0, {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}},
        {0, {50, 0, 60, 5}}, {0, {5, 5, 5, 9}}, {0, {8, 2, 3, 6}},
        {1, {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}}, {1, {INT32_MIN, 5, INT32_MAX, 30}},
        poly(star, false), poly(star, true),
        poly({{0, 0}, {10, 10}}, false), // fewer than three points enclose nothing
        poly({{INT32_MIN, INT32_MIN}, {INT32_MAX, INT32_MAX - 3}, {INT32_MIN, INT32_MAX}}, true),
        poly({{INT32_MAX, INT32_MIN}, {-INT32_MAX / 3, INT32_MAX}, {12, 12}}, false),
    };
    const std::pair<int, std::function<Figure(int)>> sources[] = {
        {150, [&](int) { return Figure{0, RandomRect(rng, -12, 52)}; }},
        {300, [&](int) { return Figure{1, RandomRect(rng, -12, 52)}; }},
        {40, [&](int) { // circles of radius ~1e9 whose rim crosses the bitmap
             const int64_t r = 1000000000 + int64_t(rng() % 1000);
             const int64_t k = int64_t(double(r) / std::sqrt(2.0)) - 20 + int64_t(rng() % 7);
             return Figure{1, {int32_t(-k - r), int32_t(-k - r), int32_t(r - k), int32_t(r - k)}};
         }},
        {400, [&](int i) { return poly(RandomPolygon(rng, 40, 30, 3 + rng() % 10), i & 1); }},
        {120, [&](int i) { // edges spanning int32 around one vertex inside
             return poly({{any(rng), any(rng)}, {any(rng), any(rng)}, {int32_t(rng() % 40), int32_t(rng() % 30)},
                          {any(rng), any(rng)}},
                         i & 1);
         }},
    };
    for (const auto &[count, make] : sources)
        for (int i = 0; i < count; ++i)
            figs.push_back(make(i));
    Bitmap bm = Canvas(40, 30);
    Grid ref(40, 30);
    bool has = false;
    for (size_t i = 0; i < figs.size(); ++i) {
        // The fixed figures alone first; then a random mode, SET now and then to restart.
        const int32_t mode = i < 14 ? DIS_RGN_SET : int32_t(rng() % 5);
        const Shape shape = Apply(bm.get(), figs[i], mode);
        for (int32_t y = 0; y < 30; ++y)
            for (int32_t x = 0; x < 40; ++x) {
                // Without a region the old set is empty (AND and DIFF give an empty region).
                const bool a = has && ref.at(x, y), b = shape(x, y);
                const bool r[5] = {b, a && b, a || b, a != b, a && !b};
                ref.at(x, y) = r[mode];
            }
        has = true;
        EXPECT_NE(DisBitmapHasRegion(bm.get()), 0);
        ASSERT_EQ(ReadView(bm.get()), ref) << "figure " << i << " kind " << figs[i].kind << " mode " << mode;
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
    Bitmap bm = Canvas(2 * N + 3, 6);
    ASSERT_EQ(DisSetRegionPolygon(bm.get(), comb.data(), int32_t(comb.size()), DIS_FILL_ALTERNATE, DIS_RGN_SET),
              KRN_OK);
    Grid want(2 * N + 3, 6);
    for (int32_t x = 0; x < 2 * N - 1; ++x)
        want.at(x, 0) = want.at(x, 1) = x % 2 == 0, want.at(x, 2) = want.at(x, 3) = 1;
    EXPECT_EQ(ReadView(bm.get()), want);
    SetView(bm.get(), 5);
    EXPECT_EQ(ReadView(bm.get()), StoredToView(want, 5));
}

// A mask's nonzero raw samples, written with KrnSetPixel, make the region.
TEST_F(Region, MasksOfEveryDepth) {
    std::mt19937 rng(19);
    for (int32_t bits : {1, 2, 3, 4, 5, 7, 8, 12, 16, 24, 32, 48, 64})
        for (int view : {1, 6}) {
            Bitmap mask = Canvas(23, 9, bits), bm = Canvas(12, 17);
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
            EXPECT_EQ(ReadView(bm.get()), StoredToView(want, 5)) << bits << " bits, view " << view;
        }
}

TEST_F(Region, BuiltInAnyViewReadInEvery) {
    std::mt19937 rng(29);
    const int32_t pw = 13, ph = 7;
    for (int trial = 0; trial < 12; ++trial)
        for (int built = 1; built <= 8; ++built) {
            Bitmap bm = Canvas(pw, ph);
            SetView(bm.get(), built);
            // No region answers the whole view, and nothing outside it.
            EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
            EXPECT_EQ(ReadView(bm.get()), Grid(bm->nWidth, bm->nHeight, 1));
            EXPECT_EQ(DisIsPtInRegion(bm.get(), bm->nWidth, 0), 0);
            Grid stored(pw, ph);
            AddInView(stored, BuildComposite(bm.get(), rng), built);
            for (int pass = 0; pass < 2; ++pass) {
                if (pass) {
                    // Changed in view 8 after its column table was cached:
                    // answers must follow the new runs, not the stale table.
                    const RzRect rc{int32_t(rng() % 9) - 1, int32_t(rng() % 15) - 1, int32_t(rng() % 9),
                                    int32_t(rng() % 15)};
                    ASSERT_EQ(DisSetRegionRect(bm.get(), &rc, DIS_RGN_OR), KRN_OK);
                    AddInView(stored, Raster(RectShape(rc), ph, pw), 8);
                }
                for (int read = 1; read <= 8; ++read) {
                    SetView(bm.get(), read);
                    ASSERT_EQ(ReadView(bm.get()), StoredToView(stored, read))
                        << "built in " << built << ", read in " << read << ", pass " << pass;
                }
            }
        }
}

TEST_F(Region, TransposedRowsFromSeveralThreads) {
    // The column table is built lazily; concurrent first readers must agree.
    std::mt19937 rng(31);
    for (int trial = 0; trial < 20; ++trial) {
        Bitmap bm = Canvas(64, 48);
        const Grid stored = BuildComposite(bm.get(), rng);
        SetView(bm.get(), 8);
        std::vector<Grid> got(4);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] { got[t] = ReadView(bm.get()); });
        for (auto &th : threads)
            th.join();
        for (const Grid &g : got)
            EXPECT_EQ(g, StoredToView(stored, 8));
    }
}

TEST_F(Region, EveryAllocationFailureLeavesTheOldRegion) {
    std::mt19937 rng(2);
    Bitmap bm = Canvas(30, 20), mask = Canvas(12, 40, 4);
    SetView(bm.get(), 6);
    const Grid before = BuildComposite(bm.get(), rng);
    mask.setPixel(3, 5, 9);
    const std::vector<RzPoint> tri{{-4, 2}, {25, 10}, {3, 33}};
    const RzRect rc{2, 3, 17, 26};
    const std::function<int32_t()> calls[] = {
        [&] { return DisSetRegionRect(bm.get(), &rc, DIS_RGN_XOR); },
        [&] { return DisSetRegionEllipse(bm.get(), &rc, DIS_RGN_DIFF); },
        [&] { return DisSetRegionPolygon(bm.get(), tri.data(), 3, DIS_FILL_ALTERNATE, DIS_RGN_AND); },
        [&] { return DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_OR); },
    };
    for (size_t c = 0; c < std::size(calls); ++c) {
        int failures = 0;
        for (int64_t n = 0;; ++n) {
            const int64_t mark = KrnMemOutstanding();
            KrnMemFailAfter(n);
            const int32_t st = calls[c]();
            if (KrnMemFailAfter(-1) != -1) { // ran out of allocations to fail
                ASSERT_EQ(st, KRN_OK);
                break;
            }
            ASSERT_EQ(st, KRN_FAILURE) << "call " << c << " failing allocation " << n;
            EXPECT_EQ(KrnMemOutstanding(), mark);
            ++failures;
            ASSERT_EQ(ReadView(bm.get()), before) << "call " << c << " failing allocation " << n;
        }
        EXPECT_GT(failures, 0);
        ASSERT_EQ(DisFreeRegion(bm.get()), KRN_OK);
        EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
        EXPECT_EQ(DisFreeRegion(bm.get()), KRN_OK); // nothing left to free
        rng.seed(2);
        ASSERT_EQ(BuildComposite(bm.get(), rng), before);
    }
    // The column table of a transposed view is built on first use.
    uint32_t n = 0;
    std::vector<int32_t> spans(200);
    KrnMemFailAfter(0);
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 0, spans.data(), &n), KRN_FAILURE);
    KrnMemFailAfter(-1);
    EXPECT_EQ(ReadView(bm.get()), before);
}

TEST_F(Region, RefusedCallsChangeNothing) {
    Bitmap bm = Canvas(8, 6), mask = Canvas(4, 4), noPixels = Canvas(4, 4);
    KrnFreeBitmap(noPixels.get());
    BitmapDesc *b = bm.get();
    const RzRect rc{1, 1, 5, 4};
    const RzPoint pts[3] = {{0, 0}, {6, 0}, {0, 5}};
    uint32_t n = 0;
    int32_t spans[8];
    RzRect out;
    // Every entry point, given a null or wrong-sized descriptor.
    for (uint32_t size : {0u, 163u, 165u}) {
        BitmapDesc *p = size ? b : nullptr;
        b->uStructSize = size;
        const std::vector<int32_t> got{DisGetRegionBounds(p, 0, &out), DisGetRegionMaskSize(p, &n),
                                       DisGetRegionRowSpans(p, 0, spans, &n), DisSetRegionRect(p, &rc, DIS_RGN_SET),
                                       DisSetRegionEllipse(p, &rc, DIS_RGN_SET),
                                       DisSetRegionPolygon(p, pts, 3, DIS_FILL_ALTERNATE, DIS_RGN_SET),
                                       DisSetRegionMask(p, mask.get(), DIS_RGN_SET), DisFreeRegion(p)};
        EXPECT_EQ(got, std::vector<int32_t>(8, size ? KRN_BAD_STRUCT_SIZE : KRN_NULL_POINTER)) << size;
        EXPECT_EQ(DisBitmapHasRegion(p) | DisIsPtInRegion(p, 0, 0), 0);
        b->uStructSize = BITMAPDESC_SIZE;
    }
    ASSERT_EQ(DisSetRegionRect(b, &rc, DIS_RGN_SET), KRN_OK);
    const Grid before = ReadView(b);
    const int32_t I = KRN_INVALID_PARAMETER;
    const std::pair<int32_t, int32_t> checks[] = {
        {I, DisSetRegionRect(b, nullptr, DIS_RGN_SET)},
        {I, DisSetRegionEllipse(b, &rc, 5)},
        {I, DisSetRegionRect(b, &rc, -1)},
        {I, DisSetRegionMask(b, mask.get(), INT32_MIN)},
        {I, DisSetRegionPolygon(b, pts, INT32_MIN, DIS_FILL_WINDING, DIS_RGN_SET)},
        {I, DisSetRegionPolygon(b, nullptr, 3, DIS_FILL_ALTERNATE, DIS_RGN_SET)},
        {I, DisSetRegionPolygon(b, pts, 3, 2, DIS_RGN_SET)},
        {I, DisGetRegionRowSpans(b, -1, spans, &n)},
        {I, DisGetRegionRowSpans(b, 6, spans, &n)},
        {I, DisGetRegionRowSpans(b, 0, nullptr, &n)},
        {I, DisGetRegionMaskSize(b, nullptr)},
        {I, DisGetRegionBounds(b, 0, nullptr)},
        {KRN_NULL_POINTER, DisSetRegionMask(b, nullptr, DIS_RGN_SET)},
        {KRN_NO_BITMAP, DisSetRegionMask(b, noPixels.get(), DIS_RGN_SET)},
        {KRN_BAD_BITS, (mask->nBitsPerPixel = 9, DisSetRegionMask(b, mask.get(), DIS_RGN_SET))},
        // a hand-made view out of range is refused, not guessed
        {I, (b->nViewPerspective = 9, DisGetRegionRowSpans(b, 0, spans, &n))},
        {I, DisSetRegionRect(b, &rc, DIS_RGN_OR)},
        // a count past the limit is refused before the points are read
        {I, (b->nViewPerspective = 1, DisSetRegionPolygon(b, pts, INT32_MAX, DIS_FILL_ALTERNATE, DIS_RGN_SET))},
    };
    mask->nBitsPerPixel = 8;
    for (size_t i = 0; i < std::size(checks); ++i)
        EXPECT_EQ(checks[i].second, checks[i].first) << "check " << i;
    EXPECT_EQ(ReadView(b), before);
    // No points is a valid, empty polygon; a 0 x 0 bitmap takes any shape.
    ASSERT_EQ(DisSetRegionPolygon(b, nullptr, 0, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_OK);
    EXPECT_NE(DisBitmapHasRegion(b), 0);
    EXPECT_EQ(ReadView(b), Grid(8, 6));
    BitmapDesc empty{};
    ASSERT_EQ(KrnInitBitmap(&empty, BITMAPDESC_SIZE, 0, 0, 8), KRN_OK);
    ASSERT_EQ(DisSetRegionEllipse(&empty, &rc, DIS_RGN_OR), KRN_OK);
    EXPECT_EQ(ReadView(&empty), Grid(0, 0));
    KrnFreeBitmap(&empty);
}

} // namespace
} // namespace rz::test
