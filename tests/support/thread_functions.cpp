#include "support/thread_functions.h"

#include "support/platform_call.h"
#include "support/thread_call_words.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>

#include <map>
#include <mutex>
#include <utility>

const char *const thread_function_names[THREAD_FUNCTIONS] = {
    "pthread_mutexattr_destroy", "pthread_mutexattr_settype", "pthread_mutexattr_init", "pthread_mutex_init",
    "pthread_mutex_destroy",     "pthread_mutex_lock",        "pthread_mutex_unlock",   "pthread_self",
    "pthread_cond_broadcast",    "pthread_cond_wait",         "pthread_cond_destroy",   "pthread_cond_init",
};

constinit platform_call<void *(const char *, int)> dlopen_call{"dlopen"};
constinit platform_call<int(void *)> dlclose_call{"dlclose"};

namespace {

// ---- Fakes

struct fakes_state {
    std::vector<fake_call> calls;
    std::map<thread_function, std::function<long()>> actions;
    const heap_trace *heap = nullptr;  // null while nothing is recorded
    const void *record = nullptr;
    bool refuses_null_mutexes = false;
};
fakes_state fakes;

long record_call(thread_function function, std::vector<const void *> addresses, const std::string &more = "")
{
    if (fakes.heap == nullptr)
        return 0;
    fakes.calls.push_back({function, std::move(addresses), more, fakes.heap->calls().size()});
    const auto action = fakes.actions.find(function);
    return action != fakes.actions.end() ? action->second() : 0;
}

int status(long result)
{
    return static_cast<int>(result);
}

// Of the platform's types, but for the promise of the platform's declarations that no argument is null.
int fake_mutexattr_destroy(pthread_mutexattr_t *attribute)
{
    return status(record_call(thread_function::MUTEXATTR_DESTROY, {attribute}));
}

int fake_mutexattr_settype(pthread_mutexattr_t *attribute, int type)
{
    return status(record_call(thread_function::MUTEXATTR_SETTYPE, {attribute}, ", " + std::to_string(type)));
}

int fake_mutexattr_init(pthread_mutexattr_t *attribute)
{
    return status(record_call(thread_function::MUTEXATTR_INIT, {attribute}));
}

int fake_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attribute)
{
    const int result = status(record_call(thread_function::MUTEX_INIT, {mutex, attribute}));
    return result == 0 && mutex == nullptr && fakes.refuses_null_mutexes ? EINVAL : result;
}

int fake_mutex_destroy(pthread_mutex_t *mutex)
{
    return status(record_call(thread_function::MUTEX_DESTROY, {mutex}));
}

int fake_mutex_lock(pthread_mutex_t *mutex)
{
    return status(record_call(thread_function::MUTEX_LOCK, {mutex}));
}

int fake_mutex_unlock(pthread_mutex_t *mutex)
{
    return status(record_call(thread_function::MUTEX_UNLOCK, {mutex}));
}

pthread_t fake_self()
{
    return static_cast<pthread_t>(record_call(thread_function::SELF, {}));
}

int fake_cond_broadcast(pthread_cond_t *condition)
{
    return status(record_call(thread_function::COND_BROADCAST, {condition}));
}

int fake_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex)
{
    return status(record_call(thread_function::COND_WAIT, {condition, mutex}));
}

int fake_cond_destroy(pthread_cond_t *condition)
{
    return status(record_call(thread_function::COND_DESTROY, {condition}));
}

int fake_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attribute)
{
    return status(record_call(thread_function::COND_INIT, {condition, attribute}));
}

// In the order of the names.
void *const fake_functions[THREAD_FUNCTIONS] = {
    reinterpret_cast<void *>(fake_mutexattr_destroy), reinterpret_cast<void *>(fake_mutexattr_settype),
    reinterpret_cast<void *>(fake_mutexattr_init),    reinterpret_cast<void *>(fake_mutex_init),
    reinterpret_cast<void *>(fake_mutex_destroy),     reinterpret_cast<void *>(fake_mutex_lock),
    reinterpret_cast<void *>(fake_mutex_unlock),      reinterpret_cast<void *>(fake_self),
    reinterpret_cast<void *>(fake_cond_broadcast),    reinterpret_cast<void *>(fake_cond_wait),
    reinterpret_cast<void *>(fake_cond_destroy),      reinterpret_cast<void *>(fake_cond_init),
};

// ---- Lookups

struct lookups_state {
    std::mutex mutex;  // tests look up from several threads
    steps calls;
    void *image = nullptr;
    const char *hidden = nullptr;
    bool refuses_process_image = false;
    bool hands_out_fakes = false;
    std::function<bool(const char *)> before_lookup;
    std::function<void()> before_close;
    std::function<void *()> load_answer;
    std::function<void *()> lookup_answer;
    std::function<int()> close_answer;
};
lookups_state lookups;

std::string handle_name(const void *handle)
{
    if (handle == nullptr)
        return "null";
    return handle == lookups.image ? "image" : "unknown";
}

void *fake_function(const char *name)
{
    for (size_t i = 0; i < THREAD_FUNCTIONS; ++i)
        if (strcmp(name, thread_function_names[i]) == 0)
            return fake_functions[i];
    return nullptr;
}

}  // namespace

extern "C" {

// Read by the machine code below.
[[gnu::visibility("hidden")]] bool qv_lookups_are_recorded = false;
[[gnu::visibility("hidden")]] void *qv_next_dlsym = nullptr;
[[gnu::visibility("hidden")]] void *qv_recorded_dlsym(void *handle, const char *name);

void *dlopen(const char *name, int flags) noexcept
{
    if (!qv_lookups_are_recorded)
        return dlopen_call(name, flags);
    const std::lock_guard<std::mutex> guard(lookups.mutex);
    lookups.calls.push_back("dlopen(" + std::string(name != nullptr ? name : "null") + ", " +
                            std::to_string(flags) + ")");
    if (name == nullptr && lookups.refuses_process_image)
        return nullptr;
    return lookups.image = lookups.load_answer ? lookups.load_answer() : dlopen_call(name, flags);
}

int dlclose(void *handle) noexcept
{
    if (!qv_lookups_are_recorded)
        return dlclose_call(handle);
    if (lookups.before_close)
        lookups.before_close();
    {
        const std::lock_guard<std::mutex> guard(lookups.mutex);
        lookups.calls.push_back("dlclose(" + handle_name(handle) + ")");
    }
    return lookups.close_answer ? lookups.close_answer() : dlclose_call(handle);
}

void *qv_recorded_dlsym(void *handle, const char *name)
{
    const bool may_be_found = !lookups.before_lookup || lookups.before_lookup(name);
    {
        const std::lock_guard<std::mutex> guard(lookups.mutex);
        lookups.calls.push_back("dlsym(" + handle_name(handle) + ", " + name + ")");
        if (!may_be_found || (lookups.hidden != nullptr && strcmp(name, lookups.hidden) == 0))
            return nullptr;
        if (lookups.lookup_answer)
            return lookups.lookup_answer();
        if (lookups.hands_out_fakes)
            return fake_function(name);
    }
    return reinterpret_cast<void *(*)(void *, const char *)>(qv_next_dlsym)(handle, name);
}

}  // extern "C"

// dlsym(RTLD_NEXT) searches behind the object that its return address lies in, so it must be passed on by a
// jump; and sanitizers call it before instrumented code can run. Hence machine code.
asm(R"(
    .text
    .globl  dlsym
    .type   dlsym, @function
dlsym:
    cmpq    $0, qv_next_dlsym(%rip)
    jne     1f
    pushq   %rdi
    pushq   %rsi
    subq    $8, %rsp
    movq    $-1, %rdi                  # RTLD_NEXT
    leaq    .Lqv_dlsym_name(%rip), %rsi
    leaq    .Lqv_dlsym_version(%rip), %rdx
    call    dlvsym@PLT
    movq    %rax, qv_next_dlsym(%rip)
    addq    $8, %rsp
    popq    %rsi
    popq    %rdi
1:  cmpq    $-1, %rdi
    je      2f
    cmpb    $0, qv_lookups_are_recorded(%rip)
    jne     qv_recorded_dlsym
2:  jmpq    *qv_next_dlsym(%rip)
    .size   dlsym, . - dlsym
    .section .rodata
.Lqv_dlsym_name:
    .string "dlsym"
.Lqv_dlsym_version:
    .string "GLIBC_2.2.5"
    .text
)");

lookup_trace::lookup_trace()
{
    qv_lookups_are_recorded = true;
}

lookup_trace::~lookup_trace()
{
    qv_lookups_are_recorded = false;
    lookups.calls.clear();
    lookups.hidden = nullptr;
    lookups.refuses_process_image = false;
    lookups.hands_out_fakes = false;
    lookups.before_lookup = nullptr;
    lookups.before_close = nullptr;
    lookups.load_answer = nullptr;
    lookups.lookup_answer = nullptr;
    lookups.close_answer = nullptr;
}

void lookup_trace::hide(thread_function function)
{
    lookups.hidden = thread_function_names[static_cast<size_t>(function)];
}

void lookup_trace::hide_nothing()
{
    lookups.hidden = nullptr;
}

void lookup_trace::refuse_process_image()
{
    lookups.refuses_process_image = true;
}

void lookup_trace::replace_by_fakes()
{
    lookups.hands_out_fakes = true;
}

void lookup_trace::before_lookup(std::function<bool(const char *name)> action)
{
    lookups.before_lookup = std::move(action);
}

void lookup_trace::before_close(std::function<void()> action)
{
    lookups.before_close = std::move(action);
}

void lookup_trace::replace_load(std::function<void *()> answer)
{
    lookups.load_answer = std::move(answer);
}

void lookup_trace::replace_lookup(std::function<void *()> answer)
{
    lookups.lookup_answer = std::move(answer);
}

void lookup_trace::replace_close(std::function<int()> answer)
{
    lookups.close_answer = std::move(answer);
}

steps lookup_trace::calls() const
{
    const std::lock_guard<std::mutex> guard(lookups.mutex);
    return lookups.calls;
}

call_trace::call_trace(void *record, std::vector<block_kind> kinds, std::string other_blocks)
    : heap_(std::move(kinds), std::move(other_blocks))
{
    fakes.record = record;
    fakes.heap = &heap_;
}

call_trace::~call_trace()
{
    fakes.heap = nullptr;
    fakes.calls.clear();
    fakes.actions.clear();
    fakes.refuses_null_mutexes = false;
}

void call_trace::replace(thread_function function, std::function<long()> action)
{
    fakes.actions[function] = std::move(action);
}

void call_trace::fail(thread_function function, int result)
{
    replace(function, [result] { return result; });
}

void call_trace::refuse_null_mutexes()
{
    fakes.refuses_null_mutexes = true;
}

const void *call_trace::record() const
{
    const void *record = fakes.record;
    for (const heap_call &call : heap_.calls())
        if (call.kind == heap_call::MALLOC && call.block != nullptr)
            record = call.block;
    return record;
}

steps call_trace::calls() const
{
    const std::vector<heap_call> heap_calls = heap_.calls();
    call_writer writer(fakes.record);
    size_t heap_calls_written = 0;
    for (const fake_call &call : fakes.calls) {
        while (heap_calls_written < call.heap_calls_before)
            writer.write(heap_calls[heap_calls_written++]);
        writer.write(call);
    }
    while (heap_calls_written < heap_calls.size())
        writer.write(heap_calls[heap_calls_written++]);
    return writer.written();
}
