// Seeded test bitmaps of every layout. Pixels are written through the
// kernel's own pixel setter so that the layouts stay the kernel's business.
#include "support/bitmaps.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <utility>

namespace rz::test {

const std::vector<Layout> &AllLayouts() {
    static const std::vector<Layout> layouts = {
        {"pal1_grey", 1, KRN_ORDER_BGR, 0},
        {"pal4_colour", 4, KRN_ORDER_BGR, 0, 0, -1, true},
        {"pal8_grey", 8, KRN_ORDER_BGR, 0},
        {"pal8_colour", 8, KRN_ORDER_BGR, 0, 0, -1, true},
        {"grey8", 8, KRN_ORDER_GRAY, 1},
        {"grey12", 12, KRN_ORDER_GRAY, 1, 0, 11},
        {"grey16", 16, KRN_ORDER_GRAY, 1, 0, 15},
        {"grey16_bits0_11", 16, KRN_ORDER_GRAY, 1, 0, 11},
        {"grey16_lut", 16, KRN_ORDER_GRAY, 0, 0, 15, false, true},
        {"bgr24", 24, KRN_ORDER_BGR, 1},
        {"rgb24", 24, KRN_ORDER_RGB, 1},
        {"bgr32", 32, KRN_ORDER_BGR, 1},
        {"bgr48", 48, KRN_ORDER_BGR, 1},
        {"rgb48", 48, KRN_ORDER_RGB, 1},
        {"bgr64", 64, KRN_ORDER_BGR, 1},
    };
    return layouts;
}

const Layout &FindLayout(const std::string &name) {
    for (const Layout &l : AllLayouts())
        if (name == l.name) return l;
    throw std::invalid_argument("no layout " + name);
}

Bitmap::Bitmap(const Layout &layout, int32_t width, int32_t height, uint32_t seed) {
    if (KrnInitBitmap(&desc_, BITMAPDESC_SIZE, width, height, layout.bits) != 1)
        throw std::runtime_error("KrnInitBitmap failed");
    owned_ = true;
    desc_.nColorOrder = layout.order;
    desc_.nDataKind = layout.dataKind;
    desc_.nLowBit = layout.lowBit;
    desc_.nHighBit = layout.highBit;
    if (KrnAllocBitmap(&desc_) != 1) throw std::runtime_error("KrnAllocBitmap failed");
    std::mt19937 rng(seed);
    if (layout.colourPalette) {
        RzRGBQuad pal[256];
        for (auto &e : pal) e = {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), 0};
        KrnSetBitmapPalette(&desc_, 0, desc_.nColors, pal);
    }
    if (layout.displayTable) {
        desc_.pLUT = static_cast<RzRGBQuad *>(KrnMemAllocHandle(256 * sizeof(RzRGBQuad)));
        if (!desc_.pLUT) throw std::runtime_error("no memory for the display table");
        for (int i = 0; i < 256; ++i) desc_.pLUT[i] = {uint8_t(i), uint8_t(i), uint8_t(i), 0};
        desc_.nLUTLength = 256;
        desc_.uFlags |= BMF_USE_LUT;
    }
    if (seed == 0) return;
    const int bits = layout.bits;
    for (int32_t y = 0; y < desc_.nHeight; ++y)
        for (int32_t x = 0; x < desc_.nWidth; ++x) {
            uint64_t v = (uint64_t(rng()) << 32) | rng();
            if (bits < 64) v &= (uint64_t(1) << bits) - 1;
            KrnSetPixel(&desc_, x, y, v);
        }
}

Bitmap::~Bitmap() {
    // Tests spoil the size field on purpose; the memory is still ours.
    desc_.uStructSize = BITMAPDESC_SIZE;
    if (owned_) KrnFreeBitmap(&desc_);
}

Bitmap::Bitmap(const Bitmap &other) : owned_(true) {
    if (KrnCopyBitmap(&desc_, &other.desc_, BITMAPDESC_SIZE) != 1) throw std::runtime_error("KrnCopyBitmap failed");
}

Bitmap &Bitmap::operator=(const Bitmap &other) { return *this = Bitmap(other); }

Bitmap::Bitmap(Bitmap &&other) noexcept : desc_(other.desc_), owned_(std::exchange(other.owned_, false)) {}

// The other takes ours and releases it.
Bitmap &Bitmap::operator=(Bitmap &&other) noexcept {
    std::swap(desc_, other.desc_);
    std::swap(owned_, other.owned_);
    return *this;
}

Bitmap Bitmap::Adopt(const BitmapDesc &desc) {
    Bitmap b;
    b.desc_ = desc;
    b.owned_ = (desc.uFlags & BMF_ALLOCATED) != 0;
    return b;
}

uint64_t Bitmap::pixel(int32_t x, int32_t y) const {
    uint64_t v = 0;
    EXPECT_EQ(KrnGetPixel(&desc_, x, y, &v), 1) << "pixel " << x << "," << y;
    return v;
}

void Bitmap::setPixel(int32_t x, int32_t y, uint64_t value) {
    EXPECT_EQ(KrnSetPixel(&desc_, x, y, value), 1) << "pixel " << x << "," << y;
}

std::vector<uint8_t> Bitmap::storedBytes() const {
    std::vector<uint8_t> out;
    const uint32_t rowBytes = (uint32_t(desc_.nBitsPerPixel) * uint32_t(desc_.nStoredWidth) + 7) / 8;
    for (int32_t y = 0; y < desc_.nStoredHeight; ++y)
        out.insert(out.end(), desc_.pData + size_t(y) * desc_.nStride,
                   desc_.pData + size_t(y) * desc_.nStride + rowBytes);
    return out;
}

Bitmap GreyBitmap(int32_t width, int32_t height, const std::vector<uint8_t> &values) {
    Bitmap b(FindLayout("grey8"), width, height, 0);
    for (int32_t i = 0; i < width * height; ++i) b.setPixel(i % width, i / width, values[size_t(i)]);
    return b;
}

CallbackRecorder::CallbackRecorder() { KrnSetStatusCallback(&Callback, this, &prev_, &prevUser_); }

CallbackRecorder::~CallbackRecorder() { KrnSetStatusCallback(prev_, prevUser_, nullptr, nullptr); }

bool CallbackRecorder::installed() const {
    void *user = nullptr;
    return KrnGetStatusCallback(&user) == &Callback && user == this;
}

int32_t RZAPI CallbackRecorder::Callback(int32_t percent, void *user) {
    auto *self = static_cast<CallbackRecorder *>(user);
    self->percents_.push_back(percent);
    return self->stopCall_ > 0 && self->calls() == self->stopCall_ ? self->stopValue_ : 1;
}

Channels ReadChannels(const Bitmap &b, int32_t x, int32_t y) {
    const uint64_t p = b.pixel(x, y);
    const int bpp = b->nBitsPerPixel;
    Channels c;
    if (bpp <= 16) {
        c.bits = bpp <= 8 ? 8 : 16;
        c.v[0] = bpp == 12 ? uint32_t(p) << 4 : uint32_t(p);
        return c;
    }
    const int w = bpp >= 48 ? 16 : 8;
    const uint64_t mask = (uint64_t(1) << w) - 1;
    c.count = 3;
    c.bits = w;
    for (int i = 0; i < 3; ++i) c.v[2 - i] = uint32_t((p >> (i * w)) & mask); // red in the low bits
    c.fourth = uint32_t((p >> (3 * w)) & mask);
    return c;
}

void WriteChannels(Bitmap &b, int32_t x, int32_t y, const Channels &c) {
    const int bpp = b->nBitsPerPixel;
    if (bpp <= 16) return b.setPixel(x, y, bpp == 12 ? c.v[0] >> 4 : c.v[0]);
    const int w = c.bits;
    b.setPixel(x, y, uint64_t(c.v[2]) | uint64_t(c.v[1]) << w | uint64_t(c.v[0]) << (2 * w) |
                         uint64_t(c.fourth) << (3 * w));
}

const std::vector<const char *> &DirectLayouts() {
    static const std::vector<const char *> names = {"grey8", "grey12", "grey16", "bgr24",
                                                    "rgb24", "bgr32", "bgr48", "bgr64"};
    return names;
}

Bitmap DepthBitmap(int32_t width, int32_t height, int32_t bits) {
    const Layout layout{"depth", bits, bits == 12 || bits == 16 ? KRN_ORDER_GRAY : KRN_ORDER_BGR, 0};
    return Bitmap(layout, width, height, 0);
}

Bitmap OutputBitmap() {
    Bitmap b = DepthBitmap(1, 1, 8);
    KrnFreeBitmap(b.get());
    return b;
}

} // namespace rz::test
