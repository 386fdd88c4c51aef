// Searching, linear and binary.

#include "memory/dt_types_array_fixture.h"

#include <string.h>

namespace {

// The stored elements that a search compared its key with, in order.
element_list compared_by_search(ZT_DT_ANY *array, uintptr_t key, uint64_t expected_index)
{
    compared_pairs.clear();
    LPVOID found = nullptr;
    EXPECT_EQ(ZR_array_ptr_find(array, element(key), &found), expected_index == UNWRITTEN ? -1 : 0);
    element_list stored;
    for (const auto &[first, second] : compared_pairs) {
        EXPECT_EQ(first, key) << "the key comes first";
        stored.push_back(second);
    }
    EXPECT_EQ(search(array, key), expected_index) << "key " << key;
    return stored;
}

// The array that the comparators below change while it is searched.
ZT_DT_ANY *changed_by_comparator = nullptr;

INT compare_and_remove_last(LPVOID key, LPVOID stored)
{
    remove_any(changed_by_comparator, elements_of(changed_by_comparator).size() - 1);
    return compare_recorded(key, stored);
}

INT compare_and_append_key(LPVOID key, LPVOID stored)
{
    if (elements_of(changed_by_comparator).back() != value_of(key))
        add(changed_by_comparator, value_of(key));
    return compare_recorded(key, stored);
}

}  // namespace

TEST_F(PointerArray, NothingIsFoundInAnEmptyArray)
{
    const ZT_ARRAY_PTR_COMPARE comparators[] = {nullptr, compare_never_called};
    for (const INT sorted : {0, 1, -1}) {
        for (const ZT_ARRAY_PTR_COMPARE compare : comparators) {
            ZT_DT_ANY *array = create(4, sorted, compare);
            EXPECT_EQ(search(array, 0), UNWRITTEN);
            add(array, 1);
            EXPECT_EQ(remove_any(array, 0), 1u);
            EXPECT_EQ(search(array, 0), UNWRITTEN);
        }
    }
}

TEST_F(PointerArray, LinearSearchComparesFromTheFrontUpToTheFirstMatch)
{
    ZT_DT_ANY *array = create_with({30, 10, 20, 10}, 10, 0, compare_recorded);
    EXPECT_EQ(compared_by_search(array, 30, 0), (element_list{30}));
    EXPECT_EQ(compared_by_search(array, 10, 1), (element_list{30, 10}));
    EXPECT_EQ(compared_by_search(array, 20, 2), (element_list{30, 10, 20}));
    EXPECT_EQ(compared_by_search(array, 15, UNWRITTEN), (element_list{30, 10, 20, 10}));
}

TEST_F(PointerArray, LinearSearchComparesEachElementOnceInArraysOfAnyCount)
{
    ZT_DT_ANY *array = create(10, 0, compare_recorded);
    element_list all;
    for (uintptr_t count = 1; count <= 5; ++count) {
        add(array, count);
        all.push_back(count);
        EXPECT_EQ(compared_by_search(array, count, count - 1), all);
        EXPECT_EQ(compared_by_search(array, 99, UNWRITTEN), all);
    }
}

TEST_F(PointerArray, LinearSearchFollowsAnArrayThatItsComparatorShrinks)
{
    const auto compared_in_array_of = [this](uintptr_t count) {
        changed_by_comparator = create(1, 0, compare_and_remove_last);
        for (uintptr_t i = 1; i <= count; ++i)
            add(changed_by_comparator, i);
        compared_pairs.clear();
        EXPECT_EQ(ZR_array_ptr_find(changed_by_comparator, element(99), nullptr), -1);
        return compared_pairs;
    };
    EXPECT_EQ(compared_in_array_of(1), (pair_list{{99, 1}}));
    EXPECT_EQ(compared_in_array_of(2), (pair_list{{99, 1}}));
    EXPECT_EQ(compared_in_array_of(3), (pair_list{{99, 1}, {99, 2}}));
    EXPECT_EQ(compared_in_array_of(4), (pair_list{{99, 1}, {99, 2}}));
    EXPECT_EQ(compared_in_array_of(5), (pair_list{{99, 1}, {99, 2}, {99, 3}}));
}

TEST_F(PointerArray, LinearSearchFollowsAnArrayThatItsComparatorMakesGrow)
{
    for (const uintptr_t count : {1, 2, 3}) {
        changed_by_comparator = create(1, 0, compare_and_append_key);
        for (uintptr_t i = 1; i <= count; ++i)
            add(changed_by_comparator, i);
        uint64_t index = UNWRITTEN;
        EXPECT_EQ(ZR_array_ptr_index_get(changed_by_comparator, element(99), &index), 0);
        EXPECT_EQ(index, count);
    }
}

TEST_F(PointerArray, SearchIsBinaryByTheSortedFlagAlone)
{
    for (const INT sorted : {1, -1}) {
        // Out of order on purpose: only a linear search would find the 10.
        ZT_DT_ANY *array = create_with({10, 20, 30, 40}, 10, sorted, compare_recorded);
        remove_any(array, 0);
        EXPECT_EQ(elements_of(array), (element_list{40, 20, 30}));
        EXPECT_EQ(compared_by_search(array, 40, UNWRITTEN), (element_list{20, 30}));
    }
}

TEST_F(PointerArray, BinarySearchMovesItsBoundsOntoTheMiddle)
{
    ZT_DT_ANY *three = create_with({10, 20, 30}, 10, 1, compare_recorded);
    EXPECT_EQ(compared_by_search(three, 25, UNWRITTEN), (element_list{20, 30}));
    EXPECT_EQ(compared_by_search(three, 15, UNWRITTEN), (element_list{20, 10, 20}));
    EXPECT_EQ(compared_by_search(three, 5, UNWRITTEN), (element_list{20, 10}));
    EXPECT_EQ(compared_by_search(three, 35, UNWRITTEN), (element_list{20, 30}));
    EXPECT_EQ(compared_by_search(three, 10, 0), (element_list{20, 10}));
    EXPECT_EQ(compared_by_search(three, 20, 1), (element_list{20}));
    EXPECT_EQ(compared_by_search(three, 30, 2), (element_list{20, 30}));
}

TEST_F(PointerArray, BinarySearchOfOneElementComparesOnce)
{
    ZT_DT_ANY *one = create_with({10}, 10, 1, compare_recorded);
    EXPECT_EQ(compared_by_search(one, 5, UNWRITTEN), (element_list{10}));
    EXPECT_EQ(compared_by_search(one, 10, 0), (element_list{10}));
    EXPECT_EQ(compared_by_search(one, 15, UNWRITTEN), (element_list{10}));
}

TEST_F(PointerArray, BinarySearchOfTwoNeighboursJumpsToTheUpper)
{
    ZT_DT_ANY *two = create_with({10, 20}, 10, 1, compare_recorded);
    EXPECT_EQ(compared_by_search(two, 20, 1), (element_list{10, 20}));
    EXPECT_EQ(compared_by_search(two, 10, 0), (element_list{10}));
    EXPECT_EQ(compared_by_search(two, 5, UNWRITTEN), (element_list{10}));
    EXPECT_EQ(compared_by_search(two, 15, UNWRITTEN), (element_list{10, 20}));
    EXPECT_EQ(compared_by_search(two, 25, UNWRITTEN), (element_list{10, 20}));
}

TEST_F(PointerArray, BinarySearchOfFiveElementsRepeatsComparisonsWhereBoundsMeet)
{
    ZT_DT_ANY *five = create_with({10, 20, 30, 40, 50}, 10, 1, compare_recorded);
    EXPECT_EQ(compared_by_search(five, 5, UNWRITTEN), (element_list{30, 20, 10}));
    EXPECT_EQ(compared_by_search(five, 15, UNWRITTEN), (element_list{30, 20, 10, 20}));
    EXPECT_EQ(compared_by_search(five, 25, UNWRITTEN), (element_list{30, 20, 30}));
    EXPECT_EQ(compared_by_search(five, 35, UNWRITTEN), (element_list{30, 40, 30, 40}));
    EXPECT_EQ(compared_by_search(five, 45, UNWRITTEN), (element_list{30, 40, 50}));
    EXPECT_EQ(compared_by_search(five, 55, UNWRITTEN), (element_list{30, 40, 50}));
    EXPECT_EQ(compared_by_search(five, 50, 4), (element_list{30, 40, 50}));
    EXPECT_EQ(compared_by_search(five, 40, 3), (element_list{30, 40}));
}

TEST_F(PointerArray, BinarySearchFindsEveryElementAndNoOtherKey)
{
    ZT_DT_ANY *array = create(10, 1, ZR_compare_pointers);
    for (uint64_t count = 1; count <= 70; ++count) {
        add(array, 10 * count);
        for (uint64_t i = 0; i < count; ++i) {
            EXPECT_EQ(search(array, 10 * (i + 1)), i);
            EXPECT_EQ(search(array, 10 * i + 5), UNWRITTEN);
        }
        EXPECT_EQ(search(array, 10 * count + 5), UNWRITTEN);
    }
}

TEST_F(PointerArray, BinarySearchTakesWhicheverOfEqualElementsItMeetsFirst)
{
    ZT_DT_ANY *array = create_with({21, 22, 23}, 10, 1, compare_tens);
    EXPECT_EQ(compared_by_search(array, 20, 1), (element_list{22}));
    add(array, 31);
    add(array, 11);  // 11, 21, 22, 23, 31
    EXPECT_EQ(compared_by_search(array, 29, 2), (element_list{22}));
    add(array, 12);  // 11, 12, 21, 22, 23, 31
    EXPECT_EQ(compared_by_search(array, 25, 2), (element_list{21}));
}

TEST_F(PointerArray, FindGivesTheStoredElementNotTheKey)
{
    for (const INT sorted : {0, 1}) {
        ZT_DT_ANY *array = create_with({11, 21, 31}, 10, sorted, compare_tens);
        LPVOID found = nullptr;
        EXPECT_EQ(ZR_array_ptr_find(array, element(29), &found), 0);
        EXPECT_EQ(found, element(21));
    }
}

TEST_F(PointerArray, ResultOfASearchNeedNotBeAskedFor)
{
    for (const INT sorted : {0, 1}) {
        ZT_DT_ANY *array = create_with({1, 2, 3}, 10, sorted, ZR_compare_pointers);
        EXPECT_EQ(ZR_array_ptr_find(array, element(2), nullptr), 0);
        EXPECT_EQ(ZR_array_ptr_index_get(array, element(2), nullptr), 0);
        EXPECT_EQ(ZR_array_ptr_find(array, element(4), nullptr), -1);
        EXPECT_EQ(ZR_array_ptr_index_get(array, element(4), nullptr), -1);
    }
}

TEST_F(PointerArray, SearchNeedsNoHeapAndChangesNothing)
{
    for (const INT sorted : {0, 1}) {
        ZT_DT_ANY *array = create_with({1, 2, 3}, 10, sorted, ZR_compare_pointers);
        const std::string before = image_of(array);
        EXPECT_EQ(search(array, 2), 1u);
        EXPECT_EQ(search(array, 9), UNWRITTEN);
        EXPECT_EQ(heap.take_steps(), steps{});
        EXPECT_EQ(image_of(array), before);
    }
}

// ---- Keys of another kind

namespace {

struct person {
    int age;
    const char *name;
};

// For searches in an array of persons: the key is a name.
INT compare_name_with_person(LPVOID key, LPVOID stored)
{
    return strcmp(static_cast<const char *>(key), static_cast<const person *>(stored)->name);
}

}  // namespace

TEST_F(PointerArray, KeyMayBeOfAnotherKindThanTheElements)
{
    person persons[] = {{30, "Ada"}, {20, "Bo"}, {40, "Cy"}};
    char name[] = "Bo";
    char unknown[] = "Di";
    // Unsorted, so that the comparator sees keys only.
    ZT_DT_ANY *array = create(10, 0, compare_name_with_person);
    for (person &each : persons)
        EXPECT_EQ(ZR_array_ptr_add(array, &each, nullptr), 0);
    LPVOID found = nullptr;
    EXPECT_EQ(ZR_array_ptr_find(array, name, &found), 0);
    EXPECT_EQ(found, &persons[1]);
    EXPECT_EQ(ZR_array_ptr_find(array, unknown, &found), -1);
    EXPECT_EQ(found, &persons[1]);
}
