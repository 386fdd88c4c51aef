// The identifier source and hexadecimal pairs.

#include "foundation/os.h"

#include "os/osunix_identifiers.h"
#include "support/guarded_bytes.h"
#include "support/repeated_memory.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <filesystem>
#include <string>

namespace {

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

// ---- Identifier source

TEST(IdentifierSource, GivesTheKernelsIdentifierAsOneLineAndZeroBytesBehindIt)
{
    CHAR buffer[64];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(readUUID(buffer, 60), 1);
    const std::string text(buffer, 36);
    EXPECT_TRUE(is_identifier_text(text)) << text;
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

TEST(IdentifierSource, ThatCannotBeOpenedGivesZeroAndAZeroFilledBuffer)
{
    missing_identifier_source source;
    CHAR buffer[41];
    memset(buffer, 'x', sizeof buffer);
    platform_trace trace;
    errno = 0;
    EXPECT_EQ(readUUID(buffer, 40), 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(trace.calls(), steps{"fopen(\"/proc/sys/kernel/random/uuid\", \"r\")"});
    EXPECT_EQ(std::string(buffer, 41), repeated('\0', 40) + "x");
}

// What the platform is asked for a buffer of `size` bytes, and what stands in the buffer when it fails.
TEST(IdentifierSource, IsOpenedReadAndClosedOnceWithTheSizeOfTheBuffer)
{
    for (const UINT size : {0U, 1U, 2U, 39U, 40U, 41U, 4096U}) {
        CHAR buffer[4097];
        memset(buffer, 'x', sizeof buffer);
        answering_identifier_source source(nullptr);
        platform_trace trace({{buffer, "buffer"}, {source.stream(), "source"}});
        errno = SENTINEL_ERRNO;
        EXPECT_EQ(readUUID(buffer, size), 1);
        const steps expected = {"fopen(\"/proc/sys/kernel/random/uuid\", \"r\")",
                                "fgets(buffer, " + std::to_string(size) + ", source)", "fclose(source)"};
        EXPECT_EQ(trace.calls(), expected);
        EXPECT_EQ(errno, SENTINEL_ERRNO) << "errno was not left alone";
        EXPECT_EQ(std::string(buffer, size + 1), repeated('\0', size) + "x");
    }
}

// The platform takes a signed size.
TEST(IdentifierSource, IsReadWithTheHighestSizeOfThePlatformIntoABufferOf2GiBOrMore)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr UINT size = UINT32_C(1) << 31;
    repeated_memory buffer(size);
    answering_identifier_source source("line\n");
    platform_trace trace({{buffer.text(), "buffer"}, {source.stream(), "source"}});
    EXPECT_EQ(readUUID(buffer.text(), size), 1);
    const steps expected = {"fopen(\"/proc/sys/kernel/random/uuid\", \"r\")",
                            "fgets(buffer, 2147483647, source)", "fclose(source)"};
    EXPECT_EQ(trace.calls(), expected);
    EXPECT_STREQ(buffer.text(), "line\n");
}

TEST(IdentifierSource, IsCutToTheBufferLessTheTerminatorForEverySize)
{
    const std::string line = "0123456789abcdef\n";
    identifier_source source(line + "second line\n");
    for (UINT size = 1; size <= 64; ++size) {
        guarded_bytes buffer(size);
        memset(buffer.data(), 'x', size);
        EXPECT_EQ(readUUID(buffer.text(), size), 1);
        const std::string text = line.substr(0, size - 1);
        EXPECT_EQ(std::string(buffer.text(), size), text + repeated('\0', size - text.size()))
            << "a buffer of " << size << " bytes";
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

// ---- Hexadecimal pairs

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
