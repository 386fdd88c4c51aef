// Adding in insertion order, and growing.

#include "memory/dt_types_array_fixture.h"

TEST_F(PointerArray, FirstAdditionAllocatesOneIncrementOfSlots)
{
    for (const uint64_t increment : {1, 2, 10, 1000}) {
        heap.start_over();
        ZT_DT_ANY *array = create(increment);
        EXPECT_EQ(add(array, 7), 0u);
        EXPECT_EQ(heap.take_steps(), steps{words("malloc ", increment * SLOT_BYTES, " -> vector 1")});
        EXPECT_EQ(record_of(array).slots, heap.address_of("vector 1"));
        EXPECT_EQ(record_of(array).capacity, increment);
        EXPECT_EQ(record_of(array).count, 1u);
        EXPECT_EQ(ZR_memm_flags(TAG, record_of(array).slots), ZR_MEMM_FLAG_RECORDED);
        EXPECT_EQ(elements_of(array), element_list{7});
        EXPECT_EQ(ZR_array_ptr_delete(array), 0);
    }
}

TEST_F(PointerArray, EleventhAdditionGrowsAVectorOfTenToTwenty)
{
    ZT_DT_ANY *array = create_with({0}, 10);
    for (uintptr_t i = 1; i < 10; ++i)
        EXPECT_EQ(add(array, i * i), i);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(add(array, 100), 10u);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 160 -> vector 2", "free vector 1"}));
    EXPECT_EQ(record_of(array).capacity, 20u);
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 2"));
    EXPECT_EQ(elements_of(array), (element_list{0, 1, 4, 9, 16, 25, 36, 49, 64, 81, 100}));
}

TEST_F(PointerArray, CapacityRunsThroughTheMultiplesOfTheIncrement)
{
    ZT_DT_ANY *array = create(3);
    for (uint64_t count = 1; count <= 20; ++count) {
        add(array, count);
        EXPECT_EQ(record_of(array).capacity, (count + 2) / 3 * 3);
        EXPECT_EQ(record_of(array).count, count);
    }
}

TEST_F(PointerArray, IncrementOf1GrowsWithEveryAddition)
{
    ZT_DT_ANY *array = create(1);
    add_all(array, {5, 6, 7, 8});
    EXPECT_EQ(heap.take_steps(),
              (steps{"malloc 8 -> vector 1", "malloc 16 -> vector 2", "free vector 1",
                     "malloc 24 -> vector 3", "free vector 2", "malloc 32 -> vector 4", "free vector 3"}));
    EXPECT_EQ(elements_of(array), (element_list{5, 6, 7, 8}));
}

TEST_F(PointerArray, AnyValueIsAnElement)
{
    ZT_DT_ANY *array = create_with({0, UINTPTR_MAX, 0, 1}, 2);
    EXPECT_EQ(elements_of(array), (element_list{0, UINTPTR_MAX, 0, 1}));
}

TEST_F(PointerArray, IndexOfAnAdditionNeedNotBeAskedFor)
{
    ZT_DT_ANY *unsorted = create(1);
    EXPECT_EQ(ZR_array_ptr_add(unsorted, element(1), nullptr), 0);
    ZT_DT_ANY *sorted = create(1, 1, compare_recorded);
    EXPECT_EQ(ZR_array_ptr_add(sorted, element(2), nullptr), 0);
    EXPECT_EQ(ZR_array_ptr_add(sorted, element(1), nullptr), 0);
    EXPECT_EQ(elements_of(sorted), (element_list{1, 2}));
}

TEST_F(PointerArray, ComparatorWithoutSortedFlagDoesNotOrder)
{
    ZT_DT_ANY *array = create_with({30, 10, 20}, 10, 0, compare_never_called);
    EXPECT_EQ(elements_of(array), (element_list{30, 10, 20}));
}

TEST_F(PointerArray, SortedFlagWithoutComparatorAppendsAllowsSetAndFindsNothing)
{
    ZT_DT_ANY *array = create(10, 1);
    EXPECT_EQ(add(array, 30), 0u);
    EXPECT_EQ(add(array, 10), 1u);
    EXPECT_EQ(add(array, 20), 2u);
    EXPECT_EQ(ZR_array_ptr_set(array, 1, element(40)), 0);
    EXPECT_EQ(elements_of(array), (element_list{30, 40, 20}));
    for (const uintptr_t key : {10, 20, 30, 40})
        EXPECT_EQ(search(array, key), UNWRITTEN);
}

// ---- Refusals

TEST_F(PointerArray, RefusedGrowthChangesNothing)
{
    ZT_DT_ANY *array = create(2);
    for (const uint64_t count : {0, 2, 4}) {
        add_count(array, count - record_of(array).count);
        const std::string before = image_of(array);
        const element_list elements = elements_of(array);
        heap.take_steps();
        uint64_t index = UNWRITTEN;
        heap.refuse_allocation(0);
        EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000);
        EXPECT_EQ(heap.take_steps(), steps{words("malloc ", (count + 2) * SLOT_BYTES, " refused")});
        EXPECT_EQ(index, UNWRITTEN);
        EXPECT_EQ(image_of(array), before);
        EXPECT_EQ(elements_of(array), elements);
    }
}

TEST_F(PointerArray, GrowthRefusedItsBookkeepingChangesNothing)
{
    ZT_DT_ANY *array = create_with({1, 2}, 2);
    exhaust_bookkeeping(2);
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    heap.refuse_allocation(1);
    EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 32 -> vector 2", "calloc 336 refused", "free vector 2"}));
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(add(array, 1), 2u);
}

TEST_F(PointerArray, IncrementWhoseSizeInBytesDoesNotFit64BitsCannotGrow)
{
    for (const uint64_t increment :
         {UINT64_C(1) << 61, (UINT64_C(1) << 61) + 1, UINT64_C(1) << 63, UINT64_MAX}) {
        for (const INT sorted : {0, 1}) {
            ZT_DT_ANY *array = create(increment, sorted, compare_never_called);
            const std::string before = image_of(array);
            uint64_t index = UNWRITTEN;
            EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000);
            EXPECT_EQ(heap.take_steps(), steps{});
            EXPECT_EQ(index, UNWRITTEN);
            EXPECT_EQ(image_of(array), before);
        }
    }
}

TEST_F(PointerArray, LargestIncrementThatFitsIsAskedOfTheHeap)
{
    ZT_DT_ANY *array = create((UINT64_C(1) << 61) - 1);
    heap.refuse_allocation(0);
    EXPECT_EQ(ZR_array_ptr_add(array, element(1), nullptr), -1000);
    EXPECT_EQ(heap.take_steps(), steps{words("malloc ", UINT64_MAX - 7, " refused")});
}

TEST_F(PointerArray, ArrayWithIncrement0NeverHoldsAnElement)
{
    ZT_DT_ANY *array = create(0, 0, compare_never_called);
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000);
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(remove_any(array, 0), 0u);
    EXPECT_EQ(remove_in_order(array, 0), 0u);
    EXPECT_EQ(search(array, 1), UNWRITTEN);
    EXPECT_EQ(elements_of(array), element_list{});
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
}
