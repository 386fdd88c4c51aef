// The records of the registry: owners, objects, and how they come and go. A part of registry.cpp; everything
// here is under the lock, but for the filter, which is read without.
#pragma once

#include "registry.h"
#include "table.h"

#include <atomic>

// ---- Owners. A tag's blocks end with their owner, whose end is noted once: nobody has to visit them all.

struct owner {
    uint64_t key;  // the tag
    owner *next;
    const place *drawn_at;  // of a unique tag
    const place *ended_at;  // null: it is the present owner of its tag
    uint64_t objects;       // that name it, released ones included
    bool has_handles;
};

namespace {

hash_table<owner> owners;  // the present ones
owner *vacant_owners;

std::atomic<uint32_t> endings_of_handles = {0};

owner *owner_of(uint64_t tag)
{
    owner *known = owners.find(tag);
    if (known != nullptr)
        return known;
    owner *added = vacant_owners;
    if (added != nullptr)
        vacant_owners = added->next;
    else
        added = static_cast<owner *>(take_bytes(sizeof(owner)));
    *added = {};
    added->key = tag;
    owners.insert(added);
    return added;
}

void recycle(owner *of)
{
    of->next = vacant_owners;
    vacant_owners = of;
}

void end_owner(owner *of, const place *where)
{
    of->ended_at = where;
    if (of->has_handles)
        endings_of_handles.fetch_add(1, std::memory_order_release);
    if (of->objects == 0)
        recycle(of);
}

// ---- Objects

// Neighbours on the heap are neighbours in the tables, for they are often used one behind the other.
uint64_t hash_of_address(uint64_t address)
{
    return address / 32 + mixed(address >> 24);
}

hash_table<object, hash_of_address> objects;
object *vacant_objects;

// Counts of the recorded objects whose addresses share a slot, so that a release by the host, which hardly
// ever is of one of them, is told apart without the lock. Those whose owner has ended are still counted.
constexpr uint32_t FILTER_SLOTS = 1 << 18;
std::atomic<uint32_t> filter[FILTER_SLOTS];

std::atomic<uint32_t> &filter_slot(uint64_t address)
{
    return filter[hash_of_address(address) % FILTER_SLOTS];
}

// Written under the lock alone.
void count_in_filter(const object &counted, uint32_t change)
{
    std::atomic<uint32_t> &slot = filter_slot(counted.key);
    slot.store(slot.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

object *object_at(uint64_t address)
{
    return objects.find(address);
}

object *object_at(const void *address)
{
    return object_at(reinterpret_cast<uintptr_t>(address));
}

bool has_ended(const object &each)
{
    return each.state == RELEASED || (is_recorded(each.kind) && each.of->ended_at != nullptr);
}

// What is known, as others are to see it.
object copy_of(const object *known)
{
    if (known == nullptr)
        return {};
    object copy = *known;
    if (copy.state != RELEASED && has_ended(copy)) {
        copy.state = RELEASED;
        copy.ended_at = copy.of->ended_at;
    }
    return copy;
}

// The object names its owner no more, and the filter does not count it.
void detach(object *detached)
{
    if (!is_recorded(detached->kind))
        return;
    if (detached->state != RELEASED)
        count_in_filter(*detached, -1u);
    owner *of = detached->of;
    if (--of->objects == 0 && of->ended_at != nullptr)
        recycle(of);
}

void attach(object *attached)
{
    attached->of = owner_of(attached->tag);
    ++attached->of->objects;
    attached->of->has_handles |= is_handle(attached->kind);
    count_in_filter(*attached, 1);
}

// Forget what was released before the last sweep. Returns how many live.
uint64_t sweep()
{
    uint64_t living = 0;
    objects.remove_if([&](object *each) {
        const bool is_released = has_ended(*each);
        living += !is_released;
        if (!is_released || !each->was_swept) {
            each->was_swept = is_released;
            return false;
        }
        detach(each);
        each->next = vacant_objects;
        vacant_objects = each;
        return true;
    });
    return living;
}

// The table grows for what lives, and what was released makes room for it.
void make_room()
{
    const uint64_t living = sweep();
    if (4 * living >= objects.capacity())
        objects.grow();
    else if (objects.is_full())
        sweep();
}

void add_vacant_objects()
{
    constexpr uint32_t COUNT = 256;
    const auto bytes = reinterpret_cast<uintptr_t>(take_bytes((COUNT + 1) * sizeof(object)));
    auto *added =
        reinterpret_cast<object *>((bytes + alignof(object) - 1) / alignof(object) * alignof(object));
    for (uint32_t i = COUNT; i-- > 0;) {
        added[i].next = vacant_objects;
        vacant_objects = &added[i];
    }
}

object *new_object(uint64_t address)
{
    if (objects.is_full())
        make_room();
    if (vacant_objects == nullptr)
        add_vacant_objects();
    object *added = vacant_objects;
    vacant_objects = added->next;
    __builtin_prefetch(vacant_objects, 1);
    added->key = address;
    objects.insert(added);
    return added;
}

// What lived at the address gives its place in the table to what lives there now.
object *add(place *made_at, object_kind kind, uint64_t address, uint64_t tag, uint64_t size)
{
    object *added = object_at(address);
    if (added == nullptr)
        added = new_object(address);
    else
        detach(added);
    added->tag = tag;
    added->size = size;
    added->made_at = made_at;
    added->kind = kind;
    added->state = LIVE;
    added->was_swept = false;
    if (is_handle(kind)) {
        added->vector = 0;
        added->entered_at = nullptr;
        added->times_entered = 0;
    }
    if (is_recorded(kind))
        attach(added);
    return added;
}

void end(object *ended, const place *where)
{
    if (is_recorded(ended->kind))
        count_in_filter(*ended, -1u);
    if (is_handle(ended->kind))
        endings_of_handles.fetch_add(1, std::memory_order_release);
    ended->state = RELEASED;
    ended->ended_at = where;
}

// The slots of an array that lives, otherwise null.
object *slots_of(const object *array)
{
    if (array == nullptr || array->kind != ARRAY || has_ended(*array) || array->vector == 0)
        return nullptr;
    object *slots = object_at(array->vector);
    return slots != nullptr && slots->kind == VECTOR && !has_ended(*slots) ? slots : nullptr;
}

}  // namespace
