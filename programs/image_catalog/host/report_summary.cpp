// What stands below the table: each problem, and the totals.
#include "report.h"

#include "catalog_memory.h"
#include "characters.h"
#include "foundation/date.h"
#include "foundation/os.h"
#include "table_cells.h"
#include "text_output.h"

#include <string.h>

namespace {

constexpr INT STANDARD_OUTPUT = 1;

void put_count(text_output &output, uint64_t count, const CHAR *one, const CHAR *many)
{
    output_number(output, count);
    output_text(output, count == 1 ? one : many);
}

// Of a kind, or of all.
struct total_line {
    const CHAR *name;
    uint64_t images;
    uint64_t bytes;
};

uint64_t digits(uint64_t number)
{
    uint64_t count = 1;
    for (; number >= 10; number /= 10)
        ++count;
    return count;
}

constexpr uint64_t NAME_WIDTH = 5;

// The numbers end below each other; those of `all` are the longest.
void put_total(text_output &output, const total_line &line, const total_line &all)
{
    const uint64_t length = strlen(line.name);
    output_text(output, line.name);
    output_padding(output, (length < NAME_WIDTH ? NAME_WIDTH - length : 0) + 2 + digits(all.images) -
                               digits(line.images));
    put_count(output, line.images, " image ", " images");
    output_padding(output, 2 + digits(all.bytes) - digits(line.bytes));
    put_count(output, line.bytes, " byte\n", " bytes\n");
}

void put_kinds(text_output &output, const catalogue_totals &totals)
{
    const total_line all = {"total", totals.images, totals.bytes};
    for (image_kind kind = 0; kind < IMAGE_KIND_COUNT; ++kind)
        if (totals.kinds[kind].images != 0)
            put_total(output, {name_of_kind(kind), totals.kinds[kind].images, totals.kinds[kind].bytes}, all);
    put_total(output, all, all);
}

void put_others(text_output &output, const catalogue_totals &totals)
{
    put_count(output, totals.problems, " problem, ", " problems, ");
    put_count(output, totals.skipped, " other file skipped", " other files skipped");
    if (totals.empty != 0) {
        output_text(output, ", ");
        output_number(output, totals.empty);
        output_text(output, totals.empty == 1 && totals.skipped == 1 ? " empty" : " of them empty");
    }
    output_text(output, "\n");
}

void put_interruption(text_output &output, const catalogue_totals &totals)
{
    output_text(output, "Interrupted: ");
    put_count(output, totals.unread, " file that was found is", " files that were found are");
    output_text(output, " not in the catalogue, nor is what was not searched\n");
}

void report_module(const module_set *modules, image_kind kind, uint64_t images)
{
    CHAR name[MODULE_FILE_NAME_SIZE];
    CHAR text[512];
    module_file_name(kind, name);
    OS_sprintf(text, "cannot be used: %s; %llu %s without size", modules_problem(modules, kind),
               static_cast<unsigned long long>(images),
               images == 1 ? "image is listed" : "images are listed");
    OS_message_box(name, text);
}

}  // namespace

bool report_problems(const report_source &source)
{
    memory_owner owner;
    auto *path = static_cast<CHAR *>(owner.alloc(cell_size(source.files)));
    for (uint64_t row = 0; path != nullptr && row < catalogue_size(source.files); ++row) {
        const catalogue_entry &entry = catalogue_at(source.files, row);
        if (entry.problem == nullptr)
            continue;
        printable_text(entry.path, path);
        OS_message_box(path, entry.problem);
    }
    for (image_kind kind = 0; kind < IMAGE_KIND_COUNT; ++kind)
        if (modules_problem(source.modules, kind) != nullptr)
            report_module(source.modules, kind, catalogue_count(source.files).kinds[kind].without_module);
    return path != nullptr;
}

bool has_problems(const report_source &source)
{
    for (image_kind kind = 0; kind < IMAGE_KIND_COUNT; ++kind)
        if (modules_problem(source.modules, kind) != nullptr)
            return true;
    return catalogue_count(source.files).problems != 0;
}

bool report_totals(const report_source &source)
{
    const catalogue_totals &totals = catalogue_count(source.files);
    CHAR created[24];
    OS_system_date_str_get(created);
    text_output output;
    output_open(output, STANDARD_OUTPUT);
    if (catalogue_size(source.files) != 0)
        output_text(output, "\n");
    put_kinds(output, totals);
    put_others(output, totals);
    if (source.is_interrupted)
        put_interruption(output, totals);
    output_text(output, "Catalogue created ");
    output_text(output, created);
    output_text(output, "\n");
    return output_flush(output);
}
