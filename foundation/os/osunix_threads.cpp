// Thread binding: twelve functions are looked up by name in the process, once, and settle the mode.

#include "osunix_threads.h"

#include "foundation/os.h"

// Zero at load. Detection takes no lock: threads that meet the table unprobed may detect side by side, and
// `probed` is stored last, with release order. Accesses are atomic so that this is no data race; on this
// processor they are ordinary moves.
pthread_binding g_UXpthreads_funs;
static_assert(offsetof(pthread_binding, supported) == 0 && offsetof(pthread_binding, probed) == 4 &&
                  offsetof(pthread_binding, slots) == 8 && sizeof(pthread_binding) == 104,
              "layout of the binding table");

namespace {

constexpr const CHAR *pthrFunNames[] = {
    "pthread_mutexattr_destroy", "pthread_mutexattr_settype", "pthread_mutexattr_init", "pthread_mutex_init",
    "pthread_mutex_destroy",     "pthread_mutex_lock",        "pthread_mutex_unlock",   "pthread_self",
    "pthread_cond_broadcast",    "pthread_cond_wait",         "pthread_cond_destroy",   "pthread_cond_init",
};
static_assert(sizeof pthrFunNames / sizeof *pthrFunNames == PTHREAD_SLOTS, "one name a slot");

struct search_result {
    LPVOID addresses[PTHREAD_SLOTS];
    int found;  // addresses before the first name that is missing
};

search_result look_up_all(LPVOID process)
{
    search_result result = {};
    while (result.found < PTHREAD_SLOTS) {
        // A null handle is passed on, too: the platform then searches the default scope.
        LPVOID address = OS_sys_sym_get(process, pthrFunNames[result.found]);
        if (address == nullptr)
            break;
        result.addresses[result.found++] = address;
    }
    return result;
}

// The addresses that were found stay in the table after a failed search; nothing uses them then.
void publish(const search_result &result)
{
    for (int slot = 0; slot < result.found; ++slot)
        __atomic_store_n(&g_UXpthreads_funs.slots[slot], result.addresses[slot], __ATOMIC_RELAXED);
    const UINT supported = result.found == PTHREAD_SLOTS;
    __atomic_store_n(&g_UXpthreads_funs.supported, supported, __ATOMIC_RELAXED);
    __atomic_store_n(&g_UXpthreads_funs.probed, 1, __ATOMIC_RELEASE);
}

}  // namespace

// Nothing is stored while the lookups run. Another thread may have settled the mode by then, and objects of
// that mode may live: a library loaded in between must not make the later search overturn it.
UINT detect_thread_functions()
{
    LPVOID process = OS_sys_module_load(nullptr);
    const search_result result = look_up_all(process);
    if (process != nullptr)
        OS_sys_module_unload(process);  // the functions belong to the process image and stay
    if (__atomic_load_n(&g_UXpthreads_funs.probed, __ATOMIC_ACQUIRE) == 0)
        publish(result);
    return __atomic_load_n(&g_UXpthreads_funs.supported, __ATOMIC_RELAXED);
}
