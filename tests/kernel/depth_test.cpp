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
    const uint64_t v = Px(b, x, y);
    const RzRGBQuad q = b->nBitsPerPixel <= 8 ? b->pPalette[v] : RzRGBQuad{};
    return b->nBitsPerPixel <= 8 ? uint32_t(q.rgbRed) << 16 | q.rgbGreen << 8 | q.rgbBlue
                                 : uint32_t((v & 0xFF) << 16 | (v & 0xFF00) | (v >> 16 & 0xFF));
}

int32_t Convert(Bitmap &dst, BitmapDesc *src, int bits, int order) {
    return KrnConvertBitmap(dst.get(), src, BITMAPDESC_SIZE, bits, order, 0, 0);
}

TEST(KernelConvert, GreyWeightsChannelOrderAndWidth) {
    Bitmap c(4, 1, 24), g, rgb, wide, four, back;
    const uint64_t px[4] = {0x0000FF, 0x00FF00, 0xFF0000, 0x102030}; // red, green, blue, mixed
    for (int x = 0; x < 4; ++x)
        KrnSetPixel(c.get(), x, 0, px[x]);
    ASSERT_EQ(Convert(g, c.get(), 8, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(std::vector<uint8_t>(g->pData, g->pData + 4),
              (std::vector<uint8_t>{(255 * 77 + 128) >> 8, (255 * 150 + 128) >> 8, (255 * 29 + 128) >> 8,
                                    (0x30 * 77 + 0x20 * 150 + 0x10 * 29 + 128) >> 8}));
    ASSERT_EQ(Convert(rgb, c.get(), 24, KRN_ORDER_RGB), KRN_OK);
    ASSERT_EQ(Convert(wide, c.get(), 48, KRN_ORDER_RGB), KRN_OK);
    ASSERT_EQ(Convert(four, c.get(), 32, KRN_ORDER_BGR), KRN_OK);
    for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(Px(rgb.get(), x, 0), px[x]); // same colour, bytes swapped
        EXPECT_EQ(rgb->pData[3 * x], c->pData[3 * x + 2]);
        for (int ch = 0; ch < 3; ++ch)
            EXPECT_EQ(Px(wide.get(), x, 0) >> (16 * ch) & 0xFFFF, (px[x] >> (8 * ch) & 0xFF) * 257);
        EXPECT_EQ(Px(four.get(), x, 0), px[x] | 0xFF000000u); // a new fourth channel is opaque
    }
    ASSERT_EQ(Convert(back, wide.get(), 24, KRN_ORDER_BGR), KRN_OK);
    EXPECT_EQ(std::memcmp(back->pData, c->pData, 12), 0);
    EXPECT_EQ(Convert(back, wide.get(), 24, KRN_ORDER_GRAY), KRN_BAD_PIXEL_FORMAT);
    EXPECT_EQ(Convert(back, nullptr, 24, 1), KRN_NULL_POINTER);
}

// Bits 0..11 of a 16-bit sample go to the top of wider samples, come back
// with bits 12..15 zero, and fill a 12-bit sample exactly.
TEST(KernelConvert, SixteenBitRangeThroughColourAndBack) {
    Bitmap g(5, 3, 16), c, back, twelve, up;
    g->nHighBit = 11;
    std::mt19937_64 rng(9);
    for (int i = 0; i < 15; ++i)
        KrnSetPixel(g.get(), i % 5, i / 5, rng() & 0xFFF);
    ASSERT_EQ(Convert(c, g.get(), 48, KRN_ORDER_BGR), KRN_OK);
    ASSERT_EQ(Convert(back, c.get(), 16, KRN_ORDER_GRAY), KRN_OK);
    ASSERT_EQ(Convert(twelve, g.get(), 12, KRN_ORDER_GRAY), KRN_OK);
    for (int i = 0; i < 15; ++i) {
        const uint64_t v = Px(g.get(), i % 5, i / 5);
        EXPECT_EQ(Px(c.get(), i % 5, i / 5), (v << 4) * 0x000100010001ull);
        EXPECT_EQ(Px(back.get(), i % 5, i / 5), v << 4);
        EXPECT_EQ(Px(twelve.get(), i % 5, i / 5), v);
    }
    ASSERT_EQ(Convert(up, twelve.get(), 16, KRN_ORDER_GRAY), KRN_OK); // 12 -> 16 -> 12 is exact
    ASSERT_EQ(Convert(up, up.get(), 12, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(std::memcmp(up->pData, twelve->pData, twelve->nStride * 3u), 0);
    g->nLowBit = 12; // above nHighBit
    EXPECT_EQ(Convert(c, g.get(), 8, KRN_ORDER_GRAY), KRN_NO_BITMAP);
}

TEST(KernelConvert, SignedGreyIsOffsetForUnsignedTargets) {
    Bitmap g(3, 1, 16), e, t;
    g->uFlags |= BMF_SIGNED;
    for (int x = 0; x < 3; ++x)
        KrnSetPixel(g.get(), x, 0, x == 0 ? 0x8000 : x == 1 ? 0 : 0x7FFF); // -32768, 0, 32767
    ASSERT_EQ(Convert(e, g.get(), 8, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(std::vector<uint8_t>(e->pData, e->pData + 3), (std::vector<uint8_t>{0, 128, 255}));
    ASSERT_EQ(Convert(t, g.get(), 12, KRN_ORDER_GRAY), KRN_OK); // still signed
    EXPECT_EQ(Px(t.get(), 0, 0), 0x800u);
    EXPECT_EQ(Px(t.get(), 2, 0), 0x7FFu);
}

TEST(KernelConvert, PalettisedTargets) {
    // A coloured 4-bit palette survives 4 -> 24 -> 8 exactly.
    Bitmap p(8, 2, 4), c, q;
    RzRGBQuad pal[16];
    for (int i = 0; i < 16; ++i)
        pal[i] = RzRGBQuad{uint8_t(i * 13), uint8_t(200 - i * 7), uint8_t(i * i), 0};
    ASSERT_EQ(KrnSetBitmapPalette(p.get(), 0, 16, pal), KRN_OK);
    for (int i = 0; i < 16; ++i)
        KrnSetPixel(p.get(), i % 8, i / 8, uint64_t(15 - i));
    ASSERT_EQ(Convert(c, p.get(), 24, KRN_ORDER_BGR), KRN_OK);
    ASSERT_EQ(Convert(q, c.get(), 8, KRN_ORDER_BGR), KRN_OK);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(ShownColour(q.get(), i % 8, i / 8), ShownColour(p.get(), i % 8, i / 8));
    // More colours than the target holds: per channel nearest of 3-3-2 levels.
    Bitmap many(32, 32, 24), s;
    for (int i = 0; i < 1024; ++i)
        KrnSetPixel(many.get(), i % 32, i / 32, uint64_t(i * 2654435761u) & 0xFFFFFF);
    ASSERT_EQ(Convert(s, many.get(), 8, KRN_ORDER_BGR), KRN_OK);
    auto level = [](uint32_t c, int top) { return uint32_t((c * top + 127) / 255 * 255 / top); };
    for (int i = 0; i < 1024; i += 37) {
        const uint32_t v = uint32_t(Px(many.get(), i % 32, i / 32));
        EXPECT_EQ(ShownColour(s.get(), i % 32, i / 32), level(v & 0xFF, 7) << 16 | level(v >> 8 & 0xFF, 7) << 8 |
                                                            level(v >> 16, 3)) << i;
    }
}

// The display table folds into the samples; out-of-range samples clamp to its last entry.
TEST(KernelConvert, ThroughTheDisplayTable) {
    const int64_t base = KrnMemOutstanding();
    {
        Bitmap g(4, 1, 12), e;
        g->pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(100 * sizeof(RzRGBQuad)));
        g->nLUTLength = 100;
        for (int i = 0; i < 100; ++i)
            g->pLUT[i] = RzRGBQuad{uint8_t(250 - 2 * i), uint8_t(250 - 2 * i), uint8_t(250 - 2 * i), 0};
        g->uFlags |= BMF_USE_LUT;
        const uint64_t samples[4] = {0, 1, 99, 4000};
        const uint32_t grey[4] = {250, 248, 52, 52};
        for (int x = 0; x < 4; ++x)
            KrnSetPixel(g.get(), x, 0, samples[x]);
        ASSERT_EQ(Convert(e, g.get(), 8, KRN_ORDER_GRAY), KRN_OK);
        for (int bits : {8, 12, 16}) {
            Bitmap f;
            ASSERT_EQ(KrnCopyBitmap(f.get(), g.get(), 164), KRN_OK);
            ASSERT_EQ(KrnApplyBitmapLUT(f.get(), bits), KRN_OK);
            EXPECT_TRUE(f->nBitsPerPixel == bits && f->pLUT == nullptr && !(f->uFlags & BMF_USE_LUT));
            for (int x = 0; x < 4; ++x) {
                EXPECT_EQ(e->pData[x], grey[x]);
                EXPECT_EQ(Px(f.get(), x, 0), bits == 8 ? grey[x] : (grey[x] * 257u) >> (16 - bits)) << bits;
            }
        }
        EXPECT_EQ(KrnApplyBitmapLUT(g.get(), 24), KRN_INVALID_PARAMETER);
        EXPECT_EQ(KrnApplyBitmapLUT(nullptr, 8), KRN_NULL_POINTER);
    }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

} // namespace
