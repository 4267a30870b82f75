// Frequency-domain exports: each case makes its own transform array from
// the swept bitmap and frees it. The FFT needs power-of-two sizes (square,
// so that the transposed view fits too); steps that only prepare the array
// run with the callback cleared, so progress is the swept export's alone.
#include "support/reliability.h"

#include <cstring>

namespace {

struct Array {
    FTARRAY *a = nullptr;
    ~Array() {
        if (a) Rz_FreeFTArray(a);
    }
};

template <class F> int32_t Quietly(F &&f) {
    RZSTATUSCALLBACK cb = nullptr;
    void *user = nullptr;
    KrnSetStatusCallback(nullptr, nullptr, &cb, &user);
    const int32_t st = f();
    KrnSetStatusCallback(cb, user, nullptr, nullptr);
    return st;
}

// A spectrum with every kind of element: zeros, negatives, a large DC term.
void Fill(FTARRAY *a) {
    auto *p = reinterpret_cast<uint8_t *>(a) + 12;
    for (uint32_t i = 0; i < a->uWidth * a->uHeight; ++i) {
        const double z[2] = {i == 0 ? 5000.0 : double(int(i % 7) - 3), double(int(i % 5) - 2)};
        std::memcpy(p + 16 * size_t(i), z, 16);
    }
}

// Runs `body` on a fresh array of the bitmap's size.
template <class F> int32_t WithArray(BitmapDesc *b, F &&body) {
    Array arr;
    const int32_t st = Rz_AllocFTArray(b, &arr.a, FTARRAY_SIZE);
    if (st != 1) return st;
    return body(arr.a);
}

const auto kAllocFree = [](BitmapDesc *b) {
    FTARRAY *a = nullptr;
    const int32_t st = Rz_AllocFTArray(b, &a, FTARRAY_SIZE);
    return st == 1 ? Rz_FreeFTArray(a) : st;
};
RZ_RELIABILITY_CASE(Rz_AllocFTArray, kAllocFree);
RZ_RELIABILITY_CASE(Rz_FreeFTArray, kAllocFree);

RZ_RELIABILITY_CASE(
    Rz_FFTBitmap,
    [](BitmapDesc *b) {
        return WithArray(b, [&](FTARRAY *a) { return Rz_FFTBitmap(b, a, FT_FORWARD | FT_PLANE_RED); });
    },
    ST_NULL_POINTER, {ST_FAILURE}, 16, 16);

RZ_RELIABILITY_CASE(
    Rz_FFTBitmap,
    [](BitmapDesc *b) {
        return WithArray(b, [&](FTARRAY *a) {
            const int32_t st = Quietly([&] { return Rz_FFTBitmap(b, a, FT_FORWARD | FT_PLANE_GREEN); });
            return st != 1 ? st : Rz_FFTBitmap(b, a, FT_INVERSE | FT_PLANE_GREEN | FT_PHASE | FT_STRETCH);
        });
    },
    ST_NULL_POINTER, {ST_FAILURE}, 16, 16);

RZ_RELIABILITY_CASE(Rz_DFTBitmap, [](BitmapDesc *b) {
    return WithArray(b, [&](FTARRAY *a) { return Rz_DFTBitmap(b, a, nullptr, FT_FORWARD | FT_PLANE_BLUE | DFT_WHOLE); });
});

RZ_RELIABILITY_CASE(Rz_DFTBitmap, [](BitmapDesc *b) {
    return WithArray(b, [&](FTARRAY *a) {
        Fill(a);
        const int32_t rect[4] = {1, 2, b->nWidth - 3, b->nHeight - 1};
        return Rz_DFTBitmap(b, a, rect,
                            FT_INVERSE | FT_PLANE_GREY | FT_BOTH | FT_CLIP | DFT_RECT | DFT_COLUMNS_PLUS);
    });
});

RZ_RELIABILITY_CASE(Rz_FTDisplayBitmap, [](BitmapDesc *b) {
    return WithArray(b, [&](FTARRAY *a) {
        Fill(a);
        return Rz_FTDisplayBitmap(b, a, FT_DISPLAY_MAGNITUDE | FT_DISPLAY_LOG);
    });
});

RZ_RELIABILITY_CASE(Rz_FrqFilterBitmap, [](BitmapDesc *b) {
    return WithArray(b, [&](FTARRAY *a) {
        Fill(a);
        const int32_t rect[4] = {1, 1, int32_t(a->uWidth) / 2, int32_t(a->uHeight) - 1};
        return Rz_FrqFilterBitmap(a, rect, FRQ_CENTRED_COORDS | FRQ_ZERO_INSIDE);
    });
});

RZ_RELIABILITY_CASE(Rz_FrqFilterMaskBitmap, [](BitmapDesc *b) {
    return WithArray(b, [&](FTARRAY *a) {
        Fill(a);
        return Rz_FrqFilterMaskBitmap(b, a, 0);
    });
});

} // namespace
