# How fast a set of items is, is partly up to the program that has it. Shared headers are compiled like all other tests.
set_source_files_properties(${folder}/items_of_files_test.cpp PROPERTIES
    COMPILE_OPTIONS -O2 SKIP_PRECOMPILE_HEADERS ON)
