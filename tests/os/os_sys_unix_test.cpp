// Modules, paths, compound module names and the system report.

#include "foundation/memory.h"
#include "foundation/os.h"

#include "support/guarded_bytes.h"
#include "support/heap_trace.h"
#include "support/library_copy.h"
#include "support/platform_call.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

// ---- Functions that the tests put in front of the C library's and of the library's own

namespace {

constinit platform_call<void *(const char *, int)> dlopen_call{"dlopen"};
constinit platform_call<int(void *)> dlclose_call{"dlclose"};

struct report_line {
    std::string format;
    int value;  // 0 for a format without a conversion

    bool operator==(const report_line &other) const { return format == other.format && value == other.value; }
};

void PrintTo(const report_line &line, std::ostream *stream)
{
    *stream << '"' << line.format << "\" " << line.value;
}

std::vector<report_line> report;

}  // namespace

extern "C" {

BEFORE_SANITIZER void *dlopen(const char *name, int flags) noexcept
{
    return dlopen_call(name, flags);
}

BEFORE_SANITIZER int dlclose(void *module) noexcept
{
    return dlclose_call(module);
}

void OS_debug_output(const CHAR *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    report.push_back({format, strchr(format, '%') != nullptr ? va_arg(arguments, int) : 0});
    va_end(arguments);
}

}  // extern "C"

namespace {

constexpr int SENTINEL_ERRNO = 7777;
constexpr CHAR UNTOUCHED = '#';

// A buffer of UNTOUCHED characters, terminated behind them, and what a function left in it.
class output_buffer {
public:
    explicit output_buffer(size_t size) : bytes_(size, UNTOUCHED) {}

    CHAR *text() { return bytes_.data(); }
    const std::string &bytes() const { return bytes_; }

private:
    std::string bytes_;
};

std::string untouched(size_t count)
{
    return std::string(count, UNTOUCHED);
}

}  // namespace

// ---- Modules

TEST(Modules, LoadOfNullGivesTheProcessImage)
{
    LPVOID image = OS_sys_module_load(nullptr);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(OS_sys_sym_get(image, "OS_sys_gctrl_init"), reinterpret_cast<LPVOID>(&OS_sys_gctrl_init));
    EXPECT_EQ(OS_sys_sym_get(image, "strtol"), dlsym(RTLD_DEFAULT, "strtol"));
    EXPECT_NE(OS_sys_sym_get(image, "strtol"), nullptr);
    EXPECT_EQ(OS_sys_module_unload(image), 0);
}

TEST(Modules, LoadAsksForLazyBindingAndNothingElse)
{
    std::vector<const char *> names;
    std::vector<int> flags;
    int module = 0;
    replaced_call replaced(dlopen_call, [&](const char *name, int flag) -> void * {
        names.push_back(name);
        flags.push_back(flag);
        return name == nullptr ? nullptr : &module;
    });
    EXPECT_EQ(OS_sys_module_load("libQVutil17.so"), &module);
    EXPECT_EQ(OS_sys_module_load(nullptr), nullptr);
    EXPECT_STREQ(names.at(0), "libQVutil17.so");
    EXPECT_EQ(names.at(1), nullptr);
    EXPECT_EQ(flags, (std::vector<int>{RTLD_LAZY, RTLD_LAZY}));
}

TEST(Modules, AreLoadedSearchedAndUnloaded)
{
    LPVOID module = OS_sys_module_load(ANSWERING_MODULE);
    ASSERT_NE(module, nullptr);
    LPVOID answer = OS_sys_sym_get(module, "module_answer");
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(answer)(), 42);
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
    EXPECT_EQ(OS_sys_sym_get(nullptr, "OS_sys_module_load"), reinterpret_cast<LPVOID>(&OS_sys_module_load));
}

// The platform would read the name, and the module.
TEST(Modules, LookUpOfANullNameGivesNullWithoutAskingThePlatform)
{
    int no_module = 0;
    EXPECT_EQ(OS_sys_sym_get(&no_module, nullptr), nullptr);
    EXPECT_EQ(OS_sys_sym_get(nullptr, nullptr), nullptr);
}

TEST(Modules, UnloadPassesThePlatformsResultBackUnchanged)
{
    for (const int result : {0, -1, 7, INT32_MIN}) {
        int module = 0;
        replaced_call replaced(dlclose_call, [&](void *closed) {
            EXPECT_EQ(closed, &module);
            return result;
        });
        EXPECT_EQ(OS_sys_module_unload(&module), result);
    }
}

TEST(Modules, UsageIsAlwaysOne)
{
    EXPECT_EQ(OS_module_usage_get(), 1);
    EXPECT_EQ(OS_module_usage_get(), 1);
}

// ---- Paths

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

std::vector<size_t> allocated_sizes(const std::vector<heap_call> &calls)
{
    std::vector<size_t> sizes;
    for (const heap_call &call : calls)
        if (call.kind != heap_call::FREE)
            sizes.push_back(call.size);
    return sizes;
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
            << limit;
        EXPECT_EQ(output.bytes(), expected) << limit;
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
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].kind, heap_call::MALLOC);
    EXPECT_EQ(calls[0].size, expected_size);
    EXPECT_EQ(calls[1].kind, heap_call::FREE);
    EXPECT_EQ(calls[1].block, calls[0].block);
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

TEST(PathConcat, TakesTheHighestLimit)
{
    CHAR output[] = "##########";
    EXPECT_EQ(OS_sys_path_concat("ab", "cd", output, UINT32_MAX), 5);
    EXPECT_EQ(memcmp(output, "ab/cd\0####", 10), 0);
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
    CHAR output[16] = {};
    errno = SENTINEL_ERRNO;
    OS_sys_path_concat("a", "b", output, 15);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
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
        trace.refuse_allocation(0);
        EXPECT_EQ(OS_sys_path_concat(directory, "b", output, 6), 0);
        EXPECT_EQ(trace.calls().size(), 1u);
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
        ASSERT_EQ(allocated_sizes(trace.calls()).size(), 2u) << "the text and a record";
    }
    for (unsigned refused = 0; refused < 2; ++refused) {
        heap_trace trace;
        trace.refuse_allocation(refused);
        EXPECT_EQ(OS_sys_path_concat("a", "b", output, 6), 0);
        EXPECT_STREQ(output, "before");
        std::vector<void *> held;
        for (const heap_call &call : trace.calls()) {
            if (call.kind == heap_call::FREE)
                held.erase(std::remove(held.begin(), held.end(), call.block), held.end());
            else if (call.block != nullptr)
                held.push_back(call.block);
        }
        EXPECT_TRUE(held.empty());
    }
    EXPECT_EQ(ZR_memm_cleanup(), 32);
}

// ---- Compound module names

TEST(CompoundName, IsThePrefixTheBaseAndTheNumberPaddedWithZeroBytes)
{
    output_buffer output(70);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), 64), 14);
    EXPECT_EQ(output.bytes(), "libQVutil17.so" + std::string(50, '\0') + untouched(6));
}

TEST(CompoundName, ThatExceedsTheLimitGivesMinusOneAndItsFirstCharactersUnterminated)
{
    errno = SENTINEL_ERRNO;
    for (const size_t limit : {0u, 1u, 10u, 13u}) {
        output_buffer output(20);
        EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), UINT(limit)), -1) << limit;
        EXPECT_EQ(output.bytes(), std::string("libQVutil17.so").substr(0, limit) + untouched(20 - limit));
    }
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

TEST(CompoundName, OfExactlyTheLimitIsReturnedWithItsLengthUnterminated)
{
    output_buffer output(20);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), 14), 14);
    EXPECT_EQ(output.bytes(), "libQVutil17.so" + untouched(6));
}

TEST(CompoundName, OneShorterThanTheLimitIsTerminated)
{
    output_buffer output(20);
    EXPECT_EQ(OS_sys_compfilename_create("util", output.text(), 15), 14);
    EXPECT_EQ(output.bytes(), std::string("libQVutil17.so") + '\0' + untouched(5));
}

TEST(CompoundName, OfAnEmptyBaseIsPrefixAndNumber)
{
    output_buffer output(12);
    EXPECT_EQ(OS_sys_compfilename_create("", output.text(), 12), 10);
    EXPECT_EQ(output.bytes(), std::string("libQV17.so\0\0", 12));
}

TEST(CompoundName, TakesTheBaseAsGiven)
{
    output_buffer output(24);
    EXPECT_EQ(OS_sys_compfilename_create("%s%n/ x", output.text(), 20), 17);
    EXPECT_EQ(output.bytes(), "libQV%s%n/ x17.so" + std::string(3, '\0') + untouched(4));
}

TEST(CompoundName, OfANullBaseIsZeroAndLeavesTheOutputUntouched)
{
    output_buffer output(8);
    EXPECT_EQ(OS_sys_compfilename_create(nullptr, output.text(), 8), 0);
    EXPECT_EQ(output.bytes(), untouched(8));
    EXPECT_EQ(OS_sys_compfilename_create(nullptr, nullptr, 8), 0);
}

TEST(CompoundName, HoldsABaseOf245Characters)
{
    const std::string base(245, 'b');
    const std::string name = "libQV" + base + "17.so";
    ASSERT_EQ(name.size(), 255u);
    for (const size_t limit : {254u, 255u, 256u, 300u}) {
        output_buffer output(310);
        const LONG result = limit < name.size() ? -1 : 255;
        EXPECT_EQ(OS_sys_compfilename_create(base.c_str(), output.text(), UINT(limit)), result) << limit;
        std::string expected = name.substr(0, limit);
        expected.resize(limit);  // with zero bytes
        EXPECT_EQ(output.bytes(), expected + untouched(310 - limit)) << limit;
    }
}

TEST(CompoundName, OfALongerBaseIsRefusedAndLeavesTheOutputUntouched)
{
    for (const size_t length : {246u, 300u, 100000u}) {
        const std::string base(length, 'b');
        output_buffer output(300);
        EXPECT_EQ(OS_sys_compfilename_create(base.c_str(), output.text(), 300), -1);
        EXPECT_EQ(output.bytes(), untouched(300));
    }
}

TEST(CompoundName, TakesNoMemoryFromTheHeap)
{
    CHAR output[64];
    heap_trace trace;
    OS_sys_compfilename_create("util", output, 64);
    EXPECT_TRUE(trace.calls().empty());
}

// ---- System report

TEST(SystemReport, NamesEveryBaseTypeWithItsSizeInOrder)
{
    const std::vector<report_line> expected = {
        {"\nReport from usunix:\n", 0}, {"sizeof(CHAR)=%d,", 1},     {"sizeof(BYTE)=%d,", 1},
        {"sizeof(LONG)=%d,", 8},        {"sizeof(INT)=%d,", 4},      {"sizeof(UINT)=%d,", 4},
        {"sizeof(WORD)=%d,", 2},        {"sizeof(SHORT)=%d,", 2},    {"sizeof(ZT_BOOL)=%d,", 4},
        {"sizeof(ZT_ERRCOUNT)=%d,", 4}, {"sizeof(ZT_MODE)=%d,", 8},  {"sizeof(LPVOID)=%d,", 8},
        {"sizeof(LPBYTE)=%d,", 8},      {"sizeof(LPWORD)=%d,\n", 8},
    };
    report.clear();
    _OS_sys_info_print();
    EXPECT_EQ(report, expected);
}

TEST(SystemReport, IsTheSameEachTime)
{
    report.clear();
    _OS_sys_info_print();
    const std::vector<report_line> first = report;
    report.clear();
    _OS_sys_info_print();
    EXPECT_EQ(report, first);
    EXPECT_EQ(report.size(), 14u);
}

TEST(BaseTypes, HaveTheReportedSizesAndSigns)
{
    static_assert(sizeof(CHAR) == 1 && sizeof(BYTE) == 1 && sizeof(SHORT) == 2 && sizeof(WORD) == 2);
    static_assert(sizeof(INT) == 4 && sizeof(UINT) == 4 && sizeof(LONG) == 8);
    static_assert(sizeof(ZT_BOOL) == 4 && sizeof(ZT_ERRCOUNT) == 4 && sizeof(ZT_MODE) == 8);
    static_assert(sizeof(LPVOID) == 8 && sizeof(LPBYTE) == 8 && sizeof(LPWORD) == 8);
    EXPECT_LT(static_cast<CHAR>(-1), 0);
    EXPECT_GT(static_cast<BYTE>(-1), 0);
    EXPECT_LT(static_cast<SHORT>(-1), 0);
    EXPECT_GT(static_cast<WORD>(-1), 0);
    EXPECT_LT(static_cast<INT>(-1), 0);
    EXPECT_GT(static_cast<UINT>(-1), 0u);
    EXPECT_LT(static_cast<LONG>(-1), 0);
    EXPECT_LT(static_cast<ZT_ERRCOUNT>(-1), 0);
}
