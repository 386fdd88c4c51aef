// The platform's thread functions as the library under test sees them: its lookups are recorded, a function
// can be hidden from it, and fakes that record their calls can be handed out in place of the real ones.
//
// The unit puts dlopen, dlsym and dlclose in front of the C library's for the whole program. The library
// looks once in a process: what it is to find must be arranged before its first synchronisation call.
#pragma once

#include "support/heap_trace.h"
#include "support/platform_call.h"
#include "support/steps.h"

#include <errno.h>
#include <stddef.h>

#include <functional>

// In the order in which the library looks them up.
enum class thread_function {
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
};
constexpr size_t THREAD_FUNCTIONS = 12;

// The functions' names in the same order.
extern const char *const thread_function_names[THREAD_FUNCTIONS];

// What a lookup_trace does not answer itself ends here.
extern platform_call<void *(const char *, int)> dlopen_call;
extern platform_call<int(void *)> dlclose_call;

// Records the dynamic-loading calls of the process while it lives, and shapes what they find. One at a time.
class lookup_trace {
public:
    lookup_trace();
    ~lookup_trace();
    lookup_trace(const lookup_trace &) = delete;
    lookup_trace &operator=(const lookup_trace &) = delete;

    void hide(thread_function function);  // its lookup finds nothing
    void hide_nothing();
    void refuse_process_image();  // opening it gives null
    void replace_by_fakes();      // lookups find the fakes
    // Called at the start of every lookup with the name looked for, on the thread that looks; where it gives
    // false, the lookup finds nothing.
    void before_lookup(std::function<bool(const char *name)> action);
    void before_close(std::function<void()> action);
    // Answers in the platform's place.
    void replace_load(std::function<void *()> answer);
    void replace_lookup(std::function<void *()> answer);
    void replace_close(std::function<int()> answer);

    // For example "dlopen(null, 1)", "dlsym(image, pthread_self)", "dlclose(image)": the last handle that
    // was opened is called the image.
    steps calls() const;
};

// Records the calls of the fakes and the heap calls of this thread, in one sequence, while it lives. Without
// other order the fakes do nothing and return 0. One at a time; only this thread may call the fakes.
class call_trace {
public:
    // `record` is the block that is called so in the steps, until a new one is allocated; the others name the
    // blocks of heap().
    explicit call_trace(void *record = nullptr, std::vector<block_kind> kinds = {},
                        std::string other_blocks = "block");
    ~call_trace();
    call_trace(const call_trace &) = delete;
    call_trace &operator=(const call_trace &) = delete;

    heap_trace &heap() { return heap_; }
    // The block that is called the record.
    const void *record() const;

    // Run `action` in every call of the function's fake from now on; the fake returns its result.
    void replace(thread_function function, std::function<long()> action);
    // An action that does nothing and returns this.
    void fail(thread_function function, int result = EINVAL);
    // A null mutex cannot be initialised from now on.
    void refuse_null_mutexes();

    // For example "malloc 40 = record", "pthread_mutexattr_settype(attribute, 1)", "free record". Addresses
    // read as "null", "record", "record+40", "attribute" (what was last given to pthread_mutexattr_init).
    // A failure to allocate reads "malloc 40 refused".
    steps calls() const;

private:
    heap_trace heap_;
};
