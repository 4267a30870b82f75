// Regions across the eight views, the mask-size bound, memory on every path
// (including each allocation failing in turn), and hostile arguments.
#include "region_ref.h"

#include <climits>
#include <random>
#include <thread>

using namespace rzdis_test;

namespace {

class RegionViews : public RegionTest {};
class RegionMemory : public RegionTest {};
class RegionArguments : public RegionTest {};

// A composite of three shapes in the current view, applied to bm; returns
// the expected view pixels.
Grid BuildComposite(BitmapDesc *bm, std::mt19937 &rng) {
    const int32_t w = bm->nWidth, h = bm->nHeight;
    std::uniform_int_distribution<int32_t> dx(-3, w + 3), dy(-3, h + 3);
    const RzRect a{dx(rng), dy(rng), dx(rng), dy(rng)}, b{dx(rng), dy(rng), dx(rng), dy(rng)};
    const std::vector<RzPoint> p{{dx(rng), dy(rng)}, {dx(rng), dy(rng)}, {dx(rng), dy(rng)}, {dx(rng), dy(rng)}};
    EXPECT_EQ(DisSetRegionRect(bm, &a, DIS_RGN_SET), KRN_OK);
    EXPECT_EQ(DisSetRegionEllipse(bm, &b, DIS_RGN_XOR), KRN_OK);
    EXPECT_EQ(DisSetRegionPolygon(bm, p.data(), 4, DIS_FILL_WINDING, DIS_RGN_OR), KRN_OK);
    const Shape sa = RectShape(a), sb = EllipseShape(b), sp = PolygonShape(p, true);
    return Raster([&](int64_t x, int64_t y) { return (sa(x, y) != sb(x, y)) || sp(x, y); }, w, h);
}

// ORs pixels given in a view into the stored grid.
void AddInView(Grid &stored, const Grid &inView, int view) {
    for (int32_t y = 0; y < inView.h; ++y)
        for (int32_t x = 0; x < inView.w; ++x) {
            auto [sx, sy] = ViewToStored(view, stored.w, stored.h, x, y);
            stored.at(sx, sy) |= inView.at(x, y);
        }
}

} // namespace

TEST_F(RegionViews, BuiltInAnyViewReadInEvery) {
    std::mt19937 rng(29);
    const int32_t pw = 13, ph = 7;
    for (int trial = 0; trial < 12; ++trial)
        for (int built = 1; built <= 8; ++built) {
            Desc bm(pw, ph);
            SetView(bm.get(), built);
            // No region answers the whole view, and nothing outside it.
            EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
            EXPECT_EQ(ReadView(bm.get()), Grid(bm.get()->nWidth, bm.get()->nHeight, 1));
            EXPECT_EQ(DisIsPtInRegion(bm.get(), bm.get()->nWidth, 0), 0);
            Grid stored(pw, ph);
            AddInView(stored, BuildComposite(bm.get(), rng), built);
            for (int pass = 0; pass < 2; ++pass) {
                if (pass) {
                    // Changed in view 8 after its column table was cached:
                    // answers must follow the new runs, not the stale table.
                    const RzRect rc{int32_t(rng() % 9) - 1, int32_t(rng() % 15) - 1, int32_t(rng() % 9),
                                    int32_t(rng() % 15)};
                    ASSERT_EQ(DisSetRegionRect(bm.get(), &rc, DIS_RGN_OR), KRN_OK);
                    AddInView(stored, Raster(RectShape(rc), ph, pw), 8);
                }
                for (int read = 1; read <= 8; ++read) {
                    SetView(bm.get(), read);
                    ASSERT_EQ(ReadView(bm.get()), StoredToView(stored, read))
                        << "built in " << built << ", read in " << read << ", pass " << pass;
                }
            }
        }
}

TEST_F(RegionViews, TransposedRowsFromSeveralThreads) {
    // The column table is built lazily; concurrent first readers must agree.
    std::mt19937 rng(31);
    for (int trial = 0; trial < 20; ++trial) {
        Desc bm(64, 48);
        const Grid stored = BuildComposite(bm.get(), rng);
        SetView(bm.get(), 8);
        std::vector<Grid> got(4);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] { got[t] = ReadView(bm.get()); });
        for (auto &th : threads)
            th.join();
        for (const Grid &g : got)
            EXPECT_EQ(g, StoredToView(stored, 8));
    }
}

TEST_F(RegionMemory, EveryAllocationFailureLeavesTheOldRegion) {
    std::mt19937 rng(2);
    Desc bm(30, 20);
    SetView(bm.get(), 6);
    const Grid before = BuildComposite(bm.get(), rng);
    Desc mask(12, 40, 4, true);
    ASSERT_EQ(KrnSetPixel(mask.get(), 3, 5, 9), KRN_OK);
    const std::vector<RzPoint> tri{{-4, 2}, {25, 10}, {3, 33}};
    const RzRect rc{2, 3, 17, 26};
    const std::vector<std::function<int32_t()>> calls{
        [&] { return DisSetRegionRect(bm.get(), &rc, DIS_RGN_XOR); },
        [&] { return DisSetRegionEllipse(bm.get(), &rc, DIS_RGN_DIFF); },
        [&] { return DisSetRegionPolygon(bm.get(), tri.data(), 3, DIS_FILL_ALTERNATE, DIS_RGN_AND); },
        [&] { return DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_OR); },
    };
    for (size_t c = 0; c < calls.size(); ++c) {
        int failures = 0;
        for (int64_t n = 0;; ++n) {
            const int64_t mark = KrnMemOutstanding();
            KrnMemFailAfter(n);
            const int32_t st = calls[c]();
            if (KrnMemFailAfter(-1) != -1) { // ran out of allocations to fail
                ASSERT_EQ(st, KRN_OK);
                break;
            }
            ASSERT_EQ(st, KRN_FAILURE) << "call " << c << " failing allocation " << n;
            EXPECT_EQ(KrnMemOutstanding(), mark);
            ++failures;
            ASSERT_EQ(ReadView(bm.get()), before) << "call " << c << " failing allocation " << n;
        }
        EXPECT_GT(failures, 0);
        ASSERT_EQ(DisFreeRegion(bm.get()), KRN_OK);
        EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
        EXPECT_EQ(DisFreeRegion(bm.get()), KRN_OK); // nothing left to free
        rng.seed(2);
        ASSERT_EQ(BuildComposite(bm.get(), rng), before);
    }
    // The column table of a transposed view is built on first use.
    uint32_t n = 0;
    std::vector<int32_t> spans(200);
    KrnMemFailAfter(0);
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 0, spans.data(), &n), KRN_FAILURE);
    KrnMemFailAfter(-1);
    EXPECT_EQ(ReadView(bm.get()), before); // KrnFreeBitmap frees the rest; the fixture counts
}

TEST_F(RegionArguments, RefusedCallsChangeNothing) {
    Desc bm(8, 6), mask(4, 4, 8, true), noPixels(4, 4);
    BitmapDesc *b = bm.get();
    const RzRect rc{1, 1, 5, 4};
    const RzPoint pts[3] = {{0, 0}, {6, 0}, {0, 5}};
    uint32_t n = 0;
    int32_t spans[8];
    RzRect out;
    // Every entry point, given a null or wrong-sized descriptor.
    for (uint32_t size : {0u, 163u, 165u}) {
        BitmapDesc *p = size ? b : nullptr;
        b->uStructSize = size;
        const std::vector<int32_t> got{DisGetRegionBounds(p, 0, &out), DisGetRegionMaskSize(p, &n),
                                       DisGetRegionRowSpans(p, 0, spans, &n), DisSetRegionRect(p, &rc, DIS_RGN_SET),
                                       DisSetRegionEllipse(p, &rc, DIS_RGN_SET),
                                       DisSetRegionPolygon(p, pts, 3, DIS_FILL_ALTERNATE, DIS_RGN_SET),
                                       DisSetRegionMask(p, mask.get(), DIS_RGN_SET), DisFreeRegion(p)};
        EXPECT_EQ(got, std::vector<int32_t>(8, size ? KRN_BAD_STRUCT_SIZE : KRN_NULL_POINTER)) << size;
        EXPECT_EQ(DisBitmapHasRegion(p) | DisIsPtInRegion(p, 0, 0), 0);
        b->uStructSize = BITMAPDESC_SIZE;
    }

    ASSERT_EQ(DisSetRegionRect(b, &rc, DIS_RGN_SET), KRN_OK);
    const Grid before = ReadView(b);
    const int32_t I = KRN_INVALID_PARAMETER;
    const std::pair<int32_t, int32_t> checks[] = {
        {I, DisSetRegionRect(b, nullptr, DIS_RGN_SET)},
        {I, DisSetRegionEllipse(b, nullptr, DIS_RGN_OR)},
        {I, DisSetRegionRect(b, &rc, -1)},
        {I, DisSetRegionEllipse(b, &rc, 5)},
        {I, DisSetRegionMask(b, mask.get(), INT32_MIN)},
        {I, DisSetRegionPolygon(b, pts, INT32_MIN, DIS_FILL_WINDING, DIS_RGN_SET)},
        {I, DisSetRegionPolygon(b, nullptr, 3, DIS_FILL_ALTERNATE, DIS_RGN_SET)},
        {I, DisSetRegionPolygon(b, pts, 3, 2, DIS_RGN_SET)},
        {I, DisGetRegionRowSpans(b, -1, spans, &n)},
        {I, DisGetRegionRowSpans(b, 6, spans, &n)},
        {I, DisGetRegionRowSpans(b, 0, nullptr, &n)},
        {I, DisGetRegionRowSpans(b, 0, spans, nullptr)},
        {I, DisGetRegionMaskSize(b, nullptr)},
        {I, DisGetRegionBounds(b, 0, nullptr)},
        {KRN_NULL_POINTER, DisSetRegionMask(b, nullptr, DIS_RGN_SET)},
        {KRN_NO_BITMAP, DisSetRegionMask(b, noPixels.get(), DIS_RGN_SET)},
        {KRN_BAD_BITS, (mask.get()->nBitsPerPixel = 9, DisSetRegionMask(b, mask.get(), DIS_RGN_SET))},
        // a hand-made view out of range is refused, not guessed
        {I, (b->nViewPerspective = 9, DisGetRegionRowSpans(b, 0, spans, &n))},
        {I, DisSetRegionRect(b, &rc, DIS_RGN_OR)},
        // a count too large for any edge list fails before the points are read
        {KRN_FAILURE, (b->nViewPerspective = 1, KrnMemFailAfter(0),
                       DisSetRegionPolygon(b, pts, INT32_MAX, DIS_FILL_ALTERNATE, DIS_RGN_SET))},
    };
    KrnMemFailAfter(-1);
    mask.get()->nBitsPerPixel = 8;
    for (size_t i = 0; i < std::size(checks); ++i)
        EXPECT_EQ(checks[i].second, checks[i].first) << "check " << i;
    EXPECT_EQ(ReadView(b), before);

    // No points is a valid, empty polygon; a 0 x 0 bitmap takes any shape.
    ASSERT_EQ(DisSetRegionPolygon(b, nullptr, 0, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_OK);
    EXPECT_NE(DisBitmapHasRegion(b), 0);
    EXPECT_EQ(ReadView(b), Grid(8, 6));
    Desc empty(0, 0);
    ASSERT_EQ(DisSetRegionEllipse(empty.get(), &rc, DIS_RGN_OR), KRN_OK);
    EXPECT_EQ(ReadView(empty.get()), Grid(0, 0));
}
