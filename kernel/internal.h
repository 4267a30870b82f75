// Kernel-internal declarations shared between the kernel's source files.
#ifndef RZKRN_INTERNAL_H
#define RZKRN_INTERNAL_H

#include "rzkrn.h"
#include "samples.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace krn {

// Largest pixel block and picture the kernel hands out (rzkrn.h); larger
// requests fail as sizes the kernel cannot represent.
constexpr uint64_t kMaxImageBytes = KRN_MAX_BITMAP_BYTES;
constexpr uint64_t kMaxPixels = KRN_MAX_PIXELS;
// Most rows or columns of a picture.
constexpr int64_t kMaxDimension = INT32_MAX;

// Stride and total bytes of a stored picture; KRN_BAD_BITS for an unknown
// depth, KRN_INVALID_PARAMETER for a size the kernel cannot represent.
int32_t ComputeLayout(int64_t width, int64_t height, int bits, uint32_t *stride, size_t *total);

// Geometry of a descriptor whose fields are consistent (KRN_OK) or -2.
int32_t CheckGeometry(const BitmapDesc *b);

// A zero-filled pixel block (freed by KrnMemFree), aligned for column
// passes; counted and failure-injected like KrnMemAllocZeroed.
void *AllocPixelBlock(size_t size);

// Rows in an explicit view (the descriptor must have passed KrnValidateBitmap;
// row and view are trusted). View width is derived from the stored size.
void ReadViewRow(const BitmapDesc *b, int view, uint8_t *dst, int64_t row, uint32_t first, uint32_t count);

// 256-entry palette block filled with the grey ramp of 2^bits entries.
RzRGBQuad *NewGrayPalette(int bits);
void FillGrayRamp(RzRGBQuad *entries, int count);

inline int64_t ViewWidth(const BitmapDesc *b, int view) {
    return ViewIsTransposed(view) ? b->nStoredHeight : b->nStoredWidth;
}
inline int64_t ViewHeight(const BitmapDesc *b, int view) {
    return ViewIsTransposed(view) ? b->nStoredWidth : b->nStoredHeight;
}
inline uint64_t PackedBytes(int64_t width, int bits) { return (uint64_t(width) * unsigned(bits) + 7) / 8; }

// The metadata block of a descriptor (metadata.cpp): released, or copied
// into *out (null when the source has none; KRN_FAILURE out of memory).
void FreeMetadata(BitmapDesc *b);
int32_t CloneMetadata(void **out, const BitmapDesc *src);

// Owns one kernel block until released.
class Block {
  public:
    Block() = default;
    explicit Block(void *p) : p_(p) {}
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    Block(Block &&o) noexcept : p_(o.release()) {}
    Block &operator=(Block &&o) noexcept {
        reset(o.release());
        return *this;
    }
    ~Block() { KrnMemFree(p_); }
    void reset(void *p = nullptr) {
        KrnMemFree(p_);
        p_ = p;
    }
    template <class T = uint8_t> T *get() const { return static_cast<T *>(p_); }
    template <class T = void> T *release() { return static_cast<T *>(std::exchange(p_, nullptr)); }
    explicit operator bool() const { return p_ != nullptr; }

  private:
    void *p_ = nullptr;
};

} // namespace krn

#endif
