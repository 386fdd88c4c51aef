// Flags of the user's own: those that instrument the code, and those for systems that are not served.

#include "install/consumer_output.h"
#include "support/build_facts.h"
#include "support/nested_build.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

namespace {

// A program and the library, both built with `flags`, and the program run.
void expect_consumer_runs_with(const std::string &flags, const scratch_directory &scratch)
{
    const std::string source = SOURCE_DIRECTORY;
    configure_and_build(source + "/tests/install/parent", scratch.path(),
                        {"-DQV_SOURCE=" + source, "-DCMAKE_CXX_FLAGS=" + flags});
    const child_result result = run_built({scratch.file("consumer")});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    EXPECT_EQ(result.out, CONSUMER_OUTPUT);
}

size_t occurrences(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        count++;
    return count;
}

class Instrumentation : public testing::TestWithParam<const char *> {};
class OtherSystem : public testing::TestWithParam<const char *> {};

}  // namespace

TEST_P(Instrumentation, OfTheUserIsBuiltIn)
{
    const scratch_directory scratch;
    expect_consumer_runs_with(GetParam(), scratch);
}

INSTANTIATE_TEST_SUITE_P(Flags, Instrumentation,
                         testing::Values("-fsanitize=address", "-fsanitize=undefined", "-ftrapv"));

TEST(Coverage, OfTheUserCountsInTheLibrary)
{
    const scratch_directory scratch;
    expect_consumer_runs_with("--coverage", scratch);
    const std::filesystem::recursive_directory_iterator files(scratch.file("qv")), end;
    EXPECT_TRUE(std::any_of(files, end, [](const auto &file) { return file.path().extension() == ".gcda"; }))
        << "the run has left no counts";
}

// A compiler that does not call its target x86-64 stands for one that compiles for another processor.
TEST_P(OtherSystem, IsRefusedInOneMessage)
{
    const scratch_directory scratch;
    const child_result result =
        run_cmake({"-S", SOURCE_DIRECTORY, "-B", scratch.path(), "-G", CMAKE_GENERATOR_NAME,
                   std::string("-DCMAKE_MAKE_PROGRAM=") + BUILD_PROGRAM,
                   std::string("-DCMAKE_CXX_COMPILER=") + CXX_COMPILER,
                   std::string("-DCMAKE_CXX_FLAGS=") + GetParam()});
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(occurrences(result.err, "CMake Error"), 1u) << result.err;
    EXPECT_NE(result.err.find("QVfoundation is written for Linux on x86-64"), std::string::npos)
        << result.err;
}

INSTANTIATE_TEST_SUITE_P(Flags, OtherSystem,
                         testing::Values("-m32", "-O2 -mx32", "-U__x86_64__", "-U__linux__"));
