// Two-bitmap and list operations on their other paths: the texture blend
// with a mask and a tiled texture, the combine's prepared values and
// selectors on a shifted rectangle, the weighted list sum; and the edge
// detector's single-direction and kernel paths.
#include "support/reliability.h"

#include <memory>

namespace {

using rz::Arg;

// Copies of the prepared bitmap for the extra inputs, released with the call.
struct Copies {
    std::vector<std::unique_ptr<BitmapDesc>> bitmaps;
    RzPoint offset{-3, 5};
    int32_t weights[2] = {1500, -400};
    BitmapDesc *copy(BitmapDesc *b) {
        bitmaps.push_back(std::make_unique<BitmapDesc>());
        BitmapDesc *d = bitmaps.back().get();
        return KrnCopyBitmap(d, b, BITMAPDESC_SIZE) == KRN_OK ? d : nullptr;
    }
    ~Copies() {
        for (auto &b : bitmaps)
            if (b->uFlags & BMF_ALLOCATED) KrnFreeBitmap(b.get());
    }
};

RZ_RELIABILITY_BOUND_CASE(Rz_TextureAlphaBlendBitmap, [](std::vector<Arg> &a, BitmapDesc *b) {
    auto c = std::make_shared<Copies>();
    a[1].i = 2;            // nX
    a[7].i = -1;           // nSrcY
    a[8].p = c->copy(b);   // pMask
    a[9].i = 200;          // nOpacity
    a[10].p = c->copy(b);  // pTexture
    a[11].p = &c->offset;  // pTextureOffset
    return std::shared_ptr<void>(c);
});

RZ_RELIABILITY_BOUND_CASE(Rz_CombineBitmapExt, [](std::vector<Arg> &a, BitmapDesc *) {
    a[2].i = 3;
    a[6].i = 1;
    a[8].i = CBF_DIVIDE_SRC | CBF_SRC_GREY | CBF_DST_INVERT | CBF_RES_INVERT | CBF_SELECT_RED(CBF_CHANNEL_GREEN);
    return std::shared_ptr<void>();
});

RZ_RELIABILITY_BOUND_CASE(Rz_AddWeightedBitmaps, [](std::vector<Arg> &a, BitmapDesc *) {
    auto c = std::make_shared<Copies>();
    a[3].p = c->weights;
    a[4].i = RZ_ADDW_NORMALISE;
    return std::shared_ptr<void>(c);
});

RZ_RELIABILITY_BOUND_CASE(Rz_AddBitmaps, [](std::vector<Arg> &a, BitmapDesc *) {
    a[3].i = RZ_ADD_SUM;
    return std::shared_ptr<void>();
});

RZ_RELIABILITY_CASE(Rz_EdgeDetectorBitmap, [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 3, EDG_SOBEL_VERTICAL); },
                    ST_NO_BITMAP);
RZ_RELIABILITY_CASE(Rz_EdgeDetectorBitmap, [](BitmapDesc *b) { return Rz_EdgeDetectorBitmap(b, 1, EDG_GRADIENT_SW); },
                    ST_NO_BITMAP);

} // namespace
