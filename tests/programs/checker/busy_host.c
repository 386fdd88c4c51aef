/* Hosts that hardly do anything but call the library, for the cost of checking them.
 *
 *   busy_host WORK ROUNDS */
#include <foundation/foundation.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define HERE __FILE__, __LINE__

enum { BLOCKS = 100, MANY_BLOCKS = 20000, ELEMENTS = 1000, USED_BYTES = 64 };

static LPVOID used_block(uint64_t tag, int i)
{
    const uint64_t size = (uint64_t)(i % 7 + 1) * USED_BYTES;
    LPVOID block = ZR_memm_alloc(tag, size, HERE);
    if (block == NULL)
        exit(EXIT_FAILURE);
    return memset(block, i, size);
}

/* Half of the blocks are released one by one, half with their owner. */
static void owners(void)
{
    const uint64_t tag = ZR_memm_unique_tag_get(HERE);
    LPVOID blocks[BLOCKS];
    for (int i = 0; i < BLOCKS; i++)
        blocks[i] = used_block(tag, i);
    for (int i = 0; i < BLOCKS; i += 2)
        ZR_memm_free(tag, blocks[i], HERE);
    ZR_memm_free_all(tag);
}

/* Far more blocks than the processor's caches hold records of. */
static void one_owner(void)
{
    const uint64_t tag = ZR_memm_unique_tag_get(HERE);
    static LPVOID blocks[MANY_BLOCKS];
    for (int i = 0; i < MANY_BLOCKS; i++)
        blocks[i] = used_block(tag, i);
    for (int i = 0; i < MANY_BLOCKS; i += 2)
        blocks[i] = ZR_memm_realloc(tag, blocks[i], 2 * USED_BYTES, HERE);
    for (int i = 0; i < MANY_BLOCKS; i += 4)
        ZR_memm_free(tag, blocks[i], HERE);
    ZR_memm_free_all(tag);
}

static INT by_address(LPVOID a, LPVOID b)
{
    return a < b ? -1 : a > b;
}

static void arrays(void)
{
    static char elements[ELEMENTS];
    const uint64_t tag = ZR_memm_unique_tag_get(HERE);
    ZT_DT_ANY *array;
    if (ZR_array_ptr_alloc(tag, &array, 100, 1, by_address) != 0)
        exit(EXIT_FAILURE);
    for (int i = 0; i < ELEMENTS; i++)
        ZR_array_ptr_add(array, &elements[i * 7 % ELEMENTS], NULL);
    for (int i = 0; i < ELEMENTS; i++) {
        LPVOID found;
        if (ZR_array_ptr_find(array, &elements[i], &found) != 0)
            exit(EXIT_FAILURE);
    }
    ZR_array_ptr_delete(array);
}

/* The host's own heap beside the library's blocks. */
static void own_heap(void)
{
    const uint64_t tag = ZR_memm_unique_tag_get(HERE);
    for (int i = 0; i < BLOCKS; i++)
        used_block(tag, i);
    for (int i = 0; i < 50 * BLOCKS; i++)
        free(memset(malloc(USED_BYTES), i, USED_BYTES));
    ZR_memm_free_all(tag);
}

static const struct work {
    const char *name;
    void (*perform)(void);
} works[] = {{"owners", owners}, {"one_owner", one_owner}, {"arrays", arrays}, {"own_heap", own_heap}};

int main(int argument_count, char **arguments)
{
    for (size_t i = 0; i < sizeof works / sizeof *works; i++) {
        if (argument_count == 3 && strcmp(arguments[1], works[i].name) == 0) {
            for (int round = 0; round < atoi(arguments[2]); round++)
                works[i].perform();
            return EXIT_SUCCESS;
        }
    }
    fprintf(stderr, "busy_host WORK ROUNDS\n");
    return EXIT_FAILURE;
}
