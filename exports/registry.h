// The operation registry: the export list as data (names, parameters,
// callers), for the command-line tool and the reliability tests.
#pragma once

#include <rzimg.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace rz {

// Source: a further bitmap the operation reads; List: a KrnBitmapList;
// Result: a descriptor the operation fills with a new bitmap.
enum class ParamKind { Bitmap, I32, U32, Ptr, Source, List, Result };

struct ParamInfo {
    const char *name;
    ParamKind kind;
    int64_t lo, hi, def;
    const char *doc;
    // Source: where its descriptor checks come relative to the first
    // bitmap's (0; negative before), and whether null is accepted.
    int rank = 0;
    bool nullable = false;
    // Ptr: the declared type ("const SpatialKernel *"), the size of what it
    // points to, and whether the operation writes there.
    const char *type = nullptr;
    size_t pointee = 0;
    bool output = false;
};

union Arg {
    int64_t i;
    void *p;
};

struct OpInfo {
    int ordinal;
    const char *name;   // export name, Rz_ChangeBitmapIntensity
    const char *family; // source folder
    unsigned flags;     // RZ_OPF_
    const char *summary;
    std::span<const ParamInfo> params; // every parameter, the bitmap included
    int32_t (*invoke)(const Arg *args);
    std::string cliName() const;
};

std::span<const OpInfo> Operations();
// By export name or command-line name; null when unknown.
const OpInfo *FindOperation(std::string_view name);
// Rz_ChangeBitmapIntensity -> change-intensity, Rz_MedianFilterBitmap -> median-filter.
std::string CliName(std::string_view exportName);

} // namespace rz
