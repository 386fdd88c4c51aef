#include "support/platform_trace.h"

#include "support/sanitizers.h"

#include <string>

constinit platform_call<int(const char *, int, mode_t)> open64_call{"open64"};
constinit platform_call<int(const char *, mode_t)> creat64_call{"creat64"};
constinit platform_call<int(int)> close_call{"close"};
constinit platform_call<int(const char *)> remove_call{"remove"};
constinit platform_call<off64_t(int, off64_t, int)> lseek64_call{"lseek64"};
constinit platform_call<ssize_t(int, void *, size_t)> read_call{"read"};
constinit platform_call<ssize_t(int, const void *, size_t)> write_call{"write"};
constinit platform_call<int(int, off64_t)> ftruncate64_call{"ftruncate64"};
constinit platform_call<pid_t()> getpid_call{"getpid"};
constinit platform_call<long(int)> sysconf_call{"sysconf"};
constinit platform_call<int(pid_t, size_t, cpu_set_t *)> sched_getaffinity_call{"sched_getaffinity"};
constinit platform_call<int(size_t, const cpu_set_t *)> cpu_count_call{"__sched_cpucount"};
constinit platform_call<FILE *(const char *, const char *)> fopen_call{"fopen"};
constinit platform_call<char *(char *, int, FILE *)> fgets_call{"fgets"};
constinit platform_call<int(FILE *)> fclose_call{"fclose"};
constinit platform_call<int(char *, const char *, va_list)> vsprintf_call{"vsprintf"};

namespace {

thread_local bool is_recording;  // true in the thread that made the trace, while there is one
steps recorded;
platform_trace::address_names known_addresses;

struct permission_bits {
    mode_t bits;
};

std::string in_words(long value)
{
    return std::to_string(value);
}

std::string in_words(size_t value)
{
    return std::to_string(value);
}

std::string in_words(int value)
{
    return std::to_string(value);
}

std::string in_words(permission_bits permissions)
{
    std::string digits;
    for (mode_t rest = permissions.bits; rest != 0; rest /= 8)
        digits.insert(digits.begin(), static_cast<char>('0' + rest % 8));
    return "0" + digits;
}

std::string in_words(const char *text)
{
    return text != nullptr ? '"' + std::string(text) + '"' : "null";
}

std::string in_words(const void *address)
{
    for (const auto &[known, name] : known_addresses)
        if (address == known)
            return name;
    return address == nullptr ? "null" : "unknown";
}

template <typename... Arguments> void record(const char *function, const Arguments &...arguments)
{
    std::string list;
    ((list += (list.empty() ? "" : ", ") + in_words(arguments)), ...);
    recorded.push_back(std::string(function) + "(" + list + ")");
}

const void *address_of(const void *address)
{
    return address;
}

}  // namespace

// They run before a sanitizer has set itself up, and need its instrumentation only while they record.
extern "C" {

BEFORE_SANITIZER int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (is_recording)
        record("open64", path, flags, permission_bits{mode});
    return open64_call(path, flags, mode);
}

BEFORE_SANITIZER int creat64(const char *path, mode_t mode)
{
    if (is_recording)
        record("creat64", path, permission_bits{mode});
    return creat64_call(path, mode);
}

BEFORE_SANITIZER int close(int descriptor)
{
    if (is_recording)
        record("close", descriptor);
    return close_call(descriptor);
}

BEFORE_SANITIZER int remove(const char *path) noexcept
{
    if (is_recording)
        record("remove", path);
    return remove_call(path);
}

BEFORE_SANITIZER off64_t lseek64(int descriptor, off64_t offset, int origin) noexcept
{
    if (is_recording)
        record("lseek64", descriptor, offset, origin);
    return lseek64_call(descriptor, offset, origin);
}

BEFORE_SANITIZER ssize_t read(int descriptor, void *buffer, size_t count)
{
    if (is_recording)
        record("read", descriptor, address_of(buffer), count);
    return read_call(descriptor, buffer, count);
}

BEFORE_SANITIZER ssize_t write(int descriptor, const void *buffer, size_t count)
{
    if (is_recording)
        record("write", descriptor, address_of(buffer), count);
    return write_call(descriptor, buffer, count);
}

BEFORE_SANITIZER int ftruncate64(int descriptor, off64_t length) noexcept
{
    if (is_recording)
        record("ftruncate64", descriptor, length);
    return ftruncate64_call(descriptor, length);
}

BEFORE_SANITIZER pid_t getpid(void) noexcept
{
    if (is_recording)
        record("getpid");
    return getpid_call();
}

BEFORE_SANITIZER long sysconf(int name) noexcept
{
    if (is_recording)
        record("sysconf", name);
    return sysconf_call(name);
}

BEFORE_SANITIZER int sched_getaffinity(pid_t process, size_t size, cpu_set_t *mask) noexcept
{
    if (is_recording)
        record("sched_getaffinity", process, size);
    return sched_getaffinity_call(process, size, mask);
}

BEFORE_SANITIZER int __sched_cpucount(size_t size, const cpu_set_t *mask) noexcept
{
    if (is_recording)
        record("CPU_COUNT", size);
    return cpu_count_call(size, mask);
}

BEFORE_SANITIZER FILE *fopen(const char *path, const char *mode)
{
    if (is_recording)
        record("fopen", path, mode);
    return fopen_call(path, mode);
}

BEFORE_SANITIZER char *fgets(char *buffer, int size, FILE *stream)
{
    if (is_recording)
        record("fgets", address_of(buffer), size, address_of(stream));
    return fgets_call(buffer, size, stream);
}

BEFORE_SANITIZER int fclose(FILE *stream)
{
    if (is_recording)
        record("fclose", address_of(stream));
    return fclose_call(stream);
}

BEFORE_SANITIZER int vsprintf(char *destination, const char *format, va_list arguments) noexcept
{
    if (is_recording)
        record("vsprintf", address_of(destination), format);
    return vsprintf_call(destination, format, arguments);
}

}  // extern "C"

platform_trace::platform_trace(const address_names &names)
{
    recorded.clear();
    known_addresses = names;
    is_recording = true;
}

platform_trace::~platform_trace()
{
    is_recording = false;
}

const steps &platform_trace::calls() const
{
    return recorded;
}
