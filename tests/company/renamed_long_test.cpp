// A unit whose LONG is the 32-bit one of other headers, and the library's under another name.

#include <stdint.h>

typedef int32_t LONG;

#define LONG foundation_LONG
#include "foundation/os.h"
#include "foundation/util.h"
#undef LONG

#include <gtest/gtest.h>
#include <unistd.h>

static_assert(sizeof(LONG) == 4 && sizeof(foundation_LONG) == 8);

TEST(RenamedLong, LeavesTheLibrarysCallsAsTheyAre)
{
    const foundation_LONG pixels_per_metre = INT64_C(1) << 40;
    EXPECT_EQ(iQV_convert_PPM_to_DPI(pixels_per_metre), UINT64_C(27927595346));  // 2^40 * 0.0254 + 0.5
    EXPECT_EQ(OS_process_id_get(), getpid());
}
