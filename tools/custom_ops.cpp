// Hand-made callers for exports that take a table or record. Each entry maps
// an export name to a parser that turns command-line words into a prepared
// call; an export without one is listed as not available from the command
// line. remap-intensity takes its table as a comma list or a file: a list as
// long as the bitmap's table is used as given, a shorter one is a curve of
// evenly spaced control points in per-mille of full scale, interpolated.
#include "tools/operations.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
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
};

} // namespace

std::span<const CustomEntry> CustomEntries() { return kCustom; }

const CustomEntry *FindCustom(std::string_view exportName) {
    for (const CustomEntry &e : kCustom)
        if (exportName == e.exportName) return &e;
    return nullptr;
}

} // namespace rzimg
