// The frame's speed in one run, on 4096 x 4096 bitmaps, one thread:
//  - every row of each view read and written through the row context (as
//    operations do), against the same in view 1: 8-bit grey, 16-bit grey,
//    24-bit and 48-bit colour; and, to show where a view 5 pass spends its
//    time, the kernel's band reads and writes alone;
//  - Rz_GaussianFilterBitmap at radius 20 and 100 against cv::GaussianBlur
//    (same sigma and taps, replicated borders) on 8-bit grey and 24-bit;
//  - the point operations (Rz_ChangeBitmapIntensity, Rz_InvertBitmap)
//    against cv::LUT with the same tables;
//  - a memcpy of the pixels, the floor of any pass over the picture.
// The table at the end gives each ratio (CPU time) beside its goal.
#include "bench_picture.h"
#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"

#include <rzimg.h>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using rzbench::kSide;

struct Layout {
    const char *name;
    int32_t bits;
    bool grey;
    uint32_t mode; // row context mode an operation would use
};
const Layout kLayouts[] = {
    {"grey8", 8, true, rz::RC_WHOLE_BITMAP | rz::RC_WORK8},
    {"grey16", 16, true, rz::RC_WHOLE_BITMAP},
    {"bgr24", 24, false, rz::RC_WHOLE_BITMAP},
    {"bgr48", 48, false, rz::RC_WHOLE_BITMAP},
};

using Image = rzbench::BenchBitmap;

cv::Mat AsMat(Image &img, uint8_t *data) {
    return cv::Mat(kSide, kSide, img.desc()->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, data, img.desc()->nStride);
}
cv::Mat Source(Image &img) { return AsMat(img, img.pristine()); }
cv::Mat Pixels(Image &img) { return AsMat(img, img.desc()->pData); }

Image &Shared(const Layout &l) {
    static std::map<std::string, std::unique_ptr<Image>> images;
    auto &slot = images[l.name];
    if (!slot) slot = std::make_unique<Image>(l.bits, l.grey, rzbench::Picture::Noise);
    return *slot;
}

void Fail(benchmark::State &state, int32_t st) { state.SkipWithError(("status " + std::to_string(st)).c_str()); }

// Every row read and written back through one row context.
void Rows(benchmark::State &state, const Layout &l, int32_t view) {
    Image &img = Shared(l);
    BitmapDesc *d = img.desc();
    if (KrnChangeViewPerspective(nullptr, d, BITMAPDESC_SIZE, view, 0) != KRN_OK) std::abort();
    for (auto _ : state) {
        int32_t st = 0;
        rz::RowContextPtr ctx = rz::MakeRowContext(d, l.mode, st);
        rz::KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(rz::AllocRowBuffer(ctx.get())));
        if (st != 1 || !row) return Fail(state, st);
        for (int32_t y = 0; y < d->nHeight && st == 1; ++y) {
            st = rz::GetRow(ctx.get(), row.get(), y, nullptr, nullptr);
            if (st == 1) st = rz::PutRowQuiet(ctx.get(), row.get(), y, nullptr, 0);
        }
        if (st != 1) return Fail(state, st);
        ctx.reset();
        benchmark::ClobberMemory();
    }
    KrnChangeViewPerspective(nullptr, d, BITMAPDESC_SIZE, 1, 0);
}

// The parts of a view 5 pass: the band transposes alone (every band read,
// or read and written back), without the row context's copies.
enum class BandPass { Get, GetPut };
void Bands(benchmark::State &state, const Layout &l, BandPass pass) {
    Image &img = Shared(l);
    BitmapDesc *d = img.desc();
    if (KrnChangeViewPerspective(nullptr, d, BITMAPDESC_SIZE, 5, 0) != KRN_OK) std::abort();
    const uint32_t e = uint32_t(l.bits / 8), rowBytes = uint32_t(d->nWidth) * e;
    int32_t rows = 8; // as the row context picks them
    while (rows * e < 256 || rows * e % 64 != 0) rows += 8;
    const size_t stride = (rowBytes + 63) / 64 * 64 + 64;
    std::vector<uint8_t> band(size_t(rows) * stride);
    for (auto _ : state) {
        for (int32_t top = 0; top < d->nHeight; top += rows) {
            const int32_t n = std::min(rows, d->nHeight - top);
            int32_t st = KrnGetBitmapRows(d, band.data(), stride, top, n, 0, rowBytes);
            if (st == KRN_OK && pass == BandPass::GetPut)
                st = KrnPutBitmapRows(d, band.data(), stride, top, n, 0, rowBytes, nullptr, 0, nullptr, KRN_PUT_NORMAL);
            if (st != KRN_OK) return Fail(state, st);
        }
        benchmark::ClobberMemory();
    }
    KrnChangeViewPerspective(nullptr, d, BITMAPDESC_SIZE, 1, 0);
}

double Sigma(int32_t radius) { return (2.0 * (radius * 0.1 + 1.0) + 0.5) / 3.0; }

void GaussRz(benchmark::State &state, const Layout &l, int32_t radius) {
    Image &img = Shared(l);
    for (auto _ : state) {
        state.PauseTiming();
        img.restore();
        state.ResumeTiming();
        const int32_t st = Rz_GaussianFilterBitmap(img.desc(), radius);
        if (st != ST_SUCCESS) return Fail(state, st);
        benchmark::ClobberMemory();
    }
    img.restore();
}

void GaussCv(benchmark::State &state, const Layout &l, int32_t radius) {
    cv::setNumThreads(1);
    Image &img = Shared(l);
    const double sigma = Sigma(radius);
    const int k = 2 * int(3.0 * sigma) + 1;
    const cv::Mat src = Source(img);
    cv::Mat dst;
    for (auto _ : state) {
        cv::GaussianBlur(src, dst, cv::Size(k, k), sigma, sigma, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
}

void PointRz(benchmark::State &state, const Layout &l, bool invert) {
    Image &img = Shared(l);
    for (auto _ : state) {
        const int32_t st = invert ? Rz_InvertBitmap(img.desc()) : Rz_ChangeBitmapIntensity(img.desc(), 200);
        if (st != ST_SUCCESS) return Fail(state, st);
        benchmark::ClobberMemory();
    }
    img.restore();
}

// The same tables as ours: +51 clamped, and 255 - v; in place like ours.
void PointCv(benchmark::State &state, const Layout &l, bool invert) {
    cv::setNumThreads(1);
    Image &img = Shared(l);
    cv::Mat pixels = Pixels(img);
    cv::Mat lut(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i) lut.at<uint8_t>(i) = uint8_t(invert ? 255 - i : std::min(i + 51, 255));
    for (auto _ : state) {
        cv::LUT(pixels, lut, pixels);
        benchmark::ClobberMemory();
    }
    img.restore();
}

void Memcpy(benchmark::State &state, const Layout &l) {
    Image &img = Shared(l);
    std::vector<uint8_t> out(img.bytes());
    for (auto _ : state) {
        std::memcpy(out.data(), img.desc()->pData, img.bytes());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

// CPU time per iteration of every case run, by name.
class Collector : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, double> times;
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs)
            if (!r.error_occurred && r.run_type == Run::RT_Iteration) times[r.benchmark_name()] = r.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
};

struct Ratio {
    std::string what, num, den;
    double goal; // 0: for information
};

void Register(std::vector<Ratio> &ratios) {
    auto add = [](const std::string &name, auto fn, auto... args) {
        benchmark::RegisterBenchmark(name.c_str(), fn, args...)->Unit(benchmark::kMillisecond);
    };
    for (const Layout &l : kLayouts) {
        const std::string n = l.name;
        for (int32_t v = 1; v <= 8; ++v) {
            add("rows/" + n + "/view" + std::to_string(v), Rows, l, v);
            // The goal is for the transposed views (column passes); the
            // mirrored ones are shown for information.
            if (v > 1)
                ratios.push_back({"rows " + n + " view " + std::to_string(v) + " / view 1",
                                  "rows/" + n + "/view" + std::to_string(v), "rows/" + n + "/view1", v >= 5 ? 2.0 : 0});
        }
    }
    for (const Layout &l : kLayouts) {
        const std::string n = l.name;
        add("bands/" + n + "/get", Bands, l, BandPass::Get);
        add("bands/" + n + "/getput", Bands, l, BandPass::GetPut);
        ratios.push_back({"band reads " + n + " / view 5 rows", "bands/" + n + "/get", "rows/" + n + "/view5", 0});
        ratios.push_back({"band reads+writes " + n + " / view 5 rows", "bands/" + n + "/getput", "rows/" + n + "/view5", 0});
    }
    for (const Layout &l : {kLayouts[0], kLayouts[2]}) {
        const std::string n = l.name;
        add("memcpy/" + n, Memcpy, l);
        for (int32_t r : {20, 100}) {
            const std::string g = "gaussian" + std::to_string(r) + "/" + n;
            add(g + "/rz", GaussRz, l, r);
            add(g + "/cv", GaussCv, l, r);
            ratios.push_back({"gaussian r" + std::to_string(r) + " " + n + " / cv::GaussianBlur", g + "/rz", g + "/cv", 1.0});
            ratios.push_back({"gaussian r" + std::to_string(r) + " " + n + " / memcpy", g + "/rz", "memcpy/" + n, 0});
        }
        for (bool invert : {false, true}) {
            const std::string p = std::string(invert ? "invert/" : "intensity/") + n;
            add(p + "/rz", PointRz, l, invert);
            add(p + "/cv_lut", PointCv, l, invert);
            ratios.push_back({p + " / cv::LUT", p + "/rz", p + "/cv_lut", 0.5});
            ratios.push_back({p + " / memcpy", p + "/rz", "memcpy/" + n, 0});
        }
    }
}

void PrintTable(const std::vector<Ratio> &ratios, const std::map<std::string, double> &t) {
    std::printf("\n%-48s %8s %8s  %s\n", "ratio (CPU time)", "value", "goal", "");
    for (const Ratio &r : ratios) {
        const auto a = t.find(r.num), b = t.find(r.den);
        if (a == t.end() || b == t.end() || b->second <= 0) continue; // filtered out or failed
        const double v = a->second / b->second;
        if (r.goal > 0)
            std::printf("%-48s %8.2f %8.2f  %s\n", r.what.c_str(), v, r.goal, v <= r.goal ? "met" : "NOT MET");
        else
            std::printf("%-48s %8.2f %8s\n", r.what.c_str(), v, "-");
    }
}

} // namespace

int main(int argc, char **argv) {
    cv::setNumThreads(1);
    std::vector<Ratio> ratios;
    Register(ratios);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    PrintTable(ratios, collector.times);
    benchmark::Shutdown();
    return 0;
}
