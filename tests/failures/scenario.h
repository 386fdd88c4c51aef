// One call of the library in one situation, and what becomes of it when something below fails.
#pragma once

#include "support/heap_trace.h"
#include "support/thread_functions.h"

#include <functional>
#include <string>
#include <vector>

struct failure_outcome {
    // What fails: "nothing"; "allocation 2", the second one once, or it and all later ones; "allocation 2
    // on", the latter alone; "vsprintf *", any one.
    std::string failing;
    std::string result;   // of the call, in words
    long kept_bytes = 0;  // what the call adds to the bytes that are allocated
};

struct scenario {
    std::string name;
    std::function<void()> load = nullptr;  // before anything is recorded
    std::function<void()> prepare = nullptr;
    std::function<void()> act = nullptr;            // the one call, and nothing else
    std::function<std::string()> result = nullptr;  // of it, and its outputs
    std::function<void()> use = nullptr;         // what was acted upon serves afterwards; expects so itself
    std::function<void()> clean_up = nullptr;    // nothing is allocated then
    std::vector<failure_outcome> outcomes = {};  // of each failure, and each occurs
    std::vector<thread_function> fails_anyway = {};
    std::function<void()> during_wait = nullptr;  // what others do while the call waits for a condition
};

using scenarios = std::vector<scenario>;

scenarios memory_scenarios();
scenarios array_scenarios();
scenarios search_scenarios();
scenarios synchronisation_scenarios();
scenarios file_scenarios();
scenarios service_scenarios();
scenarios text_scenarios();
