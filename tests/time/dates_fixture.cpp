#include "dates_fixture.h"

#include "support/guarded_bytes.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

constinit platform_call<time_t(time_t *)> time_call{"time"};
constinit platform_call<void()> tzset_call{"tzset"};
constinit platform_call<tm *(const time_t *, tm *)> localtime_r_call{"localtime_r"};
constinit platform_call<time_t(tm *)> mktime_call{"mktime"};
constinit platform_call<double(time_t, time_t)> difftime_call{"difftime"};
constinit platform_call<int(char *, const char *, va_list)> vsprintf_call{"vsprintf"};

extern "C" {

BEFORE_SANITIZER time_t time(time_t *result) noexcept
{
    return time_call(result);
}

BEFORE_SANITIZER void tzset() noexcept
{
    tzset_call();
}

BEFORE_SANITIZER tm *localtime_r(const time_t *seconds, tm *result) noexcept
{
    return localtime_r_call(seconds, result);
}

BEFORE_SANITIZER time_t mktime(tm *fields) noexcept
{
    return mktime_call(fields);
}

BEFORE_SANITIZER double difftime(time_t end, time_t start) noexcept
{
    return difftime_call(end, start);
}

BEFORE_SANITIZER int vsprintf(char *destination, const char *format, va_list arguments) noexcept
{
    return vsprintf_call(destination, format, arguments);
}

}  // extern "C"

time_t store_reading(time_t reading, time_t *result)
{
    if (result != nullptr)
        *result = reading;
    return reading;
}

time_zone::time_zone(const std::string &value)
{
    if (const char *former = getenv("TZ"))
        former_ = former;
    setenv("TZ", value.c_str(), 1);
}

time_zone::~time_zone()
{
    if (former_)
        setenv("TZ", former_->c_str(), 1);
    else
        unsetenv("TZ");
}

bool has_zone_data(const std::string &zone)
{
    const char *directory = getenv("TZDIR");
    const std::string path = directory != nullptr ? directory : "/usr/share/zoneinfo";
    return access((path + "/" + zone).c_str(), R_OK) == 0;
}

time_t seconds_at(int year, int month, int day, int hour, int minute, int second)
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

std::string local_date()
{
    ZT_DATE date = {1111, 222, 333};
    OS_system_date_get(&date);
    return shown(date);
}

std::string local_text(size_t length)
{
    guarded_bytes buffer(length + 1);
    memset(buffer.data(), '#', buffer.size());
    OS_system_date_str_get(buffer.text());
    return std::string(buffer.text());
}

const CHAR *at_border(const std::string &text)
{
    static guarded_bytes bytes(DATE_TEXT_LENGTH);
    if (text.size() != DATE_TEXT_LENGTH)
        throw std::invalid_argument("a DATE text has eleven characters: " + text);
    memcpy(bytes.data(), text.data(), DATE_TEXT_LENGTH);
    return bytes.text();
}

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
