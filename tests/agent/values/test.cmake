# How fast a set of items is, is partly up to the program that has it.
set_source_files_properties(${folder}/items_of_files_test.cpp PROPERTIES COMPILE_OPTIONS -O2)
