// Images with some of their bytes changed, the same ones in every run.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

class mutated_files {
public:
    // From the samples and the bad files.
    explicit mutated_files(uint32_t seed);
    std::string next();

private:
    size_t below(size_t limit);
    void change(std::string &bytes);

    std::vector<std::string> bases_;
    size_t count_ = 0;
    uint64_t state_;  // of a small generator
};
