// Rows and bands of rows in every view and depth, on odd and long sizes, with
// byte windows and spans, against the layout and view table of kernel_ref.h.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;
using kref::Shown;

namespace {

using Bytes = std::vector<uint8_t>;

struct Trial {
    uint32_t first, count; // byte window
    int top, rows;         // band
};

// The whole row on every third trial, else a window anywhere, running past the
// end; all rows, an inner run or the last rows.
Trial Pick(std::mt19937_64 &rng, uint32_t rowBytes, int h, bool whole) {
    Trial t{0, rowBytes, 0, h};
    if (!whole) t.first = rng() % (rowBytes + 1), t.count = rng() % (rowBytes + 3);
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
    Bytes band(stride * size_t(t.rows), 0xAA);
    const auto [first, count, top, rows] = t;
    if (bands) {
        ASSERT_EQ(KrnGetBitmapRows(b.get(), band.data(), stride, top, rows, first, count), 1);
    }
    for (int i = 0, y = t.top; i < t.rows; ++i, ++y) {
        uint8_t *got = band.data() + size_t(i) * stride;
        if (!bands) {
            ASSERT_EQ(KrnGetBitmapRow(b.get(), got, y, t.first, t.count), 1);
        }
        Bytes want(t.first + t.count + kref::RowBytes(b->nWidth, bits) + 1);
        for (int x = 0; x < b->nWidth; ++x) {
            kref::Set(want.data(), bits, x, Shown(b, x, y));
            ASSERT_EQ(b.pixel(x, y), Shown(b, x, y));
        }
        want[t.first + t.count] = 0xAA;
        const auto from = want.begin() + t.first;
        ASSERT_EQ(Bytes(got, got + t.count + 1), Bytes(from, from + t.count + 1));
    }
}

// A put writes exactly the pixels wholly inside its window, the width and a span
// (0 to 3 runs a row), keeping the stored fourth channel when asked.
void CheckPut(Bitmap &b, const Trial &t, bool bands, bool withSpans, uint32_t flags,
              std::mt19937_64 &rng) {
    const int bits = b->nBitsPerPixel, w = b->nWidth;
    const size_t stride = t.count + 1, ss = 6;
    Bytes band(stride * size_t(t.rows));
    for (uint8_t &v : band) v = uint8_t(rng());
    std::vector<int32_t> spans(ss * size_t(t.rows));
    std::vector<uint32_t> counts(size_t(t.rows));
    for (size_t i = 0; withSpans && i < counts.size(); ++i) {
        counts[i] = uint32_t(rng() % 4) * 2;
        int32_t *s = spans.data() + i * ss;
        for (uint32_t k = 0; k < counts[i]; ++k) s[k] = int32_t(rng() % (w + 2)) - 1;
        for (uint32_t k = 0; k < counts[i]; k += 2)
            if (s[k] > s[k + 1]) std::swap(s[k], s[k + 1]);
    }
    // The model: the stored memory, changed pixel by pixel through the view table.
    Bytes model(b->pData, b->pData + size_t(b->nStride) * b->nStoredHeight);
    const bool keep = (flags & KRN_PUT_KEEP_FOURTH) && (bits == 32 || bits == 64);
    const uint64_t fourth = bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
    for (int i = 0, y = t.top; i < t.rows; ++i, ++y) {
        Bytes row(t.first + t.count + 16);
        std::copy_n(band.data() + size_t(i) * stride, t.count, row.begin() + t.first);
        for (int x = 0; x < w; ++x) {
            bool in = uint64_t(x) * bits >= uint64_t(t.first) * 8 &&
                      uint64_t(x + 1) * bits <= (uint64_t(t.first) + t.count) * 8;
            bool inSpan = !withSpans;
            for (uint32_t k = 0; k < counts[size_t(i)]; k += 2)
                inSpan |= x >= spans[i * ss + k] && x < spans[i * ss + k + 1];
            if (!in || !inSpan) continue;
            uint64_t v = kref::Get(row.data(), bits, uint64_t(x));
            if (keep) v = (v & ~fourth) | (Shown(b, x, y) & fourth);
            int sx, sy;
            kref::Stored(b->nViewPerspective, b->nStoredWidth, b->nStoredHeight, x, y, &sx, &sy);
            kref::Set(model.data() + size_t(sy) * b->nStride, bits, uint64_t(sx), v);
        }
    }
    const int32_t *sp = withSpans ? spans.data() : nullptr;
    const uint32_t *n = withSpans ? counts.data() : nullptr;
    if (bands) {
        ASSERT_EQ(KrnPutBitmapRows(b.get(), band.data(), stride, t.top, t.rows, t.first, t.count,
                                   sp, ss, n, flags), 1);
    }
    for (int i = 0; i < t.rows && !bands; ++i)
        ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), band.data() + size_t(i) * stride, t.top + i,
                                       t.first, t.count, sp ? sp + size_t(i) * ss : nullptr,
                                       counts[size_t(i)], flags), 1);
    ASSERT_EQ(Bytes(b->pData, b->pData + model.size()), model);
}

TEST(KernelRows, GetAndPutFollowTheViewTable) {
    const std::pair<int, int> sizes[] = {{37, 19}, {9, 70}, {1, 23}, {130, 17}, {3000, 2}};
    std::mt19937_64 rng(8);
    int trial = 0;
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : sizes)
            for (int view = 1; view <= 8; ++view)
                for (int kind = 0; kind < 4; ++kind) { // spans or not, fourth kept or not
                    SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh
                                                    << " view " << view << " kind " << kind);
                    Bitmap b = kref::Random(sw, sh, bits, rng);
                    b->nColorOrder = KRN_ORDER_RGB; // raw values equal KrnGetPixel's packing
                    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, view, 0), 1);
                    const uint32_t rowBytes = kref::RowBytes(b->nWidth, bits);
                    ASSERT_EQ(KrnBitmapRowBytes(b.get()), rowBytes);
                    const bool whole = ++trial % 3 == 0, bands = trial % 2;
                    const Trial get = Pick(rng, rowBytes, b->nHeight, whole);
                    ASSERT_NO_FATAL_FAILURE(CheckGet(b, get, bands));
                    const uint32_t flags = kind % 2 ? KRN_PUT_KEEP_FOURTH : KRN_PUT_NORMAL;
                    const Trial put = Pick(rng, rowBytes, b->nHeight, whole);
                    ASSERT_NO_FATAL_FAILURE(CheckPut(b, put, bands, kind / 2, flags, rng));
                }
}

} // namespace
