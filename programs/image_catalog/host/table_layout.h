// Which columns a table has, and how wide they are.
#pragma once

#include "table_cells.h"

struct table_column {
    bool is_shown;
    column_style style;
    uint64_t width;
};

struct table_layout {
    table_column columns[COLUMN_COUNT];
};

constexpr uint64_t COLUMN_GAP = 2;

// Fit the table into `columns`, 0 for any number of them: digests and dates are shortened first, then columns
// left out, then paths shortened. `cell` has room for any cell's text.
table_layout layout_table(const catalogue *files, uint64_t columns, CHAR *cell);
