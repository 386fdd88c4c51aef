// Each example prints what the comment at its end says, and the README shows lines that one of them has.

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

std::string source_of(const std::string &example)
{
    const std::string path = std::string(SOURCE_DIRECTORY) + "/examples/" + example + ".c";
    return content_of(std::filesystem::exists(path) ? path : path + "pp");
}

// The lines of the comment that ends a source: "/* Prints:", " * LINE"..., " */".
std::string promised_output(const std::string &source)
{
    constexpr char HEAD[] = "\n/* Prints:\n", LINE[] = " * ", TAIL[] = " */";
    const size_t begin = source.find(HEAD);
    EXPECT_NE(begin, std::string::npos) << "no such comment";
    std::string output, last;
    for (const std::string &line : lines_of(source.substr(begin + sizeof HEAD - 1))) {
        EXPECT_NE(last, TAIL) << "behind the comment there is: " << line;
        last = line;
        if (line == TAIL)
            continue;
        EXPECT_EQ(line.substr(0, sizeof LINE - 1), LINE);
        output += line.substr(sizeof LINE - 1) + "\n";
    }
    EXPECT_EQ(last, TAIL) << "the comment is not the end";
    return output;
}

// The first block of C in a text of Markdown.
std::string shown_code(const std::string &markdown)
{
    constexpr char HEAD[] = "\n```c\n", TAIL[] = "\n```\n";
    const size_t begin = markdown.find(HEAD);
    const size_t end = markdown.find(TAIL, begin + sizeof HEAD - 1);
    EXPECT_NE(begin, std::string::npos) << "no block of C";
    EXPECT_NE(end, std::string::npos) << "the block does not end";
    return begin < end && end != std::string::npos
               ? markdown.substr(begin + sizeof HEAD - 1, end - begin - sizeof HEAD + 2)
               : "";
}

class Example : public testing::TestWithParam<const char *> {};

}  // namespace

TEST_P(Example, PrintsWhatItsLastCommentSays)
{
    const std::string program = std::string(EXAMPLES_DIRECTORY) + "/" + GetParam();
    const child_result result =
        run_command({program, EXAMPLES_DIRECTORY});  // host looks there for its module
    EXPECT_TRUE(result.succeeded()) << result.describe();
    EXPECT_EQ(result.out, promised_output(source_of(GetParam())));
    EXPECT_EQ(result.err, "");
}

INSTANTIATE_TEST_SUITE_P(Examples, Example,
                         testing::Values("owners", "sorted_array", "work_queue", "host", "dates", "checksums",
                                         "scopes"),
                         [](const auto &example) { return std::string(example.param); });

TEST(ExampleHost, SaysSoWhenItsModuleIsNotThere)
{
    const child_result result = run_command({std::string(EXAMPLES_DIRECTORY) + "/host", "/nowhere"});
    EXPECT_TRUE(result.has_exited && result.status == 1) << result.describe();
    EXPECT_EQ(result.err, "host: there is no greeter that can be loaded in /nowhere; usage: host [FOLDER]\n");
}

TEST(Readme, ShowsLinesOfTheExampleOfOwners)
{
    const std::string code = shown_code(content_of(std::string(SOURCE_DIRECTORY) + "/README.md"));
    EXPECT_NE(code, "");
    std::string inside_main;
    for (const std::string &line : lines_of(code))
        inside_main += (line.empty() ? "" : "    ") + line + "\n";
    EXPECT_NE(source_of("owners").find(inside_main), std::string::npos) << code;
}
