// What the tests of threaded mode with real threads share.
#pragma once

#include "foundation/os.h"

#include "support/sync_operations.h"

#include <gtest/gtest.h>

class RealThreads : public testing::TestWithParam<sync_operations> {
protected:
    void SetUp() override { ASSERT_EQ(OS_threads_support(), 1U); }

    static const sync_operations &os() { return GetParam(); }
};

inline const auto every_threaded_name = testing::Values(DISPATCHED_OPERATIONS, THREADED_OPERATIONS);
