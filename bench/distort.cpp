// Swirl and spherize on a 4096x4096 24-bit photograph-like bitmap, beside
// ImageMagick's swirl and implode (MagickCore, one thread), which compute
// a similar inverse mapping with interpolation per pixel. The results are
// not the same picture (other formulas), so only the time is compared. Our
// operations work in place: the pristine pixels are copied back before each
// timed call, outside the timing; ImageMagick makes a new image, which is
// part of its work. Ends with the ratios and their goal.
#include <rzimg.h>

#include "bench_picture.h"

#include <benchmark/benchmark.h>

#include <magick/MagickCore.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace rzbench;
constexpr double kGoal = 0.5;

Bitmap24 &Shared() {
    static Bitmap24 p(Picture::Photo);
    return p;
}

void RunRz(benchmark::State &state, const std::function<int32_t(BitmapDesc *)> &op) {
    Bitmap24 &p = Shared();
    for (auto _ : state) {
        state.PauseTiming();
        p.restore();
        state.ResumeTiming();
        if (op(p.desc()) != ST_SUCCESS) {
            state.SkipWithError("the operation failed");
            break;
        }
    }
    p.restore();
}

void RunMagick(benchmark::State &state, const std::function<Image *(const Image *, ExceptionInfo *)> &op) {
    Bitmap24 &p = Shared();
    ExceptionInfo *ex = AcquireExceptionInfo();
    Image *src = ConstituteImage(kSide, kSide, "BGR", CharPixel, p.pixels(), ex);
    if (!src) {
        state.SkipWithError("ImageMagick cannot make the image");
        DestroyExceptionInfo(ex);
        return;
    }
    for (auto _ : state) {
        Image *out = op(src, ex);
        if (!out) {
            state.SkipWithError("ImageMagick failed");
            break;
        }
        DestroyImage(out);
    }
    DestroyImage(src);
    DestroyExceptionInfo(ex);
}

// Keeps each benchmark's time per iteration for the closing table.
class Reporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs)
            if (!r.error_occurred && r.iterations > 0) ms[r.run_name.function_name] = r.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> ms;
};

} // namespace

int main(int argc, char **argv) {
    MagickCoreGenesis(argv[0], MagickFalse);
    SetMagickResourceLimit(ThreadResource, 1);
    const int32_t c = kSide / 2;
    const std::pair<const char *, const char *> pairs[] = {{"swirl/rz", "swirl/magick"},
                                                           {"spherize/rz", "spherize/magick_implode"}};
    benchmark::RegisterBenchmark("swirl/rz", RunRz, [c](BitmapDesc *b) { return Rz_SwirlBitmap(b, 180, c, c); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("swirl/magick", RunMagick,
                                 [](const Image *i, ExceptionInfo *e) { return SwirlImage(i, 90, e); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("spherize/rz", RunRz,
                                 [c](BitmapDesc *b) { return Rz_SpherizeBitmap(b, 100, c, c, 0, 1); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("spherize/magick_implode", RunMagick,
                                 [](const Image *i, ExceptionInfo *e) { return ImplodeImage(i, -0.5, e); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::printf("\n%-10s %12s %12s %8s %6s\n", "operation", "ours (ms)", "peer (ms)", "ratio", "goal");
    for (auto [ours, peer] : pairs) {
        if (!reporter.ms.count(ours) || !reporter.ms.count(peer)) continue;
        const double a = reporter.ms[ours], b = reporter.ms[peer];
        std::printf("%-10s %12.1f %12.1f %8.2f %6.2f %s\n", std::string(ours).substr(0, std::string(ours).find('/')).c_str(),
                    a, b, a / b, kGoal, a / b <= kGoal ? "met" : "not met");
    }
    MagickCoreTerminus();
    return 0;
}
