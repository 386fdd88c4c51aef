# Random sequences of calls against simple models.
add_library(sequence_subjects STATIC
    sequences/sequence.cpp
    sequences/array_calls.cpp
    sequences/checksum_calls.cpp
    sequences/date_calls.cpp
    sequences/memory_calls.cpp
    sequences/object_calls.cpp)
target_link_libraries(sequence_subjects PUBLIC memory_test_support OpenSSL::Crypto ZLIB::ZLIB)
qv_add_test(sequences_test
    sequences/sequence_test.cpp
    sequences/sequences_test.cpp
    LIBRARIES sequence_subjects)
