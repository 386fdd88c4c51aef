# Fuzz targets. Everywhere the files in fuzz/corpus are replayed as a test; with QV_BUILD_FUZZERS (the preset
# fuzz) each target is a libFuzzer program as well. scripts/fuzz runs those, told by the list written here.
set(fuzz_target_list ${PROJECT_BINARY_DIR}/fuzz_targets.tsv)
file(WRITE ${fuzz_target_list} "")

# qv_add_fuzz_target(NAME SOURCE... [LIBRARIES LIBRARY...] [DEFINITIONS D...] [SEEDS FOLDER...]): SEEDS are
# folders of files beside fuzz/corpus/NAME.
function(qv_add_fuzz_target name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES;DEFINITIONS;SEEDS")
    set(seeds ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/corpus/${name} ${arg_SEEDS})
    set(programs replay_${name})
    add_executable(replay_${name} fuzz/replay_main.cpp ${arg_UNPARSED_ARGUMENTS})
    if(QV_BUILD_FUZZERS)
        add_executable(fuzz_${name} ${arg_UNPARSED_ARGUMENTS})
        target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
        list(APPEND programs fuzz_${name})
        add_dependencies(fuzzers fuzz_${name})
    endif()
    foreach(program IN LISTS programs)
        target_link_libraries(${program} PRIVATE test_support ${arg_LIBRARIES})
        target_compile_definitions(${program} PRIVATE ${arg_DEFINITIONS})
        # The heap's trace stands in front of the C library's functions; see qv_add_test.
        set_target_properties(${program} PROPERTIES ENABLE_EXPORTS ON)
    endforeach()
    add_test(NAME fuzz_corpus.${name} COMMAND replay_${name} ${seeds})
    set_tests_properties(fuzz_corpus.${name} PROPERTIES TIMEOUT 300)
    string(REPLACE ";" "\t" line "${name};${seeds}")
    file(APPEND ${fuzz_target_list} "${line}\n")
endfunction()

if(QV_BUILD_FUZZERS)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
        message(FATAL_ERROR "QV_BUILD_FUZZERS needs clang++: use the preset fuzz")
    endif()
    add_custom_target(fuzzers)
endif()

# Sequences of calls.
foreach(subject array_calls checksum_calls date_calls memory_calls object_calls)
    qv_add_fuzz_target(${subject} fuzz/calls.cpp
        LIBRARIES sequence_subjects DEFINITIONS FUZZED_SUBJECT=${subject})
endforeach()

# Texts and numbers from outside.
qv_add_fuzz_target(checksums fuzz/checksums.cpp LIBRARIES OpenSSL::Crypto ZLIB::ZLIB)
qv_add_fuzz_target(dates fuzz/dates.cpp)
qv_add_fuzz_target(fixed_point fuzz/fixed_point.cpp)
qv_add_fuzz_target(numbers fuzz/numbers.cpp)
qv_add_fuzz_target(paths fuzz/paths.cpp)
qv_add_fuzz_target(texts fuzz/texts.cpp)

# The image modules, each with the sources that it is built from, on the catalogue's samples too.
if(QV_BUILD_PROGRAMS)
    set(image_catalog ${PROJECT_SOURCE_DIR}/programs/image_catalog)
    set(png_sources png.cpp)
    set(tiff_sources tiff.cpp tiff_directory.cpp)
    set(bmp_sources bmp.cpp)
    set(jpeg_sources jpeg.cpp tiff_directory.cpp)
    foreach(kind png tiff bmp jpeg)
        list(APPEND ${kind}_sources image_facts.cpp)
        list(TRANSFORM ${kind}_sources PREPEND ${image_catalog}/modules/)
        qv_add_fuzz_target(image_${kind} fuzz/image.cpp ${${kind}_sources}
            LIBRARIES image_catalog_flags SEEDS ${image_catalog}/samples)
    endforeach()
endif()
