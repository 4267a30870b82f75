// Owning handle for a kernel bitmap descriptor, so that every exit path of
// the tool releases pixels, palette and region (KrnFreeBitmap) exactly once.
#pragma once

#include <rzkrn.h>

#include <cstring>
#include <utility>

namespace rzimg {

class Bitmap {
  public:
    Bitmap() { std::memset(&desc_, 0, sizeof desc_); }
    ~Bitmap() { reset(); }
    Bitmap(Bitmap &&other) noexcept : Bitmap() { std::swap(desc_, other.desc_); }
    Bitmap &operator=(Bitmap &&other) noexcept {
        if (this != &other) {
            reset();
            std::swap(desc_, other.desc_);
        }
        return *this;
    }
    Bitmap(const Bitmap &) = delete;
    Bitmap &operator=(const Bitmap &) = delete;

    BitmapDesc *get() { return &desc_; }
    const BitmapDesc *get() const { return &desc_; }
    BitmapDesc *operator->() { return &desc_; }
    const BitmapDesc *operator->() const { return &desc_; }
    // A descriptor is released only once it has been filled by the kernel.
    void reset() {
        if (desc_.uStructSize != 0) KrnFreeBitmap(&desc_);
        std::memset(&desc_, 0, sizeof desc_);
    }

  private:
    BitmapDesc desc_;
};

} // namespace rzimg
