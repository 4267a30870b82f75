// Counted memory and failure injection, descriptors (layout, validation,
// palettes, single pixels), view changes and copies.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

using kref::Bitmap;

namespace {

TEST(KernelMemory, CountedAndFailAfterFiresOncePerThread) {
    const int64_t base = KrnMemOutstanding();
    auto *r = static_cast<uint8_t *>(KrnMemRealloc(nullptr, 5));
    auto *z = static_cast<uint8_t *>(KrnMemAllocZeroed(7, 3));
    void *other = nullptr;
    ASSERT_TRUE(r && z);
    EXPECT_EQ(KrnMemOutstanding(), base + 2);
    EXPECT_EQ(std::count(z, z + 21, 0), 21);
    r[4] = 5;
    r = static_cast<uint8_t *>(KrnMemRealloc(r, 1 << 20)); // growth keeps count and contents
    ASSERT_TRUE(r && r[4] == 5);
    EXPECT_EQ(KrnMemFailAfter(0), -1);
    EXPECT_EQ(KrnMemRealloc(r, 64), nullptr);            // a failed realloc keeps the block
    std::thread([&] { other = KrnMemAlloc(4); }).join(); // armed on this thread only
    void *again = KrnMemAlloc(1);                         // fired once only
    EXPECT_TRUE(other && again);
    EXPECT_EQ(KrnMemFailAfter(5), -1);
    EXPECT_EQ(KrnMemFailAfter(-1), 5); // armed, not fired
    for (void *p : {static_cast<void *>(z), static_cast<void *>(r), other, again}) KrnMemFree(p);
    EXPECT_EQ(KrnMemOutstanding(), base);
}

// Zeroed pixels, 4-byte rows, grey ramps up to 8 bits (3 bits: 6 * 255 / 7
// rounds to 219); a coloured or inverted palette is not grey.
TEST(KernelBitmap, InitPalettesAndGreyDetection) {
    for (int bits : kref::kDepths) {
        Bitmap b = kref::DepthBitmap(13, 5, bits);
        EXPECT_EQ(b->nColorOrder, bits == 12 || bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR);
        EXPECT_EQ(b->nStride, (13u * bits + 31) / 32 * 4) << bits;
        EXPECT_EQ(b->nColors, bits <= 8 ? 1 << bits : 0);
        EXPECT_EQ(bits <= 8 && b->pPalette[(1 << bits) - 1].rgbRed == 255, bits <= 8);
        EXPECT_EQ(std::count(b->pData, b->pData + b->nStride * 5, 0), b->nStride * 5);
    }
    EXPECT_EQ(kref::DepthBitmap(1, 1, 3)->pPalette[6].rgbRed, 219);
    Bitmap b = kref::DepthBitmap(4, 4, 4);
    RzRGBQuad e[20] = {}, red{0, 0, 255, 0};
    EXPECT_EQ(KrnGetBitmapPalette(b.get(), 14, 5, e), 2); // clipped to nColors
    ASSERT_EQ(KrnSetBitmapPalette(b.get(), 3, 1, &red), KRN_OK);
    EXPECT_EQ(KrnIsGrayscale(b.get()), 0);
    ASSERT_EQ(KrnSetGrayPalette(b.get()), KRN_OK);
    EXPECT_NE(KrnIsGrayscale(b.get()), 0);
    for (uint8_t i = 0, v = 255; i < 16; ++i, v -= 17) e[i] = {v, v, v, 0};
    ASSERT_EQ(KrnSetPaletteForDepth(b.get(), e, 16, 4, 0), KRN_OK);
    EXPECT_EQ(KrnIsGrayscale(b.get()), 0);
}

// Descriptors the kernel cannot address (the sweeps spoil the other fields).
TEST(KernelBitmap, HostileDescriptorsHaveNoBitmap) {
    Bitmap b = kref::DepthBitmap(9, 4, 8);
    const std::function<void(BitmapDesc &)> cases[] = {
        [](BitmapDesc &h) { h.nBitsPerPixel = 32; }, // stride now too small
        [](BitmapDesc &h) { h.nViewPerspective = 9; },
        [](BitmapDesc &h) { h.nViewPerspective = 5; }, // sizes not swapped
        [](BitmapDesc &h) { h.nStoredHeight = h.nHeight = -1; },
        [](BitmapDesc &h) { h.nStride = 0x80000000u; },
    };
    for (const auto &spoil : cases) {
        BitmapDesc h = *b.get();
        spoil(h);
        uint8_t row[64];
        uint64_t v;
        EXPECT_EQ(KrnValidateBitmap(&h), KRN_NO_BITMAP);
        EXPECT_EQ(KrnGetBitmapRow(&h, row, 0, 0, sizeof row), KRN_NO_BITMAP);
        EXPECT_EQ(KrnGetPixel(&h, 0, 0, &v), KRN_NO_BITMAP);
    }
}

// Stored bytes worked out by hand: blue first in little-endian words, 12-bit
// pairs, MSB-first packing (100 101 110 111).
TEST(KernelBitmap, PixelsFollowTheDocumentedLayout) {
    const std::tuple<int, std::vector<uint64_t>, std::vector<uint8_t>> cases[] = {
        {64, {0x4444333322221111ull}, {0x33, 0x33, 0x22, 0x22, 0x11, 0x11, 0x44, 0x44}},
        {12, {0xABC, 0x123, 0xFED}, {0xBC, 0x3A, 0x12, 0xED, 0x0F}},
        {3, {4, 5, 6, 7}, {0x97, 0x70}},
    };
    for (const auto &[bits, pixels, bytes] : cases) {
        Bitmap b = kref::DepthBitmap(int(pixels.size()), 1, bits);
        for (size_t x = 0; x < pixels.size(); ++x) b.setPixel(int(x), 0, pixels[x]);
        EXPECT_EQ(std::vector<uint8_t>(b->pData, b->pData + bytes.size()), bytes) << bits;
        for (size_t x = 0; x < pixels.size(); ++x) EXPECT_EQ(b.pixel(int(x), 0), pixels[x]);
    }
}

// A destination's view 1 shows what the source shows in the requested view;
// in place gives the same bytes; a copy is deep and drops the region.
TEST(KernelBitmap, ViewChangesAndCopies) {
    std::mt19937_64 rng(7);
    for (int bits : {1, 5, 12, 24, 64})
        for (int view = 1; view <= 8; ++view) {
            SCOPED_TRACE(testing::Message() << bits << " bits, view " << view);
            Bitmap src = kref::Random(6, 4, bits, rng), dst = kref::OutputBitmap();
            ASSERT_EQ(KrnChangeViewPerspective(dst.get(), src.get(), 164, view, 0), KRN_OK);
            ASSERT_TRUE(dst->nViewPerspective == 1 && dst->nWidth == (view >= 5 ? 4 : 6));
            for (int y = 0; y < dst->nHeight; ++y)
                for (int x = 0; x < dst->nWidth; ++x) {
                    int sx, sy;
                    kref::Stored(view, 6, 4, x, y, &sx, &sy);
                    ASSERT_EQ(kref::Shown(dst, x, y), kref::StoredPixel(*src.get(), sx, sy));
                }
            ASSERT_EQ(KrnChangeViewPerspective(src.get(), src.get(), 164, view, 0), KRN_OK);
            EXPECT_EQ(src.storedBytes(), dst.storedBytes());
        }
    static int destroyed = 0;
    {
        Bitmap src = kref::Random(5, 3, 8, rng), copy = kref::OutputBitmap();
        auto *region = static_cast<KrnRegionHeader *>(KrnMemAlloc(sizeof(KrnRegionHeader)));
        region->pfnDestroy = [](void *r) { ++destroyed, KrnMemFree(r); };
        src->pRegion = region;
        ASSERT_EQ(KrnCopyBitmap(copy.get(), src.get(), 164), KRN_OK);
        EXPECT_TRUE(!copy->pRegion && copy->pData != src->pData);
        EXPECT_EQ(copy.storedBytes(), src.storedBytes());
    }
    EXPECT_EQ(destroyed, 1); // KrnFreeBitmap released the region
}

} // namespace
