// Bands of rows: in every view and depth, on odd sizes, byte windows and
// spans, a band gives and takes exactly what single pixels do (KrnGetPixel,
// KrnSetPixel) and what the single-row services do row by row.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <tuple>

using kref::Bitmap;

namespace {

constexpr std::pair<int, int> kSizes[] = {{37, 19}, {9, 70}, {1, 23}, {130, 17}, {70, 1}, {5, 300}};

// Bytes after which the packing repeats: windows start on such a boundary.
int Period(int bits) {
    int p = 1;
    while (p * 8 % bits) ++p;
    return p;
}

struct Window {
    uint32_t first, count;
};

// The whole row, a window inside it, and one running past its end.
std::vector<Window> Windows(uint32_t rowBytes, int bits) {
    const uint32_t p = uint32_t(Period(bits));
    std::vector<Window> w{{0, rowBytes}, {0, rowBytes + 5}};
    if (rowBytes > 4 * p) w.push_back({p, rowBytes - 3 * p});
    if (rowBytes > 2 * p) w.push_back({rowBytes / p / 2 * p, rowBytes + 2});
    return w;
}

// Bands: all rows, an inner run, the last rows.
std::vector<std::pair<int, int>> Bands(int h) {
    std::vector<std::pair<int, int>> b{{0, h}};
    if (h > 3) b.push_back({1, std::min(h - 2, 17)});
    if (h > 9) b.push_back({h - 9, 9});
    return b;
}

TEST(KernelBands, GetRowsMatchesPixelsAndSingleRows) {
    std::mt19937_64 rng(3);
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : kSizes)
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh << " view " << view);
                Bitmap b(sw, sh, bits);
                b->nColorOrder = KRN_ORDER_RGB;
                kref::Fill(b.d, rng);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                const uint32_t rowBytes = kref::RowBytes(b->nWidth, bits);
                for (const Window &w : Windows(rowBytes, bits))
                    for (auto [top, rows] : Bands(b->nHeight)) {
                        const size_t stride = w.count + 3;
                        std::vector<uint8_t> band(stride * size_t(rows), 0xAA), one(w.count);
                        ASSERT_EQ(KrnGetBitmapRows(b.get(), band.data(), stride, top, rows, w.first, w.count),
                                  KRN_OK);
                        for (int i = 0; i < rows; ++i) {
                            const uint8_t *got = band.data() + size_t(i) * stride;
                            ASSERT_EQ(KrnGetBitmapRow(b.get(), one.data(), top + i, w.first, w.count), KRN_OK);
                            ASSERT_EQ(std::vector<uint8_t>(got, got + w.count), one) << "row " << top + i;
                            ASSERT_EQ(got[w.count], 0xAA); // nothing past the window
                            const int x0 = int(uint64_t(w.first) * 8 / unsigned(bits));
                            for (int x = x0; x < b->nWidth && uint64_t(x + 1) * bits <= uint64_t(w.first + w.count) * 8;
                                 ++x) {
                                uint64_t pixel = 0;
                                ASSERT_EQ(KrnGetPixel(b.get(), x, top + i, &pixel), KRN_OK);
                                ASSERT_EQ(kref::Get(got, bits, uint64_t(x - x0)), pixel) << "x " << x;
                            }
                        }
                    }
            }
}

// Spans of one band row: none, the same run for every row, or runs that
// differ from row to row (some empty, some overlapping).
enum class SpanKind { None, Same, Varied };

TEST(KernelBands, PutRowsWritesExactlyWhatPixelPutsWrite) {
    std::mt19937_64 rng(8);
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : kSizes)
            for (int view = 1; view <= 8; ++view)
                for (SpanKind kind : {SpanKind::None, SpanKind::Same, SpanKind::Varied})
                    for (uint32_t flags : {uint32_t(KRN_PUT_NORMAL), uint32_t(KRN_PUT_KEEP_FOURTH)}) {
                        SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh << " view " << view
                                                        << " spans " << int(kind) << " flags " << flags);
                        Bitmap got(sw, sh, bits), want(sw, sh, bits);
                        got->nColorOrder = want->nColorOrder = KRN_ORDER_RGB;
                        kref::Fill(got.d, rng);
                        std::memcpy(want->pData, got->pData, size_t(got->nStride) * size_t(sh));
                        for (Bitmap *b : {&got, &want})
                            ASSERT_EQ(KrnChangeViewPerspective(nullptr, b->get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                        const int w = got->nWidth;
                        const uint32_t rowBytes = kref::RowBytes(w, bits);
                        const std::vector<Window> windows = Windows(rowBytes, bits);
                        const Window win = windows[rng() % windows.size()];
                        const auto bands = Bands(got->nHeight);
                        const auto [top, rows] = bands[rng() % bands.size()];

                        const size_t stride = win.count + 1;
                        std::vector<uint8_t> band(stride * size_t(rows));
                        for (uint8_t &v : band) v = uint8_t(rng());
                        const size_t spanStride = 6;
                        std::vector<int32_t> spans(spanStride * size_t(rows));
                        std::vector<uint32_t> counts(static_cast<size_t>(rows));
                        const int32_t a = int32_t(rng() % uint64_t(w)), c = int32_t(rng() % uint64_t(w + 1));
                        for (int i = 0; i < rows; ++i) {
                            int32_t *s = spans.data() + size_t(i) * spanStride;
                            if (kind == SpanKind::Same) {
                                s[0] = std::min(a, c), s[1] = std::max(a, c) + 1, counts[size_t(i)] = 2;
                            } else {
                                counts[size_t(i)] = uint32_t(rng() % 4) * 2;
                                for (uint32_t k = 0; k < counts[size_t(i)]; ++k) s[k] = int32_t(rng() % uint64_t(w + 2)) - 1;
                                for (uint32_t k = 0; k < counts[size_t(i)]; k += 2)
                                    if (s[k] > s[k + 1]) std::swap(s[k], s[k + 1]);
                            }
                        }
                        const bool withSpans = kind != SpanKind::None;
                        ASSERT_EQ(KrnPutBitmapRows(got.get(), band.data(), stride, top, rows, win.first, win.count,
                                                   withSpans ? spans.data() : nullptr, spanStride, withSpans ? counts.data() : nullptr, flags),
                                  KRN_OK);

                        // The reference: each pixel wholly in the window, the width and a span, one at a time.
                        const int x0 = int(uint64_t(win.first) * 8 / unsigned(bits));
                        const bool keep = (flags & KRN_PUT_KEEP_FOURTH) && (bits == 32 || bits == 64);
                        const uint64_t fourth = bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
                        for (int i = 0; i < rows; ++i)
                            for (int x = x0; x < w && uint64_t(x + 1) * bits <= uint64_t(win.first + win.count) * 8; ++x) {
                                const int32_t *s = spans.data() + size_t(i) * spanStride;
                                bool in = !withSpans;
                                for (uint32_t k = 0; withSpans && k < counts[size_t(i)]; k += 2)
                                    in = in || (x >= s[k] && x < s[k + 1]);
                                if (!in) continue;
                                uint64_t v = kref::Get(band.data() + size_t(i) * stride, bits, uint64_t(x - x0));
                                if (keep) {
                                    uint64_t old = 0;
                                    ASSERT_EQ(KrnGetPixel(want.get(), x, top + i, &old), KRN_OK);
                                    v = (v & ~fourth) | (old & fourth);
                                }
                                ASSERT_EQ(KrnSetPixel(want.get(), x, top + i, v), KRN_OK);
                            }
                        ASSERT_EQ(std::memcmp(got->pData, want->pData, size_t(got->nStride) * size_t(sh)), 0);
                    }
}

TEST(KernelBands, RowsOutsideTheViewAreRefused) {
    Bitmap b(5, 7, 8);
    std::vector<uint8_t> buf(64);
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 5, 0), KRN_OK);
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 8, 3, 3, 0, 7), KRN_INVALID_PARAMETER); // rows 3..5 of 5
    EXPECT_EQ(KrnPutBitmapRows(b.get(), buf.data(), 8, -1, 2, 0, 7, nullptr, 0, nullptr, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 4, 0, 2, 0, 7), KRN_INVALID_PARAMETER); // rows overlap
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 8, 0, 5, 0, 7), KRN_OK);
}

} // namespace
