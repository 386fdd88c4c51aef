// The result: what is known about each file, sorted by path. Threads: may be used from any, up to reporting.
#pragma once

#include "image_kind.h"
#include "image_module.h"

constexpr UINT DATE_TEXT_SIZE = 16;  // "Nov 05 2026"

// What is known about one file.
struct file_report {
    image_kind kind = image_kind::unknown;
    bool is_sized = false;  // the next is known
    uint64_t bytes = 0;
    bool is_read = false;  // the next two are known
    uint32_t crc32 = 0;
    BYTE md5[16] = {};
    CHAR modified[DATE_TEXT_SIZE] = {};  // empty when unknown
    IMAGE_FACTS facts = {};
    bool has_problem() const { return facts.problem[0] != '\0'; }
};

struct catalogue_entry {
    file_report report;
    const CHAR *path;
};

struct catalogue;

struct catalogue_totals {
    uint64_t images = 0;    // entries of a known kind
    uint64_t problems = 0;  // entries with a problem
    uint64_t skipped = 0;   // other files met in folders
    uint64_t lost = 0;      // entries for which there was no memory
};

// Null when there is no memory. Everything of the catalogue is under `tag` and goes with it.
catalogue *catalogue_open(uint64_t tag);
void catalogue_close(catalogue *files);

// Add what is known about a file. A path that is there already stays as it is.
void catalogue_add(catalogue *files, const CHAR *path, const file_report &report);
void catalogue_count_skipped(catalogue *files);
void catalogue_count_lost(catalogue *files);

// For reporting, once no thread adds any more.
uint64_t catalogue_size(const catalogue *files);
const catalogue_entry *catalogue_at(const catalogue *files, uint64_t index);
catalogue_totals catalogue_count(const catalogue *files);
