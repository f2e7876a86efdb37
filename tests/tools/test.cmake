# What the tool is made of is in no library.
target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tools/common/text.cpp ${CMAKE_SOURCE_DIR}/tools/common/terminal.cpp
    ${CMAKE_SOURCE_DIR}/tools/common/columns.cpp)
