// The calls by which the library reaches the platform, read from its machine code, and which of them have
// been seen to fail. Only a library that is not optimised shows them all: there a call is a call, and every
// function has a frame.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include <stdint.h>

// Until the next such call: marks are the scenario's, and frames further out than the caller's are not looked
// at.
void begin_scenario(const std::string &name, const void *outermost_frame);
// The calls of the library that are under way have failed, or something below them has. Needs no heap that is
// traced, and leaves errno alone.
void mark_call_sites();

struct call_site {
    std::string function;
    std::string callee;   // a function of the library or of the platform
    uint64_t returns_to;  // offset in the library
};

// All calls in the library's code of something that can fail, directly or further down, `failing` being the
// platform's functions of that kind. A function of the platform that is neither among them nor known to be
// harmless is a failure of the test.
std::vector<call_site> call_sites_that_can_fail(const std::string &library,
                                                const std::set<std::string> &failing);

// The names of the scenarios in which each call failed, by `returns_to`.
const std::map<uint64_t, std::set<std::string>> &marked_call_sites();
