// Rz_ChangeHueSatIntBitmap: the range records, their normalisation and the
// change table keyed by the incoming hue, against a reference of the whole
// pipeline written from the description (its own table builder and forward
// models), and the refusals of the records. Hand-worked values are with the
// other operations'.
#include "colour/colour_models.h"
#include "colour_test_util.h"

#include <cmath>
#include <cstring>

namespace rz::test {
namespace {

struct Entry {
    int64_t hue, sat, in;
};

std::vector<Entry> ReferenceTable(int hue, int sat, int in, std::vector<HueSatIntRange> ranges, bool deep) {
    std::vector<Entry> t(361, Entry{hue, sat, in});
    for (HueSatIntRange &r : ranges) {
        for (int *v : {&r.outerLow, &r.outerHigh, &r.innerLow, &r.innerHigh}) *v += *v < 0 ? 360 : 0;
        if (r.outerLow > r.outerHigh) r.outerHigh += 360, r.innerHigh += 360;
        for (int h = 0; h <= 360; ++h) {
            const int hp = (h < r.outerLow && r.outerHigh > 360) ? h + 360 : h;
            if (hp < r.outerLow || hp > r.outerHigh) continue;
            const double f = hp < r.innerLow   ? double(h - r.outerLow) / (r.innerLow - r.outerLow)
                             : hp > r.innerHigh ? std::abs(double(hp - r.outerHigh) / (r.outerHigh - r.innerHigh))
                                                : 1.0;
            Entry &e = t[h];
            e.hue += static_cast<int64_t>(std::trunc(r.hueChange * f));
            e.sat += static_cast<int64_t>(std::trunc(r.satChange * f));
            e.in += static_cast<int64_t>(std::trunc(r.intChange * f));
            e.hue += e.hue > 18000 ? -36000 : e.hue < -18000 ? 36000 : 0;
        }
    }
    for (Entry &e : t) {
        const int64_t in = std::min<int64_t>(e.in, 1000), M = deep ? 65535 : 255;
        e = deep ? Entry{e.hue, e.sat * 10, (in * M + 500) / 1000}
                 : Entry{e.hue / 100, e.sat / 10, (in * M + 500) / 1000};
    }
    return t;
}

// The forward models are the test's own formulas; the inverses are the
// library's, proven true inverses of those formulas over every 8-bit colour
// (colour_models_test.cpp), so any colour they return is the one whose
// truncated quantities are the records below.
template <class T> Colour ReferencePixel(const Colour &c, const std::vector<Entry> &t) {
    constexpr int64_t P = sizeof(T) == 1 ? 100 : 10000, M = sizeof(T) == 1 ? 255 : 65535, turn = 360 * (P / 100);
    const auto f = ref::DegHsv(c.r, c.g, c.b, int(P));
    const Entry &e = t[size_t(f[0] / (P / 100))];
    const colour::Rgb a = colour::RgbFromDegHsv<T>(int32_t(((f[0] + e.hue) % turn + turn) % turn), f[1], f[2]);
    const auto l = ref::DegHls(a.r, a.g, a.b, int(P));
    const int64_t s = std::clamp<int64_t>(l[2] + l[2] * e.sat / P, 0, P);
    const colour::Rgb b = colour::RgbFromDegHls<T>(l[0], l[1], static_cast<int32_t>(s));
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
    for (size_t i = 0; i < cases.size(); ++i) {
        const auto &[hue, sat, in] = whole[i];
        const auto &r = cases[i];
        const auto table8 = ReferenceTable(hue, sat, in, r, false), table16 = ReferenceTable(hue, sat, in, r, true);
        CompareEveryPixel(
            "case " + std::to_string(i),
            [&](BitmapDesc *b) { return Rz_ChangeHueSatIntBitmap(b, hue, sat, in, r.data(), uint32_t(r.size())); },
            [&](const Colour &c, bool deep) {
                return deep ? ReferencePixel<uint16_t>(c, table16) : ReferencePixel<uint8_t>(c, table8);
            });
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
    EXPECT_EQ(Rz_ChangeHueSatIntBitmap(b.get(), 0, 0, 0, nullptr, 1), ST_INVALID_PARAMETER);
    HueSatIntRange small = good;
    small.size = 31;
    EXPECT_EQ(call(small), ST_BAD_STRUCT_SIZE);
    for (const auto &[h, s, i] : {std::array{18001, 0, 0}, {0, -1001, 0}, {0, 0, 1001}})
        EXPECT_EQ(call(good, h, s, i), ST_INVALID_PARAMETER);
    // Out of range changes and bounds; an inner range outside the outer one; a
    // wrapped outer range needs a wrapped inner one.
    for (const HueSatIntRange &r : {Range(-18001, 0, 0, 0, 10, 2, 8), Range(0, 1001, 0, 0, 10, 2, 8),
                                    Range(0, 0, -1001, 0, 10, 2, 8), Range(0, 0, 0, -360, 10, 2, 8),
                                    Range(0, 0, 0, 0, 360, 2, 8), Range(0, 0, 0, 10, 50, 5, 20),
                                    Range(0, 0, 0, 10, 50, 30, 20), Range(0, 0, 0, 350, 10, 2, 8)})
        EXPECT_EQ(call(r), ST_INVALID_PARAMETER) << r.outerLow << ".." << r.outerHigh;
    EXPECT_EQ(b.storedBytes(), before.storedBytes()) << "a refused call touched pixels";
    EXPECT_EQ(call(good), ST_SUCCESS);
    EXPECT_EQ(call(Range(0, 0, 0, -10, 10, -5, 5)), ST_SUCCESS);
    // Grey bitmaps, by the kernel's word, are refused after the descriptor checks.
    for (const char *grey : {"grey8", "grey16", "pal8_grey"}) {
        Bitmap g(FindLayout(grey), 4, 4, 3);
        EXPECT_EQ(Rz_ChangeHueSatIntBitmap(g.get(), 0, 0, 0, nullptr, 0), ST_INVALID_PARAMETER) << grey;
        g->uStructSize = 165;
        EXPECT_EQ(Rz_ChangeHueSatIntBitmap(g.get(), 0, 0, 0, nullptr, 0), ST_BAD_STRUCT_SIZE) << grey;
        g->uStructSize = BITMAPDESC_SIZE;
    }
    b->uFlags |= BMF_SIGNED;
    EXPECT_EQ(call(good), ST_SIGNED_NOT_SUPPORTED);
}

} // namespace
} // namespace rz::test
