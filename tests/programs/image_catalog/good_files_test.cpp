// What is read from good files, against identify, md5sum and zlib.

#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <zlib.h>

#include <fcntl.h>
#include <math.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

namespace {

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

std::string zlib_crc32(const std::string &path)
{
    const std::string bytes = content_of(path);
    char text[16];
    snprintf(text, sizeof text, "%08lx",
             crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
    return text;
}

void expect_facts(const json_members &entry, const identified &expected)
{
    EXPECT_EQ(entry.at("width"), expected.width);
    EXPECT_EQ(entry.at("height"), expected.height);
    EXPECT_EQ(entry.at("dpi_x"), expected.dpi_x);
    EXPECT_EQ(entry.at("dpi_y"), expected.dpi_y);
    EXPECT_EQ(entry.at("problem"), "null");
}

std::string identifier_of(std::string name)
{
    for (char &byte : name)
        if (!isalnum(static_cast<unsigned char>(byte)))
            byte = '_';
    return name;
}

}  // namespace

class Sample : public testing::TestWithParam<std::string> {};

TEST_P(Sample, IsReadAsIdentifyMd5sumAndZlibReadIt)
{
    const std::string path = GetParam();
    const json_members entry = catalogue_of({path}).entry(path);
    expect_facts(entry, identify(path));
    EXPECT_EQ(entry.at("bytes"), std::to_string(fs::file_size(path)));
    EXPECT_EQ(entry.at("md5"), md5sum(path));
    EXPECT_EQ(entry.at("crc32"), zlib_crc32(path));
}

INSTANTIATE_TEST_SUITE_P(Folder, Sample, testing::ValuesIn(good_samples()), [](const auto &tested) {
    return identifier_of(fs::path(tested.param).filename().string());
});

// ---- Resolutions

struct good_file {
    std::string name;
    std::string bytes;
};

void PrintTo(const good_file &file, std::ostream *stream)
{
    *stream << file.name;
}

namespace {

std::vector<tiff_field> resolution(byte_order order, uint32_t x, uint32_t x_denominator, uint32_t y,
                                   uint32_t unit)
{
    return {ratio(order, 282, x, x_denominator), ratio(order, 283, y, 1),
            one_value(order, 296, TIFF_SHORT, unit)};
}

std::vector<good_file> files_with_resolutions()
{
    const byte_order little = byte_order::LITTLE;
    const byte_order big = byte_order::BIG;
    return {
        {"png-72", png_image(png_resolution(2835, 2835, 1))},
        {"png-300-150", png_image(png_resolution(11811, 5906, 1))},
        {"png-aspect-ratio-only", png_image(png_resolution(4, 3, 0))},
        {"png-none", png_image()},
        {"bmp-72", bmp_image(5, 4, 2835, 2835)},
        {"bmp-300-600", bmp_image(5, 4, 11811, 23622)},
        {"bmp-from-the-top", bmp_image(5, -4, 3780, 3780)},
        {"bmp-negative", bmp_image(5, 4, -1, -2835)},
        {"bmp-lowest", bmp_image(5, 4, INT32_MIN, INT32_MAX)},
        {"bmp-one-per-metre", bmp_image(5, 4, 1, 1)},
        {"bmp-19-and-20-per-metre", bmp_image(5, 4, 19, 20)},
        {"tiff-ii-inch", tiff_image(little, resolution(little, 300, 1, 150, 2))},
        {"tiff-mm-inch", tiff_image(big, resolution(big, 300, 1, 150, 2))},
        {"tiff-ii-cm", tiff_image(little, resolution(little, 118, 1, 59, 3))},
        {"tiff-mm-cm", tiff_image(big, resolution(big, 118, 1, 59, 3))},
        {"tiff-fraction", tiff_image(big, resolution(big, 3007, 10, 100, 2))},
        {"tiff-half", tiff_image(little, resolution(little, 145, 2, 72, 2))},
        {"tiff-without-unit",
         tiff_image(big, {one_value(big, 282, TIFF_RATIONAL, 200), one_value(big, 283, TIFF_RATIONAL, 200)})},
        {"tiff-no-unit", tiff_image(big, resolution(big, 3, 1, 2, 1))},
        {"big-tiff-ii", big_tiff_image(little, resolution(little, 300, 1, 150, 2))},
        {"big-tiff-mm", big_tiff_image(big, resolution(big, 118, 1, 59, 3))},
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
}

}  // namespace

class Resolution : public ImageCatalog, public testing::WithParamInterface<good_file> {};

TEST_P(Resolution, IsThatOfIdentify)
{
    const std::string file = write(GetParam().name, GetParam().bytes);
    expect_facts(catalogue_of({file}).entry(file), identify(file));
}

INSTANTIATE_TEST_SUITE_P(Made, Resolution, testing::ValuesIn(files_with_resolutions()),
                         [](const auto &tested) { return identifier_of(tested.param.name); });

// Fields of which no viewer needs any: the image is sound, and has no resolution but that of JFIF.
class DamagedExif : public ImageCatalog, public testing::WithParamInterface<good_file> {};

TEST_P(DamagedExif, CostsNoMoreThanTheResolution)
{
    const std::string alone = write("alone.jpg", jpeg_image(GetParam().bytes));
    const std::string behind = write("behind.jpg", jpeg_image(jfif_segment(1, 96, 96) + GetParam().bytes));
    const catalogue_document read = catalogue_of({alone, behind});
    expect_facts(read.entry(alone), {"96", "64", "null", "null"});
    expect_facts(read.entry(behind), {"96", "64", "96", "96"});
}

namespace {

std::vector<good_file> damaged_exif_segments()
{
    const byte_order big = byte_order::BIG;
    const std::string good = exif_segment(big, {ratio(big, 282, 240, 1)});
    // The directory follows marker, length, "Exif", two zero bytes and the header of eight bytes; its one
    // ratio stands last.
    constexpr size_t header = 4 + 6;
    constexpr size_t directory = header + 8;
    const std::string name("Exif\0\0", 6);
    const auto segment_of = [&](const std::string &data) {
        return jpeg_segment(0xE1, name + data);
    };
    const std::string tiff = good.substr(header);
    return {
        {"no header", segment_of("")},
        {"half a header", segment_of(tiff.substr(0, 5))},
        {"unknown byte order", segment_of("XX" + tiff.substr(2))},
        {"no directory", segment_of(tiff.substr(0, 8))},
        {"directory at 0", with_bytes(good, header + 4, number(big, 0, 4))},
        {"directory outside", with_bytes(good, header + 4, number(big, 5000, 4))},
        {"empty directory", with_bytes(good, directory, number(big, 0, 2))},
        {"entry cut off", segment_of(tiff.substr(0, 8 + 2 + 6))},
        {"ratio outside", with_bytes(good, directory + 2 + 8, number(big, 0x7FFFFFFF, 4))},
        {"ratio by nothing", with_bytes(good, good.size() - 4, number(big, 0, 4))},
        {"ratio of no values", with_bytes(good, directory + 2 + 4, number(big, 0, 4))},
        {"text for a ratio", with_bytes(good, directory + 2 + 2, number(big, 2, 2))},
    };
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Made, DamagedExif, testing::ValuesIn(damaged_exif_segments()),
                         [](const auto &tested) { return identifier_of(tested.param.name); });

TEST_F(ImageCatalog, ReadsTheResolutionInAnExifDirectoryWithoutItsClosingLink)
{
    const byte_order big = byte_order::BIG;
    const std::string whole = exif_segment(big, {one_value(big, 282, TIFF_SHORT, 240)});
    const std::string file =
        write("a.jpg", jpeg_image(jpeg_segment(0xE1, whole.substr(4, whole.size() - 8))));
    expect_facts(catalogue_of({file}).entry(file), {"96", "64", "240", "240"});
}

// identify takes 72 dots per centimetre for granted there.
TEST_F(ImageCatalog, FindsNoResolutionInABitmapOfNoPixelsPerMetre)
{
    const std::string file = write("a.bmp", bmp_image(5, 4, 0, 0));
    expect_facts(catalogue_of({file}).entry(file), {"5", "4", "null", "null"});
}

TEST_F(ImageCatalog, ReadsASignedResolution)
{
    const byte_order big = byte_order::BIG;
    const auto with_x = [&](uint32_t x) {
        return jpeg_image(exif_segment(big, {one_value(big, 282, TIFF_SIGNED_LONG, x)}));
    };
    const std::string positive = write("positive.jpg", with_x(72));
    const std::string negative = write("negative.jpg", with_x(0xFFFFFFFF));
    const catalogue_document read = catalogue_of({positive, negative});
    expect_facts(read.entry(positive), {"96", "64", "72", "72"});
    expect_facts(read.entry(negative), {"96", "64", "null", "null"});
}

TEST_F(ImageCatalog, TakesAnOddResolutionOfATiffForNone)
{
    const byte_order big = byte_order::BIG;
    const std::string text = write("text.tif", tiff_image(big, {{282, TIFF_ASCII, 4, "300"}}));
    const std::string unit =
        write("unit.tif", tiff_image(big, {ratio(big, 282, 300, 1), ratio(big, 296, 2, 1)}));
    const catalogue_document read = catalogue_of({text, unit});
    expect_facts(read.entry(text), {"20", "10", "null", "null"});
    EXPECT_EQ(read.entry(unit).at("problem"), "null");
}

// ---- Other facts

TEST_F(ImageCatalog, ReadsWholeNumbersOfEveryWidthInATiff)
{
    const byte_order big = byte_order::BIG;
    const std::string file = write(
        "a.tif", tiff_image(big, {one_value(big, 256, TIFF_LONG, 20), one_value(big, 257, TIFF_BYTE, 10)}));
    expect_facts(catalogue_of({file}).entry(file), {"20", "10", "null", "null"});
}

TEST_F(ImageCatalog, TellsTheKindFromTheContentAndNotFromTheName)
{
    const std::string png = write("one.jpg", png_image());
    const std::string tiff = write("two.png", tiff_image(byte_order::BIG));
    const std::string bmp = write("three", bmp_image(3, 2, 0, 0));
    const std::string jpeg = write("four.txt", jpeg_image());
    const catalogue_document read = catalogue_of({path("")});
    EXPECT_EQ(read.entry(png).at("kind"), "png");
    EXPECT_EQ(read.entry(tiff).at("kind"), "tiff");
    EXPECT_EQ(read.entry(bmp).at("kind"), "bmp");
    EXPECT_EQ(read.entry(jpeg).at("kind"), "jpeg");
}

class BitmapHeader : public ImageCatalog, public testing::WithParamInterface<unsigned> {};

// The oldest, those that end behind any later field, and all that came after.
TEST_P(BitmapHeader, IsRead)
{
    const unsigned size = GetParam();
    const bool has_resolution = size >= 32;
    const std::string file = write("a.bmp", size == 12 ? bmp_core_image(7, 3) : bmp_with_header(size, 7, 3));
    const std::string dpi = has_resolution ? "72" : "null";
    expect_facts(catalogue_of({file}).entry(file), {"7", "3", dpi, dpi});
}

INSTANTIATE_TEST_SUITE_P(OfBytes, BitmapHeader, testing::Values(12, 16, 40, 52, 56, 64, 108, 124),
                         testing::PrintToStringParamName());

TEST_F(ImageCatalog, ShowsTheModificationTimeInUniversalTime)
{
    struct {
        const char *date;
        const char *moment;
        time_t seconds;
    } const times[] = {{"Nov 05 2001", "2001-11-05T00:00:00Z", 1004918400},
                       {"Feb 28 2000", "2000-02-28T23:59:59Z", 951782399},
                       {"Dec 31 1969", "1969-12-31T23:59:59Z", -1},
                       {"Jan 01 1970", "1970-01-01T00:00:00Z", 0}};
    for (const auto &each : times) {
        const std::string file = write(each.date, png_image());
        const timespec both[2] = {{each.seconds, 0}, {each.seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), both, 0), 0);
    }
    const catalogue_document read = read_catalogue(catalog({"--json", path("")}, {"TZ=Pacific/Auckland"}));
    for (const auto &each : times) {
        EXPECT_EQ(read.entry(path(each.date)).at("modified"), each.date);
        EXPECT_EQ(read.entry(path(each.date)).at("modified_at"), each.moment);
    }
}
