# Run as a script in the project's folder:  cmake -P cmake/PrintVersion.cmake
cmake_minimum_required(VERSION 3.18)
include(${CMAKE_CURRENT_LIST_DIR}/Version.cmake)
execute_process(COMMAND ${CMAKE_COMMAND} -E echo ${QV_VERSION})
