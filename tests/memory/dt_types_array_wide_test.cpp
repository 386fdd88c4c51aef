// Arrays of more elements than 31 or 32 bits count. Their records are made by hand over reserved memory, of
// which only what a test opens can be touched; vectors of that size are asked for and refused.

#include "memory/dt_types_array_fixture.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr uint64_t TWO_TO_32 = UINT64_C(1) << 32;

class WidePointerArray : public PointerArray {
protected:
    void TearDown() override
    {
        munmap(record.slots, record.capacity * SLOT_BYTES);
        PointerArray::TearDown();
    }

    void make(uint64_t capacity, uint64_t count, uint64_t increment, INT sorted = 0,
              ZT_ARRAY_PTR_COMPARE compare = nullptr)
    {
        constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
        void *slots = mmap(nullptr, capacity * SLOT_BYTES, PROT_NONE, flags, -1, 0);
        ASSERT_NE(slots, MAP_FAILED);
        record = {sizeof record, ZR_ARRAY_PTR_MAGIC,           TAG,    capacity, count,
                  increment,     static_cast<LPVOID *>(slots), sorted, compare};
    }

    // A slot, whose page can be touched from now on.
    LPVOID &slot(uint64_t index)
    {
        LPVOID *place = record.slots + index;
        const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        auto *start = reinterpret_cast<LPVOID>(reinterpret_cast<uintptr_t>(place) / page * page);
        EXPECT_EQ(mprotect(start, page, PROT_READ | PROT_WRITE), 0);
        return *place;
    }

    ZT_DT_ANY *array() { return reinterpret_cast<ZT_DT_ANY *>(&record); }

    ZT_ARRAY_PTR record = {};
};

}  // namespace

TEST_F(WidePointerArray, CountGetTellsAll64Bits)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10);
    uint64_t count = 0;
    EXPECT_EQ(ZR_array_ptr_count_get(array(), &count), 0);
    EXPECT_EQ(count, TWO_TO_32 + 5);
}

TEST_F(WidePointerArray, IndexedAccessReaches33BitIndices)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10);
    for (const uint64_t index : {UINT64_C(0x80000001), TWO_TO_32, TWO_TO_32 + 4}) {
        slot(index) = nullptr;
        EXPECT_EQ(ZR_array_ptr_set(array(), index, element(index)), 0);
        EXPECT_EQ(slot(index), element(index));
        LPVOID read = nullptr;
        EXPECT_EQ(ZR_array_ptr_get(array(), index, &read), 0);
        EXPECT_EQ(read, element(index));
    }
    EXPECT_EQ(slot(1), nullptr);
    EXPECT_EQ(slot(4), nullptr);
    EXPECT_EQ(ZR_array_ptr_set(array(), TWO_TO_32 + 5, element(1)), -1);
    EXPECT_EQ(ZR_array_ptr_get(array(), TWO_TO_32 + 5, nullptr), -1);
}

TEST_F(WidePointerArray, AdditionAppendsBehind2To32Elements)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10);
    slot(TWO_TO_32 + 5) = element(UNWRITTEN);
    EXPECT_EQ(add(array(), 77), TWO_TO_32 + 5);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(slot(TWO_TO_32 + 5), element(77));
    EXPECT_EQ(slot(5), nullptr);
    EXPECT_EQ(record.count, TWO_TO_32 + 6);
}

TEST_F(WidePointerArray, GrowthAsksForCapacityPlusIncrementIn64Bits)
{
    const struct {
        uint64_t capacity, increment, bytes;
    } cases[] = {
        {TWO_TO_32, 10, (TWO_TO_32 + 10) * SLOT_BYTES},
        {TWO_TO_32, TWO_TO_32, 2 * TWO_TO_32 * SLOT_BYTES},
        {10, TWO_TO_32, (TWO_TO_32 + 10) * SLOT_BYTES},
        {0x80000000, 0x80000000, TWO_TO_32 * SLOT_BYTES},
    };
    for (const auto &each : cases) {
        make(each.capacity, each.capacity, each.increment);
        heap.refuse_allocation(0);
        EXPECT_EQ(ZR_array_ptr_add(array(), element(1), nullptr), -1000);
        EXPECT_EQ(heap.take_steps(), steps{words("malloc ", each.bytes, " refused")});
        EXPECT_EQ(record.count, each.capacity);
        EXPECT_EQ(record.capacity, each.capacity);
        munmap(record.slots, record.capacity * SLOT_BYTES);
        record = {};
    }
}

TEST_F(WidePointerArray, RebuildAsksForTheWholeCapacityIn64Bits)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10, 1, ZR_compare_pointers);
    slot(0) = element(100);
    heap.refuse_allocation(0);
    EXPECT_EQ(ZR_array_ptr_add(array(), element(50), nullptr), 0);
    EXPECT_EQ(heap.take_steps(), steps{words("malloc ", (TWO_TO_32 + 10) * SLOT_BYTES, " refused")});
}

TEST_F(WidePointerArray, RemovalFillsAHoleFromBehind2To32Elements)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10);
    slot(3) = element(3);
    slot(TWO_TO_32 + 4) = element(99);
    EXPECT_EQ(remove_any(array(), 3), 1u);
    EXPECT_EQ(slot(3), element(99));
    EXPECT_EQ(slot(TWO_TO_32 + 4), nullptr);
    EXPECT_EQ(record.count, TWO_TO_32 + 4);

    slot(TWO_TO_32 + 3) = element(98);
    EXPECT_EQ(remove_any(array(), TWO_TO_32), 1u);
    EXPECT_EQ(slot(TWO_TO_32), element(98));
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(WidePointerArray, RemovalInOrderMovesElementsBehind2To32)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10);
    for (uint64_t i = 0; i < 5; ++i)
        slot(TWO_TO_32 + i) = element(10 + i);
    EXPECT_EQ(remove_in_order(array(), TWO_TO_32 + 1), 1u);
    EXPECT_EQ(slot(TWO_TO_32), element(10));
    EXPECT_EQ(slot(TWO_TO_32 + 1), element(12));
    EXPECT_EQ(slot(TWO_TO_32 + 3), element(14));
    EXPECT_EQ(slot(TWO_TO_32 + 4), nullptr);
    EXPECT_EQ(slot(1), nullptr);
}

TEST_F(WidePointerArray, RemovalBehindTheCountRemovesNothing)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 5, 10);
    EXPECT_EQ(remove_any(array(), TWO_TO_32 + 5), 0u);
    EXPECT_EQ(record.count, TWO_TO_32 + 5);
}

TEST_F(WidePointerArray, ShrinkAsksForASizeIn64Bits)
{
    make(3 * TWO_TO_32, TWO_TO_32 + 1, TWO_TO_32);
    slot(TWO_TO_32) = element(1);
    heap.refuse_all_allocations();
    EXPECT_EQ(remove_any(array(), TWO_TO_32), 1u);
    EXPECT_EQ(heap.take_steps(), steps{words("malloc ", TWO_TO_32 * SLOT_BYTES, " refused")});
    EXPECT_EQ(record.capacity, 3 * TWO_TO_32);

    record.count = TWO_TO_32 + 1;
    EXPECT_EQ(remove_any(array(), TWO_TO_32 + 1), 0u);
    EXPECT_EQ(heap.take_steps(), steps{words("malloc ", 2 * TWO_TO_32 * SLOT_BYTES, " refused")});
}

TEST_F(WidePointerArray, IncrementBeyond32BitsDoesNotPassForASmallOne)
{
    make(10, 3, TWO_TO_32 + 1);  // forged: no whole increment is free, though seven slots are
    slot(0) = element(1);
    EXPECT_EQ(remove_any(array(), 0), 1u);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(record.capacity, 10u);
}

// ---- Binary search counts in 32 bits, its upper bound too.

TEST_F(WidePointerArray, BinarySearchSeesTheCountModulo2To32)
{
    make(TWO_TO_32 + 10, TWO_TO_32 + 2, 10, 1, compare_recorded);
    slot(0) = element(10);
    slot(1) = element(20);
    EXPECT_EQ(search(array(), 20), 1u);
    EXPECT_EQ(search(array(), 30), UNWRITTEN);
    compared_pairs.clear();
    EXPECT_EQ(ZR_array_ptr_find(array(), element(30), nullptr), -1);
    EXPECT_EQ(compared_pairs, (pair_list{{30, 10}, {30, 20}}));
}

TEST_F(WidePointerArray, BinarySearchOf2To32ElementsStartsInTheMiddle)
{
    make(TWO_TO_32, TWO_TO_32, 10, 1, compare_recorded);
    slot(0x7FFFFFFF) = element(7);
    compared_pairs.clear();
    uint64_t index = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_index_get(array(), element(7), &index), 0);
    EXPECT_EQ(index, 0x7FFFFFFFu);
    EXPECT_EQ(compared_pairs, (pair_list{{7, 7}}));
}

namespace {

// The first three comparisons find the key above; the fourth finds it, whatever the elements are.
INT compare_until_the_fourth(LPVOID a, LPVOID b)
{
    compared_pairs.emplace_back(value_of(a), value_of(b));
    return compared_pairs.size() < 4 ? 1 : 0;
}

}  // namespace

TEST_F(WidePointerArray, BinarySearchAddsItsBoundsModulo2To32)
{
    make(0x90000000, 0x90000000, 1, 1, compare_until_the_fourth);
    constexpr uint64_t middles[] = {0x47FFFFFF, 0x6BFFFFFF, 0x7DFFFFFF, 0x06FFFFFF};
    for (uintptr_t i = 0; i < 4; ++i)
        slot(middles[i]) = element(i + 1);
    uint64_t index = UNWRITTEN;
    EXPECT_EQ(ZR_array_ptr_index_get(array(), element(100), &index), 0);
    EXPECT_EQ(index, middles[3]);
    EXPECT_EQ(compared_pairs, (pair_list{{100, 1}, {100, 2}, {100, 3}, {100, 4}}));
}
