// Each allocation failed in turn, cancellation at each progress step, bad
// descriptors and parameters, on every layout, with and without a region and
// in a transposed view (12/16-bit grey there with significant bits 3..9 or
// 3..13). Against a freshly prepared twin: a refusal changes nothing, no
// sample outside the region changes, a failed allocation leaves the bitmap as
// it was; kPixelRules lists the documented exceptions.
#include "exports/registry.h"
#include "support/bitmaps.h"
#include "support/reliability.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

namespace rz::test {
namespace {

constexpr int32_t kStopValue = 12345;
constexpr int32_t kWidth = 19, kHeight = 13;

const std::pair<const char *, unsigned> kPixelRules[] = {
    // The whole plane is read or written, the region set aside.
    {"Rz_FFTBitmap", kRegionIgnored},
    {"Rz_DFTBitmap", kRegionIgnored},
    {"Rz_FTDisplayBitmap", kRegionIgnored},
    // The whole page is rotated, and only once the rotation has completed.
    {"Rz_DeskewBitmap", kRegionIgnored | kAllOrNothing},
    {"Rz_DeskewBitmapExt", kRegionIgnored | kAllOrNothing},
    // The second pass can run out of memory after the first wrote its rows.
    {"Rz_GaussianFilterBitmap", kWritesBeforeAllocating},
    {"Rz_EdgeDetectorBitmap", kWritesBeforeAllocating},
};

struct Placement { const char *name; bool region; int32_t view; };
const Placement kPlacements[] = {{"whole", false, 1}, {"ellipse", true, 1}, {"ellipse_view6", true, 6}};

// A copy keeps the pixels but not the region (the kernel's copy drops it):
// every run starts from a freshly prepared bitmap instead.
struct Prepared {
    const Layout &layout;
    const Placement &p;
    uint32_t seed;
    int32_t width, height;
    Bitmap make() const;
};

Bitmap Prepared::make() const {
    Bitmap b(layout, width, height, seed);
    if (p.view != 1) KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, p.view, 0);
    if (p.view >= 5 && layout.order == KRN_ORDER_GRAY && layout.bits > 8) {
        b->nLowBit = 3;
        b->nHighBit = layout.bits == 12 ? 9 : 13;
    }
    if (p.region) {
        const RzRect r{b->nWidth / 5, b->nHeight / 5, b->nWidth * 4 / 5 + 1, b->nHeight * 4 / 5 + 1};
        DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET);
        // Build the region's transposed runs (cached on first use) now, not in the operation.
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

// Stored samples, palette and display table, read from the memory itself.
std::vector<uint8_t> Contents(const BitmapDesc &b) {
    std::vector<uint8_t> out;
    const auto add = [&](const void *p, size_t n) {
        if (p) out.insert(out.end(), static_cast<const uint8_t *>(p), static_cast<const uint8_t *>(p) + n);
    };
    const size_t rowBytes = (size_t(b.nBitsPerPixel) * size_t(b.nStoredWidth) + 7) / 8;
    for (int32_t y = 0; b.pData && y < b.nStoredHeight; ++y) add(b.pData + size_t(y) * b.nStride, rowBytes);
    if (b.nBitsPerPixel <= 8) add(b.pPalette, sizeof(RzRGBQuad) << b.nBitsPerPixel);
    add(b.pLUT, sizeof(RzRGBQuad) * b.nLUTLength);
    return out;
}

enum class Outcome { Refused, Done, Stopped, OutOfMemory };

// What `after` must have kept of its twin `before` (which holds the region).
::testing::AssertionResult Kept(const ReliabilityCase &c, const Bitmap &before, const BitmapDesc &after, Outcome o) {
    const bool whole = o == Outcome::Refused || (o == Outcome::Stopped && (c.pixels & kAllOrNothing)) ||
                       (o == Outcome::OutOfMemory && !(c.pixels & kWritesBeforeAllocating));
    if (whole)
        return Contents(*before.get()) == Contents(after) ? ::testing::AssertionSuccess()
                                                         : ::testing::AssertionFailure() << "the bitmap changed";
    if ((c.pixels & kRegionIgnored) || !DisBitmapHasRegion(before.get())) return ::testing::AssertionSuccess();
    if (after.nWidth != before->nWidth || after.nHeight != before->nHeight || after.nBitsPerPixel != before->nBitsPerPixel)
        return ::testing::AssertionFailure() << "the geometry changed";
    for (int32_t y = 0; y < before->nHeight; ++y)
        for (int32_t x = 0; x < before->nWidth; ++x) {
            uint64_t was = 0, is = 0;
            if (DisIsPtInRegion(before.get(), x, y)) continue;
            KrnGetPixel(before.get(), x, y, &was);
            KrnGetPixel(&after, x, y, &is);
            if (was != is)
                return ::testing::AssertionFailure() << "pixel " << x << "," << y << " outside the region: " << was << " -> " << is;
        }
    return ::testing::AssertionSuccess();
}

struct Run { int32_t status; std::vector<int32_t> percents; };

Run RunOnce(const ReliabilityCase &c, Bitmap b) {
    BoundCall call = Bind(c, b.get());
    CallbackRecorder rec;
    const int32_t st = call.run();
    call.releaseOutputs();
    return {st, rec.percents()};
}

template <class F> void ForEachBitmap(const ReliabilityCase &c, F &&f) {
    uint32_t seed = 7;
    for (const Layout &layout : AllLayouts())
        for (const Placement &p : kPlacements) {
            const uint32_t s = seed++;
            if (!c.layouts.empty() && std::find(c.layouts.begin(), c.layouts.end(), layout.name) == c.layouts.end())
                continue;
            SCOPED_TRACE(std::string(layout.name) + " / " + p.name);
            f(Prepared{layout, p, s, c.width, c.height});
        }
}

// Each allocation failed in turn, or a stop at each progress step: no
// leak, the view and the callback restored, the status of the failure, no
// report after a stop, and the pixels kept as the outcome says.
void SweepFailures(const ReliabilityCase &c, bool stop) {
    ForEachBitmap(c, [&](const Prepared &prep) {
        const Bitmap twin = prep.make();
        const Run base = RunOnce(c, prep.make());
        const int64_t last = stop ? int64_t(base.percents.size()) : 100000;
        for (int64_t n = stop ? 1 : 0; n <= last; ++n) {
            Bitmap b = prep.make();
            BoundCall call = Bind(c, b.get());
            const int64_t start = KrnMemOutstanding();
            CallbackRecorder rec;
            if (stop) rec.stopAt(int32_t(n), kStopValue);
            else KrnMemFailAfter(n);
            const int32_t st = call.run();
            const bool fired = stop || KrnMemFailAfter(-1) < 0;
            call.releaseOutputs();
            ASSERT_EQ(KrnMemOutstanding(), start) << "leak, step " << n;
            ASSERT_EQ(b->nViewPerspective, twin->nViewPerspective);
            ASSERT_TRUE(rec.installed()) << "the status callback was not restored";
            if (!fired) {
                ASSERT_EQ(st, base.status) << "after " << n << " allocations";
                ASSERT_TRUE(Kept(c, twin, *b.get(), Outcome::Done));
                break;
            }
            ASSERT_EQ(st, stop ? kStopValue : ST_FAILURE) << "step " << n << " of " << last;
            ASSERT_TRUE(!stop || rec.calls() == n) << "the callback was called after it asked to stop";
            ASSERT_TRUE(Kept(c, twin, *b.get(), stop ? Outcome::Stopped : Outcome::OutOfMemory)) << "step " << n;
        }
        // Progress ends at 100 and never goes back.
        if (stop && base.status == 1 && !base.percents.empty()) {
            ASSERT_EQ(base.percents.back(), 100);
            ASSERT_TRUE(std::is_sorted(base.percents.begin(), base.percents.end()));
        }
    });
}

// Runs the call on a copy of `b` after `spoil` changed its bound arguments;
// returns the status. A refusal must leave the copy as it was.
template <class Spoil> int32_t RunSpoiled(const ReliabilityCase &c, const Bitmap &b, Spoil &&spoil) {
    Bitmap copy(b);
    BoundCall call = Bind(c, copy.get());
    std::vector<BitmapDesc> saved;
    std::vector<BitmapDesc *> targets;
    for (const BitmapPlace &p : call.places) {
        targets.push_back(*p.place);
        saved.push_back(**p.place);
    }
    spoil(call);
    std::vector<bool> spoiled;
    for (size_t i = 0; i < targets.size(); ++i)
        spoiled.push_back(std::memcmp(targets[i], &saved[i], sizeof(BitmapDesc)) != 0);
    const int64_t start = KrnMemOutstanding();
    const int32_t st = call.run();
    call.releaseOutputs();
    EXPECT_EQ(KrnMemOutstanding(), start);
    // A spoiled descriptor is put back whole, so the copy is released properly.
    for (size_t i = 0; i < targets.size(); ++i) {
        *call.places[i].place = targets[i];
        if (spoiled[i]) *targets[i] = saved[i];
    }
    EXPECT_TRUE(st >= 0 || Kept(c, b, *copy.get(), Outcome::Refused)) << "refused with " << st;
    return st;
}

// One field of bitmap argument `place` spoiled: the status must be `want`,
// or the refusal the operation gives this layout anyway.
template <class Spoil>
void ExpectSpoiled(const ReliabilityCase &c, const Bitmap &b, size_t place, int32_t baseline, int32_t want,
                   const char *what, Spoil &&spoil) {
    const int32_t st = RunSpoiled(c, b, [&](BoundCall &call) { spoil(**call.places[place].place); });
    EXPECT_TRUE(st == want || (baseline < 0 && st == baseline))
        << what << " of bitmap argument " << place << ": status " << st << ", want " << want;
}

void SweepBadDescriptors(const ReliabilityCase &c) {
    const bool signedPath = (c.flags & RZ_OPF_SIGNED) != 0;
    for (const char *name : {"bgr24", "grey16", "pal8_colour", "grey8"}) {
        SCOPED_TRACE(name);
        const Bitmap b(FindLayout(name), c.width, c.height, 3);
        const int32_t baseline = RunOnce(c, Bitmap(b)).status;
        Bitmap probe(b);
        const std::vector<BitmapPlace> places = Bind(c, probe.get()).places;
        for (size_t k = 0; k < places.size(); ++k) {
            SCOPED_TRACE("bitmap argument " + std::to_string(k));
            if (places[k].nullStatus != 0) {
                const int32_t st = RunSpoiled(c, b, [&](BoundCall &call) { *call.places[k].place = nullptr; });
                EXPECT_EQ(st, places[k].nullStatus) << "null bitmap";
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
            // A table operation may refuse the table size the depth implies first.
            ExpectSpoiled(c, b, k, ST_INVALID_PARAMETER, ST_BAD_PIXEL_FORMAT, "unknown depth",
                          [](BitmapDesc &d) { d.nBitsPerPixel = 9; });
            ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "huge width", [](BitmapDesc &d) { d.nWidth = INT32_MAX; });
            ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "huge height", [](BitmapDesc &d) { d.nHeight = INT32_MAX; });
            if (b->nBitsPerPixel <= 8)
                ExpectSpoiled(c, b, k, baseline, ST_NO_BITMAP, "palette count", [](BitmapDesc &d) { d.nColors = 300; });
        }
    }
}

// Arguments one past each checked bound give -13 (or -11 where an amount is
// refused with that code) and change nothing.
void SweepParameters(const OpInfo &op) {
    const Bitmap b(FindLayout("bgr24"), kWidth, kHeight, 9);
    ReliabilityCase c;
    c.name = op.name;
    for (size_t i = 0; i < op.params.size(); ++i) {
        const ParamInfo &p = op.params[i];
        if (p.kind != ParamKind::I32 && p.kind != ParamKind::U32) continue;
        const int64_t typeMin = p.kind == ParamKind::I32 ? INT32_MIN : 0;
        const int64_t typeMax = p.kind == ParamKind::I32 ? INT32_MAX : UINT32_MAX;
        // A structure size is refused as such.
        const bool size = std::string_view(p.name) == "uStructSize";
        for (int64_t bad : {p.lo - 1, p.hi + 1}) {
            if (bad < typeMin || bad > typeMax) continue;
            c.adjust = [&](std::vector<Arg> &args, BitmapDesc *) {
                args[i].i = bad;
                return std::shared_ptr<void>();
            };
            const int32_t st = RunSpoiled(c, b, [](BoundCall &) {});
            EXPECT_TRUE(size ? st == ST_BAD_STRUCT_SIZE : (st == ST_INVALID_PARAMETER || st == ST_BAD_BITS))
                << p.name << " = " << bad << ": " << st;
        }
    }
}

template <class F> void Register(const char *suite, const char *name, F body) {
    struct T : ::testing::Test {
        F body;
        explicit T(F f) : body(std::move(f)) {}
        void TestBody() override { body(); }
    };
    ::testing::RegisterTest(suite, name, nullptr, nullptr, __FILE__, __LINE__, [body]() -> ::testing::Test * {
        return new T(body);
    });
}

void RegisterCase(ReliabilityCase c) {
    const OpInfo *op = FindOperation(c.name);
    c.flags = op ? op->flags : 0;
    if (c.nullStatus == 0) c.nullStatus = c.flags & RZ_OPF_NULL_NO_BITMAP ? ST_NO_BITMAP : ST_NULL_POINTER;
    for (const auto &[name, rule] : kPixelRules)
        if (c.name == name) c.pixels |= rule;
    c.width = c.width ? c.width : kWidth;
    c.height = c.height ? c.height : kHeight;
    for (bool stop : {false, true})
        Register(c.name.c_str(), stop ? "Cancellation" : "AllocationFailures", [c, stop] { SweepFailures(c, stop); });
    Register(c.name.c_str(), "BadDescriptors", [c] { SweepBadDescriptors(c); });
}

} // namespace
} // namespace rz::test

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    using namespace rz;
    for (const OpInfo &op : Operations()) {
        if ((!(op.flags & RZ_OPF_INPLACE) && !test::NeedsBinding(op)) || (op.flags & RZ_OPF_CUSTOM)) continue;
        test::ReliabilityCase c;
        c.name = op.name;
        test::RegisterCase(c);
        test::Register(op.name, "ParameterRanges", [&op] { test::SweepParameters(op); });
    }
    for (const test::ReliabilityCase &c : test::ReliabilityCases()) test::RegisterCase(c);
    return RUN_ALL_TESTS();
}
