// The table engine: a table acts on a palette, on a display table, or on the
// samples row by row. Short tables (at most 256 entries) are applied to 8-bit
// working samples through a byte table copied from their low bytes; 16-bit
// grey takes the high byte and widens the result by 257. Long tables index
// 16-bit working samples directly.
#include "tone/table_engine.h"

#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"

#include <array>
#include <cstdlib>
#include <cstring>

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#include <immintrin.h>
#endif

namespace rz {

uint32_t TableSize(const BitmapDesc *bmp) {
    const int32_t bits = bmp->nBitsPerPixel;
    if (bits >= 48) return 65536;
    if (bmp->nColorOrder == KRN_ORDER_GRAY) {
        if (bmp->pLUT && (bmp->uFlags & BMF_USE_LUT)) return bmp->nLUTLength;
        if (bits > 0 && bits <= 16) return 1u << bits;
    }
    return 256;
}

int32_t MulDiv(int32_t x, int32_t y, int32_t z) {
    if (z == 0) return -1;
    const int64_t p = static_cast<int64_t>(x) * y;
    const int64_t ap = std::llabs(p), az = std::llabs(static_cast<int64_t>(z));
    const int64_t q = (ap + az / 2) / az;
    return static_cast<int32_t>(((p < 0) != (z < 0)) ? -q : q);
}

// Byte samples, the plain loop: eight lookups are gathered into one word
// before the store (a byte-at-a-time loop gets vectorised into a
// store/reload stall on every 16 bytes).
void MapTableBytesPlain(uint8_t *p, int32_t count, const uint8_t *t) {
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        uint64_t v;
        std::memcpy(&v, p + i, 8);
        const uint64_t o = uint64_t(t[v & 0xFF]) | uint64_t(t[(v >> 8) & 0xFF]) << 8 |
                           uint64_t(t[(v >> 16) & 0xFF]) << 16 | uint64_t(t[(v >> 24) & 0xFF]) << 24 |
                           uint64_t(t[(v >> 32) & 0xFF]) << 32 | uint64_t(t[(v >> 40) & 0xFF]) << 40 |
                           uint64_t(t[(v >> 48) & 0xFF]) << 48 | uint64_t(t[v >> 56]) << 56;
        std::memcpy(p + i, &o, 8);
    }
    for (; i < count; ++i) p[i] = t[p[i]];
}

namespace {

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
// The 256 table bytes in four 64-byte registers: each sample picks its entry
// from the low or the high half (two-register byte permutes on its low 7
// bits), by its top bit. 64 samples take five instructions.
#define RZ_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))
struct Table64x4 {
    __m512i t0, t1, t2, t3;
};

RZ_VBMI inline __attribute__((always_inline)) __m512i Lookup64(const Table64x4 &t, __m512i v) {
    const __m512i lo = _mm512_permutex2var_epi8(t.t0, v, t.t1);
    const __m512i hi = _mm512_permutex2var_epi8(t.t2, v, t.t3);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(v), lo, hi);
}

RZ_VBMI void MapBytesVbmi(uint8_t *p, int32_t count, const uint8_t *table) {
    const Table64x4 t{_mm512_loadu_si512(table), _mm512_loadu_si512(table + 64), _mm512_loadu_si512(table + 128),
                      _mm512_loadu_si512(table + 192)};
    int32_t i = 0;
    for (; i + 64 <= count; i += 64) _mm512_storeu_si512(p + i, Lookup64(t, _mm512_loadu_si512(p + i)));
    if (i < count) {
        const __mmask64 k = ~uint64_t(0) >> (64 - (count - i));
        _mm512_mask_storeu_epi8(p + i, k, Lookup64(t, _mm512_maskz_loadu_epi8(k, p + i)));
    }
}
#undef RZ_VBMI

using MapBytesFn = void (*)(uint8_t *, int32_t, const uint8_t *);
MapBytesFn ChooseMapBytes() {
    if (__builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512bw")) return MapBytesVbmi;
    return MapTableBytesPlain;
}
#endif

} // namespace

void MapTableBytes(uint8_t *p, int32_t count, const uint8_t *table) {
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
    static const MapBytesFn map = ChooseMapBytes();
    map(p, count, table);
#else
    MapTableBytesPlain(p, count, table);
#endif
}

namespace {

// Palette or display-table entries: the channel picks which bytes change.
void MapEntries(RzRGBQuad *e, uint32_t count, const uint32_t *table, uint32_t channel) {
    for (uint32_t i = 0; i < count; ++i) {
        if (channel == 0 || channel == 1) e[i].rgbRed = static_cast<uint8_t>(table[e[i].rgbRed]);
        if (channel == 0 || channel == 2) e[i].rgbGreen = static_cast<uint8_t>(table[e[i].rgbGreen]);
        if (channel == 0 || channel == 3) e[i].rgbBlue = static_cast<uint8_t>(table[e[i].rgbBlue]);
    }
}

int32_t TwoReports(int32_t start, int32_t end) {
    void *user = nullptr;
    const RZSTATUSCALLBACK cb = KrnGetStatusCallback(&user);
    if (!cb) return 1;
    const int32_t r = cb(start, user);
    if (r != 1) return r;
    return cb(end, user);
}

int32_t ApplyToPalette(BitmapDesc *bmp, const uint32_t *table, uint32_t channel, int32_t start, int32_t end) {
    const int32_t colors = bmp->nColors;
    if (colors < 0 || colors > 256) return ST_NO_BITMAP;
    RzRGBQuad pal[256];
    if (colors > 0 && KrnGetBitmapPalette(bmp, 0, colors, pal) != colors) return ST_NO_BITMAP;
    MapEntries(pal, static_cast<uint32_t>(colors), table, channel);
    if (colors > 0) {
        const int32_t st = KrnSetBitmapPalette(bmp, 0, colors, pal);
        if (st != 1) return st;
    }
    const int32_t r = TwoReports(start, end);
    if (r == 1) KrnBitmapChanged(bmp);
    return r;
}

void MapChannel(uint8_t *p, int32_t pixels, int32_t offset, const uint8_t *t) {
    for (int32_t i = 0; i < pixels; ++i) p[3 * i + offset] = t[p[3 * i + offset]];
}

void MapGrey16(uint16_t *p, int32_t count, const uint16_t *t) {
    for (int32_t i = 0; i < count; ++i) p[i] = t[p[i] >> 8];
}

template <int Step>
void MapWords(uint16_t *p, int32_t pixels, int32_t offset, const uint16_t *table) {
    for (int32_t i = 0; i < pixels; ++i) {
        uint16_t &s = p[Step * i + offset];
        s = table[s];
    }
}

void MapWords12(uint16_t *p, int32_t count, const uint16_t *table) {
    for (int32_t i = 0; i < count; ++i) p[i] = static_cast<uint16_t>(table[p[i] >> 4] << 4);
}

} // namespace

int32_t ApplyShortTableToPixels(BitmapDesc *bmp, const uint32_t *table, uint32_t channel, int32_t start,
                                int32_t end) {
    uint32_t mode = RC_DEEP_AS_24 | (channel != 0 ? RC_GRAY_AS_COLOR : 0u);
    // 8-bit grey samples would be widened to words, mapped by their high byte
    // and narrowed again: the byte format gives the same result in one pass.
    if (channel == 0 && bmp->nBitsPerPixel == 8 && bmp->nColorOrder == KRN_ORDER_GRAY) mode |= RC_WORK8;
    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, mode, st);
    if (st == ST_NOTHING_TO_DO) return ReportDone(bmp);
    if (st != 1) return st;
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    KrnPtr<int32_t[]> spans(AllocSpanBuffer(ctx.get()));
    if (!row || !spans) return ST_FAILURE;

    std::array<uint8_t, 256> t8{};
    std::array<uint16_t, 256> t16{};
    for (int i = 0; i < 256; ++i) {
        t8[i] = static_cast<uint8_t>(table[i]);
        t16[i] = static_cast<uint16_t>(t8[i] * 257);
    }
    const bool grey16 = channel == 0 && bmp->nColorOrder == KRN_ORDER_GRAY && ctx->nWorkBits == WORK_16;
    const int32_t channels = ContextChannels(ctx.get());
    const int32_t offset = channel == 0 ? 0 : static_cast<int32_t>(3 - channel);

    st = BeginProgress(ctx.get(), start, end);
    if (st != 1) return st;
    for (int32_t y = ctx->rcWork.top; y < ctx->rcWork.bottom; ++y) {
        uint32_t n = 0;
        st = GetRow(ctx.get(), row.get(), y, spans.get(), &n);
        if (st != 1) return st;
        for (uint32_t k = 0; k + 1 < n; k += 2) {
            const int32_t x0 = spans[k], x1 = spans[k + 1];
            if (grey16)
                MapGrey16(reinterpret_cast<uint16_t *>(row.get()) + x0, x1 - x0, t16.data());
            else if (channel != 0)
                MapChannel(row.get() + 3 * x0, x1 - x0, offset, t8.data());
            else
                MapTableBytes(row.get() + channels * x0, channels * (x1 - x0), t8.data());
        }
        st = PutRow(ctx.get(), row.get(), y, spans.get(), n);
        if (st != 1) return st;
    }
    KrnBitmapChanged(bmp);
    return 1;
}

int32_t ApplyShortTable(BitmapDesc *bmp, const uint32_t *table, uint32_t channel, int32_t start, int32_t end) {
    if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    if (channel > 3 || !table) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    if (bmp->nBitsPerPixel <= 8 && bmp->nDataKind == 0) return ApplyToPalette(bmp, table, channel, start, end);
    if (bmp->nColorOrder == KRN_ORDER_GRAY && bmp->pLUT && (bmp->uFlags & BMF_USE_LUT)) {
        if (bmp->nDataKind != 0) {
            const int32_t st = KrnApplyBitmapLUT(bmp, bmp->nBitsPerPixel);
            if (st != 1) return st;
            return ApplyShortTableToPixels(bmp, table, channel, start, end);
        }
        MapEntries(bmp->pLUT, bmp->nLUTLength, table, channel);
        const int32_t r = TwoReports(start, end);
        if (r == 1) KrnBitmapChanged(bmp);
        return r;
    }
    return ApplyShortTableToPixels(bmp, table, channel, start, end);
}

int32_t ApplyLongTable(BitmapDesc *bmp, const uint32_t *table, uint32_t n, uint32_t channel, int32_t start,
                       int32_t end) {
    if (!bmp || !(bmp->uFlags & BMF_ALLOCATED)) return ST_NO_BITMAP;
    if (channel > 3 || !table) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    const int32_t bits = bmp->nBitsPerPixel;
    const bool grey = bmp->nColorOrder == KRN_ORDER_GRAY;
    if (bits < 48 && !grey) return ST_INVALID_PARAMETER;
    if (bits >= 48 && n != 65536) return ST_INVALID_PARAMETER;
    if (grey && bits == 16 && n != 65536) return ST_INVALID_PARAMETER;
    if (grey && bits == 12 && n != 4096) return ST_INVALID_PARAMETER;
    if (bits < 48 && bits != 12 && bits != 16) return ST_INVALID_PARAMETER;
    if (grey) channel = 0;

    int32_t st = 0;
    RowContextPtr ctx = MakeRowContext(bmp, RC_WHOLE_BITMAP, st);
    if (st != 1) return st;
    KrnPtr<uint8_t[]> row(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    // Only the low 16 bits of an entry count: half the cache footprint.
    KrnPtr<uint16_t[]> words = KrnArray<uint16_t>(n);
    if (!row || !words) return ST_FAILURE;
    for (uint32_t i = 0; i < n; ++i) words[i] = static_cast<uint16_t>(table[i]);
    const int32_t channels = ContextChannels(ctx.get());
    const int32_t offset = channel == 0 ? 0 : static_cast<int32_t>((3 - channel) % 3);
    const int32_t width = ctx->nWorkWidth;
    auto *samples = reinterpret_cast<uint16_t *>(row.get());

    st = BeginProgress(ctx.get(), start, end);
    if (st != 1) return st;
    for (int32_t y = 0; y < bmp->nHeight; ++y) {
        st = GetRow(ctx.get(), row.get(), y, nullptr, nullptr);
        if (st != 1) return st;
        if (grey && bits == 12)
            MapWords12(samples, width, words.get());
        else if (channel != 0)
            MapWords<3>(samples, width, offset, words.get());
        else
            MapWords<1>(samples, channels * width, 0, words.get());
        st = PutRow(ctx.get(), row.get(), y, nullptr, 0);
        if (st != 1) return st;
    }
    KrnBitmapChanged(bmp);
    return 1;
}

int32_t ApplyTable(BitmapDesc *bmp, const uint32_t *table, uint32_t n, uint32_t channel, int32_t start,
                   int32_t end) {
    if (n < 256 && table && n > 0) {
        // Samples reach the engine on the 8-bit scale; a shorter table (a
        // low-depth grey bitmap) is read at the matching level and its
        // results widened back to that scale.
        uint32_t wide[256];
        for (uint32_t i = 0; i < 256; ++i)
            wide[i] = n == 1 ? 0 : (table[i * n / 256] & 0xFFFF) * 255 / (n - 1);
        return ApplyShortTable(bmp, wide, channel, start, end);
    }
    if (n <= 256) return ApplyShortTable(bmp, table, channel, start, end);
    return ApplyLongTable(bmp, table, n, channel, start, end);
}

int32_t MakeTableSigned(uint32_t *table, uint32_t n) {
    if (!table || n == 0) return ST_INVALID_PARAMETER;
    KrnPtr<uint32_t[]> out = KrnArray<uint32_t>(n);
    if (!out) return ST_FAILURE;
    const int64_t half = n / 2;
    for (uint32_t i = 0; i < n; ++i) {
        int64_t v = static_cast<int64_t>(table[i]) - half;
        if (v < 0) v += n;
        const uint32_t at = static_cast<uint32_t>(((static_cast<int64_t>(i) - half) % n + n) % n);
        out[at] = static_cast<uint32_t>(v);
    }
    std::memcpy(table, out.get(), sizeof(uint32_t) * n);
    return 1;
}

} // namespace rz
