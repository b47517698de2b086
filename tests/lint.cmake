# The form of the code. What clang-tidy finds takes minutes: ./orvix lint.
if(CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return()
endif()
find_program(CLANG_FORMAT clang-format REQUIRED)
file(GLOB_RECURSE formatted CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/*.h ${CMAKE_SOURCE_DIR}/*.cpp)
list(FILTER formatted EXCLUDE REGEX "^${CMAKE_SOURCE_DIR}/build/")
add_test(NAME format COMMAND ${CLANG_FORMAT} --dry-run --Werror ${formatted})

# What the pages show is typed, with what is built here.
if(CMAKE_BINARY_DIR STREQUAL ${CMAKE_SOURCE_DIR}/build/dev)
    add_test(NAME docs COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/docs_test.py)
endif()
