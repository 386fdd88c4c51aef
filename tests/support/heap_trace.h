// A malloc family in front of the C library's: records every heap call that is made while a heap_trace
// lives, and can refuse one. Linking this unit puts the family in place for the whole test program; a
// sanitizer's own family stays behind it, so blocks are checked as ever.
//
// Seen are malloc, calloc, realloc and free, wherever in the process they are called. The C++ operators go
// past the record, so a test may use containers and assertions while it traces. What the C library
// allocates for itself (stdio buffers, a new thread's stack record) does show.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <iosfwd>
#include <vector>

struct heap_call {
    enum kind_of_call { MALLOC, CALLOC, REALLOC, FREE } kind;
    size_t size;      // bytes asked for (count times size for CALLOC); 0 for FREE
    void *block;      // what was returned, or what was freed; null for a refused call
    void *old_block;  // REALLOC only: the block given

    bool operator==(const heap_call &) const = default;
};

// What a test expects to find in a record.
inline heap_call malloc_call(size_t size, void *block)
{
    return {heap_call::MALLOC, size, block, nullptr};
}

inline heap_call calloc_call(size_t size, void *block)
{
    return {heap_call::CALLOC, size, block, nullptr};
}

inline heap_call free_call(void *block)
{
    return {heap_call::FREE, 0, block, nullptr};
}

// For the messages of failed assertions.
std::ostream &operator<<(std::ostream &out, const heap_call &call);

// Records the calls of the thread that made it, from construction to destruction. One at a time.
class heap_trace {
public:
    heap_trace();
    ~heap_trace();
    heap_trace(const heap_trace &) = delete;
    heap_trace &operator=(const heap_trace &) = delete;

    // Refuse the n-th allocating call from now on (0 the next one), once; frees do not count. A refused
    // call sets errno to ENOMEM, and a refused realloc leaves its block alone. Replaces an earlier order.
    void refuse_allocation(unsigned n);
    // Refuse every allocating call from now on, until allow_allocations.
    void refuse_all_allocations();
    void allow_allocations();

    // Everything recorded so far, oldest first. Copying it out is not recorded.
    std::vector<heap_call> calls() const;
    // What is recorded while `action` runs.
    template <typename Action> std::vector<heap_call> calls_during(Action action)
    {
        const size_t calls_before = calls().size();
        action();
        std::vector<heap_call> all = calls();
        return {all.begin() + static_cast<ptrdiff_t>(calls_before), all.end()};
    }
    // Forget what was recorded.
    void clear();
    // Allocating calls recorded so far, refused ones included.
    unsigned allocation_count() const;
    // The blocks of recorded allocations that no recorded call has released since, oldest first.
    std::vector<void *> unreleased_blocks() const;
};
