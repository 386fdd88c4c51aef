#include "report.h"

#include "catalog_memory.h"
#include "characters.h"
#include "foundation/date.h"
#include "foundation/os.h"
#include "foundation/util.h"
#include "moment.h"
#include "table_cells.h"
#include "text_output.h"

namespace {

constexpr INT STANDARD_OUTPUT = 1;

void put_string(text_output &output, const CHAR *text)
{
    output_text(output, "\"");
    while (*text != '\0') {
        const character next = first_character(text);
        CHAR escape[8];
        if (is_control(next.code)) {
            OS_sprintf(escape, "\\u%04x", next.code);
            output_text(output, escape);
        } else {
            if (*text == '"' || *text == '\\')
                output_text(output, "\\");
            output_bytes(output, text, next.bytes);
        }
        text += next.bytes;
    }
    output_text(output, "\"");
}

void put_name(text_output &output, const CHAR *name)
{
    put_string(output, name);
    output_text(output, ": ");
}

// Null stands for what is not known.
void put_text(text_output &output, const CHAR *name, const CHAR *text)
{
    put_name(output, name);
    if (text != nullptr && text[0] != '\0')
        put_string(output, text);
    else
        output_text(output, "null");
}

void put_number(text_output &output, const CHAR *name, bool is_known, uint64_t number)
{
    put_name(output, name);
    if (is_known)
        output_number(output, number);
    else
        output_text(output, "null");
}

void put_separator(text_output &output)
{
    output_text(output, ", ");
}

/* JSON text is Unicode, a path is bytes. One that is not UTF-8 is given twice: as the table prints it, and as
 * the hexadecimal digits of its bytes, from which it can be had back. */
void put_path(text_output &output, const CHAR *path, CHAR *printable)
{
    if (is_utf8(path)) {
        put_text(output, "path", path);
        return;
    }
    printable_text(path, printable);
    put_text(output, "path", printable);
    put_separator(output);
    put_name(output, "path_hex");
    output_text(output, "\"");
    for (; *path != '\0'; ++path) {
        CHAR digits[4];
        OS_sprintf(digits, "%02x", static_cast<BYTE>(*path));
        output_text(output, digits);
    }
    output_text(output, "\"");
}

// The library's short text, and ISO 8601.
void put_modified(text_output &output, const catalogue_entry &entry)
{
    CHAR date_text[16] = "";
    CHAR iso_text[MOMENT_SIZE] = "";
    ZT_DATETIME moment;
    if (entry.has_modified && moment_from_epoch(entry.modified, moment)) {
        const ZT_DATE date = {moment.year, moment.month, moment.day};
        convert_ZT_DATE_to_DATE(&date, date_text);
        moment_text(moment, iso_text);
    }
    put_text(output, "modified", date_text);
    put_separator(output);
    put_text(output, "modified_at", iso_text);
}

void put_digests(text_output &output, const catalogue_entry &entry)
{
    CHAR crc32[16] = "";
    CHAR md5[40] = "";
    if (entry.has_digests) {
        OS_sprintf(crc32, "%08x", entry.crc32);
        OS_guid_to_string(entry.md5, md5);
    }
    put_text(output, "crc32", crc32);
    put_separator(output);
    put_text(output, "md5", md5);
}

void put_entry(text_output &output, const catalogue_entry &entry, CHAR *printable)
{
    output_text(output, "    {");
    put_path(output, entry.path, printable);
    put_separator(output);
    put_text(output, "kind", name_of_kind(entry.kind));
    put_separator(output);
    put_number(output, "width", entry.width != 0, entry.width);
    put_separator(output);
    put_number(output, "height", entry.height != 0, entry.height);
    put_separator(output);
    put_number(output, "dpi_x", entry.has_dpi, entry.dpi_x);
    put_separator(output);
    put_number(output, "dpi_y", entry.has_dpi, entry.dpi_y);
    put_separator(output);
    put_number(output, "bytes", entry.has_bytes, entry.bytes);
    put_separator(output);
    put_digests(output, entry);
    put_separator(output);
    put_modified(output, entry);
    put_separator(output);
    put_text(output, "problem", entry.problem);
    output_text(output, "}");
}

void put_line(text_output &output, const CHAR *name, const CHAR *text)
{
    output_text(output, "  ");
    put_text(output, name, text);
    output_text(output, ",\n");
}

void put_head(text_output &output)
{
    BYTE guid[16];
    CHAR guid_text[40] = "";
    if (OS_create_guid(guid) != 0)
        OS_guid_to_string(guid, guid_text);
    CHAR created[24];
    OS_system_date_str_get(created);
    CHAR created_at[MOMENT_SIZE] = "";
    ZT_DATETIME now;
    if (moment_from_epoch(static_cast<int64_t>(OS_epoch_time()), now))
        moment_text(now, created_at);
    put_line(output, "catalogue", guid_text);
    put_line(output, "created", created);
    put_line(output, "created_at", created_at);
    put_line(output, "library_built", iQV_version_compile_date());
}

void put_entries(text_output &output, const catalogue *files, CHAR *printable)
{
    output_text(output, "  \"entries\": [");
    for (uint64_t i = 0; i < catalogue_size(files); ++i) {
        output_text(output, i == 0 ? "\n" : ",\n");
        put_entry(output, catalogue_at(files, i), printable);
    }
    output_text(output, "\n  ],\n");
}

void put_kind(text_output &output, const report_source &source, image_kind kind)
{
    CHAR module_name[MODULE_FILE_NAME_SIZE];
    module_file_name(kind, module_name);
    const kind_totals &totals = catalogue_count(source.files).kinds[kind];
    output_text(output, "    {");
    put_text(output, "kind", name_of_kind(kind));
    put_separator(output);
    put_number(output, "images", true, totals.images);
    put_separator(output);
    put_number(output, "bytes", true, totals.bytes);
    put_separator(output);
    put_text(output, "module", module_name);
    put_separator(output);
    put_text(output, "module_problem", modules_problem(source.modules, kind));
    output_text(output, "}");
}

void put_kinds(text_output &output, const report_source &source)
{
    output_text(output, "  \"kinds\": [");
    for (image_kind kind = 0; kind < IMAGE_KIND_COUNT; ++kind) {
        output_text(output, kind == 0 ? "\n" : ",\n");
        put_kind(output, source, kind);
    }
    output_text(output, "\n  ],\n");
}

void put_totals(text_output &output, const report_source &source)
{
    const catalogue_totals &totals = catalogue_count(source.files);
    output_text(output, "  ");
    put_number(output, "images", true, totals.images);
    put_separator(output);
    put_number(output, "bytes", true, totals.bytes);
    put_separator(output);
    put_number(output, "problems", true, totals.problems);
    put_separator(output);
    put_number(output, "skipped", true, totals.skipped);
    put_separator(output);
    put_number(output, "empty", true, totals.empty);
    put_separator(output);
    put_number(output, "unread", true, totals.unread);
    put_separator(output);
    put_name(output, "interrupted");
    output_text(output, source.is_interrupted ? "true" : "false");
}

}  // namespace

bool report_json(const report_source &source)
{
    memory_owner owner;
    auto *printable = static_cast<CHAR *>(owner.alloc(cell_size(source.files)));
    if (printable == nullptr)
        return false;
    text_output output;
    output_open(output, STANDARD_OUTPUT);
    output_text(output, "{\n");
    put_head(output);
    put_entries(output, source.files, printable);
    put_kinds(output, source);
    put_totals(output, source);
    output_text(output, "\n}\n");
    return output_flush(output);
}
