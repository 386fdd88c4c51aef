// What the tests of threaded mode over fakes of the thread functions share.
#pragma once

#include "foundation/os.h"

#include "os/sentinel_errno.h"
#include "support/sync_operations.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>

#include <type_traits>

// What a failing thread function may report: any number but 0.
constexpr int failure_codes[] = {EINVAL, -1, 0x10000, INT_MIN};

static_assert(sizeof(pthread_mutex_t) == 40 && sizeof(pthread_cond_t) == 48, "as the steps below show them");
static_assert(std::is_same_v<decltype(OS_current_thread_id_get()), uintptr_t>);

// The mode is settled once a process, for all tests of this program alike.
inline void settle_threaded_mode_with_fakes()
{
    lookup_trace lookups;
    lookups.replace_by_fakes();
    ASSERT_EQ(OS_threads_support(), 1U);
}

inline const auto every_threaded_name = testing::Values(DISPATCHED_OPERATIONS, THREADED_OPERATIONS);

class ThreadedCalls : public testing::TestWithParam<sync_operations> {
protected:
    void SetUp() override { settle_threaded_mode_with_fakes(); }

    static const sync_operations &os() { return GetParam(); }
};
