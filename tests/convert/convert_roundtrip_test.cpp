// Stored -> working -> stored gives the stored row back for every layout and
// every working format that holds its samples exactly; widths cover whole
// groups of packed samples and every tail.
#include "convert_util.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace cvt;

namespace {

struct Layout {
    int32_t bits;
    int32_t order;
    int32_t gray;
    std::vector<int32_t> works;
};

std::string Name(const Layout &l) {
    return std::to_string(l.bits) + "-bit order " + std::to_string(l.order) + (l.gray ? " raw" : "");
}

// Random stored row with the bits past the last pixel clear.
Bytes RandomRow(std::mt19937 &rng, int32_t width, int32_t bits) {
    Bytes row(StoredBytes(width, bits));
    for (auto &b : row) b = static_cast<uint8_t>(rng());
    const size_t used = static_cast<size_t>(width) * bits;
    if (bits == 12) {
        if (width % 2) row.back() &= 0x0F; // a lone last pixel ends in the low nibble
    } else if (used % 8) {
        row.back() &= static_cast<uint8_t>(0xFF << (8 - used % 8)); // packed MSB first
    }
    return row;
}

const int32_t kWidths[] = {1, 2, 7, 8, 9, 15, 16, 17, 40};

} // namespace

TEST(ConvertRoundTrip, EveryLayoutThroughEveryExactWorkingFormat) {
    const std::vector<Layout> layouts = {
        {1, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}}, {2, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}},
        {3, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}}, {4, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}},
        {5, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}}, {6, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}},
        {7, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}}, {8, KRN_ORDER_GRAY, 0, {0, 16, 24, 48}},
        {1, KRN_ORDER_BGR, 1, {0}},              {2, KRN_ORDER_BGR, 1, {0}},
        {3, KRN_ORDER_BGR, 1, {0}},              {4, KRN_ORDER_BGR, 1, {0}},
        {5, KRN_ORDER_BGR, 1, {0}},              {6, KRN_ORDER_BGR, 1, {0}},
        {7, KRN_ORDER_BGR, 1, {0}},              {8, KRN_ORDER_BGR, 1, {0}},
        {12, KRN_ORDER_GRAY, 0, {16, 48}},       {16, KRN_ORDER_GRAY, 0, {16, 48}},
        {12, KRN_ORDER_GRAY, 1, {16}},           {16, KRN_ORDER_GRAY, 1, {16}},
        {24, KRN_ORDER_RGB, 0, {24, 48}},        {24, KRN_ORDER_BGR, 0, {24, 48}},
        {32, KRN_ORDER_RGB, 0, {24, 48}},        {32, KRN_ORDER_BGR, 0, {24, 48}},
        {48, KRN_ORDER_RGB, 0, {48}},            {48, KRN_ORDER_BGR, 0, {48}},
        {64, KRN_ORDER_RGB, 0, {48}},            {64, KRN_ORDER_BGR, 0, {48}},
    };
    std::mt19937 rng(1234);
    for (const Layout &l : layouts) {
        for (int32_t work : l.works) {
            for (int32_t width : kWidths) {
                SCOPED_TRACE(Name(l) + ", work " + std::to_string(work) + ", width " + std::to_string(width));
                const Bytes stored = RandomRow(rng, width, l.bits);
                Bytes working(WorkBytes(width, work) + 1, 0xEE);
                ASSERT_EQ(ToWork(stored, working, width, l.bits, work, l.order, nullptr, l.gray), KRN_OK);
                EXPECT_EQ(working.back(), 0xEE) << "wrote past the working row";
                // The fourth channel of 32/64 bits must survive in the destination.
                Bytes back = stored;
                if (l.bits != 32 && l.bits != 64) std::fill(back.begin(), back.end(), 0xA5);
                back.push_back(0xEE);
                ASSERT_EQ(ToStored(working, back, width, l.bits, work, l.order, l.gray), KRN_OK);
                EXPECT_EQ(back.back(), 0xEE) << "wrote past the stored row";
                back.pop_back();
                EXPECT_EQ(back, stored);
            }
        }
    }
}

TEST(ConvertRoundTrip, RangeOfTwelveBitsInSixteen) {
    // Bits 2..9 survive any working format; the others come back 0.
    std::mt19937 rng(7);
    Bytes stored(2 * 20);
    for (auto &b : stored) b = static_cast<uint8_t>(rng());
    for (int32_t work : {0, 16, 24, 48}) {
        Bytes working(WorkBytes(20, work)), back(stored.size(), 0xFF);
        ASSERT_EQ(ToWork(stored, working, 20, 16, work, KRN_ORDER_GRAY, nullptr, KRN_GRAY_NONE, 2, 9), KRN_OK);
        ASSERT_EQ(ToStored(working, back, 20, 16, work, KRN_ORDER_GRAY, KRN_GRAY_NONE, 2, 9), KRN_OK);
        for (size_t i = 0; i < 20; ++i) EXPECT_EQ(Word(back, i), Word(stored, i) & 0x03FC) << "work " << work;
    }
}

TEST(ConvertRoundTrip, PaletteRowsComeBackThroughMatching) {
    // Indices -> colours -> nearest entries -> raw packing restores the row
    // when the palette's colours are distinct.
    RzRGBQuad pal[256] = {};
    for (int k = 0; k < 16; ++k) pal[k] = Quad(static_cast<uint8_t>(k * 17), static_cast<uint8_t>(255 - k * 13),
                                               static_cast<uint8_t>((k * 71) & 0xFF));
    BitmapDesc desc{};
    desc.uStructSize = BITMAPDESC_SIZE;
    desc.nBitsPerPixel = 24;
    desc.nColors = 16;
    desc.pPalette = pal;
    std::mt19937 rng(5);
    for (int32_t width : kWidths) {
        SCOPED_TRACE(width);
        desc.nWidth = width;
        const Bytes stored = RandomRow(rng, width, 4);
        Bytes working(WorkBytes(width, 24)), back(stored.size());
        ASSERT_EQ(ToWork(stored, working, width, 4, 24, KRN_ORDER_BGR, pal), KRN_OK);
        ASSERT_EQ(KrnMatchRowToPalette(&desc, working.data(), working.data()), KRN_OK);
        ASSERT_EQ(ToStored(working, back, width, 4, 0, KRN_ORDER_BGR, KRN_GRAY_RAW), KRN_OK);
        EXPECT_EQ(back, stored);
    }
}
