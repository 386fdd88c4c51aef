// The pointer array, seen through its results, its heap calls and the record behind its handle.

#include "foundation/array.h"
#include "foundation/memory.h"
#include "foundation/memory/dt_types.h"

#include "support/heap_trace.h"

#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr uint64_t TAG = 5;
constexpr uint64_t TAG_OF_SAME_BUCKET = 37;
constexpr size_t RECORD_BYTES = 72;
constexpr size_t SLOT_BYTES = 8;
constexpr size_t MANAGER_RECORD_BYTES = 360;  // the memory manager's bookkeeping
constexpr size_t MANAGER_NODE_BYTES = 336;
constexpr size_t MANAGER_NODE_SLOTS = 13;

constexpr uint64_t UNWRITTEN = 0xDEADBEEFCAFEF00D;  // preset in out-parameters

using element_list = std::vector<uintptr_t>;
using call_list = std::vector<heap_call>;

// The array never looks behind its elements, so numbers serve as well as addresses.
LPVOID element(uintptr_t value)
{
    return reinterpret_cast<LPVOID>(value);
}

uintptr_t value_of(LPVOID pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

// Comparators cannot carry state: the pairs given to those below are collected here.
using pair_list = std::vector<std::pair<uintptr_t, uintptr_t>>;
pair_list compared_pairs;

INT compare_recorded(LPVOID a, LPVOID b)
{
    compared_pairs.emplace_back(value_of(a), value_of(b));
    return static_cast<INT>(value_of(a)) - static_cast<INT>(value_of(b));
}

// Elements that compare equal and can still be told apart: equal tens.
INT compare_tens(LPVOID a, LPVOID b)
{
    compared_pairs.emplace_back(value_of(a), value_of(b));
    return static_cast<INT>(value_of(a) / 10) - static_cast<INT>(value_of(b) / 10);
}

// Gives the extreme results only.
INT compare_to_extremes(LPVOID a, LPVOID b)
{
    return value_of(a) < value_of(b) ? INT_MIN : value_of(a) > value_of(b) ? INT_MAX : 0;
}

// The first three comparisons find the key above; the fourth finds it, whatever the elements are.
INT compare_until_the_fourth(LPVOID a, LPVOID b)
{
    compared_pairs.emplace_back(value_of(a), value_of(b));
    return compared_pairs.size() < 4 ? 1 : 0;
}

INT compare_never_called(LPVOID, LPVOID)
{
    ADD_FAILURE() << "the comparator was called";
    return 0;
}

const ZT_ARRAY_PTR &record_of(const ZT_DT_ANY *array)
{
    return *reinterpret_cast<const ZT_ARRAY_PTR *>(array);
}

// All bytes of a record: equal before and after a call that changes nothing.
std::string image_of(const ZT_DT_ANY *array)
{
    return {reinterpret_cast<const char *>(array), RECORD_BYTES};
}

element_list elements_of(ZT_DT_ANY *array)
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
uint64_t add(ZT_DT_ANY *array, uintptr_t value)
{
    uint64_t index = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_add(array, element(value), &index), 0);
    return index;
}

void add_all(ZT_DT_ANY *array, const element_list &values)
{
    for (const uintptr_t value : values)
        add(array, value);
}

void add_count(ZT_DT_ANY *array, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i)
        EXPECT_EQ(ZR_array_ptr_add(array, element(1000 + i), nullptr), 0);
}

// The removed flag of a removal that does not keep the order.
uint64_t remove_any(ZT_DT_ANY *array, uint64_t index)
{
    uint64_t removed = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_remove(array, index, &removed), 0);
    return removed;
}

uint64_t remove_in_order(ZT_DT_ANY *array, uint64_t index)
{
    uint64_t removed = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_remove_ex(array, index, &removed, 1), 0);
    return removed;
}

// What a search says: the index, or UNWRITTEN when nothing was found; both searches must agree.
uint64_t search(ZT_DT_ANY *array, uintptr_t key)
{
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

// The stored elements that a search compared its key with, in order.
element_list compared_by_search(ZT_DT_ANY *array, uintptr_t key, uint64_t expected_index)
{
    compared_pairs.clear();
    EXPECT_EQ(search(array, key), expected_index) << "key " << key;
    element_list stored;
    for (const auto &[first, second] : compared_pairs) {
        EXPECT_EQ(first, key) << "the key comes first";
        stored.push_back(second);
    }
    return stored;
}

// No test leaves anything in the memory manager's table, nor a block on the heap.
class PointerArray : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZR_memm_cleanup(), 0);
        compared_pairs.clear();
    }

    void TearDown() override
    {
        trace.allow_allocations();
        ZR_memm_cleanup();
        EXPECT_EQ(trace.unreleased_blocks(), std::vector<LPVOID>{});
    }

    ZT_DT_ANY *create(uint64_t increment, INT sorted = 0, ZT_ARRAY_PTR_COMPARE compare = nullptr)
    {
        ZT_DT_ANY *array = nullptr;
        EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, increment, sorted, compare), 0);
        return array;
    }

    // As many blocks under the tag as make the next one need a bookkeeping node.
    void exhaust_bookkeeping(size_t blocks_recorded_so_far)
    {
        for (size_t i = blocks_recorded_so_far; i < MANAGER_NODE_SLOTS; ++i)
            ZR_memm_alloc(TAG, 1, "test", __LINE__);
    }

    heap_trace trace;
};

}  // namespace

// ---- Creation

TEST_F(PointerArray, CreationAllocatesTheRecordUnderTheTagAndNothingElse)
{
    ZT_DT_ANY *array = nullptr;
    const call_list calls = trace.calls_during(
        [&] { EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 10, 1, compare_never_called), 0); });
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(calls, call_list{malloc_call(RECORD_BYTES, array)});
    EXPECT_EQ(ZR_memm_flags(TAG, array), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(PointerArray, NewRecordHoldsWhatWasGivenAndNoElement)
{
    const ZT_ARRAY_PTR &record = record_of(create(10, -7, compare_never_called));
    EXPECT_EQ(record.size, 72u);
    EXPECT_EQ(record.magic, 0x64776172u);
    EXPECT_EQ(record.tag, TAG);
    EXPECT_EQ(record.capacity, 0u);
    EXPECT_EQ(record.count, 0u);
    EXPECT_EQ(record.increment, 10u);
    EXPECT_EQ(record.slots, nullptr);
    EXPECT_EQ(record.sorted, -7);
    EXPECT_EQ(record.compare, compare_never_called);
}

TEST_F(PointerArray, RecordIsLaidOutInTheDocumentedOrder)
{
    ZT_DT_ANY *array = create(3, 1, compare_never_called);
    add_count(array, 1);  // a first element is compared with nothing
    uint64_t words[9];
    static_assert(sizeof words == RECORD_BYTES);
    memcpy(words, array, sizeof words);
    EXPECT_EQ(words[0], 72u);
    EXPECT_EQ(words[1], 0x64776172u);
    EXPECT_EQ(words[2], TAG);
    EXPECT_EQ(words[3], 3u);  // capacity
    EXPECT_EQ(words[4], 1u);  // count
    EXPECT_EQ(words[5], 3u);  // increment
    EXPECT_EQ(words[6], reinterpret_cast<uintptr_t>(record_of(array).slots));
    EXPECT_EQ(words[7], 1u);  // sorted, and zero in the padding behind it
    EXPECT_EQ(words[8], reinterpret_cast<uintptr_t>(compare_never_called));
    EXPECT_EQ(record_of(array).slots[0], element(1000));
}

TEST_F(PointerArray, CreationChecksNoArgument)
{
    for (const uint64_t increment : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
        for (const INT sorted : {0, 1, -1, INT_MIN, INT_MAX}) {
            const ZT_ARRAY_PTR &record = record_of(create(increment, sorted));
            EXPECT_EQ(record.increment, increment);
            EXPECT_EQ(record.sorted, sorted);
            EXPECT_EQ(record.compare, nullptr);
        }
    }
}

TEST_F(PointerArray, RefusedCreationLeavesTheHandleUnwritten)
{
    ZR_memm_alloc(TAG_OF_SAME_BUCKET, 1, "test", __LINE__);  // the tag now needs a record of the manager
    int preset = 0;
    auto *array = reinterpret_cast<ZT_DT_ANY *>(&preset);
    const std::vector<LPVOID> before = trace.unreleased_blocks();
    for (const unsigned refused : {0, 1}) {
        trace.refuse_allocation(refused);
        const call_list calls =
            trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 10, 0, nullptr), -1000); });
        if (refused == 0)
            EXPECT_EQ(calls, call_list{malloc_call(RECORD_BYTES, nullptr)});
        else
            EXPECT_EQ(calls,
                      (call_list{malloc_call(RECORD_BYTES, calls[0].block),
                                 calloc_call(MANAGER_RECORD_BYTES, nullptr), free_call(calls[0].block)}));
        EXPECT_EQ(array, reinterpret_cast<ZT_DT_ANY *>(&preset));
        EXPECT_EQ(trace.unreleased_blocks(), before);
        EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    }
    trace.refuse_allocation(2);  // there is no third
    EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 10, 0, nullptr), 0);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

// ---- Deletion and release by tag

TEST_F(PointerArray, DeleteReleasesTheVectorThenTheRecord)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 3);
    LPVOID slots = record_of(array).slots;
    LPVOID other = ZR_memm_alloc(TAG, 1, "test", __LINE__);
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(ZR_array_ptr_delete(array), 0); }),
              (call_list{free_call(slots), free_call(array)}));
    EXPECT_EQ(ZR_memm_flags(TAG, slots), 0u);
    EXPECT_EQ(ZR_memm_flags(TAG, array), 0u);
    EXPECT_EQ(ZR_memm_flags(TAG, other), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(PointerArray, DeleteOfAnEmptyArrayReleasesTheRecordOnly)
{
    ZT_DT_ANY *array = create(10);
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(ZR_array_ptr_delete(array), 0); }),
              call_list{free_call(array)});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(PointerArray, DeleteReleasesUnderTheTagInTheRecord)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 3);
    LPVOID slots = record_of(array).slots;
    reinterpret_cast<ZT_ARRAY_PTR *>(array)->tag = TAG_OF_SAME_BUCKET;
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(ZR_array_ptr_delete(array), 0); }), call_list{});
    EXPECT_EQ(ZR_memm_flags(TAG, array), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(ZR_memm_flags(TAG, slots), ZR_MEMM_FLAG_RECORDED);
}

TEST_F(PointerArray, DeleteLeavesWhatElementsPointToAlone)
{
    LPVOID pointed_to = ZR_memm_alloc(TAG, 8, "test", __LINE__);
    ZT_DT_ANY *array = create(1);
    add(array, value_of(pointed_to));
    add(array, 1);  // no address at all
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
    EXPECT_EQ(ZR_memm_flags(TAG, pointed_to), ZR_MEMM_FLAG_RECORDED);
}

TEST_F(PointerArray, ReleasingTheTagReleasesTheArray)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 11);
    LPVOID slots = record_of(array).slots;
    // The vector has taken a slot of the manager behind the record, then, by growing, the next one.
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_free_all(TAG), 2); }),
              (call_list{free_call(array), free_call(slots)}));

    ZT_DT_ANY *another = create(10);
    add_count(another, 1);
    EXPECT_EQ(ZR_memm_cleanup(), 2);
}

// ---- Handles

namespace {

// Every operation with an invalid handle: -1, nothing written, no heap call.
void expect_all_refused(heap_trace &trace, ZT_DT_ANY *array)
{
    EXPECT_EQ(_ZR_array_ptr_check(array), 0);
    const call_list calls = trace.calls_during([=] {
        uint64_t number = UNWRITTEN;
        LPVOID found = element(UNWRITTEN);
        EXPECT_EQ(ZR_array_ptr_add(array, element(1), &number), -1);
        EXPECT_EQ(ZR_array_ptr_set(array, 0, element(1)), -1);
        EXPECT_EQ(ZR_array_ptr_get(array, 0, &found), -1);
        EXPECT_EQ(ZR_array_ptr_find(array, element(1), &found), -1);
        EXPECT_EQ(ZR_array_ptr_index_get(array, element(1), &number), -1);
        EXPECT_EQ(ZR_array_ptr_count_get(array, &number), -1);
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, 0, &number, 1), -1);
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, 9, &number, 0), -1);
        EXPECT_EQ(ZR_array_ptr_remove(array, 0, &number), -1);
        EXPECT_EQ(ZR_array_ptr_delete(array), -1);
        EXPECT_EQ(number, UNWRITTEN);
        EXPECT_EQ(found, element(UNWRITTEN));
    });
    EXPECT_EQ(calls, call_list{});
}

}  // namespace

TEST_F(PointerArray, CheckAcceptsAHandle)
{
    ZT_DT_ANY *array = create(0);
    EXPECT_EQ(_ZR_array_ptr_check(array), 1);
    ZT_DT_ANY *filled = create(1);
    add_count(filled, 1);
    EXPECT_EQ(_ZR_array_ptr_check(filled), 1);
}

TEST_F(PointerArray, NullIsNoHandle)
{
    expect_all_refused(trace, nullptr);
}

TEST_F(PointerArray, EveryBitOfTheMagicAndSizeWordsIsChecked)
{
    ZT_DT_ANY *array = create(1, 0, compare_never_called);
    add(array, 1);
    auto *words = reinterpret_cast<uint64_t *>(array);
    for (const size_t word : {0, 1}) {
        for (unsigned bit = 0; bit < 64; ++bit) {
            const uint64_t intact = words[word];
            words[word] ^= UINT64_C(1) << bit;
            const std::string before = image_of(array);
            expect_all_refused(trace, array);
            EXPECT_EQ(image_of(array), before);
            words[word] = intact;
        }
    }
    EXPECT_EQ(_ZR_array_ptr_check(array), 1);
    EXPECT_EQ(elements_of(array), element_list{1});
}

TEST_F(PointerArray, OtherSizeOrMagicWordsAreRefused)
{
    ZT_DT_ANY *array = create(1);
    auto *words = reinterpret_cast<uint64_t *>(array);
    for (const uint64_t size : {uint64_t{0}, uint64_t{71}, uint64_t{73}, UINT64_MAX}) {
        words[0] = size;
        EXPECT_EQ(_ZR_array_ptr_check(array), 0) << size;
    }
    words[0] = 72;
    for (const uint64_t magic : {uint64_t{0}, uint64_t{0x72617764}, uint64_t{0x64776172} << 32}) {
        words[1] = magic;
        EXPECT_EQ(_ZR_array_ptr_check(array), 0) << magic;
    }
    words[1] = 0x64776172;
    EXPECT_EQ(_ZR_array_ptr_check(array), 1);
}

// ---- Adding in insertion order

TEST_F(PointerArray, FirstAdditionAllocatesOneIncrementOfSlots)
{
    for (const uint64_t increment : {1, 2, 10, 1000}) {
        ZT_DT_ANY *array = create(increment);
        uint64_t index = UNWRITTEN;
        const call_list calls =
            trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(7), &index), 0); });
        EXPECT_EQ(index, 0u);
        const ZT_ARRAY_PTR &record = record_of(array);
        EXPECT_EQ(calls, call_list{malloc_call(increment * SLOT_BYTES, record.slots)});
        EXPECT_EQ(record.capacity, increment);
        EXPECT_EQ(record.count, 1u);
        EXPECT_EQ(ZR_memm_flags(TAG, record.slots), ZR_MEMM_FLAG_RECORDED);
        EXPECT_EQ(elements_of(array), element_list{7});
        EXPECT_EQ(ZR_array_ptr_delete(array), 0);
    }
}

TEST_F(PointerArray, EleventhAdditionGrowsAVectorOfTenToTwenty)
{
    ZT_DT_ANY *array = create(10);
    add(array, 0);
    LPVOID first_slots = record_of(array).slots;
    EXPECT_EQ(trace.calls_during([=] {
        for (uintptr_t i = 1; i < 10; ++i)
            EXPECT_EQ(add(array, i * i), i);
    }),
              call_list{});
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(add(array, 100), 10u); });
    EXPECT_EQ(calls,
              (call_list{malloc_call(20 * SLOT_BYTES, record_of(array).slots), free_call(first_slots)}));
    EXPECT_EQ(record_of(array).capacity, 20u);
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
    add(array, 5);
    for (uint64_t count = 2; count <= 5; ++count) {
        LPVOID old_slots = record_of(array).slots;
        const call_list calls = trace.calls_during([=] { add(array, 5); });
        EXPECT_EQ(calls,
                  (call_list{malloc_call(count * SLOT_BYTES, record_of(array).slots), free_call(old_slots)}));
    }
    EXPECT_EQ(elements_of(array), (element_list{5, 5, 5, 5, 5}));
}

TEST_F(PointerArray, AnyValueIsAnElement)
{
    ZT_DT_ANY *array = create(2);
    add_all(array, {0, UINTPTR_MAX, 0, 1});
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
    ZT_DT_ANY *array = create(10, 0, compare_never_called);
    for (const uintptr_t value : {30, 10, 20})
        add(array, value);
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

TEST_F(PointerArray, RefusedGrowthChangesNothing)
{
    ZT_DT_ANY *array = create(2);
    for (const uint64_t count : {0, 2, 4}) {
        add_count(array, count - record_of(array).count);
        const std::string before = image_of(array);
        const element_list elements = elements_of(array);
        uint64_t index = UNWRITTEN;
        trace.refuse_allocation(0);
        const call_list calls =
            trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000); });
        EXPECT_EQ(calls, call_list{malloc_call((count + 2) * SLOT_BYTES, nullptr)});
        EXPECT_EQ(index, UNWRITTEN);
        EXPECT_EQ(image_of(array), before);
        EXPECT_EQ(elements_of(array), elements);
    }
}

TEST_F(PointerArray, GrowthRefusedItsBookkeepingChangesNothing)
{
    ZT_DT_ANY *array = create(2);
    add_count(array, 2);
    exhaust_bookkeeping(2);
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    trace.refuse_allocation(1);
    const call_list calls =
        trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000); });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls, (call_list{malloc_call(4 * SLOT_BYTES, calls[0].block),
                                calloc_call(MANAGER_NODE_BYTES, nullptr), free_call(calls[0].block)}));
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
            const call_list calls =
                trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000); });
            EXPECT_EQ(calls, call_list{});
            EXPECT_EQ(index, UNWRITTEN);
            EXPECT_EQ(image_of(array), before);
            EXPECT_EQ(ZR_array_ptr_delete(array), 0);
        }
    }
}

TEST_F(PointerArray, LargestIncrementThatFitsIsAskedOfTheHeap)
{
    ZT_DT_ANY *array = create((UINT64_C(1) << 61) - 1);
    trace.refuse_allocation(0);
    const call_list calls =
        trace.calls_during([=] { EXPECT_EQ(ZR_array_ptr_add(array, element(1), nullptr), -1000); });
    EXPECT_EQ(calls, call_list{malloc_call(UINT64_MAX - 7, nullptr)});
}

TEST_F(PointerArray, ArrayWithIncrement0NeverHoldsAnElement)
{
    ZT_DT_ANY *array = create(0, 0, compare_never_called);
    const std::string before = image_of(array);
    const call_list calls = trace.calls_during([=] {
        uint64_t index = UNWRITTEN;
        EXPECT_EQ(ZR_array_ptr_add(array, element(1), &index), -1000);
        EXPECT_EQ(index, UNWRITTEN);
        EXPECT_EQ(remove_any(array, 0), 0u);
        EXPECT_EQ(remove_in_order(array, 0), 0u);
        EXPECT_EQ(search(array, 1), UNWRITTEN);
        EXPECT_EQ(elements_of(array), element_list{});
    });
    EXPECT_EQ(calls, call_list{});
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
}

// ---- Adding in sorted mode

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
    for (const INT sorted : {1, -1, 256, INT_MIN}) {
        ZT_DT_ANY *array = create(10, sorted, ZR_compare_pointers);
        add_all(array, {3, 1, 2});
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

TEST_F(PointerArray, SortedAdditionReadsTheSignOfAnyResult)
{
    ZT_DT_ANY *array = create(10, 1, compare_to_extremes);
    add_all(array, {3, 1, 2, 5, 4, 3});
    EXPECT_EQ(elements_of(array), (element_list{1, 2, 3, 3, 4, 5}));
    for (uintptr_t key = 1; key <= 5; ++key)
        EXPECT_NE(search(array, key), UNWRITTEN);
    EXPECT_EQ(search(array, 0), UNWRITTEN);
    EXPECT_EQ(search(array, 6), UNWRITTEN);
}

TEST_F(PointerArray, SortedInsertionRebuildsTheVectorThoughThereIsRoom)
{
    ZT_DT_ANY *array = create(10, 1, ZR_compare_pointers);
    add_all(array, {10, 30});
    LPVOID old_slots = record_of(array).slots;
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(add(array, 20), 1u); });
    EXPECT_EQ(calls, (call_list{malloc_call(10 * SLOT_BYTES, record_of(array).slots), free_call(old_slots)}));
    EXPECT_EQ(record_of(array).capacity, 10u);
    EXPECT_EQ(record_of(array).count, 3u);
}

TEST_F(PointerArray, SortedAdditionAtTheEndUsesTheRoomThereIs)
{
    ZT_DT_ANY *array = create(10, 1, ZR_compare_pointers);
    add(array, 10);
    EXPECT_EQ(trace.calls_during([=] {
        EXPECT_EQ(add(array, 20), 1u);
        EXPECT_EQ(add(array, 20), 2u);
    }),
              call_list{});
}

TEST_F(PointerArray, SortedInsertionIntoAFullArrayGrowsThenRebuilds)
{
    ZT_DT_ANY *array = create(2, 1, ZR_compare_pointers);
    add_all(array, {10, 20});
    LPVOID old_slots = record_of(array).slots;
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(add(array, 5), 0u); });
    ASSERT_EQ(calls.size(), 4u);
    LPVOID grown = calls[0].block;
    EXPECT_EQ(calls, (call_list{malloc_call(4 * SLOT_BYTES, grown), free_call(old_slots),
                                malloc_call(4 * SLOT_BYTES, record_of(array).slots), free_call(grown)}));
    EXPECT_EQ(elements_of(array), (element_list{5, 10, 20}));
}

TEST_F(PointerArray, RebuildCopiesTheOldVectorToItsEndNotOnlyToTheCount)
{
    ZT_DT_ANY *array = create(8, 1, ZR_compare_pointers);
    add_all(array, {10, 20, 30});
    for (uint64_t i = 3; i < 8; ++i)
        record_of(array).slots[i] = element(900 + i);
    EXPECT_EQ(add(array, 15), 1u);
    const ZT_ARRAY_PTR &record = record_of(array);
    EXPECT_EQ(elements_of(array), (element_list{10, 15, 20, 30}));
    for (uint64_t i = 4; i < 8; ++i)
        EXPECT_EQ(record.slots[i], element(900 + i - 1));
}

TEST_F(PointerArray, RebuildInTheLastSlotCopiesNoTail)
{
    ZT_DT_ANY *array = create(3, 1, ZR_compare_pointers);
    add_all(array, {10, 30, 20});
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
    EXPECT_EQ(record_of(array).capacity, 3u);
}

TEST_F(PointerArray, RefusedRebuildPassesForSuccessButAddsNothing)
{
    ZT_DT_ANY *array = create(10, 1, ZR_compare_pointers);
    add_all(array, {10, 20, 30});
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    trace.refuse_allocation(0);
    const call_list calls =
        trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(15), &index), 0); });
    EXPECT_EQ(calls, call_list{malloc_call(10 * SLOT_BYTES, nullptr)});
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
}

TEST_F(PointerArray, RefusedRebuildKeepsTheGrowthOfTheSameCall)
{
    ZT_DT_ANY *array = create(3, 1, ZR_compare_pointers);
    add_all(array, {10, 20, 30});
    LPVOID old_slots = record_of(array).slots;
    uint64_t index = UNWRITTEN;
    trace.refuse_allocation(1);
    const call_list calls =
        trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(15), &index), 0); });
    const ZT_ARRAY_PTR &record = record_of(array);
    EXPECT_EQ(calls, (call_list{malloc_call(6 * SLOT_BYTES, record.slots), free_call(old_slots),
                                malloc_call(6 * SLOT_BYTES, nullptr)}));
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(record.capacity, 6u);
    EXPECT_EQ(record.count, 3u);
    EXPECT_EQ(elements_of(array), (element_list{10, 20, 30}));
    EXPECT_EQ(add(array, 15), 1u);
    EXPECT_EQ(elements_of(array), (element_list{10, 15, 20, 30}));
}

TEST_F(PointerArray, SortedAdditionAgreesWithItsTableWhicheverAllocationIsRefused)
{
    // With no slot of the manager left, growth and rebuild take a block and a node each; the growth's old
    // vector leaves a slot for the rebuild.
    struct outcome {
        ZT_ERRCOUNT status;
        uint64_t index;
        uint64_t capacity;
        element_list elements;
    };
    const std::vector<outcome> outcomes = {{-1000, UNWRITTEN, 2, {10, 20}},  // block of the growth
                                           {-1000, UNWRITTEN, 2, {10, 20}},  // node for it
                                           {0, UNWRITTEN, 4, {10, 20}},      // block of the rebuild
                                           {0, 0, 4, {5, 10, 20}}};          // none
    for (size_t refused = 0; refused < outcomes.size(); ++refused) {
        ZT_DT_ANY *array = create(2, 1, ZR_compare_pointers);
        add_all(array, {10, 20});
        exhaust_bookkeeping(2);
        uint64_t index = UNWRITTEN;
        trace.refuse_allocation(static_cast<unsigned>(refused));
        EXPECT_EQ(ZR_array_ptr_add(array, element(5), &index), outcomes[refused].status);
        trace.allow_allocations();
        EXPECT_EQ(index, outcomes[refused].index);
        EXPECT_EQ(record_of(array).capacity, outcomes[refused].capacity);
        EXPECT_EQ(elements_of(array), outcomes[refused].elements);
        EXPECT_EQ(ZR_memm_free_all(TAG), static_cast<LONG>(MANAGER_NODE_SLOTS));
        EXPECT_EQ(trace.unreleased_blocks(), std::vector<LPVOID>{});
    }
}

TEST_F(PointerArray, RebuildRefusedItsBookkeepingAddsNothing)
{
    ZT_DT_ANY *array = create(4, 1, ZR_compare_pointers);
    add_all(array, {10, 20});
    exhaust_bookkeeping(2);
    const std::string before = image_of(array);
    uint64_t index = UNWRITTEN;
    trace.refuse_allocation(1);
    const call_list calls =
        trace.calls_during([&] { EXPECT_EQ(ZR_array_ptr_add(array, element(5), &index), 0); });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls, (call_list{malloc_call(4 * SLOT_BYTES, calls[0].block),
                                calloc_call(MANAGER_NODE_BYTES, nullptr), free_call(calls[0].block)}));
    EXPECT_EQ(index, UNWRITTEN);
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{10, 20}));
}

// ---- Indexed access

TEST_F(PointerArray, SetOverwritesAnElement)
{
    for (ZT_DT_ANY *array : {create(4), create(4, 0, compare_never_called), create(4, 1, nullptr)}) {
        add_all(array, {1, 2, 3});
        const call_list calls = trace.calls_during([=] {
            EXPECT_EQ(ZR_array_ptr_set(array, 0, element(10)), 0);
            EXPECT_EQ(ZR_array_ptr_set(array, 2, nullptr), 0);
        });
        EXPECT_EQ(calls, call_list{});
        EXPECT_EQ(elements_of(array), (element_list{10, 2, 0}));
    }
}

TEST_F(PointerArray, SetFromTheCountOnIsRefused)
{
    ZT_DT_ANY *array = create(4);
    EXPECT_EQ(ZR_array_ptr_set(array, 0, element(1)), -1);
    add_all(array, {1, 2});
    for (const uint64_t index : {uint64_t{2}, uint64_t{3}, uint64_t{4}, UINT64_C(1) << 32, UINT64_MAX})
        EXPECT_EQ(ZR_array_ptr_set(array, index, element(9)), -1);
    EXPECT_EQ(elements_of(array), (element_list{1, 2}));
    EXPECT_EQ(record_of(array).count, 2u);
}

TEST_F(PointerArray, SetIsRefusedInSortedModeWhateverTheIndex)
{
    ZT_DT_ANY *array = create(4, -1, ZR_compare_pointers);
    EXPECT_EQ(ZR_array_ptr_set(array, 0, element(1)), -1);
    add_all(array, {1, 2});
    for (const uint64_t index : {uint64_t{0}, uint64_t{1}, uint64_t{2}, UINT64_MAX})
        EXPECT_EQ(ZR_array_ptr_set(array, index, element(1)), -1);
    EXPECT_EQ(elements_of(array), (element_list{1, 2}));
}

TEST_F(PointerArray, GetReadsAnElement)
{
    ZT_DT_ANY *array = create(4, 0, compare_never_called);
    add_all(array, {7, 8});
    const call_list calls = trace.calls_during([=] {
        LPVOID read = element(UNWRITTEN);
        EXPECT_EQ(ZR_array_ptr_get(array, 0, &read), 0);
        EXPECT_EQ(read, element(7));
        EXPECT_EQ(ZR_array_ptr_get(array, 1, &read), 0);
        EXPECT_EQ(read, element(8));
        EXPECT_EQ(ZR_array_ptr_get(array, 1, nullptr), 0);
    });
    EXPECT_EQ(calls, call_list{});
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

// ---- Searching

TEST_F(PointerArray, NothingIsFoundInAnEmptyArray)
{
    for (const INT sorted : {0, 1}) {
        for (const ZT_ARRAY_PTR_COMPARE compare :
             {static_cast<ZT_ARRAY_PTR_COMPARE>(nullptr), compare_never_called}) {
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
    ZT_DT_ANY *array = create(10, 0, compare_recorded);
    add_all(array, {30, 10, 20, 10});
    EXPECT_EQ(compared_by_search(array, 30, 0), (element_list{30}));
    EXPECT_EQ(compared_by_search(array, 10, 1), (element_list{30, 10}));
    EXPECT_EQ(compared_by_search(array, 20, 2), (element_list{30, 10, 20}));
    EXPECT_EQ(compared_by_search(array, 15, UNWRITTEN), (element_list{30, 10, 20, 10}));
}

TEST_F(PointerArray, SearchIsBinaryByTheSortedFlagAlone)
{
    // Out of order on purpose: only a linear search would find the 10.
    ZT_DT_ANY *array = create(10, 1, compare_recorded);
    add_all(array, {10, 20, 30, 40});
    remove_any(array, 0);
    EXPECT_EQ(elements_of(array), (element_list{40, 20, 30}));
    EXPECT_EQ(compared_by_search(array, 40, UNWRITTEN), (element_list{20, 30}));
}

TEST_F(PointerArray, BinarySearchMovesItsBoundsOntoTheMiddle)
{
    ZT_DT_ANY *three = create(10, 1, compare_recorded);
    add_all(three, {10, 20, 30});
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
    ZT_DT_ANY *one = create(10, 1, compare_recorded);
    add(one, 10);
    EXPECT_EQ(compared_by_search(one, 5, UNWRITTEN), (element_list{10}));
    EXPECT_EQ(compared_by_search(one, 10, 0), (element_list{10}));
    EXPECT_EQ(compared_by_search(one, 15, UNWRITTEN), (element_list{10}));
}

TEST_F(PointerArray, BinarySearchOfTwoNeighboursJumpsToTheUpper)
{
    ZT_DT_ANY *two = create(10, 1, compare_recorded);
    add_all(two, {10, 20});
    EXPECT_EQ(compared_by_search(two, 20, 1), (element_list{10, 20}));
    EXPECT_EQ(compared_by_search(two, 10, 0), (element_list{10}));
    EXPECT_EQ(compared_by_search(two, 5, UNWRITTEN), (element_list{10}));
    EXPECT_EQ(compared_by_search(two, 15, UNWRITTEN), (element_list{10, 20}));
    EXPECT_EQ(compared_by_search(two, 25, UNWRITTEN), (element_list{10, 20}));
}

TEST_F(PointerArray, BinarySearchOfFiveElementsRepeatsComparisonsWhereBoundsMeet)
{
    ZT_DT_ANY *five = create(10, 1, compare_recorded);
    add_all(five, {10, 20, 30, 40, 50});
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

// A record made by hand over 2^31 + 2^28 slots, of which only those that are compared are ever touched. The
// key is above each of them; the sum of the bounds passes 2^32 in the fourth comparison.
TEST_F(PointerArray, BinarySearchAddsItsBoundsModulo2To32)
{
    constexpr uint64_t count = 0x90000000;
    constexpr uint64_t middles[] = {0x47FFFFFF, 0x6BFFFFFF, 0x7DFFFFFF, 0x06FFFFFF};
    constexpr int access = PROT_READ | PROT_WRITE;
    void *reserved =
        mmap(nullptr, count * SLOT_BYTES, access, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(reserved, MAP_FAILED);
    ZT_ARRAY_PTR array = {sizeof array,
                          ZR_ARRAY_PTR_MAGIC,
                          TAG,
                          count,
                          count,
                          1,
                          static_cast<LPVOID *>(reserved),
                          1,
                          compare_until_the_fourth};
    for (uintptr_t i = 0; i < 4; ++i)
        array.slots[middles[i]] = element(i + 1);

    compared_pairs.clear();
    uint64_t index = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_index_get(reinterpret_cast<ZT_DT_ANY *>(&array), element(100), &index), 0);
    EXPECT_EQ(index, middles[3]);
    EXPECT_EQ(compared_pairs, (pair_list{{100, 1}, {100, 2}, {100, 3}, {100, 4}}));
    munmap(reserved, count * SLOT_BYTES);
}

TEST_F(PointerArray, BinarySearchTakesWhicheverOfEqualElementsItMeetsFirst)
{
    ZT_DT_ANY *array = create(10, 1, compare_tens);
    add_all(array, {21, 22, 23});
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
        ZT_DT_ANY *array = create(10, sorted, compare_tens);
        add_all(array, {11, 21, 31});
        LPVOID found = nullptr;
        EXPECT_EQ(ZR_array_ptr_find(array, element(29), &found), 0);
        EXPECT_EQ(found, element(21));
    }
}

TEST_F(PointerArray, ResultOfASearchNeedNotBeAskedFor)
{
    for (const INT sorted : {0, 1}) {
        ZT_DT_ANY *array = create(10, sorted, ZR_compare_pointers);
        add_all(array, {1, 2, 3});
        EXPECT_EQ(ZR_array_ptr_find(array, element(2), nullptr), 0);
        EXPECT_EQ(ZR_array_ptr_index_get(array, element(2), nullptr), 0);
        EXPECT_EQ(ZR_array_ptr_find(array, element(4), nullptr), -1);
        EXPECT_EQ(ZR_array_ptr_index_get(array, element(4), nullptr), -1);
    }
}

TEST_F(PointerArray, SearchNeedsNoHeap)
{
    ZT_DT_ANY *linear = create(10, 0, ZR_compare_pointers);
    ZT_DT_ANY *binary = create(10, 1, ZR_compare_pointers);
    add_all(linear, {3, 1, 2});
    add_all(binary, {3, 1, 2});
    EXPECT_EQ(trace.calls_during([=] {
        EXPECT_EQ(search(linear, 2), 2u);
        EXPECT_EQ(search(binary, 2), 1u);
        EXPECT_EQ(search(binary, 9), UNWRITTEN);
    }),
              call_list{});
}

// ---- Removing

TEST_F(PointerArray, RemoveFillsTheHoleWithTheLastElement)
{
    ZT_DT_ANY *array = create(10);
    add_all(array, {10, 20, 30});
    EXPECT_EQ(remove_any(array, 0), 1u);
    EXPECT_EQ(elements_of(array), (element_list{30, 20}));
    EXPECT_EQ(remove_any(array, 1), 1u);
    EXPECT_EQ(elements_of(array), (element_list{30}));
}

TEST_F(PointerArray, RemoveExWithoutKeepOrderIsRemove)
{
    ZT_DT_ANY *array = create(10);
    add_all(array, {10, 20, 30});
    uint64_t removed = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_remove_ex(array, 0, &removed, 0), 0);
    EXPECT_EQ(removed, 1u);
    EXPECT_EQ(elements_of(array), (element_list{30, 20}));
}

TEST_F(PointerArray, RemoveInOrderMovesTheElementsBehindDown)
{
    // All 64 bits of the flag count.
    for (const uint64_t keep_order : {uint64_t{1}, uint64_t{2}, UINT64_C(1) << 32, UINT64_MAX}) {
        ZT_DT_ANY *array = create(10);
        add_all(array, {10, 20, 30, 40});
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
    ZT_DT_ANY *broken = create(10, 1, ZR_compare_pointers);
    add_all(broken, {10, 20, 30});
    EXPECT_EQ(remove_any(broken, 0), 1u);
    EXPECT_EQ(elements_of(broken), (element_list{30, 20}));

    ZT_DT_ANY *kept = create(10, 1, ZR_compare_pointers);
    add_all(kept, {10, 20, 30});
    EXPECT_EQ(remove_in_order(kept, 0), 1u);
    EXPECT_EQ(elements_of(kept), (element_list{20, 30}));
}

TEST_F(PointerArray, VacatedSlotIsNull)
{
    ZT_DT_ANY *array = create(10);
    add_all(array, {10, 20, 30, 40});
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
    ZT_DT_ANY *array = create(10);
    EXPECT_EQ(remove_any(array, 0), 0u);
    add_all(array, {1, 2, 3});
    const std::string before = image_of(array);
    const call_list calls = trace.calls_during([=] {
        for (const uint64_t index : {uint64_t{3}, uint64_t{9}, uint64_t{10}, UINT64_C(1) << 32, UINT64_MAX}) {
            EXPECT_EQ(remove_any(array, index), 0u);
            EXPECT_EQ(remove_in_order(array, index), 0u);
        }
    });
    EXPECT_EQ(calls, call_list{});
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{1, 2, 3}));
}

TEST_F(PointerArray, RemovedFlagNeedNotBeAskedFor)
{
    ZT_DT_ANY *array = create(10);
    add_all(array, {1, 2, 3});
    EXPECT_EQ(ZR_array_ptr_remove(array, 0, nullptr), 0);
    EXPECT_EQ(ZR_array_ptr_remove_ex(array, 0, nullptr, 1), 0);
    EXPECT_EQ(ZR_array_ptr_remove(array, 5, nullptr), 0);
    EXPECT_EQ(elements_of(array), (element_list{2}));
}

TEST_F(PointerArray, RemovingDownFromTwentySlotsShrinksToTenThenToNone)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 20);
    LPVOID old_slots = record_of(array).slots;
    EXPECT_EQ(trace.calls_during([=] {
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(remove_in_order(array, 0), 1u);
    }),
              call_list{});
    EXPECT_EQ(record_of(array).capacity, 20u);

    const call_list shrink = trace.calls_during([=] { remove_in_order(array, 0); });
    LPVOID slots = record_of(array).slots;
    EXPECT_EQ(shrink, (call_list{malloc_call(10 * SLOT_BYTES, slots), free_call(old_slots)}));
    EXPECT_EQ(record_of(array).capacity, 10u);
    EXPECT_EQ(ZR_memm_flags(TAG, slots), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(elements_of(array), (element_list{1010, 1011, 1012, 1013, 1014, 1015, 1016, 1017, 1018, 1019}));

    EXPECT_EQ(trace.calls_during([=] {
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(remove_any(array, 0), 1u);
    }),
              call_list{});
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(remove_any(array, 0), 1u); }), call_list{free_call(slots)});
    EXPECT_EQ(record_of(array).capacity, 0u);
    EXPECT_EQ(record_of(array).count, 0u);
    EXPECT_EQ(record_of(array).slots, nullptr);
    EXPECT_EQ(add(array, 1), 0u);
    EXPECT_EQ(record_of(array).capacity, 10u);
}

TEST_F(PointerArray, IncrementOf1ShrinksWithEveryRemoval)
{
    ZT_DT_ANY *array = create(1);
    add_count(array, 4);
    for (uint64_t count = 3; count > 0; --count) {
        LPVOID old_slots = record_of(array).slots;
        const call_list calls = trace.calls_during([=] { remove_any(array, count); });
        EXPECT_EQ(calls,
                  (call_list{malloc_call(count * SLOT_BYTES, record_of(array).slots), free_call(old_slots)}));
    }
}

TEST_F(PointerArray, AddingAndRemovingAroundAnIncrementReallocatesEachTime)
{
    ZT_DT_ANY *array = create(10);
    add_count(array, 10);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(trace.calls_during([=] { add(array, 1); }).size(), 2u);
        EXPECT_EQ(record_of(array).capacity, 20u);
        EXPECT_EQ(trace.calls_during([=] { remove_in_order(array, 0); }).size(), 2u);
        EXPECT_EQ(record_of(array).capacity, 10u);
    }
}

TEST_F(PointerArray, RefusedShrinkKeepsTheOldVector)
{
    ZT_DT_ANY *array = create(2);
    add_all(array, {1, 2, 3});
    LPVOID slots = record_of(array).slots;
    trace.refuse_allocation(0);
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(remove_in_order(array, 0), 1u); });
    EXPECT_EQ(calls, call_list{malloc_call(2 * SLOT_BYTES, nullptr)});
    EXPECT_EQ(record_of(array).slots, slots);
    EXPECT_EQ(record_of(array).capacity, 4u);
    EXPECT_EQ(record_of(array).slots[2], nullptr);
    EXPECT_EQ(elements_of(array), (element_list{2, 3}));
    EXPECT_EQ(add(array, 4), 2u);
    EXPECT_EQ(elements_of(array), (element_list{2, 3, 4}));
}

TEST_F(PointerArray, ShrinkRefusedItsBookkeepingKeepsTheOldVector)
{
    ZT_DT_ANY *array = create(2);
    add_all(array, {1, 2, 3});
    exhaust_bookkeeping(2);
    LPVOID slots = record_of(array).slots;
    trace.refuse_allocation(1);
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(remove_any(array, 0), 1u); });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls, (call_list{malloc_call(2 * SLOT_BYTES, calls[0].block),
                                calloc_call(MANAGER_NODE_BYTES, nullptr), free_call(calls[0].block)}));
    EXPECT_EQ(record_of(array).slots, slots);
    EXPECT_EQ(record_of(array).capacity, 4u);
    EXPECT_EQ(elements_of(array), (element_list{3, 2}));
}

TEST_F(PointerArray, RefusedShrinkIsCaughtUpByALaterRemovalEvenOneThatRemovesNothing)
{
    ZT_DT_ANY *array = create(2);
    add_count(array, 9);
    trace.refuse_all_allocations();
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(remove_in_order(array, 0), 1u);
    trace.allow_allocations();
    EXPECT_EQ(record_of(array).capacity, 10u);
    LPVOID old_slots = record_of(array).slots;

    const call_list calls = trace.calls_during([=] { EXPECT_EQ(remove_any(array, 3), 0u); });
    EXPECT_EQ(calls, (call_list{malloc_call(4 * SLOT_BYTES, record_of(array).slots), free_call(old_slots)}));
    EXPECT_EQ(record_of(array).capacity, 4u);  // the smallest multiple of 2 that holds 3
    EXPECT_EQ(elements_of(array), (element_list{1006, 1007, 1008}));
}

TEST_F(PointerArray, GrowthKeptByARefusedRebuildIsGivenBackByTheNextRemoval)
{
    ZT_DT_ANY *array = create(2, 1, ZR_compare_pointers);
    add_all(array, {10, 20});
    trace.refuse_allocation(1);
    EXPECT_EQ(ZR_array_ptr_add(array, element(5), nullptr), 0);
    EXPECT_EQ(record_of(array).capacity, 4u);
    EXPECT_EQ(remove_in_order(array, 2), 0u);
    EXPECT_EQ(record_of(array).capacity, 2u);
    EXPECT_EQ(elements_of(array), (element_list{10, 20}));
}

TEST_F(PointerArray, LastElementGoesWithItsVectorWithoutAskingTheHeap)
{
    ZT_DT_ANY *array = create(10);
    add(array, 1);
    LPVOID slots = record_of(array).slots;
    trace.refuse_all_allocations();
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(remove_any(array, 0), 1u); }), call_list{free_call(slots)});
    EXPECT_EQ(record_of(array).slots, nullptr);
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
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

// ---- Everything at random, against a model

namespace {

struct array_model {
    element_list elements;
    uint64_t capacity = 0;
    uint64_t increment;
    bool is_sorted;
    bool keeps_order;  // never removes other than in order
};

class PointerArrayModel : public PointerArray {
protected:
    uint64_t random_below(uint64_t limit) { return random() % limit; }

    // An allocation that is refused now and then; whether it was.
    template <typename Operation> bool is_refused_during(uint64_t allocation_limit, Operation operation)
    {
        trace.clear();
        if (random_below(6) == 0)
            trace.refuse_allocation(static_cast<unsigned>(random_below(allocation_limit)));
        operation();
        trace.allow_allocations();
        const call_list calls = trace.calls();
        return std::any_of(calls.begin(), calls.end(), [](const heap_call &call) {
            return call.kind != heap_call::FREE && call.block == nullptr;
        });
    }

    void add_one(ZT_DT_ANY *array, array_model &model)
    {
        const uintptr_t value = random_below(300);
        uint64_t index = UNWRITTEN;
        ZT_ERRCOUNT status = 1;
        const bool is_refused =
            is_refused_during(2, [&] { status = ZR_array_ptr_add(array, element(value), &index); });

        // Where an addition to a full array is refused, and which of its two vectors, shows in the calls.
        const bool is_full = model.elements.size() == model.capacity;
        if (is_full && trace.calls().front().block == nullptr) {
            EXPECT_EQ(status, -1000);
            EXPECT_EQ(index, UNWRITTEN);
            return;
        }
        if (is_full)
            model.capacity += model.increment;
        EXPECT_EQ(status, 0);
        if (is_refused) {
            EXPECT_TRUE(model.is_sorted);
            EXPECT_EQ(index, UNWRITTEN);
            return;
        }
        auto place = model.elements.end();
        if (model.is_sorted)
            place = std::find_if(model.elements.begin(), model.elements.end(),
                                 [=](uintptr_t stored) { return stored / 10 > value / 10; });
        EXPECT_EQ(index, static_cast<uint64_t>(place - model.elements.begin()));
        model.elements.insert(place, value);
    }

    void remove_one(ZT_DT_ANY *array, array_model &model)
    {
        const uint64_t index = random_below(model.elements.size() + 2);
        const bool in_order = model.keeps_order || random_below(2) == 0;
        uint64_t removed = UNWRITTEN;
        const bool is_refused = is_refused_during(
            1, [&] { EXPECT_EQ(ZR_array_ptr_remove_ex(array, index, &removed, in_order), 0); });
        EXPECT_EQ(removed, index < model.elements.size() ? 1u : 0u);
        if (removed == 1) {
            if (!in_order)
                std::swap(model.elements[index], model.elements.back());
            model.elements.erase(in_order ? model.elements.begin() + static_cast<ptrdiff_t>(index)
                                          : model.elements.end() - 1);
        }
        const uint64_t needed = (model.elements.size() + model.increment - 1) / model.increment;
        if (is_refused)
            EXPECT_LT(needed * model.increment, model.capacity) << "no shrink was due";
        else
            model.capacity = needed * model.increment;
    }

    void set_one(ZT_DT_ANY *array, array_model &model)
    {
        const uint64_t index = random_below(model.elements.size() + 2);
        const uintptr_t value = random_below(300);
        const bool is_allowed = !model.is_sorted && index < model.elements.size();
        EXPECT_EQ(ZR_array_ptr_set(array, index, element(value)), is_allowed ? 0 : -1);
        if (is_allowed)
            model.elements[index] = value;
    }

    void search_one(ZT_DT_ANY *array, const array_model &model)
    {
        const uintptr_t key = random_below(310);
        const auto matches = [=](uintptr_t stored) {
            return stored / 10 == key / 10;
        };
        const auto first = std::find_if(model.elements.begin(), model.elements.end(), matches);
        const uint64_t index = search(array, key);
        if (first == model.elements.end()) {
            EXPECT_EQ(index, UNWRITTEN);
        } else if (!model.is_sorted) {
            EXPECT_EQ(index, static_cast<uint64_t>(first - model.elements.begin()));
        } else if (model.keeps_order || index != UNWRITTEN) {
            ASSERT_LT(index, model.elements.size());
            EXPECT_TRUE(matches(model.elements[index]));
        }
    }

    void expect_agreement(ZT_DT_ANY *array, const array_model &model)
    {
        EXPECT_EQ(elements_of(array), model.elements);
        EXPECT_EQ(record_of(array).capacity, model.capacity);
        EXPECT_EQ(record_of(array).slots == nullptr, model.capacity == 0);
    }

    // Phases of growth and of decline in turn, so that arrays get long and get empty.
    void take_random_steps(uint64_t increment, bool is_sorted, bool keeps_order)
    {
        array_model model = {{}, 0, increment, is_sorted, keeps_order};
        ZT_DT_ANY *array = create(increment, is_sorted, compare_tens);
        for (int step = 0; step < 3000 && !HasFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            compared_pairs.clear();
            const uint64_t additions = step / 250 % 2 == 0 ? 50 : 25;
            const uint64_t choice = random_below(100);
            if (choice < additions)
                add_one(array, model);
            else if (choice < 75)
                remove_one(array, model);
            else if (choice < 85)
                set_one(array, model);
            else
                search_one(array, model);
            expect_agreement(array, model);
        }
        EXPECT_EQ(ZR_array_ptr_delete(array), 0);
        EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    }

    std::mt19937 random{23};
};

}  // namespace

TEST_F(PointerArrayModel, RandomOperationsOnAnUnsortedArrayAgreeWithTheModel)
{
    for (const uint64_t increment : {1, 3, 10, 64})
        take_random_steps(increment, false, false);
}

TEST_F(PointerArrayModel, RandomOperationsOnASortedArrayAgreeWithTheModel)
{
    for (const uint64_t increment : {1, 3, 10, 64})
        take_random_steps(increment, true, true);
}

TEST_F(PointerArrayModel, RandomOperationsOnAnArrayThatLosesItsOrderAgreeWithTheModel)
{
    for (const uint64_t increment : {1, 3, 10, 64})
        take_random_steps(increment, true, false);
}
