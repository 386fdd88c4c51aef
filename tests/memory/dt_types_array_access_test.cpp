// Setting and getting by index, counting, and comparing pointers.

#include "memory/dt_types_array_fixture.h"

#include <limits.h>

TEST_F(PointerArray, SetOverwritesAnElement)
{
    for (ZT_DT_ANY *array : {create(4), create(4, 0, compare_never_called), create(4, 1, nullptr)}) {
        add_all(array, {1, 2, 3});
        heap.take_steps();
        EXPECT_EQ(ZR_array_ptr_set(array, 0, element(10)), 0);
        EXPECT_EQ(ZR_array_ptr_set(array, 2, nullptr), 0);
        EXPECT_EQ(heap.take_steps(), steps{});
        EXPECT_EQ(elements_of(array), (element_list{10, 2, 0}));
    }
}

TEST_F(PointerArray, SetFromTheCountOnIsRefused)
{
    ZT_DT_ANY *array = create(4);
    EXPECT_EQ(ZR_array_ptr_set(array, 0, element(1)), -1);
    add_all(array, {1, 2});
    const std::string before = image_of(array);
    for (const uint64_t index : {uint64_t{2}, uint64_t{3}, uint64_t{4}, UINT64_C(1) << 32, UINT64_MAX})
        EXPECT_EQ(ZR_array_ptr_set(array, index, element(9)), -1);
    EXPECT_EQ(elements_of(array), (element_list{1, 2}));
    EXPECT_EQ(image_of(array), before);
}

TEST_F(PointerArray, SetIsRefusedInSortedModeWhateverTheIndex)
{
    for (const INT sorted : {1, -1, INT_MIN}) {
        ZT_DT_ANY *array = create(4, sorted, ZR_compare_pointers);
        EXPECT_EQ(ZR_array_ptr_set(array, 0, element(1)), -1);
        add_all(array, {1, 2});
        for (const uint64_t index : {uint64_t{0}, uint64_t{1}, uint64_t{2}, UINT64_MAX})
            EXPECT_EQ(ZR_array_ptr_set(array, index, element(1)), -1);
        EXPECT_EQ(elements_of(array), (element_list{1, 2}));
    }
}

TEST_F(PointerArray, GetReadsAnElement)
{
    ZT_DT_ANY *array = create_with({7, 8}, 4, 0, compare_never_called);
    LPVOID read = element(UNWRITTEN);
    EXPECT_EQ(ZR_array_ptr_get(array, 0, &read), 0);
    EXPECT_EQ(read, element(7));
    EXPECT_EQ(ZR_array_ptr_get(array, 1, &read), 0);
    EXPECT_EQ(read, element(8));
    EXPECT_EQ(ZR_array_ptr_get(array, 1, nullptr), 0);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(PointerArray, GetFromTheCountOnIsRefused)
{
    ZT_DT_ANY *array = create(4);
    LPVOID read = element(UNWRITTEN);
    EXPECT_EQ(ZR_array_ptr_get(array, 0, &read), -1);
    add_all(array, {1, 2});
    for (const uint64_t index : {uint64_t{2}, uint64_t{3}, uint64_t{4}, UINT64_C(1) << 32, UINT64_MAX}) {
        EXPECT_EQ(ZR_array_ptr_get(array, index, &read), -1);
        EXPECT_EQ(ZR_array_ptr_get(array, index, nullptr), -1);
    }
    EXPECT_EQ(read, element(UNWRITTEN));
}

TEST_F(PointerArray, CountGetTellsTheNumberOfElements)
{
    ZT_DT_ANY *array = create(4);
    for (uint64_t expected = 0; expected < 10; ++expected) {
        uint64_t count = UNWRITTEN;
        EXPECT_EQ(ZR_array_ptr_count_get(array, &count), 0);
        EXPECT_EQ(count, expected);
        add(array, 1);
    }
    EXPECT_EQ(ZR_array_ptr_count_get(array, nullptr), 0);
}

// ---- Comparing pointers

TEST_F(PointerArray, ComparePointersGivesTheDifference)
{
    EXPECT_EQ(ZR_compare_pointers(element(10), element(10)), 0);
    EXPECT_EQ(ZR_compare_pointers(element(10), element(30)), -20);
    EXPECT_EQ(ZR_compare_pointers(element(30), element(10)), 20);
    EXPECT_EQ(ZR_compare_pointers(nullptr, nullptr), 0);
    EXPECT_EQ(ZR_compare_pointers(nullptr, element(1)), -1);
    EXPECT_EQ(ZR_compare_pointers(element(UINTPTR_MAX), nullptr), -1);
}

TEST_F(PointerArray, ComparePointersSeesTheLow32BitsOfTheDifference)
{
    constexpr uintptr_t FOUR_GIB = UINT64_C(1) << 32;
    constexpr uintptr_t BASE = 0x7F0012345678;
    EXPECT_EQ(ZR_compare_pointers(element(BASE + FOUR_GIB), element(BASE)), 0);
    EXPECT_EQ(ZR_compare_pointers(element(BASE), element(BASE + 3 * FOUR_GIB)), 0);
    EXPECT_EQ(ZR_compare_pointers(element(BASE + FOUR_GIB + 5), element(BASE)), 5);
    EXPECT_EQ(ZR_compare_pointers(element(BASE + 0x7FFFFFFF), element(BASE)), INT_MAX);
    EXPECT_EQ(ZR_compare_pointers(element(BASE + 0x80000000), element(BASE)), INT_MIN);
    EXPECT_EQ(ZR_compare_pointers(element(BASE), element(BASE + 0x80000000)), INT_MIN);
    EXPECT_EQ(ZR_compare_pointers(element(BASE + 0xFFFFFFFF), element(BASE)), -1);
    EXPECT_EQ(ZR_compare_pointers(element(BASE), element(BASE + 0xFFFFFFFF)), 1);
}

TEST_F(PointerArray, PointersFourGibibytesApartAreEqualElements)
{
    constexpr uintptr_t FOUR_GIB = UINT64_C(1) << 32;
    ZT_DT_ANY *array = create(10, 1, ZR_compare_pointers);
    EXPECT_EQ(add(array, FOUR_GIB + 10), 0u);
    EXPECT_EQ(add(array, 10), 1u);
    EXPECT_EQ(add(array, 2 * FOUR_GIB + 5), 0u);
    EXPECT_EQ(elements_of(array), (element_list{2 * FOUR_GIB + 5, FOUR_GIB + 10, 10}));
    EXPECT_EQ(search(array, 7 * FOUR_GIB + 5), 0u);
}
