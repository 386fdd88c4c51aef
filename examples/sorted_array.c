/* A sorted array: the comparator keeps the order, and finds an element by a part of it. */
#include <foundation/array.h>
#include <foundation/memory.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The array holds pointers alone; what they point to is the program's, here constants. */
struct city {
    const char *name;
    int inhabitants; /* in thousands */
};
static struct city cities[] = {{"Paris", 2100}, {"Athens", 640}, {"Lisbon", 550}, {"Vienna", 1980}};

/* Searches pass the key first, and a city that holds nothing but a name serves as a key. */
static INT by_name(LPVOID a, LPVOID b)
{
    return strcmp(((struct city *)a)->name, ((struct city *)b)->name);
}

int main(void)
{
    const uint64_t tag = ZR_memm_unique_tag_get(__FILE__, __LINE__);
    ZT_DT_ANY *array;
    if (ZR_array_ptr_alloc(tag, &array, 10, 1, by_name) != 0) /* 10 slots at a time; 1 for sorted */
        return EXIT_FAILURE;

    for (size_t i = 0; i < sizeof cities / sizeof *cities; i++) {
        /* An insertion that runs out of memory can report success, but then it leaves the index alone. */
        uint64_t place = UINT64_MAX;
        if (ZR_array_ptr_add(array, &cities[i], &place) != 0 || place == UINT64_MAX)
            return EXIT_FAILURE;
        printf("%s goes to place %" PRIu64 "\n", cities[i].name, place);
    }

    struct city key = {"Vienna", 0};
    LPVOID found;
    if (ZR_array_ptr_find(array, &key, &found) == 0) /* the element itself comes back, not the key */
        printf("%s has %d thousand inhabitants\n", key.name, ((struct city *)found)->inhabitants);

    /* Only a removal that keeps the order (the last argument) leaves the array fit for searches. */
    uint64_t index;
    key.name = "Athens";
    if (ZR_array_ptr_index_get(array, &key, &index) == 0)
        ZR_array_ptr_remove_ex(array, index, NULL, 1);

    uint64_t count = 0;
    ZR_array_ptr_count_get(array, &count);
    for (uint64_t i = 0; i < count; i++) {
        LPVOID city;
        if (ZR_array_ptr_get(array, i, &city) == 0)
            printf("%" PRIu64 ": %s\n", i, ((struct city *)city)->name);
    }

    ZR_memm_free_all(tag); /* the array lives under its tag; ZR_array_ptr_delete would release it alone */
    return EXIT_SUCCESS;
}

/* Prints:
 * Paris goes to place 0
 * Athens goes to place 0
 * Lisbon goes to place 1
 * Vienna goes to place 3
 * Vienna has 1980 thousand inhabitants
 * 0: Lisbon
 * 1: Paris
 * 2: Vienna
 */
