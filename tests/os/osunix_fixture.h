// What the tests of the system services share.
#pragma once

#include "os/sentinel_errno.h"
#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

inline std::string repeated(char character, size_t count)
{
    return std::string(count, character);
}

// The child touched memory that is not accessible. A sanitizer says so in words and ends the process.
inline void expect_access_violation(const child_result &child)
{
    if (BUILT_FOR_ADDRESS_SANITIZER || BUILT_FOR_THREAD_SANITIZER) {
        const bool is_told = child.err.find("SEGV on unknown address") != std::string::npos ||
                             child.err.find("unknown-crash on address") != std::string::npos;
        EXPECT_TRUE(is_told) << child.describe();
        return;
    }
    EXPECT_FALSE(child.has_exited) << child.describe();
    EXPECT_EQ(child.status, SIGSEGV) << child.describe();
}
