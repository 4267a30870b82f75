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
// ours to choose (degrees and percent for both models, and the word scale)
// it is a true inverse: it returns a colour whose truncated quantities are
// exactly the given ones, taking each quantity at the low end of its
// truncation step. So forward(inverse(x)) == x for every x a forward
// conversion produces (one exception: a degrees-and-percent HSV saturation
// that truncated to 0 comes back grey, so greys survive any hue rotation), a
// round trip errs by at most one step of the scale, and colours whose
// quantities are exact (greys, primaries, secondaries) come back unchanged.
// The byte-scale inverses are fixed formulas and lossy.
//
// Speed: every function is written without branches (selects only) and
// divides in floating point, which is exact here (see Div), so that loops
// over runs of pixels vectorise; the operations' loops are compiled for
// several instruction sets and picked at run time (RZ_VECTOR_CLONES).
#pragma once

#include <cstdint>
#include <type_traits>

#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 11 && defined(__x86_64__) && defined(__linux__)
#define RZ_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define RZ_VECTOR_CLONES
#endif
// The models are inlined into the loops that RZ_VECTOR_CLONES compiles for
// each instruction set; a call left in a loop would stop its vectorisation.
#if defined(__GNUC__)
#define RZ_INLINE __attribute__((always_inline)) inline
#define RZ_INLINE_LAMBDA __attribute__((always_inline))
#else
#define RZ_INLINE inline
#define RZ_INLINE_LAMBDA
#endif

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

// Channel scales. I is wide enough for every product of the scale's
// formulas. Constant divisors are plain integer divisions (multiplications
// once compiled). Div(x, d), for variable divisors, is floor(x / d) for
// x >= 0, d > 0, computed as a
// correctly rounded floating-point quotient: when x + d < 2^p (p = 24 for
// float, 53 for double) the quotient's distance to the next integer, at
// least 1 / d, exceeds half a unit in its last place, so truncating it is
// exact. Byte formulas stay below 2^23, word formulas below 2^45.
template <class T> struct Scale;

template <> struct Scale<uint8_t> {
    using I = int32_t;
    static constexpr int32_t kMax = 255;
    static constexpr int32_t kThird = 120;  // ratio hue: units per third of the circle (degrees)
    static constexpr int32_t kSixth = 60;   // HLS hue: units per sixth (degrees)
    static constexpr int32_t kPercent = 100;
    static constexpr int32_t kHlsSwitch = 128; // HLS: lightness up to here divides by max + min
    // Values of the chroma within one step of a saturation: (max + 1) / 100 rounded up.
    static constexpr int kChromaSteps = 3;
    RZ_INLINE static I Div(I x, I d) { return static_cast<I>(static_cast<float>(x) / static_cast<float>(d)); }
};

template <> struct Scale<uint16_t> {
    using I = int64_t;
    static constexpr int32_t kMax = 65535;
    static constexpr int32_t kThird = 12000; // hundredths of a degree
    static constexpr int32_t kSixth = 6000;
    static constexpr int32_t kPercent = 10000; // hundredths of a percent
    static constexpr int32_t kHlsSwitch = 128 * 257;
    static constexpr int kChromaSteps = 7;
    RZ_INLINE static I Div(I x, I d) { return static_cast<I>(static_cast<double>(x) / static_cast<double>(d)); }
};

template <class T> RZ_INLINE typename Scale<T>::I DivUp(typename Scale<T>::I x, typename Scale<T>::I d) {
    return Scale<T>::Div(x + d - 1, d);
}

template <class V> RZ_INLINE V Min3(V a, V b, V c) {
    const V m = a < b ? a : b;
    return m < c ? m : c;
}
template <class V> RZ_INLINE V Max3(V a, V b, V c) {
    const V m = a > b ? a : b;
    return m > c ? m : c;
}
template <class V> RZ_INLINE V AtLeast1(V d) { return d > V{1} ? d : V{1}; }
// c ? a : b without a branch for the compiler to keep: a select of many
// nested arms becomes a join the vectoriser's if-conversion refuses.
template <class V> RZ_INLINE V Pick(bool c, V a, V b) { return b ^ ((a ^ b) & -static_cast<V>(c)); }

// ---- Ratio-hue HSV: the sector and its two non-minimum channels ----

// Sector 0: blue is the minimum, the hue rises from red to green; 1: red is
// the minimum, green to blue; 2: green is the minimum, blue to red. `rise`
// is the channel the hue rises towards, `fall` the other non-minimum one.
struct RatioParts {
    int32_t sector, rise, fall;
};
RZ_INLINE RatioParts SplitRatio(int32_t r, int32_t g, int32_t b, int32_t mn) {
    const bool s0 = b == mn, s1 = !s0 & (r == mn);
    return {s0 ? 0 : s1 ? 1 : 2, s0 ? g : s1 ? b : r, s0 ? r : s1 ? g : b};
}
RZ_INLINE Rgb JoinRatio(int32_t sector, int32_t rise, int32_t fall, int32_t mn) {
    return {sector == 0 ? fall : sector == 1 ? mn : rise, sector == 0 ? rise : sector == 1 ? fall : mn,
            sector == 0 ? mn : sector == 1 ? rise : fall};
}

// ---- Ratio-hue HSV, degrees and percent (mode 1 and 17) ----

template <class T> RZ_INLINE Hsv DegHsvFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<T>;
    using I = typename S::I;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const RatioParts p = SplitRatio(r, g, b, mn);
    const I rise = p.rise - mn, den = rise + (p.fall - mn);
    const I h = p.sector * S::kThird + S::Div(S::kThird * rise, AtLeast1(den));
    const I s = S::Div(I(mx - mn) * S::kPercent, AtLeast1<I>(mx));
    return {mx == mn ? 0 : static_cast<int32_t>(h), static_cast<int32_t>(s), mx};
}

// The share t of a third (0 <= t < U) at the low end of its truncation step
// for chroma k: up to the middle the rising channel is the least whose share
// reaches t (a ceiling); past it the falling channel is the largest whose
// share still reaches t (a floor). `exact` tells whether the share is t.
template <class T> struct Share {
    typename Scale<T>::I rise, fall, exact; // exact: 0 or 1
};
template <class T>
RZ_INLINE Share<T> ShareAt(typename Scale<T>::I t, typename Scale<T>::I U, typename Scale<T>::I k) {
    using S = Scale<T>;
    using I = typename S::I;
    const bool early = 2 * t <= U;
    const I riseUp = DivUp<T>(t * k, AtLeast1<I>(U - t));
    const I fallDown = S::Div(k * (U - t), AtLeast1(t));
    const I rise = early ? riseUp : k, fall = early ? k : fallDown;
    return {rise, fall, I(S::Div(U * rise, AtLeast1<I>(rise + fall)) == t)};
}

// The chroma k = max - min is known only to the step of s (up to 3 values
// for bytes, 7 for words) and the hue's step depends on k, so the least k
// whose hue step is not empty is taken; when none is (a hue or saturation
// no colour of this value has) the least k gives the nearest colour.
template <class T> RZ_INLINE Rgb RgbFromDegHsv(int32_t h, int32_t s, int32_t v) {
    using S = Scale<T>;
    using I = typename S::I;
    constexpr I P = S::kPercent, U = S::kThird;
    const I kmin0 = (I(s) * v + P - 1) / P;
    const I kmin = kmin0 < v ? kmin0 : I(v);
    const I kmax0 = ((I(s) + 1) * v - 1 + (v == 0)) / P;
    const I kmax = kmax0 < v ? kmax0 : I(v);
    const I hh = I(h) - 3 * U * (I(h) / (3 * U)); // records hold 0..65535
    const I sector = hh / U, t = hh - sector * U;
    Share<T> pick = ShareAt<T>(t, U, kmin);
    I k = kmin, found = pick.exact;
#pragma GCC unroll 8
    for (int j = 1; j < S::kChromaSteps; ++j) {
        const I kj = kmin + j;
        const Share<T> alt = ShareAt<T>(t, U, kj);
        const I take = (1 - found) & I(kj <= kmax) & alt.exact;
        pick.rise = Pick(take != 0, alt.rise, pick.rise);
        pick.fall = Pick(take != 0, alt.fall, pick.fall);
        k = Pick(take != 0, kj, k);
        found |= take;
    }
    const I mn = v - k;
    const Rgb c = JoinRatio(static_cast<int32_t>(sector), static_cast<int32_t>(mn + pick.rise),
                            static_cast<int32_t>(mn + pick.fall), static_cast<int32_t>(mn));
    const bool grey = (s <= 0) | (v <= 0);
    return {grey ? v : c.r, grey ? v : c.g, grey ? v : c.b};
}

// ---- Ratio-hue HSV, byte scale (256ths of a turn; 8-bit channels) ----

RZ_INLINE Hsv ByteHsvFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<uint8_t>;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const RatioParts p = SplitRatio(r, g, b, mn);
    const int32_t rise = p.rise - mn, den = rise + (p.fall - mn);
    // 30720 = 120 x 256; the sector bases (0, 120 and 240 x 256) each carry
    // +180 so that the division by 360 rounds to the nearest step.
    const int32_t base = p.sector == 0 ? 180 : p.sector == 1 ? 30900 : 61620;
    const int32_t h = (S::Div(30720 * rise, AtLeast1(den)) + base) / 360;
    const int32_t s = S::Div((mx - mn) * 255, AtLeast1(mx));
    return {mx == mn ? 0 : h, s, mx};
}

// The fixed inverse of the byte scale (lossy): the hue back in whole
// degrees d = 360 h / 256; in each third (u = d - 120 x third, 0..120) the
// first channel is the maximum up to the middle and the second after it,
// the other taking k x u / (120 - u) or k x (120 - u) / u above the minimum.
RZ_INLINE Rgb RgbFromByteHsv(int32_t h, int32_t s, int32_t v) {
    using S = Scale<uint8_t>;
    const int32_t d = (h * 360) >> 8;
    const int32_t mn = (255 - s) * v / 255, k = v - mn;
    const int32_t third = d <= 120 ? 0 : d <= 240 ? 1 : 2;
    const int32_t u = d - 120 * third;
    const bool early = u <= 60;
    const int32_t mid = mn + S::Div(k * (early ? u : 120 - u), AtLeast1(early ? 120 - u : u));
    const int32_t first = early ? v : mid, second = early ? mid : v;
    const Rgb c{third == 0 ? first : third == 1 ? mn : second, third == 0 ? second : third == 1 ? first : mn,
                third == 0 ? mn : third == 1 ? second : first};
    const bool grey = s == 0;
    return {grey ? v : c.r, grey ? v : c.g, grey ? v : c.b};
}

// ---- Ratio-hue HSV, word scale (16-bit channels) ----
//
// hue = (degrees x 65792 + 46260) / 360 truncated, 65792 = 256 x 257: a turn
// is 65792 units and the hue runs from 128 to past 65535 near a full turn.
// The forward conversion is stated in double precision and computed so.
constexpr int64_t kWordThird = 7895040;   // 120 x 65792: a third of a turn, in 360ths of a hue unit
constexpr int64_t kWordTurn = 3 * kWordThird;
constexpr int64_t kWordOffset = 46260;    // 180 x 257

RZ_INLINE Hsv WordHsvFromRgb(int32_t r, int32_t g, int32_t b) {
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const RatioParts p = SplitRatio(r, g, b, mn);
    const double rise = p.rise - mn, den = rise + (p.fall - mn);
    const double offset = static_cast<double>(p.sector * kWordThird + kWordOffset);
    const int32_t h = static_cast<int32_t>((rise * static_cast<double>(kWordThird) / (den > 0 ? den : 1) + offset) / 360);
    const int32_t s = static_cast<int32_t>((mx - mn) * 65535.0 / (mx > 0 ? mx : 1));
    return {mx == mn ? 0 : h, s, mx};
}

// The chroma is exact on this scale (a saturation step is narrower than
// one level). Hue units below 128 only arise from rotation; they lie at the
// top of the turn.
RZ_INLINE Rgb RgbFromWordHsv(int32_t h, int32_t s, int32_t v) {
    using I = int64_t;
    const I k = (I(s) * v + 65534) / 65535;
    I y = I(h) * 360 - kWordOffset;
    y = h < 128 ? y + kWordTurn : y < 0 ? 0 : y; // hue 128 covers the first half unit of the turn
    y = y >= kWordTurn ? y - kWordTurn : y;
    const I sector = y / kWordThird, t = y - sector * kWordThird, mn = v - k;
    const Share<uint16_t> share = ShareAt<uint16_t>(t, kWordThird, k);
    const Rgb c = JoinRatio(static_cast<int32_t>(sector), static_cast<int32_t>(mn + share.rise),
                            static_cast<int32_t>(mn + share.fall), static_cast<int32_t>(mn));
    const bool grey = k <= 0;
    return {grey ? v : c.r, grey ? v : c.g, grey ? v : c.b};
}

// ---- Integer HLS, degrees and percent (mode 2 and 18) ----
//
// Saturation divides by max + min while the lightness is at most 128 (8-bit;
// 128 x 257 for words) - not at the true middle 127.5 - and by 2 max - max -
// min above. The hue truncates toward zero, so 0 covers -1..1 degree.

template <class T> RZ_INLINE Hls DegHlsFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<T>;
    using I = typename S::I;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const int32_t sum = mx + mn, l = sum >> 1, c = mx - mn;
    const I den = l <= S::kHlsSwitch ? sum : 2 * S::kMax - sum;
    const I s = S::Div(I(c) * S::kPercent, AtLeast1(den));
    const bool redMax = mx == r, greenMax = !redMax & (mx == g);
    const int32_t diff = redMax ? g - b : greenMax ? b - r : r - g;
    const int32_t base = redMax ? 0 : greenMax ? 2 * S::kSixth : 4 * S::kSixth;
    const I q = S::Div(I(diff < 0 ? -diff : diff) * S::kSixth, AtLeast1(c));
    int32_t h = base + static_cast<int32_t>(diff < 0 ? -q : q);
    h = h < 0 ? h + 6 * S::kSixth : h;
    return {s == 0 ? 0 : h, l, static_cast<int32_t>(s)};
}

// Max + min is 2L or 2L + 1 and max - min shares its parity; the chroma is
// known to the step of s, and the hue step depends on the chroma. The odd
// sum is tried first so that full-range colours (max + min = max, odd)
// return exactly; within a sum the least chroma whose hue step is not empty
// is taken. When nothing fits (s or the hue moved to where no colour of this
// lightness lies) the first chroma that gives s, else the nearest chroma.
template <class T> RZ_INLINE Rgb RgbFromDegHls(int32_t h, int32_t l, int32_t s) {
    using S = Scale<T>;
    using I = typename S::I;
    constexpr I P = S::kPercent, W = S::kSixth, M = S::kMax;
    const I hh = I(h) - 6 * W * (I(h) / (6 * W)); // records hold 0..65535
    // The sector of the maximum (0 red, 1 green, 2 blue) and the signed
    // share t (-W..W) inside it; |t| as the least difference giving it.
    const bool red = (hh <= W) | (hh >= 5 * W), green = !red & (hh <= 3 * W);
    const I t = Pick(red, Pick(hh <= W, hh, hh - 6 * W), Pick(green, hh - 2 * W, hh - 4 * W));
    const I at = t < 0 ? -t : t;
    const bool low = l <= S::kHlsSwitch;

    // Flags are integers 0 or 1 rather than bools carried from step to step,
    // which the vectoriser cannot follow.
    I sum = 0, c = 0, found = 0, firstSum = 0, firstC = 0, haveFirst = 0;
#pragma GCC unroll 2
    for (int odd = 1; odd >= 0; --odd) {
        const I cand = 2 * I(l) + odd;
        const I rawDen = low ? cand : 2 * M - cand, den = AtLeast1(rawDen);
        const I limit = cand <= M ? cand : 2 * M - cand;
        const I usable = I(cand <= 2 * M) & I(rawDen > 0);
        I cc = (I(s) * den + P - 1) / P;
        cc += I((cc & 1) != odd);
#pragma GCC unroll 4
        for (int j = 0; j < S::kChromaSteps; j += 2, cc += 2) {
            const I gives = usable & I(cc <= limit) & I(S::Div(cc * P, den) == s);
            const I first = gives & (1 - haveFirst);
            firstSum = Pick(first != 0, cand, firstSum);
            firstC = Pick(first != 0, cc, firstC);
            haveFirst |= first;
            const I d = (at * cc + W - 1) / W;
            const I take = gives & (1 - found) & I(S::Div(W * d, AtLeast1(cc)) == at);
            sum = Pick(take != 0, cand, sum);
            c = Pick(take != 0, cc, c);
            found |= take;
        }
    }
    // Nothing fits: the first chroma that gives s, else the even sum 2L with
    // the nearest chroma it can carry.
    const I evenDen = low ? 2 * I(l) : 2 * M - 2 * I(l);
    const I evenLimit = 2 * I(l) <= M ? 2 * I(l) : 2 * M - 2 * I(l);
    I nearest = (I(s) * evenDen + P - 1) / P;
    nearest = nearest > evenLimit ? evenLimit : nearest;
    nearest -= nearest & 1;
    sum = Pick(found != 0, sum, Pick(haveFirst != 0, firstSum, 2 * I(l)));
    c = Pick(found != 0, c, Pick(haveFirst != 0, firstC, nearest));

    const I mx = (sum + c) >> 1, mn = (sum - c) >> 1;
    const I d = (at * c + W - 1) / W;
    const I up = mn + (d < c ? d : c);
    // Red maximum: t = W (g - b) / c; green: W (b - r) / c; blue: W (r - g) / c.
    // With a the channel after the maximum in that order and b the one
    // before it, the difference goes to a when t is positive.
    const bool pos = t >= 0;
    const I after = Pick(pos, up, mn), before = Pick(pos, mn, up);
    const I r = Pick(red, mx, Pick(green, before, after));
    const I g = Pick(red, after, Pick(green, mx, before));
    const I b = Pick(red, before, Pick(green, after, mx));
    const bool grey = (s <= 0) | (c <= 0);
    return {static_cast<int32_t>(Pick(grey, I(l), r)), static_cast<int32_t>(Pick(grey, I(l), g)),
            static_cast<int32_t>(Pick(grey, I(l), b))};
}

// ---- HLS on the channel's own scale (byte scale for 8-bit channels) ----
//
// Hue in M-ths of a turn with sectors of M / 3 (85 for bytes), saturation
// 0..M. For 16-bit channels the same formulas run with M = 65535.

template <class T> RZ_INLINE Hls ScaleHlsFromRgb(int32_t r, int32_t g, int32_t b) {
    using S = Scale<T>;
    using I = typename S::I;
    constexpr I M = S::kMax;
    const int32_t mn = Min3(r, g, b), mx = Max3(r, g, b);
    const int32_t sum = mx + mn, l = sum >> 1, c = mx - mn;
    const I s = S::Div(I(c) * M, AtLeast1<I>(sum <= M ? sum : 2 * M - sum));
    const bool redMax = mx == r, greenMax = !redMax & (mx == g);
    const int32_t diff = redMax ? g - b : greenMax ? b - r : r - g;
    const I base = redMax ? 0 : greenMax ? M / 3 : 2 * M / 3;
    // x M / (6 c): for bytes 255 / 6 = 85 / 2 keeps the numerator small.
    const I ad = diff < 0 ? -diff : diff;
    I q;
    if constexpr (std::is_same_v<T, uint8_t>)
        q = S::Div(ad * 85, AtLeast1<I>(2 * c));
    else
        q = S::Div(ad * M, AtLeast1<I>(6 * c));
    I h = base + (diff < 0 ? -q : q);
    h = h < 0 ? h + M : h;
    return {s == 0 ? 0 : static_cast<int32_t>(h), l, static_cast<int32_t>(s)};
}

// One channel at hue position t: rising over the first sixth, the top up
// to the half, falling to two thirds, the bottom after; capped at M (the
// fall starts slightly above the top, as the integer sixths fall).
template <class T> RZ_INLINE int32_t ScaleHlsChannel(typename Scale<T>::I t, typename Scale<T>::I p,
                                                  typename Scale<T>::I q) {
    using S = Scale<T>;
    using I = typename S::I;
    constexpr I M = S::kMax;
    t = t >= M + 1 ? t - M : t;
    t = t < 0 ? t + M : t;
    const I w = t < M / 6 ? 6 * t : t < M / 2 ? M : t < 2 * M / 3 ? 6 * (2 * M / 3 - t) : 0;
    const I v = p + (q - p) * w / M;
    return static_cast<int32_t>(v > M ? M : v);
}

template <class T> RZ_INLINE Rgb RgbFromScaleHls(int32_t h, int32_t l, int32_t s) {
    using S = Scale<T>;
    using I = typename S::I;
    constexpr I M = S::kMax;
    I q = l < (M + 1) / 2 ? I(l) * (s + M) / M : s + l - I(s) * l / M;
    q = q > M ? M : q;
    const I p = 2 * I(l) - q;
    const Rgb c{ScaleHlsChannel<T>(h + M / 3, p, q), ScaleHlsChannel<T>(h, p, q), ScaleHlsChannel<T>(h - M / 3, p, q)};
    const bool grey = s == 0;
    return {grey ? l : c.r, grey ? l : c.g, grey ? l : c.b};
}

// ---- Runs of pixels ----
//
// A run of working pixels (blue, green, red) is split into blocks whose
// channels are spread into separate arrays; f(r, g, b, count, offset)
// changes the arrays in place with one loop the compiler can vectorise, and
// the block is put back.

constexpr int32_t kBlock = 256;

template <class T, class F> RZ_INLINE void ForEachBlock(T *px, int32_t n, F &&f) {
    int32_t r[kBlock], g[kBlock], b[kBlock];
    for (int32_t start = 0; start < n; start += kBlock) {
        const int32_t m = n - start < kBlock ? n - start : kBlock;
        T *p = px + 3 * start;
        for (int32_t i = 0; i < m; ++i) {
            b[i] = p[3 * i];
            g[i] = p[3 * i + 1];
            r[i] = p[3 * i + 2];
        }
        f(r, g, b, m, start);
        for (int32_t i = 0; i < m; ++i) {
            p[3 * i] = static_cast<T>(b[i]);
            p[3 * i + 1] = static_cast<T>(g[i]);
            p[3 * i + 2] = static_cast<T>(r[i]);
        }
    }
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
