// Threads' identifiers and locks with real threads and the platform's own thread functions.

#include "os/crew.h"
#include "os/osunix_threaded.h"
#include "support/sanitizers.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#if BUILT_FOR_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace {

// ThreadSanitizer holds every release for one that succeeds, and for a mistake of a thread that does not own
// the lock. Around a release that is to be refused it is told that the thread does.
void tell_of_lock([[maybe_unused]] LPVOID mutex)
{
#if BUILT_FOR_THREAD_SANITIZER
    __tsan_mutex_pre_lock(mutex, 0);
    __tsan_mutex_post_lock(mutex, 0, 1);
#endif
}

void tell_of_unlock([[maybe_unused]] LPVOID mutex)
{
#if BUILT_FOR_THREAD_SANITIZER
    __tsan_mutex_pre_unlock(mutex, 0);
    __tsan_mutex_post_unlock(mutex, 0);
#endif
}

// ---- Thread identifier

INSTANTIATE_TEST_SUITE_P(, RealThreads, every_threaded_name, operations_name);

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
        if (result != 0 && result != EBUSY)
            throw std::runtime_error("the lock is no mutex: " + std::to_string(result));
        return result == 0;
    }

    LPVOID lock = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, RealLock, testing::Combine(every_threaded_name, every_lock_kind),
                         operations_and_kind_name);

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
    tell_of_lock(identifier);
    EXPECT_EQ(os().mutex_release(identifier), 0);
    EXPECT_EQ(os().mutex_ID_free(identifier), 0);
}

TEST_P(RealThreads, CannotReleaseAnIdentifierThatIsNotTheirs)
{
    LPVOID identifier = nullptr;
    ASSERT_EQ(os().mutex_ID_allocate(&identifier), 0);
    LPVOID handle = nullptr;
    ASSERT_EQ(os().mutex_open(identifier, nullptr, &handle), 1);
    tell_of_unlock(handle);
    std::thread([&] {
        tell_of_lock(handle);
        EXPECT_EQ(os().mutex_release(handle), 0);
    }).join();
    tell_of_lock(handle);
    EXPECT_EQ(os().mutex_release(handle), 1);
    EXPECT_EQ(os().mutex_ID_free(identifier), 0);
}

}  // namespace
