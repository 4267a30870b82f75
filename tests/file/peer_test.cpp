// Files written by libpng and libtiff directly (layouts our saver never
// makes: interlacing, sBIT, short palettes, grey with alpha, tiles, separate
// planes, several pages, white-is-zero, CMYK), our files read back by them,
// and PNM files written byte by byte, each checked against values worked
// out by hand.
#include "file_helpers.h"
#include "support/bitmaps.h"

#include <png.h>
#include <tiffio.h>

#include <cstdio>

namespace rz::test {
namespace {

// Writes a PNG with libpng; rows are given in PNG's own byte layout.
void WritePng(const std::string &path, uint32_t w, int depth, int type, bool interlace,
              std::vector<std::vector<uint8_t>> rows, const std::vector<png_color> &palette = {}, int sbit = 0) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, w, uint32_t(rows.size()), depth, type, interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty())
        png_set_PLTE(png, info, palette.data(), int(palette.size()));
    png_color_8 s{};
    s.gray = png_byte(sbit);
    if (sbit)
        png_set_sBIT(png, info, &s);
    png_write_info(png, info);
    std::vector<png_bytep> ptrs;
    for (auto &r : rows)
        ptrs.push_back(r.data());
    png_write_image(png, ptrs.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    fclose(f);
}

TEST(PeerPng, InterlacedSignificantBitsShortPaletteGreyAlpha) {
    TempDir dir;
    const uint32_t w = 11, h = 9;
    std::vector<std::vector<uint8_t>> rows(h);
    auto value = [](uint32_t x, uint32_t y) { return (x * 97 + y * 31) % 1024; }; // 10 bits
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) // PNG keeps significant bits at the top
            rows[y].insert(rows[y].end(), {uint8_t(value(x, y) >> 2), uint8_t(value(x, y) << 6)});
    WritePng(dir.path("g.png"), w, 16, PNG_COLOR_TYPE_GRAY, true, rows, {}, 10);
    Loaded g(dir.path("g.png"));
    ASSERT_EQ(g.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(g.d.nBitsPerPixel, g.d.nColorOrder, g.d.nDataKind, g.d.nLowBit, g.d.nHighBit),
              std::tuple(16, KRN_ORDER_GRAY, 1, 0, 9));
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            EXPECT_EQ(Px(&g.d, int32_t(x), int32_t(y)), value(x, y));
    RzFileInfo info;
    ASSERT_EQ(Info(dir.path("g.png"), &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nBitsPerPixel, info.nSignificantBits, info.nColorOrder),
              std::tuple(16, 10, KRN_ORDER_GRAY));

    // 4-bit indices, palette of 3 entries; row bytes pack two pixels.
    WritePng(dir.path("p.png"), 3, 4, PNG_COLOR_TYPE_PALETTE, false, {{0x21, 0x00}},
             {{10, 20, 30}, {200, 100, 0}, {1, 2, 3}});
    Loaded p(dir.path("p.png"));
    ASSERT_EQ(p.status, ST_SUCCESS);
    EXPECT_EQ(std::tuple(p.d.nBitsPerPixel, p.d.nColors, KrnIsGrayscale(&p.d) != 0), std::tuple(4, 3, false));
    EXPECT_EQ(std::tuple(Px(&p.d, 0, 0), Px(&p.d, 1, 0), Px(&p.d, 2, 0)), std::tuple(2u, 1u, 0u));
    EXPECT_EQ(Look(&p.d, 1, 0), (Rgba{200 * 257, 100 * 257, 0, 65535}));
    EXPECT_EQ(p.d.pPalette[0].rgbBlue, 30);

    // Grey 8 with alpha becomes 32-bit colour with the alpha as fourth channel.
    WritePng(dir.path("ga.png"), 2, 8, PNG_COLOR_TYPE_GRAY_ALPHA, false, {{50, 200, 7, 9}});
    Loaded ga(dir.path("ga.png"));
    ASSERT_EQ(ga.status, ST_SUCCESS);
    EXPECT_EQ(ga.d.nBitsPerPixel, 32);
    EXPECT_EQ(Px(&ga.d, 0, 0), 0xC8323232u);
    EXPECT_EQ(Px(&ga.d, 1, 0), 0x09070707u);
}

// libpng's simplified reader and libtiff's RGBA reader see in our files what
// we saved, palettes and alpha included.
TEST(PeerReaders, ReadOurFiles) {
    TempDir dir;
    for (const char *layout : {"pal4_colour", "pal8_colour", "rgb24", "bgr32"}) {
        Bitmap src(FindLayout(layout), 9, 6, 8);
        std::vector<uint8_t> rgba(9 * 6 * 4);
        ASSERT_EQ(Save(dir.path("o.png"), src.get()), ST_SUCCESS);
        png_image img{};
        img.version = PNG_IMAGE_VERSION;
        ASSERT_TRUE(png_image_begin_read_from_file(&img, dir.path("o.png").c_str()));
        img.format = PNG_FORMAT_RGBA;
        ASSERT_TRUE(png_image_finish_read(&img, nullptr, rgba.data(), 0, nullptr));
        std::vector<uint32_t> tif(9 * 6);
        ASSERT_EQ(Save(dir.path("o.tif"), src.get(), RZ_FMT_UNKNOWN, RZ_TIFF_LZW), ST_SUCCESS);
        TIFF *t = TIFFOpen(dir.path("o.tif").c_str(), "r");
        ASSERT_TRUE(t);
        ASSERT_TRUE(TIFFReadRGBAImageOriented(t, 9, 6, tif.data(), ORIENTATION_TOPLEFT, 0));
        TIFFClose(t);
        for (int32_t i = 0; i < 9 * 6; ++i) {
            const Rgba c = Look(src.get(), i % 9, i / 9);
            const uint8_t *q = &rgba[size_t(i) * 4];
            const uint32_t a = TIFFGetA(tif[i]);
            EXPECT_EQ(std::tuple(q[0], q[1], q[2], q[3]), std::tuple(c.r >> 8, c.g >> 8, c.b >> 8, c.a >> 8)) << layout;
            if (a == 255) {
                EXPECT_EQ(std::tuple(TIFFGetR(tif[i]), TIFFGetG(tif[i]), TIFFGetB(tif[i])),
                          std::tuple(c.r >> 8, c.g >> 8, c.b >> 8)) << layout;
            }
            EXPECT_EQ(a, c.a >> 8) << layout;
        }
    }
}

struct TiffOut {
    TIFF *t;
    explicit TiffOut(const std::string &path) : t(TIFFOpen(path.c_str(), "w")) {}
    ~TiffOut() { TIFFClose(t); }
};

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
}

TEST(PeerTiff, TiledSeparatePlanesSixteenBitRgb) {
    TempDir dir;
    const uint32_t w = 37, h = 21, tile = 16;
    auto sample = [](uint32_t x, uint32_t y, int c) { return uint16_t(x * 1000 + y * 17 + c * 20000 + 3); };
    {
        TiffOut o(dir.path("t.tif"));
        Fields(o.t, w, h, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_ADOBE_DEFLATE, PLANARCONFIG_SEPARATE);
        TIFFSetField(o.t, TIFFTAG_TILEWIDTH, tile);
        TIFFSetField(o.t, TIFFTAG_TILELENGTH, tile);
        std::vector<uint16_t> buf(tile * tile);
        for (int c = 0; c < 3; ++c)
            for (uint32_t ty = 0; ty < h; ty += tile)
                for (uint32_t tx = 0; tx < w; tx += tile) {
                    for (uint32_t i = 0; i < tile * tile; ++i)
                        buf[i] = sample(tx + i % tile, ty + i / tile, c);
                    ASSERT_GE(TIFFWriteTile(o.t, buf.data(), tx, ty, 0, uint16_t(c)), 0);
                }
    }
    Loaded got(dir.path("t.tif"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    EXPECT_EQ(got.d.nBitsPerPixel, 48);
    EXPECT_EQ(got.d.nColorOrder, KRN_ORDER_BGR);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            ASSERT_EQ(Px(&got.d, int32_t(x), int32_t(y)),
                      sample(x, y, 0) | uint64_t(sample(x, y, 1)) << 16 | uint64_t(sample(x, y, 2)) << 32)
                << x << "," << y;
}

// Several pages, each chosen by number; 16-bit grey bounded by
// MaxSampleValue; bilevel white-is-zero G4; CMYK arrives as 24-bit colour.
TEST(PeerTiff, PagesWhiteIsZeroAndCmyk) {
    TempDir dir;
    const std::string file = dir.path("pages.tif");
    {
        TiffOut o(file);
        WriteStrips(o.t, 4, 3, 8, PHOTOMETRIC_MINISBLACK, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
        TIFFWriteDirectory(o.t);
        TIFFSetField(o.t, TIFFTAG_MAXSAMPLEVALUE, uint16_t(1023)); // little-endian words below
        WriteStrips(o.t, 3, 2, 16, PHOTOMETRIC_MINISBLACK, {0, 0, 0xFF, 3, 0, 2, 7, 0, 100, 0, 1, 0});
        TIFFWriteDirectory(o.t);
        WriteStrips(o.t, 10, 2, 1, PHOTOMETRIC_MINISWHITE, {0xF0, 0x00, 0x0F, 0xC0}, COMPRESSION_CCITTFAX4);
        TIFFWriteDirectory(o.t);
        TIFFSetField(o.t, TIFFTAG_INKSET, INKSET_CMYK);
        WriteStrips(o.t, 2, 1, 8, PHOTOMETRIC_SEPARATED, {0, 0, 0, 0, 0, 0, 0, 255});
    }
    RzFileInfo info;
    ASSERT_EQ(Info(file, &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nFormat, info.nPages, info.nWidth), std::tuple(RZ_FMT_TIFF, 4, 4));
    Loaded p0(file, 0), p1(file, 1), p2(file, 2), p3(file, 3);
    EXPECT_EQ(Loaded(file, 4).status, RZ_FILE_BAD_PAGE);
    ASSERT_EQ(std::tuple(p0.status, p1.status, p2.status, p3.status),
              std::tuple(ST_SUCCESS, ST_SUCCESS, ST_SUCCESS, ST_SUCCESS));
    EXPECT_EQ(p0.d.nBitsPerPixel, 8);
    EXPECT_TRUE(KrnIsGrayscale(&p0.d));
    EXPECT_EQ(Px(&p0.d, 3, 2), 12u);
    EXPECT_EQ(std::tuple(p1.d.nWidth, p1.d.nBitsPerPixel, p1.d.nHighBit), std::tuple(3, 16, 9));
    EXPECT_EQ(Px(&p1.d, 1, 0), 1023u);
    EXPECT_EQ(Px(&p1.d, 1, 1), 100u);
    EXPECT_EQ(p2.d.nBitsPerPixel, 1);
    EXPECT_TRUE(KrnIsGrayscale(&p2.d));
    // Set bits are black in the file, so index 0 (black) on the grey ramp.
    for (int32_t x = 0; x < 10; ++x) {
        EXPECT_EQ(Px(&p2.d, x, 0), x < 4 ? 0u : 1u) << x;
        EXPECT_EQ(Px(&p2.d, x, 1), x < 4 ? 1u : 0u) << x;
    }
    EXPECT_EQ(p3.d.nBitsPerPixel, 24);
    EXPECT_EQ(Px(&p3.d, 0, 0), 0xFFFFFFu);
    EXPECT_EQ(Px(&p3.d, 1, 0), 0u);
}

// PNM read from bytes written by hand: values as worked out from the format.
TEST(Pnm, PlainAndRawFilesByHand) {
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
        {std::string("P4 3 2\n\xA0\x40"), 1, 3, {0, 1, 0, 1, 0, 1}}, // rows padded to whole bytes
    };
    for (const auto &c : cases) {
        WriteText(dir.path("h.pnm"), c.bytes);
        Loaded l(dir.path("h.pnm"));
        ASSERT_EQ(l.status, ST_SUCCESS) << c.bytes;
        EXPECT_EQ(l.d.nBitsPerPixel, c.bits) << c.bytes;
        EXPECT_TRUE(c.bits != 16 || l.d.nHighBit == 9);
        for (size_t i = 0; i < c.pixels.size(); ++i)
            EXPECT_EQ(Px(&l.d, int32_t(i % c.width), int32_t(i / c.width)), c.pixels[i]) << c.bytes << " at " << i;
    }
}

// Our PNM output, byte for byte.
TEST(Pnm, WrittenBytes) {
    TempDir dir;
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

} // namespace
} // namespace rz::test
