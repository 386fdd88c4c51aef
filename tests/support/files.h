// Whole files, their lines and words.
#pragma once

#include "support/build_facts.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

inline std::string content_of(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << path;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Without their newlines.
inline std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// Separated by white space.
inline std::vector<std::string> words_of(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

// The names that the library is to export, in the order of their list.
inline std::vector<std::string> listed_exports()
{
    return lines_of(content_of(std::string(SOURCE_DIRECTORY) + "/foundation/exports.txt"));
}
