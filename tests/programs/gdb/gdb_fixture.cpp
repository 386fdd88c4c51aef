#include "gdb_fixture.h"

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"
#include "support/nested_build.h"

#include <regex.h>

#include <filesystem>
#include <stdexcept>

namespace {

constexpr char MARK[] = "@@ ";  // a line that begins with it names the command whose answer follows

// Both streams as one, in the order of writing.
child_result run_gdb(const strings &arguments, const std::string &library_folder)
{
    strings command_line = {"sh", "-c", "exec \"$@\" 2>&1 </dev/null", "sh", "gdb", "-nx", "-q", "-batch"};
    command_line.insert(command_line.end(), arguments.begin(), arguments.end());
    return run_command(command_line, {"LD_LIBRARY_PATH=" + library_folder, "DEBUGINFOD_URLS=", "LC_ALL=C"});
}

std::string find_reason_without_gdb()
{
    if (IS_SANITIZED)
        return "a sanitizer's own use of memory and threads gets in gdb's way";
    const child_result python = run_gdb({"-ex", "python print('it has Python')"}, "");
    if (python.out.find("\nit has Python") == std::string::npos && python.out.find("it has Python") != 0)
        return "there is no gdb with Python: " + python.out;
    const child_result traced = run_gdb({"-ex", "run", "/bin/true"}, "");
    if (traced.out.find("exited normally") == std::string::npos)
        return "gdb cannot trace a process here: " + traced.out;
    return "";
}

void expect_succeeds(const strings &command_line)
{
    const child_result result = run_command(command_line);
    EXPECT_TRUE(result.succeeded()) << command_line[0] << ": " << result.describe();
}

// As packages do it: the symbols go to a file that the library names.
void split_debug_symbols(const std::string &library)
{
    const std::filesystem::path folder = std::filesystem::path(library).parent_path() / ".debug";
    std::filesystem::create_directories(folder);
    const std::string symbols = (folder / (std::string(LIBRARY_FILE_NAME) + ".debug")).string();
    expect_succeeds({OBJCOPY_PROGRAM, "--only-keep-debug", library, symbols});
    expect_succeeds({OBJCOPY_PROGRAM, "--strip-unneeded", "--remove-section=.comment", library});
    expect_succeeds({OBJCOPY_PROGRAM, "--add-gnu-debuglink=" + symbols, library});
}

class installation {
public:
    installation()
    {
        const std::string build = scratch_.file("build");
        configure_and_build(SOURCE_DIRECTORY, build,
                            {"-DBUILD_TESTING=OFF", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                             "-DCMAKE_INSTALL_LIBDIR=lib", "-DCMAKE_INSTALL_PREFIX=" + prefix_});
        const child_result installed = run_cmake({"--install", build});
        EXPECT_TRUE(installed.succeeded()) << installed.describe();
        const std::string library = prefix_ + "/lib/" + LIBRARY_FILE_NAME;
        std::filesystem::copy_file(library, with_symbols_);
        split_debug_symbols(library);
    }
    const std::string &prefix() const { return prefix_; }
    const std::string &with_symbols() const { return with_symbols_; }

private:
    scratch_directory scratch_;
    std::string prefix_ = std::filesystem::canonical(scratch_.path()).string() + "/prefix";
    std::string with_symbols_ = scratch_.file("with_symbols");
};

const installation &the_installation()
{
    static const installation only;
    return only;
}

}  // namespace

const std::string &reason_without_gdb()
{
    static const std::string reason = find_reason_without_gdb();
    return reason;
}

const std::string &installed_prefix()
{
    return the_installation().prefix();
}

std::string installed_extension()
{
    return installed_prefix() + "/share/gdb/auto-load" + installed_prefix() + "/lib/" + LIBRARY_FILE_NAME +
           "-gdb.py";
}

std::string library_with_symbols()
{
    return the_installation().with_symbols();
}

const std::string &gdb_answers::to(const std::string &command) const
{
    static const std::string nothing;
    const auto found = texts_.find(command);
    if (found != texts_.end())
        return found->second;
    ADD_FAILURE() << "gdb has not come to: " << command << "\n" << everything();
    return nothing;
}

strings gdb_answers::lines_to(const std::string &command) const
{
    return lines_of(to(command));
}

std::string gdb_answers::everything() const
{
    std::string all;
    for (const auto &[command, text] : texts_)
        all += "(gdb) " + command + "\n" + text;
    return all;
}

gdb_answers ask_gdb(const strings &arguments, const strings &commands, const std::string &library_folder)
{
    const std::string auto_load = installed_prefix() + "/share/gdb/auto-load";
    strings all = {"-iex", "set auto-load scripts-directory " + auto_load,
                   "-iex", "add-auto-load-safe-path " + auto_load,
                   "-ex",  "set width 0"};
    for (const std::string &command : commands)
        all.insert(all.end(), {"-ex", std::string("echo \\n") + MARK + command + "\\n", "-ex", command});
    all.insert(all.end(), {"-ex", std::string("echo \\n") + MARK + "(behind the last command)\\n"});
    all.insert(all.end(), arguments.begin(), arguments.end());

    gdb_answers answers;
    std::string command = "(before the first command)";
    for (const std::string &line : lines_of(run_gdb(all, library_folder).out)) {
        if (line.rfind(MARK, 0) == 0) {
            command = line.substr(sizeof MARK - 1);
            answers.add(command, "");
        } else if (!line.empty() &&
                   line.find("`.reg-xstate/") == std::string::npos) {  // registers new to gdb
            answers.add(command, line + "\n");
        }
    }
    return answers;
}

gdb_answers ask_gdb(const strings &arguments, const strings &commands)
{
    return ask_gdb(arguments, commands, installed_prefix() + "/lib");
}

strings host_arguments(const std::string &facts_file)
{
    return {"--args", GDB_HOST, facts_file, "break"};
}

strings host_commands(const strings &behind)
{
    strings commands = {"break everything_stands", "run"};
    commands.insert(commands.end(), behind.begin(), behind.end());
    return commands;
}

host_facts::host_facts(const std::string &facts_file)
{
    for (const std::string &line : lines_of(content_of(facts_file))) {
        const strings words = words_of(line);
        if (words.size() == 4 && words[0] == "block")
            blocks_[std::stoul(words[1])][std::stoul(words[2])] = std::stoul(words[3]);
        else
            numbers_[words.at(0)] = std::stoul(words.at(1));
    }
}

uint64_t host_facts::number(const std::string &name) const
{
    EXPECT_EQ(numbers_.count(name), 1U) << "the host has not said: " << name;
    return numbers_.count(name) == 1 ? numbers_.at(name) : 0;
}

const std::map<uint64_t, uint64_t> &host_facts::blocks_of(uint64_t tag) const
{
    static const std::map<uint64_t, uint64_t> none;
    EXPECT_EQ(blocks_.count(tag), 1U) << "the host has not said what it recorded under " << tag;
    return blocks_.count(tag) == 1 ? blocks_.at(tag) : none;
}

std::string as_hexadecimal(uint64_t number)
{
    char text[32];
    snprintf(text, sizeof text, "%#lx", number);
    return text;
}

std::string replaced(std::string text, const char *pattern, const std::string &replacement)
{
    regex_t expression;
    if (regcomp(&expression, pattern, REG_EXTENDED | REG_NEWLINE) != 0)
        throw std::runtime_error(pattern);
    regmatch_t match;
    size_t begin = 0;
    while (regexec(&expression, text.c_str() + begin, 1, &match, begin == 0 ? 0 : REG_NOTBOL) == 0) {
        begin += size_t(match.rm_so);
        text.replace(begin, size_t(match.rm_eo - match.rm_so), replacement);
        begin += replacement.size();
    }
    regfree(&expression);
    return text;
}

std::string without_addresses(const std::string &text)
{
    return replaced(text, "0x[0-9a-f]{9,}", "ADDRESS");
}
