/* For a run with coverage: put in front by LD_PRELOAD, it lets a process that ends by _exit, as children of
 * tests do, write the library's counters as one does that ends by exit. The profile's own functions are
 * hidden in the library, so what they leave for the end of the process is noted when they leave it. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

typedef void end_function(void *);
typedef int registration(end_function *, void *, void *);

enum { MOST_CALLS = 16 };
static struct {
    end_function *function;
    void *argument;
} library_calls[MOST_CALLS];
static int call_count;

static int is_of_the_library(end_function *function)
{
    Dl_info facts;
    return dladdr((void *)function, &facts) != 0 && strstr(facts.dli_fname, "libQVfoundation17.so") != NULL;
}

int __cxa_atexit(end_function *function, void *argument, void *object)
{
    static registration *next;
    if (next == NULL)
        next = (registration *)dlsym(RTLD_NEXT, "__cxa_atexit");
    if (call_count < MOST_CALLS && is_of_the_library(function)) {
        library_calls[call_count].function = function;
        library_calls[call_count++].argument = argument;
    }
    return next(function, argument, object);
}

void _exit(int status)
{
    while (call_count > 0) {
        --call_count;
        library_calls[call_count].function(library_calls[call_count].argument);
    }
    for (;;)
        syscall(SYS_exit_group, status);
}

void _Exit(int status)
{
    _exit(status);
}
