// Each shared object exports exactly the functions its public header
// declares: names read from the header's text, symbols from nm's reading of
// the library. The operation registry holds the export list's operations,
// each ordinal once, defaults inside their ranges.
#include "exports/registry.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace rz {
namespace {

std::set<std::string> Matches(const std::string &text, const std::string &pattern) {
    std::set<std::string> out;
    const std::regex re(pattern);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), re); it != std::sregex_iterator();)
        out.insert((*it++)[1]);
    return out;
}

std::string Read(const std::string &path, bool command = false) {
    std::string out = "\n";
    if (!command) {
        std::stringstream s;
        s << std::ifstream(path).rdbuf();
        return s.str();
    }
    FILE *p = popen(("nm -D --defined-only '" + path + "'").c_str(), "r");
    char buf[4096];
    for (size_t n; p && (n = fread(buf, 1, sizeof buf, p)) > 0;)
        out.append(buf, n);
    if (p)
        pclose(p);
    return out;
}

TEST(Exports, EachLibraryExportsWhatItsHeaderDeclaresAndTheRegistryAgrees) {
    const std::string include = RZ_SOURCE_DIR "/include/", ops = Read(include + "rzimg_ops.h");
    const std::string declared = R"(\n\s*RZ\w+_API [^;(]*?RZAPI\s+(\w+)\s*\()";
    const std::pair<const char *, std::set<std::string>> libraries[] = {
        {RZKRN_LIBRARY, Matches(Read(include + "rzkrn.h"), declared)},
        {RZDIS_LIBRARY, Matches(Read(include + "rzdis.h"), declared)},
        {RZFIL_LIBRARY, Matches(Read(include + "rzfil.h"), declared)},
        {RZIMG_LIBRARY, Matches(ops, R"(\nRZ_OP\(\s*\d+,\s*(\w+),)")},
    };
    // Functions only; sanitizer runtimes add hooks of their own.
    for (const auto &[library, names] : libraries) {
        EXPECT_GT(names.size(), 5u) << library;
        EXPECT_EQ(Matches(Read(library, true), R"(\n[0-9a-f]+ T ((?!__)\w+))"), names) << library;
    }
    std::set<std::string> registered;
    std::set<int> ordinals;
    for (const OpInfo &o : Operations()) {
        registered.insert(std::to_string(o.ordinal) + " " + o.name);
        EXPECT_TRUE(ordinals.insert(o.ordinal).second) << o.ordinal;
        EXPECT_EQ(FindOperation(o.cliName()), &o) << o.cliName();
        for (const ParamInfo &p : o.params)
            EXPECT_TRUE((p.kind != ParamKind::I32 && p.kind != ParamKind::U32) ||
                        (p.lo <= p.def && p.def <= p.hi))
                << o.name << " " << p.name;
    }
    std::set<std::string> listed;
    const std::regex op(R"(\nRZ_OP\(\s*(\d+),\s*(\w+),)");
    for (auto it = std::sregex_iterator(ops.begin(), ops.end(), op); it != std::sregex_iterator(); ++it)
        listed.insert(std::to_string(std::stoi((*it)[1])) + " " + (*it)[2].str());
    EXPECT_EQ(registered, listed);
    for (auto [name, cli] : {std::pair{"Rz_ChangeHueSatIntBitmap", "change-hue-sat-int"},
                             {"Rz_FTDisplayBitmap", "ft-display"}, {"Rz_AddBitmaps", "add"}})
        EXPECT_EQ(CliName(name), cli);
}

} // namespace
} // namespace rz
