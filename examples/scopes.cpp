// Scopes: the library's objects for C++, each of which gives back what it holds at the end of its scope.
#include <foundation/foundation.hpp>

#include <fcntl.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

struct city {
    const char *name;
    int inhabitants;
};

static INT compare_names(const city *a, const city *b)
{
    return std::strcmp(a->name, b->name);
}

int main()
{
    {
        qv::owner map;  // draws a tag; what is declared behind it ends before it
        qv::section section(map.tag());
        auto cities = qv::array<city>::sorted<compare_names>(map.tag(), 16);
        if (!section || !cities)  // nothing throws: what could not be had tests false
            return 1;

        for (const city &each : {city{"Turin", 848}, city{"Bergen", 291}, city{"Porto", 232}}) {
            const std::lock_guard<qv::section> inside(section);
            city *copy = map.make<city>(each);
            if (copy == nullptr || cities.add(copy) != 0)
                return 1;
        }
        for (const city *each : cities)
            std::printf("%s: %d thousand\n", each->name, each->inhabitants);

        // The standard containers take the owner's memory, too: this one has its block under the map's tag.
        const std::pmr::vector<int> years({1814, 1853}, &map);
        std::printf("under the map's tag: %s\n", map.flags(const_cast<int *>(years.data())) ? "yes" : "no");

        const qv::loaded_module process(nullptr);
        const auto length_of = process.symbol<std::size_t(const char *)>("strlen");
        std::printf("strlen through the process image: %zu\n", length_of != nullptr ? length_of("Porto") : 0);
        const qv::file missing("/nowhere", O_RDONLY);
        std::printf("a file that is not there: %d\n", missing.descriptor());
    }
    std::printf("blocks left at the end: %ld\n", static_cast<long>(ZR_memm_cleanup()));
    return 0;
}

/* Prints:
 * Bergen: 291 thousand
 * Porto: 232 thousand
 * Turin: 848 thousand
 * under the map's tag: yes
 * strlen through the process image: 5
 * a file that is not there: -1
 * blocks left at the end: 0
 */
