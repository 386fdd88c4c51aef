// Searches for the thread functions by several threads at the same time.

#include "foundation/os.h"

#include "os/crew.h"
#include "support/child_process.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

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

// A first search is held up at the lookup of `held_up`, while a second one, in this thread, runs to its end.
// Both, and a call made between, must answer `expected`.
void search_side_by_side(lookup_trace &lookups, const char *held_up, UINT expected)
{
    static std::atomic<bool> is_held_up{false};
    static std::atomic<bool> may_go_on{false};
    static thread_local bool is_first = false;
    lookups.before_lookup([held_up](const char *name) {
        if (!is_first || name != std::string(held_up))
            return true;
        is_held_up = true;
        while (!may_go_on)
            std::this_thread::yield();
        return true;
    });
    UINT first_answer = 2;
    std::thread first([&] {
        is_first = true;
        first_answer = OS_threads_support();
    });
    while (!is_held_up)
        std::this_thread::yield();
    EXPECT_EQ(OS_threads_support(), expected);
    EXPECT_EQ(OS_threads_support(), expected);
    may_go_on = true;
    first.join();
    EXPECT_EQ(first_answer, expected);
    EXPECT_EQ(OS_threads_support(), expected);
}

TEST(ThreadDetection, SearchesSideBySideAgreeThatAllIsFound)
{
    for (const char *held_up : thread_function_names)
        expect_passes_in_child([held_up] {
            lookup_trace lookups;
            search_side_by_side(lookups, held_up, 1);
        });
}

TEST(ThreadDetection, SearchesSideBySideAgreeThatANameIsMissing)
{
    for (const char *held_up : thread_function_names)
        expect_passes_in_child([held_up] {
            lookup_trace lookups;
            lookups.hide(thread_function::COND_INIT);
            search_side_by_side(lookups, held_up, 0);
        });
}

}  // namespace
