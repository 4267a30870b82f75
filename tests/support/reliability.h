// The reliability sweeps every operation goes through: each allocation failed
// in turn, cancellation at each progress step, bad descriptors and
// parameters, on bitmaps of every layout, with and without a region and in a
// transposed view. Operations of the export list that work on one bitmap
// with scalar parameters join automatically; others join with one line:
//
//   RZ_RELIABILITY_CASE(Rz_RemapBitmapIntensity, [](BitmapDesc *b) { ... });
//
// The call must build any extra input it needs inside and free it.
#pragma once

#include <rzimg.h>

#include <functional>
#include <string>
#include <vector>

namespace rz::test {

using OpCall = std::function<int32_t(BitmapDesc *)>;

struct ReliabilityCase {
    std::string name;   // export name
    OpCall call;
    unsigned flags = 0; // RZ_OPF_ of the export
    // Status of a null bitmap (-814 unless the export documents another).
    int32_t nullStatus = ST_NULL_POINTER;
    // Statuses a failed allocation may give (a nested step may map it).
    std::vector<int32_t> failureStatuses{ST_FAILURE};
    // Size of the sweeps' bitmaps when the case needs its own (0: the default).
    int32_t width = 0, height = 0;
};

std::vector<ReliabilityCase> &ReliabilityCases();

struct ReliabilityRegistrar {
    ReliabilityRegistrar(const char *name, OpCall call, int32_t nullStatus = ST_NULL_POINTER,
                         std::vector<int32_t> failureStatuses = {ST_FAILURE}, int32_t width = 0, int32_t height = 0);
};

#define RZ_RELIABILITY_CASE_CAT2(a, b) a##b
#define RZ_RELIABILITY_CASE_CAT(a, b) RZ_RELIABILITY_CASE_CAT2(a, b)
#define RZ_RELIABILITY_CASE(name, ...)                                                   \
    static ::rz::test::ReliabilityRegistrar RZ_RELIABILITY_CASE_CAT(rz_reliability_, __LINE__)( \
        #name, __VA_ARGS__)

// ---- Deep grey: several significant-bit ranges in one sweep ----
// Calls `call` once. On a transposed view (one of the sweep's placements),
// 12/16-bit grey is given significant bits 3..9 or 3..13 for the call and
// `alt` is true, so the sweeps cover a narrow range and another channel or
// argument set without a second progress sequence.
template <class Call> int32_t WithNarrowBits(BitmapDesc *b, Call &&call) {
    const bool alt = b && b->uStructSize == BITMAPDESC_SIZE && b->nViewPerspective >= 5;
    const bool deep = alt && b->nColorOrder == KRN_ORDER_GRAY && (b->nBitsPerPixel == 12 || b->nBitsPerPixel == 16);
    if (!deep) return call(b, alt);
    const int32_t low = b->nLowBit, high = b->nHighBit;
    b->nLowBit = 3;
    b->nHighBit = b->nBitsPerPixel == 12 ? 9 : 13;
    const int32_t st = call(b, alt);
    b->nLowBit = low;
    b->nHighBit = high;
    return st;
}
// ---- end of deep grey ----

} // namespace rz::test
