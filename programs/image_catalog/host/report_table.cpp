#include "report.h"

#include "catalog_memory.h"
#include "foundation/date.h"
#include "text_output.h"

#include <string.h>

namespace {

constexpr INT STANDARD_OUTPUT = 1;
constexpr uint64_t WIDEST_COLUMN = 72;  // a longer path shifts its own row only
constexpr uint64_t GAP = 2;

using cell_writer = uint64_t (*)(const catalogue_entry &entry, CHAR *text);

struct column {
    const CHAR *title;
    bool is_number;     // right-aligned
    cell_writer write;  // writes a cell's text, returns the columns it takes
};

uint64_t copy_cell(const CHAR *text, CHAR *cell)
{
    const uint64_t length = strlen(text);
    OS_memcpy(cell, text, length + 1);
    return length;
}

uint64_t unknown_cell(CHAR *cell)
{
    return copy_cell("-", cell);
}

uint64_t write_path(const catalogue_entry &entry, CHAR *cell)
{
    return printable_text(entry.path, cell);
}

uint64_t write_kind(const catalogue_entry &entry, CHAR *cell)
{
    const CHAR *name = name_of_kind(entry.report.kind);
    return name != nullptr ? copy_cell(name, cell) : unknown_cell(cell);
}

uint64_t write_pair(uint64_t x, uint64_t y, CHAR *cell)
{
    return static_cast<uint64_t>(OS_sprintf(cell, "%llux%llu", static_cast<unsigned long long>(x),
                                            static_cast<unsigned long long>(y)));
}

uint64_t write_number(uint64_t number, CHAR *cell)
{
    return static_cast<uint64_t>(OS_sprintf(cell, "%llu", static_cast<unsigned long long>(number)));
}

uint64_t write_size(const catalogue_entry &entry, CHAR *cell)
{
    const IMAGE_FACTS &facts = entry.report.facts;
    return facts.width != 0 ? write_pair(facts.width, facts.height, cell) : unknown_cell(cell);
}

uint64_t write_dpi(const catalogue_entry &entry, CHAR *cell)
{
    const IMAGE_FACTS &facts = entry.report.facts;
    if (facts.dpi_x == 0)
        return unknown_cell(cell);
    return facts.dpi_x == facts.dpi_y ? write_number(facts.dpi_x, cell)
                                      : write_pair(facts.dpi_x, facts.dpi_y, cell);
}

uint64_t write_bytes(const catalogue_entry &entry, CHAR *cell)
{
    return entry.report.is_sized ? write_number(entry.report.bytes, cell) : unknown_cell(cell);
}

uint64_t write_crc32(const catalogue_entry &entry, CHAR *cell)
{
    if (!entry.report.is_read)
        return unknown_cell(cell);
    return static_cast<uint64_t>(OS_sprintf(cell, "%08x", entry.report.crc32));
}

uint64_t write_md5(const catalogue_entry &entry, CHAR *cell)
{
    if (!entry.report.is_read)
        return unknown_cell(cell);
    OS_guid_to_string(entry.report.md5, cell);  // sixteen bytes as lower-case digits, as a digest is written
    return strlen(cell);
}

uint64_t write_modified(const catalogue_entry &entry, CHAR *cell)
{
    return entry.report.modified[0] != '\0' ? copy_cell(entry.report.modified, cell) : unknown_cell(cell);
}

uint64_t write_problem(const catalogue_entry &entry, CHAR *cell)
{
    return copy_cell(entry.report.facts.problem, cell);
}

const column columns[] = {
    {"Path", false, write_path}, {"Kind", false, write_kind},         {"Size", true, write_size},
    {"DPI", true, write_dpi},    {"Bytes", true, write_bytes},        {"CRC-32", false, write_crc32},
    {"MD5", false, write_md5},   {"Modified", false, write_modified}, {"Problem", false, write_problem},
};
constexpr uint64_t COLUMN_COUNT = sizeof columns / sizeof columns[0];

struct table {
    text_output output;
    uint64_t widths[COLUMN_COUNT];
    uint64_t pending;  // spaces due in front of the next text; none end a line
};

void put_cell(table &sheet, uint64_t index, const CHAR *text, uint64_t width)
{
    const uint64_t rest = width < sheet.widths[index] ? sheet.widths[index] - width : 0;
    if (columns[index].is_number)
        sheet.pending += rest;
    if (width != 0) {
        output_padding(sheet.output, sheet.pending);
        output_text(sheet.output, text);
        sheet.pending = 0;
    }
    if (!columns[index].is_number)
        sheet.pending += rest;
    sheet.pending += GAP;
}

void end_row(table &sheet)
{
    output_text(sheet.output, "\n");
    sheet.pending = 0;
}

void put_head(table &sheet)
{
    for (uint64_t i = 0; i < COLUMN_COUNT; ++i)
        put_cell(sheet, i, columns[i].title, strlen(columns[i].title));
    end_row(sheet);
    CHAR rule[WIDEST_COLUMN + 1];
    OS_memset(rule, '-', WIDEST_COLUMN);
    for (uint64_t i = 0; i < COLUMN_COUNT; ++i) {
        rule[sheet.widths[i]] = '\0';
        put_cell(sheet, i, rule, sheet.widths[i]);
        rule[sheet.widths[i]] = '-';
    }
    end_row(sheet);
}

void put_row(table &sheet, const catalogue_entry &entry, CHAR *cell)
{
    for (uint64_t i = 0; i < COLUMN_COUNT; ++i) {
        const uint64_t width = columns[i].write(entry, cell);
        put_cell(sheet, i, cell, width);
    }
    end_row(sheet);
}

void measure(table &sheet, const catalogue *files, CHAR *cell)
{
    for (uint64_t i = 0; i < COLUMN_COUNT; ++i) {
        sheet.widths[i] = strlen(columns[i].title);
        for (uint64_t row = 0; row < catalogue_size(files); ++row) {
            const uint64_t width = columns[i].write(*catalogue_at(files, row), cell);
            if (width > sheet.widths[i])
                sheet.widths[i] = width < WIDEST_COLUMN ? width : WIDEST_COLUMN;
        }
    }
}

void put_count(text_output &output, uint64_t count, const CHAR *one, const CHAR *many)
{
    output_number(output, count);
    output_text(output, count == 1 ? one : many);
}

void put_totals(text_output &output, const catalogue_totals &totals)
{
    CHAR created[24];
    OS_system_date_str_get(created);
    output_text(output, "\n");
    put_count(output, totals.images, " image, ", " images, ");
    put_count(output, totals.problems, " problem, ", " problems, ");
    put_count(output, totals.skipped, " other file skipped\n", " other files skipped\n");
    output_text(output, "Catalogue created ");
    output_text(output, created);
    output_text(output, "\n");
}

// Room for the longest text of any cell.
uint64_t cell_size(const catalogue *files)
{
    uint64_t size = IMAGE_PROBLEM_SIZE;
    for (uint64_t row = 0; row < catalogue_size(files); ++row) {
        const uint64_t needed = PRINTABLE_BYTES_PER_BYTE * strlen(catalogue_at(files, row)->path) + 1;
        size = needed > size ? needed : size;
    }
    return size;
}

}  // namespace

bool report_table(const catalogue *files)
{
    const uint64_t tag = memory_tag();
    auto *cell = static_cast<CHAR *>(memory_alloc(tag, cell_size(files)));
    if (cell == nullptr)
        return false;
    table sheet = {};
    output_open(sheet.output, STANDARD_OUTPUT);
    measure(sheet, files, cell);
    put_head(sheet);
    for (uint64_t row = 0; row < catalogue_size(files); ++row)
        put_row(sheet, *catalogue_at(files, row), cell);
    put_totals(sheet.output, catalogue_count(files));
    memory_free_all(tag);
    return output_flush(sheet.output);
}

bool report_problems(const catalogue *files)
{
    const uint64_t tag = memory_tag();
    auto *path = static_cast<CHAR *>(memory_alloc(tag, cell_size(files)));
    for (uint64_t row = 0; path != nullptr && row < catalogue_size(files); ++row) {
        const catalogue_entry &entry = *catalogue_at(files, row);
        if (!entry.report.has_problem())
            continue;
        printable_text(entry.path, path);
        OS_message_box(path, entry.report.facts.problem);
    }
    memory_free_all(tag);
    return path != nullptr && catalogue_count(files).problems == 0;
}
