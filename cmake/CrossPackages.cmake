# What the tests and tools find on the host, for a cross build: googletest from Debian's sources, and the two libraries
# that are headers only, without the rest of the host's /usr/include.
include(${CMAKE_CURRENT_LIST_DIR}/GoogleTest.cmake)

foreach(package nlohmann_json:nlohmann CLI11:CLI)
    string(REGEX MATCH "([^:]+):(.+)" _ ${package})
    set(name ${CMAKE_MATCH_1})
    set(folder ${CMAKE_MATCH_2})
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/host-include/${name})
    file(CREATE_LINK /usr/include/${folder} ${CMAKE_BINARY_DIR}/host-include/${name}/${folder} SYMBOLIC)
    add_library(${name}::${name} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${name}::${name} SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/host-include/${name})
    string(TOLOWER ${name} lower)
    file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/${lower}-config.cmake "")
endforeach()
