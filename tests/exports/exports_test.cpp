// Each shared object exports exactly the functions its public header
// declares: names read from the header's text, symbols from the library's
// dynamic symbol table (read from the ELF file here). The operation registry
// must hold the same operations, ordinals and ranges as the export list.
#include "exports/registry.h"

#include <gtest/gtest.h>

#include <elf.h>

#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace rz {
namespace {

std::string ReadText(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Defined global functions of the dynamic symbol table.
std::set<std::string> ExportedFunctions(const std::string &path) {
    const std::string f = ReadText(path);
    std::set<std::string> out;
    Elf64_Ehdr eh;
    if (f.size() < sizeof eh) return out;
    std::memcpy(&eh, f.data(), sizeof eh);
    if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64) return out;
    const auto section = [&](size_t i) {
        Elf64_Shdr sh;
        std::memcpy(&sh, f.data() + eh.e_shoff + i * eh.e_shentsize, sizeof sh);
        return sh;
    };
    for (size_t i = 0; i < eh.e_shnum; ++i) {
        const Elf64_Shdr sh = section(i);
        if (sh.sh_type != SHT_DYNSYM) continue;
        const Elf64_Shdr names = section(sh.sh_link);
        for (size_t k = 1; k < sh.sh_size / sizeof(Elf64_Sym); ++k) {
            Elf64_Sym sym;
            std::memcpy(&sym, f.data() + sh.sh_offset + k * sizeof sym, sizeof sym);
            const std::string name = f.data() + names.sh_offset + sym.st_name;
            // Sanitizer runtimes add hooks of their own.
            if (sym.st_shndx != SHN_UNDEF && ELF64_ST_TYPE(sym.st_info) == STT_FUNC &&
                ELF64_ST_BIND(sym.st_info) == STB_GLOBAL && !name.starts_with("__"))
                out.insert(name);
        }
    }
    return out;
}

std::set<std::string> Matches(const std::string &text, const std::string &pattern) {
    std::set<std::string> out;
    const std::regex re(pattern);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), re); it != std::sregex_iterator(); ++it)
        out.insert((*it)[1]);
    return out;
}

TEST(Exports, EachLibraryExportsWhatItsHeaderDeclares) {
    const std::string include = RZ_SOURCE_DIR "/include/";
    const std::string ops = ReadText(include + "rzimg_ops.h");
    const struct {
        const char *library;
        std::set<std::string> declared;
    } libraries[] = {
        {RZKRN_LIBRARY, Matches(ReadText(include + "rzkrn.h"), R"(\n\s*RZKRN_API [^;(]*?RZAPI\s+(\w+)\s*\()")},
        {RZDIS_LIBRARY, Matches(ReadText(include + "rzdis.h"), R"(\n\s*RZDIS_API [^;(]*?RZAPI\s+(\w+)\s*\()")},
        {RZFIL_LIBRARY, Matches(ReadText(include + "rzfil.h"), R"(\n\s*RZFIL_API [^;(]*?RZAPI\s+(\w+)\s*\()")},
        {RZIMG_LIBRARY, Matches(ops, R"(\nRZ_OP\(\s*\d+,\s*(\w+),)")},
    };
    for (const auto &l : libraries) {
        EXPECT_GT(l.declared.size(), 5u) << l.library;
        EXPECT_EQ(ExportedFunctions(l.library), l.declared) << l.library;
    }

    // The registry: the same names and ordinals, ordinals unique, defaults in range.
    std::map<std::string, int> listed;
    const std::regex op(R"(\nRZ_OP\(\s*(\d+),\s*(\w+),)");
    for (auto it = std::sregex_iterator(ops.begin(), ops.end(), op); it != std::sregex_iterator(); ++it)
        listed[(*it)[2]] = std::stoi((*it)[1]);
    std::map<std::string, int> registered;
    std::set<int> ordinals;
    for (const OpInfo &o : Operations()) {
        registered[o.name] = o.ordinal;
        EXPECT_TRUE(ordinals.insert(o.ordinal).second) << o.ordinal;
        EXPECT_EQ(FindOperation(o.cliName()), &o) << o.cliName();
        for (const ParamInfo &p : o.params)
            EXPECT_TRUE((p.kind != ParamKind::I32 && p.kind != ParamKind::U32) || (p.lo <= p.def && p.def <= p.hi))
                << o.name << " " << p.name;
    }
    EXPECT_EQ(registered, listed);
}

TEST(Exports, CommandNamesComeFromExportNames) {
    EXPECT_EQ(CliName("Rz_ChangeBitmapIntensity"), "change-intensity");
    EXPECT_EQ(CliName("Rz_MedianFilterBitmap"), "median-filter");
    EXPECT_EQ(CliName("Rz_ChangeHueSatIntBitmap"), "change-hue-sat-int");
    EXPECT_EQ(CliName("Rz_FTDisplayBitmap"), "ft-display");
    EXPECT_EQ(CliName("Rz_AddBitmaps"), "add");
}

} // namespace
} // namespace rz
