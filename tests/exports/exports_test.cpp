// Each shared object exports exactly the functions its public header
// declares: names read from the header's text, symbols from nm's reading of
// the library.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <set>

namespace rz {
namespace {

// What a shell command prints, after a newline.
std::string Output(const std::string &command) {
    std::string out = "\n";
    FILE *p = popen(command.c_str(), "r");
    char buf[4096];
    for (size_t n; p && (n = fread(buf, 1, sizeof buf, p)) > 0;)
        out.append(buf, n);
    if (p)
        pclose(p);
    return out;
}

std::set<std::string> Matches(const std::string &text, const std::string &pattern) {
    std::set<std::string> out;
    const std::regex re(pattern);
    for (std::sregex_iterator it(text.begin(), text.end(), re); it != std::sregex_iterator();)
        out.insert((*it++)[1]);
    return out;
}

TEST(Exports, EachLibraryExportsWhatItsHeaderDeclares) {
    const std::string cat = "cat " RZ_SOURCE_DIR "/include/";
    const std::string declared = R"(\n\s*RZ\w+_API [^;(]*?RZAPI\s+(\w+)\s*\()";
    const std::pair<const char *, std::set<std::string>> libraries[] = {
        {RZKRN_LIBRARY, Matches(Output(cat + "rzkrn.h"), declared)},
        {RZDIS_LIBRARY, Matches(Output(cat + "rzdis.h"), declared)},
        {RZFIL_LIBRARY, Matches(Output(cat + "rzfil.h"), declared)},
        {RZIMG_LIBRARY, Matches(Output(cat + "rzimg_ops.h"), R"(\nRZ_OP\(\s*\d+,\s*(\w+),)")},
    };
    // Functions only; sanitizer runtimes add hooks of their own.
    for (const auto &[library, names] : libraries) {
        const std::string symbols = Output(std::string("nm -D --defined-only ") + library);
        EXPECT_GT(names.size(), 5u) << library;
        EXPECT_EQ(Matches(symbols, R"(\n[0-9a-f]+ T ((?!__)\w+))"), names) << library;
    }
}

} // namespace
} // namespace rz
