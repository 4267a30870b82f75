// Blends, Rz_CombineBitmapExt and the list sums against a naive per-pixel
// reference (pixels read with KrnGetPixel, each formula written out here)
// on every directly addressable layout, with offsets that clip on each side,
// masks, tiled textures, flags, regions, views and the same bitmap twice;
// plus hand-worked values and the documented refusals. Beside OpenCV on
// 8-bit grey and 24-bit images of several shapes (1 x N and N x 1 among
// them): logic, saturating sums and differences, absolute difference,
// minimum and maximum exactly; the product, which OpenCV rounds and we
// truncate, and the blend, which OpenCV rounds in floating point and we
// floor in 256ths, within one level and never above the peer.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#ifdef RZ_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

namespace rz::test {
namespace {

constexpr int32_t kW = 23, kH = 17;

// The rectangle geometry of one call.
struct Geometry {
    int32_t x, y, w, h, sx, sy;
};
const Geometry kGeometries[] = {
    {0, 0, INT32_MAX, INT32_MAX, 0, 0}, {3, 2, 9, 7, 5, 1}, {-4, 3, 12, 20, 2, -5}, {20, 15, 10, 10, 0, 0},
};

// The new destination pixel from d, s and the mask and texture pixels.
using PixelFn = std::function<void(Channels &d, const Channels &s, const Channels &m, const Channels &t)>;
using ChannelFn = std::function<uint32_t(uint32_t d, uint32_t s, uint32_t m, uint32_t t, uint32_t max)>;
PixelFn PerChannel(ChannelFn f) {
    return [f](Channels &d, const Channels &s, const Channels &m, const Channels &t) {
        for (int c = 0; c < d.count; ++c) d.v[c] = f(d.v[c], s.v[c], m.v[c], t.v[c], d.max());
    };
}

struct Inputs {
    const Bitmap *mask = nullptr, *texture = nullptr;
    RzPoint offset{};
};

// Destination pixel (x, y) is in the area when it and its source pixel lie
// inside their bitmaps and the rectangle; the area's top-left indexes the
// mask, which blends nothing when smaller than the area.
Bitmap Expected(const Bitmap &dst, const Bitmap &src, const Geometry &g, const Inputs &in, const PixelFn &fn) {
    Bitmap out(dst);
    const int64_t offX = int64_t(g.sx) - g.x, offY = int64_t(g.sy) - g.y;
    auto inside = [&](int64_t x, int64_t y) {
        return x >= g.x && x < int64_t(g.x) + g.w && y >= g.y && y < int64_t(g.y) + g.h && x + offX >= 0 &&
               x + offX < src->nWidth && y + offY >= 0 && y + offY < src->nHeight;
    };
    int32_t left = INT32_MAX, top = INT32_MAX, right = -1, bottom = -1;
    for (int32_t y = 0; y < dst->nHeight; ++y)
        for (int32_t x = 0; x < dst->nWidth; ++x)
            if (inside(x, y)) {
                left = std::min(left, x), top = std::min(top, y);
                right = std::max(right, x + 1), bottom = std::max(bottom, y + 1);
            }
    if (right < 0) return out;
    if (in.mask && ((*in.mask)->nWidth < right - left || (*in.mask)->nHeight < bottom - top)) return out;
    for (int32_t y = top; y < bottom; ++y)
        for (int32_t x = left; x < right; ++x) {
            Channels d = ReadChannels(dst, x, y), m, t;
            const Channels s = ReadChannels(src, int32_t(x + offX), int32_t(y + offY));
            if (in.mask) m = ReadChannels(*in.mask, x - left, y - top);
            if (in.texture) {
                const int32_t tw = (*in.texture)->nWidth, th = (*in.texture)->nHeight;
                t = ReadChannels(*in.texture, ((in.offset.x + x - left) % tw + tw) % tw,
                                 ((in.offset.y + y - top) % th + th) % th);
            }
            fn(d, s, m, t);
            WriteChannels(out, x, y, d);
        }
    return out;
}

int64_t Floor(int64_t v, int shift) { return v >= 0 ? v >> shift : -((-v + (int64_t(1) << shift) - 1) >> shift); }
uint32_t Lerp(uint32_t d, uint32_t s, int64_t w, uint32_t max) {
    const int shift = max == 255 ? 8 : 16;
    return uint32_t(Floor((int64_t(s) - d) * w + (int64_t(d) << shift), shift));
}

void ExpectSame(const Bitmap &got, const Bitmap &want, const std::string &what) {
    for (int32_t y = 0; y < got->nHeight; ++y)
        for (int32_t x = 0; x < got->nWidth; ++x)
            ASSERT_EQ(got.pixel(x, y), want.pixel(x, y)) << what << " at " << x << "," << y;
}

// Opacity in working units for same-layout pairs: 12-bit grey is x16.
int64_t Working(int32_t o, const Bitmap &b) { return b->nBitsPerPixel == 12 ? int64_t(o) * 16 : o; }

TEST(Blend, MatchesTheReferenceOnEveryLayout) {
    uint32_t seed = 100;
    for (const char *name : DirectLayouts()) {
        const Layout &layout = FindLayout(name);
        const Bitmap dst(layout, kW, kH, seed++), src(layout, kW - 3, kH + 2, seed++);
        Bitmap mask(layout, 16, 16, seed++), texture(layout, 5, 3, seed++);
        const int32_t limit = layout.bits == 12 ? 4095 : (layout.bits == 16 || layout.bits >= 48 ? 65535 : 255);
        const RzPoint offset{-7, 4};
        for (const Geometry &g : kGeometries) {
            auto check = [&](const std::string &what, auto call, const Inputs &in, const PixelFn &fn) {
                Bitmap got(dst), copy(src);
                ASSERT_EQ(call(got.get(), copy.get()), 1) << what;
                ExpectSame(got, Expected(dst, src, g, in, fn),
                           std::string(name) + " " + what + " at " + std::to_string(g.x) + "," + std::to_string(g.y));
            };
            for (int32_t o : {0, 1, limit / 2, limit}) {
                const int64_t w = Working(o, dst);
                check("alpha " + std::to_string(o),
                      [&](BitmapDesc *d, BitmapDesc *s) { return Rz_AlphaBlendBitmap(d, g.x, g.y, g.w, g.h, s, g.sx, g.sy, o); },
                      {}, PerChannel([w](auto d, auto s, auto, auto, auto M) { return w == 0 ? d : Lerp(d, s, w, M); }));
            }
            check("feather",
                  [&](BitmapDesc *d, BitmapDesc *s) {
                      return Rz_FeatherAlphaBlendBitmap(d, g.x, g.y, g.w, g.h, s, g.sx, g.sy, mask.get());
                  },
                  {&mask}, PerChannel([](auto d, auto s, auto m, auto, auto M) { return Lerp(d, s, m, M); }));
            // The texture sample, less half the range, moves the mask sample.
            const int32_t o = limit * 3 / 4;
            const int64_t w = Working(o, dst);
            for (bool withTexture : {false, true})
                check(withTexture ? "texture" : "texture, mask only",
                      [&](BitmapDesc *d, BitmapDesc *s) {
                          return Rz_TextureAlphaBlendBitmap(d, g.x, g.y, g.w, g.h, s, g.sx, g.sy, mask.get(), o,
                                                            withTexture ? texture.get() : nullptr, &offset);
                      },
                      {&mask, withTexture ? &texture : nullptr, offset},
                      PerChannel([&](uint32_t d, uint32_t s, uint32_t m, uint32_t t, uint32_t M) {
                          int64_t mm = m;
                          if (withTexture) mm = std::clamp<int64_t>(mm + t - (M + 1) / 2, 0, M);
                          return mm >= M ? d : Lerp(d, Lerp(s, d, mm, M), w, M);
                      }));
        }
    }
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

// The whole combine word worked per pixel: channel selectors (red, green,
// blue fields; working channels are blue, green, red), value handling of the
// source and destination, the operation and the result handling.
PixelFn CombineRef(uint32_t flags) {
    return [flags](Channels &d, const Channels &s, const Channels &, const Channels &) {
        const uint32_t M = d.max();
        Channels sel = s;
        for (int c = 0; c < d.count && d.count == 3; ++c) {
            const uint32_t v = (flags >> (16 + 4 * (2 - c))) & 0xF;
            sel.v[c] = v == 0 ? s.v[c] : s.v[3 - v];
        }
        auto prepare = [&](Channels &p, uint32_t how) {
            if ((how & 2) && p.count == 3) {
                const uint32_t y = (3735 * p.v[0] + 19235 * p.v[1] + 9798 * p.v[2] + 16384) >> 15;
                p.v[0] = p.v[1] = p.v[2] = y;
            }
            if (how & 1)
                for (int c = 0; c < p.count; ++c) p.v[c] = M - p.v[c];
        };
        prepare(sel, flags & 0xF);
        prepare(d, (flags >> 4) & 0xF);
        const uint32_t res = (flags >> 12) & 0xF;
        for (int c = 0; c < d.count; ++c) {
            const uint32_t r = Operate((flags >> 8) & 0xF, sel.v[c], d.v[c], M);
            d.v[c] = res == 2 ? sel.v[c] : res == 3 ? d.v[c] : res == 1 ? M - r : r;
        }
    };
}

TEST(Combine, EveryFlagWordMatchesTheReference) {
    std::vector<uint32_t> words;
    for (uint32_t op = 0; op <= 0xC; ++op) words.insert(words.end(), {op << 8, op << 8 | CBF_RES_INVERT});
    const uint32_t colourOnly = 0x0FF00000u;
    words.insert(words.end(), {
        CBF_SUBTRACT_SRC | CBF_SRC_INVERT, CBF_ADD | CBF_DST_INVERT | CBF_RES_INVERT, CBF_MAX | CBF_SRC_GREY,
        CBF_MIN | CBF_DST_GREY_INVERT, CBF_RES_DEST | CBF_DST_INVERT,
        CBF_RES_SOURCE | CBF_SELECT_RED(CBF_CHANNEL_BLUE) | CBF_SELECT_BLUE(CBF_CHANNEL_RED),
        CBF_AVERAGE | CBF_SELECT_GREEN(CBF_CHANNEL_RED) | CBF_SRC_GREY_INVERT,
    });
    uint32_t seed = 300;
    for (const char *name : DirectLayouts()) {
        const Layout &layout = FindLayout(name);
        Bitmap dst(layout, kW, kH, seed++), src(layout, kW + 4, kH - 5, seed++);
        // Zeros reach the divisions' special cases.
        dst.setPixel(4, 3, 0);
        src.setPixel(6, 2, 0);
        for (const Geometry &g : kGeometries)
            for (uint32_t flags : words) {
                if (layout.order == KRN_ORDER_GRAY && (flags & colourOnly)) continue;
                Bitmap got(dst), copy(src);
                ASSERT_EQ(Rz_CombineBitmapExt(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, flags), 1);
                ExpectSame(got, Expected(dst, src, g, {}, CombineRef(flags)),
                           std::string(name) + " flags " + std::to_string(flags) + " at " + std::to_string(g.x));
            }
    }
}

TEST(Combine, SameBitmapReadsTheOriginalPixels) {
    const Bitmap original(FindLayout("bgr24"), kW, kH, 5);
    Bitmap b(original);
    ASSERT_EQ(Rz_CombineBitmapExt(b.get(), 2, 1, kW, kH, b.get(), 0, 0, CBF_ADD), 1);
    ExpectSame(b, Expected(original, original, {2, 1, kW, kH, 0, 0}, {}, CombineRef(CBF_ADD)), "overlapping add");
    // A second descriptor of the same pixels counts as the same bitmap.
    Bitmap c(original);
    BitmapDesc alias = *c.get();
    ASSERT_EQ(Rz_AlphaBlendBitmap(c.get(), 0, 3, kW, kH, &alias, 0, 0, 200), 1);
    ExpectSame(c, Expected(original, original, {0, 3, kW, kH, 0, 0}, {}, PerChannel([](auto d, auto s, auto, auto, auto M) {
                               return Lerp(d, s, 200, M);
                           })),
               "overlapping blend");
}

TEST(Combine, RegionsViewsAndNothingOverlapping) {
    const Layout &layout = FindLayout("rgb24");
    const Bitmap dst(layout, kW, kH, 21), src(layout, kW, kH, 22);
    {
        // The source region, moved by the origins' difference, and the
        // destination's region both limit the change.
        Bitmap got(dst), copy(src);
        const RzRect srcRegion{4, 2, 12, 9}, dstRegion{0, 0, 10, kH};
        ASSERT_EQ(DisSetRegionRect(copy.get(), &srcRegion, DIS_RGN_SET), 1);
        ASSERT_EQ(DisSetRegionRect(got.get(), &dstRegion, DIS_RGN_SET), 1);
        ASSERT_EQ(Rz_CombineBitmapExt(got.get(), 1, 3, kW, kH, copy.get(), 0, 0, CBF_XOR), 1);
        const Bitmap all = Expected(dst, src, {1, 3, kW, kH, 0, 0}, {}, CombineRef(CBF_XOR));
        for (int32_t y = 0; y < kH; ++y)
            for (int32_t x = 0; x < kW; ++x) {
                const bool inSource = x - 1 >= 4 && x - 1 < 12 && y - 3 >= 2 && y - 3 < 9;
                EXPECT_EQ(got.pixel(x, y), (inSource && x < 10 ? all : dst).pixel(x, y)) << x << "," << y;
            }
    }
    {
        // Views are worked as the picture is stored and given back.
        Bitmap got(dst), copy(src);
        KrnChangeViewPerspective(nullptr, got.get(), BITMAPDESC_SIZE, 6, 0);
        KrnChangeViewPerspective(nullptr, copy.get(), BITMAPDESC_SIZE, 3, 0);
        ASSERT_EQ(Rz_CombineBitmapExt(got.get(), 0, 0, kW, kH, copy.get(), 0, 0, CBF_XOR), 1);
        EXPECT_EQ(got->nViewPerspective, 6);
        EXPECT_EQ(copy->nViewPerspective, 3);
        KrnChangeViewPerspective(nullptr, got.get(), BITMAPDESC_SIZE, 1, 0);
        ExpectSame(got, Expected(dst, src, {0, 0, kW, kH, 0, 0}, {}, CombineRef(CBF_XOR)), "views");
    }
    // Wholly outside, huge offsets, empty sizes: success, nothing changed.
    for (const Geometry &g : {Geometry{kW, 0, 5, 5, 0, 0}, Geometry{0, 0, 5, 5, -kW, 0},
                              Geometry{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX, INT32_MAX, 0},
                              Geometry{INT32_MAX, 0, INT32_MAX, 1, INT32_MIN, 0}, Geometry{0, 0, 0, 5, 0, 0}}) {
        Bitmap got(dst), copy(src);
        EXPECT_EQ(Rz_CombineBitmapExt(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, CBF_XOR), 1);
        EXPECT_EQ(Rz_AlphaBlendBitmap(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, 100), 1);
        EXPECT_EQ(got.storedBytes(), dst.storedBytes());
    }
}

TEST(Blend, HandWorkedValuesAndRefusals) {
    struct Case {
        uint8_t d, s;
        int32_t opacity;
        uint64_t want;
    };
    for (const Case &c : {Case{100, 200, 255, 199}, Case{200, 100, 128, 150}, Case{7, 250, 0, 7}, Case{0, 255, 1, 0}}) {
        Bitmap d = GreyBitmap(1, 1, {c.d}), s = GreyBitmap(1, 1, {c.s});
        ASSERT_EQ(Rz_AlphaBlendBitmap(d.get(), 0, 0, 1, 1, s.get(), 0, 0, c.opacity), 1);
        EXPECT_EQ(d.pixel(0, 0), c.want) << int(c.d) << " " << int(c.s) << " " << c.opacity;
    }
    // The opacity's limit follows the pair's working depth.
    struct Range {
        const char *dst, *src;
        int32_t limit;
    };
    for (const Range &r : {Range{"grey8", "bgr48", 255}, Range{"grey12", "grey16", 4095}, Range{"grey16", "grey8", 65535},
                           Range{"bgr48", "bgr24", 255}, Range{"bgr48", "grey12", 4095}, Range{"bgr64", "bgr48", 65535},
                           Range{"pal4_colour", "grey16", 255}}) {
        Bitmap d(FindLayout(r.dst), 3, 3, 1), s(FindLayout(r.src), 3, 3, 2);
        EXPECT_EQ(Rz_AlphaBlendBitmap(d.get(), 0, 0, 3, 3, s.get(), 0, 0, r.limit), 1) << r.dst << " " << r.src;
        EXPECT_EQ(Rz_AlphaBlendBitmap(d.get(), 0, 0, 3, 3, s.get(), 0, 0, r.limit + 1), ST_INVALID_PARAMETER);
        EXPECT_EQ(Rz_TextureAlphaBlendBitmap(d.get(), 0, 0, 3, 3, s.get(), 0, 0, nullptr, -1, nullptr, nullptr),
                  ST_INVALID_PARAMETER);
    }
    Bitmap d = GreyBitmap(1, 1, {10}), s = GreyBitmap(1, 1, {20}), small = GreyBitmap(1, 1, {0});
    // A texture needs its offset.
    EXPECT_EQ(Rz_TextureAlphaBlendBitmap(d.get(), 0, 0, 1, 1, s.get(), 0, 0, small.get(), 9, small.get(), nullptr),
              ST_INVALID_PARAMETER);
    // A mask or texture without pixels is not used by the texture blend.
    Bitmap unallocated = GreyBitmap(1, 1, {0});
    unallocated->uFlags &= ~BMF_ALLOCATED;
    EXPECT_EQ(Rz_TextureAlphaBlendBitmap(d.get(), 0, 0, 1, 1, s.get(), 0, 0, unallocated.get(), 255, nullptr, nullptr), 1);
    unallocated->uFlags |= BMF_ALLOCATED;
    EXPECT_EQ(d.pixel(0, 0), 19u); // the plain blend at 255
    // Every nibble the combine reads, one past its values, even on an empty rectangle.
    for (uint32_t bad : {0x4u, 0x40u, 0xD00u, 0x4000u, 0x40000u, 0x400000u, 0x4000000u}) {
        EXPECT_EQ(Rz_CombineBitmapExt(d.get(), 0, 0, 1, 1, s.get(), 0, 0, bad), ST_INVALID_PARAMETER) << bad;
        EXPECT_EQ(Rz_CombineBitmapExt(d.get(), 0, 0, 0, 0, s.get(), 0, 0, bad), ST_INVALID_PARAMETER) << bad;
    }
}

// ---- Bitmap lists and their sums ---------------------------------------------

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

TEST(BitmapList, OwnsOnlyItsCopies) {
    const int64_t start = KrnMemOutstanding();
    {
        std::vector<Bitmap> bitmaps;
        bitmaps.emplace_back(FindLayout("bgr24"), 5, 4, 1);
        bitmaps.emplace_back(FindLayout("pal4_colour"), 3, 2, 2);
        const auto stored = bitmaps[0].storedBytes();
        const int64_t withBitmaps = KrnMemOutstanding();
        ListPtr list = MakeList(bitmaps);
        ASSERT_EQ(KrnAppendBitmapList(list.get(), bitmaps[1].get(), KRN_LIST_COPY), 1);
        uint32_t n = 0;
        ASSERT_EQ(KrnGetBitmapListCount(list.get(), &n), 1);
        EXPECT_EQ(n, 3u);
        BitmapDesc *item = nullptr;
        ASSERT_EQ(KrnGetBitmapListItem(list.get(), 0, &item), 1);
        EXPECT_EQ(item, bitmaps[0].get());
        ASSERT_EQ(KrnGetBitmapListItem(list.get(), 2, &item), 1);
        EXPECT_NE(item, bitmaps[1].get());
        EXPECT_EQ(item->nColors, bitmaps[1]->nColors);
        EXPECT_EQ(KrnGetBitmapListItem(list.get(), 3, &item), KRN_INVALID_PARAMETER);
        EXPECT_EQ(KrnAppendBitmapList(list.get(), bitmaps[0].get(), 2), KRN_INVALID_PARAMETER);
        list.reset();
        EXPECT_EQ(KrnMemOutstanding(), withBitmaps); // the referenced bitmaps are untouched
        EXPECT_EQ(bitmaps[0].storedBytes(), stored);
    }
    EXPECT_EQ(KrnMemOutstanding(), start);
}

// round(v / d), halves away from zero.
int64_t RoundDiv(int64_t v, int64_t d) {
    const int64_t q = ((v < 0 ? -v : v) + d / 2) / d;
    return v < 0 ? -q : q;
}

TEST(AddBitmaps, MatchTheReference) {
    uint32_t seed = 60;
    const int32_t weights[3] = {700, -250, 900};
    for (const char *name : DirectLayouts()) {
        std::vector<Bitmap> bitmaps;
        for (int i = 0; i < 3; ++i) bitmaps.emplace_back(FindLayout(name), 11, 7, seed++);
        ListPtr list = MakeList(bitmaps);
        for (int variant = 0; variant < 4; ++variant) {
            Bitmap r = OutputBitmap();
            ASSERT_EQ(variant < 2 ? Rz_AddBitmaps(r.get(), BITMAPDESC_SIZE, list.get(), variant + 1)
                                  : Rz_AddWeightedBitmaps(r.get(), BITMAPDESC_SIZE, list.get(), weights, variant - 2),
                      1) << name << " " << variant;
            ASSERT_EQ(r->nBitsPerPixel, bitmaps[0]->nBitsPerPixel);
            Bitmap want(bitmaps[0]);
            for (int32_t y = 0; y < 7; ++y)
                for (int32_t x = 0; x < 11; ++x) {
                    Channels out = ReadChannels(bitmaps[0], x, y);
                    for (int c = 0; c < out.count; ++c) {
                        int64_t sum = 0;
                        for (int k = 0; k < 3; ++k)
                            sum += int64_t(variant < 2 ? 1 : weights[k]) * ReadChannels(bitmaps[k], x, y).v[c];
                        const int64_t v = variant == 0 ? sum / 3
                                          : variant == 1 ? sum
                                                         : RoundDiv(sum, variant == 2 ? 1000 : 700 - 250 + 900);
                        out.v[c] = uint32_t(std::clamp<int64_t>(v, 0, out.max()));
                    }
                    WriteChannels(want, x, y, out);
                }
            ExpectSame(r, want, std::string(name) + " variant " + std::to_string(variant));
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
    std::vector<Bitmap> none;
    ListPtr empty = MakeList(none);
    const int32_t zeroSum[2] = {500, -500}, big[2] = {100001, 0};
    const int64_t start = KrnMemOutstanding();
    const std::pair<const char *, std::function<int32_t(BitmapDesc *)>> cases[] = {
        {"empty list", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, empty.get(), 1); }},
        {"flags 3", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, good.get(), 3); }},
        {"flags 0", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, good.get(), 0); }},
        {"sizes", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, badSize.get(), 1); }},
        {"depths", [&](BitmapDesc *r) { return Rz_AddBitmaps(r, 164, badDepth.get(), 2); }},
        {"null weights", [&](BitmapDesc *r) { return Rz_AddWeightedBitmaps(r, 164, good.get(), nullptr, 0); }},
        {"weights sum 0", [&](BitmapDesc *r) { return Rz_AddWeightedBitmaps(r, 164, good.get(), zeroSum, 1); }},
        {"weight range", [&](BitmapDesc *r) { return Rz_AddWeightedBitmaps(r, 164, good.get(), big, 0); }},
    };
    for (const auto &[what, call] : cases) {
        BitmapDesc r;
        std::memset(&r, 0xCD, sizeof r);
        EXPECT_EQ(call(&r), ST_INVALID_PARAMETER) << what;
        EXPECT_EQ(r.uStructSize, BITMAPDESC_SIZE) << what;
        EXPECT_EQ(KrnMemOutstanding(), start) << what;
    }
    // One bitmap: its copy, palette and all.
    Bitmap r = OutputBitmap();
    ASSERT_EQ(Rz_AddBitmaps(r.get(), 164, single.get(), RZ_ADD_AVERAGE), 1);
    ASSERT_EQ(r->nColors, one[0]->nColors);
    ExpectSame(r, one[0], "single");
}

#ifdef RZ_HAVE_OPENCV
cv::Mat AsMat(Bitmap &b) {
    return cv::Mat(b->nHeight, b->nWidth, b->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, b->pData, b->nStride);
}

struct Peer {
    uint32_t flags;
    std::function<void(const cv::Mat &s, const cv::Mat &d, cv::Mat &out)> peer;
    int tolerance; // 0 exact; 1: within one level and not above the peer
};

TEST(OpenCVCombine, OperationsMatchThePeer) {
    cv::setNumThreads(1);
    const Peer peers[] = {
        {CBF_AND, [](auto &s, auto &d, auto &o) { cv::bitwise_and(s, d, o); }, 0},
        {CBF_OR, [](auto &s, auto &d, auto &o) { cv::bitwise_or(s, d, o); }, 0},
        {CBF_XOR, [](auto &s, auto &d, auto &o) { cv::bitwise_xor(s, d, o); }, 0},
        {CBF_ADD, [](auto &s, auto &d, auto &o) { cv::add(s, d, o); }, 0},
        {CBF_SUBTRACT_SRC, [](auto &s, auto &d, auto &o) { cv::subtract(d, s, o); }, 0},
        {CBF_SUBTRACT_DST, [](auto &s, auto &d, auto &o) { cv::subtract(s, d, o); }, 0},
        {CBF_ABSDIFF, [](auto &s, auto &d, auto &o) { cv::absdiff(s, d, o); }, 0},
        {CBF_MIN, [](auto &s, auto &d, auto &o) { cv::min(s, d, o); }, 0},
        {CBF_MAX, [](auto &s, auto &d, auto &o) { cv::max(s, d, o); }, 0},
        {CBF_MULTIPLY, [](auto &s, auto &d, auto &o) { cv::multiply(s, d, o, 1.0 / 255); }, 1},
    };
    uint32_t seed = 9;
    for (const char *layout : {"grey8", "bgr24"})
        for (auto [w, h] : {std::pair{1, 1}, std::pair{1, 37}, std::pair{41, 1}, std::pair{77, 53}}) {
            Bitmap dst(FindLayout(layout), w, h, seed++), src(FindLayout(layout), w, h, seed++);
            const cv::Mat s = AsMat(src).clone(), d = AsMat(dst).clone();
            for (const Peer &p : peers) {
                Bitmap got(dst);
                ASSERT_EQ(Rz_CombineBitmapExt(got.get(), 0, 0, w, h, src.get(), 0, 0, p.flags), 1);
                cv::Mat want;
                p.peer(s, d, want);
                const cv::Mat mine = AsMat(got);
                EXPECT_LE(cv::norm(mine, want, cv::NORM_INF), p.tolerance) << layout << " flags " << p.flags;
                EXPECT_EQ(cv::countNonZero(cv::Mat(mine > want).reshape(1)), 0) << layout << " flags " << p.flags;
            }
            for (int opacity : {1, 64, 200, 255}) {
                Bitmap got(dst);
                ASSERT_EQ(Rz_AlphaBlendBitmap(got.get(), 0, 0, w, h, src.get(), 0, 0, opacity), 1);
                cv::Mat want;
                cv::addWeighted(s, opacity / 256.0, d, 1 - opacity / 256.0, 0, want);
                const cv::Mat mine = AsMat(got);
                EXPECT_LE(cv::norm(mine, want, cv::NORM_INF), 1) << layout << " opacity " << opacity;
                EXPECT_EQ(cv::countNonZero(cv::Mat(mine > want).reshape(1)), 0) << layout << " opacity " << opacity;
            }
        }
}
#endif

} // namespace
} // namespace rz::test
