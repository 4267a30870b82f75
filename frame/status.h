// The common opening of every export: the exception guard and the
// descriptor checks, in the order every export uses.
#pragma once

#include <rzimg.h>

#include <new>

namespace rz {

// Nothing may escape across the C boundary; a C++ exception becomes a status.
template <class F> int32_t Guard(F &&body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return ST_FAILURE;
    } catch (...) {
        return ST_FAILURE;
    }
}

enum class Signed { Refused, Accepted };

// Null pointer, structure size, signed samples: the first three checks.
inline int32_t CheckBitmap(const BitmapDesc *bmp, Signed sig) {
    if (!bmp) return ST_NULL_POINTER;
    if (bmp->uStructSize != BITMAPDESC_SIZE) return ST_BAD_STRUCT_SIZE;
    if (sig == Signed::Refused && (bmp->uFlags & BMF_SIGNED)) return ST_SIGNED_NOT_SUPPORTED;
    return ST_SUCCESS;
}

// A descriptor the kernel cannot address (no pixels, inconsistent sizes, an
// unknown depth, a palette count above 256) is refused before any row is
// touched.
inline int32_t CheckAddressable(const BitmapDesc *bmp) {
    const int32_t st = KrnValidateBitmap(bmp);
    if (st == 1) return ST_SUCCESS;
    return st == ST_BAD_PIXEL_FORMAT ? ST_BAD_PIXEL_FORMAT : ST_NO_BITMAP;
}

#define RZ_RETURN_IF_FAILED(expr)                     \
    do {                                              \
        const int32_t rz_status_ = (expr);            \
        if (rz_status_ != ST_SUCCESS) return rz_status_; \
    } while (0)

} // namespace rz
