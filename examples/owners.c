/* Owners: every block belongs to a number, its tag, and goes when its owner goes. */
#include <foundation/memory.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The manager takes the call site with every request, so most programs give it through a macro. */
#define HERE __FILE__, __LINE__

int main(void)
{
    const uint64_t document = ZR_memm_unique_tag_get(HERE);
    const uint64_t window = ZR_memm_unique_tag_get(HERE);

    /* Blocks of two owners, made in any order. None of them needs a variable that outlives its use. */
    char *title = ZR_memm_alloc(document, 32, HERE);
    char *label = ZR_memm_alloc(window, 32, HERE);
    if (title == NULL || label == NULL || ZR_memm_alloc(document, 1000, HERE) == NULL)
        return EXIT_FAILURE;
    strcpy(title, "Annual report");
    strcpy(label, "Close");

    /* A block from malloc can be given to an owner later on. Where that fails, it stays ours. */
    void *picture = malloc(4096);
    if (ZR_memm_associate(document, picture, 4096) == NULL) {
        free(picture);
        return EXIT_FAILURE;
    }

    /* A block is freed under its own tag. Under another it is not found, and the call would hand it back. */
    printf("the window has the title: %s\n", ZR_memm_flags(window, title) != 0 ? "yes" : "no");
    printf("the document frees it: %s\n", ZR_memm_free(document, title, HERE) == NULL ? "yes" : "no");

    /* The document is closed: what is left of its blocks goes at once; the window keeps its own. */
    printf("blocks of the closed document: %ld\n", (long)ZR_memm_free_all(document));
    printf("the window's label still reads \"%s\"\n", label);

    printf("blocks of the closed window: %ld\n", (long)ZR_memm_free_all(window));

    /* The end of the program: whatever is left, of every owner. Anything above 0 is a leak. */
    printf("blocks left at the end: %ld\n", (long)ZR_memm_cleanup());
    return EXIT_SUCCESS;
}

/* Prints:
 * the window has the title: no
 * the document frees it: yes
 * blocks of the closed document: 2
 * the window's label still reads "Close"
 * blocks of the closed window: 1
 * blocks left at the end: 0
 */
