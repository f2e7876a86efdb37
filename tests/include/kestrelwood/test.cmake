# A program outside: it sees the exported headers, and of the shared library what that does not hide.
set_property(TARGET ${name} PROPERTY LINK_LIBRARIES
    kestrelwood_shared GTest::gmock GTest::gtest GTest::gtest_main Threads::Threads)
# The same in C. A sanitizer's runtime for C++ comes with that language's linker.
add_executable(program_in_c ${folder}/program_in_c.c)
target_link_libraries(program_in_c PRIVATE kestrelwood_shared)
if(KSW_SANITIZE)
    set_target_properties(program_in_c PROPERTIES LINKER_LANGUAGE CXX)
endif()
add_test(NAME tests/include/kestrelwood/program_in_c COMMAND program_in_c)
set_tests_properties(tests/include/kestrelwood/program_in_c PROPERTIES
    ENVIRONMENT "KESTRELWOOD_ROOT=${CMAKE_BINARY_DIR}/no-host")
