# What the tool is made of is in no library.
foreach(part columns progress terminal text)
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tools/common/${part}.cpp)
endforeach()
