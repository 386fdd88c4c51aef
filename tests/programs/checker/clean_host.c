/* A host that uses everything the checker looks at, and makes no mistake. It ends with the status it is
 * given, and prints a variable of its environment.
 *
 *   clean_host STATUS [VARIABLE] */
#include <foundation/foundation.h>

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define HERE __FILE__, __LINE__

static LPVOID manager_section;
static const uint64_t OURS = 17;

static void expect(int is_met, const char *claim)
{
    if (is_met)
        return;
    printf("not met: %s\n", claim);
    exit(EXIT_FAILURE);
}

static INT by_address(LPVOID a, LPVOID b)
{
    return a < b ? -1 : a > b;
}

static void use_blocks(uint64_t tag)
{
    LPVOID block = ZR_memm_alloc(tag, 24, HERE);
    block = ZR_memm_realloc(tag, block, 4800, HERE);
    expect(ZR_memm_flags(tag, block) == ZR_MEMM_FLAG_RECORDED, "a resized block is recorded");
    expect(ZR_memm_disassociate(tag, block) == NULL, "it is given up");
    block = realloc(block, 100);
    expect(ZR_memm_associate(tag, block, 100) == block, "it is taken over again");
    expect(ZR_memm_free(tag, block, HERE) == NULL, "it is released");
    expect(ZR_memm_free(tag, NULL, HERE) == NULL, "null is released");
    (void)ZR_memm_alloc(tag, 0, HERE);
    expect(ZR_memm_free_all(tag) == 1, "the last block goes with its tag");
}

static void use_arrays(uint64_t tag)
{
    static char elements[100];
    LPVOID found = NULL;
    ZT_DT_ANY *array;
    expect(ZR_array_ptr_alloc(tag, &array, 4, 1, by_address) == 0, "an array is made");
    expect(ZR_array_ptr_find(array, elements, &found) == -1, "nothing is found in an empty array");
    for (int i = 0; i < 100; i++)
        expect(ZR_array_ptr_add(array, &elements[99 - i], NULL) == 0, "an element is added");
    expect(ZR_array_ptr_find(array, &elements[50], &found) == 0 && found == &elements[50], "it is found");
    for (uint64_t i = 0; i < 90; i++) /* what is the last has none behind it to lose its order */
        ZR_array_ptr_remove_ex(array, 99 - i, NULL, i % 2);
    expect(ZR_array_ptr_delete(array) == 0, "it is deleted");
    expect(ZR_memm_free_all(tag) == -1, "nothing is left of it");
}

static void use_objects(uint64_t tag)
{
    LPVOID section, identifier, handle, event;
    expect(OS_sync_cs_allocate(tag, &section) == 1, "a section is made");
    OS_sync_cs_enter(section);
    OS_sync_cs_enter(section);
    OS_sync_cs_leave(section);
    OS_sync_cs_leave(section);
    OS_sync_cs_free(tag, section);
    expect(OS_mutex_ID_allocate(&identifier) == 0, "an identifier is made");
    expect(OS_mutex_open(identifier, NULL, &handle) == 1, "it opens");
    expect(OS_mutex_release(handle) == 1, "it is released");
    OS_mutex_ID_free(identifier);
    expect(OS_create_event(&event, 0, NULL) == 1, "an event is made");
    expect(OS_set_event(event) == 1 && OS_wait_for_event(event) == 1, "it is set");
    OS_close_event(event);
    OS_close_event(NULL);
}

static void *work(void *tag)
{
    for (int i = 0; i < 500; i++) {
        OS_sync_cs_enter(manager_section);
        use_blocks(*(const uint64_t *)tag);
        use_arrays(*(const uint64_t *)tag);
        OS_sync_cs_leave(manager_section);
        free(malloc(24));
    }
    return NULL;
}

static void use_threads(void)
{
    static const uint64_t tags[] = {101, 102, 103, 104};
    pthread_t threads[4];
    for (int i = 0; i < 4; i++)
        expect(pthread_create(&threads[i], NULL, work, (void *)&tags[i]) == 0, "a thread starts");
    for (int i = 0; i < 4; i++)
        pthread_join(threads[i], NULL);
}

/* What the library leaves in errno, and that it leaves it, is the host's to see. */
static void look_at_errno(void)
{
    errno = 77;
    ZR_memm_free_all(OURS);
    expect(errno == 77, "errno stays as it was");
    const LPVOID refused = ZR_memm_alloc(OURS, INT64_MAX, HERE);
    expect(refused == NULL && errno == ENOMEM, "errno tells that there is no memory");
}

int main(int argument_count, char **arguments)
{
    expect(argument_count > 1, "there is a status");
    expect(OS_mem_sync_cs_allocate(&manager_section) == 1, "the manager's section is made");
    use_threads();
    use_blocks(ZR_memm_unique_tag_get(HERE));
    use_arrays(OURS);
    use_objects(OURS);
    look_at_errno();
    OS_mem_sync_cs_free(manager_section);
    expect(ZR_memm_cleanup() == 0, "nothing is left");
    if (argument_count > 2)
        printf("%s\n", getenv(arguments[2]) != NULL ? getenv(arguments[2]) : "(unset)");
    return atoi(arguments[1]);
}
