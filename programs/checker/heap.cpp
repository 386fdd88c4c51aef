// In front of the release and the resize of the heap, the C library's own and os.h's. What the checker and
// the library release themselves passes at once, and nearly everything else after one look without a lock.

#include "calls.h"
#include "checked.h"
#include "library.h"
#include "objects.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>

namespace {

template <typename Function> class next_function {
public:
    explicit constexpr next_function(const char *name) : name_(name) {}

    // Null while the look-up itself releases something.
    Function *get()
    {
        Function *found = address_.load(std::memory_order_relaxed);
        if (found != nullptr || is_searching_)
            return found;
        is_searching_ = true;
        found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name_));
        is_searching_ = false;
        address_.store(found, std::memory_order_relaxed);
        return found;
    }

private:
    static __thread bool is_searching_;
    const char *name_;
    std::atomic<Function *> address_ = {nullptr};
};
template <typename Function> __thread bool next_function<Function>::is_searching_;

next_function<void(void *)> next_free("free");
next_function<void *(void *, size_t)> next_realloc("realloc");

void check_release(const call_site &site, const void *block)
{
    if (block == nullptr || is_inside() || !may_be_recorded(block))
        return;
    const checked_call call;  // keeps errno
    object known;
    if (!note_given_to_free(block, &known))
        return;
    const place *where = place_of(site);
    char message[160];
    snprintf(message, sizeof message, "%s is given %s %p of %lu bytes, which the memory manager has recorded",
             site.function, noun_of(known.kind), block, known.size);
    finding found = found_about(RECORDED_FREED, where, known, message);
    report(&found);
}

}  // namespace

void look_up_heap()
{
    next_free.get();
    next_realloc.get();
}

CHECKED void free(void *block) noexcept
{
    check_release(SITE_HERE, block);
    if (auto *function = next_free.get())
        function(block);
}

CHECKED void *realloc(void *block, size_t size) noexcept
{
    check_release(SITE_HERE, block);
    auto *function = next_realloc.get();
    return function != nullptr ? function(block, size) : nullptr;
}

CHECKED INT OS_free(LPVOID block)
{
    check_release(SITE_HERE, block);
    checked_call call;  // the library's own call of free is not looked at again
    return call.pass_on([&] { return library().OS_free(block); });
}

CHECKED LPVOID OS_realloc(LPVOID block, uint64_t size)
{
    check_release(SITE_HERE, block);
    checked_call call;
    return call.pass_on([&] { return library().OS_realloc(block, size); });
}
