# The library on a real virtual machine. None of these tests runs where that does not: under a sanitizer's runtime or for
# another processor.
if(CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return()
endif()
find_package(Java 17 REQUIRED COMPONENTS Runtime Development)
include(UseJava)

# The agent interface's header stands beside the virtual machine.
file(REAL_PATH "${Java_JAVAC_EXECUTABLE}" java_home)
cmake_path(SET java_home NORMALIZE "${java_home}/../..")
add_library(jvm_recorder MODULE jvm_recorder.cpp jni_recorder.cpp)
target_include_directories(jvm_recorder SYSTEM PRIVATE ${java_home}/include ${java_home}/include/linux)
target_link_libraries(jvm_recorder PRIVATE orvix_json log ${CMAKE_DL_LIBS})

add_jar(orvix-jvm-tests
    SOURCES jvm/JvmExit.java
    INCLUDE_JARS orvix-app
    OUTPUT_DIR ${CMAKE_BINARY_DIR}/java)

function(orvix_live_test name)
    add_test(NAME ${name}
             COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/strange_path.py ${name}.py ${CMAKE_BINARY_DIR} ${ARGN})
endfunction()
orvix_live_test(jvm_transcript_test)
orvix_live_test(jvm_exit_test)
if(ORVIX_HARDENED)  # its archives hold no machine code yet
    orvix_live_test(live_test)
else()
    orvix_live_test(live_test pages)
endif()
needs(jvm_exit_test OrvixJni android_runtime orvix-app orvix-jvm-tests)
needs(live_test OrvixJni android_runtime orvix-app orvix-service orvix_aidl)

# A plain main program in the application's package: exit 0 when every check held.
add_jar(orvix-java-tests
    SOURCES java/vendor/nuvel/data/orvixadmin/ParcelGolden.java
    INCLUDE_JARS android-stub orvix-app ${GSON_JAR}
    OUTPUT_DIR ${CMAKE_BINARY_DIR}/java)

set(jars ${CMAKE_BINARY_DIR}/java)
add_test(NAME java.ParcelGolden
    COMMAND ${Java_JAVA_EXECUTABLE} -Xcheck:jni -Djava.library.path=$<TARGET_FILE_DIR:android_runtime>
        -cp ${jars}/orvix-java-tests.jar:${jars}/orvix-app.jar:${jars}/android-stub.jar:${GSON_JAR}
        vendor.nuvel.data.orvixadmin.ParcelGolden ${CMAKE_SOURCE_DIR}/tests/data)
set_tests_properties(java.ParcelGolden PROPERTIES FAIL_REGULAR_EXPRESSION "WARNING in native;FATAL ERROR")
