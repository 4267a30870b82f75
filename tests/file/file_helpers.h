// Shared pieces of the file tests: a scratch folder, file bytes, a loaded
// file, and the colour a pixel shows (stored sample through its palette),
// so pictures at different depths compare.
#pragma once

#include "support/bitmaps.h"

#include <rzfil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace rz::test {

// A fresh folder, removed with its contents at the end.
struct TempDir {
    inline static std::atomic<int> count{0};
    const std::filesystem::path dir = std::filesystem::temp_directory_path() /
        ("rzfil-test-" + std::to_string(getpid()) + "-" + std::to_string(count++));
    TempDir() { std::filesystem::create_directories(dir); }
    ~TempDir() { std::filesystem::remove_all(dir); }
    std::string path(const std::string &name) const { return (dir / name).string(); }
    std::vector<std::string> names() const { // sorted, hidden files included
        std::vector<std::string> out;
        for (const auto &e : std::filesystem::directory_iterator(dir))
            out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }
};

using Bytes = std::string;
inline Bytes ReadBytes(const std::string &path) {
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}
inline void WriteBytes(const std::string &path, const Bytes &b) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << b;
}

inline int32_t Info(const std::string &path, RzFileInfo *info) {
    *info = RzFileInfo{};
    info->uStructSize = sizeof(RzFileInfo);
    return Rz_GetFileInfo(path.c_str(), info);
}

// A loaded file; the bitmap frees whatever the load gave it.
struct Loaded : Bitmap {
    int32_t status;
    explicit Loaded(const std::string &path, int32_t page = 0) : Bitmap(OutputBitmap()) {
        status = Rz_LoadBitmap(path.c_str(), get(), BITMAPDESC_SIZE, page);
    }
};

inline int32_t Save(const std::string &path, const BitmapDesc *b, int32_t format = RZ_FMT_UNKNOWN,
                    int32_t compression = 0, int32_t quality = 0) {
    RzSaveOptions o{sizeof(RzSaveOptions), format, quality, compression};
    return Rz_SaveBitmap(path.c_str(), b, &o);
}

// What a pixel shows: 16-bit red, green, blue and alpha (65535 without a
// fourth channel). Grey of 12/16 bits is its significant range scaled to 16
// bits by a left shift.
struct Rgba {
    uint32_t r, g, b, a;
    bool operator==(const Rgba &o) const = default;
    friend std::ostream &operator<<(std::ostream &os, const Rgba &c) {
        return os << c.r << " " << c.g << " " << c.b << " " << c.a;
    }
};
inline Rgba Look(const BitmapDesc *b, int32_t x, int32_t y) {
    uint64_t v = 0;
    EXPECT_EQ(KrnGetPixel(b, x, y, &v), KRN_OK);
    const int bits = b->nBitsPerPixel;
    if (bits <= 8 && b->nColorOrder == KRN_ORDER_GRAY) {
        const uint32_t g = uint32_t(v * 65535 / ((1u << bits) - 1));
        return {g, g, g, 65535};
    }
    if (bits <= 8) {
        const RzRGBQuad e = b->pPalette[v];
        return {e.rgbRed * 257u, e.rgbGreen * 257u, e.rgbBlue * 257u, 65535};
    }
    if (bits == 12 || bits == 16) {
        const int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit, count = high - b->nLowBit + 1;
        const uint32_t g = uint32_t(((v >> b->nLowBit) & ((1u << count) - 1)) << (16 - count));
        return {g, g, g, 65535};
    }
    const int w = bits <= 32 ? 8 : 16; // bits per channel
    auto c = [&](int k) { return uint32_t(v >> (w * k) & ((1u << w) - 1)) * (w == 8 ? 257 : 1); };
    return {c(0), c(1), c(2), bits == 32 || bits == 64 ? c(3) : 65535};
}

// Every pixel shows the same (alpha only when asked); reports the first few that differ.
inline void ExpectSamePicture(const BitmapDesc *src, const BitmapDesc *got, bool alpha = true) {
    ASSERT_EQ(std::tuple(got->nWidth, got->nHeight), std::tuple(src->nWidth, src->nHeight));
    int bad = 0;
    for (int32_t y = 0; y < src->nHeight; ++y)
        for (int32_t x = 0; x < src->nWidth; ++x) {
            Rgba a = Look(src, x, y), b = Look(got, x, y);
            if (!alpha)
                a.a = b.a = 0;
            if (!(a == b) && bad++ < 3)
                ADD_FAILURE() << "pixel " << x << "," << y << ": " << a << " became " << b;
        }
    EXPECT_EQ(bad, 0);
}

} // namespace rz::test
