// The band transposes of the transposed views: every block kernel against
// the plain loop, and the band services against stored bytes addressed by
// hand, on sizes that leave partial blocks and chunks on every side.
#include "kernel/transpose.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

namespace {

using namespace krn::bands;

class Picture {
  public:
    Picture(int32_t w, int32_t h, int32_t bits, uint32_t seed) {
        EXPECT_EQ(KrnInitBitmap(&d_, BITMAPDESC_SIZE, w, h, bits), KRN_OK);
        EXPECT_EQ(KrnAllocBitmap(&d_), KRN_OK);
        std::mt19937 rng(seed);
        for (size_t i = 0; i < bytes(); ++i) d_.pData[i] = uint8_t(rng());
    }
    ~Picture() { KrnFreeBitmap(&d_); }
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;
    BitmapDesc *get() { return &d_; }
    size_t bytes() const { return size_t(d_.nStride) * size_t(d_.nStoredHeight); }
    std::vector<uint8_t> stored() const { return {d_.pData, d_.pData + bytes()}; }
    void view(int v) { ASSERT_EQ(KrnChangeViewPerspective(nullptr, &d_, BITMAPDESC_SIZE, v, 0), KRN_OK); }

  private:
    BitmapDesc d_{};
};

std::vector<uint8_t> Noise(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto &b : v) b = uint8_t(rng());
    return v;
}

// Stored 601 x 45: view rows are 45 pixels, 601 of them. The band takes
// rows [5, 595) (several chunks at every pixel width, the last one short,
// and a rest that smaller blocks and the plain loop share) and columns
// [2, 43).
constexpr int32_t kStoredW = 601, kStoredH = 45, kRow0 = 5, kRows = 590, kX0 = 2, kX1 = 43;

enum class Kernel { Sse2, Vbmi };

// One pass of a block kernel, or false when this processor lacks it.
template <int E, bool ToStored, bool Keep>
bool RunBlocks(Kernel k, const BandSide &s, int64_t rows, int64_t x0, int64_t x1) {
    if (k == Kernel::Sse2) {
#if defined(__SSE2__)
        if constexpr ((E == 1 || E == 2) && !Keep) {
            using U = std::conditional_t<E == 1, uint8_t, uint16_t>;
            MoveRect<E, ToStored, false>(s, MoveBlocks<E, ToStored, false>(s, 0, rows, x0, x1, Sse2Kernel<U>{}), rows,
                                         x0, x1);
            return true;
        }
#endif
        return false;
    }
#if defined(__GNUC__) && defined(__x86_64__)
    if (!HasVbmi()) return false;
    TransposeBandVbmi<E, ToStored, Keep>(s, rows, x0, x1);
    return true;
#else
    return false;
#endif
}

// Both directions of one pixel width, kept fourth channel or not, in views 5-8.
template <int E, bool Keep> void CompareWithPlainLoop(Kernel kernel, int &runs) {
    const int32_t bits = 8 * E;
    const size_t bandStride = size_t(kX1 - kX0 + 3) * E; // not a multiple of anything in particular
    for (int view = 5; view <= 8; ++view) {
        SCOPED_TRACE(testing::Message() << E << " bytes, keep " << Keep << ", view " << view);
        // Stored to band.
        Picture pic(kStoredW, kStoredH, bits, 7u * E + view);
        pic.view(view);
        const BandMap map(pic.get(), view, kRow0);
        std::vector<uint8_t> plain = Noise(bandStride * kRows, 11), blocks = plain;
        if (!RunBlocks<E, false, Keep>(kernel, BandSide{map, blocks.data(), bandStride, kX0, E}, kRows, kX0, kX1))
            return;
        MoveRect<E, false, Keep>(BandSide{map, plain.data(), bandStride, kX0, E}, 0, kRows, kX0, kX1);
        ASSERT_EQ(blocks, plain);
        // Band to stored.
        Picture a(kStoredW, kStoredH, bits, 13u * E + view), b(kStoredW, kStoredH, bits, 13u * E + view);
        a.view(view);
        b.view(view);
        std::vector<uint8_t> band = Noise(bandStride * kRows, 17);
        const BandMap ma(a.get(), view, kRow0), mb(b.get(), view, kRow0);
        RunBlocks<E, true, Keep>(kernel, BandSide{ma, band.data(), bandStride, kX0, E}, kRows, kX0, kX1);
        MoveRect<E, true, Keep>(BandSide{mb, band.data(), bandStride, kX0, E}, 0, kRows, kX0, kX1);
        ASSERT_EQ(a.stored(), b.stored());
        ++runs;
    }
}

template <bool Keep, int... E> int CompareAll(Kernel kernel) {
    int runs = 0;
    (CompareWithPlainLoop<E, Keep>(kernel, runs), ...);
    return runs;
}

TEST(Transpose, BlockKernelsGiveThePlainLoopsBytes) {
    int runs = 0;
    for (Kernel k : {Kernel::Sse2, Kernel::Vbmi}) {
        runs += CompareAll<false, 1, 2, 3, 4, 6, 8>(k);
        runs += CompareAll<true, 4, 8>(k);
    }
    if (runs == 0) GTEST_SKIP() << "no block kernel on this processor";
}

// Stored byte offset of view pixel (x, y) in views 5-8, worked out from the
// views' definitions: rows of the view run down stored columns.
size_t StoredOffset(const BitmapDesc *d, int view, int64_t x, int64_t y, int e) {
    const int64_t w = d->nStoredWidth, h = d->nStoredHeight;
    const int64_t sx = (view == 5 || view == 8) ? y : w - 1 - y;
    const int64_t sy = (view == 5 || view == 6) ? x : h - 1 - x;
    return size_t(sy) * d->nStride + size_t(sx) * size_t(e);
}

TEST(Transpose, BandServicesMoveTheStoredBytesOfEveryView) {
    for (int32_t bits : {8, 16, 24, 32, 48, 64})
        for (int view = 5; view <= 8; ++view) {
            SCOPED_TRACE(testing::Message() << bits << " bits, view " << view);
            const int e = bits / 8;
            Picture pic(kStoredW, kStoredH, bits, uint32_t(bits + view));
            pic.view(view);
            BitmapDesc *d = pic.get();
            const uint32_t rowBytes = uint32_t(d->nWidth * e);
            const size_t stride = rowBytes + 5;
            std::vector<uint8_t> band(stride * kRows);
            ASSERT_EQ(KrnGetBitmapRows(d, band.data(), stride, kRow0, kRows, 0, rowBytes), KRN_OK);
            for (int i = 0; i < kRows; ++i)
                for (int x = 0; x < d->nWidth; ++x)
                    ASSERT_EQ(std::memcmp(&band[size_t(i) * stride + size_t(x) * e],
                                          d->pData + StoredOffset(d, view, x, kRow0 + i, e), size_t(e)),
                              0)
                        << "get: row " << kRow0 + i << " x " << x;

            // Every pixel of the band's rows written (the fourth channel kept
            // at 32 and 64 bits), every other pixel as it was.
            const std::vector<uint8_t> before = pic.stored();
            const std::vector<uint8_t> fresh = Noise(band.size(), 23);
            ASSERT_EQ(KrnPutBitmapRows(d, fresh.data(), stride, kRow0, kRows, 0, rowBytes, nullptr, 0, nullptr,
                                       KRN_PUT_NORMAL | KRN_PUT_KEEP_FOURTH),
                      KRN_OK);
            std::vector<uint8_t> want = before;
            const int kept = (bits == 32 || bits == 64) ? e / 4 : 0;
            for (int i = 0; i < kRows; ++i)
                for (int x = 0; x < d->nWidth; ++x)
                    std::memcpy(&want[StoredOffset(d, view, x, kRow0 + i, e)], &fresh[size_t(i) * stride + size_t(x) * e],
                                size_t(e - kept));
            ASSERT_EQ(pic.stored(), want);
        }
}

// Column passes read whole cache lines only when stored rows start on one.
TEST(Transpose, PixelBlocksStartOnACacheLineAndAreZero) {
    for (auto [w, h] : {std::pair{3, 3}, std::pair{2048, 1100}}) {
        Picture pic(w, h, 8, 1);
        BitmapDesc *d = pic.get();
        EXPECT_EQ(reinterpret_cast<uintptr_t>(d->pData) % 64, 0u) << w << "x" << h;
        BitmapDesc fresh{};
        ASSERT_EQ(KrnInitBitmap(&fresh, BITMAPDESC_SIZE, w, h, 8), KRN_OK);
        ASSERT_EQ(KrnAllocBitmap(&fresh), KRN_OK);
        const size_t n = size_t(fresh.nStride) * size_t(h);
        size_t nonzero = 0;
        for (size_t i = 0; i < n; ++i) nonzero += fresh.pData[i] != 0;
        EXPECT_EQ(nonzero, 0u);
        KrnFreeBitmap(&fresh);
    }
}

} // namespace
