# The memory manager and the pointer array.
qv_add_test(dt_types_memory_test memory/dt_types_memory_test.cpp)
qv_add_test(dt_types_array_test memory/dt_types_array_test.cpp)
