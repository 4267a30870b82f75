// Skew measurement of an A4 page at 300 dpi (2480 x 3508), 1-bit and 8-bit,
// beside Leptonica's pixFindSkew on the same page (8-bit: thresholded at 128
// first, as it needs 1 bpp). Measurement only; one thread.
#include <rzimg.h>

#include "tests/document/text_page.h"

#include <benchmark/benchmark.h>
#include <leptonica/allheaders.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

const rz::test::TextPage &Page() {
    static const rz::test::TextPage page = rz::test::MakeTextPage(2480, 3508, 2.3, 5);
    return page;
}

struct Fixture {
    BitmapDesc b{};
    explicit Fixture(int bits) { rz::test::PageBitmap(Page(), bits, &b); }
    ~Fixture() { KrnFreeBitmap(&b); }
};

PIX *LeptPage(int bits) {
    const auto &p = Page();
    PIX *pix = pixCreate(p.width, p.height, bits);
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x)
            pixSetPixel(pix, x, y, bits == 1 ? (p.inkAt(x, y) ? 1 : 0) : p.grey[size_t(y) * p.width + x]);
    return pix;
}

void BM_Deskew(benchmark::State &state) {
    const int bits = int(state.range(0));
    const bool ext = state.range(1) != 0;
    Fixture f(bits);
    int32_t angle = 0;
    for (auto _ : state) {
        const int32_t st = ext ? Rz_DeskewBitmapExt(&f.b, &angle, 1000, 1, 0xFFFFFF, 1 | 0x10000)
                               : Rz_DeskewBitmap(&f.b, &angle, 0xFFFFFF, 1);
        if (st != 1) state.SkipWithError("deskew failed");
    }
    state.counters["angle"] = angle / 100.0;
}

void BM_DeskewPrefiltered(benchmark::State &state) {
    Fixture f(int(state.range(0)));
    int32_t angle = 0;
    for (auto _ : state) {
        if (Rz_DeskewBitmapExt(&f.b, &angle, 1000, 2, 0xFFFFFF, 1) != 1) state.SkipWithError("deskew failed");
    }
    state.counters["angle"] = angle / 100.0;
}

void BM_PixFindSkew(benchmark::State &state) {
    const int bits = int(state.range(0));
    PIX *pix = LeptPage(bits);
    l_float32 angle = 0, conf = 0;
    for (auto _ : state) {
        PIX *binary = bits == 1 ? pixClone(pix) : pixThresholdToBinary(pix, 128);
        pixFindSkew(binary, &angle, &conf);
        pixDestroy(&binary);
    }
    pixDestroy(&pix);
    state.counters["angle"] = angle;
}

BENCHMARK(BM_Deskew)->Args({1, 0})->Args({8, 0})->Args({1, 1})->Args({8, 1})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeskewPrefiltered)->Arg(1)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixFindSkew)->Arg(1)->Arg(8)->Unit(benchmark::kMillisecond);

// Collects each run's time per iteration for the closing table.
class Collector : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs)
            if (!r.error_occurred) times[r.benchmark_name()] = r.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    const auto &t = collector.times;
    auto ratio = [&](const std::string &ours, const std::string &peer) {
        const auto a = t.find(ours), b = t.find(peer);
        return a == t.end() || b == t.end() || b->second <= 0 ? -1.0 : a->second / b->second;
    };
    std::printf("\n%-52s %8s %6s\n", "CPU time ratio to pixFindSkew (A4 300 dpi, measure)", "ratio", "goal");
    const struct {
        const char *label, *ours, *peer, *goal;
    } rows[] = {
        {"Rz_DeskewBitmap direct, 1-bit", "BM_Deskew/1/0", "BM_PixFindSkew/1", "<= 2"},
        {"Rz_DeskewBitmap direct, 8-bit", "BM_Deskew/8/0", "BM_PixFindSkew/8", "-"},
        {"Rz_DeskewBitmapExt direct 0.1 deg, 1-bit", "BM_Deskew/1/1", "BM_PixFindSkew/1", "-"},
        {"Rz_DeskewBitmapExt direct 0.1 deg, 8-bit", "BM_Deskew/8/1", "BM_PixFindSkew/8", "-"},
        {"Rz_DeskewBitmapExt pre-filtered 0.2 deg, 1-bit", "BM_DeskewPrefiltered/1", "BM_PixFindSkew/1", "-"},
        {"Rz_DeskewBitmapExt pre-filtered 0.2 deg, 8-bit", "BM_DeskewPrefiltered/8", "BM_PixFindSkew/8", "-"},
    };
    for (const auto &r : rows) std::printf("%-52s %8.2f %6s\n", r.label, ratio(r.ours, r.peer), r.goal);
    return 0;
}
