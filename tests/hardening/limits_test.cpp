// A request at a limit gets as far as taking its memory (the failure hook makes
// that allocation fail, so nothing large is taken); one just past it is refused
// before any allocation is tried.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace rz::test {
namespace {

using Outcome = std::pair<int32_t, bool>;

// Runs `call` with the next allocation failing: its status, and whether it
// tried to allocate.
Outcome FirstAllocationFails(const std::function<int32_t()> &call) {
    const int64_t before = KrnMemOutstanding();
    KrnMemFailAfter(0);
    const int32_t st = call();
    const bool fired = KrnMemFailAfter(-1) < 0;
    EXPECT_EQ(KrnMemOutstanding(), before);
    return {st, fired};
}

// A descriptor made before the measured call, its size set in it.
struct Desc {
    BitmapDesc d{};
    Desc(int32_t bits, bool pixels = false) {
        KrnInitBitmap(&d, BITMAPDESC_SIZE, 2, 2, bits);
        if (pixels) KrnAllocBitmap(&d);
    }
    ~Desc() { KrnFreeBitmap(&d); }
    int32_t alloc(int32_t width, int32_t height) {
        d.nWidth = width, d.nHeight = height;
        return KrnAllocBitmap(&d);
    }
};

int32_t Init(int32_t width, int32_t height, int32_t bits) {
    BitmapDesc d{};
    const int32_t st = KrnInitBitmap(&d, BITMAPDESC_SIZE, width, height, bits);
    KrnFreeBitmap(&d);
    return st;
}

// A square kernel record of side n with a 1 in the middle.
std::vector<int32_t> SpatialRecord(int32_t n) {
    std::vector<int32_t> words(4 + size_t(n) * size_t(n), 0);
    auto *k = reinterpret_cast<SpatialKernel *>(words.data());
    k->size = SPATIALKERNEL_SIZE, k->divisor = 1, k->dim = n;
    k->matrix[size_t((n - 1) / 2) * n + (n - 1) / 2] = 1;
    return words;
}

std::vector<int32_t> UserRecord(uint32_t w, uint32_t h) {
    std::vector<int32_t> words(8 + size_t(w) * h, 1);
    *reinterpret_cast<UserFilterKernel *>(words.data()) = {USERFILTERKERNEL_SIZE, w, h, 0, 0, 1, 0,
                                                           RZ_UF_TRUNCATE, {1}};
    return words;
}

// 1-bit pictures meet the pixel limit, 64-bit ones the byte limit at half of it,
// 2^30 rows of one 8-bit pixel (4 bytes) both. An 8-bit descriptor takes a
// palette block: past a limit it must not. A full list would have to grow.
TEST(Limits, AtTheLimitAllocatesAndPastItRefusesFirst) {
    Desc one(1), eight(8), deep(64), small(8, true), smallDeep(64, true), list(8);
    Bitmap grey(FindLayout("grey8"), 6, 5, 7), colour(FindLayout("bgr24"), 5, 4);
    Bitmap deep12(FindLayout("grey12"), 5, 4);
    const std::vector<uint8_t> before = grey.storedBytes();
    constexpr int32_t n = RZ_MAX_KERNEL_SIDE, m = RZ_MAX_RECORDS, p = DIS_MAX_POLYGON_POINTS;
    std::vector<RzPoint> points(p + 1);
    for (size_t i = 0; i < points.size(); ++i) points[i] = {int32_t(i % 7), int32_t(i % 5)};
    const HueSatIntRange range{HUESATINTRANGE_SIZE, 100, 0, 0, 10, 50, 20, 40};
    std::vector<HueSatIntRange> ranges(m + 1, range);
    std::vector<RzRGBQuad> table(m + 1, RzRGBQuad{9, 9, 9, 0});
    const std::vector<int32_t> square[] = {SpatialRecord(n), SpatialRecord(n + 1)};
    const std::vector<int32_t> wide[] = {UserRecord(n, 1), UserRecord(n + 1, 1)};
    const std::vector<int32_t> tall[] = {UserRecord(2, n), UserRecord(2, n + 1)};
    auto spatial = [&](int past) {
        return Rz_SpatialFilterBitmap(grey.get(), (const SpatialKernel *)square[past].data());
    };
    auto user = [&](const std::vector<int32_t> &k) {
        return Rz_UserFilterBitmap(grey.get(), (const UserFilterKernel *)k.data());
    };
    auto polygon = [&](int32_t n) {
        return DisSetRegionPolygon(grey.get(), points.data(), n, DIS_FILL_WINDING, DIS_RGN_SET);
    };
    KrnBitmapList *items = nullptr;
    ASSERT_EQ(KrnCreateBitmapList(&items), KRN_OK);
    for (int32_t i = 0; i < KRN_MAX_LIST_ITEMS; ++i)
        ASSERT_EQ(KrnAppendBitmapList(items, &list.d, KRN_LIST_REFERENCE), KRN_OK);
    // A call at the limit (null: there is none that allocates) and one past it.
    const std::pair<std::function<int32_t()>, std::function<int32_t()>> cases[] = {
        {[&] { return one.alloc(32768, 32768); }, [&] { return one.alloc(32768, 32769); }},
        {[&] { return eight.alloc(1, 1 << 30); }, [&] { return eight.alloc(2, (1 << 29) + 1); }},
        {[&] { return deep.alloc(16384, 32768); }, [&] { return deep.alloc(16384, 32769); }},
        {[&] { return KrnResizeBitmap(&small.d, 32768, 32768, 0); },
         [&] { return KrnResizeBitmap(&small.d, 32769, 32768, 0); }},
        {[&] { return KrnResizeBitmap(&smallDeep.d, 32768, 16384, 0); },
         [&] { return KrnResizeBitmap(&smallDeep.d, 32768, 16385, 0); }},
        {[&] { return Init(32768, 32768, 8); }, [&] { return Init(32768, 32769, 8); }},
        {nullptr, [&] { return Init(16384, 32769, 64); }},
        {nullptr, [&] { return Init(65536, 65536, 1); }},
        {nullptr, [&] { return KrnAppendBitmapList(items, &list.d, KRN_LIST_REFERENCE); }},
        {[&] { return polygon(p); }, [&] { return polygon(p + 1); }},
        {[&] { return Rz_ChangeHueSatIntBitmap(colour.get(), 0, 0, 0, ranges.data(), m); },
         [&] { return Rz_ChangeHueSatIntBitmap(colour.get(), 0, 0, 0, ranges.data(), m + 1); }},
        {[&] { return Rz_WindowLevelBitmap(deep12.get(), 0, 11, table.data(), m, 0); },
         [&] { return Rz_WindowLevelBitmap(deep12.get(), 0, 11, table.data(), m + 1, 0); }},
        {[&] { return spatial(0); }, [&] { return spatial(1); }},
        {[&] { return user(wide[0]); }, [&] { return user(wide[1]); }},
        {[&] { return user(tall[0]); }, [&] { return user(tall[1]); }},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(testing::Message() << "case " << i);
        const auto at = cases[i].first ? FirstAllocationFails(cases[i].first) : Outcome{-1, true};
        EXPECT_EQ(at, Outcome(ST_FAILURE, true)) << "no allocation at the limit";
        EXPECT_EQ(FirstAllocationFails(cases[i].second), Outcome(ST_INVALID_PARAMETER, false));
    }
    KrnFreeBitmapList(items);
    // Refused calls left everything as it was; the largest kernel still filters exactly.
    EXPECT_TRUE(small.d.nWidth == 2 && deep12->nBitsPerPixel == 12);
    EXPECT_FALSE(DisBitmapHasRegion(grey.get()));
    ASSERT_EQ(spatial(0), ST_SUCCESS);
    EXPECT_EQ(grey.storedBytes(), before);
}

// Windows and cells have no limit: the largest is clipped to the bitmap, so
// extremes and tile means equal those of any window covering it all.
TEST(Limits, WindowsAreClippedToTheBitmap) {
    using Op = int32_t(RZAPI *)(BitmapDesc *, uint32_t);
    for (Op op : {Rz_MaxFilterBitmap, Rz_MinFilterBitmap, Rz_MosaicBitmap}) {
        Bitmap a(FindLayout("bgr24"), 9, 7, 3), b(a);
        ASSERT_EQ(op(a.get(), 4294967295u), ST_SUCCESS);
        ASSERT_EQ(op(b.get(), 2 * 9 + 1), ST_SUCCESS);
        EXPECT_EQ(a.storedBytes(), b.storedBytes());
    }
    for (Op op : {Rz_MedianFilterBitmap, Rz_OilifyBitmap}) {
        Bitmap a(FindLayout("grey8"), 9, 7, 3);
        EXPECT_EQ(op(a.get(), 4294967295u), ST_SUCCESS);
    }
}

} // namespace
} // namespace rz::test
