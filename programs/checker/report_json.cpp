// The report for machines: one JSON object a line. Tags and addresses are texts, for they have 64 bits.

#include "findings.h"

#include <unistd.h>

namespace {

// The length of the well-formed UTF-8 sequence at `text`, or 0. Overlong and surrogate forms are let pass by
// no reader, so neither are they here.
uint32_t utf8_length(const unsigned char *text)
{
    const unsigned char first = text[0];
    const uint32_t length = first < 0x80   ? 1
                            : first < 0xc2 ? 0
                            : first < 0xe0 ? 2
                            : first < 0xf0 ? 3
                            : first < 0xf5 ? 4
                                           : 0;
    for (uint32_t i = 1; i < length; ++i)
        if ((text[i] & 0xc0) != 0x80)
            return 0;
    const bool is_ill_formed = (first == 0xe0 && text[1] < 0xa0) || (first == 0xed && text[1] >= 0xa0) ||
                               (first == 0xf0 && text[1] < 0x90) || (first == 0xf4 && text[1] >= 0x90);
    return is_ill_formed ? 0 : length;
}

void append_string(report_text *out, const char *given)
{
    out->append("\"");
    for (auto *text = reinterpret_cast<const unsigned char *>(given); *text != '\0';) {
        const uint32_t length = utf8_length(text);
        if (length == 0)
            out->append("\\ufffd");
        else if (*text < 0x20 || *text == '"' || *text == '\\')
            out->append("\\u%04x", *text);
        else
            out->append("%.*s", static_cast<int>(length), reinterpret_cast<const char *>(text));
        text += length == 0 ? 1 : length;
    }
    out->append("\"");
}

void append_string_or_null(report_text *out, const char *text)
{
    if (text != nullptr)
        append_string(out, text);
    else
        out->append("null");
}

void append_frames(report_text *out, const frame *frames, uint32_t count)
{
    out->append("[");
    for (uint32_t i = 0; i < count; ++i) {
        out->append("%s{\"address\":\"0x%lx\",\"function\":", i == 0 ? "" : ",", frames[i].address);
        append_string_or_null(out, frames[i].function);
        out->append(",\"object\":");
        append_string_or_null(out, frames[i].object);
        out->append(",\"offset\":%lu}", frames[i].offset);
    }
    out->append("]");
}

void append_place_members(report_text *out, const place &where)
{
    out->append("\"function\":");
    append_string(out, where.function);
    out->append(",\"file\":");
    append_string_or_null(out, where.file);
    if (where.file != nullptr)
        out->append(",\"line\":%d", where.line);
    out->append(",\"frames\":");
    append_frames(out, where.frames, where.frame_count);
}

void append_head(report_text *out, const char *kind)
{
    out->append("{\"kind\":");
    append_string(out, kind);
    out->append(",\"process\":%d", getpid());
}

}  // namespace

void write_as_json(report_text *out, const finding &found)
{
    append_head(out, name_of(found.kind));
    out->append(",\"thread\":%d,\"message\":", found.thread);
    append_string(out, found.message);
    if (found.has_tag)
        out->append(",\"tag\":\"0x%lx\"", found.tag);
    if (found.has_size)
        out->append(",\"bytes\":%lu", found.size);
    if (found.blocks != 0)
        out->append(",\"blocks\":%lu", found.blocks);
    if (found.where != nullptr) {
        out->append(",\"place\":{");
        append_place_members(out, *found.where);
        out->append("}");
    }
    out->append(",\"related\":[");
    const char *separator = "";
    for (const related_place &each : found.related) {
        if (each.where == nullptr)
            continue;
        out->append("%s{\"what\":", separator);
        append_string(out, each.what);
        out->append(",");
        append_place_members(out, *each.where);
        out->append("}");
        separator = ",";
    }
    out->append("],\"stack\":");
    append_frames(out, found.frames, found.frame_count);
    out->append("}\n");
}

void write_as_json(report_text *out, const summary &counts)
{
    append_head(out, "summary");
    out->append(",\"findings\":%lu,\"repeated\":%lu,\"suppressed\":%lu}\n", counts.written, counts.repeated,
                counts.suppressed);
}
