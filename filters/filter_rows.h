// What every neighbourhood filter shares: a row context on the whole bitmap
// at the bitmap's own precision (writes restricted to the region's spans),
// the region's bounding rectangle as the pixels to compute, and a ring of
// source rows padded left and right with copies of the edge pixels, so that
// the inner loops read a window without testing for the edges. Rows beyond
// the top and bottom are the edge rows themselves (the ring is keyed by the
// clamped row index), so a window of any height needs at most one buffer per
// real row.
#pragma once

#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__GNUC__)
#define RZ_FORCE_INLINE inline __attribute__((always_inline))
#else
#define RZ_FORCE_INLINE inline
#endif

namespace rz::filt {

// Hot loops are written once, as force-inlined templates, and run through
// Vectorised(), which compiles the caller's lambda for AVX-512 (512-bit
// vectors), for AVX2 and for the baseline, and picks one by the processor.
// Elsewhere it simply runs the lambda.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define RZ_LAMBDA_INLINE __attribute__((always_inline))
template <class F>
__attribute__((target("avx512f,avx512bw,avx512vl,avx2,prefer-vector-width=512"))) void VectorAvx512(const F &f) {
    f();
}
template <class F> __attribute__((target("avx2"))) void VectorAvx2(const F &f) { f(); }
inline int VectorLevel() {
    static const int level = (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) ? 2
                             : __builtin_cpu_supports("avx2")                                         ? 1
                                                                                                      : 0;
    return level;
}
template <class F> void Vectorised(const F &f) {
    switch (VectorLevel()) {
    case 2: VectorAvx512(f); break;
    case 1: VectorAvx2(f); break;
    default: f();
    }
}
#else
#define RZ_LAMBDA_INLINE
template <class F> void Vectorised(const F &f) { f(); }
#endif

// 1..8-bit grey in 8-bit samples; everything else in the frame's default
// format for its depth (16-bit grey, 24 or 48-bit colour).
inline uint32_t FilterMode(const BitmapDesc *bmp) {
    const bool grey = bmp->nColorOrder == KRN_ORDER_GRAY || KrnIsGrayscale(bmp);
    if (bmp->nBitsPerPixel <= 8 && grey) return RC_WHOLE_BITMAP | RC_WORK8;
    return RC_WHOLE_BITMAP;
}

inline int32_t Clamp(int64_t v, int32_t lo, int32_t hi) {
    return static_cast<int32_t>(v < lo ? lo : (v > hi ? hi : v));
}

// One filter pass over a bitmap. open() answers 1 when there are pixels to
// compute, ST_NOTHING_TO_DO when there are none (the caller reports
// completion), or a failure.
struct Pass {
    RowContextPtr ctx;
    RzRect bounds{};     // pixels computed
    int32_t width = 0;   // of the view
    int32_t height = 0;
    int32_t channels = 0;
    bool wide = false;   // 16-bit samples

    int32_t open(BitmapDesc *bmp, uint32_t mode) {
        int32_t st = 0;
        ctx = MakeRowContext(bmp, mode, st);
        if (st != ST_SUCCESS) return st;
        width = bmp->nWidth;
        height = bmp->nHeight;
        channels = ContextChannels(ctx.get());
        wide = ContextSampleBits(ctx.get()) == 16;
        st = DisGetRegionBounds(bmp, 0, &bounds);
        if (st != 1) return st;
        bounds.left = std::clamp(bounds.left, 0, width);
        bounds.right = std::clamp(bounds.right, bounds.left, width);
        bounds.top = std::clamp(bounds.top, 0, height);
        bounds.bottom = std::clamp(bounds.bottom, bounds.top, height);
        if (bounds.left >= bounds.right || bounds.top >= bounds.bottom) return ST_NOTHING_TO_DO;
        return ST_SUCCESS;
    }

    int32_t beginProgress(int32_t start, int32_t end) { return BeginProgressRect(ctx.get(), start, end, &bounds); }

    // A zeroed row buffer the frame can convert and write back.
    template <class T> KrnPtr<T[]> outputRow() const {
        return KrnArrayZeroed<T>(ContextRowBytes(ctx.get()) / sizeof(T) + 16);
    }
};

// Source rows keyed by real row index, each padded by padLeft and padRight
// pixels of replicated edge.
template <class T> class RowRing {
  public:
    int32_t init(RowContext *ctx, int32_t width, int32_t channels, int32_t capacity, int64_t padLeft,
                 int64_t padRight) {
        ctx_ = ctx;
        width_ = width;
        channels_ = channels;
        capacity_ = std::max(capacity, 1);
        padLeft_ = padLeft * channels;
        padRight_ = padRight * channels;
        // The frame may write a few bytes past a working row.
        const int64_t rowSamples = std::max<int64_t>(int64_t(width) * channels + padRight_,
                                                     ContextRowBytes(ctx) / sizeof(T) + 16);
        stride_ = (padLeft_ + rowSamples + 31) & ~int64_t(31);
        const size_t total = KrnCheckedSize(size_t(stride_), size_t(capacity_), 1);
        if (!total) return ST_FAILURE;
        data_ = KrnArray<T>(total);
        if (!data_) return ST_FAILURE;
        return ST_SUCCESS;
    }

    // The first real row that will be asked for; rows above it are not read.
    void skipTo(int32_t row) { next_ = std::max(next_, row); }

    // Reads the real rows up to and including `row` that are not yet held.
    int32_t load(int32_t row) {
        while (next_ <= row) {
            T *p = slot(next_);
            const int32_t st = GetRow(ctx_, p, next_, nullptr, nullptr);
            if (st != ST_SUCCESS) return st;
            pad(p);
            ++next_;
        }
        return ST_SUCCESS;
    }

    // Pixel 0 of a loaded real row; samples -padLeft .. width + padRight
    // (in pixels) may be read.
    const T *row(int32_t realRow) const { return slot(realRow); }
    int64_t stride() const { return stride_; }

  private:
    T *slot(int32_t realRow) const { return data_.get() + (realRow % capacity_) * stride_ + padLeft_; }

    void pad(T *p) const {
        const int32_t c = channels_;
        const int64_t end = int64_t(width_) * c;
        for (int64_t i = -padLeft_; i < 0; i += c)
            for (int32_t k = 0; k < c; ++k) p[i + k] = p[k];
        for (int64_t i = end; i < end + padRight_; i += c)
            for (int32_t k = 0; k < c; ++k) p[i + k] = p[end - c + k];
    }

    RowContext *ctx_ = nullptr;
    KrnPtr<T[]> data_;
    int32_t width_ = 0, channels_ = 0, capacity_ = 1, next_ = 0;
    int64_t padLeft_ = 0, padRight_ = 0, stride_ = 0;
};

// The real rows or columns lo..hi of a window clamped to 0..n-1, with the
// number of times the first and last stand in (edge replication).
struct ClampedRange {
    int32_t first, last;
    uint64_t firstWeight, lastWeight; // equal when first == last
    ClampedRange(int64_t lo, int64_t hi, int32_t n) {
        first = Clamp(lo, 0, n - 1);
        last = Clamp(hi, 0, n - 1);
        if (first == last) {
            firstWeight = lastWeight = uint64_t(hi - lo + 1);
            return;
        }
        firstWeight = 1 + uint64_t(std::max<int64_t>(0, -lo));
        lastWeight = 1 + uint64_t(std::max<int64_t>(0, hi - (n - 1)));
    }
    uint64_t weight(int32_t i) const { return i == first ? firstWeight : (i == last ? lastWeight : 1); }
};

// Runs `body` with the bitmap in view 1 and puts the caller's view back.
template <class F> int32_t InPictureView(BitmapDesc *bmp, F &&body) {
    ViewGuard guard(bmp);
    if (bmp->nViewPerspective != 1) {
        const int32_t st = guard.set(1);
        if (st != ST_SUCCESS) return st;
    }
    return body();
}

} // namespace rz::filt
