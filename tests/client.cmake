# The whole library in one process, between a Java VM of function tables and a recorded platform border.

include(${CMAKE_SOURCE_DIR}/sim/vm/quiet_jni.cmake)
add_library(fake_jni STATIC fake_jni.cpp jni_recorder.cpp)
target_link_libraries(fake_jni PUBLIC quiet_jni orvix_json ${CMAKE_DL_LIBS})
foreach(border AIBinder_transact AIBinder_associateClass AIBinder_linkToDeath AIBinder_unlinkToDeath
               AServiceManager_waitForService AParcel_fromJavaParcel android_tag_socket_with_uid socket close syslog)
    target_link_options(fake_jni INTERFACE -Wl,--wrap=${border})
endforeach()

orvix_test(jni_transcript_test SOURCES jni_transcript_test.cpp jni_scenes.cpp LIBRARIES fake_jni aidl_methods)
orvix_test(client_faults_test SOURCES client_faults_test.cpp LIBRARIES fake_jni)
orvix_test(client_ends_test SOURCES client_ends_test.cpp LIBRARIES fake_jni)
