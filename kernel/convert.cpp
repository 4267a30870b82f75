// Row conversion between stored layouts and the working formats, and the
// way back from a working row to palette indices.
//
// Each conversion is one loop instantiated for its (stored layout, working
// format, direction). A stored reader or writer and a working reader or
// writer meet in a small pixel value (grey or colour, 8 or 16 bits); the
// value conversions between those four kinds are inline, so every pair folds
// into straight-line code. Packed 1..8-bit samples go through a per-call
// table indexed by the sample (palette colours, scaled grey, requantised
// grey), so palettes cost nothing per pixel. Palette matching answers from
// an open-addressed table seeded with the palette's own colours and grown
// with the results of full searches, so rows with few colours rarely search.
#include <rzkrn.h>

#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

// ---- Pixel values and the conversions between them. ----

struct Grey8 {
    uint8_t v;
};
struct Grey16 {
    uint16_t v;
};
struct Rgb8 {
    uint8_t r, g, b;
};
struct Rgb16 {
    uint16_t r, g, b;
};

template <class P>
constexpr bool kIsGrey = std::is_same_v<P, Grey8> || std::is_same_v<P, Grey16>;
template <class P>
constexpr bool kIsWide = std::is_same_v<P, Grey16> || std::is_same_v<P, Rgb16>;
template <class P>
using SampleOf = std::conditional_t<kIsWide<P>, uint16_t, uint8_t>;

// At 16 bits the weighted sum stays below 2^25, so 32 bits are exact.
inline uint32_t GreyOf(uint32_t r, uint32_t g, uint32_t b) { return (r * 77 + g * 150 + b * 29 + 128) >> 8; }

template <bool FromWide, bool ToWide>
inline uint32_t Rescale(uint32_t v) {
    if constexpr (FromWide == ToWide)
        return v;
    else if constexpr (FromWide)
        return v >> 8;
    else
        return v * 257;
}

// Grey is taken at the source's own precision, then widened or narrowed.
template <class To, class From>
inline To Convert(From p) {
    using S = SampleOf<To>;
    constexpr bool fw = kIsWide<From>, tw = kIsWide<To>;
    if constexpr (std::is_same_v<To, From>) {
        return p;
    } else if constexpr (kIsGrey<To>) {
        uint32_t g;
        if constexpr (kIsGrey<From>)
            g = p.v;
        else
            g = GreyOf(p.r, p.g, p.b);
        return To{static_cast<S>(Rescale<fw, tw>(g))};
    } else if constexpr (kIsGrey<From>) {
        const S v = static_cast<S>(Rescale<fw, tw>(p.v));
        return To{v, v, v};
    } else {
        return To{static_cast<S>(Rescale<fw, tw>(p.r)), static_cast<S>(Rescale<fw, tw>(p.g)),
                  static_cast<S>(Rescale<fw, tw>(p.b))};
    }
}

// Stored words are little-endian; working words are native.
inline uint16_t LoadLE16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
inline void StoreLE16(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline uint16_t LoadNative16(const uint8_t *p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}
inline void StoreNative16(uint8_t *p, uint16_t v) { std::memcpy(p, &v, 2); }

// ---- Working formats. ----

struct Work0 {
    using Pixel = Grey8;
    static constexpr size_t kBytes = 1;
    static Pixel Load(const uint8_t *row, size_t i) { return {row[i]}; }
    static void Store(uint8_t *row, size_t i, Pixel p) { row[i] = p.v; }
};
struct Work16 {
    using Pixel = Grey16;
    static constexpr size_t kBytes = 2;
    static Pixel Load(const uint8_t *row, size_t i) { return {LoadNative16(row + 2 * i)}; }
    static void Store(uint8_t *row, size_t i, Pixel p) { StoreNative16(row + 2 * i, p.v); }
};
struct Work24 {
    using Pixel = Rgb8;
    static constexpr size_t kBytes = 3;
    static Pixel Load(const uint8_t *row, size_t i) {
        const uint8_t *p = row + 3 * i;
        return {p[2], p[1], p[0]};
    }
    static void Store(uint8_t *row, size_t i, Pixel v) {
        uint8_t *p = row + 3 * i;
        p[0] = v.b;
        p[1] = v.g;
        p[2] = v.r;
    }
};
struct Work48 {
    using Pixel = Rgb16;
    static constexpr size_t kBytes = 6;
    static Pixel Load(const uint8_t *row, size_t i) {
        const uint8_t *p = row + 6 * i;
        return {LoadNative16(p + 4), LoadNative16(p + 2), LoadNative16(p)};
    }
    static void Store(uint8_t *row, size_t i, Pixel v) {
        uint8_t *p = row + 6 * i;
        StoreNative16(p, v.b);
        StoreNative16(p + 2, v.g);
        StoreNative16(p + 4, v.r);
    }
};

template <class F>
int32_t WithWork(int32_t workBits, F &&f) {
    switch (workBits) {
    case 0: return f(Work0{});
    case 16: return f(Work16{});
    case 24: return f(Work24{});
    case 48: return f(Work48{});
    default: return KRN_INVALID_PARAMETER;
    }
}

// ---- Colour layouts: 24, 32, 48, 64 bits. ----

// The fourth channel is neither read nor written: a caller holding the stored
// row in the destination keeps it.
template <bool Wide, int Channels, bool RedFirst>
struct StoredColour {
    using Pixel = std::conditional_t<Wide, Rgb16, Rgb8>;
    static constexpr size_t kSample = Wide ? 2 : 1;
    static constexpr size_t kStep = kSample * Channels;
    static constexpr size_t kR = (RedFirst ? 0 : 2) * kSample;
    static constexpr size_t kG = kSample;
    static constexpr size_t kB = (RedFirst ? 2 : 0) * kSample;
    static Pixel Load(const uint8_t *row, size_t i) {
        const uint8_t *p = row + kStep * i;
        if constexpr (Wide)
            return {LoadLE16(p + kR), LoadLE16(p + kG), LoadLE16(p + kB)};
        else
            return {p[kR], p[kG], p[kB]};
    }
    static void Store(uint8_t *row, size_t i, Pixel v) {
        uint8_t *p = row + kStep * i;
        if constexpr (Wide) {
            StoreLE16(p + kR, v.r);
            StoreLE16(p + kG, v.g);
            StoreLE16(p + kB, v.b);
        } else {
            p[kR] = v.r;
            p[kG] = v.g;
            p[kB] = v.b;
        }
    }
};

// Stored and working bytes are the same (BGR rows in their own precision).
template <class S, class W>
constexpr bool kSameBytes = S::kStep == W::kBytes && S::kB == 0 &&
                            std::is_same_v<typename S::Pixel, typename W::Pixel> &&
                            (S::kSample == 1 || std::endian::native == std::endian::little);

template <class S, class W>
void ColourToWork(const uint8_t *__restrict src, uint8_t *__restrict dst, size_t n) {
    if constexpr (kSameBytes<S, W>) {
        std::memcpy(dst, src, n * W::kBytes);
    } else {
        for (size_t i = 0; i < n; ++i) W::Store(dst, i, Convert<typename W::Pixel>(S::Load(src, i)));
    }
}

template <class S, class W>
void WorkToColour(const uint8_t *__restrict src, uint8_t *__restrict dst, size_t n) {
    if constexpr (kSameBytes<S, W>) {
        std::memcpy(dst, src, n * W::kBytes);
    } else {
        for (size_t i = 0; i < n; ++i) S::Store(dst, i, Convert<typename S::Pixel>(W::Load(src, i)));
    }
}

template <bool Wide, int Channels>
int32_t ConvertColour(const uint8_t *src, uint8_t *dst, size_t n, int32_t workBits, int32_t order, bool toWork) {
    auto run = [&](auto stored) {
        using S = decltype(stored);
        return WithWork(workBits, [&](auto work) {
            using W = decltype(work);
            if (toWork)
                ColourToWork<S, W>(src, dst, n);
            else
                WorkToColour<S, W>(src, dst, n);
            return KRN_OK;
        });
    };
    if (order == KRN_ORDER_RGB) return run(StoredColour<Wide, Channels, true>{});
    if (order == KRN_ORDER_BGR) return run(StoredColour<Wide, Channels, false>{});
    return KRN_INVALID_PARAMETER;
}

// ---- Packed 1..8-bit samples. ----

// Eight samples of Bits bits fill exactly Bits bytes, so rows are walked in
// groups of eight through a big-endian accumulator.
template <int Bits, class Emit>
inline void UnpackSamples(const uint8_t *src, size_t n, Emit emit) {
    if constexpr (Bits == 8) {
        for (size_t i = 0; i < n; ++i) emit(i, src[i]);
    } else {
        constexpr uint32_t mask = (1u << Bits) - 1;
        const size_t groups = n / 8;
        for (size_t g = 0; g < groups; ++g, src += Bits) {
            uint64_t acc = 0;
            for (int k = 0; k < Bits; ++k) acc = acc << 8 | src[k];
            for (int k = 0; k < 8; ++k)
                emit(g * 8 + k, static_cast<uint32_t>(acc >> (Bits * (7 - k))) & mask);
        }
        const size_t rest = n % 8;
        if (rest) {
            const size_t bytes = (rest * Bits + 7) / 8;
            uint64_t acc = 0;
            for (size_t k = 0; k < static_cast<size_t>(Bits); ++k) acc = acc << 8 | (k < bytes ? src[k] : 0u);
            for (size_t k = 0; k < rest; ++k)
                emit(groups * 8 + k, static_cast<uint32_t>(acc >> (Bits * (7 - k))) & mask);
        }
    }
}

// Bits of the last byte past the row's end are written 0.
template <int Bits, class Get>
inline void PackSamples(uint8_t *dst, size_t n, Get get) {
    if constexpr (Bits == 8) {
        for (size_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(get(i));
    } else {
        constexpr uint32_t mask = (1u << Bits) - 1;
        const size_t groups = n / 8;
        for (size_t g = 0; g < groups; ++g, dst += Bits) {
            uint64_t acc = 0;
            for (int k = 0; k < 8; ++k) acc = acc << Bits | (get(g * 8 + k) & mask);
            for (int k = Bits - 1; k >= 0; --k, acc >>= 8) dst[k] = static_cast<uint8_t>(acc);
        }
        const size_t rest = n % 8;
        if (rest) {
            uint64_t acc = 0;
            for (size_t k = 0; k < 8; ++k) acc = acc << Bits | (k < rest ? get(groups * 8 + k) & mask : 0u);
            const size_t bytes = (rest * Bits + 7) / 8;
            for (size_t k = 0; k < bytes; ++k) dst[k] = static_cast<uint8_t>(acc >> (8 * (Bits - 1 - k)));
        }
    }
}

// Grey sample of 1..8 bits to 8 bits, rounded; the quotient is never a tie
// because 2^bits - 1 is odd.
inline uint32_t ScaleUp(uint32_t v, uint32_t max) { return (v * 255 + max / 2) / max; }
// 8 bits back to 1..8 bits, rounded (again never a tie); exact on ScaleUp's values.
inline uint32_t ScaleDown(uint32_t g, uint32_t max) { return (g * max + 127) / 255; }

template <int Bits, class W>
void PackedToWork(const uint8_t *__restrict src, uint8_t *__restrict dst, size_t n, const RzRGBQuad *palette,
                  bool greySamples, bool raw) {
    using P = typename W::Pixel;
    if constexpr (Bits == 8 && std::is_same_v<W, Work0>) {
        if (raw || greySamples) {
            std::memcpy(dst, src, n);
            return;
        }
    }
    constexpr uint32_t entries = 1u << Bits;
    constexpr uint32_t max = entries - 1;
    P lut[entries];
    for (uint32_t s = 0; s < entries; ++s) {
        if (raw)
            lut[s] = Convert<P>(Grey8{static_cast<uint8_t>(s)});
        else if (greySamples)
            lut[s] = Convert<P>(Grey8{static_cast<uint8_t>(ScaleUp(s, max))});
        else
            lut[s] = Convert<P>(Rgb8{palette[s].rgbRed, palette[s].rgbGreen, palette[s].rgbBlue});
    }
    UnpackSamples<Bits>(src, n, [&](size_t i, uint32_t s) { W::Store(dst, i, lut[s]); });
}

// quant maps an 8-bit grey (or a raw byte) to the stored sample.
template <int Bits, class W>
void WorkToPacked(const uint8_t *__restrict src, uint8_t *__restrict dst, size_t n, const uint8_t *quant) {
    PackSamples<Bits>(dst, n, [&](size_t i) -> uint32_t { return quant[Convert<Grey8>(W::Load(src, i)).v]; });
}

template <int Bits>
int32_t ConvertPackedBits(const uint8_t *src, uint8_t *dst, size_t n, int32_t workBits, int32_t order,
                          const RzRGBQuad *palette, bool toWork, bool raw) {
    const bool greySamples = order == KRN_ORDER_GRAY;
    if (raw && workBits != 0) return KRN_INVALID_PARAMETER;
    if (!raw && !greySamples && (!toWork || !palette)) return KRN_INVALID_PARAMETER;
    return WithWork(workBits, [&](auto work) {
        using W = decltype(work);
        if (toWork) {
            PackedToWork<Bits, W>(src, dst, n, palette, greySamples, raw);
            return KRN_OK;
        }
        constexpr uint32_t max = (1u << Bits) - 1;
        uint8_t quant[256];
        for (uint32_t g = 0; g < 256; ++g)
            quant[g] = static_cast<uint8_t>(raw ? (g & max) : ScaleDown(g, max));
        if constexpr (Bits == 8 && std::is_same_v<W, Work0>) {
            std::memcpy(dst, src, n); // both quantisations are the identity
        } else {
            WorkToPacked<Bits, W>(src, dst, n, quant);
        }
        return KRN_OK;
    });
}

int32_t ConvertPacked(const uint8_t *src, uint8_t *dst, size_t n, int32_t bits, int32_t workBits, int32_t order,
                      const RzRGBQuad *palette, bool toWork, bool raw) {
    switch (bits) {
    case 1: return ConvertPackedBits<1>(src, dst, n, workBits, order, palette, toWork, raw);
    case 2: return ConvertPackedBits<2>(src, dst, n, workBits, order, palette, toWork, raw);
    case 3: return ConvertPackedBits<3>(src, dst, n, workBits, order, palette, toWork, raw);
    case 4: return ConvertPackedBits<4>(src, dst, n, workBits, order, palette, toWork, raw);
    case 5: return ConvertPackedBits<5>(src, dst, n, workBits, order, palette, toWork, raw);
    case 6: return ConvertPackedBits<6>(src, dst, n, workBits, order, palette, toWork, raw);
    case 7: return ConvertPackedBits<7>(src, dst, n, workBits, order, palette, toWork, raw);
    default: return ConvertPackedBits<8>(src, dst, n, workBits, order, palette, toWork, raw);
    }
}

// ---- 12 and 16-bit grey. ----

template <int Bits, class Emit>
inline void UnpackDeep(const uint8_t *src, size_t n, Emit emit) {
    if constexpr (Bits == 16) {
        for (size_t i = 0; i < n; ++i) emit(i, LoadLE16(src + 2 * i));
    } else {
        const size_t pairs = n / 2;
        for (size_t k = 0; k < pairs; ++k, src += 3) {
            emit(2 * k, static_cast<uint32_t>(src[0] | (src[1] & 0x0F) << 8));
            emit(2 * k + 1, static_cast<uint32_t>(src[1] >> 4 | src[2] << 4));
        }
        if (n & 1) emit(n - 1, static_cast<uint32_t>(src[0] | (src[1] & 0x0F) << 8));
    }
}

// The high nibble of a 12-bit row's odd last byte is written 0.
template <int Bits, class Get>
inline void PackDeep(uint8_t *dst, size_t n, Get get) {
    if constexpr (Bits == 16) {
        for (size_t i = 0; i < n; ++i) StoreLE16(dst + 2 * i, get(i));
    } else {
        const size_t pairs = n / 2;
        for (size_t k = 0; k < pairs; ++k, dst += 3) {
            const uint32_t a = get(2 * k) & 0xFFF, b = get(2 * k + 1) & 0xFFF;
            dst[0] = static_cast<uint8_t>(a);
            dst[1] = static_cast<uint8_t>(a >> 8 | b << 4);
            dst[2] = static_cast<uint8_t>(b >> 4);
        }
        if (n & 1) {
            const uint32_t a = get(n - 1) & 0xFFF;
            dst[0] = static_cast<uint8_t>(a);
            dst[1] = static_cast<uint8_t>(a >> 8);
        }
    }
}

struct BitRange {
    uint32_t low, mask, up; // up = 16 - count
};

template <int Bits, class W>
void DeepToWork(const uint8_t *__restrict src, uint8_t *__restrict dst, size_t n, BitRange r) {
    if constexpr (Bits == 16 && std::is_same_v<W, Work16> && std::endian::native == std::endian::little) {
        if (r.low == 0 && r.up == 0) {
            std::memcpy(dst, src, 2 * n);
            return;
        }
    }
    UnpackDeep<Bits>(src, n, [&](size_t i, uint32_t s) {
        const Grey16 w{static_cast<uint16_t>(((s >> r.low) & r.mask) << r.up)};
        W::Store(dst, i, Convert<typename W::Pixel>(w));
    });
}

template <int Bits, class W>
void WorkToDeep(const uint8_t *__restrict src, uint8_t *__restrict dst, size_t n, BitRange r) {
    PackDeep<Bits>(dst, n, [&](size_t i) -> uint32_t {
        return static_cast<uint32_t>(Convert<Grey16>(W::Load(src, i)).v >> r.up) << r.low;
    });
}

template <int Bits>
int32_t ConvertDeepBits(const uint8_t *src, uint8_t *dst, size_t n, int32_t workBits, bool toWork, bool raw,
                        int32_t lowBit, int32_t highBit) {
    if (raw) {
        // The words themselves: no range, only the working format that holds them.
        if (workBits != 16) return KRN_INVALID_PARAMETER;
        if (toWork)
            UnpackDeep<Bits>(src, n, [&](size_t i, uint32_t s) { Work16::Store(dst, i, {static_cast<uint16_t>(s)}); });
        else
            PackDeep<Bits>(dst, n, [&](size_t i) -> uint32_t { return Work16::Load(src, i).v; });
        return KRN_OK;
    }
    uint32_t count = 0, mask = 0, shift = 0;
    const int32_t st = KrnGetBitRange(Bits, Bits, lowBit, highBit, &count, &mask, &shift);
    if (st != KRN_OK) return st;
    const BitRange r{shift, mask, 16 - count};
    return WithWork(workBits, [&](auto work) {
        using W = decltype(work);
        if (toWork)
            DeepToWork<Bits, W>(src, dst, n, r);
        else
            WorkToDeep<Bits, W>(src, dst, n, r);
        return KRN_OK;
    });
}

// ---- Palette matching. ----

class PaletteSearch {
public:
    PaletteSearch(const RzRGBQuad *palette, int32_t count) : n_(count) {
        for (int32_t k = 0; k < count; ++k) {
            r_[k] = palette[k].rgbRed;
            g_[k] = palette[k].rgbGreen;
            b_[k] = palette[k].rgbBlue;
        }
    }
    // Distance in the high bits and the index in the low byte: the minimum
    // is the nearest entry with the lowest index, and the loop vectorises.
    uint8_t Nearest(int32_t r, int32_t g, int32_t b) const {
        uint32_t best = UINT32_MAX;
        for (int32_t k = 0; k < n_; ++k) {
            const int32_t dr = r_[k] - r, dg = g_[k] - g, db = b_[k] - b;
            const uint32_t key = static_cast<uint32_t>(dr * dr + dg * dg + db * db) << 8 | static_cast<uint32_t>(k);
            best = key < best ? key : best;
        }
        return static_cast<uint8_t>(best);
    }
    int32_t Count() const { return n_; }
    uint32_t Colour(int32_t k) const {
        return static_cast<uint32_t>(r_[k]) << 16 | static_cast<uint32_t>(g_[k]) << 8 | static_cast<uint32_t>(b_[k]);
    }

private:
    int32_t n_;
    int32_t r_[256], g_[256], b_[256];
};

// Colour (0xRRGGBB) to index, linear probing; filled to half at most.
class ColourTable {
public:
    ColourTable() { std::memset(keys_, 0xFF, sizeof keys_); }
    bool Find(uint32_t c, uint8_t *index) const {
        for (uint32_t s = Slot(c);; s = (s + 1) & (kSize - 1)) {
            if (keys_[s] == c) {
                *index = values_[s];
                return true;
            }
            if (keys_[s] == kEmpty) return false;
        }
    }
    // Keeps the first index given for a colour.
    void Insert(uint32_t c, uint8_t index) {
        if (used_ >= kSize / 2) return;
        uint32_t s = Slot(c);
        while (keys_[s] != kEmpty) {
            if (keys_[s] == c) return;
            s = (s + 1) & (kSize - 1);
        }
        keys_[s] = c;
        values_[s] = index;
        ++used_;
    }

private:
    static constexpr uint32_t kBits = 11, kSize = 1u << kBits, kEmpty = UINT32_MAX;
    static uint32_t Slot(uint32_t c) { return (c * 0x9E3779B1u) >> (32 - kBits); }
    uint32_t keys_[kSize];
    uint8_t values_[kSize];
    uint32_t used_ = 0;
};

void MatchGrey(const PaletteSearch &pal, const uint8_t *work, uint8_t *indices, size_t n) {
    int16_t known[256];
    std::memset(known, 0xFF, sizeof known);
    for (size_t i = 0; i < n; ++i) {
        const uint8_t g = work[i];
        if (known[g] < 0) known[g] = pal.Nearest(g, g, g);
        indices[i] = static_cast<uint8_t>(known[g]);
    }
}

// indices may be work itself: pixel i is read before byte i is written, and
// byte i never lies in a later pixel.
void MatchColour(const PaletteSearch &pal, const uint8_t *work, uint8_t *indices, size_t n) {
    ColourTable table;
    for (int32_t k = 0; k < pal.Count(); ++k) table.Insert(pal.Colour(k), static_cast<uint8_t>(k));
    uint32_t last = UINT32_MAX;
    uint8_t lastIndex = 0;
    for (size_t i = 0; i < n; ++i) {
        const uint8_t *p = work + 3 * i;
        const uint32_t c = static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[0];
        if (c != last) {
            if (!table.Find(c, &lastIndex)) {
                lastIndex = pal.Nearest(p[2], p[1], p[0]);
                table.Insert(c, lastIndex);
            }
            last = c;
        }
        indices[i] = lastIndex;
    }
}

bool IsKnownDepth(int32_t bits) {
    return (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 ||
           bits == 64;
}

uint64_t WorkPixelBytes(int32_t workBits) {
    switch (workBits) {
    case 0: return 1;
    case 16: return 2;
    case 24: return 3;
    case 48: return 6;
    default: return 0;
    }
}

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnGetBitRange(int32_t nBitsPerPixel, int32_t nStorageBits, int32_t nLowBit,
                                       int32_t nHighBit, uint32_t *pCount, uint32_t *pMask, uint32_t *pShift) {
    if (!pCount || !pMask || !pShift) return KRN_INVALID_PARAMETER;
    const int32_t high = nHighBit == -1 ? nBitsPerPixel - 1 : nHighBit;
    if (nLowBit < 0 || high >= nStorageBits || high < nLowBit) return KRN_INVALID_PARAMETER;
    const uint32_t count = static_cast<uint32_t>(high - nLowBit) + 1;
    *pCount = count;
    *pMask = count >= 32 ? UINT32_MAX : (1u << count) - 1;
    *pShift = static_cast<uint32_t>(nLowBit);
    return KRN_OK;
}

RZKRN_API uint32_t RZAPI KrnRowBytesFor(int32_t nWidth, int32_t nStoredBits, int32_t nWorkWidth,
                                        int32_t nWorkBits) {
    const uint64_t perPixel = WorkPixelBytes(nWorkBits);
    if (nWidth < 0 || nWorkWidth < 0 || !IsKnownDepth(nStoredBits) || perPixel == 0) return 0;
    const uint64_t stored = (static_cast<uint64_t>(nWidth) * static_cast<uint64_t>(nStoredBits) + 7) / 8;
    const uint64_t work = static_cast<uint64_t>(nWorkWidth) * perPixel;
    const uint64_t bytes = stored > work ? stored : work;
    return bytes > UINT32_MAX ? 0 : static_cast<uint32_t>(bytes);
}

RZKRN_API int32_t RZAPI KrnConvertRowBuffer(const void *pSrc, void *pDst, int32_t nWidth, int32_t nStoredBits,
                                            int32_t nWorkBits, int32_t nColorOrder, int32_t /*nComponents*/,
                                            const RzRGBQuad *pPalette, int32_t nDirection, int32_t nGrayMode,
                                            int32_t nLowBit, int32_t nHighBit) {
    if (!pSrc || !pDst || nWidth < 0) return KRN_INVALID_PARAMETER;
    if (!IsKnownDepth(nStoredBits)) return KRN_BAD_BITS;
    if (WorkPixelBytes(nWorkBits) == 0) return KRN_INVALID_PARAMETER;
    if (nDirection != KRN_TO_WORK && nDirection != KRN_TO_STORED) return KRN_INVALID_PARAMETER;
    if (nGrayMode != KRN_GRAY_NONE && nGrayMode != KRN_GRAY_RAW) return KRN_INVALID_PARAMETER;

    const auto *src = static_cast<const uint8_t *>(pSrc);
    auto *dst = static_cast<uint8_t *>(pDst);
    const size_t n = static_cast<size_t>(nWidth);
    const bool toWork = nDirection == KRN_TO_WORK;
    const bool raw = nGrayMode == KRN_GRAY_RAW;
    switch (nStoredBits) {
    case 12: return ConvertDeepBits<12>(src, dst, n, nWorkBits, toWork, raw, nLowBit, nHighBit);
    case 16: return ConvertDeepBits<16>(src, dst, n, nWorkBits, toWork, raw, nLowBit, nHighBit);
    case 24: return ConvertColour<false, 3>(src, dst, n, nWorkBits, nColorOrder, toWork);
    case 32: return ConvertColour<false, 4>(src, dst, n, nWorkBits, nColorOrder, toWork);
    case 48: return ConvertColour<true, 3>(src, dst, n, nWorkBits, nColorOrder, toWork);
    case 64: return ConvertColour<true, 4>(src, dst, n, nWorkBits, nColorOrder, toWork);
    default: return ConvertPacked(src, dst, n, nStoredBits, nWorkBits, nColorOrder, pPalette, toWork, raw);
    }
}

RZKRN_API int32_t RZAPI KrnMatchRowToPalette(const BitmapDesc *pPaletteBitmap, const void *pWork,
                                             uint8_t *pIndices) {
    if (!pPaletteBitmap || !pWork || !pIndices) return KRN_INVALID_PARAMETER;
    if (pPaletteBitmap->uStructSize != BITMAPDESC_SIZE) return KRN_BAD_STRUCT_SIZE;
    const int32_t colours = pPaletteBitmap->nColors;
    const int32_t bits = pPaletteBitmap->nBitsPerPixel;
    if (!pPaletteBitmap->pPalette || colours <= 0 || colours > 256 || pPaletteBitmap->nWidth < 0 ||
        (bits != 8 && bits != 24))
        return KRN_INVALID_PARAMETER;
    const PaletteSearch pal(pPaletteBitmap->pPalette, colours);
    const auto *work = static_cast<const uint8_t *>(pWork);
    const size_t n = static_cast<size_t>(pPaletteBitmap->nWidth);
    if (bits == 8)
        MatchGrey(pal, work, pIndices, n);
    else
        MatchColour(pal, work, pIndices, n);
    return KRN_OK;
}

} // extern "C"
