// One thread and many.

#include "bad_files.h"
#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <filesystem>

namespace fs = std::filesystem;

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
    for (const std::string format : {"--json", "--full"}) {
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
