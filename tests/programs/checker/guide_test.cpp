// docs/guides/checker.md: its program, compiled and run as it says, gives what it shows.

#include "checker_run.h"

#include "support/files.h"

#include <stdlib.h>

#include <algorithm>

namespace {

std::string guide()
{
    return content_of(std::string(SOURCE_DIRECTORY) + "/docs/guides/checker.md");
}

// The block behind a mark, or behind the first line of a block that begins so.
std::string block_behind(const std::string &text, const std::string &mark)
{
    const size_t begin = text.find('\n', text.find("```", text.find(mark))) + 1;
    const size_t end = text.find("```\n", begin);
    EXPECT_NE(text.find(mark), std::string::npos) << mark;
    EXPECT_NE(end, std::string::npos) << mark;
    return text.substr(begin, end - begin);
}

// What the guide shows behind a command, up to the next one or the end of the block.
std::string shown_output(const std::string &command)
{
    const std::string text = guide();
    const size_t begin = text.find("$ " + command + "\n");
    EXPECT_NE(begin, std::string::npos) << command;
    const size_t output = text.find('\n', begin) + 1;
    const size_t end_of_block = text.find("```", output);
    const size_t next_command = text.find("\n$ ", output - 1);
    return text.substr(
        output, std::min(end_of_block, next_command == text.npos ? text.npos : next_command + 1) - output);
}

// Every run of at least so many of the characters behind a prefix, with the prefix, gives way to a word.
std::string with_word_for(std::string text, const std::string &prefix, const char *characters,
                          size_t at_least, const std::string &word)
{
    for (size_t at = text.find(prefix); at != text.npos; at = text.find(prefix, at + 1)) {
        const size_t begin = at + prefix.size();
        const size_t length = std::min(text.find_first_not_of(characters, begin), text.size()) - begin;
        if (length >= at_least)
            text.replace(at, prefix.size() + length, word);
    }
    return text;
}

// Processes, addresses and offsets are different ones in every run and with every compiler.
std::string without_numbers(const std::string &text)
{
    constexpr char DIGITS[] = "0123456789abcdef";
    return with_word_for(
        with_word_for(with_word_for(text, "==", DIGITS, 1, "process"), "+0x", DIGITS, 1, "+offset"), "0x",
        DIGITS, 10, "address");
}

// The names of small letters and "-" that stand between two texts.
std::vector<std::string> names_between(const std::string &text, const std::string &before,
                                       const std::string &behind)
{
    std::vector<std::string> names;
    for (size_t at = text.find(before); at != text.npos; at = text.find(before, at + 1)) {
        const size_t begin = at + before.size();
        const size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", begin);
        if (end != begin && end != text.npos && text.compare(end, behind.size(), behind) == 0)
            names.push_back(text.substr(begin, end - begin));
    }
    return names;
}

// As the manual page writes it.
std::string in_roff(const std::string &name)
{
    std::string written;
    for (const char each : name) {
        if (each == '-')
            written += '\\';
        written += each;
    }
    return written;
}

class CheckerGuide : public Checker {
protected:
    // A command line of the guide, in a folder with its files and its program.
    child_result run(const std::string &command)
    {
        const std::string folder = QV_CHECK;
        return run_command({"sh", "-c", "cd \"$0\" && " + command, path("")},
                           {"PATH=" + folder.substr(0, folder.rfind('/')) + ":" + getenv("PATH")});
    }

    void SetUp() override
    {
        Checker::SetUp();
        if (IsSkipped())
            return;
        write("titles.c", block_behind(guide(), "<!-- file: titles.c -->"));
        write("known", block_behind(guide(), "<!-- file: known -->"));
        const child_result built =
            run("\"" C_COMPILER "\" -g -o titles titles.c -I'" + std::string(SOURCE_DIRECTORY) +
                "/include' '" FOUNDATION_LIBRARY "' -Wl,-rpath,'" FOUNDATION_FOLDER "'");
        ASSERT_TRUE(built.succeeded()) << built.describe();
    }
};

}  // namespace

TEST_F(CheckerGuide, ShowsWhatTheCheckerTells)
{
    const child_result told = run("qv-check ./titles");
    EXPECT_TRUE(told.succeeded()) << told.describe();
    EXPECT_EQ(without_numbers(told.out + told.err), without_numbers(shown_output("qv-check ./titles")));
}

TEST_F(CheckerGuide, ShowsTheLinesThatTheJsonHas)
{
    const std::string command = "qv-check --json --output findings ./titles";
    EXPECT_EQ(run(command).out, shown_output(command));
    std::string table;
    for (const nlohmann::json &line : read_json_lines(content_of(path("findings"))))
        table += line.at("kind").get<std::string>() + "\t" +
                 (line.contains("place") ? line.at("place").at("line").dump() : "") + "\n";
    EXPECT_EQ(table, shown_output("jq --raw-output '[.kind, .place.line] | @tsv' findings"));
}

TEST_F(CheckerGuide, ShowsSuppressionsThatWork)
{
    const child_result run_quietly = run("qv-check --suppress=known ./titles");
    EXPECT_EQ(run_quietly.out + run_quietly.err, shown_output("qv-check --suppress=known ./titles"));
}

TEST(CheckerManual, AndGuideNameEveryKindAndOption)
{
    const std::string manual = content_of(std::string(SOURCE_DIRECTORY) + "/programs/checker/qv-check.1");
    const std::string names =
        content_of(std::string(SOURCE_DIRECTORY) + "/programs/checker/finding_texts.cpp");
    const std::string command = content_of(std::string(SOURCE_DIRECTORY) + "/programs/checker/qv_check.cpp");
    const std::vector<std::string> kinds = names_between(names, "\"", "\",");
    const std::vector<std::string> options = names_between(command, "\n  --", "");
    EXPECT_EQ(kinds.size(), 17u);
    EXPECT_EQ(options.size(), 8u);
    for (const std::string &kind : kinds) {
        EXPECT_NE(manual.find(".B " + in_roff(kind) + "\n"), std::string::npos) << kind;
        EXPECT_NE(guide().find("`" + kind + "`"), std::string::npos) << kind;
    }
    for (const std::string &option : options)
        EXPECT_NE(manual.find(std::string("\\-\\-").append(in_roff(option))), std::string::npos) << option;
}
