// The shared object exports exactly the names of the export list, and the
// list itself is consistent (unique names, ordinals and command names).
#include "exports/registry.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace rz {
namespace {

std::set<std::string> DynamicSymbols(const char *path) {
    std::set<std::string> out;
    const std::string cmd = std::string("nm -D --defined-only ") + path;
    std::FILE *p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char line[1024];
    while (std::fgets(line, sizeof line, p)) {
        std::string s(line);
        while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
        const auto sp = s.rfind(' ');
        if (sp == std::string::npos) continue;
        std::string name = s.substr(sp + 1);
        const auto at = name.find('@');
        if (at != std::string::npos) name.resize(at);
        const char kind = sp >= 2 ? s[sp - 1] : '?';
        if (kind == 'A') continue; // version nodes
        out.insert(name);
    }
    pclose(p);
    return out;
}

TEST(Exports, SharedObjectExportsExactlyTheList) {
    std::set<std::string> want;
    for (const OpInfo &op : Operations()) want.insert(op.name);
    const std::set<std::string> got = DynamicSymbols(RZIMG_LIBRARY);
    ASSERT_FALSE(got.empty()) << "nm found no symbols in " << RZIMG_LIBRARY;
    std::set<std::string> ours;
    for (const std::string &s : got) {
        // Sanitizer runtimes may add their own hooks; everything else is ours.
        if (s.starts_with("__asan") || s.starts_with("__ubsan") || s.starts_with("__sanitizer") ||
            s.starts_with("__lsan"))
            continue;
        ours.insert(s);
    }
    EXPECT_EQ(ours, want);
}

TEST(Exports, ListIsConsistent) {
    std::set<int> ordinals;
    std::set<std::string> names, cli;
    for (const OpInfo &op : Operations()) {
        EXPECT_TRUE(ordinals.insert(op.ordinal).second) << "ordinal " << op.ordinal;
        EXPECT_TRUE(names.insert(op.name).second) << op.name;
        EXPECT_TRUE(cli.insert(op.cliName()).second) << op.cliName();
        EXPECT_EQ(std::string(op.name).rfind("Rz_", 0), 0u) << op.name;
        ASSERT_FALSE(op.params.empty()) << op.name;
        for (const ParamInfo &p : op.params)
            if (p.kind == ParamKind::I32 || p.kind == ParamKind::U32) {
                EXPECT_LE(p.lo, p.def) << op.name << " " << p.name;
                EXPECT_LE(p.def, p.hi) << op.name << " " << p.name;
            }
        EXPECT_EQ(FindOperation(op.cliName()), &op);
    }
}

TEST(Exports, CommandNamesComeFromExportNames) {
    EXPECT_EQ(CliName("Rz_ChangeBitmapIntensity"), "change-intensity");
    EXPECT_EQ(CliName("Rz_MedianFilterBitmap"), "median-filter");
    EXPECT_EQ(CliName("Rz_InvertBitmap"), "invert");
    EXPECT_EQ(CliName("Rz_ChangeHueSatIntBitmap"), "change-hue-sat-int");
    EXPECT_EQ(CliName("Rz_FFTBitmap"), "fft");
    EXPECT_EQ(CliName("Rz_FTDisplayBitmap"), "ft-display");
    EXPECT_EQ(CliName("Rz_AddBitmaps"), "add");
}

} // namespace
} // namespace rz
