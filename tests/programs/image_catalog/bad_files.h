// Files that are damaged, each in one way, and what the catalogue is to say of them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

struct bad_file {
    std::string name;
    std::string bytes;
    std::string reason;
};

// How a red line names it.
void PrintTo(const bad_file &file, std::ostream *stream);

std::vector<bad_file> all_bad_files();
