#include "failures/call_sites.h"

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <string.h>

#include <algorithm>
#include <utility>

namespace {

std::string scenario_name;
uintptr_t outermost_frame;
std::map<uint64_t, std::set<std::string>> marked;

// What the platform offers without a way to fail.
const std::set<std::string> harmless = {
    "free",   "memcpy", "memmove", "memset", "memcmp",   "strlen",        "strnlen",          "strncpy",
    "strtol", "pow",    "tzset",   "getpid", "difftime", "bound::self()", "__stack_chk_fail",
};

// Called by its address, as comparators are, too; only namespace bound calls what can fail.
constexpr char THREAD_FUNCTION[] = "a thread function";
constexpr char COMPARATOR[] = "a comparator";

[[maybe_unused]] bool is_library_or_copy(const char *path)
{
    const char *slash = strrchr(path, '/');
    const char *name = slash != nullptr ? slash + 1 : path;
    return strcmp(name, LIBRARY_FILE_NAME) == 0 || strcmp(name, "copy.so") == 0;
}

}  // namespace

void begin_scenario(const std::string &name, const void *frame)
{
    scenario_name = name;
    outermost_frame = reinterpret_cast<uintptr_t>(frame);
}

void mark_call_sites()
{
#ifdef CALLS_LEAVE_FRAMES
    struct frame {
        const frame *caller;
        void *return_address;
    };
    const auto *current = static_cast<const frame *>(__builtin_frame_address(0));
    const frame *callee = nullptr;
    // The C library's own functions have no frames: behind one of them the chain may end early, or anywhere.
    while (current > callee && reinterpret_cast<uintptr_t>(current) < outermost_frame) {
        Dl_info facts = {};
        if (dladdr(current->return_address, &facts) != 0 && is_library_or_copy(facts.dli_fname)) {
            const auto base = reinterpret_cast<uintptr_t>(facts.dli_fbase);
            marked[reinterpret_cast<uintptr_t>(current->return_address) - base].insert(scenario_name);
        }
        callee = std::exchange(current, current->caller);
    }
#endif
}

const std::map<uint64_t, std::set<std::string>> &marked_call_sites()
{
    return marked;
}

namespace {

// What stands between the first "<" and the last ">", or nothing.
std::string in_brackets(const std::string &text)
{
    const size_t first = text.find('<');
    const size_t last = text.rfind('>');
    return first < last && last != std::string::npos ? text.substr(first + 1, last - first - 1) : "";
}

// "1139 <name>:" begins a function; "113d:\tcall   1040 <name>" or "113d:\tcall   *%rdx" calls.
std::vector<call_site> every_call_site(const std::string &library)
{
    const child_result listing =
        run_command({OBJDUMP_PROGRAM, "--disassemble", "--demangle", "--no-show-raw-insn", library});
    EXPECT_TRUE(listing.succeeded()) << listing.describe();

    std::vector<call_site> sites;
    std::string function;
    bool follows_call = false;
    for (const std::string &line : lines_of(listing.out)) {
        const size_t instruction = line.find(":\t");
        if (instruction == std::string::npos) {
            if (!in_brackets(line).empty())
                function = in_brackets(line);
            continue;
        }
        if (follows_call)
            sites.back().returns_to = std::stoull(line.substr(0, instruction), nullptr, 16);
        const std::string text = line.substr(instruction + 2);
        follows_call = text.rfind("call", 0) == 0 || text.rfind("notrack call", 0) == 0;
        if (!follows_call)
            continue;
        std::string callee = in_brackets(text);
        if (callee.empty())
            callee = function.rfind("bound::", 0) == 0 ? THREAD_FUNCTION : COMPARATOR;
        sites.push_back({function, callee, 0});
    }
    return sites;
}

bool is_of_platform(const std::string &callee)
{
    static const std::string linkage = "@plt";
    return callee.size() > linkage.size() &&
           callee.compare(callee.size() - linkage.size(), linkage.size(), linkage) == 0;
}

}  // namespace

std::vector<call_site> call_sites_that_can_fail(const std::string &library,
                                                const std::set<std::string> &failing)
{
    std::vector<call_site> all = every_call_site(library);
    std::set<std::string> can_fail = failing;
    can_fail.insert(THREAD_FUNCTION);
    const std::vector<std::string> exports = listed_exports();
    for (call_site &site : all) {
        if (!is_of_platform(site.callee))
            continue;
        site.callee.resize(site.callee.size() - strlen("@plt"));
        const bool is_known = can_fail.count(site.callee) != 0 || harmless.count(site.callee) != 0 ||
                              std::find(exports.begin(), exports.end(), site.callee) != exports.end();
        EXPECT_TRUE(is_known) << site.function << " calls " << site.callee << ": can that fail?";
    }
    for (bool has_grown = true; has_grown;) {
        has_grown = false;
        for (const call_site &site : all)
            if (can_fail.count(site.callee) != 0 && harmless.count(site.function) == 0)
                has_grown |= can_fail.insert(site.function).second;
    }
    std::vector<call_site> sites;
    for (const call_site &site : all)
        if (can_fail.count(site.callee) != 0 && harmless.count(site.function) == 0)
            sites.push_back(site);
    return sites;
}
