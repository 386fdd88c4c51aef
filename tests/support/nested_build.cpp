#include "support/nested_build.h"

#include "support/build_facts.h"

#include <gtest/gtest.h>

child_result run_built(const std::vector<std::string> &command_line)
{
    return run_command(command_line, {"LD_LIBRARY_PATH="});
}

child_result run_cmake(const std::vector<std::string> &arguments)
{
    std::vector<std::string> command_line = {"env"};
    for (const char *variable : {"CXXFLAGS", "LDFLAGS", "DESTDIR", "CMAKE_BUILD_TYPE", "SOURCE_DATE_EPOCH"})
        command_line.insert(command_line.end(), {"-u", variable});
    command_line.push_back(CMAKE_PROGRAM);
    command_line.insert(command_line.end(), arguments.begin(), arguments.end());
    return run_command(command_line);
}

void configure_and_build(const std::string &source, const std::string &build_directory,
                         const std::vector<std::string> &arguments)
{
    std::vector<std::string> configure = {"-S",
                                          source,
                                          "-B",
                                          build_directory,
                                          "-G",
                                          CMAKE_GENERATOR_NAME,
                                          std::string("-DCMAKE_MAKE_PROGRAM=") + BUILD_PROGRAM,
                                          std::string("-DCMAKE_CXX_COMPILER=") + CXX_COMPILER};
    configure.insert(configure.end(), arguments.begin(), arguments.end());
    const child_result configured = run_cmake(configure);
    ASSERT_TRUE(configured.succeeded()) << configured.describe();
    const child_result built = run_cmake({"--build", build_directory, "--parallel", "2"});
    ASSERT_TRUE(built.succeeded()) << built.describe();
}
