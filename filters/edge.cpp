// Edge detection: a 3x3 operator per sample, thresholded to 0 or the
// maximum. Sobel and Prewitt are one row-difference operator (the row below
// minus the row above, weighted) whose magnitude is compared; the vertical
// codes run it on the transposed view, where the picture's columns are
// rows. Laplace and compass kernels compare their signed response. The
// comparison q / d > t of a truncated quotient is done as |g| >= d (t + 1)
// (for t >= 0 a negative response never passes), so the inner loop is a
// compiled-in kernel, a compare and a select, with no division. The both
// directions codes make each map on its own bitmap and OR them with
// Rz_CombineBitmapExt.
#include "filters/filter_rows.h"

#include <array>
#include <type_traits>
#include <utility>

namespace rz::filt {
namespace {

struct EdgeKernel {
    int32_t c[9];
    int32_t divisor;
    bool magnitude; // |response| (Sobel, Prewitt) or the signed one
};

// Sobel and Prewitt as the row below minus the row above; then the six
// Laplace and the eight compass kernels in code order.
constexpr EdgeKernel kEdge[16] = {
    {{-1, -2, -1, 0, 0, 0, 1, 2, 1}, 4, true},       // Sobel
    {{-1, -1, -1, 0, 0, 0, 1, 1, 1}, 3, true},       // Prewitt
    {{0, -1, 0, -1, 4, -1, 0, -1, 0}, 4, false},     // LAPLACE_FOUR
    {{-1, -1, -1, -1, 8, -1, -1, -1, -1}, 4, false}, // LAPLACE_EIGHT
    {{1, -2, 1, -2, 4, -2, 1, -2, 1}, 4, false},     // LAPLACE_CROSS
    {{-1, 0, -1, 0, 4, 0, -1, 0, -1}, 4, false},     // LAPLACE_DIAGONAL
    {{0, -1, 0, 0, 2, 0, 0, -1, 0}, 2, false},       // LAPLACE_VERTICAL
    {{0, 0, 0, -1, 2, -1, 0, 0, 0}, 2, false},       // LAPLACE_HORIZONTAL
    {{1, 1, 1, 1, -2, 1, -1, -1, -1}, 5, false},     // GRADIENT_N
    {{1, 1, 1, -1, -2, 1, -1, -1, 1}, 5, false},     // GRADIENT_NE
    {{-1, 1, 1, -1, -2, 1, -1, 1, 1}, 5, false},     // GRADIENT_E
    {{-1, -1, 1, -1, -2, 1, 1, 1, 1}, 5, false},     // GRADIENT_SE
    {{-1, -1, -1, 1, -2, 1, 1, 1, 1}, 5, false},     // GRADIENT_S
    {{1, -1, -1, 1, -2, -1, 1, 1, 1}, 5, false},     // GRADIENT_SW
    {{1, 1, -1, 1, -2, -1, 1, 1, -1}, 5, false},     // GRADIENT_W
    {{1, 1, 1, 1, -2, -1, 1, -1, -1}, 5, false},     // GRADIENT_NW
};

// Responses fit 16 bits for 8-bit samples (at most 12 * 255).
template <class T> using Acc = std::conditional_t<sizeof(T) == 1, int16_t, int32_t>;

template <class T, int K>
RZ_FORCE_INLINE void EdgeRow(const T *const *rows, T *out, int64_t begin, int64_t end, int64_t C, int32_t limit) {
    constexpr EdgeKernel E = kEdge[K];
    constexpr T maxv = T(~T(0));
    const T *__restrict r0 = rows[0];
    const T *__restrict r1 = rows[1];
    const T *__restrict r2 = rows[2];
    T *__restrict o = out;
    // Beyond every possible response the test simply never passes.
    const Acc<T> lim = Acc<T>(std::min<int64_t>(limit, sizeof(T) == 1 ? 32767 : INT32_MAX));
    for (int64_t s = begin; s < end; ++s) {
        Acc<T> g = 0;
        if constexpr (E.c[0] != 0) g = Acc<T>(g + E.c[0] * Acc<T>(r0[s - C]));
        if constexpr (E.c[1] != 0) g = Acc<T>(g + E.c[1] * Acc<T>(r0[s]));
        if constexpr (E.c[2] != 0) g = Acc<T>(g + E.c[2] * Acc<T>(r0[s + C]));
        if constexpr (E.c[3] != 0) g = Acc<T>(g + E.c[3] * Acc<T>(r1[s - C]));
        if constexpr (E.c[4] != 0) g = Acc<T>(g + E.c[4] * Acc<T>(r1[s]));
        if constexpr (E.c[5] != 0) g = Acc<T>(g + E.c[5] * Acc<T>(r1[s + C]));
        if constexpr (E.c[6] != 0) g = Acc<T>(g + E.c[6] * Acc<T>(r2[s - C]));
        if constexpr (E.c[7] != 0) g = Acc<T>(g + E.c[7] * Acc<T>(r2[s]));
        if constexpr (E.c[8] != 0) g = Acc<T>(g + E.c[8] * Acc<T>(r2[s + C]));
        if constexpr (E.magnitude) g = Acc<T>(g < 0 ? -g : g);
        o[s] = g >= lim ? maxv : T(0);
    }
}

template <class T> using EdgeFn = void (*)(const T *const *, T *, int64_t, int64_t, int64_t, int32_t);

template <class T, int K> void EdgeVectorised(const T *const *rows, T *out, int64_t b, int64_t e, int64_t C, int32_t lim) {
    Vectorised([&]() RZ_LAMBDA_INLINE { EdgeRow<T, K>(rows, out, b, e, C, lim); });
}

template <class T, size_t... I> constexpr std::array<EdgeFn<T>, 16> EdgeTable(std::index_sequence<I...>) {
    return {&EdgeVectorised<T, int(I)>...};
}

template <class T> int32_t EdgePass(BitmapDesc *bmp, Pass &pass, int kernel, int64_t threshold) {
    RowRing<T> ring;
    RZ_RETURN_IF_FAILED(ring.init(pass.ctx.get(), pass.width, pass.channels, 3, 1, 1));
    KrnPtr<T[]> out = pass.outputRow<T>();
    if (!out) return ST_FAILURE;
    static constexpr std::array<EdgeFn<T>, 16> kFns = EdgeTable<T>(std::make_index_sequence<16>{});
    const int64_t limit = std::min<int64_t>(int64_t(kEdge[kernel].divisor) * (threshold + 1), INT32_MAX);
    const int32_t C = pass.channels, H = pass.height;
    const RzRect &r = pass.bounds;
    ring.skipTo(Clamp(int64_t(r.top) - 1, 0, H - 1));
    for (int32_t y = r.top; y < r.bottom; ++y) {
        RZ_RETURN_IF_FAILED(ring.load(Clamp(int64_t(y) + 1, 0, H - 1)));
        const T *rows[3] = {ring.row(Clamp(int64_t(y) - 1, 0, H - 1)), ring.row(y), ring.row(Clamp(int64_t(y) + 1, 0, H - 1))};
        kFns[kernel](rows, out.get(), int64_t(r.left) * C, int64_t(r.right) * C, C, int32_t(limit));
        RZ_RETURN_IF_FAILED(PutRow(pass.ctx.get(), out.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// One map over the bitmap in its current view, with progress start..end.
int32_t EdgeMap(BitmapDesc *bmp, int kernel, int64_t threshold, int32_t start, int32_t end) {
    Pass pass;
    int32_t st = pass.open(bmp, FilterMode(bmp));
    if (st == ST_NOTHING_TO_DO) return ST_NOTHING_TO_DO;
    if (st != ST_SUCCESS) return st;
    RZ_RETURN_IF_FAILED(pass.beginProgress(start, end));
    return pass.wide ? EdgePass<uint16_t>(bmp, pass, kernel, threshold)
                     : EdgePass<uint8_t>(bmp, pass, kernel, threshold);
}

// A directional map: the row operator on the normal or the transposed view.
int32_t Directional(BitmapDesc *bmp, int kernel, bool vertical, int64_t threshold, int32_t start, int32_t end) {
    ViewGuard view(bmp);
    if (vertical) RZ_RETURN_IF_FAILED(view.set(5));
    return EdgeMap(bmp, kernel, threshold, start, end);
}

int32_t BothDirections(BitmapDesc *bmp, int kernel, int64_t threshold) {
    BitmapDesc copy{};
    {
        CallbackSilencer quiet;
        const int32_t st = KrnCopyBitmap(&copy, bmp, BITMAPDESC_SIZE);
        if (st != KRN_OK) return st == KRN_FAILURE ? ST_FAILURE : st;
    }
    struct Release {
        BitmapDesc *b;
        ~Release() { KrnFreeBitmap(b); }
    } release{&copy};
    int32_t st = Directional(bmp, kernel, false, threshold, 0, 50);
    if (st == ST_NOTHING_TO_DO) return ReportDone(bmp);
    if (st != ST_SUCCESS) return st;
    st = Directional(&copy, kernel, true, threshold, 51, 100);
    if (st != ST_SUCCESS) return st == ST_NOTHING_TO_DO ? ST_SUCCESS : st;
    CallbackSilencer quiet;
    return Rz_CombineBitmapExt(bmp, 0, 0, bmp->nWidth, bmp->nHeight, &copy, 0, 0, CBF_OR);
}

// The sample size a bitmap is filtered at decides the threshold's bound.
bool SixteenBitSamples(const BitmapDesc *bmp) {
    const int32_t bits = bmp->nBitsPerPixel;
    return bits == 12 || bits == 16 || bits >= 48;
}

int32_t EdgeDetector(BitmapDesc *bmp, int32_t threshold, uint32_t filter) {
    if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    const bool grey12 = bmp->nBitsPerPixel == 12 && bmp->nColorOrder == KRN_ORDER_GRAY;
    if (grey12 && threshold > 4095) return ST_BAD_BITS;
    if (threshold < 0) return ST_INVALID_PARAMETER;
    const uint32_t family = (filter >> 8) & 0xFF, code = filter & 0xFF;
    const bool valid = (filter >> 16) == 0 && code >= 1 &&
                       ((family <= 2 && family >= 1 && code <= 3) || (family == 3 && code <= 6) ||
                        (family == 4 && code <= 8));
    if (!valid) return ST_INVALID_PARAMETER;
    if (family <= 2 && !grey12 && threshold > (SixteenBitSamples(bmp) ? 65535 : 255)) return ST_BAD_BITS;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    const int64_t t = grey12 ? int64_t(threshold) * 16 : threshold;

    return InPictureView(bmp, [&]() -> int32_t {
        int32_t st;
        if (family <= 2) {
            const int kernel = int(family) - 1;
            if (code == 3) return BothDirections(bmp, kernel, t);
            st = Directional(bmp, kernel, code == 1, t, 0, 100);
        } else {
            st = EdgeMap(bmp, family == 3 ? int(code) + 1 : int(code) + 7, t, 0, 100);
        }
        return st == ST_NOTHING_TO_DO ? ReportDone(bmp) : st;
    });
}

} // namespace
} // namespace rz::filt

extern "C" RZIMG_API int32_t RZAPI Rz_EdgeDetectorBitmap(BitmapDesc *pBitmap, int32_t nThreshold, uint32_t uFilter) {
    return rz::Guard([&] { return rz::filt::EdgeDetector(pBitmap, nThreshold, uFilter); });
}
