// Built-in sample images for the demo, drawn by code so that the gallery
// needs no files: a colour chart, a CT-like 16-bit phantom and two skewed
// text pages.
#pragma once

#include "tools/bitmap.h"

#include <string>
#include <vector>

namespace rzimg {

struct Sample {
    std::string key;   // file-name stem
    std::string title; // gallery heading
    std::string note;  // what it is made of
    Bitmap bitmap;
};

// Fills `out`; returns a kernel status (1 on success).
int32_t MakeSamples(std::vector<Sample> &out);

// Rows are drawn lines of nWidth pixels in the bitmap's stored layout.
int32_t PutRow(BitmapDesc *bitmap, int32_t y, const std::vector<uint8_t> &row);

} // namespace rzimg
