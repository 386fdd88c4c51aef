// Associating blocks from elsewhere, disassociating blocks, and what a disassociated null pointer does.

#include "memory/dt_types_memory_fixture.h"

#include <stdlib.h>

TEST_F(MemoryManager, AssociateOfNullRecordsNothing)
{
    const std::string before = image_of_table();
    EXPECT_EQ(ZR_memm_associate(TAG, nullptr, 10), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of_table(), before);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(MemoryManager, AssociateTakesABlockOver)
{
    LPVOID own = malloc(24);
    heap.take_steps();
    EXPECT_EQ(ZR_memm_associate(TAG, own, 24), own);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(ZR_memm_flags(TAG, own), 2u);
    EXPECT_EQ(release(TAG, own), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"free block 1"});
    EXPECT_EQ(ZR_memm_flags(TAG, own), 0u);
}

TEST_F(MemoryManager, AssociateRecordsAll64BitsOfTheSize)
{
    constexpr uint64_t SIZE = 0xFEDCBA9876543210;
    EXPECT_NE(ZR_memm_associate(TAG, malloc(8), SIZE), nullptr);
    EXPECT_EQ(table->buckets[TAG].first_node.slots[0].size, SIZE);
}

TEST_F(MemoryManager, AssociatedBlocksGoWithTheirTag)
{
    LPVOID first = malloc(1);
    LPVOID second = calloc(2, 3);
    fill(TAG, 1);
    ZR_memm_associate(TAG, first, 1);
    ZR_memm_associate(TAG, second, 6);
    EXPECT_EQ(ZR_memm_free_all(TAG), 3);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 3", "free block 1..2"}));
}

TEST_F(MemoryManager, AssociateLeavesTheBlockToItsCallerWhenTheRecordIsRefused)
{
    LPVOID own = malloc(8);
    fill(TAG, 1);
    const std::string before = image_of_table();
    heap.refuse_allocation(0);
    EXPECT_EQ(ZR_memm_associate(SECOND_TAG, own, 8), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"calloc 360 refused"});
    EXPECT_EQ(image_of_table(), before);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);

    EXPECT_EQ(ZR_memm_associate(SECOND_TAG, own, 8), own);
    EXPECT_EQ(heap.take_steps(), steps{"calloc 360 -> record 1"});
}

TEST_F(MemoryManager, AssociateLeavesTheBlockToItsCallerWhenTheNodeIsRefused)
{
    LPVOID own = malloc(8);
    fill(TAG, 13);
    const std::string before = image_of_table();
    heap.refuse_allocation(0);
    EXPECT_EQ(ZR_memm_associate(TAG, own, 8), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"calloc 336 refused"});
    EXPECT_EQ(image_of_table(), before);
    EXPECT_EQ(ZR_memm_flags(TAG, own), 0u);

    EXPECT_EQ(ZR_memm_associate(TAG, own, 8), own);
    EXPECT_EQ(heap.take_steps(), steps{"calloc 336 -> node 1"});
}

TEST_F(MemoryManager, BlockAssociatedTwiceIsRecordedTwice)
{
    LPVOID own = malloc(8);
    ZR_memm_associate(TAG, own, 8);
    ZR_memm_associate(TAG, own, 8);
    ZR_memm_associate(SECOND_TAG, own, 8);
    EXPECT_EQ(ZR_memm_disassociate(TAG, own), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, own), 2u);
    EXPECT_EQ(ZR_memm_disassociate(TAG, own), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, own), 0u);
    EXPECT_EQ(ZR_memm_disassociate(TAG, own), own);
    EXPECT_EQ(ZR_memm_flags(SECOND_TAG, own), 2u);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1);
}

TEST_F(MemoryManager, DisassociateGivesTheBlockBackUntouched)
{
    LPVOID given_back = allocate(TAG, 100);
    allocate(TAG);
    fill_with_byte(given_back, 0x3C, 100);
    heap.take_steps();
    EXPECT_EQ(ZR_memm_disassociate(TAG, given_back), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(ZR_memm_flags(TAG, given_back), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    EXPECT_TRUE(is_filled_with_byte(given_back, 0x3C, 100));
    free(given_back);
}

TEST_F(MemoryManager, DisassociateOfAnUnrecordedBlockReturnsIt)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    const std::string before = image_of_table();
    for (const uint64_t tag : {SECOND_TAG, UNKNOWN_TAG, OTHER_BUCKET_TAG})
        EXPECT_EQ(ZR_memm_disassociate(tag, block(1)), block(1));
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of_table(), before);
}

// ---- A null block is not refused: it matches the first vacant slot, and the count of that slot's node
// falls.

TEST_F(MemoryManager, DisassociateOfNullUnderATagWithoutVacancyDoesNothing)
{
    EXPECT_EQ(ZR_memm_disassociate(UNKNOWN_TAG, nullptr), nullptr);
    EXPECT_EQ(ZR_memm_free_all(UNKNOWN_TAG), -1);

    fill(TAG, 13);
    const std::string before = image_of_table();
    EXPECT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of_table(), before);
}

TEST_F(MemoryManager, DisassociateOfNullTakesAnOccupiedBlocksPlaceInTheCount)
{
    fill(TAG, 2);
    LPVOID kept = block(2);
    EXPECT_EQ(falsify_count(TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(table->buckets[TAG].first_node.count, 1u);
    EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 2u);
    EXPECT_EQ(ZR_memm_flags(TAG, kept), 2u);

    // The first block to leave now empties the node, and takes the record along.
    EXPECT_EQ(release(TAG, block(1)), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, kept), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    free(kept);
}

TEST_F(MemoryManager, DisassociateOfNullUnderATagOfOneBlockForgetsTheBlock)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    EXPECT_EQ(falsify_count(SECOND_TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"free record 1"});
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
    free(block(2));
}

TEST_F(MemoryManager, DisassociateOfNullForgetsTheOnlyBlockOfAHeapNode)
{
    fill(TAG, 14);
    EXPECT_EQ(falsify_count(TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"free node 1"});
    EXPECT_EQ(ZR_memm_flags(TAG, block(14)), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 13);
    free(block(14));
}

TEST_F(MemoryManager, InlineNodeIsClearedWhenItsCountRunsOutThoughAHeapNodeFollows)
{
    fill(TAG, 14);
    for (unsigned number = 1; number <= 11; ++number)
        release(TAG, block(number));
    falsify_count(TAG);
    release(TAG, block(12));  // the count reaches 0 with block 13 still there
    EXPECT_EQ(ZR_memm_flags(TAG, block(13)), 0u);
    heap.take_steps();
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 14", "free node 1"}));
    free(block(13));
}

TEST_F(MemoryManager, NodeThatPromisesAVacancyItDoesNotHaveIsPassedOver)
{
    fill(TAG, 12);
    falsify_count(TAG);
    allocate_blocks(TAG, 2);  // the first takes the last slot, though the node counts 12 blocks only
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 13..14", "calloc 336 -> node 1"}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..14", "free node 1"}));
}

TEST_F(MemoryManager, CountOfAnEmptyNodeWrapsAndTheNodeIsSkippedFromThenOn)
{
    fill(TAG, 14);
    for (unsigned number = 1; number <= 13; ++number)
        release(TAG, block(number));
    heap.take_steps();
    EXPECT_EQ(falsify_count(TAG), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(table->buckets[TAG].first_node.count, UINT64_MAX);

    // The inline node has 13 vacant slots, but counts too many blocks to be looked at.
    allocate_blocks(TAG, 13);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 15..27", "calloc 336 -> node 2"}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 27", "free node 2", "free block 14..26", "free node 1"}));
}

TEST_F(MemoryManager, LookupsDoNotRelyOnTheCount)
{
    fill(TAG, 14);
    for (unsigned number = 2; number <= 13; ++number)
        release(TAG, block(number));
    falsify_count(TAG);  // the inline node now counts 0, is cleared and forgets block 1
    EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 0u);
    falsify_count(TAG);  // and now counts 2^64 - 1
    EXPECT_EQ(ZR_memm_flags(TAG, block(14)), 2u);
    EXPECT_EQ(release(TAG, block(14)), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), 0);
    free(block(1));
}

TEST_F(MemoryManager, ClaimingARecordResetsAFalsifiedCount)
{
    fill(TAG, 14);
    for (unsigned number = 1; number <= 13; ++number)
        release(TAG, block(number));
    falsify_count(TAG);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    heap.take_steps();
    allocate_blocks(SECOND_TAG, 13);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 15..27"});
}
