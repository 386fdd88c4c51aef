# The image catalogue, end to end. Its host is also built so that the library finds no thread functions; what
# hides them must be initialised before it is used, hence the order of these sources.
find_package(nlohmann_json REQUIRED)

add_executable(image_catalog_without_threads $<TARGET_OBJECTS:image_catalog_objects>
    support/thread_functions.cpp programs/image_catalog/without_threads.cpp)
target_link_libraries(image_catalog_without_threads PRIVATE image_catalog_objects test_support)
set_target_properties(image_catalog_without_threads PROPERTIES ENABLE_EXPORTS ON)

qv_add_test(image_catalog_test
    programs/image_catalog/allocation_failures_test.cpp
    programs/image_catalog/bad_files.cpp
    programs/image_catalog/bad_files_test.cpp
    programs/image_catalog/catalog_run.cpp
    programs/image_catalog/command_line_test.cpp
    programs/image_catalog/folders_test.cpp
    programs/image_catalog/good_files_test.cpp
    programs/image_catalog/image_bytes.cpp
    programs/image_catalog/installed_test.cpp
    programs/image_catalog/json_test.cpp
    programs/image_catalog/modules_test.cpp
    programs/image_catalog/mutated_files.cpp
    programs/image_catalog/mutation_test.cpp
    programs/image_catalog/reading_test.cpp
    programs/image_catalog/table_test.cpp
    programs/image_catalog/terminal_test.cpp
    programs/image_catalog/threads_test.cpp
    LIBRARIES ZLIB::ZLIB nlohmann_json::nlohmann_json)
add_dependencies(image_catalog_test image_catalog image_catalog_without_threads)
target_compile_definitions(image_catalog_test PRIVATE
    IMAGE_CATALOG="$<TARGET_FILE:image_catalog>"
    IMAGE_CATALOG_WITHOUT_THREADS="$<TARGET_FILE:image_catalog_without_threads>"
    PNG_MODULE="$<TARGET_FILE:image_catalog_png>" TIFF_MODULE="$<TARGET_FILE:image_catalog_tiff>"
    BMP_MODULE="$<TARGET_FILE:image_catalog_bmp>" JPEG_MODULE="$<TARGET_FILE:image_catalog_jpeg>"
    FOUNDATION_LIBRARY="$<TARGET_FILE:QV::foundation>"
    BUILD_FOLDER="${PROJECT_BINARY_DIR}" INSTALLED_PROGRAM="${CMAKE_INSTALL_BINDIR}/image_catalog"
    INSTALLED_LIBRARIES="${CMAKE_INSTALL_LIBDIR}" INSTALLED_MANUALS="${CMAKE_INSTALL_MANDIR}")

# And once with a heap that fails on demand, where no sanitizer has put its own in the C library's place.
if(NOT QV_IS_INSTRUMENTED)
    add_executable(image_catalog_with_failing_heap $<TARGET_OBJECTS:image_catalog_objects>
        programs/image_catalog/failing_heap.cpp)
    target_link_libraries(image_catalog_with_failing_heap PRIVATE image_catalog_objects)
    target_compile_options(image_catalog_with_failing_heap PRIVATE -fvisibility=default)
    set_target_properties(image_catalog_with_failing_heap PROPERTIES ENABLE_EXPORTS ON)
    add_dependencies(image_catalog_test image_catalog_with_failing_heap)
    target_compile_definitions(image_catalog_test PRIVATE
        IMAGE_CATALOG_WITH_FAILING_HEAP="$<TARGET_FILE:image_catalog_with_failing_heap>")
endif()

# Modules that a host must refuse, or use with care: one source, a fault each.
foreach(fault leaks lacks_function lacks_identity data_for_function function_for_identity other_kind
        other_version missing_symbol)
    add_library(module_that_${fault} MODULE programs/image_catalog/faulty_module.cpp)
    string(TOUPPER ${fault} fault_name)
    target_compile_definitions(module_that_${fault} PRIVATE FAULT_${fault_name}=1)
    target_link_libraries(module_that_${fault} PRIVATE QV::foundation qv_build_flags)
    target_include_directories(module_that_${fault} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_options(module_that_${fault} PRIVATE -Wl,-z,lazy)
    add_dependencies(image_catalog_test module_that_${fault})
    target_compile_definitions(image_catalog_test PRIVATE
        MODULE_THAT_${fault_name}="$<TARGET_FILE:module_that_${fault}>")
endforeach()

# The gdb extension, with real gdb. The host is built to be debugged.
find_package(Threads REQUIRED)
add_executable(gdb_host programs/gdb/host.cpp)
target_compile_options(gdb_host PRIVATE -g -O0 -U_FORTIFY_SOURCE)
target_link_libraries(gdb_host PRIVATE QV::foundation qv_build_flags Threads::Threads)
qv_add_test(gdb_test
    programs/gdb/damage_test.cpp
    programs/gdb/gdb_fixture.cpp
    programs/gdb/guide_test.cpp
    programs/gdb/host_targets.cpp
    programs/gdb/looks_test.cpp
    programs/gdb/standing_process.cpp
    programs/gdb/symbols_test.cpp
    ONE_PROCESS)
add_dependencies(gdb_test gdb_host)
target_compile_definitions(gdb_test PRIVATE
    GDB_HOST="$<TARGET_FILE:gdb_host>" OBJCOPY_PROGRAM="${CMAKE_OBJCOPY}")
add_test(NAME gdb_table_test COMMAND python3 -B
    ${CMAKE_CURRENT_SOURCE_DIR}/programs/gdb/table_test.py ${PROJECT_SOURCE_DIR}/programs/gdb/qvfoundation17_gdb)

# The checker, over hosts that make one mistake each, hosts that make none, and this project's own programs.
# Where everything is instrumented it is not built, and the tests say so and are skipped.
foreach(host mistaken_host clean_host busy_host)
    add_executable(checker_${host} programs/checker/${host}.c)
    target_link_libraries(checker_${host} PRIVATE QV::foundation qv_build_flags Threads::Threads)
    # Every call stands in the function that it is written in; the busy one is measured.
    target_compile_options(checker_${host} PRIVATE $<IF:$<STREQUAL:${host},busy_host>,-O2,-O0> -fno-builtin)
    if(QV_IS_INSTRUMENTED)
        set_target_properties(checker_${host} PROPERTIES LINKER_LANGUAGE CXX)
    endif()
endforeach()
add_executable(checker_unlinked_host programs/checker/unlinked_host.c)
target_link_libraries(checker_unlinked_host PRIVATE qv_build_flags ${CMAKE_DL_LIBS})
qv_add_test(checker_test
    programs/checker/checker_run.cpp
    programs/checker/command_test.cpp
    programs/checker/findings_test.cpp
    programs/checker/guide_test.cpp
    programs/checker/own_programs_test.cpp
    programs/checker/suppressions_test.cpp
    LIBRARIES nlohmann_json::nlohmann_json)
add_dependencies(checker_test
    checker_mistaken_host checker_clean_host checker_unlinked_host emulated_host image_catalog)
target_compile_definitions(checker_test PRIVATE
    MISTAKEN_HOST="$<TARGET_FILE:checker_mistaken_host>" CLEAN_HOST="$<TARGET_FILE:checker_clean_host>"
    UNLINKED_HOST="$<TARGET_FILE:checker_unlinked_host>" EMULATED_HOST="$<TARGET_FILE:emulated_host>"
    IMAGE_CATALOG="$<TARGET_FILE:image_catalog>" BUILD_FOLDER="${PROJECT_BINARY_DIR}"
    FOUNDATION_LIBRARY="$<TARGET_FILE:QV::foundation>" FOUNDATION_FOLDER="$<TARGET_FILE_DIR:QV::foundation>"
    C_COMPILER="${CMAKE_C_COMPILER}" INSTALLED_COMMANDS="${CMAKE_INSTALL_BINDIR}" INSTALLED_LIBRARIES="${CMAKE_INSTALL_LIBDIR}")
if(TARGET checker)
    add_dependencies(checker_test qv_check)
    target_compile_definitions(checker_test PRIVATE
        QV_CHECK="$<TARGET_FILE:qv_check>" CHECKER_LIBRARY="$<TARGET_FILE:checker>")
    # What hosts see of the library, its heap calls included, stays the same: these tests compare it all.
    foreach(test dt_types_array_test failures_test sequences_test)
        add_test(NAME checker.ChangesNothingFor_${test}
            COMMAND qv_check --output ${CMAKE_CURRENT_BINARY_DIR}/checker_${test}.txt $<TARGET_FILE:${test}>)
        set_tests_properties(checker.ChangesNothingFor_${test} PROPERTIES TIMEOUT 300)
    endforeach()
else()
    target_compile_definitions(checker_test PRIVATE QV_CHECK="" CHECKER_LIBRARY="")
endif()
if(QV_BUILD_EXAMPLES)
    add_dependencies(checker_test owners sorted_array work_queue host dates checksums greeter)
    target_compile_definitions(checker_test PRIVATE
        EXAMPLES_DIRECTORY="$<TARGET_FILE_DIR:owners>" GREETER_MODULE="$<TARGET_FILE:greeter>")
endif()
