// Creating and deleting arrays, their record, and the check of handles.

#include "memory/dt_types_array_fixture.h"

#include <errno.h>
#include <limits.h>
#include <string.h>

TEST_F(PointerArray, CreationAllocatesTheRecordUnderTheTagAndNothingElse)
{
    ZT_DT_ANY *array = nullptr;
    EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 10, 1, compare_never_called), 0);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 72 -> array 1"});
    EXPECT_EQ(array, heap.address_of("array 1"));
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
    // The heap mostly hands out next what it was given back last.
    LPVOID dirty = ZR_memm_alloc(TAG, sizeof(ZT_ARRAY_PTR), "test", __LINE__);
    memset(dirty, 0xA5, sizeof(ZT_ARRAY_PTR));
    ZR_memm_free(TAG, dirty, "test", __LINE__);

    ZT_DT_ANY *array = create(3, 1, compare_never_called);
    add_count(array, 1);  // a first element is compared with nothing
    uint64_t words_of_record[9];
    memcpy(words_of_record, array, sizeof words_of_record);
    EXPECT_EQ(words_of_record[0], 72u);
    EXPECT_EQ(words_of_record[1], 0x64776172u);
    EXPECT_EQ(words_of_record[2], TAG);
    EXPECT_EQ(words_of_record[3], 3u);  // capacity
    EXPECT_EQ(words_of_record[4], 1u);  // count
    EXPECT_EQ(words_of_record[5], 3u);  // increment
    EXPECT_EQ(words_of_record[6], value_of(heap.address_of("vector 1")));
    EXPECT_EQ(words_of_record[7], 1u);  // sorted, and zero in the padding behind it
    EXPECT_EQ(words_of_record[8], reinterpret_cast<uintptr_t>(compare_never_called));
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

TEST_F(PointerArray, AllIsAllocatedUnderAll64BitsOfTheTag)
{
    constexpr uint64_t WIDE_TAG = 0xFEDCBA9876543205;
    ZT_DT_ANY *array = nullptr;
    EXPECT_EQ(ZR_array_ptr_alloc(WIDE_TAG, &array, 2, 1, compare_recorded), 0);
    add_all(array, {3, 2, 1});
    EXPECT_EQ(record_of(array).tag, WIDE_TAG);
    EXPECT_EQ(ZR_memm_flags(WIDE_TAG, array), 2u);
    EXPECT_EQ(ZR_memm_flags(WIDE_TAG, record_of(array).slots), 2u);
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
    EXPECT_EQ(ZR_memm_free_all(WIDE_TAG), -1);
}

TEST_F(PointerArray, CreationRefusedItsRecordLeavesTheHandleUnwrittenAndNoTrace)
{
    int preset = 0;
    auto *array = reinterpret_cast<ZT_DT_ANY *>(&preset);
    heap.refuse_allocation(0);
    errno = 0;
    EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 10, 0, nullptr), -1000);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 72 refused"});
    EXPECT_EQ(array, reinterpret_cast<ZT_DT_ANY *>(&preset));
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(PointerArray, CreationRefusedItsBookkeepingLeavesTheHandleUnwrittenAndNoTrace)
{
    ZR_memm_alloc(TAG_OF_SAME_BUCKET, 1, "test", __LINE__);  // the tag now needs a record of the manager
    heap.take_steps();
    int preset = 0;
    auto *array = reinterpret_cast<ZT_DT_ANY *>(&preset);
    heap.refuse_allocation(1);
    EXPECT_EQ(ZR_array_ptr_alloc(TAG, &array, 10, 0, nullptr), -1000);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 72 -> array 1", "calloc 360 refused", "free array 1"}));
    EXPECT_EQ(array, reinterpret_cast<ZT_DT_ANY *>(&preset));
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

// ---- Deletion and release by tag

TEST_F(PointerArray, DeleteReleasesTheVectorThenTheRecord)
{
    ZT_DT_ANY *array = create_with({1, 2, 3}, 10);
    LPVOID slots = record_of(array).slots;
    LPVOID other = ZR_memm_alloc(TAG, 1, "test", __LINE__);
    heap.take_steps();
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
    EXPECT_EQ(heap.take_steps(), (steps{"free vector 1", "free array 1"}));
    EXPECT_EQ(ZR_memm_flags(TAG, slots), 0u);
    EXPECT_EQ(ZR_memm_flags(TAG, array), 0u);
    EXPECT_EQ(ZR_memm_flags(TAG, other), ZR_MEMM_FLAG_RECORDED);
}

TEST_F(PointerArray, DeleteOfAnEmptyArrayReleasesTheRecordOnly)
{
    EXPECT_EQ(ZR_array_ptr_delete(create(10)), 0);
    EXPECT_EQ(heap.take_steps(), steps{"free array 1"});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(PointerArray, DeleteReleasesUnderTheTagInTheRecordAndWipesNothing)
{
    ZT_DT_ANY *array = create_with({1, 2, 3}, 10);
    record_of(array).tag = TAG_OF_SAME_BUCKET;  // nothing is recorded there, so nothing is released
    const std::string before = image_of(array);
    EXPECT_EQ(ZR_array_ptr_delete(array), 0);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of(array), before);
    EXPECT_EQ(elements_of(array), (element_list{1, 2, 3}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 2);
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
    create_with({1, 2, 3}, 2);
    // The vector has taken a slot of the manager behind the record, then, by growing, the next one.
    EXPECT_EQ(ZR_memm_free_all(TAG), 2);
    EXPECT_EQ(heap.take_steps(), (steps{"free array 1", "free vector 2"}));

    create_with({1}, 10);
    EXPECT_EQ(ZR_memm_cleanup(), 2);
    EXPECT_EQ(heap.take_steps(), (steps{"free array 2", "free vector 3"}));
}

// ---- Handles

namespace {

// Every operation with an invalid handle: -1 and nothing written.
void expect_all_refused(ZT_DT_ANY *array)
{
    uint64_t number = UNWRITTEN;
    LPVOID found = element(UNWRITTEN);
    EXPECT_EQ(_ZR_array_ptr_check(array), 0);
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
}

}  // namespace

TEST_F(PointerArray, CheckAcceptsAHandle)
{
    EXPECT_EQ(_ZR_array_ptr_check(create(0)), 1);
    EXPECT_EQ(_ZR_array_ptr_check(create_with({1}, 1)), 1);
}

TEST_F(PointerArray, NullIsNoHandle)
{
    expect_all_refused(nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(PointerArray, EveryBitOfTheMagicAndSizeWordsIsChecked)
{
    ZT_DT_ANY *array = create_with({1}, 1, 0, compare_never_called);
    for (uint64_t *word : {&record_of(array).size, &record_of(array).magic}) {
        const uint64_t intact = *word;
        for (unsigned bit = 0; bit < 64; ++bit) {
            *word = intact ^ (UINT64_C(1) << bit);
            const std::string before = image_of(array);
            expect_all_refused(array);
            EXPECT_EQ(image_of(array), before);
        }
        *word = intact;
    }
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(_ZR_array_ptr_check(array), 1);
    EXPECT_EQ(elements_of(array), element_list{1});
}

TEST_F(PointerArray, OtherSizeOrMagicWordsAreRefused)
{
    ZT_DT_ANY *array = create(1);
    for (const uint64_t size : {uint64_t{0}, uint64_t{71}, uint64_t{73}, UINT64_MAX}) {
        record_of(array).size = size;
        EXPECT_EQ(_ZR_array_ptr_check(array), 0) << size;
    }
    record_of(array).size = 72;
    for (const uint64_t magic : {uint64_t{0}, uint64_t{0x72617764}, uint64_t{0x64776172} << 32}) {
        record_of(array).magic = magic;
        EXPECT_EQ(_ZR_array_ptr_check(array), 0) << magic;
    }
    record_of(array).magic = 0x64776172;
    EXPECT_EQ(_ZR_array_ptr_check(array), 1);
}
