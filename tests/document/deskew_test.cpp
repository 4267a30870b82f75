// Deskew against a naive reference that reads every pixel with KrnGetPixel
// and scores every shift with plain loops (every layout, every view), the
// pre-filtered path rebuilt from the exports it is made of, the rotation
// (pages come out straight, 1-bit stays 1-bit, fills), progress and the
// documented refusals; and the measured skew of synthetic text pages and
// scikit-image's scanned `page` sample, turned by known angles, beside
// Leptonica's pixFindSkew: the mean and largest errors are printed side by
// side, and our fine search must do no worse than the peer.
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
#include <functional>
#include <string>
#include <vector>

namespace rz::test {
namespace {


constexpr double kPi = 3.1415926535;

int Weight(uint32_t r, uint32_t g, uint32_t b) { return int((2 * r + 5 * g + b + 4) / 8); }

// The value the score multiplies, per view pixel; 1-bit: 1 for the lighter colour.
std::vector<int> ScoredValues(const BitmapDesc *b) {
    const int bits = b->nBitsPerPixel, W = b->nWidth, H = b->nHeight;
    std::vector<int> v(size_t(W) * H);
    std::vector<RzRGBQuad> pal(256);
    if (bits <= 8 && b->pPalette) KrnGetBitmapPalette(b, 0, b->nColors, pal.data());
    const bool grey = b->nColorOrder == KRN_ORDER_GRAY;
    int lighter = 1;
    if (bits == 1 && !grey)
        lighter = Weight(pal[0].rgbRed, pal[0].rgbGreen, pal[0].rgbBlue) > Weight(pal[1].rgbRed, pal[1].rgbGreen, pal[1].rgbBlue) ? 0 : 1;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            uint64_t raw = 0;
            KrnGetPixel(b, x, y, &raw);
            int &out = v[size_t(y) * W + x];
            if (bits == 1) {
                out = int(raw) == lighter;
            } else if (bits <= 8) {
                const int max = (1 << bits) - 1;
                out = grey ? int((raw * 255 + max / 2) / max) : Weight(pal[raw].rgbRed, pal[raw].rgbGreen, pal[raw].rgbBlue);
            } else if (bits <= 16) {
                const int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit, count = high - b->nLowBit + 1;
                const uint32_t s = uint32_t(raw >> b->nLowBit) & ((1u << count) - 1);
                if (b->pLUT && (b->uFlags & BMF_USE_LUT)) {
                    const RzRGBQuad &e = b->pLUT[std::min<uint32_t>(s, b->nLUTLength - 1)];
                    out = Weight(e.rgbRed, e.rgbGreen, e.rgbBlue);
                } else {
                    out = int(s >> (count - 8));
                }
            } else {
                const int shift = bits >= 48 ? 8 : 0, step = bits >= 48 ? 16 : 8;
                out = Weight(uint32_t(raw >> shift) & 0xFF, uint32_t(raw >> (step + shift)) & 0xFF,
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
    std::vector<uint32_t> score(size_t(2 * n + 1));
    for (int s = -n; s <= n; ++s)
        for (int y = n; y <= H - 1 - n; ++y) {
            uint32_t sum = 0;
            for (int x = 0; x + L < W; ++x) {
                const int a = v[size_t(y) * W + x], c = v[size_t(y + s) * W + x + L];
                sum += uint32_t(packed ? (a & c) : a * c);
            }
            score[size_t(s + n)] += packed ? sum : sum / 65025;
        }
    std::vector<uint32_t> smooth(score.size());
    for (size_t i = 0; i < score.size(); ++i)
        smooth[i] = uint32_t((uint64_t(score[i == 0 ? 0 : i - 1]) + score[i] + score[std::min(i + 1, score.size() - 1)]) / 3);
    const auto best = std::max_element(smooth.begin(), smooth.end()); // first of the largest
    if (*best == *std::min_element(smooth.begin(), smooth.end())) return 0;
    const int32_t raw = int32_t(std::atan(double(best - smooth.begin() - n) / L) * (180 / kPi) * 100);
    const int view = b->nViewPerspective;
    return view == 1 || view == 2 || view == 6 || view == 8 ? -raw : raw;
}

// The Ext search for a range (hundredths) and resolution (tenths).
std::pair<int, int> ExtSearch(int w, int h, uint32_t range, uint32_t res) {
    const uint32_t diag = std::min(uint32_t(std::atan2(double(w), h) * 18000 / kPi), uint32_t(std::atan2(double(h), w) * 18000 / kPi));
    const int L = int(std::ceil(1 / std::fabs(std::tan(res * kPi / 1800))));
    return {int(std::ceil(std::fabs(std::tan(std::min(diag, range) * kPi / 18000)) * L)), L};
}

int32_t MeasureExt(BitmapDesc *b, uint32_t range, uint32_t res, uint32_t flags) {
    int32_t angle = -99999;
    EXPECT_EQ(Rz_DeskewBitmapExt(b, &angle, range, res, 0, 1 | flags), 1);
    return angle;
}

// The page in a test bitmap: 1-bit with the grey ramp, or 8-bit grey samples.
Bitmap FromPage(const TextPage &page, int bits) {
    Bitmap b(FindLayout(bits == 1 ? "pal1_grey" : "grey8"), page.width, page.height, 0);
    EXPECT_EQ(WritePage(page, b.get()), 1);
    return b;
}

// A page with some structure: random pixels and a few lines falling 1 in 6
// to the right as the view shows them.
Bitmap Structured(const Layout &layout, int w, int h, uint32_t seed, int view = 1, uint64_t ink = ~0ull) {
    Bitmap b(layout, w, h, seed);
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0);
    if (ink == ~0ull) ink = b.pixel(0, 0);
    w = b->nWidth, h = b->nHeight; // as the view shows them
    for (int line = 8; line < h; line += 11)
        for (int x = 0; x < w; ++x)
            if (line + x / 6 < h) b.setPixel(x, line + x / 6, ink);
    return b;
}

// The direct measurement against the naive scores on every layout (random
// pixels, dark lines), and on light lines over black in every view, where
// they alone decide and the sign follows the view.
TEST(Deskew, DirectMeasurementMatchesNaiveScores) {
    const auto [n, L] = ExtSearch(90, 80, 2000, 45); // small search: L 13, n 5, no scaled copy
    struct Case {
        const Layout *layout;
        int view;
        uint64_t ink; // ~0: the first pixel's value over random pixels
    };
    std::vector<Case> cases;
    for (const Layout &layout : AllLayouts()) cases.push_back({&layout, 1, ~0ull});
    for (int view = 1; view <= 8; ++view)
        cases.insert(cases.end(), {{&FindLayout("pal1_grey"), view, 1}, {&FindLayout("grey8"), view, 255}});
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.layout->name) + " view " + std::to_string(c.view));
        Bitmap b = Structured(*c.layout, 90, 80, c.ink == ~0ull ? 3 : 0, c.view, c.ink);
        const auto stored = b.storedBytes();
        const int32_t got = MeasureExt(b.get(), 2000, 45, 0x10000);
        EXPECT_EQ(got, NaiveAngle(b.get(), n, L));
        EXPECT_EQ(b.storedBytes(), stored) << "measure-only changed the page";
        const bool negated = c.view == 1 || c.view == 2 || c.view == 6 || c.view == 8;
        if (c.ink != ~0ull) {
            EXPECT_TRUE(negated ? got < 0 : got > 0) << got;
        }
    }
}

TEST(Deskew, FixedSearchMatchesNaiveOnAPage) {
    const TextPage page = MakeTextPage(1030, 700, 2.6, 4);
    for (int bits : {1, 8}) {
        Bitmap b = FromPage(page, bits);
        int32_t angle = 0;
        ASSERT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0, 1), 1);
        EXPECT_EQ(angle, NaiveAngle(b.get(), 46, 256)) << bits;
        EXPECT_NEAR(angle, 260, 12) << bits;
    }
}

// The pre-filtered path, rebuilt from exports: 8-bit grey, band 128..255,
// the rank filter that grows the minority colour, then the direct score.
TEST(Deskew, PrefilteredPathIsTheDirectScoreOfTheThickenedCopy) {
    const auto [n, L] = ExtSearch(120, 90, 2000, 45);
    for (const char *name : {"pal1_grey", "pal4_colour", "grey16_bits0_11", "rgb24"}) {
        SCOPED_TRACE(name);
        Bitmap b = Structured(FindLayout(name), 120, 90, 5);
        Bitmap copy(b); // replaced by the 8-bit grey copy
        KrnFreeBitmap(copy.get());
        ASSERT_EQ(KrnConvertBitmap(copy.get(), b.get(), BITMAPDESC_SIZE, 8, KRN_ORDER_GRAY, 0, 0), 1);
        ASSERT_EQ(Rz_IntensityDetectBitmap(copy.get(), 128, 255, 0xFFFFFF, 0, 0), 1);
        uint32_t hist[256];
        ASSERT_EQ(KrnGetBitmapHistogram(copy.get(), hist), 1);
        const int64_t black = int64_t(hist[0]) * 1000 / (hist[0] + hist[255]), white = 1000 - black;
        const int64_t size1 = std::clamp<int64_t>(int64_t(std::trunc(std::sqrt(120.0 * 120 + 90 * 90)) / 1200 * 15), 5, 15);
        const int64_t size2 = std::clamp<int64_t>((1000 - std::min(black, white)) * size1 / 900, 5, 15);
        ASSERT_EQ(black > white ? Rz_MaxFilterBitmap(copy.get(), uint32_t(size2)) : Rz_MinFilterBitmap(copy.get(), uint32_t(size2)), 1);
        // Ext pre-filters with the selector clear, Rz_DeskewBitmap with it set.
        EXPECT_EQ(MeasureExt(b.get(), 2000, 45, 0), NaiveAngle(copy.get(), n, L));
    }
}

TEST(Deskew, SkewedPagesComeOutStraight) {
    const TextPage page = MakeTextPage(1100, 800, -3.1, 8);
    for (int bits : {1, 8, 24}) {
        SCOPED_TRACE(bits);
        Bitmap b = FromPage(page, bits == 1 ? 1 : 8);
        if (bits == 24) {
            ASSERT_EQ(KrnConvertBitmap(b.get(), b.get(), BITMAPDESC_SIZE, 24, KRN_ORDER_BGR, 0, 0), 1);
        }
        int32_t angle = 0, after = 0;
        ASSERT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0xFFFFFF, 0x1000), 1);
        EXPECT_NEAR(angle, -310, 12);
        EXPECT_EQ(b->nBitsPerPixel, bits);
        ASSERT_EQ(Rz_DeskewBitmap(b.get(), &after, 0xFFFFFF, 1), 1);
        EXPECT_LE(std::abs(after), 23) << "one search step at most";
    }
}

TEST(Deskew, OneBitPageKeepsItsPaletteThroughTheRotation) {
    const TextPage page = MakeTextPage(1100, 800, 2.0, 2);
    Bitmap b = FromPage(page, 1);
    // Inverted palette: index 0 white, ink 1.
    const RzRGBQuad inverted[2] = {{255, 255, 255, 0}, {0, 0, 0, 0}};
    ASSERT_EQ(KrnSetBitmapPalette(b.get(), 0, 2, inverted), 1);
    for (int32_t y = 0; y < b->nHeight; ++y)
        for (uint32_t i = 0; i < b->nStride; ++i) b->pData[size_t(y) * b->nStride + i] ^= 0xFF;
    int32_t angle = 0;
    ASSERT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0xFFFFFF, 0x10), 1);
    RzRGBQuad pal[2];
    ASSERT_EQ(KrnGetBitmapPalette(b.get(), 0, 2, pal), 2);
    EXPECT_EQ(pal[0].rgbRed, 255);
    EXPECT_EQ(b.pixel(0, 0), 0u) << "the corner takes the page's white";
    ASSERT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0, 1), 1);
    EXPECT_LE(std::abs(angle), 23);
}

TEST(Deskew, FillColours) {
    const TextPage page = MakeTextPage(1100, 800, 4.0, 6);
    for (uint32_t flags : {0x0u, 0x10u}) {
        Bitmap b = FromPage(page, 8);
        for (uint32_t i = 0; i < b->nStride * uint32_t(b->nHeight); ++i) b->pData[i] = b->pData[i] > 128 ? 200 : b->pData[i];
        int32_t angle = 0;
        ASSERT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0x00102030, flags), 1);
        EXPECT_EQ(b.pixel(0, 0), flags ? 200u : uint64_t(Weight(0x30, 0x20, 0x10)));
    }
}

TEST(Deskew, PagesThatStayAsTheyAre) {
    struct Case {
        const char *what;
        std::function<void(Bitmap &)> make;
        uint32_t flags;
        int32_t tolerance; // the pre-filtered blobs may put a straight page one step off
    };
    const TextPage straight = MakeTextPage(800, 1100, 0, 1); // portrait, as pages are
    const Case cases[] = {
        {"straight 1-bit, skip", [&](Bitmap &b) { b = FromPage(straight, 1); }, 0x100, 23},
        {"straight 8-bit, skip, pre-filtered", [&](Bitmap &b) { b = FromPage(straight, 8); }, 0x10100, 23},
        {"blank", [](Bitmap &b) {
             b = Bitmap(FindLayout("grey8"), 300, 200, 0);
             std::fill(b->pData, b->pData + size_t(b->nStride) * 200, uint8_t(255));
         }, 0, 0},
        {"all black 1-bit", [](Bitmap &b) { b = Bitmap(FindLayout("pal1_grey"), 300, 200, 0); }, 0x10000, 0},
        {"one pixel", [](Bitmap &b) { b = Bitmap(FindLayout("bgr24"), 1, 1, 3); }, 0, 0},
        {"empty", [](Bitmap &b) { b = Bitmap(FindLayout("bgr24"), 0, 7, 0); }, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Bitmap b;
        c.make(b);
        const auto before = b.storedBytes();
        int32_t angle = -1;
        EXPECT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0x0000FF, c.flags), 1);
        EXPECT_LE(std::abs(angle), c.tolerance);
        EXPECT_EQ(b.storedBytes(), before);
        angle = -1;
        EXPECT_EQ(Rz_DeskewBitmapExt(b.get(), &angle, 1000, 2, 0x0000FF, c.flags ^ 0x10000), 1);
        EXPECT_LE(std::abs(angle), c.tolerance);
        EXPECT_EQ(b.storedBytes(), before);
    }
}

TEST(Deskew, SmallPageMeasuredOnAScaledCopyAgreesWithALargeScan) {
    int32_t small = 0, large = 0;
    Bitmap a = FromPage(MakeTextPage(1300, 900, 3.4, 12), 8), b = FromPage(MakeTextPage(650, 450, 3.4, 12), 8);
    ASSERT_EQ(Rz_DeskewBitmap(a.get(), &large, 0, 1), 1);
    ASSERT_EQ(Rz_DeskewBitmap(b.get(), &small, 0, 1), 1);
    EXPECT_NEAR(small, large, 23);
    EXPECT_NEAR(small, 340, 23);
}

// Measuring only, measuring and turning, and pre-filtering too: each
// step's range must appear, in order.
TEST(Deskew, ProgressRanges) {
    const TextPage page = MakeTextPage(1100, 800, 1.5, 3);
    const std::pair<uint32_t, std::vector<int32_t>> cases[] = {
        {1, {0, 100}}, {0, {0, 33, 34, 100}}, {0x10, {0, 33, 34, 66, 67, 100}}};
    for (const auto &[flags, expected] : cases)
        for (int bits : {1, 8}) {
            Bitmap b = FromPage(page, bits);
            CallbackRecorder rec;
            ASSERT_EQ(Rz_DeskewBitmap(b.get(), nullptr, 0, flags), 1);
            const auto &p = rec.percents();
            EXPECT_TRUE(std::is_sorted(p.begin(), p.end()));
            auto at = p.begin();
            for (int32_t want : expected)
                EXPECT_NE(at = std::find(at, p.end(), want), p.end()) << "flags " << flags << " bits " << bits << ": no " << want;
        }
}

TEST(Deskew, Statuses) {
    Bitmap b = Structured(FindLayout("grey8"), 90, 64, 1);
    int32_t angle = 0;
    const struct {
        uint32_t range, res, flags;
        int32_t status;
    } ext[] = {
        {4500, 45, 1, 1}, {100, 100, 1, 1}, {100, 101, 1, ST_INVALID_PARAMETER}, // no step beyond the range
        {1000, 1, 2, ST_INVALID_PARAMETER}, {1000, 1, 0x21, ST_INVALID_PARAMETER},
        {1000, 1, 0xFFF00001u, 1}, // nibbles above 19 are not read; 0xF000 passes nearest
        {4500, 1800, 1, ST_INVALID_PARAMETER}, // a step of 180 degrees has no base length
    };
    for (const auto &c : ext)
        EXPECT_EQ(Rz_DeskewBitmapExt(b.get(), &angle, c.range, c.res, 0, c.flags), c.status)
            << c.range << " " << c.res << " " << std::hex << c.flags;
    EXPECT_EQ(Rz_DeskewBitmap(b.get(), &angle, 0, 0x31), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_DeskewBitmap(b.get(), nullptr, 0, 1), 1);

    Bitmap pal = Structured(FindLayout("pal4_colour"), 90, 64, 2);
    const auto before = pal.storedBytes();
    RzRGBQuad *saved = pal->pPalette;
    pal->pPalette = nullptr; // no palette at all
    EXPECT_EQ(Rz_DeskewBitmap(pal.get(), &angle, 0, 0), ST_NO_BITMAP);
    EXPECT_EQ(Rz_DeskewBitmapExt(pal.get(), &angle, 1000, 1, 0, 0), ST_NO_BITMAP);
    pal->pPalette = saved;
    EXPECT_EQ(pal.storedBytes(), before);

    Bitmap deep(FindLayout("grey12"), 90, 64, 4);
    deep->nHighBit = -1;
    EXPECT_EQ(Rz_DeskewBitmap(deep.get(), &angle, 0, 1), 1);
    EXPECT_EQ(deep->nHighBit, 11);
}


// ---- Accuracy beside Leptonica ------------------------------------------------

#if defined(RZ_HAVE_LEPTONICA)
// The page as Leptonica's 1 bpp picture (ink 1): 8-bit pages thresholded at
// 128, as Leptonica's own binarisation would.
double Leptonica(BitmapDesc *b) {
    setMsgSeverity(L_SEVERITY_ERROR);
    PIX *pix = pixCreate(b->nWidth, b->nHeight, 1);
    std::vector<uint8_t> row(KrnBitmapRowBytes(b));
    for (int32_t y = 0; y < b->nHeight; ++y) {
        KrnGetBitmapRow(b, row.data(), y, 0, uint32_t(row.size()));
        l_uint32 *line = pixGetData(pix) + size_t(y) * pixGetWpl(pix);
        for (int32_t x = 0; x < b->nWidth; ++x)
            if (b->nBitsPerPixel == 1 ? !(row[size_t(x) / 8] & (0x80 >> (x % 8))) : row[size_t(x)] < 128)
                SET_DATA_BIT(line, x);
    }
    l_float32 angle = 0, conf = 0;
    pixFindSkew(pix, &angle, &conf);
    pixDestroy(&pix);
    return angle;
}
#endif

// Measured angle in degrees (view 1: positive when the lines rise to the right).
const struct {
    const char *name;
    double (*measure)(BitmapDesc *b);
} kMethods[] = {
    {"Rz_DeskewBitmap", [](BitmapDesc *b) {
         int32_t angle = 12345;
         EXPECT_EQ(Rz_DeskewBitmap(b, &angle, 0, 1), 1);
         return angle / 100.0;
     }},
    {"Ext 0.1 deg direct", [](BitmapDesc *b) { return MeasureExt(b, 1000, 1, 0x10000) / 100.0; }},
    {"Ext 0.1 deg pre-filtered", [](BitmapDesc *b) { return MeasureExt(b, 1000, 1, 0) / 100.0; }},
#if defined(RZ_HAVE_LEPTONICA)
    {"pixFindSkew", &Leptonica},
#endif
};
constexpr size_t kMethodCount = std::size(kMethods), kDirect = 1, kPrefiltered = 2, kPeer = 3;

// Mean and largest |error| of every method, over all angles and over |angle| <= 7.
struct Table {
    std::string title;
    double sum[kMethodCount][2] = {}, largest[kMethodCount][2] = {};
    int count[2] = {};
    void add(BitmapDesc *b, double truth) {
        for (size_t m = 0; m < kMethodCount; ++m) {
            const double e = std::fabs(kMethods[m].measure(b) - truth);
            for (int k = 0; k < (std::fabs(truth) <= 7 ? 2 : 1); ++k) {
                sum[m][k] += e;
                largest[m][k] = std::max(largest[m][k], e);
            }
        }
        count[0] += 1;
        count[1] += std::fabs(truth) <= 7;
    }
    double mean(size_t m, int k) const { return count[k] ? sum[m][k] / count[k] : 0; }
    // Prints the table; the fine search (pre-filtered, and direct where
    // asked) must do no worse than the peer.
    void check(bool directToo) const {
        std::printf("\n%s: |error| in degrees, mean / largest (all angles; |angle| <= 7)\n", title.c_str());
        for (size_t m = 0; m < kMethodCount; ++m)
            std::printf("  %-26s %6.3f / %6.3f   %6.3f / %6.3f\n", kMethods[m].name, mean(m, 0), largest[m][0],
                        mean(m, 1), largest[m][1]);
        if (kMethodCount <= kPeer) GTEST_SKIP() << "Leptonica not found";
        for (size_t m : {kPrefiltered, kDirect})
            for (int k = 0; k < 2 && (directToo || m != kDirect); ++k)
                EXPECT_LE(mean(m, k), mean(kPeer, k) + 0.02) << title << ": " << kMethods[m].name << (k ? ", within 7" : "");
    }
};

TEST(DeskewAccuracy, SyntheticPagesBesideLeptonica) {
    const struct {
        const char *name;
        int32_t width, height;
        std::vector<double> angles;
    } cases[] = {
        {"A4 300 dpi", 2480, 3508, {-9, -4.4, -1.2, 0, 0.7, 3.6, 8.8}},
        {"small page", 800, 1000, {-9, -7.5, -6, -4, -3, -1, -0.4, 0, 0.3, 1, 2.5, 4, 5.5, 7, 9}},
    };
    for (const auto &pc : cases) {
        Table t[2];
        uint32_t seed = 3;
        for (double angle : pc.angles) {
            const TextPage page = MakeTextPage(pc.width, pc.height, angle, seed++);
            for (int32_t depth = 0; depth < 2; ++depth) t[depth].add(FromPage(page, depth ? 8 : 1).get(), angle);
        }
        for (int32_t depth = 0; depth < 2; ++depth) {
            t[depth].title = std::string(pc.name) + (depth ? ", 8-bit" : ", 1-bit");
            t[depth].check(true);
        }
    }
}

TEST(DeskewAccuracy, ScannedPageSampleBesideLeptonica) {
    const char *path = "/usr/lib/python3/dist-packages/skimage/data/page.png";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "python3-skimage's page sample is not installed";
    Bitmap original = OutputBitmap();
    ASSERT_EQ(Rz_LoadBitmap(path, original.get(), BITMAPDESC_SIZE, 0), 1);
    Table t;
    t.title = "scikit-image page sample (" + std::to_string(original->nWidth) + " x " +
              std::to_string(original->nHeight) + ", 8-bit), turned by known angles";
    for (int a = -9; a <= 9; ++a) {
        Bitmap turned(original);
        // The kernel turns clockwise for positive angles: -a raises the lines by a.
        ASSERT_EQ(KrnRotateBitmap(turned.get(), -a * 100, turned->nWidth * 0.5, turned->nHeight * 0.5, 0xFFFFFF,
                                  KRN_ROTATE_BILINEAR),
                  1);
        t.add(turned.get(), a);
    }
    // Products of raw grey levels see the lit background more than the text:
    // on a scan with uneven lighting only the pre-filtered path measures well.
    t.check(false);
}

} // namespace
} // namespace rz::test
