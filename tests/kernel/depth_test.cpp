// Whole-bitmap conversion and display-table folding: hand-worked values and
// round trips.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;

namespace {

uint64_t Px(BitmapDesc *b, int x, int y) {
    uint64_t v = 0;
    EXPECT_EQ(KrnGetPixel(b, x, y, &v), KRN_OK);
    return v;
}

// Colour shown for a pixel: palette entry or packed colour, as 0xRRGGBB.
uint32_t ShownColour(BitmapDesc *b, int x, int y) {
    uint64_t v = Px(b, x, y);
    if (b->nBitsPerPixel <= 8) {
        RzRGBQuad q = b->pPalette[v];
        return uint32_t(q.rgbRed) << 16 | q.rgbGreen << 8 | q.rgbBlue;
    }
    return uint32_t((v & 0xFF) << 16 | (v & 0xFF00) | (v >> 16 & 0xFF));
}

TEST(KernelConvert, GreyEightToColourAndBack) {
    const int64_t base = KrnMemOutstanding();
    {
        Bitmap g(16, 16, 8);
        for (int i = 0; i < 256; ++i)
            g->pData[(i / 16) * g->nStride + i % 16] = uint8_t(i);
        Bitmap c;
        ASSERT_EQ(KrnConvertBitmap(c.get(), g.get(), 164, 24, KRN_ORDER_BGR, 0, 0), KRN_OK);
        EXPECT_EQ(c->nBitsPerPixel, 24);
        EXPECT_EQ(c->nColorOrder, KRN_ORDER_BGR);
        EXPECT_EQ(Px(c.get(), 5, 3), 0x353535u); // value 3 * 16 + 5 = 0x35
        ASSERT_EQ(KrnConvertBitmap(c.get(), c.get(), 164, 8, KRN_ORDER_BGR, 0, 0), KRN_OK);
        EXPECT_NE(KrnIsGrayscale(c.get()), 0);
        EXPECT_EQ(std::memcmp(c->pData, g->pData, g->nStride * 16u), 0);
        ASSERT_EQ(KrnConvertBitmap(c.get(), c.get(), 164, 4, KRN_ORDER_GRAY, 0, 0), KRN_OK);
        // Nearest 4-bit level: (v * 15 + 127) / 255.
        for (int i : {0, 8, 9, 127, 128, 255})
            EXPECT_EQ(Px(c.get(), i % 16, i / 16), uint64_t((i * 15 + 127) / 255)) << i;
    }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelConvert, ColourToGreyUsesTheWeightedSum) {
    Bitmap c(4, 1, 24);
    KrnSetPixel(c.get(), 0, 0, 0x0000FF); // red
    KrnSetPixel(c.get(), 1, 0, 0x00FF00); // green
    KrnSetPixel(c.get(), 2, 0, 0xFF0000); // blue
    KrnSetPixel(c.get(), 3, 0, 0x102030); // r 0x30, g 0x20, b 0x10
    Bitmap g;
    ASSERT_EQ(KrnConvertBitmap(g.get(), c.get(), 164, 8, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    EXPECT_EQ(g->nColorOrder, KRN_ORDER_GRAY);
    EXPECT_EQ(g->nDataKind, 1);
    EXPECT_EQ(g->pData[0], (255 * 77 + 128) >> 8);
    EXPECT_EQ(g->pData[1], (255 * 150 + 128) >> 8);
    EXPECT_EQ(g->pData[2], (255 * 29 + 128) >> 8);
    EXPECT_EQ(g->pData[3], (0x30 * 77 + 0x20 * 150 + 0x10 * 29 + 128) >> 8);
    Bitmap g16;
    ASSERT_EQ(KrnConvertBitmap(g16.get(), c.get(), 164, 16, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    EXPECT_EQ(Px(g16.get(), 0, 0), uint64_t((255 * 77 + 128) >> 8) * 257);
}

TEST(KernelConvert, ChannelOrderAndWidth) {
    Bitmap c(2, 2, 24);
    std::mt19937_64 rng(2);
    kref::Fill(c.d, rng);
    Bitmap rgb, wide, back, four;
    ASSERT_EQ(KrnConvertBitmap(rgb.get(), c.get(), 164, 24, KRN_ORDER_RGB, 0, 0), KRN_OK);
    ASSERT_EQ(KrnConvertBitmap(wide.get(), c.get(), 164, 48, KRN_ORDER_RGB, 0, 0), KRN_OK);
    ASSERT_EQ(KrnConvertBitmap(four.get(), c.get(), 164, 32, KRN_ORDER_BGR, 0, 0), KRN_OK);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x) {
            uint64_t v = Px(c.get(), x, y);
            EXPECT_EQ(Px(rgb.get(), x, y), v); // same colour, bytes swapped
            EXPECT_EQ(rgb->pData[y * rgb->nStride + 3 * x], c->pData[y * c->nStride + 3 * x + 2]);
            uint64_t w = Px(wide.get(), x, y);
            for (int ch = 0; ch < 3; ++ch)
                EXPECT_EQ(w >> (16 * ch) & 0xFFFF, (v >> (8 * ch) & 0xFF) * 257);
            EXPECT_EQ(Px(four.get(), x, y), v | 0xFF000000u); // new fourth channel is opaque
        }
    ASSERT_EQ(KrnConvertBitmap(back.get(), wide.get(), 164, 24, KRN_ORDER_BGR, 0, 0), KRN_OK);
    EXPECT_EQ(std::memcmp(back->pData, c->pData, c->nStride * 2u), 0);
    EXPECT_EQ(KrnConvertBitmap(back.get(), wide.get(), 164, 24, KRN_ORDER_GRAY, 0, 0), KRN_BAD_PIXEL_FORMAT);
    EXPECT_EQ(KrnConvertBitmap(back.get(), wide.get(), 164, 10, KRN_ORDER_BGR, 0, 0), KRN_BAD_BITS);
    EXPECT_EQ(KrnConvertBitmap(back.get(), wide.get(), 164, 24, 3, 0, 0), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnConvertBitmap(back.get(), nullptr, 164, 24, 1, 0, 0), KRN_NULL_POINTER);
}

TEST(KernelConvert, SixteenBitRangeThroughColourAndBack) {
    Bitmap g(5, 3, 16);
    g->nHighBit = 11;
    std::mt19937_64 rng(9);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            KrnSetPixel(g.get(), x, y, rng() & 0xFFF);
    Bitmap c;
    ASSERT_EQ(KrnConvertBitmap(c.get(), g.get(), 164, 48, KRN_ORDER_BGR, 0, 0), KRN_OK);
    Bitmap back, twelve;
    ASSERT_EQ(KrnConvertBitmap(back.get(), c.get(), 164, 16, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    ASSERT_EQ(KrnConvertBitmap(twelve.get(), g.get(), 164, 12, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    EXPECT_EQ(back->nHighBit, -1);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            uint64_t v = Px(g.get(), x, y);
            EXPECT_EQ(Px(c.get(), x, y), (v << 4) * 0x000100010001ull); // the 12 bits at the top
            EXPECT_EQ(Px(back.get(), x, y), v << 4);
            EXPECT_EQ(Px(twelve.get(), x, y), v); // 12 significant bits fill a 12-bit sample
        }
    // 12 -> 16 -> 12 is exact.
    Bitmap up;
    ASSERT_EQ(KrnConvertBitmap(up.get(), twelve.get(), 164, 16, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    ASSERT_EQ(KrnConvertBitmap(up.get(), up.get(), 164, 12, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    EXPECT_EQ(std::memcmp(up->pData, twelve->pData, twelve->nStride * 3u), 0);
    g->nLowBit = 12; // above nHighBit
    EXPECT_EQ(KrnConvertBitmap(c.get(), g.get(), 164, 8, KRN_ORDER_GRAY, 0, 0), KRN_NO_BITMAP);
}

TEST(KernelConvert, SignedGreyIsOffsetForUnsignedTargets) {
    Bitmap g(3, 1, 16);
    g->uFlags |= BMF_SIGNED;
    KrnSetPixel(g.get(), 0, 0, 0x8000); // -32768
    KrnSetPixel(g.get(), 1, 0, 0x0000); // 0
    KrnSetPixel(g.get(), 2, 0, 0x7FFF); // 32767
    Bitmap e, t;
    ASSERT_EQ(KrnConvertBitmap(e.get(), g.get(), 164, 8, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    EXPECT_EQ(e->pData[0], 0);
    EXPECT_EQ(e->pData[1], 128);
    EXPECT_EQ(e->pData[2], 255);
    EXPECT_EQ(e->uFlags & BMF_SIGNED, 0u);
    ASSERT_EQ(KrnConvertBitmap(t.get(), g.get(), 164, 12, KRN_ORDER_GRAY, 0, 0), KRN_OK);
    EXPECT_NE(t->uFlags & BMF_SIGNED, 0u);
    EXPECT_EQ(Px(t.get(), 0, 0), 0x800u); // still -2048 at 12 bits
    EXPECT_EQ(Px(t.get(), 2, 0), 0x7FFu);
}

TEST(KernelConvert, PalettisedTargets) {
    // A coloured 4-bit palette survives 4 -> 24 -> 8 exactly.
    Bitmap p(8, 2, 4);
    RzRGBQuad pal[16];
    for (int i = 0; i < 16; ++i)
        pal[i] = RzRGBQuad{uint8_t(i * 13), uint8_t(200 - i * 7), uint8_t(i * i), 0};
    ASSERT_EQ(KrnSetBitmapPalette(p.get(), 0, 16, pal), KRN_OK);
    for (int i = 0; i < 16; ++i)
        KrnSetPixel(p.get(), i % 8, i / 8, uint64_t(15 - i));
    Bitmap c, q, kept;
    ASSERT_EQ(KrnConvertBitmap(c.get(), p.get(), 164, 24, KRN_ORDER_BGR, 0, 0), KRN_OK);
    ASSERT_EQ(KrnConvertBitmap(q.get(), c.get(), 164, 8, KRN_ORDER_BGR, 0, 0), KRN_OK);
    ASSERT_EQ(KrnConvertBitmap(kept.get(), p.get(), 164, 8, KRN_ORDER_BGR, 0, 0), KRN_OK);
    EXPECT_EQ(q->nColors, 16);
    EXPECT_EQ(kept->nColors, 16);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(ShownColour(q.get(), i % 8, i / 8), ShownColour(p.get(), i % 8, i / 8));
        EXPECT_EQ(Px(kept.get(), i % 8, i / 8), uint64_t(15 - i)); // indices kept
    }

    // More colours than the target holds: the split palette, per channel
    // nearest of 2^bits levels (3-3-2 at 8 bits).
    Bitmap many(32, 32, 24);
    for (int i = 0; i < 1024; ++i)
        KrnSetPixel(many.get(), i % 32, i / 32, uint64_t(i * 2654435761u) & 0xFFFFFF);
    Bitmap s;
    ASSERT_EQ(KrnConvertBitmap(s.get(), many.get(), 164, 8, KRN_ORDER_BGR, 0, 0), KRN_OK);
    EXPECT_EQ(s->nColors, 256);
    auto level = [](uint32_t c, int bits) {
        int top = (1 << bits) - 1;
        return uint32_t((c * top + 127) / 255 * 255 / top);
    };
    for (int i = 0; i < 1024; i += 37) {
        uint32_t v = uint32_t(Px(many.get(), i % 32, i / 32));
        uint32_t want = level(v & 0xFF, 3) << 16 | level(v >> 8 & 0xFF, 3) << 8 | level(v >> 16, 2);
        EXPECT_EQ(ShownColour(s.get(), i % 32, i / 32), want) << i;
    }

    // A grey colour picture gets the grey ramp.
    Bitmap grey(3, 1, 24);
    KrnSetPixel(grey.get(), 1, 0, 0x808080);
    KrnSetPixel(grey.get(), 2, 0, 0xFFFFFF);
    Bitmap g1;
    ASSERT_EQ(KrnConvertBitmap(g1.get(), grey.get(), 164, 1, KRN_ORDER_BGR, 0, 0), KRN_OK);
    EXPECT_NE(KrnIsGrayscale(g1.get()), 0);
    EXPECT_EQ(g1->pData[0], 0x60); // 0 1 1 (128 rounds up)
}

TEST(KernelConvert, ThroughTheDisplayTable) {
    const int64_t base = KrnMemOutstanding();
    {
        Bitmap g(4, 1, 12);
        g->pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(100 * sizeof(RzRGBQuad)));
        g->nLUTLength = 100;
        for (int i = 0; i < 100; ++i)
            g->pLUT[i] = RzRGBQuad{uint8_t(250 - 2 * i), uint8_t(250 - 2 * i), uint8_t(250 - 2 * i), 0};
        g->uFlags |= BMF_USE_LUT;
        const uint64_t samples[4] = {0, 1, 99, 4000}; // 4000 clamps to entry 99
        for (int x = 0; x < 4; ++x)
            KrnSetPixel(g.get(), x, 0, samples[x]);
        const uint8_t grey[4] = {250, 248, 52, 52};

        Bitmap e;
        ASSERT_EQ(KrnConvertBitmap(e.get(), g.get(), 164, 8, KRN_ORDER_GRAY, 0, 0), KRN_OK);
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(e->pData[x], grey[x]);

        for (int bits : {8, 12, 16}) {
            Bitmap f;
            ASSERT_EQ(KrnCopyBitmap(f.get(), g.get(), 164), KRN_OK);
            ASSERT_EQ(KrnApplyBitmapLUT(f.get(), bits), KRN_OK);
            EXPECT_EQ(f->nBitsPerPixel, bits);
            EXPECT_EQ(f->nDataKind, 1);
            EXPECT_EQ(f->uFlags & BMF_USE_LUT, 0u);
            EXPECT_TRUE(f->pLUT == nullptr);
            EXPECT_EQ(f->nColorOrder, KRN_ORDER_GRAY);
            for (int x = 0; x < 4; ++x) {
                uint64_t want = bits == 8 ? grey[x] : bits == 12 ? (grey[x] * 257u) >> 4 : grey[x] * 257u;
                EXPECT_EQ(Px(f.get(), x, 0), want) << bits << " bits, x " << x;
            }
        }
        EXPECT_EQ(KrnApplyBitmapLUT(g.get(), 24), KRN_INVALID_PARAMETER);
        Bitmap c(1, 1, 24);
        EXPECT_EQ(KrnApplyBitmapLUT(c.get(), 8), KRN_BAD_PIXEL_FORMAT);
        EXPECT_EQ(KrnApplyBitmapLUT(nullptr, 8), KRN_NULL_POINTER);
    }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelConvert, InPlaceKeepsViewAndRegion) {
    static int destroyed = 0;
    struct Region {
        KrnRegionHeader header;
    };
    Bitmap b(3, 2, 8);
    std::mt19937_64 rng(4);
    kref::Fill(b.d, rng);
    auto *region = static_cast<Region *>(KrnMemAlloc(sizeof(Region)));
    region->header.pfnDestroy = [](void *r) {
        ++destroyed;
        KrnMemFree(r);
    };
    b->pRegion = region;
    KrnChangeViewPerspective(nullptr, b.get(), 164, 5, 0);
    uint64_t before = Px(b.get(), 1, 2);
    ASSERT_EQ(KrnConvertBitmap(b.get(), b.get(), 164, 24, KRN_ORDER_BGR, 0, 0), KRN_OK);
    EXPECT_TRUE(b->pRegion == region);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(b->nViewPerspective, 5);
    EXPECT_EQ(b->nWidth, 2);
    EXPECT_EQ(Px(b.get(), 1, 2), before * 0x010101);
}

} // namespace
