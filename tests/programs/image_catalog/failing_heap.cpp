// Linked into the catalogue's host program: a malloc family that refuses one allocation of the process, or
// that one and all later ones, as the environment orders, and reports at exit what became of the others.
//
//   FAIL_ALLOCATION   number of the one to be refused, counted from 1; FAIL_ALLOCATION_AND_LATER likewise
//   HEAP_REPORT       file that is given "allocations N" and "unreleased N" at exit; the latter counts the
//                     blocks of the program, the library and the modules, and not the C library's own
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);
}

namespace {

unsigned number_in_environment(const char *name)
{
    const char *text = getenv(name);
    return text != nullptr ? static_cast<unsigned>(strtoul(text, nullptr, 10)) : 0;
}

bool is_counting;  // from before main on
unsigned refused_one;
unsigned refused_from;
std::atomic<unsigned> allocations;

// Blocks of the project's own code. Fixed storage, for a record of the heap must not need the heap.
constexpr size_t PLACES = 4096;
std::atomic<void *> own_blocks[PLACES];

[[gnu::constructor]] void begin_counting()
{
    refused_one = number_in_environment("FAIL_ALLOCATION");
    refused_from = number_in_environment("FAIL_ALLOCATION_AND_LATER");
    is_counting = true;
}

[[gnu::destructor]] void report()
{
    is_counting = false;
    const char *path = getenv("HEAP_REPORT");
    FILE *file = path != nullptr ? fopen(path, "w") : nullptr;
    if (file == nullptr)
        return;
    const auto unreleased = std::count_if(own_blocks, own_blocks + PLACES,
                                          [](const auto &place) { return place.load() != nullptr; });
    fprintf(file, "allocations %u\nunreleased %d\n", allocations.load(), static_cast<int>(unreleased));
    fclose(file);
}

bool is_refused()
{
    if (!is_counting)
        return false;
    const unsigned number = ++allocations;
    if (number != refused_one && (refused_from == 0 || number < refused_from))
        return false;
    errno = ENOMEM;
    return true;
}

bool is_own_code(const void *address)
{
    Dl_info facts = {};
    return dladdr(address, &facts) != 0 && (strstr(facts.dli_fname, "libQV") != nullptr ||
                                            strstr(facts.dli_fname, "image_catalog") != nullptr);
}

void replace_own_block(void *expected, void *replacement)
{
    for (std::atomic<void *> &place : own_blocks) {
        void *held = expected;
        if (place.compare_exchange_strong(held, replacement))
            return;
    }
    if (expected == nullptr)
        abort();  // more blocks than places
}

void *recorded(void *block, const void *caller)
{
    if (is_counting && block != nullptr && is_own_code(caller))
        replace_own_block(nullptr, block);
    return block;
}

}  // namespace

extern "C" {

void *malloc(size_t size) noexcept
{
    return is_refused() ? nullptr : recorded(__libc_malloc(size), __builtin_return_address(0));
}

void *calloc(size_t count, size_t size) noexcept
{
    return is_refused() ? nullptr : recorded(__libc_calloc(count, size), __builtin_return_address(0));
}

void *realloc(void *block, size_t size) noexcept
{
    return is_refused() ? nullptr : __libc_realloc(block, size);
}

void free(void *block) noexcept
{
    if (is_counting && block != nullptr)
        replace_own_block(block, nullptr);
    __libc_free(block);
}

// The library has the platform judge a null mutex when there is no memory for one. This platform's function
// crashes, and its declaration promises the compiler that there is none, hence the other name.
int initialise_mutex(pthread_mutex_t *mutex, const pthread_mutexattr_t *attribute) asm("pthread_mutex_init");

int initialise_mutex(pthread_mutex_t *mutex, const pthread_mutexattr_t *attribute)
{
    using function = int(pthread_mutex_t *, const pthread_mutexattr_t *);
    static function *const original = reinterpret_cast<function *>(dlsym(RTLD_NEXT, "pthread_mutex_init"));
    return mutex == nullptr ? EINVAL : original(mutex, attribute);
}

}  // extern "C"
