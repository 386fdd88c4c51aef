// What stands around every call that the checker passes on: the caller's errno comes to the library and the
// library's to the caller, whatever the checker does before and behind it.
#pragma once

#include "places.h"

#include <errno.h>

#define RETURN_ADDRESS __builtin_extract_return_addr(__builtin_return_address(0))
#define SITE(file, line) (call_site{__func__, file, line, RETURN_ADDRESS})
#define SITE_HERE SITE(nullptr, 0)

// The system's number of the calling thread.
int thread_number();
void forget_thread_number();  // in the child of a fork

// Whether the thread is in the checker or, through it, in the library, so that what is released now is
// released by them.
bool is_inside();

class checked_call {
public:
    checked_call();
    ~checked_call();
    checked_call(const checked_call &) = delete;
    checked_call &operator=(const checked_call &) = delete;

    template <typename Function> auto pass_on(Function function)
    {
        errno = caller_errno_;
        if constexpr (__is_same(decltype(function()), void)) {
            function();
            caller_errno_ = errno;
        } else {
            const auto result = function();
            caller_errno_ = errno;
            return result;
        }
    }

private:
    int caller_errno_;
};

// A call of the memory family, in which no two threads may be at once.
class memory_call : public checked_call {
public:
    explicit memory_call(const call_site &site);
    ~memory_call();

    place *where() const { return where_; }

private:
    place *where_;
    bool is_first_ = false;
};

// In the child of a fork: whoever was inside is not here.
void forget_memory_call();
