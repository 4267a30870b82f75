// Choosing the format, PNM byte for byte, and what a save says it drops.
#include "file_helpers.h"

namespace rz::test {
namespace {

// PNM read from bytes written by hand, and our PNM output byte for byte.
TEST(Pnm, ReadAndWrittenBytesByHand) {
    TempDir dir;
    const std::tuple<std::string, int32_t, int32_t, std::vector<uint64_t>> cases[] = {
        // Plain PBM, digits run together: 1 is black (index 0 on the ramp).
        {"P1\n# comment\n4 2\n0110\n1 0 0 1\n", 1, 4, {1, 0, 0, 1, 0, 1, 1, 0}},
        // maxval 4 scales to 8 bits: round(v * 255 / 4); values past maxval clamp.
        {"P2 3 2 4\n0 1 2\n3 4 9\n", 8, 3, {0, 64, 128, 191, 255, 255}},
        {"P2 2 1 15 3 15", 4, 2, {3, 15}}, // maxval 15 keeps 4 bits
        // Raw 16-bit, maxval 1023: big-endian words, bits 0..9.
        {std::string("P5 2 1 1023\n\x03\xFF\x01\x02", 16), 16, 2, {1023, 258}},
        {"P6\n1 1\n255\n\x0A\x14\x1E", 24, 1, {0x1E140A}}, // red, green, blue bytes
        {"P4 3 2\n\xA0\x40", 1, 3, {0, 1, 0, 1, 0, 1}},    // rows padded to whole bytes
    };
    for (const auto &[bytes, bits, width, pixels] : cases) {
        WriteBytes(dir.path("h.pnm"), bytes);
        Loaded l(dir.path("h.pnm"));
        ASSERT_EQ(l.status, ST_SUCCESS) << bytes;
        EXPECT_EQ(l->nBitsPerPixel, bits);
        EXPECT_TRUE(bits != 16 || l->nHighBit == 9);
        for (int i = 0; i < int(pixels.size()); ++i)
            EXPECT_EQ(l.pixel(i % width, i / width), pixels[i]) << bytes << " at " << i;
    }
    Bitmap g(FindLayout("grey12"), 2, 1, 0), bw(FindLayout("pal1_grey"), 3, 1, 0);
    g.setPixel(0, 0, 4095);
    g.setPixel(1, 0, 258);
    bw.setPixel(1, 0, 1); // white
    ASSERT_EQ(Save(dir.path("g.pgm"), g.get()), ST_SUCCESS);
    ASSERT_EQ(Save(dir.path("b.pbm"), bw.get()), ST_SUCCESS);
    EXPECT_EQ(ReadBytes(dir.path("g.pgm")), std::string("P5\n2 1\n4095\n\x0F\xFF\x01\x02", 16));
    const Bytes pbm = ReadBytes(dir.path("b.pbm"));
    EXPECT_EQ(std::tuple(pbm.size(), pbm.substr(0, 7), pbm[7] & 0xE0),
              std::tuple(8u, "P4\n3 1\n", 0xA0)); // black, white, black
}

// The format comes from the content on load; on save from the option, else
// the name. What a format cannot hold is refused and leaves no file; what a
// save would drop is said beforehand (an opaque fourth channel is nothing
// to lose; colour made grey with the weights 77/150/29 of 256).
TEST(FormatChoice, ContentOnLoadOptionOrNameOnSaveAndWhatASaveDrops) {
    TempDir dir;
    Bitmap colour(FindLayout("pal8_colour"), 16, 12, 3), grey(FindLayout("grey8"), 5, 4, 2),
        sgrey(FindLayout("grey16"), 9, 4, 5), alpha(FindLayout("bgr32"), 3, 2, 4),
        opaque(FindLayout("bgr32"), 3, 2, 0), meta(FindLayout("bgr24"), 3, 2, 1);
    sgrey->uFlags |= BMF_SIGNED;
    alpha.setPixel(0, 0, 0x10203040); // alpha 0x10 somewhere
    for (int32_t i = 0; i < 6; ++i)
        opaque.setPixel(i % 3, i / 3, 0xFF000000u | uint32_t(i));
    ASSERT_EQ(KrnSetBitmapMetadata(meta.get(), KRN_META_EXIF, "II*\0", 4), KRN_OK);
    const std::tuple<const char *, const Bitmap *, uint32_t> notes[] = {
        {"a.jpg", &alpha, RZ_SAVE_NOTE_ALPHA},     {"a.ppm", &alpha, RZ_SAVE_NOTE_ALPHA},
        {"a.png", &alpha, 0},                      {"a.tif", &alpha, 0},
        {"o.jpg", &opaque, 0},                     {"c.pgm", &colour, RZ_SAVE_NOTE_GREY},
        {"c.png", &colour, 0},                     {"m.ppm", &meta, RZ_SAVE_NOTE_METADATA},
        {"m.tif", &meta, RZ_SAVE_NOTE_METADATA},   {"m.png", &meta, 0},
        {"m.jpg", &meta, 0}};
    for (const auto &[name, b, want] : notes) {
        uint32_t got = 99;
        ASSERT_EQ(Rz_GetSaveNotes(dir.path(name).c_str(), b->get(), nullptr, &got), ST_SUCCESS);
        EXPECT_EQ(got, want) << name;
    }
    const struct {
        const char *name;
        const Bitmap &b;
        int32_t format, compression, quality, status;
    } refused[] = {
        {"noext", colour, 0, 0, 0, RZ_FILE_FORMAT},
        {"bits.pbm", colour, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"signed.png", sgrey, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"colour.dcm", colour, 0, 0, 0, RZ_FILE_UNSUPPORTED},
        {"q.jpg", colour, 0, 0, 101, ST_INVALID_PARAMETER},
        {"f.png", grey, 99, 0, 0, ST_INVALID_PARAMETER},
        {"c.tif", grey, 0, 9, 0, ST_INVALID_PARAMETER},
    };
    for (const auto &r : refused)
        EXPECT_EQ(Save(dir.path(r.name), r.b.get(), r.format, r.compression, r.quality), r.status)
            << r.name;
    EXPECT_EQ(dir.names(), std::vector<std::string>{});

    ASSERT_EQ(Save(dir.path("png.jpg"), colour.get(), RZ_FMT_PNG), ST_SUCCESS);
    RzFileInfo info;
    ASSERT_EQ(Info(dir.path("png.jpg"), &info), ST_SUCCESS);
    EXPECT_EQ(std::tuple(info.nFormat, info.nWidth, info.nHeight, info.nBitsPerPixel, info.nPages),
              std::tuple(RZ_FMT_PNG, 16, 12, 8, 1));
    ASSERT_EQ(Save(dir.path("c.pgm"), colour.get()), ST_SUCCESS);
    ASSERT_EQ(Save(dir.path("s.tif"), sgrey.get()), ST_SUCCESS); // signed grey keeps its sign
    Loaded png(dir.path("png.jpg")), g(dir.path("c.pgm")), s(dir.path("s.tif"));
    ASSERT_EQ(std::tuple(png.status, g.status, s.status), std::tuple(1, 1, 1));
    ExpectSamePicture(colour.get(), png.get());
    EXPECT_TRUE(s->uFlags & BMF_SIGNED);
    EXPECT_EQ(s.storedBytes(), sgrey.storedBytes());
    for (int i = 0; i < 16 * 12; ++i) {
        const RzRGBQuad e = colour->pPalette[colour.pixel(i % 16, i / 16)];
        const uint32_t grey = (e.rgbRed * 77u + e.rgbGreen * 150u + e.rgbBlue * 29u + 128) >> 8;
        ASSERT_EQ(g.pixel(i % 16, i / 16), grey) << i;
    }
}

} // namespace
} // namespace rz::test
