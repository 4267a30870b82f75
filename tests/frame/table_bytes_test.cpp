// The table engine's byte lookup: the vector path the processor picks gives
// what the plain loop gives, on every length around the vector widths and
// every offset, with tables that send each half of the range anywhere.
#include "tone/table_engine.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace rz {
namespace {

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
                MapTableBytesPlain(want.data() + offset, count, table.data());
                MapTableBytes(data.data() + offset, count, table.data());
                ASSERT_EQ(data, want) << "count " << count << " offset " << offset;
            }
    }
    // The plain loop itself: every value once, through an inverting table.
    std::vector<uint8_t> all(256), invert(256);
    for (int i = 0; i < 256; ++i) all[size_t(i)] = uint8_t(i), invert[size_t(i)] = uint8_t(255 - i);
    MapTableBytesPlain(all.data(), 256, invert.data());
    for (int i = 0; i < 256; ++i) ASSERT_EQ(all[size_t(i)], 255 - i);
}

} // namespace
} // namespace rz
