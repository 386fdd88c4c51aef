// The platform's functions behind the system services: the calls of each are recorded in words, and a test
// can answer in the platform's place.
//
// The unit puts these functions in front of the C library's for the whole program.
#pragma once

#include "support/platform_call.h"
#include "support/steps.h"

#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/types.h>

#include <utility>
#include <vector>

extern platform_call<int(const char *, int, mode_t)> open64_call;
extern platform_call<int(const char *, mode_t)> creat64_call;
extern platform_call<int(int)> close_call;
extern platform_call<int(const char *)> remove_call;
extern platform_call<off64_t(int, off64_t, int)> lseek64_call;
extern platform_call<ssize_t(int, void *, size_t)> read_call;
extern platform_call<ssize_t(int, const void *, size_t)> write_call;
extern platform_call<int(int, off64_t)> ftruncate64_call;
extern platform_call<pid_t()> getpid_call;
extern platform_call<long(int)> sysconf_call;
extern platform_call<int(pid_t, size_t, cpu_set_t *)> sched_getaffinity_call;
extern platform_call<int(size_t, const cpu_set_t *)> cpu_count_call;  // what the macro CPU_COUNT calls
extern platform_call<FILE *(const char *, const char *)> fopen_call;
extern platform_call<char *(char *, int, FILE *)> fgets_call;
extern platform_call<int(FILE *)> fclose_call;
extern platform_call<int(char *, const char *, va_list)> vsprintf_call;

// Records this thread's calls of these functions while it lives. One at a time.
class platform_trace {
public:
    // How addresses read in the steps; any other but null reads "unknown".
    using address_names = std::vector<std::pair<const void *, const char *>>;

    explicit platform_trace(const address_names &names = {});
    ~platform_trace();
    platform_trace(const platform_trace &) = delete;
    platform_trace &operator=(const platform_trace &) = delete;

    // For example "open64(\"some/path\", 2, 0644)", "read(3, buffer, 16)".
    const steps &calls() const;
};
