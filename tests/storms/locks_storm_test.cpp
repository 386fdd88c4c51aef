// Critical sections of both kinds and mutex identifiers under many threads.

#include "foundation/os.h"

#include "os/crew.h"
#include "storms/storm.h"
#include "support/sync_operations.h"

#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace {

class LockStorm : public testing::TestWithParam<lock_kind> {
protected:
    void SetUp() override
    {
        ASSERT_EQ(OS_threads_support(), 1U);
        for (guarded_counter &counter : counters)
            ASSERT_EQ(GetParam().create(os, &counter.lock), GetParam().created);
    }
    void TearDown() override
    {
        for (const guarded_counter &counter : counters) {
            EXPECT_EQ(counter.intruders, 0) << "somebody entered while another thread was inside";
            EXPECT_EQ(GetParam().free(os, counter.lock), GetParam().freed);
        }
    }

    // Not atomic: exact only if no two threads are inside.
    struct guarded_counter {
        LPVOID lock = nullptr;
        long value = 0;
        long intruders = 0;
    };

    // Now and then a thread gives up its turn inside, so that the others run into the lock it holds: nobody
    // may have counted meanwhile.
    static void sometimes_yield(guarded_counter &counter, long visit)
    {
        if (visit % 64 != 0)
            return;
        const long before = counter.value;
        std::this_thread::yield();
        counter.intruders += *const_cast<volatile long *>(&counter.value) != before;
    }

    // Enter `depth` times and count inside every entry, on the way in and on the way out.
    static void enter_and_count(guarded_counter &counter, unsigned depth, long visit)
    {
        for (unsigned entered = 0; entered < depth; ++entered) {
            GetParam().take(os, counter.lock);
            ++counter.value;
        }
        sometimes_yield(counter, visit);
        for (unsigned left = 0; left < depth; ++left) {
            ++counter.value;
            GetParam().give_back(os, counter.lock);
        }
    }

    static constexpr const sync_operations &os = DISPATCHED_OPERATIONS;
    guarded_counter counters[3];
};

std::string kind_name(const testing::TestParamInfo<lock_kind> &tested)
{
    return tested.param.name;
}

INSTANTIATE_TEST_SUITE_P(, LockStorm, every_lock_kind, kind_name);

TEST_P(LockStorm, LosesNoCountThroughNestedEntries)
{
    constexpr unsigned DEEPEST = 3;
    constexpr unsigned OPERATIONS_OF_THREE_VISITS = 2 * (1 + 2 + 3);
    const long visits_of_each = 3 * (1 + storm_operations() / OPERATIONS_OF_THREE_VISITS / storm_threads());
    crew threads(storm_threads());
    threads.start([&](unsigned number) {
        for (long visit = 0; visit < visits_of_each; ++visit) {
            const unsigned turn = number + static_cast<unsigned>(visit);
            enter_and_count(counters[turn % std::size(counters)], 1 + turn % DEEPEST, visit);
        }
    });
    threads.join();
    const long operations = storm_threads() * (visits_of_each / 3) * OPERATIONS_OF_THREE_VISITS;
    const long counted = std::accumulate(std::begin(counters), std::end(counters), 0L,
                                         [](long sum, const guarded_counter &c) { return sum + c.value; });
    EXPECT_EQ(counted, operations);
    report_storm(GetParam().name, operations, "entries and leaves, none lost");
}

// Threads that wait in one another's path: each lock is taken while the one before it is held.
TEST_P(LockStorm, LosesNoCountWhenOneLockIsTakenInsideAnother)
{
    const long visits_of_each = 1 + storm_operations() / 6 / storm_threads();
    crew threads(storm_threads());
    threads.start([&](unsigned) {
        for (long visit = 0; visit < visits_of_each; ++visit) {
            for (guarded_counter &counter : counters) {
                GetParam().take(os, counter.lock);
                ++counter.value;
            }
            sometimes_yield(counters[0], visit);
            for (guarded_counter &counter : counters)
                GetParam().give_back(os, counter.lock);
        }
    });
    threads.join();
    for (const guarded_counter &counter : counters)
        EXPECT_EQ(counter.value, visits_of_each * storm_threads());
}

}  // namespace
