// Histograms and extremes of the region's samples. Both are one read-only
// pass over the region through the row context: 12/16-bit grey rows are
// read raw and each sample reduced to its significant value (shift, mask,
// and the sign bit flipped for signed data so that bins run from the most
// negative value up); other depths arrive as 8 or 16-bit working samples
// with palettes already looked up. A bin is one increment per sample.
#include "measure/samples.h"

#include <algorithm>
#include <cstring>

namespace rz {

int32_t GetSampleScale(const BitmapDesc *bmp, SampleScale *s) {
    const int32_t bits = bmp->nBitsPerPixel;
    const bool greyOrder = bmp->nColorOrder == KRN_ORDER_GRAY;
    const bool isSigned = (bmp->uFlags & BMF_SIGNED) != 0;
    *s = SampleScale{};
    if ((bits == 12 || bits == 16) && greyOrder) {
        const int32_t low = std::max(bmp->nLowBit, 0);
        const int32_t high = bmp->nHighBit == -1 ? bits - 1 : bmp->nHighBit;
        if (high < low || high >= bits) return ST_NO_BITMAP;
        s->format = bits == 12 ? SampleFormat::Deep12 : SampleFormat::Deep16;
        s->mode = RC_RAW_DEEP_GRAY;
        s->deep = true;
        s->bits = static_cast<uint32_t>(high - low + 1);
        s->low = static_cast<uint32_t>(low);
        s->bins = 1u << s->bits;
        s->sign = isSigned ? 1u << (s->bits - 1) : 0;
        return 1;
    }
    if (bits == 48 || bits == 64) {
        s->format = SampleFormat::Colour48;
        s->bins = 65536;
        s->bits = 16;
        return 1;
    }
    const bool known = (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32;
    if (!known) return ST_BAD_PIXEL_FORMAT;
    if (bits <= 8 && (greyOrder || KrnIsGrayscale(bmp))) {
        s->format = SampleFormat::Grey8;
        s->mode = RC_WORK8;
        s->sign = greyOrder && isSigned ? 0x80 : 0;
    } else {
        s->format = SampleFormat::Colour24;
    }
    return 1;
}

int32_t CountSamples(BitmapDesc *bmp, const SampleScale &s, uint32_t channel, uint32_t *bins) {
    std::memset(bins, 0, sizeof(uint32_t) * s.bins);
    const int32_t st = ForEachSample(bmp, s, channel, [bins](uint32_t v) { ++bins[v]; });
    return st == ST_NOTHING_TO_DO ? ReportDone(bmp) : st;
}

} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_GetBitmapHistogram(BitmapDesc *bmp, uint32_t *hist, uint32_t bins, uint32_t channel) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        if (!hist || channel > 3) return ST_INVALID_PARAMETER;
        SampleScale scale;
        RZ_RETURN_IF_FAILED(GetSampleScale(bmp, &scale));
        if (bins != scale.bins) return ST_INVALID_PARAMETER;
        return CountSamples(bmp, scale, channel, hist);
    });
}

RZIMG_API int32_t RZAPI Rz_GetMinMaxVal(BitmapDesc *bmp, int32_t *pMin, int32_t *pMax) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        if (!pMin && !pMax) return ST_INVALID_PARAMETER;
        SampleScale scale;
        RZ_RETURN_IF_FAILED(GetSampleScale(bmp, &scale));
        uint32_t lo = UINT32_MAX, hi = 0;
        const int32_t st = ForEachSample(bmp, scale, 0, [&](uint32_t v) {
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        });
        if (st == ST_NOTHING_TO_DO) {
            const int32_t done = ReportDone(bmp);
            return done == 1 ? ST_EMPTY_REGION : done;
        }
        if (st != 1) return st;
        if (lo > hi) return ST_EMPTY_REGION;
        // Counted from the most negative value: shift back for signed data.
        const int32_t bias = static_cast<int32_t>(scale.sign);
        if (pMin) *pMin = static_cast<int32_t>(lo) - bias;
        if (pMax) *pMax = static_cast<int32_t>(hi) - bias;
        return 1;
    });
}

} // extern "C"
