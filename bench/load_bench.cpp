// Loading and unloading the library beside one that is empty and needs the same libraries.

#include "bench.h"
#include "library_copy.h"

#include <dlfcn.h>

#include <chrono>

namespace {

void load_and_unload(benchmark::State &state, const char *path)
{
    for (auto _ : state) {
        const bench::library_copy copy(path);
        const auto begin = std::chrono::steady_clock::now();
        void *library = dlopen(copy.path(), RTLD_LAZY | RTLD_LOCAL);
        const bool is_right = library != nullptr && dlclose(library) == 0;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(seconds.count());
        if (!is_right) {
            state.SkipWithError("cannot be loaded");
            break;
        }
    }
}

[[maybe_unused]] const bool registered = [] {
    bench::describe({"Load",
                     "Loading, and closing again (the library stays; the empty one is unloaded)",
                     "libraries",
                     {{"empty", nullptr}}});
    benchmark::RegisterBenchmark(bench::row("Load", "ours", 1).c_str(), load_and_unload, OUR_LIBRARY)
        ->UseManualTime()
        ->Iterations(20);
    benchmark::RegisterBenchmark(bench::row("Load", "empty", 1).c_str(), load_and_unload, EMPTY_LIBRARY)
        ->UseManualTime()
        ->Iterations(20);
    return true;
}();

}  // namespace
