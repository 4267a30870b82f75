// Mixed-radix Stockham transforms (self-sorting, so no bit reversal) on
// kLanes sequences at once. Element e of lane l sits at [e * kLanes + l]:
// each butterfly works on whole vectors of lanes, with no shuffles, and the
// loops are compiled for the widest vectors the processor has. Radix 4 does
// most of the work for powers of two; 2 and the odd primes (3, 5 and others,
// with their conjugate pairs folded) cover every other length.
//
// The two-dimensional passes use the symmetry of real data: forward, two
// real rows make one complex row and columns past W/2 are conjugates of
// columns before it; inverse, only the conjugate-symmetric part of the
// spectrum reaches the real result, so half the rows and half the column
// transforms suffice.
#include "frequency/ft_engine.h"

#include "filters/filter_rows.h"
#include "frame/status.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace rz::freq {

using filt::Vectorised;

int32_t Plan::init(int32_t length) {
    n = length;
    stages = 0;
    int32_t rest = length;
    // Powers of two as radix 8 and at most two stages of 4 (a 2 only alone):
    // 1024 = 4 4 8 8, 4096 = 8 8 8 8; fewer passes over the lanes. The 4s
    // go first, where each butterfly has its own twiddles and radix 8 would
    // load seven of them for every vector.
    int32_t twos = 0;
    while (rest % 2 == 0) ++twos, rest /= 2;
    int32_t fours = twos % 3 == 2 ? 1 : (twos % 3 == 1 && twos >= 4 ? 2 : 0);
    int32_t eights = (twos - 2 * fours) / 3;
    for (int32_t i = 0; i < fours; ++i) radix[stages++] = 4;
    for (int32_t i = 0; i < eights; ++i) radix[stages++] = 8;
    if (twos - 3 * eights - 2 * fours == 1) radix[stages++] = 2;
    for (int32_t f = 3; rest > 1;) {
        if (int64_t(f) * f > rest) f = rest;
        if (rest % f == 0) {
            radix[stages++] = f;
            rest /= f;
        } else {
            f += 2;
        }
    }
    table = KrnArray<double>(size_t(length) * 2);
    if (!table) return ST_FAILURE;
    for (int32_t j = 0; j < length; ++j) {
        const double a = 2.0 * kPi * j / length;
        table[2 * size_t(j)] = std::cos(a);
        table[2 * size_t(j) + 1] = std::sin(a);
    }
    return ST_SUCCESS;
}

// A stage reads 16 streams (8 inputs, real and imaginary) a multiple of
// 4 KiB apart when the length is a power of two, and writes 16 more: in
// buffers also a multiple of 4 KiB apart they would all fall in one set of
// the first-level cache, whose 12 ways they would evict each other from.
// Buffers skewed by 1 KiB spread them over four sets.
constexpr size_t kSkew = 128;

int32_t Lanes::init(int32_t length) {
    n = std::max(length, 1);
    const size_t one = size_t(n) * kLanes + kSkew;
    block = KrnArray<double>(one * 4);
    if (!block) return ST_FAILURE;
    re = block.get();
    im = re + one;
    wre = im + one;
    wim = wre + one;
    return ST_SUCCESS;
}

void Lanes::clear() {
    std::fill(re, re + size_t(n) * kLanes, 0.0);
    std::fill(im, im + size_t(n) * kLanes, 0.0);
}

namespace {

// The lanes loops carry no dependence (x and y never overlap), which the
// compiler cannot prove through these pointers: without `ivdep` it would
// need more run-time alias checks than it allows itself, and stay scalar.
struct Stage {
    const double *__restrict xr, *__restrict xi;
    double *__restrict yr, *__restrict yi;
    int32_t m;      // outputs per residue
    int64_t len;    // doubles per element group (s * kLanes)
    int32_t step;   // table step for the twiddles of this stage
    const double *tw;
    double sg;
};

RZ_FORCE_INLINE void Twiddle(const Stage &st, int64_t j, double &c, double &s) {
    c = st.tw[2 * j];
    s = st.sg * st.tw[2 * j + 1];
}

// The twiddles of outputs 1..R-1 of butterfly k (output 0 needs none).
template <int32_t R> RZ_FORCE_INLINE void Twiddles(const Stage &st, int32_t k, double (&wr)[R], double (&wi)[R]) {
    for (int32_t q = 1; q < R; ++q) Twiddle(st, int64_t(q) * k * st.step, wr[q], wi[q]);
}

// Outputs 1..R-1 of element j, turned by their twiddles; output 0 is stored
// as it is by the caller.
template <int32_t R>
RZ_FORCE_INLINE void StoreTurned(double *__restrict yr, double *__restrict yi, int64_t j, int64_t L,
                                 const double (&br)[R], const double (&bi)[R], const double (&wr)[R],
                                 const double (&wi)[R]) {
    for (int32_t q = 1; q < R; ++q) {
        yr[j + q * L] = br[q] * wr[q] - bi[q] * wi[q];
        yi[j + q * L] = br[q] * wi[q] + bi[q] * wr[q];
    }
}

RZ_FORCE_INLINE void Radix2(const Stage &st) {
    const int64_t L = st.len;
    for (int32_t k = 0; k < st.m; ++k) {
        double wr, wi;
        Twiddle(st, int64_t(k) * st.step, wr, wi);
        const double *__restrict ar = st.xr + k * L, *__restrict ai = st.xi + k * L;
        const double *__restrict br = ar + st.m * L, *__restrict bi = ai + st.m * L;
        double *__restrict y0r = st.yr + 2 * k * L, *__restrict y0i = st.yi + 2 * k * L;
        double *__restrict y1r = y0r + L, *__restrict y1i = y0i + L;
        #pragma GCC ivdep
        for (int64_t j = 0; j < L; ++j) {
            const double dr = ar[j] - br[j], di = ai[j] - bi[j];
            y0r[j] = ar[j] + br[j];
            y0i[j] = ai[j] + bi[j];
            y1r[j] = dr * wr - di * wi;
            y1i[j] = dr * wi + di * wr;
        }
    }
}

RZ_FORCE_INLINE void Radix4(const Stage &st) {
    const int64_t L = st.len;
    const int64_t M = int64_t(st.m) * L;
    const double sg = st.sg;
    for (int32_t k = 0; k < st.m; ++k) {
        double w1r, w1i, w2r, w2i, w3r, w3i;
        Twiddle(st, int64_t(k) * st.step, w1r, w1i);
        Twiddle(st, 2 * int64_t(k) * st.step, w2r, w2i);
        Twiddle(st, 3 * int64_t(k) * st.step, w3r, w3i);
        const double *__restrict a0r = st.xr + k * L, *__restrict a0i = st.xi + k * L;
        double *__restrict y0r = st.yr + 4 * k * L, *__restrict y0i = st.yi + 4 * k * L;
        #pragma GCC ivdep
        for (int64_t j = 0; j < L; ++j) {
            const double t0r = a0r[j] + a0r[j + 2 * M], t0i = a0i[j] + a0i[j + 2 * M];
            const double t1r = a0r[j] - a0r[j + 2 * M], t1i = a0i[j] - a0i[j + 2 * M];
            const double t2r = a0r[j + M] + a0r[j + 3 * M], t2i = a0i[j + M] + a0i[j + 3 * M];
            const double t3r = a0r[j + M] - a0r[j + 3 * M], t3i = a0i[j + M] - a0i[j + 3 * M];
            y0r[j] = t0r + t2r;
            y0i[j] = t0i + t2i;
            const double b2r = t0r - t2r, b2i = t0i - t2i;
            const double b1r = t1r - sg * t3i, b1i = t1i + sg * t3r;
            const double b3r = t1r + sg * t3i, b3i = t1i - sg * t3r;
            y0r[j + L] = b1r * w1r - b1i * w1i;
            y0i[j + L] = b1r * w1i + b1i * w1r;
            y0r[j + 2 * L] = b2r * w2r - b2i * w2i;
            y0i[j + 2 * L] = b2r * w2i + b2i * w2r;
            y0r[j + 3 * L] = b3r * w3r - b3i * w3i;
            y0i[j + 3 * L] = b3r * w3i + b3i * w3r;
        }
    }
}

// Radix 8 as two radix-4 halves (even and odd inputs) joined by the
// eighth roots of unity, which come from the table like every twiddle.
RZ_FORCE_INLINE void Radix8(const Stage &st, int32_t n) {
    const int64_t L = st.len;
    const int64_t M = int64_t(st.m) * L;
    const double sg = st.sg;
    const double e1r = st.tw[2 * (n / 8)], e1i = sg * st.tw[2 * (n / 8) + 1];
    const double e3r = st.tw[6 * (n / 8)], e3i = sg * st.tw[6 * (n / 8) + 1];
    for (int32_t k = 0; k < st.m; ++k) {
        double wr[8], wi[8];
        Twiddles(st, k, wr, wi);
        const double *__restrict ar = st.xr + k * L, *__restrict ai = st.xi + k * L;
        double *__restrict yr = st.yr + 8 * k * L, *__restrict yi = st.yi + 8 * k * L;
        #pragma GCC ivdep
        for (int64_t j = 0; j < L; ++j) {
            double er[4], ei[4], orr[4], oi[4];
            for (int32_t h = 0; h < 2; ++h) { // h = 0 inputs 0 2 4 6, h = 1 inputs 1 3 5 7
                const double *__restrict xr = ar + j + h * M, *__restrict xi = ai + j + h * M;
                const double t0r = xr[0] + xr[4 * M], t0i = xi[0] + xi[4 * M];
                const double t1r = xr[0] - xr[4 * M], t1i = xi[0] - xi[4 * M];
                const double t2r = xr[2 * M] + xr[6 * M], t2i = xi[2 * M] + xi[6 * M];
                const double t3r = xr[2 * M] - xr[6 * M], t3i = xi[2 * M] - xi[6 * M];
                double *br = h ? orr : er, *bi = h ? oi : ei;
                br[0] = t0r + t2r, bi[0] = t0i + t2i;
                br[2] = t0r - t2r, bi[2] = t0i - t2i;
                br[1] = t1r - sg * t3i, bi[1] = t1i + sg * t3r;
                br[3] = t1r + sg * t3i, bi[3] = t1i - sg * t3r;
            }
            // The odd half times e^(sg 2 pi i q / 8), q = 1, 2, 3.
            const double o1r = orr[1] * e1r - oi[1] * e1i, o1i = orr[1] * e1i + oi[1] * e1r;
            const double o2r = -sg * oi[2], o2i = sg * orr[2];
            const double o3r = orr[3] * e3r - oi[3] * e3i, o3i = orr[3] * e3i + oi[3] * e3r;
            const double br[8] = {er[0] + orr[0], er[1] + o1r, er[2] + o2r, er[3] + o3r,
                                  er[0] - orr[0], er[1] - o1r, er[2] - o2r, er[3] - o3r};
            const double bi[8] = {ei[0] + oi[0], ei[1] + o1i, ei[2] + o2i, ei[3] + o3i,
                                  ei[0] - oi[0], ei[1] - o1i, ei[2] - o2i, ei[3] - o3i};
            yr[j] = br[0];
            yi[j] = bi[0];
            StoreTurned(yr, yi, j, L, br, bi, wr, wi);
        }
    }
}

// Radix 5 in one sweep over its inputs: outputs q and 5 - q from the sums
// and differences of inputs 1, 4 and 2, 3, as in RadixOdd.
RZ_FORCE_INLINE void Radix5(const Stage &st, int32_t n) {
    const int64_t L = st.len;
    const int64_t M = int64_t(st.m) * L;
    const double sg = st.sg;
    const int32_t unit = n / 5;
    const double c1 = st.tw[2 * unit], s1 = st.tw[2 * unit + 1], c2 = st.tw[4 * unit], s2 = st.tw[4 * unit + 1];
    const double c4 = st.tw[8 * unit], s4 = st.tw[8 * unit + 1];
    for (int32_t k = 0; k < st.m; ++k) {
        double wr[5], wi[5];
        Twiddles(st, k, wr, wi);
        const double *__restrict ar = st.xr + k * L, *__restrict ai = st.xi + k * L;
        double *__restrict yr = st.yr + 5 * k * L, *__restrict yi = st.yi + 5 * k * L;
        #pragma GCC ivdep
        for (int64_t j = 0; j < L; ++j) {
            const double a0r = ar[j], a0i = ai[j];
            const double s14r = ar[j + M] + ar[j + 4 * M], s14i = ai[j + M] + ai[j + 4 * M];
            const double d14r = ar[j + M] - ar[j + 4 * M], d14i = ai[j + M] - ai[j + 4 * M];
            const double s23r = ar[j + 2 * M] + ar[j + 3 * M], s23i = ai[j + 2 * M] + ai[j + 3 * M];
            const double d23r = ar[j + 2 * M] - ar[j + 3 * M], d23i = ai[j + 2 * M] - ai[j + 3 * M];
            yr[j] = a0r + s14r + s23r;
            yi[j] = a0i + s14i + s23i;
            const double p1r = a0r + s14r * c1 + s23r * c2, p1i = a0i + s14i * c1 + s23i * c2;
            const double q1r = d14r * s1 + d23r * s2, q1i = d14i * s1 + d23i * s2;
            const double p2r = a0r + s14r * c2 + s23r * c4, p2i = a0i + s14i * c2 + s23i * c4;
            const double q2r = d14r * s2 + d23r * s4, q2i = d14i * s2 + d23i * s4;
            // b_t = P + sg i Q, b_(5-t) = P - sg i Q.
            const double br[5] = {0, p1r - sg * q1i, p2r - sg * q2i, p2r + sg * q2i, p1r + sg * q1i};
            const double bi[5] = {0, p1i + sg * q1r, p2i + sg * q2r, p2i - sg * q2r, p1i - sg * q1r};
            StoreTurned(yr, yi, j, L, br, bi, wr, wi);
        }
    }
}

// An odd radix p: outputs t and p - t share the sums a_r + a_(p-r) and
// differences a_r - a_(p-r). P is the radix when known at compile time.
constexpr int32_t kMaxHalf = 32; // odd radices up to 65 keep their constants in registers or the stack

template <int32_t P> RZ_FORCE_INLINE void RadixOdd(const Stage &st, int32_t p, int32_t n) {
    if constexpr (P != 0) p = P;
    const int32_t h = (p - 1) / 2;
    const int64_t L = st.len;
    const int64_t M = int64_t(st.m) * L;
    const int64_t unit = n / p; // table step of 2 pi / p
    for (int32_t k = 0; k < st.m; ++k) {
        const double *__restrict ar = st.xr + k * L, *__restrict ai = st.xi + k * L;
        double *__restrict yr = st.yr + int64_t(p) * k * L, *__restrict yi = st.yi + int64_t(p) * k * L;
        // Output 0.
        #pragma GCC ivdep
        for (int64_t j = 0; j < L; ++j) {
            double sr = ar[j], si = ai[j];
            for (int32_t r = 1; r < p; ++r) sr += ar[j + r * M], si += ai[j + r * M];
            yr[j] = sr;
            yi[j] = si;
        }
        for (int32_t t = 1; t <= h; ++t) {
            double w1r, w1i, w2r, w2i;
            Twiddle(st, int64_t(k) * t * st.step, w1r, w1i);
            Twiddle(st, int64_t(k) * (p - t) * st.step, w2r, w2i);
            double *__restrict o1r = yr + t * L, *__restrict o1i = yi + t * L;
            double *__restrict o2r = yr + (p - t) * L, *__restrict o2i = yi + (p - t) * L;
            // cos and sin of 2 pi r t / p, r = 1..h, out of the loop over lanes.
            double cs[kMaxHalf], sn[kMaxHalf];
            const bool small = h <= kMaxHalf;
            for (int32_t r = 1, idx = 0; small && r <= h; ++r) {
                idx += t;
                if (idx >= p) idx -= p;
                cs[r - 1] = st.tw[2 * idx * unit];
                sn[r - 1] = st.tw[2 * idx * unit + 1];
            }
            #pragma GCC ivdep
            for (int64_t j = 0; j < L; ++j) {
                double pr = ar[j], pi = ai[j], qr = 0, qi = 0;
                int64_t idx = 0;
                for (int32_t r = 1; r <= h; ++r) {
                    double c, s;
                    if (small) {
                        c = cs[r - 1], s = sn[r - 1];
                    } else {
                        idx += t;
                        if (idx >= p) idx -= p;
                        c = st.tw[2 * idx * unit], s = st.tw[2 * idx * unit + 1];
                    }
                    const double *xr = ar + j + r * M, *xi = ai + j + r * M;
                    const double *zr = ar + j + (p - r) * M, *zi = ai + j + (p - r) * M;
                    pr += (*xr + *zr) * c;
                    pi += (*xi + *zi) * c;
                    qr += (*xr - *zr) * s;
                    qi += (*xi - *zi) * s;
                }
                // b_t = P + sg i Q, b_(p-t) = P - sg i Q.
                const double b1r = pr - st.sg * qi, b1i = pi + st.sg * qr;
                const double b2r = pr + st.sg * qi, b2i = pi - st.sg * qr;
                o1r[j] = b1r * w1r - b1i * w1i;
                o1i[j] = b1r * w1i + b1i * w1r;
                o2r[j] = b2r * w2r - b2i * w2i;
                o2i[j] = b2r * w2i + b2i * w2r;
            }
        }
    }
}

RZ_FORCE_INLINE void RunStages(const Plan &plan, double sg, double *&re, double *&im, double *&wre, double *&wim) {
    int32_t ncur = plan.n;
    int64_t s = 1;
    for (int32_t i = 0; i < plan.stages; ++i) {
        const int32_t p = plan.radix[i];
        const int32_t m = ncur / p;
        const Stage st{re, im, wre, wim, m, s * kLanes, plan.n / ncur, plan.table.get(), sg};
        switch (p) {
        case 8: Radix8(st, plan.n); break;
        case 4: Radix4(st); break;
        case 2: Radix2(st); break;
        case 3: RadixOdd<3>(st, 3, plan.n); break;
        case 5: Radix5(st, plan.n); break;
        default: RadixOdd<0>(st, p, plan.n); break;
        }
        std::swap(re, wre);
        std::swap(im, wim);
        ncur = m;
        s *= p;
    }
}

} // namespace

void Transform(const Plan &plan, int32_t sign, Lanes &l) {
    const double sg = sign < 0 ? -1.0 : 1.0;
    Vectorised([&]() RZ_LAMBDA_INLINE { RunStages(plan, sg, l.re, l.im, l.wre, l.wim); });
}

namespace {

// Columns are gathered kGroups * kLanes at a time, so that one sweep down
// the rows reads a whole run of each row (a few cache lines, one page)
// instead of kLanes columns: far fewer sweeps through a large array.
constexpr int32_t kGroups = 8;

class ColumnBlock {
  public:
    int32_t init(int32_t length) {
        n_ = length;
        // Stay within a few megabytes however long the columns are.
        groups_ = int32_t(std::clamp<int64_t>((int64_t(4) << 20) / (int64_t(length) * kLanes * 16), 1, kGroups));
        RZ_RETURN_IF_FAILED(work_.init(length));
        scratchRe_ = work_.wre, scratchIm_ = work_.wim;
        one_ = size_t(length) * kLanes + kSkew;
        data_ = KrnArray<double>(one_ * 2 * size_t(groups_));
        return data_ ? ST_SUCCESS : ST_FAILURE;
    }
    int32_t columns() const { return groups_ * kLanes; }
    // Element v of column c of the block.
    double &re(int32_t c, int32_t v) { return data_[Offset(c, v)]; }
    // Group g: columns 8g..8g+7, element v of them at [v * kLanes].
    // Real and imaginary parts are skewed apart like the buffers of Lanes.
    double *groupRe(int32_t g) { return data_.get() + 2 * one_ * size_t(g); }
    double *groupIm(int32_t g) { return groupRe(g) + one_; }
    double &im(int32_t c, int32_t v) { return data_[Offset(c, v) + one_]; }
    // Zeros in the groups that hold `count` columns, so that the lanes past
    // them, transformed and dropped, are not left over from a fresh block.
    void clear(int32_t count) {
        const size_t used = size_t((count + kLanes - 1) / kLanes);
        std::fill(data_.get(), data_.get() + one_ * 2 * used, 0.0);
    }
    void transform(const Plan &plan, int32_t sign, int32_t count) {
        const size_t used = size_t(n_) * kLanes;
        for (int32_t g = 0; g * kLanes < count; ++g) {
            double *re = groupRe(g), *im = groupIm(g);
            work_.re = re, work_.im = im;
            work_.wre = scratchRe_, work_.wim = scratchIm_;
            Transform(plan, sign, work_);
            if (work_.re != re) {
                std::copy(work_.re, work_.re + used, re);
                std::copy(work_.im, work_.im + used, im);
            }
        }
    }

  private:
    size_t Offset(int32_t c, int32_t v) const {
        return 2 * one_ * size_t(c / kLanes) + size_t(v) * kLanes + size_t(c % kLanes);
    }
    Lanes work_;
    double *scratchRe_ = nullptr, *scratchIm_ = nullptr;
    KrnPtr<double[]> data_;
    size_t one_ = 0; // doubles from a group's real parts to its imaginary parts
    int32_t n_ = 0, groups_ = 1;
};


// kLanes adjacent elements of an array row to and from lane vectors; these
// and the loops around them are what keeps the column passes from being
// bound by single-element copies. Written as whole-vector shuffles (the
// compiler's generic vectors, lowered to what each build's target has),
// which element loops left to the compiler did not become.
using V8 = double __attribute__((vector_size(64)));
static_assert(kLanes == 8, "the shuffles below are written for 8 lanes");

RZ_FORCE_INLINE void Load8(const void *src, V8 &v) { std::memcpy(&v, src, sizeof v); }
RZ_FORCE_INLINE void Store8(void *dst, const V8 &v) { std::memcpy(dst, &v, sizeof v); }

// Eight interleaved elements to and from their real and imaginary parts,
// in order or reversed (lane l to and from element kLanes - 1 - l).
RZ_FORCE_INLINE void Deinterleave(const uint8_t *src, V8 &re, V8 &im) {
    V8 a, b;
    Load8(src, a);
    Load8(src + 64, b);
    re = __builtin_shufflevector(a, b, 0, 2, 4, 6, 8, 10, 12, 14);
    im = __builtin_shufflevector(a, b, 1, 3, 5, 7, 9, 11, 13, 15);
}

RZ_FORCE_INLINE void DeinterleaveReversed(const uint8_t *src, V8 &re, V8 &im) {
    V8 a, b;
    Load8(src, a);
    Load8(src + 64, b);
    re = __builtin_shufflevector(a, b, 14, 12, 10, 8, 6, 4, 2, 0);
    im = __builtin_shufflevector(a, b, 15, 13, 11, 9, 7, 5, 3, 1);
}

RZ_FORCE_INLINE void Interleave(uint8_t *dst, const V8 &re, const V8 &im) {
    Store8(dst, __builtin_shufflevector(re, im, 0, 8, 1, 9, 2, 10, 3, 11));
    Store8(dst + 64, __builtin_shufflevector(re, im, 4, 12, 5, 13, 6, 14, 7, 15));
}

RZ_FORCE_INLINE void InterleaveReversed(uint8_t *dst, const V8 &re, const V8 &im) {
    Store8(dst, __builtin_shufflevector(re, im, 7, 15, 6, 14, 5, 13, 4, 12));
    Store8(dst + 64, __builtin_shufflevector(re, im, 3, 11, 2, 10, 1, 9, 0, 8));
}

RZ_FORCE_INLINE void LoadLanes(const uint8_t *src, double *__restrict re, double *__restrict im) {
    V8 r, i;
    Deinterleave(src, r, i);
    Store8(re, r);
    Store8(im, i);
}

RZ_FORCE_INLINE void StoreLanes(uint8_t *dst, const double *__restrict re, const double *__restrict im) {
    V8 r, i;
    Load8(re, r);
    Load8(im, i);
    Interleave(dst, r, i);
}

// The imaginary parts times imSign.
RZ_FORCE_INLINE void StoreLanesReversed(uint8_t *dst, const double *__restrict re, const double *__restrict im,
                                        double imSign) {
    V8 r, i;
    Load8(re, r);
    Load8(im, i);
    InterleaveReversed(dst, r, i * imSign);
}

// Component::apply on kLanes elements, for one kind known at compile time
// (a kind chosen inside the loop kept it scalar).
template <int32_t Kind> struct KindIs {
    static constexpr int32_t value = Kind;
};

template <int32_t Kind>
RZ_FORCE_INLINE void ApplyLanes(const Component &comp, double *__restrict re, double *__restrict im) {
    if constexpr (Kind == FT_MAGNITUDE) {
        for (int32_t l = 0; l < kLanes; ++l) {
            re[l] = std::sqrt(re[l] * re[l] + im[l] * im[l]) * comp.inverse;
            im[l] = 0.0;
        }
    } else if constexpr (Kind == FT_PHASE) {
        for (int32_t l = 0; l < kLanes; ++l) {
            const double m = std::sqrt(re[l] * re[l] + im[l] * im[l]);
            const double f = 1.0 / (m * comp.count);
            re[l] = m == 0.0 ? 0.0 : re[l] * f;
            im[l] = m == 0.0 ? 0.0 : im[l] * f;
        }
    } else {
        for (int32_t l = 0; l < kLanes; ++l) re[l] *= comp.inverse, im[l] *= comp.inverse;
    }
}

template <int32_t Kind> RZ_FORCE_INLINE void ApplyLanes(const Component &comp, V8 &re, V8 &im) {
    if constexpr (Kind == FT_BOTH) {
        re *= comp.inverse;
        im *= comp.inverse;
    } else {
        alignas(64) double r[kLanes], i[kLanes];
        Store8(r, re);
        Store8(i, im);
        ApplyLanes<Kind>(comp, r, i);
        Load8(r, re);
        Load8(i, im);
    }
}

// 8 x 8 blocks of doubles between rows and lanes: dst[c * ds + r] =
// src[r * ss + c], in three rounds of two-vector shuffles (pairs of rows,
// pairs of pairs, halves), inlined into the vectorised loops that use it.
RZ_FORCE_INLINE void Transpose8(const double *src, size_t ss, double *dst, size_t ds) {
    V8 r[8], t[8], u[8];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) Load8(src + i * ss, r[i]);
#pragma GCC unroll 4
    for (size_t i = 0; i < 8; i += 2) {
        t[i] = __builtin_shufflevector(r[i], r[i + 1], 0, 8, 2, 10, 4, 12, 6, 14);     // columns 0 2 4 6 of rows i, i + 1
        t[i + 1] = __builtin_shufflevector(r[i], r[i + 1], 1, 9, 3, 11, 5, 13, 7, 15); // columns 1 3 5 7
    }
#pragma GCC unroll 2
    for (size_t i = 0; i < 8; i += 4)
#pragma GCC unroll 2
        for (size_t h = 0; h < 2; ++h) {
            u[i + h] = __builtin_shufflevector(t[i + h], t[i + 2 + h], 0, 1, 8, 9, 4, 5, 12, 13);     // columns h, 4 + h
            u[i + 2 + h] = __builtin_shufflevector(t[i + h], t[i + 2 + h], 2, 3, 10, 11, 6, 7, 14, 15); // 2 + h, 6 + h
        }
#pragma GCC unroll 4
    for (size_t c = 0; c < 4; ++c) {
        Store8(dst + c * ds, __builtin_shufflevector(u[c], u[4 + c], 0, 1, 2, 3, 8, 9, 10, 11));
        Store8(dst + (c + 4) * ds, __builtin_shufflevector(u[c], u[4 + c], 4, 5, 6, 7, 12, 13, 14, 15));
    }
}

// Rows 2b (real parts) and 2b + 1 (imaginary parts), `stride` doubles
// apart, to and from lane b, `width` elements.
RZ_FORCE_INLINE void RowsToLanes(const double *rows, size_t stride, int32_t width, Lanes &lanes) {
    const int32_t whole = width / kLanes * kLanes;
    for (int32_t half = 0; half < 2; ++half) {
        const double *src = rows + size_t(half) * stride;
        double *dst = half ? lanes.im : lanes.re;
        for (int32_t x = 0; x < whole; x += kLanes) Transpose8(src + x, 2 * stride, dst + size_t(x) * kLanes, kLanes);
        for (int32_t x = whole; x < width; ++x)
            for (int32_t b = 0; b < kLanes; ++b) dst[size_t(x) * kLanes + b] = src[2 * b * stride + x];
    }
}

RZ_FORCE_INLINE void LanesToRows(const Lanes &lanes, int32_t width, double *rows, size_t stride) {
    const int32_t whole = width / kLanes * kLanes;
    for (int32_t half = 0; half < 2; ++half) {
        const double *src = half ? lanes.im : lanes.re;
        double *dst = rows + size_t(half) * stride;
        for (int32_t x = 0; x < whole; x += kLanes) Transpose8(src + size_t(x) * kLanes, kLanes, dst + x, 2 * stride);
        for (int32_t x = whole; x < width; ++x)
            for (int32_t b = 0; b < kLanes; ++b) dst[2 * b * stride + x] = src[size_t(x) * kLanes + b];
    }
}

} // namespace

int32_t ForwardReal(const Plan &pw, const Plan &ph, int32_t signX, int32_t signY, RowLoader loadRow,
                    PassReport report, const ArrayView &out) {
    const int32_t W = pw.n, H = ph.n, Wc = W / 2 + 1;
    Lanes lanes;
    RZ_RETURN_IF_FAILED(lanes.init(std::max(W, H)));
    // Rows 2b and 2b + 1 of a group are lane b's real and imaginary parts;
    // they are read whole and turned into lanes in 8 x 8 blocks.
    KrnPtr<double[]> rows = KrnArray<double>(KrnCheckedSize(size_t(W), 2 * kLanes, 1));
    if (!rows) return ST_FAILURE;
    for (int32_t y0 = 0; y0 < H; y0 += 2 * kLanes) {
        for (int32_t r = 0; r < 2 * kLanes; ++r) {
            double *dst = rows.get() + size_t(r) * W;
            if (y0 + r >= H) {
                std::fill(dst, dst + W, 0.0);
                continue;
            }
            RZ_RETURN_IF_FAILED(loadRow(y0 + r, dst));
            RZ_RETURN_IF_FAILED(report(0, y0 + r + 1, H));
        }
        Vectorised([&]() RZ_LAMBDA_INLINE { RowsToLanes(rows.get(), size_t(W), W, lanes); });
        Transform(pw, signX, lanes);
        // Z = A + iB: A(k) = (Z(k) + conj Z(-k)) / 2, B(k) = (Z(k) - conj Z(-k)) / 2i,
        // eight elements of sixteen rows at a time.
        const int32_t nrows = std::min(2 * kLanes, H - y0);
        Vectorised([&]() RZ_LAMBDA_INLINE {
            for (int32_t k0 = 0; k0 < Wc; k0 += kLanes) {
                alignas(64) double q[4][kLanes * kLanes], t[4][kLanes * kLanes];
                for (int32_t d = 0; d < kLanes; ++d) {
                    const int32_t k = std::min(k0 + d, Wc - 1);
                    const size_t i = size_t(k) * kLanes, j = size_t(k == 0 ? 0 : W - k) * kLanes;
                    const double *__restrict zr = lanes.re + i, *__restrict zi = lanes.im + i;
                    const double *__restrict wr = lanes.re + j, *__restrict wi = lanes.im + j;
                    for (int32_t b = 0; b < kLanes; ++b) {
                        q[0][d * kLanes + b] = 0.5 * (zr[b] + wr[b]);
                        q[1][d * kLanes + b] = 0.5 * (zi[b] - wi[b]);
                        q[2][d * kLanes + b] = 0.5 * (zi[b] + wi[b]);
                        q[3][d * kLanes + b] = 0.5 * (wr[b] - zr[b]);
                    }
                }
                for (int32_t c = 0; c < 4; ++c) Transpose8(q[c], kLanes, t[c], kLanes);
                const size_t bytes = size_t(std::min(kLanes, Wc - k0)) * 16;
                for (int32_t r = 0; r < nrows; ++r) {
                    const double *re = t[2 * (r % 2)] + (r / 2) * kLanes, *im = t[2 * (r % 2) + 1] + (r / 2) * kLanes;
                    if (bytes == 16 * kLanes) {
                        StoreLanes(out.at(k0, y0 + r), re, im);
                    } else {
                        uint8_t part[16 * kLanes];
                        StoreLanes(part, re, im);
                        std::memcpy(out.at(k0, y0 + r), part, bytes);
                    }
                }
            }
        });
    }

    ColumnBlock block;
    RZ_RETURN_IF_FAILED(block.init(H));
    for (int32_t u0 = 0; u0 < Wc; u0 += block.columns()) {
        const int32_t nb = std::min(block.columns(), Wc - u0), groups = (nb + kLanes - 1) / kLanes;
        if (nb < block.columns()) block.clear(nb);
        Vectorised([&]() RZ_LAMBDA_INLINE {
            for (int32_t v = 0; v < H; ++v)
                for (int32_t g = 0; g < groups; ++g) {
                    const int32_t u = u0 + g * kLanes;
                    if (u + kLanes <= W) { // lanes past nb are transformed and dropped
                        LoadLanes(out.at(u, v), block.groupRe(g) + size_t(v) * kLanes,
                                  block.groupIm(g) + size_t(v) * kLanes);
                    } else {
                        for (int32_t c = u - u0; c < nb; ++c) out.load(u0 + c, v, block.re(c, v), block.im(c, v));
                    }
                }
        });
        block.transform(ph, signY, nb);
        // Each result also gives its mirror image, X(W - u, -v) = conj X(u, v),
        // written while the row is at hand.
        const int32_t firstMirrored = std::max(u0, 1), lastMirrored = std::min(u0 + nb, W - Wc + 1);
        Vectorised([&]() RZ_LAMBDA_INLINE {
            for (int32_t v = 0; v < H; ++v) {
                const int32_t nv = v == 0 ? 0 : H - v;
                for (int32_t g = 0; g < groups; ++g) {
                    const int32_t u = u0 + g * kLanes;
                    const double *re = block.groupRe(g) + size_t(v) * kLanes, *im = block.groupIm(g) + size_t(v) * kLanes;
                    if (u + kLanes <= u0 + nb)
                        StoreLanes(out.at(u, v), re, im);
                    else
                        for (int32_t c = u - u0; c < nb; ++c) out.store(u0 + c, v, block.re(c, v), block.im(c, v));
                    if (u >= firstMirrored && u + kLanes <= lastMirrored)
                        StoreLanesReversed(out.at(W - u - (kLanes - 1), nv), re, im, -1.0);
                    else
                        for (int32_t m = std::max(u, firstMirrored); m < std::min(u + kLanes, lastMirrored); ++m)
                            out.store(W - m, nv, block.re(m - u0, v), -block.im(m - u0, v));
                }
            }
        });
        RZ_RETURN_IF_FAILED(report(1, u0 + nb, Wc));
    }
    return ST_SUCCESS;
}

int32_t InverseReal(const Plan &pw, const Plan &ph, int32_t signX, int32_t signY, const ArrayView &in,
                    const Component &comp, RealRows &out, PassReport report, const RowSink *sink) {
    const int32_t W = pw.n, H = ph.n, Wc = W / 2 + 1;
    Lanes lanes;
    RZ_RETURN_IF_FAILED(lanes.init(std::max(W, H)));
    // Columns 0..W/2 of the column transforms of S = (X(u, v) + conj X(-u, -v)) / 2;
    // the other columns are their conjugates. They are kept as the row pass
    // reads them: rows in groups of sixteen, and in a group, element u of
    // the eight even rows' real parts, their imaginary parts, the odd rows'
    // real and imaginary parts, eight doubles each (`slot` below). The group's real
    // rows later take its place, row y at y * stride (W doubles in W/2 + 1
    // complex).
    const size_t stride = size_t(Wc) * 2;
    // Rows of zeros up to a multiple of sixteen complete the last group of
    // the row pass (and pair with the last row of an odd height).
    const size_t rowsC = (size_t(H) + 2 * kLanes - 1) / (2 * kLanes) * (2 * kLanes);
    out.data = KrnArray<double>(KrnCheckedSize(stride, rowsC, 1));
    if (!out.data) return ST_FAILURE;
    AdviseLargeBlock(out.data.get(), rowsC * stride * sizeof(double), true);
    out.stride = stride;
    double *C = out.data.get();
    const size_t groupDoubles = 2 * kLanes * stride; // = 4 * kLanes * Wc
    std::fill(C + size_t(H) / (2 * kLanes) * groupDoubles, C + rowsC * stride, 0.0);
    // Where row y's element u goes: part 0 real, 1 imaginary.
    auto slot = [&](int32_t y, int32_t u, int32_t part) {
        return C + size_t(y / (2 * kLanes)) * groupDoubles + size_t(u) * 4 * kLanes +
               size_t(2 * (y % 2) + part) * kLanes + size_t(y % (2 * kLanes) / 2);
    };

    ColumnBlock block;
    RZ_RETURN_IF_FAILED(block.init(H));
    // The array is scaled in place as it is read: column u with its mirror
    // image W - u, except the columns that are their own mirror images
    // (0 and W/2), which are scaled once their block is read.
    auto selfMirrored = [&](int32_t u) { return u == 0 || 2 * u == W; };
    auto scaleColumn = [&](int32_t u) {
        for (int32_t v = 0; v < H; ++v) {
            double re, im;
            in.load(u, v, re, im);
            comp.apply(re, im);
            in.store(u, v, re, im);
        }
    };
    for (int32_t u0 = 0; u0 < Wc; u0 += block.columns()) {
        const int32_t nb = std::min(block.columns(), Wc - u0);
        if (nb < block.columns()) block.clear(nb);
        const int32_t groups = (nb + kLanes - 1) / kLanes;
        auto gather = [&](auto kind) RZ_LAMBDA_INLINE {
            for (int32_t v = 0; v < H; ++v) {
                const int32_t nv = v == 0 ? 0 : H - v;
                for (int32_t g = 0; g < groups; ++g) {
                    const int32_t u = u0 + g * kLanes;
                    // Whole groups with their mirror images past W/2 go as vectors.
                    if (u >= 1 && u + kLanes <= u0 + nb && 2 * (u + kLanes - 1) < W) {
                        uint8_t *direct = in.at(u, v), *mirror = in.at(W - u - (kLanes - 1), nv);
                        if constexpr (decltype(kind)::value == FT_BOTH) {
                            // A plain scaling needs no lanes: the elements are scaled
                            // as they lie and the mirror images reversed in place.
                            V8 a0, a1, m0, m1;
                            Load8(direct, a0);
                            Load8(direct + 64, a1);
                            Load8(mirror, m0);
                            Load8(mirror + 64, m1);
                            a0 *= comp.inverse, a1 *= comp.inverse, m0 *= comp.inverse, m1 *= comp.inverse;
                            Store8(direct, a0);
                            Store8(direct + 64, a1);
                            Store8(mirror, m0);
                            Store8(mirror + 64, m1);
                            const V8 conj = {1.0, -1.0, 1.0, -1.0, 1.0, -1.0, 1.0, -1.0};
                            const V8 s0 = a0 + conj * __builtin_shufflevector(m1, m1, 6, 7, 4, 5, 2, 3, 0, 1);
                            const V8 s1 = a1 + conj * __builtin_shufflevector(m0, m0, 6, 7, 4, 5, 2, 3, 0, 1);
                            Store8(block.groupRe(g) + size_t(v) * kLanes,
                                   0.5 * __builtin_shufflevector(s0, s1, 0, 2, 4, 6, 8, 10, 12, 14));
                            Store8(block.groupIm(g) + size_t(v) * kLanes,
                                   0.5 * __builtin_shufflevector(s0, s1, 1, 3, 5, 7, 9, 11, 13, 15));
                            continue;
                        }
                        V8 ar, ai, cr, ci;
                        Deinterleave(direct, ar, ai);
                        DeinterleaveReversed(mirror, cr, ci);
                        ApplyLanes<decltype(kind)::value>(comp, ar, ai);
                        ApplyLanes<decltype(kind)::value>(comp, cr, ci);
                        Interleave(direct, ar, ai);
                        InterleaveReversed(mirror, cr, ci);
                        Store8(block.groupRe(g) + size_t(v) * kLanes, 0.5 * (ar + cr));
                        Store8(block.groupIm(g) + size_t(v) * kLanes, 0.5 * (ai - ci));
                        continue;
                    }
                    for (int32_t c = u - u0; c < std::min(nb, u - u0 + kLanes); ++c) {
                        const int32_t uc = u0 + c, mu = uc == 0 ? 0 : W - uc;
                        double ar, ai, cr, ci;
                        in.load(uc, v, ar, ai);
                        in.load(mu, nv, cr, ci);
                        comp.apply(ar, ai);
                        comp.apply(cr, ci);
                        if (!selfMirrored(uc)) {
                            in.store(uc, v, ar, ai);
                            in.store(mu, nv, cr, ci);
                        }
                        block.re(c, v) = 0.5 * (ar + cr);
                        block.im(c, v) = 0.5 * (ai - ci);
                    }
                }
            }
        };
        Vectorised([&]() RZ_LAMBDA_INLINE {
            if (comp.kind == FT_MAGNITUDE)
                gather(KindIs<FT_MAGNITUDE>());
            else if (comp.kind == FT_PHASE)
                gather(KindIs<FT_PHASE>());
            else
                gather(KindIs<FT_BOTH>());
        });
        for (int32_t u = u0; u < u0 + nb; ++u)
            if (selfMirrored(u)) scaleColumn(u);
        block.transform(ph, signY, nb);
        // Eight columns of the eight even (odd) rows of a group make one 8 x 8 block.
        const int32_t wholeRows = H / (2 * kLanes) * (2 * kLanes);
        Vectorised([&]() RZ_LAMBDA_INLINE {
            for (int32_t y0 = 0; y0 < wholeRows; y0 += 2 * kLanes)
                for (int32_t g = 0; g < groups && g * kLanes + kLanes <= nb; ++g)
                    for (int32_t p = 0; p < 2; ++p) {
                        const size_t from = size_t(y0 + p) * kLanes;
                        Transpose8(block.groupRe(g) + from, 2 * kLanes, slot(y0 + p, u0 + g * kLanes, 0), 4 * kLanes);
                        Transpose8(block.groupIm(g) + from, 2 * kLanes, slot(y0 + p, u0 + g * kLanes, 1), 4 * kLanes);
                    }
        });
        for (int32_t y = 0; y < H; ++y)
            for (int32_t c = y < wholeRows ? nb / kLanes * kLanes : 0; c < nb; ++c) {
                *slot(y, u0 + c, 0) = block.re(c, y);
                *slot(y, u0 + c, 1) = block.im(c, y);
            }
        const int32_t st = report(0, u0 + nb, Wc);
        if (st != ST_SUCCESS) {
            // Stopped: the rest of the array is scaled all the same.
            for (int32_t u = u0 + nb; u < Wc; ++u) {
                scaleColumn(u);
                if (!selfMirrored(u)) scaleColumn(W - u);
            }
            return st;
        }
    }

    // Rows y1, y2 are conjugate-symmetric in u, so C1 + i C2 transforms to
    // c1 + i c2 with both real. Rows y0 + 2b and y0 + 2b + 1 make lane b:
    // Z(u) = C1(u) + i C2(u) for u <= W/2 and, by the symmetry,
    // Z(W - u) = conj C1(u) + i conj C2(u).
    KrnPtr<double[]> rows = KrnArray<double>(KrnCheckedSize(size_t(W), 2 * kLanes, 1));
    if (!rows) return ST_FAILURE;
    const int32_t lastMirrored = W - Wc; // Z(W - u) for 1 <= u <= W - Wc
    for (int32_t y0 = 0; y0 < H; y0 += 2 * kLanes) {
        const double *group = C + size_t(y0 / (2 * kLanes)) * groupDoubles;
        Vectorised([&]() RZ_LAMBDA_INLINE {
            for (int32_t u = 0; u < Wc; ++u) {
                const double *__restrict er = group + size_t(u) * 4 * kLanes, *__restrict ei = er + kLanes;
                const double *__restrict orr = ei + kLanes, *__restrict oi = orr + kLanes;
                double *__restrict zr = lanes.re + size_t(u) * kLanes, *__restrict zi = lanes.im + size_t(u) * kLanes;
                for (int32_t b = 0; b < kLanes; ++b) zr[b] = er[b] - oi[b], zi[b] = ei[b] + orr[b];
                if (u < 1 || u > lastMirrored) continue;
                double *__restrict mr = lanes.re + size_t(W - u) * kLanes, *__restrict mi = lanes.im + size_t(W - u) * kLanes;
                for (int32_t b = 0; b < kLanes; ++b) mr[b] = er[b] + oi[b], mi[b] = orr[b] - ei[b];
            }
        });
        Transform(pw, signX, lanes);
        // The real rows replace their spectrum rows, or go to the sink.
        double *dst = sink ? rows.get() : C + size_t(y0) * stride;
        const size_t dstStride = sink ? size_t(W) : stride;
        const int32_t nrows = std::min(2 * kLanes, H - y0);
        if (nrows == 2 * kLanes) {
            Vectorised([&]() RZ_LAMBDA_INLINE { LanesToRows(lanes, W, dst, dstStride); });
        } else {
            for (int32_t r = 0; r < nrows; ++r) {
                const double *src = (r % 2 ? lanes.im : lanes.re) + r / 2;
                for (int32_t x = 0; x < W; ++x) dst[size_t(r) * dstStride + x] = src[size_t(x) * kLanes];
            }
        }
        for (int32_t r = 0; sink && r < nrows; ++r) RZ_RETURN_IF_FAILED((*sink)(y0 + r, dst + size_t(r) * dstStride));
        RZ_RETURN_IF_FAILED(report(1, std::min(H, y0 + 2 * kLanes), H));
    }
    return ST_SUCCESS;
}

} // namespace rz::freq
