// Neighbourhood filters on 4096x4096 bitmaps, 8-bit grey and 24-bit colour,
// beside OpenCV on one thread with replicated borders: the median (3, 5, 7,
// 15, 31) against cv::medianBlur, max and min 15 against cv::dilate and
// cv::erode, predefined 3x3 kernels against cv::filter2D and the Gaussian of
// radius 20 (sigma 2.1667, 13 taps) against cv::GaussianBlur.
//
// Two pictures: "noise" (uniform random samples, the worst case for
// histogram medians) and "photo" (smooth shading with a little noise, as
// scanned or photographed images are). Our filters work in place, so the
// pristine pixels are copied back before each timed call (outside the
// timing); OpenCV writes a separate matrix. Before timing, each pair is run
// once and the outputs compared: equal, or within one grey level for the
// Gaussian; a mismatch skips the case with an error.
#include "bench_picture.h"

#include <rzimg.h>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using rzbench::kSide;
using rzbench::Picture;
using rzbench::PictureName;

enum class Format { Grey8, Colour24 };

class Image : public rzbench::BenchBitmap {
  public:
    Image(Format f, Picture p) : BenchBitmap(f == Format::Grey8 ? 8 : 24, f == Format::Grey8, p) {}
    cv::Mat mat() { return cv::Mat(kSide, kSide, d_.nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, d_.pData, d_.nStride); }
    // The pristine pixels, for OpenCV's input.
    cv::Mat source() {
        return cv::Mat(kSide, kSide, d_.nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, pristine_.data(), d_.nStride);
    }
};

Image &Shared(Format f, Picture p) {
    static std::map<std::pair<Format, Picture>, std::unique_ptr<Image>> images;
    auto &slot = images[{f, p}];
    if (!slot) slot = std::make_unique<Image>(f, p);
    return *slot;
}

const char *FormatName(Format f) { return f == Format::Grey8 ? "grey8" : "bgr24"; }

using RzOp = std::function<int32_t(BitmapDesc *)>;
using CvOp = std::function<void(const cv::Mat &, cv::Mat &)>;

struct Case {
    std::string name;
    Format format;
    Picture picture;
    RzOp rz;
    CvOp cv;
    double tolerance; // largest difference allowed
};

// Runs both once and compares; an empty string means they agree.
std::string Check(const Case &c) {
    static std::map<std::string, std::string> verdicts;
    const auto found = verdicts.find(c.name);
    if (found != verdicts.end()) return found->second;
    Image &img = Shared(c.format, c.picture);
    img.restore();
    std::string verdict;
    const int32_t st = c.rz(img.desc());
    if (st != ST_SUCCESS) {
        verdict = "status " + std::to_string(st);
    } else {
        cv::Mat want;
        c.cv(img.source(), want);
        const double diff = cv::norm(img.mat(), want, cv::NORM_INF);
        if (diff > c.tolerance) verdict = "outputs differ by " + std::to_string(diff);
    }
    img.restore();
    verdicts[c.name] = verdict;
    return verdict;
}

void RunRz(benchmark::State &state, const Case &c) {
    const std::string verdict = Check(c);
    if (!verdict.empty()) {
        state.SkipWithError(verdict.c_str());
        return;
    }
    Image &img = Shared(c.format, c.picture);
    for (auto _ : state) {
        state.PauseTiming();
        img.restore();
        state.ResumeTiming();
        const int32_t st = c.rz(img.desc());
        if (st != ST_SUCCESS) {
            state.SkipWithError(("status " + std::to_string(st)).c_str());
            break;
        }
        benchmark::ClobberMemory();
    }
    img.restore();
}

void RunCv(benchmark::State &state, const Case &c) {
    cv::setNumThreads(1);
    const std::string verdict = Check(c);
    if (!verdict.empty()) {
        state.SkipWithError(verdict.c_str());
        return;
    }
    Image &img = Shared(c.format, c.picture);
    const cv::Mat src = img.source();
    cv::Mat dst;
    for (auto _ : state) {
        c.cv(src, dst);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
}

// The predefined kernels timed, with their coefficients for filter2D.
struct Kernel3 {
    const char *name;
    int32_t number;
    int32_t bias;
    float c[9];
};
const Kernel3 kKernels[] = {
    {"emboss_n", SPF_EMBOSS_N, 128, {0, 1, 0, 0, 0, 0, 0, -1, 0}},
    {"sobel_horizontal", SPF_SOBEL_HORIZONTAL, 0, {1, 2, 1, 0, 0, 0, -1, -2, -1}},
    {"laplace_eight", SPF_LAPLACE_EIGHT, 0, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},
    {"line_falling_diagonal", SPF_LINE_FALLING_DIAGONAL, 0, {2, -1, -1, -1, 2, -1, -1, -1, 2}},
};

std::vector<Case> &Cases() {
    static std::vector<Case> cases;
    return cases;
}

void Add(const std::string &op, Format f, Picture p, RzOp rz, CvOp cv, double tolerance = 0) {
    Cases().push_back({op + "/" + FormatName(f) + "/" + PictureName(p), f, p, std::move(rz), std::move(cv), tolerance});
}

void Register() {
    for (Format f : {Format::Grey8, Format::Colour24}) {
        for (Picture p : {Picture::Noise, Picture::Photo})
            for (int n : {3, 5, 7, 15, 31})
                Add("median" + std::to_string(n), f, p,
                    [n](BitmapDesc *d) { return Rz_MedianFilterBitmap(d, uint32_t(n)); },
                    [n](const cv::Mat &s, cv::Mat &d) { cv::medianBlur(s, d, n); });
        const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(15, 15));
        Add("max15", f, Picture::Noise, [](BitmapDesc *d) { return Rz_MaxFilterBitmap(d, 15); },
            [element](const cv::Mat &s, cv::Mat &d) {
                cv::dilate(s, d, element, cv::Point(7, 7), 1, cv::BORDER_REPLICATE);
            });
        Add("min15", f, Picture::Noise, [](BitmapDesc *d) { return Rz_MinFilterBitmap(d, 15); },
            [element](const cv::Mat &s, cv::Mat &d) {
                cv::erode(s, d, element, cv::Point(7, 7), 1, cv::BORDER_REPLICATE);
            });
        for (const Kernel3 &k : kKernels) {
            const cv::Mat kernel = cv::Mat(3, 3, CV_32F, const_cast<float *>(k.c)).clone();
            Add(std::string("spatial_") + k.name, f, Picture::Noise,
                [n = k.number](BitmapDesc *d) { return Rz_SpatialFilterBitmap(d, RZ_SPF_KERNEL(n)); },
                [kernel, bias = k.bias](const cv::Mat &s, cv::Mat &d) {
                    cv::filter2D(s, d, CV_8U, kernel, cv::Point(-1, -1), bias, cv::BORDER_REPLICATE);
                });
        }
        const double sigma = (2.0 * (20 * 0.1 + 1.0) + 0.5) / 3.0;
        Add("gaussian20", f, Picture::Noise, [](BitmapDesc *d) { return Rz_GaussianFilterBitmap(d, 20); },
            [sigma](const cv::Mat &s, cv::Mat &d) {
                cv::GaussianBlur(s, d, cv::Size(13, 13), sigma, sigma, cv::BORDER_REPLICATE);
            },
            1.0);
    }
    for (const Case &c : Cases()) {
        benchmark::RegisterBenchmark((c.name + "/rz").c_str(), RunRz, c)->Unit(benchmark::kMillisecond)->MinTime(0.5);
        benchmark::RegisterBenchmark((c.name + "/cv").c_str(), RunCv, c)->Unit(benchmark::kMillisecond)->MinTime(0.5);
    }
}

} // namespace

int main(int argc, char **argv) {
    cv::setNumThreads(1);
    Register();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
