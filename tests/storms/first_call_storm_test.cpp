// The first call of a process, made by many of its threads at once, in one fresh process after the other.

#include "storms/storm.h"
#include "support/child_process.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>

TEST(FirstCallStorm, GivesAllThreadsOfEveryFreshProcessTheSameMode)
{
    // The thread sanitizer takes a tenth of a second to start a process.
    const long processes = BUILT_FOR_THREAD_SANITIZER ? storm_rounds() / 10 : storm_rounds();
    for (long i = 0; i < processes; ++i) {
        const child_result host = run_command({FIRST_CALL_HOST});
        ASSERT_TRUE(host.succeeded()) << "process " << i << ": " << host.describe();
    }
    report_storm("first calls by 16 threads at once", processes, "fresh processes");
}
