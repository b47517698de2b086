# What belongs to the device: that things written twice agree, that overflow ends the process, and the hardened object.
add_test(NAME device_consistency
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/device_consistency_test.py)
add_test(NAME device_symbols
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/device_symbols_test.py
                 ${CMAKE_CURRENT_SOURCE_DIR}/data/device_symbols.txt ${CMAKE_BINARY_DIR})

add_library(device_helpers OBJECT device_helpers.cpp)
target_link_libraries(device_helpers PRIVATE orvix_aidl)

orvix_test(hardened_overflow_test SOURCES hardened_overflow_test.cpp LIBRARIES orvix_client)

if(ORVIX_HARDENED)
    add_library(hardened_checks STATIC hardened_checks.cpp)
    orvix_library_options(hardened_checks)
    orvix_test(hardened_checks_test SOURCES hardened_checks_test.cpp LIBRARIES hardened_checks)
    add_test(NAME device_report
             COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/device_report_test.py
                     $<TARGET_FILE:OrvixJni> ${CMAKE_CXX_COMPILER})
endif()
if(CMAKE_CROSSCOMPILING)
    add_test(NAME device_android COMMAND ${CMAKE_SOURCE_DIR}/orvix device --report)
    # The same program on a processor without the newer atomic instructions, and on one with them.
    add_executable(device_atomics device_atomics.cpp)
    target_link_libraries(device_atomics PRIVATE orvix_client)
    foreach(processor cortex-a53:0 max:1)
        string(REPLACE ":" ";" words ${processor})
        list(POP_FRONT words name)
        add_test(NAME device_atomics_${name} COMMAND device_atomics ${words})
        set_tests_properties(device_atomics_${name} PROPERTIES ENVIRONMENT QEMU_CPU=${name})
    endforeach()
endif()
