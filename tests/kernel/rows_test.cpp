// Rows and bands of rows in every view and depth, on odd and long sizes, with
// byte windows and spans, against the layout and view table of kernel_ref.h.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;
using kref::Shown;

namespace {

constexpr std::pair<int, int> kSizes[] = {{37, 19}, {9, 70}, {1, 23}, {130, 17},
                                          {70, 1},  {5, 300}, {3000, 2}};

struct Trial {
    uint32_t first, count; // byte window
    int top, rows;         // band
};

// The whole row on every third trial, else a window anywhere, running past the
// end; all rows, an inner run or the last rows.
Trial Pick(std::mt19937_64 &rng, uint32_t rowBytes, int h, bool whole) {
    Trial t{0, rowBytes, 0, h};
    if (!whole) t.first = uint32_t(rng() % (rowBytes + 1)), t.count = uint32_t(rng() % (rowBytes + 3));
    const int band = int(rng() % 3);
    if (band == 1 && h > 3) t.top = 1, t.rows = std::min(h - 2, 17);
    if (band == 2 && h > 9) t.top = h - 9, t.rows = 9;
    return t;
}

// Reads give the window's bytes of the view row (0 past its end) and write
// nothing past the window.
void CheckGet(const Bitmap &b, const Trial &t, bool bands) {
    const size_t stride = t.count + 1;
    const int bits = b->nBitsPerPixel;
    std::vector<uint8_t> band(stride * size_t(t.rows), 0xAA);
    if (bands) {
        ASSERT_EQ(KrnGetBitmapRows(b.get(), band.data(), stride, t.top, t.rows, t.first, t.count), 1);
    }
    for (int i = 0; i < t.rows; ++i) {
        uint8_t *got = band.data() + size_t(i) * stride;
        if (!bands) {
            ASSERT_EQ(KrnGetBitmapRow(b.get(), got, t.top + i, t.first, t.count), 1);
        }
        std::vector<uint8_t> want(t.first + t.count + kref::RowBytes(b->nWidth, bits) + 8);
        for (int x = 0; x < b->nWidth; ++x) {
            kref::Set(want.data(), bits, x, Shown(*b.get(), x, t.top + i));
            ASSERT_EQ(b.pixel(x, t.top + i), Shown(*b.get(), x, t.top + i));
        }
        ASSERT_EQ(std::vector<uint8_t>(got, got + t.count),
                  std::vector<uint8_t>(want.begin() + t.first, want.begin() + t.first + t.count));
        ASSERT_EQ(got[t.count], 0xAA);
    }
}

// A put writes exactly the pixels wholly inside its window, the width and a
// span of their row, keeping the stored fourth channel when asked; every other
// stored byte stays. spanKind: none, the same run each row, varied runs.
void CheckPut(Bitmap &b, const Trial &t, bool bands, int spanKind, uint32_t flags,
              std::mt19937_64 &rng) {
    const int bits = b->nBitsPerPixel, w = b->nWidth;
    const size_t stride = t.count + 1, sstride = 6;
    std::vector<uint8_t> band(stride * size_t(t.rows));
    for (uint8_t &v : band) v = uint8_t(rng());
    std::vector<int32_t> spans(sstride * size_t(t.rows));
    std::vector<uint32_t> counts(size_t(t.rows), spanKind == 1 ? 2 : 0);
    const int32_t a = int32_t(rng() % uint64_t(w)), c = int32_t(rng() % uint64_t(w + 1));
    for (int i = 0; i < t.rows && spanKind > 0; ++i) {
        int32_t *s = spans.data() + size_t(i) * sstride;
        if (spanKind == 2) counts[size_t(i)] = uint32_t(rng() % 4) * 2; // some empty, some overlapping
        for (uint32_t k = 0; k < counts[size_t(i)]; ++k)
            s[k] = spanKind == 1 ? (k ? std::max(a, c) + 1 : std::min(a, c)) : int32_t(rng() % (w + 2)) - 1;
        for (uint32_t k = 0; k < counts[size_t(i)]; k += 2)
            if (s[k] > s[k + 1]) std::swap(s[k], s[k + 1]);
    }
    // The model: the stored memory, changed pixel by pixel through the view table.
    std::vector<uint8_t> model(b->pData, b->pData + size_t(b->nStride) * b->nStoredHeight);
    const bool keep = (flags & KRN_PUT_KEEP_FOURTH) && (bits == 32 || bits == 64);
    const uint64_t fourth = bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
    for (int i = 0; i < t.rows; ++i) {
        std::vector<uint8_t> full(t.first + t.count + 16); // byte j of the row is full[j]
        std::copy_n(band.data() + size_t(i) * stride, t.count, full.begin() + t.first);
        const int32_t *s = spans.data() + size_t(i) * sstride;
        for (int x = 0; x < w; ++x) {
            bool in = uint64_t(x) * bits >= uint64_t(t.first) * 8 &&
                      uint64_t(x + 1) * bits <= (uint64_t(t.first) + t.count) * 8;
            bool inSpan = spanKind == 0;
            for (uint32_t k = 0; k < counts[size_t(i)]; k += 2) inSpan |= x >= s[k] && x < s[k + 1];
            if (!in || !inSpan) continue;
            uint64_t v = kref::Get(full.data(), bits, uint64_t(x));
            if (keep) v = (v & ~fourth) | (Shown(*b.get(), x, t.top + i) & fourth);
            int sx, sy;
            kref::Stored(b->nViewPerspective, b->nStoredWidth, b->nStoredHeight, x, t.top + i, &sx, &sy);
            kref::Set(model.data() + size_t(sy) * b->nStride, bits, uint64_t(sx), v);
        }
    }
    const int32_t *sp = spanKind ? spans.data() : nullptr;
    if (bands) {
        ASSERT_EQ(KrnPutBitmapRows(b.get(), band.data(), stride, t.top, t.rows, t.first, t.count, sp,
                                   sstride, spanKind ? counts.data() : nullptr, flags), 1);
    }
    for (int i = 0; i < t.rows && !bands; ++i)
        ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), band.data() + size_t(i) * stride, t.top + i, t.first,
                                       t.count, sp ? sp + size_t(i) * sstride : nullptr,
                                       counts[size_t(i)], flags), 1);
    ASSERT_EQ(std::vector<uint8_t>(b->pData, b->pData + model.size()), model);
}

TEST(KernelRows, GetAndPutFollowTheViewTable) {
    std::mt19937_64 rng(8);
    int trial = 0;
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : kSizes)
            for (int view = 1; view <= 8; ++view)
                for (int spans = 0; spans < 6; ++spans) {
                    SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh << " view "
                                                    << view << " spans " << spans);
                    Bitmap b = kref::Random(sw, sh, bits, rng);
                    b->nColorOrder = KRN_ORDER_RGB; // raw values equal KrnGetPixel's packing
                    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), 1);
                    const uint32_t rowBytes = kref::RowBytes(b->nWidth, bits);
                    ASSERT_EQ(KrnBitmapRowBytes(b.get()), rowBytes);
                    const bool whole = ++trial % 3 == 0, bands = trial % 2;
                    CheckGet(b, Pick(rng, rowBytes, b->nHeight, whole), bands);
                    const uint32_t flags = spans % 2 ? KRN_PUT_KEEP_FOURTH : KRN_PUT_NORMAL;
                    CheckPut(b, Pick(rng, rowBytes, b->nHeight, whole), bands, spans / 2, flags, rng);
                }
}

TEST(KernelRows, RefusesRowsOutsideTheViewAndOddSpans) {
    Bitmap b = kref::DepthBitmap(5, 7, 8);
    std::vector<uint8_t> buf(64, 9);
    const int32_t odd[3] = {0, 2, 3};
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 5, 0), KRN_OK);
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 8, 3, 3, 0, 7), KRN_INVALID_PARAMETER); // 3..5 of 5
    EXPECT_EQ(KrnPutBitmapRows(b.get(), buf.data(), 8, -1, 2, 0, 7, nullptr, 0, nullptr, 1), -13);
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 4, 0, 2, 0, 7), KRN_INVALID_PARAMETER); // overlap
    EXPECT_EQ(KrnPutBitmapRowSpans(b.get(), buf.data(), 0, 0, 4, odd, 3, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(std::count(b->pData, b->pData + b->nStride * 5, 0), b->nStride * 5);
}

} // namespace
