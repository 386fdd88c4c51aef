// CMake projects that a test configures, builds and installs itself, with the compiler of this build.
#pragma once

#include "support/child_process.h"

#include <string>
#include <vector>

// Run cmake with what the user's environment could add to a build taken away.
child_result run_cmake(const std::vector<std::string> &arguments);

// Configure `source` in `build_directory` with further arguments, and build it. Failures are this test's.
void configure_and_build(const std::string &source, const std::string &build_directory,
                         const std::vector<std::string> &arguments);
