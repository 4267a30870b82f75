// Expands the export list into a table with one generic caller per export:
// the caller unpacks an array of Arg into the export's own parameter types.
#include "exports/registry.h"

#include <cctype>
#include <type_traits>
#include <utility>

namespace rz {
namespace {

template <class T> T FromArg(const Arg &a) {
    if constexpr (std::is_pointer_v<T>)
        return static_cast<T>(a.p);
    else
        return static_cast<T>(a.i);
}

template <class... A, std::size_t... I>
int32_t InvokeWith(int32_t(RZAPI *f)(A...), const Arg *args, std::index_sequence<I...>) {
    return f(FromArg<A>(args[I])...);
}

template <auto F> int32_t Invoke(const Arg *args) {
    return []<class... A>(int32_t(RZAPI * f)(A...), const Arg *a) {
        return InvokeWith(f, a, std::index_sequence_for<A...>{});
    }(F, args);
}

template <class P> constexpr size_t PointeeSize() {
    using T = std::remove_cv_t<std::remove_pointer_t<P>>;
    if constexpr (std::is_void_v<T>)
        return 1;
    else
        return sizeof(T);
}

#define RZ_UNPACK(...) __VA_ARGS__
#define RZ_BMP(name) {#name, ParamKind::Bitmap, 0, 0, 0, ""},
#define RZ_I32(name, lo, hi, def, doc) {#name, ParamKind::I32, lo, hi, def, doc},
#define RZ_U32(name, lo, hi, def, doc) {#name, ParamKind::U32, lo, hi, def, doc},
#define RZ_PTR(type, name, doc)                                                      \
    {#name, ParamKind::Ptr, 0, 0, 0, doc, 0, false, #type, PointeeSize<type>(), \
     !std::is_const_v<std::remove_pointer_t<type>>},
#define RZ_SRC(name, rank, nullable, doc) {#name, ParamKind::Source, 0, 0, 0, doc, rank, nullable != 0},
#define RZ_LIST(name, doc) {#name, ParamKind::List, 0, 0, 0, doc},
#define RZ_OUT(name, doc) {#name, ParamKind::Result, 0, 0, 0, doc},
#define RZ_OP(ord, name, family, flags, summary, params) \
    const ParamInfo kParams_##name[] = {RZ_UNPACK params};
#include "rzimg_ops.h"
#undef RZ_OP

#define RZ_OP(ord, name, family, flags, summary, params) \
    {ord, #name, #family, flags, summary, kParams_##name, &Invoke<&name>},
const OpInfo kOps[] = {
#include "rzimg_ops.h"
};
#undef RZ_OP

} // namespace

std::string OpInfo::cliName() const { return CliName(name); }

std::span<const OpInfo> Operations() { return kOps; }

const OpInfo *FindOperation(std::string_view name) {
    for (const OpInfo &op : kOps)
        if (name == op.name || name == op.cliName()) return &op;
    return nullptr;
}

std::string CliName(std::string_view exportName) {
    if (exportName.starts_with("Rz_")) exportName.remove_prefix(3);
    std::string out;
    std::size_t i = 0;
    while (i < exportName.size()) {
        std::size_t j = i + 1;
        while (j < exportName.size() && !std::isupper(static_cast<unsigned char>(exportName[j]))) ++j;
        // Runs of capitals (FT, DFT) stay one word.
        if (j == i + 1) {
            while (j < exportName.size() && std::isupper(static_cast<unsigned char>(exportName[j])) &&
                   (j + 1 >= exportName.size() || std::isupper(static_cast<unsigned char>(exportName[j + 1]))))
                ++j;
        }
        std::string_view word = exportName.substr(i, j - i);
        if (word != "Bitmap" && word != "Bitmaps") {
            if (!out.empty()) out += '-';
            for (char c : word) out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        i = j;
    }
    return out;
}

} // namespace rz
