// Edge detection against a direct reference: each operator written out on
// the picture's own coordinates (the vertical ones on columns, no view
// change), the comparison as a division; on every layout, with regions and
// views, and the documented cases.
#include "filters/filter_reference.h"

#include <gtest/gtest.h>

namespace rz::test {
namespace {

struct EdgeCase {
    uint32_t code;
    int32_t k[9];
    int32_t divisor;
};

const EdgeCase kKernels[] = {
    {EDG_LAPLACE_FOUR, {0, -1, 0, -1, 4, -1, 0, -1, 0}, 4},
    {EDG_LAPLACE_EIGHT, {-1, -1, -1, -1, 8, -1, -1, -1, -1}, 4},
    {EDG_LAPLACE_CROSS, {1, -2, 1, -2, 4, -2, 1, -2, 1}, 4},
    {EDG_LAPLACE_DIAGONAL, {-1, 0, -1, 0, 4, 0, -1, 0, -1}, 4},
    {EDG_LAPLACE_VERTICAL, {0, -1, 0, 0, 2, 0, 0, -1, 0}, 2},
    {EDG_LAPLACE_HORIZONTAL, {0, 0, 0, -1, 2, -1, 0, 0, 0}, 2},
    {EDG_GRADIENT_N, {1, 1, 1, 1, -2, 1, -1, -1, -1}, 5},
    {EDG_GRADIENT_NE, {1, 1, 1, -1, -2, 1, -1, -1, 1}, 5},
    {EDG_GRADIENT_E, {-1, 1, 1, -1, -2, 1, -1, 1, 1}, 5},
    {EDG_GRADIENT_SE, {-1, -1, 1, -1, -2, 1, 1, 1, 1}, 5},
    {EDG_GRADIENT_S, {-1, -1, -1, 1, -2, 1, 1, 1, 1}, 5},
    {EDG_GRADIENT_SW, {1, -1, -1, 1, -2, -1, 1, 1, 1}, 5},
    {EDG_GRADIENT_W, {1, 1, -1, 1, -2, -1, 1, 1, -1}, 5},
    {EDG_GRADIENT_NW, {1, 1, 1, 1, -2, -1, 1, -1, -1}, 5},
};

// The response at (x, y), channel c, as documented for the code.
int64_t Response(const Picture &p, uint32_t code, int32_t x, int32_t y, int32_t c, int64_t &divisor) {
    const uint32_t family = code >> 8, dir = code & 0xFF;
    if (family <= 2) {
        const int64_t w = family == 1 ? 2 : 1;
        divisor = family == 1 ? 4 : 3;
        // A: the row (or column) before, B: the one after.
        auto at = [&](int along, int across) {
            return dir == 1 ? p.clamped(x + across, y + along, c) : p.clamped(x + along, y + across, c);
        };
        const int64_t g = (at(0, 1) - at(0, -1)) * w + at(-1, 1) + at(1, 1) - at(-1, -1) - at(1, -1);
        return g < 0 ? -g : g;
    }
    for (const EdgeCase &e : kKernels)
        if (e.code == code) {
            divisor = e.divisor;
            int64_t sum = 0;
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) sum += e.k[i * 3 + j] * p.clamped(x - 1 + j, y - 1 + i, c);
            return sum;
        }
    ADD_FAILURE() << "no kernel " << code;
    return 0;
}

Picture ReferenceEdges(const Picture &p, uint32_t code, int64_t threshold) {
    Picture out = p;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            for (int32_t c = 0; c < p.channels; ++c) {
                // The response first: it sets the divisor.
                auto passes = [&](uint32_t k) {
                    int64_t d = 1;
                    const int64_t g = Response(p, k, x, y, c, d);
                    return g / d > threshold;
                };
                const bool both = (code & 0xFF) == 3 && (code >> 8) <= 2;
                const bool on = both ? passes(code - 1) || passes(code - 2) : passes(code);
                out.at(x, y, c) = on ? p.maxValue() : 0;
            }
    return out;
}

std::vector<uint32_t> AllCodes() {
    std::vector<uint32_t> codes = {0x101, 0x102, 0x103, 0x201, 0x202, 0x203};
    for (const EdgeCase &e : kKernels) codes.push_back(e.code);
    return codes;
}

TEST(EdgeDetector, EveryCodeMatchesTheReference) {
    uint32_t seed = 40;
    for (const Layout &layout : AllLayouts()) {
        for (uint32_t code : AllCodes()) {
            SCOPED_TRACE(std::string(layout.name) + " code " + std::to_string(code));
            Bitmap b(layout, 14, 9, seed++);
            Bitmap want(b); // a copy has no region: place both alike
            for (BitmapDesc *d : {b.get(), want.get()}) {
                if (seed % 3 == 0) SetEdgeRegion(d, seed);
                if (seed % 4 == 0) KrnChangeViewPerspective(nullptr, d, BITMAPDESC_SIZE, 6, 0);
            }
            const bool grey12 = layout.bits == 12;
            const bool wide = layout.bits == 12 || layout.bits == 16 || layout.bits >= 48;
            const int32_t threshold = grey12 ? 300 : (wide ? 9000 : 40);
            const int64_t t = grey12 ? 16 * threshold : threshold;
            if ((code & 0xFF) == 3 && (code >> 8) <= 2) {
                // Each map is stored (a palette matches it) before the two are ORed.
                Bitmap vertical(want);
                KrnChangeViewPerspective(nullptr, vertical.get(), BITMAPDESC_SIZE, want->nViewPerspective, 0);
                ApplyReference(want.get(), [&](const Picture &p) { return ReferenceEdges(p, code - 1, t); });
                ApplyReference(vertical.get(), [&](const Picture &p) { return ReferenceEdges(p, code - 2, t); });
                KrnChangeViewPerspective(nullptr, vertical.get(), BITMAPDESC_SIZE, 1, 0);
                const Picture other = ReadPicture(vertical.get());
                ApplyReference(want.get(), [&](const Picture &p) {
                    Picture o = p;
                    for (size_t i = 0; i < o.s.size(); ++i) o.s[i] |= other.s[i];
                    return o;
                });
            } else {
                ApplyReference(want.get(), [&](const Picture &p) { return ReferenceEdges(p, code, t); });
            }
            ASSERT_EQ(Rz_EdgeDetectorBitmap(b.get(), threshold, code), 1);
            EXPECT_EQ(b->nViewPerspective, want->nViewPerspective);
            ASSERT_EQ(b.storedBytes(), want.storedBytes());
        }
    }
}

TEST(EdgeDetector, DocumentedCases) {
    // A flat image has no edges at threshold 0, whatever the operator.
    for (uint32_t code : AllCodes()) {
        Bitmap flat = GreyBitmap(6, 5, std::vector<uint8_t>(30, 77));
        ASSERT_EQ(Rz_EdgeDetectorBitmap(flat.get(), 0, code), 1);
        EXPECT_EQ(flat.storedBytes(), std::vector<uint8_t>(30, 0)) << code;
    }
    // A bright vertical line: the vertical operator marks the columns beside it.
    std::vector<uint8_t> line(7 * 5, 0);
    for (int y = 0; y < 5; ++y) line[y * 7 + 3] = 255;
    Bitmap v = GreyBitmap(7, 5, line), h = GreyBitmap(7, 5, line);
    ASSERT_EQ(Rz_EdgeDetectorBitmap(v.get(), 10, EDG_SOBEL_VERTICAL), 1);
    ASSERT_EQ(Rz_EdgeDetectorBitmap(h.get(), 10, EDG_SOBEL_HORIZONTAL), 1);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x) {
            EXPECT_EQ(v.pixel(x, y), (x == 2 || x == 4) ? 255u : 0u) << x << "," << y;
            EXPECT_EQ(h.pixel(x, y), 0u);
        }
    // The four-neighbour Laplacian marks the bright side of a step only;
    // inverting the picture moves the marks to the other side.
    std::vector<uint8_t> step(6 * 3), inverse(6 * 3);
    for (int i = 0; i < 18; ++i) {
        step[i] = i % 6 < 3 ? 20 : 220;
        inverse[i] = uint8_t(255 - step[i]);
    }
    Bitmap s = GreyBitmap(6, 3, step), t = GreyBitmap(6, 3, inverse);
    ASSERT_EQ(Rz_EdgeDetectorBitmap(s.get(), 10, EDG_LAPLACE_FOUR), 1);
    ASSERT_EQ(Rz_EdgeDetectorBitmap(t.get(), 10, EDG_LAPLACE_FOUR), 1);
    for (int32_t x = 0; x < 6; ++x) {
        EXPECT_EQ(s.pixel(x, 1), x == 3 ? 255u : 0u) << x;
        EXPECT_EQ(t.pixel(x, 1), x == 2 ? 255u : 0u) << x;
    }
}

TEST(EdgeDetector, Refusals) {
    Bitmap b8(FindLayout("bgr24"), 4, 4, 1), b12(FindLayout("grey12"), 4, 4, 1), b16(FindLayout("bgr48"), 4, 4, 1);
    for (uint32_t code : {0x100u, 0x104u, 0x307u, 0x409u, 0x0u, 0x501u, 0x10101u})
        EXPECT_EQ(Rz_EdgeDetectorBitmap(b8.get(), 0, code), ST_INVALID_PARAMETER) << code;
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b12.get(), 4096, 0x301), ST_BAD_BITS);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b12.get(), 4095, 0x103), 1);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b8.get(), 256, 0x102), ST_BAD_BITS);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b8.get(), 256, 0x302), 1); // one polarity: nothing passes, no refusal
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b16.get(), 65535, 0x203), 1);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(b8.get(), -1, 0x102), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_EdgeDetectorBitmap(nullptr, 0, 0x102), ST_NO_BITMAP);
}

TEST(EdgeDetector, BothDirectionsReportOneSequence) {
    Bitmap b(FindLayout("grey8"), 40, 30, 3);
    CallbackRecorder rec;
    ASSERT_EQ(Rz_EdgeDetectorBitmap(b.get(), 20, EDG_PREWITT_BOTH), 1);
    ASSERT_FALSE(rec.percents().empty());
    EXPECT_EQ(rec.percents().front(), 0);
    EXPECT_EQ(rec.percents().back(), 100);
    EXPECT_TRUE(std::is_sorted(rec.percents().begin(), rec.percents().end()));
    EXPECT_NE(std::find(rec.percents().begin(), rec.percents().end(), 51), rec.percents().end());
    EXPECT_EQ(std::count(rec.percents().begin(), rec.percents().end(), 100), 1);
}

} // namespace
} // namespace rz::test
