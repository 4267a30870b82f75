// The hue, saturation and desaturation exports on real bitmaps: values worked
// by hand, every pixel against references written from the formulas (in
// both colour orders, with a fourth channel that must not move), inside
// regions and through palettes, and the failures in their order.
#include "colour/colour_models.h"
#include "colour_test_util.h"


namespace rz::test {
namespace {

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
        // (200, 100, 100): L 150, S 121; +500 is 128/256: S 181, q = 225, p = 75.
        {"bgr24", Sat(500), {{200, 100, 100}}, {{225, 75, 75}}},
        {"rgb24", Sat(-1000), {{200, 100, 100}, {10, 200, 90}}, {{150, 150, 150}, {105, 105, 105}}},
        {"bgr32", Rz_DesaturateBitmap, {{255, 0, 0, 9}, {10, 20, 30, 200}}, {{127, 127, 127, 9}, {20, 20, 20, 200}}},
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
        // 120 degrees takes red exactly to green on the degree scale.
        {"bgr24", Hsi(12000, 0, 0), {{255, 0, 0}}, {{0, 255, 0}}},
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

// Words: the forward formula is the test's, the inverse the library's,
// proven a true inverse of it (colour_models_test.cpp); the rotation is
// modulo 65536 while a turn is 65792 units.
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

TEST(RemapBitmapHue, IdentityTables) {
    // 8-bit: the byte-scale round trip, as a rotation by 0.
    Bitmap d = RandomColourBitmap("rgb24", 40, 9, 3), e(d);
    ASSERT_EQ(Rz_RemapBitmapHue(d.get(), nullptr, nullptr, nullptr, nullptr, 256), ST_SUCCESS);
    ASSERT_EQ(Rz_ChangeBitmapHue(e.get(), 0), ST_SUCCESS);
    EXPECT_EQ(d.storedBytes(), e.storedBytes());
    // 12-bit tables look each component up at its top 12 bits: the value loses its low 4.
    Bitmap w = RandomColourBitmap("bgr48", 50, 5, 4);
    const Bitmap wBefore(w);
    ASSERT_EQ(Rz_RemapBitmapHue(w.get(), nullptr, nullptr, nullptr, nullptr, 4096), ST_SUCCESS);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 50; ++x) EXPECT_EQ(Max(Get(w, x, y)), Max(Get(wBefore, x, y)) & 0xFFF0);
}

TEST(ColourOperations, FailuresInTheirPlace) {
    Bitmap b = RandomColourBitmap("bgr24", 8, 4, 1), deep = RandomColourBitmap("bgr48", 8, 4, 1);
    Bitmap grey(FindLayout("grey16"), 4, 4, 2), greyPal(FindLayout("pal8_grey"), 4, 4, 2);
    const std::pair<int32_t, int32_t> cases[] = {
        {Rz_RemapBitmapHue(b.get(), nullptr, nullptr, nullptr, nullptr, 4096), ST_INVALID_PARAMETER},
        {Rz_RemapBitmapHue(deep.get(), nullptr, nullptr, nullptr, nullptr, 256), ST_INVALID_PARAMETER},
        // The argument before the depth; grey (palettes included) is refused.
        {Rz_ChangeBitmapSaturation(grey.get(), 5000), ST_INVALID_PARAMETER},
        {Rz_ChangeBitmapSaturation(grey.get(), 50), ST_BAD_PIXEL_FORMAT},
        {Rz_ChangeBitmapHue(grey.get(), 50), ST_BAD_PIXEL_FORMAT},
        {Rz_DesaturateBitmap(grey.get()), ST_BAD_PIXEL_FORMAT},
        {Rz_DesaturateBitmap(greyPal.get()), ST_BAD_PIXEL_FORMAT},
        {Rz_ChangeBitmapHue(greyPal.get(), 50), ST_SUCCESS},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i;
}

const std::pair<const char *, Op> kOps[] = {
    {"hue", Hue(-100)},
    {"saturation", Sat(600)},
    {"desaturate", Rz_DesaturateBitmap},
    {"remap", [](BitmapDesc *b) {
         std::vector<uint32_t> h(Deep(b) ? 65536 : 256);
         for (size_t i = 0; i < h.size(); ++i) h[i] = uint32_t((i + h.size() / 6) % h.size());
         return Rz_RemapBitmapHue(b, nullptr, h.data(), nullptr, nullptr, uint32_t(h.size()));
     }},
    {"hue-sat-int", Hsi(3000, 200, -100)},
};

// Only the region's pixels change; they change as on the whole bitmap.
TEST(ColourOperations, RegionsLimitTheChange) {
    for (const char *layout : {"bgr24", "rgb48", "bgr64"})
        for (const auto &[name, op] : kOps) {
            SCOPED_TRACE(std::string(layout) + " " + name);
            Bitmap whole = RandomColourBitmap(layout, 37, 21, 5), part(whole);
            const Bitmap before(whole);
            const RzRect r{5, 3, 30, 19};
            ASSERT_EQ(DisSetRegionEllipse(part.get(), &r, DIS_RGN_SET), 1);
            ASSERT_EQ(op(whole.get()), ST_SUCCESS);
            ASSERT_EQ(op(part.get()), ST_SUCCESS);
            int inside = 0;
            for (int y = 0; y < 21; ++y)
                for (int x = 0; x < 37; ++x) {
                    const bool in = DisIsPtInRegion(part.get(), x, y) != 0;
                    inside += in;
                    ASSERT_EQ(Get(part, x, y), Get(in ? whole : before, x, y)) << x << ", " << y;
                }
            EXPECT_GT(inside, 100);
        }
}

// Palettes change entry by entry as pixels would; indices stay.
TEST(ColourOperations, PalettesChangeTheirEntries) {
    for (const char *layout : {"pal4_colour", "pal8_colour"})
        for (const auto &[name, op] : kOps) {
            SCOPED_TRACE(std::string(layout) + " " + name);
            Bitmap pal(FindLayout(layout), 16, 4, 9);
            const Bitmap before(pal);
            RzRGBQuad e[256];
            const int n = KrnGetBitmapPalette(pal.get(), 0, pal->nColors, e);
            ASSERT_GT(n, 0);
            std::vector<Colour> colours;
            for (int i = 0; i < n; ++i) colours.push_back({e[i].rgbRed, e[i].rgbGreen, e[i].rgbBlue});
            Bitmap row = RowOf("bgr24", colours);
            CallbackRecorder rec;
            ASSERT_EQ(op(pal.get()), ST_SUCCESS);
            EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
            ASSERT_EQ(op(row.get()), ST_SUCCESS);
            ASSERT_EQ(KrnGetBitmapPalette(pal.get(), 0, n, e), n);
            for (int i = 0; i < n; ++i)
                EXPECT_EQ((Colour{e[i].rgbRed, e[i].rgbGreen, e[i].rgbBlue}), Get(row, i, 0)) << i;
            EXPECT_EQ(pal.storedBytes(), before.storedBytes());
        }
}

} // namespace
} // namespace rz::test
