// Nearest-palette matching: hand-picked nearest and tied entries, grey rows,
// in-place use, and rows with more colours than the match cache holds
// against an exhaustive search.
#include "convert_util.h"

#include <gtest/gtest.h>

#include <random>

using namespace cvt;

namespace {

BitmapDesc PaletteDesc(int32_t bits, int32_t width, RzRGBQuad *pal, int32_t colours) {
    BitmapDesc d{};
    d.uStructSize = BITMAPDESC_SIZE;
    d.nBitsPerPixel = bits;
    d.nWidth = width;
    d.nColors = colours;
    d.pPalette = pal;
    return d;
}

// The first entry of least squared distance.
uint8_t Exhaustive(const RzRGBQuad *pal, int n, int r, int g, int b) {
    int best = -1, bestD = 0;
    for (int k = 0; k < n; ++k) {
        const int dr = pal[k].rgbRed - r, dg = pal[k].rgbGreen - g, db = pal[k].rgbBlue - b;
        const int d = dr * dr + dg * dg + db * db;
        if (best < 0 || d < bestD) best = k, bestD = d;
    }
    return static_cast<uint8_t>(best);
}

} // namespace

TEST(MatchPalette, NearestAndLowestOnTies) {
    RzRGBQuad pal[256] = {Quad(0, 0, 0), Quad(255, 255, 255), Quad(200, 0, 0), Quad(200, 0, 0), Quad(2, 0, 0)};
    BitmapDesc d = PaletteDesc(24, 5, pal, 5);
    // B, G, R: dark red, exact duplicate, midway between black and (2,0,0), near white, red.
    const Bytes work{0, 0, 120, 0, 0, 200, 0, 0, 1, 250, 250, 240, 10, 10, 180};
    Bytes idx(5);
    ASSERT_EQ(KrnMatchRowToPalette(&d, work.data(), idx.data()), KRN_OK);
    EXPECT_EQ(idx, (Bytes{2, 2, 0, 1, 2}));
}

TEST(MatchPalette, GreyRowsCompareAsGreyColours) {
    RzRGBQuad pal[256] = {Quad(40, 40, 40), Quad(0, 0, 0), Quad(90, 0, 0), Quad(60, 60, 60)};
    BitmapDesc d = PaletteDesc(8, 6, pal, 4);
    // 20 is as far from 0 as from 40: index 0 wins. 50 ties 40 and 60. 90 is
    // nearer (60,60,60) (2700) than (90,0,0) (16200). Repeats use the cache.
    Bytes row{20, 50, 90, 0, 20, 255};
    ASSERT_EQ(KrnMatchRowToPalette(&d, row.data(), row.data()), KRN_OK);
    EXPECT_EQ(row, (Bytes{0, 0, 3, 1, 0, 3}));
}

TEST(MatchPalette, ManyColoursAgreeWithExhaustiveSearch) {
    std::mt19937 rng(42);
    RzRGBQuad pal[256];
    for (auto &q : pal) q = Quad(static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()));
    pal[200] = pal[17]; // a duplicate answers with the lower index
    const int width = 5000; // more distinct colours than the cache keeps
    Bytes work(3 * width), copy;
    for (auto &b : work) b = static_cast<uint8_t>(rng());
    for (int i = 0; i < width; i += 97) { // some exact palette colours
        const RzRGBQuad &q = pal[rng() % 256];
        work[3 * i] = q.rgbBlue, work[3 * i + 1] = q.rgbGreen, work[3 * i + 2] = q.rgbRed;
    }
    copy = work;
    BitmapDesc d = PaletteDesc(24, width, pal, 256);
    ASSERT_EQ(KrnMatchRowToPalette(&d, work.data(), work.data()), KRN_OK); // in place
    int mismatches = 0;
    for (int i = 0; i < width; ++i)
        mismatches += work[i] != Exhaustive(pal, 256, copy[3 * i + 2], copy[3 * i + 1], copy[3 * i]);
    EXPECT_EQ(mismatches, 0);

}

TEST(MatchPalette, RejectsBadDescriptors) {
    RzRGBQuad pal[256] = {};
    Bytes row(3), idx(1);
    BitmapDesc d = PaletteDesc(24, 1, pal, 0);
    EXPECT_EQ(KrnMatchRowToPalette(&d, row.data(), idx.data()), KRN_INVALID_PARAMETER);
    d.nColors = 2;
    d.nBitsPerPixel = 4;
    EXPECT_EQ(KrnMatchRowToPalette(&d, row.data(), idx.data()), KRN_INVALID_PARAMETER);
    d.nBitsPerPixel = 24;
    d.pPalette = nullptr;
    EXPECT_EQ(KrnMatchRowToPalette(&d, row.data(), idx.data()), KRN_INVALID_PARAMETER);
    d.pPalette = pal;
    d.uStructSize = 163;
    EXPECT_EQ(KrnMatchRowToPalette(&d, row.data(), idx.data()), KRN_BAD_STRUCT_SIZE);
    d.uStructSize = BITMAPDESC_SIZE;
    EXPECT_EQ(KrnMatchRowToPalette(nullptr, row.data(), idx.data()), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnMatchRowToPalette(&d, row.data(), idx.data()), KRN_OK);
}
