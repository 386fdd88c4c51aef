// Threaded mode with real threads and the platform's own thread functions.

#include "foundation/os.h"
#include "support/child_process.h"
#include "support/sanitizers.h"
#include "support/sync_operations.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

// A release by a thread that does not own the mutex is tested below; ThreadSanitizer takes it for a mistake.
#if BUILT_FOR_THREAD_SANITIZER
extern "C" const char *__tsan_default_suppressions()
{
    return "mutex:OS_mutex_release";
}
#endif

namespace {

// Threads that begin together and are waited for at the end of their scope.
class crew {
public:
    explicit crew(unsigned size) : size_(size), kernel_ids_(size) {}
    ~crew() { join(); }

    // Every thread runs `work` with its number, from 0, as soon as all of them are there.
    void start(const std::function<void(unsigned number)> &work)
    {
        for (unsigned number = 0; number < size_; ++number)
            threads_.emplace_back([this, work, number] {
                kernel_ids_[number] = static_cast<long>(syscall(SYS_gettid));
                ++present_;
                while (present_ < size_)
                    std::this_thread::yield();
                work(number);
            });
        while (present_ < size_)
            std::this_thread::yield();
    }

    void join()
    {
        for (std::thread &thread : threads_)
            thread.join();
        threads_.clear();
    }

    // Give the threads time to fall asleep in the call that they are expected to block in. Nothing rests on
    // it but the power of the test: without it, what must not happen would have had less time to happen.
    void await_sleep() const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        for (const std::atomic<long> &id : kernel_ids_)
            while (!is_asleep(id) && std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    static bool is_asleep(long kernel_id)
    {
        std::ifstream file("/proc/self/task/" + std::to_string(kernel_id) + "/stat");
        std::string line;
        std::getline(file, line);
        const size_t name_end = line.rfind(") ");
        return name_end != std::string::npos && line[name_end + 2] == 'S';
    }

    unsigned size_;
    std::vector<std::atomic<long>> kernel_ids_;
    std::atomic<unsigned> present_{0};
    std::vector<std::thread> threads_;
};

const auto every_name = testing::Values(DISPATCHED_OPERATIONS, THREADED_OPERATIONS);

// ---- Detection by several threads at once

TEST(ThreadedProcess, ThreadsThatDetectAtTheSameTimeAllFindThreads)
{
    constexpr int PROCESSES = 20;
    for (int i = 0; i < PROCESSES; ++i)
        expect_passes_in_child([] {
            std::atomic<unsigned> answers_of_one{0};
            {
                crew threads(2);
                threads.start([&](unsigned) { answers_of_one += OS_threads_support(); });
            }
            EXPECT_EQ(answers_of_one, 2U);
        });
}

TEST(ThreadedProcess, ObjectsMadeByTheFirstCallsOfSeveralThreadsWork)
{
    static constexpr unsigned THREADS = 8;
    constexpr int PROCESSES = 5;
    for (int i = 0; i < PROCESSES; ++i)
        expect_passes_in_child([] {
            std::atomic<unsigned> working{0};
            {
                crew threads(THREADS);
                threads.start([&](unsigned number) {
                    LPVOID object = nullptr;
                    LPVOID handle = nullptr;
                    if (number % 2 == 0)
                        working += OS_create_event(&object, 1, nullptr) == 1 &&
                                   OS_wait_for_event(object) == 1 && OS_close_event(object) == 1;
                    else
                        working += OS_mutex_ID_allocate(&object) == 0 &&
                                   OS_mutex_open(object, nullptr, &handle) == 1 &&
                                   OS_mutex_open(object, nullptr, &handle) == 1 &&
                                   OS_mutex_release(handle) == 1 && OS_mutex_release(handle) == 1 &&
                                   OS_mutex_ID_free(object) == 0;
                });
            }
            EXPECT_EQ(working, THREADS);
        });
}

// ---- Thread identifier

class RealThreads : public testing::TestWithParam<sync_operations> {
protected:
    void SetUp() override { ASSERT_EQ(OS_threads_support(), 1U); }

    static const sync_operations &os() { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(, RealThreads, every_name, operations_name);

TEST_P(RealThreads, HaveThePlatformsIdentifierEachItsOwn)
{
    constexpr unsigned THREADS = 8;
    std::vector<uintptr_t> identifiers(THREADS);
    std::atomic<unsigned> done{0};
    {
        crew threads(THREADS);
        threads.start([&](unsigned number) {
            identifiers[number] = os().current_thread_id_get();
            EXPECT_EQ(identifiers[number], static_cast<uintptr_t>(pthread_self()));
            // An identifier may be given to another thread as soon as its own has ended.
            ++done;
            while (done < THREADS)
                std::this_thread::yield();
        });
    }
    identifiers.push_back(os().current_thread_id_get());
    EXPECT_EQ(identifiers.back(), static_cast<uintptr_t>(pthread_self()));
    EXPECT_EQ(std::set<uintptr_t>(identifiers.begin(), identifiers.end()).size(), THREADS + 1);
}

// ---- Locks: both critical sections and mutex identifiers

class RealLock : public testing::TestWithParam<operations_and_kind> {
protected:
    void SetUp() override
    {
        ASSERT_EQ(OS_threads_support(), 1U);
        ASSERT_EQ(kind().create(os(), &lock), kind().created);
    }
    void TearDown() override { EXPECT_EQ(kind().free(os(), lock), kind().freed); }

    static const sync_operations &os() { return std::get<0>(GetParam()); }
    static const lock_kind &kind() { return std::get<1>(GetParam()); }
    void take() const { kind().take(os(), lock); }
    void give_back() const { kind().give_back(os(), lock); }

    // Whether another thread could take the lock now.
    bool is_free_for_others() const
    {
        int result = -1;
        std::thread([&] {
            auto *mutex = static_cast<pthread_mutex_t *>(lock);
            result = pthread_mutex_trylock(mutex);
            if (result == 0)
                pthread_mutex_unlock(mutex);
        }).join();
        EXPECT_TRUE(result == 0 || result == EBUSY) << result;
        return result == 0;
    }

    LPVOID lock = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, RealLock, testing::Combine(every_name, every_lock_kind), operations_and_kind_name);

TEST_P(RealLock, IsFreeAgainWhenItWasGivenBackAsOftenAsItWasTaken)
{
    constexpr int TIMES = 1000;
    EXPECT_TRUE(is_free_for_others());
    for (int i = 0; i < TIMES; ++i)
        take();
    for (int i = 0; i < TIMES - 1; ++i)
        give_back();
    EXPECT_FALSE(is_free_for_others());
    give_back();
    EXPECT_TRUE(is_free_for_others());
}

TEST_P(RealLock, BlocksAnotherThreadUntilTheOwnerHasGivenItBackForTheLastTime)
{
    int given_back = 0;  // guarded by the lock
    take();
    take();
    crew other(1);
    int given_back_when_taken = -1;
    std::atomic<bool> was_taken{false};
    other.start([&](unsigned) {
        take();
        given_back_when_taken = given_back;
        was_taken = true;
        give_back();
    });
    other.await_sleep();
    EXPECT_FALSE(was_taken);
    given_back = 1;
    give_back();
    other.await_sleep();
    EXPECT_FALSE(was_taken);
    given_back = 2;
    give_back();
    other.join();
    EXPECT_EQ(given_back_when_taken, 2);
}

TEST_P(RealLock, LetsOneThreadInAtATime)
{
    constexpr unsigned THREADS = 8;
    constexpr int ENTRIES_OF_EACH = 125000;  // 1 000 000 together
    // Neither is atomic: they are right only if no two threads are inside.
    long entries = 0;
    int inside = 0;
    std::atomic<long> company{0};
    crew threads(THREADS);
    threads.start([&](unsigned) {
        for (int i = 0; i < ENTRIES_OF_EACH; ++i) {
            take();
            if (++inside != 1)
                ++company;
            ++entries;
            --inside;
            give_back();
        }
    });
    threads.join();
    EXPECT_EQ(entries, static_cast<long>(THREADS) * ENTRIES_OF_EACH);
    EXPECT_EQ(company, 0);
}

// ---- What mutex identifiers report

TEST_P(RealThreads, OpenAnIdentifierThatIsTheirsAsOftenAsTheyLike)
{
    LPVOID identifier = nullptr;
    ASSERT_EQ(os().mutex_ID_allocate(&identifier), 0);
    for (int i = 0; i < 3; ++i) {
        LPVOID handle = nullptr;
        EXPECT_EQ(os().mutex_open(identifier, nullptr, &handle), 1);
        EXPECT_EQ(handle, identifier);
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(os().mutex_release(identifier), 1);
    EXPECT_EQ(os().mutex_release(identifier), 0);
    EXPECT_EQ(os().mutex_ID_free(identifier), 0);
}

TEST_P(RealThreads, CannotReleaseAnIdentifierThatIsNotTheirs)
{
    LPVOID identifier = nullptr;
    ASSERT_EQ(os().mutex_ID_allocate(&identifier), 0);
    LPVOID handle = nullptr;
    ASSERT_EQ(os().mutex_open(identifier, nullptr, &handle), 1);
    std::thread([&] { EXPECT_EQ(os().mutex_release(handle), 0); }).join();
    EXPECT_EQ(os().mutex_release(handle), 1);
    EXPECT_EQ(os().mutex_ID_free(identifier), 0);
}

// ---- Events

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

INSTANTIATE_TEST_SUITE_P(, RealEvent, every_name, operations_name);

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
