#include "catalogue.h"

#include "entry_order.h"

#include <algorithm>
#include <memory>

constexpr uint64_t ENTRIES_INCREMENT = 4096;

struct catalogue {
    memory_owner &owner;
    memory_section section{owner.tag()};                                    // guards what follows
    memory_array<catalogue_entry> entries{owner.tag(), ENTRIES_INCREMENT};  // in the order of adding
    memory_pool pool{owner};                                                // entries and their texts

    const catalogue_entry **listed = nullptr;  // in the order of the result
    uint64_t listed_count = 0;
    catalogue_totals totals = {};
};

namespace {

/* Sorted insertion into the library's array costs what it costs, so entries are collected as they come and
 * sorted once, in a vector of the catalogue's own: first to find the spellings of one file, then in the
 * order asked for. */
const catalogue_entry **copy_entries(const catalogue *files)
{
    auto *all = static_cast<const catalogue_entry **>(
        files->owner.alloc((files->entries.size() + 1) * sizeof(const catalogue_entry *)));
    if (all != nullptr)
        std::copy(files->entries.begin(), files->entries.end(), all);
    return all;
}

void count_listed(catalogue_totals &totals, const catalogue_entry &entry)
{
    totals.problems += entry.problem != nullptr ? 1 : 0;
    if (entry.kind == UNKNOWN_KIND)
        return;
    kind_totals &kind = totals.kinds[entry.kind];
    ++kind.images;
    kind.bytes += entry.bytes;
    kind.without_module += entry.lacks_module ? 1 : 0;
    ++totals.images;
    totals.bytes += entry.bytes;
}

void count_entry(catalogue_totals &totals, const catalogue_entry &entry)
{
    switch (entry.state) {
    case entry_state::pending:
        ++totals.unread;
        break;
    case entry_state::empty:
        ++totals.empty;
        ++totals.skipped;
        break;
    case entry_state::skipped:
        ++totals.skipped;
        break;
    case entry_state::listed:
        count_listed(totals, entry);
        break;
    }
}

// Count each file once and keep those that are listed; returns their number.
uint64_t keep_listed(const catalogue_entry **entries, uint64_t count, catalogue_totals &totals)
{
    uint64_t kept = 0;
    const catalogue_entry *last = nullptr;
    for (uint64_t i = 0; i < count; ++i) {
        const catalogue_entry *entry = entries[i];
        if (last != nullptr && is_same_file(*last, *entry))
            continue;
        last = entry;
        count_entry(totals, *entry);
        if (entry->state == entry_state::listed)
            entries[kept++] = entry;
    }
    return kept;
}

}  // namespace

catalogue *catalogue_open(memory_owner &owner)
{
    auto *files = owner.make<catalogue>(owner);
    if (files == nullptr || (files->section && files->entries))
        return files;
    catalogue_close(files);
    return nullptr;
}

void catalogue_close(catalogue *files)
{
    std::destroy_at(files);
}

catalogue_entry *catalogue_add(catalogue *files, const CHAR *path, const folder_identity &folder)
{
    const std::lock_guard inside(files->section);
    auto *entry = static_cast<catalogue_entry *>(
        memory_pool_alloc(files->pool, sizeof(catalogue_entry), alignof(catalogue_entry)));
    const CHAR *copy = memory_pool_text(files->pool, path);
    if (entry == nullptr || copy == nullptr || files->entries.add(entry) != 0) {
        ++files->totals.lost;
        return nullptr;
    }
    OS_memset(entry, 0, sizeof(catalogue_entry));
    entry->path = copy;
    entry->folder = folder;
    entry->number = files->entries.size();
    entry->kind = UNKNOWN_KIND;
    return entry;
}

void catalogue_count_lost(catalogue *files)
{
    const std::lock_guard inside(files->section);
    ++files->totals.lost;
}

uint64_t catalogue_added(catalogue *files)
{
    const std::lock_guard inside(files->section);
    return files->entries.size();
}

catalogue_entry *catalogue_taken(catalogue *files, uint64_t index)
{
    const std::lock_guard inside(files->section);
    return files->entries[index];
}

void catalogue_set_problem(catalogue *files, catalogue_entry *entry, const CHAR *reason)
{
    const std::lock_guard inside(files->section);
    const CHAR *copy = memory_pool_text(files->pool, reason);
    entry->problem = copy != nullptr ? copy : "has a problem for whose words there is no memory";
}

bool catalogue_finish(catalogue *files, sort_key key, bool is_reversed)
{
    const uint64_t count = files->entries.size();
    files->listed = copy_entries(files);
    if (files->listed == nullptr)
        return false;
    sort_by_identity(files->listed, count);
    files->listed_count = keep_listed(files->listed, count, files->totals);
    sort_for_output(files->listed, files->listed_count, key, is_reversed);
    return true;
}

uint64_t catalogue_size(const catalogue *files)
{
    return files->listed_count;
}

const catalogue_entry &catalogue_at(const catalogue *files, uint64_t index)
{
    return *files->listed[index];
}

const catalogue_totals &catalogue_count(const catalogue *files)
{
    return files->totals;
}
