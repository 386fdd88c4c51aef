// Files that cannot be had, or are large.

#include "catalog_run.h"
#include "image_bytes.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <linux/capability.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

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
        EXPECT_NE(run.out.find("\n8 problems, 0 other files skipped\n"), std::string::npos) << run.out;
    });
    chmod(path("folder/sealed").c_str(), 0700);
}

TEST_F(ImageCatalog, ReportsAFileThatDoesNotFitIntoMemory)
{
    const std::string huge = write("huge.png", png_image());
    ASSERT_EQ(truncate(huge.c_str(), off_t{1} << 42), 0) << "the file system takes no sparse file of 4 TiB";
    const std::string good = write("small.png", png_image());
    const catalogue_document read = catalogue_of({huge, good});
    EXPECT_EQ(read.entry(huge).at("problem"), "its 4398046511104 bytes do not fit into memory");
    EXPECT_EQ(read.entry(huge).at("kind"), "png");
    EXPECT_EQ(read.entry(huge).at("bytes"), "4398046511104");
    EXPECT_EQ(read.entry(huge).at("md5"), "null");
    EXPECT_EQ(read.entry(good).at("problem"), "null");
}

TEST_F(ImageCatalog, ReadsLargeFilesBesideSmallOnes)
{
    const off_t large = (off_t{64} << 20) + 1;
    std::vector<std::string> files = {write("small.png", png_image())};
    for (const char *name : {"large1.tif", "large2.tif", "large3.tif"}) {
        files.push_back(
            write(name, tiff_image(byte_order::BIG, {one_value(byte_order::BIG, 282, TIFF_RATIONAL, 300)})));
        ASSERT_EQ(truncate(files.back().c_str(), large), 0);
    }
    const catalogue_document read = catalogue_of({"--jobs", "4", path("")});
    for (const std::string &file : files)
        EXPECT_EQ(read.entry(file).at("md5"), md5sum(file));
    EXPECT_EQ(read.entry(files[1]).at("dpi_x"), "300");
}

// Sixteen threads, of which each would read a file of 48 MiB: together they get 256.
TEST_F(ImageCatalog, KeepsManyJobsOverLargeFilesWithinItsBudgetOfMemory)
{
    if (IS_SANITIZED)
        GTEST_SKIP() << "a sanitizer takes memory of its own";
    constexpr off_t large = off_t{48} << 20;
    for (int i = 0; i < 16; ++i) {
        const std::string file = write(std::to_string(i) + ".tif", tiff_image(byte_order::LITTLE));
        ASSERT_EQ(truncate(file.c_str(), large), 0);
    }
    const std::string measure = "import resource, subprocess, sys\n"
                                "subprocess.run(sys.argv[1:], check=True, stdout=subprocess.DEVNULL)\n"
                                "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)";
    const child_result run = run_command({"python3", "-c", measure, IMAGE_CATALOG, "--jobs", "16", path("")});
    ASSERT_TRUE(run.succeeded()) << run.describe();
    constexpr int kibibytes_of_the_program = 16 * 1024;
    EXPECT_LT(std::stoi(run.out), 256 * 1024 + kibibytes_of_the_program);
}
