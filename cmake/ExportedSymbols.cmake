# foundation/exports.txt, one name a line, is the only list of what the library exports. From it come
#   QV_VERSION_SCRIPT  exports those names and nothing else
#   QV_DYNAMIC_LIST    names the functions that the library calls through the dynamic symbol, so that a
#                      host can put its own in their place; calls of all others stay inside the library
set(QV_EXPORTS_FILE ${PROJECT_SOURCE_DIR}/foundation/exports.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${QV_EXPORTS_FILE})
file(STRINGS ${QV_EXPORTS_FILE} exported_names)
list(JOIN exported_names "; " exported_names)

set(QV_VERSION_SCRIPT ${PROJECT_BINARY_DIR}/exports.map)
set(QV_DYNAMIC_LIST ${PROJECT_BINARY_DIR}/interposable.list)
file(CONFIGURE OUTPUT ${QV_VERSION_SCRIPT} CONTENT "{ global: ${exported_names}; local: *; };\n")
file(CONFIGURE OUTPUT ${QV_DYNAMIC_LIST} CONTENT "{ OS_debug_output; };\n")
