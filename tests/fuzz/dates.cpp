// DATE texts of any content, and epoch seconds of any value.

#include "foundation/date.h"

#include "fuzz/target.h"

#include <stdio.h>
#include <time.h>

namespace {

// The first rule that fits counts; a question mark fits every letter, a star every letter that is left.
struct month_rule {
    const char *letters;
    int month;
};

constexpr month_rule READING_RULES[] = {{"Ja?", 1},  {"Feb", 2},  {"Mar", 3}, {"Apr", 4}, {"May", 5},
                                        {"Jun", 6},  {"Jul", 7},  {"Aug", 8}, {"Sep", 9}, {"Oct", 10},
                                        {"Nov", 11}, {"Dec", 12}, {"???", 0}};
constexpr month_rule ORDINAL_RULES[] = {{"Ja?", 1}, {"J?n", 6},  {"J??", 7},  {"F??", 2},
                                        {"M?r", 3}, {"M??", 5},  {"Ap?", 4},  {"A??", 8},
                                        {"S??", 9}, {"O??", 10}, {"N??", 11}, {"???", 12}};

template <size_t COUNT> int month_by(const month_rule (&rules)[COUNT], const std::string &text)
{
    return std::find_if(std::begin(rules), std::end(rules),
                        [&](const month_rule &rule) {
                            for (size_t i = 0; i < 3; ++i)
                                if (rule.letters[i] != '?' && rule.letters[i] != text[i])
                                    return false;
                            return true;
                        })
        ->month;
}

// Of any character: that it is a digit is nowhere tested.
int digit(char character)
{
    return static_cast<signed char>(character) - '0';
}

int year_of(const std::string &text)
{
    return 1000 * digit(text[7]) + 100 * digit(text[8]) + 10 * digit(text[9]) + digit(text[10]);
}

int day_of(const std::string &text)
{
    return digit(text[5]) + (text[4] == ' ' ? 0 : 10 * digit(text[4]));
}

void check_ordinal(const std::string &text)
{
    guarded_bytes bytes(text.data(), 11);  // nothing behind is read
    const LONG expected =
        (LONG{year_of(text)} - 1900) * 356 + day_of(text) + 30 * (month_by(ORDINAL_RULES, text) - 1);
    require_equal("the ordinal", cal_ord_ref_date_from_DATE(bytes.text()), expected);
}

void check_writing(const ZT_DATE &date)
{
    static constexpr const char *MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const bool is_month = date.month >= 1 && date.month <= 12;
    char expected[32] = "";
    const int length = is_month ? snprintf(expected, sizeof expected, "%s %02d %04d", MONTHS[date.month - 1],
                                           date.day, date.year)
                                : 0;
    guarded_bytes text(static_cast<size_t>(length) + 1);
    require_equal("the result of writing", convert_ZT_DATE_to_DATE(&date, text.text()), is_month ? 1 : 0);
    require_equal("the text", std::string(text.text()), expected);
}

void check_reading(const std::string &text)
{
    constexpr WORD UNWRITTEN = 0xBEEF;
    ZT_DATE date = {UNWRITTEN, UNWRITTEN, UNWRITTEN};
    guarded_bytes bytes(text.c_str(), text.size() + 1);
    const ZT_BOOL result = convert_DATE_to_ZT_DATE(bytes.text(), &date);
    const bool is_long_enough = text.size() >= 11;
    const int month = is_long_enough ? month_by(READING_RULES, text) : 0;
    require_equal("the result of reading", result, month != 0 ? 1 : 0);
    require_equal("the year", date.year, is_long_enough ? static_cast<WORD>(year_of(text)) : UNWRITTEN);
    require_equal("the day", date.day, is_long_enough ? static_cast<WORD>(day_of(text)) : UNWRITTEN);
    require_equal("the month", date.month, month != 0 ? static_cast<WORD>(month) : UNWRITTEN);
    check_writing(date);
}

void check_breakdown(double seconds)
{
    constexpr double FIRST = -11644473600;  // 1601-01-01
    constexpr double LAST =
        67767976233532000;  // near the end of the C library's calendar, whose years have 32 bits
    ZT_DATETIME record;
    OS_epoch_to_date(&record, seconds);
    if (!(seconds >= FIRST && seconds <= LAST))
        return;  // means nothing, but must do no harm
    const auto whole = static_cast<time_t>(seconds);
    tm moment;
    gmtime_r(&whole, &moment);
    require_equal("the year", record.year, static_cast<WORD>(LONG{moment.tm_year} + 1900));
    require_equal("the month", record.month, moment.tm_mon + 1);
    require_equal("the day", record.day, moment.tm_mday);
    require_equal("the hour", record.hour, moment.tm_hour);
    require_equal("the minute", record.minute, moment.tm_min);
    require_equal("the second", record.second, moment.tm_sec);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    byte_source source(data, size);
    const auto seconds = source.take<double>();
    const ZT_DATE date = source.take<ZT_DATE>();
    const std::string text = source.take_text(40);
    check_breakdown(seconds);
    check_writing(date);
    check_reading(text);
    if (text.size() >= 11)
        check_ordinal(text);
    return 0;
}
