// Releasing a whole tag or everything, and asking for a block's flags.

#include "memory/dt_types_memory_fixture.h"

#include <stdlib.h>

TEST_F(MemoryManager, FreeAllOfAnUnknownTagGivesMinus1)
{
    fill(TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(UNKNOWN_TAG), -1);
    EXPECT_EQ(ZR_memm_free_all(OTHER_BUCKET_TAG), -1);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(MemoryManager, FreeAllReleasesThatTagAndNoOther)
{
    fill(TAG, 1);
    fill(OTHER_BUCKET_TAG, 1);
    fill(SECOND_TAG, 1000);
    fill(THIRD_TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1000);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
    EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 2u);
    EXPECT_EQ(ZR_memm_flags(OTHER_BUCKET_TAG, block(2)), 2u);
    EXPECT_EQ(ZR_memm_flags(THIRD_TAG, block(1003)), 2u);
    EXPECT_EQ(heap.unreleased(), (steps{"block 1..2", "block 1003", "record 2"}));
}

TEST_F(MemoryManager, FreeAllReleasesAHeapRecordLast)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 15);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 15);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 2..16", "free node 1", "free record 1"}));
}

TEST_F(MemoryManager, FreeAllTakesARecordOutOfTheChainWhereverItStands)
{
    const struct {
        uint64_t released;
        steps left;
    } cases[] = {
        {SECOND_TAG, {"free block 1", "free block 4", "free record 3", "free block 3", "free record 2"}},
        {THIRD_TAG, {"free block 1", "free block 4", "free record 3", "free block 2", "free record 1"}},
        {FOURTH_TAG, {"free block 1", "free block 3", "free record 2", "free block 2", "free record 1"}},
    };
    for (const auto &each : cases) {
        heap.start_over();
        for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, FOURTH_TAG})
            fill(tag, 1);
        EXPECT_EQ(ZR_memm_free_all(each.released), 1);
        EXPECT_EQ(violations_in(*table), std::vector<std::string>{});
        heap.take_steps();
        EXPECT_EQ(ZR_memm_cleanup(), 3);
        EXPECT_EQ(heap.take_steps(), each.left) << "without tag " << each.released;
    }
}

TEST_F(MemoryManager, FreeAllVacatesTheTablesRecordAndKeepsItsChain)
{
    fill(TAG, 30);
    fill(SECOND_TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 30);
    EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block(31)), 2u);
    heap.take_steps();
    allocate_blocks(THIRD_TAG, 13);  // claims it again, with an inline node as good as new
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 32..44"});
    EXPECT_EQ(ZR_memm_free_all(THIRD_TAG), 13);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1);
}

// ---- Flags

TEST_F(MemoryManager, FlagsTellWhetherABlockIsRecordedUnderATag)
{
    EXPECT_EQ(ZR_MEMM_FLAG_RECORDED, 2u);
    fill(TAG, 30);
    fill(SECOND_TAG, 1);
    for (unsigned number = 1; number <= 30; ++number) {
        EXPECT_EQ(ZR_memm_flags(TAG, block(number)), 2u);
        EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block(number)), 0u);
        EXPECT_EQ(ZR_memm_flags(UNKNOWN_TAG, block(number)), 0u);
    }
    EXPECT_EQ(ZR_memm_flags(TAG, block(31)), 0u);
    EXPECT_EQ(ZR_memm_flags(TAG, table), 0u);
    EXPECT_EQ(ZR_memm_flags(TAG, static_cast<char *>(block(1)) + 1), 0u);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(MemoryManager, FlagsAreTheSlotsWholeWord)
{
    fill(TAG, 1);
    uint64_t &flags = table->buckets[TAG].first_node.slots[0].flags;
    flags = 0xFEDCBA9876543210;
    EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 0xFEDCBA9876543210);
    flags = ZR_MEMM_FLAG_RECORDED;
}

TEST_F(MemoryManager, FlagsOfNullAre0WithAndWithoutAVacantSlot)
{
    EXPECT_EQ(ZR_memm_flags(UNKNOWN_TAG, nullptr), 0u);
    fill(TAG, 12);
    EXPECT_EQ(ZR_memm_flags(TAG, nullptr), 0u);
    fill(TAG, 1);
    EXPECT_EQ(ZR_memm_flags(TAG, nullptr), 0u);
}

// ---- Cleanup

TEST_F(MemoryManager, CleanupReleasesBucketAfterBucketRecordAfterRecord)
{
    fill(31, 2);           // block 1..2
    fill(TAG, 28);         // block 3..30, node 1..2
    fill(SECOND_TAG, 14);  // block 31..44, node 3, record 1
    fill(32, 1);           // block 45, in bucket 0
    fill(THIRD_TAG, 1);    // block 46, record 2
    EXPECT_EQ(ZR_memm_cleanup(), 46);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 45", "free block 3..15", "free block 29..30", "free node 2",
                     "free block 16..28", "free node 1", "free block 46", "free record 2",
                     "free block 31..44", "free node 3", "free record 1", "free block 1..2"}));
}

TEST_F(MemoryManager, SecondCleanupInARowReleasesNothing)
{
    fill(TAG, 20);
    fill(SECOND_TAG, 20);
    EXPECT_EQ(ZR_memm_cleanup(), 40);
    heap.take_steps();
    EXPECT_EQ(ZR_memm_cleanup(), 0);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(MemoryManager, CleanupReachesRecordsBehindAVacantOne)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    heap.take_steps();
    EXPECT_EQ(ZR_memm_cleanup(), 1);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 2", "free record 1"}));
}

TEST_F(MemoryManager, TableIsAsAtLoadAfterACleanup)
{
    const std::string empty = image_of_table();
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, OTHER_BUCKET_TAG})
        fill(tag, 14);
    EXPECT_EQ(ZR_memm_cleanup(), 56);
    EXPECT_EQ(image_of_table(), empty);
    for (const ZT_MEMM_TAG_RECORD &record : table->buckets) {
        const ZT_MEMM_TAG_RECORD zero = {};
        EXPECT_EQ(memcmp(&record, &zero, sizeof zero), 0);
    }
}

TEST_F(MemoryManager, NothingButRecordingABlockNeedsTheHeap)
{
    fill(TAG, 30);
    fill(SECOND_TAG, 30);
    fill(THIRD_TAG, 30);
    LPVOID given_back = block(30);
    heap.refuse_all_allocations();
    const unsigned before = heap.allocation_count();
    EXPECT_EQ(release(TAG, block(1)), nullptr);
    EXPECT_EQ(ZR_memm_disassociate(TAG, given_back), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, block(2)), 2u);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 30);
    EXPECT_EQ(ZR_memm_cleanup(), 58);
    EXPECT_EQ(heap.allocation_count(), before);
    free(given_back);
}
