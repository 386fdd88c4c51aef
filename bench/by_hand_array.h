// The pointer array's contract as one would write it by hand for oneself: a checked handle, a status, results
// through pointers. In a library of its own, so that calls cross the same boundary as those of the original.
#pragma once

#include "foundation/array.h"

constexpr uint64_t PLAIN_ARRAY_MAGIC = 0x64776172;

struct plain_array {
    uint64_t size, magic, capacity, count, increment;
    LPVOID *slots;
    ZT_ARRAY_PTR_COMPARE compare;
};

ZT_ERRCOUNT plain_get(const plain_array *array, uint64_t index, LPVOID *element);
ZT_ERRCOUNT plain_add(plain_array *array, LPVOID element, uint64_t *index);
ZT_ERRCOUNT plain_find(const plain_array *array, LPVOID key, LPVOID *element);
ZT_ERRCOUNT plain_remove(plain_array *array, uint64_t index, uint64_t *removed);
