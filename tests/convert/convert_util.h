// Shorthands for the converter tests: one call per direction, byte-vector
// rows, and the native 16-bit working words.
#pragma once

#include <rzkrn.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace cvt {

using Bytes = std::vector<uint8_t>;

inline int32_t ToWork(const Bytes &src, Bytes &dst, int32_t width, int32_t bits, int32_t work, int32_t order,
                      const RzRGBQuad *palette = nullptr, int32_t gray = KRN_GRAY_NONE, int32_t low = 0,
                      int32_t high = -1) {
    return KrnConvertRowBuffer(src.data(), dst.data(), width, bits, work, order, 1, palette, KRN_TO_WORK, gray,
                               low, high);
}

inline int32_t ToStored(const Bytes &src, Bytes &dst, int32_t width, int32_t bits, int32_t work, int32_t order,
                        int32_t gray = KRN_GRAY_NONE, int32_t low = 0, int32_t high = -1) {
    return KrnConvertRowBuffer(src.data(), dst.data(), width, bits, work, order, 1, nullptr, KRN_TO_STORED, gray,
                               low, high);
}

inline size_t StoredBytes(int32_t width, int32_t bits) { return (static_cast<size_t>(width) * bits + 7) / 8; }

inline size_t WorkBytes(int32_t width, int32_t work) {
    return static_cast<size_t>(width) * (work == 0 ? 1 : work / 8);
}

inline uint16_t Word(const Bytes &b, size_t i) {
    uint16_t v;
    std::memcpy(&v, b.data() + 2 * i, 2);
    return v;
}

inline Bytes Words(std::initializer_list<uint16_t> w) {
    Bytes b(2 * w.size());
    std::memcpy(b.data(), w.begin(), b.size());
    return b;
}

inline RzRGBQuad Quad(uint8_t r, uint8_t g, uint8_t b) { return RzRGBQuad{b, g, r, 0}; }

} // namespace cvt
