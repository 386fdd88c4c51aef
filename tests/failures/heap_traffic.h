// What each operation asks of the heap, as a table: its rows are checked as equality, and
// docs/heap-traffic.md is written from them.
#pragma once

#include "support/heap_trace.h"

#include <string>
#include <vector>

struct traffic_row {
    const char *operation = "";
    const char *situation = "";
    void (*prepare)() = nullptr;  // blocks are numbered from here on
    void (*act)() = nullptr;      // the one call
    steps expected = {};          // of the call, in order, as heap_trace words them; empty: none
    unsigned refused = 0;         // the allocation that the heap refuses, counted from 1; 0: none
    bool refuses_mutex = false;   // the platform's initialisation of a mutex fails
};

struct traffic_section {
    std::string heading;
    std::string introduction;
    std::vector<block_kind> kinds;  // what the blocks of certain sizes are called, besides nodes and records
    std::string other_blocks;
    std::vector<traffic_row> rows;
};

traffic_section memory_traffic();
traffic_section array_traffic();
std::vector<traffic_section> synchronisation_traffic();
traffic_section service_traffic();
