// Rz_ChangeHueSatIntBitmap: the range records, their normalisation and the
// change table keyed by the incoming hue. Values worked by hand, a reference
// of the whole pipeline written from the description (its own table builder
// over the shared, separately tested colour models), and the validation.
#include "colour/colour_models.h"
#include "colour_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace rz::test {
namespace {

HueSatIntRange Range(int hue, int sat, int in, int outerLow, int outerHigh, int innerLow, int innerHigh) {
    return {static_cast<int32_t>(HUESATINTRANGE_SIZE), hue, sat, in, outerLow, outerHigh, innerLow, innerHigh};
}

void ExpectColour(const Colour &c, int r, int g, int b) {
    EXPECT_EQ(c.r, r);
    EXPECT_EQ(c.g, g);
    EXPECT_EQ(c.b, b);
}

TEST(ChangeHueSatInt, RangeAcrossZeroByHand) {
    // 350..10 with inner 355..5 becomes 350..370 / 355..365. Hue 0 (and so
    // every grey) is inside through 0 + 360: -200 tenths is -50 levels.
    // (255, 7, 0) has hue 3, inside; (255, 19, 0) hue 8, on the falling edge:
    // |368 - 370| / 5 = 0.4 -> -80 -> -19; (255, 0, 17) hue 352, rising edge
    // (352 - 350) / 5 = 0.4 -> -19. Through the HLS step the first comes back
    // as (255, 5, 0) and the second as (255, 17, 0): one HLS degree at full
    // chroma is 4.25 levels.
    const HueSatIntRange r = Range(0, 0, -200, 350, 10, 355, 5);
    Bitmap b = RowOf("bgr24", {{255, 0, 0}, {255, 7, 0}, {255, 19, 0}, {255, 0, 17}, {0, 255, 0}, {128, 128, 128}});
    ASSERT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 0, 0, 0, &r, 1), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 205, 0, 0);
    ExpectColour(Get(b, 1, 0), 205, 0, 0);
    ExpectColour(Get(b, 2, 0), 236, 0, 0);
    ExpectColour(Get(b, 3, 0), 236, 0, 0);
    ExpectColour(Get(b, 4, 0), 0, 255, 0);
    ExpectColour(Get(b, 5, 0), 78, 78, 78);
}

TEST(ChangeHueSatInt, WholeChangesByHand) {
    // 120 degrees takes red exactly to green on the degree scale; -1000
    // saturation leaves the HLS lightness (127); +200 intensity is 51 levels.
    Bitmap b = RowOf("bgr24", {{255, 0, 0}});
    ASSERT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 12000, 0, 0, nullptr, 0), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 0, 255, 0);
    Bitmap c = RowOf("rgb24", {{255, 0, 0}, {100, 100, 100}});
    ASSERT_EQ(Rz_ChangeHueSatIntBitmap(c.get(), 0, -1000, 200, nullptr, 0), ST_SUCCESS);
    ExpectColour(Get(c, 0, 0), 178, 178, 178);
    ExpectColour(Get(c, 1, 0), 151, 151, 151);
    // Words: 200 tenths is (200 x 65535 + 500) / 1000 = 13107 levels.
    Bitmap w = RowOf("bgr64", {{65535, 0, 0, 4321}, {1000, 1000, 1000, 7}});
    ASSERT_EQ(Rz_ChangeHueSatIntBitmap(w.get(), 12000, 0, 200, nullptr, 0), ST_SUCCESS);
    EXPECT_EQ(Get(w, 0, 0), (Colour{13107, 65535, 13107, 4321}));
    EXPECT_EQ(Get(w, 1, 0), (Colour{14107, 14107, 14107, 7}));
}

TEST(ChangeHueSatInt, OverlappingRangesAddAndIntensityIsCappedAbove) {
    // Hue 120 gets 600 + 300 + 300 = 1200 tenths, capped to 1000: +255.
    // Hue 0 (grey) gets only the whole change: (600 x 255 + 500) / 1000 = 153.
    const HueSatIntRange r[2] = {Range(0, 0, 300, 100, 140, 110, 130), Range(0, 0, 300, 90, 150, 100, 140)};
    Bitmap b = RowOf("bgr24", {{0, 255, 0}, {0, 0, 0}, {0, 100, 0}});
    ASSERT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 0, 0, 600, r, 2), ST_SUCCESS);
    ExpectColour(Get(b, 0, 0), 255, 255, 255);
    ExpectColour(Get(b, 1, 0), 153, 153, 153);
    ExpectColour(Get(b, 2, 0), 255, 255, 255);
}

// ---- The whole pipeline, from the description ----

struct Entry {
    int64_t hue, sat, in;
};

std::vector<Entry> ReferenceTable(int hue, int sat, int in, std::vector<HueSatIntRange> ranges, bool deep) {
    std::vector<Entry> t(361, Entry{hue, sat, in});
    for (HueSatIntRange &r : ranges) {
        int *bounds[] = {&r.outerLow, &r.outerHigh, &r.innerLow, &r.innerHigh};
        for (int *v : bounds)
            if (*v < 0) *v += 360;
        if (r.outerLow > r.outerHigh) {
            r.outerHigh += 360;
            r.innerHigh += 360;
        }
    }
    for (const HueSatIntRange &r : ranges)
        for (int h = 0; h <= 360; ++h) {
            const int hp = (h < r.outerLow && r.outerHigh > 360) ? h + 360 : h;
            if (hp < r.outerLow || hp > r.outerHigh) continue;
            double f = 1;
            if (hp < r.innerLow)
                f = double(h - r.outerLow) / (r.innerLow - r.outerLow);
            else if (hp > r.innerHigh)
                f = std::abs(double(hp - r.outerHigh) / (r.outerHigh - r.innerHigh));
            t[h].hue += static_cast<int64_t>(std::trunc(r.hueChange * f));
            t[h].sat += static_cast<int64_t>(std::trunc(r.satChange * f));
            t[h].in += static_cast<int64_t>(std::trunc(r.intChange * f));
            if (t[h].hue > 18000) t[h].hue -= 36000;
            if (t[h].hue < -18000) t[h].hue += 36000;
        }
    for (Entry &e : t) {
        const int64_t in = std::min<int64_t>(e.in, 1000);
        if (deep) {
            e.sat = e.sat * 10;
            e.in = (in * 65535 + 500) / 1000;
        } else {
            e.hue = e.hue / 100;
            e.sat = e.sat / 10;
            e.in = (in * 255 + 500) / 1000;
        }
    }
    return t;
}

template <class T> Colour ReferencePixel(const Colour &c, const std::vector<Entry> &t) {
    constexpr int64_t P = colour::Scale<T>::kPercent, M = colour::Scale<T>::kMax, turn = 3 * colour::Scale<T>::kThird;
    const colour::Hsv f = colour::DegHsvFromRgb<T>(c.r, c.g, c.b);
    const Entry &e = t[f.h / (P / 100)];
    const int64_t h = ((f.h + e.hue) % turn + turn) % turn;
    const colour::Rgb a = colour::RgbFromDegHsv<T>(static_cast<int32_t>(h), f.s, f.v);
    const colour::Hls l = colour::DegHlsFromRgb<T>(a.r, a.g, a.b);
    const int64_t s = std::clamp<int64_t>(l.s + l.s * e.sat / P, 0, P);
    const colour::Rgb b = colour::RgbFromDegHls<T>(l.h, l.l, static_cast<int32_t>(s));
    auto add = [&](int v) { return static_cast<int>(std::clamp<int64_t>(v + e.in, 0, M)); };
    return {add(b.r), add(b.g), add(b.b), c.a};
}

TEST(ChangeHueSatInt, EveryPixelAsTheDescriptionSays) {
    const std::vector<std::vector<HueSatIntRange>> cases = {
        {},
        {Range(4500, 300, -200, 350, 10, 355, 5)},
        {Range(-18000, -1000, 1000, 30, 90, 45, 60), Range(9000, 700, -700, -60, -20, -50, -30)},
        {Range(18000, 1000, 1000, 100, 300, 200, 200), Range(18000, 1000, 1000, 100, 300, 150, 250),
         Range(-7000, -400, 100, -359, 359, 180, 180)},
    };
    const int whole[][3] = {{0, 0, 0}, {-3000, 200, -50}, {17999, -1000, 1000}, {-9000, 999, -1000}};
    for (size_t i = 0; i < cases.size(); ++i)
        for (const char *layout : {"bgr24", "rgb24", "bgr32", "bgr48", "rgb48", "bgr64"}) {
            SCOPED_TRACE(std::string(layout) + " case " + std::to_string(i));
            Bitmap b = RandomColourBitmap(layout, 47, 13, static_cast<uint32_t>(31 + i));
            const Bitmap before(b);
            const bool deep = Deep(b.get());
            const auto table = ReferenceTable(whole[i][0], whole[i][1], whole[i][2], cases[i], deep);
            ASSERT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), whole[i][0], whole[i][1], whole[i][2], cases[i].data(),
                                               static_cast<uint32_t>(cases[i].size())),
                      ST_SUCCESS);
            for (int y = 0; y < b->nHeight; ++y)
                for (int x = 0; x < b->nWidth; ++x) {
                    const Colour in = Get(before, x, y);
                    const Colour want = deep ? ReferencePixel<uint16_t>(in, table) : ReferencePixel<uint8_t>(in, table);
                    ASSERT_EQ(Get(b, x, y), want) << "(" << in.r << ", " << in.g << ", " << in.b << ") at " << x
                                                  << ", " << y;
                }
        }
}

TEST(ChangeHueSatInt, Validation) {
    Bitmap b = RandomColourBitmap("bgr24", 9, 5, 2);
    const Bitmap before(b);
    const HueSatIntRange good = Range(100, 100, 100, 350, 10, 355, 5);
    auto call = [&](const HueSatIntRange &r, int hue = 0, int sat = 0, int in = 0) {
        const HueSatIntRange copy = r;
        const int32_t st = Rz_ChangeHueSatIntBitmap(b.get(), hue, sat, in, &r, 1);
        EXPECT_EQ(std::memcmp(&copy, &r, sizeof r), 0) << "the caller's record changed";
        return st;
    };
    EXPECT_EQ(Rz_ChangeHueSatIntBitmap(nullptr, 0, 0, 0, nullptr, 0), ST_NULL_POINTER);
    EXPECT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 0, 0, 0, nullptr, 1), ST_INVALID_PARAMETER);
    HueSatIntRange small = good;
    small.size = 31;
    EXPECT_EQ(call(small), ST_BAD_STRUCT_SIZE);
    EXPECT_EQ(call(good, 18001), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(good, 0, -1001), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(good, 0, 0, 1001), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(-18001, 0, 0, 0, 10, 2, 8)), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(0, 1001, 0, 0, 10, 2, 8)), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(0, 0, -1001, 0, 10, 2, 8)), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(0, 0, 0, -360, 10, 2, 8)), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(0, 0, 0, 0, 360, 2, 8)), ST_INVALID_PARAMETER);
    // Inner range outside the outer one; a wrapped outer range needs a wrapped inner one.
    EXPECT_EQ(call(Range(0, 0, 0, 10, 50, 5, 20)), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(0, 0, 0, 10, 50, 30, 20)), ST_INVALID_PARAMETER);
    EXPECT_EQ(call(Range(0, 0, 0, 350, 10, 2, 8)), ST_INVALID_PARAMETER);
    EXPECT_EQ(b.storedBytes(), before.storedBytes()) << "a refused call touched pixels";
    EXPECT_EQ(call(good), ST_SUCCESS);
    EXPECT_EQ(call(Range(0, 0, 0, -10, 10, -5, 5)), ST_SUCCESS);
    // Grey bitmaps, by the kernel's word: -13 after the descriptor checks.
    for (const char *grey : {"grey8", "grey16", "pal8_grey"}) {
        Bitmap g(FindLayout(grey), 4, 4, 3);
        EXPECT_EQ(Rz_ChangeHueSatIntBitmap(g.get(), 0, 0, 0, nullptr, 0), ST_INVALID_PARAMETER) << grey;
        g->uStructSize = 165;
        EXPECT_EQ(Rz_ChangeHueSatIntBitmap(g.get(), 0, 0, 0, nullptr, 0), ST_BAD_STRUCT_SIZE) << grey;
        g->uStructSize = BITMAPDESC_SIZE;
    }
    b->uFlags |= BMF_SIGNED;
    EXPECT_EQ(call(good), ST_SIGNED_NOT_SUPPORTED);
    b->uFlags &= ~BMF_SIGNED;
}

} // namespace
} // namespace rz::test
