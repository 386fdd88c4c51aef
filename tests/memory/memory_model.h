// A simple and slow model of the memory manager: which block is in which slot of which node of which record.
// Each operation says which heap calls the manager must make, step by step, and with what result. Blocks,
// nodes and records are numbered as in a heap_trace with bookkeeping_kinds(). Not for tag 0, null blocks and
// blocks that are recorded twice.
#pragma once

#include "foundation/types.h"

#include "support/heap_trace.h"

#include <array>
#include <map>
#include <vector>

class memory_model {
public:
    struct block_facts {
        uint64_t tag;
        size_t size;
        unsigned char filling;  // the caller's, to be found again after a move
    };

    // The n-th allocating call of the next operation is refused, as in heap_trace.
    void refuse_allocation(unsigned n);
    // The heap calls of the operations since the last question.
    steps take_steps();

    // A block allocated by someone else: its number, never 0.
    unsigned allocate_elsewhere(size_t size);
    void release_elsewhere(unsigned block);
    // The number of the block, 0 for null.
    unsigned allocate(uint64_t tag, size_t size);
    unsigned reallocate(unsigned block, size_t size);
    unsigned reallocate_null(uint64_t tag, size_t size);
    bool associate(uint64_t tag, unsigned block, size_t size);  // whether it is recorded now
    void release(unsigned block);
    void disassociate(unsigned block);
    LONG release_tag(uint64_t tag);
    LONG release_everything();

    std::map<unsigned, block_facts> blocks;  // all that are recorded

    // The whole table, comparable with image_of in memory_table.h.
    std::vector<uint64_t> image() const;

private:
    static constexpr size_t NODE_SLOTS = 13;
    static constexpr uint64_t BUCKETS = 32;

    struct node {
        unsigned number;                         // 0 for the inline one
        std::array<unsigned, NODE_SLOTS> slots;  // blocks, 0 where vacant
    };
    struct tag_record {
        unsigned number = 0;  // 0 for one of the table
        std::vector<node> nodes = {node{}};
    };
    // The tags of a bucket; those behind the table's record newest first.
    struct bucket {
        uint64_t in_table = 0;
        std::vector<uint64_t> behind;
    };

    unsigned request(const std::string &call, size_t size, const std::string &kind);
    void free_call(const std::string &kind, unsigned number);
    bool add_record(uint64_t tag);
    void remove_record(uint64_t tag);
    unsigned *vacant_slot(uint64_t tag);
    LONG release_blocks(uint64_t tag);

    static constexpr unsigned NONE = ~0u;
    unsigned allocations_before_refusal = NONE;
    steps made;
    std::map<std::string, unsigned> numbers;  // of the newest block of each kind
    std::map<uint64_t, tag_record> records;
    std::array<bucket, BUCKETS> buckets;
};
