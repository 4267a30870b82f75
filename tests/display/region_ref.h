// Reference side of the region tests: per-pixel shape tests written without
// scanlines, the view table, and a reader that pulls a region back out of
// the library as a pixel grid while checking every answer's invariants.
#pragma once

#include <rzdis.h>
#include <rzkrn.h>

#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

namespace rzdis_test {

using Wide = __int128;
using Shape = std::function<bool(int64_t x, int64_t y)>;

struct Grid {
    int32_t w = 0, h = 0;
    std::vector<uint8_t> v;
    Grid() = default;
    Grid(int32_t w_, int32_t h_, uint8_t fill = 0) : w(w_), h(h_), v(size_t(w_) * size_t(h_), fill) {}
    uint8_t &at(int32_t x, int32_t y) { return v[size_t(y) * size_t(w) + size_t(x)]; }
    uint8_t at(int32_t x, int32_t y) const { return v[size_t(y) * size_t(w) + size_t(x)]; }
    bool operator==(const Grid &o) const { return w == o.w && h == o.h && v == o.v; }
};

inline Shape RectShape(RzRect r) {
    return [r](int64_t x, int64_t y) { return x >= r.left && x < r.right && y >= r.top && y < r.bottom; };
}

// Centre (x + 1/2, y + 1/2) against the inscribed ellipse, doubled to stay integral.
inline Shape EllipseShape(RzRect r) {
    return [r](int64_t x, int64_t y) {
        Wide a = Wide(r.right) - r.left, b = Wide(r.bottom) - r.top;
        if (a <= 0 || b <= 0)
            return false;
        Wide dx = 2 * Wide(x) + 1 - r.left - Wide(r.right), dy = 2 * Wide(y) + 1 - r.top - Wide(r.bottom);
        // dx^2 b^2 + dy^2 a^2 <= a^2 b^2, divided through to stay inside 128 bits
        if (dx * dx > a * a || dy * dy > b * b)
            return false;
        using U = unsigned __int128;
        return U(dx * dx) * U(b * b) <= U(a * a) * U(b * b - dy * dy);
    };
}

// Ray from the centre to the right: crossings strictly beyond the centre
// count, with +1 for an edge going down and -1 going up.
inline Shape PolygonShape(std::vector<RzPoint> pts, bool winding) {
    return [pts = std::move(pts), winding](int64_t x, int64_t y) {
        const size_t n = pts.size();
        if (n < 3)
            return false;
        int wind = 0, count = 0;
        const Wide xc2 = 2 * Wide(x) + 1, yc2 = 2 * Wide(y) + 1;
        for (size_t i = 0; i < n; ++i) {
            const RzPoint p = pts[i], q = pts[(i + 1) % n];
            if ((2 * Wide(p.y) < yc2) == (2 * Wide(q.y) < yc2))
                continue;
            const Wide dy = Wide(q.y) - p.y, dx = Wide(q.x) - p.x;
            const Wide num = (2 * Wide(p.x) - xc2) * dy + (yc2 - 2 * Wide(p.y)) * dx;
            if (dy > 0 ? num > 0 : num < 0) {
                wind += dy > 0 ? 1 : -1;
                ++count;
            }
        }
        return winding ? wind != 0 : (count & 1) != 0;
    };
}

// The view table: view pixel (x, y) is this stored pixel.
inline std::pair<int32_t, int32_t> ViewToStored(int view, int32_t pw, int32_t ph, int32_t x, int32_t y) {
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

// What a stored pixel set looks like in a view.
inline Grid StoredToView(const Grid &stored, int view) {
    const bool t = view >= 5;
    Grid g(t ? stored.h : stored.w, t ? stored.w : stored.h);
    for (int32_t y = 0; y < g.h; ++y)
        for (int32_t x = 0; x < g.w; ++x) {
            auto [sx, sy] = ViewToStored(view, stored.w, stored.h, x, y);
            g.at(x, y) = stored.at(sx, sy);
        }
    return g;
}

// Pixels of a shape given in view coordinates.
inline Grid Raster(const Shape &s, int32_t w, int32_t h) {
    Grid g(w, h);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            g.at(x, y) = s(x, y) ? 1 : 0;
    return g;
}

// Reads the region in the bitmap's current view through the row spans,
// checking that spans are ordered, disjoint, inside the row and within the
// mask size, and that the point test and the bounds agree with them.
inline Grid ReadView(const BitmapDesc *b) {
    Grid g(b->nWidth, b->nHeight);
    uint32_t cap = 0;
    EXPECT_EQ(DisGetRegionMaskSize(b, &cap), KRN_OK);
    EXPECT_GE(cap, 2u);
    std::vector<int32_t> spans(cap + 2, -7);
    for (int32_t y = 0; y < g.h; ++y) {
        uint32_t n = 0;
        EXPECT_EQ(DisGetRegionRowSpans(b, y, spans.data(), &n), KRN_OK);
        EXPECT_LE(n, cap);
        EXPECT_EQ(n % 2, 0u);
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
            if (g.at(x, y)) {
                x0 = std::min(x0, x), y0 = std::min(y0, y);
                x1 = std::max(x1, x + 1), y1 = std::max(y1, y + 1);
            }
        }
    RzRect r{};
    EXPECT_EQ(DisGetRegionBounds(b, 0, &r), KRN_OK);
    EXPECT_TRUE(x0 >= x1 ? r.left >= r.right || r.top >= r.bottom
                         : r.left == x0 && r.top == y0 && r.right == x1 && r.bottom == y1)
        << r.left << "," << r.top << "," << r.right << "," << r.bottom;
    return g;
}

inline void SetView(BitmapDesc *b, int view) {
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b, BITMAPDESC_SIZE, view, 0), KRN_OK);
}

// A descriptor with (optionally) pixel memory, freed with its region.
struct Desc {
    BitmapDesc d{};
    Desc(int32_t w, int32_t h, int32_t bits = 8, bool alloc = false) {
        EXPECT_EQ(KrnInitBitmap(&d, BITMAPDESC_SIZE, w, h, bits), KRN_OK);
        EXPECT_EQ(alloc ? KrnAllocBitmap(&d) : KRN_OK, KRN_OK);
    }
    ~Desc() { KrnFreeBitmap(&d); }
    Desc(const Desc &) = delete;
    Desc &operator=(const Desc &) = delete;
    BitmapDesc *get() { return &d; }
};

// Every test checks that it gave back all the memory it took.
class RegionTest : public ::testing::Test {
protected:
    void SetUp() override { start_ = KrnMemOutstanding(); }
    void TearDown() override { EXPECT_EQ(KrnMemOutstanding(), start_); }
    int64_t start_ = 0;
};

} // namespace rzdis_test
