// Modules.

#include "foundation/os.h"

#include "os/sentinel_errno.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

static_assert(RTLD_LAZY == 1, "as the steps below show it");

template <typename Function> LPVOID address_of(Function *function)
{
    return reinterpret_cast<LPVOID>(function);
}

}  // namespace

// ---- Calls of the platform, answered by the test

TEST(Modules, LoadIsOneCallWithLazyBindingWhoseAnswerIsTheResult)
{
    int module = 0;
    for (const LPVOID answer : {LPVOID{&module}, LPVOID{nullptr}}) {
        lookup_trace lookups;
        lookups.replace_load([=] { return answer; });
        errno = SENTINEL_ERRNO;
        EXPECT_EQ(OS_sys_module_load("libQVutil17.so"), answer);
        EXPECT_EQ(OS_sys_module_load(nullptr), answer);
        EXPECT_EQ(OS_sys_module_load(""), answer);
        EXPECT_EQ(errno, SENTINEL_ERRNO) << "errno was not left alone";
        const steps expected = {"dlopen(libQVutil17.so, 1)", "dlopen(null, 1)", "dlopen(, 1)"};
        EXPECT_EQ(lookups.calls(), expected);
    }
}

TEST(Modules, LookUpIsOneCallWhoseAnswerIsTheResult)
{
    int symbol = 0;
    for (const LPVOID answer : {LPVOID{&symbol}, LPVOID{nullptr}}) {
        lookup_trace lookups;
        lookups.replace_lookup([=] { return answer; });
        errno = SENTINEL_ERRNO;
        EXPECT_EQ(OS_sys_sym_get(nullptr, "symbol"), answer);
        EXPECT_EQ(OS_sys_sym_get(&symbol, ""), answer);
        EXPECT_EQ(errno, SENTINEL_ERRNO) << "errno was not left alone";
        const steps expected = {"dlsym(null, symbol)", "dlsym(unknown, )"};
        EXPECT_EQ(lookups.calls(), expected);
    }
}

TEST(Modules, LookUpOfANullNameGivesNullWithoutAskingThePlatform)
{
    int module = 0;
    lookup_trace lookups;
    lookups.replace_lookup([&] { return &module; });
    errno = SENTINEL_ERRNO;
    EXPECT_EQ(OS_sys_sym_get(&module, nullptr), nullptr);
    EXPECT_EQ(OS_sys_sym_get(nullptr, nullptr), nullptr);
    EXPECT_EQ(errno, SENTINEL_ERRNO) << "errno was not left alone";
    EXPECT_EQ(lookups.calls(), steps{});
}

TEST(Modules, UnloadIsOneCallWhoseAnswerIsTheResult)
{
    for (const int answer : {0, -1, 7, INT32_MAX, INT32_MIN}) {
        int module = 0;
        lookup_trace lookups;
        lookups.replace_load([&] { return &module; });
        lookups.replace_close([=] { return answer; });
        LPVOID image = OS_sys_module_load(nullptr);
        errno = SENTINEL_ERRNO;
        EXPECT_EQ(OS_sys_module_unload(image), answer);
        EXPECT_EQ(errno, SENTINEL_ERRNO) << "errno was not left alone";
        const steps expected = {"dlopen(null, 1)", "dlclose(image)"};
        EXPECT_EQ(lookups.calls(), expected);
    }
}

// ---- Real modules

TEST(Modules, LoadOfNullGivesTheProcessImage)
{
    LPVOID image = OS_sys_module_load(nullptr);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(OS_sys_sym_get(image, "OS_sys_gctrl_init"), address_of(&OS_sys_gctrl_init));
    EXPECT_EQ(OS_sys_sym_get(image, "getpid"), address_of(&getpid));
    EXPECT_EQ(OS_sys_module_unload(image), 0);
}

TEST(Modules, AreLoadedSearchedAndUnloaded)
{
    LPVOID module = OS_sys_module_load(ANSWERING_MODULE);
    ASSERT_NE(module, nullptr);
    LPVOID found = OS_sys_sym_get(module, "module_answer");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(found)(), 42);
    EXPECT_EQ(OS_sys_sym_get(nullptr, "module_answer"), nullptr) << "it is in the process's scope";
    EXPECT_EQ(OS_sys_module_unload(module), 0);
    EXPECT_EQ(dlopen(ANSWERING_MODULE, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "it is still loaded";
}

TEST(Modules, LoadOfAMissingFileGivesNull)
{
    EXPECT_EQ(OS_sys_module_load("/nonexistent/libQVmissing17.so"), nullptr);
}

TEST(Modules, LookUpOfAnUnknownSymbolGivesNull)
{
    LPVOID image = OS_sys_module_load(nullptr);
    EXPECT_EQ(OS_sys_sym_get(image, "no_symbol_of_this_name"), nullptr);
    EXPECT_EQ(OS_sys_sym_get(image, ""), nullptr);
    OS_sys_module_unload(image);
}

TEST(Modules, LookUpInANullModuleSearchesTheProcess)
{
    EXPECT_EQ(OS_sys_sym_get(nullptr, "OS_sys_module_load"), address_of(&OS_sys_module_load));
}

TEST(Modules, UsageIsAlwaysOne)
{
    EXPECT_EQ(OS_module_usage_get(), 1);
    EXPECT_EQ(OS_module_usage_get(), 1);
}

TEST(Modules, GctrlInitGivesZeroAnyNumberOfTimes)
{
    EXPECT_EQ(OS_sys_gctrl_init(), 0);
    EXPECT_EQ(OS_sys_gctrl_init(), 0);
}
