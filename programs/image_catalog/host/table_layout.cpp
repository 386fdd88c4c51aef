#include "table_layout.h"

#include <string.h>

namespace {

// Of all rows, and the title; 0 for a column in which nothing stands.
uint64_t natural_width(const catalogue *files, const column_record &column, const column_style &style,
                       CHAR *cell)
{
    uint64_t width = 0;
    for (uint64_t row = 0; row < catalogue_size(files); ++row) {
        const uint64_t needed = column.write(catalogue_at(files, row), style, cell);
        width = needed > width ? needed : width;
    }
    const uint64_t title = strlen(column.title);
    return width > title ? width : title;
}

uint64_t total_width(const table_layout &layout)
{
    uint64_t total = 0;
    for (const table_column &column : layout.columns)
        if (column.is_shown)
            total += column.width + COLUMN_GAP;
    return total > 0 ? total - COLUMN_GAP : 0;
}

table_column &at(table_layout &layout, column_id id)
{
    return layout.columns[static_cast<UINT>(id)];
}

// What gives way, one after the other, until the rest fits.
struct concession {
    column_id column;
    bool is_left_out;  // else shortened
    uint64_t short_width;
};

const concession concessions[] = {
    {column_id::modified, false, 10}, {column_id::md5, false, 8},     {column_id::md5, true, 0},
    {column_id::crc32, true, 0},      {column_id::modified, true, 0}, {column_id::dpi, true, 0},
};

void concede(table_layout &layout, const concession &step)
{
    table_column &column = at(layout, step.column);
    if (step.is_left_out) {
        column.is_shown = false;
        return;
    }
    column.style.is_short = true;
    column.width = column.width < step.short_width ? column.width : step.short_width;
}

// The path column may be made as narrow as this before a column is left out for it.
uint64_t least_path_width(uint64_t natural, uint64_t columns)
{
    const uint64_t share = columns * 2 / 5;
    return natural < share ? natural : share;
}

void fit(table_layout &layout, uint64_t columns)
{
    table_column &path = at(layout, column_id::path);
    const uint64_t natural = path.width;
    path.width = least_path_width(natural, columns);
    for (const concession &step : concessions) {
        if (total_width(layout) <= columns)
            break;
        concede(layout, step);
    }
    const uint64_t others = total_width(layout) - path.width;
    const uint64_t room = columns > others ? columns - others : 0;
    constexpr uint64_t narrowest = 8;
    path.width = room < narrowest ? narrowest : room < natural ? room : natural;
}

}  // namespace

table_layout layout_table(const catalogue *files, uint64_t columns, CHAR *cell)
{
    table_layout layout = {};
    for (UINT i = 0; i < COLUMN_COUNT; ++i) {
        table_column &column = layout.columns[i];
        column.width = natural_width(files, table_columns[i], column.style, cell);
        column.is_shown = column.width != 0;
    }
    if (columns != 0)
        fit(layout, columns);
    return layout;
}
