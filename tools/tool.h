// Shared pieces of the rzimg tool: exit codes and the entry points of its
// sub-commands.
#pragma once

#include <rzfil.h>

#include <cstdint>
#include <string>

namespace rzimg {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitCancelled = 130;

inline std::string StatusText(int32_t status) {
    const char *text = Rz_FileStatusText(status);
    return (text && *text ? std::string(text) : std::string("status")) + " (status " + std::to_string(status) + ")";
}

// `rzimg demo [DIR] [--images FOLDER]`: samples (or the pictures in
// FOLDER), every operation, index.html.
int RunDemo(const std::string &dir, bool quiet, const std::string &images = {});

} // namespace rzimg
