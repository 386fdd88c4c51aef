// The image catalogue from outside: its host program run on good and bad files, against identify, md5sum,
// zlib and Python's JSON reader.

#include "image_bytes.h"
#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <fcntl.h>
#include <math.h>
#include <regex.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <linux/capability.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string SAMPLES = std::string(SOURCE_DIRECTORY) + "/programs/image_catalog/samples";

// ---- Running the program

// An exit status that no program under test has of its own, for the reports of sanitizers.
const std::vector<std::string> SANITIZER_OPTIONS = {"ASAN_OPTIONS=exitcode=99", "TSAN_OPTIONS=exitcode=99",
                                                    "UBSAN_OPTIONS=exitcode=99"};

child_result run_program(const std::string &program, std::vector<std::string> arguments,
                         const std::vector<std::string> &environment = {})
{
    std::vector<std::string> variables = SANITIZER_OPTIONS;
    variables.insert(variables.end(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(), program);
    child_result run = run_command(arguments, variables);
    EXPECT_TRUE(run.has_exited && run.status <= 2) << run.describe();
    return run;
}

child_result catalog(const std::vector<std::string> &arguments,
                     const std::vector<std::string> &environment = {})
{
    return run_program(IMAGE_CATALOG, arguments, environment);
}

// With `folder` as the current one, so that what is printed does not depend on where the project lies.
child_result catalog_in(const std::string &folder, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(),
                     {"-c", "cd \"$1\" && shift && exec \"$@\"", "sh", folder, IMAGE_CATALOG});
    return run_program("sh", arguments);
}

std::string join(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

// What a run says about its files, told apart from what differs by nature.
std::string without_creation(const std::string &output)
{
    std::string rest;
    for (const std::string &line : lines_of(output))
        if (line.rfind("Catalogue created ", 0) != 0 && line.rfind("  \"created\": ", 0) != 0 &&
            line.rfind("  \"catalogue\": ", 0) != 0)
            rest += line + "\n";
    return rest;
}

// The whole of `text`, by an extended regular expression.
bool matches(const std::string &text, const std::string &pattern)
{
    regex_t expression;
    EXPECT_EQ(regcomp(&expression, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB), 0) << pattern;
    const bool is_match = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&expression);
    return is_match;
}

// ---- Reading the JSON, in which an entry takes a line

std::string entry_of(const child_result &run, const std::string &path)
{
    for (const std::string &line : lines_of(run.out))
        if (line.find("\"path\": \"" + path + "\",") != std::string::npos)
            return line;
    return "";
}

// The value as written: quoted, or a number, or null.
std::string value_of(const std::string &json, const std::string &name)
{
    const std::string key = "\"" + name + "\": ";
    const size_t found = json.find(key);
    if (found == std::string::npos)
        return "";
    const size_t begin = found + key.size();
    const bool is_quoted = json[begin] == '"';
    const size_t end = is_quoted ? json.find('"', begin + 1) + 1 : json.find_first_of(",}\n", begin);
    return json.substr(begin, end - begin);
}

std::string value_of(const child_result &run, const std::string &path, const std::string &name)
{
    return value_of(entry_of(run, path), name);
}

std::string unquoted(const std::string &value)
{
    return value.size() >= 2 && value.front() == '"' ? value.substr(1, value.size() - 2) : value;
}

std::string with_single_spaces(const std::string &line)
{
    std::string text;
    for (const char byte : line)
        if (byte != ' ' || text.empty() || text.back() != ' ')
            text += byte;
    return text;
}

size_t entry_count(const child_result &run)
{
    size_t count = 0;
    for (const std::string &line : lines_of(run.out))
        count += line.find("{\"path\": ") != std::string::npos ? 1 : 0;
    return count;
}

// ---- References

struct identified {
    std::string width;
    std::string height;
    std::string dpi_x;  // rounded; "null" where the file names no resolution
    std::string dpi_y;
};

identified identify(const std::string &path)
{
    const child_result run = run_command({"identify", "-format", "%w %h %U ", path});
    const child_result dpi = run_command({"identify", "-units", "PixelsPerInch", "-format", "%x %y", path});
    EXPECT_TRUE(run.succeeded() && dpi.succeeded()) << run.describe() << dpi.describe();
    identified facts;
    std::string unit;
    std::istringstream(run.out) >> facts.width >> facts.height >> unit;
    double x = 0;
    double y = 0;
    std::istringstream(dpi.out) >> x >> y;
    facts.dpi_x = unit == "Undefined" ? "null" : std::to_string(lround(x));
    facts.dpi_y = unit == "Undefined" ? "null" : std::to_string(lround(y));
    return facts;
}

std::string md5sum(const std::string &path)
{
    const child_result run = run_command({"md5sum", "--", path});
    EXPECT_TRUE(run.succeeded()) << run.describe();
    return run.out.substr(run.out[0] == '\\' ? 1 : 0, 32);
}

std::string zlib_crc32(const std::string &path)
{
    const std::string bytes = content_of(path);
    char text[16];
    snprintf(text, sizeof text, "%08lx",
             crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
    return text;
}

// ---- Files of a test

class ImageCatalog : public testing::Test {
protected:
    std::string path(const std::string &name) const { return scratch.file(name); }

    std::string write(const std::string &name, const std::string &bytes) const
    {
        const fs::path file = path(name);
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        EXPECT_EQ(fs::file_size(file), bytes.size());
        return file.string();
    }

    // A copy of the host without modules, in a folder of its own.
    std::string lonely_host() const
    {
        fs::create_directories(path("host"));
        fs::copy_file(IMAGE_CATALOG, path("host/image_catalog"));
        return path("host/image_catalog");
    }
    void give_module(const std::string &file, const std::string &kind) const
    {
        fs::copy_file(file, path("host/libQV" + kind + "17.so"));
    }

    const scratch_directory scratch;
};

std::vector<std::string> good_samples()
{
    std::vector<std::string> files;
    for (const auto &entry : fs::directory_iterator(SAMPLES))
        if (entry.is_regular_file())
            files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

// ---- What is read from good files

TEST_F(ImageCatalog, AgreesWithIdentifyMd5sumAndZlibOnEverySample)
{
    const std::vector<std::string> samples = good_samples();
    ASSERT_EQ(samples.size(), 8u);
    std::vector<std::string> arguments = {"--json"};
    arguments.insert(arguments.end(), samples.begin(), samples.end());
    const child_result run = catalog(arguments);
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(run.err, "");
    for (const std::string &sample : samples) {
        SCOPED_TRACE(sample);
        const identified expected = identify(sample);
        EXPECT_EQ(value_of(run, sample, "width"), expected.width);
        EXPECT_EQ(value_of(run, sample, "height"), expected.height);
        EXPECT_EQ(value_of(run, sample, "dpi_x"), expected.dpi_x);
        EXPECT_EQ(value_of(run, sample, "dpi_y"), expected.dpi_y);
        EXPECT_EQ(value_of(run, sample, "bytes"), std::to_string(fs::file_size(sample)));
        EXPECT_EQ(unquoted(value_of(run, sample, "md5")), md5sum(sample));
        EXPECT_EQ(unquoted(value_of(run, sample, "crc32")), zlib_crc32(sample));
        EXPECT_EQ(value_of(run, sample, "problem"), "null");
    }
}

TEST_F(ImageCatalog, ReportsExactlyTheTwoDamagedSamples)
{
    const child_result run = catalog({SAMPLES});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, SAMPLES +
                           "/damaged/cut-off.jpg:  truncated: the file ends without an end-of-image "
                           "marker\n" +
                           SAMPLES +
                           "/damaged/flipped-bit.png:  corrupt: wrong checksum of its IDAT chunk at "
                           "byte 54\n");
    EXPECT_NE(run.out.find("\n10 images, 2 problems, 0 other files skipped\n"), std::string::npos) << run.out;
}

TEST_F(ImageCatalog, TellsTheKindFromTheContentAndNotFromTheName)
{
    const std::string png = write("one.jpg", png_image());
    const std::string tiff = write("two.png", tiff_image(byte_order::BIG));
    const std::string bmp = write("three", bmp_image(3, 2, 0, 0));
    const std::string jpeg = write("four.txt", jpeg_image());
    const child_result run = catalog({"--json", path("")});
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(value_of(run, png, "kind"), "\"png\"");
    EXPECT_EQ(value_of(run, tiff, "kind"), "\"tiff\"");
    EXPECT_EQ(value_of(run, bmp, "kind"), "\"bmp\"");
    EXPECT_EQ(value_of(run, jpeg, "kind"), "\"jpeg\"");
}

TEST_F(ImageCatalog, GivesTheResolutionThatIdentifyReports)
{
    const byte_order little = byte_order::LITTLE;
    const byte_order big = byte_order::BIG;
    const auto resolution = [](byte_order order, uint32_t x, uint32_t x_denominator, uint32_t y,
                               uint32_t unit) {
        return std::vector<tiff_field>{ratio(order, 282, x, x_denominator), ratio(order, 283, y, 1),
                                       one_value(order, 296, TIFF_SHORT, unit)};
    };
    const std::map<std::string, std::string> files = {
        {"png-72", png_image(png_resolution(2835, 2835, 1))},
        {"png-300-150", png_image(png_resolution(11811, 5906, 1))},
        {"png-aspect-ratio-only", png_image(png_resolution(4, 3, 0))},
        {"png-none", png_image()},
        {"bmp-72", bmp_image(5, 4, 2835, 2835)},
        {"bmp-300-600", bmp_image(5, 4, 11811, 23622)},
        {"bmp-from-the-top", bmp_image(5, -4, 3780, 3780)},
        {"tiff-ii-inch", tiff_image(little, resolution(little, 300, 1, 150, 2))},
        {"tiff-mm-inch", tiff_image(big, resolution(big, 300, 1, 150, 2))},
        {"tiff-ii-cm", tiff_image(little, resolution(little, 118, 1, 59, 3))},
        {"tiff-mm-cm", tiff_image(big, resolution(big, 118, 1, 59, 3))},
        {"tiff-fraction", tiff_image(big, resolution(big, 3007, 10, 100, 2))},
        {"tiff-half", tiff_image(little, resolution(little, 145, 2, 72, 2))},
        {"tiff-without-unit",
         tiff_image(big, {one_value(big, 282, TIFF_RATIONAL, 200), one_value(big, 283, TIFF_RATIONAL, 200)})},
        {"tiff-no-unit", tiff_image(big, resolution(big, 3, 1, 2, 1))},
        {"tiff-long-size",
         tiff_image(big, {one_value(big, 256, TIFF_LONG, 20), one_value(big, 257, TIFF_LONG, 10)})},
        {"jpeg-inch", jpeg_image(jfif_segment(1, 300, 150))},
        {"jpeg-cm", jpeg_image(jfif_segment(2, 118, 59))},
        {"jpeg-aspect-ratio-only", jpeg_image(jfif_segment(0, 4, 3))},
        {"jpeg-one-per-inch", jpeg_image(jfif_segment(1, 1, 1))},
        {"jpeg-none", jpeg_image()},
        {"jpeg-exif-ii", jpeg_image(exif_segment(little, resolution(little, 240, 1, 120, 2)))},
        {"jpeg-exif-mm-cm", jpeg_image(exif_segment(big, resolution(big, 100, 1, 50, 3)))},
        {"jpeg-exif-behind-jfif",
         jpeg_image(jfif_segment(1, 96, 96) + exif_segment(big, resolution(big, 240, 1, 240, 2)))},
        {"jpeg-exif-before-jfif",
         jpeg_image(exif_segment(big, resolution(big, 240, 1, 240, 2)) + jfif_segment(1, 96, 96))},
        {"jpeg-exif-without-resolution",
         jpeg_image(jfif_segment(1, 96, 96) + exif_segment(big, {one_value(big, 274, TIFF_SHORT, 1)}))},
    };
    for (const auto &[name, bytes] : files)
        write(name, bytes);
    const child_result run = catalog({"--json", path("")});
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(entry_count(run), files.size());
    for (const auto &[name, bytes] : files) {
        SCOPED_TRACE(name);
        // Without resolution fields identify assumes 72 of them per inch.
        const identified expected =
            name == "tiff-long-size" ? identified{"20", "10", "null", "null"} : identify(path(name));
        EXPECT_EQ(value_of(run, path(name), "width"), expected.width);
        EXPECT_EQ(value_of(run, path(name), "height"), expected.height);
        EXPECT_EQ(value_of(run, path(name), "dpi_x"), expected.dpi_x);
        EXPECT_EQ(value_of(run, path(name), "dpi_y"), expected.dpi_y);
    }
}

TEST_F(ImageCatalog, ReadsEveryBitmapHeaderFromTheOldestOn)
{
    const std::string core = write("core.bmp", bmp_core_image(7, 3));
    for (unsigned size : {52u, 56u, 108u, 124u}) {
        const std::string plain = bmp_image(7, 3, 2835, 2835);
        std::string longer = plain.substr(0, 54) + std::string(size - 40, '\0') + plain.substr(54);
        longer = with_bytes(longer, 2, number(byte_order::LITTLE, longer.size(), 4));
        longer = with_bytes(longer, 10, number(byte_order::LITTLE, 14 + size, 4));
        write("header-" + std::to_string(size), with_bytes(longer, 14, number(byte_order::LITTLE, size, 4)));
    }
    const child_result run = catalog({"--json", path("")});
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(entry_count(run), 5u);
    EXPECT_EQ(value_of(run, core, "width"), "7");
    EXPECT_EQ(value_of(run, core, "dpi_x"), "null");
    for (const char *name : {"header-52", "header-56", "header-108", "header-124"}) {
        EXPECT_EQ(value_of(run, path(name), "width"), "7") << name;
        EXPECT_EQ(value_of(run, path(name), "height"), "3") << name;
        EXPECT_EQ(value_of(run, path(name), "dpi_y"), "72") << name;
    }
}

TEST_F(ImageCatalog, ShowsTheModificationDateInUniversalTime)
{
    const std::map<std::string, time_t> times = {
        {"Nov 05 2001", 1004918400}, {"Feb 28 2000", 951782399}, {"Dec 31 1969", -1}, {"Jan 01 1970", 0}};
    for (const auto &[date, seconds] : times) {
        const std::string file = write(date, png_image());
        const timespec both[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), both, 0), 0);
    }
    const child_result run = catalog({"--json", path("")}, {"TZ=Pacific/Auckland"});
    for (const auto &[date, seconds] : times)
        EXPECT_EQ(value_of(run, path(date), "modified"), "\"" + date + "\"");
}

// ---- Files with a problem

namespace {

struct bad_file {
    std::string name;
    std::string bytes;
    std::string reason;
};

std::vector<bad_file> bad_png_files()
{
    const std::string good = png_image();
    std::string flipped = good;
    flipped[good.find("IDAT") + 6] ^= 0x01;
    const std::string signature = good.substr(0, 8);
    const std::string pixels = png_pixels(20, 10);
    const std::string size = std::to_string(good.size());
    return {
        {"flipped-bit.png", flipped, "corrupt: wrong checksum of its IDAT chunk at byte 33"},
        {"flipped-header-bit.png", with_bytes(good, 17, "\x01"),
         "corrupt: wrong checksum of its IHDR chunk at byte 8"},
        {"signature-only.png", signature, "truncated: the file ends without an IEND chunk"},
        {"half-signature.png", signature.substr(0, 4), "truncated: the file ends inside its signature"},
        {"cut-in-frame.png", good.substr(0, 38), "truncated: the file ends inside a chunk's frame"},
        {"cut-in-chunk.png", good.substr(0, 46), "truncated: the file ends inside its IDAT chunk at byte 33"},
        {"without-end.png", good.substr(0, good.size() - 12),
         "truncated: the file ends without an IEND chunk"},
        {"endless-chunk.png", with_bytes(good, 33, "\xFF\xFF\xFF\xFF"), "corrupt: no valid chunk at byte 33"},
        {"long-chunk.png", with_bytes(good, 33, "\x7F\xFF\xFF\xFF"),
         "truncated: the file ends inside its IDAT chunk at byte 33"},
        {"no-chunk.png", with_bytes(good, 37, std::string("\0\x1b\n%", 4)),
         "corrupt: no valid chunk at byte 33"},
        {"late-header.png", png_file({pixels, png_header(20, 10)}),
         "corrupt: it does not begin with an IHDR chunk of 13 bytes"},
        {"short-header.png", png_file({png_chunk("IHDR", "short"), pixels}),
         "corrupt: it does not begin with an IHDR chunk of 13 bytes"},
        {"odd-depth.png", png_file({png_header(20, 10, 3), pixels}),
         "corrupt: IHDR gives an unknown pixel format"},
        {"odd-colour.png", png_file({png_header(20, 10, 8, 5), pixels}),
         "corrupt: IHDR gives an unknown pixel format"},
        {"no-width.png", png_file({png_header(0, 10), pixels}), "header claims an impossible size of 0 x 10"},
        {"no-height.png", png_file({png_header(20, 0), pixels}),
         "header claims an impossible size of 20 x 0"},
        {"too-wide.png", png_file({png_header(0x80000000, 10), pixels}),
         "header claims an impossible size of 2147483648 x 10"},
        {"huge.png", png_file({png_header(0x7FFFFFFF, 0x7FFFFFFF), pixels}),
         "header claims 2147483647 x 2147483647 pixels, more than its " + size + " bytes can hold"},
        {"large.png", png_file({png_header(1000, 1000, 16, 6), pixels}),
         "header claims 1000 x 1000 pixels, more than its " + size + " bytes can hold"},
        {"no-pixels.png", png_file({png_header(20, 10)}), "corrupt: it has no IDAT chunk"},
    };
}

std::vector<bad_file> bad_tiff_files(byte_order order)
{
    const std::string good = tiff_image(order, {ratio(order, 282, 300, 1), ratio(order, 283, 300, 1)});
    const auto changed = [&](const tiff_field &field) {
        return tiff_image(order, {field});
    };
    const auto header_with = [&](uint32_t first) {
        return with_bytes(good, 4, number(order, first, 4));
    };
    const std::string entry_256 = number(order, 256, 2) + number(order, TIFF_SHORT, 2);
    const std::string entry_282 = number(order, 282, 2) + number(order, TIFF_RATIONAL, 2);
    const size_t ratio_offset = good.find(entry_282) + 8;
    const std::vector<tiff_field> usual = tiff_fields(order);
    const uint32_t second = TIFF_DIRECTORY + 2 + 12 * 9 + 4;  // behind the usual directory
    const std::string two_directories = tiff_file(order, usual, second) + number(order, 1, 2) +
                                        number(order, 254, 2) + number(order, TIFF_LONG, 2) +
                                        number(order, 1, 4) + number(order, 0, 4);
    const auto strips = [&](uint32_t count) {
        return tiff_field{273, TIFF_LONG, count, number(order, 8, 4) + number(order, 8, 4)};
    };
    const std::string prefix = order == byte_order::LITTLE ? "ii-" : "mm-";
    return {
        {prefix + "header-only.tif", good.substr(0, 4), "truncated: the file ends inside its header"},
        {prefix + "no-directory.tif", header_with(0), "corrupt: it has no directory"},
        {prefix + "directory-outside.tif", header_with(100000),
         "truncated or corrupt: its directory at byte 100000 lies outside the file"},
        {prefix + "directory-at-the-top.tif", header_with(0xFFFFFFFF),
         "truncated or corrupt: its directory at byte 4294967295 lies outside the file"},
        {prefix + "directory-cut.tif", good.substr(0, TIFF_DIRECTORY + 20),
         "truncated or corrupt: its directory at byte 208 lies outside the file"},
        {prefix + "empty-directory.tif", with_bytes(good, TIFF_DIRECTORY, number(order, 0, 2)),
         "corrupt: its directory at byte 208 is empty"},
        {prefix + "circle-of-one.tif", tiff_file(order, usual, TIFF_DIRECTORY),
         "corrupt: its directories form a circle or overlap"},
        {prefix + "circle-of-two.tif", two_directories + number(order, TIFF_DIRECTORY, 4),
         "corrupt: its directories form a circle or overlap"},
        {prefix + "second-directory-outside.tif", tiff_file(order, usual, 99999),
         "truncated or corrupt: its directory at byte 99999 lies outside the file"},
        {prefix + "ratio-outside.tif", with_bytes(good, ratio_offset, number(order, 0xFFFFFFFC, 4)),
         "truncated or corrupt: its field 282 points outside the file"},
        {prefix + "ratio-cut.tif", good.substr(0, good.size() - 1),
         "truncated or corrupt: its field 283 points outside the file"},
        {prefix + "no-ratio.tif", changed(one_value(order, 282, TIFF_LONG, 300)),
         "corrupt: its field 282 is no ratio"},
        {prefix + "odd-unit.tif", changed(one_value(order, 296, TIFF_RATIONAL, 2)),
         "corrupt: its resolution unit is no number"},
        {prefix + "pixels-outside.tif", changed(one_value(order, 273, TIFF_LONG, 5000)),
         "truncated or corrupt: its pixels lie outside the file"},
        {prefix + "pixels-too-long.tif", changed(one_value(order, 279, TIFF_LONG, 0xFFFFFFFF)),
         "truncated or corrupt: its pixels lie outside the file"},
        {prefix + "endless-strips.tif", changed(strips(0xFFFFFFFF)),
         "truncated or corrupt: its field 273 points outside the file"},
        {prefix + "odd-strips.tif", changed(one_value(order, 273, TIFF_BYTE, 8)),
         "corrupt: the places of its pixels are no numbers"},
        {prefix + "no-width.tif", with_bytes(good, good.find(entry_256), number(order, 255, 2)),
         "corrupt: it gives no image width"},
        {prefix + "width-of-nothing.tif", changed({256, TIFF_SHORT, 0, ""}),
         "corrupt: its field 256 has no values"},
        {prefix + "zero-height.tif", changed(one_value(order, 257, TIFF_SHORT, 0)),
         "header claims an impossible size of 20 x 0"},
        {prefix + "odd-height.tif", changed(ratio(order, 257, 10, 1)), "corrupt: it gives no image height"},
        {prefix + "too-wide.tif", changed(one_value(order, 256, TIFF_LONG, 0x80000000)),
         "header claims an impossible size of 2147483648 x 10"},
        {prefix + "huge.tif", changed(one_value(order, 256, TIFF_LONG, 0x7FFFFFFF)),
         "header claims 2147483647 x 10 pixels, more than its " + std::to_string(tiff_image(order).size()) +
             " bytes can hold"},
        {prefix + "wide-offsets.tif", with_bytes(good, 2, number(order, 43, 2)),
         "TIFF with 64-bit offsets is not supported"},
    };
}

std::vector<bad_file> bad_jpeg_files()
{
    const std::string good = jpeg_image(jfif_segment(1, 96, 96));
    const size_t size_offset = jpeg_size_offset(good);
    const byte_order big = byte_order::BIG;
    const std::vector<tiff_field> density = {ratio(big, 282, 240, 1)};
    const std::string exif = exif_segment(big, density);
    // The directory follows "Exif", two zero bytes and the header of eight bytes; its one ratio stands last.
    const std::string ratio_outside = with_bytes(exif, 4 + 6 + 8 + 2 + 8, number(big, 0x7FFFFFFF, 4));
    const std::string directory_outside = with_bytes(exif, 4 + 6 + 4, number(big, 5000, 4));
    return {
        {"start-only.jpg", good.substr(0, 3), "truncated: the file ends without an end-of-image marker"},
        {"cut-in-data.jpg", good.substr(0, good.size() - 40),
         "truncated: the file ends without an end-of-image marker"},
        {"without-end.jpg", good.substr(0, good.size() - 2),
         "truncated: the file ends without an end-of-image marker"},
        {"cut-in-segment.jpg", good.substr(0, 10), "truncated: the file ends inside its segment at byte 2"},
        {"cut-in-length.jpg", good.substr(0, 5), "truncated: the file ends inside its segment at byte 2"},
        {"short-segment.jpg", with_bytes(good, 4, number(big, 1, 2)), "corrupt: no valid segment at byte 2"},
        {"no-marker.jpg", with_bytes(good, 20, "x"), "corrupt: no marker at byte 20"},
        {"no-frame.jpg", "\xFF\xD8" + jfif_segment(1, 96, 96) + "\xFF\xD9",
         "corrupt: it has no frame header"},
        {"no-data.jpg",
         good.substr(0, size_offset - 5) + jpeg_segment(0xC0, std::string("\x08\0\1\0\1\0", 6)) + "\xFF\xD9",
         "corrupt: it has no image data"},
        {"short-frame.jpg", good.substr(0, 20) + jpeg_segment(0xC0, "abc") + good.substr(20),
         "corrupt: its frame header is too short"},
        {"no-height.jpg", with_bytes(good, size_offset, number(big, 0, 2)),
         "header claims an impossible size of 96 x 0"},
        {"huge.jpg", with_bytes(good, size_offset, "\xFF\xFF\xFF\xFF"),
         "header claims 65535 x 65535 pixels, more than its " + std::to_string(good.size()) +
             " bytes can hold"},
        {"exif-ratio-outside.jpg", jpeg_image(ratio_outside), "corrupt: its Exif data is damaged"},
        {"exif-directory-outside.jpg", jpeg_image(directory_outside), "corrupt: its Exif data is damaged"},
        {"exif-empty.jpg", jpeg_image(jpeg_segment(0xE1, std::string("Exif\0\0", 6))),
         "corrupt: its Exif data is damaged"},
    };
}

std::vector<bad_file> bad_bmp_files()
{
    const std::string good = bmp_image(5, 4, 2835, 2835);  // 54 bytes of header, 64 of pixels
    const byte_order little = byte_order::LITTLE;
    const auto changed = [&](size_t offset, uint32_t value, unsigned bytes = 4) {
        return with_bytes(good, offset, number(little, value, bytes));
    };
    return {
        {"header-cut.bmp", good.substr(0, 16), "truncated: the file ends inside its header"},
        {"information-cut.bmp", good.substr(0, 50), "truncated: the file ends inside its header"},
        {"pixels-cut.bmp", good.substr(0, good.size() - 1),
         "truncated: the file ends before its last row of pixels"},
        {"no-pixels.bmp", good.substr(0, 54), "truncated: its pixels would begin behind the end of the file"},
        {"odd-header.bmp", changed(14, 7), "corrupt: unknown header of 7 bytes"},
        {"huge-header.bmp", changed(14, 0xFFFFFFFF), "corrupt: unknown header of 4294967295 bytes"},
        {"no-width.bmp", changed(18, 0), "header claims an impossible size of 0 x 4"},
        {"negative-width.bmp", changed(18, 0xFFFFFFFB), "corrupt: its width is negative"},
        {"lowest-height.bmp", changed(22, 0x80000000), "header claims an impossible size of 5 x 2147483648"},
        {"huge.bmp", with_bytes(good, 18, "\xFF\xFF\xFF\x7F\xFF\xFF\xFF\x7F"),
         "header claims 2147483647 x 2147483647 pixels, more than its 118 bytes can hold"},
        {"wide.bmp", changed(18, 100), "truncated: the file ends before its last row of pixels"},
        {"tall.bmp", changed(22, 5), "truncated: the file ends before its last row of pixels"},
        {"odd-depth.bmp", changed(28, 7, 2), "corrupt: unknown pixel size of 7 bits"},
        {"pixels-in-header.bmp", changed(10, 20), "corrupt: its pixels begin inside its header"},
        {"pixels-outside.bmp", changed(10, 0xFFFFFFFF),
         "truncated: its pixels would begin behind the end of the file"},
        {"longer-in-header.bmp", changed(2, 500), "truncated: the file is shorter than its header says"},
    };
}

std::vector<bad_file> all_bad_files()
{
    std::vector<bad_file> files = bad_png_files();
    for (const std::vector<bad_file> &more :
         {bad_tiff_files(byte_order::LITTLE), bad_tiff_files(byte_order::BIG), bad_jpeg_files(),
          bad_bmp_files()})
        files.insert(files.end(), more.begin(), more.end());
    return files;
}

}  // namespace

TEST_F(ImageCatalog, GivesOneLineWithTheReasonForEachBadFileAndStillListsTheGoodOnes)
{
    const std::string good = write("good.png", png_image(png_resolution(2835, 2835, 1)));
    std::map<std::string, std::string> reasons;  // in the order of the paths
    for (const bad_file &file : all_bad_files())
        ASSERT_TRUE(reasons.emplace(write(file.name, file.bytes), file.reason).second) << file.name;
    std::string expected;
    for (const auto &[file, reason] : reasons)
        expected += file + ":  " + reason + "\n";

    const child_result run = catalog({"--json", path("")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, expected);
    EXPECT_EQ(entry_count(run), reasons.size() + 1);
    for (const auto &[file, reason] : reasons)
        EXPECT_EQ(value_of(run, file, "problem"), "\"" + reason + "\"");
    EXPECT_EQ(value_of(run, good, "problem"), "null");
    EXPECT_EQ(value_of(run, good, "dpi_x"), "72");
}

TEST_F(ImageCatalog, NoticesEveryPlaceWhereASampleCanBeCutOff)
{
    std::vector<std::string> arguments = {"--json"};
    for (const std::string &sample : good_samples()) {
        const std::string bytes = content_of(sample);
        const size_t step = bytes.size() / 100;
        for (size_t length = bytes.size() - 1; length > step; length -= step)
            arguments.push_back(write(fs::path(sample).filename().string() + std::to_string(length),
                                      bytes.substr(0, length)));
    }
    ASSERT_GT(arguments.size(), 700u);
    const child_result run = catalog(arguments);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(entry_count(run), arguments.size() - 1);
    for (const std::string &line : lines_of(run.out))
        EXPECT_EQ(line.find("\"problem\": null"), std::string::npos) << line;
}

TEST_F(ImageCatalog, SurvivesWhateverBytesAreChanged)
{
    uint32_t state = 12345;  // of a small generator: the same files in every run
    const auto below = [&](size_t limit) {
        state = state * 1664525 + 1013904223;
        return (state >> 8) % limit;
    };
    std::vector<std::string> bases;
    for (const std::string &sample : good_samples())
        bases.push_back(content_of(sample));
    for (const bad_file &file : all_bad_files())
        bases.push_back(file.bytes);
    constexpr size_t variants = 600;
    for (size_t i = 0; i < variants; ++i) {
        std::string bytes = bases[i % bases.size()];
        for (size_t change = 1 + below(4); change > 0; --change) {
            const size_t offset = below(below(2) == 0 ? std::min<size_t>(bytes.size(), 64) : bytes.size());
            static const char *const extremes[] = {"\xFF\xFF\xFF\xFF", "\x7F\xFF\xFF\xFF", "\x80", "\xFF",
                                                   "\x01"};
            const std::string value = below(2) == 0 ? std::string(1, static_cast<char>(below(256)))
                                                    : std::string(extremes[below(5)]);
            bytes = with_bytes(bytes, std::min(offset, bytes.size() - std::min(value.size(), bytes.size())),
                               value);
        }
        if (below(4) == 0)
            bytes.resize(below(bytes.size()));
        write(std::to_string(1000 + i), bytes);
    }
    std::vector<std::string> arguments = {"--json"};
    for (size_t i = 0; i < variants; ++i)
        arguments.push_back(path(std::to_string(1000 + i)));
    const child_result run = catalog(arguments);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(entry_count(run), variants);
}

TEST_F(ImageCatalog, EndsSoonOnDirectoriesThatShareOneTable)
{
    // Looked at in full, 20000 directories of a million pieces each would take minutes.
    const byte_order order = byte_order::LITTLE;
    constexpr uint32_t pieces = 1000000;
    constexpr uint32_t directories = 20000;
    const auto whole = [&](unsigned tag, uint32_t count, uint32_t value) {
        return number(order, tag, 2) + number(order, TIFF_LONG, 2) + number(order, count, 4) +
               number(order, value, 4);
    };
    std::string table;
    for (uint32_t i = 0; i < pieces; ++i)
        table += number(order, 8, 4);
    const std::string directory = number(order, 4, 2) + whole(256, 1, 20) + whole(257, 1, 10) +
                                  whole(273, pieces, 8) + whole(279, pieces, 8);
    uint32_t offset = static_cast<uint32_t>(8 + table.size());
    std::string file = "II" + number(order, 42, 2) + number(order, offset, 4) + table;
    for (uint32_t i = 0; i < directories; ++i) {
        offset += static_cast<uint32_t>(directory.size()) + 4;
        file += directory + number(order, i + 1 < directories ? offset : 0, 4);
    }
    const std::string shared = write("shared.tif", file);
    const child_result run = catalog({shared});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, shared + ":  corrupt: its directories form a circle or overlap\n");
}

TEST_F(ImageCatalog, NamesWhatIsMissingUnreadableEmptyOrNoFile)
{
    const std::string good = write("folder/good.png", png_image());
    ASSERT_EQ(symlink("nowhere", path("folder/lost-link").c_str()), 0);
    write("folder/sealed.png", png_image());
    ASSERT_EQ(chmod(path("folder/sealed.png").c_str(), 0), 0);
    fs::create_directory(path("folder/sealed"));
    ASSERT_EQ(chmod(path("folder/sealed").c_str(), 0), 0);
    write("empty", "");
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const std::vector<std::string> arguments = {path("missing.png"), path("empty"),  path("pipe"),
                                                "/dev/null",         path("folder"), good + "/below"};

    expect_passes_in_child([&] {
        // Without these even the superuser is refused what the permission bits refuse.
        if (geteuid() == 0) {
            ASSERT_EQ(prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0), 0);
            ASSERT_EQ(prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0), 0);
        }
        const child_result run = catalog(arguments);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, join({
                               "/dev/null:  is no regular file",
                               path("empty") + ":  is empty",
                               good + "/below:  cannot be opened: Not a directory",
                               path("folder/lost-link") + ":  cannot be opened: No such file or directory",
                               path("folder/sealed") + ":  cannot be listed: Permission denied",
                               path("folder/sealed.png") + ":  cannot be opened: Permission denied",
                               path("missing.png") + ":  cannot be opened: No such file or directory",
                               path("pipe") + ":  is no regular file",
                           }));
        EXPECT_NE(run.out.find("\n" + good), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("\n1 image, 8 problems, 0 other files skipped\n"), std::string::npos)
            << run.out;
    });
    chmod(path("folder/sealed").c_str(), 0700);
}

TEST_F(ImageCatalog, ReportsAFileThatDoesNotFitIntoMemory)
{
    const std::string huge = write("huge.png", png_image());
    ASSERT_EQ(truncate(huge.c_str(), off_t{1} << 42), 0) << "the file system takes no sparse file of 4 TiB";
    const std::string good = write("small.png", png_image());
    const child_result run = catalog({"--json", huge, good});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, huge + ":  its 4398046511104 bytes do not fit into memory\n");
    EXPECT_EQ(value_of(run, huge, "kind"), "\"png\"");
    EXPECT_EQ(value_of(run, huge, "bytes"), "4398046511104");
    EXPECT_EQ(value_of(run, huge, "md5"), "null");
    EXPECT_EQ(value_of(run, good, "problem"), "null");
}

TEST_F(ImageCatalog, ReadsLargeFilesBesideSmallOnes)
{
    constexpr off_t large = (off_t{64} << 20) + 1;  // from here on, one at a time
    std::vector<std::string> files = {write("small.png", png_image())};
    for (const char *name : {"large1.tif", "large2.tif", "large3.tif"}) {
        files.push_back(
            write(name, tiff_image(byte_order::BIG, {one_value(byte_order::BIG, 282, TIFF_RATIONAL, 300)})));
        ASSERT_EQ(truncate(files.back().c_str(), large), 0);
    }
    const child_result run = catalog({"--json", "--jobs", "4", path("")});
    EXPECT_EQ(run.status, 0) << run.describe();
    for (const std::string &file : files)
        EXPECT_EQ(unquoted(value_of(run, file, "md5")), md5sum(file)) << file;
    EXPECT_EQ(value_of(run, files[1], "dpi_x"), "300");
}

// ---- Folders

TEST_F(ImageCatalog, SearchesFoldersToTheBottomButFollowsNoLinkToAFolder)
{
    const std::string top = write("a/one.png", png_image());
    const std::string deep = write("a/b/c/d/e/two.png", png_image());
    const std::string outside = write("elsewhere/three.png", png_image());
    ASSERT_EQ(symlink("..", path("a/b/up").c_str()), 0);
    ASSERT_EQ(symlink("../elsewhere", path("a/aside").c_str()), 0);
    ASSERT_EQ(symlink("../elsewhere/three.png", path("a/linked.png").c_str()), 0);
    const child_result run = catalog({"--json", path("a")});
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(entry_count(run), 3u) << run.out;
    for (const std::string &file : {top, deep, path("a/linked.png")})
        EXPECT_EQ(value_of(run, file, "problem"), "null") << file;

    const child_result through_link = catalog({"--json", path("a/aside")});
    EXPECT_EQ(value_of(through_link, path("a/aside/three.png"), "kind"), "\"png\"");
}

TEST_F(ImageCatalog, CountsOtherFilesOfAFolderAndReportsThemOnlyWhenNamed)
{
    const std::string text = write("folder/notes.txt", "BMW, not a bitmap\n");
    write("folder/nothing", "");
    write("folder/image.png", png_image());
    ASSERT_EQ(mkfifo(path("folder/pipe").c_str(), 0600), 0);
    const child_result walked = catalog({"--json", path("folder")});
    EXPECT_EQ(walked.status, 0) << walked.describe();
    EXPECT_EQ(entry_count(walked), 1u);
    EXPECT_EQ(value_of(walked.out, "skipped"), "3");

    const child_result named = catalog({"--json", text});
    EXPECT_EQ(named.status, 1);
    EXPECT_EQ(named.err, text + ":  is no image of a known kind\n");
    EXPECT_EQ(unquoted(value_of(named, text, "md5")), md5sum(text));
}

TEST_F(ImageCatalog, ListsAFileOnceHoweverOftenItIsMet)
{
    const std::string file = write("folder/image.png", png_image());
    const std::string text = write("folder/notes.txt", "no image\n");
    const child_result run = catalog({"--json", path("folder"), file, text, file, path("folder"), text});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(entry_count(run), 2u) << run.out;
    EXPECT_EQ(run.err, text + ":  is no image of a known kind\n");
}

TEST_F(ImageCatalog, IsContentWithAnEmptyFolder)
{
    fs::create_directory(path("empty"));
    const child_result table = catalog({path("empty")});
    EXPECT_EQ(table.status, 0) << table.describe();
    EXPECT_NE(table.out.find("\n0 images, 0 problems, 0 other files skipped\n"), std::string::npos)
        << table.out;
    const child_result json = catalog({"--json", path("empty")});
    EXPECT_EQ(json.status, 0) << json.describe();
    EXPECT_EQ(entry_count(json), 0u);
    EXPECT_EQ(value_of(json.out, "images"), "0");
}

// ---- Output

TEST_F(ImageCatalog, SaysTheSameInTheTableAndInJson)
{
    const child_result table = catalog({SAMPLES});
    const child_result json = catalog({"--json", SAMPLES});
    EXPECT_EQ(table.status, 1);
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(table.err, json.err);
    const auto known = [](const std::string &value) {
        return value == "null" ? "-" : unquoted(value);
    };
    std::vector<std::string> expected;
    for (const std::string &line : lines_of(json.out)) {
        if (line.find("{\"path\": ") == std::string::npos)
            continue;
        const std::string x = known(value_of(line, "dpi_x"));
        const std::string y = known(value_of(line, "dpi_y"));
        std::string row;
        for (const std::string &cell :
             {known(value_of(line, "path")), known(value_of(line, "kind")),
              known(value_of(line, "width")) + "x" + known(value_of(line, "height")),
              x == y ? x : x + "x" + y, known(value_of(line, "bytes")), known(value_of(line, "crc32")),
              known(value_of(line, "md5")), known(value_of(line, "modified")),
              known(value_of(line, "problem"))})
            row += cell + " ";
        expected.push_back(row.substr(0, row.find(" - ", row.size() - 3)));
    }
    std::vector<std::string> rows;
    for (const std::string &line : lines_of(table.out))
        if (line.rfind(SAMPLES, 0) == 0)
            rows.push_back(with_single_spaces(line));
    ASSERT_EQ(rows.size(), 10u);
    for (size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(rows[i], expected[i].substr(0, expected[i].find_last_not_of(' ') + 1));
    EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end()));
}

TEST_F(ImageCatalog, AlignsTheColumnsOfTheTable)
{
    const child_result run = catalog_in(SAMPLES, {"."});
    const std::vector<std::string> lines = lines_of(run.out);
    ASSERT_GE(lines.size(), 12u);
    EXPECT_EQ(lines[0].rfind("Path ", 0), 0u);
    const std::string &rule = lines[1];
    EXPECT_EQ(rule.find_first_not_of("- "), std::string::npos);
    // Two spaces between the columns, in the rule and in every row.
    for (size_t i = 2; i < 12; ++i)
        for (size_t at = rule.find("  "); at != std::string::npos; at = rule.find("  ", at + 1))
            EXPECT_EQ(lines[i].size() > at ? lines[i].substr(at, 2) : "  ", "  ") << lines[i];
    for (const std::string &line : lines)
        EXPECT_FALSE(!line.empty() && line.back() == ' ') << "'" << line << "'";
}

// A column of paths is 72 wide at most; what is behind a longer path moves to the right in its row alone.
TEST_F(ImageCatalog, LetsAVeryLongPathShiftItsOwnRowOnly)
{
    fs::copy_file(SAMPLES + "/screen.png", path("short.png"));
    const std::string long_name = std::string(80, 'x') + ".png";
    fs::copy_file(SAMPLES + "/screen.png", path(long_name));
    const child_result run = catalog_in(scratch.path(), {"short.png", long_name});
    const std::vector<std::string> lines = lines_of(run.out);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[0].find("Kind"), 74u);
    EXPECT_EQ(lines[2].find(" png "), 73u);
    EXPECT_EQ(lines[3].find(" png "), long_name.size() + 1);
}

TEST_F(ImageCatalog, PrintsValidJsonAndOneLineToARowForEveryName)
{
    const std::vector<std::string> names = {"plain",
                                            "two words",
                                            "quo\"te",
                                            "back\\slash",
                                            "new\nline",
                                            "tab\tand\x1b[31mred",
                                            "gr\xc3\xbc\xc3\x9f"
                                            "e",
                                            "\xe5\x86\x99\xe7\x9c\x9f",
                                            "latin1-\xfc",
                                            "cut-\xe2\x82",
                                            "long-\xc0\x80",
                                            "surrogate-\xed\xa0\x80",
                                            "del\x7f",
                                            "c1-\xc2\x9b",
                                            "emoji-\xf0\x9f\x93\xb7"};
    for (const std::string &name : names)
        write(name, png_image());
    const child_result json = catalog({"--json", path("")});
    EXPECT_EQ(json.status, 0) << json.describe();
    write("out.json", json.out);
    const child_result check = run_command({"python3", "-m", "json.tool", path("out.json")});
    EXPECT_TRUE(check.succeeded()) << check.describe();
    // What Python reads from the text is what Python makes of the names.
    const child_result same =
        run_command({"python3", "-c",
                     "import json, os, sys\n"
                     "folder = os.fsencode(sys.argv[1])\n"
                     "read = {e['path'] for e in json.load(open(sys.argv[2], encoding='utf-8'))['entries']}\n"
                     "names = {n for n in os.listdir(folder) if n != b'out.json'}\n"
                     "wanted = {os.path.join(folder, n).decode('utf-8', 'replace') for n in names}\n"
                     "valid = {p for p in wanted if '\\ufffd' not in p}\n"
                     "sys.exit(not (valid <= read and len(read) == len(names) and len(valid) == 11))",
                     path(""), path("out.json")});
    EXPECT_TRUE(same.succeeded()) << same.describe() << json.out;

    ASSERT_EQ(unlink(path("out.json").c_str()), 0);
    const child_result table = catalog({path("")});
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(lines_of(table.out).size(), 2 + names.size() + 3);
    for (const char byte : table.out)
        EXPECT_TRUE(byte == '\n' || (static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7f));
    EXPECT_NE(table.out.find("new\\x0aline"), std::string::npos);
    EXPECT_NE(table.out.find("latin1-\\xfc"), std::string::npos);
    EXPECT_NE(table.out.find("gr\xc3\xbc\xc3\x9f"
                             "e"),
              std::string::npos);
}

TEST_F(ImageCatalog, GivesEachCatalogueAnIdentifierAndItsTime)
{
    const std::string guid = "\"[0-9a-f]{32}\"";
    const std::string time = "[0-9]{4}:[0-9]{2}:[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
    const child_result first = catalog({"--json", SAMPLES});
    const child_result second = catalog({"--json", SAMPLES});
    EXPECT_TRUE(matches(value_of(first.out, "catalogue"), guid)) << first.out;
    EXPECT_TRUE(matches(value_of(first.out, "created"), "\"" + time + "\"")) << first.out;
    EXPECT_NE(value_of(first.out, "catalogue"), value_of(second.out, "catalogue"));
    const child_result table = catalog({SAMPLES});
    EXPECT_TRUE(matches(lines_of(table.out).back(), "Catalogue created " + time)) << table.out;
}

TEST_F(ImageCatalog, ReportsThatItsOutputCannotBeWritten)
{
    const child_result run =
        run_command({"sh", "-c", "exec \"$0\" \"$@\" >/dev/full", IMAGE_CATALOG, SAMPLES + "/screen.png"},
                    SANITIZER_OPTIONS);
    EXPECT_TRUE(run.has_exited);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "image_catalog:  the catalogue cannot be written to standard output\n");
}

TEST_F(ImageCatalog, ShowsProgressOnATerminalOnlyAndTakesItAway)
{
    constexpr int files = 130;
    for (int i = 0; i < files; ++i)
        write(std::to_string(1000 + i), png_image());
    const std::string spawn = "import pty, sys; sys.exit(pty.spawn(sys.argv[1:]) >> 8)";
    const child_result on_terminal =
        run_command({"python3", "-c", spawn, IMAGE_CATALOG, path("")}, SANITIZER_OPTIONS);
    EXPECT_EQ(on_terminal.status, 0) << on_terminal.describe();
    const size_t shown = on_terminal.out.find("\r128 of 130 files");
    const size_t erased = on_terminal.out.find("\r\x1b[K");
    ASSERT_NE(shown, std::string::npos) << on_terminal.out;
    EXPECT_LT(shown, erased);
    EXPECT_LT(erased, on_terminal.out.find("Path "));

    const child_result elsewhere = catalog({path("")});
    EXPECT_EQ(elsewhere.err, "");
    EXPECT_EQ(elsewhere.out.find("of 130"), std::string::npos);
}

// ---- Modules

TEST_F(ImageCatalog, ReportsAMissingModuleForEachFileOfItsKind)
{
    const std::string host = lonely_host();
    give_module(PNG_MODULE, "png");
    const std::string good = write("images/a.png", png_image());
    const std::string first = write("images/b.bmp", bmp_image(2, 2, 0, 0));
    const std::string second = write("images/c.bmp", bmp_image(2, 2, 0, 0));
    const child_result run = run_program(host, {"--json", path("images")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, join({first + ":  its module libQVbmp17.so cannot be loaded",
                             second + ":  its module libQVbmp17.so cannot be loaded"}));
    EXPECT_EQ(value_of(run, good, "width"), "20");
    EXPECT_EQ(unquoted(value_of(run, first, "md5")), md5sum(first));
    EXPECT_EQ(value_of(run, first, "kind"), "\"bmp\"");
}

TEST_F(ImageCatalog, LoadsAModuleOnlyWhenAFileOfItsKindTurnsUp)
{
    const std::string host = lonely_host();
    give_module(PNG_MODULE, "png");
    write("host/libQVtiff17.so", "no shared object");
    const std::string png = write("a.png", png_image());
    EXPECT_EQ(run_program(host, {png}).status, 0);
    const std::string tiff = write("b.tif", tiff_image(byte_order::BIG));
    const child_result run = run_program(host, {tiff});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, tiff + ":  its module libQVtiff17.so cannot be loaded\n");
}

TEST_F(ImageCatalog, RefusesAModuleWithoutTheAgreedFunction)
{
    const std::string host = lonely_host();
    give_module(FOUNDATION_LIBRARY, "bmp");
    const std::string file = write("a.bmp", bmp_image(2, 2, 0, 0));
    const child_result run = run_program(host, {file});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, file + ":  its module libQVbmp17.so lacks the function image_module_read\n");
}

TEST_F(ImageCatalog, ReportsBlocksThatWereNeverReleased)
{
    const std::string host = lonely_host();
    give_module(LEAKING_MODULE, "bmp");
    const std::string first = write("a.bmp", bmp_image(2, 2, 0, 0));
    const std::string second = write("b.bmp", bmp_image(2, 2, 0, 0));
    const child_result run = run_program(host, {"--jobs", "1", first, second});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "image_catalog:  2 blocks of memory were never released\n");
    EXPECT_NE(run.out.find("\n2 images, 0 problems, "), std::string::npos) << run.out;
}

// ---- Threads

TEST_F(ImageCatalog, GivesTheSameOutputWithOneThreadAndWithMany)
{
    for (const bad_file &file : all_bad_files())
        write("bad/" + file.name, file.bytes);
    for (int copy = 0; copy < 40; ++copy)
        for (const std::string &sample : good_samples())
            write("good/" + std::to_string(copy) + "/" + fs::path(sample).filename().string(),
                  content_of(sample));
    write("notes.txt", "no image\n");
    const std::vector<std::string> paths = {path("missing"), path("good"), path(""), path("notes.txt"),
                                            path("bad")};
    for (const std::string format : {"--json", "--"}) {
        std::vector<std::string> arguments = {"--jobs", "1", format};
        arguments.insert(arguments.end(), paths.begin(), paths.end());
        const child_result alone = catalog(arguments);
        EXPECT_EQ(alone.status, 1);
        for (const char *jobs : {"2", "3", "16"}) {
            arguments[1] = jobs;
            const child_result together = catalog(arguments);
            EXPECT_EQ(together.status, 1);
            EXPECT_EQ(without_creation(together.out), without_creation(alone.out)) << jobs;
            EXPECT_EQ(together.err, alone.err) << jobs;
        }
        arguments.erase(arguments.begin(), arguments.begin() + 2);
        EXPECT_EQ(without_creation(catalog(arguments).out), without_creation(alone.out));
    }
}

TEST_F(ImageCatalog, WorksOnOneThreadWhereTheLibraryFindsNoThreadFunctions)
{
    fs::create_directory(path("host"));
    fs::copy_file(IMAGE_CATALOG_WITHOUT_THREADS, path("host/image_catalog"));
    give_module(PNG_MODULE, "png");
    give_module(TIFF_MODULE, "tiff");
    give_module(BMP_MODULE, "bmp");
    give_module(JPEG_MODULE, "jpeg");
    const child_result expected = catalog({"--jobs", "1", SAMPLES});
    const child_result run = run_program(path("host/image_catalog"), {"--jobs", "8", SAMPLES});
    EXPECT_EQ(run.status, 1) << run.describe();
    EXPECT_EQ(without_creation(run.out), without_creation(expected.out));
    EXPECT_EQ(run.err, expected.err);
}

// ---- The command line

TEST_F(ImageCatalog, ExplainsItselfAndItsVersion)
{
    const child_result help = catalog({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    for (const char *option : {"--json", "--jobs", "--help", "--version"})
        EXPECT_NE(help.out.find(option), std::string::npos) << option;
    EXPECT_EQ(catalog({"-h"}).out, help.out);

    const child_result version = catalog({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(matches(version.out, "image_catalog 17\\.0\\.0 \\(foundation library built "
                                     "[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4}\\)\n"))
        << version.out;
    EXPECT_EQ(catalog({"-V"}).out, version.out);
}

TEST_F(ImageCatalog, RefusesACommandLineItDoesNotUnderstand)
{
    const std::string file = SAMPLES + "/screen.png";
    const std::vector<std::vector<std::string>> mistakes = {{},
                                                            {"--json"},
                                                            {"--bad", file},
                                                            {"-x"},
                                                            {"--jobs"},
                                                            {"--jobs", "0", file},
                                                            {"--jobs", "257", file},
                                                            {"--jobs=", file},
                                                            {"--jobs", "two", file},
                                                            {"-j", "99999999999999999999", file},
                                                            {file, "--jobs=1x"},
                                                            {"-j2x", file}};
    for (const std::vector<std::string> &arguments : mistakes) {
        const child_result run = catalog(arguments);
        EXPECT_EQ(run.status, 2) << run.describe();
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(lines_of(run.err).size(), 1u) << run.err;
    }
}

TEST_F(ImageCatalog, TakesOptionsAnywhereAndOddPathsBehindTwoDashes)
{
    const std::string file = write("image.png", png_image());
    EXPECT_EQ(catalog({file, "--jobs=2", "--json"}).status, 0);
    EXPECT_EQ(catalog({file, "-j", "256"}).status, 0);
    EXPECT_EQ(catalog({"-j3", file}).status, 0);
    const child_result run = catalog({"--json", "--", "--jobs", "-"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, join({"-:  cannot be opened: No such file or directory",
                             "--jobs:  cannot be opened: No such file or directory"}));
}
