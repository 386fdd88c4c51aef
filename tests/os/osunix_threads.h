// What the tests of the search for the thread functions share.
#pragma once

#include "support/thread_functions.h"

#include <dlfcn.h>

#include <string>

static_assert(RTLD_LAZY == 1, "as the steps below show it");

// The steps of a search that ends with the lookup of `last`, or, with no `last`, finds all twelve.
inline steps search(const char *last = nullptr)
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
