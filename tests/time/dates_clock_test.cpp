// The clock, and local time read from it.

#include "time/dates_fixture.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

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

std::string local_text_at(time_t reading)
{
    const stopped_clock clock(reading);
    return local_text();
}

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

TEST(LocalTime, IsReadFromTheClockOnceAndBrokenDownOnceInTheZoneOfTheMoment)
{
    const time_t reading = seconds_at(2026, 11, 15);
    std::vector<std::string> calls;
    const replaced_call clock(time_call, [&](time_t *result) {
        calls.push_back("time");
        return store_reading(reading, result);
    });
    const replaced_call zone(tzset_call, [&] {
        calls.push_back("tzset");
        tzset_call.original();
    });
    const replaced_call breakdown(localtime_r_call, [&](const time_t *seconds, tm *result) {
        calls.push_back("localtime_r of " + std::to_string(*seconds));
        return localtime_r_call.original(seconds, result);
    });
    const std::vector<std::string> expected = {"time", "tzset", "localtime_r of " + std::to_string(reading)};
    ZT_DATE date;
    OS_system_date_get(&date);
    EXPECT_EQ(calls, expected);
    calls.clear();
    CHAR text[20];
    OS_system_date_str_get(text);
    EXPECT_EQ(calls, expected);
}

TEST(LocalTime, DoesNotReadTheClockForANullBuffer)
{
    const stopped_clock clock(0);
    OS_system_date_str_get(nullptr);
    EXPECT_EQ(clock.times_read(), 0U);
}

TEST(LocalTime, HasTheYearTheMonthAndTheDayThatThePlatformSays)
{
    const replaced_call breakdown(localtime_r_call, [](const time_t *, tm *result) {
        *result = {};
        result->tm_year = 65536 + 126;
        result->tm_mon = 65536 + 10;
        result->tm_mday = 65536 + 15;
        result->tm_sec = 61;
        return result;
    });
    EXPECT_EQ(local_date(), "2026-11-15");  // 16 bits of each
    EXPECT_EQ(local_text(26), "67562:65547:65551 00:00:61");
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
