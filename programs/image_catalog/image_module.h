/* What the host program and its modules agree on.
 *
 * Each module is a shared object named by OS_sys_compfilename_create ("png" gives "libQVpng17.so") that
 * exports a function, image_module_read, and a record, image_module_identity, which the host compares with
 * what it asked for before it calls the function. The host hands it a whole file; the module keeps nothing,
 * allocates nothing and may be called by several threads at once. */
#ifndef IMAGE_MODULE_H
#define IMAGE_MODULE_H

#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define IMAGE_MODULE_FUNCTION "image_module_read"
#define IMAGE_MODULE_RECORD "image_module_identity"

/* Raised whenever something in this header changes. */
#define IMAGE_MODULE_VERSION 2

/* Room for the longest reason and its terminator. */
#define IMAGE_PROBLEM_SIZE 192

/* The first thing that the host looks at; its layout never changes. */
typedef struct IMAGE_MODULE_IDENTITY {
    UINT version;  /* IMAGE_MODULE_VERSION of the header it was compiled with */
    CHAR kind[12]; /* "png"                                                   */
} IMAGE_MODULE_IDENTITY;

/* What a file says about its image. Zeroed by the host before the call. */
typedef struct IMAGE_FACTS {
    uint64_t width;                   /* pixels, 1..2^31 - 1; 0 unknown            */
    uint64_t height;                  /* likewise                                  */
    ZT_BOOL has_dpi;                  /* the file names a resolution               */
    uint64_t dpi_x;                   /* dots per inch, rounded: 0 below a half    */
    uint64_t dpi_y;                   /* likewise                                  */
    CHAR problem[IMAGE_PROBLEM_SIZE]; /* why the file is bad; empty when it is not */
} IMAGE_FACTS;

/* Read the `size` bytes of a file at `data`, the kind's signature included, into `facts`. Facts found before
 * a problem stay. */
typedef void (*IMAGE_MODULE_READ)(const BYTE *data, uint64_t size, IMAGE_FACTS *facts);

#if defined(__GNUC__)
#define IMAGE_MODULE_EXPORT __attribute__((visibility("default")))
#else
#define IMAGE_MODULE_EXPORT
#endif

IMAGE_MODULE_EXPORT void image_module_read(const BYTE *data, uint64_t size, IMAGE_FACTS *facts);
IMAGE_MODULE_EXPORT extern const IMAGE_MODULE_IDENTITY image_module_identity;

#ifdef __cplusplus
}
#endif

#endif
