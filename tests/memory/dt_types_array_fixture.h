// What the tests of the pointer array share.
#pragma once

#include "foundation/array.h"
#include "foundation/memory.h"

#include "memory/memory_table.h"
#include "support/heap_trace.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

constexpr uint64_t TAG = 5;
constexpr uint64_t TAG_OF_SAME_BUCKET = 37;
constexpr size_t SLOT_BYTES = 8;
constexpr uint64_t UNWRITTEN = 0xDEADBEEFCAFEF00D;  // preset in out-parameters

using element_list = std::vector<uintptr_t>;

// The array never looks behind its elements, so numbers serve as well as addresses.
inline LPVOID element(uintptr_t value)
{
    return reinterpret_cast<LPVOID>(value);
}

inline uintptr_t value_of(LPVOID pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

// Comparators cannot carry state: the pairs given to those below are collected here.
using pair_list = std::vector<std::pair<uintptr_t, uintptr_t>>;
inline pair_list compared_pairs;

inline INT compare_recorded(LPVOID a, LPVOID b)
{
    compared_pairs.emplace_back(value_of(a), value_of(b));
    return static_cast<INT>(value_of(a)) - static_cast<INT>(value_of(b));
}

// Elements that compare equal and can still be told apart: equal tens.
inline INT compare_tens(LPVOID a, LPVOID b)
{
    compared_pairs.emplace_back(value_of(a), value_of(b));
    return static_cast<INT>(value_of(a) / 10) - static_cast<INT>(value_of(b) / 10);
}

inline INT compare_never_called(LPVOID, LPVOID)
{
    ADD_FAILURE() << "the comparator was called";
    return 0;
}

inline ZT_ARRAY_PTR &record_of(ZT_DT_ANY *array)
{
    return *reinterpret_cast<ZT_ARRAY_PTR *>(array);
}

// All bytes of a record: equal before and after a call that changes nothing.
inline std::string image_of(const ZT_DT_ANY *array)
{
    return {reinterpret_cast<const char *>(array), sizeof(ZT_ARRAY_PTR)};
}

inline element_list elements_of(ZT_DT_ANY *array)
{
    uint64_t count = 0;
    EXPECT_EQ(ZR_array_ptr_count_get(array, &count), 0);
    element_list values;
    for (uint64_t i = 0; i < count; ++i) {
        LPVOID stored = nullptr;
        EXPECT_EQ(ZR_array_ptr_get(array, i, &stored), 0);
        values.push_back(value_of(stored));
    }
    return values;
}

// The index reported for an added element.
inline uint64_t add(ZT_DT_ANY *array, uintptr_t value)
{
    uint64_t index = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_add(array, element(value), &index), 0);
    return index;
}

inline void add_all(ZT_DT_ANY *array, const element_list &values)
{
    for (const uintptr_t value : values)
        add(array, value);
}

// Elements 1000, 1001, ...
inline void add_count(ZT_DT_ANY *array, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i)
        EXPECT_EQ(ZR_array_ptr_add(array, element(1000 + i), nullptr), 0);
}

// The removed flag of a removal that does not keep the order.
inline uint64_t remove_any(ZT_DT_ANY *array, uint64_t index)
{
    uint64_t removed = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_remove(array, index, &removed), 0);
    return removed;
}

inline uint64_t remove_in_order(ZT_DT_ANY *array, uint64_t index)
{
    uint64_t removed = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_remove_ex(array, index, &removed, 1), 0);
    return removed;
}

// What a search says: the index, or UNWRITTEN when nothing was found; both searches must agree.
inline uint64_t search(ZT_DT_ANY *array, uintptr_t key)
{
    compared_pairs.clear();
    uint64_t index = UNWRITTEN;
    const ZT_ERRCOUNT index_status = ZR_array_ptr_index_get(array, element(key), &index);
    const pair_list pairs = std::exchange(compared_pairs, {});

    LPVOID found = element(UNWRITTEN);
    EXPECT_EQ(ZR_array_ptr_find(array, element(key), &found), index_status);
    EXPECT_EQ(compared_pairs, pairs) << "the two searches differ";
    if (index_status == 0) {
        EXPECT_LT(index, record_of(array).count);
        EXPECT_EQ(found, record_of(array).slots[index]);
    } else {
        EXPECT_EQ(index_status, -1);
        EXPECT_EQ(index, UNWRITTEN);
        EXPECT_EQ(found, element(UNWRITTEN));
    }
    return index;
}

// The heap calls of a test read as steps on "array 1", "vector 1" and so on, numbered as they are allocated.
// No test leaves anything in the memory manager's table, nor a block on the heap.
class PointerArray : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZR_memm_cleanup(), 0);
        table = &memory_table(heap);
        compared_pairs.clear();
    }

    void TearDown() override
    {
        heap.allow_allocations();
        EXPECT_EQ(violations_in(*table), std::vector<std::string>{});
        ZR_memm_cleanup();
        EXPECT_EQ(heap.unreleased(), steps{});
    }

    ZT_DT_ANY *create(uint64_t increment, INT sorted = 0, ZT_ARRAY_PTR_COMPARE compare = nullptr)
    {
        ZT_DT_ANY *array = nullptr;
        EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, increment, sorted, compare), 0);
        heap.take_steps();
        return array;
    }

    // An array that holds these elements; how it came to them is not of interest.
    ZT_DT_ANY *create_with(const element_list &values, uint64_t increment, INT sorted = 0,
                           ZT_ARRAY_PTR_COMPARE compare = nullptr)
    {
        ZT_DT_ANY *array = create(increment, sorted, compare);
        add_all(array, values);
        heap.take_steps();
        compared_pairs.clear();
        return array;
    }

    // As many blocks under the tag as make the next one need a bookkeeping node.
    void exhaust_bookkeeping(size_t blocks_recorded_so_far)
    {
        for (size_t i = blocks_recorded_so_far; i < ZR_MEMM_NODE_SLOTS; ++i)
            ZR_memm_alloc(TAG, 1, "test", __LINE__);
        heap.take_steps();
    }

    static std::vector<block_kind> kinds()
    {
        std::vector<block_kind> all = bookkeeping_kinds();
        all.push_back({heap_call::MALLOC, sizeof(ZT_ARRAY_PTR), "array"});
        all.push_back({heap_call::MALLOC, 1, "filler"});
        return all;
    }

    heap_trace heap{kinds(), "vector"};
    const ZT_MEMM_TABLE *table = nullptr;
};
