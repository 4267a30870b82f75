// The lookup-table engine shared by every tone operation.
#pragma once

#include <rzimg.h>

namespace rz {

// Entries a table for this bitmap needs (the size rule of the tone tables).
uint32_t TableSize(const BitmapDesc *bmp);

int32_t ApplyTable(BitmapDesc *bmp, const uint32_t *table, uint32_t n, uint32_t channel, int32_t start,
                   int32_t end);
int32_t ApplyShortTable(BitmapDesc *bmp, const uint32_t *table, uint32_t channel, int32_t start, int32_t end);
int32_t ApplyLongTable(BitmapDesc *bmp, const uint32_t *table, uint32_t n, uint32_t channel, int32_t start,
                       int32_t end);
int32_t ApplyShortTableToPixels(BitmapDesc *bmp, const uint32_t *table, uint32_t channel, int32_t start,
                                int32_t end);
// Re-indexes a table built for unsigned values by two's-complement samples.
int32_t MakeTableSigned(uint32_t *table, uint32_t n);

// Every byte of p[0..count) replaced by its table entry (256 bytes): with
// vector permutes where the processor has them, else the plain loop, which
// stays the reference.
void MapTableBytes(uint8_t *p, int32_t count, const uint8_t *table);
void MapTableBytesPlain(uint8_t *p, int32_t count, const uint8_t *table);

// x * y / z with a 64-bit intermediate, rounded to nearest (halves away from
// zero); -1 when z is 0.
int32_t MulDiv(int32_t x, int32_t y, int32_t z);

} // namespace rz
