// The binder threads of this process, in the part that the library uses; a public NDK lacks this header.
#pragma once

#include <sys/cdefs.h>

__BEGIN_DECLS

// Starts the pool. Without it no call and no death comes in. Again: nothing happens.
void ABinderProcess_startThreadPool(void);

__END_DECLS
