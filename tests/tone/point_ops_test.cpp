// Point operations: table values worked by hand from their formulas, the
// palette / display-table / pixel paths, channels, signed samples, and
// cv::LUT as a peer on 8-bit data.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numeric>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace rz::test {
namespace {

// The 256 values 0..255 as one row of 8-bit grey samples.
Bitmap Ramp8() {
    std::vector<uint8_t> v(256);
    std::iota(v.begin(), v.end(), 0);
    return GreyBitmap(256, 1, v);
}

std::vector<uint64_t> Row(const Bitmap &b) {
    std::vector<uint64_t> out;
    for (int x = 0; x < b->nWidth; ++x) out.push_back(b.pixel(x, 0));
    return out;
}

// What an 8-bit operation does to each of 0..255.
std::vector<uint64_t> Mapped(const std::function<int32_t(BitmapDesc *)> &op) {
    Bitmap b = Ramp8();
    EXPECT_EQ(op(b.get()), 1);
    return Row(b);
}

// Each 8-bit table at a few entries, worked by hand from its formula.
TEST(PointOps, WorkedTables) {
    const struct {
        const char *what;
        std::function<int32_t(BitmapDesc *)> op;
        std::vector<std::pair<int, uint64_t>> entries;
    } cases[] = {
        {"intensity +1000", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, 1000); }, {{0, 255}, {255, 255}}},
        // (-255000 + 500) / 1000 truncates to -254: 255 maps to 1.
        {"intensity -1000", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, -1000); }, {{255, 1}, {254, 0}}},
        {"intensity -1 rounds to 0", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, -1); }, {{0, 0}, {77, 77}, {255, 255}}},
        // (255 x 200 + 500) / 1000 = 51.
        {"intensity +200", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, 200); }, {{0, 51}, {100, 151}, {204, 255}}},
        // Four levels of 85; the borders at 42.5, 127.5 and 212.5.
        {"posterize 4", [](BitmapDesc *b) { return Rz_PosterizeBitmap(b, 4); },
         {{0, 0}, {42, 0}, {43, 85}, {127, 85}, {128, 170}, {212, 170}, {213, 255}, {255, 255}}},
        // step = 512 / 255 - 1 = 1: (128 + i) / 255 is 1 from 127 on.
        {"posterize 2", [](BitmapDesc *b) { return Rz_PosterizeBitmap(b, 2); }, {{0, 0}, {126, 0}, {127, 255}, {255, 255}}},
        {"posterize 4e9 is every level", [](BitmapDesc *b) { return Rz_PosterizeBitmap(b, 4000000000u); },
         {{0, 0}, {1, 1}, {128, 128}, {254, 254}, {255, 255}}},
        // 255 (i / 255)^(1/2) rounded: 15.97, 63.87, 127.75, 159.69, 225.83, 254.50.
        {"gamma 2", [](BitmapDesc *b) { return Rz_GammaCorrectBitmap(b, 200); },
         {{0, 0}, {1, 16}, {16, 64}, {64, 128}, {100, 160}, {200, 226}, {254, 254}, {255, 255}}},
        // 255 (i / 255)^2: 1.004, 64.25, 156.86, 253.004.
        {"gamma 1/2", [](BitmapDesc *b) { return Rz_GammaCorrectBitmap(b, 50); },
         {{15, 1}, {16, 1}, {128, 64}, {200, 157}, {254, 253}, {255, 255}}},
        {"gamma 1", [](BitmapDesc *b) { return Rz_GammaCorrectBitmap(b, 100); }, {{0, 0}, {1, 1}, {77, 77}, {255, 255}}},
        {"invert", Rz_InvertBitmap, {{0, 255}, {200, 55}, {255, 0}}},
        {"solarize 128", [](BitmapDesc *b) { return Rz_SolarizeBitmap(b, 128); }, {{100, 100}, {127, 127}, {128, 127}, {200, 55}}},
        // +1000: low = 1000 x 128 / 4000 = 32; k = trunc(5.34 x 1.5^7) = 91;
        // high = 165; between them (i - 32) x 256 / 133.
        {"contrast +1000", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, 1000); },
         {{31, 0}, {32, 0}, {98, 127}, {164, 254}, {165, 255}}},
        // -1000: i x 133 / 256 + 32.
        {"contrast -1000", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, -1000); }, {{0, 32}, {128, 99}, {255, 164}}},
        // +500: low = 16; k = trunc(5.34 x 1.5^6) = 60; high = 196.
        {"contrast +500", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, 500); }, {{15, 0}, {106, 128}, {196, 255}}},
        {"contrast 0", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, 0); }, {{0, 0}, {99, 99}, {255, 255}}},
    };
    for (const auto &c : cases) {
        const std::vector<uint64_t> t = Mapped(c.op);
        for (auto [i, want] : c.entries) EXPECT_EQ(t[size_t(i)], want) << c.what << " at " << i;
    }
    // The threshold's top follows the significant bits.
    Bitmap g12(FindLayout("grey12"), 4, 1, 0);
    EXPECT_EQ(Rz_SolarizeBitmap(g12.get(), 4096), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_SolarizeBitmap(g12.get(), 4095), 1);
    Bitmap g16(FindLayout("grey16"), 4, 1, 0);
    EXPECT_EQ(Rz_SolarizeBitmap(g16.get(), 65536), ST_INVALID_PARAMETER);
    Bitmap rgb = Ramp8();
    EXPECT_EQ(Rz_SolarizeBitmap(rgb.get(), 65535), 1);
}

TEST(Paths, DisplayTableIsEditedInsteadOfPixels) {
    Bitmap b(FindLayout("grey16_lut"), 9, 5, 3);
    const Bitmap before(b);
    ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
    EXPECT_EQ(b.storedBytes(), before.storedBytes());
    EXPECT_EQ(b->pLUT[0].rgbRed, 255);
    EXPECT_EQ(b->pLUT[200].rgbGreen, 55);
}

TEST(Paths, DisplayTableOfSampleDataIsFoldedFirst) {
    Bitmap b(FindLayout("grey16_lut"), 3, 1, 0);
    b->nDataKind = 1;
    for (int i = 0; i < 256; ++i) b->pLUT[i] = {uint8_t(255 - i), uint8_t(255 - i), uint8_t(255 - i), 0};
    b.setPixel(0, 0, 0);
    b.setPixel(1, 0, 0x4000);
    b.setPixel(2, 0, 0xFFFF);
    // Inverting the folded (already inverted) samples gives them back.
    ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
    EXPECT_EQ(b->uFlags & BMF_USE_LUT, 0u);
    EXPECT_EQ(b.pixel(0, 0) >> 8, 0u);
    EXPECT_EQ(b.pixel(2, 0) >> 8, 255u);
}

TEST(Paths, ChannelSelectionTouchesOneChannelOrPaletteEntry) {
    for (const char *name : {"bgr24", "rgb24", "bgr32", "pal8_colour"}) {
        SCOPED_TRACE(name);
        Bitmap b(FindLayout(name), 7, 3, 11);
        const Bitmap before(b);
        std::vector<uint32_t> table(256);
        for (int i = 0; i < 256; ++i) table[i] = 255 - i;
        CallbackRecorder rec;
        ASSERT_EQ(Rz_RemapBitmapIntensity(b.get(), table.data(), 256, RZ_CHANNEL_GREEN), 1);
        if (b->nBitsPerPixel == 8) { // the palette only, in one step
            EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
            EXPECT_EQ(b.storedBytes(), before.storedBytes());
            RzRGBQuad p0[256], p1[256];
            KrnGetBitmapPalette(before.get(), 0, 256, p0);
            KrnGetBitmapPalette(b.get(), 0, 256, p1);
            for (int i = 0; i < 256; ++i) {
                EXPECT_EQ(p1[i].rgbGreen, 255 - p0[i].rgbGreen);
                EXPECT_EQ(p1[i].rgbRed, p0[i].rgbRed);
                EXPECT_EQ(p1[i].rgbBlue, p0[i].rgbBlue);
            }
            continue;
        }
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 7; ++x) {
                const uint64_t was = before.pixel(x, y), now = b.pixel(x, y);
                EXPECT_EQ(now & 0xFF, was & 0xFF);                      // red
                EXPECT_EQ((now >> 8) & 0xFF, 255 - ((was >> 8) & 0xFF)); // green
                EXPECT_EQ(now >> 16, was >> 16);                        // blue, fourth
            }
    }
}

TEST(LongTables, DeepColourChannelAndTwelveBitGrey) {
    Bitmap b(FindLayout("bgr64"), 5, 2, 13);
    const Bitmap before(b);
    std::vector<uint32_t> table(65536);
    for (uint32_t i = 0; i < 65536; ++i) table[i] = i / 2;
    ASSERT_EQ(Rz_RemapBitmapIntensity(b.get(), table.data(), 65536, RZ_CHANNEL_BLUE), 1);
    for (int x = 0; x < 5; ++x) {
        const uint64_t was = before.pixel(x, 1), now = b.pixel(x, 1);
        EXPECT_EQ(now & 0xFFFFFFFFu, was & 0xFFFFFFFFu);
        EXPECT_EQ((now >> 32) & 0xFFFF, ((was >> 32) & 0xFFFF) / 2);
        EXPECT_EQ(now >> 48, was >> 48); // the fourth channel is carried
    }
    // 12-bit samples index a 4096-entry table directly.
    Bitmap g(FindLayout("grey12"), 3, 1, 0);
    g.setPixel(0, 0, 0);
    g.setPixel(1, 0, 1000);
    g.setPixel(2, 0, 4095);
    std::vector<uint32_t> t12(4096);
    for (uint32_t i = 0; i < 4096; ++i) t12[i] = (i * 3) % 4096;
    ASSERT_EQ(Rz_RemapBitmapIntensity(g.get(), t12.data(), 4096, 0), 1);
    EXPECT_EQ(g.pixel(1, 0), 3000u);
    EXPECT_EQ(g.pixel(2, 0), (4095u * 3) % 4096);
    EXPECT_EQ(Rz_RemapBitmapIntensity(g.get(), t12.data(), 65536 - 1, 0), ST_INVALID_PARAMETER);
    Bitmap rgb(FindLayout("bgr24"), 3, 1, 1);
    EXPECT_EQ(Rz_RemapBitmapIntensity(rgb.get(), table.data(), 300, 0), ST_INVALID_PARAMETER);
}

TEST(Signed, TablesFollowTheSampleValue) {
    Bitmap b(FindLayout("grey16"), 4, 1, 0);
    b->uFlags |= BMF_SIGNED;
    const int16_t values[4] = {-100, 0, 32767, -32768};
    for (int x = 0; x < 4; ++x) b.setPixel(x, 0, uint16_t(values[x]));
    // offset = (65535 * 10 + 500) / 1000 = 655, clamped at the signed top.
    ASSERT_EQ(Rz_ChangeBitmapIntensity(b.get(), 10), 1);
    EXPECT_EQ(int16_t(b.pixel(0, 0)), 555);
    EXPECT_EQ(int16_t(b.pixel(1, 0)), 655);
    EXPECT_EQ(int16_t(b.pixel(2, 0)), 32767);
    EXPECT_EQ(int16_t(b.pixel(3, 0)), -32768 + 655);
    // Inverting two's complement samples is a bitwise complement: -v - 1.
    ASSERT_EQ(Rz_InvertBitmap(b.get()), 1);
    EXPECT_EQ(int16_t(b.pixel(0, 0)), -556);
    std::vector<uint32_t> t(65536, 0);
    EXPECT_EQ(Rz_RemapBitmapIntensity(b.get(), t.data(), 65536, 0), ST_SIGNED_NOT_SUPPORTED);
}

#ifdef RZ_HAVE_OPENCV
// cv::LUT applies the same table to every byte: our 8-bit grey and 24-bit
// results must be identical to it.
TEST(Peer, MatchesOpenCvLut) {
    for (const char *name : {"grey8", "bgr24"}) {
        SCOPED_TRACE(name);
        Bitmap b(FindLayout(name), 37, 23, 99);
        const int type = b->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3;
        cv::Mat src(23, 37, type);
        for (int y = 0; y < 23; ++y)
            std::memcpy(src.ptr(y), b->pData + size_t(y) * b->nStride, size_t(37) * (b->nBitsPerPixel / 8));
        std::vector<uint32_t> table(256);
        cv::Mat lut(1, 256, CV_8U);
        for (int i = 0; i < 256; ++i) {
            table[i] = (i * 7 + 3) % 256;
            lut.at<uint8_t>(i) = uint8_t(table[i]);
        }
        cv::Mat want;
        cv::LUT(src, lut, want);
        ASSERT_EQ(Rz_RemapBitmapIntensity(b.get(), table.data(), 256, 0), 1);
        for (int y = 0; y < 23; ++y)
            EXPECT_EQ(std::memcmp(want.ptr(y), b->pData + size_t(y) * b->nStride, size_t(37) * (b->nBitsPerPixel / 8)), 0)
                << "row " << y;
    }
}
#endif

} // namespace
} // namespace rz::test
