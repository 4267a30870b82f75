// Kernel memory and the per-thread status callback.
//
// Every block handed out by the allocators below is counted in one atomic
// live-block counter, so tests can prove that an operation frees all it took
// (KrnMemOutstanding before == after). KrnMemFailAfter arms a per-thread
// countdown that makes exactly one later allocation fail, which lets a test
// walk an operation through a failure at every allocation it makes.
// Zero-byte requests get a one-byte block so that a null result always means
// failure.
#include "rzkrn.h"

#include "internal.h"
#include "page_hint.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

std::atomic<int64_t> g_liveBlocks{0};
thread_local int64_t t_failCountdown = -1;

thread_local RZSTATUSCALLBACK t_callback = nullptr;
thread_local void *t_callbackUser = nullptr;

// One allocation attempt consumes one step of the countdown.
bool InjectedFailure() {
    if (t_failCountdown < 0)
        return false;
    if (t_failCountdown == 0) {
        t_failCountdown = -1;
        return true;
    }
    --t_failCountdown;
    return false;
}

void *Counted(void *block) {
    if (block)
        g_liveBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

} // namespace

namespace krn {

// A column pass touches one page per stored row: with 4 KiB pages a pass
// over a large picture misses the TLB on every cache line, so large blocks
// ask for huge pages (on a huge-page boundary). Small ones start on a cache
// line, so that band transposes read whole lines.
void *AllocPixelBlock(size_t size) {
    constexpr size_t kHuge = size_t(2) << 20;
    if (size == 0) size = 4;
    const size_t align = size >= kHuge ? kHuge : 64;
    if (size > SIZE_MAX - align || InjectedFailure()) return nullptr;
    const size_t rounded = (size + align - 1) / align * align;
    void *block = std::aligned_alloc(align, rounded);
    if (!block) return nullptr;
    if (align == kHuge) AdviseHugePages(block, rounded, false);
    std::memset(block, 0, rounded);
    return Counted(block);
}

} // namespace krn

extern "C" {

RZKRN_API void *RZAPI KrnMemAlloc(size_t size) {
    if (InjectedFailure())
        return nullptr;
    return Counted(std::malloc(size ? size : 1));
}

RZKRN_API void *RZAPI KrnMemAllocZeroed(size_t size, size_t count) {
    size_t total = KrnCheckedSize(size ? size : 1, count ? count : 1, 1);
    if (total == 0 || InjectedFailure())
        return nullptr;
    return Counted(std::calloc(total, 1));
}

RZKRN_API void *RZAPI KrnMemRealloc(void *block, size_t size) {
    if (!block)
        return KrnMemAlloc(size);
    if (InjectedFailure())
        return nullptr; // the old block stays valid and counted
    return std::realloc(block, size ? size : 1);
}

RZKRN_API void RZAPI KrnMemFree(void *block) {
    if (!block)
        return;
    g_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
}

// Blocks a bitmap owns (its display table); zero-filled.
RZKRN_API void *RZAPI KrnMemAllocHandle(size_t size) { return KrnMemAllocZeroed(size, 1); }

RZKRN_API void RZAPI KrnMemFreeHandle(void *block) { KrnMemFree(block); }

RZKRN_API int64_t RZAPI KrnMemOutstanding(void) { return g_liveBlocks.load(std::memory_order_relaxed); }

RZKRN_API int64_t RZAPI KrnMemFailAfter(int64_t n) {
    int64_t previous = t_failCountdown;
    t_failCountdown = n < 0 ? -1 : n;
    return previous;
}

RZKRN_API size_t RZAPI KrnCheckedSize(size_t a, size_t b, size_t c) {
    if (c == 0)
        c = 1;
    size_t ab = 0, abc = 0;
    if (__builtin_mul_overflow(a, b, &ab) || __builtin_mul_overflow(ab, c, &abc))
        return 0;
    return abc;
}

RZKRN_API RZSTATUSCALLBACK RZAPI KrnGetStatusCallback(void **ppUserData) {
    if (ppUserData)
        *ppUserData = t_callbackUser;
    return t_callback;
}

RZKRN_API int32_t RZAPI KrnSetStatusCallback(RZSTATUSCALLBACK pfn, void *pUserData, RZSTATUSCALLBACK *ppfnPrev,
                                             void **ppPrevUserData) {
    if (ppfnPrev)
        *ppfnPrev = t_callback;
    if (ppPrevUserData)
        *ppPrevUserData = t_callbackUser;
    t_callback = pfn;
    t_callbackUser = pUserData;
    return KRN_OK;
}

} // extern "C"
