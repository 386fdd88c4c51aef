#include "support/heap_trace.h"

#include "support/sanitizers.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <sstream>
#include <utility>

// Where calls are passed on to. A sanitizer's run-time library offers its family under a second name, be it
// linked statically or dynamically, and so does the C library. Both are bound at link time: a search with
// dlsym would need a heap itself, and would miss a static sanitizer.
#if BUILT_FOR_ADDRESS_SANITIZER || BUILT_FOR_THREAD_SANITIZER
#define NEXT(function) __interceptor_##function
#else
#define NEXT(function) __libc_##function
#endif

extern "C" {
void *NEXT(malloc)(size_t size);
void *NEXT(calloc)(size_t count, size_t size);
void *NEXT(realloc)(void *block, size_t size);
void NEXT(free)(void *block);
}

namespace {

// Fixed storage, for a record of a heap call must not need the heap.
constexpr size_t LOG_CAPACITY = 1 << 17;
heap_call call_log[LOG_CAPACITY];
size_t logged_calls;
unsigned logged_allocations;

enum class refusal { NONE, ONE, ALL } refusing = refusal::NONE;
unsigned allocations_before_refusal;
void (*refusal_action)();

thread_local bool is_recording;  // true in the thread that made the trace, while there is one

[[noreturn]] void give_up(const char *text, size_t length)
{
    if (write(STDERR_FILENO, text, length) < 0)
        _exit(127);
    abort();
}

void record(heap_call::kind_of_call kind, size_t size, void *block, void *old_block)
{
    static constexpr char FULL[] = "heap_trace: too many heap calls, clear the trace now and then\n";
    if (logged_calls == LOG_CAPACITY)
        give_up(FULL, sizeof FULL - 1);
    call_log[logged_calls++] = {kind, size, block, old_block};
}

bool is_refused()
{
    if (refusing == refusal::NONE)
        return false;
    if (allocations_before_refusal != 0) {
        --allocations_before_refusal;
        return false;
    }
    if (refusing == refusal::ONE)
        refusing = refusal::NONE;
    if (refusal_action != nullptr)
        refusal_action();
    return true;
}

template <typename Allocate>
void *record_allocation(heap_call::kind_of_call kind, size_t size, void *old_block, Allocate allocate)
{
    ++logged_allocations;
    void *block = nullptr;
    if (is_refused())
        errno = ENOMEM;
    else
        block = allocate();
    record(kind, size, block, old_block);
    return block;
}

// The log is empty and nothing is refused before and after every trace.
void reset()
{
    logged_calls = 0;
    logged_allocations = 0;
    refusing = refusal::NONE;
    refusal_action = nullptr;
}

}  // namespace

// What the four functions call while they record need not be marked like them.
extern "C" BEFORE_SANITIZER void *malloc(size_t size) noexcept
{
    if (!is_recording)
        return NEXT(malloc)(size);
    return record_allocation(heap_call::MALLOC, size, nullptr, [=] { return NEXT(malloc)(size); });
}

extern "C" BEFORE_SANITIZER void *calloc(size_t count, size_t size) noexcept
{
    if (!is_recording)
        return NEXT(calloc)(count, size);
    return record_allocation(heap_call::CALLOC, count * size, nullptr,
                             [=] { return NEXT(calloc)(count, size); });
}

extern "C" BEFORE_SANITIZER void *realloc(void *block, size_t size) noexcept
{
    if (!is_recording)
        return NEXT(realloc)(block, size);
    return record_allocation(heap_call::REALLOC, size, block, [=] { return NEXT(realloc)(block, size); });
}

extern "C" BEFORE_SANITIZER void free(void *block) noexcept
{
    if (is_recording)
        record(heap_call::FREE, 0, block, nullptr);
    NEXT(free)(block);
}

// The operators of C++ go past the record, so that what a test itself allocates does not show. A sanitizer
// brings operators of its own, which never come here.
#if !BUILT_FOR_ADDRESS_SANITIZER && !BUILT_FOR_THREAD_SANITIZER
void *operator new(size_t size)
{
    void *block = NEXT(malloc)(size);
    static constexpr char EXHAUSTED[] = "heap_trace: operator new failed\n";
    if (block == nullptr)
        give_up(EXHAUSTED, sizeof EXHAUSTED - 1);
    return block;
}

void operator delete(void *block) noexcept
{
    NEXT(free)(block);
}

void operator delete(void *block, size_t) noexcept
{
    NEXT(free)(block);
}
#endif

std::ostream &operator<<(std::ostream &out, const heap_call &call)
{
    switch (call.kind) {
    case heap_call::MALLOC:
        return out << "malloc(" << call.size << ") = " << call.block;
    case heap_call::CALLOC:
        return out << "calloc(" << call.size << ") = " << call.block;
    case heap_call::REALLOC:
        return out << "realloc(" << call.old_block << ", " << call.size << ") = " << call.block;
    case heap_call::FREE:
        break;
    }
    return out << "free(" << call.block << ")";
}

heap_trace::heap_trace(std::vector<block_kind> kinds, std::string other_blocks)
    : kinds_(std::move(kinds)), other_blocks_(std::move(other_blocks))
{
    // In C libraries of old, a thread's first look-up of a name allocates a buffer for dlerror. Make it now,
    // by the one look-up that no test puts itself in front of.
    dlvsym(RTLD_DEFAULT, "malloc", "GLIBC_2.2.5");
    reset();
    is_recording = true;
}

heap_trace::~heap_trace()
{
    is_recording = false;
    reset();
}

void heap_trace::refuse_allocation(unsigned n)
{
    refusing = refusal::ONE;
    allocations_before_refusal = n;
}

void heap_trace::refuse_allocations_from(unsigned n)
{
    refusing = refusal::ALL;
    allocations_before_refusal = n;
}

void heap_trace::when_refused(void (*action)())
{
    refusal_action = action;
}

void heap_trace::allow_allocations()
{
    refusing = refusal::NONE;
}

std::vector<heap_call> heap_trace::calls() const
{
    return {call_log, call_log + logged_calls};
}

void heap_trace::clear()
{
    take_steps();
    logged_calls = 0;
    logged_allocations = 0;
    calls_read_ = 0;
}

unsigned heap_trace::allocation_count() const
{
    return logged_allocations;
}

std::vector<void *> heap_trace::unreleased_blocks() const
{
    std::vector<void *> blocks;
    for (const heap_call &call : calls()) {
        void *released = nullptr;
        if (call.kind == heap_call::FREE)
            released = call.block;
        else if (call.kind == heap_call::REALLOC && call.block != nullptr)
            released = call.old_block;
        blocks.erase(std::remove(blocks.begin(), blocks.end(), released), blocks.end());
        if (call.kind != heap_call::FREE && call.block != nullptr)
            blocks.push_back(call.block);
    }
    return blocks;
}

// ---- In words

steps heap_trace::take_steps()
{
    read_log();
    return in_words(joined(std::exchange(steps_, {})));
}

steps heap_trace::take_single_steps()
{
    read_log();
    return in_words(std::exchange(steps_, {}));
}

steps heap_trace::unreleased()
{
    read_log();
    std::vector<step> list;
    for (const named_block &block : blocks_)
        if (!block.is_released)
            list.push_back({"", block.kind, block.number, block.number});
    return in_words(joined(list));
}

void *heap_trace::address_of(const std::string &name)
{
    read_log();
    const auto found = places_.find(name);
    if (found != places_.end())
        return blocks_[found->second].address;
    ADD_FAILURE() << "there was no " << name;
    return nullptr;
}

void heap_trace::start_over()
{
    clear();
    numbers_.clear();
    blocks_.clear();
    newest_at_.clear();
    places_.clear();
}

std::string heap_trace::step::in_words() const
{
    std::ostringstream text;
    text << call << (call.empty() ? "" : " ") << kind;
    if (first != 0)
        text << ' ' << first;
    if (last != first)
        text << ".." << last;
    return text.str();
}

steps heap_trace::in_words(const std::vector<step> &list)
{
    steps all;
    for (const step &each : list)
        all.push_back(each.in_words());
    return all;
}

std::vector<heap_trace::step> heap_trace::joined(const std::vector<step> &list)
{
    std::vector<step> runs;
    for (const step &each : list) {
        const bool continues = !runs.empty() && each.first != 0 && runs.back().call == each.call &&
                               runs.back().kind == each.kind && runs.back().last + 1 == each.first;
        if (continues)
            runs.back().last = each.last;
        else
            runs.push_back(each);
    }
    return runs;
}

void heap_trace::read_log()
{
    while (calls_read_ < logged_calls)
        read(call_log[calls_read_++]);
}

void heap_trace::read(const heap_call &call)
{
    if (call.kind == heap_call::FREE) {
        named_block &released = newest_at(call.block);
        const bool is_second_release = released.is_released && released.number != 0;
        steps_.push_back(
            {is_second_release ? "free once more" : "free", released.kind, released.number, released.number});
        released.is_released = true;
        return;
    }
    const std::string request = request_in_words(call);
    if (call.block == nullptr) {
        steps_.push_back({request, "refused", 0, 0});
        return;
    }
    if (call.kind == heap_call::REALLOC)
        newest_at(call.old_block).is_released = true;
    const std::string kind = kind_of(call);
    const unsigned number = ++numbers_[kind];
    newest_at_[call.block] = places_[words(kind, ' ', number)] = blocks_.size();
    blocks_.push_back({call.block, kind, number, false});
    steps_.push_back({words(request, " ->"), kind, number, number});
}

std::string heap_trace::request_in_words(const heap_call &call)
{
    if (call.kind != heap_call::REALLOC)
        return words(call.kind == heap_call::MALLOC ? "malloc " : "calloc ", call.size);
    const named_block &old = newest_at(call.old_block);
    return words(step{"realloc", old.kind, old.number, old.number}.in_words(), ", ", call.size);
}

std::string heap_trace::kind_of(const heap_call &call) const
{
    for (const block_kind &each : kinds_)
        if (each.kind == call.kind && each.size == call.size)
            return each.name;
    return other_blocks_;
}

// Null, and a block that was never named, get a name that tells so.
heap_trace::named_block &heap_trace::newest_at(void *address)
{
    const auto found = newest_at_.find(address);
    if (found != newest_at_.end())
        return blocks_[found->second];
    newest_at_[address] = blocks_.size();
    blocks_.push_back({address, address == nullptr ? "null" : "unknown block", 0, true});
    return blocks_.back();
}
