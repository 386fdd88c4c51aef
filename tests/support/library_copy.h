// A second copy of the library under test, loaded from a file of its own: all its tables are zero again.
#pragma once

#include "foundation/memory.h"

#include "support/scratch_directory.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>
#include <string>

// The file that the library used by this program was loaded from.
inline std::string loaded_library_path()
{
    ZR_mem_init();  // a linker may leave out a library of which nothing is used
    Dl_info facts = {};
    if (dladdr(dlsym(RTLD_DEFAULT, "ZR_mem_init"), &facts) == 0)
        throw std::runtime_error("the library is not loaded");
    return std::filesystem::canonical(facts.dli_fname).string();
}

class library_copy {
public:
    library_copy()
    {
        std::filesystem::copy_file(loaded_library_path(), directory_.file("copy.so"));
        handle_ = dlopen(directory_.file("copy.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle_ == nullptr)
            throw std::runtime_error(dlerror());
    }
    ~library_copy() { dlclose(handle_); }
    library_copy(const library_copy &) = delete;
    library_copy &operator=(const library_copy &) = delete;

    // The copy's function of the same name and type as `prototype`.
    template <typename Function> Function *find(const char *name, Function &) const
    {
        void *address = dlsym(handle_, name);
        if (address == nullptr)
            throw std::runtime_error(dlerror());
        return reinterpret_cast<Function *>(address);
    }

private:
    scratch_directory directory_;
    void *handle_;
};
