// The search for the thread functions. It runs once in a process, so every case has one of its own.

#include "foundation/os.h"
#include "support/child_process.h"
#include "support/sync_operations.h"
#include "support/thread_functions.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace {

static_assert(RTLD_LAZY == 1, "as the steps below show it");

// The steps of a search that ends with the lookup of `last`, or, with no `last`, finds all twelve.
steps search(const char *last = nullptr)
{
    steps expected = {"dlopen(null, 1)"};
    for (const char *name : thread_function_names) {
        expected.push_back(std::string("dlsym(image, ") + name + ")");
        if (last != nullptr && name == std::string(last))
            break;
    }
    expected.push_back("dlclose(image)");
    return expected;
}

TEST(ThreadDetection, AnswersOneWhereAllTwelveFunctionsAreFound)
{
    expect_passes_in_child([] {
        EXPECT_EQ(OS_threads_support(), 1U);
        EXPECT_EQ(OS_threads_support(), 1U);
    });
}

TEST(ThreadDetection, LooksAllTwelveUpInTableOrderAndClosesTheProcessImageOnce)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        EXPECT_EQ(OS_threads_support(), 1U);
        EXPECT_EQ(lookups.calls(), search());
    });
}

TEST(ThreadDetection, LooksNothingUpASecondTime)
{
    expect_passes_in_child([] {
        ASSERT_EQ(OS_threads_support(), 1U);
        lookup_trace lookups;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(OS_threads_support(), 1U);
            OS_current_thread_id_get();
            OS_sync_cs_enter(nullptr);
            OS_set_event(nullptr);
        }
        EXPECT_EQ(lookups.calls(), steps{});
    });
}

TEST(ThreadDetection, BindsEveryFunctionThatWasFound)
{
    expect_passes_in_child([] {
        {
            lookup_trace lookups;
            lookups.replace_by_fakes();
            ASSERT_EQ(OS_threads_support(), 1U);
        }
        call_trace trace;
        LPVOID event = nullptr;
        OS_current_thread_id_get();
        OS_create_event(&event, 0, nullptr);
        trace.replace(thread_function::COND_WAIT, [&] {
            OS_set_event(event);
            return 0;
        });
        OS_wait_for_event(event);
        OS_close_event(event);
        for (const char *name : thread_function_names) {
            const auto is_call_of_name = [&](const std::string &step) {
                return step.rfind(name + std::string("("), 0) == 0;
            };
            int calls = 0;
            for (const std::string &step : trace.calls())
                calls += is_call_of_name(step);
            EXPECT_GE(calls, 1) << name;
        }
    });
}

TEST(ThreadDetection, SearchesTheDefaultScopeAndClosesNothingWhereTheProcessImageCannotBeOpened)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        lookups.refuse_process_image();
        EXPECT_EQ(OS_threads_support(), 1U);
        steps expected = {"dlopen(null, 1)"};
        for (const char *name : thread_function_names)
            expected.push_back(std::string("dlsym(null, ") + name + ")");
        EXPECT_EQ(lookups.calls(), expected);
    });
}

TEST(ThreadDetection, IsEmulatedWhereANameIsMissingAndTheProcessImageCannotBeOpened)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        lookups.refuse_process_image();
        lookups.hide(thread_function::MUTEXATTR_SETTYPE);
        EXPECT_EQ(OS_threads_support(), 0U);
        const steps expected = {"dlopen(null, 1)", "dlsym(null, pthread_mutexattr_destroy)",
                                "dlsym(null, pthread_mutexattr_settype)"};
        EXPECT_EQ(lookups.calls(), expected);
    });
}

// ---- One name missing

class OneNameMissing : public testing::TestWithParam<size_t> {
protected:
    static thread_function missing() { return static_cast<thread_function>(GetParam()); }
    static const char *missing_name() { return thread_function_names[GetParam()]; }
};

TEST_P(OneNameMissing, EndsTheSearchThereAndClosesTheProcessImageOnce)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        lookups.hide(missing());
        EXPECT_EQ(OS_threads_support(), 0U);
        EXPECT_EQ(lookups.calls(), search(missing_name()));
    });
}

// No fake is called, though all in front of the missing one were bound.
TEST_P(OneNameMissing, MakesEveryObjectAPlainFlag)
{
    expect_passes_in_child([] {
        {
            lookup_trace lookups;
            lookups.replace_by_fakes();
            lookups.hide(missing());
            ASSERT_EQ(OS_threads_support(), 0U);
        }
        EXPECT_EQ(OS_current_thread_id_get(), 1U);
        const steps flag_made_and_freed = {"malloc 4 = record", "free record"};
        for (const lock_kind *kind :
             {&lock_kinds::ORDINARY_SECTION, &lock_kinds::MEM_SYNC_SECTION, &lock_kinds::MUTEX_IDENTIFIER}) {
            SCOPED_TRACE(kind->name);
            call_trace trace;
            LPVOID lock = nullptr;
            EXPECT_EQ(kind->create(DISPATCHED_OPERATIONS, &lock), kind->created);
            kind->take(DISPATCHED_OPERATIONS, lock);
            EXPECT_EQ(*static_cast<UINT *>(lock), 1U);
            kind->give_back(DISPATCHED_OPERATIONS, lock);
            EXPECT_EQ(kind->free(DISPATCHED_OPERATIONS, lock), kind->freed);
            EXPECT_EQ(trace.calls(), flag_made_and_freed);
        }
        call_trace trace;
        LPVOID event = nullptr;
        EXPECT_EQ(OS_create_event(&event, 0, nullptr), 1);
        EXPECT_EQ(OS_wait_for_event(event), 0);
        EXPECT_EQ(OS_set_event(event), 1);
        EXPECT_EQ(OS_wait_for_event(event), 1);
        EXPECT_EQ(OS_close_event(event), 1);
        EXPECT_EQ(trace.calls(), flag_made_and_freed);
    });
}

TEST_P(OneNameMissing, KeepsTheProcessEmulatedWhenItTurnsUpLater)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        lookups.hide(missing());
        ASSERT_EQ(OS_threads_support(), 0U);
        lookups.hide_nothing();
        const steps first_search = lookups.calls();
        EXPECT_EQ(OS_threads_support(), 0U);
        EXPECT_EQ(OS_current_thread_id_get(), 1U);
        EXPECT_EQ(lookups.calls(), first_search);
    });
}

INSTANTIATE_TEST_SUITE_P(Name, OneNameMissing, testing::Range(size_t{0}, THREAD_FUNCTIONS),
                         [](const testing::TestParamInfo<size_t> &tested) {
                             return std::string(thread_function_names[tested.param]);
                         });

// ---- What starts the search

struct first_call {
    const char *name;
    std::function<void(const sync_operations &)> make;  // any arguments will do
};

void PrintTo(const first_call &call, std::ostream *stream)
{
    *stream << call.name;
}

const first_call first_calls[] = {
    {"CurrentThreadIdGet",
     [](const sync_operations &os) {
         os.current_thread_id_get();
     }},
    {"SyncCsAllocate",
     [](const sync_operations &os) {
         LPVOID made;
         os.cs_allocate(SECTION_TAG, &made);
     }},
    {"SyncCsFree",
     [](const sync_operations &os) {
         os.cs_free(SECTION_TAG, nullptr);
     }},
    {"MemSyncCsAllocate",
     [](const sync_operations &os) {
         LPVOID made;
         os.mem_cs_allocate(&made);
         os.mem_cs_free(made);
     }},
    {"MemSyncCsFree",
     [](const sync_operations &os) {
         os.mem_cs_free(nullptr);
     }},
    {"SyncCsEnter",
     [](const sync_operations &os) {
         os.cs_enter(nullptr);
     }},
    {"SyncCsLeave",
     [](const sync_operations &os) {
         os.cs_leave(nullptr);
     }},
    {"MutexIdAllocate",
     [](const sync_operations &os) {
         LPVOID made;
         os.mutex_ID_allocate(&made);
         os.mutex_ID_free(made);
     }},
    {"MutexIdFree",
     [](const sync_operations &os) {
         os.mutex_ID_free(nullptr);
     }},
    {"MutexOpen",
     [](const sync_operations &os) {
         LPVOID handle;
         os.mutex_open(nullptr, nullptr, &handle);
     }},
    {"MutexRelease",
     [](const sync_operations &os) {
         os.mutex_release(nullptr);
     }},
    {"CreateEvent",
     [](const sync_operations &os) {
         os.create_event(nullptr, 0, nullptr);
     }},
    {"CloseEvent",
     [](const sync_operations &os) {
         os.close_event(nullptr);
     }},
    {"SetEvent",
     [](const sync_operations &os) {
         os.set_event(nullptr);
     }},
    {"ResetEvent",
     [](const sync_operations &os) {
         os.reset_event(nullptr);
     }},
    {"WaitForEvent",
     [](const sync_operations &os) {
         os.wait_for_event(nullptr);
     }},
};

class FirstCall : public testing::TestWithParam<first_call> {};

TEST_P(FirstCall, SearchesForTheThreadFunctions)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        lookups.replace_by_fakes();  // which take a null mutex
        GetParam().make(DISPATCHED_OPERATIONS);
        EXPECT_EQ(lookups.calls(), search());
        GetParam().make(DISPATCHED_OPERATIONS);
        EXPECT_EQ(lookups.calls(), search());
    });
}

TEST_P(FirstCall, OfAVariantSearchesForNothing)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        lookups.replace_by_fakes();
        GetParam().make(EMULATED_OPERATIONS);
        EXPECT_EQ(lookups.calls(), steps{});
        EXPECT_EQ(OS_threads_support(), 1U);
        const steps the_search = lookups.calls();
        GetParam().make(THREADED_OPERATIONS);
        EXPECT_EQ(lookups.calls(), the_search);
    });
}

INSTANTIATE_TEST_SUITE_P(Operation, FirstCall, testing::ValuesIn(first_calls),
                         [](const testing::TestParamInfo<first_call> &tested) {
                             return std::string(tested.param.name);
                         });

// ---- Two searches at the same time

// A first search is held up at the lookup of `held_up`, while a second one, in this thread, runs to its end.
// Both, and a call made between, must answer `expected`.
void search_side_by_side(lookup_trace &lookups, const char *held_up, UINT expected)
{
    static std::atomic<bool> is_held_up{false};
    static std::atomic<bool> may_go_on{false};
    static thread_local bool is_first = false;
    lookups.before_lookup([held_up](const char *name) {
        if (!is_first || name != std::string(held_up))
            return;
        is_held_up = true;
        while (!may_go_on)
            std::this_thread::yield();
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
