# QV_VERSION, read from the header that tells it to programs.
foreach(part MAJOR MINOR PATCH)
    file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/include/foundation/foundation.h line
        REGEX "^#define QV_FOUNDATION_VERSION_${part} ")
    string(REGEX MATCH "[0-9]+$" value "${line}")
    list(APPEND version_parts ${value})
endforeach()
list(JOIN version_parts "." QV_VERSION)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${CMAKE_CURRENT_SOURCE_DIR}/include/foundation/foundation.h)
