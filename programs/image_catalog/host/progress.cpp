#include "progress.h"

#include "foundation/os.h"
#include "interrupt.h"
#include "terminal.h"

#include <string.h>
#include <time.h>

namespace {

constexpr INT STANDARD_ERROR = 2;

uint64_t tenths_of_a_second()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 10 + static_cast<uint64_t>(now.tv_nsec) / 100000000;
}

// The last column stays free: a character there makes some terminals begin a new line.
uint64_t free_columns()
{
    const uint64_t columns = terminal_columns(STANDARD_ERROR);
    return columns > 0 ? columns - 1 : 0;
}

void put_line(const CHAR *text, uint64_t length, uint64_t columns_before)
{
    CHAR line[256];
    CHAR *end = line;
    *end++ = '\r';
    OS_memcpy(end, text, length);
    end += length;
    for (uint64_t i = length; i < columns_before && i < free_columns(); ++i)
        *end++ = ' ';
    OS_write(STANDARD_ERROR, line, static_cast<UINT>(end - line));
}

}  // namespace

void progress_open(progress &display)
{
    display = {terminal_columns(STANDARD_ERROR) != 0, 0, 0};
}

void progress_update(progress &display, uint64_t done, uint64_t known, bool is_complete)
{
    constexpr uint64_t files_per_look = 16;
    if (!display.is_terminal || done % files_per_look != 0)
        return;
    const uint64_t now = tenths_of_a_second();
    if (now == display.last_time)
        return;
    display.last_time = now;
    CHAR text[80];
    const auto length = static_cast<uint64_t>(
        OS_sprintf(text, "%3llu%% of %llu files%s", static_cast<unsigned long long>(100 * done / known),
                   static_cast<unsigned long long>(known), is_complete ? "" : " found so far"));
    const uint64_t room = free_columns();
    const uint64_t shown = length < room ? length : room;
    put_line(text, shown, display.columns_shown);
    display.columns_shown = shown;
}

void progress_close(progress &display)
{
    constexpr uint64_t echo_columns = 2;  // "^C", by the terminal itself
    const uint64_t echoed = is_interrupted() ? echo_columns : 0;
    if (!display.is_terminal || display.columns_shown + echoed == 0)
        return;
    put_line("", 0, display.columns_shown + echoed);
    OS_write(STANDARD_ERROR, "\r", 1);
    display.columns_shown = 0;
}
