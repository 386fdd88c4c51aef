// The compilers and languages that the public headers promise to serve.
#pragma once

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

const std::string include_directory = std::string(SOURCE_DIRECTORY) + "/include";

// Each family's header, for C and C++. attributes_begin.h and attributes_end.h are theirs alone.
inline std::vector<std::string> public_headers()
{
    std::vector<std::string> headers;
    for (const auto &entry : std::filesystem::directory_iterator(include_directory + "/foundation")) {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() == ".h" && name.compare(0, 11, "attributes_") != 0)
            headers.push_back("foundation/" + name);
    }
    std::sort(headers.begin(), headers.end());
    return headers;
}

inline std::string include_all_headers()
{
    std::string text;
    for (const std::string &header : public_headers())
        text += "#include \"" + header + "\"\n";
    return text;
}

// A compiler's driver, and a language for "-x" with its standard.
struct dialect {
    std::string compiler, language, standard;
};

inline void PrintTo(const dialect &in, std::ostream *stream)
{
    *stream << in.compiler << " -x " << in.language << " -std=" << in.standard;
}

inline std::string dialect_name(const testing::TestParamInfo<dialect> &info)
{
    std::string name = info.param.compiler + "_" + info.param.standard;
    std::replace(name.begin(), name.end(), '+', 'p');
    return name;
}

class CompiledSnippets : public testing::TestWithParam<dialect> {
protected:
    scratch_directory scratch;

    // Not every compiler is installed everywhere, and an older one does not know the newest standards.
    void SetUp() override
    {
        if (!compile("int unit_is_not_empty;\n", {"-fsyntax-only"}).succeeded())
            GTEST_SKIP() << "there is no " << testing::PrintToString(GetParam());
    }

    child_result compile(const std::string &source, const std::vector<std::string> &options)
    {
        const std::string path = scratch.file("source.txt");
        std::ofstream(path) << source;
        std::vector<std::string> command_line = {
            GetParam().compiler, "-x",         GetParam().language, "-std=" + GetParam().standard, "-Wall",
            "-Wextra",           "-Wpedantic", "-Wundef",           "-I" + include_directory};
        command_line.insert(command_line.end(), options.begin(), options.end());
        command_line.push_back(path);
        return run_command(command_line);
    }

    void expect_compiles_without_warning(const std::string &source, const std::string &subject)
    {
        const child_result result = compile(source, {"-Werror", "-fsyntax-only"});
        EXPECT_TRUE(result.succeeded()) << subject << ": " << result.describe();
    }
};
