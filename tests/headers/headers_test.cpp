// The public headers: each alone in every language they promise, what they pull in, and that they declare
// every exported name.

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"
#include "support/library_copy.h"
#include "support/scratch_directory.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace {

const std::string include_directory = std::string(SOURCE_DIRECTORY) + "/include";

std::vector<std::string> public_headers()
{
    std::vector<std::string> headers;
    for (const auto &entry : std::filesystem::directory_iterator(include_directory + "/foundation"))
        headers.push_back("foundation/" + entry.path().filename().string());
    std::sort(headers.begin(), headers.end());
    return headers;
}

bool is_present(const std::string &compiler)
{
    return run_command({compiler, "--version"}).succeeded();
}

// A compiler's driver, and a language for "-x" with its standard.
struct dialect {
    std::string compiler, language, standard;
};

void PrintTo(const dialect &in, std::ostream *stream)
{
    *stream << in.compiler << " -x " << in.language << " -std=" << in.standard;
}

std::vector<dialect> dialects()
{
    std::vector<dialect> all;
    for (const char *compiler : {"gcc", "clang"}) {
        for (const char *standard : {"c99", "c11", "c17"})
            all.push_back({compiler, "c", standard});
        for (const char *standard : {"c++11", "c++14", "c++17", "c++20"})
            all.push_back({compiler, "c++", standard});
    }
    return all;
}

class Headers : public testing::TestWithParam<dialect> {
protected:
    scratch_directory scratch;

    std::string write_source(const std::string &content)
    {
        const std::string path = scratch.file("source.txt");
        std::ofstream(path) << content;
        return path;
    }

    child_result compile(const std::string &source,
                         const std::vector<std::string> &options = {"-fsyntax-only"})
    {
        std::vector<std::string> command_line = {GetParam().compiler,
                                                 "-x",
                                                 GetParam().language,
                                                 "-std=" + GetParam().standard,
                                                 "-Wall",
                                                 "-Wextra",
                                                 "-Wpedantic",
                                                 "-Wundef",
                                                 "-Werror",
                                                 "-I" + include_directory};
        command_line.insert(command_line.end(), options.begin(), options.end());
        command_line.push_back(source);
        return run_command(command_line);
    }

    std::set<std::string> files_included_by(const std::string &source_text)
    {
        const child_result result = compile(write_source(source_text), {"-H", "-fsyntax-only"});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        const std::vector<std::string> files = matches(result.err, "^\\.+ (.*)$");
        EXPECT_FALSE(files.empty()) << result.describe();
        return {files.begin(), files.end()};
    }
};

std::string dialect_name(const testing::TestParamInfo<dialect> &info)
{
    std::string name = info.param.compiler + "_" + info.param.standard;
    std::replace(name.begin(), name.end(), '+', 'p');
    return name;
}

#define SKIP_IF_ABSENT(compiler)                                                                             \
    if (!is_present(compiler))                                                                               \
    GTEST_SKIP() << compiler << " is not installed"

}  // namespace

INSTANTIATE_TEST_SUITE_P(Dialects, Headers, testing::ValuesIn(dialects()), dialect_name);

TEST_P(Headers, CompileAloneAndTwice)
{
    SKIP_IF_ABSENT(GetParam().compiler);
    ASSERT_EQ(public_headers().size(), 6u);
    for (const std::string &header : public_headers()) {
        const std::string include = "#include \"" + header + "\"\n";
        const child_result result = compile(write_source(include + include + "int unit_is_not_empty;\n"));
        EXPECT_TRUE(result.succeeded()) << header << ": " << result.describe();
    }
}

TEST_P(Headers, PullInNothingButTheFixedSizeIntegersAndEachOther)
{
    SKIP_IF_ABSENT(GetParam().compiler);
    std::string all;
    for (const std::string &header : public_headers())
        all += "#include \"" + header + "\"\n";
    const std::set<std::string> allowed = files_included_by("#include <stddef.h>\n#include <stdint.h>\n");
    for (const std::string &file : files_included_by(all)) {
        const bool is_own = file.compare(0, include_directory.size(), include_directory) == 0;
        EXPECT_TRUE(is_own || allowed.count(file) != 0) << file;
    }
}

TEST_P(Headers, NameTheCodesOfTheirStatusTables)
{
    SKIP_IF_ABSENT(GetParam().compiler);
    // For the preprocessor and behind an operator as well.
    const child_result result = compile(write_source(R"(
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
)"));
    EXPECT_TRUE(result.succeeded()) << result.describe();
}

namespace {

// Compile a C program with this build's compiler, link it with the library under test and run it.
child_result build_and_run_c_program(const std::string &source, const std::string &program)
{
    std::vector<std::string> command_line = {CXX_COMPILER, "-x",      "c",       "-std=c99",
                                             "-Wall",      "-Wextra", "-Werror", "-I" + include_directory,
                                             source,       "-x",      "none",    loaded_library_path(),
                                             "-o",         program};
    if (IS_SANITIZED)
        command_line.push_back(std::string("-fsanitize=") + SANITIZERS);
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
        for (const std::string &header : public_headers())
            source << "#include \"" << header << "\"\n";
        source << "int main(void)\n{\n    return 0";
        for (const std::string &name : listed_exports())
            source << "\n        || (uintptr_t)&" << name << " == 1";
        source << ";\n}\n";
    }
    const child_result result = build_and_run_c_program(scratch.file("names.c"), scratch.file("names"));
    EXPECT_TRUE(result.succeeded()) << result.describe();
}
