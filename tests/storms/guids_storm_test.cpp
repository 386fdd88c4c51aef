// GUIDs drawn by many threads at once.

#include "foundation/os.h"

#include "os/crew.h"
#include "storms/storm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <vector>

namespace {

using guid = std::array<BYTE, 16>;

// As documented, all bytes behind the first zero byte are zero: such a GUID says too little to be unique.
bool is_cut_short(const guid &drawn)
{
    return drawn.back() == 0;
}

bool is_zero_behind_its_first_zero_byte(const guid &drawn)
{
    const auto first_zero = std::find(drawn.begin(), drawn.end(), 0);
    return std::all_of(first_zero, drawn.end(), [](BYTE byte) { return byte == 0; });
}

}  // namespace

TEST(GuidStorm, DrawsNoFullGuidTwice)
{
    const size_t full_ones_of_each = static_cast<size_t>(1 + storm_operations() / 50 / storm_threads());
    std::vector<std::vector<guid>> drawn_by(storm_threads());
    std::atomic<long> failures{0};
    std::atomic<long> drawn_in_all{0};
    crew threads(storm_threads());
    threads.start([&](unsigned number) {
        std::vector<guid> &full_ones = drawn_by[number];
        while (full_ones.size() < full_ones_of_each) {
            guid drawn;
            drawn.fill(0xFF);
            if (OS_create_guid(drawn.data()) != 1 || !is_zero_behind_its_first_zero_byte(drawn)) {
                ++failures;
                return;
            }
            ++drawn_in_all;
            if (!is_cut_short(drawn))
                full_ones.push_back(drawn);
        }
    });
    threads.join();
    ASSERT_EQ(failures, 0);
    std::vector<guid> all;
    for (const std::vector<guid> &full_ones : drawn_by)
        all.insert(all.end(), full_ones.begin(), full_ones.end());
    ASSERT_EQ(all.size(), full_ones_of_each * storm_threads());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "one was drawn twice";
    report_storm("GUIDs without a zero byte, all different", static_cast<long>(all.size()), "GUIDs");
}
