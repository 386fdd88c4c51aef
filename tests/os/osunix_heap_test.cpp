// Heap and memory wrappers.

#include "foundation/os.h"

#include "os/osunix_fixture.h"
#include "support/heap_trace.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>
#include <sys/mman.h>

#include <new>
#include <utility>
#include <vector>

namespace {

using heap_calls = std::vector<heap_call>;

int sign(int value)
{
    return (value > 0) - (value < 0);
}

}  // namespace

// ---- Heap

TEST(HeapServices, AllocAsksTheHeapForExactlyThatSizeZeroIncluded)
{
    heap_trace trace;
    for (const uint64_t size : {UINT64_C(0), UINT64_C(1), UINT64_C(24), UINT64_C(100000)}) {
        trace.clear();
        LPVOID block = OS_alloc(size);
        EXPECT_EQ(trace.calls(), heap_calls{malloc_call(size, block)});
        OS_free(block);
    }
}

TEST(HeapServices, SizesOf4GiBAndMoreReachTheHeapInFull)
{
    constexpr uint64_t size = UINT64_C(0x100000010);
    heap_trace trace;
    trace.refuse_all_allocations();
    EXPECT_EQ(OS_alloc(size), nullptr);
    EXPECT_EQ(OS_realloc(nullptr, size), nullptr);
    const heap_calls expected = {malloc_call(size, nullptr), {heap_call::REALLOC, size, nullptr, nullptr}};
    EXPECT_EQ(trace.calls(), expected);
}

TEST(HeapServices, AllocGivesNullWhenTheHeapRefusesAndDoesNotTryAgain)
{
    heap_trace trace;
    trace.refuse_allocation(0);
    errno = 0;
    EXPECT_EQ(OS_alloc(16), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(trace.calls(), heap_calls{malloc_call(16, nullptr)});
}

TEST(HeapServices, ReallocResizesThroughTheHeapAndKeepsTheContent)
{
    heap_trace trace;
    LPVOID block = OS_alloc(4);
    memcpy(block, "abcd", 4);
    trace.clear();
    LPVOID larger = OS_realloc(block, 5000);
    EXPECT_EQ(trace.calls(), (heap_calls{{heap_call::REALLOC, 5000, larger, block}}));
    EXPECT_EQ(memcmp(larger, "abcd", 4), 0);
    OS_free(larger);
}

TEST(HeapServices, ReallocOfNullAllocates)
{
    LPVOID block = OS_realloc(nullptr, 8);
    ASSERT_NE(block, nullptr);
    memset(block, 1, 8);
    OS_free(block);
}

TEST(HeapServices, RefusedReallocGivesNullKeepsTheBlockAndDoesNotTryAgain)
{
    heap_trace trace;
    LPVOID block = OS_alloc(4);
    memcpy(block, "abcd", 4);
    trace.clear();
    trace.refuse_allocation(0);
    EXPECT_EQ(OS_realloc(block, 5000), nullptr);
    EXPECT_EQ(trace.calls(), (heap_calls{{heap_call::REALLOC, 5000, nullptr, block}}));
    EXPECT_EQ(memcmp(block, "abcd", 4), 0);
    EXPECT_EQ(OS_free(block), 0);
}

TEST(HeapServices, FreeReleasesTheBlockAndReportsZero)
{
    heap_trace trace;
    LPVOID block = OS_alloc(16);
    trace.clear();
    EXPECT_EQ(OS_free(block), 0);
    EXPECT_EQ(trace.calls(), heap_calls{free_call(block)});
}

TEST(HeapServices, FreeOfNullReachesTheHeapAndReportsZero)
{
    heap_trace trace;
    EXPECT_EQ(OS_free(nullptr), 0);
    EXPECT_EQ(trace.calls(), heap_calls{free_call(nullptr)});
}

TEST(HeapServices, LeaveErrnoAloneOnSuccess)
{
    errno = SENTINEL_ERRNO;
    LPVOID block = OS_realloc(OS_alloc(16), 64);
    OS_free(block);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

// ---- Memory

TEST(MemoryServices, MemcpyCopiesThatManyBytesAndReturnsTheDestination)
{
    const BYTE source[6] = {1, 2, 0, 4, 5, 6};
    for (uint64_t count = 0; count <= sizeof source; ++count) {
        BYTE destination[6] = {9, 9, 9, 9, 9, 9};
        BYTE expected[6] = {9, 9, 9, 9, 9, 9};
        for (uint64_t i = 0; i < count; ++i)
            expected[i] = source[i];
        EXPECT_EQ(OS_memcpy(destination, source, count), destination);
        EXPECT_EQ(memcmp(destination, expected, sizeof expected), 0) << count << " bytes were to be copied";
    }
}

TEST(MemoryServices, MemsetFillsThatManyBytesAndReturnsTheDestination)
{
    for (uint64_t count = 0; count <= 5; ++count) {
        BYTE bytes[5] = {9, 9, 9, 9, 9};
        EXPECT_EQ(OS_memset(bytes, 0x41, count), bytes);
        for (uint64_t i = 0; i < sizeof bytes; ++i)
            EXPECT_EQ(bytes[i], i < count ? 0x41 : 9) << "byte " << i << " of a fill of " << count;
    }
}

TEST(MemoryServices, MemsetUsesOnlyTheLowEightBitsOfTheFillValue)
{
    for (const auto &[fill, expected] : {std::pair<INT, BYTE>{0x1ff, 0xff},
                                         {0x100, 0},
                                         {-1, 0xff},
                                         {INT32_MIN, 0},
                                         {INT32_MAX, 0xff},
                                         {0x12345678, 0x78}}) {
        BYTE bytes[3] = {1, 1, 1};
        OS_memset(bytes, fill, sizeof bytes);
        for (const BYTE byte : bytes)
            EXPECT_EQ(byte, expected) << std::hex << fill;
    }
}

TEST(MemoryServices, MemcmpGivesTheSignOfTheFirstDifferingByte)
{
    EXPECT_EQ(OS_memcmp("abc", "abc", 3), 0);
    EXPECT_EQ(sign(OS_memcmp("abc", "abd", 3)), -1);
    EXPECT_EQ(sign(OS_memcmp("abd", "abc", 3)), 1);
    EXPECT_EQ(sign(OS_memcmp("bza", "caa", 3)), -1);
    EXPECT_EQ(OS_memcmp("abc", "abd", 2), 0);
    EXPECT_EQ(OS_memcmp("abc", "xyz", 0), 0);
}

TEST(MemoryServices, MemcmpComparesUnsignedBytesAndPassesZeroBytes)
{
    EXPECT_EQ(sign(OS_memcmp("\x80", "\x7f", 1)), 1);
    EXPECT_EQ(sign(OS_memcmp("\x01", "\xff", 1)), -1);
    EXPECT_EQ(sign(OS_memcmp("a\0b", "a\0c", 3)), -1);
}

// ---- Counts of 4 GiB: one that is cut to 32 bits would be 0, and the call would touch nothing

namespace {

constexpr uint64_t FOUR_GIB = UINT64_C(1) << 32;

// 4 GiB of zeroes to read, in front of one page to write, in front of 4 GiB that are not accessible.
class gigabytes {
public:
    gigabytes()
        : zeroes_(static_cast<BYTE *>(
              mmap(nullptr, SIZE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)))
    {
        if (zeroes_ == MAP_FAILED || mprotect(zeroes_, FOUR_GIB, PROT_READ) != 0 ||
            mprotect(page(), PAGE_BYTES, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
    }
    ~gigabytes() { munmap(zeroes_, SIZE); }
    gigabytes(const gigabytes &) = delete;
    gigabytes &operator=(const gigabytes &) = delete;

    const BYTE *zeroes() const { return zeroes_; }
    BYTE *page() const { return zeroes_ + FOUR_GIB; }

private:
    static constexpr size_t PAGE_BYTES = 4096;
    static constexpr size_t SIZE = 2 * FOUR_GIB;

    BYTE *zeroes_;
};

}  // namespace

TEST(MemoryServices, MemsetTakesACountOf4GiBInFull)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    const gigabytes memory;
    expect_access_violation(run_in_child([&] { OS_memset(memory.page(), 1, FOUR_GIB); }));
}

TEST(MemoryServices, MemcpyTakesACountOf4GiBInFull)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    const gigabytes memory;
    expect_access_violation(run_in_child([&] { OS_memcpy(memory.page(), memory.zeroes(), FOUR_GIB); }));
}

TEST(MemoryServices, MemcmpTakesACountOf4GiBInFull)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    void *pages = mmap(nullptr, 2 * FOUR_GIB, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    BYTE *first = static_cast<BYTE *>(pages);
    BYTE *second = first + FOUR_GIB;
    second[0] = 1;
    EXPECT_LT(OS_memcmp(first, second, FOUR_GIB), 0);
    munmap(pages, 2 * FOUR_GIB);
}
