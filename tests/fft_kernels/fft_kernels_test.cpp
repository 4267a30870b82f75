// The transform engine against a naive double DFT written here (a table of
// cos and sin of 2 pi (jk mod n) / n with the library's constant for pi),
// for one-dimensional lengths of every factorisation and for whole bitmaps
// whose widths cross the column groups, the blocks and the mirrored halves;
// and the inverse against the plane it came from, with a perturbation that
// must not reach the real result.
#include "frequency/ft_engine.h"
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

namespace rz::test {
namespace {

using Cx = std::complex<double>;
constexpr double kLibraryPi = 3.1415926535;

// X(k) = sum x(j) exp(sign 2 pi i j k / n), at stride `step` in and out.
void NaiveDft(const Cx *x, Cx *out, int32_t n, int32_t step, int32_t sign) {
    std::vector<Cx> w(static_cast<size_t>(n));
    for (int32_t j = 0; j < n; ++j) {
        const double a = 2.0 * kLibraryPi * j / n;
        w[size_t(j)] = {std::cos(a), sign * std::sin(a)};
    }
    std::vector<Cx> r(static_cast<size_t>(n));
    for (int32_t k = 0; k < n; ++k) {
        Cx s = 0;
        for (int32_t j = 0; j < n; ++j) s += x[size_t(j) * step] * w[size_t(int64_t(j) * k % n)];
        r[size_t(k)] = s;
    }
    for (int32_t k = 0; k < n; ++k) out[size_t(k) * step] = r[size_t(k)];
}

// Rows, then columns.
std::vector<Cx> NaiveDft2(std::vector<Cx> f, int32_t w, int32_t h) {
    for (int32_t y = 0; y < h; ++y) NaiveDft(&f[size_t(y) * w], &f[size_t(y) * w], w, 1, -1);
    for (int32_t x = 0; x < w; ++x) NaiveDft(&f[size_t(x)], &f[size_t(x)], h, w, -1);
    return f;
}

// Largest difference over the sum of the reference's magnitudes.
double RelativeError(const std::vector<Cx> &got, const std::vector<Cx> &want) {
    double total = 0, worst = 0;
    for (size_t i = 0; i < want.size(); ++i) {
        total += std::abs(want[i]);
        worst = std::max(worst, std::abs(got[i] - want[i]));
    }
    return worst / std::max(total, 1e-300);
}

uint32_t Next(uint32_t &s) { return s = s * 1664525u + 1013904223u; }
double Uniform(uint32_t &s) { return double(Next(s) >> 8) / double(1u << 24) - 0.5; }

// Every radix path (4, 2, 3, 5, a folded odd prime, and mixes), each lane
// a different sequence, both signs.
TEST(FftKernels, OneDimensionalMatchesNaiveDft) {
    uint32_t seed = 7;
    for (int32_t n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 15, 16, 25, 27, 32, 49, 60, 97, 128, 243, 1000, 1024, 2048}) {
        freq::Plan plan;
        freq::Lanes lanes;
        ASSERT_EQ(plan.init(n), 1);
        ASSERT_EQ(lanes.init(n), 1);
        for (int32_t sign : {-1, 1}) {
            std::vector<Cx> in(size_t(n) * freq::kLanes);
            for (auto &z : in) z = {Uniform(seed) * 200, Uniform(seed) * 200};
            for (size_t i = 0; i < in.size(); ++i) lanes.re[i] = in[i].real(), lanes.im[i] = in[i].imag();
            freq::Transform(plan, sign, lanes);
            for (int32_t l = 0; l < freq::kLanes; ++l) {
                std::vector<Cx> want, got;
                for (int32_t k = 0; k < n; ++k) {
                    const size_t i = size_t(k) * freq::kLanes + size_t(l);
                    want.push_back(in[i]);
                    got.emplace_back(lanes.re[i], lanes.im[i]);
                }
                NaiveDft(want.data(), want.data(), n, 1, sign);
                EXPECT_LT(RelativeError(got, want), 1e-9) << "n " << n << " sign " << sign << " lane " << l;
            }
        }
    }
}

// A transform array read and written as complex numbers.
struct Array {
    FTARRAY *a = nullptr;
    int32_t w, h;
    explicit Array(BitmapDesc *b) : w(b->nWidth), h(b->nHeight) { EXPECT_EQ(Rz_AllocFTArray(b, &a, FTARRAY_SIZE), 1); }
    ~Array() { Rz_FreeFTArray(a); }
    Array(const Array &) = delete;
    Array &operator=(const Array &) = delete;
    uint8_t *at(size_t i) const { return reinterpret_cast<uint8_t *>(a) + offsetof(FTARRAY, acxData) + 16 * i; }
    std::vector<Cx> all() const {
        std::vector<Cx> s(size_t(w) * h);
        for (size_t i = 0; i < s.size(); ++i) std::memcpy(static_cast<void *>(&s[i]), at(i), 16);
        return s;
    }
    void setAll(const std::vector<Cx> &s) {
        for (size_t i = 0; i < s.size(); ++i) std::memcpy(at(i), &s[i], 16);
    }
};

std::vector<Cx> GreyPlane(const Bitmap &b) {
    std::vector<Cx> f;
    for (int32_t y = 0; y < b->nHeight; ++y)
        for (int32_t x = 0; x < b->nWidth; ++x) f.emplace_back(double(b.pixel(x, y)), 0.0);
    return f;
}

// Widths with partial column groups, several column blocks, a last block
// of one column and columns whose mirror images share a group.
struct Size {
    int32_t w, h;
    bool fft;
};
constexpr Size kSizes[] = {{256, 16, true}, {16, 128, true}, {32, 8, true},  {1024, 4, true},
                           {130, 20, false}, {200, 3, false}, {66, 9, false}, {17, 33, false}};

int32_t Transform(Bitmap &b, Array &a, bool fft, int32_t flags) {
    return fft ? Rz_FFTBitmap(b.get(), a.a, flags) : Rz_DFTBitmap(b.get(), a.a, nullptr, flags | DFT_WHOLE);
}

TEST(FftKernels, ForwardMatchesNaiveDftAcrossBlockEdges) {
    uint32_t seed = 3;
    for (const Size &s : kSizes) {
        Bitmap b(FindLayout("grey8"), s.w, s.h, seed++);
        Array a(b.get());
        ASSERT_EQ(Transform(b, a, s.fft, FT_FORWARD | FT_PLANE_GREY), 1);
        EXPECT_LT(RelativeError(a.all(), NaiveDft2(GreyPlane(b), s.w, s.h)), 1e-9) << s.w << "x" << s.h;
    }
}

// Only the conjugate-symmetric part of the array reaches the real result:
// i r added at (u, v) and at (-u, -v) changes nothing, and a DC term of
// P / 2 lifts every value half-way, so truncation gives the plane back.
// The array itself is left as it was given, divided by P.
TEST(FftKernels, InverseGivesThePlaneBackAndKeepsTheArrayScaled) {
    uint32_t seed = 11;
    for (const Size &s : kSizes) {
        SCOPED_TRACE(std::to_string(s.w) + "x" + std::to_string(s.h));
        Bitmap b(FindLayout("grey8"), s.w, s.h, seed++);
        const std::vector<Cx> plane = GreyPlane(b);
        Array a(b.get());
        ASSERT_EQ(Transform(b, a, s.fft, FT_FORWARD | FT_PLANE_GREY), 1);
        std::vector<Cx> x = a.all();
        const double P = double(s.w) * s.h;
        x[0] += P / 2;
        for (int32_t v = 0; v < s.h; ++v)
            for (int32_t u = 0; u < s.w; ++u) {
                const int32_t mu = (s.w - u) % s.w, mv = (s.h - v) % s.h;
                uint32_t key = uint32_t(std::min(v * s.w + u, mv * s.w + mu)) * 2654435761u;
                x[size_t(v) * s.w + u] += Cx(0, 1e3 * Uniform(key));
            }
        a.setAll(x);
        Bitmap zeroed(FindLayout("grey8"), s.w, s.h, 0);
        ASSERT_EQ(Transform(zeroed, a, s.fft, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP), 1);
        for (int32_t y = 0; y < s.h; ++y)
            for (int32_t px = 0; px < s.w; ++px)
                ASSERT_EQ(double(zeroed.pixel(px, y)), plane[size_t(y) * s.w + px].real()) << px << "," << y;
        const std::vector<Cx> scaled = a.all();
        for (size_t i = 0; i < x.size(); ++i) ASSERT_LE(std::abs(scaled[i] - x[i] / P), 1e-15 * std::abs(x[i] / P)) << i;
    }
}

// Magnitude and phase scaling of an array with no symmetry, zeros included.
TEST(FftKernels, InverseScalesEveryElementOnce) {
    const int32_t w = 256, h = 8;
    const double P = double(w) * h;
    uint32_t seed = 5;
    std::vector<Cx> x(size_t(w) * h);
    for (auto &z : x) z = Next(seed) % 5 == 0 ? Cx(0, 0) : Cx(Uniform(seed) * 1e4, Uniform(seed) * 1e4);
    for (int32_t kind : {FT_MAGNITUDE, FT_PHASE}) {
        Bitmap b(FindLayout("grey8"), w, h, 0);
        Array a(b.get());
        a.setAll(x);
        ASSERT_EQ(Rz_FFTBitmap(b.get(), a.a, FT_INVERSE | FT_PLANE_GREY | kind | FT_STRETCH), 1);
        const std::vector<Cx> got = a.all();
        for (size_t i = 0; i < x.size(); ++i) {
            const double m = std::abs(x[i]);
            const Cx want = kind == FT_MAGNITUDE ? Cx(m / P, 0) : m == 0 ? Cx(0, 0) : x[i] / (m * P);
            ASSERT_LE(std::abs(got[i] - want), 1e-14 * std::abs(want)) << kind << " " << i;
        }
    }
}

} // namespace
} // namespace rz::test
