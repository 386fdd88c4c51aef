// The catalogue as JSON.

#include "catalog_run.h"
#include "image_bytes.h"

#include <filesystem>

namespace fs = std::filesystem;

using strings = std::vector<std::string>;

namespace {

struct named_file {
    const char *meaning;  // for the test's own name
    std::string name;
    std::string in_json;  // where that differs
    std::string in_table;
};

void PrintTo(const named_file &file, std::ostream *stream)
{
    *stream << file.meaning;
}

std::string from_hexadecimal(const std::string &digits)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

class FileName : public ImageCatalog, public testing::WithParamInterface<named_file> {
protected:
    child_result run(const std::string &option) const
    {
        write(GetParam().name, png_image());
        return catalog_in(path(""), {option, "--", GetParam().name});
    }
};

}  // namespace

TEST_P(FileName, CanBeReadBackFromJson)
{
    const catalogue_document read = read_catalogue(run("--json"));
    ASSERT_EQ(read.entries.size(), 1u);
    json_members entry = read.entries[0];
    if (GetParam().in_json.empty()) {
        EXPECT_EQ(entry["path"], GetParam().name);
        EXPECT_EQ(entry.count("path_hex"), 0u);
    } else {
        EXPECT_EQ(entry["path"], GetParam().in_json);
        EXPECT_EQ(from_hexadecimal(entry["path_hex"]), GetParam().name);
    }
}

TEST_P(FileName, IsShownWhollyAndInOneRow)
{
    const strings lines = table_lines(run("--full"));
    ASSERT_EQ(lines.size(), 2u);
    const std::string &shown = GetParam().in_table.empty() ? GetParam().name : GetParam().in_table;
    EXPECT_EQ(lines[1].substr(0, lines[1].find("  png")), shown);
}

INSTANTIATE_TEST_SUITE_P(
    Of, FileName,
    testing::Values(named_file{"Ascii", "plain", "", ""}, named_file{"Spaces", "two words", "", ""},
                    named_file{"Quotes", "quo\"te", "", ""},
                    named_file{"Backslashes", "back\\x41slash", "", "back\\\\x41slash"},
                    named_file{"Newlines", "new\nline", "", "new\\x0aline"},
                    named_file{"TerminalControl", "tab\tand\x1b[31mred", "", "tab\\x09and\\x1b[31mred"},
                    named_file{"Delete", "del\x7f", "", "del\\x7f"},
                    named_file{"C1Control", "c1-\xc2\x9b", "", "c1-\\u009b"},
                    named_file{"Latin", "gr\xc3\xbc\xc3\x9f", "", ""},
                    named_file{"Han", "\xe5\x86\x99\xe7\x9c\x9f", "", ""},
                    named_file{"Emoji", "emoji-\xf0\x9f\x93\xb7", "", ""},
                    named_file{"CombiningMarks", "e\xcc\x81.png", "", ""},
                    named_file{"RightToLeftOverride", "a\xe2\x80\xaegnp", "", "a\\u202egnp"},
                    named_file{"LineSeparator", "a\xe2\x80\xa8z", "", "a\\u2028z"},
                    named_file{"ZeroWidthSpace", "a\xe2\x80\x8bz", "", "a\\u200bz"},
                    named_file{"ByteOrderMark", "\xef\xbb\xbfz", "", "\\ufeffz"},
                    named_file{"LanguageTag", "a\xf3\xa0\x80\x81z", "", "a\\U000e0001z"},
                    named_file{"Latin1", "latin1-\xfc", "latin1-\\xfc", "latin1-\\xfc"},
                    named_file{"CutOffUtf8", "cut-\xe2\x82", "cut-\\xe2\\x82", "cut-\\xe2\\x82"},
                    named_file{"OverlongUtf8", "long-\xc0\xaf", "long-\\xc0\\xaf", "long-\\xc0\\xaf"},
                    named_file{"Surrogates", "\xed\xa0\x80", "\\xed\\xa0\\x80", "\\xed\\xa0\\x80"},
                    named_file{"BeyondUnicode", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80",
                               "\\xf4\\x90\\x80\\x80"}),
    [](const auto &tested) { return tested.param.meaning; });

TEST_F(ImageCatalog, GivesTwoNamesThatAreNotUtf8TwoTexts)
{
    write("latin1-\xfc", png_image());
    write("latin1-\xfd", png_image());
    const strings paths = catalogue_of({path("")}).paths();
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_NE(paths[0], paths[1]);
}

TEST_F(ImageCatalog, GivesEachCatalogueAnIdentifierAndItsTime)
{
    const std::string time = "[0-9]{2}:[0-9]{2}:[0-9]{2}";
    const catalogue_document first = read_catalogue(catalog({"--json", SAMPLES}));
    const catalogue_document second = read_catalogue(catalog({"--json", SAMPLES}));
    EXPECT_PRED2(matches_pattern, first.head.at("catalogue"), "[0-9a-f]{32}");
    EXPECT_PRED2(matches_pattern, first.head.at("created"), "[0-9]{4}:[0-9]{2}:[0-9]{2} " + time);
    EXPECT_PRED2(matches_pattern, first.head.at("created_at"), "[0-9]{4}-[0-9]{2}-[0-9]{2}T" + time + "Z");
    EXPECT_NE(first.head.at("catalogue"), second.head.at("catalogue"));
}

TEST_F(ImageCatalog, AddsUpImagesAndBytesByKind)
{
    std::map<std::string, uint64_t> images;
    std::map<std::string, uint64_t> bytes;
    const catalogue_document read = read_catalogue(catalog({"--json", SAMPLES}));
    for (const json_members &entry : read.entries) {
        for (const std::string &key : {entry.at("kind"), std::string("all")}) {
            ++images[key];
            bytes[key] += fs::file_size(entry.at("path"));
        }
    }
    ASSERT_EQ(read.kinds.size(), 4u);
    for (const auto &[kind, totals] : read.kinds) {
        EXPECT_EQ(totals.at("images"), std::to_string(images[kind])) << kind;
        EXPECT_EQ(totals.at("bytes"), std::to_string(bytes[kind])) << kind;
    }
    EXPECT_EQ(read.head.at("images"), std::to_string(images["all"]));
    EXPECT_EQ(read.head.at("bytes"), std::to_string(bytes["all"]));
    EXPECT_EQ(read.head.at("problems"), "2");
    EXPECT_EQ(read.head.at("interrupted"), "false");
}

// ---- Orders

class Order : public ImageCatalog {
protected:
    void SetUp() override
    {
        write("a/2.png", png_image());
        write("b/1.bmp", bmp_image(30, 30, 0, 0));
        write("c/3.jpg", jpeg_image());
        struct {
            const char *name;
            time_t seconds;
        } const times[] = {{"a/2.png", 2000}, {"b/1.bmp", 1000}, {"c/3.jpg", 1500}};
        for (const auto &each : times)
            fs::last_write_time(path(each.name), fs::file_time_type(std::chrono::seconds(each.seconds)));
    }
    strings order(strings options) const
    {
        options.insert(options.begin(), "--json");
        options.push_back(".");
        return read_catalogue(catalog_in(path(""), options)).paths();
    }
    const std::string png = "./a/2.png";   // 20 x 10, few bytes
    const std::string bmp = "./b/1.bmp";   // 30 x 30, most bytes
    const std::string jpeg = "./c/3.jpg";  // 96 x 64
};

TEST_F(Order, IsThatOfThePathsUnlessAskedOtherwise)
{
    EXPECT_EQ(order({}), (strings{png, bmp, jpeg}));
    EXPECT_EQ(order({"--sort=path", "--reverse"}), (strings{jpeg, bmp, png}));
}

TEST_F(Order, FollowsTheKeyAskedFor)
{
    EXPECT_EQ(order({"--sort", "name"}), (strings{bmp, png, jpeg}));
    EXPECT_EQ(order({"-s", "kind"}), (strings{png, bmp, jpeg}));
    EXPECT_EQ(order({"-ssize"}), (strings{png, bmp, jpeg}));
    EXPECT_EQ(order({"-sbytes", "-r"}), (strings{bmp, jpeg, png}));
    EXPECT_EQ(order({"--sort=modified"}), (strings{bmp, jpeg, png}));
}

TEST_F(ImageCatalog, SortsEqualEntriesByPath)
{
    for (const char *name : {"c", "a", "b"})
        write(name, png_image());
    EXPECT_EQ(catalogue_of({"--sort=bytes", path("")}).paths(), (strings{path("a"), path("b"), path("c")}));
}
