# A VM of function tables without a transcript; the fuzzers, the benchmarks and the soak use it.
include_guard(GLOBAL)
add_library(quiet_jni STATIC ${CMAKE_SOURCE_DIR}/sim/quiet_jni.cpp)
target_link_libraries(quiet_jni PUBLIC orvix_client)
