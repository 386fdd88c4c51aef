// The equations of dt_types.h and of the dt_types_*.h beside it, checked over the whole table. No
// part of the library: included behind dt_types.cpp by tests, and by whoever hunts a fault.
#pragma once

#include "dt_types_blocks.h"

namespace {

// Ends a check with the equation that does not hold, in words.
#define QV_EQUATION(holds)                                                                                   \
    if (!(holds))                                                                                            \
    return #holds

uint32_t occupied_slots_of(const ZT_MEMM_NODE &node)
{
    uint32_t occupied_slots = 0;
    for (const ZT_MEMM_SLOT &slot : node.slots)
        occupied_slots += slot.block != nullptr;
    return occupied_slots;
}

bool offers_a_slot(const ZT_MEMM_NODE &node)
{
    return node.count < ZR_MEMM_NODE_SLOTS && occupied_slots_of(node) < ZR_MEMM_NODE_SLOTS;
}

// ---- The table

const char *violated_in_nodes(const ZT_MEMM_TAG_RECORD &record, bool is_null_disassociated)
{
    const ZT_MEMM_NODE *previous = nullptr;
    for (const ZT_MEMM_NODE *node = &record.first_node; node != nullptr; node = node->next) {
        QV_EQUATION(node->previous == previous);
        QV_EQUATION(is_null_disassociated || node->count == occupied_slots_of(*node));
        QV_EQUATION(previous == nullptr || node->count != 0);
        for (const ZT_MEMM_SLOT &slot : node->slots) {
            QV_EQUATION(slot.flags == (slot.block != nullptr ? ZR_MEMM_FLAG_RECORDED : 0));
            QV_EQUATION(slot.block != nullptr || slot.size == 0);
        }
        previous = node;
    }
    return nullptr;
}

const char *violated_in_bucket(uint64_t bucket, bool is_null_disassociated)
{
    const ZT_MEMM_TAG_RECORD *previous = nullptr;
    for (const ZT_MEMM_TAG_RECORD *record = &heap.buckets[bucket]; record != nullptr; record = record->next) {
        QV_EQUATION(record->previous == previous);
        const bool is_vacant = previous == nullptr && record->tag == 0;
        QV_EQUATION(is_vacant || record->tag % ZR_MEMM_BUCKET_COUNT == bucket);
        for (const ZT_MEMM_TAG_RECORD *other = record->next; other != nullptr; other = other->next)
            QV_EQUATION(other->tag != record->tag || record->tag == 0);
        if (const char *violated = violated_in_nodes(*record, is_null_disassociated))
            return violated;
        previous = record;
    }
    return nullptr;
}

// ---- Notes

const char *violated_in_note(const ZT_MEMM_TAG_RECORD &record, const record_note &note)
{
    if (note.owner != 0) {
        QV_EQUATION(note.owner < OWNER_COUNT && owners[note.owner].record == &record);
        QV_EQUATION(note.full_from == nullptr);
        return nullptr;
    }
    bool is_behind_full_from = false;
    for (const ZT_MEMM_NODE *node = &record.first_node; node != nullptr; node = node->next) {
        is_behind_full_from |= node == note.full_from;
        QV_EQUATION(!is_behind_full_from || !offers_a_slot(*node));
    }
    QV_EQUATION(note.full_from == nullptr || is_behind_full_from);
    return nullptr;
}

const char *violated_in_cell(const record_note &cell)
{
    uint32_t chained = 0;
    bool is_remembered_chained = cell.record == nullptr;
    for (const ZT_MEMM_TAG_RECORD &head : heap.buckets) {
        for (const ZT_MEMM_TAG_RECORD *record = head.next; record != nullptr; record = record->next) {
            const bool is_here = &cell_of(record->tag) == &cell;
            chained += is_here;
            is_remembered_chained |= is_here && record == cell.record;
        }
    }
    QV_EQUATION(cell.chained == chained);
    QV_EQUATION(is_remembered_chained);
    if (cell.record != nullptr)
        return violated_in_note(*cell.record, cell);
    QV_EQUATION(cell.full_from == nullptr && cell.long_lookups == 0 && cell.owner == 0);
    return nullptr;
}

// Cells that nothing hashes to are looked at too, unless there are very many.
const char *violated_in_notes()
{
    uint64_t chained_record_count = 0;
    for (uint64_t bucket = 0; bucket < ZR_MEMM_BUCKET_COUNT; ++bucket) {
        const ZT_MEMM_TAG_RECORD &head = heap.buckets[bucket];
        const record_note &note = notes_of_heads[bucket];
        if (const char *violated = violated_in_note(head, note))
            return violated;
        const bool is_unused = head.tag == 0 && bucket != 0;  // the first bucket's may have blocks of tag 0
        QV_EQUATION(!is_unused || (note.full_from == nullptr && note.long_lookups == 0 && note.owner == 0));
        for (const ZT_MEMM_TAG_RECORD *record = head.next; record != nullptr; record = record->next) {
            ++chained_record_count;
            if (const char *violated = violated_in_cell(cell_of(record->tag)))
                return violated;
        }
    }
    uint64_t counted = 0;
    for (const record_note &cell : cells) {
        counted += cell.chained;
        if (cell.chained == 0)
            QV_EQUATION(cell.record == nullptr && cell.full_from == nullptr && cell.owner == 0);
    }
    QV_EQUATION(counted == chained_record_count);
    return nullptr;
}

// ---- Long owners

// The note that speaks of a long owner's record.
const record_note &note_of_owner(uint32_t number)
{
    const ZT_MEMM_TAG_RECORD *record = owners[number].record;
    if (record->previous != nullptr)
        return cell_of(record->tag);
    return notes_of_heads[record - heap.buckets];
}

uint32_t slots_without_block(const ZT_MEMM_NODE &node)
{
    uint32_t slots = 0;
    for (uint32_t i = 0; i < ZR_MEMM_NODE_SLOTS; ++i)
        if (node.slots[i].block == nullptr)
            slots |= 1U << i;
    return slots;
}

const char *violated_in_place(uint32_t number, uint32_t place)
{
    const node_run &run = run_of(place);
    const uint32_t without_block = slots_without_block(*nodes[place]);
    const bool is_inline = nodes[place]->previous == nullptr;
    const bool is_offering = nodes[place]->count < ZR_MEMM_NODE_SLOTS;
    QV_EQUATION(run.owner == number);
    QV_EQUATION(is_inline == (place == owners[number].first_run * RUN_NODES + INLINE_INDEX));
    QV_EQUATION(is_offering || is_inline || without_block == 0);
    QV_EQUATION((vacant_slots[place] & ~without_block) == 0);
    QV_EQUATION(vacant_slots[place] == without_block || !is_offering);
    QV_EQUATION(((run.vacant & bit_of(place)) != 0) == (vacant_slots[place] != 0));
    return nullptr;
}

const char *violated_in_runs(uint32_t number, uint32_t *run_count)
{
    const long_owner &owner = owners[number];
    uint32_t vacant_run = owner.vacant_run;
    uint32_t previous = 0;
    for (uint32_t i = owner.first_run; i != 0; i = runs[i].next) {
        const node_run &run = runs[i];
        QV_EQUATION(run.previous == previous && run.owner == number && run.live != 0);
        QV_EQUATION(previous == 0 || run.rank < runs[previous].rank);
        QV_EQUATION((run.vacant & ~run.live) == 0);
        QV_EQUATION((run.live & ~(node_set{previous == 0} << INLINE_INDEX)) >> run.made == 0);
        QV_EQUATION((run.vacant != 0) == (i == vacant_run));
        if (run.vacant != 0)
            vacant_run = run.next_vacant;
        previous = i;
        ++*run_count;
    }
    QV_EQUATION(vacant_run == 0);
    return nullptr;
}

const char *violated_in_owner(uint32_t number, uint32_t *run_count)
{
    QV_EQUATION(note_of_owner(number).owner == number);
    const char *violated = nullptr;
    const ZT_MEMM_NODE *node = &owners[number].record->first_node;
    bool is_order_of_chain = true;
    walk_places(number, [&](uint32_t place) {
        is_order_of_chain = node == nodes[place];
        if (is_order_of_chain)
            node = node->next;
        violated = violated_in_place(number, place);
        return violated != nullptr || !is_order_of_chain;
    });
    if (violated != nullptr)
        return violated;
    QV_EQUATION(is_order_of_chain && node == nullptr);
    return violated_in_runs(number, run_count);
}

const char *violated_in_owners()
{
    uint32_t run_count = 0;
    for (uint32_t number = 1; number < OWNER_COUNT; ++number) {
        if (owners[number].record == nullptr)
            continue;
        if (const char *violated = violated_in_owner(number, &run_count))
            return violated;
    }
    uint32_t free_count = 0;
    for (uint32_t run = free_run; run != 0; run = runs[run].next)
        ++free_count;
    QV_EQUATION(runs_in_use == run_count);
    QV_EQUATION(runs_ever_used == run_count + free_count);
    return nullptr;
}

// ---- Lines

struct line_tally {
    uint32_t displaced;  // entries of blocks that have their home here
    uint32_t lost;
    uint32_t used;  // entries in this line
};
line_tally tallies[LINE_COUNT];

bool has_entry(const block_line &line, uint32_t entry)
{
    for (const uint32_t each : line.entries)
        if (each == entry)
            return true;
    return false;
}

void tally_slot(uint32_t number, uint32_t place, uint32_t slot_index, LPVOID block)
{
    const line_key key = key_of(number, block);
    const uint32_t entry = entry_for(key, place, slot_index);
    line_tally &home = tallies[key.home];
    if (lines[key.home].entries[key.own] == entry) {
        ++home.used;
        return;
    }
    for (uint32_t distance = 0; distance <= lines[key.home].reach(); ++distance) {
        if (!has_entry(line_behind(key.home, distance), entry))
            continue;
        ++home.displaced;
        ++tallies[(key.home + distance) % LINE_COUNT].used;
        return;
    }
    ++home.lost;
}

const char *violated_in_lines()
{
    for (line_tally &tally : tallies)
        tally = {};
    for (uint32_t number = 1; number < OWNER_COUNT; ++number) {
        if (owners[number].record == nullptr)
            continue;
        walk_places(number, [&](uint32_t place) {
            const ZT_MEMM_NODE &node = *nodes[place];
            for (uint32_t i = 0; i < ZR_MEMM_NODE_SLOTS; ++i)
                if (node.slots[i].block != nullptr)
                    tally_slot(number, place, i, node.slots[i].block);
            return false;
        });
    }
    for (uint32_t i = 0; i < LINE_COUNT; ++i) {
        uint32_t used = 0;
        for (const uint32_t entry : lines[i].entries)
            used += entry != 0;
        QV_EQUATION(used == tallies[i].used);
        QV_EQUATION(lines[i].displaced() == tallies[i].displaced);
        QV_EQUATION(lines[i].lost() == tallies[i].lost);
        QV_EQUATION(lines[i].reach() == 0 || lines[i].displaced() != 0);
    }
    return nullptr;
}

// The first equation that does not hold, or null. Counts are not checked once null was disassociated.
const char *violated_equation(bool is_null_disassociated)
{
    for (uint64_t bucket = 0; bucket < ZR_MEMM_BUCKET_COUNT; ++bucket)
        if (const char *violated = violated_in_bucket(bucket, is_null_disassociated))
            return violated;
    if (const char *violated = violated_in_notes())
        return violated;
    if (const char *violated = violated_in_owners())
        return violated;
    return violated_in_lines();
}

#undef QV_EQUATION

}  // namespace
