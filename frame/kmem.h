// Scratch memory from the kernel allocator, owned by RAII so that every
// early return frees it.
#pragma once

#include <rzkrn.h>

#include <cstddef>
#include <memory>

namespace rz {

struct KrnDeleter {
    void operator()(void *p) const noexcept { KrnMemFree(p); }
};

template <class T> using KrnPtr = std::unique_ptr<T, KrnDeleter>;

// count elements of T, uninitialised; null on failure or size overflow.
template <class T> KrnPtr<T[]> KrnArray(std::size_t count) {
    const std::size_t bytes = KrnCheckedSize(count ? count : 1, sizeof(T), 1);
    return KrnPtr<T[]>(bytes ? static_cast<T *>(KrnMemAlloc(bytes)) : nullptr);
}

template <class T> KrnPtr<T[]> KrnArrayZeroed(std::size_t count) {
    const std::size_t bytes = KrnCheckedSize(count ? count : 1, sizeof(T), 1);
    return KrnPtr<T[]>(bytes ? static_cast<T *>(KrnMemAllocZeroed(bytes, 1)) : nullptr);
}

// Restores the bitmap's view perspective on scope exit.
class ViewGuard {
  public:
    explicit ViewGuard(BitmapDesc *bmp) : bmp_(bmp), saved_(bmp->nViewPerspective) {}
    ~ViewGuard() {
        if (bmp_->nViewPerspective != saved_)
            KrnChangeViewPerspective(nullptr, bmp_, BITMAPDESC_SIZE, saved_, 0);
    }
    int32_t set(int32_t view) { return KrnChangeViewPerspective(nullptr, bmp_, BITMAPDESC_SIZE, view, 0); }
    ViewGuard(const ViewGuard &) = delete;
    ViewGuard &operator=(const ViewGuard &) = delete;

  private:
    BitmapDesc *bmp_;
    int32_t saved_;
};

// Silences the caller's callback around nested calls and restores it.
class CallbackSilencer {
  public:
    CallbackSilencer() { KrnSetStatusCallback(nullptr, nullptr, &cb_, &user_); }
    ~CallbackSilencer() { KrnSetStatusCallback(cb_, user_, nullptr, nullptr); }
    RZSTATUSCALLBACK callback() const { return cb_; }
    void *user() const { return user_; }
    CallbackSilencer(const CallbackSilencer &) = delete;
    CallbackSilencer &operator=(const CallbackSilencer &) = delete;

  private:
    RZSTATUSCALLBACK cb_ = nullptr;
    void *user_ = nullptr;
};

} // namespace rz
