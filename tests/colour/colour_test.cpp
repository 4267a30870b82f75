// The colour operations: values worked by hand, every pixel of every colour
// layout and palette against references written from the formulas (plain
// divisions, the word scale in double precision; a fourth channel that must
// not move), and the records the sweeps cannot know. The library's degree
// and word models invert by search: every 8-bit colour goes through them,
// and the test's forward formulas must give back the record.
#include "colour/colour_models.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>

namespace rz::test {
namespace {

struct Colour {
    int r, g, b, a = 0;
    bool operator==(const Colour &) const = default;
};

bool Deep(const BitmapDesc *b) { return b->nBitsPerPixel >= 48; }

Colour Get(const Bitmap &b, int x, int y) {
    const Channels c = ReadChannels(b, x, y);
    return {int(c.v[2]), int(c.v[1]), int(c.v[0]), int(c.fourth)};
}
void Put(Bitmap &b, int x, int y, const Colour &c) {
    WriteChannels(b, x, y, {3, Deep(b.get()) ? 16 : 8, {uint32_t(c.b), uint32_t(c.g), uint32_t(c.r)}, uint32_t(c.a)});
}

Bitmap RowOf(const char *layout, const std::vector<Colour> &colours) {
    Bitmap b(FindLayout(layout), static_cast<int32_t>(colours.size()), 1, 0);
    for (size_t i = 0; i < colours.size(); ++i) Put(b, static_cast<int>(i), 0, colours[i]);
    return b;
}

HueSatIntRange Range(int hue, int sat, int in, int outerLow, int outerHigh, int innerLow, int innerHigh) {
    return {static_cast<int32_t>(HUESATINTRANGE_SIZE), hue, sat, in, outerLow, outerHigh, innerLow, innerHigh};
}

namespace ref {

// Ratio-hue HSV, byte scale, and its six-row inverse.
std::array<int, 3> ByteHsv(int r, int g, int b) {
    const int mn = std::min({r, g, b}), mx = std::max({r, g, b});
    if (mx == mn) return {0, 0, mx};
    const int h = b == mn   ? ((g - mn) * 30720 / ((r - mn) + (g - mn)) + 180) / 360
                  : r == mn ? ((b - mn) * 30720 / ((g - mn) + (b - mn)) + 30900) / 360
                            : ((r - mn) * 30720 / ((r - mn) + (b - mn)) + 61620) / 360;
    return {h, (mx - mn) * 255 / mx, mx};
}

Colour ByteHsvBack(int h8, int s, int v) {
    if (s == 0) return {v, v, v};
    const int d = (h8 * 360) >> 8, mn = (255 - s) * v / 255, k = v - mn;
    if (d <= 60) return {v, mn + k * d / (120 - d), mn};
    if (d <= 120) return {mn + k * (120 - d) / d, v, mn};
    if (d <= 180) return {mn, v, mn + k * (d - 120) / (240 - d)};
    if (d <= 240) return {mn, mn + k * (240 - d) / (d - 120), v};
    if (d <= 300) return {mn + k * (d - 240) / (360 - d), mn, v};
    return {v, mn, mn + k * (360 - d) / (d - 240)};
}

// Degrees and percent (hundredths of both for 16-bit channels, P = 10000):
// the ratio hue of HSV and the six-sector hue of HLS, truncated.
std::array<int, 3> DegHsv(int r, int g, int b, int P) {
    const int64_t mn = std::min({r, g, b}), mx = std::max({r, g, b}), third = 120 * (P / 100);
    if (mx == mn) return {0, 0, int(mx)};
    const int64_t rise = b == mn ? g - mn : r == mn ? b - mn : r - mn, fall = b == mn ? r - mn : r == mn ? g - mn : b - mn;
    const int64_t sector = b == mn ? 0 : r == mn ? 1 : 2;
    return {int(sector * third + third * rise / (rise + fall)), int((mx - mn) * P / mx), int(mx)};
}

std::array<int, 3> DegHls(int r, int g, int b, int P) {
    const int64_t M = P == 100 ? 255 : 65535, mn = std::min({r, g, b}), mx = std::max({r, g, b}), c = mx - mn;
    const int64_t l = (mx + mn) / 2, sixth = 60 * (P / 100);
    const int64_t s = c == 0 ? 0 : c * P / (l <= 128 * (M / 255) ? mx + mn : 2 * M - mx - mn);
    if (s == 0) return {0, int(l), 0};
    const int64_t diff = mx == r ? g - b : mx == g ? b - r : r - g, base = mx == r ? 0 : mx == g ? 2 * sixth : 4 * sixth;
    const int64_t h = base + (diff < 0 ? -(-diff * sixth / c) : diff * sixth / c);
    return {int(h < 0 ? h + 6 * sixth : h), int(l), int(s)};
}

// Word scale, in double precision as the formula is stated.
std::array<int, 3> WordHsv(int r, int g, int b) {
    const int mn = std::min({r, g, b}), mx = std::max({r, g, b});
    if (mx == mn) return {0, 0, mx};
    const double a = b == mn ? g - mn : r == mn ? b - mn : r - mn;
    const double den = b == mn ? (r - mn) + (g - mn) : r == mn ? (g - mn) + (b - mn) : (r - mn) + (b - mn);
    const double offset = b == mn ? 46260 : r == mn ? 7941300 : 15836340;
    return {static_cast<int>((a * 7895040 / den + offset) / 360), static_cast<int>((mx - mn) * 65535.0 / mx), mx};
}

// HLS on the byte scale; M = 255, or 65535 for the same steps on words.
std::array<int, 3> ScaleHls(int r, int g, int b, int M) {
    const int mn = std::min({r, g, b}), mx = std::max({r, g, b}), l = (mx + mn) >> 1;
    const int64_t c = mx - mn;
    const int s = c == 0 ? 0 : static_cast<int>(c * M / (mx + mn <= M ? mx + mn : 2 * M - mx - mn));
    if (s == 0) return {0, l, 0};
    int64_t h = mx == r   ? int64_t(g - b) * M / (6 * c)
                : mx == g ? int64_t(b - r) * M / (6 * c) + M / 3
                          : int64_t(r - g) * M / (6 * c) + 2 * M / 3;
    return {static_cast<int>(h < 0 ? h + M : h), l, s};
}

Colour ScaleHlsBack(int h, int l, int s, int M) {
    if (s == 0) return {l, l, l};
    const int64_t q = std::min<int64_t>(l < (M + 1) / 2 ? int64_t(l) * (s + M) / M : s + l - int64_t(s) * l / M, M);
    const int64_t p = 2 * l - q;
    auto channel = [&](int64_t t) {
        t = t >= M + 1 ? t - M : t < 0 ? t + M : t;
        const int64_t v = t < M / 6 ? p + (q - p) * 6 * t / M
                          : t < M / 2 ? q
                          : t < 2 * M / 3 ? p + (q - p) * 6 * (2 * M / 3 - t) / M
                                          : p;
        return static_cast<int>(std::min<int64_t>(v, M));
    };
    return {channel(h + M / 3), channel(h), channel(h - M / 3)};
}

} // namespace ref

// Random colours with a good share of greys, primaries and near-greys; the
// fourth channel only where the layout has one.
Bitmap RandomColourBitmap(const char *layout, int w, int h, uint32_t seed) {
    const Layout &l = FindLayout(layout);
    Bitmap b(l, w, h, l.bits <= 8 ? seed : 0);
    if (l.bits <= 8) return b; // a random palette
    std::mt19937 rng(seed);
    const int max = Deep(b.get()) ? 65535 : 255;
    const bool four = b->nBitsPerPixel == 32 || b->nBitsPerPixel == 64;
    auto any = [&] { return static_cast<int>(rng() % (max + 1)); };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int kind = rng() % 8, v = any(), d = max / 64;
            auto near = [&] { return std::clamp(v + static_cast<int>(rng() % (2 * d + 1)) - d, 0, max); };
            auto prim = [&] { return rng() % 2 ? max : 0; };
            Colour c = kind == 0 ? Colour{v, v, v} : kind == 1 ? Colour{prim(), prim(), prim()}
                     : kind == 2 ? Colour{near(), near(), near()} : Colour{v, any(), any()};
            c.a = four ? any() : 0;
            Put(b, x, y, c);
        }
    return b;
}

// The colour a pixel must have, from what it was, on its own scale.
using Expectation = std::function<Colour(const Colour &in, bool deep)>;

// Runs op on a random bitmap of every colour layout and compares each pixel
// with the expectation; the fourth channel must not move. Palettes change
// entry by entry as pixels would; indices stay.
void CompareEveryPixel(const std::string &name, const std::function<int32_t(BitmapDesc *)> &op,
                       const Expectation &expect) {
    for (const char *layout : {"bgr24", "rgb24", "bgr32", "bgr48", "rgb48", "bgr64", "pal4_colour", "pal8_colour"}) {
        Bitmap b = RandomColourBitmap(layout, 61, 23, 17);
        const Bitmap before(b);
        ASSERT_EQ(op(b.get()), ST_SUCCESS) << name << " " << layout;
        if (b->nBitsPerPixel <= 8) {
            EXPECT_EQ(b.storedBytes(), before.storedBytes()) << name << " " << layout;
            for (int i = 0; i < b->nColors; ++i) {
                const RzRGBQuad &e = before->pPalette[i], &n = b->pPalette[i];
                EXPECT_EQ((Colour{n.rgbRed, n.rgbGreen, n.rgbBlue}), expect({e.rgbRed, e.rgbGreen, e.rgbBlue}, false));
            }
            continue;
        }
        for (int y = 0; y < b->nHeight; ++y)
            for (int x = 0; x < b->nWidth; ++x) {
                const Colour in = Get(before, x, y);
                Colour want = expect(in, Deep(b.get()));
                want.a = in.a;
                ASSERT_EQ(Get(b, x, y), want) << name << " " << layout << " from " << in.r << "," << in.g << "," << in.b;
            }
    }
}

using namespace colour;

// Every 8-bit colour (words: times 257) through the test's forward formula
// and the library's inverse: the formula gives the record back, except that
// an HSV hue whose saturation truncated to 0 is dropped (greys stay grey).
// The largest channel error of a round trip is printed.
template <class Forward, class Inverse>
void RoundTrip(const char *label, int scale, int bound, Forward forward, Inverse inverse) {
    int worst = 0;
    long mismatches = 0;
    for (int i = 0; i < 1 << 24; ++i) {
        const int r = (i >> 16) * scale, g = (i >> 8 & 255) * scale, b = (i & 255) * scale;
        const std::array<int, 3> f = forward(r, g, b);
        const Rgb c = inverse(f[0], f[1], f[2]);
        const std::array<int, 3> again = forward(c.r, c.g, c.b);
        worst = std::max({worst, std::abs(c.r - r), std::abs(c.g - g), std::abs(c.b - b)});
        if (again != f && !(f[1] == 0 && again == std::array{0, 0, f[2]}) && mismatches++ < 5)
            ADD_FAILURE() << label << ": colour " << r << ", " << g << ", " << b;
    }
    EXPECT_EQ(mismatches, 0) << label;
    EXPECT_LE(worst, bound) << label;
    std::printf("[ colour   ] %s: largest channel error of a round trip: %d\n", label, worst);
}

TEST(ColourInverses, EveryByteColour) {
    RoundTrip("HSV (8-bit)", 1, 9, [](int r, int g, int b) { return ref::DegHsv(r, g, b, 100); },
              RgbFromDegHsv<uint8_t>);
    RoundTrip("HLS (8-bit)", 1, 5, [](int r, int g, int b) { return ref::DegHls(r, g, b, 100); },
              RgbFromDegHls<uint8_t>);
    RoundTrip("HSV (16-bit)", 257, 24, [](int r, int g, int b) { return ref::DegHsv(r, g, b, 10000); },
              RgbFromDegHsv<uint16_t>);
    RoundTrip("HLS (16-bit)", 257, 16, [](int r, int g, int b) { return ref::DegHls(r, g, b, 10000); },
              RgbFromDegHls<uint16_t>);
    RoundTrip("HSV (word scale)", 257, 16, ref::WordHsv, RgbFromWordHsv);
}

// The records the parameter sweeps cannot know: out of range changes and
// bounds, an inner range outside the outer one, a wrapped outer range with
// an unwrapped inner one.
TEST(ChangeHueSatInt, RefusedRecords) {
    Bitmap b = RandomColourBitmap("bgr24", 9, 5, 2);
    HueSatIntRange small = Range(100, 100, 100, 350, 10, 355, 5);
    small.size = 31;
    constexpr int32_t kBad = ST_INVALID_PARAMETER;
    const std::pair<HueSatIntRange, int32_t> cases[] = {
        {small, ST_BAD_STRUCT_SIZE},         {Range(-18001, 0, 0, 0, 10, 2, 8), kBad},
        {Range(0, 1001, 0, 0, 10, 2, 8), kBad}, {Range(0, 0, -1001, 0, 10, 2, 8), kBad},
        {Range(0, 0, 0, -360, 10, 2, 8), kBad}, {Range(0, 0, 0, 0, 360, 2, 8), kBad},
        {Range(0, 0, 0, 10, 50, 5, 20), kBad},  {Range(0, 0, 0, 10, 50, 30, 20), kBad},
        {Range(0, 0, 0, 350, 10, 2, 8), kBad},  {Range(0, 0, 0, -10, 10, -5, 5), ST_SUCCESS},
    };
    for (const auto &[r, want] : cases)
        EXPECT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 0, 0, 0, &r, 1), want) << r.outerLow << ".." << r.outerHigh;
    EXPECT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 0, 0, 0, nullptr, 1), ST_INVALID_PARAMETER);
}

using Op = std::function<int32_t(BitmapDesc *)>;

int Max(const Colour &c) { return std::max({c.r, c.g, c.b}); }
Op Hue(int a) { return [=](BitmapDesc *b) { return Rz_ChangeBitmapHue(b, a); }; }
Op Sat(int c) { return [=](BitmapDesc *b) { return Rz_ChangeBitmapSaturation(b, c); }; }
Op Hsi(int h, int s, int i, std::vector<HueSatIntRange> r = {}) {
    return [=](BitmapDesc *b) { return Rz_ChangeHueSatIntBitmap(b, h, s, i, r.data(), uint32_t(r.size())); };
}

TEST(ColourOperations, ByHand) {
    const struct {
        const char *layout;
        Op op;
        std::vector<Colour> in, want;
    } cases[] = {
        // Red is hue 0, 120 degrees 85 steps; back at d = 119: red = 255 x 1 / 119 = 2.
        // Blue: 171 + 85 = 256 -> 0, pure red again.
        {"bgr24", Hue(120), {{255, 0, 0}, {0, 0, 255}, {128, 128, 128}}, {{2, 255, 0}, {255, 0, 0}, {128, 128, 128}}},
        // Words: hue 128 + 85 x 257 = 21973, 7864020 of the third's 7895040:
        // red is 65535 x 31020 / 7864020 = 258.
        {"bgr48", Hue(120), {{65535, 0, 0}, {1000, 1000, 1000}}, {{258, 65535, 0}, {1000, 1000, 1000}}},
        // A value table of 100 masked to hue 0: green only round-trips, like a rotation by 0.
        {"bgr24", [](BitmapDesc *b) {
             std::vector<uint32_t> v(256, 100), mask(256, 0);
             mask[0] = 1;
             return Rz_RemapBitmapHue(b, mask.data(), nullptr, nullptr, v.data(), 256);
         }, {{255, 0, 0}, {0, 255, 0}}, {{100, 0, 0}, {2, 255, 0}}},
        // Hue-sat-int over 350..10, inner 355..5: hue 0 (and grey) is inside via 360,
        // -200 tenths is -50 levels; hues 8 and 352 are 0.4 up an edge: -19.
        {"bgr24", Hsi(0, 0, 0, {Range(0, 0, -200, 350, 10, 355, 5)}),
         {{255, 0, 0}, {255, 7, 0}, {255, 19, 0}, {255, 0, 17}, {0, 255, 0}, {128, 128, 128}},
         {{205, 0, 0}, {205, 0, 0}, {236, 0, 0}, {236, 0, 0}, {0, 255, 0}, {78, 78, 78}}},
        // -1000 saturation leaves the HLS lightness (127); +200 tenths is 51 levels.
        {"rgb24", Hsi(0, -1000, 200), {{255, 0, 0}, {100, 100, 100}}, {{178, 178, 178}, {151, 151, 151}}},
        // Words: (200 x 65535 + 500) / 1000 = 13107 levels; the fourth channel stays.
        {"bgr64", Hsi(12000, 0, 200), {{65535, 0, 0, 4321}, {1000, 1000, 1000, 7}},
         {{13107, 65535, 13107, 4321}, {14107, 14107, 14107, 7}}},
        // Overlapping ranges add: hue 120 gets 1200 tenths, capped to 1000; grey only 600.
        {"bgr24", Hsi(0, 0, 600, {Range(0, 0, 300, 100, 140, 110, 130), Range(0, 0, 300, 90, 150, 100, 140)}),
         {{0, 255, 0}, {0, 0, 0}, {0, 100, 0}}, {{255, 255, 255}, {153, 153, 153}, {255, 255, 255}}},
    };
    for (const auto &c : cases) {
        Bitmap b = RowOf(c.layout, c.in);
        ASSERT_EQ(c.op(b.get()), ST_SUCCESS);
        for (size_t i = 0; i < c.want.size(); ++i) EXPECT_EQ(Get(b, int(i), 0), c.want[i]) << c.layout << " " << i;
    }
}

// Words: the inverse is the library's, a true inverse of the test's formula
// (above); the rotation is modulo 65536 while a turn is 65792 units.
TEST(ColourOperations, EveryPixelAsTheFormulasSay) {
    std::vector<std::tuple<std::string, Op, Expectation>> cases;
    for (int angle : {0, 1, 120, -45, 200, 3600, INT32_MIN, INT32_MAX})
        cases.emplace_back("hue " + std::to_string(angle), Hue(angle), [=](const Colour &c, bool deep) {
            const int64_t steps = int64_t(angle) * 256 / 360;
            if (!deep) {
                const auto f = ref::ByteHsv(c.r, c.g, c.b);
                return ref::ByteHsvBack(int(((f[0] + steps) % 256 + 256) % 256), f[1], f[2]);
            }
            const auto f = ref::WordHsv(c.r, c.g, c.b);
            const colour::Rgb o = colour::RgbFromWordHsv(int(((f[0] + steps * 257) % 65536 + 65536) % 65536), f[1], f[2]);
            return Colour{o.r, o.g, o.b};
        });
    for (int change : {-1000, -300, 0, 250, 1000})
        cases.emplace_back("saturation " + std::to_string(change), Sat(change),
                           [cs = change * 256 / 1000](const Colour &c, bool deep) {
                               const int M = deep ? 65535 : 255;
                               const auto f = ref::ScaleHls(c.r, c.g, c.b, M);
                               return ref::ScaleHlsBack(f[0], f[1], std::clamp(f[2] + ((f[2] * cs) >> 8), 0, M), M);
                           });
    cases.emplace_back("desaturate", Rz_DesaturateBitmap, [](const Colour &c, bool) {
        const int v = (Max(c) + std::min({c.r, c.g, c.b})) >> 1;
        return Colour{v, v, v};
    });
    for (const auto &[name, op, expect] : cases) CompareEveryPixel(name, op, expect);
}

// Table lengths of the other depth; the argument before the depth; grey
// (a grey palette too, but for the hue) refused.
TEST(ColourOperations, Refusals) {
    Bitmap b = RandomColourBitmap("bgr24", 8, 4, 1), deep = RandomColourBitmap("bgr48", 8, 4, 1);
    Bitmap grey(FindLayout("grey16"), 4, 4, 2), greyPal(FindLayout("pal8_grey"), 4, 4, 2);
    EXPECT_EQ(Rz_RemapBitmapHue(b.get(), nullptr, nullptr, nullptr, nullptr, 4096), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_RemapBitmapHue(deep.get(), nullptr, nullptr, nullptr, nullptr, 256), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(grey.get(), 5000), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(grey.get(), 50), ST_BAD_PIXEL_FORMAT);
    EXPECT_EQ(Rz_DesaturateBitmap(greyPal.get()), ST_BAD_PIXEL_FORMAT);
    EXPECT_EQ(Rz_ChangeBitmapHue(greyPal.get(), 50), ST_SUCCESS);
    EXPECT_EQ(Rz_ChangeHueSatIntBitmap(greyPal.get(), 0, 0, 0, nullptr, 0), ST_INVALID_PARAMETER);
}

} // namespace
} // namespace rz::test
