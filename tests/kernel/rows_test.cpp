// Row services in every view and depth, checked against the documented
// layout and view table (kernel_ref.h), not the kernel's own accessors.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;

namespace {

struct Shape {
    int w, h;
};
const Shape kShapes[] = {{1, 1}, {1, 6}, {6, 1}, {13, 5}, {8, 3}};

// Stored value shown at view (x, y) of b in its current view.
uint64_t Shown(const BitmapDesc &b, int x, int y) {
    int sx, sy;
    kref::Stored(b.nViewPerspective, b.nStoredWidth, b.nStoredHeight, x, y, &sx, &sy);
    return kref::StoredPixel(b, sx, sy);
}

TEST(KernelRows, GetMatchesTheViewTableInEveryViewAndDepth) {
    std::mt19937_64 rng(11);
    for (int bits : kref::kDepths)
        for (Shape s : kShapes)
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << s.w << "x" << s.h << " view " << view);
                Bitmap b(s.w, s.h, bits);
                b->nColorOrder = KRN_ORDER_RGB; // raw values equal KrnGetPixel's packing
                kref::Fill(b.d, rng);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, view, 0), KRN_OK);
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
                    const int used = int(uint64_t(b->nWidth) * bits % 8);
                    if (used) {
                        ASSERT_EQ(row[rowBytes - 1] & (bits == 12 ? 0xF0 : 0xFF >> used), 0);
                    }
                    // Any byte window returns the same bytes.
                    for (uint32_t first = 0; first < rowBytes + 2; first += 1 + first / 2) {
                        uint8_t part[16];
                        uint32_t count = std::min<uint32_t>(sizeof part, 1 + (first % 5));
                        ASSERT_EQ(KrnGetBitmapRow(b.get(), part, y, first, count), KRN_OK);
                        for (uint32_t i = 0; i < count; ++i)
                            ASSERT_EQ(part[i], first + i < rowBytes + 8 ? row[first + i] : 0);
                    }
                }
                uint8_t dummy[4];
                EXPECT_EQ(KrnGetBitmapRow(b.get(), dummy, -1, 0, 4), KRN_INVALID_PARAMETER);
                EXPECT_EQ(KrnGetBitmapRow(b.get(), dummy, b->nHeight, 0, 4), KRN_INVALID_PARAMETER);
                EXPECT_EQ(KrnGetBitmapRow(b.get(), nullptr, 0, 0, 4), KRN_INVALID_PARAMETER);
            }
}

// Rows longer than the kernel's staging chunk, in a mirrored and a
// transposed view.
TEST(KernelRows, LongRowsInGatheredViews) {
    std::mt19937_64 rng(5);
    for (int bits : {3, 12, 64}) {
        Bitmap b(3000, 3, bits);
        kref::Fill(b.d, rng);
        Bitmap t(3, 3000, bits);
        kref::Fill(t.d, rng);
        for (auto [bm, view] : {std::pair{&b, 2}, {&t, 7}}) {
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, bm->get(), 164, view, 0), KRN_OK);
            std::vector<uint8_t> row(KrnBitmapRowBytes(bm->get()));
            for (int y = 0; y < 3; ++y) {
                ASSERT_EQ(KrnGetBitmapRow(bm->get(), row.data(), y, 0, uint32_t(row.size())), KRN_OK);
                for (int x = 0; x < 3000; ++x)
                    ASSERT_EQ(kref::Get(row.data(), bits, x), Shown(bm->d, x, y));
                // Put a shifted row back and read it through the layout.
                std::vector<uint8_t> next(row.size());
                for (int x = 0; x < 3000; ++x)
                    kref::Set(next.data(), bits, x, kref::Get(row.data(), bits, (x + 1) % 3000));
                ASSERT_EQ(KrnPutBitmapRowSpans(bm->get(), next.data(), y, 0, uint32_t(next.size()), nullptr, 0,
                                               KRN_PUT_NORMAL),
                          KRN_OK);
                for (int x = 0; x < 3000; ++x)
                    ASSERT_EQ(Shown(bm->d, x, y), kref::Get(row.data(), bits, (x + 1) % 3000));
            }
        }
    }
}

// A put writes exactly the pixels wholly inside the byte window, inside the
// width and inside the spans; every other pixel keeps its value.
TEST(KernelRows, PutIsPixelExactWithWindowsAndSpans) {
    std::mt19937_64 rng(21);
    for (int bits : kref::kDepths)
        for (Shape s : {Shape{13, 5}, Shape{6, 1}, Shape{1, 4}})
            for (int view = 1; view <= 8; ++view) {
                SCOPED_TRACE(testing::Message() << bits << " bits " << s.w << "x" << s.h << " view " << view);
                Bitmap b(s.w, s.h, bits);
                kref::Fill(b.d, rng);
                ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, view, 0), KRN_OK);
                const int w = b->nWidth;
                const uint32_t rowBytes = KrnBitmapRowBytes(b.get());
                for (int trial = 0; trial < 12; ++trial) {
                    const int y = int(rng() % b->nHeight);
                    const uint32_t first = uint32_t(rng() % (rowBytes + 1));
                    const uint32_t count = uint32_t(rng() % (rowBytes + 3));
                    std::vector<uint8_t> buf(count + 1);
                    for (auto &c : buf)
                        c = uint8_t(rng());
                    std::vector<int32_t> spans;
                    const bool useSpans = trial % 3 != 0;
                    if (useSpans)
                        for (int x = -2; x < w + 2; x += 1 + int(rng() % 4))
                            spans.push_back(x);
                    if (spans.size() % 2)
                        spans.pop_back();
                    std::vector<uint64_t> before(size_t(w) * b->nHeight);
                    for (int yy = 0; yy < b->nHeight; ++yy)
                        for (int x = 0; x < w; ++x)
                            before[size_t(yy) * w + x] = Shown(b.d, x, yy);

                    ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf.data(), y, first, count,
                                                   useSpans ? spans.data() : nullptr, uint32_t(spans.size()),
                                                   KRN_PUT_NORMAL),
                              KRN_OK);
                    // The buffer as a full row: byte i of the row is buf[i - first].
                    std::vector<uint8_t> full(size_t(first) + count + 16, 0);
                    std::copy(buf.begin(), buf.begin() + count, full.begin() + first);
                    for (int yy = 0; yy < b->nHeight; ++yy)
                        for (int x = 0; x < w; ++x) {
                            bool inWindow = uint64_t(x) * bits >= uint64_t(first) * 8 &&
                                            uint64_t(x + 1) * bits <= (uint64_t(first) + count) * 8;
                            bool inSpan = !useSpans;
                            for (size_t i = 0; i + 1 < spans.size() && useSpans; i += 2)
                                inSpan = inSpan || (x >= spans[i] && x < spans[i + 1]);
                            uint64_t want = yy == y && inWindow && inSpan ? kref::Get(full.data(), bits, x)
                                                                          : before[size_t(yy) * w + x];
                            ASSERT_EQ(Shown(b.d, x, yy), want) << "x " << x << " y " << yy << " first " << first
                                                               << " count " << count << " trial " << trial;
                        }
                }
                // Padding bits of stored rows stay 0 (nothing writes past the width).
                const int used = int(uint64_t(b->nStoredWidth) * bits % 8);
                const uint32_t storedBytes = uint32_t(kref::RowBytes(b->nStoredWidth, bits));
                for (int sy = 0; sy < b->nStoredHeight; ++sy) {
                    const uint8_t *r = b->pData + size_t(sy) * b->nStride;
                    for (uint32_t i = storedBytes; i < b->nStride; ++i)
                        ASSERT_EQ(r[i], 0);
                    if (used) {
                        ASSERT_EQ(r[storedBytes - 1] & (bits == 12 ? 0xF0 : 0xFF >> used), 0);
                    }
                }
            }
}

TEST(KernelRows, KeepFourthKeepsTheStoredFourthChannel) {
    for (int bits : {32, 64})
        for (int view : {1, 4, 6}) {
            Bitmap b(5, 3, bits);
            std::mt19937_64 rng(bits + view);
            kref::Fill(b.d, rng);
            KrnChangeViewPerspective(nullptr, b.get(), 164, view, 0);
            const uint64_t fourth = bits == 32 ? 0xFF000000ull : 0xFFFF000000000000ull;
            std::vector<uint64_t> old(b->nWidth);
            for (int x = 0; x < b->nWidth; ++x)
                old[x] = Shown(b.d, x, 1);
            std::vector<uint8_t> buf(KrnBitmapRowBytes(b.get()));
            for (auto &c : buf)
                c = uint8_t(rng());
            ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf.data(), 1, 0, uint32_t(buf.size()), nullptr, 0,
                                           KRN_PUT_KEEP_FOURTH),
                      KRN_OK);
            for (int x = 0; x < b->nWidth; ++x) {
                uint64_t v = Shown(b.d, x, 1), given = kref::Get(buf.data(), bits, x);
                EXPECT_EQ(v & fourth, old[x] & fourth);
                EXPECT_EQ(v & ~fourth, given & ~fourth);
            }
            // Without the flag the fourth channel is written too.
            ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf.data(), 1, 0, uint32_t(buf.size()), nullptr, 0,
                                           KRN_PUT_NORMAL),
                      KRN_OK);
            for (int x = 0; x < b->nWidth; ++x)
                EXPECT_EQ(Shown(b.d, x, 1), kref::Get(buf.data(), bits, x));
        }
}

TEST(KernelRows, PutRejectsBadArguments) {
    Bitmap b(4, 4, 8);
    uint8_t buf[4] = {1, 2, 3, 4};
    const int32_t odd[3] = {0, 2, 3};
    EXPECT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 4, 0, 4, nullptr, 0, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 0, 0, 4, odd, 3, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(b.get(), nullptr, 0, 0, 4, nullptr, 0, 1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnPutBitmapRowSpans(nullptr, buf, 0, 0, 4, nullptr, 0, 1), KRN_NULL_POINTER);
    // Empty span list: nothing written.
    ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 0, 0, 4, odd, 0, 1), KRN_OK);
    EXPECT_EQ(b->pData[0], 0);
    // Spans beyond the width are clipped.
    const int32_t wide[2] = {-100, 100};
    ASSERT_EQ(KrnPutBitmapRowSpans(b.get(), buf, 0, 0, 4, wide, 2, 1), KRN_OK);
    EXPECT_EQ(b->pData[3], 4);
    EXPECT_EQ(b->pData[4], 0);
}

} // namespace
