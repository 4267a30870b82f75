// Every filter against its naive reference, bit for bit, on every stored
// layout, on shapes 1x1, 1xN, Nx1 and larger, without a region and with
// regions touching the edges (the window reads outside the region; only
// pixels inside it change).
#include "filter_reference.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace rz::test {
namespace {

using Op = std::function<int32_t(BitmapDesc *)>;
using Ref = std::function<void(BitmapDesc *)>;

struct Shape {
    int32_t w, h;
};
const Shape kShapes[] = {{1, 1}, {1, 9}, {9, 1}, {13, 11}};

// Runs op on one bitmap and the reference on a twin, for every layout,
// shape and region placement, and compares the stored bytes.
void ExpectMatchesReference(const Op &op, const Ref &ref, const std::vector<std::string> &layouts = {}) {
    uint32_t seed = 11;
    for (const Layout &layout : AllLayouts()) {
        if (!layouts.empty() && std::find(layouts.begin(), layouts.end(), layout.name) == layouts.end()) continue;
        for (const Shape &shape : kShapes)
            for (uint32_t region : {0u, 1u, 2u}) {
                SCOPED_TRACE(std::string(layout.name) + " " + std::to_string(shape.w) + "x" +
                             std::to_string(shape.h) + " region " + std::to_string(region));
                Bitmap a(layout, shape.w, shape.h, seed++);
                Bitmap b(a);
                if (region) {
                    SetEdgeRegion(a.get(), region);
                    SetEdgeRegion(b.get(), region);
                }
                const int64_t blocks = KrnMemOutstanding();
                ASSERT_EQ(op(a.get()), 1);
                EXPECT_EQ(KrnMemOutstanding(), blocks);
                ref(b.get());
                ASSERT_EQ(a.storedBytes(), b.storedBytes());
            }
    }
}

RefKernel FromSpatial(const std::vector<int32_t> &m, int32_t divisor, int32_t bias) {
    const int32_t dim = int32_t(std::lround(std::sqrt(double(m.size()))));
    return RefKernel{dim, dim, (dim - 1) / 2, (dim - 1) / 2, m, divisor, bias};
}

// A SpatialKernel record with its coefficients.
struct SpatialRecord {
    std::vector<int32_t> words;
    SpatialRecord(const std::vector<int32_t> &m, int32_t divisor, int32_t bias) {
        const int32_t dim = int32_t(std::lround(std::sqrt(double(m.size()))));
        words = {SPATIALKERNEL_SIZE, divisor, bias, dim};
        words.insert(words.end(), m.begin(), m.end());
    }
    const SpatialKernel *get() const { return reinterpret_cast<const SpatialKernel *>(words.data()); }
};

struct UserRecord {
    std::vector<int32_t> words;
    UserRecord(uint32_t w, uint32_t h, int32_t cx, int32_t cy, uint32_t divisor, int32_t offset, int32_t type,
               const std::vector<int32_t> &m) {
        words = {USERFILTERKERNEL_SIZE, int32_t(w), int32_t(h), cx, cy, int32_t(divisor), offset, type};
        words.insert(words.end(), m.begin(), m.end());
    }
    const UserFilterKernel *get() const { return reinterpret_cast<const UserFilterKernel *>(words.data()); }
};

TEST(ConvolutionReference, PredefinedKernels) {
    for (int32_t number : {SPF_SOBEL_HORIZONTAL, SPF_EMBOSS_NE, SPF_LAPLACE_EIGHT}) {
        SCOPED_TRACE(number);
        const Predefined &k = kTable[number];
        const RefKernel kernel = FromSpatial(std::vector<int32_t>(k.c, k.c + 9), 1, k.bias);
        ExpectMatchesReference([n = number](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(n)); },
                               [k = kernel](BitmapDesc *b) {
                                   ApplyReference(b, [&](const Picture &p) { return ReferenceConvolve(p, k); });
                               });
    }
}

TEST(ConvolutionReference, CallerKernelsOfEverySize) {
    std::mt19937 rng(5);
    for (int32_t dim : {1, 2, 3, 5}) {
        for (int32_t divisor : {1, 7, -3}) {
            SCOPED_TRACE("dim " + std::to_string(dim) + " divisor " + std::to_string(divisor));
            std::vector<int32_t> m(size_t(dim) * dim);
            for (int32_t &c : m) c = int32_t(rng() % 11) - 4;
            const int32_t bias = int32_t(rng() % 100) - 30;
            const SpatialRecord rec(m, divisor, bias);
            const RefKernel k = FromSpatial(m, divisor, bias);
            ExpectMatchesReference([&](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, rec.get()); },
                                   [&](BitmapDesc *b) {
                                       ApplyReference(b, [&](const Picture &p) { return ReferenceConvolve(p, k); });
                                   },
                                   dim == 3 || divisor == 7 ? std::vector<std::string>{}
                                                            : std::vector<std::string>{"grey8", "bgr48", "pal4_colour"});
        }
    }
}

TEST(ConvolutionReference, UserKernelsWithEveryRounding) {
    const std::vector<int32_t> m{3, -1, 0, 2, -5, 1, 0, 4, -2, 1, 1, -3};
    for (int32_t type : {RZ_UF_TRUNCATE, RZ_UF_ABSOLUTE, RZ_UF_ROUND})
        for (uint32_t divisor : {1u, 4u}) {
            SCOPED_TRACE("type " + std::to_string(type) + " divisor " + std::to_string(divisor));
            // 4 wide, 3 high, anchored at the top right.
            const UserRecord rec(4, 3, 3, 0, divisor, 20, type, m);
            const RefKernel k{4, 3, 3, 0, m, divisor, 20, RefRounding(type)};
            ExpectMatchesReference([&](BitmapDesc *b) { return Rz_UserFilterBitmap(b, rec.get()); },
                                   [&](BitmapDesc *b) {
                                       ApplyReference(b, [&](const Picture &p) { return ReferenceConvolve(p, k); });
                                   },
                                   {"grey8", "grey16_bits0_11", "bgr24", "rgb48", "pal8_colour"});
        }
}

TEST(ConvolutionReference, Sharpen) {
    for (int32_t s : {1000, 300, -700}) {
        SCOPED_TRACE(s);
        const int32_t k = s >= 0 ? 71 * (1000 - s) / 999 : 71 * (s + 1000) / 999;
        std::vector<int32_t> m(9, s >= 0 ? -1 : 1);
        m[4] = s >= 0 ? k + 9 : k + 1;
        const RefKernel ref = FromSpatial(m, s >= 0 ? k + 1 : k + 9, 0);
        ExpectMatchesReference([s](BitmapDesc *b) { return Rz_SharpenBitmap(b, s); },
                               [&](BitmapDesc *b) {
                                   ApplyReference(b, [&](const Picture &p) { return ReferenceConvolve(p, ref); });
                               });
    }
}

TEST(GaussianReference, BothPasses) {
    for (int32_t radius : {1, 20, 57}) {
        SCOPED_TRACE(radius);
        ExpectMatchesReference([radius](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, radius); },
                               [radius](BitmapDesc *b) { ApplyReferenceGaussian(b, radius); });
    }
}

TEST(RankReference, MaxAndMin) {
    for (uint32_t n : {1u, 2u, 3u, 4u, 7u, 8u, 25u}) {
        SCOPED_TRACE(n);
        ExpectMatchesReference([n](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, n); },
                               [n](BitmapDesc *b) {
                                   ApplyReference(b, [&](const Picture &p) { return ReferenceRank(p, n, RefRank::Max); });
                               });
        ExpectMatchesReference([n](BitmapDesc *b) { return Rz_MinFilterBitmap(b, n); },
                               [n](BitmapDesc *b) {
                                   ApplyReference(b, [&](const Picture &p) { return ReferenceRank(p, n, RefRank::Min); });
                               });
    }
}

TEST(RankReference, Median) {
    for (uint32_t n : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 10u, 25u}) {
        SCOPED_TRACE(n);
        ExpectMatchesReference([n](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, n); },
                               [n](BitmapDesc *b) {
                                   ApplyReference(b, [&](const Picture &p) { return ReferenceRank(p, n, RefRank::Median); });
                               });
    }
}

} // namespace
} // namespace rz::test
