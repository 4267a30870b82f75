// rzimg: runs a chain of the image library's operations on a file, lists and
// explains them, describes files and builds the demo gallery. Everything it
// knows about operations comes from the registry; the words of a chain are
// split at operation names, so an operation's arguments are simply the words
// up to the next operation name. All arguments are checked before the input
// is read, and the output is written only after the whole chain succeeded.
#include "tools/bitmap.h"
#include "tools/deep_grey.h"
#include "tools/kinds.h"
#include "tools/operations.h"
#include "tools/progress.h"
#include "tools/tool.h"

#include <rzdis.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace rzimg {
namespace {

const char kUsage[] =
    "usage: rzimg [OPTIONS] INPUT OPERATION [ARG...] [OPERATION [ARG...]]... OUTPUT\n"
    "       rzimg list                 every operation with its arguments and ranges\n"
    "       rzimg help OPERATION       one operation in detail\n"
    "       rzimg info FILE...         size, depth, format and pages of image files\n"
    "       rzimg stats [OPTIONS] FILE [CHANNEL] [START END]\n"
    "                                  count, share, min, max, median, mean and deviation\n"
    "                                  of a value range (12/16-bit grey in full-scale units)\n"
    "       rzimg demo [DIR]           sample images, every operation, DIR/index.html\n"
    "                                  (DIR defaults to ./demo-out); with\n"
    "                                  --images FOLDER, the pictures in FOLDER\n"
    "\n"
    "Arguments are positional in the order 'rzimg help OPERATION' shows, optional\n"
    "from the right, or name=value. Files: PNG, JPEG, TIFF, PBM/PGM/PPM, DICOM (.dcm), chosen by\n"
    "the output's extension.\n"
    "\n"
    "options:\n"
    "  --region x,y,w,h    restrict the chain to a rectangle\n"
    "  --ellipse x,y,w,h   restrict the chain to the ellipse inside a rectangle\n"
    "                      (several shapes add up)\n"
    "  --page N            page of a multi-page input, from 0 ('rzimg info' lists them)\n"
    "  --quality N         JPEG quality 1..100\n"
    "  --quiet             no progress bar or messages other than errors\n"
    "\n"
    "Transparency, resolution, the colour profile and EXIF data travel to the\n"
    "output where its format holds them (a note says what is dropped); EXIF\n"
    "orientation is applied, so the output is upright. Writing over a symbolic\n"
    "link replaces the file it points to.\n"
    "\n"
    "exit status: 0 done, 1 failed, 2 usage error, 130 cancelled (Ctrl-C or\n"
    "SIGTERM: nothing is written and an existing OUTPUT stays as it was).\n";

int Usage(const std::string &message) {
    std::cerr << "rzimg: " << message << "\n(run 'rzimg --help' for usage)\n";
    return kExitUsage;
}

int Failure(const std::string &message) {
    std::cerr << "rzimg: " << message << '\n';
    return kExitFailure;
}

std::string Suggestions(std::string_view word) {
    std::string out;
    for (const rz::OpInfo &op : rz::Operations()) {
        std::string name = op.cliName();
        bool near = word.size() >= 3 && (name.find(word) != std::string::npos || word.find(name) != std::string::npos);
        if (!near) {
            // Same first word (change-...) counts as near as well.
            auto dash = name.find('-');
            near = dash != std::string::npos && word.starts_with(name.substr(0, dash + 1));
        }
        if (near) out += (out.empty() ? "" : ", ") + name;
    }
    return out.empty() ? std::string() : "; did you mean " + out + "?";
}

int UnknownOperation(std::string_view word) {
    return Usage("unknown operation '" + std::string(word) + "'" + Suggestions(word) +
                 " (see 'rzimg list')");
}

struct Shape {
    bool ellipse;
    RzRect rect;
    std::string text; // as given, for messages
};

struct Options {
    bool quiet = false;
    int page = 0;
    int quality = 0;
    std::string images; // demo: the user's pictures
    std::vector<Shape> shapes;
    std::vector<std::string> positional;
};

bool ParseInt(std::string_view text, int64_t &v) {
    if (text.starts_with('+')) text.remove_prefix(1);
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    return !text.empty() && ec == std::errc() && end == text.data() + text.size();
}

bool ParseRect(const std::string &option, const std::string &text, RzRect &rect, std::string &error) {
    int64_t v[4];
    size_t start = 0;
    int n = 0;
    bool ok = true;
    while (ok && n < 4) {
        size_t comma = text.find(',', start);
        std::string_view part = std::string_view(text).substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        ok = ParseInt(part, v[n]) && v[n] >= -(1 << 30) && v[n] <= (1 << 30);
        ++n;
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (!ok || n != 4 || start > text.size() || text.find(',', start) != std::string::npos ||
        text.back() == ',' || v[2] <= 0 || v[3] <= 0) {
        error = option + ": expected x,y,w,h with a width and height above 0, got '" + text + "'";
        return false;
    }
    rect = {static_cast<int32_t>(v[0]), static_cast<int32_t>(v[1]), static_cast<int32_t>(v[0] + v[2]),
            static_cast<int32_t>(v[1] + v[3])};
    return true;
}

// Splits options from positional words; negative numbers stay positional.
bool ParseOptions(int argc, char **argv, int first, Options &opt, std::string &error) {
    bool optionsDone = false;
    for (int i = first; i < argc; ++i) {
        std::string word = argv[i];
        bool isOption = !optionsDone && word.size() > 1 && word[0] == '-' && !std::isdigit(static_cast<unsigned char>(word[1]));
        if (!isOption) {
            opt.positional.push_back(word);
            continue;
        }
        if (word == "--") {
            optionsDone = true;
            continue;
        }
        std::string name = word, value;
        bool hasValue = false;
        if (auto eq = word.find('='); eq != std::string::npos && word.starts_with("--")) {
            name = word.substr(0, eq);
            value = word.substr(eq + 1);
            hasValue = true;
        }
        auto takeValue = [&]() {
            if (hasValue) return true;
            if (i + 1 >= argc) {
                error = name + " needs a value";
                return false;
            }
            value = argv[++i];
            return true;
        };
        if (name == "--quiet" || name == "-q") {
            opt.quiet = true;
        } else if (name == "--region" || name == "--ellipse") {
            Shape s{name == "--ellipse", {}, {}};
            if (!takeValue() || !ParseRect(name, value, s.rect, error)) return false;
            s.text = name + " " + value;
            opt.shapes.push_back(s);
        } else if (name == "--images") {
            if (!takeValue()) return false;
            opt.images = value;
        } else if (name == "--page" || name == "--quality") {
            int64_t v;
            if (!takeValue()) return false;
            bool page = name == "--page";
            if (!ParseInt(value, v) || v < (page ? 0 : 1) || v > (page ? 1000000 : 100)) {
                error = name + ": expected " + (page ? "a page number from 0" : "a quality 1..100") + ", got '" +
                        value + "'";
                return false;
            }
            (page ? opt.page : opt.quality) = static_cast<int>(v);
        } else {
            error = "unknown option '" + word + "'";
            return false;
        }
    }
    return true;
}

bool HasImageExtension(const std::string &path) {
    auto dot = path.rfind('.');
    auto slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string ext = path.substr(dot + 1);
    for (char &c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char *known : {"png", "jpg", "jpeg", "tif", "tiff", "pbm", "pgm", "ppm", "pnm", "dcm"})
        if (ext == known) return true;
    return false;
}

// The --region / --ellipse shapes as the bitmap's region.
int ApplyShapes(const Options &opt, Bitmap &bitmap, const std::string &input) {
    for (size_t s = 0; s < opt.shapes.size(); ++s) {
        const Shape &shape = opt.shapes[s];
        const RzRect &r = shape.rect;
        if (r.left >= bitmap->nWidth || r.top >= bitmap->nHeight || r.right <= 0 || r.bottom <= 0)
            return Usage(shape.text + " lies outside the " + std::to_string(bitmap->nWidth) + "x" +
                         std::to_string(bitmap->nHeight) + " image '" + input + "'");
        int32_t combine = s == 0 ? DIS_RGN_SET : DIS_RGN_OR;
        int32_t st = shape.ellipse ? DisSetRegionEllipse(bitmap.get(), &r, combine) : DisSetRegionRect(bitmap.get(), &r, combine);
        if (st != KRN_OK) return Failure("cannot set " + shape.text + ": " + StatusText(st));
    }
    return kExitOk;
}

int RunChain(const Options &opt) {
    const std::vector<std::string> &pos = opt.positional;
    if (pos.size() < 2) return Usage("expected INPUT, operations and OUTPUT");
    const std::string &input = pos.front(), &output = pos.back();
    if (LookupOperation(output)) return Usage("missing OUTPUT after the operation '" + output + "'");
    if (!HasImageExtension(output))
        return Usage("OUTPUT '" + output + "' needs an image extension (.png, .jpg, .tif, .pbm, .pgm, .ppm)");

    // Words between input and output: an operation name, then its arguments.
    std::vector<PreparedCall> calls;
    size_t i = 1;
    while (i + 1 < pos.size()) {
        const rz::OpInfo *op = LookupOperation(pos[i]);
        if (!op) return UnknownOperation(pos[i]);
        size_t j = i + 1;
        while (j + 1 < pos.size() && !LookupOperation(pos[j])) ++j;
        PreparedCall call;
        std::string error;
        if (!PrepareCall(*op, std::span(pos).subspan(i + 1, j - i - 1), call, error)) return Usage(error);
        calls.push_back(std::move(call));
        i = j;
    }

    // Loading, every operation and saving are steps of one progress run, so
    // Ctrl-C or SIGTERM stops any of them.
    const int steps = static_cast<int>(calls.size()) + 2;
    Progress progress(!opt.quiet, steps);
    auto cancelled = [&](const std::string &during) {
        progress.clear();
        std::cerr << "rzimg: cancelled " << during << "; '" << output << "' "
                  << (access(output.c_str(), F_OK) == 0 ? "was left as it was" : "was not written") << '\n';
        return kExitCancelled;
    };
    auto stopped = [](int32_t st) { return st == kCancelStatus || Progress::cancelled(); };

    Bitmap bitmap;
    progress.begin(0, "loading " + input, "load");
    int32_t st = Rz_LoadBitmap(input.c_str(), bitmap.get(), BITMAPDESC_SIZE, opt.page);
    if (stopped(st)) return cancelled("while loading '" + input + "'");
    if (st == RZ_FILE_BAD_PAGE) {
        RzFileInfo info{};
        info.uStructSize = sizeof info;
        progress.clear();
        if (Rz_GetFileInfo(input.c_str(), &info) == KRN_OK)
            return Usage("--page " + std::to_string(opt.page) + ": '" + input + "' has " +
                         std::to_string(info.nPages) + (info.nPages == 1 ? " page (--page 0)" : " pages (--page 0 to " +
                         std::to_string(info.nPages - 1) + ")"));
    }
    if (st != KRN_OK) {
        progress.clear();
        return Failure("cannot load '" + input + "': " + StatusText(st));
    }

    SetChainInput(input);
    if (!opt.shapes.empty()) progress.clear();
    if (int code = ApplyShapes(opt, bitmap, input); code != kExitOk) return code;

    for (size_t c = 0; c < calls.size(); ++c) {
        const std::string name = calls[c].op->cliName();
        progress.begin(static_cast<int>(c) + 1, name);
        std::string why;
        st = calls[c].run(bitmap.get(), why);
        if (!why.empty()) {
            progress.clear();
            return Usage(why);
        }
        if (stopped(st)) return cancelled("during " + name);
        if (st != ST_SUCCESS && st != ST_NOTHING_TO_DO) {
            progress.clear();
            const std::string refusal = ExplainRefusal(calls[c], st, bitmap.get(), input);
            if (!refusal.empty()) return Failure(refusal);
            return Failure(name + " (" + calls[c].args + ") failed on '" + input + "': " + StatusText(st));
        }
    }
    if (Progress::cancelled()) return cancelled("before writing");
    if (DisBitmapHasRegion(bitmap.get())) DisFreeRegion(bitmap.get());

    RzSaveOptions save{sizeof(RzSaveOptions), RZ_FMT_UNKNOWN, opt.quality, RZ_TIFF_NONE};
    uint32_t notes = 0;
    progress.begin(steps - 1, "writing " + output, "save");
    if (!opt.quiet && Rz_GetSaveNotes(output.c_str(), bitmap.get(), &save, &notes) == KRN_OK && notes) {
        progress.clear();
        if (notes & RZ_SAVE_NOTE_GREY)
            std::cerr << "rzimg: note: '" << output << "' holds grey only; colours are converted to grey as "
                      << "(77 red + 150 green + 29 blue) / 256\n";
        if (notes & RZ_SAVE_NOTE_ALPHA)
            std::cerr << "rzimg: note: '" << output << "' cannot hold transparency; it is dropped\n";
        if (notes & RZ_SAVE_NOTE_METADATA)
            std::cerr << "rzimg: note: '" << output << "' cannot hold the colour profile or EXIF data; they are dropped\n";
    }
    st = Rz_SaveBitmap(output.c_str(), bitmap.get(), &save);
    if (stopped(st) && st != KRN_OK) return cancelled("while writing");
    progress.clear();
    if (st != KRN_OK)
        return Failure("cannot write '" + output + "' (" + KindName(bitmap.get()) + " image): " + StatusText(st));
    if (!opt.quiet && isatty(STDERR_FILENO)) std::cerr << "rzimg: wrote " << output << '\n';
    return kExitOk;
}

int List() {
    std::cout << "Operations of the image library (" << rz::Operations().size()
              << "); 'rzimg help NAME' shows one in detail.\n";
    std::string family;
    for (const rz::OpInfo &op : rz::Operations()) {
        if (family != op.family) {
            family = op.family;
            std::cout << "\n== " << family << " ==\n";
        }
        DescribeOperation(std::cout, op, false);
    }
    return kExitOk;
}

int Help(const std::vector<std::string> &words) {
    if (words.empty()) {
        std::cout << kUsage;
        return kExitOk;
    }
    int status = kExitOk;
    for (const std::string &w : words) {
        const rz::OpInfo *op = LookupOperation(w);
        if (!op) {
            status = UnknownOperation(w);
            continue;
        }
        DescribeOperation(std::cout, *op, true);
    }
    return status;
}

const char *FormatName(int32_t f) {
    switch (f) {
    case RZ_FMT_PNG: return "PNG";
    case RZ_FMT_JPEG: return "JPEG";
    case RZ_FMT_TIFF: return "TIFF";
    case RZ_FMT_PBM: return "PBM";
    case RZ_FMT_PGM: return "PGM";
    case RZ_FMT_PPM: return "PPM";
    case RZ_FMT_DICOM: return "DICOM";
    default: return "unknown format";
    }
}

// One page: kind, size and what travels with the pixels.
void DescribePage(std::ostream &out, const RzFileInfo &info) {
    out << info.nWidth << " x " << info.nHeight << ", " << info.nBitsPerPixel
        << (info.nBitsPerPixel == 1 ? " bit" : " bits") << " per pixel";
    if (info.nColorOrder == KRN_ORDER_GRAY)
        out << ", grey";
    else if (info.nBitsPerPixel <= 8)
        out << ", indexed";
    else
        out << ", colour" << (info.nColorOrder == KRN_ORDER_RGB ? " (red first)" : " (blue first)");
    if (info.bAlpha) out << " with alpha";
    if (info.nSignificantBits > 0 && info.nSignificantBits != info.nBitsPerPixel)
        out << ", " << info.nSignificantBits << " significant bits";
    if (info.dXResolution > 0) {
        auto number = [](double v) {
            char text[32];
            std::snprintf(text, sizeof text, "%.6g", std::round(v * 100) / 100);
            return std::string(text);
        };
        const char *unit = info.nResolutionUnit == KRN_RES_INCH ? " dpi" : info.nResolutionUnit == KRN_RES_CM ? " dots/cm" : "";
        out << ", " << (info.nResolutionUnit == KRN_RES_NONE ? "pixel aspect " : "");
        if (info.dXResolution == info.dYResolution && info.nResolutionUnit != KRN_RES_NONE)
            out << number(info.dXResolution) << unit;
        else
            out << number(info.dXResolution) << (info.nResolutionUnit == KRN_RES_NONE ? ":" : " x ")
                << number(info.dYResolution) << unit;
        if (info.nResolutionUnit == KRN_RES_CM) out << " (" << number(info.dXResolution * 2.54) << " dpi)";
    }
    if (info.nIccBytes) out << ", colour profile (" << info.nIccBytes << " bytes)";
    if (info.nExifBytes) out << ", EXIF (" << info.nExifBytes << " bytes)";
    if (info.nOrientation != 1) out << ", orientation " << info.nOrientation << " (loads upright)";
}

int Info(const std::vector<std::string> &files) {
    if (files.empty()) return Usage("info needs a FILE");
    int status = kExitOk;
    for (const std::string &f : files) {
        RzFileInfo info{};
        info.uStructSize = sizeof info;
        int32_t st = Rz_GetFileInfo(f.c_str(), &info);
        if (st != KRN_OK) {
            status = Failure("cannot read '" + f + "': " + StatusText(st));
            continue;
        }
        std::cout << f << ": " << FormatName(info.nFormat) << ", ";
        DescribePage(std::cout, info);
        std::cout << ", " << info.nPages << (info.nPages == 1 ? " page" : " pages");
        if (info.nFormat == RZ_FMT_DICOM) std::cout << DicomDetails(f);
        std::cout << '\n';
        for (int32_t page = 1; info.nPages > 1 && page < info.nPages; ++page) {
            RzFileInfo more{};
            more.uStructSize = sizeof more;
            if (page == 1) {
                std::cout << "  page 0: ";
                DescribePage(std::cout, info);
                std::cout << '\n';
            }
            st = Rz_GetFilePageInfo(f.c_str(), page, &more);
            std::cout << "  page " << page << ": ";
            if (st == KRN_OK)
                DescribePage(std::cout, more);
            else
                std::cout << "cannot be read: " << StatusText(st);
            std::cout << '\n';
        }
    }
    return status;
}

// `rzimg stats FILE [CHANNEL] [START END]`, inside the --region shapes.
int Stats(const Options &opt) {
    if (opt.positional.empty()) return Usage("stats needs a FILE");
    const std::string &input = opt.positional.front();
    Bitmap bitmap;
    int32_t st = Rz_LoadBitmap(input.c_str(), bitmap.get(), BITMAPDESC_SIZE, opt.page);
    if (st != KRN_OK) return Failure("cannot load '" + input + "': " + StatusText(st));
    if (int code = ApplyShapes(opt, bitmap, input); code != kExitOk) return code;
    return PrintStatistics(std::cout, bitmap.get(), input,
                           std::vector<std::string>(opt.positional.begin() + 1, opt.positional.end()));
}

int Main(int argc, char **argv) {
    if (argc < 2) {
        std::cerr << kUsage;
        return kExitUsage;
    }
    std::string command = argv[1];
    if (command == "--help" || command == "-h") {
        std::cout << kUsage;
        return kExitOk;
    }
    bool sub = command == "list" || command == "help" || command == "info" || command == "demo" || command == "stats";
    Options opt;
    std::string error;
    if (!ParseOptions(argc, argv, sub ? 2 : 1, opt, error)) return Usage(error);
    if (command == "list") {
        if (!opt.positional.empty()) return Usage("list takes no arguments");
        return List();
    }
    if (command == "help") return Help(opt.positional);
    if (command == "info") return Info(opt.positional);
    if (command == "stats") return Stats(opt);
    if (command == "demo") {
        if (opt.positional.size() > 1) return Usage("demo takes one DIR at most");
        return RunDemo(opt.positional.empty() ? "demo-out" : opt.positional[0], opt.quiet, opt.images);
    }
    if (!opt.images.empty()) return Usage("--images is for 'rzimg demo'");
    return RunChain(opt);
}

} // namespace
} // namespace rzimg

int main(int argc, char **argv) { return rzimg::Main(argc, argv); }
