// Command-line access to the registry. Arguments are matched to the
// registry's parameter list (bitmap excluded): positional words fill the
// parameters in order, name=value words fill them by name, and whatever is
// left takes the registry's default. Every value is range-checked here, so
// the library never sees an argument the user could have been told about.
#include "tools/operations.h"

#include "tools/bitmap.h"
#include "tools/tool.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <memory>
#include <ostream>
#include <sstream>
#include <vector>

namespace rzimg {
namespace {

bool IsScalar(const rz::ParamInfo &p) { return p.kind == rz::ParamKind::I32 || p.kind == rz::ParamKind::U32; }

// The size of a result descriptor is the tool's business.
bool IsStructSize(const rz::ParamInfo &p) { return std::string_view(p.name) == "uStructSize"; }

// A word that reads as a number goes to a scalar; anything else is a file.
bool LooksNumeric(std::string_view w) {
    if (w.starts_with('+') || w.starts_with('-')) w.remove_prefix(1);
    return !w.empty() && std::isdigit(static_cast<unsigned char>(w[0]));
}

using Operand = std::shared_ptr<Bitmap>;

bool LoadOperand(const std::string &opName, const std::string &path, Operand &out, std::string &error) {
    out = std::make_shared<Bitmap>();
    const int32_t st = Rz_LoadBitmap(path.c_str(), out->get(), BITMAPDESC_SIZE, 0);
    if (st != KRN_OK) {
        error = opName + ": cannot load the image '" + path + "': " + StatusText(st);
        return false;
    }
    return true;
}

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
                    std::string &error, std::string_view toolFilled,
                    std::function<void(std::vector<rz::Arg> &)> fill) {
    const std::string opName = op.cliName();
    std::vector<rz::Arg> args(op.params.size());
    std::vector<bool> given(op.params.size(), false);
    std::vector<size_t> scalars, sources;
    size_t bitmapIndex = 0, listIndex = SIZE_MAX;
    bool result = false;
    for (size_t i = 0; i < op.params.size(); ++i) {
        const rz::ParamInfo &p = op.params[i];
        if (p.kind == rz::ParamKind::Bitmap || p.kind == rz::ParamKind::Result) {
            bitmapIndex = i;
            result = p.kind == rz::ParamKind::Result;
        } else if (p.kind == rz::ParamKind::Source && !Listed(toolFilled, p.name)) {
            sources.push_back(i);
        } else if (p.kind == rz::ParamKind::List) {
            listIndex = i;
        } else if (IsStructSize(p)) {
            args[i].i = BITMAPDESC_SIZE;
        } else if (IsScalar(p) && !Listed(toolFilled, p.name)) {
            scalars.push_back(i);
        }
    }

    // Image files: by name (source=logo.png), else in order, the rest to the list.
    std::vector<Operand> operands(op.params.size());
    auto list = std::make_shared<std::vector<Operand>>();
    size_t nextPositional = 0, nextSource = 0;
    for (const std::string &word : words) {
        size_t index;
        std::string_view value = word;
        size_t eq = word.find('=');
        const bool named = eq != std::string::npos && eq > 0 && std::isalpha(static_cast<unsigned char>(word[0]));
        if (named) {
            std::string_view name(word.data(), eq);
            auto matches = [&](size_t i) { return name == ParamName(op.params[i]) || name == op.params[i].name; };
            auto src = std::find_if(sources.begin(), sources.end(), matches);
            if (src != sources.end()) {
                if (operands[*src]) {
                    error = opName + ": image '" + ParamName(op.params[*src]) + "' given twice";
                    return false;
                }
                if (!LoadOperand(opName, std::string(word.substr(eq + 1)), operands[*src], error)) return false;
                continue;
            }
            auto it = std::find_if(scalars.begin(), scalars.end(), matches);
            if (it == scalars.end()) {
                error = opName + ": no argument named '" + std::string(name) + "'";
                if (scalars.empty() && sources.empty()) {
                    error += " (it takes none)";
                } else {
                    error += " (arguments:";
                    for (size_t i : sources) error += " " + ParamName(op.params[i]);
                    for (size_t i : scalars) error += " " + ParamName(op.params[i]);
                    error += ")";
                }
                return false;
            }
            index = *it;
            value = std::string_view(word).substr(eq + 1);
        } else if (!LooksNumeric(word) && (!sources.empty() || listIndex != SIZE_MAX)) {
            while (nextSource < sources.size() && operands[sources[nextSource]]) ++nextSource;
            Operand loaded;
            if (nextSource < sources.size()) {
                if (!LoadOperand(opName, word, operands[sources[nextSource]], error)) return false;
            } else if (listIndex != SIZE_MAX) {
                if (!LoadOperand(opName, word, loaded, error)) return false;
                list->push_back(loaded);
            } else {
                error = opName + ": unexpected image '" + word + "' (it takes " + std::to_string(sources.size()) +
                        (sources.size() == 1 ? " image" : " images") + ")";
                return false;
            }
            continue;
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
    for (size_t i : sources)
        if (!operands[i] && !op.params[i].nullable) {
            error = opName + ": needs the image file " + UpperCase(ParamName(op.params[i])) + " (see 'rzimg help " +
                    opName + "')";
            return false;
        }
    if (listIndex != SIZE_MAX && list->empty()) {
        error = opName + ": give one or more image files to go with the input";
        return false;
    }

    std::string shown;
    for (size_t i : sources)
        if (operands[i]) shown += (shown.empty() ? "" : " ") + ParamName(op.params[i]) + "=(image)";
    if (!list->empty()) shown += (shown.empty() ? "" : " ") + std::to_string(list->size() + 1) + " images";
    for (size_t i : scalars) {
        if (!given[i]) args[i].i = op.params[i].def;
        if (!shown.empty()) shown += ' ';
        shown += ParamName(op.params[i]) + "=" + std::to_string(args[i].i);
    }
    call.op = &op;
    call.args = shown;
    call.run = [&op, args, bitmapIndex, listIndex, result, operands, list, fill](BitmapDesc *bitmap,
                                                                                std::string &) mutable {
        for (size_t i = 0; i < operands.size(); ++i)
            if (operands[i]) args[i].p = operands[i]->get();
        if (fill) fill(args);
        KrnBitmapList *raw = nullptr;
        if (listIndex != SIZE_MAX) {
            if (KrnCreateBitmapList(&raw) != KRN_OK) return int32_t(ST_FAILURE);
            KrnAppendBitmapList(raw, bitmap, KRN_LIST_REFERENCE);
            for (const Operand &o : *list) KrnAppendBitmapList(raw, o->get(), KRN_LIST_REFERENCE);
            args[listIndex].p = raw;
        }
        const std::unique_ptr<KrnBitmapList, void (*)(KrnBitmapList *)> owner(raw, [](KrnBitmapList *l) {
            KrnFreeBitmapList(l);
        });
        if (!result) {
            args[bitmapIndex].p = bitmap;
            return op.invoke(args.data());
        }
        // The new bitmap takes the place of the chain's.
        Bitmap made;
        args[bitmapIndex].p = made.get();
        const int32_t st = op.invoke(args.data());
        if (st == ST_SUCCESS) {
            KrnFreeBitmap(bitmap);
            std::swap(*bitmap, *made.get());
        }
        return st;
    };
    return true;
}

Reach Reachability(const rz::OpInfo &op) {
    if (FindCustom(op.name)) return Reach::Custom;
    int bitmaps = 0;
    bool result = false;
    for (const rz::ParamInfo &p : op.params) {
        if (p.kind == rz::ParamKind::Bitmap) ++bitmaps;
        result |= p.kind == rz::ParamKind::Result;
        if (p.kind == rz::ParamKind::Ptr) return Reach::Unavailable;
    }
    if (!(op.flags & RZ_OPF_INPLACE) && !result) return Reach::Unavailable;
    return bitmaps + result == 1 ? Reach::Generic : Reach::Unavailable;
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
        if (custom->demoWords) {
            // The gallery's @sample words read as file names here.
            std::istringstream in(custom->demoWords);
            for (std::string w; in >> w;)
                example += (example.empty() ? "" : " ") + (w.starts_with('@') ? w.substr(1) + ".png" : w);
        }
    } else {
        int depth = 0;
        for (const rz::ParamInfo &p : op.params) {
            if (p.kind == rz::ParamKind::Source) {
                const std::string file = UpperCase(ParamName(p));
                synopsis += (synopsis.empty() ? "" : " ") + (p.nullable ? "[" + file + "]" : file);
                example += (example.empty() ? "" : " ") + ParamName(p) + ".png";
            } else if (p.kind == rz::ParamKind::List) {
                synopsis += (synopsis.empty() ? "" : " ") + std::string("FILE...");
                example += (example.empty() ? "" : " ") + std::string("second.png third.png");
            }
        }
        for (const rz::ParamInfo &p : op.params) {
            if (!IsScalar(p) || IsStructSize(p)) continue;
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
        if (IsStructSize(p) || p.kind == rz::ParamKind::Result)
            out << "set by rzimg";
        else if (p.kind == rz::ParamKind::Source)
            out << (p.nullable ? "an image file, optional" : "an image file");
        else if (p.kind == rz::ParamKind::List)
            out << "the input and the image files given";
        else if (IsScalar(p) && !Listed(filled, p.name))
            out << RangeText(p) << ", default " << p.def;
        else if (Listed(filled, p.name)) {
            // A record the custom form builds from a name=value word of its own.
            const std::string pname = ParamName(p);
            const std::string word = pname.substr(pname.rfind('-') == std::string::npos ? 0 : pname.rfind('-') + 1) + "=";
            out << (IsScalar(p) ? "set by rzimg"
                    : custom && std::string_view(custom->usage).find(word) != std::string_view::npos
                        ? "from " + word + " above"
                        : std::string("not settable here (null)"));
        }
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
