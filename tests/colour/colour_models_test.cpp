// The integer colour models: values worked out by hand, and over every 8-bit
// colour through the row dispatcher the forward records of the formulas
// written in the test, which the inverses must give back; the largest
// channel error of a round trip is printed.
#include "colour/colour_models.h"
#include "colour_test_util.h"

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

std::array<int, 3> Of(const Hsv &c) { return {c.h, c.s, c.v}; }
std::array<int, 3> Of(const Hls &c) { return {c.h, c.l, c.s}; }
std::array<int, 3> Of(const Rgb &c) { return {c.r, c.g, c.b}; }

TEST(ColourModels, ByHand) {
    const struct {
        const char *why;
        std::array<int, 3> got, want;
    } cases[] = {
        // Byte HSV hue: (0 + 180) / 360, (30720 + 180) / 360.
        {"byte red", Of(ByteHsvFromRgb(255, 0, 0)), {0, 255, 255}},
        {"byte green", Of(ByteHsvFromRgb(0, 255, 0)), {85, 255, 255}},
        // 30720 x 50 / 200 = 7680, (7680 + 180) / 360 = 21; 150 x 255 / 200 = 191.
        {"byte (200,100,50)", Of(ByteHsvFromRgb(200, 100, 50)), {21, 191, 200}},
        {"byte hue reaches 256", {ByteHsvFromRgb(254, 0, 1).h, 0, 0}, {256, 0, 0}},
        // Inverse: hue 85 is d = 119, second row, red = 255 x 1 / 119 = 2.
        {"byte back 85", Of(RgbFromByteHsv(85, 255, 255)), {2, 255, 0}},
        // d = 29, mn = 64 x 200 / 255 = 50, green = 50 + 150 x 29 / 91 = 97.
        {"byte back 21", Of(RgbFromByteHsv(21, 191, 200)), {200, 97, 50}},
        {"byte back 250", Of(RgbFromByteHsv(250, 255, 255)), {255, 0, 20}}, // d = 351: 255 x 9 / 111
        {"deg red", Of(DegHsvFromRgb<uint8_t>(255, 0, 0)), {0, 100, 255}},
        {"deg green", Of(DegHsvFromRgb<uint8_t>(0, 255, 0)), {120, 100, 255}},
        {"deg (200,100,50)", Of(DegHsvFromRgb<uint8_t>(200, 100, 50)), {30, 75, 200}}, // 120 x 50 / 200
        {"deg words", Of(DegHsvFromRgb<uint16_t>(51400, 25700, 12850)), {3000, 7500, 51400}},
        // L = 128 divides by max + min: 254 x 100 / 256; L = 129 by 510 - max - min.
        {"hls L128", Of(DegHlsFromRgb<uint8_t>(255, 1, 1)), {0, 128, 99}},
        {"hls L129", {DegHlsFromRgb<uint8_t>(255, 3, 3).s, 0, 0}, {100, 0, 0}},
        {"hls 330", {DegHlsFromRgb<uint8_t>(200, 100, 150).h, 0, 0}, {330, 0, 0}}, // 60 x -50 / 100
        {"hls under a degree", {DegHlsFromRgb<uint8_t>(255, 0, 1).h, 0, 0}, {0, 0, 0}},
        // Byte-scale HLS: S = 100 x 255 / 210; back with S 181: q = 225, p = 75.
        {"scale (200,100,100)", Of(ScaleHlsFromRgb<uint8_t>(200, 100, 100)), {0, 150, 121}},
        {"scale back", Of(RgbFromScaleHls<uint8_t>(0, 150, 181)), {225, 75, 75}},
        {"scale blue max", {ScaleHlsFromRgb<uint8_t>(50, 100, 200).h, 0, 0}, {156, 0, 0}}, // 170 - 50x255/900
        {"scale red", Of(ScaleHlsFromRgb<uint8_t>(255, 0, 0)), {0, 127, 255}},
        {"scale red back", Of(RgbFromScaleHls<uint8_t>(0, 127, 255)), {254, 0, 0}},
        // Word HSV: (degrees x 65792 + 46260) / 360; 120 degrees is 22059.
        {"word red", Of(WordHsvFromRgb(65535, 0, 0)), {128, 65535, 65535}},
        {"word green", {WordHsvFromRgb(0, 65535, 0).h, 0, 0}, {22059, 0, 0}},
        {"word back red", Of(RgbFromWordHsv(128, 65535, 65535)), {65535, 0, 0}},
    };
    for (const auto &c : cases) EXPECT_EQ(c.got, c.want) << c.why;
    // A word hue below 128 only comes from a rotation and lies at the top of the turn.
    EXPECT_GT(RgbFromWordHsv(0, 65535, 65535).b, 0);
}

// Every 8-bit colour through the dispatcher: the forward record is the one
// the formulas written in the test give, and the inverse is a true inverse
// of them: the formulas give the record back from the colour it returns.
template <class T, class Rec> void EveryColour(int32_t toModel, int32_t toRgb, const char *label, int bound) {
    const int32_t n = 65536, scale = sizeof(T) == 1 ? 1 : 257, P = sizeof(T) == 1 ? 100 : 10000;
    std::vector<T> row(3 * n), back(3 * n);
    std::vector<Rec> rec(n);
    auto convert = [](int32_t mode, const void *src, void *dst) {
        if constexpr (sizeof(T) == 1) return ConvertColourRow8(mode, src, dst, 0, n);
        else return ConvertColourRow16(mode, src, dst, 0, n);
    };
    auto formula = [&](const T *c) {
        return toModel == CS_RGB_TO_HSV ? rz::test::ref::DegHsv(c[2], c[1], c[0], P) : rz::test::ref::DegHls(c[2], c[1], c[0], P);
    };
    int worst = 0;
    long mismatches = 0;
    for (int r = 0; r < 256; ++r) {
        for (int i = 0; i < n; ++i) {
            row[3 * i] = static_cast<T>((i & 255) * scale); // rows hold blue, green, red
            row[3 * i + 1] = static_cast<T>((i >> 8) * scale);
            row[3 * i + 2] = static_cast<T>(r * scale);
        }
        ASSERT_EQ(convert(toModel, row.data(), rec.data()), ST_SUCCESS);
        ASSERT_EQ(convert(toRgb, rec.data(), back.data()), ST_SUCCESS);
        for (int i = 0; i < 3 * n; ++i) worst = std::max(worst, std::abs(int(back[i]) - int(row[i])));
        for (int i = 0; i < n; ++i) {
            const auto &[hue, second, third] = rec[i];
            const std::array<int, 3> got{hue, second, third}, want = formula(&row[3 * i]), again = formula(&back[3 * i]);
            // An HSV hue whose saturation truncated to 0 is dropped: greys stay grey.
            const bool greyed = toModel == CS_RGB_TO_HSV && second == 0 && again == std::array<int, 3>{0, 0, third};
            if (got == want && (again == got || greyed)) continue;
            if (mismatches++ < 5) ADD_FAILURE() << label << ": colour " << r << ", " << (i >> 8) << ", " << (i & 255);
        }
    }
    EXPECT_EQ(mismatches, 0) << label;
    EXPECT_LE(worst, bound) << label;
    std::printf("[ colour   ] %s: largest channel error of a round trip over every 8-bit colour: %d\n", label, worst);
}

TEST(ColourInverses, EveryByteColourThroughTheDegreeModels) {
    EveryColour<uint8_t, HsvRecord<uint8_t>>(CS_RGB_TO_HSV, CS_HSV_TO_RGB, "HSV (8-bit)", 9);
    EveryColour<uint8_t, HlsRecord<uint8_t>>(CS_RGB_TO_HLS, CS_HLS_TO_RGB, "HLS (8-bit)", 5);
    EveryColour<uint16_t, HsvRecord<uint16_t>>(CS_RGB_TO_HSV, CS_HSV_TO_RGB, "HSV (16-bit)", 24);
    EveryColour<uint16_t, HlsRecord<uint16_t>>(CS_RGB_TO_HLS, CS_HLS_TO_RGB, "HLS (16-bit)", 16);
}

TEST(ColourInverses, WordScaleOfEveryByteColourAndRandomWords) {
    int worst = 0;
    long mismatches = 0;
    auto check = [&](int r, int g, int b) {
        const std::array<int, 3> want = rz::test::ref::WordHsv(r, g, b);
        const Hsv f = WordHsvFromRgb(r, g, b);
        const Rgb c = RgbFromWordHsv(f.h, f.s, f.v);
        worst = std::max({worst, std::abs(c.r - r), std::abs(c.g - g), std::abs(c.b - b)});
        if ((Of(f) != want || rz::test::ref::WordHsv(c.r, c.g, c.b) != want) && mismatches++ < 5)
            ADD_FAILURE() << "(" << r << ", " << g << ", " << b << ")";
    };
    for (int i = 0; i < 1 << 24; ++i) check((i >> 16) * 257, (i >> 8 & 255) * 257, (i & 255) * 257);
    std::mt19937 rng(5);
    for (int i = 0; i < 2000000; ++i) check(rng() & 0xFFFF, rng() & 0xFFFF, rng() & 0xFFFF);
    EXPECT_EQ(mismatches, 0);
    EXPECT_LE(worst, 16);
    std::printf("[ colour   ] word scale: largest channel error of a round trip: %d of 65535\n", worst);
}

} // namespace
} // namespace rz::colour
