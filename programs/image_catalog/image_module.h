/* What the host program and its modules agree on.
 *
 * Each module is a shared object named by OS_sys_compfilename_create ("png" gives "libQVpng17.so") that
 * stands beside the host's executable and exports one function, image_module_read. The host hands it a whole
 * file; the module keeps nothing, allocates nothing and may be called by several threads at once. */
#ifndef IMAGE_MODULE_H
#define IMAGE_MODULE_H

#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define IMAGE_MODULE_FUNCTION "image_module_read"

/* Room for the longest reason and its terminator. */
#define IMAGE_PROBLEM_SIZE 192

/* What a file says about its image. Zeroed by the host before the call. */
typedef struct IMAGE_FACTS {
    uint64_t width;                   /* pixels, 1..2^31 - 1; 0 unknown            */
    uint64_t height;                  /* likewise                                  */
    uint64_t dpi_x;                   /* dots per inch; 0 when the file names none */
    uint64_t dpi_y;                   /* likewise                                  */
    CHAR problem[IMAGE_PROBLEM_SIZE]; /* why the file is bad; empty when it is not */
} IMAGE_FACTS;

/* Read the `size` bytes of a file at `data`, the kind's signature included, into `facts`. Facts found before
 * a problem stay. */
typedef void (*IMAGE_MODULE_READ)(const BYTE *data, uint64_t size, IMAGE_FACTS *facts);

#if defined(__GNUC__)
__attribute__((visibility("default")))
#endif
void image_module_read(const BYTE *data, uint64_t size, IMAGE_FACTS *facts);

#ifdef __cplusplus
}
#endif

#endif
