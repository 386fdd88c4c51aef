#include "memory/memory_table.h"

#include <set>

namespace {

bool is_vacant(const ZT_MEMM_SLOT &slot)
{
    return slot.flags == 0 && slot.size == 0 && slot.block == nullptr;
}

class inspection {
public:
    explicit inspection(const ZT_MEMM_TABLE &table)
    {
        for (uint64_t bucket = 0; bucket < ZR_MEMM_BUCKET_COUNT; ++bucket)
            inspect_bucket(table.buckets[bucket], bucket);
    }

    std::vector<std::string> violations;

private:
    void require(bool holds, const char *equation)
    {
        if (!holds)
            violations.push_back(words("bucket ", bucket_, ", tag ", tag_, ": not so: ", equation));
    }

    void inspect_bucket(const ZT_MEMM_TAG_RECORD &head, uint64_t bucket)
    {
        bucket_ = bucket;
        tags_of_bucket_.clear();
        const ZT_MEMM_TAG_RECORD *previous = nullptr;
        for (const ZT_MEMM_TAG_RECORD *record = &head; record != nullptr; record = record->next) {
            inspect_record(*record, previous);
            previous = record;
        }
    }

    void inspect_record(const ZT_MEMM_TAG_RECORD &record, const ZT_MEMM_TAG_RECORD *previous)
    {
        tag_ = record.tag;
        require(record.previous == previous, "a record links back to the one in front, the table's to none");
        const bool is_vacant_record = previous == nullptr && tag_ == 0;
        if (!is_vacant_record) {
            require(tag_ % ZR_MEMM_BUCKET_COUNT == bucket_, "a tag's low five bits are its bucket");
            require(tags_of_bucket_.insert(tag_).second, "a tag has one record");
        } else if (bucket_ != 0) {
            require(record.first_node.count == 0, "a vacant record counts no block");
            require(record.first_node.next == nullptr, "a vacant record has no node");
        }
        const ZT_MEMM_NODE *previous_node = nullptr;
        for (const ZT_MEMM_NODE *node = &record.first_node; node != nullptr; node = node->next) {
            inspect_node(*node, previous_node);
            previous_node = node;
        }
    }

    void inspect_node(const ZT_MEMM_NODE &node, const ZT_MEMM_NODE *previous)
    {
        require(node.previous == previous, "a node links back to the one in front, the inline one to none");
        uint64_t occupied = 0;
        for (const ZT_MEMM_SLOT &slot : node.slots) {
            if (slot.block != nullptr) {
                ++occupied;
                require(slot.flags == ZR_MEMM_FLAG_RECORDED, "an occupied slot carries its flag");
            } else {
                require(is_vacant(slot), "a vacant slot is all zero");
            }
        }
        require(node.count == occupied, "a node counts its occupied slots");
        require(previous == nullptr || occupied != 0, "a node on the heap holds a block");
    }

    uint64_t bucket_ = 0;
    uint64_t tag_ = 0;
    std::set<uint64_t> tags_of_bucket_;
};

}  // namespace

std::vector<block_kind> bookkeeping_kinds()
{
    return {{heap_call::CALLOC, sizeof(ZT_MEMM_NODE), "node"},
            {heap_call::CALLOC, sizeof(ZT_MEMM_TAG_RECORD), "record"}};
}

ZT_MEMM_TABLE &memory_table(heap_trace &heap)
{
    static ZT_MEMM_TABLE *table;
    if (table == nullptr) {
        constexpr uint64_t TAG = 1;
        heap.start_over();
        for (uint64_t blocks = 0; blocks <= ZR_MEMM_NODE_SLOTS; ++blocks)
            ZR_memm_alloc(TAG, 1, "test", __LINE__);
        const auto *node = static_cast<const ZT_MEMM_NODE *>(heap.address_of("node 1"));
        constexpr size_t OFFSET = offsetof(ZT_MEMM_TABLE, buckets) + TAG * sizeof(ZT_MEMM_TAG_RECORD) +
                                  offsetof(ZT_MEMM_TAG_RECORD, first_node);
        table = reinterpret_cast<ZT_MEMM_TABLE *>(reinterpret_cast<char *>(node->previous) - OFFSET);
        ZR_memm_cleanup();
        heap.start_over();
    }
    return *table;
}

std::vector<std::string> violations_in(const ZT_MEMM_TABLE &table)
{
    return inspection(table).violations;
}

std::vector<uint64_t> image_of(const ZT_MEMM_TABLE &table, const std::map<const void *, unsigned> &numbers)
{
    constexpr uint64_t UNKNOWN_BLOCK = UINT64_MAX;
    std::vector<uint64_t> image;
    const auto number_of = [&](const void *block) -> uint64_t {
        const auto place = numbers.find(block);
        return place != numbers.end() ? place->second : block == nullptr ? 0 : UNKNOWN_BLOCK;
    };
    for (const ZT_MEMM_TAG_RECORD &head : table.buckets) {
        for (const ZT_MEMM_TAG_RECORD *record = &head; record != nullptr; record = record->next) {
            image.push_back(record->tag);
            if (record->tag == 0)
                continue;
            for (const ZT_MEMM_NODE *node = &record->first_node; node != nullptr; node = node->next)
                for (const ZT_MEMM_SLOT &slot : node->slots)
                    image.insert(image.end(), {number_of(slot.block), slot.size});
        }
    }
    return image;
}
