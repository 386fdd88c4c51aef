#include "host_targets.h"

#include "standing_process.h"
#include "support/child_process.h"
#include "support/files.h"

#include <signal.h>

#include <filesystem>

namespace {

strings joined(strings first, const strings &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

gdb_answers look_at_core(const std::string &core, const strings &commands)
{
    return ask_gdb({GDB_HOST, core}, commands);
}

look look_at_started(const std::string &facts_file, const strings &commands)
{
    return {"", ask_gdb(host_arguments(facts_file), host_commands(commands)), nullptr};
}

look look_at_attached(const std::string &facts_file, const strings &commands)
{
    const standing_process host({GDB_HOST, facts_file, "wait"});
    EXPECT_TRUE(host.has_written()) << "the host has ended";
    const strings attach = {"attach " + host.id()};
    look seen = {"", ask_gdb({GDB_HOST}, joined(attach, commands)), nullptr};
    if (seen.answers.to(attach[0]).find("ptrace:") != std::string::npos)
        seen.reason_to_skip = "gdb may not attach here: " + seen.answers.to(attach[0]);
    return seen;
}

look look_at_core_of_gdb(const std::string &folder, const std::string &facts_file, const strings &commands)
{
    const std::string core = folder + "/core_of_gdb";
    const gdb_answers saved = ask_gdb(host_arguments(facts_file), host_commands({"gcore " + core}));
    EXPECT_TRUE(std::filesystem::exists(core)) << saved.everything();
    return {"", look_at_core(core, commands), nullptr};
}

look look_at_core_of_kernel(const std::string &folder, const std::string &facts_file, const strings &commands)
{
    const child_result ended =
        run_command({"sh", "-c", "cd \"$0\" && exec \"$@\"", folder, GDB_HOST, facts_file, "abort"},
                    {"LD_LIBRARY_PATH=" + installed_prefix() + "/lib"});
    EXPECT_TRUE(!ended.has_exited && ended.status == SIGABRT) << ended.describe();
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().filename().string().rfind("core", 0) == 0)
            return {"", look_at_core(entry.path().string(), commands), nullptr};
    return {"no core is left in the folder of the process; it goes to: " +
                content_of("/proc/sys/kernel/core_pattern"),
            {},
            nullptr};
}

look look_anew(target what, const strings &commands)
{
    const scratch_directory scratch;
    const std::string facts_file = scratch.file("facts");
    look seen;
    switch (what) {
    case target::STARTED:
        seen = look_at_started(facts_file, commands);
        break;
    case target::ATTACHED:
        seen = look_at_attached(facts_file, commands);
        break;
    case target::CORE_OF_GDB:
        seen = look_at_core_of_gdb(scratch.path(), facts_file, commands);
        break;
    case target::CORE_OF_KERNEL:
        seen = look_at_core_of_kernel(scratch.path(), facts_file, commands);
        break;
    }
    seen.facts = std::make_unique<host_facts>(facts_file);
    return seen;
}

}  // namespace

const look &look_at(target what, const strings &commands)
{
    static std::map<target, look> looks;
    if (looks.count(what) == 0)
        looks[what] = look_anew(what, commands);
    return looks[what];
}
