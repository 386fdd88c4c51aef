// docs/guides/debugging.md: its program hangs as it says, and gdb shows of it what the guide shows.

#include "gdb_fixture.h"
#include "standing_process.h"
#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"

#include <fstream>

namespace {

struct exchange {
    std::string command;
    std::string answer;
};

std::string guide()
{
    return content_of(std::string(SOURCE_DIRECTORY) + "/docs/guides/debugging.md");
}

// What stands between a line and the end of the block that it is in.
std::string block_behind(const std::string &line)
{
    const std::string text = guide();
    const size_t begin = text.find(line);
    EXPECT_NE(begin, std::string::npos) << "the guide has no " << line;
    if (begin == std::string::npos)
        return "";
    return text.substr(begin + line.size(), text.find("```\n", begin + line.size()) - begin - line.size());
}

std::vector<exchange> exchanges_with_gdb()
{
    constexpr char PROMPT[] = "(gdb) ";
    std::vector<exchange> exchanges;
    bool is_answer = false;
    for (const std::string &line : lines_of(guide())) {
        if (line.rfind(PROMPT, 0) == 0)
            exchanges.push_back({line.substr(sizeof PROMPT - 1), ""});
        else if (is_answer && line != "```")
            exchanges.back().answer += line + "\n";
        is_answer = line.rfind(PROMPT, 0) == 0 || (is_answer && line != "```");
    }
    return exchanges;
}

// Compile the guide's program in `folder`, as it says.
void build_program(const std::string &folder)
{
    std::ofstream(folder + "/stuck.c") << block_behind("<!-- file: stuck.c -->\n```c\n");
    const std::vector<std::string> shell_lines = lines_of(block_behind("```console\n$ "));
    ASSERT_FALSE(shell_lines.empty());
    const child_result built = run_command({"sh", "-c", "cd \"$0\" && " + shell_lines[0], folder},
                                           {"PKG_CONFIG_PATH=" + installed_prefix() + "/lib/pkgconfig"});
    ASSERT_TRUE(built.succeeded()) << built.describe();
}

// What differs from run to run, and between releases of the C library, replaced.
std::string comparable(const std::string &text)
{
    return replaced(replaced(without_addresses(text), "LWP [0-9]+", "LWP N"), "^#[0-9]+ +", "#N ");
}

}  // namespace

TEST(DebuggingGuide, ShowsWhatGdbShowsOfItsProgram)
{
    SKIP_WITHOUT_GDB();
    const scratch_directory scratch;
    build_program(scratch.path());
    const standing_process stuck({scratch.file("stuck")});
    ASSERT_TRUE(stuck.all_threads_wait(2));

    std::vector<std::string> commands = {"attach " + stuck.id()};
    const std::vector<exchange> shown = exchanges_with_gdb();
    for (const exchange &one : shown)
        commands.push_back(one.command);
    const gdb_answers answers = ask_gdb({scratch.file("stuck")}, commands);
    if (answers.to(commands[0]).find("ptrace:") != std::string::npos)
        GTEST_SKIP() << "gdb may not attach here: " << answers.to(commands[0]);
    EXPECT_FALSE(shown.empty());
    for (const exchange &one : shown)
        EXPECT_EQ(comparable(answers.to(one.command)), comparable(one.answer)) << one.command;
}
