# plist_tool converts between the forms for the agreement with another implementation.
add_executable(plist_tool ${folder}/tool/plist_tool.cpp)
target_link_libraries(plist_tool PRIVATE kestrelwood_inside)
add_dependencies(${name} plist_tool)
