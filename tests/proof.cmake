# Endurance, on a Java VM and without one. No VM runs under a sanitizer's runtime or for another processor.
function(orvix_soak_test name)
    add_test(NAME ${name}
             COMMAND ${CMAKE_SOURCE_DIR}/sim/live/soak.py --build ${CMAKE_BINARY_DIR} ${ARGN})
endfunction()
if(CMAKE_CROSSCOMPILING)
    return()
endif()
orvix_soak_test(soak_without_vm --cycles 20 --quiet-vm)
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    orvix_soak_test(soak --cycles 100 --log ${CMAKE_BINARY_DIR}/soak.log)
endif()
