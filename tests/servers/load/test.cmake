target_link_libraries(${name} PRIVATE kestrelwoodd_inside)
target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodd/daemon_process.cpp
                               ${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodd/daemon_inside.cpp)
add_dependencies(${name} kestrelwoodd)
