// GUIDs: creation from the identifier source, and their text.

#include "foundation/os.h"

#include "os/osunix_identifiers.h"
#include "support/guarded_bytes.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using guid_bytes = std::array<BYTE, 16>;

constexpr guid_bytes guid_before_drawing = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                                            0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

// What a creation reports and leaves in the output.
struct drawing {
    bool is_success;
    guid_bytes guid;

    bool operator==(const drawing &) const = default;
};

void PrintTo(const drawing &drawn, std::ostream *stream)
{
    *stream << (drawn.is_success ? "success, " : "failure, ") << testing::PrintToString(drawn.guid);
}

drawing draw()
{
    guid_bytes guid = guid_before_drawing;
    const bool is_success = OS_create_guid(guid.data()) != 0;
    return {is_success, guid};
}

void expect_guid_from(const std::string &source_text, const guid_bytes &expected)
{
    const identifier_source source(source_text);
    EXPECT_EQ(draw(), (drawing{true, expected})) << "from the source " << source_text;
}

// Enough of its random bytes are left in front of the first zero byte.
bool is_told_from_every_other(const guid_bytes &guid)
{
    return std::find(guid.begin(), guid.end(), 0) - guid.begin() > 8;
}

void expect_distinct_random_guids(std::vector<guid_bytes> guids)
{
    std::sort(guids.begin(), guids.end());
    EXPECT_EQ(std::adjacent_find(guids.begin(), guids.end()), guids.end()) << "one was drawn twice";
    for (const guid_bytes &guid : guids)
        EXPECT_EQ(guid[6] >> 4, 4) << "the kernel's identifiers are of version 4";
}

}  // namespace

// ---- Creation

TEST(GuidCreation, StoresTheBytesInTheOrderOfTheText)
{
    expect_guid_from("01234567-89ab-cdef-fedc-ba9876543210\n",
                     guid_bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xfe, 0xdc, 0xba, 0x98, 0x76,
                                0x54, 0x32, 0x10});
}

TEST(GuidCreation, AcceptsUpperCaseAndAnySeparators)
{
    expect_guid_from("FFEEDDCC BBAAx9988_7766.554433221102",
                     guid_bytes{0xff, 0xee, 0xdd, 0xcc, 0xbb, 0xaa, 0x99, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33,
                                0x22, 0x11, 0x02});
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
        expect_guid_from(text, expected);
    }
}

TEST(GuidCreation, ReadsWhatIsNoHexadecimalDigitAsTheStandardConversionDoes)
{
    expect_guid_from("7zf!A-42-b1b2-c1c2-d1d2-e1e2e3e4e5e6\n",
                     guid_bytes{0x07, 0x0f, 0x0a, 0x42, 0xb1, 0xb2, 0xc1, 0xc2, 0xd1, 0xd2, 0xe1, 0xe2, 0xe3,
                                0xe4, 0xe5, 0xe6});
}

TEST(GuidCreation, FromAShortOrEmptySourceSucceedsWithZeroesForWhatIsMissing)
{
    expect_guid_from("a1b2c", guid_bytes{0xa1, 0xb2, 0x0c});
    expect_guid_from("", guid_bytes{});
}

TEST(GuidCreation, FromASourceThatCannotBeReadSucceedsWithZeroes)
{
    answering_identifier_source source(nullptr);
    EXPECT_EQ(draw(), (drawing{true, guid_bytes{}}));
}

// A scratch text of forty bytes, which the platform sees.
TEST(GuidCreation, ReadsItsSourceOnceWithRoomForFortyBytes)
{
    answering_identifier_source source("01234567-89ab-cdef-fedc-ba9876543210\n");
    BYTE guid[16];
    platform_trace trace({{source.stream(), "source"}});
    errno = SENTINEL_ERRNO;
    EXPECT_NE(OS_create_guid(guid), 0);
    EXPECT_EQ(errno, SENTINEL_ERRNO) << "errno was not left alone";
    const steps expected = {"fopen(\"/proc/sys/kernel/random/uuid\", \"r\")", "fgets(unknown, 40, source)",
                            "fclose(source)"};
    EXPECT_EQ(trace.calls(), expected);
}

TEST(GuidCreation, ReadsNoFurtherThanTheFirstLine)
{
    expect_guid_from("a1b2\nc3d4e5f6a7b8c9d0e1f2a3b4c5d6e7f8\n", guid_bytes{0xa1, 0xb2});
}

TEST(GuidCreation, WithoutASourceGivesZeroAndLeavesTheGuidUnchanged)
{
    missing_identifier_source source;
    EXPECT_EQ(draw(), (drawing{false, guid_before_drawing}));
    EXPECT_EQ(errno, EACCES);
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
        const guid_bytes guid = draw().guid;
        const auto first_zero = std::find(guid.begin(), guid.end(), 0);
        EXPECT_EQ(std::count(first_zero, guid.end(), 0), guid.end() - first_zero);
        if (is_told_from_every_other(guid))
            drawn.push_back(guid);
    }
    ASSERT_GT(drawn.size(), 250u);
    expect_distinct_random_guids(drawn);
}

TEST(GuidCreation, GivesEachOfSeveralThreadsItsOwn)
{
    constexpr size_t THREADS = 4;
    std::vector<guid_bytes> drawn[THREADS];
    std::vector<std::thread> threads;
    for (std::vector<guid_bytes> &drawn_by_one : drawn)
        threads.emplace_back([&drawn_by_one] {
            for (int round = 0; round < 50; ++round)
                drawn_by_one.push_back(draw().guid);
        });
    for (std::thread &thread : threads)
        thread.join();
    std::vector<guid_bytes> all;
    for (const std::vector<guid_bytes> &drawn_by_one : drawn)
        for (const guid_bytes &guid : drawn_by_one)
            if (is_told_from_every_other(guid))
                all.push_back(guid);
    expect_distinct_random_guids(all);
}

// ---- Text

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
        EXPECT_EQ(text, expected) << "from the first byte " << value;
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
