// A host that exports functions of its own under names that the library exports too. The library's calls of
// its own functions stay inside it, and the host's calls reach the host's.

#include "foundation/os.h"
#include "foundation/util.h"

#include "support/build_facts.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <string.h>

namespace {

int host_calls;

}  // namespace

extern "C" {

void MD5Init(ZT_MD5_CONTEXT *)
{
    ++host_calls;
}

void MD5Update(ZT_MD5_CONTEXT *, const void *, UINT)
{
    ++host_calls;
}

void MD5Final(ZT_MD5_CONTEXT *)
{
    ++host_calls;
}

ZT_BOOL readUUID(CHAR *, UINT)
{
    ++host_calls;
    return 0;
}

BYTE parseHexByteString(const CHAR *)
{
    ++host_calls;
    return 0;
}

}  // extern "C"

namespace {

class HostWithItsOwnNames : public testing::Test {
protected:
    void *library = dlopen(LIBRARY_FILE_NAME, RTLD_LAZY | RTLD_NOLOAD);

    void SetUp() override
    {
        ASSERT_NE(library, nullptr);
        host_calls = 0;
    }
    ~HostWithItsOwnNames() override { dlclose(library); }

    // The library's function, not the host's of the same name.
    template <typename Function> Function *in_library(const char *name, Function &)
    {
        return reinterpret_cast<Function *>(dlsym(library, name));
    }
};

const BYTE digest_of_abc[16] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};

}  // namespace

TEST_F(HostWithItsOwnNames, GetsRightDigestsFromTheLibrary)
{
    ZT_MD5_CONTEXT context;
    in_library("MD5Init", MD5Init)(&context);
    in_library("MD5Update", MD5Update)(&context, "abc", 3);
    in_library("MD5Final", MD5Final)(&context);
    EXPECT_EQ(memcmp(context.digest, digest_of_abc, 16), 0);
    EXPECT_EQ(host_calls, 0);
}

TEST_F(HostWithItsOwnNames, GetsGuidsFromTheLibrarysIdentifierSource)
{
    BYTE guid[16] = {};
    const BYTE nothing[16] = {};
    bool was_drawn = false;
    for (int i = 0; i < 10 && !was_drawn; ++i) {  // one may begin with a zero byte and so be all zero
        EXPECT_NE(OS_create_guid(guid), 0);
        was_drawn = memcmp(guid, nothing, 16) != 0;
    }
    EXPECT_TRUE(was_drawn);
    EXPECT_EQ(host_calls, 0);
}

// The loader searches from whoever calls it. Behind the library nobody exports this name; behind the host
// the library does.
TEST_F(HostWithItsOwnNames, HasTheLibraryNotItselfAsTheLoadersCaller)
{
    EXPECT_NE(dlsym(RTLD_NEXT, "MD5Init"), nullptr);
    EXPECT_EQ(OS_sys_sym_get(RTLD_NEXT, "MD5Init"), nullptr);
}

TEST_F(HostWithItsOwnNames, KeepsItsOwnFunctions)
{
    ZT_MD5_CONTEXT context;
    memset(&context, 0xA5, sizeof context);
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    MD5Final(&context);
    EXPECT_EQ(context.state[0], 0xA5A5A5A5u);
    EXPECT_EQ(readUUID(nullptr, 0), 0);
    EXPECT_EQ(host_calls, 4);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "MD5Init"), reinterpret_cast<void *>(&MD5Init));
}
