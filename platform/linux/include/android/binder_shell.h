// Shell commands for a binder class.
#pragma once

#include <android/binder_ibinder.h>
#include <stdint.h>
#include <sys/cdefs.h>

// C programs read this too. NOLINTBEGIN(modernize-use-using)
__BEGIN_DECLS

typedef binder_status_t (*AIBinder_handleShellCommand)(AIBinder* binder, int in, int out, int err, const char** argv,
                                                       uint32_t argc);
// Null where the library at hand lacks it.
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz, AIBinder_handleShellCommand handler)
    __attribute__((weak));

__END_DECLS
// NOLINTEND(modernize-use-using)
