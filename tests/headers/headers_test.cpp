// The public headers: each alone in every language they promise, what they pull in, and that they declare
// every exported name.

#include "compilers.h"
#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"
#include "support/library_copy.h"
#include "support/scratch_directory.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace {

// c2x and c++2b are the names that compilers had for C23 and C++23 before these were published.
std::vector<dialect> dialects()
{
    std::vector<dialect> all;
    for (const char *compiler : {"gcc", "clang"}) {
        for (const char *standard : {"c99", "c11", "c17", "c2x"})
            all.push_back({compiler, "c", standard});
        for (const char *standard : {"c++11", "c++14", "c++17", "c++20", "c++2b"})
            all.push_back({compiler, "c++", standard});
    }
    return all;
}

class Headers : public CompiledSnippets {
protected:
    std::set<std::string> files_included_by(const std::string &source)
    {
        const child_result result = compile(source, {"-H", "-fsyntax-only"});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        const std::vector<std::string> files = matches(result.err, "^\\.+ (.*)$");
        EXPECT_FALSE(files.empty()) << result.describe();
        return {files.begin(), files.end()};
    }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Dialects, Headers, testing::ValuesIn(dialects()), dialect_name);

TEST_P(Headers, CompileAloneAndTwice)
{
    ASSERT_EQ(public_headers().size(), 7u);
    for (const std::string &header : public_headers()) {
        const std::string include = "#include \"" + header + "\"\n";
        expect_compiles_without_warning(include + include + "int unit_is_not_empty;\n", header);
    }
}

TEST_P(Headers, PullInNothingButTheFixedSizeIntegersAndEachOther)
{
    const std::set<std::string> allowed = files_included_by("#include <stddef.h>\n#include <stdint.h>\n");
    for (const std::string &file : files_included_by(include_all_headers())) {
        const bool is_own = file.compare(0, include_directory.size(), include_directory) == 0;
        EXPECT_TRUE(is_own || allowed.count(file) != 0) << file;
    }
}

TEST_P(Headers, LeaveNoMacroOfTheirOwnBehindButTheGuards)
{
    std::set<std::string> guards;
    for (const std::string &header : public_headers()) {
        std::string guard = "FOUNDATION_" + std::filesystem::path(header).stem().string() + "_H";
        std::transform(guard.begin(), guard.end(), guard.begin(),
                       [](char c) { return char(std::toupper(c)); });
        guards.insert(guard);
    }
    const child_result result = compile(include_all_headers(), {"-dM", "-E"});
    const std::vector<std::string> left = matches(result.out, "^#define (FOUNDATION_[A-Z_]*)");
    EXPECT_EQ(std::set<std::string>(left.begin(), left.end()), guards);
}

TEST_P(Headers, GiveAllFamiliesAndTheVersionInOne)
{
    const std::string source = R"(
#include "foundation/foundation.h"
#if QV_FOUNDATION_VERSION != 170000 || QV_FOUNDATION_VERSION_MAJOR != 17
#error version
#endif
ZT_DATE date;
ZT_MD5_CONTEXT digest;
LPVOID (*in_memory)(uint64_t, uint64_t, const CHAR *, INT) = ZR_memm_alloc;
ZT_ERRCOUNT (*in_array)(ZT_DT_ANY *) = ZR_array_ptr_delete;
INT (*in_os)(LPVOID) = OS_free;
)";
    expect_compiles_without_warning(source, "foundation.h");
}

TEST_P(Headers, NameTheCodesOfTheirStatusTables)
{
    // For the preprocessor and behind an operator as well.
    const std::string source = R"(
#include "foundation/array.h"
#include "foundation/os.h"
#include "foundation/util.h"
#if ZR_ERR_REFUSED != -1 || ZR_ERR_NO_MEMORY != -1000
#error array
#endif
#if ZR_ERR_MUTEX_ID != -4820
#error mutex identifiers
#endif
#if ZR_ERR_TARGET_UNIT != -2445
#error resolutions
#endif
ZT_ERRCOUNT difference = 0 -ZR_ERR_REFUSED;
)";
    expect_compiles_without_warning(source, "the codes");
}

namespace {

// Compile a C program with this build's compiler, link it with the library under test and run it.
child_result build_and_run_c_program(const std::string &source, const std::string &program)
{
    std::vector<std::string> command_line = {CXX_COMPILER, "-x",      "c",       "-std=c99",
                                             "-Wall",      "-Wextra", "-Werror", "-I" + include_directory,
                                             source,       "-x",      "none",    loaded_library_path(),
                                             "-o",         program};
    if (SANITIZERS[0] != '\0')
        command_line.push_back(SANITIZERS);
    const child_result built = run_command(command_line);
    if (!built.succeeded())
        return built;
    const std::string directory = std::filesystem::path(loaded_library_path()).parent_path().string();
    return run_command({program}, {"LD_LIBRARY_PATH=" + directory});
}

}  // namespace

TEST(CProgram, LinksAndRuns)
{
    const scratch_directory scratch;
    const std::string source = std::string(SOURCE_DIRECTORY) + "/tests/headers/c_host.c";
    const child_result result = build_and_run_c_program(source, scratch.file("host"));
    EXPECT_TRUE(result.succeeded()) << result.describe();
    EXPECT_EQ(result.out, "right\n");
}

TEST(CProgram, FindsEveryExportedNameDeclared)
{
    const scratch_directory scratch;
    {
        std::ofstream source(scratch.file("names.c"));
        source << include_all_headers() << "int main(void)\n{\n    return 0";
        for (const std::string &name : listed_exports())
            source << "\n        || (uintptr_t)&" << name << " == 1";
        source << ";\n}\n";
    }
    const child_result result = build_and_run_c_program(scratch.file("names.c"), scratch.file("names"));
    EXPECT_TRUE(result.succeeded()) << result.describe();
}
