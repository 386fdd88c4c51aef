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

// What more is kept of one that is no plain block.
struct handle_part {
    uint64_t slots;  // of an array: their address, or 0
    const place *entered_at;
    uint32_t times_entered;
    int holder;
};

// A line of the processor's caches. The pointers name nothing while the record is vacant, but for `handle`.
struct alignas(64) object_record {
    uint64_t key;
    object_record *next;
    owner *of;  // of recorded ones: whose end is the object's
    uint64_t size;
    place *made_at;
    const place *ended_at;  // of one that was released by itself
    handle_part *handle;    // null until the record first is one's
    object_kind kind;
    object_state state;  // LIVE also when the owner has ended
    bool is_threaded;
    bool was_swept;  // was released when the registry was last swept
};
static_assert(sizeof(object_record) == 64);

// Neighbours on the heap are neighbours in the tables, for they are often used one behind the other.
uint64_t hash_of_address(uint64_t address)
{
    return address / 32 + mixed(address >> 24);
}

hash_table<object_record, hash_of_address> objects;
object_record *vacant_objects;

// Counts of the recorded objects whose addresses share a slot, so that a release by the host, which hardly
// ever is of one of them, is told apart without the lock. Those whose owner has ended are still counted. A
// slot that is full stays so: bytes keep it all near the processor.
constexpr uint32_t FILTER_SLOTS = 1 << 18;
constexpr BYTE FULL = UINT8_MAX;
std::atomic<BYTE> filter[FILTER_SLOTS];

std::atomic<BYTE> &filter_slot(uint64_t address)
{
    return filter[hash_of_address(address) % FILTER_SLOTS];
}

// Written under the lock alone.
void count_in_filter(const object_record &counted, int change)
{
    std::atomic<BYTE> &slot = filter_slot(counted.key);
    const BYTE count = slot.load(std::memory_order_relaxed);
    if (count != FULL)
        slot.store(static_cast<BYTE>(count + change), std::memory_order_relaxed);
}

object_record *object_at(uint64_t address)
{
    return objects.find(address);
}

object_record *object_at(const void *address)
{
    return object_at(reinterpret_cast<uintptr_t>(address));
}

bool has_ended(const object_record &each)
{
    return each.state == RELEASED || (is_recorded(each.kind) && each.of->ended_at != nullptr);
}

// As others are to see it.
object copy_of(const object_record *known)
{
    if (known == nullptr)
        return {};
    object copy = {};
    copy.key = known->key;
    copy.size = known->size;
    copy.made_at = known->made_at;
    copy.ended_at = known->ended_at;
    copy.kind = known->kind;
    copy.state = known->state;
    copy.is_threaded = known->is_threaded;
    if (is_recorded(copy.kind)) {
        copy.tag = known->of->key;
        if (copy.state != RELEASED && known->of->ended_at != nullptr) {
            copy.state = RELEASED;
            copy.ended_at = known->of->ended_at;
        }
    }
    if (is_handle(copy.kind)) {
        copy.entered_at = known->handle->entered_at;
        copy.times_entered = known->handle->times_entered;
        copy.holder = known->handle->holder;
    }
    return copy;
}

// The object names its owner no more, and the filter does not count it.
void detach(object_record *detached)
{
    if (!is_recorded(detached->kind))
        return;
    if (detached->state != RELEASED)
        count_in_filter(*detached, -1);
    owner *of = detached->of;
    if (--of->objects == 0 && of->ended_at != nullptr)
        recycle(of);
}

void attach(object_record *attached, uint64_t tag)
{
    attached->of = owner_of(tag);
    ++attached->of->objects;
    attached->of->has_handles |= is_handle(attached->kind);
    count_in_filter(*attached, 1);
}

// Forget what was released before the last sweep. Returns how many live.
uint64_t sweep()
{
    uint64_t living = 0;
    objects.remove_if([&](object_record *each) {
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
    const auto bytes = reinterpret_cast<uintptr_t>(take_bytes((COUNT + 1) * sizeof(object_record)));
    auto *added = reinterpret_cast<object_record *>((bytes + alignof(object_record) - 1) /
                                                    alignof(object_record) * alignof(object_record));
    for (uint32_t i = COUNT; i-- > 0;) {
        added[i].next = vacant_objects;
        vacant_objects = &added[i];
    }
}

object_record *new_object(uint64_t address)
{
    if (objects.is_full())
        make_room();
    if (vacant_objects == nullptr)
        add_vacant_objects();
    object_record *added = vacant_objects;
    vacant_objects = added->next;
    __builtin_prefetch(vacant_objects, 1);
    added->key = address;
    objects.insert(added);
    return added;
}

// What lived at the address gives its place in the table to what lives there now.
object_record *add(place *made_at, object_kind kind, uint64_t address, uint64_t tag, uint64_t size)
{
    object_record *added = object_at(address);
    if (added == nullptr)
        added = new_object(address);
    else
        detach(added);
    added->size = size;
    added->made_at = made_at;
    added->kind = kind;
    added->state = LIVE;
    added->was_swept = false;
    if (is_handle(kind)) {
        if (added->handle == nullptr)
            added->handle = static_cast<handle_part *>(take_bytes(sizeof(handle_part)));
        *added->handle = {};
    }
    if (is_recorded(kind))
        attach(added, tag);
    return added;
}

void end(object_record *ended, const place *where)
{
    if (is_recorded(ended->kind))
        count_in_filter(*ended, -1);
    if (is_handle(ended->kind))
        endings_of_handles.fetch_add(1, std::memory_order_release);
    ended->state = RELEASED;
    ended->ended_at = where;
}

// The slots of an array that lives, otherwise null.
object_record *slots_of(const object_record *array)
{
    if (array == nullptr || array->kind != ARRAY || has_ended(*array) || array->handle->slots == 0)
        return nullptr;
    object_record *slots = object_at(array->handle->slots);
    return slots != nullptr && slots->kind == VECTOR && !has_ended(*slots) ? slots : nullptr;
}

}  // namespace
