// Row services: one view row read into or written from a packed buffer.
//
// Views 1 and 4 address a stored row directly, so reads are a memcpy and
// writes a memcpy with masked edge bytes. The mirrored and transposed views
// gather (scatter) pixel by pixel with the sample accessors, staged through a
// small stack chunk that starts on a packing period (lcm(bits, 8) bits), so
// that a byte range starting anywhere still lines up with whole pixels. The
// depth is fixed once per call (Samples<Bits>), never per pixel.
//
// Writes are pixel-exact: a pixel is written only when all of its bits lie in
// the caller's byte range, it is inside the view width, and (with spans)
// inside a span; other pixels sharing a byte keep their bits.
#include "internal.h"

#include <algorithm>
#include <cstring>

using namespace krn;

namespace {

constexpr size_t kChunk = 1536;

// Stored row of view row `row` for views 1 and 4.
inline uint8_t *PlainRow(const BitmapDesc *b, int view, int64_t row) {
    int64_t sy = view == 4 ? b->nStoredHeight - 1 - row : row;
    return b->pData + size_t(sy) * b->nStride;
}

// Mask of bits [a, b) of one byte in row bit order (0 = first bit of the
// byte). Packed depths run from the most significant bit; 12-bit pairs put
// the even pixel in the low nibble of the middle byte.
inline uint8_t ByteMask(unsigned a, unsigned b, int bits) {
    if (bits == 12)
        return uint8_t(((a == 0 && b >= 4) ? 0x0F : 0) | ((a <= 4 && b == 8) ? 0xF0 : 0));
    return uint8_t((0xFFu >> a) & (0xFFu << (8 - b)));
}

// Pixel x of the caller's buffer, which holds the row from byte `first`; the
// pixel lies wholly in the buffer.
template <int Bits> inline uint64_t GetFromBuffer(const uint8_t *buf, uint64_t first, uint64_t x) {
    if constexpr (Bits % 8 == 0) {
        return LoadLE(buf + (x * (Bits / 8) - first), Bits / 8);
    } else if constexpr (Bits == 12) {
        const uint8_t *p = buf + ((x >> 1) * 3 - first);
        if (x & 1)
            return (unsigned(p[1]) | unsigned(p[2]) << 8) >> 4;
        return (unsigned(p[0]) | unsigned(p[1]) << 8) & 0xFFF;
    } else {
        uint64_t bit = x * Bits - first * 8;
        const uint8_t *p = buf + (bit >> 3);
        unsigned off = unsigned(bit & 7);
        constexpr unsigned mask = (1u << Bits) - 1;
        if (off + Bits <= 8)
            return (p[0] >> (8 - Bits - off)) & mask;
        return ((unsigned(p[0]) << 8 | p[1]) >> (16 - Bits - off)) & mask;
    }
}

template <int Bits>
void GatherRow(const BitmapDesc *b, int view, uint8_t *dst, int64_t row, uint64_t first, uint64_t end) {
    using S = Samples<Bits>;
    const int64_t width = ViewWidth(b, view);
    const ViewMap m = MakeViewMap(view, b->nStoredWidth, b->nStoredHeight);
    const uint64_t period = PeriodBytes(Bits), periodPixels = PeriodPixels(Bits);
    const uint64_t chunkBytes = kChunk / period * period;
    const ptrdiff_t rowStep = ptrdiff_t(m.by) * ptrdiff_t(b->nStride);
    uint8_t chunk[kChunk];
    for (uint64_t cb = first / period * period; cb < end; cb += chunkBytes) {
        const int64_t x0 = int64_t(cb / period * periodPixels);
        const int64_t x1 = std::min<int64_t>(width, x0 + int64_t(chunkBytes / period * periodPixels));
        std::memset(chunk, 0, chunkBytes);
        int64_t sx = m.ax + m.bx * x0 + m.cx * row;
        const int64_t sy = m.ay + m.by * x0 + m.cy * row;
        const uint8_t *rp = b->pData + ptrdiff_t(sy) * ptrdiff_t(b->nStride);
        for (int64_t x = x0; x < x1; ++x) {
            S::Set(chunk, size_t(x - x0), S::Get(rp, size_t(sx)));
            sx += m.bx;
            rp += rowStep;
        }
        const uint64_t from = std::max(cb, first), to = std::min(cb + chunkBytes, end);
        std::memcpy(dst + (from - first), chunk + (from - cb), size_t(to - from));
    }
}

template <int Bits>
void ScatterPixels(BitmapDesc *b, int view, const uint8_t *src, int64_t row, uint64_t first, int64_t x0, int64_t x1,
                   bool keepFourth) {
    using S = Samples<Bits>;
    const ViewMap m = MakeViewMap(view, b->nStoredWidth, b->nStoredHeight);
    const ptrdiff_t rowStep = ptrdiff_t(m.by) * ptrdiff_t(b->nStride);
    int64_t sx = m.ax + m.bx * x0 + m.cx * row;
    const int64_t sy = m.ay + m.by * x0 + m.cy * row;
    uint8_t *rp = b->pData + ptrdiff_t(sy) * ptrdiff_t(b->nStride);
    for (int64_t x = x0; x < x1; ++x) {
        uint64_t v = GetFromBuffer<Bits>(src, first, uint64_t(x));
        if constexpr (Bits == 32 || Bits == 64) {
            constexpr uint64_t fourth = Bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
            if (keepFourth)
                v = (v & ~fourth) | (S::Get(rp, size_t(sx)) & fourth);
        }
        S::Set(rp, size_t(sx), v);
        sx += m.bx;
        rp += rowStep;
    }
}

// Pixels [x0, x1) of a plain (view 1 or 4) stored row from the buffer.
void CopyPlainPixels(uint8_t *stored, const uint8_t *src, uint64_t first, int64_t x0, int64_t x1, int bits) {
    const uint64_t b0 = uint64_t(x0) * unsigned(bits), b1 = uint64_t(x1) * unsigned(bits);
    uint64_t byte0 = b0 >> 3, byte1 = b1 >> 3; // [byte0, byte1) whole bytes after the head
    const unsigned head = unsigned(b0 & 7), tail = unsigned(b1 & 7);
    if (byte0 == byte1) { // the range lies inside one byte
        uint8_t mask = ByteMask(head, tail, bits);
        stored[byte0] = uint8_t((stored[byte0] & ~mask) | (src[byte0 - first] & mask));
        return;
    }
    if (head) {
        uint8_t mask = ByteMask(head, 8, bits);
        stored[byte0] = uint8_t((stored[byte0] & ~mask) | (src[byte0 - first] & mask));
        ++byte0;
    }
    std::memcpy(stored + byte0, src + (byte0 - first), size_t(byte1 - byte0));
    if (tail) {
        uint8_t mask = ByteMask(0, tail, bits);
        stored[byte1] = uint8_t((stored[byte1] & ~mask) | (src[byte1 - first] & mask));
    }
}

int32_t CheckRowCall(const BitmapDesc *b, const void *buffer, int32_t row, uint32_t count) {
    int32_t st = KrnValidateBitmap(b);
    if (st != KRN_OK)
        return st;
    if ((!buffer && count) || row < 0 || row >= b->nHeight)
        return KRN_INVALID_PARAMETER;
    return KRN_OK;
}

} // namespace

namespace krn {

void ReadViewRow(const BitmapDesc *b, int view, uint8_t *dst, int64_t row, uint32_t first, uint32_t count) {
    const int bits = b->nBitsPerPixel;
    const int64_t width = ViewWidth(b, view);
    const uint64_t rowBytes = PackedBytes(width, bits);
    const uint64_t begin = first, end = uint64_t(first) + count;
    const uint64_t dataEnd = std::min(end, rowBytes);
    if (dataEnd < end)
        std::memset(dst + (std::max(dataEnd, begin) - begin), 0, size_t(end - std::max(dataEnd, begin)));
    if (begin >= dataEnd)
        return;
    if (view == 1 || view == 4) {
        std::memcpy(dst, PlainRow(b, view, row) + begin, size_t(dataEnd - begin));
        const unsigned tailBits = unsigned((uint64_t(width) * unsigned(bits)) & 7);
        if (tailBits && dataEnd == rowBytes) // padding bits of the last byte read as 0
            dst[dataEnd - 1 - begin] &= ByteMask(0, tailBits, bits);
        return;
    }
    WithDepth(bits, 0, [&](auto d) {
        GatherRow<decltype(d)::value>(b, view, dst, row, begin, dataEnd);
        return 0;
    });
}

} // namespace krn

extern "C" {

RZKRN_API int32_t RZAPI KrnGetBitmapRow(const BitmapDesc *pBitmap, void *pBuffer, int32_t nRow, uint32_t nFirstByte,
                                        uint32_t nByteCount) {
    int32_t st = CheckRowCall(pBitmap, pBuffer, nRow, nByteCount);
    if (st != KRN_OK || nByteCount == 0)
        return st;
    ReadViewRow(pBitmap, pBitmap->nViewPerspective, static_cast<uint8_t *>(pBuffer), nRow, nFirstByte, nByteCount);
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnPutBitmapRowSpans(BitmapDesc *pBitmap, const void *pBuffer, int32_t nRow,
                                             uint32_t nFirstByte, uint32_t nByteCount, const int32_t *pSpans,
                                             uint32_t nSpanValues, uint32_t uFlags) {
    int32_t st = CheckRowCall(pBitmap, pBuffer, nRow, nByteCount);
    if (st != KRN_OK)
        return st;
    if (pSpans && (nSpanValues & 1))
        return KRN_INVALID_PARAMETER;
    const int bits = pBitmap->nBitsPerPixel;
    const int view = pBitmap->nViewPerspective;
    const uint64_t first = nFirstByte;
    // Pixels wholly inside the buffer.
    const int64_t xa = int64_t((first * 8 + unsigned(bits) - 1) / unsigned(bits));
    const int64_t xb = std::min<int64_t>(pBitmap->nWidth, int64_t((first + nByteCount) * 8 / unsigned(bits)));
    if (xa >= xb)
        return KRN_OK;
    const auto *src = static_cast<const uint8_t *>(pBuffer);
    const bool keepFourth = (uFlags & KRN_PUT_KEEP_FOURTH) && (bits == 32 || bits == 64);
    const bool plain = (view == 1 || view == 4) && !keepFourth;
    uint8_t *stored = plain ? PlainRow(pBitmap, view, nRow) : nullptr;

    auto writeRange = [&](int64_t x0, int64_t x1) {
        x0 = std::max(x0, xa);
        x1 = std::min(x1, xb);
        if (x0 >= x1)
            return;
        if (plain) {
            CopyPlainPixels(stored, src, first, x0, x1, bits);
            return;
        }
        WithDepth(bits, 0, [&](auto d) {
            ScatterPixels<decltype(d)::value>(pBitmap, view, src, nRow, first, x0, x1, keepFourth);
            return 0;
        });
    };
    if (!pSpans) {
        writeRange(xa, xb);
    } else {
        for (uint32_t i = 0; i < nSpanValues; i += 2)
            writeRange(pSpans[i], pSpans[i + 1]);
    }
    return KRN_OK;
}

} // extern "C"
