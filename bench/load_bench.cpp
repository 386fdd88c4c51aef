// Loading and unloading the library beside one that is empty and needs the same libraries.

#include "bench.h"

#include <dlfcn.h>

namespace {

void load_and_unload(benchmark::State &state, const char *path)
{
    for (auto _ : state) {
        void *library = dlopen(path, RTLD_LAZY | RTLD_LOCAL);
        if (library == nullptr || dlclose(library) != 0) {
            state.SkipWithError("cannot be loaded");
            break;
        }
    }
}

[[maybe_unused]] const bool registered = [] {
    bench::describe({"Load", "Loading and unloading", "libraries", {{"empty", nullptr}}});
    benchmark::RegisterBenchmark(bench::row("Load", "ours", 1).c_str(), load_and_unload, OUR_LIBRARY);
    benchmark::RegisterBenchmark(bench::row("Load", "empty", 1).c_str(), load_and_unload, EMPTY_LIBRARY);
    return true;
}();

}  // namespace
