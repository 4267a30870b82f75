// Round trips through every format, compression and depth, with the
// picture in various views: the loaded bitmap must show the same pixels
// (Look) at the natural depth, keep indices, palettes and bit ranges, and
// leave exactly one file and no kernel block. JPEG, being lossy, is held to
// a tolerance on smooth pictures. Saves a format cannot hold are refused
// without leaving a file.
#include "file_helpers.h"

#include <sys/stat.h>

#include <cmath>

namespace rz::test {

// Test names by name, not by bytes.
void PrintTo(const Layout &l, std::ostream *os) { *os << l.name; }

namespace {

struct Target {
    const char *name, *ext;
    int32_t compression;
    bool keepsAlphaAndPalette;
    int32_t onlyBits = 0; // other depths are refused
};

const Target kTargets[] = {
    {"png", ".png", 0, true},
    {"tiff_none", ".tif", RZ_TIFF_NONE, true},
    {"tiff_lzw", ".tif", RZ_TIFF_LZW, true},
    {"tiff_deflate", ".tif", RZ_TIFF_DEFLATE, true},
    {"tiff_packbits", ".tif", RZ_TIFF_PACKBITS, true},
    {"tiff_g4", ".tif", RZ_TIFF_G4, true, 1},
    {"pnm", ".pnm", 0, false},
};

// Depths no format stores (3, 5 bits) widen to 8.
std::vector<Layout> Layouts() {
    std::vector<Layout> all = AllLayouts();
    all.insert(all.end(), {{"pal2_grey", 2, KRN_ORDER_BGR, 0},
                           {"pal2_colour", 2, KRN_ORDER_BGR, 0, 0, -1, true},
                           {"pal3_colour", 3, KRN_ORDER_BGR, 0, 0, -1, true},
                           {"pal5_grey", 5, KRN_ORDER_BGR, 0},
                           {"rgb32", 32, KRN_ORDER_RGB, 1},
                           {"rgb64", 64, KRN_ORDER_RGB, 1}});
    return all;
}

// Depth the saved file loads back as.
int32_t LoadedBits(const Target &t, const BitmapDesc *b) {
    const int bits = b->nBitsPerPixel;
    if (bits <= 8) {
        const bool grey = b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b);
        return !grey && !t.keepsAlphaAndPalette ? 24 : bits == 3 || bits == 5 ? 8 : bits;
    }
    if (bits == 12)
        return 16;
    return t.keepsAlphaAndPalette || (bits != 32 && bits != 64) ? bits : bits * 3 / 4;
}

void PrintTo(const Target &t, std::ostream *os) { *os << t.name; }

class RoundTrip : public ::testing::TestWithParam<std::tuple<Target, Layout>> {};

TEST_P(RoundTrip, KeepsPixelsAtTheNaturalDepth) {
    const auto &[target, layout] = GetParam();
    TempDir dir;
    const int64_t before = KrnMemOutstanding();
    const std::string name = std::string("out") + target.ext;
    // The file holds the picture as the current view shows it, in every view.
    for (auto [w, h, view] : {std::tuple{13, 7, 1}, std::tuple{1, 1, 1}, std::tuple{64, 3, 2}, std::tuple{64, 3, 3},
                              std::tuple{64, 3, 4}, std::tuple{64, 3, 5}, std::tuple{64, 3, 6}, std::tuple{64, 3, 7},
                              std::tuple{64, 3, 8}}) {
        Bitmap src(layout, w, h, 7 + w);
        ASSERT_EQ(KrnChangeViewPerspective(nullptr, src.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
        const int32_t st = Save(dir.path(name), src.get(), RZ_FMT_UNKNOWN, target.compression);
        if (target.onlyBits && target.onlyBits != layout.bits) {
            EXPECT_EQ(st, RZ_FILE_UNSUPPORTED);
            EXPECT_EQ(dir.names(), std::vector<std::string>{});
            continue;
        }
        ASSERT_EQ(st, ST_SUCCESS);
        Loaded got(dir.path(name));
        ASSERT_EQ(got.status, ST_SUCCESS);
        const int bits = got->nBitsPerPixel;
        EXPECT_EQ(bits, LoadedBits(target, src.get()));
        EXPECT_EQ(got->nViewPerspective, 1);
        EXPECT_EQ(got->nColorOrder, bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR);
        ExpectSamePicture(src.get(), got.get(), target.keepsAlphaAndPalette);
        if (bits == 16) {
            const int high = src->nHighBit < 0 ? src->nBitsPerPixel - 1 : src->nHighBit;
            EXPECT_EQ(std::tuple(got->nDataKind, got->nLowBit, got->nHighBit), std::tuple(1, 0, high - src->nLowBit));
        }
        // Index images keep their indices, not only their colours.
        for (int32_t x = 0; src->nBitsPerPixel <= 8 && bits == src->nBitsPerPixel && x < src->nWidth; ++x)
            EXPECT_EQ(got.pixel(x, src->nHeight - 1), src.pixel(x, src->nHeight - 1));
        EXPECT_EQ(dir.names(), std::vector<std::string>{name});
    }
    EXPECT_EQ(KrnMemOutstanding(), before);
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip,
                         ::testing::Combine(::testing::ValuesIn(kTargets), ::testing::ValuesIn(Layouts())),
                         [](const auto &info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

// Smooth pictures survive JPEG within a few levels; grey stays grey; a low
// quality makes a much smaller file.
TEST(JpegRoundTrip, CloseOnSmoothPicturesAndQualityCounts) {
    TempDir dir;
    const std::string file = dir.path("smooth.jpg");
    for (const char *name : {"grey8", "pal8_grey", "bgr24", "rgb24", "bgr48", "grey16"}) {
        SCOPED_TRACE(name);
        const Layout &layout = FindLayout(name);
        Bitmap src(layout, 40, 24, 0);
        for (int32_t y = 0; y < 24; ++y)
            for (int32_t x = 0; x < 40; ++x) {
                const uint64_t v = uint64_t(x * 5 + y * 2), s = layout.bits >= 16 ? 257 : 1;
                const int shift = layout.bits == 48 ? 16 : 8;
                src.setPixel(x, y, layout.bits < 24 ? v * s : (v | (255 - v) << shift | v / 2 << 2 * shift) * s);
            }
        ASSERT_EQ(Save(file, src.get(), RZ_FMT_UNKNOWN, 0, 95), ST_SUCCESS);
        Loaded got(file);
        ASSERT_EQ(got.status, ST_SUCCESS);
        const bool grey = layout.bits <= 16;
        EXPECT_EQ(got->nBitsPerPixel, grey ? 8 : 24);
        EXPECT_EQ(KrnIsGrayscale(got.get()) != 0, grey);
        double sum = 0;
        int worst = 0;
        for (int32_t y = 0; y < 24; ++y)
            for (int32_t x = 0; x < 40; ++x) {
                const Rgba a = Look(src.get(), x, y), b = Look(got.get(), x, y);
                for (auto [p, q] : {std::pair{a.r, b.r}, std::pair{a.g, b.g}, std::pair{a.b, b.b}}) {
                    const int d = std::abs(int(p >> 8) - int(q >> 8));
                    sum += d, worst = std::max(worst, d);
                }
            }
        EXPECT_LT(sum / (40 * 24 * 3), 1.5);
        EXPECT_LE(worst, 12);
    }
    Bitmap noisy(FindLayout("bgr24"), 64, 64, 3);
    ASSERT_EQ(Save(dir.path("q10.jpg"), noisy.get(), RZ_FMT_UNKNOWN, 0, 10), ST_SUCCESS);
    ASSERT_EQ(Save(dir.path("q100.jpg"), noisy.get(), RZ_FMT_UNKNOWN, 0, 100), ST_SUCCESS);
    EXPECT_LT(ReadBytes(dir.path("q10.jpg")).size() * 2, ReadBytes(dir.path("q100.jpg")).size());
}

// The format comes from the content on load; on save from the option, else
// the name. What a format cannot hold is refused and leaves no file.
TEST(FormatChoice, ContentDecidesOnLoadNameOrOptionOnSaveAndRefusalsLeaveNothing) {
    TempDir dir;
    Bitmap colour(FindLayout("bgr24"), 5, 4, 2), grey(FindLayout("grey8"), 5, 4, 2), pal4(FindLayout("pal4_colour"), 5, 4, 2);
    Bitmap sgrey(FindLayout("grey16"), 9, 4, 5);
    sgrey->uFlags |= BMF_SIGNED;
    ASSERT_EQ(Save(dir.path("really_png.jpg"), colour.get(), RZ_FMT_PNG), ST_SUCCESS);
    EXPECT_EQ(ReadBytes(dir.path("really_png.jpg")).at(1), 'P');
    Loaded got(dir.path("really_png.jpg"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    ExpectSamePicture(colour.get(), got.get());
    RzFileInfo info;
    ASSERT_EQ(Info(dir.path("really_png.jpg"), &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nFormat, info.nWidth, info.nHeight, info.nBitsPerPixel, info.nPages),
              std::tuple(RZ_FMT_PNG, 5, 4, 24, 1));
    // A grey picture asked for as PPM comes back as colour showing the same;
    // signed grey keeps its sign in TIFF.
    ASSERT_EQ(Save(dir.path("grey.ppm"), grey.get()), ST_SUCCESS);
    Loaded asColour(dir.path("grey.ppm"));
    ASSERT_EQ(asColour.status, ST_SUCCESS);
    EXPECT_EQ(asColour->nBitsPerPixel, 24);
    ExpectSamePicture(grey.get(), asColour.get());
    ASSERT_EQ(Save(dir.path("s.tif"), sgrey.get()), ST_SUCCESS);
    Loaded s(dir.path("s.tif"));
    ASSERT_EQ(s.status, ST_SUCCESS);
    EXPECT_TRUE(s->uFlags & BMF_SIGNED);
    EXPECT_EQ(s.storedBytes(), sgrey.storedBytes());
    const struct {
        const char *name;
        const Bitmap &b;
        int32_t format, compression, quality, status;
    } refused[] = {
        {"noext", colour, 0, 0, 0, RZ_FILE_FORMAT},
        {"bits.pbm", colour, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"bits4.pbm", pal4, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"signed.png", sgrey, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"colour.dcm", colour, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"q.jpg", colour, 0, 0, 101, ST_INVALID_PARAMETER},
        {"f.png", grey, 99, 0, 0, ST_INVALID_PARAMETER},
        {"c.tif", grey, 0, 9, 0, ST_INVALID_PARAMETER},
    };
    for (const auto &r : refused)
        EXPECT_EQ(Save(dir.path(r.name), r.b.get(), r.format, r.compression, r.quality), r.status) << r.name;
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"grey.ppm", "really_png.jpg", "s.tif"}));
}

// Saving over a symbolic link replaces the file it names (made when the
// link dangles) and keeps that file's permissions.
TEST(Links, SavingWritesThroughTheLink) {
    TempDir dir;
    Bitmap b(FindLayout("bgr24"), 5, 4, 2);
    WriteText(dir.path("real.png"), "old");
    ASSERT_EQ(chmod(dir.path("real.png").c_str(), 0640), 0);
    ASSERT_EQ(symlink("real.png", dir.path("link.png").c_str()), 0);
    ASSERT_EQ(symlink("made.png", dir.path("dangling.png").c_str()), 0);
    ASSERT_EQ(Save(dir.path("link.png"), b.get()), ST_SUCCESS);
    ASSERT_EQ(Save(dir.path("dangling.png"), b.get()), ST_SUCCESS);
    struct stat st {};
    for (const char *link : {"link.png", "dangling.png"})
        EXPECT_TRUE(lstat(dir.path(link).c_str(), &st) == 0 && S_ISLNK(st.st_mode)) << link;
    ASSERT_EQ(stat(dir.path("real.png").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    for (const char *file : {"real.png", "made.png"}) {
        Loaded l(dir.path(file));
        ASSERT_EQ(l.status, ST_SUCCESS) << file;
        ExpectSamePicture(b.get(), l.get());
    }
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"dangling.png", "link.png", "made.png", "real.png"}));
}

} // namespace
} // namespace rz::test
