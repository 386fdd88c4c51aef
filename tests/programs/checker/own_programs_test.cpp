// This project's own programs make no mistake.

#include "checker_run.h"

namespace {

void expect_clean(const std::vector<std::string> &command_line)
{
    const child_result plain = run_command(command_line);
    const child_result checked = qv_check(command_line);
    EXPECT_EQ(checked.err, plain.err);
    EXPECT_EQ(checked.status, plain.status);
}

}  // namespace

TEST_F(Checker, FindsNothingInTheImageCatalogue)
{
    const std::string samples = std::string(SOURCE_DIRECTORY) + "/programs/image_catalog/samples";
    for (const std::string jobs : {"1", "4"})
        expect_clean({IMAGE_CATALOG, "--jobs", jobs, samples});
    expect_clean({IMAGE_CATALOG, "--json", samples, samples + "/nothing"});
    expect_clean({IMAGE_CATALOG, "--help"});
}

#if defined(EXAMPLES_DIRECTORY)
TEST_F(Checker, FindsNothingInTheExamples)
{
    for (const char *example : {"owners", "sorted_array", "work_queue", "host", "dates", "checksums"}) {
        SCOPED_TRACE(example);
        expect_clean({std::string(EXAMPLES_DIRECTORY) + "/" + example, EXAMPLES_DIRECTORY});
    }
}
#endif
