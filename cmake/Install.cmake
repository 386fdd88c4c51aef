# Installation: library, headers, CMake package, pkg-config module, licence.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS ${QV_LIBRARY} EXPORT QVfoundationTargets INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/foundation DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/QVfoundation)

# The CMake package; the same files serve from the build folder without an installation.
set(QV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QVfoundation)
configure_package_config_file(cmake/QVfoundationConfig.cmake.in QVfoundationConfig.cmake
    INSTALL_DESTINATION ${QV_CMAKE_DIR})
write_basic_package_version_file(QVfoundationConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QVfoundationConfig.cmake ${PROJECT_BINARY_DIR}/QVfoundationConfigVersion.cmake
    DESTINATION ${QV_CMAKE_DIR})
install(EXPORT QVfoundationTargets NAMESPACE QV:: DESTINATION ${QV_CMAKE_DIR})
export(TARGETS ${QV_LIBRARY} NAMESPACE QV:: FILE QVfoundationTargets.cmake)

# The pkg-config module. It tells the prefix by its own place, so it stays right under any prefix of
# `cmake --install` and when the whole is moved. Directories given as absolute ones stay where they are.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(QV_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
    file(RELATIVE_PATH QV_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" QV_PC_PREFIX "\${pcfiledir}/${QV_PC_PREFIX}")
endif()
foreach(directory LIBDIR INCLUDEDIR)
    set(QV_PC_${directory} ${CMAKE_INSTALL_${directory}})
    if(NOT IS_ABSOLUTE ${QV_PC_${directory}})
        string(PREPEND QV_PC_${directory} "\${prefix}/")
    endif()
endforeach()
configure_file(cmake/QVfoundation17.pc.in QVfoundation17.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/QVfoundation17.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The gdb extension. gdb loads it by itself with the library when it lies under a folder of gdb's own,
# share/gdb/auto-load, at the path of the library. That path, like the prefix, is known only when it is installed.
install(CODE "
    set(library_folder \"${CMAKE_INSTALL_LIBDIR}\")
    get_filename_component(library_folder \"\${library_folder}\" REALPATH BASE_DIR \"\${CMAKE_INSTALL_PREFIX}\")
    file(INSTALL
        \"${PROJECT_SOURCE_DIR}/programs/gdb/libQVfoundation17.so-gdb.py\"
        \"${PROJECT_SOURCE_DIR}/programs/gdb/qvfoundation17_gdb\"
        DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATAROOTDIR}/gdb/auto-load\${library_folder}\"
        FILES_MATCHING PATTERN \"*.py\")")

# The reference that scripts/reference has made: manual pages, and the site.
option(QV_INSTALL_REFERENCE "Install what scripts/reference made: manual pages and the HTML reference" OFF)
if(QV_INSTALL_REFERENCE)
    set(QV_REFERENCE ${PROJECT_SOURCE_DIR}/build/reference)
    if(NOT EXISTS ${QV_REFERENCE}/html/index.html)
        message(FATAL_ERROR "QV_INSTALL_REFERENCE: there is no ${QV_REFERENCE}; run scripts/reference first")
    endif()
    install(DIRECTORY ${QV_REFERENCE}/man/man3 DESTINATION ${CMAKE_INSTALL_MANDIR})
    install(DIRECTORY ${QV_REFERENCE}/html DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/QVfoundation)
endif()
