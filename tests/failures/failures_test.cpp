// Every scenario, with every call that it makes of the platform failed: the first, the second and so on until
// none is left, each once and for good.

#include "failures/call_sites.h"
#include "failures/platform_faults.h"
#include "failures/scenario.h"

#include "foundation/memory.h"
#include "foundation/os.h"

#include "os/sentinel_errno.h"
#include "support/library_copy.h"

#include <gtest/gtest.h>

#include <ctype.h>
#include <stdlib.h>

#include <fstream>
#include <iostream>
#include <optional>
#include <set>

namespace {

scenarios make_every_scenario()
{
    scenarios all;
    for (const auto &make : {memory_scenarios, array_scenarios, search_scenarios, synchronisation_scenarios,
                             file_scenarios, service_scenarios, text_scenarios})
        for (scenario &each : make())
            all.push_back(std::move(each));
    return all;
}

const scenarios &every_scenario()
{
    static const scenarios all = make_every_scenario();
    return all;
}

void run_part(const std::function<void()> &part)
{
    if (part)
        part();
}

long allocated_bytes(const heap_trace &heap)
{
    std::map<void *, long> blocks;
    long total = 0;
    for (const heap_call &call : heap.calls()) {
        const bool releases = call.kind == heap_call::FREE || call.block != nullptr;
        void *released = call.kind == heap_call::FREE ? call.block : call.old_block;
        if (releases && blocks.count(released) != 0)
            total -= std::exchange(blocks[released], 0);
        if (call.kind != heap_call::FREE && call.block != nullptr)
            total += blocks[call.block] = static_cast<long>(call.size);
    }
    return total;
}

struct injected_fault {
    const platform_function &function;
    fault which;

    std::string in_words() const { return function.name + words(" ", which.n()); }
};

// What is seen of one run.
struct observation {
    std::string result;
    long kept_bytes;
    int errno_left;
};

observation run(const scenario &tested, injected_fault *injected)
{
    run_part(tested.load);
    call_trace calls;
    calls.refuse_null_mutexes();
    for (size_t i = 0; i < THREAD_FUNCTIONS; ++i) {
        const auto function = static_cast<thread_function>(i);
        calls.replace(function, [&tested, function] { return ordinary_answer(tested, function); });
    }
    run_part(tested.prepare);

    observation seen = {};
    const long bytes_before = allocated_bytes(calls.heap());
    std::shared_ptr<void> armed;
    if (injected != nullptr)
        armed = injected->function.arm(tested, calls, injected->which);
    errno = SENTINEL_ERRNO;
    tested.act();
    seen.errno_left = errno;
    armed.reset();
    seen.kept_bytes = allocated_bytes(calls.heap()) - bytes_before;
    seen.result = tested.result();

    run_part(tested.use);
    run_part(tested.clean_up);
    EXPECT_EQ(allocated_bytes(calls.heap()), 0) << "bytes are left on the heap";
    EXPECT_EQ(ZR_memm_cleanup(), 0) << "blocks are left under a tag";
    return seen;
}

const failure_outcome *find_outcome(const scenario &tested, const std::string &failing)
{
    for (const failure_outcome &outcome : tested.outcomes)
        if (outcome.failing == failing)
            return &outcome;
    return nullptr;
}

const failure_outcome *expected_outcome(const scenario &tested, const injected_fault &injected)
{
    const failure_outcome *found = nullptr;
    if (injected.which.stays())
        found = find_outcome(tested, injected.in_words() + " on");
    if (found == nullptr)
        found = find_outcome(tested, injected.in_words());
    if (found == nullptr)
        found = find_outcome(tested, injected.function.name + " *");
    return found;
}

void expect_outcome(const observation &seen, const failure_outcome &expected)
{
    EXPECT_EQ(seen.result, expected.result);
    EXPECT_EQ(seen.kept_bytes, expected.kept_bytes);
}

class scenario_run {
public:
    explicit scenario_run(const scenario &tested) : tested_(tested) {}

    // How many failures were injected.
    unsigned all_failures()
    {
        begin_scenario(tested_.name, __builtin_frame_address(0));
        without_failure();
        for (const platform_function &function : platform_functions())
            for (const bool stays : {false, true})
                for (unsigned n = 1; fails(function, n, stays); ++n)
                    ++failures_;
        for (const failure_outcome &outcome : tested_.outcomes)
            EXPECT_TRUE(met_.count(&outcome))
                << tested_.name << ": no call '" << outcome.failing << "' was made";
        return failures_;
    }

private:
    void without_failure()
    {
        SCOPED_TRACE(tested_.name + ", nothing fails");
        const failure_outcome *expected = find_outcome(tested_, "nothing");
        ASSERT_NE(expected, nullptr) << "not said what comes of it";
        met_.insert(expected);
        expect_outcome(run(tested_, nullptr), *expected);
    }

    // False when there is no such call.
    bool fails(const platform_function &function, unsigned n, bool stays)
    {
        injected_fault injected = {function, fault(n, stays)};
        SCOPED_TRACE(tested_.name + ", failing " + injected.in_words() +
                     (stays ? " and all later ones" : ""));
        const observation seen = run(tested_, &injected);
        if (!injected.which.has_struck())
            return false;
        const failure_outcome *expected = expected_outcome(tested_, injected);
        if (expected == nullptr) {
            ADD_FAILURE() << "not said what comes of it; seen: " << seen.result << ", " << seen.kept_bytes
                          << " bytes kept";
            return true;
        }
        met_.insert(expected);
        expect_outcome(seen, *expected);
        EXPECT_EQ(seen.errno_left, function.failure_errno != 0 ? function.failure_errno : SENTINEL_ERRNO)
            << "errno is not as the platform left it";
        return true;
    }

    const scenario &tested_;
    std::set<const failure_outcome *> met_;
    unsigned failures_ = 0;
};

void settle_threaded_mode()
{
    lookup_trace lookups;
    lookups.replace_by_fakes();
    ASSERT_EQ(OS_threads_support(), 1U);
}

std::string test_name(const testing::TestParamInfo<size_t> &tested)
{
    std::string name;
    bool begins_word = true;
    for (const char character : every_scenario()[tested.param].name) {
        const auto byte = static_cast<unsigned char>(character);
        if (isalnum(byte))
            name += static_cast<char>(begins_word ? toupper(byte) : byte);
        begins_word = !isalnum(byte);
    }
    return name;
}

}  // namespace

class Failures : public testing::TestWithParam<size_t> {};

TEST_P(Failures, HaveTheirOutcome)
{
    settle_threaded_mode();
    scenario_run(every_scenario()[GetParam()]).all_failures();
}

INSTANTIATE_TEST_SUITE_P(Of, Failures, testing::Range(size_t{0}, every_scenario().size()), test_name);

// The ledger: it is written to the file that CALL_SITE_LEDGER in the environment names.
TEST(CallSites, AreAllFailedByAScenario)
{
#ifndef CALLS_LEAVE_FRAMES
    GTEST_SKIP() << "an optimised or instrumented library does not show its calls";
#endif
    // In line in every dispatcher; failed below OS_threads_support.
    const std::set<std::string> seen_in_one_caller = {"detect_thread_functions()"};

    settle_threaded_mode();
    unsigned failures = 0;
    for (const scenario &each : every_scenario())
        failures += scenario_run(each).all_failures();

    std::set<std::string> failing = {"malloc", "calloc", "realloc"};
    for (const platform_function &function : platform_functions())
        failing.insert(function.name);
    const std::vector<call_site> sites = call_sites_that_can_fail(loaded_library_path(), failing);
    std::ostringstream ledger;
    size_t left_out = 0;
    for (const call_site &site : sites) {
        const auto found = marked_call_sites().find(site.returns_to);
        const bool is_marked = found != marked_call_sites().end();
        const bool is_left_out = !is_marked && seen_in_one_caller.count(site.callee) != 0;
        left_out += is_left_out;
        EXPECT_TRUE(is_marked || is_left_out)
            << site.function << " calls " << site.callee << " and no scenario fails that";
        ledger << site.function << " -> " << site.callee << "\n";
        if (is_marked)
            for (const std::string &name : found->second)
                ledger << "    " << name << "\n";
        else
            ledger << (is_left_out ? "    (in line in every dispatcher; failed in OS_threads_support)\n"
                                   : "    NONE\n");
    }
    EXPECT_GT(sites.size(), 100U) << "most call sites were not found";
    if (const char *path = getenv("CALL_SITE_LEDGER"))
        std::ofstream(path) << ledger.str();
    std::cout << "scenarios " << every_scenario().size() << "\nfailures " << failures << "\ncall sites "
              << sites.size() << "\nleft out " << left_out << "\n";
}
