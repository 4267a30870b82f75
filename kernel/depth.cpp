// Whole-bitmap depth conversion and display-table folding (in progress).
#include "internal.h"

extern "C" {

RZKRN_API int32_t RZAPI KrnConvertBitmap(BitmapDesc *, BitmapDesc *, uint32_t, int32_t, int32_t, int32_t, int32_t) {
    return KRN_FAILURE;
}

RZKRN_API int32_t RZAPI KrnApplyBitmapLUT(BitmapDesc *, int32_t) { return KRN_FAILURE; }

} // extern "C"
