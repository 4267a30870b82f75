// Rank filters: the window and rank rules worked by hand, windows far larger
// than the bitmap, regions, views, and the median networks proved on every
// 0/1 input (a comparator network selects correctly on all inputs when it
// does on all 0/1 inputs).
#include "filter_reference.h"
#include "filters/median_network.h"

#include <gtest/gtest.h>

namespace rz::test {
namespace {

using RankFn = int32_t(RZAPI *)(BitmapDesc *, uint32_t);

TEST(Rank, EvenMedianIsTheLowerMiddleAndReachesDownRight) {
    // 10 20 / 30 40: the 2x2 window at (0, 0) holds all four.
    Bitmap b = GreyBitmap(2, 2, {10, 20, 30, 40});
    ASSERT_EQ(Rz_MedianFilterBitmap(b.get(), 2), 1);
    EXPECT_EQ(b.pixel(0, 0), 20u);
    // (1, 1) sees only itself, replicated.
    EXPECT_EQ(b.pixel(1, 1), 40u);
    // (1, 0): 20, 20 (replicated right), 40, 40 -> lower middle 20.
    EXPECT_EQ(b.pixel(1, 0), 20u);

    // n = 4 covers offsets -1..+2.
    std::vector<uint8_t> v(36, 0);
    v[5 * 6 + 5] = 200; // (5, 5)
    Bitmap m = GreyBitmap(6, 6, v);
    ASSERT_EQ(Rz_MaxFilterBitmap(m.get(), 4), 1);
    for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(m.pixel(x, y), (x >= 3 && y >= 3) ? 200u : 0u) << x << "," << y;
}

TEST(Rank, SizeOneLeavesEveryLayoutAlone) {
    for (const Layout &layout : AllLayouts())
        for (RankFn f : {&Rz_MaxFilterBitmap, &Rz_MinFilterBitmap, &Rz_MedianFilterBitmap}) {
            Bitmap b(layout, 7, 5, 2);
            const auto before = b.storedBytes();
            ASSERT_EQ(f(b.get(), 1), 1) << layout.name;
            EXPECT_EQ(b.storedBytes(), before) << layout.name;
        }
}

TEST(Rank, OnePixelWideTakesTheColumnOnly) {
    Bitmap b = GreyBitmap(1, 5, {5, 90, 7, 3, 60});
    ASSERT_EQ(Rz_MaxFilterBitmap(b.get(), 3), 1);
    const uint64_t want[] = {90, 90, 90, 60, 60};
    for (int32_t y = 0; y < 5; ++y) EXPECT_EQ(b.pixel(0, y), want[y]);
    // The median of n copies of each sample of a 3-row window is the
    // median of the column's three.
    Bitmap m = GreyBitmap(1, 5, {5, 90, 7, 3, 60});
    ASSERT_EQ(Rz_MedianFilterBitmap(m.get(), 3), 1);
    const uint64_t med[] = {5, 7, 7, 7, 60};
    for (int32_t y = 0; y < 5; ++y) EXPECT_EQ(m.pixel(0, y), med[y]);
}

TEST(Rank, OnePixelRegionReadsItsWholeWindow) {
    Bitmap b(FindLayout("grey8"), 7, 7, 3);
    const Bitmap before(b);
    const RzRect one{3, 3, 4, 4};
    ASSERT_EQ(DisSetRegionRect(b.get(), &one, DIS_RGN_SET), 1);
    ASSERT_EQ(Rz_MinFilterBitmap(b.get(), 5), 1);
    uint64_t lowest = 255;
    for (int32_t y = 1; y <= 5; ++y)
        for (int32_t x = 1; x <= 5; ++x) lowest = std::min(lowest, before.pixel(x, y));
    for (int32_t y = 0; y < 7; ++y)
        for (int32_t x = 0; x < 7; ++x) EXPECT_EQ(b.pixel(x, y), (x == 3 && y == 3) ? lowest : before.pixel(x, y));
}

// Windows far beyond the bitmap: duplicated edges weigh in the median with
// their multiplicity, and cost no more than the bitmap's size.
TEST(Rank, HugeWindowsWeighTheEdges) {
    for (const char *layout : {"grey8", "grey16", "bgr24", "bgr48"}) {
        SCOPED_TRACE(layout);
        for (uint32_t n : {1000u, 100001u, 4294967295u}) {
            for (RefRank op : {RefRank::Max, RefRank::Min, RefRank::Median}) {
                Bitmap a(FindLayout(layout), 3, 2, 40 + n % 7);
                Bitmap b(a);
                const RankFn f = op == RefRank::Max   ? &Rz_MaxFilterBitmap
                                 : op == RefRank::Min ? &Rz_MinFilterBitmap
                                                      : &Rz_MedianFilterBitmap;
                ASSERT_EQ(f(a.get(), n), 1);
                // Every window is the whole bitmap, each corner sample
                // repeated; count by weight instead of listing them.
                ApplyReference(b.get(), [&](const Picture &p) {
                    Picture q = p;
                    const int64_t h1 = (int64_t(n) - 1) / 2, h2 = int64_t(n) / 2;
                    for (int32_t y = 0; y < p.h; ++y)
                        for (int32_t x = 0; x < p.w; ++x)
                            for (int32_t c = 0; c < p.channels; ++c) {
                                std::vector<std::pair<int64_t, uint64_t>> counts;
                                for (int32_t yy = 0; yy < p.h; ++yy)
                                    for (int32_t xx = 0; xx < p.w; ++xx) {
                                        auto weight = [&](int32_t i, int64_t at, int32_t size) {
                                            const int64_t lo = at - h1, hi = at + h2;
                                            uint64_t w = 1;
                                            if (i == 0) w += uint64_t(-lo);
                                            if (i == size - 1) w += uint64_t(hi - (size - 1));
                                            return w;
                                        };
                                        counts.push_back({p.at(xx, yy, c), weight(xx, x, p.w) * weight(yy, y, p.h)});
                                    }
                                std::sort(counts.begin(), counts.end());
                                const uint64_t area = uint64_t(n) * n;
                                const uint64_t target = n % 2 ? area / 2 : area / 2 - 1;
                                uint64_t seen = 0;
                                int64_t med = 0;
                                for (auto [v, w] : counts) {
                                    seen += w;
                                    if (seen > target) {
                                        med = v;
                                        break;
                                    }
                                }
                                q.at(x, y, c) = op == RefRank::Max   ? counts.back().first
                                                : op == RefRank::Min ? counts.front().first
                                                                     : med;
                            }
                    return q;
                });
                EXPECT_EQ(a.storedBytes(), b.storedBytes()) << "n " << n << " op " << int(op);
            }
        }
    }
}

// Same picture, any view: the even window reaches down and right in the
// picture.
TEST(Rank, WindowFollowsThePictureInEveryView) {
    for (uint32_t n : {2u, 4u, 6u}) {
        for (RankFn f : {&Rz_MaxFilterBitmap, &Rz_MedianFilterBitmap}) {
            const Bitmap original(FindLayout("grey16"), 9, 6, 50 + n);
            Bitmap upright(original);
            ASSERT_EQ(f(upright.get(), n), 1);
            for (int32_t view : {3, 4, 5, 7}) {
                Bitmap turned(original);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, turned.get(), BITMAPDESC_SIZE, view, 0), 1);
                ASSERT_EQ(f(turned.get(), n), 1);
                EXPECT_EQ(turned->nViewPerspective, view);
                EXPECT_EQ(turned.storedBytes(), upright.storedBytes()) << "n " << n << " view " << view;
            }
        }
    }
}

TEST(Rank, Validation) {
    EXPECT_EQ(Rz_MedianFilterBitmap(nullptr, 0), ST_INVALID_PARAMETER) << "the size is checked first";
    EXPECT_EQ(Rz_MaxFilterBitmap(nullptr, 3), ST_NULL_POINTER);
    Bitmap b(FindLayout("grey8"), 4, 4, 1);
    b->uFlags |= BMF_SIGNED;
    EXPECT_EQ(Rz_MinFilterBitmap(b.get(), 3), ST_SIGNED_NOT_SUPPORTED);
    b->uFlags &= ~BMF_SIGNED;
    b->uStructSize = 165;
    EXPECT_EQ(Rz_MinFilterBitmap(b.get(), 3), ST_BAD_STRUCT_SIZE);
    b->uStructSize = BITMAPDESC_SIZE;
}

TEST(Rank, ProgressCoversTheRegionRows) {
    Bitmap b(FindLayout("bgr24"), 30, 50, 1);
    const RzRect r{2, 10, 20, 35};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    CallbackRecorder rec;
    ASSERT_EQ(Rz_MedianFilterBitmap(b.get(), 9), 1);
    std::vector<int32_t> want{0};
    for (int32_t p = 4; p <= 100; p += 4) want.push_back(p); // 25 rows
    EXPECT_EQ(rec.percents(), want);
}

// 64 inputs at a time: bit k of word i is input i of the k-th 0/1 vector;
// min is AND, max is OR.
template <int Side> void ExpectNetworkSelects() {
    using Net = filt::MedianNet<Side>;
    constexpr int N = Net::kCount;
    const uint64_t total = uint64_t(1) << N;
    for (uint64_t base = 0; base < total; base += 64) {
        uint64_t v[N];
        for (int i = 0; i < N; ++i) {
            if (i < 6) { // the low six bits run through the 64 vectors
                uint64_t word = 0;
                for (int k = 0; k < 64; ++k)
                    if ((k >> i) & 1) word |= uint64_t(1) << k;
                v[i] = word;
            } else {
                v[i] = ((base >> i) & 1) ? ~uint64_t(0) : 0;
            }
        }
        uint64_t out[N];
        std::copy(v, v + N, out);
        for (int s = 0; s < Net::kNet.count; ++s) {
            const filt::NetStep st = Net::kNet.steps[s];
            const uint64_t lo = out[st.a] & out[st.b], hi = out[st.a] | out[st.b];
            if (st.kind != 2) out[st.a] = lo;
            if (st.kind != 1) out[st.b] = hi;
        }
        for (int k = 0; k < 64 && base + k < total; ++k) {
            // The rank-th smallest of a 0/1 vector is 1 when fewer than
            // rank + 1 of its inputs are 0.
            const int zeros = N - __builtin_popcountll(base + k);
            const uint64_t want = zeros <= Net::kRank ? 1 : 0;
            ASSERT_EQ((out[Net::kRank] >> k) & 1, want) << "input " << (base + k);
        }
    }
}

TEST(MedianNetworks, SelectOnEveryZeroOneInput) {
    ExpectNetworkSelects<2>();
    ExpectNetworkSelects<3>();
    ExpectNetworkSelects<4>();
    ExpectNetworkSelects<5>();
}

} // namespace
} // namespace rz::test
