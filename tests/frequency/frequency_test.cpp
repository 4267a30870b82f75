// The transforms against a naive double DFT and FFTW, round trips, rules
// worked by hand, the filters against direct membership tests.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <tuple>
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
    ~Array() { Rz_FreeFTArray(a); }
    Array(const Array &) = delete;
    uint8_t *data() const { return reinterpret_cast<uint8_t *>(a) + 12; } // 4-byte aligned
    Spectrum all() const {
        Spectrum s(size_t(a->uWidth) * a->uHeight);
        std::memcpy(static_cast<void *>(s.data()), data(), s.size() * 16);
        return s;
    }
    void setAll(const Spectrum &s) { std::memcpy(data(), s.data(), s.size() * 16); }
};

Bitmap Grey(int32_t w, int32_t h, uint32_t seed = 1) { return {FindLayout("grey8"), w, h, seed}; }

// The FFT, or the DFT of the whole bitmap.
int32_t Transform(bool fft, Bitmap &b, const Array &a, int32_t flags) {
    return fft ? Rz_FFTBitmap(b.get(), a.a, flags)
               : Rz_DFTBitmap(b.get(), a.a, nullptr, flags | DFT_WHOLE);
}

// The 8-bit plane the transforms read: blue, green, red or the grey mix;
// 16 bits a channel by the high byte, deep grey by its top 8 significant bits.
std::vector<double> Plane(const Bitmap &b, int32_t plane) {
    RzRGBQuad pal[256] = {};
    const int32_t bits = b->nBitsPerPixel, low = b->nLowBit;
    const int32_t count = (b->nHighBit < 0 ? bits - 1 : b->nHighBit) - low + 1;
    const bool palette = bits <= 8 && b->nColorOrder != KRN_ORDER_GRAY;
    if (palette) KrnGetBitmapPalette(b.get(), 0, b->nColors, pal);
    std::vector<double> out;
    for (int32_t i = 0; i < b->nWidth * b->nHeight; ++i) {
        const uint64_t p = b.pixel(i % b->nWidth, i / b->nWidth);
        const Channels ch = bits > 16 ? ReadChannels(b, i % b->nWidth, i / b->nWidth) : Channels{};
        uint32_t c[3];
        for (int k = 0; k < 3; ++k)
            c[k] = palette     ? (&pal[p].rgbBlue)[k]
                   : bits > 16 ? ch.v[k] >> (ch.bits - 8)
                               : uint32_t((p >> low) & ((1u << count) - 1)) >> (count - 8);
        out.push_back(plane == FT_PLANE_GREY ? (29 * c[0] + 150 * c[1] + 77 * c[2] + 128) >> 8
                                             : c[plane / 16 - 1]);
    }
    return out;
}

// sum f(x, y) exp(i (sx 2 pi u x / W + sy 2 pi v y / H)), angles from the
// index (u x mod W), as a table of twiddles would give them.
Spectrum NaiveDft(const std::vector<double> &f, int32_t W, int32_t H, int32_t sx, int32_t sy) {
    const double pi = 3.1415926535;
    Spectrum out(size_t(W) * H);
    for (int32_t i = 0; i < W * H; ++i)
        for (int32_t y = 0; y < H; ++y)
            for (int32_t x = 0; x < W; ++x) {
                const double a = sx * 2 * pi * double((int64_t(i % W) * x) % W) / W +
                                 sy * 2 * pi * double((int64_t(i / W) * y) % H) / H;
                out[size_t(i)] += f[size_t(y) * W + x] * std::polar(1.0, a);
            }
    return out;
}

// Largest element difference in units of the reference's sum of magnitudes.
double RelativeError(const Spectrum &got, const Spectrum &want) {
    double total = 0, worst = 0;
    for (size_t i = 0; i < want.size(); ++i)
        total += std::abs(want[i]), worst = std::max(worst, std::abs(got[i] - want[i]));
    return total > 0 ? worst / total : worst;
}

// Forward against the naive DFT, in view 3 with a region (both set aside:
// the whole picture, as stored); the inverse of half the spectrum (both
// components, clipped) gives half the plane up to truncation everywhere,
// and keeps the other channels.
TEST(FrequencyTransform, MatchesNaiveDftAndRoundTrips) {
    const int32_t grey = FT_PLANE_GREY, red = FT_PLANE_RED, green = FT_PLANE_GREEN;
    const std::pair<const char *, int32_t> layouts[] = {{"grey8", grey}, {"pal8_grey", red},
        {"pal1_grey", grey}, {"grey12", grey}, {"grey16_bits0_11", FT_PLANE_BLUE}, {"rgb24", green},
        {"bgr24", FT_PLANE_BLUE}, {"bgr32", red}, {"bgr24", grey}, {"bgr48", red}, {"bgr64", green},
        {"pal8_colour", FT_PLANE_BLUE}};
    const std::pair<int32_t, int32_t> sizes[] = { // powers of two: the FFT; others: the DFT
        {2, 2}, {8, 4}, {16, 16}, {4, 32}, {64, 2}, {6, 10}, {15, 7}, {1, 5}, {13, 1}, {12, 9},
        {1, 1}};
    uint32_t seed = 1;
    for (const auto &[name, plane] : layouts)
        for (auto [w, h] : sizes) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(plane) + " " + std::to_string(w));
            Bitmap b(FindLayout(name), w, h, seed++);
            const Bitmap before(b);
            const std::vector<double> f = Plane(b, plane);
            const bool fft = (w & (w - 1)) == 0 && (h & (h - 1)) == 0 && w * h > 1;
            const RzRect r{0, 0, w / 2 + 1, h / 2 + 1};
            KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 3, 0);
            ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
            Array a(b.get());
            ASSERT_EQ(Transform(fft, b, a, FT_FORWARD | plane), 1);
            Spectrum X = a.all();
            EXPECT_LT(RelativeError(X, NaiveDft(f, w, h, -1, -1)), 1e-9);
            const int32_t bits = b->nBitsPerPixel; // halves, where the picture has their levels
            const double k = bits > 8 || (bits == 8 && KrnIsGrayscale(b.get())) ? 0.5 : 1;
            for (auto &z : X) z *= k;
            a.setAll(X);
            ASSERT_EQ(Transform(fft, b, a, FT_INVERSE | plane | FT_BOTH | FT_CLIP), 1);
            KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 1, 0);
            const std::vector<double> g = Plane(b, plane);
            for (size_t i = 0; i < f.size(); ++i) ASSERT_LE(std::abs(f[i] * k - g[i]), 1.0) << i;
            for (int32_t i = 0; bits > 16 && plane != grey && i < w * h; ++i) {
                Channels was = ReadChannels(before, i % w, i / w);
                const Channels is = ReadChannels(b, i % w, i / w);
                was.v[plane / 16 - 1] = is.v[plane / 16 - 1];
                ASSERT_EQ(std::memcmp(&was, &is, sizeof was), 0) << "other channels at " << i;
            }
        }
}

// The rectangle keeps its spectrum elements (the rest is 0); the step fields
// are the exponent's signs per axis.
TEST(FrequencyTransform, DftRectangleAndSigns) {
    Bitmap b = Grey(10, 6, 5);
    const std::vector<double> f = Plane(b, FT_PLANE_GREY);
    const int32_t cm = DFT_COLUMNS_MINUS, rm = DFT_ROWS_MINUS;
    const struct {
        int32_t flags, sx, sy, r[4];
    } cases[] = {{cm | rm, -1, -1, {0, 0, 9, 5}}, {DFT_COLUMNS_PLUS, 1, 1, {2, 1, 7, 3}},
                 {rm, 1, -1, {9, 5, 9, 5}}, {cm | DFT_ROWS_PLUS, -1, 1, {0, 2, 4, 5}}};
    for (const auto &[flags, sx, sy, r] : cases) {
        Array a(b.get());
        a.setAll(Spectrum(60, {7.0, 7.0})); // cleared first
        ASSERT_EQ(Rz_DFTBitmap(b.get(), a.a, r, FT_FORWARD | FT_PLANE_GREY | DFT_RECT | flags), 1);
        Spectrum want = NaiveDft(f, 10, 6, sx, sy);
        for (int32_t i = 0; i < 60; ++i)
            want[i] *= i % 10 >= r[0] && i % 10 <= r[2] && i / 10 >= r[1] && i / 10 <= r[3];
        EXPECT_LT(RelativeError(a.all(), want), 1e-9) << flags;
    }
}

// Hand-worked 2x2: f = [[-10, 0], [10, 300]] has X = 300, -300 (u = 1),
// -320 (v = 1), 280. NaN spectra, and constant results, give black.
TEST(FrequencyTransform, WriteBackRulesWorkedByHand) {
    const Spectrum X{300, -300, -320, 280}, nan(4, {std::nan(""), std::nan("")});
    const std::vector<uint64_t> black(4);
    const std::tuple<Spectrum, int32_t, std::vector<uint64_t>> cases[] = {
        {X, FT_BOTH | FT_CLIP, {0, 0, 10, 255}},
        {X, FT_BOTH | FT_STRETCH, {0, 8, 16, 255}},   // (v + 10) * 255 / 310
        {X, FT_MAGNITUDE | FT_CLIP, {255, 10, 0, 0}}, // |X| / 4 = 75, 75, 80, 70: 300, 10, 0, -10
        {Spectrum{400, 0, 0, 0}, FT_BOTH | FT_STRETCH, black}, {nan, FT_BOTH | FT_CLIP, black},
        {Spectrum(4), FT_PHASE | FT_STRETCH, black}, {nan, FT_PHASE | FT_STRETCH, black},
        {nan, FT_MAGNITUDE | FT_CLIP, black},
    };
    for (const auto &[in, flags, want] : cases)
        for (bool fft : {true, false}) {
            Bitmap b = Grey(2, 2, 3);
            Array a(b.get());
            a.setAll(in);
            ASSERT_EQ(Transform(fft, b, a, FT_INVERSE | FT_PLANE_GREY | flags), 1);
            for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(b.pixel(i % 2, i / 2), want[i]) << flags;
        }
}

// Sizes the FFT refuses (a transposed view's too), flag fields outside their
// values, rectangles past an edge or without signs.
TEST(FrequencyTransform, BadInput) {
    Bitmap b = Grey(8, 4), odd = Grey(6, 8), turned = Grey(16, 8);
    KrnChangeViewPerspective(nullptr, turned.get(), BITMAPDESC_SIZE, 5, 0);
    Array a(b.get()), oa(odd.get()), ta(turned.get());
    const int32_t fwd = FT_FORWARD | FT_PLANE_GREY;
    const int32_t r[][4] = {{0, 0, 7, 3}, {0, 0, 8, 3}, {5, 0, 4, 3}};
    for (int32_t f : {0x43, FT_INVERSE | FT_PLANE_GREY | FT_BOTH}) // no plane; no write-back rule
        EXPECT_EQ(Transform(true, b, a, f), -13);
    EXPECT_EQ(Rz_FFTBitmap(odd.get(), oa.a, fwd) + Rz_FFTBitmap(turned.get(), ta.a, fwd), -26);
    EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, r[0], fwd | DFT_RECT | DFT_ROWS_PLUS), 1); // every edge
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Rz_DFTBitmap(b.get(), a.a, r[i], fwd | DFT_RECT | (i ? DFT_ROWS_PLUS : 0)), -13);
}

// A 4 x 2 spectrum: element (u, v) goes to column (u + 2) % 4, row (v + 1) % 2.
TEST(FrequencyDisplay, CentredScalesWorkedByHand) {
    const Spectrum X{{3, 4}, {0, 1}, -2, 0, {0, -0.5}, 1, 0, -7};
    // |X| = 5, 1, 2, 0 / 0.5, 1, 0, 7; D = 7.
    const std::pair<uint32_t, std::vector<uint64_t>> cases[] = { // picture rows, left to right
        {FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LINEAR, {0, 255, 18, 36, 72, 0, 182, 36}},
        // ln: 1.609, 0, 0.693, -inf / -0.693, 0, -inf, 1.946 over D = 1.946
        {FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG, {0, 255, 0, 0, 90, 0, 210, 0}},
        // atan2: 0.927, 1.571, pi, 0 / -1.571, 0, 0, pi; stretched over -1.571..3.1416
        {FT_DISPLAY_PHASE, {85, 255, 0, 85, 255, 85, 135, 170}},
        {FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG, std::vector<uint64_t>(8)}, // all zeros: black
    };
    Bitmap b(FindLayout("bgr24"), 4, 2, 4);
    Array a(b.get());
    for (const auto &[flags, want] : cases) {
        a.setAll(want[1] ? X : Spectrum(8));
        ASSERT_EQ(Rz_FTDisplayBitmap(b.get(), a.a, flags), 1);
        for (int32_t i = 0; i < 8; ++i)
            EXPECT_EQ(b.pixel(i % 4, i / 4), want[size_t(i)] * 0x010101) << flags << " pixel " << i;
    }
}

// Which elements survive, and how scaled, against a direct statement of
// each filter: rectangles in array or centred coordinates (frequency 0 at
// (W / 2, H / 2)), and a mask lying over the centred spectrum (m / 255 as
// the documented double; 0 clears NaN too).
TEST(FrequencyFilter, RectanglesAndMaskAgainstDirectMembership) {
    const int32_t W = 6, H = 5;
    std::vector<uint8_t> m(W * H);
    m[2 * W + 3] = 255, m[2 * W + 4] = 128, m[0] = 51; // frequency 0; u = 1, v = 0; u = 3, v = 3
    Bitmap mask = GreyBitmap(W, H, m);
    Spectrum X;
    for (int32_t i = 0; i < W * H; ++i) X.push_back({i == 7 ? std::nan("") : i + 1, double(-i)});
    const uint32_t kMask = ~0u, centred = FRQ_CENTRED_COORDS, array = FRQ_ARRAY_COORDS;
    const std::pair<uint32_t, std::vector<int32_t>> cases[] = {
        {array | FRQ_KEEP_INSIDE, {2, 1, 3, 2}},   {array | FRQ_ZERO_INSIDE, {0, 0, 5, 0}},
        {centred | FRQ_KEEP_INSIDE, {2, 1, 4, 3}}, {centred | FRQ_ZERO_INSIDE, {0, 0, 5, 4}},
        {kMask, {0, 0, 0, 0}}};
    Array a(mask.get());
    for (const auto &[flags, r] : cases) {
        a.setAll(X);
        ASSERT_EQ(flags == kMask ? Rz_FrqFilterMaskBitmap(mask.get(), a.a, 0)
                                 : Rz_FrqFilterBitmap(a.a, r.data(), flags), 1);
        const Spectrum got = a.all();
        const bool c = (flags & 0xF) == centred;
        for (int32_t i = 0; i < W * H; ++i) {
            const int32_t u = i % W, v = i / W, cu = (u + W / 2) % W, cv = (v + H / 2) % H;
            const int32_t x = c ? cu : u, y = c ? cv : v;
            const bool keep = (x >= r[0] && x <= r[2] && y >= r[1] && y <= r[3]) == !(flags & 0x20);
            const double f = flags == kMask ? m[size_t(cv) * W + cu] * 0.00392156862745098 : keep;
            const std::complex<double> want = f == 0 ? 0 : X[size_t(i)] * f, z = got[size_t(i)];
            EXPECT_TRUE(z == want || (std::isnan(z.real()) && std::isnan(want.real())))
                << flags << " at " << u << "," << v << ": " << z << ", want " << want;
        }
    }
    const int32_t wide[4] = {0, 0, 6, 4}, flipped[4] = {3, 0, 2, 4}; // past an edge; reversed
    EXPECT_EQ(Rz_FrqFilterBitmap(a.a, wide, 0x11) + Rz_FrqFilterBitmap(a.a, flipped, 0x11), -26);
    EXPECT_EQ(Rz_FrqFilterBitmap(a.a, cases[0].second.data(), 0x13), ST_INVALID_PARAMETER);
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
        Spectrum want(pixels.size());
        auto *in = fftw_alloc_complex(want.size()), *out = fftw_alloc_complex(want.size());
        fftw_plan plan = fftw_plan_dft_2d(h, w, in, out, FFTW_FORWARD, FFTW_ESTIMATE);
        for (size_t i = 0; i < want.size(); ++i) in[i][0] = pixels[i], in[i][1] = 0;
        fftw_execute(plan);
        std::memcpy(static_cast<void *>(want.data()), out, want.size() * 16);
        fftw_destroy_plan(plan);
        fftw_free(in);
        fftw_free(out);
        EXPECT_LT(RelativeError(a.all(), want), 1e-9) << w << "x" << h;
    }
}
#endif

} // namespace
} // namespace rz::test
