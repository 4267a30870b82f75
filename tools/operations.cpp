// Command-line access to the registry. Arguments are matched to the
// registry's parameter list (bitmap excluded): positional words fill the
// parameters in order, name=value words fill them by name, and whatever is
// left takes the registry's default. Every value is range-checked here, so
// the library never sees an argument the user could have been told about.
#include "tools/operations.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <ostream>
#include <vector>

namespace rzimg {
namespace {

bool IsScalar(const rz::ParamInfo &p) { return p.kind == rz::ParamKind::I32 || p.kind == rz::ParamKind::U32; }

std::string UpperCase(std::string s) {
    for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

bool Listed(std::string_view list, std::string_view name) {
    size_t pos = 0;
    while ((pos = list.find(name, pos)) != std::string_view::npos) {
        size_t end = pos + name.size();
        if ((pos == 0 || list[pos - 1] == ' ') && (end == list.size() || list[end] == ' ')) return true;
        pos = end;
    }
    return false;
}

// Hue and saturation operations: each pixel makes a round trip through an
// integer colour model.
bool RoundTripsColourModel(const rz::OpInfo &op) {
    const std::string_view name = op.name;
    return std::string_view(op.family) == "colour" &&
           (name.find("Hue") != std::string_view::npos || name.find("Saturation") != std::string_view::npos);
}

} // namespace

bool PrepareScalars(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                    std::string &error, std::string_view toolFilled) {
    const std::string opName = op.cliName();
    std::vector<rz::Arg> args(op.params.size());
    std::vector<bool> given(op.params.size(), false);
    std::vector<size_t> scalars;
    size_t bitmapIndex = 0;
    for (size_t i = 0; i < op.params.size(); ++i) {
        if (op.params[i].kind == rz::ParamKind::Bitmap)
            bitmapIndex = i;
        else if (IsScalar(op.params[i]) && !Listed(toolFilled, op.params[i].name))
            scalars.push_back(i);
    }

    size_t nextPositional = 0;
    for (const std::string &word : words) {
        size_t index;
        std::string_view value = word;
        size_t eq = word.find('=');
        if (eq != std::string::npos && eq > 0 && std::isalpha(static_cast<unsigned char>(word[0]))) {
            std::string_view name(word.data(), eq);
            auto it = std::find_if(scalars.begin(), scalars.end(), [&](size_t i) {
                return name == ParamName(op.params[i]) || name == op.params[i].name;
            });
            if (it == scalars.end()) {
                error = opName + ": no argument named '" + std::string(name) + "'";
                if (scalars.empty()) {
                    error += " (it takes none)";
                } else {
                    error += " (arguments:";
                    for (size_t i : scalars) error += " " + ParamName(op.params[i]);
                    error += ")";
                }
                return false;
            }
            index = *it;
            value = std::string_view(word).substr(eq + 1);
        } else {
            if (nextPositional >= scalars.size()) {
                error = opName + ": unexpected argument '" + word + "' (it takes " +
                        (scalars.empty() ? std::string("no arguments")
                                         : std::to_string(scalars.size()) + " at most") +
                        "; see 'rzimg help " + opName + "')";
                return false;
            }
            index = scalars[nextPositional++];
        }
        if (given[index]) {
            error = opName + ": argument '" + ParamName(op.params[index]) + "' given twice";
            return false;
        }
        given[index] = true;
        if (!ParseScalar(op, op.params[index], value, args[index].i, error)) return false;
    }

    std::string shown;
    for (size_t i : scalars) {
        if (!given[i]) args[i].i = op.params[i].def;
        if (!shown.empty()) shown += ' ';
        shown += ParamName(op.params[i]) + "=" + std::to_string(args[i].i);
    }
    call.op = &op;
    call.args = shown;
    call.run = [&op, args, bitmapIndex](BitmapDesc *bitmap, std::string &) mutable {
        args[bitmapIndex].p = bitmap;
        return op.invoke(args.data());
    };
    return true;
}

Reach Reachability(const rz::OpInfo &op) {
    if (FindCustom(op.name)) return Reach::Custom;
    if (!(op.flags & RZ_OPF_INPLACE)) return Reach::Unavailable;
    int bitmaps = 0;
    for (const rz::ParamInfo &p : op.params) {
        if (p.kind == rz::ParamKind::Bitmap) ++bitmaps;
        if (p.kind == rz::ParamKind::Ptr) return Reach::Unavailable;
    }
    return bitmaps == 1 ? Reach::Generic : Reach::Unavailable;
}

std::string UnavailableReason(const rz::OpInfo &op) {
    int bitmaps = 0;
    bool pointer = false;
    for (const rz::ParamInfo &p : op.params) {
        bitmaps += p.kind == rz::ParamKind::Bitmap;
        pointer |= p.kind == rz::ParamKind::Ptr;
    }
    if (bitmaps > 1) return "works on several bitmaps";
    if (pointer) return "takes a table or record that has no command-line form yet";
    return "does not change one bitmap in place";
}

std::string ParamName(const rz::ParamInfo &param) {
    std::string_view raw = param.name;
    size_t start = 0;
    while (start < raw.size() && std::islower(static_cast<unsigned char>(raw[start]))) ++start;
    if (start == raw.size()) return std::string(raw); // no Hungarian prefix
    raw.remove_prefix(start);
    std::string out;
    for (size_t i = 0; i < raw.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(raw[i]);
        // A capital starts a word unless it continues a run of capitals (LUT).
        if (i > 0 && std::isupper(c)) {
            bool prevUpper = std::isupper(static_cast<unsigned char>(raw[i - 1]));
            bool nextLower = i + 1 < raw.size() && std::islower(static_cast<unsigned char>(raw[i + 1]));
            if (!prevUpper || nextLower) out += '-';
        }
        out += static_cast<char>(std::tolower(c));
    }
    return out;
}

std::string RangeText(const rz::ParamInfo &param) {
    const int64_t minI32 = std::numeric_limits<int32_t>::min(), maxI32 = std::numeric_limits<int32_t>::max();
    const int64_t maxU32 = std::numeric_limits<uint32_t>::max();
    int64_t typeLo = param.kind == rz::ParamKind::U32 ? 0 : minI32;
    int64_t typeHi = param.kind == rz::ParamKind::U32 ? maxU32 : maxI32;
    bool openLo = param.lo <= typeLo, openHi = param.hi >= typeHi;
    if (openLo && openHi) return "any";
    if (openHi) return std::to_string(param.lo) + " or more";
    if (openLo && param.kind != rz::ParamKind::U32) return "at most " + std::to_string(param.hi);
    return std::to_string(param.lo) + ".." + std::to_string(param.hi);
}

const rz::OpInfo *LookupOperation(std::string_view name) { return rz::FindOperation(name); }

bool ParseScalar(const rz::OpInfo &op, const rz::ParamInfo &param, std::string_view text, int64_t &value,
                 std::string &error) {
    std::string_view digits = text;
    if (digits.starts_with('+')) digits.remove_prefix(1);
    int64_t v = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v);
    const std::string where = op.cliName() + ": " + ParamName(param);
    if (digits.empty() || end != digits.data() + digits.size() || (ec != std::errc() && ec != std::errc::result_out_of_range)) {
        error = where + " must be a whole number, got '" + std::string(text) + "'";
        return false;
    }
    if (ec == std::errc::result_out_of_range || v < param.lo || v > param.hi) {
        error = where + "=" + std::string(text) + " is out of range: " + RangeText(param);
        if (*param.doc) error += std::string(" (") + param.doc + ")";
        return false;
    }
    value = v;
    return true;
}

bool PrepareCall(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                 std::string &error) {
    switch (Reachability(op)) {
    case Reach::Custom: return FindCustom(op.name)->parse(op, words, call, error);
    case Reach::Generic: return PrepareScalars(op, words, call, error);
    case Reach::Unavailable: break;
    }
    error = op.cliName() + " is not available from the command line: it " + UnavailableReason(op);
    return false;
}

void DescribeOperation(std::ostream &out, const rz::OpInfo &op, bool detailed) {
    const std::string name = op.cliName();
    const Reach reach = Reachability(op);
    const CustomEntry *custom = FindCustom(op.name);
    const std::string_view filled = custom && custom->toolFilled ? custom->toolFilled : "";
    const char *indent = detailed ? "  " : "    ";

    std::string synopsis;
    std::string example;
    if (custom) {
        synopsis = custom->usage;
        if (custom->demoWords) example = custom->demoWords;
    } else {
        int depth = 0;
        for (const rz::ParamInfo &p : op.params) {
            if (!IsScalar(p)) continue;
            synopsis += (synopsis.empty() ? "[" : " [") + UpperCase(ParamName(p));
            example += (example.empty() ? "" : " ") + std::to_string(p.def);
            ++depth;
        }
        synopsis += std::string(depth, ']');
    }

    if (detailed) {
        out << name << "  (" << op.name << ", " << op.family << ")\n  " << op.summary << "\n\n";
        if (reach == Reach::Unavailable)
            out << "Not available from the command line: it " << UnavailableReason(op) << ".\n";
        else
            out << "usage: rzimg INPUT " << name << (synopsis.empty() ? "" : " ") << synopsis << " OUTPUT\n";
        if (custom) out << '\n' << custom->help << '\n';
    } else {
        out << name;
        if (reach != Reach::Unavailable && !synopsis.empty()) out << ' ' << synopsis;
        out << "\n" << indent << op.summary << '\n';
        if (reach == Reach::Unavailable)
            out << indent << "not available from the command line: it " << UnavailableReason(op) << ".\n";
    }

    bool anyParam = false;
    for (const rz::ParamInfo &p : op.params) anyParam |= p.kind != rz::ParamKind::Bitmap;
    if (detailed && anyParam)
        out << (reach == Reach::Generic
                    ? "\narguments (positional in this order, optional from the right, or name=value):\n"
                    : "\nparameters:\n");
    for (const rz::ParamInfo &p : op.params) {
        if (p.kind == rz::ParamKind::Bitmap) continue;
        std::string pname = ParamName(p);
        out << indent << pname << std::string(pname.size() < 12 ? 12 - pname.size() : 1, ' ');
        if (IsScalar(p) && !Listed(filled, p.name))
            out << RangeText(p) << ", default " << p.def;
        else if (Listed(filled, p.name))
            out << (IsScalar(p) ? "set by rzimg" : "not settable here (null)");
        else if (reach == Reach::Custom)
            out << "from the arguments above";
        else
            out << "table or record";
        if (*p.doc) out << ": " << p.doc;
        out << '\n';
    }
    if (detailed) {
        if (!anyParam) out << "\nIt takes no arguments.\n";
        if (RoundTripsColourModel(op))
            out << "\nEvery pixel goes through an integer colour model (hue, saturation and value or\n"
                   "intensity) and back, so even a zero change can move a colour by a few levels;\n"
                   "this is by design, not an error.\n";
        if (op.flags & RZ_OPF_SIGNED) out << "Handles signed samples.\n";
        if (reach != Reach::Unavailable)
            out << "\nexample: rzimg in.png " << name << (example.empty() ? "" : " ") << example << " out.png\n";
    }
}

} // namespace rzimg
