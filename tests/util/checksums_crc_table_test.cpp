// The CRC's table: what it holds, and when it is built.

#include "util/checksums_fixture.h"

#include "support/child_process.h"
#include "support/library_copy.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

extern "C" __attribute__((weak)) void __gcov_init(void *);
extern "C" __attribute__((weak)) int __llvm_profile_runtime;

namespace {

bool counts_coverage()
{
    return &__gcov_init != nullptr || &__llvm_profile_runtime != nullptr;
}

// The CRC of one byte is, up to a constant, the table's entry for the byte's complement.
uint64_t entry(unsigned index)
{
    const BYTE byte = static_cast<BYTE>(~index);
    return ZR_util_CRC_calc(&byte, 1) ^ 0xFF000000;
}

// Take the write permission from all data of the loaded file that holds `address`. The count of its segments.
unsigned make_data_read_only(const void *address)
{
    Dl_info file = {};
    link_map *map = nullptr;
    if (dladdr1(address, &file, reinterpret_cast<void **>(&map), RTLD_DL_LINKMAP) == 0)
        return 0;
    const auto *header = static_cast<const ElfW(Ehdr) *>(file.dli_fbase);
    const auto *segments =
        reinterpret_cast<const ElfW(Phdr) *>(static_cast<const char *>(file.dli_fbase) + header->e_phoff);
    const uintptr_t page_mask = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)) - 1;
    unsigned count = 0;
    for (unsigned i = 0; i < header->e_phnum; ++i) {
        if (segments[i].p_type != PT_LOAD || (segments[i].p_flags & PF_W) == 0)
            continue;
        const uintptr_t start = (map->l_addr + segments[i].p_vaddr) & ~page_mask;
        const uintptr_t end = map->l_addr + segments[i].p_vaddr + segments[i].p_memsz;
        if (mprotect(reinterpret_cast<void *>(start), end - start, PROT_READ) == 0)
            ++count;
    }
    return count;
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
