// Intensity band: every pixel whose intensity lies in [low, high] takes one
// colour, every other pixel another; the two-colour mask document pipelines
// binarise with. Palettes and display tables are rewritten entry by entry
// (O(entries), whatever the picture's size); grey and colour samples go
// through the row context, one comparison and one store a pixel.
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"

#include <algorithm>

namespace rz {
namespace {

constexpr uint32_t kGreyLevel = 1u << 26;
constexpr uint32_t kMaxLevel = 65535;

inline uint32_t LumaY(uint32_t r, uint32_t g, uint32_t b) { return (3735 * b + 19235 * g + 9798 * r + 16384) >> 15; }
inline uint32_t Grey251(uint32_t colour) {
    return (2 * (colour & 0xFF) + 5 * ((colour >> 8) & 0xFF) + ((colour >> 16) & 0xFF) + 4) >> 3;
}

// The intensity an entry or pixel is judged by: Y, or one channel.
inline uint32_t Intensity(uint32_t r, uint32_t g, uint32_t b, uint32_t channel) {
    switch (channel) {
    case RZ_CHANNEL_RED: return r;
    case RZ_CHANNEL_GREEN: return g;
    case RZ_CHANNEL_BLUE: return b;
    default: return LumaY(r, g, b);
    }
}

inline RzRGBQuad EntryOf(uint32_t colour) {
    if (colour & kGreyLevel) {
        const uint8_t v = uint8_t(std::min<uint32_t>(colour & 0xFFFF, 255));
        return RzRGBQuad{v, v, v, 0};
    }
    return RzRGBQuad{uint8_t(colour >> 16), uint8_t(colour >> 8), uint8_t(colour), 0};
}

struct Band {
    uint32_t low, high, in, out, channel;
    bool contains(uint32_t v) const { return v >= low && v <= high; }
};

void RewriteEntries(RzRGBQuad *entries, uint32_t count, const Band &band, bool byIndex) {
    const RzRGBQuad in = EntryOf(band.in), out = EntryOf(band.out);
    for (uint32_t i = 0; i < count; ++i) {
        const RzRGBQuad &e = entries[i];
        const uint32_t v = byIndex ? i : Intensity(e.rgbRed, e.rgbGreen, e.rgbBlue, band.channel);
        entries[i] = band.contains(v) ? in : out;
    }
}

int32_t ReportBoth(BitmapDesc *bmp) {
    const int32_t r = ReportDone(bmp);
    if (r == ST_SUCCESS) KrnBitmapChanged(bmp);
    return r;
}

int32_t DetectInPalette(BitmapDesc *bmp, const Band &band) {
    const int32_t colors = bmp->nColors;
    RzRGBQuad pal[256];
    if (colors <= 0 || KrnGetBitmapPalette(bmp, 0, colors, pal) != colors) return ST_NO_BITMAP;
    RewriteEntries(pal, uint32_t(colors), band, false);
    RZ_RETURN_IF_FAILED(KrnSetBitmapPalette(bmp, 0, colors, pal));
    return ReportBoth(bmp);
}

// Samples of one working format: T 8 or 16-bit, C 1 (grey) or 3 (blue,
// green, red). `shift` takes a 16-bit working sample to its significant value.
template <class T, int C>
void DetectRun(T *p, int32_t count, const Band &band, unsigned shift, const T in[3], const T out[3]) {
    for (int32_t i = 0; i < count; ++i, p += C) {
        uint32_t v;
        if constexpr (C == 1)
            v = uint32_t(p[0]) >> shift;
        else
            v = Intensity(p[2], p[1], p[0], band.channel);
        const T *c = band.contains(v) ? in : out;
        for (int k = 0; k < C; ++k) p[k] = c[k];
    }
}

// A colour word as working samples: grey by 2:5:1, deep samples times 256.
template <class T> void WorkColour(uint32_t colour, int C, unsigned shift, uint32_t maxLevel, T dst[3]) {
    const bool wide = sizeof(T) == 2;
    if (colour & kGreyLevel) {
        const uint32_t level = std::min(colour & 0xFFFF, maxLevel);
        for (int k = 0; k < 3; ++k) dst[k] = T(C == 1 ? level << shift : level);
        return;
    }
    if (C == 1) {
        dst[0] = T(Grey251(colour) * (wide ? 256 : 1));
        return;
    }
    const uint32_t scale = wide ? 256 : 1;
    dst[0] = T(((colour >> 16) & 0xFF) * scale);
    dst[1] = T(((colour >> 8) & 0xFF) * scale);
    dst[2] = T((colour & 0xFF) * scale);
}

template <class T, int C> int32_t DetectRows(BitmapDesc *bmp, RowContext *ctx, const Band &band, unsigned shift) {
    KrnPtr<T[]> row(static_cast<T *>(AllocRowBuffer(ctx)));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx));
    if (!row || !spans) return ST_FAILURE;
    const uint32_t maxLevel = C == 1 ? (sizeof(T) == 2 ? 0xFFFFu >> shift : 255u) : (sizeof(T) == 2 ? 0xFFFFu : 255u);
    T in[3], out[3];
    WorkColour<T>(band.in, C, shift, maxLevel, in);
    WorkColour<T>(band.out, C, shift, maxLevel, out);
    RZ_RETURN_IF_FAILED(BeginProgress(ctx));
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        RZ_RETURN_IF_FAILED(GetRow(ctx, row.get(), y, spans.get(), &n));
        for (uint32_t k = 0; k + 1 < n; k += 2)
            DetectRun<T, C>(row.get() + int64_t(spans[k]) * C, spans[k + 1] - spans[k], band, shift, in, out);
        RZ_RETURN_IF_FAILED(PutRow(ctx, row.get(), y, spans.get(), n));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

int32_t IntensityDetect(BitmapDesc *bmp, const Band &band) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    if (band.low > kMaxLevel || band.high > kMaxLevel || band.low > band.high || band.channel > 3)
        return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    const int32_t bits = bmp->nBitsPerPixel;
    const bool grey = bmp->nColorOrder == KRN_ORDER_GRAY;
    if (bits <= 8 && bmp->nDataKind == 0 && (bmp->pPalette || !grey)) return DetectInPalette(bmp, band);
    if (grey && bits > 8 && bits <= 16 && bmp->pLUT && bmp->nLUTLength && (bmp->uFlags & BMF_USE_LUT) &&
        bmp->nDataKind == 0) {
        RewriteEntries(bmp->pLUT, bmp->nLUTLength, band, true);
        return ReportBoth(bmp);
    }
    uint32_t mode = 0;
    if (grey) mode = bits <= 8 ? RC_WORK8 : RC_WORK16;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st == ST_NOTHING_TO_DO) return ReportDone(bmp);
    if (st != ST_SUCCESS) return st;
    switch (ctx->nWorkBits) {
    case WORK_8: return DetectRows<uint8_t, 1>(bmp, ctx.get(), band, 0);
    case WORK_16: return DetectRows<uint16_t, 1>(bmp, ctx.get(), band, 16 - ctx->nRangeCount);
    case WORK_24: return DetectRows<uint8_t, 3>(bmp, ctx.get(), band, 0);
    default: return DetectRows<uint16_t, 3>(bmp, ctx.get(), band, 0);
    }
}

} // namespace
} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_IntensityDetectBitmap(BitmapDesc *pBitmap, uint32_t uLow, uint32_t uHigh, uint32_t crIn,
                                                 uint32_t crOut, uint32_t uChannel) {
    return Guard([&] { return IntensityDetect(pBitmap, Band{uLow, uHigh, crIn, crOut, uChannel}); });
}

} // extern "C"
