// What the pointer array asks of the heap.

#include "failures/heap_traffic.h"
#include "memory/dt_types_memory_fixture.h"

#include "foundation/array.h"

namespace {

ZT_DT_ANY *array;

LPVOID element(uintptr_t value)
{
    return reinterpret_cast<LPVOID>(value);
}

void add(uintptr_t value)
{
    ZR_array_ptr_add(array, element(value), nullptr);
}

void create(uint64_t tag, INT sorted)
{
    ZR_array_ptr_alloc(tag, &array, 4, sorted, ZR_compare_pointers);
}

// Of 10, 20, 30 and so on.
template <unsigned Count> void array_of()
{
    create(TAG, 0);
    for (unsigned i = 1; i <= Count; ++i)
        add(10 * i);
}

template <unsigned Count> void sorted_array_of()
{
    create(TAG, 1);
    for (unsigned i = 1; i <= Count; ++i)
        add(10 * i);
}

// Thirteen blocks of the tag: the array, its vector and eleven others.
void full_array_of_a_tag_with_13_blocks()
{
    array_of<4>();
    for (int i = 0; i < 11; ++i)
        allocate(TAG, 10);
}

void remove_first()
{
    ZR_array_ptr_remove(array, 0, nullptr);
}

void remove_first_keeping_order()
{
    ZR_array_ptr_remove_ex(array, 0, nullptr, 1);
}

}  // namespace

traffic_section array_traffic()
{
    const auto add_50 = [] {
        add(50);
    };
    const auto add_15 = [] {
        add(15);
    };
    return {
        "Pointer array",
        "Record and vector are blocks of the array's tag, so what is said above of `ZR_memm_alloc` and "
        "`ZR_memm_free` comes on top: two rows show it. Arrays here grow by 4 slots of 8 bytes.",
        {{heap_call::MALLOC, 72, "array"}},
        "vector",
        {
            {"`ZR_array_ptr_alloc`", "", [] {}, [] { create(TAG, 0); }, {"malloc 72 -> array 1"}},
            {"`ZR_array_ptr_alloc`",
             "its tag needs a record",
             [] { allocate(SECOND_TAG); },
             [] { create(TAG, 0); },
             {"malloc 72 -> array 1", "calloc 360 -> record 1"}},
            {"`ZR_array_ptr_alloc`", "refused", [] {}, [] { create(TAG, 0); }, {"malloc 72 refused"}, 1},

            {"`ZR_array_ptr_add`", "first element", array_of<0>, add_50, {"malloc 32 -> vector 1"}},
            {"`ZR_array_ptr_add`", "at the end, a slot is free", array_of<3>, add_50, {}},
            {"`ZR_array_ptr_add`",
             "at the end, no slot is free",
             array_of<4>,
             add_50,
             {"malloc 64 -> vector 2", "free vector 1"}},
            {"`ZR_array_ptr_add`",
             "at the end, no slot is free, the tag has 13 blocks",
             full_array_of_a_tag_with_13_blocks,
             add_50,
             {"malloc 64 -> vector 13", "calloc 336 -> node 1", "free vector 1"}},
            {"`ZR_array_ptr_add`",
             "the larger vector is refused",
             array_of<4>,
             add_50,
             {"malloc 64 refused"},
             1},
            {"`ZR_array_ptr_add`", "sorted, at the end, a slot is free", sorted_array_of<3>, add_50, {}},
            {"`ZR_array_ptr_add`",
             "sorted, before the end, a slot is free",
             sorted_array_of<3>,
             add_15,
             {"malloc 32 -> vector 2", "free vector 1"}},
            {"`ZR_array_ptr_add`",
             "sorted, before the end, no slot is free",
             sorted_array_of<4>,
             add_15,
             {"malloc 64 -> vector 2", "free vector 1", "malloc 64 -> vector 3", "free vector 2"}},
            {"`ZR_array_ptr_add`",
             "sorted, before the end, the rebuilt vector is refused",
             sorted_array_of<3>,
             add_15,
             {"malloc 32 refused"},
             1},
            {"`ZR_array_ptr_add`",
             "sorted, before the end, no slot is free, the rebuilt vector is refused",
             sorted_array_of<4>,
             add_15,
             {"malloc 64 -> vector 2", "free vector 1", "malloc 64 refused"},
             2},

            {"`ZR_array_ptr_remove`", "fewer than 4 slots are free then", array_of<4>, remove_first, {}},
            {"`ZR_array_ptr_remove`",
             "4 slots are free then",
             array_of<5>,
             remove_first,
             {"malloc 32 -> vector 3", "free vector 2"}},
            {"`ZR_array_ptr_remove`",
             "the smaller vector is refused",
             array_of<5>,
             remove_first,
             {"malloc 32 refused"},
             1},
            {"`ZR_array_ptr_remove`", "the only element", array_of<1>, remove_first, {"free vector 1"}},
            {"`ZR_array_ptr_remove`",
             "index out of range",
             array_of<1>,
             [] { ZR_array_ptr_remove(array, 1, nullptr); },
             {}},
            {"`ZR_array_ptr_remove_ex`",
             "keeping order, 4 slots are free then",
             array_of<5>,
             remove_first_keeping_order,
             {"malloc 32 -> vector 3", "free vector 2"}},
            {"`ZR_array_ptr_remove_ex`",
             "keeping order, the only element",
             array_of<1>,
             remove_first_keeping_order,
             {"free vector 1"}},

            {"`ZR_array_ptr_delete`",
             "empty",
             array_of<0>,
             [] { ZR_array_ptr_delete(array); },
             {"free array 1"}},
            {"`ZR_array_ptr_delete`",
             "with elements",
             array_of<1>,
             [] { ZR_array_ptr_delete(array); },
             {"free vector 1", "free array 1"}},
            {"`ZR_memm_free_all`",
             "the tag of an array with elements",
             array_of<1>,
             [] { ZR_memm_free_all(TAG); },
             {"free array 1", "free vector 1"}},

            {"`ZR_array_ptr_set`", "any", array_of<1>, [] { ZR_array_ptr_set(array, 0, element(20)); }, {}},
            {"`ZR_array_ptr_get`", "any", array_of<1>, [] { ZR_array_ptr_get(array, 0, nullptr); }, {}},
            {"`ZR_array_ptr_find`",
             "any",
             array_of<3>,
             [] { ZR_array_ptr_find(array, element(30), nullptr); },
             {}},
            {"`ZR_array_ptr_index_get`",
             "any",
             sorted_array_of<3>,
             [] { ZR_array_ptr_index_get(array, element(30), nullptr); },
             {}},
            {"`ZR_array_ptr_count_get`",
             "any",
             array_of<1>,
             [] { ZR_array_ptr_count_get(array, nullptr); },
             {}},
        },
    };
}
