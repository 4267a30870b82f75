// Two-bitmap operations and edge detection on 4096x4096 bitmaps, beside
// OpenCV on one thread: the alpha blend (24-bit) against cv::addWeighted,
// Rz_CombineBitmapExt add and absolute difference (24-bit) against cv::add
// and cv::absdiff, and EDG_SOBEL_BOTH (8-bit grey) against cv::Sobel in x
// and y, cv::convertScaleAbs by 1/4, cv::threshold and cv::bitwise_or.
// Ours work in place and OpenCV writes a separate matrix; every operation
// costs the same whatever the pixels, so the timed loops run again and
// again on the same bitmaps. The program ends with a table of the ratios
// (ours / peer, CPU time: the machine is shared) beside their goals.
#include <rzimg.h>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int32_t kSide = 4096;

class Image {
  public:
    Image(int bits, uint32_t seed) {
        if (KrnInitBitmap(&d_, BITMAPDESC_SIZE, kSide, kSide, bits) != KRN_OK) std::abort();
        if (bits == 8) {
            d_.nColorOrder = KRN_ORDER_GRAY;
            d_.nDataKind = 1;
        }
        if (KrnAllocBitmap(&d_) != KRN_OK) std::abort();
        cv::Mat m = mat();
        cv::RNG rng(seed);
        rng.fill(m, cv::RNG::UNIFORM, 0, 256);
        // Smooth shading under the noise, so edges are not everywhere.
        for (int32_t y = 0; y < kSide; ++y) {
            uint8_t *row = m.ptr<uint8_t>(y);
            for (int32_t i = 0; i < kSide * m.channels(); ++i)
                row[i] = uint8_t((row[i] >> 3) + 100 + ((i / m.channels() / 512 + y / 512) % 2) * 100);
        }
    }
    ~Image() { KrnFreeBitmap(&d_); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    BitmapDesc *desc() { return &d_; }
    cv::Mat mat() { return cv::Mat(kSide, kSide, d_.nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, d_.pData, d_.nStride); }

  private:
    BitmapDesc d_{};
};

Image &Colour(int which) {
    static Image a(24, 1), b(24, 2);
    return which ? b : a;
}
Image &Grey() {
    static Image g(8, 3);
    return g;
}

constexpr int32_t kThreshold = 20;

void SobelPeer(const cv::Mat &s, cv::Mat &out) {
    cv::Mat gx, gy, ax, ay;
    cv::Sobel(s, gx, CV_16S, 1, 0, 3, 1, 0, cv::BORDER_REPLICATE);
    cv::Sobel(s, gy, CV_16S, 0, 1, 3, 1, 0, cv::BORDER_REPLICATE);
    cv::convertScaleAbs(gx, ax, 0.25);
    cv::convertScaleAbs(gy, ay, 0.25);
    cv::threshold(ax, ax, kThreshold, 255, cv::THRESH_BINARY);
    cv::threshold(ay, ay, kThreshold, 255, cv::THRESH_BINARY);
    cv::bitwise_or(ax, ay, out);
}

void BM_AlphaBlend24(benchmark::State &state) {
    BitmapDesc *d = Colour(0).desc(), *s = Colour(1).desc();
    for (auto _ : state)
        if (Rz_AlphaBlendBitmap(d, 0, 0, kSide, kSide, s, 0, 0, 77) != 1) state.SkipWithError("failed");
}
void BM_AlphaBlend24Peer(benchmark::State &state) {
    cv::Mat out(kSide, kSide, CV_8UC3);
    const cv::Mat d = Colour(0).mat(), s = Colour(1).mat();
    for (auto _ : state) {
        cv::addWeighted(s, 77 / 256.0, d, 1 - 77 / 256.0, 0, out);
        benchmark::DoNotOptimize(out.data);
    }
}

void BM_CombineAdd24(benchmark::State &state) {
    BitmapDesc *d = Colour(0).desc(), *s = Colour(1).desc();
    for (auto _ : state)
        if (Rz_CombineBitmapExt(d, 0, 0, kSide, kSide, s, 0, 0, CBF_ADD) != 1) state.SkipWithError("failed");
}
void BM_CombineAdd24Peer(benchmark::State &state) {
    cv::Mat out(kSide, kSide, CV_8UC3);
    const cv::Mat d = Colour(0).mat(), s = Colour(1).mat();
    for (auto _ : state) {
        cv::add(s, d, out);
        benchmark::DoNotOptimize(out.data);
    }
}

void BM_CombineAbsDiff24(benchmark::State &state) {
    BitmapDesc *d = Colour(0).desc(), *s = Colour(1).desc();
    for (auto _ : state)
        if (Rz_CombineBitmapExt(d, 0, 0, kSide, kSide, s, 0, 0, CBF_ABSDIFF) != 1) state.SkipWithError("failed");
}
void BM_CombineAbsDiff24Peer(benchmark::State &state) {
    cv::Mat out(kSide, kSide, CV_8UC3);
    const cv::Mat d = Colour(0).mat(), s = Colour(1).mat();
    for (auto _ : state) {
        cv::absdiff(s, d, out);
        benchmark::DoNotOptimize(out.data);
    }
}

void BM_SobelBoth8(benchmark::State &state) {
    BitmapDesc *g = Grey().desc();
    for (auto _ : state)
        if (Rz_EdgeDetectorBitmap(g, kThreshold, EDG_SOBEL_BOTH) != 1) state.SkipWithError("failed");
}
void BM_SobelBoth8Peer(benchmark::State &state) {
    const cv::Mat s = Grey().mat().clone();
    cv::Mat out;
    for (auto _ : state) {
        SobelPeer(s, out);
        benchmark::DoNotOptimize(out.data);
    }
}

BENCHMARK(BM_AlphaBlend24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AlphaBlend24Peer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CombineAdd24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CombineAdd24Peer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CombineAbsDiff24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CombineAbsDiff24Peer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SobelBoth8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SobelBoth8Peer)->Unit(benchmark::kMillisecond);

// Keeps each run's time per iteration for the closing table.
class Recorder : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        // With repetitions, the median stands for the case.
        for (const Run &r : runs)
            if (!r.error_occurred && (r.run_type != Run::RT_Aggregate || r.aggregate_name == "median"))
                times[r.run_name.function_name] = r.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char **argv) {
    cv::setNumThreads(1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Recorder recorder;
    benchmark::RunSpecifiedBenchmarks(&recorder);
    std::printf("\n%-22s %10s %10s %7s %6s\n", "operation (4096^2)", "ours ms", "peer ms", "ratio", "goal");
    for (const char *name : {"BM_AlphaBlend24", "BM_CombineAdd24", "BM_CombineAbsDiff24", "BM_SobelBoth8"}) {
        const auto ours = recorder.times.find(name), peer = recorder.times.find(std::string(name) + "Peer");
        if (ours == recorder.times.end() || peer == recorder.times.end()) continue;
        std::printf("%-22s %10.2f %10.2f %7.2f %6.2f\n", name + 3, ours->second, peer->second,
                    ours->second / peer->second, 1.0);
    }
    benchmark::Shutdown();
    return 0;
}
