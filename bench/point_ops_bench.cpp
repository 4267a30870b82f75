// Point operations on 4096x4096 bitmaps beside their peers: the table
// engine (Rz_ChangeBitmapIntensity, Rz_InvertBitmap) on 8-bit grey, 24-bit
// and 48-bit colour; OpenCV's cv::LUT on the same pixel memory, single
// threaded (8-bit only: it has no 16-bit tables); and a memcpy of the pixel
// memory, the floor that memory bandwidth sets for any pass over the image.
// The palettised case changes only the 256 palette entries.
//
// The operations run in place, again and again on the same pixels; a table
// lookup costs the same whatever the values, so the drift of the samples
// towards white does not matter. The bitmaps are made once and kept.
#include "bench_picture.h"

#include <rzimg.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

enum class Kind { Grey8, Colour24, Colour48, Palette8 };

struct KindInfo {
    const char *name;
    int32_t bits;
};

KindInfo Info(Kind k) {
    switch (k) {
    case Kind::Grey8: return {"grey8", 8};
    case Kind::Colour24: return {"rgb24", 24};
    case Kind::Colour48: return {"rgb48", 48};
    case Kind::Palette8: return {"palette8", 8};
    }
    return {"?", 0};
}

using Bitmap = rzbench::BenchBitmap;

Bitmap &Shared(Kind k) {
    static std::map<Kind, std::unique_ptr<Bitmap>> bitmaps;
    auto &slot = bitmaps[k];
    if (!slot) slot = std::make_unique<Bitmap>(Info(k).bits, k == Kind::Grey8, rzbench::Picture::Noise);
    return *slot;
}

template <class Op> void RunOp(benchmark::State &state, Kind k, Op op) {
    Bitmap &bmp = Shared(k);
    for (auto _ : state) {
        const int32_t st = op(bmp.desc());
        if (st != ST_SUCCESS) {
            state.SkipWithError(("status " + std::to_string(st)).c_str());
            break;
        }
        benchmark::ClobberMemory();
    }
    // A palette change touches no pixels: a rate would mean nothing.
    if (k != Kind::Palette8)
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bmp.bytes()));
}

void Intensity(benchmark::State &state, Kind k) {
    RunOp(state, k, [](BitmapDesc *d) { return Rz_ChangeBitmapIntensity(d, 200); });
}

void Invert(benchmark::State &state, Kind k) { RunOp(state, k, [](BitmapDesc *d) { return Rz_InvertBitmap(d); }); }

void Memcpy(benchmark::State &state, Kind k) {
    Bitmap &bmp = Shared(k);
    std::vector<uint8_t> out(bmp.bytes());
    for (auto _ : state) {
        std::memcpy(out.data(), bmp.desc()->pData, bmp.bytes());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bmp.bytes()));
}

#ifdef RZ_HAVE_OPENCV
// The same tables as ours: +51 clamped, and 255 - v.
void CvLut(benchmark::State &state, Kind k, bool invert) {
    cv::setNumThreads(1);
    Bitmap &bmp = Shared(k);
    BitmapDesc *d = bmp.desc();
    cv::Mat pixels(d->nHeight, d->nWidth, k == Kind::Colour24 ? CV_8UC3 : CV_8UC1, d->pData, d->nStride);
    cv::Mat lut(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i) lut.at<uint8_t>(i) = static_cast<uint8_t>(invert ? 255 - i : std::min(i + 51, 255));
    for (auto _ : state) {
        cv::LUT(pixels, lut, pixels);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bmp.bytes()));
}
#endif

void Register() {
    for (Kind k : {Kind::Grey8, Kind::Colour24, Kind::Colour48}) {
        const std::string name = Info(k).name;
        benchmark::RegisterBenchmark(("intensity/" + name + "/rz").c_str(), Intensity, k)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("invert/" + name + "/rz").c_str(), Invert, k)->Unit(benchmark::kMillisecond);
#ifdef RZ_HAVE_OPENCV
        if (k != Kind::Colour48) {
            benchmark::RegisterBenchmark(("intensity/" + name + "/cv_lut").c_str(), CvLut, k, false)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("invert/" + name + "/cv_lut").c_str(), CvLut, k, true)
                ->Unit(benchmark::kMillisecond);
        }
#endif
        benchmark::RegisterBenchmark(("copy/" + name + "/memcpy").c_str(), Memcpy, k)->Unit(benchmark::kMillisecond);
    }
    benchmark::RegisterBenchmark("intensity/palette8/rz", Intensity, Kind::Palette8)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("invert/palette8/rz", Invert, Kind::Palette8)->Unit(benchmark::kMicrosecond);
}

} // namespace

int main(int argc, char **argv) {
    Register();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
