# What the reference is made from: comments of the public headers, and how they are read. scripts/reference --check
# holds what is made from them to the same names.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

add_test(NAME reference_test COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/reference/reference_test.py)
set(example_flags ${QV_SANITIZERS})
if(QV_COVERAGE)
    list(APPEND example_flags ${QV_COVERAGE})
endif()
string(JOIN " " example_flags ${example_flags})
add_test(NAME header_examples_test
    COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/reference/header_examples_test.py
        $<TARGET_FILE:${QV_LIBRARY}> ${CMAKE_CXX_COMPILER} ${example_flags})
