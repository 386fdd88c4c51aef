// What the memory manager asks of the heap.

#include "failures/heap_traffic.h"
#include "memory/dt_types_memory_fixture.h"

namespace {

std::vector<LPVOID> blocks;

void hold(uint64_t tag, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        blocks.push_back(allocate(tag, 10));
}

// Release blocks by their numbers in the table, which count from 1.
void release_numbers(uint64_t tag, size_t first, size_t last)
{
    for (size_t number = first; number <= last; ++number)
        release(tag, blocks[number - 1]);
}

void nothing()
{
    blocks.clear();
}

template <size_t Count> void blocks_of_one_tag()
{
    nothing();
    hold(TAG, Count);
}

void a_block_of_each_of_two_tags()
{
    blocks_of_one_tag<1>();
    hold(SECOND_TAG, 1);
}

void a_block_of_each_of_three_tags()
{
    a_block_of_each_of_two_tags();
    hold(THIRD_TAG, 1);
}

void only_the_last_inline_block_and_one_of_a_node()
{
    blocks_of_one_tag<14>();
    release_numbers(TAG, 1, 12);
}

// The block comes from the C library's heap, as a client's would.
template <size_t Count> void an_outside_block_and_blocks_of_one_tag()
{
    blocks_of_one_tag<Count>();
    blocks.insert(blocks.begin(), malloc(10));
}

template <uint64_t Tag> void associate()
{
    ZR_memm_associate(Tag, blocks[0], 10);
}

}  // namespace

traffic_section memory_traffic()
{
    const auto alloc = [] {
        allocate(TAG, 10);
    };
    const auto alloc_under_second_tag = [] {
        allocate(SECOND_TAG, 10);
    };
    const auto grow_first = [] {
        blocks.push_back(reallocate(TAG, blocks[0], 20));
    };
    const auto grow_second_tags = [] {
        blocks.push_back(reallocate(SECOND_TAG, blocks[1], 20));
    };

    return {
        "Memory manager",
        "A *record* is the 360 bytes that keep a tag of which the bucket's own record is taken; a *node* the "
        "336 bytes that keep 13 blocks more of a tag. Blocks are of 10 bytes.",
        {},
        "block",
        {
            {"`ZR_memm_alloc`", "first block of a vacant bucket", nothing, alloc, {"malloc 10 -> block 1"}},
            {"`ZR_memm_alloc`",
             "2nd to 13th block of a tag",
             blocks_of_one_tag<12>,
             alloc,
             {"malloc 10 -> block 13"}},
            {"`ZR_memm_alloc`", "of 0 bytes", nothing, [] { allocate(TAG, 0); }, {"malloc 0 -> block 1"}},
            {"`ZR_memm_alloc`",
             "first block of a second tag in a bucket",
             blocks_of_one_tag<1>,
             alloc_under_second_tag,
             {"malloc 10 -> block 2", "calloc 360 -> record 1"}},
            {"`ZR_memm_alloc`",
             "14th block of a tag",
             blocks_of_one_tag<13>,
             alloc,
             {"malloc 10 -> block 14", "calloc 336 -> node 1"}},
            {"`ZR_memm_alloc`",
             "15th to 26th block of a tag",
             blocks_of_one_tag<14>,
             alloc,
             {"malloc 10 -> block 15"}},
            {"`ZR_memm_alloc`",
             "27th block of a tag",
             blocks_of_one_tag<26>,
             alloc,
             {"malloc 10 -> block 27", "calloc 336 -> node 2"}},
            {"`ZR_memm_alloc`", "the block is refused", nothing, alloc, {"malloc 10 refused"}, 1},
            {"`ZR_memm_alloc`",
             "the record is refused",
             blocks_of_one_tag<1>,
             alloc_under_second_tag,
             {"malloc 10 -> block 2", "calloc 360 refused", "free block 2"},
             2},
            {"`ZR_memm_alloc`",
             "the node is refused",
             blocks_of_one_tag<13>,
             alloc,
             {"malloc 10 -> block 14", "calloc 336 refused", "free block 14"},
             2},

            {"`ZR_memm_associate`",
             "first block of a vacant bucket",
             an_outside_block_and_blocks_of_one_tag<0>,
             associate<TAG>,
             {}},
            {"`ZR_memm_associate`",
             "first block of a second tag in a bucket",
             an_outside_block_and_blocks_of_one_tag<1>,
             associate<SECOND_TAG>,
             {"calloc 360 -> record 1"}},
            {"`ZR_memm_associate`",
             "14th block of a tag",
             an_outside_block_and_blocks_of_one_tag<13>,
             associate<TAG>,
             {"calloc 336 -> node 1"}},
            {"`ZR_memm_associate`",
             "the record is refused",
             an_outside_block_and_blocks_of_one_tag<1>,
             associate<SECOND_TAG>,
             {"calloc 360 refused"},
             1},
            {"`ZR_memm_associate`",
             "the node is refused",
             an_outside_block_and_blocks_of_one_tag<13>,
             associate<TAG>,
             {"calloc 336 refused"},
             1},

            {"`ZR_memm_realloc`",
             "a slot is vacant",
             blocks_of_one_tag<1>,
             grow_first,
             {"malloc 20 -> block 2", "free block 1"}},
            {"`ZR_memm_realloc`",
             "to the same size",
             blocks_of_one_tag<1>,
             [] { blocks.push_back(reallocate(TAG, blocks[0], 10)); },
             {"malloc 10 -> block 2", "free block 1"}},
            {"`ZR_memm_realloc`",
             "13 blocks are recorded",
             blocks_of_one_tag<13>,
             grow_first,
             {"malloc 20 -> block 14", "calloc 336 -> node 1", "free block 1"}},
            {"`ZR_memm_realloc`",
             "the block leaves a node empty",
             [] {
                 blocks_of_one_tag<14>();
                 release_numbers(TAG, 1, 1);
             },
             [] { blocks.push_back(reallocate(TAG, blocks[13], 20)); },
             {"malloc 20 -> block 15", "free block 14", "free node 1"}},
            {"`ZR_memm_realloc`",
             "the new block is refused",
             blocks_of_one_tag<1>,
             grow_first,
             {"malloc 20 refused", "free block 1"},
             1},
            {"`ZR_memm_realloc`",
             "the new block is refused, the old one is its tag's last",
             a_block_of_each_of_two_tags,
             grow_second_tags,
             {"malloc 20 refused", "free block 2", "free record 1"},
             1},
            {"`ZR_memm_realloc`",
             "the node is refused",
             blocks_of_one_tag<13>,
             grow_first,
             {"malloc 20 -> block 14", "calloc 336 refused", "free block 14", "free block 1"},
             2},
            {"`ZR_memm_realloc`",
             "block not recorded under the tag",
             a_block_of_each_of_two_tags,
             [] { blocks.push_back(reallocate(TAG, blocks[1], 20)); },
             {}},
            {"`ZR_memm_realloc`",
             "tag without a record",
             blocks_of_one_tag<1>,
             [] { blocks.push_back(reallocate(UNKNOWN_TAG, blocks[0], 20)); },
             {}},
            {"`ZR_memm_realloc`",
             "of null, a slot is vacant",
             blocks_of_one_tag<1>,
             [] { blocks.push_back(reallocate(TAG, nullptr, 20)); },
             {"malloc 20 -> block 2"}},

            {"`ZR_memm_free`",
             "one block of several",
             blocks_of_one_tag<2>,
             [] { release_numbers(TAG, 1, 1); },
             {"free block 1"}},
            {"`ZR_memm_free`",
             "last block of a node",
             blocks_of_one_tag<14>,
             [] { release_numbers(TAG, 14, 14); },
             {"free block 14", "free node 1"}},
            {"`ZR_memm_free`",
             "last of the first 13 slots, a node follows",
             only_the_last_inline_block_and_one_of_a_node,
             [] { release_numbers(TAG, 13, 13); },
             {"free block 13"}},
            {"`ZR_memm_free`",
             "last block of a bucket's own record",
             blocks_of_one_tag<1>,
             [] { release_numbers(TAG, 1, 1); },
             {"free block 1"}},
            {"`ZR_memm_free`",
             "last block of a further record",
             a_block_of_each_of_two_tags,
             [] { release_numbers(SECOND_TAG, 2, 2); },
             {"free block 2", "free record 1"}},
            {"`ZR_memm_free`", "null", blocks_of_one_tag<1>, [] { release(TAG, nullptr); }, {}},
            {"`ZR_memm_free`",
             "block not recorded under the tag",
             a_block_of_each_of_two_tags,
             [] { release(TAG, blocks[1]); },
             {}},

            {"`ZR_memm_disassociate`",
             "one block of several",
             blocks_of_one_tag<2>,
             [] { ZR_memm_disassociate(TAG, blocks[0]); },
             {}},
            {"`ZR_memm_disassociate`",
             "last block of a node",
             blocks_of_one_tag<14>,
             [] { ZR_memm_disassociate(TAG, blocks[13]); },
             {"free node 1"}},
            {"`ZR_memm_disassociate`",
             "last block of a further record",
             a_block_of_each_of_two_tags,
             [] { ZR_memm_disassociate(SECOND_TAG, blocks[1]); },
             {"free record 1"}},

            {"`ZR_memm_free_all`",
             "tag of 27 blocks",
             blocks_of_one_tag<27>,
             [] { ZR_memm_free_all(TAG); },
             {"free block 1..13", "free block 27", "free node 2", "free block 14..26", "free node 1"}},
            {"`ZR_memm_free_all`",
             "tag of a further record",
             a_block_of_each_of_two_tags,
             [] { ZR_memm_free_all(SECOND_TAG); },
             {"free block 2", "free record 1"}},
            {"`ZR_memm_free_all`",
             "tag without a record",
             blocks_of_one_tag<1>,
             [] { ZR_memm_free_all(UNKNOWN_TAG); },
             {}},

            {"`ZR_memm_cleanup`",
             "three tags of one bucket",
             a_block_of_each_of_three_tags,
             [] { ZR_memm_cleanup(); },
             {"free block 1", "free block 3", "free record 2", "free block 2", "free record 1"}},
            {"`ZR_memm_cleanup`",
             "14 blocks of a tag, and one of a bucket before",
             [] {
                 blocks_of_one_tag<14>();
                 hold(TAG - 1, 1);
             },
             [] { ZR_memm_cleanup(); },
             {"free block 15", "free block 1..14", "free node 1"}},
            {"`ZR_memm_cleanup`", "nothing is recorded", nothing, [] { ZR_memm_cleanup(); }, {}},

            {"`ZR_memm_flags`",
             "any",
             blocks_of_one_tag<1>,
             [] { EXPECT_EQ(ZR_memm_flags(TAG, blocks[0]), ZR_MEMM_FLAG_RECORDED); },
             {}},
            {"`ZR_memm_unique_tag_get`", "any", nothing, [] { draw_unique_tag(); }, {}},
            {"`ZR_mem_init`", "any", nothing, [] { ZR_mem_init(); }, {}},
        },
    };
}
