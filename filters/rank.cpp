// Rank filters: maximum, minimum and median of the n x n window of every
// sample, channel by channel, with edge replication.
//
// Maximum and minimum are separable. Each source row is reduced along x by
// doubling (pairs, then pairs of pairs, ..., then two overlapping powers of
// two cover any n: log2 n vector passes), and the reduced rows along y by
// van Herk / Gil-Werman: within blocks of n rows a running prefix and, once
// a block is complete, its suffixes; any n consecutive rows are one suffix
// and one prefix, so each sample costs three comparisons whatever n is.
// Duplicated edge rows and columns do not change an extreme, so the window
// is first cut to at most twice the bitmap's size.
//
// Median: windows of 2x2 to 5x5 go through a selection network over whole
// rows (3x3 sorts each column of three once, for the three windows sharing
// it, and combines the sorted columns). Larger windows keep one histogram per column of the window height
// (two levels: 16 coarse bins over 16 x 16 fine ones) for 8-bit samples;
// the window's histogram moves right by adding one column histogram and
// taking one away, and its fine level is brought up to date only for the
// coarse bin the median lies in, when it is next needed (Perreault and
// Hebert), so the cost per sample does not grow with n. 16-bit samples use
// one two-level histogram of 256 x 256 bins that snakes through the rows
// (down one row at each end), updated by the 2n samples that leave and
// enter, with the median found from the previous one by walking the coarse
// and fine counts. Edge replication enters as weights on the first and last
// real row and column, so a window far larger than the bitmap costs no more
// than one the bitmap's size.
#include "filters/filter_rows.h"
#include "filters/median_network.h"

#include <bit>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace rz::filt {
namespace {

enum class Rank { Max, Min, Median };

struct MaxOp {
    template <class T> static T apply(T a, T b) { return a > b ? a : b; }
};
struct MinOp {
    template <class T> static T apply(T a, T b) { return a < b ? a : b; }
};

// Window halves: h1 before the sample, h2 after it.
struct Window {
    int64_t n, h1, h2;
    explicit Window(uint32_t size) : n(size), h1((int64_t(size) - 1) / 2), h2(int64_t(size) / 2) {}
};

// --- Maximum and minimum ----------------------------------------------

// dst[i] = op(a[i], b[i]); dst may be a.
template <class T, class Op> RZ_FORCE_INLINE void Combine(T *dst, const T *a, const T *b, int64_t n) {
    for (int64_t i = 0; i < n; ++i) dst[i] = Op::apply(a[i], b[i]);
}

// The extreme of nx pixels from each of `out` samples along a row segment
// (src holds out + (nx - 1) pixels): doublings to the largest power of two
// P <= nx, then two overlapping spans of P.
template <class T, class Op>
RZ_FORCE_INLINE void ReduceAlongX(const T *src, T *__restrict m, int64_t segSamples, T *__restrict dst, int64_t out,
                                   int64_t P, int64_t nx, int64_t C) {
    std::copy(src, src + segSamples, m);
    for (int64_t len = 1; len < P; len *= 2) {
        const int64_t step = len * C, valid = segSamples - step;
        for (int64_t i = 0; i < valid; ++i) m[i] = Op::apply(m[i], m[i + step]);
    }
    const int64_t off = (nx - P) * C;
    for (int64_t i = 0; i < out; ++i) dst[i] = Op::apply(m[i], m[i + off]);
}

template <class T, class Op> int32_t Extreme(BitmapDesc *bmp, Pass &pass, const Window &win) {
    RowContext *ctx = pass.ctx.get();
    const int32_t C = pass.channels, W = pass.width, H = pass.height;
    const RzRect &rc = pass.bounds;
    const int64_t hx1 = std::min<int64_t>(win.h1, W - 1), hx2 = std::min<int64_t>(win.h2, W - 1);
    const int64_t hy1 = std::min<int64_t>(win.h1, H - 1), hy2 = std::min<int64_t>(win.h2, H - 1);
    const int64_t nx = hx1 + hx2 + 1, ny = hy1 + hy2 + 1;
    const int64_t outSamples = int64_t(rc.right - rc.left) * C;
    const int64_t segSamples = (int64_t(rc.right - rc.left) + nx - 1) * C;

    RowRing<T> ring;
    RZ_RETURN_IF_FAILED(ring.init(ctx, W, C, 1, hx1, hx2));
    KrnPtr<T[]> out = pass.outputRow<T>();
    KrnPtr<T[]> seg = KrnArray<T>(size_t(segSamples));
    // Two blocks of reduced rows (the one filling, the previous one as
    // suffixes) and the running prefix of the one filling.
    const size_t blockSamples = KrnCheckedSize(size_t(ny), size_t(outSamples), 1);
    KrnPtr<T[]> filling = KrnArray<T>(blockSamples);
    KrnPtr<T[]> done = KrnArray<T>(blockSamples);
    KrnPtr<T[]> prefix = KrnArray<T>(size_t(outSamples));
    if (!out || !seg || !blockSamples || !filling || !done || !prefix) return ST_FAILURE;

    int64_t P = 1;
    while (P * 2 <= nx) P *= 2;

    // Reduces source row `real` along x into dst.
    auto reduceRow = [&](int32_t real, T *dst) -> int32_t {
        RZ_RETURN_IF_FAILED(ring.load(real));
        const T *src = ring.row(real) + (int64_t(rc.left) - hx1) * C;
        Vectorised([&]() RZ_LAMBDA_INLINE { ReduceAlongX<T, Op>(src, seg.get(), segSamples, dst, outSamples, P, nx, C); });
        return ST_SUCCESS;
    };

    ring.skipTo(Clamp(int64_t(rc.top) - hy1, 0, H - 1));
    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    const int64_t rowsIn = int64_t(rc.bottom - rc.top) + ny - 1;
    int32_t lastReal = -1;
    for (int64_t v = 0; v < rowsIn; ++v) {
        const int64_t o = v % ny;
        T *slot = filling.get() + o * outSamples;
        const int32_t real = Clamp(int64_t(rc.top) - hy1 + v, 0, H - 1);
        if (real == lastReal && o > 0)
            std::copy(slot - outSamples, slot, slot);
        else
            RZ_RETURN_IF_FAILED(reduceRow(real, slot));
        lastReal = real;
        T *pre = prefix.get();
        if (o == 0)
            std::copy(slot, slot + outSamples, pre);
        else
            Vectorised([&]() RZ_LAMBDA_INLINE { Combine<T, Op>(pre, pre, slot, outSamples); });
        if (o == ny - 1) {
            // Block complete: its suffixes, in place, then it becomes `done`.
            Vectorised([&]() RZ_LAMBDA_INLINE {
                for (int64_t k = ny - 2; k >= 0; --k) {
                    T *a = filling.get() + k * outSamples;
                    Combine<T, Op>(a, a, a + outSamples, outSamples);
                }
            });
            std::swap(filling, done);
        }
        if (v < ny - 1) continue;
        // Output row for the window of virtual rows v - ny + 1 .. v.
        const int64_t start = (v - ny + 1) % ny;
        T *dst = out.get() + int64_t(rc.left) * C;
        const T *suffix = done.get() + start * outSamples;
        if (start == 0)
            std::copy(suffix, suffix + outSamples, dst);
        else
            Vectorised([&]() RZ_LAMBDA_INLINE { Combine<T, Op>(dst, suffix, pre, outSamples); });
        const int32_t y = int32_t(rc.top + (v - ny + 1));
        RZ_RETURN_IF_FAILED(PutRow(ctx, out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// --- Median: selection networks for n = 2..5 ----------------------------

template <class T, int Side>
RZ_FORCE_INLINE void NetworkRow(const T *const *rows, T *__restrict out, int64_t begin, int64_t end, int64_t C) {
    using Net = MedianNet<Side>;
    constexpr int h1 = (Side - 1) / 2;
    for (int64_t s = begin; s < end; ++s) {
        T v[Net::kCount];
        for (int i = 0; i < Side; ++i)
            for (int j = 0; j < Side; ++j) v[i * Side + j] = rows[i][s + (j - h1) * C];
        NetApply<T, Net::kNet>(v);
        out[s] = v[Net::kRank];
    }
}

// Runs body(i) for every i in [0, count) in blocks of 64 that compile to
// whole vectors: the last block ends at count and repeats some of the one
// before (bodies here store what depends on i alone), so no scalar tail is
// left, whose data-dependent branches cost more on noisy pictures than the
// vectors. Counts under a block go one by one.
template <class Body> RZ_FORCE_INLINE void InWholeBlocks(int64_t count, Body body) {
    constexpr int64_t kBlock = 64;
    if (count < kBlock) {
        for (int64_t i = 0; i < count; ++i) body(i);
        return;
    }
    for (int64_t b = 0; b < count; b += kBlock) {
        const int64_t s = std::min(b, count - kBlock);
        for (int64_t k = 0; k < kBlock; ++k) body(s + k);
    }
}

// 3x3: each column of three is sorted once for the three windows that share
// it; the median of nine is then the median of the largest column minimum,
// the median of the column medians and the smallest column maximum.
template <class T>
RZ_FORCE_INLINE void Median3Row(const T *const *rows, T *__restrict out, int64_t begin, int64_t end, int64_t C) {
    constexpr int64_t kChunk = 512;
    alignas(64) T lo[kChunk + 8];
    alignas(64) T mid[kChunk + 8];
    alignas(64) T hi[kChunk + 8];
    const T *r0 = rows[0], *r1 = rows[1], *r2 = rows[2];
    for (int64_t b = begin; b < end; b += kChunk) {
        const int64_t n = std::min(kChunk, end - b), m = n + 2 * C;
        const T *__restrict p0 = r0 + b - C;
        const T *__restrict p1 = r1 + b - C;
        const T *__restrict p2 = r2 + b - C;
        InWholeBlocks(m, [&](int64_t i) RZ_LAMBDA_INLINE {
            const T a = p0[i], b = p1[i], c = p2[i]; // values, not references: no gathers
            const T l = std::min(a, b), h = std::max(a, b);
            const T x = std::min(h, c);
            hi[i] = std::max(h, c);
            lo[i] = std::min(l, x);
            mid[i] = std::max(l, x);
        });
        T *__restrict o = out + b;
        InWholeBlocks(n, [&](int64_t i) RZ_LAMBDA_INLINE {
            const T l0 = lo[i], l1 = lo[i + C], l2 = lo[i + 2 * C];
            const T h0 = hi[i], h1 = hi[i + C], h2 = hi[i + 2 * C];
            const T m0 = mid[i], m1 = mid[i + C], m2 = mid[i + 2 * C];
            const T a = std::max(std::max(l0, l1), l2);
            const T c = std::min(std::min(h0, h1), h2);
            const T bm = std::max(std::min(m0, m1), std::min(std::max(m0, m1), m2));
            o[i] = std::max(std::min(a, bm), std::min(std::max(a, bm), c));
        });
    }
}

template <class T, int Side> int32_t MedianNetwork(BitmapDesc *bmp, Pass &pass) {
    constexpr int h1 = (Side - 1) / 2, h2 = Side / 2;
    RowContext *ctx = pass.ctx.get();
    const int32_t C = pass.channels, W = pass.width, H = pass.height;
    const RzRect &rc = pass.bounds;
    RowRing<T> ring;
    RZ_RETURN_IF_FAILED(ring.init(ctx, W, C, std::min(Side, H), h1, h2));
    KrnPtr<T[]> out = pass.outputRow<T>();
    if (!out) return ST_FAILURE;
    ring.skipTo(Clamp(int64_t(rc.top) - h1, 0, H - 1));
    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    for (int32_t y = rc.top; y < rc.bottom; ++y) {
        RZ_RETURN_IF_FAILED(ring.load(Clamp(int64_t(y) + h2, 0, H - 1)));
        const T *rows[Side];
        for (int i = 0; i < Side; ++i) rows[i] = ring.row(Clamp(int64_t(y) - h1 + i, 0, H - 1));
        Vectorised([&]() RZ_LAMBDA_INLINE {
            if constexpr (Side == 3)
                Median3Row<T>(rows, out.get(), int64_t(rc.left) * C, int64_t(rc.right) * C, C);
            else
                NetworkRow<T, Side>(rows, out.get(), int64_t(rc.left) * C, int64_t(rc.right) * C, C);
        });
        RZ_RETURN_IF_FAILED(PutRow(ctx, out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// --- Median, 8-bit: column histograms ------------------------------------

// Sliding-window helpers for a window of columns [x - h1, x + h2] clamped to
// the bitmap: the real column that leaves and the one that enters when the
// window moves from x - 1 to x.
struct Slide {
    int32_t out, in;
    Slide(int64_t x, const Window &w, int32_t n)
        : out(Clamp(x - 1 - w.h1, 0, n - 1)), in(Clamp(x + w.h2, 0, n - 1)) {}
};

// Index of the first of 16 bins at which the running count from `below`
// exceeds target; `below` becomes the count before that bin. The counts are
// a prefix sum, so the bins at or under target are a prefix of the 16.
template <class K> RZ_FORCE_INLINE int FirstAbove(const K *h, K &below, K target) {
#if defined(__SSE2__)
    if constexpr (sizeof(K) == 2) {
        __m128i a = _mm_load_si128(reinterpret_cast<const __m128i *>(h));
        __m128i b = _mm_load_si128(reinterpret_cast<const __m128i *>(h + 8));
        a = _mm_add_epi16(a, _mm_slli_si128(a, 2));
        b = _mm_add_epi16(b, _mm_slli_si128(b, 2));
        a = _mm_add_epi16(a, _mm_slli_si128(a, 4));
        b = _mm_add_epi16(b, _mm_slli_si128(b, 4));
        a = _mm_add_epi16(a, _mm_slli_si128(a, 8));
        b = _mm_add_epi16(b, _mm_slli_si128(b, 8));
        const __m128i top = _mm_shufflehi_epi16(a, 0xFF);
        const __m128i base = _mm_add_epi16(_mm_set1_epi16(int16_t(below)), _mm_unpackhi_epi64(top, top));
        a = _mm_add_epi16(a, _mm_set1_epi16(int16_t(below)));
        b = _mm_add_epi16(b, base);
        const __m128i t = _mm_set1_epi16(int16_t(target));
        const __m128i zero = _mm_setzero_si128();
        const __m128i la = _mm_cmpeq_epi16(_mm_subs_epu16(a, t), zero);
        const __m128i lb = _mm_cmpeq_epi16(_mm_subs_epu16(b, t), zero);
        const int j = std::popcount(uint32_t(_mm_movemask_epi8(_mm_packs_epi16(la, lb))));
        if (j > 0) {
            alignas(16) uint16_t cum[16];
            _mm_store_si128(reinterpret_cast<__m128i *>(cum), a);
            _mm_store_si128(reinterpret_cast<__m128i *>(cum + 8), b);
            below = cum[j - 1];
        }
        return j;
    }
#endif
    int j = 0;
    while (K(below + h[j]) <= target) below = K(below + h[j++]);
    return j;
}

// The column histograms of one channel: coarse counts column by column, fine
// counts bin by bin (all columns' 16 fine counts of coarse bin k together),
// so that sliding along a row for one bin reads memory in order. Each
// channel has its own, moved down and used in turn, so that one channel's
// counts stay in cache.
template <class CK> struct Columns {
    CK *coarse; // [col][16]
    CK *fine;   // [k][col][16]
    int64_t cols;
    const CK *coarseAt(int64_t col) const { return coarse + col * 16; }
    const CK *fineAt(int64_t col, int k) const { return fine + (k * cols + col) * 16; }
    RZ_FORCE_INLINE void add(int64_t col, uint32_t v, CK w) {
        coarse[col * 16 + (v >> 4)] += w;
        fine[((v >> 4) * cols + col) * 16 + (v & 15)] += w;
    }
    RZ_FORCE_INLINE void remove(int64_t col, uint32_t v) {
        --coarse[col * 16 + (v >> 4)];
        --fine[((v >> 4) * cols + col) * 16 + (v & 15)];
    }
};

// One channel's samples are every C-th of the rows.
template <class CK>
RZ_FORCE_INLINE void MoveColumnsDown(Columns<CK> &h, const uint8_t *leave, const uint8_t *enter, int64_t C) {
    for (int64_t i = 0; i < h.cols; ++i) {
        h.remove(i, leave[i * C]);
        h.add(i, enter[i * C], 1);
    }
}

// One channel of one output row from the column histograms.
template <class CK, class K> struct MedianRow8 {
    const Columns<CK> &h;
    const Window &win;
    int32_t W, C, c, cx0;
    K target;

    const CK *coarseAt(int32_t x) const { return h.coarseAt(x - cx0); }
    const CK *fineAt(int32_t x, int k) const { return h.fineAt(x - cx0, k); }

    RZ_FORCE_INLINE void run(int32_t left, int32_t right, uint8_t *out) const {
        alignas(64) K kc[16];
        alignas(64) K kf[16][16];
        int64_t upTo[16]; // column at which kf[k] was last right
        std::fill(kc, kc + 16, K(0));
        const ClampedRange first(int64_t(left) - win.h1, int64_t(left) + win.h2, W);
        for (int32_t x = first.first; x <= first.last; ++x) {
            const K w = K(first.weight(x));
            const CK *p = coarseAt(x);
            for (int j = 0; j < 16; ++j) kc[j] = K(kc[j] + w * K(p[j]));
        }
        std::fill(upTo, upTo + 16, INT64_MIN);
        for (int32_t x = left; x < right; ++x) {
            if (x > left) {
                const Slide s(x, win, W);
                if (s.out != s.in) {
                    const CK *a = coarseAt(s.out);
                    const CK *b = coarseAt(s.in);
                    for (int j = 0; j < 16; ++j) kc[j] = K(kc[j] + K(b[j]) - K(a[j]));
                }
            }
            K below = 0;
            const int k = FirstAbove(kc, below, target);
            // Bring the fine counts of bin k to column x: step by step from
            // where they were last, or afresh when that is cheaper.
            K *f = kf[k];
            if (upTo[k] == int64_t(x) - 1) { // the common case: one step
                const Slide s(x, win, W);
                if (s.out != s.in) {
                    const CK *a = fineAt(s.out, k);
                    const CK *b = fineAt(s.in, k);
                    for (int j = 0; j < 16; ++j) f[j] = K(f[j] + K(b[j]) - K(a[j]));
                }
                upTo[k] = x;
                out[int64_t(x) * C] = uint8_t(k * 16 + FirstAbove(f, below, target));
                continue;
            }
            const ClampedRange cols(int64_t(x) - win.h1, int64_t(x) + win.h2, W);
            if (upTo[k] != INT64_MIN && 2 * (int64_t(x) - upTo[k]) <= int64_t(cols.last - cols.first) + 2) {
                for (int64_t p = upTo[k] + 1; p <= x; ++p) {
                    const Slide s(p, win, W);
                    if (s.out == s.in) continue;
                    const CK *a = fineAt(s.out, k);
                    const CK *b = fineAt(s.in, k);
                    for (int j = 0; j < 16; ++j) f[j] = K(f[j] + K(b[j]) - K(a[j]));
                }
            } else {
                std::fill(f, f + 16, K(0));
                for (int32_t q = cols.first; q <= cols.last; ++q) {
                    const K w = K(cols.weight(q));
                    const CK *p = fineAt(q, k);
                    for (int j = 0; j < 16; ++j) f[j] = K(f[j] + w * K(p[j]));
                }
            }
            upTo[k] = x;
            const int j = FirstAbove(f, below, target);
            out[int64_t(x) * C] = uint8_t(k * 16 + j);
        }
    }
};

// CK counts a column (up to n), K the window (up to n * n).
template <class CK, class K> int32_t MedianColumns8(BitmapDesc *bmp, Pass &pass, const Window &win) {
    RowContext *ctx = pass.ctx.get();
    const int32_t C = pass.channels, W = pass.width, H = pass.height;
    const RzRect &rc = pass.bounds;
    const int32_t cx0 = Clamp(int64_t(rc.left) - win.h1, 0, W - 1);
    const int32_t cx1 = Clamp(int64_t(rc.right) - 1 + win.h2, 0, W - 1) + 1;
    const int64_t cols = cx1 - cx0;
    const uint64_t area = uint64_t(win.n) * uint64_t(win.n);
    const K target = K(win.n % 2 ? area / 2 : area / 2 - 1);

    RowRing<uint8_t> ring;
    RZ_RETURN_IF_FAILED(ring.init(ctx, W, C, int32_t(std::min<int64_t>(win.n + 1, H)), 0, 0));
    KrnPtr<uint8_t[]> out = pass.outputRow<uint8_t>();
    KrnPtr<CK[]> coarse = KrnArrayZeroed<CK>(KrnCheckedSize(size_t(cols) * C, 16, 1));
    KrnPtr<CK[]> fine = KrnArrayZeroed<CK>(KrnCheckedSize(size_t(cols) * C, 256, 1));
    if (!out || !coarse || !fine) return ST_FAILURE;
    Columns<CK> hist[3];
    for (int32_t c = 0; c < C; ++c) hist[c] = {coarse.get() + c * cols * 16, fine.get() + c * cols * 256, cols};

    // Column histograms over the rows of the first output row's window.
    const ClampedRange firstRows(int64_t(rc.top) - win.h1, int64_t(rc.top) + win.h2, H);
    ring.skipTo(firstRows.first);
    RZ_RETURN_IF_FAILED(ring.load(firstRows.last));
    for (int32_t r = firstRows.first; r <= firstRows.last; ++r) {
        const CK w = CK(firstRows.weight(r));
        const uint8_t *src = ring.row(r) + int64_t(cx0) * C;
        for (int64_t i = 0; i < cols; ++i)
            for (int32_t c = 0; c < C; ++c) hist[c].add(i, src[i * C + c], w);
    }

    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    for (int32_t y = rc.top; y < rc.bottom; ++y) {
        const uint8_t *leaving = nullptr, *entering = nullptr;
        if (y > rc.top) {
            const int32_t leave = Clamp(int64_t(y) - 1 - win.h1, 0, H - 1);
            const int32_t enter = Clamp(int64_t(y) + win.h2, 0, H - 1);
            if (leave != enter) {
                RZ_RETURN_IF_FAILED(ring.load(enter));
                leaving = ring.row(leave) + int64_t(cx0) * C;
                entering = ring.row(enter) + int64_t(cx0) * C;
            }
        }
        for (int32_t c = 0; c < C; ++c) {
            const MedianRow8<CK, K> row{hist[c], win, W, C, c, cx0, target};
            Vectorised([&]() RZ_LAMBDA_INLINE {
                if (leaving) MoveColumnsDown(hist[c], leaving + c, entering + c, C);
                row.run(rc.left, rc.right, out.get() + c);
            });
        }
        RZ_RETURN_IF_FAILED(PutRow(ctx, out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// --- Median, 16-bit: one snaking two-level histogram per channel -------------

template <class K> struct Histogram16 {
    K *fine;   // 65536
    K *coarse; // 256
    uint32_t m = 0; // running median candidate
    K below = 0;    // samples below m

    void add(uint32_t v, K w) {
        fine[v] += w;
        coarse[v >> 8] += w;
        if (v < m) below += w;
    }
    void remove(uint32_t v, K w) {
        fine[v] -= w;
        coarse[v >> 8] -= w;
        if (v < m) below -= w;
    }
    // Smallest m with more than `target` samples at or below it, walked from
    // the previous one; whole coarse bins are stepped over where they can be.
    uint32_t median(K target) {
        while (below > target) {
            if ((m & 255) == 0 && below - coarse[(m >> 8) - 1] > target) {
                below -= coarse[(m >> 8) - 1];
                m -= 256;
            } else {
                --m;
                below -= fine[m];
            }
        }
        while (K(below + fine[m]) <= target) {
            if ((m & 255) == 0 && K(below + coarse[m >> 8]) <= target) {
                below += coarse[m >> 8];
                m += 256;
            } else {
                below += fine[m];
                ++m;
            }
        }
        return m;
    }
};

template <class K> int32_t MedianSnake16(BitmapDesc *bmp, Pass &pass, const Window &win) {
    RowContext *ctx = pass.ctx.get();
    const int32_t C = pass.channels, W = pass.width, H = pass.height;
    const RzRect &rc = pass.bounds;
    const uint64_t area = uint64_t(win.n) * uint64_t(win.n);
    const K target = K(win.n % 2 ? area / 2 : area / 2 - 1);

    RowRing<uint16_t> ring;
    RZ_RETURN_IF_FAILED(ring.init(ctx, W, C, int32_t(std::min<int64_t>(win.n + 1, H)), 0, 0));
    KrnPtr<uint16_t[]> out = pass.outputRow<uint16_t>();
    KrnPtr<K[]> counts = KrnArrayZeroed<K>(size_t(C) * (65536 + 256));
    if (!out || !counts) return ST_FAILURE;
    Histogram16<K> hist[3];
    for (int32_t c = 0; c < C; ++c) {
        hist[c].fine = counts.get() + size_t(c) * (65536 + 256);
        hist[c].coarse = hist[c].fine + 65536;
    }

    // Adds (sign +1) or removes a column of the window's rows, or a row of
    // its columns, with the edge weights.
    auto column = [&](int32_t x, int64_t y, bool add) {
        const ClampedRange rows(y - win.h1, y + win.h2, H);
        for (int32_t r = rows.first; r <= rows.last; ++r) {
            const K w = K(rows.weight(r));
            const uint16_t *p = ring.row(r) + int64_t(x) * C;
            for (int32_t c = 0; c < C; ++c) add ? hist[c].add(p[c], w) : hist[c].remove(p[c], w);
        }
    };
    auto row = [&](int32_t r, int64_t x, bool add) {
        const ClampedRange colsIn(x - win.h1, x + win.h2, W);
        const uint16_t *p = ring.row(r);
        for (int32_t q = colsIn.first; q <= colsIn.last; ++q) {
            const K w = K(colsIn.weight(q));
            for (int32_t c = 0; c < C; ++c) {
                const uint16_t v = p[int64_t(q) * C + c];
                add ? hist[c].add(v, w) : hist[c].remove(v, w);
            }
        }
    };

    const ClampedRange firstRows(int64_t(rc.top) - win.h1, int64_t(rc.top) + win.h2, H);
    ring.skipTo(firstRows.first);
    RZ_RETURN_IF_FAILED(ring.load(firstRows.last));
    {
        const ClampedRange colsIn(int64_t(rc.left) - win.h1, int64_t(rc.left) + win.h2, W);
        for (int32_t q = colsIn.first; q <= colsIn.last; ++q) {
            const K wq = K(colsIn.weight(q));
            for (int32_t r = firstRows.first; r <= firstRows.last; ++r) {
                const K w = K(wq * K(firstRows.weight(r)));
                const uint16_t *p = ring.row(r) + int64_t(q) * C;
                for (int32_t c = 0; c < C; ++c) hist[c].add(p[c], w);
            }
        }
    }

    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    int32_t x = rc.left;
    for (int32_t y = rc.top; y < rc.bottom; ++y) {
        const bool rightward = (y - rc.top) % 2 == 0;
        if (y > rc.top) {
            const int32_t leave = Clamp(int64_t(y) - 1 - win.h1, 0, H - 1);
            const int32_t enter = Clamp(int64_t(y) + win.h2, 0, H - 1);
            if (leave != enter) {
                RZ_RETURN_IF_FAILED(ring.load(enter));
                row(leave, x, false);
                row(enter, x, true);
            }
        }
        for (int32_t i = 0; i < rc.right - rc.left; ++i) {
            if (i > 0) {
                if (rightward) {
                    const Slide s(int64_t(x) + 1, win, W);
                    if (s.out != s.in) {
                        column(s.out, y, false);
                        column(s.in, y, true);
                    }
                    ++x;
                } else {
                    // Moving left: the column x + h2 leaves, x - 1 - h1 enters.
                    const Slide s(x, win, W);
                    if (s.out != s.in) {
                        column(s.in, y, false);
                        column(s.out, y, true);
                    }
                    --x;
                }
            }
            for (int32_t c = 0; c < C; ++c) out[int64_t(x) * C + c] = uint16_t(hist[c].median(target));
        }
        RZ_RETURN_IF_FAILED(PutRow(ctx, out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// --- Dispatch ------------------------------------------------------------

template <class T> int32_t Median(BitmapDesc *bmp, Pass &pass, const Window &win) {
    switch (win.n) {
    case 2: return MedianNetwork<T, 2>(bmp, pass);
    case 3: return MedianNetwork<T, 3>(bmp, pass);
    case 4: return MedianNetwork<T, 4>(bmp, pass);
    case 5: return MedianNetwork<T, 5>(bmp, pass);
    default: break;
    }
    if constexpr (sizeof(T) == 1) {
        if (win.n <= 255) return MedianColumns8<uint8_t, uint16_t>(bmp, pass, win);
        if (win.n <= 65535) return MedianColumns8<uint32_t, uint32_t>(bmp, pass, win);
        return MedianColumns8<uint64_t, uint64_t>(bmp, pass, win);
    } else {
        if (win.n <= 65535) return MedianSnake16<uint32_t>(bmp, pass, win);
        return MedianSnake16<uint64_t>(bmp, pass, win);
    }
}

template <class T> int32_t RunRank(BitmapDesc *bmp, Pass &pass, Rank op, const Window &win) {
    switch (op) {
    case Rank::Max: return Extreme<T, MaxOp>(bmp, pass, win);
    case Rank::Min: return Extreme<T, MinOp>(bmp, pass, win);
    default: return Median<T>(bmp, pass, win);
    }
}

int32_t RankFilter(BitmapDesc *bmp, uint32_t size, Rank op) {
    if (size == 0) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    return InPictureView(bmp, [&]() -> int32_t {
        Pass pass;
        const int32_t st = pass.open(bmp, FilterMode(bmp));
        if (st == ST_NOTHING_TO_DO || (st == ST_SUCCESS && size == 1)) return ReportDone(bmp);
        if (st != ST_SUCCESS) return st;
        const Window win(size);
        return pass.wide ? RunRank<uint16_t>(bmp, pass, op, win) : RunRank<uint8_t>(bmp, pass, op, win);
    });
}

} // namespace
} // namespace rz::filt

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_MaxFilterBitmap(BitmapDesc *pBitmap, uint32_t nSize) {
    return Guard([&] { return filt::RankFilter(pBitmap, nSize, filt::Rank::Max); });
}

RZIMG_API int32_t RZAPI Rz_MinFilterBitmap(BitmapDesc *pBitmap, uint32_t nSize) {
    return Guard([&] { return filt::RankFilter(pBitmap, nSize, filt::Rank::Min); });
}

RZIMG_API int32_t RZAPI Rz_MedianFilterBitmap(BitmapDesc *pBitmap, uint32_t nSize) {
    return Guard([&] { return filt::RankFilter(pBitmap, nSize, filt::Rank::Median); });
}

} // extern "C"
