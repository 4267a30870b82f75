// The file module against the peer libraries: files written by libpng,
// libtiff and libjpeg directly (layouts our saver never makes: interlacing,
// sBIT, short palettes, transparency, tiles, separate planes, pages,
// white-is-zero, CMYK and YCCK, EXIF orientation) load as worked out by
// hand; our files read back by the peers show what we saved, metadata
// included; PNM by its bytes.
#include "file_helpers.h"

#include <png.h>
#include <tiffio.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <jpeglib.h>

namespace rz::test {
namespace {

// ---- Peer writers and readers. ----

struct PngSpec {
    uint32_t w, h;
    int depth, type;
    std::vector<std::vector<uint8_t>> rows; // PNG's byte layout
    std::vector<png_color> palette = {};
    std::vector<uint8_t> alphas = {};       // palette tRNS
    bool key = false;                       // grey / RGB tRNS
    png_color_16 keyColour{};
    int sbit = 0;
    bool interlace = false;
    uint32_t ppm = 0; // pHYs, pixels per metre
    std::vector<uint8_t> icc = {}, exif = {};
};

void WritePng(const std::string &path, const PngSpec &s) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, s.w, s.h, s.depth, s.type, s.interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!s.palette.empty())
        png_set_PLTE(png, info, s.palette.data(), int(s.palette.size()));
    if (!s.alphas.empty() || s.key)
        png_set_tRNS(png, info, s.alphas.empty() ? nullptr : s.alphas.data(), int(s.alphas.size()),
                     s.key ? &s.keyColour : nullptr);
    png_color_8 sbit{};
    sbit.gray = png_byte(s.sbit);
    if (s.sbit)
        png_set_sBIT(png, info, &sbit);
    if (s.ppm)
        png_set_pHYs(png, info, s.ppm, s.ppm, PNG_RESOLUTION_METER);
    if (!s.icc.empty())
        png_set_iCCP(png, info, "test", 0, s.icc.data(), png_uint_32(s.icc.size()));
    if (!s.exif.empty())
        png_set_eXIf_1(png, info, png_uint_32(s.exif.size()), const_cast<png_bytep>(s.exif.data()));
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
    int depth = 0, type = -1;
    uint32_t w = 0, h = 0, ppmX = 0, unit = 0;
    std::vector<uint8_t> icc, exif;
};
PngFacts ReadPngFacts(const std::string &path) {
    PngFacts r;
    FILE *f = fopen(path.c_str(), "rb");
    if (!f)
        return r;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_read_info(png, info);
    r.w = png_get_image_width(png, info), r.h = png_get_image_height(png, info);
    r.depth = png_get_bit_depth(png, info), r.type = png_get_color_type(png, info);
    png_uint_32 y = 0;
    int unit = 0;
    png_get_pHYs(png, info, &r.ppmX, &y, &unit);
    r.unit = uint32_t(unit);
    png_charp name;
    int comp;
    png_bytep data;
    png_uint_32 n = 0;
    if (png_get_iCCP(png, info, &name, &comp, &data, &n))
        r.icc.assign(data, data + n);
    if (png_get_eXIf_1(png, info, &n, &data))
        r.exif.assign(data, data + n);
    png_destroy_read_struct(&png, &info, nullptr);
    fclose(f);
    return r;
}

// Every pixel through libpng's simplified reader in a given format.
std::vector<uint8_t> PeerPngPixels(const std::string &path, uint32_t format) {
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&img, path.c_str()))
        return {};
    img.format = format;
    std::vector<uint8_t> out(PNG_IMAGE_SIZE(img));
    return png_image_finish_read(&img, nullptr, out.data(), 0, nullptr) ? out : std::vector<uint8_t>{};
}

// Every pixel through libtiff's RGBA reader, top row first; and the photometric.
std::vector<uint32_t> PeerTiffPixels(const std::string &path, uint32_t w, uint32_t h, uint16_t *photometric) {
    std::vector<uint32_t> out(size_t(w) * h);
    TIFF *t = TIFFOpen(path.c_str(), "r");
    if (!t)
        return {};
    TIFFGetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    const bool ok = TIFFReadRGBAImageOriented(t, w, h, out.data(), ORIENTATION_TOPLEFT, 0);
    TIFFClose(t);
    return ok ? out : std::vector<uint32_t>{};
}

void Fields(TIFF *t, uint32_t w, uint32_t h, int bps, int spp, int photometric, int compression, int planar) {
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bps);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, planar);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
}

void WriteStrips(TIFF *t, uint32_t w, uint32_t h, int bps, int photometric, const std::vector<uint8_t> &data,
                 int compression = COMPRESSION_NONE) {
    Fields(t, w, h, bps, photometric == PHOTOMETRIC_SEPARATED ? 4 : 1, photometric, compression, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 2u);
    const size_t line = data.size() / h;
    for (uint32_t y = 0; y < h; ++y)
        ASSERT_GE(TIFFWriteScanline(t, const_cast<uint8_t *>(&data[y * line]), y, 0), 0);
    TIFFWriteDirectory(t);
}

struct JpegSpec {
    int w = 0, h = 0, components = 3;
    J_COLOR_SPACE in = JCS_RGB, stored = JCS_UNKNOWN; // stored: JCS_UNKNOWN keeps libjpeg's choice
    bool adobe = true;
    std::vector<uint8_t> pixels, exif;
};

void WriteJpeg(const std::string &path, const JpegSpec &s) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_stdio_dest(&c, f);
    c.image_width = JDIMENSION(s.w), c.image_height = JDIMENSION(s.h);
    c.input_components = s.components, c.in_color_space = s.in;
    jpeg_set_defaults(&c);
    if (s.stored != JCS_UNKNOWN)
        jpeg_set_colorspace(&c, s.stored);
    c.write_Adobe_marker = s.adobe;
    jpeg_set_quality(&c, 95, TRUE);
    jpeg_start_compress(&c, TRUE);
    if (!s.exif.empty()) {
        std::vector<uint8_t> m = {'E', 'x', 'i', 'f', 0, 0};
        m.insert(m.end(), s.exif.begin(), s.exif.end());
        jpeg_write_marker(&c, JPEG_APP0 + 1, m.data(), unsigned(m.size()));
    }
    for (int y = 0; y < s.h; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(s.pixels.data() + size_t(y) * s.w * s.components);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    fclose(f);
}

// libjpeg's decoded samples in a colour space, and what it saw.
struct JpegPeer {
    std::vector<uint8_t> samples;
    int w = 0, h = 0, components = 0, densityUnit = -1, density = 0;
    std::vector<uint8_t> icc, exif;
};
JpegPeer ReadJpegPeer(const std::string &path, J_COLOR_SPACE out) {
    JpegPeer r;
    FILE *f = fopen(path.c_str(), "rb");
    if (!f)
        return r;
    jpeg_decompress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_decompress(&c);
    jpeg_stdio_src(&c, f);
    jpeg_save_markers(&c, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(&c, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&c, TRUE);
    r.components = c.num_components;
    c.out_color_space = out;
    if (c.saw_JFIF_marker)
        r.densityUnit = c.density_unit, r.density = c.X_density;
    JOCTET *icc = nullptr;
    unsigned int n = 0;
    if (jpeg_read_icc_profile(&c, &icc, &n))
        r.icc.assign(icc, icc + n);
    free(icc);
    for (jpeg_saved_marker_ptr m = c.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6)
            r.exif.assign(m->data + 6, m->data + m->data_length);
    jpeg_start_decompress(&c);
    r.w = int(c.output_width), r.h = int(c.output_height);
    r.samples.resize(size_t(r.w) * r.h * c.output_components);
    while (c.output_scanline < c.output_height) {
        JSAMPROW row = r.samples.data() + size_t(c.output_scanline) * r.w * c.output_components;
        jpeg_read_scanlines(&c, &row, 1);
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    fclose(f);
    return r;
}

// A well-formed ICC header with no tags, then filler: libpng refuses a
// profile that compresses to almost nothing.
std::vector<uint8_t> IccProfile() {
    std::vector<uint8_t> p(256, 0);
    for (size_t i = 132; i < p.size(); ++i)
        p[i] = uint8_t(i * 37 + 11);
    p[2] = 1;              // size 256, big-endian
    p[8] = 2, p[9] = 0x10; // version 2.1
    std::memcpy(&p[12], "mntrRGB XYZ ", 12);
    std::memcpy(&p[36], "acsp", 4);
    const uint8_t d50[12] = {0, 0, 0xF6, 0xD6, 0, 1, 0, 0, 0, 0, 0xD3, 0x2D};
    std::memcpy(&p[68], d50, 12);
    return p;
}

// Little-endian TIFF-structured EXIF block: one IFD with the orientation
// and a make string held outside the entry.
std::vector<uint8_t> ExifBlock(int orientation) {
    return {'I', 'I', 42, 0, 8, 0, 0, 0, 2, 0, 0x0F, 0x01, 2, 0, 5, 0, 0, 0, 38, 0, 0, 0, // Make, 5 bytes at 38
            0x12, 0x01, 3, 0, 1, 0, 0, 0, uint8_t(orientation), 0, 0, 0, 0, 0, 0, 0, 'R', 'z', 'I', 'm', 0};
}
int ExifOrientationOf(const std::vector<uint8_t> &e) {
    return e.size() > 31 && e[22] == 0x12 && e[23] == 0x01 ? e[30] : -1; // our block's layout
}

// ---- Peer files loaded. ----

// 10 significant bits in a 16-bit interlaced grey PNG; 4-bit indices into a
// palette of 3; grey with alpha becomes 32-bit colour with a fourth channel.
TEST(PeerPng, InterlacedSignificantBitsShortPaletteGreyAlpha) {
    TempDir dir;
    const uint32_t w = 11, h = 9;
    auto value = [](uint32_t x, uint32_t y) { return (x * 97 + y * 31) % 1024; };
    PngSpec g{w, h, 16, PNG_COLOR_TYPE_GRAY, std::vector<std::vector<uint8_t>>(h)};
    g.sbit = 10, g.interlace = true;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) // PNG keeps significant bits at the top
            g.rows[y].insert(g.rows[y].end(), {uint8_t(value(x, y) >> 2), uint8_t(value(x, y) << 6)});
    WritePng(dir.path("g.png"), g);
    Loaded lg(dir.path("g.png"));
    ASSERT_EQ(lg.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(lg->nBitsPerPixel, lg->nColorOrder, lg->nDataKind, lg->nLowBit, lg->nHighBit),
              std::tuple(16, KRN_ORDER_GRAY, 1, 0, 9));
    for (uint32_t i = 0; i < w * h; ++i)
        ASSERT_EQ(lg.pixel(int32_t(i % w), int32_t(i / w)), value(i % w, i / w)) << i;
    RzFileInfo info;
    ASSERT_EQ(Info(dir.path("g.png"), &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nBitsPerPixel, info.nSignificantBits, info.nColorOrder), std::tuple(16, 10, KRN_ORDER_GRAY));

    PngSpec p{3, 1, 4, PNG_COLOR_TYPE_PALETTE, {{0x21, 0x00}}, {{10, 20, 30}, {200, 100, 0}, {1, 2, 3}}};
    WritePng(dir.path("p.png"), p);
    Loaded lp(dir.path("p.png"));
    ASSERT_EQ(lp.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(lp->nBitsPerPixel, lp->nColors, KrnIsGrayscale(lp.get()) != 0), std::tuple(4, 3, false));
    EXPECT_EQ(std::tuple(lp.pixel(0, 0), lp.pixel(1, 0), lp.pixel(2, 0)), std::tuple(2u, 1u, 0u));
    EXPECT_EQ(Look(lp.get(), 1, 0), (Rgba{200 * 257, 100 * 257, 0, 65535}));
    EXPECT_EQ(lp->pPalette[0].rgbBlue, 30);

    WritePng(dir.path("ga.png"), {2, 1, 8, PNG_COLOR_TYPE_GRAY_ALPHA, {{50, 200, 7, 9}}});
    Loaded ga(dir.path("ga.png"));
    ASSERT_EQ(ga.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(ga->nBitsPerPixel, ga.pixel(0, 0), ga.pixel(1, 0)), std::tuple(32, 0xC8323232u, 0x09070707u));
}

// Each file is written from samples v(x, y); what a pixel must show follows
// the PNG rules: tRNS gives palette entries their alpha (entries past the
// list opaque) or names the one grey / RGB value that is transparent.
TEST(PeerPng, TransparencyLoadsAsAlpha) {
    TempDir dir;
    const uint32_t w = 7, h = 5;
    const std::vector<png_color> pal = {{200, 10, 20}, {0, 255, 0}, {5, 6, 7}, {90, 80, 70}};
    const struct {
        const char *name;
        int depth, type;
        std::vector<uint8_t> alphas; // palette
        uint16_t key;                // grey, or red with green 2 * key and blue 3000
    } cases[] = {{"palette8", 8, PNG_COLOR_TYPE_PALETTE, {0, 128}, 0},
                 {"palette2", 2, PNG_COLOR_TYPE_PALETTE, {255, 255, 7}, 0},
                 {"grey8", 8, PNG_COLOR_TYPE_GRAY, {}, 2},
                 {"grey2", 2, PNG_COLOR_TYPE_GRAY, {}, 1},
                 {"rgb16", 16, PNG_COLOR_TYPE_RGB, {}, 2000}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const bool rgb = c.type == PNG_COLOR_TYPE_RGB;
        auto v = [&](uint32_t x, uint32_t y) { return uint32_t((x * 3 + y * 5) % 4) * (rgb ? 1000 : 1); };
        PngSpec s{w, h, c.depth, c.type, {h, std::vector<uint8_t>(rgb ? w * 6 : (w * c.depth + 7) / 8)}};
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                for (uint32_t k = 0; rgb && k < 3; ++k) {
                    const uint32_t sample = k == 2 ? 3000 : v(x, y) * (k + 1);
                    s.rows[y][6 * x + 2 * k] = uint8_t(sample >> 8), s.rows[y][6 * x + 2 * k + 1] = uint8_t(sample);
                }
                if (!rgb)
                    s.rows[y][x * c.depth / 8] |= uint8_t(v(x, y) << (8 - c.depth - int(x * c.depth % 8)));
            }
        if (c.type == PNG_COLOR_TYPE_PALETTE)
            s.palette = pal, s.alphas = c.alphas;
        else
            s.key = true, s.keyColour.gray = s.keyColour.red = c.key, s.keyColour.green = 2 * c.key,
            s.keyColour.blue = 3000;
        auto want = [&](uint32_t x, uint32_t y) {
            const uint32_t i = v(x, y);
            if (rgb)
                return Rgba{i, 2 * i, 3000, i == c.key ? 0u : 65535u};
            if (c.type == PNG_COLOR_TYPE_GRAY) {
                const uint32_t g = i * 255 / ((1u << c.depth) - 1) * 257;
                return Rgba{g, g, g, i == c.key ? 0u : 65535u};
            }
            const uint32_t a = i < c.alphas.size() ? c.alphas[i] : 255;
            return Rgba{pal[i].red * 257u, pal[i].green * 257u, pal[i].blue * 257u, a * 257};
        };
        const std::string in = dir.path(std::string(c.name) + ".png");
        WritePng(in, s);
        RzFileInfo info;
        ASSERT_EQ(Info(in, &info), ST_SUCCESS);
        EXPECT_TRUE(info.bAlpha);
        Loaded got(in);
        ASSERT_EQ(got.status, ST_SUCCESS);
        EXPECT_EQ(got->nBitsPerPixel, c.depth == 16 ? 64 : 32);
        for (uint32_t i = 0; i < w * h; ++i)
            ASSERT_EQ(Look(got.get(), int32_t(i % w), int32_t(i / w)), want(i % w, i / w)) << i;
    }
}

TEST(PeerTiff, TiledSeparatePlanesSixteenBitRgb) {
    TempDir dir;
    const uint32_t w = 37, h = 21, tile = 16;
    auto sample = [](uint32_t x, uint32_t y, int c) { return uint16_t(x * 1000 + y * 17 + c * 20000 + 3); };
    TIFF *t = TIFFOpen(dir.path("t.tif").c_str(), "w");
    Fields(t, w, h, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_ADOBE_DEFLATE, PLANARCONFIG_SEPARATE);
    TIFFSetField(t, TIFFTAG_TILEWIDTH, tile);
    TIFFSetField(t, TIFFTAG_TILELENGTH, tile);
    std::vector<uint16_t> buf(tile * tile);
    for (int c = 0; c < 3; ++c)
        for (uint32_t ty = 0; ty < h; ty += tile)
            for (uint32_t tx = 0; tx < w; tx += tile) {
                for (uint32_t i = 0; i < tile * tile; ++i)
                    buf[i] = sample(tx + i % tile, ty + i / tile, c);
                ASSERT_GE(TIFFWriteTile(t, buf.data(), tx, ty, 0, uint16_t(c)), 0);
            }
    TIFFClose(t);
    Loaded got(dir.path("t.tif"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(got->nBitsPerPixel, got->nColorOrder), std::tuple(48, KRN_ORDER_BGR));
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            ASSERT_EQ(got.pixel(int32_t(x), int32_t(y)),
                      sample(x, y, 0) | uint64_t(sample(x, y, 1)) << 16 | uint64_t(sample(x, y, 2)) << 32)
                << x << "," << y;
}

// Several pages, each chosen by number; 16-bit grey bounded by
// MaxSampleValue; bilevel white-is-zero G4; CMYK arrives as 24-bit colour.
TEST(PeerTiff, PagesWhiteIsZeroAndCmyk) {
    TempDir dir;
    const std::string file = dir.path("pages.tif");
    TIFF *t = TIFFOpen(file.c_str(), "w");
    WriteStrips(t, 4, 3, 8, PHOTOMETRIC_MINISBLACK, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    TIFFSetField(t, TIFFTAG_MAXSAMPLEVALUE, uint16_t(1023)); // little-endian words below
    WriteStrips(t, 3, 2, 16, PHOTOMETRIC_MINISBLACK, {0, 0, 0xFF, 3, 0, 2, 7, 0, 100, 0, 1, 0});
    WriteStrips(t, 10, 2, 1, PHOTOMETRIC_MINISWHITE, {0xF0, 0x00, 0x0F, 0xC0}, COMPRESSION_CCITTFAX4);
    TIFFSetField(t, TIFFTAG_INKSET, INKSET_CMYK);
    WriteStrips(t, 2, 1, 8, PHOTOMETRIC_SEPARATED, {0, 0, 0, 0, 0, 0, 0, 255});
    TIFFClose(t);
    RzFileInfo info;
    ASSERT_EQ(Info(file, &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nFormat, info.nPages, info.nWidth), std::tuple(RZ_FMT_TIFF, 4, 4));
    Loaded p0(file, 0), p1(file, 1), p2(file, 2), p3(file, 3);
    EXPECT_EQ(Loaded(file, 4).status, RZ_FILE_BAD_PAGE);
    ASSERT_EQ(std::tuple(p0.status, p1.status, p2.status, p3.status),
              std::tuple(ST_SUCCESS, ST_SUCCESS, ST_SUCCESS, ST_SUCCESS));
    EXPECT_EQ(std::tuple(p0->nBitsPerPixel, KrnIsGrayscale(p0.get()) != 0, p0.pixel(3, 2)), std::tuple(8, true, 12u));
    EXPECT_EQ(std::tuple(p1->nWidth, p1->nBitsPerPixel, p1->nHighBit, p1.pixel(1, 0), p1.pixel(1, 1)),
              std::tuple(3, 16, 9, 1023u, 100u));
    EXPECT_EQ(std::tuple(p2->nBitsPerPixel, KrnIsGrayscale(p2.get()) != 0), std::tuple(1, true));
    // Set bits are black in the file, so index 0 (black) on the grey ramp.
    for (int32_t x = 0; x < 10; ++x)
        EXPECT_EQ(std::tuple(p2.pixel(x, 0), p2.pixel(x, 1)), std::tuple(x < 4 ? 0u : 1u, x < 4 ? 1u : 0u)) << x;
    EXPECT_EQ(std::tuple(p3->nBitsPerPixel, p3.pixel(0, 0), p3.pixel(1, 0)), std::tuple(24, 0xFFFFFFu, 0u));
}

// Inks as libjpeg decodes them, turned into RGB by the two conventions:
// with an Adobe marker 255 means no ink, without it 0 does.
TEST(PeerJpeg, CmykLoadsAsRgbByTheInkConvention) {
    TempDir dir;
    JpegSpec s;
    s.w = 13, s.h = 9, s.components = 4, s.in = JCS_CMYK;
    for (int y = 0; y < s.h; ++y)
        for (int x = 0; x < s.w; ++x)
            s.pixels.insert(s.pixels.end(), {uint8_t(x * 19), uint8_t(y * 28), uint8_t(200 - x * 5), uint8_t(90 + y * 15)});
    const std::tuple<const char *, J_COLOR_SPACE, bool> cases[] = {
        {"cmyk_adobe", JCS_CMYK, true}, {"ycck_adobe", JCS_YCCK, true}, {"cmyk_plain", JCS_CMYK, false}};
    for (const auto &[name, stored, adobe] : cases) {
        SCOPED_TRACE(name);
        s.stored = stored, s.adobe = adobe;
        const std::string path = dir.path(std::string(name) + ".jpg");
        WriteJpeg(path, s);
        const JpegPeer inks = ReadJpegPeer(path, JCS_CMYK);
        ASSERT_EQ(inks.samples.size(), size_t(s.w) * s.h * 4);
        Loaded got(path);
        ASSERT_EQ(got.status, ST_SUCCESS);
        ASSERT_EQ(got->nBitsPerPixel, 24);
        for (int i = 0; i < s.w * s.h; ++i) {
            const uint8_t *p = &inks.samples[size_t(i) * 4];
            auto channel = [&](int k) {
                const int ink = adobe ? p[k] : 255 - p[k], black = adobe ? p[3] : 255 - p[3];
                return uint32_t((ink * black + 127) / 255) * 257;
            };
            ASSERT_EQ(Look(got.get(), i % s.w, i / s.w), (Rgba{channel(0), channel(1), channel(2), 65535})) << i;
        }
    }
}

// PNM read from bytes written by hand, and our PNM output byte for byte.
TEST(Pnm, ReadAndWrittenBytesByHand) {
    TempDir dir;
    const struct {
        std::string bytes;
        int32_t bits, width;
        std::vector<uint64_t> pixels; // row by row
    } cases[] = {
        // Plain PBM, digits run together: 1 is black (index 0 on the ramp).
        {"P1\n# comment\n4 2\n0110\n1 0 0 1\n", 1, 4, {1, 0, 0, 1, 0, 1, 1, 0}},
        // maxval 4 scales to 8 bits: round(v * 255 / 4); values past maxval clamp.
        {"P2 3 2 4\n0 1 2\n3 4 9\n", 8, 3, {0, 64, 128, 191, 255, 255}},
        {"P2 2 1 15 3 15", 4, 2, {3, 15}}, // maxval 15 keeps 4 bits
        // Raw 16-bit, maxval 1023: big-endian words kept (nHighBit 9 below).
        {std::string("P5 2 1 1023\n\x03\xFF\x01\x02", 16), 16, 2, {1023, 258}},
        {std::string("P6\n1 1\n255\n\x0A\x14\x1E"), 24, 1, {0x1E140A}}, // red, green, blue bytes
        {std::string("P4 3 2\n\xA0\x40"), 1, 3, {0, 1, 0, 1, 0, 1}},   // rows padded to whole bytes
    };
    for (const auto &c : cases) {
        WriteText(dir.path("h.pnm"), c.bytes);
        Loaded l(dir.path("h.pnm"));
        ASSERT_EQ(l.status, ST_SUCCESS) << c.bytes;
        EXPECT_EQ(l->nBitsPerPixel, c.bits) << c.bytes;
        EXPECT_TRUE(c.bits != 16 || l->nHighBit == 9);
        for (size_t i = 0; i < c.pixels.size(); ++i)
            EXPECT_EQ(l.pixel(int32_t(i % c.width), int32_t(i / c.width)), c.pixels[i]) << c.bytes << " at " << i;
    }
    Bitmap g(FindLayout("grey12"), 2, 1, 0), bw(FindLayout("pal1_grey"), 3, 1, 0);
    g.setPixel(0, 0, 4095);
    g.setPixel(1, 0, 258);
    bw.setPixel(1, 0, 1); // white
    ASSERT_EQ(Save(dir.path("g.pgm"), g.get()), ST_SUCCESS);
    ASSERT_EQ(Save(dir.path("b.pbm"), bw.get()), ST_SUCCESS);
    const auto pgm = ReadBytes(dir.path("g.pgm")), pbm = ReadBytes(dir.path("b.pbm"));
    EXPECT_EQ(std::string(pgm.begin(), pgm.end()), std::string("P5\n2 1\n4095\n\x0F\xFF\x01\x02", 16));
    ASSERT_EQ(pbm.size(), 8u);
    EXPECT_EQ(std::string(pbm.begin(), pbm.begin() + 7), "P4\n3 1\n");
    EXPECT_EQ(pbm[7] & 0xE0, 0xA0); // black, white, black
}

// ---- Our files read by the peers. ----

// Colour palettes, alpha, both colour orders, and grey palettes in any
// order: libpng and libtiff see what each pixel shows. Grey palettes save
// as grey through the palette, packed when every entry is a level of the
// depth's ramp (PGM's maxval says the same); libjpeg sees one component.
TEST(PeerReaders, SeeWhatWeSaved) {
    TempDir dir;
    const int32_t w = 16, h = 12;
    struct Case {
        const char *name;
        const char *layout;
        int bits = 0;                           // grey palettes: depth and entries
        std::function<uint8_t(int)> entry = {}; // grey of palette entry i
        bool levels = false;                    // every entry a level of the ramp
    };
    const Case cases[] = {
        {"pal4_colour", "pal4_colour"},
        {"pal8_colour", "pal8_colour"},
        {"rgb24", "rgb24"},
        {"bgr32", "bgr32"},
        {"inverted1", "pal1_grey", 1, [](int i) { return uint8_t(255 - 255 * i); }, true},
        {"inverted2", "pal8_grey", 2, [](int i) { return uint8_t(255 - 85 * i); }, true},
        {"shuffled4", "pal8_grey", 4, [](int i) { return uint8_t(17 * ((i * 7) % 16)); }, true},
        {"offgrid4", "pal8_grey", 4, [](int i) { return uint8_t(3 * i + 7); }, false},
        {"edited8", "pal8_grey", 8, [](int i) { return uint8_t(255 - i / 2); }, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Bitmap b(FindLayout(c.layout), w, h, c.bits ? 0 : 8);
        if (c.bits) {
            if (c.bits != b->nBitsPerPixel) {
                KrnFreeBitmap(b.get());
                ASSERT_EQ(KrnInitBitmap(b.get(), BITMAPDESC_SIZE, w, h, c.bits), KRN_OK);
                ASSERT_EQ(KrnAllocBitmap(b.get()), KRN_OK);
            }
            const int count = 1 << c.bits;
            std::vector<RzRGBQuad> pal(count);
            for (int i = 0; i < count; ++i)
                pal[i] = RzRGBQuad{c.entry(i), c.entry(i), c.entry(i), 0};
            ASSERT_EQ(KrnSetBitmapPalette(b.get(), 0, count, pal.data()), KRN_OK);
            for (int i = 0; i < w * h; ++i) // smooth enough for JPEG
                b.setPixel(i % w, i / w, uint64_t((i % w / 2 + i / w / 3) % count));
        }
        const std::string png = dir.path("o.png"), tif = dir.path("o.tif"), pgm = dir.path("o.pgm");
        ASSERT_EQ(Save(png, b.get()), ST_SUCCESS);
        ASSERT_EQ(Save(tif, b.get(), RZ_FMT_UNKNOWN, RZ_TIFF_LZW), ST_SUCCESS);
        uint16_t photometric = 0;
        const auto rgba = PeerPngPixels(png, PNG_FORMAT_RGBA);
        const auto tiff = PeerTiffPixels(tif, w, h, &photometric);
        ASSERT_EQ(std::tuple(rgba.size(), tiff.size()), std::tuple(size_t(w * h * 4), size_t(w * h)));
        for (int i = 0; i < w * h; ++i) {
            const Rgba s = Look(b.get(), i % w, i / w);
            const uint8_t *q = &rgba[size_t(i) * 4];
            const uint32_t t = tiff[size_t(i)], a = uint32_t(TIFFGetA(t));
            ASSERT_EQ(std::tuple(q[0], q[1], q[2], q[3]), std::tuple(s.r >> 8, s.g >> 8, s.b >> 8, s.a >> 8)) << i;
            ASSERT_EQ(a, s.a >> 8) << i;
            if (a == 255) { // libtiff gives colour premultiplied by alpha
                ASSERT_EQ(std::tuple(TIFFGetR(t), TIFFGetG(t), TIFFGetB(t)), std::tuple(s.r >> 8, s.g >> 8, s.b >> 8)) << i;
            }
        }
        if (!c.bits)
            continue;
        const PngFacts facts = ReadPngFacts(png);
        EXPECT_EQ(std::tuple(facts.type, facts.depth, photometric),
                  std::tuple(PNG_COLOR_TYPE_GRAY, c.levels ? c.bits : 8, uint16_t(PHOTOMETRIC_MINISBLACK)));
        ASSERT_EQ(Save(pgm, b.get()), ST_SUCCESS);
        const auto bytes = ReadBytes(pgm);
        const int maxval = c.levels ? (1 << c.bits) - 1 : 255;
        const std::string head = "P5\n16 12\n" + std::to_string(maxval) + "\n";
        ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + long(head.size())), head);
        for (int i = 0; i < w * h; ++i)
            ASSERT_EQ(bytes[head.size() + i] * 255 / maxval, int(Look(b.get(), i % w, i / w).r >> 8)) << i;
        ASSERT_EQ(Save(dir.path("o.jpg"), b.get(), RZ_FMT_UNKNOWN, 0, 100), ST_SUCCESS);
        const JpegPeer j = ReadJpegPeer(dir.path("o.jpg"), JCS_GRAYSCALE);
        ASSERT_EQ(std::tuple(j.components, j.samples.size()), std::tuple(1, size_t(w * h)));
        double err = 0;
        for (int i = 0; i < w * h; ++i)
            err += std::abs(int(j.samples[i]) - int(Look(b.get(), i % w, i / w).r >> 8));
        EXPECT_LT(err / (w * h), 6.0);
    }
}

// What a save would drop, said beforehand: alpha in use (an opaque fourth
// channel is nothing to lose), colour made grey (with the grey weights
// 77/150/29 of 256), metadata a format cannot hold.
TEST(SaveNotes, SayWhatASaveDrops) {
    TempDir dir;
    Bitmap alpha(FindLayout("bgr32"), 3, 2, 4), opaque(FindLayout("bgr32"), 3, 2, 0),
        colour(FindLayout("pal8_colour"), 16, 12, 3), meta(FindLayout("bgr24"), 3, 2, 1);
    alpha.setPixel(0, 0, 0x10203040); // alpha 0x10 somewhere
    for (int32_t i = 0; i < 6; ++i)
        opaque.setPixel(i % 3, i / 3, 0xFF000000u | uint32_t(i));
    const auto icc = IccProfile();
    ASSERT_EQ(KrnSetBitmapMetadata(meta.get(), KRN_META_ICC, icc.data(), uint32_t(icc.size())), KRN_OK);
    const auto exif = ExifBlock(1);
    ASSERT_EQ(KrnSetBitmapMetadata(meta.get(), KRN_META_EXIF, exif.data(), uint32_t(exif.size())), KRN_OK);
    const std::tuple<const char *, const Bitmap *, uint32_t> cases[] = {
        {"a.jpg", &alpha, RZ_SAVE_NOTE_ALPHA}, {"a.ppm", &alpha, RZ_SAVE_NOTE_ALPHA},
        {"a.png", &alpha, 0},                  {"a.tif", &alpha, 0},
        {"o.jpg", &opaque, 0},                 {"c.pgm", &colour, RZ_SAVE_NOTE_GREY},
        {"c.png", &colour, 0},                 {"m.ppm", &meta, RZ_SAVE_NOTE_METADATA},
        {"m.tif", &meta, RZ_SAVE_NOTE_METADATA}, {"m.png", &meta, 0},
        {"m.jpg", &meta, 0},
    };
    for (const auto &[name, b, want] : cases) {
        uint32_t notes = 99;
        ASSERT_EQ(Rz_GetSaveNotes(dir.path(name).c_str(), b->get(), nullptr, &notes), ST_SUCCESS) << name;
        EXPECT_EQ(notes, want) << name;
    }
    EXPECT_EQ(dir.names(), std::vector<std::string>{});
    ASSERT_EQ(Save(dir.path("c.pgm"), colour.get()), ST_SUCCESS);
    Loaded g(dir.path("c.pgm"));
    ASSERT_EQ(g.status, ST_SUCCESS);
    for (int i = 0; i < 16 * 12; ++i) {
        const RzRGBQuad e = colour->pPalette[colour.pixel(i % 16, i / 16)];
        ASSERT_EQ(g.pixel(i % 16, i / 16), uint64_t((e.rgbRed * 77 + e.rgbGreen * 150 + e.rgbBlue * 29 + 128) >> 8));
    }
}

// ---- Metadata. ----

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

// The upright picture the tests expect to see.
std::array<uint8_t, 3> Upright(int x, int y) { return {uint8_t(x * 20), uint8_t(y * 30), uint8_t(x * y + 9)}; }

// Each EXIF orientation shows the picture upright; resolution and profile
// load; written back upright with orientation 1, as each peer reads them.
TEST(Metadata, OrientationResolutionProfileAndExifTravel) {
    TempDir dir;
    const int sw = 6, sh = 4;
    const auto icc = IccProfile();
    for (int o = 1; o <= 8; ++o) {
        SCOPED_TRACE(o);
        PngSpec s{sw, sh, 8, PNG_COLOR_TYPE_RGB, {sh, std::vector<uint8_t>(sw * 3)}};
        const int uw = o >= 5 ? sh : sw, uh = o >= 5 ? sw : sh;
        for (int sy = 0; sy < sh; ++sy)
            for (int sx = 0; sx < sw; ++sx) {
                const auto [dx, dy] = Shown(o, sx, sy, sw, sh);
                std::memcpy(&s.rows[sy][sx * 3], Upright(dx, dy).data(), 3);
            }
        s.ppm = 11811; // 300 dpi
        s.icc = icc;
        s.exif = ExifBlock(o);
        const std::string in = dir.path(std::to_string(o) + "o.png");
        WritePng(in, s);
        RzFileInfo info;
        ASSERT_EQ(Info(in, &info), ST_SUCCESS);
        EXPECT_EQ(std::tuple(info.nWidth, info.nHeight, info.nOrientation, info.nResolutionUnit, info.dXResolution,
                             info.nIccBytes, info.nExifBytes),
                  std::tuple(uw, uh, o, KRN_RES_INCH, 300.0, uint32_t(icc.size()), uint32_t(s.exif.size())));
        Loaded got(in);
        ASSERT_EQ(got.status, ST_SUCCESS);
        ASSERT_EQ(std::tuple(got->nWidth, got->nHeight), std::tuple(uw, uh));
        for (int i = 0; i < uw * uh; ++i) {
            const auto u = Upright(i % uw, i / uw);
            ASSERT_EQ(got.pixel(i % uw, i / uw), uint64_t(u[0]) | uint64_t(u[1]) << 8 | uint64_t(u[2]) << 16) << i;
        }
        double rx = 0, ry = 0;
        int32_t unit = -1;
        EXPECT_EQ(KrnGetBitmapResolution(got.get(), &rx, &ry, &unit), 1);
        EXPECT_EQ(std::tuple(rx, ry, unit), std::tuple(300.0, 300.0, KRN_RES_INCH));
        const void *blob = nullptr;
        uint32_t n = 0;
        ASSERT_EQ(KrnGetBitmapMetadata(got.get(), KRN_META_ICC, &blob, &n), 1);
        EXPECT_EQ(std::vector<uint8_t>(static_cast<const uint8_t *>(blob), static_cast<const uint8_t *>(blob) + n), icc);
        if (o != 6)
            continue;
        ASSERT_EQ(Save(dir.path("up.png"), got.get()), ST_SUCCESS);
        const PngFacts p = ReadPngFacts(dir.path("up.png"));
        EXPECT_EQ(std::tuple(p.w, p.h, p.ppmX, p.unit, p.icc, ExifOrientationOf(p.exif)),
                  std::tuple(uint32_t(uw), uint32_t(uh), 11811u, uint32_t(PNG_RESOLUTION_METER), icc, 1));
        const auto rgb = PeerPngPixels(dir.path("up.png"), PNG_FORMAT_RGB);
        ASSERT_EQ(rgb.size(), size_t(uw) * uh * 3);
        for (int i = 0; i < uw * uh; ++i)
            ASSERT_EQ((std::array<uint8_t, 3>{rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]}), Upright(i % uw, i / uw));
        ASSERT_EQ(Save(dir.path("up.tif"), got.get()), ST_SUCCESS);
        TIFF *t = TIFFOpen(dir.path("up.tif").c_str(), "r");
        ASSERT_TRUE(t);
        float tx = 0;
        uint16_t tunit = 0;
        uint32_t tn = 0;
        void *tp = nullptr;
        TIFFGetField(t, TIFFTAG_XRESOLUTION, &tx);
        TIFFGetField(t, TIFFTAG_RESOLUTIONUNIT, &tunit);
        ASSERT_TRUE(TIFFGetField(t, TIFFTAG_ICCPROFILE, &tn, &tp));
        EXPECT_EQ(std::tuple(tx, tunit, std::vector<uint8_t>(static_cast<uint8_t *>(tp), static_cast<uint8_t *>(tp) + tn)),
                  std::tuple(300.0f, uint16_t(RESUNIT_INCH), icc));
        TIFFClose(t);
        ASSERT_EQ(Save(dir.path("up.jpg"), got.get()), ST_SUCCESS);
        const JpegPeer j = ReadJpegPeer(dir.path("up.jpg"), JCS_RGB);
        EXPECT_EQ(std::tuple(j.w, j.h, j.densityUnit, j.density, j.icc, ExifOrientationOf(j.exif)),
                  std::tuple(uw, uh, 1, 300, icc, 1));
    }
    // EXIF orientation 8 from a JPEG's APP1 block is view 6; libjpeg's 1:1
    // JFIF density says nothing of the resolution.
    JpegSpec js;
    js.w = 5, js.h = 3;
    js.pixels.assign(5 * 3 * 3, 128);
    js.exif = ExifBlock(8);
    WriteJpeg(dir.path("o8.jpg"), js);
    Loaded j(dir.path("o8.jpg"));
    ASSERT_EQ(j.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(j->nViewPerspective, j->nWidth, j->nHeight), std::tuple(6, 3, 5));
    double x = 0, y = 0;
    int32_t unit = 0;
    EXPECT_EQ(KrnGetBitmapResolution(j.get(), &x, &y, &unit), 0);
    // A colour profile on a grey picture is left out of a PNG, not fatal.
    Bitmap grey(FindLayout("pal8_grey"), 3, 2, 1);
    ASSERT_EQ(KrnSetBitmapMetadata(grey.get(), KRN_META_ICC, icc.data(), uint32_t(icc.size())), KRN_OK);
    ASSERT_EQ(Save(dir.path("g.png"), grey.get()), ST_SUCCESS);
    EXPECT_TRUE(ReadPngFacts(dir.path("g.png")).icc.empty());
}

// Metadata follows the bitmap through the kernel's copies and conversions
// and is released with it; removing everything drops the block.
TEST(Metadata, KernelKeepsItThroughCopiesAndConversions) {
    const int64_t start = KrnMemOutstanding();
    {
        Bitmap b(FindLayout("bgr24"), 4, 3, 5);
        ASSERT_EQ(KrnSetBitmapResolution(b.get(), 118.11, 59.055, KRN_RES_CM), KRN_OK);
        const std::vector<uint8_t> exif = {1, 2, 3};
        ASSERT_EQ(KrnSetBitmapMetadata(b.get(), KRN_META_EXIF, exif.data(), 3), KRN_OK);
        Bitmap copy(b), grey = copy;
        KrnFreeBitmap(grey.get());
        ASSERT_EQ(KrnConvertBitmap(grey.get(), b.get(), BITMAPDESC_SIZE, 8, KRN_ORDER_GRAY, 0, 0), KRN_OK);
        ASSERT_EQ(KrnConvertBitmap(b.get(), b.get(), BITMAPDESC_SIZE, 48, KRN_ORDER_BGR, 0, 0), KRN_OK);
        for (const Bitmap *d : {&copy, &grey, &b}) {
            double x = 0, y = 0;
            int32_t unit = 0;
            const void *p = nullptr;
            uint32_t n = 0;
            EXPECT_EQ(KrnGetBitmapResolution(d->get(), &x, &y, &unit), 1);
            EXPECT_EQ(std::tuple(x, y, unit), std::tuple(118.11, 59.055, KRN_RES_CM));
            ASSERT_EQ(KrnGetBitmapMetadata(d->get(), KRN_META_EXIF, &p, &n), 1);
            EXPECT_EQ(std::vector<uint8_t>(static_cast<const uint8_t *>(p), static_cast<const uint8_t *>(p) + n), exif);
        }
        ASSERT_EQ(KrnSetBitmapResolution(b.get(), 0, 0, KRN_RES_NONE), KRN_OK);
        ASSERT_EQ(KrnSetBitmapMetadata(b.get(), KRN_META_EXIF, nullptr, 0), KRN_OK);
        EXPECT_EQ(b->pMetadata, nullptr);
    }
    EXPECT_EQ(KrnMemOutstanding(), start);
}

} // namespace
} // namespace rz::test
