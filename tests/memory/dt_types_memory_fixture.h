// What the tests of the memory manager share.
#pragma once

#include "foundation/memory.h"

#include "memory/memory_table.h"
#include "support/heap_trace.h"

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

// Tags 5, 37, 69, 101 share bucket 5; the first of them to come claims the bucket's record in the table.
constexpr uint64_t TAG = 5;
constexpr uint64_t SECOND_TAG = 37;
constexpr uint64_t THIRD_TAG = 69;
constexpr uint64_t FOURTH_TAG = 101;
constexpr uint64_t OTHER_BUCKET_TAG = 6;
constexpr uint64_t UNKNOWN_TAG = 133;  // bucket 5 again

inline LPVOID allocate(uint64_t tag, uint64_t size = 8)
{
    return ZR_memm_alloc(tag, size, "test", __LINE__);
}

inline LPVOID release(uint64_t tag, LPVOID block)
{
    return ZR_memm_free(tag, block, "test", __LINE__);
}

inline LPVOID reallocate(uint64_t tag, LPVOID block, uint64_t size)
{
    return ZR_memm_realloc(tag, block, size, "test", __LINE__);
}

inline uint64_t draw_unique_tag()
{
    return ZR_memm_unique_tag_get("test", __LINE__);
}

inline void fill_with_byte(LPVOID block, int value, size_t size)
{
    memset(block, value, size);
}

inline bool is_filled_with_byte(const void *block, int value, size_t size)
{
    const auto *bytes = static_cast<const unsigned char *>(block);
    return std::all_of(bytes, bytes + size, [=](unsigned char byte) { return byte == value; });
}

// The heap calls of a test read as steps on "block 1", "node 1", "record 1" and so on, numbered as they are
// allocated. No test leaves anything in the manager's table, nor a block on the heap.
class MemoryManager : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZR_memm_cleanup(), 0);
        table = &memory_table(heap);
    }

    void TearDown() override
    {
        heap.allow_allocations();
        if (!has_false_counts) {
            EXPECT_EQ(violations_in(*table), std::vector<std::string>{});
        }
        ZR_memm_cleanup();
        EXPECT_EQ(heap.unreleased(), steps{});
    }

    void allocate_blocks(uint64_t tag, size_t count)
    {
        for (size_t i = 0; i < count; ++i)
            ASSERT_NE(allocate(tag), nullptr);
    }

    // Allocate blocks under a tag; how, is not of interest.
    void fill(uint64_t tag, size_t count)
    {
        allocate_blocks(tag, count);
        heap.take_steps();
    }

    LPVOID block(unsigned number) { return heap.address_of(words("block ", number)); }

    // Disassociate a null pointer, which is not refused and lowers the count of the first node with a
    // vacancy.
    LPVOID falsify_count(uint64_t tag)
    {
        has_false_counts = true;
        return ZR_memm_disassociate(tag, nullptr);
    }

    // Every byte of the table: equal before and after a call that changes nothing.
    std::string image_of_table() const { return {reinterpret_cast<const char *>(table), sizeof *table}; }

    heap_trace heap{bookkeeping_kinds()};
    ZT_MEMM_TABLE *table = nullptr;

private:
    bool has_false_counts = false;
};
