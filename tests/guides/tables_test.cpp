// The tables of docs/guides/dates-and-numbers.md: every row is what the library returns, and what the numbers
// come to by other means.

#include "foundation/date.h"
#include "foundation/os.h"
#include "foundation/util.h"
#include "support/build_facts.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <map>
#include <string>
#include <vector>

namespace {

using row = std::vector<std::string>;

row cells_of(const std::string &line)
{
    row cells;
    size_t begin = 1;  // behind the first bar
    for (size_t end = line.find('|', begin); end != std::string::npos; end = line.find('|', begin)) {
        std::string cell;
        for (const char character : line.substr(begin, end - begin))
            if (character != '`')
                cell += character;
        const size_t first = cell.find_first_not_of(' '), last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
        begin = end + 1;
    }
    return cells;
}

// The rows of the table behind "<!-- table: NAME -->", without its head.
std::vector<row> table(const std::string &name)
{
    const std::string guide = content_of(std::string(SOURCE_DIRECTORY) + "/docs/guides/dates-and-numbers.md");
    const size_t mark = guide.find("<!-- table: " + name + " -->\n");
    EXPECT_NE(mark, std::string::npos) << "no table " << name;
    std::vector<row> rows;
    size_t bars = 0;
    for (const std::string &line : lines_of(guide.substr(mark == std::string::npos ? guide.size() : mark))) {
        if (!line.empty() && line[0] == '|' && ++bars > 2)
            rows.push_back(cells_of(line));
        else if (bars > 2)
            break;
    }
    EXPECT_FALSE(rows.empty()) << "the table " << name << " has no rows";
    return rows;
}

double real(const std::string &cell)
{
    return strtod(cell.c_str(), nullptr);
}

uint64_t bits(const std::string &cell)
{
    return strtoull(cell.c_str(), nullptr, 0);
}

std::string text_of(const char *format, auto... values)
{
    char text[128];
    snprintf(text, sizeof text, format, values...);
    return text;
}

time_t utc_seconds(int year, int month, int day)
{
    tm fields = {};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    return timegm(&fields);
}

// A unit by its name in the tables, with the factors to the target units in ten thousandths.
struct unit {
    uint64_t code, to_metre, to_inch;
    bool is_rounded_to_inch;
};

unit unit_of(const std::string &name)
{
    static const std::map<std::string, unit> units = {
        {"metre", {ZT_RES_UNIT_METER, 10000, 254, true}},
        {"inch", {ZT_RES_UNIT_INCH, 393700, 10000, false}},
        {"centimetre", {ZT_RES_UNIT_CENTIMETER, 1000000, 25400, true}},
        {"ten inches", {ZT_RES_UNIT_10_INCHES, 39370, 1000, false}},
        {"ten centimetres", {ZT_RES_UNIT_10_CENTIMETERS, 100000, 2540, true}},
    };
    return units.at(name);
}

ZT_RESOLUTION resolution_of(const std::string &ratio, const std::string &unit_name)
{
    const uint64_t numerator = bits(ratio), denominator = bits(ratio.substr(ratio.find('/') + 1));
    return {numerator, denominator, numerator, denominator, unit_of(unit_name).code};
}

// By whole numbers: numerator / denominator * factor / 10000, and a half more where it is rounded.
uint64_t by_whole_numbers(const ZT_RESOLUTION &resolution, uint64_t factor, bool is_rounded)
{
    const uint64_t denominator = resolution.x_denominator == 0 ? 1 : resolution.x_denominator;
    const uint64_t divisor = 10000 * denominator;
    return (resolution.x_numerator * factor + (is_rounded ? divisor / 2 : 0)) / divisor;
}

uint64_t converted(uint64_t target, const ZT_RESOLUTION &resolution)
{
    uint64_t x = 0;
    EXPECT_EQ(Bsu_convert_resolution(target, &x, nullptr, resolution), 0);
    return x;
}

}  // namespace

TEST(GuideTables, TellTheTwoNumbersOfADate)
{
    for (const row &cells : table("dates")) {
        const char *text = cells[0].c_str();
        ZT_DATE date;
        ASSERT_TRUE(convert_DATE_to_ZT_DATE(text, &date)) << text;
        EXPECT_EQ(cells[1], std::to_string(cal_ord_ref_date_from_DATE(text))) << text;
        EXPECT_EQ(cells[2], std::to_string(OS_ref_day_count_get(&date))) << text;

        tm fields = {};
        ASSERT_NE(strptime(text, "%b %d %Y", &fields), nullptr) << text;
        EXPECT_EQ(cells[1], std::to_string(fields.tm_year * 356 + fields.tm_mon * 30 + fields.tm_mday))
            << text;
        const time_t seconds = timegm(&fields) - utc_seconds(1900, 1, 1);
        EXPECT_EQ(cells[2], std::to_string(seconds / 86400)) << text;
    }
}

TEST(GuideTables, TellEpochSecondsAsUtc)
{
    for (const row &cells : table("epoch")) {
        ZT_DATETIME moment;
        OS_epoch_to_date(&moment, real(cells[0]));
        EXPECT_EQ(cells[1], text_of("%04d-%02d-%02d %02d:%02d:%02d", moment.year, moment.month, moment.day,
                                    moment.hour, moment.minute, moment.second))
            << cells[0];

        const time_t whole_seconds = static_cast<time_t>(real(cells[0]));
        tm fields = {};
        char text[32];
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime_r(&whole_seconds, &fields));
        EXPECT_EQ(cells[1], text) << cells[0];
    }
}

TEST(GuideTables, TellWhatDotsPerInchBecome)
{
    for (const row &cells : table("dpi")) {
        const uint64_t dpi = bits(cells[0]);
        EXPECT_EQ(cells[1], std::to_string(iQV_convert_DPI_to_PPM(static_cast<LONG>(dpi)))) << dpi;
        EXPECT_EQ(cells[2],
                  std::to_string(converted(ZT_RES_UNIT_METER, resolution_of(cells[0] + "/1", "inch"))))
            << dpi;
        EXPECT_EQ(cells[1], std::to_string((dpi * 3937 + 50) / 100)) << dpi;
        EXPECT_EQ(cells[2], text_of("%.0f", static_cast<double>(static_cast<uint64_t>(dpi * 39.37)))) << dpi;
    }
    EXPECT_EQ(iQV_convert_PPM_to_DPI(2834), 72u);  // as the line below the table says
    EXPECT_EQ(iQV_convert_PPM_to_DPI(2835), 72u);
}

TEST(GuideTables, TellWhatResolutionsBecome)
{
    for (const row &cells : table("resolutions")) {
        const ZT_RESOLUTION resolution = resolution_of(cells[0], cells[1]);
        const unit source = unit_of(cells[1]);
        EXPECT_EQ(cells[2], std::to_string(converted(ZT_RES_UNIT_METER, resolution))) << cells[0] << cells[1];
        EXPECT_EQ(cells[3], std::to_string(converted(ZT_RES_UNIT_INCH, resolution))) << cells[0] << cells[1];
        EXPECT_EQ(bits(cells[2]), by_whole_numbers(resolution, source.to_metre, false))
            << cells[0] << cells[1];
        EXPECT_EQ(bits(cells[3]), by_whole_numbers(resolution, source.to_inch, source.is_rounded_to_inch))
            << cells[0] << cells[1];
    }
}

TEST(GuideTables, TellWhatWordsBecome)
{
    for (const row &cells : table("dwords")) {
        const uint64_t value = bits(cells[0]), swapped = mm_dword_swap(value);
        EXPECT_EQ(cells[1], text_of("0x%lx", swapped)) << cells[0];
        EXPECT_EQ(bits(cells[2]), __builtin_bswap32(static_cast<uint32_t>(value))) << cells[0];
        EXPECT_EQ(bits(cells[1]), (value >> 8) << 32 | bits(cells[2])) << "the residue of " << cells[0];
    }
}

TEST(GuideTables, TellWhatLongWordsBecome)
{
    for (const row &cells : table("qwords")) {
        const uint64_t value = bits(cells[0]);
        EXPECT_EQ(cells[1], text_of("0x%lx", mm_qword_swap(static_cast<int64_t>(value)))) << cells[0];
        EXPECT_EQ(cells[2], text_of("0x%lx", __builtin_bswap64(value))) << cells[0];
        EXPECT_EQ(value < UINT64_C(1) << 32, cells[1] == cells[2]) << cells[0];
    }
}

TEST(GuideTables, TellNumbersAsTexts)
{
    for (const row &cells : table("decimals")) {
        const double value = real(cells[0]);
        const INT decimals = atoi(cells[1].c_str());
        CHAR text[32];
        Bsu_double_to_string(decimals, text, value);
        EXPECT_EQ(cells[2], text) << cells[0];
        EXPECT_EQ(cells[3], text_of("%.*f", decimals, value)) << cells[0];
    }
}
