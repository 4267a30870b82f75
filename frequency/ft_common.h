// What the frequency-domain exports share: the checks of a bitmap and a
// transform array, the picture in view 1 with its region set aside, one
// plane of the bitmap read and written as 8-bit values, and progress at
// chosen percentages.
#pragma once

#include "frame/kmem.h"
#include "frame/row_context.h"
#include "frame/status.h"
#include "frequency/ft_engine.h"

#include <cstdint>

namespace rz::freq {

inline int32_t CheckArray(const FTARRAY *a) {
    if (!a) return ST_NULL_POINTER;
    if (a->uStructSize != FTARRAY_SIZE) return ST_BAD_STRUCT_SIZE;
    return ST_SUCCESS;
}

inline int32_t CheckSizes(const BitmapDesc *bmp, const FTARRAY *a) {
    if (a->uHeight != uint32_t(bmp->nHeight) || a->uWidth != uint32_t(bmp->nWidth)) return ST_INVALID_PARAMETER;
    return ST_SUCCESS;
}

// Bitmap null, size, signed; array null, size; pixels; sizes.
inline int32_t CheckBitmapAndArray(const BitmapDesc *bmp, const FTARRAY *a) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    RZ_RETURN_IF_FAILED(CheckArray(a));
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    return CheckSizes(bmp, a);
}

// A result as an 8-bit value: truncated; below 0 and NaN give 0, above 255 gives 255.
inline uint8_t ToByte(double v) { return !(v >= 0.0) ? 0 : (v >= 255.0 ? 255 : uint8_t(v)); }

// The region is kept out of the bitmap for the call, so the row services
// see the whole picture, and put back on every exit.
class RegionAside {
  public:
    explicit RegionAside(BitmapDesc *bmp) : bmp_(bmp), saved_(bmp->pRegion) { bmp->pRegion = nullptr; }
    ~RegionAside() { bmp_->pRegion = saved_; }
    RegionAside(const RegionAside &) = delete;
    RegionAside &operator=(const RegionAside &) = delete;

  private:
    BitmapDesc *bmp_;
    void *saved_;
};

// The picture in view 1, without its region, for the scope. In a
// transposed view the array must fit the picture in view 1 as well, so a
// non-square picture is refused there (-13).
class WholePicture {
  public:
    WholePicture(BitmapDesc *bmp, const FTARRAY *array) : view_(bmp), region_(bmp) {
        if (bmp->nViewPerspective != 1) status_ = view_.set(1);
        if (status_ == ST_SUCCESS) status_ = CheckSizes(bmp, array);
    }
    int32_t status() const { return status_; }

  private:
    ViewGuard view_;
    RegionAside region_;
    int32_t status_ = ST_SUCCESS;
};

// Reports each percentage once, rising.
class Reporter {
  public:
    Reporter() { cb_ = KrnGetStatusCallback(&user_); }
    int32_t at(int32_t percent) {
        if (!cb_ || percent <= last_) return ST_SUCCESS;
        last_ = percent;
        return cb_(percent, user_);
    }

  private:
    RZSTATUSCALLBACK cb_ = nullptr;
    void *user_ = nullptr;
    int32_t last_ = -1;
};

// Grey bitmaps and the grey plane go through 8-bit grey rows; a colour
// plane through 24 or (48/64 bits) 48-bit rows, whose other channels are
// written back as they were read.
class PlaneIO {
  public:
    // plane: FT_PLANE_ value.
    int32_t open(BitmapDesc *bmp, int32_t plane);
    int32_t read(int32_t y, double *values);
    // Writes values[x] for x0 <= x < x1 into the plane of row y.
    int32_t write(int32_t y, const uint8_t *values, int32_t x0, int32_t x1);

  private:
    RowContextPtr ctx_;
    KrnPtr<uint8_t[]> row_;
    int32_t width_ = 0, channels_ = 1, channel_ = 0;
    bool wide_ = false;
};

inline int32_t OpenGreyContext(BitmapDesc *bmp, RowContextPtr &ctx, KrnPtr<uint8_t[]> &row) {
    int32_t st = ST_SUCCESS;
    ctx = MakeRowContext(bmp, RC_WHOLE_BITMAP | RC_WORK8, st);
    if (st != ST_SUCCESS) return st;
    row.reset(static_cast<uint8_t *>(AllocRowBuffer(ctx.get())));
    return row ? ST_SUCCESS : ST_FAILURE;
}

} // namespace rz::freq
