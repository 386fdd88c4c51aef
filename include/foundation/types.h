/* Base types, status values and the opaque object handle shared by every family.
 *
 * Plain C99 and C++11 or newer. The types have the same size in every program that uses the library.
 *
 * Status values. Each family keeps its own convention; they are not unified, because callers test for these
 * very values:
 *
 *   family                                   success                failure
 *   pointer array (array.h)                  0                      -1, -1000
 *   memory manager (memory.h)                the block, a count,    null; the pointer given when it
 *                                            null from a release    is not recorded; -1 unknown tag
 *     ZR_memm_flags                          2, recorded            0, not recorded
 *   sections, mutexes and events (os.h)      1, also for a null     0
 *                                            handle
 *     OS_mutex_ID_allocate                   0                      -4820
 *     OS_mutex_ID_free                       0                      none
 *   date texts (date.h)                      1                      0
 *   resolution conversion (util.h)           0                      -2445
 *   system services (os.h)                   the platform's own     null or -1, and 0 where a function
 *                                            result, a length, 0    says so; errno is left as the
 *                                                                   platform set it
 */
#ifndef FOUNDATION_TYPES_H
#define FOUNDATION_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef char CHAR;     /* 1 byte; plain `char`, so that literals fit. Signed: no -funsigned-char */
typedef uint8_t BYTE;  /* 1 byte, unsigned  */
typedef int16_t SHORT; /* 2 bytes, signed   */
typedef uint16_t WORD; /* 2 bytes, unsigned */
typedef int32_t INT;   /* 4 bytes, signed   */
typedef uint32_t UINT; /* 4 bytes, unsigned */
typedef int64_t LONG;  /* 8 bytes, signed   */

typedef int32_t ZT_BOOL;     /* 1 true, 0 false                 */
typedef int32_t ZT_ERRCOUNT; /* a status value; see the table   */
typedef uint64_t ZT_MODE;    /* a mode or flag word             */

typedef void *LPVOID; /* to anything */
typedef BYTE *LPBYTE; /* to bytes    */
typedef WORD *LPWORD; /* to words    */

/* An object of the library whose record stays private, such as a pointer array. */
typedef struct ZT_DT_ANY ZT_DT_ANY;

#ifdef __cplusplus
}
#endif

#endif
