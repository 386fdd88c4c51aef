// The program as `cmake --install` leaves it.

#include "catalog_run.h"
#include "support/files.h"

#include <filesystem>

namespace fs = std::filesystem;

TEST_F(ImageCatalog, FindsItsModulesWhereverItIsInstalled)
{
    const child_result installed =
        run_command({CMAKE_PROGRAM, "--install", BUILD_FOLDER, "--prefix", path("first")});
    ASSERT_TRUE(installed.succeeded()) << installed.describe();
    fs::rename(path("first"), path("second"));
    const child_result run = run_program(path("second/") + INSTALLED_PROGRAM, {SAMPLES});
    EXPECT_EQ(run.err, catalog({SAMPLES}).err);
    EXPECT_EQ(without_creation(run.out), without_creation(catalog({SAMPLES}).out));

    for (const char *kind : {"png", "tiff", "bmp", "jpeg"}) {
        const std::string file = std::string("/image_catalog/libQV") + kind + "17.so";
        EXPECT_TRUE(fs::exists(path("second/") + INSTALLED_LIBRARIES + file)) << file;
    }
    EXPECT_TRUE(fs::exists(path("second/") + INSTALLED_MANUALS + "/man1/image_catalog.1"));
}
