#include "report.h"

#include "catalog_memory.h"
#include "characters.h"
#include "table_layout.h"
#include "terminal.h"
#include "text_output.h"

#include <string.h>

namespace {

constexpr INT STANDARD_OUTPUT = 1;
constexpr CHAR CUT_MARK[] = "...";

struct table {
    text_output output;
    table_layout layout;
    uint64_t pending;  // spaces due in front of the next text; none end a line
};

void put_cell(table &sheet, UINT index, const CHAR *text, uint64_t width)
{
    const uint64_t room = sheet.layout.columns[index].width;
    const uint64_t rest = width < room ? room - width : 0;
    if (table_columns[index].is_number)
        sheet.pending += rest;
    if (width != 0) {
        output_padding(sheet.output, sheet.pending);
        output_text(sheet.output, text);
        sheet.pending = 0;
    }
    if (!table_columns[index].is_number)
        sheet.pending += rest;
    sheet.pending += COLUMN_GAP;
}

void end_row(table &sheet)
{
    output_text(sheet.output, "\n");
    sheet.pending = 0;
}

void put_head(table &sheet)
{
    for (UINT i = 0; i < COLUMN_COUNT; ++i)
        if (sheet.layout.columns[i].is_shown)
            put_cell(sheet, i, table_columns[i].title, strlen(table_columns[i].title));
    end_row(sheet);
}

// The end of a long path tells more than its beginning.
void put_end_of_path(table &sheet, UINT index, const CHAR *text)
{
    const uint64_t mark = strlen(CUT_MARK);
    const uint64_t room = sheet.layout.columns[index].width;
    const CHAR *end = last_columns(text, room - mark);
    output_padding(sheet.output, sheet.pending);
    output_text(sheet.output, CUT_MARK);
    output_text(sheet.output, end);
    // A wide character may leave a column free.
    sheet.pending = COLUMN_GAP + room - mark - columns_of_text(end);
}

void put_row(table &sheet, const catalogue_entry &entry, CHAR *cell)
{
    for (UINT i = 0; i < COLUMN_COUNT; ++i) {
        const table_column &column = sheet.layout.columns[i];
        if (!column.is_shown)
            continue;
        const uint64_t width = table_columns[i].write(entry, column.style, cell);
        if (table_columns[i].id == column_id::path && width > column.width)
            put_end_of_path(sheet, i, cell);
        else
            put_cell(sheet, i, cell, width);
    }
    end_row(sheet);
}

uint64_t table_width(const options &given)
{
    if (given.is_full)
        return 0;
    return given.width != 0 ? given.width : terminal_columns(STANDARD_OUTPUT);
}

}  // namespace

bool report_table(const report_source &source, const options &given)
{
    const uint64_t count = catalogue_size(source.files);
    if (count == 0)
        return true;
    memory_owner owner;
    auto *cell = static_cast<CHAR *>(owner.alloc(cell_size(source.files)));
    if (cell == nullptr)
        return false;
    table sheet = {};
    output_open(sheet.output, STANDARD_OUTPUT);
    sheet.layout = layout_table(source.files, table_width(given), cell);
    put_head(sheet);
    for (uint64_t row = 0; row < count; ++row)
        put_row(sheet, catalogue_at(source.files, row), cell);
    return output_flush(sheet.output);
}
