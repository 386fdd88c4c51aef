#include "terminal.h"

#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr uint64_t USUAL_COLUMNS = 80;

// 0 for what is no number of columns.
uint64_t columns_from_environment()
{
    const CHAR *text = getenv("COLUMNS");
    if (text == nullptr || *text < '1' || *text > '9')
        return 0;
    CHAR *end = nullptr;
    const uint64_t columns = strtoul(text, &end, 10);
    constexpr uint64_t most_columns = 65535;
    return *end == '\0' && columns <= most_columns ? columns : 0;
}

}  // namespace

uint64_t terminal_columns(INT descriptor)
{
    winsize size = {};
    if (isatty(descriptor) == 0)
        return 0;
    if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col != 0)
        return size.ws_col;
    const uint64_t columns = columns_from_environment();
    return columns != 0 ? columns : USUAL_COLUMNS;
}

void terminal_use_utf8()
{
    if (setlocale(LC_CTYPE, "") == nullptr || strcmp(nl_langinfo(CODESET), "UTF-8") != 0)
        setlocale(LC_CTYPE, "C.UTF-8");
}
