#include "registry.h"

#include "calls.h"
#include "lock.h"
#include "table.h"

#include <atomic>

brief_lock checker_lock;

namespace {

// ---- Owners. A tag's blocks end with their owner, whose end is noted once: nobody has to visit them all.

}  // namespace

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

// ---- Blocks that were never released

void add_to_lost(place **lost, const object &each)
{
    if (!is_recorded(each.kind) || has_ended(each) ||
        each.state == GIVEN_TO_FREE)  // the last is told already
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

void prepare_look_up(const void *address)
{
    objects.prefetch(reinterpret_cast<uintptr_t>(address));
}

bool look_up(const void *address, object *copy)
{
    const locked guard;
    const object *known = object_at(address);
    *copy = copy_of(known);
    return known != nullptr;
}

bool add_object(place *made_at, object_kind kind, const void *address, uint64_t tag, uint64_t size,
                bool is_threaded, object *earlier)
{
    const locked guard;
    const object *known = object_at(address);
    const bool has_lived = known != nullptr && known->state == LIVE && !has_ended(*known);
    if (has_lived)
        *earlier = *known;
    add(made_at, kind, reinterpret_cast<uintptr_t>(address), tag, size)->is_threaded = is_threaded;
    return has_lived;
}

bool end_object(const place *where, const void *address, uint64_t tag, object *copy)
{
    const locked guard;
    object *known = object_at(address);
    const bool is_ended =
        known != nullptr && !has_ended(*known) && (!is_recorded(known->kind) || known->tag == tag);
    if (!is_ended || known->kind != BLOCK)
        *copy = copy_of(known);
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
    known->state = LIVE;
    if (is_recorded(known->kind))
        count_in_filter(*known, 1);
}

void end_all_of_tag(const place *where, uint64_t tag)
{
    const locked guard;
    owner *of = owners.find(tag);
    if (of == nullptr)
        return;
    owners.remove(of);
    end_owner(of, where);
}

void end_all(const place *where)
{
    const locked guard;
    owners.remove_if([&](owner *of) {
        end_owner(of, where);
        return true;
    });
}

void begin_array_operation(const void *array)
{
    const locked guard;
    object *slots = slots_of(object_at(array));
    if (slots != nullptr && slots->state == LIVE)
        slots->state = IN_FLUX;
}

void end_array_operation(const place *where, const void *array, const void *slots, uint64_t size)
{
    const locked guard;
    object *known = object_at(array);
    if (known == nullptr || known->kind != ARRAY || has_ended(*known))
        return;
    object *old_slots = slots_of(known);
    if (old_slots != nullptr && old_slots->key == reinterpret_cast<uintptr_t>(slots)) {
        old_slots->state = LIVE;
        old_slots->size = size;
        return;
    }
    if (old_slots != nullptr && old_slots->state == IN_FLUX)
        end(old_slots, where);
    known->vector = reinterpret_cast<uintptr_t>(slots);
    // The array's place tells more than the one at which it happened to grow.
    if (slots != nullptr)
        add(known->made_at, VECTOR, known->vector, known->tag, size);
}

void end_slots(const place *where, const void *array)
{
    const locked guard;
    if (object *slots = slots_of(object_at(array)))
        end(slots, where);
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
    if (known == nullptr || !is_handle(known->kind) || has_ended(*known))
        return;
    known->entered_at = where;
    known->holder = thread_number();
    known->times_entered = is_counted ? known->times_entered + 1 : 1;
}

void note_left(const void *address, bool is_counted)
{
    const locked guard;
    object *known = object_at(address);
    if (known == nullptr || !is_handle(known->kind) || known->times_entered == 0)
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
    if (has_ended(*known)) {  // with its owner; the filter need not count it any more
        end(known, known->of->ended_at);
        return false;
    }
    *copy = *known;
    known->state = GIVEN_TO_FREE;
    return true;
}

void visit_lost_places(void (*visitor)(place *where, void *context), void *context)
{
    place *lost = nullptr;
    {
        const locked guard;
        objects.visit([&](const object &each) { add_to_lost(&lost, each); });
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
        if (is_handle(each.kind) && !has_ended(each) && each.times_entered != 0 && count < limit)
            copies[count++] = each;
    });
    return count;
}

uint32_t endings()
{
    return endings_of_handles.load(std::memory_order_acquire);
}
