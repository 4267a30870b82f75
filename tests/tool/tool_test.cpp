// The rzimg tool end to end: the binary is run as a user would, on files
// made here, and its output pixels are checked against values worked out by
// hand from the inputs. Every failure must leave the folder as it was.
#include "support/bitmaps.h"

#include <rzfil.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using rz::test::Bitmap;
using PixelFn = std::function<uint64_t(int, int)>;

std::string ReadFile(const fs::path &p) {
    std::stringstream s;
    s << std::ifstream(p, std::ios::binary).rdbuf();
    return s.str();
}

Bitmap Load(const std::string &file) {
    BitmapDesc d{};
    EXPECT_EQ(Rz_LoadBitmap(file.c_str(), &d, BITMAPDESC_SIZE, 0), 1) << file;
    return Bitmap::Adopt(d);
}

// 24-bit picture with every channel varying: red 6x, green 8y + 3, blue 5xy + 40.
uint64_t InputPixel(int x, int y) {
    return uint64_t(x * 6 & 255) | uint64_t((y * 8 + 3) & 255) << 8 |
           uint64_t((x * y * 5 + 40) & 255) << 16;
}

void Save(const std::string &file, int w, int h, int bits, const PixelFn &pixel) {
    Bitmap b(rz::test::Layout{"", bits, bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR, bits > 8, 0,
                              bits == 16 ? 11 : -1},
             w, h, 0);
    for (int i = 0; i < w * h; ++i)
        b.setPixel(i % w, i / w, pixel(i % w, i / w));
    ASSERT_EQ(Rz_SaveBitmap(file.c_str(), b.get(), nullptr), 1) << file;
}

// Every 8-bit channel of a packed colour through f.
uint64_t PerChannel(uint64_t v, const std::function<int(int)> &f) {
    uint64_t out = 0;
    for (int c = 0; c < 3; ++c)
        out |= uint64_t(f(int(v >> (8 * c)) & 255)) << (8 * c);
    return out;
}

// Compares every pixel of `file` with want(x, y); reports the first difference.
::testing::AssertionResult Pixels(const std::string &file, const PixelFn &want) {
    const Bitmap b = Load(file);
    for (int y = 0; y < b->nHeight; ++y)
        for (int x = 0; x < b->nWidth; ++x)
            if (b.pixel(x, y) != want(x, y))
                return ::testing::AssertionFailure() << file << " (" << x << ", " << y << "): "
                                                     << b.pixel(x, y) << ", want " << want(x, y);
    return ::testing::AssertionSuccess();
}

struct Result {
    int code = -1;
    std::string out, err;
};

class ToolTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(dir_);
        Save(input_, 40, 30, 24, InputPixel);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const std::string &name) const { return (dir_ / name).string(); }

    // Runs the tool through the shell with its output captured beside the folder.
    Result Run(const std::vector<std::string> &args, const std::string &env = "") {
        std::string cmd = "env " + env + " " RZIMG_TOOL;
        for (const std::string &a : args)
            cmd += " '" + a + "'";
        const std::string out = dir_.string() + ".out", err = dir_.string() + ".err";
        const int status = std::system((cmd + " >" + out + " 2>" + err).c_str());
        Result r{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
        fs::remove(out), fs::remove(err);
        return r;
    }

    // Names and contents of the folder.
    std::map<std::string, std::string> Folder() const {
        std::map<std::string, std::string> out;
        for (const auto &e : fs::directory_iterator(dir_))
            out[e.path().filename().string()] = ReadFile(e.path());
        return out;
    }

    const fs::path dir_ = fs::temp_directory_path() /
        ("rzimg-tool-" + std::to_string(getpid()) + "-" +
         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    const std::string input_ = path("in.png");
};

TEST_F(ToolTest, UsageErrorsNameTheirCulpritAndWriteNothing) {
    const std::string out = path("out.png");
    std::string longTable = "0";
    for (int i = 0; i < 299; ++i)
        longTable += ",1";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{input_, "no-such-op", out}, "unknown operation 'no-such-op'"},
        {{input_, "change-intensity", "2000", out},
         "change=2000 is out of range: -1000..1000 (per-mille of full scale)"},
        {{input_, "change-intensity", "10", "change=20", out}, "'change' given twice"},
        {{input_, "invert", path("out.bmpx")}, "needs an image extension"},
        {{"--region", "100,0,5,5", input_, "invert", out}, "100,0,5,5 lies outside the 40x30"},
        // Decided only once the bitmap is known: 300 entries for a 256-entry table.
        {{input_, "remap-intensity", longTable, out}, "has 300 entries; this bitmap needs 256"},
        {{"--page", "1", input_, "invert", out}, "has 1 page"},
        {{input_, "feather-alpha-blend", input_, path("nope.png"), out}, "nope.png"},
        {{input_, "combine-ext", "source=" + input_, "flags=0x300", out}, "flags"}, // decimal
    };
    for (const auto &[args, mention] : cases) {
        const Result r = Run(args);
        EXPECT_EQ(r.code, 2) << mention << "\n" << r.err;
        EXPECT_NE(r.err.find(mention), std::string::npos) << mention << " not in:\n" << r.err;
        EXPECT_FALSE(fs::exists(out)) << mention;
    }
}

// Failures name the file and leave an existing output byte for byte, with
// no temporary file beside it; so do a cancel and a real SIGINT or SIGTERM
// at any stage (exit 130, one line). A save that loses something says so.
TEST_F(ToolTest, FailuresAndCancelsLeaveTheFolderAsItWas) {
    const std::string gone = path("missing.png"), out = path("out.png"), no = path("no/out.png");
    Save(path("small.png"), 4, 3, 24, InputPixel);
    Save(path("big.png"), 64, 300, 24, InputPixel); // enough rows for progress steps
    Save(path("g.pgm"), 8, 6, 8, InputPixel);
    std::ofstream(out) << "previous contents";
    std::vector<std::tuple<std::vector<std::string>, std::string, int, std::string>> cases = {
        {{gone, "invert", out}, "", 1, "'" + gone + "'"},
        {{input_, "invert", no}, "", 1, "cannot write '" + no + "'"},
        {{input_, "add", path("small.png"), out}, "", 1, "-13"}, // sizes differ
        {{input_, "window-level", "40", "400", out}, "", 1, "grey"},
        {{path("g.pgm"), "desaturate", path("x.png")}, "", 1, "8-bit grey pictures like"},
        {{path("big.png"), "invert", out}, "RZIMG_TEST_CANCEL_AT=50", 130, "rzimg: cancelled"},
        {{path("big.png"), "invert", "change-intensity", "1", out}, "RZIMG_TEST_CANCEL_AT=75", 130,
         "rzimg: cancelled"}};
    for (const char *stage : {"load", "op", "save"})
        for (const char *sig : {"INT", "TERM"})
            cases.push_back({{path("big.png"), "invert", out},
                             "RZIMG_TEST_SIGNAL=" + std::string(stage) + ":50:" + sig, 130,
                             "cancelled"});
    const auto before = Folder();
    for (const auto &[args, env, code, mention] : cases) {
        const Result r = Run(args, env);
        EXPECT_EQ(r.code, code) << mention << env;
        EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
        EXPECT_TRUE(code != 130 || std::count(r.err.begin(), r.err.end(), '\n') == 1) << r.err;
        EXPECT_EQ(Folder(), before) << mention << env;
    }
    Result r = Run({input_, "invert", path("c.pgm")});
    EXPECT_EQ(r.err, "rzimg: note: '" + path("c.pgm") + "' holds grey only; colours are "
                     "converted to grey as (77 red + 150 green + 29 blue) / 256\n");
}

// Arguments by position and by the export's own names, defaults, chains,
// regions, further bitmaps and DICOM windows all reach the operations: each
// result against pixels worked out by hand.
TEST_F(ToolTest, ResultsAreTheOperationsOnTheInput) {
    const auto solarized = [](int t) {
        return [t](int x, int y) {
            return PerChannel(InputPixel(x, y), [t](int v) { return v >= t ? 255 - v : v; });
        };
    };
    const auto inverted = [](int x, int y) { return InputPixel(x, y) ^ 0xFFFFFF; };
    // 12 significant bits in 16: 0, 1000 and 2000 in three columns.
    Save(path("ct.dcm"), 3, 2, 16, [](int x, int) { return uint64_t(1000 * x); });
    const std::tuple<std::vector<std::string>, PixelFn> cases[] = {
        {{input_, "solarize", "100"}, solarized(100)},
        {{input_, "Rz_SolarizeBitmap", "uThreshold=100"}, solarized(100)}, // the export's names
        {{input_, "solarize"}, solarized(128)},
        {{input_, "invert", "solarize", "100"},
         [](int x, int y) {
             return PerChannel(InputPixel(x, y), [](int v) { return v <= 155 ? v : 255 - v; });
         }},
        // Control points 1000 -> 0 per-mille spread over 0..255 give 255 - v.
        {{input_, "remap-intensity", "1000,0"}, inverted},
        {{"--region", "7,4,20,13", input_, "invert"},
         [](int x, int y) {
             return InputPixel(x, y) ^ (x >= 7 && x < 27 && y >= 4 && y < 17 ? 0xFFFFFF : 0);
         }},
        {{input_, "add", input_, input_, "flags=1"}, InputPixel}, // the average of itself
        // Centre 1000, width 1001: 0 black, 2000 white, 1000 at 0.5005 * 255 rounded.
        {{path("ct.dcm"), "window-level", "1000", "1001"},
         [](int x, int) { return uint64_t(x == 0 ? 0 : x == 1 ? 128 : 255); }},
        // Without a window the top 8 significant bits: 1000 >> 4 = 62.
        {{path("ct.dcm"), "window-level", "bits"}, [](int x, int) { return 1000u * x >> 4; }},
    };
    for (auto [args, want] : cases) {
        args.push_back(path("out.png"));
        const Result r = Run(args);
        ASSERT_EQ(r.code, 0) << args[1] << r.err;
        EXPECT_TRUE(Pixels(path("out.png"), want)) << args[1] << " " << args[2];
    }
    // Two pixels of the first two columns in 16-bit full-scale units (1000 -> 16003).
    const std::string stats = Run({"stats", "--region", "0,0,2,1", path("ct.dcm")}).out;
    const std::string info = Run({"info", path("ct.dcm")}).out;
    for (const char *words : {"count   2 of 2 (100.00 %)", "max     16003", "mean    8001.50"})
        EXPECT_NE(stats.find(words), std::string::npos) << stats;
    for (const char *words : {"DICOM, 3 x 2, 16 bits", "bits 0..11 unsigned, no window"})
        EXPECT_NE(info.find(words), std::string::npos) << info;
}

} // namespace
