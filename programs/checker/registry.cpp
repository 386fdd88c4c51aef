#include "registry.h"

#include "calls.h"
#include "lock.h"
#include "registry_records.h"

brief_lock checker_lock;

namespace {

// ---- Blocks that were never released

void add_to_lost(place **lost, const object_record &each)
{
    const bool is_told = each.state == GIVEN_TO_FREE;
    if (!is_recorded(each.kind) || has_ended(each) || is_told)
        return;
    place *where = each.made_at;
    if (where->lost.blocks == 0) {
        where->lost.next = *lost;
        where->lost.tag = each.of->key;
        where->lost.has_several_tags = false;
        *lost = where;
    }
    where->lost.has_several_tags |= where->lost.tag != each.of->key;
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
    const object_record *known = object_at(address);
    *copy = copy_of(known);
    return known != nullptr;
}

bool add_object(place *made_at, object_kind kind, const void *address, uint64_t tag, uint64_t size,
                bool is_threaded, object *earlier)
{
    const locked guard;
    const object_record *known = object_at(address);
    const bool has_lived = known != nullptr && known->state == LIVE && !has_ended(*known);
    if (has_lived)
        *earlier = copy_of(known);
    add(made_at, kind, reinterpret_cast<uintptr_t>(address), tag, size)->is_threaded = is_threaded;
    return has_lived;
}

bool end_object(const place *where, const void *address, uint64_t tag, object *copy)
{
    const locked guard;
    object_record *known = object_at(address);
    const bool is_ended =
        known != nullptr && !has_ended(*known) && (!is_recorded(known->kind) || known->of->key == tag);
    if (!is_ended || known->kind != BLOCK)
        *copy = copy_of(known);
    if (is_ended)
        end(known, where);
    return is_ended;
}

void revive_object(const void *address)
{
    const locked guard;
    object_record *known = object_at(address);
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
    object_record *slots = slots_of(object_at(array));
    if (slots != nullptr && slots->state == LIVE)
        slots->state = IN_FLUX;
}

void end_array_operation(const place *where, const void *array, const void *slots, uint64_t size)
{
    const locked guard;
    object_record *known = object_at(array);
    if (known == nullptr || known->kind != ARRAY || has_ended(*known))
        return;
    object_record *old_slots = slots_of(known);
    if (old_slots != nullptr && old_slots->key == reinterpret_cast<uintptr_t>(slots)) {
        old_slots->state = LIVE;
        old_slots->size = size;
        return;
    }
    if (old_slots != nullptr && old_slots->state == IN_FLUX)
        end(old_slots, where);
    known->handle->slots = reinterpret_cast<uintptr_t>(slots);
    // The array's place tells more than the one at which it happened to grow.
    if (slots != nullptr)
        add(known->made_at, VECTOR, known->handle->slots, known->of->key, size);
}

void end_slots(const place *where, const void *array)
{
    const locked guard;
    if (object_record *slots = slots_of(object_at(array)))
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
    object_record *known = object_at(address);
    if (known == nullptr || !is_handle(known->kind) || has_ended(*known))
        return;
    known->handle->entered_at = where;
    known->handle->holder = thread_number();
    known->handle->times_entered = is_counted ? known->handle->times_entered + 1 : 1;
}

void note_left(const void *address, bool is_counted)
{
    const locked guard;
    object_record *known = object_at(address);
    if (known == nullptr || !is_handle(known->kind) || known->handle->times_entered == 0)
        return;
    if (!is_counted)
        known->handle->times_entered = 0;
    else if (known->handle->holder == thread_number())
        --known->handle->times_entered;
}

bool may_be_recorded(const void *address)
{
    return filter_slot(reinterpret_cast<uintptr_t>(address)).load(std::memory_order_relaxed) != 0;
}

bool note_given_to_free(const void *address, object *copy)
{
    const locked guard;
    object_record *known = object_at(address);
    if (known == nullptr || known->state != LIVE || !is_recorded(known->kind))
        return false;
    if (has_ended(*known)) {  // with its owner; the filter need not count it any more
        end(known, known->of->ended_at);
        return false;
    }
    *copy = copy_of(known);
    known->state = GIVEN_TO_FREE;
    return true;
}

void visit_lost_places(void (*visitor)(place *where, void *context), void *context)
{
    place *lost = nullptr;
    {
        const locked guard;
        objects.visit([&](const object_record &each) { add_to_lost(&lost, each); });
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
    objects.visit([&](const object_record &each) {
        if (is_handle(each.kind) && !has_ended(each) && each.handle->times_entered != 0 && count < limit)
            copies[count++] = copy_of(&each);
    });
    return count;
}

uint32_t endings()
{
    return endings_of_handles.load(std::memory_order_acquire);
}
