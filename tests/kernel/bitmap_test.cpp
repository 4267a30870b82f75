// Descriptors: layout, allocation, validation, palettes, single pixels,
// view perspective and copies.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <functional>

using kref::Bitmap;

namespace {

TEST(KernelBitmap, InitAndAllocEveryDepth) {
    const int64_t base = KrnMemOutstanding();
    for (int bits : kref::kDepths) {
        SCOPED_TRACE(bits);
        Bitmap b(13, 5, bits, false);
        ASSERT_EQ(b.init, KRN_OK);
        EXPECT_EQ(b->uStructSize, 164u);
        EXPECT_EQ(b->nViewPerspective, 1);
        EXPECT_EQ(b->nLowBit, 0);
        EXPECT_EQ(b->nHighBit, -1);
        EXPECT_TRUE(b->pData == nullptr);
        EXPECT_EQ(b->uFlags & BMF_ALLOCATED, 0u);
        EXPECT_EQ(b->nDataKind, 0);
        EXPECT_EQ(b->nColorOrder, bits == 12 || bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR);
        EXPECT_EQ(b->nStride, (13u * bits + 31) / 32 * 4);
        EXPECT_EQ(b->nStride % 4, 0u);
        if (bits <= 8) {
            ASSERT_TRUE(b->pPalette != nullptr);
            EXPECT_EQ(b->nColors, 1 << bits);
            EXPECT_NE(KrnIsGrayscale(b.get()), 0);
            int n = 1 << bits;
            EXPECT_EQ(b->pPalette[n - 1].rgbRed, 255);
            EXPECT_EQ(b->pPalette[0].rgbGreen, 0);
        } else {
            EXPECT_TRUE(b->pPalette == nullptr);
            EXPECT_EQ(b->nColors, 0);
        }
        EXPECT_EQ(KrnValidateBitmap(b.get()), KRN_NO_BITMAP);
        ASSERT_EQ(KrnAllocBitmap(b.get()), KRN_OK);
        EXPECT_EQ(KrnValidateBitmap(b.get()), KRN_OK);
        for (uint32_t i = 0; i < b->nStride * 5; ++i)
            ASSERT_EQ(b->pData[i], 0);
        EXPECT_EQ(KrnBitmapRowBytes(b.get()), (13u * bits + 7) / 8);
        KrnFreeBitmap(b.get());
        EXPECT_TRUE(b->pData == nullptr);
        EXPECT_EQ(b->nWidth, 13); // geometry kept
    }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelBitmap, SizesTheKernelCannotRepresentFailBeforeAllocating) {
    const int64_t base = KrnMemOutstanding();
    BitmapDesc d;
    EXPECT_EQ(KrnInitBitmap(nullptr, 164, 1, 1, 8), KRN_NULL_POINTER);
    EXPECT_EQ(KrnInitBitmap(&d, 163, 1, 1, 8), KRN_BAD_STRUCT_SIZE);
    EXPECT_EQ(KrnInitBitmap(&d, 164, 1, 1, 9), KRN_BAD_BITS);
    EXPECT_EQ(KrnInitBitmap(&d, 164, 1, 1, 0), KRN_BAD_BITS);
    EXPECT_EQ(KrnInitBitmap(&d, 164, -1, 5, 8), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnInitBitmap(&d, 164, 5, INT32_MIN, 8), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnInitBitmap(&d, 164, INT32_MAX, INT32_MAX, 8), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnInitBitmap(&d, 164, INT32_MAX, 1, 32), KRN_INVALID_PARAMETER); // stride > INT32_MAX
    EXPECT_EQ(KrnInitBitmap(&d, 164, 1 << 20, 1 << 20, 64), KRN_INVALID_PARAMETER); // 8 TiB
    EXPECT_EQ(KrnMemOutstanding(), base);
    KrnFreeBitmap(&d); // a failed init leaves a releasable descriptor

    // The widest row that fits: INT32_MAX one-bit pixels (256 MiB stride).
    ASSERT_EQ(KrnInitBitmap(&d, 164, INT32_MAX, 1, 1), KRN_OK);
    EXPECT_EQ(d.nStride, 268435456u);
    KrnFreeBitmap(&d);

    // Empty bitmaps are valid and allocated.
    for (auto [w, h] : {std::pair{0, 0}, {0, 7}, {7, 0}}) {
        Bitmap e(w, h, 24);
        ASSERT_EQ(e.init, KRN_OK);
        EXPECT_EQ(KrnValidateBitmap(e.get()), KRN_OK);
        uint8_t buf[4];
        EXPECT_EQ(KrnGetBitmapRow(e.get(), buf, 0, 0, 4), h ? KRN_OK : KRN_INVALID_PARAMETER);
    }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelBitmap, ValidateGivesStatusesForHostileDescriptors) {
    Bitmap b(9, 4, 8);
    ASSERT_EQ(b.init, KRN_OK);
    EXPECT_EQ(KrnValidateBitmap(nullptr), KRN_NULL_POINTER);
    const BitmapDesc good = b.d;
    auto check = [&](int32_t expected, const std::function<void(BitmapDesc &)> &spoil) {
        BitmapDesc h = good;
        spoil(h);
        EXPECT_EQ(KrnValidateBitmap(&h), expected);
        uint8_t row[64];
        int32_t st = KrnGetBitmapRow(&h, row, 0, 0, sizeof row);
        EXPECT_EQ(st, expected);
        EXPECT_EQ(KrnPutBitmapRowSpans(&h, row, 0, 0, sizeof row, nullptr, 0, KRN_PUT_NORMAL), expected);
        uint64_t v;
        EXPECT_EQ(KrnGetPixel(&h, 0, 0, &v), expected);
    };
    check(KRN_BAD_STRUCT_SIZE, [](BitmapDesc &h) { h.uStructSize = 163; });
    check(KRN_BAD_STRUCT_SIZE, [](BitmapDesc &h) { h.uStructSize = 165; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.uFlags &= ~BMF_ALLOCATED; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.pData = nullptr; });
    check(KRN_BAD_PIXEL_FORMAT, [](BitmapDesc &h) { h.nBitsPerPixel = 10; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nBitsPerPixel = 32; }); // stride now too small
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nViewPerspective = 0; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nViewPerspective = 9; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nViewPerspective = 5; }); // sizes not swapped
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nWidth = 10; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nHeight = -4; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStoredWidth = h.nWidth = 100; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStoredHeight = h.nHeight = -1; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStride = 8; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStride = 0x80000000u; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStoredHeight = h.nHeight = INT32_MAX; h.nStride = 0x7FFFFFFC; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nColors = 257; });
    check(KRN_NO_BITMAP, [](BitmapDesc &h) { h.nColors = -1; });
}

TEST(KernelBitmap, AllocFollowsTheViewSize) {
    Bitmap b(3, 9, 8, false);
    b->nWidth = 6;
    b->nHeight = 2;
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, 6, 0), KRN_OK);
    EXPECT_EQ(b->nWidth, 2);
    ASSERT_EQ(KrnAllocBitmap(b.get()), KRN_OK);
    EXPECT_EQ(b->nStoredWidth, 6);
    EXPECT_EQ(b->nStoredHeight, 2);
    EXPECT_EQ(KrnValidateBitmap(b.get()), KRN_OK);
    b->nViewPerspective = 11;
    EXPECT_EQ(KrnAllocBitmap(b.get()), KRN_INVALID_PARAMETER);
    b->nViewPerspective = 6;
}

TEST(KernelBitmap, Palettes) {
    Bitmap b(4, 4, 4);
    RzRGBQuad e[20] = {};
    EXPECT_EQ(KrnGetBitmapPalette(b.get(), 0, 20, e), 16); // clipped to nColors
    EXPECT_EQ(e[1].rgbRed, 17);
    EXPECT_EQ(e[15].rgbBlue, 255);
    EXPECT_EQ(KrnGetBitmapPalette(b.get(), 14, 5, e), 2);
    EXPECT_EQ(KrnGetBitmapPalette(b.get(), 16, 5, e), 0);
    EXPECT_EQ(KrnGetBitmapPalette(b.get(), -1, 5, e), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitmapPalette(nullptr, 0, 5, e), KRN_NULL_POINTER);

    RzRGBQuad red{0, 0, 255, 0};
    ASSERT_EQ(KrnSetBitmapPalette(b.get(), 3, 1, &red), KRN_OK);
    EXPECT_EQ(KrnIsGrayscale(b.get()), 0); // no longer the ramp
    EXPECT_EQ(KrnSetBitmapPalette(b.get(), 15, 2, e), KRN_INVALID_PARAMETER);
    ASSERT_EQ(KrnSetGrayPalette(b.get()), KRN_OK);
    EXPECT_NE(KrnIsGrayscale(b.get()), 0);

    // Inverted ramp is not grey.
    RzRGBQuad inv[16];
    for (int i = 0; i < 16; ++i)
        inv[i] = RzRGBQuad{uint8_t(255 - 17 * i), uint8_t(255 - 17 * i), uint8_t(255 - 17 * i), 0};
    ASSERT_EQ(KrnSetPaletteForDepth(b.get(), inv, 16, 4, 0), KRN_OK);
    EXPECT_EQ(KrnIsGrayscale(b.get()), 0);
    ASSERT_EQ(KrnSetPaletteForDepth(b.get(), inv, 3, 4, 0), KRN_OK);
    EXPECT_EQ(b->nColors, 3);
    EXPECT_EQ(KrnSetPaletteForDepth(b.get(), inv, 17, 4, 0), KRN_INVALID_PARAMETER);

    Bitmap c(4, 4, 24);
    EXPECT_EQ(KrnGetBitmapPalette(c.get(), 0, 1, e), KRN_NO_BITMAP);
    EXPECT_EQ(KrnIsGrayscale(c.get()), 0);
    c->nColorOrder = KRN_ORDER_GRAY;
    EXPECT_NE(KrnIsGrayscale(c.get()), 0);

    // The ramp of 3 bits rounds: 0, 36, 73, 109, 146, 182, 219, 255.
    Bitmap t(1, 1, 3);
    EXPECT_EQ(t->pPalette[1].rgbRed, 36);
    EXPECT_EQ(t->pPalette[2].rgbRed, 73);
    EXPECT_EQ(t->pPalette[6].rgbRed, 219);
}

TEST(KernelBitmap, PixelsFollowTheDocumentedLayout) {
    Bitmap b24(2, 1, 24); // blue first
    ASSERT_EQ(KrnSetPixel(b24.get(), 1, 0, 0x030201), KRN_OK); // red 1, green 2, blue 3
    EXPECT_EQ(b24->pData[3], 3);
    EXPECT_EQ(b24->pData[4], 2);
    EXPECT_EQ(b24->pData[5], 1);
    b24->nColorOrder = KRN_ORDER_RGB;
    uint64_t v = 0;
    ASSERT_EQ(KrnGetPixel(b24.get(), 1, 0, &v), KRN_OK);
    EXPECT_EQ(v, 0x010203u);
    EXPECT_EQ(KrnGetPixel(b24.get(), 2, 0, &v), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetPixel(b24.get(), 0, -1, &v), KRN_INVALID_PARAMETER);

    Bitmap b64(1, 1, 64);
    ASSERT_EQ(KrnSetPixel(b64.get(), 0, 0, 0x4444333322221111ull), KRN_OK);
    const uint8_t want64[8] = {0x33, 0x33, 0x22, 0x22, 0x11, 0x11, 0x44, 0x44};
    EXPECT_EQ(std::memcmp(b64->pData, want64, 8), 0);

    Bitmap b12(3, 1, 12);
    KrnSetPixel(b12.get(), 0, 0, 0xABC);
    KrnSetPixel(b12.get(), 1, 0, 0x123);
    KrnSetPixel(b12.get(), 2, 0, 0xFED);
    const uint8_t want12[5] = {0xBC, 0x3A, 0x12, 0xED, 0x0F};
    EXPECT_EQ(std::memcmp(b12->pData, want12, 5), 0);

    Bitmap b3(4, 1, 3);
    for (int x = 0; x < 4; ++x)
        KrnSetPixel(b3.get(), x, 0, uint64_t(x + 4)); // 100 101 110 111
    EXPECT_EQ(b3->pData[0], 0x97); // 1001 0111
    EXPECT_EQ(b3->pData[1], 0x70); // 0111 0000 (padding stays 0)
}

TEST(KernelBitmap, ViewChangeSwapsSizesAcrossTheDiagonal) {
    Bitmap b(7, 3, 8);
    int expectW[9] = {0, 7, 7, 7, 7, 3, 3, 3, 3};
    for (int from = 1; from <= 8; ++from)
        for (int to = 1; to <= 8; ++to) {
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, from, 0), KRN_OK);
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, to, 0), KRN_OK);
            EXPECT_EQ(b->nWidth, expectW[to]);
            EXPECT_EQ(b->nHeight, 10 - expectW[to]);
            EXPECT_EQ(KrnValidateBitmap(b.get()), KRN_OK);
        }
    EXPECT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, 0, 0), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 164, 9, 0), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnChangeViewPerspective(nullptr, b.get(), 100, 1, 0), KRN_BAD_STRUCT_SIZE);
    EXPECT_EQ(KrnChangeViewPerspective(nullptr, nullptr, 164, 1, 0), KRN_NULL_POINTER);
}

// A destination's view 1 shows what the source shows in the requested view.
TEST(KernelBitmap, ViewChangeIntoDestinationRestoresPixels) {
    std::mt19937_64 rng(7);
    const int64_t base = KrnMemOutstanding();
    for (int bits : {1, 5, 12, 24, 64})
        for (int view = 1; view <= 8; ++view) {
            SCOPED_TRACE(testing::Message() << bits << " bits, view " << view);
            Bitmap src(6, 4, bits);
            kref::Fill(src.d, rng);
            Bitmap dst;
            ASSERT_EQ(KrnChangeViewPerspective(dst.get(), src.get(), 164, view, 0), KRN_OK);
            EXPECT_EQ(dst->nViewPerspective, 1);
            ASSERT_EQ(dst->nWidth, view >= 5 ? 4 : 6);
            for (int y = 0; y < dst->nHeight; ++y)
                for (int x = 0; x < dst->nWidth; ++x) {
                    int sx, sy;
                    kref::Stored(view, 6, 4, x, y, &sx, &sy);
                    ASSERT_EQ(kref::StoredPixel(dst.d, x, y), kref::StoredPixel(src.d, sx, sy));
                }
            // In place gives the same pixels.
            ASSERT_EQ(KrnChangeViewPerspective(src.get(), src.get(), 164, view, 0), KRN_OK);
            ASSERT_EQ(src->nStride, dst->nStride);
            EXPECT_EQ(std::memcmp(src->pData, dst->pData, size_t(dst->nStride) * dst->nStoredHeight), 0);
        }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelBitmap, CopyIsDeepAndDropsTheRegion) {
    static int destroyed = 0;
    struct Region {
        KrnRegionHeader header;
        int payload;
    };
    const int64_t base = KrnMemOutstanding();
    {
        Bitmap src(5, 3, 8);
        std::mt19937_64 rng(1);
        kref::Fill(src.d, rng);
        src->pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(10 * sizeof(RzRGBQuad)));
        src->nLUTLength = 10;
        src->pLUT[9].rgbRed = 99;
        auto *region = static_cast<Region *>(KrnMemAlloc(sizeof(Region)));
        region->header.pfnDestroy = [](void *r) {
            ++destroyed;
            KrnMemFree(r);
        };
        src->pRegion = region;
        Bitmap copy;
        ASSERT_EQ(KrnCopyBitmap(copy.get(), src.get(), 164), KRN_OK);
        EXPECT_TRUE(copy->pRegion == nullptr);
        EXPECT_TRUE(copy->pData != src->pData);
        EXPECT_TRUE(copy->pPalette != src->pPalette);
        EXPECT_EQ(std::memcmp(copy->pData, src->pData, src->nStride * 3u), 0);
        EXPECT_EQ(copy->pLUT[9].rgbRed, 99);
        EXPECT_EQ(KrnCopyBitmap(src.get(), src.get(), 164), KRN_INVALID_PARAMETER);
        EXPECT_EQ(KrnCopyBitmap(copy.get(), src.get(), 160), KRN_BAD_STRUCT_SIZE);
    }
    EXPECT_EQ(destroyed, 1); // KrnFreeBitmap released the region
    EXPECT_EQ(KrnMemOutstanding(), base);
}

// Every allocation of a call fails once in turn; nothing leaks and the
// source is untouched.
void SweepFailures(const std::function<int32_t(BitmapDesc *src, BitmapDesc *dst)> &call, int bits) {
    std::mt19937_64 rng(3);
    Bitmap src(9, 4, bits);
    kref::Fill(src.d, rng);
    src->pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(4 * sizeof(RzRGBQuad)));
    src->nLUTLength = 4;
    std::vector<uint8_t> before(src->pData, src->pData + src->nStride * 4);
    const int64_t base = KrnMemOutstanding();
    for (int64_t k = 0;; ++k) {
        Bitmap dst;
        KrnMemFailAfter(k);
        int32_t st = call(src.get(), dst.get());
        if (KrnMemFailAfter(-1) >= 0) {
            EXPECT_EQ(st, KRN_OK);
            break;
        }
        EXPECT_EQ(st, KRN_FAILURE) << "failure at allocation " << k;
        EXPECT_EQ(KrnMemOutstanding(), base);
        ASSERT_EQ(src->uFlags & BMF_ALLOCATED, BMF_ALLOCATED);
        EXPECT_EQ(std::memcmp(before.data(), src->pData, before.size()), 0);
        ASSERT_LT(k, 50);
    }
}

TEST(KernelBitmap, AllocationFailuresLeakNothing) {
    SweepFailures([](BitmapDesc *s, BitmapDesc *d) { return KrnCopyBitmap(d, s, 164); }, 8);
    SweepFailures([](BitmapDesc *s, BitmapDesc *d) { return KrnChangeViewPerspective(d, s, 164, 6, 0); }, 4);
    SweepFailures([](BitmapDesc *s, BitmapDesc *d) { return KrnConvertBitmap(d, s, 164, 24, 1, 0, 0); }, 8);
    SweepFailures([](BitmapDesc *s, BitmapDesc *d) { return KrnConvertBitmap(d, s, 164, 4, 1, 0, 0); }, 24);
    SweepFailures([](BitmapDesc *s, BitmapDesc *) { return KrnConvertBitmap(s, s, 164, 16, 2, 0, 0); }, 48);
    const int64_t base = KrnMemOutstanding();
    for (int64_t k = 0; k < 3; ++k) {
        BitmapDesc d;
        KrnMemFailAfter(k);
        int32_t st = KrnInitBitmap(&d, 164, 4, 4, 8);
        if (st == KRN_OK)
            st = KrnAllocBitmap(&d);
        KrnMemFailAfter(-1);
        EXPECT_EQ(st, k < 2 ? KRN_FAILURE : KRN_OK);
        KrnFreeBitmap(&d);
        EXPECT_EQ(KrnMemOutstanding(), base);
    }
}

} // namespace
