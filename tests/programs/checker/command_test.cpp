// The command: what it passes to the program, and what the program notices of it.

#include "checker_run.h"

#include "support/files.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

TEST_F(Checker, SaysNothingOfAHostWithoutMistakesAndKeepsItsStatus)
{
    for (const std::string status : {"0", "7"}) {
        const child_result run = qv_check({CLEAN_HOST, status});
        EXPECT_TRUE(run.has_exited && std::to_string(run.status) == status) << run.describe();
        EXPECT_EQ(run.out + run.err, "");
    }
}

TEST_F(Checker, KeepsTheStatusOfAHostWithMistakes)
{
    const child_result plain = run_command({MISTAKEN_HOST, "leaks"});
    const child_result checked = qv_check({MISTAKEN_HOST, "leaks"});
    EXPECT_TRUE(checked.has_exited && checked.status == plain.status) << checked.describe();
    EXPECT_EQ(checked.out, plain.out);
}

TEST_F(Checker, EndsTheProcessAtTheFirstFindingWhenItIsFatal)
{
    const child_result run = qv_check({"--fatal", MISTAKEN_HOST, "wrong_tag"});
    EXPECT_FALSE(run.has_exited);
    EXPECT_EQ(run.status, SIGABRT);
    EXPECT_EQ(run.out, "") << "the host has gone on";
    EXPECT_NE(run.err.find("wrong-tag: "), std::string::npos) << run.err;
    EXPECT_TRUE(qv_check({"--fatal", CLEAN_HOST, "0"}).succeeded());
}

TEST_F(Checker, WritesToAFileThatIsEmptyWithoutAFinding)
{
    const std::string report = write("report", "of an earlier run");
    const child_result clean = qv_check({"--output", report, CLEAN_HOST, "0"});
    EXPECT_EQ(clean.err, "");
    EXPECT_EQ(content_of(report), "");
    const child_result mistaken = qv_check({"--output=" + report, MISTAKEN_HOST, "wrong_tag"});
    EXPECT_EQ(mistaken.err, "");
    EXPECT_NE(content_of(report).find("wrong-tag: "), std::string::npos) << content_of(report);
}

TEST_F(Checker, TellsLeaksWithTheirStacksWhenAskedTo)
{
    const child_result run = qv_check({"--stacks", "--json", MISTAKEN_HOST, "leaks_before_cleanup"});
    const json_lines lines = read_json_lines(run.err);
    ASSERT_EQ(lines.size(), 2u) << run.err;
    const nlohmann::json &stack = lines[0].at("stack");
    ASSERT_GE(stack.size(), 2u) << run.err;
    EXPECT_EQ(stack[0].at("function"), "leaks_before_cleanup");
    EXPECT_EQ(stack[1].at("function"), "main");
}

// ---- The environment

TEST_F(Checker, LeavesTheEnvironmentAsItWas)
{
    for (const std::string variable : {"LD_PRELOAD", "QV_CHECK_OPTIONS", "LD_LIBRARY_PATH"}) {
        const child_result plain = run_command({CLEAN_HOST, "0", variable});
        const child_result checked = qv_check({CLEAN_HOST, "0", variable});
        EXPECT_TRUE(checked.succeeded()) << checked.describe();
        EXPECT_EQ(checked.out, plain.out) << variable;
    }
}

TEST_F(Checker, StandsBehindWhatIsPreloadedAlready)
{
    const std::string other = "LD_PRELOAD=libm.so.6";
    const child_result clean = qv_check({CLEAN_HOST, "0", "LD_PRELOAD"}, {other});
    EXPECT_EQ(clean.out + clean.err, "libm.so.6\n");
    const child_result mistaken = qv_check({MISTAKEN_HOST, "wrong_tag"}, {other});
    EXPECT_NE(mistaken.err.find("wrong-tag: "), std::string::npos) << mistaken.err;
}

TEST_F(Checker, LooksAtTheProgramAloneUnlessItsChildrenAreWanted)
{
    const std::vector<std::string> shell = {"sh", "-c", "\"$0\" wrong_tag; :", MISTAKEN_HOST};
    EXPECT_EQ(qv_check(shell).err, "");
    std::vector<std::string> with_children = {"--trace-children"};
    with_children.insert(with_children.end(), shell.begin(), shell.end());
    EXPECT_NE(qv_check(with_children).err.find("wrong-tag: "), std::string::npos);
}

// ---- Places

TEST_F(Checker, FindsTheProgramInPath)
{
    const std::string folder = fs::path(MISTAKEN_HOST).parent_path();
    const std::string name = fs::path(MISTAKEN_HOST).filename();
    const child_result run = qv_check({name, "wrong_tag"}, {"PATH=" + folder + ":/usr/bin:/bin"});
    EXPECT_NE(run.err.find("wrong-tag: "), std::string::npos) << run.err;
}

TEST_F(Checker, TakesFoldersWithSpaces)
{
    const std::string folder = path("a folder");
    fs::create_directory(folder);
    fs::copy(QV_CHECK, folder);
    fs::copy(CHECKER_LIBRARY, folder);
    fs::copy(MISTAKEN_HOST, folder + "/the host");
    const std::string command = folder + "/" + fs::path(QV_CHECK).filename().string();
    const child_result run =
        run_command({command, "--output", folder + "/the report", folder + "/the host", "wrong_tag"});
    EXPECT_EQ(run.out + run.err, "done\n");
    EXPECT_NE(content_of(folder + "/the report").find("wrong-tag: "), std::string::npos);

    const child_result clean = run_command({command, CLEAN_HOST, "0", "LD_LIBRARY_PATH"});
    EXPECT_EQ(clean.out, run_command({CLEAN_HOST, "0", "LD_LIBRARY_PATH"}).out);
}

TEST_F(Checker, FindsItsLibraryWhereverItIsInstalled)
{
    const child_result installed =
        run_command({CMAKE_PROGRAM, "--install", BUILD_FOLDER, "--prefix", path("first")});
    ASSERT_TRUE(installed.succeeded()) << installed.describe();
    fs::rename(path("first"), path("second"));
    const std::string command = path("second/") + INSTALLED_COMMANDS + "/qv-check";
    const child_result run = run_command({command, MISTAKEN_HOST, "wrong_tag"});
    EXPECT_NE(run.err.find("wrong-tag: "), std::string::npos) << run.describe();
    EXPECT_TRUE(
        fs::exists(path("second/") + INSTALLED_LIBRARIES + "/QVfoundation17/libQVfoundation17-check.so"));
}

TEST_F(Checker, ExportsNothingButNamesOfTheLibraryAndTheHeap)
{
    const child_result symbols =
        run_command({NM_PROGRAM, "-D", "--defined-only", "--format=posix", CHECKER_LIBRARY});
    ASSERT_TRUE(symbols.succeeded()) << symbols.describe();
    std::vector<std::string> allowed = listed_exports();
    allowed.insert(allowed.end(), {"free", "realloc"});
    for (const std::string &line : lines_of(symbols.out)) {
        const std::string name = words_of(line).front();
        EXPECT_NE(std::find(allowed.begin(), allowed.end(), name), allowed.end()) << name;
    }
}

TEST_F(Checker, NeedsTheCLibraryAlone)
{
    const child_result dynamic = run_command({READELF_PROGRAM, "-d", "--wide", CHECKER_LIBRARY});
    ASSERT_TRUE(dynamic.succeeded()) << dynamic.describe();
    for (const std::string &line : lines_of(dynamic.out)) {
        if (line.find("(NEEDED)") == std::string::npos)
            continue;
        EXPECT_TRUE(line.find("[libc.so.6]") != std::string::npos ||
                    line.find("[libdl.so.2]") != std::string::npos)
            << line << ": a thread library would change the mode of hosts without one";
    }
}

// ---- Refusals

TEST_F(Checker, ExplainsItself)
{
    const child_result help = qv_check({"--help"});
    EXPECT_TRUE(help.succeeded());
    for (const char *option : {"--fatal", "--json", "--output", "--stacks", "--suppress", "--trace-children"})
        EXPECT_NE(help.out.find(option), std::string::npos) << option;
    EXPECT_EQ(help.err, "");
    EXPECT_TRUE(qv_check({"--version"}).succeeded());
}

TEST_F(Checker, TellsItsOwnFailuresByTheStatus)
{
    const std::string not_a_program = write("text", "no program");
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char *words;
    } failures[] = {
        {{}, 125, "a program is wanted"},
        {{"--unknown", CLEAN_HOST}, 125, "unknown"},
        {{"--suppress", path("nothing"), CLEAN_HOST}, 125, "nothing"},
        {{"--output", path("no/folder"), CLEAN_HOST}, 125, "no/folder"},
        {{not_a_program}, 126, "Permission denied"},
        {{path("nothing")}, 127, "No such file"},
    };
    for (const auto &each : failures) {
        const child_result run = qv_check(each.arguments);
        EXPECT_TRUE(run.has_exited && run.status == each.status) << run.describe();
        EXPECT_NE(run.err.find(each.words), std::string::npos) << run.err;
    }
}
