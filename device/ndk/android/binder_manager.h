// The service manager, in the part that the library uses; a public NDK lacks this header.
#pragma once

#include <android/binder_ibinder.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Waits until the name is registered. The caller owns the reference; null for a name that cannot be.
AIBinder* AServiceManager_waitForService(const char* instance) __attribute__((warn_unused_result));

__END_DECLS
