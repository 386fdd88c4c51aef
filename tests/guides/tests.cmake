# The guides: each is followed as a reader would, with the library installed as a package would install it, and
# what its tables say is computed.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
enable_language(C)

add_test(NAME run_guide_test COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/guides/run_guide_test.py)

set(guide_flags ${QV_SANITIZERS})
if(QV_IS_INSTRUMENTED)
    set(guide_compilers --instrumented)
    if(QV_COVERAGE)
        list(APPEND guide_flags ${QV_COVERAGE})
    endif()
endif()
string(JOIN " " guide_flags ${guide_flags})
foreach(guide
        README getting-started owning-memory arrays threads dates-and-numbers beside-other-libraries
        coming-from-other-libraries)
    add_test(NAME guide.${guide}
        COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/guides/run_guide.py
            ${PROJECT_SOURCE_DIR}/docs/guides/${guide}.md
            --build ${PROJECT_BINARY_DIR} --cmake ${CMAKE_COMMAND} --generator ${CMAKE_GENERATOR}
            --cc ${CMAKE_C_COMPILER} --cxx ${CMAKE_CXX_COMPILER} --flags=${guide_flags} ${guide_compilers})
    set_tests_properties(guide.${guide} PROPERTIES TIMEOUT 300)
endforeach()

qv_add_test(guide_tables_test guides/tables_test.cpp)
