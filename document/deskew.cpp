// Skew detection and deskew by shear correlation. The page is compared with
// itself displaced L pixels to the right and s rows down, for every s in
// -n..n: the score of s sums, over the row pairs (y, y + s) with y from n to
// nHeight - 1 - n, the products of the samples (x, y) and (x + L, y + s).
// Text lines tilted by atan(s / L) line up with themselves at that shift, so
// the best (smoothed) score gives the slope. Every shift sums the same rows,
// so a white margin cannot favour one shift. Rows are streamed through a
// ring of |s| + 1 rows, never a second copy of the page; 1-bit rows are
// scored a byte (eight pixels) at a time through a bit-count table, all
// others as 8-bit grey levels with integer products.
//
// The pre-filtered path measures a black-and-white copy whose text has been
// grown by a rank filter into solid line-shaped blobs, which keeps glyph
// details from voting; the caller's page is the one rotated.
#include "filters/filter_rows.h"
#include "frame/kmem.h"
#include "frame/progress.h"
#include "frame/status.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace rz {
namespace {

constexpr double kPi = 3.1415926535;

enum : uint32_t {
    kMeasureOnly = 0x1,
    kFillMask = 0xF0,
    kFillFromPage = 0x10,
    kSkipMask = 0xF00,
    kQualityMask = 0xF000,
    kPathMask = 0xF0000,
};

int32_t CheckFlags(uint32_t flags) {
    if ((flags & 0xF) > 1) return ST_INVALID_PARAMETER;
    if ((flags & kFillMask) != 0 && (flags & kFillMask) != kFillFromPage) return ST_INVALID_PARAMETER;
    return ST_SUCCESS;
}

int32_t QualityCode(uint32_t flags) {
    switch (flags & kQualityMask) {
    case 0x1000: return KRN_ROTATE_BILINEAR;
    case 0x2000: return KRN_ROTATE_BICUBIC;
    default: return KRN_ROTATE_NEAREST;
    }
}

inline uint32_t Weight(uint32_t r, uint32_t g, uint32_t b) { return (b + 5 * g + 2 * r + 4) >> 3; }

// A bitmap descriptor of the library's own, freed with its pixels.
struct OwnedDesc {
    KrnPtr<BitmapDesc> d{static_cast<BitmapDesc *>(KrnMemAllocZeroed(sizeof(BitmapDesc), 1))};
    bool live = false;
    ~OwnedDesc() {
        if (live) KrnFreeBitmap(d.get());
    }
    BitmapDesc *get() { return d.get(); }
};

// Progress of the driver: p maps to offset + p / divisor.
struct Scale {
    int32_t divisor = 1, offset = 0;
    int32_t at(int32_t p) const { return offset + p / divisor; }
};

// While the kernel works, its percentages 0..100 are shown as start..end.
class MappedCallback {
  public:
    MappedCallback(int32_t start, int32_t end) : start_(start), end_(end) {
        KrnSetStatusCallback(nullptr, nullptr, &cb_, &user_);
        KrnSetStatusCallback(cb_ ? &Forward : nullptr, this, nullptr, nullptr);
    }
    ~MappedCallback() { KrnSetStatusCallback(cb_, user_, nullptr, nullptr); }
    MappedCallback(const MappedCallback &) = delete;
    MappedCallback &operator=(const MappedCallback &) = delete;

  private:
    static int32_t RZAPI Forward(int32_t p, void *self) {
        auto *m = static_cast<MappedCallback *>(self);
        const int32_t q = m->start_ + (m->end_ - m->start_) * std::clamp(p, 0, 100) / 100;
        if (q == m->last_) return 1;
        m->last_ = q;
        return m->cb_(q, m->user_);
    }
    RZSTATUSCALLBACK cb_ = nullptr;
    void *user_ = nullptr;
    int32_t start_, end_, last_ = -1;
};

int32_t Report(int32_t percent) {
    void *user = nullptr;
    const RZSTATUSCALLBACK cb = KrnGetStatusCallback(&user);
    return cb ? cb(percent, user) : ST_SUCCESS;
}

// --- What a page is measured in --------------------------------------------

// Rows as the score needs them: 1-bit rows packed with the lighter colour as
// 1, every other depth as one 8-bit grey level a pixel.
class RowReader {
  public:
    int32_t open(const BitmapDesc *b) {
        b_ = b;
        bits_ = b->nBitsPerPixel;
        width_ = b->nWidth;
        rowBytes_ = KrnBitmapRowBytes(b);
        raw_ = KrnArray<uint8_t>(size_t(rowBytes_) + 8);
        if (!raw_) return ST_FAILURE;
        const bool greyOrder = b->nColorOrder == KRN_ORDER_GRAY;
        if (bits_ <= 8) {
            const uint32_t count = 1u << bits_;
            if (greyOrder) {
                for (uint32_t v = 0; v < count; ++v) grey_[v] = uint8_t((v * 255 + (count - 1) / 2) / (count - 1));
                lighterIsOne_ = true;
            } else {
                RzRGBQuad pal[256] = {};
                if (!b->pPalette || b->nColors < 1 || KrnGetBitmapPalette(b, 0, b->nColors, pal) != b->nColors)
                    return ST_NO_BITMAP;
                for (uint32_t v = 0; v < count; ++v) grey_[v] = uint8_t(Weight(pal[v].rgbRed, pal[v].rgbGreen, pal[v].rgbBlue));
                lighterIsOne_ = !(grey_[0] > grey_[1]);
            }
        } else if (bits_ == 12 || bits_ == 16) {
            uint32_t count = 0, mask = 0, shift = 0;
            RZ_RETURN_IF_FAILED(KrnGetBitRange(bits_, bits_, b->nLowBit, b->nHighBit, &count, &mask, &shift));
            deepShift_ = shift;
            deepMask_ = mask;
            // Significant value to grey level: through the display table when
            // the bitmap is shown through one, else its top eight bits.
            deepTable_ = KrnArray<uint8_t>(size_t(mask) + 1);
            if (!deepTable_) return ST_FAILURE;
            const bool lut = greyOrder && (b->uFlags & BMF_USE_LUT) && b->pLUT && b->nLUTLength > 0;
            for (uint32_t v = 0; v <= mask; ++v) {
                if (lut) {
                    const RzRGBQuad &e = b->pLUT[std::min<uint32_t>(v, b->nLUTLength - 1)];
                    deepTable_[v] = uint8_t(Weight(e.rgbRed, e.rgbGreen, e.rgbBlue));
                } else {
                    deepTable_[v] = uint8_t(count >= 8 ? v >> (count - 8) : v * 255 / mask);
                }
            }
        }
        return ST_SUCCESS;
    }

    bool packed() const { return bits_ == 1; }
    // Bytes a scored row holds.
    uint32_t scoredBytes() const { return packed() ? rowBytes_ : uint32_t(width_); }

    int32_t read(int32_t y, uint8_t *out) {
        const bool direct = packed() || (bits_ == 8 && b_->nColorOrder == KRN_ORDER_GRAY);
        uint8_t *dst = direct ? out : raw_.get();
        RZ_RETURN_IF_FAILED(KrnGetBitmapRow(b_, dst, y, 0, rowBytes_));
        if (packed()) {
            if (!lighterIsOne_)
                for (uint32_t i = 0; i < rowBytes_; ++i) out[i] = uint8_t(~out[i]);
            return ST_SUCCESS;
        }
        if (direct) return ST_SUCCESS;
        const uint8_t *p = raw_.get();
        const int64_t w = width_;
        switch (bits_) {
        case 2: for (int64_t x = 0; x < w; ++x) out[x] = grey_[(p[x >> 2] >> (6 - 2 * (x & 3))) & 3]; break;
        case 4: for (int64_t x = 0; x < w; ++x) out[x] = grey_[(p[x >> 1] >> (x & 1 ? 0 : 4)) & 15]; break;
        case 8: for (int64_t x = 0; x < w; ++x) out[x] = grey_[p[x]]; break;
        case 12:
            for (int64_t x = 0; x < w; ++x) {
                const uint8_t *q = p + (x >> 1) * 3;
                const uint32_t v = x & 1 ? (q[1] | q[2] << 8) >> 4 : (q[0] | q[1] << 8) & 0xFFF;
                out[x] = deepTable_[(v >> deepShift_) & deepMask_];
            }
            break;
        case 16:
            for (int64_t x = 0; x < w; ++x) out[x] = deepTable_[((p[2 * x] | p[2 * x + 1] << 8) >> deepShift_) & deepMask_];
            break;
        case 24: case 32: Colour<uint8_t>(p, out, bits_ / 8); break;
        case 48: case 64: Colour<uint16_t>(p, out, bits_ / 16); break;
        default: // 3, 5, 6, 7 bits
            for (int64_t x = 0; x < w; ++x) {
                const int64_t bit = x * bits_;
                const uint32_t pair = uint32_t(p[bit >> 3]) << 8 | p[(bit >> 3) + 1];
                out[x] = grey_[(pair >> (16 - bits_ - (bit & 7))) & ((1u << bits_) - 1)];
            }
        }
        return ST_SUCCESS;
    }

  private:
    // First three channels p0, p1, p2 in memory order; 16-bit ones by their
    // high byte.
    template <class S> void Colour(const uint8_t *p, uint8_t *out, int channels) const {
        const bool blueFirst = b_->nColorOrder == KRN_ORDER_BGR;
        for (int64_t x = 0; x < width_; ++x) {
            uint32_t c[3];
            for (int k = 0; k < 3; ++k) {
                const uint8_t *q = p + (x * channels + k) * sizeof(S);
                c[k] = sizeof(S) == 2 ? q[1] : q[0];
            }
            out[x] = uint8_t(blueFirst ? (c[0] + 5 * c[1] + 2 * c[2] + 4) >> 3 : (2 * c[0] + 5 * c[1] + c[2] + 4) >> 3);
        }
    }

    const BitmapDesc *b_ = nullptr;
    int32_t bits_ = 0, width_ = 0;
    uint32_t rowBytes_ = 0;
    KrnPtr<uint8_t[]> raw_, deepTable_;
    uint8_t grey_[256] = {};
    uint32_t deepShift_ = 0, deepMask_ = 0;
    bool lighterIsOne_ = true;
};

// Pairs of lighter pixels: row a from x = 0 against row b from x = L (b
// already moved left by L bits and zero past the last pixel that exists).
// The count is the one a 256-entry bit-count table gives byte by byte,
// taken eight bytes at a time with the processor's population count.
template <class F> RZ_FORCE_INLINE uint32_t CountWords(const uint64_t *a, const uint64_t *b, size_t words, F count) {
    uint32_t sum = 0;
    for (size_t i = 0; i < words; ++i) sum += uint32_t(count(a[i] & b[i]));
    return sum;
}

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
__attribute__((target("avx512f,avx512vl,avx512bw,avx512vpopcntdq,popcnt,prefer-vector-width=512"))) uint32_t
PairCountWide(const uint64_t *a, const uint64_t *b, size_t words) {
    return CountWords(a, b, words, [](uint64_t v) { return __builtin_popcountll(v); });
}
__attribute__((target("popcnt"))) uint32_t PairCountPopcnt(const uint64_t *a, const uint64_t *b, size_t words) {
    return CountWords(a, b, words, [](uint64_t v) { return __builtin_popcountll(v); });
}
uint32_t PairCount(const uint64_t *a, const uint64_t *b, size_t words) {
    static const int level = __builtin_cpu_supports("avx512vpopcntdq") && __builtin_cpu_supports("avx512bw") ? 2
                             : __builtin_cpu_supports("popcnt")                                             ? 1
                                                                                                            : 0;
    if (level == 2) return PairCountWide(a, b, words);
    if (level == 1) return PairCountPopcnt(a, b, words);
    return CountWords(a, b, words, [](uint64_t v) { return std::popcount(v); });
}
#else
uint32_t PairCount(const uint64_t *a, const uint64_t *b, size_t words) {
    return CountWords(a, b, words, [](uint64_t v) { return std::popcount(v); });
}
#endif

RZ_FORCE_INLINE uint32_t PairProducts(const uint8_t *__restrict a, const uint8_t *__restrict b, uint32_t count) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < count; ++i) sum += uint32_t(a[i]) * b[i];
    return sum;
}

// The shear-correlation scores of shifts -n..n. The sums are those of
// streaming the rows once per shift; they are gathered row by row instead,
// every shift of a row at once from a ring of the 2n + 1 rows a row meets,
// so each row is read and prepared once.
int32_t Score(const BitmapDesc *b, int32_t n, int32_t L, ProgressState &progress, uint32_t *scores) {
    RowReader reader;
    RZ_RETURN_IF_FAILED(reader.open(b));
    const int32_t W = b->nWidth, H = b->nHeight;
    const bool packed = reader.packed();
    const uint32_t rowBytes = reader.scoredBytes();
    const uint32_t span = uint32_t(std::max(W - L, 0));
    const uint32_t spanBytes = packed ? (span + 7) / 8 : span;
    const size_t words = (size_t(spanBytes) + 7) / 8;
    // Each slot: the row, and (1-bit) the row moved left by L pixels.
    const size_t rowSlot = (size_t(rowBytes) + 64) & ~size_t(63);
    const size_t slotBytes = rowSlot * (packed ? 2 : 1);
    const int32_t slots = 2 * n + 1;
    KrnPtr<uint64_t[]> ring = KrnArrayZeroed<uint64_t>(KrnCheckedSize(slotBytes / 8, size_t(slots), 1));
    if (!ring) return ST_FAILURE;
    const uint8_t lastMask = span % 8 ? uint8_t(0xFF << (8 - span % 8)) : 0xFF;
    const uint32_t byteShift = uint32_t(L) / 8, bitShift = uint32_t(L) % 8;
    auto slot = [&](int32_t row) { return reinterpret_cast<uint8_t *>(ring.get()) + size_t(row % slots) * slotBytes; };
    auto load = [&](int32_t row) -> int32_t {
        uint8_t *p = slot(row);
        RZ_RETURN_IF_FAILED(reader.read(row, p));
        if (packed) {
            uint8_t *moved = p + rowSlot;
            for (uint32_t i = 0; i < spanBytes; ++i) {
                const uint32_t hi = p[i + byteShift], lo = i + byteShift + 1 < rowBytes ? p[i + byteShift + 1] : 0;
                moved[i] = uint8_t(bitShift ? (hi << bitShift | lo >> (8 - bitShift)) : hi);
            }
            if (spanBytes) moved[spanBytes - 1] &= lastMask;
        }
        return ST_SUCCESS;
    };

    std::fill(scores, scores + slots, 0u);
    for (int32_t r = 0; r < std::min(2 * n, H); ++r) RZ_RETURN_IF_FAILED(load(r));
    for (int32_t y = n; y <= H - 1 - n; ++y) {
        RZ_RETURN_IF_FAILED(load(y + n));
        const uint8_t *a = slot(y);
        for (int32_t s = -n; s <= n; ++s) {
            const uint8_t *c = slot(y + s);
            if (packed) {
                scores[s + n] += PairCount(reinterpret_cast<const uint64_t *>(a),
                                           reinterpret_cast<const uint64_t *>(c + rowSlot), words);
            } else {
                uint32_t sum = 0;
                filt::Vectorised([&]() RZ_LAMBDA_INLINE { sum = PairProducts(a, c + L, span); });
                scores[s + n] += sum / 65025u;
            }
        }
        for (int32_t k = 0; k < slots; ++k) RZ_RETURN_IF_FAILED(StepDistribution(&progress));
    }
    return ST_SUCCESS;
}

// --- The common driver ----------------------------------------------------------

struct Search {
    int32_t n, L;
};

// Smoothed scores to an angle in hundredths of a degree (in the view's rows:
// positive when lines fall to the right), or 0 when no shift stands out.
int32_t BestAngle(const uint32_t *scores, int32_t n, int32_t L) {
    const int32_t count = 2 * n + 1;
    uint32_t best = 0, lowest = std::numeric_limits<uint32_t>::max();
    int32_t at = 0;
    for (int32_t i = 0; i < count; ++i) {
        const uint64_t sum = uint64_t(scores[std::max(i - 1, 0)]) + scores[i] + scores[std::min(i + 1, count - 1)];
        const uint32_t smooth = uint32_t(sum / 3);
        if (i == 0 || smooth > best) {
            best = smooth;
            at = i;
        }
        lowest = std::min(lowest, smooth);
    }
    if (lowest == best) return 0; // a blank or uniform page: nothing to measure
    const double degrees = std::atan(double(at - n) / double(L)) * (180.0 / kPi);
    return int32_t(degrees * 100.0);
}

// Measures `b` (or a copy scaled up to the search's size) into *angle.
int32_t Measure(BitmapDesc *b, const Search &q, int32_t start, int32_t end, int32_t *angle) {
    *angle = 0;
    KrnPtr<uint32_t[]> scores = KrnArrayZeroed<uint32_t>(size_t(2 * int64_t(q.n) + 1));
    if (!scores) return ST_FAILURE;
    const int64_t W = b->nWidth, H = b->nHeight;
    if (W < 1 || H < 1) return Report(end);
    OwnedDesc scaled;
    const BitmapDesc *page = b;
    if (!(W >= 4 * int64_t(q.L) && H >= 15 * int64_t(q.n))) {
        if (!scaled.get()) return ST_FAILURE;
        int64_t h = 15 * int64_t(q.n), w = W * h / H;
        if (w < 4 * int64_t(q.L)) {
            w = 4 * int64_t(q.L);
            h = H * w / W;
        }
        if (w > INT32_MAX || h > INT32_MAX) return ST_INVALID_PARAMETER;
        CallbackSilencer quiet;
        RZ_RETURN_IF_FAILED(KrnCopyBitmap(scaled.get(), b, BITMAPDESC_SIZE));
        scaled.live = true;
        RZ_RETURN_IF_FAILED(KrnResizeBitmap(scaled.get(), int32_t(w), int32_t(h), KRN_RESIZE_BILINEAR));
        page = scaled.get();
    }
    const int64_t rows = std::max<int64_t>(int64_t(page->nHeight) - 2 * int64_t(q.n), 0);
    const uint64_t steps = uint64_t(rows) * uint64_t(2 * int64_t(q.n) + 1);
    ProgressState progress;
    RZ_RETURN_IF_FAILED(BeginDistribution(&progress, start, end, uint32_t(std::min<uint64_t>(steps, UINT32_MAX))));
    if (steps > UINT32_MAX) progress.nSteps = 0; // too many to count: report the ends only
    RZ_RETURN_IF_FAILED(Score(page, q.n, q.L, progress, scores.get()));
    if (progress.pfnStatus && progress.nPercent != end) RZ_RETURN_IF_FAILED(Report(end));
    *angle = BestAngle(scores.get(), q.n, q.L);
    return ST_SUCCESS;
}

// Most frequent grey level of the page, first on ties, as a grey colour.
int32_t PageFill(const BitmapDesc *b, uint32_t *fill) {
    KrnPtr<uint32_t[]> hist = KrnArray<uint32_t>(256);
    if (!hist) return ST_FAILURE;
    RZ_RETURN_IF_FAILED(KrnGetBitmapHistogram(b, hist.get()));
    uint32_t best = 0;
    for (uint32_t v = 1; v < 256; ++v)
        if (hist[v] > hist[best]) best = v;
    *fill = best | best << 8 | best << 16;
    return ST_SUCCESS;
}

// 1-bit pages turn as 8-bit grey and are thresholded back at 200, the
// lighter palette entry taking the light pixels.
int32_t RotateOneBit(BitmapDesc *b, int32_t angle, uint32_t fill, int32_t quality, int32_t start) {
    OwnedDesc grey;
    if (!grey.get()) return ST_FAILURE;
    {
        CallbackSilencer quiet;
        RZ_RETURN_IF_FAILED(KrnConvertBitmap(grey.get(), b, BITMAPDESC_SIZE, 8, KRN_ORDER_GRAY, 0, 0));
        grey.live = true;
    }
    BitmapDesc *g = grey.get();
    {
        MappedCallback mapped(start, 100);
        RZ_RETURN_IF_FAILED(KrnRotateBitmap(g, angle, g->nWidth * 0.5, g->nHeight * 0.5, fill, quality));
    }
    {
        CallbackSilencer quiet;
        RZ_RETURN_IF_FAILED(Rz_IntensityDetectBitmap(g, 200, 255, 0xFFFFFF, 0, 0));
    }
    RzRGBQuad pal[2] = {};
    KrnGetBitmapPalette(b, 0, 2, pal);
    const bool lighterIsOne = b->nColorOrder == KRN_ORDER_GRAY || b->nColors < 2 ||
                              !(Weight(pal[0].rgbRed, pal[0].rgbGreen, pal[0].rgbBlue) >
                                Weight(pal[1].rgbRed, pal[1].rgbGreen, pal[1].rgbBlue));
    const uint32_t rowBytes = KrnBitmapRowBytes(b);
    KrnPtr<uint8_t[]> in = KrnArray<uint8_t>(size_t(g->nWidth) + 8), out = KrnArray<uint8_t>(size_t(rowBytes) + 8);
    if (!in || !out) return ST_FAILURE;
    // Every row is thresholded before the first is written: nothing fails
    // after the page starts to change but the kernel's own row writes.
    for (int32_t y = 0; y < b->nHeight; ++y) {
        RZ_RETURN_IF_FAILED(KrnGetBitmapRow(g, in.get(), y, 0, uint32_t(g->nWidth)));
        std::memset(out.get(), 0, rowBytes);
        for (int32_t x = 0; x < b->nWidth; ++x)
            if ((in[x] != 0) == lighterIsOne) out[x >> 3] |= uint8_t(0x80 >> (x & 7));
        RZ_RETURN_IF_FAILED(KrnPutBitmapRowSpans(b, out.get(), y, 0, rowBytes, nullptr, 0, KRN_PUT_NORMAL));
    }
    return ST_SUCCESS;
}

int32_t Rotate(BitmapDesc *b, int32_t rawAngle, int32_t shownAngle, uint32_t crBack, uint32_t flags,
               const Scale &scale) {
    const double tilt = std::fabs(std::tan(shownAngle * kPi / 18000.0)) * b->nWidth / std::max(b->nHeight, 1);
    if (((flags & kSkipMask) && tilt <= 0.005) || rawAngle == 0) return Report(scale.at(100));
    // The rotation that straightens the lines as the view shows them.
    const int32_t turn = -rawAngle;
    uint32_t fill = crBack;
    int32_t start = scale.at(34);
    if ((flags & kFillMask) == kFillFromPage) {
        RZ_RETURN_IF_FAILED(Report(scale.at(34)));
        RZ_RETURN_IF_FAILED(PageFill(b, &fill));
        RZ_RETURN_IF_FAILED(Report(scale.at(66)));
        start = scale.at(67);
    }
    const int32_t quality = QualityCode(flags);
    if (b->nBitsPerPixel == 1) RZ_RETURN_IF_FAILED(RotateOneBit(b, turn, fill, quality, start));
    else {
        MappedCallback mapped(start, scale.at(100));
        RZ_RETURN_IF_FAILED(KrnRotateBitmap(b, turn, b->nWidth * 0.5, b->nHeight * 0.5, fill, quality));
    }
    KrnBitmapChanged(b);
    return ST_SUCCESS;
}

int32_t Driver(BitmapDesc *measured, BitmapDesc *rotated, int32_t *pnAngle, uint32_t crBack, uint32_t flags,
               const Search &q, const Scale &scale) {
    RZ_RETURN_IF_FAILED(CheckBitmap(measured, Signed::Refused));
    RZ_RETURN_IF_FAILED(CheckFlags(flags));
    const bool measureOnly = (flags & 0xF) == kMeasureOnly;
    int32_t raw = 0;
    RZ_RETURN_IF_FAILED(Measure(measured, q, scale.at(0), scale.at(measureOnly ? 100 : 33), &raw));
    const int32_t view = measured->nViewPerspective;
    const bool flip = view == 1 || view == 2 || view == 6 || view == 8;
    const int32_t shown = flip ? -raw : raw;
    if (pnAngle) *pnAngle = shown;
    if (measureOnly) return ST_SUCCESS;
    return Rotate(rotated, raw, shown, crBack, flags, scale);
}

// A page the measurement can read: pixels, and a palette where one is needed.
int32_t CheckPage(const BitmapDesc *b) {
    RZ_RETURN_IF_FAILED(CheckAddressable(b));
    if (b->nBitsPerPixel <= 8 && b->nColorOrder != KRN_ORDER_GRAY) {
        RzRGBQuad pal[256];
        if (!b->pPalette || b->nColors < 1 || KrnGetBitmapPalette(b, 0, b->nColors, pal) != b->nColors)
            return ST_NO_BITMAP;
    }
    return ST_SUCCESS;
}

int32_t Prefiltered(BitmapDesc *b, int32_t *pnAngle, uint32_t crBack, uint32_t flags, const Search &q) {
    OwnedDesc copy;
    if (!copy.get()) return ST_FAILURE;
    BitmapDesc *c = copy.get();
    {
        CallbackSilencer quiet;
        RZ_RETURN_IF_FAILED(KrnConvertBitmap(c, b, BITMAPDESC_SIZE, 8, KRN_ORDER_GRAY, 0, 0));
        copy.live = true;
        RZ_RETURN_IF_FAILED(Rz_IntensityDetectBitmap(c, 128, 255, 0xFFFFFF, 0, 0));
        KrnPtr<uint32_t[]> hist = KrnArray<uint32_t>(256);
        if (!hist) return ST_FAILURE;
        RZ_RETURN_IF_FAILED(KrnGetBitmapHistogram(c, hist.get()));
        const uint64_t total = uint64_t(hist[0]) + hist[255];
        const int64_t blackPm = total ? int64_t(uint64_t(hist[0]) * 1000 / total) : 0;
        const int64_t whitePm = total ? int64_t(uint64_t(hist[255]) * 1000 / total) : 0;
        const double diagonal = std::trunc(std::sqrt(double(c->nWidth) * c->nWidth + double(c->nHeight) * c->nHeight));
        const int64_t size1 = std::clamp<int64_t>(int64_t(diagonal / 1200 * 15), 5, 15);
        const int64_t size2 = std::clamp<int64_t>((1000 - std::min(blackPm, whitePm)) * size1 / 900, 5, 15);
        RZ_RETURN_IF_FAILED(blackPm > whitePm ? Rz_MaxFilterBitmap(c, uint32_t(size2))
                                              : Rz_MinFilterBitmap(c, uint32_t(size2)));
    }
    return Driver(c, b, pnAngle, crBack, flags, q, Scale{});
}

int32_t Deskew(BitmapDesc *b, int32_t *pnAngle, uint32_t crBack, uint32_t flags, const Search &q, bool direct) {
    RZ_RETURN_IF_FAILED(CheckPage(b));
    return direct ? Driver(b, b, pnAngle, crBack, flags, q, Scale{}) : Prefiltered(b, pnAngle, crBack, flags, q);
}

// The search of the Ext export: range in hundredths, resolution in tenths.
// A step whose tangent is 0 (a multiple of 180 degrees) has no base length.
int32_t ExtSearch(const BitmapDesc *b, uint32_t range, uint32_t resolution, Search *q) {
    const double w = b->nWidth, h = b->nHeight;
    const uint32_t a1 = uint32_t(std::atan2(w, h) * 18000.0 / kPi), a2 = uint32_t(std::atan2(h, w) * 18000.0 / kPi);
    const uint32_t aMax = std::min(a1, a2);
    const double rangeRad = std::min(aMax, range) * kPi / 18000.0;
    const double resRad = resolution * kPi / 1800.0;
    const double base = std::ceil(1.0 / std::fabs(std::tan(resRad)));
    if (!(base <= 1e6)) return ST_INVALID_PARAMETER;
    const int32_t L = int32_t(base);
    *q = Search{int32_t(std::ceil(std::fabs(std::tan(rangeRad)) * L)), L};
    return ST_SUCCESS;
}

} // namespace
} // namespace rz

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_DeskewBitmap(BitmapDesc *pBitmap, int32_t *pnAngle, uint32_t crBack,
                                        uint32_t uDeskewFlags) {
    return Guard([&]() -> int32_t {
        RZ_RETURN_IF_FAILED(CheckBitmap(pBitmap, Signed::Refused));
        RZ_RETURN_IF_FAILED(CheckFlags(uDeskewFlags));
        if (pBitmap->nHighBit == -1) pBitmap->nHighBit = pBitmap->nBitsPerPixel - 1;
        return Deskew(pBitmap, pnAngle, crBack, uDeskewFlags, Search{46, 256}, (uDeskewFlags & kPathMask) == 0);
    });
}

RZIMG_API int32_t RZAPI Rz_DeskewBitmapExt(BitmapDesc *pBitmap, int32_t *pnAngle, uint32_t nAngleRange,
                                           uint32_t nAngleResolution, uint32_t crBack, uint32_t uDeskewFlags) {
    return Guard([&]() -> int32_t {
        RZ_RETURN_IF_FAILED(CheckBitmap(pBitmap, Signed::Refused));
        RZ_RETURN_IF_FAILED(CheckFlags(uDeskewFlags));
        if (nAngleRange > 4500 || nAngleResolution > nAngleRange || nAngleResolution == 0)
            return ST_INVALID_PARAMETER;
        Search q{};
        RZ_RETURN_IF_FAILED(ExtSearch(pBitmap, nAngleRange, nAngleResolution, &q));
        return Deskew(pBitmap, pnAngle, crBack, uDeskewFlags, q, (uDeskewFlags & kPathMask) != 0);
    });
}

} // extern "C"
