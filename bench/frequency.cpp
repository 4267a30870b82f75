// Fourier transforms of 8-bit grey bitmaps (1024 and 4096 square), forward
// and inverse, beside cv::dft (one thread, complex output; inverse with real
// output) and FFTW (ESTIMATE and MEASURE plans made before timing; the
// real-data r2c / c2r transforms, which do the same job as ours, and the
// complex c2c ones). Ours includes reading the plane from the bitmap and,
// inverse, scaling the array and writing the clipped plane back; the array
// is restored outside the timing before each inverse (it is left scaled).
// Also the DFT of 1000 x 1000 against the FFT of 1024 x 1024. Every case
// runs once before its timing and five times over (--benchmark_repetitions
// changes it). Ends with the ratios (of CPU time, the machine being shared;
// of the best repetitions) and their goals, and the accuracy against FFTW.
#include "kernel/page_hint.h"

#include <rzimg.h>

#include <benchmark/benchmark.h>
#include <fftw3.h>
#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Grey {
    BitmapDesc d{};
    FTARRAY *a = nullptr;
    std::vector<uint8_t> spectrum; // the array's bytes after a forward transform
    int32_t w, h;
    Grey(int32_t width, int32_t height) : w(width), h(height) {
        if (KrnInitBitmap(&d, BITMAPDESC_SIZE, w, h, 8) != KRN_OK) std::abort();
        d.nColorOrder = KRN_ORDER_GRAY;
        d.nDataKind = 1;
        if (KrnAllocBitmap(&d) != KRN_OK) std::abort();
        uint32_t s = 0x2545F491u;
        for (int32_t y = 0; y < h; ++y)
            for (int32_t x = 0; x < w; ++x) {
                s = s * 1664525u + 1013904223u;
                d.pData[size_t(y) * d.nStride + x] =
                    uint8_t(std::clamp(int(128 + 60 * std::sin(x * 0.01) + 50 * std::cos(y * 0.013)) + int(s >> 28), 0, 255));
            }
        if (Rz_AllocFTArray(&d, &a, FTARRAY_SIZE) != 1) std::abort();
    }
    ~Grey() {
        Rz_FreeFTArray(a);
        KrnFreeBitmap(&d);
    }
    size_t bytes() const { return 16 * size_t(w) * h; }
    uint8_t *data() { return reinterpret_cast<uint8_t *>(a) + 12; }
    double value(int32_t x, int32_t y) const { return d.pData[size_t(y) * d.nStride + x]; }
};

std::map<int32_t, std::unique_ptr<Grey>> g_images;
Grey &Image(int32_t side) {
    auto &p = g_images[side];
    if (!p) p = std::make_unique<Grey>(side, side);
    return *p;
}

// Each case runs once before its timing, so that first touches of fresh
// memory (the array, OpenCV's output) are not counted.
void RzForward(benchmark::State &st, int32_t side) {
    Grey &g = Image(side);
    Rz_FFTBitmap(&g.d, g.a, FT_FORWARD | FT_PLANE_GREY);
    for (auto _ : st)
        if (Rz_FFTBitmap(&g.d, g.a, FT_FORWARD | FT_PLANE_GREY) != 1) st.SkipWithError("FFT failed");
}

void RzInverse(benchmark::State &st, int32_t side) {
    Grey &g = Image(side);
    Rz_FFTBitmap(&g.d, g.a, FT_FORWARD | FT_PLANE_GREY);
    g.spectrum.assign(g.data(), g.data() + g.bytes());
    Rz_FFTBitmap(&g.d, g.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP); // its scratch's first touch
    for (auto _ : st) {
        st.PauseTiming();
        std::memcpy(g.data(), g.spectrum.data(), g.bytes());
        st.ResumeTiming();
        if (Rz_FFTBitmap(&g.d, g.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP) != 1) st.SkipWithError("failed");
    }
}

void RzDft(benchmark::State &st, int32_t side) {
    Grey &g = Image(side);
    Rz_DFTBitmap(&g.d, g.a, nullptr, FT_FORWARD | FT_PLANE_GREY | DFT_WHOLE);
    for (auto _ : st)
        if (Rz_DFTBitmap(&g.d, g.a, nullptr, FT_FORWARD | FT_PLANE_GREY | DFT_WHOLE) != 1) st.SkipWithError("failed");
}

#ifdef RZ_HAVE_OPENCV
void CvForward(benchmark::State &st, int32_t side) {
    Grey &g = Image(side);
    cv::Mat src(side, side, CV_64F), dst;
    for (int32_t y = 0; y < side; ++y)
        for (int32_t x = 0; x < side; ++x) src.at<double>(y, x) = g.value(x, y);
    cv::dft(src, dst, cv::DFT_COMPLEX_OUTPUT);
    for (auto _ : st) cv::dft(src, dst, cv::DFT_COMPLEX_OUTPUT);
}

void CvInverse(benchmark::State &st, int32_t side) {
    Grey &g = Image(side);
    cv::Mat src(side, side, CV_64F), spec, dst;
    for (int32_t y = 0; y < side; ++y)
        for (int32_t x = 0; x < side; ++x) src.at<double>(y, x) = g.value(x, y);
    cv::dft(src, spec, cv::DFT_COMPLEX_OUTPUT);
    cv::dft(spec, dst, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT | cv::DFT_SCALE);
    for (auto _ : st) cv::dft(spec, dst, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT | cv::DFT_SCALE);
}
#endif

// FFTW on the same plane. Its buffers get the advice and the first touch
// the library gives its own large blocks (huge pages above the same size),
// the plan is made once per case (fresh buffers would fault inside the
// timing) and the case runs once before its timing, like ours. One case's
// buffers at a time.
struct FftwCase {
    bool real, inverse;
    unsigned flags;
};

class FftwSetup {
  public:
    FftwSetup(const Grey &g, int32_t side, FftwCase c) {
        const size_t n = size_t(side) * side;
        half_ = size_t(side) * (side / 2 + 1);
        r_ = fftw_alloc_real(n);
        z_ = fftw_alloc_complex(n);
        z2_ = fftw_alloc_complex(n);
        if (!r_ || !z_ || !z2_) std::abort();
        Prepare(r_, 8 * n);
        Prepare(z_, 16 * n);
        Prepare(z2_, 16 * n);
        restores_ = c.real && c.inverse; // c2r destroys its input
        plan_ = Plan(side, c);
        Fill(g, side);
        // MEASURE times candidates on a machine that may be busy, and so may
        // settle on another plan each time: of three plannings, the plan
        // that runs fastest.
        if (!(c.flags & FFTW_ESTIMATE)) {
            double best = Seconds(plan_);
            for (int32_t k = 0; k < 2; ++k) {
                fftw_forget_wisdom();
                fftw_plan p = Plan(side, c);
                Fill(g, side);
                const double t = Seconds(p);
                if (t < best) std::swap(p, plan_), best = t;
                fftw_destroy_plan(p);
            }
        }
        restore();
        fftw_execute(plan_);
    }
    ~FftwSetup() {
        fftw_destroy_plan(plan_);
        fftw_free(r_);
        fftw_free(z_);
        fftw_free(z2_);
    }
    FftwSetup(const FftwSetup &) = delete;
    FftwSetup &operator=(const FftwSetup &) = delete;
    bool restores() const { return restores_; }
    void restore() {
        if (restores_) std::memcpy(z_, saved_.data(), 16 * half_);
    }
    void run() { fftw_execute(plan_); }

  private:
    fftw_plan Plan(int32_t side, FftwCase c) {
        fftw_plan p = c.real ? (c.inverse ? fftw_plan_dft_c2r_2d(side, side, z_, r_, c.flags)
                                          : fftw_plan_dft_r2c_2d(side, side, r_, z_, c.flags))
                             : fftw_plan_dft_2d(side, side, z_, z2_, c.inverse ? FFTW_BACKWARD : FFTW_FORWARD, c.flags);
        if (!p) std::abort();
        return p;
    }
    // The plane, and its half spectrum for c2r (planning overwrote both).
    void Fill(const Grey &g, int32_t side) {
        for (int32_t y = 0; y < side; ++y)
            for (int32_t x = 0; x < side; ++x) {
                r_[size_t(y) * side + x] = g.value(x, y);
                z_[size_t(y) * side + x][0] = g.value(x, y);
                z_[size_t(y) * side + x][1] = 0;
            }
        if (restores_) {
            fftw_plan f = fftw_plan_dft_r2c_2d(side, side, r_, z_, FFTW_ESTIMATE);
            fftw_execute(f);
            fftw_destroy_plan(f);
        }
        saved_.assign(reinterpret_cast<double *>(z_), reinterpret_cast<double *>(z_) + 2 * half_);
    }
    // Best of three runs.
    double Seconds(fftw_plan p) {
        double best = 1e30;
        for (int32_t k = 0; k < 3; ++k) {
            restore();
            const auto t0 = std::chrono::steady_clock::now();
            fftw_execute(p);
            best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        }
        return best;
    }
    static void Prepare(void *p, size_t bytes) {
        if (bytes >= krn::kHugePageWorthIt) krn::AdviseHugePages(p, bytes, true);
        std::memset(p, 0, bytes);
    }
    double *r_ = nullptr;
    fftw_complex *z_ = nullptr, *z2_ = nullptr;
    fftw_plan plan_ = nullptr;
    size_t half_ = 0;
    bool restores_ = false;
    std::vector<double> saved_;
};

void Fftw(benchmark::State &st, int32_t side, FftwCase c) {
    static int64_t current = -1;
    static std::unique_ptr<FftwSetup> setup;
    const int64_t key = int64_t(side) << 8 | int64_t(c.flags & 0xFF) << 2 | int64_t(c.real) << 1 | int64_t(c.inverse);
    if (current != key) {
        setup.reset(); // the previous case's buffers first
        setup = std::make_unique<FftwSetup>(Image(side), side, c);
        current = key;
    }
    for (auto _ : st) {
        if (setup->restores()) {
            st.PauseTiming();
            setup->restore();
            st.ResumeTiming();
        }
        setup->run();
    }
}

// Largest difference from FFTW's spectrum over the sum of its magnitudes.
double AccuracyAgainstFftw(int32_t side) {
    Grey &g = Image(side);
    Rz_FFTBitmap(&g.d, g.a, FT_FORWARD | FT_PLANE_GREY);
    const size_t n = size_t(side) * side;
    fftw_complex *in = fftw_alloc_complex(n), *out = fftw_alloc_complex(n);
    fftw_plan p = fftw_plan_dft_2d(side, side, in, out, FFTW_FORWARD, FFTW_ESTIMATE);
    for (int32_t y = 0; y < side; ++y)
        for (int32_t x = 0; x < side; ++x) in[size_t(y) * side + x][0] = g.value(x, y), in[size_t(y) * side + x][1] = 0;
    fftw_execute(p);
    double total = 0, worst = 0;
    for (size_t i = 0; i < n; ++i) {
        double t[2];
        std::memcpy(t, g.data() + 16 * i, 16);
        total += std::hypot(out[i][0], out[i][1]);
        worst = std::max(worst, std::hypot(t[0] - out[i][0], t[1] - out[i][1]));
    }
    fftw_destroy_plan(p);
    fftw_free(in);
    fftw_free(out);
    return worst / total;
}

class Collector : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, double> seconds;
    void ReportRuns(const std::vector<Run> &runs) override {
        // With repetitions, the best of them: what the code costs when the
        // machine lets it run, which moves far less than a mean between runs.
        for (const Run &r : runs) {
            if (r.error_occurred) continue;
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "min")
                seconds[r.run_name.function_name] = r.GetAdjustedCPUTime();
            else if (r.run_type == Run::RT_Iteration && r.repetitions <= 1)
                seconds[r.benchmark_name()] = r.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

double Min(const std::vector<double> &v) { return v.empty() ? 0.0 : *std::min_element(v.begin(), v.end()); }

void Register() {
    for (int32_t side : {1024, 4096}) {
        const std::string s = std::to_string(side);
        benchmark::RegisterBenchmark(("rz_forward/" + s).c_str(), RzForward, side)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Min);
        benchmark::RegisterBenchmark(("rz_inverse/" + s).c_str(), RzInverse, side)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Min);
#ifdef RZ_HAVE_OPENCV
        benchmark::RegisterBenchmark(("cv_forward/" + s).c_str(), CvForward, side)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Min);
        benchmark::RegisterBenchmark(("cv_inverse/" + s).c_str(), CvInverse, side)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Min);
#endif
        for (auto [name, flags] : {std::pair{"estimate", FFTW_ESTIMATE}, std::pair{"measure", FFTW_MEASURE}})
            for (bool real : {true, false})
                for (bool inverse : {false, true}) {
                    const std::string n = std::string("fftw_") + (real ? "real_" : "c2c_") + name +
                                          (inverse ? "_inverse/" : "_forward/") + s;
                    benchmark::RegisterBenchmark(n.c_str(), Fftw, side, FftwCase{real, inverse, unsigned(flags)})
                        ->Unit(benchmark::kMillisecond)
                        ->ComputeStatistics("min", Min);
                }
    }
    benchmark::RegisterBenchmark("rz_dft/1000", RzDft, 1000)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Min);
}

} // namespace

int main(int argc, char **argv) {
#ifdef RZ_HAVE_OPENCV
    cv::setNumThreads(1);
#endif
    Register();
    // Five repetitions unless asked otherwise (a later flag wins).
    std::vector<char *> args(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=5";
    args.insert(args.begin() + 1, repetitions);
    int count = int(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    const auto &t = collector.seconds;
    auto ratio = [&](const std::string &a, const std::string &b) {
        const auto i = t.find(a), j = t.find(b);
        return i == t.end() || j == t.end() ? -1.0 : i->second / j->second;
    };
    std::printf("\n%-44s %8s %8s\n", "ratio (ours / peer)", "value", "goal");
    for (const char *side : {"1024", "4096"})
        for (const char *dir : {"forward", "inverse"}) {
            const std::string ours = std::string("rz_") + dir + "/" + side;
            const struct {
                const char *peer;
                double goal;
            } rows[] = {{"cv_%s/%s", 1.0},
                        {"fftw_real_measure_%s/%s", 1.5},
                        {"fftw_c2c_measure_%s/%s", 1.5},
                        {"fftw_real_estimate_%s/%s", 0},
                        {"fftw_c2c_estimate_%s/%s", 0}};
            for (const auto &r : rows) {
                char peer[64];
                std::snprintf(peer, sizeof peer, r.peer, dir, side);
                const double v = ratio(ours, peer);
                if (v < 0) continue;
                char goal[16] = "-";
                if (r.goal > 0) std::snprintf(goal, sizeof goal, "<= %.1f", r.goal);
                std::printf("%-44s %8.2f %8s\n", (ours + " / " + peer).c_str(), v, goal);
            }
        }
    const double dft = ratio("rz_dft/1000", "rz_forward/1024");
    if (dft >= 0) std::printf("%-44s %8.2f %8s\n", "rz_dft/1000 / rz_forward/1024", dft, "< 1.5");
    std::printf("\naccuracy against FFTW (max error / sum of magnitudes): 1024: %.2e, 4096: %.2e (goal 1e-9)\n",
                AccuracyAgainstFftw(1024), AccuracyAgainstFftw(4096));
    benchmark::Shutdown();
    return 0;
}
