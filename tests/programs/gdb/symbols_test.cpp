// How the commands come into gdb, and what they say where the library has no symbols, is not loaded, or is in
// emulated mode.

#include "gdb_fixture.h"
#include "support/build_facts.h"
#include "support/child_process.h"

#include <filesystem>

namespace {

class GdbExtension : public testing::Test {
protected:
    void SetUp() override { SKIP_WITHOUT_GDB(); }

    // The installed library as it was built, less what objcopy is told to take away, in a folder where gdb
    // finds neither symbols nor extension by itself.
    std::string library_folder_by(const std::string &objcopy_option) const
    {
        const std::string folder = scratch_.file("lib");
        std::filesystem::create_directory(folder);
        const child_result result = run_command(
            {OBJCOPY_PROGRAM, objcopy_option, library_with_symbols(), folder + "/" + LIBRARY_FILE_NAME});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        return folder;
    }

    gdb_answers ask_of_host(const strings &commands, const std::string &library_folder) const
    {
        return ask_gdb(host_arguments(scratch_.file("facts")), host_commands(commands), library_folder);
    }

    static std::string source_extension() { return "source " + installed_extension(); }

private:
    scratch_directory scratch_;
};

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST_F(GdbExtension, IsLoadedWithTheLibrary)
{
    const gdb_answers answers =
        ask_of_host({"info auto-load python-scripts QVfoundation"}, installed_prefix() + "/lib");
    const std::string &scripts = answers.to("info auto-load python-scripts QVfoundation");
    EXPECT_TRUE(contains(scripts, "Yes")) << answers.everything();
    EXPECT_TRUE(contains(scripts, installed_extension())) << answers.everything();
}

TEST_F(GdbExtension, LeavesNoCompiledFilesBehind)
{
    ask_of_host({"memm"}, installed_prefix() + "/lib");
    for (const auto &entry : std::filesystem::recursive_directory_iterator(installed_prefix() + "/share/gdb"))
        EXPECT_TRUE(entry.is_directory() || entry.path().extension() == ".py") << entry.path();
}

TEST_F(GdbExtension, HelpsWithItself)
{
    const gdb_answers answers = ask_of_host({"help memm"}, installed_prefix() + "/lib");
    for (const char *part : {"memm TAG     the blocks of one tag", "memm array -- ", "memm check -- ",
                             "memm event -- ", "memm find -- ", "memm guid -- ", "memm section -- "})
        EXPECT_TRUE(contains(answers.to("help memm"), part)) << part << "\n" << answers.to("help memm");
}

TEST_F(GdbExtension, WithoutSymbolsSaysWhatToInstall)
{
    const std::string folder = library_folder_by("--strip-unneeded");
    const gdb_answers answers =
        ask_of_host({source_extension(), "memm", "memm check", "memm event unset_event"}, folder);
    for (const char *command : {"memm", "memm check", "memm event unset_event"})
        EXPECT_EQ(answers.to(command),
                  folder + "/" + LIBRARY_FILE_NAME +
                      " has no debug symbols here. Install the package libqvfoundation17-dbgsym of the same "
                      "version, or build the library with -DCMAKE_BUILD_TYPE=RelWithDebInfo.\n");
}

TEST_F(GdbExtension, MakesDoWithASymbolTableButForTypes)
{
    const gdb_answers answers =
        ask_of_host({source_extension(), "memm check", "memm event set_event", "memm array numbers",
                     "output numbers", "output $qv_array(numbers)"},
                    library_folder_by("--strip-debug"));
    EXPECT_EQ(answers.to("memm check"), "5 tags, 37 blocks of 49,372 bytes: nothing amiss\n");
    EXPECT_TRUE(contains(answers.to("memm event set_event"), "signalled (7)")) << answers.everything();
    EXPECT_TRUE(contains(answers.to("memm array numbers"), "  [4] 0x50\n")) << answers.everything();
    EXPECT_TRUE(contains(answers.to("output numbers"), "(array of 5 elements in 8 slots"))
        << answers.everything();
    EXPECT_TRUE(contains(answers.to("output $qv_array(numbers)"), "-dbgsym")) << answers.everything();
}

TEST_F(GdbExtension, SaysSoWhenThereIsNothingToLookAt)
{
    const gdb_answers answers = ask_gdb({GDB_HOST}, {source_extension(), "memm", "memm find 5"});
    for (const char *command : {"memm", "memm find 5"})
        EXPECT_EQ(answers.to(command), "There is no process and no core to look at.\n");
}

TEST_F(GdbExtension, SaysSoWhenTheLibraryIsNotLoaded)
{
    const gdb_answers answers = ask_gdb({"/bin/true"}, {source_extension(), "starti", "memm"});
    EXPECT_EQ(answers.to("memm"), std::string(LIBRARY_FILE_NAME) + " is not loaded (yet).\n");
}

TEST_F(GdbExtension, ShowsTheFlagsOfEmulatedMode)
{
    const gdb_answers answers =
        ask_of_host({"set var 'osunix_threads.cpp'::g_UXpthreads_funs.supported = 0",
                     "memm section emulated_section", "memm event emulated_event", "memm section junk"},
                    installed_prefix() + "/lib");
    EXPECT_EQ(without_addresses(answers.to("memm section emulated_section")),
              "ADDRESS: section or mutex identifier, emulated mode\n  state  taken\n")
        << answers.everything();
    EXPECT_EQ(without_addresses(answers.to("memm event emulated_event")),
              "ADDRESS: event, emulated mode\n  state  signalled\n");
    EXPECT_EQ(without_addresses(answers.to("memm section junk")),
              "ADDRESS: section or mutex identifier, emulated mode\n  state  neither free nor taken\n");
}

// The listener is the fourth thread that the host has.
TEST_F(GdbExtension, PrintsTheRecordOfAnEventInTheLibrarysOwnFrames)
{
    const gdb_answers answers = ask_of_host(
        {"thread 4", "frame function OS_wait_for_event_th", "output *(event_record *)unset_event"},
        installed_prefix() + "/lib");
    EXPECT_EQ(without_addresses(answers.to("output *(event_record *)unset_event")),
              "event, not signalled, threaded mode; `memm event ADDRESS` shows who waits\n")
        << answers.everything();
}

TEST_F(GdbExtension, TakesAVariableNamedLikeASubcommandInBrackets)
{
    const gdb_answers answers =
        ask_of_host({"up", "memm event", "memm (event)"}, installed_prefix() + "/lib");
    EXPECT_EQ(answers.to("memm event"), "Which one? Give an expression: memm event HANDLE.\n");
    EXPECT_EQ(answers.to("memm (event)"), "tag 0x3 has no record\n");
}

TEST_F(GdbExtension, AsksForAnExpression)
{
    const gdb_answers answers = ask_of_host({"memm find", "memm nowhere"}, installed_prefix() + "/lib");
    EXPECT_EQ(answers.to("memm find"), "Which one? Give an expression: memm find ADDRESS.\n");
    EXPECT_EQ(answers.to("memm nowhere"), "No symbol \"nowhere\" in current context.\n");
}
