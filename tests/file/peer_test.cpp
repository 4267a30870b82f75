// Files written by libpng and libtiff directly (layouts our saver never
// makes: interlacing, sBIT, short palettes, grey with alpha, tiles, separate
// planes, several pages, white-is-zero, CMYK), our files read back by them,
// and PNM files written byte by byte, each checked against values worked
// out by hand.
#include "file_helpers.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>

namespace rz::test {
namespace {

uint64_t Px(const BitmapDesc *b, int32_t x, int32_t y) {
    uint64_t v = 0;
    EXPECT_EQ(KrnGetPixel(b, x, y, &v), KRN_OK);
    return v;
}

// Writes a PNG with libpng; rows are given in PNG's own byte layout.
void WritePng(const std::string &path, uint32_t w, uint32_t h, int depth, int type, bool interlace,
              const std::vector<std::vector<uint8_t>> &rows, const std::vector<png_color> &palette = {},
              int sbit = 0) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, w, h, depth, type, interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty())
        png_set_PLTE(png, info, palette.data(), int(palette.size()));
    if (sbit) {
        png_color_8 s{};
        s.gray = png_byte(sbit);
        png_set_sBIT(png, info, &s);
    }
    png_write_info(png, info);
    std::vector<png_bytep> ptrs;
    for (auto &r : rows)
        ptrs.push_back(const_cast<png_bytep>(r.data()));
    png_write_image(png, ptrs.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    fclose(f);
}

TEST(PeerPng, InterlacedSixteenBitGreyWithSignificantBits) {
    TempDir dir;
    const uint32_t w = 11, h = 9;
    std::vector<std::vector<uint8_t>> rows(h);
    auto value = [](uint32_t x, uint32_t y) { return (x * 97 + y * 31) % 1024; }; // 10 bits
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const uint32_t v = value(x, y) << 6; // PNG keeps significant bits at the top
            rows[y].push_back(uint8_t(v >> 8));
            rows[y].push_back(uint8_t(v));
        }
    WritePng(dir.path("g.png"), w, h, 16, PNG_COLOR_TYPE_GRAY, true, rows, {}, 10);
    Loaded got(dir.path("g.png"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    EXPECT_EQ(got.d.nBitsPerPixel, 16);
    EXPECT_EQ(got.d.nColorOrder, KRN_ORDER_GRAY);
    EXPECT_EQ(got.d.nDataKind, 1);
    EXPECT_EQ(got.d.nLowBit, 0);
    EXPECT_EQ(got.d.nHighBit, 9);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            EXPECT_EQ(Px(&got.d, int32_t(x), int32_t(y)), value(x, y));
    RzFileInfo info{};
    info.uStructSize = sizeof info;
    ASSERT_EQ(Rz_GetFileInfo(dir.path("g.png").c_str(), &info), ST_SUCCESS);
    EXPECT_EQ(info.nBitsPerPixel, 16);
    EXPECT_EQ(info.nSignificantBits, 10);
    EXPECT_EQ(info.nColorOrder, KRN_ORDER_GRAY);
}

TEST(PeerPng, ShortPaletteAndGreyWithAlpha) {
    TempDir dir;
    // 4-bit indices, palette of 3 entries; row bytes pack two pixels.
    const std::vector<png_color> pal = {{10, 20, 30}, {200, 100, 0}, {1, 2, 3}};
    WritePng(dir.path("p.png"), 3, 1, 4, PNG_COLOR_TYPE_PALETTE, false, {{0x21, 0x00}}, pal);
    Loaded p(dir.path("p.png"));
    ASSERT_EQ(p.status, ST_SUCCESS);
    EXPECT_EQ(p.d.nBitsPerPixel, 4);
    EXPECT_EQ(p.d.nColors, 3);
    EXPECT_FALSE(KrnIsGrayscale(&p.d));
    EXPECT_EQ(Px(&p.d, 0, 0), 2u);
    EXPECT_EQ(Px(&p.d, 1, 0), 1u);
    EXPECT_EQ(Px(&p.d, 2, 0), 0u);
    EXPECT_EQ(p.d.pPalette[1].rgbRed, 200);
    EXPECT_EQ(p.d.pPalette[1].rgbGreen, 100);
    EXPECT_EQ(p.d.pPalette[0].rgbBlue, 30);

    // Grey 8 with alpha becomes 32-bit colour with the alpha as fourth channel.
    WritePng(dir.path("ga.png"), 2, 1, 8, PNG_COLOR_TYPE_GRAY_ALPHA, false, {{50, 200, 7, 9}});
    Loaded ga(dir.path("ga.png"));
    ASSERT_EQ(ga.status, ST_SUCCESS);
    EXPECT_EQ(ga.d.nBitsPerPixel, 32);
    EXPECT_EQ(Px(&ga.d, 0, 0), 50u | 50u << 8 | 50u << 16 | uint64_t(200) << 24);
    EXPECT_EQ(Px(&ga.d, 1, 0), 7u | 7u << 8 | 7u << 16 | uint64_t(9) << 24);
}

// libpng's simplified reader sees in our 32-bit file what we saved.
TEST(PeerPng, ReadsOurColourWithAlpha) {
    TempDir dir;
    Bitmap src(FindLayout("bgr32"), 7, 5, 4);
    ASSERT_EQ(Save(dir.path("c.png"), src.get()), ST_SUCCESS);
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&img, dir.path("c.png").c_str()));
    EXPECT_EQ(img.format, unsigned(PNG_FORMAT_RGBA));
    std::vector<uint8_t> buf(PNG_IMAGE_SIZE(img));
    ASSERT_TRUE(png_image_finish_read(&img, nullptr, buf.data(), 0, nullptr));
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x) {
            const Rgba c = Look(src.get(), x, y);
            const uint8_t *q = &buf[size_t(y * 7 + x) * 4];
            EXPECT_EQ(q[0], c.r >> 8);
            EXPECT_EQ(q[1], c.g >> 8);
            EXPECT_EQ(q[2], c.b >> 8);
            EXPECT_EQ(q[3], c.a >> 8);
        }
}

// ---- libtiff ----

struct TiffOut {
    TIFF *t;
    explicit TiffOut(const std::string &path) : t(TIFFOpen(path.c_str(), "w")) {}
    ~TiffOut() {
        if (t)
            TIFFClose(t);
    }
};

TEST(PeerTiff, TiledSeparatePlanesSixteenBitRgb) {
    TempDir dir;
    const uint32_t w = 37, h = 21, tile = 16;
    auto sample = [](uint32_t x, uint32_t y, int c) { return uint16_t(x * 1000 + y * 17 + c * 20000 + 3); };
    {
        TiffOut o(dir.path("t.tif"));
        TIFF *t = o.t;
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
        TIFFSetField(t, TIFFTAG_TILEWIDTH, tile);
        TIFFSetField(t, TIFFTAG_TILELENGTH, tile);
        std::vector<uint16_t> buf(tile * tile);
        for (int c = 0; c < 3; ++c)
            for (uint32_t ty = 0; ty < h; ty += tile)
                for (uint32_t tx = 0; tx < w; tx += tile) {
                    for (uint32_t y = 0; y < tile; ++y)
                        for (uint32_t x = 0; x < tile; ++x)
                            buf[y * tile + x] = sample(tx + x, ty + y, c);
                    ASSERT_GE(TIFFWriteTile(t, buf.data(), tx, ty, 0, uint16_t(c)), 0);
                }
    }
    Loaded got(dir.path("t.tif"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    EXPECT_EQ(got.d.nBitsPerPixel, 48);
    EXPECT_EQ(got.d.nColorOrder, KRN_ORDER_BGR);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const uint64_t want = sample(x, y, 0) | uint64_t(sample(x, y, 1)) << 16 | uint64_t(sample(x, y, 2)) << 32;
            ASSERT_EQ(Px(&got.d, int32_t(x), int32_t(y)), want) << x << "," << y;
        }
}

void WriteStrips(TIFF *t, uint32_t w, uint32_t h, int bps, int photometric, const std::vector<uint8_t> &data,
                 int compression = COMPRESSION_NONE) {
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bps);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, photometric == PHOTOMETRIC_SEPARATED ? 4 : 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 2u);
    const size_t line = data.size() / h;
    for (uint32_t y = 0; y < h; ++y)
        ASSERT_GE(TIFFWriteScanline(t, const_cast<uint8_t *>(&data[y * line]), y, 0), 0);
}

TEST(PeerTiff, PagesAreCountedAndChosen) {
    TempDir dir;
    {
        TiffOut o(dir.path("pages.tif"));
        WriteStrips(o.t, 4, 3, 8, PHOTOMETRIC_MINISBLACK, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
        TIFFWriteDirectory(o.t);
        // Second page: 16-bit grey, values up to 1023 declared by MaxSampleValue.
        std::vector<uint8_t> d;
        for (uint16_t v : {uint16_t(0), uint16_t(1023), uint16_t(512), uint16_t(7), uint16_t(100), uint16_t(1)}) {
            d.push_back(uint8_t(v));
            d.push_back(uint8_t(v >> 8));
        }
        TIFFSetField(o.t, TIFFTAG_MAXSAMPLEVALUE, uint16_t(1023));
        WriteStrips(o.t, 3, 2, 16, PHOTOMETRIC_MINISBLACK, d);
        TIFFWriteDirectory(o.t);
        // Third page: bilevel, white is zero, G4.
        WriteStrips(o.t, 10, 2, 1, PHOTOMETRIC_MINISWHITE, {0xF0, 0x00, 0x0F, 0xC0}, COMPRESSION_CCITTFAX4);
    }
    const std::string file = dir.path("pages.tif");
    RzFileInfo info{};
    info.uStructSize = sizeof info;
    ASSERT_EQ(Rz_GetFileInfo(file.c_str(), &info), ST_SUCCESS);
    EXPECT_EQ(info.nFormat, RZ_FMT_TIFF);
    EXPECT_EQ(info.nPages, 3);
    EXPECT_EQ(info.nWidth, 4);

    Loaded p0(file, 0), p1(file, 1), p2(file, 2), p3(file, 3);
    ASSERT_EQ(p0.status, ST_SUCCESS);
    EXPECT_EQ(p0.d.nBitsPerPixel, 8);
    EXPECT_TRUE(KrnIsGrayscale(&p0.d));
    EXPECT_EQ(Px(&p0.d, 3, 2), 12u);

    ASSERT_EQ(p1.status, ST_SUCCESS);
    EXPECT_EQ(p1.d.nWidth, 3);
    EXPECT_EQ(p1.d.nBitsPerPixel, 16);
    EXPECT_EQ(p1.d.nHighBit, 9);
    EXPECT_EQ(Px(&p1.d, 1, 0), 1023u);
    EXPECT_EQ(Px(&p1.d, 1, 1), 100u);

    ASSERT_EQ(p2.status, ST_SUCCESS);
    EXPECT_EQ(p2.d.nBitsPerPixel, 1);
    EXPECT_TRUE(KrnIsGrayscale(&p2.d));
    // Set bits are black in the file, so index 0 (black) on the grey ramp.
    const uint64_t row0[] = {0, 0, 0, 0, 1, 1, 1, 1, 1, 1};
    const uint64_t row1[] = {1, 1, 1, 1, 0, 0, 0, 0, 0, 0};
    for (int32_t x = 0; x < 10; ++x) {
        EXPECT_EQ(Px(&p2.d, x, 0), row0[x]) << x;
        EXPECT_EQ(Px(&p2.d, x, 1), row1[x]) << x;
    }
    EXPECT_EQ(p3.status, RZ_FILE_BAD_PAGE);
}

// Kinds without a kernel layout of their own arrive as 24-bit colour.
TEST(PeerTiff, CmykArrivesAsColour) {
    TempDir dir;
    {
        TiffOut o(dir.path("cmyk.tif"));
        TIFFSetField(o.t, TIFFTAG_INKSET, INKSET_CMYK);
        WriteStrips(o.t, 2, 1, 8, PHOTOMETRIC_SEPARATED, {0, 0, 0, 0, 0, 0, 0, 255});
    }
    Loaded got(dir.path("cmyk.tif"));
    ASSERT_EQ(got.status, ST_SUCCESS);
    EXPECT_EQ(got.d.nBitsPerPixel, 24);
    EXPECT_EQ(Px(&got.d, 0, 0), 0xFFFFFFu);
    EXPECT_EQ(Px(&got.d, 1, 0), 0u);
}

// libtiff's own RGBA reader agrees with what we wrote, palettes included.
TEST(PeerTiff, ReadsOurFiles) {
    TempDir dir;
    for (const char *layout : {"pal4_colour", "pal8_colour", "rgb24", "bgr32"}) {
        Bitmap src(FindLayout(layout), 9, 6, 8);
        ASSERT_EQ(Save(dir.path("o.tif"), src.get(), RZ_FMT_UNKNOWN, RZ_TIFF_LZW), ST_SUCCESS);
        TIFF *t = TIFFOpen(dir.path("o.tif").c_str(), "r");
        ASSERT_TRUE(t);
        std::vector<uint32_t> px(9 * 6);
        ASSERT_TRUE(TIFFReadRGBAImageOriented(t, 9, 6, px.data(), ORIENTATION_TOPLEFT, 0));
        TIFFClose(t);
        for (int32_t y = 0; y < 6; ++y)
            for (int32_t x = 0; x < 9; ++x) {
                const Rgba c = Look(src.get(), x, y);
                const uint32_t q = px[size_t(y * 9 + x)];
                EXPECT_EQ(TIFFGetA(q), c.a >> 8) << layout;
                if (TIFFGetA(q) == 255) {
                    EXPECT_EQ(TIFFGetR(q), c.r >> 8) << layout;
                    EXPECT_EQ(TIFFGetG(q), c.g >> 8) << layout;
                    EXPECT_EQ(TIFFGetB(q), c.b >> 8) << layout;
                }
            }
    }
}

// ---- PNM by hand ----

TEST(Pnm, PlainAndRawFilesByHand) {
    TempDir dir;
    // Plain PBM, digits run together: 1 is black (index 0 on the ramp).
    WriteText(dir.path("a.pbm"), "P1\n# comment\n4 2\n0110\n1 0 0 1\n");
    Loaded a(dir.path("a.pbm"));
    ASSERT_EQ(a.status, ST_SUCCESS);
    EXPECT_EQ(a.d.nBitsPerPixel, 1);
    EXPECT_EQ(Px(&a.d, 0, 0), 1u);
    EXPECT_EQ(Px(&a.d, 1, 0), 0u);
    EXPECT_EQ(Px(&a.d, 0, 1), 0u);
    EXPECT_EQ(Px(&a.d, 1, 1), 1u);

    // maxval 4 scales to 8 bits: round(v * 255 / 4); values past maxval clamp.
    WriteText(dir.path("b.pgm"), "P2 3 2 4\n0 1 2\n3 4 9\n");
    Loaded b(dir.path("b.pgm"));
    ASSERT_EQ(b.status, ST_SUCCESS);
    EXPECT_EQ(b.d.nBitsPerPixel, 8);
    const uint64_t want[] = {0, 64, 128, 191, 255, 255};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(Px(&b.d, i % 3, i / 3), want[i]) << i;

    // maxval 15 keeps 4 bits.
    WriteText(dir.path("c.pgm"), "P2 2 1 15 3 15");
    Loaded c(dir.path("c.pgm"));
    ASSERT_EQ(c.status, ST_SUCCESS);
    EXPECT_EQ(c.d.nBitsPerPixel, 4);
    EXPECT_EQ(Px(&c.d, 0, 0), 3u);
    EXPECT_EQ(Px(&c.d, 1, 0), 15u);

    // Raw 16-bit, maxval 1023: big-endian words kept, nHighBit 9.
    WriteBytes(dir.path("d.pgm"), {'P', '5', ' ', '2', ' ', '1', ' ', '1', '0', '2', '3', '\n', 0x03, 0xFF, 0x01, 0x02});
    Loaded d(dir.path("d.pgm"));
    ASSERT_EQ(d.status, ST_SUCCESS);
    EXPECT_EQ(d.d.nBitsPerPixel, 16);
    EXPECT_EQ(d.d.nHighBit, 9);
    EXPECT_EQ(Px(&d.d, 0, 0), 1023u);
    EXPECT_EQ(Px(&d.d, 1, 0), 258u);

    // Raw PPM: red, green, blue bytes.
    WriteBytes(dir.path("e.ppm"), {'P', '6', '\n', '1', ' ', '1', '\n', '2', '5', '5', '\n', 10, 20, 30});
    Loaded e(dir.path("e.ppm"));
    ASSERT_EQ(e.status, ST_SUCCESS);
    EXPECT_EQ(e.d.nBitsPerPixel, 24);
    EXPECT_EQ(Px(&e.d, 0, 0), 10u | 20u << 8 | 30u << 16);

    // Raw PBM rows are padded to whole bytes.
    WriteBytes(dir.path("f.pbm"), {'P', '4', ' ', '3', ' ', '2', '\n', 0xA0, 0x40});
    Loaded f(dir.path("f.pbm"));
    ASSERT_EQ(f.status, ST_SUCCESS);
    EXPECT_EQ(Px(&f.d, 0, 0), 0u);
    EXPECT_EQ(Px(&f.d, 1, 0), 1u);
    EXPECT_EQ(Px(&f.d, 2, 0), 0u);
    EXPECT_EQ(Px(&f.d, 1, 1), 0u);
}

// Our PNM output, byte for byte.
TEST(Pnm, WrittenBytes) {
    TempDir dir;
    Bitmap g(FindLayout("grey12"), 2, 1, 0);
    g.setPixel(0, 0, 4095);
    g.setPixel(1, 0, 258);
    ASSERT_EQ(Save(dir.path("g.pgm"), g.get()), ST_SUCCESS);
    const std::string head = "P5\n2 1\n4095\n";
    std::vector<uint8_t> want(head.begin(), head.end());
    for (uint8_t v : {0x0F, 0xFF, 0x01, 0x02})
        want.push_back(v);
    EXPECT_EQ(ReadBytes(dir.path("g.pgm")), want);

    Bitmap bw(FindLayout("pal1_grey"), 3, 1, 0);
    bw.setPixel(1, 0, 1); // white
    ASSERT_EQ(Save(dir.path("b.pbm"), bw.get()), ST_SUCCESS);
    const auto pbm = ReadBytes(dir.path("b.pbm"));
    ASSERT_EQ(pbm.size(), 8u);
    EXPECT_EQ(std::string(pbm.begin(), pbm.begin() + 7), "P4\n3 1\n");
    EXPECT_EQ(pbm[7] & 0xE0, 0xA0); // black, white, black
}

} // namespace
} // namespace rz::test
