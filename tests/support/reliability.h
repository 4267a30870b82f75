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

} // namespace rz::test
