// The transform array: one zero-filled block from the kernel's handle
// allocator, the header followed by width * height complex doubles.
#include "frequency/ft_common.h"

#include <cstdint>

namespace rz::freq {
namespace {

int32_t AllocArray(BitmapDesc *bmp, FTARRAY **out, uint32_t structSize) {
    RZ_RETURN_IF_FAILED(CheckBitmap(bmp, Signed::Refused));
    RZ_RETURN_IF_FAILED(CheckAddressable(bmp));
    if (!out) return ST_INVALID_PARAMETER;
    *out = nullptr;
    if (structSize != FTARRAY_SIZE) return ST_BAD_STRUCT_SIZE;
    const size_t w = size_t(bmp->nWidth), h = size_t(bmp->nHeight);
    size_t bytes = FTARRAY_SIZE;
    if (w && h) {
        const size_t data = KrnCheckedSize(w, h, 16);
        if (!data || data > SIZE_MAX - FTARRAY_SIZE) return ST_FAILURE;
        bytes = data + FTARRAY_SIZE; // one element more than needed, as the record declares one
    }
    auto *a = static_cast<FTARRAY *>(KrnMemAllocHandle(bytes));
    if (!a) return ST_FAILURE;
    AdviseLargeBlock(a, bytes, false);
    a->uStructSize = structSize;
    a->uWidth = uint32_t(w);
    a->uHeight = uint32_t(h);
    *out = a;
    return ST_SUCCESS;
}

int32_t FreeArray(FTARRAY *a) {
    RZ_RETURN_IF_FAILED(CheckArray(a));
    a->uStructSize = 0;
    KrnMemFreeHandle(a);
    return ST_SUCCESS;
}

} // namespace
} // namespace rz::freq

using namespace rz;

extern "C" {

RZIMG_API int32_t RZAPI Rz_AllocFTArray(BitmapDesc *pBitmap, FTARRAY **ppFTArray, uint32_t uStructSize) {
    return Guard([&] { return freq::AllocArray(pBitmap, ppFTArray, uStructSize); });
}

RZIMG_API int32_t RZAPI Rz_FreeFTArray(FTARRAY *pFTArray) {
    return Guard([&] { return freq::FreeArray(pFTArray); });
}

} // extern "C"
