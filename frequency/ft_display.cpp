// Rz_FTDisplayBitmap: the spectrum as an 8-bit grey picture, centred so
// that frequency 0 is in the middle. One pass finds the scale (largest
// magnitude, or the phase's extremes), a second draws the rows.
#include "frequency/ft_common.h"

#include <cmath>

namespace rz::freq {
namespace {

enum class Kind { Magnitude, LogMagnitude, Phase };

double Value(Kind kind, double re, double im) {
    switch (kind) {
    case Kind::Magnitude: return std::sqrt(re * re + im * im);
    case Kind::LogMagnitude: return std::log(std::sqrt(re * re + im * im));
    default: return std::atan2(im, re);
    }
}

int32_t Display(BitmapDesc *bmp, const FTARRAY *array, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckBitmapAndArray(bmp, array));
    const uint32_t kind = flags & 0xFF0F, scale = flags & 0xFFF0;
    if (kind != FT_DISPLAY_MAGNITUDE && kind != FT_DISPLAY_PHASE) return ST_INVALID_PARAMETER;
    if (kind == FT_DISPLAY_MAGNITUDE && scale != FT_DISPLAY_LINEAR && scale != FT_DISPLAY_LOG)
        return ST_INVALID_PARAMETER;
    const Kind k = kind == FT_DISPLAY_PHASE ? Kind::Phase
                   : scale == FT_DISPLAY_LOG ? Kind::LogMagnitude
                                              : Kind::Magnitude;
    const int32_t W = bmp->nWidth, H = bmp->nHeight;
    WholePicture picture(bmp, array);
    RZ_RETURN_IF_FAILED(picture.status());
    RowContextPtr ctx;
    KrnPtr<uint8_t[]> row;
    RZ_RETURN_IF_FAILED(OpenGreyContext(bmp, ctx, row));
    KrnPtr<double[]> values = KrnArray<double>(size_t(W));
    if (!values) return ST_FAILURE;

    const ArrayView view(array);
    double lo = 0.0, hi = 0.0;
    bool any = false;
    for (int32_t v = 0; v < H; ++v)
        for (int32_t u = 0; u < W; ++u) {
            double re, im;
            view.load(u, v, re, im);
            const double d = Value(k, re, im);
            if (!std::isfinite(d)) continue;
            if (!any || d < lo) lo = d;
            if (!any || d > hi) hi = d;
            any = true;
        }
    // Magnitudes scale by 255 / largest; the phase stretches between its extremes.
    const double offset = k == Kind::Phase ? lo : 0.0;
    const double range = k == Kind::Phase ? hi - lo : hi;

    ProgressState progress;
    RZ_RETURN_IF_FAILED(BeginDistribution(&progress, 0, 100, uint32_t(H)));
    for (int32_t r = 0; r < H; ++r) {
        const int32_t v = (r + H - H / 2) % H;
        for (int32_t u = 0; u < W; ++u) {
            double re, im;
            view.load(u, v, re, im);
            values[u] = Value(k, re, im);
        }
        for (int32_t c = 0; c < W; ++c) {
            const int32_t u = (c + W - W / 2) % W;
            row[c] = range > 0.0 ? ToByte((values[u] - offset) * 255.0 / range) : 0;
        }
        RZ_RETURN_IF_FAILED(PutRowQuiet(ctx.get(), row.get(), r, nullptr, 0));
        RZ_RETURN_IF_FAILED(StepDistribution(&progress));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

} // namespace
} // namespace rz::freq

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_FTDisplayBitmap(BitmapDesc *pBitmap, const FTARRAY *pFTArray, uint32_t uDisplayFlags) {
    return Guard([&] { return freq::Display(pBitmap, pFTArray, uDisplayFlags); });
}

} // extern "C"
