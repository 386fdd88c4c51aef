// The memory manager's private table: for tests that look at its records or forge them, and for whoever
// wants to know after each call of a long sequence whether its equations still hold.
#pragma once

#include "foundation/memory/dt_types.h"

#include "support/heap_trace.h"

#include <map>
#include <string>
#include <vector>

// What the manager's own allocations are called in a heap_trace.
std::vector<block_kind> bookkeeping_kinds();

// Where the table is; the manager must be empty in the first call. It is not exported, but the first node
// that it takes from the heap links back to the one held inline in the table.
ZT_MEMM_TABLE &memory_table(heap_trace &heap);

// Every equation of dt_types.h that does not hold, in words. A null pointer that was disassociated breaks
// those of its node's count, as documented.
std::vector<std::string> violations_in(const ZT_MEMM_TABLE &table);

// The whole table in numbers: bucket by bucket the tag of each record (0 alone for a vacant one), then number
// and size of the block in each slot of each node, 0 and 0 where there is none.
std::vector<uint64_t> image_of(const ZT_MEMM_TABLE &table, const std::map<const void *, unsigned> &numbers);
