/* A module for host.c, built as the shared object libQVgreeter17.so. Whatever it allocates goes under the
 * tag that the host gave it, so it needs no code that cleans up. */
#include <foundation/memory.h>
#include <foundation/os.h>

#include <string.h>

/* What the host looks up by name. Declared in front of its definition, as a header would do it. */
const char *greeter_greet(uint64_t tag, const char *name);

/* A greeting under `tag`, or null when there is no memory. */
const char *greeter_greet(uint64_t tag, const char *name)
{
    static const char format[] = "Good morning, %s!";

    /* OS_sprintf knows no limit, so the buffer holds the longest possible text: the sum of both. */
    char *greeting = ZR_memm_alloc(tag, sizeof format + strlen(name), __FILE__, __LINE__);
    if (greeting != NULL)
        OS_sprintf(greeting, format, name);
    return greeting;
}
