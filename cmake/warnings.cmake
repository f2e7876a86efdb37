# Warnings, all of them errors, on everything; what runs at load time or at exit is ruled out of the framework.

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

function(ksw_nothing_runs_at_load_time target)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wglobal-constructors -Wexit-time-destructors>)
    endif()
endfunction()
