// The rzimg tool end to end: the binary is run as a user would, and its
// files are compared with the library called in-process. Every failure must
// leave the output path as it was.
#include "exports/registry.h"

#include <rzfil.h>
#include <rzimg.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

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
            if (generic && p.kind != rz::ParamKind::Ptr) {
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

} // namespace

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
