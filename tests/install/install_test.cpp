// The library built and installed afresh, and projects that use what was installed.

#include "install/consumer_output.h"
#include "support/build_facts.h"
#include "support/files.h"
#include "support/nested_build.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <time.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

std::set<std::string> files_below(const std::string &directory)
{
    std::set<std::string> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory))
        if (!entry.is_directory())
            files.insert(std::filesystem::relative(entry.path(), directory).string());
    return files;
}

// In the form of the build date.
std::string today()
{
    const time_t now = time(nullptr);
    tm fields = {};
    localtime_r(&now, &fields);
    char text[32];
    strftime(text, sizeof text, "%b %e %Y", &fields);
    return text;
}

// Configured for one prefix, installed under another and moved to a third, where all of it is to work.
class Installation : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        scratch = std::make_unique<scratch_directory>();
        day_before_build = today();
        configure_and_build(SOURCE_DIRECTORY, build(),
                            {"-DBUILD_TESTING=OFF", "-DCMAKE_INSTALL_LIBDIR=lib",
                             "-DCMAKE_INSTALL_PREFIX=" + scratch->file("configured")});
        day_after_build = today();
        const std::string first_prefix = scratch->file("first");
        const child_result installed = run_cmake({"--install", build(), "--prefix", first_prefix});
        ASSERT_TRUE(installed.succeeded()) << installed.describe();
        std::filesystem::rename(first_prefix, prefix());
    }
    static void TearDownTestSuite() { scratch.reset(); }

    static std::string build() { return scratch->file("build"); }
    static std::string prefix() { return scratch->file("prefix"); }
    static std::string consumer_source() { return std::string(SOURCE_DIRECTORY) + "/tests/install/consumer"; }

    // Build the consumer with find_package, which is told by `where` where to look, and run it.
    static void expect_find_package_serves(const std::string &consumer_build, const std::string &where)
    {
        configure_and_build(consumer_source(), consumer_build, {where});
        const child_result result = run_built({consumer_build + "/consumer"});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        EXPECT_EQ(result.out, CONSUMER_OUTPUT);
    }

    static std::unique_ptr<scratch_directory> scratch;
    static std::string day_before_build, day_after_build;
};

std::unique_ptr<scratch_directory> Installation::scratch;
std::string Installation::day_before_build, Installation::day_after_build;

}  // namespace

TEST_F(Installation, IsTheLibraryTheHeadersTheTwoPackageDescriptionsTheGdbExtensionAndTheLicence)
{
    std::set<std::string> expected = {
        "lib/libQVfoundation17.so",
        "lib/pkgconfig/QVfoundation17.pc",
        "lib/cmake/QVfoundation/QVfoundationConfig.cmake",
        "lib/cmake/QVfoundation/QVfoundationConfigVersion.cmake",
        "lib/cmake/QVfoundation/QVfoundationTargets.cmake",
        "lib/cmake/QVfoundation/QVfoundationTargets-release.cmake",
        "share/doc/QVfoundation/LICENSE",
    };
    for (const std::string &header : files_below(std::string(SOURCE_DIRECTORY) + "/include"))
        expected.insert("include/" + header);
    // gdb looks for it at the path that the library was installed to.
    const std::string gdb_folder =
        "share/gdb/auto-load" + std::filesystem::canonical(scratch->path()).string() + "/first/lib/";
    for (const std::string &file : files_below(std::string(SOURCE_DIRECTORY) + "/programs/gdb"))
        expected.insert(gdb_folder + file);
    EXPECT_EQ(files_below(prefix()), expected);
}

TEST_F(Installation, CarriesTheDateOfItsBuild)
{
    const std::string content = content_of(prefix() + "/lib/" + LIBRARY_FILE_NAME);
    EXPECT_TRUE(content.find(day_before_build + '\0') != std::string::npos ||
                content.find(day_after_build + '\0') != std::string::npos)
        << "neither " << day_before_build << " nor " << day_after_build;
}

TEST_F(Installation, WithoutABuildTypeIsARelease)
{
    const std::string cache = content_of(build() + "/CMakeCache.txt");
    EXPECT_NE(cache.find("CMAKE_BUILD_TYPE:STRING=Release\n"), std::string::npos);
}

TEST_F(Installation, WithoutTestsBuildsTheLibraryAlone)
{
    EXPECT_FALSE(std::filesystem::exists(build() + "/tests"));
    EXPECT_FALSE(std::filesystem::exists(build() + "/programs"));
}

TEST_F(Installation, ServesAProjectThatUsesFindPackage)
{
    expect_find_package_serves(scratch->file("consumer"), "-DCMAKE_PREFIX_PATH=" + prefix());
}

TEST_F(Installation, IsNotNeededByAProjectThatFindsTheBuildFolder)
{
    expect_find_package_serves(scratch->file("consumer_of_build"), "-DQVfoundation_DIR=" + build());
}

TEST_F(Installation, ServesTheExamplesAsTheyStand)
{
    const std::string examples = scratch->file("examples");
    configure_and_build(std::string(SOURCE_DIRECTORY) + "/examples", examples,
                        {"-DCMAKE_PREFIX_PATH=" + prefix(),
                         "-DCMAKE_C_FLAGS=-Wall -Wextra -Wpedantic -Werror",
                         "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Werror"});
    for (const char *example :
         {"owners", "sorted_array", "work_queue", "host", "dates", "checksums", "scopes"}) {
        const child_result result = run_built({examples + "/" + example, examples});
        EXPECT_TRUE(result.succeeded()) << example << ": " << result.describe();
    }
}

TEST_F(Installation, ServesACompilerCallThatUsesPkgConfig)
{
    const child_result flags = run_command({"pkg-config", "--cflags", "--libs", "QVfoundation17"},
                                           {"PKG_CONFIG_PATH=" + prefix() + "/lib/pkgconfig"});
    ASSERT_TRUE(flags.succeeded()) << flags.describe();
    const std::string program = scratch->file("pkg_config_consumer");
    std::vector<std::string> command_line = {CXX_COMPILER, consumer_source() + "/consumer.cpp", "-o",
                                             program};
    for (const std::string &flag : words_of(flags.out))
        command_line.push_back(flag);
    const child_result built = run_command(command_line);
    ASSERT_TRUE(built.succeeded()) << built.describe();
    const child_result result = run_command({program}, {"LD_LIBRARY_PATH=" + prefix() + "/lib"});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    EXPECT_EQ(result.out, CONSUMER_OUTPUT);
}

TEST_F(Installation, MayKeepItsLibraryOutsideThePrefix)
{
    const std::string elsewhere = scratch->file("elsewhere/lib");
    const child_result configured =
        run_cmake({"-S", SOURCE_DIRECTORY, "-B", build(), "-DCMAKE_INSTALL_LIBDIR=" + elsewhere});
    ASSERT_TRUE(configured.succeeded()) << configured.describe();
    const child_result flags =
        run_command({"pkg-config", "--cflags", "--libs", "QVfoundation17"}, {"PKG_CONFIG_PATH=" + build()});
    EXPECT_EQ(words_of(flags.out), (std::vector<std::string>{"-I" + scratch->file("configured/include"),
                                                             "-L" + elsewhere, "-lQVfoundation17"}));
}
