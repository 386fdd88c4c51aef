// Text wrappers, and the services that have no effect.

#include "foundation/os.h"

#include "os/osunix_fixture.h"
#include "support/guarded_bytes.h"
#include "support/platform_trace.h"
#include "support/repeated_memory.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <stdarg.h>
#include <string.h>
#include <unistd.h>

#include <string>

// ---- Bounded copies

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

// The count is unsigned: read as a negative number it would become a far larger one.
TEST(BoundedCopy, TakesACountOf2GiB)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr UINT count = UINT32_C(1) << 31;
    repeated_memory destination(count);
    destination.text()[100] = 'x';
    EXPECT_EQ(OS_strncpy(destination.text(), "abc", count), destination.text());
    EXPECT_EQ(destination.text()[100], '\0') << "the padding did not come this far";
}

// ---- Text cursors

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

// ---- Formatting

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

// What the platform answers, through the one call that formatting makes of it.
TEST(Formatting, IsOneCallOfThePlatformWhoseResultAndErrnoArePassedBack)
{
    CHAR text[16];
    for (const int result : {0, 7, -1, INT32_MAX, INT32_MIN}) {
        replaced_call replaced(vsprintf_call, [=](char *, const char *, va_list) {
            errno = EOVERFLOW;
            return result;
        });
        platform_trace trace({{text, "text"}});
        errno = 0;
        EXPECT_EQ(OS_sprintf(text, "%d and %s", 1, "two"), result);
        EXPECT_EQ(errno, EOVERFLOW);
        EXPECT_EQ(trace.calls(), steps{"vsprintf(text, \"%d and %s\")"});
    }
}

TEST(Formatting, LeavesErrnoAloneOnSuccess)
{
    CHAR text[16];
    errno = SENTINEL_ERRNO;
    OS_sprintf(text, "%d", 1);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

// ---- Message box

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
