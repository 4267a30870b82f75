// The shape checks and load targets shared by every codec, and the save plan:
// a bitmap's view rows turned into the few layouts the formats store.
//
// The plan reads each view row with KrnGetBitmapRow and hands palette and
// grey conversions to KrnConvertRowBuffer; only the channel reordering of
// colour rows is done here, as one template over source and destination
// sample widths and channel counts.
#include "fil_internal.h"

#include <atomic>
#include <bit>
#include <cstring>

// 16-bit samples move between kernel rows (little-endian) and codec rows
// (host order) without swapping.
static_assert(std::endian::native == std::endian::little, "the file library assumes a little-endian host");

namespace rzfil {

namespace {

std::atomic<int64_t> g_pixelLimit{int64_t(1) << 28};

bool IsPackedDepth(int bits) { return bits == 1 || bits == 2 || bits == 4 || bits == 8; }

// Colour rows: source in the bitmap's order (little-endian words at 16
// bits), destination R, G, B[, A] in host order.
template <class S, class D, int SC, int DC>
void ColourRow(const uint8_t *src, uint8_t *dst, size_t n, bool bgr) {
    const int ri = bgr ? 2 : 0, bi = bgr ? 0 : 2;
    D *out = reinterpret_cast<D *>(dst);
    for (size_t x = 0; x < n; ++x, src += SC * sizeof(S), out += DC) {
        uint32_t c[4];
        for (int k = 0; k < SC; ++k) {
            if constexpr (sizeof(S) == 2)
                c[k] = uint32_t(src[2 * k]) | uint32_t(src[2 * k + 1]) << 8;
            else
                c[k] = src[k];
        }
        constexpr int shift = sizeof(S) > sizeof(D) ? 8 : 0;
        out[0] = D(c[ri] >> shift);
        out[1] = D(c[1] >> shift);
        out[2] = D(c[bi] >> shift);
        if constexpr (DC == 4)
            out[3] = D(c[3] >> shift);
    }
}

void SwapRB8(uint8_t *p, size_t n) {
    for (size_t x = 0; x < n; ++x, p += 3)
        std::swap(p[0], p[2]);
}

void SwapRB16(uint8_t *p, size_t n) {
    uint16_t *w = reinterpret_cast<uint16_t *>(p);
    for (size_t x = 0; x < n; ++x, w += 3)
        std::swap(w[0], w[2]);
}

} // namespace

int64_t PixelLimit() { return g_pixelLimit.load(std::memory_order_relaxed); }
int64_t SwapPixelLimit(int64_t n) { return g_pixelLimit.exchange(n, std::memory_order_relaxed); }

int32_t CheckShape(const Shape &s) {
    if (s.width <= 0 || s.height <= 0)
        return RZ_FILE_CORRUPT;
    if (s.width > INT32_MAX || s.height > INT32_MAX)
        return RZ_FILE_TOO_LARGE;
    // Both are below 2^31, so the product fits.
    if (s.width * s.height > PixelLimit())
        return RZ_FILE_TOO_LARGE;
    if ((uint64_t(s.width) * unsigned(s.bits) + 31) / 32 * 4 > uint64_t(INT32_MAX))
        return RZ_FILE_TOO_LARGE;
    return ST_SUCCESS;
}

int32_t MakeTarget(LoadTarget &t, const Shape &s) {
    int32_t st = CheckShape(s);
    if (st != ST_SUCCESS)
        return st;
    st = KrnInitBitmap(&t.bmp, BITMAPDESC_SIZE, int32_t(s.width), int32_t(s.height), s.bits);
    if (st == KRN_INVALID_PARAMETER)
        return RZ_FILE_TOO_LARGE;
    if (st != KRN_OK)
        return st;
    t.live = true;
    if (s.bits == 12 || s.bits == 16) {
        t.bmp.nColorOrder = KRN_ORDER_GRAY;
        t.bmp.nDataKind = 1;
        t.bmp.nLowBit = 0;
        t.bmp.nHighBit = (s.sigBits > 0 && s.sigBits <= s.bits ? s.sigBits : s.bits) - 1;
        if (s.isSigned)
            t.bmp.uFlags |= BMF_SIGNED;
    }
    return KrnAllocBitmap(&t.bmp);
}

int32_t SetTargetPalette(LoadTarget &t, const uint8_t (*rgb)[3], int count) {
    RzRGBQuad q[256];
    const int max = 1 << t.bmp.nBitsPerPixel;
    if (count > max)
        count = max;
    for (int i = 0; i < count; ++i)
        q[i] = RzRGBQuad{rgb[i][2], rgb[i][1], rgb[i][0], 0};
    return KrnSetPaletteForDepth(&t.bmp, q, count, t.bmp.nBitsPerPixel, 0);
}

FormatCaps CapsFor(int32_t format) {
    FormatCaps c;
    switch (format) {
    case RZ_FMT_PNG: c.palette = c.greyLow = c.grey16 = c.rgb16 = c.alpha = true; break;
    case RZ_FMT_TIFF: c.palette = c.greyLow = c.grey16 = c.rgb16 = c.alpha = c.signedGrey = true; break;
    case RZ_FMT_JPEG: break; // grey and RGB at 8 bits
    case RZ_FMT_PPM: c.rgb16 = c.rgbOnly = true; break;
    case RZ_FMT_PGM:
    case RZ_FMT_PBM: c.greyLow = c.grey16 = c.greyOnly = true; break;
    default: c.greyLow = c.grey16 = c.rgb16 = true; break; // PNM of the fitting kind
    }
    return c;
}

bool UsesAlpha(const BitmapDesc *b) {
    const int bits = b->nBitsPerPixel;
    if ((bits != 32 && bits != 64) || KrnValidateBitmap(b) != KRN_OK)
        return false;
    const size_t channel = bits / 32; // bytes
    const size_t px = bits / 8;
    for (int64_t y = 0; y < b->nStoredHeight; ++y) {
        const uint8_t *row = b->pData + size_t(y) * b->nStride;
        for (int64_t x = 0; x < b->nStoredWidth; ++x) {
            const uint8_t *a = row + size_t(x) * px + 3 * channel;
            if (a[0] != 0xFF || (channel == 2 && a[1] != 0xFF))
                return true;
        }
    }
    return false;
}

namespace {

// Every palette entry is grey; *levels tells whether each is also a level
// of the depth's own ramp, so the samples can stay at that depth.
bool PaletteIsGrey(const BitmapDesc *b, bool *levels) {
    if (!b->pPalette)
        return false;
    const int count = 1 << b->nBitsPerPixel;
    const uint32_t top = uint32_t(count - 1);
    *levels = true;
    for (int i = 0; i < count; ++i) {
        const RzRGBQuad &e = b->pPalette[i];
        if (e.rgbRed != e.rgbGreen || e.rgbRed != e.rgbBlue)
            return false;
        if ((uint32_t(e.rgbRed) * top) % 255 != 0)
            *levels = false;
    }
    return true;
}

} // namespace

int32_t PlanFor(const BitmapDesc *b, const FormatCaps &caps, SavePlan &plan) {
    int32_t st = KrnValidateBitmap(b);
    if (st != KRN_OK)
        return st;
    if (!b->pData)
        return ST_NO_BITMAP;
    plan = SavePlan{};
    plan.src = b;
    plan.width = b->nWidth;
    plan.height = b->nHeight;
    const int bits = b->nBitsPerPixel;
    if (bits <= 8) {
        bool levels = false;
        const bool samples = b->nColorOrder == KRN_ORDER_GRAY;
        const bool grey = samples || PaletteIsGrey(b, &levels);
        plan.rawGrey = samples || KrnIsGrayscale(b);
        if ((grey || caps.greyOnly) && !caps.rgbOnly) {
            plan.kind = Kind::Grey;
            const bool keepDepth = IsPackedDepth(bits) && (bits == 8 || caps.greyLow) && (plan.rawGrey || levels);
            plan.bits = keepDepth ? bits : 8;
            if (!grey)
                plan.notes |= RZ_SAVE_NOTE_GREY;
        } else if (caps.palette && b->pPalette && !grey) {
            plan.kind = Kind::Index;
            plan.bits = IsPackedDepth(bits) ? bits : 8;
            plan.paletteCount = b->nColors > 0 ? (b->nColors > 256 ? 256 : b->nColors) : 1;
            if (b->nColors > 0)
                std::memcpy(plan.palette, b->pPalette, size_t(plan.paletteCount) * sizeof(RzRGBQuad));
        } else {
            plan.kind = Kind::Rgb;
            plan.channels = 3;
        }
        plan.sigBits = plan.bits;
        return ST_SUCCESS;
    }
    if (bits == 12 || bits == 16) {
        uint32_t count = 0, mask = 0, shift = 0;
        if (KrnGetBitRange(bits, bits, b->nLowBit, b->nHighBit, &count, &mask, &shift) != KRN_OK)
            return ST_INVALID_PARAMETER;
        plan.isSigned = (b->uFlags & BMF_SIGNED) != 0;
        if (plan.isSigned && !caps.signedGrey)
            return RZ_FILE_UNSUPPORTED;
        plan.kind = caps.rgbOnly ? Kind::Rgb : Kind::Grey;
        plan.channels = caps.rgbOnly ? 3 : 1;
        plan.bits = (caps.rgbOnly ? caps.rgb16 : caps.grey16) ? 16 : 8;
        plan.sigBits = plan.kind == Kind::Grey && plan.bits == 16 ? int(count) : plan.bits;
        if (plan.isSigned)
            plan.sigBits = 16;
        return ST_SUCCESS;
    }
    const bool wide = bits == 48 || bits == 64, four = bits == 32 || bits == 64;
    if (caps.greyOnly) {
        plan.kind = Kind::Grey;
        plan.bits = wide && caps.grey16 ? 16 : 8;
        plan.notes |= RZ_SAVE_NOTE_GREY;
    } else {
        plan.kind = Kind::Rgb;
        plan.channels = four && caps.alpha ? 4 : 3;
        plan.bits = wide && caps.rgb16 ? 16 : 8;
    }
    if (four && plan.channels != 4 && UsesAlpha(b))
        plan.notes |= RZ_SAVE_NOTE_ALPHA;
    plan.sigBits = plan.bits;
    return ST_SUCCESS;
}

size_t PlanRowBytes(const SavePlan &plan) {
    const size_t w = size_t(plan.width);
    if (plan.bits < 8)
        return (w * unsigned(plan.bits) + 7) / 8;
    return w * unsigned(plan.channels) * unsigned(plan.bits / 8);
}

size_t PlanScratchBytes(const SavePlan &plan) {
    const size_t raw = KrnBitmapRowBytes(plan.src);
    const size_t work = size_t(plan.width) * 6;
    return (raw > work ? raw : work) + 8;
}

int32_t PlanRow(const SavePlan &p, int64_t y, uint8_t *scratch, uint8_t *out) {
    const BitmapDesc *b = p.src;
    const int bits = b->nBitsPerPixel;
    const uint32_t rawBytes = KrnBitmapRowBytes(b);
    const int32_t w = int32_t(p.width);
    int32_t st = KrnGetBitmapRow(b, scratch, int32_t(y), 0, rawBytes);
    if (st != KRN_OK)
        return st;
    const size_t n = size_t(w);
    auto convert = [&](int workBits, int grayMode) {
        return KrnConvertRowBuffer(scratch, out, w, bits, workBits, b->nColorOrder, 1, b->pPalette, KRN_TO_WORK,
                                   grayMode, b->nLowBit, b->nHighBit);
    };
    if (bits <= 8) {
        if ((p.kind == Kind::Index || p.rawGrey) && p.kind != Kind::Rgb && p.bits == bits) {
            std::memcpy(out, scratch, PlanRowBytes(p));
            return ST_SUCCESS;
        }
        if (p.kind == Kind::Index)
            return convert(0, KRN_GRAY_RAW);
        if (p.kind == Kind::Grey) {
            // Through the palette to 8-bit grey, then packed to levels of a
            // lower depth's ramp when the plan kept it.
            if (p.bits == 8)
                return convert(0, KRN_GRAY_NONE);
            uint8_t *grey = scratch + 2 * n + 8; // past the stored row, at most n bytes here
            st = KrnConvertRowBuffer(scratch, grey, w, bits, 0, b->nColorOrder, 1, b->pPalette, KRN_TO_WORK,
                                     KRN_GRAY_NONE, b->nLowBit, b->nHighBit);
            if (st != KRN_OK)
                return st;
            const uint32_t top = (1u << p.bits) - 1;
            const int per = 8 / p.bits;
            std::memset(out, 0, PlanRowBytes(p));
            for (size_t x = 0; x < n; ++x)
                out[x / per] |= uint8_t(((grey[x] * top + 127) / 255) << (8 - p.bits - int(x % per) * p.bits));
            return ST_SUCCESS;
        }
        st = convert(24, KRN_GRAY_NONE);
        SwapRB8(out, n);
        return st;
    }
    if (bits == 12 || bits == 16) {
        if (p.kind == Kind::Rgb) {
            st = convert(p.bits == 16 ? 48 : 24, KRN_GRAY_NONE);
            if (p.bits == 16)
                SwapRB16(out, n);
            else
                SwapRB8(out, n);
            return st;
        }
        if (p.bits == 8)
            return convert(0, KRN_GRAY_NONE);
        st = convert(16, KRN_GRAY_RAW);
        if (st != KRN_OK || p.isSigned)
            return st;
        uint32_t count = 0, mask = 0, shift = 0;
        KrnGetBitRange(bits, bits, b->nLowBit, b->nHighBit, &count, &mask, &shift);
        const unsigned up = p.scaledToTop ? 16 - count : 0;
        uint16_t *v = reinterpret_cast<uint16_t *>(out);
        for (size_t x = 0; x < n; ++x)
            v[x] = uint16_t(((v[x] >> shift) & mask) << up);
        return ST_SUCCESS;
    }
    if (p.kind == Kind::Grey)
        return convert(p.bits == 16 ? 16 : 0, KRN_GRAY_NONE);
    const bool bgr = b->nColorOrder == KRN_ORDER_BGR;
    const bool four = p.channels == 4;
    switch (bits) {
    case 24: ColourRow<uint8_t, uint8_t, 3, 3>(scratch, out, n, bgr); break;
    case 32:
        four ? ColourRow<uint8_t, uint8_t, 4, 4>(scratch, out, n, bgr)
             : ColourRow<uint8_t, uint8_t, 4, 3>(scratch, out, n, bgr);
        break;
    case 48:
        p.bits == 16 ? ColourRow<uint16_t, uint16_t, 3, 3>(scratch, out, n, bgr)
                     : ColourRow<uint16_t, uint8_t, 3, 3>(scratch, out, n, bgr);
        break;
    case 64:
        if (p.bits == 16)
            four ? ColourRow<uint16_t, uint16_t, 4, 4>(scratch, out, n, bgr)
                 : ColourRow<uint16_t, uint16_t, 4, 3>(scratch, out, n, bgr);
        else
            four ? ColourRow<uint16_t, uint8_t, 4, 4>(scratch, out, n, bgr)
                 : ColourRow<uint16_t, uint8_t, 4, 3>(scratch, out, n, bgr);
        break;
    default: return ST_BAD_BITS;
    }
    return ST_SUCCESS;
}

int32_t ViewForOrientation(int32_t orientation) {
    static const int32_t kView[9] = {1, 1, 2, 3, 4, 5, 8, 7, 6};
    return orientation >= 1 && orientation <= 8 ? kView[orientation] : 1;
}

namespace {

uint32_t Read(const uint8_t *p, int bytes, bool big) {
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v |= uint32_t(p[big ? i : bytes - 1 - i]) << (8 * (bytes - 1 - i));
    return v;
}

} // namespace

int32_t ExifOrientation(const uint8_t *exif, size_t n, size_t *where) {
    if (where)
        *where = 0;
    if (!exif || n < 8 || !((exif[0] == 'I' && exif[1] == 'I') || (exif[0] == 'M' && exif[1] == 'M')))
        return 1;
    const bool big = exif[0] == 'M';
    const uint32_t ifd = Read(exif + 4, 4, big);
    if (ifd > n - 2)
        return 1;
    const uint32_t count = Read(exif + ifd, 2, big);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t e = size_t(ifd) + 2 + size_t(i) * 12;
        if (e + 12 > n)
            break;
        // Tag 0x112, type SHORT, one value held in the entry itself.
        if (Read(exif + e, 2, big) == 0x112 && Read(exif + e + 2, 2, big) == 3 && Read(exif + e + 4, 4, big) == 1) {
            const uint32_t v = Read(exif + e + 8, 2, big);
            if (v < 1 || v > 8)
                return 1;
            if (where)
                *where = e + 8;
            return int32_t(v);
        }
    }
    return 1;
}

int32_t ApplyMetadata(LoadTarget &t, const Shape &s, const void *icc, uint32_t iccBytes, const void *exif,
                      uint32_t exifBytes) {
    int32_t st = KRN_OK;
    if (s.resX > 0 && s.resY > 0)
        st = KrnSetBitmapResolution(&t.bmp, s.resX, s.resY, s.resUnit);
    if (st == KRN_OK && iccBytes)
        st = KrnSetBitmapMetadata(&t.bmp, KRN_META_ICC, icc, iccBytes);
    if (st == KRN_OK && exifBytes)
        st = KrnSetBitmapMetadata(&t.bmp, KRN_META_EXIF, exif, exifBytes);
    if (st == KRN_OK && s.orientation != 1)
        st = KrnChangeViewPerspective(nullptr, &t.bmp, BITMAPDESC_SIZE, ViewForOrientation(s.orientation), 0);
    return st == KRN_INVALID_PARAMETER ? ST_SUCCESS : st; // a nonsensical resolution is dropped, not fatal
}

int32_t SaveMeta::read(const BitmapDesc *b) {
    KrnGetBitmapResolution(b, &resX, &resY, &resUnit);
    const void *p = nullptr;
    KrnGetBitmapMetadata(b, KRN_META_ICC, &p, &iccBytes);
    icc = static_cast<const uint8_t *>(p);
    uint32_t n = 0;
    if (KrnGetBitmapMetadata(b, KRN_META_EXIF, &p, &n) == 1 && n) {
        exif = static_cast<uint8_t *>(KrnMemAlloc(n));
        if (!exif)
            return ST_FAILURE;
        std::memcpy(exif, p, n);
        exifBytes = n;
        size_t where = 0;
        ExifOrientation(exif, n, &where);
        if (where) {
            const bool big = exif[0] == 'M';
            exif[where + (big ? 0 : 1)] = 0;
            exif[where + (big ? 1 : 0)] = 1;
        }
    }
    return ST_SUCCESS;
}

double SaveMeta::in(int32_t unit, double v) const {
    if (resUnit == unit || resUnit == KRN_RES_NONE)
        return v;
    return unit == KRN_RES_INCH ? v * 2.54 : v / 2.54;
}

} // namespace rzfil
