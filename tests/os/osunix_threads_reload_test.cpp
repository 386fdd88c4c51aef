// A host that closes the library and loads it again: the mode and the memory table last for the life of the
// process.

#include "foundation/memory.h"
#include "foundation/os.h"

#include "support/library_copy.h"
#include "support/scratch_directory.h"
#include "support/thread_functions.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

// A copy of the library, so that it is this host's alone.
class ReloadedLibrary : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::copy_file(loaded_library_path(), path);
        load();
    }
    void TearDown() override
    {
        if (handle != nullptr)
            dlclose(handle);
    }

    void load()
    {
        handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
    }
    void close_and_load_again()
    {
        ASSERT_EQ(dlclose(handle), 0);
        handle = nullptr;
        load();
    }

    // The copy's function of the same name and type as `prototype`; looked up anew after each loading.
    template <typename Function> Function *find(const char *name, Function &)
    {
        return reinterpret_cast<Function *>(dlsym(handle, name));
    }

    scratch_directory directory;
    std::string path = directory.file("reloaded.so");
    void *handle = nullptr;
};

#define FIND(function) find(#function, function)

TEST_F(ReloadedLibrary, StaysInTheProcessWhenItIsClosed)
{
    ASSERT_EQ(dlclose(handle), 0);
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(handle, nullptr) << "it was unloaded";
}

TEST_F(ReloadedLibrary, KeepsTheModeThatItSettledBefore)
{
    {
        lookup_trace lookups;
        lookups.hide(thread_function::COND_INIT);
        ASSERT_EQ(FIND(OS_threads_support)(), 0U);
    }
    close_and_load_again();
    auto *threads_support = FIND(OS_threads_support);
    lookup_trace lookups;
    EXPECT_EQ(threads_support(), 0U) << "the mode is another one";
    EXPECT_EQ(lookups.calls(), steps{}) << "it searched again";
}

TEST_F(ReloadedLibrary, KeepsItsRecordedBlocksAndItsUniqueTags)
{
    const uint64_t tag = FIND(ZR_memm_unique_tag_get)("test", __LINE__);
    LPVOID block = FIND(ZR_memm_alloc)(tag, 8, "test", __LINE__);
    ASSERT_NE(block, nullptr);
    close_and_load_again();
    EXPECT_EQ(FIND(ZR_memm_flags)(tag, block), ZR_MEMM_FLAG_RECORDED) << "the block is not known any more";
    EXPECT_EQ(FIND(ZR_memm_unique_tag_get)("test", __LINE__), tag + 1) << "the tags start again";
    EXPECT_EQ(FIND(ZR_memm_free_all)(tag), 1) << "the tag has lost its block";
}

}  // namespace
