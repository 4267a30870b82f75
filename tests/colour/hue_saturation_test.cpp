// The hue, saturation and desaturation exports on real bitmaps: values worked
// by hand, every pixel against references written from the formulas (in
// both colour orders, with a fourth channel that must not move), inside
// regions and through palettes, and the failures in their order.
#include "colour/colour_models.h"
#include "colour_test_util.h"

#include <gtest/gtest.h>

#include <functional>

namespace rz::test {
namespace {

using Op = std::function<int32_t(BitmapDesc *)>;
using PixelRef = std::function<Colour(const Colour &)>; // on the colour's own scale

const char *const kColourLayouts[] = {"bgr24", "rgb24", "bgr32", "bgr48", "rgb48", "bgr64"};

void ExpectColour(const Colour &c, int r, int g, int b) {
    EXPECT_EQ(c.r, r);
    EXPECT_EQ(c.g, g);
    EXPECT_EQ(c.b, b);
}

// Runs op on a random bitmap of every colour layout and compares each pixel
// with the reference; the fourth channel must not move.
void CompareWithReference(const Op &op, const std::function<Colour(const Colour &, bool deep)> &expect) {
    for (const char *layout : kColourLayouts) {
        SCOPED_TRACE(layout);
        Bitmap b = RandomColourBitmap(layout, 61, 23, 17);
        const Bitmap before(b);
        ASSERT_EQ(op(b.get()), ST_SUCCESS);
        int bad = 0;
        for (int y = 0; y < b->nHeight && bad < 5; ++y)
            for (int x = 0; x < b->nWidth && bad < 5; ++x) {
                const Colour in = Get(before, x, y), out = Get(b, x, y);
                Colour want = expect(in, Deep(b.get()));
                want.a = in.a;
                if (!(out == want)) {
                    ++bad;
                    ADD_FAILURE() << "(" << in.r << ", " << in.g << ", " << in.b << ") became (" << out.r << ", "
                                  << out.g << ", " << out.b << ", " << out.a << "), want (" << want.r << ", "
                                  << want.g << ", " << want.b << ", " << want.a << ")";
                }
            }
    }
}

Colour HueRef(const Colour &c, bool deep, int angle) {
    const int64_t steps = int64_t(angle) * 256 / 360;
    if (!deep) {
        const auto f = ref::ByteHsv(c.r, c.g, c.b);
        return ref::ByteHsvBack(static_cast<int>(((f[0] + steps) % 256 + 256) % 256), f[1], f[2]);
    }
    const auto f = ref::WordHsv(c.r, c.g, c.b);
    const int h = static_cast<int>(((f[0] + steps * 257) % 65536 + 65536) % 65536);
    const colour::Rgb o = colour::RgbFromWordHsv(h, f[1], f[2]);
    return {o.r, o.g, o.b};
}

TEST(ChangeBitmapHue, PureRedTurnsGreenOnTheByteScale) {
    // Red: hue 0; 120 degrees is 85 steps; back at d = 119: red = 255 x 1 / 119 = 2.
    Bitmap b = RowOf("bgr24", {{255, 0, 0}, {0, 0, 255}, {128, 128, 128}});
    ASSERT_EQ(Rz_ChangeBitmapHue(b.get(), 120), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 2, 255, 0);
    // Blue: 171 + 85 = 256 -> 0, d = 0: pure red again.
    ExpectColour(Get(b, 1, 0), 255, 0, 0);
    ExpectColour(Get(b, 2, 0), 128, 128, 128);
}

TEST(ChangeBitmapHue, PureRedOnTheWordScale) {
    // Hue 128 + 85 x 257 = 21973; 21973 x 360 - 46260 = 7864020 of the third's
    // 7895040: green is the maximum and red 65535 x 31020 / 7864020 = 258.
    Bitmap b = RowOf("bgr48", {{65535, 0, 0}, {1000, 1000, 1000}});
    ASSERT_EQ(Rz_ChangeBitmapHue(b.get(), 120), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 258, 65535, 0);
    ExpectColour(Get(b, 1, 0), 1000, 1000, 1000);
}

TEST(ChangeBitmapHue, GreysStayAndStepsTruncate) {
    for (const char *layout : {"bgr24", "bgr48"}) {
        const int max = std::string(layout) == "bgr48" ? 65535 : 255;
        for (int angle : {-725, 1, 120, 359, 100000, INT32_MIN, INT32_MAX}) {
            Bitmap b = RowOf(layout, {{0, 0, 0}, {max, max, max}, {max / 3, max / 3, max / 3}});
            const Bitmap before(b);
            ASSERT_EQ(Rz_ChangeBitmapHue(b.get(), angle), ST_SUCCESS);
            EXPECT_EQ(b.storedBytes(), before.storedBytes()) << layout << " " << angle;
        }
    }
    // 1 degree is 0 steps and 360 a whole turn: both are the same as 0.
    Bitmap zero = RandomColourBitmap("bgr24", 40, 9, 3), one(zero), turn(zero);
    ASSERT_EQ(Rz_ChangeBitmapHue(zero.get(), 0), ST_SUCCESS);
    ASSERT_EQ(Rz_ChangeBitmapHue(one.get(), 1), ST_SUCCESS);
    ASSERT_EQ(Rz_ChangeBitmapHue(turn.get(), 360), ST_SUCCESS);
    EXPECT_EQ(one.storedBytes(), zero.storedBytes());
    EXPECT_EQ(turn.storedBytes(), zero.storedBytes());
}

TEST(ChangeBitmapHue, EveryPixelAsTheFormulasSay) {
    for (int angle : {120, -45, 200, 3600})
        CompareWithReference([angle](BitmapDesc *b) { return Rz_ChangeBitmapHue(b, angle); },
                             [angle](const Colour &c, bool deep) { return HueRef(c, deep, angle); });
}

TEST(ChangeBitmapSaturation, ByHand) {
    // (200, 100, 100): L 150, S 121; +500 is 128/256: S' = 121 + 60 = 181;
    // q = 181 + 150 - 181 x 150 / 255 = 225, p = 75.
    Bitmap b = RowOf("bgr24", {{200, 100, 100}});
    ASSERT_EQ(Rz_ChangeBitmapSaturation(b.get(), 500), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 225, 75, 75);
    Bitmap c = RowOf("rgb24", {{200, 100, 100}, {10, 200, 90}});
    ASSERT_EQ(Rz_ChangeBitmapSaturation(c.get(), -1000), ST_SUCCESS);
    ExpectColour(Get(c, 0, 0), 150, 150, 150);
    ExpectColour(Get(c, 1, 0), 105, 105, 105);
    Bitmap d = RowOf("bgr48", {{51400, 25700, 25700}});
    ASSERT_EQ(Rz_ChangeBitmapSaturation(d.get(), -1000), ST_SUCCESS);
    ExpectColour(Get(d, 0, 0), 38550, 38550, 38550);
}

TEST(ChangeBitmapSaturation, EveryPixelAsTheFormulasSay) {
    for (int change : {-1000, -300, 0, 250, 1000}) {
        const int cs = change * 256 / 1000;
        CompareWithReference([change](BitmapDesc *b) { return Rz_ChangeBitmapSaturation(b, change); },
                             [cs](const Colour &c, bool deep) {
                                 const int M = deep ? 65535 : 255;
                                 const auto f = ref::ScaleHls(c.r, c.g, c.b, M);
                                 const int s = std::clamp(f[2] + ((f[2] * cs) >> 8), 0, M);
                                 return ref::ScaleHlsBack(f[0], f[1], s, M);
                             });
    }
}

TEST(DesaturateBitmap, LightnessGrey) {
    Bitmap b = RowOf("bgr32", {{255, 0, 0, 9}, {10, 20, 30, 200}});
    ASSERT_EQ(Rz_DesaturateBitmap(b.get()), ST_SUCCESS);
    EXPECT_EQ(Get(b, 0, 0), (Colour{127, 127, 127, 9}));
    EXPECT_EQ(Get(b, 1, 0), (Colour{20, 20, 20, 200}));
    Bitmap w = RowOf("rgb48", {{65535, 0, 0}});
    ASSERT_EQ(Rz_DesaturateBitmap(w.get()), ST_SUCCESS);
    ExpectColour(Get(w, 0, 0), 32767, 32767, 32767);
    CompareWithReference([](BitmapDesc *bmp) { return Rz_DesaturateBitmap(bmp); },
                         [](const Colour &c, bool) {
                             const int v = (ref::Mx(c.r, c.g, c.b) + ref::Mn(c.r, c.g, c.b)) >> 1;
                             return Colour{v, v, v};
                         });
}

TEST(RemapBitmapHue, TablesAndMask) {
    // A value table of 100 everywhere: red (0, 255, 255) becomes (0, 255, 100).
    std::vector<uint32_t> v(256, 100);
    Bitmap b = RowOf("bgr24", {{255, 0, 0}, {0, 255, 0}});
    ASSERT_EQ(Rz_RemapBitmapHue(b.get(), nullptr, nullptr, nullptr, v.data(), 256), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 100, 0, 0);
    ExpectColour(Get(b, 1, 0), 0, 100, 0); // hue 85: d = 119, red 100 x 1 / 119 = 0
    // A mask of hue 0 only: green keeps its values and round-trips like a rotation by 0.
    std::vector<uint32_t> mask(256, 0);
    mask[0] = 1;
    Bitmap c = RowOf("bgr24", {{255, 0, 0}, {0, 255, 0}});
    ASSERT_EQ(Rz_RemapBitmapHue(c.get(), mask.data(), nullptr, nullptr, v.data(), 256), ST_SUCCESS);
    ExpectColour(Get(c, 0, 0), 100, 0, 0);
    ExpectColour(Get(c, 1, 0), 2, 255, 0);
    // Identity everywhere is the byte-scale round trip, as a rotation by 0.
    Bitmap d = RandomColourBitmap("rgb24", 30, 7, 8), e(d);
    ASSERT_EQ(Rz_RemapBitmapHue(d.get(), nullptr, nullptr, nullptr, nullptr, 256), ST_SUCCESS);
    ASSERT_EQ(Rz_ChangeBitmapHue(e.get(), 0), ST_SUCCESS);
    EXPECT_EQ(d.storedBytes(), e.storedBytes());
}

TEST(RemapBitmapHue, SixteenBitTables) {
    // Full identity tables are the word-scale round trip, as a rotation by 0,
    // except for hues past 65535 (the last 1.4 degrees of the turn): the
    // remap clamps them to 65535 where the rotation wraps them to the start.
    Bitmap d = RandomColourBitmap("bgr64", 30, 7, 8), e(d);
    const Bitmap before(d);
    ASSERT_EQ(Rz_RemapBitmapHue(d.get(), nullptr, nullptr, nullptr, nullptr, 65536), ST_SUCCESS);
    ASSERT_EQ(Rz_ChangeBitmapHue(e.get(), 0), ST_SUCCESS);
    int clamped = 0;
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 30; ++x) {
            const Colour in = Get(before, x, y);
            if (ref::WordHsv(in.r, in.g, in.b)[0] > 65535) {
                ++clamped;
                EXPECT_EQ(ref::Mx(Get(d, x, y).r, Get(d, x, y).g, Get(d, x, y).b), ref::Mx(in.r, in.g, in.b));
            } else {
                EXPECT_EQ(Get(d, x, y), Get(e, x, y)) << x << ", " << y;
            }
        }
    EXPECT_LT(clamped, 10);
    // 12-bit tables: every component is looked up at its top 12 bits and
    // put back at them, so the value (the largest channel) loses its low 4.
    Bitmap w = RandomColourBitmap("bgr48", 50, 5, 4);
    const Bitmap wBefore(w);
    ASSERT_EQ(Rz_RemapBitmapHue(w.get(), nullptr, nullptr, nullptr, nullptr, 4096), ST_SUCCESS);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 50; ++x) {
            const Colour in = Get(wBefore, x, y), out = Get(w, x, y);
            EXPECT_EQ(ref::Mx(out.r, out.g, out.b), ref::Mx(in.r, in.g, in.b) & 0xFFF0);
        }
}

TEST(ColourOperations, FailuresInTheirPlace) {
    Bitmap b = RandomColourBitmap("bgr24", 8, 4, 1);
    EXPECT_EQ(Rz_ChangeBitmapHue(nullptr, 10), ST_NO_BITMAP);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(nullptr, 10), ST_NO_BITMAP);
    EXPECT_EQ(Rz_RemapBitmapHue(nullptr, nullptr, nullptr, nullptr, nullptr, 256), ST_NO_BITMAP);
    EXPECT_EQ(Rz_DesaturateBitmap(nullptr), ST_NO_BITMAP);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(b.get(), 1001), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(b.get(), -1001), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_RemapBitmapHue(b.get(), nullptr, nullptr, nullptr, nullptr, 4096), ST_INVALID_PARAMETER);
    Bitmap deep = RandomColourBitmap("bgr48", 8, 4, 1);
    EXPECT_EQ(Rz_RemapBitmapHue(deep.get(), nullptr, nullptr, nullptr, nullptr, 256), ST_INVALID_PARAMETER);
    // The size field is checked before the argument, the argument before the depth.
    b->uStructSize = 163;
    EXPECT_EQ(Rz_ChangeBitmapSaturation(b.get(), 5000), ST_BAD_STRUCT_SIZE);
    b->uStructSize = BITMAPDESC_SIZE;
    Bitmap grey(FindLayout("grey16"), 4, 4, 2);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(grey.get(), 5000), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_ChangeBitmapSaturation(grey.get(), 50), ST_BAD_PIXEL_FORMAT);
    EXPECT_EQ(Rz_ChangeBitmapHue(grey.get(), 50), ST_BAD_PIXEL_FORMAT);
    // Desaturation refuses what the kernel calls grey, palettes included.
    EXPECT_EQ(Rz_DesaturateBitmap(grey.get()), ST_BAD_PIXEL_FORMAT);
    Bitmap greyPalette(FindLayout("pal8_grey"), 4, 4, 2);
    EXPECT_EQ(Rz_DesaturateBitmap(greyPalette.get()), ST_BAD_PIXEL_FORMAT);
    EXPECT_EQ(Rz_ChangeBitmapHue(greyPalette.get(), 50), ST_SUCCESS);
    // A palette that disagrees with the descriptor's count.
    Bitmap pal(FindLayout("pal4_colour"), 4, 4, 2);
    pal->nColors = 0;
    EXPECT_EQ(Rz_ChangeBitmapHue(pal.get(), 50), ST_NO_BITMAP);
    EXPECT_EQ(Rz_DesaturateBitmap(pal.get()), ST_NO_BITMAP);
}

// Only the region's pixels change; they change as on the whole bitmap.
TEST(ColourOperations, RegionsLimitTheChange) {
    const std::vector<std::pair<const char *, Op>> ops = {
        {"hue", [](BitmapDesc *b) { return Rz_ChangeBitmapHue(b, 77); }},
        {"saturation", [](BitmapDesc *b) { return Rz_ChangeBitmapSaturation(b, 600); }},
        {"desaturate", [](BitmapDesc *b) { return Rz_DesaturateBitmap(b); }},
        {"remap", [](BitmapDesc *b) { return Rz_RemapBitmapHue(b, nullptr, nullptr, nullptr, nullptr, Deep(b) ? 65536 : 256); }},
        {"hue-sat-int", [](BitmapDesc *b) { return Rz_ChangeHueSatIntBitmap(b, 3000, 200, -100, nullptr, 0); }},
    };
    for (const char *layout : {"bgr24", "rgb48", "bgr64"})
        for (const auto &[name, op] : ops) {
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
                    const Colour want = in ? Get(whole, x, y) : Get(before, x, y);
                    ASSERT_EQ(Get(part, x, y), want) << x << ", " << y << (in ? " inside" : " outside");
                }
            EXPECT_GT(inside, 100);
        }
}

// Palettes change entry by entry as pixels would; indices stay.
TEST(ColourOperations, PalettesChangeTheirEntries) {
    const std::vector<std::pair<const char *, Op>> ops = {
        {"hue", [](BitmapDesc *b) { return Rz_ChangeBitmapHue(b, -100); }},
        {"saturation", [](BitmapDesc *b) { return Rz_ChangeBitmapSaturation(b, -400); }},
        {"desaturate", [](BitmapDesc *b) { return Rz_DesaturateBitmap(b); }},
        {"remap", [](BitmapDesc *b) {
             std::vector<uint32_t> h(256);
             for (int i = 0; i < 256; ++i) h[i] = (i + 40) % 256;
             return Rz_RemapBitmapHue(b, nullptr, h.data(), nullptr, nullptr, 256);
         }},
        {"hue-sat-int", [](BitmapDesc *b) { return Rz_ChangeHueSatIntBitmap(b, -6000, 300, 150, nullptr, 0); }},
    };
    for (const char *layout : {"pal4_colour", "pal8_colour"})
        for (const auto &[name, op] : ops) {
            SCOPED_TRACE(std::string(layout) + " " + name);
            Bitmap pal(FindLayout(layout), 16, 4, 9);
            const Bitmap before(pal);
            // The same colours as a row of 24-bit pixels.
            std::vector<Colour> colours;
            RzRGBQuad entries[256];
            const int n = KrnGetBitmapPalette(pal.get(), 0, pal->nColors, entries);
            ASSERT_GT(n, 0);
            for (int i = 0; i < n; ++i) colours.push_back({entries[i].rgbRed, entries[i].rgbGreen, entries[i].rgbBlue});
            Bitmap row = RowOf("bgr24", colours);
            CallbackRecorder rec;
            ASSERT_EQ(op(pal.get()), ST_SUCCESS);
            EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
            ASSERT_EQ(op(row.get()), ST_SUCCESS);
            ASSERT_EQ(KrnGetBitmapPalette(pal.get(), 0, n, entries), n);
            for (int i = 0; i < n; ++i) {
                const Colour want = Get(row, i, 0);
                ExpectColour({entries[i].rgbRed, entries[i].rgbGreen, entries[i].rgbBlue}, want.r, want.g, want.b);
            }
            EXPECT_EQ(pal.storedBytes(), before.storedBytes());
        }
}

} // namespace
} // namespace rz::test
