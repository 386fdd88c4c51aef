// The result: what is known about each file. Threads: entries are added and taken from any, up to
// catalogue_finish; what one thread has taken is its own until then.
#pragma once

#include "catalog_memory.h"
#include "image_kind.h"
#include "image_module.h"
#include "options.h"

// What tells that two paths are spellings of one: the folder that a file lies in, and its name there. Links
// and hard links to a file are names of their own. A folder that cannot be looked at has no identity; then
// the spelling counts.
struct folder_identity {
    uint64_t device;
    uint64_t inode;
    bool is_known;
};

enum class entry_state : BYTE {
    pending,  // not read yet, or never: the run was interrupted
    skipped,  // no image, met in a folder
    empty,    // likewise, and without content
    listed,   // a row of the result
};

struct catalogue_entry {
    const CHAR *path;     // as the user spelled its beginning
    const CHAR *problem;  // null when there is none
    folder_identity folder;
    uint64_t number;   // in the order of adding
    int64_t modified;  // epoch seconds
    uint64_t bytes;
    uint64_t width;  // pixels; 0 unknown
    uint64_t height;
    uint64_t dpi_x;
    uint64_t dpi_y;
    uint32_t crc32;
    BYTE md5[16];
    image_kind kind;
    entry_state state;
    bool is_named;    // by the user, not met in a folder
    bool is_regular;  // known to be a regular file without another look
    bool has_modified;
    bool has_bytes;
    bool has_digests;
    bool has_dpi;
    bool lacks_module;  // its module could not be used
};

struct kind_totals {
    uint64_t images;
    uint64_t bytes;
    uint64_t without_module;
};

struct catalogue_totals {
    kind_totals kinds[IMAGE_KIND_COUNT];
    uint64_t images;    // listed entries of a known kind
    uint64_t bytes;     // of them
    uint64_t problems;  // listed entries with a problem
    uint64_t skipped;   // other files met in folders, the empty ones among them
    uint64_t empty;
    uint64_t unread;  // the run was interrupted before they were read
    uint64_t lost;    // entries for which there was no memory
};

struct catalogue;

// Null when there is no memory. Everything of the catalogue is the owner's; close it before that ends.
catalogue *catalogue_open(memory_owner &owner);
void catalogue_close(catalogue *files);

// A new, pending entry; null, counted as lost, when there is no memory.
catalogue_entry *catalogue_add(catalogue *files, const CHAR *path, const folder_identity &folder);
void catalogue_count_lost(catalogue *files);

// The number of entries so far, and each by its place in the order of adding.
uint64_t catalogue_added(catalogue *files);
catalogue_entry *catalogue_taken(catalogue *files, uint64_t index);

// Give `entry` a problem, in words that the catalogue copies.
void catalogue_set_problem(catalogue *files, catalogue_entry *entry, const CHAR *reason);

// Once no thread adds any more: keep one entry of each file, and put the listed ones in order. False when
// there is no memory for that.
bool catalogue_finish(catalogue *files, sort_key key, bool is_reversed);

// For reporting, behind catalogue_finish: the listed entries.
uint64_t catalogue_size(const catalogue *files);
const catalogue_entry &catalogue_at(const catalogue *files, uint64_t index);
const catalogue_totals &catalogue_count(const catalogue *files);
