// A host that uses libmd beside the library. Built twice: with libmd in front of the library on the link
// line (LIBMD_IS_FIRST) and behind it. The library's results are right either way. Whoever is first has the
// host's own calls, and the calls that libmd makes of its own functions: such a host links libmd first.

#include "binary/libmd_host.h"
#include "foundation/memory.h"
#include "foundation/util.h"
#include "support/build_facts.h"
#include "support/child_process.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <string.h>
#include <unistd.h>

#if LIBMD_IS_FIRST
#define LibmdHost HostWithLibmdInFront
#else
#define LibmdHost HostWithLibmdBehind
#endif

namespace {

const libmd_digest digest_of_abc = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                    0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};

template <typename Function> Function in(void *library, const char *name)
{
    return reinterpret_cast<Function>(dlsym(library, name));
}

}  // namespace

TEST(LibmdHost, IsLinkedInThatOrder)
{
    ZR_mem_init();  // without a use of it the linker may leave the library out
    const std::string this_program = "/proc/" + std::to_string(getpid()) + "/exe";
    const std::string needed = run_command({READELF_PROGRAM, "-dW", this_program}).out;
    const size_t libmd = needed.find("[libmd.so");
    const size_t library = needed.find(std::string("[") + LIBRARY_FILE_NAME);
    ASSERT_NE(libmd, std::string::npos) << needed;
    ASSERT_NE(library, std::string::npos) << needed;
    EXPECT_EQ(libmd < library, LIBMD_IS_FIRST != 0);
}

TEST(LibmdHost, GetsRightDigestsFromTheLibrary)
{
    void *library = dlopen(LIBRARY_FILE_NAME, RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    ZT_MD5_CONTEXT context;
    in<decltype(&MD5Init)>(library, "MD5Init")(&context);
    in<decltype(&MD5Update)>(library, "MD5Update")(&context, "abc", 3);
    in<decltype(&MD5Final)>(library, "MD5Final")(&context);
    EXPECT_EQ(memcmp(context.digest, digest_of_abc.data(), 16), 0);
    dlclose(library);
}

#if LIBMD_IS_FIRST
TEST(LibmdHost, GetsRightDigestsFromLibmd)
{
    EXPECT_EQ(digest_by_libmd("abc"), digest_of_abc);
}

TEST(LibmdHost, KeepsLibmdsFunctionsForItsOwnCalls)
{
    EXPECT_EQ(digest_by_bound_functions("abc"), digest_of_abc);
}
#endif
