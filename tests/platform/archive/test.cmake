# A program that the test in Python runs.
add_executable(archive_tool ${folder}/tool/archive_tool.cpp)
target_link_libraries(archive_tool PRIVATE kestrelwood_inside Threads::Threads)
