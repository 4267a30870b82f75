// Test-side references for the kernel: the documented storage layout and
// view table written out independently of the kernel's own accessors.
#pragma once

#include <rzkrn.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace kref {

inline const int kDepths[] = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};

inline uint64_t MaskOf(int bits) { return bits == 64 ? ~uint64_t(0) : (uint64_t(1) << bits) - 1; }

// Pixel x of a packed row, bit by bit for the packed depths.
inline uint64_t Get(const uint8_t *row, int bits, uint64_t x) {
    if (bits <= 8) {
        uint64_t v = 0;
        for (int i = 0; i < bits; ++i) {
            uint64_t bit = x * bits + i;
            v = v << 1 | ((row[bit / 8] >> (7 - bit % 8)) & 1);
        }
        return v;
    }
    if (bits == 12) {
        const uint8_t *p = row + x / 2 * 3;
        return x % 2 ? (p[1] >> 4) | (p[2] << 4) : p[0] | ((p[1] & 0x0F) << 8);
    }
    uint64_t v = 0;
    for (int i = bits / 8 - 1; i >= 0; --i)
        v = v << 8 | row[x * (bits / 8) + i];
    return v;
}

inline void Set(uint8_t *row, int bits, uint64_t x, uint64_t v) {
    if (bits <= 8) {
        for (int i = 0; i < bits; ++i) {
            uint64_t bit = x * bits + i;
            uint8_t m = uint8_t(0x80 >> (bit % 8));
            if ((v >> (bits - 1 - i)) & 1)
                row[bit / 8] |= m;
            else
                row[bit / 8] &= uint8_t(~m);
        }
        return;
    }
    if (bits == 12) {
        uint8_t *p = row + x / 2 * 3;
        if (x % 2) {
            p[1] = uint8_t((p[1] & 0x0F) | (v & 0x0F) << 4);
            p[2] = uint8_t(v >> 4);
        } else {
            p[0] = uint8_t(v);
            p[1] = uint8_t((p[1] & 0xF0) | (v >> 8 & 0x0F));
        }
        return;
    }
    for (int i = 0; i < bits / 8; ++i)
        row[x * (bits / 8) + i] = uint8_t(v >> (8 * i));
}

// The view table: stored position of view pixel (x, y); pw x ph stored.
inline void Stored(int view, int pw, int ph, int x, int y, int *sx, int *sy) {
    switch (view) {
    case 1: *sx = x, *sy = y; break;
    case 2: *sx = pw - 1 - x, *sy = y; break;
    case 3: *sx = pw - 1 - x, *sy = ph - 1 - y; break;
    case 4: *sx = x, *sy = ph - 1 - y; break;
    case 5: *sx = y, *sy = x; break;
    case 6: *sx = pw - 1 - y, *sy = x; break;
    case 7: *sx = pw - 1 - y, *sy = ph - 1 - x; break;
    default: *sx = y, *sy = ph - 1 - x; break;
    }
}

// A descriptor released at scope end.
struct Bitmap {
    BitmapDesc d{};
    Bitmap() = default;
    Bitmap(int w, int h, int bits, bool alloc = true) {
        init = KrnInitBitmap(&d, BITMAPDESC_SIZE, w, h, bits);
        if (init == KRN_OK && alloc)
            init = KrnAllocBitmap(&d);
    }
    Bitmap(const Bitmap &) = delete;
    ~Bitmap() { KrnFreeBitmap(&d); }
    BitmapDesc *operator->() { return &d; }
    BitmapDesc *get() { return &d; }
    int32_t init = KRN_OK;
};

// Random stored pixels (through the stored layout, not the kernel).
inline void Fill(BitmapDesc &d, std::mt19937_64 &rng) {
    for (int y = 0; y < d.nStoredHeight; ++y)
        for (int x = 0; x < d.nStoredWidth; ++x)
            Set(d.pData + size_t(y) * d.nStride, d.nBitsPerPixel, x, rng() & MaskOf(d.nBitsPerPixel));
}

inline uint64_t StoredPixel(const BitmapDesc &d, int sx, int sy) {
    return Get(d.pData + size_t(sy) * d.nStride, d.nBitsPerPixel, sx);
}

inline uint64_t RowBytes(int width, int bits) { return (uint64_t(width) * bits + 7) / 8; }

} // namespace kref
