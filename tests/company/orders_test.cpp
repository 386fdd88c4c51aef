// Hosts that use the library beside libmd, libbsd, zlib and libcrypto, loaded and linked in every order.

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/library_copy.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using order = std::vector<std::string>;

const std::string libmd = LIBMD_FILE;
const std::string libbsd = LIBBSD_FILE;

std::vector<order> every_order()
{
    order libraries = {loaded_library_path(), libmd, libbsd, LIBZ_FILE, LIBCRYPTO_FILE};
    std::sort(libraries.begin(), libraries.end());
    std::vector<order> all;
    do
        all.push_back(libraries);
    while (std::next_permutation(libraries.begin(), libraries.end()));
    return all;
}

bool is_in_front_of_the_library(const std::string &name, const order &libraries)
{
    return std::find(libraries.begin(), libraries.end(), name) <
           std::find(libraries.begin(), libraries.end(), loaded_library_path());
}

std::string describe(const order &libraries)
{
    std::string text;
    for (const std::string &path : libraries)
        text.append(" ").append(std::filesystem::path(path).filename().string());
    return text;
}

child_result run_host(const std::string &host, const order &libraries, bool with_libmd)
{
    std::vector<std::string> command_line = {host};
    if (with_libmd)
        command_line.push_back("--with-libmd");
    command_line.insert(command_line.end(), libraries.begin(), libraries.end());
    const std::string folder = std::filesystem::path(loaded_library_path()).parent_path().string();
    return run_command(command_line, {"LD_LIBRARY_PATH=" + folder});
}

child_result link_host(const std::string &host, const order &libraries)
{
    std::vector<std::string> command_line = {CXX_COMPILER, HOST_OBJECT, "-Wl,--no-as-needed"};
    command_line.insert(command_line.end(), libraries.begin(), libraries.end());
    command_line.insert(command_line.end(), {"-ldl", "-o", host});
    if (SANITIZERS[0] != '\0')
        command_line.push_back(SANITIZERS);
    return run_command(command_line);
}

// A line for whoever gathers figures.
void report(const char *what, size_t count)
{
    printf("COMPANY\t%s\t%zu orders\n", what, count);
}

}  // namespace

// libbsd brings libmd with it.
TEST(Company, MayBeLoadedInEveryOrder)
{
    const std::vector<order> orders = every_order();
    ASSERT_EQ(orders.size(), 120u);
    for (const order &libraries : orders) {
        const bool with_libmd =
            is_in_front_of_the_library(libmd, libraries) || is_in_front_of_the_library(libbsd, libraries);
        const child_result host = run_host(LOADING_HOST, libraries, with_libmd);
        EXPECT_TRUE(host.succeeded()) << describe(libraries) << ": " << host.describe();
    }
    report("loaded beside libmd, libbsd, zlib, libcrypto", orders.size());
}

// What libbsd brings with it stands behind all that the host names, so libmd must be named in front.
TEST(Company, MayBeLinkedInEveryOrder)
{
    const scratch_directory scratch;
    std::vector<order> orders = every_order();
    if (getenv("QV_COMPANY_EVERY_LINK") == nullptr) {  // linking takes its time: each library in front twice
        const std::vector<order> all = orders;
        orders.clear();
        for (size_t i = 0; i < all.size(); i += 13)
            orders.push_back(all[i]);
    }
    for (const order &libraries : orders) {
        const child_result linked = link_host(scratch.file("host"), libraries);
        ASSERT_TRUE(linked.succeeded()) << describe(libraries) << ": " << linked.describe();
        const child_result host =
            run_host(scratch.file("host"), libraries, is_in_front_of_the_library(libmd, libraries));
        EXPECT_TRUE(host.succeeded()) << describe(libraries) << ": " << host.describe();
    }
    report("linked beside libmd, libbsd, zlib, libcrypto", orders.size());
}
