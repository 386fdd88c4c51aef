# The built library, seen from outside.
qv_add_test(binary_test binary/binary_test.cpp)
qv_add_test(hardening_test binary/hardening_test.cpp)
qv_add_test(host_names_test binary/host_names_test.cpp)

qv_add_test(rebuild_test binary/rebuild_test.cpp ONE_PROCESS)
add_dependencies(rebuild_test binary_test checksums_test conversions_test dates_test os_sys_unix_test
    osunix_test)
target_compile_definitions(rebuild_test PRIVATE
    BINARY_TEST="$<TARGET_FILE:binary_test>" CHECKSUMS_TEST="$<TARGET_FILE:checksums_test>"
    CONVERSIONS_TEST="$<TARGET_FILE:conversions_test>" DATES_TEST="$<TARGET_FILE:dates_test>"
    OSUNIX_TEST="$<TARGET_FILE:osunix_test>"
    OS_SYS_UNIX_TEST="$<TARGET_FILE:os_sys_unix_test>")
# So that LD_LIBRARY_PATH comes before the search path in the test programs.
foreach(program binary_test checksums_test conversions_test dates_test os_sys_unix_test osunix_test)
    target_link_options(${program} PRIVATE -Wl,--enable-new-dtags)
endforeach()

# libmd exports functions under three of the library's names; a host may use both, linked in either order.
find_library(QV_LIBMD md REQUIRED)
find_path(QV_LIBMD_INCLUDE md5.h REQUIRED)
set(libmd_host binary/libmd_host.cpp binary/libmd_host_test.cpp)
qv_add_test(libmd_in_front_test ${libmd_host} LIBRARIES ${QV_LIBMD} QV::foundation)
qv_add_test(libmd_behind_test ${libmd_host} LIBRARIES QV::foundation -Wl,--no-as-needed ${QV_LIBMD})
target_compile_definitions(libmd_in_front_test PRIVATE LIBMD_IS_FIRST=1)
target_compile_definitions(libmd_behind_test PRIVATE LIBMD_IS_FIRST=0)
