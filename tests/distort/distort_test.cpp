// Distortions: swirl and spherize against a naive reference that follows
// the formulas step by step (angles from atan2, libm's trigonometry, the
// sampler in long double on samples read with KrnGetPixel) on every direct
// depth; the other members against cv::remap fed maps from an independent
// statement of their formulas; fill colours and statuses worked by hand.
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
constexpr double kPi = 3.1415926535;
using Op = std::function<int32_t(BitmapDesc *)>;
#define OP(call) [=](BitmapDesc *b) { return call; }

struct Rect {
    int32_t l, t, r, b;
};

// The sampler as written: positions at or past the right or bottom edge go
// to the last column or row, before the left or top edge to the first; the
// bilinear blend in extended precision, truncated.
void Sample(const Bitmap &src, const Rect &rc, double sx, double sy, Channels &out) {
    if (sx >= rc.r) sx = rc.r - 1;
    if (sx < rc.l) sx = rc.l;
    if (sy >= rc.b - rc.t) sy = rc.b - rc.t - 1;
    if (sy < 0) sy = 0;
    int32_t x0 = int32_t(sx), y0 = int32_t(sy), x1 = x0 + 1, y1 = y0 + 1;
    const long double fx = sx - x0, fy = sy - y0;
    if (y1 >= rc.b - rc.t) y1 = y0;
    if (x1 >= src->nWidth) x1 = x0;
    const Channels tl = ReadChannels(src, x0, rc.t + y0), tr = ReadChannels(src, x1, rc.t + y0);
    const Channels bl = ReadChannels(src, x0, rc.t + y1), br = ReadChannels(src, x1, rc.t + y1);
    for (int c = 0; c < out.count; ++c) {
        const long double TL = tl.v[c], TR = tr.v[c], BL = bl.v[c], BR = br.v[c];
        const long double v = ((BR - BL - TR + TL) * fx + (BL - TL)) * fy + (TR - TL) * fx + TL;
        out.v[c] = uint32_t(std::clamp<long double>(std::trunc(v), 0, out.max()));
    }
}

// Swirl (spherize = false) or spherize of the rectangle, as documented.
Bitmap Reference(const Bitmap &src, const Rect &rc, bool spherize, int32_t amount, int32_t cx,
                 int32_t cy, const Channels &fill, uint32_t flags) {
    Bitmap dst(src);
    const double hw = (rc.r - rc.l) / 2, hh = (rc.b - rc.t) / 2, a = std::abs(amount) * 0.01;
    const uint32_t rule = flags & 0xF;
    for (int32_t y = rc.t; y < rc.b; ++y)
        for (int32_t x = rc.l; x < rc.r; ++x) {
            const int32_t dx = x - cx, dy = y - cy;
            const double r = std::sqrt(double(dx * dx + dy * dy));
            double th = std::atan2(double(dy), double(dx)), sx, sy;
            if (!spherize && th < 0) th += 6.283185307;
            const double s = std::pow(std::sin(th), 2), c = std::pow(std::cos(th), 2);
            const double R = std::sqrt(spherize ? c * hw * hw + s * hh * hh
                                                : hh * hh * s + hw * hw * c);
            Channels out = ReadChannels(src, x, y);
            if (!spherize) {
                const double twist = std::log(R / r) * (amount * 0.005555555555555556);
                if ((dx == 0 && dy == 0) || twist == 0 || r > R) continue;
                sx = cx + r * std::cos(th + twist), sy = cy + r * std::sin(th + twist) - rc.t;
            } else {
                if (r > R || R == 0) continue;
                double rr = amount < 0 ? (std::sin((r / R) * 1.57079632675) * R - r) * a + r
                                       : ((R / 1.57079632675) * std::asin(r / R) - r) * a + r;
                const bool behind = amount > 0 && rr <= 0 && (flags & 0x10); // past the centre
                if (behind && rule == 1) rr = 0;
                sx = cx + rr * std::cos(th), sy = cy + rr * std::sin(th) - rc.t;
                const bool outside = (behind && rule != 1) || sx >= rc.r || sx < rc.l ||
                                     sy >= rc.b - rc.t || sy < 0;
                if (outside && rule == 2) continue;
                if (outside && rule == 0) {
                    std::copy(fill.v, fill.v + 3, out.v);
                    WriteChannels(dst, x, y, out);
                    continue;
                }
            }
            Sample(src, rc, sx, sy, out);
            WriteChannels(dst, x, y, out);
        }
    return dst;
}

TEST(Distort, SwirlAndSpherizeFollowTheFormulas) {
    const struct {
        const char *layout;
        Rect region; // r == 0: none
        int32_t amount, cx, cy;
        uint32_t flags;
    } cases[] = {
        {"grey8", {}, 180, 20, 14, 0},       {"bgr24", {}, -400, 3, 25, 1},
        {"rgb24", {5, 3, 33, 20}, 90, 4, 2, 2}, {"grey16", {}, 1000, 41, 29, 0},
        {"bgr48", {2, 7, 40, 8}, -60, 30, 7, 1}, {"grey12", {10, 0, 31, 29}, 45, 20, 15, 0x10},
        {"grey8", {}, 100000, 20, 14, 0x11}, {"bgr24", {1, 1, 40, 28}, -7, 25, 10, 0x10},
        {"bgr32", {}, 720, 20, 14, 0},       {"bgr64", {3, 2, 38, 27}, -250, 18, 16, 0x10},
        {"grey8", {}, 12000000, 17, 12, 0}, // turns near the centre beyond a fast sine
    };
    int64_t samples = 0, differing = 0;
    for (const auto &s : cases)
        for (bool spherize : {false, true}) {
            SCOPED_TRACE(s.layout + std::string(spherize ? " spherize " : " swirl ") +
                         std::to_string(s.amount));
            Bitmap b(FindLayout(s.layout), kW, kH, 21);
            const Rect rc = s.region.r ? s.region : Rect{0, 0, kW, kH};
            const RzRect r{rc.l, rc.t, rc.r, rc.b};
            ASSERT_TRUE(!s.region.r || DisSetRegionRect(b.get(), &r, DIS_RGN_SET) == 1);
            const Bitmap src(b);
            const int32_t value = spherize ? std::clamp(s.amount, -500, 500) : s.amount;
            Channels fill = ReadChannels(src, 0, 0); // 0x222222 at every depth
            for (uint32_t &v : fill.v) v = fill.bits == 16 ? 0x2200 : 0x22;
            ASSERT_EQ(spherize ? Rz_SpherizeBitmap(b.get(), value, s.cx, s.cy, 0x222222, s.flags)
                               : Rz_SwirlBitmap(b.get(), value, s.cx, s.cy), 1);
            const Bitmap want = Reference(src, rc, spherize, value, s.cx, s.cy, fill, s.flags);
            for (int32_t i = 0; i < kW * kH; ++i) {
                const Channels g = ReadChannels(b, i % kW, i / kW);
                const Channels w = ReadChannels(want, i % kW, i / kW);
                ASSERT_EQ(g.fourth, w.fourth) << i;
                for (int c = 0; c < g.count; ++c) {
                    ASSERT_LE(std::abs(int64_t(g.v[c]) - w.v[c]), 1) << "pixel " << i;
                    differing += g.v[c] != w.v[c];
                }
                samples += g.count;
            }
        }
    // Positions come from vector arithmetic that can differ from libm by a
    // unit in the last place; a truncation then rarely moves by one.
    EXPECT_LE(differing * 1000, samples) << differing << " of " << samples;
}

#ifdef RZ_HAVE_OPENCV
using Formula = std::function<void(double x, double y, double &sx, double &sy)>;
#define MAP(...) [=](double x, double y, double &sx, double &sy) { __VA_ARGS__; }

// A smooth colour picture, where a bilinear peer differs from ours only by
// its 1/32 weights, against cv::remap fed each member's source positions
// as their documentation states them.
TEST(Distort, MembersMatchRemapWithTheirFormulas) {
    const int32_t W = 96, H = 64, cx = 50, cy = 30;
    const double hw = W / 2, hh = H / 2;
    auto wrap = [](double v, double n) { return v - n * std::floor(v / n); };
    auto glass = [](double p, double n) {
        const double c = std::floor(p / n) * n + (n - 1) / 2, u = (p - c) / (n / 2);
        return c + 0.6 * u * (1 + u * u) / 2 * (n / 2);
    };
    const std::pair<Op, Formula> members[] = {
        {OP(Rz_BendingBitmap(b, 200, cx, cy, 0, 1)),
         MAP(sx = x, sy = y + 0.4 * hh * std::pow((x - cx) / hw, 2))},
        {OP(Rz_BendingBitmap(b, -350, cx, cy, 0, 0x11)),
         MAP(sx = x - 0.7 * hw * std::pow((y - cy) / hh, 2), sy = y)},
        {OP(Rz_PunchBitmap(b, 250, 500, cx, cy, 0, 1)), MAP({
             const double r = std::hypot(x - cx, y - cy), th = std::atan2(y - cy, x - cx);
             const double R = std::hypot(hh * std::sin(th), hw * std::cos(th));
             const double k = r < R && r > 0 ? R * std::pow(r / R, 2.0) / r : 1; // 2 ^ (0.5 * 2)
             sx = cx + (x - cx) * k, sy = cy + (y - cy) * k;
         })},
        {OP(Rz_CylindricalBitmap(b, 60, 0)), MAP({
             const double u = (x - hw) / hw;
             sx = hw + hw * (0.4 * u + 0.6 * std::asin(u) * 2 / kPi), sy = y;
         })},
        {OP(Rz_CylindricalBitmap(b, -100, 0)),
         MAP(sx = hw + hw * std::sin(kPi / 2 * (x - hw) / hw), sy = y)},
        {OP(Rz_PolarBitmap(b, 0, 0x11)), MAP({ // unwrap
             const double phi = 2 * kPi * x / W - kPi / 2, rho = y * hh / H;
             sx = hw + rho * std::cos(phi), sy = hh + rho * std::sin(phi);
         })},
        {OP(Rz_PolarBitmap(b, 0, 1)), MAP({
             const double phi = wrap(std::atan2(y - hh, x - hw) + kPi / 2, 2 * kPi);
             // Straight up, and the centre, are angle 0.
             sx = (phi > 2 * kPi - 1e-9 || (x == hw && y == hh) ? 0 : phi) * W / (2 * kPi);
             sy = std::hypot(x - hw, y - hh) * H / hh;
         })},
        {OP(Rz_TunnelBitmap(b, cx, cy, 30, 20, 9000, 0, 1)), MAP({
             const double r = std::hypot(x - cx, y - cy); // the centre has no source: left alone
             sx = r < 1 ? x : wrap((std::atan2(y - cy, x - cx) + kPi / 2) * W / (2 * kPi), W);
             sy = r < 1 ? y : wrap(600 / r, H);
         })},
        {OP(Rz_GlassEffectBitmap(b, 16, 10, 0)), MAP(sx = glass(x, 16), sy = glass(y, 10))},
        {OP(Rz_OceanBitmap(b, 4, 20, 0)), MAP({
             sx = x + 4 * std::sin(2 * kPi * y / 20), sy = y + 4 * std::sin(2 * kPi * x / 20);
         })},
        {OP(Rz_PlaneBitmap(b, cx, cy, 80, 40, 2, 0, 2)), MAP({
             const double dy = std::fabs(y - cy), z = 40 * 80 / dy;
             sx = dy >= 1 ? wrap((x - cx) * z / 80 + hw, W) : x, sy = dy >= 1 ? wrap(z, H) : y;
         })},
        {OP(Rz_OffsetBitmap(b, 7, -5, 0, 3)), MAP(sx = wrap(x - 7, W), sy = wrap(y + 5, H))},
    };
    cv::Mat src(H, W, CV_8UC3);
    for (int32_t y = 0; y < H; ++y)
        for (int32_t x = 0; x < W; ++x)
            src.at<cv::Vec3b>(y, x) = {uint8_t(127 + 100 * std::sin((x + y) * 0.07)),
                                       uint8_t(127 + 120 * std::cos(y * 0.13 - x * 0.03)),
                                       uint8_t(127 + 120 * std::sin(x * 0.11 + y * 0.05))};
    for (size_t m = 0; m < std::size(members); ++m) {
        Bitmap b(FindLayout("bgr24"), W, H, 0);
        cv::Mat got(H, W, CV_8UC3, b->pData, b->nStride), want;
        cv::Mat mapX(H, W, CV_32F), mapY(H, W, CV_32F);
        src.copyTo(got); // blue, green, red bytes, as bgr24 stores them
        for (int32_t i = 0; i < W * H; ++i) {
            double sx, sy;
            members[m].second(i % W, i / W, sx, sy);
            mapX.at<float>(i / W, i % W) = float(std::clamp(sx, 0.0, W - 1.0));
            mapY.at<float>(i / W, i % W) = float(std::clamp(sy, 0.0, H - 1.0));
        }
        cv::remap(src, want, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        ASSERT_EQ(members[m].first(b.get()), 1);
        EXPECT_LE(cv::norm(got, want, cv::NORM_INF), 3) << "member " << m;
    }
}
#endif

// The fill colour as every depth stores it: Offset uncovers two columns.
TEST(Distort, FillColourConversion) {
    const std::tuple<const char *, uint32_t, uint64_t> cases[] = { // as KrnGetPixel gives it
        {"bgr24", 0x336699, 0x336699}, {"rgb24", 0x336699, 0x336699},
        {"bgr48", 0x336699, 0x330066009900ull}, {"grey8", 0x336699, (0x66 * 5 + 0x33 + 0x132) / 8},
        {"grey16", 0x336699, (0x6600 * 5 + 0x3300 + 2 * 0x9900) / 8}, {"grey16", 0x4001234, 0x1234},
        {"grey12", 0x4001230, 0x123}, {"grey12", 0x000001, (2 * 256 / 8) >> 4},
    };
    for (const auto &[layout, colour, want] : cases) {
        Bitmap b(FindLayout(layout), 7, 3, 4);
        ASSERT_EQ(Rz_OffsetBitmap(b.get(), 2, 0, colour, 0), 1);
        for (int32_t i = 0; i < 6; ++i) EXPECT_EQ(b.pixel(i % 2, i / 2), want) << layout << colour;
    }
}

// Checks in their documented order, values the declared ranges allow but the
// operations refuse, and amounts that change nothing (status 0 below).
TEST(Distort, StatusesAndNoOps) {
    const int32_t cx = kW / 2, cy = kH / 2, bad = ST_INVALID_PARAMETER, far = ST_BAD_BITS;
    const std::pair<Op, int32_t> cases[] = {
        {OP(Rz_SwirlBitmap(b, 90, -1, kH)), 1}, {OP(Rz_SwirlBitmap(b, 90, kW + 1, cy)), far},
        {OP(Rz_SpherizeBitmap(b, -501, -9, -9, 0, 0)), far}, // the amount first
        {OP(Rz_SpherizeBitmap(b, 50, -2, cy, 0, 0x20)), far}, // the centre before flags
        {OP(Rz_SpherizeBitmap(b, 50, cx, cy, 0, 0x13)), bad}, {OP(Rz_PolarBitmap(b, 0, 0x30)), far},
        {OP(Rz_PunchBitmap(b, 1, 0, cx, cy, 0, 0x200)), bad}, {OP(Rz_OceanBitmap(b, 3, 9, 1)), bad},
        {OP(Rz_SwirlBitmap(b, 0, 1 << 30, 0)), 0}, {OP(Rz_SpherizeBitmap(b, 0, 5, 5, 0, 0)), 0},
        {OP(Rz_BendingBitmap(b, 0, -50, -50, 0, 0)), 0}, {OP(Rz_CylindricalBitmap(b, 0, 1)), 0},
        {OP(Rz_OceanBitmap(b, 0, 9, 0)), 0}, {OP(Rz_PunchBitmap(b, 0, 700, 5, 5, 0, 0)), 0}};
    Bitmap b(FindLayout("bgr24"), kW, kH, 5);
    for (size_t i = 0; i < std::size(cases); ++i) {
        Bitmap c(b);
        EXPECT_EQ(cases[i].first(c.get()), cases[i].second ? cases[i].second : 1) << "case " << i;
        EXPECT_TRUE(cases[i].second || c.storedBytes() == b.storedBytes()) << "case " << i;
    }
    const RzRect away{kW + 5, 0, kW + 9, 4}; // nothing to process
    ASSERT_EQ(DisSetRegionRect(b.get(), &away, DIS_RGN_SET), 1);
    EXPECT_EQ(Rz_SpherizeBitmap(b.get(), 50, 0, 0, 0, 0), ST_EMPTY_RECT);
}

} // namespace
} // namespace rz::test
