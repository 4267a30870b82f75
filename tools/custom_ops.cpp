// Hand-made callers for exports that take a table or record. Each entry maps
// an export name to a parser that turns command-line words into a prepared
// call; an export without one is listed as not available from the command
// line. remap-intensity takes its table as a comma list or a file: a list as
// long as the bitmap's table is used as given, a shorter one is a curve of
// evenly spaced control points in per-mille of full scale, interpolated.
#include "tools/operations.h"
#include "tools/bitmap.h"
#include "tools/tool.h"
#include "tools/deep_grey.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace rzimg {
namespace {

// Entries of the bitmap's lookup table, by the library's size rule.
uint32_t TableLength(const BitmapDesc *b) {
    if (b->nBitsPerPixel >= 48) return 65536;
    if (b->nColorOrder == KRN_ORDER_GRAY && b->pLUT && (b->uFlags & BMF_USE_LUT)) return b->nLUTLength;
    if (b->nColorOrder == KRN_ORDER_GRAY && b->nBitsPerPixel <= 16) return 1u << b->nBitsPerPixel;
    return 256;
}

const rz::ParamInfo *FindParam(const rz::OpInfo &op, std::string_view name) {
    for (const rz::ParamInfo &p : op.params)
        if (name == p.name) return &p;
    return nullptr;
}

bool ParseNumberList(std::string_view text, std::vector<uint32_t> &out, const std::string &where,
                     std::string &error) {
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && (text[i] == ',' || std::isspace(static_cast<unsigned char>(text[i])))) ++i;
        if (i == text.size()) break;
        if (text[i] == '#') { // comment to the end of the line (files)
            while (i < text.size() && text[i] != '\n') ++i;
            continue;
        }
        size_t j = i;
        while (j < text.size() && text[j] != ',' && text[j] != '#' && !std::isspace(static_cast<unsigned char>(text[j])))
            ++j;
        uint32_t v = 0;
        auto [end, ec] = std::from_chars(text.data() + i, text.data() + j, v);
        if (ec != std::errc() || end != text.data() + j || v > 65535) {
            error = where + ": entry " + std::to_string(out.size() + 1) + " '" + std::string(text.substr(i, j - i)) +
                    "' is not a whole number in 0..65535";
            return false;
        }
        out.push_back(v);
        i = j;
    }
    return true;
}

bool ReadTable(std::string_view word, std::vector<uint32_t> &table, std::string &error) {
    std::string path;
    if (word.starts_with('@'))
        path = std::string(word.substr(1));
    else if (word.find(',') == std::string_view::npos) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(std::string(word), ec)) path = std::string(word);
    }
    if (!path.empty()) {
        std::ifstream in(path);
        if (!in) {
            error = "remap-intensity: cannot read the table file '" + path + "'";
            return false;
        }
        std::stringstream text;
        text << in.rdbuf();
        if (!ParseNumberList(text.str(), table, "remap-intensity: table file '" + path + "'", error)) return false;
    } else if (!ParseNumberList(word, table, "remap-intensity: table", error)) {
        return false;
    }
    if (table.size() < 2 || table.size() > 65536) {
        error = "remap-intensity: table '" + std::string(word) + "' has " + std::to_string(table.size()) +
                " entries; give 2..65536 (a comma list or a file)";
        return false;
    }
    return true;
}

// Expands per-mille control points to n entries of 0..n-1.
std::vector<uint32_t> Interpolate(const std::vector<uint32_t> &points, uint32_t n) {
    std::vector<uint32_t> out(n);
    const double max = n - 1, segments = static_cast<double>(points.size() - 1);
    for (uint32_t i = 0; i < n; ++i) {
        double pos = i * segments / max;
        size_t j = std::min(static_cast<size_t>(pos), points.size() - 2);
        double f = pos - static_cast<double>(j);
        double permille = points[j] + (static_cast<double>(points[j + 1]) - points[j]) * f;
        out[i] = static_cast<uint32_t>(permille * max / 1000.0 + 0.5);
    }
    return out;
}

bool ParseRemapIntensity(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                         std::string &error) {
    const rz::ParamInfo *channelParam = FindParam(op, "uChannel");
    std::string tableWord, channelWord;
    int positional = 0;
    for (const std::string &w : words) {
        std::string *slot = nullptr;
        std::string_view value = w;
        if (w.starts_with("table=")) {
            slot = &tableWord;
            value.remove_prefix(6);
        } else if (w.starts_with("channel=")) {
            slot = &channelWord;
            value.remove_prefix(8);
        } else if (positional < 2) {
            slot = positional++ == 0 ? &tableWord : &channelWord;
        } else {
            error = "remap-intensity: unexpected argument '" + w + "' (it takes TABLE [CHANNEL])";
            return false;
        }
        if (!slot->empty()) {
            error = std::string("remap-intensity: argument '") + (slot == &tableWord ? "table" : "channel") +
                    "' given twice";
            return false;
        }
        *slot = value;
    }
    if (tableWord.empty()) {
        error = "remap-intensity: missing TABLE (a comma list such as 0,200,500,800,1000, or a file)";
        return false;
    }
    auto table = std::make_shared<std::vector<uint32_t>>();
    if (!ReadTable(tableWord, *table, error)) return false;

    int64_t channel = channelParam ? channelParam->def : 0;
    static const char *const kChannels[] = {"all", "red", "green", "blue"};
    if (!channelWord.empty()) {
        auto named = std::find(std::begin(kChannels), std::end(kChannels), channelWord);
        if (named != std::end(kChannels))
            channel = named - std::begin(kChannels);
        else if (!channelParam || !ParseScalar(op, *channelParam, channelWord, channel, error))
            return false;
    }

    call.op = &op;
    call.args = "table=" + (tableWord.size() > 40 ? tableWord.substr(0, 37) + "..." : tableWord) +
                " channel=" + kChannels[channel];
    call.run = [&op, table, channel](BitmapDesc *bitmap, std::string &why) -> int32_t {
        const uint32_t n = TableLength(bitmap);
        std::vector<uint32_t> used;
        if (table->size() == n) {
            auto big = std::find_if(table->begin(), table->end(), [n](uint32_t v) { return v >= n; });
            if (big != table->end()) {
                why = "remap-intensity: table entry " + std::to_string(big - table->begin() + 1) + " (" +
                      std::to_string(*big) + ") exceeds " + std::to_string(n - 1) +
                      ", the largest value of this bitmap";
                return ST_INVALID_PARAMETER;
            }
            used = *table;
        } else if (table->size() < n) {
            auto big = std::find_if(table->begin(), table->end(), [](uint32_t v) { return v > 1000; });
            if (big != table->end()) {
                why = "remap-intensity: a curve of " + std::to_string(table->size()) +
                      " control points is in per-mille of full scale, but entry " +
                      std::to_string(big - table->begin() + 1) + " is " + std::to_string(*big) +
                      " (this bitmap's table has " + std::to_string(n) + " entries)";
                return ST_INVALID_PARAMETER;
            }
            used = Interpolate(*table, n);
        } else {
            why = "remap-intensity: the table has " + std::to_string(table->size()) + " entries; this bitmap needs " +
                  std::to_string(n) + " (or fewer, as control points)";
            return ST_INVALID_PARAMETER;
        }
        std::vector<rz::Arg> args(op.params.size());
        for (size_t i = 0; i < op.params.size(); ++i) {
            const rz::ParamInfo &p = op.params[i];
            if (p.kind == rz::ParamKind::Bitmap) args[i].p = bitmap;
            else if (p.kind == rz::ParamKind::Ptr) args[i].p = used.data();
            else if (std::string_view(p.name) == "uCount") args[i].i = n;
            else if (std::string_view(p.name) == "uChannel") args[i].i = channel;
            else args[i].i = p.def;
        }
        return op.invoke(args.data());
    };
    return true;
}

// Scalars as usual; the records the tool cannot take are left out (null).
bool ParseWithoutRecords(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                         std::string &error) {
    return PrepareScalars(op, words, call, error, FindCustom(op.name)->toolFilled);
}

// A comma list of signed whole numbers.
bool ParseIntList(std::string_view text, std::vector<int64_t> &out, const std::string &what, std::string &error) {
    size_t i = 0;
    while (i <= text.size()) {
        const size_t j = std::min(text.find(',', i), text.size());
        int64_t v = 0;
        const char *b = text.data() + i, *e = text.data() + j;
        if (b != e && *b == '+') ++b;
        auto [end, ec] = std::from_chars(b, e, v);
        if (b == e || ec != std::errc() || end != e || v < INT32_MIN || v > INT32_MAX) {
            error = what + ": '" + std::string(text.substr(i, j - i)) + "' is not a whole number";
            return false;
        }
        out.push_back(v);
        i = j + 1;
    }
    return true;
}

std::string_view WithoutPrefix(std::string_view word, std::string_view name) {
    if (word.starts_with(name) && word.size() > name.size() && word[name.size()] == '=')
        return word.substr(name.size() + 1);
    return word;
}

// The predefined kernels by their SPF_ names, lower case with dashes.
const char *const kSpatialNames[SPF_COUNT] = {
    "emboss-n", "emboss-ne", "emboss-e", "emboss-se", "emboss-s", "emboss-sw", "emboss-w", "emboss-nw",
    "gradient-n", "gradient-ne", "gradient-e", "gradient-se", "gradient-s", "gradient-sw", "gradient-w",
    "gradient-nw", "laplace-four", "laplace-eight", "laplace-cross", "laplace-diagonal", "laplace-vertical",
    "laplace-horizontal", "sobel-horizontal", "sobel-vertical", "prewitt-horizontal", "prewitt-vertical",
    "shift-diagonal", "shift-vertical", "shift-horizontal", "line-horizontal", "line-vertical",
    "line-rising-diagonal", "line-falling-diagonal"};

bool ParseSpatialFilter(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                        std::string &error) {
    if (words.size() != 1) {
        error = "spatial-filter: give one KERNEL: a name such as sobel-horizontal, a number 0..32, or "
                "DIVISOR,BIAS,c1,c2,... with a square number of coefficients";
        return false;
    }
    const std::string_view word = WithoutPrefix(words[0], "kernel");
    auto record = std::make_shared<std::vector<int32_t>>();
    uintptr_t number = 0;
    const auto named = std::find(std::begin(kSpatialNames), std::end(kSpatialNames), word);
    if (named != std::end(kSpatialNames)) {
        number = uintptr_t(named - std::begin(kSpatialNames));
    } else {
        std::vector<int64_t> v;
        if (!ParseIntList(word, v, "spatial-filter", error)) return false;
        if (v.size() == 1) {
            if (v[0] < 0 || v[0] >= SPF_COUNT) {
                error = "spatial-filter: kernel number " + std::to_string(v[0]) + " is not 0..32";
                return false;
            }
            number = uintptr_t(v[0]);
        } else {
            const int64_t count = int64_t(v.size()) - 2;
            int64_t dim = 1;
            while (dim * dim < count) ++dim;
            if (count < 1 || dim * dim != count) {
                error = "spatial-filter: after DIVISOR and BIAS give a square number of coefficients, not " +
                        std::to_string(count);
                return false;
            }
            *record = {SPATIALKERNEL_SIZE, int32_t(v[0]), int32_t(v[1]), int32_t(dim)};
            for (size_t i = 2; i < v.size(); ++i) record->push_back(int32_t(v[i]));
        }
    }
    call.op = &op;
    call.args = "kernel=" + std::string(word);
    call.run = [&op, record, number](BitmapDesc *bitmap, std::string &) -> int32_t {
        rz::Arg args[2];
        args[0].p = bitmap;
        args[1].p = record->empty() ? reinterpret_cast<void *>(number) : record->data();
        return op.invoke(args);
    };
    return true;
}

bool ParseUserFilter(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                     std::string &error) {
    const std::string usage = "user-filter: give SIZE (such as 3x3) and MATRIX (a comma list), then optionally "
                              "anchor=X,Y divisor=N offset=N type=truncate|absolute|round";
    std::string size, matrix, anchor, divisor, offset, type;
    int positional = 0;
    for (const std::string &w : words) {
        const size_t eq = w.find('=');
        const std::string name = eq == std::string::npos ? std::string() : w.substr(0, eq);
        const std::string value = eq == std::string::npos ? w : w.substr(eq + 1);
        std::string *slot = name == "size" ? &size : name == "matrix" ? &matrix : name == "anchor" ? &anchor
                            : name == "divisor" ? &divisor : name == "offset" ? &offset : name == "type" ? &type
                            : name.empty() && positional == 0 ? &size : name.empty() && positional == 1 ? &matrix
                                                                                                   : nullptr;
        if (!slot || !slot->empty()) {
            error = usage + " ('" + w + "' is not one of them or is given twice)";
            return false;
        }
        if (name.empty()) ++positional;
        *slot = value;
    }
    const size_t x = size.find('x');
    std::vector<int64_t> dims, m, at, div, off;
    if (x == std::string::npos || !ParseIntList(size.substr(0, x), dims, "user-filter", error) ||
        !ParseIntList(size.substr(x + 1), dims, "user-filter", error) || dims[0] < 1 || dims[1] < 1) {
        if (error.empty()) error = usage;
        return false;
    }
    if (matrix.empty() || !ParseIntList(matrix, m, "user-filter", error)) {
        if (error.empty()) error = usage;
        return false;
    }
    if (int64_t(m.size()) != dims[0] * dims[1]) {
        error = "user-filter: a " + size + " kernel has " + std::to_string(dims[0] * dims[1]) +
                " coefficients, not " + std::to_string(m.size());
        return false;
    }
    if (!anchor.empty() && (!ParseIntList(anchor, at, "user-filter", error) || at.size() != 2)) {
        if (error.empty()) error = "user-filter: anchor is X,Y";
        return false;
    }
    if (!divisor.empty() && !ParseIntList(divisor, div, "user-filter", error)) return false;
    if (!offset.empty() && !ParseIntList(offset, off, "user-filter", error)) return false;
    static const char *const kTypes[] = {"truncate", "absolute", "round"};
    int32_t kind = RZ_UF_ROUND;
    if (!type.empty()) {
        const auto t = std::find(std::begin(kTypes), std::end(kTypes), type);
        if (t == std::end(kTypes)) {
            error = "user-filter: type is truncate, absolute or round, not '" + type + "'";
            return false;
        }
        kind = int32_t(t - std::begin(kTypes));
    }
    // By default a smoothing kernel keeps the brightness: divide by its sum.
    int64_t sum = 0;
    for (int64_t c : m) sum += c;
    const int64_t d = div.empty() ? std::max<int64_t>(sum, 1) : div[0];
    auto record = std::make_shared<std::vector<int32_t>>(std::vector<int32_t>{
        USERFILTERKERNEL_SIZE, int32_t(dims[0]), int32_t(dims[1]), int32_t(at.empty() ? (dims[0] - 1) / 2 : at[0]),
        int32_t(at.empty() ? (dims[1] - 1) / 2 : at[1]), int32_t(d), int32_t(off.empty() ? 0 : off[0]), kind});
    for (int64_t c : m) record->push_back(int32_t(c));
    call.op = &op;
    call.args = "size=" + size + " matrix=" + (matrix.size() > 40 ? matrix.substr(0, 37) + "..." : matrix) +
                " divisor=" + std::to_string(d) + " type=" + kTypes[kind];
    call.run = [&op, record](BitmapDesc *bitmap, std::string &) -> int32_t {
        rz::Arg args[2];
        args[0].p = bitmap;
        args[1].p = record->data();
        return op.invoke(args);
    };
    return true;
}

// ---- Frequency domain: each call transforms, works on the spectrum and
// transforms back (or draws it), one plane at a time, so that a chain of
// transform, filter and inverse is one command. Any size goes through the
// DFT; fft insists on powers of two, as the export does.

struct FrqOptions {
    int32_t plane = 0; // 0: every plane (grey bitmaps have one)
    int32_t component = FT_BOTH;
    int32_t writeBack = FT_CLIP;
    uint32_t display = FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG;
    bool haveRect = false, zeroInside = false, arrayCoords = false;
    int32_t rect[4] = {0, 0, 0, 0};
    int32_t radius = -1;
    bool notchAuto = false;
    int32_t notch[3] = {0, 0, 2}; // dx, dy, radius
    bool haveNotch = false;
    std::string maskPath;
};

// Name=value words (and bare flags) of the frequency operations; `allowed`
// lists the names the operation takes.
bool ParseFrqWords(const std::string &opName, std::span<const std::string> words, std::string_view allowed,
                   FrqOptions &o, std::string &error) {
    static const std::pair<const char *, int32_t> kPlanes[] = {
        {"blue", FT_PLANE_BLUE}, {"green", FT_PLANE_GREEN}, {"red", FT_PLANE_RED}, {"grey", FT_PLANE_GREY}, {"all", 0}};
    static const std::pair<const char *, int32_t> kComponents[] = {
        {"magnitude", FT_MAGNITUDE}, {"phase", FT_PHASE}, {"both", FT_BOTH}};
    static const std::pair<const char *, uint32_t> kKinds[] = {
        {"magnitude", FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LINEAR},
        {"log", FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG},
        {"phase", FT_DISPLAY_PHASE}};
    auto pick = [&](auto &table, std::string_view v, auto &out, const char *what) {
        for (const auto &[n, val] : table)
            if (v == n) {
                out = val;
                return true;
            }
        error = opName + ": unknown " + what + " '" + std::string(v) + "'";
        return false;
    };
    for (const std::string &w : words) {
        const size_t eq = w.find('=');
        const std::string name = w.substr(0, eq);
        const std::string_view value = eq == std::string::npos ? std::string_view() : std::string_view(w).substr(eq + 1);
        if (allowed.find(" " + name + " ") == std::string_view::npos) {
            error = opName + ": unexpected argument '" + w + "'; see 'rzimg help " + opName + "'";
            return false;
        }
        std::vector<int64_t> nums;
        if (name == "plane") {
            if (!pick(kPlanes, value, o.plane, "plane")) return false;
        } else if (name == "component") {
            if (!pick(kComponents, value, o.component, "component")) return false;
        } else if (name == "write") {
            if (value != "clip" && value != "stretch") {
                error = opName + ": write= takes clip or stretch";
                return false;
            }
            o.writeBack = value == "clip" ? FT_CLIP : FT_STRETCH;
        } else if (name == "kind") {
            if (!pick(kKinds, value, o.display, "kind")) return false;
        } else if (name == "zero-inside") {
            o.zeroInside = true;
        } else if (name == "array") {
            o.arrayCoords = true;
        } else if (name == "rect") {
            if (!ParseIntList(value, nums, opName + ": rect", error)) return false;
            if (nums.size() != 4) {
                error = opName + ": rect= takes LEFT,TOP,RIGHT,BOTTOM (inclusive)";
                return false;
            }
            for (int i = 0; i < 4; ++i) o.rect[i] = int32_t(nums[size_t(i)]);
            o.haveRect = true;
        } else if (name == "radius") {
            if (!ParseIntList(value, nums, opName + ": radius", error)) return false;
            if (nums.size() != 1 || nums[0] < 0) {
                error = opName + ": radius= takes one whole number, 0 or more";
                return false;
            }
            o.radius = int32_t(nums[0]);
        } else if (name == "notch") {
            o.haveNotch = true;
            if (value == "auto") {
                o.notchAuto = true;
                continue;
            }
            if (!ParseIntList(value, nums, opName + ": notch", error)) return false;
            if (nums.size() < 2 || nums.size() > 3 || (nums.size() == 3 && nums[2] < 0)) {
                error = opName + ": notch= takes auto or DX,DY[,RADIUS]";
                return false;
            }
            for (size_t i = 0; i < nums.size(); ++i) o.notch[i] = int32_t(nums[i]);
        } else if (name == "mask") {
            o.maskPath = std::string(value);
        }
    }
    return true;
}

struct FtArrayOwner {
    FTARRAY *a = nullptr;
    ~FtArrayOwner() {
        if (a) Rz_FreeFTArray(a);
    }
};

bool IsGreyBitmap(const BitmapDesc *b) { return b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b); }

// Forward, `work` on the spectrum, inverse, for each plane asked for.
template <class Work>
int32_t OnEachPlane(BitmapDesc *b, const FrqOptions &o, bool fft, const int32_t *inverseRect, Work &&work) {
    FtArrayOwner arr;
    int32_t st = Rz_AllocFTArray(b, &arr.a, FTARRAY_SIZE);
    if (st != ST_SUCCESS) return st;
    std::vector<int32_t> planes{o.plane};
    if (o.plane == 0) planes = IsGreyBitmap(b) ? std::vector<int32_t>{FT_PLANE_GREY}
                                               : std::vector<int32_t>{FT_PLANE_BLUE, FT_PLANE_GREEN, FT_PLANE_RED};
    for (int32_t plane : planes) {
        const int32_t inv = FT_INVERSE | plane | o.component | o.writeBack;
        st = fft ? Rz_FFTBitmap(b, arr.a, FT_FORWARD | plane)
                 : Rz_DFTBitmap(b, arr.a, nullptr, FT_FORWARD | plane | DFT_WHOLE);
        if (st == ST_SUCCESS) st = work(arr.a);
        if (st == ST_SUCCESS)
            st = fft ? Rz_FFTBitmap(b, arr.a, inv)
                     : Rz_DFTBitmap(b, arr.a, inverseRect, inv | (inverseRect ? DFT_RECT | DFT_ROWS_MINUS | DFT_COLUMNS_MINUS : DFT_WHOLE));
        if (st != ST_SUCCESS) return st;
    }
    return ST_SUCCESS;
}

std::string FrqArgsText(const FrqOptions &o) {
    static const char *const kPlaneNames[] = {"all", "blue", "green", "red", "grey"};
    std::string s = std::string("plane=") + kPlaneNames[o.plane >> 4];
    s += std::string(" component=") + (o.component == FT_MAGNITUDE ? "magnitude" : o.component == FT_PHASE ? "phase" : "both");
    s += std::string(" write=") + (o.writeBack == FT_CLIP ? "clip" : "stretch");
    return s;
}

bool ParseFFT(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call, std::string &error) {
    FrqOptions o;
    const bool fft = std::string_view(op.name) == "Rz_FFTBitmap";
    if (!ParseFrqWords(op.cliName(), words, fft ? " plane component write " : " plane component write rect ", o, error))
        return false;
    call.op = &op;
    call.args = FrqArgsText(o);
    if (o.haveRect) call.args += " rect=" + std::to_string(o.rect[0]) + "," + std::to_string(o.rect[1]) + "," +
                                 std::to_string(o.rect[2]) + "," + std::to_string(o.rect[3]);
    call.run = [o, fft](BitmapDesc *b, std::string &why) -> int32_t {
        const int32_t st = OnEachPlane(b, o, fft, o.haveRect ? o.rect : nullptr, [](FTARRAY *) { return ST_SUCCESS; });
        auto pow2 = [](int32_t n) { return n >= 2 && (n & (n - 1)) == 0; };
        if (st == ST_INVALID_PARAMETER && fft && !(pow2(b->nWidth) && pow2(b->nHeight)))
            why = "fft: width and height must be powers of two, this picture is " + std::to_string(b->nWidth) + "x" +
                  std::to_string(b->nHeight) + " (dft takes any size)";
        else if (st == ST_INVALID_PARAMETER && o.haveRect)
            why = "dft: the rectangle must lie inside the " + std::to_string(b->nWidth) + "x" +
                  std::to_string(b->nHeight) + " picture";
        return st;
    };
    return true;
}

bool ParseFTDisplay(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                    std::string &error) {
    FrqOptions o;
    o.plane = FT_PLANE_GREY;
    if (!ParseFrqWords(op.cliName(), words, " kind plane ", o, error)) return false;
    if (o.plane == 0) o.plane = FT_PLANE_GREY;
    call.op = &op;
    static const char *const kPlaneNames[] = {"all", "blue", "green", "red", "grey"};
    call.args = std::string("kind=") +
                (o.display == FT_DISPLAY_PHASE ? "phase" : (o.display & 0xF0) == FT_DISPLAY_LOG ? "log" : "magnitude") +
                " plane=" + kPlaneNames[o.plane >> 4];
    call.run = [o](BitmapDesc *b, std::string &) -> int32_t {
        FtArrayOwner arr;
        int32_t st = Rz_AllocFTArray(b, &arr.a, FTARRAY_SIZE);
        if (st == ST_SUCCESS) st = Rz_DFTBitmap(b, arr.a, nullptr, FT_FORWARD | o.plane | DFT_WHOLE);
        if (st == ST_SUCCESS) st = Rz_FTDisplayBitmap(b, arr.a, o.display);
        return st;
    };
    return true;
}

bool ParseFrqFilter(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                    std::string &error) {
    FrqOptions o;
    if (!ParseFrqWords(op.cliName(), words, " rect radius zero-inside array plane ", o, error)) return false;
    if (o.haveRect == (o.radius >= 0)) {
        error = op.cliName() + ": give rect=LEFT,TOP,RIGHT,BOTTOM or radius=N (a square about frequency 0)";
        return false;
    }
    call.op = &op;
    call.args = (o.haveRect ? "rect=" + std::to_string(o.rect[0]) + "," + std::to_string(o.rect[1]) + "," +
                                  std::to_string(o.rect[2]) + "," + std::to_string(o.rect[3])
                            : "radius=" + std::to_string(o.radius)) +
                (o.zeroInside ? " zero-inside" : "") + (o.arrayCoords ? " array" : "");
    call.run = [o](BitmapDesc *b, std::string &why) -> int32_t {
        int32_t rect[4] = {o.rect[0], o.rect[1], o.rect[2], o.rect[3]};
        uint32_t flags = (o.zeroInside ? FRQ_ZERO_INSIDE : FRQ_KEEP_INSIDE);
        if (o.radius >= 0) {
            // A square about frequency 0 of the centred picture.
            rect[0] = std::max(0, b->nWidth / 2 - o.radius), rect[1] = std::max(0, b->nHeight / 2 - o.radius);
            rect[2] = std::min(b->nWidth - 1, b->nWidth / 2 + o.radius);
            rect[3] = std::min(b->nHeight - 1, b->nHeight / 2 + o.radius);
            flags |= FRQ_CENTRED_COORDS;
        } else {
            flags |= o.arrayCoords ? FRQ_ARRAY_COORDS : FRQ_CENTRED_COORDS;
        }
        const int32_t st = OnEachPlane(b, o, false, nullptr, [&](FTARRAY *a) { return Rz_FrqFilterBitmap(a, rect, flags); });
        if (st == ST_INVALID_PARAMETER && o.haveRect)
            why = "frq-filter: the rectangle must lie inside the " + std::to_string(b->nWidth) + "x" +
                  std::to_string(b->nHeight) + " spectrum";
        return st;
    };
    return true;
}

// Draws the notch mask: 255 everywhere but discs of 0 at the given offsets
// from the centre and their mirror images. notch=auto finds them: elements
// outside the low frequencies that stand far above the spectrum around them.
int32_t MakeNotchMask(BitmapDesc *b, const FTARRAY *spectrum, const FrqOptions &o, Bitmap &mask) {
    const int32_t W = b->nWidth, H = b->nHeight;
    int32_t st = KrnInitBitmap(mask.get(), BITMAPDESC_SIZE, W, H, 8);
    if (st == KRN_OK) st = KrnAllocBitmap(mask.get());
    if (st != KRN_OK) return st;
    mask->nColorOrder = KRN_ORDER_GRAY;
    mask->nDataKind = 1;
    std::vector<uint8_t> m(size_t(W) * H, 255);
    std::vector<std::pair<int32_t, int32_t>> centres; // offsets from frequency 0
    if (o.notchAuto) {
        std::vector<double> mag(size_t(W) * H);
        const uint8_t *data = reinterpret_cast<const uint8_t *>(spectrum) + 12;
        for (size_t i = 0; i < mag.size(); ++i) {
            double z[2];
            std::memcpy(z, data + 16 * i, 16);
            mag[i] = std::hypot(z[0], z[1]);
        }
        const int32_t low = std::max(4, std::min(W, H) / 16);
        double sum = 0;
        size_t count = 0;
        auto offset = [](int32_t i, int32_t n) { return i <= n / 2 ? i : i - n; };
        for (int32_t v = 0; v < H; ++v)
            for (int32_t u = 0; u < W; ++u)
                if (std::abs(offset(u, W)) > low || std::abs(offset(v, H)) > low) sum += mag[size_t(v) * W + u], ++count;
        const double threshold = 25.0 * (count ? sum / double(count) : 0.0);
        for (int32_t v = 0; v < H; ++v)
            for (int32_t u = 0; u < W; ++u) {
                const int32_t du = offset(u, W), dv = offset(v, H);
                if ((std::abs(du) > low || std::abs(dv) > low) && mag[size_t(v) * W + u] > threshold)
                    centres.push_back({du, dv});
            }
    } else {
        centres.push_back({o.notch[0], o.notch[1]});
        centres.push_back({-o.notch[0], -o.notch[1]});
    }
    const int32_t r = o.notch[2];
    for (auto [dx, dy] : centres)
        for (int32_t y = -r; y <= r; ++y)
            for (int32_t x = -r; x <= r; ++x)
                if (x * x + y * y <= r * r) {
                    const int32_t px = ((W / 2 + dx + x) % W + W) % W, py = ((H / 2 + dy + y) % H + H) % H;
                    m[size_t(py) * W + px] = 0;
                }
    for (int32_t y = 0; y < H && st == KRN_OK; ++y)
        st = KrnPutBitmapRowSpans(mask.get(), m.data() + size_t(y) * W, y, 0, uint32_t(W), nullptr, 0, KRN_PUT_NORMAL);
    return st;
}

bool ParseFrqMask(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call, std::string &error) {
    FrqOptions o;
    if (!ParseFrqWords(op.cliName(), words, " notch mask plane ", o, error)) return false;
    if (o.haveNotch == !o.maskPath.empty()) {
        error = op.cliName() + ": give notch=auto, notch=DX,DY[,RADIUS] or mask=FILE (a picture of the spectrum's size, "
                               "centred like ft-display)";
        return false;
    }
    call.op = &op;
    call.args = o.maskPath.empty() ? (o.notchAuto ? std::string("notch=auto")
                                                   : "notch=" + std::to_string(o.notch[0]) + "," +
                                                         std::to_string(o.notch[1]) + "," + std::to_string(o.notch[2]))
                                   : "mask=" + o.maskPath;
    call.run = [o](BitmapDesc *b, std::string &why) -> int32_t {
        Bitmap mask;
        if (!o.maskPath.empty()) {
            const int32_t st = Rz_LoadBitmap(o.maskPath.c_str(), mask.get(), BITMAPDESC_SIZE, 0);
            if (st != ST_SUCCESS) {
                why = "frq-filter-mask: cannot read the mask '" + o.maskPath + "': " + StatusText(st);
                return st;
            }
            if (mask->nWidth != b->nWidth || mask->nHeight != b->nHeight) {
                why = "frq-filter-mask: the mask is " + std::to_string(mask->nWidth) + "x" +
                      std::to_string(mask->nHeight) + ", the picture " + std::to_string(b->nWidth) + "x" +
                      std::to_string(b->nHeight);
                return ST_INVALID_PARAMETER;
            }
        }
        return OnEachPlane(b, o, false, nullptr, [&](FTARRAY *a) {
            if (o.maskPath.empty()) {
                mask.reset();
                const int32_t st = MakeNotchMask(b, a, o, mask);
                if (st != KRN_OK) return st;
            }
            return Rz_FrqFilterMaskBitmap(mask.get(), a, 0);
        });
    };
    return true;
}

// ---- end of frequency domain ----

// X,Y or W1,W2,... after name=, taken out of the words; empty when absent.
bool TakeList(std::vector<std::string> &words, std::string_view name, std::vector<int64_t> &out, std::string &error,
              const std::string &opName) {
    for (auto it = words.begin(); it != words.end(); ++it)
        if (WithoutPrefix(*it, name) != std::string_view(*it)) {
            const std::string value(WithoutPrefix(*it, name));
            words.erase(it);
            return ParseIntList(value, out, opName + ": " + std::string(name), error);
        }
    return true;
}

size_t ParamIndex(const rz::OpInfo &op, std::string_view name) {
    for (size_t i = 0; i < op.params.size(); ++i)
        if (name == op.params[i].name) return i;
    return op.params.size();
}

bool ParseTextureBlend(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                       std::string &error) {
    std::vector<std::string> rest(words.begin(), words.end());
    std::vector<int64_t> at;
    if (!TakeList(rest, "offset", at, error, "texture-alpha-blend")) return false;
    if (!at.empty() && at.size() != 2) {
        error = "texture-alpha-blend: offset is X,Y";
        return false;
    }
    auto offset = std::make_shared<RzPoint>(RzPoint{int32_t(at.empty() ? 0 : at[0]), int32_t(at.empty() ? 0 : at[1])});
    const size_t index = ParamIndex(op, "pTextureOffset");
    if (!PrepareScalars(op, rest, call, error, "pTextureOffset",
                        [offset, index](std::vector<rz::Arg> &args) { args[index].p = offset.get(); }))
        return false;
    call.args += " offset=" + std::to_string(offset->x) + "," + std::to_string(offset->y);
    return true;
}

bool ParseAddWeighted(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                      std::string &error) {
    std::vector<std::string> rest(words.begin(), words.end());
    std::vector<int64_t> w;
    if (!TakeList(rest, "weights", w, error, "add-weighted")) return false;
    size_t files = 1; // the input
    for (const std::string &word : rest)
        files += word.find('=') == std::string::npos && !word.empty() && !std::isdigit(static_cast<unsigned char>(word[0]));
    if (w.size() != files) {
        error = "add-weighted: give weights=W1,W2,... in per-mille, one for the input and one for each of the " +
                std::to_string(files - 1) + " image files";
        return false;
    }
    auto weights = std::make_shared<std::vector<int32_t>>(w.begin(), w.end());
    const size_t index = ParamIndex(op, "pWeights");
    if (!PrepareScalars(op, rest, call, error, "pWeights",
                        [weights, index](std::vector<rz::Arg> &args) { args[index].p = weights->data(); }))
        return false;
    std::string shown;
    for (int64_t v : w) shown += (shown.empty() ? "" : ",") + std::to_string(v);
    call.args += " weights=" + shown;
    return true;
}

// deskew and deskew-ext: the flag word from named switches, so the selector
// that the two exports read in opposite senses is simply prefilter=0|1; the
// measured angle is printed.
bool ParseDeskew(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call, std::string &error) {
    const bool ext = std::string_view(op.name) == "Rz_DeskewBitmapExt";
    const std::string name = op.cliName();
    const std::string usage = name + ": arguments are " + (ext ? "range=N resolution=N " : "") +
                              "measure-only=0|1 fill=white|black|page|0xBBGGRR skip-small=0|1 "
                              "quality=nearest|bilinear|bicubic prefilter=0|1";
    int64_t range = 1000, resolution = 1, measureOnly = 0, skip = 0, prefilter = ext ? 1 : 0;
    uint32_t fill = 0xFFFFFF, flags = 0;
    for (const std::string &w : words) {
        const size_t eq = w.find('=');
        if (eq == std::string::npos) {
            error = usage + " (got '" + w + "')";
            return false;
        }
        const std::string key = w.substr(0, eq), value = w.substr(eq + 1);
        auto number = [&](int64_t &out, int64_t lo, int64_t hi) {
            std::vector<int64_t> v;
            if (!ParseIntList(value, v, name + " " + key, error)) return false;
            if (v.size() != 1 || v[0] < lo || v[0] > hi) {
                error = name + ": " + key + " is " + std::to_string(lo) + ".." + std::to_string(hi) + ", not '" +
                        value + "'";
                return false;
            }
            out = v[0];
            return true;
        };
        if (key == "measure-only" || key == "skip-small" || key == "prefilter") {
            int64_t &slot = key == "measure-only" ? measureOnly : key == "skip-small" ? skip : prefilter;
            if (!number(slot, 0, 1)) return false;
        } else if (ext && key == "range") {
            if (!number(range, 0, 4500)) return false;
        } else if (ext && key == "resolution") {
            if (!number(resolution, 1, 4500)) return false;
        } else if (key == "quality") {
            static const char *const kQ[] = {"nearest", "bilinear", "bicubic"};
            const auto q = std::find(std::begin(kQ), std::end(kQ), value);
            if (q == std::end(kQ)) {
                error = name + ": quality is nearest, bilinear or bicubic, not '" + value + "'";
                return false;
            }
            flags = (flags & ~0xF000u) | uint32_t(q - std::begin(kQ)) * 0x1000u;
        } else if (key == "fill") {
            flags &= ~0xF0u;
            if (value == "page") {
                flags |= 0x10;
            } else if (value == "white" || value == "black") {
                fill = value == "white" ? 0xFFFFFF : 0;
            } else {
                char *end = nullptr;
                const unsigned long v = std::strtoul(value.c_str(), &end, 0);
                if (value.empty() || *end || v > 0xFFFFFF) {
                    error = name + ": fill is white, black, page or a colour 0xBBGGRR, not '" + value + "'";
                    return false;
                }
                fill = uint32_t(v);
            }
        } else {
            error = usage + " ('" + key + "' is not one of them)";
            return false;
        }
    }
    if (ext && resolution > range) {
        error = name + ": resolution (tenths of a degree) may not exceed range (hundredths): " +
                std::to_string(resolution) + " > " + std::to_string(range);
        return false;
    }
    flags |= uint32_t(measureOnly) | (skip ? 0x100u : 0u);
    // Rz_DeskewBitmap pre-filters when the selector is set, the Ext export when it is clear.
    if ((prefilter != 0) != ext) flags |= 0x10000;
    call.op = &op;
    call.args = (ext ? "range=" + std::to_string(range) + " resolution=" + std::to_string(resolution) + " " : "") +
                "measure-only=" + std::to_string(measureOnly) + " prefilter=" + std::to_string(prefilter);
    call.run = [&op, ext, range, resolution, fill, flags](BitmapDesc *bitmap, std::string &) -> int32_t {
        int32_t angle = 0;
        rz::Arg args[6];
        args[0].p = bitmap;
        args[1].p = &angle;
        int i = 2;
        if (ext) {
            args[i++].i = range;
            args[i++].i = resolution;
        }
        args[i++].i = fill;
        args[i++].i = flags;
        const int32_t st = op.invoke(args);
        if (st == ST_SUCCESS) {
            char text[64];
            std::snprintf(text, sizeof text, "%s: skew %.2f degrees (%d)\n", op.cliName().c_str(), angle / 100.0,
                          angle);
            std::fputs(text, stdout);
        }
        return st;
    };
    return true;
}

// Distortions about a centre: the other arguments as the generic parser
// takes them, the centre as center=X,Y, by default the middle of the
// picture (in its upright view, where the operations work).
bool ParseCentred(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                  std::string &error) {
    const std::string name = op.cliName();
    std::vector<std::string> rest;
    std::vector<int64_t> centre;
    for (const std::string &w : words) {
        if (!w.starts_with("center=")) {
            rest.push_back(w);
            continue;
        }
        if (!ParseIntList(WithoutPrefix(w, "center"), centre, name + ": center", error)) return false;
        if (centre.size() != 2) {
            error = name + ": center is X,Y";
            return false;
        }
    }
    PreparedCall others;
    if (!PrepareScalars(op, rest, others, error, "nCenterX nCenterY")) return false;
    // Every other argument by name, so that the centre can be added later.
    std::vector<std::string> named;
    for (size_t i = 0, j; i < others.args.size(); i = j + 1) {
        j = std::min(others.args.find(' ', i), others.args.size());
        named.push_back(others.args.substr(i, j - i));
    }
    call.op = &op;
    call.args = others.args + " center=" +
                (centre.empty() ? std::string("middle") : std::to_string(centre[0]) + "," + std::to_string(centre[1]));
    call.run = [&op, named, centre](BitmapDesc *bitmap, std::string &why) -> int32_t {
        const bool transposed = bitmap->nViewPerspective > 4;
        const int32_t w = transposed ? bitmap->nHeight : bitmap->nWidth;
        const int32_t h = transposed ? bitmap->nWidth : bitmap->nHeight;
        std::vector<std::string> all = named;
        all.push_back("center-x=" + std::to_string(centre.empty() ? w / 2 : centre[0]));
        all.push_back("center-y=" + std::to_string(centre.empty() ? h / 2 : centre[1]));
        PreparedCall full;
        if (!PrepareScalars(op, all, full, why)) return ST_INVALID_PARAMETER;
        return full.run(bitmap, why);
    };
    return true;
}

const CustomEntry kCustom[] = {
    {"Rz_RemapBitmapIntensity", "TABLE [CHANNEL]",
     "TABLE is a comma list (0,200,500,800,1000) or a file of numbers (@file or a path;\n"
     "commas, spaces and # comments). A table as long as the bitmap's (256 entries\n"
     "for 8-bit and colour data, 4096 for 12-bit grey, 65536 for 16-bit grey and\n"
     "48/64-bit colour) is used as given. A shorter one is a curve: evenly spaced\n"
     "control points over the input range, in per-mille of full scale, joined by\n"
     "straight lines. CHANNEL is all, red, green, blue or 0..3.",
     "0,100,500,900,1000", "uCount", &ParseRemapIntensity},
    {"Rz_ChangeHueSatIntBitmap", "[HUE] [SATURATION] [INTENSITY]",
     "The overall changes only; the per-hue-range records cannot be given here.", "6000 200 0",
     "pRanges uRangeCount", &ParseWithoutRecords},
    {"Rz_SpatialFilterBitmap", "KERNEL",
     "KERNEL is a predefined 3x3 kernel by name (emboss-n .. emboss-nw, gradient-n ..\n"
     "gradient-nw, laplace-four, laplace-eight, laplace-cross, laplace-diagonal,\n"
     "laplace-vertical, laplace-horizontal, sobel-horizontal, sobel-vertical,\n"
     "prewitt-horizontal, prewitt-vertical, shift-diagonal, shift-vertical,\n"
     "shift-horizontal, line-horizontal, line-vertical, line-rising-diagonal,\n"
     "line-falling-diagonal) or number 0..32, or DIVISOR,BIAS followed by a square\n"
     "number of coefficients row by row (9 for 3x3, 25 for 5x5).",
     "sobel-horizontal", "pKernel", &ParseSpatialFilter},
    {"Rz_UserFilterBitmap", "SIZE MATRIX [anchor=X,Y] [divisor=N] [offset=N] [type=T]",
     "SIZE is WIDTHxHEIGHT, MATRIX the coefficients row by row as a comma list. The\n"
     "anchor defaults to the centre, the divisor to the sum of the coefficients (1\n"
     "when that is not positive), the offset to 0 and the type to round (also\n"
     "truncate, or absolute for edge kernels).",
     "5x1 1,4,6,4,1", "pFilter", &ParseUserFilter},
    {"Rz_FFTBitmap", "[plane=P] [component=C] [write=W]",
     "Transforms each plane (blue, green, red, grey or all; grey pictures have one) to its\n"
     "spectrum and back, keeping the magnitude, the phase or both (component=), written\n"
     "clipped or stretched to 0..255 (write=clip|stretch). Width and height must be powers\n"
     "of two. component=phase write=stretch shows the edges the phase carries.",
     "component=phase write=stretch", "pFTArray uFFTFlags", &ParseFFT},
    {"Rz_DFTBitmap", "[plane=P] [component=C] [write=W] [rect=L,T,R,B]",
     "As fft for any size; rect= (inclusive) limits the pixels written back.",
     "component=magnitude write=stretch", "pFTArray pRange uDFTFlags", &ParseFFT},
    {"Rz_FTDisplayBitmap", "[kind=log|magnitude|phase] [plane=P]",
     "Replaces the picture by its spectrum as 8-bit grey, frequency 0 in the middle.",
     "kind=log", "pFTArray uDisplayFlags", &ParseFTDisplay},
    {"Rz_FrqFilterBitmap", "rect=L,T,R,B | radius=N [zero-inside] [array] [plane=P]",
     "Transforms, keeps only the rectangle of the spectrum (zero-inside: all but it) and\n"
     "transforms back. The rectangle is in the centred picture of ft-display (frequency 0\n"
     "at WIDTH/2, HEIGHT/2) unless 'array' is given; radius=N is the square of half-side N\n"
     "about frequency 0: a low-pass filter (a high-pass one with zero-inside).",
     "radius=24", "pFTArray prcRange uFilterFlags", &ParseFrqFilter},
    {"Rz_FrqFilterMaskBitmap", "notch=auto | notch=DX,DY[,RADIUS] | mask=FILE [plane=P]",
     "Transforms, multiplies the spectrum by a mask (255 keeps, 0 removes) and transforms\n"
     "back: the cure for periodic noise such as scanner moire or stripes. notch=auto\n"
     "removes the peaks that stand far above the spectrum outside the low frequencies;\n"
     "notch=DX,DY,R removes discs of radius R (default 2) at (DX, DY) from frequency 0 and\n"
     "their mirror images; mask=FILE uses a picture of the same size, centred like\n"
     "ft-display.",
     "notch=auto", "pFTArray uMaskFlags", &ParseFrqMask},
    // ---- Deep grey (deep_grey.cpp) ----
    {"Rz_WindowLevelBitmap", "CENTER WIDTH | auto | bits [low=BIT] [high=BIT]",
     "Shows 12/16-bit grey as 8-bit grey through a linear window: values at or below\n"
     "CENTER - WIDTH/2 black, above CENTER + WIDTH/2 white (DICOM's VOI rule), in the\n"
     "input's modality units when it is DICOM (rescale slope and intercept applied,\n"
     "MONOCHROME1 inverted). 'auto' (the default) takes the file's DICOM window, 'bits'\n"
     "the top 8 of the significant bits. low= and high= set the significant bits first.",
     "1150 700", "nLowBit nHighBit pLUT uLUTLength uMode", &ParseWindowLevel},
    // ---- end of deep grey ----
    {"Rz_TextureAlphaBlendBitmap", "SOURCE [MASK [TEXTURE]] [x=N y=N width=N height=N src-x=N src-y=N opacity=N] [offset=X,Y]",
     "SOURCE, MASK and TEXTURE are image files. The mask weighs the bitmap against the\n"
     "source (255 keeps the bitmap) from the rectangle's top-left; the texture is\n"
     "tiled from offset (default 0,0) and added to the mask around 128.",
     "@text8 @text1 @chart opacity=220 offset=5,9", "pTextureOffset", &ParseTextureBlend},
    {"Rz_AddWeightedBitmaps", "FILE... weights=W1,W2,... [flags=0|1]",
     "The input and the image files, weighted in per-mille (-100000..100000), one\n"
     "weight each in order; flags 0 divides by 1000, 1 by the sum of the weights.",
     "@chart weights=700,300", "pWeights", &ParseAddWeighted},
    {"Rz_DeskewBitmap", "[measure-only=0|1] [fill=white|black|page|0xBBGGRR] [skip-small=0|1] [quality=Q] [prefilter=0|1]",
     "Measures the skew of a text page within +-10.19 degrees (steps of about 0.22) and\n"
     "prints it (positive: the lines rise to the right); unless measure-only=1 it\n"
     "rotates the page straight. fill colours the uncovered corners (page: the page's\n"
     "most frequent grey); skip-small=1 leaves pages whose tilt moves the edge by at\n"
     "most half a percent; quality is nearest (default), bilinear or bicubic;\n"
     "prefilter=1 measures a copy whose text is grown into line blobs.",
     "fill=white", "pnAngle crBack uDeskewFlags", &ParseDeskew},
    {"Rz_DeskewBitmapExt",
     "[range=N] [resolution=N] [measure-only=0|1] [fill=...] [skip-small=0|1] [quality=Q] [prefilter=0|1]",
     "As deskew, searching up to range hundredths of a degree (0..4500, default 1000)\n"
     "in steps of resolution tenths of a degree (default 1, at most the range's\n"
     "number); prefilter defaults to 1.",
     "range=1000 resolution=1 quality=bilinear", "pnAngle nAngleRange nAngleResolution crBack uDeskewFlags",
     &ParseDeskew},
    {"Rz_SwirlBitmap", "[ANGLE] [center=X,Y]",
     "Turns the picture about the centre (default: the middle), most at the centre\n"
     "and not at all on the ellipse of the picture or region. ANGLE / 180 radians\n"
     "of turn per unit of ln(R / r); negative turns the other way.",
     "angle=400", "nCenterX nCenterY", &ParseCentred},
    {"Rz_SpherizeBitmap", "[VALUE] [FILL] [FLAGS] [center=X,Y]",
     "Sphere (positive) or hollow (negative) over the ellipse about the centre.", "value=100 flags=1",
     "nCenterX nCenterY", &ParseCentred},
    {"Rz_BendingBitmap", "[VALUE] [FILL] [FLAGS] [center=X,Y]",
     "Rows (flags 0x10: columns) bent into parabolas about the centre.", "value=200 flags=1",
     "nCenterX nCenterY", &ParseCentred},
    {"Rz_PunchBitmap", "[VALUE] [STRESS] [FILL] [FLAGS] [center=X,Y]",
     "Swells (positive) or pinches (negative) the ellipse about the centre.", "value=300 stress=500 flags=1",
     "nCenterX nCenterY", &ParseCentred},
    {"Rz_TunnelBitmap", "[Z-VALUE] [RADIUS] [ROTATION] [FILL] [FLAGS] [center=X,Y]",
     "The picture tiled over the wall of a tunnel whose far end is the centre.", "z-value=200 radius=100",
     "nCenterX nCenterY", &ParseCentred},
    {"Rz_PlaneBitmap", "[Z-VALUE] [DISTANCE] [TYPE] [FILL] [FLAGS] [center=X,Y]",
     "The picture tiled over a floor (ceiling) below (above) the centre's row.", "z-value=200 distance=60",
     "nCenterX nCenterY", &ParseCentred},
    {"Rz_PlaneBendBitmap", "[Z-VALUE] [DISTANCE] [BEND] [TYPE] [FILL] [FLAGS] [center=X,Y]",
     "As plane, with the floor curved towards the sides.", "z-value=200 distance=60 bend=400",
     "nCenterX nCenterY", &ParseCentred},
};

} // namespace

std::span<const CustomEntry> CustomEntries() { return kCustom; }

const CustomEntry *FindCustom(std::string_view exportName) {
    for (const CustomEntry &e : kCustom)
        if (exportName == e.exportName) return &e;
    return nullptr;
}

} // namespace rzimg
