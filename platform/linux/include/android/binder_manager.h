// The service manager: binders by name. Names: 1 to 127 of letters, digits, '.', '_', '-' and '/'.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Registers a local binder, which is then held until another takes the name. EX_NONE, or EX_ILLEGAL_ARGUMENT for a null
// binder or a bad name, EX_ILLEGAL_STATE if this process cannot be reached.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance)
    __attribute__((warn_unused_result));

// The lookups give the caller a reference, or null for a null or bad name.
// At once; null if absent.
AIBinder* AServiceManager_checkService(const char* instance) __attribute__((warn_unused_result));
// Waits until the name is registered.
AIBinder* AServiceManager_waitForService(const char* instance) __attribute__((warn_unused_result));

__END_DECLS
