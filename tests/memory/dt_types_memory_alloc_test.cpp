// Allocating: the block, the slot that records it, and what happens when the heap refuses.

#include "memory/dt_types_memory_fixture.h"

#include <errno.h>

TEST_F(MemoryManager, AllocAsksTheHeapForTheBlockAndNothingElse)
{
    for (const uint64_t size : {0, 1, 7, 8, 9, 4096, 100000}) {
        heap.start_over();
        LPVOID made = allocate(TAG, size);
        EXPECT_EQ(heap.take_steps(), steps{words("malloc ", size, " -> block 1")});
        EXPECT_EQ(made, block(1));
        EXPECT_EQ(ZR_memm_flags(TAG, made), 2u);
        EXPECT_EQ(release(TAG, made), nullptr);
    }
}

TEST_F(MemoryManager, AllocFillsASlotWithFlagsSizeAndBlock)
{
    LPVOID made = allocate(TAG, 100);
    const ZT_MEMM_NODE &node = table->buckets[TAG].first_node;
    EXPECT_EQ(node.count, 1u);
    EXPECT_EQ(node.slots[0].flags, 2u);
    EXPECT_EQ(node.slots[0].size, 100u);
    EXPECT_EQ(node.slots[0].block, made);
    EXPECT_EQ(table->buckets[TAG].tag, TAG);
}

TEST_F(MemoryManager, AllocPassesAll64BitsOfTheSizeOn)
{
    heap.refuse_all_allocations();
    for (const uint64_t size : {UINT64_MAX, UINT64_C(1) << 63, (UINT64_C(1) << 32) + 1, UINT64_C(1) << 32}) {
        EXPECT_EQ(allocate(TAG, size), nullptr);
        EXPECT_EQ(heap.take_steps(), steps{words("malloc ", size, " refused")});
    }
}

TEST_F(MemoryManager, AllocRecordsNothingWhenTheHeapRefusesTheBlock)
{
    const std::string before = image_of_table();
    heap.refuse_allocation(0);
    EXPECT_EQ(allocate(TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 refused"});
    EXPECT_EQ(image_of_table(), before);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(MemoryManager, CallSiteMayBeMissing)
{
    LPVOID made = ZR_memm_alloc(TAG, 8, nullptr, -1);
    ASSERT_NE(made, nullptr);
    LPVOID moved = ZR_memm_realloc(TAG, made, 16, nullptr, 0);
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(ZR_memm_free(TAG, moved, nullptr, 0x7fffffff), nullptr);
}

// ---- Nodes and slots

TEST_F(MemoryManager, ThirteenBlocksNeedNoNodeAndEveryThirteenAfterThemOne)
{
    allocate_blocks(TAG, 40);
    EXPECT_EQ(heap.take_steps(),
              (steps{"malloc 8 -> block 1..14", "calloc 336 -> node 1", "malloc 8 -> block 15..27",
                     "calloc 336 -> node 2", "malloc 8 -> block 28..40", "calloc 336 -> node 3"}));
}

TEST_F(MemoryManager, FourteenthBlockStartsANodeAndTheFifteenthFollowsInIt)
{
    fill(TAG, 15);
    EXPECT_EQ(ZR_memm_free_all(TAG), 15);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..15", "free node 1"}));
}

TEST_F(MemoryManager, NewNodesAreLinkedInSecondPlace)
{
    fill(TAG, 13 + 13 + 13 + 2);
    EXPECT_EQ(ZR_memm_free_all(TAG), 41);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1..13", "free block 40..41", "free node 3", "free block 27..39",
                     "free node 2", "free block 14..26", "free node 1"}));
}

TEST_F(MemoryManager, VacatedSlotsAreTakenAgainLowestFirst)
{
    fill(TAG, 5);
    release(TAG, block(4));
    release(TAG, block(2));
    fill(TAG, 2);
    EXPECT_EQ(ZR_memm_free_all(TAG), 5);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1", "free block 6", "free block 3", "free block 7", "free block 5"}));
}

TEST_F(MemoryManager, VacantSlotsAreSoughtInTheInlineNodeThenInTheNewestThenInOlderOnes)
{
    fill(TAG, 39);
    for (const unsigned vacated : {21, 31, 8})  // in node 1, node 2 and the inline node
        release(TAG, block(vacated));
    fill(TAG, 3);
    EXPECT_EQ(ZR_memm_free_all(TAG), 39);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1..7", "free block 40", "free block 9..13",                    //
                     "free block 27..30", "free block 41", "free block 32..39", "free node 2",  //
                     "free block 14..20", "free block 42", "free block 22..26", "free node 1"}));
}

// ---- Refusals

TEST_F(MemoryManager, AllocReleasesItsBlockWhenTheRecordIsRefused)
{
    fill(TAG, 1);
    const std::string before = image_of_table();
    heap.refuse_allocation(1);
    EXPECT_EQ(allocate(SECOND_TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 2", "calloc 360 refused", "free block 2"}));
    EXPECT_EQ(image_of_table(), before);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
}

TEST_F(MemoryManager, AllocReleasesItsBlockWhenTheNodeIsRefused)
{
    fill(TAG, 13);
    const std::string before = image_of_table();
    heap.refuse_allocation(1);
    EXPECT_EQ(allocate(TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 14", "calloc 336 refused", "free block 14"}));
    EXPECT_EQ(image_of_table(), before);
    EXPECT_EQ(ZR_memm_free_all(TAG), 13);
    EXPECT_EQ(heap.take_steps(), steps{"free block 1..13"});
}

TEST_F(MemoryManager, AllocSucceedsOnceNothingIsRefusedAnyMore)
{
    fill(TAG, 13);
    heap.refuse_allocation(1);
    EXPECT_EQ(allocate(TAG), nullptr);
    EXPECT_NE(allocate(TAG), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
}

// ---- errno

TEST_F(MemoryManager, ErrnoIsLeftAloneByWhatSucceeds)
{
    LPVOID made = allocate(TAG);
    const auto expect_untouched = [](auto operation) {
        errno = EDOM;
        operation();
        EXPECT_EQ(errno, EDOM);
    };
    expect_untouched([] { allocate(TAG); });
    expect_untouched([&] { made = reallocate(TAG, made, 16); });
    expect_untouched([&] { EXPECT_EQ(ZR_memm_flags(TAG, made), 2u); });
    expect_untouched([&] { EXPECT_EQ(release(SECOND_TAG, made), made); });
    expect_untouched([&] { EXPECT_EQ(release(TAG, made), nullptr); });
    expect_untouched([] { EXPECT_EQ(ZR_memm_free_all(UNKNOWN_TAG), -1); });
    expect_untouched([] { EXPECT_EQ(ZR_memm_cleanup(), 1); });
}

TEST_F(MemoryManager, ErrnoStaysAsARefusingHeapSetIt)
{
    fill(TAG, 13);
    LPVOID own = block(1);
    for (const unsigned refused : {0, 1}) {
        heap.refuse_allocation(refused);
        errno = 0;
        EXPECT_EQ(allocate(TAG), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }
    heap.refuse_allocation(0);
    errno = 0;
    EXPECT_EQ(reallocate(TAG, own, 16), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}
