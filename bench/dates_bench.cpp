// Dates beside the C library's own.

#include "bench.h"

#include "foundation/date.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr time_t MOMENT = 1795267200;  // 2026-11-21 13:20:00 UTC
constexpr ZT_DATE DATE = {2026, 11, 21};

template <typename Work> void add(const char *group, const char *who, Work work)
{
    benchmark::RegisterBenchmark(bench::row(group, who, 1).c_str(), [work](benchmark::State &state) {
        bool is_right = true;
        for (auto _ : state)
            benchmark::DoNotOptimize(is_right = work());
        if (!is_right)
            state.SkipWithError("wrong date");
    });
}

void register_epoch()
{
    bench::describe({"EpochToDate", "Epoch seconds to a date", "dates", {{"gmtime_r"}}});
    add("EpochToDate", "ours", [] {
        ZT_DATETIME record;
        OS_epoch_to_date(&record, static_cast<double>(MOMENT));
        benchmark::DoNotOptimize(record);
        return record.year == 2026 && record.day == 21;
    });
    add("EpochToDate", "gmtime_r", [] {
        tm fields;
        gmtime_r(&MOMENT, &fields);
        benchmark::DoNotOptimize(fields);
        return fields.tm_year == 126 && fields.tm_mday == 21;
    });
}

void register_texts()
{
    bench::describe({"DateToText",
                     "A date as text",
                     "dates",
                     {{"strftime", "consults the locale"}},
                     "one formatted output of the same three values"});
    add("DateToText", "ours", [] {
        CHAR text[16];
        convert_ZT_DATE_to_DATE(&DATE, text);
        benchmark::DoNotOptimize(text);
        return text[10] == '6';
    });
    add("DateToText", "strftime", [] {
        tm fields = {};
        fields.tm_year = 126;
        fields.tm_mon = 10;
        fields.tm_mday = 21;
        char text[16];
        strftime(text, sizeof text, "%b %d %Y", &fields);
        benchmark::DoNotOptimize(text);
        return text[10] == '6';
    });
    add("DateToText", "floor", [] {
        char text[16];
        snprintf(text, sizeof text, "%s %02d %4d", _Mon[10], 21, 2026);
        benchmark::DoNotOptimize(text);
        return text[10] == '6';
    });

    bench::describe({"TextToDate", "A date from a text", "dates", {{"strptime", "consults the locale"}}});
    add("TextToDate", "ours", [] {
        ZT_DATE date;
        convert_DATE_to_ZT_DATE("Nov 21 2026", &date);
        benchmark::DoNotOptimize(date);
        return date.year == 2026 && date.month == 11 && date.day == 21;
    });
    add("TextToDate", "strptime", [] {
        tm fields = {};
        strptime("Nov 21 2026", "%b %d %Y", &fields);
        benchmark::DoNotOptimize(fields);
        return fields.tm_year == 126 && fields.tm_mon == 10 && fields.tm_mday == 21;
    });
}

[[maybe_unused]] const bool registered = (register_epoch(), register_texts(), true);

}  // namespace
