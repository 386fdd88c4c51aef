// Tagged memory manager, and below it the pointer array that allocates through it.

#include "dt_types.h"

#include "dt_types_blocks.h"
#include "dt_types_records.h"

#include <stdlib.h>
#include <string.h>

// Layouts, for debuggers and for tests that look at records.
static_assert(offsetof(ZT_MEMM_SLOT, flags) == 0 && offsetof(ZT_MEMM_SLOT, size) == 8 &&
                  offsetof(ZT_MEMM_SLOT, block) == 16 && sizeof(ZT_MEMM_SLOT) == 24,
              "layout of a block slot");
static_assert(offsetof(ZT_MEMM_NODE, count) == 0 && offsetof(ZT_MEMM_NODE, slots) == 8 &&
                  offsetof(ZT_MEMM_NODE, previous) == 320 && offsetof(ZT_MEMM_NODE, next) == 328 &&
                  sizeof(ZT_MEMM_NODE) == 336,
              "layout of a node");
static_assert(offsetof(ZT_MEMM_TAG_RECORD, tag) == 0 && offsetof(ZT_MEMM_TAG_RECORD, first_node) == 8 &&
                  offsetof(ZT_MEMM_TAG_RECORD, previous) == 344 &&
                  offsetof(ZT_MEMM_TAG_RECORD, next) == 352 && sizeof(ZT_MEMM_TAG_RECORD) == 360,
              "layout of a tag record");
static_assert(offsetof(ZT_MEMM_TABLE, unique_tag_counter) == 0 && offsetof(ZT_MEMM_TABLE, buckets) == 8 &&
                  sizeof(ZT_MEMM_TABLE) == 8 + 32 * 360,
              "layout of the table");
static_assert(offsetof(ZT_ARRAY_PTR, size) == 0 && offsetof(ZT_ARRAY_PTR, magic) == 8 &&
                  offsetof(ZT_ARRAY_PTR, tag) == 16 && offsetof(ZT_ARRAY_PTR, capacity) == 24 &&
                  offsetof(ZT_ARRAY_PTR, count) == 32 && offsetof(ZT_ARRAY_PTR, increment) == 40 &&
                  offsetof(ZT_ARRAY_PTR, slots) == 48 && offsetof(ZT_ARRAY_PTR, sorted) == 56 &&
                  offsetof(ZT_ARRAY_PTR, compare) == 64 && sizeof(ZT_ARRAY_PTR) == 72,
              "layout of an array record");
static_assert((ZR_MEMM_BUCKET_COUNT & (ZR_MEMM_BUCKET_COUNT - 1)) == 0, "a bucket is a tag's low bits");

// All bookkeeping of the memory manager. Zero at load, which is its empty state.
static ZT_MEMM_TABLE heap;

namespace {

// ---- Tag records

ZT_MEMM_TAG_RECORD *bucket_of(uint64_t tag)
{
    return &heap.buckets[tag % ZR_MEMM_BUCKET_COUNT];
}

record_note *note_of_head(uint64_t tag)
{
    return &notes_of_heads[tag % ZR_MEMM_BUCKET_COUNT];
}

// Tag 0 finds a vacant record of the table: its blocks are recorded there without claiming the record.
[[gnu::always_inline]] inline noted_record find_record(uint64_t tag)
{
    ZT_MEMM_TAG_RECORD *head = bucket_of(tag);
    if (head->tag == tag)
        return {head, note_of_head(tag)};
    return find_chained_record(head, tag);
}

// The first element of either chain is embedded in its owner; all others are heap blocks.
template <typename Link> bool is_embedded(const Link &element)
{
    return element.previous == nullptr;
}

template <typename Link> void link_in_second_place(Link *first, Link *added)
{
    added->previous = first;
    added->next = first->next;
    if (first->next != nullptr)
        first->next->previous = added;
    first->next = added;
}

// Not for the embedded first element, which is never unlinked.
template <typename Link> void unlink_and_release(Link *element)
{
    element->previous->next = element->next;
    if (element->next != nullptr)
        element->next->previous = element->previous;
    free(element);  // NOLINT(clang-analyzer-unix.Malloc): what has one in front of it is on the heap
}

template <typename Record> Record *allocate_zeroed()
{
    return static_cast<Record *>(calloc(1, sizeof(Record)));
}

// A record for a tag that has none, or null when it cannot be had. A vacant record of the table is claimed
// first and keeps its place at the head of the chain. Its node is empty, but for the blocks of tag 0, which
// are in the first bucket's: zeroing that one is what discards them.
[[gnu::noinline]] noted_record create_record(uint64_t tag)
{
    ZT_MEMM_TAG_RECORD *head = bucket_of(tag);
    if (head->tag == 0) {
        if (head == bucket_of(0)) {
            drop_note(note_of_head(0));
            head->first_node = {};
        }
        head->tag = tag;
        return {head, note_of_head(tag)};
    }
    auto *record = allocate_zeroed<ZT_MEMM_TAG_RECORD>();
    if (record == nullptr)
        return {nullptr, nullptr};
    record->tag = tag;
    link_in_second_place(head, record);
    return {record, add_chained_record(record)};
}

// The end of a record whose node is all zero. A record of the table turns vacant and stays the head of its
// chain.
void remove_record(noted_record noted)
{
    drop_note(noted.note);
    if (is_embedded(*noted.record)) {
        noted.record->tag = 0;
        return;
    }
    remove_chained_record(noted.record);
    unlink_and_release(noted.record);
}

// ---- Nodes and slots

[[gnu::noinline]] slot_position find_slot_by_walking(noted_record noted, LPVOID block)
{
    record_note *note = noted.note;
    if (is_due_to_become_long(*note))
        become_long_owner(noted.record, note);
    if (note->owner != 0)
        return find_slot_of_long_owner(note->owner, block);

    uint32_t examined = 0;
    uint32_t place = NO_PLACE;
    slot_position found = {};
    for (ZT_MEMM_NODE *node = &noted.record->first_node; node != nullptr; node = node->next) {
        if (node == note->full_from)
            place = BEHIND_FULL_FROM;
        const uint32_t i = index_of_block(*node, block);
        if (i < ZR_MEMM_NODE_SLOTS) {
            found = slot_at(node, i, place);
            break;
        }
        ++examined;
    }
    count_lookup(note, examined);
    return found;
}

// The first slot that holds `block`. A null block finds the first vacant slot.
[[gnu::always_inline]] inline slot_position find_slot(noted_record noted, LPVOID block)
{
    if (noted.note->owner != 0)
        return find_slot_of_long_owner(noted.note->owner, block);
    return find_slot_by_walking(noted, block);
}

// What is taken must be occupied next.
slot_position take_vacant_slot(noted_record noted)
{
    if (noted.note->owner != 0)
        return take_first_vacant_slot(owners[noted.note->owner]);
    const ZT_MEMM_NODE *full_from = noted.note->full_from;
    for (ZT_MEMM_NODE *node = &noted.record->first_node; node != nullptr && node != full_from;
         node = node->next) {
        const uint32_t i = vacant_slot_of(*node);
        if (i < ZR_MEMM_NODE_SLOTS)
            return slot_at(node, i, NO_PLACE);
    }
    return {};
}

// A new node in second place, when no other one offers a slot.
[[gnu::noinline]] slot_position take_slot_of_new_node(noted_record noted)
{
    auto *added = allocate_zeroed<ZT_MEMM_NODE>();
    if (added == nullptr)
        return {};
    link_in_second_place(&noted.record->first_node, added);
    return take_slot_of_added_node(noted.note, added);
}

// Record a block under a tag; false, and nothing changed, when the bookkeeping cannot be had. A record
// created here has a vacant slot of its own, so a failure for want of a node never leaves a new record.
[[gnu::always_inline]] inline bool record_block(uint64_t tag, LPVOID block, uint64_t size)
{
    noted_record noted = find_record(tag);
    if (noted.record == nullptr)
        noted = create_record(tag);
    if (noted.record == nullptr)
        return false;
    slot_position position = take_vacant_slot(noted);
    if (position.node == nullptr)
        position = take_slot_of_new_node(noted);
    if (position.node == nullptr)
        return false;
    ++position.node->count;
    position.slot() = {ZR_MEMM_FLAG_RECORDED, size, block};
    note_occupied_slot(noted.note, position);
    return true;
}

// Vacant slots are all zero already.
void clear_slots(ZT_MEMM_NODE *node)
{
    for (ZT_MEMM_SLOT &slot : node->slots)
        if (slot.block != nullptr)
            slot = {};
}

// An empty node has none unless its count was wrong: no branch for each slot.
bool has_blocks(const ZT_MEMM_NODE &node)
{
    uintptr_t bits = 0;
    for (const ZT_MEMM_SLOT &slot : node.slots)
        bits |= reinterpret_cast<uintptr_t>(slot.block);
    return bits != 0;
}

// A record goes only when its inline node empties while no other node follows. If the inline node empties
// first, the record stays until a later block of that node or the whole tag is released: until then a
// release of the tag reports 0 blocks rather than an unknown tag.
[[gnu::noinline]] void retire_empty_node(noted_record noted, slot_position position)
{
    ZT_MEMM_NODE *node = position.node;
    note_empty_node(noted.note, position);
    if (!is_embedded(*node)) {
        unlink_and_release(node);
        return;
    }
    if (has_blocks(*node)) [[unlikely]]
        clear_slots(node);
    if (node->next == nullptr)
        remove_record(noted);
}

[[gnu::always_inline]] inline void clear_slot(noted_record noted, slot_position position)
{
    note_vacated_slot(noted.note, position);
    position.slot() = {};
    if (--position.node->count == 0)
        retire_empty_node(noted, position);
}

// ---- Releasing many blocks

// The heap looks at each block that it is given back. Asking for all of them at once, the first is waited for
// and the others come meanwhile.
LONG release_blocks_of_node(const ZT_MEMM_NODE &node)
{
    for (const ZT_MEMM_SLOT &slot : node.slots)
        __builtin_prefetch(slot.block);
    LONG released = 0;
    for (const ZT_MEMM_SLOT &slot : node.slots) {
        if (slot.block != nullptr) {
            free(slot.block);
            ++released;
        }
    }
    return released;
}

// Release all blocks of a record, and each node on the heap once its blocks are gone. The inline node is all
// zero then.
LONG release_blocks_of_record(ZT_MEMM_TAG_RECORD *record)
{
    ZT_MEMM_NODE *first = &record->first_node;
    LONG released = release_blocks_of_node(*first);
    for (ZT_MEMM_NODE *node = first->next; node != nullptr;) {
        released += release_blocks_of_node(*node);
        ZT_MEMM_NODE *next = node->next;
        free(node);
        node = next;
    }
    clear_slots(first);
    first->count = 0;
    first->next = nullptr;
    return released;
}

LONG release_bucket(ZT_MEMM_TAG_RECORD *head)
{
    drop_note(note_of_head(static_cast<uint64_t>(head - heap.buckets)));
    LONG released = release_blocks_of_record(head);
    for (ZT_MEMM_TAG_RECORD *record = head->next; record != nullptr;) {
        if (record_note *note = note_kept_for(record))
            drop_note(note);
        released += release_blocks_of_record(record);
        ZT_MEMM_TAG_RECORD *next = record->next;
        remove_chained_record(record);
        free(record);
        record = next;
    }
    head->tag = 0;
    head->next = nullptr;
    return released;
}

}  // namespace

void ZR_mem_init(void)
{
}

uint64_t ZR_memm_unique_tag_get(const CHAR *, INT)
{
    return heap.unique_tag_counter++ | ZR_MEMM_UNIQUE_TAG_BIT;
}

LPVOID ZR_memm_alloc(uint64_t tag, uint64_t size, const CHAR *, INT)
{
    LPVOID block = malloc(size);
    if (block == nullptr)
        return nullptr;
    if (!record_block(tag, block, size)) {
        free(block);
        return nullptr;
    }
    return block;
}

LPVOID ZR_memm_associate(uint64_t tag, LPVOID block, uint64_t size)
{
    if (block == nullptr || !record_block(tag, block, size))
        return nullptr;
    return block;
}

LPVOID ZR_memm_free(uint64_t tag, LPVOID block, const CHAR *, INT)
{
    if (block == nullptr)
        return nullptr;
    const noted_record noted = find_record(tag);
    if (noted.record == nullptr)
        return block;
    const slot_position position = find_slot(noted, block);
    if (position.node == nullptr)
        return block;
    free(block);
    clear_slot(noted, position);
    return nullptr;
}

LPVOID ZR_memm_realloc(uint64_t tag, LPVOID block, uint64_t size, const CHAR *file, INT line)
{
    const noted_record noted = find_record(tag);
    if (noted.record == nullptr)
        return nullptr;
    const slot_position position = find_slot(noted, block);
    if (position.node == nullptr)
        return nullptr;
    // Read before the allocation: a null block has found a vacant slot, which the new block may take.
    const uint64_t recorded_size = position.slot().size;

    LPVOID moved = ZR_memm_alloc(tag, size, file, line);
    if (moved == nullptr) {
        ZR_memm_free(tag, block, file,
                     line);  // unlike realloc: the old block is lost, callers must not touch it
        return nullptr;
    }
    const uint64_t kept_bytes = size < recorded_size ? size : recorded_size;
    if (kept_bytes != 0)  // a null block has nothing recorded
        memcpy(moved, block, kept_bytes);
    ZR_memm_free(tag, block, file, line);
    return moved;
}

LPVOID ZR_memm_disassociate(uint64_t tag, LPVOID block)
{
    const noted_record noted = find_record(tag);
    if (noted.record == nullptr)
        return block;
    const slot_position position = find_slot(noted, block);
    if (position.node == nullptr)
        return block;
    // A null block gets here with a vacant slot and leaves its node's count one too low. A caller that passes
    // one may later see the node go while a block is still recorded in it.
    clear_slot(noted, position);
    return nullptr;
}

LONG ZR_memm_free_all(uint64_t tag)
{
    const noted_record noted = find_record(tag);
    if (noted.record == nullptr)
        return -1;
    drop_note(noted.note);
    const LONG released = release_blocks_of_record(noted.record);
    remove_record(noted);
    return released;
}

uint64_t ZR_memm_flags(uint64_t tag, LPVOID block)
{
    const noted_record noted = find_record(tag);
    if (noted.record == nullptr)
        return 0;
    const slot_position position = find_slot(noted, block);
    return position.node != nullptr ? position.slot().flags : 0;
}

LONG ZR_memm_cleanup(void)
{
    LONG released = 0;
    for (ZT_MEMM_TAG_RECORD &head : heap.buckets)
        released += release_bucket(&head);
    return released;
}

// ---- Pointer array ------------------------------------------------------------------------------------

namespace {

constexpr CHAR SOURCE_NAME[] = "dt_types";

constexpr ZT_ERRCOUNT SUCCESS = 0;

// The record behind a valid handle, otherwise null.
ZT_ARRAY_PTR *array_behind(ZT_DT_ANY *handle)
{
    auto *array = reinterpret_cast<ZT_ARRAY_PTR *>(handle);
    const bool is_valid =
        array != nullptr && array->magic == ZR_ARRAY_PTR_MAGIC && array->size == sizeof(ZT_ARRAY_PTR);
    return is_valid ? array : nullptr;
}

bool is_in_sorted_mode(const ZT_ARRAY_PTR &array)
{
    return array.sorted != 0 && array.compare != nullptr;
}

template <typename Value> void store_if_wanted(Value *out, Value value)
{
    if (out != nullptr)
        *out = value;
}

void copy_elements(LPVOID *destination, const LPVOID *source, uint64_t count)
{
    if (count != 0)  // either vector may be null when there is nothing to copy
        memcpy(destination, source, count * sizeof *destination);
}

// A vector under the array's tag, or null. One whose size in bytes does not fit 64 bits cannot be had.
LPVOID *allocate_slots(const ZT_ARRAY_PTR &array, uint64_t slot_count)
{
    if (slot_count > UINT64_MAX / sizeof(LPVOID))
        return nullptr;
    return static_cast<LPVOID *>(
        ZR_memm_alloc(array.tag, slot_count * sizeof(LPVOID), SOURCE_NAME, __LINE__));
}

// Releases the old vector; its elements have been copied by now.
void replace_slots(ZT_ARRAY_PTR *array, LPVOID *slots, uint64_t capacity)
{
    if (array->slots != nullptr)
        ZR_memm_free(array->tag, array->slots, SOURCE_NAME, __LINE__);
    array->slots = slots;
    array->capacity = capacity;
}

// Replace the vector by one of another capacity that holds all elements; 0 gives no vector. False, and
// nothing changed, when it cannot be had.
bool change_capacity(ZT_ARRAY_PTR *array, uint64_t capacity)
{
    LPVOID *slots = nullptr;
    if (capacity != 0) {
        slots = allocate_slots(*array, capacity);
        if (slots == nullptr)
            return false;
        copy_elements(slots, array->slots, array->count);
    }
    replace_slots(array, slots, capacity);
    return true;
}

bool grow_if_full(ZT_ARRAY_PTR *array)
{
    if (array->count < array->capacity)
        return true;
    // An increment of 0, or one that wraps, would add no room.
    const uint64_t capacity = array->capacity + array->increment;
    return capacity > array->count && change_capacity(array, capacity);
}

// Gives back every whole increment of free slots. When the smaller vector cannot be had the old one stays.
void shrink_if_an_increment_is_free(ZT_ARRAY_PTR *array)
{
    const uint64_t free_slots = array->capacity - array->count;
    if (array->increment == 0 || free_slots < array->increment)
        return;
    change_capacity(array, array->capacity - free_slots / array->increment * array->increment);
}

void append(ZT_ARRAY_PTR *array, LPVOID element, uint64_t *index)
{
    array->slots[array->count] = element;
    store_if_wanted(index, array->count);
    ++array->count;
}

struct search_result {
    bool is_found;
    uint64_t index;
};

// The first element that compares greater. The scan counts in 32 bits.
search_result first_greater(const ZT_ARRAY_PTR &array, LPVOID element)
{
    for (UINT i = 0; i < array.count; ++i)
        if (array.compare(array.slots[i], element) > 0)
            return {true, i};
    return {false, 0};
}

// Always moves to a fresh vector, even when there is room. The old one is copied to its end, not only to
// the last element. False, and nothing changed, when the vector cannot be had.
bool insert_by_rebuild(ZT_ARRAY_PTR *array, uint64_t index, LPVOID element)
{
    LPVOID *slots = allocate_slots(*array, array->capacity);
    if (slots == nullptr)
        return false;
    copy_elements(slots, array->slots, index);
    copy_elements(slots + index + 1, array->slots + index, array->capacity - index - 1);
    slots[index] = element;
    replace_slots(array, slots, array->capacity);
    ++array->count;
    return true;
}

// Adding where an append to free slots will not do. Out of line, so that this append saves no registers.
[[gnu::noinline]] ZT_ERRCOUNT grow_or_insert(ZT_ARRAY_PTR *array, LPVOID element, uint64_t *index)
{
    if (!grow_if_full(array))
        return ZR_ERR_NO_MEMORY;

    search_result greater = {false, 0};
    if (is_in_sorted_mode(*array))
        greater = first_greater(*array, element);
    if (!greater.is_found) {
        append(array, element, index);
        return SUCCESS;
    }
    // A refused rebuild is reported as success: callers learn of it by the unwritten index alone. The growth
    // above is kept.
    if (insert_by_rebuild(array, greater.index, element))
        store_if_wanted(index, greater.index);
    return SUCCESS;
}

// Two elements a round: comparators are short, and beside their call and return the jump back counts. They
// may change the array, so that count and slots are read anew for each.
search_result search_linear(const ZT_ARRAY_PTR &array, LPVOID key)
{
    const auto matches = [&](uint64_t i) {
        return array.compare(key, array.slots[i]) == 0;
    };
    for (uint64_t i = 0; i < array.count; ++i) {
        if (matches(i))
            return {true, i};
        if (++i >= array.count)
            break;
        if (matches(i))
            return {true, i};
    }
    return {false, 0};
}

// Bounds of 32 bits that include both ends. They move onto the middle, not past it, and of two neighbours
// the upper one is reached by a jump; an element may thus be compared twice. Callers see that sequence.
search_result search_binary(const ZT_ARRAY_PTR &array, LPVOID key)
{
    UINT low = 0;
    UINT high = static_cast<UINT>(array.count - 1);
    for (;;) {
        const UINT middle = (low + high) / 2;
        const INT order = array.compare(key, array.slots[middle]);
        if (order == 0)
            return {true, middle};
        if (middle == (order < 0 ? low : high))
            return {false, 0};
        if (order < 0)
            high = middle;
        else
            low = high - middle == 1 ? high : middle;
    }
}

// Finds nothing without an array.
search_result search(const ZT_ARRAY_PTR *array, LPVOID key)
{
    if (array == nullptr || array->count == 0)
        return {false, 0};
    if (array->sorted == 0)
        return search_linear(*array, key);  // requires a comparator; none is not noticed
    if (array->compare == nullptr)
        return {false, 0};
    return search_binary(*array, key);
}

void take_out(ZT_ARRAY_PTR *array, uint64_t index, bool keep_order)
{
    LPVOID *hole = array->slots + index;
    const uint64_t last = array->count - 1;
    if (keep_order)
        memmove(hole, hole + 1, (last - index) * sizeof *hole);
    else
        *hole = array->slots[last];
    array->count = last;
    array->slots[last] = nullptr;
}

}  // namespace

ZT_ERRCOUNT ZR_array_ptr_alloc(uint64_t tag, ZT_DT_ANY **array, uint64_t increment, INT sorted,
                               ZT_ARRAY_PTR_COMPARE compare)
{
    LPVOID block = ZR_memm_alloc(tag, sizeof(ZT_ARRAY_PTR), SOURCE_NAME, __LINE__);
    if (block == nullptr)
        return ZR_ERR_NO_MEMORY;
    memset(block, 0, sizeof(ZT_ARRAY_PTR));  // padding included
    auto *created = static_cast<ZT_ARRAY_PTR *>(block);
    created->size = sizeof(ZT_ARRAY_PTR);
    created->magic = ZR_ARRAY_PTR_MAGIC;
    created->tag = tag;
    created->increment = increment;
    created->sorted = sorted;
    created->compare = compare;
    *array = reinterpret_cast<ZT_DT_ANY *>(created);
    return SUCCESS;
}

// The record is not wiped: a stale handle may still look valid.
ZT_ERRCOUNT ZR_array_ptr_delete(ZT_DT_ANY *handle)
{
    ZT_ARRAY_PTR *array = array_behind(handle);
    if (array == nullptr)
        return ZR_ERR_REFUSED;
    if (array->slots != nullptr)
        ZR_memm_free(array->tag, array->slots, SOURCE_NAME, __LINE__);
    ZR_memm_free(array->tag, array, SOURCE_NAME, __LINE__);
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_add(ZT_DT_ANY *handle, LPVOID element, uint64_t *index)
{
    ZT_ARRAY_PTR *array = array_behind(handle);
    if (array == nullptr)
        return ZR_ERR_REFUSED;
    if (array->count >= array->capacity || is_in_sorted_mode(*array))
        return grow_or_insert(array, element, index);
    append(array, element, index);
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_set(ZT_DT_ANY *handle, uint64_t index, LPVOID element)
{
    ZT_ARRAY_PTR *array = array_behind(handle);
    if (array == nullptr || is_in_sorted_mode(*array) || index >= array->count)
        return ZR_ERR_REFUSED;
    array->slots[index] = element;
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_get(ZT_DT_ANY *handle, uint64_t index, LPVOID *element)
{
    const ZT_ARRAY_PTR *array = array_behind(handle);
    if (array == nullptr || index >= array->count)
        return ZR_ERR_REFUSED;
    store_if_wanted(element, array->slots[index]);
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_find(ZT_DT_ANY *handle, LPVOID key, LPVOID *element)
{
    const ZT_ARRAY_PTR *array = array_behind(handle);
    const search_result match = search(array, key);
    if (!match.is_found)
        return ZR_ERR_REFUSED;
    store_if_wanted(element, array->slots[match.index]);
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_index_get(ZT_DT_ANY *handle, LPVOID key, uint64_t *index)
{
    const search_result match = search(array_behind(handle), key);
    if (!match.is_found)
        return ZR_ERR_REFUSED;
    store_if_wanted(index, match.index);
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_count_get(ZT_DT_ANY *handle, uint64_t *count)
{
    const ZT_ARRAY_PTR *array = array_behind(handle);
    if (array == nullptr)
        return ZR_ERR_REFUSED;
    store_if_wanted(count, array->count);
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_remove_ex(ZT_DT_ANY *handle, uint64_t index, uint64_t *removed, uint64_t keep_order)
{
    ZT_ARRAY_PTR *array = array_behind(handle);
    if (array == nullptr)
        return ZR_ERR_REFUSED;
    const bool is_in_range = index < array->count;
    if (is_in_range)
        take_out(array, index, keep_order != 0);
    store_if_wanted(removed, uint64_t{is_in_range});
    shrink_if_an_increment_is_free(array);  // also catches up on an earlier shrink that was refused
    return SUCCESS;
}

ZT_ERRCOUNT ZR_array_ptr_remove(ZT_DT_ANY *handle, uint64_t index, uint64_t *removed)
{
    return ZR_array_ptr_remove_ex(handle, index, removed, 0);
}

INT _ZR_array_ptr_check(ZT_DT_ANY *handle)
{
    return array_behind(handle) != nullptr;
}

INT ZR_compare_pointers(LPVOID a, LPVOID b)
{
    return static_cast<INT>(reinterpret_cast<uintptr_t>(a) - reinterpret_cast<uintptr_t>(b));
}
