#include "entry_order.h"

#include <string.h>

#include <algorithm>

namespace {

template <typename number> INT compare_numbers(number a, number b)
{
    return a < b ? -1 : a > b ? 1 : 0;
}

// Two spellings of one file compare equal.
INT compare_identities(const catalogue_entry &a, const catalogue_entry &b)
{
    if (a.folder.is_known != b.folder.is_known)
        return a.folder.is_known ? -1 : 1;
    if (!a.folder.is_known)
        return strcmp(a.path, b.path);
    INT order = compare_numbers(a.folder.inode, b.folder.inode);
    if (order == 0)
        order = compare_numbers(a.folder.device, b.folder.device);
    return order != 0 ? order : strcmp(name_in_path(a.path), name_in_path(b.path));
}

uint64_t pixels(const catalogue_entry &entry)
{
    return entry.width * entry.height;  // below 2^62
}

INT compare_by(sort_key key, const catalogue_entry &a, const catalogue_entry &b)
{
    switch (key) {
    case sort_key::name:
        return strcmp(name_in_path(a.path), name_in_path(b.path));
    case sort_key::kind:
        return compare_numbers(a.kind, b.kind);
    case sort_key::size:
        return compare_numbers(pixels(a), pixels(b));
    case sort_key::bytes:
        return compare_numbers(a.bytes, b.bytes);
    case sort_key::modified:
        return compare_numbers(a.modified, b.modified);
    case sort_key::path:
        break;
    }
    return 0;
}

// The less is known, the higher.
INT rank_of(entry_state state)
{
    switch (state) {
    case entry_state::listed:
        return 0;
    case entry_state::pending:
        return 1;
    case entry_state::skipped:
    case entry_state::empty:
        break;
    }
    return 2;
}

}  // namespace

const CHAR *name_in_path(const CHAR *path)
{
    const CHAR *separator = strrchr(path, '/');
    return separator != nullptr ? separator + 1 : path;
}

bool is_same_file(const catalogue_entry &a, const catalogue_entry &b)
{
    return compare_identities(a, b) == 0;
}

void sort_by_identity(const catalogue_entry **entries, uint64_t count)
{
    std::sort(entries, entries + count, [](const catalogue_entry *a, const catalogue_entry *b) {
        INT order = compare_identities(*a, *b);
        if (order == 0)
            order = compare_numbers(rank_of(a->state), rank_of(b->state));
        return order != 0 ? order < 0 : a->number < b->number;
    });
}

void sort_for_output(const catalogue_entry **entries, uint64_t count, sort_key key, bool is_reversed)
{
    std::sort(entries, entries + count, [&](const catalogue_entry *a, const catalogue_entry *b) {
        INT order = compare_by(key, *a, *b);
        if (order == 0)
            order = strcmp(a->path, b->path);
        return is_reversed ? order > 0 : order < 0;
    });
}
