# The one message for a compiler whose code the library is not written for.
function(qv_refuse_platform)
    message(FATAL_ERROR "QVfoundation is written for Linux on x86-64 in 64-bit mode, and the compiler "
        "${CMAKE_CXX_COMPILER} with the flags \"${CMAKE_CXX_FLAGS}\" makes code for something else.")
endfunction()

# In front of project(), whose own trial of the compiler ends in pages of messages where the system has no
# 32-bit libraries.
if("${CMAKE_CXX_FLAGS} $ENV{CXXFLAGS} " MATCHES "(^| )-m(16|32|x32) ")
    qv_refuse_platform()
endif()

# Behind project(). The compiler is asked, for the system's own facts are not its when it compiles for another.
macro(qv_require_platform)
    include(CheckCXXSourceCompiles)
    check_cxx_source_compiles("
        #if !defined(__linux__) || !defined(__x86_64__) || !defined(__LP64__)
        #error
        #endif
        int main() { return 0; }" QV_IS_X86_64_LINUX)
    if(NOT QV_IS_X86_64_LINUX)
        unset(QV_IS_X86_64_LINUX CACHE)  # asked again after a change of flags
        qv_refuse_platform()
    endif()
endmacro()
