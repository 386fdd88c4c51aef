/* A host whose threads all make the first call of the process at once: each begins with another operation
 * and then asks for the mode. Ends with 0 when every answer is that of threaded mode. */
#include "foundation/os.h"

#include <pthread.h>
#include <stdio.h>

#define THREADS 16

static pthread_barrier_t start;

static int uses_event(void)
{
    LPVOID event = NULL;
    return OS_create_event(&event, 0, NULL) == 1 && OS_set_event(event) == 1 &&
           OS_wait_for_event(event) == 1 && OS_close_event(event) == 1;
}

static int uses_section(void)
{
    LPVOID section = NULL;
    if (OS_mem_sync_cs_allocate(&section) != 1)
        return 0;
    OS_sync_cs_enter(section);
    OS_sync_cs_leave(section);
    return OS_mem_sync_cs_free(section) == 1;
}

/* The emulated identifier could not be opened twice. */
static int uses_identifier(void)
{
    LPVOID identifier = NULL, handle = NULL;
    return OS_mutex_ID_allocate(&identifier) == 0 && OS_mutex_open(identifier, NULL, &handle) == 1 &&
           OS_mutex_open(identifier, NULL, &handle) == 1 && OS_mutex_release(handle) == 1 &&
           OS_mutex_release(handle) == 1 && OS_mutex_ID_free(identifier) == 0;
}

static int is_identified(void)
{
    return OS_current_thread_id_get() == (uintptr_t)pthread_self();
}

static int (*const first_calls[])(void) = {uses_event, uses_section, uses_identifier, is_identified};

static void *run(void *number)
{
    const size_t kind = (size_t)number % (sizeof first_calls / sizeof *first_calls);
    pthread_barrier_wait(&start);
    return (void *)(uintptr_t)(first_calls[kind]() && OS_threads_support() == 1);
}

int main(void)
{
    pthread_t threads[THREADS];
    size_t right = 0;
    size_t i;
    if (pthread_barrier_init(&start, NULL, THREADS) != 0)
        return 2;
    for (i = 0; i < THREADS; ++i)
        if (pthread_create(&threads[i], NULL, run, (void *)i) != 0)
            return 2;
    for (i = 0; i < THREADS; ++i) {
        void *is_right = NULL;
        pthread_join(threads[i], &is_right);
        right += is_right != NULL;
    }
    if (right != THREADS)
        fprintf(stderr, "only %u of %u threads were answered as in threaded mode\n", (unsigned)right,
                THREADS);
    return right == THREADS ? 0 : 1;
}
