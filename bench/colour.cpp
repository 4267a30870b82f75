// Hue, saturation, the combined hue/saturation/intensity change and
// desaturation on a 4096x4096 24-bit bitmap, beside OpenCV's conversion of
// the same pixels from BGR to HSV and back (cv::cvtColor, one thread): the
// same kind of work, a forward and an inverse colour model per pixel.
//
// The picture is photograph-like (smooth light, hue and saturation fields
// with noise), since which channel is the minimum steers the models'
// branches. Every iteration starts from the same pixels: the operations work
// in place, and the copy back is left out of the timing.
#include <rzimg.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int32_t kSide = 4096;

// Blue, green, red bytes, row after row without padding.
const std::vector<uint8_t> &Picture() {
    static const std::vector<uint8_t> pixels = [] {
        std::vector<uint8_t> p(static_cast<size_t>(kSide) * kSide * 3);
        const double pi = 3.1415926535;
        uint32_t s = 0x9E3779B9u;
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                const double light = 0.5 + 0.38 * std::sin(x / 180.0 + 0.7) * std::cos(y / 240.0);
                const double theta = 2 * pi * (x / 1240.0 + 0.3 * std::sin(y / 330.0));
                const double sat = 0.15 + 0.55 * (0.5 + 0.5 * std::sin((x + 2 * y) / 390.0));
                const double rgb[3] = {light * (1 + sat * std::cos(theta)),
                                       light * (1 + sat * std::cos(theta - 2 * pi / 3)),
                                       light * (1 + sat * std::cos(theta + 2 * pi / 3))};
                uint8_t *px = &p[(static_cast<size_t>(y) * kSide + x) * 3];
                for (int c = 0; c < 3; ++c) {
                    s = s * 1664525u + 1013904223u;
                    const double noise = ((s >> 24) - 127.5) / 32.0;
                    const double v = 255 * rgb[c] + noise;
                    px[2 - c] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
                }
            }
        return p;
    }();
    return pixels;
}

class Colour24 {
  public:
    Colour24() {
        if (KrnInitBitmap(&d_, BITMAPDESC_SIZE, kSide, kSide, 24) != KRN_OK) std::abort();
        if (KrnAllocBitmap(&d_) != KRN_OK) std::abort();
        reset();
    }
    ~Colour24() { KrnFreeBitmap(&d_); }
    Colour24(const Colour24 &) = delete;
    Colour24 &operator=(const Colour24 &) = delete;

    void reset() {
        const uint8_t *src = Picture().data();
        for (int y = 0; y < kSide; ++y)
            std::memcpy(d_.pData + static_cast<size_t>(y) * d_.nStride, src + static_cast<size_t>(y) * kSide * 3,
                        static_cast<size_t>(kSide) * 3);
    }
    BitmapDesc *desc() { return &d_; }

  private:
    BitmapDesc d_{};
};

template <class Op> void RunInPlace(benchmark::State &state, Op op) {
    static Colour24 bitmap;
    for (auto _ : state) {
        state.PauseTiming();
        bitmap.reset();
        state.ResumeTiming();
        if (op(bitmap.desc()) != ST_SUCCESS) state.SkipWithError("the operation failed");
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kSide} * kSide);
}

void BM_ChangeBitmapHue(benchmark::State &state) {
    RunInPlace(state, [](BitmapDesc *b) { return Rz_ChangeBitmapHue(b, 120); });
}
void BM_ChangeBitmapSaturation(benchmark::State &state) {
    RunInPlace(state, [](BitmapDesc *b) { return Rz_ChangeBitmapSaturation(b, 300); });
}
void BM_ChangeHueSatIntBitmap(benchmark::State &state) {
    static const HueSatIntRange range{HUESATINTRANGE_SIZE, 3000, -200, 100, 350, 60, 355, 30};
    RunInPlace(state, [](BitmapDesc *b) { return Rz_ChangeHueSatIntBitmap(b, 4500, 200, 50, &range, 1); });
}
void BM_DesaturateBitmap(benchmark::State &state) {
    RunInPlace(state, [](BitmapDesc *b) { return Rz_DesaturateBitmap(b); });
}

BENCHMARK(BM_ChangeBitmapHue)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ChangeBitmapSaturation)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ChangeHueSatIntBitmap)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DesaturateBitmap)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef RZ_HAVE_OPENCV
void BM_OpenCV_BGR_HSV_BGR(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat src(kSide, kSide, CV_8UC3, const_cast<uint8_t *>(Picture().data()));
    cv::Mat hsv(kSide, kSide, CV_8UC3), back(kSide, kSide, CV_8UC3);
    for (auto _ : state) {
        cv::cvtColor(src, hsv, cv::COLOR_BGR2HSV_FULL);
        cv::cvtColor(hsv, back, cv::COLOR_HSV2BGR_FULL);
        benchmark::DoNotOptimize(back.data);
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kSide} * kSide);
}
BENCHMARK(BM_OpenCV_BGR_HSV_BGR)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

} // namespace

BENCHMARK_MAIN();
