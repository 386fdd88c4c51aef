# What the tests of both share.
add_library(memory_test_support STATIC memory/memory_model.cpp memory/memory_table.cpp)
target_link_libraries(memory_test_support PUBLIC test_support)

# The memory manager.
qv_add_test(dt_types_memory_blocks_test
    memory/dt_types_memory_alloc_test.cpp
    memory/dt_types_memory_associate_test.cpp
    memory/dt_types_memory_free_test.cpp
    memory/dt_types_memory_realloc_test.cpp
    LIBRARIES memory_test_support)
qv_add_test(dt_types_memory_tags_test
    memory/dt_types_memory_release_test.cpp
    memory/dt_types_memory_tag_zero_test.cpp
    memory/dt_types_memory_tags_test.cpp
    memory/memory_table_test.cpp
    LIBRARIES memory_test_support)

# The pointer array.
qv_add_test(dt_types_array_test
    memory/dt_types_array_access_test.cpp
    memory/dt_types_array_add_test.cpp
    memory/dt_types_array_creation_test.cpp
    memory/dt_types_array_remove_test.cpp
    memory/dt_types_array_search_test.cpp
    memory/dt_types_array_sorted_test.cpp
    memory/dt_types_array_wide_test.cpp
    LIBRARIES memory_test_support)

# The manager beside its model, with the unit compiled in: tables as installed, and tiny ones.
foreach(size installed tiny)
    qv_add_test(dt_types_lookaside_${size}_test memory/dt_types_lookaside_test.cpp ONE_PROCESS)
    qv_count_as_library(dt_types_lookaside_${size}_test)
    qv_add_test(dt_types_lookaside_order_${size}_test memory/dt_types_lookaside_order_test.cpp ONE_PROCESS)
    qv_count_as_library(dt_types_lookaside_order_${size}_test)
endforeach()
target_compile_definitions(dt_types_lookaside_tiny_test PRIVATE QV_TINY_LOOKASIDE)
target_compile_definitions(dt_types_lookaside_order_tiny_test PRIVATE QV_TINY_LOOKASIDE)
