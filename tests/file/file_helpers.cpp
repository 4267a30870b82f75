// Test helpers of the file library tests.
#include "file_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace rz::test {

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    dir_ = std::filesystem::temp_directory_path() /
           ("rzfil-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

std::vector<std::string> TempDir::names() const {
    std::vector<std::string> out;
    for (const auto &e : std::filesystem::directory_iterator(dir_))
        out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<uint8_t> ReadBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

void WriteText(const std::string &path, const std::string &text) {
    WriteBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

int32_t Loaded::load(const std::string &path, int32_t page) {
    if (status == ST_SUCCESS)
        KrnFreeBitmap(&d);
    status = Rz_LoadBitmap(path.c_str(), &d, BITMAPDESC_SIZE, page);
    return status;
}

Loaded::~Loaded() {
    if (status == ST_SUCCESS)
        KrnFreeBitmap(&d);
}

Rgba Look(const BitmapDesc *b, int32_t x, int32_t y) {
    uint64_t v = 0;
    EXPECT_EQ(KrnGetPixel(b, x, y, &v), KRN_OK);
    const int bits = b->nBitsPerPixel;
    if (bits <= 8) {
        if (b->nColorOrder == KRN_ORDER_GRAY) {
            const uint32_t g = uint32_t(v * 65535 / ((1u << bits) - 1));
            return {g, g, g, 65535};
        }
        const RzRGBQuad e = b->pPalette[v];
        return {e.rgbRed * 257u, e.rgbGreen * 257u, e.rgbBlue * 257u, 65535};
    }
    if (bits == 12 || bits == 16) {
        const int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit;
        const int count = high - b->nLowBit + 1;
        const uint32_t g = uint32_t(((v >> b->nLowBit) & ((1u << count) - 1)) << (16 - count));
        return {g, g, g, 65535};
    }
    if (bits == 24 || bits == 32) {
        auto c = [&](int k) { return uint32_t((v >> (8 * k)) & 0xFF) * 257; };
        return {c(0), c(1), c(2), bits == 32 ? c(3) : 65535};
    }
    auto c = [&](int k) { return uint32_t((v >> (16 * k)) & 0xFFFF); };
    return {c(0), c(1), c(2), bits == 64 ? c(3) : 65535};
}

int32_t Save(const std::string &path, const BitmapDesc *b, int32_t format, int32_t compression, int32_t quality) {
    RzSaveOptions o{sizeof(RzSaveOptions), format, quality, compression};
    return Rz_SaveBitmap(path.c_str(), b, &o);
}

} // namespace rz::test
