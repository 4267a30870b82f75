// Whole-bitmap depth conversion and display-table folding.
//
// Every stored row is decoded into a row of 16-bit RGBA values (Px) and
// encoded again at the target depth. Sources of up to 16 bits decode through
// a table indexed by the raw sample, built once per call from the palette,
// the grey scale or the display table, so the row loop is one lookup a
// pixel. The target is built in a fresh descriptor and only moved into place
// when every row is done, so a failure leaves the source untouched.
//
// Choices: grey from colour is (R*77 + G*150 + B*29 + 128) >> 8 at the
// source's precision; 16 to 8 bits keeps the high byte, 8 to 16 multiplies by
// 257; 12/16-bit grey keeps its significant bits at the top of the word; a
// signed grey source (8-bit grey order, 12/16-bit grey) is offset to unsigned
// (sign bit flipped) unless the target is 12/16-bit grey, which stays signed. Palettised targets: a
// palettised source whose colours fit keeps palette and indices; a grey
// picture gets the grey ramp; a picture with at most 2^bits colours gets
// exactly those colours (ascending); any other gets a fixed split palette
// (3-3-2 bits of red, green, blue at 8 bits). A new fourth channel is opaque.
#include "internal.h"

#include <algorithm>
#include <cstring>

using namespace krn;

namespace {

struct Px {
    uint16_t r, g, b, a;
};

inline uint32_t GreyOf(uint32_t r, uint32_t g, uint32_t b) { return (r * 77 + g * 150 + b * 29 + 128) >> 8; }

inline Px Grey16(uint32_t v) { return Px{uint16_t(v), uint16_t(v), uint16_t(v), 0xFFFF}; }
inline Px Colour8(const RzRGBQuad &q) {
    return Px{uint16_t(q.rgbRed * 257), uint16_t(q.rgbGreen * 257), uint16_t(q.rgbBlue * 257), 0xFFFF};
}

// Owns a descriptor until it is handed over.
struct DescOwner {
    BitmapDesc d{};
    bool live = false;
    ~DescOwner() {
        if (live)
            KrnFreeBitmap(&d);
    }
};

// How the source is read.
struct Source {
    const BitmapDesc *b = nullptr;
    int bits = 0;
    bool wide = false;       // channels carry 16 significant bits
    bool bgr = false;        // 24..64: blue first
    bool grey = false;       // every decoded value is grey
    bool palettised = false; // indices into a coloured palette
    bool hasFourth = false;
    bool signedGrey = false;
    bool usesLut = false;
    Block table; // Px per raw value, sources up to 16 bits
    const Px *lut() const { return table.get<Px>(); }
};

bool UsesDisplayTable(const BitmapDesc *b) {
    return b->nBitsPerPixel <= 16 && b->nColorOrder == KRN_ORDER_GRAY && (b->uFlags & BMF_USE_LUT) && b->pLUT &&
           b->nLUTLength > 0;
}

// Significant bits of a 12/16-bit grey source.
bool GreyBitRange(const BitmapDesc *b, unsigned *count, unsigned *shift) {
    int bits = b->nBitsPerPixel, low = b->nLowBit, high = b->nHighBit == -1 ? bits - 1 : b->nHighBit;
    if (low < 0 || high < low || high >= bits)
        return false;
    *count = unsigned(high - low + 1);
    *shift = unsigned(low);
    return true;
}

// Fills the per-raw-value table; `redOnly` takes a display entry's red byte
// as its grey (display-table folding).
int32_t PrepareSource(Source &s, const BitmapDesc *b, bool redOnly) {
    s.b = b;
    s.bits = b->nBitsPerPixel;
    s.usesLut = UsesDisplayTable(b);
    if (s.bits > 16) {
        s.wide = s.bits >= 48;
        s.bgr = b->nColorOrder != KRN_ORDER_RGB;
        s.hasFourth = s.bits == 32 || s.bits == 64;
        return KRN_OK;
    }
    const size_t n = size_t(1) << s.bits;
    s.table = Block(KrnMemAlloc(n * sizeof(Px)));
    if (!s.table)
        return KRN_FAILURE;
    Px *t = s.table.get<Px>();
    const bool greySamples = b->nColorOrder == KRN_ORDER_GRAY || s.bits > 8;
    unsigned count = unsigned(s.bits), shift = 0;
    if (s.bits > 8 && !GreyBitRange(b, &count, &shift))
        return KRN_NO_BITMAP;
    s.signedGrey = greySamples && s.bits >= 8 && (b->uFlags & BMF_SIGNED);
    s.wide = s.bits > 8 && !s.usesLut;
    const uint32_t valueMask = count >= 32 ? ~0u : (1u << count) - 1;
    for (size_t raw = 0; raw < n; ++raw) {
        if (!greySamples) { // palette index
            RzRGBQuad q{};
            if (b->pPalette && raw < size_t(std::max(b->nColors, 0)))
                q = b->pPalette[raw];
            else if (!b->pPalette) {
                uint8_t v = uint8_t((raw * 255 + (n - 1) / 2) / (n - 1));
                q = RzRGBQuad{v, v, v, 0};
            }
            t[raw] = Colour8(q);
            continue;
        }
        uint32_t v = uint32_t(raw >> shift) & valueMask;
        if (s.signedGrey)
            v ^= 1u << (count - 1);
        if (s.usesLut) {
            const RzRGBQuad &q = b->pLUT[std::min<uint32_t>(v, b->nLUTLength - 1)];
            t[raw] = redOnly ? Grey16(q.rgbRed * 257u) : Colour8(q);
        } else if (s.bits <= 8) {
            t[raw] = Grey16(uint32_t(v * 65535u / (n - 1)));
        } else {
            t[raw] = Grey16(v << (16 - count));
        }
    }
    s.grey = true;
    for (size_t raw = 0; raw < n && s.grey; ++raw)
        s.grey = t[raw].r == t[raw].g && t[raw].g == t[raw].b;
    s.palettised = !greySamples && !s.grey;
    return KRN_OK;
}

template <int Bits> void DecodeRow(const Source &s, const uint8_t *row, int64_t width, Px *out) {
    using S = Samples<Bits>;
    if constexpr (Bits <= 16) {
        const Px *t = s.lut();
        for (int64_t x = 0; x < width; ++x)
            out[x] = t[S::Get(row, size_t(x))];
    } else {
        constexpr int bytes = Bits / 8 >= 6 ? 2 : 1;
        constexpr int channels = Bits / 8 / bytes;
        const int ir = s.bgr ? 2 : 0, ib = s.bgr ? 0 : 2;
        for (int64_t x = 0; x < width; ++x) {
            const uint8_t *p = row + x * (Bits / 8);
            uint16_t c[4];
            for (int i = 0; i < channels; ++i)
                c[i] = bytes == 2 ? uint16_t(p[2 * i] | p[2 * i + 1] << 8) : uint16_t(p[i] * 257);
            out[x] = Px{c[ir], c[1], c[ib], channels == 4 ? c[3] : uint16_t(0xFFFF)};
        }
    }
}

void Decode(const Source &s, int64_t y, Px *out) {
    const uint8_t *row = s.b->pData + size_t(y) * s.b->nStride;
    WithDepth(s.bits, 0, [&](auto d) {
        DecodeRow<decltype(d)::value>(s, row, s.b->nStoredWidth, out);
        return 0;
    });
}

// How the target is written.
enum class Target { Colour, Grey16, GreyLevels, PaletteExact, PaletteSplit };

struct Encoder {
    Target kind = Target::Colour;
    int bits = 0;
    bool bgr = true;
    bool wideSource = false;
    bool resign = false;
    int splitR = 0, splitG = 0, splitB = 0;
    // Exact colours: open-addressed keys 0xRRGGBB + 1 (0 = empty) -> index.
    uint32_t keys[1024] = {};
    uint8_t index[1024] = {};
    uint32_t distinct = 0;

    uint32_t Grey(const Px &p) const {
        return wideSource ? GreyOf(p.r, p.g, p.b) : GreyOf(p.r >> 8, p.g >> 8, p.b >> 8) * 257;
    }
    static uint32_t Key(const Px &p) { return (uint32_t(p.r >> 8) << 16 | uint32_t(p.g >> 8) << 8 | (p.b >> 8)) + 1; }
    static uint32_t Slot(uint32_t key) { return (key * 2654435761u) >> 22; }
    // Inserts a colour; false once more than `limit` colours were seen.
    bool Insert(uint32_t key, uint32_t limit) {
        uint32_t i = Slot(key);
        while (keys[i] && keys[i] != key)
            i = (i + 1) & 1023;
        if (keys[i])
            return true;
        if (distinct == limit)
            return false;
        keys[i] = key;
        ++distinct;
        return true;
    }
    uint8_t Find(uint32_t key) const {
        uint32_t i = Slot(key);
        while (keys[i] && keys[i] != key)
            i = (i + 1) & 1023;
        return index[i];
    }
};

inline uint32_t Quantise(uint32_t c8, int levelBits) {
    uint32_t top = (1u << levelBits) - 1;
    return (c8 * top + 127) / 255;
}

template <int Bits> void EncodeRow(const Encoder &e, const Px *in, int64_t width, uint8_t *row) {
    using S = Samples<Bits>;
    if constexpr (Bits >= 24) {
        constexpr bool wide = Bits >= 48;
        constexpr int bytes = wide ? 2 : 1;
        constexpr int channels = Bits / 8 / bytes;
        for (int64_t x = 0; x < width; ++x) {
            const Px &p = in[x];
            const uint16_t c[4] = {e.bgr ? p.b : p.r, p.g, e.bgr ? p.r : p.b, p.a};
            uint8_t *o = row + x * (Bits / 8);
            for (int i = 0; i < channels; ++i) {
                if constexpr (wide) {
                    o[2 * i] = uint8_t(c[i]);
                    o[2 * i + 1] = uint8_t(c[i] >> 8);
                } else {
                    o[i] = uint8_t(c[i] >> 8);
                }
            }
        }
    } else if constexpr (Bits == 12 || Bits == 16) {
        const uint32_t sign = e.resign ? 1u << (Bits - 1) : 0;
        for (int64_t x = 0; x < width; ++x)
            S::Set(row, size_t(x), (e.Grey(in[x]) >> (16 - Bits)) ^ sign);
    } else {
        switch (e.kind) {
        case Target::PaletteExact:
            for (int64_t x = 0; x < width; ++x)
                S::Set(row, size_t(x), e.Find(Encoder::Key(in[x])));
            break;
        case Target::PaletteSplit:
            for (int64_t x = 0; x < width; ++x) {
                const Px &p = in[x];
                uint32_t i = Quantise(p.r >> 8, e.splitR) << (e.splitG + e.splitB) |
                             Quantise(p.g >> 8, e.splitG) << e.splitB | Quantise(p.b >> 8, e.splitB);
                S::Set(row, size_t(x), i);
            }
            break;
        default:
            for (int64_t x = 0; x < width; ++x)
                S::Set(row, size_t(x), ((e.Grey(in[x]) >> 8) * ((1u << Bits) - 1) + 127) / 255);
            break;
        }
    }
}

// Indices moved as they are (a palette that fits the target).
template <int From, int To> void CopyIndices(const uint8_t *src, uint8_t *dst, int64_t width, int colours) {
    for (int64_t x = 0; x < width; ++x) {
        uint64_t i = Samples<From>::Get(src, size_t(x));
        Samples<To>::Set(dst, size_t(x), i < uint64_t(colours) ? i : 0);
    }
}

void SplitBits(int bits, int *r, int *g, int *b) {
    static const int table[9][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {1, 1, 1}, {1, 2, 1},
                                    {2, 2, 1}, {2, 2, 2}, {2, 3, 2}, {3, 3, 2}};
    *r = table[bits][0];
    *g = table[bits][1];
    *b = table[bits][2];
}

// Moves the finished target into place: a new descriptor for pDest, or the
// source's own descriptor keeping its region, state word and change count.
void Deliver(DescOwner &target, BitmapDesc *pDest, BitmapDesc *pSrc) {
    BitmapDesc &t = target.d;
    t.nViewPerspective = pSrc->nViewPerspective;
    t.nWidth = pSrc->nWidth;
    t.nHeight = pSrc->nHeight;
    t.nChangeCount = pSrc->nChangeCount;
    if (pDest == pSrc) {
        t.pRegion = pSrc->pRegion;
        t.uKernelState = pSrc->uKernelState;
        pSrc->pRegion = nullptr;
        KrnFreeBitmap(pSrc);
    }
    std::memcpy(static_cast<void *>(pDest), &t, sizeof(BitmapDesc));
    target.live = false;
}

int32_t Convert(BitmapDesc *pDest, BitmapDesc *pSrc, int tbits, int torder, bool foldRedOnly) {
    const int64_t width = pSrc->nStoredWidth, height = pSrc->nStoredHeight;
    Source src;
    int32_t st = PrepareSource(src, pSrc, foldRedOnly);
    if (st != KRN_OK)
        return st;

    DescOwner target;
    if ((st = KrnInitBitmap(&target.d, BITMAPDESC_SIZE, int32_t(width), int32_t(height), tbits)) != KRN_OK)
        return st;
    target.live = true;
    if ((st = KrnAllocBitmap(&target.d)) != KRN_OK)
        return st;
    BitmapDesc &t = target.d;
    if ((st = CloneMetadata(&t.pMetadata, pSrc)) != KRN_OK)
        return st;

    Block rowBuf(KrnMemAlloc(std::max<size_t>(KrnCheckedSize(size_t(width), sizeof(Px), 1), sizeof(Px))));
    if (!rowBuf)
        return KRN_FAILURE;
    Px *px = rowBuf.get<Px>();
    Encoder e;
    e.bits = tbits;
    e.wideSource = src.wide;
    e.kind = tbits >= 24 ? Target::Colour : tbits >= 12 ? Target::Grey16 : Target::GreyLevels;

    if (tbits >= 24) {
        t.nColorOrder = torder == KRN_ORDER_RGB ? KRN_ORDER_RGB : KRN_ORDER_BGR;
        e.bgr = t.nColorOrder == KRN_ORDER_BGR;
    } else if (tbits >= 12) {
        e.resign = src.signedGrey;
        if (e.resign)
            t.uFlags |= BMF_SIGNED;
        t.nDataKind = src.usesLut || foldRedOnly ? 1 : pSrc->nDataKind;
    } else if (torder == KRN_ORDER_GRAY) {
        t.nColorOrder = KRN_ORDER_GRAY;
        t.nDataKind = 1;
    } else if (src.palettised && pSrc->nColors <= (1 << tbits) && pSrc->nColors > 0) {
        // The palette fits: indices move as they are.
        std::memcpy(t.pPalette, pSrc->pPalette, size_t(pSrc->nColors) * sizeof(RzRGBQuad));
        t.nColors = pSrc->nColors;
        for (int64_t y = 0; y < height; ++y) {
            const uint8_t *in = pSrc->pData + size_t(y) * pSrc->nStride;
            uint8_t *out = t.pData + size_t(y) * t.nStride;
            WithDepth(src.bits, 0, [&](auto f) {
                return WithDepth(tbits, 0, [&](auto g) {
                    CopyIndices<decltype(f)::value, decltype(g)::value>(in, out, width, pSrc->nColors);
                    return 0;
                });
            });
        }
        Deliver(target, pDest, pSrc);
        return KRN_OK;
    } else if (!src.grey && tbits > 2) {
        // Count the picture's colours; a grey picture keeps the grey ramp.
        bool allGrey = true, fits = true;
        for (int64_t y = 0; y < height && (fits || allGrey); ++y) {
            Decode(src, y, px);
            for (int64_t x = 0; x < width; ++x) {
                allGrey = allGrey && (px[x].r >> 8) == (px[x].g >> 8) && (px[x].g >> 8) == (px[x].b >> 8);
                fits = fits && e.Insert(Encoder::Key(px[x]), 1u << tbits);
            }
        }
        if (allGrey) {
            e.kind = Target::GreyLevels;
        } else if (fits) {
            e.kind = Target::PaletteExact;
            uint32_t sorted[256], n = 0;
            for (uint32_t k : e.keys)
                if (k)
                    sorted[n++] = k;
            std::sort(sorted, sorted + n);
            std::memset(t.pPalette, 0, 256 * sizeof(RzRGBQuad));
            for (uint32_t i = 0; i < n; ++i) {
                uint32_t c = sorted[i] - 1;
                t.pPalette[i] = RzRGBQuad{uint8_t(c), uint8_t(c >> 8), uint8_t(c >> 16), 0};
                uint32_t slot = Encoder::Slot(sorted[i]);
                while (e.keys[slot] != sorted[i])
                    slot = (slot + 1) & 1023;
                e.index[slot] = uint8_t(i);
            }
            t.nColors = int32_t(n);
        } else {
            e.kind = Target::PaletteSplit;
            SplitBits(tbits, &e.splitR, &e.splitG, &e.splitB);
            const int rl = 1 << e.splitR, gl = 1 << e.splitG, bl = 1 << e.splitB;
            int i = 0;
            for (int r = 0; r < rl; ++r)
                for (int g = 0; g < gl; ++g)
                    for (int b = 0; b < bl; ++b)
                        t.pPalette[i++] = RzRGBQuad{uint8_t(b * 255 / (bl - 1)), uint8_t(g * 255 / (gl - 1)),
                                                    uint8_t(r * 255 / (rl - 1)), 0};
            t.nColors = i;
        }
    }

    for (int64_t y = 0; y < height; ++y) {
        Decode(src, y, px);
        uint8_t *out = t.pData + size_t(y) * t.nStride;
        WithDepth(tbits, 0, [&](auto d) {
            EncodeRow<decltype(d)::value>(e, px, width, out);
            return 0;
        });
    }
    Deliver(target, pDest, pSrc);
    return KRN_OK;
}

int32_t CheckSource(BitmapDesc *pSrc, uint32_t uStructSize) {
    if (!pSrc)
        return KRN_NULL_POINTER;
    if (uStructSize != BITMAPDESC_SIZE)
        return KRN_BAD_STRUCT_SIZE;
    return KrnValidateBitmap(pSrc);
}

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnConvertBitmap(BitmapDesc *pDest, BitmapDesc *pSrc, uint32_t uStructSize,
                                         int32_t nBitsPerPixel, int32_t nColorOrder, int32_t, int32_t) {
    if (!pDest)
        return KRN_NULL_POINTER;
    int32_t st = CheckSource(pSrc, uStructSize);
    if (st != KRN_OK)
        return st;
    if (!IsKnownDepth(nBitsPerPixel))
        return KRN_BAD_BITS;
    if (nColorOrder == KRN_ORDER_BGR_ALT && nBitsPerPixel >= 24)
        nColorOrder = KRN_ORDER_BGR;
    if (nColorOrder < KRN_ORDER_RGB || nColorOrder > KRN_ORDER_GRAY)
        return KRN_INVALID_PARAMETER;
    if (nBitsPerPixel >= 24 && nColorOrder == KRN_ORDER_GRAY)
        return KRN_BAD_PIXEL_FORMAT;
    const int sbits = pSrc->nBitsPerPixel;
    const bool sameLayout = sbits == nBitsPerPixel && !UsesDisplayTable(pSrc) &&
                            (sbits == 12 || sbits == 16 || pSrc->nColorOrder == nColorOrder);
    if (sameLayout)
        return pDest == pSrc ? KRN_OK : KrnCopyBitmap(pDest, pSrc, uStructSize);
    return Convert(pDest, pSrc, nBitsPerPixel, nColorOrder, false);
}

// Without a display table the samples are only rescaled to the new depth.
RZKRN_API int32_t RZAPI KrnApplyBitmapLUT(BitmapDesc *pBitmap, int32_t nBitsPerPixel) {
    int32_t st = CheckSource(pBitmap, pBitmap ? pBitmap->uStructSize : 0);
    if (st != KRN_OK)
        return st;
    if (nBitsPerPixel != 8 && nBitsPerPixel != 12 && nBitsPerPixel != 16)
        return KRN_INVALID_PARAMETER;
    if (pBitmap->nColorOrder != KRN_ORDER_GRAY || pBitmap->nBitsPerPixel > 16)
        return KRN_BAD_PIXEL_FORMAT;
    const uint32_t flags = pBitmap->uFlags;
    if (pBitmap->pLUT && pBitmap->nLUTLength > 0)
        pBitmap->uFlags |= BMF_USE_LUT; // the table is folded whether or not it was shown
    st = Convert(pBitmap, pBitmap, nBitsPerPixel, KRN_ORDER_GRAY, true);
    if (st != KRN_OK) {
        pBitmap->uFlags = flags;
        return st;
    }
    pBitmap->nDataKind = 1;
    return KRN_OK;
}

} // extern "C"
