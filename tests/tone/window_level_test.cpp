// Deep grey: bits in use, window levelling and scaling. Each family is one
// table of cases compared with a reference that reads the stored samples
// through KrnGetPixel and applies the formula directly.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace rz::test {
namespace {

Bitmap Deep(int32_t bits, int32_t w, int32_t h, const std::vector<uint32_t> &values, int32_t low = 0,
            int32_t high = -1) {
    Bitmap b(FindLayout(bits == 12 ? "grey12" : "grey16"), w, h, 0);
    b->nLowBit = low;
    b->nHighBit = high;
    for (int32_t i = 0; i < w * h; ++i) b.setPixel(i % w, i / w, values[size_t(i) % values.size()]);
    return b;
}

TEST(GetMinMaxBits, WorkedCases) {
    struct Case {
        const char *what;
        int32_t bits;
        std::vector<uint32_t> values;
        int32_t low, high;
    } cases[] = {
        {"all 0x0FF0", 16, {0x0FF0}, 4, 11},
        {"all zero", 16, {0}, 0, 0},
        {"lowest and top bit", 16, {0x8000, 0x0001}, 0, 15},
        {"12-bit, odd pixels only", 12, {0, 0x010, 0, 0x100}, 4, 8},
        {"12-bit, even pixels only", 12, {0x802, 0}, 1, 11},
    };
    for (const Case &c : cases) {
        Bitmap b = Deep(c.bits, 5, 3, c.values);
        int32_t low = -7, high = -7;
        EXPECT_EQ(Rz_GetMinMaxBits(b.get(), &low, &high), 1) << c.what;
        EXPECT_EQ(low, c.low) << c.what;
        EXPECT_EQ(high, c.high) << c.what;
    }
}

TEST(GetMinMaxBits, RegionAndColour) {
    Bitmap b = Deep(16, 6, 4, {0x0100});
    b.setPixel(5, 3, 0xF001); // outside the region below
    const RzRect r{0, 0, 4, 3};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    int32_t low = 0, high = 0;
    EXPECT_EQ(Rz_GetMinMaxBits(b.get(), &low, &high), 1);
    EXPECT_EQ(low, 8);
    EXPECT_EQ(high, 8);
    // An empty region: completion is reported, the outputs are 0.
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_DIFF), 1);
    CallbackRecorder rec;
    low = high = 9;
    EXPECT_EQ(Rz_GetMinMaxBits(b.get(), &low, &high), ST_EMPTY_REGION);
    EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
    EXPECT_EQ(low, 0);
    EXPECT_EQ(high, 0);

    Bitmap colour(FindLayout("bgr24"), 3, 3, 1);
    EXPECT_EQ(Rz_GetMinMaxBits(colour.get(), nullptr, nullptr), ST_INVALID_PARAMETER);
}

// What a levelled pixel shows: the significant value (offset when signed)
// picks a table entry; without a table the value's top 8 bits.
struct Level {
    const char *what;
    int32_t bits;
    bool isSigned;
    int32_t low, high; // as passed
    int table;         // 0 none, 1 grey ramp of 300, 2 colour of 64
    uint32_t mode;
};

std::vector<RzRGBQuad> MakeTable(int kind) {
    std::vector<RzRGBQuad> t;
    if (kind == 1)
        for (int i = 0; i < 300; ++i) t.push_back({uint8_t(255 - i % 256), uint8_t(255 - i % 256), uint8_t(255 - i % 256), 0});
    if (kind == 2)
        for (int i = 0; i < 64; ++i) t.push_back({uint8_t(4 * i), uint8_t(100 + i), uint8_t(250 - 3 * i), 0});
    return t;
}

TEST(WindowLevel, EveryPixelAgainstTheFormula) {
    const Level cases[] = {
        {"12-bit, high -1 is bit 11", 12, false, 4, -1, 0, 0},
        {"16-bit, bits 2..9", 16, false, 2, 9, 0, 0},
        {"16-bit, negative low is 0", 16, false, -5, 7, 0, 0},
        {"16-bit signed, all bits", 16, true, 0, 15, 0, 0},
        {"12-bit, grey table", 12, false, 3, 10, 1, 0},
        {"16-bit signed, grey table", 16, true, 8, 15, 1, 0},
        {"16-bit, colour table, red first", 16, false, 4, 9, 2, 0},
        {"12-bit, colour table, blue first", 12, false, 0, 5, 2, 1},
    };
    for (const Level &c : cases) {
        SCOPED_TRACE(c.what);
        Bitmap b(FindLayout(c.bits == 12 ? "grey12" : "grey16"), 7, 5, 11);
        if (c.isSigned) b->uFlags |= BMF_SIGNED;
        const Bitmap before(b);
        const std::vector<RzRGBQuad> table = MakeTable(c.table);
        ASSERT_EQ(Rz_WindowLevelBitmap(b.get(), c.low, c.high, table.empty() ? nullptr : table.data(),
                                       uint32_t(table.size()), c.mode),
                  1);
        const int32_t low = std::max(c.low, 0), high = c.high < 0 ? c.bits - 1 : c.high, k = high - low + 1;
        ASSERT_EQ(b->nBitsPerPixel, c.table == 2 ? 24 : 8);
        if (c.table == 2) {
            EXPECT_EQ(b->nColorOrder, c.mode == 1 ? KRN_ORDER_BGR : KRN_ORDER_RGB);
        }
        for (int32_t y = 0; y < 5; ++y)
            for (int32_t x = 0; x < 7; ++x) {
                uint32_t v = uint32_t(before.pixel(x, y) >> low) & ((1u << k) - 1);
                if (c.isSigned) v ^= 1u << (k - 1);
                uint64_t want;
                if (table.empty()) {
                    want = k >= 8 ? v >> (k - 8) : (uint64_t(v) << (16 - k)) >> 8;
                } else {
                    const RzRGBQuad &e = table[std::min<size_t>(v, table.size() - 1)];
                    want = c.table == 1 ? e.rgbRed : uint64_t(e.rgbRed) | uint64_t(e.rgbGreen) << 8 | uint64_t(e.rgbBlue) << 16;
                }
                ASSERT_EQ(b.pixel(x, y), want) << x << "," << y;
            }
    }
}

TEST(WindowLevel, RefusalsKeepWhatWasStored) {
    Bitmap b(FindLayout("grey12"), 4, 4, 3);
    const RzRGBQuad entry{1, 1, 1, 0};
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 10, 5, nullptr, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(b->nLowBit, 10);
    EXPECT_EQ(b->nHighBit, 5);
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 0, 12, nullptr, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 0, 11, nullptr, 3, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 0, 11, &entry, 1, 2), ST_INVALID_PARAMETER);
    EXPECT_EQ(b->nBitsPerPixel, 12);
    Bitmap colour(FindLayout("bgr24"), 4, 4, 3);
    EXPECT_EQ(Rz_WindowLevelBitmap(colour.get(), 0, 7, nullptr, 0, 0), ST_INVALID_PARAMETER);
}

TEST(WindowLevel, TheBitmapsOwnTableIsUsedInPlace) {
    Bitmap b(FindLayout("grey16_lut"), 5, 2, 4);
    for (uint32_t i = 0; i < b->nLUTLength; ++i) b->pLUT[i] = {uint8_t(i ^ 0x55), uint8_t(i ^ 0x55), uint8_t(i ^ 0x55), 0};
    const Bitmap before(b);
    ASSERT_EQ(Rz_WindowLevelBitmap(b.get(), 8, 15, b->pLUT, b->nLUTLength, 0), 1);
    EXPECT_EQ(b->pLUT, nullptr);
    for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(b.pixel(x, 1), (before.pixel(x, 1) >> 8) ^ 0x55);
}

// Rz_MultiplyBitmap against min(v * f / 100, max) in unsigned 32-bit
// arithmetic, signed samples through their offset value.
TEST(Multiply, EveryPixelAgainstTheFormula) {
    struct Case {
        const char *layout;
        bool isSigned;
    } layouts[] = {{"grey8", false}, {"grey12", false}, {"grey16", false}, {"grey16", true}, {"bgr24", false},
                   {"bgr48", false}};
    for (const Case &c : layouts)
        for (uint32_t factor : {0u, 50u, 150u, 100000u, 4294967295u}) {
            SCOPED_TRACE(std::string(c.layout) + (c.isSigned ? " signed " : " ") + std::to_string(factor));
            Bitmap b(FindLayout(c.layout), 9, 4, factor + 1);
            if (c.isSigned) b->uFlags |= BMF_SIGNED;
            const Bitmap before(b);
            ASSERT_EQ(Rz_MultiplyBitmap(b.get(), factor), 1);
            const int32_t bits = b->nBitsPerPixel;
            const uint32_t sample = bits >= 48 || bits == 16 ? 16 : bits == 12 ? 12 : 8;
            const uint32_t n = 1u << sample, max = n - 1, half = c.isSigned ? n / 2 : 0;
            const int channels = bits >= 24 ? 3 : 1;
            for (int32_t y = 0; y < 4; ++y)
                for (int32_t x = 0; x < 9; ++x) {
                    const uint64_t in = before.pixel(x, y), out = b.pixel(x, y);
                    for (int ch = 0; ch < channels; ++ch) {
                        const uint32_t v = uint32_t(in >> (ch * sample)) & max;
                        const uint32_t i = (v + half) & max; // offset value of a signed sample
                        const uint32_t want = (std::min((i * factor) / 100, max) - half) & max;
                        ASSERT_EQ(uint32_t(out >> (ch * sample)) & max, want) << x << "," << y << " channel " << ch;
                    }
                }
        }
}

TEST(Multiply, WorkedValuesAndPalettes) {
    std::vector<uint8_t> ramp(256);
    for (int i = 0; i < 256; ++i) ramp[i] = uint8_t(i);
    Bitmap g = GreyBitmap(256, 1, ramp);
    ASSERT_EQ(Rz_MultiplyBitmap(g.get(), 150), 1);
    EXPECT_EQ(g.pixel(100, 0), 150u);
    EXPECT_EQ(g.pixel(200, 0), 255u);
    // A palettised bitmap changes only its palette.
    Bitmap p(FindLayout("pal8_colour"), 6, 3, 5);
    const Bitmap before(p);
    RzRGBQuad pal0[256], pal1[256];
    KrnGetBitmapPalette(before.get(), 0, 256, pal0);
    ASSERT_EQ(Rz_MultiplyBitmap(p.get(), 50), 1);
    KrnGetBitmapPalette(p.get(), 0, 256, pal1);
    EXPECT_EQ(p.storedBytes(), before.storedBytes());
    for (int i = 0; i < 256; ++i) EXPECT_EQ(pal1[i].rgbGreen, pal0[i].rgbGreen / 2) << i;
}

} // namespace
} // namespace rz::test
