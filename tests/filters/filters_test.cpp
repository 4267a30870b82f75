// The neighbourhood filters: one table of cases compared bit for bit with
// naive references (pixels one at a time in view 1, the definitions as
// plainly as possible) on every sample layout, shape and region placement;
// values worked by hand pin the references down. OpenCV agrees with them
// where it computes the same thing (8-bit, no region): they are the stronger
// oracle.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <sstream>
#include <string>

namespace rz::test {
namespace {

using Op = std::function<int32_t(BitmapDesc *)>;

struct Picture {
    int32_t w = 0, h = 0;
    std::vector<Channels> px;
    Channels &at(int32_t x, int32_t y) { return px[size_t(y) * w + x]; }
    int64_t clamped(int64_t x, int64_t y, int c) const { // edge replication
        return px[size_t(std::clamp<int64_t>(y, 0, h - 1)) * w + size_t(std::clamp<int64_t>(x, 0, w - 1))].v[c];
    }
};

// Reads in view 1 (the stored picture), filters, writes back inside the
// region only, restores the view.
void ApplyReference(Bitmap &b, const std::function<Picture(const Picture &)> &filter) {
    const int32_t view = b->nViewPerspective;
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 1, 0);
    Picture p{b->nWidth, b->nHeight, {}};
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x) p.px.push_back(ReadChannels(b, x, y));
    Picture q = filter(p);
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            if (DisIsPtInRegion(b.get(), x, y)) WriteChannels(b, x, y, q.at(x, y));
    KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0);
}

// Every sample of a copy of p set by f(x, y, channel).
template <class F> Picture Each(const Picture &p, F &&f) {
    Picture q = p;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int c = 0; c < q.at(x, y).count; ++c) q.at(x, y).v[c] = uint32_t(f(x, y, c));
    return q;
}

// Row-major coefficients and bias of the predefined kernels, from the table
// of the documentation.
struct Predefined {
    int32_t bias;
    const char *c;
};
const Predefined kTable[SPF_COUNT] = {
    {128, "0 1 0 0 0 0 0 -1 0"}, {128, "0 0 1 0 0 0 -1 0 0"}, {128, "0 0 0 -1 0 1 0 0 0"},
    {128, "-1 0 0 0 0 0 0 0 1"}, {128, "0 -1 0 0 0 0 0 1 0"}, {128, "0 0 -1 0 0 0 1 0 0"},
    {128, "0 0 0 1 0 -1 0 0 0"}, {128, "1 0 0 0 0 0 0 0 -1"}, {0, "1 1 1 1 -2 1 -1 -1 -1"},
    {0, "1 1 1 -1 -2 1 -1 -1 1"}, {0, "-1 1 1 -1 -2 1 -1 1 1"}, {0, "-1 -1 1 -1 -2 1 1 1 1"},
    {0, "-1 -1 -1 1 -2 1 1 1 1"}, {0, "1 -1 -1 1 -2 -1 1 1 1"}, {0, "1 1 -1 1 -2 -1 1 1 -1"},
    {0, "1 1 1 1 -2 -1 1 -1 -1"}, {0, "0 -1 0 -1 4 -1 0 -1 0"}, {0, "-1 -1 -1 -1 8 -1 -1 -1 -1"},
    {0, "1 -2 1 -2 4 -2 1 -2 1"}, {0, "-1 0 -1 0 4 0 -1 0 -1"}, {0, "0 -1 0 0 2 0 0 -1 0"},
    {0, "0 0 0 -1 2 -1 0 0 0"}, {0, "1 2 1 0 0 0 -1 -2 -1"}, {0, "1 0 -1 2 0 -2 1 0 -1"},
    {0, "-1 -1 -1 0 0 0 1 1 1"}, {0, "1 0 -1 1 0 -1 1 0 -1"}, {0, "-1 0 0 0 1 0 0 0 0"},
    {0, "0 -1 0 0 1 0 0 0 0"}, {0, "0 0 0 -1 1 0 0 0 0"}, {0, "-1 -1 -1 2 2 2 -1 -1 -1"},
    {0, "-1 2 -1 -1 2 -1 -1 2 -1"}, {0, "-1 -1 2 -1 2 -1 2 -1 -1"}, {0, "2 -1 -1 -1 2 -1 -1 -1 2"},
};

// A kernel as the user filter record holds it (width, height, anchor,
// divisor, offset on the 8-bit scale, RZ_UF_ rounding, coefficients).
struct Kernel {
    int32_t w, h, ax, ay, divisor, bias, type;
    std::vector<int32_t> coef;
    std::vector<int32_t> spatial() const {
        std::vector<int32_t> r{SPATIALKERNEL_SIZE, divisor, bias, w};
        r.insert(r.end(), coef.begin(), coef.end());
        return r;
    }
    std::vector<int32_t> user() const {
        std::vector<int32_t> r{USERFILTERKERNEL_SIZE, w, h, ax, ay, divisor, bias, type};
        r.insert(r.end(), coef.begin(), coef.end());
        return r;
    }
};
Kernel Square(const int32_t *m, int32_t dim, int32_t divisor, int32_t bias) {
    return {dim, dim, (dim - 1) / 2, (dim - 1) / 2, divisor, bias, RZ_UF_TRUNCATE, {m, m + dim * dim}};
}
Kernel Predef(int32_t n) {
    std::istringstream in(kTable[n].c);
    std::vector<int32_t> m(9);
    for (int32_t &v : m) in >> v;
    return Square(m.data(), 3, 1, kTable[n].bias);
}

double WindowSum(const Picture &p, const Kernel &k, int32_t x, int32_t y, int c) {
    double sum = 0;
    for (int32_t i = 0; i < k.h; ++i)
        for (int32_t j = 0; j < k.w; ++j)
            sum += k.coef[size_t(i * k.w + j)] * double(p.clamped(x - k.ax + j, y - k.ay + i, c));
    return sum;
}

Picture Convolve(const Picture &p, const Kernel &k) {
    return Each(p, [&](int32_t x, int32_t y, int c) {
        const double sum = WindowSum(p, k, x, y, c), d = k.divisor;
        const int64_t v = k.type == RZ_UF_ABSOLUTE ? int64_t(std::fabs(sum) / d)
                          : k.type == RZ_UF_ROUND ? int64_t(std::copysign(std::floor(std::fabs(sum) / d + 0.5), sum))
                                                  : int64_t(sum / d);
        const int64_t top = p.px[0].max();
        return std::clamp<int64_t>(v + k.bias * (top == 65535 ? 257 : 1), 0, top);
    });
}

using RankFn = int32_t(RZAPI *)(BitmapDesc *, uint32_t);
const RankFn kRanks[] = {&Rz_MaxFilterBitmap, &Rz_MinFilterBitmap, &Rz_MedianFilterBitmap};

// An n x n window reaching (n - 1) / 2 up and left, n / 2 down and right,
// edge samples repeated: each sample weighs with the window places it
// fills, so windows far beyond the bitmap cost nothing. An even median is
// the lower middle. 0 max, 1 min, 2 median.
uint64_t Places(int64_t lo, int64_t hi, int64_t i, int64_t size) {
    const int64_t a = i == 0 ? std::min<int64_t>(lo, 0) : i, b = i == size - 1 ? std::max(hi, i) : i;
    return uint64_t(std::max<int64_t>(0, std::min(hi, b) - std::max(lo, a) + 1));
}
Picture Rank(const Picture &p, int64_t n, int op) {
    return Each(p, [&](int32_t x, int32_t y, int c) {
        std::vector<std::pair<int64_t, uint64_t>> w;
        for (int32_t yy = 0; yy < p.h; ++yy)
            for (int32_t xx = 0; xx < p.w; ++xx)
                if (const uint64_t k = Places(x - (n - 1) / 2, x + n / 2, xx, p.w) *
                                       Places(y - (n - 1) / 2, y + n / 2, yy, p.h))
                    w.push_back({p.clamped(xx, yy, c), k});
        std::sort(w.begin(), w.end());
        uint64_t seen = 0, i = 0;
        while ((seen += w[i].second) <= (uint64_t(n) * uint64_t(n) - 1) / 2) ++i;
        return op == 0 ? w.back().first : op == 1 ? w.front().first : w[i].first;
    });
}

// The documented Gaussian weights w[0..r], in units of 2^-shift: each tap the
// difference of the rounded tail sums, the centre what is left. Rows, then
// columns of the rows' stored (rounded) result, inside the region only.
void Gaussian(Bitmap &b, int32_t radius) {
    ApplyReference(b, [&](const Picture &p) {
        const double sigma = (2.0 * (radius * 0.1 + 1.0) + 0.5) / 3.0, s2 = 2 * sigma * sigma;
        const int32_t shift = p.px[0].bits == 16 ? 14 : 8, r = int32_t(3.0 * sigma);
        std::vector<double> g(r + 1);
        double total = 0;
        for (int32_t i = -r; i <= r; ++i) total += std::exp(-double(i) * i / s2);
        for (int32_t i = 0; i <= r; ++i) g[i] = std::exp(-double(i) * i / s2) / total;
        const auto tail = [&](int32_t i) {
            double t = 0;
            for (int32_t j = i; j <= r; ++j) t += g[j];
            return std::llround(std::ldexp(t, shift));
        };
        std::vector<int64_t> w(r + 1);
        w[0] = int64_t(1) << shift;
        for (int32_t i = 1; i <= r; ++i) w[0] -= 2 * (w[i] = tail(i) - tail(i + 1));
        Picture rows = p;
        for (int pass = 0; pass < 2; ++pass) {
            const Picture in = pass ? rows : p;
            rows = Each(in, [&](int32_t x, int32_t y, int c) {
                if (!DisIsPtInRegion(b.get(), x, y)) return int64_t(in.clamped(x, y, c));
                int64_t sum = 0;
                for (int64_t i = -r; i <= r; ++i)
                    sum += w[size_t(std::abs(i))] * (pass ? in.clamped(x, y + i, c) : in.clamped(x + i, y, c));
                return (sum + (int64_t(1) << (shift - 1))) >> shift;
            });
        }
        return rows;
    });
}

// Edge codes: the predefined kernels, the divisor, whether the sign counts;
// the "both" codes of Sobel and Prewitt mark what either direction marks.
Picture Edges(const Picture &p, uint32_t code, int64_t threshold) {
    const uint32_t family = code >> 8, dir = code & 0xFF;
    std::vector<uint32_t> dirs{dir};
    if (family <= 2 && dir == 3) dirs = {1, 2};
    return Each(p, [&](int32_t x, int32_t y, int c) {
        bool on = false;
        for (uint32_t d : dirs) {
            const int32_t spf = family == 1   ? (d == 1 ? SPF_SOBEL_VERTICAL : SPF_SOBEL_HORIZONTAL)
                                : family == 2 ? (d == 1 ? SPF_PREWITT_VERTICAL : SPF_PREWITT_HORIZONTAL)
                                : family == 3 ? SPF_LAPLACE_FOUR + int32_t(d) - 1
                                              : SPF_GRADIENT_N + int32_t(d) - 1;
            const int64_t div = family == 1 ? 4 : family == 2 ? 3 : family == 3 ? (d <= 4 ? 4 : 2) : 5;
            const int64_t g = int64_t(WindowSum(p, Predef(spf), x, y, c));
            on |= (family <= 2 ? std::abs(g) : g) / div > threshold;
        }
        return on ? int64_t(p.px[0].max()) : 0;
    });
}
int32_t EdgeThreshold(const BitmapDesc *b) {
    return b->nBitsPerPixel == 16 || b->nBitsPerPixel >= 48 ? 9000 : 40;
}

struct Case {
    std::string name;
    Op op;
    std::function<void(Bitmap &)> reference;
};

Case Convolution(std::string name, Op op, const Kernel &k) {
    return {std::move(name), std::move(op),
            [k](Bitmap &b) { ApplyReference(b, [&](const Picture &p) { return Convolve(p, k); }); }};
}

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (int32_t k = 0; k < SPF_COUNT; ++k)
        cases.push_back(Convolution("predefined " + std::to_string(k),
                                    [k](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(k)); },
                                    Predef(k)));
    std::mt19937 rng(5);
    for (int32_t dim : {1, 2, 3, 5})
        for (int32_t divisor : {1, 7, -3}) {
            std::vector<int32_t> m(size_t(dim) * dim);
            for (int32_t &c : m) c = int32_t(rng() % 11) - 4;
            const Kernel k = Square(m.data(), dim, divisor, int32_t(rng() % 100) - 30);
            cases.push_back(Convolution("spatial " + std::to_string(dim) + " / " + std::to_string(divisor),
                                        [w = k.spatial()](BitmapDesc *b) {
                                            return Rz_SpatialFilterBitmap(b, (const SpatialKernel *)w.data());
                                        },
                                        k));
        }
    for (int32_t type : {RZ_UF_TRUNCATE, RZ_UF_ABSOLUTE, RZ_UF_ROUND})
        for (int32_t divisor : {1, 4}) { // 4 wide, 3 high, anchored at the top right
            const Kernel k{4, 3, 3, 0, divisor, 20, type, {3, -1, 0, 2, -5, 1, 0, 4, -2, 1, 1, -3}};
            cases.push_back(Convolution("user " + std::to_string(type) + " / " + std::to_string(divisor),
                                        [w = k.user()](BitmapDesc *b) {
                                            return Rz_UserFilterBitmap(b, (const UserFilterKernel *)w.data());
                                        },
                                        k));
        }
    // k = 71 (1000 - |s|) / 999: -1 around k + 9 over k + 1 to sharpen,
    // 1 around k + 1 over k + 9 to soften.
    for (int32_t s : {1000, 300, 1, -1, -700, -1000}) {
        const int32_t k = 71 * (1000 - std::abs(s)) / 999;
        std::vector<int32_t> m(9, s >= 0 ? -1 : 1);
        m[4] = s >= 0 ? k + 9 : k + 1;
        cases.push_back(Convolution("sharpen " + std::to_string(s),
                                    [s](BitmapDesc *b) { return Rz_SharpenBitmap(b, s); },
                                    Square(m.data(), 3, s >= 0 ? k + 1 : k + 9, 0)));
    }
    for (int32_t radius : {1, 20, 57})
        cases.push_back({"gaussian " + std::to_string(radius),
                         [radius](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, radius); },
                         [radius](Bitmap &b) { Gaussian(b, radius); }});
    for (int op = 0; op < 3; ++op)
        for (uint32_t n : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 10u, 25u, 1000u, 100001u, 4294967295u})
            cases.push_back({"rank " + std::to_string(op) + " " + std::to_string(n),
                             [f = kRanks[op], n](BitmapDesc *b) { return f(b, n); },
                             [n, op](Bitmap &b) {
                                 ApplyReference(b, [&](const Picture &p) { return Rank(p, n, op); });
                             }});
    for (uint32_t family = 1; family <= 4; ++family)
        for (uint32_t dir = 1; dir <= (family <= 2 ? 3u : family == 3 ? 6u : 8u); ++dir) {
            const uint32_t code = family << 8 | dir;
            cases.push_back({"edges " + std::to_string(code),
                             [code](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, EdgeThreshold(b), code); },
                             [code](Bitmap &b) {
                                 const int64_t t = EdgeThreshold(b.get());
                                 ApplyReference(b, [&](const Picture &p) { return Edges(p, code, t); });
                             }});
        }
    return cases;
}

// An ellipse crossing the left and top edges, or a rectangle hugging the
// right and bottom ones.
void SetEdgeRegion(BitmapDesc *b, uint32_t kind) {
    const int32_t w = b->nWidth, h = b->nHeight;
    const RzRect r = kind == 1 ? RzRect{-w / 3, -h / 4, w * 2 / 3 + 1, h * 3 / 4 + 1} : RzRect{w / 2, h / 3, w, h};
    if (kind == 1) DisSetRegionEllipse(b, &r, DIS_RGN_SET);
    else DisSetRegionRect(b, &r, DIS_RGN_SET);
}

// Regions against the edges in every view: the stored picture is what a
// person sees, and the filters apply to it whatever view the caller has set.
// A palette of the grey ramp holds grey levels as indices.
const std::pair<uint32_t, int32_t> kPlacements[] = {{0, 1}, {1, 1}, {2, 1}, {0, 2}, {1, 3}, {2, 4},
                                                    {0, 5}, {1, 6}, {2, 7}, {0, 8}};

TEST(Filters, EveryCaseMatchesItsReferenceOnEveryLayout) {
    const std::pair<int32_t, int32_t> shapes[] = {{1, 1}, {1, 9}, {9, 1}, {13, 11}};
    uint32_t seed = 11;
    for (const Case &c : Cases())
        for (const char *layout : {"grey8", "pal8_grey", "grey16", "bgr24", "rgb24", "bgr32", "rgb48", "bgr64"})
            for (auto [w, h] : shapes)
                for (auto [region, view] : kPlacements) {
                    SCOPED_TRACE(c.name + " " + layout + " " + std::to_string(w) + "x" + std::to_string(h) +
                                 " region " + std::to_string(region) + " view " + std::to_string(view));
                    Bitmap got(FindLayout(layout), w, h, seed++);
                    KrnChangeViewPerspective(nullptr, got.get(), BITMAPDESC_SIZE, view, 0);
                    Bitmap want(got);
                    if (region) {
                        SetEdgeRegion(got.get(), region);
                        SetEdgeRegion(want.get(), region);
                    }
                    ASSERT_EQ(c.op(got.get()), 1);
                    c.reference(want);
                    ASSERT_EQ(got.storedBytes(), want.storedBytes());
                    ASSERT_EQ(got->nViewPerspective, view);
                }
}

// Worked from the documented formulas: they pin the references down.
TEST(Filters, ByHand) {
    const struct {
        const char *what, *layout;
        int32_t w;
        std::vector<uint64_t> in;
        Op op;
        std::vector<uint64_t> want;
    } cases[] = {
        // (0, 1) sees 30 40 and the replicated row below: lower middle 30.
        {"even median is the lower middle", "grey8", 2, {10, 20, 30, 40},
         [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 2); }, {20, 20, 30, 40}},
        // Radius 3: sigma 1.0333, r 3; the tail shares of 256 are 1.46, 16.65
        // and 78.56, rounded 1, 17, 79: weights 98 62 16 1, times 255 / 256.
        {"gaussian 3 of an impulse", "grey8", 9, {0, 0, 0, 0, 255, 0, 0, 0, 0},
         [](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 3); }, {0, 1, 16, 62, 98, 62, 16, 1, 0}},
    };
    for (const auto &c : cases) {
        const int32_t w = c.w, h = int32_t(c.in.size()) / w;
        Bitmap b(FindLayout(c.layout), w, h, 0);
        for (int32_t i = 0; i < w * h; ++i) b.setPixel(i % w, i / w, c.in[size_t(i)]);
        ASSERT_EQ(c.op(b.get()), 1) << c.what;
        for (int32_t i = 0; i < w * h; ++i) EXPECT_EQ(b.pixel(i % w, i / w), c.want[size_t(i)]) << c.what << " " << i;
    }
}

// The records and codes the parameter sweeps cannot know.
TEST(Filters, RefusedRecordsAndCodes) {
    Bitmap b(FindLayout("grey8"), 4, 4, 1), b12(FindLayout("grey12"), 4, 4, 1);
    const std::vector<int32_t> ones(9, 1);
    const Kernel box = Square(ones.data(), 3, 1, 0);
    using Spoil = std::tuple<int, int, int32_t>; // the user record or not, a word, its value
    for (auto [user, field, value] : {Spoil{0, 0, 19}, Spoil{0, 1, 0}, Spoil{0, 3, 0}, Spoil{1, 0, 32}, Spoil{1, 1, 0},
                                      Spoil{1, 2, 0}, Spoil{1, 3, 3}, Spoil{1, 4, 3}, Spoil{1, 3, -1}, Spoil{1, 5, 0},
                                      Spoil{1, 7, 3}}) {
        std::vector<int32_t> k = user ? box.user() : box.spatial();
        k[size_t(field)] = value;
        const int32_t st = user ? Rz_UserFilterBitmap(b.get(), (const UserFilterKernel *)k.data())
                                : Rz_SpatialFilterBitmap(b.get(), (const SpatialKernel *)k.data());
        EXPECT_EQ(st, field == 0 ? ST_BAD_STRUCT_SIZE : ST_INVALID_PARAMETER) << user << " " << field;
    }
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), RZ_SPF_KERNEL(SPF_COUNT)), ST_INVALID_PARAMETER);
    for (uint32_t code : {0x100u, 0x104u, 0x307u, 0x409u, 0x0u, 0x501u, 0x10101u})
        EXPECT_EQ(Rz_EdgeDetectorBitmap(b.get(), 0, code), ST_INVALID_PARAMETER) << code;
    // A threshold past the samples' top is refused where a response could pass it.
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b12.get(), 4096, 0x301), ST_BAD_BITS);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b12.get(), 4095, 0x103), 1);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b.get(), 256, 0x102), ST_BAD_BITS);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b.get(), 256, 0x302), 1);
}

} // namespace
} // namespace rz::test
