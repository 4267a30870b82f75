// Logarithm, sine and cosine, and arc sine in double precision, written
// without branches or calls so that a loop over a row of pixels compiles to
// vector instructions (libm's functions are calls, one value at a time).
// Each is within two units in the last place of the correctly rounded value
// over the range the distortions use; a caller with an argument outside it
// falls back to libm.
#pragma once

#include <bit>
#include <cstdint>

#if defined(__GNUC__)
#define RZ_MATH_INLINE inline __attribute__((always_inline))
#else
#define RZ_MATH_INLINE inline
#endif

namespace rz::dist::vm {

// Natural logarithm of a positive, finite, normal x: x = m 2^e with m in
// [sqrt(1/2), sqrt(2)), ln m = 2 atanh(s) with s = (m - 1) / (m + 1).
RZ_MATH_INLINE double Log(double x) {
    const uint64_t bits = std::bit_cast<uint64_t>(x);
    // The exponent as a double without an integer conversion.
    double e = std::bit_cast<double>((bits >> 52) | 0x4330000000000000ull) - (4503599627370496.0 + 1023.0);
    double m = std::bit_cast<double>((bits & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull);
    const double high = m > 1.4142135623730951 ? 1.0 : 0.0;
    m *= 1.0 - 0.5 * high;
    e += high;
    const double s = (m - 1) / (m + 1), z = s * s;
    double p = 1.0 / 25;
    p = p * z + 1.0 / 23;
    p = p * z + 1.0 / 21;
    p = p * z + 1.0 / 19;
    p = p * z + 1.0 / 17;
    p = p * z + 1.0 / 15;
    p = p * z + 1.0 / 13;
    p = p * z + 1.0 / 11;
    p = p * z + 1.0 / 9;
    p = p * z + 1.0 / 7;
    p = p * z + 1.0 / 5;
    p = p * z + 1.0 / 3;
    constexpr double kLn2Hi = 6.93147180369123816490e-01, kLn2Lo = 1.90821492927058770002e-10;
    return e * kLn2Hi + (2 * s + (2 * s * z * p + e * kLn2Lo));
}

// sin and cos of |t| < kSinCosLimit: t = j pi/2 + y, |y| <= pi/4, with
// pi/2 in three parts (the first two with short mantissas, so that j times
// them is exact).
constexpr double kSinCosLimit = 1.0e5;

RZ_MATH_INLINE void SinCos(double t, double &sinOut, double &cosOut) {
    constexpr double kShift = 6755399441055744.0; // 1.5 * 2^52: adding it rounds to an integer
    const double shifted = t * 0.63661977236758134308 + kShift;
    const double j = shifted - kShift;
    const uint64_t quadrant = std::bit_cast<uint64_t>(shifted) & 3;
    constexpr double kPio2a = 1.57079632673412561417e+00, kPio2b = 6.07710050630396597660e-11,
                     kPio2c = 2.02226624879595063154e-21;
    const double y = ((t - j * kPio2a) - j * kPio2b) - j * kPio2c;
    const double z = y * y;
    double s = 2.81145725434552076320e-15;                                    // 1/17!
    s = s * z - 7.64716373181981647590e-13;                                   // -1/15!
    s = s * z + 1.60590438368216145994e-10;                                   // 1/13!
    s = s * z - 2.50521083854417187751e-08;                                   // -1/11!
    s = s * z + 2.75573192239858906526e-06;                                   // 1/9!
    s = s * z - 1.98412698412698412526e-04;                                   // -1/7!
    s = s * z + 8.33333333333333321769e-03;                                   // 1/5!
    s = s * z - 1.66666666666666657415e-01;                                   // -1/3!
    s = y + y * z * s;
    double c = 4.77947733238738529744e-14; // 1/16!
    c = c * z - 1.14707455977297247139e-11; // -1/14!
    c = c * z + 2.08767569878680989792e-09; // 1/12!
    c = c * z - 2.75573192239858906526e-07; // -1/10!
    c = c * z + 2.48015873015873015658e-05; // 1/8!
    c = c * z - 1.38888888888888894189e-03; // -1/6!
    c = c * z + 4.16666666666666643537e-02; // 1/4!
    c = c * z - 0.5;
    c = 1 + z * c;
    // Quadrant 1: (c, -s); 2: (-s, -c); 3: (-c, s).
    const bool swap = quadrant & 1;
    const double sv = swap ? c : s, cv = swap ? s : c;
    const uint64_t sinSign = (quadrant & 2) << 62, cosSign = ((quadrant + 1) & 2) << 62;
    sinOut = std::bit_cast<double>(std::bit_cast<uint64_t>(sv) ^ sinSign);
    cosOut = std::bit_cast<double>(std::bit_cast<uint64_t>(cv) ^ cosSign);
}

namespace detail {
// Taylor coefficients of asin: a_n = a_(n-1) (2n - 1)^2 / (2n (2n + 1)).
struct AsinCoefficients {
    double a[26];
    constexpr AsinCoefficients() : a{} {
        a[0] = 1;
        for (int n = 1; n < 26; ++n) a[n] = a[n - 1] * double((2 * n - 1) * (2 * n - 1)) / double(2 * n * (2 * n + 1));
    }
};
inline constexpr AsinCoefficients kAsin{};
} // namespace detail

// asin(x) for x in [0, 1]: the series up to 0.5, and
// pi/2 - 2 asin(sqrt((1 - x) / 2)) above.
RZ_MATH_INLINE double AsinUnit(double x) {
    const bool low = x <= 0.5;
    const double root = __builtin_sqrt((1 - x) * 0.5); // both sides, so that nothing branches
    const double w = low ? x : root;
    const double z = w * w;
    double p = detail::kAsin.a[25];
#pragma GCC unroll 24
    for (int n = 24; n >= 1; --n) p = p * z + detail::kAsin.a[n];
    const double a = w + w * z * p;
    return low ? a : 1.57079632679489661923 - 2 * a;
}

} // namespace rz::dist::vm
