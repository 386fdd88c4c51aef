// The one place where the program meets the memory manager, which takes no lock: what is made of the types
// here calls it inside one critical section, and the program's threads call nothing else of it.
#pragma once

#include "foundation/foundation.hpp"

#include <mutex>

// Call first and last, while there is one thread. Closing returns the number of blocks that nobody released.
bool memory_open();
LONG memory_close();

// Inside the manager's section from construction to destruction.
struct manager_guard : std::lock_guard<qv::mem_section> {
    manager_guard();
};

// What is made without memory tests false.
using memory_owner = qv::basic_owner<manager_guard>;
using memory_section = qv::basic_section<manager_guard>;
template <typename element> using memory_array = qv::array<element, manager_guard>;

// `directory` and `name` joined, the owner's; null when there is no memory.
CHAR *memory_path(memory_owner &owner, const CHAR *directory, const CHAR *name);

// Many small pieces that go together: cut from large blocks, because the manager looks for a block's place
// among all those of its tag. Not for two threads at once.
struct memory_pool {
    memory_owner &owner;
    BYTE *free_bytes = nullptr;
    uint64_t free_count = 0;
};
// Null when there is no memory.
LPVOID memory_pool_alloc(memory_pool &pool, uint64_t size, uint64_t alignment);
CHAR *memory_pool_text(memory_pool &pool, const CHAR *text);
