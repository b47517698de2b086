# The tools of sim/: the parcel inspector and the simulated service.
add_test(NAME parcel_tool
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/parcel_tool_test.py ${CMAKE_CURRENT_SOURCE_DIR}/data
                 ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:orvix-parcel>)
needs(parcel_tool orvix-parcel)

add_test(NAME service_tool
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/service_tool_test.py ${CMAKE_BINARY_DIR}
                 ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:orvix-service>)
needs(service_tool orvix-service)

add_test(NAME aidl_files
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/aidl_files_test.py ${CMAKE_SOURCE_DIR}/aidl
                 ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:orvix-parcel>)
needs(aidl_files orvix-parcel)

# The reader of device logs: Python only.
add_test(NAME logcat COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/logcat_test.py)
