# A VM of function tables without a transcript; fuzzers, benchmarks and the soak use it, and, with faults, the tests.
include_guard(GLOBAL)
add_library(quiet_jni STATIC ${CMAKE_CURRENT_LIST_DIR}/quiet_jni.cpp)
target_link_libraries(quiet_jni PUBLIC orvix_client)
