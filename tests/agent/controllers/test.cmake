set(shared ${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodd/daemon_process.cpp
    ${CMAKE_SOURCE_DIR}/tests/servers/kestrelwoodagent/agent_host.cpp)
target_sources(${name} PRIVATE ${shared})
ksw_tell_folders(${shared})
add_dependencies(${name} kestrelwoodd kestrelwoodagent)
