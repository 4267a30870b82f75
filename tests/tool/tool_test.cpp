// The rzimg tool end to end: the binary is run as a user would, and its
// files are compared with the library called in-process. Every failure must
// leave the output path as it was.
#include "exports/registry.h"

#include <rzfil.h>
#include <rzimg.h>

#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <cstdio>

extern char **environ;

namespace {

namespace fs = std::filesystem;

struct Result {
    int code = -1;
    std::string out, err;
};

std::string ReadFile(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class Bmp {
  public:
    Bmp() { std::memset(&d, 0, sizeof d); }
    ~Bmp() {
        if (d.uStructSize) KrnFreeBitmap(&d);
    }
    Bmp(const Bmp &) = delete;
    BitmapDesc d;
};

class ToolTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() / ("rzimg-tool-" + std::to_string(getpid()) + "-" + info->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        input_ = path("in.png");
        MakeInput(input_, 40, 30);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const std::string &name) const { return (dir_ / name).string(); }

    // 24-bit picture with every channel varying.
    static void MakeInput(const std::string &file, int w, int h) {
        Bmp b;
        ASSERT_EQ(KrnInitBitmap(&b.d, BITMAPDESC_SIZE, w, h, 24), 1);
        ASSERT_EQ(KrnAllocBitmap(&b.d), 1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                uint64_t r = (x * 6) & 255, g = (y * 8 + 3) & 255, bl = (x * y * 5 + 40) & 255;
                ASSERT_EQ(KrnSetPixel(&b.d, x, y, r | g << 8 | bl << 16), 1);
            }
        ASSERT_EQ(Rz_SaveBitmap(file.c_str(), &b.d, nullptr), 1);
    }

    Result Run(const std::vector<std::string> &args, const std::vector<std::string> &env = {}) {
        const std::string outFile = path("stdout.txt"), errFile = path("stderr.txt");
        std::vector<std::string> argStrings = {RZIMG_TOOL};
        argStrings.insert(argStrings.end(), args.begin(), args.end());
        std::vector<char *> argv;
        for (auto &a : argStrings) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> envStrings;
        for (char **e = environ; *e; ++e)
            if (!std::string_view(*e).starts_with("RZIMG_TEST_")) envStrings.push_back(*e);
        envStrings.insert(envStrings.end(), env.begin(), env.end());
        std::vector<char *> envp;
        for (auto &e : envStrings) envp.push_back(e.data());
        envp.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid;
        Result r;
        int rc = posix_spawn(&pid, RZIMG_TOOL, &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) return r;
        int status = 0;
        waitpid(pid, &status, 0);
        r.code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        r.out = ReadFile(outFile);
        r.err = ReadFile(errFile);
        return r;
    }

    static void Load(const std::string &file, Bmp &b) {
        ASSERT_EQ(Rz_LoadBitmap(file.c_str(), &b.d, BITMAPDESC_SIZE, 0), 1) << file;
    }

    // Pixels equal, position by position; reports the first difference.
    static ::testing::AssertionResult SamePixels(const BitmapDesc &a, const BitmapDesc &b) {
        if (a.nWidth != b.nWidth || a.nHeight != b.nHeight || a.nBitsPerPixel != b.nBitsPerPixel)
            return ::testing::AssertionFailure() << "geometry differs";
        for (int y = 0; y < a.nHeight; ++y)
            for (int x = 0; x < a.nWidth; ++x) {
                uint64_t va = 0, vb = 0;
                KrnGetPixel(&a, x, y, &va);
                KrnGetPixel(&b, x, y, &vb);
                if (va != vb)
                    return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << "): " << va << " vs " << vb;
            }
        return ::testing::AssertionSuccess();
    }

    static ::testing::AssertionResult SameFiles(const std::string &f1, const std::string &f2) {
        Bmp a, b;
        if (Rz_LoadBitmap(f1.c_str(), &a.d, BITMAPDESC_SIZE, 0) != 1) return ::testing::AssertionFailure() << f1;
        if (Rz_LoadBitmap(f2.c_str(), &b.d, BITMAPDESC_SIZE, 0) != 1) return ::testing::AssertionFailure() << f2;
        return SamePixels(a.d, b.d);
    }

    fs::path dir_;
    std::string input_;
};

// ---- Usage errors: exit 2, a message naming the culprit, no output. ----

TEST_F(ToolTest, UsageErrorsNameTheirCulpritAndWriteNothing) {
    struct Case {
        std::vector<std::string> args;
        std::string mention;
    };
    const std::string out = path("out.png");
    std::string longTable = "0";
    for (int i = 0; i < 299; ++i) longTable += ",1";
    const std::vector<Case> cases = {
        {{input_, "no-such-op", out}, "unknown operation 'no-such-op'"},
        {{input_, "change-intensity", "2000", out}, "change=2000 is out of range: -1000..1000 (per-mille of full scale)"},
        {{input_, "change-intensity", "-1001", out}, "-1000..1000"},
        {{input_, "posterize", "1", out}, "levels=1 is out of range: 2 or more"},
        {{input_, "change-intensity", "abc", out}, "must be a whole number, got 'abc'"},
        {{input_, "change-intensity", "size=3", out}, "no argument named 'size'"},
        {{input_, "change-intensity", "10", "change=20", out}, "'change' given twice"},
        {{input_, "invert", "5", out}, "unexpected argument '5'"},
        {{input_, "invert"}, "missing OUTPUT"},
        {{input_, "invert", path("out.bmpx")}, "needs an image extension"},
        {{"--region", "1,2,0,4", input_, "invert", out}, "--region: expected x,y,w,h"},
        {{"--ellipse", "1,2,3", input_, "invert", out}, "--ellipse: expected x,y,w,h"},
        {{"--region", "100,0,5,5", input_, "invert", out}, "--region 100,0,5,5 lies outside the 40x30 image"},
        {{"--frobnicate", input_, "invert", out}, "unknown option '--frobnicate'"},
        {{input_, "remap-intensity", out}, "missing TABLE"},
        {{input_, "remap-intensity", "0,x,5", out}, "entry 2 'x'"},
        {{input_, "remap-intensity", "0,1000", "purple", out}, "channel must be a whole number, got 'purple'"},
        // Length decided only once the bitmap is known: 300 entries for a 256-entry table.
        {{input_, "remap-intensity", longTable, out}, "the table has 300 entries; this bitmap needs 256"},
    };
    for (const Case &c : cases) {
        Result r = Run(c.args);
        EXPECT_EQ(r.code, 2) << c.mention << "\n" << r.err;
        EXPECT_NE(r.err.find(c.mention), std::string::npos) << "expected '" << c.mention << "' in:\n" << r.err;
        EXPECT_FALSE(fs::exists(out)) << c.mention;
    }
    EXPECT_EQ(Run({}).code, 2);
}

// ---- Failures: exit 1, the file named, the output path untouched. ----

TEST_F(ToolTest, FailuresNameTheFileAndLeaveTheOutputAlone) {
    const std::string missing = path("missing.png"), out = path("out.png");
    Result r = Run({missing, "invert", out});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("'" + missing + "'"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(out));

    // A directory as input.
    r = Run({dir_.string(), "invert", out});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find(dir_.string()), std::string::npos) << r.err;

    const std::string unwritable = path("no/such/folder/out.png");
    r = Run({input_, "invert", unwritable});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("cannot write '" + unwritable + "'"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(path("no")));

    // An existing output survives a failed run byte for byte, and no
    // temporary file is left beside it.
    { std::ofstream(out) << "previous contents"; }
    r = Run({missing, "invert", out});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(ReadFile(out), "previous contents");
    int files = 0;
    for ([[maybe_unused]] auto &e : fs::directory_iterator(dir_)) ++files;
    EXPECT_EQ(files, 4); // in.png, out.png, stdout.txt, stderr.txt
}

// ---- Results agree with the library called directly. ----

TEST_F(ToolTest, ArgumentsReachTheLibraryAsGiven) {
    Bmp ref;
    Load(input_, ref);
    ASSERT_EQ(Rz_ChangeBitmapIntensity(&ref.d, -150), 1);
    for (const std::vector<std::string> &words : {std::vector<std::string>{"-150"}, {"change=-150"}, {"nChange=-150"}}) {
        const std::string out = path("out.png");
        std::vector<std::string> args = {input_, "change-intensity"};
        args.insert(args.end(), words.begin(), words.end());
        args.push_back(out);
        Result r = Run(args);
        ASSERT_EQ(r.code, 0) << r.err;
        Bmp got;
        Load(out, got);
        EXPECT_TRUE(SamePixels(got.d, ref.d)) << words[0];
        fs::remove(out);
    }

    // Omitted arguments take the registry's default; the export name works too.
    const rz::OpInfo *op = rz::FindOperation("change-intensity");
    ASSERT_NE(op, nullptr);
    Bmp def;
    Load(input_, def);
    ASSERT_EQ(Rz_ChangeBitmapIntensity(&def.d, static_cast<int32_t>(op->params[1].def)), 1);
    Result r = Run({input_, "Rz_ChangeBitmapIntensity", path("def.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp got;
    Load(path("def.png"), got);
    EXPECT_TRUE(SamePixels(got.d, def.d));
}

TEST_F(ToolTest, ChainEqualsItsStepsRunOneAfterTheOther) {
    ASSERT_EQ(Run({input_, "change-intensity", "120", path("step1.png")}).code, 0);
    ASSERT_EQ(Run({path("step1.png"), "gamma-correct", "uGamma=150", path("step2.png")}).code, 0);
    Result r = Run({input_, "change-intensity", "120", "gamma-correct", "uGamma=150", path("chain.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(SameFiles(path("chain.png"), path("step2.png")));
    // And the chain changed something, so the comparison means something.
    EXPECT_FALSE(SameFiles(path("chain.png"), input_));
}

TEST_F(ToolTest, RemapIntensityCurveAndTableFile) {
    ASSERT_EQ(Run({input_, "invert", path("inverted.png")}).code, 0);
    // Control points 1000 -> 0 per-mille spread over 0..255 give 255 - i.
    Result r = Run({input_, "remap-intensity", "1000,0", path("curve.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(SameFiles(path("curve.png"), path("inverted.png")));

    // A full table from a file, used as given, on the green channel only.
    {
        std::ofstream table(path("table.txt"));
        table << "# inverse ramp\n";
        for (int i = 0; i < 256; ++i) table << 255 - i << (i % 16 == 15 ? "\n" : " ");
    }
    r = Run({input_, "remap-intensity", path("table.txt"), "channel=green", path("green.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp in, got;
    Load(input_, in);
    Load(path("green.png"), got);
    for (int y = 0; y < in.d.nHeight; ++y)
        for (int x = 0; x < in.d.nWidth; ++x) {
            uint64_t a = 0, b = 0;
            KrnGetPixel(&in.d, x, y, &a);
            KrnGetPixel(&got.d, x, y, &b);
            ASSERT_EQ(b, (a & 0xFF00FFu) | ((255 - ((a >> 8) & 255)) << 8)) << x << "," << y;
        }
}

// ---- Regions. ----

TEST_F(ToolTest, RegionAndEllipseLeaveOutsidePixelsUnchanged) {
    Bmp in;
    Load(input_, in);
    const int rx = 7, ry = 4, rw = 20, rh = 13;
    Result r = Run({"--region", "7,4,20,13", input_, "invert", path("rect.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp rect;
    Load(path("rect.png"), rect);
    for (int y = 0; y < in.d.nHeight; ++y)
        for (int x = 0; x < in.d.nWidth; ++x) {
            uint64_t a = 0, b = 0;
            KrnGetPixel(&in.d, x, y, &a);
            KrnGetPixel(&rect.d, x, y, &b);
            bool inside = x >= rx && x < rx + rw && y >= ry && y < ry + rh;
            ASSERT_EQ(b, inside ? (a ^ 0xFFFFFFu) : a) << x << "," << y;
        }

    r = Run({"--ellipse=7,4,20,13", input_, "invert", path("ellipse.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp ell;
    Load(path("ellipse.png"), ell);
    int changed = 0;
    for (int y = 0; y < in.d.nHeight; ++y)
        for (int x = 0; x < in.d.nWidth; ++x) {
            uint64_t a = 0, b = 0;
            KrnGetPixel(&in.d, x, y, &a);
            KrnGetPixel(&ell.d, x, y, &b);
            bool inRect = x >= rx && x < rx + rw && y >= ry && y < ry + rh;
            bool corner = (x == rx || x == rx + rw - 1) && (y == ry || y == ry + rh - 1);
            if (!inRect || corner) {
                ASSERT_EQ(b, a) << x << "," << y;
            }
            if (b != a) {
                ASSERT_EQ(b, a ^ 0xFFFFFFu);
                ++changed;
            }
        }
    // Near pi/4 of the rectangle: 0.785 * 260 = 204 pixels.
    EXPECT_GT(changed, 170);
    EXPECT_LT(changed, 240);
    uint64_t a = 0, b = 0;
    KrnGetPixel(&in.d, rx + rw / 2, ry + rh / 2, &a);
    KrnGetPixel(&ell.d, rx + rw / 2, ry + rh / 2, &b);
    EXPECT_EQ(b, a ^ 0xFFFFFFu);
}

// ---- Cancel: the callback's stop value ends the run with 130, no file. ----

TEST_F(ToolTest, CancelExits130AndWritesNothing) {
    MakeInput(input_, 64, 200); // enough rows for progress steps
    const std::string out = path("out.png");
    Result r = Run({input_, "invert", out}, {"RZIMG_TEST_CANCEL_AT=50"});
    EXPECT_EQ(r.code, 130) << r.err;
    EXPECT_NE(r.err.find("cancelled"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(out));

    // In the second step of a chain, with an existing output kept as it was.
    { std::ofstream(out) << "previous contents"; }
    r = Run({input_, "invert", "change-intensity", "10", out}, {"RZIMG_TEST_CANCEL_AT=75"});
    EXPECT_EQ(r.code, 130) << r.err;
    EXPECT_NE(r.err.find("during change-intensity"), std::string::npos) << r.err;
    EXPECT_EQ(ReadFile(out), "previous contents");

    // The hook only fires when progress reaches it.
    fs::remove(out);
    r = Run({input_, "invert", out}, {"RZIMG_TEST_CANCEL_AT=101"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(fs::exists(out));
}

// ---- list, help, info. ----

TEST_F(ToolTest, ListAndHelpCoverEveryOperation) {
    Result list = Run({"list"});
    ASSERT_EQ(list.code, 0) << list.err;
    for (const rz::OpInfo &op : rz::Operations()) {
        const std::string name = op.cliName();
        EXPECT_NE(list.out.find("\n" + name), std::string::npos) << name;
        EXPECT_NE(list.out.find(op.summary), std::string::npos) << name;
        Result help = Run({"help", name});
        EXPECT_EQ(help.code, 0) << name << help.err;
        EXPECT_NE(help.out.find(op.name), std::string::npos) << name;
        // Every parameter with its unit, and for the generic ones the default.
        const bool generic = (op.flags & RZ_OPF_INPLACE) && !(op.flags & RZ_OPF_CUSTOM);
        for (const rz::ParamInfo &p : op.params) {
            if (p.kind == rz::ParamKind::Bitmap) continue;
            EXPECT_NE(help.out.find(p.doc), std::string::npos) << name << " " << p.name;
            EXPECT_NE(list.out.find(p.doc), std::string::npos) << name << " " << p.name;
            // A scalar the tool sets itself (a centre from the picture) has no default to show.
            const bool toolSet = help.out.find(std::string("set by rzimg: ") + p.doc) != std::string::npos;
            if (generic && (p.kind == rz::ParamKind::I32 || p.kind == rz::ParamKind::U32) && !toolSet) {
                EXPECT_NE(help.out.find("default " + std::to_string(p.def)), std::string::npos) << name << " " << p.name;
            }
        }
    }
    Result bad = Run({"help", "no-such-op"});
    EXPECT_EQ(bad.code, 2);
    EXPECT_NE(bad.err.find("no-such-op"), std::string::npos);
}

TEST_F(ToolTest, InfoDescribesFilesAndNamesMissingOnes) {
    Result r = Run({"info", input_});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find(input_ + ": PNG, 40 x 30, 24 bits per pixel"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("1 page"), std::string::npos) << r.out;
    const std::string missing = path("missing.tif");
    r = Run({"info", missing, input_});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find(missing), std::string::npos) << r.err;
    EXPECT_NE(r.out.find(input_), std::string::npos); // the good file is still described
}

// ---- The demo gallery grows with the registry. ----

TEST_F(ToolTest, DemoShowsEveryOperation) {
    const std::string out = path("demo");
    Result r = Run({"demo", out, "--quiet"});
    ASSERT_EQ(r.code, 0) << r.err << r.out;
    const std::string html = ReadFile(out + "/index.html");
    ASSERT_FALSE(html.empty());
    for (const rz::OpInfo &op : rz::Operations())
        EXPECT_NE(html.find("<b>" + op.cliName() + "</b>"), std::string::npos) << op.cliName();
    for (const char *sample : {"chart", "phantom", "text1", "text8"})
        EXPECT_TRUE(fs::exists(out + "/sample-" + sample + ".png")) << sample;
    EXPECT_TRUE(fs::exists(out + "/sample-phantom.view.png"));
    // The phantom keeps its 12 significant bits in a 16-bit file.
    RzFileInfo info{};
    info.uStructSize = sizeof info;
    ASSERT_EQ(Rz_GetFileInfo((out + "/sample-phantom.png").c_str(), &info), 1);
    EXPECT_EQ(info.nBitsPerPixel, 16);
    EXPECT_EQ(info.nColorOrder, KRN_ORDER_GRAY);
}

// ---- Deep grey: DICOM, window levelling and statistics from the command line ----

TEST_F(ToolTest, WindowLevelStatsAndInfoOnDicom) {
    // 12 significant bits in 16: 0, 1000 and 2000 in three columns.
    Bmp b;
    ASSERT_EQ(KrnInitBitmap(&b.d, BITMAPDESC_SIZE, 3, 2, 16), 1);
    ASSERT_EQ(KrnAllocBitmap(&b.d), 1);
    b.d.nHighBit = 11;
    for (int x = 0; x < 3; ++x)
        for (int y = 0; y < 2; ++y) ASSERT_EQ(KrnSetPixel(&b.d, x, y, uint64_t(1000 * x)), 1);
    const std::string ct = path("ct.dcm");
    ASSERT_EQ(Rz_SaveBitmap(ct.c_str(), &b.d, nullptr), 1);

    Result r = Run({"info", ct});
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("DICOM, 3 x 2, 16 bits"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("bits 0..11 unsigned, no window"), std::string::npos) << r.out;

    // Centre 1000, width 1001: 0 black, 2000 white, 1000 at (0.5005 * 255) rounded.
    r = Run({"--quiet", ct, "window-level", "1000", "1001", path("w.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp w;
    Load(path("w.png"), w);
    uint64_t v[3];
    for (int x = 0; x < 3; ++x) KrnGetPixel(&w.d, x, 1, &v[x]);
    RzRGBQuad pal[256];
    KrnGetBitmapPalette(&w.d, 0, 256, pal); // 8-bit PNG grey loads with the grey ramp
    EXPECT_EQ(pal[v[0]].rgbRed, 0);
    EXPECT_EQ(pal[v[1]].rgbRed, 128);
    EXPECT_EQ(pal[v[2]].rgbRed, 255);
    // Without a window the top 8 significant bits: 1000 >> 4 = 62.
    r = Run({"--quiet", ct, "window-level", "bits", path("b.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp bits;
    Load(path("b.png"), bits);
    KrnGetPixel(&bits.d, 1, 0, &v[0]);
    EXPECT_EQ(v[0], 62u);

    // Two pixels of the first two columns: values in 16-bit full-scale units (1000 -> 16003).
    r = Run({"stats", "--region", "0,0,2,1", ct});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("count   2 of 2 (100.00 %)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("max     16003"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("mean    8001.50"), std::string::npos) << r.out;

    r = Run({ct, "window-level", "40", path("x.png")});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("CENTER WIDTH"), std::string::npos) << r.err;
    r = Run({"stats", ct, "purple"});
    EXPECT_EQ(r.code, 2);
    r = Run({input_, "window-level", "40", "400", path("x.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_FALSE(fs::exists(path("x.png")));
}

// ---- end of deep grey ----
// ---- Files as users have them: signals, grey files, refusals, pages. ----

// Names and contents of the folder, the tool's captured output excluded.
std::map<std::string, std::string> Snapshot(const fs::path &dir) {
    std::map<std::string, std::string> out;
    for (const auto &e : fs::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        if (name != "stdout.txt" && name != "stderr.txt")
            out[name] = fs::is_symlink(e.path()) ? "-> " + fs::read_symlink(e.path()).string() : ReadFile(e.path());
    }
    return out;
}

// A real SIGINT or SIGTERM at each stage: exit 130, one line on stderr, and
// the folder exactly as it was, whether the output existed or not.
TEST_F(ToolTest, SignalsAtEveryStageLeaveTheFolderAsItWas) {
    MakeInput(input_, 64, 300);
    const std::string out = path("out.png");
    for (bool existing : {false, true}) {
        if (existing) std::ofstream(out) << "previous contents";
        for (const char *stage : {"load", "op", "save"})
            for (const char *sig : {"INT", "TERM"}) {
                SCOPED_TRACE(std::string(stage) + " " + sig + (existing ? " over a file" : ""));
                const auto before = Snapshot(dir_);
                Result r = Run({input_, "invert", out}, {std::string("RZIMG_TEST_SIGNAL=") + stage + ":50:" + sig});
                EXPECT_EQ(r.code, 130) << r.err;
                EXPECT_NE(r.err.find("rzimg: cancelled"), std::string::npos) << r.err;
                EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
                EXPECT_EQ(Snapshot(dir_), before);
            }
    }
}

// Grey of a pixel as shown: the palette entry's or the sample's level.
int GreyAt(const BitmapDesc &b, int x, int y) {
    uint64_t v = 0;
    KrnGetPixel(&b, x, y, &v);
    if (b.nColorOrder == KRN_ORDER_GRAY) return int(v);
    const RzRGBQuad e = b.pPalette[v];
    return (e.rgbRed * 77 + e.rgbGreen * 150 + e.rgbBlue * 29 + 128) >> 8;
}

bool ShowsGrey(const BitmapDesc &b) {
    if (b.nColorOrder == KRN_ORDER_GRAY) return true;
    if (b.nBitsPerPixel > 8) return false;
    for (int i = 0; i < (1 << b.nBitsPerPixel); ++i)
        if (b.pPalette[i].rgbRed != b.pPalette[i].rgbGreen || b.pPalette[i].rgbRed != b.pPalette[i].rgbBlue) return false;
    return true;
}

// Every tone operation on grey PGM, PBM, PNG and JPEG files writes a grey
// file of the same format showing what the operation made in memory. PBM
// takes the result only while it is still black and white.
TEST_F(ToolTest, GreyFilesStayGreyThroughEveryToneOperation) {
    const int w = 24, h = 16;
    for (int bits : {1, 8}) {
        Bmp b;
        ASSERT_EQ(KrnInitBitmap(&b.d, BITMAPDESC_SIZE, w, h, bits), 1);
        ASSERT_EQ(KrnAllocBitmap(&b.d), 1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) KrnSetPixel(&b.d, x, y, bits == 1 ? (x / 3 + y / 4) % 2 : uint64_t(x * 10 + y));
        for (const char *ext : bits == 1 ? std::vector<const char *>{".pbm"} : std::vector<const char *>{".pgm", ".png", ".jpg"})
            ASSERT_EQ(Rz_SaveBitmap(path(std::string("in") + ext).c_str(), &b.d, nullptr), 1);
    }
    int ops = 0;
    for (const rz::OpInfo &op : rz::Operations()) {
        if (std::string_view(op.family) != "tone" || !(op.flags & RZ_OPF_INPLACE) || (op.flags & RZ_OPF_CUSTOM)) continue;
        ++ops;
        for (const char *ext : {".pgm", ".pbm", ".png", ".jpg"}) {
            SCOPED_TRACE(op.cliName() + " " + ext);
            const std::string in = path(std::string("in") + ext), out = path(std::string("out") + ext);
            fs::remove(out);
            Bmp want;
            Load(in, want);
            std::vector<rz::Arg> args(op.params.size());
            for (size_t i = 0; i < op.params.size(); ++i) {
                if (op.params[i].kind == rz::ParamKind::Bitmap) args[i].p = &want.d;
                else if (op.params[i].kind == rz::ParamKind::Ptr) args[i].p = nullptr;
                else args[i].i = op.params[i].def;
            }
            ASSERT_EQ(op.invoke(args.data()), 1);
            Result r = Run({in, op.cliName(), out, "--quiet", "--quality", "100"});
            if (std::string(ext) == ".pbm" && !(GreyAt(want.d, 0, 0) % 255 == 0 && GreyAt(want.d, 3, 0) % 255 == 0)) {
                EXPECT_EQ(r.code, 1) << r.err;
                EXPECT_NE(r.err.find("cannot hold"), std::string::npos) << r.err;
                EXPECT_FALSE(fs::exists(out));
                continue;
            }
            ASSERT_EQ(r.code, 0) << r.err;
            EXPECT_EQ(r.err, "");
            Bmp got;
            Load(out, got);
            EXPECT_TRUE(ShowsGrey(got.d));
            EXPECT_EQ(got.d.nBitsPerPixel, want.d.nBitsPerPixel);
            double err = 0;
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) err += std::abs(GreyAt(got.d, x, y) - GreyAt(want.d, x, y));
            EXPECT_LE(err / (w * h), std::string(ext) == ".jpg" ? 2.0 : 0.0);
        }
    }
    EXPECT_GE(ops, 6);
}

// Kind refusals say what the operation takes and what the file is; a page
// past the end says how many there are; info lists pages and metadata; a
// save that loses something says so once.
TEST_F(ToolTest, RefusalsPagesInfoAndNotesInAUsersWords) {
    Bmp g;
    ASSERT_EQ(KrnInitBitmap(&g.d, BITMAPDESC_SIZE, 8, 6, 8), 1);
    ASSERT_EQ(KrnAllocBitmap(&g.d), 1);
    ASSERT_EQ(KrnSetBitmapResolution(&g.d, 300, 300, KRN_RES_INCH), 1);
    const std::string grey = path("g.pgm"), greyPng = path("g.png");
    ASSERT_EQ(Rz_SaveBitmap(grey.c_str(), &g.d, nullptr), 1);
    ASSERT_EQ(Rz_SaveBitmap(greyPng.c_str(), &g.d, nullptr), 1);
    for (const char *op : {"change-hue-sat-int", "desaturate"}) {
        Result r = Run({grey, op, path("o.png")});
        EXPECT_EQ(r.code, 1) << op;
        for (const char *words : {"8-bit grey pictures like", "24-bit colour", "a colour copy can be made"})
            EXPECT_NE(r.err.find(words), std::string::npos) << op << ": " << r.err;
        EXPECT_EQ(r.err.find("invalid parameter"), std::string::npos) << r.err;
    }

    TIFF *t = TIFFOpen(path("pages.tif").c_str(), "w");
    ASSERT_TRUE(t);
    for (int page = 0; page < 3; ++page) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(4 + page));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, 2u);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        uint8_t row[8] = {};
        for (uint32_t y = 0; y < 2; ++y) TIFFWriteScanline(t, row, y, 0);
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
    Result r = Run({"info", path("pages.tif"), greyPng});
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char *words : {"3 pages", "page 0: 4 x 2", "page 1: 5 x 2", "page 2: 6 x 2", "300 dpi"})
        EXPECT_NE(r.out.find(words), std::string::npos) << words << " in\n" << r.out;
    r = Run({"--page", "5", path("pages.tif"), "invert", path("o.png")});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("has 3 pages (--page 0 to 2)"), std::string::npos) << r.err;

    // Transparency into JPEG, colour into PGM: one note each.
    Bmp a;
    ASSERT_EQ(KrnInitBitmap(&a.d, BITMAPDESC_SIZE, 4, 4, 32), 1);
    ASSERT_EQ(KrnAllocBitmap(&a.d), 1);
    KrnSetPixel(&a.d, 1, 1, 0x80112233u);
    ASSERT_EQ(Rz_SaveBitmap(path("a.png").c_str(), &a.d, nullptr), 1);
    r = Run({path("a.png"), path("a.jpg")});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("cannot hold transparency"), std::string::npos) << r.err;
    r = Run({input_, "invert", path("c.pgm")});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "rzimg: note: '" + path("c.pgm") + "' holds grey only; colours are converted to grey as (77 red + 150 green + 29 blue) / 256\n");
}

// The gallery on the user's own pictures: files that do not load are named
// and skipped; results stand beside their originals, timed.
TEST_F(ToolTest, DemoRunsOnTheUsersPictures) {
    fs::create_directories(path("pics"));
    MakeInput(path("pics/mine.png"), 12, 9);
    std::ofstream(path("pics/notes.txt")) << "not a picture";
    Result r = Run({"demo", path("demo"), "--images", path("pics"), "--quiet"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("skipping '" + path("pics/notes.txt") + "'"), std::string::npos) << r.err;
    const std::string html = ReadFile(path("demo/index.html"));
    EXPECT_NE(html.find("<th>mine.png</th>"), std::string::npos);
    EXPECT_NE(html.find("<figcaption>before</figcaption>"), std::string::npos);
    EXPECT_EQ(html.find(":hover"), std::string::npos);
    EXPECT_TRUE(html.find(" \u00b5s<") != std::string::npos || html.find(" ms<") != std::string::npos);
    EXPECT_EQ(Run({input_, "invert", path("o.png"), "--images", path("pics")}).code, 2);
}

// ---- Bitmap arguments: image files, by order or by name; lists. ----

TEST_F(ToolTest, BitmapArgumentsAreImageFiles) {
    const std::string logo = path("logo.png"), out = path("out.png"), sum = path("sum.png");
    MakeInput(logo, 12, 8);
    Result r = Run({input_, "alpha-blend", logo, "x=10", "y=5", "opacity=255", out});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp in, lg, got;
    Load(input_, in);
    Load(logo, lg);
    Load(out, got);
    for (auto [x, y] : {std::pair{0, 0}, std::pair{10, 5}, std::pair{21, 12}, std::pair{22, 13}}) {
        uint64_t d = 0, s = 0, v = 0;
        KrnGetPixel(&in.d, x, y, &d);
        KrnGetPixel(&got.d, x, y, &v);
        const bool inside = x >= 10 && x < 22 && y >= 5 && y < 13;
        if (inside) KrnGetPixel(&lg.d, x - 10, y - 5, &s);
        for (int c = 0; c < 3; ++c) {
            const int64_t dc = (d >> (8 * c)) & 255, sc = (s >> (8 * c)) & 255;
            EXPECT_EQ(int64_t((v >> (8 * c)) & 255), inside ? (((sc - dc) * 255 + (dc << 8)) >> 8) : dc) << x << "," << y;
        }
    }
    // Named, and a list of several files.
    EXPECT_EQ(Run({input_, "combine-ext", "source=" + input_, "flags=0x300", out}).code, 2); // flags are decimal
    r = Run({input_, "combine-ext", "source=" + input_, "flags=2560", out});
    EXPECT_EQ(r.code, 0) << r.err;
    r = Run({input_, "texture-alpha-blend", logo, logo, logo, "opacity=200", "offset=3,-2", out});
    EXPECT_EQ(r.code, 0) << r.err;
    r = Run({input_, "add-weighted", input_, "weights=250,750", out});
    EXPECT_EQ(r.code, 0) << r.err;
    r = Run({input_, "add", input_, input_, "flags=1", sum});
    ASSERT_EQ(r.code, 0) << r.err;
    Bmp avg;
    Load(sum, avg);
    uint64_t a = 0, b = 0;
    KrnGetPixel(&avg.d, 7, 9, &a);
    KrnGetPixel(&in.d, 7, 9, &b);
    EXPECT_EQ(a, b);
    // Missing or unreadable images are usage errors naming the file; nothing is written.
    fs::remove(out);
    r = Run({input_, "alpha-blend", out});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("SOURCE"), std::string::npos) << r.err;
    r = Run({input_, "feather-alpha-blend", logo, path("nope.png"), out});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("nope.png"), std::string::npos) << r.err;
    r = Run({input_, "add", "flags=2", out});
    EXPECT_EQ(r.code, 2) << r.err;
    r = Run({input_, "add-weighted", input_, "weights=500", out}); // one weight for two images
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("weights="), std::string::npos) << r.err;
    r = Run({input_, "texture-alpha-blend", logo, logo, "offset=1", out});
    EXPECT_EQ(r.code, 2);
    r = Run({input_, "add", logo, out}); // sizes differ
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("-13"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(out));
}


TEST_F(ToolTest, DeskewPrintsTheMeasuredAngle) {
    Bmp ref;
    Load(input_, ref);
    int32_t angle = 0;
    ASSERT_EQ(Rz_DeskewBitmap(&ref.d, &angle, 0xFFFFFF, RZ_DESKEW_MEASURE_ONLY), 1);
    char want[64];
    std::snprintf(want, sizeof want, "deskew: skew %.2f degrees (%d)\n", angle / 100.0, angle);
    Result r = Run({input_, "deskew", "measure-only=1", path("out.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, want);
    EXPECT_TRUE(SameFiles(path("out.png"), input_)) << "measuring only changes nothing";
    // The Ext export's resolution is in tenths, its range in hundredths.
    r = Run({input_, "deskew-ext", "range=100", "resolution=101", path("bad.png")});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("resolution"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(path("bad.png")));
}

} // namespace
