// Heap, memory, text and file wrappers, process facts and identifiers.

#include "foundation/os.h"

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/guarded_bytes.h"
#include "support/heap_trace.h"
#include "support/platform_call.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

// ---- Functions of the C library that the tests watch or replace

namespace {

constinit platform_call<int(const char *, int, mode_t)> open64_call{"open64"};
constinit platform_call<off64_t(int, off64_t, int)> lseek64_call{"lseek64"};
constinit platform_call<ssize_t(int, void *, size_t)> read_call{"read"};
constinit platform_call<ssize_t(int, const void *, size_t)> write_call{"write"};
constinit platform_call<int(int, off64_t)> ftruncate64_call{"ftruncate64"};
constinit platform_call<pid_t()> getpid_call{"getpid"};
constinit platform_call<long(int)> sysconf_call{"sysconf"};
constinit platform_call<int(pid_t, size_t, cpu_set_t *)> sched_getaffinity_call{"sched_getaffinity"};
constinit platform_call<FILE *(const char *, const char *)> fopen_call{"fopen"};

}  // namespace

extern "C" {

BEFORE_SANITIZER int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return open64_call(path, flags, mode);
}

BEFORE_SANITIZER off64_t lseek64(int descriptor, off64_t offset, int origin) noexcept
{
    return lseek64_call(descriptor, offset, origin);
}

BEFORE_SANITIZER ssize_t read(int descriptor, void *buffer, size_t count)
{
    return read_call(descriptor, buffer, count);
}

BEFORE_SANITIZER ssize_t write(int descriptor, const void *buffer, size_t count)
{
    return write_call(descriptor, buffer, count);
}

BEFORE_SANITIZER int ftruncate64(int descriptor, off64_t length) noexcept
{
    return ftruncate64_call(descriptor, length);
}

BEFORE_SANITIZER pid_t getpid(void) noexcept
{
    return getpid_call();
}

BEFORE_SANITIZER long sysconf(int name) noexcept
{
    return sysconf_call(name);
}

BEFORE_SANITIZER int sched_getaffinity(pid_t process, size_t size, cpu_set_t *mask) noexcept
{
    return sched_getaffinity_call(process, size, mask);
}

BEFORE_SANITIZER FILE *fopen(const char *path, const char *mode)
{
    return fopen_call(path, mode);
}

}  // extern "C"

namespace {

// What no function under test sets errno to.
constexpr int SENTINEL_ERRNO = 7777;

int sign(int value)
{
    return (value > 0) - (value < 0);
}

std::string repeated(char character, size_t count)
{
    return std::string(count, character);
}

}  // namespace

// ---- Heap

TEST(HeapServices, AllocAsksTheHeapForExactlyThatSize)
{
    heap_trace trace;
    for (const uint64_t size : {UINT64_C(1), UINT64_C(24), UINT64_C(100000)}) {
        trace.clear();
        LPVOID block = OS_alloc(size);
        const std::vector<heap_call> calls = trace.calls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].kind, heap_call::MALLOC);
        EXPECT_EQ(calls[0].size, size);
        EXPECT_EQ(calls[0].block, block);
        OS_free(block);
    }
}

TEST(HeapServices, AllocPassesASizeOfZeroOn)
{
    heap_trace trace;
    LPVOID block = OS_alloc(0);
    const std::vector<heap_call> calls = trace.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].size, 0u);
    EXPECT_EQ(calls[0].block, block);
    OS_free(block);
}

TEST(HeapServices, SizesOf4GiBAndMoreReachTheHeapInFull)
{
    constexpr uint64_t size = UINT64_C(0x100000010);
    heap_trace trace;
    trace.refuse_all_allocations();
    EXPECT_EQ(OS_alloc(size), nullptr);
    EXPECT_EQ(OS_realloc(nullptr, size), nullptr);
    const std::vector<heap_call> calls = trace.calls();
    trace.allow_allocations();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].size, size);
    EXPECT_EQ(calls[1].size, size);
}

TEST(HeapServices, AllocGivesNullWhenTheHeapRefuses)
{
    heap_trace trace;
    trace.refuse_allocation(0);
    EXPECT_EQ(OS_alloc(16), nullptr);
}

TEST(HeapServices, ReallocResizesThroughTheHeapAndKeepsTheContent)
{
    heap_trace trace;
    LPVOID block = OS_alloc(4);
    memcpy(block, "abcd", 4);
    trace.clear();
    LPVOID larger = OS_realloc(block, 5000);
    const std::vector<heap_call> calls = trace.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, heap_call::REALLOC);
    EXPECT_EQ(calls[0].old_block, block);
    EXPECT_EQ(calls[0].size, 5000u);
    EXPECT_EQ(calls[0].block, larger);
    EXPECT_EQ(memcmp(larger, "abcd", 4), 0);
    OS_free(larger);
}

TEST(HeapServices, ReallocOfNullAllocates)
{
    LPVOID block = OS_realloc(nullptr, 8);
    ASSERT_NE(block, nullptr);
    memset(block, 1, 8);
    OS_free(block);
}

TEST(HeapServices, RefusedReallocGivesNullAndKeepsTheBlock)
{
    heap_trace trace;
    LPVOID block = OS_alloc(4);
    memcpy(block, "abcd", 4);
    trace.refuse_allocation(0);
    EXPECT_EQ(OS_realloc(block, 5000), nullptr);
    EXPECT_EQ(memcmp(block, "abcd", 4), 0);
    EXPECT_EQ(OS_free(block), 0);
}

TEST(HeapServices, FreeReleasesTheBlockAndReportsZero)
{
    heap_trace trace;
    LPVOID block = OS_alloc(16);
    trace.clear();
    EXPECT_EQ(OS_free(block), 0);
    const std::vector<heap_call> calls = trace.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, heap_call::FREE);
    EXPECT_EQ(calls[0].block, block);
}

TEST(HeapServices, FreeOfNullReportsZero)
{
    EXPECT_EQ(OS_free(nullptr), 0);
}

// ---- Memory

TEST(MemoryServices, MemcpyCopiesThatManyBytesAndReturnsTheDestination)
{
    const BYTE source[6] = {1, 2, 0, 4, 5, 6};
    for (uint64_t count = 0; count <= sizeof source; ++count) {
        BYTE destination[6] = {9, 9, 9, 9, 9, 9};
        BYTE expected[6] = {9, 9, 9, 9, 9, 9};
        for (uint64_t i = 0; i < count; ++i)
            expected[i] = source[i];
        EXPECT_EQ(OS_memcpy(destination, source, count), destination);
        EXPECT_EQ(memcmp(destination, expected, sizeof expected), 0) << count << " bytes";
    }
}

TEST(MemoryServices, MemsetFillsThatManyBytesAndReturnsTheDestination)
{
    for (uint64_t count = 0; count <= 5; ++count) {
        BYTE bytes[5] = {9, 9, 9, 9, 9};
        EXPECT_EQ(OS_memset(bytes, 0x41, count), bytes);
        for (uint64_t i = 0; i < sizeof bytes; ++i)
            EXPECT_EQ(bytes[i], i < count ? 0x41 : 9);
    }
}

TEST(MemoryServices, MemsetUsesOnlyTheLowEightBitsOfTheFillValue)
{
    for (const auto &[fill, expected] : {std::pair<INT, BYTE>{0x1ff, 0xff},
                                         {0x100, 0},
                                         {-1, 0xff},
                                         {INT32_MIN, 0},
                                         {INT32_MAX, 0xff},
                                         {0x12345678, 0x78}}) {
        BYTE bytes[3] = {1, 1, 1};
        OS_memset(bytes, fill, sizeof bytes);
        for (const BYTE byte : bytes)
            EXPECT_EQ(byte, expected) << std::hex << fill;
    }
}

TEST(MemoryServices, MemcmpGivesTheSignOfTheFirstDifferingByte)
{
    EXPECT_EQ(OS_memcmp("abc", "abc", 3), 0);
    EXPECT_EQ(sign(OS_memcmp("abc", "abd", 3)), -1);
    EXPECT_EQ(sign(OS_memcmp("abd", "abc", 3)), 1);
    EXPECT_EQ(sign(OS_memcmp("bza", "caa", 3)), -1);
    EXPECT_EQ(OS_memcmp("abc", "abd", 2), 0);
    EXPECT_EQ(OS_memcmp("abc", "xyz", 0), 0);
}

TEST(MemoryServices, MemcmpComparesUnsignedBytesAndPassesZeroBytes)
{
    EXPECT_EQ(sign(OS_memcmp("\x80", "\x7f", 1)), 1);
    EXPECT_EQ(sign(OS_memcmp("\x01", "\xff", 1)), -1);
    EXPECT_EQ(sign(OS_memcmp("a\0b", "a\0c", 3)), -1);
}

// A count cut to 32 bits would be 0 here, and the call would touch nothing.
TEST(MemoryServices, CountsOf4GiBAndMoreAreTakenInFull)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr uint64_t count = UINT64_C(1) << 32;
    BYTE source[16] = {};
    EXPECT_FALSE(run_in_child([&] { OS_memset(guarded_bytes(16).data(), 1, count); }).succeeded());
    EXPECT_FALSE(run_in_child([&] { OS_memcpy(guarded_bytes(16).data(), source, count); }).succeeded());

    void *pages =
        mmap(nullptr, 2 * count, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    BYTE *first = static_cast<BYTE *>(pages);
    BYTE *second = first + count;
    second[0] = 1;
    EXPECT_LT(OS_memcmp(first, second, count), 0);
    munmap(pages, 2 * count);
}

// ---- Text

TEST(BoundedCopy, PadsAShorterSourceWithZeroBytesUpToTheCount)
{
    CHAR destination[8];
    memset(destination, 'x', sizeof destination);
    EXPECT_EQ(OS_strncpy(destination, "abc", 7), destination);
    EXPECT_EQ(memcmp(destination, "abc\0\0\0\0x", 8), 0);
}

TEST(BoundedCopy, LeavesNoTerminatorForASourceOfTheCountOrLonger)
{
    for (const CHAR *source : {"abcd", "abcde"}) {
        CHAR destination[6];
        memset(destination, 'x', sizeof destination);
        OS_strncpy(destination, source, 4);
        EXPECT_EQ(memcmp(destination, "abcdxx", 6), 0) << source;
    }
}

TEST(BoundedCopy, OfNoCharactersWritesNothing)
{
    CHAR destination = 'x';
    EXPECT_EQ(OS_strncpy(&destination, "abc", 0), &destination);
    EXPECT_EQ(destination, 'x');
}

TEST(BoundedCopy, ReadsNoFurtherThanTheCount)
{
    guarded_bytes unterminated("abcd", 4);
    CHAR destination[5] = {};
    OS_strncpy(destination, unterminated.text(), 4);
    EXPECT_STREQ(destination, "abcd");
}

TEST(TextCursor, GapIgnorePassesSpacesAndTabs)
{
    const CHAR text[] = "  \tx";
    const CHAR *cursor = text;
    gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 3);
    gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 3);
}

TEST(TextCursor, GapIgnoreStopsAtTheTerminator)
{
    const CHAR text[] = " \t ";
    const CHAR *cursor = text;
    gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 3);
    gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 3);
}

TEST(TextCursor, NonGapIgnoreMovesToTheNextSpaceOrTab)
{
    const CHAR text[] = "abc\tde f";
    const CHAR *cursor = text;
    non_gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 3);
    non_gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 3);
    ++cursor;
    non_gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 6);
}

TEST(TextCursor, NonGapIgnoreDoesNotStopAtTheTerminator)
{
    const CHAR text[] = "abc\0de\0\0\tx";
    const CHAR *cursor = text;
    non_gap_ignore(&cursor);
    EXPECT_EQ(cursor, text + 8);
}

TEST(TextCursor, OnlySpaceAndTabAreGaps)
{
    for (int byte = 0; byte < 256; ++byte) {
        const bool is_gap = byte == ' ' || byte == '\t';
        const CHAR gap_text[] = {static_cast<CHAR>(byte), 'x', '\0'};
        const CHAR *cursor = gap_text;
        gap_ignore(&cursor);
        EXPECT_EQ(cursor, gap_text + (is_gap ? 1 : 0)) << byte;

        const CHAR word_text[] = {static_cast<CHAR>(byte), ' ', '\0'};
        cursor = word_text;
        non_gap_ignore(&cursor);
        EXPECT_EQ(cursor, word_text + (is_gap ? 0 : 1)) << byte;
    }
}

TEST(Formatting, WritesTheTextAndReturnsItsLength)
{
    CHAR text[128];
    EXPECT_EQ(OS_sprintf(text, "%s", ""), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(OS_sprintf(text, "%d|%5u|%-4s|%c|%02x|100%%", -7, 42u, "ab", 'z', 0xbu), 23);
    EXPECT_STREQ(text, "-7|   42|ab  |z|0b|100%");
}

TEST(Formatting, TakesArgumentsOfEveryKindAndAnyNumber)
{
    CHAR text[256];
    OS_sprintf(text, "%d %d %d %d %d %d %d %d %.2f %.1f %lld %s", 1, 2, 3, 4, 5, 6, 7, 8, 0.25, -1.5,
               static_cast<long long>(INT64_MIN), "end");
    EXPECT_STREQ(text, "1 2 3 4 5 6 7 8 0.25 -1.5 -9223372036854775808 end");
}

TEST(Formatting, AppliesNoLimit)
{
    const std::string longest = repeated('q', 1000000);
    std::string text(longest.size() + 2, 'x');
    EXPECT_EQ(OS_sprintf(text.data(), "%s!", longest.c_str()), 1000001);
    EXPECT_EQ(text, longest + "!" + '\0');
}

TEST(Formatting, StoresTheCountForPercentNEvenFromAWritableFormat)
{
    CHAR text[16];
    int count = -1;
    OS_sprintf(text, "abc%ndef", &count);
    EXPECT_EQ(count, 3);
    EXPECT_STREQ(text, "abcdef");

    CHAR writable_format[] = "ab%nc";
    CHAR *volatile format = writable_format;  // unknown to the compiler, so unknown to its format warnings
    count = -1;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    OS_sprintf(text, format, &count);
#pragma GCC diagnostic pop
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(text, "abc");
}

TEST(Formatting, PassesTheLibrarysNegativeResultAndErrnoBack)
{
    CHAR text[16];
    const wchar_t unrepresentable[] = {0x20ac, 0};  // in the "C" locale
    errno = 0;
    EXPECT_LT(OS_sprintf(text, "%ls", unrepresentable), 0);
    EXPECT_EQ(errno, EILSEQ);
}

TEST(MessageBox, WritesTitleAndTextToStandardErrorAndReturnsTheCount)
{
    const child_result child = run_in_child([] { EXPECT_EQ(OS_message_box("Error", "disk full"), 18); });
    EXPECT_TRUE(child.succeeded()) << child.describe();
    EXPECT_EQ(child.err, "Error:  disk full\n");
    EXPECT_EQ(child.out, "");
}

TEST(MessageBox, TakesPercentSignsAsTheyAre)
{
    const child_result child = run_in_child([] { EXPECT_EQ(OS_message_box("%s", "50%n"), 10); });
    EXPECT_TRUE(child.succeeded()) << child.describe();
    EXPECT_EQ(child.err, "%s:  50%n\n");
}

TEST(MessageBox, ReturnsANegativeValueWhenTheStreamCannotBeWritten)
{
    expect_passes_in_child([] {
        close(STDERR_FILENO);
        EXPECT_LT(OS_message_box("Error", "disk full"), 0);
        EXPECT_EQ(errno, EBADF);
    });
}

// ---- Files

namespace {

class FileServices : public testing::Test {
protected:
    scratch_directory scratch;
    std::string path = scratch.file("file");

    void write_file(const std::string &content) { std::ofstream(path, std::ios::binary) << content; }
    std::string file_content()
    {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    INT open_file(int flags = O_RDWR)
    {
        const INT descriptor = OS_open(path.c_str(), flags, 0);
        EXPECT_GE(descriptor, 0);
        return descriptor;
    }
    struct stat64 file_facts(const std::string &of)
    {
        struct stat64 facts = {};
        EXPECT_EQ(stat64(of.c_str(), &facts), 0);
        return facts;
    }
    mode_t permissions(const std::string &of) { return file_facts(of).st_mode & 07777; }
};

class file_creation_mask {
public:
    explicit file_creation_mask(mode_t mask) : old_(umask(mask)) {}
    ~file_creation_mask() { umask(old_); }

private:
    mode_t old_;
};

}  // namespace

TEST_F(FileServices, CreateGivesBits0755LessTheCreationMask)
{
    for (const auto &[mask, expected] :
         {std::pair<mode_t, mode_t>{0, 0755}, {022, 0755}, {027, 0750}, {0777, 0}}) {
        const std::string created = scratch.file("created" + std::to_string(mask));
        file_creation_mask masked(mask);
        const INT descriptor = OS_create(created.c_str());
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(permissions(created), expected) << std::oct << mask;
        EXPECT_EQ(OS_close(descriptor), 0);
    }
}

TEST_F(FileServices, CreateTruncatesAnExistingFileAndKeepsItsPermissions)
{
    write_file("old content");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    const INT descriptor = OS_create(path.c_str());
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(file_facts(path).st_size, 0);
    EXPECT_EQ(permissions(path), 0600u);
    OS_close(descriptor);
}

TEST_F(FileServices, CreateOpensForWritingOnly)
{
    const INT descriptor = OS_create(path.c_str());
    ASSERT_GE(descriptor, 0);
    CHAR byte;
    EXPECT_EQ(OS_write(descriptor, "a", 1), 1);
    EXPECT_EQ(OS_seek(descriptor, 0, 0), 0);
    EXPECT_EQ(OS_read(descriptor, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_WRONLY);
    OS_close(descriptor);
}

TEST_F(FileServices, CreateFailsWithThePlatformsErrno)
{
    errno = 0;
    EXPECT_EQ(OS_create(scratch.file("missing/file").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileServices, OpenPassesFlagsAndPermissionBitsUnchanged)
{
    int seen_flags = 0;
    mode_t seen_mode = 0;
    std::string seen_path;
    replaced_call replaced(open64_call, [&](const char *opened, int flags, mode_t mode) {
        seen_path = opened;
        seen_flags = flags;
        seen_mode = mode;
        return 123;
    });
    constexpr INT flags = O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_SYNC | 0x40000000;
    EXPECT_EQ(OS_open("some/path", flags, 06421), 123);
    EXPECT_EQ(seen_path, "some/path");
    EXPECT_EQ(seen_flags, flags);
    EXPECT_EQ(seen_mode, 06421u);
    EXPECT_EQ(OS_open("", INT32_MIN, UINT32_MAX), 123);
    EXPECT_EQ(seen_flags, INT32_MIN);
    EXPECT_EQ(seen_mode, UINT32_MAX);
}

TEST_F(FileServices, OpenActsAsThePlatformsOpen)
{
    file_creation_mask none(0);
    errno = 0;
    EXPECT_EQ(OS_open(path.c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(errno, ENOENT);

    const INT created = OS_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0640);
    ASSERT_GE(created, 0);
    EXPECT_EQ(permissions(path), 0640u);
    EXPECT_EQ(OS_write(created, "abc", 3), 3);
    EXPECT_EQ(OS_close(created), 0);

    EXPECT_EQ(OS_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0640), -1);
    EXPECT_EQ(errno, EEXIST);

    const INT reopened = OS_open(path.c_str(), O_RDONLY, 0);
    CHAR bytes[4] = {};
    EXPECT_EQ(OS_read(reopened, bytes, 4), 3);
    EXPECT_STREQ(bytes, "abc");
    EXPECT_EQ(OS_close(reopened), 0);
}

TEST_F(FileServices, CloseReportsZeroAndThenAnUnknownDescriptor)
{
    write_file("");
    const INT descriptor = open_file();
    EXPECT_EQ(OS_close(descriptor), 0);
    errno = 0;
    EXPECT_EQ(OS_close(descriptor), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, DeleteRemovesAFile)
{
    write_file("content");
    EXPECT_EQ(OS_delete(path.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    errno = 0;
    EXPECT_EQ(OS_delete(path.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileServices, DeleteRemovesOnlyAnEmptyDirectory)
{
    const std::string directory = scratch.file("directory");
    std::filesystem::create_directories(directory + "/inner");
    errno = 0;
    EXPECT_EQ(OS_delete(directory.c_str()), -1);
    EXPECT_TRUE(errno == ENOTEMPTY || errno == EEXIST) << errno;
    EXPECT_EQ(OS_delete((directory + "/inner").c_str()), 0);
    EXPECT_EQ(OS_delete(directory.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST_F(FileServices, SeekMovesFromStartCurrentPositionAndEnd)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    EXPECT_EQ(OS_seek(descriptor, 4, 0), 4);
    EXPECT_EQ(OS_seek(descriptor, 3, 1), 7);
    EXPECT_EQ(OS_seek(descriptor, -2, 1), 5);
    EXPECT_EQ(OS_seek(descriptor, 0, 2), 10);
    EXPECT_EQ(OS_seek(descriptor, 5, 2), 15);
    EXPECT_EQ(OS_seek(descriptor, -1, 2), 9);
    CHAR byte = 0;
    EXPECT_EQ(OS_read(descriptor, &byte, 1), 1);
    EXPECT_EQ(byte, '9');
    OS_close(descriptor);
}

TEST_F(FileServices, SeekFailsWithThePlatformsErrnoAndKeepsThePosition)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    OS_seek(descriptor, 4, 0);
    errno = 0;
    EXPECT_EQ(OS_seek(descriptor, -5, 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(OS_seek(descriptor, 0, 99), -1);
    EXPECT_EQ(OS_seek(descriptor, 0, UINT32_MAX), -1);
    EXPECT_EQ(OS_seek(descriptor, 0, 1), 4);
    OS_close(descriptor);
    errno = 0;
    EXPECT_EQ(OS_seek(descriptor, 0, 0), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, SeekReturnsPositionsOf64Bits)
{
    constexpr LONG size = INT64_C(5) << 30;
    write_file("");
    ASSERT_EQ(truncate64(path.c_str(), size), 0);  // takes up no room
    const INT descriptor = open_file();
    EXPECT_EQ(OS_seek(descriptor, 0, 2), size);
    EXPECT_EQ(OS_seek(descriptor, -1, 1), size - 1);
    EXPECT_EQ(OS_seek(descriptor, INT32_MIN, 2), size - (INT64_C(1) << 31));
    EXPECT_EQ(OS_seek(descriptor, INT32_MAX, 1), size - 1);
    EXPECT_EQ(OS_seek(descriptor, INT32_MAX, 1), size - 1 + INT32_MAX);
    EXPECT_EQ(OS_seek(descriptor, INT32_MAX, 0), INT32_MAX);
    OS_close(descriptor);
}

TEST_F(FileServices, ReadAndWriteWorkBeyond4GiB)
{
    constexpr LONG position = INT64_C(5) << 30;
    write_file("");
    ASSERT_EQ(truncate64(path.c_str(), position), 0);
    const INT descriptor = open_file();
    ASSERT_EQ(OS_seek(descriptor, 0, 2), position);
    EXPECT_EQ(OS_write(descriptor, "far", 3), 3);
    EXPECT_EQ(file_facts(path).st_size, position + 3);
    EXPECT_EQ(OS_seek(descriptor, -3, 1), position);
    CHAR bytes[4] = {};
    EXPECT_EQ(OS_read(descriptor, bytes, 3), 3);
    EXPECT_STREQ(bytes, "far");
    OS_close(descriptor);
}

TEST_F(FileServices, SeekSignExtendsTheOffsetBeforeThePlatformCall)
{
    std::vector<off64_t> offsets;
    std::vector<int> origins;
    replaced_call replaced(lseek64_call, [&](int, off64_t offset, int origin) -> off64_t {
        offsets.push_back(offset);
        origins.push_back(origin);
        return INT64_C(0x123456789abcdef0);
    });
    EXPECT_EQ(OS_seek(3, -1, 2), INT64_C(0x123456789abcdef0));
    OS_seek(3, INT32_MIN, 1);
    OS_seek(3, INT32_MAX, 0);
    EXPECT_EQ(offsets, (std::vector<off64_t>{-1, INT64_C(-2147483648), INT64_C(2147483647)}));
    EXPECT_EQ(origins, (std::vector<int>{2, 1, 0}));
}

TEST_F(FileServices, ReadGivesTheBytesThenTheRestThenZeroAtTheEnd)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    CHAR bytes[16] = {};
    EXPECT_EQ(OS_read(descriptor, bytes, 4), 4);
    EXPECT_EQ(memcmp(bytes, "0123\0", 5), 0);
    EXPECT_EQ(OS_read(descriptor, bytes, 16), 6);
    EXPECT_EQ(memcmp(bytes, "456789\0", 7), 0);
    EXPECT_EQ(OS_read(descriptor, bytes, 16), 0);
    EXPECT_EQ(OS_read(descriptor, bytes, 0), 0);
    OS_close(descriptor);
}

TEST_F(FileServices, WriteStoresTheBytes)
{
    const INT descriptor = OS_create(path.c_str());
    EXPECT_EQ(OS_write(descriptor, "ab\0cd", 5), 5);
    EXPECT_EQ(OS_write(descriptor, "", 0), 0);
    EXPECT_EQ(OS_write(descriptor, "ef", 2), 2);
    OS_close(descriptor);
    EXPECT_EQ(file_content(), std::string("ab\0cdef", 7));
}

TEST_F(FileServices, ReadAndWriteFailWithThePlatformsErrno)
{
    CHAR byte = 0;
    errno = 0;
    EXPECT_EQ(OS_read(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(OS_write(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, ReadAndWriteNarrowThePlatformsCountTo32BitsAndWidenItAgain)
{
    struct {
        ssize_t platform_count;
        LONG result;
    } const cases[] = {
        {INT64_C(0x7fffffff), INT64_C(0x7fffffff)},
        {INT64_C(0x80000000), INT64_C(-2147483648)},
        {INT64_C(0xfffffffe), -2},
        {INT64_C(0x100000000), 0},
        {INT64_C(0x100000001), 1},
        {INT64_C(0x1234567887654321), INT64_C(-0x789abcdf)},
        {-1, -1},
    };
    for (const auto &[platform_count, result] : cases) {
        LONG read_result = 0;
        LONG write_result = 0;
        {
            const ssize_t count = platform_count;
            replaced_call read_replaced(read_call, [&](int, void *, size_t) { return count; });
            replaced_call write_replaced(write_call, [&](int, const void *, size_t) { return count; });
            read_result = OS_read(3, nullptr, 1);
            write_result = OS_write(3, nullptr, 1);
        }
        EXPECT_EQ(read_result, result) << platform_count;
        EXPECT_EQ(write_result, result) << platform_count;
    }
}

TEST_F(FileServices, ReadAndWritePassTheirArgumentsOn)
{
    using arguments = std::tuple<int, const void *, size_t>;
    CHAR bytes[1];
    arguments of_read;
    arguments of_write;
    const auto note = [](arguments &place) {
        return [&place](int descriptor, const void *buffer, size_t count) -> ssize_t {
            place = {descriptor, buffer, count};
            return 0;
        };
    };
    {
        replaced_call read_replaced(read_call, note(of_read));
        replaced_call write_replaced(write_call, note(of_write));
        EXPECT_EQ(OS_read(41, bytes, INT32_MAX), 0);
        OS_write(42, bytes, INT32_MAX);
    }
    EXPECT_EQ(of_read, arguments(41, bytes, INT32_MAX));
    EXPECT_EQ(of_write, arguments(42, bytes, INT32_MAX));
}

TEST_F(FileServices, SizeChangeTruncatesAndExtendsWithZeroBytes)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    EXPECT_EQ(OS_size_change(descriptor, 4), 0);
    EXPECT_EQ(file_content(), "0123");
    EXPECT_EQ(OS_size_change(descriptor, 6), 0);
    EXPECT_EQ(file_content(), std::string("0123\0\0", 6));
    EXPECT_EQ(OS_size_change(descriptor, 0), 0);
    EXPECT_EQ(file_content(), "");
    EXPECT_EQ(OS_size_change(descriptor, INT32_MAX), 0);
    EXPECT_EQ(file_facts(path).st_size, INT32_MAX);
    OS_close(descriptor);
}

TEST_F(FileServices, SizeChangeFailsWithThePlatformsErrno)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    errno = 0;
    EXPECT_EQ(OS_size_change(descriptor, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(file_facts(path).st_size, 10);
    OS_close(descriptor);
    errno = 0;
    EXPECT_EQ(OS_size_change(descriptor, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, SizeChangeSignExtendsTheLength)
{
    std::vector<off64_t> lengths;
    replaced_call replaced(ftruncate64_call, [&](int, off64_t length) {
        lengths.push_back(length);
        return -1;
    });
    EXPECT_EQ(OS_size_change(3, -5), -1);
    EXPECT_EQ(OS_size_change(3, INT32_MIN), -1);
    EXPECT_EQ(OS_size_change(3, INT32_MAX), -1);
    EXPECT_EQ(lengths, (std::vector<off64_t>{-5, INT64_C(-2147483648), INT64_C(2147483647)}));
}

// ---- Process facts

TEST(ProcessServices, ProcessIdIsThePlatformsWidened)
{
    EXPECT_EQ(OS_process_id_get(), getpid());
    const pid_t parent = getpid();
    expect_passes_in_child([parent] {
        EXPECT_EQ(OS_process_id_get(), getpid());
        EXPECT_NE(OS_process_id_get(), parent);
    });
    replaced_call replaced(getpid_call, [] { return INT32_MAX; });
    EXPECT_EQ(OS_process_id_get(), INT64_C(2147483647));
}

namespace {

// The platform's two answers for the processor count, for one call of the function under test.
INT processor_count(long online, int affinity_result, int processors_in_mask)
{
    replaced_call sysconf_replaced(sysconf_call, [&](int name) {
        EXPECT_EQ(name, _SC_NPROCESSORS_ONLN);
        return online;
    });
    replaced_call affinity_replaced(sched_getaffinity_call, [&](pid_t process, size_t size, cpu_set_t *mask) {
        EXPECT_EQ(process, 0);
        EXPECT_EQ(size, 128u);
        CPU_ZERO(mask);
        for (int i = 0; i < processors_in_mask; ++i)
            CPU_SET(1023 - i, mask);
        return affinity_result;
    });
    return OS_processor_count();
}

}  // namespace

TEST(ProcessorCount, IsTheNumberOfProcessorsInTheAffinityMask)
{
    EXPECT_EQ(processor_count(8, 0, 2), 2);
    EXPECT_EQ(processor_count(8, 0, 1), 1);
    EXPECT_EQ(processor_count(1, 0, 64), 64);
    EXPECT_EQ(processor_count(8, 0, 1024), 1024);
}

TEST(ProcessorCount, FallsBackToTheOnlineCountWhenTheMaskCannotBeHad)
{
    EXPECT_EQ(processor_count(8, -1, 2), 8);
    EXPECT_EQ(processor_count(1, -1, 2), 1);
}

TEST(ProcessorCount, FallsBackToTheOnlineCountForAnEmptyMask)
{
    EXPECT_EQ(processor_count(8, 0, 0), 8);
}

TEST(ProcessorCount, FollowsARestrictedAffinity)
{
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    EXPECT_EQ(OS_processor_count(), CPU_COUNT(&allowed));
    expect_passes_in_child([&] {
        cpu_set_t restricted;
        CPU_ZERO(&restricted);
        for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&restricted) == 0; ++i)
            if (CPU_ISSET(i, &allowed))
                CPU_SET(i, &restricted);
        ASSERT_EQ(sched_setaffinity(0, sizeof restricted, &restricted), 0);
        EXPECT_EQ(OS_processor_count(), 1);
    });
}

// ---- Identifiers

namespace {

// For as long as it lives, the identifier source holds `text`.
class identifier_source {
public:
    explicit identifier_source(const std::string &text)
        : text_(text), replaced_(fopen_call, [this](const char *, const char *) { return open_text(); })
    {
    }

private:
    FILE *open_text()
    {
        FILE *stream = tmpfile();
        fwrite(text_.data(), 1, text_.size(), stream);
        rewind(stream);
        return stream;
    }

    std::string text_;
    replaced_call<FILE *(const char *, const char *)> replaced_;
};

using guid_bytes = std::array<BYTE, 16>;

guid_bytes create_guid()
{
    guid_bytes guid;
    guid.fill(0xEE);
    EXPECT_NE(OS_create_guid(guid.data()), 0);
    return guid;
}

size_t open_descriptor_count()
{
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count += entry.exists() ? 1 : 0;
    return count;
}

bool is_identifier_text(const std::string &text)
{
    if (text.size() != 36)
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool is_hyphen_place = i == 8 || i == 13 || i == 18 || i == 23;
        if (is_hyphen_place ? text[i] != '-' : strchr("0123456789abcdef", text[i]) == nullptr)
            return false;
    }
    return true;
}

}  // namespace

TEST(IdentifierSource, GivesTheKernelsIdentifierAsOneLineAndZeroBytesBehindIt)
{
    CHAR buffer[64];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(readUUID(buffer, 60), 1);
    EXPECT_TRUE(is_identifier_text(std::string(buffer, 36))) << std::string(buffer, 36);
    EXPECT_EQ(buffer[36], '\n');
    for (int i = 37; i < 60; ++i)
        EXPECT_EQ(buffer[i], '\0') << i;
    for (int i = 60; i < 64; ++i)
        EXPECT_EQ(buffer[i], 'x') << i;
}

TEST(IdentifierSource, IsAFreshIdentifierEachTime)
{
    CHAR first[40];
    CHAR second[40];
    readUUID(first, sizeof first);
    readUUID(second, sizeof second);
    EXPECT_STRNE(first, second);
}

TEST(IdentifierSource, IsOpenedForReadingAsText)
{
    std::string seen_path;
    std::string seen_mode;
    replaced_call replaced(fopen_call, [&](const char *path, const char *mode) -> FILE * {
        seen_path = path;
        seen_mode = mode;
        return nullptr;
    });
    CHAR buffer[40];
    readUUID(buffer, sizeof buffer);
    EXPECT_EQ(seen_path, "/proc/sys/kernel/random/uuid");
    EXPECT_EQ(seen_mode, "r");
}

TEST(IdentifierSource, ThatCannotBeOpenedGivesZeroAndAZeroFilledBuffer)
{
    replaced_call replaced(fopen_call, [](const char *, const char *) -> FILE * {
        errno = EACCES;
        return nullptr;
    });
    CHAR buffer[41];
    memset(buffer, 'x', sizeof buffer);
    errno = 0;
    EXPECT_EQ(readUUID(buffer, 40), 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(std::string(buffer, 41), repeated('\0', 40) + "x");
}

TEST(IdentifierSource, IsCutToTheBufferLessTheTerminator)
{
    identifier_source source("0123456789\nsecond line\n");
    for (const auto &[size, text] : {std::pair<UINT, std::string>{1, ""},
                                     {2, "0"},
                                     {5, "0123"},
                                     {10, "012345678"},
                                     {11, "0123456789"},
                                     {12, "0123456789\n"},
                                     {13, "0123456789\n"},
                                     {40, "0123456789\n"}}) {
        guarded_bytes buffer(size);
        memset(buffer.data(), 'x', size);
        EXPECT_EQ(readUUID(buffer.text(), size), 1);
        EXPECT_EQ(std::string(buffer.text(), size), text + repeated('\0', size - text.size())) << size;
    }
}

TEST(IdentifierSource, LeavesABufferOfNoBytesAlone)
{
    CHAR byte = 'x';
    EXPECT_EQ(readUUID(&byte, 0), 1);
    EXPECT_EQ(byte, 'x');
}

TEST(IdentifierSource, ThatIsEmptyGivesOneAndAZeroFilledBuffer)
{
    identifier_source source("");
    CHAR buffer[41];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(readUUID(buffer, 40), 1);
    EXPECT_EQ(std::string(buffer, 41), repeated('\0', 40) + "x");
}

TEST(IdentifierSource, WhoseReadFailsGivesOneAndAZeroFilledBuffer)
{
    // Four characters, then an error.
    replaced_call replaced(fopen_call, [](const char *, const char *) {
        static bool has_read;
        has_read = false;
        const auto read_once = [](void *, char *bytes, size_t) -> ssize_t {
            if (has_read) {
                errno = EIO;
                return -1;
            }
            has_read = true;
            memcpy(bytes, "ab12", 4);
            return 4;
        };
        return fopencookie(nullptr, "r", {read_once, nullptr, nullptr, nullptr});
    });
    CHAR buffer[41];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(readUUID(buffer, 40), 1);
    EXPECT_EQ(std::string(buffer, 41), repeated('\0', 40) + "x");
}

TEST(IdentifierSource, IsClosedAfterEachReading)
{
    CHAR buffer[40];
    const size_t before = open_descriptor_count();
    for (int i = 0; i < 5; ++i)
        readUUID(buffer, sizeof buffer);
    EXPECT_EQ(open_descriptor_count(), before);
}

TEST(HexadecimalPair, GivesTheValueOfTwoDigitsOfEitherCase)
{
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    for (unsigned value = 0; value < 256; ++value) {
        for (const std::string &high : {lower, upper})
            for (const std::string &low : {lower, upper}) {
                const CHAR pair[] = {high[value / 16], low[value % 16], '\0'};
                EXPECT_EQ(parseHexByteString(pair), value) << pair;
            }
    }
}

TEST(HexadecimalPair, StopsAtTheFirstCharacterThatIsNoDigit)
{
    EXPECT_EQ(parseHexByteString("7z"), 7);
    EXPECT_EQ(parseHexByteString("zz"), 0);
    EXPECT_EQ(parseHexByteString("z7"), 0);
    EXPECT_EQ(parseHexByteString("f-"), 15);
    EXPECT_EQ(parseHexByteString("g0"), 0);
    EXPECT_EQ(parseHexByteString(":1"), 0);
    EXPECT_EQ(parseHexByteString("A"), 10);
    EXPECT_EQ(parseHexByteString("\0a"), 0);
}

TEST(HexadecimalPair, TakesSpaceSignAndPrefixAsTheStandardConversionDoes)
{
    EXPECT_EQ(parseHexByteString(" 7"), 7);
    EXPECT_EQ(parseHexByteString("\t7"), 7);
    EXPECT_EQ(parseHexByteString("+b"), 11);
    EXPECT_EQ(parseHexByteString("0x"), 0);
}

TEST(HexadecimalPair, LooksAtTwoCharactersOnly)
{
    EXPECT_EQ(parseHexByteString("123456"), 0x12);
    guarded_bytes pair("c4", 2);
    EXPECT_EQ(parseHexByteString(pair.text()), 0xc4);
}

TEST(GuidCreation, StoresTheBytesInTheOrderOfTheText)
{
    identifier_source source("01234567-89ab-cdef-fedc-ba9876543210\n");
    EXPECT_EQ(create_guid(), (guid_bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xfe, 0xdc, 0xba,
                                         0x98, 0x76, 0x54, 0x32, 0x10}));
}

TEST(GuidCreation, AcceptsUpperCaseAndAnySeparators)
{
    identifier_source source("FFEEDDCC BBAAx9988_7766.554433221102");
    EXPECT_EQ(create_guid(), (guid_bytes{0xff, 0xee, 0xdd, 0xcc, 0xbb, 0xaa, 0x99, 0x88, 0x77, 0x66, 0x55,
                                         0x44, 0x33, 0x22, 0x11, 0x02}));
}

TEST(GuidCreation, DeliversOnlyZeroesBehindTheFirstZeroByte)
{
    for (size_t zero_at = 0; zero_at < 16; ++zero_at) {
        std::string text = "a1a2a3a4-b1b2-c1c2-d1d2-e1e2e3e4e5e6\n";
        guid_bytes expected = {0xa1, 0xa2, 0xa3, 0xa4, 0xb1, 0xb2, 0xc1, 0xc2,
                               0xd1, 0xd2, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6};
        const size_t hyphens_before = (zero_at >= 4) + (zero_at >= 6) + (zero_at >= 8) + (zero_at >= 10);
        text.replace(2 * zero_at + hyphens_before, 2, "00");
        std::fill(expected.begin() + static_cast<ptrdiff_t>(zero_at), expected.end(), BYTE{0});
        identifier_source source(text);
        EXPECT_EQ(create_guid(), expected) << text;
    }
}

TEST(GuidCreation, ReadsWhatIsNoHexadecimalDigitAsTheStandardConversionDoes)
{
    identifier_source source("7zf!A-42-b1b2-c1c2-d1d2-e1e2e3e4e5e6\n");
    EXPECT_EQ(create_guid(), (guid_bytes{0x07, 0x0f, 0x0a, 0x42, 0xb1, 0xb2, 0xc1, 0xc2, 0xd1, 0xd2, 0xe1,
                                         0xe2, 0xe3, 0xe4, 0xe5, 0xe6}));
}

TEST(GuidCreation, FromAShortOrEmptySourceSucceedsWithZeroesForWhatIsMissing)
{
    {
        identifier_source source("a1b2c");
        EXPECT_EQ(create_guid(), (guid_bytes{0xa1, 0xb2, 0x0c}));
    }
    {
        identifier_source source("");
        EXPECT_EQ(create_guid(), guid_bytes{});
    }
}

TEST(GuidCreation, ReadsNoFurtherThanTheFirstLine)
{
    identifier_source source("a1b2\nc3d4e5f6a7b8c9d0e1f2a3b4c5d6e7f8\n");
    EXPECT_EQ(create_guid(), (guid_bytes{0xa1, 0xb2}));
}

TEST(GuidCreation, WithoutASourceGivesZeroAndLeavesTheGuidUnchanged)
{
    replaced_call replaced(fopen_call, [](const char *, const char *) -> FILE * { return nullptr; });
    guid_bytes guid;
    guid.fill(0xEE);
    const guid_bytes before = guid;
    EXPECT_EQ(OS_create_guid(guid.data()), 0);
    EXPECT_EQ(guid, before);
}

TEST(GuidCreation, WritesSixteenBytes)
{
    identifier_source source("ffffffff-ffff-ffff-ffff-ffffffffffff\n");
    guarded_bytes guid(16);
    EXPECT_NE(OS_create_guid(guid.data()), 0);
    EXPECT_EQ(std::count(guid.data(), guid.end(), 0xff), 16);
}

TEST(GuidCreation, FromTheKernelGivesDistinctGuidsThatAreZeroBehindTheFirstZeroByte)
{
    std::vector<guid_bytes> drawn;
    for (int i = 0; i < 500; ++i) {
        const guid_bytes guid = create_guid();
        const auto first_zero = std::find(guid.begin(), guid.end(), 0);
        EXPECT_EQ(std::count(first_zero, guid.end(), 0), guid.end() - first_zero);
        if (first_zero - guid.begin() > 8)  // enough random bytes to tell it from every other
            drawn.push_back(guid);
    }
    ASSERT_GT(drawn.size(), 250u);
    std::sort(drawn.begin(), drawn.end());
    EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());
    for (const guid_bytes &guid : drawn)
        EXPECT_EQ(guid[6] >> 4, 4);  // the kernel's identifiers are of version 4
}

TEST(GuidCreation, WorksOnSeveralThreadsAtOnce)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                const guid_bytes guid = create_guid();
                CHAR text[33];
                EXPECT_EQ(OS_guid_to_string(guid.data(), text), 0);
                EXPECT_EQ(parseHexByteString(text + 2 * 5), guid[5]);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(GuidText, IsThirtyTwoLowerCaseDigitsAndATerminator)
{
    BYTE guid[16];
    for (BYTE i = 0; i < 16; ++i)
        guid[i] = i;
    guarded_bytes text(33);
    memset(text.data(), 'x', text.size());
    EXPECT_EQ(OS_guid_to_string(guid, text.text()), 0);
    EXPECT_STREQ(text.text(), "000102030405060708090a0b0c0d0e0f");
}

TEST(GuidText, ShowsEveryByteValueInEveryPlace)
{
    for (unsigned value = 0; value < 256; ++value) {
        BYTE guid[16];
        std::string expected;
        for (unsigned i = 0; i < 16; ++i) {
            guid[i] = static_cast<BYTE>(value + i);
            expected += "0123456789abcdef"[guid[i] / 16];
            expected += "0123456789abcdef"[guid[i] % 16];
        }
        CHAR text[33];
        EXPECT_EQ(OS_guid_to_string(guid, text), 0);
        EXPECT_EQ(text, expected);
    }
}

TEST(GuidText, OfANullPointerIsRefusedAndNothingIsWritten)
{
    const BYTE guid[16] = {};
    CHAR text[33];
    memset(text, 'x', sizeof text);
    errno = SENTINEL_ERRNO;
    EXPECT_EQ(OS_guid_to_string(nullptr, text), -1);
    EXPECT_EQ(std::string(text, 33), repeated('x', 33));
    EXPECT_EQ(OS_guid_to_string(guid, nullptr), -1);
    EXPECT_EQ(OS_guid_to_string(nullptr, nullptr), -1);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

// ---- Without effect on this platform

TEST(ServicesWithoutEffect, WriteNothingAnywhere)
{
    const child_result child = run_in_child([] {
        int count = -1;
        OS_debug_output("text %d %s%n\n", 1, "two", &count);
        EXPECT_EQ(count, -1);
        OS_message_queue_refresh();
        _OS_sys_info_print();
    });
    EXPECT_TRUE(child.succeeded()) << child.describe();
    EXPECT_EQ(child.out, "");
    EXPECT_EQ(child.err, "");
}

TEST(ServicesWithoutEffect, GctrlInitGivesZeroAnyNumberOfTimes)
{
    EXPECT_EQ(OS_sys_gctrl_init(), 0);
    EXPECT_EQ(OS_sys_gctrl_init(), 0);
}
