#include "table_cells.h"

#include "characters.h"
#include "foundation/os.h"
#include "moment.h"

#include <string.h>

namespace {

constexpr UINT SHORT_DIGEST_LENGTH = 8;

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

uint64_t write_mark(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    return copy_cell(entry.problem != nullptr || entry.lacks_module ? "!" : "", cell);
}

uint64_t write_path(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    return printable_text(entry.path, cell);
}

uint64_t write_kind(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    const CHAR *name = name_of_kind(entry.kind);
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

uint64_t write_size(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    return entry.width != 0 ? write_pair(entry.width, entry.height, cell) : unknown_cell(cell);
}

uint64_t write_dpi(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    if (!entry.has_dpi)
        return unknown_cell(cell);
    return entry.dpi_x == entry.dpi_y ? write_number(entry.dpi_x, cell)
                                      : write_pair(entry.dpi_x, entry.dpi_y, cell);
}

uint64_t write_bytes(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    return entry.has_bytes ? write_number(entry.bytes, cell) : unknown_cell(cell);
}

uint64_t write_crc32(const catalogue_entry &entry, const column_style &, CHAR *cell)
{
    return entry.has_digests ? static_cast<uint64_t>(OS_sprintf(cell, "%08x", entry.crc32))
                             : unknown_cell(cell);
}

uint64_t write_md5(const catalogue_entry &entry, const column_style &style, CHAR *cell)
{
    if (!entry.has_digests)
        return unknown_cell(cell);
    OS_guid_to_string(entry.md5, cell);  // sixteen bytes as lower-case digits, as a digest is written
    if (style.is_short)
        cell[SHORT_DIGEST_LENGTH] = '\0';
    return strlen(cell);
}

uint64_t write_modified(const catalogue_entry &entry, const column_style &style, CHAR *cell)
{
    ZT_DATETIME moment;
    if (!entry.has_modified || !moment_from_epoch(entry.modified, moment))
        return unknown_cell(cell);
    return static_cast<uint64_t>(style.is_short ? moment_date_text(moment, cell) : moment_text(moment, cell));
}

}  // namespace

const column_record table_columns[COLUMN_COUNT] = {
    {column_id::mark, "", false, write_mark},
    {column_id::path, "Path", false, write_path},
    {column_id::kind, "Kind", false, write_kind},
    {column_id::size, "Size", true, write_size},
    {column_id::dpi, "DPI", true, write_dpi},
    {column_id::bytes, "Bytes", true, write_bytes},
    {column_id::crc32, "CRC-32", false, write_crc32},
    {column_id::md5, "MD5", false, write_md5},
    {column_id::modified, "Modified", false, write_modified},
};

uint64_t cell_size(const catalogue *files)
{
    constexpr uint64_t longest_without_path = 64;
    uint64_t size = longest_without_path;
    for (uint64_t row = 0; row < catalogue_size(files); ++row) {
        const uint64_t needed = PRINTABLE_BYTES_PER_BYTE * strlen(catalogue_at(files, row).path) + 1;
        size = needed > size ? needed : size;
    }
    return size;
}
