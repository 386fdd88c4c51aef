#include "suppressions.h"

#include "findings.h"
#include "pages.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct pattern {
    pattern *next;
    const char *text;
};

struct frame_pattern {
    frame_pattern *next;
    enum { FUNCTION, OBJECT, ANY_NUMBER } matches;
    const char *text;
};

struct suppression {
    suppression *next;
    const char *kind;
    pattern *places;
    frame_pattern *frames;
};

suppression *suppressions;

// ---- Reading

struct reader {
    enum { OUTSIDE, NAME, KIND, PATTERNS } state;
    suppression *current;
    frame_pattern **next_frame;
};

template <typename Record> Record *new_record()
{
    return static_cast<Record *>(take_bytes(sizeof(Record)));
}

// The text behind a prefix, or null.
const char *behind(const char *line, const char *prefix)
{
    const size_t length = strlen(prefix);
    return strncmp(line, prefix, length) == 0 ? line + length : nullptr;
}

bool is_kind_pattern(const char *text)
{
    for (int kind = 0; kind < FINDING_KINDS; ++kind)
        if (matches(text, name_of(static_cast<finding_kind>(kind))))
            return true;
    return false;
}

void add_frame_pattern(reader *at, decltype(frame_pattern::matches) what, const char *text)
{
    auto *added = new_record<frame_pattern>();
    *added = {nullptr, what, text};
    *at->next_frame = added;
    at->next_frame = &added->next;
}

// Null, or why the line cannot stand there.
const char *take_pattern(reader *at, const char *line)
{
    if (const char *text = behind(line, "place:")) {
        auto *added = new_record<pattern>();
        *added = {at->current->places, text};
        at->current->places = added;
    } else if (const char *function = behind(line, "fun:")) {
        add_frame_pattern(at, frame_pattern::FUNCTION, function);
    } else if (const char *object = behind(line, "obj:")) {
        add_frame_pattern(at, frame_pattern::OBJECT, object);
    } else if (strcmp(line, "...") == 0) {
        add_frame_pattern(at, frame_pattern::ANY_NUMBER, nullptr);
    } else {
        return "place:, fun:, obj:, \"...\" or \"}\" is expected";
    }
    return nullptr;
}

const char *take_line(reader *at, const char *line)
{
    switch (at->state) {
    case reader::OUTSIDE:
        if (strcmp(line, "{") != 0)
            return "\"{\" is expected";
        at->current = new_record<suppression>();
        at->next_frame = &at->current->frames;
        at->state = reader::NAME;
        return nullptr;
    case reader::NAME:
        at->state = reader::KIND;
        return strcmp(line, "}") == 0 ? "a name is expected" : nullptr;
    case reader::KIND:
        at->current->kind = behind(line, "qv-check:");
        at->state = reader::PATTERNS;
        if (at->current->kind == nullptr || !is_kind_pattern(at->current->kind))
            return "qv-check:KIND is expected, with a kind of finding";
        return nullptr;
    case reader::PATTERNS:
        if (strcmp(line, "}") != 0)
            return take_pattern(at, line);
        at->current->next = suppressions;
        suppressions = at->current;
        at->state = reader::OUTSIDE;
        return nullptr;
    }
    return nullptr;
}

char *content_of(const char *path)
{
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    struct stat facts;
    if (descriptor < 0)
        return nullptr;
    char *content = nullptr;
    if (fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode)) {
        const auto size = static_cast<uint64_t>(facts.st_size);
        content = static_cast<char *>(take_bytes(size + 1));
        uint64_t length = 0;
        while (length < size) {
            const ssize_t count = read(descriptor, content + length, size - length);
            if (count <= 0)
                break;
            length += static_cast<uint64_t>(count);
        }
        content[length] = '\0';
    }
    close(descriptor);
    return content;
}

char *without_spaces_around(char *line)
{
    line += strspn(line, " \t");
    size_t length = strlen(line);
    while (length != 0 && strchr(" \t\r", line[length - 1]) != nullptr)
        line[--length] = '\0';
    return line;
}

// ---- Matching

bool matches_place(const pattern &wanted, const place *where)
{
    if (where == nullptr || where->file == nullptr)
        return false;
    char text[1024];
    write_place(text, sizeof text, *where);
    return matches(wanted.text, text);
}

bool matches_any_place(const pattern &wanted, const finding &found)
{
    if (matches_place(wanted, found.where))
        return true;
    for (const related_place &each : found.related)
        if (matches_place(wanted, each.where))
            return true;
    return false;
}

bool matches_frame(const frame_pattern &wanted, const frame &found)
{
    const char *text = wanted.matches == frame_pattern::FUNCTION ? found.function : found.object;
    return matches(wanted.text, text != nullptr ? text : "???");
}

// From the top; what stands below the last pattern does not matter.
bool match_frames(const frame_pattern *wanted, const frame *frames, uint32_t count)
{
    if (wanted == nullptr)
        return true;
    if (wanted->matches == frame_pattern::ANY_NUMBER) {
        for (uint32_t skipped = 0; skipped <= count; ++skipped)
            if (match_frames(wanted->next, frames + skipped, count - skipped))
                return true;
        return false;
    }
    return count != 0 && matches_frame(*wanted, *frames) && match_frames(wanted->next, frames + 1, count - 1);
}

bool does_suppress(const suppression &each, const finding &found)
{
    if (!matches(each.kind, name_of(found.kind)))
        return false;
    for (const pattern *wanted = each.places; wanted != nullptr; wanted = wanted->next)
        if (!matches_any_place(*wanted, found))
            return false;
    return match_frames(each.frames, found.frames, found.frame_count);
}

}  // namespace

suppression_error load_suppressions(const char *path)
{
    char *rest = content_of(path);
    if (rest == nullptr)
        return {"it cannot be read", 0};
    reader at = {};
    unsigned number = 0;
    while (rest != nullptr) {
        char *line = without_spaces_around(strsep(&rest, "\n"));
        ++number;
        if (*line == '\0' || *line == '#')
            continue;
        if (const char *reason = take_line(&at, line))
            return {reason, number};
    }
    if (at.state != reader::OUTSIDE)
        return {"the last suppression does not end with \"}\"", number};
    return {};
}

bool is_suppressed(const finding &found)
{
    for (const suppression *each = suppressions; each != nullptr; each = each->next)
        if (does_suppress(*each, found))
            return true;
    return false;
}
