// Working rows to and from every stored layout, and nearest-palette
// matching: values worked out by hand from the pixel-storage rules, round
// trips on every layout and tail width, and an exhaustive search.
#include <rzkrn.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

int32_t Rows(const Bytes &src, Bytes &dst, int32_t width, int32_t bits, int32_t work, int32_t order, int32_t dir,
             const RzRGBQuad *palette = nullptr, int32_t gray = KRN_GRAY_NONE, int32_t low = 0, int32_t high = -1) {
    return KrnConvertRowBuffer(src.data(), dst.data(), width, bits, work, order, 1, palette, dir, gray, low, high);
}

Bytes Words(std::initializer_list<uint16_t> w) {
    Bytes b(2 * w.size());
    std::memcpy(b.data(), w.begin(), b.size());
    return b;
}

RzRGBQuad Quad(uint8_t r, uint8_t g, uint8_t b) { return RzRGBQuad{b, g, r, 0}; }

constexpr int32_t W = KRN_TO_WORK, S = KRN_TO_STORED, GREY = KRN_ORDER_GRAY, RGB = KRN_ORDER_RGB, BGR = KRN_ORDER_BGR;

TEST(ConvertRows, HandWorkedLayoutsAndRefusals) {
    const RzRGBQuad pal[256] = {Quad(255, 0, 0), Quad(0, 255, 0), Quad(0, 0, 255), Quad(100, 150, 200)};
    const struct {
        const char *what;
        int32_t dir;
        Bytes src;
        int32_t width, bits, work, order;
        Bytes want; // for S: the destination before, then after
        Bytes before = {};
        bool palette = false;
        int32_t low = 0, high = -1, gray = KRN_GRAY_NONE, status = KRN_OK;
    } cases[] = {
        // 12-bit pairs: even pixel 0x321 at the top of its word; the nibble past the last pixel is not read.
        {"12-bit pairs", W, {0x21, 0x43, 0x65, 0xBC, 0xFA}, 3, 12, 16, GREY, Words({0x3210, 0x6540, 0xABC0})},
        {"12-bit repack", S, Words({0x3210, 0x6540, 0xABC0}), 3, 12, 16, GREY, {0x21, 0x43, 0x65, 0xBC, 0x0A}, Bytes(5, 0xFF)},
        {"red first", W, {10, 20, 30}, 1, 24, 24, RGB, {30, 20, 10}},
        // Grey from colour: (R*77 + G*150 + B*29 + 128) >> 8, also from palette indices.
        {"colour to grey", W, {255, 0, 0, 0, 255, 0, 0, 0, 255, 100, 150, 200}, 4, 24, 0, RGB, {77, 149, 29, 141}},
        {"colour to 16-bit grey", W, {255, 0, 0, 100, 150, 200}, 2, 24, 16, RGB, Words({77 * 257, 141 * 257})},
        {"indices to grey", W, {0, 1, 2, 3}, 4, 8, 0, BGR, {77, 149, 29, 141}, {}, true},
        {"blue first", W, {10, 20, 30}, 1, 24, 24, BGR, {10, 20, 30}},
        {"red first back", S, {30, 20, 10}, 1, 24, 24, RGB, {10, 20, 30}, Bytes(3)},
        {"fourth not read", W, {10, 20, 30, 99, 40, 50, 60, 77}, 2, 32, 24, BGR, {10, 20, 30, 40, 50, 60}},
        {"fourth kept", S, {1, 2, 3, 4, 5, 6}, 2, 32, 24, RGB, {3, 2, 1, 0xAA, 6, 5, 4, 0xBB}, {0, 0, 0, 0xAA, 0, 0, 0, 0xBB}},
        {"2-bit indices", W, {0x1B}, 4, 2, 24, BGR, {0, 0, 255, 0, 255, 0, 255, 0, 0, 200, 150, 100}, {}, true},
        {"8-bit indices", W, {3, 0}, 2, 8, 24, RGB, {200, 150, 100, 0, 0, 255}, {}, true},
        {"8-bit grey samples", W, {3, 0}, 2, 8, 24, GREY, {3, 3, 3, 0, 0, 0}, {}, true},
        {"3-bit grey: v * 255 / 7", W, {0x05, 0x39, 0x77}, 8, 3, 0, GREY, {0, 36, 73, 109, 146, 182, 219, 255}},
        {"5-bit grey: 8.2, 131.6", W, {0x0C, 0x00}, 2, 5, 0, GREY, {8, 132}},
        // 54*7/255 = 1.48, 55*7/255 = 1.51, 91*7/255 = 2.498: samples 1, 1, 1, 2, 2.
        {"3-bit grey back", S, {36, 37, 54, 55, 91}, 5, 3, 0, GREY, {0x24, 0xA4}, Bytes(2)},
        {"bits past the last pixel", S, {255, 255, 255}, 3, 3, 0, GREY, {0xFF, 0x80, 0xFF}, {0xFF, 0xFF, 0xFF}},
        // Bits 0..11 of 16: bits 12..15 are dropped and come back 0; bits 4..11 likewise.
        {"bits 0..11", W, Words({0xF123}), 1, 16, 16, GREY, Words({0x1230}), {}, false, 0, 11},
        {"bits 0..11 to bytes", W, Words({0xF123}), 1, 16, 0, GREY, {0x12}, {}, false, 0, 11},
        {"bits 0..11 back", S, Words({0x123F}), 1, 16, 16, GREY, Words({0x0123}), Bytes(2, 0xFF), false, 0, 11},
        {"bits 4..11", W, Words({0xFAB7}), 1, 16, 16, GREY, Words({0xAB00}), {}, false, 4, 11},
        {"bits 4..11 back", S, Words({0xAB00}), 1, 16, 16, GREY, Words({0x0AB0}), Bytes(2), false, 4, 11},
        {"range upside down", W, Words({1}), 1, 16, 16, GREY, {}, {}, false, 4, 3, 0, KRN_INVALID_PARAMETER},
        {"range past 16", W, Words({1}), 1, 16, 16, GREY, {}, {}, false, 0, 16, 0, KRN_INVALID_PARAMETER},
        {"working 8", W, Bytes(8), 1, 8, 8, GREY, {}, {}, false, 0, -1, 0, KRN_INVALID_PARAMETER},
        {"indices without palette", W, Bytes(8), 1, 4, 24, BGR, {}, {}, false, 0, -1, 0, KRN_INVALID_PARAMETER},
        {"indices back unmatched", S, Bytes(8), 1, 8, 0, BGR, {}, Bytes(8), false, 0, -1, 0, KRN_INVALID_PARAMETER},
        {"colour as grey", W, Bytes(8), 1, 24, 24, GREY, {}, {}, false, 0, -1, 0, KRN_INVALID_PARAMETER},
    };
    for (const auto &c : cases) {
        Bytes dst = c.dir == S ? c.before : Bytes(std::max<size_t>(c.want.size(), 8));
        EXPECT_EQ(Rows(c.src, dst, c.width, c.bits, c.work, c.order, c.dir, c.palette ? pal : nullptr, c.gray, c.low,
                       c.high),
                  c.status)
            << c.what;
        if (c.status != KRN_OK) continue;
        EXPECT_EQ(Bytes(dst.begin(), dst.begin() + c.want.size()), c.want) << c.what;
    }
}

TEST(ConvertRows, RowBytesAndBitRanges) {
    EXPECT_EQ(KrnRowBytesFor(10, 12, 10, 0), 15u);
    EXPECT_EQ(KrnRowBytesFor(10, 12, 10, 16), 20u);
    EXPECT_EQ(KrnRowBytesFor(10, 48, 10, 24), 60u);
    EXPECT_EQ(KrnRowBytesFor(3, 3, 0, 0), 2u);
    EXPECT_EQ(KrnRowBytesFor(0x7FFFFFFF, 64, 1, 0), 0u); // more than 32 bits can say
    EXPECT_EQ(KrnRowBytesFor(10, 9, 10, 0), 0u);
    uint32_t count = 0, mask = 0, shift = 0;
    ASSERT_EQ(KrnGetBitRange(12, 12, 4, -1, &count, &mask, &shift), KRN_OK);
    EXPECT_TRUE(count == 8 && mask == 0xFF && shift == 4);
    ASSERT_EQ(KrnGetBitRange(16, 16, 7, 7, &count, &mask, &shift), KRN_OK);
    EXPECT_TRUE(count == 1 && mask == 1 && shift == 7);
    EXPECT_EQ(KrnGetBitRange(16, 16, 0, 16, &count, &mask, &shift), KRN_INVALID_PARAMETER);
    EXPECT_EQ(KrnGetBitRange(16, 12, 0, -1, &count, &mask, &shift), KRN_INVALID_PARAMETER);
}

size_t StoredBytes(int32_t width, int32_t bits) { return (size_t(width) * bits + 7) / 8; }
size_t WorkBytes(int32_t width, int32_t work) { return size_t(width) * (work == 0 ? 1 : work / 8); }

// Random stored row with the bits past the last pixel clear.
Bytes RandomRow(std::mt19937 &rng, int32_t width, int32_t bits) {
    Bytes row(StoredBytes(width, bits));
    for (auto &b : row) b = uint8_t(rng());
    const size_t used = size_t(width) * bits;
    if (bits == 12 && width % 2)
        row.back() &= 0x0F; // a lone last pixel ends in the low nibble
    else if (bits != 12 && used % 8)
        row.back() &= uint8_t(0xFF << (8 - used % 8)); // packed MSB first
    return row;
}

const int32_t kWidths[] = {1, 2, 7, 8, 9, 15, 16, 17, 40};

// Stored -> working -> stored gives the row back for every layout and every
// working format that holds its samples exactly, without writing past
// either row; 32/64 bits keep the destination's fourth channel.
TEST(ConvertRows, EveryLayoutRoundTripsThroughEveryExactWorkingFormat) {
    struct Layout {
        int32_t bits, order, gray;
        std::vector<int32_t> works;
    };
    std::vector<Layout> layouts;
    for (int32_t bits = 1; bits <= 8; ++bits) {
        layouts.push_back({bits, GREY, KRN_GRAY_NONE, {0, 16, 24, 48}});
        layouts.push_back({bits, BGR, KRN_GRAY_RAW, {0}});
    }
    for (int32_t bits : {12, 16}) {
        layouts.push_back({bits, GREY, KRN_GRAY_NONE, {16, 48}});
        layouts.push_back({bits, GREY, KRN_GRAY_RAW, {16}});
    }
    for (int32_t bits : {24, 32, 48, 64})
        for (int32_t order : {RGB, BGR})
            layouts.push_back({bits, order, KRN_GRAY_NONE, bits >= 48 ? std::vector<int32_t>{48} : std::vector<int32_t>{24, 48}});
    std::mt19937 rng(1234);
    for (const Layout &l : layouts)
        for (int32_t work : l.works)
            for (int32_t width : kWidths) {
                SCOPED_TRACE(testing::Message() << l.bits << "-bit order " << l.order << " raw " << l.gray << " work "
                                                << work << " width " << width);
                const Bytes stored = RandomRow(rng, width, l.bits);
                Bytes working(WorkBytes(width, work) + 1, 0xEE);
                ASSERT_EQ(Rows(stored, working, width, l.bits, work, l.order, W, nullptr, l.gray), KRN_OK);
                EXPECT_EQ(working.back(), 0xEE) << "wrote past the working row";
                Bytes back = stored;
                if (l.bits != 32 && l.bits != 64) std::fill(back.begin(), back.end(), 0xA5);
                back.push_back(0xEE);
                ASSERT_EQ(Rows(working, back, width, l.bits, work, l.order, S, nullptr, l.gray), KRN_OK);
                EXPECT_EQ(back.back(), 0xEE) << "wrote past the stored row";
                back.pop_back();
                EXPECT_EQ(back, stored);
            }
}

BitmapDesc PaletteDesc(int32_t bits, int32_t width, RzRGBQuad *pal, int32_t colours) {
    BitmapDesc d{};
    d.uStructSize = BITMAPDESC_SIZE;
    d.nBitsPerPixel = bits;
    d.nWidth = width;
    d.nColors = colours;
    d.pPalette = pal;
    return d;
}

// Indices -> colours -> nearest entries -> raw packing restores the row
// when the palette's colours are distinct.
TEST(ConvertRows, PaletteRowsComeBackThroughMatching) {
    RzRGBQuad pal[256] = {};
    for (int k = 0; k < 16; ++k) pal[k] = Quad(uint8_t(k * 17), uint8_t(255 - k * 13), uint8_t((k * 71) & 0xFF));
    std::mt19937 rng(5);
    for (int32_t width : kWidths) {
        BitmapDesc desc = PaletteDesc(24, width, pal, 16);
        const Bytes stored = RandomRow(rng, width, 4);
        Bytes working(WorkBytes(width, 24)), back(stored.size());
        ASSERT_EQ(Rows(stored, working, width, 4, 24, BGR, W, pal), KRN_OK);
        ASSERT_EQ(KrnMatchRowToPalette(&desc, working.data(), working.data()), KRN_OK);
        ASSERT_EQ(Rows(working, back, width, 4, 0, BGR, S, nullptr, KRN_GRAY_RAW), KRN_OK);
        EXPECT_EQ(back, stored) << width;
    }
}

// The first entry of least squared distance.
uint8_t Exhaustive(const RzRGBQuad *pal, int n, int r, int g, int b) {
    int best = -1, bestD = 0;
    for (int k = 0; k < n; ++k) {
        const int dr = pal[k].rgbRed - r, dg = pal[k].rgbGreen - g, db = pal[k].rgbBlue - b;
        const int d = dr * dr + dg * dg + db * db;
        if (best < 0 || d < bestD) best = k, bestD = d;
    }
    return uint8_t(best);
}

TEST(MatchPalette, NearestAndLowestOnTies) {
    RzRGBQuad pal[256] = {Quad(0, 0, 0), Quad(255, 255, 255), Quad(200, 0, 0), Quad(200, 0, 0), Quad(2, 0, 0)};
    BitmapDesc d = PaletteDesc(24, 5, pal, 5);
    // B, G, R: dark red, exact duplicate, midway between black and (2,0,0), near white, red.
    const Bytes work{0, 0, 120, 0, 0, 200, 0, 0, 1, 250, 250, 240, 10, 10, 180};
    Bytes idx(5);
    ASSERT_EQ(KrnMatchRowToPalette(&d, work.data(), idx.data()), KRN_OK);
    EXPECT_EQ(idx, (Bytes{2, 2, 0, 1, 2}));
    // Grey rows compare as grey colours: 20 is as far from 0 as from 40 (index
    // 0 wins), 50 ties 40 and 60, 90 is nearer (60,60,60) than (90,0,0).
    RzRGBQuad greys[256] = {Quad(40, 40, 40), Quad(0, 0, 0), Quad(90, 0, 0), Quad(60, 60, 60)};
    BitmapDesc g = PaletteDesc(8, 6, greys, 4);
    Bytes row{20, 50, 90, 0, 20, 255};
    ASSERT_EQ(KrnMatchRowToPalette(&g, row.data(), row.data()), KRN_OK);
    EXPECT_EQ(row, (Bytes{0, 0, 3, 1, 0, 3}));
}

TEST(MatchPalette, ManyColoursAgreeWithExhaustiveSearch) {
    std::mt19937 rng(42);
    RzRGBQuad pal[256];
    for (auto &q : pal) q = Quad(uint8_t(rng()), uint8_t(rng()), uint8_t(rng()));
    pal[200] = pal[17];     // a duplicate answers with the lower index
    const int width = 5000; // more distinct colours than the cache keeps
    Bytes work(3 * width);
    for (auto &b : work) b = uint8_t(rng());
    for (int i = 0; i < width; i += 97) { // some exact palette colours
        const RzRGBQuad &q = pal[rng() % 256];
        work[3 * i] = q.rgbBlue, work[3 * i + 1] = q.rgbGreen, work[3 * i + 2] = q.rgbRed;
    }
    const Bytes copy = work;
    BitmapDesc d = PaletteDesc(24, width, pal, 256);
    ASSERT_EQ(KrnMatchRowToPalette(&d, work.data(), work.data()), KRN_OK); // in place
    for (int i = 0; i < width; ++i)
        ASSERT_EQ(work[i], Exhaustive(pal, 256, copy[3 * i + 2], copy[3 * i + 1], copy[3 * i])) << i;
}

} // namespace
