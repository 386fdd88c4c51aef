// Paths.

#include "foundation/memory.h"
#include "foundation/os.h"

#include "os/output_buffer.h"
#include "support/build_facts.h"
#include "support/guarded_bytes.h"
#include "support/heap_trace.h"
#include "support/platform_trace.h"
#include "support/repeated_memory.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <new>
#include <ostream>
#include <string>
#include <vector>

namespace {

struct joining {
    std::string directory, name, joined;
};

void PrintTo(const joining &join, std::ostream *stream)
{
    *stream << '"' << join.directory << "\" + \"" << join.name << '"';
}

const std::vector<joining> joinings = {
    {"/usr/lib/", "x.so", "/usr/lib/x.so"},
    {"/usr/lib", "x.so", "/usr/lib/x.so"},
    {"", "x.so", "x.so"},
    {"/", "x.so", "/x.so"},
    {"/", "", "/"},
    {"//", "x.so", "//x.so"},
    {"a//", "b", "a//b"},
    {"a/", "/b", "a//b"},
    {"a", "/b", "a//b"},
    {"", "/b", "/b"},
    {"a", "", "a/"},
    {"a/", "", "a/"},
    {"", "", ""},
    {"a\\", "b", "a\\/b"},
    {"a.", "..", "a./.."},
    {"%s%d", "%n", "%s%d/%n"},
    {"/\xc3\xa4", "\xff", "/\xc3\xa4/\xff"},
    {std::string(3000, 'd'), std::string(70000, 'n'), std::string(3000, 'd') + "/" + std::string(70000, 'n')},
};

class Joining : public testing::TestWithParam<joining> {};

std::string index_name(const testing::TestParamInfo<joining> &info)
{
    return std::to_string(info.index);
}

// Put a block under one tag for each of the manager's buckets, so that a fresh tag needs a record of its own.
void occupy_every_bucket(uint64_t first_tag)
{
    for (uint64_t tag = first_tag; tag < first_tag + 32; ++tag)
        ASSERT_NE(ZR_memm_alloc(tag, 1, nullptr, 0), nullptr);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(PathConcat, Joining, testing::ValuesIn(joinings), index_name);

TEST_P(Joining, GivesTheJoinedTextAndItsLength)
{
    const joining &join = GetParam();
    const size_t length = join.joined.size();
    output_buffer output(length + 20);
    EXPECT_EQ(OS_sys_path_concat(join.directory.c_str(), join.name.c_str(), output.text(), UINT(length + 1)),
              LONG(length));
    EXPECT_EQ(output.bytes(), join.joined + '\0' + untouched(19));
}

TEST_P(Joining, CopiesAtMostTheLimitAndTerminatesOnlyAShorterText)
{
    const joining &join = GetParam();
    const size_t length = join.joined.size();
    const std::vector<size_t> limits = {0, 1, 2, length - 1, length, length + 1, length + 2, length + 15};
    for (const size_t limit : limits) {
        if (limit > length + 15)
            continue;  // length - 1 of an empty text
        output_buffer output(length + 20);
        const size_t copied = std::min(length, limit);
        const std::string terminator(limit > length ? 1 : 0, '\0');
        const std::string expected =
            join.joined.substr(0, copied) + terminator + untouched(length + 20 - copied - terminator.size());
        EXPECT_EQ(OS_sys_path_concat(join.directory.c_str(), join.name.c_str(), output.text(), UINT(limit)),
                  LONG(strlen(expected.c_str())))
            << "with the limit " << limit;
        EXPECT_EQ(output.bytes(), expected) << "with the limit " << limit;
    }
}

TEST_P(Joining, TakesScratchMemoryOfADefiniteSizeAndReleasesIt)
{
    const joining &join = GetParam();
    const size_t d = join.directory.size();
    const size_t n = join.name.size();
    const size_t expected_size = d == 0 ? n + 2 : join.directory.back() == '/' ? d + n + 1 : d + n + 2;
    ZR_memm_cleanup();
    output_buffer output(join.joined.size() + 1);

    heap_trace trace;
    OS_sys_path_concat(join.directory.c_str(), join.name.c_str(), output.text(), UINT(output.bytes().size()));
    const std::vector<heap_call> calls = trace.calls();
    void *const scratch = calls.empty() ? nullptr : calls.front().block;
    EXPECT_EQ(calls, (std::vector<heap_call>{malloc_call(expected_size, scratch), free_call(scratch)}));
    EXPECT_EQ(ZR_memm_cleanup(), 0);
}

TEST(PathConcat, OfALimitOfZeroMeasuresWhatStandsInTheOutput)
{
    CHAR output[] = "before";
    EXPECT_EQ(OS_sys_path_concat("a", "b", output, 0), 6);
    EXPECT_STREQ(output, "before");
}

TEST(PathConcat, MeasuresWhatStandsBehindAnUnterminatedCopy)
{
    CHAR output[] = "##########";
    EXPECT_EQ(OS_sys_path_concat("ab", "cd", output, 5), 10);
    EXPECT_STREQ(output, "ab/cd#####");
}

TEST(PathConcat, TakesTheHighestLimits)
{
    for (const UINT limit : {UINT32_C(0x7fffffff), UINT32_C(0x80000000), UINT32_MAX}) {
        CHAR output[] = "##########";
        EXPECT_EQ(OS_sys_path_concat("ab", "cd", output, limit), 5);
        EXPECT_EQ(std::string(output, 10), std::string("ab/cd\0####", 10)) << "with the limit " << limit;
    }
}

TEST(PathConcat, FormatsOnceWithASeparatorOnlyWhereTheDirectoryHasNone)
{
    CHAR output[16] = {};
    {
        platform_trace trace;
        OS_sys_path_concat("a", "b", output, 15);
        EXPECT_EQ(trace.calls(), steps{"vsprintf(unknown, \"%s/%s\")"});
    }
    platform_trace trace;
    OS_sys_path_concat("a/", "b", output, 15);
    EXPECT_EQ(trace.calls(), steps{"vsprintf(unknown, \"%s%s\")"});
}

TEST(PathConcat, WritesIntoAnOutputThatIsOneOfItsArguments)
{
    CHAR directory[32] = "/usr/lib";
    EXPECT_EQ(OS_sys_path_concat(directory, "x.so", directory, 31), 13);
    EXPECT_STREQ(directory, "/usr/lib/x.so");

    CHAR name[32] = "x.so";
    EXPECT_EQ(OS_sys_path_concat("/usr/lib/", name, name, 31), 13);
    EXPECT_STREQ(name, "/usr/lib/x.so");

    CHAR both[32] = "ab";
    EXPECT_EQ(OS_sys_path_concat(both, both, both, 31), 5);
    EXPECT_STREQ(both, "ab/ab");

    CHAR overlapping[32] = "abcdef";
    EXPECT_EQ(OS_sys_path_concat(overlapping, "x", overlapping + 2, 29), 8);
    EXPECT_STREQ(overlapping, "ababcdef/x");
}

TEST(PathConcat, ReadsNeitherArgumentBeyondItsTerminator)
{
    guarded_bytes directory("/usr/lib", 9);
    guarded_bytes name("x.so", 5);
    guarded_bytes output(14);
    EXPECT_EQ(OS_sys_path_concat(directory.text(), name.text(), output.text(), 14), 13);
    EXPECT_STREQ(output.text(), "/usr/lib/x.so");
    EXPECT_EQ(OS_sys_path_concat("", name.text(), output.text(), 14), 4);
}

TEST(PathConcat, DrawsOneFreshTagPerCall)
{
    CHAR output[16] = {};
    const uint64_t first = ZR_memm_unique_tag_get(nullptr, 0);
    OS_sys_path_concat("a", "b", output, 15);
    EXPECT_EQ(ZR_memm_unique_tag_get(nullptr, 0), first + 2);
    OS_sys_path_concat("", "", output, 15);
    OS_sys_path_concat("a/", "b", output, 15);
    EXPECT_EQ(ZR_memm_unique_tag_get(nullptr, 0), first + 5);
}

TEST(PathConcat, LeavesErrnoAlone)
{
    for (const CHAR *directory : {"", "a", "a/"}) {
        CHAR output[16] = {};
        errno = SENTINEL_ERRNO;
        OS_sys_path_concat(directory, "b", output, 15);
        EXPECT_EQ(errno, SENTINEL_ERRNO) << "with the directory \"" << directory << '"';
    }
}

TEST(PathConcat, KeepsNothingUnderItsTag)
{
    ZR_memm_cleanup();
    CHAR output[16] = {};
    const uint64_t tag = ZR_memm_unique_tag_get(nullptr, 0) + 1;
    OS_sys_path_concat("a", "b", output, 15);
    EXPECT_LE(ZR_memm_free_all(tag), 0);  // no block; whether its empty record lasts is the manager's affair
    EXPECT_EQ(ZR_memm_cleanup(), 0);
}

TEST(PathConcat, LeavesTheBlocksOfOtherTagsAlone)
{
    ZR_memm_cleanup();
    occupy_every_bucket(1000);
    CHAR output[16] = {};
    EXPECT_EQ(OS_sys_path_concat("a", "b", output, 15), 3);
    EXPECT_STREQ(output, "a/b");
    EXPECT_EQ(ZR_memm_cleanup(), 32);
}

TEST(PathConcat, WithoutScratchMemoryGivesZeroAndLeavesTheOutputUntouched)
{
    ZR_memm_cleanup();
    for (const CHAR *directory : {"", "a", "a/"}) {
        CHAR output[] = "before";
        heap_trace trace;
        platform_trace platform;
        trace.refuse_allocation(0);
        EXPECT_EQ(OS_sys_path_concat(directory, "b", output, 6), 0);
        EXPECT_EQ(trace.allocation_count(), 1u) << "it was tried again";
        EXPECT_EQ(platform.calls(), steps{}) << "there was nowhere to format to";
        EXPECT_STREQ(output, "before");
    }
}

TEST(PathConcat, WithoutMemoryForItsRecordGivesZeroAndKeepsNothing)
{
    ZR_memm_cleanup();
    occupy_every_bucket(1000);
    CHAR output[] = "before";
    {
        heap_trace trace;
        OS_sys_path_concat("a", "b", output, 0);
        ASSERT_EQ(trace.allocation_count(), 2u) << "the text and a record";
    }
    for (unsigned refused = 0; refused < 2; ++refused) {
        heap_trace trace;
        trace.refuse_allocation(refused);
        EXPECT_EQ(OS_sys_path_concat("a", "b", output, 6), 0);
        EXPECT_STREQ(output, "before");
        EXPECT_EQ(trace.unreleased_blocks(), std::vector<void *>{});
    }
    EXPECT_EQ(ZR_memm_cleanup(), 32);
}

// ---- Texts of gigabytes: 32 bits would not hold their lengths

namespace {

// A text of `length` characters in little memory.
class long_text {
public:
    explicit long_text(uint64_t length) : memory_(length)
    {
        memset(memory_.text(), 'x', repeated_memory::PIECE_BYTES);
        // The page of the terminator becomes one of its own.
        char *page = memory_.text() + length / PAGE_BYTES * PAGE_BYTES;
        if (mmap(page, PAGE_BYTES, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) ==
            MAP_FAILED)
            throw std::bad_alloc();
        memset(page, 'x', length % PAGE_BYTES);
    }

    char *text() { return memory_.text(); }

private:
    static constexpr size_t PAGE_BYTES = 4096;

    repeated_memory memory_;
};

}  // namespace

TEST(PathConcat, AsksForScratchMemoryOfMoreThan4GiBForTextsOfThatLength)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr uint64_t LENGTH = (UINT64_C(1) << 32) + 5;
    long_text text(LENGTH);
    ZR_memm_cleanup();
    CHAR output[] = "before";
    heap_trace trace;
    trace.refuse_all_allocations();
    EXPECT_EQ(OS_sys_path_concat(text.text(), "b", output, 6), 0);
    EXPECT_EQ(OS_sys_path_concat("a", text.text(), output, 6), 0);
    EXPECT_EQ(OS_sys_path_concat("", text.text(), output, 6), 0);
    const std::vector<heap_call> expected = {
        malloc_call(LENGTH + 3, nullptr), malloc_call(LENGTH + 3, nullptr), malloc_call(LENGTH + 2, nullptr)};
    EXPECT_EQ(trace.calls(), expected);
    EXPECT_STREQ(output, "before");
}

TEST(PathConcat, MeasuresAnOutputOfMoreThan2GiBInFull)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr uint64_t LENGTH = (UINT64_C(1) << 31) + 5;
    long_text output(LENGTH);
    EXPECT_EQ(OS_sys_path_concat("a", "b", output.text(), 0), LONG{LENGTH});
}
