// Tone operations: 8-bit tables worked by hand from their formulas; every
// pixel of every layout against references that read and predict each pixel
// through KrnGetPixel (tables by channel, multiplication, window levelling,
// the intensity band) with their palette and display-table paths.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

namespace rz::test {
namespace {

// Each 8-bit table at a few entries, worked by hand from its formula.
TEST(PointOps, WorkedTables) {
    const struct {
        const char *what;
        std::function<int32_t(BitmapDesc *)> op;
        std::vector<std::pair<int, uint64_t>> entries;
    } cases[] = {
        // (-255000 + 500) / 1000 truncates to -254: 255 maps to 1.
        {"intensity -1000", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, -1000); }, {{255, 1}, {254, 0}}},
        {"intensity -1 rounds to 0", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, -1); }, {{0, 0}, {77, 77}, {255, 255}}},
        // (255 x 200 + 500) / 1000 = 51.
        {"intensity +200", [](BitmapDesc *b) { return Rz_ChangeBitmapIntensity(b, 200); }, {{0, 51}, {100, 151}, {204, 255}}},
        // Four levels of 85; the borders at 42.5, 127.5 and 212.5.
        {"posterize 4", [](BitmapDesc *b) { return Rz_PosterizeBitmap(b, 4); },
         {{0, 0}, {42, 0}, {43, 85}, {127, 85}, {128, 170}, {212, 170}, {213, 255}, {255, 255}}},
        // step = 512 / 255 - 1 = 1: (128 + i) / 255 is 1 from 127 on.
        {"posterize 2", [](BitmapDesc *b) { return Rz_PosterizeBitmap(b, 2); }, {{0, 0}, {126, 0}, {127, 255}, {255, 255}}},
        {"posterize 4e9 is every level", [](BitmapDesc *b) { return Rz_PosterizeBitmap(b, 4000000000u); },
         {{0, 0}, {1, 1}, {128, 128}, {254, 254}, {255, 255}}},
        // 255 (i / 255)^(1/2) rounded: 15.97, 63.87, 127.75, 159.69, 225.83, 254.50.
        {"gamma 2", [](BitmapDesc *b) { return Rz_GammaCorrectBitmap(b, 200); },
         {{0, 0}, {1, 16}, {16, 64}, {64, 128}, {100, 160}, {200, 226}, {254, 254}, {255, 255}}},
        // 255 (i / 255)^2: 1.004, 64.25, 156.86, 253.004.
        {"gamma 1/2", [](BitmapDesc *b) { return Rz_GammaCorrectBitmap(b, 50); },
         {{15, 1}, {16, 1}, {128, 64}, {200, 157}, {254, 253}, {255, 255}}},
        {"invert", Rz_InvertBitmap, {{0, 255}, {200, 55}, {255, 0}}},
        {"solarize 128", [](BitmapDesc *b) { return Rz_SolarizeBitmap(b, 128); }, {{100, 100}, {127, 127}, {128, 127}, {200, 55}}},
        // +1000: low = 1000 x 128 / 4000 = 32; k = trunc(5.34 x 1.5^7) = 91;
        // high = 165; between them (i - 32) x 256 / 133.
        {"contrast +1000", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, 1000); },
         {{31, 0}, {32, 0}, {98, 127}, {164, 254}, {165, 255}}},
        // -1000: i x 133 / 256 + 32.
        {"contrast -1000", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, -1000); }, {{0, 32}, {128, 99}, {255, 164}}},
        // +500: low = 16; k = trunc(5.34 x 1.5^6) = 60; high = 196.
        {"contrast +500", [](BitmapDesc *b) { return Rz_ChangeBitmapContrast(b, 500); }, {{15, 0}, {106, 128}, {196, 255}}},
    };
    for (const auto &c : cases) { // on the 256 values 0..255
        Bitmap b(FindLayout("grey8"), 256, 1, 0);
        for (int i = 0; i < 256; ++i) b.setPixel(i, 0, uint64_t(i));
        ASSERT_EQ(c.op(b.get()), 1) << c.what;
        for (auto [i, want] : c.entries) EXPECT_EQ(b.pixel(i, 0), want) << c.what << " at " << i;
    }
    // The threshold's top follows the significant bits.
    Bitmap g12(FindLayout("grey12"), 4, 1, 0);
    EXPECT_EQ(Rz_SolarizeBitmap(g12.get(), 4096), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_SolarizeBitmap(g12.get(), 4095), 1);
}

// Every channel (or the chosen one) of every pixel against its map applied
// to ReadChannels' channels (blue, green, red): the caller's tables of the
// samples' size, and multiplication, min(v * f / 100, max) in unsigned 32-bit
// arithmetic, signed samples through their offset value.
TEST(Tables, EveryPixelOfTheChosenChannels) {
    struct Case {
        std::string layout;
        uint32_t channel;
        std::function<int32_t(BitmapDesc *)> op;
        std::function<uint32_t(uint32_t v, uint32_t max)> map;
        bool isSigned = false;
    };
    std::vector<Case> cases;
    for (auto [layout, entries, channel] : {std::tuple{"bgr24", 256u, RZ_CHANNEL_GREEN}, {"rgb24", 256u, 1u},
                                             {"bgr32", 256u, 0u}, {"bgr64", 65536u, RZ_CHANNEL_BLUE},
                                             {"bgr48", 65536u, 0u}, {"grey12", 4096u, 0u}, {"grey16", 65536u, 0u},
                                             {"grey8", 256u, 0u}, {"pal8_colour", 256u, RZ_CHANNEL_GREEN}}) {
        std::vector<uint32_t> t(entries);
        for (uint32_t i = 0; i < entries; ++i) t[i] = (i * 3 + 1) % entries;
        cases.push_back({layout, uint32_t(channel),
                         [=](BitmapDesc *b) { return Rz_RemapBitmapIntensity(b, t.data(), entries, channel); },
                         [=](uint32_t v, uint32_t) { return t[v]; }});
    }
    for (const char *layout : {"grey8", "grey12", "grey16", "bgr24", "bgr48", "pal8_colour"})
        for (uint32_t f : {0u, 50u, 150u, 100000u, 4294967295u})
            for (bool isSigned : {false, true}) {
                if (isSigned && layout != std::string("grey16")) continue;
                cases.push_back({layout, 0, [f](BitmapDesc *b) { return Rz_MultiplyBitmap(b, f); },
                                 [f, isSigned](uint32_t v, uint32_t max) {
                                     const uint32_t half = isSigned ? max / 2 + 1 : 0, i = (v + half) & max;
                                     return (std::min(i * f / 100, max) - half) & max;
                                 },
                                 isSigned});
            }
    for (const Case &c : cases) {
        SCOPED_TRACE(c.layout + " channel " + std::to_string(c.channel) + (c.isSigned ? " signed" : ""));
        Bitmap b(FindLayout(c.layout), 7, 3, 11);
        if (c.isSigned) b->uFlags |= BMF_SIGNED;
        const Bitmap before(b);
        CallbackRecorder rec;
        ASSERT_EQ(c.op(b.get()), 1);
        if (b->nDataKind == 0) { // a palette: the entries change in one step, the indices stay
            EXPECT_EQ(rec.percents(), (std::vector<int32_t>{0, 100}));
            EXPECT_EQ(b.storedBytes(), before.storedBytes());
            for (int i = 0; i < 256; ++i)
                for (int k = 0; k < 3; ++k) {
                    const uint8_t was = (&before->pPalette[i].rgbBlue)[k], is = (&b->pPalette[i].rgbBlue)[k];
                    EXPECT_EQ(is, c.channel == 0 || k == int(3 - c.channel) ? c.map(was, 255) : was) << i;
                }
            continue;
        }
        const int shift = b->nBitsPerPixel == 12 ? 4 : 0;
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 7; ++x) {
                Channels want = ReadChannels(before, x, y);
                for (int k = 0; k < want.count; ++k)
                    if (c.channel == 0 || k == int(3 - c.channel))
                        want.v[k] = c.map(want.v[k] >> shift, want.max() >> shift) << shift;
                const Channels got = ReadChannels(b, x, y);
                ASSERT_TRUE(std::equal(got.v, got.v + 3, want.v) && got.fourth == want.fourth) << x << "," << y;
            }
    }
    const std::vector<uint32_t> table(300);
    Bitmap rgb(FindLayout("bgr24"), 3, 1, 1), g12(FindLayout("grey12"), 3, 1, 1);
    EXPECT_EQ(Rz_RemapBitmapIntensity(rgb.get(), table.data(), 300, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_RemapBitmapIntensity(g12.get(), table.data(), 65535, 0), ST_INVALID_PARAMETER);
}

// Bits in use of the region's samples (the last column outside it, the last row inside).
TEST(GetMinMaxBits, WorkedCases) {
    const struct {
        int32_t bits;
        std::vector<uint32_t> values;
        int32_t low, high;
    } cases[] = {
        {16, {0x0FF0}, 4, 11},  {16, {0}, 0, 0}, {16, {0x8000, 0x0001}, 0, 15}, {12, {0, 0x010, 0, 0x100}, 4, 8},
        {12, {0x802, 0}, 1, 11},
        {16, {0x100, 0x100, 0x100, 0x100, 0xF001, 0x100, 0, 0, 0, 0xF001, 0, 0, 0, 0x8100, 0xF001}, 8, 15},
    };
    const RzRect r{0, 0, 4, 3};
    for (const auto &c : cases) {
        Bitmap b(FindLayout(c.bits == 12 ? "grey12" : "grey16"), 5, 3, 0);
        for (int32_t i = 0; i < 15; ++i) b.setPixel(i % 5, i / 5, c.values[size_t(i) % c.values.size()]);
        if (c.values.size() == 15) DisSetRegionRect(b.get(), &r, DIS_RGN_SET);
        int32_t low = -7, high = -7;
        EXPECT_EQ(Rz_GetMinMaxBits(b.get(), &low, &high), 1);
        EXPECT_EQ(std::pair(low, high), std::pair(c.low, c.high)) << c.bits << " bits, " << c.values[0];
    }
    Bitmap colour(FindLayout("bgr24"), 3, 3, 1);
    EXPECT_EQ(Rz_GetMinMaxBits(colour.get(), nullptr, nullptr), ST_INVALID_PARAMETER);
}

// What a levelled pixel shows: the significant value (offset when signed)
// picks a table entry (table 1: a grey ramp of 300, 2: 64 colours); without
// a table the value's top 8 bits.
TEST(WindowLevel, EveryPixelAgainstTheFormula) {
    const struct {
        const char *what;
        int32_t bits;
        bool isSigned;
        int32_t low, high;
        int table;
        uint32_t mode;
    } cases[] = {
        {"12-bit, high -1 is bit 11", 12, false, 4, -1, 0, 0},
        {"16-bit, bits 2..9", 16, false, 2, 9, 0, 0},
        {"16-bit, negative low is 0", 16, false, -5, 7, 0, 0},
        {"16-bit signed, all bits", 16, true, 0, 15, 0, 0},
        {"12-bit, grey table", 12, false, 3, 10, 1, 0},
        {"16-bit signed, grey table", 16, true, 8, 15, 1, 0},
        {"16-bit, colour table, red first", 16, false, 4, 9, 2, 0},
        {"12-bit, colour table, blue first", 12, false, 0, 5, 2, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Bitmap b(FindLayout(c.bits == 12 ? "grey12" : "grey16"), 7, 5, 11);
        if (c.isSigned) b->uFlags |= BMF_SIGNED;
        const Bitmap before(b);
        std::vector<RzRGBQuad> table;
        for (int i = 0; i < (c.table == 1 ? 300 : c.table == 2 ? 64 : 0); ++i) {
            const uint8_t g = uint8_t(255 - i % 256);
            table.push_back(c.table == 1 ? RzRGBQuad{g, g, g, 0} : RzRGBQuad{uint8_t(4 * i), uint8_t(100 + i), g, 0});
        }
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
                    want = c.table == 1 ? e.rgbRed : e.rgbRed | uint64_t(e.rgbGreen) << 8 | uint64_t(e.rgbBlue) << 16;
                }
                ASSERT_EQ(b.pixel(x, y), want) << x << "," << y;
            }
    }
}

// Bits the depth does not have or in the wrong order, a length without a
// table, colour bitmaps: refused, the new bits kept, the depth not changed.
TEST(WindowLevel, Refusals) {
    Bitmap b(FindLayout("grey12"), 4, 4, 3), colour(FindLayout("bgr24"), 4, 4, 3);
    const RzRGBQuad entry{1, 1, 1, 0};
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 0, 12, nullptr, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 0, 11, nullptr, 3, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 0, 11, &entry, 1, 2), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_WindowLevelBitmap(colour.get(), 0, 7, nullptr, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_WindowLevelBitmap(b.get(), 10, 5, nullptr, 0, 0), ST_INVALID_PARAMETER);
    EXPECT_EQ(std::tuple(b->nLowBit, b->nHighBit, b->nBitsPerPixel), std::tuple(10, 5, 12));
}

struct Params { uint32_t low, high, in, out, channel; };

// The channel judged, or the luma Y.
uint32_t Judge(uint32_t r, uint32_t g, uint32_t b, uint32_t channel) {
    return channel == 1 ? r : channel == 2 ? g : channel == 3 ? b : (3735 * b + 19235 * g + 9798 * r + 16384) >> 15;
}

// Expected raw value of a changed pixel.
uint64_t Predict(const BitmapDesc *b, uint64_t raw, const Params &p) {
    const int bits = b->nBitsPerPixel;
    if (bits <= 16) {
        const int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit, count = bits <= 8 ? 8 : high - b->nLowBit + 1;
        const uint64_t mask = (1ull << count) - 1;
        const uint64_t v = bits <= 8 ? raw : (raw >> b->nLowBit) & mask;
        const uint32_t c = p.low <= v && v <= p.high ? p.in : p.out;
        const uint64_t grey = (2 * (c & 0xFF) + 5 * (c >> 8 & 0xFF) + (c >> 16 & 0xFF) + 4) / 8;
        if (bits <= 8) return grey;
        const uint64_t value = (grey * 256) >> (16 - count);
        return (raw & ~(mask << b->nLowBit)) | value << b->nLowBit;
    }
    const int w = bits >= 48 ? 16 : 8;
    const uint64_t m = (1ull << w) - 1, top = w == 16 ? 8 : 0;
    const uint32_t r = uint32_t(raw & m), g = uint32_t(raw >> w & m), bl = uint32_t(raw >> 2 * w & m);
    const uint32_t v = Judge(r, g, bl, p.channel);
    const uint32_t c = p.low <= v && v <= p.high ? p.in : p.out;
    const uint64_t rgb = uint64_t(c & 0xFF) << top | uint64_t(c >> 8 & 0xFF) << (w + top) |
                         uint64_t(c >> 16 & 0xFF) << (2 * w + top);
    return (raw & ~((1ull << 3 * w) - 1)) | rgb;
}

TEST(IntensityDetect, EveryLayoutInsideAndOutsideARegion) {
    const Params params[] = {{128, 255, 0xFFFFFF, 0, 0}, {40, 90, 0x203040, 0x00A0B0C0, 2}, {0, 200, 0x1, 0x998877, 3}};
    for (const Layout &layout : AllLayouts())
        for (const Params &p : params) {
            SCOPED_TRACE(std::string(layout.name) + " band " + std::to_string(p.low) + ".." + std::to_string(p.high));
            Bitmap b(layout, 23, 11, 6);
            const RzRect r{3, 2, 19, 10};
            ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
            const Bitmap before(b);
            const bool deep = b->nBitsPerPixel > 8 && b->nBitsPerPixel <= 16;
            Params q = p;
            if (deep) q.low *= 16, q.high *= 16; // the same band, in 12-bit significant units
            ASSERT_EQ(Rz_IntensityDetectBitmap(b.get(), q.low, q.high, q.in, q.out, q.channel), 1);
            if (b->nBitsPerPixel <= 8 && b->nDataKind == 0) {
                EXPECT_EQ(b.storedBytes(), before.storedBytes()) << "indices stay";
                for (int i = 0; i < b->nColors; ++i) {
                    const RzRGBQuad &e = before->pPalette[i], &n = b->pPalette[i];
                    const uint32_t v = Judge(e.rgbRed, e.rgbGreen, e.rgbBlue, p.channel);
                    const uint32_t c = v >= p.low && v <= p.high ? p.in : p.out;
                    EXPECT_EQ(n.rgbRed | n.rgbGreen << 8 | n.rgbBlue << 16, c & 0xFFFFFF) << "entry " << i;
                }
                continue;
            }
            if (layout.displayTable) {
                for (uint32_t i = 0; i < b->nLUTLength; ++i)
                    EXPECT_EQ(b->pLUT[i].rgbRed, (i >= q.low && i <= q.high ? q.in : q.out) & 0xFF) << "entry " << i;
                continue;
            }
            for (int y = 0; y < b->nHeight; ++y)
                for (int x = 0; x < b->nWidth; ++x) {
                    const bool inside = DisIsPtInRegion(b.get(), x, y) != 0;
                    const uint64_t raw = before.pixel(x, y);
                    EXPECT_EQ(b.pixel(x, y), inside ? Predict(b.get(), raw, q) : raw) << x << "," << y;
                }
        }
}

TEST(IntensityDetect, HandWorkedRowAndGreyLevelWord) {
    Bitmap b = GreyBitmap(5, 1, {0, 127, 128, 255, 200});
    ASSERT_EQ(Rz_IntensityDetectBitmap(b.get(), 128, 200, 0xFFFFFF, (1u << 26) | 9, 0), 1);
    const uint64_t want[] = {9, 9, 255, 9, 255};
    for (int x = 0; x < 5; ++x) EXPECT_EQ(b.pixel(x, 0), want[x]);
    EXPECT_EQ(Rz_IntensityDetectBitmap(b.get(), 5, 4, 0, 0, 0), ST_INVALID_PARAMETER);
}

} // namespace
} // namespace rz::test
