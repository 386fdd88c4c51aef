// Where the blocks of long owners are, remembered beside the table. Part of dt_types.cpp.
//
// An owner whose lookups have grown long becomes a long owner: a line then tells the slot of each of its
// blocks, and a run the nodes that offer a slot. All of it is memory of what walking the chains would find,
// and an owner may be dropped at any moment: it is then walked as ever.
//
// LINES. A line is one cache line of entries; an entry names a node, a slot and 14 bits of the block's
// address. A block's owner and address choose its home line. What finds its home full goes to one of the
// next lines, and what finds these full too is only counted. For each line, between two calls,
//   entries whose home it is (`away` of them in the next `reach` lines) + lost
//       == occupied slots of long owners whose block has its home here
// so a home that has lost nothing answers exactly, hit or miss; one that has sends the search along the
// chain. An entry is believed only after a look into the slot that it names.
//
// RUNS. A run holds nodes of one owner in the order of their making, so that its highest bit is the newest
// one. The inline node has a run to itself, the owner's first; new runs join in second place. As nodes join
// their chain in second place too, the chain is the runs from the first on, each from its highest bit down:
// that tells which of several slots with the same block, or of several vacancies, a search meets first.
// Of each run
//   live            == set of its nodes that are in the chain; the others' pointers are never followed
//   vacant_slots[i] == set of node i's slots that hold no block, for a live node
//   vacant          == set of live nodes that have any; the inline node may be missing once its count is
//   wrong rank             > that of every run behind it
// and of each owner
//   vacant_nodes == number of bits in its runs' `vacant`
//   no run in front of vacant_run has such a bit, if there is any
#pragma once

#include "dt_types_records.h"

#include <emmintrin.h>

namespace {

#ifdef QV_TINY_LOOKASIDE
constexpr uint32_t LINE_BITS = 1;
constexpr uint32_t LONGEST_REACH = 1;
constexpr uint32_t RUN_COUNT = 8;
constexpr uint32_t RUN_NODES = 2;
constexpr uint32_t OWNER_COUNT = 4;
constexpr uint16_t LONG_LOOKUPS = 2;
#else
constexpr uint32_t LINE_BITS = 13;
constexpr uint32_t LONGEST_REACH = 7;
constexpr uint32_t RUN_COUNT = 670;  // the first is never used, for 0 means none
constexpr uint32_t RUN_NODES = 16;
constexpr uint32_t OWNER_COUNT = 256;  // likewise
constexpr uint16_t LONG_LOOKUPS = 64;
#endif
constexpr uint32_t LINE_COUNT = 1U << LINE_BITS;
constexpr uint32_t PLACE_COUNT = RUN_COUNT * RUN_NODES;
constexpr uint64_t FIRST_RANK = UINT64_MAX;
constexpr uint16_t NEVER_LONG = UINT16_MAX;  // as a note's long_lookups: the owner did not fit once

// An entry, from its lowest bit: 4 bits slot, 14 bits place of the node, 14 bits print of the block's
// address. A vacant entry is all zero.
constexpr uint32_t SLOT_MASK = 15;
constexpr uint32_t PLACE_SHIFT = 4;
constexpr uint32_t PRINT_SHIFT = 18;
constexpr uint32_t PRINT_MASK = UINT32_MAX << PRINT_SHIFT;
constexpr uint32_t LINE_ENTRIES = 15;
static_assert(PLACE_COUNT <= 1U << (PRINT_SHIFT - PLACE_SHIFT), "a place has 14 bits");

// The four counts of a line share a word that is read and written whole: a load of it right behind a store
// of a part would wait for the store to reach the cache. From its lowest bit: 4 used, 3 reach, 7 away, 18
// lost.
constexpr uint32_t ONE_USED = 1U << 0;
constexpr uint32_t ONE_REACH = 1U << 4;
constexpr uint32_t ONE_AWAY = 1U << 7;
constexpr uint32_t ONE_LOST = 1U << 14;

struct alignas(64) block_line {
    uint32_t entries[LINE_ENTRIES];  // the first `used`; the others are 0
    uint32_t counts;

    uint32_t used() const { return counts % ONE_REACH; }
    uint32_t reach() const { return counts % ONE_AWAY / ONE_REACH; }
    uint32_t away() const { return counts % ONE_LOST / ONE_AWAY; }
    uint32_t lost() const { return counts / ONE_LOST; }
    bool has_all_at_home() const { return counts < ONE_AWAY; }
    void set_reach(uint32_t distance) { counts += (distance - reach()) * ONE_REACH; }
};
static_assert(sizeof(block_line) == 64, "one cache line");
static_assert(LONGEST_REACH < 1U << 3 && LONGEST_REACH < LINE_COUNT && LONGEST_REACH * LINE_ENTRIES < 1U << 7,
              "`reach` and `away` have room");
static_assert(PLACE_COUNT * ZR_MEMM_NODE_SLOTS < 1U << 18, "`lost` can count all slots");

struct node_run {
    ZT_MEMM_NODE *nodes[RUN_NODES];
    uint16_t vacant_slots[RUN_NODES];
    uint64_t rank;
    uint16_t live;
    uint16_t vacant;
    uint16_t owner;
    uint16_t next;  // neighbours among the owner's runs, 0 at either end; `next` also links the free ones
    uint16_t previous;
    uint16_t made;  // nodes that the run was given so far, up to RUN_NODES
};
static_assert(RUN_NODES <= 16, "a set of nodes has 16 bits");

struct long_owner {
    ZT_MEMM_TAG_RECORD *record;  // null in a number not taken
    uint32_t vacant_nodes;
    uint16_t first_run;
    uint16_t vacant_run;
};

block_line lines[LINE_COUNT];
node_run runs[RUN_COUNT];
long_owner owners[OWNER_COUNT];
uint16_t free_run;        // the first of those given back, 0 for none
uint32_t runs_in_use;     // taken and not given back
uint32_t runs_ever_used;  // those behind it were never touched

static_assert(sizeof cells + sizeof notes_of_heads + sizeof lines + sizeof runs + sizeof owners < 1U << 20,
              "the lookaside has at most 1 MiB");

// The place of a node is its index among the nodes of all runs. The first run's stand for what has none.
constexpr uint32_t NO_PLACE = 0;
constexpr uint32_t BEHIND_FULL_FROM = 1;  // the node is a note's `full_from` or behind it

// A slot, or with a null node none. Two words, so that it is handed on in registers.
struct slot_position {
    ZT_MEMM_NODE *node;
    uint16_t slot_index;
    uint16_t entry_index;  // of the slot's entry in its home line, or NOT_SEEN
    uint32_t place;        // of the node of a long owner; of others NO_PLACE or BEHIND_FULL_FROM

    ZT_MEMM_SLOT &slot() const { return node->slots[slot_index]; }
};
static_assert(sizeof(slot_position) == 16, "two words");
constexpr uint16_t NOT_SEEN = UINT16_MAX;

slot_position slot_at(ZT_MEMM_NODE *node, uint32_t slot_index, uint32_t place)
{
    return {node, static_cast<uint16_t>(slot_index), NOT_SEEN, place};
}

node_run &run_of(uint32_t place)
{
    return runs[place / RUN_NODES];
}

uint32_t bit_of(uint32_t place)
{
    return 1U << place % RUN_NODES;
}

ZT_MEMM_NODE *node_at(uint32_t place)
{
    return run_of(place).nodes[place % RUN_NODES];
}

uint32_t lowest_bit(uint32_t bits)
{
    return static_cast<uint32_t>(__builtin_ctz(bits));
}

uint32_t highest_bit(uint32_t bits)
{
    return 31 - static_cast<uint32_t>(__builtin_clz(bits));
}

// ---- Lines

struct line_key {
    uint32_t home;
    uint32_t print;  // where an entry has it
};

// Multiplying by the golden ratio spreads neighbouring regions of memory evenly over all lines. Blocks within
// 256 bytes of each other have one home, so that few lines are touched; low bits of the print tell them
// apart.
line_key key_of(uint32_t owner, LPVOID block)
{
    const auto address = reinterpret_cast<uintptr_t>(block);
    const uint64_t hash = (address >> 8 ^ uint64_t{owner} << 48) * UINT64_C(0x9E3779B97F4A7C15);
    const auto print = static_cast<uint32_t>(address >> 4 ^ hash >> 24);
    return {static_cast<uint32_t>(hash >> (64 - LINE_BITS)), print << PRINT_SHIFT};
}

block_line &line_behind(uint32_t home, uint32_t distance)
{
    return lines[(home + distance) % LINE_COUNT];
}

uint32_t entry_for(line_key key, uint32_t place, uint32_t slot_index)
{
    return key.print | place << PLACE_SHIFT | slot_index;
}

// One bit for each entry that has the value `wanted` in the bits of `mask`. Four entries are compared at a
// time; the packs narrow 16 answers to a byte each, and the last one, which is the counters', is dropped.
uint32_t matching_entries(const block_line &line, uint32_t wanted, uint32_t mask)
{
    const auto *quarters = reinterpret_cast<const __m128i *>(&line);
    const __m128i wanted_everywhere = _mm_set1_epi32(static_cast<int>(wanted));
    const __m128i mask_everywhere = _mm_set1_epi32(static_cast<int>(mask));
    const auto compared = [&](int quarter) {
        return _mm_cmpeq_epi32(_mm_and_si128(_mm_load_si128(quarters + quarter), mask_everywhere),
                               wanted_everywhere);
    };
    const __m128i low = _mm_packs_epi32(compared(0), compared(1));
    const __m128i high = _mm_packs_epi32(compared(2), compared(3));
    const auto answers = static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
    return answers & ((1U << LINE_ENTRIES) - 1);
}

void remember_block(uint32_t owner, uint32_t place, uint32_t slot_index, LPVOID block)
{
    const line_key key = key_of(owner, block);
    block_line &home = lines[key.home];
    for (uint32_t distance = 0; distance <= LONGEST_REACH; ++distance) {
        block_line &line = line_behind(key.home, distance);
        if (line.used() == LINE_ENTRIES)
            continue;
        line.entries[line.used()] = entry_for(key, place, slot_index);
        line.counts += ONE_USED;
        if (distance != 0)
            home.counts += ONE_AWAY;
        if (distance > home.reach())
            home.set_reach(distance);
        return;
    }
    home.counts += ONE_LOST;
}

void remove_entry(block_line &line, uint32_t index)
{
    line.counts -= ONE_USED;
    const uint32_t last = line.used();
    line.entries[index] = line.entries[last];
    line.entries[last] = 0;
}

[[gnu::noinline]] void forget_block(uint32_t owner, uint32_t place, uint32_t slot_index, LPVOID block)
{
    const line_key key = key_of(owner, block);
    const uint32_t entry = entry_for(key, place, slot_index);
    block_line &home = lines[key.home];
    for (uint32_t distance = 0; distance <= home.reach(); ++distance) {
        block_line &line = line_behind(key.home, distance);
        const uint32_t found = matching_entries(line, entry, UINT32_MAX);
        if (found == 0)
            continue;
        remove_entry(line, lowest_bit(found));
        if (distance != 0)
            home.counts -= ONE_AWAY;
        if (home.away() == 0)
            home.set_reach(0);
        return;
    }
    home.counts -= ONE_LOST;
}

// ---- Vacancies

// Which slot falls vacant, and whether its node was full, is chance: hence sums rather than branches, which
// would be mispredicted.
void note_vacant_slot(uint32_t place, uint32_t slot_index)
{
    node_run &run = run_of(place);
    long_owner &owner = owners[run.owner];
    const bool is_first_of_node = (run.vacant & bit_of(place)) == 0;
    const bool is_front = owner.vacant_nodes == 0 || run.rank > runs[owner.vacant_run].rank;
    run.vacant_slots[place % RUN_NODES] |= static_cast<uint16_t>(1U << slot_index);
    run.vacant |= static_cast<uint16_t>(bit_of(place));
    owner.vacant_nodes += is_first_of_node;
    owner.vacant_run = is_front ? static_cast<uint16_t>(place / RUN_NODES) : owner.vacant_run;
}

void note_no_vacancy(uint32_t place)
{
    node_run &run = run_of(place);
    owners[run.owner].vacant_nodes -= (run.vacant & bit_of(place)) != 0;
    run.vacant &= static_cast<uint16_t>(~bit_of(place));
}

void note_taken_slot(uint32_t place, uint32_t slot_index)
{
    node_run &run = run_of(place);
    uint16_t &vacant_slots = run.vacant_slots[place % RUN_NODES];
    vacant_slots &= static_cast<uint16_t>(~(1U << slot_index));
    const uint32_t is_full = vacant_slots == 0;
    run.vacant &= static_cast<uint16_t>(~(is_full << place % RUN_NODES));
    owners[run.owner].vacant_nodes -= is_full;
}

// A node with a vacant slot offers it, its count being 12 at most, unless it is the inline node: callers that
// disassociate null may drive that one's count below 0, and then it never offers one again.
slot_position first_vacant_slot_of_long_owner(uint32_t owner_number)
{
    long_owner &owner = owners[owner_number];
    while (owner.vacant_nodes != 0) {
        while (runs[owner.vacant_run].vacant == 0)
            owner.vacant_run = runs[owner.vacant_run].next;
        const node_run &run = runs[owner.vacant_run];
        const uint32_t index = highest_bit(run.vacant);
        const uint32_t place = owner.vacant_run * RUN_NODES + index;
        if (run.nodes[index]->count < ZR_MEMM_NODE_SLOTS)
            return slot_at(run.nodes[index], lowest_bit(run.vacant_slots[index]), place);
        note_no_vacancy(place);
    }
    return {};
}

// ---- Runs

uint16_t take_run()
{
    uint16_t taken = free_run;
    if (taken != 0)
        free_run = runs[taken].next;
    else if (runs_ever_used < RUN_COUNT - 1)
        taken = static_cast<uint16_t>(++runs_ever_used);
    else
        return 0;
    ++runs_in_use;
    return taken;
}

// A run in second place, or the owner's first, with the next lower rank; 0 when there is none left.
uint16_t add_run(uint16_t owner_number)
{
    const uint16_t added = take_run();
    if (added == 0)
        return 0;
    node_run &run = runs[added];
    run.owner = owner_number;
    const uint16_t first = owners[owner_number].first_run;
    if (first == 0) {
        owners[owner_number].first_run = added;
        run.rank = FIRST_RANK;
        run.next = 0;
        return added;
    }
    run.previous = first;
    run.next = runs[first].next;
    run.rank = run.next != 0 ? runs[run.next].rank + 1 : 0;
    if (run.next != 0)
        runs[run.next].previous = added;
    runs[first].next = added;
    return added;
}

void release_run(uint16_t released)
{
    node_run &run = runs[released];
    long_owner &owner = owners[run.owner];
    if (owner.first_run == released)
        owner.first_run = run.next;
    if (owner.vacant_run == released)
        owner.vacant_run = run.next;
    if (run.previous != 0)
        runs[run.previous].next = run.next;
    if (run.next != 0)
        runs[run.next].previous = run.previous;
    run = {};
    run.next = free_run;
    free_run = released;
    --runs_in_use;
}

// ---- Nodes

// Every slot as its block pointer tells; counts are not relied on.
[[gnu::noinline]] void put_node(uint32_t place, ZT_MEMM_NODE *node)
{
    node_run &run = run_of(place);
    run.nodes[place % RUN_NODES] = node;
    run.live |= static_cast<uint16_t>(bit_of(place));
    for (uint32_t i = 0; i < ZR_MEMM_NODE_SLOTS; ++i) {
        if (node->slots[i].block != nullptr)
            remember_block(run.owner, place, i, node->slots[i].block);
        else
            note_vacant_slot(place, i);
    }
}

// A node without blocks joins the owner's chain. Its place, or NO_PLACE when none is left.
uint32_t add_node(uint16_t owner_number, ZT_MEMM_NODE *node)
{
    uint16_t newest = runs[owners[owner_number].first_run].next;
    if (newest == 0 || runs[newest].made == RUN_NODES)
        newest = add_run(owner_number);
    if (newest == 0)
        return NO_PLACE;
    const uint32_t place = newest * RUN_NODES + runs[newest].made++;
    put_node(place, node);
    return place;
}

void forget_blocks_of_node(uint32_t place)
{
    const ZT_MEMM_NODE &node = *node_at(place);
    for (uint32_t i = 0; i < ZR_MEMM_NODE_SLOTS; ++i)
        if (node.slots[i].block != nullptr)
            forget_block(run_of(place).owner, place, i, node.slots[i].block);
}

// A node is about to leave the chain, empty or, where its count was wrong, not.
[[gnu::noinline]] void remove_node(uint32_t place)
{
    node_run &run = run_of(place);
    forget_blocks_of_node(place);
    note_no_vacancy(place);
    run.vacant_slots[place % RUN_NODES] = 0;
    run.live &= static_cast<uint16_t>(~bit_of(place));
    if (run.live == 0)
        release_run(static_cast<uint16_t>(place / RUN_NODES));
}

// Calls `action` with the place of each node in the order of the chain, until it returns true.
template <typename Action> void walk_places(uint32_t owner_number, Action action)
{
    for (uint32_t run = owners[owner_number].first_run; run != 0;) {
        const uint32_t next = runs[run].next;  // `action` may release the run
        for (uint32_t left = runs[run].live; left != 0;) {
            const uint32_t index = highest_bit(left);
            left &= ~(1U << index);
            if (action(run * RUN_NODES + index))
                return;
        }
        run = next;
    }
}

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
