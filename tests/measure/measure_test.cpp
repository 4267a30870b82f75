// Histograms, extremes and statistics. The reference reads every pixel with
// KrnGetPixel, asks the region pixel by pixel (DisIsPtInRegion) and turns
// raw samples into values itself; statistics are checked against a sorted
// list of the values; OpenCV's calcHist and meanStdDev are the peers on
// 8-bit grey and 24-bit colour.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <tuple>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace rz::test {
namespace {

// The values the reference counts for one pixel, by channel (0 = all).
struct Reference {
    const BitmapDesc *b;
    RzRGBQuad palette[256]{};
    bool grey, deep;
    uint32_t low = 0, k = 8, sign = 0, bins = 256;

    explicit Reference(const BitmapDesc *bmp) : b(bmp) {
        const int32_t bits = b->nBitsPerPixel;
        deep = b->nColorOrder == KRN_ORDER_GRAY && (bits == 12 || bits == 16);
        grey = b->nColorOrder == KRN_ORDER_GRAY || (bits <= 8 && KrnIsGrayscale(b));
        if (bits <= 8 && b->nColorOrder != KRN_ORDER_GRAY) KrnGetBitmapPalette(b, 0, b->nColors, palette);
        if (deep) {
            low = uint32_t(std::max(b->nLowBit, 0));
            k = uint32_t((b->nHighBit == -1 ? bits - 1 : b->nHighBit) + 1) - low;
            bins = 1u << k;
        }
        if (bits >= 48) bins = 65536;
        if (b->uFlags & BMF_SIGNED && b->nColorOrder == KRN_ORDER_GRAY) sign = 1u << (k - 1);
    }
    std::vector<uint32_t> values(uint64_t raw, uint32_t channel) const {
        const int32_t bits = b->nBitsPerPixel;
        if (deep) return {(uint32_t(raw >> low) & (bins - 1)) ^ sign};
        uint32_t r, g, bl;
        if (bits <= 8 && b->nColorOrder != KRN_ORDER_GRAY) {
            r = palette[raw].rgbRed, g = palette[raw].rgbGreen, bl = palette[raw].rgbBlue;
        } else if (bits <= 8) {
            r = g = bl = uint32_t(raw) ^ sign;
        } else {
            const int s = bits >= 48 ? 16 : 8;
            const uint32_t m = (1u << s) - 1;
            r = uint32_t(raw) & m, g = uint32_t(raw >> s) & m, bl = uint32_t(raw >> 2 * s) & m;
        }
        if (grey) return {r};
        switch (channel) {
        case 1: return {r};
        case 2: return {g};
        case 3: return {bl};
        default: return {bl, g, r};
        }
    }
    template <class F> void forEach(uint32_t channel, F &&f) const {
        for (int32_t y = 0; y < b->nHeight; ++y)
            for (int32_t x = 0; x < b->nWidth; ++x) {
                if (!DisIsPtInRegion(b, x, y)) continue;
                uint64_t raw = 0;
                KrnGetPixel(b, x, y, &raw);
                for (uint32_t v : values(raw, channel)) f(v);
            }
    }
    std::vector<uint32_t> histogram(uint32_t channel) const {
        std::vector<uint32_t> h(bins);
        forEach(channel, [&](uint32_t v) { ++h[v]; });
        return h;
    }
};

void SetEllipse(Bitmap &b) {
    const RzRect r{1, 2, b->nWidth - 2, b->nHeight};
    ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
}

TEST(Histogram, EveryLayoutChannelAndRegionAgainstTheReference) {
    for (const Layout &layout : AllLayouts())
        for (bool region : {false, true})
            for (bool isSigned : {false, true}) {
                SCOPED_TRACE(std::string(layout.name) + (region ? " region" : "") + (isSigned ? " signed" : ""));
                Bitmap b(layout, 23, 9, 17);
                if (isSigned) b->uFlags |= BMF_SIGNED;
                if (region) SetEllipse(b);
                const Reference ref(b.get());
                for (uint32_t channel = 0; channel <= 3; ++channel) {
                    std::vector<uint32_t> got(ref.bins, 12345);
                    ASSERT_EQ(Rz_GetBitmapHistogram(b.get(), got.data(), ref.bins, channel), 1) << channel;
                    ASSERT_EQ(got, ref.histogram(channel)) << "channel " << channel;
                }
                uint32_t lo = UINT32_MAX, hi = 0;
                ref.forEach(0, [&](uint32_t v) {
                    lo = std::min(lo, v);
                    hi = std::max(hi, v);
                });
                int32_t mn = 0, mx = 0;
                ASSERT_EQ(Rz_GetMinMaxVal(b.get(), &mn, &mx), 1);
                EXPECT_EQ(mn, int32_t(lo) - int32_t(ref.sign));
                EXPECT_EQ(mx, int32_t(hi) - int32_t(ref.sign));
            }
}

// 2^k bins for k significant bits (nLowBit -1 read as 0 and kept); other
// bin counts, shapes past the sample, null outputs and channels refused.
TEST(Histogram, DeepShapesRefusalsAndEmptyRegions) {
    const struct {
        int32_t bits, low, high;
        uint32_t bins, channel;
        int32_t status;
    } cases[] = {{12, 0, 11, 4096, 0, 1},  {12, -1, 7, 256, 0, 1},   {16, 4, 13, 1024, 0, 1}, {16, 0, -1, 65536, 0, 1},
                 {16, 15, 15, 2, 0, 1},    {16, 4, 13, 2048, 0, ST_INVALID_PARAMETER}, {16, 9, 4, 65536, 0, ST_NO_BITMAP},
                 {16, 0, 16, 65536, 0, ST_NO_BITMAP}, {16, 0, 15, 65536, 4, ST_INVALID_PARAMETER}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.bits << " bits " << c.low << ".." << c.high << " bins " << c.bins);
        Bitmap b(FindLayout(c.bits == 12 ? "grey12" : "grey16"), 5, 5, 3);
        b->nLowBit = c.low, b->nHighBit = c.high;
        std::vector<uint32_t> h(65536 * 2);
        EXPECT_EQ(Rz_GetBitmapHistogram(b.get(), h.data(), c.bins, c.channel), c.status);
        if (c.status == 1) {
            EXPECT_EQ(std::accumulate(h.begin(), h.begin() + c.bins, 0u), 25u);
        }
        EXPECT_EQ(b->nLowBit, c.low);
    }
    Bitmap b(FindLayout("grey16"), 6, 6, 3);
    std::vector<uint32_t> h(65536, 7);
    EXPECT_EQ(Rz_GetBitmapHistogram(b.get(), nullptr, 65536, 0), ST_INVALID_PARAMETER);
    const RzRect r{1, 1, 4, 4};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_DIFF), 1); // empty
    EXPECT_EQ(Rz_GetBitmapHistogram(b.get(), h.data(), 65536, 0), 1);
    EXPECT_EQ(std::count(h.begin(), h.end(), 0u), 65536);
    int32_t mn = 5, mx = 5;
    EXPECT_EQ(Rz_GetMinMaxVal(b.get(), &mn, &mx), ST_EMPTY_REGION);
    EXPECT_EQ(mn, 5);
    EXPECT_EQ(Rz_GetMinMaxVal(b.get(), nullptr, nullptr), ST_INVALID_PARAMETER);
}

// Statistics from the definition: the median is the value at sorted
// position half - 1 (the last value before which fewer than half were
// counted), 0 when half is 0.
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
    s.uMin = in.front();
    s.uMax = in.back();
    const size_t half = in.size() / 2;
    s.uMedian = half ? in[half - 1] : 0;
    // Integer sums are exact; the mean is a double as the definition says,
    // so that its truncation to hundredths falls the same way.
    uint64_t sum = 0;
    for (uint32_t v : in) sum += v;
    const double mean = double(sum) / double(in.size());
    long double sq = 0;
    for (uint32_t v : in) sq += (v - (long double)mean) * (v - (long double)mean);
    s.uMean = uint32_t(mean * 100);
    s.uStdDev = uint32_t(std::sqrt(sq / in.size()) * 100);
    return s;
}

void ExpectStats(const StatisticsInfo &got, const StatisticsInfo &want) {
    auto exact = [](const StatisticsInfo &s) {
        return std::tie(s.uPixelCount, s.uTotalCount, s.uPercent, s.uMin, s.uMax, s.uMedian, s.uMean);
    };
    EXPECT_EQ(exact(got), exact(want));
    // Sums taken in another order may round the last digit the other way.
    EXPECT_NEAR(double(got.uStdDev), double(want.uStdDev), 1.0);
}

TEST(Statistics, WorkedExamples) {
    std::vector<uint8_t> v(200, 10);
    std::fill(v.begin() + 100, v.end(), 20);
    Bitmap b = GreyBitmap(20, 10, v);
    StatisticsInfo s{};
    s.uFirst = 0xABCD;
    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 0, 0, 255), 1);
    EXPECT_EQ(s.uFirst, 0xABCDu);
    const StatisticsInfo want{0xABCD, 500, 1500, 10, 20, 10, 200, 200, 10000};
    EXPECT_EQ(std::memcmp(&s, &want, sizeof s), 0);
    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 1, 20, 20), 1);
    EXPECT_EQ(s.uMean, 2000u);
    EXPECT_EQ(s.uStdDev, 0u);
    EXPECT_EQ(s.uPercent, 5000u);
    // No pixel in range: the total stays, everything else is 0.
    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 0, 11, 19), 1);
    EXPECT_EQ(s.uTotalCount, 200u);
    EXPECT_EQ(s.uPixelCount + s.uMean + s.uStdDev + s.uMin + s.uMax + s.uMedian + s.uPercent, 0u);
    // A range past the last bin counts nothing beyond it.
    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 0, 15, 100000), 1);
    EXPECT_EQ(s.uPixelCount, 100u);
    EXPECT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 4, 0, 255), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 0, 9, 8), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), nullptr, 0, 0, 8), ST_INVALID_PARAMETER);
    b->uFlags |= BMF_SIGNED;
    EXPECT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 0, 0, 255), ST_SIGNED_NOT_SUPPORTED);
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

TEST(Statistics, EveryLayoutAndRangeAgainstTheSortedValues) {
    struct Range {
        uint32_t first, last;
    } ranges[] = {{0, 65535}, {0, 4095}, {100, 200}, {30000, 50000}, {7, 7}};
    for (const Layout &layout : AllLayouts()) {
        if (layout.displayTable) continue; // folded: below
        for (bool region : {false, true}) {
            SCOPED_TRACE(std::string(layout.name) + (region ? " region" : ""));
            Bitmap b(layout, 21, 11, 5);
            if (region) SetEllipse(b);
            const Reference ref(b.get());
            const uint32_t s = b->nBitsPerPixel == 12 ? 12 : 16;
            for (uint32_t channel = 0; channel <= 3; ++channel) {
                std::vector<uint32_t> all;
                ref.forEach(channel, [&](uint32_t v) { all.push_back(ref.deep ? FullScale(v, ref.k, s) : v); });
                for (const Range &r : ranges) {
                    // Deep bins are chosen by their top k bits: widen the range to whole bins.
                    const uint32_t shift = ref.deep ? s - ref.k : 0;
                    const uint32_t first = (r.first >> shift) << shift;
                    const uint32_t last = std::min(((r.last >> shift) << shift) | ((1u << shift) - 1), 65535u);
                    StatisticsInfo got{};
                    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &got, channel, r.first, r.last), 1);
                    SCOPED_TRACE("channel " + std::to_string(channel) + " range " + std::to_string(r.first) + ".." +
                                 std::to_string(r.last));
                    ExpectStats(got, Expected(all, first, last));
                }
            }
        }
    }
}

TEST(Statistics, DeepValuesAreFullScale) {
    // Bits 4..11 of 16: bin 0xAB stands for 0xABAB; 12-bit bits 0..11: own units.
    Bitmap b(FindLayout("grey16"), 4, 1, 0);
    b->nLowBit = 4;
    b->nHighBit = 11;
    for (int x = 0; x < 4; ++x) b.setPixel(x, 0, x == 3 ? 0x0AC1 : 0xFABF); // 0xAB and 0xAC
    StatisticsInfo s{};
    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, 0, 0, 65535), 1);
    EXPECT_EQ(s.uMin, 0xABABu);
    EXPECT_EQ(s.uMax, 0xACACu);
    Bitmap t(FindLayout("grey12"), 2, 1, 0);
    t.setPixel(0, 0, 4095);
    t.setPixel(1, 0, 1);
    ASSERT_EQ(Rz_GetBitmapStatisticsInfo(t.get(), &s, 0, 0, 4095), 1);
    EXPECT_EQ(s.uMax, 4095u);
    EXPECT_EQ(s.uMean, 204800u);
}

TEST(Statistics, DeepGreyShownThroughATableIsFolded) {
    // Low bit 8: 256 bins, one per table entry; low bit 4: 4096 bins, those
    // past the table showing its last entry.
    for (int32_t low : {8, 4}) {
        Bitmap b(FindLayout("grey16_lut"), 8, 4, 21);
        b->nLowBit = low;
        for (uint32_t i = 0; i < 256; ++i) b->pLUT[i] = {uint8_t(i / 2), uint8_t(255 - i), uint8_t(i), 0};
        const Reference ref(b.get());
        for (uint32_t channel = 0; channel <= 3; ++channel) {
            std::vector<uint32_t> all;
            ref.forEach(0, [&](uint32_t v) {
                const RzRGBQuad &e = b->pLUT[std::min(v, 255u)];
                const uint32_t g = channel == 1 ? e.rgbRed : channel == 2 ? e.rgbGreen : channel == 3 ? e.rgbBlue
                                                                           : (5u * e.rgbGreen + 2u * e.rgbRed + e.rgbBlue + 4) / 8;
                all.push_back(FullScale(g, ref.k, 16)); // folded bins read as k-bit values
            });
            StatisticsInfo got{};
            ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &got, channel, 0, 65535), 1);
            SCOPED_TRACE(channel);
            ExpectStats(got, Expected(all, 0, 65535));
        }
    }
}

#ifdef RZ_HAVE_OPENCV
// The same pixels as a cv::Mat (BGR) with the region as a mask.
void ToMat(const Bitmap &b, cv::Mat &img, cv::Mat &mask) {
    const bool colour = b->nBitsPerPixel == 24;
    img.create(b->nHeight, b->nWidth, colour ? CV_8UC3 : CV_8UC1);
    mask.create(b->nHeight, b->nWidth, CV_8UC1);
    for (int y = 0; y < b->nHeight; ++y)
        for (int x = 0; x < b->nWidth; ++x) {
            const uint64_t v = b.pixel(x, y);
            if (colour)
                img.at<cv::Vec3b>(y, x) = cv::Vec3b(uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v));
            else
                img.at<uint8_t>(y, x) = uint8_t(v);
            mask.at<uint8_t>(y, x) = DisIsPtInRegion(b.get(), x, y) ? 255 : 0;
        }
}

TEST(Peer, CalcHistAndMeanStdDev) {
    for (const char *name : {"grey8", "bgr24"}) {
        Bitmap b(FindLayout(name), 97, 61, 29);
        SetEllipse(b);
        cv::Mat img, mask;
        ToMat(b, img, mask);
        std::vector<cv::Mat> planes;
        cv::split(img, planes);
        cv::Scalar mean, dev;
        cv::meanStdDev(img, mean, dev, mask);
        for (uint32_t channel = 1; channel <= 3; ++channel) {
            const int plane = planes.size() == 1 ? 0 : int(3 - channel);
            SCOPED_TRACE(std::string(name) + " channel " + std::to_string(channel));
            cv::Mat hist;
            const int size = 256, chan = 0;
            const float range[] = {0, 256};
            const float *ranges[] = {range};
            cv::calcHist(&planes[plane], 1, &chan, mask, hist, 1, &size, ranges);
            std::vector<uint32_t> got(256);
            ASSERT_EQ(Rz_GetBitmapHistogram(b.get(), got.data(), 256, channel), 1);
            for (int i = 0; i < 256; ++i) ASSERT_EQ(got[i], uint32_t(hist.at<float>(i))) << i;
            StatisticsInfo s{};
            ASSERT_EQ(Rz_GetBitmapStatisticsInfo(b.get(), &s, channel, 0, 255), 1);
            // Ours are truncated to hundredths.
            EXPECT_NEAR(s.uMean / 100.0, mean[plane], 0.0100001);
            EXPECT_NEAR(s.uStdDev / 100.0, dev[plane], 0.0100001);
        }
    }
}
#endif

} // namespace
} // namespace rz::test
