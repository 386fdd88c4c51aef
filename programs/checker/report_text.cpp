// The report for people: a few lines a finding, each with the process in front, as one knows it from
// valgrind.

#include "findings.h"

#include <string.h>
#include <unistd.h>

namespace {

const char *file_name_of(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

void append_prefix(report_text *out)
{
    out->append("==%d== ", getpid());
}

void append_frame(report_text *out, const char *word, const frame &each)
{
    append_prefix(out);
    const char *object = each.object != nullptr ? each.object : "???";
    if (each.function != nullptr)
        out->append("   %s %s+0x%lx (%s)\n", word, each.function, each.offset, file_name_of(object));
    else
        out->append("   %s 0x%lx (%s+0x%lx)\n", word, each.address, file_name_of(object), each.offset);
}

void append_place(report_text *out, const char *what, const place &where)
{
    append_prefix(out);
    char text[1024];
    write_place(text, sizeof text, where);
    if (what != nullptr)
        out->append("   %s by %s at %s", what, where.function, text);
    else
        out->append("   at %s", text);
    if (where.file == nullptr && where.frame_count != 0 && where.frames[0].object != nullptr)
        out->append(" (%s)", file_name_of(where.frames[0].object));
    out->append("\n");
}

// The stack begins with the caller, which a place without a file tells already. What calls main is left out.
void append_stack(report_text *out, const finding &found)
{
    const bool is_told = found.where != nullptr && found.where->file == nullptr && found.frame_count != 0 &&
                         found.where->frames[0].address == found.frames[0].address;
    for (uint32_t i = 0; i < found.frame_count; ++i) {
        const frame &each = found.frames[i];
        if (i != 0 || !is_told)
            append_frame(out, i == 0 ? "in" : "by", each);
        if (each.function != nullptr && strcmp(each.function, "main") == 0)
            return;
    }
}

}  // namespace

void write_as_text(report_text *out, const finding &found)
{
    append_prefix(out);
    out->append("%s: %s\n", name_of(found.kind), found.message);
    if (found.where != nullptr)
        append_place(out, found.kind == LEAK ? "recorded" : nullptr, *found.where);
    append_stack(out, found);
    for (const related_place &each : found.related)
        if (each.where != nullptr)
            append_place(out, each.what, *each.where);
}

void write_as_text(report_text *out, const summary &counts)
{
    append_prefix(out);
    out->append("%lu finding%s", counts.written, counts.written == 1 ? "" : "s");
    if (counts.repeated != 0)
        out->append(", met again %lu time%s", counts.repeated, counts.repeated == 1 ? "" : "s");
    if (counts.suppressed != 0)
        out->append(", %lu suppressed", counts.suppressed);
    out->append("\n");
}
