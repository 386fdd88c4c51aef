// File services over answers in the platform's place: each is exactly one call with exactly these arguments,
// and the answer, short counts and interruptions included, is passed back without a second try.

#include "foundation/os.h"

#include "os/osunix_fixture.h"
#include "support/platform_trace.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace {

CHAR buffer[1];

struct service_call {
    const char *name;  // a part of the names of tests
    std::function<LONG()> make;
    const char *step;  // what the platform is asked
};

void PrintTo(const service_call &call, std::ostream *stream)
{
    *stream << call.name;
}

std::string service_call_name(const testing::TestParamInfo<service_call> &tested)
{
    return tested.param.name;
}

// All of these answer alike while it lives. An answer with an error leaves `error` in errno.
class answering_platform {
public:
    answering_platform(LONG answer, int error) : answer_(answer), error_(error) {}

private:
    LONG give() const
    {
        if (error_ != 0)
            errno = error_;
        return answer_;
    }
    int give_int() const { return static_cast<int>(give()); }

    LONG answer_;
    int error_;
    replaced_call<int(const char *, int, mode_t)> open_{open64_call, [this](const char *, int, mode_t) {
                                                            return give_int();
                                                        }};
    replaced_call<int(const char *, mode_t)> creat_{creat64_call, [this](const char *, mode_t) {
                                                        return give_int();
                                                    }};
    replaced_call<int(int)> close_{close_call, [this](int) {
                                       return give_int();
                                   }};
    replaced_call<int(const char *)> remove_{remove_call, [this](const char *) {
                                                 return give_int();
                                             }};
    replaced_call<off64_t(int, off64_t, int)> lseek_{lseek64_call, [this](int, off64_t, int) {
                                                         return give();
                                                     }};
    replaced_call<ssize_t(int, void *, size_t)> read_{read_call, [this](int, void *, size_t) {
                                                          return give();
                                                      }};
    replaced_call<ssize_t(int, const void *, size_t)> write_{write_call, [this](int, const void *, size_t) {
                                                                 return give();
                                                             }};
    replaced_call<int(int, off64_t)> ftruncate_{ftruncate64_call, [this](int, off64_t) {
                                                    return give_int();
                                                }};
    replaced_call<pid_t()> getpid_{getpid_call, [this] {
                                       return give_int();
                                   }};
};

// What came of a call: assertions wait until the platform answers for itself again.
struct outcome {
    LONG result;
    int error;
    steps calls;
};

outcome outcome_of(const service_call &call, LONG answer, int error)
{
    const answering_platform platform(answer, error);
    const platform_trace trace({{buffer, "buffer"}});
    errno = SENTINEL_ERRNO;
    const LONG result = call.make();
    return {result, errno, trace.calls()};
}

constexpr INT MANY_FLAGS = O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_SYNC | 0x40000000;
static_assert(MANY_FLAGS == 1074926786, "as the step below shows it");

// Those whose answer, of 32 bits, is the result.
const service_call calls_of_32_bits[] = {
    {"Create", [] { return OS_create("some/path"); }, "creat64(\"some/path\", 0755)"},
    {"CreateWithoutAName", [] { return OS_create(""); }, "creat64(\"\", 0755)"},
    {"Open", [] { return OS_open("some/path", MANY_FLAGS, 06421); },
     "open64(\"some/path\", 1074926786, 06421)"},
    {"OpenForReading", [] { return OS_open("some/path", O_RDONLY, 0); }, "open64(\"some/path\", 0, 0)"},
    {"OpenWithNegativeFlags", [] { return OS_open("", INT32_MIN, UINT32_MAX); },
     "open64(\"\", -2147483648, 037777777777)"},
    {"Close", [] { return OS_close(41); }, "close(41)"},
    {"CloseOfANegativeDescriptor", [] { return OS_close(INT32_MIN); }, "close(-2147483648)"},
    {"Delete", [] { return OS_delete("some/path"); }, "remove(\"some/path\")"},
    {"SizeChange", [] { return OS_size_change(41, 5); }, "ftruncate64(41, 5)"},
    {"SizeChangeToTheHighestLength", [] { return OS_size_change(41, INT32_MAX); },
     "ftruncate64(41, 2147483647)"},
    {"SizeChangeToANegativeLength", [] { return OS_size_change(-41, -5); }, "ftruncate64(-41, -5)"},
    {"SizeChangeToTheLowestLength", [] { return OS_size_change(41, INT32_MIN); },
     "ftruncate64(41, -2147483648)"},
    {"ProcessId", [] { return OS_process_id_get(); }, "getpid()"},
};

const service_call seeks[] = {
    {"FromTheStart", [] { return OS_seek(41, 5, 0); }, "lseek64(41, 5, 0)"},
    {"BackFromTheEnd", [] { return OS_seek(41, -1, 2); }, "lseek64(41, -1, 2)"},
    {"FarthestBack", [] { return OS_seek(41, INT32_MIN, 1); }, "lseek64(41, -2147483648, 1)"},
    {"FarthestOn", [] { return OS_seek(-1, INT32_MAX, 0); }, "lseek64(-1, 2147483647, 0)"},
    {"FromAnUnknownOrigin", [] { return OS_seek(41, 0, UINT32_MAX); }, "lseek64(41, 0, -1)"},
};

const service_call transfers[] = {
    {"Read", [] { return OS_read(41, buffer, 5); }, "read(41, buffer, 5)"},
    {"ReadOfNothing", [] { return OS_read(-1, nullptr, 0); }, "read(-1, null, 0)"},
    {"ReadOfTheMostThatCounts", [] { return OS_read(41, buffer, INT32_MAX); },
     "read(41, buffer, 2147483647)"},
    {"ReadOf2GiB", [] { return OS_read(41, buffer, UINT32_C(1) << 31); }, "read(41, buffer, 2147483648)"},
    {"ReadOfTheHighestCount", [] { return OS_read(41, buffer, UINT32_MAX); }, "read(41, buffer, 4294967295)"},
    {"Write", [] { return OS_write(41, buffer, 5); }, "write(41, buffer, 5)"},
    {"WriteOfNothing", [] { return OS_write(-1, nullptr, 0); }, "write(-1, null, 0)"},
    {"WriteOfTheMostThatCounts", [] { return OS_write(41, buffer, INT32_MAX); },
     "write(41, buffer, 2147483647)"},
    {"WriteOf2GiB", [] { return OS_write(41, buffer, UINT32_C(1) << 31); }, "write(41, buffer, 2147483648)"},
    {"WriteOfTheHighestCount", [] { return OS_write(41, buffer, UINT32_MAX); },
     "write(41, buffer, 4294967295)"},
};

// The result of `call` for each answer, with one call of the platform and errno as the platform left it.
void expect_results(const service_call &call, const std::vector<std::pair<LONG, LONG>> &answers_and_results)
{
    for (const auto &[answer, result] : answers_and_results) {
        const outcome silent = outcome_of(call, answer, 0);
        EXPECT_EQ(silent.result, result) << "for the answer " << answer;
        EXPECT_EQ(silent.calls, steps{call.step});
        EXPECT_EQ(silent.error, SENTINEL_ERRNO) << "errno was not left alone";
    }
    for (const int error : {EINTR, EAGAIN, EIO}) {
        const outcome failed = outcome_of(call, -1, error);
        EXPECT_EQ(failed.result, -1);
        EXPECT_EQ(failed.calls, steps{call.step}) << "it was tried again, or in another way";
        EXPECT_EQ(failed.error, error) << "the platform's errno got lost";
    }
}

class CallOf32Bits : public testing::TestWithParam<service_call> {};
class Seek : public testing::TestWithParam<service_call> {};
class Transfer : public testing::TestWithParam<service_call> {};

INSTANTIATE_TEST_SUITE_P(FileServices, CallOf32Bits, testing::ValuesIn(calls_of_32_bits), service_call_name);
INSTANTIATE_TEST_SUITE_P(FileServices, Seek, testing::ValuesIn(seeks), service_call_name);
INSTANTIATE_TEST_SUITE_P(FileServices, Transfer, testing::ValuesIn(transfers), service_call_name);

TEST_P(CallOf32Bits, IsOneOfThePlatformWhoseAnswerIsTheResultWithItsSign)
{
    expect_results(GetParam(),
                   {{0, 0}, {3, 3}, {INT32_MAX, INT32_MAX}, {-1, -1}, {-7, -7}, {INT32_MIN, INT32_MIN}});
}

TEST_P(Seek, IsOneCallOfThePlatformWhosePositionIsTheResultInFull)
{
    expect_results(GetParam(), {{0, 0},
                                {INT64_C(0x80000000), INT64_C(0x80000000)},
                                {INT64_C(0x123456789abcdef0), INT64_C(0x123456789abcdef0)},
                                {INT64_MAX, INT64_MAX},
                                {-1, -1},
                                {INT64_MIN, INT64_MIN}});
}

// Short counts are results like any other. A count is narrowed to 32 bits and widened again.
TEST_P(Transfer, IsOneCallOfThePlatformWhoseCountIsTheResultNarrowedTo32Bits)
{
    expect_results(GetParam(), {{0, 0},
                                {1, 1},
                                {4, 4},
                                {-1, -1},
                                {INT64_C(0x7fffffff), INT64_C(0x7fffffff)},
                                {INT64_C(0x80000000), INT64_C(-2147483648)},
                                {INT64_C(0xfffffffe), -2},
                                {INT64_C(0x100000000), 0},
                                {INT64_C(0x100000001), 1},
                                {INT64_C(0x1234567887654321), INT64_C(-0x789abcdf)}});
}

}  // namespace
