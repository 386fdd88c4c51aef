// Path joining and the formatting of its text: where there is none, and what becomes of one that fails.

#include "foundation/os.h"

#include "os/output_buffer.h"
#include "support/platform_trace.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <stdarg.h>
#include <string.h>

#include <string>

namespace {

const std::string directory(50, 'd');
const std::string name(50, 'n');
constexpr size_t SCRATCH_BYTES = 50 + 50 + 2;

// Leave '!' in the memory that the next allocation of the scratch text's size is likely to get.
void soil_scratch_memory()
{
    LPVOID block = OS_alloc(SCRATCH_BYTES);
    memset(block, '!', SCRATCH_BYTES);
    OS_free(block);
}

// What stands in a buffer of zero bytes after a joining whose formatting writes so many bytes and fails.
std::string joined_after_failure(size_t bytes_written)
{
    std::string output(200, '\0');
    replaced_call replaced(vsprintf_call, [=](char *destination, const char *, va_list) {
        memset(destination, 'd', bytes_written);
        errno = EOVERFLOW;
        return -1;
    });
    soil_scratch_memory();
    OS_sys_path_concat(directory.c_str(), name.c_str(), output.data(), 150);
    return output;
}

}  // namespace

TEST(PathFormatting, IsNotNeededForAnEmptyDirectory)
{
    output_buffer output(12);
    platform_trace trace;
    errno = SENTINEL_ERRNO;
    EXPECT_EQ(OS_sys_path_concat("", "50%n", output.text(), 12), 4);
    EXPECT_EQ(output.bytes(), std::string("50%n") + '\0' + untouched(7));
    EXPECT_EQ(trace.calls(), steps{}) << "the name was formatted instead of copied";
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

TEST(PathFormatting, ThatFailsCannotSpoilANameWithoutADirectory)
{
    output_buffer output(12);
    replaced_call replaced(vsprintf_call, [](char *, const char *, va_list) { return -1; });
    EXPECT_EQ(OS_sys_path_concat("", "x.so", output.text(), 12), 4);
    EXPECT_EQ(output.bytes(), std::string("x.so") + '\0' + untouched(7));
}

TEST(PathFormatting, ThatFailsCopiesNothingThatWasNeverWritten)
{
    const std::string output = joined_after_failure(0);
    EXPECT_EQ(output.find_first_not_of('\0'), std::string::npos) << "output: " << output.c_str();
}

TEST(PathFormatting, ThatFailsHalfWayCopiesAtMostWhatWasWritten)
{
    const std::string output = joined_after_failure(30);
    EXPECT_EQ(output.find_first_not_of(std::string("d\0", 2)), std::string::npos)
        << "output: " << output.c_str();
}
