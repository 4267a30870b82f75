// What every distortion shares: each destination pixel of the processing
// rectangle (the region's bounds, or the whole bitmap) takes the colour found
// at a source position that the member's mapper computes, sampled
// bilinearly from a copy of the rectangle's rows taken before any row
// changes. A mapper is a small functor, inlined into one row loop per
// sample type and channel count; it answers, per pixel, leave it, sample at
// (sx, sy), or the position is out of range (the fill rule decides).
#pragma once

#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "filters/filter_rows.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace rz::dist {

constexpr double kPi = 3.1415926535;
constexpr double kTwoPi = 6.283185307;

// Which status a null descriptor gets, and whether the allocated flag is
// tested before the size (-2 family) or after it (-814 family).
enum class NullCode { NoBitmap, NullPointer };
int32_t CheckDescriptor(const BitmapDesc *bmp, NullCode code);

// Out-of-range rules, flags bits 0-3.
enum Rule : uint32_t { RULE_FILL = 0, RULE_CLAMP = 1, RULE_LEAVE = 2, RULE_WRAP = 3 };
constexpr uint32_t kOption = 0x10;

// Flags with a rule (0..maxRule) and the option 0x10: `checked` masks the
// bits above the rule that must be 0 or 0x10 (a stray bit there gives
// `optionStatus`); a rule above maxRule gives -13.
int32_t CheckFlags(uint32_t flags, uint32_t checked, int32_t optionStatus, uint32_t maxRule, bool optionAllowed);

// The processing rectangle and its half extents, in view 1.
struct Area {
    RzRect rc{};
    int32_t hw = 0, hh = 0;   // half width and height, integer division
    int32_t width = 0;        // of the bitmap
    int32_t rows() const { return rc.bottom - rc.top; }
    bool empty() const { return rc.left >= rc.right || rc.top >= rc.bottom; }
    // The centre test: inside the rectangle grown by one pixel.
    bool accepts(int32_t x, int32_t y) const {
        return int64_t(x) >= int64_t(rc.left) - 1 && x <= rc.right && int64_t(y) >= int64_t(rc.top) - 1 &&
               y <= rc.bottom;
    }
};
int32_t GetArea(BitmapDesc *bmp, Area &area);

// The fill colour as three channel values (blue, green, red) at the
// bitmap's precision.
struct Fill {
    uint32_t b = 0, g = 0, r = 0;
};
Fill ConvertFill(const BitmapDesc *bmp, uint32_t colour);

// What a mapper decides for one pixel.
enum class Map { Leave, Sample, Outside };

// The bilinear sampler: copy rows of `stride` samples, `rows` of them,
// `width` pixels each; writes the first C channels of dst.
template <class T, int C>
inline void Bilinear(const T *copy, int64_t stride, int32_t rows, int32_t width, double sx, double sy, T *dst) {
    int32_t x0 = static_cast<int32_t>(sx), y0 = static_cast<int32_t>(sy);
    int32_t x1 = x0 + 1, y1 = y0 + 1;
    const double fx = sx - x0, fy = sy - y0;
    if (y1 <= 0)
        y0 = y1 = 0;
    else if (y1 >= rows)
        y0 = y1 = rows - 1;
    if (x1 >= width)
        x0 = x1 = width - 1;
    else if (x1 < 1)
        x0 = x1 = 0;
    const T *top = copy + int64_t(y0) * stride, *bottom = copy + int64_t(y1) * stride;
    const T *tl = top + int64_t(x0) * C, *tr = top + int64_t(x1) * C;
    const T *bl = bottom + int64_t(x0) * C, *br = bottom + int64_t(x1) * C;
    constexpr double kMax = sizeof(T) == 1 ? 255.0 : 65535.0;
    const bool whole = fx == 0 && fy == 0;
    for (int c = 0; c < C; ++c) {
        const double TL = tl[c], TR = tr[c], BL = bl[c], BR = br[c];
        if (whole || (TL == TR && TL == BL && TL == BR)) { // exact in any precision
            dst[c] = tl[c];
            continue;
        }
        double v = ((BR - BL - TR + TL) * fx + (BL - TL)) * fy + (TR - TL) * fx + TL;
        // The value is wanted in extended precision, truncated. Rounding
        // errors of the double sum are below 1e-9, so its truncation is the
        // same unless it lies that close to an integer: only then is the
        // sum redone in long double.
        double frac = v - static_cast<double>(static_cast<int64_t>(v));
        if (frac < 1e-6 || frac > 1 - 1e-6) [[unlikely]] {
            const long double lfx = fx, lfy = fy, lTL = TL, lTR = TR, lBL = BL, lBR = BR;
            const long double lv = ((lBR - lBL - lTR + lTL) * lfx + (lBL - lTL)) * lfy + (lTR - lTL) * lfx + lTL;
            v = static_cast<double>(lv);
            if (lv > 0 && static_cast<long double>(static_cast<int64_t>(v)) > lv) v = std::nextafter(v, 0.0);
            if (lv <= 0) v = 0;
        }
        dst[c] = static_cast<T>(v <= 0 ? 0.0 : (v >= kMax ? kMax : static_cast<double>(static_cast<int64_t>(v))));
    }
}

// The position clamped to the rectangle's columns and the copy's rows; a
// position that is not a number goes to the first column or row.
inline void ClampPosition(const Area &a, double &sx, double &sy) {
    sx = sx >= a.rc.left ? (sx < a.rc.right ? sx : a.rc.right - 1) : a.rc.left;
    sy = sy >= 0 ? (sy < a.rows() ? sy : a.rows() - 1) : 0;
}

inline bool InRange(const Area &a, double sx, double sy) {
    return sx >= a.rc.left && sx < a.rc.right && sy >= 0 && sy < a.rows();
}

// Everything a run needs beside the mapper.
struct Job {
    Area area;
    uint32_t rule = RULE_CLAMP;
    Fill fill;
};

struct Copy {
    RowContextPtr ctx;
    KrnPtr<uint8_t[]> rows; // the rectangle's rows, stride bytes apart
    KrnPtr<uint8_t[]> dst;  // the destination row
    KrnPtr<double[]> scratch; // row mappers: sx, sy and aux, one row each
    KrnPtr<Map[]> what;
    int64_t strideBytes = 0;
    int32_t channels = 0;
    bool wide = false;
};

// Steps 4-6 of the frame: context, source copy, destination row, progress.
int32_t OpenCopy(BitmapDesc *bmp, const Area &area, Copy &copy, bool rowScratch);

// A mapper either answers per pixel, operator()(x, y, sx, sy), or fills a
// whole row at once (so that its arithmetic can run in vector registers):
// row(y, x0, n, sx, sy, aux, what) with `aux` scratch of n doubles.
template <class M>
concept RowMapper = requires(const M &m, double *d, Map *w) { m.row(0, 0, 0, d, d, d, w); };

template <class T, int C>
RZ_FORCE_INLINE void Apply(const Job &job, const Copy &copy, int32_t x, Map m, double sx, double sy) {
    const Area &a = job.area;
    T *out = reinterpret_cast<T *>(copy.dst.get()) + int64_t(x) * C;
    if (m == Map::Sample && !InRange(a, sx, sy)) m = Map::Outside;
    if (m == Map::Outside) {
        if (job.rule == RULE_LEAVE) return;
        if (job.rule == RULE_FILL) {
            const T fill[3] = {T(job.fill.b), T(job.fill.g), T(job.fill.r)};
            for (int c = 0; c < C; ++c) out[c] = fill[c];
            return;
        }
        ClampPosition(a, sx, sy);
    }
    Bilinear<T, C>(reinterpret_cast<const T *>(copy.rows.get()), copy.strideBytes / int64_t(sizeof(T)), a.rows(),
                   a.width, sx, sy, out);
}

template <class T, int C, class Mapper>
void MapRow(const Job &job, const Copy &copy, int32_t y, const Mapper &mapper) {
    const RzRect &rc = job.area.rc;
    if constexpr (RowMapper<Mapper>) {
        const int32_t n = rc.right - rc.left;
        double *sx = copy.scratch.get(), *sy = sx + n, *aux = sy + n;
        Map *what = copy.what.get();
        mapper.row(y, rc.left, n, sx, sy, aux, what);
        for (int32_t i = 0; i < n; ++i)
            if (what[i] != Map::Leave) Apply<T, C>(job, copy, rc.left + i, what[i], sx[i], sy[i]);
    } else {
        for (int32_t x = rc.left; x < rc.right; ++x) {
            double sx = 0, sy = 0;
            const Map m = mapper(x, y, sx, sy);
            if (m != Map::Leave) Apply<T, C>(job, copy, x, m, sx, sy);
        }
    }
}

template <class T, int C, class Mapper> int32_t RunRows(BitmapDesc *bmp, const Job &job, Copy &copy, const Mapper &m) {
    const size_t rowBytes = ContextRowBytes(copy.ctx.get());
    for (int32_t y = job.area.rc.top; y < job.area.rc.bottom; ++y) {
        // Row y is as the copy holds it: no row above it wrote it.
        std::memcpy(copy.dst.get(), copy.rows.get() + (y - job.area.rc.top) * copy.strideBytes, rowBytes);
        MapRow<T, C>(job, copy, y, m);
        RZ_RETURN_IF_FAILED(PutRow(copy.ctx.get(), copy.dst.get(), y, nullptr, 0));
    }
    KrnBitmapChanged(bmp);
    return ST_SUCCESS;
}

// Steps 4-8 for a mapper; the caller has checked everything and set the
// view. An empty rectangle only reports completion.
template <class Mapper> int32_t Run(BitmapDesc *bmp, const Job &job, const Mapper &mapper) {
    if (job.area.empty()) return ReportDone(bmp);
    Copy copy;
    RZ_RETURN_IF_FAILED(OpenCopy(bmp, job.area, copy, RowMapper<Mapper>));
    if (copy.wide)
        return copy.channels == 1 ? RunRows<uint16_t, 1>(bmp, job, copy, mapper)
                                  : RunRows<uint16_t, 3>(bmp, job, copy, mapper);
    return copy.channels == 1 ? RunRows<uint8_t, 1>(bmp, job, copy, mapper)
                              : RunRows<uint8_t, 3>(bmp, job, copy, mapper);
}

// wrap(v, n) = v - n * floor(v / n), in [0, n).
inline double Wrap(double v, double n) {
    double w = v - n * std::floor(v / n);
    return w < n ? w : 0.0;
}

} // namespace rz::dist
