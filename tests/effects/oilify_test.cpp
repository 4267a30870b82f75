// Oilify: the tie rules worked by hand, and every layout, shape, region and
// view against a literal reference: the window's values added one by one
// for the first column, then one leaving and one entering value per window
// row, repeated edge rows and columns counted as often as they repeat, and
// the 256 counts searched when the mode's value leaves. The reference also
// counts every window directly and checks that the mode holds its largest
// count.
#include "direct_pixels.h"

#include <gtest/gtest.h>


namespace rz::test {
namespace {

Plane LiteralOilify(const Plane &p, int64_t n) {
    Plane q = p;
    const int64_t h1 = (n - 1) / 2, h2 = n / 2;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t c = 0; c < p.channels; ++c) {
            std::vector<int64_t> count(256, 0);
            int64_t mode = 0;
            for (int64_t r = y - h1; r <= y + h2; ++r)
                for (int64_t col = -h1; col <= h2; ++col) {
                    const int64_t v = p.clamped(col, r)[c];
                    ++count[v];
                    if (v != mode && count[v] > count[mode]) mode = v;
                }
            q.at(0, y)[c] = mode;
            for (int32_t x = 1; x < p.w; ++x) {
                for (int64_t r = y - h1; r <= y + h2; ++r) {
                    const int64_t out = p.clamped(x - 1 - h1, r)[c], in = p.clamped(x + h2, r)[c];
                    --count[out];
                    ++count[in];
                    if (out == mode)
                        mode = std::max_element(count.begin(), count.end()) - count.begin();
                    else if (in != mode && count[in] > count[mode])
                        mode = in;
                }
                q.at(x, y)[c] = mode;
            }
        }
    return q;
}

// Every output channel value is as frequent as any value of its window.
void ExpectModes(const Plane &p, const Plane &q, int64_t n) {
    const int64_t h1 = (n - 1) / 2, h2 = n / 2;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                std::vector<uint64_t> count(256, 0);
                // Each real pixel once, weighted by how often the window repeats it.
                for (int32_t r = 0; r < p.h; ++r)
                    for (int32_t col = 0; col < p.w; ++col) {
                        auto weight = [](int64_t i, int64_t lo, int64_t hi, int64_t size) -> int64_t {
                            // The window positions that the clamp maps to i.
                            const int64_t from = i == 0 ? lo : std::max(i, lo);
                            const int64_t to = i == size - 1 ? hi : std::min(i, hi);
                            return std::max<int64_t>(0, to - from + 1);
                        };
                        count[p.at(col, r)[c]] +=
                            uint64_t(weight(r, y - h1, y + h2, p.h)) * uint64_t(weight(col, x - h1, x + h2, p.w));
                    }
                const uint64_t best = *std::max_element(count.begin(), count.end());
                ASSERT_EQ(count[q.at(x, y)[c]], best) << x << "," << y << " channel " << c;
            }
}

TEST(Oilify, TiesGoToTheFirstToReachAndToTheLowestAfterASearch) {
    // n = 2 at x = 0 adds 30, 10, 30, 10: 30 got there first. At x = 1 the
    // mode's own 30 leaves and the search finds 10 and 30 twice each: 10.
    // At x = 2 the mode's 10 leaves again: 30 four times.
    Bitmap b = GreyBitmap(3, 2, {30, 10, 30, 30, 10, 30});
    ASSERT_EQ(Rz_OilifyBitmap(b.get(), 2), 1);
    for (int32_t y = 0; y < 2; ++y) {
        EXPECT_EQ(b.pixel(0, y), 30u);
        EXPECT_EQ(b.pixel(1, y), 10u);
        EXPECT_EQ(b.pixel(2, y), 30u);
    }
    // 3 x 3 over 5 7 / 7 5 with replicated edges: at (0, 0) the counts of
    // 5 and 7 rise in turns from the top-left and 5 keeps the lead.
    Bitmap c = GreyBitmap(2, 2, {5, 7, 7, 5});
    ASSERT_EQ(Rz_OilifyBitmap(c.get(), 3), 1);
    EXPECT_EQ(c.pixel(0, 0), 5u);
}

TEST(Oilify, MatchesTheLiteralReference) {
    uint32_t seed = 100;
    for (const Setting &s : ReferenceSettings())
        for (uint32_t n : {2u, 3u, 5u, 8u, 30u}) {
            SCOPED_TRACE(std::string(s.layout->name) + " " + std::to_string(s.w) + "x" + std::to_string(s.h) +
                         " region " + std::to_string(s.region) + " view " + std::to_string(s.view) + " n " +
                         std::to_string(n));
            Bitmap before = Make(s, seed), after = Make(s, seed);
            ++seed;
            // Few distinct values make ties common.
            if (seed % 2) {
                for (int32_t y = 0; y < before->nHeight; ++y)
                    for (int32_t x = 0; x < before->nWidth; ++x) {
                        const uint64_t v = before.pixel(x, y) & 0x030303030303u;
                        before.setPixel(x, y, v);
                        after.setPixel(x, y, v);
                    }
            }
            const Plane p = DirectPixels(before.get(), true).plane();
            const int64_t blocks = KrnMemOutstanding();
            ASSERT_EQ(Rz_OilifyBitmap(after.get(), n), 1);
            EXPECT_EQ(KrnMemOutstanding(), blocks);
            const Plane q = LiteralOilify(p, n);
            if (s.w * s.h > 1) ExpectModes(p, q, n);
            ExpectResult(before, after, q, true);
        }
}

// Windows far larger than the bitmap: edge rows repeated hundreds of times
// against the literal reference, and sizes with counts beyond 32 bits
// against the direct counts.
TEST(Oilify, HugeWindowsRepeatTheEdges) {
    for (const char *layout : {"grey8", "bgr24"}) {
        SCOPED_TRACE(layout);
        Bitmap before(FindLayout(layout), 4, 3, 7), after(before);
        // Few values, so that repeated rows tie and untie.
        for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 4; ++x) {
                before.setPixel(x, y, before.pixel(x, y) & 0x010101);
                after.setPixel(x, y, before.pixel(x, y));
            }
        const Plane p = DirectPixels(before.get(), true).plane();
        ASSERT_EQ(Rz_OilifyBitmap(after.get(), 701), 1);
        ExpectResult(before, after, LiteralOilify(p, 701), true);
        for (uint32_t n : {65537u, 4294967295u}) {
            Bitmap big(before);
            ASSERT_EQ(Rz_OilifyBitmap(big.get(), n), 1);
            ExpectModes(p, DirectPixels(big.get(), true).plane(), n);
        }
    }
}

} // namespace
} // namespace rz::test
