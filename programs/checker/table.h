// A hash table of entries that carry their own link. An entry has
//   uint64_t key        what it is looked up by; several entries may share a key's hash, and a key
//   Entry *next         the table's
#pragma once

#include "pages.h"

inline uint64_t mixed(uint64_t key)
{
    key *= UINT64_C(0x9e3779b97f4a7c15);
    return key ^ key >> 32;
}

template <typename Entry, uint64_t hash(uint64_t) = mixed> class hash_table {
public:
    // The first entry of the key that `is_wanted` accepts.
    template <typename Predicate> Entry *find(uint64_t key, Predicate is_wanted) const
    {
        if (capacity_ == 0)
            return nullptr;
        for (Entry *entry = *chain_of(key); entry != nullptr; entry = entry->next)
            if (entry->key == key && is_wanted(*entry))
                return entry;
        return nullptr;
    }
    Entry *find(uint64_t key) const
    {
        return find(key, [](const Entry &) { return true; });
    }

    void prefetch(uint64_t key) const
    {
        if (capacity_ != 0)
            __builtin_prefetch(chain_of(key));
    }

    // The next insertion will enlarge the table.
    bool is_full() const { return 2 * count_ >= capacity_; }
    uint64_t capacity() const { return capacity_; }

    void insert(Entry *entry)
    {
        if (is_full())
            grow();
        ++count_;
        link(entry);
    }

    void remove(Entry *entry)
    {
        Entry **link = chain_of(entry->key);
        while (*link != entry)
            link = &(*link)->next;
        *link = entry->next;
        --count_;
    }

    // The predicate may do with an entry that it wants removed what it likes.
    template <typename Predicate> void remove_if(Predicate is_unwanted)
    {
        for (uint64_t i = 0; i < capacity_; ++i) {
            for (Entry **link = &chains_[i]; *link != nullptr;) {
                Entry *entry = *link, *next = entry->next;
                if (is_unwanted(entry)) {
                    *link = next;
                    --count_;
                } else {
                    link = &entry->next;
                }
            }
        }
    }

    template <typename Visitor> void visit(Visitor visitor) const
    {
        for (uint64_t i = 0; i < capacity_; ++i)
            for (Entry *entry = chains_[i]; entry != nullptr; entry = entry->next)
                visitor(*entry);
    }

    void grow()
    {
        Entry **old_chains = chains_;
        const uint64_t old_capacity = capacity_;
        capacity_ = old_capacity == 0 ? FIRST_CAPACITY : old_capacity * 2;
        chains_ = static_cast<Entry **>(map_pages(capacity_ * sizeof *chains_));
        for (uint64_t i = 0; i < old_capacity; ++i) {
            for (Entry *entry = old_chains[i], *next; entry != nullptr; entry = next) {
                next = entry->next;
                link(entry);
            }
        }
        if (old_capacity != 0)
            unmap_pages(old_chains, old_capacity * sizeof *old_chains);
    }

private:
    static constexpr uint64_t FIRST_CAPACITY = 16 * 1024;

    Entry **chain_of(uint64_t key) const { return &chains_[hash(key) & (capacity_ - 1)]; }

    void link(Entry *entry)
    {
        Entry **chain = chain_of(entry->key);
        entry->next = *chain;
        *chain = entry;
    }

    Entry **chains_ = nullptr;
    uint64_t capacity_ = 0;  // a power of two, or 0
    uint64_t count_ = 0;
};
