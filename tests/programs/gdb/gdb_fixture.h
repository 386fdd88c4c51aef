// gdb with the extension as it is installed, over a library whose debug symbols are in a file of their own,
// and host.cpp to look at.
#pragma once

#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

using strings = std::vector<std::string>;

// Why gdb cannot be tried here, or nothing.
const std::string &reason_without_gdb();
#define SKIP_WITHOUT_GDB()                                                                                   \
    if (!reason_without_gdb().empty())                                                                       \
    GTEST_SKIP() << reason_without_gdb()

// Where the library is installed with its extension, built once for all tests. Its debug symbols are in
// the folder .debug beside it.
const std::string &installed_prefix();
std::string installed_extension();   // the file that gdb reads
std::string library_with_symbols();  // as it was before its symbols went to their file

// What gdb said to each of some commands.
class gdb_answers {
public:
    void add(const std::string &command, const std::string &text) { texts_[command] += text; }
    const std::string &to(const std::string &command) const;
    strings lines_to(const std::string &command) const;
    std::string everything() const;  // for failure messages

private:
    std::map<std::string, std::string> texts_;
};

// Run gdb with these arguments of its own, and then these commands, one by one. The program finds its library
// in `library_folder`, by default where it is installed; only there gdb loads the extension by itself.
gdb_answers ask_gdb(const strings &arguments, const strings &commands, const std::string &library_folder);
gdb_answers ask_gdb(const strings &arguments, const strings &commands);

// The arguments for a host to be started, and commands that start it and follow once all its work is done.
strings host_arguments(const std::string &facts_file);
strings host_commands(const strings &behind);

// What the host has said of itself.
class host_facts {
public:
    explicit host_facts(const std::string &facts_file);
    uint64_t number(const std::string &name) const;
    // The addresses of the blocks recorded under a tag, by their sizes.
    const std::map<uint64_t, uint64_t> &blocks_of(uint64_t tag) const;

private:
    std::map<std::string, uint64_t> numbers_;
    std::map<uint64_t, std::map<uint64_t, uint64_t>> blocks_;
};

std::string as_hexadecimal(uint64_t number);

// The text with all that a POSIX extended regular expression finds in its lines replaced.
std::string replaced(std::string text, const char *pattern, const std::string &replacement);

// The text with every address, of 9 digits or more, as ADDRESS.
std::string without_addresses(const std::string &text);
