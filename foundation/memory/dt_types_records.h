// Where searches for records and for vacant slots ended, remembered beside the table. Part of dt_types.cpp.
//
// The table's chains fix every result; walking them is what costs. Notes spare walks whose end is known.
// They are nothing but memory: each may be dropped at any moment, and the next search walks again.
//
// A record behind the head of its bucket has its note in a cell, chosen by its tag. Between two calls
//   chained == number of chained records whose tag has this cell
//   record  == one of them, or null; null leaves everything else but `chained` zero
// so a tag whose cell counts no record but the one remembered is absent, or it is that one: no walk. Where
// several records share a cell, the one found last is remembered and the others are searched for as ever.
// A head has a note of its own, which counts nothing.
//
// Of the record that a note speaks of,
//   no node from `full_from` to the end of the chain offers a slot    (null: nothing is known)
// and a node offers one when its count is below 13 and a block pointer of its is null. New nodes join in
// second place, so while an owner only grows, this spares the walk over all that is full.
#pragma once

#include "dt_types.h"

namespace {

#ifdef QV_TINY_LOOKASIDE  // a test's: every cell is shared, every line full, every stock exhausted
constexpr uint32_t CELL_BITS = 2;
#else
constexpr uint32_t CELL_BITS = 14;
#endif
constexpr uint64_t CELL_COUNT = uint64_t{1} << CELL_BITS;

struct record_note {
    ZT_MEMM_TAG_RECORD *record;  // of a cell alone
    const ZT_MEMM_NODE *full_from;
    uint32_t chained;       // of a cell alone
    uint16_t long_lookups;  // how many nodes lookups have examined in vain; dt_types_blocks.h
    uint16_t owner;         // the record's number among the long owners, 0 for none; dt_types_blocks.h
};

record_note cells[CELL_COUNT];
record_note notes_of_heads[ZR_MEMM_BUCKET_COUNT];

struct noted_record {
    ZT_MEMM_TAG_RECORD *record;
    record_note *note;  // never null beside a record
};

// Neighbouring tags, which is how unique ones are drawn, have neighbouring cells.
record_note &cell_of(uint64_t tag)
{
    return cells[(tag ^ tag >> CELL_BITS ^ tag >> 2 * CELL_BITS) % CELL_COUNT];
}

// Room for the note of a record that its cell cannot remember. It starts from nothing in every call.
record_note *short_lived_note()
{
    static record_note note;
    note = {};
    return &note;
}

// A long owner keeps its cell: what is known of its blocks hangs on the note.
record_note *remember_record(record_note *cell, ZT_MEMM_TAG_RECORD *record)
{
    if (cell->owner != 0)
        return short_lived_note();
    *cell = {record, nullptr, cell->chained, 0, 0};
    return cell;
}

noted_record find_chained_record(const ZT_MEMM_TAG_RECORD *head, uint64_t tag)
{
    record_note *cell = &cell_of(tag);
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): a record that goes is forgotten by remove_chained_record
    if (cell->record != nullptr && cell->record->tag == tag)
        return {cell->record, cell};
    const uint32_t remembered = cell->record != nullptr;
    if (cell->chained == remembered)
        return {nullptr, nullptr};
    for (ZT_MEMM_TAG_RECORD *record = head->next; record != nullptr; record = record->next)
        if (record->tag == tag)
            return {record, remember_record(cell, record)};
    return {nullptr, nullptr};
}

// The note that outlives this call, or null.
record_note *note_kept_for(const ZT_MEMM_TAG_RECORD *chained)
{
    record_note *cell = &cell_of(chained->tag);
    return cell->record == chained ? cell : nullptr;
}

// A record has joined its chain.
record_note *add_chained_record(ZT_MEMM_TAG_RECORD *record)
{
    record_note *cell = &cell_of(record->tag);
    ++cell->chained;
    return remember_record(cell, record);
}

// A record is about to leave its chain. Nothing of its blocks may be known any more.
void remove_chained_record(const ZT_MEMM_TAG_RECORD *record)
{
    record_note *cell = &cell_of(record->tag);
    --cell->chained;
    if (cell->record == record)
        *cell = {nullptr, nullptr, cell->chained, 0, 0};
}

// ---- Vacant slots

uint32_t index_of_block(const ZT_MEMM_NODE &node, LPVOID block)
{
    uint32_t i = 0;
    while (i < ZR_MEMM_NODE_SLOTS && node.slots[i].block != block)
        ++i;
    return i;
}

// The lowest slot that a node offers, or 13. A count of 13 or more skips the node unseen. A lower one may be
// wrong, for callers that disassociate null make it so, hence all slots are examined.
uint32_t vacant_slot_of(const ZT_MEMM_NODE &node)
{
    return node.count >= ZR_MEMM_NODE_SLOTS ? ZR_MEMM_NODE_SLOTS : index_of_block(node, nullptr);
}

}  // namespace
