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

template <class T> void Store(T *p, const Rgb &c) {
    p[0] = static_cast<T>(c.b);
    p[1] = static_cast<T>(c.g);
    p[2] = static_cast<T>(c.r);
}

template <class T> constexpr bool IsByte = sizeof(T) == 1;

// ---- Hue rotation ----

struct HueShift {
    int32_t byteSteps; // added modulo 256 on the byte scale
    int32_t wordUnits; // added modulo 65536 on the word scale

    template <class T> void operator()(T *px, int32_t n) const {
        for (int32_t i = 0; i < n; ++i, px += 3) {
            if constexpr (IsByte<T>) {
                const Hsv f = ByteHsvFromRgb(px[2], px[1], px[0]);
                Store(px, RgbFromByteHsv((f.h + byteSteps) & 0xFF, f.s, f.v));
            } else {
                const Hsv f = WordHsvFromRgb(px[2], px[1], px[0]);
                Store(px, RgbFromWordHsv((f.h + wordUnits) & 0xFFFF, f.s, f.v));
            }
        }
    }
};

// ---- Saturation on the channel's own HLS scale ----

struct SaturationShift {
    int32_t change; // -256..256: the share of the saturation added, in 256ths

    template <class T> void operator()(T *px, int32_t n) const {
        constexpr int32_t M = Scale<T>::kMax;
        for (int32_t i = 0; i < n; ++i, px += 3) {
            const Hls f = ScaleHlsFromRgb<T>(px[2], px[1], px[0]);
            const int32_t s = std::clamp(f.s + ((f.s * change) >> 8), 0, M);
            Store(px, RgbFromScaleHls<T>(f.h, f.l, s));
        }
    }
};

// ---- Desaturation ----

struct Desaturate {
    template <class T> void operator()(T *px, int32_t n) const {
        for (int32_t i = 0; i < n; ++i, px += 3) {
            const T v = static_cast<T>((Max3(px[0], px[1], px[2]) + Min3(px[0], px[1], px[2])) >> 1);
            px[0] = px[1] = px[2] = v;
        }
    }
};

// ---- Hue remapping ----

struct HueRemap {
    const uint32_t *mask, *hue, *sat, *val;
    uint32_t length; // 256, 4096 or 65536

    template <class T> void operator()(T *px, int32_t n) const {
        for (int32_t i = 0; i < n; ++i, px += 3) {
            if constexpr (IsByte<T>) {
                const Hsv f = ByteHsvFromRgb(px[2], px[1], px[0]);
                const int32_t h = std::min(f.h, 255); // hues just below a full turn reach 256
                Hsv o = f;
                if (mask[h]) o = {Clamp(hue[h], 255), Clamp(sat[f.s], 255), Clamp(val[f.v], 255)};
                Store(px, RgbFromByteHsv(o.h, o.s, o.v));
            } else {
                const Hsv f = WordHsvFromRgb(px[2], px[1], px[0]);
                const int32_t shift = length == 4096 ? 4 : 0;
                const int32_t top = static_cast<int32_t>(length) - 1;
                const int32_t h = std::min(f.h, 65535) >> shift, s = f.s >> shift, v = f.v >> shift;
                Hsv o{h, s, v};
                if (mask[h]) o = {Clamp(hue[h], top), Clamp(sat[s], top), Clamp(val[v], top)};
                Store(px, RgbFromWordHsv(o.h << shift, o.s << shift, o.v << shift));
            }
        }
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
template <class T> void RescaleChangeTable(ChangeEntry *table) {
    for (int32_t h = 0; h < kTableEntries; ++h) {
        ChangeEntry &e = table[h];
        const int64_t in = std::min(e.intensity, 1000);
        if constexpr (IsByte<T>) {
            e.hue = e.hue * 100 / 10000;
            e.sat = static_cast<int32_t>(static_cast<int64_t>(e.sat) * 100 / 1000);
            e.intensity = static_cast<int32_t>((in * 255 + 500) / 1000);
        } else {
            e.sat = static_cast<int32_t>(std::clamp<int64_t>(static_cast<int64_t>(e.sat) * 100 / 10, INT32_MIN, INT32_MAX));
            e.intensity = static_cast<int32_t>((in * 65535 + 500) / 1000);
        }
    }
}

// Step 1 converts a run of pixels to degrees-and-percent HSV; the hue keys
// the table and is rotated; back, then to HLS where the saturation changes
// by its share; back, and the intensity offset is added to each channel.
// Palette entries (OneEntry) go through the single-pixel converter.
template <class T, bool OneEntry = false> struct HueSatIntRows {
    const ChangeEntry *table;
    HsvRecord<T> *hsv;
    HlsRecord<T> *hls;
    uint16_t *keys;

    static constexpr int32_t kTurn = 3 * Scale<T>::kThird;
    static constexpr int32_t kKeyDiv = IsByte<T> ? 1 : 100;

    static int32_t Convert(int32_t mode, const void *src, void *dst, int32_t n) {
        if constexpr (OneEntry)
            return ConvertColourPixel(mode, src, dst);
        else if constexpr (IsByte<T>)
            return ConvertColourRow8(mode, src, dst, 0, n);
        else
            return ConvertColourRow16(mode, src, dst, 0, n);
    }

    void operator()(T *px, int32_t n) const {
        constexpr int32_t P = Scale<T>::kPercent, M = Scale<T>::kMax;
        Convert(CS_RGB_TO_HSV, px, hsv, n);
        for (int32_t i = 0; i < n; ++i) {
            const int32_t key = hsv[i].hue / kKeyDiv;
            keys[i] = static_cast<uint16_t>(key);
            int32_t h = hsv[i].hue + table[key].hue;
            if (h < 0) h += kTurn;
            hsv[i].hue = static_cast<uint16_t>(h % kTurn);
        }
        Convert(CS_HSV_TO_RGB, hsv, px, n);
        Convert(CS_RGB_TO_HLS, px, hls, n);
        for (int32_t i = 0; i < n; ++i) {
            const int64_t s = hls[i].sat;
            hls[i].sat = static_cast<T>(std::clamp<int64_t>(s + s * table[keys[i]].sat / P, 0, P));
        }
        Convert(CS_HLS_TO_RGB, hls, px, n);
        for (int32_t i = 0; i < n; ++i) {
            const int32_t add = table[keys[i]].intensity;
            T *p = px + 3 * i;
            for (int c = 0; c < 3; ++c) p[c] = static_cast<T>(std::clamp<int64_t>(int64_t{p[c]} + add, 0, M));
        }
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
        if (!pRanges && uRangeCount != 0) return ST_INVALID_PARAMETER;
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

        if (path == Path::Palette) {
            HsvRecord<uint8_t> hsv;
            HlsRecord<uint8_t> hls;
            uint16_t key;
            const HueSatIntRows<uint8_t, true> rows{table.get(), &hsv, &hls, &key};
            return RunPalette(pBitmap, [&](uint8_t *px) { rows(px, 1); });
        }

        // Per-pixel records and keys for one working row, sized once.
        KrnPtr<uint8_t[]> hsvRow, hlsRow;
        KrnPtr<uint16_t[]> keys;
        HueSatIntRows<uint8_t> rows8{table.get(), nullptr, nullptr, nullptr};
        HueSatIntRows<uint16_t> rows16{table.get(), nullptr, nullptr, nullptr};
        const auto prepare = [&](int32_t width) -> int32_t {
            const size_t recordBytes = wide ? sizeof(HsvRecord<uint16_t>) : sizeof(HsvRecord<uint8_t>);
            hsvRow = KrnArray<uint8_t>(KrnCheckedSize(static_cast<size_t>(width), recordBytes, 1));
            hlsRow = KrnArray<uint8_t>(KrnCheckedSize(static_cast<size_t>(width), recordBytes, 1));
            keys = KrnArray<uint16_t>(static_cast<size_t>(width));
            if (!hsvRow || !hlsRow || !keys) return ST_FAILURE;
            rows8 = {table.get(), reinterpret_cast<HsvRecord<uint8_t> *>(hsvRow.get()),
                     reinterpret_cast<HlsRecord<uint8_t> *>(hlsRow.get()), keys.get()};
            rows16 = {table.get(), reinterpret_cast<HsvRecord<uint16_t> *>(hsvRow.get()),
                      reinterpret_cast<HlsRecord<uint16_t> *>(hlsRow.get()), keys.get()};
            return ST_SUCCESS;
        };
        return RunPixels(pBitmap, prepare, [&](auto *px, int32_t n) {
            if constexpr (sizeof(*px) == 1)
                rows8(px, n);
            else
                rows16(px, n);
        });
    });
}

} // extern "C"
