/* A host that makes one mistake, the one it is told to, and goes on as well as it can.
 *
 *   mistaken_host MISTAKE
 *
 * The tests find the lines of the calls by the comments behind them. */
#include <foundation/foundation.h>

#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define HERE __FILE__, __LINE__

enum { OURS = 17, THEIRS = 18 };

/* ---- Blocks */

static void leaks(void)
{
    for (int i = 0; i < 3; i++)
        (void)ZR_memm_alloc(OURS, 100, HERE); /* leaks: small */
    (void)ZR_memm_alloc(THEIRS, 5000, HERE);  /* leaks: large */
    for (uint64_t tag = OURS; tag <= THEIRS; tag++)
        (void)ZR_memm_alloc(tag, 1, HERE); /* leaks: of both */
}

static void leaks_before_cleanup(void)
{
    const uint64_t tag = ZR_memm_unique_tag_get(HERE); /* cleanup: drawn */
    (void)ZR_memm_alloc(tag, 64, HERE);                /* cleanup: recorded */
    ZR_memm_cleanup();
}

static void leaks_array(void)
{
    ZT_DT_ANY *array;
    ZR_array_ptr_alloc(OURS, &array, 4, 0, NULL);
    ZR_array_ptr_add(array, NULL, NULL);
}

static void wrong_tag(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* wrong tag: recorded */
    ZR_memm_free(THEIRS, block, HERE);            /* wrong tag: released */
    ZR_memm_free_all(OURS);
}

static void wrong_tag_resized(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE);                  /* resized: recorded */
    const LPVOID moved = ZR_memm_realloc(THEIRS, block, 48, HERE); /* resized: resized */
    ZR_memm_free_all(OURS);
    if (moved != NULL)
        abort();
}

static void double_release(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* twice: recorded */
    ZR_memm_free(OURS, block, HERE);              /* twice: first */
    ZR_memm_free(OURS, block, HERE);              /* twice: second */
}

static void release_behind_tag(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* behind tag: recorded */
    ZR_memm_free_all(OURS);
    ZR_memm_free(OURS, block, HERE); /* behind tag: released */
}

static void not_recorded(void)
{
    LPVOID block = malloc(8);
    ZR_memm_free(OURS, block, HERE); /* not recorded: released */
    free(block);
}

static void recorded_twice(void)
{
    LPVOID block = malloc(8);
    ZR_memm_associate(OURS, block, 8);
    ZR_memm_associate(OURS, block, 8);
    ZR_memm_disassociate(OURS, block);
    ZR_memm_free_all(OURS);
}

static void given_to_free(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* given to free: recorded */
    free(block);
}

static void given_to_realloc(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* given to realloc: recorded */
    free(realloc(block, 4000));
}

static void given_to_os_free(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* given to OS_free: recorded */
    OS_free(block);
}

static void tag_zero(void)
{
    LPVOID block = ZR_memm_alloc(0, 24, HERE); /* tag 0: recorded */
    ZR_memm_free(0, block, HERE);
}

static void null_disassociated(void)
{
    (void)ZR_memm_alloc(OURS, 8, HERE);
    ZR_memm_disassociate(OURS, NULL);
    ZR_memm_free_all(OURS);
}

static void null_resized(void)
{
    if (ZR_memm_realloc(OURS, NULL, 8, HERE) != NULL) /* null: resized */
        abort();
}

/* ---- Arrays */

static INT by_address(LPVOID a, LPVOID b)
{
    return a < b ? -1 : a > b;
}

static ZT_DT_ANY *sorted_array_of_three(void)
{
    static char elements[3];
    ZT_DT_ANY *array;
    ZR_array_ptr_alloc(OURS, &array, 4, 1, by_address);
    for (int i = 0; i < 3; i++)
        ZR_array_ptr_add(array, &elements[i], NULL);
    return array;
}

static void array_behind_tag(void)
{
    ZT_DT_ANY *array = sorted_array_of_three();
    uint64_t count;
    ZR_memm_free_all(OURS);
    ZR_array_ptr_count_get(array, &count);
}

static void array_deleted_twice(void)
{
    ZT_DT_ANY *array = sorted_array_of_three();
    ZR_array_ptr_delete(array);
    ZR_array_ptr_delete(array);
}

static void array_as_block(void)
{
    ZR_memm_free(OURS, sorted_array_of_three(), HERE); /* as a block: released */
    ZR_memm_free_all(OURS);
}

static void unordered_removal(void)
{
    ZR_array_ptr_remove(sorted_array_of_three(), 0, NULL);
    ZR_memm_free_all(OURS);
}

static void no_comparator(void)
{
    ZT_DT_ANY *array;
    ZR_array_ptr_alloc(OURS, &array, 4, 1, NULL);
    ZR_array_ptr_add(array, &array, NULL);
    ZR_array_ptr_find(array, &array, NULL);
    ZR_memm_free_all(OURS);
}

/* ---- Objects for threads */

static void null_identifier(void)
{
    OS_mutex_ID_free_emu(NULL);
}

static void null_section(void)
{
    OS_sync_cs_free_emu(OURS, NULL);
}

static void section_wrong_kind(void)
{
    LPVOID section;
    OS_mem_sync_cs_allocate_emu(&section);
    OS_sync_cs_free_emu(OURS, section);
    OS_mem_sync_cs_free_emu(section);
}

static void section_wrong_tag(void)
{
    LPVOID section;
    OS_sync_cs_allocate_emu(OURS, &section);
    OS_sync_cs_free_emu(THEIRS, section);
    ZR_memm_free_all(OURS);
}

static void section_freed_twice(void)
{
    LPVOID section;
    OS_sync_cs_allocate_emu(OURS, &section);
    OS_sync_cs_free_emu(OURS, section);
    OS_sync_cs_free_emu(OURS, section);
}

/* Leaving what nobody entered changes nothing. */
static void section_behind_tag(void)
{
    LPVOID section;
    OS_sync_cs_allocate(OURS, &section);
    ZR_memm_free_all(OURS);
    OS_sync_cs_leave(section);
}

static void section_held(void)
{
    static LPVOID section;
    OS_mem_sync_cs_allocate(&section);
    OS_sync_cs_enter(section);
}

static void identifier_held(void)
{
    static LPVOID identifier, handle;
    OS_mutex_ID_allocate(&identifier);
    OS_mutex_open(identifier, NULL, &handle);
}

static void modes_mixed(void)
{
    LPVOID event;
    if (OS_threads_support() == 0)
        return;
    OS_create_event_th(&event, 1, NULL);
    OS_wait_for_event_emu(event);
    OS_close_event_th(event);
}

/* ---- Two threads. The comparator keeps the first one inside until the second one has come and gone. */

static sem_t is_inside, may_go_on;

static INT waiting_comparator(LPVOID a, LPVOID b)
{
    (void)a, (void)b;
    sem_post(&is_inside);
    sem_wait(&may_go_on);
    return -1;
}

static void *second_thread(void *unused)
{
    sem_wait(&is_inside);
    LPVOID block = ZR_memm_alloc(OURS, 8, HERE); /* threads: second */
    sem_post(&may_go_on);
    (void)block;
    return unused;
}

static void two_threads(void)
{
    pthread_t thread;
    ZT_DT_ANY *array;
    sem_init(&is_inside, 0, 0);
    sem_init(&may_go_on, 0, 0);
    ZR_array_ptr_alloc(OURS, &array, 4, 1, waiting_comparator);
    ZR_array_ptr_add(array, NULL, NULL);
    pthread_create(&thread, NULL, second_thread, NULL);
    ZR_array_ptr_add(array, NULL, NULL);
    pthread_join(thread, NULL);
    ZR_memm_free_all(OURS);
}

/* The same mistake at the same place. */
static void repeated(void)
{
    LPVOID block = ZR_memm_alloc(OURS, 24, HERE); /* repeated: recorded */
    for (int i = 0; i < 5; i++)
        ZR_memm_free(THEIRS, block, HERE); /* repeated: released */
    ZR_memm_free_all(OURS);
}

static const struct mistake {
    const char *name;
    void (*make)(void);
} mistakes[] = {
    {"leaks", leaks},
    {"leaks_before_cleanup", leaks_before_cleanup},
    {"leaks_array", leaks_array},
    {"wrong_tag", wrong_tag},
    {"wrong_tag_resized", wrong_tag_resized},
    {"double_release", double_release},
    {"release_behind_tag", release_behind_tag},
    {"not_recorded", not_recorded},
    {"recorded_twice", recorded_twice},
    {"given_to_free", given_to_free},
    {"given_to_realloc", given_to_realloc},
    {"given_to_os_free", given_to_os_free},
    {"tag_zero", tag_zero},
    {"null_disassociated", null_disassociated},
    {"null_resized", null_resized},
    {"array_behind_tag", array_behind_tag},
    {"array_deleted_twice", array_deleted_twice},
    {"array_as_block", array_as_block},
    {"unordered_removal", unordered_removal},
    {"no_comparator", no_comparator},
    {"null_identifier", null_identifier},
    {"null_section", null_section},
    {"section_wrong_kind", section_wrong_kind},
    {"section_wrong_tag", section_wrong_tag},
    {"section_freed_twice", section_freed_twice},
    {"section_behind_tag", section_behind_tag},
    {"section_held", section_held},
    {"identifier_held", identifier_held},
    {"modes_mixed", modes_mixed},
    {"two_threads", two_threads},
    {"repeated", repeated},
};

int main(int argument_count, char **arguments)
{
    for (size_t i = 0; i < sizeof mistakes / sizeof *mistakes; i++) {
        if (argument_count > 1 && strcmp(arguments[1], mistakes[i].name) == 0) {
            mistakes[i].make();
            puts("done");
            return EXIT_SUCCESS;
        }
    }
    return EXIT_FAILURE;
}
