// The colour-space dispatcher: one entry that converts a run of working
// pixels (blue, green, red) to or from per-pixel model records, chosen by a
// mode number, for 8 and 16-bit channels, and a single-pixel form for
// palette entries. The loops are templates over the channel type and the
// model; the mode is switched once per run.
#include "colour/colour_models.h"

#include <rzimg.h>

namespace rz::colour {
namespace {

template <class T, class Rec, class F> void ToRecords(const T *px, Rec *out, int32_t first, int32_t last, F model) {
    for (int32_t i = first; i < last; ++i) {
        const T *p = px + 3 * i;
        out[i] = model(p[2], p[1], p[0]);
    }
}

template <class T, class Rec, class F> void FromRecords(const Rec *in, T *px, int32_t first, int32_t last, F model) {
    for (int32_t i = first; i < last; ++i) {
        const Rgb c = model(in[i]);
        T *p = px + 3 * i;
        p[0] = static_cast<T>(c.b);
        p[1] = static_cast<T>(c.g);
        p[2] = static_cast<T>(c.r);
    }
}

template <class T> int32_t ConvertRow(int32_t mode, const void *src, void *dst, int32_t first, int32_t last) {
    if (mode < 0 || mode >= CS_MODE_COUNT || !src || !dst) return ST_INVALID_PARAMETER;
    if (first >= last) return ST_SUCCESS;
    switch (mode) {
    case CS_RGB_TO_HSV:
        ToRecords(static_cast<const T *>(src), static_cast<HsvRecord<T> *>(dst), first, last,
                  [](int32_t r, int32_t g, int32_t b) {
                      const Hsv m = DegHsvFromRgb<T>(r, g, b);
                      return HsvRecord<T>{static_cast<uint16_t>(m.h), static_cast<T>(m.s), static_cast<T>(m.v)};
                  });
        return ST_SUCCESS;
    case CS_RGB_TO_HLS:
        ToRecords(static_cast<const T *>(src), static_cast<HlsRecord<T> *>(dst), first, last,
                  [](int32_t r, int32_t g, int32_t b) {
                      const Hls m = DegHlsFromRgb<T>(r, g, b);
                      return HlsRecord<T>{static_cast<uint16_t>(m.h), static_cast<T>(m.l), static_cast<T>(m.s)};
                  });
        return ST_SUCCESS;
    case CS_HSV_TO_RGB:
        FromRecords(static_cast<const HsvRecord<T> *>(src), static_cast<T *>(dst), first, last,
                    [](const HsvRecord<T> &m) { return RgbFromDegHsv<T>(m.hue, m.sat, m.val); });
        return ST_SUCCESS;
    case CS_HLS_TO_RGB:
        FromRecords(static_cast<const HlsRecord<T> *>(src), static_cast<T *>(dst), first, last,
                    [](const HlsRecord<T> &m) { return RgbFromDegHls<T>(m.hue, m.light, m.sat); });
        return ST_SUCCESS;
    default:
        return ST_BAD_TYPE;
    }
}

} // namespace

int32_t ConvertColourRow8(int32_t mode, const void *src, void *dst, int32_t first, int32_t last) {
    return ConvertRow<uint8_t>(mode, src, dst, first, last);
}

int32_t ConvertColourRow16(int32_t mode, const void *src, void *dst, int32_t first, int32_t last) {
    return ConvertRow<uint16_t>(mode, src, dst, first, last);
}

// A palette entry is a working pixel followed by a reserved byte that stays.
int32_t ConvertColourPixel(int32_t mode, const void *src, void *dst) {
    if (mode < 0 || mode >= CS_MODE_COUNT || !src || !dst) return ST_INVALID_PARAMETER;
    if (mode != CS_RGB_TO_HSV && mode != CS_RGB_TO_HLS && mode != CS_HSV_TO_RGB && mode != CS_HLS_TO_RGB)
        return ST_BAD_TYPE;
    return ConvertRow<uint8_t>(mode, src, dst, 0, 1);
}

} // namespace rz::colour
