#include "memory/memory_model.h"

#include <algorithm>
#include <utility>

void memory_model::refuse_allocation(unsigned n)
{
    allocations_before_refusal = n;
}

steps memory_model::take_steps()
{
    allocations_before_refusal = NONE;
    return std::exchange(made, {});
}

// ---- Operations

unsigned memory_model::allocate_elsewhere(size_t size)
{
    return request("malloc", size, "block");
}

void memory_model::release_elsewhere(unsigned block)
{
    free_call("block", block);
}

unsigned memory_model::allocate(uint64_t tag, size_t size)
{
    const unsigned block = request("malloc", size, "block");
    if (block == 0 || associate(tag, block, size))
        return block;
    free_call("block", block);
    return 0;
}

unsigned memory_model::reallocate(unsigned block, size_t size)
{
    const block_facts facts = blocks.at(block);
    const unsigned moved = allocate(facts.tag, size);
    if (moved != 0)
        blocks.at(moved).filling = facts.filling;
    release(block);
    return moved;
}

unsigned memory_model::reallocate_null(uint64_t tag, size_t size)
{
    const bool has_vacancy = records.count(tag) != 0 && vacant_slot(tag) != nullptr;
    return has_vacancy ? allocate(tag, size) : 0;
}

bool memory_model::associate(uint64_t tag, unsigned block, size_t size)
{
    if (records.count(tag) == 0 && !add_record(tag))
        return false;
    unsigned *slot = vacant_slot(tag);
    if (slot == nullptr) {
        const unsigned number = request("calloc", 336, "node");
        if (number == 0)
            return false;
        std::vector<node> &nodes = records[tag].nodes;
        nodes.insert(nodes.begin() + 1, node{number, {}});
        slot = &nodes[1].slots[0];
    }
    *slot = block;
    blocks[block] = {tag, size, 0};
    return true;
}

void memory_model::release(unsigned block)
{
    free_call("block", block);
    disassociate(block);
}

void memory_model::disassociate(unsigned block)
{
    const uint64_t tag = blocks.at(block).tag;
    blocks.erase(block);
    std::vector<node> &nodes = records.at(tag).nodes;
    const auto holder = std::find_if(nodes.begin(), nodes.end(), [=](const node &each) {
        return std::count(each.slots.begin(), each.slots.end(), block) != 0;
    });
    std::replace(holder->slots.begin(), holder->slots.end(), block, 0u);
    if (holder->slots != decltype(holder->slots){})
        return;
    if (holder != nodes.begin()) {
        free_call("node", holder->number);
        nodes.erase(holder);
    } else if (nodes.size() == 1) {
        remove_record(tag);
    }
}

LONG memory_model::release_tag(uint64_t tag)
{
    if (records.count(tag) == 0)
        return -1;
    const LONG released = release_blocks(tag);
    remove_record(tag);
    return released;
}

LONG memory_model::release_everything()
{
    LONG released = 0;
    for (bucket &each : buckets) {
        if (each.in_table != 0)
            released += release_blocks(each.in_table);
        for (const uint64_t tag : each.behind) {
            released += release_blocks(tag);
            free_call("record", records[tag].number);
        }
        each = {};
    }
    records.clear();
    return released;
}

std::vector<uint64_t> memory_model::image() const
{
    std::vector<uint64_t> all;
    const auto add_record_of = [&](uint64_t tag) {
        all.push_back(tag);
        if (tag == 0)
            return;
        for (const node &each : records.at(tag).nodes)
            for (const unsigned block : each.slots)
                all.insert(all.end(), {block, block != 0 ? blocks.at(block).size : 0});
    };
    for (const bucket &each : buckets) {
        add_record_of(each.in_table);
        for (const uint64_t tag : each.behind)
            add_record_of(tag);
    }
    return all;
}

// ---- Heap calls

unsigned memory_model::request(const std::string &call, size_t size, const std::string &kind)
{
    const bool is_refused = allocations_before_refusal == 0;
    if (allocations_before_refusal != NONE)
        --allocations_before_refusal;
    if (is_refused) {
        made.push_back(words(call, ' ', size, " refused"));
        return 0;
    }
    const unsigned number = ++numbers[kind];
    made.push_back(words(call, ' ', size, " -> ", kind, ' ', number));
    return number;
}

void memory_model::free_call(const std::string &kind, unsigned number)
{
    made.push_back(words("free ", kind, ' ', number));
}

// ---- Records and nodes

bool memory_model::add_record(uint64_t tag)
{
    bucket &home = buckets[tag % BUCKETS];
    if (home.in_table == 0) {
        home.in_table = tag;
        records[tag] = {};
        return true;
    }
    const unsigned number = request("calloc", 360, "record");
    if (number == 0)
        return false;
    records[tag].number = number;
    home.behind.insert(home.behind.begin(), tag);
    return true;
}

void memory_model::remove_record(uint64_t tag)
{
    bucket &home = buckets[tag % BUCKETS];
    if (home.in_table == tag) {
        home.in_table = 0;
    } else {
        free_call("record", records[tag].number);
        home.behind.erase(std::find(home.behind.begin(), home.behind.end(), tag));
    }
    records.erase(tag);
}

unsigned *memory_model::vacant_slot(uint64_t tag)
{
    for (node &each : records[tag].nodes)
        for (unsigned &slot : each.slots)
            if (slot == 0)
                return &slot;
    return nullptr;
}

LONG memory_model::release_blocks(uint64_t tag)
{
    LONG released = 0;
    for (const node &each : records[tag].nodes) {
        for (const unsigned block : each.slots) {
            if (block != 0) {
                free_call("block", block);
                blocks.erase(block);
                ++released;
            }
        }
        if (each.number != 0)
            free_call("node", each.number);
    }
    return released;
}
