# System services.
qv_add_test(osunix_test
    os/osunix_heap_test.cpp
    os/osunix_text_test.cpp
    os/osunix_files_test.cpp
    os/osunix_file_calls_test.cpp
    os/osunix_process_test.cpp
    os/osunix_identifiers_test.cpp
    os/osunix_guid_test.cpp
    support/platform_trace.cpp)

add_library(answering_module MODULE os/answering_module.cpp)
qv_add_test(os_sys_unix_test
    os/os_sys_unix_modules_test.cpp
    os/os_sys_unix_paths_test.cpp
    os/os_sys_unix_path_formatting_test.cpp
    os/os_sys_unix_names_test.cpp
    os/os_sys_unix_report_test.cpp
    support/platform_trace.cpp
    support/thread_functions.cpp)
add_dependencies(os_sys_unix_test answering_module)
target_compile_definitions(os_sys_unix_test PRIVATE ANSWERING_MODULE="$<TARGET_FILE:answering_module>")

# Threads. The emulated mode is tested in a process of that mode and by direct calls in a threaded one.
find_package(Threads REQUIRED)
qv_add_test(osunix_threads_test
    os/osunix_threads_test.cpp
    os/osunix_threads_side_by_side_test.cpp
    os/osunix_threads_late_test.cpp
    os/osunix_threads_reload_test.cpp
    support/thread_functions.cpp
    LIBRARIES Threads::Threads)
qv_add_test(osunix_dispatch_test os/osunix_dispatch_test.cpp support/thread_functions.cpp)
qv_add_test(osunix_threaded_test
    os/osunix_threaded_test.cpp
    os/osunix_threaded_events_test.cpp
    LIBRARIES Threads::Threads)
qv_add_test(osunix_threaded_calls_test
    os/osunix_threaded_lock_calls_test.cpp
    os/osunix_threaded_event_calls_test.cpp
    support/thread_functions.cpp)
qv_add_test(osunix_emulated_test os/osunix_emulated_test.cpp support/thread_functions.cpp)
qv_add_test(osunix_emulated_direct_test os/osunix_emulated_test.cpp support/thread_functions.cpp)
target_compile_definitions(osunix_emulated_direct_test PRIVATE PROCESS_IS_THREADED)

# A host in plain C without GoogleTest, whose libraries would bring the thread library into the process.
# Up to glibc 2.33 the thread library is a separate one: the host without it is in emulated mode there. A
# sanitizer's run-time library brings it in, too.
enable_language(C)
include(CheckCSourceCompiles)
check_c_source_compiles("
    #include <features.h>
    #if !__GLIBC_PREREQ(2, 34)
    #error
    #endif
    int main(void) { return 0; }" QV_LIBC_HAS_THREADS)
foreach(host emulated_host emulated_host_with_threads)
    add_executable(${host} os/emulated_host.c)
    target_link_libraries(${host} PRIVATE QV::foundation qv_build_flags)
    set_target_properties(${host} PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)
    if(QV_SANITIZERS)  # the library wants the sanitizers' part for C++ as well
        set_target_properties(${host} PROPERTIES LINKER_LANGUAGE CXX)
    endif()
    add_test(NAME ${host} COMMAND ${host})
endforeach()
target_link_options(emulated_host_with_threads PRIVATE
    -Wl,--push-state,--no-as-needed,-lpthread,--pop-state)
if(NOT QV_LIBC_HAS_THREADS)
    add_test(NAME emulated_host_with_threads.IsThreaded COMMAND emulated_host_with_threads threaded)
    if(NOT QV_SANITIZERS)
        add_test(NAME emulated_host.IsEmulated COMMAND emulated_host emulated)
    endif()
endif()
