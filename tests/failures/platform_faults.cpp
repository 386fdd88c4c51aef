#include "failures/platform_faults.h"

#include "failures/call_sites.h"

#include "support/platform_trace.h"

#include <stdarg.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>

constinit platform_call<time_t(time_t *)> time_call{"time"};
constinit platform_call<struct tm *(const time_t *, struct tm *)> localtime_r_call{"localtime_r"};
constinit platform_call<time_t(struct tm *)> mktime_call{"mktime"};
constinit platform_call<int(FILE *, const char *, va_list)> vfprintf_call{"vfprintf"};

extern "C" {

BEFORE_SANITIZER time_t time(time_t *result) noexcept
{
    return time_call(result);
}

BEFORE_SANITIZER struct tm *localtime_r(const time_t *seconds, struct tm *result) noexcept
{
    return localtime_r_call(seconds, result);
}

BEFORE_SANITIZER time_t mktime(struct tm *fields) noexcept
{
    return mktime_call(fields);
}

BEFORE_SANITIZER int fprintf(FILE *stream, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int written = vfprintf_call(stream, format, arguments);
    va_end(arguments);
    return written;
}

}  // extern "C"

bool fault::strikes()
{
    ++calls_;
    const bool does = stays_ ? calls_ >= n_ : calls_ == n_;
    if (does)
        strike();
    return does;
}

void fault::strike()
{
    has_struck_ = true;
    mark_call_sites();
}

long ordinary_answer(const scenario &in, thread_function function)
{
    if (std::find(in.fails_anyway.begin(), in.fails_anyway.end(), function) != in.fails_anyway.end())
        return EINVAL;
    if (function == thread_function::COND_WAIT && in.during_wait)
        in.during_wait();
    return 0;
}

namespace {

template <typename Result, typename... Arguments, typename Answer>
platform_function failing(const char *name, platform_call<Result(Arguments...)> &call, Answer answer)
{
    return {name, INJECTED_ERRNO,
            [&call, answer](const scenario &, call_trace &, fault &which) -> std::shared_ptr<void> {
                const auto replacement = [&call, &which, answer](Arguments... arguments) -> Result {
                    if (!which.strikes())
                        return call.original(arguments...);
                    errno = INJECTED_ERRNO;
                    return answer(arguments...);
                };
                return std::make_shared<replaced_call<Result(Arguments...)>>(call, replacement);
            }};
}

constexpr auto minus_one = [](auto...) {
    return -1;
};
constexpr auto null = [](auto...) {
    return nullptr;
};

// The heap counts for itself; the fault learns of it from the trace.
platform_function failing_allocation()
{
    return {"allocation", ENOMEM,
            [](const scenario &, call_trace &calls, fault &which) -> std::shared_ptr<void> {
                static fault *refusing;
                refusing = &which;
                heap_trace &heap = calls.heap();
                heap.when_refused([] { refusing->strike(); });
                if (which.stays())
                    heap.refuse_allocations_from(which.n() - 1);
                else
                    heap.refuse_allocation(which.n() - 1);
                return {&heap, [](heap_trace *armed) {
                            armed->allow_allocations();
                        }};
            }};
}

platform_function failing_lookup()
{
    return {"dlsym", INJECTED_ERRNO,
            [](const scenario &, call_trace &, fault &which) -> std::shared_ptr<void> {
                auto lookups = std::make_shared<lookup_trace>();
                lookups->before_lookup([&which](const char *) {
                    const bool is_failing = which.strikes();
                    if (is_failing)
                        errno = INJECTED_ERRNO;
                    return !is_failing;
                });
                return lookups;
            }};
}

// They report by their result, and leave errno alone.
platform_function failing_thread_function(thread_function function)
{
    const char *name = thread_function_names[static_cast<size_t>(function)];
    return {
        name, 0, [function](const scenario &in, call_trace &calls, fault &which) -> std::shared_ptr<void> {
            calls.replace(function, [&in, function, &which] {
                return which.strikes() ? EINVAL : ordinary_answer(in, function);
            });
            return {&calls, [&in, function](call_trace *armed) {
                        armed->replace(function, [&in, function] { return ordinary_answer(in, function); });
                    }};
        }};
}

std::vector<platform_function> make_platform_functions()
{
    std::vector<platform_function> functions = {
        failing_allocation(),
        failing("open64", open64_call, minus_one),
        failing("creat64", creat64_call, minus_one),
        failing("close", close_call, minus_one),
        failing("remove", remove_call, minus_one),
        failing("lseek64", lseek64_call, minus_one),
        failing("read", read_call, minus_one),
        failing("write", write_call, minus_one),
        failing("ftruncate64", ftruncate64_call, minus_one),
        failing("sysconf", sysconf_call, minus_one),
        failing("sched_getaffinity", sched_getaffinity_call, minus_one),
        failing("__sched_cpucount", cpu_count_call, [](auto...) { return 0; }),
        failing("fopen", fopen_call, null),
        failing("fgets", fgets_call, null),
        // The stream is gone all the same, as the C library has it.
        failing("fclose", fclose_call,
                [](FILE *stream) {
                    fclose_call.original(stream);
                    errno = INJECTED_ERRNO;
                    return EOF;
                }),
        // Nothing is written but the terminator.
        failing("vsprintf", vsprintf_call,
                [](char *destination, const char *, va_list) {
                    *destination = '\0';
                    return -1;
                }),
        failing("fprintf", vfprintf_call, minus_one),
        failing("time", time_call, minus_one),
        failing("localtime_r", localtime_r_call, null),
        failing("mktime", mktime_call, minus_one),
        failing("dlopen", dlopen_call, null),
        failing("dlclose", dlclose_call, minus_one),
        failing_lookup(),
    };
    for (size_t i = 0; i < THREAD_FUNCTIONS; ++i)
        functions.push_back(failing_thread_function(static_cast<thread_function>(i)));
    return functions;
}

}  // namespace

const std::vector<platform_function> &platform_functions()
{
    static const std::vector<platform_function> functions = make_platform_functions();
    return functions;
}
