// Findings: what the checker tells. Each kind has a name, which suppressions and the JSON use.
#pragma once

#include "places.h"

enum finding_kind {
    LEAK,
    WRONG_TAG,
    DOUBLE_RELEASE,
    NOT_RECORDED,
    RECORDED_TWICE,
    RECORDED_FREED,
    TAG_ZERO,
    NULL_DISASSOCIATED,
    NULL_RESIZED,
    NULL_FREED,
    USED_AFTER_RELEASE,
    WRONG_KIND,
    SECTION_HELD,
    UNORDERED_REMOVAL,
    NO_COMPARATOR,
    TWO_THREADS,
    MODES_MIXED,
    FINDING_KINDS
};

const char *name_of(finding_kind kind);

// Another place that belongs to a finding, and what happened there.
struct related_place {
    const char *what;  // "recorded"
    const place *where;
};

struct finding {
    finding_kind kind;
    const place *where;  // null at the end of the process
    char message[256];
    bool has_tag, has_size;
    uint64_t tag;
    uint64_t size;    // bytes
    uint64_t blocks;  // of a leak, otherwise 0
    related_place related[3];

    // Filled in when it is reported.
    int thread;
    const frame *frames;
    uint32_t frame_count;
};

// A finding about a call; the message is formatted.
finding found_at(finding_kind kind, const place *where, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
void add_related(finding *found, const char *what, const place *where);

// Write it, unless it is suppressed or was written before: the same mistake at the same place is told once
// and counted from then on. Ends the process when that is asked for. Not under the lock.
void report(finding *found);

// At the end of the process, behind all findings: how many there were. Nothing when there was none.
void report_summary();

// In the child of a fork: what the parent has told is not the child's.
void forget_reported();

// ---- Shared by the forms of the report

struct summary {
    uint64_t written;     // findings
    uint64_t repeated;    // times that one of them was met again
    uint64_t suppressed;  // times that a finding was suppressed
};

// A line, or several, to be written at once. What does not fit is left out.
struct report_text {
    char bytes[32768];
    uint64_t length;

    void append(const char *format, ...) __attribute__((format(printf, 2, 3)));
};

void write_as_text(report_text *out, const finding &found);
void write_as_text(report_text *out, const summary &counts);
void write_as_json(report_text *out, const finding &found);
void write_as_json(report_text *out, const summary &counts);

// "FILE:LINE"; for a place without a file the function, as far as it is known.
void write_place(char *text, uint64_t size, const place &where);

// A shell's pattern of "*" and "?".
bool matches(const char *pattern, const char *text);
