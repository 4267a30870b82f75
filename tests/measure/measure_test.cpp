// Histograms, extremes and statistics against a reference that reads pixels
// with KrnGetPixel, asks the region pixel by pixel and turns raw samples into
// values itself; statistics against the sorted values and worked examples.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace rz::test {
namespace {

// The values the reference counts, by channel (0 = all), for the pixels of the region.
struct Reference {
    const BitmapDesc *b;
    RzRGBQuad pal[256]{};
    bool deep, grey;
    uint32_t low = 0, k = 8, sign = 0, bins = 256;

    explicit Reference(const BitmapDesc *bmp) : b(bmp) {
        const int32_t bits = b->nBitsPerPixel, high = b->nHighBit == -1 ? bits - 1 : b->nHighBit;
        deep = b->nColorOrder == KRN_ORDER_GRAY && bits > 8 && bits <= 16;
        grey = b->nColorOrder == KRN_ORDER_GRAY || (bits <= 8 && KrnIsGrayscale(b));
        if (bits <= 8) KrnGetBitmapPalette(b, 0, b->nColors, pal);
        if (deep) low = uint32_t(std::max(b->nLowBit, 0)), k = uint32_t(high + 1) - low;
        bins = bits >= 48 ? 65536 : 1u << k;
        if (b->uFlags & BMF_SIGNED && b->nColorOrder == KRN_ORDER_GRAY) sign = 1u << (k - 1);
    }
    template <class F> void forEach(uint32_t channel, F &&f) const {
        const int32_t bits = b->nBitsPerPixel, s = bits >= 48 ? 16 : 8;
        for (int32_t y = 0; y < b->nHeight; ++y)
            for (int32_t x = 0; x < b->nWidth; ++x) {
                uint64_t raw = 0;
                if (!DisIsPtInRegion(b, x, y) || KrnGetPixel(b, x, y, &raw) != 1) continue;
                uint32_t c[3]; // red, green, blue
                for (int i = 0; i < 3; ++i)
                    c[i] = deep      ? (uint32_t(raw >> low) & (bins - 1)) ^ sign
                           : bits > 8 ? uint32_t(raw >> (i * s)) & ((1u << s) - 1)
                           : b->nColorOrder == KRN_ORDER_GRAY ? uint32_t(raw) ^ sign
                                                              : (&pal[raw].rgbBlue)[2 - i];
                if (grey || channel) {
                    f(c[grey ? 0 : channel - 1]);
                } else {
                    for (uint32_t v : c) f(v);
                }
            }
    }
};

void SetEllipse(Bitmap &b) {
    const RzRect r{1, 2, b->nWidth - 2, b->nHeight};
    ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
}

TEST(Histogram, EveryLayoutChannelAndRegionAgainstTheReference) {
    for (const Layout &layout : AllLayouts())
        for (int variant = 0; variant < 4; ++variant) { // bit 0: a region, bit 1: signed
            SCOPED_TRACE(testing::Message() << layout.name << " variant " << variant);
            Bitmap b(layout, 23, 9, 17);
            if (variant & 2) b->uFlags |= BMF_SIGNED;
            if (variant == 2 && layout.order == KRN_ORDER_GRAY && layout.bits > 8)
                b->nLowBit = 3, b->nHighBit = layout.bits == 12 ? 9 : 13; // 2^k bins for k bits
            if (variant & 1) SetEllipse(b);
            const Reference ref(b.get());
            for (uint32_t channel = 0; channel <= 3; ++channel) {
                std::vector<uint32_t> got(ref.bins, 12345), want(ref.bins);
                ref.forEach(channel, [&](uint32_t v) { ++want[v]; });
                ASSERT_EQ(Rz_GetBitmapHistogram(b.get(), got.data(), ref.bins, channel), 1);
                ASSERT_EQ(got, want) << "channel " << channel;
            }
            uint32_t lo = UINT32_MAX, hi = 0;
            ref.forEach(0, [&](uint32_t v) { lo = std::min(lo, v), hi = std::max(hi, v); });
            int32_t mn = 0, mx = 0;
            ASSERT_EQ(Rz_GetMinMaxVal(b.get(), &mn, &mx), 1);
            EXPECT_EQ(mn, int32_t(lo) - int32_t(ref.sign));
            EXPECT_EQ(mx, int32_t(hi) - int32_t(ref.sign));
        }
}

// An empty region counts nothing and has no extremes.
TEST(Histogram, EmptyRegion) {
    Bitmap b(FindLayout("grey16"), 6, 6, 3);
    std::vector<uint32_t> h(65536, 7);
    const RzRect r{1, 1, 4, 4};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_DIFF), 1); // empty
    EXPECT_EQ(Rz_GetBitmapHistogram(b.get(), h.data(), 65536, 0), 1);
    EXPECT_EQ(std::count(h.begin(), h.end(), 0u), 65536);
    int32_t mn = 5, mx = 5;
    EXPECT_EQ(Rz_GetMinMaxVal(b.get(), &mn, &mx), ST_EMPTY_REGION);
    EXPECT_EQ(mn, 5);
}

// Statistics from the definition: the median is the value at sorted position
// half - 1 (the last before which fewer than half were counted), 0 when half is 0.
StatisticsInfo Expected(const std::vector<uint32_t> &all, uint32_t first, uint32_t last) {
    StatisticsInfo s{};
    std::vector<uint32_t> in;
    for (uint32_t v : all)
        if (v >= first && v <= last) in.push_back(v);
    std::sort(in.begin(), in.end());
    s.uTotalCount = uint32_t(all.size());
    s.uPixelCount = uint32_t(in.size());
    if (in.empty()) return s;
    s.uPercent = uint32_t(in.size() * 10000.0 / all.size());
    s.uMin = in.front(), s.uMax = in.back(), s.uMedian = in.size() > 1 ? in[in.size() / 2 - 1] : 0;
    // Integer sums are exact; the mean is a double so that its truncation
    // to hundredths falls the same way.
    const double mean = double(std::accumulate(in.begin(), in.end(), uint64_t(0))) / in.size();
    long double sq = 0;
    for (uint32_t v : in) sq += (v - (long double)mean) * (v - (long double)mean);
    s.uMean = uint32_t(mean * 100);
    s.uStdDev = uint32_t(std::sqrt(sq / in.size()) * 100);
    return s;
}

// Sums taken in another order may round the deviation's last digit the other way.
void ExpectStats(StatisticsInfo got, const StatisticsInfo &want) {
    EXPECT_NEAR(double(got.uStdDev), double(want.uStdDev), 1.0);
    got.uStdDev = want.uStdDev, got.uFirst = want.uFirst;
    EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << got.uMean << " " << got.uMedian;
}

// Worked by hand: 100 pixels of 10 and 100 of 20 on 8-bit grey; bits 4..11
// of 16 (bin 0xAB stands for 0xABAB); 12-bit grey in its own units.
TEST(Statistics, WorkedExamples) {
    std::vector<uint8_t> v(200, 10);
    std::fill(v.begin() + 100, v.end(), 20);
    Bitmap b = GreyBitmap(20, 10, v), d(FindLayout("grey16"), 4, 1, 0);
    Bitmap t(FindLayout("grey12"), 2, 1, 0);
    d->nLowBit = 4, d->nHighBit = 11;
    for (int x = 0; x < 4; ++x) d.setPixel(x, 0, x == 3 ? 0x0AC1 : 0xFABF); // 0xAB and 0xAC
    t.setPixel(0, 0, 4095), t.setPixel(1, 0, 1);
    const struct {
        Bitmap *b;
        uint32_t channel, first, last;
        StatisticsInfo want; // uFirst, deviation, mean, median, max, min, count, total, percent
    } cases[] = {
        {&b, 0, 0, 255, {0xABCD, 500, 1500, 10, 20, 10, 200, 200, 10000}},
        {&b, 1, 20, 20, {0xABCD, 0, 2000, 20, 20, 20, 100, 200, 5000}},
        {&b, 0, 11, 19, {0xABCD, 0, 0, 0, 0, 0, 0, 200, 0}}, // nothing in range: the total stays
        {&b, 0, 15, 100000, {0xABCD, 0, 2000, 20, 20, 20, 100, 200, 5000}}, // past the last bin
        {&d, 0, 0, 65535, {0xABCD, 11128, 4401125, 0xABAB, 0xACAC, 0xABAB, 4, 4, 10000}},
        {&t, 0, 0, 4095, {0xABCD, 204700, 204800, 1, 4095, 1, 2, 2, 10000}},
    };
    for (const auto &c : cases) {
        StatisticsInfo s{};
        s.uFirst = 0xABCD; // neither read nor written
        ASSERT_EQ(Rz_GetBitmapStatisticsInfo(c.b->get(), &s, c.channel, c.first, c.last), 1);
        EXPECT_EQ(std::memcmp(&s, &c.want, sizeof s), 0) << c.first << ".." << c.last;
    }
}

// Full-scale value of a k-bit bin in an s-bit frame, by repetition of its
// bit string (written differently from the library: as a string of bits).
uint32_t FullScale(uint32_t b, uint32_t k, uint32_t s) {
    std::string bits;
    for (uint32_t i = 0; i < k; ++i) bits += (b >> (k - 1 - i)) & 1 ? '1' : '0';
    std::string frame;
    while (frame.size() < s) frame += bits;
    return uint32_t(std::stoul(frame.substr(0, s), nullptr, 2));
}

// Every layout, channel and range; deep grey shown through a table is folded
// through it first: 256 bins at low bit 8; at low bit 4, 4096 bins, those
// past the table showing its last entry.
TEST(Statistics, EveryLayoutAndRangeAgainstTheSortedValues) {
    const uint32_t ranges[][2] = {{0, 65535}, {0, 4095}, {100, 200}, {30000, 50000}, {7, 7}};
    for (const Layout &layout : AllLayouts())
        for (int variant = 0; variant < 2; ++variant) {
            SCOPED_TRACE(testing::Message() << layout.name << " variant " << variant);
            Bitmap b(layout, 21, 11, 5);
            if (layout.displayTable) {
                b->nLowBit = variant ? 4 : 8;
                for (uint8_t i = 0; i < 255; ++i) b->pLUT[i] = {uint8_t(i / 2), uint8_t(~i), i, 0};
            } else if (variant) {
                SetEllipse(b);
            }
            const Reference ref(b.get());
            const uint32_t s = b->nBitsPerPixel == 12 ? 12 : 16;
            for (uint32_t channel = 0; channel <= 3; ++channel) {
                std::vector<uint32_t> all;
                ref.forEach(layout.displayTable ? 0 : channel, [&](uint32_t v) {
                    if (layout.displayTable) {
                        const RzRGBQuad &e = b->pLUT[std::min(v, 255u)];
                        const uint32_t g = (5u * e.rgbGreen + 2u * e.rgbRed + e.rgbBlue + 4) / 8;
                        const uint32_t c[4] = {g, e.rgbRed, e.rgbGreen, e.rgbBlue};
                        v = c[channel];
                    }
                    all.push_back(ref.deep ? FullScale(v, ref.k, s) : v);
                });
                for (const auto &r : ranges) {
                    // Deep bins are chosen by their top k bits: widen the range to whole bins.
                    const uint32_t shift = ref.deep ? s - ref.k : 0;
                    const uint32_t first = (r[0] >> shift) << shift;
                    const uint32_t last = std::min(r[1] | ((1u << shift) - 1), 65535u);
                    StatisticsInfo got{};
                    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &got, channel, r[0], r[1]), 1);
                    SCOPED_TRACE(testing::Message() << channel << ": " << r[0] << ".." << r[1]);
                    ExpectStats(got, Expected(all, first, last));
                }
            }
        }
}

} // namespace
} // namespace rz::test
