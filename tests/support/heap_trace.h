// A malloc family in front of the C library's: records every heap call that is made while a heap_trace
// lives, and can refuse one. Linking this unit puts the family in place for the whole test program.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

struct heap_call {
    enum kind_of_call { MALLOC, CALLOC, REALLOC, FREE } kind;
    size_t size;       // bytes asked for (count times size for CALLOC); 0 for FREE
    void *block;       // what was returned, or what was freed; null for a refused call
    void *old_block;   // REALLOC only: the block given
};

// Records the calls of the thread that made it, from construction to destruction. One at a time.
class heap_trace {
public:
    heap_trace();
    ~heap_trace();
    heap_trace(const heap_trace &) = delete;
    heap_trace &operator=(const heap_trace &) = delete;

    // Refuse the n-th allocating call from now on (0 the next one), once; frees do not count.
    void refuse_allocation(unsigned n);
    // Refuse every allocating call from now on, until allow_allocations.
    void refuse_all_allocations();
    void allow_allocations();

    // Everything recorded so far, oldest first. Copying it out is not recorded.
    std::vector<heap_call> calls() const;
    // Forget what was recorded.
    void clear();
    // Allocating calls recorded so far, refused ones included.
    unsigned allocation_count() const;
};
