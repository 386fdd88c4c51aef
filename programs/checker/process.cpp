// The checker's life in the process: loaded before anything of the program runs, last at its end.

#include "calls.h"
#include "findings.h"
#include "library.h"
#include "lock.h"
#include "objects.h"
#include "options.h"

#include <execinfo.h>

// Of the C library. With no object given, a function is called behind those of all objects; the thread
// library's own name for the second would bring that library into the process where it is a separate one.
extern "C" int __cxa_atexit(void (*function)(void *), void *argument, void *object);
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void *object);

namespace {

void tell_at_exit(void *)
{
    const checked_call call;
    report_leaks("never released");
    report_held();
    report_summary();
}

void before_fork()
{
    checker_lock.take();
}

void after_fork_in_parent()
{
    checker_lock.release();
}

void after_fork_in_child()
{
    checker_lock.release();  // taken before the fork
    forget_thread_number();
    forget_memory_call();
    forget_reported();
}

// The first stack that is taken loads the compiler's unwinder and allocates: better now than among the calls
// of the program.
void prepare_stacks()
{
    void *address;
    backtrace(&address, 1);
}

__attribute__((constructor)) void begin()
{
    const checked_call call;
    look_up_heap();
    look_up_library();
    prepare_stacks();
    take_options();
    __register_atfork(before_fork, after_fork_in_parent, after_fork_in_child, nullptr);
    __cxa_atexit(tell_at_exit, nullptr, nullptr);
}

}  // namespace
