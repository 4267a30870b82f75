// The transform engine against a naive double DFT written here (the
// library's constant for pi): lengths of every factorisation, and bitmaps
// whose sizes cross the lane groups, column and row blocks and mirrored
// halves; the inverse against the plane it came from.
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
void NaiveDft(Cx *x, int32_t n, int32_t step, int32_t sign) {
    std::vector<Cx> w(static_cast<size_t>(n)), r(static_cast<size_t>(n));
    for (int32_t j = 0; j < n; ++j)
        w[size_t(j)] = {std::cos(2.0 * kLibraryPi * j / n), sign * std::sin(2.0 * kLibraryPi * j / n)};
    for (int32_t k = 0; k < n; ++k)
        for (int32_t j = 0; j < n; ++j) r[size_t(k)] += x[size_t(j) * step] * w[size_t(int64_t(j) * k % n)];
    for (int32_t k = 0; k < n; ++k) x[size_t(k) * step] = r[size_t(k)];
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

// A plan and lanes of length n holding random sequences, kept in `in` too.
bool RandomLanes(int32_t n, uint32_t &seed, freq::Plan &plan, freq::Lanes &lanes, std::vector<Cx> &in) {
    if (plan.init(n) != 1 || lanes.init(n) != 1) return false;
    in.resize(size_t(n) * freq::kLanes);
    for (size_t i = 0; i < in.size(); ++i) {
        in[i] = {Uniform(seed) * 200, Uniform(seed) * 200};
        lanes.re[i] = in[i].real(), lanes.im[i] = in[i].imag();
    }
    return true;
}

// Every radix path (8, 4, 2, 3, 5, a folded odd prime, and mixes), each
// lane a different sequence, both signs.
TEST(FftKernels, OneDimensionalMatchesNaiveDft) {
    uint32_t seed = 7;
    for (int32_t n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 15, 16, 25, 27, 32, 49, 60, 64, 97, 128, 243, 1000, 1024, 2048})
        for (int32_t sign : {-1, 1}) {
            freq::Plan plan;
            freq::Lanes lanes;
            std::vector<Cx> in;
            ASSERT_TRUE(RandomLanes(n, seed, plan, lanes, in));
            freq::Transform(plan, sign, lanes);
            std::vector<Cx> got(in.size());
            for (size_t i = 0; i < in.size(); ++i) got[i] = {lanes.re[i], lanes.im[i]};
            for (int32_t l = 0; l < freq::kLanes; ++l) NaiveDft(&in[size_t(l)], n, freq::kLanes, sign);
            EXPECT_LT(RelativeError(got, in), 1e-9) << "n " << n << " sign " << sign;
        }
}

// Lengths too long for the naive reference: a forward and an inverse
// transform give n times the input back, and the forward one keeps
// Parseval's sum (n times the input's energy), lane by lane; both up to the
// library's pi, whose roots of unity are not quite roots of unity.
TEST(FftKernels, LongLengthsRoundTripAndKeepTheEnergy) {
    uint32_t seed = 11;
    for (int32_t n : {4096, 6144, 8192}) {
        freq::Plan plan;
        freq::Lanes lanes;
        std::vector<Cx> in;
        ASSERT_TRUE(RandomLanes(n, seed, plan, lanes, in));
        freq::Transform(plan, -1, lanes);
        for (int32_t l = 0; l < freq::kLanes; ++l) {
            double before = 0, after = 0;
            for (size_t e = 0; e < size_t(n); ++e) {
                const size_t i = e * freq::kLanes + size_t(l);
                before += std::norm(in[i]);
                after += lanes.re[i] * lanes.re[i] + lanes.im[i] * lanes.im[i];
            }
            EXPECT_NEAR(after / (before * n), 1.0, 1e-9) << "n " << n << " lane " << l;
        }
        freq::Transform(plan, 1, lanes);
        std::vector<Cx> back(in.size());
        for (size_t i = 0; i < in.size(); ++i) back[i] = Cx(lanes.re[i], lanes.im[i]) / double(n);
        EXPECT_LT(RelativeError(back, in), 1e-9) << "n " << n;
    }
}

// A transform array read and written as complex numbers.
struct Array {
    FTARRAY *a = nullptr;
    size_t n;
    explicit Array(BitmapDesc *b) : n(size_t(b->nWidth) * b->nHeight) { EXPECT_EQ(Rz_AllocFTArray(b, &a, FTARRAY_SIZE), 1); }
    ~Array() { Rz_FreeFTArray(a); }
    uint8_t *at(size_t i) const { return reinterpret_cast<uint8_t *>(a) + offsetof(FTARRAY, acxData) + 16 * i; }
    std::vector<Cx> all() const {
        std::vector<Cx> s(n);
        for (size_t i = 0; i < n; ++i) std::memcpy(static_cast<void *>(&s[i]), at(i), 16);
        return s;
    }
    void setAll(const std::vector<Cx> &s) { for (size_t i = 0; i < n; ++i) std::memcpy(at(i), &s[i], 16); }
};

std::vector<Cx> GreyPlane(const Bitmap &b) {
    std::vector<Cx> f;
    for (int32_t i = 0; i < b->nWidth * b->nHeight; ++i) f.emplace_back(double(b.pixel(i % b->nWidth, i / b->nWidth)));
    return f;
}

// Partial lane groups and 8 x 8 blocks, several column blocks, a last block
// of one column, columns whose mirror images share a group, a last group of
// fewer than sixteen rows.
struct Size { int32_t w, h; bool fft; };
constexpr Size kSizes[] = {{256, 16, true}, {16, 128, true}, {32, 8, true},  {1024, 4, true},
                           {130, 20, false}, {200, 3, false}, {66, 9, false}, {17, 33, false}};

int32_t Transform(Bitmap &b, Array &a, bool fft, int32_t f) {
    return fft ? Rz_FFTBitmap(b.get(), a.a, f) : Rz_DFTBitmap(b.get(), a.a, nullptr, f | DFT_WHOLE);
}

TEST(FftKernels, ForwardMatchesNaiveDftAcrossBlockEdges) {
    uint32_t seed = 3;
    for (const Size &s : kSizes) {
        Bitmap b(FindLayout("grey8"), s.w, s.h, seed++);
        Array a(b.get());
        ASSERT_EQ(Transform(b, a, s.fft, FT_FORWARD | FT_PLANE_GREY), 1);
        std::vector<Cx> want = GreyPlane(b);
        for (int32_t y = 0; y < s.h; ++y) NaiveDft(&want[size_t(y) * s.w], s.w, 1, -1);
        for (int32_t x = 0; x < s.w; ++x) NaiveDft(&want[size_t(x)], s.h, s.w, -1);
        EXPECT_LT(RelativeError(a.all(), want), 1e-9) << s.w << "x" << s.h;
    }
}

// Only the conjugate-symmetric part of the array reaches the real result:
// i r added at (u, v) and at (-u, -v) changes nothing, and a DC term of
// P / 2 lifts every value half-way, so truncation (clip) and a stretch
// over the plane's own range give the plane back. The array is left as it
// was given, divided by P; magnitude and phase (zeros included) likewise.
TEST(FftKernels, InverseGivesThePlaneBackAndKeepsTheArrayScaled) {
    uint32_t seed = 11;
    for (const Size &s : kSizes)
        for (int32_t kind : {FT_BOTH, FT_MAGNITUDE, FT_PHASE}) {
            SCOPED_TRACE(std::to_string(s.w) + "x" + std::to_string(s.h) + " kind " + std::to_string(kind));
            Bitmap b(FindLayout("grey8"), s.w, s.h, seed++);
            const std::vector<Cx> plane = GreyPlane(b);
            double lo = 255, hi = 0;
            for (const Cx &z : plane) lo = std::min(lo, z.real()), hi = std::max(hi, z.real());
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
                    if (kind != FT_BOTH && Next(key) % 5 == 0) x[size_t(v) * s.w + u] = 0;
                }
            a.setAll(x);
            Bitmap out(FindLayout("grey8"), s.w, s.h, 0);
            ASSERT_EQ(Transform(out, a, s.fft, FT_INVERSE | FT_PLANE_GREY | kind | FT_CLIP), 1);
            const std::vector<Cx> got = a.all();
            for (size_t i = 0; i < x.size(); ++i) {
                const double m = std::abs(x[i]);
                const Cx want = kind == FT_BOTH ? x[i] / P : kind == FT_MAGNITUDE ? Cx(m / P, 0) : m == 0 ? 0 : x[i] / (m * P);
                ASSERT_LE(std::abs(got[i] - want), 1e-14 * std::abs(want)) << i;
            }
            if (kind != FT_BOTH) continue;
            for (int32_t flags : {FT_CLIP, FT_STRETCH}) {
                a.setAll(x);
                ASSERT_EQ(Transform(out, a, s.fft, FT_INVERSE | FT_PLANE_GREY | FT_BOTH | flags), 1);
                for (int32_t y = 0; y < s.h; ++y)
                    for (int32_t px = 0; px < s.w; ++px) {
                        const double v = plane[size_t(y) * s.w + px].real() + 0.5;
                        const double want = flags == FT_CLIP ? v - 0.5 : std::floor((v - lo - 0.5) * 255.0 / (hi - lo));
                        ASSERT_NEAR(double(out.pixel(px, y)), want, flags == FT_CLIP ? 0 : 1) << px << "," << y;
                    }
            }
        }
}

} // namespace
} // namespace rz::test
