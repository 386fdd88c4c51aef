/* A work queue: an event lets the workers start, and a critical section keeps them out of each other's way.
 */
#include <foundation/memory.h>
#include <foundation/os.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

enum { WORKERS = 4, JOBS = 1000 };

struct queue {
    LPVOID filled;  /* an event, signalled once the jobs are there */
    LPVOID section; /* guards everything below */
    int jobs[JOBS];
    int next; /* the first job that nobody has taken */
    long sum; /* of the results */
};

/* Take one job. Returns 0 when none is left. */
static int take_job(struct queue *queue, int *job)
{
    OS_sync_cs_enter(queue->section);
    const int is_taken = queue->next < JOBS;
    if (is_taken)
        *job = queue->jobs[queue->next++];
    OS_sync_cs_leave(queue->section);
    return is_taken;
}

static void *work(void *argument)
{
    struct queue *queue = argument;
    int job;
    OS_wait_for_event(queue->filled); /* stays signalled, so nobody who comes late waits for ever */
    while (take_job(queue, &job)) {
        const long result = (long)job * job; /* the work itself is done outside the section */
        OS_sync_cs_enter(queue->section);
        queue->sum += result;
        OS_sync_cs_leave(queue->section);
    }
    return NULL;
}

int main(void)
{
    /* Sections come from the memory manager, which takes no lock: it is called while there is one thread. */
    const uint64_t tag = ZR_memm_unique_tag_get(__FILE__, __LINE__);
    static struct queue queue;
    if (!OS_threads_support() || !OS_sync_cs_allocate(tag, &queue.section) ||
        !OS_create_event(&queue.filled, 0, NULL))
        return EXIT_FAILURE;

    pthread_t workers[WORKERS];
    for (int i = 0; i < WORKERS; i++)
        if (pthread_create(&workers[i], NULL, work, &queue) != 0)
            return EXIT_FAILURE;

    for (int i = 0; i < JOBS; i++) /* needs no section: the workers look only after the event is set */
        queue.jobs[i] = i + 1;
    OS_set_event(queue.filled);

    for (int i = 0; i < WORKERS; i++)
        pthread_join(workers[i], NULL);
    printf("%d jobs done, sum of the squares %ld\n", queue.next, queue.sum);

    OS_close_event(queue.filled); /* objects go once nobody is inside or waits */
    OS_sync_cs_free(tag, queue.section);
    return EXIT_SUCCESS;
}

/* Prints:
 * 1000 jobs done, sum of the squares 333833500
 */
