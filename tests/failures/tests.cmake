# What each operation asks of the heap.
qv_add_test(heap_traffic_test
    failures/heap_traffic_test.cpp
    failures/heap_traffic_memory.cpp
    failures/heap_traffic_array.cpp
    failures/heap_traffic_services.cpp
    support/thread_functions.cpp
    LIBRARIES memory_test_support)
