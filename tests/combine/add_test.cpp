// Bitmap lists and the list sums against a per-pixel reference, and the
// documented refusals and statuses.
#include "combine/combine_ref.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

namespace rz::test {
namespace {

struct ListDeleter {
    void operator()(KrnBitmapList *l) const { KrnFreeBitmapList(l); }
};
using ListPtr = std::unique_ptr<KrnBitmapList, ListDeleter>;

ListPtr MakeList(std::vector<Bitmap> &bitmaps, uint32_t flags = KRN_LIST_REFERENCE) {
    KrnBitmapList *raw = nullptr;
    EXPECT_EQ(KrnCreateBitmapList(&raw), 1);
    ListPtr list(raw);
    for (Bitmap &b : bitmaps) EXPECT_EQ(KrnAppendBitmapList(list.get(), b.get(), flags), 1);
    return list;
}

struct Result {
    BitmapDesc d{};
    ~Result() {
        if (d.uFlags & BMF_ALLOCATED) KrnFreeBitmap(&d);
    }
};

TEST(BitmapList, OwnsOnlyItsCopies) {
    const int64_t start = KrnMemOutstanding();
    {
        std::vector<Bitmap> bitmaps;
        bitmaps.emplace_back(FindLayout("bgr24"), 5, 4, 1);
        bitmaps.emplace_back(FindLayout("pal4_colour"), 3, 2, 2);
        const int64_t withBitmaps = KrnMemOutstanding();
        KrnBitmapList *list = nullptr;
        ASSERT_EQ(KrnCreateBitmapList(&list), 1);
        for (int i = 0; i < 5; ++i) ASSERT_EQ(KrnAppendBitmapList(list, bitmaps[0].get(), KRN_LIST_REFERENCE), 1);
        ASSERT_EQ(KrnAppendBitmapList(list, bitmaps[1].get(), KRN_LIST_COPY), 1);
        uint32_t n = 0;
        ASSERT_EQ(KrnGetBitmapListCount(list, &n), 1);
        EXPECT_EQ(n, 6u);
        BitmapDesc *item = nullptr;
        ASSERT_EQ(KrnGetBitmapListItem(list, 0, &item), 1);
        EXPECT_EQ(item, bitmaps[0].get());
        ASSERT_EQ(KrnGetBitmapListItem(list, 5, &item), 1);
        EXPECT_NE(item, bitmaps[1].get());
        EXPECT_EQ(item->nColors, bitmaps[1]->nColors);
        EXPECT_EQ(KrnGetBitmapListItem(list, 6, &item), KRN_INVALID_PARAMETER);
        EXPECT_EQ(KrnAppendBitmapList(list, nullptr, KRN_LIST_REFERENCE), KRN_NULL_POINTER);
        EXPECT_EQ(KrnAppendBitmapList(list, bitmaps[0].get(), 2), KRN_INVALID_PARAMETER);
        KrnFreeBitmapList(list);
        EXPECT_EQ(KrnMemOutstanding(), withBitmaps); // the referenced bitmaps are untouched
        EXPECT_EQ(bitmaps[0].pixel(4, 3), Bitmap(bitmaps[0]).pixel(4, 3));
    }
    EXPECT_EQ(KrnMemOutstanding(), start);
}

// round(v / d), halves away from zero.
int64_t RoundDiv(int64_t v, int64_t d) {
    if (d < 0) v = -v, d = -d;
    const int64_t q = ((v < 0 ? -v : v) + d / 2) / d;
    return v < 0 ? -q : q;
}

TEST(AddBitmaps, MatchTheReference) {
    uint32_t seed = 60;
    for (const char *name : kDirectLayouts) {
        SCOPED_TRACE(name);
        std::vector<Bitmap> bitmaps;
        for (int i = 0; i < 3; ++i) bitmaps.emplace_back(FindLayout(name), 11, 7, seed++);
        ListPtr list = MakeList(bitmaps);
        const int32_t weights[3] = {700, -250, 900};
        for (int variant = 0; variant < 4; ++variant) {
            Result r;
            const int32_t st = variant < 2 ? Rz_AddBitmaps(&r.d, BITMAPDESC_SIZE, list.get(), variant + 1)
                                           : Rz_AddWeightedBitmaps(&r.d, BITMAPDESC_SIZE, list.get(), weights, variant - 2);
            ASSERT_EQ(st, 1) << variant;
            ASSERT_EQ(r.d.nBitsPerPixel, bitmaps[0]->nBitsPerPixel);
            Bitmap want(bitmaps[0]);
            for (int32_t y = 0; y < 7; ++y)
                for (int32_t x = 0; x < 11; ++x) {
                    Channels out = ReadChannels(bitmaps[0], x, y);
                    const int64_t M = out.bits == 16 ? 65535 : 255;
                    for (int c = 0; c < out.count; ++c) {
                        int64_t sum = 0;
                        for (int k = 0; k < 3; ++k)
                            sum += int64_t(variant < 2 ? 1 : weights[k]) * ReadChannels(bitmaps[k], x, y).v[c];
                        const int64_t v = variant == 0 ? sum / 3
                                          : variant == 1 ? sum
                                          : RoundDiv(sum, variant == 2 ? 1000 : 700 - 250 + 900);
                        out.v[c] = uint32_t(std::clamp<int64_t>(v, 0, M));
                    }
                    WriteChannels(want, x, y, out);
                }
            BitmapDesc *got = &r.d;
            for (int32_t y = 0; y < 7; ++y)
                for (int32_t x = 0; x < 11; ++x) {
                    uint64_t v = 0;
                    KrnGetPixel(got, x, y, &v);
                    ASSERT_EQ(v, want.pixel(x, y)) << "variant " << variant << " at " << x << "," << y;
                }
        }
    }
}

TEST(AddBitmaps, RefusalsLeaveAReleasedResult) {
    std::vector<Bitmap> same, size, depth, one;
    for (int i = 0; i < 2; ++i) same.emplace_back(FindLayout("grey8"), 4, 3, 1 + i);
    size.emplace_back(FindLayout("grey8"), 4, 3, 1);
    size.emplace_back(FindLayout("grey8"), 3, 4, 2);
    depth.emplace_back(FindLayout("grey8"), 4, 3, 1);
    depth.emplace_back(FindLayout("grey16"), 4, 3, 2);
    one.emplace_back(FindLayout("pal4_colour"), 4, 3, 9);
    ListPtr good = MakeList(same), badSize = MakeList(size), badDepth = MakeList(depth), single = MakeList(one);
    KrnBitmapList *empty = nullptr;
    ASSERT_EQ(KrnCreateBitmapList(&empty), 1);
    ListPtr emptyList(empty);
    const int32_t weights[2] = {500, -500};
    const int64_t start = KrnMemOutstanding();
    struct Case {
        const char *what;
        std::function<int32_t(BitmapDesc *)> call;
        int32_t want;
    };
    const Case cases[] = {
        {"null result", [&](BitmapDesc *) { return Rz_AddBitmaps(nullptr, 164, good.get(), 1); }, ST_NULL_POINTER},
        {"size 163", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 163, good.get(), 1); }, ST_BAD_STRUCT_SIZE},
        {"null list", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, nullptr, 1); }, ST_INVALID_PARAMETER},
        {"empty list", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, emptyList.get(), 1); }, ST_INVALID_PARAMETER},
        {"flags 3", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, good.get(), 3); }, ST_INVALID_PARAMETER},
        {"flags 0", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, good.get(), 0); }, ST_INVALID_PARAMETER},
        {"sizes", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, badSize.get(), 1); }, ST_INVALID_PARAMETER},
        {"depths", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, badDepth.get(), 2); }, ST_INVALID_PARAMETER},
        {"null weights", [&](BitmapDesc *r) { return Rz_AddWeightedBitmaps(r, 164, good.get(), nullptr, 0); },
         ST_INVALID_PARAMETER},
        {"weights sum 0", [&](BitmapDesc *r) { return Rz_AddWeightedBitmaps(r, 164, good.get(), weights, 1); },
         ST_INVALID_PARAMETER},
        {"weight range", [&](BitmapDesc *r) {
             const int32_t big[2] = {100001, 0};
             return Rz_AddWeightedBitmaps(r, 164, good.get(), big, 0);
         }, ST_INVALID_PARAMETER},
    };
    for (const Case &c : cases) {
        BitmapDesc r;
        std::memset(&r, 0xCD, sizeof r);
        EXPECT_EQ(c.call(&r), c.want) << c.what;
        if (c.want != ST_NULL_POINTER) EXPECT_EQ(r.uStructSize, BITMAPDESC_SIZE) << c.what;
        EXPECT_EQ(KrnMemOutstanding(), start) << c.what;
    }
    // One bitmap: its copy, palette and all.
    Result r;
    ASSERT_EQ(Rz_AddBitmaps(&r.d, 164, single.get(), RZ_ADD_AVERAGE), 1);
    ASSERT_EQ(r.d.nColors, one[0]->nColors);
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 4; ++x) {
            uint64_t v = 0;
            KrnGetPixel(&r.d, x, y, &v);
            EXPECT_EQ(v, one[0].pixel(x, y));
        }
}

} // namespace
} // namespace rz::test
