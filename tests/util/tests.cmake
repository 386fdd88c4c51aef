# Conversions, and checksums beside independent implementations of them.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
qv_add_test(conversions_test
    util/conversions_fixture.cpp
    util/conversions_build_date_test.cpp
    util/conversions_byte_order_test.cpp
    util/conversions_case_test.cpp
    util/conversions_fixed_point_test.cpp
    util/conversions_resolution_test.cpp
    util/conversions_threads_test.cpp)
qv_add_test(checksums_test util/checksums_test.cpp LIBRARIES OpenSSL::Crypto ZLIB::ZLIB)
