// Spectrum display (centring, scales worked by hand), rectangle and mask
// filters, and the transform against FFTW on the sizes users meet.
#include "ft_reference.h"

#include <cmath>
#include <random>

#ifdef RZ_HAVE_FFTW
#include <fftw3.h>
#endif

namespace rz::test {
namespace {

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

Spectrum Ramp(int32_t n) {
    Spectrum s;
    for (int32_t i = 0; i < n; ++i) s.push_back({double(i + 1), double(-i)});
    return s;
}

// Which elements survive, against a direct membership test of each case.
TEST(FrequencyFilter, RectanglesInArrayAndCentredCoordinates) {
    const int32_t W = 6, H = 5;
    Bitmap b(FindLayout("grey8"), W, H, 0);
    const struct {
        uint32_t flags;
        int32_t rect[4];
    } cases[] = {
        {FRQ_ARRAY_COORDS | FRQ_KEEP_INSIDE, {1, 1, 3, 2}},
        {FRQ_ARRAY_COORDS | FRQ_ZERO_INSIDE, {0, 0, 5, 0}},
        {FRQ_CENTRED_COORDS | FRQ_KEEP_INSIDE, {2, 1, 4, 3}}, // around frequency 0 at (3, 2)
        {FRQ_CENTRED_COORDS | FRQ_ZERO_INSIDE, {0, 0, 5, 4}},
    };
    for (const auto &c : cases) {
        Array a(b.get());
        a.setAll(Ramp(W * H));
        ASSERT_EQ(Rz_FrqFilterBitmap(a.a, c.rect, c.flags), 1);
        const bool centred = (c.flags & 0xF) == FRQ_CENTRED_COORDS, keepInside = (c.flags & 0xF0) == FRQ_KEEP_INSIDE;
        for (int32_t v = 0; v < H; ++v)
            for (int32_t u = 0; u < W; ++u) {
                const int32_t x = centred ? (u + W / 2) % W : u, y = centred ? (v + H / 2) % H : v;
                const bool inside = x >= c.rect[0] && x <= c.rect[2] && y >= c.rect[1] && y <= c.rect[3];
                const auto want = inside == keepInside ? Ramp(W * H)[size_t(v) * W + u] : 0.0;
                EXPECT_EQ(a.get(u, v), want) << c.flags << " " << u << "," << v;
            }
    }
    Array a(b.get());
    const int32_t ok[4] = {0, 0, 5, 4}, right[4] = {0, 0, 6, 4}, bottom[4] = {0, 0, 5, 5}, flip[4] = {3, 0, 2, 4};
    for (const int32_t *r : {right, bottom, flip})
        EXPECT_EQ(Rz_FrqFilterBitmap(a.a, r, FRQ_ARRAY_COORDS | FRQ_KEEP_INSIDE), ST_INVALID_PARAMETER);
    for (uint32_t bad : {0x10u, 0x01u, 0x13u, 0x31u, 0x111u})
        EXPECT_EQ(Rz_FrqFilterBitmap(a.a, ok, bad), ST_INVALID_PARAMETER) << bad;
    EXPECT_EQ(Rz_FrqFilterBitmap(a.a, nullptr, 0x11), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_FrqFilterBitmap(nullptr, ok, 0x11), ST_NULL_POINTER);
}

// The mask lies over the centred spectrum: its centre pixel weighs
// frequency 0; m / 255 as the documented double; 0 clears NaN too.
TEST(FrequencyFilter, MaskIsCentredAndScales) {
    const int32_t W = 5, H = 4;
    std::vector<uint8_t> m(W * H, 0);
    m[2 * W + 2] = 255; // frequency 0
    m[2 * W + 3] = 128; // u = 1, v = 0
    m[0] = 51;          // u = 3, v = 2
    Bitmap mask = GreyBitmap(W, H, m);
    Array a(mask.get());
    Spectrum X = Ramp(W * H);
    X[7] = {std::nan(""), 1};
    a.setAll(X);
    ASSERT_EQ(Rz_FrqFilterMaskBitmap(mask.get(), a.a, 0), 1);
    for (int32_t v = 0; v < H; ++v)
        for (int32_t u = 0; u < W; ++u) {
            const double f = m[size_t((v + H / 2) % H) * W + (u + W / 2) % W] * 0.00392156862745098;
            const auto want = f == 0 ? std::complex<double>(0) : X[size_t(v) * W + u] * f;
            EXPECT_EQ(a.get(u, v), want) << u << "," << v;
        }
    EXPECT_EQ(Rz_FrqFilterMaskBitmap(mask.get(), a.a, 1), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_FrqFilterMaskBitmap(mask.get(), nullptr, 0), ST_NULL_POINTER);
    Bitmap other(FindLayout("grey8"), W + 1, H, 0);
    EXPECT_EQ(Rz_FrqFilterMaskBitmap(other.get(), a.a, 0), ST_INVALID_PARAMETER);
    a.a->uStructSize = 0;
    EXPECT_EQ(Rz_FrqFilterMaskBitmap(nullptr, a.a, 0), ST_BAD_STRUCT_SIZE); // the array first
    a.a->uStructSize = FTARRAY_SIZE;
}

// A stripe pattern's peaks are removed by a notch mask and the picture
// comes back without the stripes.
TEST(FrequencyFilter, NotchRemovesPeriodicStripes) {
    const int32_t W = 64, H = 32;
    std::vector<uint8_t> clean(W * H), striped(W * H);
    for (int32_t y = 0; y < H; ++y)
        for (int32_t x = 0; x < W; ++x) {
            clean[size_t(y) * W + x] = uint8_t(100 + (x * 3 + y * 2) % 40);
            striped[size_t(y) * W + x] = uint8_t(clean[size_t(y) * W + x] + 40 + 40 * std::cos(2 * 3.14159265 * x / 8));
        }
    Bitmap b = GreyBitmap(W, H, striped), ref = GreyBitmap(W, H, clean);
    Array a(b.get()), ar(ref.get());
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_FORWARD | FT_PLANE_GREY), 1);
    ASSERT_EQ(Rz_FFTBitmap(ref.get(), ar.a, FT_FORWARD | FT_PLANE_GREY), 1);
    std::vector<uint8_t> m(W * H, 255);
    m[size_t(H / 2) * W + W / 2 + 8] = m[size_t(H / 2) * W + W / 2 - 8] = 0; // u = +-8, v = 0
    Bitmap mask = GreyBitmap(W, H, m);
    ASSERT_EQ(Rz_FrqFilterMaskBitmap(mask.get(), a.a, 0), 1);
    ASSERT_EQ(Rz_FrqFilterMaskBitmap(mask.get(), ar.a, 0), 1);
    ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP), 1);
    ASSERT_EQ(Rz_FFTBitmap(ref.get(), ar.a, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP), 1);
    // Only the mean (+40) of the stripes stays; the clean picture filtered alike.
    for (int32_t y = 0; y < H; ++y)
        for (int32_t x = 0; x < W; ++x) ASSERT_NEAR(double(b.pixel(x, y)), double(ref.pixel(x, y)) + 40, 1.0);
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
