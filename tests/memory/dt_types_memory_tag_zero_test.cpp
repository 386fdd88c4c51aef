// Tag 0, which looks like the mark of a vacant record. Tags 32 and 64 share its bucket.

#include "memory/dt_types_memory_fixture.h"

#include <stdlib.h>

TEST_F(MemoryManager, Tag0UsesTheVacantRecordOfBucket0WithoutClaimingIt)
{
    allocate_blocks(0, 14);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 1..14", "calloc 336 -> node 1"}));
    EXPECT_EQ(table->buckets[0].tag, 0u);
    for (unsigned number = 1; number <= 14; ++number)
        EXPECT_EQ(ZR_memm_flags(0, block(number)), 2u);
    EXPECT_EQ(ZR_memm_free_all(0), 14);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..14", "free node 1"}));
}

TEST_F(MemoryManager, VacantRecordOfBucket0PassesForTag0s)
{
    EXPECT_EQ(ZR_memm_free_all(0), 0);  // not -1
    LPVOID made = reallocate(0, nullptr, 8);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 1"});
    EXPECT_EQ(ZR_memm_flags(0, made), 2u);
    EXPECT_EQ(release(0, made), nullptr);
    EXPECT_EQ(ZR_memm_flags(0, made), 0u);

    fill(32, 1);
    EXPECT_EQ(ZR_memm_free_all(0), -1);  // claimed: now tag 0 is a tag without record
}

TEST_F(MemoryManager, CleanupReleasesBlocksOfTag0)
{
    fill(0, 15);
    EXPECT_EQ(ZR_memm_cleanup(), 15);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..15", "free node 1"}));
}

TEST_F(MemoryManager, ClaimingTheRecordOfBucket0DiscardsTag0sBookkeeping)
{
    fill(0, 15);
    fill(32, 1);
    for (unsigned number = 1; number <= 15; ++number) {
        EXPECT_EQ(ZR_memm_flags(0, block(number)), 0u);
        EXPECT_EQ(release(0, block(number)), block(number));
    }
    EXPECT_EQ(ZR_memm_free_all(0), -1);

    allocate_blocks(32, 12);  // the inline node was zeroed: it takes 13 blocks, and no node follows
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 17..28"});
    EXPECT_EQ(ZR_memm_cleanup(), 13);
    EXPECT_EQ(heap.take_steps(), steps{"free block 16..28"});

    EXPECT_EQ(heap.unreleased(), (steps{"block 1..14", "node 1", "block 15"}));
    for (unsigned number = 1; number <= 15; ++number)
        free(block(number));
    free(heap.address_of("node 1"));
}

TEST_F(MemoryManager, RecordOfTag0OnTheHeapIsHiddenByAVacantTableRecord)
{
    fill(32, 1);
    allocate_blocks(0, 2);
    EXPECT_EQ(heap.take_steps(),
              (steps{"malloc 8 -> block 2", "calloc 360 -> record 1", "malloc 8 -> block 3"}));
    EXPECT_EQ(ZR_memm_flags(0, block(2)), 2u);

    EXPECT_EQ(release(32, block(1)), nullptr);
    EXPECT_EQ(ZR_memm_flags(0, block(2)), 0u);
    EXPECT_EQ(release(0, block(2)), block(2));
    EXPECT_EQ(ZR_memm_free_all(0), 0);
    heap.take_steps();
    allocate(0);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 4"}) << "recorded in the vacant record instead";
    EXPECT_EQ(ZR_memm_free_all(0), 1);

    fill(64, 1);  // claims the table's record, and lookups pass it again
    EXPECT_EQ(ZR_memm_flags(0, block(2)), 2u);
    EXPECT_EQ(ZR_memm_free_all(0), 2);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 2..3", "free record 1"}));
}

TEST_F(MemoryManager, CleanupReleasesAHiddenRecordOfTag0)
{
    fill(32, 1);
    fill(0, 2);
    release(32, block(1));
    heap.take_steps();
    EXPECT_EQ(ZR_memm_cleanup(), 2);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 2..3", "free record 1"}));
}

TEST_F(MemoryManager, DisassociateOfNullUnderTag0FalsifiesTheVacantRecordUntilItIsClaimed)
{
    EXPECT_EQ(falsify_count(0), nullptr);
    EXPECT_EQ(table->buckets[0].first_node.count, UINT64_MAX);
    allocate(0);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 1", "calloc 336 -> node 1"}));
    allocate_blocks(32, 13);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 2..14"});
    free(block(1));
    free(heap.address_of("node 1"));
}
