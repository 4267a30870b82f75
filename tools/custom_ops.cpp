// Hand-made callers for exports that take a table or record. Each entry maps
// an export name to a parser that turns command-line words into a prepared
// call; an export without one is listed as not available from the command
// line. remap-intensity takes its table as a comma list or a file: a list as
// long as the bitmap's table is used as given, a shorter one is a curve of
// evenly spaced control points in per-mille of full scale, interpolated.
#include "tools/operations.h"

#include <algorithm>
#include <charconv>
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
};

} // namespace

std::span<const CustomEntry> CustomEntries() { return kCustom; }

const CustomEntry *FindCustom(std::string_view exportName) {
    for (const CustomEntry &e : kCustom)
        if (exportName == e.exportName) return &e;
    return nullptr;
}

} // namespace rzimg
