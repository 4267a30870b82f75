// What kind of picture a bitmap is, in a user's words, and why an operation
// turned one down.
#pragma once

#include "tools/operations.h"

#include <string>

namespace rzimg {

// "8-bit grey", "24-bit colour", "32-bit colour with alpha", ...
std::string KindName(const BitmapDesc *bitmap);

// When `call` refused `bitmap` with `status` for its kind (the same
// arguments work on another kind of picture), a sentence saying what the
// operation takes and how to get there; empty otherwise. The operation is tried on small
// pictures of each kind with the status callback silenced.
std::string ExplainRefusal(const PreparedCall &call, int32_t status, const BitmapDesc *bitmap,
                           const std::string &file);

} // namespace rzimg
