// Intensity band against a reference that reads and predicts every pixel
// through KrnGetPixel (every layout, inside and outside a region), the
// palette and display-table rewrites, a hand-worked row, and OpenCV's
// inRange on Y where OpenCV is found.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#if defined(RZ_HAVE_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <vector>

namespace rz::test {
namespace {

uint32_t LumaY(uint32_t r, uint32_t g, uint32_t b) { return (3735 * b + 19235 * g + 9798 * r + 16384) >> 15; }

struct Params {
    uint32_t low, high, in, out, channel;
};

uint32_t Judge(uint32_t r, uint32_t g, uint32_t b, uint32_t channel) {
    return channel == 1 ? r : channel == 2 ? g : channel == 3 ? b : LumaY(r, g, b);
}

// Expected raw value of a changed pixel.
uint64_t Predict(const BitmapDesc *b, uint64_t raw, const Params &p) {
    const int bits = b->nBitsPerPixel;
    if (bits <= 16) {
        const int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit, count = bits <= 8 ? 8 : high - b->nLowBit + 1;
        const uint64_t mask = (1ull << count) - 1;
        const uint64_t v = bits <= 8 ? raw : (raw >> b->nLowBit) & mask;
        const uint32_t c = p.low <= v && v <= p.high ? p.in : p.out;
        const uint64_t grey = (2 * (c & 0xFF) + 5 * (c >> 8 & 0xFF) + (c >> 16 & 0xFF) + 4) / 8;
        if (bits <= 8) return grey;
        const uint64_t value = (grey * 256) >> (16 - count);
        return (raw & ~(mask << b->nLowBit)) | value << b->nLowBit;
    }
    const int w = bits >= 48 ? 16 : 8;
    const uint64_t m = (1ull << w) - 1, top = w == 16 ? 8 : 0;
    const uint32_t r = uint32_t(raw & m), g = uint32_t(raw >> w & m), bl = uint32_t(raw >> 2 * w & m);
    const uint32_t v = Judge(r, g, bl, p.channel);
    const uint32_t c = p.low <= v && v <= p.high ? p.in : p.out;
    const uint64_t rgb = uint64_t(c & 0xFF) << top | uint64_t(c >> 8 & 0xFF) << (w + top) |
                         uint64_t(c >> 16 & 0xFF) << (2 * w + top);
    return (raw & ~((1ull << 3 * w) - 1)) | rgb;
}

TEST(IntensityDetect, EveryLayoutInsideAndOutsideARegion) {
    const Params params[] = {{128, 255, 0xFFFFFF, 0, 0}, {40, 90, 0x203040, 0x00A0B0C0, 2}, {0, 200, 0x1, 0x998877, 3}};
    for (const Layout &layout : AllLayouts())
        for (const Params &p : params) {
            SCOPED_TRACE(std::string(layout.name) + " band " + std::to_string(p.low) + ".." + std::to_string(p.high));
            Bitmap b(layout, 23, 11, 6);
            const RzRect r{3, 2, 19, 10};
            ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
            const Bitmap before(b);
            std::vector<RzRGBQuad> oldPal(256);
            if (b->pPalette) KrnGetBitmapPalette(b.get(), 0, b->nColors, oldPal.data());
            const bool deep = b->nBitsPerPixel > 8 && b->nBitsPerPixel <= 16;
            Params q = p;
            if (deep) q.low *= 16, q.high *= 16; // the same band, in 12-bit significant units
            ASSERT_EQ(Rz_IntensityDetectBitmap(b.get(), q.low, q.high, q.in, q.out, q.channel), 1);
            if (b->nBitsPerPixel <= 8 && b->nDataKind == 0) {
                EXPECT_EQ(b.storedBytes(), before.storedBytes()) << "indices stay";
                for (int i = 0; i < b->nColors; ++i) {
                    const RzRGBQuad &e = oldPal[size_t(i)], &n = b->pPalette[i];
                    const uint32_t c = Judge(e.rgbRed, e.rgbGreen, e.rgbBlue, p.channel) >= p.low &&
                                               Judge(e.rgbRed, e.rgbGreen, e.rgbBlue, p.channel) <= p.high
                                           ? p.in
                                           : p.out;
                    EXPECT_EQ(n.rgbRed | n.rgbGreen << 8 | n.rgbBlue << 16, c & 0xFFFFFF) << "entry " << i;
                }
                continue;
            }
            if (layout.displayTable) {
                for (uint32_t i = 0; i < b->nLUTLength; ++i)
                    EXPECT_EQ(b->pLUT[i].rgbRed, (i >= q.low && i <= q.high ? q.in : q.out) & 0xFF) << "entry " << i;
                continue;
            }
            for (int y = 0; y < b->nHeight; ++y)
                for (int x = 0; x < b->nWidth; ++x) {
                    const bool inside = DisIsPtInRegion(b.get(), x, y) != 0;
                    const uint64_t raw = before.pixel(x, y);
                    EXPECT_EQ(b.pixel(x, y), inside ? Predict(b.get(), raw, q) : raw) << x << "," << y;
                }
        }
}

TEST(IntensityDetect, HandWorkedRowAndGreyLevelWord) {
    Bitmap b = GreyBitmap(5, 1, {0, 127, 128, 255, 200});
    ASSERT_EQ(Rz_IntensityDetectBitmap(b.get(), 128, 200, 0xFFFFFF, (1u << 26) | 9, 0), 1);
    const uint64_t want[] = {9, 9, 255, 9, 255};
    for (int x = 0; x < 5; ++x) EXPECT_EQ(b.pixel(x, 0), want[x]);
    EXPECT_EQ(Rz_IntensityDetectBitmap(b.get(), 5, 4, 0, 0, 0), ST_INVALID_PARAMETER);
}

#if defined(RZ_HAVE_OPENCV)
TEST(IntensityDetect, MaskOfYMatchesOpenCVInRange) {
    Bitmap b(FindLayout("bgr24"), 64, 48, 12);
    cv::Mat bgr(48, 64, CV_8UC3), y;
    for (int r = 0; r < 48; ++r)
        for (int c = 0; c < 64; ++c) {
            const uint64_t v = b.pixel(c, r);
            bgr.at<cv::Vec3b>(r, c) = cv::Vec3b(uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v));
        }
    cv::cvtColor(bgr, y, cv::COLOR_BGR2GRAY);
    cv::Mat mask;
    cv::inRange(y, cv::Scalar(70), cv::Scalar(180), mask);
    ASSERT_EQ(Rz_IntensityDetectBitmap(b.get(), 70, 180, 0xFFFFFF, 0, 0), 1);
    for (int r = 0; r < 48; ++r)
        for (int c = 0; c < 64; ++c) EXPECT_EQ(b.pixel(c, r) == 0xFFFFFF, mask.at<uint8_t>(r, c) == 255);
}
#endif

} // namespace
} // namespace rz::test
