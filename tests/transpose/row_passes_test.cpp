// Passes over more view rows than a band holds, through the row context as
// operations use it: rows read ahead, put, read back, then a pass bottom-up,
// inside an elliptic region. Every row read must show the stored pixels
// (addressed by hand from the view's definition), and every pixel of the
// region must end with the keys of both passes.
#include "frame/row_context.h"

#include <rzdis.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

size_t StoredAt(const BitmapDesc *d, int view, int64_t x, int64_t y, int e) {
    const int64_t w = d->nStoredWidth, h = d->nStoredHeight;
    const int64_t sx = (view == 5 || view == 8) ? y : w - 1 - y;
    const int64_t sy = (view == 5 || view == 6) ? x : h - 1 - x;
    return size_t(sy) * d->nStride + size_t(sx) * size_t(e);
}

uint8_t Key(size_t at, int pass) { return uint8_t(at * 7 + size_t(pass) * 101 + 1); }

TEST(Transpose, RowPassesOverSeveralBandsInARegion) {
    for (int bits : {8, 16, 24, 48})
        for (int view = 5; view <= 8; ++view) {
            SCOPED_TRACE(testing::Message() << bits << " bits, view " << view);
            const int e = bits / 8;
            BitmapDesc d{};
            ASSERT_EQ(KrnInitBitmap(&d, BITMAPDESC_SIZE, 601, 29, bits), KRN_OK);
            if (bits <= 16) {
                d.nColorOrder = KRN_ORDER_GRAY;
                d.nDataKind = 1;
            }
            ASSERT_EQ(KrnAllocBitmap(&d), KRN_OK);
            const size_t size = size_t(d.nStride) * 29;
            std::mt19937 rng(uint32_t(bits * 8 + view));
            for (size_t i = 0; i < size; ++i) d.pData[i] = uint8_t(rng());
            ASSERT_EQ(KrnChangeViewPerspective(nullptr, &d, BITMAPDESC_SIZE, view, 0), KRN_OK);
            const RzRect oval{3, 17, d.nWidth - 2, d.nHeight - 40};
            ASSERT_EQ(DisSetRegionEllipse(&d, &oval, 0), 1);
            std::vector<uint8_t> model(d.pData, d.pData + size);
            uint32_t maxSpans = 0;
            ASSERT_EQ(DisGetRegionMaskSize(&d, &maxSpans), 1);
            std::vector<int32_t> spans(std::max<uint32_t>(maxSpans, 2));
            {
                int32_t st = 0;
                const uint32_t mode = rz::RC_WHOLE_BITMAP | (bits == 8 ? rz::RC_WORK8 : 0u) |
                                      (bits == 16 ? rz::RC_RAW_DEEP_GRAY : 0u);
                rz::RowContextPtr ctx = rz::MakeRowContext(&d, mode, st);
                ASSERT_EQ(st, 1);
                const int32_t rows = d.nHeight, width = d.nWidth, ahead = 3;
                std::vector<std::vector<uint8_t>> buf(size_t(rows), std::vector<uint8_t>(size_t(width) * e + 16));
                auto read = [&](int32_t y) {
                    ASSERT_EQ(rz::GetRow(ctx.get(), buf[size_t(y)].data(), y, nullptr, nullptr), 1);
                    for (int32_t x = 0; x < width; ++x)
                        ASSERT_EQ(std::memcmp(&buf[size_t(y)][size_t(x) * e], &model[StoredAt(&d, view, x, y, e)], e), 0)
                            << "row " << y << " x " << x;
                };
                // Keys in the row, and in the model where the region is.
                auto mixAndPut = [&](int32_t y, int pass) {
                    uint32_t n = 0;
                    ASSERT_EQ(DisGetRegionRowSpans(&d, y, spans.data(), &n), 1);
                    for (int32_t x = 0; x < width; ++x) {
                        bool inside = false;
                        for (uint32_t k = 0; k + 1 < n; k += 2) inside |= x >= spans[k] && x < spans[k + 1];
                        const size_t at = StoredAt(&d, view, x, y, e);
                        for (int b = 0; b < e; ++b) {
                            buf[size_t(y)][size_t(x) * e + b] ^= Key(at + b, pass);
                            if (inside) model[at + b] ^= Key(at + b, pass);
                        }
                    }
                    ASSERT_EQ(rz::PutRowQuiet(ctx.get(), buf[size_t(y)].data(), y, nullptr, 0), 1);
                };
                for (int32_t y = 0; y < ahead; ++y) read(y);
                for (int32_t y = 0; y < rows; ++y) {
                    if (y + ahead < rows) read(y + ahead);
                    mixAndPut(y, 0);
                    read(y);
                }
                for (int32_t y = rows - 1; y >= 0; --y) {
                    read(y);
                    mixAndPut(y, 1);
                }
            }
            EXPECT_TRUE(std::equal(model.begin(), model.end(), d.pData));
            KrnFreeBitmap(&d);
        }
}

} // namespace
