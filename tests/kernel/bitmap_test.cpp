// Descriptors (layout, palettes, single pixels) and view changes.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;

namespace {

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
// in place gives the same bytes.
TEST(KernelBitmap, ViewChanges) {
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
}

} // namespace
