/*
 * shapes.h - rasterising the builder shapes into run tables of a w x h view.
 * Each returns a kernel status (KRN_OK, -1 for memory, or the mask's own
 * error) and leaves out untouched on failure.
 */
#ifndef RZ_DISPLAY_SHAPES_H
#define RZ_DISPLAY_SHAPES_H

#include "runs.h"

namespace rzdis {

int32_t rasteriseRect(const RzRect &rc, int32_t w, int32_t h, RunTable &out);
int32_t rasteriseEllipse(const RzRect &rc, int32_t w, int32_t h, RunTable &out);
int32_t rasterisePolygon(const RzPoint *pts, int32_t count, bool winding, int32_t w, int32_t h,
                         RunTable &out);
int32_t rasteriseMask(const BitmapDesc &mask, int32_t w, int32_t h, RunTable &out);

} // namespace rzdis

#endif
