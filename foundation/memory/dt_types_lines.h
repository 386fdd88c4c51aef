// Where the blocks of long owners are, by address. Part of dt_types.cpp; see dt_types_blocks.h.
//
// A line is one cache line of entries; an entry names a node, a slot and 14 bits of the block's address. A
// block's owner and address choose its home line. What finds its home full goes to one of the next lines, and
// what finds these full too is only counted. For each line, between two calls,
//   entries whose home it is (`away` of them in the next `reach` lines) + lost
//       == occupied slots of long owners whose block has its home here
// so a home that has lost nothing answers exactly, hit or miss; one that has sends the search along the
// chain. An entry is believed only after a look into the slot that it names.
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
constexpr uint32_t LINE_ENTRIES = 15;

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

block_line lines[LINE_COUNT];

uint32_t lowest_bit(uint32_t bits)
{
    return static_cast<uint32_t>(__builtin_ctz(bits));
}

uint32_t highest_bit(uint32_t bits)
{
    return 31 - static_cast<uint32_t>(__builtin_clz(bits));
}

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

}  // namespace
