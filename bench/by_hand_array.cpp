#include "by_hand_array.h"

#include <stdlib.h>
#include <string.h>

static bool is_valid(const plain_array *array)
{
    return array != nullptr && array->magic == PLAIN_ARRAY_MAGIC && array->size == sizeof *array;
}

ZT_ERRCOUNT plain_get(const plain_array *array, uint64_t index, LPVOID *element)
{
    if (!is_valid(array) || index >= array->count)
        return -1;
    if (element != nullptr)
        *element = array->slots[index];
    return 0;
}

ZT_ERRCOUNT plain_add(plain_array *array, LPVOID element, uint64_t *index)
{
    if (!is_valid(array))
        return -1;
    if (array->count >= array->capacity) {
        const uint64_t capacity = array->capacity + array->increment;
        auto *slots = static_cast<LPVOID *>(malloc(capacity * sizeof(LPVOID)));
        if (slots == nullptr)
            return -1000;
        if (array->count != 0)
            memcpy(slots, array->slots, array->count * sizeof(LPVOID));
        free(array->slots);
        array->slots = slots;
        array->capacity = capacity;
    }
    array->slots[array->count] = element;
    if (index != nullptr)
        *index = array->count;
    ++array->count;
    return 0;
}

ZT_ERRCOUNT plain_find(const plain_array *array, LPVOID key, LPVOID *element)
{
    if (!is_valid(array))
        return -1;
    for (uint64_t i = 0; i < array->count; ++i) {
        if (array->compare(key, array->slots[i]) == 0) {
            if (element != nullptr)
                *element = array->slots[i];
            return 0;
        }
    }
    return -1;
}

ZT_ERRCOUNT plain_remove(plain_array *array, uint64_t index, uint64_t *removed)
{
    if (!is_valid(array))
        return -1;
    if (index < array->count) {
        memmove(array->slots + index, array->slots + index + 1, (array->count - index - 1) * sizeof(LPVOID));
        array->slots[--array->count] = nullptr;
    }
    if (removed != nullptr)
        *removed = 1;
    return 0;
}
