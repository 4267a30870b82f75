// The neighbourhood filters (convolution, Gaussian, rank, edges): one table
// of cases compared bit for bit with the naive references on every sample
// layout, shape and region placement, and with OpenCV where it computes the
// same thing; values worked by hand; the picture orientation in every view;
// progress, and the refusals of the kernel records.
#include "filter_reference.h"
#include "filters/median_network.h"

#include <gtest/gtest.h>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <numeric>
#include <random>
#include <string>

namespace rz::test {
namespace {

using Op = std::function<int32_t(BitmapDesc *)>;

struct Words {
    std::vector<int32_t> w;
    const SpatialKernel *spatial() const { return reinterpret_cast<const SpatialKernel *>(w.data()); }
    const UserFilterKernel *user() const { return reinterpret_cast<const UserFilterKernel *>(w.data()); }
};
Words Spatial(const RefKernel &k) {
    Words r{{SPATIALKERNEL_SIZE, int32_t(k.divisor), int32_t(k.bias8), k.width}};
    r.w.insert(r.w.end(), k.coef.begin(), k.coef.end());
    return r;
}
Words User(const RefKernel &k) {
    Words r{{USERFILTERKERNEL_SIZE, k.width, k.height, k.ax, k.ay, int32_t(k.divisor), int32_t(k.bias8), int32_t(k.rounding)}};
    r.w.insert(r.w.end(), k.coef.begin(), k.coef.end());
    return r;
}

// The sharpening kernel of a strength, as documented: k = 71 (1000 - |s|) / 999;
// -1 around (k + 9) over k + 1 to sharpen, 1 around (k + 1) over k + 9 to soften.
RefKernel SharpenKernel(int32_t s) {
    const int32_t k = 71 * (1000 - std::abs(s)) / 999;
    std::vector<int32_t> m(9, s >= 0 ? -1 : 1);
    m[4] = s >= 0 ? k + 9 : k + 1;
    return Square(m, s >= 0 ? k + 1 : k + 9, 0);
}

// Edge codes: the predefined kernel, the divisor, whether the sign counts.
struct EdgeKernel {
    int32_t spf;
    int64_t divisor;
    bool magnitude;
};
EdgeKernel EdgeOf(uint32_t code) {
    const uint32_t family = code >> 8, dir = code & 0xFF;
    if (family == 1) return {dir == 1 ? SPF_SOBEL_VERTICAL : SPF_SOBEL_HORIZONTAL, 4, true};
    if (family == 2) return {dir == 1 ? SPF_PREWITT_VERTICAL : SPF_PREWITT_HORIZONTAL, 3, true};
    if (family == 3) return {SPF_LAPLACE_FOUR + int32_t(dir) - 1, dir <= 4 ? 4 : 2, false};
    return {SPF_GRADIENT_N + int32_t(dir) - 1, 5, false};
}
bool Both(uint32_t code) { return (code & 0xFF) == 3 && (code >> 8) <= 2; }

Picture ReferenceEdges(const Picture &p, uint32_t code, int64_t threshold) {
    Picture out = p;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                bool on = false;
                for (uint32_t one : Both(code) ? std::vector<uint32_t>{code - 2, code - 1} : std::vector<uint32_t>{code}) {
                    const EdgeKernel e = EdgeOf(one);
                    const int64_t g = int64_t(WindowSum(p, Square({kTable[e.spf].c, kTable[e.spf].c + 9}, 1, 0), x, y, c));
                    on |= (e.magnitude ? std::abs(g) : g) / e.divisor > threshold;
                }
                out.at(x, y, c) = on ? p.maxValue() : 0;
            }
    return out;
}
int32_t EdgeThreshold(const BitmapDesc *b) { return b->nBitsPerPixel == 16 || b->nBitsPerPixel >= 48 ? 9000 : 40; }

enum class PeerKind { None, Sums, Median, Min, Max, Gauss };

struct Case {
    std::string name;
    Op op;
    std::function<void(Bitmap &)> reference;
    PeerKind peer = PeerKind::None;
    RefKernel kernel{};
    int32_t n = 0;
};

std::function<void(Bitmap &)> Convolving(const RefKernel &k) {
    return [k](Bitmap &b) { ApplyReference(b, [&](const Picture &p) { return ReferenceConvolve(p, k); }); };
}
std::function<void(Bitmap &)> Ranking(uint32_t n, RefRank op) {
    return [=](Bitmap &b) { ApplyReference(b, [&](const Picture &p) { return ReferenceRank(p, n, op); }); };
}

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (int32_t k = 0; k < SPF_COUNT; ++k) {
        const RefKernel kernel = Square({kTable[k].c, kTable[k].c + 9}, 1, kTable[k].bias);
        cases.push_back({"predefined " + std::to_string(k), [k](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(k)); },
                         Convolving(kernel), PeerKind::Sums, kernel});
    }
    std::mt19937 rng(5);
    for (int32_t dim : {1, 2, 3, 5})
        for (int32_t divisor : {1, 7, -3}) {
            std::vector<int32_t> m(size_t(dim) * dim);
            for (int32_t &c : m) c = int32_t(rng() % 11) - 4;
            const RefKernel k = Square(m, divisor, int32_t(rng() % 100) - 30);
            cases.push_back({"spatial " + std::to_string(dim) + " over " + std::to_string(divisor),
                             [w = Spatial(k)](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, w.spatial()); },
                             Convolving(k), PeerKind::Sums, k});
        }
    for (RefRounding rounding : {RefRounding::Truncate, RefRounding::Absolute, RefRounding::Round})
        for (int64_t divisor : {1, 4}) {
            // 4 wide, 3 high, anchored at the top right.
            const RefKernel k{4, 3, 3, 0, {3, -1, 0, 2, -5, 1, 0, 4, -2, 1, 1, -3}, divisor, 20, rounding};
            cases.push_back({"user " + std::to_string(int(rounding)) + " over " + std::to_string(divisor),
                             [w = User(k)](BitmapDesc *b) { return Rz_UserFilterBitmap(b, w.user()); }, Convolving(k),
                             rounding == RefRounding::Truncate ? PeerKind::Sums : PeerKind::None, k});
        }
    for (int32_t s : {1000, 300, 1, -1, -700, -1000})
        cases.push_back({"sharpen " + std::to_string(s), [s](BitmapDesc *b) { return Rz_SharpenBitmap(b, s); },
                         Convolving(SharpenKernel(s)), PeerKind::Sums, SharpenKernel(s)});
    for (int32_t radius : {1, 20, 57})
        cases.push_back({"gaussian " + std::to_string(radius), [radius](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, radius); },
                         [radius](Bitmap &b) { ApplyReferenceGaussian(b, radius); }, PeerKind::Gauss, {}, radius});
    for (uint32_t n : {1u, 2u, 3u, 4u, 7u, 8u, 25u}) {
        cases.push_back({"max " + std::to_string(n), [n](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, n); },
                         Ranking(n, RefRank::Max), PeerKind::Max, {}, int32_t(n)});
        cases.push_back({"min " + std::to_string(n), [n](BitmapDesc *b) { return Rz_MinFilterBitmap(b, n); },
                         Ranking(n, RefRank::Min), PeerKind::Min, {}, int32_t(n)});
    }
    for (uint32_t n : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 10u, 25u})
        cases.push_back({"median " + std::to_string(n), [n](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, n); },
                         Ranking(n, RefRank::Median), n % 2 ? PeerKind::Median : PeerKind::None, {}, int32_t(n)});
    for (uint32_t code : {0x101u, 0x102u, 0x103u, 0x201u, 0x202u, 0x203u, 0x301u, 0x302u, 0x303u, 0x304u, 0x305u,
                          0x306u, 0x401u, 0x402u, 0x403u, 0x404u, 0x405u, 0x406u, 0x407u, 0x408u})
        cases.push_back({"edges " + std::to_string(code),
                         [code](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, EdgeThreshold(b), code); },
                         [code](Bitmap &b) {
                             const int64_t t = EdgeThreshold(b.get());
                             ApplyReference(b, [&](const Picture &p) { return ReferenceEdges(p, code, t); });
                         }});
    return cases;
}

#ifdef RZ_HAVE_OPENCV
// The peer's answer and how far it may be, when it computes the same thing
// on the bitmap's pixel memory (view 1, no region): sums from filter2D in
// floating point, then the truncated division, bias and clamp as documented;
// medianBlur (16-bit up to 5 only), erode and dilate with a square element
// anchored where our window puts the pixel; GaussianBlur within one level.
bool Peer(const Case &c, Bitmap &before, Bitmap &after, double &distance) {
    const int bits = before->nBitsPerPixel;
    if (c.peer == PeerKind::None || (bits != 8 && bits != 24 && bits != 16)) return false;
    auto mat = [&](Bitmap &b) {
        return cv::Mat(b->nHeight, b->nWidth, bits == 8 ? CV_8UC1 : bits == 24 ? CV_8UC3 : CV_16UC1, b->pData, b->nStride);
    };
    const cv::Mat src = mat(before);
    cv::Mat want;
    const cv::Point anchor((c.n - 1) / 2, (c.n - 1) / 2);
    const cv::Mat square = cv::Mat::ones(std::max(c.n, 1), std::max(c.n, 1), CV_8U);
    switch (c.peer) {
    case PeerKind::Sums: {
        const RefKernel &k = c.kernel;
        cv::Mat kernel(k.height, k.width, CV_64F), sums;
        for (int i = 0; i < k.height * k.width; ++i) kernel.at<double>(i / k.width, i % k.width) = k.coef[size_t(i)];
        cv::filter2D(src, sums, CV_64F, kernel, cv::Point(k.ax, k.ay), 0, cv::BORDER_REPLICATE);
        const double scale = bits == 16 ? 257 : 1, top = bits == 16 ? 65535 : 255;
        sums.reshape(1).forEach<double>([&](double &v, const int *) {
            v = std::clamp(double(int64_t(v) / k.divisor) + double(k.bias8) * scale, 0.0, top);
        });
        sums.convertTo(want, src.type());
        break;
    }
    case PeerKind::Median:
        if (bits == 16 && c.n > 5) return false;
        cv::medianBlur(src, want, c.n);
        break;
    case PeerKind::Min: cv::erode(src, want, square, anchor, 1, cv::BORDER_REPLICATE); break;
    case PeerKind::Max: cv::dilate(src, want, square, anchor, 1, cv::BORDER_REPLICATE); break;
    case PeerKind::Gauss: {
        if (bits == 16) return false;
        const double sigma = (2.0 * (c.n * 0.1 + 1.0) + 0.5) / 3.0;
        const int r = int(3.0 * sigma);
        cv::GaussianBlur(src, want, cv::Size(2 * r + 1, 2 * r + 1), sigma, sigma, cv::BORDER_REPLICATE);
        break;
    }
    default: return false;
    }
    distance = cv::norm(mat(after), want, cv::NORM_INF);
    return true;
}
#endif

TEST(Filters, EveryCaseMatchesItsReferenceOnEveryLayout) {
#ifdef RZ_HAVE_OPENCV
    cv::setNumThreads(1);
#endif
    const std::pair<int32_t, int32_t> shapes[] = {{1, 1}, {1, 9}, {9, 1}, {13, 11}};
    uint32_t seed = 11;
    for (const Case &c : Cases())
        for (const char *layout : kSampleLayouts)
            for (auto [w, h] : shapes)
                for (uint32_t region : {0u, 1u, 2u}) {
                    SCOPED_TRACE(c.name + " " + layout + " " + std::to_string(w) + "x" + std::to_string(h) + " region " +
                                 std::to_string(region));
                    Bitmap got(FindLayout(layout), w, h, seed++), want(got);
                    if (region) {
                        SetEdgeRegion(got.get(), region);
                        SetEdgeRegion(want.get(), region);
                    }
                    ASSERT_EQ(c.op(got.get()), 1);
                    c.reference(want);
                    ASSERT_EQ(got.storedBytes(), want.storedBytes());
#ifdef RZ_HAVE_OPENCV
                    Bitmap before(FindLayout(layout), w, h, seed - 1);
                    double distance = 0;
                    if (!region && Peer(c, before, got, distance)) {
                        EXPECT_LE(distance, c.peer == PeerKind::Gauss ? 1.0 : 0.0) << "OpenCV";
                    }
#endif
                }
}

// A palette of the grey ramp holds grey levels as indices: the filters see
// the same picture as on 8-bit grey samples.
TEST(Filters, GreyRampPaletteFiltersLikeGreySamples) {
    for (const Case &c : Cases()) {
        Bitmap pal(FindLayout("pal8_grey"), 13, 11, 7), grey(FindLayout("grey8"), 13, 11, 0);
        for (int32_t y = 0; y < 11; ++y)
            for (int32_t x = 0; x < 13; ++x) grey.setPixel(x, y, pal.pixel(x, y));
        ASSERT_EQ(c.op(pal.get()), 1);
        ASSERT_EQ(c.op(grey.get()), 1);
        EXPECT_EQ(pal.storedBytes(), grey.storedBytes()) << c.name;
    }
}

std::vector<uint64_t> Field(int32_t w, int32_t h, uint64_t v, std::initializer_list<std::array<uint64_t, 3>> spots = {}) {
    std::vector<uint64_t> f(size_t(w) * h, v);
    for (const auto &[x, y, s] : spots) f[y * w + x] = s;
    return f;
}

TEST(Filters, ByHand) {
    const auto ring = [](uint64_t centre, uint64_t around) {
        return Field(5, 5, 50, {{1, 1, around}, {2, 1, around}, {3, 1, around}, {1, 2, around}, {2, 2, centre},
                                {3, 2, around}, {1, 3, around}, {2, 3, around}, {3, 3, around}});
    };
    const auto user = [](int32_t w, int32_t h, int32_t ax, int64_t divisor, int64_t offset, RefRounding r,
                         std::vector<int32_t> m) {
        return [k = User(RefKernel{w, h, ax, 0, std::move(m), divisor, offset, r})](BitmapDesc *b) {
            return Rz_UserFilterBitmap(b, k.user());
        };
    };
    const struct {
        const char *what, *layout;
        int32_t w, h;
        std::vector<uint64_t> in;
        Op op;
        std::vector<uint64_t> want;
    } cases[] = {
        {"emboss on flat grey is mid grey", "grey8", 7, 5, Field(7, 5, 93),
         [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_EMBOSS_N)); }, Field(7, 5, 128)},
        {"emboss bias widened on words", "grey16", 3, 2, Field(3, 2, 12345),
         [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_EMBOSS_N)); }, Field(3, 2, 32896)},
        {"emboss on every channel", "bgr48", 3, 2, Field(3, 2, 0x1111222233334444ull),
         [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, nullptr); }, Field(3, 2, 0x808080808080ull)},
        {"divisor -1 negates before the bias", "grey8", 6, 1, {0, 1, 77, 200, 255, 128},
         [k = Spatial(Square({1}, -1, 255))](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, k.spatial()); },
         {255, 254, 178, 55, 0, 127}},
        // A 5x5 field of 50, 100 in the middle: -1 around, 9 over 1: 900 - 400, 450 - 450.
        {"sharpen 1000", "grey8", 5, 5, ring(100, 50), [](BitmapDesc *b) { return Rz_SharpenBitmap(b, 1000); }, ring(255, 0)},
        // 80 over 72: 7600 / 72, 3550 / 72.
        {"sharpen 1", "grey8", 5, 5, ring(100, 50), [](BitmapDesc *b) { return Rz_SharpenBitmap(b, 1); }, ring(105, 49)},
        // 72 over 80: 7600 / 80, 4050 / 80.
        {"soften 1", "grey8", 5, 5, ring(100, 50), [](BitmapDesc *b) { return Rz_SharpenBitmap(b, -1); }, ring(95, 50)},
        {"soften 1000 is the box", "grey8", 5, 5, ring(100, 50), [](BitmapDesc *b) { return Rz_SharpenBitmap(b, -1000); },
         ring(55, 55)},
        {"sharpen 0 changes nothing", "grey8", 5, 5, ring(100, 50), [](BitmapDesc *b) { return Rz_SharpenBitmap(b, 0); },
         ring(100, 50)},
        {"derivative, truncated", "grey8", 6, 1, {100, 100, 0, 0, 100, 100}, user(3, 1, 1, 1, 0, RefRounding::Truncate, {-1, 0, 1}),
         {0, 0, 0, 100, 100, 0}},
        {"derivative, absolute", "grey8", 6, 1, {100, 100, 0, 0, 100, 100}, user(3, 1, 1, 1, 0, RefRounding::Absolute, {-1, 0, 1}),
         {0, 100, 100, 100, 100, 0}},
        {"mean, truncated", "grey8", 3, 1, {10, 11, 11}, user(2, 1, 0, 2, 0, RefRounding::Truncate, {1, 1}), {10, 11, 11}},
        {"mean, rounded", "grey8", 3, 1, {10, 11, 11}, user(2, 1, 0, 2, 0, RefRounding::Round, {1, 1}), {11, 11, 11}},
        // -3 / 2 rounds away from zero to -2, plus 10.
        {"negative half", "grey8", 2, 1, {3, 0}, user(1, 1, 0, 2, 10, RefRounding::Round, {-1}), {8, 10}},
        {"offset widened on words", "grey16", 3, 1, Field(3, 1, 1000), user(1, 1, 0, 1, 2, RefRounding::Truncate, {1}),
         Field(3, 1, 1000 + 2 * 257)},
        // (0, 1) sees 30 40 and the replicated row below: lower middle 30.
        {"even median is the lower middle", "grey8", 2, 2, {10, 20, 30, 40},
         [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 2); }, {20, 20, 30, 40}},
        {"max 4 reaches two down and right", "grey8", 6, 6, Field(6, 6, 0, {{5, 5, 200}}),
         [](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, 4); },
         Field(6, 6, 0, {{3, 3, 200}, {4, 3, 200}, {5, 3, 200}, {3, 4, 200}, {4, 4, 200}, {5, 4, 200}, {3, 5, 200}, {4, 5, 200}, {5, 5, 200}})},
        {"max of a column", "grey8", 1, 5, {5, 90, 7, 3, 60}, [](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, 3); },
         {90, 90, 90, 60, 60}},
        {"median of a column", "grey8", 1, 5, {5, 90, 7, 3, 60}, [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 3); },
         {5, 7, 7, 7, 60}},
        // Radius 3: sigma 1.0333, r 3; the tail shares of 256 are 1.46, 16.65
        // and 78.56, rounded 1, 17, 79: weights 98 62 16 1, times 255 / 256.
        {"gaussian 3 of an impulse", "grey8", 9, 1, {0, 0, 0, 0, 255, 0, 0, 0, 0},
         [](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 3); }, {0, 1, 16, 62, 98, 62, 16, 1, 0}},
        {"no edges on flat grey", "grey8", 4, 3, Field(4, 3, 77),
         [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 0, EDG_LAPLACE_EIGHT); }, Field(4, 3, 0)},
        {"vertical line, vertical operator", "grey8", 5, 1, {0, 0, 255, 0, 0},
         [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 10, EDG_SOBEL_VERTICAL); }, {0, 255, 0, 255, 0}},
        {"vertical line, horizontal operator", "grey8", 5, 1, {0, 0, 255, 0, 0},
         [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 10, EDG_SOBEL_HORIZONTAL); }, {0, 0, 0, 0, 0}},
        // The four-neighbour Laplacian marks the bright side of a step only.
        {"step up", "grey8", 6, 1, {20, 20, 20, 220, 220, 220},
         [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 10, EDG_LAPLACE_FOUR); }, {0, 0, 0, 255, 0, 0}},
        {"step down", "grey8", 6, 1, {235, 235, 235, 35, 35, 35},
         [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 10, EDG_LAPLACE_FOUR); }, {0, 0, 255, 0, 0, 0}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Bitmap b(FindLayout(c.layout), c.w, c.h, 0);
        for (int32_t i = 0; i < c.w * c.h; ++i) b.setPixel(i % c.w, i / c.w, c.in[size_t(i)]);
        ASSERT_EQ(c.op(b.get()), 1);
        for (int32_t i = 0; i < c.w * c.h; ++i) EXPECT_EQ(b.pixel(i % c.w, i / c.w), c.want[size_t(i)]) << "pixel " << i;
    }
}

// The stored picture is what a person sees: a filter applies to it the same
// way whatever view the caller has set, and the caller's view comes back.
TEST(Filters, TheWindowFollowsThePictureInEveryView) {
    const Words user = User(RefKernel{3, 2, 0, 1, {4, -1, 2, 0, 3, -6}, 3, -5, RefRounding::Round});
    const Op ops[] = {
        [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_SOBEL_HORIZONTAL)); },
        [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_SHIFT_DIAGONAL)); },
        [&](BitmapDesc *b) { return Rz_UserFilterBitmap(b, user.user()); },
        [](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 15); },
        [](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, 4); },
        [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 2); },
        [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 20, EDG_SOBEL_VERTICAL); },
        [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 5, EDG_GRADIENT_NE); },
    };
    for (size_t i = 0; i < std::size(ops); ++i) {
        const Bitmap original(FindLayout(i % 2 ? "grey16" : "bgr24"), 11, 7, 21);
        Bitmap upright(original);
        ASSERT_EQ(ops[i](upright.get()), 1);
        for (int32_t view = 2; view <= 8; ++view) {
            Bitmap turned(original);
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, turned.get(), BITMAPDESC_SIZE, view, 0), 1);
            ASSERT_EQ(ops[i](turned.get()), 1);
            EXPECT_EQ(turned->nViewPerspective, view);
            EXPECT_EQ(turned.storedBytes(), upright.storedBytes()) << "op " << i << " view " << view;
        }
    }
}

TEST(Gaussian, WeightsAreTheDocumentedOnes) {
    // One row, an impulse in the middle: the columns pass sees single
    // samples and leaves them, so each output is the rounded weight times
    // the impulse: in 2^-14 for 16-bit samples, 2^-8 for 8-bit ones.
    for (int32_t radius : {1, 20, 100}) {
        for (auto [layout, shift, peak] : {std::tuple{"grey16", 14, 65535}, std::tuple{"grey8", 8, 255}}) {
            SCOPED_TRACE(std::string(layout) + " radius " + std::to_string(radius));
            const std::vector<int64_t> w = DocumentedGaussWeights(radius, shift);
            const int32_t r = int32_t(w.size()) - 1;
            Bitmap b(FindLayout(layout), 2 * r + 5, 1, 0);
            b.setPixel(r + 2, 0, uint64_t(peak));
            ASSERT_EQ(Rz_GaussianFilterBitmap(b.get(), radius), 1);
            for (int32_t i = -r - 2; i <= r + 2; ++i) {
                const int64_t tap = std::abs(i) <= r ? w[size_t(std::abs(i))] : 0;
                EXPECT_EQ(int64_t(b.pixel(r + 2 + i, 0)), (tap * peak + (int64_t(1) << (shift - 1))) >> shift) << "tap " << i;
            }
        }
    }
}

// Two passes report one sequence: the second starts at 51; a stop in either
// brings the caller's view back.
TEST(Filters, ProgressOfTwoPasses) {
    for (const Op &op : {Op([](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 20); }),
                         Op([](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 20, EDG_PREWITT_BOTH); })}) {
        Bitmap b(FindLayout("bgr24"), 40, 30, 8);
        CallbackRecorder rec;
        ASSERT_EQ(op(b.get()), 1);
        const std::vector<int32_t> &p = rec.percents();
        ASSERT_FALSE(p.empty());
        EXPECT_EQ(p.front(), 0);
        EXPECT_EQ(p.back(), 100);
        EXPECT_TRUE(std::is_sorted(p.begin(), p.end()));
        EXPECT_EQ(std::count(p.begin(), p.end(), 100), 1);
        const auto half = std::find(p.begin(), p.end(), 50);
        ASSERT_NE(half, p.end());
        EXPECT_EQ(*(half + 1), 51) << "the second pass starts at 51";
    }
    Bitmap b(FindLayout("grey8"), 20, 20, 8);
    ASSERT_EQ(KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, 4, 0), 1);
    for (int32_t stop : {1, 5, 25, 30}) {
        CallbackRecorder rec;
        rec.stopAt(stop, -77);
        EXPECT_EQ(Rz_GaussianFilterBitmap(b.get(), 10), -77);
        EXPECT_EQ(b->nViewPerspective, 4);
    }
}

TEST(Rank, ProgressCoversTheRegionRows) {
    Bitmap b(FindLayout("bgr24"), 30, 50, 1);
    const RzRect r{2, 10, 20, 35};
    ASSERT_EQ(DisSetRegionRect(b.get(), &r, DIS_RGN_SET), 1);
    CallbackRecorder rec;
    ASSERT_EQ(Rz_MedianFilterBitmap(b.get(), 9), 1);
    std::vector<int32_t> want{0};
    for (int32_t p = 4; p <= 100; p += 4) want.push_back(p); // 25 rows
    EXPECT_EQ(rec.percents(), want);
}

// Windows far beyond the bitmap: every window is the whole bitmap with the
// edge samples repeated, and they weigh in the median with their count.
TEST(Rank, HugeWindowsWeighTheEdges) {
    using RankFn = int32_t(RZAPI *)(BitmapDesc *, uint32_t);
    const std::pair<RankFn, RefRank> ops[] = {
        {&Rz_MaxFilterBitmap, RefRank::Max}, {&Rz_MinFilterBitmap, RefRank::Min}, {&Rz_MedianFilterBitmap, RefRank::Median}};
    for (const char *layout : {"grey8", "grey16", "bgr24", "bgr48"})
        for (uint32_t n : {1000u, 100001u, 4294967295u})
            for (auto [f, op] : ops) {
                Bitmap a(FindLayout(layout), 3, 2, 40 + n % 7), b(a);
                ASSERT_EQ(f(a.get(), n), 1);
                const int64_t lo = (int64_t(n) - 1) / 2, hi = int64_t(n) / 2;
                auto weight = [&](int32_t i, int32_t at, int32_t size) {
                    return uint64_t(1) + (i == 0 ? uint64_t(lo - at) : 0) + (i == size - 1 ? uint64_t(hi - (size - 1 - at)) : 0);
                };
                ApplyReference(b, [&](const Picture &p) {
                    Picture q = p;
                    for (int32_t y = 0; y < p.h; ++y)
                        for (int32_t x = 0; x < p.w; ++x)
                            for (int32_t c = 0; c < p.channels; ++c) {
                                std::vector<std::pair<int64_t, uint64_t>> counts;
                                for (int32_t yy = 0; yy < p.h; ++yy)
                                    for (int32_t xx = 0; xx < p.w; ++xx)
                                        counts.push_back({p.at(xx, yy, c), weight(xx, x, p.w) * weight(yy, y, p.h)});
                                std::sort(counts.begin(), counts.end());
                                uint64_t seen = 0, target = (uint64_t(n) * n - 1) / 2;
                                size_t i = 0;
                                while ((seen += counts[i].second) <= target) ++i;
                                q.at(x, y, c) = op == RefRank::Max   ? counts.back().first
                                                : op == RefRank::Min ? counts.front().first
                                                                     : counts[i].first;
                            }
                    return q;
                });
                EXPECT_EQ(a.storedBytes(), b.storedBytes()) << layout << " n " << n << " op " << int(op);
            }
}

// 64 inputs at a time: bit k of word i is input i of the k-th 0/1 vector;
// min is AND, max is OR. A comparator network selects correctly on all
// inputs when it does on all 0/1 inputs.
template <int Side> void ExpectNetworkSelects() {
    using Net = filt::MedianNet<Side>;
    constexpr int N = Net::kCount;
    const uint64_t total = uint64_t(1) << N;
    for (uint64_t base = 0; base < total; base += 64) {
        uint64_t v[N];
        for (int i = 0; i < N; ++i) {
            uint64_t word = 0;
            for (int k = 0; k < 64; ++k)
                if (((base + k) >> i) & 1) word |= uint64_t(1) << k;
            v[i] = word;
        }
        for (int s = 0; s < Net::kNet.count; ++s) {
            const filt::NetStep st = Net::kNet.steps[s];
            const uint64_t lo = v[st.a] & v[st.b], hi = v[st.a] | v[st.b];
            if (st.kind != 2) v[st.a] = lo;
            if (st.kind != 1) v[st.b] = hi;
        }
        for (int k = 0; k < 64 && base + k < total; ++k) {
            // The rank-th smallest of a 0/1 vector is 1 when at most rank of its inputs are 0.
            const int zeros = N - __builtin_popcountll(base + k);
            ASSERT_EQ((v[Net::kRank] >> k) & 1, zeros <= Net::kRank ? 1u : 0u) << "input " << (base + k);
        }
    }
}

TEST(MedianNetworks, SelectOnEveryZeroOneInput) {
    ExpectNetworkSelects<2>();
    ExpectNetworkSelects<3>();
    ExpectNetworkSelects<4>();
    ExpectNetworkSelects<5>();
}

// The records and codes the parameter sweeps cannot know.
TEST(Filters, RefusedRecordsAndCodes) {
    Bitmap b(FindLayout("grey8"), 4, 4, 1), b12(FindLayout("grey12"), 4, 4, 1), b48(FindLayout("bgr48"), 4, 4, 1);
    const Words spatial = Spatial(Square(std::vector<int32_t>(9, 1), 1, 0));
    const Words user = User(RefKernel{3, 3, 1, 1, std::vector<int32_t>(9, 1), 1, 0});
    const std::pair<int, int32_t> spoilSpatial[] = {{0, 19}, {1, 0}, {3, 0}};
    for (auto [field, value] : spoilSpatial) {
        Words k = spatial;
        k.w[size_t(field)] = value;
        EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), k.spatial()), field == 0 ? ST_BAD_STRUCT_SIZE : ST_INVALID_PARAMETER) << field;
    }
    const std::pair<int, int32_t> spoilUser[] = {{0, 32}, {1, 0}, {2, 0}, {3, 3}, {4, 3}, {3, -1}, {5, 0}, {7, 3}};
    for (auto [field, value] : spoilUser) {
        Words k = user;
        k.w[size_t(field)] = value;
        EXPECT_EQ(Rz_UserFilterBitmap(b.get(), k.user()), field == 0 ? ST_BAD_STRUCT_SIZE : ST_INVALID_PARAMETER) << field;
    }
    EXPECT_EQ(Rz_SpatialFilterBitmap(b.get(), RZ_SPF_KERNEL(SPF_COUNT)), ST_INVALID_PARAMETER);
    for (uint32_t code : {0x100u, 0x104u, 0x307u, 0x409u, 0x0u, 0x501u, 0x10101u})
        EXPECT_EQ(Rz_EdgeDetectorBitmap(b.get(), 0, code), ST_INVALID_PARAMETER) << code;
    // A threshold past the samples' top is refused where a response could pass it.
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b12.get(), 4096, 0x301), ST_BAD_BITS);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b12.get(), 4095, 0x103), 1);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b.get(), 256, 0x102), ST_BAD_BITS);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b.get(), 256, 0x302), 1);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b48.get(), 65535, 0x203), 1);
}

} // namespace
} // namespace rz::test
