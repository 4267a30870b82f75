// The reliability sweeps every operation goes through (tests/reliability):
// each allocation failed in turn, cancellation at each progress step, bad
// descriptors and parameters, on every layout, with and without a region and
// in a transposed view. Export-list operations on one bitmap with scalar
// parameters join automatically; others join with one line, the call making
// and freeing any extra input inside:
//
//   RZ_RELIABILITY_CASE(Rz_RemapBitmapIntensity, [](BitmapDesc *b) { ... });
//
// Operations on several bitmaps bind their other inputs outside the measured
// part (RZ_RELIABILITY_BOUND_CASE, or from the export list), and name the
// places of their bitmap arguments, each given null and spoiled in turn.
#pragma once

#include <rzimg.h>

#include "exports/registry.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace rz::test {

using OpCall = std::function<int32_t(BitmapDesc *)>;

// What an operation documents against the sweeps' pixel rules.
enum : unsigned {
    kRegionIgnored = 1,          // pixels outside the region change too
    kWritesBeforeAllocating = 2, // a failed allocation can leave rows written
    kAllOrNothing = 4,           // a stop leaves the bitmap as it was
};

// A bitmap argument of a bound call.
struct BitmapPlace {
    BitmapDesc **place;     // what the call passes
    int32_t nullStatus;     // status of a null here; 0 when null is accepted or cannot be passed
    bool input = true;      // false: a result the export fills
    bool optional = false;  // an input the export ignores when it has no pixels
};

// A call with its other inputs made for one prepared bitmap.
class BoundCall {
  public:
    std::function<int32_t()> run;
    std::vector<BitmapPlace> places; // in the order the export checks them
    std::function<void()> releaseOutputs = [] {};
    std::shared_ptr<void> keep; // inputs the call refers to
};

using OpBind = std::function<BoundCall(BitmapDesc *)>;

struct ReliabilityCase {
    std::string name;   // export name
    OpCall call;
    OpBind bind;        // instead of call, for operations on several bitmaps
    unsigned flags = 0; // RZ_OPF_ of the export
    // Status of a null bitmap (-814 unless the export documents another).
    int32_t nullStatus = ST_NULL_POINTER;
    // Statuses a failed allocation may give (a nested step may map it).
    std::vector<int32_t> failureStatuses{ST_FAILURE};
    // Size of the sweeps' bitmaps when the case needs its own (0: the default).
    int32_t width = 0, height = 0;
    unsigned pixels = 0;              // kRegionIgnored...
    std::vector<std::string> layouts; // a costly case's layouts (empty: all)
};

// `call`, or `bind` for cases that have one.
BoundCall Bind(const ReliabilityCase &c, BitmapDesc *bmp);

// An export-list operation bound to a prepared bitmap: the bitmap in its
// first bitmap place (or first in a list, a copy after it), copies for
// further bitmaps (null where accepted), a fresh result, null tables and the
// defaults. `adjust` may change the arguments and return inputs it made.
using ArgAdjust = std::function<std::shared_ptr<void>(std::vector<Arg> &args, BitmapDesc *prepared)>;
BoundCall BindRegistry(const OpInfo &op, BitmapDesc *bmp, int32_t nullStatus, const ArgAdjust &adjust = {});

// Whether an export-list operation needs binding (a further bitmap, a list or a result).
bool NeedsBinding(const OpInfo &op);

std::vector<ReliabilityCase> &ReliabilityCases();

struct ReliabilityRegistrar {
    ReliabilityRegistrar(const char *name, OpCall call, int32_t nullStatus = ST_NULL_POINTER,
                         std::vector<int32_t> failureStatuses = {ST_FAILURE}, int32_t width = 0, int32_t height = 0,
                         std::vector<std::string> layouts = {});
    // A registry operation with adjusted arguments.
    ReliabilityRegistrar(const char *name, ArgAdjust adjust, int32_t nullStatus = ST_NULL_POINTER,
                         std::vector<int32_t> failureStatuses = {ST_FAILURE});
};

#define RZ_RELIABILITY_CASE_CAT2(a, b) a##b
#define RZ_RELIABILITY_CASE_CAT(a, b) RZ_RELIABILITY_CASE_CAT2(a, b)
#define RZ_RELIABILITY_CASE(name, ...)                                                   \
    static ::rz::test::ReliabilityRegistrar RZ_RELIABILITY_CASE_CAT(rz_reliability_, __LINE__)( \
        #name, __VA_ARGS__)
// The operation from the export list, its arguments changed by an ArgAdjust.
#define RZ_RELIABILITY_BOUND_CASE(name, ...)                                                 \
    static ::rz::test::ReliabilityRegistrar RZ_RELIABILITY_CASE_CAT(rz_reliability_, __LINE__)( \
        #name, ::rz::test::ArgAdjust(__VA_ARGS__))

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
