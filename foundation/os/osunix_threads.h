// The thread functions that the process offers, and the mode that follows from them. Private to the library.
#pragma once

#include "foundation/types.h"

#include <pthread.h>

// The order of lookup: slot N of the binding table receives the function of name N.
enum pthread_slot {
    MUTEXATTR_DESTROY,
    MUTEXATTR_SETTYPE,
    MUTEXATTR_INIT,
    MUTEX_INIT,
    MUTEX_DESTROY,
    MUTEX_LOCK,
    MUTEX_UNLOCK,
    SELF,
    COND_BROADCAST,
    COND_WAIT,
    COND_DESTROY,
    COND_INIT,
    PTHREAD_SLOTS
};

struct pthread_binding {
    UINT supported;  // 1 when all twelve functions were bound: threaded mode
    UINT probed;     // 0 until detection has run, then 1 for ever
    LPVOID slots[PTHREAD_SLOTS];
};

// What follows is reached from other units of the library alone, without a detour through its symbol table.
#pragma GCC visibility push(hidden)

extern pthread_binding g_UXpthreads_funs;

// Look the functions up, once for the process, and settle the mode: 1 threaded, 0 emulated.
[[gnu::cold, gnu::noinline]] UINT detect_thread_functions();

// Two reads, in line in every dispatcher. Reading `probed` with acquire order makes everything that was
// stored before it visible, the slots included.
[[gnu::always_inline]] inline bool is_threaded()
{
    if (__atomic_load_n(&g_UXpthreads_funs.probed, __ATOMIC_ACQUIRE) != 0)
        return __atomic_load_n(&g_UXpthreads_funs.supported, __ATOMIC_RELAXED) != 0;
    return detect_thread_functions() != 0;
}

// The bound functions by their names without the prefix. Their types are written out here: the platform's
// own declarations promise the compiler that no argument is null, which does not hold for this library.
namespace bound {

template <typename Function> Function *function_of(pthread_slot slot)
{
    return reinterpret_cast<Function *>(__atomic_load_n(&g_UXpthreads_funs.slots[slot], __ATOMIC_RELAXED));
}

inline int mutexattr_init(pthread_mutexattr_t *attribute)
{
    return function_of<int(pthread_mutexattr_t *)>(MUTEXATTR_INIT)(attribute);
}

inline int mutexattr_settype(pthread_mutexattr_t *attribute, int type)
{
    return function_of<int(pthread_mutexattr_t *, int)>(MUTEXATTR_SETTYPE)(attribute, type);
}

inline int mutexattr_destroy(pthread_mutexattr_t *attribute)
{
    return function_of<int(pthread_mutexattr_t *)>(MUTEXATTR_DESTROY)(attribute);
}

inline int mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attribute)
{
    return function_of<int(pthread_mutex_t *, const pthread_mutexattr_t *)>(MUTEX_INIT)(mutex, attribute);
}

inline int mutex_destroy(pthread_mutex_t *mutex)
{
    return function_of<int(pthread_mutex_t *)>(MUTEX_DESTROY)(mutex);
}

inline int mutex_lock(pthread_mutex_t *mutex)
{
    return function_of<int(pthread_mutex_t *)>(MUTEX_LOCK)(mutex);
}

inline int mutex_unlock(pthread_mutex_t *mutex)
{
    return function_of<int(pthread_mutex_t *)>(MUTEX_UNLOCK)(mutex);
}

inline pthread_t self()
{
    return function_of<pthread_t()>(SELF)();
}

inline int cond_init(pthread_cond_t *condition, const pthread_condattr_t *attribute)
{
    return function_of<int(pthread_cond_t *, const pthread_condattr_t *)>(COND_INIT)(condition, attribute);
}

inline int cond_destroy(pthread_cond_t *condition)
{
    return function_of<int(pthread_cond_t *)>(COND_DESTROY)(condition);
}

inline int cond_broadcast(pthread_cond_t *condition)
{
    return function_of<int(pthread_cond_t *)>(COND_BROADCAST)(condition);
}

inline int cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex)
{
    return function_of<int(pthread_cond_t *, pthread_mutex_t *)>(COND_WAIT)(condition, mutex);
}

}  // namespace bound

// Entering and leaving stand in line in their dispatchers too: they are what hosts do most often.
inline void enter_mutex(LPVOID section)
{
    if (section != nullptr)
        bound::mutex_lock(static_cast<pthread_mutex_t *>(section));
}

inline void leave_mutex(LPVOID section)
{
    if (section != nullptr)
        bound::mutex_unlock(static_cast<pthread_mutex_t *>(section));
}

#pragma GCC visibility pop
