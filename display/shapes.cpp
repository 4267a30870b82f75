/*
 * shapes.cpp - scan conversion of rectangles, ellipses, polygons and masks.
 *
 * A pixel belongs to a shape when its centre (x + 0.5, y + 0.5) does. The
 * ellipse and polygon tests are exact: each row first gets a floating-point
 * estimate of its end points, which is then corrected by integer tests done
 * in 128 bits, so any int32 coordinates give the same pixels as the exact
 * geometry. Scanlines sit at half-integers and vertices at integers, so a
 * scanline never passes through a vertex; a centre lying exactly on an edge
 * counts as inside a left edge and outside a right one (a ray cast to the
 * right counts only crossings strictly beyond the centre).
 */
#include "shapes.h"

#include <algorithm>
#include <cmath>

namespace rzdis {

namespace {

struct U128 {
    uint64_t hi, lo;
    friend bool operator<(U128 a, U128 b) { return a.hi != b.hi ? a.hi < b.hi : a.lo < b.lo; }
    friend bool operator==(U128 a, U128 b) { return a.hi == b.hi && a.lo == b.lo; }
};

U128 mul64(uint64_t a, uint64_t b) {
    const uint64_t a0 = a & 0xFFFFFFFFu, a1 = a >> 32, b0 = b & 0xFFFFFFFFu, b1 = b >> 32;
    const uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    const uint64_t mid = (p00 >> 32) + (p01 & 0xFFFFFFFFu) + (p10 & 0xFFFFFFFFu);
    return {p11 + (p01 >> 32) + (p10 >> 32) + (mid >> 32), (mid << 32) | (p00 & 0xFFFFFFFFu)};
}

uint64_t magnitude(int64_t v) { return v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v); }

/* Sign of a*b - c*d for |a|, |b|, |c|, |d| < 2^63. */
int compareProducts(int64_t a, int64_t b, int64_t c, int64_t d) {
    const int sl = (a == 0 || b == 0) ? 0 : ((a < 0) != (b < 0) ? -1 : 1);
    const int sr = (c == 0 || d == 0) ? 0 : ((c < 0) != (d < 0) ? -1 : 1);
    if (sl != sr)
        return sl < sr ? -1 : 1;
    if (sl == 0)
        return 0;
    const U128 l = mul64(magnitude(a), magnitude(b)), r = mul64(magnitude(c), magnitude(d));
    const int m = l == r ? 0 : (l < r ? -1 : 1);
    return sl > 0 ? m : -m;
}

int64_t floorHalf(int64_t v) { return v >= 0 ? v / 2 : -((1 - v) / 2); }

} // namespace

int32_t rasteriseRect(const RzRect &rc, int32_t w, int32_t h, RunTable &out) {
    TableBuilder tb;
    if (!tb.begin(h, w))
        return KRN_FAILURE;
    const int32_t y0 = std::max(rc.top, 0), y1 = std::min(rc.bottom, h);
    for (int32_t y = 0; y < h; ++y) {
        if (y >= y0 && y < y1)
            tb.add(rc.left, rc.right);
        tb.endRow();
    }
    return tb.finish(out) ? KRN_OK : KRN_FAILURE;
}

int32_t rasteriseEllipse(const RzRect &rc, int32_t w, int32_t h, RunTable &out) {
    TableBuilder tb;
    if (!tb.begin(h, w))
        return KRN_FAILURE;
    /* In doubled coordinates centred on the ellipse a pixel has offsets
     * X = 2x + 1 - (l + r), Y = 2y + 1 - (t + b), and is inside when
     * X^2 B^2 <= A^2 (B^2 - Y^2) with A, B the width and height. */
    const int64_t A = int64_t{rc.right} - rc.left, B = int64_t{rc.bottom} - rc.top;
    const int64_t sx = int64_t{rc.left} + rc.right, sy = int64_t{rc.top} + rc.bottom;
    const int32_t yBegin = A > 0 && B > 0 ? std::max(rc.top, 0) : h;
    const int32_t yEnd = std::min(rc.bottom, h);
    const uint64_t a2 = static_cast<uint64_t>(A) * static_cast<uint64_t>(A);
    const uint64_t b2 = static_cast<uint64_t>(B) * static_cast<uint64_t>(B);
    const int64_t xc = floorHalf(sx); /* the pixel whose centre is nearest the middle */
    for (int32_t y = 0; y < h; ++y) {
        if (y >= yBegin && y < yEnd) {
            const int64_t Y = 2 * int64_t{y} + 1 - sy; /* |Y| < B */
            const U128 rhs = mul64(a2, b2 - magnitude(Y) * magnitude(Y));
            auto inside = [&](int64_t x) {
                const int64_t X = 2 * x + 1 - sx;
                if (magnitude(X) > static_cast<uint64_t>(A))
                    return false;
                return !(rhs < mul64(magnitude(X) * magnitude(X), b2));
            };
            if (inside(xc)) {
                const double yr = static_cast<double>(Y) / static_cast<double>(B);
                const double half = 0.5 * static_cast<double>(A) * std::sqrt(std::max(0.0, 1.0 - yr * yr));
                double est = std::floor(0.5 * static_cast<double>(sx) + half - 0.5);
                est = std::clamp(est, static_cast<double>(xc), static_cast<double>(xc + A));
                int64_t xr = static_cast<int64_t>(est);
                while (!inside(xr))
                    --xr;
                while (inside(xr + 1))
                    ++xr;
                /* The row is symmetric about the middle: x <-> sx - 1 - x. */
                tb.add(sx - 1 - xr, xr + 1);
            }
        }
        tb.endRow();
    }
    return tb.finish(out) ? KRN_OK : KRN_FAILURE;
}

namespace {

struct Edge {
    int64_t x0, y0, dx, dy; /* from the upper end; dy > 0 */
    int32_t rowBegin, rowEnd; /* view rows whose centre line it crosses */
    int32_t dir;
};

struct Crossing {
    int32_t x; /* first pixel whose centre is at or right of the crossing */
    int32_t dir;
};

} // namespace

int32_t rasterisePolygon(const RzPoint *pts, int32_t count, bool winding, int32_t w, int32_t h,
                         RunTable &out) {
    const size_t n = count > 0 ? static_cast<size_t>(count) : 0;
    Buf<Edge> edges;
    if (!edges.alloc(n))
        return KRN_FAILURE;
    size_t ne = 0;
    for (size_t i = 0; i < n && n >= 3; ++i) {
        const RzPoint p = pts[i], q = pts[(i + 1) % n];
        if (p.y == q.y)
            continue;
        const bool down = p.y < q.y;
        const RzPoint top = down ? p : q, bottom = down ? q : p;
        const int32_t rb = std::max(top.y, 0), re = std::min(bottom.y, h);
        if (rb >= re)
            continue;
        edges[ne++] = {top.x, top.y, int64_t{bottom.x} - top.x, int64_t{bottom.y} - top.y, rb, re,
                       down ? 1 : -1};
    }
    std::sort(edges.data(), edges.data() + ne,
              [](const Edge &a, const Edge &b) { return a.rowBegin < b.rowBegin; });

    Buf<size_t> active;
    Buf<Crossing> cross;
    TableBuilder tb;
    if (!active.alloc(ne) || !cross.alloc(ne) || !tb.begin(h, w))
        return KRN_FAILURE;
    size_t nActive = 0, next = 0;
    for (int32_t y = 0; y < h; ++y) {
        size_t kept = 0;
        for (size_t k = 0; k < nActive; ++k)
            if (edges[active[k]].rowEnd > y)
                active[kept++] = active[k];
        nActive = kept;
        while (next < ne && edges[next].rowBegin == y)
            active[nActive++] = next++;

        for (size_t k = 0; k < nActive; ++k) {
            const Edge &e = edges[active[k]];
            /* Pixel x is at or right of the crossing when
             * (2x + 1 - 2 x0) dy >= (2y + 1 - 2 y0) dx. */
            const int64_t t = 2 * int64_t{y} + 1 - 2 * e.y0;
            auto atOrRight = [&](int64_t x) { return compareProducts(2 * x + 1 - 2 * e.x0, e.dy, t, e.dx) >= 0; };
            const double c = static_cast<double>(e.x0) +
                             (static_cast<double>(y) + 0.5 - static_cast<double>(e.y0)) *
                                 static_cast<double>(e.dx) / static_cast<double>(e.dy);
            const int64_t lo = -1, hi = int64_t{w} + 1;
            int64_t x = static_cast<int64_t>(std::clamp(std::ceil(c - 0.5), static_cast<double>(lo),
                                                        static_cast<double>(hi)));
            while (x > lo && atOrRight(x - 1))
                --x;
            while (x < hi && !atOrRight(x))
                ++x;
            cross[k] = {static_cast<int32_t>(std::clamp<int64_t>(x, 0, w)), e.dir};
        }
        std::sort(cross.data(), cross.data() + nActive,
                  [](const Crossing &a, const Crossing &b) { return a.x < b.x; });

        /* For a closed outline the crossings of a row sum to zero winding
         * and come in even number, so the state left of a pixel decides it. */
        int32_t wind = 0, start = 0;
        bool inside = false;
        for (size_t k = 0; k < nActive;) {
            const int32_t x = cross[k].x;
            for (; k < nActive && cross[k].x == x; ++k)
                wind += winding ? cross[k].dir : 1;
            const bool now = winding ? wind != 0 : (wind & 1) != 0;
            if (now != inside) {
                if (now)
                    start = x;
                else
                    tb.add(start, x);
                inside = now;
            }
        }
        tb.endRow();
    }
    return tb.finish(out) ? KRN_OK : KRN_FAILURE;
}

namespace {

/* Appends the runs of pixels 0..n-1 for which nonzero(x) holds. */
template <class NonZero>
void scanRow(int32_t n, TableBuilder &tb, NonZero nonzero) {
    int32_t x = 0;
    while (x < n) {
        while (x < n && !nonzero(x))
            ++x;
        const int32_t start = x;
        while (x < n && nonzero(x))
            ++x;
        if (start < x)
            tb.add(start, x);
    }
}

template <int Bytes>
void scanWhole(const uint8_t *row, int32_t n, TableBuilder &tb) {
    scanRow(n, tb, [row](int32_t x) {
        const uint8_t *p = row + static_cast<size_t>(x) * Bytes;
        uint8_t any = 0;
        for (int i = 0; i < Bytes; ++i)
            any |= p[i];
        return any != 0;
    });
}

} // namespace

int32_t rasteriseMask(const BitmapDesc &mask, int32_t w, int32_t h, RunTable &out) {
    const int32_t bits = mask.nBitsPerPixel;
    const uint32_t rowBytes = KrnBitmapRowBytes(&mask);
    Buf<uint8_t> buf;
    TableBuilder tb;
    /* Two spare bytes let packed samples be read as 16-bit windows. */
    if (!buf.alloc(static_cast<size_t>(rowBytes) + 2) || !tb.begin(h, w))
        return KRN_FAILURE;
    buf[rowBytes] = 0;
    buf[static_cast<size_t>(rowBytes) + 1] = 0;
    const int32_t rows = std::min(mask.nHeight, h), cols = std::min(mask.nWidth, w);
    const uint8_t *row = buf.data();
    for (int32_t y = 0; y < h; ++y) {
        if (y < rows && cols > 0) {
            const int32_t st = KrnGetBitmapRow(&mask, buf.data(), y, 0, rowBytes);
            if (st != KRN_OK)
                return st;
            switch (bits) {
            case 8: scanWhole<1>(row, cols, tb); break;
            case 16: scanWhole<2>(row, cols, tb); break;
            case 24: scanWhole<3>(row, cols, tb); break;
            case 32: scanWhole<4>(row, cols, tb); break;
            case 48: scanWhole<6>(row, cols, tb); break;
            case 64: scanWhole<8>(row, cols, tb); break;
            case 12:
                scanRow(cols, tb, [row](int32_t x) {
                    const uint8_t *p = row + static_cast<size_t>(x >> 1) * 3;
                    return (x & 1) ? (p[1] >> 4 | p[2]) != 0 : (p[0] | (p[1] & 0x0F)) != 0;
                });
                break;
            default: {
                const uint32_t m = (1u << bits) - 1;
                scanRow(cols, tb, [row, bits, m](int32_t x) {
                    const size_t bit = static_cast<size_t>(x) * static_cast<size_t>(bits);
                    const uint32_t win = static_cast<uint32_t>(row[bit >> 3]) << 8 | row[(bit >> 3) + 1];
                    return ((win >> (16 - (bit & 7) - bits)) & m) != 0;
                });
                break;
            }
            }
        }
        tb.endRow();
    }
    return tb.finish(out) ? KRN_OK : KRN_FAILURE;
}

} // namespace rzdis
