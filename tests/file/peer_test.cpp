// The file module against libpng, libtiff and libjpeg: every file we write,
// in every view, is read back by us and by the peer; files the peers write
// in layouts our saver never makes (pages, white-is-zero, CMYK TIFF, EXIF
// orientation) load as worked out by hand; metadata travels both ways.
#include "file_helpers.h"

#include <png.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <jpeglib.h>

namespace rz::test {

void PrintTo(const Layout &l, std::ostream *os) { *os << l.name; }

namespace {

using Blob = std::vector<uint8_t>;

struct PngFile {
    uint32_t w, h;
    int depth, type;
    std::vector<Blob> rows; // PNG's byte layout
    bool interlace = false;
    uint32_t ppm = 0; // pHYs, pixels per metre
    Blob icc = {}, exif = {};
};

void WritePng(const std::string &path, const PngFile &s) {
    FILE *f = fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, s.w, s.h, s.depth, s.type, s.interlace, 0, 0);
    if (s.ppm)
        png_set_pHYs(png, info, s.ppm, s.ppm, PNG_RESOLUTION_METER);
    if (!s.icc.empty())
        png_set_iCCP(png, info, "test", 0, s.icc.data(), png_uint_32(s.icc.size()));
    if (!s.exif.empty())
        png_set_eXIf_1(png, info, png_uint_32(s.exif.size()),
                       const_cast<uint8_t *>(s.exif.data()));
    png_write_info(png, info);
    std::vector<png_bytep> rows;
    for (const auto &r : s.rows)
        rows.push_back(const_cast<png_bytep>(r.data()));
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    fclose(f);
}

// What libpng finds in a file: header, pHYs, profile, EXIF.
struct PngFacts {
    int depth = 0, type = -1, unit = 0;
    uint32_t w = 0, h = 0, ppmX = 0;
    Blob icc, exif;
};
PngFacts ReadPngFacts(const std::string &path) {
    PngFacts r;
    FILE *f = fopen(path.c_str(), "rb");
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_read_info(png, info);
    r.w = png_get_image_width(png, info), r.h = png_get_image_height(png, info);
    r.depth = png_get_bit_depth(png, info), r.type = png_get_color_type(png, info);
    png_uint_32 y = 0, n = 0;
    png_get_pHYs(png, info, &r.ppmX, &y, &r.unit);
    png_charp name;
    png_bytep data;
    int comp = 0;
    if (png_get_iCCP(png, info, &name, &comp, &data, &n))
        r.icc.assign(data, data + n);
    if (png_get_eXIf_1(png, info, &n, &data))
        r.exif.assign(data, data + n);
    png_destroy_read_struct(&png, &info, nullptr);
    fclose(f);
    return r;
}

// Every pixel as the peer reads it (libpng's simplified reader, libtiff's
// RGBA reader, which premultiplies by alpha): red | green << 8 | blue << 16
// | alpha << 24, top row first; empty when the peer refuses the file.
std::vector<uint32_t> PeerRgba(const std::string &path, uint32_t w, uint32_t h) {
    std::vector<uint32_t> out(size_t(w) * h);
    bool ok = false;
    if (path.ends_with(".png")) {
        png_image img{};
        img.version = PNG_IMAGE_VERSION;
        ok = png_image_begin_read_from_file(&img, path.c_str()) && img.width == w &&
             img.height == h;
        img.format = PNG_FORMAT_RGBA;
        ok = ok && png_image_finish_read(&img, nullptr, out.data(), 0, nullptr);
        png_image_free(&img);
    } else if (TIFF *t = TIFFOpen(path.c_str(), "r")) {
        ok = TIFFReadRGBAImageOriented(t, w, h, out.data(), ORIENTATION_TOPLEFT, 0);
        TIFFClose(t);
    }
    return ok ? out : std::vector<uint32_t>{};
}

// One TIFF page in strips of two rows.
void TiffStrips(TIFF *t, uint32_t w, uint32_t h, uint32_t bps, uint32_t photometric,
                const Blob &data, uint32_t compression = COMPRESSION_NONE) {
    const uint32_t spp = photometric == PHOTOMETRIC_SEPARATED ? 4 : 1;
    for (auto [tag, value] : {std::pair{TIFFTAG_IMAGEWIDTH, w}, {TIFFTAG_IMAGELENGTH, h},
                              {TIFFTAG_BITSPERSAMPLE, bps}, {TIFFTAG_SAMPLESPERPIXEL, spp},
                              {TIFFTAG_PHOTOMETRIC, photometric}, {TIFFTAG_ROWSPERSTRIP, 2u},
                              {TIFFTAG_COMPRESSION, compression}})
        TIFFSetField(t, tag, value);
    for (uint32_t y = 0; y < h; ++y)
        ASSERT_GE(TIFFWriteScanline(t, const_cast<uint8_t *>(&data[y * data.size() / h]), y, 0),
                  0);
    TIFFWriteDirectory(t);
}

// libjpeg's decoded samples in a colour space.
struct JpegPeer {
    Blob samples;
    int w = 0, h = 0, components = 0;
};
JpegPeer ReadJpeg(const std::string &path, J_COLOR_SPACE out) {
    JpegPeer r;
    FILE *f = fopen(path.c_str(), "rb");
    jpeg_decompress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_decompress(&c);
    jpeg_stdio_src(&c, f);
    jpeg_read_header(&c, TRUE);
    r.components = c.num_components, c.out_color_space = out;
    jpeg_start_decompress(&c);
    r.w = int(c.output_width), r.h = int(c.output_height);
    r.samples.resize(size_t(r.w) * r.h * c.output_components);
    while (c.output_scanline < c.output_height) {
        JSAMPROW row = &r.samples[size_t(c.output_scanline) * r.w * c.output_components];
        jpeg_read_scanlines(&c, &row, 1);
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    fclose(f);
    return r;
}

// A well-formed ICC header with no tags, then filler: libpng refuses a
// profile that compresses to almost nothing.
Blob IccProfile() {
    Blob p(256, 0);
    for (size_t i = 132; i < p.size(); ++i)
        p[i] = uint8_t(i * 37 + 11);
    p[2] = 1, p[8] = 2, p[9] = 0x10; // size 256, version 2.1
    std::memcpy(&p[12], "mntrRGB XYZ ", 12);
    std::memcpy(&p[36], "acsp", 4);
    const uint8_t d50[12] = {0, 0, 0xF6, 0xD6, 0, 1, 0, 0, 0, 0, 0xD3, 0x2D};
    std::memcpy(&p[68], d50, 12);
    return p;
}

// Little-endian TIFF-structured EXIF block: one IFD with the orientation
// and a make string at 38, outside the entry.
Blob ExifBlock(int orientation) {
    return {'I',  'I',  42, 0, 8, 0, 0, 0, 2,  0,                      // header, two entries
            0x0F, 0x01, 2,  0, 5, 0, 0, 0, 38, 0, 0, 0,                // Make: 5 bytes at 38
            0x12, 0x01, 3,  0, 1, 0, 0, 0, uint8_t(orientation), 0, 0, 0, // Orientation
            0,    0,    0,  0, 'R', 'z', 'I', 'm', 0};
}
int ExifOrientationOf(const Blob &e) {
    return e.size() > 31 && e[22] == 0x12 && e[23] == 0x01 ? e[30] : -1; // our block's layout
}

struct Target {
    const char *ext;
    int32_t compression;
    bool keepsAlphaAndPalette;
    int32_t onlyBits = 0; // other depths are refused
};
const Target kTargets[] = {{".png", 0, true},           {".tif", RZ_TIFF_NONE, true},
                           {".tif", RZ_TIFF_LZW, true},      {".tif", RZ_TIFF_DEFLATE, true},
                           {".tif", RZ_TIFF_PACKBITS, true}, {".tif", RZ_TIFF_G4, true, 1},
                           {".pnm", 0, false}};

// Depth a saved file loads back as: 3 and 5 bits widen to 8, 12 to 16;
// colour palettes and alpha go where the format cannot hold them.
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

class RoundTrip : public ::testing::TestWithParam<Layout> {};

// Every format and compression, the picture in every view: the file holds
// the view as shown. We load it back at its natural depth (indices, palette
// and bit range kept, view 1, one file, no kernel block left); the peer sees
// the same colours where channels are 8 bits (it scales wider ones its way).
TEST_P(RoundTrip, PeersAndWeSeeWhatWasSaved) {
    const Layout &layout = GetParam();
    const int64_t before = KrnMemOutstanding();
    for (const Target &t : kTargets)
        for (int v = 0; v <= 8; ++v) {
            SCOPED_TRACE(std::string(t.ext) + " " + std::to_string(t.compression) + " view " +
                         std::to_string(v));
            TempDir dir;
            const std::string name = std::string("out") + t.ext, file = dir.path(name);
            Bitmap src(layout, v == 0 ? 1 : v == 1 ? 13 : 64, v == 0 ? 1 : v == 1 ? 7 : 3, 7 + v);
            ASSERT_EQ(
                KrnChangeViewPerspective(nullptr, src.get(), BITMAPDESC_SIZE, std::max(v, 1), 0),
                KRN_OK);
            const int32_t st = Save(file, src.get(), RZ_FMT_UNKNOWN, t.compression);
            if (t.onlyBits && t.onlyBits != layout.bits) {
                EXPECT_EQ(std::tuple(st, dir.names()),
                          std::tuple(RZ_FILE_UNSUPPORTED, std::vector<std::string>{}));
                continue;
            }
            ASSERT_EQ(st, ST_SUCCESS);
            EXPECT_EQ(dir.names(), std::vector<std::string>{name});
            Loaded got(file);
            ASSERT_EQ(got.status, ST_SUCCESS);
            const int bits = got->nBitsPerPixel, w = src->nWidth, h = src->nHeight;
            EXPECT_EQ(std::tuple(bits, got->nViewPerspective, got->nColorOrder),
                      std::tuple(LoadedBits(t, src.get()), 1,
                                 bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR));
            ExpectSamePicture(src.get(), got.get(), t.keepsAlphaAndPalette);
            if (bits == 16) {
                const int high = src->nHighBit < 0 ? src->nBitsPerPixel - 1 : src->nHighBit;
                EXPECT_EQ(std::tuple(got->nDataKind, got->nLowBit, got->nHighBit),
                          std::tuple(1, 0, high - src->nLowBit));
            }
            for (int32_t x = 0; layout.bits <= 8 && bits == layout.bits && x < w; ++x)
                EXPECT_EQ(got.pixel(x, h - 1), src.pixel(x, h - 1)) << "index at " << x;
            if (t.ext[1] == 'p' && t.ext[2] == 'n' && t.ext[3] == 'm')
                continue;
            if (layout.bits > 8 && layout.bits != 24 && layout.bits != 32)
                continue;
            const auto peer = PeerRgba(file, uint32_t(w), uint32_t(h));
            ASSERT_EQ(peer.size(), size_t(w * h));
            for (int i = 0; i < w * h; ++i) {
                const Rgba s = Look(src.get(), i % w, i / w);
                const uint32_t want =
                    s.r >> 8 | (s.g >> 8) << 8 | (s.b >> 8) << 16 | (s.a >> 8) << 24;
                const bool whole = t.ext[1] == 'p' || want >> 24 == 255; // else alpha alone
                ASSERT_EQ(whole ? peer[i] : peer[i] >> 24, whole ? want : want >> 24) << i;
            }
        }
    EXPECT_EQ(KrnMemOutstanding(), before);
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::ValuesIn(Layouts()),
                         [](const auto &info) { return std::string(info.param.name); });

// Smooth pictures survive JPEG within a few levels, and we decode exactly
// what libjpeg decodes; grey stays one component.
TEST(Jpeg, CloseOnSmoothPicturesAndDecodedAsLibjpegDoes) {
    TempDir dir;
    const std::string file = dir.path("smooth.jpg");
    for (const char *name : {"grey8", "pal8_grey", "bgr24", "rgb24", "bgr48", "grey16"}) {
        SCOPED_TRACE(name);
        const Layout &layout = FindLayout(name);
        const int n = layout.bits <= 16 ? 1 : 3, shift = layout.bits == 48 ? 16 : 8;
        Bitmap src(layout, 40, 24, 0);
        for (int32_t i = 0; i < 40 * 24; ++i) {
            const uint64_t v = uint64_t(i % 40 * 5 + i / 40 * 2), s = layout.bits >= 16 ? 257 : 1;
            src.setPixel(i % 40, i / 40,
                         n == 1 ? v * s : (v | (255 - v) << shift | v / 2 << 2 * shift) * s);
        }
        ASSERT_EQ(Save(file, src.get(), RZ_FMT_UNKNOWN, 0, 95), ST_SUCCESS);
        const JpegPeer peer = ReadJpeg(file, n == 1 ? JCS_GRAYSCALE : JCS_RGB);
        Loaded got(file);
        ASSERT_EQ(got.status, ST_SUCCESS);
        EXPECT_EQ(std::tuple(got->nBitsPerPixel, KrnIsGrayscale(got.get()) != 0, peer.components),
                  std::tuple(n * 8, n == 1, n));
        double sum = 0;
        for (int32_t i = 0; i < 40 * 24; ++i) {
            const Rgba a = Look(src.get(), i % 40, i / 40), b = Look(got.get(), i % 40, i / 40);
            const uint32_t mine[3] = {a.r, a.g, a.b}, ours[3] = {b.r, b.g, b.b};
            for (int k = 0; k < n; ++k) {
                const int d = std::abs(int(mine[k] >> 8) - int(ours[k] >> 8));
                sum += d;
                EXPECT_LE(d, 12) << i;
                ASSERT_EQ(ours[k] >> 8, peer.samples[size_t(i) * n + k]) << i;
            }
        }
        EXPECT_LT(sum / (40 * 24 * n), 1.5);
    }
}

// Several pages, each chosen by number; 16-bit grey bounded by
// MaxSampleValue; bilevel white-is-zero G4; CMYK arrives as 24-bit colour.
TEST(PeerTiff, PagesWhiteIsZeroAndCmyk) {
    TempDir dir;
    const std::string file = dir.path("pages.tif");
    TIFF *t = TIFFOpen(file.c_str(), "w");
    TiffStrips(t, 4, 3, 8, PHOTOMETRIC_MINISBLACK, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    TIFFSetField(t, TIFFTAG_MAXSAMPLEVALUE, uint16_t(1023)); // little-endian words below
    TiffStrips(t, 3, 2, 16, PHOTOMETRIC_MINISBLACK, {0, 0, 0xFF, 3, 0, 2, 7, 0, 100, 0, 1, 0});
    TiffStrips(t, 10, 2, 1, PHOTOMETRIC_MINISWHITE, {0xF0, 0x00, 0x0F, 0xC0},
               COMPRESSION_CCITTFAX4);
    TIFFSetField(t, TIFFTAG_INKSET, INKSET_CMYK);
    TiffStrips(t, 2, 1, 8, PHOTOMETRIC_SEPARATED, {0, 0, 0, 0, 0, 0, 0, 255});
    TIFFClose(t);
    RzFileInfo info;
    ASSERT_EQ(Info(file, &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nFormat, info.nPages, info.nWidth), std::tuple(RZ_FMT_TIFF, 4, 4));
    Loaded p0(file, 0), p1(file, 1), p2(file, 2), p3(file, 3);
    EXPECT_EQ(Loaded(file, 4).status, RZ_FILE_BAD_PAGE);
    ASSERT_EQ(std::tuple(p0.status, p1.status, p2.status, p3.status),
              std::tuple(ST_SUCCESS, ST_SUCCESS, ST_SUCCESS, ST_SUCCESS));
    EXPECT_EQ(std::tuple(p0->nBitsPerPixel, KrnIsGrayscale(p0.get()) != 0, p0.pixel(3, 2)),
              std::tuple(8, true, 12u));
    EXPECT_EQ(
        std::tuple(p1->nWidth, p1->nBitsPerPixel, p1->nHighBit, p1.pixel(1, 0), p1.pixel(1, 1)),
        std::tuple(3, 16, 9, 1023u, 100u));
    EXPECT_EQ(std::tuple(p2->nBitsPerPixel, KrnIsGrayscale(p2.get()) != 0), std::tuple(1, true));
    // Set bits are black in the file, so index 0 (black) on the grey ramp.
    for (int32_t x = 0; x < 10; ++x)
        EXPECT_EQ(std::tuple(p2.pixel(x, 0), p2.pixel(x, 1)), std::tuple(x >= 4, x < 4)) << x;
    EXPECT_EQ(std::tuple(p3->nBitsPerPixel, p3.pixel(0, 0), p3.pixel(1, 0)),
              std::tuple(24, 0xFFFFFFu, 0u));
}

// Where stored pixel (sx, sy) shows for each orientation, as the tag's
// wording has it ("row 0 is the visual right-hand side, column 0 the top"
// for 6, and so on).
std::pair<int, int> Shown(int o, int sx, int sy, int sw, int sh) {
    switch (o) {
    case 2: return {sw - 1 - sx, sy};
    case 3: return {sw - 1 - sx, sh - 1 - sy};
    case 4: return {sx, sh - 1 - sy};
    case 5: return {sy, sx};
    case 6: return {sh - 1 - sy, sx};
    case 7: return {sh - 1 - sy, sw - 1 - sx};
    case 8: return {sy, sw - 1 - sx};
    default: return {sx, sy};
    }
}

// Each EXIF orientation shows the picture upright; resolution and profile
// load; saved upright with orientation 1, as libpng reads it.
TEST(Metadata, OrientationResolutionProfileAndExifTravel) {
    TempDir dir;
    const int sw = 6, sh = 4;
    const Blob icc = IccProfile();
    auto upright = [](int x, int y) {
        return uint32_t(x * 20) | uint32_t(y * 30) << 8 | uint32_t(x * y + 9) << 16;
    };
    for (int o = 1; o <= 8; ++o) {
        SCOPED_TRACE(o);
        PngFile s{sw, sh, 8, PNG_COLOR_TYPE_RGB, {sh, Blob(sw * 3)}};
        const int uw = o >= 5 ? sh : sw, uh = o >= 5 ? sw : sh;
        for (int i = 0; i < sw * sh; ++i) {
            const auto [dx, dy] = Shown(o, i % sw, i / sw, sw, sh);
            const uint32_t u = upright(dx, dy); // little-endian: red first
            std::memcpy(&s.rows[i / sw][i % sw * 3], &u, 3);
        }
        // 300 dpi; odd orientations interlaced
        s.ppm = 11811, s.icc = icc, s.exif = ExifBlock(o), s.interlace = o % 2;
        WritePng(dir.path("in.png"), s);
        RzFileInfo info;
        ASSERT_EQ(Info(dir.path("in.png"), &info), ST_SUCCESS);
        EXPECT_EQ(std::tuple(info.nWidth, info.nHeight, info.nOrientation, info.nResolutionUnit,
                             info.dXResolution, info.nIccBytes, info.nExifBytes),
                  std::tuple(uw, uh, o, KRN_RES_INCH, 300.0, uint32_t(icc.size()),
                             uint32_t(s.exif.size())));
        Loaded got(dir.path("in.png"));
        ASSERT_EQ(got.status, ST_SUCCESS);
        ASSERT_EQ(std::tuple(got->nWidth, got->nHeight), std::tuple(uw, uh));
        for (int i = 0; i < uw * uh; ++i)
            ASSERT_EQ(got.pixel(i % uw, i / uw), upright(i % uw, i / uw)) << i;
        double rx = 0, ry = 0;
        int32_t unit = -1;
        const void *blob = nullptr;
        uint32_t n = 0;
        const int32_t has = KrnGetBitmapResolution(got.get(), &rx, &ry, &unit);
        EXPECT_EQ(std::tuple(has, rx, ry, unit), std::tuple(1, 300.0, 300.0, KRN_RES_INCH));
        ASSERT_EQ(KrnGetBitmapMetadata(got.get(), KRN_META_ICC, &blob, &n), 1);
        EXPECT_EQ(Blob(static_cast<const uint8_t *>(blob), static_cast<const uint8_t *>(blob) + n),
                  icc);
        if (o != 6)
            continue;
        ASSERT_EQ(Save(dir.path("up.png"), got.get()), ST_SUCCESS);
        const PngFacts p = ReadPngFacts(dir.path("up.png"));
        EXPECT_EQ(std::tuple(p.w, p.h, p.ppmX, p.unit, p.icc, ExifOrientationOf(p.exif)),
                  std::tuple(uint32_t(uw), uint32_t(uh), 11811u, PNG_RESOLUTION_METER, icc, 1));
    }
}

} // namespace
} // namespace rz::test
