// The documented limits: a request at a limit gets as far as taking its
// memory (the kernel's failure hook makes that allocation fail, so nothing
// large is ever taken), and one just past it is refused with the limit's own
// status before any allocation is tried.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <vector>

namespace rz::test {
namespace {

struct Outcome {
    int32_t status;
    bool allocationTried; // the armed failure went off
};

// Runs `call` with the next allocation failing.
Outcome WithFirstAllocationFailing(const std::function<int32_t()> &call) {
    const int64_t before = KrnMemOutstanding();
    KrnMemFailAfter(0);
    const int32_t st = call();
    const bool fired = KrnMemFailAfter(-1) < 0;
    EXPECT_EQ(KrnMemOutstanding(), before);
    return {st, fired};
}

struct LimitCase {
    const char *name;
    std::function<int32_t()> atLimit, pastLimit;
    int32_t pastStatus = ST_INVALID_PARAMETER;
};

void CheckLimit(const LimitCase &c) {
    SCOPED_TRACE(c.name);
    const Outcome at = WithFirstAllocationFailing(c.atLimit);
    EXPECT_EQ(at.status, ST_FAILURE) << "at the limit the call must reach its allocation";
    EXPECT_TRUE(at.allocationTried);
    const Outcome past = WithFirstAllocationFailing(c.pastLimit);
    EXPECT_EQ(past.status, c.pastStatus);
    EXPECT_FALSE(past.allocationTried) << "refused only after trying to allocate";
}

// ---- Kernel: pixels and bytes of a bitmap ----

// A descriptor made before the measured call (its palette is a block of its
// own), with the size to ask for set afterwards.
struct Desc {
    BitmapDesc d{};
    Desc(int32_t bits, bool pixels = false) {
        KrnInitBitmap(&d, BITMAPDESC_SIZE, 2, 2, bits);
        if (pixels) KrnAllocBitmap(&d);
    }
    ~Desc() { KrnFreeBitmap(&d); }
};

int32_t AllocPicture(Desc &p, int32_t width, int32_t height) {
    p.d.nWidth = width;
    p.d.nHeight = height;
    return KrnAllocBitmap(&p.d);
}

int32_t InitPicture(int32_t width, int32_t height, int32_t bits) {
    BitmapDesc d{};
    const int32_t st = KrnInitBitmap(&d, BITMAPDESC_SIZE, width, height, bits);
    KrnFreeBitmap(&d);
    return st;
}

TEST(Limits, BitmapPixelsAndBytes) {
    static_assert(KRN_MAX_PIXELS == int64_t(32768) * 32768);
    static_assert(KRN_MAX_BITMAP_BYTES == int64_t(16384) * 8 * 32768);
    Desc one(1), eight(8), deep(64), small(8, true), smallDeep(64, true);
    // 1-bit pictures reach the pixel limit long before the byte limit;
    // 64-bit ones reach the byte limit at half the pixel limit. Rows of
    // one 8-bit pixel take 4 bytes: 2^30 of them meet both limits.
    const LimitCase cases[] = {
        {"alloc 1-bit pixels", [&] { return AllocPicture(one, 32768, 32768); },
         [&] { return AllocPicture(one, 32768, 32769); }},
        {"alloc 8-bit pixels, one column", [&] { return AllocPicture(eight, 1, 1 << 30); },
         [&] { return AllocPicture(eight, 2, (1 << 29) + 1); }},
        {"alloc 64-bit bytes", [&] { return AllocPicture(deep, 16384, 32768); },
         [&] { return AllocPicture(deep, 16384, 32769); }},
        {"resize 8-bit pixels", [&] { return KrnResizeBitmap(&small.d, 32768, 32768, KRN_RESIZE_NEAREST); },
         [&] { return KrnResizeBitmap(&small.d, 32769, 32768, KRN_RESIZE_NEAREST); }},
        {"resize 64-bit bytes", [&] { return KrnResizeBitmap(&smallDeep.d, 32768, 16384, KRN_RESIZE_NEAREST); },
         [&] { return KrnResizeBitmap(&smallDeep.d, 32768, 16385, KRN_RESIZE_NEAREST); }},
    };
    for (const LimitCase &c : cases) CheckLimit(c);
    EXPECT_EQ(small.d.nWidth, 2); // refused resizes left the bitmap as it was
}

TEST(Limits, InitRefusesPastTheLimitsBeforeItsPalette) {
    // An 8-bit descriptor takes a palette block: past a limit it must not.
    for (auto [w, h, bits] : {std::tuple{32768, 32769, 8}, std::tuple{16384, 32769, 64}, std::tuple{65536, 65536, 1}}) {
        const Outcome o = WithFirstAllocationFailing([&] { return InitPicture(w, h, bits); });
        EXPECT_EQ(o.status, KRN_INVALID_PARAMETER) << w << " x " << h << " x " << bits;
        EXPECT_FALSE(o.allocationTried);
    }
    EXPECT_EQ(InitPicture(32768, 32768, 8), KRN_OK); // no pixels taken: at the limit it succeeds
    EXPECT_EQ(InitPicture(16384, 32768, 64), KRN_OK);
}

// ---- Lists ----

TEST(Limits, ListEntries) {
    BitmapDesc d{};
    ASSERT_EQ(KrnInitBitmap(&d, BITMAPDESC_SIZE, 1, 1, 8), KRN_OK);
    KrnBitmapList *list = nullptr;
    ASSERT_EQ(KrnCreateBitmapList(&list), KRN_OK);
    int32_t st = KRN_OK;
    for (int32_t i = 0; i < KRN_MAX_LIST_ITEMS && st == KRN_OK; ++i) st = KrnAppendBitmapList(list, &d, KRN_LIST_REFERENCE);
    EXPECT_EQ(st, KRN_OK);
    uint32_t count = 0;
    KrnGetBitmapListCount(list, &count);
    EXPECT_EQ(count, uint32_t(KRN_MAX_LIST_ITEMS));
    // The list is full to its capacity: one more would have to grow it.
    const Outcome past = WithFirstAllocationFailing([&] { return KrnAppendBitmapList(list, &d, KRN_LIST_REFERENCE); });
    EXPECT_EQ(past.status, KRN_INVALID_PARAMETER);
    EXPECT_FALSE(past.allocationTried);
    KrnGetBitmapListCount(list, &count);
    EXPECT_EQ(count, uint32_t(KRN_MAX_LIST_ITEMS));
    KrnFreeBitmapList(list);
    KrnFreeBitmap(&d);
}

// ---- Region polygons ----

TEST(Limits, PolygonPoints) {
    Bitmap b(FindLayout("grey8"), 8, 8);
    std::vector<RzPoint> points(DIS_MAX_POLYGON_POINTS + 1);
    for (size_t i = 0; i < points.size(); ++i) points[i] = {int32_t(i % 7), int32_t(i % 5)};
    CheckLimit({"polygon",
                [&] { return DisSetRegionPolygon(b.get(), points.data(), DIS_MAX_POLYGON_POINTS, DIS_FILL_WINDING, DIS_RGN_SET); },
                [&] { return DisSetRegionPolygon(b.get(), points.data(), DIS_MAX_POLYGON_POINTS + 1, DIS_FILL_WINDING, DIS_RGN_SET); }});
    EXPECT_FALSE(DisBitmapHasRegion(b.get()));
}

// ---- Operations: tables, records and kernels ----

TEST(Limits, TablesAndRecords) {
    Bitmap colour(FindLayout("bgr24"), 5, 4);
    Bitmap deep(FindLayout("grey12"), 5, 4);
    std::vector<HueSatIntRange> ranges(RZ_MAX_RECORDS + 1, HueSatIntRange{HUESATINTRANGE_SIZE, 100, 0, 0, 10, 50, 20, 40});
    std::vector<RzRGBQuad> table(RZ_MAX_RECORDS + 1, RzRGBQuad{9, 9, 9, 0});
    const LimitCase cases[] = {
        {"hue ranges", [&] { return Rz_ChangeHueSatIntBitmap(colour.get(), 0, 0, 0, ranges.data(), RZ_MAX_RECORDS); },
         [&] { return Rz_ChangeHueSatIntBitmap(colour.get(), 0, 0, 0, ranges.data(), RZ_MAX_RECORDS + 1); }},
        {"display table", [&] { return Rz_WindowLevelBitmap(deep.get(), 0, 11, table.data(), RZ_MAX_RECORDS, 0); },
         [&] { return Rz_WindowLevelBitmap(deep.get(), 0, 11, table.data(), RZ_MAX_RECORDS + 1, 0); }},
    };
    for (const LimitCase &c : cases) CheckLimit(c);
    EXPECT_EQ(deep->nBitsPerPixel, 12); // refused calls left it as it was
}

// A square kernel record of side n with a 1 in the middle.
std::vector<int32_t> SpatialRecord(int32_t n) {
    std::vector<int32_t> words(4 + size_t(n) * size_t(n), 0);
    auto *k = reinterpret_cast<SpatialKernel *>(words.data());
    k->size = SPATIALKERNEL_SIZE;
    k->divisor = 1;
    k->dim = n;
    k->matrix[size_t((n - 1) / 2) * n + (n - 1) / 2] = 1;
    return words;
}

std::vector<int32_t> UserRecord(uint32_t w, uint32_t h) {
    std::vector<int32_t> words(8 + size_t(w) * h, 1);
    auto *k = reinterpret_cast<UserFilterKernel *>(words.data());
    *k = {USERFILTERKERNEL_SIZE, w, h, 0, 0, 1, 0, RZ_UF_TRUNCATE, {1}};
    return words;
}

TEST(Limits, KernelSides) {
    Bitmap b(FindLayout("grey8"), 6, 5);
    constexpr int32_t n = RZ_MAX_KERNEL_SIDE;
    const std::vector<int32_t> square = SpatialRecord(n), squarePast = SpatialRecord(n + 1);
    const std::vector<int32_t> wide = UserRecord(n, 1), widePast = UserRecord(n + 1, 1);
    const std::vector<int32_t> tall = UserRecord(2, n), tallPast = UserRecord(2, n + 1);
    auto spatial = [&](const std::vector<int32_t> &k) {
        return Rz_SpatialFilterBitmap(b.get(), reinterpret_cast<const SpatialKernel *>(k.data()));
    };
    auto user = [&](const std::vector<int32_t> &k) {
        return Rz_UserFilterBitmap(b.get(), reinterpret_cast<const UserFilterKernel *>(k.data()));
    };
    const LimitCase cases[] = {
        {"spatial side", [&] { return spatial(square); }, [&] { return spatial(squarePast); }},
        {"user width", [&] { return user(wide); }, [&] { return user(widePast); }},
        {"user height", [&] { return user(tall); }, [&] { return user(tallPast); }},
    };
    for (const LimitCase &c : cases) CheckLimit(c);
}

TEST(Limits, KernelAtTheLimitFilters) {
    // The largest kernel still gives the exact result: an identity of side
    // RZ_MAX_KERNEL_SIDE leaves the picture as it was.
    Bitmap b(FindLayout("grey8"), 6, 5, 7);
    const std::vector<uint8_t> before = b.storedBytes();
    const std::vector<int32_t> k = SpatialRecord(RZ_MAX_KERNEL_SIDE);
    ASSERT_EQ(Rz_SpatialFilterBitmap(b.get(), reinterpret_cast<const SpatialKernel *>(k.data())), ST_SUCCESS);
    EXPECT_EQ(b.storedBytes(), before);
}

// Windows and cells have no limit: the largest is clipped to the bitmap.
// Extremes and tile means of a window that covers the whole bitmap from
// every pixel are the same for every such window.
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
