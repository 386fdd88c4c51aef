// Failures of the search for the thread functions. Each run has a library that has not searched yet.

#include "failures/scenario.h"
#include "support/library_copy.h"

#include "foundation/os.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

std::unique_ptr<library_copy> fresh_library;
decltype(&OS_threads_support) threads_support;
UINT answer;

}  // namespace

scenarios search_scenarios()
{
    return {{
        .name = "OS_threads_support, first call",
        .load =
            [] {
                fresh_library = std::make_unique<library_copy>();
                threads_support = fresh_library->find("OS_threads_support", OS_threads_support);
            },
        .act = [] { answer = threads_support(); },
        .result = [] { return answer == 1 ? "threaded" : "emulated"; },
        .use = [] { EXPECT_EQ(threads_support(), answer) << "the mode is settled"; },
        // Without a handle the default scope is searched.
        .outcomes = {{"nothing", "threaded"},
                     {"dlopen 1", "threaded"},
                     {"dlclose 1", "threaded"},
                     {"dlsym *", "emulated"}},
    }};
}
