// Statistics of a value range of one channel, worked from the histogram:
// counts, share, extremes, median, mean and deviation in one pass over the
// range's bins (two for the deviation), so the cost after the histogram is
// the number of bins, not of pixels. Deep grey bins stand for full-scale
// values: the bin's k-bit pattern repeated over 12 or 16 bits, so results
// are in the units of the samples whatever the significant-bit range.
#include "measure/samples.h"

#include <algorithm>
#include <cmath>

namespace rz {
namespace {

// The full-scale value of bin b: its k bits repeated over s bits.
uint32_t Replicate(uint32_t b, uint32_t k, uint32_t s) {
    const uint32_t q = s / k, r = s % k;
    uint64_t e = 0;
    for (uint32_t i = 0; i < q; ++i) e = (e << k) | b;
    return static_cast<uint32_t>((e << r) | (b >> (k - r)));
}

// Folds the counts of display-table entries into 256 bins of the channel's
// byte (channel 0: a 5:2:1 grey of green, red and blue). Values past the
// table show its last entry, as on screen.
void FoldThroughTable(uint32_t *bins, uint32_t n, const RzRGBQuad *lut, uint32_t lutLength, uint32_t channel) {
    uint32_t folded[256] = {};
    for (uint32_t v = 0; v < n; ++v) {
        const RzRGBQuad &e = lut[std::min(v, lutLength - 1)];
        uint32_t g;
        switch (channel) {
        case 1: g = e.rgbRed; break;
        case 2: g = e.rgbGreen; break;
        case 3: g = e.rgbBlue; break;
        default: g = (5u * e.rgbGreen + 2u * e.rgbRed + e.rgbBlue + 4) / 8; break;
        }
        folded[g] += bins[v];
    }
    std::fill(bins, bins + n, 0u);
    std::copy(folded, folded + 256, bins);
}

// Bins first..last (indices), each standing for value(b).
template <class Value>
void Measure(const uint32_t *bins, uint32_t n, uint32_t first, uint32_t last, Value &&value, StatisticsInfo *out) {
    uint64_t inRange = 0, total = 0;
    for (uint32_t b = 0; b < n; ++b) {
        total += bins[b];
        if (b >= first && b <= last) inRange += bins[b];
    }
    out->uPixelCount = static_cast<uint32_t>(inRange);
    out->uTotalCount = static_cast<uint32_t>(total);
    if (inRange == 0) {
        out->uStdDev = out->uMean = out->uMedian = out->uMax = out->uMin = out->uPercent = 0;
        return;
    }
    out->uPercent = static_cast<uint32_t>(static_cast<double>(out->uPixelCount) * 10000.0 / out->uTotalCount);
    const uint32_t half = out->uPixelCount / 2;
    bool haveMin = false;
    uint32_t median = 0, seen = 0;
    double sum = 0;
    for (uint32_t b = first; b <= last; ++b) {
        const uint32_t c = bins[b];
        if (c == 0) continue;
        if (!haveMin) {
            out->uMin = value(b);
            haveMin = true;
        }
        out->uMax = value(b);
        sum += static_cast<double>(c) * value(b);
        if (seen < half) {
            median = value(b);
            seen += c;
        }
    }
    out->uMedian = median;
    const double mean = sum / out->uPixelCount;
    double var = 0;
    for (uint32_t b = first; b <= last; ++b)
        if (bins[b]) var += bins[b] * (value(b) - mean) * (value(b) - mean);
    var /= out->uPixelCount;
    out->uMean = static_cast<uint32_t>(mean * 100);
    out->uStdDev = static_cast<uint32_t>(std::sqrt(var) * 100);
}

} // namespace
} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_GetBitmapStatisticsInfo(BitmapDesc *bmp, StatisticsInfo *info, uint32_t channel,
                                                  uint32_t start, uint32_t end) {
    return Guard([&] {
        RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Accepted));
        if (bmp->nHighBit == -1) bmp->nHighBit = bmp->nBitsPerPixel - 1;
        if (bmp->uFlags & BMF_SIGNED) return ST_SIGNED_NOT_SUPPORTED;
        if (!info || end < start || channel > 3) return ST_INVALID_PARAMETER;
        SampleScale scale;
        RZ_RETURN_IF_FAILED(GetSampleScale(bmp, &scale));
        uint32_t n = scale.bins;
        // Folding needs 256 bins even when fewer significant bits give fewer.
        KrnPtr<uint32_t[]> bins = KrnArrayZeroed<uint32_t>(std::max(n, 256u));
        if (!bins) return ST_FAILURE;
        RZ_RETURN_IF_FAILED(Rz_GetBitmapHistogram(bmp, bins.get(), n, channel));
        if (scale.deep && (bmp->uFlags & BMF_USE_LUT)) {
            n = std::max(n, 256u);
            if (bmp->pLUT && bmp->nLUTLength > 0) {
                FoldThroughTable(bins.get(), n, bmp->pLUT, bmp->nLUTLength, channel);
                n = 256;
            }
        }
        if (!scale.deep) {
            Measure(bins.get(), n, start, std::min(end, n - 1), [](uint32_t b) { return b; }, info);
            return 1;
        }
        // Deep grey: the range in full-scale units selects bins by their top k bits.
        const uint32_t s = bmp->nBitsPerPixel == 12 ? 12 : 16, k = scale.bits;
        Measure(bins.get(), n, start >> (s - k), std::min(end >> (s - k), n - 1),
                [k, s](uint32_t b) { return Replicate(b, k, s); }, info);
        return 1;
    });
}

} // extern "C"
