/* A host that is not linked with the library: a module brings it, for itself alone. What the module allocates
 * is never released.
 *
 *   unlinked_host MODULE */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argument_count, char **arguments)
{
    const char *(*greet)(uint64_t tag, const char *name) = NULL;
    void *module = argument_count > 1 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    void *address = module != NULL ? dlsym(module, "greeter_greet") : NULL;
    if (address == NULL)
        return EXIT_FAILURE;
    memcpy(&greet, &address, sizeof greet);
    puts(greet(17, "Ada"));
    return EXIT_SUCCESS;
}
