// Where the blocks of long owners are, by address. Part of dt_types.cpp; see dt_types_blocks.h.
//
// A line is one cache line of entries; an entry names a node, a slot and 14 bits of the block's address. A
// block's owner and address choose its home line and in it the entry that is its own. What finds its own
// entry taken is displaced to any vacant one of the home line or of the next lines, and what finds these full
// too is only counted. For each line, between two calls,
//   own entries in use of blocks that have their home here + displaced + lost
//       == occupied slots of long owners whose block has its home here
//   displaced == entries of such blocks that are not their own, in this line or in the next `reach` ones
// so at a home that has neither displaced nor lost anything, a block is behind its own entry or not recorded:
// one look answers exactly, hit or miss. A home that has displaced some has its lines searched, and one that
// has lost some sends the search along the chain. An entry is believed only after a look into the slot that
// it names.
#pragma once

#include "foundation/types.h"

#include <emmintrin.h>

namespace {

#ifdef QV_TINY_LOOKASIDE
constexpr uint32_t LINE_BITS = 1;
constexpr uint32_t LONGEST_REACH = 1;
#else
constexpr uint32_t LINE_BITS = 13;
constexpr uint32_t LONGEST_REACH = 7;
#endif
constexpr uint32_t LINE_COUNT = 1U << LINE_BITS;

// An entry, from its lowest bit: 4 bits slot, 14 bits place of the node, 14 bits print of the block's
// address. A vacant entry is all zero.
constexpr uint32_t SLOT_MASK = 15;
constexpr uint32_t PLACE_SHIFT = 4;
constexpr uint32_t PRINT_SHIFT = 18;
constexpr uint32_t PRINT_MASK = UINT32_MAX << PRINT_SHIFT;
constexpr uint32_t LINE_WORDS = 16;
constexpr uint32_t LINE_ENTRIES = LINE_WORDS - 1;  // the last word holds counts

// The three counts of a line share a word, so that one test tells whether all is at its own entry. From its
// lowest bit: 7 displaced, 3 reach, 22 lost.
constexpr uint32_t ONE_DISPLACED = 1U << 0;
constexpr uint32_t ONE_REACH = 1U << 7;
constexpr uint32_t ONE_LOST = 1U << 10;

struct alignas(64) block_line {
    uint32_t entries[LINE_ENTRIES];
    uint32_t counts;

    uint32_t displaced() const { return counts % ONE_REACH; }
    uint32_t reach() const { return counts % ONE_LOST / ONE_REACH; }
    uint32_t lost() const { return counts / ONE_LOST; }
    bool has_all_at_own_entries() const { return counts == 0; }
    void set_reach(uint32_t distance) { counts += (distance - reach()) * ONE_REACH; }
};
static_assert(sizeof(block_line) == 64, "one cache line");
static_assert(LONGEST_REACH < ONE_LOST / ONE_REACH && LONGEST_REACH < LINE_COUNT &&
                  (LONGEST_REACH + 1) * LINE_ENTRIES < ONE_REACH,
              "`reach` and `displaced` have room");

block_line lines[LINE_COUNT];

uint32_t lowest_bit(uint32_t bits)
{
    return static_cast<uint32_t>(__builtin_ctz(bits));
}

uint32_t highest_bit(uint64_t bits)
{
    return 63 - static_cast<uint32_t>(__builtin_clzll(bits));
}

struct line_key {
    uint32_t home;
    uint32_t own;    // index of the block's own entry
    uint32_t print;  // where an entry has it
};

// Multiplying by the golden ratio spreads neighbouring regions of memory evenly over all lines. Blocks within
// 256 bytes of each other have one home, so that few lines are touched, and there own entries of their own:
// no heap block is under 32 bytes. Two regions that meet in one line mostly take a half each.
line_key key_of(uint32_t owner, LPVOID block)
{
    const auto address = reinterpret_cast<uintptr_t>(block);
    const uint64_t hash = (address >> 8 ^ uint64_t{owner} << 48) * UINT64_C(0x9E3779B97F4A7C15);
    const auto home_and_half = static_cast<uint32_t>(hash >> (64 - LINE_BITS - 1));
    const auto print = static_cast<uint32_t>(address >> 4 << PRINT_SHIFT);
    return {home_and_half / 2, static_cast<uint32_t>(address >> 5) % 8 + home_and_half % 2 * 7, print};
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

[[gnu::noinline]] void displace_entry(line_key key, uint32_t entry)
{
    block_line &home = lines[key.home];
    for (uint32_t distance = 0; distance <= LONGEST_REACH; ++distance) {
        block_line &line = line_behind(key.home, distance);
        const uint32_t vacant = matching_entries(line, 0, UINT32_MAX);
        if (vacant == 0)
            continue;
        line.entries[lowest_bit(vacant)] = entry;
        home.counts += ONE_DISPLACED;
        if (distance > home.reach())
            home.set_reach(distance);
        return;
    }
    home.counts += ONE_LOST;
}

void remember_block(uint32_t owner, uint32_t place, uint32_t slot_index, LPVOID block)
{
    const line_key key = key_of(owner, block);
    uint32_t &own_entry = lines[key.home].entries[key.own];
    const uint32_t entry = entry_for(key, place, slot_index);
    if (own_entry == 0)
        own_entry = entry;
    else
        displace_entry(key, entry);
}

[[gnu::noinline]] void forget_displaced_entry(line_key key, uint32_t entry)
{
    block_line &home = lines[key.home];
    for (uint32_t distance = 0; distance <= home.reach(); ++distance) {
        block_line &line = line_behind(key.home, distance);
        const uint32_t found = matching_entries(line, entry, UINT32_MAX);
        if (found == 0)
            continue;
        line.entries[lowest_bit(found)] = 0;
        home.counts -= ONE_DISPLACED;
        if (home.displaced() == 0)
            home.set_reach(0);
        return;
    }
    home.counts -= ONE_LOST;
}

void forget_block(uint32_t owner, uint32_t place, uint32_t slot_index, LPVOID block)
{
    const line_key key = key_of(owner, block);
    uint32_t &own_entry = lines[key.home].entries[key.own];
    const uint32_t entry = entry_for(key, place, slot_index);
    if (own_entry == entry)
        own_entry = 0;
    else
        forget_displaced_entry(key, entry);
}

}  // namespace
