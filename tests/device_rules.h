// Before every file of the preset device-rules: with glibc, libc++ takes it that destroying a mutex does nothing, and
// leaves it out. On a device it is left in.
#pragma once

#include <__config>
#undef _LIBCPP_HAS_TRIVIAL_MUTEX_DESTRUCTION
