// Functions of the C library that a test program defines itself, in front of the C library's own: the
// library under test then calls the test program's. Each passes its calls on until a test replaces it.
//
//   constinit platform_call<int(int)> close_call{"close"};
//   extern "C" BEFORE_SANITIZER int close(int descriptor) { return close_call(descriptor); }
//   ...
//   replaced_call replaced(close_call, [](int) { return -1; });
//
// Replace a call only while no other thread can make it.
#pragma once

#include "support/sanitizers.h"

#include <dlfcn.h>

#include <functional>
#include <utility>

template <typename Signature> class replaced_call;
template <typename Signature> class platform_call;

template <typename Result, typename... Arguments> class platform_call<Result(Arguments...)> {
public:
    explicit constexpr platform_call(const char *name) : name_(name) {}

    BEFORE_SANITIZER Result operator()(Arguments... arguments)
    {
        return replacement_ != nullptr ? (*replacement_)(arguments...) : original(arguments...);
    }

    BEFORE_SANITIZER Result original(Arguments... arguments)
    {
        void *address = __atomic_load_n(&original_, __ATOMIC_ACQUIRE);
        if (address == nullptr) {
            address = dlsym(RTLD_NEXT, name_);
            __atomic_store_n(&original_, address, __ATOMIC_RELEASE);
        }
        return reinterpret_cast<Result (*)(Arguments...)>(address)(arguments...);
    }

private:
    friend class replaced_call<Result(Arguments...)>;

    const char *name_;
    void *original_ = nullptr;
    std::function<Result(Arguments...)> *replacement_ = nullptr;
};

// Puts a function in a platform call's place for as long as it lives.
template <typename Result, typename... Arguments> class replaced_call<Result(Arguments...)> {
public:
    template <typename Function> replaced_call(platform_call<Result(Arguments...)> &call, Function function)
        : call_(call), function_(std::move(function))
    {
        put_in_place();
    }
    ~replaced_call() { call_.replacement_ = nullptr; }
    replaced_call(const replaced_call &) = delete;
    replaced_call &operator=(const replaced_call &) = delete;

private:
    // Out of line, for a compiler that sees a local object's address kept warns of it, though it is taken
    // back.
    [[gnu::noinline]] void put_in_place() { call_.replacement_ = &function_; }

    platform_call<Result(Arguments...)> &call_;
    std::function<Result(Arguments...)> function_;
};

template <typename Signature, typename Function> replaced_call(platform_call<Signature> &, Function)
    -> replaced_call<Signature>;
