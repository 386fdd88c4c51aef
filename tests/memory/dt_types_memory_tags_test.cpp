// Tags: unique ones, buckets, and the records behind them.

#include "memory/dt_types_memory_fixture.h"

#include "support/child_process.h"

// ---- Unique tags. Their counter is never reset, so tags are drawn in children only.

TEST_F(MemoryManager, InitDoesNothing)
{
    fill(TAG, 1);
    const std::string before = image_of_table();
    ZR_mem_init();
    EXPECT_EQ(heap.take_steps(), steps{});
    EXPECT_EQ(image_of_table(), before);
}

TEST_F(MemoryManager, UniqueTagsCountUpFromBit28)
{
    expect_passes_in_child([] {
        for (uint64_t drawn = 0; drawn < 100; ++drawn)
            EXPECT_EQ(draw_unique_tag(), 0x10000000 + drawn);
    });
}

TEST_F(MemoryManager, UniqueTagBitIsBit28)
{
    EXPECT_EQ(ZR_MEMM_UNIQUE_TAG_BIT, UINT64_C(1) << 28);
}

TEST_F(MemoryManager, DrawingAUniqueTagRecordsNothingAndNeedsNoHeap)
{
    expect_passes_in_child([this] {
        heap.take_steps();  // what a sanitizer asks for in a new child
        const uint64_t tag = draw_unique_tag();
        EXPECT_EQ(heap.take_steps(), steps{});
        EXPECT_EQ(ZR_memm_free_all(tag), -1);
    });
}

TEST_F(MemoryManager, InitDoesNotResetTheUniqueTags)
{
    expect_passes_in_child([] {
        EXPECT_EQ(draw_unique_tag(), 0x10000000u);
        ZR_mem_init();
        EXPECT_EQ(draw_unique_tag(), 0x10000001u);
    });
}

TEST_F(MemoryManager, CleanupDoesNotResetTheUniqueTags)
{
    expect_passes_in_child([] {
        const uint64_t tag = draw_unique_tag();
        allocate(tag);
        EXPECT_EQ(ZR_memm_cleanup(), 1);
        EXPECT_EQ(draw_unique_tag(), tag + 1);
    });
}

TEST_F(MemoryManager, UniqueTagsRepeatOnceTheCounterReachesBit28)
{
    expect_passes_in_child([] {
        uint64_t expected = 0x10000000;
        while (expected < 0x20000000 && draw_unique_tag() == expected)
            ++expected;
        ASSERT_EQ(expected, 0x20000000u);
        EXPECT_EQ(draw_unique_tag(), 0x10000000u);
        EXPECT_EQ(draw_unique_tag(), 0x10000001u);
    });
}

TEST_F(MemoryManager, UniqueTagsGoOnPastEveryPowerOfTwo)
{
    expect_passes_in_child([this] {
        for (unsigned bit = 29; bit < 64; ++bit) {
            const uint64_t power = UINT64_C(1) << bit;
            table->unique_tag_counter = power - 1;
            EXPECT_EQ(draw_unique_tag(), power - 1) << "bit 28 is among the number's own";
            EXPECT_EQ(draw_unique_tag(), power + 0x10000000);
            EXPECT_EQ(draw_unique_tag(), power + 0x10000001);
            EXPECT_EQ(table->unique_tag_counter, power + 2);
        }
    });
}

TEST_F(MemoryManager, UniqueTagsStartAgainAfterThe64BitNumberWraps)
{
    expect_passes_in_child([this] {
        table->unique_tag_counter = UINT64_MAX;
        EXPECT_EQ(draw_unique_tag(), UINT64_MAX);
        EXPECT_EQ(draw_unique_tag(), 0x10000000u);
    });
}

// ---- Buckets and records

TEST_F(MemoryManager, FirstTagOfEachBucketNeedsNoRecordAndTheOthersNeedOne)
{
    for (uint64_t tag = 1; tag <= 32; ++tag)
        allocate(tag);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 1..32"});
    for (uint64_t tag = 33; tag <= 96; ++tag) {
        allocate(tag);
        EXPECT_EQ(heap.take_steps(),
                  (steps{words("malloc 8 -> block ", tag), words("calloc 360 -> record ", tag - 32)}));
    }
    for (uint64_t tag = 1; tag <= 96; ++tag)
        allocate(tag);
    EXPECT_EQ(heap.take_steps(), steps{"malloc 8 -> block 97..192"});
}

TEST_F(MemoryManager, TagsAreToldApartByAll64BitsAndBucketsByTheLowFive)
{
    const std::vector<uint64_t> tags = {5, (UINT64_C(1) << 63) + 5, (UINT64_C(1) << 32) + 5, 0x10000005};
    for (const uint64_t tag : tags)
        allocate(tag);
    EXPECT_EQ(heap.take_steps(),
              (steps{"malloc 8 -> block 1..2", "calloc 360 -> record 1", "malloc 8 -> block 3",
                     "calloc 360 -> record 2", "malloc 8 -> block 4", "calloc 360 -> record 3"}));
    for (size_t i = 0; i < tags.size(); ++i)
        for (unsigned j = 0; j < tags.size(); ++j)
            EXPECT_EQ(ZR_memm_flags(tags[i], block(j + 1)), i == j ? 2u : 0u);
}

// Tags of a bucket whose first record is another one's, asked for in turns.
TEST_F(MemoryManager, ChainedTagsAreToldApartByEveryBit)
{
    allocate(TAG);
    LPVOID block_of_second = allocate(SECOND_TAG);
    for (int bit = 6; bit < 64; ++bit) {
        const uint64_t other = SECOND_TAG ^ UINT64_C(1) << bit;
        EXPECT_EQ(ZR_memm_flags(other, block_of_second), 0u) << "bit " << bit;
        EXPECT_EQ(ZR_memm_free_all(other), -1) << "bit " << bit;
        LPVOID block_of_other = allocate(other);
        for (int turn = 0; turn < 2; ++turn) {
            EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block_of_second), 2u) << "bit " << bit;
            EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block_of_other), 0u) << "bit " << bit;
            EXPECT_EQ(ZR_memm_flags(other, block_of_other), 2u) << "bit " << bit;
            EXPECT_EQ(ZR_memm_flags(other, block_of_second), 0u) << "bit " << bit;
        }
        EXPECT_EQ(ZR_memm_free_all(other), 1) << "bit " << bit;
    }
}

TEST_F(MemoryManager, RecordHoldsAll64BitsOfItsTag)
{
    constexpr uint64_t WIDE_TAG = 0xFEDCBA9876543205;
    fill(WIDE_TAG, 1);
    fill(WIDE_TAG + 32, 1);
    EXPECT_EQ(table->buckets[5].tag, WIDE_TAG);
    EXPECT_EQ(static_cast<ZT_MEMM_TAG_RECORD *>(heap.address_of("record 1"))->tag, WIDE_TAG + 32);
    EXPECT_EQ(ZR_memm_free_all(WIDE_TAG + 32), 1);
    EXPECT_EQ(ZR_memm_free_all(static_cast<uint32_t>(WIDE_TAG)), -1);
    EXPECT_EQ(ZR_memm_free_all(WIDE_TAG), 1);
}

TEST_F(MemoryManager, NewRecordsAreLinkedInSecondPlace)
{
    fill(TAG, 2);         // block 1..2
    fill(SECOND_TAG, 2);  // block 3..4, record 1
    fill(THIRD_TAG, 15);  // block 5..19, record 2
    fill(FOURTH_TAG, 1);  // block 20, record 3
    EXPECT_EQ(ZR_memm_cleanup(), 20);
    EXPECT_EQ(heap.take_steps(),
              (steps{"free block 1..2", "free block 20", "free record 3", "free block 5..19", "free node 1",
                     "free record 2", "free block 3..4", "free record 1"}));
}

TEST_F(MemoryManager, VacatedTableRecordStaysTheHeadOfItsChain)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    EXPECT_EQ(release(TAG, block(1)), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block(2)), 2u);
    heap.take_steps();

    allocate(SECOND_TAG);
    allocate(THIRD_TAG);  // claims the vacant record
    allocate(TAG);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 8 -> block 3..5", "calloc 360 -> record 2"}));
    EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block(2)), 2u);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 2);
    EXPECT_EQ(ZR_memm_free_all(THIRD_TAG), 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(MemoryManager, RecordThatLeftTheTableIsAllZeroButForItsChain)
{
    fill(TAG, 14);
    fill(SECOND_TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
    ZT_MEMM_TAG_RECORD expected = {};
    expected.next = static_cast<ZT_MEMM_TAG_RECORD *>(heap.address_of("record 1"));
    EXPECT_EQ(memcmp(&table->buckets[5], &expected, sizeof expected), 0);
}
