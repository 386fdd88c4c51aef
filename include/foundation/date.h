/* Dates and time: the DATE text, the calendar record, day counts, epoch seconds and the clock.
 *
 * A DATE text is "Mmm dd yyyy", eleven characters: an English month abbreviation, the day (a space or a
 * zero in front of 1 to 9) and four digits of the year. Nothing behind them is read. No reader checks that
 * a digit is one, or that a day exists: "Feb 31 2026" is read as such.
 *
 * Pointers must be valid unless null is mentioned.
 *
 * Threads: every function may be called from any thread. None belongs in a signal handler. Those that use
 * local time consult the time zone (the environment variable TZ) anew in every call; do not change the
 * environment meanwhile.
 */
#ifndef FOUNDATION_DATE_H
#define FOUNDATION_DATE_H

#include "foundation/attributes_begin.h"
#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A calendar date. */
typedef struct ZT_DATE {
    WORD year;  /* full year, 2026 not 126 */
    WORD month; /* 1..12                   */
    WORD day;   /* 1..31                   */
} ZT_DATE;

/* A calendar date and time of day. */
typedef struct ZT_DATETIME {
    WORD year;   /* the first three fields can be read as a ZT_DATE */
    WORD month;  /* 1..12                                           */
    WORD day;    /* 1..31                                           */
    WORD hour;   /* 0..23                                           */
    WORD minute; /* 0..59                                           */
    WORD second; /* 0..59; no leap seconds                          */
} ZT_DATETIME;

/* The twelve month abbreviations, January first. */
extern const CHAR *const _Mon[12];

/* ---- Texts and records ---- */

/* A coarse key of a DATE text, for comparing: 356 (not 365: stored keys depend on it) for each year since
 * 1900, 30 for each month before, and the day. 27 December equals the next 1 January and the days behind it
 * come out above; the 31st of a month equals the next 1st. The month is told from as few letters as tell the
 * twelve apart; an unknown first letter counts as December. Reads characters 0 to 10, which must be there;
 * the length is not tested. */
LONG cal_ord_ref_date_from_DATE(const CHAR *text) FOUNDATION_NONNULL(1) FOUNDATION_USE_RESULT;

/* Read a DATE text into `date`. Returns 1; or 0, `date` untouched, for a text below eleven characters; or 0
 * for an unknown month, year and day then stored and the month left as it was. The month's letters are
 * case-sensitive; the third of "Jan" is not looked at. */
ZT_BOOL convert_DATE_to_ZT_DATE(const CHAR *text, ZT_DATE *date) FOUNDATION_NONNULL(1, 2);

/* Write `date` as a DATE text with a two-digit day to `text`: 12 bytes, or up to 16 for a day above 99 or a
 * year above 9999, which take their full width. Returns 1; or 0, nothing written, for a month not from 1
 * to 12. */
ZT_BOOL convert_ZT_DATE_to_DATE(const ZT_DATE *date, CHAR *text) FOUNDATION_NONNULL(1, 2);

/* ---- Epoch seconds: since 1970-01-01 00:00:00 UTC, as a double ---- */

/* Break epoch seconds down into a date and time of day, UTC, proleptic Gregorian. The fraction is cut off
 * toward zero. Times before 1601, beyond the 64-bit range, or not a number give a meaningless record; the
 * year is kept modulo 65536. */
void OS_epoch_to_date(ZT_DATETIME *record, double seconds) FOUNDATION_NONNULL(1);

/* The current time, in whole seconds (time). Both names are offered and do the same. */
double OS_epoch_time(void) FOUNDATION_USE_RESULT;
double OS_system_epoch_time_get(void) FOUNDATION_USE_RESULT;

/* ---- Local time ---- */

/* Today's local date. */
void OS_system_date_get(ZT_DATE *date) FOUNDATION_NONNULL(1);

/* Write the local date and time as "yyyy:mm:dd hh:mm:ss", colons in the date too, to `text`: 20 bytes, more
 * from the year 10000 on; null does nothing. */
void OS_system_date_str_get(CHAR *text);

/* Whole days from 1900-01-01 to `date`, a day or month out of range taken over into the next higher field.
 * Measured in local time, without daylight saving, from 00:00 of the first day to 23:00 of the other, and
 * truncated toward zero. So an offset from UTC that is up to 23 hours further east on `date` than it was in
 * 1900 does not show, but one that is an hour or more further west counts as one day more; and 1899-12-31
 * gives 0. Means nothing where the platform cannot convert the date, or 1900-01-01 00:00, in the zone: that
 * of Indian/Cocos skipped that moment. */
LONG OS_ref_day_count_get(const ZT_DATE *date) FOUNDATION_NONNULL(1) FOUNDATION_USE_RESULT;

#ifdef __cplusplus
}
#endif

#include "foundation/attributes_end.h"

#endif
