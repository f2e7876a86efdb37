# The suite that runs against both daemons starts the real one.
target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodd/daemon_process.cpp)
add_dependencies(${name} kestrelwoodd)
