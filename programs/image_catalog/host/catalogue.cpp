#include "catalogue.h"

#include "catalog_memory.h"

#include <string.h>

struct catalogue {
    uint64_t tag;
    LPVOID section;      // guards what follows
    ZT_DT_ANY *entries;  // of catalogue_entry, sorted by path
    uint64_t skipped;
    uint64_t lost;
};

namespace {

constexpr uint64_t ENTRIES_INCREMENT = 256;

INT compare_paths(LPVOID a, LPVOID b)
{
    return strcmp(static_cast<const catalogue_entry *>(a)->path,
                  static_cast<const catalogue_entry *>(b)->path);
}

bool add_entry(catalogue *files, const CHAR *path, const file_report &report)
{
    catalogue_entry key = {report, path};
    if (ZR_array_ptr_find(files->entries, &key, nullptr) == 0)
        return true;
    key.path = memory_text(files->tag, path);
    auto *entry = static_cast<catalogue_entry *>(memory_alloc(files->tag, sizeof(catalogue_entry)));
    if (key.path == nullptr || entry == nullptr)
        return false;
    OS_memcpy(entry, &key, sizeof key);
    return memory_array_add(files->entries, entry);
}

}  // namespace

catalogue *catalogue_open(uint64_t tag)
{
    auto *files = static_cast<catalogue *>(memory_alloc(tag, sizeof(catalogue)));
    if (files == nullptr)
        return nullptr;
    *files = {tag, memory_section(tag), memory_array(tag, ENTRIES_INCREMENT, compare_paths), 0, 0};
    if (files->section != nullptr && files->entries != nullptr)
        return files;
    catalogue_close(files);
    return nullptr;
}

void catalogue_close(catalogue *files)
{
    if (files->section != nullptr)
        memory_section_free(files->tag, files->section);
}

void catalogue_add(catalogue *files, const CHAR *path, const file_report &report)
{
    const inside_section inside(files->section);
    if (!add_entry(files, path, report))
        ++files->lost;
}

void catalogue_count_skipped(catalogue *files)
{
    const inside_section inside(files->section);
    ++files->skipped;
}

void catalogue_count_lost(catalogue *files)
{
    const inside_section inside(files->section);
    ++files->lost;
}

uint64_t catalogue_size(const catalogue *files)
{
    return array_count(files->entries);
}

const catalogue_entry *catalogue_at(const catalogue *files, uint64_t index)
{
    return static_cast<const catalogue_entry *>(array_element(files->entries, index));
}

catalogue_totals catalogue_count(const catalogue *files)
{
    catalogue_totals totals;
    totals.skipped = files->skipped;
    totals.lost = files->lost;
    for (uint64_t i = 0; i < catalogue_size(files); ++i) {
        const file_report &report = catalogue_at(files, i)->report;
        totals.images += report.kind != image_kind::unknown ? 1 : 0;
        totals.problems += report.has_problem() ? 1 : 0;
    }
    return totals;
}
