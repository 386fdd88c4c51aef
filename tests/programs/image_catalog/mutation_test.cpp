// Whatever bytes are changed, the program ends as it should: by its exit status, without a sanitizer's
// report.

#include "catalog_run.h"
#include "mutated_files.h"
#include "support/files.h"

#include <stdlib.h>

#include <filesystem>

namespace {

// A longer run, in memory: TMPDIR=/dev/shm MUTATED_FILES=200000 image_catalog_test
// --gtest_filter='*MutatedFile*'
size_t wanted_files()
{
    const char *count = getenv("MUTATED_FILES");
    return count != nullptr ? strtoul(count, nullptr, 10) : 1000;
}

}  // namespace

TEST_F(ImageCatalog, SurvivesEveryMutatedFile)
{
    mutated_files files(12345);
    constexpr size_t files_per_run = 5000;
    for (size_t rest = wanted_files(); rest > 0 && !HasFailure();) {
        const size_t count = std::min(rest, files_per_run);
        rest -= count;
        std::string names;
        for (size_t i = 0; i < count; ++i)
            names += write("files/" + std::to_string(i), files.next()) + "\n";
        write("names", names);
        const child_result run = catalog_by_shell("\"$0\" --json - <\"$1\"", {path("names")});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(read_catalogue(run).entries.size(), count);
        std::filesystem::remove_all(path("files"));
    }
}
