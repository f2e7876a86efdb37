target_link_libraries(${name} PRIVATE kestrelwoodd_inside)
add_dependencies(${name} kestrelwoodd)
