// The integer colour models: forward values worked out by hand from the
// formulas, the byte-scale inverse table, the dispatcher's contract, and
// the inverses we chose, checked over every 8-bit colour: converting back
// and forward again must give the very same record (the colour returned is
// one the scale cannot tell from the original), and the largest channel
// error of the round trip is printed.
#include "colour/colour_models.h"

#include <rzimg.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace rz::colour {
namespace {

int MaxDiff(const Rgb &a, int r, int g, int b) {
    return std::max({std::abs(a.r - r), std::abs(a.g - g), std::abs(a.b - b)});
}

void ExpectRgb(const Rgb &c, int r, int g, int b) {
    EXPECT_EQ(c.r, r);
    EXPECT_EQ(c.g, g);
    EXPECT_EQ(c.b, b);
}

TEST(ColourModels, ByteHsvOfPrimariesAndGreys) {
    // Hue (0 + 180) / 360, (30720 + 180) / 360, (30720 + 30900) / 360.
    EXPECT_EQ(ByteHsvFromRgb(255, 0, 0).h, 0);
    EXPECT_EQ(ByteHsvFromRgb(0, 255, 0).h, 85);
    EXPECT_EQ(ByteHsvFromRgb(0, 0, 255).h, 171);
    EXPECT_EQ(ByteHsvFromRgb(0, 0, 255).s, 255);
    const Hsv grey = ByteHsvFromRgb(77, 77, 77);
    EXPECT_EQ(grey.h, 0);
    EXPECT_EQ(grey.s, 0);
    EXPECT_EQ(grey.v, 77);
    // (200, 100, 50): blue minimum, 30720 x 50 / (150 + 50) = 7680, (7680 + 180) / 360 = 21;
    // saturation 150 x 255 / 200 = 191.
    const Hsv c = ByteHsvFromRgb(200, 100, 50);
    EXPECT_EQ(c.h, 21);
    EXPECT_EQ(c.s, 191);
    EXPECT_EQ(c.v, 200);
    // Green minimum just short of a full turn reaches 256: (61620 + 30599) / 360.
    EXPECT_EQ(ByteHsvFromRgb(254, 0, 1).h, 256);
}

TEST(ColourModels, ByteHsvInverseFollowsItsTable) {
    // Hue 85: d = 85 x 360 >> 8 = 119, second row: red = 255 x 1 / 119 = 2.
    ExpectRgb(RgbFromByteHsv(85, 255, 255), 2, 255, 0);
    // Hue 21: d = 29; mn = (255 - 191) x 200 / 255 = 50, k = 150, green = 50 + 150 x 29 / 91 = 97.
    ExpectRgb(RgbFromByteHsv(21, 191, 200), 200, 97, 50);
    // Hue 171: d = 240, fourth row: green = mn + k x 0 / 120.
    ExpectRgb(RgbFromByteHsv(171, 255, 255), 0, 0, 255);
    // Hue 250: d = 351, last row: blue = 255 x 9 / 111 = 20.
    ExpectRgb(RgbFromByteHsv(250, 255, 255), 255, 0, 20);
    ExpectRgb(RgbFromByteHsv(200, 0, 90), 90, 90, 90);
}

TEST(ColourModels, DegreesHsvAndHlsByHand) {
    const Hsv red = DegHsvFromRgb<uint8_t>(255, 0, 0), green = DegHsvFromRgb<uint8_t>(0, 255, 0),
              blue = DegHsvFromRgb<uint8_t>(0, 0, 255);
    EXPECT_EQ(red.h, 0);
    EXPECT_EQ(green.h, 120);
    EXPECT_EQ(blue.h, 240);
    EXPECT_EQ(red.s, 100);
    // (200, 100, 50): 120 x 50 / 200 = 30; 150 x 100 / 200 = 75.
    const Hsv c = DegHsvFromRgb<uint8_t>(200, 100, 50);
    EXPECT_EQ(c.h, 30);
    EXPECT_EQ(c.s, 75);
    // HLS: L = 128 still divides by max + min: (255, 1, 1) gives 254 x 100 / 256 = 99,
    // L = 129 by 510 - max - min: (255, 3, 3) gives 252 x 100 / 252 = 100.
    EXPECT_EQ(DegHlsFromRgb<uint8_t>(255, 1, 1).l, 128);
    EXPECT_EQ(DegHlsFromRgb<uint8_t>(255, 1, 1).s, 99);
    EXPECT_EQ(DegHlsFromRgb<uint8_t>(255, 3, 3).s, 100);
    // Six-sector hue: (200, 100, 150), red maximum: 60 x (100 - 150) / 100 = -30 -> 330.
    EXPECT_EQ(DegHlsFromRgb<uint8_t>(200, 100, 150).h, 330);
    // A difference under one degree truncates toward zero, not down to 359.
    EXPECT_EQ(DegHlsFromRgb<uint8_t>(255, 0, 1).h, 0);
    EXPECT_EQ(DegHlsFromRgb<uint8_t>(0, 0, 255).h, 240);
    // 16-bit channels: hundredths of a degree and of a percent.
    EXPECT_EQ(DegHsvFromRgb<uint16_t>(0, 65535, 0).h, 12000);
    EXPECT_EQ(DegHsvFromRgb<uint16_t>(51400, 25700, 12850).h, 3000);
    EXPECT_EQ(DegHsvFromRgb<uint16_t>(51400, 25700, 12850).s, 7500);
}

TEST(ColourModels, ByteScaleHlsByHand) {
    // (200, 100, 100): L = 150, S = 100 x 255 / 210 = 121, hue 0.
    const Hls f = ScaleHlsFromRgb<uint8_t>(200, 100, 100);
    EXPECT_EQ(f.l, 150);
    EXPECT_EQ(f.s, 121);
    EXPECT_EQ(f.h, 0);
    // Back with S = 181: q = 181 + 150 - 181 x 150 / 255 = 225, p = 75.
    ExpectRgb(RgbFromScaleHls<uint8_t>(0, 150, 181), 225, 75, 75);
    // Blue maximum: (50, 100, 200): (50 - 100) x 255 / 900 = -14 -> 170 - 14 = 156.
    EXPECT_EQ(ScaleHlsFromRgb<uint8_t>(50, 100, 200).h, 156);
    ExpectRgb(RgbFromScaleHls<uint8_t>(40, 99, 0), 99, 99, 99);
    // Pure red: L = 127, S = 255 (sum below 256), and back exactly.
    const Hls red = ScaleHlsFromRgb<uint8_t>(255, 0, 0);
    EXPECT_EQ(red.s, 255);
    ExpectRgb(RgbFromScaleHls<uint8_t>(red.h, red.l, red.s), 254, 0, 0);
}

TEST(ColourModels, WordScaleHsv) {
    // (degrees x 65792 + 46260) / 360: red 128, green (120 x 65792 + 46260) / 360 = 22059,
    // blue (240 x 65792 + 46260) / 360 = 43989.
    EXPECT_EQ(WordHsvFromRgb(65535, 0, 0).h, 128);
    EXPECT_EQ(WordHsvFromRgb(0, 65535, 0).h, 22059);
    EXPECT_EQ(WordHsvFromRgb(0, 0, 65535).h, 43989);
    EXPECT_EQ(WordHsvFromRgb(65535, 0, 32768).s, 65535);
    ExpectRgb(RgbFromWordHsv(128, 65535, 65535), 65535, 0, 0);
    ExpectRgb(RgbFromWordHsv(22059, 65535, 65535), 0, 65535, 0);
    // A hue below 128 only comes from a rotation and lies at the top of the turn.
    const Rgb top = RgbFromWordHsv(0, 65535, 65535);
    EXPECT_EQ(top.r, 65535);
    EXPECT_EQ(top.g, 0);
    EXPECT_GT(top.b, 0);
}

TEST(ColourDispatcher, RefusesBadModesAndRows) {
    uint8_t px[6] = {1, 2, 3, 4, 5, 6};
    HsvRecord<uint8_t> rec[2]{};
    EXPECT_EQ(ConvertColourRow8(27, px, rec, 0, 2), ST_INVALID_PARAMETER);
    EXPECT_EQ(ConvertColourRow8(-1, px, rec, 0, 2), ST_INVALID_PARAMETER);
    EXPECT_EQ(ConvertColourRow8(CS_RGB_TO_HSV, nullptr, rec, 0, 2), ST_INVALID_PARAMETER);
    EXPECT_EQ(ConvertColourRow16(CS_RGB_TO_HSV, px, nullptr, 0, 1), ST_INVALID_PARAMETER);
    EXPECT_EQ(ConvertColourPixel(30, px, rec), ST_INVALID_PARAMETER);
    // Modes of the colour thresholds are not provided here.
    EXPECT_EQ(ConvertColourRow8(5, px, rec, 0, 2), ST_BAD_TYPE);
    EXPECT_EQ(ConvertColourPixel(0, px, rec), ST_BAD_TYPE);
}

TEST(ColourDispatcher, ConvertsOnlyTheColumnRange) {
    // Pixels are blue, green, red; the records of pixels outside [1, 3) stay.
    const uint8_t px[9] = {0, 0, 255, 50, 100, 200, 255, 0, 0};
    HsvRecord<uint8_t> rec[3];
    std::fill(std::begin(rec), std::end(rec), HsvRecord<uint8_t>{999, 9, 9});
    ASSERT_EQ(ConvertColourRow8(CS_RGB_TO_HSV, px, rec, 1, 3), ST_SUCCESS);
    EXPECT_EQ(rec[0].hue, 999);
    EXPECT_EQ(rec[1].hue, 30); // red 200, green 100, blue 50: 120 x 50 / 200
    EXPECT_EQ(rec[2].hue, 240);
    HlsRecord<uint8_t> hls[1];
    ASSERT_EQ(ConvertColourRow8(CS_RGB_TO_HLS, px, hls, 0, 1), ST_SUCCESS);
    EXPECT_EQ(hls[0].hue, 0);
    EXPECT_EQ(hls[0].light, 127);
    EXPECT_EQ(hls[0].sat, 100);
    // A palette entry keeps its reserved byte.
    RzRGBQuad entry{10, 20, 30, 77};
    HsvRecord<uint8_t> one{};
    ASSERT_EQ(ConvertColourPixel(CS_RGB_TO_HSV, &entry, &one), ST_SUCCESS);
    EXPECT_EQ(one.val, 30);
    one.hue = static_cast<uint16_t>((one.hue + 120) % 360);
    ASSERT_EQ(ConvertColourPixel(CS_HSV_TO_RGB, &one, &entry), ST_SUCCESS);
    EXPECT_EQ(entry.rgbReserved, 77);
    // (30, 20, 10) is hue 40, saturation 66, value 30. At hue 160 green is the
    // maximum and red the minimum (30 - 20 = 10); blue rises by the least
    // amount whose share is 40 of the third's 120: 10.
    EXPECT_EQ(entry.rgbRed, 10);
    EXPECT_EQ(entry.rgbGreen, 30);
    EXPECT_EQ(entry.rgbBlue, 20);
}

// Every 8-bit colour through the dispatcher: forward, back, forward again.
template <class T, class Rec>
void CheckEveryColour(int32_t toModel, int32_t toRgb, int scale, const char *label, int bound,
                      bool greyWhenUnsaturated) {
    const int32_t n = 65536;
    std::vector<T> row(3 * n), back(3 * n);
    std::vector<Rec> rec(n), again(n);
    auto convert = [](int32_t mode, const void *src, void *dst, int32_t count) {
        if constexpr (sizeof(T) == 1)
            return ConvertColourRow8(mode, src, dst, 0, count);
        else
            return ConvertColourRow16(mode, src, dst, 0, count);
    };
    int worst = 0;
    long mismatches = 0;
    for (int r = 0; r < 256; ++r) {
        for (int i = 0; i < n; ++i) {
            row[3 * i] = static_cast<T>((i & 255) * scale);
            row[3 * i + 1] = static_cast<T>((i >> 8) * scale);
            row[3 * i + 2] = static_cast<T>(r * scale);
        }
        ASSERT_EQ(convert(toModel, row.data(), rec.data(), n), ST_SUCCESS);
        ASSERT_EQ(convert(toRgb, rec.data(), back.data(), n), ST_SUCCESS);
        ASSERT_EQ(convert(toModel, back.data(), again.data(), n), ST_SUCCESS);
        for (int i = 0; i < n; ++i) {
            const Rgb got{back[3 * i + 2], back[3 * i + 1], back[3 * i]};
            worst = std::max(worst, MaxDiff(got, row[3 * i + 2], row[3 * i + 1], row[3 * i]));
            const Rec &a = rec[i], &b = again[i];
            if (std::memcmp(&a, &b, sizeof(Rec)) == 0) continue;
            // A hue whose saturation truncated to 0 is dropped: the inverse
            // keeps greys grey through every hue rotation.
            const bool greyed = greyWhenUnsaturated && reinterpret_cast<const HsvRecord<T> &>(a).sat == 0 &&
                                got.r == got.g && got.g == got.b;
            if (!greyed && mismatches++ < 5)
                ADD_FAILURE() << label << ": (" << int(row[3 * i + 2]) << ", " << int(row[3 * i + 1]) << ", "
                              << int(row[3 * i]) << ") comes back as (" << got.r << ", " << got.g << ", " << got.b
                              << "), whose record differs";
        }
    }
    EXPECT_EQ(mismatches, 0) << label;
    EXPECT_LE(worst, bound) << label;
    std::printf("[ colour   ] %s: largest channel error of a round trip over every 8-bit colour: %d\n", label, worst);
    ::testing::Test::RecordProperty(label, worst);
}

TEST(ColourInverses, DegreesHsvOfBytes) {
    CheckEveryColour<uint8_t, HsvRecord<uint8_t>>(CS_RGB_TO_HSV, CS_HSV_TO_RGB, 1, "mode 17 (8-bit)", 9, true);
}
TEST(ColourInverses, DegreesHlsOfBytes) {
    CheckEveryColour<uint8_t, HlsRecord<uint8_t>>(CS_RGB_TO_HLS, CS_HLS_TO_RGB, 1, "mode 18 (8-bit)", 5, false);
}
TEST(ColourInverses, DegreesHsvOfWords) {
    CheckEveryColour<uint16_t, HsvRecord<uint16_t>>(CS_RGB_TO_HSV, CS_HSV_TO_RGB, 257, "mode 17 (16-bit)", 24,
                                                    true);
}
TEST(ColourInverses, DegreesHlsOfWords) {
    CheckEveryColour<uint16_t, HlsRecord<uint16_t>>(CS_RGB_TO_HLS, CS_HLS_TO_RGB, 257, "mode 18 (16-bit)", 16,
                                                    false);
}

TEST(ColourInverses, WordScaleOfEveryByteColourAndRandomWords) {
    int worst = 0;
    long mismatches = 0;
    auto check = [&](int r, int g, int b) {
        const Hsv f = WordHsvFromRgb(r, g, b);
        const Rgb c = RgbFromWordHsv(f.h, f.s, f.v);
        const Hsv f2 = WordHsvFromRgb(c.r, c.g, c.b);
        worst = std::max(worst, MaxDiff(c, r, g, b));
        if ((f.h != f2.h || f.s != f2.s || f.v != f2.v) && mismatches++ < 5)
            ADD_FAILURE() << "(" << r << ", " << g << ", " << b << ") comes back as (" << c.r << ", " << c.g << ", "
                          << c.b << ")";
    };
    for (int r = 0; r < 256; ++r)
        for (int g = 0; g < 256; ++g)
            for (int b = 0; b < 256; ++b) check(r * 257, g * 257, b * 257);
    std::mt19937 rng(5);
    for (int i = 0; i < 2000000; ++i) check(rng() & 0xFFFF, rng() & 0xFFFF, rng() & 0xFFFF);
    EXPECT_EQ(mismatches, 0);
    EXPECT_LE(worst, 16);
    std::printf("[ colour   ] word scale: largest channel error of a round trip: %d of 65535\n", worst);
    ::testing::Test::RecordProperty("word scale", worst);
}

// Random 16-bit colours, which the byte grid above never reaches.
TEST(ColourInverses, DegreesModelsOfRandomWords) {
    std::mt19937 rng(11);
    long mismatches = 0;
    for (int i = 0; i < 2000000; ++i) {
        const int r = rng() & 0xFFFF, g = rng() & 0xFFFF, b = rng() & 0xFFFF;
        const Hsv f = DegHsvFromRgb<uint16_t>(r, g, b);
        const Rgb c = RgbFromDegHsv<uint16_t>(f.h, f.s, f.v);
        const Hsv f2 = DegHsvFromRgb<uint16_t>(c.r, c.g, c.b);
        if (f.s != 0 && (f.h != f2.h || f.s != f2.s || f.v != f2.v)) ++mismatches;
        const Hls l = DegHlsFromRgb<uint16_t>(r, g, b);
        const Rgb d = RgbFromDegHls<uint16_t>(l.h, l.l, l.s);
        const Hls l2 = DegHlsFromRgb<uint16_t>(d.r, d.g, d.b);
        if (l.h != l2.h || l.s != l2.s || l.l != l2.l) ++mismatches;
    }
    EXPECT_EQ(mismatches, 0);
}

// Records no colour produces (a hue moved, a saturation changed) still give
// colours of the requested value or lightness and never leave the scale.
TEST(ColourInverses, AnyRecordGivesAColourInRange) {
    for (int h = 0; h < 360; h += 7)
        for (int s = 0; s <= 100; s += 3)
            for (int v = 0; v < 256; v += 5) {
                const Rgb c = RgbFromDegHsv<uint8_t>(h, s, v);
                ASSERT_EQ(std::max({c.r, c.g, c.b}), v);
                ASSERT_GE(std::min({c.r, c.g, c.b}), 0);
                const Rgb d = RgbFromDegHls<uint8_t>(h, v, s);
                ASSERT_TRUE(d.r >= 0 && d.g >= 0 && d.b >= 0 && d.r <= 255 && d.g <= 255 && d.b <= 255);
                ASSERT_EQ((std::max({d.r, d.g, d.b}) + std::min({d.r, d.g, d.b})) >> 1, v);
            }
}

} // namespace
} // namespace rz::colour
