// The memory manager beside its model, call by call: results, heap calls, and now and then the whole table.
// The unit is compiled into this program, once with tables as they are installed and once with tiny ones
// (QV_TINY_LOOKASIDE), where every cell is shared, every line overflows and every stock runs out.
//
// QV_STORM_CALLS and QV_STORM_SEED lengthen and vary the storms.

#include "memory/lookaside_storm.h"

namespace {

TEST(Lookaside, CallersSeeWhatTheModelSays)
{
    storm weathered({400000, 1200, 0, 0, 0, 977});
    weathered.run();
    EXPECT_GE(weathered.seen.most_long_owners, 2U);
    EXPECT_TRUE(weathered.seen.is_inline_of_long_owner_vacant);
    EXPECT_TRUE(weathered.seen.is_full_from);
    EXPECT_TRUE(weathered.seen.is_entry_displaced);
    if (!IS_TINY)
        return;
    EXPECT_EQ(weathered.seen.most_runs, RUN_COUNT - 1);
    EXPECT_TRUE(weathered.seen.is_entry_away);
    EXPECT_TRUE(weathered.seen.is_entry_lost);
    EXPECT_TRUE(weathered.seen.is_owner_refused);
    EXPECT_TRUE(weathered.seen.is_cell_shared);
}

TEST(Lookaside, CallersSeeTheSameWhenItIsEmptiedNowAndThen)
{
    storm({200000, 600, 50, 0, 0, 977}).run();
}

TEST(Lookaside, CallersSeeTheSameWhenItIsEmptiedBeforeEachCall)
{
    const unsigned calls = IS_TINY ? 200000 : 2000;  // emptying tables of full size takes its time
    storm({calls, 300, 1, 20, 10, 977}).run();
}

TEST(Lookaside, CallersSeeTheSameWhenTheHeapRefuses)
{
    storm({200000, 600, 0, 10, 0, 977}).run();
}

TEST(Lookaside, CallersSeeTheSameWhenCountsAreWrong)
{
    storm({400000, 600, 0, 40, 2, 977}).run();
}

TEST(Lookaside, EveryEquationHoldsAfterEveryCall)
{
    const unsigned calls = IS_TINY ? 30000 : 2000;
    storm({calls, 300, 300, 30, 4, 1}).run();
}

// Null, disassociated again and again, takes the inline node's count from 0 to below. That node then counts
// as full although it is empty, also for an owner whose vacancies are remembered.
TEST(Lookaside, AnInlineNodeWhoseCountFellBelowZeroOffersNoSlot)
{
    constexpr uint64_t TAG = 3;
    constexpr size_t BLOCKS = 13 + 13 * 8;
    logged_heap own_heap;
    heap_in_use = &own_heap;
    std::vector<LPVOID> blocks(BLOCKS);
    for (LPVOID &block : blocks)
        block = ZR_memm_alloc(TAG, 16, "test", 1);
    for (size_t i = 0; i < LONG_LOOKUPS; ++i)
        ASSERT_EQ(ZR_memm_flags(TAG, blocks[13]), ZR_MEMM_FLAG_RECORDED);  // in the chain's last node
    if (!IS_TINY) {
        ASSERT_NE(notes_of_heads[TAG].owner, 0) << "the owner was to become a long one";
    }
    for (size_t i = 0; i < 13; ++i)
        ASSERT_EQ(ZR_memm_free(TAG, blocks[i], "test", 1), nullptr);
    ASSERT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr);

    own_heap.log.clear();
    ZR_memm_alloc(TAG, 16, "test", 1);
    ASSERT_EQ(own_heap.log.size(), 2U) << "a block and a node";
    EXPECT_EQ(own_heap.log[1].kind, logged_call::CALLOC);
    EXPECT_STREQ(violated_equation(true), nullptr);

    EXPECT_EQ(ZR_memm_free_all(TAG), static_cast<LONG>(BLOCKS - 13 + 1));
    EXPECT_STREQ(violated_equation(false), nullptr);
    heap_in_use = nullptr;
}

// Three nodes are as quick as a line; what lookups examine beyond them adds up, as far as it can be counted.
TEST(Lookaside, AnOwnerFallsDueByTheNodesThatLookupsExamineBeyondThree)
{
    record_note note = {};
    for (uint32_t examined = 0; examined <= 3; ++examined)
        count_lookup(&note, examined);
    EXPECT_EQ(note.long_lookups, 0);
    count_lookup(&note, 4);
    EXPECT_EQ(note.long_lookups, 1);
    count_lookup(&note, 3 + LONG_LOOKUPS - 2);
    EXPECT_EQ(note.long_lookups, LONG_LOOKUPS - 1);
    EXPECT_FALSE(is_due_to_become_long(note));
    count_lookup(&note, 4);
    EXPECT_EQ(note.long_lookups, LONG_LOOKUPS);
    EXPECT_TRUE(is_due_to_become_long(note));

    for (const uint32_t examined : {3U + UINT16_MAX - 1, 3U + UINT16_MAX, 1U << 20}) {
        note = {};
        count_lookup(&note, examined);
        EXPECT_EQ(note.long_lookups, UINT16_MAX - 1) << "after " << examined;
        EXPECT_TRUE(is_due_to_become_long(note));
    }
    note.long_lookups = NEVER_LONG;
    count_lookup(&note, 100);
    EXPECT_EQ(note.long_lookups, NEVER_LONG);
    EXPECT_FALSE(is_due_to_become_long(note));
}

// The fourth node of a chain is the last one that lookups may end in for nothing.
TEST(Lookaside, AnOwnerOfFourNodesFallsDueOnlyByWhatItHasNot)
{
    constexpr uint64_t TAG = 3;
    logged_heap own_heap;
    heap_in_use = &own_heap;
    std::vector<LPVOID> blocks(13 * 4);
    for (LPVOID &block : blocks)
        block = ZR_memm_alloc(TAG, 16, "test", 1);
    const record_note &note = notes_of_heads[TAG];
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(ZR_memm_flags(TAG, blocks[13]), ZR_MEMM_FLAG_RECORDED);  // in the chain's last node
    EXPECT_EQ(note.long_lookups, 0);
    LPVOID stranger = own_heap.take(16);
    for (int i = 0; i < LONG_LOOKUPS; ++i)
        ASSERT_EQ(ZR_memm_flags(TAG, stranger), 0U);
    EXPECT_EQ(note.long_lookups, LONG_LOOKUPS);
    EXPECT_EQ(note.owner, 0);
    ASSERT_EQ(ZR_memm_flags(TAG, stranger), 0U);
    EXPECT_NE(note.owner, 0);
    ZR_memm_cleanup();
    heap_in_use = nullptr;
}

// Each has an inline node and three more: of tiny tables they leave one run, of installed ones none.
TEST(Lookaside, AsManyOwnersBecomeLongAsThereIsRoomFor)
{
    logged_heap own_heap;
    heap_in_use = &own_heap;
    LPVOID stranger = own_heap.take(16);
    const auto ask_until_long = [&](uint64_t tag) {
        for (int i = 0; i <= LONG_LOOKUPS; ++i)
            EXPECT_EQ(ZR_memm_flags(tag, stranger), 0U);
    };
    for (uint64_t tag = 1; tag <= OWNER_COUNT; ++tag) {
        for (int i = 0; i < 13 * 4; ++i)
            ZR_memm_alloc(tag, 16, "test", 1);
        ask_until_long(tag);
        ASSERT_EQ(owners[tag % OWNER_COUNT].record != nullptr, tag < OWNER_COUNT) << "owner " << tag;
    }
    EXPECT_EQ(find_record(OWNER_COUNT).note->long_lookups, NEVER_LONG) << "it is not tried again";
    EXPECT_STREQ(violated_equation(false), nullptr);

    const uint32_t runs_before = runs_in_use;
    for (uint64_t tag = 1; tag < OWNER_COUNT; ++tag)
        ZR_memm_alloc(tag, 16, "test", 1);
    EXPECT_EQ(runs_in_use, runs_before) << "the first run of each has room for one more node";

    EXPECT_EQ(ZR_memm_free_all(1), 13 * 4 + 1);
    find_record(OWNER_COUNT).note->long_lookups = 0;
    ask_until_long(OWNER_COUNT);
    EXPECT_NE(find_record(OWNER_COUNT).note->owner, 0) << "a number and runs given back are taken again";
    ZR_memm_cleanup();
    EXPECT_STREQ(violated_equation(false), nullptr);
    heap_in_use = nullptr;
}

// What releases everything leaves nothing behind that would have to be cleaned up once more.
TEST(Lookaside, CleanupLeavesNothingRemembered)
{
    logged_heap own_heap;
    heap_in_use = &own_heap;
    for (uint64_t tag = 1; tag < 100; ++tag)
        for (int i = 0; i < 60; ++i)
            ZR_memm_alloc(tag, 16, "test", 1);
    LPVOID stranger = own_heap.take(16);
    for (uint64_t tag = 1; tag < 100; ++tag)
        for (int i = 0; i < LONG_LOOKUPS; ++i)
            ASSERT_EQ(ZR_memm_flags(tag, stranger), 0U);
    ASSERT_NE(runs_in_use, 0U) << "there were to be long owners";
    ASSERT_EQ(ZR_memm_cleanup(), 99 * 60);

    EXPECT_EQ(runs_in_use, 0U);
    for (const record_note &cell : cells)
        EXPECT_TRUE(cell.chained == 0 && cell.record == nullptr && cell.owner == 0);
    for (const block_line &line : lines) {
        EXPECT_EQ(line.counts, 0U);
        for (const uint32_t entry : line.entries)
            EXPECT_EQ(entry, 0U);
    }
    EXPECT_STREQ(violated_equation(false), nullptr);
    heap_in_use = nullptr;
}

// An address can look like another one's in all that is remembered of it, or like that of another owner's
// block.
TEST(Lookaside, AddressesThatAreNotRecordedAreNotFoundWhateverTheyLookLike)
{
    const size_t blocks_of_each = IS_TINY ? 100 : 5000;
    logged_heap own_heap;
    heap_in_use = &own_heap;
    std::mt19937_64 random(14);
    const auto any_address = [&] {
        return reinterpret_cast<LPVOID>(random() % (uint64_t{1} << 47) / 16 * 16);
    };
    std::vector<LPVOID> blocks(2 * blocks_of_each);
    for (size_t i = 0; i < blocks.size(); ++i) {
        blocks[i] = any_address();
        ASSERT_EQ(ZR_memm_associate(1 + i % 2, blocks[i], i), blocks[i]);
    }
    for (int i = 0; i < (IS_TINY ? 20000 : 400000); ++i) {
        LPVOID stranger = any_address();
        ASSERT_EQ(ZR_memm_flags(1 + i % 2, stranger), 0U) << stranger;
    }
    for (size_t i = 0; i < blocks.size(); ++i) {
        ASSERT_EQ(ZR_memm_flags(2 - i % 2, blocks[i]), 0U) << "block " << i << " is the other owner's";
        ASSERT_EQ(ZR_memm_disassociate(1 + i % 2, blocks[i]), nullptr) << "block " << i;
    }
    EXPECT_EQ(ZR_memm_cleanup(), 0);
    heap_in_use = nullptr;
}

// An owner so long that one lookup examines more nodes than a note can count. It has no room among the long
// ones.
TEST(Lookaside, AnOwnerOfMoreNodesThanCanBeCountedIsWalkedAsEver)
{
    constexpr uint64_t TAG = 3;
    constexpr size_t BLOCKS = 13 * (size_t{UINT16_MAX} + 10);
    logged_heap own_heap;
    heap_in_use = &own_heap;
    LPVOID first = own_heap.take(16);
    LPVOID other = own_heap.take(16);
    LPVOID stranger = own_heap.take(16);
    ASSERT_EQ(ZR_memm_associate(TAG, first, 16), first);
    for (size_t i = 1; i < BLOCKS; ++i)
        ASSERT_EQ(ZR_memm_associate(TAG, other, 16), other);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ZR_memm_flags(TAG, stranger), 0U);
        EXPECT_STREQ(violated_equation(false), nullptr);
    }
    EXPECT_EQ(notes_of_heads[TAG].owner, 0);
    EXPECT_EQ(ZR_memm_free(TAG, first, "test", 1), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), static_cast<LONG>(BLOCKS - 1));
    heap_in_use = nullptr;
}

}  // namespace
