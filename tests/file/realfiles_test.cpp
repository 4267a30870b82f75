// Files as users have them, made here with libpng, libjpeg and libtiff and
// read back by them: transparency, grey palettes in any order, CMYK and YCCK
// JPEG, resolution, colour profiles and EXIF orientation; loads and saves
// stopped by the status callback; saving through symbolic links.
#include "file_helpers.h"
#include "support/bitmaps.h"

#include <png.h>
#include <tiffio.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <jpeglib.h>
#include <sys/stat.h>

namespace rz::test {
namespace {

struct PngSpec {
    PngSpec(uint32_t width, uint32_t height, int bits, int colourType)
        : w(width), h(height), depth(bits), type(colourType) {}
    uint32_t w, h;
    int depth, type;
    std::vector<std::vector<uint8_t>> rows; // PNG's byte layout
    std::vector<png_color> palette;
    std::vector<uint8_t> alphas; // palette tRNS
    bool key = false;            // grey / RGB tRNS
    png_color_16 keyColour{};
    uint32_t ppm = 0; // pHYs, pixels per metre
    std::vector<uint8_t> icc, exif;
};

void WritePng(const std::string &path, const PngSpec &s) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, s.w, s.h, s.depth, s.type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!s.palette.empty())
        png_set_PLTE(png, info, s.palette.data(), int(s.palette.size()));
    if (!s.alphas.empty() || s.key)
        png_set_tRNS(png, info, s.alphas.empty() ? nullptr : s.alphas.data(), int(s.alphas.size()),
                     s.key ? &s.keyColour : nullptr);
    if (s.ppm)
        png_set_pHYs(png, info, s.ppm, s.ppm, PNG_RESOLUTION_METER);
    if (!s.icc.empty())
        png_set_iCCP(png, info, "test", 0, s.icc.data(), png_uint_32(s.icc.size()));
    if (!s.exif.empty())
        png_set_eXIf_1(png, info, png_uint_32(s.exif.size()), const_cast<png_bytep>(s.exif.data()));
    png_write_info(png, info);
    for (const auto &r : s.rows)
        png_write_row(png, r.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    fclose(f);
}

// What libpng finds in a file: header, transparency, pHYs, profile, EXIF.
struct PngFacts {
    int depth = 0, type = -1;
    uint32_t w = 0, h = 0, ppmX = 0, unit = 0;
    bool trns = false;
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
    r.w = png_get_image_width(png, info);
    r.h = png_get_image_height(png, info);
    r.depth = png_get_bit_depth(png, info);
    r.type = png_get_color_type(png, info);
    r.trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
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
    if (!png_image_finish_read(&img, nullptr, out.data(), 0, nullptr))
        return {};
    return out;
}

// A well-formed ICC header with no tags, then filler: libpng refuses a
// profile that compresses to almost nothing.
std::vector<uint8_t> IccProfile(const char space[4]) {
    std::vector<uint8_t> p(256, 0);
    for (size_t i = 132; i < p.size(); ++i)
        p[i] = uint8_t(i * 37 + 11);
    p[2] = 1;                        // size 256, big-endian
    p[8] = 2, p[9] = 0x10;           // version 2.1
    std::memcpy(&p[12], "mntr", 4);  // display class
    std::memcpy(&p[16], space, 4);
    std::memcpy(&p[20], "XYZ ", 4);
    std::memcpy(&p[36], "acsp", 4);
    const uint8_t d50[12] = {0, 0, 0xF6, 0xD6, 0, 1, 0, 0, 0, 0, 0xD3, 0x2D};
    std::memcpy(&p[68], d50, 12);
    p[100] = 0x5A; // some bytes of the "profile ID" to tell copies apart
    return p;
}

// Little-endian TIFF-structured EXIF block: one IFD with the orientation
// and a make string held outside the entry.
std::vector<uint8_t> ExifBlock(int orientation) {
    std::vector<uint8_t> e = {'I', 'I', 42, 0, 8, 0, 0, 0, 2, 0,
                              0x0F, 0x01, 2, 0, 5, 0, 0, 0, 38, 0, 0, 0, // Make, ASCII, 5 bytes at 38
                              0x12, 0x01, 3, 0, 1, 0, 0, 0, uint8_t(orientation), 0, 0, 0,
                              0, 0, 0, 0, 'R', 'z', 'I', 'm', 0};
    return e;
}

int ExifOrientationOf(const std::vector<uint8_t> &e) {
    return e.size() > 31 && e[22] == 0x12 && e[23] == 0x01 ? e[30] : -1; // our block's layout
}

// ---- Transparency. ----

// Each file is written from samples v(x, y); what a pixel must show follows
// the PNG rules: tRNS gives palette entries their alpha (entries past the
// list opaque) or names the one grey / RGB value that is transparent.
TEST(Transparency, PngTrnsLoadsAsAlphaAndTravelsThroughPngAndTiff) {
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
        PngSpec s{w, h, c.depth, c.type};
        s.rows.assign(h, std::vector<uint8_t>(rgb ? w * 6 : (w * c.depth + 7) / 8));
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                if (rgb)
                    for (uint32_t k = 0; k < 3; ++k) {
                        const uint32_t sample = k == 2 ? 3000 : v(x, y) * (k + 1);
                        s.rows[y][6 * x + 2 * k] = uint8_t(sample >> 8), s.rows[y][6 * x + 2 * k + 1] = uint8_t(sample);
                    }
                else
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
        EXPECT_EQ(got.d.nBitsPerPixel, c.depth == 16 ? 64 : 32);
        // PNG and TIFF keep it; libpng and libtiff see the same alpha.
        const std::string png = dir.path(std::string("out_") + c.name + ".png"),
                          tif = dir.path(std::string("out_") + c.name + ".tif");
        ASSERT_EQ(Save(png, &got.d), ST_SUCCESS);
        ASSERT_EQ(Save(tif, &got.d), ST_SUCCESS);
        Loaded backPng(png), backTif(tif);
        const auto peer = PeerPngPixels(png, PNG_FORMAT_RGBA);
        ASSERT_EQ(peer.size(), size_t(w) * h * 4);
        TIFF *t = TIFFOpen(tif.c_str(), "r");
        ASSERT_TRUE(t);
        std::vector<uint32_t> peerTif(w * h);
        ASSERT_TRUE(TIFFReadRGBAImageOriented(t, w, h, peerTif.data(), ORIENTATION_TOPLEFT, 0));
        TIFFClose(t);
        for (uint32_t i = 0; i < w * h; ++i) {
            const int32_t x = int32_t(i % w), y = int32_t(i / w);
            const Rgba want1 = want(x, y);
            ASSERT_EQ(Look(&got.d, x, y), want1) << x << "," << y;
            ASSERT_EQ(Look(&backPng.d, x, y), want1);
            ASSERT_EQ(Look(&backTif.d, x, y), want1);
            ASSERT_EQ(peer[4 * i + 3], want1.a >> 8);
            ASSERT_EQ(TIFFGetA(peerTif[i]), want1.a >> 8);
        }
        // JPEG and PNM cannot hold it: a save says so beforehand.
        for (const char *ext : {".jpg", ".ppm", ".png"}) {
            uint32_t notes = 99;
            ASSERT_EQ(Rz_GetSaveNotes(dir.path(std::string("n") + ext).c_str(), &got.d, nullptr, &notes), ST_SUCCESS);
            EXPECT_EQ(notes, std::string(ext) == ".png" ? 0u : RZ_SAVE_NOTE_ALPHA) << ext;
        }
    }
    // A fourth channel that is opaque everywhere is nothing to lose.
    Bitmap opaque(FindLayout("bgr32"), 3, 2, 0);
    for (int32_t i = 0; i < 6; ++i)
        opaque.setPixel(i % 3, i / 3, 0xFF000000u | uint32_t(i));
    uint32_t notes = 99;
    ASSERT_EQ(Rz_GetSaveNotes(dir.path("o.jpg").c_str(), opaque.get(), nullptr, &notes), ST_SUCCESS);
    EXPECT_EQ(notes, 0u);
}

// ---- Grey stays grey. ----

// Palettes whose entries are all grey, in any order, save as grey through
// the palette; packed depths stay packed when every entry is a level of the
// depth's ramp. The peers see grey files showing the palette's values.
TEST(GreyPalettes, SaveAsGreyThroughThePaletteInEveryGreyFormat) {
    TempDir dir;
    const int32_t w = 16, h = 12;
    struct Case {
        const char *name;
        int bits;
        std::function<uint8_t(int)> entry; // grey of palette entry i
        bool levels;                       // every entry a level of the ramp
    };
    const Case cases[] = {
        {"inverted1", 1, [](int i) { return uint8_t(255 - 255 * i); }, true},
        {"inverted2", 2, [](int i) { return uint8_t(255 - 85 * i); }, true},
        {"shuffled4", 4, [](int i) { return uint8_t(17 * ((i * 7) % 16)); }, true},
        {"offgrid4", 4, [](int i) { return uint8_t(3 * i + 7); }, false},
        {"edited8", 8, [](int i) { return uint8_t(255 - i / 2); }, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Bitmap b(FindLayout(c.bits == 1 ? "pal1_grey" : "pal8_grey"), w, h, 0);
        if (c.bits != 1 && c.bits != 8) {
            KrnFreeBitmap(b.get());
            ASSERT_EQ(KrnInitBitmap(b.get(), BITMAPDESC_SIZE, w, h, c.bits), KRN_OK);
            ASSERT_EQ(KrnAllocBitmap(b.get()), KRN_OK);
        }
        const int count = 1 << c.bits;
        std::vector<RzRGBQuad> pal(count);
        for (int i = 0; i < count; ++i)
            pal[i] = RzRGBQuad{c.entry(i), c.entry(i), c.entry(i), 0};
        ASSERT_EQ(KrnSetBitmapPalette(b.get(), 0, count, pal.data()), KRN_OK);
        auto index = [&](int x, int y) { return (x / 2 + y / 3) % count; }; // smooth enough for JPEG
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                b.setPixel(x, y, uint64_t(index(x, y)));
        auto want = [&](int x, int y) { return int(c.entry(index(x, y))); };

        const std::string png = dir.path(std::string(c.name) + ".png");
        ASSERT_EQ(Save(png, b.get()), ST_SUCCESS);
        const PngFacts facts = ReadPngFacts(png);
        EXPECT_EQ(facts.type, PNG_COLOR_TYPE_GRAY);
        EXPECT_EQ(facts.depth, c.levels ? c.bits : 8);
        const auto grey = PeerPngPixels(png, PNG_FORMAT_GRAY);
        ASSERT_EQ(grey.size(), size_t(w * h));
        for (int i = 0; i < w * h; ++i)
            ASSERT_EQ(grey[i], want(i % w, i / w)) << i;

        const std::string tif = dir.path(std::string(c.name) + ".tif");
        ASSERT_EQ(Save(tif, b.get()), ST_SUCCESS);
        TIFF *t = TIFFOpen(tif.c_str(), "r");
        ASSERT_TRUE(t);
        uint16_t photometric = 0;
        TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric);
        EXPECT_EQ(photometric, PHOTOMETRIC_MINISBLACK);
        std::vector<uint32_t> rgba(w * h);
        ASSERT_TRUE(TIFFReadRGBAImageOriented(t, w, h, rgba.data(), ORIENTATION_TOPLEFT, 0));
        TIFFClose(t);
        for (int i = 0; i < w * h; ++i)
            ASSERT_EQ(int(TIFFGetR(rgba[i])), want(i % w, i / w)) << i;

        // PGM by its bytes: maxval 2^bits - 1 for ramp levels, else 255.
        const std::string pgm = dir.path(std::string(c.name) + ".pgm");
        ASSERT_EQ(Save(pgm, b.get()), ST_SUCCESS);
        const auto bytes = ReadBytes(pgm);
        const int maxval = c.levels ? count - 1 : 255;
        const std::string head = "P5\n" + std::to_string(w) + " " + std::to_string(h) + "\n" + std::to_string(maxval) + "\n";
        ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + long(head.size())), head);
        for (int i = 0; i < w * h; ++i)
            ASSERT_EQ(bytes[head.size() + i] * 255 / maxval, want(i % w, i / w)) << i;

        // libjpeg sees a one-component file close to the values.
        const std::string jpg = dir.path(std::string(c.name) + ".jpg");
        ASSERT_EQ(Save(jpg, b.get(), RZ_FMT_UNKNOWN, 0, 100), ST_SUCCESS);
        Loaded j(jpg);
        ASSERT_EQ(j.status, ST_SUCCESS);
        EXPECT_EQ(j.d.nBitsPerPixel, 8);
        EXPECT_TRUE(KrnIsGrayscale(&j.d));
        double err = 0;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                err += std::abs(int(Px(&j.d, x, y)) - want(x, y));
        EXPECT_LT(err / (w * h), 6.0);
        // PBM holds black and white only.
        EXPECT_EQ(Save(dir.path(std::string(c.name) + ".pbm"), b.get()), c.bits == 1 ? ST_SUCCESS : RZ_FILE_UNSUPPORTED);
    }
    // A colour palette asked for as PGM: the kernel's grey weight, and a note.
    Bitmap colour(FindLayout("pal8_colour"), w, h, 3);
    uint32_t notes = 0;
    ASSERT_EQ(Rz_GetSaveNotes(dir.path("c.pgm").c_str(), colour.get(), nullptr, &notes), ST_SUCCESS);
    EXPECT_EQ(notes, RZ_SAVE_NOTE_GREY);
    ASSERT_EQ(Save(dir.path("c.pgm"), colour.get()), ST_SUCCESS);
    Loaded g(dir.path("c.pgm"));
    ASSERT_EQ(g.status, ST_SUCCESS);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const RzRGBQuad e = colour->pPalette[colour.pixel(x, y)];
            ASSERT_EQ(Px(&g.d, x, y), uint64_t((e.rgbRed * 77 + e.rgbGreen * 150 + e.rgbBlue * 29 + 128) >> 8));
        }
}

// ---- CMYK JPEG and load failures. ----

struct JpegSpec {
    int w = 0, h = 0, components = 3;
    J_COLOR_SPACE in = JCS_RGB, stored = JCS_UNKNOWN; // stored: JCS_UNKNOWN keeps libjpeg's choice
    bool adobe = true;
    std::vector<uint8_t> pixels, exif;
    uint16_t density = 0;
};

void WriteJpeg(const std::string &path, const JpegSpec &s) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_stdio_dest(&c, f);
    c.image_width = JDIMENSION(s.w);
    c.image_height = JDIMENSION(s.h);
    c.input_components = s.components;
    c.in_color_space = s.in;
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
    int w = 0, h = 0, densityUnit = -1, density = 0;
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
    c.out_color_space = out;
    if (c.saw_JFIF_marker) {
        r.densityUnit = c.density_unit;
        r.density = c.X_density;
    }
    JOCTET *icc = nullptr;
    unsigned int n = 0;
    if (jpeg_read_icc_profile(&c, &icc, &n))
        r.icc.assign(icc, icc + n);
    free(icc);
    for (jpeg_saved_marker_ptr m = c.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6)
            r.exif.assign(m->data + 6, m->data + m->data_length);
    jpeg_start_decompress(&c);
    r.w = int(c.output_width);
    r.h = int(c.output_height);
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

// Inks as libjpeg decodes them, turned into RGB by the two conventions:
// with an Adobe marker 255 means no ink, without it 0 does.
TEST(CmykJpeg, LoadsAsRgbByTheInkConvention) {
    TempDir dir;
    JpegSpec s;
    s.w = 13, s.h = 9, s.components = 4, s.in = JCS_CMYK;
    for (int y = 0; y < s.h; ++y)
        for (int x = 0; x < s.w; ++x)
            s.pixels.insert(s.pixels.end(), {uint8_t(x * 19), uint8_t(y * 28), uint8_t(200 - x * 5), uint8_t(90 + y * 15)});
    const struct {
        const char *name;
        J_COLOR_SPACE stored;
        bool adobe;
    } cases[] = {{"cmyk_adobe", JCS_CMYK, true}, {"ycck_adobe", JCS_YCCK, true}, {"cmyk_plain", JCS_CMYK, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        JpegSpec spec = s;
        spec.stored = c.stored;
        spec.adobe = c.adobe;
        const std::string path = dir.path(std::string(c.name) + ".jpg");
        WriteJpeg(path, spec);
        const JpegPeer inks = ReadJpegPeer(path, JCS_CMYK);
        ASSERT_EQ(inks.samples.size(), size_t(s.w) * s.h * 4);
        Loaded got(path);
        ASSERT_EQ(got.status, ST_SUCCESS);
        ASSERT_EQ(got.d.nBitsPerPixel, 24);
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x) {
                const uint8_t *p = &inks.samples[(size_t(y) * s.w + x) * 4];
                auto channel = [&](int i) {
                    const int ink = c.adobe ? p[i] : 255 - p[i], k = c.adobe ? p[3] : 255 - p[3];
                    return uint32_t((ink * k + 127) / 255) * 257;
                };
                ASSERT_EQ(Look(&got.d, x, y), (Rgba{channel(0), channel(1), channel(2), 65535})) << x << "," << y;
            }
    }
}

// Loads of kinds the codecs lack say what the file holds, in words that do
// not speak of a save.
TEST(LoadFailures, NameWhatTheFileHolds) {
    TempDir dir;
    TIFF *t = TIFFOpen(dir.path("f.tif").c_str(), "w");
    ASSERT_TRUE(t);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 2u);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 1u);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 32);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    float row[2] = {0.25f, 1.0f};
    TIFFWriteScanline(t, row, 0, 0);
    TIFFClose(t);
    Loaded f(dir.path("f.tif"));
    EXPECT_EQ(f.status, RZ_FILE_FLOAT_SAMPLES);
    EXPECT_NE(std::string(Rz_FileStatusText(RZ_FILE_FLOAT_SAMPLES)).find("sample format (floating point)"),
              std::string::npos);
    for (int32_t st : {RZ_FILE_FLOAT_SAMPLES, RZ_FILE_SAMPLE_LAYOUT, RZ_FILE_COMPRESSION})
        EXPECT_NE(std::string(Rz_FileStatusText(st)).find("this file's"), std::string::npos) << st;
    EXPECT_NE(std::string(Rz_FileStatusText(RZ_FILE_UNSUPPORTED)).find("output format"), std::string::npos);
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

TEST(Metadata, OrientationResolutionProfileAndExifTravel) {
    TempDir dir;
    const int sw = 6, sh = 4;
    const auto icc = IccProfile("RGB ");
    for (int o = 1; o <= 8; ++o) {
        SCOPED_TRACE(o);
        PngSpec s{sw, sh, 8, PNG_COLOR_TYPE_RGB};
        s.rows.assign(sh, std::vector<uint8_t>(sw * 3));
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
        ASSERT_EQ(std::tuple(got.d.nWidth, got.d.nHeight), std::tuple(uw, uh));
        for (int y = 0; y < uh; ++y)
            for (int x = 0; x < uw; ++x) {
                const auto u = Upright(x, y);
                ASSERT_EQ(Px(&got.d, x, y), uint64_t(u[0]) | uint64_t(u[1]) << 8 | uint64_t(u[2]) << 16) << x << "," << y;
            }
        double rx = 0, ry = 0;
        int32_t unit = -1;
        EXPECT_EQ(KrnGetBitmapResolution(&got.d, &rx, &ry, &unit), 1);
        EXPECT_EQ(std::tuple(rx, ry, unit), std::tuple(300.0, 300.0, KRN_RES_INCH));
        const void *blob = nullptr;
        uint32_t n = 0;
        ASSERT_EQ(KrnGetBitmapMetadata(&got.d, KRN_META_ICC, &blob, &n), 1);
        EXPECT_EQ(std::vector<uint8_t>(static_cast<const uint8_t *>(blob), static_cast<const uint8_t *>(blob) + n), icc);
        if (o != 6)
            continue;
        // Written upright, with orientation 1, the resolution and the profile,
        // as each peer reads them.
        ASSERT_EQ(Save(dir.path("up.png"), &got.d), ST_SUCCESS);
        const PngFacts p = ReadPngFacts(dir.path("up.png"));
        EXPECT_EQ(std::tuple(p.w, p.h, p.ppmX, p.unit, p.icc, ExifOrientationOf(p.exif)),
                  std::tuple(uint32_t(uw), uint32_t(uh), 11811u, uint32_t(PNG_RESOLUTION_METER), icc, 1));
        const auto rgb = PeerPngPixels(dir.path("up.png"), PNG_FORMAT_RGB);
        ASSERT_EQ(rgb.size(), size_t(uw) * uh * 3);
        for (int i = 0; i < uw * uh; ++i)
            ASSERT_EQ((std::array<uint8_t, 3>{rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]}), Upright(i % uw, i / uw));

        ASSERT_EQ(Save(dir.path("up.tif"), &got.d), ST_SUCCESS);
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

        ASSERT_EQ(Save(dir.path("up.jpg"), &got.d), ST_SUCCESS);
        const JpegPeer j = ReadJpegPeer(dir.path("up.jpg"), JCS_RGB);
        EXPECT_EQ(std::tuple(j.w, j.h, j.densityUnit, j.density, j.icc, ExifOrientationOf(j.exif)),
                  std::tuple(uw, uh, 1, 300, icc, 1));
        // PNM holds none of it, TIFF no EXIF: a save says so.
        for (const char *name : {"n.ppm", "n.tif", "n.png"}) {
            uint32_t notes = 0;
            ASSERT_EQ(Rz_GetSaveNotes(dir.path(name).c_str(), &got.d, nullptr, &notes), ST_SUCCESS);
            EXPECT_EQ(notes, std::string(name) == "n.png" ? 0u : RZ_SAVE_NOTE_METADATA) << name;
        }
    }
    // EXIF orientation from a JPEG's APP1 block, and JFIF density per cm.
    JpegSpec js;
    js.w = 5, js.h = 3;
    js.pixels.assign(5 * 3 * 3, 128);
    js.exif = ExifBlock(8);
    WriteJpeg(dir.path("o8.jpg"), js);
    Loaded j(dir.path("o8.jpg"));
    ASSERT_EQ(j.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(j.d.nViewPerspective, j.d.nWidth, j.d.nHeight), std::tuple(6, 3, 5));
    double x = 0, y = 0;
    int32_t unit = 0;
    EXPECT_EQ(KrnGetBitmapResolution(&j.d, &x, &y, &unit), 0); // libjpeg's 1:1 JFIF says nothing
    // A colour profile on a grey picture is left out of a PNG, not fatal.
    Bitmap grey(FindLayout("pal8_grey"), 3, 2, 1);
    ASSERT_EQ(KrnSetBitmapMetadata(grey.get(), KRN_META_ICC, icc.data(), uint32_t(icc.size())), KRN_OK);
    ASSERT_EQ(Save(dir.path("g.png"), grey.get()), ST_SUCCESS);
    EXPECT_TRUE(ReadPngFacts(dir.path("g.png")).icc.empty());
}

// Metadata follows the bitmap through the kernel's copies and conversions
// and is released with it.
TEST(Metadata, KernelKeepsItThroughCopiesAndConversions) {
    const int64_t start = KrnMemOutstanding();
    {
        Bitmap b(FindLayout("bgr24"), 4, 3, 5);
        EXPECT_EQ(KrnSetBitmapResolution(b.get(), 0, 5, KRN_RES_INCH), KRN_INVALID_PARAMETER);
        EXPECT_EQ(KrnSetBitmapResolution(b.get(), 72, 72, 3), KRN_INVALID_PARAMETER);
        ASSERT_EQ(KrnSetBitmapResolution(b.get(), 118.11, 59.055, KRN_RES_CM), KRN_OK);
        const uint8_t exif[3] = {1, 2, 3};
        ASSERT_EQ(KrnSetBitmapMetadata(b.get(), KRN_META_EXIF, exif, 3), KRN_OK);
        Bitmap copy(b);
        BitmapDesc grey{};
        ASSERT_EQ(KrnConvertBitmap(&grey, b.get(), BITMAPDESC_SIZE, 8, KRN_ORDER_GRAY, 0, 0), KRN_OK);
        ASSERT_EQ(KrnConvertBitmap(b.get(), b.get(), BITMAPDESC_SIZE, 48, KRN_ORDER_BGR, 0, 0), KRN_OK);
        for (const BitmapDesc *d : std::initializer_list<const BitmapDesc *>{copy.get(), &grey, b.get()}) {
            double x = 0, y = 0;
            int32_t unit = 0;
            const void *p = nullptr;
            uint32_t n = 0;
            EXPECT_EQ(KrnGetBitmapResolution(d, &x, &y, &unit), 1);
            EXPECT_EQ(std::tuple(x, y, unit), std::tuple(118.11, 59.055, KRN_RES_CM));
            ASSERT_EQ(KrnGetBitmapMetadata(d, KRN_META_EXIF, &p, &n), 1);
            EXPECT_EQ(std::vector<uint8_t>(static_cast<const uint8_t *>(p), static_cast<const uint8_t *>(p) + n),
                      std::vector<uint8_t>(exif, exif + 3));
            EXPECT_EQ(KrnGetBitmapMetadata(d, KRN_META_ICC, &p, &n), 0);
        }
        KrnFreeBitmap(&grey);
        // Removing everything drops the block.
        ASSERT_EQ(KrnSetBitmapResolution(b.get(), 0, 0, KRN_RES_NONE), KRN_OK);
        ASSERT_EQ(KrnSetBitmapMetadata(b.get(), KRN_META_EXIF, nullptr, 0), KRN_OK);
        EXPECT_EQ(b->pMetadata, nullptr);
    }
    EXPECT_EQ(KrnMemOutstanding(), start);
}

// ---- Stopping and links. ----

// A load or save stopped by the callback returns its value, leaves the
// caller's descriptor and an existing file as they were and no temporary.
TEST(Cancel, StoppedLoadsAndSavesLeaveNothingBehind) {
    TempDir dir;
    Bitmap b(FindLayout("bgr24"), 40, 60, 9);
    for (const char *name : {"a.png", "a.jpg", "a.tif", "a.ppm"}) {
        SCOPED_TRACE(name);
        const std::string path = dir.path(name);
        ASSERT_EQ(Save(path, b.get()), ST_SUCCESS);
        const auto before = ReadBytes(path);
        const auto names = dir.names();
        const int64_t start = KrnMemOutstanding();
        {
            CallbackRecorder rec;
            rec.stopAt(3, 0);
            EXPECT_EQ(Save(path, b.get()), 0);
            BitmapDesc untouched{};
            untouched.nWidth = 77;
            rec.clear();
            EXPECT_EQ(Rz_LoadBitmap(path.c_str(), &untouched, BITMAPDESC_SIZE, 0), 0);
            EXPECT_EQ(untouched.nWidth, 77);
            ASSERT_GE(rec.calls(), 3);
            EXPECT_TRUE(std::is_sorted(rec.percents().begin(), rec.percents().end()));
        }
        EXPECT_EQ(KrnMemOutstanding(), start);
        EXPECT_EQ(ReadBytes(path), before);
        EXPECT_EQ(dir.names(), names);
    }
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
    for (const char *link : {"link.png", "dangling.png"}) {
        struct stat st {};
        ASSERT_EQ(lstat(dir.path(link).c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode)) << link;
    }
    struct stat st {};
    ASSERT_EQ(stat(dir.path("real.png").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    for (const char *file : {"real.png", "made.png"}) {
        Loaded l(dir.path(file));
        ASSERT_EQ(l.status, ST_SUCCESS) << file;
        for (int32_t y = 0; y < 4; ++y)
            for (int32_t x = 0; x < 5; ++x)
                EXPECT_EQ(Look(&l.d, x, y), Look(b.get(), x, y)) << file;
    }
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"dangling.png", "link.png", "made.png", "real.png"}));
}

} // namespace
} // namespace rz::test
