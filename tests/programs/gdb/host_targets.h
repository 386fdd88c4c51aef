// The ways in which the host comes before gdb, each looked at once with all commands.
#pragma once

#include "gdb_fixture.h"

#include <memory>

enum class target { STARTED, ATTACHED, CORE_OF_GDB, CORE_OF_KERNEL };

struct look {
    std::string reason_to_skip;
    gdb_answers answers;
    std::unique_ptr<host_facts> facts;
};

// The answers to `commands`, which are the same in every call.
const look &look_at(target what, const strings &commands);
