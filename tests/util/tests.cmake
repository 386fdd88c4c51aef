# Conversions, and checksums beside independent implementations of them.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
qv_add_test(conversions_test util/conversions_test.cpp)
qv_add_test(checksums_test util/checksums_test.cpp LIBRARIES OpenSSL::Crypto ZLIB::ZLIB)
