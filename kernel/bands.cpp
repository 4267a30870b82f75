// Bands of view rows: several consecutive rows read or written in one call.
//
// In the transposed views a view row is a stored column, so a row on its own
// costs a cache line and a page per pixel. A band of R rows reads (writes)
// R neighbouring stored pixels from each line it touches: a blocked
// transpose that costs about one row's memory traffic for R rows
// (transpose.h: AVX-512 byte permutes for every pixel width where the
// processor has them, else SSE2 8 x 8 blocks of one- and two-byte pixels,
// else one pixel at a time with its width compiled in).
//
// The fast path covers whole-byte depths with the byte window on pixel
// boundaries (what the row context asks for); anything else, and the other
// views, go row by row through the single-row services, so every call gives
// exactly what the same rows read or written one at a time would give.
#include "transpose.h"

#include <algorithm>
#include <cstring>

using namespace krn;
using namespace krn::bands;

namespace {

// Moves the pixels of view columns [x0, x1) of `rows` band rows between the
// band (row i at band + i * bandStride, pixel x at byte (x - xb) * E) and
// the stored picture. ToStored selects the direction.
template <int E, bool ToStored, bool KeepFourth>
void TransposeBand(const BandMap &m, uint8_t *band, size_t bandStride, int64_t rows, int64_t x0, int64_t x1,
                   int64_t xb) {
    const BandSide s{m, band, bandStride, xb, E};
#if defined(__GNUC__) && defined(__x86_64__)
    if (HasVbmi()) return TransposeBandVbmi<E, ToStored, KeepFourth>(s, rows, x0, x1);
#endif
#if defined(__SSE2__)
    if constexpr ((E == 1 || E == 2) && !KeepFourth) {
        using U = std::conditional_t<E == 1, uint8_t, uint16_t>;
        return MoveRect<E, ToStored, false>(s, MoveBlocks<E, ToStored, false>(s, 0, rows, x0, x1, Sse2Kernel<U>{}),
                                            rows, x0, x1);
    }
#endif
    MoveRect<E, ToStored, KeepFourth>(s, 0, rows, x0, x1);
}

template <bool ToStored, bool KeepFourth = false>
void TransposeAny(int bytes, const BandMap &m, uint8_t *band, size_t stride, int64_t rows, int64_t x0, int64_t x1,
                  int64_t xb) {
    switch (bytes) {
    case 1: TransposeBand<1, ToStored, false>(m, band, stride, rows, x0, x1, xb); break;
    case 2: TransposeBand<2, ToStored, false>(m, band, stride, rows, x0, x1, xb); break;
    case 3: TransposeBand<3, ToStored, false>(m, band, stride, rows, x0, x1, xb); break;
    case 4: TransposeBand<4, ToStored, KeepFourth>(m, band, stride, rows, x0, x1, xb); break;
    case 6: TransposeBand<6, ToStored, false>(m, band, stride, rows, x0, x1, xb); break;
    case 8: TransposeBand<8, ToStored, KeepFourth>(m, band, stride, rows, x0, x1, xb); break;
    }
}

// Views whose rows are stored columns, at a depth of whole bytes, with the
// byte window on pixel boundaries: the blocked path applies.
bool Banded(const BitmapDesc *b, uint32_t first, uint32_t count) {
    const int bits = b->nBitsPerPixel;
    if (!ViewIsTransposed(b->nViewPerspective) || bits % 8 != 0 || bits == 0) return false;
    const uint32_t e = uint32_t(bits / 8);
    const uint64_t rowBytes = PackedBytes(b->nWidth, bits);
    return first % e == 0 && (count % e == 0 || uint64_t(first) + count >= rowBytes);
}

int32_t CheckBandCall(const BitmapDesc *b, const void *buffer, int32_t row, int32_t rows, uint32_t count,
                      size_t stride) {
    int32_t st = KrnValidateBitmap(b);
    if (st != KRN_OK) return st;
    if (rows < 0 || row < 0 || int64_t(row) + rows > b->nHeight) return KRN_INVALID_PARAMETER;
    if (rows > 1 && stride < count) return KRN_INVALID_PARAMETER;
    if (!buffer && count && rows) return KRN_INVALID_PARAMETER;
    return KRN_OK;
}

// The pixels of one band row a put writes: [xa, xb) of the byte window, cut
// by the spans when there are any. Returns false unless they form one run.
bool SingleRun(int64_t xa, int64_t xb, const int32_t *spans, uint32_t n, int64_t &u, int64_t &v) {
    if (!spans) {
        u = xa;
        v = xb;
        return true;
    }
    u = v = 0;
    bool any = false;
    for (uint32_t k = 0; k + 1 < n; k += 2) {
        const int64_t a = std::max<int64_t>(spans[k], xa), c = std::min<int64_t>(spans[k + 1], xb);
        if (a >= c) continue;
        if (!any) {
            u = a;
            v = c;
            any = true;
        } else if (a <= v && c >= u) { // touching or overlapping runs join
            u = std::min(u, a);
            v = std::max(v, c);
        } else {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" {

RZKRN_API int32_t RZAPI KrnGetBitmapRows(const BitmapDesc *pBitmap, void *pBuffer, size_t nBufferStride,
                                         int32_t nFirstRow, int32_t nRowCount, uint32_t nFirstByte,
                                         uint32_t nByteCount) {
    const int32_t st = CheckBandCall(pBitmap, pBuffer, nFirstRow, nRowCount, nByteCount, nBufferStride);
    if (st != KRN_OK || nByteCount == 0 || nRowCount == 0) return st;
    auto *out = static_cast<uint8_t *>(pBuffer);
    const int view = pBitmap->nViewPerspective;
    if (nRowCount == 1 || !Banded(pBitmap, nFirstByte, nByteCount)) {
        for (int32_t i = 0; i < nRowCount; ++i)
            ReadViewRow(pBitmap, view, out + size_t(i) * nBufferStride, int64_t(nFirstRow) + i, nFirstByte,
                        nByteCount);
        return KRN_OK;
    }
    const int e = pBitmap->nBitsPerPixel / 8;
    const uint64_t rowBytes = PackedBytes(pBitmap->nWidth, pBitmap->nBitsPerPixel);
    const uint64_t end = std::min<uint64_t>(uint64_t(nFirstByte) + nByteCount, rowBytes);
    const int64_t x0 = nFirstByte / e, x1 = int64_t(end / uint64_t(e));
    if (x0 < x1)
        TransposeAny<false>(e, BandMap(pBitmap, view, nFirstRow), out, nBufferStride, nRowCount, x0, x1, x0);
    if (uint64_t(nFirstByte) + nByteCount > end) // bytes past the row read 0
        for (int32_t i = 0; i < nRowCount; ++i)
            std::memset(out + size_t(i) * nBufferStride + (std::max<uint64_t>(end, nFirstByte) - nFirstByte), 0,
                        size_t(uint64_t(nFirstByte) + nByteCount - std::max<uint64_t>(end, nFirstByte)));
    return KRN_OK;
}

RZKRN_API int32_t RZAPI KrnPutBitmapRows(BitmapDesc *pBitmap, const void *pBuffer, size_t nBufferStride,
                                         int32_t nFirstRow, int32_t nRowCount, uint32_t nFirstByte,
                                         uint32_t nByteCount, const int32_t *pSpans, size_t nSpanStride,
                                         const uint32_t *pSpanCounts, uint32_t uFlags) {
    const int32_t st = CheckBandCall(pBitmap, pBuffer, nFirstRow, nRowCount, nByteCount, nBufferStride);
    if (st != KRN_OK) return st;
    if (pSpans && !pSpanCounts) return KRN_INVALID_PARAMETER;
    for (int32_t i = 0; pSpans && i < nRowCount; ++i)
        if (pSpanCounts[i] & 1) return KRN_INVALID_PARAMETER;
    const auto *src = static_cast<const uint8_t *>(pBuffer);
    auto rowSpans = [&](int32_t i) { return pSpans ? pSpans + size_t(i) * nSpanStride : nullptr; };
    auto oneByOne = [&]() {
        for (int32_t i = 0; i < nRowCount; ++i)
            KrnPutBitmapRowSpans(pBitmap, src + size_t(i) * nBufferStride, nFirstRow + i, nFirstByte, nByteCount,
                                 rowSpans(i), pSpans ? pSpanCounts[i] : 0, uFlags);
        return KRN_OK;
    };
    if (nRowCount <= 1 || !Banded(pBitmap, nFirstByte, nByteCount)) return oneByOne();

    const int bits = pBitmap->nBitsPerPixel, e = bits / 8;
    const int64_t xa = nFirstByte / e;
    const int64_t xb = std::min<int64_t>(pBitmap->nWidth, int64_t((uint64_t(nFirstByte) + nByteCount) / e));
    if (xa >= xb) return KRN_OK;
    const bool keep = (uFlags & KRN_PUT_KEEP_FOURTH) && (bits == 32 || bits == 64);
    const BandMap map(pBitmap, pBitmap->nViewPerspective, nFirstRow);

    // Every row writes the same run: one rectangle moves.
    int64_t u = 0, v = 0;
    bool same = SingleRun(xa, xb, rowSpans(0), pSpans ? pSpanCounts[0] : 0, u, v);
    for (int32_t i = 1; same && i < nRowCount; ++i) {
        int64_t ui = 0, vi = 0;
        same = SingleRun(xa, xb, rowSpans(i), pSpans ? pSpanCounts[i] : 0, ui, vi) && ui == u && vi == v;
    }
    auto *band = const_cast<uint8_t *>(src);
    if (same) {
        if (u < v)
            keep ? TransposeAny<true, true>(e, map, band, nBufferStride, nRowCount, u, v, xa)
                 : TransposeAny<true>(e, map, band, nBufferStride, nRowCount, u, v, xa);
        return KRN_OK;
    }
    // Runs that differ: a chunk of the band as stored now, the written runs
    // laid over it, and the whole chunk back; unwritten pixels go back as
    // they were (a kept fourth channel is the stored one either way).
    uint8_t chunk[16384];
    const int64_t per = std::max<int64_t>(1, int64_t(sizeof chunk) / (int64_t(nRowCount) * e));
    if (per < 8) return oneByOne();
    for (int64_t c0 = xa; c0 < xb; c0 += per) {
        const int64_t c1 = std::min(xb, c0 + per);
        const size_t bytes = size_t(c1 - c0) * size_t(e);
        TransposeAny<false>(e, map, chunk, bytes, nRowCount, c0, c1, c0);
        for (int32_t i = 0; i < nRowCount; ++i) {
            const uint8_t *from = src + size_t(i) * nBufferStride;
            uint8_t *to = chunk + size_t(i) * bytes;
            auto lay = [&](int64_t a, int64_t c) {
                a = std::max(a, c0);
                c = std::min(c, c1);
                if (a < c) std::memcpy(to + (a - c0) * e, from + (a - xa) * e, size_t(c - a) * size_t(e));
            };
            if (!pSpans)
                lay(xa, xb);
            else
                for (uint32_t k = 0; k + 1 < pSpanCounts[i]; k += 2) lay(rowSpans(i)[k], rowSpans(i)[k + 1]);
        }
        keep ? TransposeAny<true, true>(e, map, chunk, bytes, nRowCount, c0, c1, c0)
             : TransposeAny<true>(e, map, chunk, bytes, nRowCount, c0, c1, c0);
    }
    return KRN_OK;
}

} // extern "C"
