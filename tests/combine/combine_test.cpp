// Blends and Rz_CombineBitmapExt against a naive per-pixel reference on
// every directly addressable layout, with offsets that clip on each side,
// masks, tiled textures, flag variants, regions, views and the same bitmap
// passed twice; plus the documented hand-worked values and refusals.
#include "combine/combine_ref.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

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

// Destination pixel (x, y) is in the area when it and its source pixel lie
// inside their bitmaps and the rectangle; the area's top-left indexes the mask.
struct AreaRef {
    int32_t left = INT32_MAX, top = INT32_MAX, right = -1, bottom = -1;
    int32_t offX, offY;
    bool contains(const Geometry &g, int32_t x, int32_t y, const BitmapDesc *src) const {
        const int64_t sx = int64_t(x) + offX, sy = int64_t(y) + offY;
        return x >= g.x && int64_t(x) < int64_t(g.x) + g.w && y >= g.y && int64_t(y) < int64_t(g.y) + g.h &&
               sx >= 0 && sx < src->nWidth && sy >= 0 && sy < src->nHeight;
    }
};

AreaRef FindArea(const Geometry &g, const BitmapDesc *dst, const BitmapDesc *src) {
    AreaRef a;
    a.offX = g.sx - g.x;
    a.offY = g.sy - g.y;
    for (int32_t y = 0; y < dst->nHeight; ++y)
        for (int32_t x = 0; x < dst->nWidth; ++x)
            if (a.contains(g, x, y, src)) {
                a.left = std::min(a.left, x);
                a.top = std::min(a.top, y);
                a.right = std::max(a.right, x + 1);
                a.bottom = std::max(a.bottom, y + 1);
            }
    return a;
}

// One channel's new value from d, s and the mask and texture samples.
using ChannelFn = std::function<uint32_t(uint32_t d, uint32_t s, uint32_t m, uint32_t t, uint32_t max)>;

struct Inputs {
    Bitmap *mask = nullptr, *texture = nullptr;
    RzPoint offset{};
};

// Expected destination: every area pixel through fn, unless the mask is
// smaller than the area.
Bitmap Expected(const Bitmap &dst, const Bitmap &src, const Geometry &g, const Inputs &in, const ChannelFn &fn) {
    Bitmap out(dst);
    const AreaRef a = FindArea(g, dst.get(), src.get());
    if (a.right < 0) return out;
    if (in.mask && ((*in.mask)->nWidth < a.right - a.left || (*in.mask)->nHeight < a.bottom - a.top)) return out;
    for (int32_t y = a.top; y < a.bottom; ++y)
        for (int32_t x = a.left; x < a.right; ++x) {
            Channels d = ReadChannels(dst, x, y);
            const Channels s = ReadChannels(src, x + a.offX, y + a.offY);
            Channels m{}, t{};
            if (in.mask) m = ReadChannels(*in.mask, x - a.left, y - a.top);
            if (in.texture) {
                const int32_t tw = (*in.texture)->nWidth, th = (*in.texture)->nHeight;
                t = ReadChannels(*in.texture, ((in.offset.x + x - a.left) % tw + tw) % tw,
                                 ((in.offset.y + y - a.top) % th + th) % th);
            }
            const uint32_t max = d.bits == 16 ? 65535 : 255;
            for (int c = 0; c < d.count; ++c) d.v[c] = fn(d.v[c], s.v[c], m.v[c], t.v[c], max);
            WriteChannels(out, x, y, d);
        }
    return out;
}

int64_t Floor(int64_t v, int shift) { return v >= 0 ? v >> shift : -((-v + (int64_t(1) << shift) - 1) >> shift); }
int Shift(uint32_t max) { return max == 255 ? 8 : 16; }
uint32_t Lerp(uint32_t d, uint32_t s, int64_t w, uint32_t max) {
    return uint32_t(Floor((int64_t(s) - d) * w + (int64_t(d) << Shift(max)), Shift(max)));
}

void ExpectSame(const Bitmap &got, const Bitmap &want, const std::string &what) {
    for (int32_t y = 0; y < got->nHeight; ++y)
        for (int32_t x = 0; x < got->nWidth; ++x)
            ASSERT_EQ(got.pixel(x, y), want.pixel(x, y)) << what << " at " << x << "," << y;
}

// Opacity in working units for same-layout pairs: 12-bit grey is x16.
int64_t Working(int32_t o, const BitmapDesc *b) { return b->nBitsPerPixel == 12 ? int64_t(o) * 16 : o; }

TEST(Blend, MatchesTheReferenceOnEveryLayout) {
    uint32_t seed = 100;
    for (const char *name : kDirectLayouts) {
        const Layout &layout = FindLayout(name);
        const Bitmap dst(layout, kW, kH, seed++), src(layout, kW - 3, kH + 2, seed++);
        Bitmap mask(layout, 16, 16, seed++), texture(layout, 5, 3, seed++);
        const int32_t limit = layout.bits == 12 ? 4095 : (layout.bits == 16 || layout.bits >= 48 ? 65535 : 255);
        for (const Geometry &g : kGeometries) {
            SCOPED_TRACE(std::string(name) + " at " + std::to_string(g.x) + "," + std::to_string(g.y));
            for (int32_t o : {0, 1, limit / 2, limit}) {
                Bitmap got(dst), copy(src);
                ASSERT_EQ(Rz_AlphaBlendBitmap(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, o), 1);
                const int64_t w = Working(o, dst.get());
                ExpectSame(got, Expected(dst, src, g, {}, [&](uint32_t d, uint32_t s, uint32_t, uint32_t, uint32_t M) {
                               return w == 0 ? d : Lerp(d, s, w, M);
                           }), "alpha " + std::to_string(o));
            }
            {
                Bitmap got(dst), copy(src);
                ASSERT_EQ(Rz_FeatherAlphaBlendBitmap(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, mask.get()), 1);
                ExpectSame(got, Expected(dst, src, g, {&mask}, [](uint32_t d, uint32_t s, uint32_t m, uint32_t, uint32_t M) {
                               return Lerp(d, s, m, M);
                           }), "feather");
            }
            for (bool withTexture : {false, true}) {
                Bitmap got(dst), copy(src);
                const RzPoint offset{-7, 4};
                const int32_t o = limit * 3 / 4;
                ASSERT_EQ(Rz_TextureAlphaBlendBitmap(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, mask.get(),
                                                     o, withTexture ? texture.get() : nullptr, &offset),
                          1);
                const int64_t w = Working(o, dst.get());
                Inputs in{&mask, withTexture ? &texture : nullptr, offset};
                ExpectSame(got, Expected(dst, src, g, in, [&](uint32_t d, uint32_t s, uint32_t m, uint32_t t, uint32_t M) {
                               int64_t mm = m;
                               if (withTexture) mm = std::clamp<int64_t>(mm + t - (M + 1) / 2, 0, M);
                               if (mm >= M) return d;
                               const uint32_t tv = Lerp(s, d, mm, M);
                               return Lerp(d, tv, w, M);
                           }), withTexture ? "texture" : "texture, mask only");
            }
        }
    }
}

// One channel of each operation, as the table gives it.
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

TEST(Combine, EveryOperationMatchesTheReference) {
    uint32_t seed = 300;
    for (const char *name : kDirectLayouts) {
        const Layout &layout = FindLayout(name);
        Bitmap dst(layout, kW, kH, seed++), src(layout, kW + 4, kH - 5, seed++);
        // Zeros and equal samples reach the divisions' special cases.
        dst.setPixel(4, 3, 0);
        src.setPixel(6, 2, 0);
        for (const Geometry &g : kGeometries)
            for (uint32_t op = 0; op <= 0xC; ++op) {
                for (uint32_t res : {0u, 1u}) {
                    Bitmap got(dst), copy(src);
                    const uint32_t flags = op << 8 | res << 12;
                    ASSERT_EQ(Rz_CombineBitmapExt(got.get(), g.x, g.y, g.w, g.h, copy.get(), g.sx, g.sy, flags), 1);
                    ExpectSame(got, Expected(dst, src, g, {}, [&](uint32_t d, uint32_t s, uint32_t, uint32_t, uint32_t M) {
                                   const uint32_t r = Operate(op, s, d, M);
                                   return res ? M - r : r;
                               }), std::string(name) + " flags " + std::to_string(flags));
                }
            }
    }
}

// Value handling and channel selectors on a colour pair, worked per pixel.
TEST(Combine, HandlingAndSelectorsMatchTheReference) {
    for (const char *name : {"bgr24", "bgr48", "grey8"}) {
        const Layout &layout = FindLayout(name);
        const Bitmap dst(layout, 9, 6, 11), src(layout, 9, 6, 12);
        const uint32_t cases[] = {
            CBF_SUBTRACT_SRC | CBF_SRC_INVERT,
            CBF_ADD | CBF_DST_INVERT | CBF_RES_INVERT,
            CBF_MAX | CBF_SRC_GREY,
            CBF_MIN | CBF_DST_GREY_INVERT,
            CBF_RES_SOURCE | CBF_SELECT_RED(CBF_CHANNEL_BLUE) | CBF_SELECT_BLUE(CBF_CHANNEL_RED),
            CBF_RES_DEST | CBF_DST_INVERT,
            CBF_AVERAGE | CBF_SELECT_GREEN(CBF_CHANNEL_RED) | CBF_SRC_GREY_INVERT,
        };
        for (uint32_t flags : cases) {
            if (layout.order == KRN_ORDER_GRAY && (flags & 0x0FF00000u)) continue;
            Bitmap got(dst), copy(src);
            ASSERT_EQ(Rz_CombineBitmapExt(got.get(), 0, 0, 9, 6, copy.get(), 0, 0, flags), 1);
            Bitmap want(dst);
            for (int32_t y = 0; y < 6; ++y)
                for (int32_t x = 0; x < 9; ++x) {
                    Channels d = ReadChannels(dst, x, y), s = ReadChannels(src, x, y), sel = s;
                    const uint32_t M = d.bits == 16 ? 65535 : 255;
                    // Working channels are blue, green, red; selectors are red, green, blue.
                    for (int c = 0; c < d.count && d.count == 3; ++c) {
                        const uint32_t v = (flags >> (16 + 4 * (2 - c))) & 0xF;
                        sel.v[c] = v == 0 ? s.v[c] : s.v[3 - v];
                    }
                    auto prepare = [&](Channels &p, uint32_t how) {
                        if ((how & 2) && p.count == 3) {
                            const uint32_t yv = (3735 * p.v[0] + 19235 * p.v[1] + 9798 * p.v[2] + 16384) >> 15;
                            p.v[0] = p.v[1] = p.v[2] = yv;
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
                    WriteChannels(want, x, y, d);
                }
            ExpectSame(got, want, std::string(name) + " flags " + std::to_string(flags));
        }
    }
}

TEST(Combine, SameBitmapReadsTheOriginalPixels) {
    const Bitmap original(FindLayout("bgr24"), kW, kH, 5);
    Bitmap b(original);
    const Geometry g{2, 1, kW, kH, 0, 0};
    ASSERT_EQ(Rz_CombineBitmapExt(b.get(), g.x, g.y, g.w, g.h, b.get(), g.sx, g.sy, CBF_ADD), 1);
    ExpectSame(b, Expected(original, original, g, {}, [](uint32_t d, uint32_t s, uint32_t, uint32_t, uint32_t M) {
                   return std::min(d + s, M);
               }), "overlapping add");
    // A second descriptor of the same pixels counts as the same bitmap.
    Bitmap c(original);
    BitmapDesc alias = *c.get();
    ASSERT_EQ(Rz_AlphaBlendBitmap(c.get(), 0, 3, kW, kH, &alias, 0, 0, 200), 1);
    ExpectSame(c, Expected(original, original, {0, 3, kW, kH, 0, 0}, {},
                           [](uint32_t d, uint32_t s, uint32_t, uint32_t, uint32_t M) { return Lerp(d, s, 200, M); }),
               "overlapping blend");
}

TEST(Combine, RegionsViewsAndNothingOverlapping) {
    const Layout &layout = FindLayout("rgb24");
    const Bitmap dst(layout, kW, kH, 21), src(layout, kW, kH, 22);
    auto xorAll = [](uint32_t d, uint32_t s, uint32_t, uint32_t, uint32_t) { return d ^ s; };
    {
        // The source region, moved by the origins' difference, and the
        // destination's region both limit the change.
        Bitmap got(dst), copy(src);
        const RzRect srcRegion{4, 2, 12, 9}, dstRegion{0, 0, 10, kH};
        ASSERT_EQ(DisSetRegionRect(copy.get(), &srcRegion, DIS_RGN_SET), 1);
        ASSERT_EQ(DisSetRegionRect(got.get(), &dstRegion, DIS_RGN_SET), 1);
        ASSERT_EQ(Rz_CombineBitmapExt(got.get(), 1, 3, kW, kH, copy.get(), 0, 0, CBF_XOR), 1);
        const Bitmap all = Expected(dst, src, {1, 3, kW, kH, 0, 0}, {}, xorAll);
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
        ExpectSame(got, Expected(dst, src, {0, 0, kW, kH, 0, 0}, {}, xorAll), "views");
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

// Documented values and refusals, one row each.
TEST(Blend, HandWorkedValuesAndRefusals) {
    auto grey = [](uint8_t v) { return GreyBitmap(1, 1, {v}); };
    struct Case {
        uint8_t d, s;
        int32_t opacity;
        uint64_t want;
    };
    for (const Case &c : {Case{100, 200, 255, 199}, Case{200, 100, 128, 150}, Case{7, 250, 0, 7}, Case{0, 255, 1, 0}}) {
        Bitmap d = grey(c.d), s = grey(c.s);
        ASSERT_EQ(Rz_AlphaBlendBitmap(d.get(), 0, 0, 1, 1, s.get(), 0, 0, c.opacity), 1);
        EXPECT_EQ(d.pixel(0, 0), c.want) << int(c.d) << " " << int(c.s) << " " << c.opacity;
    }
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
    Bitmap d = grey(10), s = grey(20), small = GreyBitmap(1, 1, {0});
    // A texture needs its offset; a mask smaller than the area blends nothing.
    EXPECT_EQ(Rz_TextureAlphaBlendBitmap(d.get(), 0, 0, 1, 1, s.get(), 0, 0, small.get(), 9, small.get(), nullptr),
              ST_INVALID_PARAMETER);
    Bitmap big(FindLayout("grey8"), 8, 8, 3), big2(FindLayout("grey8"), 8, 8, 4);
    const auto before = big.storedBytes();
    EXPECT_EQ(Rz_FeatherAlphaBlendBitmap(big.get(), 0, 0, 8, 8, big2.get(), 0, 0, small.get()), 1);
    EXPECT_EQ(big.storedBytes(), before);
    // A mask or texture without pixels is not used by the texture blend.
    Bitmap unallocated = grey(0);
    unallocated->uFlags &= ~BMF_ALLOCATED;
    EXPECT_EQ(Rz_TextureAlphaBlendBitmap(d.get(), 0, 0, 1, 1, s.get(), 0, 0, unallocated.get(), 255, nullptr, nullptr), 1);
    unallocated->uFlags |= BMF_ALLOCATED;
    EXPECT_EQ(d.pixel(0, 0), 19u); // the plain blend at 255
    // Every nibble the combine reads, one past its values.
    for (uint32_t bad : {0x4u, 0x40u, 0xD00u, 0x4000u, 0x40000u, 0x400000u, 0x4000000u, 0x10000000u}) {
        EXPECT_EQ(Rz_CombineBitmapExt(d.get(), 0, 0, 1, 1, s.get(), 0, 0, bad), ST_INVALID_PARAMETER) << bad;
        EXPECT_EQ(Rz_CombineBitmapExt(d.get(), 0, 0, 0, 0, s.get(), 0, 0, bad), ST_INVALID_PARAMETER) << bad;
    }
}

} // namespace
} // namespace rz::test
