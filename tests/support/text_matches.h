// What a pattern finds in a text, line by line.
#pragma once

#include "support/files.h"

#include <regex.h>

#include <stdexcept>
#include <string>
#include <vector>

// The first group of the first match in each line; `pattern` is a POSIX extended regular expression.
inline std::vector<std::string> matches(const std::string &text, const char *pattern)
{
    regex_t expression;
    if (regcomp(&expression, pattern, REG_EXTENDED) != 0)
        throw std::runtime_error(pattern);
    std::vector<std::string> found;
    for (const std::string &line : lines_of(text)) {
        regmatch_t groups[2];
        if (regexec(&expression, line.c_str(), 2, groups, 0) == 0)
            found.push_back(line.substr(size_t(groups[1].rm_so), size_t(groups[1].rm_eo - groups[1].rm_so)));
    }
    regfree(&expression);
    return found;
}
