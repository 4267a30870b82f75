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
    void *z = KrnMemAllocZeroed(7, 3), *other = nullptr;
    ASSERT_TRUE(r && z);
    EXPECT_EQ(KrnMemOutstanding(), base + 2);
    EXPECT_EQ(std::count(static_cast<uint8_t *>(z), static_cast<uint8_t *>(z) + 21, 0), 21);
    r[4] = 5;
    r = static_cast<uint8_t *>(KrnMemRealloc(r, 1 << 20)); // growth keeps the count and the contents
    ASSERT_TRUE(r && r[4] == 5);
    EXPECT_EQ(KrnMemFailAfter(0), -1);
    EXPECT_EQ(KrnMemRealloc(r, 64), nullptr);            // a failed realloc keeps the old block
    std::thread([&] { other = KrnMemAlloc(4); }).join(); // armed on this thread only
    void *again = KrnMemAlloc(1);                         // fired once only
    EXPECT_TRUE(other && again);
    EXPECT_EQ(KrnMemFailAfter(5), -1);
    EXPECT_EQ(KrnMemFailAfter(-1), 5); // armed, not fired
    for (void *p : {z, static_cast<void *>(r), other, again}) KrnMemFree(p);
    EXPECT_EQ(KrnMemOutstanding(), base);
    EXPECT_EQ(KrnCheckedSize(size_t(1) << 32, size_t(1) << 31, 4), 0u);
}

TEST(KernelBitmap, InitAndAllocOnEveryDepth) {
    for (int bits : kref::kDepths) {
        Bitmap b = kref::DepthBitmap(13, 5, bits);
        EXPECT_EQ(b->nColorOrder, bits == 12 || bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR);
        EXPECT_EQ(b->nStride, (13u * bits + 31) / 32 * 4) << bits;
        EXPECT_EQ(b->nColors, bits <= 8 ? 1 << bits : 0);
        EXPECT_EQ(bits <= 8 && b->pPalette[(1 << bits) - 1].rgbRed == 255, bits <= 8); // grey ramp
        EXPECT_EQ(std::count(b->pData, b->pData + b->nStride * 5, 0), b->nStride * 5);
    }
    BitmapDesc d;
    EXPECT_EQ(KrnInitBitmap(&d, 163, 1, 1, 8), KRN_BAD_STRUCT_SIZE);
    EXPECT_EQ(KrnInitBitmap(&d, 164, 1, 1, 9), KRN_BAD_BITS);
    EXPECT_EQ(kref::DepthBitmap(1, 1, 3)->pPalette[6].rgbRed, 219); // 6 * 255 / 7 rounded
}

TEST(KernelBitmap, HostileDescriptorsGiveStatuses) {
    Bitmap b = kref::DepthBitmap(9, 4, 8);
    using Spoil = std::function<void(BitmapDesc &)>;
    const std::pair<int32_t, Spoil> cases[] = {
        {KRN_BAD_STRUCT_SIZE, [](BitmapDesc &h) { h.uStructSize = 165; }},
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.uFlags &= ~BMF_ALLOCATED; }},
        {KRN_BAD_PIXEL_FORMAT, [](BitmapDesc &h) { h.nBitsPerPixel = 10; }},
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nBitsPerPixel = 32; }}, // stride now too small
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nViewPerspective = 9; }},
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nViewPerspective = 5; }}, // sizes not swapped
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStoredHeight = h.nHeight = -1; }},
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStride = 0x80000000u; }},
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nStoredHeight = h.nHeight = INT32_MAX; }},
        {KRN_NO_BITMAP, [](BitmapDesc &h) { h.nColors = 257; }},
    };
    for (const auto &[expected, spoil] : cases) {
        BitmapDesc h = *b.get();
        spoil(h);
        uint8_t row[64];
        uint64_t v;
        EXPECT_EQ(KrnValidateBitmap(&h), expected);
        EXPECT_EQ(KrnGetBitmapRow(&h, row, 0, 0, sizeof row), expected);
        EXPECT_EQ(KrnPutBitmapRowSpans(&h, row, 0, 0, sizeof row, nullptr, 0, 1), expected);
        EXPECT_EQ(KrnGetPixel(&h, 0, 0, &v), expected);
    }
}

TEST(KernelBitmap, PalettesAndGreyDetection) {
    Bitmap b = kref::DepthBitmap(4, 4, 4);
    RzRGBQuad e[20] = {}, red{0, 0, 255, 0};
    EXPECT_EQ(KrnGetBitmapPalette(b.get(), 14, 5, e), 2); // clipped to nColors
    ASSERT_EQ(KrnSetBitmapPalette(b.get(), 3, 1, &red), KRN_OK);
    EXPECT_EQ(KrnIsGrayscale(b.get()), 0);
    ASSERT_EQ(KrnSetGrayPalette(b.get()), KRN_OK);
    EXPECT_NE(KrnIsGrayscale(b.get()), 0);
    for (int i = 0; i < 16; ++i) e[i].rgbRed = e[i].rgbGreen = e[i].rgbBlue = uint8_t(255 - 17 * i);
    ASSERT_EQ(KrnSetPaletteForDepth(b.get(), e, 16, 4, 0), KRN_OK);
    EXPECT_EQ(KrnIsGrayscale(b.get()), 0); // an inverted ramp is not grey
}

// Stored bytes worked out by hand: little-endian words, 12-bit pairs, MSB-first packing.
TEST(KernelBitmap, PixelsFollowTheDocumentedLayout) {
    const struct {
        int bits;
        std::vector<uint64_t> pixels;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {64, {0x4444333322221111ull}, {0x33, 0x33, 0x22, 0x22, 0x11, 0x11, 0x44, 0x44}}, // blue first
        {12, {0xABC, 0x123, 0xFED}, {0xBC, 0x3A, 0x12, 0xED, 0x0F}},
        {3, {4, 5, 6, 7}, {0x97, 0x70}}, // 100 101 110 111
    };
    for (const auto &c : cases) {
        Bitmap b = kref::DepthBitmap(int(c.pixels.size()), 1, c.bits);
        for (size_t x = 0; x < c.pixels.size(); ++x) b.setPixel(int(x), 0, c.pixels[x]);
        EXPECT_EQ(std::vector<uint8_t>(b->pData, b->pData + c.bytes.size()), c.bytes) << c.bits;
        for (size_t x = 0; x < c.pixels.size(); ++x) EXPECT_EQ(b.pixel(int(x), 0), c.pixels[x]);
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
                    ASSERT_EQ(kref::StoredPixel(*dst.get(), x, y), kref::StoredPixel(*src.get(), sx, sy));
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
        EXPECT_TRUE(!copy->pRegion && copy->pData != src->pData && copy->pPalette != src->pPalette);
        EXPECT_EQ(copy.storedBytes(), src.storedBytes());
    }
    EXPECT_EQ(destroyed, 1); // KrnFreeBitmap released the region
}

// Every allocation of a call fails once in turn: nothing leaks and the
// source (in place: the bitmap) is as it was.
TEST(KernelBitmap, AllocationFailuresLeaveEverythingAsItWas) {
    using Call = std::function<int32_t(BitmapDesc *, BitmapDesc *)>;
    const std::pair<int, Call> calls[] = {
        {8, [](BitmapDesc *s, BitmapDesc *d) { return KrnCopyBitmap(d, s, 164); }},
        {4, [](BitmapDesc *s, BitmapDesc *d) { return KrnChangeViewPerspective(d, s, 164, 6, 0); }},
        {8, [](BitmapDesc *s, BitmapDesc *d) { return KrnConvertBitmap(d, s, 164, 24, 1, 0, 0); }},
        {24, [](BitmapDesc *s, BitmapDesc *d) { return KrnConvertBitmap(d, s, 164, 4, 1, 0, 0); }},
        {48, [](BitmapDesc *s, BitmapDesc *) { return KrnConvertBitmap(s, s, 164, 16, 2, 0, 0); }},
        {1, [](BitmapDesc *s, BitmapDesc *) { return KrnResizeBitmap(s, 31, 3, KRN_RESIZE_AREA); }},
        {64, [](BitmapDesc *s, BitmapDesc *) { return KrnResizeBitmap(s, 31, 3, 1); }},
        {12, [](BitmapDesc *s, BitmapDesc *) { return KrnRotateBitmap(s, 1000, 5, 5, 0, 4); }},
    };
    std::mt19937_64 rng(3);
    for (const auto &[bits, call] : calls) {
        Bitmap src = kref::Random(21, 9, bits, rng);
        src->pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(4 * sizeof(RzRGBQuad)));
        src->nLUTLength = 4;
        const std::vector<uint8_t> before = src.storedBytes();
        const int64_t base = KrnMemOutstanding();
        for (int64_t k = 0;; ++k) {
            BitmapDesc dst{};
            KrnMemFailAfter(k);
            const int32_t st = call(src.get(), &dst);
            const bool fired = KrnMemFailAfter(-1) < 0;
            KrnFreeBitmap(&dst);
            if (!fired) {
                EXPECT_EQ(st, KRN_OK);
                break;
            }
            EXPECT_EQ(st, KRN_FAILURE) << bits << " bits, failure at allocation " << k;
            EXPECT_EQ(KrnMemOutstanding(), base);
            ASSERT_EQ(src->uFlags & BMF_ALLOCATED, BMF_ALLOCATED);
            EXPECT_EQ(src.storedBytes(), before);
            ASSERT_LT(k, 50);
        }
    }
}

} // namespace
