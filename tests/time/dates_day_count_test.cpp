// Day counts since 1900-01-01 in local time. The tests named after places need zone data.

#include "time/dates_fixture.h"

#include <gtest/gtest.h>

#include <ctype.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

static_assert(has_type<LONG(const ZT_DATE *)>(OS_ref_day_count_get));

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

// Every field of a broken-down time as the platform gets it.
std::string all_fields(const struct tm &fields)
{
    return std::to_string(fields.tm_year) + " years, " + std::to_string(fields.tm_mon) + " months, day " +
           std::to_string(fields.tm_mday) +
           formatted(", %d:%d:%d", fields.tm_hour, fields.tm_min, fields.tm_sec) + ", weekday " +
           std::to_string(fields.tm_wday) + ", day of year " + std::to_string(fields.tm_yday) +
           (fields.tm_isdst == 0 ? ", standard time"
                                 : ", daylight saving " + std::to_string(fields.tm_isdst)) +
           ", offset " + std::to_string(fields.tm_gmtoff) +
           (fields.tm_zone == nullptr ? ", no zone" : ", a zone");
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

TEST(ReferenceDayCount, ConvertsTheDateAndThenTheReferenceDayAndTakesTheirDifference)
{
    std::vector<std::string> calls;
    const replaced_call conversion(mktime_call, [&](tm *fields) {
        calls.push_back("mktime of " + all_fields(*fields));
        return calls.size() == 1 ? time_t{777777} : time_t{-1};  // a failure, by its value, is none here
    });
    const replaced_call difference(difftime_call, [&](time_t end, time_t start) {
        calls.push_back("difftime of " + std::to_string(end) + " and " + std::to_string(start));
        return 3 * 86400.0;
    });
    EXPECT_EQ(day_count({2024, 2, 29}), 3);
    EXPECT_EQ(calls, (std::vector<std::string>{
                         "mktime of 124 years, 1 months, day 29, 23:0:0, weekday 0, day of year 0, standard "
                         "time, offset 0, no zone",
                         "mktime of 0 years, 0 months, day 1, 0:0:0, weekday 0, day of year 0, standard "
                         "time, offset 0, no zone",
                         "difftime of 777777 and -1"}));
}

TEST(ReferenceDayCount, GivesThePlatformFieldsOutOfRangeAsTheyAre)
{
    std::vector<std::string> conversions;
    const replaced_call conversion(mktime_call, [&](tm *fields) {
        conversions.push_back(all_fields(*fields));
        return time_t{0};
    });
    EXPECT_EQ(day_count({0, 0, 0}), 0);
    EXPECT_EQ(day_count({65535, 65535, 65535}), 0);
    const std::string rest = ", 23:0:0, weekday 0, day of year 0, standard time, offset 0, no zone";
    ASSERT_EQ(conversions.size(), 4u);
    EXPECT_EQ(conversions[0], "-1900 years, -1 months, day 0" + rest);
    EXPECT_EQ(conversions[2], "63635 years, 65534 months, day 65535" + rest);
}

// 1.000051e21 divided by 60, 60 and 24 ends in ...54; in fewer divisions, or in another order, in ...52.
TEST(ReferenceDayCount, DividesTheDifferenceByItsPartsOneAfterTheOtherAndTruncates)
{
    double seconds = 0;
    const replaced_call difference(difftime_call, [&](time_t, time_t) { return seconds; });
    const auto days_in = [&](double difference_in_seconds) {
        seconds = difference_in_seconds;
        return day_count({2000, 1, 1});
    };
    EXPECT_EQ(days_in(86399.999), 0);
    EXPECT_EQ(days_in(86400), 1);
    EXPECT_EQ(days_in(-86399.999), 0);
    EXPECT_EQ(days_in(-172799), -1);
    EXPECT_EQ(days_in(1.000051e21), 11574664351851854);
    EXPECT_EQ(days_in(std::numeric_limits<double>::quiet_NaN()), INT64_MIN);
    EXPECT_EQ(days_in(std::numeric_limits<double>::infinity()), INT64_MIN);
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
