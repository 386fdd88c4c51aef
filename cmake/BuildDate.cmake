# The build date is that of the link. Its header is written anew, and the one unit that includes it compiled
# anew, whenever something changes that the library is linked from.
set(QV_BUILD_DATE_HEADER ${PROJECT_BINARY_DIR}/generated/build_date.h)
set(link_flags_file ${PROJECT_BINARY_DIR}/generated/link_flags.txt)
file(CONFIGURE OUTPUT ${link_flags_file} CONTENT "${CMAKE_SHARED_LINKER_FLAGS}\n" @ONLY)
list(TRANSFORM library_sources PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE library_source_files)
list(TRANSFORM library_headers PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE library_header_files)
add_custom_command(
    OUTPUT ${QV_BUILD_DATE_HEADER}
    COMMAND ${CMAKE_COMMAND} -D OUTPUT=${QV_BUILD_DATE_HEADER}
            -P ${PROJECT_SOURCE_DIR}/cmake/WriteBuildDate.cmake
    DEPENDS ${library_source_files} ${library_header_files} ${QV_VERSION_SCRIPT} ${QV_DYNAMIC_LIST}
            ${link_flags_file} ${PROJECT_SOURCE_DIR}/CMakeLists.txt
            ${PROJECT_SOURCE_DIR}/cmake/WriteBuildDate.cmake
    COMMENT "Writing the build date"
    VERBATIM)
set_source_files_properties(foundation/util/build_date.cpp PROPERTIES
    INCLUDE_DIRECTORIES ${PROJECT_BINARY_DIR}/generated)
