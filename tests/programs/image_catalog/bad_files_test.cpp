// Files with a problem: what is said of each, and that the rest of the catalogue is there.

#include "bad_files.h"
#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <filesystem>

class BadFile : public ImageCatalog, public testing::WithParamInterface<bad_file> {};

TEST_P(BadFile, HasItsReasonInJsonAndOnStandardError)
{
    const std::string file = write(GetParam().name, GetParam().bytes);
    const std::string good = write("good.png", png_image());
    const child_result json = catalog({"--json", file, good});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(json.err, "");
    EXPECT_EQ(read_catalogue(json).entry(file).at("problem"), GetParam().reason);
    EXPECT_EQ(read_catalogue(json).entry(good).at("problem"), "null");

    const child_result table = catalog({file, good});
    EXPECT_EQ(table.status, 1);
    EXPECT_EQ(table.err, file + ":  " + GetParam().reason + "\n");
}

INSTANTIATE_TEST_SUITE_P(Made, BadFile, testing::ValuesIn(all_bad_files()), [](const auto &tested) {
    std::string name = tested.param.name;
    for (char &byte : name)
        if (!isalnum(static_cast<unsigned char>(byte)))
            byte = '_';
    return name;
});

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
}

// ---- Every place to cut

class CutSample : public ImageCatalog, public testing::WithParamInterface<std::string> {};

TEST_P(CutSample, IsNoticedWhereverItIsCut)
{
    const std::string bytes = content_of(GetParam());
    const size_t step = bytes.size() / 100;
    ASSERT_GT(step, 0u);
    std::vector<std::string> files;
    for (size_t length = bytes.size() - 1; length > step; length -= step)
        files.push_back(write(std::to_string(length), bytes.substr(0, length)));
    const catalogue_document read = catalogue_of(files);
    EXPECT_EQ(read.entries.size(), files.size());
    for (const json_members &entry : read.entries)
        EXPECT_NE(entry.at("problem"), "null") << entry.at("path");
}

INSTANTIATE_TEST_SUITE_P(Folder, CutSample, testing::ValuesIn(good_samples()), [](const auto &tested) {
    std::string name = std::filesystem::path(tested.param).stem().string();
    for (char &byte : name)
        if (!isalnum(static_cast<unsigned char>(byte)))
            byte = '_';
    return name;
});

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
    EXPECT_EQ(catalogue_of({shared}).entry(shared).at("problem"),
              "corrupt: its directories form a circle or overlap");
}
