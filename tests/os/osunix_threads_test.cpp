// The search for the thread functions and their binding. It runs once in a process, so every case has one of
// its own.

#include "foundation/os.h"
#include "os/osunix_threads.h"
#include "support/child_process.h"
#include "support/sync_operations.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>
#include <string.h>

#include <iterator>
#include <set>
#include <string>

namespace {

constexpr size_t EVENT_BYTES = 96;  // of a threaded event

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

// The names of the fakes that were called.
std::set<std::string> called_functions(const call_trace &trace)
{
    std::set<std::string> names;
    for (const std::string &step : trace.calls())
        if (step.rfind("pthread_", 0) == 0)
            names.insert(step.substr(0, step.find('(')));
    return names;
}

const std::set<std::string> all_twelve(std::begin(thread_function_names), std::end(thread_function_names));

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
        EXPECT_EQ(called_functions(trace), all_twelve);
    });
}

// They are never used, but for a direct call of a threaded variant, which a host must not make. Seen here
// is the record behind them.
TEST(ThreadDetection, KeepsTheFunctionsThatItFoundInFrontOfAMissingOne)
{
    expect_passes_in_child([] {
        {
            lookup_trace lookups;
            lookups.replace_by_fakes();
            lookups.hide(thread_function::COND_INIT);
            ASSERT_EQ(OS_threads_support(), 0U);
        }
        call_trace trace;
        OS_current_thread_id_get_th();
        LPVOID section = nullptr;
        OS_mem_sync_cs_allocate_th(&section);
        OS_mem_sync_cs_free_th(section);
        LPVOID event = OS_alloc(EVENT_BYTES);
        memset(event, 0, EVENT_BYTES);
        trace.fail(thread_function::COND_WAIT);
        OS_wait_for_event_th(event);
        OS_set_event_th(event);
        OS_close_event_th(event);
        std::set<std::string> eleven = all_twelve;
        eleven.erase("pthread_cond_init");
        EXPECT_EQ(called_functions(trace), eleven);
    });
}

// A call from within the close still searches.
TEST(ThreadDetection, ClosesTheProcessImageBeforeTheModeIsSettled)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        bool is_nested = false;
        lookups.before_close([&] {
            if (is_nested)
                return;
            is_nested = true;
            EXPECT_EQ(OS_threads_support(), 1U);
        });
        EXPECT_EQ(OS_threads_support(), 1U);
        const steps nested = search();
        steps expected = search();
        expected.insert(expected.end() - 1, nested.begin(), nested.end());
        EXPECT_EQ(lookups.calls(), expected);
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

}  // namespace
