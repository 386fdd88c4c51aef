// What the benchmarks share. A measurement is named "Group/who/argument", where `who` is "ours", the name of
// a peer, or "floor": the least that the work can cost on this machine, measured beside it. scripts/bench
// makes one table and one plot of each group.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace bench {

struct peer {
    const char *name;
    // How its contract differs, or null. A peer that differs is shown, but no ratio is taken to it.
    const char *difference = nullptr;
};

struct group {
    const char *name;              // the first part of its measurements' names
    const char *title;             // heading in the report
    const char *argument;          // what the last part counts, such as "bytes"
    std::vector<peer> peers = {};  // in the order of the table's columns
    const char *floor = nullptr;   // what the floor is, if one is measured
    bool is_per_unit = false;      // plot the time per unit of the argument
};

// Hand the description to the report. Returns true, so that a namespace-scope constant can call it.
inline bool describe(const group &described)
{
    const std::string name = described.name;
    benchmark::AddCustomContext(name + ".title", described.title);
    benchmark::AddCustomContext(name + ".argument", described.argument);
    benchmark::AddCustomContext(name + ".per_unit", described.is_per_unit ? "yes" : "no");
    if (described.floor != nullptr)
        benchmark::AddCustomContext(name + ".floor", described.floor);
    std::string order;
    for (const peer &each : described.peers) {
        order += std::string(order.empty() ? "" : " ") + each.name;
        if (each.difference != nullptr)
            benchmark::AddCustomContext(name + ".differs." + each.name, each.difference);
    }
    benchmark::AddCustomContext(name + ".peers", order);
    return true;
}

// The name of one measurement.
inline std::string row(const char *group, const char *who, long long argument)
{
    return std::string(group) + '/' + who + '/' + std::to_string(argument);
}

}  // namespace bench
