// Date texts and records, day counts, epoch seconds and the clock.

#include "../util/truncate.h"

#include "foundation/date.h"
#include "foundation/os.h"

#include <string.h>
#include <time.h>

static_assert(offsetof(ZT_DATE, year) == 0 && offsetof(ZT_DATE, month) == 2 && offsetof(ZT_DATE, day) == 4 &&
                  sizeof(ZT_DATE) == 6,
              "ZT_DATE is ABI");
static_assert(offsetof(ZT_DATETIME, year) == 0 && offsetof(ZT_DATETIME, month) == 2 &&
                  offsetof(ZT_DATETIME, day) == 4 && offsetof(ZT_DATETIME, hour) == 6 &&
                  offsetof(ZT_DATETIME, minute) == 8 && offsetof(ZT_DATETIME, second) == 10 &&
                  sizeof(ZT_DATETIME) == 12,
              "ZT_DATETIME is ABI, and its first fields can be read as a ZT_DATE");

const CHAR *const _Mon[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Days of the year before the first of each month, and the year's length, for common and leap years.
static const uint64_t daysSinceJan1st[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

namespace {

// ---- DATE texts: month at 0, day at 4, year at 7

constexpr size_t DATE_TEXT_LENGTH = 11;
constexpr INT FIRST_REFERENCE_YEAR = 1900;

INT digit(CHAR character)  // of anything that is no digit, whatever the subtraction gives
{
    return character - '0';
}

INT year_of(const CHAR *text)
{
    return 1000 * digit(text[7]) + 100 * digit(text[8]) + 10 * digit(text[9]) + digit(text[10]);
}

INT day_of(const CHAR *text)
{
    return digit(text[5]) + (text[4] != ' ' ? 10 * digit(text[4]) : 0);
}

// The month, from 0, by the few letters that tell the twelve apart. Anything else counts as December.
INT coarse_month_of(const CHAR *text)
{
    switch (text[0]) {
    case 'J':
        if (text[1] == 'a')
            return 0;
        return text[2] == 'n' ? 5 : 6;
    case 'F':
        return 1;
    case 'M':
        return text[2] == 'r' ? 2 : 4;
    case 'A':
        return text[1] == 'p' ? 3 : 7;
    case 'S':
        return 8;
    case 'O':
        return 9;
    case 'N':
        return 10;
    default:
        return 11;
    }
}

// The month, from 1, or 0 for none.
WORD month_of(const CHAR *text)
{
    if (text[0] == 'J' && text[1] == 'a')  // the third letter is not looked at
        return 1;
    for (WORD month = 1; month <= 12; ++month)
        if (memcmp(text, _Mon[month - 1], 3) == 0)
            return month;
    return 0;
}

// ---- Epoch seconds. Counted from 1601-01-01, the start of a 400-year cycle, so that the longer century of
// a cycle, the longer block of a century and the longer year of a block all come last.

constexpr uint64_t SECONDS_FROM_1601_TO_1970 = 11644473600;
constexpr uint64_t SECONDS_PER_DAY = 86400;
constexpr uint64_t SECONDS_PER_YEAR = 365 * SECONDS_PER_DAY;
constexpr uint64_t SECONDS_PER_FOUR_YEARS = 1461 * SECONDS_PER_DAY;
constexpr uint64_t SECONDS_PER_CENTURY = 36524 * SECONDS_PER_DAY;
constexpr uint64_t SECONDS_PER_CYCLE = 146097 * SECONDS_PER_DAY;

// How many whole periods `seconds` hold, which keeps the rest. There are `last + 1` periods, the last of
// them a day longer than the others: by plain division that day would open one period more.
uint64_t split_off(uint64_t &seconds, uint64_t period, uint64_t last)
{
    const uint64_t by_division = seconds / period;
    const uint64_t periods = by_division < last ? by_division : last;
    seconds -= periods * period;
    return periods;
}

bool is_leap_year(uint64_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

struct month_and_day {
    uint64_t month;
    uint64_t day;
};

// `day_of_year` counts from 0. A day behind the year's end gives month 13, day 1; the split above never
// hands one in.
month_and_day find_month(uint64_t day_of_year, bool is_leap)
{
    const uint64_t *days_before = daysSinceJan1st[is_leap];
    for (uint64_t month = 1; month <= 12; ++month)
        if (day_of_year < days_before[month])
            return {month, day_of_year + 1 - days_before[month - 1]};
    return {13, 1};
}

// ---- Local time

// The zone is read anew, so a changed TZ is seen, and the result is the caller's own.
struct tm local_time_now()
{
    const time_t now = time(nullptr);
    struct tm local = {};
    tzset();
    localtime_r(&now, &local);
    return local;
}

}  // namespace

LONG cal_ord_ref_date_from_DATE(const CHAR *text)
{
    constexpr LONG DAYS_PER_YEAR = 356;  // not 365: the key is coarse, and stored keys depend on it
    constexpr LONG DAYS_PER_MONTH = 30;
    const LONG years = year_of(text) - FIRST_REFERENCE_YEAR;
    return years * DAYS_PER_YEAR + day_of(text) + coarse_month_of(text) * DAYS_PER_MONTH;
}

ZT_BOOL convert_DATE_to_ZT_DATE(const CHAR *text, ZT_DATE *date)
{
    if (strnlen(text, DATE_TEXT_LENGTH) < DATE_TEXT_LENGTH)
        return 0;
    // Stored before the month is looked at: they stay in the record when it is rejected.
    date->year = static_cast<WORD>(year_of(text));
    date->day = static_cast<WORD>(day_of(text));
    const WORD month = month_of(text);
    if (month == 0)
        return 0;
    date->month = month;
    return 1;
}

ZT_BOOL convert_ZT_DATE_to_DATE(const ZT_DATE *date, CHAR *text)
{
    if (date->month < 1 || date->month > 12)
        return 0;
    OS_sprintf(text, "%s %02i %04i", _Mon[date->month - 1], date->day, date->year);
    return 1;
}

void OS_epoch_to_date(ZT_DATETIME *record, double seconds)
{
    uint64_t rest = static_cast<uint64_t>(truncate_to_int64(seconds)) + SECONDS_FROM_1601_TO_1970;
    const uint64_t cycles = rest / SECONDS_PER_CYCLE;
    rest %= SECONDS_PER_CYCLE;
    const uint64_t centuries = split_off(rest, SECONDS_PER_CENTURY, 3);
    const uint64_t blocks = split_off(rest, SECONDS_PER_FOUR_YEARS, 24);
    const uint64_t years = split_off(rest, SECONDS_PER_YEAR, 3);
    const uint64_t year = 1601 + 400 * cycles + 100 * centuries + 4 * blocks + years;
    const month_and_day found = find_month(rest / SECONDS_PER_DAY, is_leap_year(year));
    const uint64_t second_of_day = rest % SECONDS_PER_DAY;

    record->year = static_cast<WORD>(year);
    record->month = static_cast<WORD>(found.month);
    record->day = static_cast<WORD>(found.day);
    record->hour = static_cast<WORD>(second_of_day / 3600);
    record->minute = static_cast<WORD>(second_of_day % 3600 / 60);
    record->second = static_cast<WORD>(second_of_day % 60);
}

double OS_epoch_time(void)
{
    return static_cast<double>(time(nullptr));
}

double OS_system_epoch_time_get(void)
{
    return OS_epoch_time();
}

void OS_system_date_get(ZT_DATE *date)
{
    const struct tm local = local_time_now();
    date->year = static_cast<WORD>(local.tm_year + 1900);
    date->month = static_cast<WORD>(local.tm_mon + 1);
    date->day = static_cast<WORD>(local.tm_mday);
}

void OS_system_date_str_get(CHAR *text)
{
    if (text == nullptr)
        return;
    const struct tm local = local_time_now();
    OS_sprintf(text, "%04i:%02i:%02i %02i:%02i:%02i", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
               local.tm_hour, local.tm_min, local.tm_sec);
}

LONG OS_ref_day_count_get(const ZT_DATE *date)
{
    struct tm day = {};
    day.tm_mday = date->day;
    day.tm_mon = date->month - 1;
    day.tm_year = date->year - 1900;
    day.tm_hour = 23;  // 23 hours of slack absorb whatever the zone's offset did since the reference day
    struct tm reference = {};
    reference.tm_mday = 1;

    const time_t day_time = mktime(&day);  // one after the other: hosts see the order of the platform's calls
    const time_t reference_time = mktime(&reference);
    return truncate_to_int64(difftime(day_time, reference_time) / 60 / 60 / 24);
}
