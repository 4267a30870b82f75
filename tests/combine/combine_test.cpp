// Blends, the combine word and the list sums against a naive per-pixel
// reference (pixels read with KrnGetPixel, formulas written out here) on every
// direct layout, with clipping offsets, masks, textures, regions and views.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

namespace rz::test {
namespace {

constexpr int32_t kW = 23, kH = 17;

struct Geometry {
    int32_t x, y, w, h, sx, sy;
};
using Call = std::function<int32_t(BitmapDesc *d, BitmapDesc *s, const Geometry &g)>;
// A two-bitmap export on a geometry, with its further arguments.
template <class F, class... A> Call On(F f, A... a) {
    return [=](BitmapDesc *d, BitmapDesc *s, const Geometry &g) {
        return f(d, g.x, g.y, g.w, g.h, s, g.sx, g.sy, a...);
    };
}

// The new destination pixel from d, s and the mask and texture pixels.
using PixelFn =
    std::function<void(Channels &d, const Channels &s, const Channels &m, const Channels &t)>;
template <class F> PixelFn PerChannel(F f) {
    return [f](Channels &d, const Channels &s, const Channels &m, const Channels &t) {
        for (int c = 0; c < d.count; ++c) d.v[c] = f(d.v[c], s.v[c], m.v[c], t.v[c], d.max());
    };
}

struct Inputs {
    const Bitmap *mask = nullptr, *texture = nullptr;
    RzPoint offset{};
};

// The area is where the rectangle, the destination and the moved source
// overlap; its top-left indexes the mask, which blends nothing when smaller.
Bitmap Expected(const Bitmap &dst, const Bitmap &src, const Geometry &g, const Inputs &in,
                const PixelFn &fn) {
    Bitmap out(dst);
    const int64_t ox = int64_t(g.sx) - g.x, oy = int64_t(g.sy) - g.y;
    const int64_t left = std::max<int64_t>({0, g.x, -ox}), top = std::max<int64_t>({0, g.y, -oy});
    const int64_t right = std::min({int64_t(dst->nWidth), g.x + int64_t(g.w), src->nWidth - ox});
    const int64_t bottom = std::min({int64_t(dst->nHeight), g.y + int64_t(g.h), src->nHeight - oy});
    const Bitmap *m = in.mask, *t = in.texture;
    if (right <= left || bottom <= top) return out;
    if (m && ((*m)->nWidth < right - left || (*m)->nHeight < bottom - top)) return out;
    for (int32_t y = int32_t(top); y < bottom; ++y)
        for (int32_t x = int32_t(left); x < right; ++x) {
            Channels d = ReadChannels(dst, x, y), mc, tc;
            const Channels s = ReadChannels(src, int32_t(x + ox), int32_t(y + oy));
            if (m) mc = ReadChannels(*m, int32_t(x - left), int32_t(y - top));
            if (t) {
                const int64_t tw = (*t)->nWidth, th = (*t)->nHeight;
                tc = ReadChannels(*t, int32_t(((in.offset.x + x - left) % tw + tw) % tw),
                                  int32_t(((in.offset.y + y - top) % th + th) % th));
            }
            fn(d, s, mc, tc);
            WriteChannels(out, x, y, d);
        }
    return out;
}

bool Same(const Bitmap &a, const Bitmap &b) { return a.storedBytes() == b.storedBytes(); }

// d + (s - d) w, floored, in 256ths (65536ths on 16-bit channels).
uint32_t Lerp(uint32_t d, uint32_t s, int64_t w, uint32_t max) {
    const int shift = max == 255 ? 8 : 16;
    const int64_t v = (int64_t(s) - d) * w + (int64_t(d) << shift);
    return uint32_t(v >= 0 ? v >> shift : -((-v + (int64_t(1) << shift) - 1) >> shift));
}

// One channel of each operation, as the header states it.
uint32_t Operate(uint32_t op, uint32_t s, uint32_t d, uint32_t M) {
    switch (op) {
    case 0x0: return s & d;
    case 0x1: return s | d;
    case 0x2: return s ^ d;
    case 0x3: return std::min(s + d, M);
    case 0x4: return d > s ? d - s : 0;
    case 0x5: return s > d ? s - d : 0;
    case 0x6: return uint32_t(uint64_t(s) * d / M);
    case 0x7: return s == 0 ? M : uint32_t(std::min<uint64_t>(uint64_t(d) * M / s, M));
    case 0x8: return d == 0 ? M : uint32_t(std::min<uint64_t>(uint64_t(s) * M / d, M));
    case 0x9: return (s + d) / 2;
    case 0xA: return std::min(s, d);
    case 0xB: return std::max(s, d);
    default: return s > d ? s - d : d - s;
    }
}

// The whole combine word per pixel: channel selectors (red, green, blue
// fields; working channels are blue, green, red), value handling of source
// and destination, the operation and the result handling.
PixelFn CombineRef(uint32_t flags) {
    return [flags](Channels &d, const Channels &s, const Channels &, const Channels &) {
        const uint32_t M = d.max(), res = (flags >> 12) & 0xF;
        Channels sel = s;
        for (int c = 0; c < d.count && d.count == 3; ++c) {
            const uint32_t v = (flags >> (16 + 4 * (2 - c))) & 0xF;
            sel.v[c] = v == 0 ? s.v[c] : s.v[3 - v];
        }
        auto prepare = [&](Channels &p, uint32_t how) {
            if ((how & 2) && p.count == 3)
                p.v[0] = p.v[1] = p.v[2] =
                    (3735 * p.v[0] + 19235 * p.v[1] + 9798 * p.v[2] + 16384) >> 15;
            for (int c = 0; c < p.count && (how & 1); ++c) p.v[c] = M - p.v[c];
        };
        prepare(sel, flags & 0xF);
        prepare(d, (flags >> 4) & 0xF);
        for (int c = 0; c < d.count; ++c) {
            const uint32_t r = Operate((flags >> 8) & 0xF, sel.v[c], d.v[c], M);
            d.v[c] = res == 2 ? sel.v[c] : res == 3 ? d.v[c] : res == 1 ? M - r : r;
        }
    };
}

TEST(Combine, EveryOperationMatchesTheReference) {
    struct Case {
        std::string what;
        Call call;
        Inputs in;
        PixelFn fn;
    };
    const Geometry geometries[] = {{0, 0, INT32_MAX, INT32_MAX, 0, 0}, {3, 2, 9, 7, 5, 1},
                                   {-4, 3, 12, 20, 2, -5}, {20, 15, 10, 10, 0, 0}};
    std::vector<uint32_t> words = {
        CBF_SUBTRACT_SRC | CBF_SRC_INVERT, CBF_ADD | CBF_DST_INVERT | CBF_RES_INVERT,
        CBF_MAX | CBF_SRC_GREY, CBF_MIN | CBF_DST_GREY_INVERT, CBF_RES_DEST | CBF_DST_INVERT,
        CBF_RES_SOURCE | CBF_SELECT_RED(CBF_CHANNEL_BLUE) | CBF_SELECT_BLUE(CBF_CHANNEL_RED),
        CBF_AVERAGE | CBF_SELECT_GREEN(CBF_CHANNEL_RED) | CBF_SRC_GREY_INVERT};
    for (uint32_t op = 0; op <= 0xC; ++op) words.insert(words.end(), {op << 8, op << 8 | 0x1000});
    uint32_t seed = 100;
    for (const char *name : DirectLayouts()) {
        const Layout &layout = FindLayout(name);
        Bitmap dst(layout, kW, kH, seed++), src(layout, kW - 3, kH + 2, seed++);
        dst.setPixel(4, 3, 0); // zeros reach the divisions' special cases
        src.setPixel(6, 2, 0);
        Bitmap mask(layout, 16, 16, seed++), texture(layout, 5, 3, seed++);
        const int32_t limit = layout.bits == 12 ? 4095 : int32_t(ReadChannels(dst, 0, 0).max());
        const int32_t scale = layout.bits == 12 ? 16 : 1, o = limit * 3 / 4; // working units
        RzPoint offset{-7, 4};
        std::vector<Case> cases;
        for (int32_t a : {0, 1, limit / 2, limit})
            cases.push_back({"alpha " + std::to_string(a), On(Rz_AlphaBlendBitmap, a), {},
                             PerChannel([w = a * scale](auto d, auto s, auto, auto, auto M) {
                                 return Lerp(d, s, w, M);
                             })});
        cases.push_back({"feather", On(Rz_FeatherAlphaBlendBitmap, mask.get()), {&mask},
                         PerChannel([](auto d, auto s, auto m, auto, auto M) {
                             return Lerp(d, s, m, M);
                         })});
        // The texture sample, less half the range, moves the mask sample.
        for (BitmapDesc *tex : {static_cast<BitmapDesc *>(nullptr), texture.get()})
            cases.push_back({tex ? "texture" : "mask only",
                             On(Rz_TextureAlphaBlendBitmap, mask.get(), o, tex, &offset),
                             {&mask, tex ? &texture : nullptr, offset},
                             PerChannel([tex, w = o * scale](uint32_t d, uint32_t s, uint32_t m,
                                                             uint32_t t, uint32_t M) {
                                 const int64_t mt = int64_t(m) + t - (M + 1) / 2;
                                 const int64_t mm = tex ? std::clamp<int64_t>(mt, 0, M) : m;
                                 return mm >= M ? d : Lerp(d, Lerp(s, d, mm, M), w, M);
                             })});
        for (uint32_t flags : words)
            if (layout.order != KRN_ORDER_GRAY || !(flags & 0x0FF00000u))
                cases.push_back({"flags " + std::to_string(flags), On(Rz_CombineBitmapExt, flags),
                                 {}, CombineRef(flags)});
        for (const Geometry &g : geometries)
            for (const Case &c : cases) {
                Bitmap got(dst), copy(src);
                const std::string what = name + (" " + c.what) + " at " + std::to_string(g.x);
                ASSERT_EQ(c.call(got.get(), copy.get(), g), 1) << what;
                ASSERT_TRUE(Same(got, Expected(dst, src, g, c.in, c.fn))) << what;
            }
    }
}

TEST(Combine, SameBitmapRegionsViewsAndFarGeometry) {
    const Layout &layout = FindLayout("rgb24");
    const Bitmap dst(layout, kW, kH, 21), src(layout, kW, kH, 22);
    const Geometry whole{0, 0, kW, kH, 0, 0}, moved{1, 3, kW, kH, 0, 0};
    // The same pixels as source and destination: the original pixels are read.
    Bitmap same(dst);
    ASSERT_EQ(On(Rz_CombineBitmapExt, CBF_ADD)(same.get(), same.get(), moved), 1);
    ASSERT_TRUE(Same(same, Expected(dst, dst, moved, {}, CombineRef(CBF_ADD)))) << "overlapping";
    // The source region, moved by the origins' difference, limits the change too.
    Bitmap got(dst), copy(src);
    const RzRect srcRegion{4, 2, 12, 9};
    ASSERT_EQ(DisSetRegionRect(copy.get(), &srcRegion, DIS_RGN_SET), 1);
    ASSERT_EQ(On(Rz_CombineBitmapExt, CBF_XOR)(got.get(), copy.get(), moved), 1);
    const Bitmap all = Expected(dst, src, moved, {}, CombineRef(CBF_XOR));
    for (int32_t i = 0; i < kW * kH; ++i) {
        const int32_t x = i % kW, y = i / kW;
        const bool inSource = x - 1 >= 4 && x - 1 < 12 && y - 3 >= 2 && y - 3 < 9;
        ASSERT_EQ(got.pixel(x, y), (inSource ? all : dst).pixel(x, y)) << x << "," << y;
    }
    // Views are worked as the picture is stored.
    Bitmap viewed(dst), viewedSrc(src);
    KrnChangeViewPerspective(nullptr, viewed.get(), BITMAPDESC_SIZE, 6, 0);
    KrnChangeViewPerspective(nullptr, viewedSrc.get(), BITMAPDESC_SIZE, 3, 0);
    ASSERT_EQ(On(Rz_CombineBitmapExt, CBF_XOR)(viewed.get(), viewedSrc.get(), whole), 1);
    KrnChangeViewPerspective(nullptr, viewed.get(), BITMAPDESC_SIZE, 1, 0);
    ASSERT_TRUE(Same(viewed, Expected(dst, src, whole, {}, CombineRef(CBF_XOR)))) << "views";
    // Wholly outside, offsets that overflow, empty sizes: nothing changes.
    for (const Geometry &g : {Geometry{kW, 0, 5, 5, 0, 0}, {0, 0, 5, 5, -kW, 0}, {0, 0, 0, 5, 0, 0},
                              {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX, INT32_MAX, 0},
                              {INT32_MAX, 0, INT32_MAX, 1, INT32_MIN, 0}}) {
        Bitmap far(dst), farSrc(src);
        EXPECT_EQ(On(Rz_CombineBitmapExt, CBF_XOR)(far.get(), farSrc.get(), g), 1);
        EXPECT_EQ(On(Rz_AlphaBlendBitmap, 100)(far.get(), farSrc.get(), g), 1);
        EXPECT_EQ(far.storedBytes(), dst.storedBytes());
    }
}

// Limits that follow the pair's working depth or the flag word.
TEST(Combine, Refusals) {
    Bitmap d(FindLayout("grey12"), 3, 3, 1), s(FindLayout("grey16"), 3, 3, 2);
    Bitmap t(FindLayout("bgr48"), 3, 3, 3);
    EXPECT_EQ(Rz_AlphaBlendBitmap(d.get(), 0, 0, 3, 3, s.get(), 0, 0, 4095), 1);
    EXPECT_EQ(Rz_AlphaBlendBitmap(d.get(), 0, 0, 3, 3, s.get(), 0, 0, 4096), ST_INVALID_PARAMETER);
    EXPECT_EQ(Rz_AlphaBlendBitmap(s.get(), 0, 0, 3, 3, t.get(), 0, 0, 65535), 1);
    for (uint32_t bad : {0x4u, 0x40u, 0xD00u, 0x4000u, 0x40000u, 0x400000u, 0x4000000u})
        EXPECT_EQ(Rz_CombineBitmapExt(d.get(), 0, 0, 0, 0, s.get(), 0, 0, bad), -13) << bad;
}

struct ListDeleter {
    void operator()(KrnBitmapList *l) const { KrnFreeBitmapList(l); }
};
using ListPtr = std::unique_ptr<KrnBitmapList, ListDeleter>;
ListPtr MakeList(std::vector<Bitmap> &bitmaps) {
    KrnBitmapList *raw = nullptr;
    EXPECT_EQ(KrnCreateBitmapList(&raw), 1);
    ListPtr list(raw);
    for (Bitmap &b : bitmaps)
        EXPECT_EQ(KrnAppendBitmapList(list.get(), b.get(), KRN_LIST_REFERENCE), 1);
    return list;
}

TEST(AddBitmaps, MatchTheReference) {
    const int32_t weights[3] = {700, -250, 900}, ones[3] = {1, 1, 1};
    // Averages truncate; weighted sums, over 1000 or the weights' sum, round.
    const int64_t divisors[4] = {3, 1, 1000, 700 - 250 + 900};
    uint32_t seed = 60;
    for (const char *name : DirectLayouts()) {
        std::vector<Bitmap> bitmaps;
        for (int i = 0; i < 3; ++i) bitmaps.emplace_back(FindLayout(name), 11, 7, seed++);
        ListPtr list = MakeList(bitmaps);
        for (int variant = 0; variant < 4; ++variant) {
            Bitmap r = OutputBitmap(), want(bitmaps[0]);
            ASSERT_EQ(variant < 2 ? Rz_AddBitmaps(r.get(), BITMAPDESC_SIZE, list.get(), variant + 1)
                                  : Rz_AddWeightedBitmaps(r.get(), BITMAPDESC_SIZE, list.get(),
                                                          weights, variant - 2), 1);
            const int64_t div = divisors[variant];
            const int32_t *w = variant < 2 ? ones : weights;
            for (int32_t i = 0; i < 77; ++i) {
                const int32_t x = i % 11, y = i / 11;
                Channels out = ReadChannels(bitmaps[0], x, y);
                for (int c = 0; c < out.count; ++c) {
                    int64_t v = variant < 2 ? 0 : div / 2;
                    for (int k = 0; k < 3; ++k)
                        v += w[k] * int64_t(ReadChannels(bitmaps[k], x, y).v[c]);
                    out.v[c] = uint32_t(std::clamp<int64_t>(v / div, 0, out.max()));
                }
                WriteChannels(want, x, y, out);
            }
            ASSERT_EQ(r->nBitsPerPixel, want->nBitsPerPixel);
            ASSERT_TRUE(Same(r, want)) << name << " variant " << variant;
        }
    }
}

// Lists the sums refuse (empty, sizes or depths that differ, weights null,
// summing to 0 or past their range) leave a released result and no memory.
TEST(AddBitmaps, RefusedLists) {
    std::vector<Bitmap> same, none, size = {Bitmap(FindLayout("grey8"), 4, 3, 1)}, depth = size;
    same = {size[0], size[0]};
    size.emplace_back(FindLayout("grey8"), 3, 4, 2);
    depth.emplace_back(FindLayout("grey16"), 4, 3, 2);
    ListPtr good = MakeList(same), lists[] = {MakeList(none), MakeList(size), MakeList(depth)};
    const int32_t weights[][2] = {{500, -500}, {100001, 0}};
    const int64_t start = KrnMemOutstanding();
    for (int i = 0; i < 6; ++i) {
        BitmapDesc r;
        std::memset(&r, 0xCD, sizeof r);
        const int32_t *w = i == 3 ? nullptr : weights[i % 2];
        EXPECT_EQ(i < 3 ? Rz_AddBitmaps(&r, 164, lists[i].get(), 1)
                        : Rz_AddWeightedBitmaps(&r, 164, good.get(), w, 1), -13) << i;
        EXPECT_TRUE(r.uStructSize == BITMAPDESC_SIZE && KrnMemOutstanding() == start) << i;
    }
}

} // namespace
} // namespace rz::test
