// The columns of the table: how each says what is known of an entry.
#pragma once

#include "catalogue.h"

enum class column_id : BYTE { mark, path, kind, size, dpi, bytes, crc32, md5, modified };
constexpr UINT COLUMN_COUNT = 9;

struct column_style {
    bool is_short;  // digests and dates by their first characters
};

struct column_record {
    column_id id;
    const CHAR *title;
    bool is_number;  // right-aligned
    // Write a cell's text and return the columns it takes.
    uint64_t (*write)(const catalogue_entry &entry, const column_style &style, CHAR *cell);
};

// In the order of the table and of column_id.
extern const column_record table_columns[COLUMN_COUNT];

// Room for the longest text of any cell of these entries.
uint64_t cell_size(const catalogue *files);
