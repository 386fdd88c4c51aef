#include "registry.h"

#include "calls.h"
#include "lock.h"
#include "table.h"

#include <atomic>

brief_lock checker_lock;

namespace {

// ---- Objects

constexpr uint32_t HISTORY = 1 << 16;

hash_table<object> objects;
object *vacant_objects;

// The last objects that were released, the oldest of which makes room for the next. One that lives again is
// taken out.
object *history[HISTORY];
uint32_t history_next;

std::atomic<uint32_t> endings_of_handles = {0};

// Counts of the recorded objects whose addresses share a slot, so that a release by the host, which hardly
// ever is of one of them, is told apart without the lock.
constexpr uint32_t FILTER_SLOTS = 1 << 18;
std::atomic<uint32_t> filter[FILTER_SLOTS];

std::atomic<uint32_t> &filter_slot(uint64_t address)
{
    return filter[mixed(address) % FILTER_SLOTS];
}

// Written under the lock alone.
void count_in_filter(uint64_t address, uint32_t change)
{
    std::atomic<uint32_t> &slot = filter_slot(address);
    slot.store(slot.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

object *object_at(const void *address)
{
    return objects.find(reinterpret_cast<uintptr_t>(address));
}

object *new_object(uint64_t address)
{
    object *added = vacant_objects;
    if (added != nullptr)
        vacant_objects = added->next;
    else
        added = static_cast<object *>(take_bytes(sizeof(object)));
    *added = {};
    added->key = address;
    objects.insert(added);
    return added;
}

void drop_object(object *dropped)
{
    objects.remove(dropped);
    dropped->next = vacant_objects;
    vacant_objects = dropped;
}

void remember(object *released)
{
    if (object *oldest = history[history_next])
        drop_object(oldest);
    history[history_next] = released;
    released->place_in_history = history_next;
    history_next = (history_next + 1) % HISTORY;
}

// ---- Tags and what they own

struct owner {
    uint64_t key;  // the tag
    owner *next;
    object *first;
    const place *drawn_at;  // of a unique tag
};

hash_table<owner> owners;
owner *vacant_owners;

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

void link_to_owner(object *owned)
{
    owner *of = owner_of(owned->tag);
    owned->previous_of_owner = nullptr;
    owned->next_of_owner = of->first;
    if (of->first != nullptr)
        of->first->previous_of_owner = owned;
    of->first = owned;
    count_in_filter(owned->key, 1);
}

void unlink_from_owner(object *owned)
{
    if (owned->previous_of_owner != nullptr)
        owned->previous_of_owner->next_of_owner = owned->next_of_owner;
    else
        owner_of(owned->tag)->first = owned->next_of_owner;
    if (owned->next_of_owner != nullptr)
        owned->next_of_owner->previous_of_owner = owned->previous_of_owner;
    count_in_filter(owned->key, -1u);
}

void end(object *ended, const place *where)
{
    if (is_recorded(ended->kind))
        unlink_from_owner(ended);
    if (ended->kind != BLOCK && ended->kind != VECTOR)
        endings_of_handles.fetch_add(1, std::memory_order_release);
    ended->state = RELEASED;
    ended->ended_at = where;
    remember(ended);
}

void end_all_of(owner *of, const place *where)
{
    while (of->first != nullptr)
        end(of->first, where);
}

object *add(place *made_at, object_kind kind, const void *address, uint64_t tag, uint64_t size)
{
    object *added = object_at(address);
    if (added == nullptr) {
        added = new_object(reinterpret_cast<uintptr_t>(address));
    } else {
        if (added->state == RELEASED)
            history[added->place_in_history] = nullptr;
        else if (is_recorded(added->kind))
            unlink_from_owner(added);
        object *next = added->next;
        *added = {};
        added->key = reinterpret_cast<uintptr_t>(address);
        added->next = next;
    }
    added->kind = kind;
    added->tag = tag;
    added->size = size;
    added->made_at = made_at;
    if (is_recorded(kind))
        link_to_owner(added);
    return added;
}

// ---- Blocks that were never released

void add_to_lost(place **lost, const object &each)
{
    if (each.state == GIVEN_TO_FREE)  // told already
        return;
    place *where = each.made_at;
    if (where->lost.blocks == 0) {
        where->lost.next = *lost;
        where->lost.tag = each.tag;
        where->lost.has_several_tags = false;
        *lost = where;
    }
    where->lost.has_several_tags |= where->lost.tag != each.tag;
    where->lost.bytes += each.size;
    ++where->lost.blocks;
}

bool is_larger(const place &a, const place &b)
{
    return a.lost.bytes != b.lost.bytes ? a.lost.bytes > b.lost.bytes : a.lost.blocks > b.lost.blocks;
}

place *merge(place *a, place *b)
{
    place *merged = nullptr, **end_of_merged = &merged;
    while (a != nullptr && b != nullptr) {
        place **taken = is_larger(*b, *a) ? &b : &a;
        *end_of_merged = *taken;
        end_of_merged = &(*taken)->lost.next;
        *taken = (*taken)->lost.next;
    }
    *end_of_merged = a != nullptr ? a : b;
    return merged;
}

place *sort(place *list)
{
    if (list == nullptr || list->lost.next == nullptr)
        return list;
    place *middle = list;
    for (place *last = list->lost.next; last != nullptr && last->lost.next != nullptr;
         last = last->lost.next->lost.next)
        middle = middle->lost.next;
    place *second = middle->lost.next;
    middle->lost.next = nullptr;
    return merge(sort(list), sort(second));
}

}  // namespace

const char *noun_of(object_kind kind)
{
    constexpr const char *NOUNS[] = {"block",
                                     "array",
                                     "array's vector",
                                     "critical section",
                                     "mem-sync critical section",
                                     "mutex identifier",
                                     "event"};
    return NOUNS[kind];
}

bool look_up(const void *address, object *copy)
{
    const locked guard;
    const object *known = object_at(address);
    *copy = known != nullptr ? *known : object{};
    return known != nullptr;
}

bool add_object(place *made_at, object_kind kind, const void *address, uint64_t tag, uint64_t size,
                bool is_threaded, object *earlier)
{
    const locked guard;
    const object *known = object_at(address);
    const bool has_lived = known != nullptr && known->state == LIVE;
    if (has_lived)
        *earlier = *known;
    add(made_at, kind, address, tag, size)->is_threaded = is_threaded;
    return has_lived;
}

bool end_object(const place *where, const void *address, uint64_t tag, object *copy)
{
    const locked guard;
    object *known = object_at(address);
    const bool is_ended =
        known != nullptr && known->state != RELEASED && (!is_recorded(known->kind) || known->tag == tag);
    if (!is_ended || known->kind != BLOCK)
        *copy = known != nullptr ? *known : object{};
    if (is_ended)
        end(known, where);
    return is_ended;
}

void revive_object(const void *address)
{
    const locked guard;
    object *known = object_at(address);
    if (known == nullptr || known->state != RELEASED)
        return;
    history[known->place_in_history] = nullptr;
    known->state = LIVE;
    if (is_recorded(known->kind))
        link_to_owner(known);
}

void end_all_of_tag(const place *where, uint64_t tag)
{
    const locked guard;
    owner *of = owners.find(tag);
    if (of == nullptr)
        return;
    end_all_of(of, where);
    owners.remove(of);
    of->next = vacant_owners;
    vacant_owners = of;
}

void end_all(const place *where)
{
    const locked guard;
    owners.visit([&](owner &of) { end_all_of(&of, where); });
}

void begin_array_operation(const void *array)
{
    const locked guard;
    const object *known = object_at(array);
    if (known != nullptr && known->kind == ARRAY && known->vector != nullptr && known->vector->state == LIVE)
        known->vector->state = IN_FLUX;
}

void end_array_operation(const place *where, const void *array, const void *slots, uint64_t size)
{
    const locked guard;
    object *known = object_at(array);
    if (known == nullptr || known->kind != ARRAY || known->state != LIVE)
        return;
    object *old_vector = known->vector;
    if (old_vector != nullptr && old_vector->key == reinterpret_cast<uintptr_t>(slots)) {
        old_vector->state = LIVE;
        old_vector->size = size;
        return;
    }
    if (old_vector != nullptr && old_vector->state == IN_FLUX)
        end(old_vector, where);
    // The array's place tells more than the one at which it happened to grow.
    known->vector = slots != nullptr ? add(known->made_at, VECTOR, slots, known->tag, size) : nullptr;
}

void end_slots(const place *where, const void *array)
{
    const locked guard;
    const object *known = object_at(array);
    if (known != nullptr && known->kind == ARRAY && known->vector != nullptr &&
        known->vector->state != RELEASED)
        end(known->vector, where);
}

void note_tag_drawn(uint64_t tag, const place *where)
{
    const locked guard;
    owner_of(tag)->drawn_at = where;
}

const place *place_of_draw(uint64_t tag)
{
    const locked guard;
    const owner *known = owners.find(tag);
    return known != nullptr ? known->drawn_at : nullptr;
}

void note_entered(const void *address, const place *where, bool is_counted)
{
    const locked guard;
    object *known = object_at(address);
    if (known == nullptr || known->state == RELEASED)
        return;
    known->entered_at = where;
    known->holder = thread_number();
    known->times_entered = is_counted ? known->times_entered + 1 : 1;
}

void note_left(const void *address, bool is_counted)
{
    const locked guard;
    object *known = object_at(address);
    if (known == nullptr || known->times_entered == 0)
        return;
    if (!is_counted)
        known->times_entered = 0;
    else if (known->holder == thread_number())
        --known->times_entered;
}

bool may_be_recorded(const void *address)
{
    return filter_slot(reinterpret_cast<uintptr_t>(address)).load(std::memory_order_relaxed) != 0;
}

bool note_given_to_free(const void *address, object *copy)
{
    const locked guard;
    object *known = object_at(address);
    if (known == nullptr || known->state != LIVE || !is_recorded(known->kind))
        return false;
    *copy = *known;
    known->state = GIVEN_TO_FREE;
    return true;
}

void visit_lost_places(void (*visitor)(place *where, void *context), void *context)
{
    place *lost = nullptr;
    {
        const locked guard;
        owners.visit([&](const owner &of) {
            for (const object *each = of.first; each != nullptr; each = each->next_of_owner)
                add_to_lost(&lost, *each);
        });
        lost = sort(lost);
    }
    for (place *where = lost; where != nullptr;) {
        place *next = where->lost.next;
        visitor(where, context);
        where->lost = {};
        where = next;
    }
}

uint32_t copy_held(object *copies, uint32_t limit)
{
    uint32_t count = 0;
    const locked guard;
    objects.visit([&](const object &each) {
        if (each.state == LIVE && each.times_entered != 0 && count < limit)
            copies[count++] = each;
    });
    return count;
}

uint32_t endings()
{
    return endings_of_handles.load(std::memory_order_acquire);
}
