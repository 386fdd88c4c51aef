// What the tests of foundation.hpp share.
#pragma once

#include "foundation/foundation.hpp"

#include "support/heap_trace.h"

#include <gtest/gtest.h>

constexpr uint64_t TAG = 5;

// No test leaves anything under a tag, nor a block on the heap.
class Hpp : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ZR_memm_cleanup(), 0); }
    void TearDown() override
    {
        heap.allow_allocations();
        EXPECT_EQ(ZR_memm_cleanup(), 0);
        EXPECT_EQ(heap.unreleased(), steps{});
    }

    heap_trace heap;
};

// A guard that counts its objects, and how many there are at once.
struct counting_guard {
    static inline int made, alive;
    counting_guard()
    {
        ++made;
        ++alive;
    }
    ~counting_guard() { --alive; }
    counting_guard(const counting_guard &) = delete;
    counting_guard &operator=(const counting_guard &) = delete;
};

// How many guards `calls` makes.
template <typename function> int guards_made_by(const function &calls)
{
    counting_guard::made = 0;
    calls();
    EXPECT_EQ(counting_guard::alive, 0);
    return counting_guard::made;
}
