// Round trips through every format and every depth the format holds: the
// loaded bitmap must show the same pixels (Look) at the natural depth, with
// indices, palettes and bit ranges kept. JPEG, being lossy, is held to a
// tolerance on smooth pictures. Every case also checks that no kernel block
// is left behind.
#include "file_helpers.h"
#include "support/bitmaps.h"

#include <cmath>

namespace rz::test {
namespace {

struct Target {
    const char *name, *ext;
    int32_t compression;
    bool keepsAlphaAndPalette;
};

const Target kTargets[] = {
    {"png", ".png", 0, true},           {"tiff_none", ".tif", RZ_TIFF_NONE, true},
    {"tiff_lzw", ".tif", RZ_TIFF_LZW, true}, {"tiff_deflate", ".tif", RZ_TIFF_DEFLATE, true},
    {"tiff_packbits", ".tif", RZ_TIFF_PACKBITS, true}, {"pnm", ".pnm", 0, false},
};

std::vector<Layout> Layouts() {
    std::vector<Layout> all = AllLayouts();
    all.push_back({"pal2_grey", 2, KRN_ORDER_BGR, 0});
    all.push_back({"pal2_colour", 2, KRN_ORDER_BGR, 0, 0, -1, true});
    all.push_back({"rgb32", 32, KRN_ORDER_RGB, 1});
    all.push_back({"rgb64", 64, KRN_ORDER_RGB, 1});
    return all;
}

// Depth the saved file loads back as.
int32_t LoadedBits(const Target &t, const BitmapDesc *b) {
    const int bits = b->nBitsPerPixel;
    if (bits <= 8)
        return b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b) || t.keepsAlphaAndPalette ? bits : 24;
    if (bits == 12)
        return 16;
    return t.keepsAlphaAndPalette || (bits != 32 && bits != 64) ? bits : bits * 3 / 4;
}

void ExpectSamePicture(const BitmapDesc *src, const BitmapDesc *got, bool alpha = true) {
    ASSERT_EQ(got->nWidth, src->nWidth);
    ASSERT_EQ(got->nHeight, src->nHeight);
    int bad = 0;
    for (int32_t y = 0; y < src->nHeight; ++y)
        for (int32_t x = 0; x < src->nWidth; ++x) {
            Rgba a = Look(src, x, y), b = Look(got, x, y);
            if (!alpha)
                a.a = b.a = 0;
            if (!(a == b) && bad++ < 3)
                ADD_FAILURE() << "pixel " << x << "," << y << ": " << a.r << " " << a.g << " " << a.b << " " << a.a
                              << " became " << b.r << " " << b.g << " " << b.b << " " << b.a;
        }
    EXPECT_EQ(bad, 0);
}

class RoundTrip : public ::testing::TestWithParam<std::tuple<Target, Layout>> {};

TEST_P(RoundTrip, KeepsPixelsAtTheNaturalDepth) {
    const auto &[target, layout] = GetParam();
    TempDir dir;
    const int64_t before = KrnMemOutstanding();
    const std::string name = std::string("out") + target.ext;
    for (auto [w, h] : {std::pair{13, 7}, std::pair{1, 1}, std::pair{64, 3}}) {
        Bitmap src(layout, w, h, 7 + w);
        ASSERT_EQ(Save(dir.path(name), src.get(), RZ_FMT_UNKNOWN, target.compression), ST_SUCCESS);
        Loaded got(dir.path(name));
        ASSERT_EQ(got.status, ST_SUCCESS);
        const int bits = got.d.nBitsPerPixel;
        EXPECT_EQ(bits, LoadedBits(target, src.get()));
        EXPECT_EQ(got.d.nViewPerspective, 1);
        EXPECT_EQ(got.d.nColorOrder, bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR);
        ExpectSamePicture(src.get(), &got.d, target.keepsAlphaAndPalette);
        if (bits == 16) {
            const int high = src->nHighBit < 0 ? src->nBitsPerPixel - 1 : src->nHighBit;
            EXPECT_EQ(got.d.nDataKind, 1);
            EXPECT_EQ(got.d.nLowBit, 0);
            EXPECT_EQ(got.d.nHighBit, high - src->nLowBit);
        }
        // Index images keep their indices, not only their colours.
        for (int32_t x = 0; src->nBitsPerPixel <= 8 && bits == src->nBitsPerPixel && x < w; ++x)
            EXPECT_EQ(Px(&got.d, x, h - 1), src.pixel(x, h - 1));
        EXPECT_EQ(dir.names(), std::vector<std::string>{name});
    }
    EXPECT_EQ(KrnMemOutstanding(), before);
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::Combine(::testing::ValuesIn(kTargets),
                                                                ::testing::ValuesIn(Layouts())),
                         [](const auto &info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

// Depths no format stores (3, 5 bits) widen to 8 bits showing the same; the
// file holds the picture as the current view shows it.
TEST(RoundTripMore, OddDepthsWidenAndViewsAreApplied) {
    TempDir dir;
    const Layout odd[] = {{"pal3_colour", 3, KRN_ORDER_BGR, 0, 0, -1, true}, {"pal5_grey", 5, KRN_ORDER_BGR, 0}};
    for (const char *ext : {".png", ".tif", ".pnm"}) {
        const std::string file = dir.path(std::string("f") + ext);
        for (const Layout &layout : odd) {
            Bitmap src(layout, 10, 3, 4);
            ASSERT_EQ(Save(file, src.get()), ST_SUCCESS);
            Loaded got(file);
            ASSERT_EQ(got.status, ST_SUCCESS);
            EXPECT_EQ(got.d.nBitsPerPixel, layout.colourPalette && std::string(ext) == ".pnm" ? 24 : 8) << ext;
            ExpectSamePicture(src.get(), &got.d);
        }
        for (int view : {3, 5, 6, 8})
            for (const char *name : {"pal1_grey", "bgr24", "grey12"}) {
                Bitmap src(FindLayout(name), 11, 5, 9);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, src.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                ASSERT_EQ(Save(file, src.get()), ST_SUCCESS);
                Loaded got(file);
                ASSERT_EQ(got.status, ST_SUCCESS);
                ExpectSamePicture(src.get(), &got.d);
            }
    }
}

// Smooth pictures survive JPEG within a few levels; grey stays grey; a low
// quality makes a much smaller file.
TEST(JpegRoundTrip, CloseOnSmoothPicturesAndQualityCounts) {
    TempDir dir;
    const int64_t before = KrnMemOutstanding();
    const std::string file = dir.path("smooth.jpg");
    for (const char *name : {"grey8", "pal8_grey", "bgr24", "rgb24", "bgr48", "grey16"}) {
        const Layout &layout = FindLayout(name);
        Bitmap src(layout, 40, 24, 0);
        for (int32_t y = 0; y < 24; ++y)
            for (int32_t x = 0; x < 40; ++x) {
                const uint64_t v = uint64_t(x * 5 + y * 2), s = layout.bits >= 16 ? 257 : 1;
                const int shift = layout.bits == 48 ? 16 : 8;
                src.setPixel(x, y, layout.bits < 24 ? v * s : (v | (255 - v) << shift | v / 2 << 2 * shift) * s);
            }
        ASSERT_EQ(Save(file, src.get(), RZ_FMT_UNKNOWN, 0, 95), ST_SUCCESS) << name;
        Loaded got(file);
        ASSERT_EQ(got.status, ST_SUCCESS) << name;
        const bool grey = layout.bits <= 16;
        EXPECT_EQ(got.d.nBitsPerPixel, grey ? 8 : 24) << name;
        EXPECT_EQ(KrnIsGrayscale(&got.d) != 0, grey) << name;
        double sum = 0;
        int worst = 0;
        for (int32_t y = 0; y < 24; ++y)
            for (int32_t x = 0; x < 40; ++x) {
                const Rgba a = Look(src.get(), x, y), b = Look(&got.d, x, y);
                for (auto [p, q] : {std::pair{a.r, b.r}, std::pair{a.g, b.g}, std::pair{a.b, b.b}}) {
                    const int d = std::abs(int(p >> 8) - int(q >> 8));
                    sum += d;
                    worst = std::max(worst, d);
                }
            }
        EXPECT_LT(sum / (40 * 24 * 3), 1.5) << name;
        EXPECT_LE(worst, 12) << name;
    }
    EXPECT_EQ(KrnMemOutstanding(), before);
    Bitmap noisy(FindLayout("bgr24"), 64, 64, 3);
    ASSERT_EQ(Save(dir.path("q10.jpg"), noisy.get(), RZ_FMT_UNKNOWN, 0, 10), ST_SUCCESS);
    ASSERT_EQ(Save(dir.path("q100.jpg"), noisy.get(), RZ_FMT_UNKNOWN, 0, 100), ST_SUCCESS);
    EXPECT_LT(ReadBytes(dir.path("q10.jpg")).size() * 2, ReadBytes(dir.path("q100.jpg")).size());
    EXPECT_EQ(Save(dir.path("q.jpg"), noisy.get(), RZ_FMT_UNKNOWN, 0, 101), ST_INVALID_PARAMETER);
}

// The format comes from the content, not the name; the name only picks the
// format to write, and options override it.
TEST(FormatChoice, ContentDecidesOnLoadNameOrOptionOnSave) {
    TempDir dir;
    Bitmap src(FindLayout("bgr24"), 5, 4, 2), grey(FindLayout("grey8"), 5, 4, 2);
    ASSERT_EQ(Save(dir.path("really_png.jpg"), src.get(), RZ_FMT_PNG), ST_SUCCESS);
    EXPECT_EQ(ReadBytes(dir.path("really_png.jpg")).at(1), 'P');
    Loaded got(dir.path("really_png.jpg"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    ExpectSamePicture(src.get(), &got.d);
    RzFileInfo info;
    ASSERT_EQ(Info(dir.path("really_png.jpg"), &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nFormat, info.nWidth, info.nHeight, info.nBitsPerPixel, info.nPages),
              std::tuple(RZ_FMT_PNG, 5, 4, 24, 1));
    EXPECT_EQ(Save(dir.path("noext"), src.get()), RZ_FILE_FORMAT);
    EXPECT_EQ(Save(dir.path("bits.pbm"), src.get()), RZ_FILE_UNSUPPORTED);
    EXPECT_EQ(Save(dir.path("g4.tif"), grey.get(), RZ_FMT_UNKNOWN, RZ_TIFF_G4), RZ_FILE_UNSUPPORTED);
    // A grey picture asked for as PPM comes back as colour showing the same.
    ASSERT_EQ(Save(dir.path("grey.ppm"), grey.get()), ST_SUCCESS);
    Loaded asColour(dir.path("grey.ppm"));
    ASSERT_EQ(asColour.status, ST_SUCCESS);
    EXPECT_EQ(asColour.d.nBitsPerPixel, 24);
    ExpectSamePicture(grey.get(), &asColour.d);
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"grey.ppm", "really_png.jpg"}));
}

// G4 keeps bilevel pictures; signed grey keeps its sign in TIFF and is
// refused by PNG.
TEST(Tiff, G4AndSignedGrey) {
    TempDir dir;
    Bitmap fax(FindLayout("pal1_grey"), 333, 41, 5);
    ASSERT_EQ(Save(dir.path("fax.tif"), fax.get(), RZ_FMT_UNKNOWN, RZ_TIFF_G4), ST_SUCCESS);
    Loaded got(dir.path("fax.tif"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    EXPECT_EQ(got.d.nBitsPerPixel, 1);
    EXPECT_TRUE(KrnIsGrayscale(&got.d));
    ExpectSamePicture(fax.get(), &got.d);

    Bitmap src(FindLayout("grey16"), 9, 4, 5);
    src->uFlags |= BMF_SIGNED;
    ASSERT_EQ(Save(dir.path("s.tif"), src.get()), ST_SUCCESS);
    EXPECT_EQ(Save(dir.path("s.png"), src.get()), RZ_FILE_UNSUPPORTED);
    Loaded s(dir.path("s.tif"));
    ASSERT_EQ(s.status, ST_SUCCESS);
    EXPECT_TRUE(s.d.uFlags & BMF_SIGNED);
    for (int32_t x = 0; x < 9; ++x)
        EXPECT_EQ(Px(&s.d, x, 2), src.pixel(x, 2));
}

} // namespace
} // namespace rz::test
