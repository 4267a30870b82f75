// Deep grey in the tool: window levelling by centre and width (in the
// input's modality units when it is DICOM), the DICOM lines of `rzimg info`
// and the `rzimg stats` report.
#pragma once

#include "tools/operations.h"

#include <iosfwd>
#include <string>

namespace rzimg {

// Remembers the chain's input so that window levelling can use its DICOM
// rescale and window; any other file forgets them.
void SetChainInput(const std::string &path);

// The parser behind `window-level` (custom_ops.cpp lists it).
bool ParseWindowLevel(const rz::OpInfo &op, std::span<const std::string> words, PreparedCall &call,
                      std::string &error);

// ", signed, window 40 / 400 (rescale 1 x + -1024)" for a DICOM file, else "".
std::string DicomDetails(const std::string &path);

// Prints the statistics of `bitmap` (region included) for `rzimg stats`;
// words are [CHANNEL] [START END]. Returns an exit code.
int PrintStatistics(std::ostream &out, BitmapDesc *bitmap, const std::string &name,
                    const std::vector<std::string> &words);

} // namespace rzimg
