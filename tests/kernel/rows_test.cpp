// Rows and bands of rows in every view and depth, on odd and long sizes, with
// byte windows and spans, against the documented layout and view table
// (kernel_ref.h) written out in the test, not the kernel's own accessors.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;
using kref::Shown;

namespace {

constexpr std::pair<int, int> kSizes[] = {{37, 19}, {9, 70}, {1, 23}, {130, 17}, {70, 1}, {5, 300}, {13, 5}, {3000, 2}};

// The view row y as the documented layout stores it, padding and a tail of zeros.
std::vector<uint8_t> ViewRow(const BitmapDesc &b, int y, size_t extra) {
    std::vector<uint8_t> row(kref::RowBytes(b.nWidth, b.nBitsPerPixel) + extra);
    for (int x = 0; x < b.nWidth; ++x) kref::Set(row.data(), b.nBitsPerPixel, x, Shown(b, x, y));
    return row;
}

// Byte windows: the whole row, one running past its end, one inside, one from the middle.
std::vector<std::pair<uint32_t, uint32_t>> Windows(uint32_t rowBytes) {
    std::vector<std::pair<uint32_t, uint32_t>> w{{0, rowBytes}, {0, rowBytes + 5}};
    if (rowBytes > 4) w.push_back({1, rowBytes - 3});
    if (rowBytes > 2) w.push_back({rowBytes / 2, rowBytes});
    return w;
}

// Bands: all rows, an inner run, the last rows.
std::vector<std::pair<int, int>> Bands(int h) {
    std::vector<std::pair<int, int>> b{{0, h}};
    if (h > 3) b.push_back({1, std::min(h - 2, 17)});
    if (h > 9) b.push_back({h - 9, 9});
    return b;
}

// Reads give the window's bytes of the documented row: bytes past the row
// and padding bits read 0, nothing is written past the window.
TEST(KernelRows, GetMatchesTheViewTableInEveryViewAndDepth) {
    std::mt19937_64 rng(3);
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : kSizes)
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh << " view " << view);
                Bitmap b = kref::Random(sw, sh, bits, rng);
                b->nColorOrder = KRN_ORDER_RGB; // raw values equal KrnGetPixel's packing
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                const uint32_t rowBytes = KrnBitmapRowBytes(b.get());
                ASSERT_EQ(rowBytes, kref::RowBytes(b->nWidth, bits));
                std::vector<std::vector<uint8_t>> want;
                for (int y = 0; y < b->nHeight; ++y) {
                    want.push_back(ViewRow(*b.get(), y, rowBytes + 8)); // room for windows past the end
                    for (int x = 0; x < b->nWidth; ++x) ASSERT_EQ(b.pixel(x, y), Shown(*b.get(), x, y));
                }
                for (auto [first, count] : Windows(rowBytes))
                    for (auto [top, rows] : Bands(b->nHeight)) {
                        const size_t stride = count + 3;
                        std::vector<uint8_t> band(stride * size_t(rows), 0xAA), one(count + 1, 0xAA);
                        ASSERT_EQ(KrnGetBitmapRows(b.get(), band.data(), stride, top, rows, first, count), KRN_OK);
                        for (int i = 0; i < rows; ++i) {
                            const std::vector<uint8_t> expect(want[size_t(top + i)].begin() + first,
                                                              want[size_t(top + i)].begin() + first + count);
                            const uint8_t *got = band.data() + size_t(i) * stride;
                            ASSERT_EQ(std::vector<uint8_t>(got, got + count), expect) << "row " << top + i;
                            ASSERT_EQ(got[count], 0xAA);
                            if (i % 5) continue; // the single-row service on some rows
                            ASSERT_EQ(KrnGetBitmapRow(b.get(), one.data(), top + i, first, count), KRN_OK);
                            ASSERT_EQ(std::vector<uint8_t>(one.begin(), one.begin() + count), expect);
                            ASSERT_EQ(one[count], 0xAA);
                        }
                    }
            }
}

// A put writes exactly the pixels wholly inside the byte window, the width
// and a span of their row, keeping the stored fourth channel when asked;
// every other pixel and the stored padding keep their bytes. Bands go
// through KrnPutBitmapRows, or row by row through KrnPutBitmapRowSpans.
TEST(KernelRows, PutWritesExactlyTheWindowSpansAndWidth) {
    std::mt19937_64 rng(8);
    int trial = 0;
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : kSizes)
            for (int view = 1; view <= 8; ++view)
                for (int spanKind = 0; spanKind < 3; ++spanKind) // none, the same run each row, varied runs
                    for (uint32_t flags : {uint32_t(KRN_PUT_NORMAL), uint32_t(KRN_PUT_KEEP_FOURTH)}) {
                        SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh << " view " << view
                                                        << " spans " << spanKind << " flags " << flags);
                        Bitmap b = kref::Random(sw, sh, bits, rng);
                        ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                        const int w = b->nWidth;
                        const uint32_t rowBytes = kref::RowBytes(w, bits);
                        const bool whole = ++trial % 3 == 0;
                        const uint32_t first = whole ? 0 : uint32_t(rng() % (rowBytes + 1));
                        const uint32_t count = whole ? rowBytes : uint32_t(rng() % (rowBytes + 3));
                        const auto bands = Bands(b->nHeight);
                        const auto [top, rows] = bands[rng() % bands.size()];
                        const size_t stride = count + 1, spanStride = 6;
                        std::vector<uint8_t> band(stride * size_t(rows));
                        for (uint8_t &v : band) v = uint8_t(rng());
                        std::vector<int32_t> spans(spanStride * size_t(rows));
                        std::vector<uint32_t> counts(size_t(rows), 0);
                        const int32_t a = int32_t(rng() % uint64_t(w)), c = int32_t(rng() % uint64_t(w + 1));
                        for (int i = 0; i < rows && spanKind > 0; ++i) {
                            int32_t *s = spans.data() + size_t(i) * spanStride;
                            if (spanKind == 1) {
                                s[0] = std::min(a, c), s[1] = std::max(a, c) + 1, counts[size_t(i)] = 2;
                                continue;
                            }
                            counts[size_t(i)] = uint32_t(rng() % 4) * 2; // some empty, some overlapping
                            for (uint32_t k = 0; k < counts[size_t(i)]; ++k) s[k] = int32_t(rng() % uint64_t(w + 2)) - 1;
                            for (uint32_t k = 0; k < counts[size_t(i)]; k += 2)
                                if (s[k] > s[k + 1]) std::swap(s[k], s[k + 1]);
                        }

                        // The model: the stored memory, changed pixel by pixel through the view table.
                        std::vector<uint8_t> model(b->pData, b->pData + size_t(b->nStride) * size_t(sh));
                        const bool keep = (flags & KRN_PUT_KEEP_FOURTH) && (bits == 32 || bits == 64);
                        const uint64_t fourth = bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
                        for (int i = 0; i < rows; ++i) {
                            std::vector<uint8_t> full(first + count + 16); // byte j of the row is full[j]
                            std::copy_n(band.data() + size_t(i) * stride, count, full.begin() + first);
                            const int32_t *s = spans.data() + size_t(i) * spanStride;
                            for (int x = 0; x < w; ++x) {
                                bool in = uint64_t(x) * bits >= uint64_t(first) * 8 &&
                                          uint64_t(x + 1) * bits <= (uint64_t(first) + count) * 8;
                                bool inSpan = spanKind == 0;
                                for (uint32_t k = 0; k < counts[size_t(i)]; k += 2) inSpan = inSpan || (x >= s[k] && x < s[k + 1]);
                                if (!in || !inSpan) continue;
                                uint64_t v = kref::Get(full.data(), bits, uint64_t(x));
                                if (keep) v = (v & ~fourth) | (Shown(*b.get(), x, top + i) & fourth);
                                int sx, sy;
                                kref::Stored(view, sw, sh, x, top + i, &sx, &sy);
                                kref::Set(model.data() + size_t(sy) * b->nStride, bits, uint64_t(sx), v);
                            }
                        }
                        if (trial % 2) {
                            ASSERT_EQ(KrnPutBitmapRows(b.get(), band.data(), stride, top, rows, first, count,
                                                       spanKind ? spans.data() : nullptr, spanStride,
                                                       spanKind ? counts.data() : nullptr, flags),
                                      KRN_OK);
                        } else {
                            for (int i = 0; i < rows; ++i)
                                ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), band.data() + size_t(i) * stride, top + i, first,
                                                               count, spanKind ? spans.data() + size_t(i) * spanStride : nullptr,
                                                               counts[size_t(i)], flags),
                                          KRN_OK);
                        }
                        ASSERT_EQ(std::vector<uint8_t>(b->pData, b->pData + model.size()), model);
                    }
}

TEST(KernelRows, RefusesRowsOutsideTheViewAndOddSpans) {
    Bitmap b = DepthBitmap(5, 7, 8);
    std::vector<uint8_t> buf(64, 9);
    const int32_t odd[3] = {0, 2, 3};
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 5, 0), KRN_OK);
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 8, 3, 3, 0, 7), KRN_INVALID_PARAMETER); // rows 3..5 of 5
    EXPECT_EQ(KrnPutBitmapRows(b.get(), buf.data(), 8, -1, 2, 0, 7, nullptr, 0, nullptr, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitmapRows(b.get(), buf.data(), 4, 0, 2, 0, 7), KRN_INVALID_PARAMETER); // rows overlap
    EXPECT_EQ(KrnGetBitmapRow(b.get(), buf.data(), 5, 0, 4), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitmapRow(b.get(), nullptr, 0, 0, 4), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(b.get(), buf.data(), 0, 0, 4, odd, 3, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(nullptr, buf.data(), 0, 0, 4, nullptr, 0, 1), KRN_NULL_POINTER);
    EXPECT_EQ(std::count(b->pData, b->pData + b->nStride * 5, 0), b->nStride * 5);
}

} // namespace
