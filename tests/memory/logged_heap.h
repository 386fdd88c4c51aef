// A heap for tests that compile the memory manager into themselves: it logs every call, refuses on demand,
// hands addresses out again at once and writes over what is released, so that a stale pointer shows. A block
// may be released twice, as a caller who associates it twice asks for: the second time is logged alone.
#pragma once

#include <stdint.h>
#include <string.h>

#include <ostream>
#include <unordered_map>
#include <vector>

struct logged_call {
    enum kind_of_call { MALLOC, CALLOC, FREE } kind;
    uint64_t size;
    void *block;
};

inline std::ostream &operator<<(std::ostream &out, const logged_call &call)
{
    static const char *const names[] = {"malloc", "calloc", "free"};
    return out << names[call.kind] << '(' << call.size << ") " << call.block;
}

class logged_heap {
public:
    std::vector<logged_call> log;
    unsigned calls_before_refusal = NEVER;
    static constexpr unsigned NEVER = ~0U;

    void *allocate(logged_call::kind_of_call kind, uint64_t size)
    {
        void *block = is_refused() ? nullptr : take(size);
        if (block != nullptr && kind == logged_call::CALLOC)
            memset(block, 0, size);
        log.push_back({kind, size, block});
        return block;
    }
    void release(void *block)
    {
        log.push_back({logged_call::FREE, 0, block});
        give_back(block);
    }

    // For a caller's own blocks: past the log, and never refused.
    void *take(uint64_t size)
    {
        const uint64_t rounded = size == 0 ? 16 : (size + 15) / 16 * 16;
        std::vector<void *> &vacant = vacant_by_size[rounded];
        if (vacant.empty())
            vacant.push_back(carve(rounded));
        void *block = vacant.back();
        vacant.pop_back();
        sizes[block].is_taken = true;
        memset(block, 0x5A, rounded);
        return block;
    }
    void give_back(void *block)
    {
        block_facts &facts = sizes.at(block);
        if (!facts.is_taken)
            return;
        facts.is_taken = false;
        memset(block, 0xA5, facts.size);
        vacant_by_size[facts.size].push_back(block);
    }
    bool is_taken(void *block) const { return sizes.at(block).is_taken; }

private:
    struct block_facts {
        uint64_t size;
        bool is_taken;
    };
    std::unordered_map<uint64_t, std::vector<void *>> vacant_by_size;
    std::unordered_map<void *, block_facts> sizes;
    std::vector<std::vector<unsigned char>> arenas;
    uint64_t left_in_arena = 0;

    bool is_refused() { return calls_before_refusal != NEVER && calls_before_refusal-- == 0; }
    void *carve(uint64_t size)
    {
        constexpr uint64_t ARENA_BYTES = 1 << 20;
        if (left_in_arena < size) {
            arenas.emplace_back(ARENA_BYTES);
            left_in_arena = ARENA_BYTES;
        }
        void *block = arenas.back().data() + (ARENA_BYTES - left_in_arena);
        left_in_arena -= size;
        sizes[block] = {size, false};
        return block;
    }
};
