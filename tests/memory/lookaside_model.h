// The memory manager as plainly as it can be written: lists, walked from their start in every call. It makes
// no heap call of its own; it follows a log of those that the real manager made and tells where the two part.
#pragma once

#include "memory/logged_heap.h"

#include <array>
#include <list>
#include <sstream>
#include <string>

class memory_model {
public:
    struct slot {
        uint64_t flags = 0;
        uint64_t size = 0;
        void *block = nullptr;
    };
    struct node {
        void *address = nullptr;  // null for an inline node
        uint64_t count = 0;
        std::array<slot, 13> slots;
    };
    struct record {
        void *address = nullptr;  // null for a record of the table
        uint64_t tag = 0;
        std::list<node> nodes{1};  // the inline node, then newest first
    };
    using bucket = std::list<record>;  // the record of the table, then newest first

    std::array<bucket, 32> buckets;
    uint64_t unique_tag_counter = 0;
    std::string difference;  // the first one, in words

    memory_model()
    {
        for (bucket &each : buckets)
            each.resize(1);
    }

    // The calls that the real manager made during the operation that is modelled next.
    void follow(const std::vector<logged_call> &made)
    {
        calls = &made;
        followed = 0;
    }
    void finish()
    {
        if (followed < calls->size())
            differ("a heap call too many: ", (*calls)[followed]);
    }

    uint64_t unique_tag() { return unique_tag_counter++ | 0x10000000; }

    void *alloc(uint64_t tag, uint64_t size)
    {
        void *block = allocated(logged_call::MALLOC, size);
        if (block == nullptr)
            return nullptr;
        if (!record_block(tag, block, size)) {
            released(block);
            return nullptr;
        }
        return block;
    }

    void *associate(uint64_t tag, void *block, uint64_t size)
    {
        return block != nullptr && record_block(tag, block, size) ? block : nullptr;
    }

    void *free(uint64_t tag, void *block)
    {
        if (block == nullptr)
            return nullptr;
        const place found = find(tag, block);
        if (!found.is_found)
            return block;
        released(block);
        clear(found);
        return nullptr;
    }

    void *disassociate(uint64_t tag, void *block)
    {
        const place found = find(tag, block);
        if (!found.is_found)
            return block;
        clear(found);
        return nullptr;
    }

    void *realloc(uint64_t tag, void *block, uint64_t size)
    {
        if (!find(tag, block).is_found)
            return nullptr;
        void *moved = alloc(tag, size);
        free(tag, block);
        return moved;
    }

    int64_t free_all(uint64_t tag)
    {
        bucket &chain = buckets[tag % 32];
        const auto found = find_record(chain, tag);
        if (found == chain.end())
            return -1;
        const int64_t count = release_blocks(*found);
        remove_record(chain, found);
        return count;
    }

    uint64_t flags(uint64_t tag, void *block)
    {
        const place found = find(tag, block);
        return found.is_found ? found.in_slot->flags : 0;
    }

    int64_t cleanup()
    {
        int64_t count = 0;
        for (bucket &chain : buckets) {
            for (record &each : chain) {
                count += release_blocks(each);
                if (each.address != nullptr)
                    released(each.address);
            }
            chain.clear();
            chain.resize(1);
        }
        return count;
    }

private:
    struct place {
        bool is_found = false;
        bucket *chain = nullptr;
        bucket::iterator in_record;
        std::list<node>::iterator in_node;
        slot *in_slot = nullptr;
    };

    const std::vector<logged_call> *calls = nullptr;
    size_t followed = 0;

    void differ(const char *text, const logged_call &call)
    {
        std::ostringstream words;
        words << text << call;
        if (difference.empty())
            difference = words.str();
    }
    void *allocated(logged_call::kind_of_call kind, uint64_t size)
    {
        const logged_call expected = {kind, size, nullptr};
        if (followed == calls->size()) {
            differ("a heap call is missing: ", expected);
            return nullptr;
        }
        const logged_call &call = (*calls)[followed++];
        if (call.kind != kind || call.size != size)
            differ("another heap call was made: ", call);
        return call.block;
    }
    void released(void *block)
    {
        const logged_call expected = {logged_call::FREE, 0, block};
        if (followed == calls->size()) {
            differ("a heap call is missing: ", expected);
            return;
        }
        const logged_call &call = (*calls)[followed++];
        if (call.kind != logged_call::FREE || call.block != block)
            differ("another heap call was made: ", call);
    }

    static bucket::iterator find_record(bucket &chain, uint64_t tag)
    {
        auto each = chain.begin();
        while (each != chain.end() && each->tag != tag)
            ++each;
        return each;
    }

    place find(uint64_t tag, void *block)
    {
        bucket &chain = buckets[tag % 32];
        const auto in_record = find_record(chain, tag);
        if (in_record == chain.end())
            return {};
        for (auto in_node = in_record->nodes.begin(); in_node != in_record->nodes.end(); ++in_node)
            for (slot &each : in_node->slots)
                if (each.block == block)
                    return {true, &chain, in_record, in_node, &each};
        return {};
    }

    // The record of a tag, made if need be, or the chain's end.
    bucket::iterator record_for(bucket &chain, uint64_t tag)
    {
        const auto found = find_record(chain, tag);
        if (found != chain.end())
            return found;
        if (chain.front().tag == 0) {
            chain.front() = record();
            chain.front().tag = tag;
            return chain.begin();
        }
        void *address = allocated(logged_call::CALLOC, 360);
        if (address == nullptr)
            return chain.end();
        const auto added = chain.insert(std::next(chain.begin()), record());
        added->address = address;
        added->tag = tag;
        return added;
    }

    bool record_block(uint64_t tag, void *block, uint64_t size)
    {
        bucket &chain = buckets[tag % 32];
        const auto in_record = record_for(chain, tag);
        if (in_record == chain.end())
            return false;
        for (node &each : in_record->nodes) {
            if (each.count >= 13)
                continue;
            for (slot &candidate : each.slots) {
                if (candidate.block == nullptr) {
                    ++each.count;
                    candidate = {2, size, block};
                    return true;
                }
            }
        }
        void *address = allocated(logged_call::CALLOC, 336);
        if (address == nullptr)
            return false;
        const auto added = in_record->nodes.insert(std::next(in_record->nodes.begin()), node());
        added->address = address;
        added->count = 1;
        added->slots[0] = {2, size, block};
        return true;
    }

    void clear(const place &found)
    {
        *found.in_slot = slot();
        if (--found.in_node->count != 0)
            return;
        if (found.in_node->address != nullptr) {
            released(found.in_node->address);
            found.in_record->nodes.erase(found.in_node);
            return;
        }
        found.in_node->slots = {};
        if (found.in_record->nodes.size() == 1)
            remove_record(*found.chain, found.in_record);
    }

    void remove_record(bucket &chain, bucket::iterator removed)
    {
        if (removed->address == nullptr) {
            *removed = record();
            return;
        }
        released(removed->address);
        chain.erase(removed);
    }

    int64_t release_blocks(record &owner)
    {
        int64_t count = 0;
        for (const node &each : owner.nodes) {
            for (const slot &occupied : each.slots) {
                if (occupied.block != nullptr) {
                    released(occupied.block);
                    ++count;
                }
            }
            if (each.address != nullptr)
                released(each.address);
        }
        return count;
    }
};
