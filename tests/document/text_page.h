// Synthetic text pages with an exactly known skew, for the deskew tests and
// benchmark: words of stems and bars drawn straight, then turned. Sizes follow
// the page width, so an A4 page at 300 dpi has 300-dpi text.
#pragma once

#include <rzkrn.h>

#include <algorithm>
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

// `degrees` counter-clockwise as shown (lines rise to the right when
// positive), about the page centre.
inline TextPage MakeTextPage(int32_t width, int32_t height, double degrees, uint32_t seed) {
    std::vector<uint8_t> ink(size_t(width) * height);
    auto to = [](double v, int32_t n) { return std::clamp(int32_t(std::lround(v)), 0, n); };
    auto fill = [&](double x0, double y0, double x1, double y1) {
        const int32_t ax = to(x0, width), bx = std::max(ax, to(x1, width));
        for (int32_t y = to(y0, height); y < to(y1, height); ++y)
            std::fill_n(ink.begin() + y * size_t(width) + ax, bx - ax, 1);
    };
    auto at = [&](int32_t x, int32_t y) {
        return x < 0 || y < 0 || x >= width || y >= height ? 0.0 : ink[size_t(y) * width + x];
    };
    std::mt19937 rng(seed);
    const double u = width / 100.0, xh = 0.8 * u, t = std::max(1.0, 0.14 * u), margin = 8 * u;
    for (double y = margin + 2 * u; y < height - margin; y += 2 * u) {
        if (rng() % 6 == 0) y += 1.6 * u; // a paragraph's gap
        const double end = width - margin - (rng() % 4 == 0 ? double(rng() % 60) * u : 0);
        for (double x = margin; x < end;) {
            // A stem (x-high, rising or falling), a bar at the top or foot, a second stem.
            const uint32_t kind = rng() % 6;
            const double w = xh * (0.5 + double(rng() % 5) / 10);
            fill(x, y - xh - (kind == 1 ? 0.7 * xh : 0), x + t, y + (kind == 2 ? 0.5 * xh : 0));
            if (kind != 3) fill(x, kind == 4 ? y - t : y - xh, x + w, kind == 4 ? y : y - xh + t);
            if (kind != 5) fill(x + w - t, y - xh, x + w, y);
            x += w + 1.2 * t + (rng() % 5 == 0 ? 0.6 * u : 0);
        }
    }
    TextPage p{width, height, std::vector<uint8_t>(size_t(width) * height)};
    const double a = degrees * 3.14159265358979323846 / 180.0, cs = std::cos(a), sn = std::sin(a);
    std::mt19937 noise(seed + 1);
    for (int32_t i = 0; i < width * height; ++i) { // bilinear ink coverage through the inverse turn
        const double dx = i % width + 0.5 - width / 2.0, dy = i / width + 0.5 - height / 2.0;
        const double px = width / 2.0 + dx * cs - dy * sn - 0.5;
        const double py = height / 2.0 + dx * sn + dy * cs - 0.5;
        const int32_t ix = int32_t(std::floor(px)), iy = int32_t(std::floor(py));
        const double ax = px - ix, ay = py - iy, paper = 228 + double(noise() % 16);
        const double cover = (1 - ay) * ((1 - ax) * at(ix, iy) + ax * at(ix + 1, iy)) +
                             ay * ((1 - ax) * at(ix, iy + 1) + ax * at(ix + 1, iy + 1));
        p.grey[size_t(i)] = uint8_t(paper + (30 - paper) * cover + 0.5);
    }
    return p;
}

// The page as a new kernel bitmap, 1-bit (kernel grey ramp: 1 white) or
// 8-bit grey samples; the caller frees it with KrnFreeBitmap.
inline int32_t PageBitmap(const TextPage &p, int32_t bits, BitmapDesc *b) {
    int32_t st = KrnInitBitmap(b, BITMAPDESC_SIZE, p.width, p.height, bits);
    if (st == 1) st = KrnAllocBitmap(b);
    if (bits == 8) b->nColorOrder = KRN_ORDER_GRAY, b->nDataKind = 1;
    std::vector<uint8_t> row(KrnBitmapRowBytes(b));
    for (int32_t y = 0; y < p.height && st == 1; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (int32_t x = 0; x < p.width; ++x) {
            if (bits == 8)
                row[size_t(x)] = p.grey[size_t(y) * p.width + x];
            else if (!p.inkAt(x, y))
                row[size_t(x) / 8] |= uint8_t(0x80 >> (x % 8));
        }
        st = KrnPutBitmapRowSpans(b, row.data(), y, 0, uint32_t(row.size()), nullptr, 0,
                                  KRN_PUT_NORMAL);
    }
    return st;
}

} // namespace rz::test
