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

namespace rz::fx {
namespace {

using filt::Clamp;
using filt::ClampedRange;

// First value whose count is target, 256 when there is none.
template <class K> RZ_FORCE_INLINE uint32_t FirstWith(const K *count, K target) {
#if defined(__SSE2__)
    if constexpr (sizeof(K) == 2) {
        const __m128i t = _mm_set1_epi16(int16_t(target));
        for (uint32_t i = 0; i < 256; i += 16) {
            const __m128i a = _mm_cmpeq_epi16(_mm_load_si128(reinterpret_cast<const __m128i *>(count + i)), t);
            const __m128i b = _mm_cmpeq_epi16(_mm_load_si128(reinterpret_cast<const __m128i *>(count + i + 8)), t);
            const uint32_t m = uint32_t(_mm_movemask_epi8(_mm_packs_epi16(a, b)));
            if (m) return i + uint32_t(std::countr_zero(m));
        }
        return 256;
    }
#endif
    for (uint32_t i = 0; i < 256; ++i)
        if (count[i] == target) return i;
    return 256;
}

// One channel's histogram and mode. K holds a window's count (n * n); it is
// never a byte, whose stores the compiler must assume alias everything.
template <class K> struct ModeCounter {
    alignas(64) K count[256];
    uint32_t mode;

    void clear() {
        std::fill(count, count + 256, K(0));
        mode = 0;
    }

    // v added w times in a row: the mode can only change to v, and does
    // when v passes it.
    RZ_FORCE_INLINE void add(uint32_t v, K w) {
        count[v] = K(count[v] + w);
        if (v != mode && count[v] > count[mode]) mode = v;
    }

    // The window moves by one column in one window row; returns the new
    // mode. When the mode's own value leaves, the lowest value of the
    // largest count is searched for; that count is known: the old mode's m
    // plus one (the entering value passed it), m (a tie) or m - 1.
    static RZ_FORCE_INLINE uint32_t Step(K *count, uint32_t mode, uint32_t out, uint32_t in) {
        const K m = count[mode];
        --count[out];
        ++count[in];
        if (out != mode) return (in != mode && count[in] > m) ? in : mode;
        if (count[in] > m) return in;
        const uint32_t v = FirstWith(count, m);
        return v < 256 ? v : FirstWith(count, K(m - 1));
    }
    RZ_FORCE_INLINE void step(uint32_t out, uint32_t in) { mode = Step(count, mode, out, in); }

    // k steps with the same leaving and entering values (a repeated edge
    // row), in closed form.
    void steps(uint32_t out, uint32_t in, K k) {
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

// One output row, one channel: rows[i] with weight[i] are the window's
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
    int32_t C;
};

template <class K> RZ_FORCE_INLINE void OilifyChannel(ModeCounter<K> &h, const RowPlan<K> &p, int32_t c, uint8_t *out) {
    const int32_t C = p.C;
    h.clear();
    for (int32_t r = 0; r < p.rowCount; ++r) {
        const uint8_t *row = p.rows[r] + c;
        for (int32_t q = p.firstCols.first; q <= p.firstCols.last; ++q)
            h.add(row[int64_t(q) * C], K(p.weight[r] * K(p.firstCols.weight(q))));
    }
    out[c] = uint8_t(h.mode);
    if (p.unitWeights) {
        // The hot loop: the mode in a register, two counter updates per row.
        K *count = h.count;
        uint32_t mode = h.mode;
        const uint8_t *const *rows = p.rows;
        const int32_t n = p.rowCount;
        for (int32_t x = 1; x < p.right; ++x) {
            const int64_t o = int64_t(p.leave[x]) * C + c, i = int64_t(p.enter[x]) * C + c;
            for (int32_t r = 0; r < n; ++r) mode = ModeCounter<K>::Step(count, mode, rows[r][o], rows[r][i]);
            out[int64_t(x) * C + c] = uint8_t(mode);
        }
        h.mode = mode;
        return;
    }
    for (int32_t x = 1; x < p.right; ++x) {
        const int64_t o = int64_t(p.leave[x]) * C + c, i = int64_t(p.enter[x]) * C + c;
        for (int32_t r = 0; r < p.rowCount; ++r) {
            if (p.weight[r] == 1)
                h.step(p.rows[r][o], p.rows[r][i]);
            else
                h.steps(p.rows[r][o], p.rows[r][i], p.weight[r]);
        }
        out[int64_t(x) * C + c] = uint8_t(h.mode);
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
    ModeCounter<K> hist; // on the stack: aligned for the searches' vectors
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
                              ClampedRange(-win.h1, win.h2, W), rc.right, C};
        for (int32_t c = 0; c < C; ++c)
            filt::Vectorised([&]() RZ_LAMBDA_INLINE { OilifyChannel<K>(hist, plan, c, out.get()); });
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
