# Warnings, all of them errors, on everything; what runs at load time or at exit is ruled out of the framework.

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

# g++ 12 takes `"text" + std::string` for an overlapping copy once it is inlined (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()

function(ksw_nothing_runs_at_load_time target)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wglobal-constructors -Wexit-time-destructors>)
    endif()
endfunction()
