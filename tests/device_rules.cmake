# What the preset device-rules adds to every test is there.
orvix_test(device_rules_test SOURCES device_rules_test.cpp)
