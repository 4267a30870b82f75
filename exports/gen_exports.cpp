// Writes the linker's export list (a version script) or a module definition
// file from the export list, so the shared object exports exactly those names.
#include <cstdio>
#include <cstring>

namespace {
struct Entry {
    int ordinal;
    const char *name;
};
#define RZ_OP(ord, name, family, flags, summary, params) {ord, #name},
const Entry kExports[] = {
#include "rzimg_ops.h"
};
#undef RZ_OP
} // namespace

int main(int argc, char **argv) {
    if (argc != 3 || (std::strcmp(argv[1], "map") != 0 && std::strcmp(argv[1], "def") != 0)) {
        std::fprintf(stderr, "usage: %s map|def OUTPUT\n", argv[0]);
        return 2;
    }
    std::FILE *out = std::fopen(argv[2], "w");
    if (!out) {
        std::perror(argv[2]);
        return 1;
    }
    if (std::strcmp(argv[1], "map") == 0) {
        std::fprintf(out, "RZIMG14N_1 {\n  global:\n");
        for (const Entry &e : kExports) std::fprintf(out, "    %s;\n", e.name);
        std::fprintf(out, "  local:\n    *;\n};\n");
    } else {
        std::fprintf(out, "LIBRARY RZIMG14N\nEXPORTS\n");
        for (const Entry &e : kExports) std::fprintf(out, "  %s @%d\n", e.name, e.ordinal);
    }
    return std::fclose(out) == 0 ? 0 : 1;
}
