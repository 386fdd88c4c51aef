// Events under many threads. A wake-up that is lost shows as a test that does not end.

#include "foundation/os.h"

#include "os/crew.h"
#include "storms/storm.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

// Where all threads of a storm meet between two rounds. (std::barrier is younger than g++ 10.)
class meeting {
public:
    explicit meeting(unsigned threads) { pthread_barrier_init(&barrier_, nullptr, threads); }
    ~meeting() { pthread_barrier_destroy(&barrier_); }
    meeting(const meeting &) = delete;
    meeting &operator=(const meeting &) = delete;

    // True in one of the threads.
    bool wait_for_all() { return pthread_barrier_wait(&barrier_) == PTHREAD_BARRIER_SERIAL_THREAD; }

private:
    pthread_barrier_t barrier_;
};

class EventStorm : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(OS_threads_support(), 1U); }
};

// In each round some threads set and reset the event at random while the others wait for it again and again;
// what the last of them does is a set, and behind it everybody must get through.
TEST_F(EventStorm, LosesNoWaiterBehindTheLastSet)
{
    constexpr int CHANGES_OF_EACH = 50;
    const unsigned changing_threads = storm_threads() / 2;
    const long changes_of_a_round = changing_threads * CHANGES_OF_EACH;
    const long rounds = 1 + storm_operations() / changes_of_a_round;
    LPVOID event = nullptr;
    ASSERT_EQ(OS_create_event(&event, 0, nullptr), 1);
    meeting start(storm_threads());
    meeting end(storm_threads());
    std::atomic<unsigned> still_changing{changing_threads};
    std::atomic<long> waits{0};
    std::atomic<long> failures{0};

    const auto change = [&](unsigned number, long round) {
        for (int i = 0; i < CHANGES_OF_EACH; ++i) {
            const bool is_set = (i + static_cast<int>(number) + round) % 5 == 0;
            failures += (is_set ? OS_set_event(event) : OS_reset_event(event)) != 1;
            if (is_set)
                std::this_thread::yield();  // some waiters wake up in time, others to a reset event
        }
        if (--still_changing == 0)
            failures += OS_set_event(event) != 1;
    };
    const auto wait = [&] {
        do {
            failures += OS_wait_for_event(event) != 1;
            ++waits;
            std::this_thread::yield();  // while the event is set, the others are to come to their turn
        } while (still_changing != 0);
    };
    crew threads(storm_threads());
    threads.start([&](unsigned number) {
        for (long round = 0; round < rounds; ++round) {
            start.wait_for_all();
            if (number < changing_threads)
                change(number, round);
            else
                wait();
            if (end.wait_for_all()) {
                still_changing = changing_threads;
                failures += OS_reset_event(event) != 1;
            }
        }
    });
    threads.join();
    EXPECT_EQ(failures, 0);
    EXPECT_GE(waits, rounds * (storm_threads() - changing_threads));
    EXPECT_EQ(OS_close_event(event), 1);
    report_storm("events set and reset while others wait, and a last set", rounds * (changes_of_a_round + 1),
                 "sets and resets");
    report_storm("events waited for while others set and reset them", waits, "waits, all ended");
}

// Every thread waits for its own event and then sets the next one's, so that as many turns travel in the ring
// as were put in. A lost wake-up stops the ring; one too many, or memory seen too late, breaks the count.
TEST_F(EventStorm, LosesNoTurnInARing)
{
    const unsigned size = storm_threads();
    const long laps = 1 + storm_operations() / 3 / size / 5;
    std::vector<LPVOID> turns(size);
    for (LPVOID &turn : turns)
        ASSERT_EQ(OS_create_event(&turn, 0, nullptr), 1);
    long passed = 0;  // written by whoever has the turn
    std::atomic<long> out_of_turn{0};
    crew ring(size);
    ring.start([&](unsigned number) {
        for (long lap = 0; lap < laps; ++lap) {
            OS_wait_for_event(turns[number]);
            OS_reset_event(turns[number]);
            out_of_turn += passed != lap * size + number;
            ++passed;
            OS_set_event(turns[(number + 1) % size]);
        }
    });
    OS_set_event(turns[0]);
    ring.join();
    EXPECT_EQ(out_of_turn, 0);
    EXPECT_EQ(passed, laps * size);
    for (LPVOID turn : turns)
        EXPECT_EQ(OS_close_event(turn), 1);
    report_storm("events, a turn passed round a ring", 3 * passed, "operations");
}

}  // namespace
