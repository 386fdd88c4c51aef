// The nodes of long owners in the order of their chains, and which of them offer a slot. Part of
// dt_types.cpp; see dt_types_blocks.h.
//
// A run holds nodes of one owner in the order of their making, so that its highest bit is the newest one. The
// inline node has a run to itself, the owner's first; new runs join in second place. As nodes join their
// chain in second place too, the chain is the runs from the first on, each from its highest bit down: that
// tells which of several slots with the same block, or of several vacancies, a search meets first.
// Of each run
//   live            == set of its nodes that are in the chain; the others' pointers are never followed
//   vacant_slots[i] == set of node i's slots that hold no block, for a live node
//   vacant          == set of live nodes that have any; once its count is wrong, the inline node may be
//   missing rank             > that of every run behind it
// and of each owner
//   vacant_nodes == number of bits in its runs' `vacant`
//   no run in front of vacant_run has such a bit, if there is any
#pragma once

#include "dt_types_lines.h"
#include "dt_types_records.h"

namespace {

#ifdef QV_TINY_LOOKASIDE
constexpr uint32_t RUN_COUNT = 8;
constexpr uint32_t RUN_NODES = 2;
constexpr uint32_t OWNER_COUNT = 4;
#else
constexpr uint32_t RUN_COUNT = 670;  // the first is never used, for 0 means none
constexpr uint32_t RUN_NODES = 16;
constexpr uint32_t OWNER_COUNT = 256;  // likewise
#endif
constexpr uint32_t PLACE_COUNT = RUN_COUNT * RUN_NODES;
constexpr uint64_t FIRST_RANK = UINT64_MAX;
static_assert(PLACE_COUNT <= 1U << (PRINT_SHIFT - PLACE_SHIFT), "a place has 14 bits");
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

}  // namespace
