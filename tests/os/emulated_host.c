/* A small host in plain C. Linked without the thread library it runs, on a system where that library is a
 * separate one, in emulated mode. Reports the mode that the library has settled on and checks that the
 * objects behave accordingly.
 *
 *   emulated_host [emulated | threaded]     exit status 0, or 1 when the mode or a behaviour is not as it
 *                                           should be */
#include "foundation/os.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(int is_met, const char *claim)
{
    if (is_met)
        return;
    printf("not met: %s\n", claim);
    ++failures;
}

static void check_mode(const char *demanded, UINT supported)
{
    if (strcmp(demanded, "emulated") == 0)
        expect(supported == 0, "emulated mode was demanded");
    else if (strcmp(demanded, "threaded") == 0)
        expect(supported == 1, "threaded mode was demanded");
    else
        expect(0, "the argument is emulated or threaded");
}

static void check_thread_identifier(UINT supported)
{
    const uintptr_t identifier = OS_current_thread_id_get();
    expect((identifier == 1) == (supported == 0), "the thread identifier is 1 in emulated mode alone");
    expect(identifier == OS_current_thread_id_get(), "the thread identifier stays");
}

/* Taken twice by the same thread: recursion, or refusal where nobody could wait. */
static void check_mutex_identifier(UINT supported)
{
    LPVOID identifier = NULL;
    LPVOID handle = NULL;
    expect(OS_mutex_ID_allocate(&identifier) == 0 && identifier != NULL, "a mutex identifier is made");
    expect(OS_mutex_open(identifier, NULL, &handle) == 1 && handle == identifier, "it opens");
    expect(OS_mutex_open(identifier, NULL, &handle) == (ZT_BOOL)supported, "it opens again if threaded");
    expect(OS_mutex_release(identifier) == 1, "it is released");
    expect(OS_mutex_release(identifier) == (ZT_BOOL)supported, "it is released again if threaded");
    expect(OS_mutex_ID_free(identifier) == 0, "it is freed");
}

static void check_critical_sections(void)
{
    const uint64_t tag = 17;
    LPVOID sections[2] = {NULL, NULL};
    int i;
    expect(OS_sync_cs_allocate(tag, &sections[0]) == 1 && sections[0] != NULL, "a critical section is made");
    expect(OS_mem_sync_cs_allocate(&sections[1]) == 1 && sections[1] != NULL, "a mem-sync one is made");
    for (i = 0; i < 2; ++i) {
        OS_sync_cs_enter(sections[i]);
        OS_sync_cs_enter(sections[i]);
        OS_sync_cs_leave(sections[i]);
        OS_sync_cs_leave(sections[i]);
    }
    expect(OS_sync_cs_free(tag, sections[0]) == 1, "the critical section is freed");
    expect(OS_mem_sync_cs_free(sections[1]) == 1, "the mem-sync one is freed");
}

/* A threaded wait for what nobody signals would not return. */
static void check_event(UINT supported)
{
    LPVOID event = NULL;
    expect(OS_create_event(&event, 7, NULL) == 1 && event != NULL, "an event is made");
    expect(OS_wait_for_event(event) == 1, "a wait for a signalled event succeeds");
    expect(OS_reset_event(event) == 1, "it is reset");
    if (supported == 0)
        expect(OS_wait_for_event(event) == 0, "an emulated wait for an event without signal gives 0");
    expect(OS_set_event(event) == 1, "it is set");
    expect(OS_wait_for_event(event) == 1, "a wait for an event that was set succeeds");
    expect(OS_close_event(event) == 1, "it is closed");
}

int main(int argument_count, char **arguments)
{
    const UINT supported = OS_threads_support();
    printf("threads supported: %u\n", supported);
    if (argument_count > 1)
        check_mode(arguments[1], supported);
    check_thread_identifier(supported);
    check_mutex_identifier(supported);
    check_critical_sections();
    check_event(supported);
    return failures == 0 ? 0 : 1;
}
