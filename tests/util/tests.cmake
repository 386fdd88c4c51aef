# Conversions, and checksums beside independent implementations of them.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
qv_add_test(conversions_test
    util/conversions_fixture.cpp
    util/conversions_build_date_test.cpp
    util/conversions_byte_order_test.cpp
    util/conversions_case_test.cpp
    util/conversions_case_places_test.cpp
    util/conversions_fixed_point_test.cpp
    util/conversions_resolution_test.cpp
    util/conversions_threads_test.cpp)
qv_add_test(checksums_test
    util/checksums_crc_test.cpp
    util/checksums_crc_table_test.cpp
    util/checksums_md5_test.cpp
    util/checksums_md5_count_test.cpp
    util/checksums_md5_overlap_test.cpp
    util/checksums_md5_record_test.cpp
    LIBRARIES OpenSSL::Crypto ZLIB::ZLIB)

# Their private parts, compiled into the tests. The second one says what kind of processor there is.
set(checksums_crc_sources
    ${PROJECT_SOURCE_DIR}/foundation/util/checksums_crc.cpp
    ${PROJECT_SOURCE_DIR}/foundation/util/checksums_crc_avx512.cpp
    ${PROJECT_SOURCE_DIR}/foundation/util/checksums_crc_pclmul.cpp)
qv_add_test(checksums_crc_kernels_test
    util/checksums_crc_kernels_test.cpp
    util/checksums_crc_choice_test.cpp
    ${checksums_crc_sources}
    LIBRARIES ZLIB::ZLIB)
qv_add_test(checksums_crc_processors_test util/checksums_crc_processors_test.cpp ${checksums_crc_sources}
    LIBRARIES ZLIB::ZLIB)
foreach(test checksums_crc_kernels_test checksums_crc_processors_test)
    qv_count_as_library(${test})
endforeach()
target_include_directories(checksums_crc_processors_test SYSTEM BEFORE PRIVATE util/other_processor)
