/* Every family of the library, and its version. */
#ifndef FOUNDATION_FOUNDATION_H
#define FOUNDATION_FOUNDATION_H

#include "foundation/array.h"
#include "foundation/date.h"
#include "foundation/memory.h"
#include "foundation/os.h"
#include "foundation/types.h"
#include "foundation/util.h"

/* The version of these headers. The first number is the one in the library's name: programs that were built
 * for it run with every later library of that number. The library itself tells the date of its build
 * (iQV_version_compile_date). */
#define QV_FOUNDATION_VERSION_MAJOR 17
#define QV_FOUNDATION_VERSION_MINOR 0
#define QV_FOUNDATION_VERSION_PATCH 0

/* All in one, for comparisons: QV_FOUNDATION_VERSION >= 170100. */
#define QV_FOUNDATION_VERSION                                                                                \
    (QV_FOUNDATION_VERSION_MAJOR * 10000 + QV_FOUNDATION_VERSION_MINOR * 100 + QV_FOUNDATION_VERSION_PATCH)

#endif
