// The colour-space dispatcher: one entry that converts a run of working
// pixels (blue, green, red) to or from per-pixel model records, chosen by a
// mode number, for 8 and 16-bit channels, and a single-pixel form for
// palette entries. The mode is switched once per run; each conversion is a
// loop over blocks of channel arrays that the compiler vectorises, built for
// several instruction sets.
//
// Floating-point traps are never enabled by this library; without the
// assumption that they might be, the compiler may keep the models' exact
// float divisions unconditional and vectorise the loops.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("no-trapping-math")
#endif

#include "colour/colour_models.h"

#include <rzimg.h>

namespace rz::colour {
namespace {

// The three fields of a record, in record order.
template <class T> RZ_INLINE void Fields(const HsvRecord<T> &e, int32_t &a, int32_t &b, int32_t &c) {
    a = e.hue, b = e.sat, c = e.val;
}
template <class T> RZ_INLINE void Fields(const HlsRecord<T> &e, int32_t &a, int32_t &b, int32_t &c) {
    a = e.hue, b = e.light, c = e.sat;
}

// Pixels to records; `model(r, g, b)` gives the three record fields in
// record order.
template <class T, class Rec, class F> RZ_INLINE void ToRecords(const T *px, Rec *out, int32_t n, F model) {
    int32_t r[kBlock], g[kBlock], b[kBlock];
    for (int32_t start = 0; start < n; start += kBlock) {
        const int32_t m = n - start < kBlock ? n - start : kBlock;
        const T *p = px + 3 * start;
        for (int32_t i = 0; i < m; ++i) {
            b[i] = p[3 * i];
            g[i] = p[3 * i + 1];
            r[i] = p[3 * i + 2];
        }
        for (int32_t i = 0; i < m; ++i) {
            const auto v = model(r[i], g[i], b[i]);
            r[i] = v[0];
            g[i] = v[1];
            b[i] = v[2];
        }
        for (int32_t i = 0; i < m; ++i)
            out[start + i] = Rec{static_cast<uint16_t>(r[i]), static_cast<T>(g[i]), static_cast<T>(b[i])};
    }
}

template <class T, class Rec, class F> RZ_INLINE void FromRecords(const Rec *in, T *px, int32_t n, F model) {
    ForEachBlock(px, n, [&](int32_t *r, int32_t *g, int32_t *b, int32_t m, int32_t start) RZ_INLINE_LAMBDA {
        for (int32_t i = 0; i < m; ++i) Fields(in[start + i], r[i], g[i], b[i]);
        for (int32_t i = 0; i < m; ++i) {
            const Rgb c = model(r[i], g[i], b[i]);
            r[i] = c.r;
            g[i] = c.g;
            b[i] = c.b;
        }
    });
}

struct Triple {
    int32_t v[3];
    int32_t operator[](int i) const { return v[i]; }
};

template <class T> RZ_INLINE void HsvRow(const T *px, HsvRecord<T> *out, int32_t n) {
    ToRecords(px, out, n, [](int32_t r, int32_t g, int32_t b) RZ_INLINE_LAMBDA {
        const Hsv m = DegHsvFromRgb<T>(r, g, b);
        return Triple{{m.h, m.s, m.v}};
    });
}
template <class T> RZ_INLINE void HlsRow(const T *px, HlsRecord<T> *out, int32_t n) {
    ToRecords(px, out, n, [](int32_t r, int32_t g, int32_t b) RZ_INLINE_LAMBDA {
        const Hls m = DegHlsFromRgb<T>(r, g, b);
        return Triple{{m.h, m.l, m.s}};
    });
}
template <class T> RZ_INLINE void RgbRowFromHsv(const HsvRecord<T> *in, T *px, int32_t n) {
    FromRecords(in, px, n, [](int32_t h, int32_t s, int32_t v) RZ_INLINE_LAMBDA { return RgbFromDegHsv<T>(h, s, v); });
}
template <class T> RZ_INLINE void RgbRowFromHls(const HlsRecord<T> *in, T *px, int32_t n) {
    FromRecords(in, px, n, [](int32_t h, int32_t l, int32_t s) RZ_INLINE_LAMBDA { return RgbFromDegHls<T>(h, l, s); });
}

RZ_VECTOR_CLONES void HsvRow8(const uint8_t *px, HsvRecord<uint8_t> *out, int32_t n) { HsvRow(px, out, n); }
RZ_VECTOR_CLONES void HlsRow8(const uint8_t *px, HlsRecord<uint8_t> *out, int32_t n) { HlsRow(px, out, n); }
RZ_VECTOR_CLONES void RgbRowFromHsv8(const HsvRecord<uint8_t> *in, uint8_t *px, int32_t n) { RgbRowFromHsv(in, px, n); }
RZ_VECTOR_CLONES void RgbRowFromHls8(const HlsRecord<uint8_t> *in, uint8_t *px, int32_t n) { RgbRowFromHls(in, px, n); }
RZ_VECTOR_CLONES void HsvRow16(const uint16_t *px, HsvRecord<uint16_t> *out, int32_t n) { HsvRow(px, out, n); }
RZ_VECTOR_CLONES void HlsRow16(const uint16_t *px, HlsRecord<uint16_t> *out, int32_t n) { HlsRow(px, out, n); }
RZ_VECTOR_CLONES void RgbRowFromHsv16(const HsvRecord<uint16_t> *in, uint16_t *px, int32_t n) {
    RgbRowFromHsv(in, px, n);
}
RZ_VECTOR_CLONES void RgbRowFromHls16(const HlsRecord<uint16_t> *in, uint16_t *px, int32_t n) {
    RgbRowFromHls(in, px, n);
}

int32_t CheckMode(int32_t mode, const void *src, void *dst) {
    if (mode < 0 || mode >= CS_MODE_COUNT || !src || !dst) return ST_INVALID_PARAMETER;
    if (mode != CS_RGB_TO_HSV && mode != CS_RGB_TO_HLS && mode != CS_HSV_TO_RGB && mode != CS_HLS_TO_RGB)
        return ST_BAD_TYPE;
    return ST_SUCCESS;
}

} // namespace

int32_t ConvertColourRow8(int32_t mode, const void *src, void *dst, int32_t first, int32_t last) {
    const int32_t st = CheckMode(mode, src, dst);
    if (st != ST_SUCCESS || first >= last) return st;
    const int32_t n = last - first;
    switch (mode) {
    case CS_RGB_TO_HSV:
        HsvRow8(static_cast<const uint8_t *>(src) + 3 * first, static_cast<HsvRecord<uint8_t> *>(dst) + first, n);
        break;
    case CS_RGB_TO_HLS:
        HlsRow8(static_cast<const uint8_t *>(src) + 3 * first, static_cast<HlsRecord<uint8_t> *>(dst) + first, n);
        break;
    case CS_HSV_TO_RGB:
        RgbRowFromHsv8(static_cast<const HsvRecord<uint8_t> *>(src) + first, static_cast<uint8_t *>(dst) + 3 * first, n);
        break;
    default:
        RgbRowFromHls8(static_cast<const HlsRecord<uint8_t> *>(src) + first, static_cast<uint8_t *>(dst) + 3 * first, n);
        break;
    }
    return ST_SUCCESS;
}

int32_t ConvertColourRow16(int32_t mode, const void *src, void *dst, int32_t first, int32_t last) {
    const int32_t st = CheckMode(mode, src, dst);
    if (st != ST_SUCCESS || first >= last) return st;
    const int32_t n = last - first;
    switch (mode) {
    case CS_RGB_TO_HSV:
        HsvRow16(static_cast<const uint16_t *>(src) + 3 * first, static_cast<HsvRecord<uint16_t> *>(dst) + first, n);
        break;
    case CS_RGB_TO_HLS:
        HlsRow16(static_cast<const uint16_t *>(src) + 3 * first, static_cast<HlsRecord<uint16_t> *>(dst) + first, n);
        break;
    case CS_HSV_TO_RGB:
        RgbRowFromHsv16(static_cast<const HsvRecord<uint16_t> *>(src) + first, static_cast<uint16_t *>(dst) + 3 * first,
                        n);
        break;
    default:
        RgbRowFromHls16(static_cast<const HlsRecord<uint16_t> *>(src) + first, static_cast<uint16_t *>(dst) + 3 * first,
                        n);
        break;
    }
    return ST_SUCCESS;
}

// A palette entry is a working pixel followed by a reserved byte that stays.
int32_t ConvertColourPixel(int32_t mode, const void *src, void *dst) {
    const int32_t st = CheckMode(mode, src, dst);
    if (st != ST_SUCCESS) return st;
    const uint8_t *p = static_cast<const uint8_t *>(src);
    switch (mode) {
    case CS_RGB_TO_HSV: {
        const Hsv m = DegHsvFromRgb<uint8_t>(p[2], p[1], p[0]);
        *static_cast<HsvRecord<uint8_t> *>(dst) = {static_cast<uint16_t>(m.h), static_cast<uint8_t>(m.s),
                                                    static_cast<uint8_t>(m.v)};
        return ST_SUCCESS;
    }
    case CS_RGB_TO_HLS: {
        const Hls m = DegHlsFromRgb<uint8_t>(p[2], p[1], p[0]);
        *static_cast<HlsRecord<uint8_t> *>(dst) = {static_cast<uint16_t>(m.h), static_cast<uint8_t>(m.l),
                                                    static_cast<uint8_t>(m.s)};
        return ST_SUCCESS;
    }
    case CS_HSV_TO_RGB: {
        const HsvRecord<uint8_t> &m = *static_cast<const HsvRecord<uint8_t> *>(src);
        const Rgb c = RgbFromDegHsv<uint8_t>(m.hue, m.sat, m.val);
        uint8_t *out = static_cast<uint8_t *>(dst);
        out[0] = static_cast<uint8_t>(c.b);
        out[1] = static_cast<uint8_t>(c.g);
        out[2] = static_cast<uint8_t>(c.r);
        return ST_SUCCESS;
    }
    default: {
        const HlsRecord<uint8_t> &m = *static_cast<const HlsRecord<uint8_t> *>(src);
        const Rgb c = RgbFromDegHls<uint8_t>(m.hue, m.light, m.sat);
        uint8_t *out = static_cast<uint8_t *>(dst);
        out[0] = static_cast<uint8_t>(c.b);
        out[1] = static_cast<uint8_t>(c.g);
        out[2] = static_cast<uint8_t>(c.r);
        return ST_SUCCESS;
    }
    }
}

} // namespace rz::colour
