// CRC-32 beside zlib's.

#include "util/checksums_fixture.h"

#include "support/child_process.h"
#include "support/guarded_bytes.h"
#include "support/library_copy.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <string>
#include <vector>

TEST(Crc, GivesThePublishedValues)
{
    EXPECT_EQ(crc("123456789"), 0xCBF43926u);
    EXPECT_EQ(crc(std::string(1, '\0')), 0xD202EF8Du);
    EXPECT_EQ(crc("a"), 0xE8B7BE43u);
    EXPECT_EQ(crc("The quick brown fox jumps over the lazy dog"), 0x414FA339u);
    EXPECT_EQ(crc(std::string(32, '\0')), 0x190A55ADu);
    EXPECT_EQ(crc(std::string(32, '\xff')), 0xFF6CAB0Bu);
}

TEST(Crc, OfNothingIsZeroAlsoForANullPointer)
{
    EXPECT_EQ(ZR_util_CRC_calc("", 0), 0u);
    EXPECT_EQ(ZR_util_CRC_calc(nullptr, 0), 0u);
    EXPECT_EQ(ZR_util_CRC_calc(reinterpret_cast<const void *>(1), 0), 0u);
}

TEST(Crc, AgreesWithZlibForEveryLengthAndAlignment)
{
    constexpr size_t longest = 1024;
    std::vector<BYTE> bytes = patterned_bytes(longest + 16);
    for (size_t alignment = 0; alignment < 16; ++alignment)
        for (size_t length = 0; length <= longest; ++length) {
            const BYTE *start = bytes.data() + alignment;
            ASSERT_EQ(ZR_util_CRC_calc(start, length), expected_crc(start, length))
                << length << " at " << alignment;
        }
}

TEST(Crc, ReadsNothingBehindTheBuffer)
{
    for (size_t length = 1; length <= 300; ++length) {
        const std::vector<BYTE> bytes = patterned_bytes(length);
        guarded_bytes guarded(bytes.data(), length);
        EXPECT_EQ(ZR_util_CRC_calc(guarded.data(), length), expected_crc(bytes.data(), length)) << length;
    }
}

TEST(Crc, OfALargeBufferAgreesWithZlib)
{
    const std::vector<BYTE> bytes = patterned_bytes(3000001);
    EXPECT_EQ(ZR_util_CRC_calc(bytes.data(), bytes.size()), expected_crc(bytes.data(), bytes.size()));
}

TEST(Crc, StartsAfreshInEveryCall)
{
    EXPECT_EQ(crc("a"), 0xE8B7BE43u);
    EXPECT_EQ(crc("message digest"), 0x20159D7Fu);
    EXPECT_EQ(crc("a"), 0xE8B7BE43u);
}

// A length cut to 32 bits would be 0 here, and the call would read nothing.
TEST(Crc, LengthsOf4GiBAndMoreAreTakenInFull)
{
    guarded_bytes bytes(16);
    const child_result child = run_in_child([&] {
        signal(SIGSEGV, SIG_DFL);  // also where a sanitizer would report it
        ZR_util_CRC_calc(bytes.data(), UINT64_C(1) << 32);
    });
    EXPECT_TRUE(!child.has_exited && child.status == SIGSEGV)
        << "it did not run into the inaccessible page behind the 16 bytes: " << child.describe();
}

// It takes a way of its own.
TEST(Crc, TheFirstCalculationTakesSuchALengthInFull)
{
    guarded_bytes bytes(16);
    const library_copy fresh;
    const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
    const child_result child = run_in_child([&] {
        signal(SIGSEGV, SIG_DFL);
        calculate(bytes.data(), UINT64_C(1) << 32);
    });
    EXPECT_TRUE(!child.has_exited && child.status == SIGSEGV) << child.describe();
}
