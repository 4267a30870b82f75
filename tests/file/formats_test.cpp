// Choosing the format; PNM read from hand-written bytes.
#include "file_helpers.h"

namespace rz::test {
namespace {

// PNM read from bytes written by hand.
TEST(Pnm, ReadFromBytesByHand) {
    TempDir dir;
    const std::tuple<std::string, int32_t, int32_t, std::vector<uint64_t>> cases[] = {
        // Plain PBM, digits run together: 1 is black (index 0 on the ramp).
        {"P1\n# comment\n4 2\n0110\n1 0 0 1\n", 1, 4, {1, 0, 0, 1, 0, 1, 1, 0}},
        // maxval 4 scales to 8 bits: round(v * 255 / 4); values past maxval clamp.
        {"P2 3 2 4\n0 1 2\n3 4 9\n", 8, 3, {0, 64, 128, 191, 255, 255}},
        // Raw 16-bit, maxval 1023: big-endian words, bits 0..9.
        {std::string("P5 2 1 1023\n\x03\xFF\x01\x02", 16), 16, 2, {1023, 258}},
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
}

// The format comes from the content on load; on save from the option, else
// the name; colour saved as grey takes the weights 77/150/29 of 256. What a
// format cannot hold is refused and leaves no file.
TEST(FormatChoice, ContentOnLoadOptionOrNameOnSave) {
    TempDir dir;
    Bitmap colour(FindLayout("pal8_colour"), 16, 12, 3), sgrey(FindLayout("grey16"), 9, 4, 5);
    sgrey->uFlags |= BMF_SIGNED;
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
        {"f.png", colour, 99, 0, 0, ST_INVALID_PARAMETER},
        {"c.tif", colour, 0, 9, 0, ST_INVALID_PARAMETER},
        {"no/such/folder.png", colour, 0, 0, 0, RZ_FILE_WRITE},
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
