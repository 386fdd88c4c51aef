# Run as a script by the build:  cmake -D OUTPUT=FILE -P WriteBuildDate.cmake
#
# Writes a header that defines QV_BUILD_DATE as "Mmm dd yyyy", days 1 to 9 with a leading space, like the
# preprocessor's own date. That one is not used, because not every compiler lets SOURCE_DATE_EPOCH set it.
# A date set so is one of UTC; otherwise it is today's in local time.
cmake_minimum_required(VERSION 3.18)

set(month_names Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
set(utc)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(utc UTC)
endif()
string(TIMESTAMP year_month_day "%Y;%m;%d" ${utc})
list(GET year_month_day 0 year)
list(GET year_month_day 1 month)
list(GET year_month_day 2 day)
string(REGEX REPLACE "^0" "" month ${month})
string(REGEX REPLACE "^0" " " day ${day})
math(EXPR month "${month} - 1")
list(GET month_names ${month} month_name)
file(WRITE ${OUTPUT} "#define QV_BUILD_DATE \"${month_name} ${day} ${year}\"\n")
