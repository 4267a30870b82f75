// Stored layouts against values worked out by hand from the pixel-storage
// rules: 12-bit pairs, colour order, fourth channels, palette lookup, grey
// weights and scaling, significant-bit ranges and raw samples.
#include "convert_util.h"

#include <gtest/gtest.h>

using namespace cvt;

TEST(ConvertLayouts, TwelveBitPairsUnpackAndRepack) {
    const Bytes src{0x21, 0x43, 0x65, 0xBC, 0xFA};
    Bytes work(6);
    ASSERT_EQ(ToWork(src, work, 3, 12, 16, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(Word(work, 0), 0x3210); // even pixel 0x321 at the top of the word
    EXPECT_EQ(Word(work, 1), 0x6540);
    EXPECT_EQ(Word(work, 2), 0xABC0); // the nibble past the last pixel is not read

    Bytes back(5, 0xFF);
    ASSERT_EQ(ToStored(work, back, 3, 12, 16, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(back, (Bytes{0x21, 0x43, 0x65, 0xBC, 0x0A}));
}

TEST(ConvertLayouts, ColourOrderAndFourthChannel) {
    const Bytes rgb{10, 20, 30};
    Bytes work(3);
    ASSERT_EQ(ToWork(rgb, work, 1, 24, 24, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(work, (Bytes{30, 20, 10}));
    ASSERT_EQ(ToWork(rgb, work, 1, 24, 24, KRN_ORDER_BGR), KRN_OK);
    EXPECT_EQ(work, (Bytes{10, 20, 30}));
    Bytes stored(3);
    ASSERT_EQ(ToStored(Bytes{30, 20, 10}, stored, 1, 24, 24, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(stored, (Bytes{10, 20, 30}));

    // 32 bits: the fourth byte is not read, and is left as it is on the way back.
    const Bytes bgra{10, 20, 30, 99, 40, 50, 60, 77};
    Bytes w24(6);
    ASSERT_EQ(ToWork(bgra, w24, 2, 32, 24, KRN_ORDER_BGR), KRN_OK);
    EXPECT_EQ(w24, (Bytes{10, 20, 30, 40, 50, 60}));
    Bytes out32{0, 0, 0, 0xAA, 0, 0, 0, 0xBB};
    ASSERT_EQ(ToStored(Bytes{1, 2, 3, 4, 5, 6}, out32, 2, 32, 24, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(out32, (Bytes{3, 2, 1, 0xAA, 6, 5, 4, 0xBB}));

}

TEST(ConvertLayouts, GreyWeightsAndDepthChanges) {
    // Red, green, blue and a mix: (R*77 + G*150 + B*29 + 128) >> 8.
    const Bytes rgb{255, 0, 0, 0, 255, 0, 0, 0, 255, 100, 150, 200};
    Bytes w0(4), w16(8);
    ASSERT_EQ(ToWork(rgb, w0, 4, 24, 0, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(w0, (Bytes{77, 149, 29, 141}));
    ASSERT_EQ(ToWork(rgb, w16, 4, 24, 16, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(w16, Words({77 * 257, 149 * 257, 29 * 257, 141 * 257}));

    // The same weights at 16 bits, and 16 to 8 takes the high byte.
    const Bytes rgb48 = Words({65535, 0, 0, 0, 65535, 0, 0, 0, 65535});
    Bytes d16(6), d0(3);
    ASSERT_EQ(ToWork(rgb48, d16, 3, 48, 16, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(d16, Words({19712, 38399, 7424}));
    ASSERT_EQ(ToWork(rgb48, d0, 3, 48, 0, KRN_ORDER_RGB), KRN_OK);
    EXPECT_EQ(d0, (Bytes{77, 149, 29}));

}

TEST(ConvertLayouts, PaletteIndicesLookUpEntries) {
    const RzRGBQuad pal[256] = {Quad(255, 0, 0), Quad(0, 255, 0), Quad(0, 0, 255), Quad(100, 150, 200)};
    const Bytes src{0x1B}; // 2-bit indices 0, 1, 2, 3
    Bytes w24(12), w0(4), w16(8);
    ASSERT_EQ(ToWork(src, w24, 4, 2, 24, KRN_ORDER_BGR, pal), KRN_OK);
    EXPECT_EQ(w24, (Bytes{0, 0, 255, 0, 255, 0, 255, 0, 0, 200, 150, 100}));
    ASSERT_EQ(ToWork(src, w0, 4, 2, 0, KRN_ORDER_BGR, pal), KRN_OK);
    EXPECT_EQ(w0, (Bytes{77, 149, 29, 141}));
    ASSERT_EQ(ToWork(src, w16, 4, 2, 16, KRN_ORDER_BGR, pal), KRN_OK);
    EXPECT_EQ(w16, Words({77 * 257, 149 * 257, 29 * 257, 141 * 257}));

    // 8-bit indices read the palette too, unless the order says grey samples.
    const Bytes idx8{3, 0};
    Bytes c(6);
    ASSERT_EQ(ToWork(idx8, c, 2, 8, 24, KRN_ORDER_RGB, pal), KRN_OK);
    EXPECT_EQ(c, (Bytes{200, 150, 100, 0, 0, 255}));
    ASSERT_EQ(ToWork(idx8, c, 2, 8, 24, KRN_ORDER_GRAY, pal), KRN_OK);
    EXPECT_EQ(c, (Bytes{3, 3, 3, 0, 0, 0}));
}

TEST(ConvertLayouts, SmallGreySamplesScaleToEightBits) {
    // 3-bit samples 0..7: v * 255 / 7 rounded.
    Bytes w0(8);
    ASSERT_EQ(ToWork(Bytes{0x05, 0x39, 0x77}, w0, 8, 3, 0, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(w0, (Bytes{0, 36, 73, 109, 146, 182, 219, 255}));
    Bytes five(2); // 00001 10000: 255/31 = 8.2, 16*255/31 = 131.6
    ASSERT_EQ(ToWork(Bytes{0x0C, 0x00}, five, 2, 5, 0, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(five, (Bytes{8, 132}));

    // Back: 54*7/255 = 1.48, 55*7/255 = 1.51, 91*7/255 = 2.498; samples 1, 1, 1, 2, 2.
    Bytes packed(2);
    ASSERT_EQ(ToStored(Bytes{36, 37, 54, 55, 91}, packed, 5, 3, 0, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(packed, (Bytes{0x24, 0xA4}));
}

TEST(ConvertLayouts, PackedRowsClearBitsPastTheLastPixel) {
    Bytes dst{0xFF, 0xFF, 0xFF};
    ASSERT_EQ(ToStored(Bytes{255, 255, 255}, dst, 3, 3, 0, KRN_ORDER_GRAY), KRN_OK);
    EXPECT_EQ(dst, (Bytes{0xFF, 0x80, 0xFF})); // 9 bits written, byte 2 not touched
}

TEST(ConvertLayouts, SignificantBitRanges) {
    // Bits 0..11 of a 16-bit sample: bits 12..15 are dropped and come back 0.
    Bytes w16(2), w0(1), back(2);
    ASSERT_EQ(ToWork(Words({0xF123}), w16, 1, 16, 16, KRN_ORDER_GRAY, nullptr, KRN_GRAY_NONE, 0, 11), KRN_OK);
    EXPECT_EQ(Word(w16, 0), 0x1230);
    ASSERT_EQ(ToWork(Words({0xF123}), w0, 1, 16, 0, KRN_ORDER_GRAY, nullptr, KRN_GRAY_NONE, 0, 11), KRN_OK);
    EXPECT_EQ(w0[0], 0x12);
    ASSERT_EQ(ToStored(Words({0x123F}), back, 1, 16, 16, KRN_ORDER_GRAY, KRN_GRAY_NONE, 0, 11), KRN_OK);
    EXPECT_EQ(Word(back, 0), 0x0123);

    // Bits 4..11.
    ASSERT_EQ(ToWork(Words({0xFAB7}), w16, 1, 16, 16, KRN_ORDER_GRAY, nullptr, KRN_GRAY_NONE, 4, 11), KRN_OK);
    EXPECT_EQ(Word(w16, 0), 0xAB00);
    ASSERT_EQ(ToStored(w16, back, 1, 16, 16, KRN_ORDER_GRAY, KRN_GRAY_NONE, 4, 11), KRN_OK);
    EXPECT_EQ(Word(back, 0), 0x0AB0);


    // Ranges outside the sample.
    const Bytes s = Words({1});
    EXPECT_EQ(ToWork(s, w16, 1, 16, 16, KRN_ORDER_GRAY, nullptr, KRN_GRAY_NONE, 4, 3), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToWork(s, w16, 1, 16, 16, KRN_ORDER_GRAY, nullptr, KRN_GRAY_NONE, 0, 16), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToStored(s, w16, 1, 12, 16, KRN_ORDER_GRAY, KRN_GRAY_NONE, 0, 12), KRN_INVALID_PARAMETER);
}

TEST(ConvertLayouts, RejectsBadArguments) {
    const RzRGBQuad pal[256] = {};
    Bytes a(64), b(64);
    EXPECT_EQ(KrnConvertRowBuffer(nullptr, b.data(), 1, 8, 0, 2, 1, nullptr, 0, 0, 0, -1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToWork(a, b, -1, 8, 0, KRN_ORDER_GRAY), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToWork(a, b, 1, 9, 0, KRN_ORDER_GRAY), KRN_BAD_BITS);
    EXPECT_EQ(ToWork(a, b, 1, 8, 8, KRN_ORDER_GRAY), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnConvertRowBuffer(a.data(), b.data(), 1, 8, 0, 2, 1, nullptr, 2, 0, 0, -1), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToWork(a, b, 1, 8, 0, KRN_ORDER_GRAY, nullptr, 2), KRN_INVALID_PARAMETER);
    // Palette data needs its palette, and is written back through matching.
    EXPECT_EQ(ToWork(a, b, 1, 4, 24, KRN_ORDER_BGR, nullptr), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToStored(a, b, 1, 8, 0, KRN_ORDER_BGR), KRN_INVALID_PARAMETER);
    // Colour layouts have a colour order.
    EXPECT_EQ(ToWork(a, b, 1, 24, 24, KRN_ORDER_GRAY), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ToWork(a, b, 0, 24, 24, KRN_ORDER_BGR, pal), KRN_OK);
}

TEST(ConvertRowBytes, CoversBothDirections) {
    EXPECT_EQ(KrnRowBytesFor(10, 12, 10, 0), 15u);
    EXPECT_EQ(KrnRowBytesFor(10, 12, 10, 16), 20u);
    EXPECT_EQ(KrnRowBytesFor(10, 48, 10, 24), 60u);
    EXPECT_EQ(KrnRowBytesFor(3, 3, 0, 0), 2u);
    EXPECT_EQ(KrnRowBytesFor(0x7FFFFFFF, 64, 1, 0), 0u); // more than 32 bits can say
    EXPECT_EQ(KrnRowBytesFor(10, 9, 10, 0), 0u);
}

TEST(ConvertBitRange, CountMaskShift) {
    uint32_t count = 0, mask = 0, shift = 0;
    ASSERT_EQ(KrnGetBitRange(12, 12, 4, -1, &count, &mask, &shift), KRN_OK);
    EXPECT_TRUE(count == 8 && mask == 0xFF && shift == 4);
    ASSERT_EQ(KrnGetBitRange(16, 16, 7, 7, &count, &mask, &shift), KRN_OK);
    EXPECT_TRUE(count == 1 && mask == 1 && shift == 7);

    EXPECT_EQ(KrnGetBitRange(16, 16, 0, 16, &count, &mask, &shift), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitRange(16, 12, 0, -1, &count, &mask, &shift), KRN_INVALID_PARAMETER);
}
