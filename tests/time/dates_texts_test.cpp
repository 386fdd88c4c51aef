// DATE texts to records, and back.

#include "time/dates_fixture.h"

#include "support/guarded_bytes.h"

#include <gtest/gtest.h>

#include <string.h>

#include <array>
#include <string>
#include <type_traits>
#include <vector>

static_assert(std::is_same_v<decltype(ZT_DATE::year), WORD>);
static_assert(std::is_same_v<decltype(ZT_DATE::month), WORD>);
static_assert(std::is_same_v<decltype(ZT_DATE::day), WORD>);
static_assert(std::is_same_v<decltype(_Mon), const CHAR *const[12]>);
static_assert(has_type<ZT_BOOL(const CHAR *, ZT_DATE *)>(convert_DATE_to_ZT_DATE));
static_assert(has_type<ZT_BOOL(const ZT_DATE *, CHAR *)>(convert_ZT_DATE_to_DATE));

namespace {

// The result and what the record holds afterwards, such as "1: 2026-11-15". It held 1111-222-333 before.
std::string record_after_reading(const CHAR *text)
{
    ZT_DATE date = {1111, 222, 333};
    const ZT_BOOL result = convert_DATE_to_ZT_DATE(text, &date);
    return std::to_string(result) + ": " + shown(date);
}

std::string read_date(const std::string &text)
{
    return record_after_reading(at_border(text));
}

// The buffer has room for the text and its terminator, and not a byte more.
void expect_written(const ZT_DATE &date, const std::string &expected)
{
    guarded_bytes buffer(expected.size() + 1);
    memset(buffer.data(), '#', buffer.size());
    EXPECT_EQ(convert_ZT_DATE_to_DATE(&date, buffer.text()), 1) << shown(date);
    EXPECT_STREQ(buffer.text(), expected.c_str()) << shown(date);
}

const std::vector<month_rule> reader_rules = {
    {"Ja?", 1}, {"Feb", 2}, {"Mar", 3}, {"Apr", 4},  {"May", 5},  {"Jun", 6},
    {"Jul", 7}, {"Aug", 8}, {"Sep", 9}, {"Oct", 10}, {"Nov", 11}, {"Dec", 12},
};

// What record_after_reading gives for the 15th of that month in 2026.
std::string expected_reading(const std::string &letters)
{
    const int month = value_by(reader_rules, letters);
    return month != 0 ? "1: " + shown(ZT_DATE{2026, static_cast<WORD>(month), 15}) : "0: 2026-222-15";
}

}  // namespace

// ---- Texts to records

TEST(DateTextReader, ReadsAllThreeFields)
{
    EXPECT_EQ(read_date("Nov 15 2026"), "1: 2026-11-15");
}

TEST(DateTextReader, ReadsDaysPaddedWithASpaceOrAZero)
{
    EXPECT_EQ(read_date("Nov  5 2026"), "1: 2026-11-05");
    EXPECT_EQ(read_date("Nov 05 2026"), "1: 2026-11-05");
}

TEST(DateTextReader, KnowsTheTwelveMonths)
{
    for (WORD month = 1; month <= 12; ++month)
        EXPECT_EQ(read_date(month_texts[month - 1] + " 15 2026"), "1: " + shown(ZT_DATE{2026, month, 15}));
}

TEST(DateTextReader, DoesNotTestTheThirdLetterOfJanuary)
{
    EXPECT_EQ(read_date("Jax 01 2026"), "1: 2026-01-01");
    EXPECT_EQ(read_date("Ja\xe4 01 2026"), "1: 2026-01-01");
}

TEST(DateTextReader, StoresYearAndDayAndKeepsTheMonthWhenTheMonthIsUnknown)
{
    EXPECT_EQ(read_date("nov 15 2026"), "0: 2026-222-15");
    EXPECT_EQ(read_date("NOV  5 9999"), "0: 9999-222-05");
    EXPECT_EQ(read_date("\xff\xff\xff 31 0001"), "0: 0001-222-31");
}

TEST(DateTextReader, TestsEveryLetterButTheThirdOfJanuary)
{
    for (const std::string &letters : months_with_one_wrong_letter()) {
        if (letters.find('\0') != std::string::npos)
            continue;  // that ends the text
        ASSERT_EQ(read_date(letters + " 15 2026"), expected_reading(letters))
            << testing::PrintToString(letters);
    }
}

TEST(DateTextReader, KnowsNoOtherMonthOfThreeLetters)
{
    for (const std::string &letters : three_letter_texts())
        ASSERT_EQ(read_date(letters + " 15 2026"), expected_reading(letters)) << letters;
}

TEST(DateTextReader, RejectsATextBelowElevenCharactersAndLeavesTheRecord)
{
    const std::string text = "Nov 15 2026";
    for (size_t length = 0; length < DATE_TEXT_LENGTH; ++length) {
        guarded_bytes shorter(text.substr(0, length).c_str(), length + 1);
        EXPECT_EQ(record_after_reading(shorter.text()), "0: 1111-222-333") << length << " characters";
    }
}

TEST(DateTextReader, TakesATerminatorAnywhereForTheEnd)
{
    for (size_t length = 0; length < DATE_TEXT_LENGTH; ++length) {
        std::string text = "Nov 15 2026";
        text[length] = '\0';
        EXPECT_EQ(read_date(text), "0: 1111-222-333") << length << " characters";
    }
}

TEST(DateTextReader, IgnoresWhatFollowsElevenCharacters)
{
    EXPECT_EQ(record_after_reading("Nov 15 2026"), "1: 2026-11-15");
    EXPECT_EQ(record_after_reading("Nov 15 20267"), "1: 2026-11-15");
    EXPECT_EQ(record_after_reading("Nov 15 2026 08:50:43"), "1: 2026-11-15");
}

TEST(DateTextReader, ChecksNoDay)
{
    EXPECT_EQ(read_date("Feb 31 2026"), "1: 2026-02-31");
    EXPECT_EQ(read_date("Feb 00 0000"), "1: 0000-02-00");
    EXPECT_EQ(read_date("Dec 99 9999"), "1: 9999-12-99");
}

TEST(DateTextReader, ChecksNoSeparator)
{
    EXPECT_EQ(read_date("Nov-15/2026"), "1: 2026-11-15");
    EXPECT_EQ(read_date("Nov\xff"
                        "15\x01"
                        "2026"),
              "1: 2026-11-15");
}

// See the ordinal of such texts; the fields hold 16 bits.
TEST(DateTextReader, TakesAnyCharacterForADigit)
{
    EXPECT_EQ(read_date("Nov :: 2026"), "1: 2026-11-110");
    EXPECT_EQ(read_date("Nov 15 20/6"), "1: 1996-11-15");
    EXPECT_EQ(read_date("Nov 1  2026"), "1: 2026-11-65530");   // 10 - 16
    EXPECT_EQ(read_date("Nov \t5 2026"), "1: 2026-11-65151");  // -390 + 5
    EXPECT_EQ(read_date("Nov \xff"
                        "5 2026"),
              "1: 2026-11-65051");                               // -490 + 5
    EXPECT_EQ(read_date("Nov 0\xff 2026"), "1: 2026-11-65487");  // -49
    EXPECT_EQ(read_date("Nov 15 202\xff"), "1: 1971-11-15");     // 2020 - 49
    EXPECT_EQ(read_date("Nov 15 \x80"
                        "000"),
              "1: 20608-11-15");  // -176000 + 3 * 65536
}

TEST(DateTextReader, StoresYearMonthAndDayInThatOrder)
{
    std::array<WORD, 3> fields = {};
    static_assert(sizeof fields == sizeof(ZT_DATE));
    EXPECT_EQ(convert_DATE_to_ZT_DATE("Nov 15 2026", reinterpret_cast<ZT_DATE *>(fields.data())), 1);
    EXPECT_EQ(fields, (std::array<WORD, 3>{2026, 11, 15}));
}

TEST(DateTextReader, WritesNothingBesideTheRecord)
{
    ZT_DATE dates[3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    EXPECT_EQ(convert_DATE_to_ZT_DATE("Nov 15 2026", &dates[1]), 1);
    EXPECT_EQ(shown(dates[0]), "0001-02-03");
    EXPECT_EQ(shown(dates[1]), "2026-11-15");
    EXPECT_EQ(shown(dates[2]), "0007-08-09");
}

// ---- Records to texts

TEST(DateTextWriter, PadsTheDayWithAZero)
{
    expect_written({2026, 11, 5}, "Nov 05 2026");
    expect_written({2026, 11, 15}, "Nov 15 2026");
}

TEST(DateTextWriter, PadsTheYearToFourDigits)
{
    expect_written({0, 1, 1}, "Jan 01 0000");
    expect_written({987, 1, 1}, "Jan 01 0987");
}

TEST(DateTextWriter, WritesTheTwelveMonths)
{
    for (WORD month = 1; month <= 12; ++month)
        expect_written({2026, month, 28}, month_texts[month - 1] + " 28 2026");
}

TEST(DateTextWriter, ChecksNeitherDayNorYear)
{
    expect_written({2026, 2, 31}, "Feb 31 2026");
    expect_written({2026, 2, 0}, "Feb 00 2026");
    expect_written({2026, 2, 123}, "Feb 123 2026");
    expect_written({12345, 2, 3}, "Feb 03 12345");
    expect_written({65535, 12, 65535}, "Dec 65535 65535");
}

TEST(DateTextWriter, WritesNothingForAnyOtherMonth)
{
    CHAR text[16];
    memset(text, '#', sizeof text);
    for (int month = 0; month <= 65535; ++month) {
        if (month >= 1 && month <= 12)
            continue;
        const ZT_DATE date = {2026, static_cast<WORD>(month), 15};
        ASSERT_EQ(convert_ZT_DATE_to_DATE(&date, text), 0) << month;
        ASSERT_EQ(std::string(text, sizeof text), std::string(sizeof text, '#')) << month;
    }
}

TEST(DateTextWriter, FormatsTheTablesTextAndTheTwoNumbersInOneCallWhateverItReturns)
{
    std::vector<std::string> formats;
    CHAR text[16] = "untouched";
    const replaced_call replaced(vsprintf_call,
                                 [&](char *destination, const char *format, va_list arguments) {
                                     formats.push_back(format);
                                     va_list copy;
                                     va_copy(copy, arguments);
                                     EXPECT_EQ(destination, text);
                                     EXPECT_EQ(va_arg(copy, const char *), _Mon[10]);
                                     EXPECT_EQ(va_arg(copy, int), 65535) << "the day";
                                     EXPECT_EQ(va_arg(copy, int), 65534) << "the year";
                                     va_end(copy);
                                     return -1;
                                 });
    const ZT_DATE date = {65534, 11, 65535};
    EXPECT_EQ(convert_ZT_DATE_to_DATE(&date, text), 1);
    EXPECT_EQ(formats, (std::vector<std::string>{"%s %02i %04i"}));
    EXPECT_STREQ(text, "untouched");
}

TEST(DateTextWriter, WritesWhatTheReaderReads)
{
    for (int year = 0; year <= 9999; year += 11)
        for (WORD month = 1; month <= 12; ++month)
            for (WORD day = 1; day <= 31; ++day) {
                const ZT_DATE date = {static_cast<WORD>(year), month, day};
                CHAR text[DATE_TEXT_LENGTH + 1];
                ASSERT_EQ(convert_ZT_DATE_to_DATE(&date, text), 1) << shown(date);
                ASSERT_EQ(record_after_reading(text), "1: " + shown(date));
            }
}

TEST(MonthTable, HoldsTheTwelveAbbreviationsJanuaryFirst)
{
    for (size_t month = 0; month < 12; ++month)
        EXPECT_STREQ(_Mon[month], month_texts[month].c_str());
}
