// Moving a block to a new one of another size.

#include "memory/dt_types_memory_fixture.h"

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/guarded_bytes.h"
#include "support/sanitizers.h"

#include <signal.h>
#include <stdlib.h>

TEST_F(MemoryManager, ReallocOfAnUnrecordedBlockDoesNothing)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    const std::string before = image_of_table();
    for (const uint64_t tag : {SECOND_TAG, UNKNOWN_TAG, OTHER_BUCKET_TAG})
        EXPECT_EQ(reallocate(tag, block(1), 100), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of_table(), before);
}

TEST_F(MemoryManager, ReallocMovesToANewBlockWithTheSmallerSizesContent)
{
    for (const uint64_t old_size : {1, 16, 100}) {
        for (const uint64_t new_size : {1, 15, 16, 17, 100, 5000}) {
            heap.start_over();
            fill_with_byte(allocate(TAG, old_size), 0x77, old_size);
            heap.take_steps();
            LPVOID moved = reallocate(TAG, block(1), new_size);
            EXPECT_EQ(heap.take_steps(), (steps{words("malloc ", new_size, " -> block 2"), "free block 1"}));
            EXPECT_EQ(moved, block(2));
            EXPECT_EQ(ZR_memm_flags(TAG, moved), 2u);
            EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 0u);
            EXPECT_TRUE(is_filled_with_byte(moved, 0x77, std::min(old_size, new_size)));
            EXPECT_EQ(ZR_memm_free_all(TAG), 1);
        }
    }
}

TEST_F(MemoryManager, ReallocToSize0AsksTheHeapFor0BytesAndCopiesNothing)
{
    LPVOID moved = reallocate(TAG, allocate(TAG, 50), 0);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 50 -> block 1", "malloc 0 -> block 2", "free block 1"}));
    EXPECT_EQ(ZR_memm_flags(TAG, moved), 2u);

    // Recorded with size 0: growing it again copies nothing, which would be a read beyond its end.
    reallocate(TAG, moved, 50);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 50 -> block 3", "free block 2"}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(MemoryManager, ReallocCopiesTheRecordedSizeOfAnAssociatedBlock)
{
    LPVOID own = malloc(8);
    fill_with_byte(own, 0x11, 8);
    ZR_memm_associate(TAG, own, 8);
    LPVOID moved = reallocate(TAG, own, 1000);
    ASSERT_NE(moved, nullptr);
    EXPECT_TRUE(is_filled_with_byte(moved, 0x11, 8));
    fill_with_byte(moved, 0x22, 1000);
    moved = reallocate(TAG, moved, 2000);  // recorded with its new size
    ASSERT_NE(moved, nullptr);
    EXPECT_TRUE(is_filled_with_byte(moved, 0x22, 1000));
}

TEST_F(MemoryManager, ReallocComparesSizesBeyond32Bits)
{
    // Recorded as 2^32 + 1 bytes, so the 64 asked for are the smaller size.
    LPVOID own = malloc(100);
    fill_with_byte(own, 0x33, 100);
    ZR_memm_associate(TAG, own, (UINT64_C(1) << 32) + 1);
    LPVOID moved = reallocate(TAG, own, 64);
    ASSERT_NE(moved, nullptr);
    EXPECT_TRUE(is_filled_with_byte(moved, 0x33, 64));
    EXPECT_EQ(table->buckets[TAG].first_node.slots[1].size, 64u);
}

TEST_F(MemoryManager, ReallocCopiesAll64BitsOfTheSmallerSize)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    // Of 2^32 + 16 bytes 16 can be read: the copy of all of them runs off their end.
    constexpr uint64_t SIZE = (UINT64_C(1) << 32) + 16;
    LPVOID as_large = malloc(SIZE);
    free(as_large);
    if (as_large == nullptr)
        GTEST_SKIP() << "the heap has no 4 GiB";
    guarded_bytes readable(16);
    const child_result child = run_in_child([&] {
        ZR_memm_associate(TAG, readable.data(), SIZE);
        reallocate(TAG, readable.data(), SIZE);
    });
    if (BUILT_FOR_ADDRESS_SANITIZER) {
        EXPECT_NE(child.err.find(words("READ of size ", SIZE)), std::string::npos) << child.describe();
    } else {
        EXPECT_FALSE(child.has_exited) << child.describe();
        EXPECT_EQ(child.status, SIGSEGV) << child.describe();
    }
}

TEST_F(MemoryManager, ReallocPassesAll64BitsOfTheSizeOn)
{
    for (const uint64_t size : {UINT64_MAX, UINT64_C(1) << 32, (UINT64_C(1) << 32) + 8}) {
        heap.start_over();
        fill(TAG, 1);
        heap.refuse_allocation(0);
        EXPECT_EQ(reallocate(TAG, block(1), size), nullptr);
        EXPECT_EQ(heap.take_steps(), (steps{words("malloc ", size, " refused"), "free block 1"}));
    }
}

TEST_F(MemoryManager, ReallocGivesTheNewBlockASlotBeforeTheOldOneIsCleared)
{
    fill(TAG, 3);
    reallocate(TAG, block(1), 16);
    fill(TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 4);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 5", "free block 2..4"}));
}

TEST_F(MemoryManager, ReallocUnderAFullTagNeedsANode)
{
    fill(TAG, 13);
    reallocate(TAG, block(5), 16);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 16 -> block 14", "calloc 336 -> node 1", "free block 5"}));
    fill(TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1..4", "free block 15", "free block 6..14", "free node 1"}));
}

TEST_F(MemoryManager, ReallocReleasesANodeThatItEmpties)
{
    fill(TAG, 14);
    release(TAG, block(1));
    heap.take_steps();
    reallocate(TAG, block(14), 16);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 16 -> block 15", "free block 14", "free node 1"}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 13);
    EXPECT_EQ(heap.take_steps(), (steps{"free block 15", "free block 2..13"}));
}

// ---- Null

TEST_F(MemoryManager, ReallocOfNullActsAsAnAllocationWhereATagHasAVacantSlot)
{
    fill(TAG, 1);
    LPVOID made = reallocate(TAG, nullptr, 64);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 64 -> block 2"});
    EXPECT_EQ(made, block(2));
    EXPECT_EQ(ZR_memm_free_all(TAG), 2);
    EXPECT_EQ(heap.take_steps(), steps{"free block 1..2"});
}

TEST_F(MemoryManager, ReallocOfNullCopiesNothingThoughItsSlotIsTheNewBlocks)
{
    // The only vacant slot: what was recorded there counts, 0 bytes, not the 64 that are recorded there now.
    fill(TAG, 12);
    EXPECT_NE(reallocate(TAG, nullptr, 64), nullptr);
    EXPECT_EQ(table->buckets[TAG].first_node.slots[12].size, 64u);
}

TEST_F(MemoryManager, ReallocOfNullNeedsARecordWithAVacantSlot)
{
    EXPECT_EQ(reallocate(UNKNOWN_TAG, nullptr, 64), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(ZR_memm_free_all(UNKNOWN_TAG), -1);
    for (const int count : {13, 26}) {
        fill(TAG, static_cast<size_t>(count));
        EXPECT_EQ(reallocate(TAG, nullptr, 64), nullptr);
        EXPECT_EQ(heap.take_steps(), steps{});
        EXPECT_EQ(ZR_memm_free_all(TAG), count);
        heap.take_steps();
    }
}

TEST_F(MemoryManager, ReallocOfNullLeavesEverythingAloneWhenRefused)
{
    fill(TAG, 1);
    const std::string before = image_of_table();
    heap.refuse_allocation(0);
    EXPECT_EQ(reallocate(TAG, nullptr, 64), nullptr);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 64 refused"});
    EXPECT_EQ(image_of_table(), before);
}

// ---- Refusals: the old block is lost.

TEST_F(MemoryManager, RefusedReallocLosesTheBlock)
{
    fill(TAG, 2);
    heap.refuse_allocation(0);
    EXPECT_EQ(reallocate(TAG, block(1), 64), nullptr);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 64 refused", "free block 1"}));
    EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    EXPECT_EQ(heap.take_steps(), steps{"free block 2"});
}

TEST_F(MemoryManager, RefusedReallocToSize0LosesTheBlockToo)
{
    fill(TAG, 2);
    heap.refuse_allocation(0);
    EXPECT_EQ(reallocate(TAG, block(1), 0), nullptr);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 0 refused", "free block 1"}));
    EXPECT_EQ(ZR_memm_flags(TAG, block(1)), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(MemoryManager, RefusedReallocOfATagsOnlyBlockLosesTheRecordToo)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    heap.refuse_allocation(0);
    EXPECT_EQ(reallocate(SECOND_TAG, block(2), 64), nullptr);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 64 refused", "free block 2", "free record 1"}));
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
}

TEST_F(MemoryManager, ReallocLosesTheBlockWhenTheNodeIsRefused)
{
    fill(TAG, 13);
    heap.refuse_allocation(1);
    EXPECT_EQ(reallocate(TAG, block(1), 64), nullptr);
    EXPECT_EQ(heap.take_steps(),
              (steps{"malloc 64 -> block 14", "calloc 336 refused", "free block 14", "free block 1"}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 12);
    EXPECT_EQ(heap.take_steps(), steps{"free block 2..13"});
}
