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
        for (uint8_t &v : table) v = uint8_t(trial ? rng() : 255 - (&v - table.data()));
        for (int32_t count : {0, 1, 7, 8, 63, 64, 65, 127, 128, 129, 200, 1000})
            for (int32_t offset : {0, 1, 5}) {
                std::vector<uint8_t> data(size_t(count + offset + 8)), want(data.size());
                for (size_t i = 0; i < data.size(); ++i) data[i] = want[i] = uint8_t(rng());
                // The plain loop, written out.
                for (int32_t i = 0; i < count; ++i) want[offset + i] = table[want[offset + i]];
                MapTableBytes(data.data() + offset, count, table.data());
                ASSERT_EQ(data, want) << "count " << count << " offset " << offset;
            }
    }
}

} // namespace
} // namespace rz
