// Synchronisation objects of threaded mode: real mutexes and conditions, through the bound functions.

#include "osunix_records.h"
#include "osunix_threads.h"

namespace {

static_assert(PTHREAD_MUTEX_RECURSIVE == 1, "the type that a host's own thread functions are given");

// Neither result is looked at: an attribute that could not be made shows when the mutex is initialised.
void recursive_attribute_init(pthread_mutexattr_t *attribute)
{
    bound::mutexattr_init(attribute);
    bound::mutexattr_settype(attribute, PTHREAD_MUTEX_RECURSIVE);
}

// The record of a critical section or mutex identifier is one mutex. Its allocation is deliberately not
// tested before the mutex is initialised: when memory has run out, the platform is given a null mutex, and
// its answer alone decides what the caller is told.
template <typename Memory> bool create_mutex(Memory memory, LPVOID *out)
{
    auto *mutex = static_cast<pthread_mutex_t *>(memory.allocate(sizeof(pthread_mutex_t)));
    pthread_mutexattr_t attribute;
    recursive_attribute_init(&attribute);
    const bool is_made = bound::mutex_init(mutex, &attribute) == 0;
    if (!is_made) {
        if (mutex != nullptr)
            memory.release(mutex);
        mutex = nullptr;
    }
    bound::mutexattr_destroy(&attribute);  // after the release, in the order that hosts see
    *out = mutex;
    return is_made;
}

// The mutex is destroyed before the test for null, which guards the release of memory alone: the platform's
// destroy function sees the null handle of a caller that frees one.
template <typename Memory> void free_mutex(Memory memory, LPVOID mutex)
{
    bound::mutex_destroy(static_cast<pthread_mutex_t *>(mutex));
    if (mutex != nullptr)
        memory.release(mutex);
}

}  // namespace

// ---- Thread identifier

uintptr_t OS_current_thread_id_get_th(void)
{
    return bound::self();
}

// ---- Critical sections

ZT_BOOL OS_sync_cs_allocate_th(uint64_t tag, LPVOID *section)
{
    return create_mutex(tag_memory{tag}, section);
}

ZT_BOOL OS_sync_cs_free_th(uint64_t tag, LPVOID section)
{
    free_mutex(tag_memory{tag}, section);
    return 1;
}

ZT_BOOL OS_mem_sync_cs_allocate_th(LPVOID *section)
{
    return create_mutex(plain_memory{}, section);
}

ZT_BOOL OS_mem_sync_cs_free_th(LPVOID section)
{
    free_mutex(plain_memory{}, section);
    return 1;
}

void OS_sync_cs_enter_th(LPVOID section)
{
    enter_mutex(section);
}

void OS_sync_cs_leave_th(LPVOID section)
{
    leave_mutex(section);
}

// ---- Mutex identifiers

ZT_ERRCOUNT OS_mutex_ID_allocate_th(LPVOID *identifier)
{
    return create_mutex(plain_memory{}, identifier) ? 0 : ZR_ERR_MUTEX_ID;
}

ZT_ERRCOUNT OS_mutex_ID_free_th(LPVOID identifier)
{
    free_mutex(plain_memory{}, identifier);
    return 0;
}

// The handle of an opened identifier is the identifier itself.
ZT_BOOL OS_mutex_open_th(LPVOID identifier, LPVOID, LPVOID *handle)
{
    if (identifier != nullptr && bound::mutex_lock(static_cast<pthread_mutex_t *>(identifier)) != 0)
        return 0;
    *handle = identifier;
    return 1;
}

ZT_BOOL OS_mutex_release_th(LPVOID handle)
{
    return handle == nullptr || bound::mutex_unlock(static_cast<pthread_mutex_t *>(handle)) == 0;
}

// ---- Events

namespace {

struct event_record {
    pthread_mutex_t guard;  // recursive; protects the state. Waiters hold it once
    pthread_cond_t condition;
    UINT state;  // 0 not signalled; any other value signalled
};
static_assert(offsetof(event_record, guard) == 0 &&
                  offsetof(event_record, condition) == sizeof(pthread_mutex_t) &&
                  offsetof(event_record, state) == sizeof(pthread_mutex_t) + sizeof(pthread_cond_t) &&
                  sizeof(event_record) == 96,
              "layout of an event");

// Wakes every waiter whatever the new state: after a reset they find it 0 and wait on.
bool store_state_and_wake(event_record *event, UINT state)
{
    bound::mutex_lock(&event->guard);
    event->state = state;
    const bool is_woken = bound::cond_broadcast(&event->condition) == 0;
    bound::mutex_unlock(&event->guard);
    return is_woken;
}

bool wait_for_state(event_record *event)
{
    int failure = 0;
    bound::mutex_lock(&event->guard);
    while (event->state == 0 && failure == 0)
        failure = bound::cond_wait(&event->condition, &event->guard);
    bound::mutex_unlock(&event->guard);
    return failure == 0;
}

}  // namespace

ZT_BOOL OS_create_event_th(LPVOID *out, UINT initial_state, LPVOID)
{
    if (out == nullptr)
        return 0;
    *out = nullptr;
    auto *event = static_cast<event_record *>(OS_alloc(sizeof(event_record)));
    if (event == nullptr)
        return 0;
    if (bound::cond_init(&event->condition, nullptr) != 0) {
        OS_free(event);
        return 0;
    }
    pthread_mutexattr_t attribute;
    recursive_attribute_init(&attribute);
    if (bound::mutex_init(&event->guard, &attribute) != 0) {
        bound::cond_destroy(&event->condition);
        OS_free(event);
        bound::mutexattr_destroy(&attribute);
        return 0;
    }
    bound::mutexattr_destroy(&attribute);
    event->state = initial_state;
    *out = event;
    return 1;
}

ZT_BOOL OS_close_event_th(LPVOID event)
{
    if (event == nullptr)
        return 1;
    auto *record = static_cast<event_record *>(event);
    bound::mutex_destroy(&record->guard);
    bound::cond_destroy(&record->condition);
    OS_free(record);
    return 1;
}

ZT_BOOL OS_set_event_th(LPVOID event)
{
    return event == nullptr || store_state_and_wake(static_cast<event_record *>(event), 1);
}

ZT_BOOL OS_reset_event_th(LPVOID event)
{
    return event == nullptr || store_state_and_wake(static_cast<event_record *>(event), 0);
}

ZT_BOOL OS_wait_for_event_th(LPVOID event)
{
    return event == nullptr || wait_for_state(static_cast<event_record *>(event));
}
