// The rzimg tool end to end: the binary is run as a user would, on files
// made here, and its output pixels are checked against values worked out
// from the inputs. Every failure must leave the output path as it was.
#include "support/bitmaps.h"

#include <rzfil.h>

#include <gtest/gtest.h>
#include <tiffio.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>

extern char **environ;

namespace {

namespace fs = std::filesystem;
using rz::test::Bitmap;

std::string ReadFile(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

Bitmap Load(const std::string &file) {
    BitmapDesc d{};
    EXPECT_EQ(Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, 0), 1) << file;
    return Bitmap::Adopt(d);
}

// 24-bit picture with every channel varying: red 6x, green 8y + 3, blue 5xy + 40.
uint64_t InputPixel(int x, int y) {
    return uint64_t((x * 6) & 255) | uint64_t((y * 8 + 3) & 255) << 8 | uint64_t((x * y * 5 + 40) & 255) << 16;
}

void Save(const std::string &file, int w, int h, int bits, const std::function<uint64_t(int, int)> &pixel) {
    Bitmap b(rz::test::Layout{"", bits, KRN_ORDER_BGR, bits > 8}, w, h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) b.setPixel(x, y, pixel(x, y));
    ASSERT_EQ(Rz_SaveBitmap(file.c_str(), b.get(), nullptr), 1) << file;
}

// Every 8-bit channel of a packed colour through f.
uint64_t PerChannel(uint64_t v, const std::function<int(int)> &f) {
    uint64_t out = 0;
    for (int c = 0; c < 3; ++c) out |= uint64_t(f(int(v >> (8 * c)) & 255)) << (8 * c);
    return out;
}

// Compares every pixel of `file` with want(x, y); reports the first difference.
::testing::AssertionResult Pixels(const std::string &file, const std::function<uint64_t(int, int)> &want) {
    const Bitmap b = Load(file);
    for (int y = 0; y < b->nHeight; ++y)
        for (int x = 0; x < b->nWidth; ++x)
            if (b.pixel(x, y) != want(x, y))
                return ::testing::AssertionFailure() << file << " (" << x << ", " << y << "): " << b.pixel(x, y)
                                                     << ", want " << want(x, y);
    return ::testing::AssertionSuccess();
}

struct Result {
    int code = -1;
    std::string out, err;
};

class ToolTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("rzimg-tool-" + std::to_string(getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        input_ = path("in.png");
        Save(input_, 40, 30, 24, InputPixel);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const std::string &name) const { return (dir_ / name).string(); }

    Result Run(std::vector<std::string> args, const std::vector<std::string> &env = {}) {
        args.insert(args.begin(), RZIMG_TOOL);
        std::vector<char *> argv, envp;
        for (auto &a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> envs;
        for (char **e = environ; *e; ++e)
            if (!std::string_view(*e).starts_with("RZIMG_TEST_")) envs.push_back(*e);
        envs.insert(envs.end(), env.begin(), env.end());
        for (auto &e : envs) envp.push_back(e.data());
        envp.push_back(nullptr);
        const std::string out = path("stdout.txt"), err = path("stderr.txt");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid;
        Result r;
        const int rc = posix_spawn(&pid, RZIMG_TOOL, &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) return r;
        int status = 0;
        waitpid(pid, &status, 0);
        r.code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        r.out = ReadFile(out);
        r.err = ReadFile(err);
        return r;
    }

    // Names and contents of the folder, the tool's captured output excluded.
    std::map<std::string, std::string> Folder() const {
        std::map<std::string, std::string> out;
        for (const auto &e : fs::directory_iterator(dir_)) {
            const std::string name = e.path().filename().string();
            if (name != "stdout.txt" && name != "stderr.txt") out[name] = ReadFile(e.path());
        }
        return out;
    }

    fs::path dir_;
    std::string input_;
};

TEST_F(ToolTest, UsageErrorsNameTheirCulpritAndWriteNothing) {
    const std::string out = path("out.png");
    std::string longTable = "0";
    for (int i = 0; i < 299; ++i) longTable += ",1";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{input_, "no-such-op", out}, "unknown operation 'no-such-op'"},
        {{input_, "change-intensity", "2000", out}, "change=2000 is out of range: -1000..1000 (per-mille of full scale)"},
        {{input_, "posterize", "1", out}, "levels=1 is out of range: 2 or more"},
        {{input_, "change-intensity", "abc", out}, "must be a whole number, got 'abc'"},
        {{input_, "change-intensity", "size=3", out}, "no argument named 'size'"},
        {{input_, "change-intensity", "10", "change=20", out}, "'change' given twice"},
        {{input_, "invert", "5", out}, "unexpected argument '5'"},
        {{input_, "invert"}, "missing OUTPUT"},
        {{input_, "invert", path("out.bmpx")}, "needs an image extension"},
        {{"--region", "1,2,0,4", input_, "invert", out}, "--region: expected x,y,w,h"},
        {{"--region", "100,0,5,5", input_, "invert", out}, "--region 100,0,5,5 lies outside the 40x30 image"},
        {{"--frobnicate", input_, "invert", out}, "unknown option '--frobnicate'"},
        {{input_, "remap-intensity", "0,x,5", out}, "entry 2 'x'"},
        // Decided only once the bitmap is known: 300 entries for a 256-entry table.
        {{input_, "remap-intensity", longTable, out}, "the table has 300 entries; this bitmap needs 256"},
        {{"--page", "1", input_, "invert", out}, "has 1 page"},
        {{input_, "alpha-blend", out}, "SOURCE"},
        {{input_, "feather-alpha-blend", input_, path("nope.png"), out}, "nope.png"},
        {{input_, "add-weighted", input_, "weights=500", out}, "weights="},
        {{input_, "deskew-ext", "range=100", "resolution=101", out}, "resolution"},
        {{input_, "window-level", "40", out}, "CENTER WIDTH"},
    };
    for (const auto &[args, mention] : cases) {
        const Result r = Run(args);
        EXPECT_EQ(r.code, 2) << mention << "\n" << r.err;
        EXPECT_NE(r.err.find(mention), std::string::npos) << "expected '" << mention << "' in:\n" << r.err;
        EXPECT_FALSE(fs::exists(out)) << mention;
    }
    EXPECT_EQ(Run({}).code, 2);
}

TEST_F(ToolTest, FailuresNameTheFileAndLeaveTheOutputAlone) {
    const std::string missing = path("missing.png"), out = path("out.png"), unwritable = path("no/such/out.png");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{missing, "invert", out}, "'" + missing + "'"},
        {{dir_.string(), "invert", out}, dir_.string()},
        {{input_, "invert", unwritable}, "cannot write '" + unwritable + "'"},
        {{input_, "add", path("small.png"), out}, "-13"}, // sizes differ
        {{input_, "window-level", "40", "400", out}, "grey"},
    };
    Save(path("small.png"), 4, 3, 24, InputPixel);
    // An existing output survives byte for byte, and no temporary file is left beside it.
    { std::ofstream(out) << "previous contents"; }
    const auto before = Folder();
    for (const auto &[args, mention] : cases) {
        const Result r = Run(args);
        EXPECT_EQ(r.code, 1) << mention;
        EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
        EXPECT_EQ(Folder(), before) << mention;
    }
}

// Arguments by position, by name and by the export's own parameter name, and
// defaults, all reach the operation: solarize inverts samples >= threshold.
TEST_F(ToolTest, ResultsAreTheOperationsOnTheInput) {
    const auto solarized = [](int t) {
        return [t](int x, int y) { return PerChannel(InputPixel(x, y), [t](int v) { return v >= t ? 255 - v : v; }); };
    };
    for (const std::vector<std::string> &how : {std::vector<std::string>{"solarize", "100"}, {"solarize", "threshold=100"},
                                                {"Rz_SolarizeBitmap", "uThreshold=100"}}) {
        ASSERT_EQ(Run({input_, how[0], how[1], path("s.png")}).code, 0) << how[1];
        EXPECT_TRUE(Pixels(path("s.png"), solarized(100))) << how[1];
    }
    ASSERT_EQ(Run({input_, "solarize", path("s.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("s.png"), solarized(128))) << "the default threshold";

    // A chain: invert, then solarize the inverted samples.
    ASSERT_EQ(Run({input_, "invert", "solarize", "100", path("chain.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("chain.png"), [](int x, int y) {
        return PerChannel(InputPixel(x, y), [](int v) { return 255 - v >= 100 ? v : 255 - v; });
    }));

    // Control points 1000 -> 0 per-mille spread over 0..255 give 255 - v;
    // a full table from a file is used as given, here on green only.
    ASSERT_EQ(Run({input_, "remap-intensity", "1000,0", path("curve.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("curve.png"), [](int x, int y) { return InputPixel(x, y) ^ 0xFFFFFF; }));
    {
        std::ofstream table(path("table.txt"));
        table << "# a ramp down by halves\n";
        for (int i = 0; i < 256; ++i) table << 255 - i / 2 << (i % 16 == 15 ? "\n" : " ");
    }
    ASSERT_EQ(Run({input_, "remap-intensity", path("table.txt"), "channel=green", path("green.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("green.png"), [](int x, int y) {
        const uint64_t v = InputPixel(x, y);
        return (v & 0xFF00FF) | (255 - ((v >> 8) & 255) / 2) << 8;
    }));
}

TEST_F(ToolTest, RegionsLimitThePixelsChanged) {
    ASSERT_EQ(Run({"--region", "7,4,20,13", input_, "invert", path("rect.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("rect.png"), [](int x, int y) {
        const bool inside = x >= 7 && x < 27 && y >= 4 && y < 17;
        return InputPixel(x, y) ^ (inside ? 0xFFFFFF : 0);
    }));
    // The ellipse inscribed in the same rectangle: pixel centres inside it are in.
    ASSERT_EQ(Run({"--ellipse=7,4,20,13", input_, "invert", path("ellipse.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("ellipse.png"), [](int x, int y) {
        const double dx = (x + 0.5 - 17.0) / 10.0, dy = (y + 0.5 - 10.5) / 6.5;
        return InputPixel(x, y) ^ (dx * dx + dy * dy <= 1.0 ? 0xFFFFFF : 0);
    }));
}

// The callback's stop value, or a real SIGINT or SIGTERM at any stage: exit
// 130, one line on stderr, and the folder exactly as it was, whether the
// output existed or not.
TEST_F(ToolTest, CancelAndSignalsLeaveTheFolderAsItWas) {
    Save(input_, 64, 300, 24, InputPixel); // enough rows for progress steps
    const std::string out = path("out.png");
    for (bool existing : {false, true}) {
        if (existing) std::ofstream(out) << "previous contents";
        std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
            {{input_, "invert", out}, "RZIMG_TEST_CANCEL_AT=50"},
            {{input_, "invert", "change-intensity", "10", out}, "RZIMG_TEST_CANCEL_AT=75"}};
        for (const char *stage : {"load", "op", "save"})
            for (const char *sig : {"INT", "TERM"})
                runs.push_back({{input_, "invert", out}, std::string("RZIMG_TEST_SIGNAL=") + stage + ":50:" + sig});
        for (const auto &[args, env] : runs) {
            SCOPED_TRACE(env + (existing ? " over a file" : ""));
            const auto before = Folder();
            const Result r = Run(args, {env});
            EXPECT_EQ(r.code, 130) << r.err;
            EXPECT_NE(r.err.find("rzimg: cancelled"), std::string::npos) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
            EXPECT_EQ(Folder(), before);
        }
    }
    // The hook fires only when progress reaches it.
    EXPECT_EQ(Run({input_, "invert", out}, {"RZIMG_TEST_CANCEL_AT=101"}).code, 0);
    EXPECT_TRUE(Pixels(out, [](int x, int y) { return InputPixel(x, y) ^ 0xFFFFFF; }));
}

// Every operation of the export list (read from the header) is listed and
// explained under its export name, in its family.
TEST_F(ToolTest, ListAndHelpCoverTheExportList) {
    const std::string ops = ReadFile(RZ_SOURCE_DIR "/include/rzimg_ops.h");
    const std::regex op(R"(\nRZ_OP\(\s*\d+,\s*(\w+),\s*(\w+),)");
    int count = 0;
    for (auto it = std::sregex_iterator(ops.begin(), ops.end(), op); it != std::sregex_iterator(); ++it, ++count) {
        const Result help = Run({"help", (*it)[1]});
        EXPECT_EQ(help.code, 0) << (*it)[1];
        EXPECT_NE(help.out.find("(" + (*it)[1].str() + ", " + (*it)[2].str() + ")"), std::string::npos) << help.out;
    }
    const Result list = Run({"list"});
    EXPECT_NE(list.out.find("(" + std::to_string(count) + ")"), std::string::npos) << list.out.substr(0, 200);
    const Result help = Run({"help", "solarize"});
    EXPECT_NE(help.out.find("threshold   0..65535, default 128: sample value"), std::string::npos) << help.out;
    EXPECT_EQ(Run({"help", "no-such-op"}).code, 2);
}

// The gallery shows every operation of the export list, on its samples and
// on the user's own pictures; files that do not load are named and skipped.
TEST_F(ToolTest, DemoShowsEveryOperation) {
    const std::string ops = ReadFile(RZ_SOURCE_DIR "/include/rzimg_ops.h");
    const std::regex op(R"(\nRZ_OP\()");
    const auto count = std::distance(std::sregex_iterator(ops.begin(), ops.end(), op), std::sregex_iterator());
    const Result r = Run({"demo", path("demo"), "--quiet"});
    ASSERT_EQ(r.code, 0) << r.err << r.out;
    const std::string html = ReadFile(path("demo/index.html"));
    std::set<std::string> shown;
    const std::regex entry("<b>([a-z-]+)</b>");
    for (auto it = std::sregex_iterator(html.begin(), html.end(), entry); it != std::sregex_iterator(); ++it)
        if ((*it)[1] != "original") shown.insert((*it)[1]);
    EXPECT_EQ(long(shown.size()), count);
    for (const char *sample : {"chart", "phantom", "text1", "text8", "phantom.view"})
        EXPECT_TRUE(fs::exists(path("demo/sample-") + sample + ".png")) << sample;
    // The phantom keeps its 12 significant bits in a 16-bit file.
    RzFileInfo info{};
    info.uStructSize = sizeof info;
    ASSERT_EQ(Rz_GetFileInfo(path("demo/sample-phantom.png").c_str(), &info), 1);
    EXPECT_EQ(info.nBitsPerPixel, 16);
    EXPECT_EQ(info.nColorOrder, KRN_ORDER_GRAY);

    fs::create_directories(path("pics"));
    Save(path("pics/mine.png"), 12, 9, 24, InputPixel);
    std::ofstream(path("pics/notes.txt")) << "not a picture";
    const Result mine = Run({"demo", path("mine"), "--images", path("pics"), "--quiet"});
    ASSERT_EQ(mine.code, 0) << mine.err;
    EXPECT_NE(mine.err.find("skipping '" + path("pics/notes.txt") + "'"), std::string::npos) << mine.err;
    const std::string page = ReadFile(path("mine/index.html"));
    EXPECT_NE(page.find("<th>mine.png</th>"), std::string::npos);
    EXPECT_TRUE(page.find(" \u00b5s<") != std::string::npos || page.find(" ms<") != std::string::npos);
    EXPECT_EQ(Run({input_, "invert", path("o.png"), "--images", path("pics")}).code, 2);
}

TEST_F(ToolTest, WindowLevelStatsAndInfoOnDicom) {
    // 12 significant bits in 16: 0, 1000 and 2000 in three columns.
    Bitmap b(rz::test::Layout{"", 16, KRN_ORDER_GRAY, 1, 0, 11}, 3, 2, 0);
    for (int x = 0; x < 3; ++x)
        for (int y = 0; y < 2; ++y) b.setPixel(x, y, uint64_t(1000 * x));
    const std::string ct = path("ct.dcm");
    ASSERT_EQ(Rz_SaveBitmap(ct.c_str(), b.get(), nullptr), 1);
    Result r = Run({"info", ct});
    EXPECT_NE(r.out.find("DICOM, 3 x 2, 16 bits"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("bits 0..11 unsigned, no window"), std::string::npos) << r.out;
    // Centre 1000, width 1001: 0 black, 2000 white, 1000 at 0.5005 * 255 rounded
    // (8-bit grey PNG loads as grey samples through the grey ramp).
    ASSERT_EQ(Run({"--quiet", ct, "window-level", "1000", "1001", path("w.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("w.png"), [](int x, int) { return uint64_t(x == 0 ? 0 : x == 1 ? 128 : 255); }));
    // Without a window the top 8 significant bits: 1000 >> 4 = 62.
    ASSERT_EQ(Run({"--quiet", ct, "window-level", "bits", path("b.png")}).code, 0);
    EXPECT_TRUE(Pixels(path("b.png"), [](int x, int) { return uint64_t(1000 * x >> 4); }));
    // Two pixels of the first two columns in 16-bit full-scale units (1000 -> 16003).
    r = Run({"stats", "--region", "0,0,2,1", ct});
    for (const char *words : {"count   2 of 2 (100.00 %)", "max     16003", "mean    8001.50"})
        EXPECT_NE(r.out.find(words), std::string::npos) << r.out;
    EXPECT_EQ(Run({"stats", ct, "purple"}).code, 2);
}

// Grey PGM, PBM, PNG and JPEG files stay grey files of their format; PBM
// takes a result only while it is still black and white.
TEST_F(ToolTest, GreyFilesStayGrey) {
    const auto grey = [](int x, int y) { return uint64_t(x * 10 + y); };
    for (const char *ext : {".pgm", ".png", ".jpg"}) Save(path(std::string("in") + ext), 24, 16, 8, grey);
    Save(path("in.pbm"), 24, 16, 1, [](int x, int y) { return uint64_t((x / 3 + y / 4) % 2); });
    for (const char *ext : {".pgm", ".pbm", ".png", ".jpg"})
        for (const bool invert : {true, false}) {
            SCOPED_TRACE(std::string(ext) + (invert ? " invert" : " brighter"));
            const std::string in = path(std::string("in") + ext), out = path(std::string("out") + ext);
            fs::remove(out);
            // +200 per mille of 255 is +51, clamped.
            const Result r = Run({in, invert ? "invert" : "change-intensity", out, "--quality", "100"});
            const Bitmap before = Load(in);
            if (!invert && std::string(ext) == ".pbm") {
                EXPECT_EQ(r.code, 1);
                EXPECT_NE(r.err.find("cannot hold"), std::string::npos) << r.err;
                EXPECT_FALSE(fs::exists(out));
                continue;
            }
            ASSERT_EQ(r.code, 0) << r.err;
            EXPECT_EQ(r.err, "");
            const Bitmap after = Load(out);
            ASSERT_EQ(after->nBitsPerPixel, before->nBitsPerPixel);
            const auto shown = [](const Bitmap &b, int x, int y) {
                const uint64_t v = b.pixel(x, y);
                return b->nColorOrder == KRN_ORDER_GRAY ? int(v) : int(b->pPalette[v].rgbGreen);
            };
            for (int i = 0; i < (after->nBitsPerPixel <= 8 ? 1 << after->nBitsPerPixel : 0); ++i)
                EXPECT_TRUE(after->pPalette[i].rgbRed == after->pPalette[i].rgbGreen &&
                            after->pPalette[i].rgbBlue == after->pPalette[i].rgbGreen) << "entry " << i;
            double err = 0;
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 24; ++x) {
                    const int v = shown(before, x, y);
                    err += std::abs(shown(after, x, y) - (invert ? 255 - v : std::min(v + 51, 255)));
                }
            EXPECT_LE(err / (24 * 16), std::string(ext) == ".jpg" ? 2.0 : 0.0);
        }
}

// Kind refusals say what the operation takes and what the file is; info
// lists pages and metadata; a save that loses something says so once.
TEST_F(ToolTest, RefusalsPagesInfoAndNotesInAUsersWords) {
    Bitmap g(rz::test::FindLayout("grey8"), 8, 6, 0);
    ASSERT_EQ(KrnSetBitmapResolution(g.get(), 300, 300, KRN_RES_INCH), 1);
    for (const char *f : {"g.pgm", "g.png"}) ASSERT_EQ(Rz_SaveBitmap(path(f).c_str(), g.get(), nullptr), 1);
    const Result hue = Run({path("g.pgm"), "desaturate", path("o.png")});
    EXPECT_EQ(hue.code, 1);
    for (const char *words : {"8-bit grey pictures like", "24-bit colour", "a colour copy can be made"})
        EXPECT_NE(hue.err.find(words), std::string::npos) << hue.err;

    TIFF *t = TIFFOpen(path("pages.tif").c_str(), "w");
    ASSERT_TRUE(t);
    for (uint32_t page = 0; page < 3; ++page) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 4 + page);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, 2u);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        uint8_t row[8] = {};
        for (uint32_t y = 0; y < 2; ++y) TIFFWriteScanline(t, row, y, 0);
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
    Result r = Run({"info", path("pages.tif"), path("g.png"), input_, path("missing.tif")});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find(path("missing.tif")), std::string::npos) << r.err;
    for (const std::string &words : {std::string("3 pages"), std::string("page 2: 6 x 2"), std::string("300 dpi"),
                                     input_ + ": PNG, 40 x 30, 24 bits per pixel"})
        EXPECT_NE(r.out.find(words), std::string::npos) << words << " in\n" << r.out;
    r = Run({"--page", "5", path("pages.tif"), "invert", path("o.png")});
    EXPECT_NE(r.err.find("has 3 pages (--page 0 to 2)"), std::string::npos) << r.err;

    // Transparency into JPEG, colour into PGM: one note each.
    Save(path("a.png"), 4, 4, 32, [](int x, int y) { return x == 1 && y == 1 ? 0x80112233u : 0u; });
    r = Run({path("a.png"), path("a.jpg")});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("cannot hold transparency"), std::string::npos) << r.err;
    r = Run({input_, "invert", path("c.pgm")});
    EXPECT_EQ(r.err, "rzimg: note: '" + path("c.pgm") +
                         "' holds grey only; colours are converted to grey as (77 red + 150 green + 29 blue) / 256\n");
}

// Further bitmaps are image files, by order or by name, or lists of them.
TEST_F(ToolTest, BitmapArgumentsAreImageFiles) {
    const std::string logo = path("logo.png"), out = path("out.png");
    const auto logoPixel = [](int x, int y) { return InputPixel(x + 20, y + 9); };
    Save(logo, 12, 8, 24, logoPixel);
    // Opacity 255 at (10, 5): d = ((s - d) 255 + 256 d) >> 8 per channel, flooring.
    ASSERT_EQ(Run({input_, "alpha-blend", logo, "x=10", "y=5", "opacity=255", out}).code, 0);
    EXPECT_TRUE(Pixels(out, [&](int x, int y) {
        if (x < 10 || x >= 22 || y < 5 || y >= 13) return InputPixel(x, y);
        const uint64_t s = logoPixel(x - 10, y - 5);
        int c = 0;
        return PerChannel(InputPixel(x, y), [&](int d) { return (((int(s >> (8 * c++)) & 255) - d) * 255 + 256 * d) >> 8; });
    }));
    // The average of the same picture twice is the picture.
    ASSERT_EQ(Run({input_, "add", input_, input_, "flags=1", out}).code, 0);
    EXPECT_TRUE(Pixels(out, InputPixel));
    EXPECT_EQ(Run({input_, "combine-ext", "source=" + input_, "flags=0x300", out}).code, 2); // flags are decimal
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{input_, "combine-ext", "source=" + input_, "flags=2560", out},
          {input_, "texture-alpha-blend", logo, logo, logo, "opacity=200", "offset=3,-2", out},
          {input_, "add-weighted", input_, "weights=250,750", out}})
        EXPECT_EQ(Run(args).code, 0) << args[1];
}

// Measuring only prints the angle and changes nothing: a uniform page has none.
TEST_F(ToolTest, DeskewPrintsTheMeasuredAngle) {
    Save(path("blank.png"), 40, 30, 24, [](int, int) { return 0xFFFFFFu; });
    const Result r = Run({path("blank.png"), "deskew", "measure-only=1", path("out.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "deskew: skew 0.00 degrees (0)\n");
    EXPECT_TRUE(Pixels(path("out.png"), [](int, int) { return 0xFFFFFFu; }));
}

} // namespace
