// Oilify (size 5) and mosaic (16) on a 4096x4096 24-bit bitmap beside
// ImageMagick on one thread: OilPaintImage of radius 2 (a 5 x 5 window; it
// takes the pixel of the most frequent intensity, counted afresh for every
// pixel) and, for the mosaic, ScaleImage down by 16 followed by SampleImage
// back up (the usual way to pixelate with it; the two agree within one
// level, checked before timing).
//
// Two pictures: "photo" (smooth shading with a little noise) and "noise"
// (uniform random samples: few ties, the mode's value leaves the window
// often). Our operations work in place, so the pristine pixels are copied
// back before each timed call, outside the timing; ImageMagick's input
// image is made once and its results freed outside the timing as well.
// The program ends with a table of the time ratios and their goals.
#include <rzimg.h>

#include "bench_picture.h"

#include <benchmark/benchmark.h>
#include <magick/MagickCore.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace rzbench;
constexpr double kGoal = 0.5;

Bitmap24 &Shared(Picture p) {
    static std::map<Picture, std::unique_ptr<Bitmap24>> images;
    auto &slot = images[p];
    if (!slot) slot = std::make_unique<Bitmap24>(p);
    return *slot;
}

struct ImageDeleter {
    void operator()(Image *i) const { DestroyImage(i); }
};
using ImagePtr = std::unique_ptr<Image, ImageDeleter>;

ImagePtr MagickImage(Picture p) {
    const std::vector<uint8_t> pixels = Shared(p).packed();
    ExceptionInfo *ex = AcquireExceptionInfo();
    ImagePtr img(ConstituteImage(kSide, kSide, "BGR", CharPixel, pixels.data(), ex));
    DestroyExceptionInfo(ex);
    if (!img) std::abort();
    return img;
}

using RzOp = int32_t (*)(BitmapDesc *);
using MagickOp = Image *(*)(const Image *, ExceptionInfo *);

int32_t RzOilify5(BitmapDesc *d) { return Rz_OilifyBitmap(d, 5); }
int32_t RzMosaic16(BitmapDesc *d) { return Rz_MosaicBitmap(d, 16); }
Image *MagickOilPaint5(const Image *i, ExceptionInfo *ex) { return OilPaintImage(i, 2.0, ex); }
Image *MagickPixelate16(const Image *i, ExceptionInfo *ex) {
    ImagePtr small(ScaleImage(i, kSide / 16, kSide / 16, ex));
    return small ? SampleImage(small.get(), kSide, kSide, ex) : nullptr;
}

// Largest difference between our mosaic and ImageMagick's scale and sample.
int MosaicDifference() {
    Bitmap24 &b = Shared(Picture::Photo);
    b.restore();
    if (Rz_MosaicBitmap(b.desc(), 16) != ST_SUCCESS) return 256;
    ImagePtr src = MagickImage(Picture::Photo);
    ExceptionInfo *ex = AcquireExceptionInfo();
    ImagePtr out(MagickPixelate16(src.get(), ex));
    std::vector<uint8_t> theirs(size_t(kSide) * kSide * 3);
    const bool ok = out && ExportImagePixels(out.get(), 0, 0, kSide, kSide, "BGR", CharPixel, theirs.data(), ex);
    DestroyExceptionInfo(ex);
    int worst = ok ? 0 : 256;
    for (int32_t y = 0; ok && y < kSide; ++y)
        for (int32_t i = 0; i < kSide * 3; ++i)
            worst = std::max(worst, std::abs(int(b.desc()->pData[size_t(y) * b.desc()->nStride + i]) -
                                             int(theirs[size_t(y) * kSide * 3 + i])));
    b.restore();
    return worst;
}

void RunRz(benchmark::State &state, RzOp op, Picture p) {
    Bitmap24 &b = Shared(p);
    for (auto _ : state) {
        state.PauseTiming();
        b.restore();
        state.ResumeTiming();
        if (op(b.desc()) != ST_SUCCESS) {
            state.SkipWithError("the operation failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    b.restore();
}

void RunMagick(benchmark::State &state, MagickOp op, Picture p) {
    ImagePtr src = MagickImage(p);
    ExceptionInfo *ex = AcquireExceptionInfo();
    for (auto _ : state) {
        ImagePtr out(op(src.get(), ex));
        if (!out) {
            state.SkipWithError("ImageMagick failed");
            break;
        }
        state.PauseTiming();
        out.reset();
        state.ResumeTiming();
    }
    DestroyExceptionInfo(ex);
}

struct Pair {
    std::string name;
    RzOp rz;
    MagickOp magick;
    Picture picture;
};
const Pair kPairs[] = {
    {"oilify5", &RzOilify5, &MagickOilPaint5, Picture::Photo},
    {"oilify5", &RzOilify5, &MagickOilPaint5, Picture::Noise},
    {"mosaic16", &RzMosaic16, &MagickPixelate16, Picture::Photo},
};

std::string Name(const Pair &p, const char *side) { return p.name + "/" + PictureName(p.picture) + "/" + side; }

// Keeps every run's times (milliseconds per iteration) for the final table.
class Collector : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, std::pair<double, double>> ms; // real, processor
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs)
            if (!r.error_occurred) ms[r.benchmark_name()] = {r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()};
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv) {
    MagickCoreGenesis(argv[0], MagickFalse);
    SetMagickResourceLimit(ThreadResource, 1);
    for (const Pair &p : kPairs) {
        benchmark::RegisterBenchmark(Name(p, "rz").c_str(), RunRz, p.rz, p.picture)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(Name(p, "magick").c_str(), RunMagick, p.magick, p.picture)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const int difference = MosaicDifference();
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    std::printf("\nmosaic16 beside ImageMagick's scale and sample: largest difference %d (allowed 1)\n", difference);
    // Both run on the calling thread only, so processor time is the fairer
    // measure on a shared machine; the goal is judged on it.
    std::printf("%-16s %10s %10s %10s %10s %8s %8s %6s\n", "case", "rz ms", "magick ms", "rz cpu", "magick cpu",
                "ratio", "cpu", "goal");
    for (const Pair &p : kPairs) {
        const auto rz = collector.ms.find(Name(p, "rz")), im = collector.ms.find(Name(p, "magick"));
        if (rz == collector.ms.end() || im == collector.ms.end()) continue;
        const auto [rzReal, rzCpu] = rz->second;
        const auto [imReal, imCpu] = im->second;
        const double ratio = rzCpu / imCpu;
        std::printf("%-16s %10.1f %10.1f %10.1f %10.1f %8.3f %8.3f %6.2f %s\n",
                    (p.name + "/" + PictureName(p.picture)).c_str(), rzReal, imReal, rzCpu, imCpu, rzReal / imReal,
                    ratio, kGoal, ratio <= kGoal ? "met" : "MISSED");
    }
    benchmark::Shutdown();
    MagickCoreTerminus();
    return difference <= 1 ? 0 : 1;
}
