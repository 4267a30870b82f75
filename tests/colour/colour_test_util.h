// Shared helpers of the colour operation tests: colours packed the way the
// kernel's pixel accessors do, and references written straight from the
// formulas (plain divisions, the word scale in double precision) against
// which the operations are compared pixel for pixel.
#pragma once

#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <rzimg.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <random>

namespace rz::test {

struct Colour {
    int r, g, b, a = 0;
    bool operator==(const Colour &) const = default;
};

inline bool Deep(const BitmapDesc *b) { return b->nBitsPerPixel >= 48; }

// KrnGetPixel packs red, green, blue, fourth from the low bits, 8 or 16 each.
inline Colour Get(const Bitmap &b, int x, int y) {
    const uint64_t v = b.pixel(x, y), m = Deep(b.get()) ? 0xFFFF : 0xFF;
    const int s = Deep(b.get()) ? 16 : 8;
    return {int(v & m), int((v >> s) & m), int((v >> 2 * s) & m), int((v >> 3 * s) & m)};
}
inline void Put(Bitmap &b, int x, int y, const Colour &c) {
    const int s = Deep(b.get()) ? 16 : 8;
    b.setPixel(x, y, uint64_t(c.r) | uint64_t(c.g) << s | uint64_t(c.b) << 2 * s | uint64_t(c.a) << 3 * s);
}

inline Bitmap RowOf(const char *layout, const std::vector<Colour> &colours) {
    Bitmap b(FindLayout(layout), static_cast<int32_t>(colours.size()), 1, 0);
    for (size_t i = 0; i < colours.size(); ++i) Put(b, static_cast<int>(i), 0, colours[i]);
    return b;
}

inline HueSatIntRange Range(int hue, int sat, int in, int outerLow, int outerHigh, int innerLow, int innerHigh) {
    return {static_cast<int32_t>(HUESATINTRANGE_SIZE), hue, sat, in, outerLow, outerHigh, innerLow, innerHigh};
}

namespace ref {

// Ratio-hue HSV, byte scale, and its six-row inverse.
inline std::array<int, 3> ByteHsv(int r, int g, int b) {
    const int mn = std::min({r, g, b}), mx = std::max({r, g, b});
    if (mx == mn) return {0, 0, mx};
    const int h = b == mn   ? ((g - mn) * 30720 / ((r - mn) + (g - mn)) + 180) / 360
                  : r == mn ? ((b - mn) * 30720 / ((g - mn) + (b - mn)) + 30900) / 360
                            : ((r - mn) * 30720 / ((r - mn) + (b - mn)) + 61620) / 360;
    return {h, (mx - mn) * 255 / mx, mx};
}

inline Colour ByteHsvBack(int h8, int s, int v) {
    if (s == 0) return {v, v, v};
    const int d = (h8 * 360) >> 8, mn = (255 - s) * v / 255, k = v - mn;
    if (d <= 60) return {v, mn + k * d / (120 - d), mn};
    if (d <= 120) return {mn + k * (120 - d) / d, v, mn};
    if (d <= 180) return {mn, v, mn + k * (d - 120) / (240 - d)};
    if (d <= 240) return {mn, mn + k * (240 - d) / (d - 120), v};
    if (d <= 300) return {mn + k * (d - 240) / (360 - d), mn, v};
    return {v, mn, mn + k * (360 - d) / (d - 240)};
}

// Degrees and percent (hundredths of both for 16-bit channels, P = 10000):
// the ratio hue of HSV and the six-sector hue of HLS, truncated.
inline std::array<int, 3> DegHsv(int r, int g, int b, int P) {
    const int64_t mn = std::min({r, g, b}), mx = std::max({r, g, b}), third = 120 * (P / 100);
    if (mx == mn) return {0, 0, int(mx)};
    const int64_t rise = b == mn ? g - mn : r == mn ? b - mn : r - mn, fall = b == mn ? r - mn : r == mn ? g - mn : b - mn;
    const int64_t sector = b == mn ? 0 : r == mn ? 1 : 2;
    return {int(sector * third + third * rise / (rise + fall)), int((mx - mn) * P / mx), int(mx)};
}

inline std::array<int, 3> DegHls(int r, int g, int b, int P) {
    const int64_t M = P == 100 ? 255 : 65535, mn = std::min({r, g, b}), mx = std::max({r, g, b}), c = mx - mn;
    const int64_t l = (mx + mn) / 2, sixth = 60 * (P / 100);
    const int64_t s = c == 0 ? 0 : c * P / (l <= 128 * (M / 255) ? mx + mn : 2 * M - mx - mn);
    if (s == 0) return {0, int(l), 0};
    const int64_t diff = mx == r ? g - b : mx == g ? b - r : r - g, base = mx == r ? 0 : mx == g ? 2 * sixth : 4 * sixth;
    const int64_t h = base + (diff < 0 ? -(-diff * sixth / c) : diff * sixth / c);
    return {int(h < 0 ? h + 6 * sixth : h), int(l), int(s)};
}

// Word scale, in double precision as the formula is stated.
inline std::array<int, 3> WordHsv(int r, int g, int b) {
    const int mn = std::min({r, g, b}), mx = std::max({r, g, b});
    if (mx == mn) return {0, 0, mx};
    const double a = b == mn ? g - mn : r == mn ? b - mn : r - mn;
    const double den = b == mn ? (r - mn) + (g - mn) : r == mn ? (g - mn) + (b - mn) : (r - mn) + (b - mn);
    const double offset = b == mn ? 46260 : r == mn ? 7941300 : 15836340;
    return {static_cast<int>((a * 7895040 / den + offset) / 360), static_cast<int>((mx - mn) * 65535.0 / mx), mx};
}

// HLS on the byte scale; M = 255, or 65535 for the same steps on words.
inline std::array<int, 3> ScaleHls(int r, int g, int b, int M) {
    const int mn = std::min({r, g, b}), mx = std::max({r, g, b}), l = (mx + mn) >> 1;
    const int64_t c = mx - mn;
    const int s = c == 0 ? 0 : static_cast<int>(c * M / (mx + mn <= M ? mx + mn : 2 * M - mx - mn));
    if (s == 0) return {0, l, 0};
    int64_t h = mx == r   ? int64_t(g - b) * M / (6 * c)
                : mx == g ? int64_t(b - r) * M / (6 * c) + M / 3
                          : int64_t(r - g) * M / (6 * c) + 2 * M / 3;
    return {static_cast<int>(h < 0 ? h + M : h), l, s};
}

inline Colour ScaleHlsBack(int h, int l, int s, int M) {
    if (s == 0) return {l, l, l};
    const int64_t q = std::min<int64_t>(l < (M + 1) / 2 ? int64_t(l) * (s + M) / M : s + l - int64_t(s) * l / M, M);
    const int64_t p = 2 * l - q;
    auto channel = [&](int64_t t) {
        t = t >= M + 1 ? t - M : t < 0 ? t + M : t;
        const int64_t v = t < M / 6 ? p + (q - p) * 6 * t / M
                          : t < M / 2 ? q
                          : t < 2 * M / 3 ? p + (q - p) * 6 * (2 * M / 3 - t) / M
                                          : p;
        return static_cast<int>(std::min<int64_t>(v, M));
    };
    return {channel(h + M / 3), channel(h), channel(h - M / 3)};
}

} // namespace ref

// Random colours with a good share of greys, primaries and near-greys; the
// fourth channel only where the layout has one.
inline Bitmap RandomColourBitmap(const char *layout, int w, int h, uint32_t seed) {
    Bitmap b(FindLayout(layout), w, h, 0);
    std::mt19937 rng(seed);
    const int max = Deep(b.get()) ? 65535 : 255;
    const bool four = b->nBitsPerPixel == 32 || b->nBitsPerPixel == 64;
    auto any = [&] { return static_cast<int>(rng() % (max + 1)); };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int kind = rng() % 8, v = any(), d = max / 64;
            auto near = [&] { return std::clamp(v + static_cast<int>(rng() % (2 * d + 1)) - d, 0, max); };
            auto prim = [&] { return rng() % 2 ? max : 0; };
            Colour c = kind == 0 ? Colour{v, v, v} : kind == 1 ? Colour{prim(), prim(), prim()}
                     : kind == 2 ? Colour{near(), near(), near()} : Colour{v, any(), any()};
            c.a = four ? any() : 0;
            Put(b, x, y, c);
        }
    return b;
}

// The colour a pixel must have, from what it was, on its own scale.
using Expectation = std::function<Colour(const Colour &in, bool deep)>;

// Runs op on a random bitmap of every colour layout and compares each pixel
// with the expectation; the fourth channel must not move.
inline void CompareEveryPixel(const std::string &name, const std::function<int32_t(BitmapDesc *)> &op,
                              const Expectation &expect) {
    for (const char *layout : {"bgr24", "rgb24", "bgr32", "bgr48", "rgb48", "bgr64"}) {
        Bitmap b = RandomColourBitmap(layout, 61, 23, 17);
        const Bitmap before(b);
        ASSERT_EQ(op(b.get()), ST_SUCCESS) << name << " " << layout;
        for (int y = 0; y < b->nHeight; ++y)
            for (int x = 0; x < b->nWidth; ++x) {
                const Colour in = Get(before, x, y);
                Colour want = expect(in, Deep(b.get()));
                want.a = in.a;
                ASSERT_EQ(Get(b, x, y), want) << name << " " << layout << " from (" << in.r << ", " << in.g << ", "
                                              << in.b << ")";
            }
    }
}

} // namespace rz::test
