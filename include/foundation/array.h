/* Pointer array: a growable vector of pointers, in insertion order or in a comparator's order.
 *
 * An array's record and its vector are allocated through the memory manager under the tag given at
 * creation, so releasing that tag releases the array (its handle then dangles). The array never looks at
 * what its elements point to and never releases them.
 *
 * Status results (ZT_ERRCOUNT):
 *      0                      success
 *     -1  ZR_ERR_REFUSED      invalid handle, index out of range, nothing found, or operation refused
 *  -1000  ZR_ERR_NO_MEMORY    memory could not be obtained
 * Every operation but creation first checks its handle (see _ZR_array_ptr_check) and returns -1 when the
 * check fails, as for null; it cannot be relied upon for a handle that dangles. An out-parameter is written
 * only on success, unless said otherwise, and may be null unless said otherwise.
 *
 * Sorted mode: an array created with a sorted flag other than 0 and a comparator keeps the comparator's
 * ascending order; equal elements keep their order of insertion.
 *
 * Cost: growing copies everything, by a fixed increment; so does every insertion in sorted mode before the
 * end, and every removal that leaves one whole increment of slots free. An insertion in sorted mode calls
 * the comparator for each element up to its place; a binary search is logarithmic. Both count in 32 bits: a
 * binary search works up to 2^31 elements, an insertion in sorted mode up to 2^32.
 *
 * Threads: no operation takes a lock. One array is used by one thread at a time, reading included, and the
 * CALLER serialises creating, deleting, adding and removing with the memory manager's calls (memory.h).
 */
#ifndef FOUNDATION_ARRAY_H
#define FOUNDATION_ARRAY_H

#include "foundation/attributes_begin.h"
#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status results: see the table of the family. */
#define ZR_ERR_REFUSED (-1)
#define ZR_ERR_NO_MEMORY (-1000)

/* Compares two elements: negative, zero or positive as `a` is below, equal to or above `b`. Searches pass the
 * key first and the stored element second; sorted insertion passes the stored element first and the new one
 * second. It must not change the array that it is called for: the vector may move under the operation. */
typedef INT (*ZT_ARRAY_PTR_COMPARE)(LPVOID a, LPVOID b);

/* Create an empty array under `tag` and store its handle through `array` (must not be null). The vector
 * grows and shrinks by `increment` slots, at least 1; an array created with 0 never holds an element, adding
 * gives -1000. `compare` may be null: then elements stay in insertion order, and the array must not be
 * searched if `sorted` is 0 (if it is not, searches give -1). Returns 0, or -1000 with `*array` unwritten. */
ZT_ERRCOUNT ZR_array_ptr_alloc(uint64_t tag, ZT_DT_ANY **array, uint64_t increment, INT sorted,
                               ZT_ARRAY_PTR_COMPARE compare) FOUNDATION_NONNULL(2);

/* Release the vector and the record. Returns 0 or -1. The handle must not be used afterwards. */
ZT_ERRCOUNT ZR_array_ptr_delete(ZT_DT_ANY *array);

/* Add `element` (any value, null included): in sorted mode in front of the first element that compares
 * greater, otherwise, and where there is none, at the end. `index` receives its place. Returns 0; -1; or
 * -1000, array unchanged, when it cannot grow. In sorted mode an insertion before the end that cannot get its
 * new vector also gives 0, adds nothing and leaves `*index` unwritten. So set it to UINT64_MAX before the
 * call; where it still is that behind a 0, nothing was added. */
ZT_ERRCOUNT ZR_array_ptr_add(ZT_DT_ANY *array, LPVOID element, uint64_t *index);

/* Overwrite the element at `index`; what was there is the caller's to release. Returns 0, or -1: index not
 * below the count, or array in sorted mode. */
ZT_ERRCOUNT ZR_array_ptr_set(ZT_DT_ANY *array, uint64_t index, LPVOID element);

/* Read the element at `index`. Returns 0, or -1: index not below the count. */
ZT_ERRCOUNT ZR_array_ptr_get(ZT_DT_ANY *array, uint64_t index, LPVOID *element);

/* Find an element for which the comparator gives 0 and store it (not the key) through `element`.
 * Binary search when the sorted flag is set, otherwise linear from the front. Among equal elements a
 * binary search finds any one. Returns 0, or -1 when there is none. */
ZT_ERRCOUNT ZR_array_ptr_find(ZT_DT_ANY *array, LPVOID key, LPVOID *element);

/* ZR_array_ptr_find, but stores the index of the match. */
ZT_ERRCOUNT ZR_array_ptr_index_get(ZT_DT_ANY *array, LPVOID key, uint64_t *index);

/* Store the number of elements. Returns 0 or -1. */
ZT_ERRCOUNT ZR_array_ptr_count_get(ZT_DT_ANY *array, uint64_t *count);

/* Remove the element at `index`. With `keep_order` other than 0 the elements behind it move down by one;
 * with 0 the last element takes its place, which breaks the order of a sorted array. `removed` receives 1,
 * or 0 when the index is not below the count; both return 0. Returns -1 for an invalid handle. */
ZT_ERRCOUNT ZR_array_ptr_remove_ex(ZT_DT_ANY *array, uint64_t index, uint64_t *removed, uint64_t keep_order);

/* ZR_array_ptr_remove_ex with `keep_order` 0, for sorted arrays too: then they may be out of order, and
 * searches miss elements. */
ZT_ERRCOUNT ZR_array_ptr_remove(ZT_DT_ANY *array, uint64_t index, uint64_t *removed);

/* Tell whether `array` is the handle of an array. A pointer that is not null must be readable for 16 bytes.
 * Meant for the library itself. Returns 1 when it is, 0 when it is null or its record does not begin with the
 * size and the magic word of one. */
INT _ZR_array_ptr_check(ZT_DT_ANY *array) FOUNDATION_USE_RESULT;

/* The low 32 bits of the address difference a - b: a comparator for elements that lie less than 2 GiB from
 * each other. Pointers a multiple of 4 GiB apart compare equal. */
INT ZR_compare_pointers(LPVOID a, LPVOID b) FOUNDATION_USE_RESULT;

#ifdef __cplusplus
}
#endif

#include "foundation/attributes_end.h"

#endif
