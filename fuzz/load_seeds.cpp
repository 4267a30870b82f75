// Writes the seed corpus of fuzz_load: a small picture saved by the file
// module in every format and in the depths and compressions each holds, so
// that the fuzzer starts inside the decoders rather than at their signatures.
//   fuzz_load_seeds DIR
#include <rzfil.h>
#include <rzimg.h>

#include <cstdio>
#include <string>

namespace {

struct Seed {
    const char *ext;
    int32_t bits;
    int32_t order;
    int32_t compression;
    bool signedGrey = false;
};

const Seed kSeeds[] = {
    {"png", 1, KRN_ORDER_BGR, 0},  {"png", 4, KRN_ORDER_BGR, 0},   {"png", 8, KRN_ORDER_BGR, 0},
    {"png", 8, KRN_ORDER_GRAY, 0}, {"png", 16, KRN_ORDER_GRAY, 0}, {"png", 24, KRN_ORDER_BGR, 0},
    {"png", 32, KRN_ORDER_BGR, 0}, {"png", 48, KRN_ORDER_BGR, 0},  {"png", 64, KRN_ORDER_BGR, 0},
    {"jpg", 8, KRN_ORDER_GRAY, 0}, {"jpg", 24, KRN_ORDER_BGR, 0},  {"tif", 1, KRN_ORDER_BGR, RZ_TIFF_G4},
    {"tif", 8, KRN_ORDER_BGR, RZ_TIFF_LZW}, {"tif", 8, KRN_ORDER_GRAY, RZ_TIFF_PACKBITS},
    {"tif", 16, KRN_ORDER_GRAY, RZ_TIFF_DEFLATE}, {"tif", 24, KRN_ORDER_BGR, RZ_TIFF_NONE},
    {"tif", 32, KRN_ORDER_BGR, RZ_TIFF_LZW}, {"tif", 48, KRN_ORDER_BGR, RZ_TIFF_NONE},
    {"pbm", 1, KRN_ORDER_BGR, 0},  {"pgm", 8, KRN_ORDER_GRAY, 0},  {"pgm", 16, KRN_ORDER_GRAY, 0},
    {"ppm", 24, KRN_ORDER_BGR, 0}, {"dcm", 8, KRN_ORDER_GRAY, 0},  {"dcm", 12, KRN_ORDER_GRAY, 0},
    {"dcm", 16, KRN_ORDER_GRAY, 0, true},
};

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    int written = 0;
    for (const Seed &s : kSeeds) {
        BitmapDesc b{};
        if (KrnInitBitmap(&b, BITMAPDESC_SIZE, 7, 5, s.bits) != KRN_OK) continue;
        b.nColorOrder = s.order;
        b.nDataKind = s.order == KRN_ORDER_GRAY ? 1 : 0;
        if (s.signedGrey) b.uFlags |= BMF_SIGNED;
        if (KrnAllocBitmap(&b) == KRN_OK) {
            for (uint32_t i = 0; i < b.nStride * uint32_t(b.nStoredHeight); ++i) b.pData[i] = uint8_t(i * 37 + 11);
            const std::string path = std::string(argv[1]) + "/seed-" + std::to_string(s.bits) + "-" +
                                     std::to_string(s.compression) + (s.signedGrey ? "-signed." : ".") + s.ext;
            RzSaveOptions opt{sizeof(RzSaveOptions), RZ_FMT_UNKNOWN, 0, s.compression};
            if (Rz_SaveBitmap(path.c_str(), &b, &opt) == ST_SUCCESS) ++written;
            else std::fprintf(stderr, "not saved: %s\n", path.c_str());
        }
        KrnFreeBitmap(&b);
    }
    std::printf("%d seeds in %s\n", written, argv[1]);
    return written ? 0 : 1;
}
