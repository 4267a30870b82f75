// Damaged, mislabelled and hostile input; the pixel limit; saves that fail
// part-way. Every case checks the status, that the caller's descriptor is
// untouched by a failed load, that no kernel block is left behind, and for
// saves that the folder holds exactly what it held before.
#include "file_helpers.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <sys/resource.h>

namespace rz::test {
namespace {

// Saved picture bytes of a small image, to be damaged.
std::vector<uint8_t> Saved(const TempDir &dir, const char *ext, const char *layout = "bgr24", int32_t w = 16,
                           int32_t h = 16) {
    Bitmap src(FindLayout(layout), w, h, 11);
    const std::string file = dir.path(std::string("base") + ext);
    EXPECT_EQ(Save(file, src.get()), ST_SUCCESS);
    auto bytes = ReadBytes(file);
    std::filesystem::remove(file);
    return bytes;
}

size_t Find(const std::vector<uint8_t> &b, const std::string &what, size_t from = 0) {
    for (size_t i = from; i + what.size() <= b.size(); ++i)
        if (std::memcmp(b.data() + i, what.data(), what.size()) == 0)
            return i;
    ADD_FAILURE() << "no " << what;
    return 0;
}

void PutBE32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = uint8_t(v >> (24 - 8 * i));
}

// PNG with a new IHDR size and a correct CRC.
std::vector<uint8_t> PngWithSize(std::vector<uint8_t> png, uint32_t w, uint32_t h) {
    PutBE32(png, 16, w);
    PutBE32(png, 20, h);
    PutBE32(png, 29, uint32_t(crc32(0, png.data() + 12, 17)));
    return png;
}

std::vector<uint8_t> JpegWithSize(std::vector<uint8_t> jpg, uint16_t w, uint16_t h) {
    const size_t sof = Find(jpg, "\xFF\xC0");
    jpg[sof + 5] = uint8_t(h >> 8);
    jpg[sof + 6] = uint8_t(h);
    jpg[sof + 7] = uint8_t(w >> 8);
    jpg[sof + 8] = uint8_t(w);
    return jpg;
}

// Sets a LONG-valued tag of the first IFD of a little-endian classic TIFF.
std::vector<uint8_t> TiffWithTag(std::vector<uint8_t> tif, uint16_t tag, uint32_t value) {
    auto le16 = [&](size_t at) { return uint32_t(tif[at] | tif[at + 1] << 8); };
    const size_t ifd = tif[4] | tif[5] << 8 | tif[6] << 16 | size_t(tif[7]) << 24;
    const uint32_t count = le16(ifd);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t e = ifd + 2 + 12 * i;
        if (le16(e) != tag)
            continue;
        tif[e + 2] = 4; // LONG
        tif[e + 3] = 0;
        for (int k = 0; k < 4; ++k)
            tif[e + 8 + k] = uint8_t(value >> (8 * k));
        return tif;
    }
    ADD_FAILURE() << "no tag " << tag;
    return tif;
}

struct BadCase {
    std::string name;
    std::function<void(const TempDir &, const std::string &)> make; // writes the file at the path
    int32_t status;
};

std::vector<uint8_t> Cut(std::vector<uint8_t> b, size_t keep) {
    b.resize(keep);
    return b;
}

std::vector<BadCase> Corpus() {
    auto bytes = [](std::function<std::vector<uint8_t>(const TempDir &)> f) {
        return [f](const TempDir &d, const std::string &p) { WriteBytes(p, f(d)); };
    };
    auto text = [](std::string t) { return [t](const TempDir &, const std::string &p) { WriteText(p, t); }; };
    return {
        {"empty", text(""), RZ_FILE_FORMAT},
        {"garbage_named_png", text("this is not a picture at all"), RZ_FILE_FORMAT},
        {"directory", [](const TempDir &, const std::string &p) { std::filesystem::create_directory(p); },
         RZ_FILE_NOT_FOUND},
        {"missing", [](const TempDir &, const std::string &) {}, RZ_FILE_NOT_FOUND},
        {"png_bad_crc_in_idat", bytes([](const TempDir &d) {
             auto b = Saved(d, ".png");
             b[Find(b, "IDAT") + 6] ^= 0x40;
             return b;
         }),
         RZ_FILE_CORRUPT},
        {"png_bad_crc_in_ihdr", bytes([](const TempDir &d) {
             auto b = Saved(d, ".png");
             b[29] ^= 1;
             return b;
         }),
         RZ_FILE_CORRUPT},
        {"png_truncated_in_idat", bytes([](const TempDir &d) {
             auto b = Saved(d, ".png");
             return Cut(b, Find(b, "IDAT") + 20);
         }),
         RZ_FILE_CORRUPT},
        {"jpeg_truncated", bytes([](const TempDir &d) {
             auto b = Saved(d, ".jpg");
             return Cut(b, b.size() / 2);
         }),
         RZ_FILE_CORRUPT},
        {"jpeg_header_only", bytes([](const TempDir &d) { return Cut(Saved(d, ".jpg"), 4); }), RZ_FILE_CORRUPT},
        {"tiff_strip_past_end", bytes([](const TempDir &d) { return TiffWithTag(Saved(d, ".tif"), 273, 0x7FFFFFF0); }),
         RZ_FILE_CORRUPT},
        {"tiff_directory_past_end", bytes([](const TempDir &d) {
             auto b = Saved(d, ".tif");
             PutBE32(b, 4, 0xF0FFFF7F);
             return b;
         }),
         RZ_FILE_CORRUPT},
        {"tiff_truncated", bytes([](const TempDir &d) { return Cut(Saved(d, ".tif"), 12); }), RZ_FILE_CORRUPT},
        {"pnm_negative_width", text("P5\n-3 4\n255\n0123456789ab"), RZ_FILE_CORRUPT},
        {"pnm_huge_size", text("P6\n99999999999 99999999999\n255\n"), RZ_FILE_TOO_LARGE},
        {"pnm_maxval_zero", text("P5 2 2 0\n\x01\x02\x03\x04"), RZ_FILE_CORRUPT},
        {"pnm_maxval_too_big", text("P2 2 2 65536\n1 2 3 4\n"), RZ_FILE_CORRUPT},
        {"pnm_truncated_raw", text("P6 4 4 255\nabcdefgh"), RZ_FILE_CORRUPT},
        {"pnm_word_in_text", text("P2 2 2 255\n1 2 x 4\n"), RZ_FILE_CORRUPT},
        {"pbm_bad_digit", text("P1 3 1\n0 2 1\n"), RZ_FILE_CORRUPT},
    };
}

void PrintTo(const BadCase &c, std::ostream *os) { *os << c.name; }

class Malformed : public ::testing::TestWithParam<BadCase> {};

TEST_P(Malformed, GivesAStatusAndLeavesNothing) {
    const BadCase &c = GetParam();
    TempDir dir;
    const std::string file = dir.path(c.name + ".png");
    c.make(dir, file);
    const int64_t before = KrnMemOutstanding();
    BitmapDesc d;
    std::memset(&d, 0xAB, sizeof d);
    BitmapDesc copy = d;
    EXPECT_EQ(Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, 0), c.status);
    EXPECT_EQ(std::memcmp(&d, &copy, sizeof d), 0) << "a failed load changed the descriptor";
    EXPECT_EQ(KrnMemOutstanding(), before);
    RzFileInfo info{};
    info.uStructSize = sizeof info;
    const int32_t st = Rz_GetFileInfo(file.c_str(), &info);
    EXPECT_LE(st, ST_SUCCESS);
    EXPECT_NE(st, 0);
    EXPECT_EQ(KrnMemOutstanding(), before);
}

INSTANTIATE_TEST_SUITE_P(Corpus, Malformed, ::testing::ValuesIn(Corpus()),
                         [](const auto &info) { return info.param.name; });

TEST(LoadArguments, AreChecked) {
    TempDir dir;
    BitmapDesc d{};
    EXPECT_EQ(Rz_LoadBitmap(nullptr, &d, BITMAPDESC_SIZE, 0), ST_NULL_POINTER);
    EXPECT_EQ(Rz_LoadBitmap("x.png", nullptr, BITMAPDESC_SIZE, 0), ST_NULL_POINTER);
    EXPECT_EQ(Rz_LoadBitmap("x.png", &d, 160, 0), ST_BAD_STRUCT_SIZE);
    WriteBytes(dir.path("a.png"), Saved(dir, ".png"));
    EXPECT_EQ(Rz_LoadBitmap(dir.path("a.png").c_str(), &d, BITMAPDESC_SIZE, 1), RZ_FILE_BAD_PAGE);
    EXPECT_EQ(Rz_LoadBitmap(dir.path("a.png").c_str(), &d, BITMAPDESC_SIZE, -1), RZ_FILE_BAD_PAGE);
    RzFileInfo info{};
    info.uStructSize = 8;
    EXPECT_EQ(Rz_GetFileInfo(dir.path("a.png").c_str(), &info), ST_BAD_STRUCT_SIZE);
    EXPECT_EQ(Rz_GetFileInfo(dir.path("a.png").c_str(), nullptr), ST_NULL_POINTER);
}

// Restores the default limit however a test ends.
struct LimitGuard {
    int64_t old;
    explicit LimitGuard(int64_t n) : old(Rz_SetFilePixelLimit(n)) {}
    ~LimitGuard() { Rz_SetFilePixelLimit(old); }
};

TEST(PixelLimit, DefaultIsTwoToThe28AndQueryLeavesIt) {
    EXPECT_EQ(Rz_SetFilePixelLimit(0), int64_t(1) << 28);
    EXPECT_EQ(Rz_SetFilePixelLimit(-5), int64_t(1) << 28);
    LimitGuard g(1000);
    EXPECT_EQ(Rz_SetFilePixelLimit(0), 1000);
}

// A picture one pixel over the limit is refused, one at the limit loads.
TEST(PixelLimit, AppliesToEveryFormat) {
    TempDir dir;
    for (const char *ext : {".png", ".jpg", ".tif", ".pnm"}) {
        WriteBytes(dir.path(std::string("p") + ext), Saved(dir, ext, "bgr24", 20, 20));
        const int64_t before = KrnMemOutstanding();
        {
            LimitGuard g(399);
            Loaded l(dir.path(std::string("p") + ext));
            EXPECT_EQ(l.status, RZ_FILE_TOO_LARGE) << ext;
        }
        {
            LimitGuard g(400);
            Loaded l(dir.path(std::string("p") + ext));
            EXPECT_EQ(l.status, ST_SUCCESS) << ext;
        }
        EXPECT_EQ(KrnMemOutstanding(), before) << ext;
    }
}

// Files that claim a picture over the limit but carry almost no data: the
// refusal comes from the header, before any kernel block is requested (the
// armed allocation failure is never reached), and not from running out of
// data, which would say "corrupt".
TEST(PixelLimit, RefusesFromTheHeaderBeforeAllocating) {
    TempDir dir;
    struct Claim {
        const char *name;
        std::vector<uint8_t> bytes;
        bool codecUsesKernelMemory;
    };
    const auto png = Saved(dir, ".png");
    std::vector<Claim> claims = {
        {"huge.pnm", [] {
             std::string s = "P5\n16385 16384\n255\n";
             return std::vector<uint8_t>(s.begin(), s.end());
         }(), false},
        {"wide.pnm", [] {
             std::string s = "P6\n2147483647 1\n255\n";
             return std::vector<uint8_t>(s.begin(), s.end());
         }(), false},
        {"huge.jpg", Cut(JpegWithSize(Saved(dir, ".jpg"), 60000, 60000), 700), false},
        {"huge.tif", TiffWithTag(TiffWithTag(Saved(dir, ".tif"), 256, 70000), 257, 70000), false},
        {"huge.png", PngWithSize(png, 70000, 70000), true},
    };
    for (const Claim &c : claims) {
        WriteBytes(dir.path(c.name), c.bytes);
        const int64_t before = KrnMemOutstanding();
        BitmapDesc d{};
        if (!c.codecUsesKernelMemory)
            KrnMemFailAfter(0);
        EXPECT_EQ(Rz_LoadBitmap(dir.path(c.name).c_str(), &d, BITMAPDESC_SIZE, 0), RZ_FILE_TOO_LARGE) << c.name;
        if (!c.codecUsesKernelMemory) {
            EXPECT_EQ(KrnMemFailAfter(-1), 0) << c.name << " requested a kernel block";
        }
        EXPECT_EQ(KrnMemOutstanding(), before) << c.name;
        // The header still describes the file.
        RzFileInfo info{};
        info.uStructSize = sizeof info;
        if (std::string(c.name) != "wide.pnm") {
            ASSERT_EQ(Rz_GetFileInfo(dir.path(c.name).c_str(), &info), ST_SUCCESS) << c.name;
            EXPECT_GT(int64_t(info.nWidth) * info.nHeight, int64_t(1) << 28) << c.name;
        }
    }
    // Raising the limit does not make a row the kernel cannot hold loadable.
    LimitGuard g(int64_t(1) << 40);
    KrnMemFailAfter(0);
    BitmapDesc d{};
    EXPECT_EQ(Rz_LoadBitmap(dir.path("wide.pnm").c_str(), &d, BITMAPDESC_SIZE, 0), RZ_FILE_TOO_LARGE);
    EXPECT_EQ(KrnMemFailAfter(-1), 0);
}

// Every allocation of a load fails in turn: each gives -1 and frees all.
TEST(AllocationFailure, LoadsFreeEverything) {
    TempDir dir;
    const struct {
        const char *ext;
        const char *layout;
    } cases[] = {{".png", "pal4_colour"}, {".png", "grey16_bits0_11"}, {".jpg", "bgr24"}, {".tif", "bgr64"},
                 {".tif", "pal8_colour"}, {".pnm", "bgr48"}, {".pnm", "pal1_grey"}};
    for (const auto &c : cases) {
        const std::string file = dir.path(std::string(c.layout) + c.ext);
        WriteBytes(file, Saved(dir, c.ext, c.layout, 23, 9));
        const int64_t before = KrnMemOutstanding();
        bool loaded = false;
        for (int64_t n = 0; n < 500 && !loaded; ++n) {
            BitmapDesc d{};
            KrnMemFailAfter(n);
            const int32_t st = Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, 0);
            KrnMemFailAfter(-1);
            if (st == ST_SUCCESS) {
                loaded = true;
                KrnFreeBitmap(&d);
            } else {
                EXPECT_EQ(st, ST_FAILURE) << file << " failing allocation " << n;
            }
            EXPECT_EQ(KrnMemOutstanding(), before) << file << " failing allocation " << n;
        }
        EXPECT_TRUE(loaded) << file;
    }
}

// Old contents of the target, to prove a failed save left it alone.
const std::string kOld = "the old file";

void ExpectUntouched(const TempDir &dir, const std::string &name) {
    EXPECT_EQ(dir.names(), std::vector<std::string>{name});
    const auto b = ReadBytes(dir.path(name));
    EXPECT_EQ(std::string(b.begin(), b.end()), kOld);
}

TEST(AllocationFailure, SavesLeaveNoFileAndKeepTheTarget) {
    for (const char *ext : {".png", ".jpg", ".tif", ".pnm"}) {
        for (const char *layout : {"pal4_colour", "grey12", "bgr32"}) {
            TempDir dir;
            const std::string name = std::string("t") + ext;
            Bitmap src(FindLayout(layout), 19, 6, 3);
            const int64_t before = KrnMemOutstanding();
            bool saved = false;
            for (int64_t n = 0; n < 500 && !saved; ++n) {
                WriteText(dir.path(name), kOld);
                KrnMemFailAfter(n);
                const int32_t st = Save(dir.path(name), src.get());
                KrnMemFailAfter(-1);
                EXPECT_EQ(KrnMemOutstanding(), before);
                if (st == ST_SUCCESS) {
                    saved = true;
                    EXPECT_EQ(dir.names(), std::vector<std::string>{name});
                } else {
                    EXPECT_EQ(st, ST_FAILURE) << name << " " << layout << " failing allocation " << n;
                    ExpectUntouched(dir, name);
                }
            }
            EXPECT_TRUE(saved) << name << " " << layout;
        }
    }
}

// The disk refuses to grow the file part-way (a file size limit stands in
// for a full disk): the save reports a write failure and the old target
// stays.
TEST(WriteFailure, PartWayLeavesTheOldTarget) {
    Bitmap src(FindLayout("bgr24"), 300, 300, 5);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    for (const char *ext : {".png", ".jpg", ".tif", ".pnm"}) {
        TempDir dir;
        const std::string name = std::string("t") + ext;
        WriteText(dir.path(name), kOld);
        const int64_t before = KrnMemOutstanding();
        rlimit old{};
        getrlimit(RLIMIT_FSIZE, &old);
        rlimit small = old;
        small.rlim_cur = 4096;
        setrlimit(RLIMIT_FSIZE, &small);
        const int32_t st = Save(dir.path(name), src.get(), RZ_FMT_UNKNOWN, 0, 100);
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_EQ(st, RZ_FILE_WRITE) << ext;
        ExpectUntouched(dir, name);
        EXPECT_EQ(KrnMemOutstanding(), before) << ext;
    }
    std::signal(SIGXFSZ, oldHandler);
}

TEST(WriteFailure, UnwritablePlaces) {
    TempDir dir;
    Bitmap src(FindLayout("grey8"), 4, 4, 5);
    EXPECT_EQ(Save(dir.path("no/such/folder/x.png"), src.get()), RZ_FILE_WRITE);
    std::filesystem::create_directory(dir.path("adir.png"));
    EXPECT_EQ(Save(dir.path("adir.png"), src.get()), RZ_FILE_WRITE);
    EXPECT_EQ(dir.names(), std::vector<std::string>{"adir.png"});
    EXPECT_TRUE(std::filesystem::is_empty(dir.path("adir.png")));
}

TEST(SaveArguments, AreCheckedBeforeAnythingIsWritten) {
    TempDir dir;
    Bitmap src(FindLayout("grey8"), 4, 4, 5);
    const std::string file = dir.path("x.png");
    EXPECT_EQ(Rz_SaveBitmap(nullptr, src.get(), nullptr), ST_NULL_POINTER);
    EXPECT_EQ(Rz_SaveBitmap(file.c_str(), nullptr, nullptr), ST_NULL_POINTER);
    RzSaveOptions bad{sizeof(RzSaveOptions) + 4, 0, 0, 0};
    EXPECT_EQ(Rz_SaveBitmap(file.c_str(), src.get(), &bad), ST_BAD_STRUCT_SIZE);
    EXPECT_EQ(Save(file, src.get(), 99), ST_INVALID_PARAMETER);
    EXPECT_EQ(Save(dir.path("x.tif"), src.get(), RZ_FMT_UNKNOWN, 9), ST_INVALID_PARAMETER);
    BitmapDesc empty{};
    ASSERT_EQ(KrnInitBitmap(&empty, BITMAPDESC_SIZE, 4, 4, 24), KRN_OK);
    EXPECT_EQ(Rz_SaveBitmap(file.c_str(), &empty, nullptr), ST_NO_BITMAP);
    KrnFreeBitmap(&empty);
    EXPECT_TRUE(dir.names().empty());
    EXPECT_EQ(Rz_SaveBitmap(file.c_str(), src.get(), nullptr), ST_SUCCESS);
}

TEST(StatusText, NamesEveryFileStatus) {
    std::vector<std::string> seen;
    for (int32_t st : {RZ_FILE_NOT_FOUND, RZ_FILE_FORMAT, RZ_FILE_CORRUPT, RZ_FILE_WRITE, RZ_FILE_TOO_LARGE,
                       RZ_FILE_UNSUPPORTED, RZ_FILE_BAD_PAGE, ST_FAILURE, ST_LIBRARY_NOT_LOADED, ST_SUCCESS}) {
        const std::string text = Rz_FileStatusText(st);
        EXPECT_GT(text.size(), 5u) << st;
        EXPECT_EQ(std::find(seen.begin(), seen.end(), text), seen.end()) << text;
        seen.push_back(text);
    }
    EXPECT_STREQ(Rz_FileStatusText(-123456), "unknown status");
}

} // namespace
} // namespace rz::test
