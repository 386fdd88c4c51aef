// Places: the call sites that findings name. A place lasts for the life of the process, also when the module
// that it lies in is unloaded, and the same site is always the same place.
#pragma once

#include "foundation/types.h"

// A return address, with the names that it had when it was first seen.
struct frame {
    uintptr_t address;
    const char *function;  // null when it cannot be told
    uint64_t offset;       // of the address, from the function or, without one, from the object's beginning
    const char *object;    // the program's or library's file; null when it cannot be told
};

// A call: what the caller gave, and where it returns to.
struct call_site {
    const char *function;  // of the library; a constant
    const char *file;      // null: the caller gave none
    INT line;
    void *caller;
};

struct place {
    uint64_t key;
    place *next;

    const char *function;  // that is called there
    const char *file;      // null: the frames alone tell
    INT line;
    const frame *frames;  // the caller, or with --stacks its stack; none beside a file otherwise
    uint32_t frame_count;

    // For the grouping of blocks that were never released.
    struct {
        uint64_t bytes, blocks;
        uint64_t tag;
        bool has_several_tags;
        place *next;
    } lost;
};

// The place of a call. Takes the lock, and not while it asks the loader for names.
place *place_of(const call_site &site);

// The stack above the checker's own functions; returns the number of frames.
uint32_t stack_here(frame *frames, uint32_t limit);
