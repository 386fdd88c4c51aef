// Epoch seconds to calendar records, beside the C library's calendar.

#include "time/dates_fixture.h"

#include <gtest/gtest.h>

#include <math.h>
#include <string.h>

#include <array>
#include <limits>
#include <string>

static_assert(has_type<void(ZT_DATETIME *, double)>(OS_epoch_to_date));

namespace {

std::string at_epoch(double seconds)
{
    ZT_DATETIME record;
    memset(&record, 0xee, sizeof record);
    OS_epoch_to_date(&record, seconds);
    return shown(record);
}

// By the C library's calendar, which repeats itself every 400 years: seconds since 1601, however many,
// are brought near, and the year is raised again by what was taken away.
std::string expected_after_1601(uint64_t seconds)
{
    constexpr uint64_t SECONDS_A_CYCLE = 146097 * uint64_t{SECONDS_A_DAY};
    const uint64_t cycles = seconds / SECONDS_A_CYCLE;
    const time_t near = seconds_at(1601, 1, 1) + static_cast<time_t>(seconds % SECONDS_A_CYCLE);
    struct tm moment;
    gmtime_r(&near, &moment);
    const uint64_t year = static_cast<uint64_t>(moment.tm_year) + 1900 + 400 * cycles;
    return shown(ZT_DATETIME{static_cast<WORD>(year), static_cast<WORD>(moment.tm_mon + 1),
                             static_cast<WORD>(moment.tm_mday), static_cast<WORD>(moment.tm_hour),
                             static_cast<WORD>(moment.tm_min), static_cast<WORD>(moment.tm_sec)});
}

constexpr uint64_t SECONDS_FROM_1601_TO_1970 = 11644473600;

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

TEST(EpochToDate, KeepsTheLow16BitsOfLaterYears)
{
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(65536, 1, 1))), "0000-01-01 00:00:00");
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(67562, 11, 15, 8, 50, 43))), "2026-11-15 08:50:43");
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(131072, 2, 29))), "0000-02-29 00:00:00");
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(2000000000, 12, 31))),
              shown(ZT_DATETIME{2000000000 % 65536, 12, 31, 0, 0, 0}));
}

// Every power of two up to 2^62 with its neighbours among the doubles, far past the year 2^32.
TEST(EpochToDate, CountsOnWhereYearsHaveMoreThan32Bits)
{
    for (int bit = 0; bit <= 62; ++bit) {
        const double power = static_cast<double>(INT64_C(1) << bit);
        for (const double seconds :
             {nextafter(power, 0.0), power - 1, power, power + 1, nextafter(power, 1e300), 1.5 * power})
            EXPECT_EQ(at_epoch(seconds),
                      expected_after_1601(static_cast<uint64_t>(seconds) + SECONDS_FROM_1601_TO_1970))
                << seconds;
    }
    const double last = 9223372036854774784.0;  // in front of 2^63
    EXPECT_EQ(at_epoch(last), expected_after_1601(uint64_t{9223372036854774784} + SECONDS_FROM_1601_TO_1970));
}

// The sum with the seconds up to 1970 is unsigned.
TEST(EpochToDate, CountsFrom2To64WhatLiesBefore1601)
{
    EXPECT_EQ(at_epoch(-11644473601.0), expected_after_1601(UINT64_MAX));
    EXPECT_EQ(at_epoch(-11644560000.0), expected_after_1601(UINT64_MAX - 86399));
    for (int bit = 34; bit <= 63; ++bit)
        EXPECT_EQ(at_epoch(-ldexp(1.0, bit)),
                  expected_after_1601(SECONDS_FROM_1601_TO_1970 - (UINT64_C(1) << bit)))
            << "-2^" << bit;
}

// The year 2^32 + 4 ends a century and is none of 366 days; the year 4 would be one.
TEST(EpochToDate, TellsLeapYearsByAllBitsOfTheYear)
{
    constexpr uint64_t CYCLES = 10737414;  // of 400 years, from 1601 to 2^32 - 95
    const uint64_t in_cycle = static_cast<uint64_t>(seconds_at(1700, 3, 1) - seconds_at(1601, 1, 1));
    const uint64_t since_1601 = CYCLES * 146097 * uint64_t{SECONDS_A_DAY} + in_cycle;
    EXPECT_EQ(at_epoch(static_cast<double>(since_1601 - SECONDS_FROM_1601_TO_1970)),
              expected_after_1601(since_1601));
}

TEST(EpochToDate, TakesNumbersOutOfRangeAndNoNumbersForMinus2To63)
{
    const std::string lowest = expected_after_1601((UINT64_C(1) << 63) + SECONDS_FROM_1601_TO_1970);
    using limits = std::numeric_limits<double>;
    for (const double seconds :
         {ldexp(1.0, 63), ldexp(1.0, 64), 1e300, limits::infinity(), -limits::infinity(), -1e300,
          nextafter(-ldexp(1.0, 63), -1e300), limits::quiet_NaN(), -limits::quiet_NaN()})
        EXPECT_EQ(at_epoch(seconds), lowest) << seconds;
}

TEST(EpochToDate, TakesNoTimeZoneIntoAccount)
{
    const time_zone zone("EST5EDT,M3.2.0,M11.1.0");
    tzset();
    EXPECT_EQ(at_epoch(0), "1970-01-01 00:00:00");
    EXPECT_EQ(at_epoch(static_cast<double>(seconds_at(2026, 7, 1, 12))), "2026-07-01 12:00:00");
}

TEST(EpochToDate, StoresSixFieldsInOrderTheFirstThreeADate)
{
    std::array<WORD, 6> fields = {};
    static_assert(sizeof fields == sizeof(ZT_DATETIME));
    OS_epoch_to_date(reinterpret_cast<ZT_DATETIME *>(fields.data()), 951782400 + 4 * 3600 + 5 * 60 + 6);
    EXPECT_EQ(fields, (std::array<WORD, 6>{2000, 2, 29, 4, 5, 6}));
    EXPECT_EQ(shown(*reinterpret_cast<const ZT_DATE *>(fields.data())), "2000-02-29");
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
