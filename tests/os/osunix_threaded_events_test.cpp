// Events with real threads and the platform's own thread functions.

#include "os/crew.h"
#include "os/osunix_threaded.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

class RealEvent : public RealThreads {
protected:
    void SetUp() override
    {
        RealThreads::SetUp();
        ASSERT_EQ(os().create_event(&event, 0, nullptr), 1);
    }
    void TearDown() override { EXPECT_EQ(os().close_event(event), 1); }

    // While no other thread uses the event.
    UINT state() const
    {
        return *reinterpret_cast<const UINT *>(static_cast<const BYTE *>(event) + EVENT_STATE_OFFSET);
    }

    LPVOID event = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, RealEvent, every_threaded_name, operations_name);

TEST_P(RealEvent, ThatStartsSignalledIsNotWaitedFor)
{
    for (const UINT initial_state : {1U, 7U}) {
        LPVOID signalled = nullptr;
        ASSERT_EQ(os().create_event(&signalled, initial_state, nullptr), 1);
        EXPECT_EQ(os().wait_for_event(signalled), 1);
        EXPECT_EQ(os().wait_for_event(signalled), 1);
        EXPECT_EQ(os().close_event(signalled), 1);
    }
}

TEST_P(RealEvent, ReleasesEveryThreadThatWaitsWithOneSet)
{
    constexpr unsigned WAITERS = 16;
    int written_before_set = 0;
    std::atomic<unsigned> released{0};
    crew waiters(WAITERS);
    waiters.start([&](unsigned) {
        EXPECT_EQ(os().wait_for_event(event), 1);
        EXPECT_EQ(written_before_set, 1);
        ++released;
    });
    waiters.await_sleep();
    EXPECT_EQ(released, 0U);
    written_before_set = 1;
    EXPECT_EQ(os().set_event(event), 1);
    waiters.join();
    EXPECT_EQ(released, WAITERS);
    EXPECT_EQ(state(), 1U);
}

TEST_P(RealEvent, ReleasesThreadsThatComeAfterTheSetToo)
{
    EXPECT_EQ(os().set_event(event), 1);
    std::atomic<unsigned> released{0};
    {
        crew waiters(8);
        waiters.start([&](unsigned) {
            for (int i = 0; i < 100; ++i)
                released += static_cast<unsigned>(os().wait_for_event(event));
        });
    }
    EXPECT_EQ(released, 800U);
    EXPECT_EQ(state(), 1U);
}

TEST_P(RealEvent, KeepsThreadsWaitingThroughResets)
{
    constexpr unsigned WAITERS = 8;
    std::atomic<bool> is_set{false};
    std::atomic<unsigned> released_in_time{0};
    std::atomic<unsigned> released_too_early{0};
    crew waiters(WAITERS);
    waiters.start([&](unsigned) {
        EXPECT_EQ(os().wait_for_event(event), 1);
        ++(is_set ? released_in_time : released_too_early);
    });
    for (int i = 0; i < 5; ++i) {
        waiters.await_sleep();
        EXPECT_EQ(os().reset_event(event), 1);
    }
    waiters.await_sleep();
    is_set = true;
    EXPECT_EQ(os().set_event(event), 1);
    waiters.join();
    EXPECT_EQ(released_too_early, 0U);
    EXPECT_EQ(released_in_time, WAITERS);
}

TEST_P(RealEvent, HoldsThreadsBackAgainAfterAReset)
{
    EXPECT_EQ(os().set_event(event), 1);
    EXPECT_EQ(os().wait_for_event(event), 1);
    EXPECT_EQ(os().reset_event(event), 1);
    EXPECT_EQ(state(), 0U);
    std::atomic<bool> is_set{false};
    bool was_set_when_released = false;
    crew waiter(1);
    waiter.start([&](unsigned) {
        EXPECT_EQ(os().wait_for_event(event), 1);
        was_set_when_released = is_set;
    });
    waiter.await_sleep();
    is_set = true;
    EXPECT_EQ(os().set_event(event), 1);
    waiter.join();
    EXPECT_TRUE(was_set_when_released);
}

// Two events hand a turn to and fro: a wake-up that is lost, or one too many, ends in a hang or a wrong sum.
TEST_P(RealEvent, PassesATurnToAndFroWithoutLosingIt)
{
    constexpr int TURNS = 2000;
    LPVOID answer = nullptr;
    ASSERT_EQ(os().create_event(&answer, 0, nullptr), 1);
    int turns = 0;  // written in turn
    crew player(1);
    player.start([&](unsigned) {
        for (int i = 0; i < TURNS; ++i) {
            EXPECT_EQ(os().wait_for_event(event), 1);
            EXPECT_EQ(os().reset_event(event), 1);
            EXPECT_EQ(turns, 2 * i + 1);
            ++turns;
            EXPECT_EQ(os().set_event(answer), 1);
        }
    });
    for (int i = 0; i < TURNS; ++i) {
        EXPECT_EQ(turns, 2 * i);
        ++turns;
        EXPECT_EQ(os().set_event(event), 1);
        EXPECT_EQ(os().wait_for_event(answer), 1);
        EXPECT_EQ(os().reset_event(answer), 1);
    }
    player.join();
    EXPECT_EQ(turns, 2 * TURNS);
    EXPECT_EQ(os().close_event(answer), 1);
}

TEST_P(RealEvent, SurvivesAStormOfSetsAndResets)
{
    constexpr unsigned STORMING = 4;
    constexpr unsigned WAITING = 4;
    constexpr int CHANGES_OF_EACH = 20000;
    std::atomic<unsigned> still_storming{STORMING};
    std::atomic<unsigned> failures{0};
    std::atomic<unsigned> waits{0};
    crew threads(STORMING + WAITING);
    threads.start([&](unsigned number) {
        if (number < STORMING) {
            for (int i = 0; i < CHANGES_OF_EACH; ++i)
                failures += ((i + static_cast<int>(number)) % 2 != 0 ? os().set_event(event)
                                                                     : os().reset_event(event)) != 1;
            if (--still_storming == 0)
                failures += os().set_event(event) != 1;  // the last change of all
            return;
        }
        do {
            failures += os().wait_for_event(event) != 1;
            ++waits;
        } while (still_storming != 0);
    });
    threads.join();
    EXPECT_EQ(failures, 0U);
    EXPECT_GE(waits, WAITING);
    EXPECT_EQ(state(), 1U);
}

}  // namespace
