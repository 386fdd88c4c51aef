# foundation.hpp: its classes, in both modes where there are two, and its languages.
find_package(Threads REQUIRED)
qv_add_test(hpp_memory_test hpp/owner_test.cpp hpp/memory_resource_test.cpp hpp/array_test.cpp)
foreach(mode threaded emulated)
    qv_add_test(hpp_${mode}_test hpp/locks_test.cpp support/thread_functions.cpp LIBRARIES Threads::Threads)
endforeach()
target_compile_definitions(hpp_emulated_test PRIVATE PROCESS_IS_EMULATED)

add_library(greeting_module MODULE hpp/greeting_module.cpp)
qv_add_test(hpp_modules_and_files_test hpp/modules_and_files_test.cpp)
add_dependencies(hpp_modules_and_files_test greeting_module)
target_compile_definitions(hpp_modules_and_files_test PRIVATE GREETING_MODULE="$<TARGET_FILE:greeting_module>")

qv_add_test(hpp_dialects_test hpp/dialects_test.cpp)
