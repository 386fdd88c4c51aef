// What the built library exports, needs and runs at load, as the binary utilities show it.

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"
#include "support/library_copy.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace {

using names = std::set<std::string>;

std::string output_of(const std::vector<std::string> &command_line)
{
    const child_result result = run_command(command_line, {"LC_ALL=C"});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    return result.out;
}

std::string readelf(const char *option)
{
    return output_of({READELF_PROGRAM, "-W", option, loaded_library_path()});
}

names name_set(const std::vector<std::string> &list)
{
    return {list.begin(), list.end()};
}

// Without the version behind "@".
names symbols(const char *nm_option)
{
    const std::string listing = output_of({NM_PROGRAM, "-D", nm_option, loaded_library_path()});
    return name_set(matches(listing, "([^ @]+)(@.*)?$"));
}

// True of a library that was built on a C library older than 2.34, whose dynamic loading is a library of its
// own. Such a binary runs on newer systems too, and says what it needs by the version of its symbols.
bool takes_dlopen_from_libdl()
{
    return matches(readelf("--dyn-syms"), " (dlopen)@GLIBC_2\\.2\\.5").size() == 1;
}

#define SKIP_IF_SANITIZED(reason)                                                                            \
    if (IS_SANITIZED)                                                                                        \
    GTEST_SKIP() << reason

}  // namespace

TEST(Binary, IsTheLibraryThatTheTestsAreLinkedWith)
{
    EXPECT_EQ(std::filesystem::path(loaded_library_path()).filename(), LIBRARY_FILE_NAME);
}

TEST(Binary, ExportsExactlyTheListedNames)
{
    EXPECT_EQ(symbols("--defined-only"), name_set(listed_exports()));
}

TEST(Binary, ExportListIsSortedWithoutDuplicates)
{
    const std::vector<std::string> lines = listed_exports();
    EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end()));
    EXPECT_EQ(name_set(lines).size(), lines.size());
}

TEST(Binary, LeavesNoThreadFunctionToTheLinker)
{
    for (const std::string &name : symbols("--undefined-only"))
        EXPECT_NE(name.compare(0, 8, "pthread_"), 0) << name;
}

TEST(Binary, NeedsNothingOfTheCxxRunTimeLibrary)
{
    SKIP_IF_SANITIZED("the sanitizers' own run-time library is written in C++");
    for (const std::string &name : symbols("--undefined-only")) {
        EXPECT_NE(name.compare(0, 2, "_Z"), 0) << name;
        EXPECT_NE(name.compare(0, 5, "__cxa"), 0) << name;
        EXPECT_NE(name.compare(0, 5, "__gxx"), 0) << name;
    }
}

TEST(Binary, ReadsNoEnvironment)
{
    SKIP_IF_SANITIZED("the run-time library of coverage asks it where to put its files");
    const names undefined = symbols("--undefined-only");
    for (const char *name : {"getenv", "secure_getenv", "environ", "__environ"})
        EXPECT_EQ(undefined.count(name), 0u) << name;
}

TEST(Binary, TakesPowersFromPow)
{
    const names undefined = symbols("--undefined-only");
    EXPECT_EQ(undefined.count("pow"), 1u);
    for (const char *name : {"exp10", "pow10", "exp", "exp2", "__pow_finite", "__exp10_finite"})
        EXPECT_EQ(undefined.count(name), 0u) << name;
}

// A product rounded only together with a sum has other last digits. The flags of the user may ask for that.
TEST(Binary, RoundsEachOperationOnItsOwn)
{
    const std::string listing = output_of({OBJDUMP_PROGRAM, "-d", loaded_library_path()});
    EXPECT_NE(listing.find("mulsd"), std::string::npos) << "the arithmetic is not where it was looked for";
    for (const char *fused : {"vfmadd", "vfmsub", "vfnmadd", "vfnmsub"})
        EXPECT_EQ(listing.find(fused), std::string::npos) << fused;
}

TEST(Binary, FormatsThroughVsprintfItself)
{
    const names undefined = symbols("--undefined-only");
    EXPECT_EQ(undefined.count("vsprintf"), 1u);
    EXPECT_EQ(undefined.count("__vsprintf_chk"), 0u);
}

TEST(Binary, NeedsOnlyTheCAndMathLibraries)
{
    SKIP_IF_SANITIZED("the sanitizers add their own libraries");
    names expected = {"libm.so.6", "libc.so.6"};
    if (takes_dlopen_from_libdl())
        expected.insert("libdl.so.2");
    EXPECT_EQ(name_set(matches(readelf("-d"), "\\(NEEDED\\).*\\[(.*)\\]")), expected);
}

TEST(Binary, CarriesItsNameAndNoSearchPath)
{
    const std::string dynamic = readelf("-d");
    EXPECT_EQ(matches(dynamic, "\\(SONAME\\).*\\[(.*)\\]"), std::vector<std::string>{LIBRARY_FILE_NAME});
    EXPECT_TRUE(matches(dynamic, "\\((RPATH|RUNPATH)\\)").empty());
}

TEST(Binary, RunsNothingAtLoadAndUnload)
{
    SKIP_IF_SANITIZED("the sanitizers register the library's data at load");
    EXPECT_TRUE(matches(readelf("-d"), "\\((INIT|FINI|INIT_ARRAY|FINI_ARRAY|PREINIT_ARRAY)\\)").empty());
    EXPECT_TRUE(matches(readelf("-S"), " \\.(init|fini|init_array|fini_array|ctors|dtors)[ .]").empty());
}

TEST(Binary, HasNoRelocationsInItsCode)
{
    EXPECT_TRUE(matches(readelf("-d"), "(TEXTREL)").empty());
}

TEST(Binary, HasNoExecutableStack)
{
    const std::vector<std::string> flags = matches(readelf("-l"), "GNU_STACK.* ([RWE]+) ");
    ASSERT_EQ(flags.size(), 1u);
    EXPECT_EQ(flags[0], "RW");
}

TEST(Binary, RefersToNoneOfItsExportsThroughTheDynamicSymbolButDebugOutput)
{
    const names exported = name_set(listed_exports());
    names referred;
    for (const std::string &name : matches(readelf("-r"), "R_X86_64_[A-Z0-9_]+ +[0-9a-f]+ +([^ @]+)"))
        if (exported.count(name) != 0)
            referred.insert(name);
    EXPECT_EQ(referred, names{"OS_debug_output"});
}
