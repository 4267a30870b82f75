// The demo gallery: every operation the command line can reach is run with
// its registry defaults on each built-in sample, timed, and saved as PNG
// beside an index.html of before/after pictures. It walks the registry, so
// new exports appear without changes here. An operation that refuses a
// sample's depth or layout is shown as not applicable rather than failed.
#include "tools/kinds.h"
#include "tools/operations.h"
#include "tools/samples.h"
#include "tools/tool.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

namespace rzimg {
namespace {

namespace fs = std::filesystem;

bool IsFormatRefusal(int32_t st) {
    return st == ST_BAD_BITS || st == ST_BAD_PIXEL_FORMAT || st == ST_NEEDS_1BIT || st == ST_BAD_TYPE ||
           st == ST_SIGNED_NOT_SUPPORTED;
}

// 8-bit window over the significant bits of 12/16-bit grey, for browsers.
int32_t MakeGreyPreview(const BitmapDesc *src, Bitmap &out) {
    uint32_t count, mask, shift;
    int32_t st = KrnGetBitRange(src->nBitsPerPixel, src->nBitsPerPixel, src->nLowBit, src->nHighBit, &count, &mask,
                                &shift);
    if (st != KRN_OK) return st;
    if ((st = KrnInitBitmap(out.get(), BITMAPDESC_SIZE, src->nWidth, src->nHeight, 8)) != KRN_OK) return st;
    if ((st = KrnAllocBitmap(out.get())) != KRN_OK) return st;
    std::vector<uint8_t> raw(KrnBitmapRowBytes(src) + 4), row(KrnBitmapRowBytes(out.get()));
    const uint32_t sign = (src->uFlags & BMF_SIGNED) ? 1u << (count - 1) : 0;
    for (int32_t y = 0; y < src->nHeight; ++y) {
        if ((st = KrnGetBitmapRow(src, raw.data(), y, 0, static_cast<uint32_t>(raw.size()))) != KRN_OK) return st;
        for (int32_t x = 0; x < src->nWidth; ++x) {
            uint32_t word;
            if (src->nBitsPerPixel == 16) {
                word = raw[2 * x] | raw[2 * x + 1] << 8;
            } else { // 12 bits: two samples in three bytes
                const uint8_t *p = &raw[(x / 2) * 3];
                word = x % 2 ? (p[1] | p[2] << 8) >> 4 : (p[0] | p[1] << 8) & 0xFFF;
            }
            uint32_t v = ((word >> shift) & mask) ^ sign;
            row[x] = static_cast<uint8_t>((v * 255 + mask / 2) / mask);
        }
        if ((st = PutRow(out.get(), y, row)) != KRN_OK) return st;
    }
    return KRN_OK;
}

struct Saved {
    std::string shown; // picture for the page
    std::string full;  // the result as the library left it
};

// Saves stem.png and, for 12/16-bit grey, stem.view.png for display.
int32_t SaveResult(BitmapDesc *b, const fs::path &dir, const std::string &stem, Saved &saved) {
    saved.full = stem + ".png";
    const std::string fullPath = (dir / saved.full).string();
    int32_t st = Rz_SaveBitmap(fullPath.c_str(), b, nullptr);
    if (st == RZ_FILE_UNSUPPORTED) { // a depth PNG cannot hold: keep a colour copy
        Bitmap colour;
        st = KrnConvertBitmap(colour.get(), b, BITMAPDESC_SIZE, 24, KRN_ORDER_BGR, 0, 0);
        if (st == KRN_OK) st = Rz_SaveBitmap(fullPath.c_str(), colour.get(), nullptr);
    }
    if (st != KRN_OK) return st;
    saved.shown = saved.full;
    bool deepGrey = b->nColorOrder == KRN_ORDER_GRAY && (b->nBitsPerPixel == 12 || b->nBitsPerPixel == 16);
    if (!deepGrey) return KRN_OK;
    Bitmap preview;
    if (b->pLUT && (b->uFlags & BMF_USE_LUT))
        st = KrnConvertBitmap(preview.get(), b, BITMAPDESC_SIZE, 24, KRN_ORDER_BGR, 0, 0); // shown through its table
    else
        st = MakeGreyPreview(b, preview);
    if (st != KRN_OK) return st;
    saved.shown = stem + ".view.png";
    return Rz_SaveBitmap((dir / saved.shown).string().c_str(), preview.get(), nullptr);
}

std::string Html(std::string_view s) {
    std::string out;
    for (char c : s) {
        switch (c) {
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '&': out += "&amp;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

// A duration in the unit that reads best: 850 µs, 12.5 ms, 2.3 s.
std::string Ms(double ms) {
    char buf[32];
    if (ms < 1)
        std::snprintf(buf, sizeof buf, "%.0f \u00b5s", ms * 1000);
    else if (ms < 1000)
        std::snprintf(buf, sizeof buf, ms < 10 ? "%.2f ms" : ms < 100 ? "%.1f ms" : "%.0f ms", ms);
    else
        std::snprintf(buf, sizeof buf, "%.1f s", ms / 1000);
    return buf;
}

// The user's pictures in a folder as samples (sorted by name, files that do
// not load are skipped with a message).
int32_t LoadUserSamples(const std::string &folder, std::vector<Sample> &out) {
    std::error_code ec;
    std::vector<fs::path> files;
    for (const auto &e : fs::directory_iterator(folder, ec))
        if (e.is_regular_file()) files.push_back(e.path());
    if (ec) return RZ_FILE_NOT_FOUND;
    std::sort(files.begin(), files.end());
    for (const fs::path &f : files) {
        Sample s;
        const int32_t st = Rz_LoadBitmap(f.string().c_str(), s.bitmap.get(), BITMAPDESC_SIZE, 0);
        if (st != KRN_OK) {
            std::cerr << "rzimg: skipping '" << f.string() << "': " << StatusText(st) << '\n';
            continue;
        }
        s.key = "image" + std::to_string(out.size() + 1);
        s.title = f.filename().string();
        s.note = std::to_string(s.bitmap->nWidth) + " x " + std::to_string(s.bitmap->nHeight) + ", " +
                 KindName(s.bitmap.get());
        out.push_back(std::move(s));
    }
    return out.empty() ? RZ_FILE_NOT_FOUND : KRN_OK;
}

struct Cell {
    enum Kind { Done, NotApplicable, Failed } kind = Done;
    Saved saved;
    double ms = 0;
    int32_t status = ST_SUCCESS;
    std::string text;
};

struct Row {
    const rz::OpInfo *op;
    std::string args;
    std::string unavailable; // reason, when the operation was not run
    std::vector<Cell> cells;
};

// `variant` tells apart result files of one operation run with other arguments.
Cell RunOne(const PreparedCall &call, const Sample &sample, const fs::path &dir, const std::string &variant = "") {
    Cell cell;
    const int64_t blocksBefore = KrnMemOutstanding();
    {
        Bitmap work;
        int32_t st = KrnCopyBitmap(work.get(), sample.bitmap.get(), BITMAPDESC_SIZE);
        if (st != KRN_OK) {
            cell.kind = Cell::Failed;
            cell.text = "cannot copy the sample: " + StatusText(st);
            return cell;
        }
        std::string why;
        auto start = std::chrono::steady_clock::now();
        st = call.run(work.get(), why);
        cell.status = st;
        cell.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (!why.empty()) {
            // The tool explained why this picture does not suit the call (an
            // FFT of a size that is not a power of two, say): not a failure.
            cell.kind = Cell::NotApplicable;
            cell.text = why;
        } else if (IsFormatRefusal(st)) {
            cell.kind = Cell::NotApplicable;
            cell.text = StatusText(st);
        } else if (st != ST_SUCCESS && st != ST_NOTHING_TO_DO) {
            cell.kind = Cell::Failed;
            cell.text = StatusText(st);
        } else if ((st = SaveResult(work.get(), dir, call.op->cliName() + variant + "__" + sample.key, cell.saved)) != KRN_OK) {
            cell.kind = Cell::Failed;
            cell.text = "cannot save the result: " + StatusText(st);
        }
    }
    if (int64_t leaked = KrnMemOutstanding() - blocksBefore; leaked != 0 && cell.kind != Cell::Failed) {
        cell.kind = Cell::Failed;
        cell.text = std::to_string(leaked) + " memory blocks left allocated";
    }
    return cell;
}

void WritePage(std::ostream &out, const std::vector<Sample> &samples, const std::vector<Saved> &originals,
               const std::vector<Row> &rows) {
    int run = 0, results = 0, refused = 0, failed = 0;
    for (const Row &r : rows) {
        run += r.unavailable.empty();
        for (const Cell &c : r.cells) {
            results += c.kind == Cell::Done;
            refused += c.kind == Cell::NotApplicable;
            failed += c.kind == Cell::Failed;
        }
    }
    out << R"(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>rzimg demo</title>
<style>
body{font-family:system-ui,sans-serif;margin:1.5em;background:#f6f6f4;color:#222}
table{border-collapse:collapse}
th,td{border:1px solid #ccc;padding:6px;vertical-align:top;background:#fff;text-align:left}
thead th{position:sticky;top:0;background:#e8ebf3;z-index:1}
td img{max-width:220px;max-height:170px;display:block;image-rendering:auto}
.family td{background:#e8ebf3;font-weight:bold}
.op{max-width:260px}
.op small{color:#666}
.na{color:#888;font-style:italic}
.fail{color:#b00020}
.time{color:#555;font-size:85%}
.pair{display:flex;gap:4px;align-items:flex-start}
.pair figure{margin:0}
.pair img{max-width:150px;max-height:120px}
.pair figcaption{font-size:75%;color:#666}
</style></head><body>
<h1>rzimg demo</h1>
)";
    out << "<p>" << run << " of " << rows.size() << " operations of the library run on " << samples.size()
        << " built-in samples with their default arguments: " << results << " results, " << refused
        << " not applicable";
    if (failed) out << ", <span class=\"fail\">" << failed << " failed</span>";
    out << ". Each result stands beside the picture before; click it for the file. "
           "16-bit results are shown through an 8-bit window of their significant bits; the link "
           "opens the 16-bit file.</p>\n<table>\n<thead><tr><th>operation</th>";
    for (const Sample &s : samples) out << "<th>" << Html(s.title) << "</th>";
    out << "</tr></thead>\n<tbody>\n<tr><td class=\"op\"><b>original</b></td>";
    for (size_t i = 0; i < samples.size(); ++i)
        out << "<td><a href=\"" << Html(originals[i].full) << "\"><img src=\"" << Html(originals[i].shown)
            << "\" alt=\"" << Html(samples[i].title) << "\"></a><small>" << Html(samples[i].note) << "</small></td>";
    out << "</tr>\n";

    std::string family;
    for (const Row &r : rows) {
        if (family != r.op->family) {
            family = r.op->family;
            out << "<tr class=\"family\"><td colspan=\"" << samples.size() + 1 << "\">" << Html(family)
                << "</td></tr>\n";
        }
        out << "<tr><td class=\"op\"><b>" << Html(r.op->cliName()) << "</b>";
        if (!r.args.empty()) out << " <code>" << Html(r.args) << "</code>";
        out << "<br><small>" << Html(r.op->name) << "</small><br>" << Html(r.op->summary) << "</td>";
        if (!r.unavailable.empty()) {
            out << "<td class=\"na\" colspan=\"" << samples.size() << "\">" << Html(r.unavailable) << "</td></tr>\n";
            continue;
        }
        for (size_t i = 0; i < r.cells.size(); ++i) {
            const Cell &c = r.cells[i];
            switch (c.kind) {
            case Cell::Done:
                out << "<td class=\"cell\"><div class=\"pair\"><figure><a href=\"" << Html(c.saved.full)
                    << "\"><img src=\"" << Html(c.saved.shown) << "\" alt=\"after\"></a><figcaption>after</figcaption>"
                    << "</figure><figure><img src=\"" << Html(originals[i].shown)
                    << "\" alt=\"before\"><figcaption>before</figcaption></figure></div><span class=\"time\">"
                    << Ms(c.ms) << "</span></td>";
                break;
            case Cell::NotApplicable:
                out << "<td class=\"na\">not applicable<br><small>" << Html(c.text) << "</small></td>";
                break;
            case Cell::Failed:
                out << "<td class=\"fail\">failed: " << Html(c.text) << "</td>";
                break;
            }
        }
        out << "</tr>\n";
    }
    out << "</tbody></table>\n<p><small>Made by <code>rzimg demo</code>; every picture is generated by the tool "
           "itself.</small></p>\n</body></html>\n";
}

// ---- Deep grey: the phantom as a DICOM file, and a second window ----
// Writes a 12/16-bit grey sample as DICOM and reads it back; any difference
// in samples or bit range is a failure.
int32_t DicomRoundTrip(Sample &sample, const fs::path &dir) {
    const std::string name = "sample-" + sample.key + ".dcm", path = (dir / name).string();
    int32_t st = Rz_SaveBitmap(path.c_str(), sample.bitmap.get(), nullptr);
    if (st != KRN_OK) return st;
    Bitmap back;
    if ((st = Rz_LoadBitmap(path.c_str(), back.get(), BITMAPDESC_SIZE, 0)) != KRN_OK) return st;
    const BitmapDesc *a = sample.bitmap.get(), *b = back.get();
    if (b->nWidth != a->nWidth || b->nHeight != a->nHeight || b->nLowBit != a->nLowBit ||
        b->nHighBit != a->nHighBit || b->nBitsPerPixel != a->nBitsPerPixel)
        return RZ_FILE_CORRUPT;
    std::vector<uint8_t> ra(KrnBitmapRowBytes(a)), rb(ra.size());
    for (int32_t y = 0; y < a->nHeight; ++y) {
        KrnGetBitmapRow(a, ra.data(), y, 0, static_cast<uint32_t>(ra.size()));
        KrnGetBitmapRow(b, rb.data(), y, 0, static_cast<uint32_t>(rb.size()));
        if (ra != rb) return RZ_FILE_CORRUPT;
    }
    sample.note += "; also written as " + name + " (DICOM) and read back identical";
    return KRN_OK;
}

// Window levelling shows a second window (bone) below the default one.
void AddSecondWindow(std::vector<Row> &rows, const std::vector<Sample> &samples, const fs::path &dir) {
    const rz::OpInfo *op = rz::FindOperation("Rz_WindowLevelBitmap");
    auto first = std::find_if(rows.begin(), rows.end(), [op](const Row &r) { return r.op == op; });
    PreparedCall call;
    std::string error;
    const std::vector<std::string> words{"3000", "2400"};
    if (!op || first == rows.end() || !PrepareCall(*op, words, call, error)) return;
    Row row{op, call.args, {}, {}};
    for (const Sample &s : samples) row.cells.push_back(RunOne(call, s, dir, "-2"));
    rows.insert(first + 1, std::move(row));
}
// ---- end of deep grey ----

} // namespace

int RunDemo(const std::string &dirName, bool quiet, const std::string &images) {
    const fs::path dir = dirName;
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (ec || !fs::is_directory(dir)) {
        std::cerr << "rzimg: cannot create the folder '" << dirName << "': " << ec.message() << '\n';
        return kExitFailure;
    }

    std::vector<Sample> samples;
    if (!images.empty()) {
        if (LoadUserSamples(images, samples) != KRN_OK) {
            std::cerr << "rzimg: --images: no picture in '" << images << "' could be loaded\n";
            return kExitFailure;
        }
    } else if (int32_t st = MakeSamples(samples); st != KRN_OK) {
        std::cerr << "rzimg: cannot make the sample images: " << StatusText(st) << '\n';
        return kExitFailure;
    }
    for (Sample &s : samples) {
        const bool deep = s.bitmap->nColorOrder == KRN_ORDER_GRAY && s.bitmap->nBitsPerPixel >= 12;
        if (int32_t st = deep ? DicomRoundTrip(s, dir) : KRN_OK; st != KRN_OK) {
            std::cerr << "rzimg: the sample '" << s.key << "' does not survive DICOM: " << StatusText(st) << '\n';
            return kExitFailure;
        }
    }
    std::vector<Saved> originals(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        if (int32_t st = SaveResult(samples[i].bitmap.get(), dir, "sample-" + samples[i].key, originals[i]);
            st != KRN_OK) {
            std::cerr << "rzimg: cannot write the sample '" << (dir / ("sample-" + samples[i].key + ".png")).string()
                      << "': " << StatusText(st) << '\n';
            return kExitFailure;
        }
    }

    std::vector<Row> rows;
    int failures = 0;
    for (const rz::OpInfo &op : rz::Operations()) {
        Row row{&op, {}, {}, {}};
        PreparedCall call;
        std::string error;
        Reach reach = Reachability(op);
        const CustomEntry *custom = FindCustom(op.name);
        if (reach == Reach::Unavailable) {
            row.unavailable = "not available from the command line: it " + UnavailableReason(op);
        } else if (custom && !custom->demoWords) {
            row.unavailable = "needs arguments of its own; see 'rzimg help " + op.cliName() + "'";
        } else {
            std::vector<std::string> words;
            if (custom) {
                std::istringstream in(custom->demoWords);
                // @key names a built-in sample's file.
                for (std::string w; in >> w;)
                    words.push_back(w.starts_with('@') ? (dir / ("sample-" + w.substr(1) + ".png")).string() : w);
            } else {
                // Operations on two or more bitmaps take the colour chart as the other image.
                for (const rz::ParamInfo &p : op.params)
                    if ((p.kind == rz::ParamKind::Source && !p.nullable) || p.kind == rz::ParamKind::List)
                        words.push_back((dir / "sample-chart.png").string());
            }
            if (!PrepareCall(op, words, call, error)) {
                row.unavailable = "cannot prepare the call: " + error;
            } else {
                row.args = call.args;
                for (const Sample &s : samples) row.cells.push_back(RunOne(call, s, dir));
                // Some exports refuse a kind of bitmap with -13 (a grey picture
                // for a colour operation); when the same arguments worked on
                // another sample, it was the sample that did not suit.
                bool anyDone = std::any_of(row.cells.begin(), row.cells.end(),
                                           [](const Cell &c) { return c.kind == Cell::Done; });
                for (Cell &c : row.cells)
                    if (anyDone && c.kind == Cell::Failed && c.status == ST_INVALID_PARAMETER)
                        c.kind = Cell::NotApplicable;
            }
        }
        if (!quiet) {
            std::cout << op.cliName();
            if (!row.args.empty()) std::cout << " (" << row.args << ")";
            std::cout << ':';
            if (!row.unavailable.empty()) std::cout << ' ' << row.unavailable;
            for (size_t i = 0; i < row.cells.size(); ++i) {
                const Cell &c = row.cells[i];
                std::cout << ' ' << samples[i].key << ' '
                          << (c.kind == Cell::Done ? Ms(c.ms) : c.kind == Cell::NotApplicable ? "n/a" : "FAILED")
                          << (i + 1 < row.cells.size() ? "," : "");
            }
            std::cout << std::endl;
        }
        for (const Cell &c : row.cells) failures += c.kind == Cell::Failed;
        rows.push_back(std::move(row));
    }

    AddSecondWindow(rows, samples, dir);
    const fs::path index = dir / "index.html";
    const fs::path temp = dir / "index.html.tmp";
    {
        std::ofstream out(temp);
        WritePage(out, samples, originals, rows);
        if (!out.flush()) {
            std::cerr << "rzimg: cannot write '" << index.string() << "'\n";
            fs::remove(temp, ec);
            return kExitFailure;
        }
    }
    fs::rename(temp, index, ec);
    if (ec) {
        std::cerr << "rzimg: cannot write '" << index.string() << "': " << ec.message() << '\n';
        return kExitFailure;
    }
    std::cout << "gallery: " << fs::absolute(index).lexically_normal().string() << '\n';
    if (failures) std::cerr << "rzimg: " << failures << " results failed; see the gallery\n";
    return failures ? kExitFailure : kExitOk;
}

} // namespace rzimg
