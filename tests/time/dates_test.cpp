// Dates and time, compared with the C library's calendar. The tests named after places need zone data.

#include "foundation/date.h"

#include "support/guarded_bytes.h"
#include "support/platform_call.h"

#include <gtest/gtest.h>

#include <ctype.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

// ---- The record is two bytes a field in the documented order, and records travel by address

static_assert(sizeof(ZT_DATE) == 6 && sizeof(ZT_DATETIME) == 12);
static_assert(offsetof(ZT_DATE, year) == 0 && offsetof(ZT_DATE, month) == 2 && offsetof(ZT_DATE, day) == 4);
static_assert(offsetof(ZT_DATETIME, year) == 0 && offsetof(ZT_DATETIME, month) == 2 &&
              offsetof(ZT_DATETIME, day) == 4 && offsetof(ZT_DATETIME, hour) == 6 &&
              offsetof(ZT_DATETIME, minute) == 8 && offsetof(ZT_DATETIME, second) == 10);
static_assert(std::is_same_v<decltype(ZT_DATE::year), WORD>);
static_assert(std::is_same_v<decltype(ZT_DATE::month), WORD>);
static_assert(std::is_same_v<decltype(ZT_DATE::day), WORD>);
static_assert(std::is_same_v<decltype(_Mon), const CHAR *const[12]>);

// Function types are compared by conversion: a template argument loses a prototype's attributes, noisily.
template <typename Function> constexpr bool has_type(Function *)
{
    return true;
}
static_assert(has_type<LONG(const CHAR *)>(cal_ord_ref_date_from_DATE));
static_assert(has_type<ZT_BOOL(const CHAR *, ZT_DATE *)>(convert_DATE_to_ZT_DATE));
static_assert(has_type<ZT_BOOL(const ZT_DATE *, CHAR *)>(convert_ZT_DATE_to_DATE));
static_assert(has_type<void(ZT_DATETIME *, double)>(OS_epoch_to_date));
static_assert(has_type<LONG(const ZT_DATE *)>(OS_ref_day_count_get));

// ---- The clock

namespace {

constinit platform_call<time_t(time_t *)> time_call{"time"};

}  // namespace

extern "C" time_t time(time_t *result) noexcept
{
    return time_call(result);
}

constinit platform_call<time_t(tm *)> mktime_call{"mktime"};

extern "C" time_t mktime(tm *fields) noexcept
{
    return mktime_call(fields);
}

namespace {

time_t store_reading(time_t reading, time_t *result)
{
    if (result != nullptr)
        *result = reading;
    return reading;
}

// The platform's clock shows one moment for as long as this lives, and counts who looks at it.
class stopped_clock {
public:
    explicit stopped_clock(time_t reading)
        : replaced_(time_call, [this, reading](time_t *result) {
              ++times_read_;
              return store_reading(reading, result);
          })
    {
    }
    unsigned times_read() const { return times_read_; }

private:
    unsigned times_read_ = 0;
    replaced_call<time_t(time_t *)> replaced_;
};

// Sets TZ for as long as it lives. The C library is not told (no tzset): whoever converts has to look.
class time_zone {
public:
    explicit time_zone(const std::string &value)
    {
        if (const char *former = getenv("TZ"))
            former_ = former;
        setenv("TZ", value.c_str(), 1);
    }
    ~time_zone()
    {
        if (former_)
            setenv("TZ", former_->c_str(), 1);
        else
            unsetenv("TZ");
    }
    time_zone(const time_zone &) = delete;
    time_zone &operator=(const time_zone &) = delete;

private:
    std::optional<std::string> former_;
};

// Without its data the C library takes a zone for UTC, and most counts would come out right by accident.
bool has_zone_data(const std::string &zone)
{
    const char *directory = getenv("TZDIR");
    const std::string path = directory != nullptr ? directory : "/usr/share/zoneinfo";
    return access((path + "/" + zone).c_str(), R_OK) == 0;
}

#define ASSERT_HAS_ZONE_DATA(zone)                                                                           \
    ASSERT_TRUE(has_zone_data(zone)) << "No time zone data for " << (zone) << ": these tests need tzdata."

// ---- The independent calendar: the C library's, in UTC

constexpr time_t SECONDS_A_DAY = 86400;

time_t seconds_at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    struct tm moment = {};
    moment.tm_year = year - 1900;
    moment.tm_mon = month - 1;
    moment.tm_mday = day;
    moment.tm_hour = hour;
    moment.tm_min = minute;
    moment.tm_sec = second;
    return timegm(&moment);
}

LONG plain_day_count(const ZT_DATE &date)
{
    return (seconds_at(date.year, date.month, date.day) - seconds_at(1900, 1, 1)) / SECONDS_A_DAY;
}

ZT_DATE date_of(const struct tm &moment)
{
    return {static_cast<WORD>(moment.tm_year + 1900), static_cast<WORD>(moment.tm_mon + 1),
            static_cast<WORD>(moment.tm_mday)};
}

// Whether `record` shows that many seconds since 1970.
bool is_moment(const ZT_DATETIME &record, time_t seconds)
{
    struct tm moment;
    gmtime_r(&seconds, &moment);
    return record.year == moment.tm_year + 1900 && record.month == moment.tm_mon + 1 &&
           record.day == moment.tm_mday && record.hour == moment.tm_hour && record.minute == moment.tm_min &&
           record.second == moment.tm_sec;
}

std::string formatted(const char *format, int first, int second, int third)
{
    char text[64];
    snprintf(text, sizeof text, format, first, second, third);
    return text;
}

std::string shown(const ZT_DATE &date)
{
    return formatted("%04d-%02d-%02d", date.year, date.month, date.day);
}

std::string shown(const ZT_DATETIME &record)
{
    return formatted("%04d-%02d-%02d ", record.year, record.month, record.day) +
           formatted("%02d:%02d:%02d", record.hour, record.minute, record.second);
}

// ---- Texts

const std::vector<std::string> month_texts = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr size_t DATE_TEXT_LENGTH = 11;

// The text, without a terminator, right in front of an inaccessible page: nothing behind it can be read.
const CHAR *at_border(const std::string &text)
{
    static guarded_bytes bytes(DATE_TEXT_LENGTH);
    if (text.size() != DATE_TEXT_LENGTH)
        throw std::invalid_argument("a DATE text has eleven characters: " + text);
    memcpy(bytes.data(), text.data(), DATE_TEXT_LENGTH);
    return bytes.text();
}

LONG ordinal(const std::string &text)
{
    return cal_ord_ref_date_from_DATE(at_border(text));
}

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

// A question mark stands for any character.
struct month_rule {
    const char *letters;
    int value;
};

// The value of the first rule that fits, 0 for none.
int value_by(const std::vector<month_rule> &rules, const std::string &letters)
{
    const auto fits = [&letters](const month_rule &rule) {
        for (size_t i = 0; i < 3; ++i)
            if (rule.letters[i] != '?' && rule.letters[i] != letters[i])
                return false;
        return true;
    };
    const auto rule = std::find_if(rules.begin(), rules.end(), fits);
    return rule != rules.end() ? rule->value : 0;
}

const std::vector<month_rule> ordinal_rules = {
    {"Ja?", 0},  {"J?n", 150}, {"J??", 180}, {"F??", 30},  {"M?r", 60},  {"M??", 120},
    {"Ap?", 90}, {"A??", 210}, {"S??", 240}, {"O??", 270}, {"N??", 300}, {"???", 330},
};

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

// Each month's text with each of its letters replaced by each of the 255 other characters.
std::vector<std::string> months_with_one_wrong_letter()
{
    std::vector<std::string> texts;
    for (const std::string &month : month_texts)
        for (size_t position = 0; position < 3; ++position)
            for (int code = 0; code < 256; ++code) {
                std::string wrong = month;
                wrong[position] = static_cast<char>(code);
                if (wrong != month)
                    texts.push_back(wrong);
            }
    return texts;
}

std::vector<std::string> three_letter_texts()
{
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    std::vector<std::string> texts;
    for (char first : letters)
        for (char second : letters)
            for (char third : letters)
                texts.push_back({first, second, third});
    return texts;
}

}  // namespace

// ---- Date ordinals

TEST(DateOrdinal, CountsTheDaysOfItsFirstMonth)
{
    EXPECT_EQ(ordinal("Jan 01 1900"), 1);
    EXPECT_EQ(ordinal("Jan 31 1900"), 31);
}

TEST(DateOrdinal, CountsThirtyDaysForEachMonthBefore)
{
    for (size_t month = 0; month < 12; ++month)
        EXPECT_EQ(ordinal(month_texts[month] + " 01 1900"), static_cast<LONG>(30 * month + 1))
            << month_texts[month];
}

TEST(DateOrdinal, Counts356DaysForEachYearSince1900)
{
    EXPECT_EQ(ordinal("Jan 01 1901"), 357);
    EXPECT_EQ(ordinal("Jan 01 1899"), -355);
    EXPECT_EQ(ordinal("Dec 31 2025"), 44861);
    EXPECT_EQ(ordinal("Jan 01 2026"), 44857);
    EXPECT_EQ(ordinal("Jan 01 0000"), -676399);
    EXPECT_EQ(ordinal("Dec 31 9999"), 2883605);
}

TEST(DateOrdinal, PlacesTheLastDaysOfDecemberAboveTheNextFirstOfJanuary)
{
    const LONG first_of_january = ordinal("Jan 01 2026");
    for (const char *text : {"Dec 28 2025", "Dec 29 2025", "Dec 30 2025", "Dec 31 2025"})
        EXPECT_GT(ordinal(text), first_of_january) << text;
    EXPECT_EQ(ordinal("Dec 27 2025"), first_of_january);
    EXPECT_LT(ordinal("Dec 26 2025"), first_of_january);
}

TEST(DateOrdinal, EqualsTheNextFirstOnThe31st)
{
    EXPECT_EQ(ordinal("Jan 31 2026"), ordinal("Feb 01 2026"));
    EXPECT_EQ(ordinal("Oct 31 2026"), ordinal("Nov 01 2026"));
}

TEST(DateOrdinal, TellsMonthsFromTheFewLettersThatItTests)
{
    EXPECT_EQ(ordinal("Jax 01 1900"), 1);
    EXPECT_EQ(ordinal("Jxn 01 1900"), 151);
    EXPECT_EQ(ordinal("Jxx 01 1900"), 181);
    EXPECT_EQ(ordinal("Fxx 01 1900"), 31);
    EXPECT_EQ(ordinal("Mxr 01 1900"), 61);
    EXPECT_EQ(ordinal("Mxx 01 1900"), 121);
    EXPECT_EQ(ordinal("Apx 01 1900"), 91);
    EXPECT_EQ(ordinal("Axx 01 1900"), 211);
    EXPECT_EQ(ordinal("Sxx 01 1900"), 241);
    EXPECT_EQ(ordinal("Oxx 01 1900"), 271);
    EXPECT_EQ(ordinal("Nxx 01 1900"), 301);
    EXPECT_EQ(ordinal("Dxx 01 1900"), 331);
    EXPECT_EQ(ordinal("xxx 01 1900"), 331);
    EXPECT_EQ(ordinal("jan 01 1900"), 331);
}

TEST(DateOrdinal, FollowsTheTestedLettersOfEveryText)
{
    for (const std::string &letters : three_letter_texts())
        ASSERT_EQ(ordinal(letters + " 15 1900"), value_by(ordinal_rules, letters) + 15) << letters;
}

TEST(DateOrdinal, FollowsTheTestedLettersWhateverCharacterIsWrong)
{
    for (const std::string &letters : months_with_one_wrong_letter())
        ASSERT_EQ(ordinal(letters + " 15 1900"), value_by(ordinal_rules, letters) + 15)
            << testing::PrintToString(letters);
}

TEST(DateOrdinal, DoesNotTestTheLength)
{
    EXPECT_EQ(ordinal(std::string("Feb\0"
                                  "02 1901",
                                  11)),
              356 + 2 + 30);
    EXPECT_EQ(ordinal(std::string("Feb 02 190\0", 11)), -48 * 356 + 2 + 30);
}

TEST(DateOrdinal, IgnoresWhatFollowsTheText)
{
    EXPECT_EQ(cal_ord_ref_date_from_DATE("Jan 01 19001234"), 1);
}

TEST(DateOrdinal, CountsASpaceInFrontOfTheDayAsNothing)
{
    EXPECT_EQ(ordinal("Jan  9 1900"), 9);
    EXPECT_EQ(ordinal("Jan 09 1900"), 9);
}

// ':' is ten, '/' minus one and a space minus sixteen. A character above 0x7f is a negative number: 0xff
// is -1, so it counts as -49, and 0x80, which is -128, as -176.
TEST(DateOrdinal, TakesAnyCharacterForADigit)
{
    EXPECT_EQ(ordinal("Jan :: 1900"), 110);
    EXPECT_EQ(ordinal("Jan 1  1900"), 10 - 16);
    EXPECT_EQ(ordinal("Jan 01 189:"), 1);
    EXPECT_EQ(ordinal("Jan 01 1/:0"), (1000 - 100 + 100 - 1900) * 356 + 1);
    EXPECT_EQ(ordinal("Jan \xff"
                      "5 1900"),
              -490 + 5);
    EXPECT_EQ(ordinal("Jan 0\x80 1900"), -176);
    EXPECT_EQ(ordinal("Jan 01 \x80\x80\x80\x80"), (-176 * 1111 - 1900) * 356 + 1);
}

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

// ---- Epoch seconds

namespace {

std::string at_epoch(double seconds)
{
    ZT_DATETIME record;
    memset(&record, 0xee, sizeof record);
    OS_epoch_to_date(&record, seconds);
    return shown(record);
}

void expect_moment(time_t seconds)
{
    ZT_DATETIME record;
    OS_epoch_to_date(&record, static_cast<double>(seconds));
    ASSERT_TRUE(is_moment(record, seconds)) << seconds << " gave " << shown(record);
}

}  // namespace

TEST(EpochToDate, CountsFrom1970)
{
    EXPECT_EQ(at_epoch(0), "1970-01-01 00:00:00");
    EXPECT_EQ(at_epoch(-1), "1969-12-31 23:59:59");
    EXPECT_EQ(at_epoch(951782400), "2000-02-29 00:00:00");
    EXPECT_EQ(at_epoch(978307200), "2001-01-01 00:00:00");
    EXPECT_EQ(at_epoch(253402300799), "9999-12-31 23:59:59");
}

TEST(EpochToDate, BeginsWith1601)
{
    EXPECT_EQ(at_epoch(-11644473600), "1601-01-01 00:00:00");
    EXPECT_EQ(at_epoch(-11644473599), "1601-01-01 00:00:01");
}

TEST(EpochToDate, CutsFractionsOffTowardZero)
{
    EXPECT_EQ(at_epoch(0.999999), "1970-01-01 00:00:00");
    EXPECT_EQ(at_epoch(59.5), "1970-01-01 00:00:59");
    EXPECT_EQ(at_epoch(-0.5), "1970-01-01 00:00:00");
    EXPECT_EQ(at_epoch(-0.999999), "1970-01-01 00:00:00");
    EXPECT_EQ(at_epoch(-1.5), "1969-12-31 23:59:59");
    EXPECT_EQ(at_epoch(978307199.75), "2000-12-31 23:59:59");
}

TEST(EpochToDate, KeepsTheLastDayOfEachPeriodInThePeriod)
{
    for (int year : {1604, 1700, 1800, 1896, 1900, 1999, 2000, 2004, 2023, 2024, 2100, 2400, 2800, 9600}) {
        const time_t next_year = seconds_at(year + 1, 1, 1);
        EXPECT_EQ(at_epoch(static_cast<double>(next_year - SECONDS_A_DAY)),
                  std::to_string(year) + "-12-31 00:00:00");
        EXPECT_EQ(at_epoch(static_cast<double>(next_year - 1)), std::to_string(year) + "-12-31 23:59:59");
        EXPECT_EQ(at_epoch(static_cast<double>(next_year)), std::to_string(year + 1) + "-01-01 00:00:00");
    }
}

TEST(EpochToDate, KnowsLeapYears)
{
    const auto day_behind_28_february = [](int year) {
        return at_epoch(static_cast<double>(seconds_at(year, 2, 28) + SECONDS_A_DAY)).substr(5, 5);
    };
    for (int year : {1604, 1996, 2000, 2024, 2400, 9996})
        EXPECT_EQ(day_behind_28_february(year), "02-29") << year;
    for (int year : {1601, 1700, 1900, 2023, 2100, 2200, 2300, 9999})
        EXPECT_EQ(day_behind_28_february(year), "03-01") << year;
}

TEST(EpochToDate, AgreesOnTheFirstAndLastSecondOfEveryDayFrom1601To9999)
{
    const time_t end = seconds_at(10000, 1, 1);
    for (time_t day = seconds_at(1601, 1, 1); day < end; day += SECONDS_A_DAY) {
        ASSERT_NO_FATAL_FAILURE(expect_moment(day));
        ASSERT_NO_FATAL_FAILURE(expect_moment(day + SECONDS_A_DAY - 1));
    }
}

TEST(EpochToDate, AgreesOnEverySecondOfADayBeforeAndOfOneBehind1970)
{
    for (time_t day : {seconds_at(1899, 12, 31), seconds_at(2024, 2, 29)})
        for (time_t second = day; second < day + SECONDS_A_DAY; ++second)
            ASSERT_NO_FATAL_FAILURE(expect_moment(second));
}

TEST(EpochToDate, ReachesAsFarAsTheYearFieldDoes)
{
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(10000, 1, 1))), "10000-01-01 00:00:00");
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(65536, 1, 1) - 1)), "65535-12-31 23:59:59");
}

TEST(EpochToDate, TakesNoTimeZoneIntoAccount)
{
    const time_zone zone("EST5EDT,M3.2.0,M11.1.0");
    tzset();
    EXPECT_EQ(at_epoch(0), "1970-01-01 00:00:00");
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(2026, 7, 1, 12))), "2026-07-01 12:00:00");
}

TEST(EpochToDate, BeginsTheRecordWithADate)
{
    ZT_DATETIME record;
    OS_epoch_to_date(&record, 951782400);
    ZT_DATE date;
    memcpy(&date, &record, sizeof date);
    EXPECT_EQ(shown(date), "2000-02-29");
}

TEST(EpochToDate, WritesNothingBesideTheRecord)
{
    ZT_DATETIME records[3];
    memset(records, 0xee, sizeof records);
    OS_epoch_to_date(&records[1], 0);
    const std::string untouched(sizeof records[0], '\xee');
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&records[0]), sizeof records[0]), untouched);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&records[2]), sizeof records[2]), untouched);
    EXPECT_EQ(shown(records[1]), "1970-01-01 00:00:00");
}

// ---- The clock

TEST(Clock, IsThePlatformsInWholeSecondsUnderBothNames)
{
    const time_t readings[] = {seconds_at(1969, 12, 31),
                               0,
                               1,
                               seconds_at(2026, 11, 15, 8, 50, 43),
                               seconds_at(2038, 1, 19, 3, 14, 8),
                               seconds_at(9999, 12, 31, 23, 59, 59)};
    for (time_t reading : readings) {
        const stopped_clock clock(reading);
        EXPECT_EQ(OS_epoch_time(), static_cast<double>(reading));
        EXPECT_EQ(clock.times_read(), 1U);
        EXPECT_EQ(OS_system_epoch_time_get(), static_cast<double>(reading));
        EXPECT_EQ(clock.times_read(), 2U);
    }
}

TEST(Clock, Runs)
{
    const time_t before = time(nullptr);
    const double now = OS_epoch_time();
    const double later = OS_system_epoch_time_get();
    const time_t after = time(nullptr);
    EXPECT_LE(static_cast<double>(before), now);
    EXPECT_LE(now, later);
    EXPECT_LE(later, static_cast<double>(after));
}

// ---- Local time

namespace {

std::string local_date()
{
    ZT_DATE date = {1111, 222, 333};
    OS_system_date_get(&date);
    return shown(date);
}

// The buffer has room for a text of that length and its terminator, and not a byte more.
std::string local_text(size_t length = strlen("yyyy:mm:dd hh:mm:ss"))
{
    guarded_bytes buffer(length + 1);
    memset(buffer.data(), '#', buffer.size());
    OS_system_date_str_get(buffer.text());
    return std::string(buffer.text());
}

std::string local_text_at(time_t reading)
{
    const stopped_clock clock(reading);
    return local_text();
}

// Zones by their rules, which need no zone data.
const char *const INDIA = "IST-5:30";
const char *const NEPAL = "<+0545>-5:45";
const char *const CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3";
const char *const NEW_YORK = "EST5EDT,M3.2.0,M11.1.0";
const char *const FARTHEST_EAST = "<+14>-14";
const char *const FARTHEST_WEST = "<-12>12";

}  // namespace

TEST(LocalTime, IsWrittenWithColonsInTheDateToo)
{
    const time_zone zone("UTC0");
    EXPECT_EQ(local_text_at(seconds_at(2026, 11, 15, 8, 50, 43)), "2026:11:15 08:50:43");
    EXPECT_EQ(local_text_at(seconds_at(2026, 1, 2, 3, 4, 5)), "2026:01:02 03:04:05");
}

TEST(LocalTime, PadsAShortYearAndWritesALongOneInFull)
{
    const time_zone zone("UTC0");
    EXPECT_EQ(local_text_at(seconds_at(987, 6, 5)), "0987:06:05 00:00:00");
    EXPECT_EQ(local_text_at(seconds_at(9999, 12, 31, 23, 59, 59)), "9999:12:31 23:59:59");
    const stopped_clock clock(seconds_at(12345, 6, 7, 8, 9, 10));
    EXPECT_EQ(local_text(20), "12345:06:07 08:09:10");
}

TEST(LocalTime, IsTheZonesOwn)
{
    const stopped_clock clock(seconds_at(2000, 2, 28, 18, 29, 59));
    const auto expect_in = [](const char *tz, const char *date, const char *text) {
        const time_zone zone(tz);
        EXPECT_EQ(local_date(), date) << tz;
        EXPECT_EQ(local_text(), text) << tz;
    };
    expect_in("UTC0", "2000-02-28", "2000:02:28 18:29:59");
    expect_in(INDIA, "2000-02-28", "2000:02:28 23:59:59");
    expect_in(NEPAL, "2000-02-29", "2000:02:29 00:14:59");
    expect_in(FARTHEST_EAST, "2000-02-29", "2000:02:29 08:29:59");
    expect_in(FARTHEST_WEST, "2000-02-28", "2000:02:28 06:29:59");
}

TEST(LocalTime, FollowsDaylightSaving)
{
    const time_zone zone(CENTRAL_EUROPE);
    EXPECT_EQ(local_text_at(seconds_at(2026, 3, 29, 0, 59, 59)), "2026:03:29 01:59:59");
    EXPECT_EQ(local_text_at(seconds_at(2026, 3, 29, 1, 0, 0)), "2026:03:29 03:00:00");
    EXPECT_EQ(local_text_at(seconds_at(2026, 10, 25, 0, 59, 59)), "2026:10:25 02:59:59");
    EXPECT_EQ(local_text_at(seconds_at(2026, 10, 25, 1, 0, 0)), "2026:10:25 02:00:00");
}

TEST(LocalTime, FollowsAPlaceThroughItsHistory)
{
    ASSERT_HAS_ZONE_DATA("Pacific/Apia");
    const time_zone zone("Pacific/Apia");
    EXPECT_EQ(local_text_at(seconds_at(2011, 12, 30, 9, 59, 59)), "2011:12:29 23:59:59");
    EXPECT_EQ(local_text_at(seconds_at(2011, 12, 30, 10, 0, 0)), "2011:12:31 00:00:00");
}

TEST(LocalTime, SeesAChangedZoneInTheNextCall)
{
    const stopped_clock clock(seconds_at(2026, 12, 31, 23, 30, 0));
    std::optional<time_zone> zone;
    zone.emplace("UTC0");
    EXPECT_EQ(local_text(), "2026:12:31 23:30:00");
    zone.emplace(CENTRAL_EUROPE);
    EXPECT_EQ(local_text(), "2027:01:01 00:30:00");
    zone.emplace("UTC0");
    EXPECT_EQ(local_date(), "2026-12-31");
    zone.emplace(CENTRAL_EUROPE);
    EXPECT_EQ(local_date(), "2027-01-01");
}

TEST(LocalTime, AgreesWithThePlatformThroughFourYears)
{
    for (const char *tz : {"UTC0", INDIA, NEPAL, CENTRAL_EUROPE, NEW_YORK, FARTHEST_EAST, FARTHEST_WEST}) {
        const time_zone zone(tz);
        for (time_t now = seconds_at(2023, 12, 30); now < seconds_at(2028, 1, 2); now += 20011) {
            const stopped_clock clock(now);
            const std::string date = local_date();
            const std::string text = local_text();
            tzset();
            struct tm local;
            localtime_r(&now, &local);
            CHAR expected[32];
            strftime(expected, sizeof expected, "%Y:%m:%d %H:%M:%S", &local);
            ASSERT_EQ(text, expected) << tz;
            ASSERT_EQ(date, shown(date_of(local))) << tz;
        }
    }
}

TEST(LocalTime, IsReadFromTheClockOnce)
{
    const stopped_clock clock(0);
    local_date();
    EXPECT_EQ(clock.times_read(), 1U);
    local_text();
    EXPECT_EQ(clock.times_read(), 2U);
}

TEST(LocalTime, DoesNotReadTheClockForANullBuffer)
{
    const stopped_clock clock(0);
    OS_system_date_str_get(nullptr);
    EXPECT_EQ(clock.times_read(), 0U);
}

// Threads would see each other's local time in it.
TEST(LocalTime, DoesNotPassThroughTheBufferThatThePlatformShares)
{
    const time_zone zone("UTC0");
    const time_t unlike_the_clock = seconds_at(1987, 6, 5, 4, 3, 2);
    const struct tm &shared = *localtime(&unlike_the_clock);
    const stopped_clock clock(seconds_at(2026, 11, 15, 8, 50, 43));
    EXPECT_EQ(local_date(), "2026-11-15");
    EXPECT_EQ(local_text(), "2026:11:15 08:50:43");
    EXPECT_EQ(shown(date_of(shared)), "1987-06-05");
    EXPECT_EQ(formatted("%02d:%02d:%02d", shared.tm_hour, shared.tm_min, shared.tm_sec), "04:03:02");
}

TEST(LocalTime, WritesNothingBesideTheRecord)
{
    const time_zone zone("UTC0");
    const stopped_clock clock(seconds_at(2026, 11, 15));
    ZT_DATE dates[3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    OS_system_date_get(&dates[1]);
    EXPECT_EQ(shown(dates[0]), "0001-02-03");
    EXPECT_EQ(shown(dates[1]), "2026-11-15");
    EXPECT_EQ(shown(dates[2]), "0007-08-09");
}

// ---- Day counts since 1900-01-01

namespace {

LONG day_count(const ZT_DATE &date)
{
    return OS_ref_day_count_get(&date);
}

LONG day_count_in(const char *tz, const ZT_DATE &date)
{
    const time_zone zone(tz);
    return day_count(date);
}

// The day at index n is n days behind 1900-01-01.
std::vector<ZT_DATE> days_from_1900_to_2100()
{
    std::vector<ZT_DATE> days;
    for (time_t day = seconds_at(1900, 1, 1); day < seconds_at(2101, 1, 1); day += SECONDS_A_DAY) {
        struct tm moment;
        gmtime_r(&day, &moment);
        days.push_back(date_of(moment));
    }
    return days;
}

// From 00:00 local standard time of 1900-01-01 to 23:00 of the day, in whole days. None where the platform
// cannot convert the moment, as on a day that the zone skipped.
std::optional<LONG> day_count_by_platform(const ZT_DATE &date)
{
    struct tm day = {};
    day.tm_year = date.year - 1900;
    day.tm_mon = date.month - 1;
    day.tm_mday = date.day;
    day.tm_hour = 23;
    day.tm_wday = -1;  // stays so when the conversion fails
    const time_t end = mktime(&day);
    if (day.tm_wday == -1)
        return std::nullopt;
    struct tm reference = {};
    reference.tm_mday = 1;
    return (end - mktime(&reference)) / SECONDS_A_DAY;
}

std::string zone_as_test_name(const testing::TestParamInfo<const char *> &zone)
{
    std::string name;
    for (const char *character = zone.param; *character != '\0'; ++character)
        if (isalnum(static_cast<unsigned char>(*character)))
            name += *character;
    return name;
}

class ReferenceDayCountIn : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override
    {
        ASSERT_HAS_ZONE_DATA(GetParam());
        zone_.emplace(GetParam());
    }

private:
    std::optional<time_zone> zone_;
};

// Zones in which the offset never strays far enough from that of 1900 to cost or to give a day.
class ReferenceDayCountInPlainZone : public ReferenceDayCountIn {};

// Zones in which it does.
class ReferenceDayCountInShiftingZone : public ReferenceDayCountIn {};

}  // namespace

TEST(ReferenceDayCount, CountsFrom1900)
{
    const time_zone zone("UTC0");
    EXPECT_EQ(day_count({1900, 1, 1}), 0);
    EXPECT_EQ(day_count({1900, 1, 2}), 1);
    EXPECT_EQ(day_count({1900, 3, 1}), 59);  // 1900 is no leap year
    EXPECT_EQ(day_count({1970, 1, 1}), 25567);
    EXPECT_EQ(day_count({2000, 1, 1}), 36524);
}

TEST(ReferenceDayCount, ConvertsTheDateFirstAndTheReferenceDayThen)
{
    std::vector<int> hours;
    const replaced_call replaced(mktime_call, [&](tm *fields) {
        hours.push_back(fields->tm_hour);
        return mktime_call.original(fields);
    });
    const ZT_DATE date = {2000, 1, 1};
    EXPECT_EQ(OS_ref_day_count_get(&date), 36524);
    EXPECT_EQ(hours, (std::vector<int>{23, 0}));
}

TEST(ReferenceDayCount, IsTheSameUnderEveryRule)
{
    for (const char *tz : {"UTC0", INDIA, NEPAL, CENTRAL_EUROPE, NEW_YORK, FARTHEST_EAST, FARTHEST_WEST}) {
        EXPECT_EQ(day_count_in(tz, {1900, 1, 1}), 0) << tz;
        EXPECT_EQ(day_count_in(tz, {1900, 1, 2}), 1) << tz;
        EXPECT_EQ(day_count_in(tz, {1970, 1, 1}), 25567) << tz;
        EXPECT_EQ(day_count_in(tz, {2000, 1, 1}), 36524) << tz;
        EXPECT_EQ(day_count_in(tz, {2000, 7, 1}), 36706) << tz;
    }
}

TEST_P(ReferenceDayCountInPlainZone, IsThatOfTheCalendarForEveryDayFrom1900To2100)
{
    const std::vector<ZT_DATE> days = days_from_1900_to_2100();
    for (size_t days_since_1900 = 0; days_since_1900 < days.size(); ++days_since_1900)
        ASSERT_EQ(day_count(days[days_since_1900]), static_cast<LONG>(days_since_1900))
            << shown(days[days_since_1900]);
}

INSTANTIATE_TEST_SUITE_P(Places, ReferenceDayCountInPlainZone,
                         testing::Values("Etc/UTC", "Africa/Johannesburg", "America/New_York",
                                         "America/Sao_Paulo",  // clocks changed at midnight
                                         "America/St_Johns",   // half an hour, and double daylight saving
                                         "Asia/Kathmandu",     // three quarters of an hour
                                         "Asia/Kolkata",       // half an hour
                                         "Asia/Tokyo",
                                         "Australia/Adelaide",   // half an hour, with daylight saving
                                         "Australia/Lord_Howe",  // daylight saving of half an hour
                                         "Europe/Berlin",
                                         "Europe/Dublin",  // standard time is the summer's
                                         "Europe/London", "Pacific/Auckland", "Pacific/Chatham"),
                         zone_as_test_name);

TEST_P(ReferenceDayCountInShiftingZone, IsTheFormulasForEveryDayFrom1900To2100)
{
    int days_without_conversion = 0;
    for (const ZT_DATE &day : days_from_1900_to_2100()) {
        const LONG count = day_count(day);
        const std::optional<LONG> expected = day_count_by_platform(day);
        if (!expected)
            ++days_without_conversion;
        ASSERT_EQ(count, expected.value_or(count)) << shown(day);
    }
    EXPECT_LE(days_without_conversion, 1);
}

INSTANTIATE_TEST_SUITE_P(Places, ReferenceDayCountInShiftingZone,
                         testing::Values("Europe/Sofia", "Pacific/Apia", "Pacific/Fakaofo",
                                         "Pacific/Kiritimati", "Pacific/Kwajalein"),
                         zone_as_test_name);

// At -11:26:56 in 1900 and at -11:00 until 2011, when the island left out 30 December to be at +13:00: the
// 23 hours shrink by 24:26:56 and a day is lost. Counted through, the days there follow each other.
TEST(ReferenceDayCount, DoesNotCountTheDayThatApiaLeftOut)
{
    ASSERT_HAS_ZONE_DATA("Pacific/Apia");
    const time_zone zone("Pacific/Apia");
    EXPECT_EQ(plain_day_count({2011, 12, 29}), 40904);
    EXPECT_EQ(day_count({2011, 12, 29}), 40904);
    EXPECT_EQ(day_count({2011, 12, 31}), 40905);
    EXPECT_EQ(day_count({2012, 7, 1}), plain_day_count({2012, 7, 1}) - 1);
}

// At -10:29:20 in 1900, at -10:00 until 31 December 1994 was left out, and at +14:00 since.
TEST(ReferenceDayCount, DoesNotCountTheDayThatKiritimatiLeftOut)
{
    ASSERT_HAS_ZONE_DATA("Pacific/Kiritimati");
    const time_zone zone("Pacific/Kiritimati");
    EXPECT_EQ(plain_day_count({1994, 12, 30}), 34696);
    EXPECT_EQ(day_count({1994, 12, 30}), 34696);
    EXPECT_EQ(day_count({1995, 1, 1}), 34697);
}

// At +11:09:20 in 1900 and at -12:00 from 1969 on: 23 hours and 23:09:20 more are one whole day too many,
// for the first day of 1970 too. At +12:00 since 21 August 1993 was left out.
TEST(ReferenceDayCount, CountsTheDayThatKwajaleinHadTwiceUntilItLeftOneOut)
{
    ASSERT_HAS_ZONE_DATA("Pacific/Kwajalein");
    const time_zone zone("Pacific/Kwajalein");
    EXPECT_EQ(plain_day_count({1969, 9, 29}), 25473);
    EXPECT_EQ(day_count({1969, 9, 29}), 25473);
    EXPECT_EQ(day_count({1969, 10, 1}), 25476);
    EXPECT_EQ(day_count({1970, 1, 1}), 25568);
    EXPECT_EQ(plain_day_count({1993, 8, 22}), 34201);
    EXPECT_EQ(day_count({1993, 8, 20}), 34200);
    EXPECT_EQ(day_count({1993, 8, 22}), 34201);
}

// At +2:00 in 1900 and at +1:00 from 2 November 1942 to 2 April 1945: 23:00 standard time is a whole day
// behind the reference. Measured in the daylight-saving time of July it would fall an hour short.
TEST(ReferenceDayCount, IsMeasuredInStandardTimeInSummerToo)
{
    ASSERT_HAS_ZONE_DATA("Europe/Sofia");
    const time_zone zone("Europe/Sofia");
    EXPECT_EQ(plain_day_count({1943, 7, 1}), 15886);
    EXPECT_EQ(day_count({1942, 11, 1}), plain_day_count({1942, 11, 1}));
    EXPECT_EQ(day_count({1943, 7, 1}), 15887);
    EXPECT_EQ(day_count({1945, 4, 3}), plain_day_count({1945, 4, 3}));
}

TEST(ReferenceDayCount, SeesAChangedZoneInTheNextCall)
{
    ASSERT_HAS_ZONE_DATA("Pacific/Apia");
    EXPECT_EQ(day_count_in("UTC0", {2012, 1, 1}), 40907);
    EXPECT_EQ(day_count_in("Pacific/Apia", {2012, 1, 1}), 40906);
    EXPECT_EQ(day_count_in("UTC0", {2012, 1, 1}), 40907);
}

TEST(ReferenceDayCount, TakesDaysOutOfRangeOverIntoTheMonth)
{
    for (const char *tz : {"UTC0", CENTRAL_EUROPE, NEW_YORK}) {
        const time_zone zone(tz);
        EXPECT_EQ(day_count({2026, 3, 0}), plain_day_count({2026, 2, 28})) << tz;
        EXPECT_EQ(day_count({2024, 3, 0}), plain_day_count({2024, 2, 29})) << tz;
        EXPECT_EQ(day_count({2026, 1, 0}), plain_day_count({2025, 12, 31})) << tz;
        EXPECT_EQ(day_count({2026, 2, 31}), plain_day_count({2026, 3, 3})) << tz;
        EXPECT_EQ(day_count({2026, 12, 32}), plain_day_count({2027, 1, 1})) << tz;
        EXPECT_EQ(day_count({1900, 1, 65535}), 65534) << tz;
    }
}

TEST(ReferenceDayCount, TakesMonthsOutOfRangeOverIntoTheYear)
{
    for (const char *tz : {"UTC0", CENTRAL_EUROPE, NEW_YORK}) {
        const time_zone zone(tz);
        EXPECT_EQ(day_count({2026, 0, 15}), plain_day_count({2025, 12, 15})) << tz;
        EXPECT_EQ(day_count({2026, 13, 15}), plain_day_count({2027, 1, 15})) << tz;
        // 65534 months behind January: 5461 years and two months.
        EXPECT_EQ(day_count({1900, 65535, 1}), plain_day_count({7361, 3, 1})) << tz;
        EXPECT_EQ(day_count({2026, 0, 0}), plain_day_count({2025, 11, 30})) << tz;
    }
}

TEST(ReferenceDayCount, ReachesAsFarAsTheYearFieldDoes)
{
    const time_zone zone("UTC0");
    EXPECT_EQ(day_count({9999, 12, 31}), 2958463);
    EXPECT_EQ(day_count({65535, 12, 31}), plain_day_count({65535, 12, 31}));
}

// Those days end an hour closer to the reference than their midnight is far, and the rest is cut off.
TEST(ReferenceDayCount, IsCutOffTowardZeroBefore1900)
{
    const time_zone zone("UTC0");
    EXPECT_EQ(day_count({1899, 12, 31}), 0);      // -1 hour
    EXPECT_EQ(day_count({1899, 12, 30}), -1);     // -25 hours
    EXPECT_EQ(day_count({1601, 1, 1}), -109206);  // -109207 days and 23 hours
}

// ---- Threads

namespace {

struct local_moment {
    time_t reading;
    std::string date;
    std::string text;
    ZT_DATE day;
    LONG day_count;
};

thread_local time_t reading_of_this_thread = 0;

// The first call, if any, that gave another result than this moment's.
std::string first_wrong_call(const local_moment &moment, int repetitions)
{
    reading_of_this_thread = moment.reading;
    const double seconds = static_cast<double>(moment.reading);
    for (int i = 0; i < repetitions; ++i) {
        if (OS_epoch_time() != seconds)
            return "OS_epoch_time";
        if (local_date() != moment.date)
            return "OS_system_date_get";
        CHAR text[32];
        OS_system_date_str_get(text);
        if (text != moment.text)
            return "OS_system_date_str_get: " + std::string(text);
        if (day_count(moment.day) != moment.day_count)
            return "OS_ref_day_count_get";
        ZT_DATETIME record;
        OS_epoch_to_date(&record, seconds);
        if (!is_moment(record, moment.reading))
            return "OS_epoch_to_date: " + shown(record);
        ZT_DATE date;
        if (convert_ZT_DATE_to_DATE(&moment.day, text) != 1 || convert_DATE_to_ZT_DATE(text, &date) != 1 ||
            shown(date) != moment.date)
            return "a DATE text: " + std::string(text);
    }
    return "";
}

}  // namespace

TEST(Dates, AreEachThreadsOwnWhenSeveralReadThemAtOnce)
{
    const std::vector<local_moment> moments = {
        {seconds_at(1970, 1, 1, 0, 0, 0), "1970-01-01", "1970:01:01 01:00:00", {1970, 1, 1}, 25567},
        {seconds_at(1999, 12, 31, 23, 30, 0), "2000-01-01", "2000:01:01 00:30:00", {2000, 1, 1}, 36524},
        {seconds_at(2024, 2, 28, 22, 59, 59), "2024-02-28", "2024:02:28 23:59:59", {2024, 2, 28}, 45348},
        {seconds_at(2026, 7, 31, 22, 0, 0), "2026-08-01", "2026:08:01 00:00:00", {2026, 8, 1}, 46233},
    };
    const time_zone zone(CENTRAL_EUROPE);
    const replaced_call clock(time_call,
                              [](time_t *result) { return store_reading(reading_of_this_thread, result); });

    std::atomic<size_t> threads_ready{0};
    std::vector<std::string> wrong_calls(moments.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < moments.size(); ++i)
        threads.emplace_back([&, i] {
            ++threads_ready;
            while (threads_ready < moments.size())
                std::this_thread::yield();
            wrong_calls[i] = first_wrong_call(moments[i], 5000);
        });
    for (std::thread &thread : threads)
        thread.join();
    for (size_t i = 0; i < moments.size(); ++i)
        EXPECT_EQ(wrong_calls[i], "") << moments[i].text;
}
