// Which slot a search of a long owner meets first: of vacant ones, and of several with the same block. What
// is expected comes from walking the chain, as the plainest search would.

#include "memory/dt_types_with_logged_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

// The first slot of a tag in the table that holds `block`; of null, in a node that offers one.
const ZT_MEMM_SLOT *first_slot_by_walking(uint64_t tag, LPVOID block)
{
    const ZT_MEMM_TAG_RECORD *record = &heap.buckets[tag % 32];
    while (record != nullptr && record->tag != tag)
        record = record->next;
    if (record == nullptr)
        return nullptr;
    for (const ZT_MEMM_NODE *node = &record->first_node; node != nullptr; node = node->next)
        for (const ZT_MEMM_SLOT &slot : node->slots)
            if (slot.block == block && (block != nullptr || node->count < 13))
                return &slot;
    return nullptr;
}

class LookasideOrder : public ::testing::Test {
protected:
    static constexpr uint64_t TAG = 3;
    static constexpr size_t BLOCKS_OF_MANY_RUNS = 13 * 64 * 3;

    logged_heap own_heap;
    std::vector<LPVOID> blocks;
    std::mt19937 random;

    LookasideOrder() { heap_in_use = &own_heap; }
    ~LookasideOrder() override
    {
        ZR_memm_cleanup();
        heap_in_use = nullptr;
    }

    void allocate(uint64_t tag, size_t count)
    {
        while (count-- != 0)
            blocks.push_back(ZR_memm_alloc(tag, 16, "test", 1));
    }
    // The tables may be tiny: then the tag is walked, with the same results.
    void ask_until_long(uint64_t tag, LPVOID oldest_chained)
    {
        for (size_t i = 0; i <= LONG_LOOKUPS; ++i)
            ASSERT_EQ(ZR_memm_flags(tag, oldest_chained), ZR_MEMM_FLAG_RECORDED);
    }
    void free_at(size_t index)
    {
        ASSERT_EQ(ZR_memm_free(TAG, blocks[index], "test", 1), nullptr);
        blocks[index] = blocks.back();
        blocks.pop_back();
    }
};

TEST_F(LookasideOrder, VacanciesOfManyRunsAreTakenAsTheChainHasThem)
{
    allocate(TAG, BLOCKS_OF_MANY_RUNS);
    ask_until_long(TAG, blocks[13]);
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 100; ++i)
            free_at(random() % blocks.size());
        ASSERT_STREQ(violated_equation(false), nullptr) << "in round " << round;
        for (int i = 0; i < 100; ++i) {
            const ZT_MEMM_SLOT *expected = first_slot_by_walking(TAG, nullptr);
            allocate(TAG, 1);
            if (expected != nullptr) {
                ASSERT_EQ(expected->block, blocks.back()) << "allocation " << i << " of round " << round;
            }
        }
        ASSERT_STREQ(violated_equation(false), nullptr) << "in round " << round;
    }
}

TEST_F(LookasideOrder, TheInlineNodeStaysFirstWhenRunsJoin)
{
    allocate(TAG, 13 * 30);
    ask_until_long(TAG, blocks[13]);
    for (int added = 0; added < 13 * 150; ++added) {
        allocate(TAG, 1);
        if (added % 13 != 0)
            continue;
        const ZT_MEMM_SLOT *inline_slot = first_slot_by_walking(TAG, blocks[4]);
        ASSERT_EQ(ZR_memm_free(TAG, blocks[4], "test", 1), nullptr);
        blocks[4] = ZR_memm_alloc(TAG, 16, "test", 1);
        ASSERT_EQ(inline_slot->block, blocks[4]) << "with " << blocks.size() << " blocks";
        ASSERT_STREQ(violated_equation(false), nullptr) << "with " << blocks.size() << " blocks";
    }
}

TEST_F(LookasideOrder, AnInlineNodeWhoseCountSaysFullOffersNothing)
{
    allocate(TAG, 13 * 30);
    ask_until_long(TAG, blocks[13]);
    ASSERT_EQ(ZR_memm_free(TAG, blocks[4], "test", 1), nullptr);
    ZT_MEMM_NODE &inline_node = heap.buckets[TAG].first_node;
    inline_node.count = 13;
    allocate(TAG, 1);
    EXPECT_EQ(inline_node.slots[4].block, nullptr);
    inline_node.count = 12;
}

// A null that is disassociated lowers the count, so that it reaches 0 with a block still recorded: with the
// node that block's slot is cleared, and offered.
TEST_F(LookasideOrder, ASlotLostWithTheInlineNodesCountIsOfferedAgain)
{
    const ZT_MEMM_NODE &inline_node = heap.buckets[TAG].first_node;
    for (size_t lost = 0; lost < 12; ++lost) {
        blocks.clear();
        allocate(TAG, 13 * 30);
        ask_until_long(TAG, blocks[13]);
        ASSERT_EQ(ZR_memm_free(TAG, blocks[12], "test", 1), nullptr);
        ASSERT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr);
        ASSERT_EQ(inline_node.count, 11U);
        for (size_t i = 0; i < 12; ++i) {
            if (i == lost)
                continue;
            ASSERT_EQ(ZR_memm_free(TAG, blocks[i], "test", 1), nullptr);
        }
        ASSERT_EQ(inline_node.count, 0U);
        EXPECT_STREQ(violated_equation(false), nullptr) << "slot " << lost;
        for (size_t slot = 0; slot < 13; ++slot) {
            allocate(TAG, 1);
            EXPECT_EQ(inline_node.slots[slot].block, blocks.back()) << "slot " << lost << " was lost";
        }
        ZR_memm_free_all(TAG);
        own_heap.give_back(blocks[lost]);
    }
}

// As the owner shrinks, nodes go from the chain and runs with them.
TEST_F(LookasideOrder, AnOwnerOfManyRunsIsFreedInAnyOrder)
{
    allocate(TAG, BLOCKS_OF_MANY_RUNS);
    ask_until_long(TAG, blocks[13]);
    while (!blocks.empty()) {
        free_at(random() % blocks.size());
        if (blocks.size() % 61 == 0) {
            ASSERT_STREQ(violated_equation(false), nullptr) << "with " << blocks.size() << " blocks left";
        }
    }
    EXPECT_LE(runs_in_use, 1U)
        << "one may be left to the inline node, where that was empty before the others";
    ZR_memm_free_all(TAG);
    EXPECT_EQ(runs_in_use, 0U);
}

TEST_F(LookasideOrder, OfABlockRecordedOftenTheFirstSlotGoesFirst)
{
    allocate(TAG, BLOCKS_OF_MANY_RUNS);
    ask_until_long(TAG, blocks[13]);
    LPVOID twin = own_heap.take(16);
    for (int i = 0; i < 40; ++i) {
        free_at(random() % blocks.size());
        free_at(random() % blocks.size());
        ASSERT_EQ(ZR_memm_associate(TAG, twin, 16), twin);
    }
    ASSERT_STREQ(violated_equation(false), nullptr);
    for (int i = 0; i < 40; ++i) {
        const ZT_MEMM_SLOT *expected = first_slot_by_walking(TAG, twin);
        ASSERT_NE(expected, nullptr);
        ASSERT_EQ(ZR_memm_disassociate(TAG, twin), nullptr);
        ASSERT_EQ(expected->block, nullptr) << "disassociation " << i;
    }
    EXPECT_EQ(ZR_memm_flags(TAG, twin), 0U);
    EXPECT_STREQ(violated_equation(false), nullptr);
}

TEST_F(LookasideOrder, TwoLongOwnersOfOneBlockBothFindTheirOwn)
{
    constexpr uint64_t OTHER = TAG + 1;
    allocate(TAG, 200);
    allocate(OTHER, 200);
    ask_until_long(TAG, blocks[13]);
    ask_until_long(OTHER, blocks[213]);
    for (size_t i = 0; i < 200; ++i)
        ASSERT_EQ(ZR_memm_flags(OTHER, blocks[i]), 0U) << "block " << i << " is the first owner's";
    for (size_t i = 0; i < 200; ++i)
        ASSERT_EQ(ZR_memm_associate(OTHER, blocks[i], 16), blocks[i]);
    for (size_t i = 0; i < 200; ++i) {
        ASSERT_EQ(ZR_memm_disassociate(TAG, blocks[i]), nullptr);
        ASSERT_EQ(ZR_memm_flags(TAG, blocks[i]), 0U);
        ASSERT_EQ(ZR_memm_flags(OTHER, blocks[i]), ZR_MEMM_FLAG_RECORDED);
    }
    EXPECT_STREQ(violated_equation(false), nullptr);
}

// Blocks of no heap, which may lie closer than a heap would put them: they compete for one entry.
TEST_F(LookasideOrder, BlocksAByteApartAreToldApart)
{
    allocate(TAG, 200);
    ask_until_long(TAG, blocks[13]);
    BYTE crowd[2000];
    for (size_t i = 0; i < sizeof crowd; i += 2)
        ASSERT_EQ(ZR_memm_associate(TAG, &crowd[i], 1), &crowd[i]);
    ASSERT_STREQ(violated_equation(false), nullptr);
    for (size_t i = 0; i < sizeof crowd; ++i)
        ASSERT_EQ(ZR_memm_flags(TAG, &crowd[i]), i % 2 == 0 ? ZR_MEMM_FLAG_RECORDED : 0) << "byte " << i;
    for (size_t i = 0; i < sizeof crowd; ++i)
        ASSERT_EQ(ZR_memm_disassociate(TAG, &crowd[i]), i % 2 == 0 ? nullptr : &crowd[i]) << "byte " << i;
    EXPECT_STREQ(violated_equation(false), nullptr);
}

// ---- Cells of records

// Each field of so many bits, while the others stay: as many cells as values.
TEST(LookasideCells, TagsThatDifferInOneFieldHaveCellsOfTheirOwn)
{
    for (const uint32_t shift : {0U, CELL_BITS, 2 * CELL_BITS}) {
        std::vector<bool> is_taken(CELL_COUNT);
        for (uint64_t value = 0; value < CELL_COUNT; ++value) {
            const uint64_t tag = UINT64_C(0x123456789ABCDEF) ^ value << shift;
            const auto cell = static_cast<size_t>(&cell_of(tag) - cells);
            EXPECT_FALSE(is_taken[cell]) << "bits from " << shift << ", value " << value;
            is_taken[cell] = true;
        }
    }
}

TEST_F(LookasideOrder, ACellRemembersTheRecordFoundLast)
{
    constexpr uint64_t CHAINED = TAG + 32;
    constexpr uint64_t SHARING = CHAINED ^ UINT64_C(1) << 3 * CELL_BITS << 10;  // no bit that chooses a cell
    allocate(TAG, 1);
    for (const uint64_t tag : {CHAINED, SHARING, CHAINED, SHARING}) {
        allocate(tag, 1);
        const record_note &cell = cell_of(tag);
        ASSERT_NE(cell.record, nullptr);
        EXPECT_EQ(cell.record->tag, tag);
        EXPECT_EQ(cell.long_lookups, 0);
        EXPECT_EQ(cell.full_from, nullptr);
    }
    EXPECT_EQ(cell_of(CHAINED).chained, 2U);
    EXPECT_EQ(&cell_of(CHAINED), &cell_of(SHARING));
}

// ---- Where a block's own entry is

LPVOID address_of_number(uint64_t number)
{
    return reinterpret_cast<LPVOID>(number);
}

constexpr uint64_t REGION = 256;  // bytes, with one home and an entry for each 32 of them
constexpr uint64_t HEAP = 0x7F3A5C000000;

TEST(LookasideKeys, BlocksOfOneRegionShareALineAndNoEntry)
{
    for (uint64_t region = HEAP; region < HEAP + 1000 * REGION; region += REGION) {
        const line_key first = key_of(1, address_of_number(region));
        uint32_t taken = 0;
        for (uint64_t block = region; block < region + REGION; block += 32) {
            const line_key key = key_of(1, address_of_number(block));
            ASSERT_EQ(key.home, first.home) << "block " << address_of_number(block);
            ASSERT_LT(key.own, LINE_ENTRIES);
            taken |= 1U << key.own;
        }
        EXPECT_TRUE(taken == 0xFF || taken == 0xFF << 7) << "either half of a line";
    }
}

// As many regions as there are lines: a golden spiral leaves none alone and crowds none.
TEST(LookasideKeys, NeighbouringRegionsSpreadOverAllLines)
{
    for (const uint32_t owner : {1U, OWNER_COUNT - 1}) {
        std::vector<unsigned> regions(LINE_COUNT);
        std::vector<unsigned> halves(LINE_COUNT);
        for (uint64_t i = 0; i < 2 * LINE_COUNT; ++i) {
            const line_key key = key_of(owner, address_of_number(HEAP + i * REGION));
            ASSERT_LT(key.home, LINE_COUNT);
            ++regions[key.home];
            halves[key.home] |= key.own == 0 ? 1 : 2;
        }
        for (uint32_t line = 0; line < LINE_COUNT; ++line) {
            EXPECT_GE(regions[line], 1U) << "line " << line;
            EXPECT_LE(regions[line], 4U) << "line " << line;
        }
        EXPECT_GE(std::count(halves.begin(), halves.end(), 3U), LINE_COUNT / 2)
            << "lines of which both halves are used";
    }
}

TEST(LookasideKeys, OwnersOfOneBlockLookInDifferentLines)
{
    unsigned same = 0;
    for (uint32_t owner = 1; owner < OWNER_COUNT; ++owner)
        same += key_of(owner, address_of_number(HEAP)).home == key_of(0, address_of_number(HEAP)).home;
    EXPECT_LE(same, LINE_COUNT == 2 ? 2U : 1U);
}

TEST(LookasideKeys, PrintsTellBlocksOf256KibibytesApart)
{
    std::vector<uint32_t> prints;
    for (uint64_t block = HEAP; block < HEAP + (1U << 18); block += 16) {
        const uint32_t print = key_of(1, address_of_number(block)).print;
        ASSERT_EQ(print & ~PRINT_MASK, 0U) << "the lower bits are for slot and place";
        prints.push_back(print);
    }
    std::sort(prints.begin(), prints.end());
    EXPECT_EQ(std::unique(prints.begin(), prints.end()), prints.end());
}

}  // namespace
