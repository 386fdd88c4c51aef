# The image catalogue, end to end. Its host is also built so that the library finds no thread functions; what
# hides them must be initialised before it is used, hence the order of these sources.
add_library(leaking_module MODULE programs/image_catalog/leaking_module.cpp)
target_link_libraries(leaking_module PRIVATE QV::foundation qv_build_flags)
target_include_directories(leaking_module PRIVATE ${PROJECT_SOURCE_DIR})
add_executable(image_catalog_without_threads $<TARGET_OBJECTS:image_catalog_objects>
    support/thread_functions.cpp programs/image_catalog/without_threads.cpp)
target_link_libraries(image_catalog_without_threads PRIVATE image_catalog_objects test_support)
set_target_properties(image_catalog_without_threads PROPERTIES ENABLE_EXPORTS ON)
qv_add_test(image_catalog_test programs/image_catalog/image_catalog_test.cpp
    programs/image_catalog/image_bytes.cpp LIBRARIES ZLIB::ZLIB)
add_dependencies(image_catalog_test image_catalog image_catalog_without_threads leaking_module)
target_compile_definitions(image_catalog_test PRIVATE
    IMAGE_CATALOG="$<TARGET_FILE:image_catalog>"
    IMAGE_CATALOG_WITHOUT_THREADS="$<TARGET_FILE:image_catalog_without_threads>"
    PNG_MODULE="$<TARGET_FILE:image_catalog_png>" TIFF_MODULE="$<TARGET_FILE:image_catalog_tiff>"
    BMP_MODULE="$<TARGET_FILE:image_catalog_bmp>" JPEG_MODULE="$<TARGET_FILE:image_catalog_jpeg>"
    LEAKING_MODULE="$<TARGET_FILE:leaking_module>" FOUNDATION_LIBRARY="$<TARGET_FILE:QV::foundation>")
