// What the built library offers against attacks on its memory, as the binary utilities show it.

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/library_copy.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string readelf(const char *option)
{
    const child_result result =
        run_command({READELF_PROGRAM, "-W", option, loaded_library_path()}, {"LC_ALL=C"});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    return result.out;
}

using lines = std::vector<std::string>;

}  // namespace

TEST(Hardening, BindsEverythingAtLoadAndMakesTheTablesOfAddressesReadOnly)
{
    EXPECT_EQ(matches(readelf("-d"), "\\(FLAGS_1\\).*\\b(NOW)\\b"), lines{"NOW"});
    EXPECT_EQ(matches(readelf("-l"), "^ *(GNU_RELRO)").size(), 1U);
}

TEST(Hardening, StaysInTheProcessOnceItIsLoaded)
{
    EXPECT_EQ(matches(readelf("-d"), "\\(FLAGS_1\\).*\\b(NODELETE)\\b"), lines{"NODELETE"});
}

TEST(Hardening, HasNoSegmentThatIsWritableAndExecutable)
{
    EXPECT_EQ(matches(readelf("-l"), "^ *[A-Z_]+ .* (RWE|WE) +0x"), lines{});
}

TEST(Hardening, IsMarkedForProcessorsThatCheckBranchTargetsAndReturnAddresses)
{
    EXPECT_EQ(matches(readelf("-n"), "x86 feature: (IBT, SHSTK)"), lines{"IBT, SHSTK"});
}

TEST(Hardening, GuardsTheStackOfFunctionsWithBuffers)
{
    EXPECT_EQ(matches(readelf("--dyn-syms"), "UND (__stack_chk_fail)").size(), 1U);
}
