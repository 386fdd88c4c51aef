# Many threads, processes and loads; see storms/storm.h for how many.
qv_add_test(storms_test
    storms/locks_storm_test.cpp
    storms/events_storm_test.cpp
    storms/objects_storm_test.cpp
    storms/guids_storm_test.cpp
    LIBRARIES memory_test_support Threads::Threads)
qv_add_test(fork_storm_test storms/fork_storm_test.cpp LIBRARIES Threads::Threads)

# A host in plain C: nothing but the library makes calls in it.
add_executable(first_call_host storms/first_call_host.c)
target_link_libraries(first_call_host PRIVATE QV::foundation qv_build_flags Threads::Threads)
set_target_properties(first_call_host PROPERTIES C_STANDARD 99)
if(QV_SANITIZERS)  # the library wants the sanitizers' part for C++ as well
    set_target_properties(first_call_host PROPERTIES LINKER_LANGUAGE CXX)
endif()
qv_add_test(first_call_storm_test storms/first_call_storm_test.cpp)
add_dependencies(first_call_storm_test first_call_host)
target_compile_definitions(first_call_storm_test PRIVATE FIRST_CALL_HOST="$<TARGET_FILE:first_call_host>")

add_library(visiting_module MODULE storms/visiting_module.cpp)
target_link_libraries(visiting_module PRIVATE QV::foundation)
qv_add_test(loading_storm_test storms/loading_storm_test.cpp)
add_dependencies(loading_storm_test visiting_module)
target_compile_definitions(loading_storm_test PRIVATE VISITING_MODULE="$<TARGET_FILE:visiting_module>")
