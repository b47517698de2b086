# The interface: records, proxies and stubs in one process, and the .aidl files beside them.
add_library(aidl_methods STATIC aidl_methods.cpp)
target_link_libraries(aidl_methods PUBLIC orvix_aidl orvix_json)
add_library(aidl_test_support STATIC aidl_support.cpp)
target_link_libraries(aidl_test_support PUBLIC aidl_methods GTest::gtest ${CMAKE_DL_LIBS})
target_compile_definitions(aidl_test_support PRIVATE TEST_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data")

foreach(name golden contract)
    orvix_test(aidl_${name}_test SOURCES aidl_${name}_test.cpp LIBRARIES aidl_test_support)
endforeach()
target_link_libraries(aidl_contract_test PRIVATE orvix_client)  # a stub that is an object
set_target_properties(aidl_contract_test PROPERTIES CXX_STANDARD 23)  # resize_and_overwrite
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_sources(aidl_contract_test PRIVATE ${CMAKE_SOURCE_DIR}/bench/allocations.cpp)
    target_compile_definitions(aidl_contract_test PRIVATE ORVIX_COUNTS_ALLOCATIONS)
endif()
