// Whole-bitmap conversion, the grey weights wherever colour becomes grey, and
// display-table folding: hand-worked values and round trips.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;

namespace {

int32_t Convert(Bitmap &dst, BitmapDesc *src, int bits, int order) {
    return KrnConvertBitmap(dst.get(), src, BITMAPDESC_SIZE, bits, order, 0, 0);
}

// Colour shown for a pixel: palette entry or packed colour, as 0xRRGGBB.
uint32_t ShownColour(const Bitmap &b, int x, int y) {
    const uint64_t v = b.pixel(x, y);
    if (b->nBitsPerPixel > 8) return uint32_t((v & 0xFF) << 16 | (v & 0xFF00) | (v >> 16 & 0xFF));
    const RzRGBQuad q = b->pPalette[v];
    return uint32_t(q.rgbRed) << 16 | q.rgbGreen << 8 | q.rgbBlue;
}

// (R*77 + G*150 + B*29 + 128) >> 8, worked by hand for each colour, reached
// by every path from colour to grey: whole bitmaps at 8 and 16 bits, working
// rows from colour and from palette indices, and the kernel's histogram.
TEST(KernelGrey, WeightsOnEveryPathFromColourToGrey) {
    const struct {
        uint8_t r, g, b, grey;
    } cases[] = {{255, 0, 0, 77}, {0, 255, 0, 149}, {0, 0, 255, 29}, {0x30, 0x20, 0x10, 35}, {100, 150, 200, 141}};
    const uint16_t grey16[] = {19712, 38399, 7424}; // 65535 * weight, rounded the same way
    Bitmap c = DepthBitmap(5, 1, 24), w = DepthBitmap(5, 1, 48), g = OutputBitmap(), g16 = OutputBitmap();
    uint8_t rgb[15], grey[5];
    uint16_t grey16Row[5];
    RzRGBQuad palette[256] = {};
    for (int i = 0; i < 5; ++i) {
        const auto &k = cases[i];
        c.setPixel(i, 0, uint64_t(k.b) << 16 | k.g << 8 | k.r); // red in the low byte
        w.setPixel(i, 0, (uint64_t(k.b) << 32 | uint64_t(k.g) << 16 | k.r) * 257);
        rgb[3 * i] = k.r, rgb[3 * i + 1] = k.g, rgb[3 * i + 2] = k.b;
        palette[i] = RzRGBQuad{k.b, k.g, k.r, 0};
    }
    ASSERT_EQ(Convert(g, c.get(), 8, KRN_ORDER_GRAY), KRN_OK);
    ASSERT_EQ(Convert(g16, w.get(), 16, KRN_ORDER_GRAY), KRN_OK);
    uint32_t histogram[256];
    ASSERT_EQ(KrnGetBitmapHistogram(c.get(), histogram), KRN_OK);
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(g.pixel(i, 0), cases[i].grey);
        EXPECT_EQ(histogram[cases[i].grey], 1u);
        if (i < 3) {
            EXPECT_EQ(g16.pixel(i, 0), grey16[i]);
        }
    }
    ASSERT_EQ(KrnConvertRowBuffer(rgb, grey, 5, 24, 0, KRN_ORDER_RGB, 1, nullptr, KRN_TO_WORK, 0, 0, -1), KRN_OK);
    ASSERT_EQ(KrnConvertRowBuffer(rgb, grey16Row, 5, 24, 16, KRN_ORDER_RGB, 1, nullptr, KRN_TO_WORK, 0, 0, -1), KRN_OK);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(grey[i], cases[i].grey) << i;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(grey16Row[i], cases[i].grey * 257) << i;
    const uint8_t indices[5] = {0, 1, 2, 3, 4};
    ASSERT_EQ(KrnConvertRowBuffer(indices, grey, 5, 8, 0, KRN_ORDER_BGR, 1, palette, KRN_TO_WORK, 0, 0, -1), KRN_OK);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(grey[i], cases[i].grey) << i;
    // The kernel's histogram takes the high byte of 16-bit grey.
    Bitmap deep = DepthBitmap(300, 1, 16);
    for (int x = 0; x < 300; ++x) deep.setPixel(x, 0, uint64_t(x) * 200);
    ASSERT_EQ(KrnGetBitmapHistogram(deep.get(), histogram), KRN_OK);
    EXPECT_EQ(histogram[0], 2u);   // 0 and 200
    EXPECT_EQ(histogram[233], 1u); // 299 * 200 = 59800, high byte 233
}

TEST(KernelConvert, ChannelOrderAndWidth) {
    Bitmap c = DepthBitmap(4, 1, 24), rgb = OutputBitmap(), wide = OutputBitmap(), four = OutputBitmap(), back = OutputBitmap();
    const uint64_t px[4] = {0x0000FF, 0x00FF00, 0xFF0000, 0x102030};
    for (int x = 0; x < 4; ++x) c.setPixel(x, 0, px[x]);
    ASSERT_EQ(Convert(rgb, c.get(), 24, KRN_ORDER_RGB), KRN_OK);
    ASSERT_EQ(Convert(wide, c.get(), 48, KRN_ORDER_RGB), KRN_OK);
    ASSERT_EQ(Convert(four, c.get(), 32, KRN_ORDER_BGR), KRN_OK);
    for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(rgb.pixel(x, 0), px[x]); // same colour, bytes swapped
        EXPECT_EQ(rgb->pData[3 * x], c->pData[3 * x + 2]);
        for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(wide.pixel(x, 0) >> (16 * ch) & 0xFFFF, (px[x] >> (8 * ch) & 0xFF) * 257);
        EXPECT_EQ(four.pixel(x, 0), px[x] | 0xFF000000u); // a new fourth channel is opaque
    }
    ASSERT_EQ(Convert(back, wide.get(), 24, KRN_ORDER_BGR), KRN_OK);
    EXPECT_EQ(back.storedBytes(), c.storedBytes());
    EXPECT_EQ(Convert(back, wide.get(), 24, KRN_ORDER_GRAY), KRN_BAD_PIXEL_FORMAT);
}

// Bits 0..11 of a 16-bit sample go to the top of wider samples, come back
// with bits 12..15 zero, and fill a 12-bit sample exactly.
TEST(KernelConvert, SixteenBitRangeThroughColourAndBack) {
    Bitmap g = DepthBitmap(5, 3, 16), c = OutputBitmap(), back = OutputBitmap(), twelve = OutputBitmap(), up = OutputBitmap();
    g->nHighBit = 11;
    std::mt19937_64 rng(9);
    for (int i = 0; i < 15; ++i) g.setPixel(i % 5, i / 5, rng() & 0xFFF);
    ASSERT_EQ(Convert(c, g.get(), 48, KRN_ORDER_BGR), KRN_OK);
    ASSERT_EQ(Convert(back, c.get(), 16, KRN_ORDER_GRAY), KRN_OK);
    ASSERT_EQ(Convert(twelve, g.get(), 12, KRN_ORDER_GRAY), KRN_OK);
    for (int i = 0; i < 15; ++i) {
        const uint64_t v = g.pixel(i % 5, i / 5);
        EXPECT_EQ(c.pixel(i % 5, i / 5), (v << 4) * 0x000100010001ull);
        EXPECT_EQ(back.pixel(i % 5, i / 5), v << 4);
        EXPECT_EQ(twelve.pixel(i % 5, i / 5), v);
    }
    ASSERT_EQ(Convert(up, twelve.get(), 16, KRN_ORDER_GRAY), KRN_OK); // 12 -> 16 -> 12 is exact
    ASSERT_EQ(Convert(up, up.get(), 12, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(up.storedBytes(), twelve.storedBytes());
    g->nLowBit = 12; // above nHighBit
    EXPECT_EQ(Convert(c, g.get(), 8, KRN_ORDER_GRAY), KRN_NO_BITMAP);
}

// Signed grey (two's complement) is offset to unsigned, the most negative
// value becoming 0; into 12/16-bit grey it stays signed.
TEST(KernelConvert, SignedGreyIsOffsetForUnsignedTargets) {
    const struct {
        int bits, target, order;
        std::vector<uint64_t> in, out;
        bool staysSigned;
    } cases[] = {
        {16, 8, KRN_ORDER_GRAY, {0x8000, 0, 0x7FFF}, {0, 128, 255}, false},      // -32768, 0, 32767
        {16, 12, KRN_ORDER_GRAY, {0x8000, 0, 0x7FFF}, {0x800, 0, 0x7FF}, true},
        {8, 24, KRN_ORDER_BGR, {0x80, 0xFF, 0, 0x7F}, {0, 0x7F7F7F, 0x808080, 0xFFFFFF}, false}, // -128, -1, 0, 127
        {8, 4, KRN_ORDER_GRAY, {0x80, 0xFF, 0, 0x7F}, {0, 7, 8, 15}, false},    // (g * 15 + 127) / 255
        // widened as unsigned (times 257) with the sign bit flipped back
        {8, 16, KRN_ORDER_GRAY, {0x80, 0xFF, 0, 0x7F}, {0x8000, 0xFF7F, 0x0080, 0x7FFF}, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.bits << " -> " << c.target);
        Bitmap g = DepthBitmap(int(c.in.size()), 1, c.bits), t = OutputBitmap();
        g->nColorOrder = KRN_ORDER_GRAY;
        g->uFlags |= BMF_SIGNED;
        for (size_t x = 0; x < c.in.size(); ++x) g.setPixel(int(x), 0, c.in[x]);
        ASSERT_EQ(Convert(t, g.get(), c.target, c.order), KRN_OK);
        for (size_t x = 0; x < c.in.size(); ++x) EXPECT_EQ(t.pixel(int(x), 0), c.out[x]) << x;
        EXPECT_EQ((t->uFlags & BMF_SIGNED) != 0, c.staysSigned);
    }
}

TEST(KernelConvert, PalettisedTargets) {
    // A coloured 4-bit palette survives 4 -> 24 -> 8 exactly.
    Bitmap p = DepthBitmap(8, 2, 4), c = OutputBitmap(), q = OutputBitmap();
    RzRGBQuad pal[16];
    for (int i = 0; i < 16; ++i) pal[i] = RzRGBQuad{uint8_t(i * 13), uint8_t(200 - i * 7), uint8_t(i * i), 0};
    ASSERT_EQ(KrnSetBitmapPalette(p.get(), 0, 16, pal), KRN_OK);
    for (int i = 0; i < 16; ++i) p.setPixel(i % 8, i / 8, uint64_t(15 - i));
    ASSERT_EQ(Convert(c, p.get(), 24, KRN_ORDER_BGR), KRN_OK);
    ASSERT_EQ(Convert(q, c.get(), 8, KRN_ORDER_BGR), KRN_OK);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(ShownColour(q, i % 8, i / 8), ShownColour(p, i % 8, i / 8));
    // More colours than the target holds: per channel nearest of 3-3-2 levels.
    Bitmap many = DepthBitmap(32, 32, 24), s = OutputBitmap();
    for (int i = 0; i < 1024; ++i) many.setPixel(i % 32, i / 32, uint64_t(i * 2654435761u) & 0xFFFFFF);
    ASSERT_EQ(Convert(s, many.get(), 8, KRN_ORDER_BGR), KRN_OK);
    auto level = [](uint32_t c, int top) { return uint32_t((c * top + 127) / 255 * 255 / top); };
    for (int i = 0; i < 1024; i += 37) {
        const uint32_t v = uint32_t(many.pixel(i % 32, i / 32));
        EXPECT_EQ(ShownColour(s, i % 32, i / 32), level(v & 0xFF, 7) << 16 | level(v >> 8 & 0xFF, 7) << 8 | level(v >> 16, 3))
            << i;
    }
}

// The display table folds into the samples; out-of-range samples clamp to its last entry.
TEST(KernelConvert, ThroughTheDisplayTable) {
    const int64_t base = KrnMemOutstanding();
    {
        Bitmap g = DepthBitmap(4, 1, 12), e = OutputBitmap();
        g->pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(100 * sizeof(RzRGBQuad)));
        g->nLUTLength = 100;
        for (int i = 0; i < 100; ++i) g->pLUT[i] = RzRGBQuad{uint8_t(250 - 2 * i), uint8_t(250 - 2 * i), uint8_t(250 - 2 * i), 0};
        g->uFlags |= BMF_USE_LUT;
        const uint64_t samples[4] = {0, 1, 99, 4000};
        const uint32_t grey[4] = {250, 248, 52, 52};
        for (int x = 0; x < 4; ++x) g.setPixel(x, 0, samples[x]);
        ASSERT_EQ(Convert(e, g.get(), 8, KRN_ORDER_GRAY), KRN_OK);
        for (int bits : {8, 12, 16}) {
            Bitmap f(g);
            ASSERT_EQ(KrnApplyBitmapLUT(f.get(), bits), KRN_OK);
            EXPECT_TRUE(f->nBitsPerPixel == bits && f->pLUT == nullptr && !(f->uFlags & BMF_USE_LUT));
            for (int x = 0; x < 4; ++x) {
                EXPECT_EQ(e.pixel(x, 0), grey[x]);
                EXPECT_EQ(f.pixel(x, 0), bits == 8 ? grey[x] : (grey[x] * 257u) >> (16 - bits)) << bits;
            }
        }
        EXPECT_EQ(KrnApplyBitmapLUT(g.get(), 24), KRN_INVALID_PARAMETER);
    }
    EXPECT_EQ(KrnMemOutstanding(), base);
}

} // namespace
