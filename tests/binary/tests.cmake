# The built library, seen from outside.
qv_add_test(binary_test binary/binary_test.cpp)
qv_add_test(hardening_test binary/hardening_test.cpp)
qv_add_test(host_names_test binary/host_names_test.cpp)
qv_add_test(load_test binary/load_test.cpp)

# libmd exports functions under three of the library's names; a host may use both, linked in either order.
find_library(QV_LIBMD md REQUIRED)
find_path(QV_LIBMD_INCLUDE md5.h REQUIRED)
set(libmd_host binary/libmd_host.cpp binary/libmd_host_test.cpp)
qv_add_test(libmd_in_front_test ${libmd_host} LIBRARIES ${QV_LIBMD} QV::foundation)
qv_add_test(libmd_behind_test ${libmd_host} LIBRARIES QV::foundation -Wl,--no-as-needed ${QV_LIBMD})
target_compile_definitions(libmd_in_front_test PRIVATE LIBMD_IS_FIRST=1)
target_compile_definitions(libmd_behind_test PRIVATE LIBMD_IS_FIRST=0)
