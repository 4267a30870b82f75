// Oilify: every channel of every pixel becomes the most frequent value of
// that channel in the n x n window around it (a per-channel mode filter),
// worked on 8 bits per channel.
//
// Each output row keeps one 256-bin histogram per channel. It is built for
// the first column, then moved right one column at a time: per window row
// the value of the column that leaves is taken out and the one that enters
// is added, two counter updates. The mode is carried along and the bins are
// searched (lowest value of the largest count) only when the mode's own
// value leaves. Ties are settled by history, so the order of the updates is
// part of the result: window rows top to bottom, the first column's values
// left to right, and every row starts afresh from column 0, also when only
// a region's columns are written.
//
// Beyond the edges the window repeats the edge rows and columns. A run of
// equal additions is one weighted addition, and a window row repeated k
// times is the same row counted k times (the mode is the first value to
// reach the largest count either way); when the window moves, k equal
// steps are taken in closed form. So a window far larger than the bitmap
// costs what one of the bitmap's size does.
#include "filters/filter_rows.h"

#include <algorithm>
#include <bit>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#if defined(__GNUC__)
#define RZ_NOINLINE __attribute__((noinline))
#else
#define RZ_NOINLINE
#endif

namespace rz::fx {
namespace {

using filt::Clamp;
using filt::ClampedRange;

// The first value from `low` whose count is target, 256 when there is
// none. No value below `low` is counted; it moves up to the first value
// that is, so that the next search starts near the window's values.
template <class K> RZ_FORCE_INLINE uint32_t FirstWith(const K *count, K target, uint32_t &low) {
    uint32_t i = low & ~15u;
    bool seen = false;
#if defined(__SSE2__)
    if constexpr (sizeof(K) == 2) {
        const __m128i t = _mm_set1_epi16(int16_t(target)), zero = _mm_setzero_si128();
        for (; i < 256; i += 16) {
            const __m128i a = _mm_load_si128(reinterpret_cast<const __m128i *>(count + i));
            const __m128i b = _mm_load_si128(reinterpret_cast<const __m128i *>(count + i + 8));
            if (!seen) {
                const uint32_t empty = uint32_t(_mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(a, zero), _mm_cmpeq_epi16(b, zero))));
                if (empty != 0xFFFF) {
                    low = i + uint32_t(std::countr_one(empty));
                    seen = true;
                }
            }
            const uint32_t m = uint32_t(_mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(a, t), _mm_cmpeq_epi16(b, t))));
            if (m) return i + uint32_t(std::countr_zero(m));
        }
        return 256;
    }
#endif
    for (; i < 256; ++i) {
        if (!seen && count[i]) {
            low = i;
            seen = true;
        }
        if (count[i] == target) return i;
    }
    return 256;
}

// One channel's histogram and mode. K holds a window's count (n * n); it is
// never a byte, whose stores the compiler must assume alias everything.
template <class K> struct ModeCounter {
    // 32 bins past the last stay 0, so that 32 bins from any value can be read.
    alignas(64) K count[256 + 32];
    uint32_t mode;
    uint32_t low; // no value below it is counted
    K total;      // samples in the window

    void clear(K windowSamples) {
        std::fill(count, count + 256 + 32, K(0));
        mode = 0;
        low = 256;
        total = windowSamples;
    }

    // v added w times in a row: the mode can only change to v, and does
    // when v passes it.
    RZ_FORCE_INLINE void add(uint32_t v, K w) {
        count[v] = K(count[v] + w);
        low = std::min(low, v);
        if (v != mode && count[v] > count[mode]) mode = v;
    }

    // The window (`total` samples) moves by one column in one window row;
    // returns the new mode. When the mode's own value leaves, the lowest
    // value of the largest count is searched for; that count is known: the
    // old mode's m plus one (the entering value passed it), m (a tie) or
    // m - 1.
    static RZ_FORCE_INLINE uint32_t Step(K *count, K total, uint32_t mode, uint32_t &low, uint32_t out, uint32_t in) {
        const K m = count[mode];
        --count[out];
        ++count[in];
        low = std::min(low, in);
        if (out != mode) return (in != mode && count[in] > m) ? in : mode;
        if (count[in] > m) return in;
        const uint64_t found = Search(count, total, m, low);
        low = uint32_t(found >> 32);
        return uint32_t(found);
    }

    // Out of line, so that the hot loop stays small; the mode and the new
    // bound come back in one register. A window's values mostly lie within
    // 32 of each other (photographs): then one look at the 32 bins from the
    // bound finds the value (the bins hold the whole window when their
    // counts add up to it) without a loop.
    static RZ_NOINLINE uint64_t Search(const K *count, K total, K m, uint32_t low) {
#if defined(__SSE2__)
        if constexpr (sizeof(K) == 2) {
            const K *p = count + low;
            const __m128i a0 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            const __m128i a1 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 8));
            const __m128i a2 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16));
            const __m128i a3 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 24));
            auto equal = [&](K v) {
                const __m128i t = _mm_set1_epi16(int16_t(v));
                const uint32_t lo = uint32_t(_mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(a0, t), _mm_cmpeq_epi16(a1, t))));
                const uint32_t hi = uint32_t(_mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(a2, t), _mm_cmpeq_epi16(a3, t))));
                return lo | hi << 16;
            };
            const uint32_t bound = low + uint32_t(std::countr_zero(~equal(0)));
            if (const uint32_t top = equal(m)) return uint64_t(bound) << 32 | (low + uint32_t(std::countr_zero(top)));
            // Counts never exceed the window's total, so 16-bit sums do not wrap.
            __m128i sum = _mm_add_epi16(_mm_add_epi16(a0, a1), _mm_add_epi16(a2, a3));
            sum = _mm_add_epi16(sum, _mm_srli_si128(sum, 8));
            sum = _mm_add_epi16(sum, _mm_srli_si128(sum, 4));
            sum = _mm_add_epi16(sum, _mm_srli_si128(sum, 2));
            if (K(_mm_cvtsi128_si32(sum)) == total)
                return uint64_t(bound) << 32 | (low + uint32_t(std::countr_zero(equal(K(m - 1)))));
        }
#endif
        uint32_t v = FirstWith(count, m, low);
        if (v == 256) v = FirstWith(count, K(m - 1), low);
        return uint64_t(low) << 32 | v;
    }
    RZ_FORCE_INLINE void step(uint32_t out, uint32_t in) { mode = Step(count, total, mode, low, out, in); }

    // k steps with the same leaving and entering values (a repeated edge
    // row), in closed form.
    void steps(uint32_t out, uint32_t in, K k) {
        low = std::min(low, in);
        if (out == in) { // counts stay; only a first search can move the mode
            step(out, in);
            return;
        }
        while (k > 0) {
            if (mode == in) {
                count[out] = K(count[out] - k);
                count[in] = K(count[in] + k);
                return;
            }
            if (mode != out) {
                // Nothing happens until `in` passes the mode.
                const K need = K(count[mode] - count[in] + 1);
                const K t = std::min(k, need);
                count[out] = K(count[out] - t);
                count[in] = K(count[in] + t);
                k = K(k - t);
                if (t == need) mode = in;
                continue;
            }
            // `out` is the mode and stays it while each search finds it
            // first: ahead of the best other value and of `in`.
            K other = 0;
            uint32_t otherValue = 256;
            for (uint32_t i = 0; i < 256; ++i)
                if (i != out && i != in && (otherValue == 256 || count[i] > other)) {
                    other = count[i];
                    otherValue = i;
                }
            const K c = count[out];
            // The mode holds the largest count, so neither gap is negative.
            const K toOther = K(c - other), toIn = K(c - count[in]);
            const K vsOther = toOther > 0 ? K(toOther - (out < otherValue ? 0 : 1)) : K(0);
            const K vsIn = toIn > 0 ? K((toIn - (out < in ? 0 : 1)) / 2) : K(0);
            const K stay = std::min({k, vsOther, vsIn});
            count[out] = K(count[out] - stay);
            count[in] = K(count[in] + stay);
            k = K(k - stay);
            if (k == 0) return;
            step(out, in);
            k = K(k - 1);
        }
    }
};

struct Window {
    int64_t n, h1, h2;
    explicit Window(uint32_t size) : n(size), h1((int64_t(size) - 1) / 2), h2(int64_t(size) / 2) {}
};

// One output row: rows[i] with weight[i] are the window's
// distinct source rows, top to bottom; leave[x] / enter[x] the columns that
// leave and enter when the window moves to x.
template <class K> struct RowPlan {
    const uint8_t *const *rows;
    const K *weight;
    int32_t rowCount;
    bool unitWeights;
    const int32_t *leave;
    const int32_t *enter;
    ClampedRange firstCols;
    int32_t right; // columns 0 .. right - 1 are computed
    K total;       // n * n
};

// All channels of one output row (L of them). Each channel's steps form a
// chain, each step waiting for the last; the channels' chains are
// independent, and moving them together lets the processor overlap them.
template <class K, int L> RZ_FORCE_INLINE void OilifyRow(ModeCounter<K> *h, const RowPlan<K> &p, uint8_t *out) {
    for (int l = 0; l < L; ++l) {
        h[l].clear(p.total);
        for (int32_t r = 0; r < p.rowCount; ++r)
            for (int32_t q = p.firstCols.first; q <= p.firstCols.last; ++q)
                h[l].add(p.rows[r][int64_t(q) * L + l], K(p.weight[r] * K(p.firstCols.weight(q))));
        out[l] = uint8_t(h[l].mode);
    }
    if (p.unitWeights) {
        // The hot loop: the modes in registers, two counter updates per row.
        uint32_t mode[L], low[L];
        for (int l = 0; l < L; ++l) {
            mode[l] = h[l].mode;
            low[l] = h[l].low;
        }
        const uint8_t *const *rows = p.rows;
        const int32_t n = p.rowCount;
        for (int32_t x = 1; x < p.right; ++x) {
            const int64_t o = int64_t(p.leave[x]) * L, i = int64_t(p.enter[x]) * L;
            for (int32_t r = 0; r < n; ++r) {
                const uint8_t *row = rows[r];
#pragma GCC unroll 3
                for (int l = 0; l < L; ++l) mode[l] = ModeCounter<K>::Step(h[l].count, p.total, mode[l], low[l], row[o + l], row[i + l]);
            }
            for (int l = 0; l < L; ++l) out[int64_t(x) * L + l] = uint8_t(mode[l]);
        }
        for (int l = 0; l < L; ++l) {
            h[l].mode = mode[l];
            h[l].low = low[l];
        }
        return;
    }
    for (int32_t x = 1; x < p.right; ++x) {
        const int64_t o = int64_t(p.leave[x]) * L, i = int64_t(p.enter[x]) * L;
        for (int32_t r = 0; r < p.rowCount; ++r)
            for (int l = 0; l < L; ++l) {
                if (p.weight[r] == 1)
                    h[l].step(p.rows[r][o + l], p.rows[r][i + l]);
                else
                    h[l].steps(p.rows[r][o + l], p.rows[r][i + l], p.weight[r]);
            }
        for (int l = 0; l < L; ++l) out[int64_t(x) * L + l] = uint8_t(h[l].mode);
    }
}

template <class K> int32_t Oilify(BitmapDesc *bmp, filt::Pass &pass, const Window &win) {
    RowContext *ctx = pass.ctx.get();
    const int32_t C = pass.channels, W = pass.width, H = pass.height;
    const RzRect &rc = pass.bounds;
    const int32_t ringRows = int32_t(std::min<int64_t>(win.n, H));

    filt::RowRing<uint8_t> ring;
    RZ_RETURN_IF_FAILED(ring.init(ctx, W, C, ringRows, 0, 0));
    KrnPtr<uint8_t[]> out = pass.outputRow<uint8_t>();
    KrnPtr<int32_t[]> cols = KrnArray<int32_t>(size_t(rc.right) * 2);
    KrnPtr<const uint8_t *[]> rows = KrnArray<const uint8_t *>(size_t(ringRows));
    KrnPtr<K[]> weights = KrnArray<K>(size_t(ringRows));
    if (!out || !cols || !rows || !weights) return ST_FAILURE;
    ModeCounter<K> hist[3]; // on the stack: aligned for the searches' vectors
    int32_t *leave = cols.get(), *enter = cols.get() + rc.right;
    for (int32_t x = 0; x < rc.right; ++x) {
        leave[x] = Clamp(int64_t(x) - 1 - win.h1, 0, W - 1);
        enter[x] = Clamp(int64_t(x) + win.h2, 0, W - 1);
    }

    ring.skipTo(Clamp(int64_t(rc.top) - win.h1, 0, H - 1));
    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    for (int32_t y = rc.top; y < rc.bottom; ++y) {
        const ClampedRange span(int64_t(y) - win.h1, int64_t(y) + win.h2, H);
        RZ_RETURN_IF_FAILED(ring.load(span.last));
        const int32_t count = span.last - span.first + 1;
        bool unit = true;
        for (int32_t i = 0; i < count; ++i) {
            rows[i] = ring.row(span.first + i);
            weights[i] = K(span.weight(span.first + i));
            unit = unit && weights[i] == 1;
        }
        const RowPlan<K> plan{rows.get(), weights.get(), count, unit, leave, enter,
                              ClampedRange(-win.h1, win.h2, W), rc.right, K(uint64_t(win.n) * uint64_t(win.n))};
        filt::Vectorised([&]() RZ_LAMBDA_INLINE {
            if (C == 1)
                OilifyRow<K, 1>(hist, plan, out.get());
            else
                OilifyRow<K, 3>(hist, plan, out.get());
        });
        RZ_RETURN_IF_FAILED(PutRow(ctx, out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

int32_t OilifyBitmap(BitmapDesc *bmp, uint32_t size) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (size == 0) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    // Eight bits per channel: grey in one channel, everything else in blue,
    // green, red.
    const bool grey = bmp->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(bmp);
    filt::Pass pass;
    const int32_t st = pass.open(bmp, RC_WHOLE_BITMAP | (grey ? RC_WORK8 : RC_DEEP_AS_24));
    if (st == ST_NOTHING_TO_DO || (st == ST_SUCCESS && size == 1)) return ReportDone(bmp);
    if (st != ST_SUCCESS) return st;
    const Window win(size);
    // Counts reach n * n where edges repeat.
    if (size <= 255) return Oilify<uint16_t>(bmp, pass, win);
    if (size <= 65535) return Oilify<uint32_t>(bmp, pass, win);
    return Oilify<uint64_t>(bmp, pass, win);
}

} // namespace
} // namespace rz::fx

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_OilifyBitmap(BitmapDesc *pBitmap, uint32_t nDim) {
    return Guard([&] { return fx::OilifyBitmap(pBitmap, nDim); });
}

} // extern "C"
