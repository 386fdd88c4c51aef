// Failures of formatting, of the clock and of local time.

#include "failures/scenario.h"

#include "foundation/date.h"
#include "foundation/os.h"
#include "foundation/util.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

namespace {

constexpr CHAR UNTOUCHED[] = "#######################################";

CHAR text[sizeof UNTOUCHED];
INT answer;
double seconds;
LONG days;
ZT_DATE date;

std::string answer_and_text()
{
    return words(answer, ", ", text);
}

scenarios formatting()
{
    static const BYTE guid[16] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                                  0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    static const ZT_DATE november_5th = {2026, 11, 5};
    return {
        {.name = "OS_sprintf",
         .act = [] { answer = OS_sprintf(text, "%d", 17); },
         .outcomes = {{"nothing", "2, 17"}, {"vsprintf 1", "-1, "}}},
        // Not reported: the digits end in front of the first that cannot be written, or miss it.
        {.name = "OS_guid_to_string",
         .act = [] { answer = OS_guid_to_string(guid, text); },
         .result = [] { return words(answer); },
         .outcomes = {{"nothing", "0"}, {"vsprintf *", "0"}}},
        {.name = "convert_ZT_DATE_to_DATE",
         .act = [] { answer = convert_ZT_DATE_to_DATE(&november_5th, text); },
         .outcomes = {{"nothing", "1, Nov 05 2026"}, {"vsprintf 1", "1, "}}},
        {.name = "Bsu_double_to_string without a fraction",
         .act = [] { answer = Bsu_double_to_string(0, text, 2.6); },
         .outcomes = {{"nothing", "1, 3"}, {"vsprintf 1", "-1, "}}},
        // The first call makes the second one's format.
        {.name = "Bsu_double_to_string with a fraction",
         .act = [] { answer = Bsu_double_to_string(2, text, 2.5); },
         .outcomes = {{"nothing", "4, 2.50"},
                      {"vsprintf 1", "0, "},
                      {"vsprintf 1 on", "-1, "},
                      {"vsprintf 2", "-1, "}}},
    };
}

std::string whole_seconds()
{
    return seconds > 1e9 ? "now" : words(seconds);
}

std::string date_in_words()
{
    return date.year >= 2024 ? "today" : words(date.year, "-", date.month, "-", date.day);
}

// A clock that cannot be read gives -1, the last second of 1969; a breakdown that cannot be made gives zeros.
scenarios clock_readings()
{
    return {
        {.name = "OS_epoch_time",
         .act = [] { seconds = OS_epoch_time(); },
         .result = whole_seconds,
         .outcomes = {{"nothing", "now"}, {"time 1", "-1"}}},
        {.name = "OS_system_epoch_time_get",
         .act = [] { seconds = OS_system_epoch_time_get(); },
         .result = whole_seconds,
         .outcomes = {{"nothing", "now"}, {"time 1", "-1"}}},
        {.name = "OS_system_date_get",
         .act = [] { OS_system_date_get(&date); },
         .result = date_in_words,
         .outcomes = {{"nothing", "today"}, {"time 1", "1969-12-31"}, {"localtime_r 1", "1900-1-0"}}},
        {.name = "OS_system_date_str_get",
         .act = [] { OS_system_date_str_get(text); },
         .result = []() -> std::string { return text[0] == '2' ? "now" : text; },
         .outcomes = {{"nothing", "now"},
                      {"time 1", "1969:12:31 23:59:59"},
                      {"localtime_r 1", "1900:01:00 00:00:00"},
                      {"vsprintf 1", ""}}},
        // Not noticed: a moment that cannot be had counts as the last second of 1969.
        {.name = "OS_ref_day_count_get",
         .act =
             [] {
                 const ZT_DATE millennium = {2000, 1, 1};
                 days = OS_ref_day_count_get(&millennium);
             },
         .result = [] { return words(days); },
         .outcomes =
             {{"nothing", "36524"}, {"mktime 1", "25566"}, {"mktime 2", "10957"}, {"mktime 1 on", "0"}}},
    };
}

}  // namespace

scenarios text_scenarios()
{
    scenarios all;
    for (const auto &make : {formatting, clock_readings})
        for (scenario &each : make()) {
            each.load = [] {
                setenv("TZ", "UTC0", 1);
                OS_system_date_get(&date);  // the C library keeps what it reads of a zone from then on
            };
            each.prepare = [] {
                strcpy(text, UNTOUCHED);
                date = {};
            };
            if (!each.result)
                each.result = answer_and_text;
            all.push_back(std::move(each));
        }
    return all;
}
