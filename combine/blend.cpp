// Alpha blending: constant opacity, a feathering mask, or a mask shifted by
// a tiled texture, all on the shared two-bitmap engine. The arithmetic is
// in 256ths (65536ths on 16-bit samples), floored: the destination keeps
// (256 - o) / 256 of itself, so full opacity still leaves 1/256 of it.
#include "combine/pair_engine.h"

#include <type_traits>

namespace rz::comb {
namespace {

template <class T> constexpr int kShift = sizeof(T) * 8;
template <class T> using Wide = std::conditional_t<sizeof(T) == 1, int32_t, int64_t>;

// d + floor((s - d) * w / 2^shift), written as the documented formula.
template <class T> RZ_FORCE_INLINE T Mix(Wide<T> d, Wide<T> s, Wide<T> w) {
    return T(((s - d) * w + (d << kShift<T>)) >> kShift<T>);
}

template <class T> RZ_FORCE_INLINE void AlphaRow(T *__restrict d, const T *__restrict s, int64_t n, int32_t o) {
    for (int64_t i = 0; i < n; ++i) d[i] = Mix<T>(d[i], s[i], o);
}

template <class T> RZ_FORCE_INLINE void FeatherRow(T *__restrict d, const T *__restrict s, const T *__restrict m, int64_t n) {
    for (int64_t i = 0; i < n; ++i) d[i] = Mix<T>(d[i], s[i], m[i]);
}

// The mask weighs the destination against the source, then the opacity
// weighs that against the destination; a full mask keeps the pixel.
template <class T>
RZ_FORCE_INLINE void TextureRow(T *__restrict d, const T *__restrict s, T *__restrict m, const T *__restrict t,
                                int64_t n, int32_t o) {
    constexpr Wide<T> M = (Wide<T>(1) << kShift<T>) - 1, half = Wide<T>(1) << (kShift<T> - 1);
    for (int64_t i = 0; i < n; ++i) {
        Wide<T> w = m[i];
        if (t) {
            w = std::clamp<Wide<T>>(w + t[i] - half, 0, M);
            m[i] = T(w);
        }
        const Wide<T> dv = d[i];
        const Wide<T> mixed = Mix<T>(s[i], dv, w);
        d[i] = w < M ? Mix<T>(dv, mixed, o) : T(dv);
    }
}

struct Opacity {
    int32_t limit; // 255, 4095 or 65535
    int32_t scale; // 1 or 16
};

int32_t Bits(const BitmapDesc *b) { return b->nBitsPerPixel; }
bool Deep(const BitmapDesc *b) { return Bits(b) == 12 || Bits(b) == 16; }

// The opacity's range by the pair of bitmaps, in the documented order.
Opacity OpacityRange(const BitmapDesc *dst, const BitmapDesc *src) {
    const bool gd = IsGrey(dst), gs = IsGrey(src);
    if (gd && Bits(dst) < 9) return {255, 1};
    if (gd && gs && (Deep(dst) || Deep(src)))
        return (Bits(dst) == 12 || Bits(src) == 12) ? Opacity{4095, 16} : Opacity{65535, 1};
    if ((Bits(dst) <= 32 && !gd) || (Bits(src) <= 32 && !gs)) return {255, 1};
    if (Bits(dst) == 12 || Bits(src) == 12) return {4095, 16};
    return {65535, 1};
}

int32_t CheckOpacity(const BitmapDesc *dst, const BitmapDesc *src, int32_t opacity, Opacity &range) {
    range = OpacityRange(dst, src);
    return (opacity < 0 || opacity > range.limit) ? ST_INVALID_PARAMETER : ST_SUCCESS;
}

// The opacity in the working sample's units.
int32_t WorkingOpacity(int32_t opacity, const Opacity &range, bool wide) {
    if (range.scale == 16) return opacity * 16;
    return (range.limit == 255 && wide) ? opacity * 257 : opacity;
}

enum Mode : uint32_t { kFeather = 1, kMask = 2, kTexture = 4 };

struct BlendCall {
    PairInputs in;
    uint32_t mode = 0;
    int32_t opacity = 0;
    Opacity range{};
    const RzPoint *offset = nullptr;
};

int32_t Blend(BlendCall &c) {
    RZ_RETURN_IF_FAILED(CheckPixels(c.in.dst));
    RZ_RETURN_IF_FAILED(CheckPixels(c.in.src));
    if (c.mode & (kFeather | kMask)) RZ_RETURN_IF_FAILED(CheckPixels(c.in.mask));
    if (c.mode & kTexture) {
        RZ_RETURN_IF_FAILED(CheckPixels(c.in.texture));
        if (!c.offset) return ST_INVALID_PARAMETER;
        c.in.textureOffset = *c.offset;
    }
    if (!(c.mode & (kFeather | kMask))) c.in.mask = nullptr;
    if (!(c.mode & kTexture)) c.in.texture = nullptr;
    // Opacity 0 leaves every byte as it was: no row is even rewritten.
    if (!(c.mode & kFeather) && c.opacity == 0) return ReportDone(c.in.dst);
    return RunPair(c.in, [&]<class T>(T *d, const T *s, T *m, const T *t, int32_t pixels, const RowShape &sh) {
        const int64_t n = int64_t(pixels) * sh.dstChannels;
        const int32_t o = WorkingOpacity(c.opacity, c.range, sizeof(T) == 2);
        if (c.mode & kFeather)
            filt::Vectorised([&]() RZ_LAMBDA_INLINE { FeatherRow(d, s, m, n); });
        else if (c.mode & kMask)
            filt::Vectorised([&]() RZ_LAMBDA_INLINE { TextureRow(d, s, m, t, n, o); });
        else
            filt::Vectorised([&]() RZ_LAMBDA_INLINE { AlphaRow(d, s, n, o); });
    });
}

PairInputs Inputs(BitmapDesc *dst, int32_t x, int32_t y, int32_t w, int32_t h, BitmapDesc *src, int32_t sx,
                  int32_t sy) {
    return {.dst = dst, .src = src, .x = x, .y = y, .w = w, .h = h, .sx = sx, .sy = sy};
}

// Size and signed samples of an optional bitmap.
int32_t CheckOptional(const BitmapDesc *b) { return b ? CheckBitmap(b, Signed::Refused) : ST_SUCCESS; }

} // namespace
} // namespace rz::comb

using namespace rz;
using namespace rz::comb;

extern "C" {

RZIMG_API int32_t RZAPI Rz_AlphaBlendBitmap(BitmapDesc *pBitmap, int32_t nX, int32_t nY, int32_t nWidth,
                                            int32_t nHeight, BitmapDesc *pSource, int32_t nSrcX, int32_t nSrcY,
                                            int32_t nOpacity) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckArgument(pBitmap));
        RZ_RETURN_IF_FAILED(CheckArgument(pSource));
        BlendCall c;
        RZ_RETURN_IF_FAILED(CheckOpacity(pBitmap, pSource, nOpacity, c.range));
        c.in = Inputs(pBitmap, nX, nY, nWidth, nHeight, pSource, nSrcX, nSrcY);
        c.opacity = nOpacity;
        return Blend(c);
    });
}

RZIMG_API int32_t RZAPI Rz_FeatherAlphaBlendBitmap(BitmapDesc *pBitmap, int32_t nX, int32_t nY, int32_t nWidth,
                                                   int32_t nHeight, BitmapDesc *pSource, int32_t nSrcX,
                                                   int32_t nSrcY, BitmapDesc *pMask) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckArgument(pBitmap));
        RZ_RETURN_IF_FAILED(CheckArgument(pSource));
        RZ_RETURN_IF_FAILED(CheckArgument(pMask));
        BlendCall c;
        c.in = Inputs(pBitmap, nX, nY, nWidth, nHeight, pSource, nSrcX, nSrcY);
        c.in.mask = pMask;
        c.mode = kFeather;
        return Blend(c);
    });
}

RZIMG_API int32_t RZAPI Rz_TextureAlphaBlendBitmap(BitmapDesc *pBitmap, int32_t nX, int32_t nY, int32_t nWidth,
                                                   int32_t nHeight, BitmapDesc *pSource, int32_t nSrcX,
                                                   int32_t nSrcY, BitmapDesc *pMask, int32_t nOpacity,
                                                   BitmapDesc *pTexture, const RzPoint *pTextureOffset) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckOptional(pTexture));
        RZ_RETURN_IF_FAILED(CheckOptional(pMask));
        RZ_RETURN_IF_FAILED(CheckArgument(pSource));
        RZ_RETURN_IF_FAILED(CheckArgument(pBitmap));
        BlendCall c;
        RZ_RETURN_IF_FAILED(CheckOpacity(pBitmap, pSource, nOpacity, c.range));
        c.in = Inputs(pBitmap, nX, nY, nWidth, nHeight, pSource, nSrcX, nSrcY);
        c.in.mask = pMask;
        c.in.texture = pTexture;
        c.offset = pTextureOffset;
        c.opacity = nOpacity;
        if (pTexture && (pTexture->uFlags & BMF_ALLOCATED) && pMask && (pMask->uFlags & BMF_ALLOCATED))
            c.mode = kMask | kTexture;
        else if (pMask && (pMask->uFlags & BMF_ALLOCATED))
            c.mode = kMask;
        return Blend(c);
    });
}

} // extern "C"
