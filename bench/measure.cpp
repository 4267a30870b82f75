// Histogram and statistics of a 4096 x 4096 16-bit grey picture (a smooth
// CT-like field with noise, all 16 bits significant) beside cv::calcHist
// (65536 bins) and cv::meanStdDev, one thread. Ends with the ratios.
#include <rzimg.h>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kSide = 4096;

struct Picture {
    BitmapDesc desc{};
    Picture() {
        KrnInitBitmap(&desc, BITMAPDESC_SIZE, kSide, kSide, 16);
        KrnAllocBitmap(&desc);
        std::mt19937 rng(5);
        for (int y = 0; y < kSide; ++y) {
            auto *row = reinterpret_cast<uint16_t *>(desc.pData + size_t(y) * desc.nStride);
            for (int x = 0; x < kSide; ++x) {
                const double r = std::hypot(x - kSide / 2.0, y - kSide / 2.0) / kSide;
                const double v = 30000 + 20000 * std::cos(9 * r) + 3000 * std::sin(x / 97.0) + int(rng() % 2001) - 1000;
                row[x] = static_cast<uint16_t>(std::clamp(v, 0.0, 65535.0));
            }
        }
    }
    ~Picture() { KrnFreeBitmap(&desc); }
    cv::Mat mat() { return cv::Mat(kSide, kSide, CV_16UC1, desc.pData, desc.nStride); }
};

Picture &Shared() {
    static Picture p;
    return p;
}

void RzHistogram(benchmark::State &state) {
    std::vector<uint32_t> bins(65536);
    for (auto _ : state) {
        if (Rz_GetBitmapHistogram(&Shared().desc, bins.data(), 65536, 0) != 1) state.SkipWithError("failed");
        benchmark::DoNotOptimize(bins.data());
    }
}

void CvHistogram(benchmark::State &state) {
    cv::Mat m = Shared().mat(), hist;
    const int size = 65536, chan = 0;
    const float range[] = {0, 65536};
    const float *ranges[] = {range};
    for (auto _ : state) {
        cv::calcHist(&m, 1, &chan, cv::Mat(), hist, 1, &size, ranges);
        benchmark::DoNotOptimize(hist.data);
    }
}

void RzStatistics(benchmark::State &state) {
    StatisticsInfo info{};
    for (auto _ : state) {
        if (Rz_GetBitmapStatisticsInfo(&Shared().desc, &info, 0, 0, 65535) != 1) state.SkipWithError("failed");
        benchmark::DoNotOptimize(info);
    }
}

void CvMeanStdDev(benchmark::State &state) {
    cv::Mat m = Shared().mat();
    cv::Scalar mean, dev;
    for (auto _ : state) {
        cv::meanStdDev(m, mean, dev);
        benchmark::DoNotOptimize(mean);
    }
}

// Keeps each run's time per iteration for the closing table.
class Collector : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, double> ms;
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs)
            if (r.iterations > 0) ms[r.benchmark_name()] = r.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv) {
    cv::setNumThreads(1);
    Shared(); // drawn before any timing
    benchmark::RegisterBenchmark("histogram16/rz", RzHistogram)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("histogram16/cv_calcHist", CvHistogram)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("statistics16/rz", RzStatistics)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("statistics16/cv_meanStdDev", CvMeanStdDev)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::Shutdown();
    std::printf("\n%-14s %10s %10s %7s %6s\n", "case", "rz ms", "peer ms", "ratio", "goal");
    const std::pair<const char *, const char *> pairs[] = {{"histogram16/rz", "histogram16/cv_calcHist"},
                                                           {"statistics16/rz", "statistics16/cv_meanStdDev"}};
    for (auto [rz, peer] : pairs) {
        if (!collector.ms.count(rz) || !collector.ms.count(peer)) continue;
        const double a = collector.ms[rz], b = collector.ms[peer];
        std::printf("%-14.*s %10.2f %10.2f %7.2f %6.2f\n", int(std::string(rz).find('/')), rz, a, b, a / b, 1.0);
    }
    return 0;
}
