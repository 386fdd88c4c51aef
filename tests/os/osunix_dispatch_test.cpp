// The public names: the first call of any of them settles the mode, no call of a variant does. That each
// goes to the variant of the mode with its arguments and result unchanged is what the tests of the threaded
// and of the emulated operations show, which run over the public names too.

#include "foundation/os.h"

#include "os/osunix_threads.h"
#include "support/child_process.h"
#include "support/sync_operations.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>

namespace {

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

}  // namespace
