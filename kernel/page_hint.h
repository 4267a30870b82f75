// The kernel's hint for large blocks, shared by its own pixel blocks and by
// the image library's large scratch and transform arrays (header only: the
// image library reaches no kernel internals through the shared library).
#ifndef RZKRN_PAGE_HINT_H
#define RZKRN_PAGE_HINT_H

#include <cstddef>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace krn {

// Blocks below this come mostly from the heap already mapped.
constexpr size_t kHugePageWorthIt = size_t(32) << 20;

// Asks that the whole pages of a block be backed by huge pages and, with
// `prefault`, mapped at once. A fresh block otherwise costs one page fault
// per 4 KiB page (on some virtual machines longer than a pass over the
// block) and a sweep down its columns one TLB miss per row. Advice only:
// without the system's support, or on failure, nothing changes.
inline void AdviseHugePages([[maybe_unused]] void *block, [[maybe_unused]] size_t bytes,
                            [[maybe_unused]] bool prefault) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr uintptr_t kPage = 4096;
    const uintptr_t first = (reinterpret_cast<uintptr_t>(block) + kPage - 1) & ~(kPage - 1);
    const uintptr_t last = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(kPage - 1);
    if (last <= first) return;
    madvise(reinterpret_cast<void *>(first), last - first, MADV_HUGEPAGE);
#if defined(MADV_POPULATE_WRITE)
    if (prefault) madvise(reinterpret_cast<void *>(first), last - first, MADV_POPULATE_WRITE);
#endif
#endif
}

} // namespace krn

#endif
