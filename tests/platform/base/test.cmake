# url_tool resolves URLs for the agreement with another implementation.
add_executable(url_tool ${folder}/tool/url_tool.cpp)
target_link_libraries(url_tool PRIVATE kestrelwood_inside)
add_dependencies(${name} url_tool)
