// A malloc family in front of the C library's: records every heap call that is made while a heap_trace
// lives, tells them in words, and can refuse one. Linking this unit puts the family in place for the whole
// test program; a sanitizer's own family stays behind it, so blocks are checked as ever.
//
// Seen are malloc, calloc, realloc and free, wherever in the process they are called. The C++ operators go
// past the record, so a test may use containers and assertions while it traces. What the C library
// allocates for itself (stdio buffers, a new thread's stack record) does show.
//
//   heap_trace heap({{heap_call::CALLOC, 336, "node"}});
//   LPVOID block = ZR_memm_alloc(TAG, 10, "test", __LINE__);
//   EXPECT_EQ(heap.take_steps(), (steps{"malloc 10 -> block 1", "calloc 336 -> node 1"}));
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <iosfwd>
#include <map>
#include <sstream>
#include <string>
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

// Calls in words, oldest first.
using steps = std::vector<std::string>;

// One step out of its parts: words("malloc ", size, " -> block 1").
template <typename... Parts> std::string words(const Parts &...parts)
{
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

// What the blocks of one kind of request are called.
struct block_kind {
    heap_call::kind_of_call kind;
    size_t size;
    std::string name;
};

// Records the calls of the thread that made it, from construction to destruction. One at a time.
class heap_trace {
public:
    // Blocks of no kind in `kinds` are called `other_blocks`.
    explicit heap_trace(std::vector<block_kind> kinds = {}, std::string other_blocks = "block");
    ~heap_trace();
    heap_trace(const heap_trace &) = delete;
    heap_trace &operator=(const heap_trace &) = delete;

    // Refuse the n-th allocating call from now on (0 the next one), once; frees do not count. A refused
    // call sets errno to ENOMEM, and a refused realloc leaves its block alone. Replaces an earlier order.
    void refuse_allocation(unsigned n);
    // Refuse the n-th allocating call from now on (0 the next one) and every later one, until
    // allow_allocations.
    void refuse_allocations_from(unsigned n);
    void refuse_all_allocations() { refuse_allocations_from(0); }
    void allow_allocations();
    // Call this in every refused call, until the trace ends.
    void when_refused(void (*action)());

    // What was called since the last question, or since the trace began. Blocks are numbered from 1 within
    // their kind as they are allocated, and keep their name when they are released. Steps that differ in
    // nothing but such numbers, in ascending order, are one. For example:
    //   "malloc 10 -> block 1", "calloc 336 -> node 1", "malloc 8 -> block 2..14", "malloc 10 refused",
    //   "realloc block 1, 20 -> block 15", "free block 2..15", "free null", "free unknown block",
    //   "free once more block 2"
    steps take_steps();
    // The same, but a step for each call.
    steps take_single_steps();
    // The blocks allocated and not released since the trace began, oldest first: "block 3..5", "node 1".
    steps unreleased();
    // The block of that name; a failure of the test, and null, when there was none.
    void *address_of(const std::string &name);
    // Forget everything recorded, names included, and count blocks from 1 again.
    void start_over();

    // Everything recorded so far, oldest first. Copying it out is not recorded.
    std::vector<heap_call> calls() const;
    // Forget what was recorded.
    void clear();
    // Allocating calls recorded so far, refused ones included.
    unsigned allocation_count() const;
    // The blocks of recorded allocations that no recorded call has released since, oldest first.
    std::vector<void *> unreleased_blocks() const;

private:
    struct named_block {
        void *address;
        std::string kind;
        unsigned number;  // 0: not allocated under the trace; `kind` is all its name
        bool is_released;
    };
    struct step {
        std::string call;  // "free", "malloc 10 ->"
        std::string kind;
        unsigned first, last;  // numbers; 0 for a step without a number

        std::string in_words() const;
    };

    static steps in_words(const std::vector<step> &list);
    static std::vector<step> joined(const std::vector<step> &list);
    void read_log();
    void read(const heap_call &call);
    std::string request_in_words(const heap_call &call);
    std::string kind_of(const heap_call &call) const;
    named_block &newest_at(void *address);

    std::vector<block_kind> kinds_;
    std::string other_blocks_;
    std::map<std::string, unsigned> numbers_;  // of the newest block of each kind
    std::vector<named_block> blocks_;          // oldest first
    std::map<void *, size_t> newest_at_;       // address to place in blocks_
    std::map<std::string, size_t> places_;     // name to place in blocks_
    std::vector<step> steps_;                  // one for each call, not asked for yet
    size_t calls_read_ = 0;
};
