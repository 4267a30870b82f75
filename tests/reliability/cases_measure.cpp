// Measurements: histograms, extremes and statistics, on every layout; deep
// grey also with narrower significant bits, and other channels.
#include "support/reliability.h"

#include <vector>

namespace {

// Bins of the histogram shape of a bitmap.
uint32_t Bins(const BitmapDesc *b) {
    if (b->nBitsPerPixel >= 48) return 65536;
    if (b->nColorOrder == KRN_ORDER_GRAY && (b->nBitsPerPixel == 12 || b->nBitsPerPixel == 16)) {
        const int32_t high = b->nHighBit == -1 ? b->nBitsPerPixel - 1 : b->nHighBit;
        const int32_t low = b->nLowBit < 0 ? 0 : b->nLowBit;
        return high >= low && high - low < 16 ? 1u << (high - low + 1) : 0;
    }
    return 256;
}

using rz::test::WithNarrowBits;

RZ_RELIABILITY_CASE(Rz_GetBitmapHistogram, [](BitmapDesc *b) {
    return WithNarrowBits(b, [](BitmapDesc *d, bool alt) {
        std::vector<uint32_t> bins(65536);
        return Rz_GetBitmapHistogram(d, bins.data(), d ? Bins(d) : 256, alt ? 2 : 0);
    });
});

RZ_RELIABILITY_CASE(Rz_GetMinMaxVal, [](BitmapDesc *b) {
    return WithNarrowBits(b, [](BitmapDesc *d, bool alt) {
        int32_t lo = 0, hi = 0;
        return Rz_GetMinMaxVal(d, alt ? nullptr : &lo, &hi);
    });
});

RZ_RELIABILITY_CASE(Rz_GetBitmapStatisticsInfo, [](BitmapDesc *b) {
    return WithNarrowBits(b, [](BitmapDesc *d, bool alt) {
        StatisticsInfo info{};
        return alt ? Rz_GetBitmapStatisticsInfo(d, &info, 3, 100, 2000)
                   : Rz_GetBitmapStatisticsInfo(d, &info, 0, 0, 65535);
    });
});

} // namespace
