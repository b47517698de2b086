// The thread pool of this process. Without it nothing comes in: no transaction and no death.
#pragma once

#include <sys/cdefs.h>

__BEGIN_DECLS

// Starts one thread; more follow on demand. Again: nothing happens.
void ABinderProcess_startThreadPool(void);

__END_DECLS
