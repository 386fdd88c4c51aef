// The catalogue as a table.

#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <filesystem>

namespace fs = std::filesystem;

using strings = std::vector<std::string>;

namespace {

// The columns of UTF-8 text of which every character takes one.
size_t columns_of(const std::string &text)
{
    size_t columns = 0;
    for (const char byte : text)
        columns += (static_cast<unsigned char>(byte) & 0xC0) != 0x80 ? 1 : 0;
    return columns;
}

}  // namespace

// No path of the samples holds a space, so a row's words are its cells.
TEST_F(ImageCatalog, SaysTheSameInTheTableAndInJson)
{
    const catalogue_document json = read_catalogue(catalog_in(SAMPLES, {"--json", "."}));
    const auto known = [](const std::string &value) {
        return value == "null" ? "-" : value;
    };
    std::vector<strings> expected = {{"Path", "Kind", "Size", "DPI", "Bytes", "CRC-32", "MD5", "Modified"}};
    for (json_members entry : json.entries) {
        strings row;
        if (entry["problem"] != "null")
            row.push_back("!");
        const std::string dpi =
            entry["dpi_x"] == entry["dpi_y"] ? known(entry["dpi_x"]) : entry["dpi_x"] + "x" + entry["dpi_y"];
        for (const std::string &cell :
             {entry["path"], entry["kind"], entry["width"] + "x" + entry["height"], dpi, entry["bytes"],
              entry["crc32"], entry["md5"], entry["modified_at"]})
            row.push_back(cell);
        expected.push_back(row);
    }
    std::vector<strings> rows;
    for (const std::string &line : table_lines(catalog_in(SAMPLES, {"."})))
        rows.push_back(words_of(line));
    EXPECT_EQ(rows, expected);
}

TEST_F(ImageCatalog, AddsTheTotalsByKind)
{
    const child_result run = catalog_in(SAMPLES, {"."});
    EXPECT_NE(run.out.find("\n\n"
                           "png     4 images   2561 bytes\n"
                           "tiff    2 images  15248 bytes\n"
                           "bmp     1 image   18486 bytes\n"
                           "jpeg    3 images   3910 bytes\n"
                           "total  10 images  40205 bytes\n"
                           "2 problems, 0 other files skipped\n"
                           "Catalogue created "),
              std::string::npos)
        << run.out;
}

TEST_F(ImageCatalog, SaysEachProblemOnce)
{
    const child_result run = catalog({SAMPLES});
    EXPECT_EQ(run.out.find("truncated"), std::string::npos) << run.out;
    EXPECT_EQ(lines_of(run.err).size(), 2u) << run.err;
}

// ---- Widths

class TableWidth : public ImageCatalog, public testing::WithParamInterface<size_t> {};

TEST_P(TableWidth, IsNeverExceeded)
{
    const strings lines = table_lines(catalog_in(SAMPLES, {"--width", std::to_string(GetParam()), "."}));
    ASSERT_EQ(lines.size(), 11u);
    for (const std::string &line : lines) {
        EXPECT_LE(columns_of(line), GetParam()) << line;
        EXPECT_NE(line.back(), ' ') << "'" << line << "'";
    }
}

INSTANTIATE_TEST_SUITE_P(Columns, TableWidth, testing::Values(40, 50, 60, 72, 80, 100, 120, 200, 1000),
                         testing::PrintToStringParamName());

TEST_F(ImageCatalog, GivesUpDigestsBeforePathsInANarrowTable)
{
    const auto title = [](const char *width) {
        return words_of(table_lines(catalog_in(SAMPLES, {"--width", width, "."})).at(0));
    };
    EXPECT_EQ(title("200"), (strings{"Path", "Kind", "Size", "DPI", "Bytes", "CRC-32", "MD5", "Modified"}));
    EXPECT_EQ(title("80"), (strings{"Path", "Kind", "Size", "DPI", "Bytes", "Modified"}));
    EXPECT_EQ(title("50"), (strings{"Path", "Kind", "Size", "Bytes"}));
}

TEST_F(ImageCatalog, ShortensALongPathAtItsBeginning)
{
    const std::string name = std::string(100, 'x') + "/the-end.png";
    write(name, png_image());
    const strings lines = table_lines(catalog_in(path(""), {"--width=80", name}));
    EXPECT_PRED2(matches_pattern, lines.at(1), "\\.\\.\\.x+/the-end\\.png  png .*");
    EXPECT_EQ(
        table_lines(catalog_in(path(""), {"--width=80", "--full", name})).at(1).rfind(name + "  png", 0), 0u);
}

// Two columns for a Han character or an emoji, none for a combining mark: the kinds stand below each other in
// the terminal, which the places of the bytes do not show.
TEST_F(ImageCatalog, CountsColumnsAsATerminalDoes)
{
    struct {
        std::string name;
        size_t columns;
    } const names[] = {{"plain.png", 9},
                       {"\xe5\x86\x99\xe7\x9c\x9f.png", 8},
                       {"e\xcc\x81.png", 5},
                       {"\xf0\x9f\x93\xb7.png", 6},
                       {"gr\xc3\xbc\xc3\x9f.png", 8}};
    for (const auto &each : names)
        write(each.name, png_image());
    constexpr size_t widest = 9 + 2;  // "./"
    for (const char *locale : {"C", "C.UTF-8", "POSIX", "nowhere.UTF-8"}) {
        const child_result run =
            run_command({"sh", "-c", "cd \"$1\" && LC_ALL=$2 \"$0\" .", IMAGE_CATALOG, path(""), locale},
                        SANITIZER_OPTIONS);
        for (const auto &each : names) {
            const std::string cell =
                "\n./" + each.name + std::string(widest - 2 - each.columns, ' ') + "  png ";
            EXPECT_NE(run.out.find(cell), std::string::npos) << locale << "\n" << run.out;
        }
    }
}

TEST_F(ImageCatalog, CutsNoWideCharacterInHalf)
{
    std::string name;
    for (int i = 0; i < 40; ++i)
        name += "\xe5\x86\x99";
    write(name, png_image());
    for (const char *width : {"60", "61"}) {
        const strings lines = table_lines(catalog_in(path(""), {"--width", width, name}));
        EXPECT_PRED2(matches_pattern, lines.at(1), "\\.\\.\\.(\xe5\x86\x99)+ +png .*");
    }
}

TEST_F(ImageCatalog, ReportsThatItsOutputCannotBeWritten)
{
    const child_result run = catalog_by_shell("exec \"$0\" \"$1\" >/dev/full", {SAMPLES + "/screen.png"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "image_catalog:  the catalogue cannot be written to standard output\n");
}
