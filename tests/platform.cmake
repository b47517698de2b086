orvix_test(platform_parcel_test SOURCES platform_parcel_test.cpp LIBRARIES orvix_json)
# Its own peer in a second process.
orvix_test(platform_binder_test SOURCES platform_binder_test.cpp LIBRARIES binder_ndk android_net log)
