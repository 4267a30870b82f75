// The transforms against a naive double DFT (every plane, power-of-two and
// other sizes, rectangles and signs) and FFTW, round trips, the write-back
// rules and the spectrum display worked by hand, the rectangle and mask
// filters against direct membership tests, views, regions and progress.
// Pixels are read with KrnGetPixel; arrays are read as the stored doubles.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#ifdef RZ_HAVE_FFTW
#include <fftw3.h>
#endif

namespace rz::test {
namespace {

using Spectrum = std::vector<std::complex<double>>;

// An owned transform array; its elements are the stored pairs of doubles
// (real, imaginary) after the 12-byte header, row by row.
struct Array {
    FTARRAY *a = nullptr;
    explicit Array(BitmapDesc *b) { EXPECT_EQ(Rz_AllocFTArray(b, &a, FTARRAY_SIZE), 1); }
    ~Array() {
        if (a) Rz_FreeFTArray(a);
    }
    Array(const Array &) = delete;
    Array &operator=(const Array &) = delete;
    Spectrum all() const {
        Spectrum s(size_t(a->uWidth) * a->uHeight);
        std::memcpy(static_cast<void *>(s.data()), reinterpret_cast<const uint8_t *>(a) + 12, s.size() * 16);
        return s;
    }
    void setAll(const Spectrum &s) { std::memcpy(reinterpret_cast<uint8_t *>(a) + 12, s.data(), s.size() * 16); }
};

// The 8-bit plane the transforms read: FT_PLANE_ value, grey bitmaps by
// their grey level.
std::vector<double> Plane(const Bitmap &b, int32_t plane) {
    const BitmapDesc *d = b.get();
    const int32_t bits = d->nBitsPerPixel;
    RzRGBQuad pal[256] = {};
    if (bits <= 8 && d->nColorOrder != KRN_ORDER_GRAY) KrnGetBitmapPalette(d, 0, d->nColors, pal);
    const bool greyPalette = bits <= 8 && KrnIsGrayscale(d);
    std::vector<double> out;
    for (int32_t y = 0; y < d->nHeight; ++y)
        for (int32_t x = 0; x < d->nWidth; ++x) {
            const uint64_t v = b.pixel(x, y);
            int32_t r, g, bl;
            if (d->nColorOrder == KRN_ORDER_GRAY) {
                const int32_t hi = d->nHighBit < 0 ? bits - 1 : d->nHighBit;
                const uint64_t s = (v >> d->nLowBit) & ((uint64_t(1) << (hi - d->nLowBit + 1)) - 1);
                r = g = bl = int32_t(bits > 8 ? s >> (hi - d->nLowBit + 1 - 8) : s);
            } else if (bits <= 8) {
                r = pal[v].rgbRed, g = pal[v].rgbGreen, bl = pal[v].rgbBlue;
            } else if (bits <= 32) {
                r = int32_t(v & 0xFF), g = int32_t((v >> 8) & 0xFF), bl = int32_t((v >> 16) & 0xFF);
            } else {
                r = int32_t((v >> 8) & 0xFF), g = int32_t((v >> 24) & 0xFF), bl = int32_t((v >> 40) & 0xFF);
            }
            const bool grey = d->nColorOrder == KRN_ORDER_GRAY || greyPalette;
            int32_t value = plane == FT_PLANE_BLUE ? bl : plane == FT_PLANE_GREEN ? g : r;
            if (grey) value = r;
            else if (plane == FT_PLANE_GREY) value = (77 * r + 150 * g + 29 * bl + 128) >> 8;
            out.push_back(value);
        }
    return out;
}

// sum f(x, y) exp(i (sx 2 pi u x / W + sy 2 pi v y / H)), angles from the
// index (u x mod W), as a table of the library's twiddles would give them.
Spectrum NaiveDft(const std::vector<std::complex<double>> &f, int32_t W, int32_t H, int32_t sx, int32_t sy) {
    const double pi = 3.1415926535;
    Spectrum out(size_t(W) * H);
    for (int32_t v = 0; v < H; ++v)
        for (int32_t u = 0; u < W; ++u) {
            std::complex<double> sum = 0;
            for (int32_t y = 0; y < H; ++y)
                for (int32_t x = 0; x < W; ++x) {
                    const double a = sx * 2 * pi * double((int64_t(u) * x) % W) / W +
                                     sy * 2 * pi * double((int64_t(v) * y) % H) / H;
                    sum += f[size_t(y) * W + x] * std::complex<double>(std::cos(a), std::sin(a));
                }
            out[size_t(v) * W + u] = sum;
        }
    return out;
}

// Largest element difference in units of the reference's sum of magnitudes.
double RelativeError(const Spectrum &got, const Spectrum &want) {
    double total = 0, worst = 0;
    for (const auto &z : want) total += std::abs(z);
    for (size_t i = 0; i < want.size(); ++i) worst = std::max(worst, std::abs(got[i] - want[i]));
    return total > 0 ? worst / total : worst;
}

std::vector<std::complex<double>> Complex(const std::vector<double> &v) { return {v.begin(), v.end()}; }

TEST(FrequencyTransform, MatchesNaiveDftOnEveryPlaneAndLayout) {
    const struct {
        const char *layout;
        int32_t plane;
    } cases[] = {{"grey8", FT_PLANE_GREY},       {"pal8_grey", FT_PLANE_RED},    {"pal1_grey", FT_PLANE_GREY},
                 {"grey12", FT_PLANE_GREY},      {"grey16_bits0_11", FT_PLANE_BLUE}, {"bgr24", FT_PLANE_BLUE},
                 {"rgb24", FT_PLANE_GREEN},      {"bgr32", FT_PLANE_RED},        {"bgr24", FT_PLANE_GREY},
                 {"bgr48", FT_PLANE_RED},        {"bgr64", FT_PLANE_GREEN},      {"pal8_colour", FT_PLANE_BLUE}};
    const std::pair<int32_t, int32_t> fftSizes[] = {{2, 2}, {8, 4}, {16, 16}, {4, 32}, {64, 2}};
    const std::pair<int32_t, int32_t> dftSizes[] = {{6, 10}, {15, 7}, {1, 5}, {13, 1}, {12, 9}, {49, 25}, {1, 1}};
    uint32_t seed = 1;
    for (const auto &c : cases) {
        auto check = [&](int32_t w, int32_t h, bool fft) {
            SCOPED_TRACE(std::string(c.layout) + " plane " + std::to_string(c.plane) + " " + std::to_string(w) + "x" +
                         std::to_string(h));
            Bitmap b(FindLayout(c.layout), w, h, seed++);
            Array a(b.get());
            const int32_t flags = FT_FORWARD | c.plane;
            ASSERT_EQ(fft ? Rz_FFTBitmap(b.get(), a.a, flags) : Rz_DFTBitmap(b.get(), a.a, nullptr, flags | DFT_WHOLE),
                      1);
            EXPECT_LT(RelativeError(a.all(), NaiveDft(Complex(Plane(b, c.plane)), w, h, -1, -1)), 1e-9);
        };
        for (auto [w, h] : fftSizes) check(w, h, true);
        for (auto [w, h] : dftSizes) check(w, h, false);
    }
}

// The rectangle keeps its spectrum elements (the rest is 0); the step
// fields are the exponent's signs per axis.
TEST(FrequencyTransform, DftRectangleAndSigns) {
    Bitmap b(FindLayout("grey8"), 10, 6, 5);
    const std::vector<double> f = Plane(b, FT_PLANE_GREY);
    const struct {
        int32_t flags, sx, sy;
        int32_t rect[4];
    } cases[] = {
        {DFT_COLUMNS_MINUS | DFT_ROWS_MINUS, -1, -1, {0, 0, 9, 5}},
        {DFT_COLUMNS_PLUS, 1, 1, {2, 1, 7, 3}},
        {DFT_ROWS_MINUS, 1, -1, {9, 5, 9, 5}},
        {DFT_COLUMNS_MINUS | DFT_ROWS_PLUS, -1, 1, {0, 2, 4, 5}},
    };
    for (const auto &c : cases) {
        Array a(b.get());
        a.setAll(Spectrum(60, {7.0, 7.0})); // cleared first
        ASSERT_EQ(Rz_DFTBitmap(b.get(), a.a, c.rect, FT_FORWARD | FT_PLANE_GREY | DFT_RECT | c.flags), 1);
        Spectrum want = NaiveDft(Complex(f), 10, 6, c.sx, c.sy);
        for (int32_t v = 0; v < 6; ++v)
            for (int32_t u = 0; u < 10; ++u)
                if (u < c.rect[0] || u > c.rect[2] || v < c.rect[1] || v > c.rect[3]) want[size_t(v) * 10 + u] = 0;
        EXPECT_LT(RelativeError(a.all(), want), 1e-9) << c.flags;

        // The inverse with the same flags undoes it over its rectangle only.
        Bitmap back(b);
        for (int32_t y = 0; y < 6; ++y)
            for (int32_t x = 0; x < 10; ++x) back.setPixel(x, y, 0);
        a.setAll(NaiveDft(Complex(f), 10, 6, c.sx, c.sy));
        ASSERT_EQ(Rz_DFTBitmap(back.get(), a.a, c.rect,
                               FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP | DFT_RECT | c.flags),
                  1);
        for (int32_t y = 0; y < 6; ++y)
            for (int32_t x = 0; x < 10; ++x) {
                const bool inside = x >= c.rect[0] && x <= c.rect[2] && y >= c.rect[1] && y <= c.rect[3];
                const double want8 = inside ? f[size_t(y) * 10 + x] : 0.0;
                EXPECT_NEAR(double(back.pixel(x, y)), want8, 1.0) << x << "," << y;
            }
    }
}

// Forward and inverse (both components, clipped) give every plane back up
// to truncation; other channels are kept exactly.
TEST(FrequencyTransform, RoundTripKeepsPlaneAndOtherChannels) {
    for (const char *name : {"grey8", "grey12", "grey16", "pal4_colour", "bgr24", "rgb48", "bgr64", "bgr32"})
        for (int32_t plane : {FT_PLANE_BLUE, FT_PLANE_RED}) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(plane));
            Bitmap b(FindLayout(name), 32, 16, 11);
            const Bitmap before(b);
            const std::vector<double> f = Plane(b, plane);
            Array a(b.get());
            ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_FORWARD | plane), 1);
            ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | plane | FT_BOTH | FT_CLIP), 1);
            const std::vector<double> g = Plane(b, plane);
            for (size_t i = 0; i < f.size(); ++i) ASSERT_LE(std::abs(f[i] - g[i]), 1.0) << i;
            if (b->nBitsPerPixel >= 24 && b->nColorOrder != KRN_ORDER_GRAY) {
                const int32_t shift = (b->nBitsPerPixel >= 48 ? 16 : 8);
                // Raw packing: red at 0, green, blue; the untouched green channel.
                for (int32_t y = 0; y < 16; ++y)
                    for (int32_t x = 0; x < 32; ++x)
                        ASSERT_EQ((b.pixel(x, y) >> shift) & ((1u << shift) - 1),
                                  (before.pixel(x, y) >> shift) & ((1u << shift) - 1));
            }
        }
}

// Hand-worked 2x2: f = [[-10, 0], [10, 300]] has X = 300, -300 (u = 1),
// -320 (v = 1), 280; the inverse gives f back exactly. Zero and NaN
// spectra, and constant results, give black. Both transforms alike.
TEST(FrequencyTransform, WriteBackRulesWorkedByHand) {
    const Spectrum X{300, -300, -320, 280}, zero(4), nan(4, {std::nan(""), std::nan("")});
    const struct {
        const Spectrum &in;
        int32_t flags;
        std::vector<uint64_t> want;
    } cases[] = {
        {X, FT_BOTH | FT_CLIP, {0, 0, 10, 255}},
        {X, FT_BOTH | FT_STRETCH, {0, 8, 16, 255}},     // (v + 10) * 255 / 310
        {X, FT_MAGNITUDE | FT_CLIP, {255, 10, 0, 0}},   // |X| / 4 = 75, 75, 80, 70: 300, 10, 0, -10
        {Spectrum{400, 0, 0, 0}, FT_BOTH | FT_STRETCH, {0, 0, 0, 0}}, // stretched with factor 1
        {zero, FT_BOTH | FT_CLIP, {0, 0, 0, 0}},        {nan, FT_BOTH | FT_CLIP, {0, 0, 0, 0}},
        {zero, FT_PHASE | FT_STRETCH, {0, 0, 0, 0}},    {nan, FT_PHASE | FT_STRETCH, {0, 0, 0, 0}},
        {zero, FT_MAGNITUDE | FT_CLIP, {0, 0, 0, 0}},   {nan, FT_MAGNITUDE | FT_CLIP, {0, 0, 0, 0}},
    };
    for (const auto &c : cases)
        for (bool fft : {true, false}) {
            Bitmap b(FindLayout("grey8"), 2, 2, 3);
            Array a(b.get());
            a.setAll(c.in);
            const int32_t flags = FT_INVERSE | FT_PLANE_GREY | c.flags;
            ASSERT_EQ(fft ? Rz_FFTBitmap(b.get(), a.a, flags) : Rz_DFTBitmap(b.get(), a.a, nullptr, flags | DFT_WHOLE), 1);
            for (int32_t i = 0; i < 4; ++i)
                EXPECT_EQ(b.pixel(i % 2, i / 2), c.want[size_t(i)]) << (fft ? "FFT " : "DFT ") << c.flags << " " << i;
        }
    // The caller's array is left scaled: magnitude / P, phase / P, zero stays zero.
    Bitmap b(FindLayout("grey8"), 2, 2, 0);
    Array a(b.get());
    a.setAll({{3, 4}, {0, 0}, {-8, 0}, {0, 2}});
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_PHASE | FT_CLIP), 1);
    EXPECT_LT(RelativeError(a.all(), {{0.15, 0.2}, {0, 0}, {-0.25, 0}, {0, 0.25}}), 1e-15);
    a.setAll({{3, 4}, {0, 0}, {-8, 0}, {0, 2}});
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_MAGNITUDE | FT_CLIP), 1);
    EXPECT_LT(RelativeError(a.all(), {1.25, 0, 2, 0.5}), 1e-15);
}

// The array ends scaled however far the inverse got: stopped in either
// pass, or finished.
TEST(FrequencyTransform, InverseLeavesTheWholeArrayScaled) {
    Bitmap b(FindLayout("grey8"), 256, 8, 8); // three blocks of columns
    for (int32_t stop : {3, 6, 0}) {
        Array a(b.get());
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_FORWARD | FT_PLANE_GREY), 1);
        Spectrum want = a.all();
        for (auto &z : want) z /= 256.0 * 8.0;
        CallbackRecorder rec;
        if (stop) rec.stopAt(stop, 77);
        EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP), stop ? 77 : 1);
        EXPECT_EQ(a.all(), want) << "stopped at call " << stop;
    }
}

// The whole picture is transformed in view 1 whatever the view and region;
// both are back afterwards, and progress follows the documented steps.
TEST(FrequencyTransform, ViewRegionAndProgress) {
    Bitmap plain(FindLayout("bgr24"), 16, 16, 21);
    Bitmap b(plain);
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 6, 0);
    const RzRect r{1, 1, 4, 5};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    void *region = b->pRegion;
    Array a6(plain.get());
    {
        CallbackRecorder rec;
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a6.a, FT_FORWARD | FT_PLANE_GREEN), 1);
        const auto &p = rec.percents();
        ASSERT_GE(p.size(), 4u);
        EXPECT_EQ(p[0], 2);
        EXPECT_EQ(p[1], 5);
        EXPECT_TRUE(std::is_sorted(p.begin(), p.end()));
        EXPECT_NE(std::find(p.begin(), p.end(), 50), p.end());
        EXPECT_EQ(p.back(), 100);
        EXPECT_LT(RelativeError(a6.all(), NaiveDft(Complex(Plane(plain, FT_PLANE_GREEN)), 16, 16, -1, -1)), 1e-9);
        rec.clear();
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a6.a, FT_INVERSE | FT_PLANE_GREEN | FT_BOTH | FT_CLIP), 1);
        EXPECT_NE(std::find(rec.percents().begin(), rec.percents().end(), 90), rec.percents().end());
        EXPECT_EQ(rec.percents().back(), 100);
    }
    EXPECT_EQ(b->nViewPerspective, 6);
    EXPECT_EQ(b->pRegion, region);
    // A transposed view of a non-square picture does not fit its array in view 1.
    Bitmap wide(FindLayout("grey8"), 16, 8, 2);
    KrnChangeViewPerspective(nullptr, wide.get(), BITMAPDESC_SIZE, 5, 0);
    Array a5(wide.get());
    EXPECT_EQ(Rz_FFTBitmap(wide.get(), a5.a, FT_FORWARD | FT_PLANE_GREY), ST_INVALID_PARAMETER);
    EXPECT_EQ(wide->nViewPerspective, 5);
    // Written back in view 1 too: the whole plane, region or not.
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 1, 0);
    const std::vector<double> want = Plane(plain, FT_PLANE_GREEN), got = Plane(b, FT_PLANE_GREEN);
    for (size_t i = 0; i < want.size(); ++i) ASSERT_NEAR(got[i], want[i], 1.0);
}

// Sizes the FFT refuses, flag fields outside their values, rectangles past
// an edge or reversed, and an array of another size.
TEST(FrequencyTransform, BadInput) {
    const int32_t fwd = FT_FORWARD | FT_PLANE_GREY;
    for (auto [w, h] : {std::pair{6, 8}, std::pair{1, 8}, std::pair{8, 1}, std::pair{12, 4}}) {
        Bitmap odd(FindLayout("grey8"), w, h, 1);
        Array oa(odd.get());
        EXPECT_EQ(Rz_FFTBitmap(odd.get(), oa.a, fwd), ST_INVALID_PARAMETER) << w << "x" << h;
    }
    Bitmap b(FindLayout("grey8"), 8, 4, 1), other(FindLayout("grey8"), 8, 8, 1);
    Array a(b.get());
    const int32_t whole[4] = {0, 0, 7, 3}, pastRight[4] = {0, 0, 8, 3}, pastBottom[4] = {0, 0, 7, 4},
                  negative[4] = {-1, 0, 3, 3}, reversed[4] = {5, 0, 4, 3};
    for (int32_t f : {0x40, 0x43, FT_FORWARD, FT_FORWARD | 0x50, FT_INVERSE | FT_PLANE_GREY | FT_CLIP,
                      FT_INVERSE | FT_PLANE_GREY | 0x400 | FT_CLIP, FT_INVERSE | FT_PLANE_GREY | FT_BOTH,
                      FT_INVERSE | FT_PLANE_GREY | FT_BOTH | 0x3000}) {
        EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, f), ST_INVALID_PARAMETER) << std::hex << f;
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, nullptr, f | DFT_WHOLE), ST_INVALID_PARAMETER) << std::hex << f;
    }
    for (int32_t f : {fwd | DFT_RECT, fwd | DFT_RECT | 0x300000, fwd | DFT_RECT | 0x3000000, fwd | 0x30000, fwd})
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, whole, f), ST_INVALID_PARAMETER) << std::hex << f;
    for (const int32_t *r : {pastRight, pastBottom, negative, reversed, static_cast<const int32_t *>(nullptr)})
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, r, fwd | DFT_RECT | DFT_ROWS_PLUS), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_FFTBitmap(other.get(), a.a, fwd), ST_INVALID_PARAMETER);
    // Touching every edge is fine; fields the forward direction does not read are ignored.
    EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, whole, fwd | DFT_RECT | DFT_ROWS_PLUS), 1);
    EXPECT_EQ(Rz_FFTBitmap(b.get(), a.a, fwd | 0x7700), 1);
}

// A 4 x 2 spectrum: element (u, v) goes to column (u + 2) % 4, row (v + 1) % 2.
TEST(FrequencyDisplay, CentredScalesWorkedByHand) {
    const Spectrum X{{3, 4}, {0, 1}, {-2, 0}, {0, 0}, {0, -0.5}, {1, 0}, {0, 0}, {-7, 0}};
    // |X| = 5, 1, 2, 0 / 0.5, 1, 0, 7; D = 7.
    const struct {
        uint32_t flags;
        std::vector<uint64_t> want; // picture rows, left to right
    } cases[] = {
        {FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LINEAR, {0, 255, 18, 36, 72, 0, 182, 36}},
        // ln: 1.609, 0, 0.693, -inf / -0.693, 0, -inf, 1.946 over D = 1.946
        {FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG, {0, 255, 0, 0, 90, 0, 210, 0}},
        // atan2: 0.927, 1.571, pi, 0 / -1.571, 0, 0, pi; stretched over -1.571..3.1416
        {FT_DISPLAY_PHASE, {85, 255, 0, 85, 255, 85, 135, 170}},
    };
    for (const auto &c : cases) {
        Bitmap b(FindLayout("bgr24"), 4, 2, 4);
        Array a(b.get());
        a.setAll(X);
        ASSERT_EQ(Rz_FTDisplayBitmap(b.get(), a.a, c.flags), 1);
        for (int32_t i = 0; i < 8; ++i) {
            const uint64_t grey = c.want[size_t(i)];
            EXPECT_EQ(b.pixel(i % 4, i / 4), grey | grey << 8 | grey << 16) << c.flags << " pixel " << i;
        }
    }
    Bitmap b(FindLayout("grey8"), 4, 2, 4);
    Array a(b.get());
    for (uint32_t bad : {0u, 3u, 0x1u, 0x31u, 0x111u, 0x102u})
        EXPECT_EQ(Rz_FTDisplayBitmap(b.get(), a.a, bad), ST_INVALID_PARAMETER) << bad;
    // All zeros: black, no fault.
    ASSERT_EQ(Rz_FTDisplayBitmap(b.get(), a.a, FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG), 1);
    for (int32_t i = 0; i < 8; ++i) EXPECT_EQ(b.pixel(i % 4, i / 4), 0u);
}

// Which elements survive, and how scaled, against a direct statement of
// each filter: rectangles in array or centred coordinates (frequency 0 at
// (W / 2, H / 2)), and a mask lying over the centred spectrum (m / 255 as
// the documented double; 0 clears NaN too).
TEST(FrequencyFilter, RectanglesAndMaskAgainstDirectMembership) {
    const int32_t W = 6, H = 5;
    std::vector<uint8_t> m(W * H, 0);
    m[2 * W + 3] = 255; // frequency 0
    m[2 * W + 4] = 128; // u = 1, v = 0
    m[0] = 51;          // u = 3, v = 3
    Bitmap mask = GreyBitmap(W, H, m);
    Spectrum X;
    for (int32_t i = 0; i < W * H; ++i) X.push_back({double(i + 1), double(-i)});
    X[7] = {std::nan(""), 1};
    const uint32_t kMask = ~0u;
    const struct {
        uint32_t flags;
        int32_t rect[4];
    } cases[] = {
        {FRQ_ARRAY_COORDS | FRQ_KEEP_INSIDE, {2, 1, 3, 2}},   {FRQ_ARRAY_COORDS | FRQ_ZERO_INSIDE, {0, 0, 5, 0}},
        {FRQ_CENTRED_COORDS | FRQ_KEEP_INSIDE, {2, 1, 4, 3}}, {FRQ_CENTRED_COORDS | FRQ_ZERO_INSIDE, {0, 0, 5, 4}},
        {kMask, {}},
    };
    for (const auto &c : cases) {
        Array a(mask.get());
        a.setAll(X);
        ASSERT_EQ(c.flags == kMask ? Rz_FrqFilterMaskBitmap(mask.get(), a.a, 0) : Rz_FrqFilterBitmap(a.a, c.rect, c.flags), 1);
        const Spectrum got = a.all();
        for (int32_t v = 0; v < H; ++v)
            for (int32_t u = 0; u < W; ++u) {
                const int32_t cu = (u + W / 2) % W, cv = (v + H / 2) % H;
                const bool centred = (c.flags & 0xF) == FRQ_CENTRED_COORDS;
                const int32_t x = centred ? cu : u, y = centred ? cv : v;
                const bool inside = x >= c.rect[0] && x <= c.rect[2] && y >= c.rect[1] && y <= c.rect[3];
                const double f = c.flags == kMask ? m[size_t(cv) * W + cu] * 0.00392156862745098
                                                  : inside == ((c.flags & 0xF0) == FRQ_KEEP_INSIDE);
                const std::complex<double> want = f == 0 ? 0 : X[size_t(v) * W + u] * f, z = got[size_t(v) * W + u];
                EXPECT_TRUE(z == want || (std::isnan(z.real()) && std::isnan(want.real())))
                    << c.flags << " at " << u << "," << v << ": " << z << ", want " << want;
            }
    }
    Array a(mask.get());
    const int32_t ok[4] = {0, 0, 5, 4}, right[4] = {0, 0, 6, 4}, bottom[4] = {0, 0, 5, 5}, flip[4] = {3, 0, 2, 4};
    for (const int32_t *r : {right, bottom, flip})
        EXPECT_EQ(Rz_FrqFilterBitmap(a.a, r, FRQ_ARRAY_COORDS | FRQ_KEEP_INSIDE), ST_INVALID_PARAMETER);
    for (uint32_t bad : {0x10u, 0x01u, 0x13u, 0x31u, 0x111u})
        EXPECT_EQ(Rz_FrqFilterBitmap(a.a, ok, bad), ST_INVALID_PARAMETER) << bad;
    EXPECT_EQ(Rz_FrqFilterBitmap(a.a, nullptr, 0x11), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_FrqFilterMaskBitmap(mask.get(), a.a, 1), ST_INVALID_PARAMETER);
    Bitmap other(FindLayout("grey8"), W + 1, H, 0);
    EXPECT_EQ(Rz_FrqFilterMaskBitmap(other.get(), a.a, 0), ST_INVALID_PARAMETER);
}

#ifdef RZ_HAVE_FFTW
TEST(FrequencyPeer, AgreesWithFftw) {
    std::mt19937 rng(3);
    for (auto [w, h] : {std::pair{256, 256}, std::pair{1024, 512}}) {
        std::vector<uint8_t> pixels(size_t(w) * h);
        for (auto &p : pixels) p = uint8_t(rng());
        Bitmap b = GreyBitmap(w, h, pixels);
        Array a(b.get());
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_FORWARD | FT_PLANE_GREY), 1);
        auto *in = fftw_alloc_complex(size_t(w) * h), *out = fftw_alloc_complex(size_t(w) * h);
        fftw_plan plan = fftw_plan_dft_2d(h, w, in, out, FFTW_FORWARD, FFTW_ESTIMATE);
        for (size_t i = 0; i < pixels.size(); ++i) in[i][0] = pixels[i], in[i][1] = 0;
        fftw_execute(plan);
        Spectrum want(pixels.size());
        for (size_t i = 0; i < want.size(); ++i) want[i] = {out[i][0], out[i][1]};
        const double err = RelativeError(a.all(), want);
        EXPECT_LT(err, 1e-9) << w << "x" << h;
        // And back: FFTW's inverse of our spectrum, against our inverse.
        const Spectrum ours = a.all();
        for (size_t i = 0; i < ours.size(); ++i) in[i][0] = ours[i].real(), in[i][1] = ours[i].imag();
        fftw_plan back = fftw_plan_dft_2d(h, w, in, out, FFTW_BACKWARD, FFTW_ESTIMATE);
        fftw_execute(back);
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_STRETCH), 1);
        double lo = 1e300, hi = -1e300;
        for (size_t i = 0; i < pixels.size(); ++i) lo = std::min(lo, out[i][0]), hi = std::max(hi, out[i][0]);
        int32_t off = 0;
        for (size_t i = 0; i < pixels.size(); ++i) {
            const double v = (out[i][0] - lo) * 255 / (hi - lo);
            off += std::abs(double(b.pixel(int32_t(i % w), int32_t(i / w))) - std::trunc(v)) > 1;
        }
        EXPECT_EQ(off, 0);
        fftw_destroy_plan(plan);
        fftw_destroy_plan(back);
        fftw_free(in);
        fftw_free(out);
    }
}
#endif

} // namespace
} // namespace rz::test
