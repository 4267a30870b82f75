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

} // namespace

TEST_F(RegionViews, BuiltInAnyViewReadInEvery) {
    std::mt19937 rng(29);
    const int32_t pw = 13, ph = 7;
    for (int trial = 0; trial < 12; ++trial)
        for (int built = 1; built <= 8; ++built) {
            Desc bm(pw, ph);
            SetView(bm.get(), built);
            const Grid inView = BuildComposite(bm.get(), rng);
            Grid stored(pw, ph);
            for (int32_t y = 0; y < inView.h; ++y)
                for (int32_t x = 0; x < inView.w; ++x) {
                    auto [sx, sy] = ViewToStored(built, pw, ph, x, y);
                    stored.at(sx, sy) = inView.at(x, y);
                }
            for (int read = 1; read <= 8; ++read) {
                SetView(bm.get(), read);
                ASSERT_EQ(ReadView(bm.get()), StoredToView(stored, read))
                    << "built in " << built << ", read in " << read;
            }
        }
}

TEST_F(RegionViews, AnswersFollowLaterChanges) {
    // The cached column table must not outlive the run table it came from.
    Desc bm(11, 6);
    const RzRect a{1, 1, 5, 4}, b{3, 0, 9, 2};
    ASSERT_EQ(DisSetRegionRect(bm.get(), &a, DIS_RGN_SET), KRN_OK);
    SetView(bm.get(), 7);
    ReadView(bm.get());
    SetView(bm.get(), 1);
    ASSERT_EQ(DisSetRegionRect(bm.get(), &b, DIS_RGN_OR), KRN_OK);
    const Grid stored = Raster([&](int64_t x, int64_t y) { return RectShape(a)(x, y) || RectShape(b)(x, y); }, 11, 6);
    for (int v = 1; v <= 8; ++v) {
        SetView(bm.get(), v);
        EXPECT_EQ(ReadView(bm.get()), StoredToView(stored, v)) << v;
    }
}

TEST_F(RegionViews, TransposedRowsFromSeveralThreads) {
    // The column table is built lazily; concurrent first readers must agree.
    std::mt19937 rng(31);
    for (int trial = 0; trial < 20; ++trial) {
        Desc bm(64, 48);
        const Grid stored = BuildComposite(bm.get(), rng);
        SetView(bm.get(), 8);
        const Grid want = StoredToView(stored, 8);
        std::vector<Grid> got(4, Grid(want.w, want.h));
        std::vector<int> errors(4, 0);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] {
                std::vector<int32_t> spans(want.w + 2);
                for (int32_t y = 0; y < want.h; ++y) {
                    uint32_t n = 0;
                    if (DisGetRegionRowSpans(bm.get(), y, spans.data(), &n) != KRN_OK)
                        ++errors[t];
                    for (uint32_t k = 0; k + 1 < n; k += 2)
                        for (int32_t x = spans[k]; x < spans[k + 1]; ++x)
                            got[t].at(x, y) = 1;
                }
            });
        for (auto &th : threads)
            th.join();
        for (int t = 0; t < 4; ++t) {
            EXPECT_EQ(errors[t], 0);
            EXPECT_EQ(got[t], want);
        }
    }
}

TEST_F(RegionViews, NoRegionAnswersTheWholeBitmap) {
    Desc bm(9, 4);
    SetView(bm.get(), 6);
    EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
    EXPECT_EQ(ReadView(bm.get()), Grid(4, 9, 1));
    RzRect r{};
    ASSERT_EQ(DisGetRegionBounds(bm.get(), 0, &r), KRN_OK);
    EXPECT_TRUE(r.left == 0 && r.top == 0 && r.right == 4 && r.bottom == 9);
    EXPECT_EQ(DisIsPtInRegion(bm.get(), 4, 0), 0); // outside the view
}

TEST_F(RegionViews, MaskSizeCoversRowsAndColumns) {
    // A 9 x 5 checkerboard: 5 runs in the widest row, 3 in a column; the
    // bound holds in every view, so it does not change with the view.
    Desc mask(9, 5, 1, true);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 9; ++x)
            ASSERT_EQ(KrnSetPixel(mask.get(), x, y, (x + y + 1) & 1), KRN_OK);
    Desc bm(9, 5);
    ASSERT_EQ(DisSetRegionMask(bm.get(), mask.get(), DIS_RGN_SET), KRN_OK);
    uint32_t first = 0;
    ASSERT_EQ(DisGetRegionMaskSize(bm.get(), &first), KRN_OK);
    EXPECT_GE(first, 10u);
    for (int v = 1; v <= 8; ++v) {
        SetView(bm.get(), v);
        uint32_t cap = 0;
        ASSERT_EQ(DisGetRegionMaskSize(bm.get(), &cap), KRN_OK);
        EXPECT_EQ(cap, first);
        ReadView(bm.get()); // checks every row against the bound
    }
}

TEST_F(RegionMemory, FreedByDisFreeRegionAndKrnFreeBitmap) {
    {
        Desc bm(50, 40);
        std::mt19937 rng(1);
        BuildComposite(bm.get(), rng);
        SetView(bm.get(), 5);
        ReadView(bm.get()); // builds the column table too
        EXPECT_EQ(DisFreeRegion(bm.get()), KRN_OK);
        EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
        EXPECT_EQ(DisFreeRegion(bm.get()), KRN_OK); // nothing left to free
        BuildComposite(bm.get(), rng);
        ReadView(bm.get());
    } // KrnFreeBitmap releases this one; the fixture counts the blocks
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
        rng.seed(2);
        ASSERT_EQ(BuildComposite(bm.get(), rng), before);
    }
    // The column table of a transposed view is built on first use.
    uint32_t n = 0;
    std::vector<int32_t> spans(200);
    KrnMemFailAfter(0);
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 0, spans.data(), &n), KRN_FAILURE);
    KrnMemFailAfter(-1);
    EXPECT_EQ(ReadView(bm.get()), before);
}

TEST_F(RegionArguments, NullAndWrongSizedDescriptors) {
    const RzRect rc{0, 0, 4, 4};
    const RzPoint pts[3] = {{0, 0}, {4, 0}, {0, 4}};
    uint32_t n = 0;
    int32_t spans[4];
    RzRect out;
    Desc mask(4, 4, 8, true);
    Desc bm(8, 8);
    for (uint32_t size : {0u, 163u, 165u}) {
        BitmapDesc *p = size ? bm.get() : nullptr;
        const int32_t want = size ? KRN_BAD_STRUCT_SIZE : KRN_NULL_POINTER;
        if (p)
            p->uStructSize = size;
        EXPECT_EQ(DisGetRegionBounds(p, 0, &out), want);
        EXPECT_EQ(DisGetRegionMaskSize(p, &n), want);
        EXPECT_EQ(DisGetRegionRowSpans(p, 0, spans, &n), want);
        EXPECT_EQ(DisSetRegionRect(p, &rc, DIS_RGN_SET), want);
        EXPECT_EQ(DisSetRegionEllipse(p, &rc, DIS_RGN_SET), want);
        EXPECT_EQ(DisSetRegionPolygon(p, pts, 3, DIS_FILL_ALTERNATE, DIS_RGN_SET), want);
        EXPECT_EQ(DisSetRegionMask(p, mask.get(), DIS_RGN_SET), want);
        EXPECT_EQ(DisFreeRegion(p), want);
        EXPECT_EQ(DisBitmapHasRegion(p), 0);
        EXPECT_EQ(DisIsPtInRegion(p, 0, 0), 0);
        if (p)
            p->uStructSize = BITMAPDESC_SIZE;
    }
}

TEST_F(RegionArguments, BadArgumentsKeepTheRegion) {
    Desc bm(8, 6);
    const RzRect rc{1, 1, 5, 4};
    ASSERT_EQ(DisSetRegionRect(bm.get(), &rc, DIS_RGN_SET), KRN_OK);
    const Grid before = ReadView(bm.get());
    const RzPoint pts[3] = {{0, 0}, {6, 0}, {0, 5}};
    uint32_t n = 0;
    int32_t spans[8];
    EXPECT_EQ(DisSetRegionRect(bm.get(), nullptr, DIS_RGN_SET), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionEllipse(bm.get(), nullptr, DIS_RGN_OR), KRN_INVALID_PARAMETER);
    for (int32_t mode : {-1, 5, INT32_MIN, INT32_MAX})
        EXPECT_EQ(DisSetRegionRect(bm.get(), &rc, mode), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionPolygon(bm.get(), pts, -1, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionPolygon(bm.get(), pts, INT32_MIN, DIS_FILL_WINDING, DIS_RGN_SET), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionPolygon(bm.get(), nullptr, 3, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionPolygon(bm.get(), pts, 3, 2, DIS_RGN_SET), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionMask(bm.get(), nullptr, DIS_RGN_SET), KRN_NULL_POINTER);
    {
        Desc noPixels(4, 4, 8, false);
        EXPECT_EQ(DisSetRegionMask(bm.get(), noPixels.get(), DIS_RGN_SET), KRN_NO_BITMAP);
        Desc odd(4, 4, 8, true);
        odd.get()->nBitsPerPixel = 9;
        EXPECT_EQ(DisSetRegionMask(bm.get(), odd.get(), DIS_RGN_SET), KRN_BAD_BITS);
        odd.get()->nBitsPerPixel = 8;
    }
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), -1, spans, &n), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 6, spans, &n), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 0, nullptr, &n), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 0, spans, nullptr), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisGetRegionMaskSize(bm.get(), nullptr), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisGetRegionBounds(bm.get(), 0, nullptr), KRN_INVALID_PARAMETER);
    EXPECT_EQ(ReadView(bm.get()), before);

    // A hand-made descriptor with a view out of range is refused, not guessed.
    bm.get()->nViewPerspective = 9;
    EXPECT_EQ(DisGetRegionRowSpans(bm.get(), 0, spans, &n), KRN_INVALID_PARAMETER);
    EXPECT_EQ(DisSetRegionRect(bm.get(), &rc, DIS_RGN_OR), KRN_INVALID_PARAMETER);
    bm.get()->nViewPerspective = 1;

    // No points is a valid, empty polygon.
    EXPECT_EQ(DisSetRegionPolygon(bm.get(), nullptr, 0, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_OK);
    EXPECT_NE(DisBitmapHasRegion(bm.get()), 0);
    EXPECT_EQ(ReadView(bm.get()), Grid(8, 6));
}

TEST_F(RegionArguments, EmptyBitmapsAndHugePolygonCounts) {
    Desc empty(0, 0);
    const RzRect rc{-5, -5, 5, 5};
    ASSERT_EQ(DisSetRegionEllipse(empty.get(), &rc, DIS_RGN_OR), KRN_OK);
    RzRect r{1, 2, 3, 4};
    ASSERT_EQ(DisGetRegionBounds(empty.get(), 0, &r), KRN_OK);
    EXPECT_TRUE(r.right <= r.left || r.bottom <= r.top);

    // A count too large for any edge list must fail cleanly, before the
    // points are read.
    Desc bm(8, 8);
    const RzPoint pts[3] = {{0, 0}, {6, 0}, {0, 5}};
    KrnMemFailAfter(0);
    EXPECT_EQ(DisSetRegionPolygon(bm.get(), pts, INT32_MAX, DIS_FILL_ALTERNATE, DIS_RGN_SET), KRN_FAILURE);
    KrnMemFailAfter(-1);
    EXPECT_EQ(DisBitmapHasRegion(bm.get()), 0);
}
