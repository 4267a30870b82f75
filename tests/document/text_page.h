// Synthetic text pages with an exactly known skew, for the deskew tests and
// benchmark: paragraphs of words made of glyph strokes (stems, bowls, bars,
// ascenders, descenders) laid out straight on a canvas, then sampled through
// the inverse rotation with bilinear coverage. Sizes follow the page width,
// so an A4 page at 300 dpi has 300-dpi text.
#pragma once

#include <rzkrn.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace rz::test {

struct TextPage {
    int32_t width = 0, height = 0;
    std::vector<uint8_t> grey; // 8-bit, paper light, ink dark
    bool inkAt(int32_t x, int32_t y) const { return grey[size_t(y) * width + x] < 128; }
};

namespace page_detail {

struct Canvas {
    int32_t w, h;
    std::vector<uint8_t> ink;
    void fill(double x0, double y0, double x1, double y1) {
        const int32_t ax = std::max(0, int32_t(std::lround(x0))), ay = std::max(0, int32_t(std::lround(y0)));
        const int32_t bx = std::min(w, int32_t(std::lround(x1))), by = std::min(h, int32_t(std::lround(y1)));
        for (int32_t y = ay; y < by; ++y)
            for (int32_t x = ax; x < bx; ++x) ink[size_t(y) * w + x] = 1;
    }
    double at(int32_t x, int32_t y) const {
        return x < 0 || y < 0 || x >= w || y >= h ? 0.0 : double(ink[size_t(y) * w + x]);
    }
};

inline double Glyph(Canvas &c, std::mt19937 &rng, double x, double base, double xh, double t) {
    const double top = base - xh, asc = xh * 0.7, desc = xh * 0.5, w = xh * 0.8;
    switch (rng() % 8) {
    case 0: c.fill(x, top, x + t, base); c.fill(x + w - t, top, x + w, base);
            c.fill(x, top, x + w, top + t); c.fill(x, base - t, x + w, base); return w;
    case 1: c.fill(x, top, x + t, base); c.fill(x + w - t, top, x + w, base); c.fill(x, top, x + w, top + t); return w;
    case 2: c.fill(x, top - asc, x + t, base); return t;
    case 3: c.fill(x, top, x + t, base + desc); c.fill(x, top, x + w, top + t); c.fill(x + w - t, top, x + w, base);
            return w;
    case 4: c.fill(x, top, x + t, base); c.fill(x, top, x + w, top + t); c.fill(x, base - t, x + w, base);
            c.fill(x, top + xh / 2, x + w, top + xh / 2 + t); return w;
    case 5: c.fill(x + w - t, top - asc, x + w, base); c.fill(x, top, x + t, base); c.fill(x, base - t, x + w, base);
            return w;
    case 6: c.fill(x + t, top - asc * 0.6, x + 2 * t, base); c.fill(x, top, x + 3 * t, top + t); return 3 * t;
    default: c.fill(x, top, x + t, base); c.fill(x + w * 0.6, top, x + w * 0.6 + t, base);
             c.fill(x + w * 1.2 - t, top, x + w * 1.2, base); c.fill(x, top, x + w * 1.2, top + t); return w * 1.2;
    }
}

} // namespace page_detail

// `degrees` counter-clockwise as shown (lines rise to the right when
// positive), about the page centre.
inline TextPage MakeTextPage(int32_t width, int32_t height, double degrees, uint32_t seed) {
    using namespace page_detail;
    Canvas c{width, height, std::vector<uint8_t>(size_t(width) * height)};
    std::mt19937 rng(seed);
    const double u = width / 100.0; // 24.8 px at A4 300 dpi
    const double xh = 0.8 * u, t = std::max(1.0, 0.14 * u), pitch = 2.0 * u, margin = 8 * u;
    double y = margin + 2 * u;
    while (y < height - margin) {
        const int lines = 3 + int(rng() % 6);
        for (int line = 0; line < lines && y < height - margin; ++line, y += pitch) {
            double x = margin + (line == 0 ? 2 * u : 0);
            const double end = line == lines - 1 ? margin + (width - 2 * margin) * (0.3 + (rng() % 60) / 100.0)
                                                 : width - margin;
            while (true) {
                const int n = 1 + int(rng() % 8);
                if (x + n * (xh + t) > end) break;
                for (int g = 0; g < n; ++g) x += Glyph(c, rng, x, y, xh, t) + t * 1.2;
                x += 0.6 * u;
            }
        }
        y += pitch * 0.8;
    }
    TextPage p{width, height, std::vector<uint8_t>(size_t(width) * height)};
    const double a = degrees * 3.14159265358979323846 / 180.0, cs = std::cos(a), sn = std::sin(a);
    const double cx = width / 2.0, cy = height / 2.0;
    std::mt19937 noise(seed + 1);
    for (int32_t yy = 0; yy < height; ++yy)
        for (int32_t xx = 0; xx < width; ++xx) {
            const double dx = xx + 0.5 - cx, dy = yy + 0.5 - cy;
            const double px = cx + dx * cs - dy * sn - 0.5, py = cy + dx * sn + dy * cs - 0.5;
            const double fx = std::floor(px), fy = std::floor(py), ax = px - fx, ay = py - fy;
            const int32_t ix = int32_t(fx), iy = int32_t(fy);
            const double cover = (1 - ay) * ((1 - ax) * c.at(ix, iy) + ax * c.at(ix + 1, iy)) +
                                 ay * ((1 - ax) * c.at(ix, iy + 1) + ax * c.at(ix + 1, iy + 1));
            const double paper = 228 + double(noise() % 16);
            p.grey[size_t(yy) * width + xx] = uint8_t(paper + (30 - paper) * cover + 0.5);
        }
    return p;
}

// Writes the page into an allocated bitmap of its size: 1-bit (kernel grey
// ramp: 1 white) or 8-bit grey samples.
inline int32_t WritePage(const TextPage &p, BitmapDesc *b) {
    const int32_t bits = b->nBitsPerPixel;
    std::vector<uint8_t> row(KrnBitmapRowBytes(b));
    for (int32_t y = 0; y < p.height; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (int32_t x = 0; x < p.width; ++x) {
            if (bits == 8)
                row[size_t(x)] = p.grey[size_t(y) * p.width + x];
            else if (!p.inkAt(x, y))
                row[size_t(x) / 8] |= uint8_t(0x80 >> (x % 8));
        }
        const int32_t st = KrnPutBitmapRowSpans(b, row.data(), y, 0, uint32_t(row.size()), nullptr, 0, KRN_PUT_NORMAL);
        if (st != 1) return st;
    }
    return 1;
}

// The page as a new kernel bitmap; the caller frees it with KrnFreeBitmap.
inline int32_t PageBitmap(const TextPage &p, int32_t bits, BitmapDesc *b) {
    int32_t st = KrnInitBitmap(b, BITMAPDESC_SIZE, p.width, p.height, bits);
    if (st == 1) st = KrnAllocBitmap(b);
    if (st != 1) return st;
    if (bits == 8) {
        b->nColorOrder = KRN_ORDER_GRAY;
        b->nDataKind = 1;
    }
    return WritePage(p, b);
}

} // namespace rz::test
