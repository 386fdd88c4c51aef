// What the tests of dates share: the platform's time functions under their control, the time zone, the C
// library's calendar as the independent one, and records as texts.
#pragma once

#include "foundation/date.h"

#include "support/platform_call.h"

#include <stdarg.h>
#include <time.h>

#include <optional>
#include <string>
#include <vector>

// Function types are compared by conversion: a template argument loses a prototype's attributes, noisily.
template <typename Function> constexpr bool has_type(Function *)
{
    return true;
}

// ---- The platform

extern platform_call<time_t(time_t *)> time_call;
extern platform_call<void()> tzset_call;
extern platform_call<tm *(const time_t *, tm *)> localtime_r_call;
extern platform_call<time_t(tm *)> mktime_call;
extern platform_call<double(time_t, time_t)> difftime_call;
extern platform_call<int(char *, const char *, va_list)> vsprintf_call;

// What `time` returns for that reading, stored as it stores it.
time_t store_reading(time_t reading, time_t *result);

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
    explicit time_zone(const std::string &value);
    ~time_zone();
    time_zone(const time_zone &) = delete;
    time_zone &operator=(const time_zone &) = delete;

private:
    std::optional<std::string> former_;
};

// Zones by their rules, which need no zone data.
inline constexpr const char *INDIA = "IST-5:30";
inline constexpr const char *NEPAL = "<+0545>-5:45";
inline constexpr const char *CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3";
inline constexpr const char *NEW_YORK = "EST5EDT,M3.2.0,M11.1.0";
inline constexpr const char *FARTHEST_EAST = "<+14>-14";
inline constexpr const char *FARTHEST_WEST = "<-12>12";

// Without its data the C library takes a zone for UTC, and most counts would come out right by accident.
bool has_zone_data(const std::string &zone);

#define ASSERT_HAS_ZONE_DATA(zone)                                                                           \
    ASSERT_TRUE(has_zone_data(zone)) << "No time zone data for " << (zone) << ": these tests need tzdata."

// ---- The independent calendar: the C library's, in UTC

inline constexpr time_t SECONDS_A_DAY = 86400;

time_t seconds_at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
LONG plain_day_count(const ZT_DATE &date);  // since 1900-01-01
ZT_DATE date_of(const struct tm &moment);

// Whether `record` shows that many seconds since 1970.
bool is_moment(const ZT_DATETIME &record, time_t seconds);

// ---- Records and texts

std::string formatted(const char *format, int first, int second, int third);
std::string shown(const ZT_DATE &date);
std::string shown(const ZT_DATETIME &record);

// What the library reads from the clock, over fields that held something else.
std::string local_date();

// The buffer has room for a text of that length and its terminator, and not a byte more.
std::string local_text(size_t length = sizeof "yyyy:mm:dd hh:mm:ss" - 1);

inline const std::vector<std::string> month_texts = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr size_t DATE_TEXT_LENGTH = 11;

// The text, without a terminator, right in front of an inaccessible page: nothing behind it can be read.
const CHAR *at_border(const std::string &text);

// ---- Month letters

// A question mark stands for any character.
struct month_rule {
    const char *letters;
    int value;
};

// The value of the first rule that fits, 0 for none.
int value_by(const std::vector<month_rule> &rules, const std::string &letters);

// Each month's text with each of its letters replaced by each of the 255 other characters.
std::vector<std::string> months_with_one_wrong_letter();

// Each three letters that there are, in either case.
std::vector<std::string> three_letter_texts();
