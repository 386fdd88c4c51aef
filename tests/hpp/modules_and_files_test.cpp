// Modules with typed symbols, and file descriptors.

#include "hpp/hpp_fixture.h"
#include "support/files.h"
#include "support/scratch_directory.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <type_traits>
#include <utility>

namespace {

using qv::file;
using qv::loaded_module;

static_assert(!std::is_copy_constructible_v<file> && !std::is_copy_assignable_v<file>);
static_assert(!std::is_copy_constructible_v<loaded_module> && !std::is_copy_assignable_v<loaded_module>);
static_assert(std::is_nothrow_move_constructible_v<file> && std::is_nothrow_move_assignable_v<file>);
static_assert(std::is_nothrow_move_constructible_v<loaded_module>);

bool is_open(INT descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

// The module is known to the loader.
bool is_loaded(const CHAR *path)
{
    const loaded_module again = loaded_module::adopt(dlopen(path, RTLD_LAZY | RTLD_NOLOAD));
    return bool(again);
}

class File : public testing::Test {
protected:
    scratch_directory scratch;
    const std::string path = scratch.file("file");
};

}  // namespace

TEST(LoadedModule, IsUnloadedAtTheEndOfItsScope)
{
    {
        const loaded_module module(GREETING_MODULE);
        EXPECT_TRUE(module);
        EXPECT_TRUE(is_loaded(GREETING_MODULE));
    }
    EXPECT_FALSE(is_loaded(GREETING_MODULE));
}

TEST(LoadedModule, FindsFunctionsAndObjectsByTheirTypes)
{
    const loaded_module module(GREETING_MODULE);
    const auto twice = module.symbol<int(int)>("twice");
    const auto greeting = module.symbol<const char[6]>("greeting");
    ASSERT_NE(twice, nullptr);
    ASSERT_NE(greeting, nullptr);
    EXPECT_EQ(twice(21), 42);
    EXPECT_STREQ(*greeting, "hello");
    EXPECT_EQ(module.symbol<int(int)>("thrice"), nullptr);
    EXPECT_EQ(module.symbol<int(int)>(nullptr), nullptr);
}

TEST(LoadedModule, ThatCannotBeLoadedHoldsNothingAndFindsNothing)
{
    loaded_module module("/nowhere/module.so");
    EXPECT_FALSE(module);
    EXPECT_EQ(module.symbol<LPVOID(size_t)>("malloc"), nullptr) << "not even what the process has";
    EXPECT_EQ(module.unload(), 0);
}

TEST(LoadedModule, WithoutANameIsTheProcess)
{
    const loaded_module process(nullptr);
    EXPECT_NE(process.symbol<LPVOID(size_t)>("malloc"), nullptr);
}

TEST(LoadedModule, IsMovedDetachedAdoptedAndUnloaded)
{
    loaded_module first(GREETING_MODULE), second;
    EXPECT_FALSE(second);
    second = std::move(first);
    EXPECT_FALSE(first);
    loaded_module third = loaded_module::adopt(second.detach());
    EXPECT_FALSE(second);
    EXPECT_TRUE(is_loaded(GREETING_MODULE));
    EXPECT_EQ(third.unload(), 0);
    EXPECT_FALSE(third);
    EXPECT_FALSE(is_loaded(GREETING_MODULE));
}

TEST_F(File, IsClosedAtTheEndOfItsScope)
{
    INT descriptor = -1;
    {
        const file created = file::create(path.c_str());
        EXPECT_TRUE(created);
        descriptor = created.descriptor();
        EXPECT_TRUE(is_open(descriptor));
    }
    EXPECT_FALSE(is_open(descriptor));
}

TEST_F(File, IsWrittenSoughtCutAndRead)
{
    file written(path.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(written.write("0123456789", 10), 10);
    EXPECT_EQ(written.seek(-8, 2), 2);
    EXPECT_EQ(written.size_change(6), 0);
    CHAR buffer[10];
    EXPECT_EQ(written.read(buffer, sizeof buffer), 4);
    EXPECT_EQ(memcmp(buffer, "2345", 4), 0);
    EXPECT_EQ(content_of(path), "012345");
}

TEST_F(File, ThatCannotBeOpenedHoldsNothingAndSaysWhyInErrno)
{
    errno = 0;
    file missing(path.c_str(), O_RDONLY);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(missing);
    EXPECT_EQ(missing.descriptor(), -1);
    EXPECT_EQ(missing.write("x", 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(missing.close(), -1);
}

TEST_F(File, IsMovedDetachedAndAdopted)
{
    file first = file::create(path.c_str()), second = file::create(scratch.file("other").c_str());
    const INT descriptor = first.descriptor(), replaced = second.descriptor();
    second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_FALSE(is_open(replaced));
    EXPECT_EQ(second.descriptor(), descriptor);
    EXPECT_EQ(second.detach(), descriptor);
    EXPECT_TRUE(is_open(descriptor));
    file third = file::adopt(descriptor);
    EXPECT_EQ(third.close(), 0);
    EXPECT_FALSE(is_open(descriptor));
}
