// The system report, seen through an OS_debug_output of the test program's own.

#include "foundation/os.h"

#include <gtest/gtest.h>

#include <stdarg.h>
#include <string.h>

#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

struct report_line {
    std::string format;
    int value;  // 0 for a format without a conversion

    bool operator==(const report_line &other) const { return format == other.format && value == other.value; }
};

void PrintTo(const report_line &line, std::ostream *stream)
{
    *stream << '"' << line.format << "\" " << line.value;
}

std::vector<report_line> report;

}  // namespace

extern "C" void OS_debug_output(const CHAR *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    report.push_back({format, strchr(format, '%') != nullptr ? va_arg(arguments, int) : 0});
    va_end(arguments);
}

namespace {

const std::vector<report_line> whole_report = {
    {"\nReport from usunix:\n", 0}, {"sizeof(CHAR)=%d,", 1},     {"sizeof(BYTE)=%d,", 1},
    {"sizeof(LONG)=%d,", 8},        {"sizeof(INT)=%d,", 4},      {"sizeof(UINT)=%d,", 4},
    {"sizeof(WORD)=%d,", 2},        {"sizeof(SHORT)=%d,", 2},    {"sizeof(ZT_BOOL)=%d,", 4},
    {"sizeof(ZT_ERRCOUNT)=%d,", 4}, {"sizeof(ZT_MODE)=%d,", 8},  {"sizeof(LPVOID)=%d,", 8},
    {"sizeof(LPBYTE)=%d,", 8},      {"sizeof(LPWORD)=%d,\n", 8},
};

// What the report does not tell of the base types.
static_assert(std::is_signed_v<CHAR> && std::is_signed_v<SHORT> && std::is_signed_v<INT>);
static_assert(std::is_signed_v<LONG> && std::is_signed_v<ZT_ERRCOUNT>);
static_assert(std::is_unsigned_v<BYTE> && std::is_unsigned_v<WORD> && std::is_unsigned_v<UINT>);

}  // namespace

TEST(SystemReport, NamesEveryBaseTypeWithItsSizeInOrderEachTime)
{
    for (int time = 1; time <= 2; ++time) {
        report.clear();
        _OS_sys_info_print();
        EXPECT_EQ(report, whole_report) << "printed for time " << time;
    }
}
