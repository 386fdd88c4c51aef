// Process facts: the process identifier and the processor count.

#include "foundation/os.h"

#include "os/osunix_fixture.h"
#include "support/files.h"
#include "support/platform_trace.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

// As the kernel names this process.
LONG process_id_of_the_kernel()
{
    return std::stol(std::filesystem::read_symlink("/proc/self").string());
}

// As the kernel lists them: the bits of the mask in hexadecimal, in groups with commas between.
int processors_allowed_by_the_kernel()
{
    constexpr char LABEL[] = "Cpus_allowed:";
    for (const std::string &line : lines_of(content_of("/proc/thread-self/status"))) {
        if (line.rfind(LABEL, 0) != 0)
            continue;
        int processors = 0;
        const std::string mask = words_of(line).at(1);
        for (const char digit : mask)
            processors +=
                digit == ',' ? 0 : __builtin_popcount(std::stoi(std::string(1, digit), nullptr, 16));
        return processors;
    }
    throw std::runtime_error("the kernel lists no processors");
}

}  // namespace

TEST(ProcessId, IsTheKernels)
{
    EXPECT_EQ(OS_process_id_get(), process_id_of_the_kernel());
}

TEST(ProcessId, OfAForkedChildIsItsOwn)
{
    const LONG parent = OS_process_id_get();
    expect_passes_in_child([parent] {
        EXPECT_EQ(OS_process_id_get(), process_id_of_the_kernel());
        EXPECT_NE(OS_process_id_get(), parent);
    });
}

// ---- Processor count over answers in the platform's place

namespace {

struct platform_answers {
    long online;          // of sysconf
    int affinity_result;  // of sched_getaffinity: 0 for success
    int allowed;          // the processors in its mask
};

struct outcome {
    INT processors;
    int error;
    steps calls;
};

outcome processor_count(const platform_answers &answers)
{
    replaced_call sysconf_replaced(sysconf_call, [&](int) { return answers.online; });
    replaced_call affinity_replaced(sched_getaffinity_call,
                                    [&](pid_t, size_t, cpu_set_t *) { return answers.affinity_result; });
    replaced_call count_replaced(cpu_count_call, [&](size_t, const cpu_set_t *) { return answers.allowed; });
    platform_trace trace;
    errno = SENTINEL_ERRNO;
    const INT processors = OS_processor_count();
    return {processors, errno, trace.calls()};
}

static_assert(_SC_NPROCESSORS_ONLN == 84, "as the steps below show it");
const steps questions_without_mask = {"sysconf(84)", "sched_getaffinity(0, 128)"};
const steps questions = {"sysconf(84)", "sched_getaffinity(0, 128)", "CPU_COUNT(128)"};

}  // namespace

TEST(ProcessorCount, IsTheNumberOfProcessorsInTheAffinityMask)
{
    for (const int allowed : {1, 2, 64, 1024, 65535, 65537, 131073}) {
        const outcome counted = processor_count({8, 0, allowed});
        EXPECT_EQ(counted.processors, allowed);
        EXPECT_EQ(counted.calls, questions);
        EXPECT_EQ(counted.error, SENTINEL_ERRNO) << "errno was not left alone";
    }
}

TEST(ProcessorCount, IsTheOnlineCountWhereTheLow16BitsOfTheOtherAreZero)
{
    for (const int allowed : {0, 65536, 131072, 0x7fff0000}) {
        const outcome counted = processor_count({8, 0, allowed});
        EXPECT_EQ(counted.processors, 8) << allowed << " processors in the mask";
        EXPECT_EQ(counted.calls, questions);
    }
}

TEST(ProcessorCount, IsTheOnlineCountWhereTheMaskCannotBeHad)
{
    for (const long online : {1L, 8L, 70000L}) {
        const outcome counted = processor_count({online, -1, 2});
        EXPECT_EQ(counted.processors, online);
        EXPECT_EQ(counted.calls, questions_without_mask) << "it looked into a mask that was not written";
    }
}

TEST(ProcessorCount, IsWhatThePlatformSaysWhereItKnowsNeither)
{
    EXPECT_EQ(processor_count({-1, -1, 2}).processors, -1);
    EXPECT_EQ(processor_count({-1, 0, 0}).processors, -1);
}

TEST(ProcessorCount, ReadsTheMaskThatThePlatformWrote)
{
    for (const int processors_in_mask : {1, 2, 64, 1024}) {
        INT processors = 0;
        {
            replaced_call replaced(sched_getaffinity_call, [&](pid_t, size_t, cpu_set_t *mask) {
                CPU_ZERO(mask);
                for (int i = 0; i < processors_in_mask; ++i)
                    CPU_SET(1023 - i, mask);
                return 0;
            });
            processors = OS_processor_count();
        }
        EXPECT_EQ(processors, processors_in_mask);
    }
}

// ---- Processor count of this machine

TEST(ProcessorCount, IsWhatTheKernelAllowsThisProcess)
{
    EXPECT_EQ(OS_processor_count(), processors_allowed_by_the_kernel());
}

TEST(ProcessorCount, FollowsARestrictedAffinity)
{
    expect_passes_in_child([] {
        const int some_processor = sched_getcpu();
        ASSERT_GE(some_processor, 0);
        cpu_set_t restricted;
        CPU_ZERO(&restricted);
        CPU_SET(some_processor, &restricted);
        ASSERT_EQ(sched_setaffinity(0, sizeof restricted, &restricted), 0);
        EXPECT_EQ(OS_processor_count(), 1);
    });
}
