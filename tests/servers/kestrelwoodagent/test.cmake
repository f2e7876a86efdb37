target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodd/daemon_process.cpp)
ksw_tell_folders(${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodd/daemon_process.cpp)
target_link_libraries(${name} PRIVATE kestrelwoodagent_inside)
add_dependencies(${name} kestrelwoodd kestrelwoodagent)
