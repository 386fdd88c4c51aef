/* Dates: a text, a record, a count of days and epoch seconds are four forms of a day. */
#include <foundation/date.h>

#include <stdio.h>
#include <stdlib.h>

/* 1900-01-01, day 0, was a Monday. */
static const char *weekday_of(const ZT_DATE *date)
{
    static const char *const names[] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                        "Friday", "Saturday", "Sunday"};
    return names[OS_ref_day_count_get(date) % 7];
}

int main(void)
{
    /* The form of the compiler's build date; its readers check the month, and nothing else. */
    ZT_DATE launch, landing;
    if (!convert_DATE_to_ZT_DATE("Jul 16 1969", &launch) || !convert_DATE_to_ZT_DATE("Jul 24 1969", &landing))
        return EXIT_FAILURE;
    printf("launched %d-%02d-%02d, a %s\n", launch.year, launch.month, launch.day, weekday_of(&launch));

    /* Count days, not seconds: a day is not always 24 hours long where clocks are changed. */
    const LONG days = OS_ref_day_count_get(&landing) - OS_ref_day_count_get(&launch);
    printf("landed %ld days later, a %s\n", (long)days, weekday_of(&landing));

    /* A day out of range is taken over into the next month, so counting on needs no calendar. */
    const ZT_DATE leap_day = {2024, 2, 29}, same_day = {2024, 1, 31 + 29};
    printf("Feb 29 and \"Jan 60\" are the same day: %s\n",
           OS_ref_day_count_get(&leap_day) == OS_ref_day_count_get(&same_day) ? "yes" : "no");

    CHAR text[12];
    if (convert_ZT_DATE_to_DATE(&leap_day, text))
        printf("as a text again: %s\n", text);

    /* Epoch seconds become UTC, whatever the time zone; the first three fields read as a ZT_DATE. */
    ZT_DATETIME moment;
    OS_epoch_to_date(&moment, 1234567890.0);
    printf("second 1234567890 was %d-%02d-%02d %02d:%02d:%02d UTC, a %s\n", moment.year, moment.month,
           moment.day, moment.hour, moment.minute, moment.second, weekday_of((const ZT_DATE *)&moment));
    return EXIT_SUCCESS;
}

/* Prints:
 * launched 1969-07-16, a Wednesday
 * landed 8 days later, a Thursday
 * Feb 29 and "Jan 60" are the same day: yes
 * as a text again: Feb 29 2024
 * second 1234567890 was 2009-02-13 23:31:30 UTC, a Friday
 */
