// The sources inside another project: the library and nothing else, and nothing of that project disturbed.

#include "install/consumer_output.h"
#include "support/build_facts.h"
#include "support/files.h"
#include "support/nested_build.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char PARENT[] = "/tests/install/parent";

void build_parent(const std::string &build, std::vector<std::string> arguments)
{
    arguments.push_back(std::string("-DQV_SOURCE=") + SOURCE_DIRECTORY);
    configure_and_build(std::string(SOURCE_DIRECTORY) + PARENT, build, arguments);
}

void expect_consumer_runs(const std::string &build)
{
    const child_result result = run_built({build + "/consumer"});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    EXPECT_EQ(result.out, CONSUMER_OUTPUT);
}

class Subproject : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        scratch = std::make_unique<scratch_directory>();
        build_parent(build(), {"-DBUILD_TESTING=ON"});  // the parent's own tests
    }
    static void TearDownTestSuite() { scratch.reset(); }

    static std::string build() { return scratch->file("build"); }

    // Install the parent, and tell whether the library came along.
    static bool installs_library(const std::string &prefix)
    {
        const child_result installed = run_cmake({"--install", build(), "--prefix", prefix});
        EXPECT_TRUE(installed.succeeded()) << installed.describe();
        EXPECT_TRUE(std::filesystem::exists(prefix + "/bin/consumer"));
        return std::filesystem::exists(prefix + "/lib/" + LIBRARY_FILE_NAME);
    }

    static std::unique_ptr<scratch_directory> scratch;
};

std::unique_ptr<scratch_directory> Subproject::scratch;

}  // namespace

TEST_F(Subproject, ServesItsParent)
{
    expect_consumer_runs(build());
}

TEST_F(Subproject, IsTheLibraryAlone)
{
    EXPECT_TRUE(std::filesystem::exists(build() + "/qv/" + LIBRARY_FILE_NAME));
    for (const char *folder : {"/qv/tests", "/qv/examples", "/qv/programs"})
        EXPECT_FALSE(std::filesystem::exists(build() + folder)) << folder;
}

TEST_F(Subproject, LeavesTheVariablesOfItsParentAlone)
{
    EXPECT_EQ(content_of(build() + "/disturbed"), "");
}

TEST_F(Subproject, LeavesTheBuildTypeToItsParent)
{
    EXPECT_NE(content_of(build() + "/CMakeCache.txt").find("CMAKE_BUILD_TYPE:STRING=\n"), std::string::npos);
}

TEST_F(Subproject, IsInstalledOnlyWhenAsked)
{
    const std::string without = scratch->file("without"), with = scratch->file("with");
    EXPECT_FALSE(installs_library(without));
    EXPECT_FALSE(std::filesystem::exists(without + "/include"));
    EXPECT_FALSE(std::filesystem::exists(without + "/share"));
    build_parent(build(), {"-DQV_INSTALL=ON", "-DCMAKE_INSTALL_LIBDIR=lib"});
    EXPECT_TRUE(installs_library(with));
    EXPECT_TRUE(std::filesystem::exists(with + "/share/doc/QVfoundation/LICENSE"));
}

TEST(SubprojectByFetchContent, ServesItsParent)
{
    const scratch_directory scratch;
    build_parent(scratch.path(), {"-DQV_BY_FETCH_CONTENT=ON"});
    expect_consumer_runs(scratch.path());
}
