// Libraries in files of their own: a copy that has not been loaded yet is new in every respect. (To unload
// and load again is not enough, because a library may ask to stay.)
#pragma once

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace bench {

class library_copy {
public:
    explicit library_copy(const std::filesystem::path &original)
    {
        static int number = 0;
        path_ = std::filesystem::temp_directory_path() /
                (std::to_string(getpid()) + "-" + std::to_string(++number) + ".so");
        std::filesystem::copy_file(original, path_, std::filesystem::copy_options::overwrite_existing);
    }
    ~library_copy() { std::filesystem::remove(path_); }
    library_copy(const library_copy &) = delete;
    library_copy &operator=(const library_copy &) = delete;

    const char *path() const { return path_.c_str(); }

private:
    std::filesystem::path path_;
};

// The file that a function comes from.
inline std::filesystem::path file_of(void *function)
{
    Dl_info facts = {};
    dladdr(function, &facts);
    return facts.dli_fname;
}

}  // namespace bench
