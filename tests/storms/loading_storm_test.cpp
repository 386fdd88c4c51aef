// Loads and unloads of the library, and of a module that uses it: the process does not grow.

#include "foundation/os.h"

#include "storms/storm.h"
#include "support/build_facts.h"
#include "support/library_copy.h"

#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

namespace {

// What a process would leave behind in growing. A sanitizer keeps books of its own on every module that was
// ever loaded, so that with one of them only the descriptors count.
struct process_size {
    long descriptors = 0;
    long mappings = 0;
    long pages = 0;
    size_t heap_bytes = 0;

    bool operator==(const process_size &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const process_size &size)
{
    return stream << size.descriptors << " descriptors, " << size.mappings << " mappings of " << size.pages
                  << " pages together, " << size.heap_bytes << " bytes of the heap in use";
}

size_t heap_bytes_in_use()
{
#if __GLIBC_PREREQ(2, 33)
    return mallinfo2().uordblks;
#else
    return static_cast<size_t>(mallinfo().uordblks);
#endif
}

process_size measure()
{
    process_size size;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        size.descriptors += entry.is_symlink();
    if (IS_SANITIZED)
        return size;
    std::ifstream mappings("/proc/self/maps");
    for (std::string line; std::getline(mappings, line);)
        ++size.mappings;
    std::ifstream("/proc/self/statm") >> size.pages;
    size.heap_bytes = heap_bytes_in_use();
    return size;
}

constexpr long LOADS_TO_SETTLE = 20;

// Runs `load_and_unload` again and again and compares the process after the first few times with what it is
// after the last.
template <typename Action> void expect_no_growth(Action load_and_unload)
{
    for (long i = 0; i < LOADS_TO_SETTLE; ++i) {
        ASSERT_NO_FATAL_FAILURE(load_and_unload());
        measure();  // has its own share of the heap, too
    }
    const process_size settled = measure();
    for (long i = LOADS_TO_SETTLE; i < storm_rounds(); ++i)
        ASSERT_NO_FATAL_FAILURE(load_and_unload());
    EXPECT_EQ(measure(), settled);
}

}  // namespace

TEST(LoadingStorm, OfTheLibraryDoesNotGrowTheProcess)
{
    const scratch_directory directory;
    const std::string path = directory.file("library.so");  // this test's alone
    std::filesystem::copy_file(loaded_library_path(), path);
    expect_no_growth([&] {
        void *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        auto *threads_support =
            reinterpret_cast<decltype(&OS_threads_support)>(dlsym(library, "OS_threads_support"));
        ASSERT_EQ(threads_support(), 1U);
        ASSERT_EQ(dlclose(library), 0) << dlerror();
    });
    report_storm("loads and unloads of the library, without growth", storm_rounds(), "loads");
}

TEST(LoadingStorm, OfAModuleThatUsesTheLibraryDoesNotGrowTheProcess)
{
    expect_no_growth([] {
        LPVOID module = OS_sys_module_load(VISITING_MODULE);
        ASSERT_NE(module, nullptr) << dlerror();
        auto *visit = reinterpret_cast<int (*)()>(OS_sys_sym_get(module, "visit"));
        ASSERT_NE(visit, nullptr) << dlerror();
        ASSERT_EQ(visit(), 1);
        ASSERT_EQ(OS_sys_module_unload(module), 0) << dlerror();
        ASSERT_EQ(dlopen(VISITING_MODULE, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "it is still loaded";
    });
    report_storm("loads and unloads of a module that uses the library, without growth", storm_rounds(),
                 "loads");
}
