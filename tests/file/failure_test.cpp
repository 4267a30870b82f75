// Damaged, mislabelled and hostile input, claims past the pixel limit, saves
// a format cannot hold, loads and saves stopped part-way: a failed load
// leaves the caller's descriptor alone and no kernel block behind; a failed
// save leaves the folder as it was. The format chosen on load and save.
#include "file_helpers.h"

#include <zlib.h>

#include <cstring>
#include <functional>

namespace rz::test {
namespace {

// Saved picture bytes of a small image, to be damaged.
Bytes Saved(const TempDir &dir, const char *ext) {
    Bitmap src(FindLayout("bgr24"), 16, 16, 11);
    const std::string file = dir.path(std::string("base") + ext);
    EXPECT_EQ(Save(file, src.get()), ST_SUCCESS);
    const Bytes b = ReadBytes(file);
    std::filesystem::remove(file);
    return b;
}
void PutBE32(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = char(v >> (24 - 8 * i));
}
// Sets a LONG-valued tag of the first IFD of a little-endian classic TIFF.
Bytes TiffWithTag(Bytes t, uint16_t tag, uint32_t value) {
    auto u = [&](size_t at) { return uint32_t(uint8_t(t[at]) | uint8_t(t[at + 1]) << 8); };
    const size_t ifd = u(4) | u(6) << 16;
    size_t e = ifd + 2;
    while (e < ifd + 2 + 12 * u(ifd) && u(e) != tag)
        e += 12;
    const char entry[] = {4, 0, 1, 0, 0, 0, char(value), char(value >> 8), char(value >> 16),
                          char(value >> 24)}; // LONG, count 1, value
    return t.replace(e + 2, sizeof entry, entry, sizeof entry);
}
struct BadCase {
    const char *name;
    std::function<Bytes(const TempDir &)> make;
    int32_t status;
    // Claims past the pixel limit: refused from the header before any kernel
    // block is requested; the header is described.
    bool noBlock = false, describedHuge = false;
};

// Each gives its status, leaves the descriptor and the kernel as they were.
TEST(Malformed, GivesItsStatusAndLeavesNothing) {
    using D = const TempDir &;
    auto text = [](std::string t) { return [t](D) { return t; }; };
    const BadCase corpus[] = {
        {"empty", text(""), RZ_FILE_FORMAT},
        {"missing", nullptr, RZ_FILE_NOT_FOUND},
        {"png_bad_crc_in_idat",
         [](D d) { auto b = Saved(d, ".png"); b[b.find("IDAT") + 6] ^= 0x40; return b; },
         RZ_FILE_CORRUPT},
        {"png_truncated_in_idat",
         [](D d) { auto b = Saved(d, ".png"); return b.substr(0, b.find("IDAT") + 20); },
         RZ_FILE_CORRUPT},
        {"jpeg_truncated",
         [](D d) { auto b = Saved(d, ".jpg"); return b.substr(0, b.size() / 2); },
         RZ_FILE_CORRUPT},
        {"tiff_strip_past_end",
         [](D d) { return TiffWithTag(Saved(d, ".tif"), 273, 0x7FFFFFF0); }, RZ_FILE_CORRUPT},
        {"tiff_directory_past_end",
         [](D d) { auto b = Saved(d, ".tif"); PutBE32(b, 4, 0xF0FFFF7F); return b; },
         RZ_FILE_CORRUPT},
        {"pnm_maxval_zero", text("P5 2 2 0\n\x01\x02\x03\x04"), RZ_FILE_CORRUPT},
        {"png_page_1", [](D d) { return Saved(d, ".png"); }, RZ_FILE_BAD_PAGE},
        {"claim_pnm", text("P5\n16385 16384\n255\n"), RZ_FILE_TOO_LARGE, true, true},
        {"claim_pnm_row", text("P6\n2147483647 1\n255\n"), RZ_FILE_TOO_LARGE, true},
        {"claim_jpeg", // 60000 x 60000
         [](D d) {
             auto b = Saved(d, ".jpg");
             return b.replace(b.find("\xFF\xC0") + 5, 4, "\xEA\x60\xEA\x60").substr(0, 700);
         },
         RZ_FILE_TOO_LARGE, true, true},
        {"claim_tiff",
         [](D d) { return TiffWithTag(TiffWithTag(Saved(d, ".tif"), 256, 70000), 257, 70000); },
         RZ_FILE_TOO_LARGE, true, true},
        {"claim_png", // libpng takes its own memory from the kernel
         [](D d) {
             Bytes b = Saved(d, ".png");
             PutBE32(b, 16, 70000), PutBE32(b, 20, 70000);
             PutBE32(b, 29, uint32_t(crc32(0, reinterpret_cast<const Bytef *>(&b[12]), 17)));
             return b;
         },
         RZ_FILE_TOO_LARGE, false, true},
    };
    for (const BadCase &c : corpus) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const std::string file = dir.path(std::string(c.name) + ".png");
        if (c.make)
            WriteBytes(file, c.make(dir));
        const int64_t before = KrnMemOutstanding();
        BitmapDesc d, copy;
        std::memset(&d, 0xAB, sizeof d);
        copy = d;
        KrnMemFailAfter(c.noBlock ? 0 : -1);
        EXPECT_EQ(Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, c.status == RZ_FILE_BAD_PAGE),
                  c.status);
        EXPECT_TRUE(KrnMemFailAfter(-1) == 0 || !c.noBlock) << "requested a kernel block";
        EXPECT_EQ(std::memcmp(&d, &copy, sizeof d), 0) << "a failed load changed the descriptor";
        EXPECT_STRNE(Rz_FileStatusText(c.status), Rz_FileStatusText(12345));
        RzFileInfo info; // a sound header may still be described
        const int32_t st = Info(file, &info);
        EXPECT_TRUE(c.describedHuge ? st == 1 && int64_t(info.nWidth) * info.nHeight > 1 << 28
                                    : st < 0 || st == 1)
            << st;
        EXPECT_EQ(KrnMemOutstanding(), before);
    }
}

const Bytes kOld = "the old file"; // a failed save must leave it

// Every allocation of a save and of a load fails in turn, and the callback
// stops each at every progress step in turn: a failure gives -1, a stop the
// callback's value; each frees all and leaves the caller's descriptor and
// the old target as they were. The percentages never go down.
TEST(FailuresAndStops, LeaveNothingBehindAtEveryStep) {
    const std::pair<const char *, const char *> cases[] = {
        {".png", "pal4_colour"}, {".png", "grey16_bits0_11"}, {".jpg", "bgr24"},
        {".jpg", "grey12"},      {".tif", "bgr64"},           {".tif", "pal8_colour"},
        {".pnm", "bgr48"},       {".pnm", "pal1_grey"}};
    for (auto [ext, layout] : cases)
        for (bool stop : {false, true}) {
            SCOPED_TRACE(std::string(layout) + ext + (stop ? " stopped" : " failing allocation"));
            TempDir dir;
            const std::string name = std::string("t") + ext, file = dir.path(name);
            const Bitmap src(FindLayout(layout), 23, 9, 3);
            const int64_t before = KrnMemOutstanding();
            const int32_t refused = stop ? 0 : ST_FAILURE;
            int interrupted[2] = {0, 0};
            for (int load = 0; load < 2; ++load) {
                int32_t st = refused;
                for (int64_t n = 0; n < 500 && st != ST_SUCCESS; ++n) {
                    CallbackRecorder rec;
                    stop ? rec.stopAt(int32_t(n) + 1, refused) : void(KrnMemFailAfter(n));
                    BitmapDesc d{};
                    d.nWidth = 77;
                    if (!load)
                        WriteBytes(file, kOld);
                    st = load ? Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, 0)
                              : Save(file, src.get());
                    KrnMemFailAfter(-1);
                    EXPECT_TRUE(std::is_sorted(rec.percents().begin(), rec.percents().end()));
                    if (st == ST_SUCCESS && load)
                        KrnFreeBitmap(&d);
                    else if (st != ST_SUCCESS) {
                        ++interrupted[load];
                        EXPECT_EQ(std::tuple(st, d.nWidth, dir.names()),
                                  std::tuple(refused, 77, std::vector<std::string>{name}))
                            << n;
                        EXPECT_TRUE(load || ReadBytes(file) == kOld) << n;
                    }
                    EXPECT_EQ(KrnMemOutstanding(), before) << n;
                }
                EXPECT_EQ(st, ST_SUCCESS);
                EXPECT_GT(interrupted[load], 0);
            }
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
