// The reliability sweeps (tests/reliability) take the export list's
// operations with their default arguments; other paths join with one line:
// scalar arguments by position (kDefault keeps the export list's), an
// ArgAdjust that makes records and further inputs, or a call of its own:
//
//   RZ_RELIABILITY_ARGS(Rz_SwirlBitmap, -5000, 2, 1);
//   RZ_RELIABILITY_CASE(Rz_RemapBitmapIntensity, [](BitmapDesc *b) { ... });
#pragma once

#include <rzimg.h>

#include "exports/registry.h"

#include <climits>
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

// A call with its other inputs made for one prepared bitmap (unmeasured).
struct BoundCall {
    std::function<int32_t()> run;
    std::vector<BitmapPlace> places; // in the order the export checks them
    std::function<void()> releaseOutputs = [] {};
    std::shared_ptr<void> keep; // inputs the call refers to
};

// Changes the arguments for a prepared bitmap; returns inputs to keep.
using ArgAdjust = std::function<std::shared_ptr<void>(std::vector<Arg> &args, BitmapDesc *prepared)>;

// Deep copies of a bitmap, released together.
struct Copies {
    std::vector<std::unique_ptr<BitmapDesc>> bitmaps;
    BitmapDesc *copy(BitmapDesc *b); // null when the copy fails
    ~Copies();
};

struct ReliabilityCase {
    std::string name; // export name
    OpCall call;      // a call of its own, or else the export list's ...
    ArgAdjust adjust; // ... with these changes
    unsigned flags = 0;                   // RZ_OPF_ of the export
    int32_t nullStatus = 0;               // of a null bitmap; 0: what the export's flags say
    int32_t width = 0, height = 0;        // of the sweeps' bitmaps, when the case needs its own
    unsigned pixels = 0;                  // kRegionIgnored...
    std::vector<std::string> layouts;     // a costly case's layouts (empty: all)
};

// The export-list form: the bitmap first (in a list, a copy after it), copies
// for further bitmaps (null where accepted), a fresh result, a filled
// transform array, room for outputs, small tables, the defaults; then the
// adjustment.
BoundCall Bind(const ReliabilityCase &c, BitmapDesc *bmp);

// Whether an export-list operation needs binding (a further bitmap, a list or a result).
bool NeedsBinding(const OpInfo &op);

std::vector<ReliabilityCase> &ReliabilityCases();

constexpr int64_t kDefault = INT64_MIN;

struct ReliabilityRegistrar {
    ReliabilityRegistrar(const char *name, OpCall call, int32_t nullStatus = 0, std::vector<std::string> layouts = {},
                         int32_t side = 0);
    ReliabilityRegistrar(const char *name, ArgAdjust adjust, std::vector<std::string> layouts = {}, int32_t side = 0);
};
// The scalar arguments in order, kDefault for the export list's.
ArgAdjust ScalarArgs(const char *name, std::vector<int64_t> values);

#define RZ_RELIABILITY_CAT2(a, b) a##b
#define RZ_RELIABILITY_CAT(a, b) RZ_RELIABILITY_CAT2(a, b)
#define RZ_RELIABILITY_CASE(name, ...)                                                        \
    static ::rz::test::ReliabilityRegistrar RZ_RELIABILITY_CAT(rz_reliability_, __LINE__)( \
        #name, __VA_ARGS__)
#define RZ_RELIABILITY_BOUND_CASE(name, ...) RZ_RELIABILITY_CASE(name, ::rz::test::ArgAdjust(__VA_ARGS__))
#define RZ_RELIABILITY_ARGS(name, ...) RZ_RELIABILITY_CASE(name, ::rz::test::ScalarArgs(#name, {__VA_ARGS__}))

} // namespace rz::test
