// The library built a second time, with compiler flags that a user may well set and that would change its
// results or its binary if the library's own flags did not prevail. The tests of the ordinary build then
// run against that library.

#include "support/build_facts.h"
#include "support/files.h"
#include "support/nested_build.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <stdio.h>
#include <time.h>

#include <memory>

namespace {

constexpr char FLAGS[] =
    "-Ofast -march=native -ffp-contract=fast -fno-semantic-interposition -fexceptions -frtti "
    "-D_FORTIFY_SOURCE=2 -fstack-protector-strong -fvisibility=hidden"
#ifndef __clang__
    " -fsingle-precision-constant"
#endif
    ;

std::string today()
{
    const time_t now = time(nullptr);
    tm fields = {};
    localtime_r(&now, &fields);
    char text[32];
    strftime(text, sizeof text, "%b %e %Y", &fields);
    return text;
}

class LibraryBuiltToBeFast : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        scratch = std::make_unique<scratch_directory>();
        day_before_build = today();
        configure_and_build(SOURCE_DIRECTORY, scratch->path(),
                            {"-DBUILD_TESTING=OFF", std::string("-DCMAKE_CXX_FLAGS=") + FLAGS});
        day_after_build = today();
    }
    static void TearDownTestSuite() { scratch.reset(); }

    static std::string library() { return scratch->file(LIBRARY_FILE_NAME); }

    static child_result run_with_that_library(const char *program,
                                              const std::vector<std::string> &environment = {})
    {
        std::vector<std::string> variables = environment;
        variables.push_back("LD_LIBRARY_PATH=" + scratch->path());
        variables.push_back("GTEST_BRIEF=1");
        return run_command({program}, variables);
    }

    static std::unique_ptr<scratch_directory> scratch;
    static std::string day_before_build, day_after_build;
};

std::unique_ptr<scratch_directory> LibraryBuiltToBeFast::scratch;
std::string LibraryBuiltToBeFast::day_before_build, LibraryBuiltToBeFast::day_after_build;

}  // namespace

TEST_F(LibraryBuiltToBeFast, PassesTheTestsOfTheOrdinaryOne)
{
    for (const char *program :
         {CONVERSIONS_TEST, CHECKSUMS_TEST, DATES_TEST, OSUNIX_TEST, OS_SYS_UNIX_TEST}) {
        const std::string loaded = run_with_that_library(program, {"LD_TRACE_LOADED_OBJECTS=1"}).out;
        ASSERT_NE(loaded.find(library()), std::string::npos) << loaded;
        const child_result result = run_with_that_library(program);
        EXPECT_TRUE(result.succeeded()) << program << ": " << result.describe();
    }
}

TEST_F(LibraryBuiltToBeFast, HasTheBinaryFactsOfTheOrdinaryOne)
{
    const child_result result = run_with_that_library(BINARY_TEST);
    EXPECT_TRUE(result.succeeded()) << result.describe();
}

// For a processor that has such instructions, whatever the one at hand is.
TEST(LibraryBuiltForFusedArithmetic, HasNone)
{
    const scratch_directory scratch;
    configure_and_build(SOURCE_DIRECTORY, scratch.path(),
                        {"-DBUILD_TESTING=OFF", "-DCMAKE_CXX_FLAGS=-O3 -mfma -ffp-contract=fast"});
    const child_result listing = run_command({OBJDUMP_PROGRAM, "-d", scratch.file(LIBRARY_FILE_NAME)});
    ASSERT_TRUE(listing.succeeded()) << listing.describe();
    EXPECT_NE(listing.out.find("vmulsd"), std::string::npos);  // the arithmetic is there, one by one
    for (const char *fused : {"vfmadd", "vfmsub", "vfnmadd", "vfnmsub"})
        EXPECT_EQ(listing.out.find(fused), std::string::npos) << fused;
}

TEST_F(LibraryBuiltToBeFast, CarriesTheDateOfItsBuild)
{
    const std::string content = content_of(library());
    EXPECT_TRUE(content.find(day_before_build + '\0') != std::string::npos ||
                content.find(day_after_build + '\0') != std::string::npos);
}
