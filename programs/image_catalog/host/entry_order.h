// Orders of catalogue entries.
#pragma once

#include "catalogue.h"

// The last component of a path.
const CHAR *name_in_path(const CHAR *path);

bool is_same_file(const catalogue_entry &a, const catalogue_entry &b);

// Spellings of one file side by side. The first is the one to keep: one that was read, as where it was named,
// before one that was met in a folder and skipped there; among such the one that was added first.
void sort_by_identity(const catalogue_entry **entries, uint64_t count);

// By `key`, then by path.
void sort_for_output(const catalogue_entry **entries, uint64_t count, sort_key key, bool is_reversed);
