// The order of two effects of creating an event: the store of null through the output, and the allocation.
#pragma once

#include "support/child_process.h"
#include "support/heap_trace.h"
#include "support/sync_operations.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

// The output cannot be written, so that the store shows as a signal, at which the heap must not have been
// asked yet.
inline void expect_output_is_written_before_the_heap_is_asked(const sync_operations &os)
{
    enum { NOT_ASKED_YET, ASKED_BEFORE, NEVER_WRITTEN };
    static const heap_trace *heap;
    const child_result child = run_in_child([&] {
        void *output = mmap(nullptr, sizeof(LPVOID), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        signal(SIGSEGV, [](int) { _exit(heap->allocation_count() == 0 ? NOT_ASKED_YET : ASKED_BEFORE); });
        heap_trace trace;
        heap = &trace;
        os.create_event(static_cast<LPVOID *>(output), 0, nullptr);
        _exit(NEVER_WRITTEN);
    });
    ASSERT_TRUE(child.has_exited) << child.describe();
    EXPECT_NE(child.status, ASKED_BEFORE) << "the heap was asked before null was stored";
    EXPECT_NE(child.status, NEVER_WRITTEN) << "null was not stored";
    EXPECT_EQ(child.status, NOT_ASKED_YET) << child.describe();
}
