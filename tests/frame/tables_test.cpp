// The table engine: the vector byte lookup the processor picks against the
// plain loop, and short tables on deep samples, which work in 8 bits.
#include "frame/status.h"
#include "kernel/kernel_ref.h"
#include "tone/table_engine.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace rz {
namespace {

using test::Bitmap;

TEST(TableBytes, ChosenPathMatchesThePlainLoop) {
    std::mt19937 rng(17);
    std::vector<uint8_t> table(256);
    for (int trial = 0; trial < 4; ++trial) {
        for (uint8_t &v : table) v = uint8_t(rng());
        for (int32_t count : {0, 1, 7, 8, 63, 64, 65, 127, 128, 129, 200, 1000})
            for (int32_t offset : {0, 1, 5}) {
                std::vector<uint8_t> data(size_t(count + offset + 8));
                for (uint8_t &v : data) v = uint8_t(rng());
                std::vector<uint8_t> want = data;
                for (int32_t i = 0; i < count; ++i) want[size_t(offset + i)] = table[want[size_t(offset + i)]];
                MapTableBytes(data.data() + offset, count, table.data());
                ASSERT_EQ(data, want) << "count " << count << " offset " << offset;
            }
    }
}

// A k-bit field at bit `low` cut to its top 8 bits, inverted when `invert`,
// and widened back by repeating them (x * 257 on 16 bits).
uint64_t Narrow(uint64_t v, int low, int k, bool invert) {
    const uint64_t mask = (uint64_t(1) << k) - 1;
    uint64_t top = (v >> low & mask) >> (k - 8);
    if (invert) top = 255 - top;
    return (v & ~(mask << low)) | ((top * 257u) >> (16 - k)) << low;
}

// A short table on 48/64-bit colour narrows every channel (never the fourth)
// of the region's bounding rectangle and maps the chosen ones inside the
// region; on deep grey it maps the top 8 significant bits of the region only.
TEST(ShortTables, DeepSamplesAreMappedAndNarrowedInEightBits) {
    uint32_t invert[256];
    for (uint32_t i = 0; i < 256; ++i) invert[i] = 255 - i;
    const struct {
        const char *layout;
        uint32_t channel, mapped; // mapped: bit 0 red, 1 green, 2 blue
    } cases[] = {{"bgr48", 0, 7}, {"rgb48", 1, 1}, {"bgr64", 3, 4}, {"bgr64", 2, 2},
                 {"grey16", 0, 1}, {"grey12", 0, 1}, {"grey16_bits0_11", 0, 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.layout << " channel " << c.channel);
        Bitmap b(test::FindLayout(c.layout), 13, 9, 7);
        const RzRect r{2, 1, 11, 8};
        ASSERT_EQ(DisSetRegionEllipse(b.get(), &r, DIS_RGN_SET), 1);
        const Bitmap before(b);
        ASSERT_EQ(Rz_RemapBitmapIntensity(b.get(), invert, 256, c.channel), 1);
        const bool colour = b->nBitsPerPixel >= 48;
        for (int32_t y = 0; y < 9; ++y)
            for (int32_t x = 0; x < 13; ++x) {
                const bool inRect = x >= 2 && x < 11 && y >= 1 && y < 8;
                const bool inside = DisIsPtInRegion(b.get(), x, y);
                uint64_t want = before.pixel(x, y);
                if (colour && inRect)
                    for (int ch = 0; ch < 3; ++ch)
                        want = Narrow(want, 16 * ch, 16, inside && (c.mapped >> ch & 1));
                else if (inside)
                    want = Narrow(want, b->nLowBit, b->nHighBit - b->nLowBit + 1, true);
                ASSERT_EQ(b.pixel(x, y), want) << x << "," << y;
            }
    }
}

} // namespace
} // namespace rz
