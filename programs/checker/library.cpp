#include "library.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr char LIBRARY_NAME[] = "libQVfoundation17.so";

library_functions functions;
std::atomic<bool> is_looked_up = {false};

// Behind the checker in the global scope; or, when only modules were linked with the library, where it lies.
void *scope_of_library()
{
    if (dlsym(RTLD_NEXT, "ZR_mem_init") != nullptr)
        return RTLD_NEXT;
    return dlopen(LIBRARY_NAME, RTLD_LAZY | RTLD_NOLOAD);
}

// False when there is no library. Threads that do so at once store the same addresses.
bool look_up_all()
{
    void *scope = scope_of_library();
    if (scope == nullptr)
        return false;
#define LOOK_UP(name) functions.name = reinterpret_cast<decltype(&::name)>(dlsym(scope, #name));
    CHECKED_FUNCTIONS(LOOK_UP)
#undef LOOK_UP
    is_looked_up.store(true, std::memory_order_release);
    return true;
}

}  // namespace

void look_up_library()
{
    look_up_all();
    dlerror();
}

const library_functions &library()
{
    if (!is_looked_up.load(std::memory_order_acquire) && !look_up_all()) {
        constexpr char TEXT[] =
            "qv-check: a function of libQVfoundation17.so is called, but it is not loaded\n";
        if (write(STDERR_FILENO, TEXT, sizeof TEXT - 1) >= 0)
            abort();
        abort();
    }
    return functions;
}
