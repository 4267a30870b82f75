// Deskew against a naive reference that reads every pixel with KrnGetPixel
// and scores every shift with plain loops (every layout and view), the
// pre-filtered path rebuilt from its exports, the rotation; and the skew of
// synthetic pages and scikit-image's scanned `page` sample, turned by known
// angles, beside Leptonica's pixFindSkew.
#include "document/text_page.h"
#include "support/bitmaps.h"

#include <rzfil.h>

#include <gtest/gtest.h>

#if defined(RZ_HAVE_LEPTONICA)
#include <leptonica/allheaders.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace rz::test {
namespace {

constexpr double kPi = 3.1415926535;

int Weight(uint32_t r, uint32_t g, uint32_t b) { return int((2 * r + 5 * g + b + 4) / 8); }
int Weight(const RzRGBQuad &q) { return Weight(q.rgbRed, q.rgbGreen, q.rgbBlue); }

// The value the score multiplies, per view pixel; 1-bit: 1 for the lighter colour.
std::vector<int> ScoredValues(const BitmapDesc *b) {
    const int bits = b->nBitsPerPixel, W = b->nWidth, H = b->nHeight;
    std::vector<int> v(size_t(W) * H);
    std::vector<RzRGBQuad> pal(256);
    if (bits <= 8 && b->pPalette) KrnGetBitmapPalette(b, 0, b->nColors, pal.data());
    const bool grey = b->nColorOrder == KRN_ORDER_GRAY;
    const int lighter = bits == 1 && !grey && Weight(pal[0]) > Weight(pal[1]) ? 0 : 1;
    for (int i = 0; i < W * H; ++i) {
        uint64_t raw = 0;
        KrnGetPixel(b, i % W, i / W, &raw);
        if (bits == 1) {
            v[i] = int(raw) == lighter;
        } else if (bits <= 8) {
            const int max = (1 << bits) - 1;
            v[i] = grey ? int((raw * 255 + max / 2) / max) : Weight(pal[raw]);
        } else if (bits <= 16) {
            const int count = (b->nHighBit < 0 ? bits - 1 : b->nHighBit) - b->nLowBit + 1;
            const uint32_t s = uint32_t(raw >> b->nLowBit) & ((1u << count) - 1);
            const bool table = b->pLUT && (b->uFlags & BMF_USE_LUT);
            v[i] = table ? Weight(b->pLUT[std::min(s, b->nLUTLength - 1)]) : int(s >> (count - 8));
        } else {
            const int shift = bits >= 48 ? 8 : 0, step = bits >= 48 ? 16 : 8;
            v[i] = Weight(uint32_t(raw >> shift) & 0xFF, uint32_t(raw >> (step + shift)) & 0xFF,
                          uint32_t(raw >> (2 * step + shift)) & 0xFF);
        }
    }
    return v;
}

// Angle in hundredths as the export reports it, for search (n, L).
int32_t NaiveAngle(const BitmapDesc *b, int n, int L) {
    const std::vector<int> v = ScoredValues(b);
    const int W = b->nWidth, H = b->nHeight;
    const bool packed = b->nBitsPerPixel == 1;
    std::vector<uint32_t> score(size_t(2 * n + 1)), smooth(score.size());
    for (int s = -n; s <= n; ++s)
        for (int y = n; y <= H - 1 - n; ++y) {
            uint32_t sum = 0;
            for (int x = 0; x + L < W; ++x) {
                const int a = v[size_t(y) * W + x], c = v[size_t(y + s) * W + x + L];
                sum += uint32_t(packed ? (a & c) : a * c);
            }
            score[size_t(s + n)] += packed ? sum : sum / 65025;
        }
    for (size_t i = 0; i < score.size(); ++i)
        smooth[i] = uint32_t((uint64_t(score[i == 0 ? 0 : i - 1]) + score[i] +
                              score[std::min(i + 1, score.size() - 1)]) / 3);
    const auto best = std::max_element(smooth.begin(), smooth.end()); // first of the largest
    if (*best == *std::min_element(smooth.begin(), smooth.end())) return 0;
    const int32_t raw = int32_t(std::atan(double(best - smooth.begin() - n) / L) * (18000 / kPi));
    const int view = b->nViewPerspective;
    return view == 1 || view == 2 || view == 6 || view == 8 ? -raw : raw;
}

// The Ext search (n, L) for a range (hundredths) and resolution (tenths).
std::pair<int, int> ExtSearch(int w, int h, uint32_t range, uint32_t res) {
    const double diag = std::min(std::atan2(double(w), h), std::atan2(double(h), w));
    const uint32_t limit = std::min(uint32_t(diag * 18000 / kPi), range);
    const int L = int(std::ceil(1 / std::fabs(std::tan(res * kPi / 1800))));
    return {int(std::ceil(std::fabs(std::tan(limit * kPi / 18000)) * L)), L};
}

int32_t MeasureExt(BitmapDesc *b, uint32_t range, uint32_t res, uint32_t flags) {
    int32_t angle = -99999;
    EXPECT_EQ(Rz_DeskewBitmapExt(b, &angle, range, res, 0, RZ_DESKEW_MEASURE_ONLY | flags), 1);
    return angle;
}

Bitmap FromPage(const TextPage &page, int bits) {
    BitmapDesc d{};
    EXPECT_EQ(PageBitmap(page, bits, &d), 1);
    return Bitmap::Adopt(d);
}

// Random pixels (or black) and lines falling 1 in 6 to the right as the view shows them.
Bitmap Structured(const Layout &layout, int w, int h, uint32_t seed, int view = 1,
                  uint64_t ink = ~0ull) {
    Bitmap b(layout, w, h, seed);
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0);
    if (ink == ~0ull) ink = b.pixel(0, 0);
    for (int line = 8; line < b->nHeight; line += 11)
        for (int x = 0; x < b->nWidth && line + x / 6 < b->nHeight; ++x)
            b.setPixel(x, line + x / 6, ink);
    return b;
}

// Random pixels with dark lines on every layout; light lines over black in
// every view, where they alone decide and the sign follows the view; the
// pre-filtered path rebuilt from exports (8-bit grey, band 128..255, the rank
// filter that grows the minority colour).
TEST(Deskew, MeasurementMatchesTheNaiveScores) {
    const auto [n, L] = ExtSearch(90, 80, 2000, 45); // L 13, n 5: no scaled copy
    std::vector<std::tuple<const Layout *, int, uint64_t>> cases;
    for (const Layout &layout : AllLayouts()) cases.emplace_back(&layout, 1, ~0ull);
    for (int view = 1; view <= 8; ++view)
        for (auto [name, ink] : {std::pair{"pal1_grey", 1}, std::pair{"grey8", 255}})
            cases.emplace_back(&FindLayout(name), view, ink);
    for (const auto &[layout, view, ink] : cases) {
        SCOPED_TRACE(std::string(layout->name) + " view " + std::to_string(view));
        Bitmap b = Structured(*layout, 90, 80, ink == ~0ull ? 3 : 0, view, ink);
        const auto stored = b.storedBytes();
        const int32_t got = MeasureExt(b.get(), 2000, 45, RZ_DESKEW_PATH);
        EXPECT_EQ(got, NaiveAngle(b.get(), n, L));
        EXPECT_EQ(b.storedBytes(), stored);
        const bool negated = view == 1 || view == 2 || view == 6 || view == 8;
        EXPECT_TRUE(ink == ~0ull || (got < 0) == negated) << got;
    }
    const auto [pn, pL] = ExtSearch(120, 90, 2000, 45);
    for (const char *name : {"pal1_grey", "pal4_colour", "grey16_bits0_11", "rgb24"}) {
        Bitmap b = Structured(FindLayout(name), 120, 90, 5), copy = OutputBitmap();
        ASSERT_EQ(KrnConvertBitmap(copy.get(), b.get(), 164, 8, KRN_ORDER_GRAY, 0, 0), 1);
        ASSERT_EQ(Rz_IntensityDetectBitmap(copy.get(), 128, 255, 0xFFFFFF, 0, 0), 1);
        uint32_t hist[256];
        ASSERT_EQ(KrnGetBitmapHistogram(copy.get(), hist), 1);
        const int64_t black = int64_t(hist[0]) * 1000 / (hist[0] + hist[255]);
        const int64_t minority = std::min(black, 1000 - black); // per mille
        const int64_t size1 = std::clamp<int64_t>(int64_t(std::hypot(120, 90)) / 1200 * 15, 5, 15);
        const uint32_t size = uint32_t(std::clamp<int64_t>((1000 - minority) * size1 / 900, 5, 15));
        ASSERT_EQ((black > 500 ? Rz_MaxFilterBitmap : Rz_MinFilterBitmap)(copy.get(), size), 1);
        EXPECT_EQ(MeasureExt(b.get(), 2000, 45, 0), NaiveAngle(copy.get(), pn, pL)) << name;
    }
}

// Turned pages come out straight at their depth, corners filled with the
// colour asked for or the page's most frequent grey; a 1-bit page with an
// inverted palette keeps it; a straight page stays as it is.
TEST(Deskew, RotationStraightensAndFills) {
    const struct {
        int bits;
        double degrees;
        uint32_t flags;
        bool inverted;
        uint64_t corner; // ~0: not checked
    } cases[] = {
        {1, -3.1, RZ_DESKEW_FILL_PAGE, true, 0}, {8, 4.0, RZ_DESKEW_FILL_PAGE, false, 200},
        {8, 4.0, 0, false, uint64_t(Weight(0x30, 0x20, 0x10))}, {24, -3.1, 0x1000, false, ~0ull}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.bits) + " " + std::to_string(c.flags));
        Bitmap b = FromPage(MakeTextPage(1100, 800, c.degrees, 8), c.bits == 1 ? 1 : 8);
        const RzRGBQuad inverted[2] = {{255, 255, 255, 0}, {0, 0, 0, 0}}; // index 0 white, ink 1
        if (c.bits == 24) KrnConvertBitmap(b.get(), b.get(), 164, 24, KRN_ORDER_BGR, 0, 0);
        ASSERT_TRUE(!c.inverted || KrnSetBitmapPalette(b.get(), 0, 2, inverted) == 1);
        for (uint32_t i = 0; i < b->nStride * uint32_t(b->nHeight); ++i) {
            if (c.inverted) b->pData[i] ^= 0xFF;
            if (c.bits == 8) b->pData[i] = std::min<uint8_t>(b->pData[i], 200); // the page's grey
        }
        int32_t angle = 0, after = 0;
        ASSERT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0x00102030, c.flags), 1);
        EXPECT_NEAR(angle, c.degrees * 100, 12);
        EXPECT_EQ(b->nBitsPerPixel, c.bits);
        EXPECT_TRUE(c.corner == ~0ull || b.pixel(0, 0) == c.corner) << b.pixel(0, 0);
        RzRGBQuad pal[2] = {};
        KrnGetBitmapPalette(b.get(), 0, 2, pal);
        EXPECT_TRUE(!c.inverted || pal[0].rgbRed == 255) << "the palette is kept";
        ASSERT_EQ(Rz_DeskewBitmap(b.get(), &after, 0, RZ_DESKEW_MEASURE_ONLY), 1);
        EXPECT_LE(std::abs(after), 23) << "one search step at most";
    }
    Bitmap straight = FromPage(MakeTextPage(800, 1100, 0, 1), 1), before(straight);
    EXPECT_EQ(Rz_DeskewBitmap(straight.get(), nullptr, 0xFF, RZ_DESKEW_SKIP_SMALL), 1);
    EXPECT_EQ(straight.storedBytes(), before.storedBytes()) << "a straight page stays as it is";
}

// Refusals the declared ranges alone do not give (a step above the range or
// of 180 degrees, flag fields); a deep grey high bit of -1 is replaced.
TEST(Deskew, Statuses) {
    Bitmap b = Structured(FindLayout("grey8"), 90, 64, 1), deep(FindLayout("grey12"), 90, 64, 4);
    const uint32_t cases[][4] = { // range, resolution, flags, accepted
        {100, 100, 1, 1}, {100, 101, 1, 0}, {4500, 1800, 1, 0}, {1000, 1, 2, 0}, {1000, 1, 0x21, 0},
        {1000, 1, 0xFFF00001u, 1}}; // nibbles above 19 are not read; 0xF000 passes nearest
    for (const auto &c : cases)
        EXPECT_EQ(Rz_DeskewBitmapExt(b.get(), nullptr, c[0], c[1], 0, c[2]), c[3] ? 1 : -13);
    deep->nHighBit = -1;
    EXPECT_EQ(Rz_DeskewBitmap(deep.get(), nullptr, 0, 1), 1);
    EXPECT_EQ(deep->nHighBit, 11);
}

#if defined(RZ_HAVE_LEPTONICA)
// The page as Leptonica's 1 bpp picture (ink 1), 8-bit pages thresholded at 128.
double Leptonica(BitmapDesc *b) {
    setMsgSeverity(L_SEVERITY_ERROR);
    PIX *pix = pixCreate(b->nWidth, b->nHeight, 1);
    const std::vector<int> v = ScoredValues(b);
    for (int32_t y = 0; y < b->nHeight; ++y)
        for (int32_t x = 0; x < b->nWidth; ++x)
            if (v[size_t(y) * b->nWidth + x] < (b->nBitsPerPixel == 1 ? 1 : 128))
                SET_DATA_BIT(pixGetData(pix) + size_t(y) * pixGetWpl(pix), x);
    l_float32 angle = 0, conf = 0;
    pixFindSkew(pix, &angle, &conf);
    pixDestroy(&pix);
    return angle;
}

// Synthetic pages (1-bit and 8-bit) and the scanned sample, turned by known
// angles within the peer's +-7 degrees. The
// mean |error| of the fine search must be no worse than the peer's; on the
// scan the pre-filtered path's only: raw products see its unevenly lit paper.
TEST(DeskewAccuracy, BesideLeptonica) {
    const char *path = "/usr/lib/python3/dist-packages/skimage/data/page.png";
    Bitmap scan = OutputBitmap();
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "python3-skimage's page sample is missing";
    ASSERT_EQ(Rz_LoadBitmap(path, scan.get(), BITMAPDESC_SIZE, 0), 1);
    for (int set = 0; set < 3; ++set) {
        double mean[3] = {}, angles = 0; // direct, pre-filtered, peer
        for (double a : {-6.0, -4.0, -3.0, -1.0, -0.4, 0.0, 0.3, 2.5, 3.6, 5.0, 6.0}) {
            Bitmap b = set < 2 ? FromPage(MakeTextPage(800, 1000, a, 3), set ? 8 : 1) : scan;
            // The kernel turns clockwise for positive angles: -a raises the lines by a.
            ASSERT_TRUE(set < 2 || KrnRotateBitmap(b.get(), int32_t(-a * 100), b->nWidth * .5,
                                                   b->nHeight * .5, 0xFFFFFF, KRN_ROTATE_BILINEAR));
            const double got[3] = {MeasureExt(b.get(), 1000, 1, RZ_DESKEW_PATH) / 100.0,
                                   MeasureExt(b.get(), 1000, 1, 0) / 100.0, Leptonica(b.get())};
            for (int m = 0; m < 3; ++m) mean[m] += std::fabs(got[m] - a);
            angles += 1;
        }
        std::printf("%s: mean |error| in degrees: direct %.3f, pre-filtered %.3f, peer %.3f\n",
                    set == 2 ? "scan" : set ? "8-bit pages" : "1-bit pages", mean[0] / angles,
                    mean[1] / angles, mean[2] / angles);
        EXPECT_LE(mean[1], mean[2] + 0.02 * angles) << set;
        EXPECT_TRUE(set == 2 || mean[0] <= mean[2] + 0.02 * angles) << set;
    }
}
#endif

} // namespace
} // namespace rz::test
