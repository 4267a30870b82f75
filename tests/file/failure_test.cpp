// Damaged, mislabelled and hostile input; the pixel limit; loads and saves
// that fail or are stopped part-way. Every case checks the status, that a
// failed load left the caller's descriptor alone, that no kernel block is
// left behind, and for saves that the folder holds what it held before.
#include "file_helpers.h"

#include <tiffio.h>
#include <zlib.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <sys/resource.h>

namespace rz::test {
namespace {

// Saved picture bytes of a small image, to be damaged.
Bytes Saved(const TempDir &dir, const char *ext, const char *layout = "bgr24", int32_t w = 16, int32_t h = 16) {
    Bitmap src(FindLayout(layout), w, h, 11);
    const std::string file = dir.path(std::string("base") + ext);
    EXPECT_EQ(Save(file, src.get()), ST_SUCCESS);
    Bytes b = ReadBytes(file);
    std::filesystem::remove(file);
    return b;
}

Bytes Text(const std::string &s) { return Bytes(s.begin(), s.end()); }
Bytes Cut(Bytes b, size_t keep) { return b.resize(keep), b; }
size_t Find(const Bytes &b, const std::string &what) {
    const Bytes w = Text(what);
    const auto at = std::search(b.begin(), b.end(), w.begin(), w.end());
    EXPECT_NE(at, b.end()) << "no " << what;
    return size_t(at - b.begin());
}
void PutBE32(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = uint8_t(v >> (24 - 8 * i));
}

// Sets a LONG-valued tag of the first IFD of a little-endian classic TIFF.
Bytes TiffWithTag(Bytes t, uint16_t tag, uint32_t value) {
    const size_t ifd = t[4] | t[5] << 8 | t[6] << 16 | size_t(t[7]) << 24;
    size_t e = ifd + 2;
    while (e < ifd + 2 + 12 * size_t(t[ifd] | t[ifd + 1] << 8) && (t[e] | t[e + 1] << 8) != tag)
        e += 12;
    const uint8_t entry[] = {4, 0, 1, 0, 0, 0, uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16),
                             uint8_t(value >> 24)}; // LONG, count 1, value
    std::copy(std::begin(entry), std::end(entry), t.begin() + ptrdiff_t(e + 2));
    return t;
}

// A grey TIFF of floating-point samples, written by libtiff.
Bytes FloatTiff(const TempDir &dir) {
    const std::string path = dir.path("float.tif");
    TIFF *t = TIFFOpen(path.c_str(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 2u);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 1u);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 32);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    float row[2] = {0.25f, 1.0f};
    TIFFWriteScanline(t, row, 0, 0);
    TIFFClose(t);
    Bytes b = ReadBytes(path);
    std::filesystem::remove(path);
    return b;
}

struct BadCase {
    std::string name;
    std::function<Bytes(const TempDir &)> make; // nullptr: a directory or nothing, by name
    int32_t status;
    // Claims over the pixel limit with almost no data: refused from the
    // header before any kernel block is requested (the armed allocation
    // failure is never reached), and not as corrupt; the header is described.
    bool noBlock = false, describedHuge = false;
};
void PrintTo(const BadCase &c, std::ostream *os) { *os << c.name; }

std::vector<BadCase> Corpus() {
    auto text = [](std::string t) { return [t](const TempDir &) { return Text(t); }; };
    return {
        {"empty", text(""), RZ_FILE_FORMAT},
        {"garbage_named_png", text("this is not a picture at all"), RZ_FILE_FORMAT},
        {"directory", nullptr, RZ_FILE_NOT_FOUND},
        {"missing", nullptr, RZ_FILE_NOT_FOUND},
        {"png_bad_crc_in_idat", [](const TempDir &d) { auto b = Saved(d, ".png"); b[Find(b, "IDAT") + 6] ^= 0x40; return b; },
         RZ_FILE_CORRUPT},
        {"png_truncated_in_idat", [](const TempDir &d) { auto b = Saved(d, ".png"); return Cut(b, Find(b, "IDAT") + 20); },
         RZ_FILE_CORRUPT},
        {"jpeg_truncated", [](const TempDir &d) { auto b = Saved(d, ".jpg"); return Cut(b, b.size() / 2); },
         RZ_FILE_CORRUPT},
        {"jpeg_header_only", [](const TempDir &d) { return Cut(Saved(d, ".jpg"), 4); }, RZ_FILE_CORRUPT},
        {"tiff_strip_past_end", [](const TempDir &d) { return TiffWithTag(Saved(d, ".tif"), 273, 0x7FFFFFF0); },
         RZ_FILE_CORRUPT},
        {"tiff_directory_past_end", [](const TempDir &d) { auto b = Saved(d, ".tif"); PutBE32(b, 4, 0xF0FFFF7F); return b; },
         RZ_FILE_CORRUPT},
        {"tiff_truncated", [](const TempDir &d) { return Cut(Saved(d, ".tif"), 12); }, RZ_FILE_CORRUPT},
        {"tiff_float_samples", FloatTiff, RZ_FILE_FLOAT_SAMPLES},
        {"pnm_negative_width", text("P5\n-3 4\n255\n0123456789ab"), RZ_FILE_CORRUPT},
        {"pnm_huge_size", text("P6\n99999999999 99999999999\n255\n"), RZ_FILE_TOO_LARGE},
        {"pnm_maxval_zero", text("P5 2 2 0\n\x01\x02\x03\x04"), RZ_FILE_CORRUPT},
        {"pnm_maxval_too_big", text("P2 2 2 65536\n1 2 3 4\n"), RZ_FILE_CORRUPT},
        {"pnm_truncated_raw", text("P6 4 4 255\nabcdefgh"), RZ_FILE_CORRUPT},
        {"pbm_bad_digit", text("P1 3 1\n0 2 1\n"), RZ_FILE_CORRUPT},
        {"png_page_1", [](const TempDir &d) { return Saved(d, ".png"); }, RZ_FILE_BAD_PAGE},
        {"claim_pnm", text("P5\n16385 16384\n255\n"), RZ_FILE_TOO_LARGE, true, true},
        {"claim_pnm_row", text("P6\n2147483647 1\n255\n"), RZ_FILE_TOO_LARGE, true},
        {"claim_jpeg", [](const TempDir &d) {
             Bytes b = Saved(d, ".jpg");
             const size_t sof = Find(b, "\xFF\xC0");
             for (int k : {5, 7})
                 b[sof + k] = 0xEA, b[sof + k + 1] = 0x60; // 60000
             return Cut(b, 700);
         }, RZ_FILE_TOO_LARGE, true, true},
        {"claim_tiff", [](const TempDir &d) { return TiffWithTag(TiffWithTag(Saved(d, ".tif"), 256, 70000), 257, 70000); },
         RZ_FILE_TOO_LARGE, true, true},
        {"claim_png", [](const TempDir &d) { // libpng takes its own memory from the kernel
             Bytes b = Saved(d, ".png");
             PutBE32(b, 16, 70000), PutBE32(b, 20, 70000);
             PutBE32(b, 29, uint32_t(crc32(0, b.data() + 12, 17)));
             return b;
         }, RZ_FILE_TOO_LARGE, false, true},
    };
}

class Malformed : public ::testing::TestWithParam<BadCase> {};

TEST_P(Malformed, GivesItsStatusAndLeavesNothing) {
    const BadCase &c = GetParam();
    TempDir dir;
    const std::string file = dir.path(c.name + ".png");
    if (c.make)
        WriteBytes(file, c.make(dir));
    else if (c.name == "directory")
        std::filesystem::create_directory(file);
    const int64_t before = KrnMemOutstanding();
    BitmapDesc d, copy;
    std::memset(&d, 0xAB, sizeof d);
    copy = d;
    const int32_t page = c.status == RZ_FILE_BAD_PAGE ? 1 : 0;
    if (c.noBlock)
        KrnMemFailAfter(0);
    EXPECT_EQ(Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, page), c.status);
    EXPECT_TRUE(KrnMemFailAfter(-1) == 0 || !c.noBlock) << "requested a kernel block";
    EXPECT_EQ(std::memcmp(&d, &copy, sizeof d), 0) << "a failed load changed the descriptor";
    EXPECT_STRNE(Rz_FileStatusText(c.status), Rz_FileStatusText(12345));
    RzFileInfo info; // a sound header may still be described
    const int32_t st = Info(file, &info);
    EXPECT_TRUE(c.describedHuge ? st == ST_SUCCESS && int64_t(info.nWidth) * info.nHeight > int64_t(1) << 28
                                : st < 0 || st == ST_SUCCESS) << st;
    EXPECT_EQ(KrnMemOutstanding(), before);
}

INSTANTIATE_TEST_SUITE_P(Corpus, Malformed, ::testing::ValuesIn(Corpus()),
                         [](const auto &info) { return info.param.name; });

TEST(Arguments, AreCheckedBeforeAnythingIsReadOrWritten) {
    TempDir dir;
    BitmapDesc d{}, empty{};
    const std::string png = dir.path("a.png"), out = dir.path("x.png");
    WriteBytes(png, Saved(dir, ".png"));
    Bitmap src(FindLayout("grey8"), 4, 4, 5);
    ASSERT_EQ(KrnInitBitmap(&empty, BITMAPDESC_SIZE, 4, 4, 24), KRN_OK);
    RzFileInfo small{};
    small.uStructSize = 8;
    const RzSaveOptions bigger{sizeof(RzSaveOptions) + 4, 0, 0, 0};
    const std::pair<int32_t, int32_t> checks[] = {
        {ST_NULL_POINTER, Rz_LoadBitmap(nullptr, &d, BITMAPDESC_SIZE, 0)},
        {ST_NULL_POINTER, Rz_LoadBitmap(png.c_str(), nullptr, BITMAPDESC_SIZE, 0)},
        {ST_BAD_STRUCT_SIZE, Rz_LoadBitmap(png.c_str(), &d, 160, 0)},
        {RZ_FILE_BAD_PAGE, Rz_LoadBitmap(png.c_str(), &d, BITMAPDESC_SIZE, -1)},
        {ST_BAD_STRUCT_SIZE, Rz_GetFileInfo(png.c_str(), &small)},
        {ST_NULL_POINTER, Rz_GetFileInfo(png.c_str(), nullptr)},
        {ST_NULL_POINTER, Rz_SaveBitmap(nullptr, src.get(), nullptr)},
        {ST_NULL_POINTER, Rz_SaveBitmap(out.c_str(), nullptr, nullptr)},
        {ST_BAD_STRUCT_SIZE, Rz_SaveBitmap(out.c_str(), src.get(), &bigger)},
        {ST_NO_BITMAP, Rz_SaveBitmap(out.c_str(), &empty, nullptr)},
    };
    for (size_t i = 0; i < std::size(checks); ++i)
        EXPECT_EQ(checks[i].second, checks[i].first) << "check " << i;
    KrnFreeBitmap(&empty);
    EXPECT_EQ(dir.names(), std::vector<std::string>{"a.png"});
}

// Restores the default limit however a test ends.
struct LimitGuard {
    int64_t old;
    explicit LimitGuard(int64_t n) : old(Rz_SetFilePixelLimit(n)) {}
    ~LimitGuard() { Rz_SetFilePixelLimit(old); }
};

// The default is 2^28 and a query (0 or less) leaves it. A picture one pixel
// over the limit is refused, one at the limit loads, in every format.
TEST(PixelLimit, AppliesToEveryFormat) {
    EXPECT_EQ(Rz_SetFilePixelLimit(0), int64_t(1) << 28);
    EXPECT_EQ(Rz_SetFilePixelLimit(-5), int64_t(1) << 28);
    TempDir dir;
    for (const char *ext : {".png", ".jpg", ".tif", ".pnm"}) {
        const std::string file = dir.path(std::string("p") + ext);
        WriteBytes(file, Saved(dir, ext, "bgr24", 20, 20));
        for (int64_t limit : {399, 400}) {
            LimitGuard g(limit);
            EXPECT_EQ(Rz_SetFilePixelLimit(0), limit);
            EXPECT_EQ(Loaded(file).status, limit == 400 ? ST_SUCCESS : RZ_FILE_TOO_LARGE) << ext;
        }
    }
    // Raising the limit does not make a row the kernel cannot hold loadable.
    LimitGuard g(int64_t(1) << 40);
    WriteText(dir.path("wide.pnm"), "P6\n2147483647 1\n255\n");
    KrnMemFailAfter(0);
    BitmapDesc d{};
    EXPECT_EQ(Rz_LoadBitmap(dir.path("wide.pnm").c_str(), &d, BITMAPDESC_SIZE, 0), RZ_FILE_TOO_LARGE);
    EXPECT_EQ(KrnMemFailAfter(-1), 0);
}

// Old contents of the target, to prove a failed save left it alone.
const std::string kOld = "the old file";

void ExpectUntouched(const TempDir &dir, const std::string &name) {
    EXPECT_EQ(dir.names(), std::vector<std::string>{name});
    EXPECT_EQ(ReadBytes(dir.path(name)), Text(kOld));
}

// Every allocation of a save and of a load fails in turn, and the callback
// stops each at every progress step in turn: a failure gives -1, a stop the
// callback's value; each frees all and leaves the caller's descriptor and
// the old target as they were. The percentages never go down.
TEST(FailuresAndStops, LeaveNothingBehindAtEveryStep) {
    const std::pair<const char *, const char *> cases[] = {
        {".png", "pal4_colour"}, {".png", "grey16_bits0_11"}, {".jpg", "bgr24"}, {".jpg", "grey12"},
        {".tif", "bgr64"},       {".tif", "pal8_colour"},     {".pnm", "bgr48"}, {".pnm", "pal1_grey"}};
    for (auto [ext, layout] : cases)
        for (bool stop : {false, true}) {
            SCOPED_TRACE(std::string(layout) + ext + (stop ? " stopped" : " failing allocation"));
            TempDir dir;
            const std::string name = std::string("t") + ext, file = dir.path(name);
            Bitmap src(FindLayout(layout), 23, 9, 3);
            const int64_t before = KrnMemOutstanding();
            const int32_t refused = stop ? 0 : ST_FAILURE;
            int32_t st = refused, interrupted = 0;
            // Arms the n-th interruption (from 0) around one call.
            auto run = [&](int64_t n, const std::function<int32_t()> &call) {
                CallbackRecorder rec;
                if (stop)
                    rec.stopAt(int32_t(n) + 1, refused);
                else
                    KrnMemFailAfter(n);
                const int32_t got = call();
                KrnMemFailAfter(-1);
                EXPECT_TRUE(std::is_sorted(rec.percents().begin(), rec.percents().end()));
                interrupted += got != ST_SUCCESS;
                return got;
            };
            for (int64_t n = 0; n < 500 && st != ST_SUCCESS; ++n) {
                WriteText(file, kOld);
                st = run(n, [&] { return Save(file, src.get()); });
                EXPECT_EQ(KrnMemOutstanding(), before);
                if (st != ST_SUCCESS) {
                    EXPECT_EQ(st, refused) << n;
                    ExpectUntouched(dir, name);
                }
            }
            ASSERT_EQ(st, ST_SUCCESS);
            EXPECT_EQ(dir.names(), std::vector<std::string>{name});
            const int32_t saveInterrupted = interrupted;
            EXPECT_GT(saveInterrupted, 0);
            st = refused;
            for (int64_t n = 0; n < 500 && st != ST_SUCCESS; ++n) {
                BitmapDesc d{};
                d.nWidth = 77;
                st = run(n, [&] { return Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, 0); });
                if (st == ST_SUCCESS)
                    KrnFreeBitmap(&d);
                else
                    EXPECT_EQ(std::tuple(st, d.nWidth), std::tuple(refused, 77)) << n;
                EXPECT_EQ(KrnMemOutstanding(), before) << n;
            }
            EXPECT_EQ(st, ST_SUCCESS);
            EXPECT_GT(interrupted, saveInterrupted);
        }
}

// The disk refuses to grow the file part-way (a file size limit stands in
// for a full disk): the save reports a write failure and the old target
// stays. Unwritable places fail without leaving anything.
TEST(WriteFailure, LeavesTheOldTargetAndNothingElse) {
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
    TempDir dir;
    EXPECT_EQ(Save(dir.path("no/such/folder/x.png"), src.get()), RZ_FILE_WRITE);
    std::filesystem::create_directory(dir.path("adir.png"));
    EXPECT_EQ(Save(dir.path("adir.png"), src.get()), RZ_FILE_WRITE);
    EXPECT_EQ(dir.names(), std::vector<std::string>{"adir.png"});
    EXPECT_TRUE(std::filesystem::is_empty(dir.path("adir.png")));
}

} // namespace
} // namespace rz::test
