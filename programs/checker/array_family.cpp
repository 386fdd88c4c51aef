// In front of array.h. The library's own calls of the memory manager do not pass the checker, which reads
// from an array's record what they did.

#include "calls.h"
#include "checked.h"
#include "foundation/memory/dt_types.h"
#include "library.h"
#include "objects.h"

#include <stdio.h>

namespace {

const ZT_ARRAY_PTR &record_of(const ZT_DT_ANY *array)
{
    return *reinterpret_cast<const ZT_ARRAY_PTR *>(array);
}

// ---- Operations that only look, which come often

// Arrays that were seen alive, and the number of ends of handles at that time.
struct seen_array {
    const ZT_DT_ANY *array;
    uint32_t endings;
};
constexpr uint32_t SEEN = 8;
__thread seen_array seen_arrays[SEEN];

seen_array &seen_slot(const ZT_DT_ANY *array)
{
    return seen_arrays[reinterpret_cast<uintptr_t>(array) / 16 % SEEN];
}

bool was_seen_alive(const ZT_DT_ANY *array)
{
    const seen_array &seen = seen_slot(array);
    return seen.array == array && seen.endings == endings();
}

void report_use(const call_site &site, const ZT_DT_ANY *array, const object &known)
{
    const place *where = place_of(site);
    char message[160];
    const bool is_released = known.state == RELEASED;
    snprintf(message, sizeof message,
             is_released ? "%s is given %s %p after its release" : "%s is given %s %p", site.function,
             noun_of(known.kind), static_cast<const void *>(array));
    finding found = found_about(is_released ? USED_AFTER_RELEASE : WRONG_KIND, where, known, message);
    report(&found);
}

// True when the handle is that of a living array. Of an unknown handle nothing is said.
bool check_array(const call_site &site, const ZT_DT_ANY *array)
{
    if (array == nullptr)
        return false;
    if (was_seen_alive(array))
        return true;
    const uint32_t endings_now = endings();
    object known;
    if (!look_up(array, &known))
        return false;
    if (known.state != RELEASED && known.kind == ARRAY) {
        seen_slot(array) = {array, endings_now};
        return true;
    }
    report_use(site, array, known);
    return false;
}

template <typename Function> auto look(const call_site &site, const ZT_DT_ANY *array, Function function)
{
    checked_call call;
    check_array(site, array);
    return call.pass_on(function);
}

// An empty array fails for want of elements.
template <typename Function> auto search(const call_site &site, const ZT_DT_ANY *array, Function function)
{
    checked_call call;
    if (check_array(site, array) && record_of(array).compare == nullptr && record_of(array).count != 0) {
        const place *where = place_of(site);
        object known;
        look_up(array, &known);
        char message[160];
        snprintf(message, sizeof message, "%s searches array %p, which has no comparator", site.function,
                 static_cast<const void *>(array));
        finding found = found_about(NO_COMPARATOR, where, known, message);
        report(&found);
    }
    return call.pass_on(function);
}

// ---- Operations that may replace the vector

class array_change : public memory_call {
public:
    array_change(const call_site &site, const ZT_DT_ANY *array)
        : memory_call(site), array_(check_array(site, array) ? array : nullptr)
    {
        if (array_ != nullptr)
            begin_array_operation(array_);
    }
    ~array_change()
    {
        if (array_ == nullptr)
            return;
        const ZT_ARRAY_PTR &record = record_of(array_);
        end_array_operation(where(), array_, record.slots, record.capacity * sizeof(LPVOID));
    }
    bool is_alive() const { return array_ != nullptr; }

private:
    const ZT_DT_ANY *array_;
};

// The last element takes the place of the removed one: which breaks no order where it is that one.
void report_if_order_breaks(const place *where, const ZT_DT_ANY *array, uint64_t index)
{
    const ZT_ARRAY_PTR &record = record_of(array);
    if (record.sorted == 0 || record.compare == nullptr || index >= record.count || index == record.count - 1)
        return;
    object known;
    look_up(array, &known);
    char message[200];
    snprintf(message, sizeof message,
             "%s takes element %lu of %lu from sorted array %p without keeping the order", where->function,
             index, record.count, static_cast<const void *>(array));
    finding found = found_about(UNORDERED_REMOVAL, where, known, message);
    report(&found);
}

}  // namespace

CHECKED ZT_ERRCOUNT ZR_array_ptr_alloc(uint64_t tag, ZT_DT_ANY **array, uint64_t increment, INT sorted,
                                       ZT_ARRAY_PTR_COMPARE compare)
{
    memory_call call(SITE_HERE);
    report_if_tag_zero(call.where(), tag);
    const ZT_ERRCOUNT status =
        call.pass_on([&] { return library().ZR_array_ptr_alloc(tag, array, increment, sorted, compare); });
    object earlier;
    if (status == 0)
        add_object(call.where(), ARRAY, *array, tag, sizeof(ZT_ARRAY_PTR), false, &earlier);
    return status;
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_delete(ZT_DT_ANY *array)
{
    memory_call call(SITE_HERE);
    object known = {};
    if (check_array(SITE_HERE, array)) {
        end_slots(call.where(), array);
        end_object(call.where(), array, record_of(array).tag, &known);
    }
    return call.pass_on([&] { return library().ZR_array_ptr_delete(array); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_add(ZT_DT_ANY *array, LPVOID element, uint64_t *index)
{
    array_change call(SITE_HERE, array);
    return call.pass_on([&] { return library().ZR_array_ptr_add(array, element, index); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_remove_ex(ZT_DT_ANY *array, uint64_t index, uint64_t *removed,
                                           uint64_t keep_order)
{
    array_change call(SITE_HERE, array);
    if (call.is_alive() && keep_order == 0)
        report_if_order_breaks(call.where(), array, index);
    return call.pass_on([&] { return library().ZR_array_ptr_remove_ex(array, index, removed, keep_order); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_remove(ZT_DT_ANY *array, uint64_t index, uint64_t *removed)
{
    array_change call(SITE_HERE, array);
    if (call.is_alive())
        report_if_order_breaks(call.where(), array, index);
    return call.pass_on([&] { return library().ZR_array_ptr_remove(array, index, removed); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_set(ZT_DT_ANY *array, uint64_t index, LPVOID element)
{
    return look(SITE_HERE, array, [&] { return library().ZR_array_ptr_set(array, index, element); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_get(ZT_DT_ANY *array, uint64_t index, LPVOID *element)
{
    return look(SITE_HERE, array, [&] { return library().ZR_array_ptr_get(array, index, element); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_count_get(ZT_DT_ANY *array, uint64_t *count)
{
    return look(SITE_HERE, array, [&] { return library().ZR_array_ptr_count_get(array, count); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_find(ZT_DT_ANY *array, LPVOID key, LPVOID *element)
{
    return search(SITE_HERE, array, [&] { return library().ZR_array_ptr_find(array, key, element); });
}

CHECKED ZT_ERRCOUNT ZR_array_ptr_index_get(ZT_DT_ANY *array, LPVOID key, uint64_t *index)
{
    return search(SITE_HERE, array, [&] { return library().ZR_array_ptr_index_get(array, key, index); });
}
