// Shared helpers of the colour operation tests: packing colours the way the
// kernel's pixel accessors do, and references written straight from the
// formulas (plain divisions, the word scale in double precision) against
// which the operations are compared pixel for pixel.
#pragma once

#include "support/bitmaps.h"

#include <rzimg.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>

namespace rz::test {

struct Colour {
    int r, g, b, a = 0;
    bool operator==(const Colour &) const = default;
};

inline bool Deep(const BitmapDesc *b) { return b->nBitsPerPixel >= 48; }

// KrnGetPixel packs red, green, blue, fourth from the low bits, 8 or 16 each.
inline Colour Unpack(uint64_t v, bool deep) {
    const int s = deep ? 16 : 8;
    const uint64_t m = deep ? 0xFFFF : 0xFF;
    return {int(v & m), int((v >> s) & m), int((v >> 2 * s) & m), int((v >> 3 * s) & m)};
}
inline uint64_t Pack(const Colour &c, bool deep) {
    const int s = deep ? 16 : 8;
    return uint64_t(c.r) | uint64_t(c.g) << s | uint64_t(c.b) << 2 * s | uint64_t(c.a) << 3 * s;
}
inline Colour Get(const Bitmap &b, int x, int y) { return Unpack(b.pixel(x, y), Deep(b.get())); }
inline void Put(Bitmap &b, int x, int y, const Colour &c) { b.setPixel(x, y, Pack(c, Deep(b.get()))); }

// A bitmap of the layout holding the given colours in one row.
inline Bitmap RowOf(const char *layout, const std::vector<Colour> &colours) {
    Bitmap b(FindLayout(layout), static_cast<int32_t>(colours.size()), 1, 0);
    for (size_t i = 0; i < colours.size(); ++i) Put(b, static_cast<int>(i), 0, colours[i]);
    return b;
}

namespace ref {

inline int Mn(int r, int g, int b) { return std::min({r, g, b}); }
inline int Mx(int r, int g, int b) { return std::max({r, g, b}); }

// Ratio-hue HSV, byte scale.
inline std::array<int, 3> ByteHsv(int r, int g, int b) {
    const int mn = Mn(r, g, b), mx = Mx(r, g, b);
    if (mx == mn) return {0, 0, mx};
    int h;
    if (b == mn)
        h = ((g - mn) * 30720 / ((r - mn) + (g - mn)) + 180) / 360;
    else if (r == mn)
        h = ((b - mn) * 30720 / ((g - mn) + (b - mn)) + 30900) / 360;
    else
        h = ((r - mn) * 30720 / ((r - mn) + (b - mn)) + 61620) / 360;
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

// Word scale, in double precision as the formula is stated.
inline std::array<int, 3> WordHsv(int r, int g, int b) {
    const int mn = Mn(r, g, b), mx = Mx(r, g, b);
    if (mx == mn) return {0, 0, mx};
    double a, den, offset;
    if (b == mn) {
        a = g - mn, den = (r - mn) + (g - mn), offset = 46260;
    } else if (r == mn) {
        a = b - mn, den = (g - mn) + (b - mn), offset = 7941300;
    } else {
        a = r - mn, den = (r - mn) + (b - mn), offset = 15836340;
    }
    const int h = static_cast<int>((a * 7895040 / den + offset) / 360);
    return {h, static_cast<int>((mx - mn) * 65535.0 / mx), mx};
}

// HLS on the byte scale; M = 255, or 65535 for the same steps on words.
inline std::array<int, 3> ScaleHls(int r, int g, int b, int M) {
    const int mn = Mn(r, g, b), mx = Mx(r, g, b), l = (mx + mn) >> 1;
    if (mx == mn) return {0, l, 0};
    const int64_t c = mx - mn;
    const int s = static_cast<int>(mx + mn <= M ? c * M / (mx + mn) : c * M / (2 * M - mx - mn));
    if (s == 0) return {0, l, 0};
    int64_t h;
    if (mx == r)
        h = int64_t(g - b) * M / (6 * c);
    else if (mx == g)
        h = int64_t(b - r) * M / (6 * c) + M / 3;
    else
        h = int64_t(r - g) * M / (6 * c) + 2 * M / 3;
    if (h < 0) h += M;
    return {static_cast<int>(h), l, s};
}

inline int HueToChannel(int64_t t, int64_t p, int64_t q, int M) {
    if (t >= M + 1) t -= M;
    if (t < 0) t += M;
    int64_t v;
    if (t < M / 6)
        v = p + (q - p) * 6 * t / M;
    else if (t < M / 2)
        v = q;
    else if (t < 2 * M / 3)
        v = p + (q - p) * 6 * (2 * M / 3 - t) / M;
    else
        v = p;
    return static_cast<int>(std::min<int64_t>(v, M));
}

inline Colour ScaleHlsBack(int h, int l, int s, int M) {
    if (s == 0) return {l, l, l};
    int64_t q = l < (M + 1) / 2 ? int64_t(l) * (s + M) / M : s + l - int64_t(s) * l / M;
    q = std::min<int64_t>(q, M);
    const int64_t p = 2 * l - q;
    return {HueToChannel(h + M / 3, p, q, M), HueToChannel(h, p, q, M), HueToChannel(h - M / 3, p, q, M)};
}

} // namespace ref

// Random colours with a good share of greys, primaries and near-greys.
inline Colour RandomColour(std::mt19937 &rng, int max) {
    const int kind = rng() % 8;
    auto any = [&] { return static_cast<int>(rng() % (max + 1)); };
    if (kind == 0) {
        const int v = any();
        return {v, v, v, any()};
    }
    if (kind == 1) return {rng() % 2 ? max : 0, rng() % 2 ? max : 0, rng() % 2 ? max : 0, any()};
    if (kind == 2) {
        const int v = any(), d = max / 64;
        auto near = [&] { return std::clamp(v + static_cast<int>(rng() % (2 * d + 1)) - d, 0, max); };
        return {near(), near(), near(), any()};
    }
    return {any(), any(), any(), any()};
}

inline Bitmap RandomColourBitmap(const char *layout, int w, int h, uint32_t seed) {
    Bitmap b(FindLayout(layout), w, h, 0);
    std::mt19937 rng(seed);
    const int max = Deep(b.get()) ? 65535 : 255;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            Colour c = RandomColour(rng, max);
            if (b->nBitsPerPixel == 24 || b->nBitsPerPixel == 48) c.a = 0;
            Put(b, x, y, c);
        }
    return b;
}

} // namespace rz::test
