// Kind names and refusal explanations. An operation's accepted kinds are
// not written down anywhere but in the library itself, so they are found by
// asking it: the call runs on a small picture of each kind the kernel
// stores, and the kinds that succeed are what the operation takes.
#include "tools/kinds.h"

#include "tools/bitmap.h"

#include <vector>

namespace rzimg {
namespace {

struct ProbeKind {
    int bits;
    bool colourPalette; // 1..8 bits: a colour palette instead of the grey ramp
    bool grey;          // 8-bit grey or 12/16-bit grey samples
    const char *name;
};

constexpr ProbeKind kKinds[] = {
    {1, false, true, "1-bit black and white"}, {8, false, true, "8-bit grey"},
    {8, true, false, "8-bit palette colour"},  {16, false, true, "16-bit grey"},
    {24, false, false, "24-bit colour"},       {32, false, false, "32-bit colour with alpha"},
    {48, false, false, "48-bit colour"},       {64, false, false, "64-bit colour with alpha"},
};

// A 32 x 32 picture of the kind with varied content.
bool MakeProbe(const ProbeKind &k, Bitmap &b) {
    if (KrnInitBitmap(b.get(), BITMAPDESC_SIZE, 32, 32, k.bits) != KRN_OK || KrnAllocBitmap(b.get()) != KRN_OK)
        return false;
    if (k.colourPalette) {
        RzRGBQuad pal[256];
        for (int i = 0; i < 256; ++i)
            pal[i] = RzRGBQuad{uint8_t(i * 7), uint8_t(255 - i), uint8_t(i * 3 + 40), 0};
        KrnSetBitmapPalette(b.get(), 0, 256, pal);
    }
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            const uint64_t v = uint64_t(x * 37 + y * 101 + x * y) * 0x9E3779B97F4A7C15ull >> 16;
            KrnSetPixel(b.get(), x, y, k.bits <= 8 ? v & ((1u << k.bits) - 1) : v);
        }
    return true;
}

bool IsGrey(const BitmapDesc *b) {
    if (b->nColorOrder == KRN_ORDER_GRAY) return true;
    if (b->nBitsPerPixel > 8 || !b->pPalette) return false;
    for (int i = 0; i < b->nColors; ++i) {
        const RzRGBQuad &e = b->pPalette[i];
        if (e.rgbRed != e.rgbGreen || e.rgbRed != e.rgbBlue) return false;
    }
    return true;
}

bool IsKindRefusal(int32_t st) {
    return st == ST_BAD_PIXEL_FORMAT || st == ST_INVALID_PARAMETER || st == ST_BAD_BITS || st == ST_NEEDS_1BIT ||
           st == ST_SIGNED_NOT_SUPPORTED;
}

} // namespace

std::string KindName(const BitmapDesc *b) {
    const int bits = b->nBitsPerPixel;
    std::string name = std::to_string(bits) + "-bit ";
    if (bits == 12 || bits == 16) {
        const int high = b->nHighBit < 0 ? bits - 1 : b->nHighBit;
        name += std::string((b->uFlags & BMF_SIGNED) ? "signed " : "") + "grey";
        if (high - b->nLowBit + 1 != bits) name += " (" + std::to_string(high - b->nLowBit + 1) + " significant bits)";
        return name;
    }
    if (bits <= 8) {
        if (bits == 1 && IsGrey(b)) return "1-bit black and white";
        return name + (IsGrey(b) ? "grey" : "palette colour");
    }
    return name + "colour" + (bits == 32 || bits == 64 ? " with alpha" : "");
}

std::string ExplainRefusal(const PreparedCall &call, int32_t status, const BitmapDesc *bitmap,
                           const std::string &file) {
    if (!IsKindRefusal(status)) return {};
    int32_t st = ST_SUCCESS;
    RZSTATUSCALLBACK prevFn = nullptr;
    void *prevUser = nullptr;
    KrnSetStatusCallback(nullptr, nullptr, &prevFn, &prevUser);
    std::vector<const ProbeKind *> takes;
    for (const ProbeKind &k : kKinds) {
        Bitmap probe;
        std::string why;
        if (!MakeProbe(k, probe)) continue;
        st = call.run(probe.get(), why);
        if (why.empty() && (st == ST_SUCCESS || st == ST_NOTHING_TO_DO)) takes.push_back(&k);
    }
    KrnSetStatusCallback(prevFn, prevUser, nullptr, nullptr);
    if (takes.empty()) return {};

    const std::string name = call.op->cliName();
    std::string list;
    bool anyGrey = false, anyColour = false;
    for (size_t i = 0; i < takes.size(); ++i) {
        list += (i == 0 ? "" : i + 1 == takes.size() ? " or " : ", ") + std::string(takes[i]->name);
        (takes[i]->grey ? anyGrey : anyColour) = true;
    }
    const bool grey = IsGrey(bitmap);
    std::string text = name + " does not work on " + KindName(bitmap) + " pictures like '" + file + "': it takes " +
                       list + " pictures";
    if (grey && !anyGrey)
        text += " (it is a colour operation; a colour copy can be made with 'rzimg " + file + " copy.ppm')";
    else if (!grey && !anyColour)
        text += " (it is a grey operation; a grey copy can be made with 'rzimg " + file + " copy.pgm')";
    return text;
}


} // namespace rzimg
