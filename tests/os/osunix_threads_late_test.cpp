// A search for the thread functions that ends when another one has settled the mode: what is settled stays.

#include "foundation/os.h"

#include "support/child_process.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <string>
#include <thread>

namespace {

thread_local bool is_late = false;  // in the thread whose search ends last

enum class held_up { AT_ITS_LAST_LOOKUP, AT_ITS_CLOSE };

void PrintTo(held_up place, std::ostream *stream)
{
    *stream << (place == held_up::AT_ITS_CLOSE ? "held up at its close" : "held up at its last lookup");
}

struct answers {
    UINT early;
    UINT late;
};

// One of two searches is held up there until the other, in this thread, has come to its end. One finds all
// twelve functions, to the other the last name is hidden.
answers search_late(lookup_trace &lookups, held_up place, bool late_one_finds_all)
{
    static std::atomic<bool> is_held_up{false};
    static std::atomic<bool> may_go_on{false};
    const auto hold_up = [] {
        is_held_up = true;
        while (!may_go_on)
            std::this_thread::yield();
    };
    lookups.before_lookup([=](const char *name) {
        if (name != std::string("pthread_cond_init"))
            return true;
        if (is_late && place == held_up::AT_ITS_LAST_LOOKUP)
            hold_up();
        return is_late == late_one_finds_all;
    });
    lookups.before_close([=] {
        if (is_late && place == held_up::AT_ITS_CLOSE)
            hold_up();
    });
    answers given = {};
    std::thread late([&] {
        is_late = true;
        given.late = OS_threads_support();
    });
    while (!is_held_up)
        std::this_thread::yield();
    given.early = OS_threads_support();
    may_go_on = true;
    late.join();
    return given;
}

class LateDetection : public testing::TestWithParam<held_up> {};

INSTANTIATE_TEST_SUITE_P(HeldUp, LateDetection,
                         testing::Values(held_up::AT_ITS_LAST_LOOKUP, held_up::AT_ITS_CLOSE),
                         [](const testing::TestParamInfo<held_up> &tested) {
                             return tested.param == held_up::AT_ITS_CLOSE ? "AtItsClose" : "AtItsLastLookup";
                         });

TEST_P(LateDetection, ThatFindsAllLeavesAnEmulatedProcessEmulated)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        const answers given = search_late(lookups, GetParam(), true);
        EXPECT_EQ(given.early, 0U);
        EXPECT_EQ(given.late, 0U) << "the late search answers otherwise than what is settled";
        EXPECT_EQ(OS_threads_support(), 0U) << "the settled mode was overturned";
        EXPECT_EQ(OS_current_thread_id_get(), 1U) << "an operation goes by another mode";
    });
}

TEST_P(LateDetection, ThatMissesANameLeavesAThreadedProcessThreaded)
{
    expect_passes_in_child([] {
        lookup_trace lookups;
        const answers given = search_late(lookups, GetParam(), false);
        EXPECT_EQ(given.early, 1U);
        EXPECT_EQ(given.late, 1U) << "the late search answers otherwise than what is settled";
        EXPECT_EQ(OS_threads_support(), 1U) << "the settled mode was overturned";
        EXPECT_NE(OS_current_thread_id_get(), 1U) << "an operation goes by another mode";
    });
}

}  // namespace
