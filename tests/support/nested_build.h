// CMake projects that a test configures, builds and installs itself, with the compiler of this build.
#pragma once

#include "support/child_process.h"

#include <string>
#include <vector>

// Run cmake with what the user's environment could add to a build taken away.
child_result run_cmake(const std::vector<std::string> &arguments);

// Run a program of a nested build with the library that was built there, also where these tests themselves
// run with another one by LD_LIBRARY_PATH.
child_result run_built(const std::vector<std::string> &command_line);

// Configure `source` in `build_directory` with further arguments, and build it. Failures are this test's.
void configure_and_build(const std::string &source, const std::string &build_directory,
                         const std::vector<std::string> &arguments);
