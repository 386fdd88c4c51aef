// Where the blocks of long owners are, remembered beside the table. Part of dt_types.cpp.
//
// An owner whose lookups have grown long becomes a long owner: a line then tells the slot of each of its
// blocks (dt_types_lines.h), and a run the nodes that offer a slot (dt_types_runs.h). All of it is memory of
// what walking the chains would find, and an owner may be dropped at any moment: it is then walked as ever.
#pragma once

#include "dt_types_runs.h"

namespace {

#ifdef QV_TINY_LOOKASIDE
constexpr uint16_t LONG_LOOKUPS = 2;
#else
constexpr uint16_t LONG_LOOKUPS = 64;
#endif
constexpr uint16_t NEVER_LONG = UINT16_MAX;  // as a note's long_lookups: the owner did not fit once

// ---- Long owners

uint16_t unused_owner_number()
{
    for (uint16_t number = 1; number < OWNER_COUNT; ++number)
        if (owners[number].record == nullptr)
            return number;
    return 0;
}

// How many runs a record needs: one for its inline node, and the others full but for the last.
uint64_t runs_needed(const ZT_MEMM_TAG_RECORD &record)
{
    uint64_t node_count = 0;
    for (const ZT_MEMM_NODE *node = record.first_node.next; node != nullptr; node = node->next)
        ++node_count;
    return 1 + (node_count + RUN_NODES - 1) / RUN_NODES;
}

// Make the record a long owner if there is room. Its nodes fill each run from the highest bit down, so that
// nodes made later start a run of their own.
[[gnu::noinline]] void become_long_owner(ZT_MEMM_TAG_RECORD *record, record_note *note)
{
    const uint16_t number = unused_owner_number();
    const uint64_t run_count = runs_needed(*record);
    if (number == 0 || run_count > RUN_COUNT - 1 - runs_in_use) {
        note->long_lookups = NEVER_LONG;
        return;
    }
    note->owner = number;
    note->full_from = nullptr;
    owners[number].record = record;
    for (uint64_t i = 0; i < run_count; ++i)
        runs[add_run(number)].made = RUN_NODES;

    uint32_t run = owners[number].first_run;
    uint32_t index = 1;
    for (ZT_MEMM_NODE *node = &record->first_node; node != nullptr; node = node->next) {
        put_node(run * RUN_NODES + --index, node);
        if (index == 0) {
            run = runs[run].next;
            index = RUN_NODES;
        }
    }
}

// Before the record's nodes go, or when there is no room for one more.
[[gnu::noinline]] void drop_long_owner(record_note *note)
{
    walk_places(note->owner, [](uint32_t place) {
        remove_node(place);
        return false;
    });
    owners[note->owner] = {};
    note->owner = 0;
    note->long_lookups = 0;
}

// Everything that is known of the record's nodes and blocks, before they go.
void drop_note(record_note *note)
{
    if (note->owner != 0)
        drop_long_owner(note);
    note->full_from = nullptr;
    note->long_lookups = 0;
}

// A lookup has gone over so many nodes in vain. Three are as quick as a line.
void count_lookup(record_note *note, uint32_t examined)
{
    if (examined <= 3 || note->long_lookups == NEVER_LONG)
        return;
    const uint32_t sum = note->long_lookups + examined - 3;
    note->long_lookups = static_cast<uint16_t>(sum < NEVER_LONG ? sum : NEVER_LONG - 1);
}

bool is_due_to_become_long(const record_note &note)
{
    return note.long_lookups >= LONG_LOOKUPS && note.long_lookups != NEVER_LONG;
}

// ---- Lookups

[[gnu::noinline]] slot_position find_along_chain(uint32_t owner_number, LPVOID block)
{
    slot_position found = {};
    walk_places(owner_number, [&](uint32_t place) {
        const uint32_t i = index_of_block(*node_at(place), block);
        if (i == ZR_MEMM_NODE_SLOTS)
            return false;
        found = slot_at(node_at(place), i, place);
        return true;
    });
    return found;
}

// What an entry names, if that is a slot of the owner which holds the block. A vacant entry names a place of
// the run that is never used, and so nobody's.
slot_position slot_behind(uint32_t entry, uint32_t owner_number, LPVOID block)
{
    const uint32_t place = (entry & ~PRINT_MASK) >> PLACE_SHIFT;
    const uint32_t slot_index = entry & SLOT_MASK;
    if (run_of(place).owner != owner_number || node_at(place)->slots[slot_index].block != block)
        return {};
    return slot_at(node_at(place), slot_index, place);
}

// Of two slots of one owner: does a search meet the first one first?
bool is_earlier(slot_position position, slot_position other)
{
    const node_run &run = run_of(position.place);
    const node_run &other_run = run_of(other.place);
    if (&run != &other_run)
        return run.rank > other_run.rank;
    return position.place != other.place ? position.place > other.place
                                         : position.slot_index < other.slot_index;
}

[[gnu::noinline]] slot_position first_of_all_matches(uint32_t owner_number, LPVOID block, line_key key)
{
    slot_position first = {};
    for (uint32_t distance = 0; distance <= lines[key.home].reach(); ++distance) {
        const block_line &line = line_behind(key.home, distance);
        for (uint32_t left = matching_entries(line, key.print, PRINT_MASK); left != 0; left &= left - 1) {
            const slot_position match = slot_behind(line.entries[lowest_bit(left)], owner_number, block);
            if (match.node != nullptr && (first.node == nullptr || is_earlier(match, first)))
                first = match;
        }
    }
    return first;
}

// The first slot of a long owner that holds `block`. Null has no entries: vacant slots are found by a walk.
slot_position find_slot_of_long_owner(uint32_t owner_number, LPVOID block)
{
    const line_key key = key_of(owner_number, block);
    const block_line &home = lines[key.home];
    if (block == nullptr || home.lost() != 0)
        return find_along_chain(owner_number, block);
    const uint32_t matches = matching_entries(home, key.print, PRINT_MASK);
    const bool is_one_or_none = (matches & (matches - 1)) == 0;
    if (!home.has_all_at_home() || !is_one_or_none)
        return first_of_all_matches(owner_number, block, key);
    if (matches == 0)
        return {};
    const uint32_t index = lowest_bit(matches);
    slot_position match = slot_behind(home.entries[index], owner_number, block);
    match.entry_index = static_cast<uint16_t>(index);
    return match;
}

// ---- What happens to slots and nodes

void note_occupied_slot(record_note *note, slot_position position)
{
    if (note->owner == 0)
        return;
    remember_block(note->owner, position.place, position.slot_index, position.slot().block);
    note_taken_slot(position.place, position.slot_index);
}

// Before the slot is cleared. It may be vacant already, for null finds such a slot.
void note_vacated_slot(record_note *note, slot_position position)
{
    if (note->owner == 0) {
        if (position.place == BEHIND_FULL_FROM)
            note->full_from = position.node->next;
        return;
    }
    LPVOID block = position.slot().block;
    if (position.entry_index != NOT_SEEN)
        remove_entry(lines[key_of(note->owner, block).home], position.entry_index);
    else if (block != nullptr)
        forget_block(note->owner, position.place, position.slot_index, block);
    note_vacant_slot(position.place, position.slot_index);
}

// A node's count has fallen to 0: it goes, or is cleared if inline, whatever its slots hold.
void note_empty_node(record_note *note, slot_position position)
{
    if (note->owner == 0)
        return;
    if (position.node->previous != nullptr) {
        remove_node(position.place);
        return;
    }
    forget_blocks_of_node(position.place);
    for (uint32_t i = 0; i < ZR_MEMM_NODE_SLOTS; ++i)
        note_vacant_slot(position.place, i);
}

// A node has been linked in second place because no other one offers a slot. Its place, if it gets one.
uint32_t note_added_node(record_note *note, ZT_MEMM_NODE *added)
{
    if (note->owner != 0) {
        const uint32_t place = add_node(note->owner, added);
        if (place != NO_PLACE)
            return place;
        drop_long_owner(note);
        note->long_lookups = NEVER_LONG;
    }
    note->full_from = added->next;
    return NO_PLACE;
}

}  // namespace
