// Adding in sorted mode.

#include "memory/dt_types_array_fixture.h"

#include <limits.h>

TEST_F(PointerArray, SortedAdditionReportsWhereTheElementWent)
{
    ZT_DT_ANY *array = create(10, 1, ZR_compare_pointers);
    EXPECT_EQ(add(array, 30), 0u);
    EXPECT_EQ(add(array, 10), 0u);
    EXPECT_EQ(add(array, 20), 1u);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
    EXPECT_EQ(add(array, 20), 2u);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 20, 30}));
}

TEST_F(PointerArray, AnySortedFlagOtherThan0Sorts)
{
    for (const INT sorted : {1, -1, 256, INT_MIN, INT_MAX}) {
        ZT_DT_ANY *array = create_with({3, 1, 2}, 10, sorted, ZR_compare_pointers);
        EXPECT_EQ(elements_of(array), (element_list{1, 2, 3}));
    }
}

TEST_F(PointerArray, EqualElementsKeepTheirOrderOfInsertion)
{
    ZT_DT_ANY *array = create(4, 1, compare_tens);
    EXPECT_EQ(add(array, 21), 0u);
    EXPECT_EQ(add(array, 31), 1u);
    EXPECT_EQ(add(array, 22), 1u);
    EXPECT_EQ(add(array, 11), 0u);
    EXPECT_EQ(add(array, 20), 3u);
    EXPECT_EQ(add(array, 30), 5u);
    EXPECT_EQ(add(array, 10), 1u);
    EXPECT_EQ(elements_of(array), (element_list{11, 10, 21, 22, 20, 31, 30}));
}

TEST_F(PointerArray, SortedAdditionScansFromTheFrontUpToTheFirstGreaterElement)
{
    ZT_DT_ANY *array = create(10, 1, compare_recorded);
    const auto pairs_of_adding = [=](uintptr_t value) {
        compared_pairs.clear();
        add(array, value);
        return compared_pairs;
    };
    EXPECT_EQ(pairs_of_adding(20), pair_list{});
    EXPECT_EQ(pairs_of_adding(10), (pair_list{{20, 10}}));
    EXPECT_EQ(pairs_of_adding(30), (pair_list{{10, 30}, {20, 30}}));
    EXPECT_EQ(pairs_of_adding(25), (pair_list{{10, 25}, {20, 25}, {30, 25}}));
    EXPECT_EQ(pairs_of_adding(15), (pair_list{{10, 15}, {20, 15}}));
    EXPECT_EQ(pairs_of_adding(10), (pair_list{{10, 10}, {15, 10}}));
    EXPECT_EQ(elements_of(array), (element_list{10, 10, 15, 20, 25, 30}));
}

namespace {

// Gives the extreme results only.
INT compare_to_extremes(LPVOID a, LPVOID b)
{
    return value_of(a) < value_of(b) ? INT_MIN : value_of(a) > value_of(b) ? INT_MAX : 0;
}

}  // namespace

TEST_F(PointerArray, SortedAdditionAndSearchReadTheSignOfAnyResult)
{
    ZT_DT_ANY *array = create_with({3, 1, 2, 5, 4, 3}, 10, 1, compare_to_extremes);
    EXPECT_EQ(elements_of(array), (element_list{1, 2, 3, 3, 4, 5}));
    for (uintptr_t key = 1; key <= 5; ++key)
        EXPECT_NE(search(array, key), UNWRITTEN);
    EXPECT_EQ(search(array, 0), UNWRITTEN);
    EXPECT_EQ(search(array, 6), UNWRITTEN);
}

// ---- Growth and rebuild

TEST_F(PointerArray, SortedInsertionRebuildsTheVectorThoughThereIsRoom)
{
    ZT_DT_ANY *array = create_with({10, 30}, 10, 1, ZR_compare_pointers);
    EXPECT_EQ(add(array, 20), 1u);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 80 -> vector 2", "free vector 1"}));
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 2"));
    EXPECT_EQ(record_of(array).capacity, 10u);
    EXPECT_EQ(record_of(array).count, 3u);
}

TEST_F(PointerArray, SortedAdditionAtTheEndUsesTheRoomThereIs)
{
    ZT_DT_ANY *array = create_with({10}, 10, 1, ZR_compare_pointers);
    EXPECT_EQ(add(array, 20), 1u);
    EXPECT_EQ(add(array, 20), 2u);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(PointerArray, SortedInsertionIntoAFullArrayGrowsThenRebuilds)
{
    ZT_DT_ANY *array = create_with({10, 20}, 2, 1, ZR_compare_pointers);
    EXPECT_EQ(add(array, 5), 0u);
    EXPECT_EQ(heap.take_steps(),
              (steps{"malloc 32 -> vector 2", "free vector 1", "malloc 32 -> vector 3", "free vector 2"}));
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 3"));
    EXPECT_EQ(elements_of(array), (element_list{5, 10, 20}));
}

namespace {

// A comparator that looks at the array it is called for.
ZT_DT_ANY *array_of_comparator;
uint64_t capacity_during_scan;

INT compare_and_note_capacity(LPVOID a, LPVOID b)
{
    capacity_during_scan = record_of(array_of_comparator).capacity;
    return ZR_compare_pointers(a, b);
}

}  // namespace

TEST_F(PointerArray, FullArrayHasGrownBeforeTheScan)
{
    array_of_comparator = create_with({10, 20}, 2, 1, ZR_compare_pointers);
    record_of(array_of_comparator).compare = compare_and_note_capacity;
    EXPECT_EQ(add(array_of_comparator, 30), 2u);
    EXPECT_EQ(capacity_during_scan, 4u);
}

TEST_F(PointerArray, RefusedGrowthComparesNothing)
{
    ZT_DT_ANY *array = create_with({10, 20}, 2, 1, ZR_compare_pointers);
    record_of(array).compare = compare_never_called;
    heap.refuse_allocation(0);
    EXPECT_EQ(ZR_array_ptr_add(array, element(5), nullptr), -1000);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 32 refused"});
}

TEST_F(PointerArray, RebuildCopiesTheOldVectorToItsEndNotOnlyToTheCount)
{
    ZT_DT_ANY *array = create_with({10, 20, 30}, 8, 1, ZR_compare_pointers);
    for (uint64_t i = 3; i < 8; ++i)
        record_of(array).slots[i] = element(900 + i);
    EXPECT_EQ(add(array, 15), 1u);
    EXPECT_EQ(elements_of(array), (element_list{10, 15, 20, 30}));
    for (uint64_t i = 4; i < 8; ++i)
        EXPECT_EQ(record_of(array).slots[i], element(900 + i - 1));
}

TEST_F(PointerArray, RebuildInTheLastSlotCopiesNoTail)
{
    ZT_DT_ANY *array = create_with({10, 30, 20}, 3, 1, ZR_compare_pointers);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
    EXPECT_EQ(record_of(array).capacity, 3u);
}

// ---- Refusals

TEST_F(PointerArray, RefusedRebuildPassesForSuccessButAddsNothing)
{
    ZT_DT_ANY *array = create_with({10, 20, 30}, 10, 1, ZR_compare_pointers);
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    heap.refuse_allocation(0);
    EXPECT_EQ(ZR_array_ptr_add(array, element(15), &index), 0);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 80 refused"});
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
}

TEST_F(PointerArray, RefusedRebuildKeepsTheGrowthOfTheSameCall)
{
    ZT_DT_ANY *array = create_with({10, 20, 30}, 3, 1, ZR_compare_pointers);
    uint64_t index = UNWRITTEN;
    heap.refuse_allocation(1);
    EXPECT_EQ(ZR_array_ptr_add(array, element(15), &index), 0);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 48 -> vector 2", "free vector 1", "malloc 48 refused"}));
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(record_of(array).slots, heap.address_of("vector 2"));
    EXPECT_EQ(record_of(array).capacity, 6u);
    EXPECT_EQ(record_of(array).count, 3u);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
    EXPECT_EQ(add(array, 15), 1u);
    EXPECT_EQ(elements_of(array), (element_list{10, 15, 20, 30}));
}

TEST_F(PointerArray, SortedAdditionAgreesWithItsTableWhicheverAllocationIsRefused)
{
    // With no slot of the manager left, the growth takes a vector and a node; its old vector leaves a slot
    // for the rebuild.
    const struct {
        steps calls;
        ZT_ERRCOUNT status;
        uint64_t index;
        uint64_t capacity;
        element_list elements;
    } outcomes[] = {
        {{"malloc 32 refused"}, -1000, UNWRITTEN, 2, {10, 20}},
        {{"malloc 32 -> vector 2", "calloc 336 refused", "free vector 2"}, -1000, UNWRITTEN, 2, {10, 20}},
        {{"malloc 32 -> vector 2", "calloc 336 -> node 1", "free vector 1", "malloc 32 refused"},
         0,
         UNWRITTEN,
         4,
         {10, 20}},
        {{"malloc 32 -> vector 2", "calloc 336 -> node 1", "free vector 1", "malloc 32 -> vector 3",
          "free vector 2", "free node 1"},
         0,
         0,
         4,
         {5, 10, 20}},
    };
    unsigned refused = 0;
    for (const auto &expected : outcomes) {
        heap.start_over();
        ZT_DT_ANY *array = create_with({10, 20}, 2, 1, ZR_compare_pointers);
        exhaust_bookkeeping(2);
        uint64_t index = UNWRITTEN;
        heap.refuse_allocation(refused++);
        EXPECT_EQ(ZR_array_ptr_add(array, element(5), &index), expected.status);
        heap.allow_allocations();
        EXPECT_EQ(heap.take_steps(), expected.calls);
        EXPECT_EQ(index, expected.index);
        EXPECT_EQ(record_of(array).capacity, expected.capacity);
        EXPECT_EQ(elements_of(array), expected.elements);
        EXPECT_EQ(ZR_memm_free_all(TAG), 13);
        EXPECT_EQ(heap.unreleased(), steps{});
    }
}

TEST_F(PointerArray, RebuildRefusedItsBookkeepingAddsNothing)
{
    ZT_DT_ANY *array = create_with({10, 20}, 4, 1, ZR_compare_pointers);
    exhaust_bookkeeping(2);
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    heap.refuse_allocation(1);
    EXPECT_EQ(ZR_array_ptr_add(array, element(5), &index), 0);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 32 -> vector 2", "calloc 336 refused", "free vector 2"}));
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{10, 20}));
}
