// Failures of the pointer array.

#include "failures/scenario.h"
#include "memory/dt_types_memory_fixture.h"

#include "foundation/array.h"

namespace {

constexpr uint64_t UNWRITTEN = 0xDEADBEEFCAFEF00D;
constexpr long ARRAY = sizeof(ZT_ARRAY_PTR);
constexpr long VECTOR = 4 * sizeof(LPVOID);  // one increment
static_assert(ARRAY == 72);

ZT_DT_ANY *array;
ZT_ERRCOUNT status;
uint64_t output;

LPVOID element(uintptr_t value)
{
    return reinterpret_cast<LPVOID>(value);
}

INT compare_values(LPVOID a, LPVOID b)
{
    return ZR_compare_pointers(a, b);
}

void no_array()
{
    array = nullptr;
    output = UNWRITTEN;
}

void bucket_is_taken()
{
    no_array();
    allocate(SECOND_TAG);
}

void tag_has_13_blocks()
{
    no_array();
    for (int i = 0; i < 13; ++i)
        allocate(TAG);
}

template <unsigned Count, INT Sorted = 0> void array_of()
{
    no_array();
    ZR_array_ptr_alloc(TAG, &array, 4, Sorted, compare_values);
    for (unsigned i = 1; i <= Count; ++i)
        ZR_array_ptr_add(array, element(10 * i), nullptr);
}

std::string elements()
{
    const auto *record = reinterpret_cast<const ZT_ARRAY_PTR *>(array);
    std::string text = words(record->capacity, " slots:");
    for (uint64_t i = 0; i < record->count; ++i)
        text += words(" ", reinterpret_cast<uintptr_t>(record->slots[i]));
    return text;
}

// "0, output 2, 4 slots: 10 15 20"
std::string status_output_and_elements()
{
    return words(status, ", ") + (output == UNWRITTEN ? "unwritten" : words("output ", output)) + ", " +
           elements();
}

// What was there is found, and elements can be added and removed again.
void use_array()
{
    const uint64_t count = reinterpret_cast<ZT_ARRAY_PTR *>(array)->count;
    for (uintptr_t value = 1000; value <= 1005; ++value) {
        uint64_t index = UNWRITTEN;
        LPVOID found = nullptr;
        EXPECT_EQ(ZR_array_ptr_add(array, element(value), &index), 0);
        EXPECT_EQ(ZR_array_ptr_find(array, element(value), &found), 0);
        EXPECT_EQ(found, element(value));
    }
    for (uint64_t left = count + 6; left > count; --left) {
        uint64_t removed = 0;
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, left - 1, &removed, 1), 0);
        EXPECT_EQ(removed, 1U);
    }
}

scenarios creations()
{
    const std::vector<failure_outcome> outcomes = {{"nothing", "0, an array", ARRAY},
                                                   {"allocation *", "-1000, unwritten"}};
    scenarios list = {
        {.name = "ZR_array_ptr_alloc, vacant bucket", .prepare = no_array, .outcomes = outcomes},
        {.name = "ZR_array_ptr_alloc, its tag needs a record",
         .prepare = bucket_is_taken,
         .outcomes = outcomes},
        {.name = "ZR_array_ptr_alloc, its tag has 13 blocks",
         .prepare = tag_has_13_blocks,
         .outcomes = outcomes},
    };
    list[1].outcomes[0].kept_bytes += sizeof(ZT_MEMM_TAG_RECORD);
    list[2].outcomes[0].kept_bytes += sizeof(ZT_MEMM_NODE);
    for (scenario &each : list) {
        each.act = [] {
            status = ZR_array_ptr_alloc(TAG, &array, 4, 1, compare_values);
        };
        each.result = [] {
            return words(status, array != nullptr ? ", an array" : ", unwritten");
        };
        each.use = [] {
            if (array == nullptr) {
                EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 4, 1, compare_values), 0);
            }
            use_array();
        };
    }
    return list;
}

template <uintptr_t Value> void add()
{
    status = ZR_array_ptr_add(array, element(Value), &output);
}

scenarios additions()
{
    return {
        {.name = "ZR_array_ptr_add, first element",
         .prepare = array_of<0>,
         .act = add<50>,
         .outcomes = {{"nothing", "0, output 0, 4 slots: 50", VECTOR},
                      {"allocation 1", "-1000, unwritten, 0 slots:"}}},
        {.name = "ZR_array_ptr_add, a slot is free",
         .prepare = array_of<1>,
         .act = add<50>,
         .outcomes = {{"nothing", "0, output 1, 4 slots: 10 50"}}},
        {.name = "ZR_array_ptr_add, no slot is free",
         .prepare = array_of<4>,
         .act = add<50>,
         .outcomes = {{"nothing", "0, output 4, 8 slots: 10 20 30 40 50", VECTOR},
                      {"allocation 1", "-1000, unwritten, 4 slots: 10 20 30 40"}}},
        {.name = "ZR_array_ptr_add, no slot is free and the vector needs a node",
         .prepare =
             [] {
                 array_of<4>();
                 for (int i = 0; i < 11; ++i)
                     allocate(TAG);
             },
         .act = add<50>,
         .outcomes = {{"nothing", "0, output 4, 8 slots: 10 20 30 40 50", VECTOR + sizeof(ZT_MEMM_NODE)},
                      {"allocation *", "-1000, unwritten, 4 slots: 10 20 30 40"}}},
        {.name = "ZR_array_ptr_add, sorted, at the end",
         .prepare = array_of<4, 1>,
         .act = add<50>,
         .outcomes = {{"nothing", "0, output 4, 8 slots: 10 20 30 40 50", VECTOR},
                      {"allocation 1", "-1000, unwritten, 4 slots: 10 20 30 40"}}},
        // A refused rebuild is reported as success; only the unwritten output tells.
        {.name = "ZR_array_ptr_add, sorted, before the end, a slot is free",
         .prepare = array_of<3, 1>,
         .act = add<15>,
         .outcomes = {{"nothing", "0, output 1, 4 slots: 10 15 20 30"},
                      {"allocation 1", "0, unwritten, 4 slots: 10 20 30"}}},
        {.name = "ZR_array_ptr_add, sorted, before the end, no slot is free",
         .prepare = array_of<4, 1>,
         .act = add<15>,
         .outcomes = {{"nothing", "0, output 1, 8 slots: 10 15 20 30 40", VECTOR},
                      {"allocation 1", "-1000, unwritten, 4 slots: 10 20 30 40"},
                      {"allocation 2", "0, unwritten, 8 slots: 10 20 30 40", VECTOR}}},
    };
}

scenarios removals()
{
    const std::vector<failure_outcome> keeping_order = {
        {"nothing", "0, output 1, 4 slots: 20 30 40 50", -VECTOR},
        {"allocation 1", "0, output 1, 8 slots: 20 30 40 50"},
    };
    const std::vector<failure_outcome> filling_the_hole = {
        {"nothing", "0, output 1, 4 slots: 50 20 30 40", -VECTOR},
        {"allocation 1", "0, output 1, 8 slots: 50 20 30 40"},
    };
    return {
        {.name = "ZR_array_ptr_remove, an increment is free then",
         .prepare = array_of<5>,
         .act = [] { status = ZR_array_ptr_remove(array, 0, &output); },
         .outcomes = filling_the_hole},
        {.name = "ZR_array_ptr_remove_ex, an increment is free then",
         .prepare = array_of<5>,
         .act = [] { status = ZR_array_ptr_remove_ex(array, 0, &output, 0); },
         .outcomes = filling_the_hole},
        {.name = "ZR_array_ptr_remove_ex, keeping order, an increment is free then",
         .prepare = array_of<5, 1>,
         .act = [] { status = ZR_array_ptr_remove_ex(array, 0, &output, 1); },
         .outcomes = keeping_order},
        {.name = "ZR_array_ptr_remove, the last element",
         .prepare = array_of<1>,
         .act = [] { status = ZR_array_ptr_remove(array, 0, &output); },
         .outcomes = {{"nothing", "0, output 1, 0 slots:", -VECTOR}}},
        {.name = "ZR_array_ptr_delete",
         .prepare = array_of<5>,
         .act = [] { status = ZR_array_ptr_delete(array); },
         .result = [] { return words(status); },
         .use = [] { array_of<5>(); },
         .outcomes = {{"nothing", "0", -ARRAY - 2 * VECTOR}}},
    };
}

}  // namespace

scenarios array_scenarios()
{
    scenarios all;
    for (const auto &make : {creations, additions, removals})
        for (scenario &each : make()) {
            if (!each.result)
                each.result = status_output_and_elements;
            if (!each.use)
                each.use = use_array;
            each.clean_up = [] {
                ZR_memm_cleanup();
            };
            all.push_back(std::move(each));
        }
    return all;
}
