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
#include <random>

namespace rz::test {
namespace {

using Wide = __int128;

struct Grid {
    int32_t w = 0, h = 0;
    std::vector<uint8_t> v;
    Grid(int32_t w_ = 0, int32_t h_ = 0, uint8_t on = 0) : w(w_), h(h_), v(size_t(w_) * h_, on) {}
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
bool Inside(const Figure &f, int64_t x, int64_t y) {
    const RzRect r = f.rc;
    const Wide xc2 = 2 * Wide(x) + 1, yc2 = 2 * Wide(y) + 1;
    if (f.kind == 0)
        return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
    if (f.kind == 1) {
        const Wide a = Wide(r.right) - r.left, b = Wide(r.bottom) - r.top;
        const Wide dx = xc2 - r.left - Wide(r.right), dy = yc2 - r.top - Wide(r.bottom);
        if (a <= 0 || b <= 0 || dx * dx > a * a || dy * dy > b * b)
            return false;
        using U = unsigned __int128;
        return U(dx * dx) * U(b * b) <= U(a * a) * U(b * b - dy * dy);
    }
    const size_t n = f.pts.size();
    int wind = 0, count = 0;
    for (size_t i = 0; n >= 3 && i < n; ++i) {
        const RzPoint p = f.pts[i], q = f.pts[(i + 1) % n];
        if ((2 * Wide(p.y) < yc2) == (2 * Wide(q.y) < yc2))
            continue;
        const Wide dy = Wide(q.y) - p.y, dx = Wide(q.x) - p.x;
        const Wide num = (2 * Wide(p.x) - xc2) * dy + (yc2 - 2 * Wide(p.y)) * dx;
        if (dy > 0 ? num > 0 : num < 0)
            wind += dy > 0 ? 1 : -1, ++count;
    }
    return f.winding ? wind != 0 : (count & 1) != 0;
}

// Applies the figure through the library and to the reference (view pixels).
void Apply(BitmapDesc *bm, const Figure &f, int32_t mode, Grid &ref) {
    const int32_t fill = f.winding ? DIS_FILL_WINDING : DIS_FILL_ALTERNATE;
    const int32_t n = int32_t(f.pts.size());
    EXPECT_EQ(f.kind == 0   ? DisSetRegionRect(bm, &f.rc, mode)
              : f.kind == 1 ? DisSetRegionEllipse(bm, &f.rc, mode)
                            : DisSetRegionPolygon(bm, f.pts.data(), n, fill, mode),
              KRN_OK);
    for (int32_t p = 0; p < ref.w * ref.h; ++p) {
        const bool a = ref.v[p], b = Inside(f, p % ref.w, p / ref.w);
        const bool r[5] = {b, a && b, a || b, a != b, a && !b};
        ref.v[p] = r[mode];
    }
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

struct Region : ::testing::Test {
    void TearDown() override { EXPECT_EQ(KrnMemOutstanding(), start_); }
    int64_t start_ = KrnMemOutstanding();
};

// A random rectangle or ellipse around a w x h view, or polygon of 3 to 12 points.
Figure Random(std::mt19937 &rng, int kind, int32_t w, int32_t h) {
    std::uniform_int_distribution<int32_t> d(-12, std::max(w, h) + 12), dx(-8, w + 8),
        dy(-8, h + 8);
    Figure f{kind, {d(rng), d(rng), d(rng), d(rng)}, {}, (rng() & 1) != 0};
    for (size_t n = kind == 2 ? 3 + rng() % 10 : 0; f.pts.size() < n;)
        f.pts.push_back({dx(rng), dy(rng)});
    return f;
}

// A rectangle XOR an ellipse, OR a polygon, in the current view; its view pixels.
Grid Composite(BitmapDesc *bm, std::mt19937 &rng) {
    Grid ref(bm->nWidth, bm->nHeight);
    for (int32_t k = 0; k < 3; ++k)
        Apply(bm, Random(rng, k, ref.w, ref.h), k == 0 ? DIS_RGN_SET : k + 2, ref); // XOR, OR
    return ref;
}

// Every figure, extremes of int32 included, is combined by a random mode
// into a running region and checked against the boolean reference.
TEST_F(Region, FiguresAndCombineModesMatchTheFormulas) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    const auto poly = [](std::vector<RzPoint> p, bool w) { return Figure{2, {}, p, w}; };
    // A pentagram: its inner pentagon is crossed twice (even-odd: out) but wound twice (in).
    const std::vector<RzPoint> star{{20, 1}, {28, 26}, {7, 11}, {33, 11}, {12, 26}};
    const int32_t lo = INT32_MIN, hi = INT32_MAX;
    std::vector<Figure> figs{
        {0, {2, 3, 7, 8}}, {0, {-5, -5, 4, 3}}, {0, {15, 5, 60, 60}}, {0, {lo, lo, hi, hi}},
        {0, {50, 0, 60, 5}}, {0, {5, 5, 5, 9}}, {0, {8, 2, 3, 6}}, {1, {lo, lo, hi, hi}},
        {1, {lo, 5, hi, 30}}, poly(star, false), poly(star, true),
        poly({{0, 0}, {10, 10}}, false), // fewer than three points enclose nothing
        poly({{lo, lo}, {hi, hi - 3}, {lo, hi}}, 1), poly({{hi, lo}, {-hi / 3, hi}, {12, 12}}, 0),
    };
    figs.insert(figs.begin(), figs[0]); // with no region yet, AND gives nothing
    const size_t fixed = figs.size();
    for (int i = 0; i < 850; ++i)
        figs.push_back(Random(rng, i < 150 ? 0 : i < 450 ? 1 : 2, 40, 30));
    for (int i = 0; i < 40; ++i) { // circles of radius ~1e9 whose rim crosses the bitmap
        const int64_t r = 1000000000 + int64_t(rng() % 1000);
        const int32_t k = int32_t(double(r) / std::sqrt(2.0)) - 20 + int32_t(rng() % 7);
        figs.push_back({1, {int32_t(-k - r), int32_t(-k - r), int32_t(r - k), int32_t(r - k)}});
    }
    for (int i = 0; i < 120; ++i) { // edges spanning int32 around one vertex inside
        const RzPoint inside{int32_t(rng() % 40), int32_t(rng() % 30)};
        const RzPoint a{any(rng), any(rng)}, b{any(rng), any(rng)}, c{any(rng), any(rng)};
        figs.push_back(poly({a, b, inside, c}, i & 1));
    }
    Bitmap bm = DepthBitmap(40, 30, 8);
    EXPECT_EQ(ReadView(bm.get()), Grid(40, 30, 1)); // no region: the whole view
    Grid ref(40, 30);
    for (size_t i = 0; i < figs.size(); ++i) {
        // The fixed figures alone first; then a random mode, SET now and then to restart.
        const int32_t mode = i == 0 ? DIS_RGN_AND : i < fixed ? DIS_RGN_SET : int32_t(rng() % 5);
        Apply(bm.get(), figs[i], mode, ref);
        ASSERT_EQ(ReadView(bm.get()), ref) << "figure " << i << " mode " << mode;
    }
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
                    const uint64_t shift = rng() % std::max(bits / cb, 1) * cb;
                    const uint64_t any = 1 + rng() % full;
                    const uint64_t v = rng() & 1 ? 0 : bits >= 24 ? (1 + any % 255) << shift : any;
                    mask.setPixel(x, y, v);
                    if (x < 12 && y < 17)
                        want.at(x, y) = v != 0;
                }
            ASSERT_EQ(DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_SET), KRN_OK);
            SetView(bm.get(), 5); // columns hold more runs than rows: the mask size covers them
            EXPECT_EQ(ReadView(bm.get()), InView(want, 5)) << bits << " bits, view " << view;
        }
}

// Built in any view, read in every view; changed in view 8 after its column
// table was cached, answers follow the new runs.
TEST_F(Region, BuiltInAnyViewReadInEvery) {
    std::mt19937 rng(29);
    const int32_t pw = 13, ph = 7;
    for (int trial = 0; trial < 12; ++trial)
        for (int built = 1; built <= 8; ++built) {
            Bitmap bm = DepthBitmap(pw, ph, 8);
            SetView(bm.get(), built);
            Grid stored(pw, ph);
            InView(Composite(bm.get(), rng), built, &stored);
            for (int read = 1; read <= 9; ++read) {
                if (read == 9) { // a rectangle added in view 8, its column table cached
                    Grid added(ph, pw);
                    Apply(bm.get(), Random(rng, 0, ph, pw), DIS_RGN_OR, added);
                    InView(added, 8, &stored);
                }
                SetView(bm.get(), std::min(read, 8));
                ASSERT_EQ(ReadView(bm.get()), InView(stored, std::min(read, 8)))
                    << "built in " << built << ", read in " << read;
            }
        }
}

} // namespace
} // namespace rz::test
