# What the examples print.
qv_add_test(examples_test examples/examples_test.cpp)
add_dependencies(examples_test owners sorted_array work_queue host dates checksums scopes)
target_compile_definitions(examples_test PRIVATE EXAMPLES_DIRECTORY="$<TARGET_FILE_DIR:owners>")
