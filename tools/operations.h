// The tool's operation table is the registry: every export flagged
// RZ_OPF_INPLACE is called through its generic caller with arguments parsed
// from the command line against the registry's names, ranges and defaults.
// Exports that need a table or a record are reached only through a custom
// parser registered by export name (custom_ops.cpp).
#pragma once

#include "exports/registry.h"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rzimg {

// A call ready to run on a bitmap. run() returns the operation's status;
// a non-empty `why` reports an argument that only the bitmap could refute
// (a table of the wrong length, say).
struct PreparedCall {
    const rz::OpInfo *op = nullptr;
    std::string args; // "change=200", as shown in messages and the gallery
    std::function<int32_t(BitmapDesc *bitmap, std::string &why)> run;
};

// Custom callers: words after the operation name in, a prepared call or an
// error message out.
using CustomParser = bool (*)(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                              std::string &error);

struct CustomEntry {
    const char *exportName;
    const char *usage;     // argument synopsis
    const char *help;      // a paragraph for `rzimg help`
    const char *demoWords; // arguments the gallery uses, or null to leave it out
    const char *toolFilled; // parameters the parser sets itself, space-separated
    CustomParser parse;
};

std::span<const CustomEntry> CustomEntries();
const CustomEntry *FindCustom(std::string_view exportName);

enum class Reach { Generic, Custom, Unavailable };
Reach Reachability(const rz::OpInfo &op);
// Why an unavailable operation cannot be run from the command line.
std::string UnavailableReason(const rz::OpInfo &op);

// nChange -> change, uLUTLen -> lut-len.
std::string ParamName(const rz::ParamInfo &param);
// "-1000..1000", "2 or more".
std::string RangeText(const rz::ParamInfo &param);

// Finds an operation by command-line or export name.
const rz::OpInfo *LookupOperation(std::string_view name);

// Parses the words following the operation name: positional in the
// registry's order, optional from the right, or name=value.
bool PrepareCall(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                 std::string &error);

// The generic parser for the scalar parameters; those named in toolFilled
// (space-separated) are passed as 0 or null and not taken from the words.
// Image files fill the bitmap arguments (by name, else in order, the rest
// going to a list); `fill` may set the tool-filled arguments before each call.
bool PrepareScalars(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                    std::string &error, std::string_view toolFilled = {},
                    std::function<void(std::vector<rz::Arg> &)> fill = {});

// Checks one scalar value against the registry's range; the message names
// the operation, the argument and the range.
bool ParseScalar(const rz::OpInfo &op, const rz::ParamInfo &param, std::string_view text, int64_t &value,
                 std::string &error);

// One operation for `list` (brief) or `help` (detailed).
void DescribeOperation(std::ostream &out, const rz::OpInfo &op, bool detailed);

} // namespace rzimg
