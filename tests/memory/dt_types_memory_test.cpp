// The tagged memory manager, seen through its results and through the heap calls it makes.

#include "foundation/memory.h"

#include "support/child_process.h"
#include "support/heap_trace.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

// The manager's own allocations, both by calloc.
constexpr size_t RECORD_BYTES = 360;
constexpr size_t NODE_BYTES = 336;
constexpr size_t NODE_SLOTS = 13;
constexpr uint64_t BUCKETS = 32;

// Tags 5, 37, 69, 101 share bucket 5; the first of them to come claims the bucket's record in the table.
constexpr uint64_t TAG = 5;
constexpr uint64_t SECOND_TAG = 37;
constexpr uint64_t THIRD_TAG = 69;
constexpr uint64_t FOURTH_TAG = 101;
constexpr uint64_t OTHER_BUCKET_TAG = 6;
constexpr uint64_t UNKNOWN_TAG = 133;  // bucket 5 again

using block_list = std::vector<LPVOID>;
using call_list = std::vector<heap_call>;

LPVOID allocate(uint64_t tag, uint64_t size = 8)
{
    return ZR_memm_alloc(tag, size, "test", __LINE__);
}

LPVOID release(uint64_t tag, LPVOID block)
{
    return ZR_memm_free(tag, block, "test", __LINE__);
}

LPVOID reallocate(uint64_t tag, LPVOID block, uint64_t size)
{
    return ZR_memm_realloc(tag, block, size, "test", __LINE__);
}

uint64_t draw_unique_tag()
{
    return ZR_memm_unique_tag_get("test", __LINE__);
}

bool is_recorded(uint64_t tag, LPVOID block)
{
    return ZR_memm_flags(tag, block) == 2;
}

block_list slice(const block_list &blocks, size_t begin, size_t end)
{
    return {blocks.begin() + static_cast<ptrdiff_t>(begin), blocks.begin() + static_cast<ptrdiff_t>(end)};
}

block_list joined(const std::vector<block_list> &parts)
{
    block_list all;
    for (const block_list &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

call_list frees_of(const block_list &blocks)
{
    call_list calls;
    for (LPVOID block : blocks)
        calls.push_back(free_call(block));
    return calls;
}

// What is behind a tag that was filled by allocations only.
struct tag_contents {
    LPVOID record = nullptr;  // null for a record of the table
    block_list nodes;         // those on the heap, oldest first
    block_list blocks;        // 13 in the inline node, then 13 for each of `nodes`
};

void fill_with_byte(LPVOID block, int value, size_t size)
{
    memset(block, value, size);
}

bool is_filled_with_byte(const void *block, int value, size_t size)
{
    const auto *bytes = static_cast<const unsigned char *>(block);
    return std::all_of(bytes, bytes + size, [=](unsigned char byte) { return byte == value; });
}

// No test leaves anything in the manager's table, nor a block on the heap.
class MemoryManager : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ZR_memm_cleanup(), 0); }

    void TearDown() override
    {
        trace.allow_allocations();
        ZR_memm_cleanup();
        EXPECT_EQ(trace.unreleased_blocks(), block_list{});
    }

    // Allocate `count` blocks under a tag without a record.
    tag_contents fill(uint64_t tag, size_t count)
    {
        tag_contents contents;
        const call_list calls = trace.calls_during([&] {
            while (contents.blocks.size() < count)
                contents.blocks.push_back(allocate(tag));
        });
        for (const heap_call &call : calls) {
            if (call.kind != heap_call::CALLOC)
                continue;
            if (call.size == RECORD_BYTES)
                contents.record = call.block;
            else
                contents.nodes.push_back(call.block);
        }
        return contents;
    }

    call_list calls_of_free_all(uint64_t tag, LONG expected_count)
    {
        return trace.calls_during([&] { EXPECT_EQ(ZR_memm_free_all(tag), expected_count); });
    }

    call_list calls_of_cleanup(LONG expected_count)
    {
        return trace.calls_during([&] { EXPECT_EQ(ZR_memm_cleanup(), expected_count); });
    }

    // The heap calls of one allocation, which must succeed, and its block as their first one's.
    call_list calls_of_alloc(uint64_t tag)
    {
        return trace.calls_during([&] { ASSERT_NE(allocate(tag), nullptr); });
    }

    // Refuse the first, the second, ... heap allocation of `action` until it gives a block. Each refusal must
    // give null and keep nothing. Returns how many could be refused.
    template <typename Action> unsigned refusable_allocations(Action action)
    {
        for (unsigned n = 0; n < 10; ++n) {
            const block_list before = trace.unreleased_blocks();
            trace.refuse_allocation(n);
            LPVOID block = action();
            trace.allow_allocations();
            if (block != nullptr)
                return n;
            EXPECT_EQ(trace.unreleased_blocks(), before) << "allocation " << n << " refused";
        }
        ADD_FAILURE() << "never succeeded";
        return 0;
    }

    heap_trace trace;
};

// Sizes of the calls, 0 for a free; for traffic whose blocks do not matter.
std::vector<size_t> sizes_of(const call_list &calls)
{
    std::vector<size_t> sizes;
    for (const heap_call &call : calls)
        sizes.push_back(call.size);
    return sizes;
}

const std::vector<size_t> BLOCK_ONLY = {8};
const std::vector<size_t> BLOCK_AND_RECORD = {8, RECORD_BYTES};
const std::vector<size_t> BLOCK_AND_NODE = {8, NODE_BYTES};

}  // namespace

// ---- Initialisation and unique tags. The counter cannot be reset, so tags are drawn in children only.

TEST_F(MemoryManager, InitDoesNothing)
{
    LPVOID block = allocate(TAG);
    EXPECT_EQ(trace.calls_during([] { ZR_mem_init(); }), call_list{});
    EXPECT_TRUE(is_recorded(TAG, block));
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(MemoryManager, InitDoesNotResetTheUniqueTags)
{
    expect_passes_in_child([] {
        EXPECT_EQ(draw_unique_tag(), 0x10000000u);
        ZR_mem_init();
        EXPECT_EQ(draw_unique_tag(), 0x10000001u);
    });
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
        uint64_t tag = 0;
        EXPECT_EQ(trace.calls_during([&] { tag = draw_unique_tag(); }), call_list{});
        EXPECT_EQ(ZR_memm_free_all(tag), -1);
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

// ---- Allocating

TEST_F(MemoryManager, AllocAsksTheHeapForTheBlockAndNothingElse)
{
    for (const uint64_t size : {0, 1, 7, 8, 9, 4096, 100000}) {
        LPVOID block = nullptr;
        const call_list calls = trace.calls_during([&] { block = allocate(TAG, size); });
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(calls, call_list{malloc_call(size, block)});
        EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
        fill_with_byte(block, 0xA5, size);
        EXPECT_EQ(release(TAG, block), nullptr);
    }
}

TEST_F(MemoryManager, AllocPassesAll64BitsOfTheSizeOn)
{
    trace.refuse_all_allocations();
    for (const uint64_t size : {UINT64_MAX, UINT64_C(1) << 63, (UINT64_C(1) << 32) + 1}) {
        const call_list calls = trace.calls_during([&] { EXPECT_EQ(allocate(TAG, size), nullptr); });
        EXPECT_EQ(calls, call_list{malloc_call(size, nullptr)});
    }
}

TEST_F(MemoryManager, AllocRecordsNothingWhenTheHeapRefusesTheBlock)
{
    trace.refuse_allocation(0);
    EXPECT_EQ(allocate(TAG), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(MemoryManager, CallSiteMayBeMissing)
{
    LPVOID block = ZR_memm_alloc(TAG, 8, nullptr, -1);
    ASSERT_NE(block, nullptr);
    block = ZR_memm_realloc(TAG, block, 16, nullptr, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(ZR_memm_free(TAG, block, nullptr, 0x7fffffff), nullptr);
}

TEST_F(MemoryManager, ThirteenBlocksNeedNoNodeAndTheFourteenthOneForThirteenMore)
{
    for (size_t count = 1; count <= 40; ++count) {
        const bool needs_node = count == 14 || count == 27 || count == 40;
        EXPECT_EQ(sizes_of(calls_of_alloc(TAG)), needs_node ? BLOCK_AND_NODE : BLOCK_ONLY) << count;
    }
}

TEST_F(MemoryManager, BookkeepingComesFromCallocBehindTheBlock)
{
    fill(TAG, 13);
    const call_list with_node = calls_of_alloc(TAG);
    ASSERT_EQ(with_node.size(), 2u);
    EXPECT_EQ(with_node[0].kind, heap_call::MALLOC);
    EXPECT_EQ(with_node[1].kind, heap_call::CALLOC);

    const call_list with_record = calls_of_alloc(SECOND_TAG);
    ASSERT_EQ(with_record.size(), 2u);
    EXPECT_EQ(with_record[0].kind, heap_call::MALLOC);
    EXPECT_EQ(with_record[1].kind, heap_call::CALLOC);
    EXPECT_EQ(with_record[1].size, RECORD_BYTES);
}

TEST_F(MemoryManager, FourteenthBlockStartsANodeAndTheFifteenthFollowsInIt)
{
    const tag_contents filled = fill(TAG, 15);
    ASSERT_EQ(filled.nodes.size(), 1u);
    EXPECT_EQ(calls_of_free_all(TAG, 15), frees_of(joined({filled.blocks, filled.nodes})));
}

TEST_F(MemoryManager, NewNodesAreLinkedInSecondPlace)
{
    const tag_contents filled = fill(TAG, 13 + 13 + 13 + 2);
    ASSERT_EQ(filled.nodes.size(), 3u);
    EXPECT_EQ(calls_of_free_all(TAG, 41), frees_of(joined({slice(filled.blocks, 0, 13),
                                                           slice(filled.blocks, 39, 41),
                                                           {filled.nodes[2]},
                                                           slice(filled.blocks, 26, 39),
                                                           {filled.nodes[1]},
                                                           slice(filled.blocks, 13, 26),
                                                           {filled.nodes[0]}})));
}

TEST_F(MemoryManager, VacatedSlotsAreTakenAgainLowestFirst)
{
    block_list blocks = fill(TAG, 5).blocks;
    release(TAG, blocks[3]);
    release(TAG, blocks[1]);
    blocks[1] = allocate(TAG);
    blocks[3] = allocate(TAG);
    EXPECT_EQ(calls_of_free_all(TAG, 5), frees_of(blocks));
}

TEST_F(MemoryManager, VacantSlotsAreSoughtInTheInlineNodeThenInTheNewestThenInOlderOnes)
{
    tag_contents filled = fill(TAG, 39);
    block_list &blocks = filled.blocks;
    for (const size_t i : {20, 30, 7})
        release(TAG, blocks[i]);
    for (const size_t i : {7, 30, 20})
        blocks[i] = allocate(TAG);
    EXPECT_EQ(calls_of_free_all(TAG, 39), frees_of(joined({slice(blocks, 0, 13),
                                                           slice(blocks, 26, 39),
                                                           {filled.nodes[1]},
                                                           slice(blocks, 13, 26),
                                                           {filled.nodes[0]}})));
}

TEST_F(MemoryManager, AllocKeepsNothingWhicheverAllocationIsRefused)
{
    EXPECT_EQ(refusable_allocations([] { return allocate(TAG); }), 1u);         // the block
    EXPECT_EQ(refusable_allocations([] { return allocate(SECOND_TAG); }), 2u);  // and a record
    fill(OTHER_BUCKET_TAG, 13);
    EXPECT_EQ(refusable_allocations([] { return allocate(OTHER_BUCKET_TAG); }), 2u);  // and a node
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1);
    EXPECT_EQ(ZR_memm_free_all(OTHER_BUCKET_TAG), 14);
}

TEST_F(MemoryManager, AllocReleasesItsBlockWhenTheRecordIsRefused)
{
    allocate(TAG);
    trace.refuse_allocation(1);
    const call_list calls = trace.calls_during([] { EXPECT_EQ(allocate(SECOND_TAG), nullptr); });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1], calloc_call(RECORD_BYTES, nullptr));
    EXPECT_EQ(calls[2], free_call(calls[0].block));
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
}

TEST_F(MemoryManager, AllocReleasesItsBlockWhenTheNodeIsRefused)
{
    const tag_contents filled = fill(TAG, 13);
    trace.refuse_allocation(1);
    const call_list calls = trace.calls_during([] { EXPECT_EQ(allocate(TAG), nullptr); });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1], calloc_call(NODE_BYTES, nullptr));
    EXPECT_EQ(calls[2], free_call(calls[0].block));
    EXPECT_EQ(calls_of_free_all(TAG, 13), frees_of(filled.blocks));
}

// ---- Tags, buckets and records

TEST_F(MemoryManager, FirstTagOfEachBucketNeedsNoRecordAndTheOthersNeedOne)
{
    for (uint64_t tag = 1; tag <= BUCKETS; ++tag)
        EXPECT_EQ(sizes_of(calls_of_alloc(tag)), BLOCK_ONLY) << tag;
    for (uint64_t tag = BUCKETS + 1; tag <= 3 * BUCKETS; ++tag)
        EXPECT_EQ(sizes_of(calls_of_alloc(tag)), BLOCK_AND_RECORD) << tag;
    for (uint64_t tag = 1; tag <= 3 * BUCKETS; ++tag)
        EXPECT_EQ(sizes_of(calls_of_alloc(tag)), BLOCK_ONLY) << tag;
}

TEST_F(MemoryManager, TagsAreToldApartByAll64BitsAndBucketsByTheLowFive)
{
    const std::vector<uint64_t> tags = {5, (UINT64_C(1) << 63) + 5, (UINT64_C(1) << 32) + 5, 0x10000005};
    block_list blocks;
    for (const uint64_t tag : tags) {
        const call_list calls = calls_of_alloc(tag);
        EXPECT_EQ(sizes_of(calls), blocks.empty() ? BLOCK_ONLY : BLOCK_AND_RECORD) << tag;
        blocks.push_back(calls[0].block);
    }
    for (size_t i = 0; i < tags.size(); ++i)
        for (size_t j = 0; j < tags.size(); ++j)
            EXPECT_EQ(is_recorded(tags[i], blocks[j]), i == j);
}

TEST_F(MemoryManager, NewRecordsAreLinkedInSecondPlace)
{
    const tag_contents first = fill(TAG, 2);
    const tag_contents second = fill(SECOND_TAG, 2);
    const tag_contents third = fill(THIRD_TAG, 15);
    const tag_contents fourth = fill(FOURTH_TAG, 1);
    EXPECT_EQ(calls_of_cleanup(20), frees_of(joined({first.blocks,
                                                     fourth.blocks,
                                                     {fourth.record},
                                                     third.blocks,
                                                     third.nodes,
                                                     {third.record},
                                                     second.blocks,
                                                     {second.record}})));
}

TEST_F(MemoryManager, VacatedTableRecordStaysTheHeadOfItsChain)
{
    const tag_contents first = fill(TAG, 1);
    const tag_contents second = fill(SECOND_TAG, 1);
    EXPECT_EQ(release(TAG, first.blocks[0]), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    EXPECT_TRUE(is_recorded(SECOND_TAG, second.blocks[0]));

    EXPECT_EQ(sizes_of(calls_of_alloc(SECOND_TAG)), BLOCK_ONLY);
    EXPECT_EQ(sizes_of(calls_of_alloc(THIRD_TAG)), BLOCK_ONLY);  // claims the vacant record
    EXPECT_EQ(sizes_of(calls_of_alloc(TAG)), BLOCK_AND_RECORD);
    EXPECT_TRUE(is_recorded(SECOND_TAG, second.blocks[0]));
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 2);
    EXPECT_EQ(ZR_memm_free_all(THIRD_TAG), 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

// ---- Freeing

TEST_F(MemoryManager, FreeOfNullDoesNothing)
{
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(release(UNKNOWN_TAG, nullptr), nullptr); }), call_list{});
    const tag_contents filled = fill(TAG, 1);
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(release(TAG, nullptr), nullptr); }), call_list{});
    EXPECT_EQ(calls_of_free_all(TAG, 1), frees_of(filled.blocks));  // the count was left alone
}

TEST_F(MemoryManager, FreeReleasesTheBlockAndForgetsIt)
{
    const block_list blocks = fill(TAG, 3).blocks;
    const call_list calls = trace.calls_during([&] { EXPECT_EQ(release(TAG, blocks[1]), nullptr); });
    EXPECT_EQ(calls, frees_of({blocks[1]}));
    EXPECT_EQ(ZR_memm_flags(TAG, blocks[1]), 0u);
    EXPECT_EQ(trace.calls_during([&] { EXPECT_EQ(release(TAG, blocks[1]), blocks[1]); }), call_list{});
    EXPECT_EQ(calls_of_free_all(TAG, 2), frees_of({blocks[0], blocks[2]}));
}

TEST_F(MemoryManager, FreeUnderAnotherTagReturnsTheBlockAndLeavesItRecorded)
{
    LPVOID block = allocate(TAG);
    allocate(SECOND_TAG);
    for (const uint64_t tag : {SECOND_TAG, UNKNOWN_TAG, OTHER_BUCKET_TAG}) {
        EXPECT_EQ(trace.calls_during([&] { EXPECT_EQ(release(tag, block), block); }), call_list{});
        EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
    }
}

TEST_F(MemoryManager, FreeOfAForeignPointerReturnsIt)
{
    fill(TAG, 14);
    int foreign = 0;
    EXPECT_EQ(trace.calls_during([&] { EXPECT_EQ(release(TAG, &foreign), &foreign); }), call_list{});
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
}

// ---- The empty-node rule: what goes when the last block leaves a node. The same for both ways to leave.

namespace {

enum class removal { FREE, DISASSOCIATE };

class EmptyNodeRule : public MemoryManager, public testing::WithParamInterface<removal> {
protected:
    // Take a block out and return the bookkeeping that was released with it, in order.
    call_list remove(uint64_t tag, LPVOID block)
    {
        if (GetParam() == removal::DISASSOCIATE) {
            call_list calls =
                trace.calls_during([=] { EXPECT_EQ(ZR_memm_disassociate(tag, block), nullptr); });
            free(block);
            return calls;
        }
        call_list calls = trace.calls_during([=] { EXPECT_EQ(release(tag, block), nullptr); });
        if (calls.empty() || !(calls.front() == free_call(block))) {
            ADD_FAILURE() << "the block was not released first";
            return calls;
        }
        calls.erase(calls.begin());
        return calls;
    }

    void expect_remove_releases_nothing(uint64_t tag, const block_list &blocks)
    {
        for (LPVOID block : blocks)
            EXPECT_EQ(remove(tag, block), call_list{});
    }
};

INSTANTIATE_TEST_SUITE_P(WaysToLeave, EmptyNodeRule, testing::Values(removal::FREE, removal::DISASSOCIATE),
                         [](const testing::TestParamInfo<removal> &way) {
                             return std::string(way.param == removal::FREE ? "Free" : "Disassociate");
                         });

}  // namespace

TEST_P(EmptyNodeRule, NodeStaysWhileItHoldsABlock)
{
    const tag_contents filled = fill(TAG, 16);
    expect_remove_releases_nothing(TAG, slice(filled.blocks, 13, 15));
    EXPECT_EQ(calls_of_free_all(TAG, 14),
              frees_of(joined({slice(filled.blocks, 0, 13), {filled.blocks[15]}, filled.nodes})));
}

TEST_P(EmptyNodeRule, HeapNodeGoesWithItsLastBlock)
{
    const tag_contents filled = fill(TAG, 14);
    EXPECT_EQ(remove(TAG, filled.blocks[13]), frees_of(filled.nodes));
    EXPECT_EQ(calls_of_free_all(TAG, 13), frees_of(slice(filled.blocks, 0, 13)));
}

TEST_P(EmptyNodeRule, NodeLeavesTheChainWhereverItStands)
{
    // The chain runs: inline, nodes[2], nodes[1], nodes[0].
    for (const size_t emptied : {size_t{0}, size_t{1}, size_t{2}}) {
        const tag_contents filled = fill(TAG, 52);
        ASSERT_EQ(filled.nodes.size(), 3u);
        const auto blocks_of_node = [&](size_t i) {
            return slice(filled.blocks, 13 + 13 * i, 26 + 13 * i);
        };

        block_list to_remove = blocks_of_node(emptied);
        LPVOID last = to_remove.back();
        to_remove.pop_back();
        expect_remove_releases_nothing(TAG, to_remove);
        EXPECT_EQ(remove(TAG, last), frees_of({filled.nodes[emptied]}));

        block_list expected = slice(filled.blocks, 0, 13);
        for (size_t i = 3; i-- > 0;)
            if (i != emptied)
                expected = joined({expected, blocks_of_node(i), {filled.nodes[i]}});
        EXPECT_EQ(calls_of_free_all(TAG, 39), frees_of(expected));
    }
}

TEST_P(EmptyNodeRule, ChainStaysWholeInBothDirectionsAfterANodeLeft)
{
    // Backward links show when a node is taken out whose neighbour was taken out before.
    const tag_contents filled = fill(TAG, 52);
    for (const size_t node : {1, 2, 0})
        for (size_t i = 0; i < NODE_SLOTS; ++i)
            EXPECT_EQ(remove(TAG, filled.blocks[13 + 13 * node + i]),
                      i == 12 ? frees_of({filled.nodes[node]}) : call_list{});
    EXPECT_EQ(calls_of_free_all(TAG, 13), frees_of(slice(filled.blocks, 0, 13)));
}

TEST_P(EmptyNodeRule, RecordStaysWhenItsInlineNodeEmptiesBeforeAHeapNode)
{
    const tag_contents filled = fill(TAG, 15);
    expect_remove_releases_nothing(TAG, slice(filled.blocks, 0, 13));
    EXPECT_TRUE(is_recorded(TAG, filled.blocks[13]));
    EXPECT_TRUE(is_recorded(TAG, filled.blocks[14]));
    EXPECT_EQ(sizes_of(calls_of_alloc(SECOND_TAG)), BLOCK_AND_RECORD);  // the table's record is still taken

    expect_remove_releases_nothing(TAG, {filled.blocks[13]});
    EXPECT_EQ(remove(TAG, filled.blocks[14]), frees_of(filled.nodes));
    EXPECT_EQ(sizes_of(calls_of_alloc(THIRD_TAG)), BLOCK_AND_RECORD);  // and even now
    EXPECT_EQ(calls_of_free_all(TAG, 0), call_list{});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_P(EmptyNodeRule, EmptyRecordGoesWithTheNextBlockThatLeavesItsInlineNode)
{
    allocate(SECOND_TAG);  // so that the record is one on the heap
    const tag_contents filled = fill(TAG, 14);
    ASSERT_NE(filled.record, nullptr);
    expect_remove_releases_nothing(TAG, slice(filled.blocks, 0, 13));
    EXPECT_EQ(remove(TAG, filled.blocks[13]), frees_of(filled.nodes));

    LPVOID late = allocate(TAG);
    EXPECT_EQ(remove(TAG, late), frees_of({filled.record}));
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_P(EmptyNodeRule, EmptyHeapRecordGoesWithItsTag)
{
    allocate(SECOND_TAG);
    const tag_contents filled = fill(TAG, 14);
    for (size_t i = 0; i < 14; ++i)
        remove(TAG, filled.blocks[i]);
    EXPECT_EQ(calls_of_free_all(TAG, 0), frees_of({filled.record}));
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_P(EmptyNodeRule, EmptyRecordGoesInACleanup)
{
    const tag_contents first = fill(SECOND_TAG, 1);
    const tag_contents filled = fill(TAG, 14);
    for (size_t i = 0; i < 14; ++i)
        remove(TAG, filled.blocks[i]);
    EXPECT_EQ(calls_of_cleanup(1), frees_of({first.blocks[0], filled.record}));
}

TEST_P(EmptyNodeRule, InlineNodeIsUsedAgainAfterItEmptied)
{
    const tag_contents filled = fill(TAG, 15);
    expect_remove_releases_nothing(TAG, slice(filled.blocks, 0, 13));
    LPVOID late = allocate(TAG);
    EXPECT_EQ(calls_of_free_all(TAG, 3),
              frees_of(joined({{late}, slice(filled.blocks, 13, 15), filled.nodes})));
}

TEST_P(EmptyNodeRule, TableRecordTurnsVacantWithItsLastBlock)
{
    const block_list blocks = fill(TAG, 3).blocks;
    expect_remove_releases_nothing(TAG, blocks);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    EXPECT_EQ(sizes_of(calls_of_alloc(SECOND_TAG)), BLOCK_ONLY);
}

TEST_P(EmptyNodeRule, HeapRecordLeavesTheChainWhereverItStands)
{
    const std::vector<uint64_t> tags = {SECOND_TAG, THIRD_TAG, FOURTH_TAG};
    for (size_t emptied = 0; emptied < tags.size(); ++emptied) {
        const block_list first = fill(TAG, 1).blocks;
        std::vector<tag_contents> contents;
        for (const uint64_t tag : tags)
            contents.push_back(fill(tag, 1));

        EXPECT_EQ(remove(tags[emptied], contents[emptied].blocks[0]), frees_of({contents[emptied].record}));
        EXPECT_EQ(ZR_memm_free_all(tags[emptied]), -1);

        block_list expected = first;  // behind the table's record the chain runs newest first
        for (size_t i = tags.size(); i-- > 0;)
            if (i != emptied)
                expected = joined({expected, contents[i].blocks, {contents[i].record}});
        EXPECT_EQ(calls_of_cleanup(3), frees_of(expected));
    }
}

TEST_P(EmptyNodeRule, ChainOfRecordsStaysWholeInBothDirections)
{
    allocate(TAG);
    const tag_contents second = fill(SECOND_TAG, 1);
    const tag_contents third = fill(THIRD_TAG, 1);
    const tag_contents fourth = fill(FOURTH_TAG, 1);
    EXPECT_EQ(remove(THIRD_TAG, third.blocks[0]), frees_of({third.record}));
    EXPECT_EQ(remove(FOURTH_TAG, fourth.blocks[0]), frees_of({fourth.record}));
    EXPECT_EQ(remove(SECOND_TAG, second.blocks[0]), frees_of({second.record}));
    EXPECT_EQ(ZR_memm_cleanup(), 1);
}

// ---- Associating and disassociating

TEST_F(MemoryManager, AssociateOfNullRecordsNothing)
{
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_associate(TAG, nullptr, 10), nullptr); }),
              call_list{});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(MemoryManager, AssociateTakesABlockOver)
{
    LPVOID block = malloc(24);
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(ZR_memm_associate(TAG, block, 24), block); });
    EXPECT_EQ(calls, call_list{});
    EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(release(TAG, block), nullptr); }), frees_of({block}));
    EXPECT_EQ(ZR_memm_flags(TAG, block), 0u);
}

TEST_F(MemoryManager, AssociatedBlocksGoWithTheirTag)
{
    const block_list blocks = {malloc(1), calloc(2, 3), allocate(TAG)};
    ZR_memm_associate(TAG, blocks[0], 1);
    ZR_memm_associate(TAG, blocks[1], 6);
    EXPECT_EQ(calls_of_free_all(TAG, 3), frees_of({blocks[2], blocks[0], blocks[1]}));
}

TEST_F(MemoryManager, AssociateLeavesTheBlockToItsCallerWhenTheRecordIsRefused)
{
    LPVOID block = malloc(8);
    allocate(TAG);
    trace.refuse_allocation(0);
    const call_list calls =
        trace.calls_during([=] { EXPECT_EQ(ZR_memm_associate(SECOND_TAG, block, 8), nullptr); });
    EXPECT_EQ(calls, call_list{calloc_call(RECORD_BYTES, nullptr)});
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
    EXPECT_EQ(refusable_allocations([=] { return ZR_memm_associate(SECOND_TAG, block, 8); }), 1u);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1);
}

TEST_F(MemoryManager, AssociateLeavesTheBlockToItsCallerWhenTheNodeIsRefused)
{
    LPVOID block = malloc(8);
    fill(TAG, 13);
    trace.refuse_allocation(0);
    const call_list calls = trace.calls_during([=] { EXPECT_EQ(ZR_memm_associate(TAG, block, 8), nullptr); });
    EXPECT_EQ(calls, call_list{calloc_call(NODE_BYTES, nullptr)});
    EXPECT_EQ(ZR_memm_flags(TAG, block), 0u);
    EXPECT_EQ(refusable_allocations([=] { return ZR_memm_associate(TAG, block, 8); }), 1u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 14);
}

TEST_F(MemoryManager, BlockAssociatedTwiceIsRecordedTwice)
{
    LPVOID block = malloc(8);
    ZR_memm_associate(TAG, block, 8);
    ZR_memm_associate(TAG, block, 8);
    ZR_memm_associate(SECOND_TAG, block, 8);
    EXPECT_EQ(ZR_memm_disassociate(TAG, block), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
    EXPECT_EQ(ZR_memm_disassociate(TAG, block), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, block), 0u);
    EXPECT_EQ(ZR_memm_disassociate(TAG, block), block);
    EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block), 2u);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1);
}

TEST_F(MemoryManager, DisassociateGivesTheBlockBackUntouched)
{
    LPVOID block = allocate(TAG, 100);
    allocate(TAG);
    fill_with_byte(block, 0x3C, 100);
    EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(ZR_memm_disassociate(TAG, block), nullptr); }), call_list{});
    EXPECT_EQ(ZR_memm_flags(TAG, block), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    EXPECT_TRUE(is_filled_with_byte(block, 0x3C, 100));
    free(block);
}

TEST_F(MemoryManager, DisassociateOfAnUnrecordedBlockReturnsIt)
{
    LPVOID block = allocate(TAG);
    allocate(SECOND_TAG);
    for (const uint64_t tag : {SECOND_TAG, UNKNOWN_TAG, OTHER_BUCKET_TAG})
        EXPECT_EQ(trace.calls_during([=] { EXPECT_EQ(ZR_memm_disassociate(tag, block), block); }),
                  call_list{});
    EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
}

// A null block is not refused: it matches the first vacant slot, and the count of that slot's node falls.

TEST_F(MemoryManager, DisassociateOfNullUnderATagWithoutVacancyDoesNothing)
{
    EXPECT_EQ(ZR_memm_disassociate(UNKNOWN_TAG, nullptr), nullptr);
    EXPECT_EQ(ZR_memm_free_all(UNKNOWN_TAG), -1);

    const tag_contents filled = fill(TAG, 13);
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr); }),
              call_list{});
    EXPECT_EQ(sizes_of(calls_of_alloc(TAG)), BLOCK_AND_NODE);  // the node still counts as full
}

TEST_F(MemoryManager, DisassociateOfNullTakesAnOccupiedBlocksPlaceInTheCount)
{
    const block_list blocks = fill(TAG, 2).blocks;
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr); }),
              call_list{});
    EXPECT_TRUE(is_recorded(TAG, blocks[0]));
    EXPECT_TRUE(is_recorded(TAG, blocks[1]));

    // The node now counts one block, so the first to leave empties it, and takes the record along.
    EXPECT_EQ(release(TAG, blocks[0]), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, blocks[1]), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    free(blocks[1]);
}

TEST_F(MemoryManager, DisassociateOfNullUnderATagOfOneBlockForgetsTheBlock)
{
    allocate(TAG);
    const tag_contents filled = fill(SECOND_TAG, 1);
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_disassociate(SECOND_TAG, nullptr), nullptr); }),
              frees_of({filled.record}));
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
    free(filled.blocks[0]);
}

TEST_F(MemoryManager, DisassociateOfNullForgetsTheOnlyBlockOfAHeapNode)
{
    const tag_contents filled = fill(TAG, 14);
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr); }),
              frees_of(filled.nodes));
    EXPECT_EQ(ZR_memm_flags(TAG, filled.blocks[13]), 0u);
    EXPECT_EQ(ZR_memm_free_all(TAG), 13);
    free(filled.blocks[13]);
}

TEST_F(MemoryManager, InlineNodeIsClearedWhenItsCountRunsOutThoughAHeapNodeFollows)
{
    tag_contents filled = fill(TAG, 14);
    for (size_t i = 0; i < 11; ++i)
        release(TAG, filled.blocks[i]);
    ZR_memm_disassociate(TAG, nullptr);
    release(TAG, filled.blocks[11]);  // the count reaches 0 with block 12 still there
    EXPECT_EQ(ZR_memm_flags(TAG, filled.blocks[12]), 0u);
    EXPECT_EQ(calls_of_free_all(TAG, 1), frees_of({filled.blocks[13], filled.nodes[0]}));
    free(filled.blocks[12]);
}

TEST_F(MemoryManager, NodeThatPromisesAVacancyItDoesNotHaveIsPassedOver)
{
    tag_contents filled = fill(TAG, 12);
    ZR_memm_disassociate(TAG, nullptr);
    block_list &blocks = filled.blocks;
    blocks.push_back(allocate(TAG));  // the last slot, though the node counts 12 blocks only
    const call_list calls = calls_of_alloc(TAG);
    EXPECT_EQ(sizes_of(calls), BLOCK_AND_NODE);
    EXPECT_EQ(calls_of_free_all(TAG, 14), frees_of(joined({blocks, {calls[0].block, calls[1].block}})));
}

TEST_F(MemoryManager, CountOfAnEmptyNodeWrapsAndTheNodeIsSkippedFromThenOn)
{
    const tag_contents filled = fill(TAG, 14);
    for (size_t i = 0; i < 13; ++i)
        release(TAG, filled.blocks[i]);
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(ZR_memm_disassociate(TAG, nullptr), nullptr); }),
              call_list{});

    block_list expected = {filled.blocks[13]};
    for (size_t i = 1; i < 13; ++i) {
        const call_list calls = calls_of_alloc(TAG);
        EXPECT_EQ(sizes_of(calls), BLOCK_ONLY);
        expected.push_back(calls[0].block);
    }
    // The inline node has 13 vacant slots, but counts too many blocks to be looked at.
    const call_list calls = calls_of_alloc(TAG);
    EXPECT_EQ(sizes_of(calls), BLOCK_AND_NODE);
    EXPECT_EQ(calls_of_free_all(TAG, 14),
              frees_of(joined({{calls[0].block, calls[1].block}, expected, filled.nodes})));
}

TEST_F(MemoryManager, LookupsDoNotRelyOnTheCount)
{
    const tag_contents filled = fill(TAG, 14);
    for (size_t i = 1; i < 13; ++i)
        release(TAG, filled.blocks[i]);
    ZR_memm_disassociate(TAG, nullptr);  // the inline node now counts 0, is cleared and forgets block 0
    EXPECT_EQ(ZR_memm_flags(TAG, filled.blocks[0]), 0u);
    ZR_memm_disassociate(TAG, nullptr);  // and now counts 2^64 - 1
    EXPECT_TRUE(is_recorded(TAG, filled.blocks[13]));
    EXPECT_EQ(release(TAG, filled.blocks[13]), nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), 0);
    free(filled.blocks[0]);
}

TEST_F(MemoryManager, ClaimingARecordResetsAFalsifiedCount)
{
    const tag_contents filled = fill(TAG, 14);
    for (size_t i = 0; i < 13; ++i)
        release(TAG, filled.blocks[i]);
    ZR_memm_disassociate(TAG, nullptr);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    for (size_t i = 0; i < 13; ++i)
        EXPECT_EQ(sizes_of(calls_of_alloc(SECOND_TAG)), BLOCK_ONLY);
}

// ---- Reallocating

TEST_F(MemoryManager, ReallocOfAnUnrecordedBlockDoesNothing)
{
    LPVOID block = allocate(TAG);
    allocate(SECOND_TAG);
    for (const uint64_t tag : {SECOND_TAG, UNKNOWN_TAG, OTHER_BUCKET_TAG}) {
        const call_list calls = trace.calls_during([=] { EXPECT_EQ(reallocate(tag, block, 100), nullptr); });
        EXPECT_EQ(calls, call_list{});
    }
    EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
}

TEST_F(MemoryManager, ReallocMovesToANewBlockWithTheSmallerSizesContent)
{
    for (const uint64_t old_size : {1, 16, 100}) {
        for (const uint64_t new_size : {1, 15, 16, 17, 100, 5000}) {
            LPVOID block = allocate(TAG, old_size);
            fill_with_byte(block, 0x77, old_size);
            LPVOID moved = nullptr;
            const call_list calls = trace.calls_during([&] { moved = reallocate(TAG, block, new_size); });
            EXPECT_EQ(calls, (call_list{malloc_call(new_size, moved), free_call(block)}));
            EXPECT_NE(moved, block);
            EXPECT_EQ(ZR_memm_flags(TAG, moved), 2u);
            EXPECT_EQ(ZR_memm_flags(TAG, block), 0u);
            EXPECT_TRUE(is_filled_with_byte(moved, 0x77, std::min(old_size, new_size)));
            EXPECT_EQ(ZR_memm_free_all(TAG), 1);
        }
    }
}

TEST_F(MemoryManager, ReallocToSize0AsksTheHeapFor0BytesAndCopiesNothing)
{
    LPVOID block = allocate(TAG, 50);
    LPVOID moved = nullptr;
    const call_list calls = trace.calls_during([&] { moved = reallocate(TAG, block, 0); });
    EXPECT_EQ(calls, (call_list{malloc_call(0, moved), free_call(block)}));
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, moved), 2u);

    // Recorded with size 0: growing it again copies nothing, which would be a read beyond its end.
    LPVOID grown = nullptr;
    const call_list grow_calls = trace.calls_during([&] { grown = reallocate(TAG, moved, 50); });
    EXPECT_EQ(grow_calls, (call_list{malloc_call(50, grown), free_call(moved)}));
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(MemoryManager, ReallocCopiesTheRecordedSizeOfAnAssociatedBlock)
{
    LPVOID block = malloc(8);
    fill_with_byte(block, 0x11, 8);
    ZR_memm_associate(TAG, block, 8);
    LPVOID moved = reallocate(TAG, block, 1000);
    ASSERT_NE(moved, nullptr);
    EXPECT_TRUE(is_filled_with_byte(moved, 0x11, 8));
    fill_with_byte(moved, 0x22, 1000);
    moved = reallocate(TAG, moved, 2000);  // recorded with its new size
    ASSERT_NE(moved, nullptr);
    EXPECT_TRUE(is_filled_with_byte(moved, 0x22, 1000));
}

TEST_F(MemoryManager, ReallocGivesTheNewBlockASlotBeforeTheOldOneIsCleared)
{
    block_list blocks = fill(TAG, 3).blocks;
    LPVOID moved = reallocate(TAG, blocks[0], 16);
    LPVOID late = allocate(TAG);
    EXPECT_EQ(calls_of_free_all(TAG, 4), frees_of({late, blocks[1], blocks[2], moved}));
}

TEST_F(MemoryManager, ReallocUnderAFullTagNeedsANode)
{
    tag_contents filled = fill(TAG, 13);
    const call_list calls = trace.calls_during([&] { reallocate(TAG, filled.blocks[4], 16); });
    ASSERT_EQ(calls.size(), 3u);
    LPVOID moved = calls[0].block;
    LPVOID node = calls[1].block;
    EXPECT_EQ(calls, (call_list{malloc_call(16, moved), calloc_call(NODE_BYTES, node),
                                free_call(filled.blocks[4])}));
    filled.blocks[4] = allocate(TAG);
    EXPECT_EQ(calls_of_free_all(TAG, 14), frees_of(joined({filled.blocks, {moved, node}})));
}

TEST_F(MemoryManager, ReallocReleasesANodeThatItEmpties)
{
    tag_contents filled = fill(TAG, 14);
    release(TAG, filled.blocks[0]);
    const call_list calls =
        trace.calls_during([&] { filled.blocks[0] = reallocate(TAG, filled.blocks[13], 16); });
    EXPECT_EQ(calls, (call_list{malloc_call(16, filled.blocks[0]), free_call(filled.blocks[13]),
                                free_call(filled.nodes[0])}));
    EXPECT_EQ(calls_of_free_all(TAG, 13), frees_of(slice(filled.blocks, 0, 13)));
}

TEST_F(MemoryManager, ReallocOfNullActsAsAnAllocationWhereATagHasAVacantSlot)
{
    LPVOID first = allocate(TAG);
    LPVOID block = nullptr;
    const call_list calls = trace.calls_during([&] { block = reallocate(TAG, nullptr, 64); });
    EXPECT_EQ(calls, (call_list{malloc_call(64, block)}));
    ASSERT_NE(block, nullptr);
    fill_with_byte(block, 0x99, 64);
    EXPECT_EQ(calls_of_free_all(TAG, 2), frees_of({first, block}));
}

TEST_F(MemoryManager, ReallocOfNullNeedsARecordWithAVacantSlot)
{
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(reallocate(UNKNOWN_TAG, nullptr, 64), nullptr); }),
              call_list{});
    EXPECT_EQ(ZR_memm_free_all(UNKNOWN_TAG), -1);
    for (const size_t count : {13, 26}) {
        fill(TAG, count);
        EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(reallocate(TAG, nullptr, 64), nullptr); }), call_list{});
        EXPECT_EQ(ZR_memm_free_all(TAG), static_cast<LONG>(count));
    }
}

TEST_F(MemoryManager, ReallocOfNullLeavesEverythingAloneWhenRefused)
{
    allocate(TAG);
    trace.refuse_allocation(0);
    EXPECT_EQ(trace.calls_during([] { EXPECT_EQ(reallocate(TAG, nullptr, 64), nullptr); }),
              call_list{malloc_call(64, nullptr)});
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(MemoryManager, RefusedReallocLosesTheBlock)
{
    const block_list blocks = fill(TAG, 2).blocks;
    trace.refuse_allocation(0);
    EXPECT_EQ(trace.calls_during([&] { EXPECT_EQ(reallocate(TAG, blocks[0], 64), nullptr); }),
              (call_list{malloc_call(64, nullptr), free_call(blocks[0])}));
    EXPECT_EQ(ZR_memm_flags(TAG, blocks[0]), 0u);
    EXPECT_EQ(calls_of_free_all(TAG, 1), frees_of({blocks[1]}));
}

TEST_F(MemoryManager, RefusedReallocOfATagsOnlyBlockLosesTheRecordToo)
{
    allocate(TAG);
    const tag_contents filled = fill(SECOND_TAG, 1);
    trace.refuse_allocation(0);
    EXPECT_EQ(trace.calls_during([&] { EXPECT_EQ(reallocate(SECOND_TAG, filled.blocks[0], 64), nullptr); }),
              (call_list{malloc_call(64, nullptr), free_call(filled.blocks[0]), free_call(filled.record)}));
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
}

TEST_F(MemoryManager, ReallocLosesTheBlockWhenTheNodeIsRefused)
{
    const block_list blocks = fill(TAG, 13).blocks;
    trace.refuse_allocation(1);
    const call_list calls = trace.calls_during([&] { EXPECT_EQ(reallocate(TAG, blocks[0], 64), nullptr); });
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls, (call_list{malloc_call(64, calls[0].block), calloc_call(NODE_BYTES, nullptr),
                                free_call(calls[0].block), free_call(blocks[0])}));
    EXPECT_EQ(calls_of_free_all(TAG, 12), frees_of(slice(blocks, 1, 13)));
}

// ---- Releasing a tag

TEST_F(MemoryManager, FreeAllOfAnUnknownTagGivesMinus1)
{
    allocate(TAG);
    EXPECT_EQ(calls_of_free_all(UNKNOWN_TAG, -1), call_list{});
    EXPECT_EQ(calls_of_free_all(OTHER_BUCKET_TAG, -1), call_list{});
}

TEST_F(MemoryManager, FreeAllReleasesThatTagAndNoOther)
{
    const block_list kept = {allocate(TAG), allocate(OTHER_BUCKET_TAG)};
    const tag_contents released = fill(SECOND_TAG, 1000);
    LPVOID also_kept = allocate(THIRD_TAG);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1000);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), -1);
    EXPECT_TRUE(is_recorded(TAG, kept[0]));
    EXPECT_TRUE(is_recorded(OTHER_BUCKET_TAG, kept[1]));
    EXPECT_TRUE(is_recorded(THIRD_TAG, also_kept));
    EXPECT_EQ(trace.unreleased_blocks().size(), 4u);  // the blocks kept, and the third tag's record
}

TEST_F(MemoryManager, FreeAllReleasesAHeapRecordLast)
{
    allocate(TAG);
    const tag_contents filled = fill(SECOND_TAG, 15);
    EXPECT_EQ(calls_of_free_all(SECOND_TAG, 15),
              frees_of(joined({filled.blocks, filled.nodes, {filled.record}})));
}

TEST_F(MemoryManager, FreeAllTakesARecordOutOfTheChainWhereverItStands)
{
    const std::vector<uint64_t> tags = {SECOND_TAG, THIRD_TAG, FOURTH_TAG};
    for (size_t released = 0; released < tags.size(); ++released) {
        const block_list first = fill(TAG, 1).blocks;
        std::vector<tag_contents> contents;
        for (const uint64_t tag : tags)
            contents.push_back(fill(tag, 1));
        EXPECT_EQ(ZR_memm_free_all(tags[released]), 1);

        block_list expected = first;
        for (size_t i = tags.size(); i-- > 0;)
            if (i != released)
                expected = joined({expected, contents[i].blocks, {contents[i].record}});
        EXPECT_EQ(calls_of_cleanup(3), frees_of(expected));
    }
}

TEST_F(MemoryManager, FreeAllVacatesTheTablesRecordAndKeepsItsChain)
{
    fill(TAG, 30);
    const tag_contents second = fill(SECOND_TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 30);
    EXPECT_TRUE(is_recorded(SECOND_TAG, second.blocks[0]));
    for (size_t i = 0; i < 13; ++i)  // claimed again, with an inline node as good as new
        EXPECT_EQ(sizes_of(calls_of_alloc(THIRD_TAG)), BLOCK_ONLY);
    EXPECT_EQ(ZR_memm_free_all(THIRD_TAG), 13);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 1);
}

// ---- Flags

TEST_F(MemoryManager, FlagsTellWhetherABlockIsRecordedUnderATag)
{
    EXPECT_EQ(ZR_MEMM_FLAG_RECORDED, 2u);
    const tag_contents filled = fill(TAG, 30);
    LPVOID other = allocate(SECOND_TAG);
    const call_list calls = trace.calls_during([&] {
        for (LPVOID block : filled.blocks) {
            EXPECT_EQ(ZR_memm_flags(TAG, block), 2u);
            EXPECT_EQ(ZR_memm_flags(SECOND_TAG, block), 0u);
            EXPECT_EQ(ZR_memm_flags(UNKNOWN_TAG, block), 0u);
        }
        EXPECT_EQ(ZR_memm_flags(TAG, other), 0u);
        EXPECT_EQ(ZR_memm_flags(TAG, &other), 0u);
        EXPECT_EQ(ZR_memm_flags(TAG, static_cast<char *>(other) + 1), 0u);
    });
    EXPECT_EQ(calls, call_list{});
}

TEST_F(MemoryManager, FlagsOfNullAre0WithAndWithoutAVacantSlot)
{
    EXPECT_EQ(ZR_memm_flags(UNKNOWN_TAG, nullptr), 0u);
    fill(TAG, 12);
    EXPECT_EQ(ZR_memm_flags(TAG, nullptr), 0u);
    allocate(TAG);
    EXPECT_EQ(ZR_memm_flags(TAG, nullptr), 0u);
}

// ---- Cleanup

TEST_F(MemoryManager, CleanupReleasesBucketAfterBucketRecordAfterRecord)
{
    const tag_contents in_bucket_31 = fill(31, 2);
    const tag_contents in_bucket_5 = fill(TAG, 28);
    const tag_contents behind_it = fill(SECOND_TAG, 14);
    const tag_contents in_bucket_0 = fill(32, 1);
    const tag_contents newest = fill(THIRD_TAG, 1);
    EXPECT_EQ(calls_of_cleanup(46), frees_of(joined({in_bucket_0.blocks,
                                                     slice(in_bucket_5.blocks, 0, 13),
                                                     slice(in_bucket_5.blocks, 26, 28),
                                                     {in_bucket_5.nodes[1]},
                                                     slice(in_bucket_5.blocks, 13, 26),
                                                     {in_bucket_5.nodes[0]},
                                                     newest.blocks,
                                                     {newest.record},
                                                     behind_it.blocks,
                                                     behind_it.nodes,
                                                     {behind_it.record},
                                                     in_bucket_31.blocks})));
}

TEST_F(MemoryManager, SecondCleanupInARowReleasesNothing)
{
    fill(TAG, 20);
    fill(SECOND_TAG, 20);
    EXPECT_EQ(ZR_memm_cleanup(), 40);
    EXPECT_EQ(calls_of_cleanup(0), call_list{});
}

TEST_F(MemoryManager, CleanupReachesRecordsBehindAVacantOne)
{
    allocate(TAG);
    const tag_contents second = fill(SECOND_TAG, 1);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
    EXPECT_EQ(calls_of_cleanup(1), frees_of({second.blocks[0], second.record}));
}

TEST_F(MemoryManager, TableIsAsAtLoadAfterACleanup)
{
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, OTHER_BUCKET_TAG})
        fill(tag, 14);
    ZR_memm_cleanup();
    for (const uint64_t tag : {TAG, SECOND_TAG, THIRD_TAG, OTHER_BUCKET_TAG})
        EXPECT_EQ(ZR_memm_free_all(tag), -1);
    for (size_t i = 0; i < 13; ++i)
        EXPECT_EQ(sizes_of(calls_of_alloc(SECOND_TAG)), BLOCK_ONLY);
    EXPECT_EQ(sizes_of(calls_of_alloc(SECOND_TAG)), BLOCK_AND_NODE);
    EXPECT_EQ(sizes_of(calls_of_alloc(TAG)), BLOCK_AND_RECORD);
}

TEST_F(MemoryManager, NothingButRecordingABlockNeedsTheHeap)
{
    const block_list blocks = fill(TAG, 30).blocks;
    fill(SECOND_TAG, 30);
    fill(THIRD_TAG, 30);
    trace.refuse_all_allocations();
    const unsigned before = trace.allocation_count();
    EXPECT_EQ(release(TAG, blocks[0]), nullptr);
    EXPECT_EQ(ZR_memm_disassociate(TAG, blocks[29]), nullptr);
    EXPECT_EQ(ZR_memm_flags(TAG, blocks[1]), 2u);
    EXPECT_EQ(ZR_memm_free_all(SECOND_TAG), 30);
    EXPECT_EQ(ZR_memm_cleanup(), 58);
    EXPECT_EQ(trace.allocation_count(), before);
    free(blocks[29]);
}

// ---- Tag 0, which looks like the mark of a vacant record. Tags 32 and 64 share its bucket.

TEST_F(MemoryManager, Tag0UsesTheVacantRecordOfBucket0WithoutClaimingIt)
{
    const tag_contents filled = fill(0, 14);
    EXPECT_EQ(filled.record, nullptr);
    ASSERT_EQ(filled.nodes.size(), 1u);
    for (LPVOID block : filled.blocks)
        EXPECT_EQ(ZR_memm_flags(0, block), 2u);
    EXPECT_EQ(calls_of_free_all(0, 14), frees_of(joined({filled.blocks, filled.nodes})));
}

TEST_F(MemoryManager, VacantRecordOfBucket0PassesForTag0s)
{
    EXPECT_EQ(calls_of_free_all(0, 0), call_list{});  // not -1
    LPVOID block = nullptr;
    const call_list calls = trace.calls_during([&] { block = reallocate(0, nullptr, 8); });
    EXPECT_EQ(calls, (call_list{malloc_call(8, block)}));
    EXPECT_EQ(ZR_memm_flags(0, block), 2u);
    EXPECT_EQ(release(0, block), nullptr);
    EXPECT_EQ(ZR_memm_flags(0, block), 0u);

    allocate(32);
    EXPECT_EQ(ZR_memm_free_all(0), -1);  // claimed: now tag 0 is a tag without record
}

TEST_F(MemoryManager, CleanupReleasesBlocksOfTag0)
{
    const tag_contents filled = fill(0, 15);
    EXPECT_EQ(calls_of_cleanup(15), frees_of(joined({filled.blocks, filled.nodes})));
}

TEST_F(MemoryManager, ClaimingTheRecordOfBucket0DiscardsTag0sBookkeeping)
{
    const tag_contents lost = fill(0, 15);
    LPVOID first = allocate(32);
    for (LPVOID block : lost.blocks) {
        EXPECT_EQ(ZR_memm_flags(0, block), 0u);
        EXPECT_EQ(release(0, block), block);
    }
    EXPECT_EQ(ZR_memm_free_all(0), -1);

    block_list blocks = {first};  // the inline node was zeroed: it takes 13 blocks, and no node follows
    while (blocks.size() < 13) {
        const call_list calls = calls_of_alloc(32);
        EXPECT_EQ(sizes_of(calls), BLOCK_ONLY);
        blocks.push_back(calls[0].block);
    }
    EXPECT_EQ(calls_of_cleanup(13), frees_of(blocks));

    for (LPVOID block : joined({lost.blocks, lost.nodes}))
        free(block);
}

TEST_F(MemoryManager, RecordOfTag0OnTheHeapIsHiddenByAVacantTableRecord)
{
    LPVOID claimant = allocate(32);
    const tag_contents filled = fill(0, 2);
    ASSERT_NE(filled.record, nullptr);
    EXPECT_EQ(ZR_memm_flags(0, filled.blocks[0]), 2u);

    EXPECT_EQ(release(32, claimant), nullptr);
    EXPECT_EQ(ZR_memm_flags(0, filled.blocks[0]), 0u);
    EXPECT_EQ(release(0, filled.blocks[0]), filled.blocks[0]);
    EXPECT_EQ(calls_of_free_all(0, 0), call_list{});
    EXPECT_EQ(sizes_of(calls_of_alloc(0)), BLOCK_ONLY);  // recorded in the vacant record instead
    EXPECT_EQ(ZR_memm_free_all(0), 1);

    allocate(64);  // claims the table's record, and lookups pass it again
    EXPECT_EQ(ZR_memm_flags(0, filled.blocks[0]), 2u);
    EXPECT_EQ(calls_of_free_all(0, 2), frees_of(joined({filled.blocks, {filled.record}})));
}

TEST_F(MemoryManager, CleanupReleasesAHiddenRecordOfTag0)
{
    LPVOID claimant = allocate(32);
    const tag_contents filled = fill(0, 2);
    release(32, claimant);
    EXPECT_EQ(calls_of_cleanup(2), frees_of(joined({filled.blocks, {filled.record}})));
}

TEST_F(MemoryManager, DisassociateOfNullUnderTag0FalsifiesTheVacantRecordUntilItIsClaimed)
{
    EXPECT_EQ(ZR_memm_disassociate(0, nullptr), nullptr);
    const call_list calls = calls_of_alloc(0);
    EXPECT_EQ(sizes_of(calls), BLOCK_AND_NODE);  // the count has wrapped
    for (size_t i = 0; i < 13; ++i)
        EXPECT_EQ(sizes_of(calls_of_alloc(32)), BLOCK_ONLY);
    free(calls[0].block);
    free(calls[1].block);
}

// ---- Everything at random, against a model

namespace {

// Walks through the heap calls of one operation as the model says they must be.
class replay {
public:
    explicit replay(const call_list &recorded) : calls(recorded) {}

    // The next call allocates; null when it was refused.
    LPVOID allocation(heap_call::kind_of_call kind, size_t size)
    {
        if (!has_next())
            return nullptr;
        const heap_call &call = calls[next++];
        EXPECT_EQ(call.kind, kind);
        EXPECT_EQ(call.size, size);
        return call.block;
    }

    void release_of(LPVOID block)
    {
        if (has_next()) {
            EXPECT_EQ(calls[next], free_call(block));
            ++next;
        }
    }

    void finish() const { EXPECT_EQ(next, calls.size()) << "more heap calls than expected"; }

private:
    bool has_next() const
    {
        EXPECT_LT(next, calls.size()) << "fewer heap calls than expected";
        return next < calls.size();
    }

    const call_list &calls;
    size_t next = 0;
};

// Which block is in which slot of which node of which record, for tags other than 0.
class manager_model {
public:
    struct block_facts {
        uint64_t tag;
        size_t size;
        unsigned char filling;
    };

    LPVOID allocate(replay &heap, uint64_t tag, size_t size)
    {
        LPVOID block = heap.allocation(heap_call::MALLOC, size);
        if (block != nullptr && !record(heap, tag, block, size)) {
            heap.release_of(block);
            return nullptr;
        }
        return block;
    }

    bool record(replay &heap, uint64_t tag, LPVOID block, size_t size)
    {
        if (!has_record(tag) && !add_record(heap, tag))
            return false;
        LPVOID *slot = vacant_slot(tag);
        if (slot == nullptr) {
            LPVOID address = heap.allocation(heap_call::CALLOC, NODE_BYTES);
            if (address == nullptr)
                return false;
            std::vector<node> &nodes = records[tag].nodes;
            nodes.insert(nodes.begin() + 1, node{address, {}});
            slot = &nodes[1].slots[0];
        }
        *slot = block;
        blocks[block] = {tag, size, 0};
        return true;
    }

    // What follows once a block is no longer recorded.
    void forget(replay &heap, LPVOID block)
    {
        const uint64_t tag = blocks.at(block).tag;
        blocks.erase(block);
        std::vector<node> &nodes = records[tag].nodes;
        for (size_t i = 0; i < nodes.size(); ++i) {
            LPVOID *end = nodes[i].slots + NODE_SLOTS;
            LPVOID *slot = std::find(nodes[i].slots, end, block);
            if (slot == end)
                continue;
            *slot = nullptr;
            if (std::count(nodes[i].slots, end, nullptr) != static_cast<ptrdiff_t>(NODE_SLOTS))
                return;
            if (i > 0) {
                heap.release_of(nodes[i].address);
                nodes.erase(nodes.begin() + static_cast<ptrdiff_t>(i));
            } else if (nodes.size() == 1) {
                remove_record(heap, tag);
            }
            return;
        }
        FAIL() << "the model has lost a block";
    }

    void release(replay &heap, LPVOID block)
    {
        heap.release_of(block);
        forget(heap, block);
    }

    LPVOID reallocate(replay &heap, LPVOID block, size_t size)
    {
        LPVOID moved = allocate(heap, blocks.at(block).tag, size);
        if (moved != nullptr)
            blocks[moved].filling = blocks[block].filling;
        release(heap, block);
        return moved;
    }

    LONG release_tag(replay &heap, uint64_t tag)
    {
        if (!has_record(tag))
            return -1;
        const LONG released = release_blocks(heap, tag);
        remove_record(heap, tag);
        return released;
    }

    LONG release_everything(replay &heap)
    {
        LONG released = 0;
        for (uint64_t bucket = 0; bucket < BUCKETS; ++bucket) {
            if (table.count(bucket) != 0)
                released += release_blocks(heap, table[bucket]);
            for (const uint64_t tag : chains[bucket]) {
                released += release_blocks(heap, tag);
                heap.release_of(records[tag].address);
            }
        }
        *this = {};
        return released;
    }

    bool has_record(uint64_t tag) const { return records.count(tag) != 0; }

    LPVOID *vacant_slot(uint64_t tag)
    {
        for (node &each : records[tag].nodes)
            for (LPVOID &slot : each.slots)
                if (slot == nullptr)
                    return &slot;
        return nullptr;
    }

    std::map<LPVOID, block_facts> blocks;

private:
    struct node {
        LPVOID address;  // null for the inline one
        LPVOID slots[NODE_SLOTS];
    };
    struct tag_record {
        LPVOID address = nullptr;  // null for one of the table
        std::vector<node> nodes = {node{}};
    };

    bool add_record(replay &heap, uint64_t tag)
    {
        const uint64_t bucket = tag % BUCKETS;
        if (table.count(bucket) == 0) {
            table[bucket] = tag;
            records[tag] = {};
            return true;
        }
        LPVOID address = heap.allocation(heap_call::CALLOC, RECORD_BYTES);
        if (address == nullptr)
            return false;
        records[tag].address = address;
        chains[bucket].insert(chains[bucket].begin(), tag);
        return true;
    }

    void remove_record(replay &heap, uint64_t tag)
    {
        const uint64_t bucket = tag % BUCKETS;
        if (records[tag].address == nullptr) {
            table.erase(bucket);
        } else {
            heap.release_of(records[tag].address);
            std::vector<uint64_t> &chain = chains[bucket];
            chain.erase(std::find(chain.begin(), chain.end(), tag));
        }
        records.erase(tag);
    }

    LONG release_blocks(replay &heap, uint64_t tag)
    {
        LONG released = 0;
        for (const node &each : records[tag].nodes) {
            for (LPVOID block : each.slots) {
                if (block != nullptr) {
                    heap.release_of(block);
                    blocks.erase(block);
                    ++released;
                }
            }
            if (each.address != nullptr)
                heap.release_of(each.address);
        }
        return released;
    }

    std::map<uint64_t, tag_record> records;
    std::map<uint64_t, uint64_t> table;                // bucket to the tag that has claimed its record
    std::map<uint64_t, std::vector<uint64_t>> chains;  // bucket to the tags behind that record, in order
};

class MemoryManagerModel : public MemoryManager {
protected:
    size_t random_below(size_t limit) { return random() % limit; }

    uint64_t random_tag()
    {
        static constexpr uint64_t TAGS[] = {5,  37, 69,         101,        UINT64_C(0xF000000000000005),
                                            32, 64, 0x10000000, 0x10000020, 31};
        return TAGS[random_below(std::size(TAGS))];
    }

    LPVOID random_block()
    {
        auto place = model.blocks.begin();
        std::advance(place, static_cast<ptrdiff_t>(random_below(model.blocks.size())));
        return place->first;
    }

    void fill_at_random(LPVOID block)
    {
        manager_model::block_facts &facts = model.blocks.at(block);
        facts.filling = static_cast<unsigned char>(random());
        fill_with_byte(block, facts.filling, facts.size);
    }

    void expect_filled(LPVOID block, size_t size)
    {
        EXPECT_TRUE(is_filled_with_byte(block, model.blocks.at(block).filling, size));
    }

    // The heap calls of `operation`, one of which is now and then refused.
    template <typename Operation> call_list observe(Operation operation)
    {
        trace.clear();
        if (random_below(8) == 0)
            trace.refuse_allocation(static_cast<unsigned>(random_below(3)));
        operation();
        trace.allow_allocations();
        return trace.calls();
    }

    void allocate_one(uint64_t tag, bool by_realloc_of_null)
    {
        const size_t size = random_below(200);
        LPVOID block = nullptr;
        const call_list calls = observe(
            [&] { block = by_realloc_of_null ? reallocate(tag, nullptr, size) : allocate(tag, size); });
        replay heap(calls);
        const bool can_succeed =
            !by_realloc_of_null || (model.has_record(tag) && model.vacant_slot(tag) != nullptr);
        EXPECT_EQ(can_succeed ? model.allocate(heap, tag, size) : nullptr, block);
        heap.finish();
        if (block != nullptr)
            fill_at_random(block);
    }

    void associate_one(uint64_t tag)
    {
        const size_t size = random_below(200);
        LPVOID block = malloc(size);
        LPVOID result = nullptr;
        const call_list calls = observe([&] { result = ZR_memm_associate(tag, block, size); });
        replay heap(calls);
        const bool is_expected = model.record(heap, tag, block, size);
        heap.finish();
        EXPECT_EQ(result, is_expected ? block : nullptr);
        if (is_expected)
            fill_at_random(block);
        else
            free(block);
    }

    void reallocate_one(LPVOID block)
    {
        const manager_model::block_facts before = model.blocks.at(block);
        const size_t size = random_below(200);
        LPVOID moved = nullptr;
        const call_list calls = observe([&] { moved = reallocate(before.tag, block, size); });
        replay heap(calls);
        EXPECT_EQ(model.reallocate(heap, block, size), moved);
        heap.finish();
        if (moved != nullptr) {
            expect_filled(moved, std::min(size, before.size));
            fill_at_random(moved);
        }
    }

    void remove_one(LPVOID block, bool by_free)
    {
        const manager_model::block_facts facts = model.blocks.at(block);
        expect_filled(block, facts.size);
        LPVOID result = block;
        const call_list calls = observe(
            [&] { result = by_free ? release(facts.tag, block) : ZR_memm_disassociate(facts.tag, block); });
        EXPECT_EQ(result, nullptr);
        replay heap(calls);
        if (by_free) {
            model.release(heap, block);
        } else {
            model.forget(heap, block);
            free(block);
        }
        heap.finish();
    }

    // Under a tag of any kind; nothing may happen unless it is the block's own.
    void probe(LPVOID block, uint64_t tag)
    {
        const bool is_own_tag = model.blocks.at(block).tag == tag;
        const call_list calls = observe([&] {
            EXPECT_EQ(ZR_memm_flags(tag, block), is_own_tag ? 2u : 0u);
            if (!is_own_tag) {
                EXPECT_EQ(release(tag, block), block);
                EXPECT_EQ(ZR_memm_disassociate(tag, block), block);
                EXPECT_EQ(reallocate(tag, block, 10), nullptr);
            }
        });
        EXPECT_EQ(calls, call_list{});
    }

    void release_tag(uint64_t tag)
    {
        LONG released = 0;
        const call_list calls = observe([&] { released = ZR_memm_free_all(tag); });
        replay heap(calls);
        EXPECT_EQ(released, model.release_tag(heap, tag));
        heap.finish();
    }

    void release_everything()
    {
        LONG released = 0;
        const call_list calls = observe([&] { released = ZR_memm_cleanup(); });
        replay heap(calls);
        EXPECT_EQ(released, model.release_everything(heap));
        heap.finish();
    }

    // Phases of growth and of decline in turn, so that tags need several nodes and lose them again.
    void take_random_step(int step)
    {
        const size_t allocations = step / 1000 % 2 == 0 ? 450 : 250;
        const size_t choice = random_below(1000);
        if (choice < 1)
            release_everything();
        else if (choice < 6)
            release_tag(random_tag());
        else if (choice < 30)
            allocate_one(random_tag(), true);
        else if (choice < 80)
            associate_one(random_tag());
        else if (choice < 80 + allocations)
            allocate_one(random_tag(), false);
        else if (model.blocks.empty())
            return;
        else if (choice < 750)
            remove_one(random_block(), choice % 4 != 0);
        else if (choice < 900)
            reallocate_one(random_block());
        else
            probe(random_block(), random_tag());
    }

    std::mt19937 random{17};
    manager_model model;
};

}  // namespace

TEST_F(MemoryManagerModel, RandomOperationsAgreeWithTheModel)
{
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        take_random_step(step);
    }
    release_everything();
}
