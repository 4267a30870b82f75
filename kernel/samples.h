// Kernel-internal sample access and view mapping, shared by the kernel's
// row, conversion and copy code.
//
// A "raw" sample is the pixel's stored bits as an unsigned integer: the index
// or grey value for 1..16 bits, and for colour the pixel's bytes read as a
// little-endian number (so channel 0 of the stored order is in the low bits;
// 48/64-bit channels are 16-bit words). Samples<Bits> is a template so that
// loops over one depth compile without a per-pixel depth switch; WithDepth
// picks the instantiation once per call.
#ifndef RZKRN_SAMPLES_H
#define RZKRN_SAMPLES_H

#include "rzkrn.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace krn {

constexpr bool IsKnownDepth(int bits) {
    return (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 ||
           bits == 64;
}

// Bytes after which the packing of a row repeats: lcm(bits, 8) / 8.
constexpr int PeriodBytes(int bits) {
    int a = bits, b = 8;
    while (b) {
        int t = a % b;
        a = b;
        b = t;
    }
    return bits / a; // bits * 8 / gcd / 8
}

// Pixels in one period.
constexpr int PeriodPixels(int bits) { return PeriodBytes(bits) * 8 / bits; }

inline uint64_t LoadLE(const uint8_t *p, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v |= uint64_t(p[i]) << (8 * i);
    return v;
}

inline void StoreLE(uint8_t *p, int bytes, uint64_t v) {
    for (int i = 0; i < bytes; ++i)
        p[i] = uint8_t(v >> (8 * i));
}

template <int Bits> struct Samples {
    static_assert(IsKnownDepth(Bits));
    static constexpr uint64_t kMask = Bits == 64 ? ~uint64_t(0) : (uint64_t(1) << Bits) - 1;

    static uint64_t Get(const uint8_t *row, size_t x) {
        if constexpr (Bits == 1 || Bits == 2 || Bits == 4) {
            size_t bit = x * Bits;
            return (row[bit >> 3] >> (8 - Bits - (bit & 7))) & kMask;
        } else if constexpr (Bits < 8) {
            size_t bit = x * Bits;
            const uint8_t *p = row + (bit >> 3);
            unsigned off = unsigned(bit & 7);
            if (off + Bits <= 8)
                return (p[0] >> (8 - Bits - off)) & kMask;
            unsigned pair = unsigned(p[0]) << 8 | p[1];
            return (pair >> (16 - Bits - off)) & kMask;
        } else if constexpr (Bits == 12) {
            const uint8_t *p = row + (x >> 1) * 3;
            if (x & 1)
                return (unsigned(p[1]) | unsigned(p[2]) << 8) >> 4;
            return (unsigned(p[0]) | unsigned(p[1]) << 8) & 0xFFF;
        } else {
            return LoadLE(row + x * (Bits / 8), Bits / 8);
        }
    }

    static void Set(uint8_t *row, size_t x, uint64_t v) {
        v &= kMask;
        if constexpr (Bits == 1 || Bits == 2 || Bits == 4) {
            size_t bit = x * Bits;
            unsigned shift = 8 - Bits - unsigned(bit & 7);
            uint8_t &b = row[bit >> 3];
            b = uint8_t((b & ~(kMask << shift)) | (v << shift));
        } else if constexpr (Bits < 8) {
            size_t bit = x * Bits;
            uint8_t *p = row + (bit >> 3);
            unsigned off = unsigned(bit & 7);
            if (off + Bits <= 8) {
                unsigned shift = 8 - Bits - off;
                p[0] = uint8_t((p[0] & ~(kMask << shift)) | (v << shift));
            } else {
                unsigned shift = 16 - Bits - off;
                unsigned pair = unsigned(p[0]) << 8 | p[1];
                pair = (pair & ~unsigned(kMask << shift)) | unsigned(v << shift);
                p[0] = uint8_t(pair >> 8);
                p[1] = uint8_t(pair);
            }
        } else if constexpr (Bits == 12) {
            uint8_t *p = row + (x >> 1) * 3;
            if (x & 1) {
                p[1] = uint8_t((p[1] & 0x0F) | ((v & 0x0F) << 4));
                p[2] = uint8_t(v >> 4);
            } else {
                p[0] = uint8_t(v);
                p[1] = uint8_t((p[1] & 0xF0) | (v >> 8));
            }
        } else {
            StoreLE(row + x * (Bits / 8), Bits / 8, v);
        }
    }
};

// Calls f(std::integral_constant<int, bits>{}) for a known depth; returns
// fallback otherwise.
template <class F, class R> R WithDepth(int bits, R fallback, F &&f) {
    switch (bits) {
    case 1: return f(std::integral_constant<int, 1>{});
    case 2: return f(std::integral_constant<int, 2>{});
    case 3: return f(std::integral_constant<int, 3>{});
    case 4: return f(std::integral_constant<int, 4>{});
    case 5: return f(std::integral_constant<int, 5>{});
    case 6: return f(std::integral_constant<int, 6>{});
    case 7: return f(std::integral_constant<int, 7>{});
    case 8: return f(std::integral_constant<int, 8>{});
    case 12: return f(std::integral_constant<int, 12>{});
    case 16: return f(std::integral_constant<int, 16>{});
    case 24: return f(std::integral_constant<int, 24>{});
    case 32: return f(std::integral_constant<int, 32>{});
    case 48: return f(std::integral_constant<int, 48>{});
    case 64: return f(std::integral_constant<int, 64>{});
    default: return fallback;
    }
}

// Single samples with a runtime depth; for code that is not a hot loop.
inline uint64_t GetSample(const uint8_t *row, int bits, size_t x) {
    return WithDepth(bits, uint64_t(0), [&](auto d) { return Samples<decltype(d)::value>::Get(row, x); });
}

inline void SetSample(uint8_t *row, int bits, size_t x, uint64_t v) {
    WithDepth(bits, 0, [&](auto d) {
        Samples<decltype(d)::value>::Set(row, x, v);
        return 0;
    });
}

// Swaps channels 0 and 2 of a raw colour sample (red-first <-> blue-first).
inline uint64_t SwapRedBlue(uint64_t v, int bits) {
    if (bits == 24 || bits == 32)
        return (v & ~uint64_t(0xFF00FF)) | (v & 0xFF) << 16 | (v >> 16 & 0xFF);
    if (bits == 48 || bits == 64)
        return (v & ~uint64_t(0xFFFF0000FFFFull)) | (v & 0xFFFF) << 32 | (v >> 32 & 0xFFFF);
    return v;
}

// View pixel (x, y) is stored pixel (ax + bx*x + cx*y, ay + by*x + cy*y).
// pw and ph are the stored picture's size.
struct ViewMap {
    int64_t ax, bx, cx;
    int64_t ay, by, cy;
};

constexpr bool ViewIsTransposed(int view) { return view >= 5; }

inline ViewMap MakeViewMap(int view, int64_t pw, int64_t ph) {
    switch (view) {
    case 2: return {pw - 1, -1, 0, 0, 0, 1};
    case 3: return {pw - 1, -1, 0, ph - 1, 0, -1};
    case 4: return {0, 1, 0, ph - 1, 0, -1};
    case 5: return {0, 0, 1, 0, 1, 0};
    case 6: return {pw - 1, 0, -1, 0, 1, 0};
    case 7: return {pw - 1, 0, -1, ph - 1, -1, 0};
    case 8: return {0, 0, 1, ph - 1, -1, 0};
    default: return {0, 1, 0, 0, 0, 1};
    }
}

} // namespace krn

#endif
