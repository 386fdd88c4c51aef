// In front of the objects for threads of os.h: critical sections of both kinds, mutex identifiers and events,
// each operation under its three names.

#include "calls.h"
#include "checked.h"
#include "library.h"
#include "objects.h"

#include <pthread.h>
#include <stdio.h>

namespace {

// The name that was called: the plain one follows the mode of the process.
enum variant { PLAIN, THREADED, EMULATED };

// Of a plain name only where the operation itself has asked, or is about to ask, for the mode.
bool is_threaded(variant called)
{
    return called == THREADED || (called == PLAIN && library().OS_threads_support() != 0);
}

constexpr unsigned set_of(object_kind kind)
{
    return 1u << kind;
}
constexpr unsigned SECTIONS = set_of(SECTION) | set_of(MEM_SECTION);

void report_object(finding_kind kind, const place *where, const object &known, const char *complaint)
{
    char message[200];
    snprintf(message, sizeof message, "%s is given %s %p%s", where->function, noun_of(known.kind),
             reinterpret_cast<void *>(known.key), complaint);
    finding found = found_about(kind, where, known, message);
    report(&found);
}

void report_mixed_modes(const place *where, const object &known)
{
    report_object(MODES_MIXED, where, known,
                  known.is_threaded ? ", made in threaded mode and used in emulated mode"
                                    : ", made in emulated mode and used in threaded mode");
}

// ---- Creating, using, freeing

void note_created(place *where, object_kind kind, LPVOID handle, uint64_t tag, variant called)
{
    if (handle == nullptr)
        return;
    const bool threaded = is_threaded(called);
    object earlier;
    add_object(where, kind, handle, tag, threaded ? sizeof(pthread_mutex_t) : sizeof(UINT), threaded,
               &earlier);
}

// Of handles that nothing is known of, nothing is said.
void check_use(const call_site &site, variant called, unsigned kinds, LPVOID handle)
{
    object known;
    if (handle == nullptr || !look_up(handle, &known))
        return;
    if (known.state == RELEASED)
        report_object(USED_AFTER_RELEASE, place_of(site), known, " after its release");
    else if ((kinds & set_of(known.kind)) == 0)
        report_object(WRONG_KIND, place_of(site), known, "");
    else if (known.is_threaded != is_threaded(called))
        report_mixed_modes(place_of(site), known);
}

void check_end(const place *where, variant called, object_kind kind, LPVOID handle)
{
    object known;
    if (handle == nullptr || !look_up(handle, &known) || known.state == RELEASED)
        return;
    if (known.kind != kind)
        report_object(WRONG_KIND, where, known, "");
    else if (known.is_threaded != is_threaded(called))
        report_mixed_modes(where, known);
    else if (known.times_entered != 0) {
        char message[200];
        snprintf(message, sizeof message, "%s is given %s %p, which thread %d holds", where->function,
                 noun_of(kind), handle, known.holder);
        finding found = found_about(SECTION_HELD, where, known, message);
        add_related(&found, "entered", known.entered_at);
        report(&found);
    }
}

void report_null(const place *where)
{
    finding found = found_at(NULL_FREED, where, "%s is given null, which ends the process in threaded mode",
                             where->function);
    report(&found);
}

// The record of an ordinary section goes by its tag, whatever its kind, all others by their address alone.
void end_tagged(const place *where, variant called, uint64_t tag, LPVOID section)
{
    if (section == nullptr)
        return report_null(where);
    check_end(where, called, SECTION, section);
    object known = {};
    const bool is_untagged = look_up(section, &known) && !is_recorded(known.kind) && known.state != RELEASED;
    if (!is_untagged && !end_object(where, section, tag, &known) && known.key != 0)
        report_not_live(where, section, tag, known);
}

void end_untagged(const place *where, variant called, object_kind kind, LPVOID handle)
{
    check_end(where, called, kind, handle);
    object known = {};
    if (look_up(handle, &known) && is_recorded(known.kind) && known.state != RELEASED)
        note_given_to_free(handle, &known);
    else if (!end_object(where, handle, 0, &known) && known.key != 0)
        report_not_live(where, handle, 0, known);
}

// ---- The operations, whichever name they are called by

template <typename Function>
auto create(const call_site &site, variant called, object_kind kind, LPVOID *handle, Function function)
{
    checked_call call;
    place *where = place_of(site);
    const auto result = call.pass_on(function);
    if (handle != nullptr)
        note_created(where, kind, *handle, 0, called);
    return result;
}

template <typename Function>
auto use(const call_site &site, variant called, object_kind kind, LPVOID handle, Function function)
{
    checked_call call;
    check_use(site, called, set_of(kind), handle);
    return call.pass_on(function);
}

template <typename Function>
auto end(const call_site &site, variant called, object_kind kind, LPVOID handle, Function function)
{
    checked_call call;
    const place *where = place_of(site);
    if (handle != nullptr)
        end_untagged(where, called, kind, handle);
    else if (kind != EVENT)
        report_null(where);
    return call.pass_on(function);
}

template <typename Function>
auto create_tagged(const call_site &site, variant called, uint64_t tag, LPVOID *section, Function function)
{
    memory_call call(site);
    report_if_tag_zero(call.where(), tag);
    const auto result = call.pass_on(function);
    note_created(call.where(), SECTION, *section, tag, called);
    return result;
}

template <typename Function>
auto free_tagged(const call_site &site, variant called, uint64_t tag, LPVOID section, Function function)
{
    memory_call call(site);
    end_tagged(call.where(), called, tag, section);
    return call.pass_on(function);
}

// Noted behind the wait for it; leaving is noted before, for then another thread may enter.
template <typename Function>
void enter(const call_site &site, variant called, LPVOID section, Function function)
{
    checked_call call;
    check_use(site, called, SECTIONS, section);
    call.pass_on(function);
    if (section != nullptr)
        note_entered(section, place_of(site), is_threaded(called));
}

template <typename Function>
void leave(const call_site &site, variant called, LPVOID section, Function function)
{
    checked_call call;
    check_use(site, called, SECTIONS, section);
    note_left(section, is_threaded(called));
    call.pass_on(function);
}

template <typename Function>
ZT_BOOL open_identifier(const call_site &site, variant called, LPVOID identifier, Function function)
{
    checked_call call;
    check_use(site, called, set_of(IDENTIFIER), identifier);
    const ZT_BOOL is_taken = call.pass_on(function);
    if (is_taken != 0 && identifier != nullptr)
        note_entered(identifier, place_of(site), is_threaded(called));
    return is_taken;
}

template <typename Function>
ZT_BOOL release_identifier(const call_site &site, variant called, LPVOID handle, Function function)
{
    checked_call call;
    check_use(site, called, set_of(IDENTIFIER), handle);
    note_left(handle, is_threaded(called));
    return call.pass_on(function);
}

}  // namespace

// Defines the functions of all operations for one form of their names.
#define THREAD_OBJECTS(suffix, called)                                                                       \
    CHECKED ZT_BOOL OS_sync_cs_allocate##suffix(uint64_t tag, LPVOID *section)                               \
    {                                                                                                        \
        return create_tagged(SITE_HERE, called, tag, section,                                                \
                             [&] { return library().OS_sync_cs_allocate##suffix(tag, section); });           \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_sync_cs_free##suffix(uint64_t tag, LPVOID section)                                    \
    {                                                                                                        \
        return free_tagged(SITE_HERE, called, tag, section,                                                  \
                           [&] { return library().OS_sync_cs_free##suffix(tag, section); });                 \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_mem_sync_cs_allocate##suffix(LPVOID *section)                                         \
    {                                                                                                        \
        return create(SITE_HERE, called, MEM_SECTION, section,                                               \
                      [&] { return library().OS_mem_sync_cs_allocate##suffix(section); });                   \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_mem_sync_cs_free##suffix(LPVOID section)                                              \
    {                                                                                                        \
        return end(SITE_HERE, called, MEM_SECTION, section,                                                  \
                   [&] { return library().OS_mem_sync_cs_free##suffix(section); });                          \
    }                                                                                                        \
    CHECKED void OS_sync_cs_enter##suffix(LPVOID section)                                                    \
    {                                                                                                        \
        enter(SITE_HERE, called, section, [&] { library().OS_sync_cs_enter##suffix(section); });             \
    }                                                                                                        \
    CHECKED void OS_sync_cs_leave##suffix(LPVOID section)                                                    \
    {                                                                                                        \
        leave(SITE_HERE, called, section, [&] { library().OS_sync_cs_leave##suffix(section); });             \
    }                                                                                                        \
    CHECKED ZT_ERRCOUNT OS_mutex_ID_allocate##suffix(LPVOID *identifier)                                     \
    {                                                                                                        \
        return create(SITE_HERE, called, IDENTIFIER, identifier,                                             \
                      [&] { return library().OS_mutex_ID_allocate##suffix(identifier); });                   \
    }                                                                                                        \
    CHECKED ZT_ERRCOUNT OS_mutex_ID_free##suffix(LPVOID identifier)                                          \
    {                                                                                                        \
        return end(SITE_HERE, called, IDENTIFIER, identifier,                                                \
                   [&] { return library().OS_mutex_ID_free##suffix(identifier); });                          \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_mutex_open##suffix(LPVOID identifier, LPVOID reserved, LPVOID *handle)                \
    {                                                                                                        \
        return open_identifier(SITE_HERE, called, identifier, [&] {                                          \
            return library().OS_mutex_open##suffix(identifier, reserved, handle);                            \
        });                                                                                                  \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_mutex_release##suffix(LPVOID handle)                                                  \
    {                                                                                                        \
        return release_identifier(SITE_HERE, called, handle,                                                 \
                                  [&] { return library().OS_mutex_release##suffix(handle); });               \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_create_event##suffix(LPVOID *event, UINT initial_state, LPVOID reserved)              \
    {                                                                                                        \
        return create(SITE_HERE, called, EVENT, event,                                                       \
                      [&] { return library().OS_create_event##suffix(event, initial_state, reserved); });    \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_close_event##suffix(LPVOID event)                                                     \
    {                                                                                                        \
        return end(SITE_HERE, called, EVENT, event,                                                          \
                   [&] { return library().OS_close_event##suffix(event); });                                 \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_set_event##suffix(LPVOID event)                                                       \
    {                                                                                                        \
        return use(SITE_HERE, called, EVENT, event, [&] { return library().OS_set_event##suffix(event); });  \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_reset_event##suffix(LPVOID event)                                                     \
    {                                                                                                        \
        return use(SITE_HERE, called, EVENT, event,                                                          \
                   [&] { return library().OS_reset_event##suffix(event); });                                 \
    }                                                                                                        \
    CHECKED ZT_BOOL OS_wait_for_event##suffix(LPVOID event)                                                  \
    {                                                                                                        \
        return use(SITE_HERE, called, EVENT, event,                                                          \
                   [&] { return library().OS_wait_for_event##suffix(event); });                              \
    }

THREAD_OBJECTS(, PLAIN)
THREAD_OBJECTS(_th, THREADED)
THREAD_OBJECTS(_emu, EMULATED)
