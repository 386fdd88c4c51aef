// Thread binding and synchronisation; heap, memory, text and file wrappers, process facts, identifiers.

// OS_sprintf is the platform's vsprintf whole. A hardened build environment would put in its place a
// variant that ends the process on %n, so hardening of the C library's functions is off in this unit.
#undef _FORTIFY_SOURCE
#define _LARGEFILE64_SOURCE 1

#include "foundation/memory.h"
#include "foundation/os.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

// ---- Thread functions: found by name at run time ------------------------------------------------------

namespace {

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

constexpr const CHAR *pthrFunNames[] = {
    "pthread_mutexattr_destroy", "pthread_mutexattr_settype", "pthread_mutexattr_init", "pthread_mutex_init",
    "pthread_mutex_destroy",     "pthread_mutex_lock",        "pthread_mutex_unlock",   "pthread_self",
    "pthread_cond_broadcast",    "pthread_cond_wait",         "pthread_cond_destroy",   "pthread_cond_init",
};
static_assert(sizeof pthrFunNames / sizeof *pthrFunNames == PTHREAD_SLOTS, "one name a slot");

struct pthread_binding {
    UINT supported;  // 1 when all twelve functions were bound: threaded mode
    UINT probed;     // 0 until detection has run, then 1 for ever
    LPVOID slots[PTHREAD_SLOTS];
};
static_assert(offsetof(pthread_binding, probed) == 4 && offsetof(pthread_binding, slots) == 8 &&
                  sizeof(pthread_binding) == 104,
              "layout of the binding table");

}  // namespace

// Zero at load. Detection takes no lock: threads that meet it unprobed may detect side by side, all store
// the same values, and `probed` is stored last, with release order. Accesses are atomic so that this is no
// data race; on this processor they are ordinary moves.
static pthread_binding g_UXpthreads_funs;

namespace {

// `supported` is stored once it is final, and not preset to 1 during the lookups: another thread may have
// finished by then, and must not see the value change under its feet.
[[gnu::cold, gnu::noinline]] UINT detect_thread_functions()
{
    LPVOID process = OS_sys_module_load(nullptr);
    UINT supported = 1;
    for (int slot = 0; slot < PTHREAD_SLOTS; ++slot) {
        LPVOID address = OS_sys_sym_get(process, pthrFunNames[slot]);  // a null handle: default scope
        if (address == nullptr) {
            supported = 0;
            break;
        }
        __atomic_store_n(&g_UXpthreads_funs.slots[slot], address, __ATOMIC_RELAXED);
    }
    if (process != nullptr)
        OS_sys_module_unload(process);  // the functions belong to the process image and stay
    __atomic_store_n(&g_UXpthreads_funs.supported, supported, __ATOMIC_RELAXED);
    __atomic_store_n(&g_UXpthreads_funs.probed, 1, __ATOMIC_RELEASE);
    return supported;
}

// Two reads, in line in every dispatcher.
[[gnu::always_inline]] inline bool is_threaded()
{
    if (__atomic_load_n(&g_UXpthreads_funs.probed, __ATOMIC_ACQUIRE) != 0)
        return __atomic_load_n(&g_UXpthreads_funs.supported, __ATOMIC_RELAXED) != 0;
    return detect_thread_functions() != 0;
}

// The function of a slot. Its type is written out: the platform's own declarations promise the compiler
// that no argument is null, which does not hold here.
template <typename Function> Function *bound(pthread_slot slot)
{
    return reinterpret_cast<Function *>(__atomic_load_n(&g_UXpthreads_funs.slots[slot], __ATOMIC_RELAXED));
}

int mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attribute)
{
    return bound<int(pthread_mutex_t *, const pthread_mutexattr_t *)>(MUTEX_INIT)(mutex, attribute);
}

int mutex_destroy(pthread_mutex_t *mutex)
{
    return bound<int(pthread_mutex_t *)>(MUTEX_DESTROY)(mutex);
}

int mutex_lock(pthread_mutex_t *mutex)
{
    return bound<int(pthread_mutex_t *)>(MUTEX_LOCK)(mutex);
}

int mutex_unlock(pthread_mutex_t *mutex)
{
    return bound<int(pthread_mutex_t *)>(MUTEX_UNLOCK)(mutex);
}

int cond_init(pthread_cond_t *condition)
{
    return bound<int(pthread_cond_t *, const pthread_condattr_t *)>(COND_INIT)(condition, nullptr);
}

int cond_destroy(pthread_cond_t *condition)
{
    return bound<int(pthread_cond_t *)>(COND_DESTROY)(condition);
}

int cond_broadcast(pthread_cond_t *condition)
{
    return bound<int(pthread_cond_t *)>(COND_BROADCAST)(condition);
}

int cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex)
{
    return bound<int(pthread_cond_t *, pthread_mutex_t *)>(COND_WAIT)(condition, mutex);
}

// Initialise `mutex`, which may be null, as a recursive one. After a failure `undo` runs while the
// attribute still exists: hosts that count thread calls see that order.
template <typename Undo> bool recursive_mutex_init(pthread_mutex_t *mutex, Undo undo)
{
    pthread_mutexattr_t attribute;
    bound<int(pthread_mutexattr_t *)>(MUTEXATTR_INIT)(&attribute);
    bound<int(pthread_mutexattr_t *, int)>(MUTEXATTR_SETTYPE)(&attribute, PTHREAD_MUTEX_RECURSIVE);
    const bool is_made = mutex_init(mutex, &attribute) == 0;
    if (!is_made)
        undo();
    bound<int(pthread_mutexattr_t *)>(MUTEXATTR_DESTROY)(&attribute);
    return is_made;
}
static_assert(PTHREAD_MUTEX_RECURSIVE == 1, "the type that hosts see");

// ---- Records of critical sections and mutex identifiers: one platform mutex, or one flag

constexpr CHAR SOURCE_NAME[] = "osunix";

// Where a record comes from.
struct tag_memory {
    uint64_t tag;
    LPVOID allocate(uint64_t size) const { return ZR_memm_alloc(tag, size, SOURCE_NAME, __LINE__); }
    void release(LPVOID record) const { ZR_memm_free(tag, record, SOURCE_NAME, __LINE__); }
};
struct plain_memory {
    LPVOID allocate(uint64_t size) const { return OS_alloc(size); }
    void release(LPVOID record) const { OS_free(record); }
};

// The allocation is deliberately not tested before the mutex is initialised, and success is the
// initialisation's alone.
template <typename Memory> bool create_mutex(Memory memory, LPVOID *out)
{
    auto *mutex = static_cast<pthread_mutex_t *>(memory.allocate(sizeof(pthread_mutex_t)));
    const bool is_made = recursive_mutex_init(mutex, [&] {
        if (mutex != nullptr)
            memory.release(mutex);
        mutex = nullptr;
    });
    *out = mutex;
    return is_made;
}

// The mutex is destroyed before the test for null, which guards the release of memory alone; deliberate.
template <typename Memory> void free_mutex(Memory memory, LPVOID mutex)
{
    mutex_destroy(static_cast<pthread_mutex_t *>(mutex));
    if (mutex != nullptr)
        memory.release(mutex);
}

template <typename Memory> bool create_flag(Memory memory, LPVOID *out)
{
    auto *flag = static_cast<UINT *>(memory.allocate(sizeof(UINT)));
    if (flag != nullptr)
        *flag = 0;
    *out = flag;
    return flag != nullptr;
}

template <typename Memory> void free_flag(Memory memory, LPVOID flag)
{
    if (flag != nullptr)
        memory.release(flag);
}

// Neither a counter nor ever read by critical sections: two enters and one leave leave it at 0.
void store_flag_unless_null(LPVOID flag, UINT value)
{
    if (flag != nullptr)
        *static_cast<UINT *>(flag) = value;
}

}  // namespace

UINT OS_threads_support(void)
{
    return is_threaded();
}

// ---- Thread identifier

uintptr_t OS_current_thread_id_get_th(void)
{
    return bound<pthread_t()>(SELF)();
}

uintptr_t OS_current_thread_id_get_emu(void)
{
    return 1;
}

uintptr_t OS_current_thread_id_get(void)
{
    return is_threaded() ? OS_current_thread_id_get_th() : OS_current_thread_id_get_emu();
}

// ---- Critical sections

ZT_BOOL OS_sync_cs_allocate_th(uint64_t tag, LPVOID *section)
{
    return create_mutex(tag_memory{tag}, section);
}

ZT_BOOL OS_sync_cs_allocate_emu(uint64_t tag, LPVOID *section)
{
    return create_flag(tag_memory{tag}, section);
}

ZT_BOOL OS_sync_cs_allocate(uint64_t tag, LPVOID *section)
{
    return is_threaded() ? OS_sync_cs_allocate_th(tag, section) : OS_sync_cs_allocate_emu(tag, section);
}

ZT_BOOL OS_sync_cs_free_th(uint64_t tag, LPVOID section)
{
    free_mutex(tag_memory{tag}, section);
    return 1;
}

ZT_BOOL OS_sync_cs_free_emu(uint64_t tag, LPVOID section)
{
    free_flag(tag_memory{tag}, section);
    return 1;
}

ZT_BOOL OS_sync_cs_free(uint64_t tag, LPVOID section)
{
    return is_threaded() ? OS_sync_cs_free_th(tag, section) : OS_sync_cs_free_emu(tag, section);
}

ZT_BOOL OS_mem_sync_cs_allocate_th(LPVOID *section)
{
    return create_mutex(plain_memory{}, section);
}

ZT_BOOL OS_mem_sync_cs_allocate_emu(LPVOID *section)
{
    return create_flag(plain_memory{}, section);
}

ZT_BOOL OS_mem_sync_cs_allocate(LPVOID *section)
{
    return is_threaded() ? OS_mem_sync_cs_allocate_th(section) : OS_mem_sync_cs_allocate_emu(section);
}

ZT_BOOL OS_mem_sync_cs_free_th(LPVOID section)
{
    free_mutex(plain_memory{}, section);
    return 1;
}

ZT_BOOL OS_mem_sync_cs_free_emu(LPVOID section)
{
    free_flag(plain_memory{}, section);
    return 1;
}

ZT_BOOL OS_mem_sync_cs_free(LPVOID section)
{
    return is_threaded() ? OS_mem_sync_cs_free_th(section) : OS_mem_sync_cs_free_emu(section);
}

void OS_sync_cs_enter_th(LPVOID section)
{
    if (section != nullptr)
        mutex_lock(static_cast<pthread_mutex_t *>(section));
}

void OS_sync_cs_enter_emu(LPVOID section)
{
    store_flag_unless_null(section, 1);
}

void OS_sync_cs_enter(LPVOID section)
{
    is_threaded() ? OS_sync_cs_enter_th(section) : OS_sync_cs_enter_emu(section);
}

void OS_sync_cs_leave_th(LPVOID section)
{
    if (section != nullptr)
        mutex_unlock(static_cast<pthread_mutex_t *>(section));
}

void OS_sync_cs_leave_emu(LPVOID section)
{
    store_flag_unless_null(section, 0);
}

void OS_sync_cs_leave(LPVOID section)
{
    is_threaded() ? OS_sync_cs_leave_th(section) : OS_sync_cs_leave_emu(section);
}

// ---- Mutex identifiers

namespace {

constexpr ZT_ERRCOUNT MUTEX_ID_FAILED = -4820;

}  // namespace

ZT_ERRCOUNT OS_mutex_ID_allocate_th(LPVOID *identifier)
{
    return create_mutex(plain_memory{}, identifier) ? 0 : MUTEX_ID_FAILED;
}

ZT_ERRCOUNT OS_mutex_ID_allocate_emu(LPVOID *identifier)
{
    return create_flag(plain_memory{}, identifier) ? 0 : MUTEX_ID_FAILED;
}

ZT_ERRCOUNT OS_mutex_ID_allocate(LPVOID *identifier)
{
    return is_threaded() ? OS_mutex_ID_allocate_th(identifier) : OS_mutex_ID_allocate_emu(identifier);
}

ZT_ERRCOUNT OS_mutex_ID_free_th(LPVOID identifier)
{
    free_mutex(plain_memory{}, identifier);
    return 0;
}

ZT_ERRCOUNT OS_mutex_ID_free_emu(LPVOID identifier)
{
    free_flag(plain_memory{}, identifier);
    return 0;
}

ZT_ERRCOUNT OS_mutex_ID_free(LPVOID identifier)
{
    return is_threaded() ? OS_mutex_ID_free_th(identifier) : OS_mutex_ID_free_emu(identifier);
}

// The handle of an opened identifier is the identifier itself.
ZT_BOOL OS_mutex_open_th(LPVOID identifier, LPVOID, LPVOID *handle)
{
    if (identifier != nullptr && mutex_lock(static_cast<pthread_mutex_t *>(identifier)) != 0)
        return 0;
    *handle = identifier;
    return 1;
}

// Unlike the threaded one neither recursive nor blocking: nobody else could release it meanwhile.
ZT_BOOL OS_mutex_open_emu(LPVOID identifier, LPVOID, LPVOID *handle)
{
    if (identifier != nullptr) {
        UINT *flag = static_cast<UINT *>(identifier);
        if (*flag != 0)
            return 0;
        *flag = 1;
    }
    *handle = identifier;
    return 1;
}

ZT_BOOL OS_mutex_open(LPVOID identifier, LPVOID reserved, LPVOID *handle)
{
    return is_threaded() ? OS_mutex_open_th(identifier, reserved, handle)
                         : OS_mutex_open_emu(identifier, reserved, handle);
}

ZT_BOOL OS_mutex_release_th(LPVOID handle)
{
    return handle == nullptr || mutex_unlock(static_cast<pthread_mutex_t *>(handle)) == 0;
}

ZT_BOOL OS_mutex_release_emu(LPVOID handle)
{
    UINT *flag = static_cast<UINT *>(handle);
    if (flag == nullptr)
        return 1;
    if (*flag != 1)
        return 0;
    *flag = 0;
    return 1;
}

ZT_BOOL OS_mutex_release(LPVOID handle)
{
    return is_threaded() ? OS_mutex_release_th(handle) : OS_mutex_release_emu(handle);
}

// ---- Events

namespace {

// The threaded record; the emulated one is the state alone.
struct event_record {
    pthread_mutex_t guard;  // recursive; protects the state. Waiters hold it once
    pthread_cond_t condition;
    UINT state;  // 0 not signalled; any other value signalled
};
static_assert(offsetof(event_record, condition) == sizeof(pthread_mutex_t) &&
                  offsetof(event_record, state) == sizeof(pthread_mutex_t) + sizeof(pthread_cond_t),
              "layout of an event");

// Wakes every waiter whatever the new state: after a reset they find it 0 and wait on.
bool store_state_and_wake(event_record *event, UINT state)
{
    mutex_lock(&event->guard);
    event->state = state;
    const bool is_woken = cond_broadcast(&event->condition) == 0;
    mutex_unlock(&event->guard);
    return is_woken;
}

bool wait_for_state(event_record *event)
{
    int failure = 0;
    mutex_lock(&event->guard);
    while (event->state == 0 && failure == 0)
        failure = cond_wait(&event->condition, &event->guard);
    mutex_unlock(&event->guard);
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
    if (cond_init(&event->condition) != 0) {
        OS_free(event);
        return 0;
    }
    const bool is_guarded = recursive_mutex_init(&event->guard, [&] {
        cond_destroy(&event->condition);
        OS_free(event);
    });
    if (!is_guarded)
        return 0;
    event->state = initial_state;
    *out = event;
    return 1;
}

ZT_BOOL OS_create_event_emu(LPVOID *out, UINT initial_state, LPVOID)
{
    if (out == nullptr)
        return 0;
    *out = nullptr;
    auto *state = static_cast<UINT *>(OS_alloc(sizeof(UINT)));
    if (state == nullptr)
        return 0;
    *state = initial_state;
    *out = state;
    return 1;
}

ZT_BOOL OS_create_event(LPVOID *event, UINT initial_state, LPVOID reserved)
{
    return is_threaded() ? OS_create_event_th(event, initial_state, reserved)
                         : OS_create_event_emu(event, initial_state, reserved);
}

ZT_BOOL OS_close_event_th(LPVOID event)
{
    if (event == nullptr)
        return 1;
    auto *record = static_cast<event_record *>(event);
    mutex_destroy(&record->guard);
    cond_destroy(&record->condition);
    OS_free(record);
    return 1;
}

ZT_BOOL OS_close_event_emu(LPVOID event)
{
    free_flag(plain_memory{}, event);
    return 1;
}

ZT_BOOL OS_close_event(LPVOID event)
{
    return is_threaded() ? OS_close_event_th(event) : OS_close_event_emu(event);
}

ZT_BOOL OS_set_event_th(LPVOID event)
{
    return event == nullptr || store_state_and_wake(static_cast<event_record *>(event), 1);
}

ZT_BOOL OS_set_event_emu(LPVOID event)
{
    store_flag_unless_null(event, 1);
    return 1;
}

ZT_BOOL OS_set_event(LPVOID event)
{
    return is_threaded() ? OS_set_event_th(event) : OS_set_event_emu(event);
}

ZT_BOOL OS_reset_event_th(LPVOID event)
{
    return event == nullptr || store_state_and_wake(static_cast<event_record *>(event), 0);
}

ZT_BOOL OS_reset_event_emu(LPVOID event)
{
    store_flag_unless_null(event, 0);
    return 1;
}

ZT_BOOL OS_reset_event(LPVOID event)
{
    return is_threaded() ? OS_reset_event_th(event) : OS_reset_event_emu(event);
}

ZT_BOOL OS_wait_for_event_th(LPVOID event)
{
    return event == nullptr || wait_for_state(static_cast<event_record *>(event));
}

ZT_BOOL OS_wait_for_event_emu(LPVOID event)
{
    return event == nullptr || *static_cast<UINT *>(event) != 0;
}

ZT_BOOL OS_wait_for_event(LPVOID event)
{
    return is_threaded() ? OS_wait_for_event_th(event) : OS_wait_for_event_emu(event);
}

// ---- Heap, memory and text ---------------------------------------------------------------------------

LPVOID OS_alloc(uint64_t size)
{
    return malloc(size);
}

LPVOID OS_realloc(LPVOID block, uint64_t size)
{
    return realloc(block, size);
}

INT OS_free(LPVOID block)
{
    free(block);
    return 0;
}

LPVOID OS_memcpy(LPVOID destination, const void *source, uint64_t count)
{
    return memcpy(destination, source, count);
}

LPVOID OS_memset(LPVOID destination, INT fill, uint64_t count)
{
    return memset(destination, fill, count);
}

INT OS_memcmp(const void *a, const void *b, uint64_t count)
{
    return memcmp(a, b, count);
}

CHAR *OS_strncpy(CHAR *destination, const CHAR *source, UINT count)
{
    return strncpy(destination, source, count);
}

namespace {

bool is_gap(CHAR character)
{
    return character == ' ' || character == '\t';
}

}  // namespace

void gap_ignore(const CHAR **cursor)
{
    while (is_gap(**cursor))
        ++*cursor;
}

// The terminator is no gap: the caller guarantees one behind the word.
void non_gap_ignore(const CHAR **cursor)
{
    while (!is_gap(**cursor))
        ++*cursor;
}

INT OS_sprintf(CHAR *destination, const CHAR *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const INT written = vsprintf(destination, format, arguments);
    va_end(arguments);
    return written;
}

INT OS_message_box(const CHAR *title, const CHAR *text)
{
    return fprintf(stderr, "%s:  %s\n", title, text);
}

// ---- Files: positions and sizes are 64 bits wide in every call of the platform ------------------------

INT OS_create(const CHAR *path)
{
    return creat64(path, 0755);
}

INT OS_open(const CHAR *path, INT flags, UINT permissions)
{
    return open64(path, flags, permissions);
}

INT OS_close(INT descriptor)
{
    return close(descriptor);
}

LONG OS_delete(const CHAR *path)
{
    return remove(path);
}

LONG OS_seek(INT descriptor, INT offset, UINT origin)
{
    return lseek64(descriptor, off64_t{offset}, static_cast<int>(origin));
}

// The platform's count passes through 32 bits on its way to the result; deliberate.
LONG OS_read(INT descriptor, LPVOID buffer, UINT count)
{
    return static_cast<INT>(read(descriptor, buffer, count));
}

LONG OS_write(INT descriptor, const void *buffer, UINT count)
{
    return static_cast<INT>(write(descriptor, buffer, count));
}

LONG OS_size_change(INT descriptor, INT length)
{
    return ftruncate64(descriptor, off64_t{length});
}

// ---- Process facts -----------------------------------------------------------------------------------

LONG OS_process_id_get(void)
{
    return getpid();
}

INT OS_processor_count(void)
{
    const INT online = static_cast<INT>(sysconf(_SC_NPROCESSORS_ONLN));
    cpu_set_t affinity;
    static_assert(sizeof affinity == 128, "room for 1024 processors");
    if (sched_getaffinity(0, sizeof affinity, &affinity) != 0)
        return online;
    const INT allowed = CPU_COUNT(&affinity);
    return (allowed & 0xFFFF) != 0 ? allowed : online;
}

// ---- Identifiers -------------------------------------------------------------------------------------

ZT_BOOL readUUID(CHAR *buffer, UINT size)
{
    memset(buffer, 0, size);
    FILE *source = fopen("/proc/sys/kernel/random/uuid", "r");
    if (source == nullptr)
        return 0;
    const int line_limit = size <= INT32_MAX ? static_cast<int>(size) : INT32_MAX;
    // A line that cannot be read leaves the buffer zero-filled, which the caller does not learn.
    if (fgets(buffer, line_limit, source) == nullptr)
        memset(buffer, 0, size);
    fclose(source);
    return 1;
}

BYTE parseHexByteString(const CHAR *text)
{
    const CHAR digits[3] = {text[0], text[1], '\0'};
    return static_cast<BYTE>(strtol(digits, nullptr, 16));
}

namespace {

constexpr UINT GUID_BYTES = 16;
constexpr UINT GUID_SOURCE_BYTES = 40;  // 36 characters, newline and terminator fit

// The identifier's text is five groups of so many bytes, with one character behind each.
constexpr UINT guid_group_bytes[] = {4, 2, 2, 2, 6};

void parse_guid(BYTE guid[GUID_BYTES], const CHAR *text)
{
    for (const UINT group_bytes : guid_group_bytes) {
        for (UINT i = 0; i < group_bytes; ++i, text += 2)
            *guid++ = parseHexByteString(text);
        ++text;  // the hyphen, or the newline at the end
    }
}

}  // namespace

INT OS_create_guid(LPBYTE guid)
{
    CHAR source[GUID_SOURCE_BYTES];
    if (!readUUID(source, sizeof source))
        return 0;
    BYTE parsed[GUID_BYTES];
    parse_guid(parsed, source);
    // A copy of text, not of bytes: everything behind the first zero byte comes out as zero. Deliberate.
    OS_strncpy(reinterpret_cast<CHAR *>(guid), reinterpret_cast<const CHAR *>(parsed), GUID_BYTES);
    return 1;
}

INT OS_guid_to_string(const BYTE *guid, CHAR *text)
{
    if (guid == nullptr || text == nullptr)
        return -1;
    for (uint64_t i = 0; i < GUID_BYTES; ++i)
        OS_sprintf(text + 2 * i, "%02x", guid[i]);
    return 0;
}

// ---- Without effect on this platform -----------------------------------------------------------------

void OS_debug_output(const CHAR *, ...)
{
}

void OS_message_queue_refresh(void)
{
}
