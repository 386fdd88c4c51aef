# Hosts that use the library beside others, and its headers beside theirs.
qv_add_test(renamed_long_test company/renamed_long_test.cpp)

# Several libraries in every order, as far as they are installed. libmd's functions have names that are the
# library's, too. Not with the libbsd of Debian 11, told here by its libcrypto: that one looks libmd's functions up
# by name behind itself, and ends the process or is wrong where the order does not suit it.
find_library(QV_LIBMD_FILE NAMES libmd.so.0)
find_library(QV_LIBBSD_FILE NAMES libbsd.so.0)
find_library(QV_LIBZ_FILE NAMES libz.so.1)
find_library(QV_LIBCRYPTO3_FILE NAMES libcrypto.so.3)
if(QV_LIBMD_FILE AND QV_LIBBSD_FILE AND QV_LIBZ_FILE AND QV_LIBCRYPTO3_FILE)
    add_library(crowded_host_object OBJECT company/crowded_host.cpp)
    target_link_libraries(crowded_host_object PRIVATE QV::foundation qv_build_flags)
    add_executable(crowded_host $<TARGET_OBJECTS:crowded_host_object>)
    target_link_libraries(crowded_host PRIVATE qv_build_flags ${CMAKE_DL_LIBS})
    qv_add_test(company_orders_test company/orders_test.cpp)
    add_dependencies(company_orders_test crowded_host)
    target_compile_definitions(company_orders_test PRIVATE
        LOADING_HOST="$<TARGET_FILE:crowded_host>"
        HOST_OBJECT="$<TARGET_OBJECTS:crowded_host_object>"
        LIBMD_FILE="${QV_LIBMD_FILE}" LIBBSD_FILE="${QV_LIBBSD_FILE}"
        LIBZ_FILE="${QV_LIBZ_FILE}" LIBCRYPTO_FILE="${QV_LIBCRYPTO3_FILE}")
endif()

# Headers of others, as far as they are installed.
find_path(QV_ODBC_FOLDER sqltypes.h)
find_path(QV_XMD_FOLDER X11/Xmd.h)
find_path(QV_WINPR_FOLDER winpr/wtypes.h PATH_SUFFIXES winpr3 winpr2)
find_path(QV_WINE_FOLDER windef.h PATH_SUFFIXES wine/wine/windows wine/windows)
if(QV_ODBC_FOLDER OR QV_XMD_FOLDER OR QV_WINPR_FOLDER OR QV_WINE_FOLDER)
    qv_add_test(company_headers_test company/headers_test.cpp)
    foreach(others ODBC XMD WINPR WINE)
        if(QV_${others}_FOLDER)
            target_compile_definitions(company_headers_test PRIVATE HAVE_${others}=1)
        else()
            target_compile_definitions(company_headers_test PRIVATE HAVE_${others}=0)
        endif()
    endforeach()
    target_compile_definitions(company_headers_test PRIVATE
        WINPR_FOLDER="${QV_WINPR_FOLDER}" WINE_FOLDER="${QV_WINE_FOLDER}")
endif()
