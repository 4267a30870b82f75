// Hue, saturation, intensity and desaturation exports.
//
// Each works pixel by pixel through one of the integer colour models: the
// ratio-hue HSV byte or word scale for hue rotation and hue remapping, the
// HLS of the channel's own scale for saturation, and the degrees-and-percent
// models (through the dispatcher, a row of records at a time) for the
// combined hue, saturation and intensity change keyed by the incoming hue.
// Colour bitmaps are walked row by row through the row context in the 24 or
// 48-bit working format, touching only the pixels of the region's spans;
// the fourth channel of 32 and 64-bit pixels is kept by the row writer.
// Palette bitmaps change their palette entries instead. Every pixel loop is
// a template over the channel type, chosen once per call.
//
// Floating-point traps are never enabled by this library; see colour_models.cpp.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("no-trapping-math")
#endif

#include "colour/colour_models.h"
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace rz {
namespace {

using namespace colour;

enum class Path { Palette, Pixels };

// Colour pixels (24/32/48/64 bits in either colour order) or a palette.
// Grey samples have no hue to work on.
int32_t ChoosePath(const BitmapDesc *bmp, Path &path) {
    const int32_t bits = bmp->nBitsPerPixel;
    const int32_t order = bmp->nColorOrder;
    if (bits >= 1 && bits <= 8 && order != KRN_ORDER_GRAY) {
        path = Path::Palette;
        return ST_SUCCESS;
    }
    if ((bits == 24 || bits == 32 || bits == 48 || bits == 64) && (order == KRN_ORDER_RGB || order == KRN_ORDER_BGR)) {
        path = Path::Pixels;
        return ST_SUCCESS;
    }
    return ST_BAD_PIXEL_FORMAT;
}

// Null, size, allocation and signed checks of the operations whose null
// bitmap is "no bitmap" (-2).
int32_t CheckColourBitmap(const BitmapDesc *bmp) {
    if (!bmp) return ST_NO_BITMAP;
    if (bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
    if (!(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    if (bmp->uFlags & BMF_SIGNED) return ST_SIGNED_NOT_SUPPORTED;
    return ST_SUCCESS;
}

int32_t Report(int32_t percent) {
    void *user = nullptr;
    const RZSTATUSCALLBACK cb = KrnGetStatusCallback(&user);
    return cb ? cb(percent, user) : ST_SUCCESS;
}

// The palette path: every entry through `entry` (a pixel of 8-bit blue,
// green, red), the palette written back; progress 0 before, 100 after.
template <class Entry> int32_t RunPalette(BitmapDesc *bmp, Entry &&entry) {
    const int32_t valid = KrnValidateBitmap(bmp);
    if (valid != ST_SUCCESS) return valid == ST_BAD_PIXEL_FORMAT ? valid : ST_NO_BITMAP;
    const int32_t colors = bmp->nColors;
    RzRGBQuad pal[256];
    if (colors <= 0 || colors > 256 || KrnGetBitmapPalette(bmp, 0, colors, pal) != colors) return ST_NO_BITMAP;
    RZ_RETURN_IF_FAILED(Report(0));
    for (int32_t i = 0; i < colors; ++i) entry(reinterpret_cast<uint8_t *>(pal + i));
    if (KrnSetBitmapPalette(bmp, 0, colors, pal) != ST_SUCCESS) return ST_NO_BITMAP;
    KrnBitmapChanged(bmp);
    return Report(100);
}

// The pixel path: `spans(px, n)` is called with the first working pixel and
// the length of every region span of every row, px being uint8_t* for 8-bit
// channels and uint16_t* for 16-bit ones. `prepare(width)` runs once with
// the working width before the first row (scratch of per-pixel rows).
template <class Prepare, class Spans> int32_t RunPixels(BitmapDesc *bmp, Prepare &&prepare, Spans &&spans) {
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, 0, st);
    if (st == ST_NOTHING_TO_DO) return ReportDone(bmp);
    if (st != ST_SUCCESS) return st;
    if (ctx->nRows <= 0 || ctx->nWorkWidth <= 0) return ReportDone(bmp);
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> runs(AllocSpanBuffer(ctx.get()));
    if (!row || !runs) return ST_FAILURE;
    RZ_RETURN_IF_FAILED(prepare(ctx->nWorkWidth));
    const bool wide = ctx->nWorkBits == WORK_48;
    RZ_RETURN_IF_FAILED(BeginProgress(ctx.get()));
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), row.get(), y, runs.get(), &n));
        for (uint32_t k = 0; k + 1 < n; k += 2) {
            const int32_t x0 = runs[k], x1 = runs[k + 1];
            if (x1 <= x0) continue;
            if (wide)
                spans(reinterpret_cast<uint16_t *>(row.get()) + 3 * x0, x1 - x0);
            else
                spans(row.get() + 3 * x0, x1 - x0);
        }
        RZ_RETURN_IF_FAILED(PutRow(ctx.get(), row.get(), y, runs.get(), n));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

int32_t NoScratch(int32_t) { return ST_SUCCESS; }

template <class T> constexpr bool IsByte = sizeof(T) == 1;

// ---- Span kernels ----
//
// One per operation and channel type, compiled for several instruction sets
// (RZ_VECTOR_CLONES); each block of a span goes through the model as channel
// arrays. A kernel object calls the one for the working pixels it is given.

template <class T> RZ_INLINE void HueSpan(T *px, int32_t n, int32_t add) {
    ForEachBlock(px, n, [add](int32_t *r, int32_t *g, int32_t *b, int32_t m, int32_t) RZ_INLINE_LAMBDA {
        for (int32_t i = 0; i < m; ++i) {
            Rgb c;
            if constexpr (IsByte<T>) {
                const Hsv f = ByteHsvFromRgb(r[i], g[i], b[i]);
                c = RgbFromByteHsv((f.h + add) & 0xFF, f.s, f.v);
            } else {
                const Hsv f = WordHsvFromRgb(r[i], g[i], b[i]);
                c = RgbFromWordHsv((f.h + add) & 0xFFFF, f.s, f.v);
            }
            r[i] = c.r, g[i] = c.g, b[i] = c.b;
        }
    });
}

// The saturation changes by its share `change` / 256 on the channel's HLS scale.
template <class T> RZ_INLINE void SaturationSpan(T *px, int32_t n, int32_t change) {
    ForEachBlock(px, n, [change](int32_t *r, int32_t *g, int32_t *b, int32_t m, int32_t) RZ_INLINE_LAMBDA {
        constexpr int32_t M = Scale<T>::kMax;
        for (int32_t i = 0; i < m; ++i) {
            const Hls f = ScaleHlsFromRgb<T>(r[i], g[i], b[i]);
            int32_t s = f.s + ((f.s * change) >> 8);
            s = s < 0 ? 0 : s > M ? M : s;
            const Rgb c = RgbFromScaleHls<T>(f.h, f.l, s);
            r[i] = c.r, g[i] = c.g, b[i] = c.b;
        }
    });
}

template <class T> RZ_INLINE void DesaturateSpan(T *px, int32_t n) {
    ForEachBlock(px, n, [](int32_t *r, int32_t *g, int32_t *b, int32_t m, int32_t) RZ_INLINE_LAMBDA {
        for (int32_t i = 0; i < m; ++i) {
            const int32_t v = (Max3(r[i], g[i], b[i]) + Min3(r[i], g[i], b[i])) >> 1;
            r[i] = g[i] = b[i] = v;
        }
    });
}

RZ_VECTOR_CLONES void HueSpan8(uint8_t *px, int32_t n, int32_t add) { HueSpan(px, n, add); }
RZ_VECTOR_CLONES void HueSpan16(uint16_t *px, int32_t n, int32_t add) { HueSpan(px, n, add); }
RZ_VECTOR_CLONES void SaturationSpan8(uint8_t *px, int32_t n, int32_t change) { SaturationSpan(px, n, change); }
RZ_VECTOR_CLONES void SaturationSpan16(uint16_t *px, int32_t n, int32_t change) { SaturationSpan(px, n, change); }
RZ_VECTOR_CLONES void DesaturateSpan8(uint8_t *px, int32_t n) { DesaturateSpan(px, n); }
RZ_VECTOR_CLONES void DesaturateSpan16(uint16_t *px, int32_t n) { DesaturateSpan(px, n); }

struct HueShift {
    int32_t byteSteps; // added modulo 256 on the byte scale
    int32_t wordUnits; // added modulo 65536 on the word scale
    void operator()(uint8_t *px, int32_t n) const { HueSpan8(px, n, byteSteps); }
    void operator()(uint16_t *px, int32_t n) const { HueSpan16(px, n, wordUnits); }
};

struct SaturationShift {
    int32_t change; // -256..256: the share of the saturation added, in 256ths
    void operator()(uint8_t *px, int32_t n) const { SaturationSpan8(px, n, change); }
    void operator()(uint16_t *px, int32_t n) const { SaturationSpan16(px, n, change); }
};

struct Desaturate {
    void operator()(uint8_t *px, int32_t n) const { DesaturateSpan8(px, n); }
    void operator()(uint16_t *px, int32_t n) const { DesaturateSpan16(px, n); }
};

// ---- Hue remapping ----

struct HueRemap {
    const uint32_t *mask, *hue, *sat, *val;
    uint32_t length; // 256, 4096 or 65536

    template <class T> void operator()(T *px, int32_t n) const {
        ForEachBlock(px, n, [this](int32_t *r, int32_t *g, int32_t *b, int32_t m, int32_t) RZ_INLINE_LAMBDA {
            for (int32_t i = 0; i < m; ++i) {
                Rgb c;
                if constexpr (IsByte<T>) {
                    const Hsv f = ByteHsvFromRgb(r[i], g[i], b[i]);
                    const int32_t h = std::min(f.h, 255); // hues just below a full turn reach 256
                    Hsv o = f;
                    if (mask[h]) o = {Clamp(hue[h], 255), Clamp(sat[f.s], 255), Clamp(val[f.v], 255)};
                    c = RgbFromByteHsv(o.h, o.s, o.v);
                } else {
                    const Hsv f = WordHsvFromRgb(r[i], g[i], b[i]);
                    const int32_t shift = length == 4096 ? 4 : 0;
                    const int32_t top = static_cast<int32_t>(length) - 1;
                    const int32_t h = std::min(f.h, 65535) >> shift, s = f.s >> shift, v = f.v >> shift;
                    Hsv o{h, s, v};
                    if (mask[h]) o = {Clamp(hue[h], top), Clamp(sat[s], top), Clamp(val[v], top)};
                    c = RgbFromWordHsv(o.h << shift, o.s << shift, o.v << shift);
                }
                r[i] = c.r, g[i] = c.g, b[i] = c.b;
            }
        });
    }
    // Table values beyond the scale are taken as its top.
    static int32_t Clamp(uint32_t v, int32_t top) { return static_cast<int32_t>(std::min<uint32_t>(v, top)); }
};

// ---- The combined change keyed by hue ----

struct ChangeEntry {
    int32_t hue, sat, intensity;
};
constexpr int32_t kTableEntries = 361;

// Ranges are normalised in place: negative bounds turned by a full circle,
// and a range across 0 degrees given an upper bound past 360.
int32_t NormaliseRange(HueSatIntRange &r) {
    for (int32_t *v : {&r.outerLow, &r.outerHigh, &r.innerLow, &r.innerHigh})
        if (*v < 0) *v += 360;
    if (r.outerLow > r.outerHigh) {
        if (r.outerHigh >= 0) r.outerHigh += 360;
        if (r.innerHigh >= 0) r.innerHigh += 360;
    }
    const bool consistent = r.outerLow <= r.outerHigh && r.innerLow <= r.innerHigh && r.innerLow >= r.outerLow &&
                            r.innerHigh <= r.outerHigh;
    return consistent ? ST_SUCCESS : ST_INVALID_PARAMETER;
}

int32_t CheckRange(const HueSatIntRange &r) {
    if (r.size != static_cast<int32_t>(HUESATINTRANGE_SIZE)) return ST_BAD_STRUCT_SIZE;
    if (r.hueChange < -18000 || r.hueChange > 18000) return ST_INVALID_PARAMETER;
    if (r.satChange < -1000 || r.satChange > 1000) return ST_INVALID_PARAMETER;
    if (r.intChange < -1000 || r.intChange > 1000) return ST_INVALID_PARAMETER;
    for (int32_t v : {r.outerLow, r.outerHigh, r.innerLow, r.innerHigh})
        if (v < -359 || v > 359) return ST_INVALID_PARAMETER;
    return ST_SUCCESS;
}

int32_t SaturatingAdd(int32_t a, int64_t b) {
    return static_cast<int32_t>(std::clamp<int64_t>(a + b, INT32_MIN, INT32_MAX));
}

// The 361-entry table in hundredths of a degree and tenths of a percent.
// The rising edge of a range deliberately measures from the unwrapped hue,
// so a rising edge reached through h + 360 gets a negative factor.
void BuildChangeTable(ChangeEntry *table, int32_t hue, int32_t sat, int32_t intensity, const HueSatIntRange *ranges,
                      uint32_t count) {
    for (int32_t h = 0; h < kTableEntries; ++h) table[h] = {hue, sat, intensity};
    for (uint32_t i = 0; i < count; ++i) {
        const HueSatIntRange &r = ranges[i];
        for (int32_t h = 0; h < kTableEntries; ++h) {
            const int32_t hp = (h < r.outerLow && r.outerHigh > 360) ? h + 360 : h;
            if (hp < r.outerLow || hp > r.outerHigh) continue;
            ChangeEntry &e = table[h];
            if (hp >= r.innerLow && hp <= r.innerHigh) {
                e.hue += r.hueChange;
                e.sat = SaturatingAdd(e.sat, r.satChange);
                e.intensity = SaturatingAdd(e.intensity, r.intChange);
            } else {
                const double f = hp > r.innerHigh
                                     ? std::fabs(static_cast<double>(hp - r.outerHigh) / (r.outerHigh - r.innerHigh))
                                     : static_cast<double>(h - r.outerLow) / (r.innerLow - r.outerLow);
                e.hue += static_cast<int32_t>(r.hueChange * f);
                e.sat = SaturatingAdd(e.sat, static_cast<int64_t>(r.satChange * f));
                e.intensity = SaturatingAdd(e.intensity, static_cast<int64_t>(r.intChange * f));
            }
            if (e.hue > 18000) e.hue -= 36000;
            if (e.hue < -18000) e.hue += 36000;
        }
    }
}

// Hue in the record's units, saturation in its hundredths or percent,
// intensity as a sample offset (capped at +1000 tenths, not below).
// Hue in the record's units, saturation in its hundredths or percent,
// intensity as a sample offset (capped at +1000 tenths, not below). Beyond
// what can matter to a sample the saturation share is limited to -P..P x P
// and the offset to -M..M, so the pixel loops stay in narrow integers.
template <class T> void RescaleChangeTable(ChangeEntry *table) {
    constexpr int64_t P = Scale<T>::kPercent, M = Scale<T>::kMax;
    for (int32_t h = 0; h < kTableEntries; ++h) {
        ChangeEntry &e = table[h];
        const int64_t in = std::min(e.intensity, 1000);
        int64_t sat, offset;
        if constexpr (IsByte<T>) {
            e.hue = e.hue * 100 / 10000;
            sat = static_cast<int64_t>(e.sat) * 100 / 1000;
            offset = (in * 255 + 500) / 1000;
        } else {
            sat = static_cast<int64_t>(e.sat) * 100 / 10;
            offset = (in * 65535 + 500) / 1000;
        }
        e.sat = static_cast<int32_t>(std::clamp<int64_t>(sat, -P, P * P));
        e.intensity = static_cast<int32_t>(std::clamp<int64_t>(offset, -M, M));
    }
}

// The steps keyed by the incoming hue: rotate the hue (table hues lie
// within half a turn), change the saturation by its share (truncating
// toward zero), add the intensity offset.
template <class T> RZ_INLINE int32_t RotatedHue(int32_t hue, int32_t change) {
    constexpr int32_t kTurn = 3 * Scale<T>::kThird;
    const int32_t h = hue + change;
    return h < 0 ? h + kTurn : h >= kTurn ? h - kTurn : h;
}
template <class T> RZ_INLINE int32_t ScaledSaturation(int32_t sat, int32_t share) {
    using I = typename Scale<T>::I;
    constexpr I P = Scale<T>::kPercent;
    const I product = I(sat) * share;
    const I change = product / P; // truncates toward zero
    const I s = sat + change;
    return static_cast<int32_t>(s < 0 ? 0 : s > P ? P : s);
}
template <class T> RZ_INLINE int32_t Brightened(int32_t v, int32_t offset) {
    constexpr int32_t M = Scale<T>::kMax;
    const int32_t x = v + offset;
    return x < 0 ? 0 : x > M ? M : x;
}
template <class T> RZ_INLINE int32_t KeyOf(int32_t hue) { return IsByte<T> ? hue : hue / 100; }

// A span: to degrees-and-percent HSV through the dispatcher, the hue keys
// the table and is rotated; back; to HLS, the saturation changes; back; the
// intensity offset is added to each channel.
// The table, the records and the keys never overlap (__restrict lets the
// saturation loop gather from the table while it stores records).
template <class T>
RZ_INLINE void HueSatIntSpan(T *px, int32_t n, const ChangeEntry *__restrict table, HsvRecord<T> *__restrict hsv,
                             HlsRecord<T> *__restrict hls, uint16_t *__restrict keys) {
    const auto convert = [](int32_t mode, const void *src, void *dst, int32_t count) {
        if constexpr (IsByte<T>)
            ConvertColourRow8(mode, src, dst, 0, count);
        else
            ConvertColourRow16(mode, src, dst, 0, count);
    };
    convert(CS_RGB_TO_HSV, px, hsv, n);
    for (int32_t i = 0; i < n; ++i) {
        const int32_t key = KeyOf<T>(hsv[i].hue);
        keys[i] = static_cast<uint16_t>(key);
        hsv[i].hue = static_cast<uint16_t>(RotatedHue<T>(hsv[i].hue, table[key].hue));
    }
    convert(CS_HSV_TO_RGB, hsv, px, n);
    convert(CS_RGB_TO_HLS, px, hls, n);
    for (int32_t i = 0; i < n; ++i) hls[i].sat = static_cast<T>(ScaledSaturation<T>(hls[i].sat, table[keys[i]].sat));
    convert(CS_HLS_TO_RGB, hls, px, n);
    ForEachBlock(px, n, [&](int32_t *r, int32_t *g, int32_t *b, int32_t m, int32_t start) RZ_INLINE_LAMBDA {
        for (int32_t i = 0; i < m; ++i) {
            const int32_t offset = table[keys[start + i]].intensity;
            r[i] = Brightened<T>(r[i], offset), g[i] = Brightened<T>(g[i], offset), b[i] = Brightened<T>(b[i], offset);
        }
    });
}

RZ_VECTOR_CLONES void HueSatIntSpan8(uint8_t *px, int32_t n, const ChangeEntry *table, HsvRecord<uint8_t> *hsv,
                                     HlsRecord<uint8_t> *hls, uint16_t *keys) {
    HueSatIntSpan(px, n, table, hsv, hls, keys);
}
RZ_VECTOR_CLONES void HueSatIntSpan16(uint16_t *px, int32_t n, const ChangeEntry *table, HsvRecord<uint16_t> *hsv,
                                      HlsRecord<uint16_t> *hls, uint16_t *keys) {
    HueSatIntSpan(px, n, table, hsv, hls, keys);
}

// A palette entry takes the same steps through the single-pixel converter.
void HueSatIntEntry(uint8_t *entry, const ChangeEntry *table) {
    HsvRecord<uint8_t> hsv;
    HlsRecord<uint8_t> hls;
    ConvertColourPixel(CS_RGB_TO_HSV, entry, &hsv);
    const ChangeEntry &e = table[KeyOf<uint8_t>(hsv.hue)];
    hsv.hue = static_cast<uint16_t>(RotatedHue<uint8_t>(hsv.hue, e.hue));
    ConvertColourPixel(CS_HSV_TO_RGB, &hsv, entry);
    ConvertColourPixel(CS_RGB_TO_HLS, entry, &hls);
    hls.sat = static_cast<uint8_t>(ScaledSaturation<uint8_t>(hls.sat, e.sat));
    ConvertColourPixel(CS_HLS_TO_RGB, &hls, entry);
    for (int c = 0; c < 3; ++c) entry[c] = static_cast<uint8_t>(Brightened<uint8_t>(entry[c], e.intensity));
}

// Per-pixel records and keys of one working row, sized once per call.
struct HueSatIntRows {
    const ChangeEntry *table;
    KrnPtr<uint8_t[]> hsv, hls;
    KrnPtr<uint16_t[]> keys;

    int32_t prepare(int32_t width, bool wide) {
        const size_t recordBytes = wide ? sizeof(HsvRecord<uint16_t>) : sizeof(HsvRecord<uint8_t>);
        hsv = KrnArray<uint8_t>(KrnCheckedSize(static_cast<size_t>(width), recordBytes, 1));
        hls = KrnArray<uint8_t>(KrnCheckedSize(static_cast<size_t>(width), recordBytes, 1));
        keys = KrnArray<uint16_t>(static_cast<size_t>(width));
        return hsv && hls && keys ? ST_SUCCESS : ST_FAILURE;
    }
    void operator()(uint8_t *px, int32_t n) const {
        HueSatIntSpan8(px, n, table, reinterpret_cast<HsvRecord<uint8_t> *>(hsv.get()),
                       reinterpret_cast<HlsRecord<uint8_t> *>(hls.get()), keys.get());
    }
    void operator()(uint16_t *px, int32_t n) const {
        HueSatIntSpan16(px, n, table, reinterpret_cast<HsvRecord<uint16_t> *>(hsv.get()),
                        reinterpret_cast<HlsRecord<uint16_t> *>(hls.get()), keys.get());
    }
};

} // namespace
} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_ChangeBitmapHue(BitmapDesc *pBitmap, int32_t nAngle) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckColourBitmap(pBitmap));
        Path path{};
        RZ_RETURN_IF_FAILED(ChoosePath(pBitmap, path));
        // Byte steps truncate toward zero, so 1 degree is no step and 360 a whole turn.
        const int64_t steps = static_cast<int64_t>(nAngle) * 256 / 360;
        const HueShift shift{static_cast<int32_t>(((steps % 256) + 256) % 256),
                             static_cast<int32_t>(((steps * 257) % 65536 + 65536) % 65536)};
        if (path == Path::Palette) return RunPalette(pBitmap, [&](uint8_t *px) { shift(px, 1); });
        return RunPixels(pBitmap, NoScratch, shift);
    });
}

RZIMG_API int32_t RZAPI Rz_ChangeBitmapSaturation(BitmapDesc *pBitmap, int32_t nChange) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckColourBitmap(pBitmap));
        if (nChange < -1000 || nChange > 1000) return ST_INVALID_PARAMETER;
        Path path{};
        RZ_RETURN_IF_FAILED(ChoosePath(pBitmap, path));
        const SaturationShift shift{nChange * 256 / 1000};
        if (path == Path::Palette) return RunPalette(pBitmap, [&](uint8_t *px) { shift(px, 1); });
        return RunPixels(pBitmap, NoScratch, shift);
    });
}

RZIMG_API int32_t RZAPI Rz_DesaturateBitmap(BitmapDesc *pBitmap) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckColourBitmap(pBitmap));
        if (KrnIsGrayscale(pBitmap)) return ST_BAD_PIXEL_FORMAT;
        Path path{};
        RZ_RETURN_IF_FAILED(ChoosePath(pBitmap, path));
        if (path == Path::Palette) return RunPalette(pBitmap, [](uint8_t *px) { Desaturate{}(px, 1); });
        return RunPixels(pBitmap, NoScratch, Desaturate{});
    });
}

RZIMG_API int32_t RZAPI Rz_RemapBitmapHue(BitmapDesc *pBitmap, const uint32_t *pMask, const uint32_t *pHTable,
                                         const uint32_t *pSTable, const uint32_t *pVTable, uint32_t uLUTLen) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckColourBitmap(pBitmap));
        Path path{};
        RZ_RETURN_IF_FAILED(ChoosePath(pBitmap, path));
        const bool wide = path == Path::Pixels && pBitmap->nBitsPerPixel >= 48;
        const bool lengthOk = wide ? (uLUTLen == 65536 || uLUTLen == 4096) : uLUTLen == 256;
        if (!lengthOk) return ST_INVALID_PARAMETER;
        // Missing tables are the identity; a missing mask selects every hue.
        KrnPtr<uint32_t[]> identity, ones;
        if (!pHTable || !pSTable || !pVTable) {
            identity = KrnArray<uint32_t>(uLUTLen);
            if (!identity) return ST_FAILURE;
            for (uint32_t i = 0; i < uLUTLen; ++i) identity[i] = i;
        }
        if (!pMask) {
            ones = KrnArray<uint32_t>(uLUTLen);
            if (!ones) return ST_FAILURE;
            std::fill_n(ones.get(), uLUTLen, 1u);
        }
        const HueRemap remap{pMask ? pMask : ones.get(), pHTable ? pHTable : identity.get(),
                             pSTable ? pSTable : identity.get(), pVTable ? pVTable : identity.get(), uLUTLen};
        if (path == Path::Palette) return RunPalette(pBitmap, [&](uint8_t *px) { remap(px, 1); });
        return RunPixels(pBitmap, NoScratch, remap);
    });
}

RZIMG_API int32_t RZAPI Rz_ChangeHueSatIntBitmap(BitmapDesc *pBitmap, int32_t nHue, int32_t nSaturation,
                                                int32_t nIntensity, const HueSatIntRange *pRanges,
                                                uint32_t uRangeCount) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(pBitmap, Signed::Refused));
        if ((!pRanges && uRangeCount != 0) || uRangeCount > RZ_MAX_RECORDS) return ST_INVALID_PARAMETER;
        // The caller's records stay as they are; normalisation works on a copy.
        KrnPtr<HueSatIntRange[]> ranges = KrnArray<HueSatIntRange>(uRangeCount);
        if (!ranges) return ST_FAILURE;
        std::copy_n(pRanges, uRangeCount, ranges.get());
        if (nHue < -18000 || nHue > 18000 || nSaturation < -1000 || nSaturation > 1000 || nIntensity < -1000 ||
            nIntensity > 1000)
            return ST_INVALID_PARAMETER;
        for (uint32_t i = 0; i < uRangeCount; ++i) RZ_RETURN_IF_FAILED(CheckRange(ranges[i]));
        for (uint32_t i = 0; i < uRangeCount; ++i) RZ_RETURN_IF_FAILED(NormaliseRange(ranges[i]));
        if (KrnIsGrayscale(pBitmap)) return ST_INVALID_PARAMETER;
        Path path{};
        RZ_RETURN_IF_FAILED(ChoosePath(pBitmap, path));
        if (!(pBitmap->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;

        KrnPtr<ChangeEntry[]> table = KrnArray<ChangeEntry>(kTableEntries);
        if (!table) return ST_FAILURE;
        BuildChangeTable(table.get(), nHue, nSaturation, nIntensity, ranges.get(), uRangeCount);
        ranges.reset();

        const bool wide = path == Path::Pixels && pBitmap->nBitsPerPixel >= 48;
        if (wide)
            RescaleChangeTable<uint16_t>(table.get());
        else
            RescaleChangeTable<uint8_t>(table.get());

        if (path == Path::Palette)
            return RunPalette(pBitmap, [&](uint8_t *px) { HueSatIntEntry(px, table.get()); });
        HueSatIntRows rows{table.get(), nullptr, nullptr, nullptr};
        return RunPixels(pBitmap, [&](int32_t width) { return rows.prepare(width, wide); }, rows);
    });
}

} // extern "C"
