// Dates against the C library's calendar and against day numbers counted here. Each call stands for itself;
// the sequence is a way to try many and to name the one that differs.

#include "foundation/date.h"

#include "sequences/sequence.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <array>

namespace {

constexpr time_t SECONDS_A_DAY = 86400;
constexpr time_t FROM_1601_TO_1970 = 11644473600;
constexpr const char *MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Days since 1970-01-01, proleptic Gregorian. Years begin with March here, so that a leap day is the last.
LONG day_number(LONG year, LONG month, LONG day)
{
    const LONG shifted_year = year - (month <= 2 ? 1 : 0);
    const LONG shifted_month = (month + 9) % 12;
    return 365 * shifted_year + shifted_year / 4 - shifted_year / 100 + shifted_year / 400 +
           (153 * shifted_month + 2) / 5 + day - 719469;
}

std::vector<uint64_t> words_of(const ZT_DATETIME &record)
{
    return {record.year, record.month, record.day, record.hour, record.minute, record.second};
}

std::vector<uint64_t> words_of(const tm &moment)
{
    // The record's year has 16 bits.
    return {static_cast<WORD>(moment.tm_year + 1900), static_cast<WORD>(moment.tm_mon + 1),
            static_cast<WORD>(moment.tm_mday),        static_cast<WORD>(moment.tm_hour),
            static_cast<WORD>(moment.tm_min),         static_cast<WORD>(moment.tm_sec)};
}

class date_subject : public subject {
public:
    date_subject()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    void perform(const operation &next) override
    {
        switch (next.what % 4) {
        case 0:
            return break_down_moment(next);
        case 1:
            return break_down_border(next);
        case 2:
            return go_through_text(next);
        default:
            return count_days(next);
        }
    }

    void finish() override {}

private:
    // ---- Epoch seconds

    // Any second from 1601 to the end of a year far beyond 16 bits; a fraction is cut off toward zero.
    void break_down_moment(const operation &next)
    {
        const uint64_t wide =
            static_cast<uint64_t>(next.which) << 32 | static_cast<uint64_t>(next.amount) << 16 | next.variant;
        const uint64_t range = UINT64_C(1) << (32 + next.refusal % 15);
        break_down(static_cast<time_t>(wide % range) - FROM_1601_TO_1970, next.variant % 4 * 0.25);
    }

    // The seconds around the first of a year, or of March: where leap days and the ends of cycles are.
    void break_down_border(const operation &next)
    {
        const LONG year = 1602 + next.which;
        const LONG day = day_number(year, next.amount % 2 == 0 ? 1 : 3, 1) - next.amount / 2 % 2;
        break_down(day * SECONDS_A_DAY + static_cast<int16_t>(next.variant) % 4, 0);
    }

    void break_down(time_t whole, double fraction)
    {
        const double seconds =
            whole < 0 ? static_cast<double>(whole) - fraction : static_cast<double>(whole) + fraction;
        tell("OS_epoch_to_date(&record, ", whole, whole < 0 ? " - " : " + ", fraction, ")");
        if (seconds < -static_cast<double>(FROM_1601_TO_1970))
            return;
        ZT_DATETIME record;
        OS_epoch_to_date(&record, seconds);
        tm moment;
        gmtime_r(&whole, &moment);
        expect_equal("the date and time", words_of(record), words_of(moment));
    }

    // ---- Texts

    void go_through_text(const operation &next)
    {
        const ZT_DATE date = {static_cast<WORD>(next.which % 10000), static_cast<WORD>(next.amount % 14),
                              static_cast<WORD>(next.variant % 100)};
        tell("convert_ZT_DATE_to_DATE({", date.year, ", ", date.month, ", ", date.day, "}, text)");
        std::array<char, 16> text;
        text.fill('#');
        const bool is_month = date.month >= 1 && date.month <= 12;
        expect_equal("the result", convert_ZT_DATE_to_DATE(&date, text.data()), is_month ? 1 : 0);
        if (!is_month)
            return expect(text[0] == '#', "nothing is written for an unknown month");
        std::array<char, 16> expected;
        expected.fill('#');
        snprintf(expected.data(), expected.size(), "%s %02d %04d", MONTHS[date.month - 1], date.day,
                 date.year);
        expect(text == expected,
               "the text is the month, the day and the year, and nothing behind is written");
        if (next.refusal % 2 == 0 && date.day < 10)
            text[4] = ' ';
        read_back(text.data(), date);
    }

    void read_back(const CHAR *text, const ZT_DATE &date)
    {
        tell("convert_DATE_to_ZT_DATE, cal_ord_ref_date_from_DATE(\"", text, "\")");
        ZT_DATE record = {1, 2, 3};
        expect_equal("the result", convert_DATE_to_ZT_DATE(text, &record), 1);
        expect(memcmp(&record, &date, sizeof date) == 0, "a text is read as the date it was written from");
        expect_equal("the ordinal", cal_ord_ref_date_from_DATE(text),
                     (date.year - 1900) * 356 + 30 * (date.month - 1) + date.day);
    }

    // ---- Day counts, in UTC

    void count_days(const operation &next)
    {
        const ZT_DATE date = {static_cast<WORD>(1900 + next.which % 2000),
                              static_cast<WORD>(1 + next.amount % 12),
                              static_cast<WORD>(1 + next.variant % 31)};
        tell("OS_ref_day_count_get({", date.year, ", ", date.month, ", ", date.day, "})");
        expect_equal("the count", OS_ref_day_count_get(&date),
                     day_number(date.year, date.month, date.day) - day_number(1900, 1, 1));
    }
};

}  // namespace

std::unique_ptr<subject> date_calls()
{
    return std::make_unique<date_subject>();
}
