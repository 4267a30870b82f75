// Test-side references for the kernel: the documented storage layout and
// view table written out independently of the kernel's own accessors.
#pragma once

#include "support/bitmaps.h"

#include <cstdint>
#include <random>
#include <vector>

namespace kref {

using rz::test::Bitmap;
using rz::test::DepthBitmap;
using rz::test::OutputBitmap;

inline const int kDepths[] = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};

// Pixel x of a row: MSB-first bits up to 8, 12-bit pairs in 3 bytes,
// little-endian words above.
inline uint64_t Get(const uint8_t *row, int bits, uint64_t x) {
    uint64_t v = 0;
    if (bits == 12) {
        const uint8_t *p = row + x / 2 * 3;
        return x % 2 ? (p[1] >> 4) | (p[2] << 4) : p[0] | ((p[1] & 0x0F) << 8);
    }
    if (bits > 8)
        for (int i = bits / 8 - 1; i >= 0; --i) v = v << 8 | row[x * (bits / 8) + i];
    for (uint64_t bit = x * bits; bits <= 8 && bit < (x + 1) * bits; ++bit)
        v = v << 1 | ((row[bit / 8] >> (7 - bit % 8)) & 1);
    return v;
}

inline void Set(uint8_t *row, int bits, uint64_t x, uint64_t v) {
    if (bits == 12) {
        uint8_t *p = row + x / 2 * 3;
        if (x % 2)
            p[1] = uint8_t((p[1] & 0x0F) | (v & 0x0F) << 4), p[2] = uint8_t(v >> 4);
        else
            p[0] = uint8_t(v), p[1] = uint8_t((p[1] & 0xF0) | (v >> 8 & 0x0F));
        return;
    }
    for (int i = 0; bits > 8 && i < bits / 8; ++i) row[x * (bits / 8) + i] = uint8_t(v >> (8 * i));
    for (int i = 0; bits <= 8 && i < bits; ++i) {
        const uint64_t bit = x * bits + i;
        const uint8_t m = uint8_t(0x80 >> (bit % 8));
        row[bit / 8] = uint8_t((v >> (bits - 1 - i)) & 1 ? row[bit / 8] | m : row[bit / 8] & ~m);
    }
}

// The view table: stored position of view pixel (x, y); pw x ph stored.
inline void Stored(int view, int pw, int ph, int x, int y, int *sx, int *sy) {
    const int tx = view >= 5 ? y : x, ty = view >= 5 ? x : y;
    const bool flipX = view == 2 || view == 3 || view == 6 || view == 7;
    const bool flipY = view == 3 || view == 4 || view == 7 || view == 8;
    *sx = flipX ? pw - 1 - tx : tx;
    *sy = flipY ? ph - 1 - ty : ty;
}

inline uint64_t StoredPixel(const BitmapDesc &d, int sx, int sy) {
    return Get(d.pData + size_t(sy) * d.nStride, d.nBitsPerPixel, sx);
}

// Stored value shown at view (x, y) in the bitmap's current view.
inline uint64_t Shown(const BitmapDesc &b, int x, int y) {
    int sx, sy;
    Stored(b.nViewPerspective, b.nStoredWidth, b.nStoredHeight, x, y, &sx, &sy);
    return StoredPixel(b, sx, sy);
}
inline uint64_t Shown(const Bitmap &b, int x, int y) { return Shown(*b.get(), x, y); }

inline uint32_t RowBytes(int w, int bits) { return uint32_t((uint64_t(w) * bits + 7) / 8); }

// A bitmap of any depth with random pixels, stored through the layout above.
inline Bitmap Random(int w, int h, int bits, std::mt19937_64 &rng) {
    Bitmap b = DepthBitmap(w, h, bits);
    const uint64_t mask = bits == 64 ? ~0ull : (1ull << bits) - 1;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) Set(b->pData + size_t(y) * b->nStride, bits, x, rng() & mask);
    return b;
}

// Every shown pixel, row by row.
inline std::vector<uint64_t> Pixels(const BitmapDesc &b) {
    std::vector<uint64_t> out;
    for (int y = 0; y < b.nHeight; ++y)
        for (int x = 0; x < b.nWidth; ++x) out.push_back(Shown(b, x, y));
    return out;
}

} // namespace kref
