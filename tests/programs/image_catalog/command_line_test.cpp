// The command line.

#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

using strings = std::vector<std::string>;

TEST_F(ImageCatalog, ExplainsItselfAndItsVersion)
{
    const child_result help = catalog({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    for (const std::string &line : lines_of(help.out))
        EXPECT_LE(line.size(), 88u) << line;
    EXPECT_EQ(catalog({"-h"}).out, help.out);

    const child_result version = catalog({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_PRED2(
        matches_pattern, version.out,
        "image_catalog 17\\.0\\.0 \\(foundation library built [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4}\\)\n");
    EXPECT_EQ(catalog({"-V"}).out, version.out);
}

TEST_F(ImageCatalog, ExplainsEveryOptionInItsHelpAndItsManual)
{
    const std::string help = catalog({"--help"}).out;
    const std::string manual =
        content_of(std::string(SOURCE_DIRECTORY) + "/programs/image_catalog/image_catalog.1");
    for (const std::string option :
         {"exclude", "sort", "reverse", "json", "full", "width", "null", "jobs", "help", "version"}) {
        EXPECT_NE(help.find("--" + option), std::string::npos) << option;
        EXPECT_NE(manual.find("\\-\\-" + option), std::string::npos) << option;
    }
}

class Mistake : public ImageCatalog, public testing::WithParamInterface<strings> {};

TEST_P(Mistake, IsOneLineAndStatusTwo)
{
    const child_result run = catalog(GetParam());
    EXPECT_EQ(run.status, 2) << run.describe();
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(lines_of(run.err).size(), 1u) << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Of, Mistake,
    testing::Values(strings{}, strings{"--json"}, strings{"--bad", "f"}, strings{"-y", "f"},
                    strings{"--jobs"}, strings{"--jobs", "0", "f"}, strings{"--jobs", "257", "f"},
                    strings{"--jobs=", "f"}, strings{"--jobs", "two", "f"},
                    strings{"-j", "99999999999999999999", "f"}, strings{"f", "--jobs=1x"},
                    strings{"-j2x", "f"}, strings{"--json=yes", "f"}, strings{"-rx", "f"},
                    strings{"--sort", "colour", "f"}, strings{"--sort"}, strings{"--exclude"},
                    strings{"--width=0", "f"}, strings{"--width=65536", "f"}, strings{"--jobsx", "f"}));

TEST_F(ImageCatalog, TakesOptionsAnywhereAndOddPathsBehindTwoDashes)
{
    const std::string file = write("image.png", png_image());
    EXPECT_EQ(catalog({file, "--jobs=2", "--json"}).status, 0);
    EXPECT_EQ(catalog({file, "-j", "256"}).status, 0);
    EXPECT_EQ(catalog({"-j3", file}).status, 0);
    EXPECT_EQ(catalogue_of({"--", "--jobs", "-"}).paths(), (strings{"-", "--jobs"}));
}
