// The one place where the program calls the memory manager, and what allocates through it. Neither takes a
// lock, so every call here is made inside one critical section; the program's threads call nothing else.
#pragma once

#include "foundation/array.h"
#include "foundation/memory.h"
#include "foundation/os.h"

// Call first and last, while there is one thread. Closing returns the number of blocks that nobody released.
bool memory_open();
LONG memory_close();

uint64_t memory_tag();

// Null when there is no memory.
LPVOID memory_alloc(uint64_t tag, uint64_t size);
void memory_free_all(uint64_t tag);

// A copy of `text`, or of `directory` and `name` joined, under `tag`; null when there is no memory.
CHAR *memory_text(uint64_t tag, const CHAR *text);
CHAR *memory_path(uint64_t tag, const CHAR *directory, const CHAR *name);

// Many small pieces that go together: cut from large blocks, because the manager looks for a block's place
// among all those of its tag. Not for two threads at once.
struct memory_pool {
    uint64_t tag;
    BYTE *free_bytes;
    uint64_t free_count;
};
memory_pool memory_pool_open(uint64_t tag);
// Null when there is no memory.
LPVOID memory_pool_alloc(memory_pool &pool, uint64_t size, uint64_t alignment);
CHAR *memory_pool_text(memory_pool &pool, const CHAR *text);

// An array in the order of adding; null when there is no memory.
ZT_DT_ANY *memory_array(uint64_t tag, uint64_t increment);
bool memory_array_add(ZT_DT_ANY *array, LPVOID element);
// The last element, taken out; null when there is none.
LPVOID memory_array_take_last(ZT_DT_ANY *array);

// An ordinary critical section under `tag`; null when there is none to be had.
LPVOID memory_section(uint64_t tag);
void memory_section_free(uint64_t tag, LPVOID section);

// Inside a critical section from construction to destruction.
class inside_section {
public:
    explicit inside_section(LPVOID section) : section_(section) { OS_sync_cs_enter(section_); }
    ~inside_section() { OS_sync_cs_leave(section_); }
    inside_section(const inside_section &) = delete;
    inside_section &operator=(const inside_section &) = delete;

private:
    LPVOID section_;
};

// Reads of an array that no other thread changes at the same time: the manager is not involved.
uint64_t array_count(ZT_DT_ANY *array);
LPVOID array_element(ZT_DT_ANY *array, uint64_t index);
