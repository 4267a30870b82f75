// The effects' references read and write pixels one at a time through the
// kernel (KrnGetPixel), turning each stored value into the channel values
// an effect works on by the layout's documented rules, and back: palettes
// to their entries and back to the nearest entry, deep grey to its
// significant bits (oilify: their high byte), 16-bit channels to themselves
// (oilify: the high byte, back times 257). A result is compared pixel by
// pixel: inside the region the stored value the reference predicts, outside
// it the original.
#pragma once

#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace rz::test {

using Values = std::array<int64_t, 3>; // blue, green, red; grey in [0]

struct Plane {
    int32_t w = 0, h = 0, channels = 1;
    std::vector<Values> px;
    Values &at(int64_t x, int64_t y) { return px[size_t(y) * w + x]; }
    const Values &at(int64_t x, int64_t y) const { return px[size_t(y) * w + x]; }
    // Edge replication.
    const Values &clamped(int64_t x, int64_t y) const {
        return at(std::clamp<int64_t>(x, 0, w - 1), std::clamp<int64_t>(y, 0, h - 1));
    }
};

class DirectPixels {
  public:
    // narrow: 8 bits a channel whatever the depth, as oilify works.
    DirectPixels(const BitmapDesc *b, bool narrow) : b_(b), narrow_(narrow) {
        bits_ = b->nBitsPerPixel;
        grey_ = b->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(b);
        if (bits_ <= 8 && !(bits_ == 8 && b->nColorOrder == KRN_ORDER_GRAY)) {
            pal_.resize(size_t(b->nColors));
            KrnGetBitmapPalette(b, 0, b->nColors, pal_.data());
        }
        if (bits_ == 12 || bits_ == 16) {
            low_ = b->nLowBit;
            count_ = (b->nHighBit < 0 ? bits_ - 1 : b->nHighBit) - low_ + 1;
        }
    }
    int32_t channels() const { return grey_ ? 1 : 3; }

    Values read(int32_t x, int32_t y) const { return decode(raw(x, y)); }

    Plane plane() const {
        Plane p{b_->nWidth, b_->nHeight, channels(), {}};
        for (int32_t y = 0; y < p.h; ++y)
            for (int32_t x = 0; x < p.w; ++x) p.px.push_back(read(x, y));
        return p;
    }

    // The stored value after writing v over a pixel that held `old`.
    uint64_t stored(uint64_t old, const Values &v) const {
        if (!pal_.empty()) {
            const Values c = grey_ ? Values{v[0], v[0], v[0]} : v;
            int64_t best = INT64_MAX, index = 0;
            for (size_t i = 0; i < pal_.size(); ++i) {
                const int64_t db = c[0] - pal_[i].rgbBlue, dg = c[1] - pal_[i].rgbGreen, dr = c[2] - pal_[i].rgbRed;
                const int64_t d = db * db + dg * dg + dr * dr;
                if (d < best) best = d, index = int64_t(i);
            }
            return uint64_t(index);
        }
        if (bits_ <= 8) return uint64_t(v[0]);
        if (bits_ <= 16) {
            const uint64_t mask = (uint64_t(1) << count_) - 1;
            const uint64_t s = narrow_ ? (uint64_t(v[0]) * 257) >> (16 - count_) : uint64_t(v[0]);
            return (old & ~(mask << low_)) | (s << low_);
        }
        const int step = bits_ >= 48 ? 16 : 8;
        const uint64_t one = (uint64_t(1) << step) - 1;
        uint64_t out = old & (one << (3 * step)); // the fourth channel stays
        for (int c = 0; c < 3; ++c) {
            const uint64_t s = narrow_ && step == 16 ? uint64_t(v[c]) * 257 : uint64_t(v[c]);
            out |= s << ((2 - c) * step); // red in the low bits
        }
        return out;
    }

  private:
    uint64_t raw(int32_t x, int32_t y) const {
        uint64_t v = 0;
        EXPECT_EQ(KrnGetPixel(b_, x, y, &v), 1);
        return v;
    }
    Values decode(uint64_t v) const {
        if (!pal_.empty()) {
            const RzRGBQuad &e = pal_[std::min<size_t>(v, pal_.size() - 1)];
            return grey_ ? Values{e.rgbGreen, 0, 0} : Values{e.rgbBlue, e.rgbGreen, e.rgbRed};
        }
        if (bits_ <= 8) return {int64_t(v), 0, 0};
        if (bits_ <= 16) {
            const uint64_t s = (v >> low_) & ((uint64_t(1) << count_) - 1);
            return {int64_t(narrow_ ? (s << (16 - count_)) >> 8 : s), 0, 0};
        }
        const int step = bits_ >= 48 ? 16 : 8;
        const uint64_t one = (uint64_t(1) << step) - 1;
        Values out{};
        for (int c = 0; c < 3; ++c) {
            const uint64_t s = (v >> ((2 - c) * step)) & one;
            out[c] = int64_t(narrow_ && step == 16 ? s >> 8 : s);
        }
        return out;
    }

    const BitmapDesc *b_;
    bool narrow_;
    int32_t bits_ = 0, low_ = 0, count_ = 0;
    bool grey_ = false;
    std::vector<RzRGBQuad> pal_;
};

// Pixels of the current view inside the region (all without one).
inline std::vector<std::vector<bool>> RegionMask(const BitmapDesc *b) {
    std::vector<std::vector<bool>> in(size_t(b->nHeight), std::vector<bool>(size_t(b->nWidth), true));
    if (!b->pRegion) return in;
    uint32_t cap = 0;
    DisGetRegionMaskSize(b, &cap);
    std::vector<int32_t> spans(std::max<uint32_t>(cap, 2));
    for (int32_t y = 0; y < b->nHeight; ++y) {
        std::fill(in[y].begin(), in[y].end(), false);
        uint32_t n = 0;
        EXPECT_EQ(DisGetRegionRowSpans(b, y, spans.data(), &n), 1);
        for (uint32_t i = 0; i + 1 < n; i += 2)
            for (int32_t x = std::max(spans[i], 0); x < std::min(spans[i + 1], b->nWidth); ++x) in[y][x] = true;
    }
    return in;
}

// `after` must hold the reference's values inside the region and the
// original pixels elsewhere.
inline void ExpectResult(const Bitmap &before, const Bitmap &after, const Plane &want, bool narrow) {
    const DirectPixels direct(before.get(), narrow);
    const auto inside = RegionMask(before.get());
    int failures = 0;
    for (int32_t y = 0; y < want.h && failures < 5; ++y)
        for (int32_t x = 0; x < want.w && failures < 5; ++x) {
            const uint64_t old = before.pixel(x, y);
            const uint64_t expect = inside[y][x] ? direct.stored(old, want.at(x, y)) : old;
            if (after.pixel(x, y) != expect) {
                ADD_FAILURE() << "pixel " << x << "," << y << ": " << after.pixel(x, y) << ", want " << expect;
                ++failures;
            }
        }
}

// Bitmaps for the reference runs: every layout, edge shapes and a larger
// one, without a region, with an ellipse touching the left and top edges
// and with a rectangle inside, in views 1, 3 and 6.
struct Setting {
    const Layout *layout;
    int32_t w, h, region, view;
};
inline std::vector<Setting> ReferenceSettings() {
    std::vector<Setting> out;
    const std::pair<int32_t, int32_t> shapes[] = {{1, 1}, {1, 7}, {8, 1}, {13, 11}};
    const int32_t views[] = {1, 3, 6};
    for (const Layout &layout : AllLayouts())
        for (int shape = 0; shape < 4; ++shape)
            for (int region = 0; region < 3; ++region)
                out.push_back({&layout, shapes[shape].first, shapes[shape].second, region, views[(shape + region) % 3]});
    return out;
}

// Twice with the same seed gives the same pixels and region (a copy of a
// bitmap drops its region). The region's answers are asked for once, so
// that what it caches is not counted against an operation.
inline Bitmap Make(const Setting &s, uint32_t seed) {
    Bitmap b(*s.layout, s.w, s.h, seed);
    if (s.view != 1) KrnChangeViewPerspective(nullptr, b.get(), BITMAPDESC_SIZE, s.view, 0);
    const int32_t w = b->nWidth, h = b->nHeight;
    if (s.region == 1) {
        const RzRect r{-w / 3, -h / 4, w * 2 / 3 + 1, h * 3 / 4 + 1};
        DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET);
    } else if (s.region == 2) {
        const RzRect r{w / 3, h / 4, w - w / 5, h};
        DisSetRegionRect(b.get(), &r, DIS_RGN_SET);
    }
    RegionMask(b.get());
    return b;
}

} // namespace rz::test
