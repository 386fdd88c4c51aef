// A directory of a test's own that vanishes with its content.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

class scratch_directory {
public:
    scratch_directory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qv_test_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~scratch_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;

    std::string path() const { return path_.string(); }
    std::string file(const std::string &name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};
