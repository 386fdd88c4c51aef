// Freeing one block, and the empty-node rule: what goes when the last block leaves a node.

#include "memory/dt_types_memory_fixture.h"

#include <stdlib.h>

TEST_F(MemoryManager, FreeOfNullDoesNothing)
{
    EXPECT_EQ(release(UNKNOWN_TAG, nullptr), nullptr);
    fill(TAG, 1);
    const std::string before = image_of_table();
    EXPECT_EQ(release(TAG, nullptr), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of_table(), before);
}

TEST_F(MemoryManager, FreeReleasesTheBlockAndForgetsIt)
{
    fill(TAG, 3);
    LPVOID freed = block(2);
    EXPECT_EQ(release(TAG, freed), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"free block 2"});
    EXPECT_EQ(ZR_memm_flags(TAG, freed), 0u);
    EXPECT_EQ(release(TAG, freed), freed);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(ZR_memm_free_all(TAG), 2);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1", "free block 3"}));
}

TEST_F(MemoryManager, FreeLeavesAnAllZeroSlotBehind)
{
    allocate(TAG, 100);
    allocate(TAG, 200);
    EXPECT_EQ(release(TAG, block(1)), nullptr);
    const ZT_MEMM_NODE &node = table->buckets[TAG].first_node;
    EXPECT_EQ(node.count, 1u);
    EXPECT_EQ(node.slots[0].flags, 0u);
    EXPECT_EQ(node.slots[0].size, 0u);
    EXPECT_EQ(node.slots[0].block, nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, nullptr), 0u) << "null finds the vacated slot";
}

TEST_F(MemoryManager, FreeUnderAnotherTagReturnsTheBlockAndLeavesItRecorded)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    for (const uint64_t tag : {SECOND_TAG, UNKNOWN_TAG, OTHER_BUCKET_TAG}) {
        EXPECT_EQ(release(tag, block(1)), block(1));
        EXPECT_EQ(heap.take_steps(), steps{});
        EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 2u);
    }
}

TEST_F(MemoryManager, FreeOfAForeignPointerReturnsIt)
{
    fill(TAG, 14);
    int foreign = 0;
    EXPECT_EQ(release(TAG, &foreign), &foreign);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
}

// ---- The empty-node rule is the same for both ways to leave.

namespace {

enum class removal { FREE, DISASSOCIATE };

class EmptyNodeRule : public MemoryManager, public testing::WithParamInterface<removal> {
protected:
    // Take a block out, and release it; the bookkeeping that went with it, in order.
    steps released_with(uint64_t tag, unsigned number)
    {
        LPVOID leaving = block(number);
        steps calls;
        if (GetParam() == removal::DISASSOCIATE) {
            EXPECT_EQ(ZR_memm_disassociate(tag, leaving), nullptr);
            calls = heap.take_steps();
            free(leaving);
            heap.take_steps();
            return calls;
        }
        EXPECT_EQ(release(tag, leaving), nullptr);
        calls = heap.take_steps();
        const bool is_released_first = !calls.empty() && calls.front() == words("free block ", number);
        EXPECT_TRUE(is_released_first) << "block " << number << " was not released first";
        if (is_released_first)
            calls.erase(calls.begin());
        return calls;
    }

    // All bookkeeping that goes when blocks `first` to `last` leave one by one.
    steps released_with(uint64_t tag, unsigned first, unsigned last)
    {
        steps all;
        for (unsigned number = first; number <= last; ++number)
            for (const std::string &each : released_with(tag, number))
                all.push_back(words(each, " with block ", number));
        return all;
    }
};

INSTANTIATE_TEST_SUITE_P(WaysToLeave, EmptyNodeRule, testing::Values(removal::FREE, removal::DISASSOCIATE),
                         [](const testing::TestParamInfo<removal> &way) {
                             return std::string(way.param == removal::FREE ? "Free" : "Disassociate");
                         });

}  // namespace

TEST_P(EmptyNodeRule, NodeStaysWhileItHoldsABlock)
{
    fill(TAG, 16);
    EXPECT_EQ(released_with(TAG, 14, 15), steps{});
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..13", "free block 16", "free node 1"}));
}

TEST_P(EmptyNodeRule, HeapNodeGoesWithItsLastBlock)
{
    fill(TAG, 14);
    EXPECT_EQ(released_with(TAG, 14), steps{"free node 1"});
    EXPECT_EQ(ZR_memm_free_all(TAG), 13);
    EXPECT_EQ(heap.take_steps(), steps{"free block 1..13"});
}

TEST_P(EmptyNodeRule, NewestNodeLeavesTheChain)
{
    fill(TAG, 52);
    EXPECT_EQ(released_with(TAG, 40, 52), steps{"free node 3 with block 52"});
    EXPECT_EQ(ZR_memm_free_all(TAG), 39);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..13", "free block 27..39", "free node 2",
                                        "free block 14..26", "free node 1"}));
}

TEST_P(EmptyNodeRule, MiddleNodeLeavesTheChain)
{
    fill(TAG, 52);
    EXPECT_EQ(released_with(TAG, 27, 39), steps{"free node 2 with block 39"});
    EXPECT_EQ(ZR_memm_free_all(TAG), 39);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..13", "free block 40..52", "free node 3",
                                        "free block 14..26", "free node 1"}));
}

TEST_P(EmptyNodeRule, OldestNodeLeavesTheChain)
{
    fill(TAG, 52);
    EXPECT_EQ(released_with(TAG, 14, 26), steps{"free node 1 with block 26"});
    EXPECT_EQ(ZR_memm_free_all(TAG), 39);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1..13", "free block 40..52", "free node 3",
                                        "free block 27..39", "free node 2"}));
}

TEST_P(EmptyNodeRule, ChainStaysWholeInBothDirectionsAfterANodeLeft)
{
    // Backward links show when a node is taken out whose neighbour was taken out before.
    fill(TAG, 52);
    EXPECT_EQ(released_with(TAG, 27, 39), steps{"free node 2 with block 39"});
    EXPECT_EQ(released_with(TAG, 40, 52), steps{"free node 3 with block 52"});
    EXPECT_EQ(released_with(TAG, 14, 26), steps{"free node 1 with block 26"});
    EXPECT_EQ(ZR_memm_free_all(TAG), 13);
    EXPECT_EQ(heap.take_steps(), steps{"free block 1..13"});
}

TEST_P(EmptyNodeRule, RecordStaysWhenItsInlineNodeEmptiesBeforeAHeapNode)
{
    fill(TAG, 15);
    EXPECT_EQ(released_with(TAG, 1, 13), steps{});
    EXPECT_EQ(ZR_memm_flags(TAG, block(14)), 2u);
    EXPECT_EQ(ZR_memm_flags(TAG, block(15)), 2u);
    allocate(SECOND_TAG);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 16", "calloc 360 -> record 1"}))
        << "the table's record is still taken";

    EXPECT_EQ(released_with(TAG, 14, 15), steps{"free node 1 with block 15"});
    allocate(THIRD_TAG);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 17", "calloc 360 -> record 2"})) << "and even now";
    EXPECT_EQ(ZR_memm_free_all(TAG), 0);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_P(EmptyNodeRule, EmptyRecordGoesWithTheNextBlockThatLeavesItsInlineNode)
{
    fill(SECOND_TAG, 1);  // block 1, so that the record is one on the heap
    fill(TAG, 14);
    EXPECT_EQ(released_with(TAG, 2, 15), steps{"free node 1 with block 15"});
    fill(TAG, 1);
    EXPECT_EQ(released_with(TAG, 16), steps{"free record 1"});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_P(EmptyNodeRule, EmptyHeapRecordGoesWithItsTag)
{
    fill(SECOND_TAG, 1);
    fill(TAG, 14);
    EXPECT_EQ(released_with(TAG, 2, 15), steps{"free node 1 with block 15"});
    EXPECT_EQ(ZR_memm_free_all(TAG), 0);
    EXPECT_EQ(heap.take_steps(), steps{"free record 1"});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_P(EmptyNodeRule, EmptyRecordGoesInACleanup)
{
    fill(SECOND_TAG, 1);
    fill(TAG, 14);
    EXPECT_EQ(released_with(TAG, 2, 15), steps{"free node 1 with block 15"});
    EXPECT_EQ(ZR_memm_cleanup(), 1);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 1", "free record 1"}));
}

TEST_P(EmptyNodeRule, InlineNodeIsUsedAgainAfterItEmptied)
{
    fill(TAG, 15);
    EXPECT_EQ(released_with(TAG, 1, 13), steps{});
    fill(TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 3);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 16", "free block 14..15", "free node 1"}));
}

TEST_P(EmptyNodeRule, TableRecordTurnsVacantWithItsLastBlock)
{
    const std::string vacant = image_of_table();
    fill(TAG, 3);
    EXPECT_EQ(released_with(TAG, 1, 3), steps{});
    EXPECT_EQ(image_of_table(), vacant);
    allocate(SECOND_TAG);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 4"});
}

TEST_P(EmptyNodeRule, NewestRecordLeavesTheChain)
{
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, FOURTH_TAG})
        fill(tag, 1);
    EXPECT_EQ(released_with(FOURTH_TAG, 4), steps{"free record 3"});
    EXPECT_EQ(ZR_memm_cleanup(), 3);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1", "free block 3", "free record 2", "free block 2", "free record 1"}));
}

TEST_P(EmptyNodeRule, MiddleRecordLeavesTheChain)
{
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, FOURTH_TAG})
        fill(tag, 1);
    EXPECT_EQ(released_with(THIRD_TAG, 3), steps{"free record 2"});
    EXPECT_EQ(ZR_memm_cleanup(), 3);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1", "free block 4", "free record 3", "free block 2", "free record 1"}));
}

TEST_P(EmptyNodeRule, OldestRecordLeavesTheChain)
{
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, FOURTH_TAG})
        fill(tag, 1);
    EXPECT_EQ(released_with(SECOND_TAG, 2), steps{"free record 1"});
    EXPECT_EQ(ZR_memm_cleanup(), 3);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1", "free block 4", "free record 3", "free block 3", "free record 2"}));
}

TEST_P(EmptyNodeRule, ChainOfRecordsStaysWholeInBothDirections)
{
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, FOURTH_TAG})
        fill(tag, 1);
    EXPECT_EQ(released_with(THIRD_TAG, 3), steps{"free record 2"});
    EXPECT_EQ(released_with(FOURTH_TAG, 4), steps{"free record 3"});
    EXPECT_EQ(released_with(SECOND_TAG, 2), steps{"free record 1"});
    EXPECT_EQ(ZR_memm_cleanup(), 1);
}
