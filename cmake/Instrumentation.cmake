# What the flags of this build, the user's own ones included, weave into the code. Gives:
#   QV_SANITIZERS       the sanitizers' flags, each as -fsanitize=NAME,...; empty in an ordinary build
#   QV_IS_INSTRUMENTED  whether the code calls parts of the compiler's own libraries (sanitizers, coverage,
#                       profiling, trapping arithmetic), so that it must be linked with them
string(TOUPPER "${CMAKE_BUILD_TYPE}" qv_configuration)
get_directory_property(qv_all_flags COMPILE_OPTIONS)  # an including project's
list(APPEND qv_all_flags ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${qv_configuration}})
if(QV_SANITIZE)
    list(APPEND qv_all_flags -fsanitize=${QV_SANITIZE})
endif()
list(APPEND qv_all_flags ${QV_COVERAGE})
string(REGEX MATCHALL "-fsanitize=[^ ;]+" QV_SANITIZERS "${qv_all_flags}")
string(REGEX MATCH "-fsanitize=|-coverage|-fprofile-|-ftrapv" QV_IS_INSTRUMENTED "${qv_all_flags}")
