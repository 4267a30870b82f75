// Distortions: hand-worked statuses and edge cases; swirl and spherize
// against a naive reference that follows the formulas step by step (angles
// from atan2, libm's trigonometry, the sampler in long double on samples
// read with KrnGetPixel); the other members against cv::remap fed maps from
// an independent statement of their formulas.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace rz::test {
namespace {

constexpr int32_t kW = 41, kH = 29;

// The working channels of every pixel (shared reader: 12-bit grey on the
// 16-bit scale, the fourth channel kept apart).
struct Samples {
    int32_t w = 0, h = 0;
    std::vector<Channels> px;
    Channels &at(int32_t x, int32_t y) { return px[size_t(y) * w + x]; }
    const Channels &at(int32_t x, int32_t y) const { return px[size_t(y) * w + x]; }
};

Samples Read(const Bitmap &b) {
    Samples s{b->nWidth, b->nHeight, {}};
    for (int32_t y = 0; y < s.h; ++y)
        for (int32_t x = 0; x < s.w; ++x) s.px.push_back(ReadChannels(b, x, y));
    return s;
}

// The sampler as written: extended precision, truncated, clamped.
void Sample(const Samples &src, int32_t top, int32_t rows, double sx, double sy, Samples &dst, int32_t x, int32_t y) {
    int32_t x0 = int32_t(std::trunc(sx)), y0 = int32_t(std::trunc(sy)), x1 = x0 + 1, y1 = y0 + 1;
    const long double fx = sx - x0, fy = sy - y0;
    if (y1 <= 0) {
        y0 = y1 = 0;
    } else if (y1 >= rows) {
        y0 = y1 = rows - 1;
    }
    if (x1 >= src.w) {
        x0 = x1 = src.w - 1;
    } else if (x1 < 1) {
        x0 = x1 = 0;
    }
    Channels &out = dst.at(x, y);
    for (int ch = 0; ch < out.count; ++ch) {
        const long double TL = src.at(x0, top + y0).v[ch], TR = src.at(x1, top + y0).v[ch];
        const long double BL = src.at(x0, top + y1).v[ch], BR = src.at(x1, top + y1).v[ch];
        const long double v = std::trunc(((BR - BL - TR + TL) * fx + (BL - TL)) * fy + (TR - TL) * fx + TL);
        out.v[ch] = uint32_t(std::clamp<long double>(v, 0, out.max()));
    }
}

struct Rect {
    int32_t l, t, r, b;
};

// A position at or beyond the right or bottom edge goes to the last column
// or row, one before the left or top edge to the first.
void Clamp(const Rect &rc, double &sx, double &sy) {
    if (sx >= rc.r) sx = rc.r - 1;
    if (sx < rc.l) sx = rc.l;
    if (sy >= rc.b - rc.t) sy = rc.b - rc.t - 1;
    if (sy < 0) sy = 0;
}

void RefSwirl(const Samples &src, Samples &dst, Rect rc, int32_t angle, int32_t cx, int32_t cy) {
    const double hw = (rc.r - rc.l) / 2, hh = (rc.b - rc.t) / 2;
    for (int32_t y = rc.t; y < rc.b; ++y)
        for (int32_t x = rc.l; x < rc.r; ++x) {
            const int32_t dx = x - cx, dy = y - cy;
            if (dx == 0 && dy == 0) continue;
            const double r = std::sqrt(double(dx * dx + dy * dy));
            double th = std::atan2(double(dy), double(dx));
            if (th < 0) th += 6.283185307;
            const double R = std::sqrt(hh * hh * std::pow(std::sin(th), 2) + hw * hw * std::pow(std::cos(th), 2));
            const double twist = std::log(R / r) * (angle * 0.005555555555555556);
            if (twist == 0 || r > R) continue;
            double sx = cx + r * std::cos(th + twist), sy = cy + r * std::sin(th + twist) - rc.t;
            Clamp(rc, sx, sy);
            Sample(src, rc.t, rc.b - rc.t, sx, sy, dst, x, y);
        }
}

void RefSpherize(const Samples &src, Samples &dst, Rect rc, int32_t value, int32_t cx, int32_t cy,
                 const Channels &fill, uint32_t flags) {
    const double hw = (rc.r - rc.l) / 2, hh = (rc.b - rc.t) / 2, a = std::abs(value) * 0.01;
    const uint32_t rule = flags & 0xF;
    for (int32_t y = rc.t; y < rc.b; ++y)
        for (int32_t x = rc.l; x < rc.r; ++x) {
            const int32_t dx = x - cx, dy = y - cy;
            const double r = std::sqrt(double(dx * dx + dy * dy)), th = std::atan2(double(dy), double(dx));
            const double R = std::sqrt(std::pow(std::cos(th), 2) * hw * hw + std::pow(std::sin(th), 2) * hh * hh);
            if (r > R || R == 0) continue;
            double rr = value < 0 ? (std::sin((r / R) * 1.57079632675) * R - r) * a + r
                                  : ((R / 1.57079632675) * std::asin(r / R) - r) * a + r;
            bool outside = false;
            if (value > 0 && rr <= 0 && (flags & 0x10)) {
                if (rule == 1) {
                    rr = 0;
                } else {
                    outside = true;
                }
            }
            double sx = cx + rr * std::cos(th), sy = cy + rr * std::sin(th) - rc.t;
            outside |= sx >= rc.r || sx < rc.l || sy >= rc.b - rc.t || sy < 0;
            if (outside && rule == 2) continue;
            if (outside && rule == 0) {
                std::copy(fill.v, fill.v + 3, dst.at(x, y).v);
                continue;
            }
            Clamp(rc, sx, sy);
            Sample(src, rc.t, rc.b - rc.t, sx, sy, dst, x, y);
        }
}

struct Diff {
    int64_t largest = 0, count = 0;
};
Diff Compare(const Samples &got, const Samples &want) {
    Diff d;
    for (size_t i = 0; i < want.px.size(); ++i) {
        EXPECT_EQ(got.px[i].fourth, want.px[i].fourth) << "fourth channel of pixel " << i;
        for (int c = 0; c < want.px[i].count; ++c) {
            const int64_t e = std::abs(int64_t(got.px[i].v[c]) - want.px[i].v[c]);
            d.largest = std::max(d.largest, e);
            d.count += e != 0;
        }
    }
    return d;
}

// ---- Statuses and hand-worked cases ------------------------------------------

using Call = std::function<int32_t(BitmapDesc *)>;

// Checks in their documented order and values the declared ranges allow but
// the operations refuse (the sweeps try one past each declared bound).
TEST(Distort, StatusesInTheirOrder) {
    const int32_t cx = kW / 2, cy = kH / 2;
#define CASE(what, call, want) {what, [&](BitmapDesc *b) { return call; }, want}
    const struct {
        const char *what;
        Call call;
        int32_t want;
    } cases[] = {
        CASE("swirl centre 1 left", Rz_SwirlBitmap(b, 90, -1, cy), 1),
        CASE("swirl centre 1 below", Rz_SwirlBitmap(b, 90, cx, kH), 1),
        CASE("swirl centre 2 right", Rz_SwirlBitmap(b, 90, kW + 1, cy), ST_BAD_BITS),
        CASE("swirl centre 2 above", Rz_SwirlBitmap(b, 90, cx, -2), ST_BAD_BITS),
        CASE("swirl far centre, no turn", Rz_SwirlBitmap(b, 0, 1 << 30, 0), 1),
        CASE("spherize -501 before the centre", Rz_SpherizeBitmap(b, -501, -9, -9, 0, 0), ST_BAD_BITS),
        CASE("spherize centre before flags", Rz_SpherizeBitmap(b, 50, -2, cy, 0, 0x20), ST_BAD_BITS),
        CASE("spherize stray flag bit", Rz_SpherizeBitmap(b, 50, cx, cy, 0, 0x100), ST_INVALID_PARAMETER),
        CASE("spherize rule 3", Rz_SpherizeBitmap(b, 50, cx, cy, 0, 0x13), ST_INVALID_PARAMETER),
        CASE("spherize option and rule 2", Rz_SpherizeBitmap(b, 50, cx, cy, 0, 0x12), 1),
        CASE("spherize bits above 15 unread", Rz_SpherizeBitmap(b, 50, cx, cy, 0, 0x10000), 1),
        CASE("bending 0 ignores the centre", Rz_BendingBitmap(b, 0, -50, -50, 0, 0), 1),
        CASE("punch has no centre test", Rz_PunchBitmap(b, 100, 0, 1000, 1000, 0, 0), 1),
        CASE("punch flags", Rz_PunchBitmap(b, 100, 0, cx, cy, 0, 0x200), ST_INVALID_PARAMETER),
        CASE("polar option field", Rz_PolarBitmap(b, 0, 0x30), ST_BAD_BITS),
        CASE("polar rule 3", Rz_PolarBitmap(b, 0, 3), ST_INVALID_PARAMETER),
        CASE("polar bits above 7 unread", Rz_PolarBitmap(b, 0, 0x100), 1),
        CASE("tunnel centre", Rz_TunnelBitmap(b, cx, kH + 1, 10, 10, 0, 0, 0), ST_BAD_BITS),
        CASE("ocean rule", Rz_OceanBitmap(b, 3, 9, 1), ST_INVALID_PARAMETER),
        CASE("offset far", Rz_OffsetBitmap(b, INT32_MIN, INT32_MAX, 0, 1), 1),
    };
#undef CASE
    for (const auto &c : cases) {
        Bitmap b(FindLayout("bgr24"), kW, kH, 3);
        EXPECT_EQ(c.call(b.get()), c.want) << c.what;
    }
}

TEST(Distort, EmptyRectangleAndNoOps) {
    Bitmap b(FindLayout("bgr24"), kW, kH, 5);
    const std::vector<uint8_t> before = b.storedBytes();
    const Call noOps[] = {
        [](BitmapDesc *p) { return Rz_SwirlBitmap(p, 0, 5, 5); },
        [](BitmapDesc *p) { return Rz_SpherizeBitmap(p, 0, 5, 5, 0, 0); },
        [](BitmapDesc *p) { return Rz_BendingBitmap(p, 0, 5, 5, 0, 0); },
        [](BitmapDesc *p) { return Rz_CylindricalBitmap(p, 0, 1); },
        [](BitmapDesc *p) { return Rz_OceanBitmap(p, 0, 9, 0); },
        [](BitmapDesc *p) { return Rz_OffsetBitmap(p, 0, 0, 0, 0); },
        [](BitmapDesc *p) { return Rz_PunchBitmap(p, 0, 700, 5, 5, 0, 0); },
    };
    for (const Call &call : noOps) {
        CallbackRecorder rec;
        EXPECT_EQ(call(b.get()), 1);
        EXPECT_EQ(b.storedBytes(), before);
        EXPECT_EQ(rec.percents().back(), 100);
    }
    // A region outside the bitmap leaves nothing to process.
    const RzRect away{kW + 5, 0, kW + 9, 4};
    ASSERT_EQ(DisSetRegionRect(b.get(), &away, DIS_RGN_SET), 1);
    EXPECT_EQ(Rz_SpherizeBitmap(b.get(), 50, 0, 0, 0, 0), ST_EMPTY_RECT);
    EXPECT_EQ(Rz_BendingBitmap(b.get(), 50, 0, 0, 0, 0), ST_EMPTY_RECT);
    EXPECT_EQ(Rz_CylindricalBitmap(b.get(), 50, 1), ST_EMPTY_RECT);
    EXPECT_EQ(Rz_PolarBitmap(b.get(), 0, 0), 1);
    EXPECT_EQ(b.storedBytes(), before);
}

// The fill colour as every depth stores it: Offset uncovers two columns.
TEST(Distort, FillColourConversion) {
    struct FillCase {
        const char *layout;
        uint32_t colour;
        uint64_t want; // packed as KrnGetPixel gives it
    };
    const FillCase cases[] = {
        {"bgr24", 0x336699, 0x336699},
        {"rgb24", 0x336699, 0x336699},
        {"bgr48", 0x336699, 0x330066009900ull},
        {"grey8", 0x336699, (0x66 + 0x33 + 4 * 0x66 + 2 * 0x99) / 8},
        {"grey16", 0x336699, (0x6600 + 0x3300 + 4 * 0x6600 + 2 * 0x9900) / 8},
        {"grey16", 0x4001234, 0x1234},
        {"grey12", 0x4001230, 0x123},
        {"grey12", 0x000001, (2 * 256 / 8) >> 4},
    };
    for (const FillCase &c : cases) {
        SCOPED_TRACE(std::string(c.layout) + " " + std::to_string(c.colour));
        Bitmap b(FindLayout(c.layout), 7, 3, 4);
        ASSERT_EQ(Rz_OffsetBitmap(b.get(), 2, 0, c.colour, 0), 1);
        for (int32_t y = 0; y < 3; ++y) {
            EXPECT_EQ(b.pixel(0, y), c.want);
            EXPECT_EQ(b.pixel(1, y), c.want);
        }
    }
}

TEST(Distort, OneRowAndOnePixel) {
    for (const char *layout : {"grey8", "bgr24", "grey16", "bgr64", "pal4_colour"}) {
        SCOPED_TRACE(layout);
        Bitmap row(FindLayout(layout), 17, 1, 6), dot(FindLayout(layout), 1, 1, 6);
        Bitmap rowBefore(row), dotBefore(dot);
        EXPECT_EQ(Rz_SwirlBitmap(row.get(), 500, 8, 0), 1);
        EXPECT_EQ(Rz_SpherizeBitmap(row.get(), -80, 8, 1, 0, 0), 1);
        EXPECT_EQ(Rz_SwirlBitmap(dot.get(), 500, 0, 0), 1);
        EXPECT_EQ(Rz_SpherizeBitmap(dot.get(), 80, 0, 0, 0xFF, 0x10), 1);
        EXPECT_EQ(Rz_PolarBitmap(dot.get(), 0, 0x10), 1);
        EXPECT_EQ(dot.storedBytes(), dotBefore.storedBytes());
    }
}

// ---- Swirl and spherize against the reference ---------------------------------------

TEST(Distort, SwirlAndSpherizeFollowTheFormulas) {
    struct Setting {
        const char *layout;
        Rect region; // r == 0: none
        int32_t amount, cx, cy;
        uint32_t flags;
    };
    const Setting settings[] = {
        {"grey8", {0, 0, 0, 0}, 180, 20, 14, 0},        {"bgr24", {0, 0, 0, 0}, -400, 3, 25, 1},
        {"rgb24", {5, 3, 33, 20}, 90, 4, 2, 2},         {"grey16", {0, 0, 0, 0}, 1000, 41, 29, 0},
        {"bgr48", {2, 7, 40, 8}, -60, 30, 7, 1},        {"grey12", {10, 0, 31, 29}, 45, 20, 15, 0x10},
        {"grey8", {0, 0, 0, 0}, 100000, 20, 14, 0x11}, {"bgr24", {1, 1, 40, 28}, -7, 25, 10, 0x10},
        {"bgr32", {0, 0, 0, 0}, 720, 20, 14, 0},        {"bgr64", {3, 2, 38, 27}, -250, 18, 16, 0x10},
        {"grey8", {0, 0, 0, 0}, 12000000, 17, 12, 0}, // turns near the centre beyond the fast sine
    };
    int64_t pixels = 0, differing = 0;
    for (const Setting &s : settings) {
        for (bool swirl : {true, false}) {
            SCOPED_TRACE(std::string(s.layout) + (swirl ? " swirl " : " spherize ") + std::to_string(s.amount));
            Bitmap b(FindLayout(s.layout), kW, kH, 21);
            Rect rc{0, 0, kW, kH};
            if (s.region.r) {
                const RzRect r{s.region.l, s.region.t, s.region.r, s.region.b};
                ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
                rc = s.region;
            }
            const Samples src = Read(b);
            Samples want = src;
            const int32_t value = std::clamp(s.amount, -500, 500);
            // 0x112233: grey (0x22 * 5 + 0x11 + 0x33 * 2) / 8 = 36, x 256 deep.
            const uint32_t k = src.px[0].bits == 16 ? 256 : 1;
            Channels fill;
            fill.v[0] = src.px[0].count == 1 ? (0x22 * 5 + 0x11 + 0x33 * 2) * k / 8 : 0x11 * k;
            fill.v[1] = 0x22 * k;
            fill.v[2] = 0x33 * k;
            if (swirl) {
                ASSERT_EQ(Rz_SwirlBitmap(b.get(), s.amount, s.cx, s.cy), 1);
                RefSwirl(src, want, rc, s.amount, s.cx, s.cy);
            } else {
                const uint32_t colour = 0x112233;
                ASSERT_EQ(Rz_SpherizeBitmap(b.get(), value, s.cx, s.cy, colour, s.flags), 1);
                RefSpherize(src, want, rc, value, s.cx, s.cy, fill, s.flags);
            }
            // Deep grey is written back at its own precision.
            if (b->nBitsPerPixel == 12)
                for (Channels &c : want.px) c.v[0] &= ~15u;
            const Diff d = Compare(Read(b), want);
            EXPECT_LE(d.largest, 1);
            pixels += int64_t(want.px.size()) * want.px[0].count;
            differing += d.count;
        }
    }
    // Positions are worked out with vector arithmetic that can differ from
    // libm by a unit in the last place; a truncation then rarely moves by one.
    EXPECT_LE(differing * 1000, pixels) << differing << " of " << pixels;
    RecordProperty("differing", std::to_string(differing) + " of " + std::to_string(pixels));
}

// Each member's call on a W x H picture, and the source position of each
// pixel as its documentation states it (identity where a pixel is left
// alone); swirl and spherize have the naive reference above instead.
using Formula = std::function<void(double x, double y, double &sx, double &sy)>;
struct Member {
    const char *name;
    Call op;
    Formula map;
};

std::vector<Member> Members(int32_t W, int32_t H, int32_t cx, int32_t cy) {
    const double hw = W / 2, hh = H / 2, pi = 3.1415926535;
    auto ellipse = [=](double dx, double dy) {
        return std::hypot(hh * std::sin(std::atan2(dy, dx)), hw * std::cos(std::atan2(dy, dx)));
    };
    auto wrap = [](double v, double n) { return v - n * std::floor(v / n); };
    return {
        {"swirl", [=](BitmapDesc *b) { return Rz_SwirlBitmap(b, 700, cx, cy); }, nullptr},
        {"spherize", [=](BitmapDesc *b) { return Rz_SpherizeBitmap(b, 100, cx, cy, 0xFF, 0); }, nullptr},
        {"bending", [=](BitmapDesc *b) { return Rz_BendingBitmap(b, 200, cx, cy, 0, 1); },
         [=](double x, double y, double &sx, double &sy) { sx = x; sy = y + 0.4 * hh * std::pow((x - cx) / hw, 2); }},
        {"bending columns", [=](BitmapDesc *b) { return Rz_BendingBitmap(b, -350, cx, cy, 0, 0x11); },
         [=](double x, double y, double &sx, double &sy) { sx = x - 0.7 * hw * std::pow((y - cy) / hh, 2); sy = y; }},
        {"punch", [=](BitmapDesc *b) { return Rz_PunchBitmap(b, 250, 500, cx, cy, 0, 1); },
         [=](double x, double y, double &sx, double &sy) {
             const double r = std::hypot(x - cx, y - cy), R = ellipse(x - cx, y - cy);
             const double rr = r < R && r > 0 ? R * std::pow(r / R, std::pow(2.0, 0.5 * 2)) : r;
             sx = r > 0 ? cx + (x - cx) * rr / r : x;
             sy = r > 0 ? cy + (y - cy) * rr / r : y;
         }},
        {"cylindrical", [](BitmapDesc *b) { return Rz_CylindricalBitmap(b, 60, 0); },
         [=](double x, double y, double &sx, double &sy) {
             const double u = (x - hw) / hw;
             sx = hw + hw * (0.4 * u + 0.6 * std::asin(u) * 2 / pi);
             sy = y;
         }},
        {"cylindrical hollow", [](BitmapDesc *b) { return Rz_CylindricalBitmap(b, -100, 0); },
         [=](double x, double y, double &sx, double &sy) { sx = hw + hw * std::sin(pi / 2 * (x - hw) / hw); sy = y; }},
        {"polar unwrap", [](BitmapDesc *b) { return Rz_PolarBitmap(b, 0, 0x11); },
         [=](double x, double y, double &sx, double &sy) {
             const double phi = 2 * pi * x / W - pi / 2, rho = y * hh / H;
             sx = hw + rho * std::cos(phi);
             sy = hh + rho * std::sin(phi);
         }},
        {"polar", [](BitmapDesc *b) { return Rz_PolarBitmap(b, 0, 1); },
         [=](double x, double y, double &sx, double &sy) {
             const double phi = wrap(std::atan2(y - hh, x - hw) + pi / 2, 2 * pi);
             // Straight up, and the centre, are angle 0.
             sx = (phi > 2 * pi - 1e-9 || (x == hw && y == hh) ? 0 : phi) * W / (2 * pi);
             sy = std::hypot(x - hw, y - hh) * H / hh;
         }},
        {"tunnel", [=](BitmapDesc *b) { return Rz_TunnelBitmap(b, cx, cy, 30, 20, 9000, 0, 1); },
         [=](double x, double y, double &sx, double &sy) {
             const double r = std::hypot(x - cx, y - cy);
             sx = r < 1 ? x : wrap((std::atan2(y - cy, x - cx) + pi / 2) * W / (2 * pi), W);
             sy = r < 1 ? y : wrap(600 / r, H); // the centre has no source: left alone under clamping
         }},
        {"glass", [](BitmapDesc *b) { return Rz_GlassEffectBitmap(b, 16, 10, 0); },
         [](double x, double y, double &sx, double &sy) {
             auto axis = [](double p, double n) {
                 const double c = std::floor(p / n) * n + (n - 1) / 2, u = (p - c) / (n / 2);
                 return c + 0.6 * u * (1 + u * u) / 2 * (n / 2);
             };
             sx = axis(x, 16);
             sy = axis(y, 10);
         }},
        {"ocean", [](BitmapDesc *b) { return Rz_OceanBitmap(b, 4, 20, 0); },
         [=](double x, double y, double &sx, double &sy) {
             sx = x + 4 * std::sin(2 * pi * y / 20);
             sy = y + 4 * std::sin(2 * pi * x / 20);
         }},
        {"plane", [=](BitmapDesc *b) { return Rz_PlaneBitmap(b, cx, cy, 80, 40, 2, 0, 2); },
         [=](double x, double y, double &sx, double &sy) {
             const double dy = y - cy, z = 40 * 80 / std::fabs(dy);
             sx = std::fabs(dy) >= 1 ? wrap((x - cx) * z / 80 + hw, W) : x;
             sy = std::fabs(dy) >= 1 ? wrap(z, H) : y;
         }},
        {"plane-bend", [=](BitmapDesc *b) { return Rz_PlaneBendBitmap(b, cx, cy, 30, 20, -500, 0, 0xFF, 1); }, nullptr},
        {"offset", [](BitmapDesc *b) { return Rz_OffsetBitmap(b, 7, -5, 0, 3); },
         [=](double x, double y, double &sx, double &sy) { sx = wrap(x - 7, W); sy = wrap(y + 5, H); }},
    };
}

// Every member leaves the pixels outside an elliptic region alone and runs
// on palettised and deep layouts.
TEST(Distort, OnlyRegionPixelsChange) {
    const int32_t W = 64, H = 44;
    const RzRect box{9, 6, 50, 38};
    for (const char *layout : {"pal1_grey", "pal4_colour", "pal8_grey", "grey16_bits0_11", "grey16_lut", "bgr64"}) {
        for (const Member &m : Members(W, H, 30, 21)) {
            SCOPED_TRACE(std::string(layout) + " " + m.name);
            Bitmap b(FindLayout(layout), W, H, 31);
            ASSERT_EQ(DisSetRegionEllipse(b.get(), &box, DIS_RGN_SET), 1);
            const Bitmap before(b);
            ASSERT_EQ(m.op(b.get()), 1);
            int changed = 0;
            for (int32_t y = 0; y < H; ++y)
                for (int32_t x = 0; x < W; ++x) {
                    const double u = (x + 0.5 - 29.5) / 20.5, v = (y + 0.5 - 22) / 16;
                    if (u * u + v * v > 1.1) {
                        EXPECT_EQ(b.pixel(x, y), before.pixel(x, y)) << x << "," << y;
                    }
                    changed += b.pixel(x, y) != before.pixel(x, y);
                }
            EXPECT_GT(changed, 0);
        }
    }
}

#ifdef RZ_HAVE_OPENCV
// A smooth colour picture, where a bilinear peer differs from ours only by
// its 1/32 weights, against cv::remap fed each member's formula.
TEST(Distort, MembersMatchRemapWithTheirFormulas) {
    const int32_t W = 96, H = 64;
    cv::Mat src(H, W, CV_8UC3);
    for (int32_t y = 0; y < H; ++y)
        for (int32_t x = 0; x < W; ++x)
            src.at<cv::Vec3b>(y, x) = cv::Vec3b(uint8_t(127 + 100 * std::sin((x + y) * 0.07)),
                                                uint8_t(127 + 120 * std::cos(y * 0.13 - x * 0.03)),
                                                uint8_t(127 + 120 * std::sin(x * 0.11 + y * 0.05)));
    for (const Member &m : Members(W, H, 50, 30)) {
        if (!m.map) continue;
        SCOPED_TRACE(m.name);
        Bitmap b(FindLayout("bgr24"), W, H, 0);
        cv::Mat mapX(H, W, CV_32F), mapY(H, W, CV_32F), want, got(H, W, CV_8UC3);
        for (int32_t y = 0; y < H; ++y)
            for (int32_t x = 0; x < W; ++x) {
                const cv::Vec3b p = src.at<cv::Vec3b>(y, x);
                b.setPixel(x, y, uint64_t(p[2]) | uint64_t(p[1]) << 8 | uint64_t(p[0]) << 16);
                double sx, sy;
                m.map(x, y, sx, sy);
                mapX.at<float>(y, x) = float(std::clamp(sx, 0.0, W - 1.0));
                mapY.at<float>(y, x) = float(std::clamp(sy, 0.0, H - 1.0));
            }
        cv::remap(src, want, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        ASSERT_EQ(m.op(b.get()), 1);
        for (int32_t y = 0; y < H; ++y)
            for (int32_t x = 0; x < W; ++x) {
                const uint64_t p = b.pixel(x, y);
                got.at<cv::Vec3b>(y, x) = cv::Vec3b(uint8_t(p >> 16), uint8_t(p >> 8), uint8_t(p));
            }
        EXPECT_LE(cv::norm(got, want, cv::NORM_INF), 3);
    }
}
#endif

} // namespace
} // namespace rz::test
