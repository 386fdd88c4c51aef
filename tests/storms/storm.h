// How large a storm is, and what it reports of itself.
//
// Short by default; the environment variable QV_STORM_OPERATIONS, a number, makes every storm as long as
// that.
#pragma once

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <thread>

// 0 without the variable.
inline long operations_asked_for()
{
    const char *text = getenv("QV_STORM_OPERATIONS");
    return text != nullptr ? std::max(1000L, atol(text)) : 0;
}

// About how many calls of the library a storm makes.
inline long storm_operations()
{
    return operations_asked_for() != 0 ? operations_asked_for() : 1000000;
}

// How often a storm does what takes as long as a thousand calls: starts a process, loads a module.
inline long storm_rounds()
{
    return operations_asked_for() != 0 ? operations_asked_for() / 1000 : 100;
}

// Several to a core.
inline unsigned storm_threads()
{
    return std::max(8U, 4 * std::thread::hardware_concurrency());
}

// A line for whoever gathers figures.
inline void report_storm(const char *what, long count, const char *unit)
{
    printf("STORM\t%s\t%ld %s\n", what, count, unit);
}
