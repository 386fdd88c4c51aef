#include "findings.h"

#include "calls.h"
#include "lock.h"
#include "options.h"
#include "suppressions.h"
#include "table.h"

#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uint32_t SHOWN_FRAMES = 24;

struct told_finding {
    uint64_t key;
    told_finding *next;
    finding_kind kind;
    const place *where, *other;
};

hash_table<told_finding> told;
summary counts;

uint64_t key_of(const finding &found)
{
    return mixed(reinterpret_cast<uintptr_t>(found.where) + static_cast<uint64_t>(found.kind)) +
           reinterpret_cast<uintptr_t>(found.related[0].where);
}

bool is_told(const finding &found)
{
    return told.find(key_of(found), [&](const told_finding &each) {
        return each.kind == found.kind && each.where == found.where && each.other == found.related[0].where;
    }) != nullptr;
}

// Counts the finding when it was told before.
bool is_repeated(const finding &found)
{
    const locked guard;
    const bool is_known = is_told(found);
    counts.repeated += is_known;
    return is_known;
}

// Counts the finding; false when another thread has told it meanwhile.
bool is_new(const finding &found)
{
    const locked guard;
    if (is_told(found)) {
        ++counts.repeated;
        return false;
    }
    ++counts.written;
    auto *added = static_cast<told_finding *>(take_bytes(sizeof(told_finding)));
    *added = {key_of(found), nullptr, found.kind, found.where, found.related[0].where};
    told.insert(added);
    return true;
}

void write_all(int descriptor, const report_text &text)
{
    for (uint64_t written = 0; written < text.length;) {
        const ssize_t count = syscall(SYS_write, descriptor, text.bytes + written, text.length - written);
        if (count <= 0)
            return;  // nobody can be told
        written += static_cast<uint64_t>(count);
    }
}

// The file is opened each time, so that the program has no descriptor that it does not know of. Files are the
// system's: the program may have functions of its own for the C library's.
void put_out(const report_text &text)
{
    int descriptor = STDERR_FILENO;
    if (checker_options.output != nullptr)
        descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, checker_options.output,
                                              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    write_all(descriptor, text);
    if (checker_options.output != nullptr)
        syscall(SYS_close, descriptor);
}

// Findings are few: each maps its text for itself, for it fits no thread's stack.
template <typename Told> void put_out(const Told &told_now)
{
    auto *text = static_cast<report_text *>(map_pages(sizeof(report_text)));
    if (checker_options.is_json)
        write_as_json(text, told_now);
    else
        write_as_text(text, told_now);
    put_out(*text);
    unmap_pages(text, sizeof *text);
}

}  // namespace

finding found_at(finding_kind kind, const place *where, const char *format, ...)
{
    finding found = {};
    found.kind = kind;
    found.where = where;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(found.message, sizeof found.message, format, arguments);
    va_end(arguments);
    return found;
}

void add_related(finding *found, const char *what, const place *where)
{
    if (where == nullptr)
        return;
    for (related_place &each : found->related) {
        if (each.where == nullptr) {
            each = {what, where};
            return;
        }
    }
}

void report(finding *found)
{
    if (is_repeated(*found))  // before the stack is taken, which costs most
        return;
    frame frames[SHOWN_FRAMES];
    found->thread = thread_number();
    if (found->kind == LEAK) {
        found->frames = found->where->frames;
        found->frame_count = found->where->frame_count;
    } else if (found->where != nullptr) {
        found->frames = frames;
        found->frame_count = stack_here(frames, SHOWN_FRAMES);
    }
    if (is_suppressed(*found)) {
        const locked guard;
        ++counts.suppressed;
        return;
    }
    if (!is_new(*found))
        return;
    put_out(*found);
    if (checker_options.is_fatal) {
        signal(SIGABRT, SIG_DFL);
        abort();
    }
}

void report_summary()
{
    if (counts.written != 0)
        put_out(counts);
}

void forget_reported()
{
    counts = {};
}

void report_text::append(const char *format, ...)
{
    const uint64_t rest = sizeof bytes - length;
    va_list arguments;
    va_start(arguments, format);
    const int added = vsnprintf(bytes + length, rest, format, arguments);
    va_end(arguments);
    if (added > 0)
        length += static_cast<uint64_t>(added) < rest ? static_cast<uint64_t>(added) : rest - 1;
}
