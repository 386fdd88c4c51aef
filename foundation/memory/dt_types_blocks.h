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

// Of the chain behind the inline node.
uint64_t node_count_of(const ZT_MEMM_TAG_RECORD &record)
{
    uint64_t node_count = 0;
    for (const ZT_MEMM_NODE *node = record.first_node.next; node != nullptr; node = node->next)
        ++node_count;
    return node_count;
}

// Make the record a long owner if there is room. Its nodes fill all runs but the first, which has the rest of
// them and room for nodes made later.
[[gnu::noinline]] void become_long_owner(ZT_MEMM_TAG_RECORD *record, record_note *note)
{
    const uint16_t number = unused_owner_number();
    const uint64_t node_count = node_count_of(*record);
    const uint64_t run_count = node_count / CHAINED_NODES + 1;
    if (number == 0 || run_count > RUN_COUNT - 1 - runs_in_use) {
        note->long_lookups = NEVER_LONG;
        return;
    }
    note->owner = number;
    note->full_from = nullptr;
    owners[number].record = record;
    for (uint64_t i = 0; i < run_count; ++i)
        runs[add_run(number)].made = CHAINED_NODES;

    uint32_t run = owners[number].first_run;
    put_node(run * RUN_NODES + INLINE_INDEX, &record->first_node);
    auto index = static_cast<uint32_t>(node_count % CHAINED_NODES);
    runs[run].made = static_cast<uint16_t>(index);
    for (ZT_MEMM_NODE *node = record->first_node.next; node != nullptr; node = node->next) {
        if (index == 0) {
            run = runs[run].next;
            index = CHAINED_NODES;
        }
        put_node(run * RUN_NODES + --index, node);
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

// What an entry names, if that is a slot of the owner which holds the block. A vacant entry names a place of
// the run that is never used, and so nobody's.
slot_position slot_behind(uint32_t entry, uint32_t owner_number, LPVOID block)
{
    const uint32_t place = (entry & ~PRINT_MASK) >> PLACE_SHIFT;
    const uint32_t slot_index = entry & SLOT_MASK;
    if (run_of(place).owner == owner_number && nodes[place]->slots[slot_index].block == block) [[likely]]
        return slot_at(nodes[place], slot_index, place);
    return {};
}

slot_position find_along_chain(uint32_t owner_number, LPVOID block)
{
    slot_position found = {};
    walk_places(owner_number, [&](uint32_t place) {
        const uint32_t i = index_of_block(*nodes[place], block);
        if (i == ZR_MEMM_NODE_SLOTS)
            return false;
        found = slot_at(nodes[place], i, place);
        return true;
    });
    return found;
}

// Of two slots of one owner: does a search meet the first one first?
bool is_earlier(const slot_position &position, const slot_position &other)
{
    if (position.place == other.place)
        return position.slot_index < other.slot_index;
    const node_run &run = run_of(position.place);
    const node_run &other_run = run_of(other.place);
    return &run != &other_run ? run.rank > other_run.rank : position.place > other.place;
}

slot_position first_of_all_matches(uint32_t owner_number, LPVOID block, line_key key)
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

// Where one look at a block's own entry does not tell. Null has no entries: vacant slots are found by a walk.
[[gnu::noinline]] slot_position find_slot_elsewhere(uint32_t owner_number, LPVOID block)
{
    const line_key key = key_of(owner_number, block);
    if (block == nullptr || lines[key.home].lost() != 0)
        return find_along_chain(owner_number, block);
    return first_of_all_matches(owner_number, block, key);
}

// The first slot of a long owner that holds `block`. Inline like all that every allocation or release passes:
// the positions handed on stay in registers.
[[gnu::always_inline]] inline slot_position find_slot_of_long_owner(uint32_t owner_number, LPVOID block)
{
    const line_key key = key_of(owner_number, block);
    const block_line &home = lines[key.home];
    if (block == nullptr || !home.has_all_at_own_entries())
        return find_slot_elsewhere(owner_number, block);
    slot_position found = slot_behind(home.entries[key.own], owner_number, block);
    found.entry_index = key.home * LINE_WORDS + key.own;
    return found;
}

// ---- What happens to slots and nodes

// The slot has been taken already; now it holds its block.
void note_occupied_slot(record_note *note, slot_position position)
{
    if (note->owner != 0)
        remember_block(note->owner, position.place, position.slot_index, position.slot().block);
}

// Before the slot is cleared. It may be vacant already, for null finds such a slot.
[[gnu::always_inline]] inline void note_vacated_slot(record_note *note, slot_position position)
{
    if (note->owner == 0) {
        if (position.place == BEHIND_FULL_FROM)
            note->full_from = position.node->next;
        return;
    }
    LPVOID block = position.slot().block;
    if (position.entry_index != NOT_SEEN)
        lines[position.entry_index / LINE_WORDS].entries[position.entry_index % LINE_WORDS] = 0;
    else if (block != nullptr)
        forget_block(note->owner, position.place, position.slot_index, block);
    note_vacant_slots(position.place, 1U << position.slot_index);
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
    note_vacant_slots(position.place, (1U << ZR_MEMM_NODE_SLOTS) - 1);
}

// A node has been linked in second place because no other one offers a slot. Its first one, taken.
slot_position take_slot_of_added_node(record_note *note, ZT_MEMM_NODE *added)
{
    if (note->owner != 0) {
        if (add_node(note->owner, added))
            return take_first_vacant_slot(owners[note->owner]);
        drop_long_owner(note);
        note->long_lookups = NEVER_LONG;
    }
    note->full_from = added->next;
    return slot_at(added, 0, NO_PLACE);
}

}  // namespace
