// Transposes between a band of view rows and the stored picture, for the
// transposed views (5-8): the plain loop, and block kernels (SSE2 8 x 8;
// AVX-512 byte permutes where the processor has them) that must give the
// same bytes. Shared by the band services and their tests.
#ifndef RZKRN_TRANSPOSE_H
#define RZKRN_TRANSPOSE_H

#include "internal.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__GNUC__) && defined(__x86_64__)
#include <immintrin.h>
#endif

namespace krn::bands {

// The stored side of a band in a transposed view: view pixel (x, row0 + i)
// is stored pixel (sx0 + dir * i) of stored row (ay + by * x).
struct BandMap {
    const uint8_t *data;
    ptrdiff_t stride;
    int64_t ay, by;
    int64_t sx0;
    int dir; // +1 or -1

    BandMap(const BitmapDesc *b, int view, int64_t row0) {
        const ViewMap m = MakeViewMap(view, b->nStoredWidth, b->nStoredHeight);
        data = b->pData;
        stride = ptrdiff_t(b->nStride);
        ay = m.ay;
        by = m.by;
        sx0 = m.ax + m.cx * row0;
        dir = int(m.cx);
    }
    uint8_t *row(int64_t x) const { return const_cast<uint8_t *>(data) + ptrdiff_t(ay + by * x) * stride; }
};

#if defined(__SSE2__)
// 8 x 8 bytes: out[j] byte k = in[k] byte j.
inline void Transpose8x8(const uint8_t *const in[8], uint8_t *const out[8]) {
    auto ld = [](const uint8_t *p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)); };
    const __m128i b0 = _mm_unpacklo_epi8(ld(in[0]), ld(in[1]));
    const __m128i b1 = _mm_unpacklo_epi8(ld(in[2]), ld(in[3]));
    const __m128i b2 = _mm_unpacklo_epi8(ld(in[4]), ld(in[5]));
    const __m128i b3 = _mm_unpacklo_epi8(ld(in[6]), ld(in[7]));
    const __m128i c0 = _mm_unpacklo_epi16(b0, b1), c1 = _mm_unpackhi_epi16(b0, b1);
    const __m128i c2 = _mm_unpacklo_epi16(b2, b3), c3 = _mm_unpackhi_epi16(b2, b3);
    const __m128i d[4] = {_mm_unpacklo_epi32(c0, c2), _mm_unpackhi_epi32(c0, c2), _mm_unpacklo_epi32(c1, c3),
                          _mm_unpackhi_epi32(c1, c3)};
    for (int k = 0; k < 4; ++k) {
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out[2 * k]), d[k]);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out[2 * k + 1]), _mm_unpackhi_epi64(d[k], d[k]));
    }
}

// 8 x 8 16-bit words.
inline void Transpose8x8(const uint16_t *const in[8], uint16_t *const out[8]) {
    auto ld = [](const uint16_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); };
    const __m128i a0 = ld(in[0]), a1 = ld(in[1]), a2 = ld(in[2]), a3 = ld(in[3]);
    const __m128i a4 = ld(in[4]), a5 = ld(in[5]), a6 = ld(in[6]), a7 = ld(in[7]);
    const __m128i b0 = _mm_unpacklo_epi16(a0, a1), b1 = _mm_unpackhi_epi16(a0, a1);
    const __m128i b2 = _mm_unpacklo_epi16(a2, a3), b3 = _mm_unpackhi_epi16(a2, a3);
    const __m128i b4 = _mm_unpacklo_epi16(a4, a5), b5 = _mm_unpackhi_epi16(a4, a5);
    const __m128i b6 = _mm_unpacklo_epi16(a6, a7), b7 = _mm_unpackhi_epi16(a6, a7);
    const __m128i c0 = _mm_unpacklo_epi32(b0, b2), c1 = _mm_unpackhi_epi32(b0, b2);
    const __m128i c2 = _mm_unpacklo_epi32(b1, b3), c3 = _mm_unpackhi_epi32(b1, b3);
    const __m128i c4 = _mm_unpacklo_epi32(b4, b6), c5 = _mm_unpackhi_epi32(b4, b6);
    const __m128i c6 = _mm_unpacklo_epi32(b5, b7), c7 = _mm_unpackhi_epi32(b5, b7);
    const __m128i d[8] = {_mm_unpacklo_epi64(c0, c4), _mm_unpackhi_epi64(c0, c4), _mm_unpacklo_epi64(c1, c5),
                          _mm_unpackhi_epi64(c1, c5), _mm_unpacklo_epi64(c2, c6), _mm_unpackhi_epi64(c2, c6),
                          _mm_unpacklo_epi64(c3, c7), _mm_unpackhi_epi64(c3, c7)};
    for (int k = 0; k < 8; ++k) _mm_storeu_si128(reinterpret_cast<__m128i *>(out[k]), d[k]);
}
#endif

// One pixel of E bytes; for 32 and 64 bits the stored fourth channel may stay.
template <int E, bool KeepFourth> inline void MovePixel(uint8_t *to, const uint8_t *from) {
    if constexpr (KeepFourth) {
        constexpr int c = E / 4; // bytes of one channel
        uint8_t px[E];
        std::memcpy(px, from, E - c);
        std::memcpy(px + E - c, to + E - c, c);
        std::memcpy(to, px, E);
    } else {
        std::memcpy(to, from, E);
    }
}

// Where the pixels of a band and of the stored picture lie: band row i,
// view column x.
struct BandSide {
    const BandMap &m;
    uint8_t *band;
    size_t bandStride;
    int64_t xb;
    int e;
    uint8_t *bandAt(int64_t i, int64_t x) const { return band + size_t(i) * bandStride + size_t(x - xb) * size_t(e); }
    uint8_t *storedAt(int64_t i, int64_t x) const { return m.row(x) + (m.sx0 + m.dir * i) * e; }
};

// The plain loop, on band rows [i0, i1) and view columns [x0, x1): eight
// columns at a time, so that eight stored lines are in flight at once and
// each band row gets eight neighbouring pixels.
template <int E, bool ToStored, bool KeepFourth>
inline void MoveRect(const BandSide &s, int64_t i0, int64_t i1, int64_t x0, int64_t x1) {
    constexpr int64_t T = 8;
    const ptrdiff_t step = s.m.dir * E;
    for (int64_t x = x0; x < x1; x += T) {
        const int64_t n = std::min(T, x1 - x);
        uint8_t *st[T];
        for (int64_t k = 0; k < n; ++k) st[k] = s.storedAt(i0, x + k);
        uint8_t *bp = s.bandAt(i0, x);
        for (int64_t i = i0; i < i1; ++i, bp += s.bandStride) {
            for (int64_t k = 0; k < n; ++k) {
                if constexpr (ToStored)
                    MovePixel<E, KeepFourth>(st[k], bp + k * E);
                else
                    MovePixel<E, false>(bp + k * E, st[k]);
                st[k] += step;
            }
        }
    }
}

// The pixels of one block: band rows at base + j * stride (stride negative
// when the rows run backwards: scaled addressing, no table of offsets), and
// lines of the scratch or the stored runs at base + k * stride.
struct RowsAt {
    uint8_t *base;
    ptrdiff_t stride;
    uint8_t *operator[](int j) const { return base + j * stride; }
};
struct LinesAt {
    uint8_t *base;
    ptrdiff_t stride;
    uint8_t *operator[](int k) const { return base + k * stride; }
};

// Blocks moved by a Kernel: its get(lines, rows) spreads kLines lines of
// kRows pixels each over kRows rows of kLines pixels (row j pixel k = line k
// pixel j); put does the reverse. A line is the run of one stored column;
// rows are band rows. A kernel that moves whole cache lines of each run
// (kLineBytes 64) works on the stored runs themselves; the others go
// through a small scratch first (back after, when writing): stored rows a
// multiple of 4 KiB apart share cache sets, and a line a kernel takes part
// of would be gone before the next block takes the rest. Runs hold band rows at ascending addresses; with
// dir -1 these are the band rows in reverse. Covers band rows from `first`
// in whole blocks and returns where it stopped; the columns the blocks leave
// go through the plain loop.
template <int E, bool ToStored, bool KeepFourth, class Kernel>
__attribute__((always_inline)) inline int64_t MoveBlocks(const BandSide &s, int64_t first, int64_t rows, int64_t x0,
                                                         int64_t x1, const Kernel &kernel) {
    constexpr int N = Kernel::kLines, R = Kernel::kRows;
    // Band rows staged at once: a multiple of R whose run is whole cache
    // lines, at least four of them. Strided walks over short runs are slow
    // (every run is a new page and, at power-of-two strides, the same cache
    // sets); longer runs let each stored row give several lines at once.
    constexpr int64_t kChunk = [] {
        int64_t c = R;
        while (c * E < 256 || c * E % 64 != 0) c += R;
        return c;
    }();
    constexpr size_t kLineBytes = size_t(kChunk) * E;
    constexpr bool kDirect = Kernel::kLineBytes == 64;
    alignas(64) uint8_t scratch[kDirect ? 1 : N][kLineBytes];
    // Everything the walk needs in locals: the kernels' stores may alias
    // any memory, so fields read through `s` would be read again after each.
    const ptrdiff_t storedStep = s.storedAt(0, 1) - s.storedAt(0, 0); // from one stored run to the next
    const int dir = s.m.dir;
    const size_t bandStride = s.bandStride;
    uint8_t *const bandX0 = s.bandAt(0, x0);
    // Band row j of a block; with dir -1 the rows run backwards from the last.
    const ptrdiff_t rowStep = ptrdiff_t(dir) * ptrdiff_t(bandStride);
    const ptrdiff_t rowFirst = dir > 0 ? 0 : ptrdiff_t(R - 1) * ptrdiff_t(bandStride);
    const int64_t xEnd = x0 + (x1 - x0) / N * N;
    const int64_t iEnd = first + (rows - first) / R * R;
    // Runs 32 stored rows ahead are fetched: they lie on other pages, out of
    // the prefetchers' reach.
    constexpr int ahead = 32 / N; // blocks of columns
    for (int64_t i0 = first; i0 < iEnd;) {
        const int64_t i1 = std::min(iEnd, i0 + kChunk);
        const size_t runBytes = size_t(i1 - i0) * E;
        const int64_t low = dir > 0 ? i0 : i1 - 1; // band row at the run's lowest address
        uint8_t *const run0 = s.storedAt(low, x0);
        for (int64_t x = x0; x < xEnd; x += N) {
            uint8_t *const run = run0 + (x - x0) * storedStep;
            if (x + ahead * N < xEnd)
                for (int k = 0; k < N; ++k) {
                    // Every line the run touches, once.
                    const uintptr_t p = reinterpret_cast<uintptr_t>(run + (ahead * N + k) * storedStep);
                    for (uintptr_t b = p & ~uintptr_t(63); b < p + runBytes; b += 64)
                        __builtin_prefetch(reinterpret_cast<const void *>(b), ToStored, 2);
                }
            if (!kDirect && (!ToStored || KeepFourth))
                for (int k = 0; k < N; ++k) kernel.copy(scratch[k], run + k * storedStep, runBytes);
            uint8_t *const bandX = bandX0 + (x - x0) * E;
            for (int64_t i = i0; i < i1; i += R) {
                const size_t at = size_t(dir > 0 ? i - i0 : i1 - i - R) * E;
                const LinesAt lines = kDirect ? LinesAt{run + at, storedStep}
                                              : LinesAt{scratch[0] + at, ptrdiff_t(kLineBytes)};
                const RowsAt bandRows{bandX + size_t(i) * bandStride + rowFirst, rowStep};
                if constexpr (ToStored)
                    kernel.put(bandRows, lines);
                else
                    kernel.get(lines, bandRows);
            }
            if (!kDirect && ToStored)
                for (int k = 0; k < N; ++k) kernel.copy(run + k * storedStep, scratch[k], runBytes);
        }
        if (xEnd < x1) MoveRect<E, ToStored, KeepFourth>(s, i0, i1, xEnd, x1);
        i0 = i1;
    }
    return iEnd;
}

#if defined(__SSE2__)
template <class U> struct Sse2Kernel {
    static constexpr int kLines = 8, kRows = 8, kLineBytes = 8 * sizeof(U);
    template <class From, class To> static void move(const From from, const To to) {
        const U *in[8];
        U *out[8];
        for (int k = 0; k < 8; ++k) {
            in[k] = reinterpret_cast<const U *>(from[k]);
            out[k] = reinterpret_cast<U *>(to[k]);
        }
        Transpose8x8(in, out);
    }
    void get(const LinesAt lines, const RowsAt rows) const { move(lines, rows); }
    void put(const RowsAt rows, const LinesAt lines) const { move(rows, lines); }
    void copy(uint8_t *to, const uint8_t *from, size_t n) const { std::memcpy(to, from, n); }
};
#endif

#if defined(__GNUC__) && defined(__x86_64__)
// The lane extracts of GCC's headers start from an undefined register.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#define RZ_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))

// Transposes of N x N pixels of E bytes (N * E bytes a lane) in N 512-bit
// registers, B blocks side by side in the lanes of each: log2(N) stages,
// each swapping one bit of the register index with the same bit of the
// pixel index through two-source byte permutes. Stage h (a power of two)
// turns registers a (bit h clear) and b = a | h into, lane by lane,
//   a'[c] = c & h ? b[c ^ h] : a[c],   b'[c] = c & h ? b[c] : a[c ^ h].
template <int E> struct PermuteNet {
    static constexpr int N = E <= 4 ? 16 : 8;
    static constexpr int kLane = N * E;
    static constexpr int B = 64 % kLane == 0 ? 64 / kLane : 1;
    static constexpr int kStages = N == 16 ? 4 : 3;
    // [stage][0: a', 1: b'][byte]; byte values >= 64 pick from b.
    uint8_t index[kStages][2][64];
    constexpr PermuteNet() : index{} {
        for (int st = 0, h = N / 2; st < kStages; ++st, h /= 2)
            for (int p = 0; p < 64; ++p) {
                const int lane = p / kLane, c = p % kLane / E, k = p % E;
                if (lane >= B) {
                    index[st][0][p] = index[st][1][p] = uint8_t(p);
                    continue;
                }
                const int swapped = lane * kLane + (c ^ h) * E + k;
                index[st][0][p] = uint8_t(c & h ? 64 + swapped : p);
                index[st][1][p] = uint8_t(c & h ? 64 + p : swapped);
            }
    }
};

// The first 16, 32, 48 or 64 bytes of a register, moved with plain loads
// and stores (masked stores are slow on some processors).
template <int Bytes> RZ_VBMI inline __m512i LoadBytes(const uint8_t *p) {
    if constexpr (Bytes == 16) return _mm512_castsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
    if constexpr (Bytes == 32) return _mm512_castsi256_si512(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)));
    if constexpr (Bytes == 48)
        return _mm512_inserti32x4(_mm512_castsi256_si512(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p))),
                                  _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 32)), 2);
    if constexpr (Bytes == 64) return _mm512_loadu_si512(p);
}
template <int Bytes> RZ_VBMI inline void StoreBytes(uint8_t *p, __m512i v) {
    if constexpr (Bytes == 16) _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm512_castsi512_si128(v));
    if constexpr (Bytes == 32 || Bytes == 48)
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), _mm512_castsi512_si256(v));
    if constexpr (Bytes == 48) _mm_storeu_si128(reinterpret_cast<__m128i *>(p + 32), _mm512_extracti32x4_epi32(v, 2));
    if constexpr (Bytes == 64) _mm512_storeu_si512(p, v);
}

// Lane `lane` of a register of B lanes, to or from memory.
template <int Lane, int B> RZ_VBMI inline void StoreLane(uint8_t *p, __m512i v, int lane) {
    if constexpr (B == 4) {
        const auto q = reinterpret_cast<__m128i *>(p);
        switch (lane) {
        case 0: _mm_storeu_si128(q, _mm512_extracti32x4_epi32(v, 0)); break;
        case 1: _mm_storeu_si128(q, _mm512_extracti32x4_epi32(v, 1)); break;
        case 2: _mm_storeu_si128(q, _mm512_extracti32x4_epi32(v, 2)); break;
        default: _mm_storeu_si128(q, _mm512_extracti32x4_epi32(v, 3)); break;
        }
    } else if constexpr (B == 2) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p),
                            lane ? _mm512_extracti64x4_epi64(v, 1) : _mm512_castsi512_si256(v));
    } else {
        StoreBytes<Lane>(p, v);
    }
}
template <int Lane, int B, class P> RZ_VBMI inline __m512i LoadLanes(const P p, int first, int stride) {
    if constexpr (B == 4) {
        auto ld = [&](int l) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p[first + l * stride])); };
        __m512i v = _mm512_castsi128_si512(ld(0));
        v = _mm512_inserti32x4(v, ld(1), 1);
        v = _mm512_inserti32x4(v, ld(2), 2);
        return _mm512_inserti32x4(v, ld(3), 3);
    } else if constexpr (B == 2) {
        const __m256i lo = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p[first]));
        return _mm512_inserti64x4(_mm512_castsi256_si512(lo),
                                  _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p[first + stride])), 1);
    } else {
        return LoadBytes<Lane>(p[first]);
    }
}

template <int E, bool KeepFourth> struct VbmiKernel {
    using Net = PermuteNet<E>;
    static constexpr int N = Net::N, B = Net::B, kLane = Net::kLane;
    static constexpr int kLines = N, kRows = B * N, kLineBytes = B * kLane;

    // Unrolled at compile time, so that r stays in registers.
    template <int St = 0> RZ_VBMI static void network(__m512i r[]) {
        if constexpr (St < Net::kStages) {
            static constexpr Net net;
            constexpr int h = (N / 2) >> St;
            const __m512i ia = _mm512_loadu_si512(net.index[St][0]), ib = _mm512_loadu_si512(net.index[St][1]);
#pragma GCC unroll 16
            for (int a = 0; a < N; ++a) {
                if (a & h) continue;
                const __m512i x = r[a], y = r[a | h];
                r[a] = _mm512_permutex2var_epi8(x, ia, y);
                r[a | h] = _mm512_permutex2var_epi8(x, ib, y);
            }
            network<St + 1>(r);
        }
    }
    // Runs are a multiple of 16 bytes (kRows * E).
    RZ_VBMI void copy(uint8_t *to, const uint8_t *from, size_t n) const {
        size_t b = 0;
        for (; b + 64 <= n; b += 64) _mm512_storeu_si512(to + b, _mm512_loadu_si512(from + b));
        for (; b < n; b += 16)
            _mm_storeu_si128(reinterpret_cast<__m128i *>(to + b), _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + b)));
    }
    // Row L * N + j is lane L of register j.
    RZ_VBMI void get(const LinesAt lines, const RowsAt rows) const {
        __m512i r[N];
#pragma GCC unroll 16
        for (int k = 0; k < N; ++k) r[k] = LoadBytes<B * kLane>(lines[k]);
        network(r);
#pragma GCC unroll 16
        for (int j = 0; j < N; ++j)
#pragma GCC unroll 4
            for (int l = 0; l < B; ++l) StoreLane<kLane, B>(rows[l * N + j], r[j], l);
    }
    RZ_VBMI void put(const RowsAt rows, const LinesAt lines) const {
        __m512i r[N];
#pragma GCC unroll 16
        for (int j = 0; j < N; ++j) r[j] = LoadLanes<kLane, B>(rows, j, N);
        network(r);
        // A kept fourth channel: the bytes of the other three are blended in.
        constexpr __mmask64 keep = [] {
            __mmask64 m = 0;
            for (int p = 0; p < 64; ++p)
                if (p % E >= E - E / 4) m |= __mmask64(1) << p;
            return m;
        }();
#pragma GCC unroll 16
        for (int k = 0; k < N; ++k) {
            if constexpr (KeepFourth) r[k] = _mm512_mask_blend_epi8(keep, r[k], LoadBytes<B * kLane>(lines[k]));
            StoreBytes<B * kLane>(lines[k], r[k]);
        }
    }
};

// Rows short of a whole block (one band row block is 64 rows at one byte a
// pixel) go through the SSE2 kernel where it applies, then the plain loop.
template <int E, bool ToStored, bool KeepFourth>
RZ_VBMI void TransposeBandVbmi(const BandSide &s, int64_t rows, int64_t x0, int64_t x1) {
    int64_t done = MoveBlocks<E, ToStored, KeepFourth>(s, 0, rows, x0, x1, VbmiKernel<E, KeepFourth>{});
#if defined(__SSE2__)
    if constexpr ((E == 1 || E == 2) && !KeepFourth)
        done = MoveBlocks<E, ToStored, false>(s, done, rows, x0, x1,
                                              Sse2Kernel<std::conditional_t<E == 1, uint8_t, uint16_t>>{});
#endif
    MoveRect<E, ToStored, KeepFourth>(s, done, rows, x0, x1);
}

inline bool HasVbmi() {
    static const bool has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                            __builtin_cpu_supports("avx512vbmi");
    return has;
}
#else
inline inline bool HasVbmi() { return false; }
#endif

} // namespace krn::bands

#endif
