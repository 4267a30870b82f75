// Window levelling from the command line builds the display table the
// library's Rz_WindowLevelBitmap takes: one grey entry per significant value
// (offset by half the range for signed samples, as the library indexes it),
// mapped through the rescale of a DICOM input and the linear window of
// DICOM's VOI rule (centre c, width w: 0 at or below c - 0.5 - (w - 1) / 2,
// 255 above c - 0.5 + (w - 1) / 2, a straight line between); MONOCHROME1
// is inverted so that the picture looks as intended.
#include "tools/deep_grey.h"

#include "tools/tool.h"

#include <rzfil.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <vector>

namespace rzimg {
namespace {

struct ChainInput {
    bool dicom = false;
    RzDicomInfo info{};
};

ChainInput &Input() {
    static ChainInput input;
    return input;
}

bool ParseDouble(std::string_view text, double &v) {
    if (text.starts_with('+')) text.remove_prefix(1);
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    return !text.empty() && ec == std::errc() && end == text.data() + text.size() && std::isfinite(v);
}

bool ParseBit(std::string_view text, int32_t &v) {
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    return !text.empty() && ec == std::errc() && end == text.data() + text.size() && v >= -1 && v <= 15;
}

uint8_t Linear(double m, double c, double w) {
    if (m <= c - 0.5 - (w - 1) / 2) return 0;
    if (m > c - 0.5 + (w - 1) / 2) return 255;
    return static_cast<uint8_t>(std::lround(((m - (c - 0.5)) / (w - 1) + 0.5) * 255));
}

} // namespace

void SetChainInput(const std::string &path) {
    ChainInput &in = Input();
    in.info = RzDicomInfo{};
    in.info.uStructSize = sizeof in.info;
    in.dicom = Rz_GetDicomInfo(path.c_str(), &in.info) == KRN_OK;
}

bool ParseWindowLevel(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                      std::string &error) {
    const std::string usage = "window-level: give CENTER WIDTH (width 1 or more), 'auto' (the file's DICOM window), "
                              "or 'bits' (the top 8 significant bits), then optionally low=BIT high=BIT";
    std::vector<double> numbers;
    bool bits = false, automatic = false;
    int32_t low = -2, high = -2; // -2: the bitmap's own
    for (const std::string &w : words) {
        double v = 0;
        if (w.starts_with("low=") || w.starts_with("high=")) {
            int32_t &slot = w[0] == 'l' ? low : high;
            if (!ParseBit(std::string_view(w).substr(w.find('=') + 1), slot)) {
                error = "window-level: " + w + " is not a bit 0..15 (or -1)";
                return false;
            }
        } else if (w == "bits" || w == "auto") {
            (w == "bits" ? bits : automatic) = true;
        } else if (ParseDouble(w, v) && numbers.size() < 2) {
            numbers.push_back(v);
        } else {
            error = usage + "; '" + w + "' is none of these";
            return false;
        }
    }
    if (numbers.size() == 1 || (numbers.size() == 2 && numbers[1] < 1) || (bits + automatic + !numbers.empty()) > 1) {
        error = usage;
        return false;
    }
    call.op = &op;
    call.args = bits ? "bits" : numbers.empty() ? "auto" : "center=" + words[0] + " width=" + words[1];
    if (low != -2) call.args += " low=" + std::to_string(low);
    if (high != -2) call.args += " high=" + std::to_string(high);
    call.run = [&op, numbers, bits, low, high](BitmapDesc *b, std::string &) -> int32_t {
        // Other depths are refused as a format, so the gallery shows them as not applicable.
        if (b->nColorOrder != KRN_ORDER_GRAY || (b->nBitsPerPixel != 12 && b->nBitsPerPixel != 16))
            return ST_BAD_PIXEL_FORMAT;
        const ChainInput &in = Input();
        const int32_t top = b->nBitsPerPixel - 1;
        const int32_t lo = std::max(low != -2 ? low : b->nLowBit, 0);
        int32_t hi = b->nHighBit == -1 ? top : b->nHighBit;
        if (high != -2) hi = high < 0 ? top : high;
        double c = 0, w = 0;
        if (!numbers.empty()) {
            c = numbers[0];
            w = numbers[1];
        } else if (!bits && in.dicom && in.info.bHasWindow && in.info.dWindowWidth >= 1) {
            c = in.info.dWindowCenter;
            w = in.info.dWindowWidth;
        }
        std::vector<RzRGBQuad> table;
        if (w >= 1 && hi >= lo && hi - lo < 16) {
            const uint32_t k = uint32_t(hi - lo + 1), n = 1u << k;
            const int64_t half = (b->uFlags & BMF_SIGNED) ? n / 2 : 0;
            const double slope = in.dicom ? in.info.dRescaleSlope : 1, icept = in.dicom ? in.info.dRescaleIntercept : 0;
            const bool invert = in.dicom && std::string_view(in.info.szPhotometric).starts_with("MONOCHROME1");
            table.resize(n);
            for (uint32_t i = 0; i < n; ++i) {
                uint8_t g = Linear(double(int64_t(i) - half) * slope + icept, c, w);
                if (invert) g = uint8_t(255 - g);
                table[i] = {g, g, g, 0};
            }
        }
        rz::Arg args[6];
        args[0].p = b;
        args[1].i = lo;
        args[2].i = hi;
        args[3].p = table.empty() ? nullptr : table.data();
        args[4].i = int64_t(table.size());
        args[5].i = 0;
        return op.invoke(args);
    };
    return true;
}

std::string DicomDetails(const std::string &path) {
    RzDicomInfo d{};
    d.uStructSize = sizeof d;
    if (Rz_GetDicomInfo(path.c_str(), &d) != KRN_OK) return {};
    std::ostringstream s;
    s << ", DICOM " << d.szPhotometric << ", bits " << d.nHighBit - d.nBitsStored + 1 << ".." << d.nHighBit
      << (d.bSigned ? " signed" : " unsigned");
    if (d.bHasRescale) s << ", rescale " << d.dRescaleSlope << " x + " << d.dRescaleIntercept;
    if (d.bHasWindow) s << ", window centre " << d.dWindowCenter << " width " << d.dWindowWidth;
    else s << ", no window";
    return s.str();
}

int PrintStatistics(std::ostream &out, BitmapDesc *b, const std::string &name, const std::vector<std::string> &words) {
    static const char *const kChannels[] = {"all", "red", "green", "blue"};
    uint32_t channel = 0;
    int64_t range[2] = {0, 65535};
    size_t next = 0;
    auto fail = [&](const std::string &why) {
        std::cerr << "rzimg: stats: " << why << "\n(run 'rzimg --help' for usage)\n";
        return kExitUsage;
    };
    if (!words.empty()) {
        auto named = std::find(std::begin(kChannels), std::end(kChannels), words[0]);
        if (named != std::end(kChannels)) {
            channel = uint32_t(named - std::begin(kChannels));
            next = 1;
        }
    }
    if (words.size() - next != 0 && words.size() - next != 2)
        return fail("expected [CHANNEL] [START END], CHANNEL all, red, green or blue");
    for (size_t i = 0; next + i < words.size(); ++i) {
        const std::string &w = words[next + i];
        auto [end, ec] = std::from_chars(w.data(), w.data() + w.size(), range[i]);
        if (ec != std::errc() || end != w.data() + w.size() || range[i] < 0 || range[i] > 65535)
            return fail("'" + w + "' is not a value 0..65535");
    }
    if (range[1] < range[0]) return fail("the range ends before it starts");
    StatisticsInfo s{};
    const int32_t st = Rz_GetBitmapStatisticsInfo(b, &s, channel, uint32_t(range[0]), uint32_t(range[1]));
    if (st != ST_SUCCESS) {
        std::cerr << "rzimg: stats of '" << name << "' failed: " << StatusText(st) << '\n';
        return kExitFailure;
    }
    const bool deep = b->nColorOrder == KRN_ORDER_GRAY && (b->nBitsPerPixel == 12 || b->nBitsPerPixel == 16);
    out << name << ": channel " << kChannels[channel] << ", values " << range[0] << ".." << range[1];
    if (deep)
        out << " (" << b->nBitsPerPixel << "-bit units; significant bits " << std::max(b->nLowBit, 0) << ".."
            << b->nHighBit << ")";
    out << "\n  count   " << s.uPixelCount << " of " << s.uTotalCount << std::fixed << std::setprecision(2) << " ("
        << s.uPercent / 100.0 << " %)\n"
        << "  min     " << s.uMin << "\n  max     " << s.uMax << "\n  median  " << s.uMedian << "\n  mean    "
        << s.uMean / 100.0 << "\n  std dev " << s.uStdDev / 100.0 << '\n';
    return kExitOk;
}

} // namespace rzimg
