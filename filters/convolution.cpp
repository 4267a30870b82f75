// Convolution filters: square kernels (33 predefined 3x3 ones), sharpening,
// the caller's rectangular kernels and a separable Gaussian blur.
//
// Source rows sit in a ring of edge-padded buffers, each read from the
// bitmap once; an output row is computed into its own buffer, so the filter
// never reads its own results, and written back inside the region only.
// Three inner loops give the same sums: the predefined kernels are compiled
// in, so zero coefficients vanish and +-1, +-2 become additions (16-bit
// sums for 8-bit samples); other 3x3 kernels keep their nine coefficients in
// registers; larger kernels add one coefficient at a time into a block of
// 32-bit sums. Sums wrap at 32 bits, as documented. The division is done in
// single precision where that is exact (sums and divisor below 2^24), and
// in 64-bit integers otherwise. Kernels apply to the picture as stored: the
// bitmap is put in view 1 for the call.
//
// The Gaussian is one symmetric pass along the rows, stored, then the same
// weights down the columns, computed a whole row at a time from a ring of
// rows (the sums are the same integers either way).
#include "filters/filter_rows.h"

#include <array>
#include <cmath>
#include <type_traits>
#include <utility>

namespace rz::filt {
namespace {

struct Kernel3 {
    int32_t bias;
    int32_t c[9];
};

constexpr Kernel3 kPredefined[SPF_COUNT] = {
    {128, {0, 1, 0, 0, 0, 0, 0, -1, 0}},       // EMBOSS_N
    {128, {0, 0, 1, 0, 0, 0, -1, 0, 0}},       // EMBOSS_NE
    {128, {0, 0, 0, -1, 0, 1, 0, 0, 0}},       // EMBOSS_E
    {128, {-1, 0, 0, 0, 0, 0, 0, 0, 1}},       // EMBOSS_SE
    {128, {0, -1, 0, 0, 0, 0, 0, 1, 0}},       // EMBOSS_S
    {128, {0, 0, -1, 0, 0, 0, 1, 0, 0}},       // EMBOSS_SW
    {128, {0, 0, 0, 1, 0, -1, 0, 0, 0}},       // EMBOSS_W
    {128, {1, 0, 0, 0, 0, 0, 0, 0, -1}},       // EMBOSS_NW
    {0, {1, 1, 1, 1, -2, 1, -1, -1, -1}},      // GRADIENT_N
    {0, {1, 1, 1, -1, -2, 1, -1, -1, 1}},      // GRADIENT_NE
    {0, {-1, 1, 1, -1, -2, 1, -1, 1, 1}},      // GRADIENT_E
    {0, {-1, -1, 1, -1, -2, 1, 1, 1, 1}},      // GRADIENT_SE
    {0, {-1, -1, -1, 1, -2, 1, 1, 1, 1}},      // GRADIENT_S
    {0, {1, -1, -1, 1, -2, -1, 1, 1, 1}},      // GRADIENT_SW
    {0, {1, 1, -1, 1, -2, -1, 1, 1, -1}},      // GRADIENT_W
    {0, {1, 1, 1, 1, -2, -1, 1, -1, -1}},      // GRADIENT_NW
    {0, {0, -1, 0, -1, 4, -1, 0, -1, 0}},      // LAPLACE_FOUR
    {0, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},  // LAPLACE_EIGHT
    {0, {1, -2, 1, -2, 4, -2, 1, -2, 1}},      // LAPLACE_CROSS
    {0, {-1, 0, -1, 0, 4, 0, -1, 0, -1}},      // LAPLACE_DIAGONAL
    {0, {0, -1, 0, 0, 2, 0, 0, -1, 0}},        // LAPLACE_VERTICAL
    {0, {0, 0, 0, -1, 2, -1, 0, 0, 0}},        // LAPLACE_HORIZONTAL
    {0, {1, 2, 1, 0, 0, 0, -1, -2, -1}},       // SOBEL_HORIZONTAL
    {0, {1, 0, -1, 2, 0, -2, 1, 0, -1}},       // SOBEL_VERTICAL
    {0, {-1, -1, -1, 0, 0, 0, 1, 1, 1}},       // PREWITT_HORIZONTAL
    {0, {1, 0, -1, 1, 0, -1, 1, 0, -1}},       // PREWITT_VERTICAL
    {0, {-1, 0, 0, 0, 1, 0, 0, 0, 0}},         // SHIFT_DIAGONAL
    {0, {0, -1, 0, 0, 1, 0, 0, 0, 0}},         // SHIFT_VERTICAL
    {0, {0, 0, 0, -1, 1, 0, 0, 0, 0}},         // SHIFT_HORIZONTAL
    {0, {-1, -1, -1, 2, 2, 2, -1, -1, -1}},    // LINE_HORIZONTAL
    {0, {-1, 2, -1, -1, 2, -1, -1, 2, -1}},    // LINE_VERTICAL
    {0, {-1, -1, 2, -1, 2, -1, 2, -1, -1}},    // LINE_RISING_DIAGONAL
    {0, {2, -1, -1, -1, 2, -1, -1, -1, 2}},    // LINE_FALLING_DIAGONAL
};

enum class Rounding { Truncate = RZ_UF_TRUNCATE, Absolute = RZ_UF_ABSOLUTE, Round = RZ_UF_ROUND };

// A kernel as the engine applies it: sum = coef[i][j] * pixel(y - anchorY + i,
// x - anchorX + j); value = rounding(sum / divisor) + bias, clamped.
struct Plan {
    const int32_t *coef = nullptr; // height rows of width
    int32_t width = 0, height = 0;
    int32_t anchorX = 0, anchorY = 0;
    int64_t divisor = 1;
    int64_t bias8 = 0; // on the 8-bit scale
    Rounding rounding = Rounding::Truncate;
};

constexpr int32_t kBlock = 1024; // samples of 32-bit sums kept in L1

// How a 32-bit sum becomes a sample. The value q (the sum, or its quotient)
// is clamped to lo..hi, the range that lands in 0..maxv once the bias is
// added, so that the addition can wrap harmlessly in 32 bits.
struct Finisher {
    Rounding rounding = Rounding::Truncate;
    int64_t divisor = 1;
    bool divide = false;
    bool exactInFloat = false;
    int32_t lo = 0, hi = 0;
    uint32_t bias = 0;

    Finisher(const Plan &plan, int32_t maxv, uint64_t sumBound) : rounding(plan.rounding), divisor(plan.divisor) {
        divide = plan.divisor != 1 || plan.rounding == Rounding::Absolute;
        const uint64_t ad = uint64_t(plan.divisor < 0 ? -plan.divisor : plan.divisor);
        exactInFloat = sumBound + ad < (uint64_t(1) << 24);
        const int64_t b = plan.bias8 * (maxv > 255 ? 257 : 1);
        const int64_t lo64 = -b, hi64 = int64_t(maxv) - b;
        if (lo64 > INT32_MAX) { // every value below 0
            lo = hi = 0;
        } else if (hi64 < INT32_MIN) { // every value above maxv
            lo = hi = maxv;
        } else {
            lo = int32_t(std::max<int64_t>(lo64, INT32_MIN));
            hi = int32_t(std::min<int64_t>(hi64, INT32_MAX));
            bias = uint32_t(b);
        }
    }

    template <class T> RZ_FORCE_INLINE void apply(const int32_t *sum, T *out, int32_t n) const {
        if (!divide) {
            for (int32_t i = 0; i < n; ++i) out[i] = Store<T>(sum[i]);
        } else if (exactInFloat) {
            applyFloat(sum, out, n);
        } else {
            for (int32_t i = 0; i < n; ++i) out[i] = Store<T>(ClampQ(Quotient64(sum[i])));
        }
    }

  private:
    template <class T> RZ_FORCE_INLINE T Store(int32_t q) const {
        const int32_t c = q < lo ? lo : (q > hi ? hi : q);
        return T(uint32_t(c) + bias);
    }
    int32_t ClampQ(int64_t q) const { return int32_t(q < lo ? lo : (q > hi ? hi : q)); }

    int64_t Quotient64(int32_t s) const {
        const int64_t v = s;
        switch (rounding) {
        case Rounding::Absolute: return (v < 0 ? -v : v) / divisor;
        case Rounding::Round: {
            const int64_t q = ((v < 0 ? -v : v) + divisor / 2) / divisor;
            return v < 0 ? -q : q;
        }
        default: return v / divisor;
        }
    }

    // Sums and divisor below 2^24: the single-precision quotient truncates
    // to the exact integer quotient.
    template <class T> RZ_FORCE_INLINE void applyFloat(const int32_t *sum, T *out, int32_t n) const {
        const float d = float(divisor);
        switch (rounding) {
        case Rounding::Absolute:
            for (int32_t i = 0; i < n; ++i) {
                const int32_t a = sum[i] < 0 ? -sum[i] : sum[i];
                out[i] = Store<T>(int32_t(float(a) / d));
            }
            break;
        case Rounding::Round: {
            const int32_t half = int32_t(divisor / 2);
            for (int32_t i = 0; i < n; ++i) {
                const int32_t a = sum[i] < 0 ? -sum[i] : sum[i];
                const int32_t q = int32_t(float(a + half) / d);
                out[i] = Store<T>(sum[i] < 0 ? -q : q);
            }
            break;
        }
        default:
            for (int32_t i = 0; i < n; ++i) out[i] = Store<T>(int32_t(float(sum[i]) / d));
        }
    }
};

// --- Inner loops over the samples [begin, end) of one output row ---------

template <class T> struct RowArgs {
    const T *const *rows; // kernel height source rows, at pixel 0
    T *out;
    int64_t begin, end;   // samples
    int64_t channels;
};

// A predefined kernel compiled in; divisor 1.
template <class T, int N> RZ_FORCE_INLINE void Fixed3Row(const RowArgs<T> &a, int32_t bias, int32_t maxv) {
    using Acc = std::conditional_t<sizeof(T) == 1, int16_t, int32_t>;
    constexpr Kernel3 K = kPredefined[N];
    // Sums stay within 16 * maxv; a bias beyond twice that decides alone.
    const int32_t limit = sizeof(T) == 1 ? 8192 : (1 << 22);
    const Acc b = Acc(std::clamp(bias, -limit, limit));
    const int64_t C = a.channels;
    const T *__restrict r0 = a.rows[0];
    const T *__restrict r1 = a.rows[1];
    const T *__restrict r2 = a.rows[2];
    T *__restrict out = a.out;
    const int64_t begin = a.begin, end = a.end; // out may alias a: keep the bounds apart
    for (int64_t s = begin; s < end; ++s) {
        Acc sum = b;
        if constexpr (K.c[0] != 0) sum = Acc(sum + K.c[0] * Acc(r0[s - C]));
        if constexpr (K.c[1] != 0) sum = Acc(sum + K.c[1] * Acc(r0[s]));
        if constexpr (K.c[2] != 0) sum = Acc(sum + K.c[2] * Acc(r0[s + C]));
        if constexpr (K.c[3] != 0) sum = Acc(sum + K.c[3] * Acc(r1[s - C]));
        if constexpr (K.c[4] != 0) sum = Acc(sum + K.c[4] * Acc(r1[s]));
        if constexpr (K.c[5] != 0) sum = Acc(sum + K.c[5] * Acc(r1[s + C]));
        if constexpr (K.c[6] != 0) sum = Acc(sum + K.c[6] * Acc(r2[s - C]));
        if constexpr (K.c[7] != 0) sum = Acc(sum + K.c[7] * Acc(r2[s]));
        if constexpr (K.c[8] != 0) sum = Acc(sum + K.c[8] * Acc(r2[s + C]));
        out[s] = T(sum < 0 ? 0 : (sum > Acc(maxv) ? Acc(maxv) : sum));
    }
}

template <class T, int N> void Fixed3Vectorised(const RowArgs<T> &a, int32_t bias, int32_t maxv) {
    Vectorised([&]() RZ_LAMBDA_INLINE { Fixed3Row<T, N>(a, bias, maxv); });
}

template <class T> using Fixed3Fn = void (*)(const RowArgs<T> &, int32_t, int32_t);

template <class T, size_t... I> constexpr std::array<Fixed3Fn<T>, SPF_COUNT> Fixed3Table(std::index_sequence<I...>) {
    return {&Fixed3Vectorised<T, int(I)>...};
}

// Any 3x3 kernel: nine coefficients, 32-bit wrapping sums.
template <class T> RZ_FORCE_INLINE void Dynamic3Row(const RowArgs<T> &a, const int32_t *c, const Finisher &f, int32_t *sums) {
    const uint32_t k0 = c[0], k1 = c[1], k2 = c[2], k3 = c[3], k4 = c[4], k5 = c[5], k6 = c[6], k7 = c[7],
                   k8 = c[8];
    const int64_t C = a.channels;
    const T *__restrict r0 = a.rows[0];
    const T *__restrict r1 = a.rows[1];
    const T *__restrict r2 = a.rows[2];
    int32_t *__restrict acc = sums;
    const int64_t begin = a.begin, end = a.end;
    for (int64_t b = begin; b < end; b += kBlock) {
        const int32_t n = int32_t(std::min<int64_t>(kBlock, end - b));
        for (int32_t i = 0; i < n; ++i) {
            const int64_t s = b + i;
            const uint32_t v = k0 * r0[s - C] + k1 * r0[s] + k2 * r0[s + C] + k3 * r1[s - C] + k4 * r1[s] +
                               k5 * r1[s + C] + k6 * r2[s - C] + k7 * r2[s] + k8 * r2[s + C];
            acc[i] = int32_t(v);
        }
        f.apply(acc, a.out + b, n);
    }
}

struct Tap {
    int32_t row;    // kernel row
    int32_t offset; // pixels from the anchor column
    int32_t coef;
};

// Any kernel: one non-zero coefficient at a time over a block of sums.
template <class T>
RZ_FORCE_INLINE void GeneralRow(const RowArgs<T> &a, const Tap *taps, int32_t tapCount, const Finisher &f, int32_t *sums) {
    const int64_t C = a.channels;
    uint32_t *__restrict acc = reinterpret_cast<uint32_t *>(sums);
    const int64_t begin = a.begin, end = a.end;
    for (int64_t b = begin; b < end; b += kBlock) {
        const int32_t n = int32_t(std::min<int64_t>(kBlock, end - b));
        std::fill(acc, acc + n, 0u);
        for (int32_t t = 0; t < tapCount; ++t) {
            const T *__restrict src = a.rows[taps[t].row] + b + taps[t].offset * C;
            const uint32_t k = uint32_t(taps[t].coef);
            for (int32_t i = 0; i < n; ++i) acc[i] += k * src[i];
        }
        f.apply(sums, a.out + b, n);
    }
}

int32_t PredefinedIndex(const int32_t *c, int64_t divisor, Rounding rounding) {
    if (divisor != 1 || rounding != Rounding::Truncate) return -1;
    for (int32_t k = 0; k < SPF_COUNT; ++k)
        if (std::equal(c, c + 9, kPredefined[k].c)) return k;
    return -1;
}

// --- The engine --------------------------------------------------------

template <class T> int32_t Convolve(BitmapDesc *bmp, Pass &pass, const Plan &plan) {
    RowContext *ctx = pass.ctx.get();
    const int32_t C = pass.channels, W = pass.width, H = pass.height;
    const int32_t maxv = sizeof(T) == 1 ? 255 : 65535;

    RowRing<T> ring;
    RZ_RETURN_IF_FAILED(ring.init(ctx, W, C, std::min(plan.height, H), plan.anchorX,
                                  int64_t(plan.width) - 1 - plan.anchorX));
    KrnPtr<T[]> out = pass.outputRow<T>();
    KrnPtr<const T *[]> rows = KrnArray<const T *>(size_t(plan.height));
    KrnPtr<int32_t[]> sums = KrnArray<int32_t>(kBlock);
    if (!out || !rows || !sums) return ST_FAILURE;

    // The non-zero coefficients, and a bound on |sum| for the division.
    const size_t count = size_t(plan.width) * size_t(plan.height);
    size_t tapCount = 0;
    uint64_t absSum = 0;
    for (size_t i = 0; i < count; ++i)
        if (plan.coef[i] != 0) {
            ++tapCount;
            absSum += uint64_t(plan.coef[i] < 0 ? -int64_t(plan.coef[i]) : plan.coef[i]);
        }
    KrnPtr<Tap[]> taps = KrnArray<Tap>(tapCount);
    if (!taps) return ST_FAILURE;
    size_t t = 0;
    for (int32_t i = 0; i < plan.height; ++i)
        for (int32_t j = 0; j < plan.width; ++j)
            if (const int32_t c = plan.coef[size_t(i) * plan.width + j])
                taps[t++] = Tap{i, j - plan.anchorX, c};
    const uint64_t bound = absSum > (uint64_t(1) << 40) ? (uint64_t(1) << 56) : absSum * maxv;
    const Finisher finisher(plan, maxv, bound);

    const bool is3 = plan.width == 3 && plan.height == 3 && plan.anchorX == 1 && plan.anchorY == 1;
    const int32_t fixed = is3 ? PredefinedIndex(plan.coef, plan.divisor, plan.rounding) : -1;
    static constexpr std::array<Fixed3Fn<T>, SPF_COUNT> kFixed = Fixed3Table<T>(std::make_index_sequence<SPF_COUNT>{});
    const int32_t bias = int32_t(std::clamp<int64_t>(plan.bias8 * (maxv > 255 ? 257 : 1), -(1 << 30), 1 << 30));

    const RzRect &r = pass.bounds;
    ring.skipTo(Clamp(int64_t(r.top) - plan.anchorY, 0, H - 1));
    RZ_RETURN_IF_FAILED(pass.beginProgress(0, 100));
    for (int32_t y = r.top; y < r.bottom; ++y) {
        const int64_t first = int64_t(y) - plan.anchorY;
        RZ_RETURN_IF_FAILED(ring.load(Clamp(first + plan.height - 1, 0, H - 1)));
        for (int32_t i = 0; i < plan.height; ++i) rows[i] = ring.row(Clamp(first + i, 0, H - 1));
        const RowArgs<T> args{rows.get(), out.get(), int64_t(r.left) * C, int64_t(r.right) * C, C};
        if (fixed >= 0)
            kFixed[fixed](args, bias, maxv);
        else if (is3)
            Vectorised([&]() RZ_LAMBDA_INLINE { Dynamic3Row(args, plan.coef, finisher, sums.get()); });
        else
            Vectorised([&]() RZ_LAMBDA_INLINE {
                GeneralRow(args, taps.get(), int32_t(tapCount), finisher, sums.get());
            });
        RZ_RETURN_IF_FAILED(PutRow(ctx, out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// Opens the pass and runs the engine at the working sample size.
int32_t RunConvolution(BitmapDesc *bmp, const Plan &plan) {
    return InPictureView(bmp, [&]() -> int32_t {
        Pass pass;
        const int32_t st = pass.open(bmp, FilterMode(bmp));
        if (st == ST_NOTHING_TO_DO) return ReportDone(bmp);
        if (st != ST_SUCCESS) return st;
        return pass.wide ? Convolve<uint16_t>(bmp, pass, plan) : Convolve<uint8_t>(bmp, pass, plan);
    });
}

int32_t SpatialFilter(BitmapDesc *bmp, const SpatialKernel *kernel) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    const uintptr_t number = reinterpret_cast<uintptr_t>(kernel);
    Plan plan;
    KrnPtr<int32_t[]> copy;
    if ((number >> 16) == 0) {
        if (number >= SPF_COUNT) return ST_INVALID_PARAMETER;
        copy = KrnArray<int32_t>(9);
        if (!copy) return ST_FAILURE;
        std::copy(kPredefined[number].c, kPredefined[number].c + 9, copy.get());
        plan.width = plan.height = 3;
        plan.bias8 = kPredefined[number].bias;
    } else {
        if (kernel->size != SPATIALKERNEL_SIZE) return ST_BAD_STRUCT_SIZE;
        if (kernel->divisor == 0 || kernel->dim <= 0 || kernel->dim > RZ_MAX_KERNEL_SIDE)
            return ST_INVALID_PARAMETER;
        const size_t n = KrnCheckedSize(size_t(kernel->dim), size_t(kernel->dim), 1);
        copy = KrnArray<int32_t>(n);
        if (!n || !copy) return ST_FAILURE;
        std::copy(kernel->matrix, kernel->matrix + n, copy.get());
        plan.width = plan.height = kernel->dim;
        plan.divisor = kernel->divisor;
        plan.bias8 = kernel->bias;
    }
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    plan.coef = copy.get();
    plan.anchorX = plan.anchorY = (plan.width - 1) / 2;
    return RunConvolution(bmp, plan);
}

// --- Gaussian ----------------------------------------------------------

// Weights are in units of 2^-Shift: 8 bits for 8-bit samples (sums fit 16
// bits, and the weights are those of the common 8-bit peer), 14 for 16-bit.
template <class T> constexpr int32_t kGaussShift = sizeof(T) == 1 ? 8 : 14;
template <class T> using GaussAcc = std::conditional_t<sizeof(T) == 1, uint16_t, uint32_t>;

// Samples [begin, end) of one row: the weighted sum of the pixel and the
// pairs around it, rounded.
// The weighted sum over the taps lo(k)[i] + hi(k)[i], k = 1..r, around
// lo(0)[i], one tap at a time over a block of sums kept in L1. The sums of
// 8-bit samples fit 16 bits (the weights total 256).
template <class T, class Lo, class Hi>
RZ_FORCE_INLINE void GaussTaps(T *out, int64_t begin, int64_t end, const int32_t *w, int32_t r, uint32_t *sums,
                               const Lo &lo, const Hi &hi) {
    using Acc = GaussAcc<T>;
    constexpr int32_t shift = kGaussShift<T>;
    for (int64_t b = begin; b < end; b += kBlock) {
        const int32_t n = int32_t(std::min<int64_t>(kBlock, end - b));
        Acc *__restrict acc = reinterpret_cast<Acc *>(sums);
        const T *__restrict p = lo(0) + b;
        const Acc w0 = Acc(w[0]);
        for (int32_t i = 0; i < n; ++i) acc[i] = Acc((1u << (shift - 1)) + w0 * p[i]);
        for (int32_t k = 1; k <= r; ++k) {
            const Acc wk = Acc(w[k]);
            if (wk == 0) continue;
            const T *__restrict l = lo(k) + b;
            const T *__restrict h = hi(k) + b;
            for (int32_t i = 0; i < n; ++i) acc[i] = Acc(acc[i] + wk * Acc(Acc(l[i]) + Acc(h[i])));
        }
        T *__restrict o = out + b;
        for (int32_t i = 0; i < n; ++i) o[i] = T(acc[i] >> shift);
    }
}

template <class T>
RZ_FORCE_INLINE void GaussRow(const T *src, T *out, int64_t begin, int64_t end, int64_t C, const int32_t *w,
                              int32_t r, uint32_t *sums) {
    const T *__restrict p = src;
    GaussTaps(out, begin, end, w, r, sums, [&](int64_t k) RZ_LAMBDA_INLINE { return p - k * C; },
              [&](int64_t k) RZ_LAMBDA_INLINE { return p + k * C; });
}

// Rows [y - r, y + r] of the vertical pass, row y at rows[r].
template <class T>
RZ_FORCE_INLINE void GaussColumn(const T *const *rows, T *out, int64_t begin, int64_t end, const int32_t *w,
                                 int32_t r, uint32_t *sums) {
    GaussTaps(out, begin, end, w, r, sums, [&](int64_t k) RZ_LAMBDA_INLINE { return rows[r - k]; },
              [&](int64_t k) RZ_LAMBDA_INLINE { return rows[r + k]; });
}

// The same with the half-width compiled in: the taps unroll and the sums
// stay in registers (16-bit ones for 8-bit samples).
template <class T, int R>
RZ_FORCE_INLINE void GaussRowFixed(const T *src, T *__restrict out, int64_t begin, int64_t end, int64_t C,
                                   const int32_t *w) {
    using Acc = GaussAcc<T>;
    constexpr int32_t shift = kGaussShift<T>;
    Acc wk[R + 1];
    for (int k = 0; k <= R; ++k) wk[k] = Acc(w[k]);
    const T *__restrict p = src;
    for (int64_t s = begin; s < end; ++s) {
        Acc acc = Acc((1u << (shift - 1)) + wk[0] * p[s]);
        for (int k = 1; k <= R; ++k) acc = Acc(acc + wk[k] * Acc(Acc(p[s - k * C]) + Acc(p[s + k * C])));
        out[s] = T(acc >> shift);
    }
}

template <class T, int... R>
void GaussRowDispatch(const T *src, T *out, int64_t begin, int64_t end, int64_t C, const int32_t *w, int32_t r,
                      uint32_t *sums, std::integer_sequence<int, R...>) {
    const bool fixed = ((r == R + 1 &&
                         (Vectorised([&]() RZ_LAMBDA_INLINE { GaussRowFixed<T, R + 1>(src, out, begin, end, C, w); }),
                          true)) ||
                        ...);
    if (!fixed) Vectorised([&]() RZ_LAMBDA_INLINE { GaussRow(src, out, begin, end, C, w, r, sums); });
}

// Integer weights w[0..r] summing (both sides) to 2^shift, rounded from
// the tail inwards: every tail sum is the rounded exact one, so no weight is
// negative and the total is exact; the centre takes the rest.
void GaussWeights(const double *g, int32_t r, int32_t shift, int32_t *w) {
    double total = g[0];
    for (int32_t i = 1; i <= r; ++i) total += 2 * g[i];
    double tail = 0;
    int64_t prev = 0;
    for (int32_t i = r; i >= 1; --i) {
        tail += g[i];
        const int64_t rounded = std::llround(tail / total * double(int64_t(1) << shift));
        w[i] = int32_t(rounded - prev);
        prev = rounded;
    }
    w[0] = int32_t((int64_t(1) << shift) - 2 * prev);
}

// One pass along the rows of the current view.
template <class T> int32_t GaussRows(Pass &pass, const double *g, int32_t r) {
    const int32_t C = pass.channels;
    RowRing<T> ring;
    RZ_RETURN_IF_FAILED(ring.init(pass.ctx.get(), pass.width, C, 1, r, r));
    KrnPtr<T[]> out = pass.outputRow<T>();
    KrnPtr<uint32_t[]> sums = KrnArray<uint32_t>(kBlock);
    KrnPtr<int32_t[]> w = KrnArray<int32_t>(size_t(r) + 1);
    if (!out || !sums || !w) return ST_FAILURE;
    GaussWeights(g, r, kGaussShift<T>, w.get());
    const RzRect &rc = pass.bounds;
    ring.skipTo(rc.top);
    for (int32_t y = rc.top; y < rc.bottom; ++y) {
        RZ_RETURN_IF_FAILED(ring.load(y));
        const T *src = ring.row(y);
        GaussRowDispatch(src, out.get(), int64_t(rc.left) * C, int64_t(rc.right) * C, C, w.get(), r, sums.get(),
                         std::make_integer_sequence<int, 12>{});
        RZ_RETURN_IF_FAILED(PutRow(pass.ctx.get(), out.get(), y, nullptr, 0));
    }
    return ST_SUCCESS;
}

// The same weights down the columns, a row of sums at a time: the rows
// y - r .. y + r (clamped, so the edge rows repeat) sit in the ring, each
// read once, before the pass overwrites them.
template <class T> int32_t GaussColumns(Pass &pass, const double *g, int32_t r) {
    const int32_t C = pass.channels, H = pass.height;
    RowRing<T> ring;
    RZ_RETURN_IF_FAILED(ring.init(pass.ctx.get(), pass.width, C, std::min(2 * r + 1, H), 0, 0));
    KrnPtr<T[]> out = pass.outputRow<T>();
    KrnPtr<uint32_t[]> sums = KrnArray<uint32_t>(kBlock);
    KrnPtr<int32_t[]> w = KrnArray<int32_t>(size_t(r) + 1);
    KrnPtr<const T *[]> rows = KrnArray<const T *>(2 * size_t(r) + 1);
    if (!out || !sums || !w || !rows) return ST_FAILURE;
    GaussWeights(g, r, kGaussShift<T>, w.get());
    const RzRect &rc = pass.bounds;
    ring.skipTo(Clamp(int64_t(rc.top) - r, 0, H - 1));
    for (int32_t y = rc.top; y < rc.bottom; ++y) {
        RZ_RETURN_IF_FAILED(ring.load(Clamp(int64_t(y) + r, 0, H - 1)));
        for (int32_t k = -r; k <= r; ++k) rows[k + r] = ring.row(Clamp(int64_t(y) + k, 0, H - 1));
        const T *const *window = rows.get();
        Vectorised([&]() RZ_LAMBDA_INLINE {
            GaussColumn(window, out.get(), int64_t(rc.left) * C, int64_t(rc.right) * C, w.get(), r, sums.get());
        });
        RZ_RETURN_IF_FAILED(PutRow(pass.ctx.get(), out.get(), y, nullptr, 0));
    }
    return ST_SUCCESS;
}

int32_t GaussPass(BitmapDesc *bmp, const double *g, int32_t r, int32_t start, int32_t end, bool columns) {
    Pass pass;
    RZ_RETURN_IF_FAILED(pass.open(bmp, FilterMode(bmp)));
    RZ_RETURN_IF_FAILED(pass.beginProgress(start, end));
    if (columns) return pass.wide ? GaussColumns<uint16_t>(pass, g, r) : GaussColumns<uint8_t>(pass, g, r);
    return pass.wide ? GaussRows<uint16_t>(pass, g, r) : GaussRows<uint8_t>(pass, g, r);
}

int32_t GaussianFilter(BitmapDesc *bmp, int32_t radius) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (radius < 1 || radius > 10000) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));

    const double sigma = (2.0 * (radius * 0.1 + 1.0) + 0.5) / 3.0;
    const int32_t r = int32_t(3.0 * sigma);
    KrnPtr<double[]> g = KrnArray<double>(size_t(r) + 1);
    if (!g) return ST_FAILURE;
    for (int32_t i = 0; i <= r; ++i) g[i] = std::exp(-double(i) * i / (2.0 * sigma * sigma));

    return InPictureView(bmp, [&]() -> int32_t {
        int32_t st = GaussPass(bmp, g.get(), r, 0, 50, false);
        if (st == ST_NOTHING_TO_DO) return ReportDone(bmp);
        if (st != ST_SUCCESS) return st;
        st = GaussPass(bmp, g.get(), r, 51, 100, true);
        if (st != ST_SUCCESS) return st;
        KrnBitmapChanged(bmp);
        return ST_SUCCESS;
    });
}

// --- Sharpening and user kernels ----------------------------------------

int32_t Sharpen(BitmapDesc *bmp, int32_t sharpness) {
    if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (sharpness < -1000 || sharpness > 1000) return ST_INVALID_PARAMETER;
    if (sharpness == 0) return ST_SUCCESS;
    KrnPtr<SpatialKernel> kernel(
        static_cast<SpatialKernel *>(KrnMemAlloc(sizeof(SpatialKernel) + 8 * sizeof(int32_t))));
    if (!kernel) return ST_FAILURE;
    kernel->size = SPATIALKERNEL_SIZE;
    kernel->bias = 0;
    kernel->dim = 3;
    int32_t *m = kernel->matrix;
    if (sharpness >= 0) {
        const int32_t k = 71 * (1000 - sharpness) / 999;
        std::fill(m, m + 9, -1);
        m[4] = k + 9;
        kernel->divisor = k + 1;
    } else {
        const int32_t k = 71 * (sharpness + 1000) / 999;
        std::fill(m, m + 9, 1);
        m[4] = k + 1;
        kernel->divisor = k + 9;
    }
    return SpatialFilter(bmp, kernel.get());
}

int32_t UserFilter(BitmapDesc *bmp, const UserFilterKernel *f) {
    if (!bmp) return ST_NO_BITMAP;
    if (!f) return ST_NULL_POINTER;
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (f->size != USERFILTERKERNEL_SIZE) return ST_BAD_STRUCT_SIZE;
    if (f->width == 0 || f->height == 0 || f->width > RZ_MAX_KERNEL_SIDE || f->height > RZ_MAX_KERNEL_SIDE ||
        f->divisor == 0)
        return ST_INVALID_PARAMETER;
    if (f->centerX < 0 || uint32_t(f->centerX) >= f->width || f->centerY < 0 || uint32_t(f->centerY) >= f->height)
        return ST_INVALID_PARAMETER;
    if (f->type != RZ_UF_TRUNCATE && f->type != RZ_UF_ABSOLUTE && f->type != RZ_UF_ROUND)
        return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    Plan plan;
    plan.coef = f->matrix;
    plan.width = int32_t(f->width);
    plan.height = int32_t(f->height);
    plan.anchorX = f->centerX;
    plan.anchorY = f->centerY;
    plan.divisor = f->divisor;
    plan.bias8 = f->offset;
    plan.rounding = Rounding(f->type);
    return RunConvolution(bmp, plan);
}

} // namespace
} // namespace rz::filt

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_SpatialFilterBitmap(BitmapDesc *pBitmap, const SpatialKernel *pKernel) {
    return Guard([&] { return filt::SpatialFilter(pBitmap, pKernel); });
}

RZIMG_API int32_t RZAPI Rz_SharpenBitmap(BitmapDesc *pBitmap, int32_t nSharpness) {
    return Guard([&] { return filt::Sharpen(pBitmap, nSharpness); });
}

RZIMG_API int32_t RZAPI Rz_GaussianFilterBitmap(BitmapDesc *pBitmap, int32_t nRadius) {
    return Guard([&] { return filt::GaussianFilter(pBitmap, nRadius); });
}

RZIMG_API int32_t RZAPI Rz_UserFilterBitmap(BitmapDesc *pBitmap, const UserFilterKernel *pFilter) {
    return Guard([&] { return filt::UserFilter(pBitmap, pFilter); });
}

} // extern "C"
