// Filters that take a kernel record: a predefined kernel, a caller's 5x5
// (the ring path) and a user kernel with an off-centre anchor; and the rank
// filters' paths that the default size does not reach.
#include "support/reliability.h"

#include <vector>

namespace {

RZ_RELIABILITY_CASE(Rz_SpatialFilterBitmap,
                    [](BitmapDesc *b) { return Rz_SpatialFilterBitmap(b, RZ_SPF_KERNEL(SPF_SOBEL_VERTICAL)); });

RZ_RELIABILITY_CASE(Rz_SpatialFilterBitmap, [](BitmapDesc *b) {
    std::vector<int32_t> k{SPATIALKERNEL_SIZE, 3, 10, 5};
    for (int i = 0; i < 25; ++i) k.push_back(i % 7 - 3);
    return Rz_SpatialFilterBitmap(b, reinterpret_cast<const SpatialKernel *>(k.data()));
});

RZ_RELIABILITY_CASE(
    Rz_UserFilterBitmap,
    [](BitmapDesc *b) {
        std::vector<int32_t> k{USERFILTERKERNEL_SIZE, 3, 2, 0, 1, 2, 5, RZ_UF_ROUND, 1, 2, 1, -1, 0, 1};
        return Rz_UserFilterBitmap(b, reinterpret_cast<const UserFilterKernel *>(k.data()));
    },
    ST_NO_BITMAP);

// The rank filters' other paths: column histograms (8-bit) and the snaking
// histogram (16-bit) for larger medians, a window above the bitmap's size.
RZ_RELIABILITY_CASE(Rz_MedianFilterBitmap, [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 9); });
RZ_RELIABILITY_CASE(Rz_MaxFilterBitmap, [](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, 40); });
} // namespace
