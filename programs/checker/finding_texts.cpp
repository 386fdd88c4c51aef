// What suppressions and reports share about findings.

#include "findings.h"

#include <stdio.h>

namespace {

constexpr const char *KIND_NAMES[] = {
    "leak",           "wrong-tag",         "double-release",     "not-recorded",
    "recorded-twice", "recorded-freed",    "tag-zero",           "null-disassociated",
    "null-resized",   "null-freed",        "used-after-release", "wrong-kind",
    "section-held",   "unordered-removal", "no-comparator",      "two-threads",
    "modes-mixed",
};
static_assert(sizeof KIND_NAMES / sizeof *KIND_NAMES == FINDING_KINDS, "one name a kind");

}  // namespace

const char *name_of(finding_kind kind)
{
    return KIND_NAMES[kind];
}

void write_place(char *text, uint64_t size, const place &where)
{
    if (where.file != nullptr)
        snprintf(text, size, "%s:%d", where.file, where.line);
    else if (where.frame_count != 0 && where.frames[0].function != nullptr)
        snprintf(text, size, "%s+0x%lx", where.frames[0].function, where.frames[0].offset);
    else
        snprintf(text, size, "address 0x%lx", where.frame_count != 0 ? where.frames[0].address : 0);
}

bool matches(const char *pattern, const char *text)
{
    if (*pattern == '*')
        return matches(pattern + 1, text) || (*text != '\0' && matches(pattern, text + 1));
    if (*text == '\0' || *pattern == '\0')
        return *text == *pattern;
    return (*pattern == '?' || *pattern == *text) && matches(pattern + 1, text + 1);
}
