// Measured skew against known skew, beside Leptonica's pixFindSkew on the
// same pages: synthetic text pages (A4 at 300 dpi and a small page, 1-bit
// and 8-bit) and scikit-image's scanned `page` sample, turned by known
// angles. Prints the mean and largest errors side by side; our fine search
// must do no worse than the peer, and a straight page must come out 0.
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
#include <vector>

namespace rz::test {
namespace {

// A kernel bitmap freed on scope exit.
struct Owned {
    BitmapDesc d{};
    Owned() = default;
    Owned(const Owned &o) { EXPECT_EQ(KrnCopyBitmap(&d, &o.d, BITMAPDESC_SIZE), 1); }
    ~Owned() { KrnFreeBitmap(&d); }
    BitmapDesc *get() { return &d; }
    BitmapDesc *operator->() { return &d; }
};

struct Method {
    const char *name;
    // Measured angle in degrees (view 1: positive when the lines rise to the right).
    double (*measure)(BitmapDesc *b);
};

double Ours(BitmapDesc *b, bool ext, uint32_t flags) {
    int32_t angle = 12345;
    const int32_t st = ext ? Rz_DeskewBitmapExt(b, &angle, 1000, 1, 0xFFFFFF, 1 | flags)
                           : Rz_DeskewBitmap(b, &angle, 0xFFFFFF, 1 | flags);
    EXPECT_EQ(st, 1);
    return angle / 100.0;
}

#if defined(RZ_HAVE_LEPTONICA)
// The page as Leptonica's 1 bpp picture (ink 1): 8-bit pages thresholded at
// 128, as Leptonica's own binarisation would.
double Leptonica(BitmapDesc *b) {
    setMsgSeverity(L_SEVERITY_ERROR);
    PIX *pix = pixCreate(b->nWidth, b->nHeight, 1);
    std::vector<uint8_t> row(KrnBitmapRowBytes(b)), bits((size_t(b->nWidth) + 31) / 32 * 4);
    for (int32_t y = 0; y < b->nHeight; ++y) {
        KrnGetBitmapRow(b, row.data(), y, 0, uint32_t(row.size()));
        std::fill(bits.begin(), bits.end(), 0);
        for (int32_t x = 0; x < b->nWidth; ++x) {
            const bool ink = b->nBitsPerPixel == 1 ? !(row[size_t(x) / 8] & (0x80 >> (x % 8))) : row[size_t(x)] < 128;
            if (ink) bits[size_t(x) / 8] |= uint8_t(0x80 >> (x % 8));
        }
        l_uint32 *line = pixGetData(pix) + size_t(y) * pixGetWpl(pix);
        for (size_t w = 0; w < bits.size() / 4; ++w)
            line[w] = l_uint32(bits[4 * w]) << 24 | l_uint32(bits[4 * w + 1]) << 16 | l_uint32(bits[4 * w + 2]) << 8 |
                      bits[4 * w + 3];
    }
    l_float32 angle = 0, conf = 0;
    pixFindSkew(pix, &angle, &conf);
    pixDestroy(&pix);
    return angle;
}
#endif

const Method kMethods[] = {
    {"Rz_DeskewBitmap", [](BitmapDesc *b) { return Ours(b, false, 0); }},
    {"Rz_DeskewBitmap pre-filtered", [](BitmapDesc *b) { return Ours(b, false, 0x10000); }},
    {"Ext 0.1 deg direct", [](BitmapDesc *b) { return Ours(b, true, 0x10000); }},
    {"Ext 0.1 deg pre-filtered", [](BitmapDesc *b) { return Ours(b, true, 0); }},
#if defined(RZ_HAVE_LEPTONICA)
    {"pixFindSkew", &Leptonica},
#endif
};
constexpr size_t kMethodCount = std::size(kMethods);

struct Errors {
    double sum = 0, largest = 0;
    int count = 0;
    void add(double e) {
        sum += e;
        largest = std::max(largest, e);
        ++count;
    }
    double mean() const { return count ? sum / count : 0; }
};

struct Table {
    std::string title;
    Errors all[kMethodCount], within7[kMethodCount];
    void add(BitmapDesc *b, double truth) {
        for (size_t m = 0; m < kMethodCount; ++m) {
            const double e = std::fabs(kMethods[m].measure(b) - truth);
            all[m].add(e);
            if (std::fabs(truth) <= 7) within7[m].add(e);
        }
    }
    void print() const {
        std::printf("\n%s: |error| in degrees, mean / largest (all angles; |angle| <= 7)\n", title.c_str());
        for (size_t m = 0; m < kMethodCount; ++m)
            std::printf("  %-30s %6.3f / %6.3f   %6.3f / %6.3f\n", kMethods[m].name, all[m].mean(), all[m].largest,
                        within7[m].mean(), within7[m].largest);
    }
};

size_t IndexOf(const char *name) {
    for (size_t m = 0; m < kMethodCount; ++m)
        if (std::string(kMethods[m].name) == name) return m;
    return kMethodCount;
}

// The Ext export's own path (pre-filtered with the selector clear) must do
// no worse than the peer; the direct path too on clean synthetic pages.
void ExpectNoWorseThanPeer(const Table &t, bool directToo) {
    const size_t peer = IndexOf("pixFindSkew");
    if (peer == kMethodCount) GTEST_SKIP() << "Leptonica not found";
    for (const char *ours : {"Ext 0.1 deg pre-filtered", "Ext 0.1 deg direct"}) {
        if (!directToo && std::string(ours) == "Ext 0.1 deg direct") continue;
        const size_t m = IndexOf(ours);
        EXPECT_LE(t.all[m].mean(), t.all[peer].mean() + 0.02) << t.title << ": " << ours;
        EXPECT_LE(t.within7[m].mean(), t.within7[peer].mean() + 0.02) << t.title << ": " << ours << ", within 7";
    }
}

struct PageCase {
    const char *name;
    int32_t width, height;
    std::vector<double> angles;
};

TEST(DeskewAccuracy, SyntheticPagesBesideLeptonica) {
    const PageCase cases[] = {
        {"A4 300 dpi", 2480, 3508, {-9, -4.4, -1.2, 0, 0.7, 3.6, 8.8}},
        {"small page", 800, 1000, {-9, -7.5, -6, -4, -3, -1, -0.4, 0, 0.3, 1, 2.5, 4, 5.5, 7, 9}},
    };
    for (const PageCase &pc : cases) {
        Table t[2];
        uint32_t seed = 3;
        for (double angle : pc.angles) {
            const TextPage page = MakeTextPage(pc.width, pc.height, angle, seed++);
            for (int32_t depth = 0; depth < 2; ++depth) {
                Owned b;
                ASSERT_EQ(PageBitmap(page, depth ? 8 : 1, b.get()), 1);
                t[depth].add(b.get(), angle);
            }
        }
        for (int32_t depth = 0; depth < 2; ++depth) {
            t[depth].title = std::string(pc.name) + (depth ? ", 8-bit" : ", 1-bit");
            t[depth].print();
            ExpectNoWorseThanPeer(t[depth], true);
        }
    }
}

TEST(DeskewAccuracy, ScannedPageSampleBesideLeptonica) {
    const char *path = "/usr/lib/python3/dist-packages/skimage/data/page.png";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "python3-skimage's page sample is not installed";
    Owned original;
    ASSERT_EQ(Rz_LoadBitmap(path, original.get(), BITMAPDESC_SIZE, 0), 1);
    Table t;
    t.title = "scikit-image page sample (" + std::to_string(original->nWidth) + " x " +
              std::to_string(original->nHeight) + ", 8-bit), turned by known angles";
    for (int a = -9; a <= 9; ++a) {
        Owned turned(original);
        // The kernel turns clockwise for positive angles: -a raises the lines by a.
        ASSERT_EQ(KrnRotateBitmap(turned.get(), -a * 100, turned->nWidth * 0.5, turned->nHeight * 0.5, 0xFFFFFF,
                                  KRN_ROTATE_BILINEAR),
                  1);
        t.add(turned.get(), a);
    }
    t.print();
    // Products of raw grey levels see the lit background more than the text:
    // on a scan with uneven lighting only the pre-filtered path measures well.
    ExpectNoWorseThanPeer(t, false);
}

} // namespace
} // namespace rz::test
