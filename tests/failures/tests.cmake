# What each operation asks of the heap.
qv_add_test(heap_traffic_test
    failures/heap_traffic_test.cpp
    failures/heap_traffic_memory.cpp
    failures/heap_traffic_array.cpp
    failures/heap_traffic_services.cpp
    support/thread_functions.cpp
    LIBRARIES memory_test_support)

# Every call of the platform, failed. In an ordinary debug build every call of the library can be told from its
# frames; see failures/call_sites.h.
qv_add_test(failures_test
    failures/failures_test.cpp
    failures/call_sites.cpp
    failures/platform_faults.cpp
    failures/memory_scenarios.cpp
    failures/array_scenarios.cpp
    failures/search_scenarios.cpp
    failures/synchronisation_scenarios.cpp
    failures/file_scenarios.cpp
    failures/service_scenarios.cpp
    failures/text_scenarios.cpp
    support/platform_trace.cpp
    support/thread_functions.cpp
    LIBRARIES memory_test_support)
if(CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT QV_IS_INSTRUMENTED)
    target_compile_definitions(failures_test PRIVATE CALLS_LEAVE_FRAMES)
endif()
