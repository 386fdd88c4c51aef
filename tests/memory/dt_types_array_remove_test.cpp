// Removing, and shrinking.

#include "memory/dt_types_array_fixture.h"

TEST_F(PointerArray, RemoveFillsTheHoleWithTheLastElement)
{
    ZT_DT_ANY *array = create_with({10, 20, 30}, 10);
    EXPECT_EQ(remove_any(array, 0), 1u);
    EXPECT_EQ(elements_of(array), (element_list{30, 20}));
    EXPECT_EQ(remove_any(array, 1), 1u);
    EXPECT_EQ(elements_of(array), (element_list{30}));
}

TEST_F(PointerArray, RemoveExWithoutKeepOrderIsRemove)
{
    ZT_DT_ANY *array = create_with({10, 20, 30}, 10);
    uint64_t removed = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_remove_ex(array, 0, &removed, 0), 0);
    EXPECT_EQ(removed, 1u);
    EXPECT_EQ(elements_of(array), (element_list{30, 20}));
}

TEST_F(PointerArray, RemoveInOrderMovesTheElementsBehindDown)
{
    // All 64 bits of the flag count.
    for (const uint64_t keep_order :
         {uint64_t{1}, uint64_t{2}, UINT64_C(1) << 32, UINT64_C(1) << 63, UINT64_MAX}) {
        ZT_DT_ANY *array = create_with({10, 20, 30, 40}, 10);
        uint64_t removed = UNWRITTEN;
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, 0, &removed, keep_order), 0);
        EXPECT_EQ(removed, 1u);
        EXPECT_EQ(elements_of(array), (element_list{20, 30, 40}));
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, 1, &removed, keep_order), 0);
        EXPECT_EQ(elements_of(array), (element_list{20, 40}));
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, 1, &removed, keep_order), 0);
        EXPECT_EQ(elements_of(array), (element_list{20}));
    }
}

TEST_F(PointerArray, RemoveFromASortedArrayBreaksItsOrderUnlessAskedNotTo)
{
    ZT_DT_ANY *broken = create_with({10, 20, 30}, 10, 1, ZR_compare_pointers);
    EXPECT_EQ(remove_any(broken, 0), 1u);
    EXPECT_EQ(elements_of(broken), (element_list{30, 20}));

    ZT_DT_ANY *kept = create_with({10, 20, 30}, 10, 1, ZR_compare_pointers);
    EXPECT_EQ(remove_in_order(kept, 0), 1u);
    EXPECT_EQ(elements_of(kept), (element_list{20, 30}));
}

TEST_F(PointerArray, VacatedSlotIsNull)
{
    ZT_DT_ANY *array = create_with({10, 20, 30, 40}, 10);
    remove_any(array, 0);
    EXPECT_EQ(record_of(array).slots[3], nullptr);
    remove_in_order(array, 0);
    EXPECT_EQ(record_of(array).slots[2], nullptr);
    remove_in_order(array, 1);
    EXPECT_EQ(record_of(array).slots[1], nullptr);
    EXPECT_EQ(record_of(array).capacity, 10u);
}

TEST_F(PointerArray, RemoveFromTheCountOnRemovesNothingAndIsNoError)
{
    EXPECT_EQ(remove_any(create(10), 0), 0u);
    ZT_DT_ANY *array = create_with({1, 2, 3}, 10);
    const std::string before = image_of(array);
    for (const uint64_t index : {uint64_t{3}, uint64_t{9}, uint64_t{10}, UINT64_C(1) << 32, UINT64_MAX}) {
        EXPECT_EQ(remove_any(array, index), 0u);
        EXPECT_EQ(remove_in_order(array, index), 0u);
    }
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{1, 2, 3}));
}

TEST_F(PointerArray, RemovedFlagNeedNotBeAskedFor)
{
    ZT_DT_ANY *array = create_with({1, 2, 3}, 10);
    EXPECT_EQ(ZR_array_ptr_remove(array, 0, nullptr), 0);
    EXPECT_EQ(ZR_array_ptr_remove_ex(array, 0, nullptr, 1), 0);
    EXPECT_EQ(ZR_array_ptr_remove(array, 5, nullptr), 0);
    EXPECT_EQ(elements_of(array), (element_list{2}));
}

// ---- Shrinking

TEST_F(PointerArray, RemovingDownFromTwentySlotsShrinksToTenThenToNone)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 20);  // in vector 2
    heap.take_steps();
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(remove_in_order(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(record_of(array).capacity, 20u);

    EXPECT_EQ(remove_in_order(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 80 -> vector 3", "free vector 2"}));
    EXPECT_EQ(record_of(array).capacity, 10u);
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 3"));
    EXPECT_EQ(ZR_memm_flags(TAG, record_of(array).slots), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(elements_of(array), (element_list{1010, 1011, 1012, 1013, 1014, 1015, 1016, 1017, 1018, 1019}));

    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(remove_any(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(remove_any(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), steps{"free vector 3"});
    EXPECT_EQ(record_of(array).capacity, 0u);
    EXPECT_EQ(record_of(array).count, 0u);
    EXPECT_EQ(record_of(array).slots, nullptr);
    EXPECT_EQ(add(array, 1), 0u);
    EXPECT_EQ(record_of(array).capacity, 10u);
}

TEST_F(PointerArray, IncrementOf1ShrinksWithEveryRemoval)
{
    ZT_DT_ANY *array = create_with({1, 2, 3, 4}, 1);  // in vector 4
    for (const uint64_t last : {3, 2, 1, 0})
        remove_any(array, last);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 24 -> vector 5", "free vector 4", "malloc 16 -> vector 6",
                                        "free vector 5", "malloc 8 -> vector 7", "free vector 6..7"}));
}

TEST_F(PointerArray, AddingAndRemovingAroundAnIncrementReallocatesEachTime)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 10);
    heap.take_steps();
    for (int round = 0; round < 5; ++round) {
        const int vector = 1 + 2 * round;
        add(array, 1);
        EXPECT_EQ(heap.take_steps(), (steps{words("malloc 160 -> vector ", vector + 1),  //
                                            words("free vector ", vector)}));
        remove_in_order(array, 0);
        EXPECT_EQ(heap.take_steps(),
                  (steps{words("malloc 80 -> vector ", vector + 2), words("free vector ", vector + 1)}));
    }
}

// ---- Refusals

TEST_F(PointerArray, RefusedShrinkKeepsTheOldVector)
{
    ZT_DT_ANY *array = create_with({1, 2, 3}, 2);  // in vector 2
    heap.refuse_allocation(0);
    EXPECT_EQ(remove_in_order(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 16 refused"});
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 2"));
    EXPECT_EQ(record_of(array).capacity, 4u);
    EXPECT_EQ(record_of(array).slots[2], nullptr);
    EXPECT_EQ(elements_of(array), (element_list{2, 3}));
    EXPECT_EQ(add(array, 4), 2u);
    EXPECT_EQ(elements_of(array), (element_list{2, 3, 4}));
}

TEST_F(PointerArray, ShrinkRefusedItsBookkeepingKeepsTheOldVector)
{
    ZT_DT_ANY *array = create_with({1, 2, 3}, 2);
    exhaust_bookkeeping(2);
    heap.refuse_allocation(1);
    EXPECT_EQ(remove_any(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 16 -> vector 3", "calloc 336 refused", "free vector 3"}));
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 2"));
    EXPECT_EQ(record_of(array).capacity, 4u);
    EXPECT_EQ(elements_of(array), (element_list{3, 2}));
}

TEST_F(PointerArray, RefusedShrinkIsCaughtUpByALaterRemovalEvenOneThatRemovesNothing)
{
    ZT_DT_ANY *array = create(2);
    add_count(array, 9);  // in vector 5
    heap.refuse_all_allocations();
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(remove_in_order(array, 0), 1u);
    heap.allow_allocations();
    EXPECT_EQ(record_of(array).capacity, 10u);
    heap.take_steps();
    EXPECT_EQ(remove_any(array, 3), 0u);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 32 -> vector 6", "free vector 5"}));
    EXPECT_EQ(record_of(array).capacity, 4u);  // the smallest multiple of 2 that holds 3
    EXPECT_EQ(elements_of(array), (element_list{1006, 1007, 1008}));
}

TEST_F(PointerArray, GrowthKeptByARefusedRebuildIsGivenBackByTheNextRemoval)
{
    ZT_DT_ANY *array = create_with({10, 20}, 2, 1, ZR_compare_pointers);
    heap.refuse_allocation(1);
    EXPECT_EQ(ZR_array_ptr_add(array, element(5), nullptr), 0);
    EXPECT_EQ(record_of(array).capacity, 4u);
    EXPECT_EQ(remove_in_order(array, 2), 0u);
    EXPECT_EQ(record_of(array).capacity, 2u);
    EXPECT_EQ(elements_of(array), (element_list{10, 20}));
}

TEST_F(PointerArray, LastElementGoesWithItsVectorWithoutAskingTheHeap)
{
    ZT_DT_ANY *array = create_with({1}, 10);
    heap.refuse_all_allocations();
    EXPECT_EQ(remove_any(array, 0), 1u);
    EXPECT_EQ(heap.take_steps(), steps{"free vector 1"});
    EXPECT_EQ(record_of(array).slots, nullptr);
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
}
