// Frequency filters: zero a rectangle of the spectrum or everything around
// it (Rz_FrqFilterBitmap), or weight the spectrum by a mask picture laid
// over its centred display (Rz_FrqFilterMaskBitmap).
#include "frequency/ft_common.h"

namespace rz::freq {
namespace {

// Rows or columns [lo, hi] of the centred picture, as array indices: one
// run, or two when the run wraps around the array's end.
struct Runs {
    int32_t lo[2], hi[2], count = 0;
    Runs(int32_t first, int32_t last, int32_t n, bool centred) {
        const int32_t shift = centred ? n - n / 2 : 0;
        const int32_t a = (first + shift) % n, b = (last + shift) % n;
        if (a <= b) {
            lo[0] = a, hi[0] = b, count = 1;
        } else {
            lo[0] = 0, hi[0] = b, lo[1] = a, hi[1] = n - 1, count = 2;
        }
    }
    bool contains(int32_t i) const {
        for (int32_t k = 0; k < count; ++k)
            if (i >= lo[k] && i <= hi[k]) return true;
        return false;
    }
};

int32_t FilterRect(FTARRAY *array, const int32_t *rect, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckArray(array));
    const uint32_t coords = flags & 0xFF0F, side = flags & 0xFFF0;
    if (coords != FRQ_ARRAY_COORDS && coords != FRQ_CENTRED_COORDS) return ST_INVALID_PARAMETER;
    if (side != FRQ_KEEP_INSIDE && side != FRQ_ZERO_INSIDE) return ST_INVALID_PARAMETER;
    if (!rect) return ST_INVALID_PARAMETER;
    const int64_t W = array->uWidth, H = array->uHeight;
    if (rect[0] < 0 || rect[0] > rect[2] || rect[2] >= W || rect[1] < 0 || rect[1] > rect[3] || rect[3] >= H)
        return ST_INVALID_PARAMETER;
    const bool centred = coords == FRQ_CENTRED_COORDS;
    const Runs cols(rect[0], rect[2], int32_t(W), centred), rows(rect[1], rect[3], int32_t(H), centred);
    const bool zeroInside = side == FRQ_ZERO_INSIDE;
    const ArrayView view(array);
    ProgressState progress;
    RZ_RETURN_IF_FAILED(BeginDistribution(&progress, 0, 100, uint32_t(H)));
    for (int32_t v = 0; v < H; ++v) {
        const bool rowInside = rows.contains(v);
        for (int32_t u = 0; u < W; ++u)
            if ((rowInside && cols.contains(u)) == zeroInside) view.store(u, v, 0.0, 0.0);
        RZ_RETURN_IF_FAILED(StepDistribution(&progress));
    }
    return ST_SUCCESS;
}

int32_t FilterMask(BitmapDesc *mask, FTARRAY *array, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckArray(array));
    RZ_RETURN_IF_FAILED(CheckBitmap(mask, Signed::Refused));
    RZ_RETURN_IF_FAILED(CheckAddressable(mask));
    RZ_RETURN_IF_FAILED(CheckSizes(mask, array));
    if (flags != 0) return ST_INVALID_PARAMETER;
    const int32_t W = mask->nWidth, H = mask->nHeight;
    WholePicture picture(mask, array);
    RZ_RETURN_IF_FAILED(picture.status());
    RowContextPtr ctx;
    KrnPtr<uint8_t[]> row;
    RZ_RETURN_IF_FAILED(OpenGreyContext(mask, ctx, row));
    const ArrayView view(array);
    ProgressState progress;
    RZ_RETURN_IF_FAILED(BeginDistribution(&progress, 0, 100, uint32_t(H)));
    for (int32_t r = 0; r < H; ++r) {
        RZ_RETURN_IF_FAILED(GetRow(ctx.get(), row.get(), r, nullptr, nullptr));
        const int32_t v = (r + H - H / 2) % H;
        for (int32_t u = 0; u < W; ++u) {
            const uint8_t m = row[(u + W / 2) % W];
            double re = 0.0, im = 0.0;
            if (m != 0) {
                const double f = m * 0.00392156862745098;
                view.load(u, v, re, im);
                re *= f;
                im *= f;
            }
            view.store(u, v, re, im);
        }
        RZ_RETURN_IF_FAILED(StepDistribution(&progress));
    }
    return ST_SUCCESS;
}

} // namespace
} // namespace rz::freq

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_FrqFilterBitmap(FTARRAY *pFTArray, const int32_t *prcRange, uint32_t uFilterFlags) {
    return Guard([&] { return freq::FilterRect(pFTArray, prcRange, uFilterFlags); });
}

RZIMG_API int32_t RZAPI Rz_FrqFilterMaskBitmap(BitmapDesc *pBitmap, FTARRAY *pFTArray, uint32_t uMaskFlags) {
    return Guard([&] { return freq::FilterMask(pBitmap, pFTArray, uMaskFlags); });
}

} // extern "C"
