// The CRC's table: what it holds, and when it is built.

#include "util/checksums_fixture.h"

#include "support/child_process.h"
#include "support/library_copy.h"
#include "support/read_only_data.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

// The CRC of one byte is, up to a constant, the table's entry for the byte's complement.
uint64_t entry(unsigned index)
{
    const BYTE byte = static_cast<BYTE>(~index);
    return ZR_util_CRC_calc(&byte, 1) ^ 0xFF000000;
}

}  // namespace

TEST(CrcTable, HoldsTheRemaindersOfAllBytes)
{
    EXPECT_EQ(entry(0), 0x00000000u);
    EXPECT_EQ(entry(1), 0x77073096u);
    EXPECT_EQ(entry(2), 0xEE0E612Cu);
    EXPECT_EQ(entry(128), 0xEDB88320u);
    EXPECT_EQ(entry(255), 0x2D02EF8Du);
    for (unsigned index = 0; index < 256; ++index)
        EXPECT_EQ(entry(index), get_crc_table()[index]) << "entry " << index;
}

TEST(CrcTable, IsBuiltByTheFirstCalculation)
{
    const library_copy fresh;
    EXPECT_EQ(fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc)("123456789", 9), 0xCBF43926u);
}

TEST(CrcTable, BuiltBeforehandGivesTheSameResult)
{
    const library_copy fresh;
    fresh.find("_ZR_make_crc_table", _ZR_make_crc_table)();
    EXPECT_EQ(fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc)("123456789", 9), 0xCBF43926u);
}

TEST(CrcTable, IsReadyAfterAFirstCalculationOverNothing)
{
    const library_copy fresh;
    const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
    EXPECT_EQ(calculate(nullptr, 0), 0u);
    EXPECT_EQ(calculate("123456789", 9), 0xCBF43926u);
}

TEST(CrcTable, RebuiltIsTheSame)
{
    _ZR_make_crc_table();
    _ZR_make_crc_table();
    for (unsigned index = 0; index < 256; ++index)
        EXPECT_EQ(entry(index), get_crc_table()[index]) << "entry " << index;
    EXPECT_EQ(crc("123456789"), 0xCBF43926u);
}

// Whatever the first calculation sets up, the library's data can be taken from writing after it.
TEST(CrcTable, IsNotBuiltASecondTime)
{
    if (counts_coverage())
        GTEST_SKIP() << "the counters of a coverage build stand in the library's data";
    const library_copy fresh;
    const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
    const std::vector<BYTE> bytes = patterned_bytes(5000);
    EXPECT_EQ(calculate(bytes.data(), 1), expected_crc(bytes.data(), 1));
    expect_passes_in_child([&] {
        ASSERT_GT(make_data_read_only(reinterpret_cast<const void *>(calculate)), 0u);
        for (const size_t length : {0, 1, 9, 64, 1000, 5000})
            EXPECT_EQ(calculate(bytes.data(), length), expected_crc(bytes.data(), length)) << length;
    });
}

TEST(CrcTable, IsBuiltByManyFirstCallsAtOnce)
{
    constexpr int thread_count = 8;
    std::array<uint64_t, thread_count> expected;
    expected.fill(0xCBF43926u);
    for (int round = 0; round < 20; ++round) {
        const library_copy fresh;
        const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
        std::atomic<int> waiting{thread_count};
        std::array<uint64_t, thread_count> results = {};
        std::vector<std::thread> threads;
        for (uint64_t &result : results)
            threads.emplace_back([&] {
                --waiting;
                while (waiting.load() > 0)
                    std::this_thread::yield();
                result = calculate("123456789", 9);
            });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(results, expected) << "round " << round;
    }
}

TEST(CrcTable, CanBeRebuiltWhileOthersCalculate)
{
    std::thread builder([] {
        for (int i = 0; i < 200; ++i)
            _ZR_make_crc_table();
    });
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(crc("123456789"), 0xCBF43926u);
    builder.join();
}
