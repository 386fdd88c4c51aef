#include "objects.h"

#include <stdio.h>

finding found_about(finding_kind kind, const place *where, const object &known, const char *message)
{
    finding found = found_at(kind, where, "%s", message);
    if (is_recorded(known.kind)) {
        found.has_tag = found.has_size = true;
        found.tag = known.tag;
        found.size = known.size;
    }
    const bool is_made_by_recording = known.kind == BLOCK || known.kind == VECTOR;
    add_related(&found, is_made_by_recording ? "recorded" : "created", known.made_at);
    if (known.state == RELEASED)
        add_related(&found, "released", known.ended_at);
    else if (is_recorded(known.kind))
        add_related(&found, "tag drawn", place_of_draw(known.tag));
    return found;
}

void report_not_live(const place *where, const void *address, uint64_t tag, const object &known)
{
    char message[200];
    if (known.key == 0) {
        finding found = found_at(NOT_RECORDED, where, "%s is given %p, which is recorded under no tag",
                                 where->function, address);
        found.has_tag = true;
        found.tag = tag;
        return report(&found);
    }
    const char *noun = noun_of(known.kind);
    if (known.state == RELEASED) {
        const int length =
            snprintf(message, sizeof message, "%s is given %s %p", where->function, noun, address);
        const uint64_t rest = sizeof message - static_cast<uint64_t>(length);
        if (is_recorded(known.kind))
            snprintf(message + length, rest, " of %lu bytes under tag 0x%lx, which was released before",
                     known.size, known.tag);
        else
            snprintf(message + length, rest, ", which was released before");
        finding found = found_about(DOUBLE_RELEASE, where, known, message);
        return report(&found);
    }
    snprintf(message, sizeof message, "%s is given %s %p of %lu bytes under tag 0x%lx, but its tag is 0x%lx",
             where->function, noun, address, known.size, tag, known.tag);
    finding found = found_about(WRONG_TAG, where, known, message);
    report(&found);
}

void report_if_tag_zero(const place *where, uint64_t tag)
{
    if (tag != 0)
        return;
    finding found =
        found_at(TAG_ZERO, where, "%s is given tag 0, whose blocks may get lost", where->function);
    found.has_tag = true;
    report(&found);
}

namespace {

void report_lost_place(place *where, void *how)
{
    const auto &lost = where->lost;
    char under[48] = "several tags";
    if (!lost.has_several_tags)
        snprintf(under, sizeof under, "tag 0x%lx", lost.tag);
    finding found = found_at(LEAK, where, "%lu byte%s in %lu block%s under %s, %s", lost.bytes,
                             lost.bytes == 1 ? "" : "s", lost.blocks, lost.blocks == 1 ? "" : "s", under,
                             static_cast<const char *>(how));
    found.has_size = true;
    found.size = lost.bytes;
    found.blocks = lost.blocks;
    if (!lost.has_several_tags) {
        found.has_tag = true;
        found.tag = lost.tag;
        add_related(&found, "tag drawn", place_of_draw(lost.tag));
    }
    report(&found);
}

}  // namespace

void report_leaks(const char *how)
{
    visit_lost_places(report_lost_place, const_cast<char *>(how));
}

void report_held()
{
    constexpr uint32_t LIMIT = 16;
    object held[LIMIT];
    const uint32_t count = copy_held(held, LIMIT);
    for (uint32_t i = 0; i < count; ++i) {
        finding found =
            found_at(SECTION_HELD, nullptr, "a %s is still held by thread %d at the end of the process",
                     noun_of(held[i].kind), held[i].holder);
        add_related(&found, "entered", held[i].entered_at);
        add_related(&found, "created", held[i].made_at);
        report(&found);
    }
}
