// Rz_CombineBitmapExt: per-channel logic and arithmetic of a source
// rectangle into the destination. The flags word is read in nibbles: the
// operation, how source and destination values are prepared (as they are,
// inverted, the pixel's intensity), how the result is finished, and which
// source channel feeds each destination channel. With nothing to prepare
// the operation runs straight on the two rows, one compiled loop per
// operation and sample size; otherwise the prepared source goes through a
// scratch row first. Every operation fits 32-bit unsigned arithmetic, the
// products of two 16-bit samples included.
#include "combine/pair_engine.h"

#include <array>
#include <utility>

namespace rz::comb {
namespace {

constexpr int kOperations = 13;

template <class T> constexpr uint32_t kMax = sizeof(T) == 1 ? 255u : 65535u;

template <class T, int Op> RZ_FORCE_INLINE T Operate(uint32_t s, uint32_t d) {
    constexpr uint32_t M = kMax<T>;
    if constexpr (Op == 0x0) return T(s & d);
    if constexpr (Op == 0x1) return T(s | d);
    if constexpr (Op == 0x2) return T(s ^ d);
    if constexpr (Op == 0x3) return T(std::min(s + d, M));
    if constexpr (Op == 0x4) return T(d > s ? d - s : 0);
    if constexpr (Op == 0x5) return T(s > d ? s - d : 0);
    if constexpr (Op == 0x6) return T(s * d / M);
    if constexpr (Op == 0x7) return T(s == 0 ? M : std::min(d * M / s, M));
    if constexpr (Op == 0x8) return T(d == 0 ? M : std::min(s * M / d, M));
    if constexpr (Op == 0x9) return T((s + d) >> 1);
    if constexpr (Op == 0xA) return T(std::min(s, d));
    if constexpr (Op == 0xB) return T(std::max(s, d));
    if constexpr (Op == 0xC) return T(s > d ? s - d : d - s);
    return T(d);
}

template <class T, int Op> RZ_FORCE_INLINE void OperateRow(T *__restrict d, const T *__restrict s, int64_t n, bool invert) {
    if (invert) {
        for (int64_t i = 0; i < n; ++i) d[i] = T(kMax<T> - Operate<T, Op>(s[i], d[i]));
    } else {
        for (int64_t i = 0; i < n; ++i) d[i] = Operate<T, Op>(s[i], d[i]);
    }
}

template <class T> using RowFn = void (*)(T *, const T *, int64_t, bool);

template <class T, int Op> void OperateVectorised(T *d, const T *s, int64_t n, bool invert) {
    filt::Vectorised([&]() RZ_LAMBDA_INLINE { OperateRow<T, Op>(d, s, n, invert); });
}

template <class T, size_t... I> constexpr std::array<RowFn<T>, kOperations> RowTable(std::index_sequence<I...>) {
    return {&OperateVectorised<T, int(I)>...};
}

// The flags word, split and checked.
struct Flags {
    uint32_t op, src, dst, res;
    uint32_t select[3]; // source channel of destination blue, green, red (working order); 0 the same
    bool plain;         // nothing to prepare or finish besides an inversion
};

int32_t ParseFlags(uint32_t f, Flags &out) {
    out.src = f & 0xF;
    out.dst = (f >> 4) & 0xF;
    out.op = (f >> 8) & 0xF;
    out.res = (f >> 12) & 0xF;
    const uint32_t red = (f >> 16) & 0xF, green = (f >> 20) & 0xF, blue = (f >> 24) & 0xF;
    if (out.src > 3 || out.dst > 3 || out.op >= kOperations || out.res > 3 || red > 3 || green > 3 || blue > 3 ||
        (f >> 28) != 0)
        return ST_INVALID_PARAMETER;
    out.select[0] = blue;
    out.select[1] = green;
    out.select[2] = red;
    out.plain = out.src == 0 && out.dst == 0 && out.res <= 1 && (f & 0x0FFF0000u) == 0;
    return ST_SUCCESS;
}

// Intensity of a blue, green, red pixel.
template <class T> RZ_FORCE_INLINE T Luma(const T *p) {
    return T((3735u * p[0] + 19235u * p[1] + 9798u * p[2] + 16384u) >> 15);
}

// Inversion and intensity of a row of prepared values, in place.
template <class T> void Prepare(T *v, int32_t pixels, int32_t C, uint32_t handling) {
    const int64_t n = int64_t(pixels) * C;
    if ((handling & 2) && C == 3)
        for (int32_t i = 0; i < pixels; ++i) v[3 * i] = v[3 * i + 1] = v[3 * i + 2] = Luma(v + 3 * i);
    if (handling & 1)
        for (int64_t i = 0; i < n; ++i) v[i] = T(kMax<T> - v[i]);
}

// The source's selected channels into `out` (destination's channel count).
template <class T> void Select(const T *s, T *out, int32_t pixels, const RowShape &sh, const uint32_t *select) {
    const int32_t C = sh.dstChannels, SC = sh.srcChannels;
    for (int32_t c = 0; c < C; ++c) {
        const uint32_t v = C == 1 ? select[2] : select[c];
        const int32_t from = v == 0 ? (SC == 1 ? 0 : c) : int32_t(3 - v);
        for (int32_t i = 0; i < pixels; ++i) out[int64_t(i) * C + c] = s[int64_t(i) * SC + from];
    }
}

int32_t Combine(BitmapDesc *dst, int32_t x, int32_t y, int32_t w, int32_t h, BitmapDesc *src, int32_t sx,
                int32_t sy, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckArgument(dst));
    RZ_RETURN_IF_FAILED(CheckArgument(src));
    Flags f{};
    RZ_RETURN_IF_FAILED(ParseFlags(flags, f));
    if (w < 1 || h < 1) return ST_SUCCESS;
    RZ_RETURN_IF_FAILED(CheckPixels(dst));
    RZ_RETURN_IF_FAILED(CheckPixels(src));

    const PairInputs in{.dst = dst, .src = src, .x = x, .y = y, .w = w, .h = h, .sx = sx, .sy = sy,
                        .sourceInColour = f.select[2] != 0};
    // Scratch for the prepared source: a row of either view.
    KrnPtr<uint16_t[]> scratch;
    if (!f.plain) {
        scratch = KrnArray<uint16_t>(KrnCheckedSize(size_t(std::max(dst->nWidth, dst->nHeight)), 3, 1) + 16);
        if (!scratch) return ST_FAILURE;
    }
    return RunPair(in, [&]<class T>(T *d, const T *s, T *, const T *, int32_t pixels, const RowShape &sh) {
        static constexpr std::array<RowFn<T>, kOperations> kRows = RowTable<T>(std::make_index_sequence<kOperations>{});
        const int64_t n = int64_t(pixels) * sh.dstChannels;
        if (f.plain) {
            kRows[f.op](d, s, n, f.res == 1);
            return;
        }
        T *sp = reinterpret_cast<T *>(scratch.get());
        Select(s, sp, pixels, sh, f.select);
        Prepare(sp, pixels, sh.dstChannels, f.src);
        Prepare(d, pixels, sh.dstChannels, f.dst);
        switch (f.res) {
        case 2: std::copy(sp, sp + n, d); break;
        case 3: break; // the prepared destination stays
        default: kRows[f.op](d, sp, n, f.res == 1);
        }
    });
}

} // namespace
} // namespace rz::comb

extern "C" RZIMG_API int32_t RZAPI Rz_CombineBitmapExt(BitmapDesc *pBitmap, int32_t nX, int32_t nY, int32_t nWidth,
                                                       int32_t nHeight, BitmapDesc *pSource, int32_t nSrcX,
                                                       int32_t nSrcY, uint32_t uFlags) {
    return rz::Guard([&] { return rz::comb::Combine(pBitmap, nX, nY, nWidth, nHeight, pSource, nSrcX, nSrcY, uFlags); });
}
