// Whole-bitmap conversion: raw stored values worked out by hand; palettes.
#include "kernel_ref.h"

#include <gtest/gtest.h>

using kref::Bitmap;

namespace {

int32_t Convert(Bitmap &dst, BitmapDesc *src, int bits, int order) {
    return KrnConvertBitmap(dst.get(), src, BITMAPDESC_SIZE, bits, order, 0, 0);
}

void Put(Bitmap &b, const std::vector<uint64_t> &v) {
    for (size_t x = 0; x < v.size(); ++x) kref::Set(b->pData, b->nBitsPerPixel, x, v[x]);
}

constexpr int GREY = KRN_ORDER_GRAY, RGB = KRN_ORDER_RGB, BGR = KRN_ORDER_BGR, SIGNED = 64;

// Raw 24-bit blue first is 0xRRGGBB; grey is (R*77 + G*150 + B*29 + 128) >> 8.
// 16-bit grey of bits 0..11 goes to the top of wider samples. Signed grey is
// offset for unsigned targets (the most negative becomes 0); into 12/16 bits
// it stays signed, widened as unsigned (times 257) with the sign bit flipped.
TEST(KernelConvert, HandWorkedConversions) {
    const std::vector<uint64_t> colours{0xFF0000, 0x00FF00, 0x0000FF, 0x302010, 0x6496C8};
    const std::vector<uint64_t> deep{0xFFFF00000000, 0x0000FFFF0000, 0x00000000FFFF};
    const std::vector<uint64_t> s8{0x80, 0xFF, 0, 0x7F}, s16{0x8000, 0, 0x7FFF};
    const struct {
        int bits, order, high; // order | SIGNED: signed grey
        std::vector<uint64_t> in;
        int target, targetOrder;
        std::vector<uint64_t> out;
    } cases[] = {
        {24, BGR, -1, colours, 8, GREY, {77, 149, 29, 35, 141}},
        {48, BGR, -1, deep, 16, GREY, {19712, 38399, 7424}}, // 65535 * weight, rounded
        {24, BGR, -1, colours, 24, RGB, {0xFF, 0xFF00, 0xFF0000, 0x102030, 0xC89664}},
        {24, BGR, -1, {0x302010}, 48, RGB, {0x101020203030}},
        {24, BGR, -1, {0x302010}, 32, BGR, {0xFF302010}}, // a new fourth channel is opaque
        {48, BGR, -1, {0x303020201010}, 24, BGR, {0x302010}},
        {16, GREY, 11, {0xABC, 0x123}, 48, BGR, {0xABC0ABC0ABC0, 0x123012301230}},
        {16, GREY, 11, {0xABC, 0x123}, 12, GREY, {0xABC, 0x123}},
        {48, BGR, -1, {0xABC0ABC0ABC0}, 16, GREY, {0xABC0}},
        {16, GREY | SIGNED, -1, s16, 8, GREY, {0, 128, 255}},
        {16, GREY | SIGNED, -1, s16, 12, GREY, {0x800, 0, 0x7FF}},
        {8, GREY | SIGNED, -1, s8, 24, BGR, {0, 0x7F7F7F, 0x808080, 0xFFFFFF}},
        {8, GREY | SIGNED, -1, s8, 4, GREY, {0, 7, 8, 15}}, // (g * 15 + 127) / 255
        {8, GREY | SIGNED, -1, s8, 16, GREY, {0x8000, 0xFF7F, 0x0080, 0x7FFF}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.bits << " to " << c.target << " " << c.targetOrder);
        Bitmap b = kref::DepthBitmap(int(c.in.size()), 1, c.bits), t = kref::OutputBitmap();
        b->nColorOrder = c.order & 3, b->nHighBit = c.high;
        if (c.order & SIGNED) b->uFlags |= BMF_SIGNED;
        Put(b, c.in);
        ASSERT_EQ(Convert(t, b.get(), c.target, c.targetOrder), KRN_OK);
        for (size_t x = 0; x < c.in.size(); ++x) EXPECT_EQ(kref::Shown(t, int(x), 0), c.out[x]);
        const bool staysSigned = (c.order & SIGNED) && (c.target == 12 || c.target == 16);
        EXPECT_EQ((t->uFlags & BMF_SIGNED) != 0, staysSigned);
    }
    Bitmap w = kref::DepthBitmap(1, 1, 48), t = kref::OutputBitmap();
    EXPECT_EQ(Convert(t, w.get(), 24, GREY), KRN_BAD_PIXEL_FORMAT);
}

// A coloured palette survives 4 -> 24 -> 8; more colours than 8 bits hold
// take the per-channel nearest of 3-3-2 levels.
TEST(KernelConvert, PalettisedTargets) {
    std::mt19937_64 rng(9);
    Bitmap p = kref::Random(8, 2, 4, rng), c = kref::OutputBitmap(), q = kref::OutputBitmap();
    RzRGBQuad pal[16];
    for (int i = 0; i < 16; ++i)
        pal[i] = {uint8_t(i * 13), uint8_t(200 - 7 * i), uint8_t(i * i), 0};
    ASSERT_EQ(KrnSetBitmapPalette(p.get(), 0, 16, pal), KRN_OK);
    ASSERT_EQ(Convert(c, p.get(), 24, BGR), KRN_OK);
    ASSERT_EQ(Convert(q, c.get(), 8, BGR), KRN_OK);
    auto colour = [](const Bitmap &b, int x, int y) {
        const RzRGBQuad e = b->pPalette[kref::Shown(b, x, y)];
        return uint32_t(e.rgbRed) << 16 | e.rgbGreen << 8 | e.rgbBlue;
    };
    for (int i = 0; i < 16; ++i) EXPECT_EQ(colour(q, i % 8, i / 8), colour(p, i % 8, i / 8));
    Bitmap many = kref::Random(32, 32, 24, rng), s = kref::OutputBitmap();
    ASSERT_EQ(Convert(s, many.get(), 8, BGR), KRN_OK);
    auto level = [](uint64_t c, int top) { return uint32_t((c * top + 127) / 255 * 255 / top); };
    for (int i = 0; i < 1024; i += 37) {
        const uint64_t v = kref::Shown(many, i % 32, i / 32);
        const uint32_t want =
            level(v >> 16, 7) << 16 | level(v >> 8 & 0xFF, 7) << 8 | level(v & 0xFF, 3);
        EXPECT_EQ(colour(s, i % 32, i / 32), want) << i;
    }
}

} // namespace
