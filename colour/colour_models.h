// The integer colour models behind every hue and saturation operation.
//
// Ratio-hue HSV: the minimum channel (blue tested first, then red, else
// green) picks a third of the circle, and the hue inside it is the share of
// the rising channel in the two non-minimum ones. Integer HLS: lightness
// (max + min) / 2 and the six-sector hue. Each model exists on integer
// scales with their own truncations: whole degrees and percent (hundredths
// of both for 16-bit channels), 256ths of a turn for bytes, and a word scale
// 257 times the byte scale.
//
// Forward conversions truncate as the scales prescribe. Where the inverse is
// ours to choose (degrees and percent, both HLS flavours of it, and the word
// scale) it is a true inverse: it returns the colour whose truncated
// quantities are exactly the given ones, taking each quantity at the low end
// of its truncation step. So forward(inverse(x)) == x for every x a forward
// conversion produces, a round trip errs by at most one step of the scale,
// and colours whose quantities are exact (greys, primaries, secondaries)
// come back unchanged. The byte-scale inverses are fixed formulas and lossy.
//
// Everything here is inline and branch-light so the pixel loops of the
// operations can inline it; the 8-bit paths divide through exact reciprocal
// tables instead of the divider.
#pragma once

#include <cstdint>
#include <type_traits>

namespace rz::colour {

// Dispatcher modes used by the hue, saturation and intensity operations.
enum : int32_t {
    CS_RGB_TO_HSV = 1,  // ratio-hue HSV, degrees and percent
    CS_RGB_TO_HLS = 2,  // integer HLS, degrees and percent
    CS_HSV_TO_RGB = 17, // inverse of 1
    CS_HLS_TO_RGB = 18, // inverse of 2
    CS_MODE_COUNT = 27, // modes 0..26 exist; the rest serve colour thresholds
};

// Per-pixel records of the dispatcher: 4 bytes for 8-bit channels, the hue
// in whole degrees (0..359) and the other two in 0..100 percent or 0..255;
// 6 bytes for 16-bit channels, hue in hundredths of a degree (0..35999),
// saturation in hundredths of a percent (0..10000).
template <class T> struct HsvRecord {
    uint16_t hue;
    T sat;
    T val;
};
template <class T> struct HlsRecord {
    uint16_t hue;
    T light;
    T sat;
};
static_assert(sizeof(HsvRecord<uint8_t>) == 4 && sizeof(HlsRecord<uint8_t>) == 4);
static_assert(sizeof(HsvRecord<uint16_t>) == 6 && sizeof(HlsRecord<uint16_t>) == 6);

struct Rgb {
    int32_t r, g, b;
};
struct Hsv {
    int32_t h, s, v;
};
struct Hls {
    int32_t h, l, s;
};

// ---- Exact division by small divisors ----
//
// x / d == (x * m[d]) >> 32 with m[d] = floor(2^32 / d) + 1, exactly, for
// every d <= 510 and x < 2^32 / 510 (about 8.4 million): the product's
// error x * (m d - 2^32) / 2^32 stays below one unit of x / d's fraction.
struct Reciprocals {
    uint64_t m[511];
    constexpr Reciprocals() : m{} {
        m[0] = 0;
        for (uint64_t d = 1; d < 511; ++d) m[d] = (uint64_t{1} << 32) / d + 1;
    }
};
inline constexpr Reciprocals kRecip{};
constexpr uint32_t kRecipMaxNumerator = 8421504; // 2^32 / 510

inline uint32_t DivSmall(uint32_t x, uint32_t d) { return static_cast<uint32_t>((x * kRecip.m[d]) >> 32); }

// Channel scales. Byte channels use the reciprocal table (every divisor of
// the 8-bit formulas is at most 510); word channels divide.
template <class T> struct Scale;

template <> struct Scale<uint8_t> {
    static constexpr int32_t kMax = 255;
    static constexpr int32_t kThird = 120;  // ratio hue: units per third of the circle (degrees)
    static constexpr int32_t kSixth = 60;   // HLS hue: units per sixth (degrees)
    static constexpr int32_t kPercent = 100;
    static constexpr int32_t kHlsSwitch = 128; // HLS: lightness up to here divides by max + min
    static uint32_t Div(uint32_t x, uint32_t d) { return DivSmall(x, d); }
};

template <> struct Scale<uint16_t> {
    static constexpr int32_t kMax = 65535;
    static constexpr int32_t kThird = 12000; // hundredths of a degree
    static constexpr int32_t kSixth = 6000;
    static constexpr int32_t kPercent = 10000; // hundredths of a percent
    static constexpr int32_t kHlsSwitch = 128 * 257;
    static uint32_t Div(uint32_t x, uint32_t d) { return x / d; }
};

inline int32_t Min3(int32_t a, int32_t b, int32_t c) {
    const int32_t m = a < b ? a : b;
    return m < c ? m : c;
}
inline int32_t Max3(int32_t a, int32_t b, int32_t c) {
    const int32_t m = a > b ? a : b;
    return m > c ? m : c;
}

// ---- Ratio-hue HSV: the sector and its two non-minimum channels ----

// Sector 0: blue is the minimum, the hue rises from red to green; 1: red is
// the minimum, green to blue; 2: green is the minimum, blue to red. `rise`
// is the channel the hue rises towards, `fall` the other non-minimum one.
struct RatioParts {
    int32_t sector, rise, fall;
};
inline RatioParts SplitRatio(int32_t r, int32_t g, int32_t b, int32_t mn) {
    if (b == mn) return {0, g, r};
    if (r == mn) return {1, b, g};
    return {2, r, b};
}
inline Rgb JoinRatio(int32_t sector, int32_t rise, int32_t fall, int32_t mn) {
    if (sector == 0) return {fall, rise, mn};
    if (sector == 1) return {mn, fall, rise};
    return {rise, mn, fall};
}

// Inverse of the share inside a sector: t of `third` units (0 <= t < third)
// is the low end of the truncation step, so the rising channel is the
// smallest value whose share reaches t (ceiling), or, past the middle, the
// falling channel is the largest whose share still reaches t (floor).
template <class I> inline void UnsplitShare(I t, I third, I k, I mn, I top, I &rise, I &fall) {
    if (2 * t <= third) {
        fall = top;
        rise = mn + (t * k + (third - t) - 1) / (third - t);
    } else {
        rise = top;
        fall = mn + (k * (third - t)) / t;
    }
}

// ---- Ratio-hue HSV, degrees and percent (mode 1 and 17) ----

template <class T> inline Hsv DegHsvFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<T>;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    if (mx == mn) return {0, 0, mx};
    const RatioParts p = SplitRatio(r, g, b, mn);
    const uint32_t rise = static_cast<uint32_t>(p.rise - mn), den = rise + static_cast<uint32_t>(p.fall - mn);
    const int32_t h = p.sector * S::kThird + static_cast<int32_t>(S::Div(S::kThird * rise, den));
    const int32_t s = static_cast<int32_t>(S::Div(static_cast<uint32_t>(mx - mn) * S::kPercent, mx));
    return {h, s, mx};
}

// The chroma k = max - min is known only to the step of s (up to 3 values
// for bytes, 7 for words) and the hue step depends on k, so the smallest k
// whose hue step is not empty is taken; when none is (a hue or saturation
// no colour of this value has) the smallest k gives the nearest colour.
template <class T> inline Rgb RgbFromDegHsv(int32_t h, int32_t s, int32_t v) {
    using S = Scale<T>;
    constexpr uint32_t P = S::kPercent, U = S::kThird;
    if (s <= 0 || v <= 0) return {v, v, v};
    const uint32_t us = static_cast<uint32_t>(s), uv = static_cast<uint32_t>(v);
    const uint32_t kmin = (us * uv + P - 1) / P;
    uint32_t kmax = ((us + 1) * uv - 1) / P;
    if (kmax > uv) kmax = uv;
    h %= 3 * static_cast<int32_t>(U);
    if (h < 0) h += 3 * U;
    const int32_t sector = h / static_cast<int32_t>(U);
    const uint32_t t = static_cast<uint32_t>(h) - static_cast<uint32_t>(sector) * U;
    for (uint32_t k = kmin <= uv ? kmin : uv;; ++k) {
        uint32_t rise, fall;
        bool exact;
        if (2 * t <= U) {
            fall = k;
            rise = (t * k + (U - t) - 1) / (U - t);
            exact = S::Div(U * rise, rise + k) == t;
        } else {
            rise = k;
            fall = k * (U - t) / t;
            exact = S::Div(U * k, k + fall) == t;
        }
        if (exact || k >= kmax) {
            if (!exact && k != kmin && kmin <= uv) {
                k = kmin; // nothing fits: the least chroma, as its formula gives
                if (2 * t <= U) {
                    fall = k;
                    rise = (t * k + (U - t) - 1) / (U - t);
                } else {
                    rise = k;
                    fall = k * (U - t) / t;
                }
            }
            const int32_t mn = v - static_cast<int32_t>(k);
            return JoinRatio(sector, mn + static_cast<int32_t>(rise), mn + static_cast<int32_t>(fall), mn);
        }
    }
}

// ---- Ratio-hue HSV, byte scale (256ths of a turn; 8-bit channels) ----

inline Hsv ByteHsvFromRgb(int32_t r, int32_t g, int32_t b) {
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    if (mx == mn) return {0, 0, mx};
    const RatioParts p = SplitRatio(r, g, b, mn);
    const uint32_t rise = static_cast<uint32_t>(p.rise - mn), den = rise + static_cast<uint32_t>(p.fall - mn);
    // 30720 = 120 x 256; the sector bases (0, 120 and 240 x 256) each carry
    // +180 so that the division by 360 rounds to the nearest step.
    static constexpr uint32_t kOffset[3] = {180, 30900, 61620};
    const uint32_t h = (DivSmall(30720 * rise, den) + kOffset[p.sector]) / 360;
    const uint32_t s = DivSmall(static_cast<uint32_t>(mx - mn) * 255, static_cast<uint32_t>(mx));
    return {static_cast<int32_t>(h), static_cast<int32_t>(s), mx};
}

// The fixed inverse of the byte scale (lossy): the hue back in whole
// degrees, the channel between minimum and maximum from the sector's ratio.
inline Rgb RgbFromByteHsv(int32_t h, int32_t s, int32_t v) {
    if (s == 0) return {v, v, v};
    const int32_t d = (h * 360) >> 8;
    const int32_t mn = static_cast<int32_t>(DivSmall(static_cast<uint32_t>((255 - s) * v), 255));
    const int32_t k = v - mn;
    if (d <= 60) return {v, mn + k * d / (120 - d), mn};
    if (d <= 120) return {mn + k * (120 - d) / d, v, mn};
    if (d <= 180) return {mn, v, mn + k * (d - 120) / (240 - d)};
    if (d <= 240) return {mn, mn + k * (240 - d) / (d - 120), v};
    if (d <= 300) return {mn + k * (d - 240) / (360 - d), mn, v};
    return {v, mn, mn + k * (360 - d) / (d - 240)};
}

// ---- Ratio-hue HSV, word scale (16-bit channels) ----
//
// hue = (degrees x 65792 + 46260) / 360 truncated, 65792 = 256 x 257: a turn
// is 65792 units and the hue runs from 128 to past 65535 near a full turn.
// The forward conversion is defined in double precision; the integer form
// below is the same number, since a truncation boundary the double result
// could cross lies at least 1 / (360 x 131070) away from any exact value.
constexpr int64_t kWordThird = 7895040;   // 120 x 65792: a third of a turn, in 360ths of a hue unit
constexpr int64_t kWordTurn = 3 * kWordThird;
constexpr int64_t kWordOffset = 46260;    // 180 x 257

inline Hsv WordHsvFromRgb(int32_t r, int32_t g, int32_t b) {
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    if (mx == mn) return {0, 0, mx};
    const RatioParts p = SplitRatio(r, g, b, mn);
    const int64_t rise = p.rise - mn, den = rise + (p.fall - mn);
    const int64_t offset = p.sector * kWordThird + kWordOffset;
    const int64_t h = (rise * kWordThird + offset * den) / (360 * den);
    const int64_t s = static_cast<int64_t>(mx - mn) * 65535 / mx;
    return {static_cast<int32_t>(h), static_cast<int32_t>(s), mx};
}

// Hue units below 128 only arise from rotation; they are the top of the turn.
inline Rgb RgbFromWordHsv(int32_t h, int32_t s, int32_t v) {
    const int64_t k = (static_cast<int64_t>(s) * v + 65534) / 65535; // exact: the step is narrower than 1
    if (k <= 0) return {v, v, v};
    int64_t y = static_cast<int64_t>(h) * 360 - kWordOffset;
    if (h < 128)
        y += kWordTurn;
    else if (y < 0)
        y = 0; // hue 128 covers the first half unit of the turn
    if (y >= kWordTurn) y -= kWordTurn;
    const int64_t sector = y / kWordThird, t = y - sector * kWordThird, mn = v - k;
    int64_t rise, fall;
    UnsplitShare<int64_t>(t, kWordThird, k, mn, v, rise, fall);
    return JoinRatio(static_cast<int32_t>(sector), static_cast<int32_t>(rise), static_cast<int32_t>(fall),
                     static_cast<int32_t>(mn));
}

// ---- Integer HLS, degrees and percent (mode 2 and 18) ----
//
// Saturation divides by max + min while the lightness is at most 128 (8-bit;
// 128 x 257 for words) - not at the true middle 127.5 - and by 2 max - max -
// min above. The hue truncates toward zero, so 0 covers -1..1 degree.

template <class T> inline Hls DegHlsFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<T>;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const int32_t sum = mx + mn, l = sum >> 1, c = mx - mn;
    if (c == 0) return {0, l, 0};
    const uint32_t den = static_cast<uint32_t>(l <= S::kHlsSwitch ? sum : 2 * S::kMax - sum);
    const int32_t s = static_cast<int32_t>(S::Div(static_cast<uint32_t>(c) * S::kPercent, den));
    if (s == 0) return {0, l, 0};
    int32_t diff, base;
    if (mx == r) {
        diff = g - b;
        base = 0;
    } else if (mx == g) {
        diff = b - r;
        base = 2 * S::kSixth;
    } else {
        diff = r - g;
        base = 4 * S::kSixth;
    }
    const uint32_t q = S::Div(static_cast<uint32_t>(diff < 0 ? -diff : diff) * S::kSixth, static_cast<uint32_t>(c));
    int32_t h = base + (diff < 0 ? -static_cast<int32_t>(q) : static_cast<int32_t>(q));
    if (h < 0) h += 6 * S::kSixth;
    return {h, l, s};
}

// Max + min is 2L or 2L + 1 and max - min shares its parity; the chroma is
// known to the step of s, and the hue step depends on the chroma. The odd
// sum is tried first so that full-range colours (max + min = max, odd)
// return exactly; within a sum the least chroma whose hue step is not empty
// is taken. When nothing fits (s or the hue moved to where no colour of this
// lightness lies) the first chroma that gives s, else the nearest chroma.
template <class T> inline Rgb RgbFromDegHls(int32_t h, int32_t l, int32_t s) {
    using S = Scale<T>;
    constexpr uint32_t P = S::kPercent;
    constexpr int32_t W = S::kSixth;
    if (s <= 0) return {l, l, l};
    h %= 6 * W;
    if (h < 0) h += 6 * W;
    // The sector of the maximum, and the signed share t (-W..W) inside it.
    int32_t sector, t;
    if (h <= W || h >= 5 * W) {
        sector = 0;
        t = h <= W ? h : h - 6 * W;
    } else if (h <= 3 * W) {
        sector = 1;
        t = h - 2 * W;
    } else {
        sector = 2;
        t = h - 4 * W;
    }
    const uint32_t at = static_cast<uint32_t>(t < 0 ? -t : t);
    const bool low = l <= S::kHlsSwitch;
    const uint32_t us = static_cast<uint32_t>(s);
    int32_t sum = -1, c = 0, firstSum = -1, firstC = 0;
    for (int32_t odd = 1; odd >= 0 && sum < 0; --odd) {
        const int32_t cand = 2 * l + odd;
        if (cand > 2 * S::kMax) continue;
        const int32_t den = low ? cand : 2 * S::kMax - cand;
        if (den <= 0) continue;
        const uint32_t ud = static_cast<uint32_t>(den);
        uint32_t cc = (us * ud + P - 1) / P;
        if (static_cast<int32_t>(cc & 1) != odd) ++cc;
        uint32_t cmax = ((us + 1) * ud - 1) / P;
        const uint32_t limit = static_cast<uint32_t>(cand <= S::kMax ? cand : 2 * S::kMax - cand);
        if (cmax > limit) cmax = limit;
        for (; cc <= cmax; cc += 2) {
            if (firstSum < 0) {
                firstSum = cand;
                firstC = static_cast<int32_t>(cc);
            }
            const uint32_t d = (at * cc + W - 1) / W;
            if (S::Div(W * d, cc) == at) {
                sum = cand;
                c = static_cast<int32_t>(cc);
                break;
            }
        }
    }
    if (sum < 0 && firstSum >= 0) {
        sum = firstSum;
        c = firstC;
    }
    if (sum < 0) {
        sum = 2 * l;
        const int32_t den = low ? sum : 2 * S::kMax - sum;
        const int32_t limit = sum <= S::kMax ? sum : 2 * S::kMax - sum;
        c = den > 0 ? static_cast<int32_t>((us * static_cast<uint32_t>(den) + P - 1) / P) : 0;
        if (c > limit) c = limit;
        if (c & 1) --c;
        if (c <= 0) return {l, l, l};
    }
    const int32_t mx = (sum + c) >> 1, mn = (sum - c) >> 1;
    const int32_t d = static_cast<int32_t>((at * static_cast<uint32_t>(c) + W - 1) / W); // least difference giving t
    const int32_t up = mn + (d < c ? d : c);
    // Sector 0: red is the maximum, t = W (g - b) / c; 1: green, W (b - r) / c; 2: blue, W (r - g) / c.
    if (sector == 0) return t >= 0 ? Rgb{mx, up, mn} : Rgb{mx, mn, up};
    if (sector == 1) return t >= 0 ? Rgb{mn, mx, up} : Rgb{up, mx, mn};
    return t >= 0 ? Rgb{up, mn, mx} : Rgb{mn, up, mx};
}

// ---- HLS on the channel's own scale (byte scale for 8-bit channels) ----
//
// Hue in M-ths of a turn with sectors of M / 3 (85 for bytes), saturation
// 0..M. For 16-bit channels the same formulas run with M = 65535.

template <class T> inline Hls ScaleHlsFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<T>;
    constexpr int32_t M = S::kMax;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const int32_t sum = mx + mn, l = sum >> 1, c = mx - mn;
    if (c == 0) return {0, l, 0};
    const uint32_t den = static_cast<uint32_t>(sum <= M ? sum : 2 * M - sum);
    const int32_t s = static_cast<int32_t>(S::Div(static_cast<uint32_t>(c) * M, den));
    if (s == 0) return {0, l, 0};
    int32_t diff, base;
    if (mx == r) {
        diff = g - b;
        base = 0;
    } else if (mx == g) {
        diff = b - r;
        base = M / 3;
    } else {
        diff = r - g;
        base = 2 * M / 3;
    }
    const uint32_t ad = static_cast<uint32_t>(diff < 0 ? -diff : diff);
    uint32_t q;
    if constexpr (std::is_same_v<T, uint8_t>)
        q = DivSmall(ad * 85, static_cast<uint32_t>(2 * c)); // x 255 / (6 c), reduced by 3
    else
        q = static_cast<uint32_t>(static_cast<uint64_t>(ad) * M / (6 * static_cast<uint64_t>(c)));
    int32_t h = base + (diff < 0 ? -static_cast<int32_t>(q) : static_cast<int32_t>(q));
    if (h < 0) h += M;
    return {h, l, s};
}

// Products of 16-bit values need 64 bits; bytes stay in 32.
template <class T> using Wide = std::conditional_t<sizeof(T) == 1, int32_t, int64_t>;

template <class T> inline int32_t ScaleHlsChannel(int32_t t, int32_t p, int32_t q) {
    constexpr int32_t M = Scale<T>::kMax;
    if (t >= M + 1) t -= M;
    if (t < 0) t += M;
    Wide<T> v;
    if (t < M / 6)
        v = p + static_cast<Wide<T>>(q - p) * 6 * t / M;
    else if (t < M / 2)
        v = q;
    else if (t < 2 * M / 3)
        v = p + static_cast<Wide<T>>(q - p) * 6 * (2 * M / 3 - t) / M;
    else
        v = p;
    return static_cast<int32_t>(v > M ? M : v);
}

template <class T> inline Rgb RgbFromScaleHls(int32_t h, int32_t l, int32_t s) {
    constexpr int32_t M = Scale<T>::kMax;
    if (s == 0) return {l, l, l};
    Wide<T> q = l < (M + 1) / 2 ? static_cast<Wide<T>>(l) * (s + M) / M : s + l - static_cast<Wide<T>>(s) * l / M;
    if (q > M) q = M;
    const int32_t qi = static_cast<int32_t>(q), p = 2 * l - qi;
    return {ScaleHlsChannel<T>(h + M / 3, p, qi), ScaleHlsChannel<T>(h, p, qi), ScaleHlsChannel<T>(h - M / 3, p, qi)};
}

// ---- The dispatcher ----
//
// Converts pixels [first, last) of a row between working-format colour (blue,
// green, red; T per channel) and the records above. A mode of 27 or more or
// a null row gives -13; modes this library does not implement give -40.
int32_t ConvertColourRow8(int32_t mode, const void *src, void *dst, int32_t first, int32_t last);
int32_t ConvertColourRow16(int32_t mode, const void *src, void *dst, int32_t first, int32_t last);
// One palette entry (blue, green, red, reserved; the reserved byte is kept)
// to or from a record of 8-bit channels.
int32_t ConvertColourPixel(int32_t mode, const void *src, void *dst);

} // namespace rz::colour
