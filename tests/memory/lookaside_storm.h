// Random calls of the memory manager and of its model side by side.
#pragma once

#include "memory/dt_types_with_logged_heap.h"
#include "memory/lookaside_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

constexpr bool IS_TINY = CELL_COUNT < 100;

// Everything that is remembered, forgotten. What cells count is no memory: it proves absence.
void empty_lookaside()
{
    for (uint32_t number = 1; number < OWNER_COUNT; ++number)
        if (owners[number].record != nullptr)
            drop_note(const_cast<record_note *>(&note_of_owner(number)));
    for (record_note &note : notes_of_heads)
        note = {};
    for (record_note &cell : cells)
        cell = {nullptr, nullptr, cell.chained, 0, 0};
}

std::string difference_of_nodes(const ZT_MEMM_TAG_RECORD &real, const memory_model::record &expected)
{
    const ZT_MEMM_NODE *node = &real.first_node;
    for (const memory_model::node &each : expected.nodes) {
        if (node == nullptr || (each.address != nullptr && each.address != node))
            return "the chain of nodes";
        if (node->count != each.count)
            return "the count of a node";
        for (size_t i = 0; i < each.slots.size(); ++i)
            if (node->slots[i].flags != each.slots[i].flags || node->slots[i].size != each.slots[i].size ||
                node->slots[i].block != each.slots[i].block)
                return "a slot";
        node = node->next;
    }
    return node == nullptr ? "" : "a node too many";
}

// Where the real table differs from the model's.
std::string difference_of_tables(const memory_model &model)
{
    for (size_t bucket = 0; bucket < model.buckets.size(); ++bucket) {
        const ZT_MEMM_TAG_RECORD *record = &heap.buckets[bucket];
        for (const memory_model::record &each : model.buckets[bucket]) {
            if (record == nullptr || record->tag != each.tag)
                return "the chain of records";
            const std::string difference = difference_of_nodes(*record, each);
            if (!difference.empty())
                return difference;
            record = record->next;
        }
        if (record != nullptr)
            return "a record too many";
    }
    return "";
}

uint64_t number_from_environment(const char *name, uint64_t otherwise)
{
    const char *text = getenv(name);
    return text != nullptr ? strtoull(text, nullptr, 0) : otherwise;
}

// What a storm does. Odds are one in so many calls; 0 is never.
struct weather {
    unsigned calls;
    unsigned most_blocks;  // roughly, per phase of growth
    unsigned emptied;
    unsigned refused;
    unsigned null_disassociated;
    unsigned calls_between_checks;
};

class storm {
public:
    explicit storm(weather chosen) : now(chosen), random(number_from_environment("QV_STORM_SEED", 1))
    {
        heap_in_use = &own_heap;
        model.unique_tag_counter = heap.unique_tag_counter;
    }
    ~storm()
    {
        ZR_memm_cleanup();
        heap_in_use = nullptr;
    }

    // What the tables were seen to hold at the checks: a storm that never gets there proves nothing.
    struct sights {
        uint32_t most_runs = 0;
        uint32_t most_long_owners = 0;
        bool is_inline_of_long_owner_vacant = false;
        bool is_entry_displaced = false;
        bool is_entry_away = false;
        bool is_entry_lost = false;
        bool is_owner_refused = false;
        bool is_full_from = false;
        bool is_cell_shared = false;
    };
    sights seen;

    void run()
    {
        const uint64_t calls = number_from_environment("QV_STORM_CALLS", now.calls);
        for (call_number = 0; call_number < calls && !::testing::Test::HasFailure(); ++call_number) {
            if (call_number % 512 == 0)
                begin_phase();
            if (is_time(now.emptied))
                empty_lookaside();
            one_call();
            if (call_number % now.calls_between_checks == 0)
                check_tables();
        }
        compare(
            "cleanup", [] { return ZR_memm_cleanup(); }, [&] { return model.cleanup(); });
        check_tables();
    }

private:
    struct known_block {
        uint64_t tag;
        void *block;
    };

    const weather now;
    std::mt19937_64 random;
    logged_heap own_heap;
    memory_model model;
    std::vector<known_block> known;  // recorded, released and foreign ones alike
    uint64_t call_number = 0;
    bool is_growing = true;
    uint64_t favourite_tag = 1;
    bool is_null_disassociated = false;

    uint64_t below(uint64_t bound) { return random() % bound; }
    bool is_time(unsigned odds) { return odds != 0 && below(odds) == 0; }

    void begin_phase()
    {
        is_growing = known.size() < now.most_blocks && !is_time(3);
        favourite_tag = any_tag();
    }

    // Some share a bucket, some a cell, and tag 0 is among them.
    uint64_t any_tag()
    {
        static constexpr uint64_t tags[] = {0,  1,  2,  5,          32,         33,    37,
                                            64, 65, 69, 0x10000001, 0x10000021, 0x4001};
        return tags[below(std::size(tags))];
    }
    uint64_t tag() { return is_time(5) ? any_tag() : favourite_tag; }
    uint64_t size()
    {
        static constexpr uint64_t sizes[] = {0, 1, 16, 17, 40, 64};
        return sizes[below(std::size(sizes))];
    }
    known_block any_block()
    {
        if (known.empty() || is_time(50))
            return {tag(), nullptr};
        const bool is_recent = is_time(3) && known.size() > 20;
        known_block chosen = known[is_recent ? known.size() - 1 - below(20) : below(known.size())];
        if (is_time(12))
            chosen.tag = any_tag();
        return chosen;
    }
    void know(uint64_t its_tag, void *block)
    {
        if (block != nullptr)
            known.push_back({its_tag, block});
    }
    void unlearn(known_block released)
    {
        for (size_t i = known.size(); i-- != 0;) {
            if (known[i].block == released.block && known[i].tag == released.tag) {
                known[i] = known.back();
                known.pop_back();
                return;
            }
        }
    }

    template <typename Real, typename Modelled> auto compare(const char *name, Real real, Modelled modelled)
        -> decltype(real())
    {
        own_heap.log.clear();
        own_heap.calls_before_refusal =
            is_time(now.refused) ? static_cast<unsigned>(below(3)) : own_heap.NEVER;
        const auto result = real();
        own_heap.calls_before_refusal = own_heap.NEVER;
        model.follow(own_heap.log);
        const auto expected = modelled();
        model.finish();
        EXPECT_EQ(result, expected) << "by " << name << ", call " << call_number;
        EXPECT_EQ(model.difference, "") << "by " << name << ", call " << call_number;
        return result;
    }

    void check_tables()
    {
        EXPECT_EQ(difference_of_tables(model), "") << "after call " << call_number;
        EXPECT_STREQ(violated_equation(is_null_disassociated), nullptr) << "after call " << call_number;
        look_around();
    }
    void look_around()
    {
        seen.most_runs = std::max(seen.most_runs, runs_in_use);
        uint32_t long_owners = 0;
        for (const long_owner &owner : owners) {
            long_owners += owner.record != nullptr;
            seen.is_inline_of_long_owner_vacant |=
                owner.record != nullptr && vacant_slots[owner.first_run * RUN_NODES + INLINE_INDEX] != 0;
        }
        seen.most_long_owners = std::max(seen.most_long_owners, long_owners);
        for (const block_line &line : lines) {
            seen.is_entry_displaced |= line.displaced() != 0;
            seen.is_entry_away |= line.reach() != 0;
            seen.is_entry_lost |= line.lost() != 0;
        }
        for (const record_note &cell : cells) {
            seen.is_cell_shared |= cell.chained > 1;
            look_at(cell);
        }
        for (const record_note &note : notes_of_heads)
            look_at(note);
    }
    void look_at(const record_note &note)
    {
        seen.is_owner_refused |= note.long_lookups == NEVER_LONG;
        seen.is_full_from |= note.full_from != nullptr;
    }

    void one_call()
    {
        const uint64_t dice = below(1000);
        if (dice < 2)
            release_much();
        else if (dice < 60)
            ask_for_flags();
        else if (dice < 100)
            associate();
        else if (dice < 140)
            disassociate();
        else if (dice < 190)
            reallocate();
        else if (dice < 195)
            release_behind_the_managers_back();
        else if (dice < (is_growing ? 750U : 450U))
            allocate();
        else
            release();
    }

    void allocate()
    {
        const uint64_t its_tag = tag();
        const uint64_t its_size = size();
        know(its_tag, compare(
                          "alloc", [&] { return ZR_memm_alloc(its_tag, its_size, "test", 1); },
                          [&] { return model.alloc(its_tag, its_size); }));
    }
    void release()
    {
        const known_block chosen = any_block();
        const void *left = compare(
            "free", [&] { return ZR_memm_free(chosen.tag, chosen.block, "test", 1); },
            [&] { return model.free(chosen.tag, chosen.block); });
        if (left == nullptr)
            unlearn(chosen);
    }
    void reallocate()
    {
        const known_block chosen = any_block();
        const uint64_t its_size = size();
        void *moved = compare(
            "realloc", [&] { return ZR_memm_realloc(chosen.tag, chosen.block, its_size, "test", 1); },
            [&] { return model.realloc(chosen.tag, chosen.block, its_size); });
        know(chosen.tag, moved);
        if (moved != nullptr)
            unlearn(chosen);
    }
    // A block of the caller's, or one that is recorded already.
    void associate()
    {
        known_block chosen = any_block();
        if (chosen.block == nullptr || is_time(2))
            chosen = {tag(), own_heap.take(64)};
        const uint64_t its_size = below(16);
        compare(
            "associate", [&] { return ZR_memm_associate(chosen.tag, chosen.block, its_size); },
            [&] { return model.associate(chosen.tag, chosen.block, its_size); });
        know(chosen.tag, chosen.block);
    }
    void disassociate()
    {
        known_block chosen = any_block();
        if (chosen.block == nullptr) {
            if (!is_time(now.null_disassociated))
                return;
            is_null_disassociated = true;
        }
        const void *left = compare(
            "disassociate", [&] { return ZR_memm_disassociate(chosen.tag, chosen.block); },
            [&] { return model.disassociate(chosen.tag, chosen.block); });
        if (left != nullptr)
            return;
        unlearn(chosen);
        if (chosen.block != nullptr && is_time(2))
            own_heap.give_back(chosen.block);
    }
    void ask_for_flags()
    {
        const known_block chosen = any_block();
        compare(
            "flags", [&] { return ZR_memm_flags(chosen.tag, chosen.block); },
            [&] { return model.flags(chosen.tag, chosen.block); });
    }
    // Its record goes stale, and the heap soon hands the address out again.
    void release_behind_the_managers_back()
    {
        const known_block chosen = any_block();
        if (chosen.block != nullptr)
            own_heap.give_back(chosen.block);
    }
    void release_much()
    {
        if (is_time(8)) {
            compare(
                "cleanup", [] { return ZR_memm_cleanup(); }, [&] { return model.cleanup(); });
            known.clear();
            return;
        }
        const uint64_t its_tag = tag();
        compare(
            "free_all", [&] { return ZR_memm_free_all(its_tag); }, [&] { return model.free_all(its_tag); });
        if (!is_time(3))
            known.erase(std::remove_if(known.begin(), known.end(),
                                       [&](const known_block &each) { return each.tag == its_tag; }),
                        known.end());
    }
};

}  // namespace
