// The distortion members: each is a mapper from a destination pixel to a
// source position, run by the shared frame (resample.h). Swirl and spherize
// follow their formulas step by step in double precision (atan2, then the
// sine and cosine of the angle), so that the result is the formula's and
// not an algebraically equal one that rounds differently. The other
// members need no angle where a ratio does: the ellipse radius in the
// direction of (dx, dy) is sqrt(hh^2 dy^2 + hw^2 dx^2) / r.
#include "distort/resample.h"
#include "distort/vector_math.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

namespace rz::dist {
namespace {

// Checks the addressability, switches to `view` for the body's duration and
// reads the processing rectangle.
template <class F> int32_t InView(BitmapDesc *bmp, int32_t view, F &&body) {
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    ViewGuard guard(bmp);
    if (bmp->nViewPerspective != view) RZ_RETURN_IF_FAILED(guard.set(view));
    Job job;
    RZ_RETURN_IF_FAILED(GetArea(bmp, job.area));
    return body(job);
}

// The ellipse radius of the swirl's formula in the direction of (dx, dy),
// from the components instead of the angle.
inline double EllipseRadius(double hw, double hh, double dx, double dy, double r) {
    return std::sqrt(hh * hh * dy * dy + hw * hw * dx * dx) / r;
}

// --- Swirl and spherize ----------------------------------------------------

// twist = ln(R / r) k with R / r = sqrt(q), q = (hh^2 dy^2 + hw^2 dx^2) / r^4;
// the pixel moves when q > 1 (inside the ellipse, twist not 0), to
// (cx + dx cos t - dy sin t, cy + dx sin t + dy cos t), the turn of
// (dx, dy) by t.
// The vector part of a swirl row: everything by value and no aliasing, so
// that the loop compiles to vector instructions.
RZ_FORCE_INLINE void SwirlSpan(int32_t n, double fx, double dy, double hw2, double hhdy2, double halfK, double cxd,
                               double fcy, double *__restrict sx, double *__restrict sy, double *__restrict turn) {
    constexpr double kStays = std::numeric_limits<double>::quiet_NaN();
    for (int32_t i = 0; i < n; ++i) {
        const double dx = fx + i, r2 = dx * dx + dy * dy;
        const double q = (hw2 * (dx * dx) + hhdy2) / (r2 * r2);
        const double t = halfK * vm::Log(q);
        double st, ct;
        vm::SinCos(t, st, ct);
        sx[i] = cxd + (dx * ct - dy * st);
        sy[i] = fcy + (dx * st + dy * ct);
        turn[i] = (r2 > 0) & (q > 1) & (t != 0) ? t : kStays;
    }
}

struct Swirl {
    int32_t cx, cy, top;
    double hw, hh, k;
    void row(int32_t y, int32_t x0, int32_t n, double *sx, double *sy, double *turn, Map *what) const {
        const double dy = double(y) - cy, hhdy2 = hh * hh * (dy * dy), hw2 = hw * hw, halfK = 0.5 * k;
        const double fx = double(x0) - cx, fcy = double(cy) - top, cxd = cx;
        filt::Vectorised([=]() RZ_LAMBDA_INLINE { SwirlSpan(n, fx, dy, hw2, hhdy2, halfK, cxd, fcy, sx, sy, turn); });
        for (int32_t i = 0; i < n; ++i) {
            const double t = turn[i];
            what[i] = t == t ? Map::Sample : Map::Leave;
            if (what[i] == Map::Sample && !(std::fabs(t) < vm::kSinCosLimit)) {
                const double dx = double(x0 + i) - cx;
                sx[i] = cx + (dx * std::cos(t) - dy * std::sin(t));
                sy[i] = fcy + (dx * std::sin(t) + dy * std::cos(t));
            }
        }
    }
};

// R / r = sqrt(hw^2 dx^2 + hh^2 dy^2) / r^2 and r / R its inverse; the new
// radius r' along the same ray gives (cx + dx r'/r, cy + dy r'/r). The
// centre itself stays at the centre (r' = 0, R = hw).
template <bool Positive>
RZ_FORCE_INLINE void SpherizeSpan(int32_t n, double fx, double dy, double hw, double hw2, double hhdy2, double a,
                                  double cxd, double fcy, double *__restrict sx, double *__restrict sy,
                                  double *__restrict rr) {
    for (int32_t i = 0; i < n; ++i) {
        const double dx = fx + i, r2 = dx * dx + dy * dy, r = __builtin_sqrt(r2);
        const double e = __builtin_sqrt(hw2 * (dx * dx) + hhdy2);
        const double R = r2 > 0 ? e / r : hw;
        const double rho = r2 > 0 ? r2 / e : 0.0;
        double curve;
        if constexpr (Positive) {
            curve = (R / 1.57079632675) * vm::AsinUnit(rho < 1 ? rho : 1.0);
        } else {
            double sine, cosine;
            vm::SinCos(rho * 1.57079632675, sine, cosine);
            curve = sine * R;
        }
        const double rNew = (curve - r) * a + r;
        const double scale = r2 > 0 ? rNew / r : 0.0;
        sx[i] = cxd + dx * scale;
        sy[i] = fcy + dy * scale;
        rr[i] = (r2 <= e) | (r2 == 0) ? rNew : -1e300; // outside the ellipse
    }
}

struct Spherize {
    int32_t cx, cy, top;
    double hw, hh, a;
    bool positive, option;
    uint32_t rule;
    void row(int32_t y, int32_t x0, int32_t n, double *sx, double *sy, double *rr, Map *what) const {
        const double dy = double(y) - cy, hhdy2 = hh * hh * (dy * dy), hw2 = hw * hw;
        const double fx = double(x0) - cx, fcy = double(cy) - top, cxd = cx, w = hw, amount = a;
        if (positive)
            filt::Vectorised([=]() RZ_LAMBDA_INLINE {
                SpherizeSpan<true>(n, fx, dy, w, hw2, hhdy2, amount, cxd, fcy, sx, sy, rr);
            });
        else
            filt::Vectorised([=]() RZ_LAMBDA_INLINE {
                SpherizeSpan<false>(n, fx, dy, w, hw2, hhdy2, amount, cxd, fcy, sx, sy, rr);
            });
        for (int32_t i = 0; i < n; ++i) {
            const double dx = double(x0 + i) - cx;
            const bool centre = dx == 0 && dy == 0;
            if (rr[i] == -1e300 || (centre && hw == 0)) {
                what[i] = Map::Leave;
                continue;
            }
            what[i] = Map::Sample;
            if (positive && option && rr[i] <= 0) {
                if (rule != RULE_CLAMP) {
                    what[i] = Map::Outside;
                    continue;
                }
                sx[i] = cx;
                sy[i] = fcy;
            }
        }
    }
};

// --- Members with a centre and a fill rule ------------------------------------

struct Bending {
    int32_t cx, cy, top;
    double amount; // signed share of the half extent at the rectangle's edge
    double hw, hh;
    bool columns;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        if (!columns) {
            const double u = hw > 0 ? double(int64_t(x) - cx) / hw : 0.0;
            sx = x;
            sy = y + amount * hh * u * u - top;
        } else {
            const double v = hh > 0 ? double(int64_t(y) - cy) / hh : 0.0;
            sx = x + amount * hw * v * v;
            sy = double(y) - top;
        }
        return Map::Sample;
    }
};

struct Punch {
    int32_t cx, cy, top;
    double hw, hh, exponent;
    double circle; // radius when the option asks for a circle, else 0
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        const double dx = double(int64_t(x) - cx), dy = double(int64_t(y) - cy);
        const double r = std::sqrt(dx * dx + dy * dy);
        if (r == 0) return Map::Leave;
        const double R = circle > 0 ? circle : EllipseRadius(hw, hh, dx, dy, r);
        if (!(r < R)) return Map::Leave;
        const double scale = R * std::pow(r / R, exponent) / r;
        sx = cx + dx * scale;
        sy = cy + dy * scale - top;
        return Map::Sample;
    }
};

// --- Members without a centre --------------------------------------------------

struct Cylindrical {
    int32_t cx, top;
    double hw, a;
    bool positive;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        double u = double(x - cx) / hw;
        u = u < -1 ? -1 : (u > 1 ? 1 : u);
        const double curve = positive ? (2 / kPi) * std::asin(u) : std::sin(kPi * u / 2);
        sx = cx + hw * ((1 - a) * u + a * curve);
        sy = double(y) - top;
        return Map::Sample;
    }
};

// Polar coordinates as photo editors draw them: across the rectangle is the
// angle, clockwise from straight up; down it is the distance from the
// centre, the top row at the centre and the bottom row on the circle of
// radius min(hw, hh). The default wraps the rectangle into that disc; the
// option unwraps the disc into the rectangle.
struct Polar {
    int32_t left, top;
    double cx, cy, radius, W, H;
    bool wrap;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        if (!wrap) {
            const double phi = kTwoPi * (x - left) / W, rho = (y - top) * radius / H;
            sx = cx + rho * std::sin(phi);
            sy = cy - rho * std::cos(phi) - top;
        } else {
            const double dx = x - cx, dy = y - cy;
            double phi = std::atan2(dx, cy - y); // the centre takes angle 0
            if (phi < 0) phi += kTwoPi;
            sx = left + phi * W / kTwoPi;
            sy = std::sqrt(dx * dx + dy * dy) * H / radius;
        }
        return Map::Sample;
    }
};

// The vanishing point (r < 1) has no source: it is filled under rule 0 and
// left alone otherwise.
struct Tunnel {
    int32_t cx, cy, left;
    double depth, rotation, W, H;
    uint32_t rule;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        const double dx = double(int64_t(x) - cx), dy = double(int64_t(y) - cy);
        const double r = std::sqrt(dx * dx + dy * dy);
        if (r < 1) return rule == RULE_FILL ? Map::Outside : Map::Leave;
        const double phi = std::atan2(dy, dx) + rotation;
        sx = left + Wrap(phi * W / kTwoPi, W);
        sy = Wrap(depth / r, H);
        return Map::Sample;
    }
};

struct Glass {
    int32_t left, top;
    double cw, ch;
    bool across, down;
    static double Axis(double p, double cell) {
        const double start = std::floor(p / cell) * cell;
        const double centre = start + (cell - 1) / 2, half = cell / 2;
        const double u = (p - centre) / half;
        return centre + 0.6 * u * (1 + u * u) / 2 * half;
    }
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        sx = across ? left + Axis(x - left, cw) : x;
        sy = down ? Axis(y - top, ch) : y - top;
        return Map::Sample;
    }
};

struct Ocean {
    int32_t top, bottom;
    double amplitude, w; // w = 2 pi / wavelength
    bool mirror;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        if (mirror && y - top >= (bottom - top + 1) / 2) y = top + bottom - 1 - y;
        sx = x + amplitude * std::sin(w * y);
        sy = y + amplitude * std::sin(w * x) - top;
        return Map::Sample;
    }
};

// A tiled plane seen from height D with focal length f; PlaneBend curves
// the rows first. Pixels off the plane follow the fill rule, except that
// clamping has no position to clamp and leaves them.
struct Plane {
    int32_t cx, cy, left;
    double f, D, W, H, hw, hh, bend;
    uint32_t type, rule;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        const double dx = double(int64_t(x) - cx);
        double dy = double(int64_t(y) - cy);
        if (bend != 0 && hw > 0) dy += bend * hh * (dx / hw) * (dx / hw);
        const bool onPlane = type == 2 ? std::fabs(dy) >= 1 : (type == 0 ? dy >= 1 : dy <= -1);
        if (!onPlane) return rule == RULE_FILL ? Map::Outside : Map::Leave;
        const double z = D * f / std::fabs(dy);
        sx = left + Wrap(dx * z / f + hw, W);
        sy = Wrap(z, H);
        return Map::Sample;
    }
};

struct Offset {
    int32_t left, top;
    double shiftX, shiftY, W, H;
    bool wrap;
    Map operator()(int32_t x, int32_t y, double &sx, double &sy) const {
        if (wrap) {
            sx = left + Wrap(x - left - shiftX, W);
            sy = Wrap(y - top - shiftY, H);
        } else {
            sx = x - shiftX;
            sy = y - top - shiftY;
        }
        return Map::Sample;
    }
};

// --- Exports -----------------------------------------------------------------

int32_t SwirlBitmap(BitmapDesc *bmp, int32_t angle, int32_t cx, int32_t cy) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NoBitmap));
    if (angle == 0) return ReportDone(bmp);
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        if (!job.area.accepts(cx, cy)) return ST_BAD_BITS;
        job.rule = RULE_CLAMP;
        const Swirl m{cx, cy, job.area.rc.top, double(job.area.hw), double(job.area.hh),
                      angle * 0.005555555555555556};
        return Run(bmp, job, m);
    });
}

// Spherize and bending: the same checks, in the same order.
template <class Make>
int32_t CentredWithRule(BitmapDesc *bmp, int32_t value, int32_t cx, int32_t cy, uint32_t colour, uint32_t flags,
                        Make &&make) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NoBitmap));
    if (std::abs(int64_t(value)) > 500) return ST_BAD_BITS;
    if (value == 0) return ReportDone(bmp);
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        if (job.area.empty()) return ST_EMPTY_RECT;
        if (!job.area.accepts(cx, cy)) return ST_BAD_BITS;
        RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xFFF0, ST_INVALID_PARAMETER, RULE_LEAVE, true));
        job.rule = flags & 0xF;
        job.fill = ConvertFill(bmp, colour);
        return Run(bmp, job, make(job));
    });
}

int32_t SpherizeBitmap(BitmapDesc *bmp, int32_t value, int32_t cx, int32_t cy, uint32_t colour, uint32_t flags) {
    return CentredWithRule(bmp, value, cx, cy, colour, flags, [&](const Job &job) {
        return Spherize{cx, cy, job.area.rc.top, double(job.area.hw), double(job.area.hh),
                        std::abs(value) * 0.01, value > 0, (flags & kOption) != 0, job.rule};
    });
}

int32_t BendingBitmap(BitmapDesc *bmp, int32_t value, int32_t cx, int32_t cy, uint32_t colour, uint32_t flags) {
    return CentredWithRule(bmp, value, cx, cy, colour, flags, [&](const Job &job) {
        return Bending{cx, cy, job.area.rc.top, value / 500.0, double(job.area.hw), double(job.area.hh),
                       (flags & kOption) != 0};
    });
}

int32_t PunchBitmap(BitmapDesc *bmp, int32_t value, uint32_t stress, int32_t cx, int32_t cy, uint32_t colour,
                    uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NoBitmap));
    if (std::abs(int64_t(value)) >= 501 || stress >= 1001) return ST_BAD_BITS;
    RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xFFF0, ST_INVALID_PARAMETER, RULE_LEAVE, true));
    if (value == 0) return ReportDone(bmp);
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        job.rule = flags & 0xF;
        job.fill = ConvertFill(bmp, colour);
        const double f = value / 500.0, s = 1 + 2 * stress / 1000.0;
        const double circle = (flags & kOption) ? std::min(job.area.hw, job.area.hh) : 0;
        if ((flags & kOption) && circle == 0) return Run(bmp, job, [](int32_t, int32_t, double &, double &) {
            return Map::Leave;
        });
        return Run(bmp, job,
                   Punch{cx, cy, job.area.rc.top, double(job.area.hw), double(job.area.hh), std::exp2(f * s), circle});
    });
}

int32_t CylindricalBitmap(BitmapDesc *bmp, int32_t value, int32_t type) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NoBitmap));
    if (std::abs(int64_t(value)) > 100) return ST_BAD_BITS;
    if (value == 0) return ReportDone(bmp);
    return InView(bmp, type == 1 ? 5 : 1, [&](Job &job) -> int32_t {
        if (job.area.empty()) return ST_EMPTY_RECT;
        if (type != 0 && type != 1) return ST_INVALID_PARAMETER;
        job.rule = RULE_CLAMP;
        if (job.area.hw == 0) return Run(bmp, job, [](int32_t, int32_t, double &, double &) { return Map::Leave; });
        return Run(bmp, job,
                   Cylindrical{job.area.rc.left + job.area.hw, job.area.rc.top, double(job.area.hw),
                               std::abs(value) / 100.0, value > 0});
    });
}

int32_t PolarBitmap(BitmapDesc *bmp, uint32_t colour, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NoBitmap));
    RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xF0, ST_BAD_BITS, RULE_LEAVE, true));
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        job.rule = flags & 0xF;
        job.fill = ConvertFill(bmp, colour);
        const Area &a = job.area;
        const double radius = std::min(a.hw, a.hh);
        if (radius == 0) return Run(bmp, job, [](int32_t, int32_t, double &, double &) { return Map::Leave; });
        return Run(bmp, job,
                   Polar{a.rc.left, a.rc.top, double(a.rc.left + a.hw), double(a.rc.top + a.hh), radius,
                         double(a.rc.right - a.rc.left), double(a.rows()), (flags & kOption) == 0});
    });
}

// The -814 members with a centre and a fill rule (no option): null, size,
// then the allocated flag; their own parameters; the flags; the centre.
template <class Make>
int32_t CentredNoOption(BitmapDesc *bmp, bool valid, int32_t cx, int32_t cy, uint32_t colour, uint32_t flags,
                        Make &&make) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NullPointer));
    if (!valid) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xFFF0, ST_INVALID_PARAMETER, RULE_LEAVE, false));
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        if (!job.area.empty() && !job.area.accepts(cx, cy)) return ST_BAD_BITS;
        job.rule = flags & 0xF;
        job.fill = ConvertFill(bmp, colour);
        return Run(bmp, job, make(job.area, job.rule));
    });
}

int32_t TunnelBitmap(BitmapDesc *bmp, int32_t cx, int32_t cy, int32_t z, int32_t radius, int32_t rotation,
                     uint32_t colour, uint32_t flags) {
    return CentredNoOption(bmp, z >= 1 && radius >= 1, cx, cy, colour, flags, [&](const Area &a, uint32_t rule) {
        return Tunnel{cx, cy, a.rc.left, double(radius) * z, rotation * (kPi / 18000),
                      double(a.rc.right - a.rc.left), double(a.rows()), rule};
    });
}

int32_t GlassEffectBitmap(BitmapDesc *bmp, uint32_t cellWidth, uint32_t cellHeight, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NullPointer));
    if (cellWidth == 0 || cellHeight == 0) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xFFF0, ST_INVALID_PARAMETER, 2, false));
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        job.rule = RULE_CLAMP;
        const uint32_t axes = flags & 0xF;
        return Run(bmp, job, Glass{job.area.rc.left, job.area.rc.top, double(cellWidth), double(cellHeight),
                                   axes != 2, axes != 1});
    });
}

int32_t OceanBitmap(BitmapDesc *bmp, uint32_t amplitude, uint32_t wavelength, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NullPointer));
    if (wavelength == 0) return ST_INVALID_PARAMETER;
    RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xFFF0, ST_INVALID_PARAMETER, 0, true));
    if (amplitude == 0 && !(flags & kOption)) return ReportDone(bmp);
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        job.rule = RULE_CLAMP;
        return Run(bmp, job, Ocean{job.area.rc.top, job.area.rc.bottom, double(amplitude), kTwoPi / wavelength,
                                   (flags & kOption) != 0});
    });
}

int32_t PlaneBitmap(BitmapDesc *bmp, int32_t cx, int32_t cy, int32_t z, int32_t distance, int32_t bend,
                    uint32_t type, uint32_t colour, uint32_t flags) {
    const bool valid = z >= 1 && distance >= 1 && type <= 2 && std::abs(int64_t(bend)) <= 1000;
    return CentredNoOption(bmp, valid, cx, cy, colour, flags, [&](const Area &a, uint32_t rule) {
        return Plane{cx, cy, a.rc.left, double(z), double(distance), double(a.rc.right - a.rc.left),
                     double(a.rows()), double(a.hw), double(a.hh), bend / 1000.0, type, rule};
    });
}

int32_t OffsetBitmap(BitmapDesc *bmp, int32_t shiftX, int32_t shiftY, uint32_t colour, uint32_t flags) {
    RZ_RETURN_IF_FAILED(CheckDescriptor(bmp, NullCode::NullPointer));
    RZ_RETURN_IF_FAILED(CheckFlags(flags, 0xFFF0, ST_INVALID_PARAMETER, RULE_WRAP, false));
    if (shiftX == 0 && shiftY == 0) return ReportDone(bmp);
    return InView(bmp, 1, [&](Job &job) -> int32_t {
        const uint32_t rule = flags & 0xF;
        job.rule = rule == RULE_WRAP ? RULE_CLAMP : rule;
        job.fill = ConvertFill(bmp, colour);
        const Area &a = job.area;
        return Run(bmp, job,
                   Offset{a.rc.left, a.rc.top, double(shiftX), double(shiftY), double(a.rc.right - a.rc.left),
                          double(a.rows()), rule == RULE_WRAP});
    });
}

} // namespace
} // namespace rz::dist

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_SwirlBitmap(BitmapDesc *pBitmap, int32_t nAngle, int32_t nCenterX, int32_t nCenterY) {
    return Guard([&] { return dist::SwirlBitmap(pBitmap, nAngle, nCenterX, nCenterY); });
}

RZIMG_API int32_t RZAPI Rz_SpherizeBitmap(BitmapDesc *pBitmap, int32_t nValue, int32_t nCenterX, int32_t nCenterY,
                                          uint32_t crFill, uint32_t uFlags) {
    return Guard([&] { return dist::SpherizeBitmap(pBitmap, nValue, nCenterX, nCenterY, crFill, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_BendingBitmap(BitmapDesc *pBitmap, int32_t nValue, int32_t nCenterX, int32_t nCenterY,
                                         uint32_t crFill, uint32_t uFlags) {
    return Guard([&] { return dist::BendingBitmap(pBitmap, nValue, nCenterX, nCenterY, crFill, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_PunchBitmap(BitmapDesc *pBitmap, int32_t nValue, uint32_t nStress, int32_t nCenterX,
                                       int32_t nCenterY, uint32_t crFill, uint32_t uFlags) {
    return Guard([&] { return dist::PunchBitmap(pBitmap, nValue, nStress, nCenterX, nCenterY, crFill, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_CylindricalBitmap(BitmapDesc *pBitmap, int32_t nValue, int32_t nType) {
    return Guard([&] { return dist::CylindricalBitmap(pBitmap, nValue, nType); });
}

RZIMG_API int32_t RZAPI Rz_PolarBitmap(BitmapDesc *pBitmap, uint32_t crFill, uint32_t uFlags) {
    return Guard([&] { return dist::PolarBitmap(pBitmap, crFill, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_TunnelBitmap(BitmapDesc *pBitmap, int32_t nCenterX, int32_t nCenterY, int32_t nZValue,
                                        int32_t nRadius, int32_t nRotation, uint32_t crFill, uint32_t uFlags) {
    return Guard([&] {
        return dist::TunnelBitmap(pBitmap, nCenterX, nCenterY, nZValue, nRadius, nRotation, crFill, uFlags);
    });
}

RZIMG_API int32_t RZAPI Rz_GlassEffectBitmap(BitmapDesc *pBitmap, uint32_t uCellWidth, uint32_t uCellHeight,
                                             uint32_t uFlags) {
    return Guard([&] { return dist::GlassEffectBitmap(pBitmap, uCellWidth, uCellHeight, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_OceanBitmap(BitmapDesc *pBitmap, uint32_t uAmplitude, uint32_t uWavelength,
                                       uint32_t uFlags) {
    return Guard([&] { return dist::OceanBitmap(pBitmap, uAmplitude, uWavelength, uFlags); });
}

RZIMG_API int32_t RZAPI Rz_PlaneBitmap(BitmapDesc *pBitmap, int32_t nCenterX, int32_t nCenterY, int32_t nZValue,
                                       int32_t nDistance, uint32_t uType, uint32_t crFill, uint32_t uFlags) {
    return Guard([&] {
        return dist::PlaneBitmap(pBitmap, nCenterX, nCenterY, nZValue, nDistance, 0, uType, crFill, uFlags);
    });
}

RZIMG_API int32_t RZAPI Rz_PlaneBendBitmap(BitmapDesc *pBitmap, int32_t nCenterX, int32_t nCenterY, int32_t nZValue,
                                           int32_t nDistance, int32_t nBend, uint32_t uType, uint32_t crFill,
                                           uint32_t uFlags) {
    return Guard([&] {
        return dist::PlaneBitmap(pBitmap, nCenterX, nCenterY, nZValue, nDistance, nBend, uType, crFill, uFlags);
    });
}

RZIMG_API int32_t RZAPI Rz_OffsetBitmap(BitmapDesc *pBitmap, int32_t nShiftX, int32_t nShiftY, uint32_t crFill,
                                        uint32_t uFlags) {
    return Guard([&] { return dist::OffsetBitmap(pBitmap, nShiftX, nShiftY, crFill, uFlags); });
}

} // extern "C"
