// File services on real files.

#include "foundation/os.h"

#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

class FileServices : public testing::Test {
protected:
    scratch_directory scratch;
    std::string path = scratch.file("file");

    void write_file(const std::string &content) { std::ofstream(path, std::ios::binary) << content; }
    std::string file_content()
    {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    INT open_file(int flags = O_RDWR)
    {
        const INT descriptor = OS_open(path.c_str(), flags, 0);
        if (descriptor < 0)
            throw std::runtime_error("cannot open " + path);
        return descriptor;
    }
    struct stat64 file_facts(const std::string &of)
    {
        struct stat64 facts = {};
        if (stat64(of.c_str(), &facts) != 0)
            throw std::runtime_error("no facts of " + of);
        return facts;
    }
    mode_t permissions(const std::string &of) { return file_facts(of).st_mode & 07777; }
};

class file_creation_mask {
public:
    explicit file_creation_mask(mode_t mask) : old_(umask(mask)) {}
    ~file_creation_mask() { umask(old_); }

private:
    mode_t old_;
};

}  // namespace

TEST_F(FileServices, CreateGivesBits0755LessTheCreationMask)
{
    for (const auto &[mask, expected] :
         {std::pair<mode_t, mode_t>{0, 0755}, {022, 0755}, {027, 0750}, {0777, 0}}) {
        const std::string created = scratch.file("created" + std::to_string(mask));
        file_creation_mask masked(mask);
        const INT descriptor = OS_create(created.c_str());
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(permissions(created), expected) << "with the mask 0" << std::oct << mask;
        EXPECT_EQ(OS_close(descriptor), 0);
    }
}

TEST_F(FileServices, CreateTruncatesAnExistingFileAndKeepsItsPermissions)
{
    write_file("old content");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    const INT descriptor = OS_create(path.c_str());
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(file_facts(path).st_size, 0);
    EXPECT_EQ(permissions(path), 0600u);
    OS_close(descriptor);
}

TEST_F(FileServices, CreateOpensForWritingOnly)
{
    const INT descriptor = OS_create(path.c_str());
    ASSERT_GE(descriptor, 0);
    CHAR byte;
    EXPECT_EQ(OS_write(descriptor, "a", 1), 1);
    EXPECT_EQ(OS_seek(descriptor, 0, 0), 0);
    EXPECT_EQ(OS_read(descriptor, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_WRONLY);
    OS_close(descriptor);
}

TEST_F(FileServices, CreateFailsWithThePlatformsErrno)
{
    errno = 0;
    EXPECT_EQ(OS_create(scratch.file("missing/file").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileServices, OpenActsAsThePlatformsOpen)
{
    file_creation_mask none(0);
    errno = 0;
    EXPECT_EQ(OS_open(path.c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(errno, ENOENT);

    const INT created = OS_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0640);
    ASSERT_GE(created, 0);
    EXPECT_EQ(permissions(path), 0640u);
    EXPECT_EQ(OS_write(created, "abc", 3), 3);
    EXPECT_EQ(OS_close(created), 0);

    EXPECT_EQ(OS_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0640), -1);
    EXPECT_EQ(errno, EEXIST);

    const INT reopened = OS_open(path.c_str(), O_RDONLY, 0);
    CHAR bytes[4] = {};
    EXPECT_EQ(OS_read(reopened, bytes, 4), 3);
    EXPECT_STREQ(bytes, "abc");
    EXPECT_EQ(OS_close(reopened), 0);
}

TEST_F(FileServices, CloseReportsZeroAndThenAnUnknownDescriptor)
{
    write_file("");
    const INT descriptor = open_file();
    EXPECT_EQ(OS_close(descriptor), 0);
    errno = 0;
    EXPECT_EQ(OS_close(descriptor), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, DeleteRemovesAFile)
{
    write_file("content");
    EXPECT_EQ(OS_delete(path.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    errno = 0;
    EXPECT_EQ(OS_delete(path.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileServices, DeleteRemovesOnlyAnEmptyDirectory)
{
    const std::string directory = scratch.file("directory");
    std::filesystem::create_directories(directory + "/inner");
    errno = 0;
    EXPECT_EQ(OS_delete(directory.c_str()), -1);
    EXPECT_TRUE(errno == ENOTEMPTY || errno == EEXIST) << errno;
    EXPECT_EQ(OS_delete((directory + "/inner").c_str()), 0);
    EXPECT_EQ(OS_delete(directory.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST_F(FileServices, SeekMovesFromStartCurrentPositionAndEnd)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    EXPECT_EQ(OS_seek(descriptor, 4, 0), 4);
    EXPECT_EQ(OS_seek(descriptor, 3, 1), 7);
    EXPECT_EQ(OS_seek(descriptor, -2, 1), 5);
    EXPECT_EQ(OS_seek(descriptor, 0, 2), 10);
    EXPECT_EQ(OS_seek(descriptor, 5, 2), 15);
    EXPECT_EQ(OS_seek(descriptor, -1, 2), 9);
    CHAR byte = 0;
    EXPECT_EQ(OS_read(descriptor, &byte, 1), 1);
    EXPECT_EQ(byte, '9');
    OS_close(descriptor);
}

TEST_F(FileServices, SeekFailsWithThePlatformsErrnoAndKeepsThePosition)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    OS_seek(descriptor, 4, 0);
    errno = 0;
    EXPECT_EQ(OS_seek(descriptor, -5, 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(OS_seek(descriptor, 0, 99), -1);
    EXPECT_EQ(OS_seek(descriptor, 0, UINT32_MAX), -1);
    EXPECT_EQ(OS_seek(descriptor, 0, 1), 4);
    OS_close(descriptor);
    errno = 0;
    EXPECT_EQ(OS_seek(descriptor, 0, 0), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, SeekReturnsPositionsOf64Bits)
{
    constexpr LONG size = INT64_C(5) << 30;
    write_file("");
    ASSERT_EQ(truncate64(path.c_str(), size), 0);  // takes up no room
    const INT descriptor = open_file();
    EXPECT_EQ(OS_seek(descriptor, 0, 2), size);
    EXPECT_EQ(OS_seek(descriptor, -1, 1), size - 1);
    EXPECT_EQ(OS_seek(descriptor, INT32_MIN, 2), size - (INT64_C(1) << 31));
    EXPECT_EQ(OS_seek(descriptor, INT32_MAX, 1), size - 1);
    EXPECT_EQ(OS_seek(descriptor, INT32_MAX, 1), size - 1 + INT32_MAX);
    EXPECT_EQ(OS_seek(descriptor, INT32_MAX, 0), INT32_MAX);
    OS_close(descriptor);
}

TEST_F(FileServices, ReadAndWriteWorkBeyond4GiB)
{
    constexpr LONG position = INT64_C(5) << 30;
    write_file("");
    ASSERT_EQ(truncate64(path.c_str(), position), 0);
    const INT descriptor = open_file();
    ASSERT_EQ(OS_seek(descriptor, 0, 2), position);
    EXPECT_EQ(OS_write(descriptor, "far", 3), 3);
    EXPECT_EQ(file_facts(path).st_size, position + 3);
    EXPECT_EQ(OS_seek(descriptor, -3, 1), position);
    CHAR bytes[4] = {};
    EXPECT_EQ(OS_read(descriptor, bytes, 3), 3);
    EXPECT_STREQ(bytes, "far");
    OS_close(descriptor);
}

TEST_F(FileServices, ReadGivesTheBytesThenTheRestThenZeroAtTheEnd)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    CHAR bytes[16] = {};
    EXPECT_EQ(OS_read(descriptor, bytes, 4), 4);
    EXPECT_EQ(memcmp(bytes, "0123\0", 5), 0);
    EXPECT_EQ(OS_read(descriptor, bytes, 16), 6);
    EXPECT_EQ(memcmp(bytes, "456789\0", 7), 0);
    EXPECT_EQ(OS_read(descriptor, bytes, 16), 0);
    EXPECT_EQ(OS_read(descriptor, bytes, 0), 0);
    OS_close(descriptor);
}

TEST_F(FileServices, WriteStoresTheBytes)
{
    const INT descriptor = OS_create(path.c_str());
    EXPECT_EQ(OS_write(descriptor, "ab\0cd", 5), 5);
    EXPECT_EQ(OS_write(descriptor, "", 0), 0);
    EXPECT_EQ(OS_write(descriptor, "ef", 2), 2);
    OS_close(descriptor);
    EXPECT_EQ(file_content(), std::string("ab\0cdef", 7));
}

TEST_F(FileServices, ReadAndWriteFailWithThePlatformsErrno)
{
    CHAR byte = 0;
    errno = 0;
    EXPECT_EQ(OS_read(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(OS_write(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileServices, SizeChangeTruncatesAndExtendsWithZeroBytes)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    EXPECT_EQ(OS_size_change(descriptor, 4), 0);
    EXPECT_EQ(file_content(), "0123");
    EXPECT_EQ(OS_size_change(descriptor, 6), 0);
    EXPECT_EQ(file_content(), std::string("0123\0\0", 6));
    EXPECT_EQ(OS_size_change(descriptor, 0), 0);
    EXPECT_EQ(file_content(), "");
    EXPECT_EQ(OS_size_change(descriptor, INT32_MAX), 0);
    EXPECT_EQ(file_facts(path).st_size, INT32_MAX);
    OS_close(descriptor);
}

TEST_F(FileServices, SizeChangeFailsWithThePlatformsErrno)
{
    write_file("0123456789");
    const INT descriptor = open_file();
    errno = 0;
    EXPECT_EQ(OS_size_change(descriptor, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(file_facts(path).st_size, 10);
    OS_close(descriptor);
    errno = 0;
    EXPECT_EQ(OS_size_change(descriptor, 1), -1);
    EXPECT_EQ(errno, EBADF);
}
