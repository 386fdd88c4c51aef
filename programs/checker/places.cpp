#include "places.h"

#include "lock.h"
#include "options.h"
#include "symbols.h"
#include "table.h"

#include <execinfo.h>
#include <string.h>

namespace {

constexpr uint32_t KEPT_FRAMES = 12;

// A call site as callers give it, for the quick way from there to its place. The text of the file is compared
// all the same: the module that gave it may have gone, and another text lie at its address.
struct known_site {
    uint64_t key;
    known_site *next;
    place *where;
};

hash_table<known_site> known_sites;
hash_table<place> places;

// The last ones of each thread, found without the lock.
struct recent_site {
    const char *file;
    void *caller;
    place *where;
};
constexpr uint32_t RECENT_SITES = 64;
__thread recent_site recent_sites[RECENT_SITES];

uint64_t hash_of_text(const char *text)
{
    uint64_t hash = UINT64_C(0xcbf29ce484222325);
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * UINT64_C(0x100000001b3);
    return hash;
}

bool are_equal(const char *a, const char *b)
{
    return a == b || (a != nullptr && b != nullptr && strcmp(a, b) == 0);
}

// ---- Frames

frame *named_frames(void *const *addresses, uint32_t count)
{
    if (count == 0)
        return nullptr;
    frame *frames;
    {
        const locked guard;
        frames = static_cast<frame *>(take_bytes(count * sizeof *frames));
    }
    for (uint32_t i = 0; i < count; ++i) {
        const auto address = reinterpret_cast<uintptr_t>(addresses[i]);
        const symbol found = symbol_at(address);
        const locked guard;  // the loader's texts go with the module
        frames[i] = {address, keep_text(found.function), found.offset, keep_text(found.object)};
    }
    return frames;
}

// Return addresses from the checker's caller on.
uint32_t addresses_here(void **addresses, uint32_t limit)
{
    void *all[64];
    const int count = backtrace(all, sizeof all / sizeof *all);
    int first = 0;
    while (first < count && is_own_code(reinterpret_cast<uintptr_t>(all[first])))
        ++first;
    uint32_t kept = 0;
    for (int i = first; i < count && kept < limit; ++i)
        addresses[kept++] = all[i];
    return kept;
}

// ---- Places

uint64_t hash_of_place(const call_site &site, void *const *addresses, uint32_t count)
{
    uint64_t hash = reinterpret_cast<uintptr_t>(site.function);
    if (site.file != nullptr)
        hash += hash_of_text(site.file) + static_cast<uint64_t>(site.line);
    for (uint32_t i = 0; i < count; ++i)
        hash = mixed(hash + reinterpret_cast<uintptr_t>(addresses[i]));
    return hash;
}

bool is_called_from(const place &where, const call_site &site)
{
    return where.function == site.function && are_equal(where.file, site.file) &&
           (where.line == site.line || where.file == nullptr);
}

place *find_place(uint64_t key, const call_site &site, void *const *addresses, uint32_t count)
{
    return places.find(key, [&](const place &each) {
        if (each.frame_count != count || !is_called_from(each, site))
            return false;
        for (uint32_t i = 0; i < count; ++i)
            if (each.frames[i].address != reinterpret_cast<uintptr_t>(addresses[i]))
                return false;
        return true;
    });
}

// Another thread may add the same place meanwhile; the first one stays.
place *find_or_add_place(const call_site &site, void *const *addresses, uint32_t count)
{
    const uint64_t key = hash_of_place(site, addresses, count);
    {
        const locked guard;
        if (place *known = find_place(key, site, addresses, count))
            return known;
    }
    const frame *frames = named_frames(addresses, count);
    const locked guard;
    if (place *known = find_place(key, site, addresses, count))
        return known;
    auto *added = static_cast<place *>(take_bytes(sizeof(place)));
    added->key = key;
    added->function = site.function;
    added->file = keep_text(site.file);
    added->line = site.file != nullptr ? site.line : 0;
    added->frames = frames;
    added->frame_count = count;
    places.insert(added);
    return added;
}

uint64_t key_of_site(const call_site &site)
{
    const uint64_t function = reinterpret_cast<uintptr_t>(site.function);
    if (site.file == nullptr)
        return mixed(function) + reinterpret_cast<uintptr_t>(site.caller);
    return mixed(function + reinterpret_cast<uintptr_t>(site.file)) + static_cast<uint64_t>(site.line);
}

place *known_place_of(const call_site &site)
{
    const uint64_t key = key_of_site(site);
    {
        const locked guard;
        const known_site *known =
            known_sites.find(key, [&](const known_site &each) { return is_called_from(*each.where, site); });
        if (known != nullptr)
            return known->where;
    }
    place *where = find_or_add_place(site, &site.caller, site.file == nullptr ? 1 : 0);
    const locked guard;
    auto *added = static_cast<known_site *>(take_bytes(sizeof(known_site)));
    *added = {key, nullptr, where};
    known_sites.insert(added);
    return where;
}

place *place_with_stack(const call_site &site)
{
    void *addresses[KEPT_FRAMES];
    return find_or_add_place(site, addresses, addresses_here(addresses, KEPT_FRAMES));
}

}  // namespace

place *place_of(const call_site &site)
{
    if (checker_options.wants_stacks)
        return place_with_stack(site);
    recent_site &recent = recent_sites[mixed(reinterpret_cast<uintptr_t>(site.caller)) % RECENT_SITES];
    if (recent.where == nullptr || recent.caller != site.caller || recent.file != site.file ||
        !is_called_from(*recent.where, site)) {
        place *where = known_place_of(site);
        recent.file = site.file;
        recent.caller = site.caller;
        recent.where = where;
    }
    return recent.where;
}

uint32_t stack_here(frame *frames, uint32_t limit)
{
    void *addresses[64];
    const uint32_t count = addresses_here(addresses, limit < 64 ? limit : 64);
    for (uint32_t i = 0; i < count; ++i) {
        const auto address = reinterpret_cast<uintptr_t>(addresses[i]);
        const symbol found = symbol_at(address);
        frames[i] = {address, found.function, found.offset, found.object};
    }
    return count;
}
