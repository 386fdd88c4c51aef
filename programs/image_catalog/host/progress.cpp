#include "progress.h"

#include "foundation/date.h"
#include "foundation/os.h"

#include <unistd.h>

namespace {

constexpr INT STANDARD_ERROR = 2;
constexpr uint64_t FILES_PER_UPDATE = 64;

}  // namespace

void progress_open(progress &display)
{
    display = {isatty(STANDARD_ERROR) == 1, false, OS_epoch_time()};
}

void progress_update(progress &display, uint64_t done, uint64_t known)
{
    if (!display.is_terminal)
        return;
    const double now = OS_epoch_time();
    if (now == display.last_time && done % FILES_PER_UPDATE != 0)
        return;
    display.last_time = now;
    display.is_shown = true;
    CHAR line[80];
    const INT length = OS_sprintf(line, "\r%llu of %llu files", static_cast<unsigned long long>(done),
                                  static_cast<unsigned long long>(known));
    OS_write(STANDARD_ERROR, line, static_cast<UINT>(length));
}

void progress_close(progress &display)
{
    constexpr CHAR erase[] = "\r\x1b[K";
    if (display.is_shown)
        OS_write(STANDARD_ERROR, erase, sizeof erase - 1);
    display.is_shown = false;
}
