// Working rows to and from every stored layout (hand-worked values, round
// trips on every layout and tail width) and nearest-palette matching.
#include <rzkrn.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

int32_t Rows(const Bytes &src, Bytes &dst, int32_t width, int32_t bits, int32_t work,
             int32_t order, int32_t dir, const RzRGBQuad *palette = nullptr,
             int32_t gray = KRN_GRAY_NONE, int32_t low = 0, int32_t high = -1) {
    return KrnConvertRowBuffer(src.data(), dst.data(), width, bits, work, order, 1, palette, dir,
                               gray, low, high);
}

Bytes Words(std::initializer_list<uint16_t> w) {
    Bytes b(2 * w.size());
    std::memcpy(b.data(), w.begin(), b.size());
    return b;
}

RzRGBQuad Quad(uint8_t r, uint8_t g, uint8_t b) { return RzRGBQuad{b, g, r, 0}; }

constexpr int32_t W = KRN_TO_WORK, S = KRN_TO_STORED, GREY = KRN_ORDER_GRAY, RGB = KRN_ORDER_RGB,
                  BGR = KRN_ORDER_BGR, BAD = KRN_INVALID_PARAMETER;

// Grey from colour is (R*77 + G*150 + B*29 + 128) >> 8; n-bit grey widens as
// v * 255 / (2^n - 1) and narrows to the nearest level; 12-bit pairs keep the
// even pixel's low byte first; bits past the last pixel are neither read nor
// changed; of 16 bits only low..high move (bits 0..11 of 0xF123 are 0x123).
TEST(ConvertRows, HandWorkedLayoutsAndRefusals) {
    const RzRGBQuad pal[256] = {Quad(255, 0, 0), Quad(0, 255, 0), Quad(0, 0, 255),
                                Quad(100, 150, 200)};
    const struct {
        int32_t dir;
        Bytes src;
        int32_t width, bits, work, order;
        Bytes want, before = {}; // before: the stored row a put goes into
        bool palette = false;
        int32_t low = 0, high = -1, status = KRN_OK;
    } cases[] = {
        {W, {0x21, 0x43, 0x65, 0xBC, 0xFA}, 3, 12, 16, GREY, Words({0x3210, 0x6540, 0xABC0})},
        {S, Words({0x3210, 0x6540, 0xABC0}), 3, 12, 16, GREY, {0x21, 0x43, 0x65, 0xBC, 0x0A},
         Bytes(5, 0xFF)},
        {W, {10, 20, 30}, 1, 24, 24, RGB, {30, 20, 10}},
        {W, {255, 0, 0, 0, 255, 0, 0, 0, 255, 100, 150, 200}, 4, 24, 0, RGB, {77, 149, 29, 141}},
        {W, {0, 1, 2, 3}, 4, 8, 0, BGR, {77, 149, 29, 141}, {}, true},
        {W, {10, 20, 30, 99, 40, 50, 60, 77}, 2, 32, 24, BGR, {10, 20, 30, 40, 50, 60}},
        {S, {1, 2, 3, 4, 5, 6}, 2, 32, 24, RGB, {3, 2, 1, 0xAA, 6, 5, 4, 0xBB},
         {0, 0, 0, 0xAA, 0, 0, 0, 0xBB}}, // the fourth channel is kept
        {W, {0x1B}, 4, 2, 24, BGR, {0, 0, 255, 0, 255, 0, 255, 0, 0, 200, 150, 100}, {}, true},
        {W, {3, 0}, 2, 8, 24, GREY, {3, 3, 3, 0, 0, 0}, {}, true}, // samples: no palette
        {W, {0x05, 0x39, 0x77}, 8, 3, 0, GREY, {0, 36, 73, 109, 146, 182, 219, 255}},
        {W, {0x0C, 0x00}, 2, 5, 0, GREY, {8, 132}}, // 8.2, 131.6
        // 54*7/255 = 1.48, 55*7/255 = 1.51, 91*7/255 = 2.498: samples 1, 1, 1, 2, 2.
        {S, {36, 37, 54, 55, 91}, 5, 3, 0, GREY, {0x24, 0xA4}, Bytes(2)},
        {S, {255, 255, 255}, 3, 3, 0, GREY, {0xFF, 0x80, 0xFF}, {0xFF, 0xFF, 0xFF}},
        {W, Words({0xF123}), 1, 16, 16, GREY, Words({0x1230}), {}, false, 0, 11},
        {S, Words({0x123F}), 1, 16, 16, GREY, Words({0x0123}), Bytes(2, 0xFF), false, 0, 11},
        {W, Words({0xFAB7}), 1, 16, 16, GREY, Words({0xAB00}), {}, false, 4, 11},
        {S, Words({0xAB00}), 1, 16, 16, GREY, Words({0x0AB0}), Bytes(2), false, 4, 11},
        {W, Words({1}), 1, 16, 16, GREY, {}, {}, false, 4, 3, BAD},   // range upside down
        {W, Bytes(8), 1, 4, 24, BGR, {}, {}, false, 0, -1, BAD},      // indices, no palette
        {S, Bytes(8), 1, 8, 0, BGR, {}, Bytes(8), false, 0, -1, BAD}, // indices unmatched
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto &c = cases[i];
        Bytes dst = c.dir == S ? c.before : Bytes(std::max<size_t>(c.want.size(), 8));
        const RzRGBQuad *p = c.palette ? pal : nullptr;
        EXPECT_EQ(Rows(c.src, dst, c.width, c.bits, c.work, c.order, c.dir, p, 0, c.low, c.high),
                  c.status) << "case " << i;
        dst.resize(c.status == KRN_OK ? c.want.size() : 0);
        EXPECT_EQ(dst, c.status == KRN_OK ? c.want : Bytes()) << "case " << i;
    }
}

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
            layouts.push_back({bits, order, KRN_GRAY_NONE, {48, bits < 48 ? 24 : 48}});
    std::mt19937 rng(1234);
    for (const Layout &l : layouts)
        for (int32_t work : l.works)
            for (int32_t width : {1, 2, 7, 8, 9, 15, 16, 17, 40}) {
                SCOPED_TRACE(testing::Message() << l.bits << " bits, order " << l.order << ", raw "
                                                << l.gray << ", work " << work << ", " << width);
                // A random stored row, the bits past the last pixel clear (12 bits:
                // a lone last pixel ends in the low nibble; else MSB first).
                Bytes stored((size_t(width) * l.bits + 7) / 8);
                for (auto &b : stored) b = uint8_t(rng());
                const size_t used = size_t(width) * l.bits;
                if (l.bits == 12 && width % 2) stored.back() &= 0x0F;
                if (l.bits != 12 && used % 8) stored.back() &= uint8_t(0xFF << (8 - used % 8));
                Bytes working(size_t(width) * (work ? work / 8 : 1) + 1, 0xEE);
                auto rows = [&](const Bytes &from, Bytes &to, int32_t dir) {
                    return Rows(from, to, width, l.bits, work, l.order, dir, nullptr, l.gray);
                };
                ASSERT_EQ(rows(stored, working, W), 1);
                EXPECT_EQ(working.back(), 0xEE) << "wrote past the working row";
                Bytes back = stored;
                if (l.bits != 32 && l.bits != 64) std::fill(back.begin(), back.end(), 0xA5);
                back.push_back(0xEE);
                ASSERT_EQ(rows(working, back, S), 1);
                EXPECT_EQ(back.back(), 0xEE) << "wrote past the stored row";
                back.pop_back();
                EXPECT_EQ(back, stored);
            }
}

// The first entry of least squared distance, on colour rows and grey rows (as
// grey colours), with more colours than the cache keeps and a duplicate entry.
TEST(MatchPalette, AgreesWithExhaustiveSearch) {
    std::mt19937 rng(42);
    RzRGBQuad pal[256];
    for (auto &q : pal) q = Quad(uint8_t(rng()), uint8_t(rng()), uint8_t(rng()));
    pal[200] = pal[17];
    for (int32_t bits : {24, 8}) {
        const int width = 5000, n = bits / 8;
        Bytes work(size_t(n) * width);
        for (auto &b : work) b = uint8_t(rng());
        const Bytes copy = work;
        BitmapDesc d{};
        d.uStructSize = BITMAPDESC_SIZE, d.nBitsPerPixel = bits, d.nWidth = width;
        d.nColors = 256, d.pPalette = pal;
        ASSERT_EQ(KrnMatchRowToPalette(&d, work.data(), work.data()), KRN_OK); // in place
        for (int i = 0; i < width; ++i) {
            const uint8_t *c = &copy[size_t(i) * n];
            int best = 0, bestD = INT32_MAX;
            for (int k = 0; k < 256; ++k) {
                const int dr = pal[k].rgbRed - c[n - 1], dg = pal[k].rgbGreen - c[n / 2];
                const int db = pal[k].rgbBlue - c[0], dist = dr * dr + dg * dg + db * db;
                if (dist < bestD) best = k, bestD = dist;
            }
            ASSERT_EQ(work[i], best) << bits << " bits, pixel " << i;
        }
    }
}

} // namespace
