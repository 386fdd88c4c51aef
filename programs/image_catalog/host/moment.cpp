#include "moment.h"

#include "foundation/os.h"

bool moment_from_epoch(int64_t epoch_seconds, ZT_DATETIME &moment)
{
    constexpr int64_t year_1601 = INT64_C(-11644473600);
    constexpr int64_t year_10000 = INT64_C(253402300800);
    if (epoch_seconds < year_1601 || epoch_seconds >= year_10000)
        return false;
    OS_epoch_to_date(&moment, static_cast<double>(epoch_seconds));
    return true;
}

INT moment_text(const ZT_DATETIME &moment, CHAR *text)
{
    return OS_sprintf(text, "%04u-%02u-%02uT%02u:%02u:%02uZ", moment.year, moment.month, moment.day,
                      moment.hour, moment.minute, moment.second);
}

INT moment_date_text(const ZT_DATETIME &moment, CHAR *text)
{
    return OS_sprintf(text, "%04u-%02u-%02u", moment.year, moment.month, moment.day);
}
