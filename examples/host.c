/* A host and a module: the host lends the module a tag, and takes back all that was allocated under it.
 *
 *   host [FOLDER]     FOLDER holds the module; the current one where none is given
 */
#include <foundation/memory.h>
#include <foundation/os.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef const char *(*greet_function)(uint64_t tag, const char *name);

/* Load the module of a base name from a folder. Returns a handle or null. */
static LPVOID load_module(const char *folder, const char *base)
{
    CHAR name[64] = "", path[4096] = "";
    if (OS_sys_compfilename_create(base, name, sizeof name - 1) <= 0)
        return NULL;
    printf("%s\n", name);
    /* A name without "/" would be searched for on the system. The limit of one less than the zero-filled
     * buffer keeps the text terminated. */
    OS_sys_path_concat(folder, name, path, sizeof path - 1);
    return OS_sys_module_load(path);
}

/* Look a function up. ISO C converts no object pointer to one to a function, and POSIX promises that both
 * have the same representation: so its bytes are copied. */
static greet_function look_up_greet(LPVOID module)
{
    greet_function greet = NULL;
    const LPVOID address = OS_sys_sym_get(module, "greeter_greet");
    memcpy(&greet, &address, sizeof greet);
    return greet;
}

int main(int argc, char **argv)
{
    const char *folder = argc > 1 ? argv[1] : ".";
    const LPVOID module = load_module(folder, "greeter");
    const greet_function greet = module != NULL ? look_up_greet(module) : NULL;
    if (greet == NULL) {
        fprintf(stderr, "host: there is no greeter that can be loaded in %s; usage: host [FOLDER]\n", folder);
        return EXIT_FAILURE;
    }

    const uint64_t tag =
        ZR_memm_unique_tag_get(__FILE__, __LINE__); /* the module's, as long as it is loaded */
    const char *first = greet(tag, "Ada"), *second = greet(tag, "Grace");
    if (first != NULL && second != NULL)
        printf("%s\n%s\n", first, second);

    /* First the tag, then the module: what is released last must not lie in code that is gone. */
    printf("blocks taken back from the module: %ld\n", (long)ZR_memm_free_all(tag));
    printf("unloaded: %s\n", OS_sys_module_unload(module) == 0 ? "yes" : "no");
    return EXIT_SUCCESS;
}

/* Prints:
 * libQVgreeter17.so
 * Good morning, Ada!
 * Good morning, Grace!
 * blocks taken back from the module: 2
 * unloaded: yes
 */
