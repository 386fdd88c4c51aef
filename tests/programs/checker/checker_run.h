// Hosts under qv-check, and what it says of them.
#pragma once

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

using json_lines = std::vector<nlohmann::json>;

// Run the command with these arguments.
child_result qv_check(const std::vector<std::string> &arguments,
                      const std::vector<std::string> &environment = {});

// Standard error as JSON, an object a line; a failure of the test when it is not.
json_lines read_json_lines(const std::string &text);

// The line of the mistaken host that ends with this comment.
std::string site_of(const std::string &comment);

class Checker : public testing::Test {
protected:
    void SetUp() override
    {
        if (IS_SANITIZED)
            GTEST_SKIP() << "a sanitizer must be loaded before everything else, so nothing can be preloaded";
    }

    std::string path(const std::string &name) const { return scratch.file(name); }
    std::string write(const std::string &name, const std::string &content) const;

    const scratch_directory scratch;
};
