# The Linux platform: parcels in one process; binders with this program again as their peer in a second one.
include(${CMAKE_SOURCE_DIR}/sim/vm/quiet_jni.cmake)
orvix_test(platform_parcel_test SOURCES platform_parcel_test.cpp LIBRARIES aidl_test_support quiet_jni)
orvix_test(platform_binder_test SOURCES platform_binder_test.cpp LIBRARIES binder_ndk android_net log)
