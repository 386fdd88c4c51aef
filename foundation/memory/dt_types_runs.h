// The nodes of long owners in the order of their chains, and which of them offer a slot. Part of
// dt_types.cpp; see dt_types_blocks.h.
//
// A run holds nodes of one owner in the order of their making, so that its highest bit is the newest one; new
// runs join in front. The inline node has the highest bit of the first run, and moves there when a run joins.
// As nodes join their chain in second place, the chain is thus the runs from the first on, each from its
// highest bit down: that tells which of several slots with the same block, or of several vacancies, a search
// meets first.
// Of each run
//   live   == set of its nodes that are in the chain; the others' pointers are never followed
//   vacant == set of live nodes with any vacant_slots
//   rank    > that of every run behind it
// of each live node
//   vacant_slots == set of its slots that hold no block; once its count is wrong, the inline node's may lack
//   some
// and of each owner
//   vacant_run, its next_vacant and so on are the runs with a vacant node, in the order of the chain
#pragma once

#include "dt_types_lines.h"
#include "dt_types_records.h"

namespace {

#ifdef QV_TINY_LOOKASIDE
constexpr uint32_t RUN_COUNT = 8;
constexpr uint32_t RUN_NODES = 3;
constexpr uint32_t OWNER_COUNT = 4;
#else
constexpr uint32_t RUN_COUNT = 168;  // the first is never used, for 0 means none
constexpr uint32_t RUN_NODES = 64;
constexpr uint32_t OWNER_COUNT = RUN_COUNT;  // likewise; each needs a run
#endif
constexpr uint32_t INLINE_INDEX = RUN_NODES - 1;  // of the inline node in the first run
constexpr uint32_t CHAINED_NODES = RUN_NODES - 1;
constexpr uint32_t PLACE_COUNT = RUN_COUNT * RUN_NODES;
static_assert(PLACE_COUNT <= 1U << (PRINT_SHIFT - PLACE_SHIFT), "a place has 14 bits");
static_assert(PLACE_COUNT * ZR_MEMM_NODE_SLOTS <= UINT32_MAX / ONE_LOST, "`lost` can count all slots");

using node_set = uint64_t;
static_assert(RUN_NODES <= 64, "a set of nodes has 64 bits");

struct node_run {
    node_set live;
    node_set vacant;
    uint64_t rank;
    uint16_t owner;
    uint16_t next;  // neighbours among the owner's runs, 0 at either end; `next` also links the free ones
    uint16_t previous;
    uint16_t next_vacant;  // where it has a vacant node itself
    uint16_t made;         // nodes that the run was given so far but for the inline one, up to CHAINED_NODES
};

struct long_owner {
    ZT_MEMM_TAG_RECORD *record;  // null in a number not taken
    uint16_t first_run;
    uint16_t vacant_run;
};

// The place of a node is its index among the nodes of all runs. The first run's stand for what has none.
constexpr uint32_t NO_PLACE = 0;
constexpr uint32_t BEHIND_FULL_FROM = 1;  // the node is a note's `full_from` or behind it

ZT_MEMM_NODE *nodes[PLACE_COUNT];
uint16_t vacant_slots[PLACE_COUNT];
node_run runs[RUN_COUNT];
long_owner owners[OWNER_COUNT];
uint16_t free_run;        // the first of those given back, 0 for none
uint32_t runs_in_use;     // taken and not given back
uint32_t runs_ever_used;  // those behind it were never touched

static_assert(sizeof cells + sizeof notes_of_heads + sizeof lines + sizeof nodes + sizeof vacant_slots +
                      sizeof runs + sizeof owners <
                  1U << 20,
              "the lookaside has at most 1 MiB");

// A slot, or with a null node none. Two words, so that it is handed on in registers.
struct slot_position {
    ZT_MEMM_NODE *node;
    uint16_t slot_index;
    uint16_t place;        // of the node of a long owner; of others NO_PLACE or BEHIND_FULL_FROM
    uint32_t entry_index;  // among all lines' words, of the slot's entry; NOT_SEEN where it was not come by

    ZT_MEMM_SLOT &slot() const { return node->slots[slot_index]; }
};
static_assert(sizeof(slot_position) == 16, "two words");
constexpr uint32_t NOT_SEEN = UINT32_MAX;

slot_position slot_at(ZT_MEMM_NODE *node, uint32_t slot_index, uint32_t place)
{
    return {node, static_cast<uint16_t>(slot_index), static_cast<uint16_t>(place), NOT_SEEN};
}

node_run &run_of(uint32_t place)
{
    return runs[place / RUN_NODES];
}

node_set bit_of(uint32_t place)
{
    return node_set{1} << place % RUN_NODES;
}

// ---- Vacancies

// Mostly the run is in front of all others in the list: where blocks come and go, what falls vacant there is
// taken next, and old vacancies gather at the chain's end. Run 0, which ends the list, has the lowest rank.
void link_vacant_run(uint16_t added)
{
    node_run &run = runs[added];
    uint16_t *link = &owners[run.owner].vacant_run;
    while (runs[*link].rank > run.rank)
        link = &runs[*link].next_vacant;
    run.next_vacant = *link;
    *link = added;
}

void unlink_vacant_run(uint16_t removed)
{
    uint16_t *link = &owners[runs[removed].owner].vacant_run;
    while (*link != removed)
        link = &runs[*link].next_vacant;
    *link = runs[removed].next_vacant;
}

void note_vacant_slots(uint32_t place, uint32_t slots)
{
    node_run &run = run_of(place);
    if (run.vacant == 0)
        link_vacant_run(static_cast<uint16_t>(place / RUN_NODES));
    run.vacant |= bit_of(place);
    vacant_slots[place] |= static_cast<uint16_t>(slots);
}

void note_no_vacancy(uint32_t place)
{
    node_run &run = run_of(place);
    if (vacant_slots[place] == 0)
        return;
    vacant_slots[place] = 0;
    run.vacant &= ~bit_of(place);
    if (run.vacant == 0)
        unlink_vacant_run(static_cast<uint16_t>(place / RUN_NODES));
}

// A node with a vacant slot offers it, its count being 12 at most, unless it is the inline node: callers that
// disassociate null may drive that one's count below 0, and then it never offers one again.
slot_position take_first_vacant_slot(long_owner &owner)
{
    while (owner.vacant_run != 0) {
        node_run &run = runs[owner.vacant_run];
        const uint32_t place = owner.vacant_run * RUN_NODES + highest_bit(run.vacant);
        if (nodes[place]->count >= ZR_MEMM_NODE_SLOTS) [[unlikely]] {
            note_no_vacancy(place);
            continue;
        }
        const uint32_t offered = vacant_slots[place];
        const uint32_t left = offered & (offered - 1);
        vacant_slots[place] = static_cast<uint16_t>(left);
        run.vacant &= ~(node_set{left == 0} << place % RUN_NODES);
        if (run.vacant == 0)
            owner.vacant_run = run.next_vacant;
        return slot_at(nodes[place], lowest_bit(offered), place);
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

// A run in front of the owner's others, or 0 when there is none left.
uint16_t add_run(uint16_t owner_number)
{
    const uint16_t added = take_run();
    if (added == 0)
        return 0;
    const uint16_t next = owners[owner_number].first_run;
    runs[added] = {0, 0, runs[next].rank + 1, owner_number, next, 0, 0, 0};
    if (next != 0)
        runs[next].previous = added;
    owners[owner_number].first_run = added;
    return added;
}

// The first one, which has the inline node, goes only with its owner.
void release_run(uint16_t released)
{
    node_run &run = runs[released];
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
    nodes[place] = node;
    run.live |= bit_of(place);
    uint32_t vacant = 0;
    for (uint32_t i = 0; i < ZR_MEMM_NODE_SLOTS; ++i) {
        if (node->slots[i].block != nullptr)
            remember_block(run.owner, place, i, node->slots[i].block);
        else
            vacant |= 1U << i;
    }
    if (vacant != 0)
        note_vacant_slots(place, vacant);
}

void forget_blocks_of_node(uint32_t place)
{
    const ZT_MEMM_NODE &node = *nodes[place];
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
    run.live &= ~bit_of(place);
    if (run.live == 0)
        release_run(static_cast<uint16_t>(place / RUN_NODES));
}

// Make room for one more node in the owner's first run; false when there is none.
bool add_run_if_full(uint16_t owner_number)
{
    const uint16_t first = owners[owner_number].first_run;
    if (runs[first].made < CHAINED_NODES)
        return true;
    const uint16_t added = add_run(owner_number);
    if (added == 0)
        return false;
    const uint32_t inline_place = first * RUN_NODES + INLINE_INDEX;
    ZT_MEMM_NODE *inline_node = nodes[inline_place];
    remove_node(inline_place);
    put_node(added * RUN_NODES + INLINE_INDEX, inline_node);
    return true;
}

// A node without blocks joins the owner's chain; false when there is no place for it.
bool add_node(uint16_t owner_number, ZT_MEMM_NODE *node)
{
    if (!add_run_if_full(owner_number))
        return false;
    const uint32_t first = owners[owner_number].first_run;
    put_node(first * RUN_NODES + runs[first].made++, node);
    return true;
}

// Calls `action` with the place of each node in the order of the chain, until it returns true.
template <typename Action> void walk_places(uint32_t owner_number, Action action)
{
    for (uint32_t run = owners[owner_number].first_run; run != 0;) {
        const uint32_t next = runs[run].next;  // `action` may release the run
        for (node_set left = runs[run].live; left != 0;) {
            const uint32_t place = run * RUN_NODES + highest_bit(left);
            left &= ~bit_of(place);
            if (action(place))
                return;
        }
        run = next;
    }
}

}  // namespace
