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

// Where the C library has its threads in a library of their own, this host is without them.
TEST_F(Checker, LeavesAHostWithoutThreadsInItsMode)
{
    const child_result plain = run_command({EMULATED_HOST});
    const child_result checked = qv_check({EMULATED_HOST});
    EXPECT_EQ(checked.out, plain.out);
    EXPECT_EQ(checked.err, "");
    EXPECT_TRUE(checked.succeeded()) << checked.describe();
}

TEST_F(Checker, LeavesAProgramWithoutTheLibraryAlone)
{
    const child_result run = qv_check({"sh", "-c", "echo $0; exit 7", "its words"});
    EXPECT_TRUE(run.has_exited && run.status == 7) << run.describe();
    EXPECT_EQ(run.out + run.err, "its words\n");
}

#if defined(EXAMPLES_DIRECTORY)
TEST_F(Checker, FindsNothingInTheExamples)
{
    for (const char *example : {"owners", "sorted_array", "work_queue", "host", "dates", "checksums"}) {
        SCOPED_TRACE(example);
        expect_clean({std::string(EXAMPLES_DIRECTORY) + "/" + example, EXAMPLES_DIRECTORY});
    }
}

TEST_F(Checker, FindsTheLibraryThatAModuleBringsForItself)
{
    const child_result run = qv_check({UNLINKED_HOST, GREETER_MODULE});
    EXPECT_EQ(run.out, "Good morning, Ada!\n") << run.describe();
    EXPECT_NE(run.err.find("leak: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("examples/module.c:"), std::string::npos) << run.err;
}
#endif
