// Records of the memory manager and the pointer array. Private; debuggers and tests know the layouts.
#pragma once

#include "foundation/array.h"
#include "foundation/memory.h"

constexpr uint64_t ZR_MEMM_BUCKET_COUNT = 32;  // a power of two: a tag's low five bits are its bucket
constexpr uint64_t ZR_MEMM_NODE_SLOTS = 13;

// A vacant slot is all zero; an occupied one has a block and carries ZR_MEMM_FLAG_RECORDED.
struct ZT_MEMM_SLOT {
    uint64_t flags;
    uint64_t size;  // bytes, as given when the block was recorded
    LPVOID block;
};

// One run of block slots. Between two calls of the family
//   count == number of occupied slots (one less for each null pointer that a caller disassociated)
//   previous == nullptr exactly for the node held inline in a record
// Lookups examine every slot and never trust the count; only the search for a vacant slot does.
struct ZT_MEMM_NODE {
    uint64_t count;
    ZT_MEMM_SLOT slots[ZR_MEMM_NODE_SLOTS];
    ZT_MEMM_NODE *previous;
    ZT_MEMM_NODE *next;
};

// The blocks of one tag. Between two calls of the family
//   previous == nullptr exactly for the record held in the table, the head of its bucket's chain
//   tag % ZR_MEMM_BUCKET_COUNT == bucket of the chain, and a tag other than 0 has one record at most
// Records and nodes behind the first are linked in second place: the chains run newest first from there.
struct ZT_MEMM_TAG_RECORD {
    uint64_t tag;  // 0 marks a record in the table as vacant; others may still be chained behind it
    ZT_MEMM_NODE first_node;
    ZT_MEMM_TAG_RECORD *previous;
    ZT_MEMM_TAG_RECORD *next;
};

struct ZT_MEMM_TABLE {
    uint64_t unique_tag_counter;  // the number of tags drawn; never reset
    ZT_MEMM_TAG_RECORD buckets[ZR_MEMM_BUCKET_COUNT];
};

constexpr uint64_t ZR_ARRAY_PTR_MAGIC = 0x64776172;  // "dwar", most significant character first

// What a pointer array's handle points to. Between two calls of the family
//   count <= capacity, and capacity is a whole multiple of increment
//   slots == nullptr exactly while capacity == 0
struct ZT_ARRAY_PTR {
    uint64_t size;  // of this record, in bytes; with the magic word it tells a handle from other pointers
    uint64_t magic;
    uint64_t tag;
    uint64_t capacity;   // slots
    uint64_t count;      // elements, in slots 0 to count - 1
    uint64_t increment;  // slots by which the vector grows and shrinks
    LPVOID *slots;
    INT sorted;
    ZT_ARRAY_PTR_COMPARE compare;
};
