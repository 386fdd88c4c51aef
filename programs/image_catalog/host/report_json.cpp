#include "report.h"

#include "foundation/date.h"
#include "foundation/os.h"
#include "foundation/util.h"
#include "text_output.h"

namespace {

constexpr INT STANDARD_OUTPUT = 1;

void put_name(text_output &output, const CHAR *name)
{
    output_json_string(output, name);
    output_text(output, ": ");
}

// Null stands for what is not known.
void put_text(text_output &output, const CHAR *name, const CHAR *text)
{
    put_name(output, name);
    if (text != nullptr && text[0] != '\0')
        output_json_string(output, text);
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

void put_digests(text_output &output, const file_report &report)
{
    CHAR crc32[16] = "";
    CHAR md5[40] = "";
    if (report.is_read) {
        OS_sprintf(crc32, "%08x", report.crc32);
        OS_guid_to_string(report.md5, md5);
    }
    put_text(output, "crc32", crc32);
    put_separator(output);
    put_text(output, "md5", md5);
}

void put_entry(text_output &output, const catalogue_entry &entry)
{
    const file_report &report = entry.report;
    const IMAGE_FACTS &facts = report.facts;
    output_text(output, "    {");
    put_text(output, "path", entry.path);
    put_separator(output);
    put_text(output, "kind", name_of_kind(report.kind));
    put_separator(output);
    put_number(output, "width", facts.width != 0, facts.width);
    put_separator(output);
    put_number(output, "height", facts.height != 0, facts.height);
    put_separator(output);
    put_number(output, "dpi_x", facts.dpi_x != 0, facts.dpi_x);
    put_separator(output);
    put_number(output, "dpi_y", facts.dpi_y != 0, facts.dpi_y);
    put_separator(output);
    put_number(output, "bytes", report.is_sized, report.bytes);
    put_separator(output);
    put_digests(output, report);
    put_separator(output);
    put_text(output, "modified", report.modified);
    put_separator(output);
    put_text(output, "problem", facts.problem);
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
    put_line(output, "catalogue", guid_text);
    put_line(output, "created", created);
    put_line(output, "library_built", iQV_version_compile_date());
}

void put_entries(text_output &output, const catalogue *files)
{
    output_text(output, "  \"entries\": [");
    for (uint64_t i = 0; i < catalogue_size(files); ++i) {
        output_text(output, i == 0 ? "\n" : ",\n");
        put_entry(output, *catalogue_at(files, i));
    }
    output_text(output, "\n  ],\n");
}

void put_totals(text_output &output, const catalogue_totals &totals)
{
    output_text(output, "  ");
    put_number(output, "images", true, totals.images);
    put_separator(output);
    put_number(output, "problems", true, totals.problems);
    put_separator(output);
    put_number(output, "skipped", true, totals.skipped);
}

}  // namespace

bool report_json(const catalogue *files)
{
    text_output output;
    output_open(output, STANDARD_OUTPUT);
    output_text(output, "{\n");
    put_head(output);
    put_entries(output, files);
    put_totals(output, catalogue_count(files));
    output_text(output, "\n}\n");
    return output_flush(output);
}
