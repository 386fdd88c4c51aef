// Dates on several threads at once.

#include "time/dates_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

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
        if (OS_ref_day_count_get(&moment.day) != moment.day_count)
            return "OS_ref_day_count_get";
        ZT_DATETIME record;
        OS_epoch_to_date(&record, seconds);
        if (!is_moment(record, moment.reading))
            return "OS_epoch_to_date: " + shown(record);
        ZT_DATE date;
        if (convert_ZT_DATE_to_DATE(&moment.day, text) != 1 || convert_DATE_to_ZT_DATE(text, &date) != 1 ||
            shown(date) != moment.date)
            return "a DATE text: " + std::string(text);
        const LONG ordinal = (moment.day.year - 1900) * 356 + moment.day.day + 30 * (moment.day.month - 1);
        if (cal_ord_ref_date_from_DATE(text) != ordinal)
            return "cal_ord_ref_date_from_DATE of " + std::string(text);
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
