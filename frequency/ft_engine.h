// The transform engine behind the frequency-domain exports: one-dimensional
// mixed-radix transforms run on kLanes sequences at once, and the two
// two-dimensional passes the exports need (a real plane to its full
// spectrum, a spectrum to the real part of its inverse).
#pragma once

#include "frame/kmem.h"
#include "kernel/page_hint.h"

#include <rzimg.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace rz::freq {

// The constant every angle of the transforms uses.
constexpr double kPi = 3.1415926535;

// Sequences transformed together: element e of lane l is at [e * kLanes + l],
// so every butterfly is a loop over contiguous lanes.
constexpr int32_t kLanes = 8;

// A one-dimensional transform of length n: its factors (4s, 8s, a 2, then
// odd primes) and the table cos, sin(2 pi j / n), j < n.
struct Plan {
    int32_t n = 0;
    int32_t radix[64] = {};
    int32_t stages = 0;
    KrnPtr<double[]> table; // cos at [2j], sin at [2j + 1]
    int32_t init(int32_t length);
};

// Two buffers of kLanes sequences of up to n elements; Transform leaves its
// result in (re, im).
struct Lanes {
    KrnPtr<double[]> block;
    double *re = nullptr, *im = nullptr, *wre = nullptr, *wim = nullptr;
    int32_t n = 0;
    int32_t init(int32_t length);
    void clear();
};

// X(k) = sum over j of x(j) exp(sign 2 pi i j k / n), unscaled, for every lane.
void Transform(const Plan &plan, int32_t sign, Lanes &lanes);

// The kernel's huge-page hint, for blocks of tens of megabytes or more.
inline void AdviseLargeBlock(void *block, size_t bytes, bool prefault) {
    if (bytes >= krn::kHugePageWorthIt) krn::AdviseHugePages(block, bytes, prefault);
}

// The elements of a transform array, which are not 8-byte aligned.
struct ArrayView {
    uint8_t *base = nullptr;
    int32_t width = 0, height = 0;

    explicit ArrayView(const FTARRAY *a)
        : base(reinterpret_cast<uint8_t *>(const_cast<FTARRAY *>(a)) + offsetof(FTARRAY, acxData)),
          width(int32_t(a->uWidth)), height(int32_t(a->uHeight)) {}
    uint8_t *at(int32_t x, int32_t y) const { return base + (size_t(y) * size_t(width) + size_t(x)) * 16; }
    void load(int32_t x, int32_t y, double &re, double &im) const {
        double t[2];
        std::memcpy(t, at(x, y), sizeof t);
        re = t[0];
        im = t[1];
    }
    void store(int32_t x, int32_t y, double re, double im) const {
        const double t[2] = {re, im};
        std::memcpy(at(x, y), t, sizeof t);
    }
};

// A callable passed by reference without allocating.
template <class Sig> class FnRef;
template <class R, class... A> class FnRef<R(A...)> {
  public:
    template <class F>
    FnRef(F &f) : obj_(&f), call_([](void *o, A... a) -> R { return (*static_cast<F *>(o))(std::forward<A>(a)...); }) {}
    R operator()(A... a) const { return call_(obj_, std::forward<A>(a)...); }

  private:
    void *obj_;
    R (*call_)(void *, A...);
};

// loadRow(y, values): the plane's row y as `width` doubles; rows come in
// increasing order. report(pass, done, total): pass 0 rows, 1 columns;
// returns 1 to go on.
using RowLoader = FnRef<int32_t(int32_t, double *)>;
using PassReport = FnRef<int32_t(int32_t, int32_t, int32_t)>;

// The full spectrum of a real plane into the array (signs per axis). Rows
// are transformed two at a time as one complex sequence, and only the
// columns 0..W/2 are transformed: the others follow by conjugate symmetry.
int32_t ForwardReal(const Plan &pw, const Plan &ph, int32_t signX, int32_t signY, RowLoader loadRow,
                    PassReport report, const ArrayView &out);

// The inverse transform's view of an element: its magnitude, phase or
// both, divided by the number of elements P.
struct Component {
    int32_t kind;
    double count;   // P = width * height
    double inverse; // 1 / P
    Component(int32_t k, double p) : kind(k), count(p), inverse(1.0 / p) {}
    void apply(double &re, double &im) const {
        if (kind == FT_MAGNITUDE) {
            re = std::sqrt(re * re + im * im) * inverse;
            im = 0.0;
        } else if (kind == FT_PHASE) {
            const double m = std::sqrt(re * re + im * im);
            if (m == 0.0) {
                re = im = 0.0; // no phase to keep
            } else {
                const double f = 1.0 / (m * count);
                re *= f;
                im *= f;
            }
        } else {
            re *= inverse;
            im *= inverse;
        }
    }
};

// The real part of the transform of the array (each element as `comp`
// gives it): row y at data + y * stride, or, with a sink, handed to it
// row by row (`width` doubles; the block is then only the intermediate).
// The array is left scaled by `comp` (all of it, also when `report` stops
// the transform; a failed allocation leaves it as it was). Only the
// conjugate-symmetric part of the array reaches the real part, so only the
// columns 0..W/2 are transformed and the rows go in pairs.
struct RealRows {
    KrnPtr<double[]> data;
    size_t stride = 0; // doubles
    const double *row(int32_t y) const { return data.get() + size_t(y) * stride; }
};
using RowSink = FnRef<int32_t(int32_t, const double *)>;
int32_t InverseReal(const Plan &pw, const Plan &ph, int32_t signX, int32_t signY, const ArrayView &in,
                    const Component &comp, RealRows &out, PassReport report, const RowSink *sink = nullptr);

} // namespace rz::freq
