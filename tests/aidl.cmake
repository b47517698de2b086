# The interface: records, proxies and stubs in one process and between two, and the .aidl files beside them.
add_library(aidl_test_support STATIC aidl_support.cpp)
target_link_libraries(aidl_test_support PUBLIC orvix_aidl orvix_json GTest::gtest ${CMAKE_DL_LIBS})
target_compile_definitions(aidl_test_support PRIVATE TEST_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data")

foreach(name golden contract process)
    orvix_test(aidl_${name}_test SOURCES aidl_${name}_test.cpp LIBRARIES aidl_test_support)
endforeach()

add_test(NAME aidl_files
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/aidl_files_test.py ${CMAKE_SOURCE_DIR}/aidl
                 ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:orvix-parcel>)
add_test(NAME device_symbols
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/device_symbols_test.py
                 ${CMAKE_CURRENT_SOURCE_DIR}/data/device_symbols.txt ${CMAKE_BINARY_DIR})
