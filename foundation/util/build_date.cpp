// The date on which the library was built, in a unit of its own that is compiled for every link.

#include "build_date.h"  // written by cmake/WriteBuildDate.cmake

#include "foundation/util.h"

const CHAR *iQV_version_compile_date(void)
{
    static const CHAR build_date[] = QV_BUILD_DATE;
    static_assert(sizeof build_date == 12, "Mmm dd yyyy");
    return build_date;
}
