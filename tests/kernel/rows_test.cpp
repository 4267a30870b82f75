// Row services in every view and depth, checked against the documented
// layout and view table (kernel_ref.h), not the kernel's own accessors.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <tuple>

using kref::Bitmap;
using kref::Shown;

namespace {

// Padding bits of the last byte of a row of width pixels.
uint8_t PadMask(int width, int bits) {
    const int used = int(uint64_t(width) * bits % 8);
    return used == 0 ? 0 : bits == 12 ? 0xF0 : uint8_t(0xFF >> used);
}

TEST(KernelRows, GetMatchesTheViewTableInEveryViewAndDepth) {
    std::mt19937_64 rng(11);
    for (int bits : kref::kDepths)
        for (auto [w, h] : {std::pair{1, 6}, {6, 1}, {13, 5}, {8, 3}})
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << w << "x" << h << " view " << view);
                Bitmap b(w, h, bits);
                b->nColorOrder = KRN_ORDER_RGB; // raw values equal KrnGetPixel's packing
                kref::Fill(b.d, rng);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                const uint32_t rowBytes = KrnBitmapRowBytes(b.get());
                ASSERT_EQ(rowBytes, kref::RowBytes(b->nWidth, bits));
                std::vector<uint8_t> row(rowBytes + 8);
                for (int y = 0; y < b->nHeight; ++y) {
                    std::fill(row.begin(), row.end(), 0xAA);
                    ASSERT_EQ(KrnGetBitmapRow(b.get(), row.data(), y, 0, rowBytes + 8), KRN_OK);
                    for (int x = 0; x < b->nWidth; ++x) {
                        uint64_t pixel = 0;
                        ASSERT_EQ(KrnGetPixel(b.get(), x, y, &pixel), KRN_OK);
                        ASSERT_EQ(kref::Get(row.data(), bits, x), Shown(b.d, x, y)) << "x " << x << " y " << y;
                        ASSERT_EQ(pixel, Shown(b.d, x, y));
                    }
                    // Bytes past the row, and padding bits in its last byte, read 0.
                    for (uint32_t i = rowBytes; i < rowBytes + 8; ++i)
                        ASSERT_EQ(row[i], 0);
                    ASSERT_EQ(row[rowBytes - 1] & PadMask(b->nWidth, bits), 0);
                }
            }
}

// Rows longer than the kernel's staging chunk, in a mirrored and a transposed view.
TEST(KernelRows, LongRowsInGatheredViews) {
    std::mt19937_64 rng(5);
    for (int bits : {3, 12, 64})
        for (auto [w, h, view] : {std::tuple{3000, 3, 2}, {3, 3000, 7}}) {
            Bitmap b(w, h, bits);
            kref::Fill(b.d, rng);
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
            std::vector<uint8_t> row(KrnBitmapRowBytes(b.get()));
            for (int y = 0; y < 3; ++y) {
                ASSERT_EQ(KrnGetBitmapRow(b.get(), row.data(), y, 0, uint32_t(row.size())), KRN_OK);
                for (int x = 0; x < 3000; ++x)
                    ASSERT_EQ(kref::Get(row.data(), bits, x), Shown(b.d, x, y));
            }
        }
}

// A put writes exactly the pixels wholly inside the byte window, the width
// and the spans; every other pixel, and the stored padding, keeps its value.
TEST(KernelRows, PutIsPixelExactWithWindowsAndSpans) {
    std::mt19937_64 rng(21);
    for (int bits : kref::kDepths)
        for (auto [sw, sh] : {std::pair{13, 5}, {6, 1}, {1, 4}})
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << sw << "x" << sh << " view " << view);
                Bitmap b(sw, sh, bits);
                kref::Fill(b.d, rng);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0), KRN_OK);
                const int w = b->nWidth, h = b->nHeight;
                const uint32_t rowBytes = KrnBitmapRowBytes(b.get());
                for (int trial = 0; trial < 12; ++trial) {
                    const int y = int(rng() % h);
                    const uint32_t first = uint32_t(rng() % (rowBytes + 1)), count = uint32_t(rng() % (rowBytes + 3));
                    // The buffer as a full row: byte i of the row is buf[i - first].
                    std::vector<uint8_t> full(first + count + 16);
                    for (uint32_t i = first; i < first + count; ++i)
                        full[i] = uint8_t(rng());
                    std::vector<int32_t> spans;
                    const bool useSpans = trial % 3 != 0;
                    for (int x = -2; useSpans && x < w + 2; x += 1 + int(rng() % 4))
                        spans.push_back(x);
                    if (spans.size() % 2)
                        spans.pop_back();
                    std::vector<uint64_t> before;
                    for (int yy = 0; yy < h; ++yy)
                        for (int x = 0; x < w; ++x)
                            before.push_back(Shown(b.d, x, yy));
                    ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), full.data() + first, y, first, count,
                                                   useSpans ? spans.data() : nullptr, uint32_t(spans.size()),
                                                   KRN_PUT_NORMAL), KRN_OK);
                    for (int yy = 0; yy < h; ++yy)
                        for (int x = 0; x < w; ++x) {
                            bool in = yy == y && uint64_t(x) * bits >= uint64_t(first) * 8 &&
                                      uint64_t(x + 1) * bits <= (uint64_t(first) + count) * 8;
                            bool inSpan = !useSpans;
                            for (size_t i = 0; i + 1 < spans.size(); i += 2)
                                inSpan = inSpan || (x >= spans[i] && x < spans[i + 1]);
                            ASSERT_EQ(Shown(b.d, x, yy), in && inSpan ? kref::Get(full.data(), bits, x)
                                                                      : before[size_t(yy) * w + x])
                                << "x " << x << " y " << yy << " first " << first << " count " << count;
                        }
                }
                const uint32_t storedBytes = kref::RowBytes(b->nStoredWidth, bits);
                for (int sy = 0; sy < b->nStoredHeight; ++sy) {
                    const uint8_t *r = b->pData + size_t(sy) * b->nStride;
                    for (uint32_t i = storedBytes; i < b->nStride; ++i)
                        ASSERT_EQ(r[i], 0);
                    ASSERT_EQ(r[storedBytes - 1] & PadMask(b->nStoredWidth, bits), 0);
                }
            }
}

TEST(KernelRows, KeepFourthKeepsTheStoredFourthChannel) {
    std::mt19937_64 rng(3);
    for (int bits : {32, 64})
        for (int view : {1, 4, 6}) {
            Bitmap b(5, 3, bits);
            kref::Fill(b.d, rng);
            KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0);
            const uint64_t fourth = bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
            std::vector<uint64_t> old;
            for (int x = 0; x < b->nWidth; ++x)
                old.push_back(Shown(b.d, x, 1));
            std::vector<uint8_t> buf(KrnBitmapRowBytes(b.get()));
            for (auto &c : buf)
                c = uint8_t(rng());
            for (int32_t flags : {KRN_PUT_KEEP_FOURTH, KRN_PUT_NORMAL}) {
                ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf.data(), 1, 0, uint32_t(buf.size()), nullptr, 0, flags),
                          KRN_OK);
                const uint64_t keep = flags == KRN_PUT_KEEP_FOURTH ? fourth : 0;
                for (int x = 0; x < b->nWidth; ++x)
                    EXPECT_EQ(Shown(b.d, x, 1), (old[x] & keep) | (kref::Get(buf.data(), bits, x) & ~keep));
            }
        }
}

TEST(KernelRows, RejectsBadArguments) {
    Bitmap b(4, 4, 8);
    uint8_t buf[4] = {1, 2, 3, 4};
    const int32_t odd[3] = {0, 2, 3}, wide[2] = {-100, 100};
    EXPECT_EQ(KrnGetBitmapRow(b.get(), buf, 4, 0, 4), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitmapRow(b.get(), nullptr, 0, 0, 4), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 0, 0, 4, odd, 3, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(nullptr, buf, 0, 0, 4, nullptr, 0, 1), KRN_NULL_POINTER);
    ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 0, 0, 4, odd, 0, 1), KRN_OK); // no spans: nothing written
    EXPECT_EQ(b->pData[0], 0);
    ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 0, 0, 4, wide, 2, 1), KRN_OK); // clipped to the row
    EXPECT_EQ(b->pData[3], 4);
    EXPECT_EQ(b->pData[4], 0);
}

} // namespace
