// Runs the reliability sweeps over every operation: those of the export list
// that take one bitmap and scalar parameters, and the cases registered with
// RZ_RELIABILITY_CASE. Tests are registered at start-up, one per operation
// and sweep, so a failure names the operation.
#include "exports/registry.h"
#include "support/bitmaps.h"
#include "support/reliability.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string_view>

namespace rz::test {
namespace {

constexpr int32_t kStopValue = 12345;
constexpr int32_t kWidth = 19, kHeight = 13;

struct Placement {
    const char *name;
    bool region;
    int32_t view;
};
const Placement kPlacements[] = {{"whole", false, 1}, {"ellipse", true, 1}, {"ellipse_view6", true, 6}};

int32_t CaseWidth(const ReliabilityCase &c) { return c.width ? c.width : kWidth; }
int32_t CaseHeight(const ReliabilityCase &c) { return c.height ? c.height : kHeight; }

Bitmap Prepare(const Layout &layout, const Placement &p, uint32_t seed, int32_t width, int32_t height) {
    Bitmap b(layout, width, height, seed);
    if (p.view != 1) KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, p.view, 0);
    if (p.region) {
        const RzRect r{b->nWidth / 5, b->nHeight / 5, b->nWidth * 4 / 5 + 1, b->nHeight * 4 / 5 + 1};
        DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET);
        // The region caches its transposed runs on first use in a transposed
        // view (a column pass asks for it); build them now so that the cache
        // is not counted against the operation.
        uint32_t n = 0;
        DisGetRegionMaskSize(b.get(), &n);
        std::vector<int32_t> spans(std::max<uint32_t>(n, 2));
        const int32_t view = b->nViewPerspective;
        KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view <= 4 ? 5 : 1, 0);
        DisGetRegionRowSpans(b.get(), 0, spans.data(), &n);
        KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, view, 0);
        DisGetRegionRowSpans(b.get(), 0, spans.data(), &n);
    }
    return b;
}

// A copy keeps the pixels but not the region (the kernel's copy drops it):
// every run starts from a freshly prepared bitmap instead.
struct Prepared {
    const Layout &layout;
    const Placement &placement;
    uint32_t seed;
    int32_t width, height;
    Bitmap make() const { return Prepare(layout, placement, seed, width, height); }
};

bool Contains(const std::vector<int32_t> &v, int32_t x) { return std::find(v.begin(), v.end(), x) != v.end(); }

struct Baseline {
    int32_t status;
    int32_t calls;
};

Baseline RunBaseline(const ReliabilityCase &c, const Bitmap &b) {
    Bitmap copy(b);
    BoundCall call = Bind(c, copy.get());
    CallbackRecorder rec;
    const int32_t st = call.run();
    call.releaseOutputs();
    return {st, rec.calls()};
}

Baseline RunBaseline(const ReliabilityCase &c, const Prepared &p) {
    Bitmap b = p.make();
    BoundCall call = Bind(c, b.get());
    CallbackRecorder rec;
    const int32_t st = call.run();
    call.releaseOutputs();
    return {st, rec.calls()};
}

template <class F> void ForEachBitmap(const ReliabilityCase &c, F &&f) {
    uint32_t seed = 7;
    for (const Layout &layout : AllLayouts())
        for (const Placement &p : kPlacements) {
            SCOPED_TRACE(std::string(layout.name) + " / " + p.name);
            f(Prepared{layout, p, seed++, CaseWidth(c), CaseHeight(c)});
        }
}

void SweepAllocations(const ReliabilityCase &c) {
    ForEachBitmap(c, [&](const Prepared &prep) {
        const Baseline base = RunBaseline(c, prep);
        const int32_t view = prep.make()->nViewPerspective;
        for (int64_t n = 0; n < 100000; ++n) {
            Bitmap copy = prep.make();
            BoundCall call = Bind(c, copy.get());
            const int64_t start = KrnMemOutstanding();
            KrnMemFailAfter(n);
            const int32_t st = call.run();
            const bool fired = KrnMemFailAfter(-1) < 0;
            call.releaseOutputs();
            ASSERT_EQ(KrnMemOutstanding(), start) << "leak with allocation " << n << " failing";
            ASSERT_EQ(copy->nViewPerspective, view);
            if (!fired) {
                ASSERT_EQ(st, base.status) << "after " << n << " allocations";
                break;
            }
            ASSERT_TRUE(Contains(c.failureStatuses, st)) << "status " << st << " with allocation " << n << " failing";
        }
    });
}

void SweepCancellation(const ReliabilityCase &c) {
    ForEachBitmap(c, [&](const Prepared &prep) {
        const Baseline base = RunBaseline(c, prep);
        const int32_t view = prep.make()->nViewPerspective;
        for (int32_t k = 1; k <= base.calls; ++k) {
            Bitmap copy = prep.make();
            BoundCall call = Bind(c, copy.get());
            const int64_t start = KrnMemOutstanding();
            CallbackRecorder rec;
            rec.stopAt(k, kStopValue);
            const int32_t st = call.run();
            call.releaseOutputs();
            ASSERT_EQ(st, kStopValue) << "stopping at call " << k << " of " << base.calls;
            ASSERT_EQ(rec.calls(), k) << "the callback was called after it asked to stop";
            ASSERT_TRUE(rec.installed()) << "the status callback was not restored";
            ASSERT_EQ(KrnMemOutstanding(), start);
            ASSERT_EQ(copy->nViewPerspective, view);
        }
        // Progress ends at 100 and never goes back.
        if (base.status == 1 && base.calls > 0) {
            Bitmap copy = prep.make();
            BoundCall call = Bind(c, copy.get());
            CallbackRecorder rec;
            call.run();
            call.releaseOutputs();
            ASSERT_EQ(rec.percents().back(), 100);
            ASSERT_TRUE(std::is_sorted(rec.percents().begin(), rec.percents().end()));
        }
    });
}

// Runs the call on a copy with one field of one bitmap argument spoiled; the
// status must be `want` or the refusal the operation gives this layout anyway.
template <class Spoil>
void ExpectSpoiled(const ReliabilityCase &c, const Bitmap &b, size_t place, int32_t baseline, int32_t want,
                   const char *what, Spoil &&spoil) {
    Bitmap copy(b);
    BoundCall call = Bind(c, copy.get());
    BitmapDesc *target = *call.places[place].place;
    const BitmapDesc saved = *target;
    spoil(*target);
    const int64_t start = KrnMemOutstanding();
    const int32_t st = call.run();
    call.releaseOutputs();
    EXPECT_TRUE(st == want || (baseline < 0 && st == baseline))
        << what << " of bitmap argument " << place << ": status " << st << ", want " << want;
    EXPECT_EQ(KrnMemOutstanding(), start) << what;
    // Put the kernel's fields back so the copy is released properly.
    target->pData = saved.pData;
    target->pPalette = saved.pPalette;
    target->pLUT = saved.pLUT;
    target->pRegion = target->pRegion ? target->pRegion : saved.pRegion;
    target->uFlags = (target->uFlags & ~BMF_ALLOCATED) | (saved.uFlags & BMF_ALLOCATED);
    target->uStructSize = BITMAPDESC_SIZE;
    target->nBitsPerPixel = saved.nBitsPerPixel;
    target->nWidth = saved.nWidth;
    target->nHeight = saved.nHeight;
    target->nColors = saved.nColors;
}

// Null and spoiled descriptors in pairs of bitmap arguments: the one the
// export checks first decides the status.
void SweepArgumentOrder(const ReliabilityCase &c, const Bitmap &b) {
    Bitmap probe(b);
    const size_t count = Bind(c, probe.get()).places.size();
    for (size_t i = 0; i < count; ++i)
        for (size_t j = i + 1; j < count; ++j) {
            Bitmap copy(b);
            BoundCall call = Bind(c, copy.get());
            const BitmapPlace first = call.places[i], second = call.places[j];
            BitmapDesc *keepFirst = *first.place, *keepSecond = *second.place;
            if (first.nullStatus != 0 && second.input) {
                *first.place = nullptr;
                keepSecond->uStructSize = BITMAPDESC_SIZE + 1;
                EXPECT_EQ(call.run(), first.nullStatus) << "null argument " << i << " before spoiled " << j;
                *first.place = keepFirst;
                keepSecond->uStructSize = BITMAPDESC_SIZE;
            }
            if (first.input && second.nullStatus != 0) {
                keepFirst->uStructSize = BITMAPDESC_SIZE + 1;
                *second.place = nullptr;
                EXPECT_EQ(call.run(), ST_BAD_STRUCT_SIZE) << "spoiled argument " << i << " before null " << j;
                keepFirst->uStructSize = BITMAPDESC_SIZE;
                *second.place = keepSecond;
            }
            call.releaseOutputs();
        }
}

void SweepBadDescriptors(const ReliabilityCase &c) {
    const bool signedPath = (c.flags & RZ_OPF_SIGNED) != 0;
    for (const char *name : {"bgr24", "grey16", "pal8_colour", "grey8"}) {
        SCOPED_TRACE(name);
        const Bitmap b(FindLayout(name), CaseWidth(c), CaseHeight(c), 3);
        const int32_t baseline = RunBaseline(c, b).status;
        Bitmap probe(b);
        const std::vector<BitmapPlace> places = Bind(c, probe.get()).places;
        for (size_t k = 0; k < places.size(); ++k) {
            SCOPED_TRACE("bitmap argument " + std::to_string(k));
            if (places[k].nullStatus != 0) {
                Bitmap copy(b);
                BoundCall call = Bind(c, copy.get());
                *call.places[k].place = nullptr;
                EXPECT_EQ(call.run(), places[k].nullStatus) << "null bitmap";
                call.releaseOutputs();
            }
            if (!places[k].input) continue;
            for (uint32_t size : {BITMAPDESC_SIZE - 1, BITMAPDESC_SIZE + 1, 0u})
                ExpectSpoiled(c, b, k, 0, ST_BAD_STRUCT_SIZE, "structure size", [&](BitmapDesc &d) { d.uStructSize = size; });
            if (!signedPath)
                ExpectSpoiled(c, b, k, 0, ST_SIGNED_NOT_SUPPORTED, "signed samples",
                              [](BitmapDesc &d) { d.uFlags |= BMF_SIGNED; });
            // An optional input without pixels is left out instead.
            ExpectSpoiled(c, b, k, places[k].optional ? -1000 : baseline, places[k].optional ? baseline : ST_NO_BITMAP,
                          "not allocated", [](BitmapDesc &d) { d.uFlags &= ~BMF_ALLOCATED; });
            ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "allocated without pixels", [](BitmapDesc &d) { d.pData = nullptr; });
            {
                // A table operation may refuse the table size the depth implies first.
                Bitmap odd(b);
                BoundCall call = Bind(c, odd.get());
                BitmapDesc *target = *call.places[k].place;
                const int32_t saved = target->nBitsPerPixel;
                target->nBitsPerPixel = 9;
                const int32_t st = call.run();
                target->nBitsPerPixel = saved;
                call.releaseOutputs();
                EXPECT_TRUE(st == ST_BAD_PIXEL_FORMAT || st == ST_INVALID_PARAMETER) << "unknown depth: " << st;
            }
            ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "huge width", [](BitmapDesc &d) { d.nWidth = INT32_MAX; });
            ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "huge height", [](BitmapDesc &d) { d.nHeight = INT32_MAX; });
            if (b->nBitsPerPixel <= 8)
                ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "palette count", [](BitmapDesc &d) { d.nColors = 300; });
        }
        if (places.size() > 1) SweepArgumentOrder(c, b);
        {
            // A region larger than the bitmap is clipped: same result as none.
            Bitmap big(b), plain(b);
            const RzRect r{-50, -50, CaseWidth(c) + 50, CaseHeight(c) + 50};
            ASSERT_EQ(DisSetRegionRect(big.get(), &r, DIS_RGN_SET), 1);
            BoundCall bigCall = Bind(c, big.get()), plainCall = Bind(c, plain.get());
            EXPECT_EQ(bigCall.run(), baseline);
            plainCall.run();
            bigCall.releaseOutputs();
            plainCall.releaseOutputs();
            EXPECT_EQ(big.storedBytes(), plain.storedBytes()) << "oversized region";
        }
    }
    for (auto [w, h] : {std::pair{0, 5}, std::pair{5, 0}, std::pair{1, 1}}) {
        for (const char *name : {"bgr24", "pal4_colour", "grey12"}) {
            Bitmap b(FindLayout(name), w, h, 5);
            BoundCall call = Bind(c, b.get());
            const int64_t start = KrnMemOutstanding();
            const int32_t st = call.run();
            call.releaseOutputs();
            EXPECT_TRUE(st == 1 || st == ST_NOTHING_TO_DO || st < 0) << name << " " << w << "x" << h << ": " << st;
            EXPECT_EQ(KrnMemOutstanding(), start);
        }
    }
}

// Arguments one past each checked bound give -13 (or -11 where an amount is
// refused with that code).
void SweepParameters(const OpInfo &op) {
    Bitmap b(FindLayout("bgr24"), kWidth, kHeight, 9);
    for (size_t i = 0; i < op.params.size(); ++i) {
        const ParamInfo &p = op.params[i];
        if (p.kind != ParamKind::I32 && p.kind != ParamKind::U32) continue;
        const int64_t typeMin = p.kind == ParamKind::I32 ? INT32_MIN : 0;
        const int64_t typeMax = p.kind == ParamKind::I32 ? INT32_MAX : UINT32_MAX;
        // A structure size is refused as such.
        const bool size = std::string_view(p.name) == "uStructSize";
        for (int64_t bad : {p.lo - 1, p.hi + 1}) {
            if (bad < typeMin || bad > typeMax) continue;
            BoundCall call = BindRegistry(op, b.get(), ST_NULL_POINTER, [&](std::vector<Arg> &args, BitmapDesc *) {
                args[i].i = bad;
                return std::shared_ptr<void>();
            });
            const int32_t st = call.run();
            call.releaseOutputs();
            EXPECT_TRUE(size ? st == ST_BAD_STRUCT_SIZE : (st == ST_INVALID_PARAMETER || st == ST_BAD_BITS))
                << p.name << " = " << bad << ": " << st;
        }
    }
}

ReliabilityCase FromRegistry(const OpInfo &op) {
    ReliabilityCase c;
    c.name = op.name;
    c.flags = op.flags;
    if (op.flags & RZ_OPF_NULL_NO_BITMAP) c.nullStatus = ST_NO_BITMAP;
    const int32_t nullStatus = c.nullStatus;
    if (NeedsBinding(op)) {
        c.bind = [&op, nullStatus](BitmapDesc *bmp) { return BindRegistry(op, bmp, nullStatus); };
        return c;
    }
    c.call = [&op](BitmapDesc *bmp) {
        std::vector<Arg> args(op.params.size());
        for (size_t j = 0; j < op.params.size(); ++j) {
            if (op.params[j].kind == ParamKind::Bitmap)
                args[j].p = bmp;
            else
                args[j].i = op.params[j].def;
        }
        return op.invoke(args.data());
    };
    return c;
}

class SweepTest : public ::testing::Test {
  public:
    SweepTest(ReliabilityCase c, void (*sweep)(const ReliabilityCase &)) : case_(std::move(c)), sweep_(sweep) {}
    void TestBody() override { sweep_(case_); }

  private:
    ReliabilityCase case_;
    void (*sweep_)(const ReliabilityCase &);
};

void RegisterCase(const ReliabilityCase &c) {
    const std::pair<const char *, void (*)(const ReliabilityCase &)> sweeps[] = {
        {"AllocationFailures", &SweepAllocations},
        {"Cancellation", &SweepCancellation},
        {"BadDescriptors", &SweepBadDescriptors},
    };
    for (auto [name, fn] : sweeps)
        ::testing::RegisterTest(c.name.c_str(), name, nullptr, nullptr, __FILE__, __LINE__,
                                [c, fn]() -> ::testing::Test * { return new SweepTest(c, fn); });
}

} // namespace
} // namespace rz::test

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    using namespace rz;
    for (const OpInfo &op : Operations()) {
        if ((!(op.flags & RZ_OPF_INPLACE) && !test::NeedsBinding(op)) || (op.flags & RZ_OPF_CUSTOM)) continue;
        test::RegisterCase(test::FromRegistry(op));
        const OpInfo *p = &op;
        ::testing::RegisterTest(op.name, "ParameterRanges", nullptr, nullptr, __FILE__, __LINE__,
                                [p]() -> ::testing::Test * {
                                    struct T : ::testing::Test {
                                        const OpInfo *op;
                                        explicit T(const OpInfo *o) : op(o) {}
                                        void TestBody() override { test::SweepParameters(*op); }
                                    };
                                    return new T(p);
                                });
    }
    for (test::ReliabilityCase c : test::ReliabilityCases()) {
        if (const OpInfo *op = FindOperation(c.name)) c.flags = op->flags;
        test::RegisterCase(c);
    }
    return RUN_ALL_TESTS();
}
