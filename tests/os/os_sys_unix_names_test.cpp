// Compound module names.

#include "foundation/os.h"

#include "os/output_buffer.h"
#include "support/build_facts.h"
#include "support/heap_trace.h"
#include "support/platform_trace.h"
#include "support/repeated_memory.h"

#include <gtest/gtest.h>

#include <errno.h>

#include <string>
#include <vector>

TEST(CompoundName, IsThePrefixTheBaseAndTheNumberPaddedWithZeroBytes)
{
    output_buffer output(70);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), 64), 14);
    EXPECT_EQ(output.bytes(), "libQVutil17.so" + std::string(50, '\0') + untouched(6));
}

TEST(CompoundName, ThatExceedsTheLimitGivesMinusOneAndItsFirstCharactersUnterminated)
{
    errno = SENTINEL_ERRNO;
    for (const size_t limit : {0u, 1u, 10u, 13u}) {
        output_buffer output(20);
        EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), UINT(limit)), -1) << limit;
        EXPECT_EQ(output.bytes(), std::string("libQVutil17.so").substr(0, limit) + untouched(20 - limit));
    }
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

TEST(CompoundName, OfExactlyTheLimitIsReturnedWithItsLengthUnterminated)
{
    output_buffer output(20);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), 14), 14);
    EXPECT_EQ(output.bytes(), "libQVutil17.so" + untouched(6));
}

TEST(CompoundName, OneShorterThanTheLimitIsTerminated)
{
    output_buffer output(20);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), 15), 14);
    EXPECT_EQ(output.bytes(), std::string("libQVutil17.so") + '\0' + untouched(5));
}

TEST(CompoundName, OfAnEmptyBaseIsPrefixAndNumber)
{
    output_buffer output(12);
    EXPECT_EQ(OS_sys_compfilename_create("", output.text(), 12), 10);
    EXPECT_EQ(output.bytes(), std::string("libQV17.so\0\0", 12));
}

TEST(CompoundName, TakesTheBaseAsGiven)
{
    output_buffer output(24);
    EXPECT_EQ(OS_sys_compfilename_create("%s%n/ x", output.text(), 20), 17);
    EXPECT_EQ(output.bytes(), "libQV%s%n/ x17.so" + std::string(3, '\0') + untouched(4));
}

TEST(CompoundName, OfANullBaseIsZeroAndLeavesTheOutputUntouched)
{
    output_buffer output(8);
    EXPECT_EQ(OS_sys_compfilename_create(nullptr, output.text(), 8), 0);
    EXPECT_EQ(output.bytes(), untouched(8));
    EXPECT_EQ(OS_sys_compfilename_create(nullptr, nullptr, 8), 0);
}

TEST(CompoundName, HoldsABaseOf245Characters)
{
    const std::string base(245, 'b');
    const std::string name = "libQV" + base + "17.so";
    ASSERT_EQ(name.size(), 255u);
    for (const size_t limit : {254u, 255u, 256u, 300u}) {
        output_buffer output(310);
        const LONG result = limit < name.size() ? -1 : 255;
        EXPECT_EQ(OS_sys_compfilename_create(base.c_str(), output.text(), UINT(limit)), result) << limit;
        std::string expected = name.substr(0, limit);
        expected.resize(limit);  // with zero bytes
        EXPECT_EQ(output.bytes(), expected + untouched(310 - limit)) << limit;
    }
}

TEST(CompoundName, OfALongerBaseIsRefusedAndLeavesTheOutputUntouched)
{
    for (const size_t length : {246u, 300u, 100000u}) {
        const std::string base(length, 'b');
        output_buffer output(300);
        EXPECT_EQ(OS_sys_compfilename_create(base.c_str(), output.text(), 300), -1);
        EXPECT_EQ(output.bytes(), untouched(300));
    }
}

// The limit is unsigned: read as a negative number it would be exceeded by every name.
TEST(CompoundName, TakesALimitOf2GiB)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr UINT limit = UINT32_C(1) << 31;
    repeated_memory output(limit);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), limit), 14);
}

TEST(CompoundName, IsFormattedOnceAndLeavesErrnoAlone)
{
    CHAR output[64];
    platform_trace trace;
    errno = SENTINEL_ERRNO;
    OS_sys_compfilename_create("util", output, 64);
    EXPECT_EQ(trace.calls(), steps{"vsprintf(unknown, \"libQV%s%d.so\")"});
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

TEST(CompoundName, TakesNoMemoryFromTheHeap)
{
    CHAR output[64];
    heap_trace trace;
    OS_sys_compfilename_create("util", output, 64);
    EXPECT_EQ(trace.calls(), std::vector<heap_call>{});
}
